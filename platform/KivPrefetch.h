// Asking for memory ahead of its use.
#pragma once

namespace Kiv {

// Asks for the cache line of an address, which need not be valid. Not __builtin_prefetch alone: GCC takes a
// function that does nothing else for one without effect, and drops the calls of it wherever it is not
// inlined early (a walk over a million records then waited for each of them, 350 ns a record instead of 180).
inline void prefetch(const void* at) {
  __builtin_prefetch(at);
  __asm__ volatile("");
}

// The lines of so many bytes, be their first one at the beginning of a line or not. REQUIRES: not 0 of them.
inline void prefetch(const void* from, unsigned long bytes) {
  const auto* at = static_cast<const char*>(from);
  for (unsigned long line = 0; line < bytes; line += 64) prefetch(at + line);
  prefetch(at + bytes - 1);
}

}  // namespace Kiv
