// The agent's own loop, pipeline and tables under packets that never end, while the state machine has work
// for seconds. What is measured is how long packets wait for the loop to come back to them.
#include <algorithm>
#include <asio.hpp>

#include "HwFlowTracking.h"
#include "PacketBuilder.h"
#include "Phases.h"
#include "Sflow.h"
#include "SftPexaPlugin/SamplerSteps.h"
#include "World.h"
#include "agent/AgentWork.h"
#include "agent/PatchPanel.h"

namespace SftBench {
namespace {

constexpr std::uint32_t kMostPackets = 65536;  // different ones; they come round again
constexpr std::uint32_t kRoom = 1 << 24;

// Gives a full burst whenever it is asked, and notes when it was asked.
class EndlessPort : public Capture::PortDevice {
 public:
  EndlessPort(std::vector<TestSupport::Packet> packets, std::function<bool()> enough,
              std::function<void()> stop)
      : packets_(std::move(packets)), enough_(std::move(enough)), stop_(std::move(stop)) {}

  Capture::PortKind kind() const override { return Capture::PortKind::device; }
  std::size_t receive(std::span<Capture::ReceivedPacket> room, double /*now*/) override {
    const Seconds now = Seconds::now();
    if (counts_.packetsIn != 0) waits_.push_back(now - last_);
    if (enough_()) stop_();  // after this burst: a turn without packets would sleep
    last_ = now;
    for (Capture::ReceivedPacket& each : room) {
      each.pkt = packets_[at_].pkt();
      at_ = (at_ + 1) % packets_.size();
      countIn(each.pkt);
    }
    return room.size();
  }
  void transmit(const Pavo::Pkt&, double /*now*/) override {}
  std::vector<Seconds>& waits() { return waits_; }

 private:
  std::vector<TestSupport::Packet> packets_;
  std::function<bool()> enough_;
  std::function<void()> stop_;
  std::vector<Seconds> waits_;
  Seconds last_;
  std::size_t at_ = 0;
};

class Sink : public Capture::PortDevice {
 public:
  Capture::PortKind kind() const override { return Capture::PortKind::device; }
  std::size_t receive(std::span<Capture::ReceivedPacket> /*room*/, double /*now*/) override { return 0; }
  void transmit(const Pavo::Pkt& pkt, double /*now*/) override { countOut(pkt); }
};

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
class Traffic {
 public:
  Traffic(World<Domain>& world, std::uint32_t flows)
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

  // Runs until the state machine is idle, and gives the waits, longest last.
  std::vector<Seconds> run() {
    asio::io_context io;
    Pexa::PatchPanel panel(ports_, steps_, reasons_, filters_);
    Pexa::EventLoop loop(io, ports_, panel);
    Pexa::TableWork tableWork(world_.tables());
    loop.workIs(&tableWork);
    loop.workIs(&world_.work());
    auto in = std::make_unique<EndlessPort>(
        packets_, [this] { return world_.idle(); }, [&loop] { loop.stop(); });
    EndlessPort& receiving = *in;
    auto out = std::make_unique<Sink>();
    const Sink& sending = *out;
    ports_.all()[0].device = std::move(in);
    ports_.all()[1].device = std::move(out);
    loop.run(false);
    require(sending.counts().packetsOut == receiving.counts().packetsIn, "every packet was forwarded");
    return std::move(receiving.waits());
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

void put(Report& report, const std::string& phase, std::vector<Seconds> waits) {
  require(!waits.empty(), "packets came while the state machine worked");
  const auto us = [&](double share, double Seconds::*clock) {
    std::sort(waits.begin(), waits.end(),
              [&](const Seconds& a, const Seconds& b) { return a.*clock < b.*clock; });
    const auto at = static_cast<std::size_t>(share * static_cast<double>(waits.size() - 1));
    return waits[at].*clock * 1e6;
  };
  report.put(phase + ": bursts", "", static_cast<double>(waits.size()));
  report.put(phase + ": median wait", "us", us(0.5, &Seconds::cpu));
  report.put(phase + ": 99.9% wait at most", "us", us(0.999, &Seconds::cpu));
  report.put(phase + ": longest wait", "us", us(1, &Seconds::cpu));
  report.put(phase + ": longest wait, on the wall", "us", us(1, &Seconds::wall));
}

}  // namespace

template <class Domain>
void runTraffic(Report& report, std::uint32_t flows) {
  World<Domain> world;
  for (std::uint32_t i = 0; i < flows; ++i) world.want(i);
  world.start(kRoom);
  Traffic<Domain> traffic(world, flows);
  put(report, "packets, first scan", traffic.run());
  require(world.flowsIn(HoFlowState::inHardware) == flows, "every flow is in hardware");

  world.stop();
  world.start(kRoom);
  put(report, "packets, restart", traffic.run());
  require(world.status().size() == flows, "every flow has a status still");
}
template void runTraffic<IPv4>(Report& report, std::uint32_t flows);
template void runTraffic<IPv6>(Report& report, std::uint32_t flows);

}  // namespace SftBench
