// Any bytes as a history: the state machine leaves behind what the naive one says, after each operation.
#include <spdlog/spdlog.h>

#include "FuzzTarget.h"
#include "NaiveSideBySide.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  spdlog::set_level(spdlog::level::off);  // damage is logged, and here it is no news
  const auto difference = Naive::firstDifference(Naive::decode({data, size}));
  if (difference) std::fputs(difference->c_str(), stderr);
  FUZZ_REQUIRE(!difference);
  return 0;
}
