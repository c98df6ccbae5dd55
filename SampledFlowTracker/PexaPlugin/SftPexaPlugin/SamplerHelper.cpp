#include "SamplerHelper.h"

#include "TraceHandles.h"

namespace SampledFlowTracker {

using Bridging::AllowedTrafficDirection;

namespace {
[[gnu::cold]] void writeNotConfigured(const Skein::CallSite& site, std::string_view text,
                                      const Pavo::IntfId& intfId) {
  traceBoth(site, Kiv::String(text).append(intfId.name()));
}

void traceNotConfigured(const Skein::CallSite& site, std::string_view text, const Pavo::IntfId& intfId) {
  if (ringTraced(site) || textTraced()) writeNotConfigured(site, text, intfId);
}
}  // namespace

SftSamplerHelper::SftSamplerHelper(Kiv::Ptr<const Sflow::HwStatus> sflowHwStatus,
                                   Kiv::Ptr<const Pexa::Ports> ports,
                                   Kiv::Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
                                   Kiv::Ptr<const Sflow::HwConfig> sflowHwConfig,
                                   Kiv::Ptr<const HwFlowTracking::Config> sftHwTrackingConfig,
                                   Kiv::Ptr<const Sflow::HwConfig> sftSflowHwConfig)
    : Sflow::SflowSamplerHelperBase("SampledFlowTracker", std::move(sflowHwStatus), std::move(ports),
                                    std::move(ethIntfStatusDir)),
      sflowHwConfig_(std::move(sflowHwConfig)),
      sftHwTrackingConfig_(std::move(sftHwTrackingConfig)),
      sftSflowHwConfig_(std::move(sftSflowHwConfig)) {}

Kiv::Ptr<SftSamplerHelper> SftSamplerHelper::SftSamplerHelperIs(
    const Kiv::Ptr<const Sflow::HwStatus>& sflowHwStatus, const Kiv::Ptr<const Pexa::Ports>& ports,
    const Kiv::Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir,
    const Kiv::Ptr<const Sflow::HwConfig>& sflowHwConfig,
    const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig,
    const Kiv::Ptr<const Sflow::HwConfig>& sftSflowHwConfig) {
  return Kiv::makePtr<SftSamplerHelper>(sflowHwStatus, ports, ethIntfStatusDir, sflowHwConfig,
                                        sftHwTrackingConfig, sftSflowHwConfig);
}

const Kiv::Type& SftSamplerHelper::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<SftSamplerHelper>("SampledFlowTracker::SftSamplerHelper")
          .attribute("sflowHwConfig", &SftSamplerHelper::sflowHwConfig)
          .attribute("sftHwTrackingConfig", &SftSamplerHelper::sftHwTrackingConfig)
          .attribute("sftSflowHwConfig", &SftSamplerHelper::sftSflowHwConfig)
          .constructor(&SftSamplerHelper::SftSamplerHelperIs, "sflowHwStatus", "ports", "ethIntfStatusDir",
                       "sflowHwConfig", "sftHwTrackingConfig", "sftSflowHwConfig")
          .build();
  return type;
}

std::uint32_t SftSamplerHelper::ingressSampleRate() const {
  return sftHwTrackingConfig_ ? sftHwTrackingConfig_->sampleRate() : 0;
}

std::uint32_t SftSamplerHelper::egressSampleRate() const {
  return ingressSampleRate();
}

void SftSamplerHelper::kivDoZombieReactors(bool zombie) {
  SflowSamplerHelperBase::kivDoZombieReactors(zombie);
}

void SftSamplerHelper::hasNotificationActiveIs(bool active) {
  SflowSamplerHelperBase::hasNotificationActiveIs(active);
}

bool SftSamplerHelper::lookUp(AllowedTrafficDirection direction, const Pavo::IntfId& intfId) const {
  const bool egress = direction == AllowedTrafficDirection::egress;
  return (egress ? sftSflowHwConfig_->egressInterfaces() : sftSflowHwConfig_->ingressInterfaces())
      .has(intfId);
}

bool SftSamplerHelper::configured(AllowedTrafficDirection direction, const Pavo::IntfId& intfId) const {
  if (!sftSflowHwConfig_) return false;
  const std::uint32_t generation = sftSflowHwConfig_->generation();
  Answer& answer = answers_[direction == AllowedTrafficDirection::egress ? 1 : 0];
  if (answer.generation != generation || !(answer.intfId == intfId)) [[unlikely]] {
    answer = {intfId, generation, lookUp(direction, intfId)};
  }
  return answer.configured;
}

bool SftSamplerHelper::ingressEnabled(const Pavo::IntfId& intfId) const {
  static constinit Skein::CallSite site("Sft", kTraceFile, __LINE__, "ingressEnabled", Skein::Volume::packet);
  if (regularSflowEnabled()) return false;
  if (configured(AllowedTrafficDirection::ingress, intfId)) return true;
  traceNotConfigured(site, "SftSampler: ingressEnabled drop packet on ", intfId);
  return false;
}

bool SftSamplerHelper::egressEnabled(const Pavo::IntfId& intfId) const {
  static constinit Skein::CallSite site("Sft", kTraceFile, __LINE__, "egressEnabled", Skein::Volume::packet);
  if (regularSflowEnabled()) return false;
  if (configured(AllowedTrafficDirection::egress, intfId)) return true;
  // The colon behind the function's name is in this text only; scripts match both texts.
  traceNotConfigured(site, "SftSampler: egressEnabled: drop packet on ", intfId);
  return false;
}

bool SftSamplerHelper::samplingWanted(AllowedTrafficDirection direction, const Pavo::IntfId& intfId) const {
  return !regularSflowEnabled() && configured(direction, intfId);
}

}  // namespace SampledFlowTracker
