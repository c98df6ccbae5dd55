#include "FlowTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FlowTableThings.h"

namespace {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;
using Tracker::EndReason;

template <class Domain>
class FlowTableTest : public testing::Test {
 protected:
  using Key = FlowTracking::HoFlowKey<Domain>;
  using Record = Tracker::FlowRecord<Domain>;

  FlowTableTest() {
    interfaces_.add({std::nullopt, 1, Pavo::IntfId("Ethernet1"), 1});
    interfaces_.add({std::nullopt, 2, Pavo::IntfId("Ethernet2"), 1});
  }

  static Key key(std::uint16_t port, AllowedTrafficDirection direction = AllowedTrafficDirection::ingress,
                 const char* intf = "Ethernet1") {
    Key key;
    key.ipFlowKey.srcPort = port;
    key.direction = direction;
    key.intfId = Pavo::IntfId(intf);
    return key;
  }
  static Key egress(std::uint16_t port) { return key(port, AllowedTrafficDirection::egress, "Ethernet2"); }

  Tracker::FlowTable<Domain>& table() {
    if (!table_) {
      table_.emplace(limits_, memory_.tables, interfaces_, sink_);
      table_->adopt(now_);
    }
    return *table_;
  }
  void sample(const Key& key, unsigned times = 1, std::uint32_t rate = 100) {
    for (; times != 0; --times) table().sampled({key, 50, rate, 1, 2}, now_);
  }
  void learn(const Key& key) { sample(key, static_cast<unsigned>(limits_.samplesToLearn)); }
  void learnInHardware(const Key& key) {
    learn(key);
    memory_.template stateIs<Domain>(key, HoFlowState::inHardware);
  }
  void counterIs(const Key& key, std::uint64_t packets, std::uint64_t octets, double creation = 1) {
    memory_.template counterIs<Domain>(key.ipFlowKey, packets, octets, now_, creation);
  }
  bool wanted(const Key& key) const { return memory_.template wanted<Domain>(key); }
  void tickAfter(double seconds) {
    now_ += seconds;
    table().tick(now_);
  }
  std::vector<Record>& records() { return sink_.template records<Domain>(); }
  // The records so far, which are then forgotten.
  std::vector<Record> take() { return std::exchange(records(), {}); }

  double now_ = 1000;
  Tracker::FlowLimits limits_{
      .samplesToLearn = 2, .maxFlows = 4, .maxCandidates = 8, .idleTimeout = 30, .activeTimeout = 60};
  TestSupport::MemoryTables memory_;
  Tracker::Interfaces interfaces_;
  TestSupport::RecordingSink sink_;

