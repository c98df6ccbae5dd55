#include "FlowKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <sstream>

#include "Arbitrary.h"
#include "FlowFormat.h"

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using FlowTracking::HosStateCounterKey;
using FlowTrackingTest::anyFlowKey;
using FlowTrackingTest::anyHoFlowKey;

namespace {

template <class Key>
Key parse(const std::string& text) {
  return Key(text.begin(), text.end());
}
template <class Key>
std::string parseError(const std::string& text) {
  try {
    parse<Key>(text);
  } catch (const Kiv::ValueError& error) {
    return error.what();
  }
  return "no error";
}
template <class T>
std::string printed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

template <class Domain>
class FlowKeyTest : public testing::Test {
 protected:
  using FlowKeyType = FlowTracking::FlowKey<Domain>;
  using HoKeyType = FlowTracking::HoFlowKey<Domain>;
  static constexpr bool kV4 = FlowTracking::IpFamily<Domain>::kIndex == 0;

  static std::string sample() {
    return kV4 ? "16777215/10/10.0.0.1/10.0.0.2/6/1234/80" : "7/10/2001:db8::1/::2/17/1/65535";
  }
};
using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(FlowKeyTest, Families);

// Each makes one member differ, in the members' order.
template <class HoKey>
std::vector<void (*)(HoKey&)> changes() {
  return {[](HoKey& key) { key.ipFlowKey.vrfId += 1; },
          [](HoKey& key) { key.ipFlowKey.vlan = 4; },
          [](HoKey& key) { key.ipFlowKey.srcAddr.bytes.back() = 9; },
          [](HoKey& key) { key.ipFlowKey.dstAddr.bytes.front() = 9; },
          [](HoKey& key) { key.ipFlowKey.ipProto = 17; },
          [](HoKey& key) { key.ipFlowKey.srcPort = 700; },
          [](HoKey& key) { key.ipFlowKey.dstPort = 700; },
          [](HoKey& key) { key.direction = AllowedTrafficDirection::egress; },
          [](HoKey& key) { key.intfId = Pavo::IntfId("b"); }};
}

// A packet's key is written in words that are put together from several members; each byte must come to stand
// where the member has it.
TYPED_TEST(FlowKeyTest, APacketsKeyIsTheKeyOfItsMembers) {
  using Family = FlowTracking::IpFamily<TypeParam>;
  std::array<std::uint8_t, 64> packet;
  for (std::size_t i = 0; i < packet.size(); ++i) packet[i] = static_cast<std::uint8_t>(0x81 + i);
  const typename Family::Header ip(packet.data());
  const Pavo::L4Ports l4(packet.data() + 60);
  for (const std::string name :
       {"", "a", "Ethernet", "Ethernet1/2/3.40", "Ethernet1/2/3.4095", "Port-Channel2000.40945"}) {
    typename TestFixture::FlowKeyType flow;
    flow.vlan = 4095;
    flow.srcAddr = ip.src();
    flow.dstAddr = ip.dst();
    flow.ipProto = ip.protocolNum();
    flow.srcPort = l4.srcPort();
    flow.dstPort = l4.dstPort();
    const Pavo::IntfId intfId(name);
    const typename TestFixture::HoKeyType members(flow, AllowedTrafficDirection::egress, intfId);
    const typename TestFixture::HoKeyType written(
        4095, ip, l4, FlowTracking::HoFlowPlace(AllowedTrafficDirection::egress, intfId));
    EXPECT_EQ(written, members) << written << " and " << members;
    EXPECT_EQ(written.intfId.name(), name);
  }
}

TYPED_TEST(FlowKeyTest, IsOfTheDefaultVrfUnlessTold) {
  const typename TestFixture::HoKeyType key;
  EXPECT_EQ(key.ipFlowKey.vrfId, 16777215U);
  EXPECT_EQ(key.ipFlowKey.vlan, 0);
  EXPECT_EQ(key.direction, AllowedTrafficDirection::none);
  EXPECT_TRUE(key.intfId.empty());
}

TYPED_TEST(FlowKeyTest, EveryMemberTakesPartInEqualityOrderAndHash) {
  using HoKey = typename TestFixture::HoKeyType;
  const HoKey key;
  for (const auto change : changes<HoKey>()) {
    HoKey other;
    change(other);
    EXPECT_FALSE(other == key) << other;
    EXPECT_TRUE(key < other) << other;
    EXPECT_FALSE(other < key) << other;
    EXPECT_NE(other.hash(1), key.hash(1)) << other;
    EXPECT_NE(other.str(), key.str());
  }
}

TYPED_TEST(FlowKeyTest, AnEarlierMemberDecidesTheOrderBeforeALaterOne) {
  using HoKey = typename TestFixture::HoKeyType;
  const auto all = changes<HoKey>();
  for (std::size_t i = 1; i < all.size(); ++i) {
    HoKey byEarlier;
    HoKey byLater;
    all[i - 1](byEarlier);
    for (std::size_t later = i; later < all.size(); ++later) all[later](byLater);
    EXPECT_TRUE(byLater < byEarlier) << i;
  }
}

TYPED_TEST(FlowKeyTest, OrderIsTotal) {
  using HoKey = typename TestFixture::HoKeyType;
  EXPECT_TRUE(rc::check("exactly one of <, ==, > holds, and < is transitive", [] {
    // Few values for each member, so that keys often share a prefix.
    std::array<HoKey, 3> keys;
    for (HoKey& key : keys) {
      for (const auto change : changes<HoKey>()) {
        if (*rc::gen::arbitrary<bool>()) change(key);
      }
    }
    for (const HoKey& a : keys) {
      for (const HoKey& b : keys) RC_ASSERT(int{a < b} + int{b < a} + int{a == b} == 1);
    }
    std::sort(keys.begin(), keys.end());
    RC_ASSERT(!(keys[1] < keys[0]) && !(keys[2] < keys[1]) && !(keys[2] < keys[0]));
  }));
}

TYPED_TEST(FlowKeyTest, HashDependsOnTheSeedAndNothingElse) {
  using Key = typename TestFixture::FlowKeyType;
  const Key key = parse<Key>(TestFixture::sample());
  const Key same = parse<Key>(TestFixture::sample());
  EXPECT_EQ(key.hash(7), same.hash(7));
  EXPECT_NE(key.hash(7), key.hash(8));
}

TYPED_TEST(FlowKeyTest, TextIsTheMembersInTheirOrder) {
  using Key = typename TestFixture::FlowKeyType;
  using HoKey = typename TestFixture::HoKeyType;
  const HoKey key(parse<Key>(TestFixture::sample()), AllowedTrafficDirection::egress,
                  Pavo::IntfId("Ethernet1/2"));
  EXPECT_EQ(key.ipFlowKey.str(), TestFixture::sample());
  EXPECT_EQ(printed(key.ipFlowKey), TestFixture::sample());
  EXPECT_EQ(valueToStrep(key), TestFixture::sample() + "/2/Ethernet1/2");
  EXPECT_EQ(printed(key), valueToStrep(key));
  EXPECT_EQ(fmt::format("{}", key), valueToStrep(key));
}

TYPED_TEST(FlowKeyTest, ParsingTheTextGivesBackTheKey) {
  using Key = typename TestFixture::FlowKeyType;
  using HoKey = typename TestFixture::HoKeyType;
  EXPECT_TRUE(rc::check("flow key", [] {
    const Key key = anyFlowKey<TypeParam>();
    RC_ASSERT(parse<Key>(valueToStrep(key)) == key);
  }));
  EXPECT_TRUE(rc::check("offload key", [] {
    const HoKey key = anyHoFlowKey<TypeParam>();
    RC_ASSERT(parse<HoKey>(valueToStrep(key)) == key);
  }));
  EXPECT_EQ(parse<HoKey>(valueToStrep(HoKey())), HoKey());
}

TYPED_TEST(FlowKeyTest, TextThatIsNoKeyIsRefusedAndTheMemberNamed) {
  using Key = typename TestFixture::FlowKeyType;
  EXPECT_EQ(parseError<Key>(""), "vrfId: expected a number up to 4294967295, got \"\"");
  EXPECT_EQ(parseError<Key>("1/4096/x"), "vlan: expected a number up to 4095, got \"4096\"");
  EXPECT_EQ(parseError<Key>("1/-1"), "vlan: expected a number up to 4095, got \"-1\"");
  EXPECT_EQ(parseError<Key>("1/2"), "srcAddr: expected, but the key's text ends before it");
  EXPECT_TRUE(parseError<Key>("1/2/10.0.0.256/x").starts_with("srcAddr: expected"))
      << parseError<Key>("1/2/10.0.0.256/x");
  const std::string withoutPort = TestFixture::sample().substr(0, TestFixture::sample().rfind('/'));
  EXPECT_EQ(parseError<Key>(withoutPort + "/65536"), "dstPort: expected a number up to 65535, got \"65536\"");
  EXPECT_EQ(parseError<Key>(withoutPort + "/80 "), "dstPort: expected a number up to 65535, got \"80 \"");
}

TYPED_TEST(FlowKeyTest, TextBehindAKeyIsRefused) {
  using Key = typename TestFixture::FlowKeyType;
  EXPECT_EQ(parseError<Key>(TestFixture::sample() + "/rest"), "expected the end of the key, got \"rest\"");
}

TYPED_TEST(FlowKeyTest, OffloadTextMustGoOnBehindTheFlow) {
  using HoKey = typename TestFixture::HoKeyType;
  EXPECT_EQ(parseError<HoKey>(TestFixture::sample()),
            "direction: expected, but the key's text ends before it");
  EXPECT_EQ(parseError<HoKey>(TestFixture::sample() + "/256/Ethernet1"),
            "direction: expected a number up to 255, got \"256\"");
  EXPECT_EQ(parseError<HoKey>(TestFixture::sample() + "/1"),
            "intfId: expected, but the key's text ends before it");
  EXPECT_TRUE(
      parseError<HoKey>(TestFixture::sample() + "/1/" + std::string(23, 'x')).starts_with("intfId: "));
}

TEST(HosStateCounterKeyTest, IsTheStateAlone) {
  EXPECT_EQ(HosStateCounterKey(HoFlowState::inHardware), HosStateCounterKey(HoFlowState::inHardware));
  EXPECT_LT(HosStateCounterKey(HoFlowState::inHardware), HosStateCounterKey(HoFlowState::overflow));
  EXPECT_NE(HosStateCounterKey(HoFlowState::inHardware).hash(1),
            HosStateCounterKey(HoFlowState::overflow).hash(1));
  EXPECT_EQ(valueToStrep(HosStateCounterKey(HoFlowState::inHardware)), "2");
  EXPECT_EQ(printed(HosStateCounterKey(HoFlowState::overflow)), "3");
}

TEST(HosStateCounterKeyTest, ParsingTheTextGivesBackTheKey) {
  for (unsigned state = 0; state < 256; ++state) {
    const HosStateCounterKey key(static_cast<HoFlowState>(state));
    EXPECT_EQ(parse<HosStateCounterKey>(valueToStrep(key)), key);
  }
  EXPECT_EQ(parseError<HosStateCounterKey>("256"), "state: expected a number up to 255, got \"256\"");
  EXPECT_EQ(parseError<HosStateCounterKey>("2/"), "expected the end of the key, got \"\"");
}

}  // namespace
