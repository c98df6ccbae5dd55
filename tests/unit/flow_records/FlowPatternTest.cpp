#include "FlowPattern.h"

#include <gmock/gmock.h>

#include "RecordValues.h"

namespace {

using FlowTracking::FlowPattern;
using FlowTracking::HoIp6FlowKey;
using FlowTracking::HoIpFlowKey;
using FlowTracking::Network;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

template <class Key>
Key key(const std::string& text) {
  return Key(text.begin(), text.end());
}
const auto kFour = key<HoIpFlowKey>("16777215/10/10.1.2.3/10.9.8.7/6/1234/80/1/Ethernet1");
const auto kSix = key<HoIp6FlowKey>("16777215/10/2001:db8::1/2001:db8:8000::2/17/53/5353/2/Ethernet2");

Pavo::IpAddr four(std::string_view text) {
  return Pavo::addressFromText<Pavo::IpAddr>(text);
}

TEST(NetworkTest, HoldsTheAddressesThatShareItsFirstBits) {
  const Network network("10.16.0.0/12");
  EXPECT_TRUE(network.holds(four("10.16.0.0")));
  EXPECT_TRUE(network.holds(four("10.31.255.255")));
  EXPECT_FALSE(network.holds(four("10.32.0.0")));
  EXPECT_FALSE(network.holds(four("11.16.0.0")));
  EXPECT_TRUE(Network("10.31.0.0/12").holds(four("10.16.0.1")));
  EXPECT_TRUE(Network("0.0.0.0/0").holds(four("255.255.255.255")));
  EXPECT_FALSE(Network("::/0").holds(four("0.0.0.0")));
  EXPECT_TRUE(Network("2001:db8:8000::/33").holds(kSix.ipFlowKey.dstAddr));
  EXPECT_FALSE(Network("2001:db8:8000::/33").holds(kSix.ipFlowKey.srcAddr));
}

TEST(NetworkTest, OneAddressAloneIsAHost) {
  EXPECT_TRUE(Network("10.0.0.1").isHost());
  EXPECT_TRUE(Network("2001:db8::1/128").isHost());
  EXPECT_FALSE(Network("10.0.0.1/31").isHost());
  EXPECT_EQ(Network("10.0.0.1/32").text(), "10.0.0.1");
  EXPECT_EQ(Network("2001:db8::/32").text(), "2001:db8::/32");
}

TEST(NetworkTest, RefusesWhatIsNone) {
  for (const char* text :
       {"", "10.0.0", "10.0.0.1/", "10.0.0.1/33", "10.0.0.1/x", "10.0.0.1/8/9", "::/129", "::1/-1"})
    EXPECT_THROW(Network{text}, Kiv::ValueError) << text;
}

TEST(FlowPatternTest, AnOpenOneHoldsEverything) {
  EXPECT_TRUE(FlowPattern().holds(kFour));
  EXPECT_TRUE(FlowPattern().holds(kSix));
  EXPECT_TRUE(FlowPattern().mayHold<IPv4>() && FlowPattern().mayHold<IPv6>());
  EXPECT_FALSE(FlowPattern().key<IPv4>());
}

TEST(FlowPatternTest, EachPartCounts) {
  const auto holds = [](const auto& change) {
    FlowPattern pattern;
    change(pattern);
    return std::pair(pattern.holds(kFour), pattern.holds(kSix));
  };
  const std::pair four(true, false);
  EXPECT_EQ(holds([](auto& p) { p.source.emplace("10.0.0.0/8"); }), four);
  EXPECT_EQ(holds([](auto& p) { p.destination.emplace("10.9.8.7"); }), four);
  EXPECT_EQ(holds([](auto& p) { p.sourcePort = std::uint16_t{1234}; }), four);
  EXPECT_EQ(holds([](auto& p) { p.destinationPort = std::uint16_t{80}; }), four);
  EXPECT_EQ(holds([](auto& p) { p.protocol = 6U; }), four);
  EXPECT_EQ(holds([](auto& p) { p.direction = Bridging::AllowedTrafficDirection::ingress; }), four);
  EXPECT_EQ(holds([](auto& p) { p.interface = Pavo::IntfId("Ethernet1"); }), four);
  EXPECT_EQ(holds([](auto& p) { p.vlan = std::uint16_t{10}; }), std::pair(true, true));
  EXPECT_EQ(holds([](auto& p) { p.vlan = std::uint16_t{11}; }), std::pair(false, false));
  EXPECT_EQ(holds([](auto& p) { p.vrf = 5U; }), std::pair(false, false));
}

TEST(FlowPatternTest, AFamilyMayBeOutOfTheQuestion) {
  FlowPattern pattern;
  pattern.destination.emplace("::/0");
  EXPECT_FALSE(pattern.mayHold<IPv4>());
  EXPECT_TRUE(pattern.mayHold<IPv6>());
}

FlowPattern whole() {
  FlowPattern pattern;
  pattern.source.emplace("10.1.2.3");
  pattern.destination.emplace("10.9.8.7");
  pattern.sourcePort = std::uint16_t{1234};
  pattern.destinationPort = std::uint16_t{80};
  pattern.protocol = 6U;
  pattern.vlan = std::uint16_t{10};
  pattern.direction = Bridging::AllowedTrafficDirection::ingress;
  pattern.interface = Pavo::IntfId("Ethernet1");
  return pattern;
}

TEST(FlowPatternTest, OneWithNothingOpenIsAKey) {
  FlowPattern pattern = whole();
  EXPECT_EQ(pattern.key<IPv4>(), kFour);
  EXPECT_FALSE(pattern.key<IPv6>());
  pattern.vrf = 7U;
  EXPECT_EQ(pattern.key<IPv4>()->ipFlowKey.vrfId, 7U);
  pattern.source.emplace("10.1.2.0/24");
  EXPECT_FALSE(pattern.key<IPv4>());
}

TEST(FlowPatternTest, OneWithAPartOpenIsNoKey) {
  const auto opened = [](const auto& change) {
    FlowPattern pattern = whole();
    change(pattern);
    return pattern.key<IPv4>().has_value();
  };
  EXPECT_TRUE(opened([](FlowPattern&) {}));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.source.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.destination.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.sourcePort.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.destinationPort.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.protocol.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.vlan.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.direction.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.interface.reset(); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.destination.emplace("10.9.8.0/24"); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.source.emplace("::1"); }));
  EXPECT_FALSE(opened([](FlowPattern& p) { p.destination.emplace("::1"); }));
}

