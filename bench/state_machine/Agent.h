// The agent's own loop over a world: two ports, the pipelines with the plugin's steps, the tables' work and
// the scheduler's.
#pragma once

#include <asio.hpp>

#include "HwFlowTracking.h"
#include "Load.h"
#include "Sflow.h"
#include "SftPexaPlugin/SamplerSteps.h"
#include "World.h"
#include "agent/AgentWork.h"
#include "agent/PatchPanel.h"

namespace SftBench {

inline constexpr std::uint32_t kMostPackets = 65536;  // different ones; they come round again

// One packet a flow, of flows spread over all.
template <class Domain>
std::vector<TestSupport::Packet> packets(std::uint32_t flows) {
  std::vector<TestSupport::Packet> result;
  std::vector<std::uint32_t> order = visitOrder(flows);
  order.resize(std::min(flows, kMostPackets));
  for (const std::uint32_t i : order) {
    const auto key = flow<Domain>(i);
    result.push_back(TestSupport::PacketBuilder()
                         .vlan(key.vlan)
                         .ip(key.srcAddr, key.dstAddr)
                         .tcp(key.srcPort, key.dstPort)
                         .payload(64)
                         .build());
  }
  return result;
}

// Ports, pipelines with the plugin's steps, and the loop.
template <class Domain>
class Agent {
 public:
  Agent(World<Domain>& world, std::uint32_t flows)
      : world_(world), ports_(twoPorts()), packets_(packets<Domain>(flows)) {
    config_->hwOffloadIpv4Is(true);
    config_->hwOffloadIpv6Is(true);
    config_->sampleRateIs(1'000'000);
    sampled_->ingressInterfacesIs({Pavo::IntfId(kIntf)});
    sampled_->egressInterfacesIs({Pavo::IntfId(kOut)});
    const auto helper = SampledFlowTracker::SftSamplerHelper::SftSamplerHelperIs({}, ports_.table(), {}, {},
                                                                                 config_, sampled_);
    steps_->addStep(Kiv::makePtr<SampledFlowTracker::SftInputSampler>(helper, world.statusTable(),
                                                                      world.localTable(), config_));
    steps_->addStep(Kiv::makePtr<SampledFlowTracker::SftOutputSampler>(helper, world.statusTable(),
                                                                       world.localTable(), config_));
  }

  struct Outcome {
    std::vector<Seconds> waits;  // from one burst to the next
    std::uint64_t dropped = 0;
    double carried = 0;  // packets a second of the processor's time
  };
  // Runs under a load until it is enough.
  Outcome run(const Load& load, const std::function<bool()>& enough) {
    asio::io_context io;
    Pexa::PatchPanel panel(ports_, steps_, reasons_, filters_);
    Pexa::EventLoop loop(io, ports_, panel);
    Pexa::TableWork tableWork(world_.tables());
    loop.workIs(&tableWork);
    loop.workIs(&world_.work());
    auto in = std::make_unique<LoadPort>(packets_, load, enough, [&loop] { loop.stop(); });
    LoadPort& receiving = *in;
    auto out = std::make_unique<Sink>();
    const Sink& sending = *out;
    ports_.all()[0].device = std::move(in);
    ports_.all()[1].device = std::move(out);
    loop.run(false);
    require(sending.counts().packetsOut == receiving.counts().packetsIn, "every packet was forwarded");
    return {std::move(receiving.waits()), receiving.dropped(), receiving.carried()};
  }

 private:
  static constexpr const char* kOut = "Ethernet2";
  static Pexa::AgentPorts twoPorts() {
    Pexa::AgentConfig config;
    for (const char* name : {kIntf, kOut}) {
      Pexa::PortConfig port;
      port.name = name;
      port.kind = Capture::PortKind::write;  // opened by nobody: the devices are put in by hand
      config.ports.push_back(port);
    }
    config.forwards = {{kIntf, kOut, {}}};
    return Pexa::AgentPorts(config);
  }

  World<Domain>& world_;
  Pexa::AgentPorts ports_;
  std::vector<TestSupport::Packet> packets_;
  Kiv::Ptr<Pexa::AllGenericPipelineSteps> steps_ = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  Kiv::Ptr<HwFlowTracking::Config> config_ = Kiv::makePtr<HwFlowTracking::Config>("config");
  Kiv::Ptr<Sflow::HwConfig> sampled_ = Kiv::makePtr<Sflow::HwConfig>("sampled");
  Pexa::NamedCounters reasons_;
  Capture::TraceFilters filters_;
};

}  // namespace SftBench
