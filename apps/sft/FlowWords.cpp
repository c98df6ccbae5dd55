#include "FlowWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace Sft {
namespace {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;

constexpr std::array<std::pair<std::uint32_t, std::string_view>, 2> kProtocols{{{6, "tcp"}, {17, "udp"}}};
constexpr std::array<std::pair<AllowedTrafficDirection, std::string_view>, 2> kDirections{
    {{AllowedTrafficDirection::ingress, "ingress"}, {AllowedTrafficDirection::egress, "egress"}}};
constexpr std::array<std::pair<HoFlowState, std::string_view>, 4> kStates{
    {{HoFlowState::none, "none"},
     {HoFlowState::pending, "pending"},
     {HoFlowState::inHardware, "in hardware"},
     {HoFlowState::overflow, "overflow"}}};

template <class Names, class Held>
std::string nameOf(const Names& names, Held held, std::string_view unknown) {
  for (const auto& [each, name] : names) {
    if (each == held) return std::string(name);
  }
  return fmt::format("{}{}", unknown, static_cast<unsigned>(held));
}

template <class Names>
auto named(const Names& names, std::string_view wanted) {
  std::optional<typename Names::value_type::first_type> found;
  for (const auto& [each, name] : names) {
    if (name == wanted) found = each;
  }
  return found;
}

std::string endText(const Pavo::IpAddr& address, std::uint16_t port) {
  return fmt::format("{}:{}", Pavo::stringValue(address), port);
}
std::string endText(const Pavo::Ip6Addr& address, std::uint16_t port) {
  return fmt::format("[{}]:{}", Pavo::stringValue(address), port);
}

}  // namespace

template <class Domain>
std::string flowText(const FlowTracking::FlowKey<Domain>& key) {
  std::string text = fmt::format("{} -> {} {} vlan {}", endText(key.srcAddr, key.srcPort),
                                 endText(key.dstAddr, key.dstPort), protocolText(key.ipProto), key.vlan);
  if (key.vrfId != FlowTracking::kDefaultVrfId) text += fmt::format(" vrf {}", key.vrfId);
  return text;
}
template std::string flowText(const FlowTracking::IpFlowKey&);
template std::string flowText(const FlowTracking::Ip6FlowKey&);

std::string protocolText(std::uint32_t protocol) {
  return nameOf(kProtocols, protocol, "protocol ");
}

std::optional<std::uint32_t> protocolNamed(std::string_view name) {
  return named(kProtocols, name);
}

std::string directionText(AllowedTrafficDirection direction) {
  return nameOf(kDirections, direction, "direction ");
}

std::optional<AllowedTrafficDirection> directionNamed(std::string_view name) {
  return named(kDirections, name);
}

std::string stateText(HoFlowState state) {
  return nameOf(kStates, state, "state ");
}

std::optional<HoFlowState> stateNamed(std::string_view name) {
  std::string blanks(name);
  std::replace(blanks.begin(), blanks.end(), '-', ' ');
  return named(kStates, blanks);
}

std::string ageText(double time, double now) {
  constexpr double kMinute = 60;
  constexpr double kHour = 60 * kMinute;
  constexpr double kDay = 24 * kHour;
  const double age = now - time;
  if (!(time > 0 && age >= 0)) return "-";
  const auto in = [&](double unit, std::string_view name) {
    return fmt::format("{:.0f} {}", age / unit, name);
  };
  if (age < 2 * kMinute) return in(1, "s");
  if (age < 2 * kHour) return in(kMinute, "min");
  if (age < 2 * kDay) return in(kHour, "h");
  return in(kDay, "d");
}

}  // namespace Sft
