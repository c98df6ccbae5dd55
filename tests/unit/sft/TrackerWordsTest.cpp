#include "TrackerWords.h"

#include <gmock/gmock.h>

#include "json/JsonText.h"

namespace {

using testing::Contains;
using testing::HasSubstr;

TEST(TrackerWordsTest, TellWhatWasCountedByKind) {
  const auto lines = Sft::trackerWords(
      Json::parse(R"({"datagrams":7,"malformed":{"version":2,"headerCut":0,"sampleCut":1},"datagramsMissed":3,
        "datagramsDropped":4,"flowSamples":50,"samplesWithoutFlow":{"notIp":5},"counterSamples":6,"unknownSamples":1,
        "limits":{"samplesToLearn":2,"maxFlows":100},
        "ipv4":{"flows":9,"inHardware":8,"candidates":12,"learned":11},
        "agents":[{"agent":"192.0.2.1","datagrams":7,"missed":3,"lastHeard":995.0}],
        "unmappedInterfaces":[{"agent":"192.0.2.1","index":5,"samples":2}],
        "collectors":[{"collector":"192.0.2.9:4739","messages":3,"lost":1,"refused":2}],"recordsFailed":1})"),
      1000.0);
  EXPECT_THAT(lines,
              Contains("datagrams: 7 received, 3 (version 2, sampleCut 1) malformed, 3 missed on the way, "
                       "4 dropped by the kernel"));
  EXPECT_THAT(lines,
              Contains("samples: 50 of packets, 5 (notIp 5) of them without a flow; 6 of counters and 1 of "
                       "other kinds passed over"));
  EXPECT_THAT(
      lines, Contains(HasSubstr("IPv4: 9 flows wanted (at most 100), 8 of them in hardware; 12 sampled fewer "
                                "than 2 times; 11 learned")));
  EXPECT_THAT(lines, Contains("agent 192.0.2.1: 7 datagrams, 3 missed, last heard 5 s ago"));
  EXPECT_THAT(lines,
              Contains("interface index 5 of agent 192.0.2.1 has no [[interface]]: 2 samples left out"));
  EXPECT_THAT(lines, Contains("collector 192.0.2.9:4739: 3 messages sent, 1 lost, 2 refused"));
  EXPECT_THAT(lines, Contains("records that could not be encoded: 1"));
}

TEST(TrackerWordsTest, WhatIsNotThereCountsAsNothing) {
  EXPECT_THAT(Sft::trackerWords(Kiv::Value::Object{}, 1),
              Contains("datagrams: 0 received, 0 malformed, 0 missed on the way, 0 dropped by the kernel"));
  EXPECT_EQ(Sft::countAt(Kiv::Value("text"), {"a"}), 0U);
  EXPECT_TRUE(Sft::memberAt(Kiv::Value::Object{{"a", 1}}, {"a", "b"}).isNone());
}

}  // namespace
