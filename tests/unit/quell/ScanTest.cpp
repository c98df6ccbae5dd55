// What a reader makes of a table that somebody changed or left half changed: each kind of damage by its name.
#include "quell/TableScan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "QuellFiles.h"
#include "quell/BucketEdit.h"

using namespace QuellTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
namespace Layout = Quell::Layout;

namespace {

class Scans : public testing::Test {
 protected:
  Scans() { reopen(); }

  // With things, none of which anybody writes now.
  void fill(std::uint32_t count) {
    const auto writer = files_.open(4);
    for (std::uint32_t id = 0; id < count; ++id) writer->red().insert(thing(id));
    reopen();
  }
  void reopen() {
    things_ = files_.open(4);
    file_ = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  }
  Things::Map& map() { return things_->red(); }
  static std::uint64_t hashOf(std::uint32_t id) { return Things::Map::hash(keyOf(id)); }
  std::uint64_t buckets() const { return Layout::stateBuckets(file_->header().state.load()); }
  Layout::Bucket& bucketOf(std::uint32_t id) const {
    return file_->bucket(Layout::bucketOf(hashOf(id), buckets()));
  }
  // The bucket of its chain that names an id's record, and where.
  std::pair<Layout::Bucket*, unsigned> entryOf(std::uint32_t id) const {
    Layout::Bucket* bucket = &bucketOf(id);
    for (;;) {
      for (unsigned i = 0; i < 7; ++i) {
        if (bucket->entries[i].load() != 0 && Layout::entryTag(bucket->entries[i].load()) == hashOf(id) >> 32)
          return {bucket, i};
      }
      const std::uint64_t link = Layout::metaLink(bucket->meta.load());
      if (link == 0) throw std::runtime_error("the test's record is not there");
      bucket = &file_->overflow(link - 1);
    }
  }
  std::uint64_t slotOf(std::uint32_t id) const {
    const auto [bucket, i] = entryOf(id);
    return Layout::entrySlot(bucket->entries[i].load());
  }
  std::string damageOf(const std::function<void()>& read) const {
    try {
      read();
    } catch (const Fenn::CorruptionDetectedException& damage) {
      return damage.what();
    }
    return {};
  }
  std::string findDamage(std::uint32_t id) {
    return damageOf([&] { map().has(keyOf(id)); });
  }
  // The ids of a walk that steps over damage, which it adds to `told`.
  std::vector<std::uint32_t> walked(std::vector<std::string>& told) {
    std::vector<std::uint32_t> ids;
    std::optional<Quell::WalkDamage> stopped;
    Thing each;
    bool begun = false;
    for (;;) {
      try {
        const bool more = stopped ? map().behind(*stopped, each)
                          : begun ? map().after(each.key, each)
                                  : map().first(each);
        if (!more) return ids;
        stopped.reset();
        begun = true;
        ids.push_back(each.key.id);
      } catch (const Quell::WalkDamage& damage) {
        told.emplace_back(damage.what());
        stopped = damage;
        if (told.size() > 100) return ids;
      }
    }
  }
  std::vector<std::uint32_t> walked() {
    std::vector<std::string> told;
    auto ids = walked(told);
    EXPECT_THAT(told, testing::IsEmpty());
    return ids;
  }
  std::vector<std::uint32_t> inOrder(std::uint32_t count) const {
    std::vector<std::uint32_t> ids(count);
    for (std::uint32_t id = 0; id < count; ++id) ids[id] = id;
    std::sort(ids.begin(), ids.end(),
              [](auto a, auto b) { return Quell::reverseBits(hashOf(a)) < Quell::reverseBits(hashOf(b)); });
    return ids;
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  Kiv::Ptr<Things> things_;
  std::shared_ptr<Quell::TableFile> file_;
};

}  // namespace

TEST_F(Scans, AnEntryOfASlotThatIsNotThereIsDamage) {
  fill(3);
  const auto [bucket, i] = entryOf(1);
  for (const std::uint64_t slot : {file_->slotsInFile(), Layout::kMostSlots - 1, Layout::kMostSlots}) {
    Quell::BucketEdit(*bucket).entryIs(i, Layout::entryWord(hashOf(1), slot));
    EXPECT_EQ(findDamage(1),
              "table test/things red: an entry names slot " + std::to_string(slot) + ", which is not there");
    EXPECT_EQ(map().place(hashOf(1)).word, nullptr) << "no memory to look ahead at";
    EXPECT_EQ(findDamage(2), "");
  }
  EXPECT_EQ(map().table()->damages(), 3U);
}

TEST_F(Scans, ASlotThatStaysHalfFilledIsDamage) {
  fill(3);
  const std::uint64_t slot = slotOf(1);
  file_->slot(slot)[0].store(file_->slot(slot)[0].load() | 1U);
  EXPECT_EQ(findDamage(1), "table test/things red: slot " + std::to_string(slot) + " is half filled");
}

TEST_F(Scans, ARecordThatDoesNotMatchItsCheckIsDamage) {
  fill(3);
  const std::uint64_t slot = slotOf(1);
  file_->slot(slot)[7].store(file_->slot(slot)[7].load() + 1);
  EXPECT_EQ(findDamage(1), "table test/things red: the record in slot " + std::to_string(slot) +
                               " does not match its check");
}

TEST_F(Scans, AWholeRecordUnderAnothersEntryIsDamageOfTheWalk) {
  fill(3);
  const auto [bucket, i] = entryOf(1);
  const std::uint64_t slot = slotOf(1);
  Quell::BucketEdit(*bucket).entryIs(i, bucket->entries[i].load() ^ std::uint64_t{1} << 63);
  EXPECT_FALSE(map().has(keyOf(1)));
  std::vector<std::string> told;
  EXPECT_EQ(walked(told).size(), 2U);
  EXPECT_THAT(told, ElementsAre("table test/things red: the record in slot " + std::to_string(slot) +
                                " is not the one its entry names"));
}

TEST_F(Scans, ABucketThatDoesNotMatchItsCheckIsDamageWhereItSaysThatNothingIsThere) {
  fill(3);
  auto& meta = file_->bucket(0).meta;
  meta.store(meta.load() ^ std::uint64_t{1} << 40);
  EXPECT_EQ(findDamage(1), "");
  EXPECT_EQ(map().get(keyOf(1)), thing(1));
  EXPECT_EQ(findDamage(99), "table test/things red: bucket 0 does not match its check");
  EXPECT_EQ(map().table()->damages(), 1U);
}

TEST_F(Scans, AStateThatDoesNotMatchItsCheckIsDamage) {
  fill(3);
  auto& state = file_->header().state;
  state.store(state.load() ^ std::uint64_t{1} << 63);
  const std::string text = "table test/things red: the state of the index does not match its check";
  EXPECT_EQ(findDamage(1), text);
  Thing out;
  EXPECT_EQ(damageOf([&] { map().first(out); }), text);
}

TEST_F(Scans, ABucketThatItsWriterLeftInTheMiddleOfAChangeIsReadAllTheSame) {
  fill(30);
  for (std::uint64_t number = 0; number < buckets(); ++number) {
    auto& meta = file_->bucket(number).meta;
    meta.store(meta.load() | 1U);
  }
  for (std::uint32_t id = 0; id < 30; ++id) EXPECT_EQ(map().get(keyOf(id)), thing(id));
  for (std::uint32_t id = 30; id < 60; ++id) EXPECT_FALSE(map().has(keyOf(id)));
  EXPECT_EQ(walked(), inOrder(30));
  EXPECT_EQ(map().table()->damages(), 0U);
}

TEST_F(Scans, ACircleOfLinksWithDamageInItEnds) {
  fill(3);
  Layout::Bucket& bucket = file_->bucket(0);
  file_->overflow(4).meta.store(Layout::metaWord(2, 5, 0) ^ std::uint64_t{1} << 60);  // links to itself
  Quell::BucketEdit(bucket).linkIs(5);
  EXPECT_EQ(map().get(keyOf(1)), thing(1));
  EXPECT_EQ(findDamage(99), "table test/things red: bucket 0 does not match its check");
  std::vector<std::string> told;
  EXPECT_EQ(walked(told), inOrder(3));
  EXPECT_THAT(told, ElementsAre("table test/things red: bucket 0 does not match its check"));
}

TEST_F(Scans, ACircleOfLinksWhoseChecksFitIsDamageOfItsBucketAlone) {
  fill(40);
  std::uint32_t inIt = 0;
  while (Layout::metaLink(bucketOf(inIt).meta.load()) != 0) ++inIt;
  const std::uint64_t number = Layout::bucketOf(hashOf(inIt), buckets());
  std::uint32_t absent = 1000;
  while (Layout::bucketOf(hashOf(absent), buckets()) != number) ++absent;
  const std::string text =
      "table test/things red: the links of bucket " + std::to_string(number) + " lead in a circle";
  constexpr std::uint64_t kFree = 100;  // overflow buckets of no chain from here on
  for (const std::uint64_t front : {0U, 1U, 2U, 5U, 30U}) {
    for (const std::uint64_t circle : {1U, 2U, 3U, 16U, 61U}) {
      const std::uint64_t last = front + circle - 1;
      for (std::uint64_t each = 0; each <= last; ++each) {
        const std::uint64_t next = each < last ? each + 1 : front;
        file_->overflow(kFree + each).meta.store(Layout::metaWord(2, kFree + next + 1, 0));
      }
      Quell::BucketEdit(file_->bucket(number)).linkIs(kFree + 1);
      EXPECT_EQ(map().get(keyOf(inIt)), thing(inIt));
      EXPECT_EQ(findDamage(absent), text);
      std::vector<std::string> told;
      EXPECT_EQ(walked(told), inOrder(40));
      EXPECT_THAT(told, ElementsAre(text)) << front << ' ' << circle;
    }
  }
  auto& count = file_->header().entries;
  count.store(count.load() ^ std::uint64_t{1} << 40);
  EXPECT_GE(map().size(), 40U) << "counted along the chains";
}

TEST_F(Scans, AChainOfAThousandBucketsIsFollowedAlsoWhereOneIsDamaged) {
  fill(3);
  constexpr std::uint64_t kLong = 900;
  for (std::uint64_t number = 0; number < kLong; ++number)
    file_->overflow(number).meta.store(Layout::metaWord(2, number + 1 < kLong ? number + 2 : 0, 0));
  const Thing last = thing(77);
  const std::uint64_t slot = file_->slotsInFile() - 1;
  Quell::fillSlot(*file_, slot, &last, hashOf(77));
  Quell::BucketEdit(file_->overflow(kLong - 1)).entryIs(6, Layout::entryWord(hashOf(77), slot));
  Quell::BucketEdit(file_->bucket(0)).linkIs(1);
  EXPECT_EQ(map().get(keyOf(77)), last);
  auto& meta = file_->overflow(3).meta;
  meta.store(meta.load() ^ std::uint64_t{1} << 60);
  EXPECT_EQ(map().get(keyOf(77)), last);
}

TEST_F(Scans, ALinkBehindTheLastOverflowBucketIsNotFollowed) {
  fill(3);
  Quell::BucketEdit(file_->bucket(0)).linkIs(Layout::kMostOverflowBuckets + 1);
  EXPECT_EQ(map().get(keyOf(1)), thing(1));
  EXPECT_FALSE(map().has(keyOf(99)));
  EXPECT_EQ(walked(), inOrder(3));
}

TEST_F(Scans, AWalkStepsOverEachDamagedRecordAndTellsOfEachBucketOnce) {
  fill(400);
  const auto order = inOrder(400);
  std::vector<std::uint32_t> expected;
  std::set<std::uint64_t> numbers;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (i % 50 != 7 && i != order.size() - 1) {
      expected.push_back(order[i]);
      continue;
    }
    auto& word = file_->slot(slotOf(order[i]))[6];
    word.store(word.load() ^ 1U);
    numbers.insert(Layout::bucketOf(hashOf(order[i]), buckets()));
  }
  std::vector<std::string> told;
  EXPECT_EQ(walked(told), expected);
  EXPECT_EQ(told.size(), numbers.size());
  EXPECT_EQ(map().table()->damages(), numbers.size());
  EXPECT_EQ(map().table()->file()->tornReads(), 0U) << "nothing changed";
}

