#include "quell/TableScan.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#include "Quell.h"

namespace Quell {

using namespace Layout;

namespace {

// How often a look is taken at what is wrong before it counts as damage, at what changes before it counts as
// unreadable, and at a bucket in change before its check is passed over (its writer may have died).
constexpr unsigned kDamagedLooks = 3;
constexpr unsigned kChangedLooks = 100000;
constexpr unsigned kUnstableLooks = 64;

}  // namespace

std::string TableScan::text(const std::string& why) const {
  return fmt::format("table {}: {}", file_.name(), why);
}

void TableScan::damage(const std::string& why) const {
  ++table_.damages_;
  throw Fenn::CorruptionDetectedException(text(why));
}

std::uint64_t TableScan::state() {
  const Word& word = file_.header().state;
  std::uint64_t state = word.load(std::memory_order_acquire);
  if (state == table_.state_) return state;
  if (!stateValid(state)) damage("the state of the index does not match its check");
  table_.buckets_ = stateBuckets(state);
  table_.mask_ = bucketMask(table_.buckets_);
  table_.state_ = state;
  return state;
}

bool TableScan::stateIs(std::uint64_t state) const {
  return file_.header().state.load(std::memory_order_acquire) == state;
}

bool TableScan::slotExists(std::uint64_t slot) const {
  if (slot < table_.slots_) return true;
  if (slot >= kMostSlots) return false;
  table_.slots_ = file_.slotsInFile();
  return slot < table_.slots_;
}

TableScan::Reading TableScan::wrong(std::string why) {
  why_ = std::move(why);
  return Reading::damaged;
}

TableScan::Reading TableScan::read(const Word& cell, std::uint64_t entry) {
  const std::uint64_t slot = entrySlot(entry);
  if (!slotExists(slot)) {
    if (cell.load(std::memory_order_acquire) != entry) return Reading::changed;
    return wrong(fmt::format("an entry names slot {}, which is not there", slot));
  }
  const Word* words = file_.slot(slot);
  const std::uint64_t meta = words[0].load(std::memory_order_acquire);
  const std::size_t count = wordsFor(file_.recordBytes());
  for (std::size_t i = 0; i < count; ++i) words_.words[i] = words[1 + i].load(std::memory_order_acquire);
  // What was read is what the entry names when the entry still stands and the slot was not filled since: also
  // an entry that went and came back brings the slot's later filling with it.
  if (cell.load(std::memory_order_acquire) != entry || words[0].load(std::memory_order_relaxed) != meta) {
    return Reading::changed;
  }

  if (slotFilling(meta)) return wrong(fmt::format("slot {} is half filled", slot));
  meta_ = meta;
  hash_ = keyHash(words_.words.data(), file_.keyBytes());
  if (!slotFits(meta, recordSum(words_.words.data(), file_.keyBytes(), file_.recordBytes(), hash_))) {
    return wrong(fmt::format("the record in slot {} does not match its check", slot));
  }
  if (entryTag(entry) != static_cast<std::uint32_t>(hash_ >> 32)) {
    return wrong(fmt::format("the record in slot {} is not the one its entry names", slot));
  }
  return Reading::whole;
}

TableScan::Reading TableScan::follow(const Word& cell, std::uint64_t entry) {
  unsigned damagedLooks = 0;
  for (unsigned looks = 0; looks < kChangedLooks; ++looks) {
    const Reading reading = read(cell, entry);
    if (reading == Reading::whole) return reading;
    if (reading == Reading::damaged && ++damagedLooks == kDamagedLooks) return reading;
    if (reading == Reading::changed) file_.tornReadsInc();
    entry = cell.load(std::memory_order_acquire);
    if (entry == 0) return Reading::changed;
  }
  why_ = "a record changed faster than it could be read";
  return Reading::damaged;
}

TableScan::BucketLook TableScan::look(const Bucket& bucket, std::uint64_t& meta,
                                      std::array<std::uint64_t, kEntriesPerBucket>& entries) {
  for (unsigned looks = 0;; ++looks) {
    meta = bucket.meta.load(std::memory_order_acquire);
    std::uint64_t sum = 0;
    for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
      entries[i] = bucket.entries[i].load(std::memory_order_acquire);
      sum += entries[i] * kFactors[i];
    }
    if (bucket.meta.load(std::memory_order_relaxed) == meta && !metaChanging(meta)) {
      return metaFits(meta, sum) ? BucketLook::verified : BucketLook::damaged;
    }
    if (looks == kUnstableLooks) return BucketLook::unverified;
  }
}

