// Where a writer gets memory for a table, and in which steps.
#include "quell/TableSpace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QuellFiles.h"
#include "SystemCalls.h"

using namespace QuellTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace Layout = Quell::Layout;

namespace {

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kMiB = 1024 * kKiB;
constexpr std::uint64_t kIndex = Layout::kIndexOffset;
constexpr std::uint64_t kBucketsAMiB = kMiB / sizeof(Layout::Bucket);

struct Asked {
  std::string_view what;  // "reserve" or "gather"
  std::uint64_t offset;
  std::uint64_t bytes;
  bool operator==(const Asked&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const Asked& asked) {
    return out << asked.what << ' ' << asked.offset << " +" << asked.bytes;
  }
};
constexpr std::string_view kReserve = "reserve";
constexpr std::string_view kGather = "gather";

class Spaces : public testing::Test {
 protected:
  Spaces() {
    files_.open();
    file_ = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
    space_ = std::make_unique<Quell::TableSpace>(*file_);
  }

  // What `call` asks the system for. Nothing is reserved in fact but the file made as long. Large pages are
  // to be had or not.
  std::vector<Asked> asks(const std::function<void()>& call, bool largePages = true) {
    std::vector<Asked> all;
    const SystemCalls calls([&](const SystemCall& each) -> int {
      if (each.name == "madvise") {
        const auto base = reinterpret_cast<std::uintptr_t>(&file_->header());
        all.push_back({kGather, each.offset - base, each.bytes});
        return SystemCalls::kDone;
      }
      if (each.name != "posix_fallocate") return 0;
      const std::uint64_t end = each.offset + each.bytes;
      if (!largePages && each.bytes == Layout::kPage && end % Layout::kRegionAlignment == 0) return ENOSPC;
      all.push_back({kReserve, each.offset, each.bytes});
      if (end > std::filesystem::file_size(files_.fileName()))
        std::filesystem::resize_file(files_.fileName(), end);
      return SystemCalls::kDone;
    });
    call();
    return all;
  }
  std::vector<Asked> asksForBuckets(std::uint64_t count, bool largePages = true) {
    return asks([&] { EXPECT_TRUE(space_->bucketsReserved(count)); }, largePages);
  }
  // Without what that takes.
  void startWith(std::uint64_t buckets) {
    asks([&] { space_->usedIs({}, {}, buckets); });
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  std::shared_ptr<Quell::TableFile> file_;
  std::unique_ptr<Quell::TableSpace> space_;
};

}  // namespace

TEST_F(Spaces, WhatIsInUseIsReservedBeforeAnythingIsStored) {
  const auto asked =
      asks([&] { space_->usedIs(std::vector<bool>(200, true), std::vector<bool>(70, true), 130); });
  EXPECT_THAT(asked, ElementsAre(Asked{kReserve, 0, 4 * kKiB},                        // the header
                                 Asked{kReserve, kIndex, 12 * kKiB},                  // 130 buckets
                                 Asked{kReserve, Layout::kOverflowOffset, 8 * kKiB},  // 70 more
                                 Asked{kReserve, file_->identity().recordsOffset, 16 * kKiB}));  // 200 slots
}

TEST_F(Spaces, ARegionGrowsByAnEighthInWholePages) {
  startWith(1);
  EXPECT_THAT(asksForBuckets(64), IsEmpty());
  EXPECT_THAT(asksForBuckets(65), ElementsAre(Asked{kReserve, kIndex + 4 * kKiB, 4 * kKiB}));
  EXPECT_THAT(asksForBuckets(128), IsEmpty());
  EXPECT_THAT(asksForBuckets(1024), ElementsAre(Asked{kReserve, kIndex + 8 * kKiB, 56 * kKiB}));
  EXPECT_THAT(asksForBuckets(1025), ElementsAre(Asked{kReserve, kIndex + 64 * kKiB, 8 * kKiB}));
}

TEST_F(Spaces, ARegionIsGatheredIntoALargePageOnceHalfOfItIsThere) {
  startWith(1);
  EXPECT_THAT(asksForBuckets(kBucketsAMiB - 64),
              ElementsAre(Asked{kReserve, kIndex + 4 * kKiB, kMiB - 8 * kKiB}));
  EXPECT_THAT(
      asksForBuckets(kBucketsAMiB - 63),
      ElementsAre(Asked{kReserve, kIndex + kMiB - 4 * kKiB, 128 * kKiB}, Asked{kGather, kIndex, 2 * kMiB}));
  EXPECT_THAT(asksForBuckets(kBucketsAMiB + 2000),
              ElementsAre(Asked{kReserve, kIndex + kMiB + 124 * kKiB, 144 * kKiB}));
}

TEST_F(Spaces, ExactlyHalfOfALargePageIsGathered) {
  startWith(1);
  EXPECT_THAT(asksForBuckets(kBucketsAMiB), ElementsAre(Asked{kReserve, kIndex + 4 * kKiB, kMiB - 4 * kKiB},
                                                        Asked{kGather, kIndex, 2 * kMiB}));
}

TEST_F(Spaces, NoStepGoesPastTheEndOfALargePage) {
  startWith(2 * kBucketsAMiB - 1024);
  EXPECT_THAT(asksForBuckets(2 * kBucketsAMiB - 1023),
              ElementsAre(Asked{kReserve, kIndex + 2 * kMiB - 64 * kKiB, 64 * kKiB}));
  EXPECT_THAT(asksForBuckets(2 * kBucketsAMiB), IsEmpty());
}

TEST_F(Spaces, BehindItsFirstLargePageARegionGrowsByLargePages) {
  startWith(2 * kBucketsAMiB);
  const auto page = [](std::uint64_t number) {
    const std::uint64_t offset = kIndex + number * 2 * kMiB;
    return std::vector<Asked>{{kReserve, offset + 2 * kMiB - 4 * kKiB, 4 * kKiB},
                              {kGather, offset, 2 * kMiB},
                              {kReserve, offset, 2 * kMiB}};
  };
  EXPECT_EQ(asksForBuckets(2 * kBucketsAMiB + 1), page(1));
  EXPECT_THAT(asksForBuckets(4 * kBucketsAMiB), IsEmpty());
  std::vector<Asked> two = page(2);
  for (const Asked& each : page(3)) two.push_back(each);
  EXPECT_EQ(asksForBuckets(8 * kBucketsAMiB), two);
}

TEST_F(Spaces, WithoutLargePagesARegionGrowsByAMegabyteAtMost) {
  startWith(2 * kBucketsAMiB);
  EXPECT_THAT(asksForBuckets(2 * kBucketsAMiB + 1, false),
              ElementsAre(Asked{kReserve, kIndex + 2 * kMiB, 256 * kKiB}));
  EXPECT_THAT(
      asksForBuckets(16 * kBucketsAMiB, false),
      ElementsAre(Asked{kReserve, kIndex + 2 * kMiB + 256 * kKiB, 14 * kMiB - 256 * kKiB},
                  Asked{kGather, kIndex + 2 * kMiB, 2 * kMiB}, Asked{kGather, kIndex + 4 * kMiB, 2 * kMiB},
                  Asked{kGather, kIndex + 6 * kMiB, 2 * kMiB}, Asked{kGather, kIndex + 8 * kMiB, 2 * kMiB},
                  Asked{kGather, kIndex + 10 * kMiB, 2 * kMiB}, Asked{kGather, kIndex + 12 * kMiB, 2 * kMiB},
                  Asked{kGather, kIndex + 14 * kMiB, 2 * kMiB}));
  EXPECT_THAT(
      asksForBuckets(16 * kBucketsAMiB + 1, false),
      ElementsAre(Asked{kReserve, kIndex + 16 * kMiB, kMiB}, Asked{kGather, kIndex + 16 * kMiB, 2 * kMiB}));
  EXPECT_THAT(asksForBuckets(17 * kBucketsAMiB + 1, false),
              ElementsAre(Asked{kReserve, kIndex + 17 * kMiB, kMiB}));
}

TEST_F(Spaces, TheIndexEndsWhereItsRegionDoes) {
  startWith(1);
  asksForBuckets(Layout::kMostBuckets - 64);
  const std::uint64_t end = kIndex + Layout::kMostBuckets * sizeof(Layout::Bucket);
  EXPECT_THAT(asksForBuckets(Layout::kMostBuckets - 63),
              ElementsAre(Asked{kReserve, end - 4 * kKiB, 4 * kKiB}));
  EXPECT_THAT(asksForBuckets(Layout::kMostBuckets), IsEmpty());
  EXPECT_THAT(asks([&] { EXPECT_FALSE(space_->bucketsReserved(Layout::kMostBuckets + 1)); }), IsEmpty());
}

TEST_F(Spaces, TheJournalIsReservedAsFarAsItsPositionStandsInTheRing) {
  startWith(1);
  const auto asksFor = [&](std::uint64_t position) {
    return asks([&] { EXPECT_TRUE(space_->journalReserved(position)); });
  };
  EXPECT_THAT(asksFor(0), ElementsAre(Asked{kReserve, Layout::kJournalOffset, 4 * kKiB}));
  EXPECT_THAT(asksFor(127), IsEmpty());  // 32 bytes each
  EXPECT_THAT(asksFor(128), ElementsAre(Asked{kReserve, Layout::kJournalOffset + 4 * kKiB, 4 * kKiB}));
  EXPECT_THAT(asksFor(Layout::kJournalEntries), IsEmpty());
  EXPECT_THAT(asksFor(15000), ElementsAre(Asked{kReserve, Layout::kJournalOffset + 8 * kKiB, 464 * kKiB}));
  EXPECT_THAT(asksFor(15200), ElementsAre(Asked{kReserve, Layout::kJournalOffset + 472 * kKiB, 40 * kKiB}))
      << "up to the ring's end";
  EXPECT_THAT(asksFor(Layout::kJournalEntries - 1), IsEmpty());
}

TEST_F(Spaces, WithoutRoomNothingIsReservedAndLaterItIs) {
  startWith(1);
  {
    const SystemCalls calls("posix_fallocate", ENOSPC);
    EXPECT_FALSE(space_->bucketsReserved(65));
    EXPECT_FALSE(space_->journalReserved(0));
    EXPECT_FALSE(space_->overflowFree(1));
    EXPECT_TRUE(space_->bucketsReserved(64));
  }
  EXPECT_THAT(asksForBuckets(65), ElementsAre(Asked{kReserve, kIndex + 4 * kKiB, 4 * kKiB}));
}

TEST_F(Spaces, ATableWithoutRoomForWhatIsInItIsNotWritten) {
  for (const unsigned failing : {1U, 2U, 3U, 4U}) {
    unsigned asked = 0;
    const SystemCalls calls([&](const SystemCall& call) {
      return call.name == "posix_fallocate" && ++asked == failing ? ENOSPC : 0;
    });
    EXPECT_THAT(tableError([&] { space_->usedIs(std::vector<bool>(10), std::vector<bool>(1), 1); }),
                HasSubstr("red: the file system has no room for the table"))
        << failing;
    EXPECT_EQ(asked, failing);
  }
  EXPECT_NO_THROW(space_->usedIs(std::vector<bool>(10), std::vector<bool>(1), 1));
}

TEST_F(Spaces, SlotsAreTakenOldestFirst) {
  std::vector<bool> used(128, true);
  used[3] = used[90] = false;
  space_->usedIs(used, {}, 1);
  space_->giveSlot(7);
  EXPECT_EQ(space_->takeSlot(), 3U);
  EXPECT_EQ(space_->takeSlot(), 90U);
  space_->giveSlot(3);
  EXPECT_EQ(space_->takeSlot(), 7U);
  EXPECT_EQ(space_->takeSlot(), 3U);
}

TEST_F(Spaces, MoreSlotsAreMadeUntilSixtyFourAreSpare) {
  space_->usedIs(std::vector<bool>(file_->slotsInFile(), true), {}, 1);
  const std::uint64_t before = space_->slots();
  EXPECT_TRUE(space_->slotsFree(2));
  EXPECT_GE(space_->slots(), before + 2 + Layout::kSpareSlots);
  EXPECT_EQ(space_->slots(), file_->slotsInFile());
  for (std::uint64_t slot = before; slot < space_->slots(); ++slot) ASSERT_EQ(space_->takeSlot(), slot);
}

TEST_F(Spaces, ManyFreeSlotsAskForNoMore) {
  space_->usedIs(std::vector<bool>(file_->slotsInFile()), {}, 1);
  EXPECT_THAT(asks([&] { EXPECT_TRUE(space_->slotsFree(2)); }), IsEmpty());
}

TEST_F(Spaces, WithoutRoomTheSlotsThatAreFreeWillDo) {
  std::vector<bool> used(file_->slotsInFile(), true);
  used[5] = used[6] = false;
  space_->usedIs(used, {}, 1);
  const SystemCalls calls("posix_fallocate", ENOSPC);
  EXPECT_FALSE(space_->slotsFree(3));
  EXPECT_TRUE(space_->slotsFree(2));
}

TEST_F(Spaces, ATableHasNoMoreThanItsMostSlots) {
  const std::uint64_t records = file_->identity().recordsOffset;
  asks([&] { space_->usedIs(std::vector<bool>(Layout::kMostSlots - 10, true), {}, 1); });
  EXPECT_THAT(asks([&] { EXPECT_TRUE(space_->slotsFree(1)); }, false), IsEmpty());
  EXPECT_EQ(space_->slots(), Layout::kMostSlots);
  EXPECT_FALSE(asks([&] { EXPECT_FALSE(space_->slotsFree(65)); }, false).size());
  EXPECT_EQ(std::filesystem::file_size(files_.fileName()), records + Layout::kMostSlots * file_->slotBytes());
}

TEST_F(Spaces, OverflowBucketsThatWereGivenBackAreTakenBeforeNewOnes) {
  space_->usedIs({}, {true, false, true}, 1);
  EXPECT_EQ(file_->header().overflow.load(), Layout::countWord(3));
  EXPECT_TRUE(space_->overflowFree(1));
  EXPECT_EQ(space_->takeOverflow(), 1U);
  EXPECT_EQ(file_->header().overflow.load(), Layout::countWord(3));
  EXPECT_TRUE(space_->overflowFree(2));
  EXPECT_EQ(space_->takeOverflow(), 3U);
  EXPECT_EQ(space_->takeOverflow(), 4U);
  EXPECT_EQ(file_->header().overflow.load(), Layout::countWord(5));
  space_->giveOverflow(0);
  space_->giveOverflow(2);
  EXPECT_EQ(space_->takeOverflow(), 2U);
  EXPECT_EQ(space_->takeOverflow(), 0U);
}

TEST_F(Spaces, AnOverflowBucketIsTakenEmptyWhateverWasInIt) {
  space_->usedIs({}, {false}, 1);
  Layout::Bucket& bucket = file_->overflow(0);
  bucket.entries[3].store(77);
  bucket.meta.store(Layout::metaWord(4, 9, 5));
  EXPECT_EQ(space_->takeOverflow(), 0U);
  for (const auto& entry : bucket.entries) EXPECT_EQ(entry.load(), 0U);
  EXPECT_EQ(bucket.meta.load(), Layout::metaWord(6, 0, 0));
}

TEST_F(Spaces, OverflowBucketsAreReservedForThoseThatAreWanted) {
  asks([&] { space_->usedIs({}, std::vector<bool>(64), 1); });
  EXPECT_THAT(asks([&] { EXPECT_TRUE(space_->overflowFree(64)); }), IsEmpty());
  const std::uint64_t behind = Layout::kOverflowOffset + 4 * kKiB;
  EXPECT_THAT(asks([&] { EXPECT_TRUE(space_->overflowFree(65)); }),
              ElementsAre(Asked{kReserve, behind, 4 * kKiB}));
  EXPECT_THAT(asks([&] { EXPECT_TRUE(space_->overflowFree(128)); }), IsEmpty());
  EXPECT_THAT(asks([&] { EXPECT_TRUE(space_->overflowFree(129)); }),
              ElementsAre(Asked{kReserve, behind + 4 * kKiB, 4 * kKiB}));
}

TEST_F(Spaces, WhatARepairFoundReplacesWhatWasKnown) {
  space_->usedIs(std::vector<bool>(10), std::vector<bool>(10), 1);
  space_->usedIs({true, false, true}, {false, true}, 1);
  EXPECT_EQ(space_->slots(), 3U);
  EXPECT_EQ(space_->takeSlot(), 1U);
  EXPECT_EQ(space_->takeOverflow(), 0U);
  EXPECT_EQ(space_->takeOverflow(), 2U);
}

TEST_F(Spaces, OverflowBucketsMayBeAsManyAsTheirRegionHas) {
  startWith(1);
  asks([&] {
    EXPECT_TRUE(space_->overflowFree(Layout::kMostOverflowBuckets));
    EXPECT_FALSE(space_->overflowFree(Layout::kMostOverflowBuckets + 1));
  });
}
