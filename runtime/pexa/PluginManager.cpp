#include <algorithm>

#include "PexaPlugin.h"

namespace Pexa {

const Kiv::Type& PexaAgent::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<PexaAgent>("Pexa::PexaAgent")
                                    .attribute("sharedMemEntityManager", &PexaAgent::sharedMemEntityManager)
                                    .build();
  return type;
}

const Kiv::Type& PluginContext::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<PluginContext>("Pexa::PluginContext")
                                    .attribute("entityManager", &PluginContext::entityManager)
                                    .attribute("agent", &PluginContext::agent)
                                    .build();
  return type;
}

const Kiv::Type& PluginManager::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<PluginManager>("Pexa::PluginManager")
          .attribute("agent", &PluginManager::agent)
          .attribute("ports", &PluginManager::ports)
          .attribute("counterHolder", &PluginManager::counterHolder)
          .attribute("steps", &PluginManager::steps)
          .attribute("plugins", [](const PluginManager& manager) { return manager.plugins().size(); })
          .build();
  return type;
}

void PluginManager::pluginIs(const Kiv::Ptr<PexaPluginBase>& plugin) {
  const auto same = std::find_if(plugins_.begin(), plugins_.end(),
                                 [&](const auto& joined) { return joined->name() == plugin->name(); });
  if (same != plugins_.end()) {
    *same = plugin;
  } else {
    plugins_.push_back(plugin);
  }
}

void PluginManager::pluginDelAll() {
  plugins_.clear();
}

}  // namespace Pexa
