#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HoStatus.h"
#include "HosStateCounter.h"
#include "RecordTypes.h"

namespace {

using FlowTracking::HoFlowConfig;
using FlowTracking::HoFlowCounter;
using FlowTracking::HoFlowStatus;
using FlowTracking::HosStateCounter;
using FlowTracking::HoStatus;

TEST(ContainerPaths, AreTheAgreedOnes) {
  EXPECT_EQ(HoFlowStatus::mountPath("sampled"), "flowtracking/sampled/hwOffload/status");
  EXPECT_EQ(HoFlowConfig::mountPath("sampled"), "flowtracking/sampled/hwOffload/config");
  EXPECT_EQ(HosStateCounter::mountPath("sampled"), "flowtracking/sampled/hwOffload/counter/status");
  EXPECT_EQ(HoFlowCounter::mountPath("sampled", "hfc"), "flowtracking/sampled/hwOffload/counter/hfc");
}

struct Expected {
  std::string type;
  std::string collection4;
  std::string record4;
  std::string collection6;
  std::string record6;
};
class ContainerTypes : public testing::TestWithParam<Expected> {};

TEST_P(ContainerTypes, AreBuiltByNameFromTheirPath) {
  FlowTracking::recordTypesRegister();
  const Kiv::Type* type = Kiv::typeByName(GetParam().type);
  ASSERT_NE(type, nullptr);
  const auto container = Kiv::ptrCast<Quell::Container>(type->construct({Kiv::Value("a/path")}));
  ASSERT_TRUE(container);
  EXPECT_EQ(container->name(), "a/path");
  EXPECT_EQ(&container->fwkType(), type);
  const auto maps = container->collections();
  ASSERT_EQ(maps.size(), 2U);
  EXPECT_EQ(maps[0]->name(), GetParam().collection4);
  EXPECT_EQ(maps[0]->type().name, GetParam().record4);
  EXPECT_EQ(maps[1]->name(), GetParam().collection6);
  EXPECT_EQ(maps[1]->type().name, GetParam().record6);
}

INSTANTIATE_TEST_SUITE_P(
    All, ContainerTypes,
    testing::Values(Expected{"FlowTracking::HoFlowConfig", "hoIpFlowConfig", "FlowTracking::HoIpFlowConfig",
                             "hoIp6FlowConfig", "FlowTracking::HoIp6FlowConfig"},
                    Expected{"FlowTracking::HoFlowStatus", "hoIpFlowStatus", "FlowTracking::HoIpFlowStatus",
                             "hoIp6FlowStatus", "FlowTracking::HoIp6FlowStatus"},
                    Expected{"FlowTracking::HoFlowCounter", "hoIpFlowCounter",
                             "FlowTracking::HoIpFlowCounter", "hoIp6FlowCounter",
                             "FlowTracking::HoIp6FlowCounter"},
                    Expected{"FlowTracking::HosStateCounter", "hosStateIpCounter",
                             "FlowTracking::HosStateCounterEntry", "hosStateIp6Counter",
                             "FlowTracking::HosStateCounterEntry"}),
    [](const auto& testInfo) { return testInfo.param.type.substr(testInfo.param.type.rfind(':') + 1); });

TEST(RecordTypes, RegisteringAgainChangesNothing) {
  FlowTracking::recordTypesRegister();
  const auto before = Kiv::registeredTypes().size();
  FlowTracking::recordTypesRegister();
  EXPECT_EQ(Kiv::registeredTypes().size(), before);
  const Kiv::Type* type = Kiv::typeByName("FlowTracking::HoStatus");
  ASSERT_NE(type, nullptr);
  EXPECT_TRUE(Kiv::ptrCast<HoStatus>(type->construct({Kiv::Value("hoStatus")})));
}

[[noreturn]] void registerAllAfterOne() {
  const Kiv::Module module("own", {&HoFlowStatus::kivType()});
  FlowTracking::recordTypesRegister();
  bool known = true;
  for (const std::string name :
       {"HoFlowConfig", "HoFlowStatus", "HoFlowCounter", "HosStateCounter", "HoStatus"})
    known = known && Kiv::typeByName("FlowTracking::" + name) != nullptr;
  std::_Exit(known ? 0 : 1);
}

// In a process of its own, and before all other tests: nobody has registered them yet.
TEST(RecordTypesDeathTest, ATypeThatAModuleOfItsOwnRegisteredIsLeftToIt) {
  ASSERT_EQ(Kiv::typeByName("FlowTracking::HoFlowStatus"), nullptr);
  EXPECT_EXIT(registerAllAfterOne(), testing::ExitedWithCode(0), "");
}

template <class Domain>
class ContainerOperations : public testing::Test {
 protected:
  template <class Container>
  static Kiv::Ptr<Container> table() {
    auto made = Kiv::makePtr<Container>("a/path");
    for (Quell::MapBase* map : made->collections()) Quell::attachAnonymous(*map);
    return made;
  }
};
using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(ContainerOperations, Families);

// The named operations of a family, by the family.
void statusIs(HoFlowStatus& table, const FlowTracking::HoIpFlowStatus& value) {
  table.hoIpFlowStatusIs(value);
}
void statusIs(HoFlowStatus& table, const FlowTracking::HoIp6FlowStatus& value) {
  table.hoIp6FlowStatusIs(value);
}
void statusDel(HoFlowStatus& table, const FlowTracking::HoIpFlowKey& key) {
  table.hoIpFlowStatusDel(key);
}
void statusDel(HoFlowStatus& table, const FlowTracking::HoIp6FlowKey& key) {
  table.hoIp6FlowStatusDel(key);
}
void configIs(HoFlowConfig& table, const FlowTracking::HoIpFlowConfig& value) {
  table.hoIpFlowConfigIs(value);
}
void configIs(HoFlowConfig& table, const FlowTracking::HoIp6FlowConfig& value) {
  table.hoIp6FlowConfigIs(value);
}
void configDel(HoFlowConfig& table, const FlowTracking::HoIpFlowKey& key) {
  table.hoIpFlowConfigDel(key);
}
void configDel(HoFlowConfig& table, const FlowTracking::HoIp6FlowKey& key) {
  table.hoIp6FlowConfigDel(key);
}
void counterIs(HoFlowCounter& table, const FlowTracking::HoIpFlowCounter& value) {
  table.hoIpFlowCounterIs(value);
}
void counterIs(HoFlowCounter& table, const FlowTracking::HoIp6FlowCounter& value) {
  table.hoIp6FlowCounterIs(value);
}
void counterDel(HoFlowCounter& table, const FlowTracking::IpFlowKey& key) {
  table.hoIpFlowCounterDel(key);
}
void counterDel(HoFlowCounter& table, const FlowTracking::Ip6FlowKey& key) {
  table.hoIp6FlowCounterDel(key);
}

TYPED_TEST(ContainerOperations, OffloadsThatShareAFlowHaveTheirOwnStatusesAndOneCounter) {
  const auto status = this->template table<HoFlowStatus>();
  const auto counter = this->template table<HoFlowCounter>();
  using Direction = Bridging::AllowedTrafficDirection;
  for (const auto& [direction, intf] : {std::pair{Direction::ingress, "Ethernet1"},
                                        {Direction::egress, "Ethernet1"},
                                        {Direction::ingress, "Ethernet2"}}) {
    FlowTracking::HoFlowStatusRecord<TypeParam> record;
    record.key.direction = direction;
    record.key.intfId = Pavo::IntfId(intf);
    statusIs(*status, record);
    FlowTracking::HoFlowCounterRecord<TypeParam> count;
    count.key = record.key.ipFlowKey;
    count.intfId = record.key.intfId;
    counterIs(*counter, count);
  }
  EXPECT_EQ(status->template map<TypeParam>().size(), 3U);
  ASSERT_EQ(counter->template map<TypeParam>().size(), 1U);
  EXPECT_EQ(counter->template map<TypeParam>().get({}).intfId, Pavo::IntfId("Ethernet2"));
}

TYPED_TEST(ContainerOperations, IsOverwritesUnderTheRecordsOwnKeyAndDelTakesItOut) {
  const auto status = this->template table<HoFlowStatus>();
  FlowTracking::HoFlowStatusRecord<TypeParam> record;
  record.key.intfId = Pavo::IntfId("Ethernet1");
  statusIs(*status, record);
  record.state = FlowTracking::HoFlowState::overflow;
  statusIs(*status, record);
  EXPECT_EQ(status->template map<TypeParam>().size(), 1U);
  EXPECT_EQ(status->template map<TypeParam>().get(record.key), record);
  statusDel(*status, record.key);
  EXPECT_EQ(status->template map<TypeParam>().size(), 0U);
}

TYPED_TEST(ContainerOperations, DeletingTakesOutItsKeyAndNoOther) {
  const auto check = [](auto& table, auto record, auto is, auto del) {
    auto absent = record.key;
    record.key.intfId = Pavo::IntfId("Ethernet1");
    is(table, record);
    del(table, absent);
    EXPECT_EQ(table.template map<TypeParam>().size(), 1U);
    EXPECT_EQ(table.template map<TypeParam>().get(record.key), record);
    del(table, record.key);
    EXPECT_TRUE(table.template map<TypeParam>().empty());
  };
  check(
      *this->template table<HoFlowConfig>(), FlowTracking::HoFlowConfigRecord<TypeParam>(),
      [](auto& table, const auto& value) { configIs(table, value); },
      [](auto& table, const auto& key) { configDel(table, key); });
  check(
      *this->template table<HoFlowStatus>(), FlowTracking::HoFlowStatusRecord<TypeParam>(),
      [](auto& table, const auto& value) { statusIs(table, value); },
      [](auto& table, const auto& key) { statusDel(table, key); });
  const auto counter = this->template table<HoFlowCounter>();
  FlowTracking::HoFlowCounterRecord<TypeParam> count;
  counterIs(*counter, count);
  auto absent = count.key;
  absent.srcPort = 9;
  counterDel(*counter, absent);
  EXPECT_EQ(counter->template map<TypeParam>().get(count.key), count);
  counterDel(*counter, count.key);
  EXPECT_TRUE(counter->template map<TypeParam>().empty());
}

TYPED_TEST(ContainerOperations, ChangesAreAnnouncedUnderTheCollectionsAttributeWithTheKey) {
  class Watcher : public Kiv::PtrInterface::NotifieeConst {
   public:
    void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
      attributes.push_back(attribute);
      keys.push_back(key.as<FlowTracking::HoFlowKey<TypeParam>>());
    }
    std::vector<Kiv::AttributeId> attributes;
    std::vector<FlowTracking::HoFlowKey<TypeParam>> keys;
  };
  const auto status = this->template table<HoFlowStatus>();
  const auto watcher = Kiv::makePtr<Watcher>();
  watcher->notifierIs(status);
  watcher->hasNotificationActiveIs(true);
  FlowTracking::HoFlowKey<TypeParam> key;
  key.intfId = Pavo::IntfId("Ethernet1");
  status->collectionChanged(status->template map<TypeParam>(), &key);
  EXPECT_EQ(watcher->attributes, std::vector{HoFlowStatus::attributeOf<TypeParam>});
  EXPECT_EQ(watcher->keys, std::vector{key});
  EXPECT_EQ(HoFlowStatus::attributeOf<TypeParam>, FlowTracking::IpFamily<TypeParam>::kIndex == 0
                                                      ? HoFlowStatus::hoIpFlowStatusAttr
                                                      : HoFlowStatus::hoIp6FlowStatusAttr);
}

