#include "NaiveSubject.h"

#include "TaskThings.h"

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
  TestSupport::CountedSlice slice(entries);
  scheduler_->runTask(slice);
}

bool everyRunYields() {
  static const bool yields = [] {
    const auto scheduler = Kiv::makePtr<Olt::TaskScheduler>("asking");
    const auto task = scheduler->taskIs("asking", 0);
    bool answer = false;
    const auto asking = TestSupport::reactorOf(task, [&] { answer = task->taskShouldYield(); });
    task->scheduleTask();
    TestSupport::EndlessSlice all;
    scheduler->runTask(all);
    return answer;
  }();
  return yields;
}

}  // namespace Naive
