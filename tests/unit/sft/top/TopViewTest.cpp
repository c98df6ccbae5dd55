#include "top/TopView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(TopView, EightyColumnsAndTwentyFourRows) {
  EXPECT_EQ(drawn(someModel(), {24, 80}), R"(
sft top  /run/pexa                               every 1 s  2023-11-14 22:13:20Z
IPv4 [############            ] 1024 of 2048 in hardware, 12 in overflow
IPv6 [########################] 2048 of 2048 in hardware, 0 in overflow, 1 other
in 15.0k pkt/s 74.4M bit/s  out 15.0k pkt/s 74.4M bit/s  samples 27/s  lost 3/s
[flows] sampling  reasons  ports                               by rate  1-7 of 7
flow                                          dir state       pkt/s bit/s
10.0.0.1:1024 -> 10.0.0.2:80 tcp vlan 10      in  in hardware 12.0k 72.0M ######
10.0.0.1:1029 -> 10.0.0.2:80 tcp vlan 10      in  unwanted     6000 4.80M ###
[2001:db8::1]:5353 -> [2001:db8::2]:53 udp v~ out in hardware  3000 2.40M ##
10.0.0.1:1025 -> 10.0.0.2:80 tcp vlan 10      in  in hardware     0     0
10.0.0.1:1026 -> 10.0.0.2:80 tcp vlan 10      in  in hardware     -     -
10.0.0.1:1027 -> 10.0.0.2:80 tcp vlan 10      in  overflow        -     -
10.0.0.1:1028 -> 10.0.0.2:80 tcp vlan 10      in  waiting         -     -










q quit  ? keys  Tab panel  s order  r reverse  / filter  f state  Space pause
)");
}

TEST(TopView, FortyColumnsAndTenRows) {
  EXPECT_EQ(drawn(someModel(), {10, 40}), R"(
sft top  /run/pexa             22:13:20Z
IPv4 [####    ] 1024/2048, overflow 12
IPv6 [########] 2048/2048, overflow 0, 1
[flows]                by rate  1-4 of 7
flow                   state       pkt/s
10.0.0.1:1024 -> 10.0~ in hardware 12.0k
10.0.0.1:1029 -> 10.0~ unwanted     6000
[2001:db8::1]:5353 ->~ in hardware  3000
10.0.0.1:1025 -> 10.0~ in hardware     0
q quit  ? keys  Tab panel  s order  r re
)");
}

TEST(TopView, TwoHundredColumnsAndSixtyRowsHaveTheOtherPanelsBelow) {
  std::string expected = R"(
sft top  /run/pexa                                                                                                                                                       every 1 s  2023-11-14 22:13:20Z
IPv4 [########################################################################                                                                        ] 1024 of 2048 in hardware, 12 in overflow
IPv6 [################################################################################################################################################] 2048 of 2048 in hardware, 0 in overflow, 1 other
in 15.0k pkt/s 74.4M bit/s  out 15.0k pkt/s 74.4M bit/s  samples 27/s  lost 3/s
[flows] sampling  reasons  ports                                                                                                                                                       by rate  1-7 of 7
flow                                                               dir interface              state           age pkt/s bit/s                                          packets   bytes
10.0.0.1:1024 -> 10.0.0.2:80 tcp vlan 10                           in  Ethernet1              in hardware    60 s 12.0k 72.0M ########################################   1.20M    900M
10.0.0.1:1029 -> 10.0.0.2:80 tcp vlan 10                           in  Ethernet1              unwanted       60 s  6000 4.80M ####################                        600k   60.0M
[2001:db8::1]:5353 -> [2001:db8::2]:53 udp vlan 10                 out Ethernet2              in hardware     2 h  3000 2.40M ##########                                  300k   30.0M
10.0.0.1:1025 -> 10.0.0.2:80 tcp vlan 10                           in  Ethernet1              in hardware    60 s     0     0                                                0       0
10.0.0.1:1026 -> 10.0.0.2:80 tcp vlan 10                           in  Ethernet1              in hardware    60 s     -     -                                                -       -
10.0.0.1:1027 -> 10.0.0.2:80 tcp vlan 10                           in  Ethernet1              overflow       60 s     -     -                                                -       -
10.0.0.1:1028 -> 10.0.0.2:80 tcp vlan 10                           in  Ethernet1              waiting           -     -     -                                                -       -
)";
  expected += std::string(34, '\n');
  expected +=
      R"(sampling                                                          reasons                                                           ports
interface      direction one in samples/s drops/s        samples  category reason                    source        /s count         port      kind    state    in pkt/s in bit/s out pkt/s out bit/s
Ethernet1      ingress     1000        15       0 ######      30  Action   Offloading IPv4           Sft          500  1000 ######  Ethernet1 device  up          15.0k    74.4M         0         0
Ethernet2      egress      1000        12       3 #####       24  Drop     No flow status            Sft           20    40 #       Ethernet2 device  down            0        0     15.0k     74.4M
)";
  expected += std::string(8, '\n');
  expected += "q quit  ? keys  Tab panel  s order  r reverse  / filter  f state  Space pause\n";
  EXPECT_EQ(drawn(someModel(), {60, 200}), expected);
}

// The lines of a frame from the tabs down to the footer.
std::string body(const TopModel& top) {
  const auto lines = linesOf(frame(top, {12, 80}, BarKind::hashes));
  std::string text = "\n";
  for (std::size_t row = 4; row < 9; ++row) text += lines[row] + "\n";
  return text;
}

TEST(TopView, PanelsOfTheAgent) {
  EXPECT_EQ(body(someModel({}, Panel::sampling)), R"(
 flows [sampling] reasons  ports                                        1-2 of 2
interface          direction one in samples/s drops/s        samples drops  pool
Ethernet1          ingress     1000        15       0 ######      30     0 30.0k
Ethernet2          egress      1000        12       3 #####       24     6 24.0k

)");
  EXPECT_EQ(body(someModel({}, Panel::reasons)), R"(
 flows  sampling [reasons] ports                                        1-2 of 2
category reason                                   source        /s  count
Action   Offloading IPv4                          Sft          500   1000 ######
Drop     No flow status                           Sft           20     40 #

)");
  EXPECT_EQ(body(someModel({}, Panel::ports)), R"(
 flows  sampling  reasons [ports]                                       1-2 of 2
port       kind    state    in pkt/s in bit/s out pkt/s out bit/s drops/s
Ethernet1  device  up          15.0k    74.4M         0         0       0 ######
Ethernet2  device  down            0        0     15.0k     74.4M       0 ######

)");
}

TEST(TopView, TroubleTakesThePlaceOfTheTrafficOnTheSmallestScreen) {
  TopModel top = someModel();
  TableLook damaged = someFlows();
  damaged.problem = "slot 7 is damaged";
  damaged.damages = 3;
  top.tablesAre(damaged);
  EXPECT_EQ(frame(top, {24, 80}, BarKind::hashes).line(3), "slot 7 is damaged (and 2 more)");
  top.agentIsAway("no agent answers: it is away");
  EXPECT_EQ(frame(top, {24, 80}, BarKind::hashes).line(3),
            "no agent answers: it is away; slot 7 is damaged (and 2 more)");
  EXPECT_EQ(linesOf(frame(top, {7, 40}, BarKind::hashes)).at(1), "no agent answers: it is away; slot 7 is~");
}

TEST(TopView, NoSizeIsTooSmall) {
  const TopModel top = someModel();
  for (std::size_t rows = 1; rows <= 30; ++rows) {
    for (std::size_t columns = 1; columns <= 90; ++columns) {
      const Grid grid = frame(top, {rows, columns}, BarKind::blocks);
      EXPECT_EQ(grid.size(), (Size{rows, columns}));
      EXPECT_LE(pageOf(top, {rows, columns}), rows);
    }
  }
}

TEST(TopView, ShowsAFilterThatIsTypedAndThoseThatAct) {
  TopModel top = someModel();
  press(top, "fN/1024");
  const auto lines = linesOf(frame(top, {10, 80}, BarKind::hashes));
  EXPECT_EQ(lines[9], "filter: 1024_  Enter: keep it  Esc: as before");
  EXPECT_EQ(lines[3], "[flows] sampling  reasons  ports          by name, in hardware, \"1024\"  1-1 of 1");
}

TEST(TopView, ShowsWhatIsScrolledToAndLeavesNoScreenHalfEmpty) {
  TopModel top = someModel();
  top.keyIs(Key::end, 1);
  EXPECT_NE(drawn(top, {10, 80}).find("4-7 of 7"), std::string::npos);
  EXPECT_NE(drawn(top, {24, 80}).find("1-7 of 7"), std::string::npos);
}

TEST(TopView, TellsWhatIsMissingApart) {
  TopModel top = model();
  EXPECT_EQ(frame(top, {12, 80}, BarKind::hashes).line(6), "reading the tables");
  top.tablesAre(lookAt({}));
  EXPECT_EQ(frame(top, {12, 80}, BarKind::hashes).line(6), "no flow is wanted in hardware");
  press(top, "f");
  top.tablesAre(lookAt({in(four(1), std::nullopt)}, top.selection()));
  EXPECT_EQ(frame(top, {12, 80}, BarKind::hashes).line(6), "no flow is taken by the filters (c clears them)");
  EXPECT_THAT(frame(top, {12, 80}, BarKind::hashes).line(1),
              testing::EndsWith("] 0 of ? in hardware, 0 in overflow"));
  press(top, " ");
  EXPECT_NE(frame(top, {12, 80}, BarKind::hashes).line(0).find("PAUSED"), std::string::npos);
  press(top, "?");
  EXPECT_NE(drawn(top, {24, 80}).find("Ctrl-L"), std::string::npos);
}

}  // namespace
