// What the agent and its plugins know of each other.
//
// The agent publishes a PluginManager in the state database at PluginManager::kPath. A plugin's root entity
// joins it with savePluginRef; from then on the agent drives it: doMounts, mountsComplete, then the start
// operation of the agent's mode.
#pragma once

#include <vector>

#include "Kiv.h"
#include "KivSharedMem.h"
#include "Metrics.h"
#include "Mirro.h"
#include "PexaCounter.h"
#include "PexaPipeline.h"
#include "PexaPort.h"
#include "Plugin.h"

namespace Pexa {

enum class PexaMode : std::uint8_t { active, standby };

// The agent object: holds the shared-memory entity manager.
class PexaAgent : public Kiv::Entity {
 public:
  PexaAgent(Kiv::String name, Kiv::Ptr<KivSharedMem::EntityManager> sharedMem)
      : Kiv::Entity(std::move(name)), sharedMem_(std::move(sharedMem)) {}
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  const Kiv::Ptr<KivSharedMem::EntityManager>& sharedMemEntityManager() const { return sharedMem_; }

 private:
  Kiv::Ptr<KivSharedMem::EntityManager> sharedMem_;
};

// What a plugin is given to mount with.
class PluginContext : public Kiv::Entity {
 public:
  PluginContext(Kiv::String name, Kiv::Ptr<Mirro::EntityManager> entityManager, Kiv::Ptr<PexaAgent> agent)
      : Kiv::Entity(std::move(name)), entityManager_(std::move(entityManager)), agent_(std::move(agent)) {}
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  const Kiv::Ptr<Mirro::EntityManager>& entityManager() const { return entityManager_; }
  const Kiv::Ptr<PexaAgent>& agent() const { return agent_; }

 private:
  Kiv::Ptr<Mirro::EntityManager> entityManager_;
  Kiv::Ptr<PexaAgent> agent_;
};

class PexaPluginBase;

// The agent's side of its plugins: what it offers them, and which have joined. Any member may be empty in a
// test.
class PluginManager : public Kiv::Entity {
 public:
  static constexpr std::string_view kPath = "pexa/pluginManager";
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  Kiv::Ptr<PexaAgent> agent;
  Kiv::Ptr<Ports> ports;
  Kiv::Ptr<Counter::PktCounterCollectionHolder> counterHolder;
  Kiv::Ptr<AllGenericPipelineSteps> steps;

  // Lets a plugin join, in place of one of the same name.
  void pluginIs(const Kiv::Ptr<PexaPluginBase>& plugin);
  void pluginDelAll();
  const std::vector<Kiv::Ptr<PexaPluginBase>>& plugins() const { return plugins_; }

 private:
  std::vector<Kiv::Ptr<PexaPluginBase>> plugins_;
};

// Base of plugin root entities.
class PexaPluginBase : public Mirro::Mounter {
 public:
  using Mirro::Mounter::Mounter;

  // Joins the plugin manager that the state database holds. Without one the plugin stays on its own: logged.
  void savePluginRef(const Kiv::Ptr<Mirro::EntityManager>& entityManager);

  // Notes that the mounts are complete and calls mountsComplete.
  void doMountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) override;
  // Requests the plugin's mounts.
  virtual void doMounts(const Kiv::Ptr<PluginContext>& context) = 0;
  // Called when the mounts are done.
  virtual void mountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) = 0;
  virtual void setupPluginManager(const Kiv::Ptr<PluginManager>& pluginManager);
  // The start operations, one for each way an agent starts. The base of the first two does nothing;
  // switchover, from standby to active, goes through activeInit.
  virtual void standbyInit(PexaMode mode);
  virtual void switchoverInit(PexaMode mode);
  virtual void activeInit(PexaMode mode) = 0;
  // Adds the plugin's numbers to a snapshot (Metrics.h). Asked at any time while it has joined, on the event
  // thread. The base has none.
  virtual void metricsInto(Metrics::Snapshot& snapshot) const;

  const Kiv::Ptr<PluginManager>& pluginManager() const { return pluginManager_; }
  bool mountsAreComplete() const { return mountsAreComplete_; }

 private:
  Kiv::Ptr<PluginManager> pluginManager_;
  bool mountsAreComplete_ = false;
};

// The loader of the agent's plugins.
Plugin::Loader<PluginContext>& DefaultPluginLoader();

}  // namespace Pexa
