// The packet path as an agent has it, for one address family: three ports, both steps over one helper, a
// status table of its own. Every packet would be sampled (rate 1); the first two ports take part in both
// directions.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakePorts.h"
#include "ManualClock.h"
#include "PacketFixture.h"
#include "QuellMap.h"
#include "RecordingReceiver.h"
#include "RecordingTraces.h"
#include "SftPexaPlugin/OffloadDecision.h"
#include "SftPexaPlugin/SamplerHelper.h"
#include "SftPexaPlugin/SamplerSteps.h"

namespace SampledFlowTracker {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using Pavo::IntfId;
using TestSupport::PacketBuilder;
using TestSupport::PacketFixture;

constexpr auto kIngress = AllowedTrafficDirection::ingress;
constexpr auto kEgress = AllowedTrafficDirection::egress;

inline Pavo::IpAddr address(Pavo::Traits::IPv4, std::uint8_t last) {
  return TestSupport::address4("10.0.0." + std::to_string(last));
}
inline Pavo::Ip6Addr address(Pavo::Traits::IPv6, std::uint8_t last) {
  return TestSupport::address6("2001:db8::" + std::to_string(last));
}

template <class Domain>
class PacketPath : public testing::Test {
 protected:
  using HoKeyType = FlowTracking::HoFlowKey<Domain>;
  using FlowKeyType = FlowTracking::FlowKey<Domain>;
  static constexpr bool kV4 = FlowTracking::IpFamily<Domain>::kIndex == 0;
  static constexpr std::uint16_t kVlan = 10;

  PacketPath() {
    Quell::attachAnonymous(status->map<Domain>());
    config->hwOffloadIpv4Is(true);
    config->hwOffloadIpv6Is(true);
    config->sampleRateIs(1);
    sftSflowHwConfig->ingressInterfacesIs({IntfId("Ethernet1"), IntfId("Ethernet2")});
    sftSflowHwConfig->egressInterfacesIs({IntfId("Ethernet1"), IntfId("Ethernet2")});
    ring.close();
  }

  void offloadIs(bool own, bool other) {
    config->hwOffloadIpv4Is(kV4 ? own : other);
    config->hwOffloadIpv6Is(kV4 ? other : own);
  }
  // The default packet's flow: from port 1234 to port 80.
  static FlowKeyType flow(std::uint32_t ipProto = 6, std::uint16_t srcPort = 1234) {
    FlowKeyType key;
    key.vlan = kVlan;
    key.srcAddr = address(Domain(), 1);
    key.dstAddr = address(Domain(), 2);
    key.ipProto = ipProto;
    key.srcPort = srcPort;
    key.dstPort = 80;
    return key;
  }
  void statusIs(AllowedTrafficDirection direction, const std::string& intf, HoFlowState state,
                const FlowKeyType& key = flow()) {
    FlowTracking::HoFlowStatusRecord<Domain> record;
    record.key = HoKeyType(key, direction, IntfId(intf));
    record.state = state;
    record.creationTime = record.lastUpdateTime = 1;
    status->map<Domain>().insert(record);
  }
  static PacketBuilder ipPacket() {
    return PacketBuilder().vlan(kVlan).ip(address(Domain(), 1), address(Domain(), 2));
  }
  static TestSupport::Packet tcpPacket(std::uint16_t srcPort = 1234) {
    return ipPacket().tcp(srcPort, 80).payload(60).build();
  }
  static constexpr std::uint32_t kTcpPacketBytes = (kV4 ? 20 : 40) + 20 + 60;

  bool common(PacketFixture& packet, AllowedTrafficDirection direction = kIngress,
              const IntfId& intfId = {}) {
    return maybeOffloadCommon(status, counters, packet.context(), direction, intfId, config->hwOffloadIpv4(),
                              config->hwOffloadIpv6());
  }
  // Null when the flow has no local counter.
  const Pexa::Counter::SftHoCounter<Domain>* counter(const FlowKeyType& key = flow()) const {
    const auto* entry = counters->template counters<Domain>().find(key);
    return entry ? entry->value.get() : nullptr;
  }
  std::string actionReason() const { return kV4 ? " Offloading IPv4" : " Offloading IPv6"; }

  TestSupport::ManualClock clock{100.5};
  TestSupport::RecordingText text{"Pexa::Sft", -1};
  TestSupport::RecordingRing ring;
  TestSupport::FakePorts ports{3};
  TestSupport::RecordingReceiver receiver{ports.ports};
  Kiv::Ptr<Sflow::HwConfig> sflowHwConfig = Kiv::makePtr<Sflow::HwConfig>("sflow");
  Kiv::Ptr<Sflow::HwConfig> sftSflowHwConfig = Kiv::makePtr<Sflow::HwConfig>("sampledflowtracker");
  Kiv::Ptr<HwFlowTracking::Config> config = Kiv::makePtr<HwFlowTracking::Config>("config");
  Kiv::Ptr<FlowTracking::HoFlowStatus> status = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> counters =
      Pexa::Counter::pexaSftHoCounterCollectionFactory("SftHardwareOffload");
  Kiv::Ptr<SftSamplerHelper> helper = SftSamplerHelper::SftSamplerHelperIs(
      Kiv::makePtr<Sflow::HwStatus>("hwstatus"), ports.ports, Kiv::Ptr<const Interface::EthIntfStatusDir>(),
      sflowHwConfig, config, sftSflowHwConfig);
  Kiv::Ptr<SftInputSampler> inputStep = Kiv::makePtr<SftInputSampler>(helper, status, counters, config);
  Kiv::Ptr<SftOutputSampler> outputStep = Kiv::makePtr<SftOutputSampler>(helper, status, counters, config);
};

using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;

}  // namespace SampledFlowTracker
