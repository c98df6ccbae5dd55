#include "quell/TableIndex.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "quell/BucketEdit.h"

namespace Quell {

using namespace Layout;

void TableIndex::stateIs(std::uint64_t buckets, std::uint64_t compactions,
                         const std::vector<std::uint32_t>& hashes) {
  buckets_ = buckets;
  compactions_ = compactions;
  hashes_.assign(hashes.begin(), hashes.end());
}

void TableIndex::publishState() {
  const std::uint64_t word = stateWord(buckets_, compactions_);
  file_.header().state.store(word, std::memory_order_release);
  file_.header().stateCopy.store(word, std::memory_order_release);
}

bool TableIndex::sameKey(std::uint64_t slot, const void* key) const {
  RecordWords copy;
  const Word* words = file_.slot(slot) + 1;
  const std::size_t count = wordsFor(file_.keyBytes());
  for (std::size_t i = 0; i < count; ++i) copy.words[i] = words[i].load(std::memory_order_relaxed);
  return std::memcmp(copy.words.data(), key, file_.keyBytes()) == 0;
}

TableIndex::Found TableIndex::locate(const void* key, std::uint64_t hash) const {
  Found found;
  const auto tag = static_cast<std::uint32_t>(hash >> 32);
  Bucket* bucket = &file_.bucket(bucketOf(hash, buckets_));
  for (;;) {
    if (!bucketWhole(*bucket)) {
      found.damaged = true;
      return found;
    }
    for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
      const std::uint64_t entry = bucket->entries[i].load(std::memory_order_relaxed);
      if (entry == 0) {
        if (found.place.bucket == nullptr) found.place = {bucket, i, 0};
        continue;
      }
      if (entryTag(entry) != tag) continue;
      const std::uint64_t slot = entrySlot(entry);
      if (slot >= space_.slots() || sameKey(slot, key) || !lookAtSlot(file_, slot).whole) {
        found.place = {bucket, i, entry};
        return found;
      }
    }
    const std::uint64_t link = metaLink(bucket->meta.load(std::memory_order_relaxed));
    if (link == 0) return found;
    bucket = &file_.overflow(link - 1);
  }
}

void TableIndex::chainInto(std::uint64_t number, Chain& chain) const {
  chain.buckets.clear();
  chain.numbers.clear();
  Bucket* bucket = &file_.bucket(number);
  for (;;) {
    chain.buckets.push_back(bucket);
    const std::uint64_t link = metaLink(bucket->meta.load(std::memory_order_relaxed));
    if (link == 0) return;
    chain.numbers.push_back(link - 1);
    bucket = &file_.overflow(link - 1);
  }
}

void TableIndex::append(std::uint64_t number, std::uint64_t entry) {
  Bucket* bucket = &file_.bucket(number);
  for (;;) {
    for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
      if (bucket->entries[i].load(std::memory_order_relaxed) != 0) continue;
      BucketEdit(*bucket).entryIs(i, entry);
      return;
    }
    const std::uint64_t link = metaLink(bucket->meta.load(std::memory_order_relaxed));
    if (link == 0) break;
    bucket = &file_.overflow(link - 1);
  }
  const std::uint64_t added = space_.takeOverflow();
  BucketEdit(file_.overflow(added)).entryIs(0, entry);
  BucketEdit(*bucket).linkIs(added + 1);
}

void TableIndex::add(const EntryPlace& free, std::uint64_t hash, std::uint64_t entry) {
  if (free.bucket != nullptr) {
    BucketEdit(*free.bucket).entryIs(free.position, entry);
  } else {
    append(bucketOf(hash, buckets_), entry);
  }
}

