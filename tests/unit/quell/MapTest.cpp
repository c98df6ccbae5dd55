// Maps and containers at their edges: without a table, without reactors, of records of odd sizes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <set>
#include <sstream>

#include "QuellFiles.h"
#include "quell/BucketEdit.h"

using namespace QuellTest;
using testing::HasSubstr;

namespace {

// What is logged while it lives.
class Logged {
 public:
  Logged() {
    spdlog::set_default_logger(
        std::make_shared<spdlog::logger>("test", std::make_shared<spdlog::sinks::ostream_sink_st>(text_)));
    spdlog::set_pattern("%v");
  }
  ~Logged() { spdlog::set_default_logger(before_); }
  std::string text() const { return text_.str(); }

 private:
  std::shared_ptr<spdlog::logger> before_ = spdlog::default_logger();
  std::ostringstream text_;
};

class Heard : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit Heard(const Kiv::Ptr<Things>& things) {
    hasNotificationActiveIs(true);
    notifierIs(things);
  }
  void onAttribute(Kiv::AttributeId attribute) override { told.emplace_back(attribute, 0); }
  void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
    told.emplace_back(attribute, key.as<ThingKey>().id);
  }
  std::vector<std::pair<Kiv::AttributeId, std::uint32_t>> told;
};

class Maps : public testing::Test {
 protected:
  Maps() { Quell::attachAnonymous(red()); }
  Things::Map& red() { return things_->red(); }
  Things::Map& detached() { return things_->blue(); }

  Kiv::Ptr<Things> things_ = Kiv::makePtr<Things>("things");
};

}  // namespace

TEST_F(Maps, OneWithoutATableHasNothingAndTakesNothing) {
  const Things::Map& map = detached();
  const std::uint64_t hash = Things::Map::hash(keyOf(1));
  const ThingKey key = keyOf(1);
  ThingKey ahead;
  Thing out = thing(9);
  map.prefetchIndex(hash);
  map.prefetchRecord(hash);
  const auto place = map.place(hash);
  EXPECT_EQ(place.word, nullptr);
  EXPECT_EQ(place.entry, 0U);
  EXPECT_FALSE(map.find(place, keyOf(1), hash, out));
  EXPECT_FALSE(map.findBytes(&key, &out));
  EXPECT_FALSE(map.after(keyOf(1), out));
  EXPECT_FALSE(map.atOrAfter(keyOf(1), out));
  EXPECT_FALSE(map.ahead(ahead));
  EXPECT_FALSE(map.behind(Quell::WalkDamage("damage", false, 1), out));
  EXPECT_FALSE(map.behind(Quell::WalkDamage("damage", true, 0), out));
  EXPECT_EQ(out, thing(9));
  EXPECT_TRUE(detached().expect(0));
  EXPECT_EQ(tableError([&] { detached().expect(1); }), "things blue: no table is mounted");
  EXPECT_FALSE(detached().eraseBytes(&key));
}

TEST_F(Maps, NothingStandsBehindDamageAtTheEnd) {
  red().insert(thing(1));
  Thing out;
  EXPECT_FALSE(red().behind(Quell::WalkDamage("damage", true, 0), out));
  EXPECT_TRUE(red().behind(Quell::WalkDamage("damage", false, 0), out));
  EXPECT_EQ(out, thing(1));
}

TEST_F(Maps, ATableInMemorySaysWhoseItIs) {
  const auto& file = red().table()->file();
  EXPECT_EQ(file->name(), "things red");
  EXPECT_STREQ(file->identity().containerType.data(), "QuellTest::Things");
  EXPECT_STREQ(file->identity().recordType.data(), "QuellTest::Thing");
  EXPECT_EQ(Quell::Layout::stateBuckets(file->header().state.load()), 16U) << "room for 64 entries";
  EXPECT_EQ(file->slotsInFile(), 128U);
}

