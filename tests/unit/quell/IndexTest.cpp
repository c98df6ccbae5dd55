// The index as the writer leaves it: chains, splits, compactions, and what is free behind them.
#include "quell/TableIndex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "QuellFiles.h"
#include "SystemCalls.h"
#include "quell/BucketEdit.h"
#include "quell/Journal.h"
#include "quell/TableRepair.h"

using namespace QuellTest;
using testing::HasSubstr;
namespace Layout = Quell::Layout;

namespace {

std::uint64_t hashOfId(std::uint32_t id) {
  return Things::Map::hash(keyOf(id));
}
// Ids of keys whose hashes end in the same bits.
std::vector<std::uint32_t> idsEndingIn(std::uint64_t bits, std::uint64_t mask, std::size_t count) {
  std::vector<std::uint32_t> ids;
  for (std::uint32_t id = 0; ids.size() < count; ++id) {
    if ((hashOfId(id) & mask) == bits) ids.push_back(id);
  }
  return ids;
}

class Indexes : public testing::Test {
 protected:
  Indexes()
      : things_(files_.open(4)),
        reader_(Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write)) {}

  void insert(const std::vector<std::uint32_t>& ids, std::uint32_t stamp = 1) {
    for (const std::uint32_t id : ids) things_->red().insert(thing(id, stamp));
  }
  void erase(const std::vector<std::uint32_t>& ids) {
    for (const std::uint32_t id : ids) ASSERT_TRUE(things_->red().erase(keyOf(id))) << id;
  }
  std::uint64_t state() const { return reader_->header().state.load(); }
  std::uint64_t buckets() const { return Layout::stateBuckets(state()); }
  std::uint64_t compactions() const { return Layout::stateCompactions(state()); }
  std::uint64_t overflowUsed() const { return Layout::countOf(reader_->header().overflow.load()); }
  // A bucket and the overflow buckets behind it.
  std::vector<Layout::Bucket*> chain(std::uint64_t number) const {
    std::vector<Layout::Bucket*> all{&reader_->bucket(number)};
    while (const std::uint64_t link = Layout::metaLink(all.back()->meta.load()))
      all.push_back(&reader_->overflow(link - 1));
    return all;
  }
  static std::size_t entriesIn(const std::vector<Layout::Bucket*>& chain) {
    std::size_t count = 0;
    for (const Layout::Bucket* bucket : chain) {
      for (const auto& entry : bucket->entries) count += entry.load() != 0 ? 1 : 0;
    }
    return count;
  }
  // Every entry stands in the bucket of its hash, every bucket is whole, every slot is named once.
  void expectInOrder() const {
    std::set<std::uint64_t> slots;
    for (std::uint64_t number = 0; number < buckets(); ++number) {
      for (const Layout::Bucket* bucket : chain(number)) {
        ASSERT_TRUE(Quell::bucketWhole(*bucket));
        for (const auto& word : bucket->entries) {
          if (word.load() == 0) continue;
          const Quell::SlotLook look = Quell::lookAtSlot(*reader_, Layout::entrySlot(word.load()));
          ASSERT_TRUE(look.whole);
          ASSERT_EQ(Layout::bucketOf(look.hash, buckets()), number);
          ASSERT_EQ(Layout::entryTag(word.load()), look.hash >> 32);
          ASSERT_TRUE(slots.insert(Layout::entrySlot(word.load())).second);
        }
      }
    }
    ASSERT_EQ(slots.size(), things_->red().size());
    ASSERT_EQ(reader_->header().stateCopy.load(), state());
    ASSERT_EQ(reader_->header().entries.load(), Layout::countWord(slots.size()));
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  Kiv::Ptr<Things> things_;
  std::shared_ptr<Quell::TableFile> reader_;
};

}  // namespace

TEST_F(Indexes, ABucketMoreForEachFourthEntryAndNoneWithout) {
  for (std::uint32_t id = 0; id < 100; ++id) {
    insert({id});
    ASSERT_EQ(buckets(), std::max<std::uint64_t>(1, (id + 4) / 4)) << id;
    expectInOrder();
  }
}

