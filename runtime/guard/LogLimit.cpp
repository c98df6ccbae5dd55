#include "guard/LogLimit.h"

#include <fmt/format.h>

#include <utility>

namespace Guard {

bool LogLimit::allows(Clock::time_point now) {
  if (now < next_) {
    ++leftOut_;
    return false;
  }
  next_ = now + kPause;
  return true;
}

std::string LogLimit::more() {
  const std::uint64_t count = std::exchange(leftOut_, 0);
  return count == 0 ? std::string() : fmt::format(" ({} more since the last such line)", count);
}

}  // namespace Guard
