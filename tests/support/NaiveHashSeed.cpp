// The seed of the entity framework's maps, in place of the runtime library's: a random one would put the
// waiting flows in another order each time, and a history that failed might not fail again.
#include "KivMap.h"

std::uint64_t Kiv::hashSeed() {
  return 0x243f6a8885a308d3U;
}
