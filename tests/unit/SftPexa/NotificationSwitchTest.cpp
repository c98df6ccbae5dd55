// Switching the state machine off and on: nothing happens in between, and nothing is lost.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

template <class Domain>
class NotificationSwitchTest : public StateMachineTest<Domain> {};
TYPED_TEST_SUITE(NotificationSwitchTest, Families);

TYPED_TEST(NotificationSwitchTest, OffNothingIsDeliveredAndOnAgainEverythingIs) {
  this->start();
  this->wantMany(1, 4);
  this->sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(this->sm->hasNotificationActive());
  this->unwant(this->key(1));
  this->want(this->key(5));
  EXPECT_EQ(this->statuses().size(), 4U);
  EXPECT_FALSE(this->statusOf(this->key(5)));
  this->sm->hasNotificationActiveIs(true);
  EXPECT_FALSE(this->statusOf(this->key(1)));
  EXPECT_TRUE(this->statusOf(this->key(5)));
  EXPECT_EQ(this->statuses().size(), 4U);
  EXPECT_EQ(this->count(HoFlowState::inHardware), 4U);
}

TYPED_TEST(NotificationSwitchTest, TheLastOneThatGoesWhileOffIsNotPendingAnyMore) {
  this->start();
  this->want(this->key(1));
  this->sm->hasNotificationActiveIs(false);
  this->unwant(this->key(1));
  EXPECT_EQ(this->inputSm().pendingNotifications(), 1U);
  this->sm->hasNotificationActiveIs(true);
  EXPECT_EQ(this->inputSm().pendingNotifications(), 0U);
  EXPECT_TRUE(this->statuses().empty());
}

TYPED_TEST(NotificationSwitchTest, OffItHearsOfNoneOfItsRecords) {
  this->start(TestFixture::kTasks);
  this->sm->hasNotificationActiveIs(false);
  TraceLines trace;
  this->sm->inputSmScanState()->template scanIs<TypeParam>(true);
  this->sm->outputState()->outputReadyIs(OutputId::localCounterCounterCollection);
  EXPECT_THAT(trace.lines, IsEmpty());
}

TYPED_TEST(NotificationSwitchTest, AWaitingFlowThatIsWithdrawnWhileOffWaitsNoMore) {
  this->budgetIs(0);
  this->start();
  this->wantMany(1, 3);
  this->sm->hasNotificationActiveIs(false);
  this->unwant(this->key(2));
  EXPECT_EQ(this->waiting().size(), 3U);
  this->sm->hasNotificationActiveIs(true);
  EXPECT_THAT(this->waitingKeys(), UnorderedElementsAre(this->key(1), this->key(3)));
  EXPECT_THAT(this->keysOf(this->statuses()), UnorderedElementsAre(this->key(1), this->key(3)));
  EXPECT_EQ(this->count(HoFlowState::overflow), 2U);
}

TYPED_TEST(NotificationSwitchTest, SwitchedAgainToWhatItIsNothingHappens) {
  this->startAndRun();
  this->sm->hasNotificationActiveIs(true);
  EXPECT_EQ(this->runAll(), 0U);
  this->sm->hasNotificationActiveIs(false);
  this->want(this->key(1));
  this->sm->hasNotificationActiveIs(false);
  EXPECT_EQ(this->runAll(), 0U);
  EXPECT_FALSE(this->statusOf(this->key(1)));
}

TYPED_TEST(NotificationSwitchTest, OnWithNothingMissedNothingIsScannedAgain) {
  this->want(this->key(1));
  this->startAndRun();
  this->sm->hasNotificationActiveIs(false);
  this->sm->hasNotificationActiveIs(true);
  EXPECT_EQ(this->runAll(), 0U);
}