TEST_F(Maps, AContainerKnowsItsCollectionsByTheirNames) {
  EXPECT_EQ(things_->collection("red"), &red());
  EXPECT_EQ(things_->collection("blue"), &detached());
  EXPECT_EQ(things_->collection("green"), nullptr);
}

TEST_F(Maps, ReactorsHearOfBytesAsOfRecords) {
  const auto heard = Kiv::makePtr<Heard>(things_);
  const Thing stored = thing(5);
  red().insertBytes(&stored);
  EXPECT_TRUE(red().eraseBytes(&stored.key));
  EXPECT_FALSE(red().eraseBytes(&stored.key));
  things_->collectionChanged(red(), nullptr);
  const std::vector<std::pair<Kiv::AttributeId, std::uint32_t>> expected{
      {Things::redAttr, 5}, {Things::redAttr, 5}, {Things::redAttr, 0}};
  EXPECT_EQ(heard->told, expected);
  heard->notifierIs(nullptr);
}

TEST_F(Maps, TheSameDamageIsLoggedOnceUntilAnotherComes) {
  const Logged logged;
  red().doCorruptionDetected("slot 1");
  red().doCorruptionDetected("slot 1");
  red().doCorruptionDetected("slot 2");
  red().doCorruptionDetected("slot 2");
  red().doCorruptionDetected("slot 1");
  EXPECT_EQ(logged.text(), "things red: slot 1\nthings red: slot 2\nthings red: slot 1\n");
  EXPECT_EQ(red().corruptions(), 5U);
}

TEST_F(Maps, WhatAWriterPutsRightIsLoggedInOneLineAndNothingElseIs) {
  const TestSupport::TempDir dir;
  const Files files(dir.path());
  files.open()->red().insert(thing(1));
  const Logged logged;
  files.open()->red().insert(thing(2));
  EXPECT_EQ(logged.text(), "");
  const auto file = Quell::TableFile::open(files.place(), Quell::TableFile::Access::write);
  file->header().entries.store(Quell::Layout::countWord(7));
  files.open()->red().insert(thing(3));
  EXPECT_EQ(logged.text(), "table test/things red: repaired: counts put right\n");
}

TEST_F(Maps, RecordTypesHaveNoSizeUntilTheyAreGivenOne) {
  EXPECT_EQ(Quell::RecordType().recordBytes, 0U);
  EXPECT_EQ(Quell::RecordType().keyBytes, 0U);
}

TEST_F(Maps, APlaceNamesTheEntryOfItsHash) {
  for (std::uint32_t id = 0; id < 200; ++id) red().insert(thing(id));
  const Quell::TableFile& file = *red().table()->file();
  for (std::uint32_t id = 0; id < 200; ++id) {
    const std::uint64_t hash = Things::Map::hash(keyOf(id));
    const auto place = red().place(hash);
    if (place.word == nullptr) continue;  // in an overflow bucket, or behind what was seen of the file
    EXPECT_EQ(place.word->load(), place.entry);
    EXPECT_EQ(Quell::Layout::entryTag(place.entry), hash >> 32);
    EXPECT_EQ(static_cast<std::uint32_t>(file.slot(Quell::Layout::entrySlot(place.entry))[1].load()), id);
  }
  EXPECT_EQ(red().place(Things::Map::hash(keyOf(1000))).word, nullptr);
}

TEST_F(Maps, AHintOfAWalkNamesKeysThatItMeetsLaterEachOnce) {
  constexpr std::uint32_t kMany = 5000;
  for (std::uint32_t id = 0; id < kMany; ++id) red().insert(thing(id));
  std::set<std::uint32_t> met;
  std::set<std::uint32_t> told;
  unsigned later = 0;
  Thing each;
  for (bool more = red().first(each); more; more = red().after(each.key, each)) {
    met.insert(each.key.id);
    ThingKey key;
    while (red().ahead(key)) {
      ASSERT_EQ(key, keyOf(key.id));
      EXPECT_TRUE(told.insert(key.id).second) << key.id;
      later += met.contains(key.id) ? 0 : 1;
    }
  }
  EXPECT_EQ(met.size(), kMany);
  EXPECT_GT(told.size(), kMany * 9 / 10);
  EXPECT_GT(later, told.size() - 10) << "all but at the walk's end, where it begins anew";
}

