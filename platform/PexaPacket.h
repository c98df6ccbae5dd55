// A packet on its way through the agent: its parsed headers and its context.
//
// The parser calls headers by the names below. A frame is Ethernet, then any number of 0x8100 and 0x88a8 tags
// (one Vlan entry covers them all), then what its Ethernet type says; only IPv4 and IPv6 are looked into.
// Behind an IP header always stands an entry: Tcp or Udp when the whole header is captured and within the IP
// length (a length field of 0 does not bound), else another name, at the least an empty Payload.
//
// Threading: the agent's event thread. Nothing here allocates.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "Bridging.h"
#include "Kiv.h"
#include "Pavo.h"
#include "PexaPort.h"

namespace Pexa {

enum class HeaderName : std::uint8_t {
  Ethernet,
  Vlan,
  Ipv4,
  Ipv6,
  Tcp,
  Udp,
  Icmp,
  Igmp,
  Icmpv6,
  Ipv6HopByHop,
  Ipv6Routing,
  Ipv6Fragment,
  Ipv6DestinationOptions,
  Ipv6Mobility,
  Gre,
  Esp,
  Ah,
  Sctp,
  Arp,
  Payload,
};
std::string_view stringValue(HeaderName name);

// A header's place in the packet. Its bytes: pkt.offsetFront(header.offset(), header.length()).
class PacketHeader {
 public:
  PacketHeader() = default;
  PacketHeader(HeaderName name, std::uint8_t position, std::uint32_t offset, std::uint32_t length)
      : offset_(offset), length_(length), name_(name), position_(position) {}
  HeaderName name() const { return name_; }
  // Its index in the packet's header list.
  std::uint8_t position() const { return position_; }
  std::uint32_t offset() const { return offset_; }
  // Its bytes, all of them captured: an IPv4 header with its options, all tags of a Vlan entry, everything
  // that is left of a Payload (within the IP length behind an IP header), the fixed part of any other.
  std::uint32_t length() const { return length_; }

 private:
  std::uint32_t offset_ = 0;
  std::uint32_t length_ = 0;
  HeaderName name_ = HeaderName::Payload;
  std::uint8_t position_ = 0;
};

// The headers of one packet, found when first asked for.
class ParsedPacket {
 public:
  static constexpr std::size_t kMostHeaders = 4;  // Ethernet, Vlan, IP, and what follows it

  ParsedPacket() = default;
  explicit ParsedPacket(const Pavo::Pkt& pkt) : pkt_(pkt) {}
  // Takes another packet, of which nothing is known yet. The list of the former one is left where it is: only
  // the first headers().size() entries are ever looked at.
  void pktIs(const Pavo::Pkt& pkt) {
    pkt_ = pkt;
    firstTag_ = 0;
    count_ = 0;
    ipPosition_ = kNoPosition;
    parsed_ = false;
    tagged_ = false;
  }

  const Pavo::Pkt& pkt() const { return pkt_; }
  // Parses unless that was done. Any bytes can be parsed.
  void maybeDoFullParse() {
    if (!parsed_) fullParse();
  }
  // REQUIRES: parsed, for all below.
  std::span<const PacketHeader> headers() const { return {headers_.data(), count_}; }
  // Null when the packet has no IP header, or only a malformed one.
  const PacketHeader* firstHeaderIpAnyVersion() const {
    return ipPosition_ < count_ ? &headers_[ipPosition_] : nullptr;
  }
  // Null behind the last one.
  const PacketHeader* header(std::size_t position) const {
    return position < count_ ? &headers_[position] : nullptr;
  }
  // The id of the first tag, 0 included; none when the frame is untagged. Bits: PCP 15-13, DEI 12, id 11-0.
  bool tagged() const { return tagged_; }
  std::uint16_t firstTag() const { return firstTag_; }

 private:
  void fullParse();

  static constexpr std::uint8_t kNoPosition = 0xff;

