#include "OffloadDecision.h"

#include <cstdio>
#include <cstdlib>
#include <optional>

#include "TraceHandles.h"

namespace SampledFlowTracker {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowKey;
using FlowTracking::HoFlowState;
using FlowTracking::HoFlowStatus;
using FlowTracking::HoFlowStatusRecord;
using FlowTracking::IpFamily;
using Pexa::HeaderName;
using Pexa::PacketContext;
using Pexa::PacketHeader;
using Pexa::Counter::OffloadOutcome;
using Pexa::Counter::PexaSftHoCounterCollection;

namespace {

constexpr std::string_view kAction = "Action";
constexpr std::string_view kDrop = "Drop";

void countReason(PacketContext pktCtx, std::string_view category, std::string_view reason) {
  if (Pexa::PexaNamedCounters* counters = pktCtx.namedCounters()) {
    counters->count(category, _defaultPexaTraceHandle(), reason);
  }
}

// Who only asks, without counters, is not counted.
template <class Domain>
void countOutcome(PexaSftHoCounterCollection* localHoCounters, AllowedTrafficDirection direction,
                  OffloadOutcome outcome) {
  if (localHoCounters) localHoCounters->outcomes().inc<Domain>(direction, outcome);
}

[[gnu::cold]] void writeOutcome(PacketContext pktCtx, const Skein::CallSite& site, std::string_view outcome) {
  const Kiv::String text = "Pkt" + std::to_string(pktCtx.packetNumber()) + ": " + Kiv::String(outcome);
  traceBoth(site, text, pktCtx.matchingTraceFilter());
}

void traceOutcome(PacketContext pktCtx, const Skein::CallSite& site, std::string_view outcome) {
  if (ringTraced(site, pktCtx.matchingTraceFilter()) || textTraced()) writeOutcome(pktCtx, site, outcome);
}

void traceDecline(std::string_view function, int line, std::string_view what, std::string_view of = {}) {
  if (textTraced()) textTrace(function, line, Kiv::String(what).append(of));
}

[[noreturn, gnu::cold]] void stopWithoutInterface() {
  std::fputs("SampledFlowTracker: maybeOffloadIp: Assertion `intfId != Pavo::IntfId()' failed.\n", stderr);
  std::abort();
}

template <class Domain>
[[gnu::cold]] void reportCorruption(const HoFlowStatus& status,
                                    const Fenn::CorruptionDetectedException& damage) {
  status.map<Domain>().doCorruptionDetected(damage.what());
}

// The state of the flow's status record, nothing when it has no record. A record carries the key under which
// it was found, and that key has an interface: a record that was found is never equal to a default one.
template <class Domain>
[[gnu::always_inline]] inline std::optional<HoFlowState> statusOf(const HoFlowStatus* status,
                                                                  const OffloadCandidate<Domain>& candidate) {
  if (status == nullptr) return std::nullopt;
  HoFlowStatusRecord<Domain> record;
  try {
    if (status->map<Domain>().find(candidate.place, candidate.key, candidate.hash, record))
      return record.state;
  } catch (const Fenn::CorruptionDetectedException& damage) {
    reportCorruption<Domain>(*status, damage);
  }
  return std::nullopt;
}

// The local counter of the candidate's flow, made when there is none.
template <class Domain>
auto& counterOf(PexaSftHoCounterCollection& counters, const OffloadCandidate<Domain>& candidate) {
  const auto& flow = candidate.key.ipFlowKey;
  if (candidate.counter != nullptr && candidate.counter->flowKey() == flow) [[likely]]
    return *candidate.counter;
  return counters.counterIs(flow, OffloadCandidate<Domain>::CounterMap::hashOf(flow));
}

}  // namespace

template <class Domain>
bool decideOffload(const HoFlowStatus* hoFlowStatus, PexaSftHoCounterCollection* localHoCounters,
                   const OffloadCandidate<Domain>& candidate, PacketContext pktCtx,
                   AllowedTrafficDirection direction) {
  static constinit Skein::CallSite noStatus("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                            Skein::Volume::packet);
  static constinit Skein::CallSite notInHardware("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                                 Skein::Volume::packet);
  static constinit Skein::CallSite offloaded("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                             Skein::Volume::packet);

  const std::optional<HoFlowState> state = statusOf(hoFlowStatus, candidate);
  if (!state) {
    countOutcome<Domain>(localHoCounters, direction, OffloadOutcome::noStatus);
    countReason(pktCtx, kDrop, "No flow status");
    traceOutcome(pktCtx, noStatus, "No flow status");
    return false;
  }
  if (state != HoFlowState::inHardware) {
    countOutcome<Domain>(localHoCounters, direction, OffloadOutcome::notInHardware);
    countReason(pktCtx, kDrop, "Flow state not in hardware");
    traceOutcome(pktCtx, notInHardware, "Flow state not in hardware");
    return false;
  }
  localHoCounters->outcomes().inc<Domain>(direction, OffloadOutcome::offloaded);
  counterOf(*localHoCounters, candidate).hoCount(candidate.key.intfId, candidate.bytes);
  traceOutcome(pktCtx, offloaded, "Hw sampling packet");
  return true;
}

template <class Domain>
void countOffloading(PacketContext pktCtx) {
  countReason(pktCtx, kAction, IpFamily<Domain>::kOffloadingReason);
}

template <class Domain>
bool maybeOffloadIp(const Kiv::Ptr<const HoFlowStatus>& hoFlowStatus,
                    const Kiv::Ptr<PexaSftHoCounterCollection>& localHoCounters, const PacketHeader& ipHeader,
                    PacketContext pktCtx, AllowedTrafficDirection direction, const Pavo::IntfId& intfId) {
  const PacketHeader* l4 = l4Header(pktCtx, ipHeader);
  if (l4 == nullptr) {
    countOutcome<Domain>(localHoCounters.get(), direction, OffloadOutcome::notTcpOrUdp);
    traceDecline("maybeOffloadIp", __LINE__, "not tcp/udp ",
                 Pexa::stringValue(headerBehind(pktCtx, ipHeader).name()));
    return false;
  }
  const std::uint16_t vlan = pktCtx.vlanId().value();
  const Pavo::IntfId& intf = flowIntf(pktCtx, direction, intfId);
  if (intf.empty()) stopWithoutInterface();
  return decideOffload<Domain>(hoFlowStatus.get(), localHoCounters.get(),
                               {pktCtx, ipHeader, *l4, vlan, direction, intf}, pktCtx, direction);
}

template void countOffloading<Pavo::Traits::IPv4>(PacketContext);
template void countOffloading<Pavo::Traits::IPv6>(PacketContext);
template bool decideOffload<Pavo::Traits::IPv4>(const HoFlowStatus*, PexaSftHoCounterCollection*,
                                                const OffloadCandidate<Pavo::Traits::IPv4>&, PacketContext,
                                                AllowedTrafficDirection);
template bool decideOffload<Pavo::Traits::IPv6>(const HoFlowStatus*, PexaSftHoCounterCollection*,
                                                const OffloadCandidate<Pavo::Traits::IPv6>&, PacketContext,
                                                AllowedTrafficDirection);
template bool maybeOffloadIp<Pavo::Traits::IPv4>(const Kiv::Ptr<const HoFlowStatus>&,
                                                 const Kiv::Ptr<PexaSftHoCounterCollection>&,
                                                 const PacketHeader&, PacketContext, AllowedTrafficDirection,
                                                 const Pavo::IntfId&);
template bool maybeOffloadIp<Pavo::Traits::IPv6>(const Kiv::Ptr<const HoFlowStatus>&,
                                                 const Kiv::Ptr<PexaSftHoCounterCollection>&,
                                                 const PacketHeader&, PacketContext, AllowedTrafficDirection,
                                                 const Pavo::IntfId&);

bool maybeOffloadCommon(const Kiv::Ptr<const HoFlowStatus>& hoFlowStatus,
                        const Kiv::Ptr<PexaSftHoCounterCollection>& localHoCounters, PacketContext pktCtx,
                        AllowedTrafficDirection direction, const Pavo::IntfId& intfId, bool hwOffloadIpv4,
                        bool hwOffloadIpv6) {
  const PacketHeader* ipHeader = offloadedHeader(pktCtx, hwOffloadIpv4, hwOffloadIpv6);
  if (ipHeader == nullptr) {
    if (localHoCounters) localHoCounters->outcomes().otherInc(direction);
    traceDecline("maybeOffloadCommon", __LINE__, "maybeOffloadCommon Not IPv4 or IPv6");
    return false;
  }
  const auto offload = [&]<class Domain>(Domain) {
    countOffloading<Domain>(pktCtx);
    return maybeOffloadIp<Domain>(hoFlowStatus, localHoCounters, *ipHeader, pktCtx, direction, intfId);
  };
  switch (ipHeader->name()) {
    case HeaderName::Ipv4:
      return offload(Pavo::Traits::IPv4());
    case HeaderName::Ipv6:
      return offload(Pavo::Traits::IPv6());
    default:  // a guard: such a header is not offloaded
      traceDecline("maybeOffloadCommon", __LINE__, "maybeOffloadCommon Unknown AF");
      return false;
  }
}

}  // namespace SampledFlowTracker