TEST_F(Indexes, AFullBucketGoesOnInOverflowBucketsUntilASplitTakesThemBack) {
  const auto same = idsEndingIn(3, 0xff, 20);
  for (std::size_t i = 0; i < 16; ++i) insert({same[i]});
  // Four buckets: all of them stand in the last one.
  ASSERT_EQ(buckets(), 4U);
  EXPECT_EQ(chain(3).size(), 3U);
  EXPECT_EQ(entriesIn(chain(3)), 16U);
  EXPECT_EQ(entriesIn(chain(0)) + entriesIn(chain(1)) + entriesIn(chain(2)), 0U);
  expectInOrder();
  erase({same[0], same[3], same[5], same[9], same[12], same[15], same[1], same[2], same[4]});
  EXPECT_EQ(chain(3).size(), 3U) << "nobody compacts before a split";
  expectInOrder();
}

TEST_F(Indexes, ASplitMovesWhatGoesToTheNewBucketAndCompactsTheOldOne) {
  const auto stay = idsEndingIn(0, 7, 9);
  const auto move = idsEndingIn(4, 7, 9);
  insert(stay);
  insert(move);
  // 18 entries in five buckets: the last split was that of bucket 0 into 4.
  ASSERT_EQ(buckets(), 5U);
  expectInOrder();
  EXPECT_EQ(entriesIn(chain(0)), 9U);
  EXPECT_EQ(entriesIn(chain(4)), 9U);
  EXPECT_EQ(chain(0).size(), 2U);
  EXPECT_EQ(chain(4).size(), 2U);
  EXPECT_GE(compactions(), 1U);
}

TEST_F(Indexes, OverflowBucketsOfACompactedChainAreTakenAgain) {
  const auto same = idsEndingIn(0, 0xfff, 16);
  const auto others = idsEndingIn(1, 0xfff, 80);
  const auto inChains = [&] {
    std::size_t count = 0;
    for (std::uint64_t number = 0; number < buckets(); ++number) count += chain(number).size() - 1;
    return count;
  };
  insert(same);
  ASSERT_EQ(chain(0).size(), 3U);
  EXPECT_EQ(compactions(), 0U) << "splits found no place to gain";
  erase({same.begin(), same.begin() + 12});
  const std::uint64_t before = compactions();
  std::size_t other = 0;
  while (chain(0).size() > 1) insert({others[other++]});
  EXPECT_GT(compactions(), before);
  EXPECT_EQ(entriesIn(chain(0)), 4U);
  expectInOrder();
  const std::uint64_t used = overflowUsed();
  const std::size_t free = used - inChains();
  EXPECT_GE(free, 2U);
  for (const std::size_t wanted = inChains() + free; inChains() < wanted;) insert({others[other++]});
  EXPECT_EQ(overflowUsed(), used) << "the other chain took what that one gave back";
  while (inChains() == used) insert({others[other++]});
  EXPECT_EQ(overflowUsed(), used + 1);
  expectInOrder();
}

TEST_F(Indexes, ACompactedChainIsAsShortAsItsEntriesAllow) {
  // Of 15 entries, erased from the front: 8 are left for two buckets, 7 for one.
  for (const std::size_t left : {7U, 8U, 1U}) {
    const auto same = idsEndingIn(0, 0xfff, 16);
    things_ = files_.open(4);
    insert({same.begin(), same.begin() + 16});
    const std::size_t gone = 16 - left;
    erase({same.begin(), same.begin() + static_cast<std::ptrdiff_t>(gone)});
    // The size that brings the next split of bucket 0: a power of two.
    const auto others = idsEndingIn(1, 1, 200);
    const std::uint64_t size = buckets();
    std::size_t other = 0;
    while (buckets() <= std::bit_ceil(size)) insert({others[other++]});
    EXPECT_EQ(chain(0).size(), (left + 6) / 7) << left;
    EXPECT_EQ(entriesIn(chain(0)), left);
    expectInOrder();
    erase({same.begin() + static_cast<std::ptrdiff_t>(gone), same.end()});
    for (std::size_t i = 0; i < other; ++i) erase({others[i]});
    things_->red().table()->writingDel();
    std::filesystem::remove(files_.fileName());
    things_ = files_.open(4);
    reader_ = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  }
}

TEST_F(Indexes, ManyThatMoveAtOnceFillTheNewBucketsChain) {
  const auto move = idsEndingIn(1, 1, 20);
  insert({move.begin(), move.begin() + 4});
  ASSERT_EQ(buckets(), 1U);
  // As many as a table that could not grow would hold in its one bucket.
  {
    unsigned refused = 0;
    const SystemCalls calls([&](const SystemCall& call) {
      const bool index = call.name == "posix_fallocate" && call.offset == Layout::kIndexOffset;
      refused += index ? 1 : 0;
      return index ? ENOSPC : 0;
    });
    for (std::size_t i = 4; i < 20; ++i) insert({move[i]});
  }
  expectInOrder();
  insert(idsEndingIn(0, 1, 20));
  expectInOrder();
}

