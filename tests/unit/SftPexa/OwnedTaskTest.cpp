// A task and what it runs, owned together: once the owner lets go, nothing is run any more.
#include "SftPexa/OwnedTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TaskThings.h"

namespace SampledFlowTracker {
namespace {

using ::testing::IsEmpty;

class OwnedTaskTest : public ::testing::Test {
 protected:
  void put() {
    owned.put(scheduler->taskIs("owned", 3), [this] { ++runs; });
  }
  unsigned runAll() {
    TestSupport::EndlessSlice endless;
    while (scheduler->runTask(endless)) continue;
    return std::exchange(runs, 0U);
  }

  Kiv::Ptr<Olt::TaskScheduler> scheduler = Kiv::makePtr<Olt::TaskScheduler>("test");
  OwnedTask owned;
  unsigned runs = 0;
};

TEST_F(OwnedTaskTest, ThereIsNoneBeforeOneIsPutIn) {
  EXPECT_FALSE(owned);
  EXPECT_EQ(owned.get(), nullptr);
  owned.del();
  owned.hasNotificationActiveIs(false);
  EXPECT_FALSE(owned);
}

TEST_F(OwnedTaskTest, RunsItsFunction) {
  put();
  ASSERT_TRUE(owned);
  owned->scheduleTask();
  EXPECT_EQ(runAll(), 1U);
}

TEST_F(OwnedTaskTest, ARunThatComesUpWhileOffIsMadeUpFor) {
  put();
  owned.hasNotificationActiveIs(false);
  owned->scheduleTask();
  EXPECT_EQ(runAll(), 0U);
  owned.hasNotificationActiveIs(true);
  EXPECT_EQ(runAll(), 1U);
}

TEST_F(OwnedTaskTest, DeletedItIsNotDueAnyMoreAndDoesNothing) {
  put();
  const auto task = owned.ptr();
  task->scheduleTask();
  owned.del();
  EXPECT_FALSE(owned);
  EXPECT_FALSE(task->scheduled());
  task->scheduleTask();
  EXPECT_EQ(runAll(), 0U);
  EXPECT_EQ(task->references(), 1U) << "this test's";
}

TEST_F(OwnedTaskTest, AnotherTakesItsPlace) {
  put();
  const auto former = owned.ptr();
  put();
  EXPECT_NE(owned.ptr(), former);
  former->scheduleTask();
  EXPECT_EQ(runAll(), 0U);
  owned->scheduleTask();
  EXPECT_EQ(runAll(), 1U);
}

TEST_F(OwnedTaskTest, GoesWithItsOwner) {
  Kiv::Ptr<Olt::Task> task;
  {
    OwnedTask shorter;
    shorter.put(scheduler->taskIs("shorter", 3), [this] { ++runs; });
    task = shorter.ptr();
    task->scheduleTask();
  }
  EXPECT_FALSE(task->scheduled());
  EXPECT_EQ(runAll(), 0U);
  task.reset();
  EXPECT_THAT(scheduler->tasks(), IsEmpty());
}

TEST_F(OwnedTaskTest, ARunMayDeleteItsOwnTask) {
  owned.put(scheduler->taskIs("owned", 3), [this] {
    owned.del();
    ++runs;
  });
  owned->scheduleTask();
  EXPECT_EQ(runAll(), 1U);
  EXPECT_THAT(scheduler->tasks(), IsEmpty());
}

}  // namespace
}  // namespace SampledFlowTracker
