#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "QuellThings.h"

using namespace QuellTest;

namespace {

class Tables : public testing::Test {
 protected:
  Tables() { Quell::attachAnonymous(map()); }
  Things::Map& map() { return things_->red(); }

  std::vector<std::uint32_t> walked() {
    std::vector<std::uint32_t> ids;
    Thing each;
    for (bool more = map().first(each); more; more = map().after(each.key, each)) ids.push_back(each.key.id);
    return ids;
  }

  Kiv::Ptr<Things> things_ = Kiv::makePtr<Things>("things");
};

}  // namespace

TEST_F(Tables, AnEmptyTableHasNothing) {
  Thing out = thing(99);
  EXPECT_TRUE(map().empty());
  EXPECT_FALSE(map().find(keyOf(1), out));
  EXPECT_EQ(out, thing(99));
  EXPECT_FALSE(map().first(out));
  EXPECT_EQ(map().get(keyOf(1)), Thing());
}

TEST_F(Tables, AMapWithoutATableIsEmptyAndRefusesRecords) {
  Things::Map& blue = things_->blue();
  Thing out;
  EXPECT_EQ(blue.size(), 0U);
  EXPECT_FALSE(blue.has(keyOf(1)));
  EXPECT_FALSE(blue.first(out));
  EXPECT_FALSE(blue.erase(keyOf(1)));
  EXPECT_THROW(blue.insert(thing(1)), Quell::TableError);
}

TEST_F(Tables, ARecordIsFoundUnderItsKeyUntilItIsErased) {
  map().insert(thing(1, 10));
  map().insert(thing(2, 20));
  EXPECT_EQ(map().get(keyOf(1)), thing(1, 10));
  EXPECT_EQ(map().get(keyOf(2)), thing(2, 20));
  EXPECT_FALSE(map().has(keyOf(3)));
  EXPECT_EQ(map().size(), 2U);
  EXPECT_TRUE(map().erase(keyOf(1)));
  EXPECT_FALSE(map().has(keyOf(1)));
  EXPECT_EQ(map().size(), 1U);
}

TEST_F(Tables, InsertingUnderAKnownKeyOverwrites) {
  map().insert(thing(1, 10));
  map().insert(thing(1, 11));
  EXPECT_EQ(map().size(), 1U);
  EXPECT_EQ(map().get(keyOf(1)), thing(1, 11));
}

TEST_F(Tables, ErasingAnAbsentKeyChangesNothing) {
  EXPECT_FALSE(map().erase(keyOf(1)));
  map().insert(thing(1));
  EXPECT_FALSE(map().erase(keyOf(2)));
  EXPECT_EQ(map().size(), 1U);
  EXPECT_TRUE(map().has(keyOf(1)));
}

TEST_F(Tables, GrowthKeepsEveryRecord) {
  constexpr std::uint32_t kMany = 50000;
  for (std::uint32_t id = 0; id < kMany; ++id) map().insert(thing(id, id));
  EXPECT_EQ(map().size(), kMany);
  for (std::uint32_t id = 0; id < kMany; ++id) ASSERT_EQ(map().get(keyOf(id)), thing(id, id)) << id;
  EXPECT_FALSE(map().has(keyOf(kMany)));
  EXPECT_EQ(map().corruptions(), 0U);
}

TEST_F(Tables, AWalkMeetsEachRecordOnceInTheOrderOfReversedHashes) {
  for (std::uint32_t id = 0; id < 3000; ++id) map().insert(thing(id));
  const std::vector<std::uint32_t> ids = walked();
  EXPECT_EQ(ids.size(), 3000U);
  EXPECT_EQ(std::set(ids.begin(), ids.end()).size(), 3000U);
  const auto place = [](std::uint32_t id) {
    std::uint64_t hash = Things::Map::hash(keyOf(id));
    std::uint64_t reversed = 0;
    for (int i = 0; i < 64; ++i, hash >>= 1) reversed = reversed << 1 | (hash & 1U);
    return reversed;
  };
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end(), [&](auto a, auto b) { return place(a) < place(b); }));
}

TEST_F(Tables, TheOrderOfAWalkDoesNotDependOnHowTheTableCameToBe) {
  for (std::uint32_t id = 0; id < 500; ++id) map().insert(thing(id));
  const std::vector<std::uint32_t> before = walked();
  for (std::uint32_t id = 500; id < 5000; ++id) map().insert(thing(id));
  for (std::uint32_t id = 500; id < 5000; ++id) map().erase(keyOf(id));
  EXPECT_EQ(walked(), before);
}

TEST_F(Tables, AWalkIsResumedFromAKeyThatIsGone) {
  for (std::uint32_t id = 0; id < 200; ++id) map().insert(thing(id));
  const std::vector<std::uint32_t> ids = walked();
  for (std::size_t at = 0; at + 1 < ids.size(); ++at) {
    map().erase(keyOf(ids[at]));
    Thing next;
    ASSERT_TRUE(map().after(keyOf(ids[at]), next));
    EXPECT_EQ(next.key.id, ids[at + 1]);
    ASSERT_TRUE(map().atOrAfter(keyOf(ids[at]), next));
    EXPECT_EQ(next.key.id, ids[at + 1]);
    ASSERT_TRUE(map().atOrAfter(keyOf(ids[at + 1]), next));
    EXPECT_EQ(next.key.id, ids[at + 1]);
  }
  Thing next;
  EXPECT_FALSE(map().after(keyOf(ids.back()), next));
}

