#include "top/TopView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>
#include "TopThings.h"

namespace {

using namespace TopTest;

TableLook someFlows(const Selection& selection = {}) {
  TableLook look = lookAt({rated(four(1024), 12'000, 9'000'000), rated(six(5353), 3000, 300'000),
                           rated(four(1025), 0, 0), four(1026), in(four(1027), HoFlowState::overflow),
                           in(four(1028), std::nullopt), unwanted(rated(four(1029), 6000, 600'000))},
                          selection);
  look.families[0] = {.inHardware = 1024, .overflow = 12};
  look.families[1] = {.inHardware = 2048, .overflow = 0, .others = 1};
  return look;
}

AgentLook someAgent(std::uint64_t seconds) {
  return {.budget = 2048,
          .samplings = {{"Ethernet1", "ingress", 1000, 15'000 * seconds, 15 * seconds, 0},
                        {"Ethernet2", "egress", 1000, 12'000 * seconds, 12 * seconds, 3 * seconds}},
          .reasons = {{"Action", "Sft", " Offloading IPv4", 500 * seconds},
                      {"Drop", "Sft", "No flow status", 20 * seconds}},
          .ports = {{.name = "Ethernet1",
                     .kind = "device",
                     .replay = "",
                     .packetsIn = 15'000 * seconds,
                     .bytesIn = 9'300'000 * seconds},
                    {.name = "Ethernet2",
                     .kind = "device",
                     .up = false,
                     .replay = "",
                     .packetsOut = 15'000 * seconds,
                     .bytesOut = 9'300'000 * seconds}}};
}

TopModel someModel(const Selection& selection = {}, Panel panel = Panel::flows) {
  TopModel top = model(selection, panel);
  top.tablesAre(someFlows(selection));
  top.agentIs(someAgent(1), kNow - 1);
  top.agentIs(someAgent(2), kNow);
  return top;
}

std::string drawn(const TopModel& top, Size size) {
  std::string text = "\n";
  for (const std::string& each : linesOf(frame(top, size, BarKind::hashes))) text += each + "\n";
  return text;
}

TEST(TopView, DISABLED_print) {
  for (auto size : {Size{24, 80}, Size{10, 40}, Size{60, 200}}) fmt::print("{}", drawn(someModel(), size));
  for (auto p : {Panel::sampling, Panel::reasons, Panel::ports})
    fmt::print("{}", drawn(someModel({}, p), {12, 80}));
}

}  // namespace
