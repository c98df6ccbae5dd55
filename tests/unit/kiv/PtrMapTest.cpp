#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <map>

#include "Kiv.h"

namespace {

// Few distinct hashes, 0 among them, so that runs are long and hashes equal.
struct CrowdedKeyHash {
  std::uint64_t operator()(int number) const {
    return static_cast<std::uint64_t>(number % 5) * 0x3000'0000'0000'0000ULL;
  }
};

class Numbered : public Kiv::PtrInterface {
 public:
  explicit Numbered(int number) : number_(number) {}
  const int& number() const { return number_; }
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type = Kiv::TypeBuilder<Numbered>("Numbered").build();
    return type;
  }

 private:
  int number_;
};

using Numbers = Kiv::PtrMap<int, Numbered, &Numbered::number, CrowdedKeyHash>;

Numbered& made(Numbers& map, int number) {
  return map.findOrMake(number, Numbers::hashOf(number), [number] { return Kiv::makePtr<Numbered>(number); });
}

}  // namespace

TEST(PtrMap, BehavesAsAnOrderedMapDoes) {
  EXPECT_TRUE(rc::check("random insertions and erasures", [] {
    Numbers map;
    std::map<int, const Numbered*> twin;
    const auto steps = *rc::gen::container<std::vector<std::pair<int, bool>>>(
        rc::gen::pair(rc::gen::inRange(0, 60), rc::gen::arbitrary<bool>()));
    for (const auto& [number, erases] : steps) {
      if (erases) {
        RC_ASSERT(map.erase(number) == (twin.erase(number) == 1));
      } else {
        const Numbered* object = &made(map, number);
        RC_ASSERT(twin.emplace(number, object).first->second == object);
      }
      RC_ASSERT(map.size() == twin.size());
    }
    for (int number = 0; number < 60; ++number) {
      const auto* found = map.find(number);
      RC_ASSERT((found != nullptr) == (twin.count(number) == 1));
      if (found != nullptr) RC_ASSERT(found->value.get() == twin[number] && found->key() == number);
    }
  }));
}

TEST(PtrMap, AWalkByEntriesMeetsWhatAWalkByKeysMeets) {
  Numbers map;
  for (int number = 0; number < 100; ++number) made(map, number);
  const auto* byKey = map.first();
  std::size_t met = 0;
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry), ++met) {
    ASSERT_EQ(entry, byKey);
    byKey = map.after(byKey->key());
  }
  EXPECT_EQ(byKey, nullptr);
  EXPECT_EQ(met, 100U);
}

TEST(PtrMap, HoldsItsObjectsAndLetsGoOfThem) {
  Numbers map;
  const Kiv::Ptr<Numbered> held(&made(map, 7));
  EXPECT_EQ(held->references(), 2U);
  for (int number = 0; number < 100; ++number) made(map, number);  // the table is made anew
  EXPECT_EQ(held->references(), 2U);
  EXPECT_EQ(map.find(7)->value, held);
  EXPECT_TRUE(map.erase(7));
  EXPECT_EQ(held->references(), 1U);
  EXPECT_EQ(map.find(7), nullptr);
  made(map, 7);
  map.clear();
  EXPECT_TRUE(map.empty());
}

TEST(PtrMap, ASlotIsTwoWordsWhateverTheKeysSize) {
  Numbers map;
  map.reserve(1);
  EXPECT_EQ(map.memory() % 16, 0U);
  EXPECT_LE(map.memory(), 32U * 16);
}
