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
#include "KivPrefetch.h"
#include "QuellLayout.h"

// Eight tags at once. Not under the thread sanitizer, which rightly does not know that such a load is a hint.
#if defined(__SSE2__) && !defined(__SANITIZE_THREAD__)
#include <emmintrin.h>
#define QUELL_VECTOR_TAGS
#endif

namespace Quell {

class TableFile;
class TableWriter;
struct RecordType;
struct WalkPlace;

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
    Kiv::prefetch(&index_[Layout::bucketOf(hash, buckets_, mask_)]);
  }
  // Reads the bucket, so prefetchIndex should have had time to work.
  void prefetchRecord(std::uint64_t hash) const {
    const Layout::Bucket& bucket = index_[Layout::bucketOf(hash, buckets_, mask_)];
    const unsigned found = matches(bucket, Layout::entryTag(hash));
    if (found == 0) return;
    const std::uint64_t slot = slotAt(bucket, found);
    if (slot >= slots_) return;
    const std::byte* at = records_ + slot * slotBytes_;
    for (const std::byte* line = at; line < at + slotBytes_; line += 64) Kiv::prefetch(line);
    Kiv::prefetch(at + slotBytes_ - 1);
  }

  // Copies the record under a key out. False, and `out` unchanged, when there is none.
  template <std::size_t KeyBytes, std::size_t RecordBytes>
  bool find(const void* key, std::uint64_t hash, void* out) const {
    const std::uint64_t state = header_->state.load(std::memory_order_acquire);
    if (state == state_) [[likely]] {
      const Layout::Bucket& bucket = index_[Layout::bucketOf(hash, buckets_, mask_)];
      const unsigned found = matches(bucket, Layout::entryTag(hash));
      if (found != 0) {
        const std::uint64_t slot = slotAt(bucket, found);
        if (slot < slots_ && copyHit<KeyBytes, RecordBytes>(slot, key, hash, out)) [[likely]]
          return true;
      } else if (plainMiss(bucket, Layout::entryTag(hash), state)) [[likely]] {
        return false;
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
  // Keys that the walk meets a few steps later, each told once; false when there is none at present. A hint,
  // to ask for the memory they lead to: some are left out, and what is told may be no key at all.
  bool walkAhead(void* key) const;

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

  // One bit for each word of a bucket whose upper half is this tag: bit i for entry i - 1; the meta word is
  // left out. What is found is only a hint: the entry itself is loaded again, by one atomic load, before it
  // is used.
  static unsigned matches(const Layout::Bucket& bucket, std::uint32_t tag) {
#ifdef QUELL_VECTOR_TAGS
    const auto* quarters = reinterpret_cast<const __m128*>(&bucket);
    const __m128i wanted = _mm_set1_epi32(static_cast<int>(tag));
    const __m128 low = _mm_shuffle_ps(quarters[0], quarters[1], _MM_SHUFFLE(3, 1, 3, 1));
    const __m128 high = _mm_shuffle_ps(quarters[2], quarters[3], _MM_SHUFFLE(3, 1, 3, 1));
    const int first = _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_castps_si128(low), wanted)));
    const int last = _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_castps_si128(high), wanted)));
    return static_cast<unsigned>(first | last << 4) & ~1U;
#else
    unsigned found = 0;
    Layout::unrolled<Layout::kEntriesPerBucket>([&](auto i) {
      const std::uint64_t entry = bucket.entries[i].load(std::memory_order_relaxed);
      found |= static_cast<unsigned>(Layout::entryTag(entry) == tag) << (i + 1);
    });
    return found;
#endif
  }
  // The slot of the first entry found.
  static std::uint64_t slotAt(const Layout::Bucket& bucket, unsigned found) {
    const auto* words = reinterpret_cast<const Layout::Word*>(&bucket);
    return Layout::entrySlot(words[__builtin_ctz(found)].load(std::memory_order_acquire));
  }

  // True when a bucket has, for certain, no entry of a tag: nothing was moving, and its check is right.
  bool plainMiss(const Layout::Bucket& bucket, std::uint32_t tag, std::uint64_t state) const {
    const std::uint64_t meta = bucket.meta.load(std::memory_order_acquire);
    std::uint64_t sum = 0;
    bool met = false;
    Layout::unrolled<Layout::kEntriesPerBucket>([&](auto i) {
      constexpr std::uint64_t kFactor = Layout::factor(i);
      const std::uint64_t entry = bucket.entries[i].load(std::memory_order_acquire);
      met |= Layout::entryTag(entry) == tag && entry != 0;
      sum += entry * kFactor;
    });
    return !met && bucket.meta.load(std::memory_order_relaxed) == meta && !Layout::metaChanging(meta) &&
           Layout::metaLink(meta) == 0 && Layout::metaFits(meta, sum) &&
           header_->state.load(std::memory_order_relaxed) == state;
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
    Layout::unrolled<kWords>([&](auto i) { copy[i] = words[1 + i].load(std::memory_order_acquire); });
    const std::uint64_t again = words[0].load(std::memory_order_relaxed);

    std::uint64_t differs = (meta ^ again) | (meta & 1U);
    const auto* keyBytes = static_cast<const std::byte*>(key);
    Layout::unrolled<kKeyWords>([&](auto i) {
      std::uint64_t wanted;
      std::memcpy(&wanted, keyBytes + 8 * i, 8);
      differs |= wanted ^ copy[i];
    });
    if constexpr (kKeyTail != 0) {
      std::uint64_t wanted = 0;
      std::memcpy(&wanted, keyBytes + 8 * kKeyWords, kKeyTail);
      differs |= (wanted ^ copy[kKeyWords]) << (64 - 8 * kKeyTail);
    }
    std::uint64_t sum = hash;
    constexpr std::size_t kFirst = Layout::firstCheckedWord(KeyBytes);
    Layout::unrolled<kWords - kFirst>([&](auto i) {
      constexpr std::uint64_t kFactor = Layout::factor(kFirst + i);
      sum += copy[kFirst + i] * kFactor;
    });
    differs |= (meta ^ sum) >> 32;
    if (differs != 0) [[unlikely]]
      return false;
    // Word by word: wider loads would wait for the stores of the words above to leave the store buffer.
    Layout::unrolled<RecordBytes / 8>([&](auto i) {
      std::uint64_t word = copy[i];
      __asm__("" : "+r"(word));
      std::memcpy(static_cast<std::byte*>(out) + 8 * i, &word, 8);
    });
    constexpr std::size_t kWhole = RecordBytes / 8 * 8;
    if constexpr (kWhole != RecordBytes) {
      std::memcpy(static_cast<std::byte*>(out) + kWhole, &copy[kWords - 1], RecordBytes - kWhole);
    }
    return true;
  }

  bool walkKey(const void* key, bool inclusive, void* out) const;

  // What the file said last, checked; the hot path compares and uses these alone.
  const Layout::Header* header_ = nullptr;
  const Layout::Bucket* index_ = nullptr;
  const std::byte* records_ = nullptr;
  std::uint64_t slotBytes_ = 0;
  mutable std::uint64_t state_ = Layout::stateWord(1, 0);  // fits the next two: no damaged word equals it
  mutable std::uint64_t buckets_ = 1;
  mutable std::uint64_t mask_ = 0;
  mutable std::uint64_t slots_ = 0;  // that the file has room for

  mutable std::uint64_t damages_ = 0;
  std::unique_ptr<WalkPlace> walk_;  // where the last step of a walk stood
  bool writing_ = false;
  std::shared_ptr<TableFile> file_;
  std::unique_ptr<TableWriter> writer_;  // null until first asked to write
};

}  // namespace Quell