TEST_F(Indexes, WithoutRoomForAnotherBucketChainsGrowInstead) {
  insert({0, 1, 2, 3});
  const auto inIndex = [](std::uint64_t offset) {
    return offset >= Layout::kIndexOffset && offset < Layout::kOverflowOffset;
  };
  {
    const SystemCalls calls([&](const SystemCall& call) {
      return call.name == "posix_fallocate" && inIndex(call.offset) ? ENOSPC : 0;
    });
    for (std::uint32_t id = 4; id < 600; ++id) insert({id});
    EXPECT_EQ(buckets(), Layout::kPage / sizeof(Layout::Bucket)) << "what the first page holds";
    expectInOrder();
  }
  insert({600});
  EXPECT_EQ(buckets(), Layout::kPage / sizeof(Layout::Bucket) + 1);
  for (std::uint32_t id = 601; id < 1200; ++id) insert({id});
  expectInOrder();
  for (std::uint32_t id = 0; id < 1200; ++id) ASSERT_EQ(things_->red().get(keyOf(id)), thing(id)) << id;
}

TEST_F(Indexes, ASplitThatMightNotFindItsOverflowBucketsIsLeft) {
  const auto same = idsEndingIn(0, 0xff, 60);
  {
    // 32 entries for 8 buckets, all of them in one chain; the first page of overflow buckets is all there is.
    insert({same.begin(), same.begin() + 32});
    const std::uint64_t before = buckets();
    const SystemCalls calls([&](const SystemCall& call) {
      return call.name == "posix_fallocate" && call.offset >= Layout::kOverflowOffset + Layout::kPage &&
                     call.offset < Layout::kJournalOffset
                 ? ENOSPC
                 : 0;
    });
    insert({same.begin() + 32, same.end()});
    EXPECT_GT(buckets(), before);
    expectInOrder();
  }
}

TEST_F(Indexes, AStoreThatFindsAFreePlaceNeedsNoOverflowBucket) {
  insert({0, 1, 2, 3});
  const SystemCalls calls("posix_fallocate", ENOSPC);
  EXPECT_NO_THROW(insert({4, 5, 6}));
  expectInOrder();
}

TEST_F(Indexes, AStoreThatNeedsAnOverflowBucketForWhichThereIsNoRoomChangesNothing) {
  const auto same = idsEndingIn(0, 0xff, 8);
  std::uint64_t head = 0;
  {
    const SystemCalls calls([](const SystemCall& call) {
      return call.name == "posix_fallocate" && call.offset >= Layout::kOverflowOffset &&
                     call.offset < Layout::kJournalOffset
                 ? ENOSPC
                 : 0;
    });
    insert({same.begin(), same.begin() + 7});
    ASSERT_EQ(buckets(), 1U) << "nothing is split that might not find its overflow buckets";
    head = reader_->header().journalHead.load();
    EXPECT_THAT(tableError([&] { insert({same[7]}); }),
                HasSubstr("red: no room for another record: 7 entries, of 8388544 at most"));
    EXPECT_NO_THROW(insert({same[2]}, 22));
  }
  EXPECT_EQ(things_->red().size(), 7U);
  EXPECT_FALSE(things_->red().has(keyOf(same[7])));
  EXPECT_EQ(things_->red().get(keyOf(same[2])), thing(same[2], 22));
  EXPECT_EQ(reader_->header().journalHead.load(), head + 1);
  insert({same[7]});
  EXPECT_EQ(things_->red().size(), 8U);
  expectInOrder();
}

TEST_F(Indexes, WithoutRoomInTheJournalNothingIsChanged) {
  // A page of the journal has 128 of the keys.
  for (std::uint32_t i = 0; i < 128; ++i) insert({1}, i);
  {
    const SystemCalls calls([](const SystemCall& call) {
      return call.name == "posix_fallocate" && call.offset >= Layout::kJournalOffset &&
                     call.offset < Layout::recordsOffset(sizeof(ThingKey))
                 ? ENOSPC
                 : 0;
    });
    EXPECT_THAT(tableError([&] { insert({1}, 500); }), HasSubstr("no room for another record: 1 entries"));
    EXPECT_THAT(tableError([&] { things_->red().erase(keyOf(1)); }), HasSubstr("no room for another record"));
    EXPECT_FALSE(things_->red().erase(keyOf(2))) << "what is absent needs no room";
  }
  EXPECT_EQ(things_->red().get(keyOf(1)), thing(1, 127));
  EXPECT_TRUE(things_->red().erase(keyOf(1)));
}

