// States of an offloaded flow, and the kinds of flow tracking.
#pragma once

#include <cstdint>
#include <ostream>

namespace FlowTracking {

// Where a flow that is wanted in hardware stands. One byte; stands in shared memory.
enum class HoFlowState : std::uint8_t {
  none = 0,        // a record that was never written
  pending = 1,     // wanted, not decided yet; nobody in this system writes it
  inHardware = 2,  // in the hardware flow table: counted, no longer sampled
  overflow = 3,    // held back, because the hardware flow table is full
};
inline std::ostream& operator<<(std::ostream& out, HoFlowState state) {
  return out << unsigned(state);
}

enum class FlowTrackingType : std::uint32_t { none = 0, sampled = 1 };

}  // namespace FlowTracking
