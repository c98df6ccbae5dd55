#include "SftPexaPlugin/OffloadDecision.h"

#include <cstdlib>

#include "PacketPath.h"
#include "quell/TableFile.h"

namespace SampledFlowTracker {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class Domain>
class OffloadDecision : public PacketPath<Domain> {};
TYPED_TEST_SUITE(OffloadDecision, Families);

TYPED_TEST(OffloadDecision, AFlowInHardwareIsCountedAndOffloaded) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
  ASSERT_NE(this->counter(), nullptr);
  EXPECT_EQ(this->counter()->packets(), 1U);
  EXPECT_EQ(this->counter()->bytes(), TestFixture::kTcpPacketBytes);
  EXPECT_EQ(this->counter()->intfId(), IntfId("Ethernet1"));
  EXPECT_EQ(this->counter()->updateTime(), 100.5);
  EXPECT_EQ(packet.counters.counts.size(), 1U);
  EXPECT_EQ(packet.counters.of("Action", "Sft", this->actionReason()), 1U);
}

TYPED_TEST(OffloadDecision, UdpIsOffloadedAsTcpIs) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware, TestFixture::flow(17));
  PacketFixture packet(this->ipPacket().udp(1234, 80).payload(10).build(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
  EXPECT_NE(this->counter(TestFixture::flow(17)), nullptr);
  EXPECT_EQ(this->counter(), nullptr);
}

TYPED_TEST(OffloadDecision, AFlowWithoutAStatusIsCountedAsDrop) {
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_FALSE(this->common(packet));
  EXPECT_EQ(packet.counters.of("Action", "Sft", this->actionReason()), 1U);
  EXPECT_EQ(packet.counters.of("Drop", "Sft", "No flow status"), 1U);
  EXPECT_EQ(packet.counters.counts.size(), 2U);
  EXPECT_EQ(this->counter(), nullptr);
}

TYPED_TEST(OffloadDecision, AnyStateButInHardwareIsCountedAsDropAndMakesNoCounter) {
  for (const HoFlowState state :
       {HoFlowState::none, HoFlowState::pending, HoFlowState::overflow, HoFlowState(200)}) {
    this->statusIs(kIngress, "Ethernet1", state);
    PacketFixture packet(this->tcpPacket(), &this->ports[0]);
    EXPECT_FALSE(this->common(packet)) << unsigned(state);
    EXPECT_EQ(packet.counters.of("Drop", "Sft", "Flow state not in hardware"), 1U) << unsigned(state);
    EXPECT_EQ(packet.counters.counts.size(), 2U);
    EXPECT_EQ(this->counter(), nullptr);
  }
}

// Every packet that is looked at has one outcome, in its own family and direction.
TYPED_TEST(OffloadDecision, EachPacketIsCountedByItsOutcome) {
  using Pexa::Counter::OffloadOutcome;
  const auto& outcomes = this->counters->outcomes();
  const auto count = [&](AllowedTrafficDirection direction, OffloadOutcome outcome) {
    return outcomes.template count<TypeParam>(direction, outcome);
  };
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  this->common(packet);
  EXPECT_EQ(count(kIngress, OffloadOutcome::noStatus), 1U);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::overflow);
  this->common(packet);
  EXPECT_EQ(count(kIngress, OffloadOutcome::notInHardware), 1U);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->common(packet);
  EXPECT_EQ(count(kIngress, OffloadOutcome::offloaded), 1U);
  this->common(packet, kEgress, IntfId("Ethernet1"));
  EXPECT_EQ(count(kEgress, OffloadOutcome::noStatus), 1U);
  EXPECT_EQ(count(kIngress, OffloadOutcome::noStatus), 1U);
  PacketFixture neither(this->ipPacket().payload(10).build(), &this->ports[0]);
  this->common(neither);
  EXPECT_EQ(count(kIngress, OffloadOutcome::notTcpOrUdp), 1U);
  this->offloadIs(false, true);
  this->common(packet);
  EXPECT_EQ(outcomes.others(kIngress), 1U);
  EXPECT_EQ(outcomes.others(kEgress), 0U);
}

TYPED_TEST(OffloadDecision, ASecondPacketOnAnotherInterfaceUpdatesTheSameCounter) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->statusIs(kIngress, "Ethernet2", HoFlowState::inHardware);
  PacketFixture first(this->tcpPacket(), &this->ports[0]);
  PacketFixture second(this->tcpPacket(), &this->ports[1]);
  EXPECT_TRUE(this->common(first));
  this->clock.advance(1);
  EXPECT_TRUE(this->common(second));
  EXPECT_EQ(this->counters->template counters<TypeParam>().size(), 1U);
  EXPECT_EQ(this->counter()->packets(), 2U);
  EXPECT_EQ(this->counter()->intfId(), IntfId("Ethernet2"));
  EXPECT_EQ(this->counter()->updateTime(), 101.5);
}

