// Programming errors end the process, in every build.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace SampledFlowTracker {

// Writes what was violated and stops the process.
[[noreturn, gnu::cold]] inline void stopProcess(const char* violated) {
  std::fprintf(stderr, "Assertion failed: %s\n", violated);
  std::abort();
}

inline void assertThat(bool holds, const char* violated) {
  if (!holds) [[unlikely]]
    stopProcess(violated);
}

}  // namespace SampledFlowTracker
