#include "PluginInstance.h"

#include <memory>

#include "SftPexaAudit.h"

namespace SampledFlowTracker {

namespace {

// The types come before the instance: the loader may ask for a root entity at any time from then on. The
// records' types are the tracker's to register; who has none mounts no tables.
const Kiv::Module kModule("SftPexaAudit", {&SftPexaAudit::kivType(), &AuditConfig::kivType()});
const PexaSftAuditPluginInst kInstance;

}  // namespace

PexaSftAuditPluginInst::PexaSftAuditPluginInst()
    : PluginBase<Pexa::PluginContext>(Pexa::DefaultPluginLoader()) {
  using Node = Plugin::Loader<Pexa::PluginContext>::LoaderInitCallerWithContext;
  auto& loader = Pexa::DefaultPluginLoader();
  auto node = std::make_unique<Node>(&loader, initCaller());
  Node* const registered = node.get();
  loader.push(std::move(node));
  Plugin::Impl::LoaderImpl::registerPlugin(loader.name(), "PexaSftAuditPlugin", loader.type(),
                                           "SampledFlowTracker", "", registered);
}

void PexaSftAuditPluginInst::init(Pexa::PluginContext* context) {
  SftPexaAudit::SftPexaAuditIs(Kiv::String(SftPexaAudit::kName))->savePluginRef(context->entityManager());
}

}  // namespace SampledFlowTracker
