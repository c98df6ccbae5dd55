// The order in which the root entity is taken down, seen from what each part alone held.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;

std::vector<std::string>* departures = nullptr;

// An entity that says so when its last reference goes.
template <class Base>
class Leaving : public Base {
 public:
  explicit Leaving(const Kiv::String& name) : Base(name) {}
  ~Leaving() override { departures->push_back(this->Kiv::Entity::name()); }
};
template <class Base>
Kiv::Ptr<Base> leaving(const Kiv::String& name) {
  return Kiv::makePtr<Leaving<Base>>(name);
}

class DestructionTest : public ::testing::Test {
 protected:
  void SetUp() override { departures = &seen; }
  void TearDown() override { departures = nullptr; }
  std::vector<std::string> seen;
};

TEST_F(DestructionTest, TakesTheChildrenDownInAFixedOrder) {
  auto plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
  const auto counters = plugin->localHoCountersIs("counters");
  // Built in another order, and each from something that nobody else holds.
  const auto drovaHelper = [&] {
    return plugin->drovaHelperIs(leaving<FlowTracking::HosStateCounter>("drovaHelper"));
  };
  plugin->hocSmIs(leaving<FlowTracking::HoFlowConfig>("hocSm"),
                  Kiv::makePtr<FlowTracking::HoFlowStatus>("status"),
                  Kiv::makePtr<FlowTracking::HoFlowCounter>("counter"),
                  Kiv::makePtr<FlowTracking::HosStateCounter>("states"), counters, drovaHelper(), {});
  plugin->sftPexaFtHoConfigReactorIs(nullptr, leaving<FlowTracking::HoStatus>("reactor"));
  plugin->outputSamplerIs(nullptr, leaving<FlowTracking::HoFlowStatus>("output"), counters, nullptr);
  plugin->inputSamplerIs(nullptr, leaving<FlowTracking::HoFlowStatus>("input"), counters, nullptr);
  plugin->sftSamplerHelperIs(leaving<Sflow::HwStatus>("helper"), nullptr, nullptr, nullptr, nullptr, nullptr);
  plugin.reset();
  EXPECT_THAT(seen, ElementsAre("helper", "input", "output", "reactor", "hocSm", "drovaHelper"));
  EXPECT_EQ(counters->parent(), nullptr);
  EXPECT_EQ(counters->references(), 1U);
}

TEST_F(DestructionTest, TheLocalCountersStayItsChildUntilTheReactorIsGone) {
  class LookingHoStatus : public FlowTracking::HoStatus {
   public:
    using HoStatus::HoStatus;
    ~LookingHoStatus() override { departures->push_back(counters->parent() != nullptr ? "child" : "orphan"); }
    Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> counters;
  };
  auto plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
  auto status = Kiv::makePtr<LookingHoStatus>("reactor");
  status->counters = plugin->localHoCountersIs("counters");
  plugin->sftPexaFtHoConfigReactorIs(nullptr, status);
  status.reset();
  plugin.reset();
  EXPECT_THAT(seen, ElementsAre("child"));
}

