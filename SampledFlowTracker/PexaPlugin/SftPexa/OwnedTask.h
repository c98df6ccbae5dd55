// A task and what it runs, owned together.
#pragma once

#include <functional>
#include <utility>

#include "Olt.h"

namespace SampledFlowTracker {

// Runs a function; to be dropped only after its owner's task.
class FunctionReactor : public Olt::TaskReactor {
 public:
  explicit FunctionReactor(std::function<void()> run) : run_(std::move(run)) {}
  // Copied: the run may drop its own task, and with it this.
  void onTaskRun() override {
    if (const auto run = run_) run();
  }
  // The owner goes: nothing is run any more.
  void forget() { run_ = nullptr; }

 private:
  std::function<void()> run_;
};

template <class TaskType>
class OwnedTaskOf {
 public:
  OwnedTaskOf() = default;
  ~OwnedTaskOf() { del(); }
  OwnedTaskOf(const OwnedTaskOf&) = delete;
  OwnedTaskOf& operator=(const OwnedTaskOf&) = delete;

  void put(Kiv::Ptr<TaskType> task, std::function<void()> run) {
    del();
    task_ = std::move(task);
    reactor_ = Kiv::makePtr<FunctionReactor>(std::move(run));
    reactor_->notifierIs(task_);
    reactor_->hasNotificationActiveIs(true);
  }
  // Nothing when there is none.
  void del() {
    if (!task_) return;
    reactor_->forget();
    reactor_->notifierIs(nullptr);
    reactor_.reset();
    task_->unscheduleTask();
    task_.reset();
  }
  void hasNotificationActiveIs(bool active) {
    if (reactor_) reactor_->hasNotificationActiveIs(active);
  }
  TaskType* get() const { return task_.get(); }
  const Kiv::Ptr<TaskType>& ptr() const { return task_; }
  TaskType* operator->() const { return task_.get(); }
  TaskType& operator*() const { return *task_; }
  explicit operator bool() const { return static_cast<bool>(task_); }

 private:
  Kiv::Ptr<TaskType> task_;
  Kiv::Ptr<FunctionReactor> reactor_;
};

using OwnedTask = OwnedTaskOf<Olt::Task>;
using OwnedTimerTask = OwnedTaskOf<Olt::TimerTask>;

}  // namespace SampledFlowTracker
