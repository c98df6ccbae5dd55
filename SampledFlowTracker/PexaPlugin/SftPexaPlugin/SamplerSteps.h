// The feature's two pipeline steps: "SftInput" on received packets, "SftOutput" on packets about to leave.
//
// For each packet a step asks the offload decision; a packet whose flow is in hardware has been counted by
// it, any other is handed to the sampler. A step never stops a packet. Both steps are one body; what differs
// by direction is in the trait that it is given. Threading: the agent's event thread.
#pragma once

#include "HoFlowStatus.h"
#include "HwFlowTracking.h"
#include "OffloadLookAhead.h"
#include "PexaPipeline.h"
#include "PexaSftHoCounterCollection.h"
#include "SamplerHelper.h"

namespace SampledFlowTracker {

using PortPtr = Kiv::Ptr<const Pexa::PexaPortBase>;

// Received packets: the input port stands for both ports. An interface that takes no part is declined
// silently.
struct InputDirection {
  using Step = Pexa::InputPipelineStep;
  using Context = Pexa::PacketContext;
  static constexpr std::string_view kTypeName = "SampledFlowTracker::SftInputSampler";
  static constexpr std::string_view kStepName = "SftInput";
  static constexpr unsigned kPosition = 240;
  static constexpr auto kDirection = Bridging::AllowedTrafficDirection::ingress;

  static Pexa::PacketContext packetContext(const Context& context) { return context; }
  static const PortPtr& srcPort(const Context& context) { return context.inputPort(); }
  static const PortPtr& dstPort(const Context& context) { return context.inputPort(); }
  // The port on whose interface it depends whether the packet takes part.
  static const PortPtr& watchedPort(Pexa::PacketContext pktCtx, const PortPtr&) { return pktCtx.inputPort(); }
  static bool enabled(const SftSamplerHelper& helper, const Pavo::IntfId& intfId) {
    return helper.ingressEnabled(intfId);
  }
  static void declined(const Pavo::IntfId&) {}
  // What the decision is told of the interface; for ingress it takes it from the packet itself.
  static const Pavo::IntfId& decisionIntf(const Pavo::IntfId&) {
    static constexpr Pavo::IntfId kNone;
    return kNone;
  }
  static void sample(SftSamplerHelper& helper, const Context& context) {
    helper.maybeSampleIngress(context.pkt(), context.inputPort());
  }
};

// Packets about to leave. Declining is traced, unlike on the way in; both are relied upon.
struct OutputDirection {
  using Step = Pexa::OutputPipelineStep;
  using Context = Pexa::OutputPipelineContext;
  static constexpr std::string_view kTypeName = "SampledFlowTracker::SftOutputSampler";
  static constexpr std::string_view kStepName = "SftOutput";
  static constexpr unsigned kPosition = 310;
  static constexpr auto kDirection = Bridging::AllowedTrafficDirection::egress;

  static Pexa::PacketContext packetContext(const Context& context) { return context.packetContext(); }
  static const PortPtr& srcPort(const Context& context) { return context.inputPort(); }
  static const PortPtr& dstPort(const Context& context) { return context.outputPort(); }
  static const PortPtr& watchedPort(Pexa::PacketContext, const PortPtr& dstPort) { return dstPort; }
  static bool enabled(const SftSamplerHelper& helper, const Pavo::IntfId& intfId) {
    return helper.egressEnabled(intfId);
  }
  static void declined(const Pavo::IntfId& intfId);
  static const Pavo::IntfId& decisionIntf(const Pavo::IntfId& intfId) { return intfId; }
  static void sample(SftSamplerHelper& helper, const Context& context) {
    helper.maybeSampleEgress(context.packetContext().pkt(), context.inputPort(), context.outputPort());
  }
};

template <class Direction>
class SftSampler final : public Direction::Step {
 public:
  using Context = typename Direction::Context;
  using HelperPtr = Kiv::Ptr<SftSamplerHelper>;
  using StatusPtr = Kiv::Ptr<const FlowTracking::HoFlowStatus>;
  using CountersPtr = Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>;
  using ConfigPtr = Kiv::Ptr<const HwFlowTracking::Config>;

  // REQUIRES: a helper and counters. Without a status table no flow is in hardware; without a configuration
  // no family is offloaded.
  SftSampler(const HelperPtr& sftSamplerHelper, const StatusPtr& hoFlowStatus,
             const CountersPtr& localHoCounters, const ConfigPtr& sftHwTrackingConfig);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Always proceeds, whether the packet was counted, sampled or neither.
  Pexa::StepResult process(Context context) override;
  void lookAhead(std::span<const Context> burst) override;
  // Whether the packet's flow is in hardware; if so it has been counted. Also to be invoked by name.
  bool maybeOffload(Pexa::PacketContext pktCtx, const PortPtr& srcPort, const PortPtr& dstPort);

  const HelperPtr& sftSamplerHelper() const { return sftSamplerHelper_; }
  const StatusPtr& hoFlowStatus() const { return hoFlowStatus_; }
  const CountersPtr& localHoCounters() const { return localHoCounters_; }
  const ConfigPtr& sftHwTrackingConfig() const { return sftHwTrackingConfig_; }

 private:
  // The decision on a packet that was prepared under this number.
  bool decideAhead(std::uint8_t number, Pexa::PacketContext pktCtx);
  bool hwOffloadIpv4() const { return sftHwTrackingConfig_ && sftHwTrackingConfig_->hwOffloadIpv4(); }
  bool hwOffloadIpv6() const { return sftHwTrackingConfig_ && sftHwTrackingConfig_->hwOffloadIpv6(); }

  HelperPtr sftSamplerHelper_;
  StatusPtr hoFlowStatus_;
  CountersPtr localHoCounters_;
  ConfigPtr sftHwTrackingConfig_;
  OffloadLookAhead lookAhead_;
};

using SftInputSampler = SftSampler<InputDirection>;
using SftOutputSampler = SftSampler<OutputDirection>;
extern template class SftSampler<InputDirection>;
extern template class SftSampler<OutputDirection>;

}  // namespace SampledFlowTracker
