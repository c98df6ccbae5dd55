// What the exporter asks its owner for: the counters of the agent's ports.
#pragma once

#include <cstdint>

namespace Sflow {

// The interface counters of one port, as RFC 2863 defines them; all ones where a counter is not kept.
struct IfCounters {
  static constexpr std::uint32_t kNotKept = 0xffffffff;
  static constexpr std::uint32_t kEthernetCsmacd = 6;

  std::uint32_t ifType = kEthernetCsmacd;
  std::uint64_t ifSpeed = 0;      // bits per second; 0 unknown
  std::uint32_t ifDirection = 1;  // 0 unknown, 1 full duplex, 2 half duplex, 3 in, 4 out
  bool adminUp = true;
  bool operUp = true;
  std::uint64_t ifInOctets = 0;
  std::uint32_t ifInUcastPkts = 0;
  std::uint32_t ifInMulticastPkts = kNotKept;
  std::uint32_t ifInBroadcastPkts = kNotKept;
  std::uint32_t ifInDiscards = kNotKept;
  std::uint32_t ifInErrors = kNotKept;
  std::uint32_t ifInUnknownProtos = kNotKept;
  std::uint64_t ifOutOctets = 0;
  std::uint32_t ifOutUcastPkts = 0;
  std::uint32_t ifOutMulticastPkts = kNotKept;
  std::uint32_t ifOutBroadcastPkts = kNotKept;
  std::uint32_t ifOutDiscards = kNotKept;
  std::uint32_t ifOutErrors = kNotKept;
  std::uint32_t ifPromiscuousMode = kNotKept;
};

class CounterSource {
 public:
  virtual ~CounterSource() = default;
  // The ports have the indices 0 to one less than this.
  virtual std::uint32_t ports() const = 0;
  virtual IfCounters ifCounters(std::uint32_t portIndex) const = 0;
};

}  // namespace Sflow
