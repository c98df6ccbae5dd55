// Writes one sFlow version 5 datagram after another into one buffer: XDR, big-endian, 4-byte aligned.
//
//   header: version 5, agent address, sub-agent, sequence, uptime, number of samples
//   flow sample: sequence, source, rate, pool, drops, input, output, { sampled header, extended switch }
//   counters sample: sequence, source, { interface counters }
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "sflow/Counters.h"

namespace Sflow {

class DatagramWriter {
 public:
  static constexpr std::size_t kMostBytes = 1400;
  static constexpr std::size_t kMostSamples = 16;         // no datagram holds more flow samples
  static constexpr std::uint32_t kMostHeaderBytes = 128;  // of a sampled packet
  static constexpr std::uint32_t kUnknownInterface = 0;
  static constexpr std::uint32_t kInternalInterface = 0x3fffffff;  // the agent itself
  // The frame check sequence: part of a frame's length, but never among the packet's bytes here.
  static constexpr std::uint32_t kFcsBytes = 4;

  struct FlowSample {
    std::uint32_t sequence = 0;
    std::uint32_t source = 0;  // interface index, up to 2^24 - 1
    std::uint32_t rate = 0;
    std::uint32_t pool = 0;
    std::uint32_t drops = 0;
    std::uint32_t input = kUnknownInterface;
    std::uint32_t output = kUnknownInterface;
    std::uint32_t frameBytes = 0;          // of the packet on the wire, without frame check sequence
    std::span<const std::uint8_t> header;  // its first bytes; what is above kMostHeaderBytes is left out
    std::uint32_t inVlan = 0;
    std::uint32_t inPriority = 0;
    std::uint32_t outVlan = 0;
    std::uint32_t outPriority = 0;
  };
  struct CounterSample {
    std::uint32_t sequence = 0;
    std::uint32_t source = 0;
    IfCounters counters;
  };

  // Throws Kiv::ValueError when the address is neither IPv4 nor IPv6.
  DatagramWriter(std::string_view agentAddress, std::uint32_t subAgentId);

  std::uint32_t samples() const { return samples_; }
  // Whether the sample would still fit in.
  bool fits(const FlowSample& sample) const;
  bool fitsCounters() const;
  // REQUIRES: it fits.
  void add(const FlowSample& sample);
  void add(const CounterSample& sample);
  // Completes the datagram; its bytes are valid until the next add(), which begins the next one.
  std::span<const std::uint8_t> finish(std::uint32_t sequence, std::uint32_t uptimeMilliseconds);

 private:
  void put32(std::uint32_t value);
  void put64(std::uint64_t value);
  void putBytes(std::span<const std::uint8_t> bytes);
  void putPadded(std::span<const std::uint8_t> bytes);

  std::array<std::uint8_t, kMostBytes> buffer_;
  std::size_t used_ = 0;
  std::size_t sequenceAt_ = 0;  // where sequence, uptime and number of samples stand
  std::uint32_t samples_ = 0;
};

}  // namespace Sflow
