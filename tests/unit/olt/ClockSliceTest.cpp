#include "olt/ClockSlice.h"

#include <gtest/gtest.h>

#include "ManualClock.h"

namespace {

TEST(ClockSlice, IsSpentWhenItsTimeHasPassed) {
  Olt::ClockSlice slice(1e-3);
  const auto start = std::chrono::steady_clock::now();
  while (!slice.spent()) continue;
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_GT(took.count(), 0.5e-3);
  EXPECT_TRUE(slice.spent()) << "and stays so";
}

TEST(ClockSlice, OfNothingIsSpentAtOnce) {
  EXPECT_TRUE(Olt::ClockSlice(0).spent());
}

TEST(ClockSlice, DoesNotHeedTheUtcClock) {
  TestSupport::ManualClock clock;
  Olt::ClockSlice slice(3600);
  clock.advance(7200);
  EXPECT_FALSE(slice.spent());
}

}  // namespace
