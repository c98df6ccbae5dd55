// The handshake that ends the initial scan, and the notifying records it goes through.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Writes down which attributes of an entity changed.
class AttributeWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit AttributeWatcher(const Kiv::Ptr<const Kiv::PtrInterface>& watched) {
    notifierIs(watched);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Kiv::AttributeId attribute) override { seen.push_back(attribute); }
  std::vector<Kiv::AttributeId> seen;
};

class HandshakeTest : public ::testing::Test, public FamilyWorld<IPv4> {};

TEST_F(HandshakeTest, WithNoScanEndedItSaysWhichIsMissing) {
  start(kTasks);
  TraceLines trace;
  sm->handleInitialScanDone();
  EXPECT_FALSE(sm->initialScanDone());
  EXPECT_THAT(trace.lines, ElementsAre(TraceLine{9, "handleInitialScanDone", " inputStream scan is false"}));
}

TEST_F(HandshakeTest, WithTheIpv4ScanEndedItWaitsForTheOther) {
  start(kTasks);
  sm->hoIpFlowConfigSm0()->doInputScan();
  ASSERT_TRUE(sm->inputSmScanState()->inputStreamScan());
  TraceLines trace;
  sm->handleInitialScanDone();
  EXPECT_FALSE(sm->initialScanDone());
  EXPECT_THAT(trace.lines, ElementsAre(TraceLine{9, "handleInitialScanDone", " input6Stream scan is false"}));
  EXPECT_TRUE(sm->inputSmScanState()->inputStreamScan());
}

TEST_F(HandshakeTest, WithTheIpv6ScanEndedItWaitsForTheOther) {
  start(kTasks);
  sm->hoIp6FlowConfigSm1()->doInputScan();
  TraceLines trace;
  sm->handleInitialScanDone();
  EXPECT_FALSE(sm->initialScanDone());
  EXPECT_THAT(trace.lines, ElementsAre(TraceLine{9, "handleInitialScanDone", " inputStream scan is false"}));
}

TEST_F(HandshakeTest, BothScansAreTakenNoteOfAndStartedAgain) {
  start(kTasks);
  sm->hoIp6FlowConfigSm1()->doInputScan();
  sm->hoIpFlowConfigSm0()->doInputScan();
  EXPECT_TRUE(sm->initialScanDone());
  EXPECT_FALSE(sm->inputSmScanState()->inputStreamScan());
  EXPECT_FALSE(sm->inputSmScanState()->input6StreamScan());
  EXPECT_EQ(sm->inputSmScanState()->copyLocalCountersCodefDoneGen(), 1U);
  EXPECT_EQ(sm->inputSmScanState()->copyLocalIp6CountersCodefDoneGen(), 1U);
  EXPECT_EQ(sm->hoIpFlowConfigSm0()->scanState(), Zun::InputScanState::notStarted);
  EXPECT_TRUE(sm->hoIpFlowConfigSm0()->inputScanTask()->scheduled());
  EXPECT_TRUE(sm->hoIp6FlowConfigSm1()->inputScanTask()->scheduled());
}

TEST_F(HandshakeTest, RepeatedItDoesNothing) {
  want(key(1));
  startAndRun();
  const auto status = statusOf(key(1));
  statuses().erase(key(1));
  TraceLines trace;
  sm->handleInitialScanDone();
  EXPECT_THAT(trace.lines, IsEmpty());
  EXPECT_EQ(runAll(), 0U) << "the children are not started again";
  EXPECT_FALSE(statusOf(key(1)));
  EXPECT_TRUE(status);
}

TEST_F(HandshakeTest, EachChangeOfTheScanStateIsToldOnce) {
  using Scan = InputSmScanState;
  start(kTasks);
  const auto watcher = Kiv::makePtr<AttributeWatcher>(sm->inputSmScanState());
  runSlice();
  EXPECT_THAT(watcher->seen, ElementsAre(Scan::input6StreamScanAttr));
  watcher->seen.clear();
  runSlice();
  // Taken note of within the telling of the second scan's end, which comes to this watcher last.
  EXPECT_THAT(watcher->seen, ElementsAre(Scan::inputStreamScanAttr, Scan::input6StreamScanAttr,
                                         Scan::copyLocalIp6CountersCodefDoneGenAttr,
                                         Scan::copyLocalCountersCodefDoneGenAttr, Scan::inputStreamScanAttr));
  watcher->seen.clear();
  runAll();
  EXPECT_THAT(
      watcher->seen,
      ElementsAre(Scan::input6StreamScanAttr, Scan::inputStreamScanAttr, Scan::copyLocalIp6CountersIdleAttr,
                  Scan::idleAttr, Scan::copyLocalIp6CountersCodefGenerationAttr,
                  Scan::copyLocalIp6CountersIdleAttr, Scan::idleAttr, Scan::copyLocalCountersIdleAttr,
                  Scan::idleAttr, Scan::copyLocalCountersCodefGenerationAttr, Scan::copyLocalCountersIdleAttr,
                  Scan::idleAttr));
}

