// The root entity as the framework sees it: its attributes, and the children it owns.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RootEntityTest : public ::testing::Test {
 protected:
  Kiv::Ptr<SftPexaPlugin> plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
  Kiv::Ptr<AttributeWatcher> watcher = AttributeWatcher::on(plugin);

  Kiv::Ptr<HwFlowTracking::Config> config = Kiv::makePtr<HwFlowTracking::Config>("config");
  Kiv::Ptr<FlowTracking::HoStatus> hoStatus = Kiv::makePtr<FlowTracking::HoStatus>("hoStatus");
  Kiv::Ptr<Sflow::HwStatus> sflowHwStatus = Kiv::makePtr<Sflow::HwStatus>("sflowHwStatus");
  Kiv::Ptr<Pexa::Ports> ports = Kiv::makePtr<Pexa::Ports>("ports");

  Kiv::Ptr<SftSamplerHelper> helperIs(const Kiv::Ptr<const HwFlowTracking::Config>& trackingConfig) {
    return plugin->sftSamplerHelperIs(sflowHwStatus, ports, nullptr, nullptr, trackingConfig, nullptr);
  }
};

TEST_F(RootEntityTest, IsMadeWithItsNameItsNotificationsActiveAndNothingInIt) {
  EXPECT_EQ(plugin->name(), "SampledFlowTracker");
  EXPECT_TRUE(plugin->hasNotificationActive());
  for (const Kiv::Type::Attribute* attribute : plugin->fwkType().attributes()) {
    EXPECT_EQ(attribute->get(*plugin), Kiv::Value(Kiv::Ptr<const Kiv::PtrInterface>())) << attribute->name;
  }
  const auto other = sftPexaPluginFactory("other");
  EXPECT_EQ(other->name(), "other");
  EXPECT_TRUE(other->hasNotificationActive());
}

TEST_F(RootEntityTest, CanBeBuiltByItsTypeName) {
  const Kiv::Type* type = Kiv::typeByName("SampledFlowTracker::SftPexaPlugin");
  ASSERT_NE(type, nullptr);
  const auto built = Kiv::ptrCast<SftPexaPlugin>(type->construct({"by name"}));
  ASSERT_TRUE(built);
  EXPECT_EQ(built->name(), "by name");
  EXPECT_TRUE(built->hasNotificationActive());
}

TEST_F(RootEntityTest, HasItsNineteenAttributesInTheirOrder) {
  std::vector<std::string> names;
  for (const Kiv::Type::Attribute* attribute : plugin->fwkType().attributes()) {
    names.push_back(attribute->name);
    EXPECT_EQ(attribute->id, names.size()) << attribute->name;
  }
  EXPECT_THAT(names, ElementsAre("ftrCapabilities", "fwCapabilities", "sftHwTrackingConfig", "sflowHwConfig",
                                 "sflowHwStatus", "sftSflowHwConfig", "hoFlowConfig", "hoFlowStatus",
                                 "hoFlowCounter", "hosStateCounter", "hoStatus", "ethIntfStatusDir",
                                 "sftSamplerHelper", "inputSampler", "outputSampler",
                                 "sftPexaFtHoConfigReactor", "hocSm", "drovaHelper", "localHoCounters"));
  EXPECT_EQ(plugin->fwkType().attribute("ethIntfStatusDir")->id, SftPexaPlugin::ethIntfStatusDirAttr);
  EXPECT_EQ(plugin->fwkType().attribute("localHoCounters")->id, SftPexaPlugin::localHoCountersAttr);
}

