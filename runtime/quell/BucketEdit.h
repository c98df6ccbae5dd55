// How the writer changes buckets and slots: the one place that knows in which order the words are stored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "quell/SlotAccess.h"
#include "quell/TableFile.h"

namespace Quell {

inline std::uint64_t entriesSum(const Layout::Bucket& bucket) {
  std::uint64_t sum = 0;
  for (unsigned i = 0; i < Layout::kEntriesPerBucket; ++i) {
    sum += bucket.entries[i].load(std::memory_order_relaxed) * Layout::kFactors[i];
  }
  return sum;
}

// Whether a bucket is as its writer left it, no change under way.
inline bool bucketWhole(const Layout::Bucket& bucket) {
  const std::uint64_t meta = bucket.meta.load(std::memory_order_relaxed);
  return !Layout::metaChanging(meta) && Layout::metaFits(meta, entriesSum(bucket));
}

// One change of a bucket: odd while it lives, even and with the right check when it goes. Stores between are
// releases, so that a reader that met any of them sees that the sequence moved.
class BucketEdit {
 public:
  explicit BucketEdit(Layout::Bucket& bucket) : bucket_(bucket) {
    const std::uint64_t meta = bucket.meta.load(std::memory_order_relaxed) | 1U;
    bucket.meta.store(meta, std::memory_order_relaxed);
    sequence_ = Layout::metaSequence(meta) + 1;
    link_ = Layout::metaLink(meta);
  }
  ~BucketEdit() {
    bucket_.meta.store(Layout::metaWord(sequence_, link_, entriesSum(bucket_)), std::memory_order_release);
  }
  BucketEdit(const BucketEdit&) = delete;
  BucketEdit& operator=(const BucketEdit&) = delete;

  void entryIs(unsigned position, std::uint64_t entry) {
    bucket_.entries[position].store(entry, std::memory_order_release);
  }
  void linkIs(std::uint64_t link) { link_ = link; }
  void clear() {
    for (unsigned i = 0; i < Layout::kEntriesPerBucket; ++i) entryIs(i, 0);
    linkIs(0);
  }

 private:
  Layout::Bucket& bucket_;
  std::uint64_t sequence_;
  std::uint64_t link_;
};

// Fills a slot that no entry names. Also its odd meta word is a release: who sees it is to see, too, that no
// entry names the slot any more, or would take it for damage.
inline void fillSlot(const TableFile& file, std::uint64_t slot, const void* record, std::uint64_t hash) {
  RecordWords copy;
  const std::size_t count = Layout::wordsFor(file.recordBytes());
  copy.words[count - 1] = 0;
  std::memcpy(copy.words.data(), record, file.recordBytes());
  Layout::Word* words = file.slot(slot);
  const std::uint64_t filling = words[0].load(std::memory_order_relaxed) | 1U;
  words[0].store(filling, std::memory_order_release);
  for (std::size_t i = 0; i < count; ++i) words[1 + i].store(copy.words[i], std::memory_order_release);
  const std::uint64_t sum = recordSum(copy.words.data(), file.keyBytes(), file.recordBytes(), hash);
  words[0].store(Layout::slotMeta(Layout::slotSequence(filling) + 1, sum), std::memory_order_release);
}

// The hash of the key in a slot; the slot's record is whole when it matches its check.
struct SlotLook {
  std::uint64_t hash;
  bool whole;
};
inline SlotLook lookAtSlot(const TableFile& file, std::uint64_t slot) {
  RecordWords copy;
  const Layout::Word* words = file.slot(slot);
  const std::uint64_t meta = words[0].load(std::memory_order_relaxed);
  for (std::size_t i = 0; i < Layout::wordsFor(file.recordBytes()); ++i) {
    copy.words[i] = words[1 + i].load(std::memory_order_relaxed);
  }
  const std::uint64_t hash = keyHash(copy.words.data(), file.keyBytes());
  const std::uint64_t sum = recordSum(copy.words.data(), file.keyBytes(), file.recordBytes(), hash);
  return {hash, !Layout::slotFilling(meta) && Layout::slotFits(meta, sum)};
}

}  // namespace Quell
