// Builds the bytes of a packet from its headers, outermost first:
//
//   auto packet = PacketBuilder().vlan(10).ipv4("10.0.0.1", "10.0.0.2").tcp(1234, 80).payload(100).build();
//   parse(packet.pkt());
//
// Ethernet types, next-header fields, lengths and checksums are filled in; the *Field operations put a wrong
// one in place of a right one. Everything from cutTo() on concerns what was captured of the packet.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "Pavo.h"

namespace TestSupport {

// A packet that owns its bytes. Held in a buffer of exactly their size, so that a sanitizer sees any read
// behind them.
struct Packet {
  std::vector<std::uint8_t> bytes;
  std::uint32_t wireLength = 0;

  // Valid as long as this packet.
  Pavo::Pkt pkt() const { return {bytes.data(), static_cast<std::uint32_t>(bytes.size()), wireLength}; }
};

inline Pavo::IpAddr address4(const std::string& text) {
  Pavo::IpAddr address;
  [[maybe_unused]] const int done = ::inet_pton(AF_INET, text.c_str(), address.bytes.data());
  assert(done == 1);
  return address;
}
inline Pavo::Ip6Addr address6(const std::string& text) {
  Pavo::Ip6Addr address;
  [[maybe_unused]] const int done = ::inet_pton(AF_INET6, text.c_str(), address.bytes.data());
  assert(done == 1);
  return address;
}

class PacketBuilder {
 public:
  // Starts with an Ethernet header between two fixed local addresses.
  PacketBuilder() : bytes_{2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1, 0, 0} {}

  PacketBuilder& etherType(std::uint16_t type) {
    put16(etherTypeAt_, type);
    return *this;
  }
  PacketBuilder& vlan(std::uint16_t id, std::uint16_t tpid = 0x8100, std::uint8_t priority = 0) {
    put16(etherTypeAt_, tpid);
    append16(static_cast<std::uint16_t>(priority << 13 | id));
    etherTypeAt_ = bytes_.size();
    append16(0);
    return *this;
  }

  // An IP header of the addresses' family.
  PacketBuilder& ip(const Pavo::IpAddr& src, const Pavo::IpAddr& dst) {
    etherType(0x0800);
    startLayer(Layer::ipv4);
    append({0x45, 0, 0, 0, 0, 1, 0, 0, 64, 0xff, 0, 0});
    append(src.bytes);
    append(dst.bytes);
    nextHeaderAt_ = ipAt_ + 9;
    return *this;
  }
  PacketBuilder& ip(const Pavo::Ip6Addr& src, const Pavo::Ip6Addr& dst) {
    etherType(0x86dd);
    startLayer(Layer::ipv6);
    append({0x60, 0, 0, 0, 0, 0, 0xff, 64});
    append(src.bytes);
    append(dst.bytes);
    nextHeaderAt_ = ipAt_ + 6;
    return *this;
  }
  PacketBuilder& ipv4(const std::string& src, const std::string& dst) {
    return ip(address4(src), address4(dst));
  }
  PacketBuilder& ipv6(const std::string& src, const std::string& dst) {
    return ip(address6(src), address6(dst));
  }

  // The next-header field of the innermost IP or extension header so far.
  PacketBuilder& protocol(std::uint8_t number) {
    bytes_[nextHeaderAt_] = number;
    return *this;
  }
  // Right behind ipv4(): options of a multiple of 4 bytes, at most 40.
  PacketBuilder& ipv4Options(const std::vector<std::uint8_t>& options) {
    append(options);
    bytes_[ipAt_] = static_cast<std::uint8_t>(0x40 | (20 + options.size()) / 4);
    return *this;
  }
  // The fragment's place in units of 8 bytes.
  PacketBuilder& ipv4Fragment(std::uint16_t offset, bool more) {
    put16(ipAt_ + 6, static_cast<std::uint16_t>((more ? 0x2000 : 0) | offset));
    return *this;
  }
  // An extension header of 8 bytes and as many more, rounded down to a multiple of 8.
  PacketBuilder& ipv6Extension(std::uint8_t number, std::size_t extraBytes = 0) {
    next(number);
    nextHeaderAt_ = bytes_.size();
    append({0xff, static_cast<std::uint8_t>(extraBytes / 8), 1, 4, 0, 0, 0, 0});
    bytes_.resize(bytes_.size() + extraBytes / 8 * 8);
    return *this;
  }
  PacketBuilder& ipv6Fragment(std::uint16_t offset, bool more) {
    next(44);
    nextHeaderAt_ = bytes_.size();
    append({0xff, 0});
    append16(static_cast<std::uint16_t>(offset << 3 | (more ? 1 : 0)));
    append({0, 0, 0, 1});
    return *this;
  }

  PacketBuilder& tcp(std::uint16_t srcPort, std::uint16_t dstPort, std::uint8_t flags = 0x10) {
    next(6);
    l4At_ = bytes_.size();
    checksumAt_ = *l4At_ + 16;
    append16(srcPort);
    append16(dstPort);
    append({0, 0, 0, 1, 0, 0, 0, 1, 0x50, flags, 0x20, 0, 0, 0, 0, 0});
    return *this;
  }
  PacketBuilder& udp(std::uint16_t srcPort, std::uint16_t dstPort) {
    next(17);
    l4At_ = bytes_.size();
    checksumAt_ = *l4At_ + 6;
    udpAt_ = l4At_;
    append16(srcPort);
    append16(dstPort);
    append({0, 0, 0, 0});
    return *this;
  }
  // An echo request of the family of the IP header before it.
  PacketBuilder& icmp() {
    const bool v4 = layer_ == Layer::ipv4;
    next(v4 ? 1 : 58);
    append({static_cast<std::uint8_t>(v4 ? 8 : 128), 0, 0, 0, 0, 1, 0, 1});
    return *this;
  }

