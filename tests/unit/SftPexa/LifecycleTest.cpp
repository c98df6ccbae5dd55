// How a state machine is built and comes to life: arguments, tasks, readiness.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class LifecycleTest : public ::testing::Test, public FamilyWorld<Pavo::Traits::IPv4> {
 protected:
  std::vector<std::string> taskNames() const {
    std::vector<std::string> names;
    for (const Olt::Task* each : scheduler->tasks()) names.push_back(each->name());
    return names;
  }
  void build() {
    control.synchronous = kSynchronous;
    sftPexaFtHOCSMFactory(hoFlowConfig, hoFlowStatus, hoFlowCounter, hosStateCounter, localCounters, helper,
                          control);
  }
};

using LifecycleDeathTest = LifecycleTest;

constexpr const char* kNotNull =
    "\\(\\) && \"Pointer SM args cannot be null unless they are marked Optional\"";

TEST_F(LifecycleDeathTest, AnEmptyArgumentStopsTheProcessAndIsNamed) {
  const auto kept = std::tuple(hosStateCounter, localCounters, helper, hoFlowConfig, hoFlowStatus);
  hosStateCounter.reset();
  EXPECT_DEATH(build(), std::string("hosStateCounter") + kNotNull);
  hosStateCounter = std::get<0>(kept);
  localCounters.reset();
  EXPECT_DEATH(build(), std::string("localCounter") + kNotNull);
  localCounters = std::get<1>(kept);
  helper.reset();
  EXPECT_DEATH(build(), std::string("helper") + kNotNull);
  helper = std::get<2>(kept);
  hoFlowConfig.reset();
  EXPECT_DEATH(build(), std::string("hoFlowConfig") + kNotNull);
  hoFlowConfig = std::get<3>(kept);
  hoFlowStatus.reset();
  EXPECT_DEATH(build(), std::string("hoFlowStatus") + kNotNull);
  hoFlowStatus = std::get<4>(kept);
  hoFlowCounter.reset();
  EXPECT_DEATH(build(), std::string("hoFlowCounter") + kNotNull);
}

TEST_F(LifecycleDeathTest, OfSeveralEmptyArgumentsTheFirstInTheOrderIsNamed) {
  hoFlowCounter.reset();
  hoFlowStatus.reset();
  EXPECT_DEATH(build(), std::string("failed: hoFlowStatus") + kNotNull);
  hoFlowConfig.reset();
  EXPECT_DEATH(build(), std::string("failed: hoFlowConfig") + kNotNull);
  helper.reset();
  EXPECT_DEATH(build(), std::string("failed: helper") + kNotNull);
  localCounters.reset();
  EXPECT_DEATH(build(), std::string("failed: localCounter") + kNotNull);
  hosStateCounter.reset();
  EXPECT_DEATH(build(), std::string("failed: hosStateCounter") + kNotNull);
}

TEST_F(LifecycleTest, HoldsItsArguments) {
  start();
  EXPECT_EQ(sm->hoFlowConfig(), hoFlowConfig);
  EXPECT_EQ(sm->hoFlowStatus(), hoFlowStatus);
  EXPECT_EQ(sm->hoFlowCounter(), hoFlowCounter);
  EXPECT_EQ(sm->hosStateCounter(), hosStateCounter);
  EXPECT_EQ(sm->localCounter(), localCounters);
  EXPECT_EQ(sm->helper(), helper);
  EXPECT_EQ(sm->drovaControl(), control);
}

