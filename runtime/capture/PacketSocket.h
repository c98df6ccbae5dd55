// Frames of one interface: received and sent many at a time, with what the kernel says of their offloads. An
// AF_PACKET socket, promiscuous, that does not hear what this machine sends.
//
// Neighbours: PacketRing.h is what most frames are received through, FrameOffload.h finishes them, LivePort.h
// owns the socket. docs/decisions/0007 says why not libpcap. Threading: one thread.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "Pavo.h"
#include "capture/PacketRing.h"
#include "capture/PortDevice.h"
#include "capture/SocketFrame.h"

namespace Capture {

class PacketSocket {
 public:
  static constexpr std::size_t kMostBurst = PortDevice::kMostBurst;
  static constexpr std::uint32_t kMostFrame = 66 * 1024;  // 64 KB and its headers

  struct Received {
    std::span<SocketFrame> frames;  // valid until the next receive() or open()
    bool more = false;              // there may be frames that no readable descriptor announces
    // Frames that cannot be handed over: longer than kMostFrame, or with an offload that the kernel cannot
    // tell.
    std::uint32_t unusable = 0;
    int error = 0;  // errno; ENETDOWN when the interface went down or away, told once
  };

  PacketSocket();
  ~PacketSocket();
  PacketSocket(const PacketSocket&) = delete;
  PacketSocket& operator=(const PacketSocket&) = delete;

  // Opens the socket on the interface with this index; returns what failed, or an empty text.
  std::string open(unsigned index);
  void close();
  bool isOpen() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }

  // Takes the frames that have come, tags that the kernel took off put back; those that were received before
  // are gone. REQUIRES: isOpen().
  Received receive();
  struct Sent {
    std::bitset<kMostBurst> taken;  // which packets the kernel took
    std::size_t dropped = 0;        // others that the interface or its queue dropped: there was no room
  };
  // Sends packets in their order, without waiting. REQUIRES: isOpen(), at most kMostBurst.
  Sent send(std::span<const Pavo::Pkt> packets);

  // Frames lost since open() because the agent was not there in time to receive them.
  std::uint64_t drops();
  // Bytes of frames that are too long for the ring, or of all where there is none, that the kernel holds for
  // the agent.
  static constexpr int kReceiveBytes = 64 * 1024 * 1024;
  // False: this process has no right to that much, and frames are lost in shorter bursts.
  bool hasReceiveBytes() const { return hasReceiveBytes_; }

 private:
  struct Messages;  // what the system calls read and write
  std::string failed(const char* what);
  Received receiveQueued(std::size_t most);
  int takeError() const;
  SocketFrame frameOf(std::size_t index);  // of what was received from the queue

  int descriptor_ = -1;
  bool hasReceiveBytes_ = false;
  std::uint64_t drops_ = 0;
  std::unique_ptr<Messages> messages_;
  PacketRing ring_;
  std::size_t queued_ = 0;  // frames that the ring says are in the queue
  std::array<SocketFrame, kMostBurst> frames_;
};

}  // namespace Capture