TEST(FlowPatternTest, AnOpenPartHasNoMemberInItsValue) {
  EXPECT_EQ(Kiv::ValueTraits<FlowPattern>::toValue(FlowPattern()), Kiv::Value(Kiv::Value::Object{}));
  FlowPattern pattern;
  pattern.vlan = std::uint16_t{10};
  EXPECT_EQ(Kiv::ValueTraits<FlowPattern>::toValue(pattern), Kiv::Value(Kiv::Value::Object{{"vlan", 10}}));
}

TEST(FlowPatternTest, GoesIntoAValueAndBack) {
  FlowPattern pattern = whole();
  pattern.vrf = 7U;
  const Kiv::Value value = Kiv::ValueTraits<FlowPattern>::toValue(pattern);
  const auto back = Kiv::ValueTraits<FlowPattern>::fromValue(value);
  EXPECT_EQ(Kiv::ValueTraits<FlowPattern>::toValue(back), value);
  EXPECT_EQ(back.key<IPv4>(), pattern.key<IPv4>());
  const auto open = Kiv::ValueTraits<FlowPattern>::fromValue(Kiv::Value::Object{});
  EXPECT_TRUE(open.holds(kFour) && open.holds(kSix));
}

TEST(FlowPatternTest, AMemberThatIsWrongIsNamed) {
  const auto error = [](Kiv::Value::Object members) -> std::string {
    try {
      Kiv::ValueTraits<FlowPattern>::fromValue(members);
    } catch (const Kiv::ValueError& wrong) {
      return wrong.what();
    }
    return {};
  };
  using testing::HasSubstr;
  EXPECT_THAT(error({{"source", "10.0.0.1/99"}}), HasSubstr("source: expected a prefix length up to 32"));
  EXPECT_THAT(error({{"source", "2::/9\n"}}), HasSubstr("behind the /, got \"9\\u000a\"")) << "in one line";
  EXPECT_THAT(error({{"sourcePort", 65536}}), HasSubstr("sourcePort"));
  EXPECT_THAT(error({{"direction", 3}}), HasSubstr("direction: expected a number from 1 to 2"));
  EXPECT_THAT(error({{"colour", "red"}}), HasSubstr("colour: expected no such member"));
  EXPECT_THAT(error({{"col\nour", "red"}}), HasSubstr("\"col\\u000aour\": expected no such member"));
  EXPECT_THAT(error({{"colour", "red"}}),
              HasSubstr("only source, sourcePort, destination, destinationPort, protocol, vlan, vrf, "
                        "direction, interface"));
}

}  // namespace
