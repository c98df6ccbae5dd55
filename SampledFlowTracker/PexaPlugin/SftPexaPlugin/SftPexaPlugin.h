// The plugin's root entity: it holds every mounted entity and every object of the feature, and is the only
// place that wires them to one another.
//
// Its life, driven by the agent: doMounts (what is requested: StateMounts.h), mountsComplete (what came is
// looked up), activeInit (everything is built, in a fixed order), destruction (everything is taken down, in a
// fixed order). In standby nothing is built. Threading: the agent's event thread.
#pragma once

#include "ConfigReactor.h"
#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HoStatus.h"
#include "HosStateCounter.h"
#include "HwFlowTracking.h"
#include "HwFlowWatcher.h"
#include "Interface.h"
#include "OwnedChild.h"
#include "PexaPlugin.h"
#include "PexaSftHoCounterCollection.h"
#include "SamplerHelper.h"
#include "SamplerSteps.h"
#include "Sflow.h"
#include "SftPexa/SftPexaFtHOCSM.h"
#include "SftPexaHelper/SftPexaDrovaHelper.h"
#include "Zun.h"

namespace SampledFlowTracker {

// Whether IPv6 flows can be offloaded: the feature toggle "HwFlowTrackingOffloadV6", read once in the
// process.
bool toggleHwFlowTrackingOffloadV6Enabled();

class SftPexaPlugin : public Pexa::PexaPluginBase {
 public:
  // Changes are announced under these. The order is that of the members, which go in the reverse order.
  enum Attr : Kiv::AttributeId {
    ftrCapabilitiesAttr = 1,
    fwCapabilitiesAttr,
    sftHwTrackingConfigAttr,
    sflowHwConfigAttr,
    sflowHwStatusAttr,
    sftSflowHwConfigAttr,
    hoFlowConfigAttr,
    hoFlowStatusAttr,
    hoFlowCounterAttr,
    hosStateCounterAttr,
    hoStatusAttr,
    ethIntfStatusDirAttr,
    sftSamplerHelperAttr,
    inputSamplerAttr,
    outputSamplerAttr,
    sftPexaFtHoConfigReactorAttr,
    hocSmAttr,
    drovaHelperAttr,
    localHoCountersAttr
  };

  explicit SftPexaPlugin(const Kiv::String& name);
  // Takes the children down, each dropped before the next: the sampler helper, the steps, the config reactor,
  // the state machine, the overflow helper, the local counters. What the agent itself holds of them (steps in
  // its pipelines, the counters in its display) lives on until the agent drops it.
  ~SftPexaPlugin() override;
  // Creates one with notifications active.
  static Kiv::Ptr<SftPexaPlugin> SftPexaPluginIs(const Kiv::String& name);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  void doMounts(const Kiv::Ptr<Pexa::PluginContext>& context) override;
  // Takes each mounted entity; one that is absent, or of another type, leaves its attribute empty.
  void mountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) override;
  // Publishes what this agent can do, builds the children and puts the steps into the pipelines; the mode
  // does not matter. Without the agent object the shared tables stay empty and everything else goes on.
  // REQUIRES: the plugin has joined a plugin manager; the three entities it publishes to (sflowHwStatus,
  // ftrCapabilities, fwCapabilities) are mounted. What a child's construction throws is passed on; the
  // earlier children stay.
  void activeInit(Pexa::PexaMode mode) override;
  // What the children count, "sft_..."; nothing of those that are not there (PluginMetrics.cpp).
  void metricsInto(Metrics::Snapshot& snapshot) const override;

