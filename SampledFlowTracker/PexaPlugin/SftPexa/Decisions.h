// What the statements decide: values in, values out.
//
// Counts are 32-bit unsigned and wrap. Some of the arithmetic looks like a fault and is not one: see "What
// surprises" in docs/state-machine.md before changing it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "Invariant.h"
#include "Records.h"

namespace SampledFlowTracker {

using FlowTracking::HoFlowState;
using State = std::optional<HoFlowState>;

// The state of a status, if there is one.
template <class Status>
State stateOf(const std::optional<Status>& status) {
  State state;
  if (status) state = status->state;
  return state;
}

inline HoFlowState newState(bool outOfResources) {
  return outOfResources ? HoFlowState::overflow : HoFlowState::inHardware;
}

// The time of a status: that of the previous one while the state stays, so that it tells when the flow came
// into it.
template <class Status>
double statusTime(const std::optional<Status>& previous, HoFlowState state, double now) {
  return previous && previous->state == state ? previous->creationTime : now;
}

// The references of a flow identity after an event on one of its keys. Every change of the state adds one,
// also one between in hardware and overflow; only a deleted status takes one away.
inline std::uint32_t newHosEntries(std::optional<std::uint32_t> references, State oldState, State curState) {
  const std::uint32_t before = references.value_or(0);
  if (!curState) return before - 1;
  return before + (curState != oldState ? 1 : 0);
}

// Whether the flow's counter is published after the event.
inline bool counterKept(std::uint32_t references, State oldState, State curState) {
  return references != 0 && (curState == HoFlowState::inHardware || oldState == HoFlowState::inHardware);
}

// A step of a per-state count: what is taken from it, and what it starts with when there is none.
struct StateStep {
  State state;
  std::uint32_t delta;
  std::uint32_t initial;
};

// What an event does to the per-state counts: the former state loses one unless it stays, the current one
// gains one (minus one taken away) unless it was it before. REQUIRES: one of the states.
inline std::array<StateStep, 2> stateSteps(State oldState, State curState) {
  assertThat(oldState || curState, "( oldState || curState )");
  const std::uint32_t decOld = oldState && curState != oldState ? 1 : 0;
  const std::uint32_t incCase = curState ? 1 : 0;
  const std::uint32_t decNew = curState && curState == oldState ? 1 : 0;
  return {{{oldState, decOld, 0}, {curState, decNew - incCase, 1}}};
}

inline std::uint32_t newCount(std::optional<std::uint32_t> count, const StateStep& step) {
  return count ? *count - step.delta : step.initial;
}

}  // namespace SampledFlowTracker
