// Tasks, reactors and schedulers that go, at any moment.
#include "OltFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::reactorOf;

class TaskLife : public TestSupport::OltFixture {};

TEST_F(TaskLife, ATaskThatNobodyRefersToIsNotRun) {  // O5
  auto a = worker("a");
  const auto b = worker("b");
  a.task->scheduleTask();
  b.task->scheduleTask();
  a = {};
  EXPECT_EQ(scheduler_->due(), 1U);
  EXPECT_THAT(runAll(), ElementsAre("b"));
}

TEST_F(TaskLife, AnArmedTimerThatNobodyRefersToDoesNotGoOff) {  // O5
  auto timer = scheduler_->timerTaskIs("timer", 3);
  timer->taskDelayIs(1);
  timer.reset();
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
  clock_.advance(10);
  EXPECT_FALSE(runOne());
}

TEST_F(TaskLife, TheReactorKeepsItsTask) {
  auto a = worker("a");
  a.task->scheduleTask();
  a.task.reset();
  EXPECT_THAT(runAll(), ElementsAre("a"));
  a.reactor.reset();
  EXPECT_THAT(scheduler_->tasks(), IsEmpty());
}

TEST_F(TaskLife, AllTasksAreKnownInTheOrderOfTheirCreation) {
  const auto a = scheduler_->taskIs("a", 9);
  auto b = scheduler_->timerTaskIs("b", 1);
  const auto c = scheduler_->taskIs("c", 3);
  EXPECT_THAT(scheduler_->tasks(), ElementsAre(a.get(), b.get(), c.get()));
  b.reset();
  EXPECT_THAT(scheduler_->tasks(), ElementsAre(a.get(), c.get()));
}

TEST_F(TaskLife, ATaskMayBeDroppedInItsOwnRun) {  // O5
  auto a = worker("a");
  Kiv::Ptr<TestSupport::LambdaReactor> last = reactorOf(a.task, [&] {
    a.task->scheduleTask();
    last.reset();
    a = {};
  });
  a.task->scheduleTask();
  EXPECT_TRUE(runOne());
  EXPECT_THAT(scheduler_->tasks(), IsEmpty());
  EXPECT_EQ(scheduler_->currentTask(), nullptr);
  EXPECT_FALSE(runOne()) << "though it had scheduled itself";
}

TEST_F(TaskLife, AnArmedTimerMayBeDroppedInItsOwnRun) {
  auto timer = scheduler_->timerTaskIs("timer", 3);
  Kiv::Ptr<TestSupport::LambdaReactor> reactor = reactorOf(timer, [&] {
    timer->taskDelayIs(1);
    timer.reset();
    reactor.reset();
  });
  timer->scheduleTask();
  EXPECT_TRUE(runOne());
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
}

TEST_F(TaskLife, AReactorMayBeDroppedInItsOwnRun) {
  const auto task = scheduler_->taskIs("a", 3);
  int runs = 0;
  Kiv::Ptr<TestSupport::LambdaReactor> reactor = reactorOf(task, [&] {
    ++runs;
    reactor.reset();
    task->scheduleTask();
  });
  task->scheduleTask();
  EXPECT_TRUE(runOne());
  EXPECT_TRUE(runOne()) << "the task goes on without it";
  EXPECT_EQ(runs, 1);
}

TEST_F(TaskLife, ATaskMayBeDroppedInTheRunOfAnother) {  // O5
  const auto a = worker("a");
  auto b = worker("b");
  const auto c = worker("c");
  const auto drop = reactorOf(a.task, [&] { b = {}; });
  for (const auto& each : {a, c}) each.task->scheduleTask();
  b.task->scheduleTask();
  EXPECT_THAT(runAll(), ElementsAre("a", "c"));
}

TEST_F(TaskLife, ATaskMayBeUnscheduledInTheRunOfAnother) {
  const auto a = worker("a");
  const auto b = worker("b");
  const auto off = reactorOf(a.task, [&] { b.task->unscheduleTask(); });
  a.task->scheduleTask();
  b.task->scheduleTask();
  EXPECT_THAT(runAll(), ElementsAre("a"));
}

TEST_F(TaskLife, TasksMayBeCreatedInARun) {
  const auto a = worker("a");
  Worker born;
  const auto create = reactorOf(a.task, [&] {
    born = worker("born", 1);
    born.task->scheduleTask();
  });
  a.task->scheduleTask();
  EXPECT_THAT(runAll(), ElementsAre("a", "born"));
}

TEST_F(TaskLife, TasksOutliveTheirSchedulerAndAreStill) {
  const auto a = worker("a");
  const auto timer = scheduler_->timerTaskIs("timer", 3);
  a.task->scheduleTask();
  timer->taskDelayIs(1);
  scheduler_.reset();
  EXPECT_FALSE(a.task->scheduled());
  EXPECT_EQ(timer->due(), Olt::TimerTask::kNever);
  a.task->scheduleTask();
  timer->taskDelayIs(1);
  timer->unscheduleTask();
  EXPECT_FALSE(a.task->scheduled());
  EXPECT_FALSE(a.task->taskShouldYield());
  EXPECT_EQ(timer->due(), Olt::TimerTask::kNever);
  a.reactor->hasNotificationActiveIs(false);
  a.reactor->hasNotificationActiveIs(true);
  EXPECT_THAT(ran_, IsEmpty());
}

TEST_F(TaskLife, TheSchedulerMayBeDroppedInARun) {
  const auto a = worker("a");
  const auto drop = reactorOf(a.task, [&] { scheduler_.reset(); });
  a.task->scheduleTask();
  Olt::TaskScheduler* const scheduler = scheduler_.get();
  scheduler->run(endless_);
  EXPECT_THAT(ran_, ElementsAre("a"));
  a.task->scheduleTask();
  EXPECT_FALSE(a.task->scheduled());
}

TEST_F(TaskLife, TheSchedulerMayBeDroppedInASingleRun) {
  const auto a = worker("a");
  const auto drop = reactorOf(a.task, [&] { scheduler_.reset(); });
  a.task->scheduleTask();
  EXPECT_TRUE(scheduler_.get()->runTask(endless_));
  EXPECT_FALSE(scheduler_);
  EXPECT_THAT(ran_, ElementsAre("a"));
}

TEST_F(TaskLife, AReactorMayMoveToAnotherTask) {
  const auto a = worker("a");
  const auto other = scheduler_->taskIs("other", 3);
  EXPECT_EQ(a.reactor->task(), a.task);
  a.reactor->notifierIs(other);
  EXPECT_EQ(a.reactor->task(), other);
  other->scheduleTask();
  EXPECT_EQ(runAll().size(), 1U);
  a.reactor->notifierIs(nullptr);
  EXPECT_FALSE(a.reactor->task());
}

}  // namespace
