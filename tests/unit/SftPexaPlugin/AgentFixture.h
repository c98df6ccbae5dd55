// An agent around the plugin: a real state database, its own entities in it, and tables without files.
#pragma once

#include "FakePorts.h"
#include "HoStatus.h"
#include "HwFlowTracking.h"
#include "HwFlowWatcher.h"
#include "Interface.h"
#include "PexaPlugin.h"
#include "RecordingManagers.h"
#include "Sflow.h"
#include "SftPexaPlugin/SftPexaPlugin.h"
#include "mirro/StateDatabase.h"

namespace SampledFlowTracker {

class AgentFixture {
 public:
  AgentFixture() {
    manager->agent = agent;
    manager->ports = ports.ports;
    manager->counterHolder = counterHolder;
    manager->steps = steps;
    database->entityIs(Kiv::String(Pexa::PluginManager::kPath), manager);
    database->entityIs("interface/status/eth/intf", "Interface::EthIntfStatusDir");
    database->entityIs("hardware/flowtracking/capabilities/sampled", "HwFlowTracking::Capabilities");
    database->entityIs("hardware/flowwatcher/capabilities", "HwFlowWatcher::Capabilities");
  }
  AgentFixture(const AgentFixture&) = delete;
  AgentFixture& operator=(const AgentFixture&) = delete;
  ~AgentFixture() { stop(); }

  // A root entity that has joined and whose mounts are complete.
  Kiv::Ptr<SftPexaPlugin> mountedPlugin() {
    auto plugin = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
    plugin->savePluginRef(database);
    plugin->doMounts(context);
    while (database->completeMounts()) {
    }
    return plugin;
  }
  Kiv::Ptr<SftPexaPlugin> activePlugin() {
    auto plugin = mountedPlugin();
    plugin->activeInit(Pexa::PexaMode::active);
    return plugin;
  }
  template <class T>
  Kiv::Ptr<T> entity(std::string_view path) const {
    return Kiv::ptrCast<T>(database->getEntity(path));
  }
  // The agent lets go of everything that the plugin gave it.
  void stop() {
    steps->clear();
    counterHolder->clear();
    manager->pluginDelAll();
    database->clear();
  }

  TestSupport::FakePorts ports{2};
  Kiv::Ptr<RecordingTables> tables = Kiv::makePtr<RecordingTables>();
  Kiv::Ptr<Pexa::PexaAgent> agent = Kiv::makePtr<Pexa::PexaAgent>("agent", tables);
  Kiv::Ptr<Pexa::Counter::PktCounterCollectionHolder> counterHolder =
      Kiv::makePtr<Pexa::Counter::PktCounterCollectionHolder>("counters");
  Kiv::Ptr<Pexa::AllGenericPipelineSteps> steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  Kiv::Ptr<Pexa::PluginManager> manager = Kiv::makePtr<Pexa::PluginManager>("plugins");
  Kiv::Ptr<Mirro::StateDatabase> database = Kiv::makePtr<Mirro::StateDatabase>("state");
  Kiv::Ptr<Pexa::PluginContext> context = Kiv::makePtr<Pexa::PluginContext>("context", database, agent);
};

// Writes down which attributes of an entity changed.
class AttributeWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  static Kiv::Ptr<AttributeWatcher> on(const Kiv::Ptr<const Kiv::PtrInterface>& watched) {
    auto watcher = Kiv::makePtr<AttributeWatcher>();
    watcher->notifierIs(watched);
    watcher->hasNotificationActiveIs(true);
    return watcher;
  }
  void onAttribute(Kiv::AttributeId attribute) override { seen.push_back(attribute); }
  std::vector<Kiv::AttributeId> seen;
};

}  // namespace SampledFlowTracker
