// The root entity's last two children: the overflow helper and the offload control state machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StateMachineChildTest : public ::testing::Test {
 protected:
  Kiv::Ptr<SftPexaFtHOCSM> hocSmIs() {
    return plugin->hocSmIs(config, status, counter, states, counters, drovaHelper, control);
  }
  Kiv::Ptr<SftPexaPlugin> plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
  Kiv::Ptr<AttributeWatcher> watcher = AttributeWatcher::on(plugin);
  Kiv::Ptr<FlowTracking::HoFlowConfig> config = Kiv::makePtr<FlowTracking::HoFlowConfig>("config");
  Kiv::Ptr<FlowTracking::HoFlowStatus> status = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  Kiv::Ptr<FlowTracking::HoFlowCounter> counter = Kiv::makePtr<FlowTracking::HoFlowCounter>("counter");
  Kiv::Ptr<FlowTracking::HosStateCounter> states = Kiv::makePtr<FlowTracking::HosStateCounter>("states");
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> counters =
      Pexa::Counter::pexaSftHoCounterCollectionFactory("counters");
  Kiv::Ptr<SftPexaDrovaHelper> drovaHelper = sftPexaDrovaHelperFactory(states);
  Zun::SmControl control;
};

TEST_F(StateMachineChildTest, AreKeptWhenAskedForWithTheSameArguments) {
  const auto helper = plugin->drovaHelperIs(states);
  const auto hocSm = hocSmIs();
  EXPECT_THAT(watcher->seen, ElementsAre(SftPexaPlugin::drovaHelperAttr, SftPexaPlugin::hocSmAttr));
  EXPECT_EQ(plugin->drovaHelperIs(states), helper);
  EXPECT_EQ(hocSmIs(), hocSm);
  EXPECT_EQ(plugin->drovaHelper(), helper);
  EXPECT_EQ(plugin->hocSm(), hocSm);
  EXPECT_EQ(watcher->seen.size(), 2U);
}

TEST_F(StateMachineChildTest, AreReplacedWhenAnArgumentDiffers) {
  const auto helper = plugin->drovaHelperIs(states);
  EXPECT_FALSE(plugin->drovaHelperIs(Kiv::makePtr<FlowTracking::HosStateCounter>("others")) == helper);
  EXPECT_EQ(helper->references(), 1U);
  auto hocSm = hocSmIs();
  const auto isNew = [&] {
    const auto before = std::exchange(hocSm, hocSmIs());
    EXPECT_EQ(before->references(), 1U) << "the old one is released";
    return !(before == hocSm);
  };
  control.taskPriority = 4;
  EXPECT_TRUE(isNew());
  control.synchronous = Zun::SynchronousChoice::synchronous;
  EXPECT_TRUE(isNew());
  config = Kiv::makePtr<FlowTracking::HoFlowConfig>("other");
  EXPECT_TRUE(isNew());
  drovaHelper = sftPexaDrovaHelperFactory(states);
  EXPECT_TRUE(isNew());
  EXPECT_EQ(plugin->hocSm(), hocSm);
}

TEST_F(StateMachineChildTest, HaveTheirNotificationsActive) {
  EXPECT_TRUE(plugin->drovaHelperIs(states)->hasNotificationActive());
  EXPECT_TRUE(hocSmIs()->hasNotificationActive());
}

TEST_F(StateMachineChildTest, TheRemovedStateMachineIsInactiveAndTheRemovedHelperStaysActive) {
  const auto helper = plugin->drovaHelperIs(states);
  const auto hocSm = hocSmIs();
  watcher->seen.clear();
  EXPECT_EQ(plugin->hocSmDel(), hocSm);
  EXPECT_EQ(plugin->drovaHelperDel(), helper);
  EXPECT_THAT(watcher->seen, ElementsAre(SftPexaPlugin::hocSmAttr, SftPexaPlugin::drovaHelperAttr));
  EXPECT_FALSE(hocSm->hasNotificationActive());
  EXPECT_TRUE(helper->hasNotificationActive());
  EXPECT_FALSE(plugin->hocSm());
  EXPECT_FALSE(plugin->drovaHelper());
  EXPECT_EQ(hocSm->references(), 1U);
  EXPECT_EQ(helper->references(), 1U);
}

TEST_F(StateMachineChildTest, ARemovedStateMachineLetsGoOfItsTables) {
  const auto before = config->references();
  hocSmIs();
  EXPECT_GT(config->references(), before);
  plugin->hocSmDel();
  EXPECT_EQ(config->references(), before);
  EXPECT_TRUE(config->notifieeList()->empty());
}

TEST_F(StateMachineChildTest, RemovingNothingTellsNobody) {
  EXPECT_FALSE(plugin->hocSmDel());
  EXPECT_FALSE(plugin->drovaHelperDel());
  EXPECT_THAT(watcher->seen, IsEmpty());
}

}  // namespace
}  // namespace SampledFlowTracker