TEST_F(DestructionTest, ReleasesWhatWasMountedAfterTheChildrenInReverseOrder) {
  auto plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
  plugin->ftrCapabilitiesIs(leaving<HwFlowTracking::Capabilities>("ftrCapabilities"));
  plugin->fwCapabilitiesIs(leaving<HwFlowWatcher::Capabilities>("fwCapabilities"));
  plugin->sftHwTrackingConfigIs(leaving<HwFlowTracking::Config>("sftHwTrackingConfig"));
  plugin->sflowHwConfigIs(leaving<Sflow::HwConfig>("sflowHwConfig"));
  plugin->sflowHwStatusIs(leaving<Sflow::HwStatus>("sflowHwStatus"));
  plugin->sftSflowHwConfigIs(leaving<Sflow::HwConfig>("sftSflowHwConfig"));
  plugin->hoFlowConfigIs(leaving<FlowTracking::HoFlowConfig>("hoFlowConfig"));
  plugin->hoFlowStatusIs(leaving<FlowTracking::HoFlowStatus>("hoFlowStatus"));
  plugin->hoFlowCounterIs(leaving<FlowTracking::HoFlowCounter>("hoFlowCounter"));
  plugin->hosStateCounterIs(leaving<FlowTracking::HosStateCounter>("hosStateCounter"));
  plugin->hoStatusIs(leaving<FlowTracking::HoStatus>("hoStatus"));
  plugin->ethIntfStatusDirIs(leaving<Interface::EthIntfStatusDir>("ethIntfStatusDir"));
  plugin->sftPexaFtHoConfigReactorIs(nullptr, leaving<FlowTracking::HoStatus>("reactor"));
  plugin.reset();
  EXPECT_THAT(seen, ElementsAre("reactor", "ethIntfStatusDir", "hoStatus", "hosStateCounter", "hoFlowCounter",
                                "hoFlowStatus", "hoFlowConfig", "sftSflowHwConfig", "sflowHwStatus",
                                "sflowHwConfig", "sftHwTrackingConfig", "fwCapabilities", "ftrCapabilities"));
}

TEST_F(DestructionTest, TheReactorNoLongerReactsOnceThePluginIsGone) {
  AgentFixture agent;
  auto plugin = agent.activePlugin();
  const auto reactor = plugin->sftPexaFtHoConfigReactor();
  const auto config = agent.entity<HwFlowTracking::Config>("hardware/flowtracking/config/sampled");
  const auto hoStatus = plugin->hoStatus();
  agent.manager->pluginDelAll();
  plugin.reset();
  EXPECT_FALSE(reactor->hasNotificationActive());
  config->hwOffloadIpv4Is(true);
  EXPECT_FALSE(hoStatus->v4enabled());
}

TEST_F(DestructionTest, TheReactorIsInactiveBeforeTheStateMachineGoes) {
  class LookingConfig : public FlowTracking::HoFlowConfig {
   public:
    using HoFlowConfig::HoFlowConfig;
    ~LookingConfig() override {
      departures->push_back(reactor->hasNotificationActive() ? "active" : "inactive");
    }
    Kiv::Ptr<SftPexaFtHoConfigReactor> reactor;
  };
  auto plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
  auto offloads = Kiv::makePtr<LookingConfig>("offloads");
  offloads->reactor =
      plugin->sftPexaFtHoConfigReactorIs(nullptr, Kiv::makePtr<FlowTracking::HoStatus>("hoStatus"));
  plugin->hocSmIs(offloads, Kiv::makePtr<FlowTracking::HoFlowStatus>("status"),
                  Kiv::makePtr<FlowTracking::HoFlowCounter>("counter"),
                  Kiv::makePtr<FlowTracking::HosStateCounter>("states"),
                  plugin->localHoCountersIs("counters"), plugin->drovaHelperIs(nullptr), {});
  offloads.reset();
  plugin.reset();
  EXPECT_THAT(seen, ElementsAre("inactive"));
}

TEST_F(DestructionTest, TheStateMachineLeavesNoTaskBehind) {
  const auto scheduler = Olt::TaskSchedulerRoot::findOrCreateScheduler();
  AgentFixture agent;
  auto plugin = agent.activePlugin();
  EXPECT_FALSE(scheduler->tasks().empty());
  agent.manager->pluginDelAll();
  plugin.reset();
  EXPECT_TRUE(scheduler->tasks().empty());
}

TEST_F(DestructionTest, WhatTheAgentHoldsLivesOn) {
  AgentFixture agent;
  auto plugin = agent.activePlugin();
  agent.manager->pluginDelAll();
  plugin.reset();
  EXPECT_EQ(agent.steps->input().size(), 1U);
  EXPECT_EQ(agent.steps->output().size(), 1U);
  ASSERT_EQ(agent.counterHolder->collections().size(), 1U);
  EXPECT_EQ(agent.counterHolder->collections()[0]->parent(), nullptr);
}

}  // namespace
}  // namespace SampledFlowTracker