TEST_F(LifecycleTest, CreatesItsTasksInAFixedOrderAndAtThePriorityAskedFor) {
  control.taskPriority = 5;
  start(kTasks);
  EXPECT_THAT(taskNames(),
              ElementsAre("SftPexaFtHOCSM-localCounterCounterIp6CollectionOutputTask",
                          "SftPexaFtHOCSM-localCounterCounterCollectionOutputTask",
                          "SftPexaFtHOCSM-hosStateCounterHosStateIp6CounterOutputTask",
                          "SftPexaFtHOCSM-hoFlowStatusHoIpFlowStatusOutputTask",
                          "SftPexaFtHOCSM-hosStateCounterHosStateIpCounterOutputTask",
                          "SftPexaFtHOCSM-helperOverflowEntriesOutputTask",
                          "SftPexaFtHOCSM-hoFlowCounterHoIp6FlowCounterOutputTask",
                          "SftPexaFtHOCSM-hoFlowStatusHoIp6FlowStatusOutputTask",
                          "SftPexaFtHOCSM-hoFlowCounterHoIpFlowCounterOutputTask",
                          "SftPexaFtHOCSM-helperOverflow6EntriesOutputTask",
                          "SftPexaFtHOCSM-copyLocalIp6CountersTask", "SftPexaFtHOCSM-copyLocalCountersTask",
                          "SampledFlowTracker::SftPexaFtHOCSM-HoIp6FlowConfigSm1InputScanTask",
                          "SampledFlowTracker::SftPexaFtHOCSM-HoIpFlowConfigSm0InputScanTask"));
  for (const Olt::Task* each : scheduler->tasks()) EXPECT_EQ(each->priority(), 5U) << each->name();
}

TEST_F(LifecycleTest, InlineOnlyThePollHasTasks) {
  start(kSynchronous);
  EXPECT_TRUE(sm->synchronous());
  EXPECT_THAT(taskNames(),
              ElementsAre("SftPexaFtHOCSM-copyLocalIp6CountersTask", "SftPexaFtHOCSM-copyLocalCountersTask"));
  for (std::size_t i = 0; i < kOutputs; ++i) {
    EXPECT_FALSE(sm->output(static_cast<OutputId>(i)).reconciliationTask());
  }
}

TEST_F(LifecycleTest, WorksInTasksUnlessToldOtherwise) {
  start(Zun::SynchronousChoice::keepDefault);
  EXPECT_FALSE(sm->synchronous());
  EXPECT_THAT(taskNames(), SizeIs(14));
}

TEST_F(LifecycleTest, TakesTheProcessesSchedulerWhenNoneIsNamed) {
  control.taskScheduler = nullptr;
  start(kTasks);
  const auto root = Olt::TaskSchedulerRoot::findOrCreateScheduler();
  EXPECT_EQ(sm->drovaControl().taskScheduler, root);
  EXPECT_THAT(root->tasks(), SizeIs(14));
  EXPECT_THAT(taskNames(), IsEmpty());
  sm.reset();
  EXPECT_THAT(root->tasks(), IsEmpty());
}

TEST_F(LifecycleTest, InitializingAgainChangesNothing) {
  startAndRun();
  want(key(1));
  TraceLines trace;
  const auto tasks = taskNames();
  const auto scanState = sm->inputSmScanState();
  const auto outputState = sm->outputState();
  const auto child = sm->hoIpFlowConfigSm0();
  sm->handleInitialized();
  EXPECT_THAT(trace.lines, IsEmpty());
  EXPECT_EQ(taskNames(), tasks);
  EXPECT_EQ(sm->inputSmScanState(), scanState);
  EXPECT_EQ(sm->outputState(), outputState);
  EXPECT_EQ(sm->hoIpFlowConfigSm0(), child);
  EXPECT_EQ(runAll(), 0U);
  EXPECT_TRUE(sm->ready());
}

TEST_F(LifecycleTest, BuiltInlineItIsDoneWhenTheConstructorReturns) {
  want(key(1));
  start(kSynchronous);
  EXPECT_TRUE(sm->initialized());
  EXPECT_TRUE(sm->initialScanDone());
  EXPECT_TRUE(sm->ready());
  EXPECT_TRUE(sm->idle());
  EXPECT_EQ(stateOf(key(1)), HoFlowState::inHardware);
  EXPECT_EQ(runAll(), 0U) << "but for the timers";
}

TEST_F(LifecycleTest, BuiltWithTasksItHasDoneNothingYet) {
  want(key(1));
  start(kTasks);
  EXPECT_TRUE(sm->initialized());
  EXPECT_FALSE(sm->initialScanDone());
  EXPECT_FALSE(sm->ready());
  EXPECT_FALSE(sm->idle());
  EXPECT_FALSE(statusOf(key(1)));
}

