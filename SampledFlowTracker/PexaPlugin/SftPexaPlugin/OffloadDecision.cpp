#include "OffloadDecision.h"

#include <cstdio>
#include <cstdlib>

#include "DecideOffload.h"

namespace SampledFlowTracker {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowStatus;
using Pexa::HeaderName;
using Pexa::PacketContext;
using Pexa::PacketHeader;
using Pexa::Counter::OffloadOutcome;
using Pexa::Counter::PexaSftHoCounterCollection;

namespace {

[[gnu::cold]] void writeOutcome(PacketContext pktCtx, const Skein::CallSite& site, std::string_view outcome) {
  const Kiv::String text = "Pkt" + std::to_string(pktCtx.packetNumber()) + ": " + Kiv::String(outcome);
  traceBoth(site, text, pktCtx.matchingTraceFilter());
}

void traceDecline(std::string_view function, int line, std::string_view what, std::string_view of = {}) {
  if (textTraced()) textTrace(function, line, Kiv::String(what).append(of));
}

[[noreturn, gnu::cold]] void stopWithoutInterface() {
  std::fputs("SampledFlowTracker: maybeOffloadIp: Assertion `intfId != Pavo::IntfId()' failed.\n", stderr);
  std::abort();
}

}  // namespace

void countReason(Pexa::PexaNamedCounters& counters, std::string_view category, std::string_view reason) {
  counters.count(category, _defaultPexaTraceHandle(), reason);
}

void traceOutcome(PacketContext pktCtx, OffloadOutcome outcome) {
  static constinit Skein::CallSite noStatus("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                            Skein::Volume::packet);
  static constinit Skein::CallSite notInHardware("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                                 Skein::Volume::packet);
  static constinit Skein::CallSite offloaded("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                             Skein::Volume::packet);
  const auto trace = [&](const Skein::CallSite& site, std::string_view text) {
    if (ringTraced(site, pktCtx.matchingTraceFilter()) || textTraced()) writeOutcome(pktCtx, site, text);
  };
  if (outcome == OffloadOutcome::offloaded) return trace(offloaded, "Hw sampling packet");
  if (outcome == OffloadOutcome::noStatus) return trace(noStatus, "No flow status");
  trace(notInHardware, "Flow state not in hardware");
}

template <class Domain>
bool maybeOffloadIp(const Kiv::Ptr<const HoFlowStatus>& hoFlowStatus,
                    const Kiv::Ptr<PexaSftHoCounterCollection>& localHoCounters, const PacketHeader& ipHeader,
                    PacketContext pktCtx, AllowedTrafficDirection direction, const Pavo::IntfId& intfId) {
  const PacketHeader* l4 = l4Header(pktCtx, ipHeader);
  if (l4 == nullptr) {
    if (localHoCounters) localHoCounters->outcomes().inc<Domain>(direction, OffloadOutcome::notTcpOrUdp);
    traceDecline("maybeOffloadIp", __LINE__, "not tcp/udp ",
                 Pexa::stringValue(headerBehind(pktCtx, ipHeader).name()));
    return false;
  }
  const std::uint16_t vlan = pktCtx.vlanId().value();
  const Pavo::IntfId& intf = flowIntf(pktCtx, direction, intfId);
  if (intf.empty()) stopWithoutInterface();
  OffloadCandidate<Domain> candidate(pktCtx, ipHeader, *l4, vlan, {direction, intf});
  if (hoFlowStatus && localHoCounters) {
    const auto& counters = localHoCounters->template counters<Domain>();
    candidate.ask(hoFlowStatus->template map<Domain>(), counters);
    candidate.find(hoFlowStatus->template map<Domain>(), counters);
  }
  return decideOffload(hoFlowStatus.get(), localHoCounters.get(), candidate, pktCtx, direction,
                       packetsTraced());
}

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
  const auto offload = [&](auto family) {
    using Domain = decltype(family);
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
