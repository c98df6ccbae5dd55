// Holds the bytes of one burst in place: allocated once, refilled for every burst.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "Pavo.h"

namespace Capture {

class PacketBuffer {
 public:
  static constexpr std::uint32_t kMostPacket = 256 * 1024;  // captured bytes of one packet
  static constexpr std::size_t kBytes = 1024 * 1024;

  PacketBuffer() : bytes_(new std::uint8_t[kBytes]) {}

  void clear() { used_ = 0; }
  // Always so for the first packet of a burst.
  bool fits(const Pavo::Pkt& pkt) const {
    return kBytes - used_ >= std::min(pkt.capturedLength(), kMostPacket);
  }
  // A copy that stays until clear(); bytes behind kMostPacket are cut off. REQUIRES: it fits.
  Pavo::Pkt copy(const Pavo::Pkt& pkt) {
    const std::uint32_t length = std::min(pkt.capturedLength(), kMostPacket);
    std::uint8_t* at = bytes_.get() + used_;
    if (length != 0) std::memcpy(at, pkt.front(), length);
    used_ += std::min<std::size_t>((length + kAlign - 1) / kAlign * kAlign, kBytes - used_);
    return {at, length, pkt.wireLength()};
  }

 private:
  static constexpr std::size_t kAlign = 64;  // a packet's headers lie in few cache lines
  std::unique_ptr<std::uint8_t[]> bytes_;
  std::size_t used_ = 0;
};

}  // namespace Capture
