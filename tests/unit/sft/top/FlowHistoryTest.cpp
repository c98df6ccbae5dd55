#include "top/FlowHistory.h"

#include <gtest/gtest.h>

namespace {

using Sft::Top::FlowHistory;
using Sft::Top::Rate;
using Reading = FlowHistory::Reading;

class FlowHistoryTest : public testing::Test {
 protected:
  // A look at a single flow, counted up to `counted`.
  std::optional<Rate> look(double now, std::uint64_t packets, double counted, std::uint64_t place = 7) {
    history_.begin();
    const auto rate = history_.rate(
        {.place = place, .packets = packets, .bytes = 100 * packets, .created = 1, .counted = counted}, now);
    history_.end();
    return rate;
  }

  FlowHistory history_;
};

TEST_F(FlowHistoryTest, TheFirstLookTellsNoRate) {
  EXPECT_EQ(look(1000, 50, 999.9), std::nullopt);
}

TEST_F(FlowHistoryTest, ARateIsPacketsOverTheTimeBetweenTheLastPacketsOfTwoPublications) {
  look(1000, 50, 999.5);
  EXPECT_EQ(look(1001.7, 80, 1001.5), (Rate{15, 1500}));
}

TEST_F(FlowHistoryTest, ALookBetweenTwoPublicationsKeepsTheRate) {
  look(1000, 50, 999.5);
  look(1001, 80, 1001.5);
  EXPECT_EQ(look(1001.1, 80, 1001.5), (Rate{15, 1500}));
  EXPECT_EQ(look(1003.4, 80, 1001.5), (Rate{15, 1500}));
}

TEST_F(FlowHistoryTest, ACounterThatStandsStillComesToNothing) {
  look(1000, 50, 999.5);
  look(1001, 80, 1000.5);
  EXPECT_EQ(look(1004, 80, 1000.5), (Rate{0, 0}));
}

TEST_F(FlowHistoryTest, AFlowThatStoodStillFromTheBeginningHasARateOfNothing) {
  look(1000, 50, 10);
  EXPECT_EQ(look(1001, 50, 10), std::nullopt);
  EXPECT_EQ(look(1003, 50, 10), (Rate{0, 0}));
}

TEST_F(FlowHistoryTest, ABurstAfterAPauseIsNotSpreadOverThePause) {
  look(1000, 50, 900);
  look(1010, 50, 900);  // was published, unchanged, at 1009 or later
  EXPECT_EQ(look(1011, 70, 1011), (Rate{10, 1000}));
}

TEST_F(FlowHistoryTest, PacketsThatCameTogetherAreARateOverHalfASecondOrMore) {
  look(1000, 50, 999.9);
  EXPECT_EQ(look(1001, 60, 1000), (Rate{20, 2000}));
}

TEST_F(FlowHistoryTest, ACounterThatWentBackOrWasMadeAnewBeginsAnew) {
  look(1000, 50, 999.5);
  EXPECT_EQ(look(1001, 40, 1000.5), std::nullopt);
  history_.begin();
  EXPECT_EQ(history_.rate({.place = 7, .packets = 90, .bytes = 9000, .created = 2, .counted = 1001.5}, 1002),
            std::nullopt);
}

TEST_F(FlowHistoryTest, EachFlowIsHeldAgainstItsOwnReadings) {
  history_.begin();
  for (std::uint64_t place = 10; place <= 50; place += 10)
    history_.rate({.place = place, .packets = place, .bytes = 0, .created = 1, .counted = 1000}, 1000);
  history_.end();
  history_.begin();  // 20 is gone, 35 is new
  const auto again = [&](std::uint64_t place) {
    return history_.rate({.place = place, .packets = 2 * place, .bytes = 0, .created = 1, .counted = 1001},
                         1001);
  };
  EXPECT_EQ(again(10), (Rate{10, 0}));
  EXPECT_EQ(again(30), (Rate{30, 0}));
  EXPECT_EQ(again(35), std::nullopt);
  EXPECT_EQ(again(40), (Rate{40, 0}));
  EXPECT_EQ(again(50), (Rate{50, 0}));
  history_.end();
  EXPECT_EQ(history_.size(), 5U);
}

TEST_F(FlowHistoryTest, ALookThatWasDroppedLeavesWhatIsRemembered) {
  look(1000, 50, 1000);
  history_.begin();
  history_.rate({.place = 3, .packets = 1, .bytes = 1, .created = 1, .counted = 1}, 1000.5);
  EXPECT_EQ(look(1001, 60, 1001), (Rate{10, 1000}));
  EXPECT_EQ(history_.size(), 1U);
}

TEST_F(FlowHistoryTest, WhatALookDoesNotMeetIsForgotten) {
  look(1000, 50, 1000);
  history_.begin();
  history_.end();
  EXPECT_EQ(history_.size(), 0U);
  EXPECT_EQ(look(1001, 60, 1001), std::nullopt);
}

}  // namespace
