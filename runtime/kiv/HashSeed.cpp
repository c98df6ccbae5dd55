#include <random>

#include "KivMap.h"

namespace Kiv {

std::uint64_t hashSeed() {
  static const std::uint64_t seed = [] {
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
  }();
  return seed;
}

}  // namespace Kiv
