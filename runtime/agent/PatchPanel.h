// Moves packets: a burst comes in on a port, goes through the input pipeline, and leaves, through the output
// pipeline, on the port that the first one is patched to. Frames are not touched.
//
// Neighbours: pexa/PacketPipeline.h runs the steps; EventLoop.h calls this.
// Threading: the event thread. Nothing here allocates, and the clock is read once a round.
#pragma once

#include <array>
#include <cstdint>

#include "AgentPorts.h"
#include "capture/TraceFilters.h"
#include "pexa/NamedCounters.h"
#include "pexa/PacketPipeline.h"

namespace Pexa {

class PatchPanel {
 public:
  // All that is referred to must outlive the panel.
  PatchPanel(AgentPorts& ports, const Kiv::Ptr<const AllGenericPipelineSteps>& steps, NamedCounters& reasons,
             const Capture::TraceFilters& filters);

  // Takes one burst of each port's packets through the agent, and gives the number of packets.
  std::size_t runRound();
  // Whether a port had a full burst in that round: there are more packets waiting.
  bool behind() const { return behind_; }

 private:
  void runBurst(AgentPort& port, std::size_t packets, double now);
  void prepare(const AgentPort& port, const Capture::ReceivedPacket& received, PacketState& state);

  AgentPorts& ports_;
  PacketPipeline pipeline_;
  NamedCounters& reasons_;
  const Capture::TraceFilters& filters_;
  bool behind_ = false;
  std::uint64_t packetNumber_ = 0;  // of the latest packet, from 1
  std::array<Capture::ReceivedPacket, PacketPipeline::kMostBurst> received_;
  std::array<PacketState, PacketPipeline::kMostBurst> states_;
};

}  // namespace Pexa
