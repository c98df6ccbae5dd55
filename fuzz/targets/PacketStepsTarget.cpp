// Any packets through both steps, with flows in the status table that the input chooses among those of its
// packets: what is counted, sampled and given as a reason is what a naive reading of the bytes says.
//
//   byte 0   bit 0, 1 IPv4, IPv6 offloaded · bit 2 regular sFlow · bit 3 looked at ahead
//   then one step after another, by its first byte modulo 4:
//        0   a packet: ports (low half in, high half out; 3 none in) · length · its bytes
//        1   the last packet again: ports · place of a byte · what it becomes
//        2   a status for the last packet's flow: direction and state · port
//        3   the same status is taken away: direction · port
#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include "FakePorts.h"
#include "FuzzInput.h"
#include "NaivePacket.h"
#include "PacketFixture.h"
#include "QuellMap.h"
#include "RecordingReceiver.h"
#include "SftPexaPlugin/SamplerHelper.h"
#include "SftPexaPlugin/SamplerSteps.h"

namespace {

using namespace SampledFlowTracker;
using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using FuzzSupport::NaiveFlow;
using FuzzSupport::NaivePacket;
using Pavo::IntfId;

constexpr std::size_t kPorts = 3;  // the first two take part
constexpr std::uint16_t kPortVlan = 1;

using Place = std::tuple<NaiveFlow, AllowedTrafficDirection, std::size_t>;  // flow, direction, port
using Counts = std::pair<std::uint64_t, std::uint64_t>;                     // packets, bytes

template <class Domain>
FlowTracking::FlowKey<Domain> keyOf(const NaiveFlow& flow) {
  FlowTracking::FlowKey<Domain> key;
  key.vlan = flow.vlan;
  std::copy_n(flow.addresses.begin(), key.srcAddr.kBytes, key.srcAddr.bytes.begin());
  std::copy_n(flow.addresses.begin() + key.srcAddr.kBytes, key.dstAddr.kBytes, key.dstAddr.bytes.begin());
  key.ipProto = flow.protocol;
  key.srcPort = flow.srcPort;
  key.dstPort = flow.dstPort;
  return key;
}

// The packet path as an agent has it. Every packet that may be sampled is (rate 1).
class PacketPath {
 public:
  explicit PacketPath(unsigned switches)
      : v4_((switches & 1U) != 0),
        v6_((switches & 2U) != 0),
        regular_((switches & 4U) != 0),
        ahead_((switches & 8U) != 0) {
    Quell::attachAnonymous(status_->map<Pavo::Traits::IPv4>());
    Quell::attachAnonymous(status_->map<Pavo::Traits::IPv6>());
    config_->hwOffloadIpv4Is(v4_);
    config_->hwOffloadIpv6Is(v6_);
    config_->sampleRateIs(1);
    regularConfig_->enabledIs(regular_);
    enabled_->ingressInterfacesIs({IntfId("Ethernet1"), IntfId("Ethernet2")});
    enabled_->egressInterfacesIs({IntfId("Ethernet1"), IntfId("Ethernet2")});
  }

  void packet(std::vector<std::uint8_t> bytes, unsigned ports) {
    const std::size_t in = ports % 4;
    const std::size_t out = (ports >> 4) % kPorts;
    // A packet of the agent's own has a VLAN of its own only when it is tagged; without one it has none to be
    // looked up by.
    const NaivePacket naive(bytes, kPortVlan);
    if (in == kPorts && !naive.tagged) return;
    last_ = naive;
    pass(bytes, in, out);
    expect(naive, AllowedTrafficDirection::ingress, in);
    expect(naive, AllowedTrafficDirection::egress, out);
    FUZZ_REQUIRE(reasons_ == expectedReasons_);
    FUZZ_REQUIRE(receiver_.samples.size() == expectedSamples_);
    receiver_.samples.clear();
    expectedSamples_ = 0;
  }

  void statusIs(AllowedTrafficDirection direction, HoFlowState state, std::size_t port) {
    if (!last_.flow) return;
    states_[{*last_.flow, direction, port}] = state;
    const auto store = [&]<class Domain>(Domain) {
      FlowTracking::HoFlowStatusRecord<Domain> record;
      record.key = {keyOf<Domain>(*last_.flow), direction, ports_[port]->intfId()};
      record.state = state;
      status_->map<Domain>().insert(record);
    };
    last_.flow->v6 ? store(Pavo::Traits::IPv6()) : store(Pavo::Traits::IPv4());
  }
  void statusDel(AllowedTrafficDirection direction, std::size_t port) {
    if (!last_.flow) return;
    const bool was = states_.erase({*last_.flow, direction, port}) != 0;
    const auto erase = [&]<class Domain>(Domain) {
      FUZZ_REQUIRE(was == status_->map<Domain>().erase(
                              {keyOf<Domain>(*last_.flow), direction, ports_[port]->intfId()}));
    };
    last_.flow->v6 ? erase(Pavo::Traits::IPv6()) : erase(Pavo::Traits::IPv4());
  }

  void checkCounters() {
    std::size_t v4 = 0, v6 = 0;
    for (const auto& [flow, counts] : counted_) {
      flow.v6 ? checkCounter<Pavo::Traits::IPv6>(flow, counts)
              : checkCounter<Pavo::Traits::IPv4>(flow, counts);
      ++(flow.v6 ? v6 : v4);
    }
    FUZZ_REQUIRE(counters_->counters<Pavo::Traits::IPv4>().size() == v4);
    FUZZ_REQUIRE(counters_->counters<Pavo::Traits::IPv6>().size() == v6);
  }

