#include "FlowSet.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace SftBench {
namespace {

constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;
constexpr std::array<std::uint16_t, 4> kServices = {443, 80, 8443, 5201};
constexpr std::array<std::uint8_t, 12> kMacs = {2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1};

void put16(std::uint8_t* at, std::size_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value);
}

std::uint16_t headerChecksum(const std::uint8_t* ip) {
  std::uint32_t sum = 0;
  for (int i = 0; i < 20; i += 2) sum += static_cast<std::uint32_t>(ip[i] << 8 | ip[i + 1]);
  sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<std::uint16_t>(~(sum + (sum >> 16)));
}

}  // namespace

TrafficFlow::TrafficFlow(std::uint32_t number)
    : vlan(static_cast<std::uint16_t>(10 + number % 4)),
      protocol(number % 5 == 4 ? kUdp : kTcp),
      sourcePort(static_cast<std::uint16_t>(1024 + number % 60000)),
      destinationPort(kServices[number / 4 % kServices.size()]),
      ipv6_(number % 4 == 3) {
  const std::uint32_t host = number * 0x9e3779b1U % kMost;  // an odd factor: no two numbers share a host
  if (ipv6_) {
    source_ = {0x20, 0x01, 0x0d, 0xb8};
    destination_ = {0x20, 0x01, 0x0d, 0xb8, 0xff};
  } else {
    source_ = {10};
    destination_ = {198, 18};
  }
  std::uint8_t* end = source_.data() + addressBytes();
  end[-3] = static_cast<std::uint8_t>(host >> 16);
  end[-2] = static_cast<std::uint8_t>(host >> 8);
  end[-1] = static_cast<std::uint8_t>(host);
  destination_[addressBytes() - 1] = static_cast<std::uint8_t>(1 + number % 250);
}

std::size_t TrafficFlow::layer4Bytes() const {
  return protocol == kTcp ? 20 : 8;
}

std::string TrafficFlow::text(const std::array<std::uint8_t, 16>& address) const {
  std::array<char, INET6_ADDRSTRLEN> text{};
  ::inet_ntop(ipv6_ ? AF_INET6 : AF_INET, address.data(), text.data(), text.size());
  return text.data();
}

void TrafficFlow::write(std::span<std::uint8_t> frame) const {
  std::fill(frame.begin(), frame.end(), std::uint8_t{0});
  std::copy(kMacs.begin(), kMacs.end(), frame.begin());
  put16(&frame[12], 0x8100);
  put16(&frame[14], vlan);
  put16(&frame[16], ipv6_ ? 0x86dd : 0x0800);
  const std::size_t ipLength = octets(frame.size());
  std::uint8_t* ip = frame.data() + kTagged;
  writeIp(ip, ipLength);
  std::uint8_t* layer4 = ip + ipBytes();
  put16(layer4, sourcePort);
  put16(layer4 + 2, destinationPort);
  if (protocol == kUdp) {
    put16(layer4 + 4, ipLength - ipBytes());
  } else {
    layer4[12] = 0x50;  // header of 20 bytes
    layer4[13] = 0x10;  // ACK: no flow begins or ends
    put16(layer4 + 14, 0xffff);
  }
}

void TrafficFlow::writeIp(std::uint8_t* ip, std::size_t bytes) const {
  if (ipv6_) {
    ip[0] = 0x60;
    put16(ip + 4, bytes - 40);
    ip[6] = protocol;
    ip[7] = 64;
    std::memcpy(ip + 8, source_.data(), 16);
    std::memcpy(ip + 24, destination_.data(), 16);
  } else {
    ip[0] = 0x45;
    put16(ip + 2, bytes);
    ip[8] = 64;
    ip[9] = protocol;
    std::memcpy(ip + 12, source_.data(), 4);
    std::memcpy(ip + 16, destination_.data(), 4);
    put16(ip + 10, headerChecksum(ip));
  }
}

}  // namespace SftBench
