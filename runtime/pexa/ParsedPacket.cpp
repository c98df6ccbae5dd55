#include <algorithm>
#include <array>

#include "PexaPacket.h"

namespace Pexa {
namespace {

constexpr std::uint32_t kEthernetBytes = 14;
constexpr std::uint32_t kTagBytes = 4;

namespace EtherType {
constexpr std::uint16_t kIpv4 = 0x0800;
constexpr std::uint16_t kArp = 0x0806;
constexpr std::uint16_t kTag = 0x8100;
constexpr std::uint16_t kIpv6 = 0x86dd;
constexpr std::uint16_t kServiceTag = 0x88a8;
}  // namespace EtherType

// What stands behind an IP header, by the protocol number in it: a name and the bytes of the fixed part,
// without which it is payload.
struct Known {
  HeaderName name = HeaderName::Payload;
  std::uint8_t bytes = 0;
};
using KnownByProtocol = std::array<Known, 256>;

constexpr KnownByProtocol behindIpv4() {
  KnownByProtocol known;
  known[1] = {HeaderName::Icmp, 8};
  known[2] = {HeaderName::Igmp, 8};
  known[6] = {HeaderName::Tcp, 20};
  known[17] = {HeaderName::Udp, 8};
  known[47] = {HeaderName::Gre, 4};
  known[50] = {HeaderName::Esp, 8};
  known[51] = {HeaderName::Ah, 12};
  known[132] = {HeaderName::Sctp, 12};
  return known;
}

constexpr KnownByProtocol behindIpv6() {
  KnownByProtocol known = behindIpv4();
  known[1] = known[2] = Known{};
  known[0] = {HeaderName::Ipv6HopByHop, 8};
  known[43] = {HeaderName::Ipv6Routing, 8};
  known[44] = {HeaderName::Ipv6Fragment, 8};
  known[58] = {HeaderName::Icmpv6, 8};
  known[60] = {HeaderName::Ipv6DestinationOptions, 8};
  known[135] = {HeaderName::Ipv6Mobility, 8};
  return known;
}

constexpr KnownByProtocol kBehindIpv4 = behindIpv4();
constexpr KnownByProtocol kBehindIpv6 = behindIpv6();

inline bool isTag(std::uint16_t etherType) {
  return etherType == EtherType::kTag || etherType == EtherType::kServiceTag;
}

// An IP header and what stands behind it.
struct IpLayer {
  std::uint32_t bytes = 0;        // of the header, with options; 0: there is none
  std::uint32_t behindBytes = 0;  // of the entry behind it
  HeaderName behind = HeaderName::Payload;
};

// The entry behind an IP header of so many bytes, by what is known of its protocol and how many bytes are
// left.
inline IpLayer layer(std::uint32_t headerBytes, Known known, std::uint32_t left) {
  const bool stands = known.bytes != 0 && known.bytes <= left;
  return {headerBytes, stands ? known.bytes : left, stands ? known.name : HeaderName::Payload};
}

// In both, so many bytes from the IP header on are captured. Every read is of bytes that a comparison before
// it found to be among them: bounds are tested once a header, not once a field.
inline IpLayer ipv4At(const std::uint8_t* ip, std::uint32_t available) {
  if (available < Pavo::IpHdr::kBytes) return {};
  const std::uint32_t version = ip[0] >> 4;
  const std::uint32_t headerBytes = (ip[0] & 0xfU) * 4;
  const std::uint32_t totalLength = Pavo::load16(ip + 2);
  if (version != 4 || headerBytes < Pavo::IpHdr::kBytes || headerBytes > available) return {};
  if (totalLength != 0 && totalLength < headerBytes) return {};
  const std::uint32_t bound = totalLength != 0 ? std::min(totalLength, available) : available;
  const bool laterFragment = (Pavo::load16(ip + 6) & 0x1fffU) != 0;
  return layer(headerBytes, laterFragment ? Known{} : kBehindIpv4[ip[9]], bound - headerBytes);
}

inline IpLayer ipv6At(const std::uint8_t* ip, std::uint32_t available) {
  if (available < Pavo::Ip6Hdr::kBytes || ip[0] >> 4 != 6) return {};
  const std::uint32_t payloadLength = Pavo::load16(ip + 4);
  const std::uint32_t left = available - Pavo::Ip6Hdr::kBytes;
  return layer(Pavo::Ip6Hdr::kBytes, kBehindIpv6[ip[6]],
               payloadLength != 0 ? std::min(payloadLength, left) : left);
}

}  // namespace

void ParsedPacket::fullParse() {
  const std::uint8_t* const front = pkt_.front();
  const std::uint32_t captured = pkt_.capturedLength();
  std::uint8_t count = 0;
  const auto add = [&](HeaderName name, std::uint32_t offset, std::uint32_t length) {
    headers_[count] = PacketHeader(name, count, offset, length);
    ++count;
  };
  const auto finish = [&] {
    count_ = count;
    parsed_ = true;
  };
  if (captured < kEthernetBytes) {
    add(HeaderName::Payload, 0, captured);
    return finish();
  }
  add(HeaderName::Ethernet, 0, kEthernetBytes);
  std::uint16_t etherType = Pavo::load16(front + kEthernetBytes - 2);
  std::uint32_t offset = kEthernetBytes;

  // A tag that is cut short ends the tags: it is what the payload begins with.
  if (isTag(etherType) && captured - offset >= kTagBytes) {
    tagged_ = true;
    firstTag_ = Pavo::load16(front + offset);
    do {
      etherType = Pavo::load16(front + offset + 2);
      offset += kTagBytes;
    } while (isTag(etherType) && captured - offset >= kTagBytes);
    add(HeaderName::Vlan, kEthernetBytes, offset - kEthernetBytes);
  }

  IpLayer ip;
  if (etherType == EtherType::kIpv4) {
    ip = ipv4At(front + offset, captured - offset);
  } else if (etherType == EtherType::kIpv6) {
    ip = ipv6At(front + offset, captured - offset);
  }
  if (ip.bytes != 0) {
    ipPosition_ = count;
    add(etherType == EtherType::kIpv4 ? HeaderName::Ipv4 : HeaderName::Ipv6, offset, ip.bytes);
    add(ip.behind, offset + ip.bytes, ip.behindBytes);
  } else {
    add(etherType == EtherType::kArp ? HeaderName::Arp : HeaderName::Payload, offset, captured - offset);
  }
  finish();
}

}  // namespace Pexa
