// How long the agent's thread was at one thing at a time, by kind of work. While it is at one, everything
// else waits: packets for work, work for packets.
//
// The loop notes when a slice ends, and the next one begins there; so a slice costs one look at the clock.
// Threading: the event thread.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Metrics.h"

namespace Pexa {

class LoopSlices {
 public:
  using Kind = std::size_t;
  static constexpr std::array<double, 11> kBounds{50e-6, 100e-6, 200e-6, 500e-6, 1e-3,  2e-3,
                                                  5e-3,  10e-3,  20e-3,  50e-3,  100e-3};  // seconds

  // The kind of a name, made when it is not there.
  Kind kindIs(std::string_view name);
  // A slice begins.
  void begin() { began_ = std::chrono::steady_clock::now(); }
  // The slice was of this kind; the next one begins.
  void ended(Kind kind);

  // pexa_loop_slice_seconds{work}
  void metricsInto(Metrics::Snapshot& snapshot) const;

 private:
  struct Slices {
    std::string name;
    Metrics::Histogram seconds;
  };
  std::vector<Slices> kinds_;
  std::chrono::steady_clock::time_point began_;
};

}  // namespace Pexa
