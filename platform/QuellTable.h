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

#include <algorithm>
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

#ifdef QUELL_VECTOR_TAGS
inline constexpr bool kVectors = std::is_same_v<Layout::Word, std::atomic<std::uint64_t>>;
#else
inline constexpr bool kVectors = false;
#endif

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
  // Where the index names the record of a hash; null when nothing plain does. A find that is given it looks
  // there first: it is a find in two parts, between which others have their memory asked for.
  struct Place {
    const Layout::Word* word = nullptr;
    std::uint64_t entry = 0;
  };
  // Asks for the record's memory. Reads the bucket, so prefetchIndex should have had time to work.
  template <std::size_t RecordBytes>
  Place place(std::uint64_t hash) const {
    const Layout::Bucket& bucket = index_[Layout::bucketOf(hash, buckets_, mask_)];
    const unsigned found = matches(bucket, Layout::entryTag(hash));
    if (found == 0) return {};
    const Layout::Word& word = reinterpret_cast<const Layout::Word*>(&bucket)[__builtin_ctz(found)];
    const std::uint64_t entry = word.load(std::memory_order_acquire);
    const std::uint64_t slot = Layout::entrySlot(entry);
    if (slot >= slots_) return {};
    constexpr std::size_t kBytes = Layout::slotBytes(RecordBytes);
    Kiv::prefetch(records_ + slot * kBytes, kBytes);
    return {&word, entry};
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

  // The same, from its second part on. An entry that still stands where it stood names the key's record as
  // well now as it did then. Inline, so that who looks at one member of the record copies no more.
  template <std::size_t KeyBytes, std::size_t RecordBytes>
  [[gnu::always_inline]] inline bool find(const Place& place, const void* key, std::uint64_t hash,
                                          void* out) const {
    if (place.word != nullptr && place.word->load(std::memory_order_acquire) == place.entry &&
        copyHit<KeyBytes, RecordBytes>(Layout::entrySlot(place.entry), key, hash, out)) [[likely]]
      return true;
    return find<KeyBytes, RecordBytes>(key, hash, out);
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
  // Makes the index of an empty table as large as so many entries will want it, where it would grow by a
  // bucket with every fourth of them; by two megabytes of it a call, a few milliseconds at most. False: call
  // again. A hint: a table with entries, or without room, stays as it is.
  bool expect(std::size_t entries);
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

  // True when the slot held the key's record, whole. The second look at the meta word comes after all that
  // was read of the record, and sees a filling that any of it came from. What is compared is not kept: the
  // record's key is given out from the caller's.
  template <std::size_t KeyBytes, std::size_t RecordBytes>
  [[gnu::always_inline]] inline bool copyHit(std::uint64_t slot, const void* key, std::uint64_t hash,
                                             void* out) const {
    constexpr std::size_t kFirst = Layout::firstCheckedWord(KeyBytes);  // the word in which the key ends
    constexpr std::size_t kRest = Layout::wordsFor(RecordBytes) - kFirst;
    constexpr std::size_t kKeyTail = KeyBytes % 8;
    const auto* words =
        reinterpret_cast<const Layout::Word*>(records_ + slot * Layout::slotBytes(RecordBytes));
    const std::uint64_t meta = words[0].load(std::memory_order_acquire);
    std::uint64_t differs = (meta & 1U) | keyDiffers<kFirst>(words + 1, key);
    std::uint64_t rest[kRest];
    std::uint64_t sum = hash;
    Layout::unrolled<kRest>([&](auto i) {
      constexpr std::uint64_t kFactor = Layout::factor(kFirst + i);
      rest[i] = words[1 + kFirst + i].load(std::memory_order_acquire);
      sum += rest[i] * kFactor;
    });
    if constexpr (kKeyTail != 0) {
      std::uint64_t tail = 0;
      std::memcpy(&tail, static_cast<const std::byte*>(key) + 8 * kFirst, kKeyTail);
      differs |= (tail ^ rest[0]) << (64 - 8 * kKeyTail);
    }
    differs |= meta ^ words[0].load(std::memory_order_relaxed);
    differs |= (meta ^ sum) >> 32;
    if (differs != 0) [[unlikely]]
      return false;
    std::memmove(out, key, 8 * kFirst);  // the key may be that of the record to be filled
    Layout::unrolled<kRest>([&](auto i) {
      constexpr std::size_t kAt = 8 * (kFirst + i);
      std::memcpy(static_cast<std::byte*>(out) + kAt, &rest[i], std::min<std::size_t>(8, RecordBytes - kAt));
    });
    return true;
  }

  // 0 when so many words of a record are those of the key. Two at once where there are vectors: they are read
  // as two loads would be, each word whole (aligned words do not cross a cache line), and whatever was
  // written meanwhile the meta word tells, as for single words. It takes a third of a lookup's instructions
  // away, and with them some of the wait for memory: more lookups fit into what the processor looks at
  // together.
  template <std::size_t Words>
  [[gnu::always_inline]] static inline std::uint64_t keyDiffers(const Layout::Word* words, const void* key) {
    const auto* wanted = static_cast<const std::byte*>(key);
    std::uint64_t differs = 0;
    constexpr std::size_t kPairs = kVectors ? Words / 2 : 0;
#ifdef QUELL_VECTOR_TAGS
    __m128i same = _mm_set1_epi8(-1);
    Layout::unrolled<kPairs>([&](auto i) {
      const __m128i held = _mm_loadu_si128(reinterpret_cast<const __m128i*>(words + 2 * i));
      const __m128i asked = _mm_loadu_si128(reinterpret_cast<const __m128i*>(wanted + 16 * i));
      same = _mm_and_si128(same, _mm_cmpeq_epi8(held, asked));
    });
    differs = static_cast<std::uint64_t>(_mm_movemask_epi8(same)) ^ 0xffffU;
    std::atomic_signal_fence(std::memory_order_acquire);
#endif
    Layout::unrolled<Words - 2 * kPairs>([&](auto i) {
      constexpr std::size_t kAt = 2 * kPairs + i;
      std::uint64_t word;
      std::memcpy(&word, wanted + 8 * kAt, 8);
      differs |= word ^ words[kAt].load(std::memory_order_acquire);
    });
    return differs;
  }

  bool walkKey(const void* key, bool inclusive, void* out) const;

  // What the file said last, checked; the hot path compares and uses these alone.
  const Layout::Header* header_ = nullptr;
  const Layout::Bucket* index_ = nullptr;
  const std::byte* records_ = nullptr;
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