TYPED_TEST(OffloadDecision, EachDirectionHasItsOwnStatusAndBothShareACounter) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
  EXPECT_FALSE(this->common(packet, kEgress, IntfId("Ethernet1")));
  this->statusIs(kEgress, "Ethernet1", HoFlowState::inHardware);
  EXPECT_TRUE(this->common(packet, kEgress, IntfId("Ethernet1")));
  EXPECT_EQ(this->status->template map<TypeParam>().size(), 2U);
  EXPECT_EQ(this->counters->template counters<TypeParam>().size(), 1U);
  EXPECT_EQ(this->counter()->packets(), 2U);
}

TYPED_TEST(OffloadDecision, IngressLooksUnderTheInputPortAndEgressUnderTheInterfaceGiven) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet, kIngress, IntfId("Ethernet2")));
  EXPECT_TRUE(this->common(packet, kEgress, IntfId("Ethernet2")));
  EXPECT_EQ(this->counter()->intfId(), IntfId("Ethernet2"));
  EXPECT_FALSE(this->common(packet, kEgress, IntfId("Ethernet1")));
}

TYPED_TEST(OffloadDecision, EveryPartOfTheKeyMatters) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  const auto source = address(TypeParam(), 1);
  const auto destination = address(TypeParam(), 2);
  const TestSupport::Packet others[] = {
      PacketBuilder().vlan(11).ip(source, destination).tcp(1234, 80).build(),
      PacketBuilder().vlan(10).ip(destination, destination).tcp(1234, 80).build(),
      PacketBuilder().vlan(10).ip(source, source).tcp(1234, 80).build(),
      PacketBuilder().vlan(10).ip(source, destination).udp(1234, 80).build(),
      PacketBuilder().vlan(10).ip(source, destination).tcp(1235, 80).build(),
      PacketBuilder().vlan(10).ip(source, destination).tcp(1234, 81).build(),
  };
  for (const auto& other : others) {
    PacketFixture packet(other, &this->ports[0]);
    EXPECT_FALSE(this->common(packet));
    EXPECT_EQ(packet.counters.of("Drop", "Sft", "No flow status"), 1U);
  }
  PacketFixture same(this->tcpPacket(), &this->ports[0]);
  EXPECT_TRUE(this->common(same));
}

TYPED_TEST(OffloadDecision, AnUntaggedPacketHasItsPortsVlan) {
  auto key = TestFixture::flow();
  key.vlan = 1;
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware, key);
  PacketFixture packet(PacketBuilder().ip(key.srcAddr, key.dstAddr).tcp(1234, 80).build(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
}

TYPED_TEST(OffloadDecision, WhatIsNeitherTcpNorUdpIsTracedByItsNameAndNotCountedAsDrop) {
  this->text.levelIs(0);
  PacketFixture icmp(this->ipPacket().icmp().build(), &this->ports[0]);
  EXPECT_FALSE(this->common(icmp));
  EXPECT_THAT(this->text.texts, ElementsAre(TestFixture::kV4 ? "not tcp/udp Icmp" : "not tcp/udp Icmpv6"));
  EXPECT_EQ(icmp.counters.of("Action", "Sft", this->actionReason()), 1U);
  EXPECT_EQ(icmp.counters.counts.size(), 1U);
  this->text.texts.clear();
  PacketFixture empty(this->ipPacket().protocol(6).build(), &this->ports[0]);
  EXPECT_FALSE(this->common(empty));
  EXPECT_THAT(this->text.texts, ElementsAre("not tcp/udp Payload"));
}

TYPED_TEST(OffloadDecision, ADisabledFamilyIsLeftAloneWhileTheOtherIsEnabled) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->text.levelIs(0);
  for (const bool other : {true, false}) {
    this->offloadIs(false, other);
    this->text.texts.clear();
    PacketFixture packet(this->tcpPacket(), &this->ports[0]);
    EXPECT_FALSE(this->common(packet));
    EXPECT_THAT(this->text.texts, ElementsAre("maybeOffloadCommon Not IPv4 or IPv6"));
    EXPECT_TRUE(packet.counters.counts.empty());
  }
  this->offloadIs(true, false);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
}

