// The receiving side of a packet socket as memory that is shared with the kernel: a slot a frame, taken and
// given back without a system call. The kernel copies a frame on the processor of whoever sent it, which
// leaves the agent's with two thirds of what a packet cost it. docs/decisions/0011 says why slots and not
// blocks.
//
// A frame that is longer than a slot, one that the sender's card would have cut among them, comes in order
// through the socket's queue: its slot only says so.
//
// Neighbours: PacketSocket.h owns the ring and reads the queue. Threading: one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "capture/SocketFrame.h"

struct tpacket2_hdr;

namespace Capture {

class PacketRing {
 public:
  // A packet of 1518 bytes, its tags and the kernel's header. Not a power of two: the headers of a burst
  // would compete for the same lines of the cache.
  static constexpr std::uint32_t kSlotBytes = 1664;
  static constexpr std::uint32_t kBlockBytes = 1024 * 1024;  // the kernel's memory is in one piece so far
  static constexpr std::uint32_t kBlocks = 32;  // 20,000 frames: a tenth of a second at 200,000 a second

  PacketRing() = default;
  ~PacketRing() { close(); }
  PacketRing(const PacketRing&) = delete;
  PacketRing& operator=(const PacketRing&) = delete;

  // REQUIRES: a socket that hands over OffloadHeader and is not bound yet. What failed, or an empty text.
  std::string open(int descriptor);
  // Frames that were taken are gone.
  void close();
  bool isOpen() const { return memory_ != nullptr; }

  struct Taken {
    std::size_t frames = 0;
    std::uint32_t unusable = 0;  // no Ethernet header, or longer than a slot while the queue was full
  };
  // The frames that have come, up to the first one that is in the queue. They stay until giveBack().
  Taken take(std::span<SocketFrame> room);
  // How many of the next frames are in the queue; at most so many are taken off the ring.
  std::size_t takeQueued(std::size_t most);
  void giveBack();
  // Whether another frame has come.
  bool more() const { return filled(*slot(next_)); }

 private:
  static constexpr std::uint32_t kSlotsPerBlock = kBlockBytes / kSlotBytes;
  static constexpr std::uint32_t kSlots = kSlotsPerBlock * kBlocks;
  tpacket2_hdr* slot(std::uint32_t number) const;
  static bool filled(tpacket2_hdr& header);
  bool readFrame(tpacket2_hdr& header, SocketFrame& frame) const;
  void advance();

  std::uint8_t* memory_ = nullptr;
  std::uint32_t next_ = 0;   // slot
  std::uint32_t taken_ = 0;  // slots before it that are not given back
};

}  // namespace Capture
