#include "PluginInstance.h"

#include <iostream>  // its stream initialiser is the first of this module's static objects
#include <memory>

#include "FeatureType.h"
#include "RecordTypes.h"
#include "TraceHandles.h"

namespace SampledFlowTracker {

// The module's values, in the order in which they are made; they go in the reverse order as the library is
// unloaded. The instance comes after the types: the loader may ask for a root entity at any time from then
// on.
namespace {

[[maybe_unused]] const Kiv::String kNamespacePrefix("ns-");

// The types that are built by name while the agent runs.
struct ModuleTypes {
  ModuleTypes() { FlowTracking::recordTypesRegister(); }
  Kiv::Module module{
      "SampledFlowTracker",
      {&SftPexaPlugin::kivType(), &SftPexaFtHoConfigReactor::kivType(), &SftSamplerHelper::kivType(),
       &SftInputSampler::kivType(), &SftOutputSampler::kivType()}};
};
const ModuleTypes kModuleTypes;

const Kiv::String kFeatureType("sampled");

PexaSampledFlowTrackerPluginInst pluginInstance;

// The packet path's "no interface" and "no address".
[[maybe_unused]] const Pavo::IntfId kDefaultIntfId;
[[maybe_unused]] const Pavo::IpAddr kDefaultIpAddr;
[[maybe_unused]] const Pavo::Ip6Addr kDefaultIp6Addr;

// Operators match this record by its position, so it does not follow the source's lines.
constexpr int kLoadedLine = 364;
constexpr std::string_view kLoadedText =
    "virtual void SampledFlowTracker::PexaSampledFlowTrackerPluginInst::init(Pexa::PluginContext*)"
    " loaded SampledFlowTracker plugin";

void traceLoaded() {
  static constinit Skein::CallSite site("Sft", kTraceFile, kLoadedLine, "init", Skein::Volume::event);
  if (ringTraced(site) || textTraced()) traceBoth(site, kLoadedText);
}

}  // namespace

const Kiv::String& featureType() {
  return kFeatureType;
}

PexaSampledFlowTrackerPluginInst::PexaSampledFlowTrackerPluginInst()
    : PluginBase<Pexa::PluginContext>(Pexa::DefaultPluginLoader()) {
  using Node = Plugin::Loader<Pexa::PluginContext>::LoaderInitCallerWithContext;
  auto& loader = Pexa::DefaultPluginLoader();
  auto node = std::make_unique<Node>(&loader, initCaller());
  Node* const registered = node.get();
  loader.push(std::move(node));
  Plugin::Impl::LoaderImpl::registerPlugin(loader.name(), "PexaSampledFlowTrackerPlugin", loader.type(),
                                           "SampledFlowTracker", "", registered);
}

PexaSampledFlowTrackerPluginInst::~PexaSampledFlowTrackerPluginInst() = default;

void PexaSampledFlowTrackerPluginInst::init(Pexa::PluginContext* context) {
  plugin_ = sftPexaPluginFactory("SampledFlowTracker");
  plugin_->savePluginRef(context->entityManager());
  traceLoaded();
}

}  // namespace SampledFlowTracker
