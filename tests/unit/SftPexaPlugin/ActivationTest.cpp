#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "AgentFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ActivationTest : public ::testing::Test {
 protected:
  Kiv::Ptr<HwFlowTracking::Capabilities> ftrCapabilities() const {
    return agent.entity<HwFlowTracking::Capabilities>("hardware/flowtracking/capabilities/sampled");
  }
  AgentFixture agent;
};

TEST_F(ActivationTest, TakesEveryMountedEntityWhenTheMountsAreComplete) {
  agent.database->configurationIs("sflow/hwconfigdir/sflow", {});
  agent.database->configurationIs("sflow/hwconfigdir/sampledflowtracker", {});
  const auto plugin = agent.mountedPlugin();
  EXPECT_TRUE(plugin->mountsAreComplete());
  const auto is = [&](const auto& attribute, std::string_view path) {
    return attribute && attribute == agent.database->getEntity(path);
  };
  EXPECT_TRUE(is(plugin->sflowHwStatus(), "sflow/hwstatus/dorn"));
  EXPECT_TRUE(is(plugin->sftHwTrackingConfig(), "hardware/flowtracking/config/sampled"));
  EXPECT_TRUE(is(plugin->ftrCapabilities(), "hardware/flowtracking/capabilities/sampled"));
  EXPECT_TRUE(is(plugin->fwCapabilities(), "hardware/flowwatcher/capabilities"));
  EXPECT_TRUE(is(plugin->sflowHwConfig(), "sflow/hwconfigdir/sflow"));
  EXPECT_TRUE(is(plugin->hoStatus(), "flowtracking/hoStatus/sampled"));
  EXPECT_TRUE(is(plugin->sftSflowHwConfig(), "sflow/hwconfigdir/sampledflowtracker"));
  EXPECT_TRUE(is(plugin->ethIntfStatusDir(), "interface/status/eth/intf"));
  EXPECT_NO_THROW(agent.database->checkConfiguration());
}

TEST_F(ActivationTest, LooksTheEntitiesUpInAFixedOrder) {
  std::vector<MountCall> calls;
  const auto database = Kiv::makePtr<RecordingDatabase>(calls);
  const auto plugin = SftPexaPlugin::SftPexaPluginIs("p");
  const auto watcher = AttributeWatcher::on(plugin);
  plugin->mountsComplete(database);
  EXPECT_THAT(database->lookUps,
              ElementsAre("sflow/hwstatus/dorn", "hardware/flowtracking/config/sampled",
                          "hardware/flowtracking/capabilities/sampled", "hardware/flowwatcher/capabilities",
                          "sflow/hwconfigdir/sflow", "flowtracking/hoStatus/sampled",
                          "sflow/hwconfigdir/sampledflowtracker", "interface/status/eth/intf"));
  EXPECT_THAT(watcher->seen, IsEmpty()) << "absent entities change nothing";
}

TEST_F(ActivationTest, AnEntityOfAnotherTypeOrAnAbsentOneEmptiesItsAttribute) {
  std::vector<MountCall> calls;
  const auto database = Kiv::makePtr<RecordingDatabase>(calls);
  const auto plugin = SftPexaPlugin::SftPexaPluginIs("p");
  plugin->sflowHwStatusIs(Kiv::makePtr<Sflow::HwStatus>("earlier"));
  plugin->hoStatusIs(Kiv::makePtr<FlowTracking::HoStatus>("earlier"));
  database->entities["sflow/hwstatus/dorn"] = Kiv::makePtr<HwFlowTracking::Config>("no status");
  plugin->mountsComplete(database);
  EXPECT_FALSE(plugin->sflowHwStatus());
  EXPECT_FALSE(plugin->hoStatus());
}