  PacketBuilder& payload(std::size_t bytes, std::uint8_t fill = 0xab) {
    bytes_.resize(bytes_.size() + bytes, fill);
    return *this;
  }
  PacketBuilder& payload(const std::vector<std::uint8_t>& bytes) {
    append(bytes);
    return *this;
  }
  // Bytes behind the IP packet, as Ethernet padding is.
  PacketBuilder& trailer(std::size_t bytes) {
    trailer_ = bytes;
    return *this;
  }

  // Wrong values in place of the right ones.
  PacketBuilder& versionField(std::uint8_t version) {
    bytes_[ipAt_] = static_cast<std::uint8_t>(version << 4 | (bytes_[ipAt_] & 0xf));
    return *this;
  }
  PacketBuilder& headerWordsField(std::uint8_t words) {
    bytes_[ipAt_] = static_cast<std::uint8_t>((bytes_[ipAt_] & 0xf0) | words);
    return *this;
  }
  // IPv4: total length; IPv6: payload length.
  PacketBuilder& lengthField(std::uint16_t length) {
    lengthField_ = length;
    return *this;
  }

  // Cuts the captured bytes; the wire length stays.
  PacketBuilder& cutTo(std::size_t bytes) {
    cutTo_ = bytes;
    return *this;
  }
  PacketBuilder& wireLength(std::uint32_t length) {
    wireLength_ = length;
    return *this;
  }

  // Where the next header would start, and where the IP header does: offsets into the packet.
  std::size_t size() const { return bytes_.size(); }
  std::size_t ipOffset() const { return ipAt_; }

  Packet build() const {
    std::vector<std::uint8_t> all = bytes_;
    fillIn(all);
    all.insert(all.end(), trailer_, std::uint8_t{0});
    Packet packet;
    packet.wireLength = wireLength_.value_or(static_cast<std::uint32_t>(all.size()));
    const std::size_t captured = cutTo_ ? std::min(*cutTo_, all.size()) : all.size();
    packet.bytes.assign(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(captured));
    return packet;
  }

 private:
  enum class Layer : std::uint8_t { none, ipv4, ipv6 };

  static void write16(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint16_t value) {
    bytes[at] = static_cast<std::uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<std::uint8_t>(value);
  }
  void put16(std::size_t at, std::uint16_t value) { write16(bytes_, at, value); }
  void append16(std::uint16_t value) {
    bytes_.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes_.push_back(static_cast<std::uint8_t>(value));
  }
  void append(std::initializer_list<std::uint8_t> bytes) { bytes_.insert(bytes_.end(), bytes); }
  template <class Bytes>
  void append(const Bytes& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }
  void startLayer(Layer layer) {
    layer_ = layer;
    ipAt_ = bytes_.size();
    l4At_.reset();
    udpAt_.reset();
  }
  void next(std::uint8_t number) {
    if (layer_ != Layer::none) bytes_[nextHeaderAt_] = number;
  }

  // The Internet checksum, without the final complement.
  static std::uint32_t sum(const std::vector<std::uint8_t>& bytes, std::size_t from, std::size_t to,
                           std::uint32_t start) {
    for (std::size_t at = from; at < to; ++at)
      start += at % 2 == from % 2 ? std::uint32_t{bytes[at]} << 8 : bytes[at];
    return start;
  }
  static std::uint16_t folded(std::uint32_t total) {
    while (total > 0xffff) total = (total & 0xffff) + (total >> 16);
    return static_cast<std::uint16_t>(~total);
  }

  void fillIn(std::vector<std::uint8_t>& all) const {
    if (layer_ == Layer::none) return;
    const std::size_t bytes = all.size() - ipAt_;
    if (udpAt_) write16(all, *udpAt_ + 4, static_cast<std::uint16_t>(all.size() - *udpAt_));
    const std::size_t right = layer_ == Layer::ipv4 ? bytes : bytes - 40;
    write16(all, ipAt_ + (layer_ == Layer::ipv4 ? 2 : 4),
            lengthField_.value_or(static_cast<std::uint16_t>(right)));
    if (layer_ == Layer::ipv4) {
      const std::size_t end = std::min(ipAt_ + (all[ipAt_] & 0xfU) * 4, all.size());
      write16(all, ipAt_ + 10, folded(sum(all, ipAt_, end, 0)));
    }
    if (l4At_) {
      const std::size_t addresses = layer_ == Layer::ipv4 ? ipAt_ + 12 : ipAt_ + 8;
      const std::size_t addressesEnd = layer_ == Layer::ipv4 ? ipAt_ + 20 : ipAt_ + 40;
      const auto length = static_cast<std::uint32_t>(all.size() - *l4At_);
      const std::uint32_t pseudo = sum(all, addresses, addressesEnd, length + (udpAt_ ? 17 : 6));
      write16(all, checksumAt_, folded(sum(all, *l4At_, all.size(), pseudo)));
    }
  }

  std::vector<std::uint8_t> bytes_;
  std::size_t etherTypeAt_ = 12;
  std::size_t ipAt_ = 0;
  std::size_t nextHeaderAt_ = 0;
  std::size_t checksumAt_ = 0;
  std::size_t trailer_ = 0;
  std::optional<std::size_t> l4At_;
  std::optional<std::size_t> udpAt_;
  std::optional<std::uint16_t> lengthField_;
  std::optional<std::size_t> cutTo_;
  std::optional<std::uint32_t> wireLength_;
  Layer layer_ = Layer::none;
};

}  // namespace TestSupport
