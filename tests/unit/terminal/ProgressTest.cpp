#include "terminal/Progress.h"

#include <gtest/gtest.h>

namespace {

using Terminal::ProgressClock;
using namespace std::chrono_literals;

TEST(ProgressClock, IsNotDueForShortWorkAndThenOnceAnInterval) {
  const ProgressClock::Time start{};
  ProgressClock clock(start);
  EXPECT_FALSE(clock.due(start));
  EXPECT_FALSE(clock.due(start + ProgressClock::kInterval - 1ms));
  EXPECT_TRUE(clock.due(start + ProgressClock::kInterval));
  EXPECT_FALSE(clock.due(start + ProgressClock::kInterval + 1ms));
  EXPECT_TRUE(clock.due(start + 10 * ProgressClock::kInterval));
  EXPECT_FALSE(clock.due(start + 10 * ProgressClock::kInterval + 1ms));
}

TEST(ProgressText, TellsThePartOfAKnownTotalRoundedDown) {
  EXPECT_EQ(Terminal::progressText("records put", 1199, 1200), "records put: 1199 of 1200 (99 %)");
  EXPECT_EQ(Terminal::progressText("records put", 1200, 1200), "records put: 1200 of 1200 (100 %)");
}

TEST(ProgressText, TellsOnlyHowMuchIsDoneOfAnUnknownTotal) {
  EXPECT_EQ(Terminal::progressText("rows", 12, 0), "rows: 12");
}

}  // namespace
