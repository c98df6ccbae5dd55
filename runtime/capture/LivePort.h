// A port on a Linux interface (AF_PACKET, promiscuous).
//
// A packet is delivered as it was on the wire, or as it would have been: a VLAN tag that the kernel took off
// is put back, a checksum that was left to the network card is written, and a frame that the card would have
// cut comes as the packets that it holds, each of them counted. Packets that this machine sends on the
// interface, this port's own among them, are not received.
//
// An interface may go down, away, and come back: the port goes on with whatever has its name.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "capture/FrameOffload.h"
#include "capture/NetInterface.h"
#include "capture/PacketBuffer.h"
#include "capture/PacketSocket.h"
#include "capture/PortDevice.h"

namespace Capture {

class LivePort : public PortDevice {
 public:
  static constexpr double kLookSeconds = 0.25;  // between two looks at the interface

  // Throws CaptureError when there is no such interface, it is not Ethernet, or this process may not use it.
  // An interface that is down is no error: the port waits for it.
  explicit LivePort(std::string interface);

  PortKind kind() const override { return PortKind::device; }
  std::size_t receive(std::span<ReceivedPacket> room, double now) override;
  void transmit(const Pavo::Pkt& pkt, double now) override;
  void send() override;
  // Changes when the interface went away and came back.
  int descriptor() const override { return socket_.descriptor(); }
  std::uint64_t descriptorChanges() const override { return descriptorChanges_; }
  double nextReceive() const override { return more_ ? 0.0 : nextLook_; }
  void refresh() override;
  bool up() const override { return error_.empty(); }
  const OffloadCounts* offloads() const override { return &offloads_; }

 private:
  bool open();
  void look(double now);
  void closed();
  bool next(Pavo::Pkt& pkt);
  bool begin(SocketFrame& frame);
  void unusable(std::uint64_t frames);
  std::uint64_t droppedOut() const;
  bool undelivered() const { return cutter_.more() || nextFrame_ != received_.frames.size(); }

  NetInterface interface_;
  PacketSocket socket_;
  unsigned index_ = 0;  // of the interface that the socket is on
  std::uint64_t descriptorChanges_ = 0;
  double nextLook_ = 0;  // UTC seconds

  PacketSocket::Received received_;  // frames not all of which are delivered yet
  std::size_t nextFrame_ = 0;
  FrameCutter cutter_;  // of the frame before nextFrame_, while it has more
  PacketBuffer cut_;    // its packets, of one burst
  bool more_ = false;

  std::array<Pavo::Pkt, kMostBurst> queue_;  // taken by transmit()
  std::size_t queued_ = 0;

  OffloadCounts offloads_;
  std::uint64_t lostIn_ = 0;          // by sockets before this one, and unusable frames
  std::uint64_t refused_ = 0;         // packets that the kernel did not take
  std::uint64_t dropped_ = 0;         // and those that it told to be dropped by this interface
  std::uint64_t lostOut_ = 0;         // dropped by interfaces before this one after they had taken them
  std::uint64_t dropsOutAtOpen_ = 0;  // of the interface
};

}  // namespace Capture
