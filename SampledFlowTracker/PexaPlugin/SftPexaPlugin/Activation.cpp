// What the root entity does when the agent drives it: taking what was mounted, and activation.
#include "FeatureType.h"
#include "Fenn.h"
#include "HoFlowState.h"
#include "SftPexaPlugin.h"
#include "StateMounts.h"

namespace SampledFlowTracker {

namespace {

// The Ethernet protocol under which this agent carries sampled packets.
constexpr std::uint32_t kSflowEthProtocol = 0x8130;

constexpr std::uint32_t kMaxTrackers = 256;
constexpr std::uint32_t kMaxExportersPerTracker = 8;
constexpr std::uint32_t kMaxCollectorsPerExporter = 8;

// The entity at a path, or empty when it is absent or of another type. The manager is that of the state
// database or that of the shared tables.
template <class T, class EntityManager>
Kiv::Ptr<T> entityAt(const EntityManager& entityManager, std::string_view path) {
  return Kiv::ptrCast<T>(entityManager.getEntity(path));
}

}  // namespace

bool toggleHwFlowTrackingOffloadV6Enabled() {
  static const bool enabled = getToggleState("HwFlowTrackingOffloadV6", "FlowTracker.json", true);
  return enabled;
}

void SftPexaPlugin::mountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) {
  const Mirro::EntityManager& database = *entityManager;
  sflowHwStatusIs(entityAt<Sflow::HwStatus>(database, StatePath::kSflowHwStatus));
  sftHwTrackingConfigIs(entityAt<HwFlowTracking::Config>(database, StatePath::kHwTrackingConfig));
  ftrCapabilitiesIs(entityAt<HwFlowTracking::Capabilities>(database, StatePath::kHwTrackingCapabilities));
  fwCapabilitiesIs(entityAt<HwFlowWatcher::Capabilities>(database, StatePath::kFlowWatcherCapabilities));
  sflowHwConfigIs(entityAt<Sflow::HwConfig>(database, StatePath::kSflowHwConfig));
  hoStatusIs(entityAt<FlowTracking::HoStatus>(database, StatePath::kHoStatus));
  sftSflowHwConfigIs(entityAt<Sflow::HwConfig>(database, StatePath::kSftSflowHwConfig));
  ethIntfStatusDirIs(entityAt<Interface::EthIntfStatusDir>(database, StatePath::kEthIntfStatusDir));
}

void SftPexaPlugin::activeInit(Pexa::PexaMode) {
  const Pexa::PluginManager& manager = *pluginManager();
  lookUpSharedTables(manager);
  publishCapabilities();
  buildChildren(manager);
  insertSteps(manager);
}

void SftPexaPlugin::lookUpSharedTables(const Pexa::PluginManager& manager) {
  using FlowTracking::HoFlowConfig;
  using FlowTracking::HoFlowCounter;
  using FlowTracking::HoFlowStatus;
  using FlowTracking::HosStateCounter;
  if (!manager.agent || !manager.agent->sharedMemEntityManager()) return;
  const KivSharedMem::EntityManager& tables = *manager.agent->sharedMemEntityManager();
  const Kiv::String& type = featureType();
  hoFlowStatusIs(entityAt<HoFlowStatus>(tables, HoFlowStatus::mountPath(type)));
  hoFlowCounterIs(entityAt<HoFlowCounter>(tables, HoFlowCounter::mountPath(type, kCounterName)));
  hoFlowConfigIs(entityAt<HoFlowConfig>(tables, HoFlowConfig::mountPath(type)));
  hosStateCounterIs(entityAt<HosStateCounter>(tables, HosStateCounter::mountPath(type)));
}

void SftPexaPlugin::publishCapabilities() {
  sflowHwStatus()->sflowEthProtocolIs(kSflowEthProtocol);

  // The IPv6 toggle changes what is announced and nothing else: tables, counters and steps serve both
  // families.
  ftrCapabilities()->nonDefaultVrfExportIs(true);
  ftrCapabilities()->maxTrackersIs(kMaxTrackers);
  ftrCapabilities()->maxExportersPerTrackerIs(kMaxExportersPerTracker);
  ftrCapabilities()->maxCollectorsPerExporterIs(kMaxCollectorsPerExporter);
  ftrCapabilities()->hwOffloadIpv4Is(true);
  ftrCapabilities()->hwOffloadIpv6Is(toggleHwFlowTrackingOffloadV6Enabled());
  ftrCapabilities()->supportedIs(true);

  fwCapabilities()->featureIs(static_cast<std::uint32_t>(FlowTracking::FlowTrackingType::sampled));
  fwCapabilities()->awakeSupportedIs(true);
}

void SftPexaPlugin::buildChildren(const Pexa::PluginManager& manager) {
  sftSamplerHelperIs(sflowHwStatus(), manager.ports, ethIntfStatusDir(), sflowHwConfig(),
                     sftHwTrackingConfig(), sftSflowHwConfig());
  localHoCountersIs("SftHardwareOffload");
  localHoCounters()->keyTypeIs("Flow");
  if (manager.counterHolder) manager.counterHolder->collectionIs(localHoCounters());
  inputSamplerIs(sftSamplerHelper(), hoFlowStatus(), localHoCounters(), sftHwTrackingConfig());
  sftPexaFtHoConfigReactorIs(sftHwTrackingConfig(), hoStatus());
  outputSamplerIs(sftSamplerHelper(), hoFlowStatus(), localHoCounters(), sftHwTrackingConfig());
  drovaHelperIs(hosStateCounter());
  Zun::SmControl drovaControl;
  drovaControl.taskPriority = 3;
  hocSmIs(hoFlowConfig(), hoFlowStatus(), hoFlowCounter(), hosStateCounter(), localHoCounters(),
          drovaHelper(), drovaControl);
}

void SftPexaPlugin::insertSteps(const Pexa::PluginManager& manager) {
  if (!manager.steps) return;
  manager.steps->addStep(inputSampler());
  manager.steps->addStep(outputSampler());
}

}  // namespace SampledFlowTracker
