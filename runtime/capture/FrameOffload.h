// Finishes what a sending kernel left to its network card. A frame that never reached a card, on a veth or
// behind large receive, comes without its checksum, or as one frame of up to 64 KB that the card would have
// cut into packets. Here it becomes what would have been on the wire.
//
//   checksum   anything whose checksum is a sum; not SCTP's
//   cut        TCP and UDP straight over IPv4 or IPv6, extension headers and tags between
//
// Neighbours: PacketSocket.h reads these frames, LivePort.h hands out the packets. Threading: none of its
// own.
#pragma once

#include <cstdint>

#include "capture/InternetChecksum.h"

namespace Capture {

// What is undone in a frame.
struct FrameOffload {
  enum class Cut : std::uint8_t { none, tcpOverIpv4, tcpOverIpv6, udp, unknown };

  bool checksumMissing = false;      // the field holds the sum of the pseudo header
  std::uint32_t checksumStart = 0;   // first byte that the checksum covers; it covers all from there on
  std::uint32_t checksumOffset = 0;  // from there to the field
  Cut cut = Cut::none;
  std::uint32_t cutBytes = 0;  // payload of each packet, the last one may have less
};

// Writes the missing checksum. False, and the frame is as it was, when that cannot be done: the field lies
// outside the frame, or it is SCTP's, a CRC.
bool completeChecksum(std::uint8_t* frame, std::uint32_t length, const FrameOffload& offload);

// Cuts one frame into packets.
class FrameCutter {
 public:
  // Takes a frame; false when it cannot be cut. REQUIRES: a kind of cut. The bytes stay until the last
  // packet.
  bool frameIs(const std::uint8_t* frame, std::uint32_t length, const FrameOffload& offload);
  bool more() const { return at_ < length_; }
  // Length of the next packet. REQUIRES: more().
  std::uint32_t nextLength() const;
  // Writes the next packet to `room`, with its own lengths, identification, sequence number, flags and
  // checksums. REQUIRES: more(), and room for nextLength() bytes.
  void next(std::uint8_t* room);

 private:
  bool findHeaders(const FrameOffload& offload);
  void finishIp(std::uint8_t* packet, std::uint32_t length) const;
  void finishTcp(std::uint8_t* packet, std::uint32_t length) const;
  void finishUdp(std::uint8_t* packet, std::uint32_t length) const;
  InternetChecksum pseudoHeader(const std::uint8_t* packet, std::uint32_t length) const;

  const std::uint8_t* frame_ = nullptr;
  std::uint32_t length_ = 0;
  std::uint32_t cutBytes_ = 0;
  bool ipv6_ = false;
  std::uint8_t protocol_ = 0;
  std::uint32_t ip_ = 0;       // offset of the IP header
  std::uint32_t layer4_ = 0;   // and of TCP's or UDP's
  std::uint32_t payload_ = 0;  // and of what is cut
  std::uint32_t at_ = 0;       // what comes next
};

}  // namespace Capture