TEST_F(Indexes, TheLastFreeSlotIsKeptForOverwriting) {
  insert({1});
  const SystemCalls calls([&](const SystemCall& call) {
    return call.name == "posix_fallocate" && call.offset >= reader_->identity().recordsOffset ? ENOSPC : 0;
  });
  std::uint32_t id = 2;
  for (; tableError([&] { insert({id}); }).empty(); ++id) ASSERT_LT(id, 10000U);
  EXPECT_EQ(things_->red().size(), reader_->slotsInFile() - 1);
  for (std::uint32_t i = 0; i < 300; ++i) insert({1}, i);
  EXPECT_EQ(things_->red().get(keyOf(1)), thing(1, 299));
}

TEST_F(Indexes, SlotsOfWhatIsOverwrittenOrErasedAreFilledAgain) {
  insert({1, 2, 3});
  const std::uint64_t slots = reader_->slotsInFile();
  for (std::uint32_t i = 0; i < 1000; ++i) {
    insert({1}, i);
    insert({100 + i % 7});
    erase({100 + i % 7});
  }
  EXPECT_EQ(reader_->slotsInFile(), slots);
  std::set<std::uint64_t> filled;
  for (std::uint64_t slot = 0; slot < slots; ++slot) {
    if (reader_->slot(slot)[0].load() != 0) filled.insert(slot);
  }
  EXPECT_EQ(filled.size(), slots) << "oldest first: all of them had their turn";
  expectInOrder();
}

TEST_F(Indexes, ASlotThatIsNotThereIsNeverFilledThoughAnEntryNamesIt) {
  insert({1, 2, 3});
  const std::uint64_t slots = reader_->slotsInFile();
  for (const bool erased : {false, true}) {
    Layout::Bucket& bucket = reader_->bucket(Layout::bucketOf(hashOfId(1), buckets()));
    unsigned i = 0;
    while (Layout::entryTag(bucket.entries[i].load()) != hashOfId(1) >> 32) ++i;
    ASSERT_LT(i, Layout::kEntriesPerBucket);
    Quell::BucketEdit(bucket).entryIs(i, Layout::entryWord(hashOfId(1), slots));
    if (erased) erase({1});
    for (std::uint32_t round = 0; round < 2 * slots; ++round) {
      insert({1, 2, 3}, round);
      for (const std::uint32_t id : {1U, 2U, 3U})
        ASSERT_EQ(things_->red().get(keyOf(id)), thing(id, round)) << round;
    }
  }
  EXPECT_EQ(reader_->slotsInFile(), slots);
}

TEST_F(Indexes, AWriterThatMeetsADamagedBucketPutsTheTableInOrderFirst) {
  for (std::uint32_t id = 0; id < 100; ++id) insert({id});
  Quell::JournalReader journal(*reader_);
  const std::uint64_t bucket = Layout::bucketOf(hashOfId(7), buckets());
  auto& meta = reader_->bucket(bucket).meta;
  meta.store(meta.load() ^ std::uint64_t{1} << 50);
  const std::uint64_t before = compactions();
  insert({7}, 70);
  EXPECT_EQ(compactions(), before + 1) << "readers look again";
  EXPECT_EQ(things_->red().size(), 100U);
  EXPECT_EQ(things_->red().get(keyOf(7)), thing(7, 70));
  Quell::RecordWords key;
  EXPECT_EQ(journal.next(key.words.data()), Quell::JournalReader::News::everything);
  expectInOrder();
}

TEST_F(Indexes, ErasingMeetsDamageAsStoringDoes) {
  for (std::uint32_t id = 0; id < 100; ++id) insert({id});
  const std::uint64_t bucket = Layout::bucketOf(hashOfId(7), buckets());
  reader_->bucket(bucket).meta.store(reader_->bucket(bucket).meta.load() | 1U);
  erase({7});
  EXPECT_EQ(things_->red().size(), 99U);
  EXPECT_FALSE(things_->red().has(keyOf(7)));
  expectInOrder();
}