TYPED_TEST(OffloadDecision, APacketWithoutAnIpHeaderIsLeftAlone) {
  this->text.levelIs(0);
  PacketFixture packet(PacketBuilder().etherType(0x0806).payload(28).build(), &this->ports[0]);
  EXPECT_FALSE(this->common(packet));
  EXPECT_THAT(this->text.texts, ElementsAre("maybeOffloadCommon Not IPv4 or IPv6"));
  EXPECT_TRUE(packet.counters.counts.empty());
}

TYPED_TEST(OffloadDecision, ParsesAPacketThatNobodyParsedBefore) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  const TestSupport::Packet bytes = this->tcpPacket();
  PacketFixture packet(bytes, &this->ports[0]);
  packet.state.parsed = Pexa::ParsedPacket(bytes.pkt());
  EXPECT_TRUE(this->common(packet));
}

TYPED_TEST(OffloadDecision, AVlanAbove4095IsARangeErrorAfterTheActionCount) {
  for (const std::uint16_t vlan : {Bridging::VlanIdOrAnyOrNone::kAny, Bridging::VlanIdOrAnyOrNone::kNone}) {
    PacketFixture packet(this->tcpPacket(), &this->ports[0]);
    packet.state.vlan = Bridging::VlanIdOrAnyOrNone(vlan);
    try {
      this->common(packet);
      ADD_FAILURE() << "no error for " << vlan;
    } catch (const std::range_error& error) {
      EXPECT_STREQ(error.what(), "Bridging::VlanIdOrAnyOrNone::value > 4095 not allowed");
    }
    EXPECT_EQ(packet.counters.of("Action", "Sft", this->actionReason()), 1U);
    EXPECT_EQ(packet.counters.counts.size(), 1U);
  }
}

TYPED_TEST(OffloadDecision, Vlan4095AndVlan0AreVlans) {
  for (const std::uint16_t vlan : {std::uint16_t{0}, std::uint16_t{4095}}) {
    auto key = TestFixture::flow();
    key.vlan = vlan;
    this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware, key);
    PacketFixture packet(this->tcpPacket(), &this->ports[0]);
    packet.state.vlan = Bridging::VlanIdOrAnyOrNone(vlan);
    EXPECT_TRUE(this->common(packet)) << vlan;
  }
}

TYPED_TEST(OffloadDecision, APacketWithoutAnInterfaceStopsTheProcess) {
  PacketFixture own(this->tcpPacket(), nullptr);
  EXPECT_DEATH(this->common(own), "intfId != Pavo::IntfId\\(\\)");
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_DEATH(this->common(packet, kEgress, IntfId()), "intfId != Pavo::IntfId\\(\\)");
}

TYPED_TEST(OffloadDecision, APacketWithoutAnInterfaceThatIsNotTcpOrUdpIsLeftAlone) {
  PacketFixture icmp(this->ipPacket().icmp().build(), nullptr);
  EXPECT_FALSE(this->common(icmp));
}

TYPED_TEST(OffloadDecision, DamageIsReportedAndTakenAsNoStatus) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  auto& map = this->status->template map<TypeParam>();
  std::vector<std::string> reported;
  map.corruptionHandlerIs([&](std::string_view message) { reported.emplace_back(message); });
  // One bit of the record's state, which its checksum covers.
  map.table()->file()->records()[8 + offsetof(FlowTracking::HoFlowStatusRecord<TypeParam>, state)] ^=
      std::byte{1};
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_FALSE(this->common(packet));
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_FALSE(reported[0].empty());
  EXPECT_EQ(map.corruptions(), 1U);
  EXPECT_EQ(packet.counters.of("Drop", "Sft", "No flow status"), 1U);
  EXPECT_EQ(this->counter(), nullptr);
}

TYPED_TEST(OffloadDecision, WithoutAStatusTableNoFlowIsInHardware) {
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_FALSE(maybeOffloadCommon(nullptr, this->counters, packet.context(), kIngress, {}, true, true));
  EXPECT_EQ(packet.counters.of("Drop", "Sft", "No flow status"), 1U);
}

TYPED_TEST(OffloadDecision, WithoutLocalCountersNoOutcomeIsCounted) {
  PacketFixture miss(this->tcpPacket(), &this->ports[0]);
  PacketFixture icmp(this->ipPacket().icmp().build(), &this->ports[0]);
  PacketFixture arp(PacketBuilder().etherType(0x0806).payload(28).build(), &this->ports[0]);
  for (PacketFixture* packet : {&miss, &icmp, &arp})
    EXPECT_FALSE(maybeOffloadCommon(this->status, nullptr, packet->context(), kIngress, {}, true, true));
  EXPECT_EQ(miss.counters.of("Drop", "Sft", "No flow status"), 1U);
}