 private:
  // Once through both steps, from memory of exactly the packet's size: a sanitizer sees any read behind it.
  void pass(const std::vector<std::uint8_t>& bytes, std::size_t in, std::size_t out) {
    const std::unique_ptr<std::uint8_t[]> memory(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), memory.get());
    const auto length = static_cast<std::uint32_t>(bytes.size());
    Pexa::PacketState state;
    TestSupport::FakeNamedCounters named;
    state.parsed = Pexa::ParsedPacket(Pavo::Pkt(memory.get(), length, length));
    state.inputPort = in == kPorts ? nullptr : &ports_[in];
    state.namedCounters = &named;
    state.parsed.maybeDoFullParse();
    state.vlan = Bridging::VlanIdOrAnyOrNone(
        state.parsed.tagged() ? static_cast<std::uint16_t>(state.parsed.firstTag() & 0xfff) : kPortVlan);
    const Pexa::PacketContext received(state);
    if (ahead_) input_->lookAhead({&received, 1});
    FUZZ_REQUIRE(input_->process(received) == Pexa::StepResult::proceed);
    const Pexa::OutputPipelineContext sent(received, ports_[out]);
    if (ahead_) output_->lookAhead({&sent, 1});
    FUZZ_REQUIRE(output_->process(sent) == Pexa::StepResult::proceed);
    for (const auto& [reason, count] : named.counts)
      reasons_[std::get<0>(reason) + std::get<2>(reason)] += count;
  }

  void expect(const NaivePacket& packet, AllowedTrafficDirection direction, std::size_t port) {
    if (port >= 2 || regular_) return;
    const bool offloads = packet.ip && (packet.v6 ? v6_ : v4_);
    if (offloads) ++expectedReasons_[packet.v6 ? "Action Offloading IPv6" : "Action Offloading IPv4"];
    if (offloads && packet.flow) {
      const auto found = states_.find({*packet.flow, direction, port});
      if (found == states_.end()) {
        ++expectedReasons_["DropNo flow status"];
      } else if (found->second != HoFlowState::inHardware) {
        ++expectedReasons_["DropFlow state not in hardware"];
      } else {
        auto& [packets, bytes] = counted_[*packet.flow];
        ++packets;
        bytes += packet.ipBytes;
        return;
      }
    }
    ++expectedSamples_;
  }

  template <class Domain>
  void checkCounter(const NaiveFlow& flow, const Counts& counts) {
    const auto* entry = counters_->counters<Domain>().find(keyOf<Domain>(flow));
    FUZZ_REQUIRE(entry != nullptr);
    FUZZ_REQUIRE(entry->value->packets() == counts.first);
    FUZZ_REQUIRE(entry->value->bytes() == counts.second);
  }

  bool v4_, v6_, regular_, ahead_;
  NaivePacket last_;
  std::map<Place, HoFlowState> states_;
  std::map<NaiveFlow, Counts> counted_;
  std::map<std::string, std::uint64_t> reasons_, expectedReasons_;
  std::size_t expectedSamples_ = 0;

  TestSupport::FakePorts ports_{kPorts, kPortVlan};
  TestSupport::RecordingReceiver receiver_{ports_.ports};
  Kiv::Ptr<Sflow::HwConfig> regularConfig_ = Kiv::makePtr<Sflow::HwConfig>("sflow");
  Kiv::Ptr<Sflow::HwConfig> enabled_ = Kiv::makePtr<Sflow::HwConfig>("sampledflowtracker");
  Kiv::Ptr<HwFlowTracking::Config> config_ = Kiv::makePtr<HwFlowTracking::Config>("config");
  Kiv::Ptr<FlowTracking::HoFlowStatus> status_ = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> counters_ =
      Pexa::Counter::pexaSftHoCounterCollectionFactory("SftHardwareOffload");
  Kiv::Ptr<SftSamplerHelper> helper_ = SftSamplerHelper::SftSamplerHelperIs(
      Kiv::makePtr<Sflow::HwStatus>("hwstatus"), ports_.ports, Kiv::Ptr<const Interface::EthIntfStatusDir>(),
      regularConfig_, config_, enabled_);
  Kiv::Ptr<SftInputSampler> input_ = Kiv::makePtr<SftInputSampler>(helper_, status_, counters_, config_);
  Kiv::Ptr<SftOutputSampler> output_ = Kiv::makePtr<SftOutputSampler>(helper_, status_, counters_, config_);
};

AllowedTrafficDirection directionOf(unsigned byte) {
  return (byte & 1U) != 0 ? AllowedTrafficDirection::egress : AllowedTrafficDirection::ingress;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  PacketPath path(input.take<std::uint8_t>());
  std::vector<std::uint8_t> bytes;
  while (!input.empty()) {
    const unsigned what = input.take<std::uint8_t>() % 4;
    const unsigned how = input.take<std::uint8_t>();
    if (what == 0) {
      const auto taken = input.takeBytes(input.take<std::uint8_t>());
      bytes.assign(taken.begin(), taken.end());
      path.packet(bytes, how);
    } else if (what == 1) {
      const std::size_t place = input.take<std::uint8_t>();
      const auto becomes = input.take<std::uint8_t>();
      if (place < bytes.size()) bytes[place] = becomes;
      path.packet(bytes, how);
    } else if (what == 2) {
      path.statusIs(directionOf(how), static_cast<HoFlowState>(1 + (how >> 1) % 3), input.below(kPorts));
    } else {
      path.statusDel(directionOf(how), input.below(kPorts));
    }
  }
  path.checkCounters();
  return 0;
}
