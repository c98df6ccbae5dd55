// How the agent's process gets and gives back memory.
#pragma once

#include <malloc.h>

namespace Pexa {

// Small pieces that are freed are joined to their neighbours at once. The C library would rather put that off
// until a large piece is asked for: with a million counters just deleted, that one request took 180 ms, and
// packets waited. To be called before there are threads.
inline void steadyMemory() {
  ::mallopt(M_MXFAST, 0);
}

}  // namespace Pexa
