// A clock that stands until a test moves it.
#pragma once

#include "KivSystem.h"

namespace TestSupport {

// Replaces the process's clock while it lives. Starts at 1,000,000 seconds unless told otherwise.
class ManualClock : public Kiv::Clock {
 public:
  explicit ManualClock(double now = 1'000'000.0) : now_(now) { Kiv::System::clockIs(this); }
  ~ManualClock() override { Kiv::System::clockIs(nullptr); }
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  double currentTimeUtc() override {
    ++reads_;
    return now_;
  }
  double now() const { return now_; }
  void nowIs(double now) { now_ = now; }
  void advance(double seconds) { now_ += seconds; }
  // How often the clock was read.
  unsigned reads() const { return reads_; }

 private:
  double now_;
  unsigned reads_ = 0;
};

}  // namespace TestSupport
