#include "SftPexaPlugin/StateMounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HosStateCounter.h"
#include "RecordingManagers.h"
#include "SftPexaPlugin/FeatureType.h"
#include "SftPexaPlugin/SftPexaPlugin.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using Kind = MountCall::Kind;

class StateMountsTest : public ::testing::Test {
 protected:
  // What the root entity mounts, call by call.
  const std::vector<MountCall>& mounted() {
    const auto plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
    plugin->doMounts(Kiv::makePtr<Pexa::PluginContext>("context", database,
                                                       Kiv::makePtr<Pexa::PexaAgent>("agent", tables)));
    return calls;
  }
  std::vector<MountCall> of(Kind kind) {
    std::vector<MountCall> chosen;
    for (const MountCall& call : mounted()) {
      if (call.kind == kind) chosen.push_back(call);
    }
    return chosen;
  }

  std::vector<MountCall> calls;
  Kiv::Ptr<RecordingDatabase> database = Kiv::makePtr<RecordingDatabase>(calls);
  Kiv::Ptr<RecordingTables> tables = Kiv::makePtr<RecordingTables>(&calls);
};

TEST_F(StateMountsTest, MakesTheElevenMountsInTheirOrderAndClosesTheGroup) {
  EXPECT_THAT(
      mounted(),
      ElementsAre(
          MountCall{Kind::group, "SampledFlowTracker"},
          MountCall{Kind::database, "sflow/hwconfigdir/sflow", "Sflow::HwConfig", "r"},
          MountCall{Kind::database, "sflow/hwstatus/dorn", "Sflow::HwStatus", "wc"},
          MountCall{Kind::database, "hardware/flowtracking/config/sampled", "HwFlowTracking::Config", "rc"},
          MountCall{Kind::database, "hardware/flowtracking/capabilities/sampled",
                    "HwFlowTracking::Capabilities", "w"},
          MountCall{Kind::database, "hardware/flowwatcher/capabilities", "HwFlowWatcher::Capabilities", "w"},
          MountCall{Kind::database, "flowtracking/hoStatus/sampled", "FlowTracking::HoStatus", "wc"},
          MountCall{Kind::database, "sflow/hwconfigdir/sampledflowtracker", "Sflow::HwConfig", "r"},
          MountCall{Kind::sharedTable,
                    "flowtracking/sampled/hwOffload/status",
                    "FlowTracking::HoFlowStatus",
                    "",
                    0,
                    {{"hoIpFlowStatus", 64, false}, {"hoIp6FlowStatus", 64, false}}},
          MountCall{Kind::sharedTable,
                    "flowtracking/sampled/hwOffload/counter/hfc",
                    "FlowTracking::HoFlowCounter",
                    "",
                    0,
                    {{"hoIpFlowCounter", 64, false}, {"hoIp6FlowCounter", 64, false}}},
          MountCall{Kind::sharedTable, "flowtracking/sampled/hwOffload/config", "FlowTracking::HoFlowConfig",
                    "", 3},
          MountCall{Kind::sharedTable,
                    "flowtracking/sampled/hwOffload/counter/status",
                    "FlowTracking::HosStateCounter",
                    "",
                    0,
                    {{"hosStateIpCounter", 4, false}, {"hosStateIp6Counter", 4, false}}},
          MountCall{Kind::close}));
}

TEST_F(StateMountsTest, TablePathsAreThoseThatTheTablesAreLookedUpUnder) {
  std::vector<std::string> paths;
  for (const MountCall& call : of(Kind::sharedTable)) paths.push_back(call.path);
  EXPECT_EQ(featureType(), "sampled");
  EXPECT_THAT(paths, ElementsAre(FlowTracking::HoFlowStatus::mountPath(featureType()),
                                 FlowTracking::HoFlowCounter::mountPath(featureType(), kCounterName),
                                 FlowTracking::HoFlowConfig::mountPath(featureType()),
                                 FlowTracking::HosStateCounter::mountPath(featureType())));
  EXPECT_THAT(
      paths,
      ElementsAre("flowtracking/sampled/hwOffload/status", "flowtracking/sampled/hwOffload/counter/hfc",
                  "flowtracking/sampled/hwOffload/config", "flowtracking/sampled/hwOffload/counter/status"));
}

TEST_F(StateMountsTest, OnlyTheTableOfTheFlowTrackerComesWithoutSettings) {
  for (const MountCall& call : of(Kind::sharedTable)) {
    const bool published = call.typeName == "FlowTracking::HoFlowConfig";
    EXPECT_EQ(call.tableKind, published ? 3 : 0) << call.path;
    EXPECT_EQ(call.collections.size(), published ? 0U : 2U) << call.path;
  }
}

TEST_F(StateMountsTest, KeepsNoReferenceToWhatItMounts) {
  mounted();
  for (const auto& [path, table] : tables->tables) EXPECT_EQ(table->references(), 1U) << path;
}

TEST_F(StateMountsTest, EveryMountedTypeIsKnownToTheFramework) {
  for (const StateMount& mount : stateMounts()) {
    const Kiv::Type* type = Kiv::typeByName(mount.typeName);
    ASSERT_NE(type, nullptr) << mount.typeName;
    EXPECT_THAT(type->constructorArguments(), ElementsAre("name")) << mount.typeName;
  }
}

TEST_F(StateMountsTest, CollectionsCarryTheNamesThatTheTablesGiveThem) {
  for (const MountCall& call : of(Kind::sharedTable)) {
    for (const KivQuell::CollectionInfo& info : call.collections) {
      EXPECT_NE(tables->tables.at(call.path)->collection(info.name), nullptr)
          << call.path << ' ' << info.name;
    }
  }
}

}  // namespace
}  // namespace SampledFlowTracker
