// A port that replays a capture file.
#pragma once

#include <cstdint>
#include <string>

#include "capture/CaptureReader.h"
#include "capture/PortDevice.h"

namespace Capture {

// fast: a packet is due as soon as it is asked for. recorded: at the distance from the first one that it was
// captured with.
enum class Pace : std::uint8_t { fast, recorded };

class ReplayPort : public PortDevice {
 public:
  // A silence in the capture that is longer is replayed as this long: damaged and joined captures have
  // silences of years. Where time runs backwards, the next packet is due at once.
  static constexpr double kLongestSilence = 60.0;

  // Throws CaptureError as CaptureReader does. The replay starts with the first receive() while it is not
  // held.
  ReplayPort(std::string path, Pace pace);

  PortKind kind() const override { return PortKind::capture; }
  std::size_t receive(std::span<ReceivedPacket> room, double now) override;
  void transmit(const Pavo::Pkt& pkt, double now) override;
  double nextReceive() const override;
  ReplayState replayState() const override { return state_; }
  double replayed() const override { return reader_.read(); }
  void replayHeldIs(bool held) override { held_ = held; }

 private:
  std::size_t receiveDue(std::span<ReceivedPacket> room, double now);
  std::size_t receiveAll(std::span<ReceivedPacket> room);
  bool fetch(bool beside);
  bool read(ReceivedPacket& packet, bool beside);

  CaptureReader reader_;
  ReceivedPacket pending_;  // at recorded pace: read, and not due yet
  Pace pace_;
  bool havePending_ = false;
  bool started_ = false;
  bool held_ = false;
  double due_ = 0;           // of the pending packet, at recorded pace
  std::int64_t lastNs_ = 0;  // capture time of the packet before it
  ReplayState state_ = ReplayState::running;
};

}  // namespace Capture
