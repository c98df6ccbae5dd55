// What outlives a state machine: the tables of both families, the local counters, the budget with the waiting
// flows, and the time.
#pragma once

#include <variant>

#include "NaiveMap.h"
#include "Records.h"

namespace Naive {

using V4 = Pavo::Traits::IPv4;
using V6 = Pavo::Traits::IPv6;
using FlowTracking::HoFlowState;

struct LocalCount {
  Pavo::IntfId intfId;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  double updateTime = 0;
  bool operator==(const LocalCount&) const = default;
};

template <class Domain>
struct Tables {
  using Flow = FlowTracking::FlowKey<Domain>;
  using Key = FlowTracking::HoFlowKey<Domain>;
  using Config = FlowTracking::HoFlowConfigRecord<Domain>;
  using Status = FlowTracking::HoFlowStatusRecord<Domain>;
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;

  Map<Key, Config, SharedTableOrder> config;
  Map<Key, Status, SharedTableOrder> status;
  Map<Flow, Counter, SharedTableOrder> counter;
  Map<FlowTracking::HosStateCounterKey, FlowTracking::HosStateCounterEntry, SharedTableOrder> states;
  Map<Flow, LocalCount, EntityMapOrder> local;
  Map<Key, std::monostate, EntityMapOrder> overflow;
};

struct World {
  template <class Domain>
  Tables<Domain>& tables() {
    if constexpr (std::is_same_v<Domain, V4>) {
      return v4;
    } else {
      return v6;
    }
  }

  template <class Domain>
  const Tables<Domain>& tables() const {
    return const_cast<World*>(this)->tables<Domain>();
  }

  Tables<V4> v4;
  Tables<V6> v6;
  std::uint32_t budget = 0;  // flows of one family that may be in hardware
  double now = 0;            // UTC seconds
};

}  // namespace Naive
