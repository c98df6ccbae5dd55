#include "OffloadLookAhead.h"

namespace SampledFlowTracker {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowStatus;
using FlowTracking::IpFamily;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

template <class Domain>
bool OffloadLookAhead::prepare(const HoFlowStatus& hoFlowStatus, const Counters& localHoCounters,
                               Pexa::PacketContext pktCtx, const Pexa::PacketHeader& ipHeader,
                               AllowedTrafficDirection direction, const Pavo::IntfId& intfId) {
  const Pexa::PacketHeader* l4 = l4Header(pktCtx, ipHeader);
  const std::uint16_t vlan = pktCtx.vlanId().raw();
  if (l4 == nullptr || vlan > Bridging::VlanIdOrAnyOrNone::kMost) return false;
  Place& place = burst_[count_];
  const auto* candidate = new (place.bytes) Candidate<Domain>(pktCtx, ipHeader, *l4, vlan, direction, intfId);
  hoFlowStatus.map<Domain>().prefetchIndex(candidate->hash);
  const auto& counters = localHoCounters.counters<Domain>();
  place.counterHash = counters.hashOf(candidate->key.ipFlowKey);
  counters.prefetch(place.counterHash);
  return true;
}

std::uint8_t OffloadLookAhead::prepared(const HoFlowStatus& hoFlowStatus, const Counters& localHoCounters,
                                        Pexa::PacketContext pktCtx, AllowedTrafficDirection direction,
                                        const Pavo::IntfId& intfId, bool ipv4, bool ipv6) {
  const Pexa::PacketHeader* ipHeader = offloadedHeader(pktCtx, ipv4, ipv6);
  if (ipHeader == nullptr) return 0;
  const bool is4 = ipHeader->name() == IpFamily<IPv4>::kHeaderName;
  const bool able = is4 ? prepare<IPv4>(hoFlowStatus, localHoCounters, pktCtx, *ipHeader, direction, intfId)
                        : prepare<IPv6>(hoFlowStatus, localHoCounters, pktCtx, *ipHeader, direction, intfId);
  if (!able) return 0;
  burst_[count_].ipv4 = is4;
  return static_cast<std::uint8_t>(++count_);
}

template <class Domain>
void OffloadLookAhead::findOne(const HoFlowStatus& hoFlowStatus, const Counters& localHoCounters,
                               std::size_t place) {
  Candidate<Domain>* candidate = of<Domain>(burst_[place]);
  candidate->place = hoFlowStatus.map<Domain>().place(candidate->hash);
  const auto* entry = localHoCounters.counters<Domain>().peek(burst_[place].counterHash);
  if (entry == nullptr) return;
  candidate->counter = entry->value.get();
  Kiv::prefetch(candidate->counter, sizeof(*candidate->counter));
}

void OffloadLookAhead::find(const HoFlowStatus& hoFlowStatus, const Counters& localHoCounters) {
  for (std::size_t place = 0; place < count_; ++place) {
    if (burst_[place].ipv4) {
      findOne<IPv4>(hoFlowStatus, localHoCounters, place);
    } else {
      findOne<IPv6>(hoFlowStatus, localHoCounters, place);
    }
  }
}

}  // namespace SampledFlowTracker
