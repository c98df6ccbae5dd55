#include "agent/TaskWork.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio.hpp>

#include "ManualClock.h"
#include "TaskThings.h"
#include "agent/EventLoop.h"

namespace {

using TestSupport::reactorOf;

constexpr double kSlice = 1e-3;

class TaskWorkTest : public ::testing::Test {
 protected:
  void turn() { work_.run(0, kSlice); }

  Kiv::Ptr<Olt::TaskScheduler> scheduler_ = Kiv::makePtr<Olt::TaskScheduler>("test");
  Kiv::Ptr<Olt::Task> task_ = scheduler_->taskIs("task", 3);
  Kiv::Ptr<Olt::TimerTask> timer_ = scheduler_->timerTaskIs("timer", 3);
  Pexa::TaskWork work_{scheduler_};
};

class TaskWorkAt : public TaskWorkTest {
 protected:
  TestSupport::ManualClock clock_;
};

TEST_F(TaskWorkAt, IsDueWhenATaskIs) {
  EXPECT_EQ(work_.next(), Pexa::Work::kNever);
  EXPECT_FALSE(work_.unfinished());
  timer_->taskDelayIs(2);
  EXPECT_EQ(work_.next(), clock_.now() + 2);
  EXPECT_FALSE(work_.unfinished()) << "nobody waits for what is to come later";
  task_->scheduleTask();
  EXPECT_EQ(work_.next(), 0);
  EXPECT_TRUE(work_.unfinished());
  turn();
  EXPECT_FALSE(work_.unfinished());
}

TEST_F(TaskWorkAt, ATimerWhoseTimeHasComeIsUnfinished) {
  timer_->taskDelayIs(2);
  clock_.advance(2);
  EXPECT_TRUE(work_.unfinished());
}

TEST_F(TaskWorkAt, OnceTheCapturesHaveEndedTheTimersThatWereSetGoOffOnceWithoutWaiting) {
  const auto again = reactorOf(timer_, [&] { timer_->taskDelayIs(1); });
  timer_->taskDelayIs(0.5);
  work_.capturesEnded();
  EXPECT_TRUE(work_.unfinished()) << "it has not run";
  turn();
  EXPECT_EQ(timer_->runs(), 1U);
  EXPECT_FALSE(work_.unfinished()) << "it has armed itself again, which nobody waits for";
}

TEST_F(TaskWorkAt, WhatATimersRunLeavesDueIsWaitedForToo) {
  const auto more = reactorOf(timer_, [&] { task_->scheduleTask(); });
  timer_->taskDelayIs(0.5);
  work_.capturesEnded();
  TestSupport::EndlessSlice slice;
  scheduler_->runTask(slice);
  EXPECT_TRUE(work_.unfinished());
  turn();
  EXPECT_FALSE(work_.unfinished());
}

TEST_F(TaskWorkAt, TimersThatAreCalledOffOrGoAreNotWaitedFor) {
  auto gone = scheduler_->timerTaskIs("gone", 3);
  gone->taskDelayIs(1);
  timer_->taskDelayIs(1);
  work_.capturesEnded();
  timer_->unscheduleTask();
  EXPECT_TRUE(work_.unfinished());
  gone.reset();
  EXPECT_FALSE(work_.unfinished());
}

TEST_F(TaskWorkAt, TimersThatAreNotSetStaySoWhenTheCapturesEnd) {
  work_.capturesEnded();
  EXPECT_FALSE(work_.unfinished());
}

TEST_F(TaskWorkAt, TimersSetAfterTheEndAreNotWaitedFor) {
  work_.capturesEnded();
  timer_->taskDelayIs(1);
  EXPECT_FALSE(work_.unfinished());
}

TEST_F(TaskWorkTest, ARunEndsWithTheSlice) {
  std::uint64_t entries = 0;
  const auto endless = reactorOf(task_, [&] {
    do ++entries;
    while (!task_->taskShouldYield());
    task_->scheduleTask();
  });
  task_->scheduleTask();
  const auto start = std::chrono::steady_clock::now();
  turn();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_GT(entries, 1U);
  EXPECT_GE(took.count(), kSlice);
  EXPECT_TRUE(work_.unfinished());
}

TEST_F(TaskWorkTest, ALoopThatRunsUntilTheEndRunsTheTasksAndTheTimersThatAreSet) {
  asio::io_context io;
  Pexa::AgentPorts ports{Pexa::AgentConfig{}};
  const auto steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  Pexa::NamedCounters reasons;
  Capture::TraceFilters filters;
  Pexa::PatchPanel panel(ports, steps, reasons, filters);
  Pexa::EventLoop loop(io, ports, panel);
  const auto walk = reactorOf(task_, [&] {
    if (task_->runs() < 10) return task_->scheduleTask();
    timer_->taskDelayIs(5e-3);
  });
  const auto again = reactorOf(timer_, [&] { timer_->taskDelayIs(5e-3); });
  task_->scheduleTask();
  loop.workIs(&work_);
  loop.run(true);
  EXPECT_EQ(task_->runs(), 10U);
  EXPECT_EQ(timer_->runs(), 1U);
}

}  // namespace
