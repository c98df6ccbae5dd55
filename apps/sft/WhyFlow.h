// Why a flow is, or is not, in hardware: the decision, from facts that were fetched before.
//
// The packet path and the state machine do not know of each other's conditions: a flow may have its place in
// the table of statuses and still be sampled, because its family is off or its interface takes no part. So
// every obstacle is looked for, and the first one on a packet's way is the verdict.
//
// Neighbours: WhyCommand.h fetches and shows; docs/operating.md lists the verdicts.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HoFlowState.h"
#include "SystemFacts.h"

namespace Sft {

// What is known of a flow. Parts that are open (a pattern that met nothing) are absent.
struct WhyFlow {
  Families<bool> family{true, true};  // which it may be of
  std::optional<std::uint32_t> protocol;
  std::optional<std::uint32_t> vrf;
  std::optional<Bridging::AllowedTrafficDirection> direction;
  std::optional<std::string> interface;

  std::optional<double> wantedSince;  // requestTime, 0 when it was not told; absent: not wanted
  std::optional<FlowTracking::HoFlowState> state;
  double stateSince = 0;
  bool counted = false;  // a counter record is there
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  double lastCounted = 0;
  std::optional<std::uint64_t> samples;  // as a candidate of the tracker
  double lastSampled = 0;
};

// A word that scripts may rely on, and a sentence or two.
struct Reason {
  std::string_view verdict;
  std::string why;
};

namespace Verdict {
inline constexpr std::string_view kInHardware = "in-hardware";
}

// Never empty. The first one is the verdict; the others hold as well. `now` is UTC seconds.
std::vector<Reason> whyFlow(const WhyFlow& flow, const SystemFacts& system, double now);

}  // namespace Sft
