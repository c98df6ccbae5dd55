#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeInputSm.h"
#include "TaskThings.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::CountedSlice;
using TestSupport::FakeInputSm;
using Zun::InputScanState;

#ifdef OLT_YIELD_ALWAYS
constexpr bool kAlways = true;
#else
constexpr bool kAlways = false;
#endif

class InputSm : public ::testing::Test {
 protected:
  Zun::SmControl control(std::uint8_t priority = 3) const {
    Zun::SmControl result;
    result.taskScheduler = scheduler_;
    result.taskPriority = priority;
    return result;
  }
  Kiv::Ptr<FakeInputSm> machine(bool synchronous = false) {
    return Kiv::makePtr<FakeInputSm>(control(), synchronous, table_);
  }
  void runAll() {
    for (int i = 0; i < 1000 && scheduler_->runTask(endless_); ++i) continue;
  }

  TestSupport::EndlessSlice endless_;
  Kiv::Ptr<Olt::TaskScheduler> scheduler_ = Kiv::makePtr<Olt::TaskScheduler>("test");
  std::set<int> table_ = {1, 2, 3, 4};
};

TEST_F(InputSm, TheScanIsATaskOfTheControlsSchedulerAndPriority) {
  const auto sm = Kiv::makePtr<FakeInputSm>(control(7), false, table_);
  EXPECT_FALSE(sm->inputScanTask());
  sm->doInitializeTask();
  ASSERT_TRUE(sm->inputScanTask());
  EXPECT_EQ(sm->inputScanTask()->name(), "FakeInputScanTask");
  EXPECT_EQ(sm->inputScanTask()->priority(), 7);
  EXPECT_TRUE(sm->inputScanTask()->scheduled());
  EXPECT_EQ(sm->scanState(), InputScanState::notStarted);
  EXPECT_THAT(sm->delivered, IsEmpty()) << "nothing before the task's turn";
  runAll();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(sm->scanState(), InputScanState::complete);
  EXPECT_FALSE(sm->inputScanTask());
  EXPECT_THAT(scheduler_->tasks(), IsEmpty());
}

TEST_F(InputSm, ASynchronousScanIsDoneAtOnceAndWhole) {
  const auto sm = machine(true);
  sm->doInitializeTask();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(scheduler_->tasks(), IsEmpty());
  EXPECT_EQ(sm->scans, 1U);
}

TEST_F(InputSm, WithoutASchedulerASynchronousMachineScansToo) {
  const auto sm = Kiv::makePtr<FakeInputSm>(Zun::SmControl(), true, table_);
  sm->doInitializeTask();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 2, 3, 4));
}

TEST_F(InputSm, AScanEndsWithItsSliceAndGoesOnBehindTheLastEntry) {  // I3
  const auto sm = machine();
  sm->doInitializeTask();
  const Kiv::Ptr<Olt::Task> task = sm->inputScanTask();
  CountedSlice two(2);
  scheduler_->runTask(two);
  const std::size_t first = kAlways ? 1 : 2;
  EXPECT_EQ(sm->delivered.size(), first);
  EXPECT_EQ(sm->scanState(), InputScanState::resumed);
  EXPECT_EQ(task->workCount(), first);
  EXPECT_EQ(task->workPending(), 4 - first);
  EXPECT_TRUE(task->scheduled());
  table_.insert(0);
  table_.erase(3);
  table_.insert(9);
  runAll();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 2, 4, 9));
}

TEST_F(InputSm, AScanCalledFromOutsideItsTaskDoesNotYield) {
  const auto sm = machine();
  sm->doInitializeTask();
  EXPECT_FALSE(sm->shouldYield());
  sm->doInputScan();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 2, 3, 4));
  runAll();
  EXPECT_EQ(sm->scans, 1U) << "its task is gone";
}

TEST_F(InputSm, StartingAgainStartsFromTheBeginning) {
  const auto sm = machine();
  sm->doInitializeTask();
  CountedSlice one(1);
  scheduler_->runTask(one);
  EXPECT_THAT(sm->delivered, ElementsAre(1));
  const Olt::Task* task = sm->inputScanTask().get();
  sm->doInitializeTask();
  EXPECT_EQ(sm->scanState(), InputScanState::notStarted);
  EXPECT_EQ(sm->inputScanTask().get(), task) << "in the task that is there";
  EXPECT_EQ(scheduler_->due(), 1U);
  runAll();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 1, 2, 3, 4));
}

