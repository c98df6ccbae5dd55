#include "AgentWork.h"

namespace Pexa {

namespace {

// Changed keys delivered in a slice. In the build in which every yield point yields it is one.
#ifdef OLT_YIELD_ALWAYS
constexpr std::size_t kSliceKeys = 1;
#else
constexpr std::size_t kSliceKeys = 256;
#endif

}  // namespace

void TableWork::run(double /*now*/, double /*slice*/) {
  pending_ = tables_.deliver(kSliceKeys);
}

}  // namespace Pexa