TEST_F(HandshakeTest, ReadyInputsOfThePollAskForItWhileItIsNotDone) {
  start(kTasks);
  TraceLines trace;
  sm->handleCopyLocalCountersCodefInputReady();
  EXPECT_THAT(trace.take(), ElementsAre(TraceLine{9, "handleCopyLocalCountersCodefInputReady", ""},
                                        TraceLine{9, "handleInitialScanDone", " inputStream scan is false"}));
  sm->handleCopyLocalIp6CountersCodefInputReady();
  EXPECT_THAT(trace.take(), ElementsAre(TraceLine{9, "handleCopyLocalIp6CountersCodefInputReady", ""},
                                        TraceLine{9, "handleInitialScanDone", " inputStream scan is false"}));
  EXPECT_FALSE(sm->copyLocalCountersTask()->scheduled());
  runAll();
  trace.take();
  sm->handleCopyLocalCountersCodefInputReady();
  EXPECT_THAT(trace.take(), ElementsAre(TraceLine{9, "handleCopyLocalCountersCodefInputReady", ""},
                                        TraceLine{9, "handleCopyLocalCountersCodefInputReady",
                                                  "Inputs for copyLocalCountersCodef ready"}));
  EXPECT_TRUE(sm->copyLocalCountersTask()->scheduled());
}

TEST_F(HandshakeTest, InlineReadyInputsOfThePollScheduleNothing) {
  start(kSynchronous);
  sm->handleCopyLocalCountersCodefInputReady();
  sm->handleCopyLocalIp6CountersCodefInputReady();
  EXPECT_EQ(runAll(), 0U);
}

TEST(InputSmScanStateTest, StartsIdleWithNothingScanned) {
  const InputSmScanState state;
  EXPECT_TRUE(state.copyLocalCountersIdle());
  EXPECT_TRUE(state.copyLocalIp6CountersIdle());
  EXPECT_TRUE(state.idle());
  EXPECT_FALSE(state.inputStreamScan());
  EXPECT_FALSE(state.input6StreamScan());
  EXPECT_EQ(state.copyLocalCountersCodefGeneration(), 0U);
  EXPECT_EQ(state.copyLocalIp6CountersCodefGeneration(), 0U);
  EXPECT_EQ(state.copyLocalCountersCodefDoneGen(), 0U);
  EXPECT_EQ(state.copyLocalIp6CountersCodefDoneGen(), 0U);
}

TEST(InputSmScanStateTest, SettersTellOfChangesOnly) {
  const auto state = Kiv::makePtr<InputSmScanState>();
  const auto watcher = Kiv::makePtr<AttributeWatcher>(state);
  state->scanIs<IPv4>(false);
  state->doneGenIs<IPv6>(0);
  state->copyIdleIs<IPv4>(true);
  state->handleIdle();
  EXPECT_THAT(watcher->seen, IsEmpty());
  state->scanIs<IPv4>(true);
  state->scanIs<IPv4>(true);
  state->doneGenIs<IPv6>(4);
  state->generationInc<IPv4>();
  EXPECT_THAT(watcher->seen, ElementsAre(InputSmScanState::inputStreamScanAttr,
                                         InputSmScanState::copyLocalIp6CountersCodefDoneGenAttr,
                                         InputSmScanState::copyLocalCountersCodefGenerationAttr));
}

TEST(InputSmScanStateTest, IsIdleWhileBothCopiesAre) {
  const auto state = Kiv::makePtr<InputSmScanState>();
  state->copyIdleIs<IPv4>(false);
  EXPECT_FALSE(state->idle());
  state->copyIdleIs<IPv6>(false);
  state->copyIdleIs<IPv4>(true);
  EXPECT_FALSE(state->idle());
  state->copyIdleIs<IPv6>(true);
  EXPECT_TRUE(state->idle());
}

TEST(OutputStateTest, IsReadyWhenAllOutputsAre) {
  const auto state = Kiv::makePtr<OutputState>();
  const auto watcher = Kiv::makePtr<AttributeWatcher>(state);
  for (std::size_t i = 0; i < kOutputs; ++i) {
    EXPECT_FALSE(state->ready());
    const auto id = static_cast<OutputId>(i);
    EXPECT_FALSE(state->outputReady(id));
    state->outputReadyIs(id);
    state->outputReadyIs(id);
    EXPECT_TRUE(state->outputReady(id));
    EXPECT_EQ(std::count(watcher->seen.begin(), watcher->seen.end(), OutputState::attributeOf(id)), 1);
  }
  EXPECT_TRUE(state->ready());
  EXPECT_EQ(watcher->seen.size(), kOutputs + 1);
  EXPECT_THAT(watcher->seen, Contains(OutputState::readyAttr));
  state->handleReady();
  EXPECT_EQ(watcher->seen.size(), kOutputs + 1);
}

}  // namespace
}  // namespace SampledFlowTracker