TEST(NewReaders, FindWhatIsThereAtTheirFirstLookWhateverTheIndexHas) {
  for (std::size_t capacity = 1; capacity <= 40; ++capacity) {
    const auto writer = Kiv::makePtr<Things>("things");
    Quell::attachAnonymous(writer->red(), capacity);
    for (std::uint32_t id = 0; id < capacity; ++id) writer->red().insert(thing(id));
    for (std::uint32_t id = 0; id < capacity + 4; ++id) {
      const auto reader = Kiv::makePtr<Things>("things");
      reader->red().tableIs(std::make_shared<Quell::Table>(writer->red().table()->file()));
      EXPECT_EQ(reader->red().has(keyOf(id)), id < capacity) << id << " of " << capacity;
    }
  }
}

// --- Sizes that are no whole words

namespace {

template <std::size_t KeyBytes, std::size_t RecordBytes>
struct Odd {
  struct alignas(8) Bytes {
    std::array<std::uint8_t, RecordBytes + 16> bytes{};
  };
  static Bytes made(unsigned number) {
    Bytes record;
    for (std::size_t i = 0; i < RecordBytes; ++i)
      record.bytes[i] = static_cast<std::uint8_t>(number * 31 + i);
    for (std::size_t i = RecordBytes; i < record.bytes.size(); ++i) record.bytes[i] = 0xee;
    return record;
  }
  static const Quell::RecordType& type() {
    static const Quell::RecordType one{"Odd", RecordBytes, KeyBytes, nullptr, nullptr, nullptr, nullptr};
    return one;
  }
  Quell::Table table{Quell::TableFile::anonymous({"", "odd", "odd"}, {&type(), "Odd", 4})};
};

template <std::size_t KeyBytes, std::size_t RecordBytes>
void storeAndFind() {
  Odd<KeyBytes, RecordBytes> odd;
  Quell::Table& table = odd.table;
  using Bytes = typename Odd<KeyBytes, RecordBytes>::Bytes;
  const auto made = Odd<KeyBytes, RecordBytes>::made;
  constexpr unsigned kMany = 100;
  for (unsigned number = 0; number < kMany; ++number) table.store(made(number).bytes.data());
  ASSERT_EQ(table.entries(), kMany);
  for (unsigned number = 0; number < kMany; ++number) {
    const Bytes wanted = made(number);
    const std::uint64_t hash = Quell::Table::hash<KeyBytes>(wanted.bytes.data());
    Bytes out;
    out.bytes.fill(0xee);
    ASSERT_TRUE((table.find<KeyBytes, RecordBytes>(wanted.bytes.data(), hash, out.bytes.data())));
    ASSERT_EQ(out.bytes, wanted.bytes) << "nothing is written behind the record";
    out.bytes.fill(0xee);
    ASSERT_TRUE((table.find<KeyBytes, RecordBytes>(table.place<RecordBytes>(hash), wanted.bytes.data(), hash,
                                                   out.bytes.data())));
    ASSERT_EQ(out.bytes, wanted.bytes);
    out.bytes.fill(0xee);
    ASSERT_TRUE(table.findSlow(wanted.bytes.data(), hash, out.bytes.data()));
    ASSERT_EQ(out.bytes, wanted.bytes);
  }
  std::set<std::array<std::uint8_t, RecordBytes + 16>> met;
  Bytes each;
  each.bytes.fill(0xee);
  for (bool more = table.walkFirst(each.bytes.data()); more;
       more = table.walkAfter(each.bytes.data(), each.bytes.data()))
    ASSERT_TRUE(met.insert(each.bytes).second);
  ASSERT_EQ(met.size(), kMany);
  for (unsigned number = 0; number < kMany; ++number) {
    ASSERT_TRUE(met.contains(made(number).bytes));
    ASSERT_TRUE(table.erase(made(number).bytes.data()));
  }
  EXPECT_EQ(table.entries(), 0U);
}

template <std::size_t KeyBytes, std::size_t RecordBytes>
void findAnother() {
  Odd<KeyBytes, RecordBytes> odd;
  Quell::Table& table = odd.table;
  const auto record = odd.made(7);
  table.store(record.bytes.data());
  const std::uint64_t hash = Quell::Table::hash<KeyBytes>(record.bytes.data());
  auto out = record;
  for (std::size_t i = 0; i < KeyBytes; ++i) {
    auto other = record;
    other.bytes[i] ^= 0x10;
    EXPECT_FALSE((table.find<KeyBytes, RecordBytes>(other.bytes.data(), hash, out.bytes.data()))) << i;
    EXPECT_FALSE((table.find<KeyBytes, RecordBytes>(table.place<RecordBytes>(hash), other.bytes.data(), hash,
                                                    out.bytes.data())))
        << i;
  }
  auto* const held = reinterpret_cast<std::uint8_t*>(table.file()->slot(0) + 1);
  for (std::size_t i = 0; i < RecordBytes; ++i) {
    held[i] ^= 0x10;
    EXPECT_THROW((table.find<KeyBytes, RecordBytes>(record.bytes.data(), hash, out.bytes.data())),
                 Fenn::CorruptionDetectedException)
        << i;
    EXPECT_THROW((table.find<KeyBytes, RecordBytes>(table.place<RecordBytes>(hash), record.bytes.data(), hash,
                                                    out.bytes.data())),
                 Fenn::CorruptionDetectedException)
        << i;
    held[i] ^= 0x10;
  }
  EXPECT_EQ(out.bytes, record.bytes) << "nothing was given out";
  EXPECT_TRUE((table.find<KeyBytes, RecordBytes>(record.bytes.data(), hash, out.bytes.data())));
}

template <class Check>
void eachSize(const Check& check) {
  check.template operator()<1, 1>();
  check.template operator()<3, 12>();
  check.template operator()<8, 16>();
  check.template operator()<8, 20>();
  check.template operator()<9, 23>();
  check.template operator()<24, 29>();
  check.template operator()<33, 33>();
  check.template operator()<40, 100>();
}

}  // namespace

