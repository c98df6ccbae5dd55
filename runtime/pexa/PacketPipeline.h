// Takes bursts of packets through the agent's pipeline steps: the input steps when packets have come in, the
// output steps when they are about to leave.
//
//   burst -> step 1: lookAhead(burst), process(packet) … -> step 2: lookAhead(burst), process(packet) … -> …
//
// A step that throws is counted ("Error", "Pexa", "step NAME: what") and its packet goes on.
#pragma once

#include <cstdint>
#include <span>

#include "PexaPacket.h"
#include "PexaPipeline.h"

namespace Pexa {

class PacketPipeline {
 public:
  static constexpr std::size_t kMostBurst = 32;
  // Bit i stands for packet i of a burst.
  using PacketSet = std::uint32_t;
  static constexpr PacketSet allOf(std::size_t packets) {
    return packets >= kMostBurst ? ~PacketSet{0} : (PacketSet{1} << packets) - 1;
  }

  explicit PacketPipeline(Kiv::Ptr<const AllGenericPipelineSteps> steps) : steps_(std::move(steps)) {}

  // Both take those packets of the burst that are in `going` through the steps, and give back those that no
  // step stopped. A stopped packet is counted: "Drop", "Pexa", "stopped by step NAME". REQUIRES: at most
  // kMostBurst packets; steps do not come or go meanwhile.
  PacketSet input(std::span<PacketState> burst, PacketSet going) const;
  // For packets that leave on the same port.
  PacketSet output(std::span<PacketState> burst, PacketSet going,
                   const Kiv::Ptr<const PexaPortBase>& outputPort) const;

 private:
  Kiv::Ptr<const AllGenericPipelineSteps> steps_;
};

}  // namespace Pexa
