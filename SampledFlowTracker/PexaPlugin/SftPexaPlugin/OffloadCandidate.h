// A packet of an offloaded family that can be looked up: what the decision needs to know of it.
//
//   candidate -> ask() -> find() -> decided
//
// The two steps ask for memory ahead of its use: between them a burst's other packets take their turn, and a
// packet that comes alone has its flow's status and its counter on their way at the same time.
//
// Neighbours: OffloadDecision.h makes one for a packet and decides at once; OffloadLookAhead.h makes them for
// a burst; DecideOffload.h decides. Threading: the agent's event thread.
#pragma once

#include "HoFlowStatus.h"
#include "PexaPacket.h"
#include "PexaSftHoCounterCollection.h"

namespace SampledFlowTracker {

template <class Domain>
class OffloadCandidate {
 public:
  using StatusMap = Quell::Map<FlowTracking::HoFlowKey<Domain>, FlowTracking::HoFlowStatusRecord<Domain>>;
  using Counter = Pexa::Counter::SftHoCounter<Domain>;
  using CounterMap = Pexa::Counter::SftHoCounterMap<Domain>;
  using Header = typename FlowTracking::IpFamily<Domain>::Header;

  // REQUIRES: the L4 header is TCP's or UDP's.
  [[gnu::always_inline]] OffloadCandidate(Pexa::PacketContext pktCtx, const Pexa::PacketHeader& ipHeader,
                                          const Pexa::PacketHeader& l4, std::uint16_t vlan,
                                          const FlowTracking::HoFlowPlace& place)
      : OffloadCandidate(Header(pktCtx.pkt().offsetFront(ipHeader.offset(), Header::kBytes)),
                         Pavo::L4Ports(pktCtx.pkt().offsetFront(l4.offset(), Pavo::L4Ports::kBytes)), vlan,
                         place) {}

  // Asks for the index of the statuses, and for the counter's place in its map.
  void ask(const StatusMap& statuses, const CounterMap& counters) {
    statuses.prefetchIndex(hash_);
    counters.prefetch(counterHash_);
  }
  // Reads these, and asks for the status record and for the counter.
  void find(const StatusMap& statuses, const CounterMap& counters) {
    place_ = statuses.place(hash_);
    const auto* entry = counters.peek(counterHash_);
    if (entry == nullptr) return;
    counter_ = entry->value.get();
    Kiv::prefetch(counter_, sizeof(*counter_));
  }

  const FlowTracking::HoFlowKey<Domain>& key() const { return key_; }
  std::uint32_t bytes() const { return bytes_; }  // that the IP header tells
  std::uint64_t hash() const { return hash_; }    // of the key, in the status table
  std::uint64_t counterHash() const { return counterHash_; }
  // Found ahead, and to be checked; without them the decision looks itself.
  const typename StatusMap::Place& place() const { return place_; }
  Counter* counter() const { return counter_; }

 private:
  [[gnu::always_inline]] OffloadCandidate(const Header& ip, const Pavo::L4Ports& ports, std::uint16_t vlan,
                                          const FlowTracking::HoFlowPlace& place)
      : key_(vlan, ip, ports, place),
        bytes_(ip.packetBytes()),
        hash_(StatusMap::hash(key_)),
        counterHash_(CounterMap::hashOf(key_.ipFlowKey)) {}

  FlowTracking::HoFlowKey<Domain> key_;
  std::uint32_t bytes_;
  std::uint64_t hash_;
  std::uint64_t counterHash_;
  typename StatusMap::Place place_;
  Counter* counter_ = nullptr;
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
