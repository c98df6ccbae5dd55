// The ten outputs of the state machine: their two orders, and their tables without the types of the keys.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string_view>
#include <variant>

#include "NaiveWorld.h"

namespace Naive {

// In the order in which they are offered their reconciliation when the initial scan is done.
enum class Output {
  local6,
  local4,
  states6,
  status4,
  states4,
  overflow4,
  counter6,
  status6,
  counter4,
  overflow6
};

inline constexpr std::size_t kOutputs = 10;
inline constexpr std::array<std::string_view, kOutputs> kOutputNames{
    "local6",    "local4",   "states6", "status4",  "states4",
    "overflow4", "counter6", "status6", "counter4", "overflow6"};

// In the order in which they become ready.
inline constexpr std::array<Output, kOutputs> kChain{
    Output::local4,   Output::local6,  Output::status4, Output::status6,   Output::counter4,
    Output::counter6, Output::states4, Output::states6, Output::overflow4, Output::overflow6};

template <class Domain>
struct OutputsOf {
  static constexpr bool kFour = std::is_same_v<Domain, V4>;
  static constexpr Output kLocal = kFour ? Output::local4 : Output::local6;
  static constexpr Output kStatus = kFour ? Output::status4 : Output::status6;
  static constexpr Output kCounter = kFour ? Output::counter4 : Output::counter6;
  static constexpr Output kStates = kFour ? Output::states4 : Output::states6;
  static constexpr Output kOverflow = kFour ? Output::overflow4 : Output::overflow6;
};

using AnyKey = std::variant<FlowTracking::IpFlowKey, FlowTracking::Ip6FlowKey, FlowTracking::HoIpFlowKey,
                            FlowTracking::HoIp6FlowKey, FlowTracking::HosStateCounterKey>;

// What a reconciliation does with a table.
struct OutputTable {
  std::function<std::size_t()> size;
  std::function<std::optional<AnyKey>()> first;
  std::function<std::optional<AnyKey>(const AnyKey&)> after;
  std::function<std::optional<AnyKey>(const AnyKey&)> atOrAfter;
  std::function<void(const AnyKey&)> del;
};

template <class MapType>
OutputTable outputTable(MapType& map) {
  using Key = typename MapType::Key;
  return {[&map] { return map.size(); }, [&map]() -> std::optional<AnyKey> { return map.first(); },
          [&map](const AnyKey& key) -> std::optional<AnyKey> { return map.after(std::get<Key>(key)); },
          [&map](const AnyKey& key) -> std::optional<AnyKey> { return map.atOrAfter(std::get<Key>(key)); },
          [&map](const AnyKey& key) { map.del(std::get<Key>(key)); }};
}

}  // namespace Naive
