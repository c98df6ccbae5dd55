// What was seen at one look: at the tables, and at the agent.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Kiv.h"
#include "top/Selection.h"

namespace Sft::Top {

// The per-state counts of a family.
struct FamilyCounts {
  std::uint64_t inHardware = 0;
  std::uint64_t overflow = 0;
  std::uint64_t others = 0;
};

struct TableLook {
  Selection selection;                   // that the rows were taken by
  std::vector<FlowRow> rows;             // the first of those it takes, in its order
  std::uint64_t taken = 0;               // how many it takes
  std::uint64_t met = 0;                 // how many there are, of the families looked at
  std::uint64_t damages = 0;             // places that could not be read
  std::string problem;                   // the first of them, or why a table cannot be used; empty: none
  std::array<FamilyCounts, 2> families;  // IPv4, IPv6
};

// Counts of the running agent, since it started.
struct SamplingCounts {
  std::string interface;
  std::string direction;
  std::uint64_t rate = 0;  // one in so many
  std::uint64_t pool = 0;
  std::uint64_t samples = 0;
  std::uint64_t drops = 0;
};
struct ReasonCount {
  std::string category;
  std::string source;
  std::string reason;
  std::uint64_t count = 0;
};
struct PortCounts {
  std::string name;
  std::string kind;
  bool up = true;
  std::string replay = {};  // empty: replays nothing
  std::uint64_t packetsIn = 0, bytesIn = 0, dropsIn = 0;
  std::uint64_t packetsOut = 0, bytesOut = 0, dropsOut = 0;
};

struct AgentLook {
  std::optional<std::uint64_t> budget = {};  // flows of a family that may be in hardware; none: not told
  std::vector<SamplingCounts> samplings = {};
  std::vector<ReasonCount> reasons = {};
  std::vector<PortCounts> ports = {};

  // Takes one row of the answer to a request ("samples", "reasons", "ports", "attr get"). Throws
  // Kiv::ValueError when it is none.
  void take(const std::string& request, const Kiv::Value& row);
};

}  // namespace Sft::Top
