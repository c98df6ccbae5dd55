#include <gtest/gtest.h>

#include <algorithm>

#include "Fenn.h"

namespace Fenn {
namespace {

TEST(DebugHandler, IsSharedByAllWhoAskForTheName) {
  const auto first = Platform::getDebugHandler("DebugHandlerTest.shared", 0);
  EXPECT_EQ(first->name(), "DebugHandlerTest.shared");
  EXPECT_FALSE(first->enabled(0));
  const auto again = Platform::getDebugHandler("DebugHandlerTest.shared", 5);
  EXPECT_EQ(first, again);
  EXPECT_FALSE(again->enabled(0));  // the levels are those of the first who asked
  first->levelsIs(0b1000);
  EXPECT_TRUE(again->enabled(3));
  EXPECT_FALSE(again->enabled(2));
}

TEST(DebugHandler, StartsWithTheLevelsOfTheFirstWhoAsks) {
  const auto handler = Platform::getDebugHandler("DebugHandlerTest.levels", 0b101);
  EXPECT_TRUE(handler->enabled(0));
  EXPECT_FALSE(handler->enabled(1));
  EXPECT_TRUE(handler->enabled(2));
}

TEST(DebugHandler, IsListed) {
  const auto handler = Platform::getDebugHandler("DebugHandlerTest.listed", 0);
  const auto all = Platform::debugHandlers();
  EXPECT_NE(std::find(all.begin(), all.end(), handler), all.end());
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end(), [](auto& a, auto& b) { return a->name() < b->name(); }));
}

}  // namespace
}  // namespace Fenn
