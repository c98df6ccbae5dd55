#include <cassert>

#include "Zun.h"
#include "kiv/Kept.h"

namespace Zun {

class InputSm::ScanReactor : public Olt::TaskReactor {
 public:
  explicit ScanReactor(InputSm& sm) : sm_(sm) {}
  void onTaskRun() override {
    // What a scan delivers may lead to the end of the machine that scans.
    const Kiv::Ptr<InputSm> keep = Kiv::kept(sm_);
    sm_.doInputScan();
  }

 private:
  InputSm& sm_;
};

InputSm::InputSm(Kiv::String taskName, const SmControl& control, bool synchronous)
    : taskName_(std::move(taskName)),
      scheduler_(control.taskScheduler),
      priority_(control.taskPriority),
      synchronous_(synchronous) {
  assert((scheduler_ || synchronous_) && "an input state machine needs a scheduler unless it is synchronous");
}

InputSm::~InputSm() {
  scanTaskDel();
}

void InputSm::doInitializeTask() {
  scanState_ = InputScanState::notStarted;
  if (synchronous_ || !scheduler_) return doInputScan();
  if (!task_) {
    task_ = scheduler_->taskIs(taskName_, priority_);
    reactor_ = Kiv::makePtr<ScanReactor>(*this);
    reactor_->notifierIs(task_);
    reactor_->hasNotificationActiveIs(true);
  }
  task_->scheduleTask();
}

bool InputSm::shouldYield() const {
  return task_ && !synchronous_ && task_->taskShouldYield();
}

void InputSm::hasNotificationActiveIs(bool active) {
  PtrInterface::hasNotificationActiveIs(active);
  if (active == active_) return;
  active_ = active;
  if (!active_) return;
  const bool ended =
      scanState_ == InputScanState::complete || scanState_ == InputScanState::initialScanComplete;
  if (pending_ > 0 || !ended) doInitializeTask();
}

void InputSm::yieldScan(std::uint64_t iterations, std::uint64_t remaining) {
  assert(task_ && "only a scan in a task goes on in another run (shouldYield)");
  scanState_ = InputScanState::resumed;
  task_->taskWorkCountInc(iterations);
  task_->taskWorkPendingIs(remaining);
  task_->scheduleTask();
  pendingClear();
}

void InputSm::scanTaskDel() {
  if (task_) task_->unscheduleTask();
  reactor_.reset();
  task_.reset();
}

}  // namespace Zun
