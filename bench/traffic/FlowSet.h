// The flows of generated traffic: number i has addresses, ports, protocol and VLAN of its own, one to one. A
// quarter is IPv6, a fifth UDP.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace SftBench {

struct TrafficFlow {
  static constexpr std::uint32_t kMost = 1U << 24;  // flows that can be told apart

  explicit TrafficFlow(std::uint32_t number);

  // Writes an Ethernet frame with one 802.1Q tag into `frame`, all of its length; what is not header is 0.
  // REQUIRES: kMostHeaders bytes.
  void write(std::span<std::uint8_t> frame) const;
  static constexpr std::size_t kMostHeaders = 14 + 4 + 40 + 20;
  std::size_t headerBytes() const { return kTagged + ipBytes() + layer4Bytes(); }
  // Bytes that count for the flow: the IP packet's.
  static std::size_t octets(std::size_t frameBytes) { return frameBytes - kTagged; }

  bool ipv6() const { return ipv6_; }
  std::string source() const { return text(source_); }
  std::string destination() const { return text(destination_); }

  std::uint16_t vlan;
  std::uint8_t protocol;
  std::uint16_t sourcePort;
  std::uint16_t destinationPort;

 private:
  static constexpr std::size_t kTagged = 14 + 4;
  std::size_t ipBytes() const { return ipv6_ ? 40 : 20; }
  std::size_t layer4Bytes() const;
  std::size_t addressBytes() const { return ipv6_ ? 16 : 4; }
  std::string text(const std::array<std::uint8_t, 16>& address) const;
  void writeIp(std::uint8_t* ip, std::size_t bytes) const;

  bool ipv6_;
  std::array<std::uint8_t, 16> source_{};
  std::array<std::uint8_t, 16> destination_{};
};

}  // namespace SftBench
