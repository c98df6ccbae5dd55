// The whole of what the input step does with a packet, from its bytes to its counter: parsing, the interface
// test, key, lookup, the flow's local counter or the sampler, and the reasons counted. One packet at a time,
// and in bursts as the agent takes them, looked at ahead. Nothing is prepared outside the measured loop but
// the packets' bytes.
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <memory>

#include "Flows.h"
#include "Pexa.h"
#include "SftPexaPlugin/SamplerSteps.h"
#include "pexa/NamedCounters.h"

namespace SftBench {
namespace {

// `hit` and `zipf` are of flows in hardware: visited once each, and some more often.
enum class Case { hit, zipf, miss, wrongState, disabled, icmp };

constexpr bool counts(Case which) {
  return which == Case::hit || which == Case::zipf;
}

// Packets of the flows in the order of their visit, one behind the other as a receive ring has them:
// Ethernet, one tag, IP, 20 bytes.
class Packets {
 public:
  static constexpr std::size_t kStride = 128;

  template <class Domain>
  static Packets of(std::size_t flows, Visits visits, std::uint8_t generation, std::uint8_t ipProto) {
    Packets packets;
    packets.bytes_.resize(flows * kStride);
    std::uint8_t* at = packets.bytes_.data();
    for (const std::uint32_t i : visitOrder(flows, visits)) {
      packets.length_ = write(at, flow<Domain>(i, generation), ipProto);
      at += kStride;
    }
    return packets;
  }
  std::size_t size() const { return bytes_.size() / kStride; }
  Pavo::Pkt pkt(std::size_t i) const { return {bytes_.data() + i * kStride, length_, length_}; }

 private:
  static void put16(std::uint8_t* at, std::uint32_t value) {
    at[0] = static_cast<std::uint8_t>(value >> 8);
    at[1] = static_cast<std::uint8_t>(value);
  }
  template <class Key>
  static std::uint32_t write(std::uint8_t* at, const Key& key, std::uint8_t ipProto) {
    constexpr std::uint32_t kAddress = Key::Address::kBytes;
    constexpr bool kV4 = kAddress == 4;
    std::uint8_t* ip = at + 18;
    put16(at + 12, 0x8100);
    put16(at + 14, key.vlan);
    put16(at + 16, kV4 ? 0x0800 : 0x86dd);
    ip[0] = kV4 ? 0x45 : 0x60;
    put16(ip + (kV4 ? 2 : 4), kV4 ? 40 : 20);
    ip[kV4 ? 9 : 6] = ipProto;
    std::memcpy(ip + (kV4 ? 12 : 8), key.srcAddr.bytes.data(), kAddress);
    std::memcpy(ip + (kV4 ? 16 : 24), key.dstAddr.bytes.data(), kAddress);
    std::uint8_t* l4 = ip + (kV4 ? 20 : 40);
    put16(l4, key.srcPort);
    put16(l4 + 2, key.dstPort);
    l4[12] = 0x50;
    return static_cast<std::uint32_t>(l4 + 20 - at);
  }

