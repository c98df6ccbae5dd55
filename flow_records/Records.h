// The records of the shared tables, each with its own key as first member.
//
// Records are the bytes of the files: trivially copyable, padding declared (reserved members are 0).
// Threading: plain values. Times are UTC seconds as Kiv::System::currentTimeUtc() gives them.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "FlowKey.h"

namespace FlowTracking {

// Wants one flow in hardware. The state machine looks only at its presence; the rest passes through
// untouched.
template <class Domain>
struct HoFlowConfigRecord {
  using Key = HoFlowKey<Domain>;
  static constexpr std::string_view kTypeName = IpFamily<Domain>::kConfigType;

  Key key;
  double requestTime = 0;  // when the offload was asked for; 0: not told

  bool operator==(const HoFlowConfigRecord&) const = default;
};

// What became of a wanted offload.
template <class Domain>
struct HoFlowStatusRecord {
  using Key = HoFlowKey<Domain>;
  static constexpr std::string_view kTypeName = IpFamily<Domain>::kStatusType;

  Key key;
  HoFlowState state = HoFlowState::none;
  std::array<std::uint8_t, 7> reserved{};
  double creationTime = 0;    // of the last change of the state
  double lastUpdateTime = 0;  // the same

  bool operator==(const HoFlowStatusRecord&) const = default;
};

// What was counted of a flow, over all directions and interfaces.
template <class Domain>
struct HoFlowCounterRecord {
  using Key = FlowKey<Domain>;
  static constexpr std::string_view kTypeName = IpFamily<Domain>::kCounterType;

  Key key;
  Pavo::IntfId intfId;  // of the last counted packet
  std::uint8_t reserved = 0;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  double creationTime = 0;
  double lastUpdateTime = 0;
  std::uint32_t hosEntries = 0;  // references of the wanted offloads that share this flow
  std::uint32_t reserved2 = 0;

  bool operator==(const HoFlowCounterRecord&) const = default;
};

// How many flows of one family have a status of one state.
struct HosStateCounterEntry {
  using Key = HosStateCounterKey;
  static constexpr std::string_view kTypeName = "FlowTracking::HosStateCounterEntry";

  Key key;
  std::array<std::uint8_t, 3> reserved{};
  std::uint32_t count = 0;

  bool operator==(const HosStateCounterEntry&) const = default;
};

using HoIpFlowConfig = HoFlowConfigRecord<Pavo::Traits::IPv4>;
using HoIp6FlowConfig = HoFlowConfigRecord<Pavo::Traits::IPv6>;
using HoIpFlowStatus = HoFlowStatusRecord<Pavo::Traits::IPv4>;
using HoIp6FlowStatus = HoFlowStatusRecord<Pavo::Traits::IPv6>;
using HoIpFlowCounter = HoFlowCounterRecord<Pavo::Traits::IPv4>;
using HoIp6FlowCounter = HoFlowCounterRecord<Pavo::Traits::IPv6>;

// For traces: "HoIpFlowStatus( key, state, times )", members in their order.
template <class Domain>
std::ostream& operator<<(std::ostream& out, const HoFlowConfigRecord<Domain>& record);
template <class Domain>
std::ostream& operator<<(std::ostream& out, const HoFlowStatusRecord<Domain>& record);
template <class Domain>
std::ostream& operator<<(std::ostream& out, const HoFlowCounterRecord<Domain>& record);
std::ostream& operator<<(std::ostream& out, const HosStateCounterEntry& record);

static_assert(sizeof(HoIpFlowConfig) == 56 && sizeof(HoIp6FlowConfig) == 80);
static_assert(sizeof(HoIpFlowStatus) == 72 && sizeof(HoIp6FlowStatus) == 96);
static_assert(sizeof(HoIpFlowCounter) == 88 && sizeof(HoIp6FlowCounter) == 112);
static_assert(sizeof(HosStateCounterEntry) == 8);

}  // namespace FlowTracking