// Links that lead in a circle come back to the bucket that was met last at a power of two of the length
// (Brent). One that has changed since was taken out of the chain and is in use again; one that has not got
// two links to it from nobody who works here, and is damage.
template <class Visit, class Seen>
TableScan::Chain TableScan::visitChain(std::uint64_t number, const Visit& visit, const Seen& seen) {
  Chain chain;
  const Bucket* bucket = &file_.bucket(number);
  const Bucket* met = nullptr;
  std::uint64_t metMeta = 0;
  for (std::uint64_t length = 0; length <= kMostOverflowBuckets; ++length) {
    std::uint64_t meta = 0;
    std::array<std::uint64_t, kEntriesPerBucket> entries{};
    const BucketLook result = look(*bucket, meta, entries);
    if (bucket == met) {
      chain.changed = meta != metMeta;
      if (!chain.changed && !chain.damaged) {
        chain.damaged = true;
        why_ = fmt::format("the links of bucket {} lead in a circle", number);
      }
      return chain;
    }
    if (result == BucketLook::damaged) {
      chain.damaged = true;
      why_ = fmt::format("bucket {} does not match its check", number);
    }
    if (std::has_single_bit(length)) {
      met = bucket;
      metMeta = meta;
    }
    seen(*bucket, meta, result);
    for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
      if (entries[i] != 0 && !visit(bucket->entries[i], entries[i])) return chain;
    }
    const std::uint64_t link = metaLink(meta);
    if (link == 0 || link > kMostOverflowBuckets) return chain;
    bucket = &file_.overflow(link - 1);
  }
  chain.changed = true;  // only a chain that changes all the time is as long as that
  return chain;
}

bool TableScan::find(const void* key, std::uint64_t hash, void* out) {
  const auto tag = static_cast<std::uint32_t>(hash >> 32);
  unsigned damagedLooks = 0;
  for (unsigned looks = 0; looks < kChangedLooks; ++looks) {
    const std::uint64_t before = state();
    bool found = false;
    bool changed = false;
    bool damaged = false;
    const Chain chain =
        visitChain(bucketOf(hash, table_.buckets_, table_.mask_), [&](const Word& cell, std::uint64_t entry) {
          if (entryTag(entry) != tag) return true;
          const Reading reading = read(cell, entry);
          changed |= reading == Reading::changed;
          damaged |= reading == Reading::damaged;
          found = reading == Reading::whole && std::memcmp(words_.words.data(), key, file_.keyBytes()) == 0;
          return !found;
        });
    if (found) {
      std::memcpy(out, words_.words.data(), file_.recordBytes());
      return true;
    }
    if (!stateIs(before) || changed || chain.changed) {
      file_.tornReadsInc();
      continue;
    }
    if (!damaged && !chain.damaged) return false;
    if (++damagedLooks == kDamagedLooks) damage(why_);
  }
  damage("a bucket changed faster than it could be read");
}

bool TableScan::isBehind(const WalkPlace::Entry& each, std::uint64_t position, const void* key,
                         bool inclusive) const {
  if (each.position != position || key == nullptr) return each.position >= position;
  const int order = std::memcmp(place_.record(each), key, file_.keyBytes());
  return order > 0 || (order == 0 && inclusive);
}

