// Packets for the agent's loop, from no device: ports that always have a burst, or as many as a rate brings.
#pragma once

#include <algorithm>
#include <functional>
#include <vector>

#include "Measure.h"
#include "PacketBuilder.h"
#include "capture/PortDevice.h"

namespace SftBench {

// How packets come. Times are the processor's: a loop that is not given one neither gets packets nor is late.
struct Load {
  double rate = 0;  // packets a second; 0: a full burst whenever it is asked
  // Seconds that a packet costs beside the agent's own work, as on a live port the kernel's two copies do.
  double device = 0;
  // Packets that can wait, as in a live port's receive buffer. What comes beyond is dropped.
  std::uint64_t room = 16384;
};

// The receiving port. Notes when it was asked.
class LoadPort : public Capture::PortDevice {
 public:
  // `enough` is asked with each burst; the port says `stop` with the first that comes after it said yes.
  LoadPort(const std::vector<TestSupport::Packet>& packets, const Load& load, std::function<bool()> enough,
           std::function<void()> stop)
      : packets_(packets), load_(load), enough_(std::move(enough)), stop_(std::move(stop)) {}

  Capture::PortKind kind() const override { return Capture::PortKind::device; }
  std::size_t receive(std::span<Capture::ReceivedPacket> room, double /*now*/) override {
    const Seconds now = Seconds::now();
    if (asked_++ == 0) {
      start_ = now;
    } else {
      waits_.push_back(now - last_);
    }
    if (enough_()) stop_();  // after this burst: a turn without packets would sleep
    last_ = now;
    const std::size_t count = std::min<std::uint64_t>(room.size(), waiting(now));
    for (Capture::ReceivedPacket& each : room.first(count)) {
      each.pkt = packets_[at_].pkt();
      at_ = (at_ + 1) % packets_.size();
      countIn(each.pkt);
    }
    taken_ += count;
    spend(now, load_.device * static_cast<double>(count));
    return count;
  }
  void transmit(const Pavo::Pkt&, double /*now*/) override {}
  // From one question to the next.
  std::vector<Seconds>& waits() { return waits_; }
  std::uint64_t dropped() const { return dropped_; }
  // Packets a second of the processor's time.
  double carried() const { return static_cast<double>(taken_) / (last_ - start_).cpu; }

 private:
  std::uint64_t waiting(const Seconds& now) {
    if (load_.rate == 0) return packets_.size();
    const auto come = static_cast<std::uint64_t>((now - start_).cpu * load_.rate);
    const std::uint64_t kept = come - dropped_ - taken_;
    if (kept > load_.room) dropped_ += kept - load_.room;
    return std::min(kept, load_.room);
  }
  static void spend(const Seconds& from, double seconds) {
    while (seconds > 0 && (Seconds::now() - from).cpu < seconds) continue;
  }

  const std::vector<TestSupport::Packet>& packets_;
  const Load load_;
  std::function<bool()> enough_;
  std::function<void()> stop_;
  std::vector<Seconds> waits_;
  Seconds start_;
  Seconds last_;
  std::uint64_t asked_ = 0;
  std::uint64_t taken_ = 0;
  std::uint64_t dropped_ = 0;
  std::size_t at_ = 0;
};

class Sink : public Capture::PortDevice {
 public:
  Capture::PortKind kind() const override { return Capture::PortKind::device; }
  std::size_t receive(std::span<Capture::ReceivedPacket> /*room*/, double /*now*/) override { return 0; }
  void transmit(const Pavo::Pkt& pkt, double /*now*/) override { countOut(pkt); }
};

}  // namespace SftBench