TEST_F(Indexes, AnEntryThatNamesNoSlotIsReplacedByAStoreOfItsKey) {
  insert({1, 2});
  Layout::Bucket& bucket = reader_->bucket(Layout::bucketOf(hashOfId(1), buckets()));
  unsigned place = 0;
  while (Layout::entryTag(bucket.entries[place].load()) != hashOfId(1) >> 32) ++place;
  Quell::BucketEdit(bucket).entryIs(place, Layout::entryWord(hashOfId(1), Layout::kMostSlots - 1));
  insert({1}, 11);
  EXPECT_EQ(things_->red().get(keyOf(1)), thing(1, 11));
  EXPECT_EQ(things_->red().size(), 2U);
  expectInOrder();
  Quell::BucketEdit(bucket).entryIs(place, Layout::entryWord(hashOfId(1), reader_->slotsInFile()));
  erase({1});
  EXPECT_EQ(things_->red().size(), 1U);
  expectInOrder();
  for (std::uint32_t i = 0; i < 200; ++i) insert({2}, i);  // no slot that is not there is among the free ones
  EXPECT_EQ(things_->red().get(keyOf(2)), thing(2, 199));
  expectInOrder();
}

TEST_F(Indexes, AKeyWhoseTagIsAnothersIsAnotherEntry) {
  // Two ids whose hashes share their upper halves and stand in one bucket of a table of one.
  std::map<std::uint64_t, std::uint32_t> seen;
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  for (std::uint32_t id = 0;; ++id) {
    const auto [found, isNew] = seen.emplace(hashOfId(id) >> 32, id);
    if (isNew) continue;
    first = found->second;
    second = id;
    break;
  }
  insert({first});
  EXPECT_FALSE(things_->red().has(keyOf(second)));
  EXPECT_FALSE(things_->red().erase(keyOf(second)));
  insert({second}, 5);
  EXPECT_EQ(things_->red().size(), 2U);
  EXPECT_EQ(things_->red().get(keyOf(first)), thing(first));
  EXPECT_EQ(things_->red().get(keyOf(second)), thing(second, 5));
  erase({first});
  EXPECT_EQ(things_->red().get(keyOf(second)), thing(second, 5));
  expectInOrder();
}

TEST_F(Indexes, ExpectedBucketsAreClearedWhateverWasLeftInThem) {
  insert({1});
  erase({1});
  for (std::uint64_t number = 1; number < 25; ++number) {
    reader_->bucket(number).entries[2].store(77);
    reader_->bucket(number).meta.store(Layout::metaWord(2, 3, 9));
  }
  EXPECT_TRUE(things_->red().expect(100));
  ASSERT_EQ(buckets(), 25U);
  for (std::uint64_t number = 0; number < 25; ++number) {
    EXPECT_EQ(chain(number).size(), 1U);
    EXPECT_EQ(entriesIn(chain(number)), 0U);
    EXPECT_TRUE(Quell::bucketWhole(reader_->bucket(number)));
  }
  EXPECT_TRUE(things_->red().expect(100)) << "it is as large already";
  EXPECT_EQ(buckets(), 25U);
  EXPECT_TRUE(things_->red().expect(101));
  EXPECT_EQ(buckets(), 26U);
  EXPECT_EQ(reader_->header().stateCopy.load(), state());
}

TEST_F(Indexes, ExpectingWithoutRoomIsNoErrorAndLeavesTheIndex) {
  insert({1});
  erase({1});
  const SystemCalls calls("posix_fallocate", ENOSPC);
  EXPECT_TRUE(things_->red().expect(100000));
  EXPECT_EQ(buckets(), 1U);
}

TEST_F(Indexes, ATableIsTheSameAfterItWasPutDownAndTakenUpAgain) {
  for (std::uint32_t id = 0; id < 300; ++id) insert({id});
  const std::uint64_t before = state();
  for (int times = 0; times < 3; ++times) {
    things_->red().table()->writingDel();
    EXPECT_FALSE(things_->red().table()->writing());
    EXPECT_EQ(reader_->header().writer.load(), 0U);
    things_->red().table()->writingIs();
    EXPECT_TRUE(things_->red().table()->writing());
    EXPECT_EQ(reader_->header().writer.load(), static_cast<std::uint64_t>(::getpid()));
  }
  EXPECT_EQ(state(), before);
  for (std::uint32_t id = 300; id < 900; ++id) insert({id});
  expectInOrder();
}
