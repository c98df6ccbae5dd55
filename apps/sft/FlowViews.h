// The published tables as an operator reads them: what is wanted, what became of it, what was counted.
//
// For people, sorted columns. With JSON the members of the record (flow_records/RecordValues.h) and behind
// them words for each number, in table order and as the tables are read, however large they are.
#pragma once

#include <optional>
#include <string>

#include "Command.h"
#include "HoFlowState.h"

namespace Sft {

// What to leave out.
struct FlowFilter {
  bool ipv4 = true;
  bool ipv6 = true;
  std::string state;  // a name, a number; of flows also "waiting" and "unwanted"; all when empty
};

// A line for each flow that is wanted or has a status: the join of both with what was counted of the flow.
// Counts are the flow's, over all directions and interfaces in which it is wanted.
void showFlows(const Context& context, const FlowFilter& filter);
void showStatus(const Context& context, const FlowFilter& filter);
// Not filtered by state.
void showCounters(const Context& context, const FlowFilter& filter);
// How many flows are in each state; for people with a total for each family.
void showStates(const Context& context, const FlowFilter& filter);

}  // namespace Sft
