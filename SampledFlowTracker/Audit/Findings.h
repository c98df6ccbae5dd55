// What an audit found: differences between the statuses and what is kept beside them.
//
// A finding is told once: who asked for the audit takes findings while it runs. Neighbours: FamilyAudit.h
// finds them; SftPexaAudit.h hands them out. Threading: the agent's event thread.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string_view>

#include "Kiv.h"

namespace SampledFlowTracker {

// The kinds of difference, in the order in which a summary names them.
enum class FindingKind : std::uint8_t {
  stateCount,            // a per-state count is not the number of statuses of that state; repaired
  references,            // a counter record's hosEntries is not the number of its flow's statuses; repaired
  unneededCounter,       // a counter record of a flow without any status; dropped by a repair
  unneededLocalCounter,  // likewise a local counter
  noCounter,             // a status in hardware, and no counter record
  noOverflowEntry,       // a status in overflow, and no overflow entry
  entryWithoutStatus,    // an overflow entry, and no status
  entryOfOtherState,     // an overflow entry, and a status of another state than overflow
  entryNotWanted,        // an overflow entry of an offload that is not wanted
  damage,                // part of a table cannot be read; its records count as absent
};
inline constexpr std::size_t kFindingKinds = 10;

// In words: "per-state count".
std::string_view wordsFor(FindingKind kind);

struct Finding {
  std::string_view family;  // "IPv4"
  FindingKind kind;
  Kiv::String key;  // text form of the state, flow or offload; of damage what is damaged
  Kiv::Value found;
  Kiv::Value expected;
  bool repaired = false;

  // {"family","kind","key","found","expected","repaired"}; the kind in words.
  Kiv::Value value() const;
};

class Findings {
 public:
  // Without keeping, findings are counted and not kept for anybody to take.
  explicit Findings(bool keeps) : keeps_(keeps) {}

  void add(Finding finding);
  // The next findings, at most so many, which are forgotten with that.
  Kiv::Value::List take(std::size_t most);
  bool allTaken() const { return kept_.empty(); }

  std::uint64_t differences() const;
  std::uint64_t repaired() const { return repaired_; }
  // "no difference", or "3 differences, 2 repaired (per-state count: 2, damage: 1)".
  Kiv::String summary() const;

 private:
  bool keeps_;
  std::deque<Finding> kept_;
  std::array<std::uint64_t, kFindingKinds> counts_{};
  std::uint64_t repaired_ = 0;
};

}  // namespace SampledFlowTracker
