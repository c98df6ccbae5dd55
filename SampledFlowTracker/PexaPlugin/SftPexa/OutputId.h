// The ten outputs of the state machine: their names, and the order in which they become ready.
#pragma once

#include <array>
#include <cstdint>
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

// What an output is called, and traces. "{:}" stands for a value; "%s" for the text of a key and of its flag.
struct OutputTexts {
  std::string_view name;
  std::string_view handler;
  std::string_view task;
  std::string_view reconciling;
  std::string_view inputScansComplete;
  std::string_view keyType;
};
// The first letter of a name, small and capital, and the rest of it.
#define SFT_OUTPUT_TEXTS(small, capital, rest)                                                               \
  {                                                                                                          \
    small rest, "handle" capital rest "InputReady", "SftPexaFtHOCSM-" small rest "Task",                     \
        "Reconciling " small rest ": {:}", "Input scans for " small rest " complete",                        \
        "Value('SampledFlowTracker::SftPexaFtHOCSM::" capital rest "KeyType', ** {'k0': %s, 'k0Valid': %s})" \
  }
inline constexpr std::array<OutputTexts, kOutputs> kOutputTexts{{
    SFT_OUTPUT_TEXTS("l", "L", "ocalCounterCounterIp6CollectionOutput"),
    SFT_OUTPUT_TEXTS("l", "L", "ocalCounterCounterCollectionOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "osStateCounterHosStateIp6CounterOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "oFlowStatusHoIpFlowStatusOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "osStateCounterHosStateIpCounterOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "elperOverflowEntriesOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "oFlowCounterHoIp6FlowCounterOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "oFlowStatusHoIp6FlowStatusOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "oFlowCounterHoIpFlowCounterOutput"),
    SFT_OUTPUT_TEXTS("h", "H", "elperOverflow6EntriesOutput"),
}};
#undef SFT_OUTPUT_TEXTS

constexpr std::size_t indexOf(OutputId id) {
  return static_cast<std::size_t>(id);
}
constexpr const OutputTexts& textsOf(OutputId id) {
  return kOutputTexts[indexOf(id)];
}
constexpr std::string_view nameOf(OutputId id) {
  return textsOf(id).name;
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
