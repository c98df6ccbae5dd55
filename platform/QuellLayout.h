// The bytes of a collection's file. docs/shared-memory.md draws it and tells the protocol.
//
//   0          Header: identity (never changes), then the words that the writer moves, then the doorbell
//   2 MiB      index: buckets of 64 bytes, grown one at a time (linear hashing)
//   130 MiB    overflow buckets, for buckets with more than seven entries
//   258 MiB    journal: a ring of changed keys
//   after it   records: slots of one size
//
// Every region starts at a fixed offset and the file is sparse, so that a process maps it once and growth
// only moves the end of the file. All words are 8 bytes, little endian, written by one store each.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Quell::Layout {

static_assert(std::endian::native == std::endian::little);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && sizeof(std::atomic<std::uint64_t>) == 8);
// The template through which every word of a file is accessed. std::atomic, but for who compiles the tables
// with one that decides itself what a load sees (tests/concurrency/scheduled).
#ifndef QUELL_ATOMIC
#define QUELL_ATOMIC std::atomic
#endif
using Word = QUELL_ATOMIC<std::uint64_t>;
static_assert(sizeof(Word) == 8);

inline constexpr std::array<char, 8> kMagic{'Q', 'U', 'E', 'L', 'L', 'T', 'B', 'L'};
inline constexpr std::uint32_t kVersion = 1;

inline constexpr std::uint64_t kPage = 4096;
inline constexpr std::uint64_t kRegionAlignment = std::uint64_t{2} << 20;
inline constexpr unsigned kEntriesPerBucket = 7;
inline constexpr std::uint64_t kLoadPerBucket = 4;  // average entries a bucket; one more splits a bucket
inline constexpr std::uint64_t kMostBuckets = std::uint64_t{1} << 21;
inline constexpr std::uint64_t kMostOverflowBuckets = std::uint64_t{1} << 21;
inline constexpr std::uint64_t kMostSlots = std::uint64_t{1} << 23;
inline constexpr std::uint64_t kJournalEntries = std::uint64_t{1} << 14;
inline constexpr std::uint32_t kMostRecordBytes = 2048;
// Slots beyond the entries: a freed slot is filled again only after this many others, so that a reader that
// was interrupted between an index entry and its record nearly always finds the record it came for.
inline constexpr std::uint64_t kSpareSlots = 64;

inline constexpr std::uint64_t kIndexOffset = kRegionAlignment;

// Calls call(0), ..., call(N - 1), the numbers as constants: for the loops of the packet path, which are to
// be straight code with their factors in it.
template <std::size_t N, class Call>
[[gnu::always_inline]] inline void unrolled(const Call& call) {
  [&]<std::size_t... I>(std::index_sequence<I...>) __attribute__((always_inline)) {
    (call(std::integral_constant<std::size_t, I>()), ...);
  }
  (std::make_index_sequence<N>());
}

// --- Checks
// -------------------------------------------------------------------------------------------------
//
// A check is the upper bits of a sum of words, each times an odd factor of its position. The factors are
// chosen so that any change of one byte changes the check with certainty (byteFlipsShow), and any other
// change shows but for a chance of one in 2^bits. It costs one multiplication a word, while the word is
// copied anyway.

constexpr std::uint64_t factor(std::uint64_t position) {
  std::uint64_t z = (position + 1) * 0x9e3779b97f4a7c15U;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
  return (z ^ (z >> 31)) | 1U;
}

// True when no change of a single byte of the word at a position leaves the upper `bits` of the sum as they
// were.
constexpr bool byteFlipsShow(std::uint64_t position, unsigned bits) {
  const std::uint64_t slack = std::uint64_t{1} << (64 - bits);
  for (unsigned byte = 0; byte < 8; ++byte) {
    for (std::uint64_t change = 1; change < 256; ++change) {
      const std::uint64_t moved = (change << (8 * byte)) * factor(position);
      if (moved < slack || std::uint64_t{0} - moved < slack) return false;
    }
  }
  return true;
}

inline constexpr std::size_t kMostWords = kMostRecordBytes / 8;
inline constexpr auto kFactors = [] {
  std::array<std::uint64_t, kMostWords> factors{};
  for (std::size_t i = 0; i != factors.size(); ++i) factors[i] = factor(i);
  return factors;
}();

// --- State word: how many buckets the index has ------------------------------------------------------------
//
// Bits 0-23 buckets, bits 24-39 counter of chain compactions, bits 40-63 check. A reader that finds nothing
// reads it again: unchanged, nothing moved meanwhile.

