#include <algorithm>
#include <cassert>

#include "Olt.h"
#include "kiv/Kept.h"

namespace Olt {

namespace {

#ifdef OLT_YIELD_ALWAYS
constexpr bool kYieldAlways = true;
#else
constexpr bool kYieldAlways = false;
#endif

// Clears a place when it goes: what a run points to does not outlive the run, however that ends.
template <class T>
class Present {
 public:
  Present(T*& place, T* value) : place_(place) { place_ = value; }
  ~Present() { place_ = nullptr; }
  Present(const Present&) = delete;
  Present& operator=(const Present&) = delete;

 private:
  T*& place_;
};

}  // namespace

const Kiv::Type& TaskScheduler::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<TaskScheduler>("Olt::TaskScheduler")
                                    .attribute("name", &TaskScheduler::name)
                                    .attribute("due", &TaskScheduler::due)
                                    .attribute("next", &TaskScheduler::next)
                                    .build();
  return type;
}

TaskScheduler::TaskScheduler(Kiv::String name) : Entity(std::move(name)) {}

TaskScheduler::~TaskScheduler() {
  for (Task* task : tasks_) {
    task->scheduler_ = nullptr;
    task->scheduled_ = false;
    task->unarm();
  }
}

Kiv::Ptr<Task> TaskScheduler::taskIs(const Kiv::String& name, std::uint8_t priority) {
  Kiv::Ptr<Task> task(new Task(*this, name, priority));
  tasks_.push_back(task.get());
  return task;
}

Kiv::Ptr<TimerTask> TaskScheduler::timerTaskIs(const Kiv::String& name, std::uint8_t priority) {
  Kiv::Ptr<TimerTask> timer(new TimerTask(*this, name, priority));
  tasks_.push_back(timer.get());
  return timer;
}

double TaskScheduler::next() const {
  if (!due_.empty()) return 0;
  if (armed_.empty()) return TimerTask::kNever;
  now();
  return armed_.front()->due_;
}

std::size_t TaskScheduler::due() const {
  if (armed_.empty()) return due_.size();
  const double time = now();
  const auto later =
      std::find_if(armed_.begin(), armed_.end(), [&](const TimerTask* timer) { return timer->due_ > time; });
  return due_.size() + static_cast<std::size_t>(later - armed_.begin());
}

bool TaskScheduler::runTask(Slice& slice) {
  assert(current_ == nullptr && "a run cannot run tasks");
  fireTimers();
  if (due_.empty()) return false;
  // The run may drop the last reference to its task and to this scheduler.
  const Kiv::Ptr<TaskScheduler> self = Kiv::kept(*this);
  const Kiv::Ptr<Task> task(due_.front());
  due_.erase(due_.begin());
  task->scheduled_ = false;
  const Present<const Task> current(current_, task.get());
  const Present<Slice> bounds(slice_, &slice);
  try {
    task->run();
  } catch (...) {
    task->unscheduleTask();
    throw;
  }
  return true;
}

void TaskScheduler::run(Slice& slice) {
  const Kiv::Ptr<TaskScheduler> self = Kiv::kept(*this);
  while (runTask(slice) && !slice.spent()) continue;
}

void TaskScheduler::schedule(Task& task) {
  task.unarm();
  if (task.scheduled_) return;  // O3
  task.scheduled_ = true;
  // In front of its own priority only when the run itself asks for more (O2).
  const auto place = &task == current_ ? std::lower_bound(due_.begin(), due_.end(), task.priority_,
                                                          [](const Task* each, std::uint8_t priority) {
                                                            return each->priority_ < priority;
                                                          })
                                       : std::upper_bound(due_.begin(), due_.end(), task.priority_,
                                                          [](std::uint8_t priority, const Task* each) {
                                                            return priority < each->priority_;
                                                          });
  due_.insert(place, &task);
}

void TaskScheduler::unschedule(Task& task) {
  task.unarm();
  if (!task.scheduled_) return;
  task.scheduled_ = false;
  std::erase(due_, &task);
}

void TaskScheduler::arm(TimerTask& timer, double seconds) {
  timer.unscheduleTask();
  if (seconds == TimerTask::kNever) return;
  timer.due_ = now() + std::max(0.0, seconds);
  armed_.insert(std::upper_bound(armed_.begin(), armed_.end(), timer.due_,
                                 [](double due, const TimerTask* each) { return due < each->due_; }),
                &timer);
}

void TaskScheduler::disarm(const TimerTask& timer) {
  std::erase(armed_, &timer);
}

void TaskScheduler::fireTimers() {
  if (armed_.empty()) return;
  const double time = now();
  while (!armed_.empty() && armed_.front()->due_ <= time) schedule(*armed_.front());
}

// The clock. When it went backwards since it was last seen, all timers go with it (O6); their order stays.
double TaskScheduler::now() const {
  const double time = Kiv::System::currentTimeUtc();
  if (time < clock_) {
    for (TimerTask* timer : armed_) timer->due_ -= clock_ - time;
  }
  return clock_ = time;
}

bool TaskScheduler::shouldYield(const Task& task) const {
  if (&task != current_) return false;
  if (kYieldAlways) return true;
  return (!due_.empty() && due_.front()->priority_ < task.priority_) || slice_->spent();
}

void TaskScheduler::forget(const Task& task) {
  std::erase(due_, &task);
  std::erase(tasks_, &task);
}

Kiv::Ptr<TaskScheduler> TaskSchedulerRoot::findOrCreateScheduler() {
  static const auto scheduler = Kiv::makePtr<TaskScheduler>("default");
  return scheduler;
}

}  // namespace Olt
