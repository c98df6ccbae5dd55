#include "NaiveSubject.h"

namespace Naive {

Subject::Subject() : clock_(0) {
  for (Quell::Container* table :
       std::initializer_list<Quell::Container*>{config.get(), status.get(), counter.get(), states.get()}) {
    for (Quell::MapBase* map : table->collections()) {
      Quell::attachAnonymous(*map, SharedTableOrder::kMostEntries);
      map->corruptionHandlerIs([this](std::string_view) { ++reports_; });
    }
  }
  newHelper();
  newCounters();
}

void Subject::newHelper() {
  helper_ = SampledFlowTracker::SftPexaDrovaHelper::SftPexaDrovaHelperIs(states);
  helper_->maxInHardwareFlowsIs(budget_);
}

void Subject::newCounters() {
  counters_ = Pexa::Counter::pexaSftHoCounterCollectionFactory("counters");
}

void Subject::construct(const Start& start) {
  teardown();
  if (!start.sameHelper) newHelper();
  if (!start.sameCounters) newCounters();
  Zun::SmControl control;
  control.taskScheduler = scheduler_;
  control.taskPriority = 3;
  control.taskName = "SampledFlowTracker";
  control.synchronous =
      start.synchronous ? Zun::SynchronousChoice::synchronous : Zun::SynchronousChoice::tasks;
  machine_ = Machine::SftPexaFtHOCSMIs(config, status, counter, states, counters_, helper_, control);
}

void Subject::work(unsigned entries) {
  CountingSlice slice(entries);
  scheduler_->runTask(slice);
}

namespace {
// Asks whether to yield when it has all the time there is.
class Asking : public Olt::TaskReactor {
 public:
  void onTaskRun() override { yields = task()->taskShouldYield(); }
  bool yields = false;
};
}  // namespace

bool everyRunYields() {
  static const bool yields = [] {
    const auto scheduler = Kiv::makePtr<Olt::TaskScheduler>("asking");
    const auto task = scheduler->taskIs("asking", 0);
    const auto asking = Kiv::makePtr<Asking>();
    asking->notifierIs(task);
    asking->hasNotificationActiveIs(true);
    task->scheduleTask();
    CountingSlice slice(2);
    scheduler->runTask(slice);
    const bool answer = asking->yields;
    asking->notifierIs({});
    return answer;
  }();
  return yields;
}

}  // namespace Naive
