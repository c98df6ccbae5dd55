// The statuses of one family as the audit knows them: each key's state, and from these, at any time, how many
// statuses are in a state and how many share a flow.
//
// V1  Once every key has been told of, by a walk over the status table or because it changed, and as long as
//     every change is told, the view says what the table says: what was told last of a key is what holds, no
//     matter in which order walk and changes came.
//
// It holds every key of the table, about 200 bytes each: for as long as an audit runs. Neighbours:
// FamilyAudit.h fills it. Threading: the agent's event thread.
#pragma once

#include <array>
#include <optional>

#include "FlowKey.h"
#include "ShardedMap.h"

namespace SampledFlowTracker {

template <class Domain>
class StatusView {
 public:
  using Key = FlowTracking::HoFlowKey<Domain>;
  using FlowKey = FlowTracking::FlowKey<Domain>;
  using State = FlowTracking::HoFlowState;
  static constexpr std::size_t kStates = 256;  // a state is one byte, and any may stand in a table

  // The status of a key is of this state; absent: there is none.
  void statusIs(const Key& key, std::optional<State> state) {
    if (const State* former = states_.find(key)) {
      if (state == *former) return;
      --counts_[indexOf(*former)];
      if (!state) unrefer(key.ipFlowKey);
    } else {
      if (!state) return;
      ++references_.at(key.ipFlowKey);
    }
    if (state) {
      states_.at(key) = *state;
      ++counts_[indexOf(*state)];
    } else {
      states_.erase(key);
    }
  }

  // Statuses of a state.
  std::uint32_t count(State state) const { return counts_[indexOf(state)]; }
  // Statuses whose key has this flow.
  std::uint32_t references(const FlowKey& flow) const {
    const std::uint32_t* found = references_.find(flow);
    return found == nullptr ? 0 : *found;
  }
  std::size_t size() const { return states_.size(); }

  // Drops the next part of the view, which says nothing any more from the first part on; false when there is
  // none left.
  bool dropPart() { return states_.shardDel() || references_.shardDel(); }

 private:
  static std::size_t indexOf(State state) { return static_cast<std::size_t>(state); }
  void unrefer(const FlowKey& flow) {
    if (--references_.at(flow) == 0) references_.erase(flow);
  }

  ShardedMap<Key, State> states_;
  ShardedMap<FlowKey, std::uint32_t> references_;
  std::array<std::uint32_t, kStates> counts_{};
};

}  // namespace SampledFlowTracker
