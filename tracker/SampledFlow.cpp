#include "SampledFlow.h"

#include <algorithm>
#include <array>

#include "PexaPacket.h"

namespace Tracker {
namespace {

using Bridging::AllowedTrafficDirection;
using FlowTracking::FlowKey;
using FlowTracking::IpFamily;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

constexpr std::uint32_t kVlanIdBits = 0xfff;
constexpr std::uint32_t kInterfaceSource = 0;

// Where a sample was taken.
struct Place {
  AllowedTrafficDirection direction = AllowedTrafficDirection::none;
  const Interface* at = nullptr;  // the interface that sampled
  std::uint16_t vlan = 0;         // of packets without a tag
};
using PlaceOrReason = std::variant<NoFlow, Place>;

AllowedTrafficDirection directionOf(const FlowSample& sample) {
  if (sample.sourceType != kInterfaceSource || sample.sourceIndex == 0) return AllowedTrafficDirection::none;
  if (sample.sourceIndex == sample.input.index()) return AllowedTrafficDirection::ingress;
  if (sample.sourceIndex == sample.output.index()) return AllowedTrafficDirection::egress;
  return AllowedTrafficDirection::none;
}

PlaceOrReason placeOf(const FlowSample& sample, const AgentAddress& agent, Interfaces& interfaces) {
  Place place;
  place.direction = directionOf(sample);
  if (place.direction == AllowedTrafficDirection::none) return NoFlow::noDirection;
  place.at = interfaces.find(agent, sample.sourceIndex);
  if (place.at == nullptr) {
    interfaces.unmapped(agent, sample.sourceIndex);
    return NoFlow::unknownInterface;
  }
  const Interface* input = interfaces.find(agent, sample.input.index());
  place.vlan =
      sample.inVlan.value_or(Bridging::VlanIdOrAnyOrNone::kNone) <= Bridging::VlanIdOrAnyOrNone::kMost
          ? static_cast<std::uint16_t>(*sample.inVlan)
          : (input != nullptr ? input : place.at)->vlan;
  return place;
}

template <class Domain>
SampledFlow<Domain> flowAt(const Place& place, const FlowSample& sample, const FlowKey<Domain>& flowKey,
                           std::uint64_t octets) {
  return {{flowKey, place.direction, place.at->intfId},
          octets,
          std::max(sample.rate, 1U),
          sample.input.index(),
          sample.output.index()};
}

// What the frame has from the IP header on, for packets whose length field is 0.
std::uint64_t frameOctets(const FlowSample& sample, std::uint32_t ipOffset) {
  const std::uint64_t before = std::uint64_t{ipOffset} + sample.stripped;
  return sample.frameBytes > before ? sample.frameBytes - before : 0;
}

template <class Domain>
FlowOrReason flowOfHeader(const FlowSample& sample, const Place& place, const Pexa::ParsedPacket& parsed,
                          const Pexa::PacketHeader& ipHeader) {
  using Header = typename IpFamily<Domain>::Header;
  const Pexa::PacketHeader& l4 = *parsed.header(ipHeader.position() + std::size_t{1});
  if (l4.name() != Pexa::HeaderName::Tcp && l4.name() != Pexa::HeaderName::Udp) return NoFlow::notTcpUdp;
  const std::uint16_t vlan =
      parsed.tagged() ? static_cast<std::uint16_t>(parsed.firstTag() & kVlanIdBits) : place.vlan;
  const Header ip(parsed.pkt().offsetFront(ipHeader.offset(), Header::kBytes));
  const Pavo::L4Ports ports(parsed.pkt().offsetFront(l4.offset(), Pavo::L4Ports::kBytes));
  const bool lengthKnown = ip.packetBytes() > l4.offset() - ipHeader.offset();
  return flowAt<Domain>(place, sample, FlowKey<Domain>(vlan, ip, ports),
                        lengthKnown ? ip.packetBytes() : frameOctets(sample, ipHeader.offset()));
}

FlowOrReason flowOfHeader(const FlowSample& sample, const Place& place) {
  const auto captured = static_cast<std::uint32_t>(sample.header.size());
  Pexa::ParsedPacket parsed(Pavo::Pkt(sample.header.data(), captured, sample.frameBytes));
  parsed.maybeDoFullParse();
  const Pexa::PacketHeader* ipHeader = parsed.firstHeaderIpAnyVersion();
  if (ipHeader == nullptr) return NoFlow::notIp;
  return ipHeader->name() == IpFamily<IPv4>::kHeaderName
             ? flowOfHeader<IPv4>(sample, place, parsed, *ipHeader)
             : flowOfHeader<IPv6>(sample, place, parsed, *ipHeader);
}

// A packet that was sampled from its IP header on, as a frame: the parser begins with Ethernet.
class Framed {
 public:
  explicit Framed(const FlowSample& sample) : sample_(sample) {
    const std::uint16_t type =
        sample.headerKind == FlowSample::HeaderKind::ip4 ? kEtherTypeIp4 : kEtherTypeIp6;
    bytes_[kEthernetBytes - 2] = static_cast<std::uint8_t>(type >> 8);
    bytes_[kEthernetBytes - 1] = static_cast<std::uint8_t>(type & 0xff);
    const auto header = sample.header.first(std::min(sample.header.size(), kMostIpBytes));
    std::copy(header.begin(), header.end(), bytes_.begin() + kEthernetBytes);
    sample_.header = FlowSample::Bytes(bytes_).first(kEthernetBytes + header.size());
    sample_.frameBytes += kEthernetBytes;
  }
  Framed(const Framed&) = delete;
  Framed& operator=(const Framed&) = delete;
  const FlowSample& sample() const { return sample_; }

