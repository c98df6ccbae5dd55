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
void countOutcome(const Kiv::Ptr<PexaSftHoCounterCollection>& localHoCounters,
                  AllowedTrafficDirection direction, OffloadOutcome outcome) {
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

// The TCP or UDP header right behind the IP header, else null: no extension header is looked through.
const PacketHeader* l4Header(const PacketHeader& next) {
  return next.name() == HeaderName::Udp || next.name() == HeaderName::Tcp ? &next : nullptr;
}

// Every IP packet has an entry behind its IP header; the parser sees to that.
const PacketHeader& headerBehind(PacketContext pktCtx, const PacketHeader& ipHeader) {
  return *pktCtx.parsedPacket().header(ipHeader.position() + std::size_t{1});
}

// REQUIRES: the L4 header is TCP's or UDP's.
template <class Domain>
[[gnu::always_inline]] inline HoFlowKey<Domain> offloadKey(PacketContext pktCtx, const PacketHeader& ipHeader,
                                                           const PacketHeader& l4, std::uint16_t vlan,
                                                           AllowedTrafficDirection direction,
                                                           const Pavo::IntfId& intfId) {
  using Header = typename IpFamily<Domain>::Header;
  const Header ip(pktCtx.pkt().offsetFront(ipHeader.offset(), Header::kBytes));
  const Pavo::L4Ports ports(pktCtx.pkt().offsetFront(l4.offset(), Pavo::L4Ports::kBytes));
  return {vlan, ip, ports, direction, intfId};
}

const Pavo::IntfId& flowIntf(PacketContext pktCtx, AllowedTrafficDirection direction,
                             const Pavo::IntfId& intfId) {
  static constexpr Pavo::IntfId kNone;
  if (direction == AllowedTrafficDirection::egress) return intfId;
  const auto& port = pktCtx.inputPort();
  return port ? port->intfId() : kNone;
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
std::optional<HoFlowState> statusOf(const HoFlowStatus* status, const HoFlowKey<Domain>& key,
                                    std::uint64_t hash) {
  if (status == nullptr) return std::nullopt;
  HoFlowStatusRecord<Domain> record;
  try {
    if (status->map<Domain>().find(key, hash, record)) return record.state;
  } catch (const Fenn::CorruptionDetectedException& damage) {
    reportCorruption<Domain>(*status, damage);
  }
  return std::nullopt;
}

// What was left when the packet was looked at ahead; it is good for one decision.
Pexa::PacketState::LookAhead takeLookAhead(PacketContext pktCtx, AllowedTrafficDirection direction) {
  auto& ahead = pktCtx.lookAhead(direction);
  const Pexa::PacketState::LookAhead taken = ahead;
  ahead.valid = false;
  return taken;
}

}  // namespace

template <class Domain>
bool maybeOffloadIp(const Kiv::Ptr<const HoFlowStatus>& hoFlowStatus,
                    const Kiv::Ptr<PexaSftHoCounterCollection>& localHoCounters, const PacketHeader& ipHeader,
                    PacketContext pktCtx, AllowedTrafficDirection direction, const Pavo::IntfId& intfId) {
  static constinit Skein::CallSite noStatus("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                            Skein::Volume::packet);
  static constinit Skein::CallSite notInHardware("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                                 Skein::Volume::packet);
  static constinit Skein::CallSite offloaded("Sft", kTraceFile, __LINE__, "maybeOffloadIp",
                                             Skein::Volume::packet);

  const PacketHeader& next = headerBehind(pktCtx, ipHeader);
  const PacketHeader* l4 = l4Header(next);
  if (l4 == nullptr) {
    countOutcome<Domain>(localHoCounters, direction, OffloadOutcome::notTcpOrUdp);
    traceDecline("maybeOffloadIp", __LINE__, "not tcp/udp ", Pexa::stringValue(next.name()));
    return false;
  }
  const std::uint16_t vlan = pktCtx.vlanId().value();
  const Pavo::IntfId& intf = flowIntf(pktCtx, direction, intfId);
  if (intf.empty()) stopWithoutInterface();
  const HoFlowKey<Domain> key = offloadKey<Domain>(pktCtx, ipHeader, *l4, vlan, direction, intf);

  using StatusMap = Quell::Map<HoFlowKey<Domain>, HoFlowStatusRecord<Domain>>;
  using CounterMap = Pexa::Counter::SftHoCounterMap<Domain>;
  const auto ahead = takeLookAhead(pktCtx, direction);
  const std::optional<HoFlowState> state =
      statusOf(hoFlowStatus.get(), key, ahead.valid ? ahead.hash : StatusMap::hash(key));
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
  using Header = typename IpFamily<Domain>::Header;
  const Header ip(pktCtx.pkt().offsetFront(ipHeader.offset(), Header::kBytes));
  const std::uint64_t counterHash = ahead.valid ? ahead.counterHash : CounterMap::hashOf(key.ipFlowKey);
  localHoCounters->outcomes().inc<Domain>(direction, OffloadOutcome::offloaded);
  localHoCounters->counterIs(key.ipFlowKey, counterHash).hoCount(intf, ip.packetBytes());
  traceOutcome(pktCtx, offloaded, "Hw sampling packet");
  return true;
}

template bool maybeOffloadIp<Pavo::Traits::IPv4>(const Kiv::Ptr<const HoFlowStatus>&,
                                                 const Kiv::Ptr<PexaSftHoCounterCollection>&,
                                                 const PacketHeader&, PacketContext, AllowedTrafficDirection,
                                                 const Pavo::IntfId&);
template bool maybeOffloadIp<Pavo::Traits::IPv6>(const Kiv::Ptr<const HoFlowStatus>&,
                                                 const Kiv::Ptr<PexaSftHoCounterCollection>&,
                                                 const PacketHeader&, PacketContext, AllowedTrafficDirection,
                                                 const Pavo::IntfId&);

namespace {

bool isOf(const PacketHeader& ipHeader, bool ipv4, bool ipv6) {
  return (ipv4 && ipHeader.name() == IpFamily<Pavo::Traits::IPv4>::kHeaderName) ||
         (ipv6 && ipHeader.name() == IpFamily<Pavo::Traits::IPv6>::kHeaderName);
}

// The packet's IP header when its family is offloaded, else null.
const PacketHeader* offloadedHeader(PacketContext pktCtx, bool ipv4, bool ipv6) {
  pktCtx.parsedPacket().maybeDoFullParse();
  const PacketHeader* ipHeader = pktCtx.parsedPacket().firstHeaderIpAnyVersion();
  return ipHeader != nullptr && isOf(*ipHeader, ipv4, ipv6) ? ipHeader : nullptr;
}

}  // namespace

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
    countReason(pktCtx, kAction, IpFamily<Domain>::kOffloadingReason);
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

void OffloadLookAhead::first(PacketContext pktCtx, AllowedTrafficDirection direction,
                             const Pavo::IntfId& intfId) const {
  if (hoFlowStatus_ == nullptr) return;
  const PacketHeader* ipHeader = offloadedHeader(pktCtx, hwOffloadIpv4_, hwOffloadIpv6_);
  if (ipHeader == nullptr) return;
  if (ipHeader->name() == IpFamily<Pavo::Traits::IPv4>::kHeaderName) {
    firstIp<Pavo::Traits::IPv4>(pktCtx, *ipHeader, direction, intfId);
  } else {
    firstIp<Pavo::Traits::IPv6>(pktCtx, *ipHeader, direction, intfId);
  }
}

template <class Domain>
void OffloadLookAhead::firstIp(PacketContext pktCtx, const PacketHeader& ipHeader,
                               AllowedTrafficDirection direction, const Pavo::IntfId& intfId) const {
  const PacketHeader* l4 = l4Header(headerBehind(pktCtx, ipHeader));
  const std::uint16_t vlan = pktCtx.vlanId().raw();
  if (l4 == nullptr || vlan > Bridging::VlanIdOrAnyOrNone::kMost) return;  // the decision itself says why not
  const HoFlowKey<Domain> key =
      offloadKey<Domain>(pktCtx, ipHeader, *l4, vlan, direction, flowIntf(pktCtx, direction, intfId));
  const auto& map = hoFlowStatus_->map<Domain>();
  auto& ahead = pktCtx.lookAhead(direction);
  const auto& counters = localHoCounters_.counters<Domain>();
  ahead.hash = map.hash(key);
  ahead.valid = true;
  map.prefetchIndex(ahead.hash);
  ahead.counterHash = counters.hashOf(key.ipFlowKey);
  counters.prefetch(ahead.counterHash);
}

void OffloadLookAhead::second(PacketContext pktCtx, AllowedTrafficDirection direction) const {
  const auto& ahead = pktCtx.lookAhead(direction);
  if (!ahead.valid) return;
  const PacketHeader& ipHeader = *pktCtx.parsedPacket().firstHeaderIpAnyVersion();
  if (ipHeader.name() == IpFamily<Pavo::Traits::IPv4>::kHeaderName) {
    secondIp<Pavo::Traits::IPv4>(ahead);
  } else {
    secondIp<Pavo::Traits::IPv6>(ahead);
  }
}

template <class Domain>
void OffloadLookAhead::secondIp(const Pexa::PacketState::LookAhead& ahead) const {
  hoFlowStatus_->map<Domain>().prefetchRecord(ahead.hash);
  if (const auto* entry = localHoCounters_.counters<Domain>().peek(ahead.counterHash)) {
    using Counter = Pexa::Counter::SftHoCounter<Domain>;
    const auto* counter = reinterpret_cast<const char*>(entry->value.get());
    for (std::size_t at = 0; at < sizeof(Counter); at += 64) __builtin_prefetch(counter + at, 1);
    __builtin_prefetch(counter + sizeof(Counter) - 1, 1);
  }
}

}  // namespace SampledFlowTracker
