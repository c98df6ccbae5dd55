#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "QuellFiles.h"
#include "quell/TableRepair.h"

using namespace QuellTest;
using testing::HasSubstr;

namespace {

class Writers : public testing::Test {
 protected:
  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
};

}  // namespace

TEST_F(Writers, ASecondWriterIsToldTheProcessOfTheFirst) {
  auto first = files_.open();
  auto second = files_.open();
  first->red().insert(thing(1));
  EXPECT_THAT(tableError([&] { second->red().insert(thing(2)); }),
              HasSubstr("process " + std::to_string(::getpid()) + " is the table's writer"));
  EXPECT_THAT(tableError([&] { second->red().erase(keyOf(1)); }), HasSubstr("is the table's writer"));
  EXPECT_EQ(second->red().get(keyOf(1)), thing(1));
  EXPECT_EQ(first->red().size(), 1U);
}

TEST_F(Writers, WhoOnlyMountedIsNotInTheWay) {
  auto mounted = files_.open();
  mounted->red().table()->writingIs();
  mounted->red().table()->writingDel();
  auto other = files_.open();
  other->red().insert(thing(1));
  EXPECT_EQ(mounted->red().get(keyOf(1)), thing(1));
}

TEST_F(Writers, WhoGaveTheLockBackLeavesTheNextWritersNumberAlone) {
  auto first = files_.open();
  first->red().insert(thing(1));
  first->red().table()->writingDel();
  const auto file = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  EXPECT_EQ(file->header().writer.load(), 0U);
  file->header().writer.store(12345);
  first = nullptr;
  EXPECT_EQ(file->header().writer.load(), 12345U);
}

TEST_F(Writers, WritingIsTakenUpAgainAfterAnotherWriter) {
  auto first = files_.open();
  first->red().insert(thing(1));
  first->red().table()->writingDel();
  {
    auto second = files_.open();
    for (std::uint32_t id = 100; id < 500; ++id) second->red().insert(thing(id));
    second->red().erase(keyOf(1));
  }
  for (std::uint32_t id = 2; id < 50; ++id) first->red().insert(thing(id));
  EXPECT_EQ(first->red().size(), 448U);
  for (std::uint32_t id = 100; id < 500; ++id) EXPECT_EQ(first->red().get(keyOf(id)), thing(id));
  for (std::uint32_t id = 2; id < 50; ++id) EXPECT_EQ(first->red().get(keyOf(id)), thing(id));
}

TEST_F(Writers, ErasingWhatIsAbsentFromAnEmptyTableTakesNoLock) {
  auto things = files_.open();
  EXPECT_FALSE(things->red().erase(keyOf(1)));
  EXPECT_FALSE(things->red().table()->writing());
}

TEST_F(Writers, WithoutRoomAnInsertFailsAndChangesNothing) {
  auto things = files_.open(64);
  for (std::uint32_t id = 0; id < 64; ++id) things->red().insert(thing(id));
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit limited = before;
  limited.rlim_cur = std::filesystem::file_size(files_.fileName());
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
  const auto old = ::signal(SIGXFSZ, SIG_IGN);
  std::uint32_t id = 64;
  std::string error;
  for (; error.empty() && id < 10000; ++id) error = tableError([&] { things->red().insert(thing(id)); });
  EXPECT_THAT(error, HasSubstr("no room for another record"));
  const std::size_t entries = things->red().size();
  EXPECT_EQ(entries, id - 1);
  things->red().insert(thing(3, 33));  // what is there can still be overwritten
  EXPECT_EQ(things->red().get(keyOf(3)), thing(3, 33));
  EXPECT_TRUE(things->red().erase(keyOf(4)));
  things->red().insert(thing(4, 44));
  EXPECT_EQ(things->red().size(), entries);
  ::signal(SIGXFSZ, old);
  ::setrlimit(RLIMIT_FSIZE, &before);
  things->red().insert(thing(20000));
  EXPECT_EQ(things->red().size(), entries + 1);
  for (std::uint32_t each = 5; each < entries; ++each) EXPECT_EQ(things->red().get(keyOf(each)), thing(each));
}

TEST_F(Writers, RepairOfAWholeTableChangesNothing) {
  auto things = files_.open();
  for (std::uint32_t id = 0; id < 5000; ++id) things->red().insert(thing(id));
  const auto file = Quell::TableFile::writable(things->red().table()->file());
  const Quell::TableRepair found = Quell::repair(*file);
  EXPECT_FALSE(found.anything()) << found.text();
  EXPECT_EQ(found.entries, 5000U);
}

TEST_F(Writers, RepairDropsWhatAnInterruptedSplitLeftTwice) {
  auto things = files_.open();
  for (std::uint32_t id = 0; id < 500; ++id) things->red().insert(thing(id));
  const auto file = Quell::TableFile::writable(things->red().table()->file());
  // An entry of another bucket, as a split leaves it until it clears the old one.
  const std::uint64_t buckets = Quell::Layout::stateBuckets(file->header().state.load());
  std::uint64_t entry = 0;
  for (const auto& each : file->bucket(buckets - 1).entries) entry = std::max(entry, each.load());
  ASSERT_NE(entry, 0U);
  Quell::Layout::Bucket& other = file->bucket(0);
  for (auto& each : other.entries) {
    if (each.load() != 0) continue;
    each.store(entry);
    other.meta.store(other.meta.load() | 1U);  // died in the middle of the change
    break;
  }
  std::set<std::uint32_t> met;
  Thing each;
  for (bool more = things->red().first(each); more; more = things->red().after(each.key, each)) {
    EXPECT_TRUE(met.insert(each.key.id).second);
  }
  EXPECT_EQ(met.size(), 500U);
  const Quell::TableRepair found = Quell::repair(*file);
  EXPECT_EQ(found.doubles, 1U);
  EXPECT_EQ(found.unfinished, 1U);
  EXPECT_EQ(found.entries, 500U);
  EXPECT_FALSE(Quell::repair(*file).anything());
}

