#include "TaskWork.h"

#include <algorithm>
#include <cmath>

#include "olt/ClockSlice.h"

namespace Pexa {

namespace {

// When a timer goes off; kNever for what is not set or no timer.
double timerDue(const Olt::Task& task) {
  const auto* timer = dynamic_cast<const Olt::TimerTask*>(&task);
  return timer != nullptr ? timer->due() : Olt::TimerTask::kNever;
}

Kiv::Value dueValue(const Olt::Task& task) {
  if (task.scheduled()) return 0;
  const double due = timerDue(task);
  if (due == Olt::TimerTask::kNever) return {};
  return std::max(0.0, due - Kiv::System::currentTimeUtc());
}

}  // namespace

void TaskWork::run(double /*now*/, double slice) {
  Olt::ClockSlice clockSlice(slice);
  scheduler_->run(clockSlice);
}

void TaskWork::capturesEnded() {
  for (Olt::Task* task : scheduler_->tasks()) {
    if (timerDue(*task) != Olt::TimerTask::kNever) task->scheduleTask();
  }
}

Kiv::Value::List taskRows(const Olt::TaskScheduler& scheduler) {
  Kiv::Value::List rows;
  for (const Olt::Task* task : scheduler.tasks()) {
    rows.push_back(Kiv::Value::Object{
        {"name", task->name()},
        {"priority", task->priority()},
        {"runs", task->runs()},
        {"work", task->workCount()},
        {"pending", task->workPending()},
        {"due", dueValue(*task)},
        {"longestRunUs", static_cast<std::uint64_t>(std::llround(task->longestRun() * 1e6))}});
  }
  return rows;
}

}  // namespace Pexa
