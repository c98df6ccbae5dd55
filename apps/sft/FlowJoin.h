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

// Calls `each` with every JoinedFlow of a family, in table order, holding none of them. The tables may change
// meanwhile: a flow that is there the whole time is met once, and one that comes or goes at most once.
template <class Domain, class Each>
void joinFlows(const Context& context, Damages& damages, const Each& each) {
  const Published<FlowTracking::HoFlowConfig, Domain> wanted(context, damages);
  const Published<FlowTracking::HoFlowStatus, Domain> status(context, damages);
  const Published<FlowTracking::HoFlowCounter, Domain> counters(context, damages);
  typename decltype(wanted)::Walk wantedWalk(wanted);
  typename decltype(status)::Walk statusWalk(status);
  while (!wantedWalk.atEnd() || !statusWalk.atEnd()) {
    const bool wantedFirst = !statusWalk.isBefore(wantedWalk);
    const bool statusFirst = !wantedWalk.isBefore(statusWalk);
    JoinedFlow<Domain> flow;
    flow.key = wantedFirst ? wantedWalk.record().key : statusWalk.record().key;
    // What the other walk has not at this place may have come behind its back.
    flow.wanted = wantedFirst ? wantedWalk.record() : wanted.find(flow.key);
    flow.status = statusFirst ? statusWalk.record() : status.find(flow.key);
    flow.counter = counters.find(flow.key.ipFlowKey);
    if (wantedFirst) wantedWalk.next();
    if (statusFirst) statusWalk.next();
    each(std::move(flow));
  }
}

}  // namespace Sft