TEST_F(Writers, RepairClearsABucketThatASplitDidNotPublish) {
  auto things = files_.open();
  for (std::uint32_t id = 0; id < 500; ++id) things->red().insert(thing(id));
  const auto file = Quell::TableFile::writable(things->red().table()->file());
  const std::uint64_t buckets = Quell::Layout::stateBuckets(file->header().state.load());
  file->bucket(buckets).entries[2].store(77);
  EXPECT_EQ(Quell::repair(*file).unfinished, 1U);
  EXPECT_EQ(file->bucket(buckets).entries[2].load(), 0U);
}

TEST_F(Writers, TheSizeOfTheIndexIsTakenFromItsCopyWhenDamaged) {
  {
    auto things = files_.open();
    for (std::uint32_t id = 0; id < 500; ++id) things->red().insert(thing(id));
  }
  setByte(files_.fileName(), offsetof(Quell::Layout::Header, state), 0xff);
  auto things = files_.open();
  EXPECT_THROW(things->red().has(keyOf(1)), Fenn::CorruptionDetectedException);
  things->red().insert(thing(1, 2));
  EXPECT_EQ(things->red().size(), 500U);
  EXPECT_EQ(things->red().get(keyOf(1)), thing(1, 2));
  EXPECT_EQ(things->red().get(keyOf(400)), thing(400));
}

namespace {

std::uint64_t bucketsOf(Things& things) {
  return Quell::Layout::stateBuckets(things.red().table()->file()->header().state.load());
}

}  // namespace

TEST_F(Writers, ExpectedEntriesSplitNoBucket) {
  auto things = files_.open();
  EXPECT_TRUE(things->red().expect(1000));
  const std::uint64_t buckets = bucketsOf(*things);
  EXPECT_EQ(buckets, 1000 / Quell::Layout::kLoadPerBucket);
  auto reader = files_.open();
  EXPECT_EQ(reader->red().get(keyOf(1)), Thing{});
  for (std::uint32_t id = 0; id < 1000; ++id) things->red().insert(thing(id));
  EXPECT_EQ(bucketsOf(*things), buckets);
  for (std::uint32_t id = 0; id < 1000; ++id) ASSERT_EQ(reader->red().get(keyOf(id)), thing(id));
  things->red().insert(thing(1000));
  EXPECT_EQ(bucketsOf(*things), buckets + 1);
}

TEST_F(Writers, ManyAreExpectedInSteps) {
  constexpr std::uint64_t kMany = std::uint64_t{1} << 20;
  auto things = files_.open();
  unsigned calls = 1;
  std::uint64_t last = bucketsOf(*things);
  for (; !things->red().expect(kMany); ++calls) {
    EXPECT_LE((bucketsOf(*things) - last) * sizeof(Quell::Layout::Bucket), 2U << 20);
    last = bucketsOf(*things);
  }
  EXPECT_EQ(calls, kMany / Quell::Layout::kLoadPerBucket * sizeof(Quell::Layout::Bucket) / (2U << 20));
  EXPECT_TRUE(things->red().expect(kMany));
  EXPECT_EQ(bucketsOf(*things), kMany / Quell::Layout::kLoadPerBucket);
}

TEST_F(Writers, ExpectingLeavesATableWithEntriesAsItIs) {
  auto things = files_.open();
  for (std::uint32_t id = 0; id < 100; ++id) things->red().insert(thing(id));
  const std::uint64_t buckets = bucketsOf(*things);
  EXPECT_TRUE(things->red().expect(100000));
  EXPECT_EQ(bucketsOf(*things), buckets);
  for (std::uint32_t id = 0; id < 100; ++id) things->red().erase(keyOf(id));
  EXPECT_TRUE(things->red().expect(10));
  EXPECT_EQ(bucketsOf(*things), buckets);
  EXPECT_TRUE(things->red().expect(100000));
  EXPECT_EQ(bucketsOf(*things), 100000 / Quell::Layout::kLoadPerBucket);
  things->red().insert(thing(7));
  EXPECT_EQ(things->red().get(keyOf(7)), thing(7));
}

TEST_F(Writers, ExpectingIsRefusedBesideAnotherWriter) {
  auto first = files_.open();
  first->red().insert(thing(1));
  auto second = files_.open();
  EXPECT_TRUE(second->red().expect(10)) << "it has entries: nobody has to write";
  first->red().erase(keyOf(1));
  EXPECT_TRUE(second->red().expect(0));
  EXPECT_THAT(tableError([&] { second->red().expect(10); }), HasSubstr("is the table's writer"));
}