 private:
  std::optional<Tracker::FlowTable<Domain>> table_;
};

using Families = testing::Types<IPv4, IPv6>;
TYPED_TEST_SUITE(FlowTableTest, Families);

// --- Learning

TYPED_TEST(FlowTableTest, WantsAFlowAfterEnoughSamples) {
  this->limits_.samplesToLearn = 3;
  const auto key = this->key(1);
  this->sample(key, 2);
  EXPECT_FALSE(this->wanted(key));
  this->sample(key);
  EXPECT_TRUE(this->wanted(key));
  EXPECT_EQ(this->table().size(), 1U);
  EXPECT_EQ(this->table().candidates().size(), 0U);
  EXPECT_EQ(this->table().events().learned, 1U);
  EXPECT_EQ(this->memory_.config->template map<TypeParam>().get(key).requestTime, this->now_);
}

TYPED_TEST(FlowTableTest, OneSampleIsEnoughWhenSoConfigured) {
  this->limits_.samplesToLearn = 1;
  this->sample(this->key(1));
  EXPECT_TRUE(this->wanted(this->key(1)));
}

TYPED_TEST(FlowTableTest, DirectionsAndInterfacesAreLearnedOneByOne) {
  this->learn(this->key(1));
  this->sample(this->egress(1));
  this->sample(this->key(1, AllowedTrafficDirection::ingress, "Ethernet2"));
  EXPECT_FALSE(this->wanted(this->egress(1)));
  this->sample(this->egress(1));
  EXPECT_TRUE(this->wanted(this->egress(1)));
  EXPECT_FALSE(this->wanted(this->key(1, AllowedTrafficDirection::ingress, "Ethernet2")));
  EXPECT_EQ(this->table().size(), 2U);
}

TYPED_TEST(FlowTableTest, ACandidateThatIsSampledNoMoreIsForgotten) {
  this->sample(this->key(1));
  this->tickAfter(30);
  EXPECT_EQ(this->table().candidates().size(), 1U);
  this->tickAfter(1);
  EXPECT_EQ(this->table().candidates().size(), 0U);
  this->sample(this->key(1));
  EXPECT_FALSE(this->wanted(this->key(1)));
}

TYPED_TEST(FlowTableTest, LearnedFlowsAreNotPushedOutByNewOnes) {
  for (std::uint16_t port = 1; port <= 4; ++port) this->learn(this->key(port));
  this->sample(this->key(5), 3);
  EXPECT_FALSE(this->wanted(this->key(5)));
  EXPECT_EQ(this->table().size(), 4U);
  EXPECT_EQ(this->table().events().refused, 2U);
  EXPECT_EQ(this->table().candidates().size(), 1U);
}

TYPED_TEST(FlowTableTest, ACandidateThatFoundNoRoomIsLearnedWithTheNextSampleWhenThereIsSome) {
  for (std::uint16_t port = 1; port <= 4; ++port) this->learn(this->key(port));
  this->now_ += 20;
  this->sample(this->key(5), 2);
  for (std::uint16_t port = 2; port <= 4; ++port) this->sample(this->key(port));
  this->tickAfter(10);  // the first one is idle
  EXPECT_FALSE(this->wanted(this->key(5)));
  this->sample(this->key(5));
  EXPECT_TRUE(this->wanted(this->key(5)));
}

// --- Ageing

TYPED_TEST(FlowTableTest, AFlowThatIsSampledNoMoreIsWantedNoMore) {
  this->learn(this->key(1));
  this->tickAfter(29);
  EXPECT_TRUE(this->wanted(this->key(1)));
  this->tickAfter(1);
  EXPECT_FALSE(this->wanted(this->key(1)));
  EXPECT_EQ(this->table().size(), 0U);
  EXPECT_EQ(this->table().events().idle, 1U);
}

TYPED_TEST(FlowTableTest, SamplesKeepAFlowThatGotNoPlaceInHardware) {
  this->learn(this->key(1));
  this->memory_.template stateIs<TypeParam>(this->key(1), HoFlowState::overflow);
  for (int i = 0; i < 10; ++i) {
    this->sample(this->key(1));
    this->tickAfter(20);
    EXPECT_TRUE(this->wanted(this->key(1)));
  }
  this->tickAfter(20);
  EXPECT_FALSE(this->wanted(this->key(1)));
}

TYPED_TEST(FlowTableTest, AMovingCounterKeepsAFlowInHardware) {
  this->learnInHardware(this->key(1));
  for (std::uint64_t packets = 1; packets <= 10; ++packets) {
    this->counterIs(this->key(1), packets, 100 * packets);
    this->tickAfter(20);
    EXPECT_TRUE(this->wanted(this->key(1)));
    EXPECT_EQ(this->table().inHardware(), 1U);
  }
}

TYPED_TEST(FlowTableTest, AFlowWhoseCounterStandsStillIsWantedNoMore) {
  this->learnInHardware(this->key(1));
  this->counterIs(this->key(1), 5, 500);
  this->tickAfter(10);
  this->tickAfter(19);
  EXPECT_TRUE(this->wanted(this->key(1)));
  this->tickAfter(1);  // 30 seconds after the last counted packet
  EXPECT_FALSE(this->wanted(this->key(1)));
  EXPECT_EQ(this->table().inHardware(), 0U);
}

TYPED_TEST(FlowTableTest, AClockThatIsSetBackMakesNothingIdle) {
  this->learn(this->key(1));
  this->tickAfter(-500);
  this->tickAfter(29);
  EXPECT_TRUE(this->wanted(this->key(1)));
  this->tickAfter(1);
  EXPECT_FALSE(this->wanted(this->key(1)));
}

TYPED_TEST(FlowTableTest, AClockThatIsSetForwardByHoursMakesNothingIdle) {
  this->learn(this->key(1));
  this->tickAfter(1);
  this->tickAfter(7200);
  EXPECT_TRUE(this->wanted(this->key(1)));
  this->tickAfter(28);
  EXPECT_TRUE(this->wanted(this->key(1)));
  this->tickAfter(1);
  EXPECT_FALSE(this->wanted(this->key(1)));
}

TYPED_TEST(FlowTableTest, RecordsGoOnWhenTheClockIsSetBackByHours) {
  this->learn(this->key(1));
  this->tickAfter(1);
  this->tickAfter(-7200);
  EXPECT_EQ(this->take().size(), 1U);  // what was counted in a time that is yet to come
  this->sample(this->key(1));
  this->tickAfter(20);
  this->sample(this->key(1));
  this->tickAfter(20);
  this->sample(this->key(1));
  this->tickAfter(20);
  EXPECT_EQ(this->take().size(), 1U);
}

TYPED_TEST(FlowTableTest, AFlowThatIsGoneIsLearnedAnew) {
  this->learn(this->key(1));
  this->tickAfter(30);
  this->sample(this->key(1));
  EXPECT_FALSE(this->wanted(this->key(1)));
  this->sample(this->key(1));
  EXPECT_TRUE(this->wanted(this->key(1)));
}

// --- Records

TYPED_TEST(FlowTableTest, SampledPacketsAreScaledAndMarked) {
  this->sample(this->key(1), 1, 100);
  this->now_ += 4;
  this->sample(this->key(1), 1, 100);
  this->sample(this->key(1), 1, 200);
  this->tickAfter(30);
  const auto records = this->take();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].key, this->key(1));
  EXPECT_EQ(records[0].counts.packets, 400U);
  EXPECT_EQ(records[0].counts.octets, 400U * 50);
  EXPECT_EQ(records[0].counts.samples, 3U);
  EXPECT_EQ(records[0].counts.rate, 200U);
  EXPECT_EQ(records[0].counts.start, 1000);
  EXPECT_EQ(records[0].counts.end, 1004);
  EXPECT_EQ(records[0].reason, EndReason::idleTimeout);
  EXPECT_EQ(records[0].input, 1U);
  EXPECT_EQ(records[0].output, 2U);
}

