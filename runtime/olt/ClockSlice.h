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
  // The clock is read with every fourth question, of which the first is one: reading it took an eighth of the
  // time of a walk that asks behind every entry.
  bool spent() override {
    if (!spent_ && asked_++ % kAskedPerLook == 0) spent_ = Clock::now() >= end_;
    return spent_;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned kAskedPerLook = 4;
  Clock::time_point end_;
  unsigned asked_ = 0;
  bool spent_ = false;
};

}  // namespace Olt
