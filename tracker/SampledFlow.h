// The flow of a sample: which wanted offload would keep such packets from being sampled.
//
// The header is read by the forwarding agent's own parser, so that both agree on what a flow is, what its
// VLAN is (the first tag's, else the one that the agent tells, else the configured one), and that only TCP
// and UDP make flows. A sample without a header is taken from what its agent read of it.
//
// The direction: a source that is the sample's input samples what comes in, one that is its output what goes
// out. A packet that goes out where it came in is taken as coming in.
#pragma once

#include <cstdint>
#include <string_view>
#include <variant>

#include "FlowKey.h"
#include "Interfaces.h"
#include "SflowDecoder.h"

namespace Tracker {

template <class Domain>
struct SampledFlow {
  FlowTracking::HoFlowKey<Domain> key;
  std::uint64_t octets = 0;  // of the IP packet
  std::uint32_t rate = 1;    // packets that the sample stands for; at least 1
  std::uint32_t input = 0;   // interface indexes; 0 unknown
  std::uint32_t output = 0;
};

// Why a sample has no flow.
enum class NoFlow : std::uint8_t {
  noHeader,          // neither a header nor addresses were sampled
  otherHeader,       // a header that begins neither with Ethernet nor with IP
  notIp,             // or malformed, or behind something that is not looked through
  notTcpUdp,         // or cut off before the ports, or a later fragment
  noDirection,       // the source is neither input nor output, or no interface
  unknownInterface,  // its index is not configured
};
inline constexpr std::size_t kNoFlows = 6;
std::string_view nameOf(NoFlow reason);

using FlowOrReason = std::variant<NoFlow, SampledFlow<Pavo::Traits::IPv4>, SampledFlow<Pavo::Traits::IPv6>>;

// REQUIRES: the bytes of the sample's datagram are there.
FlowOrReason flowOf(const FlowSample& sample, const AgentAddress& agent, Interfaces& interfaces);

}  // namespace Tracker
