// A frame as a packet socket hands it over, and what the kernel says of it.
//
// Neighbours: PacketSocket.h and PacketRing.h take frames from the kernel, FrameOffload.h finishes them.
#pragma once

#include <cstdint>

#include "capture/FrameOffload.h"

namespace Capture {

struct SocketFrame {
  std::uint8_t* bytes = nullptr;  // may be written to
  std::uint32_t length = 0;
  FrameOffload offload;
};

// Stands before each frame, in both directions: struct virtio_net_hdr, whose header is not for C++. Numbers
// are in this machine's byte order.
struct OffloadHeader {
  static constexpr std::uint8_t kNeedsChecksum = 1;  // of flags
  enum Kind : std::uint8_t { kNone = 0, kTcpOverIpv4 = 1, kTcpOverIpv6 = 4, kUdp = 5, kEcn = 0x80 };

  std::uint8_t flags = 0;
  std::uint8_t kind = kNone;
  std::uint16_t headerBytes = 0;
  std::uint16_t cutBytes = 0;
  std::uint16_t checksumStart = 0;
  std::uint16_t checksumOffset = 0;
};
static_assert(sizeof(OffloadHeader) == 10);

FrameOffload offloadOf(const OffloadHeader& header);

constexpr std::uint32_t kTagBytes = 4;
// The kernel's word on a tag that it took off: TP_STATUS_VLAN_…, its type and its contents.
struct TakenTag {
  std::uint32_t status;
  std::uint16_t kind;
  std::uint16_t contents;
};
// Puts the tag back, when there was one, as it was on the wire. REQUIRES: kTagBytes before the frame that may
// be written to, and an Ethernet header.
void putBack(const TakenTag& tag, SocketFrame& frame);

}  // namespace Capture
