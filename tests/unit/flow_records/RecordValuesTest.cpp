#include "RecordValues.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "Arbitrary.h"
#include "FlowFormat.h"

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using FlowTracking::HosStateCounterEntry;
using FlowTracking::recordType;
using FlowTrackingTest::anyFlowKey;
using FlowTrackingTest::anyHoFlowKey;
using FlowTrackingTest::anyIntfId;
using Kiv::Value;
using Kiv::ValueTraits;

namespace {

using Object = Value::Object;

// A copy of an object in which the member at a path has another value, or, without a value, is gone.
Value with(const Value& object, const std::vector<std::string>& path, const std::optional<Value>& value,
           std::size_t depth = 0) {
  Object changed;
  bool seen = false;
  for (const auto& [name, held] : *object.as<Object>()) {
    if (name != path[depth]) {
      changed.emplace_back(name, held);
    } else if (depth + 1 < path.size()) {
      seen = true;
      changed.emplace_back(name, with(held, path, value, depth + 1));
    } else {
      seen = true;
      if (value) changed.emplace_back(name, *value);
    }
  }
  if (!seen && value) changed.emplace_back(path[depth], *value);
  return changed;
}

template <class T>
std::string error(const Value& value) {
  try {
    ValueTraits<T>::fromValue(value);
  } catch (const Kiv::ValueError& thrown) {
    return thrown.what();
  }
  return "no error";
}

std::vector<std::string> names(const Value& object) {
  std::vector<std::string> result;
  for (const auto& member : *object.as<Object>()) result.push_back(member.first);
  return result;
}

template <class Domain>
class RecordValuesTest : public testing::Test {
 protected:
  static constexpr bool kV4 = FlowTracking::IpFamily<Domain>::kIndex == 0;
  using FlowKeyType = FlowTracking::FlowKey<Domain>;
  using HoKeyType = FlowTracking::HoFlowKey<Domain>;
  using Config = FlowTracking::HoFlowConfigRecord<Domain>;
  using StatusType = FlowTracking::HoFlowStatusRecord<Domain>;
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;

