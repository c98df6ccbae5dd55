#include "top/TopModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TopThings.h"

namespace {

using namespace TopTest;
using testing::ElementsAre;

AgentLook agentWith(std::uint64_t count) {
  return {.budget = 2048,
          .samplings = {{"Ethernet1", "ingress", 1000, 10 * count, count, 2 * count}},
          .reasons = {{"Drop", "Sft", "No flow status", count}},
          .ports = {{.name = "Ethernet1",
                     .kind = "device",
                     .replay = "",
                     .packetsIn = count,
                     .bytesIn = 60 * count,
                     .packetsOut = 3 * count,
                     .bytesOut = 0}}};
}

TEST(TopModel, TellsTheAgentsRatesFromTwoAnswers) {
  TopModel top = model();
  top.agentIs(agentWith(100), kNow);
  EXPECT_EQ(top.samplings().at(0).samplesRate, std::nullopt);
  top.agentIs(agentWith(150), kNow + 2);
  EXPECT_EQ(top.samplings().at(0).samplesRate, 25);
  EXPECT_EQ(top.samplings().at(0).dropsRate, 50);
  EXPECT_EQ(top.reasons().at(0).perSecond, 25);
  EXPECT_EQ(top.ports().at(0).bytesInRate, 1500);
  EXPECT_EQ(top.ports().at(0).packetsOutRate, 75);
  EXPECT_EQ(top.budget(), 2048);
}

TEST(TopModel, AnAgentThatStartedAnewHasNoRatesYet) {
  TopModel top = model();
  top.agentIs(agentWith(100), kNow);
  top.agentIs(agentWith(3), kNow + 1);
  EXPECT_EQ(top.reasons().at(0).perSecond, std::nullopt);
  top.agentIs(agentWith(5), kNow + 2);
  EXPECT_EQ(top.reasons().at(0).perSecond, 2);
}

TEST(TopModel, WithoutAnAgentTheFlowsAndTheBudgetStay) {
  TopModel top = model();
  top.tablesAre(lookAt({four(1)}));
  top.agentIs(agentWith(1), kNow);
  top.agentIsAway("gone");
  EXPECT_EQ(top.away(), "gone");
  EXPECT_TRUE(top.reasons().empty() && top.ports().empty() && top.samplings().empty());
  EXPECT_EQ(top.flows().size(), 1U);
  EXPECT_EQ(top.budget(), 2048);
  top.agentIs(agentWith(1), kNow);
  EXPECT_EQ(top.away(), "");
  EXPECT_EQ(top.reasons().size(), 1U);
}

TEST(TopModel, KeysChooseTheOrder) {
  TopModel top = model();
  for (const auto& [pressed, order] : {std::pair{'I', Order::bits},
                                       {'P', Order::packets},
                                       {'B', Order::bytes},
                                       {'A', Order::age},
                                       {'N', Order::name},
                                       {'T', Order::state},
                                       {'R', Order::rate}}) {
    press(top, std::string(1, pressed));
    EXPECT_EQ(top.selection().order, order) << pressed;
  }
  press(top, "sr");
  EXPECT_EQ(top.selection().order, Order::bits);
  EXPECT_TRUE(top.selection().reversed);
  press(top, "Ts");
  EXPECT_EQ(top.selection().order, Order::rate);
}

TEST(TopModel, ANewSelectionIsSeenAtOnceInTheRowsThatAreThere) {
  TopModel top = model();
  top.tablesAre(lookAt({rated(four(1), 5, 1), rated(six(2), 9, 1), rated(four(3), 7, 1)}));
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(2, 3, 1));
  press(top, "r");
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(1, 3, 2));
  press(top, "4");
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(2));
  EXPECT_EQ(top.taken(), 1U);
  press(top, "4r");
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(2, 3, 1));
}

TEST(TopModel, RowsOfALookThatBeganBeforeAKeyComeInTheNewOrder) {
  TopModel top = model();
  press(top, "N");
  top.tablesAre(lookAt({rated(four(1), 5, 1), rated(four(3), 7, 1)}));
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(1, 3));
}

