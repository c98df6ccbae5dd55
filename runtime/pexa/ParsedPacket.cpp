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

bool isTag(std::uint16_t etherType) {
  return etherType == EtherType::kTag || etherType == EtherType::kServiceTag;
}

}  // namespace

inline void ParsedPacket::add(HeaderName name, std::uint32_t offset, std::uint32_t length) {
  headers_[count_] = PacketHeader(name, count_, offset, length);
  ++count_;
}

// Every read below is of bytes that a comparison before it found to be captured: bounds are tested once a
// header, not once a field.
void ParsedPacket::fullParse() {
  parsed_ = true;
  const std::uint32_t captured = pkt_.capturedLength();
  if (captured < kEthernetBytes) {
    add(HeaderName::Payload, 0, captured);
    return;
  }
  add(HeaderName::Ethernet, 0, kEthernetBytes);
  std::uint16_t etherType = Pavo::load16(pkt_.front() + kEthernetBytes - 2);
  std::uint32_t offset = kEthernetBytes;
  if (isTag(etherType)) etherType = skipTags(etherType, offset);
  if (etherType == EtherType::kIpv4 && parseIpv4(offset)) return;
  if (etherType == EtherType::kIpv6 && parseIpv6(offset)) return;
  add(etherType == EtherType::kArp ? HeaderName::Arp : HeaderName::Payload, offset, captured - offset);
}

// The Ethernet type behind the tags. A tag that is cut short ends them: it is what the payload begins with.
std::uint16_t ParsedPacket::skipTags(std::uint16_t etherType, std::uint32_t& offset) {
  const std::uint32_t captured = pkt_.capturedLength();
  const std::uint32_t begin = offset;
  while (isTag(etherType) && captured - offset >= kTagBytes) {
    const std::uint8_t* tag = pkt_.front() + offset;
    if (!tagged_) {
      tagged_ = true;
      firstTag_ = Pavo::load16(tag);
    }
    etherType = Pavo::load16(tag + 2);
    offset += kTagBytes;
  }
  if (tagged_) add(HeaderName::Vlan, begin, offset - begin);
  return etherType;
}

bool ParsedPacket::parseIpv4(std::uint32_t offset) {
  const std::uint32_t available = pkt_.capturedLength() - offset;
  if (available < Pavo::IpHdr::kBytes) return false;
  const std::uint8_t* ip = pkt_.front() + offset;
  const std::uint32_t version = ip[0] >> 4;
  const std::uint32_t headerBytes = (ip[0] & 0xfU) * 4;
  const std::uint32_t totalLength = Pavo::load16(ip + 2);
  if (version != 4 || headerBytes < Pavo::IpHdr::kBytes || headerBytes > available) return false;
  if (totalLength != 0 && totalLength < headerBytes) return false;

  ipPosition_ = count_;
  add(HeaderName::Ipv4, offset, headerBytes);
  const std::uint32_t bound = totalLength != 0 ? std::min(totalLength, available) : available;
  const std::uint32_t behind = bound - headerBytes;
  const bool laterFragment = (Pavo::load16(ip + 6) & 0x1fffU) != 0;
  const Known known = kBehindIpv4[ip[9]];
  const bool stands = !laterFragment && known.bytes != 0 && known.bytes <= behind;
  add(stands ? known.name : HeaderName::Payload, offset + headerBytes, stands ? known.bytes : behind);
  return true;
}

bool ParsedPacket::parseIpv6(std::uint32_t offset) {
  const std::uint32_t available = pkt_.capturedLength() - offset;
  if (available < Pavo::Ip6Hdr::kBytes) return false;
  const std::uint8_t* ip = pkt_.front() + offset;
  const std::uint32_t payloadLength = Pavo::load16(ip + 4);
  if (ip[0] >> 4 != 6) return false;

  ipPosition_ = count_;
  add(HeaderName::Ipv6, offset, Pavo::Ip6Hdr::kBytes);
  const std::uint32_t left = available - Pavo::Ip6Hdr::kBytes;
  const std::uint32_t behind = payloadLength != 0 ? std::min(payloadLength, left) : left;
  const Known known = kBehindIpv6[ip[6]];
  const bool stands = known.bytes != 0 && known.bytes <= behind;
  add(stands ? known.name : HeaderName::Payload, offset + Pavo::Ip6Hdr::kBytes,
      stands ? known.bytes : behind);
  return true;
}

}  // namespace Pexa
