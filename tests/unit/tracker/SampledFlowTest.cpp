#include "SampledFlow.h"

#include <gtest/gtest.h>

#include "SflowText.h"

namespace {

using Bridging::AllowedTrafficDirection;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;
using TestSupport::address4;
using TestSupport::address6;
using TestSupport::PacketBuilder;
using Tracker::FlowSample;
using Tracker::NoFlow;

template <class Domain>
struct Addresses;
template <>
struct Addresses<IPv4> {
  static Pavo::IpAddr src() { return address4("10.0.0.1"); }
  static Pavo::IpAddr dst() { return address4("10.0.0.2"); }
};
template <>
struct Addresses<IPv6> {
  static Pavo::Ip6Addr src() { return address6("2001:db8::1"); }
  static Pavo::Ip6Addr dst() { return address6("2001:db8::2"); }
};

template <class Domain>
class SampledFlowTest : public testing::Test {
 protected:
  using Flow = Tracker::SampledFlow<Domain>;

  SampledFlowTest() {
    interfaces_.add({std::nullopt, 1, Pavo::IntfId("Ethernet1"), 11});
    interfaces_.add({std::nullopt, 2, Pavo::IntfId("Ethernet2"), 22});
    sample_.sourceIndex = 1;
    sample_.rate = 100;
    sample_.input.value = 1;
    sample_.output.value = 2;
    packetIs(tcp());
  }

  static PacketBuilder ip(const PacketBuilder& before = {}) {
    PacketBuilder builder = before;
    return builder.ip(Addresses<Domain>::src(), Addresses<Domain>::dst());
  }
  static PacketBuilder tcp(const PacketBuilder& before = {}) { return ip(before).tcp(1234, 80).payload(30); }
  void packetIs(const PacketBuilder& builder) {
    packet_ = builder.build();
    sample_.header = packet_.bytes;
    sample_.frameBytes = packet_.wireLength + 4;
    sample_.stripped = 4;
  }

  Tracker::FlowOrReason result() { return flowOf(sample_, agent_, interfaces_); }
  Flow flow() { return std::get<Flow>(result()); }
  NoFlow reason() { return std::get<NoFlow>(result()); }

