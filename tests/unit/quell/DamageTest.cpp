#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <set>

#include "QuellFiles.h"
#include "quell/BucketEdit.h"

using namespace QuellTest;
using testing::HasSubstr;

namespace {

constexpr std::uint32_t kPresent = 60;

// A table of kPresent things with a chain that overflows, and every byte of it that is in use.
class Damage : public testing::Test {
 protected:
  Damage() { fill(); }

  void fill() {
    things_ = files_.open(4);
    ids_.clear();
    // Twelve keys of one bucket, so that an overflow bucket is in use.
    for (std::uint32_t id = 1000; ids_.size() < 12; ++id) {
      if ((Things::Map::hash(keyOf(id)) & 0x3fU) == 9) ids_.push_back(id);
    }
    for (std::uint32_t id = 0; ids_.size() < kPresent; ++id) ids_.push_back(id);
    for (const std::uint32_t id : ids_) things_->red().insert(thing(id, id + 1));
    things_->red().table()->writingDel();
    file_ = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  }

  using Range = std::pair<std::uint64_t, std::uint64_t>;
  std::vector<Range> used() const {
    using namespace Quell::Layout;
    const std::uint64_t buckets = stateBuckets(file_->header().state.load());
    return {{offsetof(Header, state), offsetof(Header, doorbell) + 8},
            {kIndexOffset, kIndexOffset + buckets * sizeof(Bucket)},
            {kOverflowOffset, kOverflowOffset + 4 * sizeof(Bucket)},
            {file_->identity().recordsOffset,
             file_->identity().recordsOffset + file_->slotsInFile() * file_->slotBytes()}};
  }
  std::uint8_t& byte(std::uint64_t offset) const {
    return reinterpret_cast<std::uint8_t*>(&file_->header())[offset];
  }

  // Flips a bit of a thing's values, in every slot that holds the thing.
  void spoil(std::uint32_t id) const {
    for (std::uint64_t slot = 0; slot < file_->slotsInFile(); ++slot) {
      auto* words = file_->slot(slot);
      if (static_cast<std::uint32_t>(words[1].load()) == id) words[4].store(words[4].load() ^ 0x100U);
    }
  }

  // Reads all there is through a fresh reader. What is delivered is right, what is not is damage.
  void readAll(std::uint64_t offset) {
    const auto reader = files_.open();
    Things::Map& map = reader->red();
    damaged_ = 0;
    for (const std::uint32_t id : ids_) {
      Thing out;
      try {
        ASSERT_TRUE(map.find(keyOf(id), out)) << "silently lost at " << offset;
        ASSERT_EQ(out, thing(id, id + 1)) << "byte " << offset;
      } catch (const Fenn::CorruptionDetectedException&) {
        ++damaged_;
      }
    }
    for (std::uint32_t id = 5000; id < 5020; ++id) {
      try {
        ASSERT_FALSE(map.has(keyOf(id)));
      } catch (const Fenn::CorruptionDetectedException&) {
        ++damaged_;
      }
    }
    walkAll(map, offset);
    try {
      map.size();
    } catch (const Fenn::CorruptionDetectedException&) {
      ++damaged_;
    }
  }
  void walkAll(Things::Map& map, std::uint64_t offset) {
    std::set<std::uint32_t> met;
    Thing each;
    bool damage = false;
    const auto step = [&](const std::function<bool()>& next) -> bool {
      std::optional<Quell::WalkDamage> stopped;
      try {
        return next();
      } catch (const Quell::WalkDamage& found) {
        stopped = found;
      } catch (const Fenn::CorruptionDetectedException&) {
        damage = true;
        return false;
      }
      while (stopped) {
        damage = true;
        try {
          const bool more = map.behind(*stopped, each);
          return more;
        } catch (const Quell::WalkDamage& found) {
          stopped = found;
        }
      }
      return false;
    };
    for (bool more = step([&] { return map.first(each); }); more;
         more = step([&, from = each.key] { return map.after(from, each); })) {
      ASSERT_EQ(each, thing(each.key.id, each.key.id + 1)) << "byte " << offset;
      ASSERT_TRUE(met.insert(each.key.id).second) << "byte " << offset;
    }
    if (!damage) {
      ASSERT_EQ(met.size(), ids_.size()) << "byte " << offset;
    }
    damaged_ += damage ? 1 : 0;
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  Kiv::Ptr<Things> things_;
  std::vector<std::uint32_t> ids_;
  std::shared_ptr<Quell::TableFile> file_;
  unsigned damaged_ = 0;
};

}  // namespace

TEST_F(Damage, NoFlippedByteEverDeliversAWrongRecordOrLosesOneSilently) {
  readAll(0);
  ASSERT_EQ(damaged_, 0U);
  unsigned noticed = 0;
  for (const auto& [from, to] : used()) {
    for (std::uint64_t offset = from; offset < to; ++offset) {
      for (const unsigned change : {0x01U, 0x80U, 0xffU}) {
        byte(offset) ^= static_cast<std::uint8_t>(change);
        readAll(offset);
        noticed += damaged_ != 0 ? 1 : 0;
        byte(offset) ^= static_cast<std::uint8_t>(change);
        if (HasFatalFailure()) return;
      }
    }
  }
  EXPECT_GT(noticed, 5000U);
  readAll(0);
  EXPECT_EQ(damaged_, 0U);
}

TEST_F(Damage, TheNextWriterPutsAnyDamageInOrder) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    const auto ranges = used();
    const Range range = ranges[random() % ranges.size()];
    byte(range.first + random() % (range.second - range.first)) ^=
        static_cast<std::uint8_t>(1 + random() % 255);
    const auto writer = files_.open();
    writer->red().insert(thing(77777, 1));
    for (const std::uint32_t id : ids_) {
      Thing out;
      if (writer->red().find(keyOf(id), out)) {
        ASSERT_EQ(out, thing(id, id + 1));
      }
      writer->red().insert(thing(id, id + 1));
    }
    ASSERT_TRUE(writer->red().erase(keyOf(77777)));
    ASSERT_EQ(writer->red().size(), ids_.size());
    writer->red().table()->writingDel();
    readAll(0);
    ASSERT_EQ(damaged_, 0U) << round;
  }
}