TYPED_TEST(FlowTableTest, InHardwareWhatIsCountedIsExact) {
  this->learnInHardware(this->key(1));
  this->now_ = 1001;
  this->counterIs(this->key(1), 7, 4000);
  this->tickAfter(1);
  this->tickAfter(30);
  const auto records = this->take();
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].counts.packets, 200U);  // of the two samples
  EXPECT_EQ(records[0].counts.samples, 2U);
  EXPECT_EQ(records[1].counts.packets, 7U);
  EXPECT_EQ(records[1].counts.octets, 4000U);
  EXPECT_EQ(records[1].counts.samples, 0U);
  EXPECT_EQ(records[1].counts.start, 1000);
  EXPECT_EQ(records[1].counts.end, 1001);
  EXPECT_EQ(records[1].reason, EndReason::idleTimeout);
}

TYPED_TEST(FlowTableTest, AFlowThatGoesOnIsToldOncePerActiveTimeout) {
  this->limits_.samplesToLearn = 1;
  this->learnInHardware(this->key(1));
  std::uint64_t told = 0;
  for (std::uint64_t second = 1; second <= 130; ++second) {
    this->now_ += 1;
    this->counterIs(this->key(1), 10 * second, 1000 * second);
    this->table().tick(this->now_);
    for (const auto& record : this->take()) {
      EXPECT_EQ(record.reason, EndReason::activeTimeout);
      if (record.counts.samples == 0) told += record.counts.packets;
    }
    if (second == 59) {
      EXPECT_EQ(told, 0U);
    } else if (second == 61) {
      EXPECT_EQ(told, 600U);
    }
  }
  EXPECT_EQ(told, 1200U);  // at 60 and at 120 seconds
  this->table().finish(this->now_);
  ASSERT_EQ(this->records().size(), 1U);
  EXPECT_EQ(this->records()[0].counts.packets, 100U);
  EXPECT_EQ(this->records()[0].reason, EndReason::forcedEnd);
  EXPECT_TRUE(this->wanted(this->key(1)));
}

TYPED_TEST(FlowTableTest, AFlowWithNothingNewIsNotTold) {
  this->learn(this->key(1));
  this->table().finish(this->now_);
  EXPECT_EQ(this->take().size(), 1U);
  this->tickAfter(30);
  EXPECT_TRUE(this->records().empty());
}

TYPED_TEST(FlowTableTest, FinishingTellsWhatWasCountedSinceTheLastTick) {
  this->learnInHardware(this->key(1));
  this->tickAfter(1);
  this->counterIs(this->key(1), 3, 300);
  this->table().finish(this->now_);
  ASSERT_EQ(this->records().size(), 2U);
  EXPECT_EQ(this->records()[1].counts.packets, 3U);
}

TYPED_TEST(FlowTableTest, ACounterThatStartsAgainCountsFromZero) {
  this->learnInHardware(this->key(1));
  this->counterIs(this->key(1), 1000, 100000, 1);
  this->tickAfter(1);
  this->counterIs(this->key(1), 5, 500, 1);  // the agent started again
  this->tickAfter(1);
  this->counterIs(this->key(1), 2000, 200000, 2);  // the record was made anew
  this->tickAfter(1);
  this->table().finish(this->now_);
  EXPECT_EQ(this->records().back().counts.packets, 1000U + 5 + 2000);
  EXPECT_EQ(this->records().back().counts.octets, 100000U + 500 + 200000);
}

