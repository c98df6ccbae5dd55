// A watcher that fell too far behind is told to look at everything again: late, never lost.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

template <class Domain>
class MissedChangesTest : public StateMachineTest<Domain> {};
TYPED_TEST_SUITE(MissedChangesTest, Families);

TYPED_TEST(MissedChangesTest, WhatCameAndWhatWentIsFoundInline) {
  this->start();
  this->wantMany(1, 3);
  this->unwantUntold(this->key(2));
  this->wantUntold(this->key(4));
  EXPECT_TRUE(this->statusOf(this->key(2)));
  this->tellMissed();
  EXPECT_THAT(this->keysOf(this->statuses()), UnorderedElementsAre(this->key(1), this->key(3), this->key(4)));
  EXPECT_EQ(this->count(HoFlowState::inHardware), 3U);
  EXPECT_FALSE(this->counterOf(this->flow(2)));
  EXPECT_EQ(this->inputSm().pendingNotifications(), 0U);
}

TYPED_TEST(MissedChangesTest, WithTasksItIsFoundSliceBySlice) {
  this->startAndRun();
  this->wantMany(1, 6);
  for (std::uint32_t n = 1; n <= 3; ++n) this->unwantUntold(this->key(n));
  for (std::uint32_t n = 7; n <= 9; ++n) this->wantUntold(this->key(n));
  this->tellMissed();
  EXPECT_EQ(this->statuses().size(), 6U) << "at once only the scan is scheduled";
  EXPECT_GT(this->runAllInSlices(), 6U);
  EXPECT_EQ(this->statuses().size(), 6U);
  for (std::uint32_t n = 1; n <= 9; ++n) EXPECT_EQ(this->statusOf(this->key(n)).has_value(), n > 3) << n;
  EXPECT_EQ(this->count(HoFlowState::inHardware), 6U);
}

TYPED_TEST(MissedChangesTest, WaitingFlowsWhoseOffloadWentWaitNoMore) {
  this->budgetIs(0);
  this->startAndRun();
  this->wantMany(1, 4);
  this->unwantUntold(this->key(2));
  this->unwantUntold(this->key(3));
  this->tellMissed();
  this->runAllInSlices();
  EXPECT_THAT(this->waitingKeys(), UnorderedElementsAre(this->key(1), this->key(4)));
  EXPECT_THAT(this->keysOf(this->statuses()), UnorderedElementsAre(this->key(1), this->key(4)));
}

TYPED_TEST(MissedChangesTest, AWaitingFlowWithoutAStatusIsFoundToo) {
  this->budgetIs(0);
  this->startAndRun();
  this->want(this->key(1));
  this->unwantUntold(this->key(1));
  this->statuses().erase(this->key(1));
  this->tellMissed();
  this->runAllInSlices();
  EXPECT_THAT(this->waitingKeys(), IsEmpty());
}

TYPED_TEST(MissedChangesTest, WaitingFlowsAreLookedThroughFromTheFirstOn) {
  this->budgetIs(0);
  this->startAndRun();
  this->wantMany(1, 60);
  for (std::uint32_t n = 1; n <= 60; ++n) {
    this->unwantUntold(this->key(n));
    if (n > 3) this->statuses().erase(this->key(n));
  }
  this->tellMissed();
  this->runAllInSlices();
  EXPECT_THAT(this->waitingKeys(), IsEmpty());
}

TYPED_TEST(MissedChangesTest, WhatTheSweepWithdrawsMakesRoom) {
  this->budgetIs(1);
  this->startAndRun();
  this->wantMany(1, 2);
  this->unwantUntold(this->key(1));
  this->tellMissed();
  this->runAllInSlices();
  EXPECT_EQ(this->stateOf(this->key(2)), HoFlowState::inHardware);
  EXPECT_THAT(this->waitingKeys(), IsEmpty());
}

TYPED_TEST(MissedChangesTest, NothingIsWithdrawnThatIsStillWanted) {
  this->startAndRun();
  this->wantMany(1, 5);
  const auto before = this->keysOf(this->statuses());
  TraceLines trace(7);
  this->tellMissed();
  this->runAllInSlices();
  EXPECT_EQ(this->keysOf(this->statuses()), before);
  EXPECT_EQ(trace.starting(TestFixture::kV4 ? "inputStream" : "input6Stream").size(), 5U);
}

