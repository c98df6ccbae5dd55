// A slice of so many seconds of the steady clock.
#pragma once

#include <chrono>

#include "Olt.h"

namespace Olt {

class ClockSlice : public Slice {
 public:
  // Begins now.
  explicit ClockSlice(double seconds)
      : end_(Clock::now() +
             std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {}
  bool spent() override { return Clock::now() >= end_; }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point end_;
};

}  // namespace Olt
