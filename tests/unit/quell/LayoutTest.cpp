#include "QuellLayout.h"

#include <gtest/gtest.h>

#include <vector>

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

namespace {
// Whether a change of one byte of a word may leave the upper bits of a sum as they are, said another way.
bool byteFlipsShowBySums(std::uint64_t position, unsigned bits) {
  const auto upper = [&](std::uint64_t sum) { return sum >> (64 - bits); };
  const std::uint64_t last = (std::uint64_t{1} << (64 - bits)) - 1;  // of the sums whose upper bits are zero
  for (unsigned byte = 0; byte < 8; ++byte) {
    for (std::uint64_t change = 1; change <= 0xff; ++change) {
      const std::uint64_t moved = (change << (byte * 8)) * factor(position);
      if (upper(moved) == 0 || upper(last + moved) == 0) return false;
    }
  }
  return true;
}
}  // namespace

TEST(Layout, ByteFlipsShowWhereNoSumHidesThem) {
  unsigned hidden = 0;
  for (std::uint64_t position = 0; position < 32; ++position) {
    for (unsigned bits = 6; bits < 20; ++bits) {
      const bool show = byteFlipsShowBySums(position, bits);
      hidden += show ? 0 : 1;
      ASSERT_EQ(byteFlipsShow(position, bits), show) << position << ' ' << bits;
    }
  }
  EXPECT_GT(hidden, 32U * 3);
  EXPECT_LT(hidden, 32U * 13);
}

TEST(Layout, FactorsAreWhatFilesWereWrittenWith) {
  EXPECT_EQ(factor(0), 0xe220a8397b1dcdafU);
  EXPECT_EQ(factor(1), 0x6e789e6aa1b965f5U);
  EXPECT_EQ(factor(2), 0x06c45d188009454fU);
  EXPECT_EQ(factor(7), 0xc584133ac916ab3dU);
  EXPECT_EQ(factor(255), 0x5a5832bb47bcf19fU);
  for (std::uint64_t position = 0; position < kMostWords; ++position)
    EXPECT_EQ(kFactors[position], factor(position));
}

TEST(Layout, SizesAreRoundedUpToWholeWordsPagesAndLines) {
  for (std::uint64_t value = 0; value < 3 * kPage; ++value) {
    const std::uint64_t rounded = roundUp(value, kPage);
    ASSERT_EQ(rounded % kPage, 0U);
    ASSERT_TRUE(rounded >= value && rounded - value < kPage) << value;
  }
  for (std::size_t bytes = 1; bytes <= 24; ++bytes) {
    EXPECT_EQ(wordsFor(bytes), bytes <= 8 ? 1U : bytes <= 16 ? 2U : 3U);
    EXPECT_EQ(firstCheckedWord(bytes), bytes < 8 ? 0U : bytes < 16 ? 1U : bytes < 24 ? 2U : 3U);
  }
  EXPECT_EQ(slotBytes(1), 16U);
  EXPECT_EQ(slotBytes(8), 16U);
  EXPECT_EQ(slotBytes(9), 32U);
  EXPECT_EQ(slotBytes(24), 32U);
  EXPECT_EQ(slotBytes(25), 64U);
  EXPECT_EQ(slotBytes(56), 64U);
  EXPECT_EQ(slotBytes(2048), 2056U);
  EXPECT_EQ(journalEntryBytes(12), 32U);
  EXPECT_EQ(journalEntryBytes(72), 88U);
  EXPECT_EQ(recordsOffset(12), std::uint64_t{260} << 20);
  EXPECT_EQ(recordsOffset(112), std::uint64_t{260} << 20);
  EXPECT_EQ(recordsOffset(120), std::uint64_t{262} << 20);
  EXPECT_EQ(mappedBytes(12, 56), (std::uint64_t{260} << 20) + (std::uint64_t{64} << 23));
}

TEST(Layout, AStateWordIsItsCountsUnderACheckOfThem) {
  for (const std::uint64_t buckets : {1U, 0x1234U, 0x200000U}) {
    for (const std::uint64_t compactions : {0U, 1U, 0xabcdU, 0xffffU}) {
      const std::uint64_t state = stateWord(buckets, compactions);
      EXPECT_EQ(stateBuckets(state), buckets);
      EXPECT_EQ(stateCompactions(state), compactions);
      EXPECT_EQ(state & 0xffffffffffU, buckets + (compactions << 24));
      EXPECT_EQ(state >> 40, ((buckets + (compactions << 24)) * factor(0)) >> 40);
      EXPECT_TRUE(stateValid(state));
    }
  }
  EXPECT_EQ(stateWord(5, 0x10003), stateWord(5, 3)) << "the counter comes round";
  EXPECT_FALSE(stateValid(stateWord(0, 3)));
  EXPECT_TRUE(stateValid(stateWord(kMostBuckets, 3)));
  EXPECT_FALSE(stateValid(stateWord(kMostBuckets + 1, 3)));
}