void TableScan::insertInOrder(const WalkPlace::Entry& entry) {
  const auto isBefore = [&](const WalkPlace::Entry& other) {
    if (other.position != entry.position) return entry.position < other.position;
    return std::memcmp(place_.record(entry), place_.record(other), file_.keyBytes()) < 0;
  };
  auto at = place_.entries.end();
  while (at != place_.entries.begin() && isBefore(*std::prev(at))) --at;
  place_.entries.insert(at, entry);
}

TableScan::Chain TableScan::gather(std::uint64_t number, std::uint64_t state) {
  place_.clear();
  bool damaged = false;
  bool whole = true;
  Chain chain = visitChain(
      number,
      [&](const Word& cell, std::uint64_t entry) {
        const Reading reading = follow(cell, entry);
        damaged |= reading == Reading::damaged;
        whole &= reading == Reading::whole;
        if (reading != Reading::whole) return true;
        if (bucketOf(hash_, table_.buckets_, table_.mask_) != number) return true;  // left behind by a split
        const std::size_t copy = place_.words.size();
        const auto words = words_.words.begin();
        place_.words.insert(place_.words.end(), words,
                            words + static_cast<std::ptrdiff_t>(wordsFor(file_.recordBytes())));
        insertInOrder({reverseBits(hash_), &cell, entry, meta_, copy});
        return true;
      },
      [&](const Bucket& bucket, std::uint64_t meta, BucketLook look) {
        whole &= look == BucketLook::verified;
        place_.chain.push_back({&bucket, meta});
      });
  chain.damaged |= damaged;
  place_.bucket = number;
  if (whole && !chain.damaged && !chain.changed && stateIs(state)) place_.state = state;  // W1
  return chain;
}

const WalkPlace::Entry* TableScan::stepIn(std::uint64_t position, const void* key, bool inclusive) {
  for (place_.at = 0; place_.at < place_.entries.size(); ++place_.at) {
    const WalkPlace::Entry& each = place_.entries[place_.at];
    if (isBehind(each, position, key, inclusive) && stands(each)) return &each;
  }
  return nullptr;
}

// Not erased since it was copied (W4). One that was overwritten counts as standing: its copy was the record
// when W2 was looked at.
bool TableScan::stands(const WalkPlace::Entry& each) {
  return each.cell->load(std::memory_order_acquire) != 0;
}

bool TableScan::asCopied() {
  for (const WalkPlace::Link& link : place_.chain) {
    std::uint64_t meta = 0;
    std::array<std::uint64_t, kEntriesPerBucket> entries{};
    if (look(*link.bucket, meta, entries) != BucketLook::verified || meta != link.meta) return false;
  }
  return std::all_of(place_.entries.begin(), place_.entries.end(),
                     [this](const WalkPlace::Entry& each) { return !stands(each) || asCopied(each); });
}

bool TableScan::asCopied(const WalkPlace::Entry& each) const {
  const std::size_t count = wordsFor(file_.recordBytes());
  const Word* words = file_.slot(entrySlot(each.entry));
  const std::uint64_t* copy = place_.record(each);
  std::uint64_t differs = words[0].load(std::memory_order_acquire) ^ each.meta;
  for (std::size_t i = 0; i < count; ++i) differs |= words[1 + i].load(std::memory_order_acquire) ^ copy[i];
  return differs == 0;
}

bool TableScan::walkOn(const void* key, void* out) {
  if (!place_.goesOnBehind(key, file_.keyBytes()) || !stateIs(place_.state) ||
      !place_.holds(place_.state, place_.bucket)) {
    return false;
  }
  const std::uint64_t* const last = place_.record(place_.entries[place_.at]);
  while (++place_.at < place_.entries.size()) {
    const WalkPlace::Entry& each = place_.entries[place_.at];
    // Of a key that a compaction has copied and not yet taken away, both entries are remembered, side by
    // side.
    if (std::memcmp(place_.record(each), last, file_.keyBytes()) == 0) continue;
    if (!stands(each)) {
      if (!stateIs(place_.state)) return false;  // it has moved
      continue;
    }
    if (!asCopied(each)) {  // W3
      place_.clear();
      return false;
    }
    std::memcpy(out, place_.record(each), file_.recordBytes());
    return true;
  }
  return false;
}

