// How often flows came into a state, and left it, since the state machine was built. A flow here is a wanted
// offload: one direction on one interface.
#pragma once

#include <cstdint>

#include "Decisions.h"

namespace SampledFlowTracker {

struct FlowChanges {
  std::uint64_t admissions = 0;   // came into hardware, promoted ones among them
  std::uint64_t promotions = 0;   // of them, those that had waited for room
  std::uint64_t overflows = 0;    // came to wait for room
  std::uint64_t withdrawals = 0;  // lost their status, wherever they stood

  // A status went from one state to another, or to none. A store that the table refused is no change.
  void count(State oldState, State curState) {
    if (oldState == curState) return;
    if (curState == HoFlowState::inHardware) {
      ++admissions;
      promotions += oldState == HoFlowState::overflow ? 1 : 0;
    } else if (curState == HoFlowState::overflow) {
      ++overflows;
    } else if (!curState) {
      ++withdrawals;
    }
  }
};

}  // namespace SampledFlowTracker
