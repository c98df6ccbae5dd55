// The keys of the ten outputs: equality, order, hash and text form.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "SftPexa/SftPexaFtHOCSM.h"

namespace SampledFlowTracker {
namespace {

using Sm = SftPexaFtHOCSM;

// Two keys of a type, the smaller first, and the text of the first.
template <class Key>
struct Sample;
template <>
struct Sample<FlowTracking::HosStateCounterKey> {
  static FlowTracking::HosStateCounterKey first() { return HoFlowState::inHardware; }
  static FlowTracking::HosStateCounterKey second() { return HoFlowState::overflow; }
  static constexpr const char* kText = "2";
};
template <class Domain>
struct Sample<FlowTracking::FlowKey<Domain>> {
  static FlowTracking::FlowKey<Domain> first() {
    FlowTracking::FlowKey<Domain> key;
    key.vlan = 7;
    key.ipProto = 17;
    key.srcPort = 53;
    key.dstPort = 54;
    return key;
  }
  static FlowTracking::FlowKey<Domain> second() {
    auto key = first();
    key.dstPort = 55;
    return key;
  }
  static constexpr const char* kText = FlowTracking::IpFamily<Domain>::kIndex == 0
                                           ? "16777215/7/0.0.0.0/0.0.0.0/17/53/54"
                                           : "16777215/7/::/::/17/53/54";
};
template <class Domain>
struct Sample<FlowTracking::HoFlowKey<Domain>> {
  using Flow = Sample<FlowTracking::FlowKey<Domain>>;
  static FlowTracking::HoFlowKey<Domain> first() {
    return {Flow::first(), Bridging::AllowedTrafficDirection::egress, Pavo::IntfId("Ethernet1")};
  }
  static FlowTracking::HoFlowKey<Domain> second() {
    return {Flow::first(), Bridging::AllowedTrafficDirection::egress, Pavo::IntfId("Ethernet2")};
  }
  static constexpr const char* kText = FlowTracking::IpFamily<Domain>::kIndex == 0
                                           ? "16777215/7/0.0.0.0/0.0.0.0/17/53/54/2/Ethernet1"
                                           : "16777215/7/::/::/17/53/54/2/Ethernet1";
};

// A key type with its text form's name and the type of its table key.
template <class Type, class TableKey, int number>
struct Case {
  using KeyType = Type;
  using K0 = TableKey;
  static constexpr int kNumber = number;
};
using Cases = ::testing::Types<
    Case<Sm::LocalCounterCounterIp6CollectionOutputKeyType, FlowTracking::Ip6FlowKey, 0>,
    Case<Sm::LocalCounterCounterCollectionOutputKeyType, FlowTracking::IpFlowKey, 1>,
    Case<Sm::HosStateCounterHosStateIp6CounterOutputKeyType, FlowTracking::HosStateCounterKey, 2>,
    Case<Sm::HoFlowStatusHoIpFlowStatusOutputKeyType, FlowTracking::HoIpFlowKey, 3>,
    Case<Sm::HosStateCounterHosStateIpCounterOutputKeyType, FlowTracking::HosStateCounterKey, 4>,
    Case<Sm::HelperOverflowEntriesOutputKeyType, FlowTracking::HoIpFlowKey, 5>,
    Case<Sm::HoFlowCounterHoIp6FlowCounterOutputKeyType, FlowTracking::Ip6FlowKey, 6>,
    Case<Sm::HoFlowStatusHoIp6FlowStatusOutputKeyType, FlowTracking::HoIp6FlowKey, 7>,
    Case<Sm::HoFlowCounterHoIpFlowCounterOutputKeyType, FlowTracking::IpFlowKey, 8>,
    Case<Sm::HelperOverflow6EntriesOutputKeyType, FlowTracking::HoIp6FlowKey, 9>>;
constexpr const char* kTemplates[] = {
    "Value('SampledFlowTracker::SftPexaFtHOCSM::LocalCounterCounterIp6CollectionOutputKeyType', ** {'k0': "
    "%s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::LocalCounterCounterCollectionOutputKeyType', ** {'k0': %s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HosStateCounterHosStateIp6CounterOutputKeyType', ** {'k0': "
    "%s, 'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HoFlowStatusHoIpFlowStatusOutputKeyType', ** {'k0': %s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HosStateCounterHosStateIpCounterOutputKeyType', ** {'k0': "
    "%s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HelperOverflowEntriesOutputKeyType', ** {'k0': %s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HoFlowCounterHoIp6FlowCounterOutputKeyType', ** {'k0': %s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HoFlowStatusHoIp6FlowStatusOutputKeyType', ** {'k0': %s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HoFlowCounterHoIpFlowCounterOutputKeyType', ** {'k0': %s, "
    "'k0Valid': %s})",
    "Value('SampledFlowTracker::SftPexaFtHOCSM::HelperOverflow6EntriesOutputKeyType', ** {'k0': %s, "
    "'k0Valid': %s})"};

// The template with its two "%s" filled.
std::string filled(std::string form, const std::string& k0, const std::string& valid) {
  form.replace(form.find("%s"), 2, k0);
  form.replace(form.rfind("%s"), 2, valid);
  return form;
}

template <class T>
class OutputKeyTest : public ::testing::Test {
 protected:
  using OutKey = typename T::KeyType;
  using K0 = typename T::K0;
  static_assert(std::is_same_v<decltype(OutKey::k0), K0>);