TEST_F(ActivationTest, BuildsNothingBeforeItIsActivated) {
  const auto plugin = agent.mountedPlugin();
  for (Kiv::AttributeId id = SftPexaPlugin::sftSamplerHelperAttr; id <= SftPexaPlugin::localHoCountersAttr;
       ++id) {
    const Kiv::Type::Attribute* attribute = plugin->fwkType().attribute(id);
    EXPECT_EQ(attribute->get(*plugin), Kiv::Value(Kiv::Ptr<const Kiv::PtrInterface>())) << attribute->name;
  }
}

TEST_F(ActivationTest, BuildsNothingInStandby) {
  const auto plugin = agent.mountedPlugin();
  const auto watcher = AttributeWatcher::on(plugin);
  plugin->standbyInit(Pexa::PexaMode::standby);
  plugin->switchoverInit(Pexa::PexaMode::standby);
  EXPECT_THAT(watcher->seen, IsEmpty());
  EXPECT_THAT(agent.steps->input(), IsEmpty());
  EXPECT_THAT(agent.steps->output(), IsEmpty());
  EXPECT_THAT(agent.counterHolder->collections(), IsEmpty());
  EXPECT_FALSE(ftrCapabilities()->supported());
  EXPECT_EQ(plugin->sflowHwStatus()->sflowEthProtocol(), 0U);
}

TEST_F(ActivationTest, FillsItsAttributesInAFixedOrder) {
  const auto plugin = agent.mountedPlugin();
  const auto watcher = AttributeWatcher::on(plugin);
  plugin->activeInit(Pexa::PexaMode::active);
  EXPECT_THAT(watcher->seen,
              ElementsAre(SftPexaPlugin::hoFlowStatusAttr, SftPexaPlugin::hoFlowCounterAttr,
                          SftPexaPlugin::hoFlowConfigAttr, SftPexaPlugin::hosStateCounterAttr,
                          SftPexaPlugin::sftSamplerHelperAttr, SftPexaPlugin::localHoCountersAttr,
                          SftPexaPlugin::inputSamplerAttr, SftPexaPlugin::sftPexaFtHoConfigReactorAttr,
                          SftPexaPlugin::outputSamplerAttr, SftPexaPlugin::drovaHelperAttr,
                          SftPexaPlugin::hocSmAttr));
  EXPECT_THAT(
      agent.tables->lookUps,
      ElementsAre("flowtracking/sampled/hwOffload/status", "flowtracking/sampled/hwOffload/counter/hfc",
                  "flowtracking/sampled/hwOffload/config", "flowtracking/sampled/hwOffload/counter/status"));
  EXPECT_EQ(plugin->hoFlowStatus(), agent.tables->tables["flowtracking/sampled/hwOffload/status"]);
  EXPECT_EQ(plugin->hoFlowCounter(), agent.tables->tables["flowtracking/sampled/hwOffload/counter/hfc"]);
  EXPECT_EQ(plugin->hoFlowConfig(), agent.tables->tables["flowtracking/sampled/hwOffload/config"]);
  EXPECT_EQ(plugin->hosStateCounter(), agent.tables->tables["flowtracking/sampled/hwOffload/counter/status"]);
}

TEST_F(ActivationTest, DoesTheSameWhateverTheMode) {
  const auto plugin = agent.mountedPlugin();
  plugin->activeInit(Pexa::PexaMode::standby);
  EXPECT_TRUE(plugin->outputSampler());
  EXPECT_TRUE(plugin->hocSm());
  EXPECT_EQ(agent.steps->input().size(), 1U);
}

TEST_F(ActivationTest, PublishesTheProtocolAndTheCapabilities) {
  const auto plugin = agent.activePlugin();
  EXPECT_EQ(agent.entity<Sflow::HwStatus>("sflow/hwstatus/dorn")->sflowEthProtocol(), 33072U);
  const auto capabilities = ftrCapabilities();
  EXPECT_TRUE(capabilities->nonDefaultVrfExport());
  EXPECT_EQ(capabilities->maxTrackers(), 256U);
  EXPECT_EQ(capabilities->maxExportersPerTracker(), 8U);
  EXPECT_EQ(capabilities->maxCollectorsPerExporter(), 8U);
  EXPECT_TRUE(capabilities->hwOffloadIpv4());
  EXPECT_TRUE(capabilities->supported());
  const auto watcherCapabilities =
      agent.entity<HwFlowWatcher::Capabilities>("hardware/flowwatcher/capabilities");
  EXPECT_EQ(watcherCapabilities->feature(), 1U);
  EXPECT_TRUE(watcherCapabilities->awakeSupported());
}

