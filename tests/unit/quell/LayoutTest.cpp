#include "QuellLayout.h"

#include <gtest/gtest.h>

#include "quell/SlotAccess.h"

using namespace Quell::Layout;

TEST(Layout, AnyByteFlipOfARecordWordShowsInItsCheck) {
  for (std::uint64_t position = 0; position < kMostWords; ++position)
    EXPECT_TRUE(byteFlipsShow(position, 32)) << position;
}

TEST(Layout, AnyByteFlipOfTheStateWordOrACountShows) {
  for (std::uint64_t buckets : {1U, 2U, 3U, 700U, 65536U, 2097152U}) {
    for (unsigned byte = 0; byte < 8; ++byte) {
      for (std::uint64_t change = 1; change < 256; ++change) {
        EXPECT_FALSE(stateValid(stateWord(buckets, buckets % 100) ^ change << (8 * byte)));
        EXPECT_FALSE(countValid(countWord(buckets) ^ change << (8 * byte)));
      }
    }
  }
}

TEST(Layout, ABucketTakesTheHashesThatShareItsBits) {
  for (std::uint64_t buckets = 1; buckets < 70; ++buckets) {
    for (std::uint64_t hash = 0; hash < 512; ++hash) {
      const std::uint64_t bucket = bucketOf(hash, buckets);
      ASSERT_LT(bucket, buckets);
      const unsigned bits = bucketBits(bucket, buckets);
      EXPECT_EQ(bucket, hash & ((std::uint64_t{1} << bits) - 1)) << buckets << " " << hash;
      EXPECT_EQ(bucketOf(hash + (std::uint64_t{1} << bits), buckets), bucket);
    }
  }
}

TEST(Layout, ASplitMovesHashesOnlyToTheNewBucket) {
  for (std::uint64_t buckets = 1; buckets < 70; ++buckets) {
    for (std::uint64_t hash = 0; hash < 512; ++hash) {
      const std::uint64_t after = bucketOf(hash, buckets + 1);
      EXPECT_TRUE(after == bucketOf(hash, buckets) || after == buckets);
    }
  }
}

TEST(Layout, SmallSlotsStandInOneCacheLine) {
  for (std::size_t bytes = 1; bytes <= 56; ++bytes) EXPECT_EQ(64 % slotBytes(bytes), 0U) << bytes;
  EXPECT_EQ(slotBytes(57), 72U);
  EXPECT_EQ(slotBytes(72), 80U);
}

TEST(Layout, ReversedBitsReverseBack) {
  EXPECT_EQ(Quell::reverseBits(1), std::uint64_t{1} << 63);
  EXPECT_EQ(Quell::reverseBits(0x8000000000000001U), 0x8000000000000001U);
  EXPECT_EQ(Quell::reverseBits(Quell::reverseBits(0x0123456789abcdefU)), 0x0123456789abcdefU);
}
