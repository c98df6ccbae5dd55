#include "StateMounts.h"

#include <sstream>

#include "FeatureType.h"
#include "IpFamily.h"

namespace SampledFlowTracker {

namespace {

using KivQuell::KivQuellType;
using Ip4 = FlowTracking::IpFamily<Pavo::Traits::IPv4>;
using Ip6 = FlowTracking::IpFamily<Pavo::Traits::IPv6>;
using Where = StateMount::Where;

constexpr StateMount kMounts[] = {
    {Where::database, StatePath::kSflowHwConfig, "Sflow::HwConfig", "r"},
    {Where::database, StatePath::kSflowHwStatus, "Sflow::HwStatus", "wc"},
    {Where::database, StatePath::kHwTrackingConfig, "HwFlowTracking::Config", "rc"},
    {Where::database, StatePath::kHwTrackingCapabilities, "HwFlowTracking::Capabilities", "w"},
    {Where::database, StatePath::kFlowWatcherCapabilities, "HwFlowWatcher::Capabilities", "w"},
    {Where::database, StatePath::kHoStatus, "FlowTracking::HoStatus", "wc"},
    {Where::database, StatePath::kSftSflowHwConfig, "Sflow::HwConfig", "r"},

    {.where = Where::sharedTable,
     .path = "status",
     .typeName = "FlowTracking::HoFlowStatus",
     .kind = KivQuellType::written,
     .collections = {Ip4::kStatusCollection, Ip6::kStatusCollection},
     .size = 64},
    {.where = Where::sharedTable,
     .path = "counter/hfc",
     .typeName = "FlowTracking::HoFlowCounter",
     .kind = KivQuellType::written,
     .collections = {Ip4::kCounterCollection, Ip6::kCounterCollection},
     .size = 64},
    // Published by the flow tracker, who knows how large it should be.
    {.where = Where::sharedTable,
     .path = "config",
     .typeName = "FlowTracking::HoFlowConfig",
     .kind = KivQuellType::published},
    {.where = Where::sharedTable,
     .path = "counter/status",
     .typeName = "FlowTracking::HosStateCounter",
     .kind = KivQuellType::written,
     .collections = {Ip4::kStateCollection, Ip6::kStateCollection},
     .size = 4},
};

Kiv::String tablePath(const StateMount& mount) {
  std::ostringstream path;
  path << "flowtracking/" << featureType() << "/hwOffload/" << mount.path;
  return path.str();
}

KivQuell::MountInfo mountInfo(const StateMount& mount) {
  KivQuell::MountInfo info(mount.kind);
  for (const std::string_view collection : mount.collections) {
    if (!collection.empty()) info.collectionInfoIs({Kiv::String(collection), mount.size, false});
  }
  return info;
}

}  // namespace

std::span<const StateMount> stateMounts() {
  return kMounts;
}

void mountState(Mirro::Mounter& mounter, const Pexa::PluginContext& context) {
  const auto group = context.entityManager()->getMountGroup(&mounter);
  const auto sharedMem = context.agent()->sharedMemEntityManager();
  for (const StateMount& mount : stateMounts()) {
    const Kiv::String typeName(mount.typeName);
    if (mount.where == Where::database) {
      group->doMount(Mirro::Mount(Kiv::String(mount.path), typeName, Kiv::String(mount.flags)));
    } else {
      sharedMem->doMount(tablePath(mount), typeName, mountInfo(mount));
    }
  }
  group->doClose(false, "", 0);
}

}  // namespace SampledFlowTracker
