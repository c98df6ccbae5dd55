#include "Olt.h"

namespace Olt {

Kiv::Ptr<Task> TaskReactor::task() const {
  // A notifiee's notifier is const for those who only watch; a task is not changed by being watched.
  return Kiv::Ptr<Task>(dynamic_cast<Task*>(const_cast<Kiv::PtrInterface*>(notifier().get())));
}

void TaskReactor::onAttribute(Kiv::AttributeId attribute) {
  if (attribute != Task::runsAttr) return;
  if (const Kiv::Ptr<Task> ours = task()) ours->owed_ = false;
  onTaskRun();
}

// A run that came while this was inactive is made up for by the scheduler, in the task's turn, and not in the
// middle of whatever activates (O4).
void TaskReactor::hasNotificationActiveIs(bool active) {
  NotifieeConst::hasNotificationActiveIs(active);
  const Kiv::Ptr<Task> ours = active ? task() : nullptr;
  if (ours && ours->owed_) ours->scheduleTask();
}

}  // namespace Olt
