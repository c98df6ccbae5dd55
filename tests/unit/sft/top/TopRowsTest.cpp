#include "top/TopRows.h"

#include <gtest/gtest.h>

#include "TopThings.h"
#include "json/JsonText.h"

namespace {

using namespace TopTest;

std::vector<std::string> rowsText(const TopModel& top) {
  std::vector<std::string> lines;
  for (const Kiv::Value& row : rowsOf(top)) lines.push_back(Json::text(row));
  return lines;
}

TEST(TopRows, SaysWhatIsNotKnownAsNull) {
  TopModel top = model();
  top.tablesAre(lookAt({in(four(1), std::nullopt)}));
  top.agentIsAway("gone");
  const auto lines = rowsText(top);
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0], R"({"panel":"agent","answers":false,"why":"gone"})");
  EXPECT_EQ(lines[1], R"({"panel":"tables","flows":1,"taken":1,"damages":0,"problem":null})");
  EXPECT_EQ(lines[2],
            R"({"panel":"family","family":"IPv4","budget":null,"inHardware":0,"overflow":0,"other":0})");
  EXPECT_EQ(
      lines[4],
      R"({"panel":"flow","key":{"ipFlowKey":{"vrfId":16777215,"vlan":10,"srcAddr":"10.0.0.1","dstAddr":"10.0.0.2","ipProto":6,"srcPort":1,"dstPort":80},"direction":1,"intfId":"Ethernet1"},"family":"IPv4","flow":"10.0.0.1:1 -> 10.0.0.2:80 tcp vlan 10","directionName":"ingress","wanted":true,"state":null,"stateName":"waiting","age":null,"packets":null,"bytes":null,"packetsPerSecond":null,"bitsPerSecond":null})");
}

TEST(TopRows, SaysRatesAndCounts) {
  TopModel top = model();
  top.tablesAre(lookAt({rated(six(1), 2.5, 1000)}));
  top.agentIs({.budget = 7, .samplings = {}, .reasons = {{"Drop", "Sft", "No room", 3}}, .ports = {}}, kNow);
  top.agentIs({.budget = 7, .samplings = {}, .reasons = {{"Drop", "Sft", "No room", 9}}, .ports = {}},
              kNow + 4);
  const auto lines = rowsText(top);
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_NE(
      lines[4].find(
          R"("age":7200.0,"packets":250,"bytes":100000,"packetsPerSecond":2.5,"bitsPerSecond":8000.0})"),
      std::string::npos)
      << lines[4];
  EXPECT_EQ(
      lines[5],
      R"({"panel":"reason","category":"Drop","source":"Sft","reason":"No room","count":9,"perSecond":1.5})");
}

}  // namespace
