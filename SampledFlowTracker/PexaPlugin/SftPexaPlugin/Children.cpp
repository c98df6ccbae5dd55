// The root entity's owned children: their factory setters and removers, over one body each.
#include "SftPexaPlugin.h"

namespace SampledFlowTracker {

template <class Owned, class Make, class... Args>
auto SftPexaPlugin::childIs(Owned& owned, Kiv::AttributeId attribute, const Make& make, const Args&... args) {
  if (owned.builtFrom(args...)) return owned.get();
  auto child = make(args...);
  { const auto released = owned.put(child, args...); }
  announce(attribute);
  child->hasNotificationActiveIs(true);
  return child;
}

template <class Owned>
auto SftPexaPlugin::childDel(Owned& owned, Kiv::AttributeId attribute) {
  auto child = owned.take();
  if (child) announce(attribute);
  return child;
}

template <class Owned>
auto SftPexaPlugin::activeChildDel(Owned& owned, Kiv::AttributeId attribute) {
  auto child = childDel(owned, attribute);
  if (child) child->hasNotificationActiveIs(false);
  return child;
}

Kiv::Ptr<SftSamplerHelper> SftPexaPlugin::sftSamplerHelperIs(
    const Kiv::Ptr<const Sflow::HwStatus>& sflowHwStatus, const Kiv::Ptr<const Pexa::Ports>& ports,
    const Kiv::Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir,
    const Kiv::Ptr<const Sflow::HwConfig>& sflowHwConfig,
    const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig,
    const Kiv::Ptr<const Sflow::HwConfig>& sftSflowHwConfig) {
  return childIs(sftSamplerHelper_, sftSamplerHelperAttr, &SftSamplerHelper::SftSamplerHelperIs,
                 sflowHwStatus, ports, ethIntfStatusDir, sflowHwConfig, sftHwTrackingConfig,
                 sftSflowHwConfig);
}

Kiv::Ptr<SftInputSampler> SftPexaPlugin::inputSamplerIs(
    const Kiv::Ptr<SftSamplerHelper>& sftSamplerHelper,
    const Kiv::Ptr<const FlowTracking::HoFlowStatus>& hoFlowStatus, const Kiv::Ptr<Counters>& localHoCounters,
    const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig) {
  const auto make = [](const auto&... args) { return Kiv::makePtr<SftInputSampler>(args...); };
  return childIs(inputSampler_, inputSamplerAttr, make, sftSamplerHelper, hoFlowStatus, localHoCounters,
                 sftHwTrackingConfig);
}

Kiv::Ptr<SftOutputSampler> SftPexaPlugin::outputSamplerIs(
    const Kiv::Ptr<SftSamplerHelper>& sftSamplerHelper,
    const Kiv::Ptr<const FlowTracking::HoFlowStatus>& hoFlowStatus, const Kiv::Ptr<Counters>& localHoCounters,
    const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig) {
  const auto make = [](const auto&... args) { return Kiv::makePtr<SftOutputSampler>(args...); };
  return childIs(outputSampler_, outputSamplerAttr, make, sftSamplerHelper, hoFlowStatus, localHoCounters,
                 sftHwTrackingConfig);
}

Kiv::Ptr<SftPexaFtHoConfigReactor> SftPexaPlugin::sftPexaFtHoConfigReactorIs(
    const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig,
    const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus) {
  return childIs(configReactor_, sftPexaFtHoConfigReactorAttr,
                 &SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs, sftHwTrackingConfig, hoStatus);
}

Kiv::Ptr<SftPexaFtHOCSM> SftPexaPlugin::hocSmIs(
    const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
    const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
    const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
    const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter, const Kiv::Ptr<Counters>& localHoCounters,
    const Kiv::Ptr<SftPexaDrovaHelper>& drovaHelper, const Zun::SmControl& drovaControl) {
  return childIs(hocSm_, hocSmAttr, &SftPexaFtHOCSM::SftPexaFtHOCSMIs, hoFlowConfig, hoFlowStatus,
                 hoFlowCounter, hosStateCounter, localHoCounters, drovaHelper, drovaControl);
}

Kiv::Ptr<SftPexaDrovaHelper> SftPexaPlugin::drovaHelperIs(
    const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter) {
  return childIs(drovaHelper_, drovaHelperAttr, &SftPexaDrovaHelper::SftPexaDrovaHelperIs, hosStateCounter);
}

Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> SftPexaPlugin::localHoCountersIs(
    const Kiv::String& name) {
  const auto make = [this](const Kiv::String& collectionName) {
    auto counters = Counters::PexaSftHoCounterCollectionIs(collectionName);
    if (localHoCounters()) localHoCounters()->parentIs(nullptr);
    counters->parentIs(this);
    return counters;
  };
  return childIs(localHoCounters_, localHoCountersAttr, make, name);
}

Kiv::Ptr<SftSamplerHelper> SftPexaPlugin::sftSamplerHelperDel() {
  return activeChildDel(sftSamplerHelper_, sftSamplerHelperAttr);
}
Kiv::Ptr<SftInputSampler> SftPexaPlugin::inputSamplerDel() {
  return childDel(inputSampler_, inputSamplerAttr);
}
Kiv::Ptr<SftOutputSampler> SftPexaPlugin::outputSamplerDel() {
  return childDel(outputSampler_, outputSamplerAttr);
}
Kiv::Ptr<SftPexaFtHoConfigReactor> SftPexaPlugin::sftPexaFtHoConfigReactorDel() {
  return activeChildDel(configReactor_, sftPexaFtHoConfigReactorAttr);
}
Kiv::Ptr<SftPexaFtHOCSM> SftPexaPlugin::hocSmDel() {
  return activeChildDel(hocSm_, hocSmAttr);
}
Kiv::Ptr<SftPexaDrovaHelper> SftPexaPlugin::drovaHelperDel() {
  return childDel(drovaHelper_, drovaHelperAttr);
}
Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> SftPexaPlugin::localHoCountersDel() {
  if (localHoCounters()) localHoCounters()->parentIs(nullptr);
  return childDel(localHoCounters_, localHoCountersAttr);
}

}  // namespace SampledFlowTracker
