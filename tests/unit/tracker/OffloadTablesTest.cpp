#include "OffloadTables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "TempDir.h"
#include "quell/SharedTables.h"

namespace {

using FlowTracking::HoFlowState;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

template <class Domain>
class OffloadTablesTest : public testing::Test {
 protected:
  using Key = FlowTracking::HoFlowKey<Domain>;

  static Key key(std::uint16_t port) {
    Key key;
    key.ipFlowKey.srcPort = port;
    key.direction = Bridging::AllowedTrafficDirection::ingress;
    key.intfId = Pavo::IntfId("Ethernet1");
    return key;
  }
  static std::vector<std::uint16_t> wanted(const Tracker::OffloadTables& tables) {
    std::vector<std::uint16_t> ports;
    tables.template wanted<Domain>(
        [&](const auto& record) { ports.push_back(record.key.ipFlowKey.srcPort); });
    return ports;
  }

  TestSupport::TempDir dir_;
};

using Families = testing::Types<IPv4, IPv6>;
TYPED_TEST_SUITE(OffloadTablesTest, Families);

TYPED_TEST(OffloadTablesTest, WhatIsWantedOutlivesTheTracker) {
  {
    Tracker::OffloadTables tables(this->dir_.path());
    for (std::uint16_t port = 1; port <= 3; ++port) EXPECT_TRUE(tables.want(this->key(port), 5));
    EXPECT_TRUE(tables.unwant(this->key(2)));
    EXPECT_TRUE(tables.unwant(this->key(9)));
  }
  const Tracker::OffloadTables tables(this->dir_.path());
  EXPECT_THAT(this->wanted(tables), testing::UnorderedElementsAre(1, 3));
}

TYPED_TEST(OffloadTablesTest, ASecondTrackerIsToldWhoWrites) {
  const Tracker::OffloadTables first(this->dir_.path());
  try {
    const Tracker::OffloadTables second(this->dir_.path());
    ADD_FAILURE() << "two writers";
  } catch (const Quell::TableBusy& busy) {
    EXPECT_THAT(busy.what(), testing::HasSubstr("hoIpFlowConfig"));
  }
}

TYPED_TEST(OffloadTablesTest, ReadsWhatTheAgentPublishes) {
  Tracker::OffloadTables tables(this->dir_.path());
  EXPECT_FALSE(tables.inHardware(this->key(1)));
  EXPECT_FALSE(tables.counter(this->key(1).ipFlowKey));

  Quell::SharedTables agent("agent", this->dir_.path());
  const auto mounted = [&](const Kiv::String& path, const Kiv::String& type) {
    return agent.doMount(path, type, KivQuell::MountInfo(KivQuell::KivQuellType::written));
  };
  using FlowTracking::HoFlowCounter;
  using FlowTracking::HoFlowStatus;
  const auto status =
      Kiv::ptrCast<HoFlowStatus>(mounted(HoFlowStatus::mountPath("sampled"), HoFlowStatus::kivType().name()));
  const auto counter = Kiv::ptrCast<HoFlowCounter>(
      mounted(HoFlowCounter::mountPath("sampled", "hfc"), HoFlowCounter::kivType().name()));
  FlowTracking::HoFlowStatusRecord<TypeParam> record;
  record.key = this->key(1);
  record.state = HoFlowState::inHardware;
  status->template map<TypeParam>().insert(record);
  record.key = this->key(2);
  record.state = HoFlowState::overflow;
  status->template map<TypeParam>().insert(record);
  FlowTracking::HoFlowCounterRecord<TypeParam> counted;
  counted.key = this->key(1).ipFlowKey;
  counted.packets = 7;
  counter->template map<TypeParam>().insert(counted);
  agent.flush();

  EXPECT_TRUE(tables.inHardware(this->key(1)));
  EXPECT_FALSE(tables.inHardware(this->key(2)));
  ASSERT_TRUE(tables.counter(this->key(1).ipFlowKey));
  EXPECT_EQ(tables.counter(this->key(1).ipFlowKey)->packets, 7U);
}

// The agent mounts what is wanted and is woken by the tracker's flush.
TYPED_TEST(OffloadTablesTest, WhoWatchesHearsOfWhatIsWanted) {
  Tracker::OffloadTables tables(this->dir_.path());
  Quell::SharedTables agent("agent", this->dir_.path());
  using FlowTracking::HoFlowConfig;
  const auto config = Kiv::ptrCast<HoFlowConfig>(
      agent.doMount(HoFlowConfig::mountPath("sampled"), HoFlowConfig::kivType().name(),
                    KivQuell::MountInfo(KivQuell::KivQuellType::published)));
  tables.want(this->key(1), 5);
  tables.flush();
  EXPECT_TRUE(config->template map<TypeParam>().has(this->key(1)));
  EXPECT_EQ(config->template map<TypeParam>().get(this->key(1)).requestTime, 5);
}

TEST(OffloadTablesErrorTest, AFolderThatCannotBeWrittenIsToldOnce) {
  const TestSupport::TempDir dir;
  std::filesystem::create_directories(dir.path() + "/run");
  std::ofstream(dir.path() + "/run/tables") << "a file in the way";
  EXPECT_THROW(Tracker::OffloadTables(dir.path() + "/run"), Quell::TableError);
}

}  // namespace
