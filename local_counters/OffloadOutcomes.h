// What the offload decision made of the packets that it looked at: a plain count for each family, direction
// and outcome, so that all of them add up to the packets that came by.
//
// Neighbours: the offload decision counts, the plugin's metrics tell. Threading: the agent's event thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Bridging.h"
#include "IpFamily.h"

namespace Pexa::Counter {

enum class OffloadOutcome : std::uint8_t {
  offloaded,      // in hardware: counted, not sampled
  noStatus,       // nobody wants the flow in hardware, or nothing was decided yet
  notInHardware,  // it is wanted, and waits
  notTcpOrUdp,
};
inline constexpr std::size_t kOffloadOutcomes = 4;

class OffloadOutcomes {
 public:
  using Direction = Bridging::AllowedTrafficDirection;

  template <class Domain>
  void inc(Direction direction, OffloadOutcome outcome) {
    ++counts_[FlowTracking::IpFamily<Domain>::kIndex][indexOf(direction)][static_cast<std::size_t>(outcome)];
  }
  template <class Domain>
  std::uint64_t count(Direction direction, OffloadOutcome outcome) const {
    return counts_[FlowTracking::IpFamily<Domain>::kIndex][indexOf(direction)]
                  [static_cast<std::size_t>(outcome)];
  }
  // Packets that are of no family whose flows are offloaded.
  void otherInc(Direction direction) { ++others_[indexOf(direction)]; }
  std::uint64_t others(Direction direction) const { return others_[indexOf(direction)]; }

 private:
  static constexpr std::size_t indexOf(Direction direction) { return direction == Direction::egress ? 1 : 0; }

  std::array<std::array<std::array<std::uint64_t, kOffloadOutcomes>, 2>, 2> counts_{};
  std::array<std::uint64_t, 2> others_{};
};

}  // namespace Pexa::Counter
