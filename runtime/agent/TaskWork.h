// The scheduler's slice of each turn of the agent's loop, and its tasks as an operator sees them.
#pragma once

#include <vector>

#include "Olt.h"
#include "Work.h"

namespace Pexa {

class TaskWork : public Work {
 public:
  explicit TaskWork(Kiv::Ptr<Olt::TaskScheduler> scheduler) : scheduler_(std::move(scheduler)) {}
  std::string_view name() const override { return "tasks"; }
  double next() const override { return scheduler_->next(); }
  void run(double now, double slice) override;
  // While a task is due; and, once the captures have ended, until each timer that was set by then has gone
  // off and was run: what counts packets once in a while has counted the last ones then.
  bool unfinished() const override;
  void capturesEnded() override;

 private:
  // Compared only: the task may be gone.
  struct Awaited {
    const Olt::Task* timer;
    std::uint64_t runs;
  };

  Kiv::Ptr<Olt::TaskScheduler> scheduler_;
  std::vector<Awaited> awaited_;
};

// A row for each task, for `sft tasks`: "due" is 0 for one that is due, the seconds until a timer goes off,
// and null for one that nobody has asked to run.
Kiv::Value::List taskRows(const Olt::TaskScheduler& scheduler);

}  // namespace Pexa
