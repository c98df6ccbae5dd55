// A burst's candidates, made ready in passes over the burst, so that the memory of one packet arrives while
// the others are prepared. What the decision then needs stands ready in one place: it parses, builds keys and
// hashes no more.
//
//   pass 1   parse, key, hashes; ask for the index of the status table and the place in the local counters
//   pass 2   read these; ask for the status record and the counter
//
// Neighbours: SamplerSteps.h owns one a step; DecideOffload.h decides.
// Threading: the agent's event thread.
#pragma once

#include <array>
#include <cstdint>
#include <new>

#include "OffloadCandidate.h"

namespace SampledFlowTracker {

class OffloadLookAhead {
  template <class Domain>
  using Candidate = OffloadCandidate<Domain>;

  // A candidate of either family.
  struct Place {
    alignas(Candidate<Pavo::Traits::IPv6>) std::byte bytes[sizeof(Candidate<Pavo::Traits::IPv6>)];
    bool ipv4;
  };
  static_assert(sizeof(Candidate<Pavo::Traits::IPv4>) <= sizeof(Candidate<Pavo::Traits::IPv6>));

  template <class Domain>
  static Candidate<Domain>& of(Place& place) {
    return *std::launder(reinterpret_cast<Candidate<Domain>*>(place.bytes));
  }
  template <class Call>
  [[gnu::always_inline]] static auto with(Place& place, const Call& call) {
    return place.ipv4 ? call(of<Pavo::Traits::IPv4>(place)) : call(of<Pavo::Traits::IPv6>(place));
  }

 public:
  using Counters = Pexa::Counter::PexaSftHoCounterCollection;
  static constexpr std::size_t kMost = 32;  // packets; those of a longer burst are decided without

  // Forgets the last burst. What candidates point to stays for as long as the burst's packets are processed:
  // local counters are deleted by work between bursts only. Whether packets are traced is that of the burst.
  void begin(bool traced) {
    count_ = 0;
    traced_ = traced;
  }
  bool traced() const { return traced_; }

  // Pass 1. The number under which the packet's candidate is kept; 0 when it has none: the decision itself
  // says why. The place is the one that the decision will use. REQUIRES: fewer than kMost since begin().
  [[gnu::always_inline]] std::uint8_t prepared(const FlowTracking::HoFlowStatus& hoFlowStatus,
                                               const Counters& localHoCounters, Pexa::PacketContext pktCtx,
                                               const FlowTracking::HoFlowPlace& place, bool ipv4, bool ipv6) {
    const Pexa::PacketHeader* ipHeader = offloadedHeader(pktCtx, ipv4, ipv6);
    if (ipHeader == nullptr) return 0;
    const Pexa::PacketHeader* l4 = l4Header(pktCtx, *ipHeader);
    const std::uint16_t vlan = pktCtx.vlanId().raw();
    if (l4 == nullptr || vlan > Bridging::VlanIdOrAnyOrNone::kMost) return 0;
    const auto prepare = [&](auto family) __attribute__((always_inline)) {
      using Domain = decltype(family);
      auto* candidate = new (burst_[count_].bytes) Candidate<Domain>(pktCtx, *ipHeader, *l4, vlan, place);
      candidate->ask(hoFlowStatus.map<Domain>(), localHoCounters.counters<Domain>());
    };
    const bool is4 = ipHeader->name() == FlowTracking::IpFamily<Pavo::Traits::IPv4>::kHeaderName;
    burst_[count_].ipv4 = is4;
    if (is4) {
      prepare(Pavo::Traits::IPv4());
    } else {
      prepare(Pavo::Traits::IPv6());
    }
    return static_cast<std::uint8_t>(++count_);
  }
  // Pass 2, for all.
  [[gnu::always_inline]] void find(const FlowTracking::HoFlowStatus& hoFlowStatus,
                                   const Counters& localHoCounters) {
    for (std::size_t i = 0; i < count_; ++i) {
      with(
          burst_[i], [&]<class Domain>(Candidate<Domain> & candidate) __attribute__((always_inline)) {
            candidate.find(hoFlowStatus.map<Domain>(), localHoCounters.counters<Domain>());
          });
    }
  }

  // Calls with the candidate of a number, of its own type.
  template <class Call>
  [[gnu::always_inline]] auto with(std::uint8_t number, const Call& call) {
    return with(burst_[number - 1U], call);
  }

 private:
  std::array<Place, kMost> burst_;
  std::size_t count_ = 0;
  bool traced_ = false;
};

}  // namespace SampledFlowTracker
