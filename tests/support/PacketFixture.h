// A packet with its context, ready to be given to a pipeline step.
#pragma once

#include <map>
#include <string>
#include <tuple>

#include "PacketBuilder.h"
#include "Pexa.h"

namespace TestSupport {

// Remembers what was counted.
class FakeNamedCounters : public Pexa::PexaNamedCounters {
 public:
  void count(std::string_view category, std::string_view source, std::string_view reason) override {
    ++counts[{std::string(category), std::string(source), std::string(reason)}];
  }
  // 0 when it was never counted.
  unsigned of(const std::string& category, const std::string& source, const std::string& reason) const {
    const auto found = counts.find({category, source, reason});
    return found == counts.end() ? 0 : found->second;
  }
  std::map<std::tuple<std::string, std::string, std::string>, unsigned> counts;
};

// Owns a packet's bytes and its state; the context points at them, so that it neither moves nor is copied.
class PacketFixture {
 public:
  // The port may be null: a packet of the agent's own. The VLAN is the packet's tag, else the port's, as the
  // agent sets it.
  PacketFixture(Packet packet, const Kiv::Ptr<const Pexa::PexaPortBase>* inputPort)
      : packet_(std::move(packet)) {
    state.parsed = Pexa::ParsedPacket(packet_.pkt());
    state.inputPort = inputPort;
    state.namedCounters = &counters;
    state.packetNumber = 1;
    state.parsed.maybeDoFullParse();
    const std::uint16_t portVlan = inputPort != nullptr ? (*inputPort)->vlan() : std::uint16_t{0xffff};
    const auto vlan =
        state.parsed.tagged() ? static_cast<std::uint16_t>(state.parsed.firstTag() & 0xfff) : portVlan;
    state.vlan = Bridging::VlanIdOrAnyOrNone(vlan);
  }
  PacketFixture(const PacketFixture&) = delete;
  PacketFixture& operator=(const PacketFixture&) = delete;

  Pexa::PacketContext context() { return Pexa::PacketContext(state); }
  Pexa::OutputPipelineContext output(const Kiv::Ptr<const Pexa::PexaPortBase>& outputPort) {
    return {context(), outputPort};
  }

  FakeNamedCounters counters;
  Pexa::PacketState state;

 private:
  Packet packet_;
};

}  // namespace TestSupport
