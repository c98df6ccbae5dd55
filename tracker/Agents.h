// The sFlow agents that were heard: how many of their datagrams came, and how many were lost on the way.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "Kiv.h"
#include "SflowDecoder.h"

namespace Tracker {

class Agents {
 public:
  static constexpr std::size_t kMost = 256;           // that are told apart; others are counted in sum only
  static constexpr std::uint32_t kLargestGap = 1000;  // a larger one means that the agent started again

  void heard(const Datagram& datagram, double now);
  // Datagrams that never came, by the gaps in the agents' sequence numbers.
  std::uint64_t missed() const { return missed_; }
  // [{"agent","subAgent","datagrams","missed","lastHeard"}]
  Kiv::Value value() const;

 private:
  struct Heard {
    std::uint64_t datagrams = 0;
    std::uint64_t missed = 0;
    std::uint32_t sequence = 0;  // the highest since the agent's start
    double last = 0;
  };
  std::map<std::pair<AgentAddress, std::uint32_t>, Heard> heard_;
  std::uint64_t missed_ = 0;
};

}  // namespace Tracker