  Pavo::Pkt pkt_;
  std::array<PacketHeader, kMostHeaders> headers_;
  std::uint16_t firstTag_ = 0;
  std::uint8_t count_ = 0;
  std::uint8_t ipPosition_ = kNoPosition;
  bool parsed_ = false;
  bool tagged_ = false;
};

// Counters by category ("Action", "Drop"), source ("Sft") and reason.
class PexaNamedCounters {
 public:
  virtual ~PexaNamedCounters() = default;
  virtual void count(std::string_view category, std::string_view source, std::string_view reason) = 0;
};

// What the agent knows of a packet while it is being processed. Kept by the agent for each packet of a burst.
struct PacketState {
  ParsedPacket parsed;
  const Kiv::Ptr<const PexaPortBase>* inputPort = nullptr;  // null: the packet came from the agent itself
  PexaNamedCounters* namedCounters = nullptr;               // null: reasons are not counted
  std::uint64_t packetNumber = 0;
  std::string_view traceFilter;  // the trace filter that it matches, or empty
  Bridging::VlanIdOrAnyOrNone vlan;
  // What a step left when it looked ahead, for the same step's processing, one for each direction: a number
  // of the step's own, under which it prepared the packet; 0: nothing.
  std::array<std::uint8_t, 2> lookAhead{};

  // Takes another packet, whose state is as that of a new one but for what the caller sets next: the input
  // port, the counters, the number, the filter and the VLAN. Cheaper than a new state, four times over.
  void pktIs(const Pavo::Pkt& pkt) {
    parsed.pktIs(pkt);
    traceFilter = {};
    lookAhead = {};
  }
};

// A handle to a packet's state, passed by value; valid while the packet is being processed.
class PacketContext {
 public:
  explicit PacketContext(PacketState& state) : state_(&state) {}

  ParsedPacket& parsedPacket() const { return state_->parsed; }
  const Pavo::Pkt& pkt() const { return state_->parsed.pkt(); }
  Bridging::VlanIdOrAnyOrNone vlanId() const { return state_->vlan; }
  // The empty reference when the packet came from the agent itself.
  const Kiv::Ptr<const PexaPortBase>& inputPort() const {
    return state_->inputPort ? *state_->inputPort : noPort();
  }
  PexaNamedCounters* namedCounters() const { return state_->namedCounters; }
  std::uint64_t packetNumber() const { return state_->packetNumber; }
  // The name of the trace filter that the packet matches, or empty.
  std::string_view matchingTraceFilter() const { return state_->traceFilter; }
  std::uint8_t& lookAhead(Bridging::AllowedTrafficDirection direction) const {
    return state_->lookAhead[direction == Bridging::AllowedTrafficDirection::egress ? 1 : 0];
  }

 private:
  static const Kiv::Ptr<const PexaPortBase>& noPort();
  PacketState* state_;
};

// A packet that is about to leave on a port.
class OutputPipelineContext {
 public:
  OutputPipelineContext(PacketContext packetContext, const Kiv::Ptr<const PexaPortBase>& outputPort)
      : packetContext_(packetContext), outputPort_(&outputPort) {}
  PacketContext packetContext() const { return packetContext_; }
  const Kiv::Ptr<const PexaPortBase>& inputPort() const { return packetContext_.inputPort(); }
  const Kiv::Ptr<const PexaPortBase>& outputPort() const { return *outputPort_; }

 private:
  PacketContext packetContext_;
  const Kiv::Ptr<const PexaPortBase>* outputPort_;
};

}  // namespace Pexa

namespace Kiv {
template <>
struct ValueTraits<Pexa::PacketContext> {
  static constexpr std::string_view kTypeName = "packet context";
  static Value toValue(Pexa::PacketContext value) { return Value::opaque(value); }
  static Pexa::PacketContext fromValue(const Value& value) {
    const auto* opaque = value.as<Value::Opaque>();
    const auto* context = opaque ? std::any_cast<Pexa::PacketContext>(opaque) : nullptr;
    if (context == nullptr) throwValueError("a packet context", value);
    return *context;
  }
};
}  // namespace Kiv