TEST_F(InputSm, StartingAgainAfterTheEndHasANewTask) {
  const auto sm = machine();
  sm->doInitializeTask();
  runAll();
  sm->doInitializeTask();
  ASSERT_TRUE(sm->inputScanTask());
  runAll();
  EXPECT_EQ(sm->delivered.size(), 8U);
}

TEST_F(InputSm, ItsFirstActivationDoesNothing) {
  const auto sm = machine();
  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_TRUE(sm->active());
  EXPECT_FALSE(sm->inputScanTask());
}

TEST_F(InputSm, SwitchedOffItDeliversNothingAndCountsWhatItMisses) {  // I1, I2
  const auto sm = machine();
  sm->doInitializeTask();
  sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(sm->hasNotificationActive());
  runAll();
  sm->changed(2);
  sm->changed(3);
  EXPECT_THAT(sm->delivered, IsEmpty());
  EXPECT_EQ(sm->pendingNotifications(), 2U);
  EXPECT_EQ(scheduler_->due(), 0U);
}

TEST_F(InputSm, SwitchedOnAgainItLooksAtEverythingWhenItMissedAChange) {  // I1
  const auto sm = machine();
  sm->doInitializeTask();
  runAll();
  sm->delivered.clear();
  sm->hasNotificationActiveIs(false);
  sm->changed(2);
  sm->hasNotificationActiveIs(true);
  runAll();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(sm->pendingNotifications(), 0U);
}

TEST_F(InputSm, SwitchedOnAgainItLooksAtEverythingWhenItsScanHadNotEnded) {
  const auto sm = machine();
  sm->doInitializeTask();
  CountedSlice one(1);
  scheduler_->runTask(one);
  sm->hasNotificationActiveIs(false);
  runAll();
  EXPECT_THAT(sm->delivered, ElementsAre(1));
  sm->hasNotificationActiveIs(true);
  runAll();
  EXPECT_THAT(sm->delivered, ElementsAre(1, 1, 2, 3, 4));
}

TEST_F(InputSm, SwitchedOnAgainWithNothingMissedItDoesNothing) {
  const auto sm = machine();
  sm->doInitializeTask();
  runAll();
  const unsigned scans = sm->scans;
  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(true);
  runAll();
  EXPECT_EQ(sm->scans, scans);
}

TEST_F(InputSm, AChangeThatIsDeliveredIsNotPending) {  // I1
  const auto sm = machine();
  std::uint32_t during = 9;
  sm->during = [&](int) { during = sm->pendingNotifications(); };
  sm->changed(7);
  EXPECT_EQ(during, 0U);
  EXPECT_EQ(sm->pendingNotifications(), 0U);
  EXPECT_THAT(sm->delivered, ElementsAre(7));
}

TEST_F(InputSm, TheEndOfASliceLeavesNothingPending) {
  const auto sm = machine();
  sm->during = [&](int) { sm->missed(); };
  sm->doInitializeTask();
  CountedSlice one(1);
  scheduler_->runTask(one);
  EXPECT_EQ(sm->scanState(), InputScanState::resumed);
  EXPECT_EQ(sm->pendingNotifications(), 0U);
}

TEST_F(InputSm, WithItsMachineGoesTheTask) {
  auto sm = machine();
  sm->doInitializeTask();
  sm.reset();
  EXPECT_THAT(scheduler_->tasks(), IsEmpty());
  EXPECT_FALSE(scheduler_->runTask(endless_));
}

TEST_F(InputSm, AMachineMayGoWhileOthersHoldItsTask) {
  auto sm = machine();
  sm->doInitializeTask();
  const Kiv::Ptr<Olt::Task> task = sm->inputScanTask();
  sm.reset();
  EXPECT_FALSE(task->scheduled());
  task->scheduleTask();
  EXPECT_TRUE(scheduler_->runTask(endless_)) << "to no effect";
}

TEST_F(InputSm, AMachineMayGoInItsOwnScan) {
  auto sm = machine();
  std::vector<int> seen;
  sm->during = [&](int key) {
    seen.push_back(key);
    sm.reset();
  };
  sm->doInitializeTask();
  runAll();
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.front(), 1);
  EXPECT_THAT(scheduler_->tasks(), IsEmpty());
}

TEST_F(InputSm, AnEmptyTableIsScannedInOneRun) {
  table_.clear();
  const auto sm = machine();
  sm->doInitializeTask();
  EXPECT_TRUE(scheduler_->runTask(endless_));
  EXPECT_EQ(sm->scanState(), InputScanState::complete);
  EXPECT_FALSE(sm->inputScanTask());
}

}  // namespace
