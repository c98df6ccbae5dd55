// A scheduler under a manual clock, and tasks that write their names down when they run.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ManualClock.h"
#include "Olt.h"
#include "TaskThings.h"

namespace TestSupport {

class OltFixture : public ::testing::Test {
 protected:
  // A task of the name, with its reactor.
  struct Worker {
    Kiv::Ptr<Olt::Task> task;
    Kiv::Ptr<LambdaReactor> reactor;
  };

  Kiv::Ptr<LambdaReactor> noting(const Kiv::Ptr<Olt::Task>& task) {
    return reactorOf(task, [this, name = task->name()] { ran_.push_back(name); });
  }
  Worker worker(const std::string& name, std::uint8_t priority = 3) {
    const Kiv::Ptr<Olt::Task> task = scheduler_->taskIs(name, priority);
    return {task, noting(task)};
  }
  bool runOne() { return scheduler_->runTask(endless_); }
  // Runs what is due; a task that schedules itself for ever would not end, so this is bounded.
  std::vector<std::string> runAll() {
    for (int i = 0; i < 1000 && runOne(); ++i) continue;
    return std::exchange(ran_, {});
  }

  ManualClock clock_;
  EndlessSlice endless_;
  Kiv::Ptr<Olt::TaskScheduler> scheduler_ = Kiv::makePtr<Olt::TaskScheduler>("test");
  std::vector<std::string> ran_;
};

}  // namespace TestSupport