TEST_F(Tables, AnEntryPresentDuringTheWholeWalkIsMetOnceWhateverElseHappens) {
  for (std::uint32_t id = 0; id < 1000; ++id) map().insert(thing(id));
  std::map<std::uint32_t, int> met;
  std::uint32_t extra = 1000;
  Thing each;
  for (bool more = map().first(each); more; more = map().after(each.key, each)) {
    ++met[each.key.id];
    for (int i = 0; i < 20 && extra < 20000; ++i) map().insert(thing(extra++));
    if (each.key.id < 1000) map().insert(thing(each.key.id, 2));
    for (std::uint32_t gone = extra - 15; gone < extra - 5; ++gone) map().erase(keyOf(gone));
  }
  for (std::uint32_t id = 0; id < 1000; ++id) EXPECT_EQ(met[id], 1) << id;
  for (const auto& [id, times] : met) EXPECT_EQ(times, 1) << id;
}

TEST_F(Tables, PrefetchingChangesNothing) {
  for (std::uint32_t id = 0; id < 100; ++id) map().insert(thing(id));
  for (std::uint32_t id = 0; id < 200; ++id) {
    const std::uint64_t hash = Things::Map::hash(keyOf(id));
    map().prefetchIndex(hash);
    map().prefetchRecord(hash);
    Thing out;
    EXPECT_EQ(map().find(keyOf(id), hash, out), id < 100);
  }
}

TEST_F(Tables, AFindFromAPlaceSeesWhatBecameOfTheRecordMeanwhile) {
  for (std::uint32_t id = 0; id < 100; ++id) map().insert(thing(id));
  std::vector<Things::Map::Place> places;
  for (std::uint32_t id = 0; id < 100; ++id) places.push_back(map().place(Things::Map::hash(keyOf(id))));
  const auto find = [&](std::uint32_t id, Thing& out) {
    return map().find(places[id], keyOf(id), Things::Map::hash(keyOf(id)), out);
  };
  Thing out;
  map().insert(thing(1, 10));
  EXPECT_TRUE(find(1, out));
  EXPECT_EQ(out, thing(1, 10));
  map().erase(keyOf(2));
  EXPECT_FALSE(find(2, out));
  map().insert(thing(1000));  // may take the room of the one that left
  EXPECT_FALSE(find(2, out));
  map().insert(thing(2, 20));
  EXPECT_TRUE(find(2, out));
  EXPECT_EQ(out, thing(2, 20));
  for (std::uint32_t id = 2000; id < 4000; ++id) map().insert(thing(id));  // buckets split
  for (std::uint32_t id = 0; id < 100; ++id) EXPECT_TRUE(find(id, out) && out.key == keyOf(id)) << id;
}

TEST_F(Tables, APlaceOfAnotherKeyLeadsNobodyAstray) {
  map().insert(thing(1));
  map().insert(thing(2));
  const auto place = map().place(Things::Map::hash(keyOf(1)));
  Thing out;
  EXPECT_TRUE(map().find(place, keyOf(2), Things::Map::hash(keyOf(2)), out));
  EXPECT_EQ(out, thing(2));
  EXPECT_FALSE(map().find(place, keyOf(3), Things::Map::hash(keyOf(3)), out));
  EXPECT_TRUE(map().find(Things::Map::Place(), keyOf(1), Things::Map::hash(keyOf(1)), out));
  EXPECT_EQ(out, thing(1));
}

TEST_F(Tables, RecordsAreReachedAsBytes) {
  const Thing stored = thing(5, 55);
  map().insertBytes(&stored);
  Thing out;
  EXPECT_TRUE(map().findBytes(&stored.key, &out));
  EXPECT_EQ(out, stored);
  EXPECT_EQ(map().get(keyOf(5)), stored);
  EXPECT_TRUE(map().eraseBytes(&stored.key));
  EXPECT_FALSE(map().eraseBytes(&stored.key));
  EXPECT_FALSE(map().findBytes(&stored.key, &out));
}

namespace {
class KeyCollector : public Kiv::PtrInterface::NotifieeConst {
 public:
  void onAttribute(Kiv::AttributeId attribute) override { whole.push_back(attribute); }
  void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
    keys.emplace_back(attribute, key.as<ThingKey>().id);
  }
  std::vector<Kiv::AttributeId> whole;
  std::vector<std::pair<Kiv::AttributeId, std::uint32_t>> keys;
};
}  // namespace

TEST_F(Tables, ReactorsOfThisProcessHearOfEachChangeAtOnce) {
  Quell::attachAnonymous(things_->blue());
  KeyCollector collector;
  collector.hasNotificationActiveIs(true);
  collector.notifierIs(things_);
  map().insert(thing(1));
  things_->blue().insert(thing(2));
  map().erase(keyOf(1));
  map().erase(keyOf(1));
  const std::vector<std::pair<Kiv::AttributeId, std::uint32_t>> expected{
      {Things::redAttr, 1}, {Things::blueAttr, 2}, {Things::redAttr, 1}};
  EXPECT_EQ(collector.keys, expected);
  EXPECT_TRUE(collector.whole.empty());
  collector.notifierIs(nullptr);
}