TEST_F(Scans, DamageInTheLastBucketSaysThatNothingIsBehindIt) {
  fill(40);
  const std::uint32_t last = inOrder(40).back();
  auto& word = file_->slot(slotOf(last))[6];
  word.store(word.load() ^ 1U);
  const std::uint32_t first = inOrder(40).front();
  auto& other = file_->slot(slotOf(first))[6];
  other.store(other.load() ^ 1U);
  std::vector<bool> atEnd;
  std::optional<Quell::WalkDamage> stopped;
  Thing each;
  for (bool more = true; more;) {
    try {
      more = stopped ? map().behind(*stopped, each) : map().first(each);
      while (more) more = map().after(each.key, each);
    } catch (const Quell::WalkDamage& damage) {
      atEnd.push_back(damage.atEnd());
      stopped = damage;
    }
  }
  EXPECT_THAT(atEnd, ElementsAre(false, true));
}

TEST_F(Scans, DamageThatComesWhileAWalkStandsInABucketIsMet) {
  // In front of the walk, and behind it; of the record, and of the bucket.
  for (const bool ofTheBucket : {false, true}) {
    for (const std::size_t at : {std::size_t{0}, std::size_t{3}}) {
      things_.reset();
      std::filesystem::remove(files_.fileName());
      fill(4);
      const auto order = inOrder(4);
      Thing each;
      ASSERT_TRUE(map().first(each));
      ASSERT_TRUE(map().after(each.key, each));
      ASSERT_EQ(each.key.id, order[1]);
      auto& word = ofTheBucket ? file_->bucket(0).entries[6] : file_->slot(slotOf(order[at]))[6];
      word.store(word.load() ^ 0x100U);
      std::vector<std::uint32_t> rest;
      const std::string damage = damageOf([&] {
        while (map().after(each.key, each)) rest.push_back(each.key.id);
      });
      EXPECT_THAT(damage, HasSubstr(ofTheBucket ? "" : "does not match its check")) << at;
      EXPECT_FALSE(damage.empty()) << at << ofTheBucket;
      if (!ofTheBucket && at == 3) {
        EXPECT_THAT(rest, ElementsAre(order[2]));
      } else {
        EXPECT_THAT(rest, ElementsAre(order[2], order[3]));
      }
    }
  }
}

