// A plugin whose mount cannot be done: there is no entity at the path, and it does not ask for one.
#include <cstdlib>

#include "PexaPlugin.h"

namespace {

class Root : public Pexa::PexaPluginBase {
 public:
  using PexaPluginBase::PexaPluginBase;
  const Kiv::Type& fwkType() const override { return Pexa::PluginManager::kivType(); }
  void doMounts(const Kiv::Ptr<Pexa::PluginContext>& context) override {
    const auto group = context->entityManager()->getMountGroup(this);
    group->doMount(Mirro::Mount("no/where", "HwFlowTracking::Config", "w"));
    group->doClose(false, "", 0);
  }
  void mountsComplete(const Kiv::Ptr<Mirro::EntityManager>&) override {}
  void activeInit(Pexa::PexaMode) override { std::abort(); }  // it would use what it has not got
};

class Instance : public PluginBase<Pexa::PluginContext> {
 public:
  Instance() : PluginBase(Pexa::DefaultPluginLoader()) {
    auto& loader = Pexa::DefaultPluginLoader();
    using Node = Plugin::Loader<Pexa::PluginContext>::LoaderInitCallerWithContext;
    auto node = std::make_unique<Node>(&loader, initCaller());
    Plugin::Impl::LoaderImpl::registerPlugin(loader.name(), "TestBadMountPlugin", loader.type(), "Test", "",
                                             node.get());
    loader.push(std::move(node));
  }
  void init(Pexa::PluginContext* context) override {
    Kiv::makePtr<Root>("TestBadMountPlugin")->savePluginRef(context->entityManager());
  }
};

const Instance kInstance;

}  // namespace
