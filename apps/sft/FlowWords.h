// Flows, states and times in the words of those who operate the switch.
//
//   10.0.0.1:1234 -> 10.0.0.2:80 tcp vlan 10
//   [2001:db8::1]:1234 -> [2001:db8::2]:80 udp vlan 10 vrf 5      the default VRF is not told
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "FlowKey.h"

namespace Sft {

template <class Domain>
std::string flowText(const FlowTracking::FlowKey<Domain>& key);

// "tcp", "udp", or the number.
std::string protocolText(std::uint32_t protocol);
// The number of a protocol that has a name here; nothing when it has none.
std::optional<std::uint32_t> protocolNamed(std::string_view name);

// "ingress", "egress".
std::string directionText(Bridging::AllowedTrafficDirection direction);
std::optional<Bridging::AllowedTrafficDirection> directionNamed(std::string_view name);

// "in hardware", "overflow", ...; "state 7" for one that nobody knows.
std::string stateText(FlowTracking::HoFlowState state);
// The opposite, for the states that have a name; a blank may be written as "-".
std::optional<FlowTracking::HoFlowState> stateNamed(std::string_view name);

// How long ago, in one unit: "42 s", "5 min", "3 h", "9 d". "-" when that cannot be told: the time is not
// set, or lies ahead.
std::string ageText(double time, double now);

}  // namespace Sft
