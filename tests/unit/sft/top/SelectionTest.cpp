#include "top/Selection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TopThings.h"

namespace {

using namespace TopTest;
using testing::ElementsAre;

// Each row leads in another order. Ports name the rows.
std::vector<FlowRow> mixed() {
  FlowRow slow = rated(four(3), 1, 9000);
  slow.since = kNow - 10;
  FlowRow fast = rated(four(2), 50, 5000);
  fast.packets = 7;
  fast.bytes = 800'000;
  FlowRow old = rated(six(1), 20, 2000);
  old.packets = 10'000;
  old.bytes = 50'000;
  return {slow, fast, old, in(four(4), HoFlowState::overflow), in(four(5), std::nullopt)};
}

std::vector<std::uint16_t> ordered(const Selection& selection) {
  return portsOf(lookAt(mixed(), selection).rows);
}

TEST(Selection, OrdersByEachOfTheColumns) {
  EXPECT_THAT(ordered({.order = Order::rate}), ElementsAre(2, 1, 3, 4, 5));
  EXPECT_THAT(ordered({.order = Order::bits}), ElementsAre(3, 2, 1, 4, 5));
  EXPECT_THAT(ordered({.order = Order::packets}), ElementsAre(1, 3, 2, 4, 5));
  EXPECT_THAT(ordered({.order = Order::bytes}), ElementsAre(3, 2, 1, 4, 5));
  EXPECT_THAT(ordered({.order = Order::age}), ElementsAre(1, 2, 4, 3, 5));
  EXPECT_THAT(ordered({.order = Order::name}), ElementsAre(2, 3, 4, 5, 1));
  EXPECT_THAT(ordered({.order = Order::state}), ElementsAre(2, 3, 1, 4, 5));
}

TEST(Selection, ReversedTheLastComeFirst) {
  EXPECT_THAT(ordered({.order = Order::rate, .reversed = true}), ElementsAre(4, 5, 3, 1, 2));
  EXPECT_THAT(ordered({.order = Order::name, .reversed = true}), ElementsAre(1, 5, 4, 3, 2));
}

TEST(Selection, TakesWhatHasTheTextSomewhereInLettersOfAnySize) {
  EXPECT_THAT(ordered({.text = "ETHERNET2"}), ElementsAre(1));
  EXPECT_THAT(ordered({.text = "10.0.0.1:3 "}), ElementsAre(3));
  EXPECT_THAT(ordered({.text = "egress"}), ElementsAre(1));
  EXPECT_THAT(ordered({.text = "overflow"}), ElementsAre(4));
  EXPECT_THAT(ordered({.text = "ipv6"}), ElementsAre(1));
  EXPECT_THAT(ordered({.text = "nobody"}), ElementsAre());
}

TEST(Selection, TakesOneStateOrFamilyAlone) {
  EXPECT_THAT(ordered({.state = "waiting"}), ElementsAre(5));
  EXPECT_THAT(ordered({.state = "in hardware", .ipv6 = false}), ElementsAre(2, 3));
  EXPECT_THAT(ordered({.ipv4 = false}), ElementsAre(1));
  EXPECT_FALSE((Selection{.state = "in hardware"}.takes(unwanted(four(1)))));
  EXPECT_TRUE((Selection{.state = "unwanted"}.takes(unwanted(four(1)))));
}

TEST(BestRows, KeepsTheFirstOfManyAndCountsAll) {
  BestRows best({}, 3);
  for (std::uint16_t port = 1; port <= 1000; ++port) {
    const auto rate = static_cast<double>(port * 7919U % 1000);  // each of 0 to 999 once
    best.offer(rated(four(port), rate, 0));
  }
  EXPECT_EQ(best.taken(), 1000U);
  std::vector<double> rates;
  for (const FlowRow& each : best.finish()) rates.push_back(each.rate->packets);
  EXPECT_THAT(rates, ElementsAre(999, 998, 997));
}

}  // namespace
