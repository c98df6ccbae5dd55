#include "AgentPorts.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>

#include "capture/CaptureError.h"
#include "capture/LivePort.h"
#include "capture/ReplayPort.h"
#include "capture/WritePort.h"

namespace Pexa {
namespace {

std::unique_ptr<Capture::PortDevice> openDevice(const PortConfig& port, Capture::Pace pace) {
  switch (port.kind) {
    case Capture::PortKind::capture:
      return std::make_unique<Capture::ReplayPort>(port.source, pace);
    case Capture::PortKind::device:
      return std::make_unique<Capture::LivePort>(port.source);
    case Capture::PortKind::write:
      return std::make_unique<Capture::WritePort>(port.source);
  }
  return nullptr;
}

std::unique_ptr<Capture::PortDevice> openedOrRefused(const PortConfig& port, Capture::Pace pace) {
  try {
    return openDevice(port, pace);
  } catch (const Capture::CaptureError& error) {
    throw ConfigError(port.place, fmt::format("port \"{}\": {}", port.name, error.what()));
  }
}

bool replays(const AgentPort& port, Capture::ReplayState state) {
  return port.device->replayState() == state;
}

}  // namespace

AgentPorts::AgentPorts(const AgentConfig& config)
    : configs_(config.ports), pace_(config.pace), table_(Kiv::makePtr<Ports>("ports")) {
  ports_.reserve(configs_.size());  // forwards point into it
  for (const PortConfig& each : configs_) {
    const auto port = Kiv::makePtr<PexaPortBase>(each.name, Pavo::IntfId(each.name), ports(), each.vlan);
    table_->portAdd(port);
    ports_.emplace_back().port = port;
    if (each.kind != Capture::PortKind::write) ports_.back().device = openedOrRefused(each, pace_);
  }
  const auto named = [&](std::string_view name) {
    return &*std::find_if(ports_.begin(), ports_.end(),
                          [&](const auto& port) { return port.port->name() == name; });
  };
  for (const ForwardConfig& each : config.forwards) named(each.from)->forward = named(each.to);
}

void AgentPorts::openWriters() {
  for (std::size_t i = 0; i < ports_.size(); ++i) {
    if (!ports_[i].device) ports_[i].device = openedOrRefused(configs_[i], pace_);
  }
}

void AgentPorts::replaysHeldIs(bool held) {
  for (AgentPort& port : ports_) port.device->replayHeldIs(held);
}

bool AgentPorts::replaying() const {
  return std::any_of(ports_.begin(), ports_.end(),
                     [](const AgentPort& port) { return replays(port, Capture::ReplayState::running); });
}

bool AgentPorts::anyDamaged() const {
  return std::any_of(ports_.begin(), ports_.end(),
                     [](const AgentPort& port) { return replays(port, Capture::ReplayState::damaged); });
}

void AgentPorts::report() {
  for (AgentPort& port : ports_) {
    reportEnd(port);
    if (port.device->kind() == Capture::PortKind::device) reportChange(port);
  }
}

void AgentPorts::reportEnd(AgentPort& port) {
  const auto state = port.device->replayState();
  if (port.endReported || state == Capture::ReplayState::none || state == Capture::ReplayState::running)
    return;
  port.endReported = true;
  const std::uint64_t packets = port.device->counts().packetsIn;
  if (state == Capture::ReplayState::damaged) {
    spdlog::error("port {}: {}; the {} packets before the damage were replayed", port.port->name(),
                  port.device->error(), packets);
  } else {
    spdlog::info("port {}: replay finished, {} packets", port.port->name(), packets);
  }
}

void AgentPorts::reportChange(AgentPort& port) {
  const std::string& error = port.device->error();
  if (error != port.errorReported) {
    if (error.empty()) {
      spdlog::info("port {}: up again", port.port->name());
    } else {
      spdlog::warn("port {}: {}", port.port->name(), error);
    }
    port.errorReported = error;
  }
  const std::string& note = port.device->note();
  if (note == port.noteReported) return;
  port.noteReported = note;
  if (!note.empty()) spdlog::warn("port {}: {}", port.port->name(), note);
}

void AgentPorts::flush() {
  for (AgentPort& port : ports_) port.device->flush();
}

void AgentPorts::statusInto(Interface::EthIntfStatusDir& dir) {
  for (AgentPort& port : ports_) {
    if (port.device) port.device->refresh();
    const bool up = port.device && port.device->up();
    dir.interfaceStatusIs(port.port->intfId(), {port.port->portIndex() + 1, up, 0});
  }
}

Kiv::Value::List AgentPorts::rows() {
  Kiv::Value::List rows;
  for (AgentPort& port : ports_) {
    Capture::PortDevice& device = *port.device;
    device.refresh();
    const Capture::PortCounts& counts = device.counts();
    Kiv::Value::Object row{{"name", port.port->name()},     {"kind", stringValue(device.kind())},
                           {"packetsIn", counts.packetsIn}, {"bytesIn", counts.bytesIn},
                           {"dropsIn", counts.dropsIn},     {"packetsOut", counts.packetsOut},
                           {"bytesOut", counts.bytesOut},   {"dropsOut", counts.dropsOut},
                           {"vlan", port.port->vlan()},     {"up", device.up()}};
    if (device.replayState() != Capture::ReplayState::none) {
      row.emplace_back("replay", stringValue(device.replayState()));
    }
    if (port.forward != nullptr) row.emplace_back("forward", port.forward->port->name());
    if (!device.error().empty()) row.emplace_back("error", device.error());
    if (!device.note().empty()) row.emplace_back("note", device.note());
    if (const Capture::OffloadCounts* offloads = device.offloads()) {
      row.emplace_back("checksumsCompleted", offloads->checksumsCompleted);
      row.emplace_back("framesCut", offloads->framesCut);
      row.emplace_back("packetsCut", offloads->packetsCut);
      row.emplace_back("framesUnusable", offloads->framesUnusable);
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

Sflow::IfCounters AgentPorts::ifCounters(std::uint32_t portIndex) const {
  const Capture::PortDevice& device = *ports_.at(portIndex).device;
  const Capture::PortCounts& counts = device.counts();
  Sflow::IfCounters result;
  result.operUp = device.up();
  result.ifInOctets = counts.bytesIn;
  result.ifInUcastPkts = static_cast<std::uint32_t>(counts.packetsIn);
  result.ifInDiscards = static_cast<std::uint32_t>(counts.dropsIn);
  result.ifOutOctets = counts.bytesOut;
  result.ifOutUcastPkts = static_cast<std::uint32_t>(counts.packetsOut);
  result.ifOutDiscards = static_cast<std::uint32_t>(counts.dropsOut);
  return result;
}

}  // namespace Pexa
