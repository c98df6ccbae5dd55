// One flow as the display knows it.
#pragma once

#include <optional>
#include <string>

#include "FlowArguments.h"
#include "FlowJoin.h"

namespace Sft::Top {

struct Rate {
  double packets = 0;  // a second
  double bytes = 0;    // a second

  double bits() const { return 8 * bytes; }
  bool operator==(const Rate&) const = default;
};

struct FlowRow {
  AnyHoFlowKey key;
  bool wanted = false;
  std::optional<FlowTracking::HoFlowState> state = {};  // none: waits for a first status
  double since = 0;                                     // of the state, UTC seconds; 0: not told
  bool counted = false;                                 // whether it has a published counter
  std::uint64_t packets = 0;                            // of the flow, over all directions and interfaces
  std::uint64_t bytes = 0;
  std::optional<Rate> rate = {};  // none: not counted, or not for long enough

  bool ipv6() const { return key.index() == 1; }
  // "waiting", "in hardware", "overflow", ...; "unwanted" for one that has a status and is not wanted.
  std::string stands() const;
  // As `sft flows` has it: "10.0.0.1:1 -> 10.0.0.2:2 udp vlan 1".
  std::string name() const;
  std::string direction() const;
  std::string interface() const;
  // All that a filter looks into.
  std::string text() const;
};

// A joined flow without its rate.
template <class Domain>
FlowRow rowOf(const JoinedFlow<Domain>& flow) {
  FlowRow row;
  row.key = flow.key;
  row.wanted = flow.wanted.has_value();
  if (flow.status) {
    row.state = flow.status->state;
    row.since = flow.status->lastUpdateTime;
  }
  if (flow.counter) {
    row.counted = true;
    row.packets = flow.counter->packets;
    row.bytes = flow.counter->bytes;
  }
  return row;
}

}  // namespace Sft::Top
