// The tracker itself, without sockets and timers: datagrams and ticks in, wanted offloads and records out.
//
//   datagram() -> decoder -> flow of each sample -> the family's flow table -> wanted offloads, records
//
// Every datagram and every sample ends in exactly one counter.
// Threading: one thread. Time comes from Kiv::System.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "Agents.h"
#include "FlowPattern.h"
#include "FlowTable.h"

namespace Tracker {

class FlowTracker {
 public:
  // What is referred to must outlive this. Takes over what is wanted already.
  FlowTracker(const FlowLimits& limits, const Interfaces& interfaces, OffloadTables& tables,
              RecordSink& sink);
  FlowTracker(const FlowTracker&) = delete;
  FlowTracker& operator=(const FlowTracker&) = delete;

  // Takes the bytes of one datagram, whatever they are.
  void datagram(std::span<const std::uint8_t> bytes);
  // To be called behind a burst of datagrams: those who watch hear of what it changed.
  void flush() { tables_.flush(); }
  // To be called once a second, and soon after something was published; see FlowTable.
  void tick();
  // To be called at the end: tells what was counted. What is wanted stays wanted.
  void finish();

  // Counters by kind, as docs/flow-tracker.md lists them.
  Kiv::Value::Object statistics() const;
  // Calls with an object for each learned flow.
  void flows(const std::function<void(Kiv::Value::Object)>& each) const;
  // Flows that are meant and were sampled, but not often enough to be learned: calls with an object for each,
  // of each family those sampled last first and at most so many, and gives how many there are.
  std::size_t candidates(const FlowTracking::FlowPattern& pattern, std::size_t most,
                         const std::function<void(Kiv::Value::Object)>& each) const;

  template <class Domain>
  const FlowTable<Domain>& table() const {
    if constexpr (FlowTracking::IpFamily<Domain>::kIndex == 0) {
      return flows4_;
    } else {
      return flows6_;
    }
  }
  std::uint64_t malformed(Malformation kind) const { return malformed_[static_cast<std::size_t>(kind)]; }
  std::uint64_t noFlow(NoFlow reason) const { return noFlow_[static_cast<std::size_t>(reason)]; }
  const Agents& agents() const { return agents_; }

 private:
  void sample(const FlowSample& sample, const AgentAddress& agent, double now);

  const FlowLimits limits_;
  Interfaces interfaces_;
  OffloadTables& tables_;
  SflowDecoder decoder_;
  Agents agents_;
  FlowTable<Pavo::Traits::IPv4> flows4_;
  FlowTable<Pavo::Traits::IPv6> flows6_;
  std::uint64_t datagrams_ = 0;
  std::uint64_t trailing_ = 0;  // datagrams with bytes behind their last sample
  std::array<std::uint64_t, kMalformations> malformed_{};
  std::uint64_t flowSamples_ = 0;
  std::uint64_t counterSamples_ = 0;
  std::uint64_t unknownSamples_ = 0;
  std::array<std::uint64_t, kNoFlows> noFlow_{};
};

}  // namespace Tracker
