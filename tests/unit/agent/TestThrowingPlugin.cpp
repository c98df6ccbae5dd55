// A plugin whose steps throw at every packet, and while they look ahead.
#include <stdexcept>

#include "TestPluginInstance.h"

namespace {

class ThrowingStep : public Pexa::InputPipelineStep {
 public:
  ThrowingStep() : InputPipelineStep("thrower", 1) {}
  const Kiv::Type& fwkType() const override { return Pexa::PluginManager::kivType(); }
  Pexa::StepResult process(Pexa::PacketContext) override { throw std::runtime_error("not my packet"); }
  void lookAhead(std::span<const Pexa::PacketContext>) override { throw 1; }
};

class Root : public Pexa::PexaPluginBase {
 public:
  using PexaPluginBase::PexaPluginBase;
  const Kiv::Type& fwkType() const override { return Pexa::PluginManager::kivType(); }
  void doMounts(const Kiv::Ptr<Pexa::PluginContext>& context) override {
    manager_ = Kiv::ptrCast<Pexa::PluginManager>(
        context->entityManager()->getEntity(Kiv::String(Pexa::PluginManager::kPath)));
    context->entityManager()->getMountGroup(this)->doClose(false, "", 0);
  }
  void mountsComplete(const Kiv::Ptr<Mirro::EntityManager>&) override {}
  void activeInit(Pexa::PexaMode) override { manager_->steps->addStep(Kiv::makePtr<ThrowingStep>()); }

 private:
  Kiv::Ptr<Pexa::PluginManager> manager_;
};

const TestPlugins::Instance<Root> kInstance("TestThrowingPlugin");

}  // namespace
