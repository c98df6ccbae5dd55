// Which task runs next, and how often.
#include "OltFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What holds for a task holds for a timer task that is scheduled like one.
struct PlainTask {
  static Kiv::Ptr<Olt::Task> make(Olt::TaskScheduler& scheduler, const char* name, std::uint8_t priority) {
    return scheduler.taskIs(name, priority);
  }
};
struct TimerTask {
  static Kiv::Ptr<Olt::Task> make(Olt::TaskScheduler& scheduler, const char* name, std::uint8_t priority) {
    return scheduler.timerTaskIs(name, priority);
  }
};
// One that waits for its time and is then scheduled before that.
struct ArmedTimerTask {
  static Kiv::Ptr<Olt::Task> make(Olt::TaskScheduler& scheduler, const char* name, std::uint8_t priority) {
    const auto timer = scheduler.timerTaskIs(name, priority);
    timer->taskDelayIs(5);
    return timer;
  }
};

template <class Kind>
class Scheduler : public TestSupport::OltFixture {
 protected:
  Worker make(const char* name, std::uint8_t priority = 3) {
    const Kiv::Ptr<Olt::Task> task = Kind::make(*scheduler_, name, priority);
    return {task, noting(task)};
  }
};
using Kinds = ::testing::Types<PlainTask, TimerTask, ArmedTimerTask>;
TYPED_TEST_SUITE(Scheduler, Kinds);

TYPED_TEST(Scheduler, TheSmallestPriorityNumberRunsFirst) {  // O1
  const auto low = this->make("low", 7);
  const auto high = this->make("high", 1);
  const auto middle = this->make("middle", 3);
  for (const auto& each : {low, high, middle}) each.task->scheduleTask();
  EXPECT_EQ(this->scheduler_->due(), 3U);
  EXPECT_THAT(this->runAll(), ElementsAre("high", "middle", "low"));
}

TYPED_TEST(Scheduler, ThoseOfOnePriorityRunInTheOrderOfScheduling) {  // O2
  const auto a = this->make("a");
  const auto b = this->make("b");
  const auto c = this->make("c");
  for (const auto& each : {c, a, b}) each.task->scheduleTask();
  EXPECT_THAT(this->runAll(), ElementsAre("c", "a", "b"));
}

TYPED_TEST(Scheduler, OneThatSchedulesItselfGoesOnBeforeThoseBehindIt) {  // O2
  const auto first = this->make("first");
  int left = 3;
  const auto more = TestSupport::reactorOf(first.task, [&] {
    if (--left > 0) first.task->scheduleTask();
  });
  const auto second = this->make("second");
  first.task->scheduleTask();
  second.task->scheduleTask();
  EXPECT_THAT(this->runAll(), ElementsAre("first", "first", "first", "second"));
}

TYPED_TEST(Scheduler, OneThatSchedulesItselfComesBehindMoreUrgentOnes) {  // O1 before O2
  const auto urgent = this->make("urgent", 1);
  const auto slow = this->make("slow", 5);
  bool once = true;
  const auto more = TestSupport::reactorOf(slow.task, [&] {
    if (!std::exchange(once, false)) return;
    slow.task->scheduleTask();
    urgent.task->scheduleTask();
  });
  slow.task->scheduleTask();
  EXPECT_THAT(this->runAll(), ElementsAre("slow", "urgent", "slow"));
}

TYPED_TEST(Scheduler, OneThatIsScheduledInAnothersRunGoesBehind) {  // O2
  const auto a = this->make("a");
  const auto b = this->make("b");
  const auto c = this->make("c");
  const auto more = TestSupport::reactorOf(a.task, [&] { c.task->scheduleTask(); });
  a.task->scheduleTask();
  b.task->scheduleTask();
  EXPECT_THAT(this->runAll(), ElementsAre("a", "b", "c"));
}

TYPED_TEST(Scheduler, IsRunOnceHoweverOftenItWasScheduled) {  // O3
  const auto a = this->make("a");
  const auto b = this->make("b");
  a.task->scheduleTask();
  b.task->scheduleTask();
  a.task->scheduleTask();
  EXPECT_EQ(this->scheduler_->due(), 2U);
  EXPECT_THAT(this->runAll(), ElementsAre("a", "b"));
  EXPECT_EQ(a.task->runs(), 1U);
}

TYPED_TEST(Scheduler, IsNotScheduledAnyMoreOnceItRuns) {
  const auto a = this->make("a");
  a.task->scheduleTask();
  EXPECT_TRUE(a.task->scheduled());
  bool during = true;
  const auto look = TestSupport::reactorOf(a.task, [&] { during = a.task->scheduled(); });
  this->runAll();
  EXPECT_FALSE(during);
  EXPECT_FALSE(a.task->scheduled());
}

TYPED_TEST(Scheduler, UnscheduledIsNotRun) {
  const auto a = this->make("a");
  const auto b = this->make("b");
  a.task->scheduleTask();
  b.task->scheduleTask();
  a.task->unscheduleTask();
  EXPECT_FALSE(a.task->scheduled());
  EXPECT_THAT(this->runAll(), ElementsAre("b"));
  a.task->scheduleTask();
  EXPECT_THAT(this->runAll(), ElementsAre("a"));
}

TYPED_TEST(Scheduler, AnInactiveReactorsRunIsMadeUpForOnce) {  // O4
  const auto a = this->make("a");
  a.reactor->hasNotificationActiveIs(false);
  for (int i = 0; i < 2; ++i) {
    a.task->scheduleTask();
    EXPECT_THAT(this->runAll(), IsEmpty());
  }
  EXPECT_EQ(a.task->runs(), 2U);
  a.reactor->hasNotificationActiveIs(true);
  EXPECT_THAT(this->runAll(), ElementsAre("a"));
  a.reactor->hasNotificationActiveIs(false);
  a.reactor->hasNotificationActiveIs(true);
  EXPECT_THAT(this->runAll(), IsEmpty()) << "nothing was missed";
}