TEST_F(RootEntityTest, EachPlainSetterStoresReleasesAndAnnouncesChangesOnly) {
  const std::vector<std::pair<std::string, Kiv::Ptr<const Kiv::PtrInterface>>> values = {
      {"ftrCapabilities", Kiv::makePtr<HwFlowTracking::Capabilities>("")},
      {"fwCapabilities", Kiv::makePtr<HwFlowWatcher::Capabilities>("")},
      {"sftHwTrackingConfig", Kiv::makePtr<HwFlowTracking::Config>("")},
      {"sflowHwConfig", Kiv::makePtr<Sflow::HwConfig>("")},
      {"sflowHwStatus", Kiv::makePtr<Sflow::HwStatus>("")},
      {"sftSflowHwConfig", Kiv::makePtr<Sflow::HwConfig>("")},
      {"hoFlowConfig", Kiv::makePtr<FlowTracking::HoFlowConfig>("")},
      {"hoFlowStatus", Kiv::makePtr<FlowTracking::HoFlowStatus>("")},
      {"hoFlowCounter", Kiv::makePtr<FlowTracking::HoFlowCounter>("")},
      {"hosStateCounter", Kiv::makePtr<FlowTracking::HosStateCounter>("")},
      {"hoStatus", Kiv::makePtr<FlowTracking::HoStatus>("")},
      {"ethIntfStatusDir", Kiv::makePtr<Interface::EthIntfStatusDir>("")}};
  Kiv::AttributeId id = 0;
  for (const auto& [name, value] : values) {
    ++id;
    watcher->seen.clear();
    Kiv::attributeIs(*plugin, name, Kiv::Value(value));
    Kiv::attributeIs(*plugin, name, Kiv::Value(value));
    EXPECT_THAT(watcher->seen, ElementsAre(id)) << name;
    EXPECT_EQ(Kiv::attribute(*plugin, name), Kiv::Value(value)) << name;
    const auto held = value->references();
    Kiv::attributeIs(*plugin, name, Kiv::Value());
    EXPECT_THAT(watcher->seen, ElementsAre(id, id)) << name;
    EXPECT_EQ(value->references(), held - 1) << name;
  }
}

TEST_F(RootEntityTest, KeepsAChildThatIsAskedForWithTheSameArguments) {
  const auto helper = helperIs(config);
  EXPECT_THAT(watcher->seen, ElementsAre(SftPexaPlugin::sftSamplerHelperAttr));
  EXPECT_EQ(helperIs(config), helper);
  EXPECT_EQ(plugin->sftSamplerHelper(), helper);
  EXPECT_EQ(watcher->seen.size(), 1U);
}

TEST_F(RootEntityTest, ReplacesAChildWhenOneArgumentDiffers) {
  const auto helper = helperIs(config);
  const auto other = helperIs(Kiv::makePtr<HwFlowTracking::Config>("other"));
  EXPECT_FALSE(other == helper);
  EXPECT_EQ(plugin->sftSamplerHelper(), other);
  EXPECT_EQ(helper->references(), 1U) << "the old child is released";
  EXPECT_THAT(watcher->seen,
              ElementsAre(SftPexaPlugin::sftSamplerHelperAttr, SftPexaPlugin::sftSamplerHelperAttr));
}

TEST_F(RootEntityTest, KeepsStepsAndReactorToo) {
  const auto helper = helperIs(config);
  const auto counters = plugin->localHoCountersIs("counters");
  const auto input = plugin->inputSamplerIs(helper, nullptr, counters, config);
  const auto output = plugin->outputSamplerIs(helper, nullptr, counters, config);
  const auto reactor = plugin->sftPexaFtHoConfigReactorIs(config, hoStatus);
  watcher->seen.clear();
  EXPECT_EQ(plugin->inputSamplerIs(helper, nullptr, counters, config), input);
  EXPECT_EQ(plugin->outputSamplerIs(helper, nullptr, counters, config), output);
  EXPECT_EQ(plugin->sftPexaFtHoConfigReactorIs(config, hoStatus), reactor);
  EXPECT_EQ(plugin->localHoCountersIs("counters"), counters);
  EXPECT_THAT(watcher->seen, IsEmpty());
  EXPECT_FALSE(plugin->inputSamplerIs(helper, nullptr, counters, nullptr) == input);
  EXPECT_FALSE(plugin->outputSamplerIs(nullptr, nullptr, counters, config) == output);
  EXPECT_FALSE(plugin->sftPexaFtHoConfigReactorIs(config, nullptr) == reactor);
  EXPECT_THAT(watcher->seen, ElementsAre(SftPexaPlugin::inputSamplerAttr, SftPexaPlugin::outputSamplerAttr,
                                         SftPexaPlugin::sftPexaFtHoConfigReactorAttr));
}

TEST_F(RootEntityTest, ActivatesTheNotificationsOfEveryChild) {
  const auto helper = helperIs(config);
  const auto counters = plugin->localHoCountersIs("counters");
  EXPECT_TRUE(helper->hasNotificationActive());
  EXPECT_TRUE(counters->hasNotificationActive());
  EXPECT_TRUE(plugin->inputSamplerIs(helper, nullptr, counters, config)->hasNotificationActive());
  EXPECT_TRUE(plugin->outputSamplerIs(helper, nullptr, counters, config)->hasNotificationActive());
  EXPECT_TRUE(plugin->sftPexaFtHoConfigReactorIs(config, hoStatus)->hasNotificationActive());
}

