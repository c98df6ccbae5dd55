// The state machine's life: construction, notification switching, teardown.
#include "SftPexaFtHOCSM.h"

#include "SmReactors.h"

namespace SampledFlowTracker {

namespace {

template <class F4, class F6>
std::array<OutputBase*, kOutputs> byId(F4& ipv4, F6& ipv6) {
  std::array<OutputBase*, kOutputs> result{};
  const auto add = [&](auto& family) {
    for (OutputBase* output : std::initializer_list<OutputBase*>{
             &family.status, &family.counter, &family.stateCounter, &family.localCounter, &family.overflow}) {
      result[indexOf(output->id())] = output;
    }
  };
  add(ipv4);
  add(ipv6);
  return result;
}

}  // namespace

SftPexaFtHOCSM::SftPexaFtHOCSM(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
                               const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
                               const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
                               const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter,
                               const Kiv::Ptr<Counters>& localCounter,
                               const Kiv::Ptr<SftPexaDrovaHelper>& helper, const Zun::SmControl& drovaControl)
    : hoFlowConfig_(hoFlowConfig),
      hoFlowStatus_(hoFlowStatus),
      hoFlowCounter_(hoFlowCounter),
      hosStateCounter_(hosStateCounter),
      localCounter_(localCounter),
      helper_(helper),
      outputs4_(hoFlowStatus, hoFlowCounter, hosStateCounter, localCounter, helper, *this),
      outputs6_(hoFlowStatus, hoFlowCounter, hosStateCounter, localCounter, helper, *this),
      outputs_(byId(outputs4_, outputs6_)),
      statements4_(hoFlowConfig, helper, outputs4_, *this),
      statements6_(hoFlowConfig, helper, outputs6_, *this),
      copy4_(outputs4_, *this),
      copy6_(outputs6_, *this) {
  notificationActiveStore(true);  // it runs from here on, whoever owns it
  drovaControl_ = drovaControl;
  trace_.skeinHandleIs(drovaControl.traceHandle);
  handleInitialized();
}

SftPexaFtHOCSM::~SftPexaFtHOCSM() {
  initialized_ = false;
  if (outputStateReactor_) outputStateReactor_->forget();
  outputStateReactor_.reset();
  outputState_.reset();
  for (OutputBase* output : outputs_) output->reconciliationTask().del();
  copy6_.task().del();
  copy4_.task().del();
  if (scanStateReactor_) scanStateReactor_->forget();
  scanStateReactor_.reset();
  hoIp6FlowConfigSm1_.reset();
  hoIpFlowConfigSm0_.reset();
  for (OutputBase* output : outputs_) output->seenDelAll();
}

Kiv::Ptr<SftPexaFtHOCSM> SftPexaFtHOCSM::SftPexaFtHOCSMIs(
    const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
    const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
    const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
    const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter, const Kiv::Ptr<Counters>& localCounter,
    const Kiv::Ptr<SftPexaDrovaHelper>& helper, const Zun::SmControl& drovaControl) {
  return Kiv::makePtr<SftPexaFtHOCSM>(hoFlowConfig, hoFlowStatus, hoFlowCounter, hosStateCounter,
                                      localCounter, helper, drovaControl);
}

Kiv::Ptr<SftPexaFtHOCSM> sftPexaFtHOCSMFactory(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
                                               const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
                                               const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
                                               const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter,
                                               const Kiv::Ptr<SftPexaFtHOCSM::Counters>& localCounter,
                                               const Kiv::Ptr<SftPexaDrovaHelper>& helper,
                                               const Zun::SmControl& drovaControl) {
  return SftPexaFtHOCSM::SftPexaFtHOCSMIs(hoFlowConfig, hoFlowStatus, hoFlowCounter, hosStateCounter,
                                          localCounter, helper, drovaControl);
}

void SftPexaFtHOCSM::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  PtrInterface::hasNotificationActiveIs(active);
  scanStateReactor_->hasNotificationActiveIs(active);
  outputStateReactor_->hasNotificationActiveIs(active);
  hoIp6FlowConfigSm1_->hasNotificationActiveIs(active);
  hoIpFlowConfigSm0_->hasNotificationActiveIs(active);
  for (OutputBase* output : outputs_) output->reconciliationTask().hasNotificationActiveIs(active);
  copy6_.task().hasNotificationActiveIs(active);
  copy4_.task().hasNotificationActiveIs(active);
}

void SftPexaFtHOCSM::skeinHandleIs(Skein::TraceHandle* handle) {
  drovaControl_.skeinHandleIs(handle);
  trace_.skeinHandleIs(handle);
}

}  // namespace SampledFlowTracker
