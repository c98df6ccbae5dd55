#include "SftPexaPlugin.h"

#include "StateMounts.h"

namespace SampledFlowTracker {

SftPexaPlugin::SftPexaPlugin(const Kiv::String& name) : Pexa::PexaPluginBase(name) {}

SftPexaPlugin::~SftPexaPlugin() {
  sftSamplerHelperDel();
  inputSamplerDel();
  outputSamplerDel();
  sftPexaFtHoConfigReactorDel();
  hocSmDel();
  drovaHelperDel();
  localHoCountersDel();
}

Kiv::Ptr<SftPexaPlugin> SftPexaPlugin::SftPexaPluginIs(const Kiv::String& name) {
  auto plugin = Kiv::makePtr<SftPexaPlugin>(name);
  plugin->hasNotificationActiveIs(true);
  return plugin;
}

Kiv::Ptr<SftPexaPlugin> sftPexaPluginFactory(const Kiv::String& name) {
  return SftPexaPlugin::SftPexaPluginIs(name);
}

const Kiv::Type& SftPexaPlugin::kivType() {
  using Self = SftPexaPlugin;
  static const Kiv::Type type =
      Kiv::TypeBuilder<Self>("SampledFlowTracker::SftPexaPlugin")
          .attribute("ftrCapabilities", &Self::ftrCapabilities, &Self::ftrCapabilitiesIs)
          .attribute("fwCapabilities", &Self::fwCapabilities, &Self::fwCapabilitiesIs)
          .attribute("sftHwTrackingConfig", &Self::sftHwTrackingConfig, &Self::sftHwTrackingConfigIs)
          .attribute("sflowHwConfig", &Self::sflowHwConfig, &Self::sflowHwConfigIs)
          .attribute("sflowHwStatus", &Self::sflowHwStatus, &Self::sflowHwStatusIs)
          .attribute("sftSflowHwConfig", &Self::sftSflowHwConfig, &Self::sftSflowHwConfigIs)
          .attribute("hoFlowConfig", &Self::hoFlowConfig, &Self::hoFlowConfigIs)
          .attribute("hoFlowStatus", &Self::hoFlowStatus, &Self::hoFlowStatusIs)
          .attribute("hoFlowCounter", &Self::hoFlowCounter, &Self::hoFlowCounterIs)
          .attribute("hosStateCounter", &Self::hosStateCounter, &Self::hosStateCounterIs)
          .attribute("hoStatus", &Self::hoStatus, &Self::hoStatusIs)
          .attribute("ethIntfStatusDir", &Self::ethIntfStatusDir, &Self::ethIntfStatusDirIs)
          .attribute("sftSamplerHelper", &Self::sftSamplerHelper)
          .attribute("inputSampler", &Self::inputSampler)
          .attribute("outputSampler", &Self::outputSampler)
          .attribute("sftPexaFtHoConfigReactor", &Self::sftPexaFtHoConfigReactor)
          .attribute("hocSm", &Self::hocSm)
          .attribute("drovaHelper", &Self::drovaHelper)
          .attribute("localHoCounters", &Self::localHoCounters)
          .constructor(&Self::SftPexaPluginIs, "name")
          .build();
  return type;
}

void SftPexaPlugin::doMounts(const Kiv::Ptr<Pexa::PluginContext>& context) {
  mountState(*this, *context);
}

void SftPexaPlugin::ftrCapabilitiesIs(const Kiv::Ptr<HwFlowTracking::Capabilities>& value) {
  attributeIs(ftrCapabilities_, value, ftrCapabilitiesAttr);
}
void SftPexaPlugin::fwCapabilitiesIs(const Kiv::Ptr<HwFlowWatcher::Capabilities>& value) {
  attributeIs(fwCapabilities_, value, fwCapabilitiesAttr);
}
void SftPexaPlugin::sftHwTrackingConfigIs(const Kiv::Ptr<const HwFlowTracking::Config>& value) {
  attributeIs(sftHwTrackingConfig_, value, sftHwTrackingConfigAttr);
}
void SftPexaPlugin::sflowHwConfigIs(const Kiv::Ptr<Sflow::HwConfig>& value) {
  attributeIs(sflowHwConfig_, value, sflowHwConfigAttr);
}
void SftPexaPlugin::sflowHwStatusIs(const Kiv::Ptr<Sflow::HwStatus>& value) {
  attributeIs(sflowHwStatus_, value, sflowHwStatusAttr);
}
void SftPexaPlugin::sftSflowHwConfigIs(const Kiv::Ptr<const Sflow::HwConfig>& value) {
  attributeIs(sftSflowHwConfig_, value, sftSflowHwConfigAttr);
}
void SftPexaPlugin::hoFlowConfigIs(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& value) {
  attributeIs(hoFlowConfig_, value, hoFlowConfigAttr);
}
void SftPexaPlugin::hoFlowStatusIs(const Kiv::Ptr<FlowTracking::HoFlowStatus>& value) {
  attributeIs(hoFlowStatus_, value, hoFlowStatusAttr);
}
void SftPexaPlugin::hoFlowCounterIs(const Kiv::Ptr<FlowTracking::HoFlowCounter>& value) {
  attributeIs(hoFlowCounter_, value, hoFlowCounterAttr);
}
void SftPexaPlugin::hosStateCounterIs(const Kiv::Ptr<FlowTracking::HosStateCounter>& value) {
  attributeIs(hosStateCounter_, value, hosStateCounterAttr);
}
void SftPexaPlugin::hoStatusIs(const Kiv::Ptr<FlowTracking::HoStatus>& value) {
  attributeIs(hoStatus_, value, hoStatusAttr);
}
void SftPexaPlugin::ethIntfStatusDirIs(const Kiv::Ptr<const Interface::EthIntfStatusDir>& value) {
  attributeIs(ethIntfStatusDir_, value, ethIntfStatusDirAttr);
}

}  // namespace SampledFlowTracker
