// sFlow: its hardware configuration and status, and the sampler that features build on.
//
// A sampler picks packets per port and direction with a random skip whose mean is the configured rate, and
// hands each sample to the agent's receiver, which exports it (runtime/sflow). Threading: the agent's event
// thread; sampling runs on the packet path.
#pragma once

#include <cstdint>
#include <vector>

#include "Bridging.h"
#include "Interface.h"
#include "Kiv.h"
#include "Pavo.h"
#include "PexaPort.h"

namespace Sflow {

using IntfSet = Kiv::Set<Pavo::IntfId, Pavo::IntfIdHash>;

// The configuration of sFlow, or of a feature that samples as sFlow does: whether it is on, and the
// interfaces on which packets are sampled in each direction.
class HwConfig : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { enabledAttr = 1, ingressInterfacesAttr, egressInterfacesAttr };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // On the regular sFlow configuration: sFlow itself samples, and flow tracking leaves every interface to it.
  bool enabled() const { return enabled_; }
  const IntfSet& ingressInterfaces() const { return ingressInterfaces_; }
  const IntfSet& egressInterfaces() const { return egressInterfaces_; }
  void enabledIs(bool value) { attributeIs(enabled_, value, enabledAttr); }
  // The whole set at once: one notification when it changes. A name given twice counts once.
  void ingressInterfacesIs(const std::vector<Pavo::IntfId>& interfaces);
  void egressInterfacesIs(const std::vector<Pavo::IntfId>& interfaces);
  // By name.
  std::vector<Pavo::IntfId> ingressInterfaceList() const;
  std::vector<Pavo::IntfId> egressInterfaceList() const;
  // Moves on whenever one of the sets changes, so that an answer about them can be kept.
  std::uint32_t generation() const { return generation_; }

 private:
  bool enabled_ = false;
  IntfSet ingressInterfaces_;
  IntfSet egressInterfaces_;
  std::uint32_t generation_ = 1;
};

class HwStatus : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { sflowEthProtocolAttr = 1 };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // The Ethernet protocol under which this agent carries sampled packets.
  std::uint32_t sflowEthProtocol() const { return sflowEthProtocol_; }
  void sflowEthProtocolIs(std::uint32_t value) {
    attributeIs(sflowEthProtocol_, value, sflowEthProtocolAttr);
  }

 private:
  std::uint32_t sflowEthProtocol_ = 0;
};

class SflowSamplerHelperBase;

// One sampled packet. The packet's bytes and the ports are valid during the call that carries it.
struct Sample {
  Bridging::AllowedTrafficDirection direction = Bridging::AllowedTrafficDirection::ingress;
  Pavo::Pkt pkt;
  const Pexa::PexaPortBase* input = nullptr;   // null when the packet came from the agent itself
  const Pexa::PexaPortBase* output = nullptr;  // null for an ingress sample: not yet known
  std::uint32_t rate = 0;                      // 1 in `rate` packets
  std::uint32_t pool = 0;    // packets that could have been sampled so far, on this port and direction; wraps
  std::uint32_t drops = 0;   // samples lost so far, on this port and direction; wraps
  std::uint64_t serial = 0;  // samples taken so far on this port and direction, this one included
  SflowSamplerHelperBase* sampler = nullptr;  // who took it; never null

  // The port on which it was sampled.
  const Pexa::PexaPortBase& port() const {
    return direction == Bridging::AllowedTrafficDirection::egress ? *output : *input;
  }
};

// Where samples go; the agent's exporter. It also knows the samplers, for `sft samples`.
class SampleReceiver {
 public:
  virtual ~SampleReceiver() = default;
  // False when the sample had to be dropped; the sampler counts it. One that is lost after it was accepted is
  // reported to the sampler's sampleLost().
  virtual bool sampleIs(const Sample& sample) = 0;
  // A sampler names itself when it is built, if the ports have a receiver then; and when it goes, if they
  // have one then.
  virtual void samplerAdded(SflowSamplerHelperBase& sampler) = 0;
  virtual void samplerRemoved(SflowSamplerHelperBase& sampler) = 0;
};

// What a sampler did on one port in one direction.
struct SamplerState {
  std::uint32_t rate = 0;     // the rate the current skip was drawn for; 0 before the first packet
  std::uint64_t skip = 0;     // packets up to and including the next sample
  std::uint64_t pool = 0;     // packets that could have been sampled
  std::uint64_t samples = 0;  // samples taken
  std::uint64_t drops = 0;    // of them, dropped or lost by the receiver
};