TEST(HosStateCounterTable, HoldsACountForEachStateOfEachFamily) {
  HosStateCounter table("a/path");
  for (Quell::MapBase* map : table.collections()) Quell::attachAnonymous(*map, 4);
  FlowTracking::HosStateCounterEntry entry;
  entry.key.state = FlowTracking::HoFlowState::inHardware;
  entry.count = 5;
  table.hosStateIpCounterIs(entry);
  EXPECT_EQ(table.hosStateIpCounter().get(FlowTracking::HoFlowState::inHardware), entry);
  EXPECT_TRUE(table.hosStateIp6Counter().empty());
  table.hosStateIp6CounterIs(entry);
  EXPECT_EQ(table.hosStateIp6Counter().get(FlowTracking::HoFlowState::inHardware), entry);
  table.hosStateIpCounterDel(FlowTracking::HoFlowState::overflow);
  EXPECT_EQ(table.hosStateIpCounter().size(), 1U);
  table.hosStateIpCounterDel(FlowTracking::HoFlowState::inHardware);
  EXPECT_TRUE(table.hosStateIpCounter().empty());
  table.hosStateIp6CounterDel(FlowTracking::HoFlowState::inHardware);
  EXPECT_TRUE(table.hosStateIp6Counter().empty());
}

}  // namespace