  std::vector<std::uint8_t> bytes_;
  std::uint32_t length_ = 0;
};

// An agent's input side around one step.
template <class Domain>
struct Path {
  Path(std::size_t flows, Case which) {
    const auto port = Kiv::makePtr<Pexa::PexaPortBase>(kIntf, Pavo::IntfId(kIntf), 0U, std::uint16_t{1});
    inputPort = port;
    ports->portAdd(port);
    config->hwOffloadIpv4Is(which != Case::disabled);
    config->hwOffloadIpv6Is(which != Case::disabled);
    config->sampleRateIs(1'000'000'000);
    sftSflowHwConfig->ingressInterfacesIs({Pavo::IntfId(kIntf)});
    auto& map = status->map<Domain>();
    Quell::attachAnonymous(map, flows);
    const HoFlowState state = which == Case::wrongState ? HoFlowState::overflow : HoFlowState::inHardware;
    for (std::uint32_t i = 0; i < flows; ++i) map.insert(SftBench::status<Domain>(i, state));
    packets = Packets::of<Domain>(flows, which == Case::zipf ? Visits::zipf : Visits::uniform,
                                  which == Case::miss ? 1 : 0, which == Case::icmp ? (kV4 ? 1 : 58) : 6);
    helper =
        SampledFlowTracker::SftSamplerHelper::SftSamplerHelperIs({}, ports, {}, {}, config, sftSflowHwConfig);
    step = Kiv::makePtr<SampledFlowTracker::SftInputSampler>(helper, status, counters, config);
    if (counts(which)) {
      for (std::uint32_t i = 0; i < flows; ++i) counters->counterIs(flow<Domain>(i));
    }
  }
  static constexpr bool kV4 = FlowTracking::IpFamily<Domain>::kIndex == 0;

  void receive(Pexa::PacketState& packet, std::size_t i) {
    packet.pktIs(packets.pkt(i));
    packet.inputPort = &inputPort;
    packet.namedCounters = named;
    packet.packetNumber = i;
    packet.vlan = Bridging::VlanIdOrAnyOrNone(10);
  }

  Kiv::Ptr<Pexa::Ports> ports = Kiv::makePtr<Pexa::Ports>("ports");
  Kiv::Ptr<const Pexa::PexaPortBase> inputPort;
  Kiv::Ptr<HwFlowTracking::Config> config = Kiv::makePtr<HwFlowTracking::Config>("config");
  Kiv::Ptr<Sflow::HwConfig> sftSflowHwConfig = Kiv::makePtr<Sflow::HwConfig>("sft");
  Kiv::Ptr<FlowTracking::HoFlowStatus> status = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> counters =
      Pexa::Counter::pexaSftHoCounterCollectionFactory("SftHardwareOffload");
  Kiv::Ptr<SampledFlowTracker::SftSamplerHelper> helper;
  Kiv::Ptr<SampledFlowTracker::SftInputSampler> step;
  Pexa::PexaNamedCounters* named = nullptr;
  Packets packets;
};

template <class Domain>
void expectCounted(benchmark::State& state, const Path<Domain>& path, Case which, std::uint64_t packets) {
  std::uint64_t counted = 0;
  const auto& map = path.counters->template counters<Domain>();
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry)) {
    counted += entry->value->packets();
  }
  if (counted != (counts(which) ? packets : 0)) state.SkipWithError("a decision went wrong");
}

template <class Domain, Case Which, std::size_t Burst, bool Named>
void Decision(benchmark::State& state) {
  const auto flows = static_cast<std::size_t>(state.range(0));
  Path<Domain> path(flows, Which);
  Pexa::NamedCounters named;
  if (Named) path.named = &named;
  std::array<Pexa::PacketState, Burst> burst;
  std::vector<Pexa::PacketContext> contexts;
  for (Pexa::PacketState& packet : burst) contexts.emplace_back(packet);
  std::size_t at = 0;
  for (auto _ : state) {
    const Kiv::System::TimeHold hold;
    for (std::size_t i = 0; i < Burst; ++i) path.receive(burst[i], at + i);
    if (Burst > 1) path.step->lookAhead(contexts);
    for (const Pexa::PacketContext& context : contexts) path.step->process(context);
    at = (at + Burst) % flows;
  }
  const auto packets = static_cast<std::uint64_t>(state.iterations()) * Burst;
  state.SetItemsProcessed(static_cast<std::int64_t>(packets));
  expectCounted(state, path, Which, packets);
}

void allSizes(benchmark::internal::Benchmark* bench) {
  for (const std::int64_t size : sizes()) bench->Arg(size);
}
// What happens before the lookup does not depend on the table.
void oneSize(benchmark::internal::Benchmark* bench) {
  bench->Arg(kSmallSize);
}

template <class Domain, Case Which>
void add(const std::string& name, void (*arguments)(benchmark::internal::Benchmark*)) {
  const std::string full = "decision/" + std::string(FlowTracking::IpFamily<Domain>::kName) + '/' + name;
  benchmark::RegisterBenchmark((full + "/single").c_str(), Decision<Domain, Which, 1, false>)
      ->Apply(arguments);
  benchmark::RegisterBenchmark((full + "/burst").c_str(), Decision<Domain, Which, kBurst, false>)
      ->Apply(arguments);
  benchmark::RegisterBenchmark((full + "/burst_reasons").c_str(), Decision<Domain, Which, kBurst, true>)
      ->Apply(arguments);
}
template <class Domain>
bool addAll() {
  add<Domain, Case::hit>("hit", allSizes);
  add<Domain, Case::zipf>("zipf", allSizes);
  add<Domain, Case::miss>("miss", allSizes);
  add<Domain, Case::wrongState>("wrong_state", allSizes);
  add<Domain, Case::disabled>("disabled", oneSize);
  add<Domain, Case::icmp>("not_tcp_udp", oneSize);
  return true;
}
const bool added = addAll<IPv4>() && addAll<IPv6>();

}  // namespace
}  // namespace SftBench
