// How many words of a file are loaded where nothing changes: what is plain stays on the fast side.
#include <gtest/gtest.h>

#include "World.h"

using namespace Scheduled;

namespace {

// Loads of one reader's work, nobody else there.
std::uint64_t loadsOf(const std::function<void(Machine&)>& work) {
  std::uint64_t loads = 0;
  const Explored explored = explore(
      {0, 0, 0, false},
      [&](Machine& machine) {
        machine.reader([&] {
          const std::uint64_t before = machine.loads();
          work(machine);
          loads = machine.loads() - before;
        });
        machine.run();
      },
      1);
  EXPECT_EQ(explored.failure, "");
  return loads;
}

constexpr std::uint64_t kEntries = 7;  // of a bucket

class Loads : public testing::Test {
 protected:
  Loads() {
    const auto writer = world_.table();
    for (const std::uint64_t key : keys_) put(*writer, key, key % kMostStamps);
    writer->writingDel();
    table_ = world_.table();
  }
  const std::vector<std::uint64_t> keys_{1, 2, 3};  // one bucket's
  World world_;
  std::unique_ptr<Quell::Table> table_;
};

}  // namespace

TEST_F(Loads, AHitIsTheStateTheTagsTheEntryAndTheSlotWithASecondLookAtItsWord) {
  for (const std::uint64_t key : keys_) {
    const std::uint64_t loads =
        loadsOf([&](Machine& machine) { machine.expect(look(machine, *table_, key).found, "lost"); });
    EXPECT_EQ(loads, 1 + kEntries + 1 + (1 + 3 + 1));
  }
}

TEST_F(Loads, AHitFromAPlaceIsTheEntryAndTheSlot) {
  const std::uint64_t key = keys_[1];
  Quell::Table::Place place;
  EXPECT_EQ(loadsOf([&](Machine&) { place = table_->place<sizeof(Record)>(hashOf(key)); }), kEntries + 1);
  ASSERT_NE(place.word, nullptr);
  Record record;
  EXPECT_EQ(
      loadsOf([&](Machine&) { table_->find<sizeof key, sizeof record>(place, &key, hashOf(key), &record); }),
      1 + (1 + 3 + 1));
  EXPECT_EQ(stampOf(record, key), key);
}

TEST_F(Loads, AMissIsTheStateTheTagsTheBucketAndSecondLooksAtBothWords) {
  const std::uint64_t loads =
      loadsOf([&](Machine& machine) { machine.expect(!look(machine, *table_, 99).found, "there"); });
  EXPECT_EQ(loads, 1 + kEntries + (1 + kEntries + 1) + 1);
}

TEST_F(Loads, TheNumberOfEntriesIsOneWord) {
  EXPECT_EQ(
      loadsOf([&](Machine& machine) { machine.expect(table_->entries() == keys_.size(), "miscounted"); }),
      1U);
}

// Its writer may be at work: it has time for sixty-four looks before its bucket is believed without a check.
TEST_F(Loads, ABucketInChangeIsLookedAtAgainAndAgain) {
  auto& meta = world_.file()->bucket(0).meta;
  meta.store(meta.load() | 1U);
  const std::uint64_t loads =
      loadsOf([&](Machine& machine) { machine.expect(!look(machine, *table_, 99).found, "there"); });
  EXPECT_EQ(loads, (1 + kEntries + (1 + kEntries + 1)) + 1 + 65 * (1 + kEntries + 1) + 1);
}

TEST_F(Loads, AStepOfAWalkWithinABucketReadsNoBucketAnew) {
  Record record;
  ASSERT_TRUE(table_->walkFirst(&record));
  for (unsigned step = 1; step < keys_.size(); ++step) {
    EXPECT_EQ(loadsOf([&](Machine& machine) {
                machine.expect(table_->walkAfter(&record.key, &record), "the walk ends early");
              }),
              1 + 1 + 1 + (1 + 3));  // the state, the bucket's word, the entry, the slot
    EXPECT_NE(stampOf(record, record.key), kMostStamps);
  }
}

TEST_F(Loads, AWalkThatLeavesABucketComparesItAndReadsNoRecordAnew) {
  Record record;
  ASSERT_TRUE(table_->walkFirst(&record));
  for (unsigned step = 1; step < keys_.size(); ++step) ASSERT_TRUE(table_->walkAfter(&record.key, &record));
  const std::uint64_t bucket = 1 + kEntries + 1;               // its word twice
  const std::uint64_t records = keys_.size() * (1 + (1 + 3));  // the entry, the slot
  EXPECT_EQ(loadsOf([&](Machine& machine) {
              machine.expect(!table_->walkAfter(&record.key, &record), "the walk does not end");
            }),
            2 * (1 + 1) + 1 + bucket + records);
}

TEST_F(Loads, AWalkThatGoesOnIsPlainAlsoWhereItsTableErasedWhatItGave) {
  Record record;
  ASSERT_TRUE(table_->walkFirst(&record));
  const std::uint64_t first = record.key;
  table_->erase(&first);
  EXPECT_EQ(loadsOf([&](Machine& machine) {
              machine.expect(table_->walkAfter(&first, &record), "the walk ends early");
            }),
            1 + 1 + 1 + (1 + 3));
}
