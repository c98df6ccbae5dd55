// Reconciliation in slices: handing over to the task, bookmarks, and what is noted as seen.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::string yieldText(unsigned processed, unsigned deletions) {
  return fmt::format(
      "Yielding in reconciliation processing after processing {} items, including {} deletions .", processed,
      deletions);
}

template <class Domain>
class ReconciliationSlicesTest : public StateMachineTest<Domain> {
 protected:
  OutputBase& statusOutput() const { return this->outputs().status; }
};
TYPED_TEST_SUITE(ReconciliationSlicesTest, Families);

TYPED_TEST(ReconciliationSlicesTest, FromOutsideExactlyOneEntryIsPassedAndTheTaskGoesOn) {
  for (std::uint32_t n = 1; n <= 5; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  const auto order = this->keysOf(this->statuses());
  TraceLines trace;
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  EXPECT_THAT(trace.starting("Yielding in"), ElementsAre(yieldText(1, 1)));
  EXPECT_EQ(this->statuses().size(), 4U);
  EXPECT_TRUE(this->statusOutput().useBookmark());
  EXPECT_EQ(this->outputs().status.bookmark().k0, order[1]);
  EXPECT_TRUE(this->outputs().status.bookmark().k0Valid);
  EXPECT_TRUE(this->statusOutput().reconciliationTask()->scheduled());
  EXPECT_EQ(this->statusOutput().reconciliationTask()->workCount(), 1U);
}

TYPED_TEST(ReconciliationSlicesTest, OnceHandedOverOnlyTheTaskGoesOn) {
  for (std::uint32_t n = 1; n <= 5; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  for (int i = 0; i < 3; ++i) this->statusOutput().inputReady();
  EXPECT_EQ(this->statuses().size(), 4U);
  EXPECT_EQ(this->statusOutput().reconciliationTask()->workCount(), 1U);
  this->runAll();
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
}

TYPED_TEST(ReconciliationSlicesTest, ATableOfOneEntryIsDoneWithinTheCall) {
  this->leaveStatus(this->key(1));
  this->start(TestFixture::kTasks);
  TraceLines trace;
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  EXPECT_TRUE(this->sm->ready());
  EXPECT_THAT(trace.starting("Deletion scan"), ElementsAre(doneText(1, 1)));
  EXPECT_FALSE(this->statusOutput().reconciliationTask());
}

TYPED_TEST(ReconciliationSlicesTest, EachRunPassesWhatItsSliceAllowsWithCountsOfItsOwn) {
  for (std::uint32_t n = 1; n <= 4; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  TraceLines trace;
  const auto task = this->statusOutput().reconciliationTask().ptr();
  while (!this->sm->ready()) ASSERT_TRUE(this->runSlice());
  EXPECT_THAT(trace.starting("Yielding in"), ElementsAre(yieldText(1, 1), yieldText(1, 1), yieldText(1, 1)));
  EXPECT_THAT(trace.starting("Deletion scan"), ElementsAre(doneText(1, 1)));
  EXPECT_EQ(task->workCount(), 4U);
  EXPECT_EQ(task->references(), 1U) << "this test's: the task is gone";
}

TYPED_TEST(ReconciliationSlicesTest, ALongerSlicePassesMore) {
  if (this->yieldsAlways()) GTEST_SKIP() << "each run has one entry here";
  for (std::uint32_t n = 1; n <= 6; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  TraceLines trace;
  while (!this->sm->ready()) ASSERT_TRUE(this->runSlice(3));
  EXPECT_THAT(trace.starting("Yielding in"), ElementsAre(yieldText(1, 1), yieldText(3, 3)));
  EXPECT_THAT(trace.starting("Deletion scan"), ElementsAre(doneText(2, 2)));
}

TYPED_TEST(ReconciliationSlicesTest, TheBookmarkedEntryMayGoAndOthersMayCome) {
  for (std::uint32_t n = 1; n <= 6; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  const auto left = this->keysOf(this->statuses());
  ASSERT_EQ(this->outputs().status.bookmark().k0, left[0]);
  this->statuses().erase(left[0]);
  this->wantMany(10, 12);  // written, and so noted as seen
  this->runAllInSlices();
  EXPECT_THAT(this->keysOf(this->statuses()),
              UnorderedElementsAre(this->key(10), this->key(11), this->key(12)));
  EXPECT_TRUE(this->sm->ready());
}

TYPED_TEST(ReconciliationSlicesTest, AKeyWrittenWhileCollectingSurvivesAlsoWhenItIsWithdrawnAndComesBack) {
  this->leaveStatus(this->key(1));
  this->leaveStatus(this->key(2));
  this->leaveStatus(this->key(3));
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  const auto last = this->keysOf(this->statuses()).back();
  this->want(last);
  this->unwant(last);
  EXPECT_TRUE(
      this->outputs().status.seenHas(typename std::decay_t<decltype(this->outputs().status)>::KeyType(last)));
  this->want(last);
  this->runAll();
  EXPECT_THAT(this->keysOf(this->statuses()), ElementsAre(last));
}

TYPED_TEST(ReconciliationSlicesTest, KeysAreNotedOnlyWhileTheirOutputReconciles) {
  this->leaveStatus(this->key(8));
  this->leaveStatus(this->key(9));
  this->wantMany(1, 3);
  this->start(TestFixture::kTasks);
  while (this->statuses().size() < 3) ASSERT_TRUE(this->runSlice());
  EXPECT_GE(this->statusOutput().seenCount(), 2U);
  EXPECT_EQ(this->outputs().counter.seenCount(), 0U) << "it was empty at the start";
  EXPECT_EQ(this->outputs().stateCounter.seenCount(), 0U);
  this->runAll();
  EXPECT_EQ(this->statusOutput().seenCount(), 0U);
  this->want(this->key(4));
  EXPECT_EQ(this->statusOutput().seenCount(), 0U);
}

TYPED_TEST(ReconciliationSlicesTest, AtTheEndNothingOfTheScanIsLeft) {
  for (std::uint32_t n = 1; n <= 4; ++n) this->leaveStatus(this->key(n));
  this->want(this->key(1));
  this->start(TestFixture::kTasks);
  this->runAllInSlices();
  EXPECT_FALSE(this->statusOutput().reconciling());
  EXPECT_FALSE(this->statusOutput().useBookmark());
  EXPECT_FALSE(this->statusOutput().reconciliationTask());
  EXPECT_EQ(this->statusOutput().seenCount(), 0U);
  EXPECT_EQ(this->outputs().status.bookmark(),
            typename std::decay_t<decltype(this->outputs().status)>::KeyType());
}

TYPED_TEST(ReconciliationSlicesTest, ALivingTaskOfAnOutputThatHadNothingToReconcileDoesNoHarm) {
  this->startAndRun();
  const auto& task = this->statusOutput().reconciliationTask();
  ASSERT_TRUE(task);
  this->want(this->key(1));
  task->scheduleTask();
  this->runAll();
  EXPECT_TRUE(this->statusOf(this->key(1)));
}

}  // namespace
}  // namespace SampledFlowTracker
