#include "quell/TableRepair.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "quell/BucketEdit.h"

namespace Quell {

using namespace Layout;

namespace {

class Repairer {
 public:
  explicit Repairer(TableFile& file) : file_(file) {}

  TableRepair run() {
    readState();
    found_.slots.assign(file_.slotsInFile(), false);
    found_.hashes.resize(found_.slots.size());
    for (std::uint64_t number = 0; number < found_.buckets; ++number) {
      if (number + kAhead < found_.buckets) prefetchRecords(file_.bucket(number + kAhead));
      repairChain(number);
    }
    clearUnpublished();
    storeCounts();
    return std::move(found_);
  }

 private:
  // Buckets; with it, beginning to write a table of a million takes half the time.
  static constexpr std::uint64_t kAhead = 4;
  void prefetchRecords(const Bucket& bucket) const {
    for (const Word& entry : bucket.entries) {
      const std::uint64_t slot = entrySlot(entry.load(std::memory_order_relaxed));
      if (slot < found_.slots.size()) file_.prefetchSlot(slot);
    }
  }

  void readState() {
    Header& header = file_.header();
    std::uint64_t state = header.state.load(std::memory_order_relaxed);
    if (!stateValid(state)) {
      state = header.stateCopy.load(std::memory_order_relaxed);
      found_.counts = true;
      if (!stateValid(state)) {
        throw TableError(fmt::format("{}: damaged beyond repair: the size of the index is lost (both copies)",
                                     file_.place().fileName()));
      }
    }
    const std::uint64_t overflow = header.overflow.load(std::memory_order_relaxed);
    // A count that fits its check may still be no count of this table: another program may have written it.
    mostOverflow_ =
        std::min(countValid(overflow) ? countOf(overflow) : kMostOverflowBuckets, kMostOverflowBuckets);
    found_.buckets = stateBuckets(state);
    found_.compactions = stateCompactions(state);
  }

  void repairChain(std::uint64_t number) {
    keys_.clear();
    Bucket* bucket = &file_.bucket(number);
    while (bucket != nullptr) {
      const bool whole = bucketWhole(*bucket);
      std::array<std::uint64_t, kEntriesPerBucket> wanted{};
      bool changes = !whole;
      for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
        const std::uint64_t entry = bucket->entries[i].load(std::memory_order_relaxed);
        wanted[i] = entry == 0 ? 0 : rightEntry(number, entry);
        changes |= wanted[i] != entry;
      }
      const std::uint64_t link = metaLink(bucket->meta.load(std::memory_order_relaxed));
      const std::uint64_t next = link == 0 || takeOverflow(link - 1) ? link : 0;
      if (next != link) ++found_.links;
      if (changes || next != link) {
        if (!whole) ++found_.unfinished;
        moveReadersOn();
        BucketEdit edit(*bucket);
        for (unsigned i = 0; i < kEntriesPerBucket; ++i) edit.entryIs(i, wanted[i]);
        edit.linkIs(next);
      }
      bucket = next == 0 ? nullptr : &file_.overflow(next - 1);
    }
  }

  // An entry that is taken out here may have its other copy where a reader looked before that was made, a
  // writer ago: whoever began before has to look again, and does once the state word is another.
  void moveReadersOn() {
    if (std::exchange(movedOn_, true)) return;
    found_.compactions = stateCompactions(stateWord(found_.buckets, found_.compactions + 1));
    storeState();
  }
  void storeState() {
    const std::uint64_t state = stateWord(found_.buckets, found_.compactions);
    file_.header().state.store(state, std::memory_order_release);
    file_.header().stateCopy.store(state, std::memory_order_release);
  }

  // The entry as it should be in a bucket's chain; 0 when it should not be there.
  std::uint64_t rightEntry(std::uint64_t number, std::uint64_t entry) {
    const std::uint64_t slot = entrySlot(entry);
    if (slot >= found_.slots.size()) return drop(found_.damaged);
    const SlotLook look = lookAtSlot(file_, slot);
    if (!look.whole) return drop(found_.damaged);
    if (bucketOf(look.hash, found_.buckets) != number || found_.slots[slot] || hasKey(slot, look.hash)) {
      return drop(found_.doubles);
    }
    keys_.push_back({look.hash, slot});
    found_.slots[slot] = true;
    found_.hashes[slot] = static_cast<std::uint32_t>(look.hash);
    ++found_.entries;
    const std::uint64_t right = entryWord(look.hash, slot);
    if (right != entry) ++found_.tags;
    return right;
  }
  static std::uint64_t drop(std::uint64_t& count) {
    ++count;
    return 0;
  }

  bool hasKey(std::uint64_t slot, std::uint64_t hash) const {
    return std::any_of(keys_.begin(), keys_.end(), [&](const Seen& seen) {
      if (seen.hash != hash) return false;
      const Word* mine = file_.slot(slot) + 1;
      const Word* other = file_.slot(seen.slot) + 1;
      for (std::size_t i = 0; i < wordsFor(file_.keyBytes()); ++i) {
        std::uint64_t differs =
            mine[i].load(std::memory_order_relaxed) ^ other[i].load(std::memory_order_relaxed);
        const std::size_t left = file_.keyBytes() - 8 * i;
        if (left < 8) differs <<= 64 - 8 * left;
        if (differs != 0) return false;
      }
      return true;
    });
  }

  bool takeOverflow(std::uint64_t number) {
    if (number >= mostOverflow_) return false;
    if (number >= found_.overflow.size()) found_.overflow.resize(number + 1, false);
    if (found_.overflow[number]) return false;  // two chains, or a circle
    found_.overflow[number] = true;
    return true;
  }

  // A split that did not come to its state word may have filled the next bucket.
  void clearUnpublished() {
    if (found_.buckets >= kMostBuckets || !file_.reserve(kIndexOffset, (found_.buckets + 1) * sizeof(Bucket)))
      return;
    Bucket& next = file_.bucket(found_.buckets);
    const bool empty = std::all_of(next.entries.begin(), next.entries.end(), [](const Word& entry) {
      return entry.load(std::memory_order_relaxed) == 0;
    });
    if (empty && bucketWhole(next) && metaLink(next.meta.load(std::memory_order_relaxed)) == 0) return;
    ++found_.unfinished;
    BucketEdit(next).clear();
  }

  void storeCounts() {
    Header& header = file_.header();
    const std::uint64_t entries = countWord(found_.entries);
    found_.counts |= header.entries.load(std::memory_order_relaxed) != entries;
    storeState();
    header.entries.store(entries, std::memory_order_release);
  }

  struct Seen {
    std::uint64_t hash;
    std::uint64_t slot;
  };
  TableFile& file_;
  TableRepair found_;
  std::uint64_t mostOverflow_ = 0;
  bool movedOn_ = false;
  std::vector<Seen> keys_;  // of the chain in hand
};

}  // namespace

TableRepair repair(TableFile& file) {
  return Repairer(file).run();
}

std::string TableRepair::text() const {
  std::string text;
  const auto add = [&text](std::uint64_t count, std::string_view what) {
    if (count != 0) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, what);
  };
  add(doubles, "entries left twice dropped");
  add(damaged, "damaged records dropped");
  add(tags, "entries put right");
  add(links, "links dropped");
  add(unfinished, "unfinished or damaged buckets put right");
  if (counts) text += fmt::format("{}counts put right", text.empty() ? "" : ", ");
  return text;
}

}  // namespace Quell
