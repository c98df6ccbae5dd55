// Hash and check of records whose sizes are known only at run time.
#pragma once

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstddef>
#include <cstdint>

#include "QuellLayout.h"

namespace Quell {

// Room for the largest record, a word at a time.
struct RecordWords {
  std::array<std::uint64_t, Layout::kMostWords> words;
};

// The same for objects of a record's or key's type.
struct RecordBytes {
  alignas(8) std::array<std::byte, Layout::kMostRecordBytes> bytes;
};

inline std::uint64_t keyHash(const void* key, std::size_t keyBytes) {
  return XXH3_64bits(key, keyBytes);
}

// The sum that a slot's check is taken from.
inline std::uint64_t recordSum(const std::uint64_t* words, std::size_t keyBytes, std::size_t recordBytes,
                               std::uint64_t hash) {
  std::uint64_t sum = hash;
  for (std::size_t i = Layout::firstCheckedWord(keyBytes); i < Layout::wordsFor(recordBytes); ++i) {
    sum += words[i] * Layout::kFactors[i];
  }
  return sum;
}

inline std::uint64_t reverseBits(std::uint64_t value) {
  value = (value & 0x5555555555555555U) << 1 | (value >> 1 & 0x5555555555555555U);
  value = (value & 0x3333333333333333U) << 2 | (value >> 2 & 0x3333333333333333U);
  value = (value & 0x0f0f0f0f0f0f0f0fU) << 4 | (value >> 4 & 0x0f0f0f0f0f0f0f0fU);
  return __builtin_bswap64(value);
}

}  // namespace Quell
