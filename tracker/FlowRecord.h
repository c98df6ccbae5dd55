// What is told to collectors of a flow: one stretch of time of one wanted offload.
#pragma once

#include <cstdint>

#include "FlowCounts.h"
#include "FlowKey.h"

namespace Tracker {

// Why a record was closed, by the numbers of IPFIX's flowEndReason.
enum class EndReason : std::uint8_t {
  idleTimeout = 1,    // the flow stood still
  activeTimeout = 2,  // the flow goes on
  forcedEnd = 4,      // this process ends
};

template <class Domain>
struct FlowRecord {
  FlowTracking::HoFlowKey<Domain> key;
  std::uint32_t input = 0;  // interface indexes; 0 unknown
  std::uint32_t output = 0;
  FlowCounts counts;  // exact when no samples stand behind them
  EndReason reason = EndReason::activeTimeout;
};

// Takes records. REQUIRES of an implementation: it does not wait and does not throw.
class RecordSink {
 public:
  virtual ~RecordSink() = default;
  virtual void record(const FlowRecord<Pavo::Traits::IPv4>& record) = 0;
  virtual void record(const FlowRecord<Pavo::Traits::IPv6>& record) = 0;
};

}  // namespace Tracker