TEST_F(LifecycleTest, TheWorkIsDoneInAFixedOrder) {
  start(kTasks);
  const char* scan6 = FamilyWorld<Pavo::Traits::IPv6>::kScanTask;
  EXPECT_THAT(runNames(),
              ElementsAre(scan6, kScanTask,  // the table can be read
                          scan6, kScanTask,  // events
                          "SftPexaFtHOCSM-copyLocalIp6CountersTask", "SftPexaFtHOCSM-copyLocalCountersTask"));
}

TEST_F(LifecycleTest, ReconcilingOutputsWorkBetweenTheScansAndThePoll) {
  leaveStatus(key(1));
  leaveStatus(key(2));
  start(kTasks);
  const char* scan6 = FamilyWorld<Pavo::Traits::IPv6>::kScanTask;
  EXPECT_THAT(
      runNames(),
      ElementsAre(scan6, kScanTask, scan6, kScanTask, "SftPexaFtHOCSM-hoFlowStatusHoIpFlowStatusOutputTask",
                  "SftPexaFtHOCSM-copyLocalIp6CountersTask", "SftPexaFtHOCSM-copyLocalCountersTask"));
}

TEST_F(LifecycleTest, ReadyAndIdleGoHandInHandInline) {
  start(kSynchronous);
  EXPECT_TRUE(sm->ready());
  EXPECT_EQ(sm->idle(), sm->ready());
  // Also while a pass is called under way.
  sm->inputSmScanState()->copyIdleIs<Pavo::Traits::IPv4>(false);
  EXPECT_TRUE(sm->idle());
}

TEST_F(LifecycleTest, WithTasksItIsNotIdleWhileAPassOfEitherFamilyIsUnderWay) {
  startAndRun();
  EXPECT_TRUE(sm->idle());
  sm->inputSmScanState()->copyIdleIs<Pavo::Traits::IPv4>(false);
  EXPECT_FALSE(sm->idle());
  sm->inputSmScanState()->copyIdleIs<Pavo::Traits::IPv4>(true);
  EXPECT_TRUE(sm->idle());
  sm->inputSmScanState()->copyIdleIs<Pavo::Traits::IPv6>(false);
  EXPECT_FALSE(sm->idle());
  EXPECT_TRUE(sm->ready());
}

TEST_F(LifecycleTest, ItIsNotReadyBeforeTheLastOfTheTenOutputs) {
  helper->overflow6EntriesIs(FamilyWorld<Pavo::Traits::IPv6>::key(1));
  helper->overflow6EntriesIs(FamilyWorld<Pavo::Traits::IPv6>::key(2));
  start(kTasks);
  bool sawNine = false;
  while (!sm->ready()) {
    EXPECT_FALSE(sm->idle());
    unsigned ready = 0;
    for (std::size_t i = 0; i < kOutputs; ++i) ready += sm->output(static_cast<OutputId>(i)).ready() ? 1 : 0;
    EXPECT_LT(ready, kOutputs);
    sawNine = sawNine || ready == kOutputs - 1;
    ASSERT_TRUE(runSlice());
  }
  EXPECT_TRUE(sawNine);
  for (std::size_t i = 0; i < kOutputs; ++i) EXPECT_TRUE(sm->output(static_cast<OutputId>(i)).ready()) << i;
}

TEST_F(LifecycleTest, CanBeBuiltWithoutSayingThatNotificationsAreActive) {
  sm = SftPexaFtHOCSM::SftPexaFtHOCSMIs(hoFlowConfig, hoFlowStatus, hoFlowCounter, hosStateCounter,
                                        localCounters, helper, control);
  EXPECT_TRUE(sm->hasNotificationActive());
  want(key(1));
  EXPECT_EQ(stateOf(key(1)), HoFlowState::inHardware) << "it is a running state machine";
  EXPECT_EQ(sm->references(), 1U);
}

}  // namespace
}  // namespace SampledFlowTracker
