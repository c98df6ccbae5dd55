#include <spdlog/spdlog.h>

#include "PexaPlugin.h"

namespace Pexa {

void PexaPluginBase::savePluginRef(const Kiv::Ptr<Mirro::EntityManager>& entityManager) {
  const Kiv::Ptr<PluginManager> manager =
      entityManager ? Kiv::ptrCast<PluginManager>(entityManager->getEntity(PluginManager::kPath)) : nullptr;
  if (!manager) {
    spdlog::warn("plugin {}: no plugin manager at {}: it stays on its own", name(), PluginManager::kPath);
    return;
  }
  setupPluginManager(manager);
  manager->pluginIs(this);
}

void PexaPluginBase::doMountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) {
  mountsAreComplete_ = true;
  mountsComplete(entityManager);
}

void PexaPluginBase::setupPluginManager(const Kiv::Ptr<PluginManager>& pluginManager) {
  pluginManager_ = pluginManager;
}

void PexaPluginBase::standbyInit(PexaMode) {}
void PexaPluginBase::switchoverInit(PexaMode) {}
void PexaPluginBase::metricsInto(Metrics::Snapshot&) const {}

}  // namespace Pexa
