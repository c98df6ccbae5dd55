#include <cstdio>
#include <cstdlib>

#include "Pavo.h"

namespace Pavo {

void Pkt::outside(std::uint32_t offset, std::uint32_t length, std::uint32_t captured) {
  std::fprintf(stderr, "assertion failed: offset %u + length %u <= captured length %u\n", offset, length,
               captured);
  std::abort();
}

}  // namespace Pavo
