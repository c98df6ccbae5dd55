// The bucket that a walk stands in, its records in table order: they are read once, together, and each step
// gives the next of the copies. (Reading each anew with its step took a walk over a million from 130 ns a
// record to 460.)
//
// W1  Records are remembered when the whole chain was seen unchanged and undamaged, between two looks at the
//     state word that were the same.
// W2  They hold while the state word and every meta word of the chain are what they were: a change of a
//     bucket moves its sequence. (It comes round after 32,768 changes between two steps.)
// W3  Each record is compared with its copy as the walk gives it, and all of them before the walk leaves the
//     bucket: damage that came meanwhile is told.
// W4  An erasure through the walk's own table takes an entry away and adds none: the rest goes on to hold.
//
// Threading: as Table, which has one. Two walks that take turns share it: each turn reads a bucket anew.
#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

#include "QuellLayout.h"

namespace Quell {

struct WalkPlace {
  struct Entry {
    std::uint64_t position = 0;  // in table order
    const Layout::Word* cell = nullptr;
    std::uint64_t entry = 0;  // that was in the cell
    std::uint64_t meta = 0;   // of its slot
    std::size_t copy = 0;     // where its words begin in `words`
  };
  struct Link {
    const Layout::Bucket* bucket = nullptr;
    std::uint64_t meta = 0;
  };

  void clear() {
    state = 0;
    at = 0;
    entries.clear();
    words.clear();
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

  // W4. REQUIRES: what was remembered held up to the erasure.
  void erased() {
    for (Link& link : chain) link.meta = link.bucket->meta.load(std::memory_order_relaxed);
  }

  const std::uint64_t* record(const Entry& each) const { return words.data() + each.copy; }
  // Whether a walk that goes on behind this key goes on behind the record given last.
  bool goesOnBehind(const void* key, std::size_t keyBytes) const {
    return at < entries.size() && std::memcmp(record(entries[at]), key, keyBytes) == 0;
  }

  std::uint64_t state = 0;  // of the index; 0, which no index has: nothing is remembered
  std::uint64_t bucket = 0;
  std::size_t at = 0;  // the entry given last
  std::vector<Entry> entries;
  std::vector<std::uint64_t> words;  // copies of the records
  std::vector<Link> chain;
  std::vector<const Layout::Word*> ahead;  // slots of the bucket behind it, not told yet: a hint
};

}  // namespace Quell
