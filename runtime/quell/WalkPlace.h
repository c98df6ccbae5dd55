// The bucket that a walk stands in, its entries in table order: the next step takes the next of them and does
// not look for the smallest among all again.
//
// W1  Entries are remembered when the whole chain was seen unchanged and undamaged, between two looks at the
//     state word that were the same.
// W2  They hold while the state word and every meta word of the chain are what they were: a change of a
//     bucket moves its sequence. (It comes round after 32,768 changes. Should the same entries stand there
//     again, they are what is remembered; the records are read anew with each step in any case.)
//
// Threading: as Table, which has one. Two walks that take turns share it: each turn reads a bucket anew.
#pragma once

#include <vector>

#include "QuellLayout.h"

namespace Quell {

struct WalkPlace {
  struct Entry {
    std::uint64_t position = 0;  // in table order
    const Layout::Word* cell = nullptr;
    std::uint64_t entry = 0;  // that was in the cell
  };
  struct Link {
    const Layout::Bucket* bucket = nullptr;
    std::uint64_t meta = 0;
  };

  void clear() {
    state = 0;
    entries.clear();
    chain.clear();
    ahead.clear();
  }
  bool holds(std::uint64_t stateNow, std::uint64_t number) const {  // W2
    if (state != stateNow || bucket != number) return false;
    for (const Link& link : chain) {
      if (link.bucket->meta.load(std::memory_order_acquire) != link.meta) return false;
    }
    return true;
  }

  std::uint64_t state = 0;  // of the index; 0, which no index has: nothing is remembered
  std::uint64_t bucket = 0;
  std::vector<Entry> entries;
  std::vector<Link> chain;
  std::vector<const Layout::Word*> ahead;  // slots of the bucket behind it, not told yet: a hint
};

}  // namespace Quell