  // What a person writes.
  static Value flowKey() {
    return Object{{"vrfId", 16777215},
                  {"vlan", 10},
                  {"srcAddr", kV4 ? "10.0.0.1" : "2001:db8::1"},
                  {"dstAddr", kV4 ? "10.0.0.2" : "::2"},
                  {"ipProto", 6},
                  {"srcPort", 1234},
                  {"dstPort", 80}};
  }
  static Value hoKey() { return Object{{"ipFlowKey", flowKey()}, {"direction", 1}, {"intfId", "Ethernet1"}}; }
  static Value status() {
    return Object{{"key", hoKey()}, {"state", 2}, {"creationTime", 5.5}, {"lastUpdateTime", 6}};
  }
};
using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(RecordValuesTest, Families);

TYPED_TEST(RecordValuesTest, MembersHaveTheNamesThatScriptsKnow) {
  const auto key = ValueTraits<typename TestFixture::HoKeyType>::fromValue(TestFixture::hoKey());
  EXPECT_EQ(ValueTraits<typename TestFixture::HoKeyType>::toValue(key), TestFixture::hoKey());
  typename TestFixture::Config config;
  config.key = key;
  EXPECT_EQ(names(ValueTraits<typename TestFixture::Config>::toValue(config)),
            (std::vector<std::string>{"key", "requestTime"}));
  EXPECT_EQ(names(ValueTraits<typename TestFixture::Counter>::toValue({})),
            (std::vector<std::string>{"key", "intfId", "packets", "bytes", "creationTime", "lastUpdateTime",
                                      "hosEntries"}));
}

TYPED_TEST(RecordValuesTest, AStatusIsReadMemberByMember) {
  const auto status = ValueTraits<typename TestFixture::StatusType>::fromValue(TestFixture::status());
  EXPECT_EQ(status.key.ipFlowKey.vlan, 10);
  EXPECT_EQ(status.key.ipFlowKey.srcPort, 1234);
  EXPECT_EQ(status.key.ipFlowKey.dstPort, 80);
  EXPECT_EQ(status.key.ipFlowKey.ipProto, 6U);
  EXPECT_EQ(Pavo::stringValue(status.key.ipFlowKey.srcAddr), TestFixture::kV4 ? "10.0.0.1" : "2001:db8::1");
  EXPECT_EQ(Pavo::stringValue(status.key.ipFlowKey.dstAddr), TestFixture::kV4 ? "10.0.0.2" : "::2");
  EXPECT_EQ(status.key.direction, AllowedTrafficDirection::ingress);
  EXPECT_EQ(status.key.intfId, Pavo::IntfId("Ethernet1"));
  EXPECT_EQ(status.state, HoFlowState::inHardware);
  EXPECT_EQ(status.creationTime, 5.5);
  EXPECT_EQ(status.lastUpdateTime, 6);
}

TYPED_TEST(RecordValuesTest, VrfAndStatusTimesMayBeLeftOut) {
  using Status = typename TestFixture::StatusType;
  Value value = with(TestFixture::status(), {"key", "ipFlowKey", "vrfId"}, std::nullopt);
  value = with(value, {"creationTime"}, std::nullopt);
  value = with(value, {"lastUpdateTime"}, std::nullopt);
  const Status status = ValueTraits<Status>::fromValue(value);
  EXPECT_EQ(status.key.ipFlowKey.vrfId, 16777215U);
  EXPECT_EQ(status.creationTime, 0);
  EXPECT_EQ(status.lastUpdateTime, 0);
  const Value config = Object{{"key", TestFixture::hoKey()}};
  EXPECT_EQ(ValueTraits<typename TestFixture::Config>::fromValue(config).requestTime, 0);
}

TYPED_TEST(RecordValuesTest, NoOtherMemberMayBeLeftOut) {
  using Status = typename TestFixture::StatusType;
  for (const std::string member : {"vlan", "srcAddr", "dstAddr", "ipProto", "srcPort", "dstPort"}) {
    EXPECT_EQ(error<Status>(with(TestFixture::status(), {"key", "ipFlowKey", member}, std::nullopt)),
              "key.ipFlowKey." + member + ": expected, but missing");
  }
  for (const std::string member : {"ipFlowKey", "direction", "intfId"}) {
    EXPECT_EQ(error<Status>(with(TestFixture::status(), {"key", member}, std::nullopt)),
              "key." + member + ": expected, but missing");
  }
  EXPECT_EQ(error<Status>(with(TestFixture::status(), {"key"}, std::nullopt)), "key: expected, but missing");
  EXPECT_EQ(error<Status>(with(TestFixture::status(), {"state"}, std::nullopt)),
            "state: expected, but missing");
  for (const std::string member :
       {"key", "intfId", "packets", "bytes", "creationTime", "lastUpdateTime", "hosEntries"}) {
    typename TestFixture::Counter counter;
    const Value value = ValueTraits<typename TestFixture::Counter>::toValue(counter);
    EXPECT_EQ(error<typename TestFixture::Counter>(with(value, {member}, std::nullopt)),
              member + ": expected, but missing");
  }
}

TYPED_TEST(RecordValuesTest, WrongMembersAreRefusedAndNamedByTheirPath) {
  using Status = typename TestFixture::StatusType;
  const std::pair<std::vector<std::string>, Value> wrong[] = {
      {{"key", "ipFlowKey", "vlan"}, 4096},
      {{"key", "ipFlowKey", "vlan"}, "10"},
      {{"key", "ipFlowKey", "vrfId"}, -1},
      {{"key", "ipFlowKey", "vrfId"}, 4294967296},
      {{"key", "ipFlowKey", "srcPort"}, 65536},
      {{"key", "ipFlowKey", "dstPort"}, true},
      {{"key", "ipFlowKey", "ipProto"}, 1.5},
      {{"key", "ipFlowKey", "srcAddr"}, "10.0.0.256"},
      {{"key", "ipFlowKey", "dstAddr"}, 3232235776},
      {{"key", "direction"}, 0},
      {{"key", "direction"}, 3},
      {{"key", "intfId"}, "a name of more than 22 bytes"},
      {{"key", "ipFlowKey"}, "flow"},
      {{"key"}, Value::List{}},
      {{"state"}, 256},
      {{"creationTime"}, "now"},
      {{"key", "ipFlowKey", "tos"}, 0},
      {{"status"}, 1},
  };
  for (const auto& [path, value] : wrong) {
    std::string name;
    for (const std::string& member : path) name.append(name.empty() ? "" : ".").append(member);
    const std::string text = error<Status>(with(TestFixture::status(), path, value));
    EXPECT_TRUE(text.starts_with(name + ": ")) << name << ": " << text;
    EXPECT_NE(text.find("expected"), std::string::npos) << text;
  }
}

TYPED_TEST(RecordValuesTest, AnAddressOfTheOtherFamilyIsRefused) {
  const std::string other = TestFixture::kV4 ? "2001:db8::1" : "10.0.0.1";
  const std::string text = error<typename TestFixture::StatusType>(
      with(TestFixture::status(), {"key", "ipFlowKey", "srcAddr"}, Value(other)));
  EXPECT_TRUE(text.starts_with("key.ipFlowKey.srcAddr: expected")) << text;
}

TYPED_TEST(RecordValuesTest, WhatIsNoObjectIsRefused) {
  EXPECT_TRUE(error<typename TestFixture::StatusType>(Value(7)).starts_with("expected an object"));
  EXPECT_TRUE(error<typename TestFixture::StatusType>(Value()).starts_with("expected an object"));
}

TYPED_TEST(RecordValuesTest, ReadingWhatWasShownGivesBackTheRecord) {
  EXPECT_TRUE(rc::check("wanted offload", [] {
    typename TestFixture::Config record;
    record.key = anyHoFlowKey<TypeParam>();
    record.requestTime = *rc::gen::arbitrary<double>();
    using Traits = ValueTraits<typename TestFixture::Config>;
    RC_ASSERT(Traits::fromValue(Traits::toValue(record)) == record);
  }));
  EXPECT_TRUE(rc::check("status", [] {
    typename TestFixture::StatusType record;
    record.key = anyHoFlowKey<TypeParam>();
    record.state = HoFlowState(*rc::gen::arbitrary<std::uint8_t>());
    record.creationTime = *rc::gen::arbitrary<double>();
    record.lastUpdateTime = *rc::gen::arbitrary<double>();
    using Traits = ValueTraits<typename TestFixture::StatusType>;
    RC_ASSERT(Traits::fromValue(Traits::toValue(record)) == record);
  }));
  EXPECT_TRUE(rc::check("counter", [] {
    typename TestFixture::Counter record;
    record.key = anyFlowKey<TypeParam>();
    record.intfId = anyIntfId();
    record.packets = *rc::gen::arbitrary<std::uint64_t>();
    record.bytes = *rc::gen::arbitrary<std::uint64_t>();
    record.creationTime = *rc::gen::arbitrary<double>();
    record.lastUpdateTime = *rc::gen::arbitrary<double>();
    record.hosEntries = *rc::gen::arbitrary<std::uint32_t>();
    using Traits = ValueTraits<typename TestFixture::Counter>;
    RC_ASSERT(Traits::fromValue(Traits::toValue(record)) == record);
  }));
}

TYPED_TEST(RecordValuesTest, StatusesAreEqualWhenAllMembersAre) {
  using Status = typename TestFixture::StatusType;
  const Status status = ValueTraits<Status>::fromValue(TestFixture::status());
  EXPECT_EQ(status, ValueTraits<Status>::fromValue(TestFixture::status()));
  Status other = status;
  other.lastUpdateTime += 1;
  EXPECT_FALSE(other == status);
  other = status;
  other.creationTime += 1;
  EXPECT_FALSE(other == status);
  other = status;
  other.state = HoFlowState::overflow;
  EXPECT_FALSE(other == status);
  other = status;
  other.key.intfId = Pavo::IntfId("Ethernet2");
  EXPECT_FALSE(other == status);
}

namespace {
// Whether each change alone makes a record another one.
template <class Record>
void expectEachCounts(const std::vector<std::function<void(Record&)>>& changes) {
  EXPECT_TRUE(Record() == Record());
  for (std::size_t i = 0; i < changes.size(); ++i) {
    Record other;
    changes[i](other);
    EXPECT_FALSE(other == Record()) << i;
    EXPECT_TRUE(other == other) << i;
  }
}
}  // namespace

TYPED_TEST(RecordValuesTest, EachMemberTakesPartInEquality) {
  using ConfigRecord = typename TestFixture::Config;
  expectEachCounts<ConfigRecord>(
      {[](ConfigRecord& it) { it.key.ipFlowKey.vlan = 1; }, [](ConfigRecord& it) { it.requestTime = 1; }});
  using Status = typename TestFixture::StatusType;
  expectEachCounts<Status>({[](Status& it) { it.key.ipFlowKey.vlan = 1; },
                            [](Status& it) { it.state = HoFlowState::overflow; },
                            [](Status& it) { it.reserved[6] = 1; }, [](Status& it) { it.creationTime = 1; },
                            [](Status& it) { it.lastUpdateTime = 1; }});
  using CounterRecord = typename TestFixture::Counter;
  expectEachCounts<CounterRecord>(
      {[](CounterRecord& it) { it.key.vlan = 1; },
       [](CounterRecord& it) { it.intfId = Pavo::IntfId("Ethernet1"); },
       [](CounterRecord& it) { it.reserved = 1; }, [](CounterRecord& it) { it.packets = 1; },
       [](CounterRecord& it) { it.bytes = 1; }, [](CounterRecord& it) { it.creationTime = 1; },
       [](CounterRecord& it) { it.lastUpdateTime = 1; }, [](CounterRecord& it) { it.hosEntries = 1; },
       [](CounterRecord& it) { it.reserved2 = 1; }});
}

TEST(HosStateCounterEntryTest, EachMemberTakesPartInEquality) {
  expectEachCounts<HosStateCounterEntry>(
      {[](HosStateCounterEntry& it) { it.key.state = HoFlowState::overflow; },
       [](HosStateCounterEntry& it) { it.reserved[2] = 1; }, [](HosStateCounterEntry& it) { it.count = 1; }});
}

TYPED_TEST(RecordValuesTest, RecordsPrintTheirMembersInOrder) {
  const auto status = ValueTraits<typename TestFixture::StatusType>::fromValue(TestFixture::status());
  const std::string name = TestFixture::kV4 ? "HoIpFlowStatus" : "HoIp6FlowStatus";
  EXPECT_EQ(fmt::format("{}", status), name + "( " + status.key.str() + ", 2, 5.500000, 6.000000 )");
  typename TestFixture::Config config;
  config.key = status.key;
  config.requestTime = 7.25;
  EXPECT_EQ(fmt::format("{}", config), std::string(TestFixture::kV4 ? "HoIpFlowConfig" : "HoIp6FlowConfig") +
                                           "( " + status.key.str() + ", 7.250000 )");
  typename TestFixture::Counter counter;
  counter.key = status.key.ipFlowKey;
  counter.intfId = Pavo::IntfId("Ethernet2");
  counter.packets = 3;
  counter.bytes = 180;
  counter.hosEntries = 1;
  EXPECT_EQ(fmt::format("{}", counter),
            std::string(TestFixture::kV4 ? "HoIpFlowCounter" : "HoIp6FlowCounter") + "( " +
                counter.key.str() + ", Ethernet2, 3, 180, 0.000000, 0.000000, 1 )");
}

TYPED_TEST(RecordValuesTest, TheTableKnowsTheRecordByItsTypeRecord) {
  using Status = typename TestFixture::StatusType;
  const Quell::RecordType& type = recordType<Status>();
  EXPECT_EQ(type.name, TestFixture::kV4 ? "FlowTracking::HoIpFlowStatus" : "FlowTracking::HoIp6FlowStatus");
  EXPECT_EQ(type.recordBytes, sizeof(Status));
  EXPECT_EQ(type.keyBytes, sizeof(typename TestFixture::HoKeyType));
  Status status;
  type.fromValue(TestFixture::status(), &status);
  EXPECT_EQ(type.toValue(&status), ValueTraits<Status>::toValue(status));
  typename TestFixture::HoKeyType key;
  type.keyFromValue(TestFixture::hoKey(), &key);
  EXPECT_EQ(key, status.key);
  EXPECT_EQ(type.keyToValue(&key), TestFixture::hoKey());
}

TEST(HosStateCounterEntryTest, IsReadAndShownAsAnObject) {
  const Value value = Object{{"key", Object{{"state", 2}}}, {"count", 5}};
  const auto entry = ValueTraits<HosStateCounterEntry>::fromValue(value);
  EXPECT_EQ(entry.key.state, HoFlowState::inHardware);
  EXPECT_EQ(entry.count, 5U);
  EXPECT_EQ(ValueTraits<HosStateCounterEntry>::toValue(entry), value);
  EXPECT_EQ(fmt::format("{}", entry), "HosStateCounterEntry( 2, 5 )");
  EXPECT_EQ(ValueTraits<HosStateCounterEntry>::fromValue(with(value, {"key", "state"}, 0)).key.state,
            HoFlowState{});
  EXPECT_TRUE(
      error<HosStateCounterEntry>(with(value, {"key", "state"}, 256)).starts_with("key.state: expected"));
  EXPECT_TRUE(error<HosStateCounterEntry>(with(value, {"count"}, -1)).starts_with("count: expected"));
}

}  // namespace