 private:
  static constexpr std::size_t kEthernetBytes = 14;
  static constexpr std::size_t kMostIpBytes =
      128;  // more than a flow needs: an IP header, its options and ports
  static constexpr std::uint16_t kEtherTypeIp4 = 0x0800;
  static constexpr std::uint16_t kEtherTypeIp6 = 0x86dd;

  std::array<std::uint8_t, kEthernetBytes + kMostIpBytes> bytes_{};
  FlowSample sample_;
};

// Length, protocol, addresses, ports: the agent's own reading of the packet.
template <class Domain>
FlowOrReason flowOfAddresses(const FlowSample& sample, const Place& place, FlowSample::Bytes bytes) {
  XdrReader reader(bytes);
  const std::uint32_t octets = reader.word();
  FlowKey<Domain> key;
  key.vlan = place.vlan;
  key.ipProto = reader.word();
  for (auto* address : {&key.srcAddr, &key.dstAddr}) {
    const auto from = reader.take(address->bytes.size());
    std::copy(from.begin(), from.end(), address->bytes.begin());
  }
  const std::uint32_t srcPort = reader.word();
  const std::uint32_t dstPort = reader.word();
  const auto protocol = static_cast<Pavo::IpProto>(key.ipProto);
  const bool hasPorts = protocol == Pavo::IpProto::ipProtoTcp || protocol == Pavo::IpProto::ipProtoUdp;
  if (!hasPorts || srcPort > 0xffff || dstPort > 0xffff) return NoFlow::notTcpUdp;
  key.srcPort = static_cast<std::uint16_t>(srcPort);
  key.dstPort = static_cast<std::uint16_t>(dstPort);
  return flowAt<Domain>(place, sample, key, octets);
}

}  // namespace

std::string_view nameOf(NoFlow reason) {
  static constexpr std::array<std::string_view, kNoFlows> kNames = {
      "noHeader", "otherHeader", "notIp", "notTcpUdp", "noDirection", "unknownInterface"};
  return kNames[static_cast<std::size_t>(reason)];
}

FlowOrReason flowOf(const FlowSample& sample, const AgentAddress& agent, Interfaces& interfaces) {
  const bool sampledAny = !sample.header.empty() || !sample.ip4.empty() || !sample.ip6.empty();
  if (!sampledAny) return sample.otherHeader ? NoFlow::otherHeader : NoFlow::noHeader;
  const PlaceOrReason found = placeOf(sample, agent, interfaces);
  if (const auto* reason = std::get_if<NoFlow>(&found)) return *reason;
  const Place& place = std::get<Place>(found);
  if (!sample.header.empty()) {
    return sample.headerKind == FlowSample::HeaderKind::ethernet
               ? flowOfHeader(sample, place)
               : flowOfHeader(Framed(sample).sample(), place);
  }
  if (!sample.ip4.empty()) return flowOfAddresses<IPv4>(sample, place, sample.ip4);
  return flowOfAddresses<IPv6>(sample, place, sample.ip6);
}

}  // namespace Tracker
