#include "OffloadOutcomes.h"

#include <gtest/gtest.h>

#include "Keys.h"

namespace {

using Pexa::Counter::kOffloadOutcomes;
using Pexa::Counter::OffloadOutcome;
using Pexa::Counter::OffloadOutcomes;
using Direction = OffloadOutcomes::Direction;

template <class Domain>
class OffloadOutcomesTest : public testing::Test {};
TYPED_TEST_SUITE(OffloadOutcomesTest, LocalCountersTest::Families);

TYPED_TEST(OffloadOutcomesTest, EachOutcomeOfEachDirectionAndFamilyIsCountedByItself) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, Pavo::Traits::IPv4>, Pavo::Traits::IPv6,
                                   Pavo::Traits::IPv4>;
  for (std::size_t counted = 0; counted < kOffloadOutcomes; ++counted) {
    for (const Direction direction : {Direction::ingress, Direction::egress}) {
      OffloadOutcomes outcomes;
      outcomes.inc<TypeParam>(direction, static_cast<OffloadOutcome>(counted));
      outcomes.inc<TypeParam>(direction, static_cast<OffloadOutcome>(counted));
      for (std::size_t each = 0; each < kOffloadOutcomes; ++each) {
        for (const Direction way : {Direction::ingress, Direction::egress}) {
          const auto outcome = static_cast<OffloadOutcome>(each);
          EXPECT_EQ(outcomes.count<TypeParam>(way, outcome), each == counted && way == direction ? 2U : 0U);
          EXPECT_EQ(outcomes.count<Other>(way, outcome), 0U);
          EXPECT_EQ(outcomes.others(way), 0U);
        }
      }
    }
  }
}

TEST(OffloadOutcomes, PacketsOfNoFamilyAreCountedByTheirDirection) {
  OffloadOutcomes outcomes;
  outcomes.otherInc(Direction::egress);
  EXPECT_EQ(outcomes.others(Direction::egress), 1U);
  EXPECT_EQ(outcomes.others(Direction::ingress), 0U);
}

}  // namespace
