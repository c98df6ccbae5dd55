// One collection's file, mapped: the reading side inline, because it runs for each packet.
//
// A reader takes a bucket from the hash, compares seven tags at once, and copies the record out between two
// reads of its slot's sequence. It writes nothing, waits for nobody and calls nothing. Whatever is not a
// plain hit (an overflow bucket, a miss, a change under way, damage) goes to the slow side, which tells them
// apart.
//
// Neighbours: QuellLayout.h draws the file byte by byte; runtime/quell has the writing side, opening and
// repair. Threading: one thread a Table; several may share one file.
#pragma once

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "Fenn.h"
#include "QuellLayout.h"

namespace Quell {

class TableFile;
class TableWriter;
struct RecordType;

// A walk met what cannot be read, in the part of the order that ends at resumeAt.
class WalkDamage : public Fenn::CorruptionDetectedException {
 public:
  WalkDamage(const std::string& text, bool atEnd, std::uint64_t resumeAt)
      : CorruptionDetectedException(text), atEnd_(atEnd), resumeAt_(resumeAt) {}
  // Whether nothing stands behind the damage.
  bool atEnd() const { return atEnd_; }
  // The place in the order behind the damage; for Map::behind.
  std::uint64_t resumeAt() const { return resumeAt_; }

 private:
  bool atEnd_;
  std::uint64_t resumeAt_;
};

class Table {
 public:
  // Reads the file given. To write, it takes the file's lock with the first store.
  explicit Table(std::shared_ptr<TableFile> file);
  ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  // --- Reading. Each throws Fenn::CorruptionDetectedException on damage.

  // 64-bit hash of a key's bytes; the same in every process.
  template <std::size_t KeyBytes>
  static std::uint64_t hash(const void* key) {
    return XXH3_64bits(key, KeyBytes);
  }

  // Entries now.
  std::uint64_t entries() const;
  // How often damage was met through this object.
  std::uint64_t damages() const { return damages_; }

  void prefetchIndex(std::uint64_t hash) const {
    __builtin_prefetch(&index_[Layout::bucketOf(hash, buckets_, mask_)]);
  }
  // Reads the bucket, so prefetchIndex should have had time to work.
  void prefetchRecord(std::uint64_t hash) const {
    const Layout::Bucket& bucket = index_[Layout::bucketOf(hash, buckets_, mask_)];
    const unsigned found = matches(bucket, Layout::entryTag(hash));
    if (found == 0) return;
    const std::uint64_t slot = slotAt(bucket, found);
    if (slot >= slots_) return;
    const std::byte* at = records_ + slot * slotBytes_;
    for (const std::byte* line = at; line < at + slotBytes_; line += 64) __builtin_prefetch(line);
    __builtin_prefetch(at + slotBytes_ - 1);
  }

  // Copies the record under a key out. False, and `out` unchanged, when there is none.
  template <std::size_t KeyBytes, std::size_t RecordBytes>
  bool find(const void* key, std::uint64_t hash, void* out) const {
    const std::uint64_t state = header_->state.load(std::memory_order_acquire);
    if (state == state_) [[likely]] {
      const Layout::Bucket& bucket = index_[Layout::bucketOf(hash, buckets_, mask_)];
      const unsigned found = matches(bucket, Layout::entryTag(hash));
      if (found != 0) [[likely]] {
        const std::uint64_t slot = slotAt(bucket, found);
        if (slot < slots_ && copyHit<KeyBytes, RecordBytes>(slot, key, hash, out)) [[likely]]
          return true;
      }
    }
    return findSlow(key, hash, out);
  }

  // The same without sizes known to the compiler, telling apart what is no plain hit.
  bool findSlow(const void* key, std::uint64_t hash, void* out) const;

  // Walking in table order: the bit-reversed hash, then the key's bytes. False at the end. Unreadable entries
  // are thrown as WalkDamage when those of their bucket that can be read have been met.
  bool walkFirst(void* out) const { return walkFrom(0, out); }
  bool walkAfter(const void* key, void* out) const { return walkKey(key, false, out); }
  bool walkAtOrAfter(const void* key, void* out) const { return walkKey(key, true, out); }
  // From a place in the order, as WalkDamage tells one.
  bool walkFrom(std::uint64_t position, void* out) const;

