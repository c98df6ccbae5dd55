// A packet of an offloaded family that can be looked up: what the decision needs to know of it.
//
//   candidate -> [place, counter: found ahead, in a burst] -> decided
//
// Neighbours: OffloadDecision.h makes one for a packet and decides at once; OffloadLookAhead.h makes them for
// a burst. Threading: the agent's event thread.
#pragma once

#include "HoFlowStatus.h"
#include "PexaPacket.h"
#include "PexaSftHoCounterCollection.h"

namespace SampledFlowTracker {

template <class Domain>
struct OffloadCandidate {
  using StatusMap = Quell::Map<FlowTracking::HoFlowKey<Domain>, FlowTracking::HoFlowStatusRecord<Domain>>;
  using Counter = Pexa::Counter::SftHoCounter<Domain>;
  using CounterMap = Pexa::Counter::SftHoCounterMap<Domain>;
  using Header = typename FlowTracking::IpFamily<Domain>::Header;

  // REQUIRES: the L4 header is TCP's or UDP's.
  OffloadCandidate(Pexa::PacketContext pktCtx, const Pexa::PacketHeader& ipHeader,
                   const Pexa::PacketHeader& l4, std::uint16_t vlan,
                   Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId)
      : OffloadCandidate(Header(pktCtx.pkt().offsetFront(ipHeader.offset(), Header::kBytes)),
                         Pavo::L4Ports(pktCtx.pkt().offsetFront(l4.offset(), Pavo::L4Ports::kBytes)), vlan,
                         direction, intfId) {}

  FlowTracking::HoFlowKey<Domain> key;
  std::uint32_t bytes;  // that the IP header tells
  std::uint64_t hash;   // of the key
  // Found ahead; without them the decision looks itself.
  typename StatusMap::Place place;
  Counter* counter = nullptr;

 private:
  OffloadCandidate(const Header& ip, const Pavo::L4Ports& ports, std::uint16_t vlan,
                   Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId)
      : key(vlan, ip, ports, direction, intfId), bytes(ip.packetBytes()), hash(StatusMap::hash(key)) {}
};

// Every IP packet has an entry behind its IP header; the parser sees to that.
inline const Pexa::PacketHeader& headerBehind(Pexa::PacketContext pktCtx,
                                              const Pexa::PacketHeader& ipHeader) {
  return *pktCtx.parsedPacket().header(ipHeader.position() + std::size_t{1});
}

// The TCP or UDP header right behind the IP header, else null: no extension header is looked through.
inline const Pexa::PacketHeader* l4Header(Pexa::PacketContext pktCtx, const Pexa::PacketHeader& ipHeader) {
  const Pexa::PacketHeader& next = headerBehind(pktCtx, ipHeader);
  return next.name() == Pexa::HeaderName::Udp || next.name() == Pexa::HeaderName::Tcp ? &next : nullptr;
}

// The packet's first IP header when its family is offloaded, else null. Parses.
inline const Pexa::PacketHeader* offloadedHeader(Pexa::PacketContext pktCtx, bool ipv4, bool ipv6) {
  pktCtx.parsedPacket().maybeDoFullParse();
  const Pexa::PacketHeader* ipHeader = pktCtx.parsedPacket().firstHeaderIpAnyVersion();
  if (ipHeader == nullptr) return nullptr;
  const bool is4 = ipHeader->name() == FlowTracking::IpFamily<Pavo::Traits::IPv4>::kHeaderName;
  return (is4 ? ipv4 : ipv6) ? ipHeader : nullptr;
}

// The interface of the flow: at ingress that of the packet's input port, whatever is given.
inline const Pavo::IntfId& flowIntf(Pexa::PacketContext pktCtx, Bridging::AllowedTrafficDirection direction,
                                    const Pavo::IntfId& intfId) {
  static constexpr Pavo::IntfId kNone;
  if (direction == Bridging::AllowedTrafficDirection::egress) return intfId;
  const auto& port = pktCtx.inputPort();
  return port ? port->intfId() : kNone;
}

}  // namespace SampledFlowTracker