  const Tracker::AgentAddress agent_ = *Tracker::AgentAddress::fromText("192.0.2.1");
  Tracker::Interfaces interfaces_;
  FlowSample sample_;
  TestSupport::Packet packet_;
};

using Families = testing::Types<IPv4, IPv6>;
TYPED_TEST_SUITE(SampledFlowTest, Families);

TYPED_TEST(SampledFlowTest, IsTheFlowOfTheHeader) {
  const auto flow = this->flow();
  EXPECT_EQ(flow.key.ipFlowKey.srcAddr, Addresses<TypeParam>::src());
  EXPECT_EQ(flow.key.ipFlowKey.dstAddr, Addresses<TypeParam>::dst());
  EXPECT_EQ(flow.key.ipFlowKey.ipProto, 6U);
  EXPECT_EQ(flow.key.ipFlowKey.srcPort, 1234);
  EXPECT_EQ(flow.key.ipFlowKey.dstPort, 80);
  EXPECT_EQ(flow.key.ipFlowKey.vrfId, FlowTracking::kDefaultVrfId);
  EXPECT_EQ(flow.rate, 100U);
  EXPECT_EQ(flow.octets, this->packet_.bytes.size() - 14);
  EXPECT_EQ(flow.input, 1U);
  EXPECT_EQ(flow.output, 2U);
}

TYPED_TEST(SampledFlowTest, ComesInWhereTheSourceIsTheInput) {
  EXPECT_EQ(this->flow().key.direction, AllowedTrafficDirection::ingress);
  EXPECT_EQ(this->flow().key.intfId.name(), "Ethernet1");
}

TYPED_TEST(SampledFlowTest, GoesOutWhereTheSourceIsTheOutput) {
  this->sample_.sourceIndex = 2;
  EXPECT_EQ(this->flow().key.direction, AllowedTrafficDirection::egress);
  EXPECT_EQ(this->flow().key.intfId.name(), "Ethernet2");
}

TYPED_TEST(SampledFlowTest, ComesInWhenItGoesOutWhereItCame) {
  this->sample_.output.value = 1;
  EXPECT_EQ(this->flow().key.direction, AllowedTrafficDirection::ingress);
}

TYPED_TEST(SampledFlowTest, HasNoDirectionWhenTheSourceIsNeither) {
  this->sample_.sourceIndex = 3;
  EXPECT_EQ(this->reason(), NoFlow::noDirection);
  this->sample_.sourceIndex = 1;
  this->sample_.sourceType = 2;
  EXPECT_EQ(this->reason(), NoFlow::noDirection);
  this->sample_.sourceType = 0;
  this->sample_.sourceIndex = this->sample_.input.value = 0;
  EXPECT_EQ(this->reason(), NoFlow::noDirection);
}

TYPED_TEST(SampledFlowTest, AnOutputThatIsADiscardIsNoInterface) {
  this->sample_.sourceIndex = 2;
  this->sample_.output.format = Tracker::SampledPort::Format::discarded;
  EXPECT_EQ(this->reason(), NoFlow::noDirection);
  this->sample_.sourceIndex = 1;
  EXPECT_EQ(this->flow().output, 0U);
}

TYPED_TEST(SampledFlowTest, AnIndexWithoutANameIsCounted) {
  this->sample_.sourceIndex = this->sample_.input.value = 9;
  EXPECT_EQ(this->reason(), NoFlow::unknownInterface);
  EXPECT_EQ(this->reason(), NoFlow::unknownInterface);
  EXPECT_EQ(this->interfaces_.unmappedValue().text(),
            (Kiv::Value(Kiv::Value::List{
                 Kiv::Value::Object{{"agent", "192.0.2.1"}, {"index", 9U}, {"samples", 2U}}}))
                .text());
}

TYPED_TEST(SampledFlowTest, AnAgentsOwnInterfaceComesFirst) {
  this->interfaces_.add({this->agent_, 1, Pavo::IntfId("uplink"), 1});
  EXPECT_EQ(this->flow().key.intfId.name(), "uplink");
  const auto other = *Tracker::AgentAddress::fromText("192.0.2.2");
  const auto flow = flowOf(this->sample_, other, this->interfaces_);
  EXPECT_EQ(std::get<Tracker::SampledFlow<TypeParam>>(flow).key.intfId.name(), "Ethernet1");
}

TYPED_TEST(SampledFlowTest, TheVlanIsThatOfTheFirstTag) {
  this->sample_.inVlan = 5;
  this->packetIs(this->tcp(PacketBuilder().vlan(10, 0x88a8, 3).vlan(20)));
  EXPECT_EQ(this->flow().key.ipFlowKey.vlan, 10);
  this->packetIs(this->tcp(PacketBuilder().vlan(0)));
  EXPECT_EQ(this->flow().key.ipFlowKey.vlan, 0);
}

TYPED_TEST(SampledFlowTest, TheVlanOfAnUntaggedPacketIsWhatTheAgentTells) {
  this->sample_.inVlan = 5;
  EXPECT_EQ(this->flow().key.ipFlowKey.vlan, 5);
}

TYPED_TEST(SampledFlowTest, TheVlanThatNobodyTellsIsThatOfTheInput) {
  EXPECT_EQ(this->flow().key.ipFlowKey.vlan, 11);
  this->sample_.sourceIndex = 2;
  EXPECT_EQ(this->flow().key.ipFlowKey.vlan, 11);
  this->sample_.inVlan = 0xffffffff;
  EXPECT_EQ(this->flow().key.ipFlowKey.vlan, 11);
  this->sample_.input.value = 0;
  EXPECT_EQ(this->flow().key.ipFlowKey.vlan, 22);
}

TYPED_TEST(SampledFlowTest, OctetsOfALengthFieldOfZeroAreThoseOfTheFrame) {
  this->packetIs(this->tcp().lengthField(0));
  EXPECT_EQ(this->flow().octets, this->packet_.bytes.size() - 14);
}

TYPED_TEST(SampledFlowTest, OctetsDoNotCountPadding) {
  const auto octets = this->flow().octets;
  this->packetIs(this->tcp().trailer(18));
  EXPECT_EQ(this->flow().octets, octets);
}

TYPED_TEST(SampledFlowTest, ARateOfZeroStandsForThePacketAlone) {
  this->sample_.rate = 0;
  EXPECT_EQ(this->flow().rate, 1U);
}

TYPED_TEST(SampledFlowTest, OnlyTcpAndUdpHaveFlows) {
  this->packetIs(this->ip().udp(53, 5353));
  EXPECT_EQ(this->flow().key.ipFlowKey.ipProto, 17U);
  this->packetIs(this->ip().icmp());
  EXPECT_EQ(this->reason(), NoFlow::notTcpUdp);
  this->packetIs(this->ip().tcp(1, 2).cutTo(14 + 12));
  EXPECT_EQ(this->reason(), NoFlow::notIp);
}

TYPED_TEST(SampledFlowTest, AHeaderThatEndsBeforeThePortsHasNoFlow) {
  this->packetIs(this->ip().tcp(1, 2).cutTo(this->ip().size() + 2));
  EXPECT_EQ(this->reason(), NoFlow::notTcpUdp);
}

TYPED_TEST(SampledFlowTest, WhatIsNoIpHasNoFlow) {
  this->packetIs(PacketBuilder().etherType(0x0806).payload(28));
  EXPECT_EQ(this->reason(), NoFlow::notIp);
}

TYPED_TEST(SampledFlowTest, AHeaderThatBeginsWithIpHasTheSameFlow) {
  using HeaderKind = FlowSample::HeaderKind;
  for (const bool lengthKnown : {true, false}) {
    const auto builder = this->tcp().payload(300);
    this->packetIs(lengthKnown ? builder : PacketBuilder(builder).lengthField(0));
    this->sample_.headerKind = HeaderKind::ethernet;
    const auto framed = this->flow();
    this->sample_.header = this->sample_.header.subspan(14);
    this->sample_.frameBytes -= 14;
    this->sample_.headerKind =
        FlowTracking::IpFamily<TypeParam>::kIndex == 0 ? HeaderKind::ip4 : HeaderKind::ip6;
    EXPECT_EQ(this->flow().key, framed.key);
    EXPECT_EQ(this->flow().octets, framed.octets);
  }
}

TYPED_TEST(SampledFlowTest, WithoutAHeaderThereIsNoFlow) {
  this->sample_.header = {};
  EXPECT_EQ(this->reason(), NoFlow::noHeader);
  this->sample_.otherHeader = true;
  EXPECT_EQ(this->reason(), NoFlow::otherHeader);
}

TYPED_TEST(SampledFlowTest, IsWhatTheAgentReadWhenItSendsNoHeader) {
  const auto with = this->flow();
  const auto body = [&](std::uint32_t protocol) {
    return TestSupport::sampledIp(Addresses<TypeParam>::src(), Addresses<TypeParam>::dst(), protocol, 1234,
                                  80, static_cast<std::uint32_t>(with.octets))
        .body.bytes();
  };
  const auto tcp = body(6);
  this->sample_.header = {};
  auto& bytes = FlowTracking::IpFamily<TypeParam>::kIndex == 0 ? this->sample_.ip4 : this->sample_.ip6;
  bytes = tcp;
  EXPECT_EQ(this->flow().key, with.key);
  EXPECT_EQ(this->flow().octets, with.octets);
  const auto icmp = body(1);
  bytes = icmp;
  EXPECT_EQ(this->reason(), NoFlow::notTcpUdp);
}

TEST(NoFlowTest, EveryReasonHasANameOfItsOwn) {
  std::set<std::string_view> names;
  for (std::size_t i = 0; i < Tracker::kNoFlows; ++i) names.insert(nameOf(static_cast<NoFlow>(i)));
  EXPECT_EQ(names.size(), Tracker::kNoFlows);
  EXPECT_FALSE(names.contains(""));
}

}  // namespace
