// What was counted of a flow, and when.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Tracker {

// Packets and octets of a stretch of time. Sums that would not fit stay at the largest number.
struct FlowCounts {
  std::uint64_t packets = 0;
  std::uint64_t octets = 0;
  std::uint64_t samples = 0;  // that packets and octets were scaled up from; 0: they are exact
  std::uint32_t rate = 0;     // of the latest sample
  double start = 0;           // UTC seconds
  double end = 0;

  bool empty() const { return packets == 0; }
  void add(std::uint64_t morePackets, std::uint64_t moreOctets, double from, double to) {
    if (empty()) start = from;
    packets = sum(packets, morePackets);
    octets = sum(octets, moreOctets);
    end = std::max(end, to);
  }
  // One sampled packet, that stands for `sampleRate` packets of its size.
  void addSample(std::uint64_t packetOctets, std::uint32_t sampleRate, double now) {
    add(sampleRate, product(packetOctets, sampleRate), now, now);
    ++samples;
    rate = sampleRate;
  }

 private:
  static constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  static std::uint64_t sum(std::uint64_t left, std::uint64_t right) {
    return left > kMost - right ? kMost : left + right;
  }
  static std::uint64_t product(std::uint64_t left, std::uint64_t right) {
    return right != 0 && left > kMost / right ? kMost : left * right;
  }
};

}  // namespace Tracker