  const Kiv::Ptr<HwFlowTracking::Capabilities>& ftrCapabilities() const { return ftrCapabilities_; }
  const Kiv::Ptr<HwFlowWatcher::Capabilities>& fwCapabilities() const { return fwCapabilities_; }
  const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig() const { return sftHwTrackingConfig_; }
  const Kiv::Ptr<Sflow::HwConfig>& sflowHwConfig() const { return sflowHwConfig_; }
  const Kiv::Ptr<Sflow::HwStatus>& sflowHwStatus() const { return sflowHwStatus_; }
  const Kiv::Ptr<const Sflow::HwConfig>& sftSflowHwConfig() const { return sftSflowHwConfig_; }
  const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig() const { return hoFlowConfig_; }
  const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus() const { return hoFlowStatus_; }
  const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter() const { return hoFlowCounter_; }
  const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter() const { return hosStateCounter_; }
  const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus() const { return hoStatus_; }
  const Kiv::Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const { return ethIntfStatusDir_; }
  const Kiv::Ptr<SftSamplerHelper>& sftSamplerHelper() const { return sftSamplerHelper_.get(); }
  const Kiv::Ptr<SftInputSampler>& inputSampler() const { return inputSampler_.get(); }
  const Kiv::Ptr<SftOutputSampler>& outputSampler() const { return outputSampler_.get(); }
  const Kiv::Ptr<SftPexaFtHoConfigReactor>& sftPexaFtHoConfigReactor() const { return configReactor_.get(); }
  const Kiv::Ptr<SftPexaFtHOCSM>& hocSm() const { return hocSm_.get(); }
  const Kiv::Ptr<SftPexaDrovaHelper>& drovaHelper() const { return drovaHelper_.get(); }
  const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& localHoCounters() const {
    return localHoCounters_.get();
  }

  void ftrCapabilitiesIs(const Kiv::Ptr<HwFlowTracking::Capabilities>& value);
  void fwCapabilitiesIs(const Kiv::Ptr<HwFlowWatcher::Capabilities>& value);
  void sftHwTrackingConfigIs(const Kiv::Ptr<const HwFlowTracking::Config>& value);
  void sflowHwConfigIs(const Kiv::Ptr<Sflow::HwConfig>& value);
  void sflowHwStatusIs(const Kiv::Ptr<Sflow::HwStatus>& value);
  void sftSflowHwConfigIs(const Kiv::Ptr<const Sflow::HwConfig>& value);
  void hoFlowConfigIs(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& value);
  void hoFlowStatusIs(const Kiv::Ptr<FlowTracking::HoFlowStatus>& value);
  void hoFlowCounterIs(const Kiv::Ptr<FlowTracking::HoFlowCounter>& value);
  void hosStateCounterIs(const Kiv::Ptr<FlowTracking::HosStateCounter>& value);
  void hoStatusIs(const Kiv::Ptr<FlowTracking::HoStatus>& value);
  void ethIntfStatusDirIs(const Kiv::Ptr<const Interface::EthIntfStatusDir>& value);

  // Children. Is: keeps the child that was built from the same arguments, otherwise builds one and drops the
  // old one. Del: takes the child out and returns it; empty, and nobody told, when there is none.
  Kiv::Ptr<SftSamplerHelper> sftSamplerHelperIs(
      const Kiv::Ptr<const Sflow::HwStatus>& sflowHwStatus, const Kiv::Ptr<const Pexa::Ports>& ports,
      const Kiv::Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir,
      const Kiv::Ptr<const Sflow::HwConfig>& sflowHwConfig,
      const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig,
      const Kiv::Ptr<const Sflow::HwConfig>& sftSflowHwConfig);
  Kiv::Ptr<SftInputSampler> inputSamplerIs(
      const Kiv::Ptr<SftSamplerHelper>& sftSamplerHelper,
      const Kiv::Ptr<const FlowTracking::HoFlowStatus>& hoFlowStatus,
      const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& localHoCounters,
      const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig);
  Kiv::Ptr<SftOutputSampler> outputSamplerIs(
      const Kiv::Ptr<SftSamplerHelper>& sftSamplerHelper,
      const Kiv::Ptr<const FlowTracking::HoFlowStatus>& hoFlowStatus,
      const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& localHoCounters,
      const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig);
  Kiv::Ptr<SftPexaFtHoConfigReactor> sftPexaFtHoConfigReactorIs(
      const Kiv::Ptr<const HwFlowTracking::Config>& sftHwTrackingConfig,
      const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus);
  Kiv::Ptr<SftPexaFtHOCSM> hocSmIs(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
                                   const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
                                   const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
                                   const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter,
                                   const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& localHoCounters,
                                   const Kiv::Ptr<SftPexaDrovaHelper>& drovaHelper,
                                   const Zun::SmControl& drovaControl);
  Kiv::Ptr<SftPexaDrovaHelper> drovaHelperIs(const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter);
  // The collection becomes a child entity of the plugin.
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> localHoCountersIs(const Kiv::String& name);

