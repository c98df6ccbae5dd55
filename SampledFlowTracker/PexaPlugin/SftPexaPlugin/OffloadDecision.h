// Whether a packet belongs to a flow that is in hardware: if so it is counted here and withheld from
// sampling.
//
//   parse -> IPv4 or IPv6, enabled? -> TCP or UDP? -> key -> shared status table -> in hardware? -> local
//   counter
//
// Every outcome but the silent ones is a reason counted on the packet's named counters ("Action" or "Drop",
// "Sft") and a trace. Neighbours: SamplerSteps.h calls this for each packet that was not made ready in a
// burst; the state machine writes the status table. Threading: the agent's event thread. Nothing is allocated
// but a flow's first counter record, and the text of a trace that is on.
#pragma once

#include "HoFlowStatus.h"
#include "OffloadCandidate.h"
#include "PexaPacket.h"
#include "PexaSftHoCounterCollection.h"

namespace SampledFlowTracker {

// True: the packet's flow is in hardware, and the packet has been counted. The interface is that of an egress
// flow; for ingress it is ignored, and the packet's input port decides. The flags say which families are
// offloaded.
//
// Throws std::range_error when the packet of an offloaded family has no VLAN id. A TCP or UDP packet of such
// a family without an interface is a programming error and stops the process.
bool maybeOffloadCommon(const Kiv::Ptr<const FlowTracking::HoFlowStatus>& hoFlowStatus,
                        const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& localHoCounters,
                        Pexa::PacketContext pktCtx, Bridging::AllowedTrafficDirection direction,
                        const Pavo::IntfId& intfId, bool hwOffloadIpv4, bool hwOffloadIpv6);

// The same for a packet whose first IP header is of this family (Pavo::Traits::IPv4, Pavo::Traits::IPv6).
template <class Domain>
bool maybeOffloadIp(const Kiv::Ptr<const FlowTracking::HoFlowStatus>& hoFlowStatus,
                    const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& localHoCounters,
                    const Pexa::PacketHeader& ipHeader, Pexa::PacketContext pktCtx,
                    Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId);

}  // namespace SampledFlowTracker
