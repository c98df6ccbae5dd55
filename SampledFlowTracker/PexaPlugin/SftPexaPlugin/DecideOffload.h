// The decision on a packet that can be looked up: its flow's status, the reasons counted, its counter.
//
//   candidate -> status -> in hardware? -> local counter
//
// Inline, for the two that decide: OffloadDecision.cpp, a packet at a time, and SamplerSteps.cpp, on those
// that were made ready for a burst. Together with what is asked once a burst it took a hit from 82 ns to 67.
// Threading: the agent's event thread.
#pragma once

#include <optional>

#include "OffloadCandidate.h"
#include "TraceHandles.h"

namespace SampledFlowTracker {

inline constexpr std::string_view kAction = "Action";
inline constexpr std::string_view kDrop = "Drop";

// Counts a reason under the source "Sft".
void countReason(Pexa::PexaNamedCounters& counters, std::string_view category, std::string_view reason);
inline void countReason(Pexa::PacketContext pktCtx, std::string_view category, std::string_view reason) {
  if (Pexa::PexaNamedCounters* counters = pktCtx.namedCounters()) countReason(*counters, category, reason);
}
// The reason that every packet of an offloaded family counts.
template <class Domain>
void countOffloading(Pexa::PacketContext pktCtx) {
  countReason(pktCtx, kAction, FlowTracking::IpFamily<Domain>::kOffloadingReason);
}

// Whether every packet is traced at present, which nobody changes within a burst; beside that, a packet may
// match a trace filter.
inline bool packetsTraced() {
  return textTraced() || (Skein::agentTraceHandle().volumes() & Skein::volumeBit(Skein::Volume::packet)) != 0;
}
// Writes an outcome to the traces that want it. REQUIRES: offloaded, noStatus or notInHardware.
void traceOutcome(Pexa::PacketContext pktCtx, Pexa::Counter::OffloadOutcome outcome);

template <class Domain>
[[gnu::cold]] void reportCorruption(const FlowTracking::HoFlowStatus& status,
                                    const Fenn::CorruptionDetectedException& damage) {
  status.map<Domain>().doCorruptionDetected(damage.what());
}

// The state of the flow's status record, nothing when it has no record. A record carries the key under which
// it was found, and that key has an interface: a record that was found is never equal to a default one.
template <class Domain>
[[gnu::always_inline]] inline std::optional<FlowTracking::HoFlowState> statusOf(
    const FlowTracking::HoFlowStatus* status, const OffloadCandidate<Domain>& candidate) {
  if (status == nullptr) return std::nullopt;
  FlowTracking::HoFlowStatusRecord<Domain> record;
  try {
    if (status->map<Domain>().find(candidate.place(), candidate.key(), candidate.hash(), record))
      return record.state;
  } catch (const Fenn::CorruptionDetectedException& damage) {
    reportCorruption<Domain>(*status, damage);
  }
  return std::nullopt;
}

// The local counter of the candidate's flow, made when there is none.
template <class Domain>
[[gnu::always_inline]] inline auto& counterOf(Pexa::Counter::PexaSftHoCounterCollection& counters,
                                              const OffloadCandidate<Domain>& candidate) {
  const auto& flow = candidate.key().ipFlowKey;
  if (candidate.counter() != nullptr && candidate.counter()->flowKey() == flow) [[likely]]
    return *candidate.counter();
  return counters.counterIs(flow, candidate.counterHash());
}

// True: the packet's flow is in hardware, and the packet has been counted. `traced` is packetsTraced().
// REQUIRES: counters, where a flow is in hardware.
template <class Domain>
[[gnu::always_inline]] inline bool decideOffload(const FlowTracking::HoFlowStatus* hoFlowStatus,
                                                 Pexa::Counter::PexaSftHoCounterCollection* localHoCounters,
                                                 const OffloadCandidate<Domain>& candidate,
                                                 Pexa::PacketContext pktCtx,
                                                 Bridging::AllowedTrafficDirection direction, bool traced) {
  using Pexa::Counter::OffloadOutcome;
  const std::optional<FlowTracking::HoFlowState> state = statusOf(hoFlowStatus, candidate);
  const OffloadOutcome outcome = !state ? OffloadOutcome::noStatus
                                 : *state == FlowTracking::HoFlowState::inHardware
                                     ? OffloadOutcome::offloaded
                                     : OffloadOutcome::notInHardware;
  const bool offloaded = outcome == OffloadOutcome::offloaded;
  if (offloaded) {
    localHoCounters->outcomes().inc<Domain>(direction, outcome);
    counterOf(*localHoCounters, candidate).hoCount(candidate.key().intfId, candidate.bytes());
  } else {
    // Who only asks, without counters, is not counted.
    if (localHoCounters) localHoCounters->outcomes().inc<Domain>(direction, outcome);
    countReason(pktCtx, kDrop,
                outcome == OffloadOutcome::noStatus ? "No flow status" : "Flow state not in hardware");
  }
  if (traced || !pktCtx.matchingTraceFilter().empty()) [[unlikely]]
    traceOutcome(pktCtx, outcome);
  return offloaded;
}

}  // namespace SampledFlowTracker
