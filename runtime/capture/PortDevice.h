// What stands behind a port: a capture that is replayed, a live interface, or a capture that is written. The
// agent's loop treats them alike.
//
//   ReplayPort   packets in from a capture file      transmitted packets are dropped, and counted so
//   LivePort     packets in and out of an interface
//   WritePort    no packets in                       transmitted packets are written to a capture file
//
// Threading: the agent's event thread. receive() and transmit() neither throw, block nor allocate.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string>

#include "Pavo.h"

namespace Capture {

struct ReceivedPacket {
  Pavo::Pkt pkt;            // its bytes are valid until the next receive() of the same device
  std::int64_t timeNs = 0;  // when it was captured: nanoseconds since 1970
};

// Counted since the device was opened. Bytes are wire lengths. Drops: packets lost before they could be
// received, or that could not be transmitted.
struct PortCounts {
  std::uint64_t packetsIn = 0;
  std::uint64_t bytesIn = 0;
  std::uint64_t dropsIn = 0;
  std::uint64_t packetsOut = 0;
  std::uint64_t bytesOut = 0;
  std::uint64_t dropsOut = 0;
};

// What was done for senders that leave work to their network card. Counted since the device was opened.
struct OffloadCounts {
  std::uint64_t checksumsCompleted = 0;  // packets
  std::uint64_t framesCut = 0;           // that came as one, and ...
  std::uint64_t packetsCut = 0;          // ... the packets that they were cut into
  std::uint64_t framesUnusable = 0;      // lost, and counted as drops: nothing can be made of them
};

enum class PortKind : std::uint8_t { capture, device, write };
// "capture", "device", "write": as the configuration names them.
std::string_view stringValue(PortKind kind);

enum class ReplayState : std::uint8_t { none, running, finished, damaged };
// "running", "finished" or "damaged"; empty for none, the state of a port that replays nothing.
std::string_view stringValue(ReplayState state);

class PortDevice {
 public:
  static constexpr std::size_t kMostBurst = 32;  // packets of one receive()
  static constexpr double kNever = std::numeric_limits<double>::infinity();

  PortDevice() = default;
  PortDevice(const PortDevice&) = delete;
  PortDevice& operator=(const PortDevice&) = delete;
  virtual ~PortDevice() = default;

  virtual PortKind kind() const = 0;
  // Takes the packets that have come, at most as many as there is room for, and gives their number. The time
  // is the caller's clock in UTC seconds.
  virtual std::size_t receive(std::span<ReceivedPacket> room, double now) = 0;
  // Takes a packet to be sent with the next send(), or writes it with the given time in UTC seconds. Its
  // bytes must stay until then. What cannot be sent is counted as a drop.
  virtual void transmit(const Pavo::Pkt& pkt, double now) = 0;
  // Sends what transmit() took. To be called behind each burst.
  virtual void send() {}

  // Becomes readable when packets have come; -1: there is nothing to wait on. It is another one whenever
  // descriptorChanges() has changed.
  virtual int descriptor() const { return -1; }
  virtual std::uint64_t descriptorChanges() const { return 0; }
  // When receive() is worth calling without its descriptor having become readable: UTC seconds, a time that
  // has passed for now, kNever for not at all. To be asked after each receive().
  virtual double nextReceive() const { return kNever; }

  // Hands buffered output to the file. Called when the agent has nothing better to do, and at the end.
  virtual void flush() {}
  // Brings up to date what costs a system call: packets that the interface lost, and whether it is up.
  virtual void refresh() {}
  const PortCounts& counts() const { return counts_; }

  virtual ReplayState replayState() const { return ReplayState::none; }
  // How much of the capture has been read: 0 to 1; 0 when its size cannot be told, as that of a pipe.
  virtual double replayed() const { return 0; }
  // A held replay gives no packets. To be held before its first packet: its pace counts from that one.
  virtual void replayHeldIs(bool /*held*/) {}
  // Whether packets can pass at present. A live interface that is down comes back by itself.
  virtual bool up() const { return true; }
  // What is wrong at present: with a damaged capture, where the damage is. Empty when nothing is.
  const std::string& error() const { return error_; }
  // What an operator should know although packets pass; empty when nothing.
  const std::string& note() const { return note_; }
  // Null for a device that has no part in offloads.
  virtual const OffloadCounts* offloads() const { return nullptr; }

 protected:
  void countIn(const Pavo::Pkt& pkt) {
    ++counts_.packetsIn;
    counts_.bytesIn += pkt.wireLength();
  }
  void countOut(const Pavo::Pkt& pkt) {
    ++counts_.packetsOut;
    counts_.bytesOut += pkt.wireLength();
  }

  PortCounts counts_;
  std::string error_;
  std::string note_;
};

}  // namespace Capture