TEST_F(Damage, StoringHealsADamagedRecord) {
  const auto writer = files_.open();
  writer->red().insert(thing(3, 4));
  spoil(3);
  EXPECT_THROW(writer->red().has(keyOf(3)), Fenn::CorruptionDetectedException);
  writer->red().insert(thing(3, 9));
  EXPECT_EQ(writer->red().get(keyOf(3)), thing(3, 9));
  EXPECT_EQ(writer->red().size(), ids_.size());
}

// Both words fit their checks, as those of another program's table would; the link leads to behind the last
// bucket there is room for.
TEST_F(Damage, TheNextWriterFollowsNoLinkBehindTheLastOverflowBucket) {
  using namespace Quell::Layout;
  constexpr std::uint64_t kBehind = kMostOverflowBuckets + 1;
  file_->header().overflow.store(countWord(kBehind + 1));
  Bucket& bucket = file_->bucket(9);
  const std::uint64_t meta = bucket.meta.load();
  ASSERT_NE(metaLink(meta), 0U);
  bucket.meta.store(metaWord(metaSequence(meta), kBehind, Quell::entriesSum(bucket)));
  const auto writer = files_.open();
  for (const std::uint32_t id : ids_) writer->red().insert(thing(id, id + 1));
  EXPECT_EQ(writer->red().size(), ids_.size());
  writer->red().table()->writingDel();
  readAll(0);
  EXPECT_EQ(damaged_, 0U);
}

TEST_F(Damage, AStateOfZeroesIsDamageAlsoToWhoHasNotReadYet) {
  file_->header().state.store(0);
  const auto reader = files_.open();
  Thing each;
  EXPECT_THROW(reader->red().has(keyOf(3)), Fenn::CorruptionDetectedException);
  EXPECT_THROW(reader->red().first(each), Fenn::CorruptionDetectedException);
}

TEST_F(Damage, BehindAWalkIsMetBeforeTheWalkLeavesItsBucket) {
  const auto reader = files_.open();
  const Things::Map& map = reader->red();
  Thing each;
  ASSERT_TRUE(map.first(each));
  Thing next = each;
  ASSERT_TRUE(map.after(each.key, next));
  spoil(each.key.id);
  const auto toTheEnd = [&] {
    while (map.after(next.key, next)) {
    }
  };
  EXPECT_THROW(toTheEnd(), Quell::WalkDamage);
}

TEST_F(Damage, TheMessageNamesTheTableTheCollectionAndTheSlot) {
  spoil(3);
  try {
    files_.open()->red().has(keyOf(3));
    FAIL() << "delivered";
  } catch (const Fenn::CorruptionDetectedException& damage) {
    EXPECT_THAT(damage.what(), HasSubstr("table test/things red: the record in slot "));
    EXPECT_THAT(damage.what(), HasSubstr("does not match its check"));
  }
}

TEST_F(Damage, IsCountedAndToldToTheHandler) {
  std::vector<std::string> told;
  things_->red().corruptionHandlerIs([&](std::string_view message) { told.emplace_back(message); });
  things_->red().doCorruptionDetected("slot 1");
  things_->red().doCorruptionDetected("slot 1");
  EXPECT_EQ(things_->red().corruptions(), 2U);
  EXPECT_EQ(told, (std::vector<std::string>{"slot 1", "slot 1"}));
}