  // --- Writing. Each throws TableError when this process cannot become the writer (the text names the
  // process that is), or when there is no room: nothing has changed then.

  // Inserts or overwrites.
  void store(const void* record);
  // False, and nothing written, when absent.
  bool erase(const void* key);
  // Wakes those who watch, when anything changed since the last time.
  void flush();
  // Becomes the writer, repairing what the last one left; an error as above. Nothing when it is already.
  void writingIs();
  // Gives the lock back.
  void writingDel();
  bool writing() const { return writing_; }

  const std::shared_ptr<TableFile>& file() const { return file_; }

 private:
  friend class TableScan;

  // One bit for each entry of this tag, at its position.
  static unsigned matches(const Layout::Bucket& bucket, std::uint32_t tag) {
    unsigned found = 0;
    for (unsigned i = 0; i < Layout::kEntriesPerBucket; ++i) {
      const std::uint64_t entry = bucket.entries[i].load(std::memory_order_relaxed);
      found |= static_cast<unsigned>(Layout::entryTag(entry) == tag) << i;
    }
    return found;
  }
  static std::uint64_t slotAt(const Layout::Bucket& bucket, unsigned found) {
    return Layout::entrySlot(
        bucket.entries[static_cast<unsigned>(__builtin_ctz(found))].load(std::memory_order_acquire));
  }

  // True when the slot held the key's record, whole. Each word is loaded with acquire: the second look at the
  // meta word then comes after them, and sees a filling that any of them came from.
  template <std::size_t KeyBytes, std::size_t RecordBytes>
  bool copyHit(std::uint64_t slot, const void* key, std::uint64_t hash, void* out) const {
    constexpr std::size_t kWords = Layout::wordsFor(RecordBytes);
    constexpr std::size_t kKeyWords = KeyBytes / 8;
    constexpr std::size_t kKeyTail = KeyBytes % 8;
    const auto* words =
        reinterpret_cast<const Layout::Word*>(records_ + slot * Layout::slotBytes(RecordBytes));
    const std::uint64_t meta = words[0].load(std::memory_order_acquire);
    std::uint64_t copy[kWords];
    for (std::size_t i = 0; i < kWords; ++i) copy[i] = words[1 + i].load(std::memory_order_acquire);
    const std::uint64_t again = words[0].load(std::memory_order_relaxed);

    std::uint64_t differs = (meta ^ again) | (meta & 1U);
    const auto* keyBytes = static_cast<const std::byte*>(key);
    for (std::size_t i = 0; i < kKeyWords; ++i) {
      std::uint64_t wanted;
      std::memcpy(&wanted, keyBytes + 8 * i, 8);
      differs |= wanted ^ copy[i];
    }
    if constexpr (kKeyTail != 0) {
      std::uint64_t wanted = 0;
      std::memcpy(&wanted, keyBytes + 8 * kKeyWords, kKeyTail);
      differs |= (wanted ^ copy[kKeyWords]) << (64 - 8 * kKeyTail);
    }
    std::uint64_t sum = hash;
    for (std::size_t i = Layout::firstCheckedWord(KeyBytes); i < kWords; ++i)
      sum += copy[i] * Layout::factor(i);
    differs |= (meta ^ sum) >> 32;
    if (differs != 0) [[unlikely]]
      return false;
    std::memcpy(out, copy, RecordBytes);
    return true;
  }

  bool walkKey(const void* key, bool inclusive, void* out) const;

  // What the file said last, checked; the hot path compares and uses these alone.
  const Layout::Header* header_ = nullptr;
  const Layout::Bucket* index_ = nullptr;
  const std::byte* records_ = nullptr;
  std::uint64_t slotBytes_ = 0;
  mutable std::uint64_t state_ = 0;
  mutable std::uint64_t buckets_ = 1;
  mutable std::uint64_t mask_ = 0;
  mutable std::uint64_t slots_ = 0;  // that the file has room for

  mutable std::uint64_t damages_ = 0;
  bool writing_ = false;
  std::shared_ptr<TableFile> file_;
  std::unique_ptr<TableWriter> writer_;  // null until first asked to write
};

}  // namespace Quell
