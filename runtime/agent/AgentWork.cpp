#include "AgentWork.h"

#include <chrono>

namespace Pexa {

namespace {

// Changed keys delivered between two looks at the clock, and in a slice. In the build in which every yield
// point yields it is one.
#ifdef OLT_YIELD_ALWAYS
constexpr std::size_t kLookKeys = 1;
constexpr std::size_t kSliceKeys = 1;
#else
constexpr std::size_t kLookKeys = 8;
constexpr std::size_t kSliceKeys = 256;
#endif

}  // namespace

void TableWork::run(double /*now*/, double slice) {
  const std::chrono::duration<double> most(slice);
  const auto start = std::chrono::steady_clock::now();
  std::size_t keys = 0;
  do {
    pending_ = tables_.deliver(kLookKeys);
    keys += kLookKeys;
  } while (pending_ && keys < kSliceKeys && std::chrono::steady_clock::now() - start < most);
}

}  // namespace Pexa