  static OutKey invalid(const K0& k0) {
    OutKey key;
    key.k0 = k0;
    return key;
  }
  static std::string text(const std::string& k0, const std::string& valid) {
    return filled(kTemplates[T::kNumber], k0, valid);
  }
  // What parsing complains of; empty when it does not.
  static std::string complaint(const std::string& text) {
    try {
      const OutKey key{std::string_view(text)};
      return {};
    } catch (const Kiv::ValueError& error) {
      return error.what();
    }
  }
  const K0 first_ = Sample<K0>::first();
  const K0 second_ = Sample<K0>::second();
};
TYPED_TEST_SUITE(OutputKeyTest, Cases);

TYPED_TEST(OutputKeyTest, ADefaultKeyIsNotValidUntilItIsValidated) {
  typename TestFixture::OutKey key;
  EXPECT_FALSE(key);
  EXPECT_FALSE(key.k0Valid);
  EXPECT_EQ(key.k0, typename TestFixture::K0());
  key.validate();
  EXPECT_TRUE(key);
  EXPECT_TRUE(key.k0Valid);
}

TYPED_TEST(OutputKeyTest, AKeyOfATablesKeyIsValid) {
  const typename TestFixture::OutKey key(this->first_);
  EXPECT_TRUE(key);
  EXPECT_EQ(key.k0, this->first_);
}

TYPED_TEST(OutputKeyTest, KeysAreEqualWhenBothPartsAre) {
  using Key = typename TestFixture::OutKey;
  EXPECT_EQ(Key(this->first_), Key(this->first_));
  EXPECT_FALSE(Key(this->first_) == Key(this->second_));
  EXPECT_FALSE(Key(this->first_) == this->invalid(this->first_));
  EXPECT_EQ(this->invalid(this->first_), this->invalid(this->first_));
}

TYPED_TEST(OutputKeyTest, KeysAreOrderedByTheTablesKeyAndThenByValidity) {
  using Key = typename TestFixture::OutKey;
  const std::vector<Key> ascending{this->invalid(this->first_), Key(this->first_),
                                   this->invalid(this->second_), Key(this->second_)};
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << " " << j;
    }
  }
}

TYPED_TEST(OutputKeyTest, TheHashMixesTheTablesKeyAndTheValidity) {
  using Key = typename TestFixture::OutKey;
  for (const std::uint32_t seed : {0U, 1U, 4294967295U}) {
    EXPECT_EQ(Key(this->first_).hash(seed), Kiv::HashMixer(seed).feed(this->first_.hash(0)).feed(1).result());
    EXPECT_EQ(this->invalid(this->first_).hash(seed),
              Kiv::HashMixer(seed).feed(this->first_.hash(0)).feed(0).result());
  }
  EXPECT_NE(Key(this->first_).hash(7), this->invalid(this->first_).hash(7));
  EXPECT_NE(Key(this->first_).hash(7), Key(this->second_).hash(7));
  EXPECT_NE(Key(this->first_).hash(7), Key(this->first_).hash(8));
}

