// Each flow that is wanted or has a status, once, with all that is known of it.
#pragma once

#include <optional>

#include "PublishedTables.h"

namespace Sft {

template <class Domain>
struct JoinedFlow {
  FlowTracking::HoFlowKey<Domain> key;
  std::optional<FlowTracking::HoFlowConfigRecord<Domain>> wanted;
  std::optional<FlowTracking::HoFlowStatusRecord<Domain>> status;
  std::optional<FlowTracking::HoFlowCounterRecord<Domain>> counter;
};

// The flows of a family, one after the other in table order, holding none but the next. The tables may change
// meanwhile: a flow that is there the whole time is met once, and one that comes or goes at most once.
template <class Domain>
class FlowJoin {
 public:
  // Throws Quell::TableError when a table is there and cannot be used.
  FlowJoin(const Context& context, Damages& damages)
      : wanted_(context, damages),
        status_(context, damages),
        counters_(context, damages),
        wantedWalk_(wanted_),
        statusWalk_(status_) {}
  FlowJoin(const FlowJoin&) = delete;
  FlowJoin& operator=(const FlowJoin&) = delete;

  bool atEnd() const { return wantedWalk_.atEnd() && statusWalk_.atEnd(); }
  // The next flow. REQUIRES: not at the end.
  JoinedFlow<Domain> take() {
    const bool wantedFirst = !statusWalk_.isBefore(wantedWalk_);
    const bool statusFirst = !wantedWalk_.isBefore(statusWalk_);
    JoinedFlow<Domain> flow;
    flow.key = wantedFirst ? wantedWalk_.record().key : statusWalk_.record().key;
    // What the other walk has not at this place may have come behind its back.
    flow.wanted = wantedFirst ? wantedWalk_.record() : wanted_.find(flow.key);
    flow.status = statusFirst ? statusWalk_.record() : status_.find(flow.key);
    flow.counter = counters_.find(flow.key.ipFlowKey);
    if (wantedFirst) wantedWalk_.next();
    if (statusFirst) statusWalk_.next();
    return flow;
  }

 private:
  using Wanted = Published<FlowTracking::HoFlowConfig, Domain>;
  using Status = Published<FlowTracking::HoFlowStatus, Domain>;
  const Wanted wanted_;
  const Status status_;
  const Published<FlowTracking::HoFlowCounter, Domain> counters_;
  typename Wanted::Walk wantedWalk_;
  typename Status::Walk statusWalk_;
};

// Calls `each` with every JoinedFlow of a family.
template <class Domain, class Each>
void joinFlows(const Context& context, Damages& damages, const Each& each) {
  for (FlowJoin<Domain> join(context, damages); !join.atEnd();) each(join.take());
}

}  // namespace Sft
