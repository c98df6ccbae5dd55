// A frame read plainly, from its first byte to its ports, without the parser: the other opinion of a fuzz
// target.
#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <vector>

namespace FuzzSupport {

struct NaiveFlow {
  bool v6 = false;
  std::uint16_t vlan = 0;
  std::array<std::uint8_t, 32> addresses{};  // source, then destination
  std::uint8_t protocol = 0;
  std::uint16_t srcPort = 0, dstPort = 0;
  auto operator<=>(const NaiveFlow&) const = default;
};

struct NaivePacket {
  bool tagged = false;
  bool ip = false;
  bool v6 = false;
  std::uint32_t ipBytes = 0;      // by the header's own length field
  std::optional<NaiveFlow> flow;  // of TCP and UDP

  NaivePacket() = default;
  NaivePacket(const std::vector<std::uint8_t>& frame, std::uint16_t portVlan) {
    const auto at16 = [&](std::size_t at) {
      return static_cast<std::uint16_t>(frame[at] << 8 | frame[at + 1]);
    };
    if (frame.size() < 14) return;
    NaiveFlow found;
    found.vlan = portVlan;
    std::size_t at = 12;  // of the type
    while ((at16(at) == 0x8100 || at16(at) == 0x88a8) && frame.size() >= at + 6) {
      if (!tagged) found.vlan = at16(at + 2) & 0xfff;
      tagged = true;
      at += 4;
    }
    const std::uint16_t type = at16(at);
    at += 2;
    const std::size_t left = frame.size() - at;
    std::size_t header = 0, end = 0;  // within the IP packet
    if (type == 0x0800 && left >= 20 && frame[at] >> 4 == 4) {
      header = (frame[at] & 15U) * 4U;
      const std::uint16_t total = at16(at + 2);
      if (header < 20 || header > left || (total != 0 && total < header)) return;
      ip = true;
      ipBytes = total;
      if ((at16(at + 6) & 0x1fff) != 0) return;
      end = total == 0 ? left : std::min<std::size_t>(total, left);
      found.protocol = frame[at + 9];
      std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(at) + 12, 8, found.addresses.begin());
    } else if (type == 0x86dd && left >= 40 && frame[at] >> 4 == 6) {
      ip = v6 = found.v6 = true;
      header = 40;
      const std::uint16_t payload = at16(at + 4);
      ipBytes = 40U + payload;
      end = payload == 0 ? left : std::min<std::size_t>(40U + payload, left);
      found.protocol = frame[at + 6];
      std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(at) + 8, 32, found.addresses.begin());
    } else {
      return;
    }
    const std::size_t needed = found.protocol == 6 ? 20 : found.protocol == 17 ? 8 : 0;
    if (needed == 0 || end - header < needed) return;
    found.srcPort = at16(at + header);
    found.dstPort = at16(at + header + 2);
    flow = found;
  }
};

}  // namespace FuzzSupport
