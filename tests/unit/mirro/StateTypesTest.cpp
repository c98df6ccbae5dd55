// The entities of the state database, as the framework knows them: type names, attributes and their order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HwFlowTracking.h"
#include "HwFlowWatcher.h"
#include "Interface.h"

namespace {

using ::testing::ElementsAre;

// Each attribute by its name, in the order of its id; the ids count from 1.
std::vector<std::string> attributeNames(const Kiv::Type& type) {
  std::vector<std::string> names;
  Kiv::AttributeId id = 0;
  for (const Kiv::Type::Attribute* attribute : type.attributes()) {
    EXPECT_EQ(attribute->id, ++id) << attribute->name;
    names.push_back(attribute->name);
  }
  return names;
}

template <class Entity>
Kiv::Ptr<Entity> built(std::string_view typeName) {
  const Kiv::Type* type = Kiv::typeByName(typeName);
  if (type == nullptr) return {};
  return Kiv::ptrCast<Entity>(type->construct({"a/path"}));
}

TEST(HwFlowTrackingConfig, IsBuiltByNameAndHasItsAttributes) {
  const auto config = built<HwFlowTracking::Config>("HwFlowTracking::Config");
  ASSERT_TRUE(config);
  EXPECT_EQ(config->name(), "a/path");
  EXPECT_TRUE(config->hasNotificationActive());
  EXPECT_THAT(attributeNames(config->fwkType()), ElementsAre("hwOffloadIpv4", "hwOffloadIpv6", "sampleRate"));
  EXPECT_EQ(config->fwkType().attribute("sampleRate")->id, HwFlowTracking::Config::sampleRateAttr);
}

TEST(HwFlowTrackingCapabilities, IsBuiltByNameAndHasItsAttributes) {
  const auto capabilities = built<HwFlowTracking::Capabilities>("HwFlowTracking::Capabilities");
  ASSERT_TRUE(capabilities);
  EXPECT_THAT(attributeNames(capabilities->fwkType()),
              ElementsAre("nonDefaultVrfExport", "maxTrackers", "maxExportersPerTracker",
                          "maxCollectorsPerExporter", "hwOffloadIpv4", "hwOffloadIpv6", "supported"));
  EXPECT_EQ(capabilities->fwkType().attribute("supported")->id, HwFlowTracking::Capabilities::supportedAttr);
  for (const Kiv::Type::Attribute* attribute : capabilities->fwkType().attributes()) {
    const bool number = attribute->name.starts_with("max");
    attribute->set(*capabilities, number ? Kiv::Value(9U) : Kiv::Value(true));
    EXPECT_EQ(attribute->get(*capabilities), number ? Kiv::Value(9U) : Kiv::Value(true)) << attribute->name;
  }
}

TEST(HwFlowWatcherCapabilities, IsBuiltByNameAndHasItsAttributes) {
  const auto capabilities = built<HwFlowWatcher::Capabilities>("HwFlowWatcher::Capabilities");
  ASSERT_TRUE(capabilities);
  EXPECT_THAT(attributeNames(capabilities->fwkType()), ElementsAre("feature", "awakeSupported"));
  Kiv::attributeIs(*capabilities, "feature", 1);
  Kiv::attributeIs(*capabilities, "awakeSupported", true);
  EXPECT_EQ(capabilities->feature(), 1U);
  EXPECT_TRUE(capabilities->awakeSupported());
}

class InterfaceWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
    EXPECT_EQ(attribute, Interface::EthIntfStatusDir::interfacesAttr);
    seen.emplace_back(key.as<Pavo::IntfId>().name());
  }
  std::vector<std::string> seen;
};

TEST(EthIntfStatusDir, TellsOfAnInterfaceOnlyWhenItsStatusChanges) {
  const auto dir = built<Interface::EthIntfStatusDir>("Interface::EthIntfStatusDir");
  ASSERT_TRUE(dir);
  const auto watcher = Kiv::makePtr<InterfaceWatcher>();
  watcher->notifierIs(dir);
  watcher->hasNotificationActiveIs(true);
  const Pavo::IntfId ethernet1("Ethernet1");
  EXPECT_EQ(dir->interfaceStatus(ethernet1), nullptr);

  dir->interfaceStatusIs(ethernet1, {});  // the status of nothing is a change from none
  dir->interfaceStatusIs(ethernet1, {1, true, 10});
  dir->interfaceStatusIs(ethernet1, {1, true, 10});
  EXPECT_THAT(watcher->seen, ElementsAre("Ethernet1", "Ethernet1"));
  ASSERT_NE(dir->interfaceStatus(ethernet1), nullptr);
  EXPECT_EQ(*dir->interfaceStatus(ethernet1), (Interface::EthIntfStatus{1, true, 10}));
}

TEST(EthIntfStatusDir, ShowsItsInterfacesByName) {
  const auto dir = built<Interface::EthIntfStatusDir>("Interface::EthIntfStatusDir");
  ASSERT_TRUE(dir);
  dir->interfaceStatusIs(Pavo::IntfId("Ethernet2"), {2, false, 0});
  dir->interfaceStatusIs(Pavo::IntfId("Ethernet1"), {1, true, 10'000'000'000});
  EXPECT_EQ(
      Kiv::attribute(*dir, "interfaces"),
      Kiv::Value(Kiv::Value::List{
          Kiv::Value::Object{
              {"name", "Ethernet1"}, {"ifIndex", 1U}, {"up", true}, {"speedBitsPerSecond", 10'000'000'000U}},
          Kiv::Value::Object{
              {"name", "Ethernet2"}, {"ifIndex", 2U}, {"up", false}, {"speedBitsPerSecond", 0U}}}));
}

}  // namespace
