#include <gtest/gtest.h>

#include "QuellThings.h"

using namespace QuellTest;

TEST(LargeTable, GrowsToFourMillionRecordsFromFour) {
  constexpr std::uint32_t kMany = 4200000;
  const auto things = Kiv::makePtr<Things>("things");
  Quell::attachAnonymous(things->red(), 4);
  for (std::uint32_t id = 0; id < kMany; ++id) things->red().insert(thing(id));
  EXPECT_EQ(things->red().size(), kMany);
  for (std::uint32_t id = 0; id < kMany; ++id) {
    Thing found;
    ASSERT_TRUE(things->red().find(keyOf(id), found)) << id;
    ASSERT_EQ(found, thing(id));
  }
  std::uint32_t met = 0;
  Thing each;
  for (bool more = things->red().first(each); more; more = things->red().after(each.key, each)) ++met;
  EXPECT_EQ(met, kMany);
}