TEST_F(Scans, TwoEntriesOfOneKeyAreOneStepOfAWalk) {
  fill(4);
  // As a compaction makes them for a moment.
  const auto [bucket, i] = entryOf(2);
  Quell::BucketEdit(*bucket).entryIs(6, bucket->entries[i].load());
  EXPECT_EQ(walked(), inOrder(4));
  Thing each;
  ASSERT_TRUE(map().first(each));
  const auto order = inOrder(4);
  for (std::size_t at = 1; at < order.size(); ++at) {
    ASSERT_TRUE(map().after(keyOf(order[at - 1]), each));
    EXPECT_EQ(each.key.id, order[at]);
  }
}

TEST_F(Scans, AWalkPassesByWhatIsErasedBetweenItsSteps) {
  fill(4);
  const auto order = inOrder(4);
  Thing each;
  ASSERT_TRUE(map().first(each));
  ASSERT_TRUE(map().erase(keyOf(order[1])));
  ASSERT_TRUE(map().after(each.key, each));
  EXPECT_EQ(each.key.id, order[2]);
  ASSERT_TRUE(map().erase(keyOf(order[3])));
  EXPECT_FALSE(map().after(each.key, each));
}

TEST_F(Scans, AWalkGivesWhatAnotherProcessStoredBetweenItsSteps) {
  fill(4);
  const auto order = inOrder(4);
  const auto writer = files_.open();
  Thing each;
  ASSERT_TRUE(map().first(each));
  writer->red().insert(thing(order[1], 50));
  ASSERT_TRUE(map().after(each.key, each));
  EXPECT_EQ(each, thing(order[1], 50));
  writer->red().erase(keyOf(order[2]));
  ASSERT_TRUE(map().after(each.key, each));
  EXPECT_EQ(each.key.id, order[3]);
  for (std::uint32_t id = 100; id < 200; ++id) writer->red().insert(thing(id));
  std::set<std::uint32_t> rest;
  while (map().after(each.key, each)) rest.insert(each.key.id);
  for (const std::uint32_t id : rest)
    EXPECT_GT(Quell::reverseBits(hashOf(id)), Quell::reverseBits(hashOf(order[3])));
  EXPECT_EQ(rest.size(), std::count_if(rest.begin(), rest.end(), [](auto id) { return id >= 100; }));
}