TYPED_TEST(OffloadDecision, WithoutNamedCountersNothingIsCountedAndTheDecisionIsTheSame) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  packet.state.namedCounters = nullptr;
  EXPECT_TRUE(this->common(packet));
  PacketFixture miss(this->tcpPacket(99), &this->ports[0]);
  miss.state.namedCounters = nullptr;
  EXPECT_FALSE(this->common(miss));
  EXPECT_TRUE(packet.counters.counts.empty() && miss.counters.counts.empty());
}

// --- Bytes come from the IP header, not from what was captured.

TYPED_TEST(OffloadDecision, ALengthFieldOf65535IsCountedWhole) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->ipPacket().tcp(1234, 80).payload(60).lengthField(65535).build(),
                       &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
  EXPECT_EQ(this->counter()->bytes(), TestFixture::kV4 ? 65535U : 65575U);
}

TYPED_TEST(OffloadDecision, ALengthFieldOf0CountsTheFixedHeaderOnlyForIpv6) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->ipPacket().tcp(1234, 80).payload(60).lengthField(0).build(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
  EXPECT_EQ(this->counter()->packets(), 1U);
  EXPECT_EQ(this->counter()->bytes(), TestFixture::kV4 ? 0U : 40U);
}

TYPED_TEST(OffloadDecision, ACutPacketIsCountedWithTheLengthThatItHadOnTheWire) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  const PacketBuilder headers = this->ipPacket().tcp(1234, 80);
  PacketFixture packet(PacketBuilder(headers).payload(1000).cutTo(headers.size()).build(), &this->ports[0]);
  EXPECT_TRUE(this->common(packet));
  EXPECT_EQ(this->counter()->bytes(), TestFixture::kTcpPacketBytes - 60U + 1000U);
}

// --- Traces.

TYPED_TEST(OffloadDecision, OutcomesAreTracedOnBothChannels) {
  this->text.levelIs(0);
  this->ring.packetsWanted(true);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  packet.state.packetNumber = 12;
  this->common(packet);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::overflow);
  this->common(packet);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->common(packet);
  EXPECT_THAT(this->text.texts, ElementsAre("Pkt12: No flow status", "Pkt12: Flow state not in hardware",
                                            "Pkt12: Hw sampling packet"));
  EXPECT_THAT(this->text.levels, ElementsAre(0U, 0U, 0U));
  EXPECT_THAT(this->ring.texts(),
              ElementsAre("Sft Pkt12: No flow status", "Sft Pkt12: Flow state not in hardware",
                          "Sft Pkt12: Hw sampling packet"));
  for (const auto& record : this->ring.records) EXPECT_EQ(record.volume, Skein::Volume::packet);
}

TYPED_TEST(OffloadDecision, EachChannelIsGatedOnItsOwn) {
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  this->common(packet);
  EXPECT_THAT(this->text.texts, IsEmpty());
  EXPECT_THAT(this->ring.records, IsEmpty());
  this->ring.packetsWanted(true);
  this->common(packet);
  EXPECT_THAT(this->text.texts, IsEmpty());
  EXPECT_EQ(this->ring.records.size(), 1U);
  this->ring.packetsWanted(false);
  this->text.levelIs(0);
  this->common(packet);
  EXPECT_EQ(this->text.texts.size(), 1U);
  EXPECT_EQ(this->ring.records.size(), 1U);
}

TYPED_TEST(OffloadDecision, APacketThatMatchesATraceFilterIsTracedToTheRingWithoutBeingAskedFor) {
  this->ring.packetsWanted(false);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  packet.state.traceFilter = "web";
  this->common(packet);
  ASSERT_EQ(this->ring.records.size(), 1U);
  EXPECT_EQ(this->ring.records[0].filter, "web");
  this->ring.close();
  this->common(packet);
  EXPECT_EQ(this->ring.records.size(), 1U);
}

TYPED_TEST(OffloadDecision, DeclinesGoToTheTextTraceOnly) {
  this->ring.packetsWanted(true);
  this->text.levelIs(0);
  PacketFixture icmp(this->ipPacket().icmp().build(), &this->ports[0]);
  this->common(icmp);
  PacketFixture arp(PacketBuilder().etherType(0x0806).payload(28).build(), &this->ports[0]);
  this->common(arp);
  EXPECT_EQ(this->text.texts.size(), 2U);
  EXPECT_THAT(this->ring.records, IsEmpty());
}

}  // namespace
}  // namespace SampledFlowTracker
