// What a repair puts right, kind by kind, and how it tells of it.
#include "quell/TableRepair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "QuellFiles.h"
#include "quell/BucketEdit.h"
#include "quell/TableStore.h"

using namespace QuellTest;
using namespace Quell::Layout;
using testing::HasSubstr;

namespace {

constexpr std::uint32_t kThings = 200;

class Repairs : public testing::Test {
 protected:
  Repairs() {
    {
      auto things = files_.open();
      for (std::uint32_t id = 0; id < kThings; ++id) things->red().insert(thing(id));
    }
    file_ = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  }
  // An entry in use, and its bucket.
  std::pair<Bucket*, unsigned> used() const {
    for (std::uint64_t number = 0;; ++number) {
      Bucket& bucket = file_->bucket(number);
      for (unsigned i = 0; i < kEntriesPerBucket; ++i) {
        if (bucket.entries[i].load() != 0) return {&bucket, i};
      }
    }
  }
  // Puts an entry in the place of one, as a whole change.
  static void put(Bucket& bucket, unsigned i, std::uint64_t entry) {
    Quell::BucketEdit(bucket).entryIs(i, entry);
  }
  void spoil(std::uint32_t id) const {
    for (std::uint64_t slot = 0; slot < file_->slotsInFile(); ++slot) {
      auto* words = file_->slot(slot);
      if (static_cast<std::uint32_t>(words[1].load()) == id && words[0].load() != 0)
        words[4].store(words[4].load() ^ 0x100U);
    }
  }
  std::size_t readable() const {
    const auto reader = files_.open();
    std::size_t found = 0;
    for (std::uint32_t id = 0; id < kThings; ++id)
      found += reader->red().get(keyOf(id)) == thing(id) ? 1U : 0U;
    return found;
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  std::shared_ptr<Quell::TableFile> file_;
};

}  // namespace

TEST_F(Repairs, AnEntryWithAnotherTagIsPutRight) {
  const auto [bucket, i] = used();
  put(*bucket, i, bucket->entries[i].load() ^ std::uint64_t{1} << 40);
  const Quell::TableRepair found = Quell::repair(*file_);
  EXPECT_EQ(found.text(), "1 entries put right");
  EXPECT_EQ(found.entries, kThings);
  EXPECT_EQ(readable(), kThings);
}

TEST_F(Repairs, AnEntryThatNamesNoSlotIsDropped) {
  const auto [bucket, i] = used();
  const std::uint64_t entry = bucket->entries[i].load();
  put(*bucket, i, (entry >> 32 << 32) | (file_->slotsInFile() + 1));
  const Quell::TableRepair found = Quell::repair(*file_);
  EXPECT_EQ(found.damaged, 1U);
  EXPECT_EQ(found.entries, kThings - 1);
  EXPECT_EQ(bucket->entries[i].load(), 0U);
  EXPECT_TRUE(found.counts);
  EXPECT_FALSE(Quell::repair(*file_).anything());
}

TEST_F(Repairs, ARecordThatDoesNotMatchItsCheckIsDropped) {
  spoil(7);
  EXPECT_EQ(Quell::repair(*file_).text(), "1 damaged records dropped, counts put right");
  EXPECT_EQ(readable(), kThings - 1);
}

TEST_F(Repairs, ALinkThatLeadsInACircleIsDropped) {
  std::uint64_t number = 0;
  while (metaLink(file_->bucket(number).meta.load()) != 0) ++number;
  const std::uint64_t overflow = countOf(file_->header().overflow.load());
  file_->header().overflow.store(countWord(overflow + 1));
  Quell::BucketEdit(file_->overflow(overflow)).linkIs(overflow + 1);
  Quell::BucketEdit(file_->bucket(number)).linkIs(overflow + 1);
  const Quell::TableRepair found = Quell::repair(*file_);
  EXPECT_EQ(found.text(), "1 links dropped");
  EXPECT_EQ(metaLink(file_->bucket(number).meta.load()), overflow + 1);
  EXPECT_EQ(metaLink(file_->overflow(overflow).meta.load()), 0U);
  ASSERT_EQ(found.overflow.size(), overflow + 1);
  EXPECT_TRUE(found.overflow[overflow]);
}

TEST_F(Repairs, ABucketLeftInTheMiddleOfAChangeIsPutRight) {
  Bucket& bucket = *used().first;
  bucket.meta.store(bucket.meta.load() | 1U);
  EXPECT_EQ(Quell::repair(*file_).text(), "1 unfinished or damaged buckets put right");
  EXPECT_EQ(readable(), kThings);
}

TEST_F(Repairs, AReaderThatBeganBeforeEntriesAreTakenOutIsSentBack) {
  const std::uint64_t before = file_->header().state.load();
  Quell::repair(*file_);
  EXPECT_EQ(file_->header().state.load(), before);  // nothing was taken out
  spoil(7);
  spoil(8);
  Quell::repair(*file_);
  const std::uint64_t now = file_->header().state.load();
  EXPECT_EQ(stateCompactions(now), stateCompactions(before) + 1);
  EXPECT_EQ(stateBuckets(now), stateBuckets(before));
  EXPECT_EQ(file_->header().stateCopy.load(), now);
}

TEST_F(Repairs, WhatIsFoundIsToldInOneLine) {
  Quell::TableRepair found;
  EXPECT_EQ(found.text(), "");
  EXPECT_FALSE(found.anything());
  found.doubles = 1;
  found.damaged = 2;
  found.tags = 3;
  found.links = 4;
  found.unfinished = 5;
  found.counts = true;
  EXPECT_EQ(found.text(),
            "1 entries left twice dropped, 2 damaged records dropped, 3 entries put right, 4 links dropped, "
            "5 unfinished or damaged buckets put right, counts put right");
  for (const auto member :
       {&Quell::TableRepair::doubles, &Quell::TableRepair::damaged, &Quell::TableRepair::tags,
        &Quell::TableRepair::links, &Quell::TableRepair::unfinished}) {
    Quell::TableRepair one;
    one.*member = 1;
    EXPECT_TRUE(one.anything());
  }
  Quell::TableRepair several;
  several.doubles = several.damaged = several.tags = several.links = several.unfinished = 1;
  EXPECT_TRUE(several.anything());
  several.doubles = 0;
  several.links = several.unfinished = 0;
  EXPECT_TRUE(several.anything());
  Quell::TableRepair counts;
  counts.counts = true;
  EXPECT_TRUE(counts.anything());
  EXPECT_EQ(counts.text(), "counts put right");
}

TEST_F(Repairs, WhoReadsAllGoesOnBehindDamageAndIsToldOfIt) {
  const Kiv::Module module("QuellTest", {&Things::kivType()});
  spoil(7);
  spoil(90);
  const Quell::OpenCollection all(dir_.path(), "test/things", "red");
  std::set<std::string> ids;
  std::vector<std::string> told;
  all.forEach([&](const Kiv::Value& value) { EXPECT_TRUE(ids.insert(value.member("id")->text()).second); },
              [&](const std::string& damage) { told.push_back(damage); });
  EXPECT_EQ(ids.size(), kThings - 2);
  EXPECT_FALSE(ids.contains("7"));
  EXPECT_FALSE(ids.contains("90"));
  ASSERT_EQ(told.size(), 2U);
  for (const std::string& damage : told) EXPECT_THAT(damage, HasSubstr("does not match its check"));
}

// --- What the repair tells the writer, and what it leaves

TEST_F(Repairs, OfOneKeyOneRecordIsKeptWhateverStandsBehindTheKey) {
  // The key ends within a word: what follows there is another record's.
  for (std::uint64_t number = 0;; ++number) {
    Bucket& bucket = file_->bucket(number);
    const auto free = std::find_if(bucket.entries.begin(), bucket.entries.end(),
                                   [](const Word& entry) { return entry.load() == 0; });
    if (bucket.entries[0].load() == 0 || free == bucket.entries.end() || free == bucket.entries.begin())
      continue;
    const auto id = static_cast<std::uint32_t>(file_->slot(entrySlot(bucket.entries[0].load()))[1].load());
    const Thing again = thing(id, 99);
    const std::uint64_t hash = Quell::keyHash(&again.key, sizeof again.key);
    const std::uint64_t slot = file_->slotsInFile() - 1;
    Quell::fillSlot(*file_, slot, &again, hash);
    put(bucket, static_cast<unsigned>(free - bucket.entries.begin()), entryWord(hash, slot));
    const Quell::TableRepair found = Quell::repair(*file_);
    EXPECT_EQ(found.text(), "1 entries left twice dropped");
    EXPECT_EQ(found.doubles, 1U);
    EXPECT_FALSE(found.slots[slot]);
    break;
  }
  EXPECT_EQ(readable(), kThings);
  EXPECT_FALSE(Quell::repair(*file_).anything());
}

TEST_F(Repairs, ASlotThatTwoEntriesNameIsKeptOnce) {
  const auto [bucket, i] = used();
  for (unsigned other = 0; other < kEntriesPerBucket; ++other) {
    if (bucket->entries[other].load() != 0) continue;
    put(*bucket, other, bucket->entries[i].load());
    break;
  }
  EXPECT_EQ(Quell::repair(*file_).text(), "1 entries left twice dropped");
  EXPECT_EQ(readable(), kThings);
}

TEST_F(Repairs, SlotsHashesAndCountsAreWhatIsThere) {
  const Quell::TableRepair found = Quell::repair(*file_);
  ASSERT_EQ(found.slots.size(), file_->slotsInFile());
  ASSERT_EQ(found.hashes.size(), file_->slotsInFile());
  EXPECT_EQ(found.buckets, stateBuckets(file_->header().state.load()));
  EXPECT_EQ(found.compactions, stateCompactions(file_->header().state.load()));
  std::size_t named = 0;
  for (std::uint64_t slot = 0; slot < found.slots.size(); ++slot) {
    if (!found.slots[slot]) continue;
    ++named;
    EXPECT_EQ(found.hashes[slot], static_cast<std::uint32_t>(Quell::lookAtSlot(*file_, slot).hash));
  }
  EXPECT_EQ(named, kThings);
  EXPECT_EQ(std::count(found.overflow.begin(), found.overflow.end(), true),
            static_cast<std::ptrdiff_t>(found.overflow.size()) -
                std::count(found.overflow.begin(), found.overflow.end(), false));
}

TEST_F(Repairs, AChainThatTwoBucketsLinkToIsLeftToTheFirst) {
  std::vector<std::uint64_t> free;
  for (std::uint64_t number = 0; free.size() < 2; ++number) {
    if (metaLink(file_->bucket(number).meta.load()) == 0) free.push_back(number);
  }
  const std::uint64_t overflow = countOf(file_->header().overflow.load());
  file_->header().overflow.store(countWord(overflow + 1));
  for (const std::uint64_t number : free) Quell::BucketEdit(file_->bucket(number)).linkIs(overflow + 1);
  const Quell::TableRepair found = Quell::repair(*file_);
  EXPECT_EQ(found.links, 1U);
  EXPECT_EQ(found.unfinished, 0U);
  EXPECT_EQ(metaLink(file_->bucket(free[0]).meta.load()), overflow + 1);
  EXPECT_EQ(metaLink(file_->bucket(free[1]).meta.load()), 0U);
  EXPECT_EQ(readable(), kThings);
}

TEST_F(Repairs, ALinkToABucketThatWasNeverInUseIsDropped) {
  std::uint64_t number = 0;
  while (metaLink(file_->bucket(number).meta.load()) != 0) ++number;
  const std::uint64_t overflow = countOf(file_->header().overflow.load());
  Quell::BucketEdit(file_->bucket(number)).linkIs(overflow + 1);
  EXPECT_EQ(Quell::repair(*file_).text(), "1 links dropped");
  // Where the number of those in use is damaged, any link that there may be is followed.
  Quell::BucketEdit(file_->bucket(number)).linkIs(overflow + 1);
  file_->header().overflow.store(file_->header().overflow.load() ^ std::uint64_t{1} << 40);
  const Quell::TableRepair found = Quell::repair(*file_);
  EXPECT_EQ(found.links, 0U);
  ASSERT_EQ(found.overflow.size(), overflow + 1);
  EXPECT_TRUE(found.overflow[overflow]);
}

TEST_F(Repairs, AStateThatIsTakenFromItsCopyIsToldAndStored) {
  const std::uint64_t state = file_->header().state.load();
  file_->header().state.store(state ^ 1U);
  EXPECT_EQ(Quell::repair(*file_).text(), "counts put right");
  EXPECT_EQ(file_->header().state.load(), state);
  file_->header().stateCopy.store(state ^ 1U);
  EXPECT_EQ(Quell::repair(*file_).text(), "");
  EXPECT_EQ(file_->header().stateCopy.load(), state);
}

TEST_F(Repairs, ACountThatIsWrongIsToldAndStored) {
  file_->header().entries.store(countWord(kThings + 1));
  EXPECT_EQ(Quell::repair(*file_).text(), "counts put right");
  EXPECT_EQ(file_->header().entries.load(), countWord(kThings));
}

TEST_F(Repairs, TheBucketBehindTheIndexIsClearedOfWhateverASplitPutThere) {
  Bucket& next = file_->bucket(stateBuckets(file_->header().state.load()));
  const auto isCleared = [&] {
    const Quell::TableRepair found = Quell::repair(*file_);
    EXPECT_EQ(found.text(), "1 unfinished or damaged buckets put right");
    EXPECT_FALSE(Quell::repair(*file_).anything());
    return std::all_of(next.entries.begin(), next.entries.end(),
                       [](const Word& entry) { return entry.load() == 0; }) &&
           metaLink(next.meta.load()) == 0 && Quell::bucketWhole(next);
  };
  Quell::BucketEdit(next).entryIs(6, 77);
  EXPECT_TRUE(isCleared());
  Quell::BucketEdit(next).linkIs(3);
  EXPECT_TRUE(isCleared());
  next.meta.store(next.meta.load() | 1U);
  EXPECT_TRUE(isCleared());
  next.meta.store(next.meta.load() ^ std::uint64_t{1} << 50);
  EXPECT_TRUE(isCleared());
}

TEST_F(Repairs, ReadersAreSentBackOnceHoweverMuchIsTakenOut) {
  const std::uint64_t before = stateCompactions(file_->header().state.load());
  for (std::uint32_t id = 0; id < 50; ++id) spoil(id);
  EXPECT_EQ(Quell::repair(*file_).damaged, 50U);
  EXPECT_EQ(stateCompactions(file_->header().state.load()), before + 1);
}

TEST_F(Repairs, TheCounterOfCompactionsComesRound) {
  const std::uint64_t buckets = stateBuckets(file_->header().state.load());
  file_->header().state.store(stateWord(buckets, 0xffff));
  spoil(7);
  const Quell::TableRepair found = Quell::repair(*file_);
  EXPECT_EQ(found.compactions, 0U);
  EXPECT_EQ(file_->header().state.load(), stateWord(buckets, 0));
}

TEST_F(Repairs, DamageInAChainsLaterBucketsIsPutRight) {
  for (std::uint64_t number = 0; number < countOf(file_->header().overflow.load()); ++number) {
    Bucket& bucket = file_->overflow(number);
    bucket.meta.store(bucket.meta.load() ^ std::uint64_t{1} << 60);
  }
  const Quell::TableRepair found = Quell::repair(*file_);
  EXPECT_EQ(found.unfinished, countOf(file_->header().overflow.load()));
  EXPECT_EQ(readable(), kThings);
}