TEST_F(Scans, AKeyIsMetAtItselfAndNotBehindItself) {
  fill(100);
  const auto order = inOrder(100);
  Thing each;
  for (std::size_t at = 0; at < order.size(); ++at) {
    ASSERT_TRUE(map().atOrAfter(keyOf(order[at]), each));
    EXPECT_EQ(each.key.id, order[at]);
    EXPECT_EQ(map().after(keyOf(order[at]), each), at + 1 < order.size());
    if (at + 1 < order.size()) {
      EXPECT_EQ(each.key.id, order[at + 1]);
    }
  }
}

TEST_F(Scans, EntriesAreCountedOneByOneWhereTheirNumberIsDamaged) {
  fill(300);
  EXPECT_EQ(map().size(), 300U);
  auto& count = file_->header().entries;
  count.store(count.load() ^ 1U);
  EXPECT_EQ(map().size(), 300U);
  EXPECT_EQ(Quell::TableScan(*map().table()).entries(), 300U);
  count.store(Layout::countWord(7));
  EXPECT_EQ(map().size(), 7U);
  EXPECT_EQ(Quell::TableScan(*map().table()).entries(), 7U);
}

TEST_F(Scans, WhatIsReadWithoutAChangeIsReadOnce) {
  fill(300);
  for (std::uint32_t id = 0; id < 400; ++id) map().has(keyOf(id));
  EXPECT_EQ(walked().size(), 300U);
  EXPECT_EQ(map().table()->file()->tornReads(), 0U);
}

TEST_F(Scans, ALookupLeavesWhatItWasToFillAloneWhenThereIsNothing) {
  fill(10);
  Thing out = thing(50, 5);
  EXPECT_FALSE(map().find(keyOf(99), out));
  EXPECT_EQ(out, thing(50, 5));
  const ThingKey absent = keyOf(99);
  EXPECT_FALSE(map().findBytes(&absent, &out));
  EXPECT_EQ(out, thing(50, 5));
  EXPECT_FALSE(map().after(keyOf(inOrder(10).back()), out));
  EXPECT_EQ(out, thing(50, 5));
}
