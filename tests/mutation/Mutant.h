// Included by each source in the copy that scripts/mutate builds: each place that may be changed asks here
// whether its change is the one to be made. A program makes at most one, the one that SFT_MUTANT names.
//
// A place that only the compiler evaluates never changes. Those that are in a program leave their number in
// its section `.mutants`, so that the script knows what can be made at all.
#pragma once

#include <type_traits>

namespace Mutant {

// The change to make; 0 for none.
extern const int active;
// One byte for each change, set when its place is reached; null unless SFT_MUTANT_RECORD asks for it. Shared
// with child processes.
extern unsigned char* const reached;
inline constexpr int kMost = 1 << 16;

template <int N>
[[gnu::always_inline]] constexpr bool on() {
  static_assert(N < kMost);
  if (std::is_constant_evaluated()) return false;
  asm volatile(".pushsection .mutants,\"\",@progbits\n\t.long %c0\n\t.popsection" ::"i"(N));
  if (reached != nullptr) reached[N] = 1;
  return active == N;
}

}  // namespace Mutant
