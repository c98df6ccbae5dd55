#include <algorithm>
#include <chrono>

#include "Olt.h"

namespace Olt {

const Kiv::Type& Task::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<Task>("Olt::Task")
                                    .attribute("runs", &Task::runs)  // runsAttr
                                    .attribute("name", &Task::name)
                                    .attribute("priority", &Task::priority)
                                    .attribute("scheduled", &Task::scheduled)
                                    .attribute("workCount", &Task::workCount)
                                    .attribute("workPending", &Task::workPending)
                                    .attribute("longestRun", &Task::longestRun)
                                    .build();
  return type;
}

Task::Task(TaskScheduler& scheduler, Kiv::String name, std::uint8_t priority)
    : Entity(std::move(name)), scheduler_(&scheduler), priority_(priority) {}

Task::~Task() {
  if (scheduler_ != nullptr) scheduler_->forget(*this);
}

void Task::scheduleTask() {
  if (scheduler_ != nullptr) scheduler_->schedule(*this);
}

void Task::unscheduleTask() {
  if (scheduler_ != nullptr) scheduler_->unschedule(*this);
  owed_ = false;
}

bool Task::taskShouldYield() const {
  return scheduler_ != nullptr && scheduler_->shouldYield(*this);
}

void Task::run() {
  const auto start = std::chrono::steady_clock::now();
  ++runs_;
  owed_ = true;
  announce(runsAttr);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  longestRun_ = std::max(longestRun_, took.count());
}

const Kiv::Type& TimerTask::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<TimerTask>("Olt::TimerTask", &Task::kivType())
                                    .attribute("due", &TimerTask::due)
                                    .build();
  return type;
}

TimerTask::~TimerTask() {
  TimerTask::unarm();
}

void TimerTask::taskDelayIs(double seconds) {
  if (scheduler() != nullptr) scheduler()->arm(*this, seconds);
}

void TimerTask::unarm() {
  if (due_ == kNever) return;
  if (scheduler() != nullptr) scheduler()->disarm(*this);
  due_ = kNever;
}

}  // namespace Olt