TEST_F(ActivationTest, PublishesInAFixedOrderSupportedLast) {
  using Ftr = HwFlowTracking::Capabilities;
  using Fw = HwFlowWatcher::Capabilities;
  const auto ftr = AttributeWatcher::on(ftrCapabilities());
  const auto fw = AttributeWatcher::on(agent.entity<Fw>("hardware/flowwatcher/capabilities"));
  const auto plugin = agent.activePlugin();
  std::vector<Kiv::AttributeId> seen = ftr->seen;
  std::erase(seen, Ftr::hwOffloadIpv6Attr);  // told only when the toggle is on
  EXPECT_THAT(seen,
              ElementsAre(Ftr::nonDefaultVrfExportAttr, Ftr::maxTrackersAttr, Ftr::maxExportersPerTrackerAttr,
                          Ftr::maxCollectorsPerExporterAttr, Ftr::hwOffloadIpv4Attr, Ftr::supportedAttr));
  EXPECT_THAT(fw->seen, ElementsAre(Fw::featureAttr, Fw::awakeSupportedAttr));
}

TEST_F(ActivationTest, WiresTheChildrenToOneAnother) {
  agent.database->configurationIs("sflow/hwconfigdir/sflow", {});
  agent.database->configurationIs("sflow/hwconfigdir/sampledflowtracker", {});
  const auto plugin = agent.activePlugin();
  const auto& helper = plugin->sftSamplerHelper();
  EXPECT_EQ(helper->sflowHwStatus(), plugin->sflowHwStatus());
  EXPECT_EQ(helper->ports(), agent.ports.ports);
  EXPECT_EQ(helper->ethIntfStatusDir(), plugin->ethIntfStatusDir());
  EXPECT_EQ(helper->sflowHwConfig(), plugin->sflowHwConfig());
  EXPECT_EQ(helper->sftHwTrackingConfig(), plugin->sftHwTrackingConfig());
  EXPECT_EQ(helper->sftSflowHwConfig(), plugin->sftSflowHwConfig());
  const auto isWired = [&](const auto& step) {
    return step->sftSamplerHelper() == helper && step->hoFlowStatus() == plugin->hoFlowStatus() &&
           step->localHoCounters() == plugin->localHoCounters() &&
           step->sftHwTrackingConfig() == plugin->sftHwTrackingConfig();
  };
  EXPECT_TRUE(isWired(plugin->inputSampler()));
  EXPECT_TRUE(isWired(plugin->outputSampler()));
  EXPECT_EQ(plugin->sftPexaFtHoConfigReactor()->sftHwTrackingConfig(), plugin->sftHwTrackingConfig());
  EXPECT_EQ(plugin->sftPexaFtHoConfigReactor()->hoStatus(), plugin->hoStatus());
  EXPECT_EQ(plugin->drovaHelper()->hosStateCounter(), plugin->hosStateCounter());
  const auto& hocSm = plugin->hocSm();
  EXPECT_EQ(hocSm->hoFlowConfig(), plugin->hoFlowConfig());
  EXPECT_EQ(hocSm->hoFlowStatus(), plugin->hoFlowStatus());
  EXPECT_EQ(hocSm->hoFlowCounter(), plugin->hoFlowCounter());
  EXPECT_EQ(hocSm->hosStateCounter(), plugin->hosStateCounter());
  EXPECT_EQ(hocSm->localCounter(), plugin->localHoCounters());
  EXPECT_EQ(hocSm->helper(), plugin->drovaHelper());
}

