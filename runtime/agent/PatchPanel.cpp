#include "PatchPanel.h"

#include <bit>

namespace Pexa {
namespace {

constexpr std::uint16_t kVlanIdBits = 0x0fff;  // of a tag; the rest is priority

}  // namespace

PatchPanel::PatchPanel(AgentPorts& ports, const Kiv::Ptr<const AllGenericPipelineSteps>& steps,
                       NamedCounters& reasons, const Capture::TraceFilters& filters)
    : ports_(ports), pipeline_(steps), reasons_(reasons), filters_(filters) {}

std::size_t PatchPanel::runRound() {
  const Kiv::System::TimeHold hold;
  const double now = Kiv::System::currentTimeUtc();
  std::size_t packets = 0;
  behind_ = false;
  for (AgentPort& port : ports_.all()) {
    const std::size_t got = port.device->receive(received_, now);
    if (got != 0) runBurst(port, got, now);
    packets += got;
    behind_ |= got == received_.size();
  }
  return packets;
}

void PatchPanel::runBurst(AgentPort& port, std::size_t packets, double now) {
  for (std::size_t i = 0; i < packets; ++i) prepare(port, received_[i], states_[i]);
  const std::span<PacketState> burst(states_.data(), packets);
  PacketPipeline::PacketSet going = pipeline_.input(burst, PacketPipeline::allOf(packets));
  if (port.forward == nullptr) return;
  going = pipeline_.output(burst, going, port.forward->port);
  for (; going != 0; going &= going - 1) {
    const auto index = static_cast<std::size_t>(std::countr_zero(going));
    port.forward->device->transmit(states_[index].parsed.pkt(), now);
  }
  port.forward->device->send();
}

void PatchPanel::prepare(const AgentPort& port, const Capture::ReceivedPacket& received, PacketState& state) {
  state.pktIs(received.pkt);
  state.parsed.maybeDoFullParse();
  state.inputPort = &port.port;
  state.namedCounters = &reasons_;
  state.packetNumber = ++packetNumber_;
  if (!filters_.empty()) state.traceFilter = filters_.match(received.pkt);
  const bool tagged = state.parsed.tagged();
  const auto vlan =
      static_cast<std::uint16_t>(tagged ? state.parsed.firstTag() & kVlanIdBits : port.port->vlan());
  state.vlan = Bridging::VlanIdOrAnyOrNone(vlan);
}

}  // namespace Pexa
