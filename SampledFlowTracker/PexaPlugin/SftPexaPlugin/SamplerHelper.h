// The feature's sFlow sampler: which interfaces take part in each direction, and the sampling rate.
//
// Neighbours: both steps (SamplerSteps.h) ask it and hand it the packets that are not counted in hardware;
// its base does the sampling. Threading: the agent's event thread; asked for each packet.
#pragma once

#include <array>

#include "HwFlowTracking.h"
#include "Sflow.h"

namespace SampledFlowTracker {

class SftSamplerHelper : public Sflow::SflowSamplerHelperBase {
 public:
  // Any reference may be empty: without a configuration of the feature no interface takes part, without a
  // flow-tracking configuration the rate is 0.
  SftSamplerHelper(Kiv::Ptr<const Sflow::HwStatus> sflowHwStatus, Kiv::Ptr<const Pexa::Ports> ports,
                   Kiv::Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
                   Kiv::Ptr<const Sflow::HwConfig> sflowHwConfig,
                   Kiv::Ptr<const HwFlowTracking::Config> sftHwTrackingConfig,
                   Kiv::Ptr<const Sflow::HwConfig> sftSflowHwConfig);
  static Kiv::Ptr<SftSamplerHelper> SftSamplerHelperIs(
      const Kiv::Ptr<const Sflow::HwStatus>& sflowHwStatus, const Kiv::Ptr<const Pexa::Ports>& ports,
      const Kiv::Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir,
      const Kiv::Ptr<const Sflow::HwConfig>& sflowHwConfig,
      const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig,
      const Kiv::Ptr<const Sflow::HwConfig>& sftSflowHwConfig);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Both directions share the rate of the flow-tracking configuration: packets are sampled 1 in this many; 0:
  // none.
  std::uint32_t ingressSampleRate() const override;
  std::uint32_t egressSampleRate() const override;
  void kivDoZombieReactors(bool zombie) override;
  void hasNotificationActiveIs(bool active) override;

  // Whether a packet received (sent) on the interface is a candidate for flow tracking. False for every
  // interface while the regular sFlow configuration is on; that is silent. An interface that is not
  // configured is traced.
  bool ingressEnabled(const Pavo::IntfId& intfId) const;
  bool egressEnabled(const Pavo::IntfId& intfId) const;
  // The same, silently.
  bool samplingWanted(Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId) const override;

  const Kiv::Ptr<const Sflow::HwConfig>& sflowHwConfig() const { return sflowHwConfig_; }
  const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig() const { return sftHwTrackingConfig_; }
  const Kiv::Ptr<const Sflow::HwConfig>& sftSflowHwConfig() const { return sftSflowHwConfig_; }

 private:
  bool regularSflowEnabled() const { return sflowHwConfig_ && sflowHwConfig_->enabled(); }
  bool configured(Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId) const;
  bool lookUp(Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId) const;

  // The last answer in each direction: packets come in bursts on one interface. Good for one generation of
  // the configuration. It spares a hash and a probe for each packet, an eighth of a decision.
  struct Answer {
    Pavo::IntfId intfId;
    std::uint32_t generation = 0;
    bool configured = false;
  };
  mutable std::array<Answer, 2> answers_;

  Kiv::Ptr<const Sflow::HwConfig> sflowHwConfig_;
  Kiv::Ptr<const HwFlowTracking::Config> sftHwTrackingConfig_;
  Kiv::Ptr<const Sflow::HwConfig> sftSflowHwConfig_;
};

}  // namespace SampledFlowTracker
