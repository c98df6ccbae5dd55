// What a statement writes to, as the statement names it, and what a write to it traces.
#pragma once

#include <string_view>

namespace SampledFlowTracker {

struct Place {
  std::string_view name;
  std::string_view inserting;       // of a key alone
  std::string_view insertingValue;  // of a key with its value
  std::string_view deleting;
};

// Put together by the compiler: every text stands whole in the binary.
#define SFT_PLACE(name)                                                                       \
  Place {                                                                                     \
    name, "into( " name " ): inserting k1={}", "into( " name " ): inserting k1={}, value={}", \
        "into( " name " ): deleting k1={}"                                                    \
  }

}  // namespace SampledFlowTracker
