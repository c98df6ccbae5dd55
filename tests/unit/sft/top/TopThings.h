// Made-up flows, looks and models.
#pragma once

#include <string>
#include <vector>

#include "top/TopModel.h"
#include "top/TopView.h"

namespace TopTest {

using namespace Sft::Top;
using FlowTracking::HoFlowState;
using Direction = Bridging::AllowedTrafficDirection;

constexpr double kNow = 1'700'000'000;  // 2023-11-14 22:13:20 UTC

// 10.0.0.1:PORT -> 10.0.0.2:80 tcp vlan 10, in on Ethernet1, in hardware for a minute.
inline FlowRow four(std::uint16_t port) {
  FlowTracking::HoIpFlowKey key;
  key.ipFlowKey.srcAddr = Pavo::addressFromText<Pavo::IpAddr>("10.0.0.1");
  key.ipFlowKey.dstAddr = Pavo::addressFromText<Pavo::IpAddr>("10.0.0.2");
  key.ipFlowKey.srcPort = port;
  key.ipFlowKey.dstPort = 80;
  key.ipFlowKey.ipProto = 6;
  key.ipFlowKey.vlan = 10;
  key.direction = Direction::ingress;
  key.intfId = Pavo::IntfId("Ethernet1");
  return {.key = key, .wanted = true, .state = HoFlowState::inHardware, .since = kNow - 60};
}

// [2001:db8::1]:PORT -> [2001:db8::2]:53 udp vlan 10, out on Ethernet2.
inline FlowRow six(std::uint16_t port) {
  FlowTracking::HoIp6FlowKey key;
  key.ipFlowKey.srcAddr = Pavo::addressFromText<Pavo::Ip6Addr>("2001:db8::1");
  key.ipFlowKey.dstAddr = Pavo::addressFromText<Pavo::Ip6Addr>("2001:db8::2");
  key.ipFlowKey.srcPort = port;
  key.ipFlowKey.dstPort = 53;
  key.ipFlowKey.ipProto = 17;
  key.ipFlowKey.vlan = 10;
  key.direction = Direction::egress;
  key.intfId = Pavo::IntfId("Ethernet2");
  return {.key = key, .wanted = true, .state = HoFlowState::inHardware, .since = kNow - 7200};
}

inline FlowRow rated(FlowRow row, double packetsPerSecond, double bytesPerSecond) {
  row.counted = true;
  row.packets = static_cast<std::uint64_t>(packetsPerSecond * 100);
  row.bytes = static_cast<std::uint64_t>(bytesPerSecond * 100);
  row.rate = Rate{packetsPerSecond, bytesPerSecond};
  return row;
}
inline FlowRow in(FlowRow row, std::optional<HoFlowState> state) {
  row.state = state;
  if (!state) row.since = 0;
  return row;
}
inline FlowRow unwanted(FlowRow row) {
  row.wanted = false;
  return row;
}

// A look at these flows by a selection.
inline TableLook lookAt(const std::vector<FlowRow>& flows, const Selection& selection = {}) {
  TableLook look;
  look.selection = selection;
  look.met = flows.size();
  BestRows best(selection, flows.size() + 1);
  for (const FlowRow& each : flows) best.offer(each);
  look.taken = best.taken();
  look.rows = best.finish();
  return look;
}

inline std::uint16_t portOf(const FlowRow& row) {
  return std::visit([](const auto& key) { return key.ipFlowKey.srcPort; }, row.key);
}
inline std::vector<std::uint16_t> portsOf(const std::vector<FlowRow>& rows) {
  std::vector<std::uint16_t> ports;
  for (const FlowRow& each : rows) ports.push_back(portOf(each));
  return ports;
}

inline TopModel model(const Selection& selection = {}, Panel panel = Panel::flows) {
  TopModel made("/run/pexa", 1, selection, panel);
  made.timeIs(kNow);
  return made;
}

// Presses the keys of a text.
inline void press(TopModel& model, std::string_view keys, std::size_t page = 10) {
  for (const char each : keys) model.keyIs(key(each), page);
}

inline std::vector<std::string> linesOf(const Grid& grid) {
  std::vector<std::string> lines;
  for (std::size_t row = 0; row < grid.size().rows; ++row) lines.push_back(grid.line(row));
  return lines;
}

}  // namespace TopTest
