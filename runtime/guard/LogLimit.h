// Keeps what others can bring about from filling the log: one line in a while, which says how many were left
// out.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Guard {

class LogLimit {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kPause{10};

  // Whether a line is to be written now. The first one is.
  bool allows(Clock::time_point now = Clock::now());
  // Behind a line that is written: empty, or " (12 more since the last such line)".
  std::string more();

 private:
  Clock::time_point next_ = Clock::time_point::min();
  std::uint64_t leftOut_ = 0;
};

}  // namespace Guard
