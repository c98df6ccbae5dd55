// How a test's plugin registers: its entity is made when the agent initialises it.
#pragma once

#include "PexaPlugin.h"

namespace TestPlugins {

template <class Root>
class Instance : public PluginBase<Pexa::PluginContext> {
 public:
  explicit Instance(const char* name) : PluginBase(Pexa::DefaultPluginLoader()), name_(name) {
    auto& loader = Pexa::DefaultPluginLoader();
    using Node = Plugin::Loader<Pexa::PluginContext>::LoaderInitCallerWithContext;
    auto node = std::make_unique<Node>(&loader, initCaller());
    Plugin::Impl::LoaderImpl::registerPlugin(loader.name(), name, loader.type(), "Test", "", node.get());
    loader.push(std::move(node));
  }
  void init(Pexa::PluginContext* context) override {
    Kiv::makePtr<Root>(name_)->savePluginRef(context->entityManager());
  }

 private:
  const char* name_;
};

}  // namespace TestPlugins
