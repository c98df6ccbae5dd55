#include "LoopSlices.h"

#include <algorithm>

namespace Pexa {

LoopSlices::Kind LoopSlices::kindIs(std::string_view name) {
  const auto found =
      std::find_if(kinds_.begin(), kinds_.end(), [&](const Slices& kind) { return kind.name == name; });
  const auto kind = static_cast<Kind>(found - kinds_.begin());
  if (found == kinds_.end()) kinds_.push_back({std::string(name), Metrics::Histogram(kBounds)});
  return kind;
}

void LoopSlices::ended(Kind kind) {
  const auto now = std::chrono::steady_clock::now();
  kinds_[kind].seconds.observe(std::chrono::duration<double>(now - began_).count());
  began_ = now;
}

void LoopSlices::metricsInto(Metrics::Snapshot& snapshot) const {
  auto& family = snapshot.histogram("pexa_loop_slice_seconds",
                                    "Time for which the agent's thread was at one kind of work at a time.");
  for (const Slices& kind : kinds_) family.add({{"work", kind.name}}, kind.seconds);
}

}  // namespace Pexa
