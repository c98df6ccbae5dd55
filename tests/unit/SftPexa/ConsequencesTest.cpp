// What follows from the rules and may surprise: kept, and shown here, because other parts of the system rely
// on the rules as they are.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <class Domain>
class ConsequencesTest : public StateMachineTest<Domain> {};
TYPED_TEST_SUITE(ConsequencesTest, Families);

// The flow itself is among those that fill the budget.
TYPED_TEST(ConsequencesTest, AtAFullBudgetAChangeOfAnAdmittedOffloadMovesItToOverflow) {
  this->budgetIs(2);
  this->start();
  this->wantMany(1, 2);
  this->want(this->key(1), 1);
  EXPECT_EQ(this->stateOf(this->key(1)), kOverflow);
  EXPECT_EQ(this->stateOf(this->key(2)), kInHardware);
  EXPECT_THAT(this->waitingKeys(), ElementsAre(this->key(1)));
  EXPECT_EQ(this->count(kInHardware), 1U) << "and its place stays free until the next withdrawal or change";
}

TYPED_TEST(ConsequencesTest, ASecondOffloadOfAFlowThatIsHeldBackDropsTheSharedCounter) {
  this->budgetIs(1);
  this->start();
  this->want(this->key(1));
  this->countPacket(this->flow(1));
  ASSERT_TRUE(this->counterOf(this->flow(1)));
  this->want(this->key(1, "Ethernet2"));
  EXPECT_EQ(this->stateOf(this->key(1)), kInHardware);
  EXPECT_EQ(this->stateOf(this->key(1, "Ethernet2")), kOverflow);
  EXPECT_FALSE(this->counterOf(this->flow(1))) << "the first offload is still in hardware";
  EXPECT_TRUE(this->hasLocal(this->flow(1))) << "the packets go on being counted";
}

TYPED_TEST(ConsequencesTest, EachChangeBetweenTheStatesRaisesTheReferenceCount) {
  this->start();
  this->want(this->key(1));
  this->budgetIs(0);
  this->want(this->key(1), 1);
  EXPECT_EQ(this->counterOf(this->flow(1))->hosEntries, 2U);
  this->budgetIs(10);
  this->want(this->key(1), 2);
  EXPECT_EQ(this->counterOf(this->flow(1))->hosEntries, 3U);
  this->unwant(this->key(1));
  ASSERT_TRUE(this->counterOf(this->flow(1))) << "the withdrawal takes one only";
  EXPECT_EQ(this->counterOf(this->flow(1))->hosEntries, 2U);
}

// Reconciliation deletes the statuses and counters, but only statements count.
TYPED_TEST(ConsequencesTest, OffloadsWithdrawnWhileTheAgentIsDownLeaveTheCountsAndTheBudgetTooHigh) {
  this->budgetIs(4);
  this->start();
  this->wantMany(1, 3);
  this->stop();
  this->unwant(this->key(1));
  this->unwant(this->key(2));
  this->start();
  EXPECT_THAT(this->keysOf(this->statuses()), ElementsAre(this->key(3)));
  EXPECT_THAT(this->keysOf(this->counters()), ElementsAre(this->flow(3)));
  EXPECT_EQ(this->count(kInHardware), 3U) << "one is";
  this->want(this->key(4));
  this->want(this->key(5));
  EXPECT_EQ(this->stateOf(this->key(4)), kInHardware);
  EXPECT_EQ(this->stateOf(this->key(5)), kOverflow) << "two are in hardware, and the budget is four";
}

TYPED_TEST(ConsequencesTest, WithTasksTheFirstEntryIsExaminedBeforeTheScanHasDeliveredAnything) {
  this->start();
  this->wantMany(1, 3);
  this->stop();
  const auto first = this->keysOf(this->statuses())[0];
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  EXPECT_FALSE(this->statusOf(first)) << "nothing has been seen yet";
  EXPECT_EQ(this->statuses().size(), 2U);
  this->runAll();
  EXPECT_EQ(this->stateOf(first), kInHardware) << "the scan writes it again, as a new status";
  EXPECT_EQ(this->count(kInHardware), 4U);
  EXPECT_EQ(this->counterOf(first.ipFlowKey)->hosEntries, 2U);
}

// Inline the first poll comes before the reconciliation, and what it writes counts as written again.
TYPED_TEST(ConsequencesTest, InlineACounterWhoseLocalCounterLivesSurvivesTheRestart) {
  this->leaveCounter(this->flow(1));
  this->leaveCounter(this->flow(2));
  this->countPacket(this->flow(1));
  this->start();
  EXPECT_THAT(this->keysOf(this->counters()), ElementsAre(this->flow(1)));
}

// At a full budget a scan delivers changes like any other: the flow that comes first goes, and the next stays
// because there is room again.
TYPED_TEST(ConsequencesTest, AtAFullBudgetARestartMovesAnAdmittedFlowToOverflow) {
  this->budgetIs(3);
  this->start();
  this->wantMany(1, 3);
  this->stop();
  this->start();
  unsigned waiting = 0;
  for (std::uint32_t n = 1; n <= 3; ++n) waiting += this->stateOf(this->key(n)) == kOverflow ? 1 : 0;
  EXPECT_EQ(waiting, 1U);
  EXPECT_EQ(this->stateOf(this->keysOf(this->configs())[0]), kOverflow);
  EXPECT_EQ(this->waiting().size(), 1U);
}

// A flow that was promoted before its config went is withdrawn like any other, whatever its place in the
// walk.
TYPED_TEST(ConsequencesTest, AWaitingFlowWhoseConfigIsGoneUnnoticedIsPromotedToNothing) {
  this->budgetIs(1);
  this->start();
  this->wantMany(1, 2);
  this->unwantUntold(this->key(2));
  this->unwant(this->key(1));
  EXPECT_THAT(this->waitingKeys(), IsEmpty());
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
  EXPECT_EQ(this->count(kOverflow), 0U);
}

}  // namespace
}  // namespace SampledFlowTracker
