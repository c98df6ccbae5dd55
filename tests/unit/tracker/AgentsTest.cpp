#include "Agents.h"

#include <gtest/gtest.h>

namespace {

class AgentsTest : public testing::Test {
 protected:
  void heard(std::uint32_t sequence, std::uint32_t subAgent = 0, const char* agent = "192.0.2.1") {
    Tracker::Datagram datagram;
    datagram.agent = *Tracker::AgentAddress::fromText(agent);
    datagram.subAgent = subAgent;
    datagram.sequence = sequence;
    agents_.heard(datagram, 1);
  }
  Tracker::Agents agents_;
};

TEST_F(AgentsTest, NothingIsMissedOfASequenceWithoutGaps) {
  for (std::uint32_t sequence : {4294967294U, 4294967295U, 0U, 1U}) heard(sequence);
  EXPECT_EQ(agents_.missed(), 0U);
}

TEST_F(AgentsTest, GapsAreCounted) {
  for (std::uint32_t sequence : {10U, 13U, 14U, 20U}) heard(sequence);
  EXPECT_EQ(agents_.missed(), 7U);
}

TEST_F(AgentsTest, WhatComesLateIsNotMissed) {
  for (std::uint32_t sequence : {10U, 13U, 12U, 11U, 14U}) heard(sequence);
  EXPECT_EQ(agents_.missed(), 0U);
}

TEST_F(AgentsTest, WhatComesTwiceIsNoGap) {
  for (std::uint32_t sequence : {10U, 10U, 11U}) heard(sequence);
  EXPECT_EQ(agents_.missed(), 0U);
}

TEST_F(AgentsTest, AnAgentThatStartsAgainMissedNothing) {
  for (std::uint32_t sequence : {500000U, 1U, 2U}) heard(sequence);
  EXPECT_EQ(agents_.missed(), 0U);
}

TEST_F(AgentsTest, AgentsAndSubAgentsHaveSequencesOfTheirOwn) {
  heard(10);
  heard(50, 1);
  heard(90, 0, "2001:db8::1");
  heard(11);
  heard(51, 1);
  heard(91, 0, "2001:db8::1");
  EXPECT_EQ(agents_.missed(), 0U);
  EXPECT_EQ(agents_.value().as<Kiv::Value::List>()->size(), 3U);
}

TEST_F(AgentsTest, ThereAreSoManyAtMost) {
  for (std::uint32_t subAgent = 0; subAgent < 2 * Tracker::Agents::kMost; ++subAgent) heard(1, subAgent);
  EXPECT_EQ(agents_.value().as<Kiv::Value::List>()->size(), Tracker::Agents::kMost);
}

}  // namespace