// Everything is under way: both scans with events, a reconciliation, both polls.
TYPED_TEST(NotificationSwitchTest, WorkThatComesUpWhileOffIsMadeUpForInItsOrder) {
  this->wantMany(1, 3);
  for (std::uint32_t n = 11; n <= 13; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  this->sm->hasNotificationActiveIs(false);
  const auto statuses = this->statuses().size();
  const std::string reconciliation = TestFixture::kV4
                                         ? "SftPexaFtHOCSM-hoFlowStatusHoIpFlowStatusOutputTask"
                                         : "SftPexaFtHOCSM-hoFlowStatusHoIp6FlowStatusOutputTask";
  const auto order = ElementsAre(
      FamilyWorld<Pavo::Traits::IPv6>::kScanTask, FamilyWorld<Pavo::Traits::IPv4>::kScanTask, reconciliation,
      "SftPexaFtHOCSM-copyLocalIp6CountersTask", "SftPexaFtHOCSM-copyLocalCountersTask");
  EXPECT_THAT(this->runNames(), order);
  EXPECT_EQ(this->statuses().size(), statuses);
  EXPECT_FALSE(this->sm->ready());
  EXPECT_EQ(this->sm->inputSmScanState()->copyLocalCountersCodefGeneration(), 0U);
  this->sm->hasNotificationActiveIs(true);
  auto names = this->runNames();
  names.erase(std::unique(names.begin(), names.end()), names.end());  // slices of one run
  EXPECT_THAT(names, order);
  EXPECT_TRUE(this->sm->ready());
  EXPECT_TRUE(this->sm->idle());
  EXPECT_THAT(this->keysOf(this->statuses()), UnorderedElementsAre(this->key(1), this->key(2), this->key(3)));
}

TYPED_TEST(NotificationSwitchTest, AScanThatWasInterruptedByItBeginsAgain) {
  this->wantMany(1, 4);
  this->start(TestFixture::kTasks);
  while (this->statuses().size() < 2) ASSERT_TRUE(this->runSlice());
  this->sm->hasNotificationActiveIs(false);
  const auto first = this->keysOf(this->configs())[0];
  this->unwant(first);
  this->runAll();
  EXPECT_TRUE(this->statusOf(first));
  this->sm->hasNotificationActiveIs(true);
  this->runAllInSlices();
  EXPECT_FALSE(this->statusOf(first));
  EXPECT_EQ(this->statuses().size(), 3U);
}

TYPED_TEST(NotificationSwitchTest, WhatComesWhileOffIsFoundWhereverItStandsInTheTable) {
  this->wantMany(1, 4);
  this->start(TestFixture::kTasks);
  while (this->statuses().size() < 3) ASSERT_TRUE(this->runSlice());
  const auto resumed = *this->inputSm().resumeKey();
  this->sm->hasNotificationActiveIs(false);
  this->wantMany(20, 60);
  ASSERT_NE(this->keysOf(this->configs())[2], resumed) << "some stand before the place";
  this->sm->hasNotificationActiveIs(true);
  this->runAll();
  EXPECT_EQ(this->statuses().size(), 45U);
}

// A sweep would withdraw it, and take it off a count that does not have it.
TYPED_TEST(NotificationSwitchTest, WithNothingMissedWhatAnEarlierRunLeftIsLeftToReconciliation) {
  this->wantMany(1, 3);
  for (std::uint32_t n = 11; n <= 14; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  this->sm->hasNotificationActiveIs(false);
  this->sm->hasNotificationActiveIs(true);
  this->runAll();
  EXPECT_THAT(this->keysOf(this->statuses()), UnorderedElementsAre(this->key(1), this->key(2), this->key(3)));
  EXPECT_EQ(this->count(HoFlowState::inHardware), 3U);
}

TYPED_TEST(NotificationSwitchTest, TheInitialScanIsMadeUpForToo) {
  this->wantMany(1, 4);
  this->start(TestFixture::kTasks);
  this->runSlice();
  this->sm->hasNotificationActiveIs(false);
  this->runAll();
  EXPECT_FALSE(this->sm->initialScanDone());
  this->sm->hasNotificationActiveIs(true);
  this->runAllInSlices();
  EXPECT_TRUE(this->sm->ready());
  EXPECT_EQ(this->statuses().size(), 4U);
}

TYPED_TEST(NotificationSwitchTest, APassOverTheLocalCountersGoesOnWhereItWas) {
  this->startAndRun();
  this->wantMany(1, 4);
  for (std::uint32_t n = 1; n <= 4; ++n) this->countPacket(this->flow(n));
  this->clock.advance(1.0);
  while (this->copyTask()->workCount() < 2) ASSERT_TRUE(this->runSlice());
  this->sm->hasNotificationActiveIs(false);
  this->runAll();
  EXPECT_EQ(this->copyTask()->workCount(), 2U);
  EXPECT_FALSE(this->sm->idle());
  this->sm->hasNotificationActiveIs(true);
  this->runAllInSlices();
  EXPECT_EQ(this->copyTask()->workCount(), 4U);
  EXPECT_TRUE(this->sm->idle());
  for (std::uint32_t n = 1; n <= 4; ++n) EXPECT_EQ(this->counterOf(this->flow(n))->packets, 1U) << n;
}

TYPED_TEST(NotificationSwitchTest, AReconciliationGoesOnWhereItWas) {
  for (std::uint32_t n = 1; n <= 4; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  while (this->statuses().size() > 2) ASSERT_TRUE(this->runSlice());
  this->sm->hasNotificationActiveIs(false);
  this->runAll();
  EXPECT_EQ(this->statuses().size(), 2U);
  this->sm->hasNotificationActiveIs(true);
  this->runAllInSlices();
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
  EXPECT_TRUE(this->sm->ready());
}

}  // namespace
}  // namespace SampledFlowTracker