TEST_F(ActivationTest, TheStateMachineWorksInTasksOfTheAgentsSchedulerAtPriorityThree) {
  const auto plugin = agent.activePlugin();
  const Zun::SmControl& control = plugin->hocSm()->drovaControl();
  EXPECT_EQ(control.taskScheduler, Olt::TaskSchedulerRoot::findOrCreateScheduler());
  EXPECT_EQ(control.taskPriority, 3U);
  EXPECT_EQ(control.taskName, "");
  EXPECT_EQ(control.traceHandle, nullptr);
  EXPECT_EQ(control.synchronous, Zun::SynchronousChoice::keepDefault);
  EXPECT_FALSE(plugin->hocSm()->synchronous());
}

TEST_F(ActivationTest, ShowsTheLocalCountersInTheAgentsDisplay) {
  const auto plugin = agent.activePlugin();
  ASSERT_EQ(agent.counterHolder->collections().size(), 1U);
  EXPECT_EQ(agent.counterHolder->collections()[0], plugin->localHoCounters());
  EXPECT_EQ(plugin->localHoCounters()->name(), "SftHardwareOffload");
  EXPECT_EQ(plugin->localHoCounters()->keyType(), "Flow");
  EXPECT_EQ(plugin->localHoCounters()->parent(), plugin.get());
}

TEST_F(ActivationTest, PutsItsStepsIntoThePipelines) {
  const auto plugin = agent.activePlugin();
  ASSERT_EQ(agent.steps->input().size(), 1U);
  ASSERT_EQ(agent.steps->output().size(), 1U);
  EXPECT_EQ(agent.steps->input()[0], plugin->inputSampler());
  EXPECT_EQ(agent.steps->output()[0], plugin->outputSampler());
  EXPECT_EQ(plugin->inputSampler()->name(), "SftInput");
  EXPECT_EQ(plugin->inputSampler()->position(), 240U);
  EXPECT_EQ(plugin->outputSampler()->name(), "SftOutput");
  EXPECT_EQ(plugin->outputSampler()->position(), 310U);
}

TEST_F(ActivationTest, WithoutADisplayAndPipelinesEverythingElseIsBuilt) {
  agent.manager->counterHolder = nullptr;
  agent.manager->steps = nullptr;
  const auto plugin = agent.activePlugin();
  EXPECT_TRUE(plugin->localHoCounters());
  EXPECT_TRUE(plugin->inputSampler());
  EXPECT_TRUE(plugin->hocSm());
}

TEST_F(ActivationTest, PublishesTheOffloadEnablesFromTheConfiguration) {
  agent.database->configurationIs("hardware/flowtracking/config/sampled",
                                  {{"hwOffloadIpv4", true, "agent.toml", 1}});
  const auto plugin = agent.activePlugin();
  const auto hoStatus = agent.entity<FlowTracking::HoStatus>("flowtracking/hoStatus/sampled");
  EXPECT_TRUE(hoStatus->v4enabled());
  EXPECT_FALSE(hoStatus->v6enabled());
  agent.database->set("hardware/flowtracking/config/sampled", "hwOffloadIpv6", true);
  EXPECT_TRUE(hoStatus->v6enabled());
  EXPECT_TRUE(hoStatus->egressV6Enabled());
}

// Writes each announced attribute's name to standard error, where the parent of a dying process reads it.
class AttributeTeller : public AttributeWatcher {
 public:
  explicit AttributeTeller(const Kiv::Ptr<SftPexaPlugin>& plugin) {
    notifierIs(plugin);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Kiv::AttributeId attribute) override {
    std::fprintf(stderr, "%s ", SftPexaPlugin::kivType().attribute(attribute)->name.c_str());
  }
};

using ActivationDeathTest = ActivationTest;

constexpr const char* kNotNull =
    "\\(\\) && \"Pointer SM args cannot be null unless they are marked Optional\"";

