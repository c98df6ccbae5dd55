// Holds the bytes of one burst in place: taken once, refilled for every burst, from its beginning. Only what
// a burst has ever filled is resident.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "Pavo.h"
#include "capture/PortDevice.h"

namespace Capture {

class PacketBuffer {
 public:
  static constexpr std::uint32_t kMostPacket = 256 * 1024;  // captured bytes of one packet

  PacketBuffer() : bytes_(new std::uint8_t[PortDevice::kMostBurst * kMostPacket]) {}

  void clear() { used_ = 0; }
  // A copy that stays until clear(); captured bytes behind kMostPacket are cut off.
  // REQUIRES: fewer than kMostBurst packets since clear().
  Pavo::Pkt copy(const Pavo::Pkt& pkt) {
    const std::uint32_t length = std::min(pkt.capturedLength(), kMostPacket);
    std::uint8_t* at = take(length);
    if (length != 0) std::memcpy(at, pkt.front(), length);
    return {at, length, pkt.wireLength()};
  }
  // Room for a packet, that stays until clear(). REQUIRES: as copy(), at most kMostPacket bytes.
  std::uint8_t* take(std::uint32_t length) {
    std::uint8_t* at = bytes_.get() + used_;
    used_ += (length + kAlign - 1) / kAlign * kAlign;
    return at;
  }

 private:
  static constexpr std::size_t kAlign = 64;  // a packet's headers lie in few cache lines
  static_assert(kMostPacket % kAlign == 0);
  std::unique_ptr<std::uint8_t[]> bytes_;
  std::size_t used_ = 0;
};

}  // namespace Capture