TYPED_TEST(Scheduler, AnInactiveReactorsRunIsNotMadeUpForWhenItWasCalledOff) {  // O4
  const auto a = this->make("a");
  a.reactor->hasNotificationActiveIs(false);
  a.task->scheduleTask();
  this->runAll();
  a.task->unscheduleTask();
  a.reactor->hasNotificationActiveIs(true);
  EXPECT_THAT(this->runAll(), IsEmpty());
}

TYPED_TEST(Scheduler, AReactorThatComesToATaskThatHasRunIsOwedNothing) {  // O4
  const auto a = this->make("a");
  a.task->scheduleTask();
  this->runAll();
  const auto late = this->noting(a.task);
  EXPECT_FALSE(a.task->scheduled());
}

TYPED_TEST(Scheduler, WhatARunThrowsIsPassedOnAndTheTaskStops) {
  const auto a = this->make("a");
  const auto b = this->make("b");
  auto fault = TestSupport::reactorOf(a.task, [&] {
    a.task->scheduleTask();
    throw std::runtime_error("fault");
  });
  a.task->scheduleTask();
  b.task->scheduleTask();
  EXPECT_THROW(this->runOne(), std::runtime_error);
  EXPECT_FALSE(a.task->scheduled());
  EXPECT_EQ(this->scheduler_->currentTask(), nullptr);
  EXPECT_THAT(this->runAll(), ElementsAre("a", "b")) << "the others go on";
  fault.reset();
  a.task->scheduleTask();
  EXPECT_THAT(this->runAll(), ElementsAre("a")) << "and so may it, when it is asked to again";
}

class SchedulerState : public TestSupport::OltFixture {};

TEST_F(SchedulerState, NothingIsDueAtFirst) {
  EXPECT_FALSE(runOne());
  EXPECT_EQ(scheduler_->due(), 0U);
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
}

TEST_F(SchedulerState, NextIsNowWhileATaskIsDue) {
  const auto a = worker("a");
  a.task->scheduleTask();
  EXPECT_EQ(scheduler_->next(), 0);
  runAll();
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
}

TEST_F(SchedulerState, TheCurrentTaskIsTheOneWhoseRunItIs) {
  const auto a = worker("a");
  const Olt::Task* during = nullptr;
  const auto look = TestSupport::reactorOf(a.task, [&] { during = scheduler_->currentTask(); });
  a.task->scheduleTask();
  runAll();
  EXPECT_EQ(during, a.task.get());
  EXPECT_EQ(scheduler_->currentTask(), nullptr);
}

TEST_F(SchedulerState, RunGoesOnUntilNothingIsDue) {
  const auto a = worker("a");
  const auto b = worker("b");
  a.task->scheduleTask();
  b.task->scheduleTask();
  scheduler_->run(endless_);
  EXPECT_THAT(ran_, ElementsAre("a", "b"));
}

TEST_F(SchedulerState, RunEndsWithItsSliceButNotBeforeOneTaskHasRun) {
  const auto a = worker("a");
  const auto b = worker("b");
  a.task->scheduleTask();
  b.task->scheduleTask();
  TestSupport::CountedSlice spent(1);
  scheduler_->run(spent);
  EXPECT_THAT(ran_, ElementsAre("a"));
}

TEST_F(SchedulerState, ATaskTellsWhatItDid) {
  const auto a = worker("a", 7);
  const auto work = TestSupport::reactorOf(a.task, [&] {
    a.task->taskWorkCountInc(5);
    a.task->taskWorkPendingIs(2);
  });
  for (int i = 0; i < 2; ++i) {
    a.task->scheduleTask();
    runAll();
  }
  EXPECT_EQ(a.task->runs(), 2U);
  EXPECT_EQ(a.task->workCount(), 10U);
  EXPECT_EQ(a.task->workPending(), 2U);
  EXPECT_EQ(a.task->priority(), 7);
  EXPECT_EQ(Kiv::attribute(*a.task, "workCount"), Kiv::Value(10));
}

TEST_F(SchedulerState, TheLongestRunIsKept) {
  const auto a = worker("a");
  bool slow = true;
  const auto work = TestSupport::reactorOf(a.task, [&] {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(slow ? 2 : 0);
    while (std::chrono::steady_clock::now() < end) continue;
  });
  EXPECT_EQ(a.task->longestRun(), 0);
  a.task->scheduleTask();
  runAll();
  const double longest = a.task->longestRun();
  EXPECT_GE(longest, 2e-3);
  slow = false;
  a.task->scheduleTask();
  runAll();
  EXPECT_EQ(a.task->longestRun(), longest);
}

TEST_F(SchedulerState, TheNumberOfTheRunsAttributeIsItsPlaceInTheType) {
  EXPECT_EQ(Olt::Task::kivType().attribute(Olt::Task::runsAttr)->name, "runs");
  EXPECT_EQ(Olt::TimerTask::kivType().attribute(Olt::Task::runsAttr)->name, "runs");
}

TEST_F(SchedulerState, TheDefaultSchedulerIsOne) {
  const auto first = Olt::TaskSchedulerRoot::findOrCreateScheduler();
  ASSERT_TRUE(first);
  EXPECT_EQ(first, Olt::TaskSchedulerRoot::findOrCreateScheduler());
}

}  // namespace
