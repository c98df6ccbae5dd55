// A burst's candidates, made ready in passes over the burst, so that the memory of one packet arrives while
// the others are prepared. What the decision then needs stands ready in one place: it parses, builds keys and
// hashes no more.
//
//   pass 1   parse, key, hashes; ask for the index of the status table and the place in the local counters
//   pass 2   read these; ask for the status record and the counter
//
// Neighbours: SamplerSteps.h owns one a step; OffloadDecision.h decides. Threading: the agent's event thread.
#pragma once

#include <array>
#include <cstdint>
#include <new>

#include "OffloadCandidate.h"

namespace SampledFlowTracker {

class OffloadLookAhead {
 public:
  using Counters = Pexa::Counter::PexaSftHoCounterCollection;
  static constexpr std::size_t kMost = 32;  // packets; those of a longer burst are decided without

  // Forgets the last burst. What candidates point to stays for as long as the burst's packets are processed:
  // local counters are deleted by work between bursts only.
  void begin() { count_ = 0; }
  // Pass 1. The number under which the packet's candidate is kept; 0 when it has none: the decision itself
  // says why. The interface is the one that the decision will use. REQUIRES: fewer than kMost since begin().
  std::uint8_t prepared(const FlowTracking::HoFlowStatus& hoFlowStatus, const Counters& localHoCounters,
                        Pexa::PacketContext pktCtx, Bridging::AllowedTrafficDirection direction,
                        const Pavo::IntfId& intfId, bool ipv4, bool ipv6);
  // Pass 2, for all.
  void find(const FlowTracking::HoFlowStatus& hoFlowStatus, const Counters& localHoCounters);

  // Calls with the candidate of a number, of its own type.
  template <class Call>
  auto with(std::uint8_t number, const Call& call) const {
    const Place& place = burst_[number - 1U];
    return place.ipv4 ? call(*of<Pavo::Traits::IPv4>(place)) : call(*of<Pavo::Traits::IPv6>(place));
  }

 private:
  template <class Domain>
  using Candidate = OffloadCandidate<Domain>;
  template <class Domain>
  bool prepare(const FlowTracking::HoFlowStatus& hoFlowStatus, const Counters& localHoCounters,
               Pexa::PacketContext pktCtx, const Pexa::PacketHeader& ipHeader,
               Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId);
  template <class Domain>
  void findOne(const FlowTracking::HoFlowStatus& hoFlowStatus, const Counters& localHoCounters,
               std::size_t place);

  // A candidate of either family.
  struct Place {
    alignas(Candidate<Pavo::Traits::IPv6>) std::byte bytes[sizeof(Candidate<Pavo::Traits::IPv6>)];
    std::uint64_t counterHash;
    bool ipv4;
  };
  template <class Domain>
  static Candidate<Domain>* of(Place& place) {
    return std::launder(reinterpret_cast<Candidate<Domain>*>(place.bytes));
  }
  template <class Domain>
  static const Candidate<Domain>* of(const Place& place) {
    return std::launder(reinterpret_cast<const Candidate<Domain>*>(place.bytes));
  }
  static_assert(sizeof(Candidate<Pavo::Traits::IPv4>) <= sizeof(Candidate<Pavo::Traits::IPv6>));
  std::array<Place, kMost> burst_;
  std::size_t count_ = 0;
};

}  // namespace SampledFlowTracker