TYPED_TEST(FlowTableTest, AnAgentThatStartedAgainCountsFromZeroHoweverMuchItHasCounted) {
  this->learnInHardware(this->key(1));
  this->counterIs(this->key(1), 5, 500);
  this->tickAfter(1);
  this->memory_.template counterWriterStartsAgain<TypeParam>();
  this->tickAfter(1);  // what its predecessor counted stands there still
  this->counterIs(this->key(1), 14, 1400);
  this->tickAfter(1);
  this->counterIs(this->key(1), 15, 1500);
  this->tickAfter(1);
  this->table().finish(this->now_);
  EXPECT_EQ(this->records().back().counts.packets, 5U + 15);
  EXPECT_EQ(this->records().back().counts.octets, 500U + 1500);
}

TYPED_TEST(FlowTableTest, WhatWasCountedBeforeAFlowWasLearnedIsNotItsOwn) {
  this->counterIs(this->key(1), 1000, 100000);
  this->learnInHardware(this->key(1));
  this->counterIs(this->key(1), 1003, 100300);
  this->tickAfter(1);
  this->table().finish(this->now_);
  EXPECT_EQ(this->records().back().counts.packets, 3U);
}

// --- Flows that share a counter

TYPED_TEST(FlowTableTest, DirectionsInHardwareShareTheirCounterEvenly) {
  this->learnInHardware(this->key(1));
  this->learnInHardware(this->egress(1));
  this->counterIs(this->key(1), 21, 2101);
  this->tickAfter(1);
  this->table().finish(this->now_);
  std::map<AllowedTrafficDirection, std::pair<std::uint64_t, std::uint64_t>> told;
  for (const auto& record : this->records()) {
    if (record.counts.samples == 0)
      told[record.key.direction] = {record.counts.packets, record.counts.octets};
  }
  EXPECT_EQ(told[AllowedTrafficDirection::ingress], std::pair(std::uint64_t{11}, std::uint64_t{1051}));
  EXPECT_EQ(told[AllowedTrafficDirection::egress], std::pair(std::uint64_t{10}, std::uint64_t{1050}));
}

TYPED_TEST(FlowTableTest, OnlyTheDirectionInHardwareIsGivenWhatWasCounted) {
  this->learn(this->key(1));
  this->learnInHardware(this->egress(1));
  this->counterIs(this->key(1), 20, 2000);
  this->tickAfter(1);
  this->table().finish(this->now_);
  for (const auto& record : this->records()) {
    if (record.counts.samples != 0) continue;
    EXPECT_EQ(record.key.direction, AllowedTrafficDirection::egress);
    EXPECT_EQ(record.counts.packets, 20U);
  }
  EXPECT_EQ(this->records().size(), 3U);
}

// --- Restart

TYPED_TEST(FlowTableTest, TakesOverWhatIsWantedAndKeepsWhatMoves) {
  for (std::uint16_t port = 1; port <= 2; ++port) {
    this->memory_.tables.template want<TypeParam>(this->key(port), 900);
    this->memory_.template stateIs<TypeParam>(this->key(port), HoFlowState::inHardware);
    this->counterIs(this->key(port), 1000, 100000);
  }
  EXPECT_EQ(this->table().size(), 2U);
  EXPECT_EQ(this->table().events().adopted, 2U);
  for (int i = 1; i <= 4; ++i) {
    this->counterIs(this->key(1), 1000U + static_cast<unsigned>(i), 100000U + static_cast<unsigned>(i));
    this->tickAfter(10);
  }
  EXPECT_TRUE(this->wanted(this->key(1)));
  EXPECT_FALSE(this->wanted(this->key(2)));
  this->table().finish(this->now_);
  ASSERT_EQ(this->records().size(), 1U);
  EXPECT_EQ(this->records()[0].counts.packets, 4U);  // not what was counted before
  EXPECT_EQ(this->records()[0].input, 1U);
}

TYPED_TEST(FlowTableTest, TakesBackWhatItFindsWantedAndHasNoRoomFor) {
  for (std::uint16_t port = 1; port <= 6; ++port)
    this->memory_.tables.template want<TypeParam>(this->key(port), 900);
  EXPECT_EQ(this->table().size(), 4U);
  EXPECT_EQ(this->table().events().withdrawn, 2U);
  EXPECT_EQ(this->memory_.config->template map<TypeParam>().size(), 4U);
}

}  // namespace
