// The ten outputs of the state machine: their names, and the order in which they become ready.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace SampledFlowTracker {

// In the order in which everything that exists once an output is created and visited.
enum class OutputId : std::uint8_t {
  localCounterCounterIp6Collection,
  localCounterCounterCollection,
  hosStateCounterHosStateIp6Counter,
  hoFlowStatusHoIpFlowStatus,
  hosStateCounterHosStateIpCounter,
  helperOverflowEntries,
  hoFlowCounterHoIp6FlowCounter,
  hoFlowStatusHoIp6FlowStatus,
  hoFlowCounterHoIpFlowCounter,
  helperOverflow6Entries,
};
inline constexpr std::size_t kOutputs = 10;

inline constexpr std::array<std::string_view, kOutputs> kOutputNames{
    "localCounterCounterIp6CollectionOutput",  "localCounterCounterCollectionOutput",
    "hosStateCounterHosStateIp6CounterOutput", "hoFlowStatusHoIpFlowStatusOutput",
    "hosStateCounterHosStateIpCounterOutput",  "helperOverflowEntriesOutput",
    "hoFlowCounterHoIp6FlowCounterOutput",     "hoFlowStatusHoIp6FlowStatusOutput",
    "hoFlowCounterHoIpFlowCounterOutput",      "helperOverflow6EntriesOutput",
};

constexpr std::size_t indexOf(OutputId id) {
  return static_cast<std::size_t>(id);
}
constexpr std::string_view nameOf(OutputId id) {
  return kOutputNames[indexOf(id)];
}
// The name with a capital first letter: "HoFlowStatusHoIpFlowStatusOutput".
inline std::string typeNameOf(OutputId id) {
  std::string name(nameOf(id));
  name[0] = static_cast<char>(name[0] - 'a' + 'A');
  return name;
}

// The ready chain: an output is reconciled only when all before it here are ready. Counts come after the
// records that they count, and waiting flows last.
inline constexpr std::array<OutputId, kOutputs> kReadyChain{
    OutputId::localCounterCounterCollection,
    OutputId::localCounterCounterIp6Collection,
    OutputId::hoFlowStatusHoIpFlowStatus,
    OutputId::hoFlowStatusHoIp6FlowStatus,
    OutputId::hoFlowCounterHoIpFlowCounter,
    OutputId::hoFlowCounterHoIp6FlowCounter,
    OutputId::hosStateCounterHosStateIpCounter,
    OutputId::hosStateCounterHosStateIp6Counter,
    OutputId::helperOverflowEntries,
    OutputId::helperOverflow6Entries,
};
constexpr std::size_t chainPosition(OutputId id) {
  std::size_t at = 0;
  while (kReadyChain[at] != id) ++at;
  return at;
}

}  // namespace SampledFlowTracker