TYPED_TEST(MissedChangesTest, AScanUnderWayBeginsAgain) {
  this->startAndRun();
  this->wantMany(1, 4);
  this->tellMissed();
  TraceLines trace(8);
  while (trace.starting("k: ").size() < 2) ASSERT_TRUE(this->runSlice());
  const auto order = this->keysOf(this->configs());
  this->unwantUntold(order[0]);
  this->wantUntold(order[1], 5);
  this->tellMissed();
  trace.take();
  this->runAllInSlices();
  EXPECT_THAT(trace.starting("k: "),
              ElementsAre("k: " + order[1].str(), "k: " + order[2].str(), "k: " + order[3].str()));
  EXPECT_FALSE(this->statusOf(order[0]));
}

TYPED_TEST(MissedChangesTest, ASweepUnderWayBeginsAgainWithTheScan) {
  this->startAndRun();
  this->wantMany(1, 3);
  this->tellMissed();
  TraceLines trace(8);
  while (trace.starting("k: ").size() < 3) ASSERT_TRUE(this->runSlice());
  ASSERT_TRUE(this->runSlice());  // into the sweep, if not before
  ASSERT_TRUE(this->inputSm().inputScanTask());
  this->wantUntold(this->key(9));
  const auto order = this->keysOf(this->statuses());
  for (const auto& key : order) this->unwantUntold(key);
  this->tellMissed();
  this->runAllInSlices();
  EXPECT_THAT(this->keysOf(this->statuses()), ElementsAre(this->key(9)));
}

// The tables are what an earlier run left; its reconciliation would find what went, had it not to be found
// earlier.
TYPED_TEST(MissedChangesTest, MissedBeforeTheInitialScanIsDoneItIsMadeUpForBehindIt) {
  this->wantMany(1, 3);
  this->start(TestFixture::kTasks);
  this->runSlice();
  this->unwantUntold(this->key(2));
  this->tellMissed();
  this->wantUntold(this->key(4));
  this->runAllInSlices();
  EXPECT_THAT(this->keysOf(this->statuses()), UnorderedElementsAre(this->key(1), this->key(3), this->key(4)));
}

TYPED_TEST(MissedChangesTest, TheInitialScanGoesOnWhereItWas) {
  this->wantMany(1, 4);
  TraceLines trace(8);
  this->start(TestFixture::kTasks);
  while (trace.starting("k: ").size() < 2) ASSERT_TRUE(this->runSlice());
  this->tellMissed();
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  EXPECT_EQ(trace.starting("k: ").size(), 4U);
}

TYPED_TEST(MissedChangesTest, SwitchedOffNoScanIsAskedFor) {
  this->startAndRun();
  this->sm->hasNotificationActiveIs(false);
  this->tellMissed();
  EXPECT_FALSE(this->inputSm().inputScanTask());
}

TYPED_TEST(MissedChangesTest, TheOtherFamilyIsNotLookedAtAgain) {
  using Other = std::conditional_t<TestFixture::kV4, Pavo::Traits::IPv6, Pavo::Traits::IPv4>;
  this->start();
  FlowTracking::HoFlowConfigRecord<Other> record;
  record.key = FamilyWorld<Other>::key(1);
  this->hoFlowConfig->template map<Other>().table()->store(&record);
  this->tellMissed();
  EXPECT_TRUE(this->hoFlowStatus->template map<Other>().empty());
}

TYPED_TEST(MissedChangesTest, SwitchedOffItIsRememberedUntilItIsOnAgain) {
  this->startAndRun();
  this->wantMany(1, 2);
  this->sm->hasNotificationActiveIs(false);
  this->unwantUntold(this->key(1));
  this->tellMissed();
  this->runAll();
  EXPECT_TRUE(this->statusOf(this->key(1)));
  EXPECT_EQ(this->inputSm().pendingNotifications(), 1U);
  this->sm->hasNotificationActiveIs(true);
  this->runAll();
  EXPECT_THAT(this->keysOf(this->statuses()), ElementsAre(this->key(2)));
  EXPECT_EQ(this->inputSm().pendingNotifications(), 0U);
}

}  // namespace
}  // namespace SampledFlowTracker