TEST(TopModel, AFilterActsWhileItIsTypedAndEscapeBringsTheFormerBack) {
  TopModel top = model();
  top.tablesAre(lookAt({four(11), four(12), four(21)}));
  press(top, "/:1");
  EXPECT_EQ(top.typing(), ":1");
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(11, 12));
  press(top, "2");
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(12));
  top.keyIs(Key::backspace, 10);
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(11, 12));
  press(top, "q");  // a letter like any other
  EXPECT_FALSE(top.ended());
  top.keyIs(Key::backspace, 10);
  top.keyIs(Key::enter, 10);
  EXPECT_EQ(top.typing(), std::nullopt);
  EXPECT_EQ(top.selection().text, ":1");
  press(top, "/xyz");
  EXPECT_TRUE(top.flows().empty());
  top.keyIs(Key::escape, 10);
  EXPECT_EQ(top.typing(), std::nullopt);
  EXPECT_EQ(top.selection().text, ":1");
  press(top, "c");
  EXPECT_EQ(top.selection(), Selection());
}

TEST(TopModel, TypingMoreBackspacesThanLettersIsHarmless) {
  TopModel top = model();
  press(top, "/a");
  for (int i = 0; i < 3; ++i) top.keyIs(Key::backspace, 10);
  top.keyIs(Key::up, 10);
  EXPECT_EQ(top.typing(), "");
}

TEST(TopModel, StatesAreGoneThrough) {
  TopModel top = model();
  std::vector<std::string> states;
  for (int i = 0; i < 5; ++i) {
    press(top, "f");
    states.push_back(top.selection().state);
  }
  EXPECT_THAT(states, ElementsAre("in hardware", "overflow", "waiting", "unwanted", ""));
}

TEST(TopModel, WhilePausedNothingChangesAndKeysStillWork) {
  TopModel top = model();
  top.tablesAre(lookAt({four(1), six(2)}));
  top.agentIs(agentWith(1), kNow);
  press(top, " ");
  EXPECT_TRUE(top.paused());
  top.tablesAre(lookAt({four(3)}));
  top.agentIsAway("gone");
  top.timeIs(kNow + 5);
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(1, 2));
  EXPECT_EQ(top.away(), "");
  EXPECT_EQ(top.now(), kNow);
  press(top, "6");
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(1));
  press(top, " ");
  top.tablesAre(lookAt({four(3)}));
  EXPECT_THAT(portsOf(top.flows()), ElementsAre(3));
}

TEST(TopModel, ScrollingStaysWithinTheRows) {
  TopModel top = model();
  std::vector<FlowRow> rows;
  for (std::uint16_t port = 1; port <= 25; ++port) rows.push_back(four(port));
  top.tablesAre(lookAt(rows));
  const auto at = [&](Key pressed) {
    top.keyIs(pressed, 10);
    return top.scrolled(Panel::flows);
  };
  EXPECT_EQ(at(Key::up), 0U);
  EXPECT_EQ(at(Key::down), 1U);
  EXPECT_EQ(at(Key::pageDown), 11U);
  EXPECT_EQ(at(Key::pageDown), 15U);
  EXPECT_EQ(at(Key::down), 15U);
  EXPECT_EQ(at(Key::pageUp), 5U);
  EXPECT_EQ(at(Key::end), 15U);
  EXPECT_EQ(at(Key::home), 0U);
  at(Key::end);
  press(top, "r");  // another order is read from its beginning
  EXPECT_EQ(top.scrolled(Panel::flows), 0U);
}

TEST(TopModel, RowsThatWentTakeTheScrolledPlaceAlong) {
  TopModel top = model();
  std::vector<FlowRow> rows;
  for (std::uint16_t port = 1; port <= 25; ++port) rows.push_back(four(port));
  top.tablesAre(lookAt(rows));
  top.keyIs(Key::end, 10);
  top.tablesAre(lookAt({four(1)}));
  EXPECT_EQ(top.scrolled(Panel::flows), 0U);
}

TEST(TopModel, KeysSwitchPanelsHelpAndQuit) {
  TopModel top = model();
  std::vector<Panel> panels;
  for (int i = 0; i < 4; ++i) {
    top.keyIs(Key::tab, 10);
    panels.push_back(top.panel());
  }
  EXPECT_THAT(panels, ElementsAre(Panel::sampling, Panel::reasons, Panel::ports, Panel::flows));
  top.keyIs(Key::backTab, 10);
  EXPECT_EQ(top.panel(), Panel::ports);
  press(top, "/");  // filters are of flows
  EXPECT_EQ(top.panel(), Panel::flows);
  top.keyIs(Key::escape, 10);
  press(top, "?");
  EXPECT_TRUE(top.helps());
  press(top, "h");
  EXPECT_FALSE(top.helps());
  press(top, "x");  // means nothing
  EXPECT_FALSE(top.ended());
  press(top, "q");
  EXPECT_TRUE(top.ended());
}

}  // namespace
