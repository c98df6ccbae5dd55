#include <algorithm>

#include "PexaPlugin.h"
#include "Plugin.h"

namespace {

// Kept for the process: plugin libraries come and go while static objects are made and destroyed.
std::vector<Plugin::Impl::Registration>& registered() {
  static auto& all = *new std::vector<Plugin::Impl::Registration>();
  return all;
}

}  // namespace

namespace Plugin::Impl {

void LoaderImpl::registerPlugin(std::string_view loaderName, std::string_view pluginName,
                                std::string_view loaderType, std::string_view group, std::string_view options,
                                InitCallerNode* initCaller) {
  const auto same = [&](const Registration& other) { return other.pluginName == pluginName; };
  if (std::any_of(registered().begin(), registered().end(), same)) {
    throw Kiv::TypeError("plugin \"" + std::string(pluginName) + "\" is registered already");
  }
  registered().push_back({std::string(loaderName), std::string(pluginName), std::string(loaderType),
                          std::string(group), std::string(options), initCaller});
}

void LoaderImpl::unregisterPlugin(const InitCallerNode* initCaller) {
  std::erase_if(registered(), [&](const Registration& each) { return each.initCaller == initCaller; });
}

const std::vector<Registration>& LoaderImpl::registrations() {
  return registered();
}

}  // namespace Plugin::Impl

namespace Pexa {

Plugin::Loader<PluginContext>& DefaultPluginLoader() {
  static auto& loader = *new Plugin::Loader<PluginContext>("pexa", "Pexa::PluginContext");
  return loader;
}

}  // namespace Pexa
