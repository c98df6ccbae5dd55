#include "KivMap.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <set>

namespace {

struct Key {
  int number = 0;
  auto operator<=>(const Key&) const = default;
};

// Few distinct hashes, so that runs are long and hashes equal.
struct CrowdedHash {
  std::uint64_t operator()(const Key& key) const {
    return static_cast<std::uint64_t>(key.number % 5) * 0x3000'0000'0000'0000ULL;
  }
};
struct SpreadHash {
  std::uint64_t operator()(const Key& key) const {
    return static_cast<std::uint64_t>(key.number) * 0x9e37'79b9'7f4a'7c15ULL;
  }
};

template <class Hash>
using IntMap = Kiv::Map<Key, int, Hash>;

template <class Map>
std::map<int, int> walked(const Map& map) {
  std::map<int, int> seen;
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry->key)) {
    EXPECT_TRUE(seen.emplace(entry->key.number, entry->value).second) << "met twice: " << entry->key.number;
  }
  return seen;
}

template <class Hash>
class MapOf : public testing::Test {};
using Hashes = testing::Types<CrowdedHash, SpreadHash>;
TYPED_TEST_SUITE(MapOf, Hashes);

TYPED_TEST(MapOf, BehavesAsAnOrderedMapDoes) {
  EXPECT_TRUE(rc::check("random inserts, overwrites and erasures", [] {
    IntMap<TypeParam> map;
    std::map<int, int> twin;
    const auto steps = *rc::gen::container<std::vector<std::pair<int, int>>>(
        rc::gen::pair(rc::gen::inRange(0, 60), rc::gen::inRange(-40, 100)));
    for (const auto& [number, value] : steps) {
      if (value < 0) {
        RC_ASSERT(map.erase(Key{number}) == (twin.erase(number) == 1));
      } else {
        map.insert(Key{number}, value);
        twin[number] = value;
      }
      RC_ASSERT(map.size() == twin.size());
      for (int probe = 0; probe < 60; ++probe) {
        const auto* found = map.find(Key{probe});
        RC_ASSERT((found != nullptr) == (twin.count(probe) == 1));
        if (found != nullptr) RC_ASSERT(found->value == twin[probe]);
      }
    }
    RC_ASSERT(walked(map) == twin);
  }));
}

TYPED_TEST(MapOf, AWalkMeetsWhatStaysExactlyOnceWhateverElseComesAndGoes) {
  EXPECT_TRUE(rc::check("changes between any two steps", [] {
    IntMap<TypeParam> map;
    std::set<int> staying;
    for (int number = 0; number < 40; ++number) {
      map.insert(Key{number}, number);
      staying.insert(number);
    }
    std::map<int, int> met;
    Key at;
    for (const auto* entry = map.first(); entry != nullptr; entry = map.after(at)) {
      at = entry->key;
      ++met[at.number];
      const auto changes = *rc::gen::container<std::vector<int>>(3, rc::gen::inRange(-40, 400));
      for (const int change : changes) {
        if (change < 0) {
          map.erase(Key{-change - 1});
          staying.erase(-change - 1);
        } else if (change >= 40) {
          map.insert(Key{change}, change);
        }
      }
      if (*rc::gen::inRange(0, 3) == 0) {  // the current entry itself goes
        map.erase(at);
        staying.erase(at.number);
      }
    }
    for (const int number : staying) RC_ASSERT(met[number] == 1);
    for (const auto& [number, times] : met) RC_ASSERT(times == 1);
  }));
}

TEST(Map, AWalkIsResumedAtAKeyThatWentMeanwhile) {
  IntMap<SpreadHash> map;
  for (int number = 0; number < 100; ++number) map.insert(Key{number}, number);
  std::vector<int> order;
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry->key))
    order.push_back(entry->key.number);
  const Key bookmark{order[30]};
  EXPECT_EQ(map.atOrAfter(bookmark)->key.number, order[30]);
  map.erase(bookmark);
  EXPECT_EQ(map.atOrAfter(bookmark)->key.number, order[31]);
  EXPECT_EQ(map.after(bookmark)->key.number, order[31]);
}

TEST(Map, TheOrderOfAWalkSurvivesGrowth) {
  IntMap<SpreadHash> map;
  for (int number = 0; number < 5; ++number) map.insert(Key{number}, number);
  std::vector<int> before;
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry->key))
    before.push_back(entry->key.number);
  for (int number = 5; number < 5000; ++number) map.insert(Key{number}, number);
  std::vector<int> after;
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry->key)) {
    if (entry->key.number < 5) after.push_back(entry->key.number);
  }
  EXPECT_EQ(before, after);
}

TEST(Map, FindOrInsertTellsWhichAndGivesTheValue) {
  IntMap<SpreadHash> map;
  auto [value, inserted] = map.findOrInsert(Key{1});
  EXPECT_TRUE(inserted);
  *value = 11;
  EXPECT_FALSE(map.findOrInsert(Key{1}).second);
  EXPECT_EQ(map.find(Key{1})->value, 11);
}

TEST(Map, ReserveMakesRoomAndKeepsEntries) {
  IntMap<SpreadHash> map;
  map.insert(Key{3}, 3);
  map.reserve(1000);
  const std::size_t memory = map.memory();
  for (int number = 0; number < 1000; ++number) map.insert(Key{number}, number);
  EXPECT_EQ(map.memory(), memory);
  EXPECT_EQ(map.size(), 1000U);
}

TEST(Map, PeekGivesTheEntryOfAHashAndPrefetchingChangesNothing) {
  IntMap<SpreadHash> map;
  map.prefetch(SpreadHash{}(Key{1}));  // of an empty map
  EXPECT_EQ(map.peek(SpreadHash{}(Key{1})), nullptr);
  for (int number = 0; number < 100; ++number) map.insert(Key{number}, number);
  for (int number = 0; number < 100; ++number) {
    const std::uint64_t hash = IntMap<SpreadHash>::hashOf(Key{number});
    map.prefetch(hash);
    ASSERT_NE(map.peek(hash), nullptr);
    EXPECT_EQ(map.peek(hash)->value, number);
  }
  EXPECT_EQ(map.peek(SpreadHash{}(Key{100})), nullptr);
  EXPECT_EQ(map.size(), 100U);
}

TEST(Set, InsertTellsWhetherTheKeyIsNew) {
  Kiv::Set<Key, SpreadHash> set;
  EXPECT_TRUE(set.insert(Key{1}));
  EXPECT_FALSE(set.insert(Key{1}));
  EXPECT_TRUE(set.erase(Key{1}));
  EXPECT_FALSE(set.erase(Key{1}));
  EXPECT_TRUE(set.empty());
}

}  // namespace
