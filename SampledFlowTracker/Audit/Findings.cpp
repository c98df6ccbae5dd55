#include "Findings.h"

#include <fmt/format.h>

#include <numeric>

namespace SampledFlowTracker {

namespace {

constexpr std::array<std::string_view, kFindingKinds> kKindWords = {
    "per-state count",
    "references of a counter",
    "counter without a status",
    "local counter without a status",
    "in hardware without a counter",
    "in overflow without an overflow entry",
    "overflow entry without a status",
    "overflow entry of another state",
    "overflow entry not wanted",
    "damage",
};

}  // namespace

std::string_view wordsFor(FindingKind kind) {
  return kKindWords[static_cast<std::size_t>(kind)];
}

Kiv::Value Finding::value() const {
  return Kiv::Value::Object{{"family", family}, {"kind", wordsFor(kind)}, {"key", key},
                            {"found", found},   {"expected", expected},   {"repaired", repaired}};
}

void Findings::add(Finding finding) {
  ++counts_[static_cast<std::size_t>(finding.kind)];
  if (finding.repaired) ++repaired_;
  if (keeps_) kept_.push_back(std::move(finding));
}

Kiv::Value::List Findings::take(std::size_t most) {
  Kiv::Value::List taken;
  while (!kept_.empty() && taken.size() < most) {
    taken.push_back(kept_.front().value());
    kept_.pop_front();
  }
  return taken;
}

std::uint64_t Findings::differences() const {
  return std::accumulate(counts_.begin(), counts_.end(), std::uint64_t{0});
}

Kiv::String Findings::summary() const {
  const std::uint64_t all = differences();
  if (all == 0) return "no difference";
  Kiv::String kinds;
  for (std::size_t i = 0; i < kFindingKinds; ++i) {
    if (counts_[i] == 0) continue;
    kinds += fmt::format("{}{}: {}", kinds.empty() ? "" : ", ", kKindWords[i], counts_[i]);
  }
  return fmt::format("{} {}, {} repaired ({})", all, all == 1 ? "difference" : "differences", repaired_,
                     kinds);
}

}  // namespace SampledFlowTracker