TEST_F(ActivationDeathTest, WithoutTheAgentObjectThereAreNoTablesAndTheStateMachineStopsTheProcess) {
  const auto plugin = agent.mountedPlugin();
  agent.manager->agent = nullptr;
  const auto teller = Kiv::makePtr<AttributeTeller>(plugin);
  EXPECT_DEATH(plugin->activeInit(Pexa::PexaMode::active),
               std::string("^sftSamplerHelper localHoCounters inputSampler sftPexaFtHoConfigReactor "
                           "outputSampler drovaHelper Assertion failed: hosStateCounter") +
                   kNotNull);
}

TEST_F(ActivationDeathTest, ATableOfAnotherTypeIsNotTakenAndTheStateMachineStopsTheProcess) {
  const auto plugin = agent.mountedPlugin();
  agent.tables->tables["flowtracking/sampled/hwOffload/status"] =
      agent.tables->tables["flowtracking/sampled/hwOffload/config"];
  const auto teller = Kiv::makePtr<AttributeTeller>(plugin);
  EXPECT_DEATH(
      plugin->activeInit(Pexa::PexaMode::active),
      std::string("^hoFlowCounter hoFlowConfig hosStateCounter .*Assertion failed: hoFlowStatus") + kNotNull);
}

TEST_F(ActivationTest, ASecondActivationKeepsTheChildren) {
  const auto plugin = agent.activePlugin();
  const auto helper = plugin->sftSamplerHelper();
  const auto reactor = plugin->sftPexaFtHoConfigReactor();
  const auto drovaHelper = plugin->drovaHelper();
  const auto hocSm = plugin->hocSm();
  const auto watcher = AttributeWatcher::on(plugin);
  plugin->activeInit(Pexa::PexaMode::active);
  EXPECT_THAT(watcher->seen, IsEmpty());
  EXPECT_EQ(plugin->drovaHelper(), drovaHelper);
  EXPECT_EQ(plugin->hocSm(), hocSm);
  EXPECT_EQ(plugin->sftSamplerHelper(), helper);
  EXPECT_EQ(plugin->sftPexaFtHoConfigReactor(), reactor);
}

// The toggle is read once in a process, so each of its states gets a process of its own.
class ToggleDeathTest : public ActivationTest {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    directory = std::filesystem::temp_directory_path() / ("sft-toggle-" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory);
    ::setenv("PEXA_TOGGLE_DIR", directory.c_str(), 1);
  }
  void TearDown() override {
    ::unsetenv("PEXA_TOGGLE_DIR");
    std::filesystem::remove_all(directory);
  }
  void write(std::string_view toggles) const { std::ofstream(directory / "FlowTracker.json") << toggles; }
  // Activates, and leaves with 1 when IPv6 offload is announced, with 2 when the tables are not all there.
  [[noreturn]] void activateAndExit() {
    const auto plugin = agent.activePlugin();
    std::size_t collections = 0;
    for (const auto& [path, table] : agent.tables->tables) collections += table->collections().size();
    std::filesystem::remove_all(directory);
    if (collections != 8) std::_Exit(2);
    std::_Exit(ftrCapabilities()->hwOffloadIpv6() ? 1 : 0);
  }
  std::filesystem::path directory;
};

TEST_F(ToggleDeathTest, Ipv6OffloadIsAnnouncedUnlessTheToggleFileSaysOtherwise) {
  EXPECT_EXIT(activateAndExit(), ::testing::ExitedWithCode(1), "");
}

TEST_F(ToggleDeathTest, TheToggleTakesTheAnnouncementAwayAndNothingElse) {
  write(R"({"HwFlowTrackingOffloadV6": false})");
  EXPECT_EXIT(activateAndExit(), ::testing::ExitedWithCode(0), "");
}

TEST_F(ToggleDeathTest, TheToggleIsReadOnce) {
  write(R"({"HwFlowTrackingOffloadV6": false})");
  EXPECT_EXIT(
      {
        toggleHwFlowTrackingOffloadV6Enabled();
        write(R"({"HwFlowTrackingOffloadV6": true})");
        activateAndExit();
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace SampledFlowTracker
