// A plugin of the least kind, for the tests of loading: it registers, and its entity does nothing.
#include "PexaPlugin.h"

namespace {

class Instance : public PluginBase<Pexa::PluginContext> {
 public:
  Instance() : PluginBase(Pexa::DefaultPluginLoader()) {
    auto& loader = Pexa::DefaultPluginLoader();
    using Node = Plugin::Loader<Pexa::PluginContext>::LoaderInitCallerWithContext;
    auto node = std::make_unique<Node>(&loader, initCaller());
    Plugin::Impl::LoaderImpl::registerPlugin(loader.name(), "TestPlugin", loader.type(), "Test", "",
                                             node.get());
    loader.push(std::move(node));
  }
  void init(Pexa::PluginContext*) override {}
};

const Instance kInstance;

}  // namespace