TEST(Layout, ACountWordIsTheCountUnderACheckOfIt) {
  for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0xffffffff}}) {
    EXPECT_EQ(countOf(countWord(count)), count);
    EXPECT_EQ(countWord(count) >> 32, ((count + 1) * factor(1)) >> 32);
    EXPECT_TRUE(countValid(countWord(count)));
  }
  EXPECT_EQ(countWord(0x100000005U), countWord(5));
}

TEST(Layout, AnEntryNamesASlotAndTheUpperHalfOfAHash) {
  const std::uint64_t entry = entryWord(0x1234567887654321U, 41);
  EXPECT_EQ(entry, 0x123456780000002aU);
  EXPECT_EQ(entryTag(entry), 0x12345678U);
  EXPECT_EQ(entrySlot(entry), 41U);
  EXPECT_GE(entrySlot(0), kMostSlots);
}

TEST(Layout, ABucketsWordIsSequenceLinkAndCheck) {
  const std::uint64_t sum = 0x123456789abcdef0U;
  const std::uint64_t meta = metaWord(0x18002, 0x123456, sum);
  EXPECT_EQ(metaSequence(meta), 0x8002U);
  EXPECT_EQ(metaLink(meta), 0x123456U);
  EXPECT_EQ(meta >> 40, (sum + 0x123456U * factor(7)) >> 40);
  EXPECT_TRUE(metaFits(meta, sum));
  EXPECT_FALSE(metaFits(meta, sum + (std::uint64_t{1} << 40)));
  EXPECT_FALSE(metaChanging(2));
  EXPECT_TRUE(metaChanging(3));
}

TEST(Layout, ASlotsWordIsSequenceAndCheck) {
  const std::uint64_t sum = 0x123456789abcdef0U;
  const std::uint64_t meta = slotMeta(0x80000002U, sum);
  EXPECT_EQ(meta, 0x1234567880000002U);
  EXPECT_EQ(slotSequence(meta), 0x80000002U);
  EXPECT_TRUE(slotFits(meta, sum));
  EXPECT_FALSE(slotFits(meta, sum ^ (std::uint64_t{1} << 32)));
  EXPECT_FALSE(slotFits(meta, sum ^ (std::uint64_t{1} << 63)));
  EXPECT_TRUE(slotFits(meta, sum ^ 0xffffffffU));
  EXPECT_FALSE(slotFilling(2));
  EXPECT_TRUE(slotFilling(3));
}

TEST(Layout, BucketsOfAGrowingIndexAreNamedByTheBitsThereAre) {
  EXPECT_EQ(bucketMask(1), 0U);
  EXPECT_EQ(bucketMask(2), 1U);
  EXPECT_EQ(bucketMask(3), 3U);
  EXPECT_EQ(bucketMask(4), 3U);
  EXPECT_EQ(bucketMask(5), 7U);
  EXPECT_EQ(bucketBits(0, 1), 0U);
  EXPECT_EQ(bucketBits(0, 3), 2U);
  EXPECT_EQ(bucketBits(1, 3), 1U);
  EXPECT_EQ(bucketBits(2, 3), 2U);
}

TEST(Layout, CallsAreUnrolledInTheirOrder) {
  std::vector<std::size_t> called;
  unrolled<4>([&](auto i) { called.push_back(i); });
  EXPECT_EQ(called, (std::vector<std::size_t>{0, 1, 2, 3}));
}

TEST(Layout, EachBitIsReversedIntoItsPlaceFromTheOtherEnd) {
  for (unsigned bit = 0; bit < 64; ++bit) {
    const std::uint64_t one = std::uint64_t{1} << bit;
    const std::uint64_t other = std::uint64_t{1} << (63 - bit);
    EXPECT_EQ(Quell::reverseBits(one), other);
    EXPECT_EQ(Quell::reverseBits(~one), ~other);
  }
}

TEST(Layout, TheSumOfARecordBeginsInTheWordInWhichTheKeyEnds) {
  const std::array<std::uint64_t, 3> words{3, 5, 7};
  EXPECT_EQ(Quell::recordSum(words.data(), 4, 24, 100), 100 + 3 * factor(0) + 5 * factor(1) + 7 * factor(2));
  EXPECT_EQ(Quell::recordSum(words.data(), 8, 24, 100), 100 + 5 * factor(1) + 7 * factor(2));
  EXPECT_EQ(Quell::recordSum(words.data(), 12, 17, 100), 100 + 5 * factor(1) + 7 * factor(2));
  EXPECT_EQ(Quell::recordSum(words.data(), 12, 16, 100), 100 + 5 * factor(1));
  EXPECT_EQ(Quell::recordSum(words.data(), 8, 8, 100), 100U);
}
