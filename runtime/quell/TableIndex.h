// The writer's side of the index: finding a key's entry, adding, splitting, compacting.
//
// Splitting a bucket: the entries that move are copied to the new bucket, the state word is stored, then they
// are cleared in the old one. A reader that came too late into the old bucket sees the state word moved and
// looks again; a writer that dies in between leaves entries twice, which the repair clears.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

#include "quell/TableFile.h"
#include "quell/TableSpace.h"

namespace Quell {

// One entry's place.
struct EntryPlace {
  Layout::Bucket* bucket = nullptr;
  unsigned position = 0;
  std::uint64_t entry = 0;  // 0: none there
};

class TableIndex {
 public:
  TableIndex(TableFile& file, TableSpace& space) : file_(file), space_(space) {}

  // Takes up the state that a repair found: with the lower half of the hash of each slot's record.
  void stateIs(std::uint64_t buckets, std::uint64_t compactions, const std::vector<std::uint32_t>& hashes);
  // A slot was filled.
  void slotHashIs(std::uint64_t slot, std::uint64_t hash) {
    if (slot >= hashes_.size()) hashes_.resize(space_.slots());
    hashes_[slot] = static_cast<std::uint32_t>(hash);
  }
  std::uint64_t buckets() const { return buckets_; }

  // The place of a key's entry, its entry 0 when there is none. A record that does not match its check counts
  // as the key's when its tag does: storing heals it. Damage in the chain (a bucket that does not match its
  // check): `damaged` is set, and the place is empty.
  struct Found {
    EntryPlace place;  // of the key, or a free one; its bucket null when there is none in the chain
    bool damaged = false;
  };
  Found locate(const void* key, std::uint64_t hash) const;

  // Makes sure that an entry can be added where locate found no free place. False when there is no room.
  bool reserved() { return space_.overflowFree(1); }
  // Adds an entry to the chain of a hash. REQUIRES: reserved, or a free place.
  void add(const EntryPlace& free, std::uint64_t hash, std::uint64_t entry);

  // Makes the index as large as it would have grown with so many entries, a step at a time; true when it is,
  // or when there is no room. REQUIRES: it has none.
  bool expect(std::uint64_t entries);
  // Splits one bucket when there are too many entries for the buckets there are. Without room for another
  // bucket the chains grow instead.
  void grow(std::uint64_t entries);

 private:
  // A bucket and its overflow buckets, in order.
  struct Chain {
    std::vector<Layout::Bucket*> buckets;
    std::vector<std::uint64_t> numbers;  // of the overflow buckets: of buckets[1] and on
  };
  bool sameKey(std::uint64_t slot, const void* key) const;
  void chainInto(std::uint64_t number, Chain& chain) const;
  void publishState();
  void split();
  // What a split needs to know of an entry's record; the upper half is the entry's tag.
  std::uint64_t hashOf(std::uint64_t entry) const {
    return std::uint64_t{Layout::entryTag(entry)} << 32 | hashes_[Layout::entrySlot(entry)];
  }
  void compact(std::uint64_t number);
  void append(std::uint64_t number, std::uint64_t entry);

  TableFile& file_;
  TableSpace& space_;
  std::uint64_t buckets_ = 1;
  std::uint64_t compactions_ = 0;
  // By slot, four bytes each, which a split reads in place of every record of its bucket. In pieces, so that
  // it grows without being copied.
  std::deque<std::uint32_t> hashes_;
  // Of the split and of the compaction under way; kept for their memory.
  Chain old_;
  std::vector<EntryPlace> movers_;
  Chain compacted_;
  std::vector<EntryPlace> places_;
};

}  // namespace Quell