class SflowSamplerHelperBase : public Kiv::Entity {
 public:
  SflowSamplerHelperBase(Kiv::String name, Kiv::Ptr<const HwStatus> sflowHwStatus,
                         Kiv::Ptr<const Pexa::Ports> ports,
                         Kiv::Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir);
  ~SflowSamplerHelperBase() override;

  // Packets are sampled 1 in this many; 0: none.
  virtual std::uint32_t ingressSampleRate() const = 0;
  virtual std::uint32_t egressSampleRate() const = 0;
  // A zombie is on its way out: it samples no more, and its counts stay as they are.
  virtual void kivDoZombieReactors(bool zombie);
  void hasNotificationActiveIs(bool active) override;
  // Whether packets on an interface are sampled at all. Asked for each packet, silently.
  virtual bool samplingWanted(Bridging::AllowedTrafficDirection direction,
                              const Pavo::IntfId& intfId) const = 0;

  // Samples the packet if it is its turn. A packet without a port, or on a port without an interface, is
  // never sampled; nor does it count in the pool, as while sampling is not wanted or the rate is 0.
  void maybeSampleIngress(const Pavo::Pkt& pkt, const Kiv::Ptr<const Pexa::PexaPortBase>& input) {
    if (isDue(ingress_, input.get(), Bridging::AllowedTrafficDirection::ingress, ingressSampleRate())) {
      takeSample(ingress_, *input, {Bridging::AllowedTrafficDirection::ingress, pkt, input.get()});
    }
  }
  void maybeSampleEgress(const Pavo::Pkt& pkt, const Kiv::Ptr<const Pexa::PexaPortBase>& input,
                         const Kiv::Ptr<const Pexa::PexaPortBase>& output) {
    if (isDue(egress_, output.get(), Bridging::AllowedTrafficDirection::egress, egressSampleRate())) {
      takeSample(egress_, *output,
                 {Bridging::AllowedTrafficDirection::egress, pkt, input.get(), output.get()});
    }
  }
  // A sample that the receiver had accepted did not get out. REQUIRES: it was taken here, on this port.
  void sampleLost(Bridging::AllowedTrafficDirection direction, std::uint32_t portIndex);

  const Kiv::Ptr<const HwStatus>& sflowHwStatus() const { return sflowHwStatus_; }
  const Kiv::Ptr<const Pexa::Ports>& ports() const { return ports_; }
  const Kiv::Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const { return ethIntfStatusDir_; }
  // By port index; a port that has seen no packet may be missing at the end.
  const std::vector<SamplerState>& states(Bridging::AllowedTrafficDirection direction) const {
    return direction == Bridging::AllowedTrafficDirection::egress ? egress_ : ingress_;
  }
  // Starts the random sequence anew, for tests that must repeat.
  void seedIs(std::uint64_t seed) { random_ = seed; }

 private:
  // Counts the packet; true when it is the one to sample.
  bool isDue(std::vector<SamplerState>& states, const Pexa::PexaPortBase* port,
             Bridging::AllowedTrafficDirection direction, std::uint32_t rate) {
    if (port == nullptr || port->intfId().empty() || zombie_) return false;
    if (rate == 0 || !samplingWanted(direction, port->intfId())) return false;
    const std::uint32_t index = port->portIndex();
    if (index >= states.size() || states[index].rate != rate) [[unlikely]]
      rateIs(states, index, rate);
    ++states[index].pool;
    return --states[index].skip == 0;
  }
  // Makes room for the port and draws its skip for the rate.
  void rateIs(std::vector<SamplerState>& states, std::uint32_t index, std::uint32_t rate);
  void takeSample(std::vector<SamplerState>& states, const Pexa::PexaPortBase& port, Sample sample);
  std::uint64_t nextSkip(std::uint32_t rate);

  Kiv::Ptr<const HwStatus> sflowHwStatus_;
  Kiv::Ptr<const Pexa::Ports> ports_;
  Kiv::Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
  std::vector<SamplerState> ingress_;
  std::vector<SamplerState> egress_;
  std::uint64_t random_;
  bool zombie_ = false;
};

}  // namespace Sflow
