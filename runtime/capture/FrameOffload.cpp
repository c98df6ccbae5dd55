#include "capture/FrameOffload.h"

#include <algorithm>
#include <cstring>

namespace Capture {
namespace {

constexpr std::uint32_t kAddresses = 12;  // bytes of an Ethernet header before the type or the first tag
constexpr std::uint32_t kIpv4Bytes = 20;
constexpr std::uint32_t kIpv6Bytes = 40;
constexpr std::uint32_t kTcpBytes = 20;
constexpr std::uint32_t kUdpBytes = 8;
constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;
constexpr std::uint8_t kFin = 0x01, kPush = 0x08, kCwr = 0x80;  // flags that only one of the packets may have
constexpr std::uint32_t kSctpChecksumOffset = 8;                // no other checksum stands there

std::uint32_t load16(const std::uint8_t* at) {
  return static_cast<std::uint32_t>(at[0] << 8 | at[1]);
}
void store16(std::uint8_t* at, std::uint32_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value);
}
std::uint32_t load32(const std::uint8_t* at) {
  return load16(at) << 16 | load16(at + 2);
}
void store32(std::uint8_t* at, std::uint32_t value) {
  store16(at, value >> 16);
  store16(at + 2, value);
}

// Hop-by-hop and destination options, which change nothing for what comes behind them. A routing header does:
// the pseudo header has another destination than the IP header.
bool isOptions(std::uint8_t nextHeader) {
  return nextHeader == 0 || nextHeader == 60;
}

}  // namespace

bool completeChecksum(std::uint8_t* frame, std::uint32_t length, const FrameOffload& offload) {
  const std::uint32_t start = offload.checksumStart;
  const std::uint32_t field = start + offload.checksumOffset;
  if (start >= length || field + 2 > length || offload.checksumOffset == kSctpChecksumOffset) return false;
  InternetChecksum().add(frame + start, length - start).store(frame + field);
  return true;
}

bool FrameCutter::frameIs(const std::uint8_t* frame, std::uint32_t length, const FrameOffload& offload) {
  frame_ = frame;
  length_ = length;
  cutBytes_ = offload.cutBytes;
  at_ = length;  // until there is something to cut
  if (cutBytes_ == 0 || offload.cut == FrameOffload::Cut::unknown || !findHeaders(offload)) return false;
  at_ = payload_;
  return at_ < length_;
}

bool FrameCutter::findHeaders(const FrameOffload& offload) {
  std::uint32_t type = kAddresses;
  while (type + 2 <= length_ && (load16(frame_ + type) == 0x8100 || load16(frame_ + type) == 0x88a8))
    type += 4;
  if (type + 2 > length_) return false;
  ip_ = type + 2;
  ipv6_ = load16(frame_ + type) == 0x86dd;
  if (!ipv6_ && load16(frame_ + type) != 0x0800) return false;
  if (ip_ + (ipv6_ ? kIpv6Bytes : kIpv4Bytes) > length_) return false;
  if (ipv6_) {
    protocol_ = frame_[ip_ + 6];
    layer4_ = ip_ + kIpv6Bytes;
    for (; isOptions(protocol_) && layer4_ + 8 <= length_; layer4_ += 8U + 8U * frame_[layer4_ + 1]) {
      protocol_ = frame_[layer4_];
    }
  } else {
    protocol_ = frame_[ip_ + 9];
    layer4_ = ip_ + 4U * (frame_[ip_] & 0x0fU);
    if (layer4_ < ip_ + kIpv4Bytes) return false;
  }
  using Cut = FrameOffload::Cut;
  const bool tcp = offload.cut == (ipv6_ ? Cut::tcpOverIpv6 : Cut::tcpOverIpv4);
  if (!tcp && offload.cut != Cut::udp) return false;
  if (protocol_ != (tcp ? kTcp : kUdp) || layer4_ + (tcp ? kTcpBytes : kUdpBytes) > length_) return false;
  const std::uint32_t header = tcp ? 4U * (frame_[layer4_ + 12] >> 4) : kUdpBytes;
  if (tcp && header < kTcpBytes) return false;
  payload_ = layer4_ + header;
  // A checksum elsewhere is one within a tunnel, and so is what was to be cut.
  return !offload.checksumMissing || offload.checksumStart == layer4_;
}

std::uint32_t FrameCutter::nextLength() const {
  return payload_ + std::min(cutBytes_, length_ - at_);
}

void FrameCutter::next(std::uint8_t* room) {
  const std::uint32_t length = nextLength();
  std::memcpy(room, frame_, payload_);
  std::memcpy(room + payload_, frame_ + at_, length - payload_);
  finishIp(room, length);
  if (protocol_ == kTcp) {
    finishTcp(room, length);
  } else {
    finishUdp(room, length);
  }
  at_ += length - payload_;
}

void FrameCutter::finishIp(std::uint8_t* packet, std::uint32_t length) const {
  std::uint8_t* ip = packet + ip_;
  if (ipv6_) {
    store16(ip + 4, length - ip_ - kIpv6Bytes);
    return;
  }
  const std::uint32_t number = (at_ - payload_) / cutBytes_;
  store16(ip + 2, length - ip_);
  store16(ip + 4, load16(ip + 4) + number);
  store16(ip + 10, 0);
  InternetChecksum().add(ip, layer4_ - ip_).store(ip + 10);
}

void FrameCutter::finishTcp(std::uint8_t* packet, std::uint32_t length) const {
  std::uint8_t* tcp = packet + layer4_;
  const bool first = at_ == payload_;
  const bool last = at_ + (length - payload_) == length_;
  store32(tcp + 4, load32(tcp + 4) + (at_ - payload_));
  if (!last) tcp[13] &= static_cast<std::uint8_t>(~(kFin | kPush));
  if (!first) tcp[13] &= static_cast<std::uint8_t>(~kCwr);
  store16(tcp + 16, 0);
  pseudoHeader(packet, length).add(tcp, length - layer4_).store(tcp + 16);
}

void FrameCutter::finishUdp(std::uint8_t* packet, std::uint32_t length) const {
  std::uint8_t* udp = packet + layer4_;
  store16(udp + 4, length - layer4_);
  store16(udp + 6, 0);
  pseudoHeader(packet, length).add(udp, length - layer4_).store(udp + 6);
}

InternetChecksum FrameCutter::pseudoHeader(const std::uint8_t* packet, std::uint32_t length) const {
  InternetChecksum sum;
  if (ipv6_) {
    sum.add(packet + ip_ + 8, 32);
  } else {
    sum.add(packet + ip_ + 12, 8);
  }
  return sum.addNumber(length - layer4_).addNumber(protocol_);
}

}  // namespace Capture