constexpr std::uint64_t stateWord(std::uint64_t buckets, std::uint64_t compactions) {
  const std::uint64_t low = (buckets & 0xffffffU) | (compactions & 0xffffU) << 24;
  return low | (low * factor(0)) >> 40 << 40;
}
constexpr std::uint64_t stateBuckets(std::uint64_t state) {
  return state & 0xffffffU;
}
constexpr std::uint64_t stateCompactions(std::uint64_t state) {
  return state >> 24 & 0xffffU;
}
constexpr bool stateValid(std::uint64_t state) {
  const std::uint64_t buckets = stateBuckets(state);
  return buckets != 0 && buckets <= kMostBuckets && stateWord(buckets, stateCompactions(state)) == state;
}

// The bits of a hash that can name one of so many buckets.
constexpr std::uint64_t bucketMask(std::uint64_t buckets) {
  return std::bit_ceil(buckets) - 1;
}
constexpr std::uint64_t bucketOf(std::uint64_t hash, std::uint64_t buckets, std::uint64_t mask) {
  const std::uint64_t bucket = hash & mask;
  return bucket < buckets ? bucket : bucket & (mask >> 1);
}
constexpr std::uint64_t bucketOf(std::uint64_t hash, std::uint64_t buckets) {
  return bucketOf(hash, buckets, bucketMask(buckets));
}
// How many low bits of the hash are common to the keys of a bucket.
constexpr unsigned bucketBits(std::uint64_t bucket, std::uint64_t buckets) {
  const auto low = static_cast<unsigned>(std::bit_width(buckets)) - 1;  // 2^low <= buckets
  const std::uint64_t whole = std::uint64_t{1} << low;
  return bucket >= whole || bucket < buckets - whole ? low + 1 : low;
}

// A count with a check: bits 0-31 the count, bits 32-63 the check.
constexpr std::uint64_t countWord(std::uint64_t count) {
  return (count & 0xffffffffU) | ((count & 0xffffffffU) + 1) * factor(1) >> 32 << 32;
}
constexpr std::uint64_t countOf(std::uint64_t word) {
  return word & 0xffffffffU;
}
constexpr bool countValid(std::uint64_t word) {
  return countWord(countOf(word)) == word;
}

// --- Buckets -----------------------------------------------------------------------------------------------

// An entry: bits 0-31 slot number + 1, bits 32-63 the upper half of the key's hash; 0 is no entry.
constexpr std::uint64_t entryWord(std::uint64_t hash, std::uint64_t slot) {
  return (hash >> 32) << 32 | (slot + 1);
}
constexpr std::uint32_t entryTag(std::uint64_t entry) {
  return static_cast<std::uint32_t>(entry >> 32);
}
// Wraps to a number that no table has when the entry is empty.
constexpr std::uint64_t entrySlot(std::uint64_t entry) {
  return (entry & 0xffffffffU) - 1;
}

// Bits 0-15 sequence, odd while the writer changes the bucket; bits 16-39 overflow bucket number + 1, 0 none;
// bits 40-63 check of the link and the entries. A bucket of zeroes is empty and valid.
struct alignas(64) Bucket {
  Word meta;
  std::array<Word, kEntriesPerBucket> entries;
};
static_assert(sizeof(Bucket) == 64);

inline constexpr unsigned kBucketCheckBits = 24;
constexpr std::uint64_t metaSequence(std::uint64_t meta) {
  return meta & 0xffffU;
}
constexpr bool metaChanging(std::uint64_t meta) {
  return (meta & 1U) != 0;
}
constexpr std::uint64_t metaLink(std::uint64_t meta) {
  return meta >> 16 & 0xffffffU;
}
constexpr std::uint64_t linkTerm(std::uint64_t link) {
  return link * factor(kEntriesPerBucket);
}
constexpr std::uint64_t metaWord(std::uint64_t sequence, std::uint64_t link, std::uint64_t sum) {
  return (sequence & 0xffffU) | link << 16 | (sum + linkTerm(link)) >> 40 << 40;
}
// Whether a bucket's word fits the sum of its entries, each times the factor of its position.
constexpr bool metaFits(std::uint64_t meta, std::uint64_t sum) {
  return metaWord(metaSequence(meta), metaLink(meta), sum) == meta;
}
static_assert([] {
  for (unsigned i = 0; i <= kEntriesPerBucket; ++i) {
    if (!byteFlipsShow(i, kBucketCheckBits)) return false;
  }
  return metaWord(0, 0, 0) == 0;
}());

// --- Slots -------------------------------------------------------------------------------------------------

