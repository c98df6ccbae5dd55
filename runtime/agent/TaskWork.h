// The scheduler's slice of each turn of the agent's loop, and its tasks as an operator sees them.
#pragma once

#include "Olt.h"
#include "Work.h"

namespace Pexa {

class TaskWork : public Work {
 public:
  explicit TaskWork(Kiv::Ptr<Olt::TaskScheduler> scheduler) : scheduler_(std::move(scheduler)) {}
  std::string_view name() const override { return "tasks"; }
  double next() const override { return scheduler_->next(); }
  void run(double now, double slice) override;
  bool unfinished() const override { return scheduler_->due() > 0; }
  // Timers that are set go off now instead of at their time: what counts packets once in a while counts the
  // last ones, and nobody waits for it.
  void capturesEnded() override;

 private:
  Kiv::Ptr<Olt::TaskScheduler> scheduler_;
};

// A row for each task, for `sft tasks`: "due" is 0 for one that is due, the seconds until a timer goes off,
// and null for one that nobody has asked to run.
Kiv::Value::List taskRows(const Olt::TaskScheduler& scheduler);

}  // namespace Pexa