TYPED_TEST(OutputKeyTest, TheTextFormFollowsItsTemplate) {
  using Key = typename TestFixture::OutKey;
  const char* k0 = Sample<typename TestFixture::K0>::kText;
  EXPECT_EQ(Key(this->first_).str(), this->text(k0, "true"));
  EXPECT_EQ(this->invalid(this->first_).str(), this->text(k0, "false"));
  std::ostringstream out;
  out << Key(this->first_);
  EXPECT_EQ(out.str(), this->text(k0, "true"));
}

TYPED_TEST(OutputKeyTest, TheTextFormParsesBack) {
  using Key = typename TestFixture::OutKey;
  for (const Key& key : {Key(), Key(this->first_), Key(this->second_), this->invalid(this->first_)}) {
    EXPECT_EQ(Key(std::string_view(key.str())), key) << key;
  }
}

TYPED_TEST(OutputKeyTest, AWrongTextIsRefusedWithWhatWasExpected) {
  using ::testing::HasSubstr;
  const std::string k0 = Sample<typename TestFixture::K0>::kText;
  const std::string good = this->text(k0, "true");
  EXPECT_EQ(this->complaint(good), "");
  const std::string other = filled(kTemplates[(TypeParam::kNumber + 1) % 10], k0, "true");
  EXPECT_THAT(this->complaint(other), HasSubstr("expected \"Value('SampledFlowTracker::SftPexaFtHOCSM::"));
  EXPECT_THAT(this->complaint(""), HasSubstr("expected"));
  EXPECT_THAT(this->complaint(" " + good), HasSubstr("expected \"Value("));
  EXPECT_THAT(this->complaint(good.substr(0, good.find(", 'k0Valid'"))), HasSubstr(", 'k0Valid': "));
  EXPECT_THAT(this->complaint(this->text(k0, "yes")), HasSubstr("true}) or false})"));
  EXPECT_THAT(this->complaint(good + " "), HasSubstr("true}) or false})"));
  EXPECT_THAT(this->complaint(good.substr(0, good.size() - 1)), HasSubstr("true}) or false})"));
  EXPECT_NE(this->complaint(this->text("nonsense", "true")), "");
  EXPECT_NE(this->complaint(this->text("", "true")), "");
}

TEST(OutputKeyTextTest, AnInterfaceMayBeCalledAnything) {
  using Key = Sm::HoFlowStatusHoIpFlowStatusOutputKeyType;
  auto k0 = Sample<FlowTracking::HoIpFlowKey>::first();
  k0.intfId = Pavo::IntfId(", 'k0Valid': false})");
  const Key key(k0);
  EXPECT_EQ(Key(std::string_view(key.str())), key) << key;
}

TEST(SeenHashTest, EachSetPlacesKeysInAWayOfItsOwn) {
  const FlowTracking::HosStateCounterKey state = HoFlowState::inHardware;
  const Sm::HosStateCounterHosStateIpCounterOutputKeyType key4(state);
  const Sm::HosStateCounterHosStateIp6CounterOutputKeyType key6(state);
  EXPECT_EQ(key4.hash(1), key6.hash(1));
  EXPECT_NE(SeenHash<OutputId::hosStateCounterHosStateIpCounter>()(key4),
            SeenHash<OutputId::hosStateCounterHosStateIp6Counter>()(key6));
}

TEST(OutputKeyText, TheTablesKeyMayBeEmptyText) {
  bool valid = true;
  EXPECT_EQ(outputKeyParts(OutputId::helperOverflowEntries,
                           outputKeyText(OutputId::helperOverflowEntries, "", false), valid),
            "");
  EXPECT_FALSE(valid);
}

}  // namespace
}  // namespace SampledFlowTracker