// The bucket's keys share the upper bits of their place: the next such prefix, 0 behind the last one.
std::uint64_t TableScan::behindBucket(std::uint64_t position, std::uint64_t number) const {
  const unsigned bits = bucketBits(number, table_.buckets_);
  if (bits == 0) return 0;
  const std::uint64_t step = std::uint64_t{1} << (64 - bits);
  return (position & ~(step - 1)) + step;
}

template <class Visit>
void TableScan::visitSlots(std::uint64_t number, const Visit& visit) const {
  for (const Word& word : file_.bucket(number).entries) {
    const std::uint64_t slot = entrySlot(word.load(std::memory_order_relaxed));
    if (slot < table_.slots_) visit(slot);
  }
}

// Three buckets ahead, as far as each has come: the records of the next one have been asked for when this was
// called for the bucket before, the one after has its entries here, of the third nothing.
void TableScan::prefetchBehind(std::uint64_t position, std::uint64_t number) {
  const auto behind = [&] {
    position = behindBucket(position, number);
    number = bucketOf(reverseBits(position), table_.buckets_, table_.mask_);
    return number;
  };
  visitSlots(behind(), [&](std::uint64_t slot) { place_.ahead.push_back(file_.slot(slot)); });
  visitSlots(behind(), [&](std::uint64_t slot) { file_.prefetchSlot(slot); });
  Kiv::prefetch(&file_.bucket(behind()));
}

bool TableScan::ahead(void* key) {
  if (place_.ahead.empty()) return false;
  const Word* slot = place_.ahead.back();
  place_.ahead.pop_back();
  const std::size_t count = wordsFor(file_.keyBytes());
  for (std::size_t i = 0; i < count; ++i) words_.words[i] = slot[1 + i].load(std::memory_order_relaxed);
  std::memcpy(key, words_.words.data(), file_.keyBytes());
  return true;
}

bool TableScan::walk(std::uint64_t position, const void* key, bool inclusive, void* out) {
  unsigned looks = 0;
  unsigned damagedLooks = 0;
  for (;;) {
    const std::uint64_t before = state();
    const std::uint64_t number = bucketOf(reverseBits(position), table_.buckets_, table_.mask_);
    Chain chain;
    const bool remembered = place_.holds(before, number);
    if (!remembered) {
      const bool entered = place_.bucket != number;
      chain = gather(number, before);
      if (entered) prefetchBehind(position, number);
    }
    const WalkPlace::Entry* const found = stepIn(position, key, inclusive);
    if (!stateIs(before) || chain.changed) {
      file_.tornReadsInc();
      place_.clear();
      if (++looks == kChangedLooks) damage("the index changed faster than it could be walked");
      continue;
    }
    if (found != nullptr && remembered && !asCopied(*found)) {  // W3
      place_.clear();
      continue;
    }
    if (found != nullptr) {
      std::memcpy(out, place_.record(*found), file_.recordBytes());
      return true;
    }
    if (remembered && !asCopied()) {  // W3
      place_.clear();
      continue;
    }
    if (chain.damaged) place_.clear();
    if (chain.damaged && ++damagedLooks < kDamagedLooks) continue;

    const std::uint64_t next = behindBucket(position, number);
    if (chain.damaged) {
      ++table_.damages_;
      throw WalkDamage(text(why_), next == 0, next);
    }
    if (next == 0) return false;
    position = next;
    key = nullptr;
    damagedLooks = 0;
  }
}

std::uint64_t TableScan::entries() {
  const std::uint64_t word = file_.header().entries.load(std::memory_order_acquire);
  if (countValid(word)) return countOf(word);
  std::uint64_t count = 0;  // the count is damaged: the entries themselves tell
  state();
  for (std::uint64_t number = 0; number < table_.buckets_; ++number) {
    visitChain(number, [&](const Word&, std::uint64_t) {
      ++count;
      return true;
    });
  }
  return count;
}

}  // namespace Quell