// No entry moves: all that a reader can see is a larger index without entries. Buckets that were never in use
// are zeroes; others may be what a repair left behind the index's end.
bool TableIndex::expect(std::uint64_t entries) {
  constexpr std::uint64_t kStep = kRegionAlignment / sizeof(Bucket);  // a large page: see TableSpace
  const std::uint64_t wanted = std::min(kMostBuckets, (entries + kLoadPerBucket - 1) / kLoadPerBucket);
  const std::uint64_t next = std::min(wanted, (buckets_ / kStep + 1) * kStep);
  if (next <= buckets_ || !space_.bucketsReserved(next)) return true;
  for (std::uint64_t number = buckets_; number < next; ++number) BucketEdit(file_.bucket(number)).clear();
  buckets_ = next;
  publishState();
  return next == wanted;
}

void TableIndex::grow(std::uint64_t entries) {
  if (entries > buckets_ * kLoadPerBucket && buckets_ < kMostBuckets) split();
}

void TableIndex::split() {
  const std::uint64_t from = buckets_ & (std::bit_floor(buckets_) - 1);
  const std::uint64_t to = buckets_;
  chainInto(from, old_);
  const Chain& old = old_;
  if (!std::all_of(old.buckets.begin(), old.buckets.end(), [](const Bucket* b) { return bucketWhole(*b); }))
    return;
  if (!space_.bucketsReserved(buckets_ + 1) || !space_.overflowFree(old.buckets.size())) return;

  movers_.clear();
  for (Bucket* bucket : old.buckets) {
    for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
      const std::uint64_t entry = bucket->entries[i].load(std::memory_order_relaxed);
      if (entry == 0 || entrySlot(entry) >= hashes_.size()) continue;
      if (bucketOf(hashOf(entry), buckets_ + 1) == to) movers_.push_back({bucket, i, entry});
    }
  }
  const std::size_t first = std::min<std::size_t>(movers_.size(), kEntriesPerBucket);
  {
    BucketEdit edit(file_.bucket(to));
    edit.clear();
    for (unsigned i = 0; i < first; ++i) edit.entryIs(i, movers_[i].entry);
  }
  for (std::size_t i = first; i < movers_.size(); ++i) append(to, movers_[i].entry);
  ++buckets_;
  publishState();
  for (auto mover = movers_.begin(); mover != movers_.end();) {
    Bucket* const bucket = mover->bucket;
    BucketEdit edit(*bucket);
    for (; mover != movers_.end() && mover->bucket == bucket; ++mover) edit.entryIs(mover->position, 0);
  }
  if (old.buckets.size() > 1) compact(from);
}

// Moves entries forward into free places, then lets go of the buckets at the end that are not needed. Copies
// come first, then the state word moves, then the originals go: as in a split.
void TableIndex::compact(std::uint64_t number) {
  chainInto(number, compacted_);
  const Chain& chain = compacted_;
  std::vector<EntryPlace>& places = places_;
  places.clear();
  std::size_t count = 0;
  for (Bucket* bucket : chain.buckets) {
    for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
      const std::uint64_t entry = bucket->entries[i].load(std::memory_order_relaxed);
      places.push_back({bucket, i, entry});
      count += entry != 0 ? 1 : 0;
    }
  }
  const std::size_t kept = std::max<std::size_t>(1, (count + kEntriesPerBucket - 1) / kEntriesPerBucket);
  const auto tail = places.begin() + static_cast<std::ptrdiff_t>(kept * kEntriesPerBucket);
  if (tail == places.end()) return;
  auto free = places.begin();
  for (auto place = tail; place != places.end(); ++place) {
    if (place->entry == 0) continue;
    free = std::find_if(free, tail, [](const EntryPlace& each) { return each.entry == 0; });
    assert(free != tail);
    BucketEdit(*free->bucket).entryIs(free->position, place->entry);
    free->entry = place->entry;
  }
  ++compactions_;
  publishState();
  BucketEdit(*chain.buckets[kept - 1]).linkIs(0);
  for (std::size_t i = kept; i < chain.buckets.size(); ++i) {
    BucketEdit(*chain.buckets[i]).clear();
    space_.giveOverflow(chain.numbers[i - 1]);
  }
}

}  // namespace Quell