TEST(OddSizes, AnotherKeyOfTheSameHashIsNotFoundAndAChangedByteIsMet) {
  eachSize([]<std::size_t Key, std::size_t Record>() { findAnother<Key, Record>(); });
}

TEST(OddSizes, RecordsAndKeysOfAnySizeAreStoredAndFoundToTheByte) {
  eachSize([]<std::size_t Key, std::size_t Record>() { storeAndFind<Key, Record>(); });
}

// The check of a slot has 32 bits, that of a bucket 24, and each of them counts.
TEST(Checks, EachBitOfACheckCounts) {
  const auto things = Kiv::makePtr<Things>("things");
  Quell::attachAnonymous(things->red(), 4);
  things->red().insert(thing(1));
  const auto& file = things->red().table()->file();
  const auto misses = [&](Quell::Layout::Word& word, unsigned bit, std::uint32_t id) {
    const std::uint64_t before = word.load();
    word.store(before ^ std::uint64_t{1} << bit);
    bool damaged = false;
    try {
      things->red().has(keyOf(id));
    } catch (const Fenn::CorruptionDetectedException&) {
      damaged = true;
    }
    word.store(before);
    return !damaged;
  };
  for (unsigned bit = 32; bit < 64; ++bit) EXPECT_FALSE(misses(file->slot(0)[0], bit, 1)) << bit;
  for (unsigned bit = 40; bit < 64; ++bit) EXPECT_FALSE(misses(file->bucket(0).meta, bit, 2)) << bit;
  for (unsigned bit = 0; bit < 64; ++bit) EXPECT_FALSE(misses(file->header().state, bit, 2)) << bit;
  EXPECT_TRUE(things->red().has(keyOf(1)));
}