  Kiv::Ptr<SftSamplerHelper> sftSamplerHelperDel();
  Kiv::Ptr<SftInputSampler> inputSamplerDel();
  Kiv::Ptr<SftOutputSampler> outputSamplerDel();
  Kiv::Ptr<SftPexaFtHoConfigReactor> sftPexaFtHoConfigReactorDel();
  Kiv::Ptr<SftPexaFtHOCSM> hocSmDel();
  Kiv::Ptr<SftPexaDrovaHelper> drovaHelperDel();
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> localHoCountersDel();

 private:
  template <class Owned, class Make, class... Args>
  auto childIs(Owned& owned, Kiv::AttributeId attribute, const Make& make, const Args&... args);
  template <class Owned>
  auto childDel(Owned& owned, Kiv::AttributeId attribute);
  template <class Owned>
  auto activeChildDel(Owned& owned, Kiv::AttributeId attribute);

  // The parts of activeInit.
  void lookUpSharedTables(const Pexa::PluginManager& manager);
  void publishCapabilities();
  void buildChildren(const Pexa::PluginManager& manager);
  void insertSteps(const Pexa::PluginManager& manager);

  using Counters = Pexa::Counter::PexaSftHoCounterCollection;
  template <class Step>
  using OwnedStep = OwnedChild<Step, Kiv::Ptr<SftSamplerHelper>, Kiv::Ptr<const FlowTracking::HoFlowStatus>,
                               Kiv::Ptr<Counters>, Kiv::Ptr<const HwFlowTracking::Config>>;

  Kiv::Ptr<HwFlowTracking::Capabilities> ftrCapabilities_;
  Kiv::Ptr<HwFlowWatcher::Capabilities> fwCapabilities_;
  Kiv::Ptr<const HwFlowTracking::Config> sftHwTrackingConfig_;
  Kiv::Ptr<Sflow::HwConfig> sflowHwConfig_;
  Kiv::Ptr<Sflow::HwStatus> sflowHwStatus_;
  Kiv::Ptr<const Sflow::HwConfig> sftSflowHwConfig_;
  Kiv::Ptr<const FlowTracking::HoFlowConfig> hoFlowConfig_;
  Kiv::Ptr<FlowTracking::HoFlowStatus> hoFlowStatus_;
  Kiv::Ptr<FlowTracking::HoFlowCounter> hoFlowCounter_;
  Kiv::Ptr<FlowTracking::HosStateCounter> hosStateCounter_;
  Kiv::Ptr<FlowTracking::HoStatus> hoStatus_;
  Kiv::Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
  OwnedChild<SftSamplerHelper, Kiv::Ptr<const Sflow::HwStatus>, Kiv::Ptr<const Pexa::Ports>,
             Kiv::Ptr<const Interface::EthIntfStatusDir>, Kiv::Ptr<const Sflow::HwConfig>,
             Kiv::Ptr<const HwFlowTracking::Config>, Kiv::Ptr<const Sflow::HwConfig>>
      sftSamplerHelper_;
  OwnedStep<SftInputSampler> inputSampler_;
  OwnedStep<SftOutputSampler> outputSampler_;
  OwnedChild<SftPexaFtHoConfigReactor, Kiv::Ptr<const HwFlowTracking::Config>,
             Kiv::Ptr<FlowTracking::HoStatus>>
      configReactor_;
  OwnedChild<SftPexaFtHOCSM, Kiv::Ptr<const FlowTracking::HoFlowConfig>, Kiv::Ptr<FlowTracking::HoFlowStatus>,
             Kiv::Ptr<FlowTracking::HoFlowCounter>, Kiv::Ptr<FlowTracking::HosStateCounter>,
             Kiv::Ptr<Counters>, Kiv::Ptr<SftPexaDrovaHelper>, Zun::SmControl>
      hocSm_;
  OwnedChild<SftPexaDrovaHelper, Kiv::Ptr<FlowTracking::HosStateCounter>> drovaHelper_;
  OwnedChild<Counters, Kiv::String> localHoCounters_;
};

// The same as SftPexaPlugin::SftPexaPluginIs.
Kiv::Ptr<SftPexaPlugin> sftPexaPluginFactory(const Kiv::String& name);

}  // namespace SampledFlowTracker