TEST_F(RootEntityTest, AnnouncesAChildBeforeItIsActive) {
  class Looker : public Kiv::PtrInterface::NotifieeConst {
   public:
    void onAttribute(Kiv::AttributeId) override {
      const auto child = plugin->sftSamplerHelper();
      sawChild = static_cast<bool>(child);
      sawActive = child && child->hasNotificationActive();
    }
    const SftPexaPlugin* plugin = nullptr;
    bool sawChild = false;
    bool sawActive = true;
  };
  const auto looker = Kiv::makePtr<Looker>();
  looker->plugin = plugin.get();
  looker->notifierIs(plugin);
  looker->hasNotificationActiveIs(true);
  helperIs(config);
  EXPECT_TRUE(looker->sawChild);
  EXPECT_FALSE(looker->sawActive);
}

TEST_F(RootEntityTest, TheLocalCountersAreItsChildEntity) {
  const auto counters = plugin->localHoCountersIs("one");
  EXPECT_EQ(counters->parent(), plugin.get());
  EXPECT_EQ(counters->name(), "one");
  const auto other = plugin->localHoCountersIs("two");
  EXPECT_FALSE(other == counters);
  EXPECT_EQ(counters->parent(), nullptr);
  EXPECT_EQ(other->parent(), plugin.get());
}

TEST_F(RootEntityTest, ARemoverTakesTheChildOutAndTells) {
  const auto helper = helperIs(config);
  const auto counters = plugin->localHoCountersIs("counters");
  const auto input = plugin->inputSamplerIs(helper, nullptr, counters, config);
  const auto output = plugin->outputSamplerIs(helper, nullptr, counters, config);
  const auto reactor = plugin->sftPexaFtHoConfigReactorIs(config, hoStatus);
  watcher->seen.clear();

  EXPECT_EQ(plugin->sftSamplerHelperDel(), helper);
  EXPECT_EQ(plugin->inputSamplerDel(), input);
  EXPECT_EQ(plugin->outputSamplerDel(), output);
  EXPECT_EQ(plugin->sftPexaFtHoConfigReactorDel(), reactor);
  EXPECT_EQ(plugin->localHoCountersDel(), counters);

  EXPECT_THAT(watcher->seen,
              ElementsAre(SftPexaPlugin::sftSamplerHelperAttr, SftPexaPlugin::inputSamplerAttr,
                          SftPexaPlugin::outputSamplerAttr, SftPexaPlugin::sftPexaFtHoConfigReactorAttr,
                          SftPexaPlugin::localHoCountersAttr));
  EXPECT_FALSE(helper->hasNotificationActive());
  EXPECT_FALSE(reactor->hasNotificationActive());
  EXPECT_TRUE(input->hasNotificationActive());
  EXPECT_TRUE(output->hasNotificationActive());
  EXPECT_EQ(counters->parent(), nullptr);
  EXPECT_FALSE(plugin->sftSamplerHelper());
  EXPECT_FALSE(plugin->localHoCounters());
  EXPECT_EQ(reactor->references(), 1U);
}

TEST_F(RootEntityTest, RemovingNothingTellsNobody) {
  EXPECT_FALSE(plugin->sftSamplerHelperDel());
  EXPECT_FALSE(plugin->inputSamplerDel());
  EXPECT_FALSE(plugin->outputSamplerDel());
  EXPECT_FALSE(plugin->sftPexaFtHoConfigReactorDel());
  EXPECT_FALSE(plugin->hocSmDel());
  EXPECT_FALSE(plugin->drovaHelperDel());
  EXPECT_FALSE(plugin->localHoCountersDel());
  EXPECT_THAT(watcher->seen, IsEmpty());
}

TEST_F(RootEntityTest, ARemovedChildIsBuiltAnewFromTheSameArguments) {
  const auto helper = helperIs(config);
  plugin->sftSamplerHelperDel();
  EXPECT_FALSE(helperIs(config) == helper);
}

TEST_F(RootEntityTest, ARemovedChildLeavesItsArgumentsToOthers) {
  const auto before = config->references();
  helperIs(config);
  plugin->sftSamplerHelperDel();
  EXPECT_EQ(config->references(), before);
}

}  // namespace
}  // namespace SampledFlowTracker
