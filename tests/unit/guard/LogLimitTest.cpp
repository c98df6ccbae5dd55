#include "guard/LogLimit.h"

#include <gtest/gtest.h>

namespace {

TEST(LogLimit, AllowsALineInAWhileAndTellsHowManyWereLeftOut) {
  Guard::LogLimit limit;
  const auto start = Guard::LogLimit::Clock::now();
  EXPECT_TRUE(limit.allows(start));
  EXPECT_EQ(limit.more(), "");
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(limit.allows(start + Guard::LogLimit::kPause / 2));
  EXPECT_TRUE(limit.allows(start + Guard::LogLimit::kPause));
  EXPECT_EQ(limit.more(), " (3 more since the last such line)");
  EXPECT_EQ(limit.more(), "");
}

}  // namespace
