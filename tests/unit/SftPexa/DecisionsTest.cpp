// What the statements decide, as values.
#include <gtest/gtest.h>

#include "SftPexa/Decisions.h"

namespace SampledFlowTracker {
namespace {

constexpr State kNone = std::nullopt;
constexpr State kHardware = HoFlowState::inHardware;
constexpr State kWaits = HoFlowState::overflow;
constexpr std::uint32_t kMost = 4294967295U;

TEST(DecisionsTest, OutOfResourcesMeansOverflow) {
  EXPECT_EQ(newState(false), HoFlowState::inHardware);
  EXPECT_EQ(newState(true), HoFlowState::overflow);
}

TEST(DecisionsTest, ReferencesFollowTheChangesOfTheState) {
  struct Case {
    std::optional<std::uint32_t> before;
    State oldState;
    State curState;
    std::uint32_t after;
  };
  const Case cases[] = {{std::nullopt, kNone, kHardware, 1},
                        {std::nullopt, kNone, kWaits, 1},
                        {1, kNone, kHardware, 2},
                        {1, kHardware, kHardware, 1},
                        {1, kWaits, kWaits, 1},
                        {1, kHardware, kWaits, 2},
                        {1, kWaits, kHardware, 2},
                        {std::nullopt, kHardware, kHardware, 0},
                        {std::nullopt, kWaits, kHardware, 1},
                        {2, kHardware, kNone, 1},
                        {1, kHardware, kNone, 0},
                        {1, kNone, kNone, 0},
                        {0, kHardware, kNone, kMost},
                        {std::nullopt, kHardware, kNone, kMost},
                        {std::nullopt, kNone, kNone, kMost},
                        {kMost, kNone, kHardware, 0},
                        {kMost, kHardware, kHardware, kMost}};
  for (const Case& each : cases) {
    EXPECT_EQ(newHosEntries(each.before, each.oldState, each.curState), each.after) << &each - cases;
  }
}

TEST(DecisionsTest, ACounterIsKeptWhileItHasReferencesAndTheFlowIsOrWasInHardware) {
  EXPECT_TRUE(counterKept(1, kNone, kHardware));
  EXPECT_TRUE(counterKept(1, kHardware, kNone));
  EXPECT_TRUE(counterKept(2, kHardware, kWaits));
  EXPECT_TRUE(counterKept(kMost, kHardware, kNone));
  EXPECT_FALSE(counterKept(0, kHardware, kHardware));
  EXPECT_FALSE(counterKept(0, kHardware, kNone));
  EXPECT_FALSE(counterKept(1, kNone, kWaits));
  EXPECT_FALSE(counterKept(2, kWaits, kWaits));
  EXPECT_FALSE(counterKept(kMost, kWaits, kNone));
  EXPECT_FALSE(counterKept(1, HoFlowState::pending, kNone));
}

TEST(DecisionsTest, StepsOfTheCountsByOldAndCurrentState) {
  struct Case {
    State oldState;
    State curState;
    std::uint32_t oldDelta;
    std::uint32_t curDelta;
  };
  const Case cases[] = {{kNone, kHardware, 0, kMost},
                        {kHardware, kHardware, 0, 0},
                        {kHardware, kWaits, 1, kMost},
                        {kWaits, kHardware, 1, kMost},
                        {kHardware, kNone, 1, 0}};
  for (const Case& each : cases) {
    const auto [left, entered] = stateSteps(each.oldState, each.curState);
    EXPECT_EQ(left.state, each.oldState) << &each - cases;
    EXPECT_EQ(left.delta, each.oldDelta) << &each - cases;
    EXPECT_EQ(left.initial, 0U) << &each - cases;
    EXPECT_EQ(entered.state, each.curState) << &each - cases;
    EXPECT_EQ(entered.delta, each.curDelta) << &each - cases;
    EXPECT_EQ(entered.initial, 1U) << &each - cases;
  }
}

TEST(DecisionsDeathTest, StepsWithoutAnyStateStopTheProcess) {
  EXPECT_DEATH(stateSteps(kNone, kNone), R"(\( oldState \|\| curState \))");
}

TEST(DecisionsTest, ACountTakesItsDeltaAwayOrStartsWithItsInitialCount) {
  EXPECT_EQ(newCount(5, {kHardware, 1, 0}), 4U);
  EXPECT_EQ(newCount(5, {kHardware, kMost, 1}), 6U);
  EXPECT_EQ(newCount(0, {kHardware, 1, 0}), kMost);
  EXPECT_EQ(newCount(kMost, {kHardware, kMost, 1}), 0U);
  EXPECT_EQ(newCount(std::nullopt, {kHardware, 1, 0}), 0U);
  EXPECT_EQ(newCount(std::nullopt, {kHardware, kMost, 1}), 1U);
}

}  // namespace
}  // namespace SampledFlowTracker
