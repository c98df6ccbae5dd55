// A plugin whose mount cannot be done: there is no entity at the path, and it does not ask for one.
#include <cstdlib>

#include "TestPluginInstance.h"

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

const TestPlugins::Instance<Root> kInstance("TestBadMountPlugin");

}  // namespace