// A slot is a meta word (bits 0-31 sequence, odd while it is filled; bits 32-63 check), then the record's
// words, the last one filled up with zeroes. The check covers the words from the one in which the key ends,
// and starts from the key's hash: who compared the key has only the rest to check.
constexpr bool slotFilling(std::uint64_t meta) {
  return (meta & 1U) != 0;
}
constexpr std::uint64_t slotMeta(std::uint32_t sequence, std::uint64_t sum) {
  return sequence | sum >> 32 << 32;
}
constexpr std::uint32_t slotSequence(std::uint64_t meta) {
  return static_cast<std::uint32_t>(meta);
}
constexpr bool slotFits(std::uint64_t meta, std::uint64_t sum) {
  return (meta ^ sum) >> 32 == 0;
}

constexpr std::size_t wordsFor(std::size_t bytes) {
  return (bytes + 7) / 8;
}
constexpr std::size_t firstCheckedWord(std::size_t keyBytes) {
  return keyBytes / 8;
}
// Up to a cache line a slot's size is a power of two, so that it stands in one line.
constexpr std::uint64_t slotBytes(std::size_t recordBytes) {
  const std::uint64_t bytes = 8 + 8 * wordsFor(recordBytes);
  return bytes <= 64 ? std::bit_ceil(bytes) : bytes;
}

// --- Journal -----------------------------------------------------------------------------------------------

// A journal entry: the position it was written at + 1 (0 while it is being written), a check, the key's
// words. Position p stands in entry p % kJournalEntries.
constexpr std::uint64_t journalEntryBytes(std::size_t keyBytes) {
  return 16 + 8 * wordsFor(keyBytes);
}

// --- Regions -----------------------------------------------------------------------------------------------

constexpr std::uint64_t roundUp(std::uint64_t value, std::uint64_t to) {
  return (value + to - 1) / to * to;
}
inline constexpr std::uint64_t kOverflowOffset = kIndexOffset + kMostBuckets * sizeof(Bucket);
inline constexpr std::uint64_t kJournalOffset = kOverflowOffset + kMostOverflowBuckets * sizeof(Bucket);
constexpr std::uint64_t recordsOffset(std::size_t keyBytes) {
  return roundUp(kJournalOffset + kJournalEntries * journalEntryBytes(keyBytes), kRegionAlignment);
}
constexpr std::uint64_t mappedBytes(std::size_t keyBytes, std::size_t recordBytes) {
  return roundUp(recordsOffset(keyBytes) + kMostSlots * slotBytes(recordBytes), kPage);
}
static_assert(kOverflowOffset == std::uint64_t{130} << 20 && kJournalOffset == std::uint64_t{258} << 20);

// --- Header ------------------------------------------------------------------------------------------------

// What a file says it is. Written once, before the file gets its name; identityCheck is the XXH3 of the bytes
// before it.
struct Identity {
  std::array<char, 8> magic;
  std::uint32_t version;
  std::uint32_t identityBytes;
  std::uint32_t recordBytes;
  std::uint32_t keyBytes;
  std::uint64_t recordsOffset;
  std::array<char, 96> recordType;     // NUL-terminated
  std::array<char, 96> containerType;  // type name of the entity that holds the collection
  std::array<char, 256> path;          // of the table
  std::array<char, 64> collection;
  std::uint64_t identityCheck;
};
static_assert(sizeof(Identity) == 552 && offsetof(Identity, identityCheck) == 544);

struct Header {
  Identity identity;
  std::array<std::byte, 1024 - sizeof(Identity)> unused0;
  // Read by every lookup; written when a bucket splits.
  Word state;
  std::array<std::byte, 120> unused1;
  // Written with every change.
  Word stateCopy;    // follows state; the writer that repairs falls back on it
  Word entries;      // count word
  Word journalHead;  // position of the next journal entry
  Word overflow;     // count word: overflow buckets that were ever in use
  std::array<std::byte, 96> unused2;
  Word writer;    // process id of the writer; 0 when the last one left in order
  Word sessions;  // how often a writer began
  std::array<std::byte, 2048 - 1296> unused3;
  // A byte that is written through the file to wake the watchers (inotify does not see stores to mapped
  // memory).
  std::array<std::byte, 8> doorbell;
  std::array<std::byte, 4096 - 2056> unused4;
};
static_assert(offsetof(Header, state) == 1024 && offsetof(Header, stateCopy) == 1152);
static_assert(offsetof(Header, writer) == 1280 && offsetof(Header, doorbell) == 2048);
static_assert(sizeof(Header) == kPage && sizeof(Header) <= kIndexOffset);

}  // namespace Quell::Layout
