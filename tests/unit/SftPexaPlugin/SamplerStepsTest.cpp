#include "SftPexaPlugin/SamplerSteps.h"

#include <deque>
#include <vector>

#include "PacketPath.h"

namespace SampledFlowTracker {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class Domain>
class SamplerSteps : public PacketPath<Domain> {
 protected:
  Pexa::StepResult receive(PacketFixture& packet) { return this->inputStep->process(packet.context()); }
  Pexa::StepResult send(PacketFixture& packet, std::size_t port) {
    return this->outputStep->process(packet.output(this->ports[port]));
  }
  // Both steps look at a packet ahead; whether each made it ready.
  std::vector<bool> madeReady(PacketFixture& packet) {
    const auto received = packet.context();
    const auto sent = packet.output(this->ports[1]);
    this->inputStep->lookAhead({&received, 1});
    this->outputStep->lookAhead({&sent, 1});
    return {received.lookAhead(kIngress) != 0, received.lookAhead(kEgress) != 0};
  }
};
TYPED_TEST_SUITE(SamplerSteps, Families);

TYPED_TEST(SamplerSteps, StandAtTheirPlacesInThePipelines) {
  EXPECT_EQ(this->inputStep->name(), "SftInput");
  EXPECT_EQ(this->inputStep->position(), 240U);
  EXPECT_EQ(this->inputStep->fwkType().name(), "SampledFlowTracker::SftInputSampler");
  EXPECT_EQ(this->outputStep->name(), "SftOutput");
  EXPECT_EQ(this->outputStep->position(), 310U);
  EXPECT_EQ(this->outputStep->fwkType().name(), "SampledFlowTracker::SftOutputSampler");
}

TYPED_TEST(SamplerSteps, AnOffloadedPacketIsWithheldFromSampling) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_EQ(this->receive(packet), Pexa::StepResult::proceed);
  EXPECT_EQ(this->send(packet, 1), Pexa::StepResult::proceed);
  EXPECT_THAT(this->receiver.samples, IsEmpty());
}

TYPED_TEST(SamplerSteps, APacketIsCountedOnceForEachStepItPasses) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  this->receive(packet);
  EXPECT_EQ(this->counter()->packets(), 1U);
  this->send(packet, 1);
  EXPECT_EQ(this->counter()->packets(), 2U);
  EXPECT_EQ(this->counters->template counters<TypeParam>().size(), 1U);
}

TYPED_TEST(SamplerSteps, AnyOtherPacketIsSampledWhereSamplingIsEnabled) {
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_EQ(this->receive(packet), Pexa::StepResult::proceed);
  ASSERT_EQ(this->receiver.samples.size(), 1U);
  EXPECT_EQ(this->receiver.samples[0].direction, kIngress);
  EXPECT_EQ(this->receiver.samples[0].input, this->ports[0].get());
  EXPECT_EQ(this->receiver.samples[0].output, nullptr);
  EXPECT_EQ(this->send(packet, 1), Pexa::StepResult::proceed);
  ASSERT_EQ(this->receiver.samples.size(), 2U);
  EXPECT_EQ(this->receiver.samples[1].direction, kEgress);
  EXPECT_EQ(this->receiver.samples[1].input, this->ports[0].get());
  EXPECT_EQ(this->receiver.samples[1].output, this->ports[1].get());
}

TYPED_TEST(SamplerSteps, APacketIsNeitherCountedNorSampledOnAnInterfaceThatTakesNoPart) {
  this->statusIs(kIngress, "Ethernet3", HoFlowState::inHardware);
  this->statusIs(kEgress, "Ethernet3", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[2]);
  EXPECT_EQ(this->receive(packet), Pexa::StepResult::proceed);
  EXPECT_EQ(this->send(packet, 2), Pexa::StepResult::proceed);
  EXPECT_EQ(this->counter(), nullptr);
  EXPECT_THAT(this->receiver.samples, IsEmpty());
  EXPECT_TRUE(packet.counters.counts.empty());
}

TYPED_TEST(SamplerSteps, WithBothFamiliesDisabledEveryPacketIsSampledAndOnlyEgressSaysSo) {
  this->offloadIs(false, false);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->text.levelIs(0);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  this->receive(packet);
  EXPECT_THAT(this->text.texts, IsEmpty());
  this->send(packet, 1);
  this->send(packet, 1);
  EXPECT_THAT(this->text.texts,
              ElementsAre("egress not enabled on intf Ethernet2", "egress not enabled on intf Ethernet2"));
  EXPECT_EQ(this->receiver.samples.size(), 3U);
  EXPECT_TRUE(packet.counters.counts.empty());
}

TYPED_TEST(SamplerSteps, TheHelpersTraceComesBeforeTheEgressStepsOwn) {
  this->text.levelIs(0);
  this->ring.packetsWanted(true);
  PacketFixture packet(this->tcpPacket(), &this->ports[2]);
  this->receive(packet);
  this->send(packet, 2);
  EXPECT_THAT(this->text.texts, ElementsAre("SftSampler: ingressEnabled drop packet on Ethernet3",
                                            "SftSampler: egressEnabled: drop packet on Ethernet3",
                                            "egress not enabled on intf Ethernet3"));
  EXPECT_THAT(this->ring.texts(), ElementsAre("Sft SftSampler: ingressEnabled drop packet on Ethernet3",
                                              "Sft SftSampler: egressEnabled: drop packet on Ethernet3"));
}

TYPED_TEST(SamplerSteps, RegularSflowTurnsTheStepsOffButForTheEgressTrace) {
  this->sflowHwConfig->enabledIs(true);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->text.levelIs(0);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  this->receive(packet);
  this->send(packet, 1);
  EXPECT_THAT(this->text.texts, ElementsAre("egress not enabled on intf Ethernet2"));
  EXPECT_EQ(this->counter(), nullptr);
  EXPECT_THAT(this->receiver.samples, IsEmpty());
}

TYPED_TEST(SamplerSteps, APacketOfTheAgentItselfIsDeclinedOnTheWayIn) {
  PacketFixture packet(this->tcpPacket(), nullptr);
  EXPECT_EQ(this->receive(packet), Pexa::StepResult::proceed);
  EXPECT_THAT(this->receiver.samples, IsEmpty());
}

TYPED_TEST(SamplerSteps, APacketOfTheAgentItselfIsOffloadedOnTheWayOut) {
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), nullptr);
  packet.state.vlan = Bridging::VlanIdOrAnyOrNone(TestFixture::kVlan);
  this->send(packet, 1);
  ASSERT_NE(this->counter(), nullptr);
  EXPECT_EQ(this->counter()->intfId(), IntfId("Ethernet2"));
}

TYPED_TEST(SamplerSteps, WithoutATrackingConfigurationNothingIsOffloaded) {
  SftInputSampler step(this->helper, this->status, this->counters, nullptr);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_EQ(step.process(packet.context()), Pexa::StepResult::proceed);
  EXPECT_EQ(this->counter(), nullptr);
}

TYPED_TEST(SamplerSteps, MaybeOffloadIsInvokedByName) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  PacketFixture miss(this->tcpPacket(99), &this->ports[0]);
  const auto call = [&](Kiv::PtrInterface& step, PacketFixture& of) {
    using PortTraits = Kiv::ValueTraits<PortPtr>;
    return Kiv::invoke(step, "maybeOffload",
                       {{"pktCtx", Kiv::ValueTraits<Pexa::PacketContext>::toValue(of.context())},
                        {"srcPort", PortTraits::toValue(this->ports[0])},
                        {"dstPort", PortTraits::toValue(this->ports[1])}});
  };
  EXPECT_EQ(call(*this->inputStep, packet), Kiv::Value(true));
  EXPECT_EQ(call(*this->inputStep, miss), Kiv::Value(false));
  EXPECT_EQ(call(*this->outputStep, packet), Kiv::Value(false));
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware);
  EXPECT_EQ(call(*this->outputStep, packet), Kiv::Value(true));
  EXPECT_EQ(this->counter()->packets(), 2U);
}

TYPED_TEST(SamplerSteps, KeepWhatTheyWereBuiltWith) {
  EXPECT_EQ(this->inputStep->sftSamplerHelper(), this->helper);
  EXPECT_EQ(this->inputStep->hoFlowStatus(), this->status);
  EXPECT_EQ(this->outputStep->localHoCounters(), this->counters);
  EXPECT_EQ(this->outputStep->sftHwTrackingConfig(), this->config);
}

TYPED_TEST(SamplerSteps, AFamilyIsOffloadedWhileTheOtherIsDisabled) {
  this->offloadIs(true, false);
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  this->receive(packet);
  this->send(packet, 1);
  EXPECT_EQ(this->counter()->packets(), 2U);
  EXPECT_THAT(this->receiver.samples, IsEmpty());
}

TYPED_TEST(SamplerSteps, WhatIsDeclinedOnTheWayOutIsTracedAtLevel0) {
  this->text.levelIs(0);
  PacketFixture packet(this->tcpPacket(), &this->ports[2]);
  this->send(packet, 2);
  EXPECT_THAT(this->text.levels, ElementsAre(0U, 0U));
}

// --- What is looked at ahead.

TYPED_TEST(SamplerSteps, APacketIsMadeReadyWhileItsFamilyIsOffloaded) {
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  for (const bool other : {true, false}) {
    this->offloadIs(true, other);
    EXPECT_THAT(this->madeReady(packet), ElementsAre(true, true)) << other;
    packet.state.lookAhead = {};
    this->offloadIs(false, other);
    EXPECT_THAT(this->madeReady(packet), ElementsAre(false, false)) << other;
  }
}

TYPED_TEST(SamplerSteps, WithoutAStatusTableNoPacketIsMadeReady) {
  this->inputStep = Kiv::makePtr<SftInputSampler>(this->helper, nullptr, this->counters, this->config);
  this->outputStep = Kiv::makePtr<SftOutputSampler>(this->helper, nullptr, this->counters, this->config);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  EXPECT_THAT(this->madeReady(packet), ElementsAre(false, false));
}

TYPED_TEST(SamplerSteps, EachBurstBeginsAnew) {
  std::deque<PacketFixture> packets;
  std::vector<Pexa::PacketContext> burst;
  for (unsigned i = 0; i < 32; ++i) {
    packets.emplace_back(this->tcpPacket(), &this->ports[0]);
    burst.push_back(packets.back().context());
  }
  for (unsigned round = 0; round < 3; ++round) {
    this->inputStep->lookAhead(burst);
    for (unsigned i = 0; i < 32; ++i) EXPECT_EQ(burst[i].lookAhead(kIngress), i + 1) << round;
  }
}

TYPED_TEST(SamplerSteps, APacketThatWasMadeReadyIsDecidedByWhatItWasThen) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  this->madeReady(packet);
  packet.state.vlan = Bridging::VlanIdOrAnyOrNone(TestFixture::kVlan + 1);
  this->receive(packet);
  ASSERT_NE(this->counter(), nullptr);
  this->receive(packet);
  EXPECT_EQ(this->counter()->packets(), 1U) << "once only";
}

TYPED_TEST(SamplerSteps, APacketThatWasMadeReadyIsTracedAsAnyOther) {
  this->text.levelIs(0);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  packet.state.packetNumber = 7;
  this->madeReady(packet);
  this->receive(packet);
  EXPECT_THAT(this->text.texts, ElementsAre("Pkt7: No flow status"));
}

// --- Looking ahead must not change what happens.

// What a burst of packets of all outcomes left behind.
template <class Domain>
struct Outcome {
  std::vector<std::map<std::tuple<std::string, std::string, std::string>, unsigned>> reasons;
  std::vector<std::uint64_t> counted;
  std::size_t samples = 0;
  bool operator==(const Outcome&) const = default;
};

TYPED_TEST(SamplerSteps, ABurstThatWasLookedAtAheadEndsAsOneThatWasNot) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware, TestFixture::flow(6, 1));
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware, TestFixture::flow(6, 1));
  this->statusIs(kIngress, "Ethernet1", HoFlowState::overflow, TestFixture::flow(6, 2));
  this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware, TestFixture::flow(6, 2));
  const auto run = [&](bool ahead) {
    this->counters->counterCollectionDelAll();
    this->counters->counterIp6CollectionDelAll();
    this->receiver.samples.clear();
    PacketFixture hit(this->tcpPacket(1), &this->ports[0]);
    PacketFixture state(this->tcpPacket(2), &this->ports[0]);
    PacketFixture miss(this->tcpPacket(3), &this->ports[0]);
    PacketFixture icmp(this->ipPacket().icmp().build(), &this->ports[0]);
    PacketFixture arp(PacketBuilder().etherType(0x0806).payload(28).build(), &this->ports[0]);
    PacketFixture elsewhere(this->tcpPacket(1), &this->ports[2]);
    PacketFixture own(this->tcpPacket(1), nullptr);
    std::vector<PacketFixture*> all{&hit, &state, &miss, &icmp, &arp, &elsewhere, &own};
    own.state.vlan = Bridging::VlanIdOrAnyOrNone(TestFixture::kVlan);
    std::vector<Pexa::PacketContext> received;
    std::vector<Pexa::OutputPipelineContext> sent;
    for (PacketFixture* packet : all) {
      received.push_back(packet->context());
      sent.push_back(packet->output(this->ports[1]));
    }
    if (ahead) this->inputStep->lookAhead(received);
    for (const auto& context : received) this->inputStep->process(context);
    if (ahead) this->outputStep->lookAhead(sent);
    for (const auto& context : sent) this->outputStep->process(context);
    Outcome<TypeParam> outcome;
    for (PacketFixture* packet : all) outcome.reasons.push_back(packet->counters.counts);
    for (std::uint16_t port = 1; port <= 3; ++port) {
      const auto* counter = this->counter(TestFixture::flow(6, port));
      outcome.counted.push_back(counter ? counter->packets() : 0);
    }
    outcome.samples = this->receiver.samples.size();
    return outcome;
  };
  const auto plain = run(false);
  EXPECT_EQ(plain.counted, (std::vector<std::uint64_t>{4, 1, 0}));
  EXPECT_EQ(plain, run(true));
}

TYPED_TEST(SamplerSteps, PacketsBehindTheThirtySecondOfABurstAreDecidedWithoutALookAhead) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  std::deque<PacketFixture> packets;
  std::vector<Pexa::PacketContext> burst;
  for (int i = 0; i < 40; ++i) {
    burst.push_back(packets.emplace_back(this->tcpPacket(), &this->ports[0]).context());
  }
  this->inputStep->lookAhead(burst);
  EXPECT_NE(packets[31].state.lookAhead[0], 0);
  EXPECT_EQ(packets[32].state.lookAhead[0], 0);
  for (const auto& context : burst) this->inputStep->process(context);
  ASSERT_NE(this->counter(), nullptr);
  EXPECT_EQ(this->counter()->packets(), 40U);
}

TYPED_TEST(SamplerSteps, AStatusThatChangesBehindTheLookAheadIsTheOneThatCounts) {
  this->statusIs(kIngress, "Ethernet1", HoFlowState::overflow);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  const auto context = packet.context();
  this->inputStep->lookAhead({&context, 1});
  this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware);
  this->inputStep->process(context);
  ASSERT_NE(this->counter(), nullptr);
  EXPECT_EQ(this->counter()->packets(), 1U);
}

TYPED_TEST(SamplerSteps, WhatWasLookedUpAheadIsUsedOnceAndForItsOwnPortOnly) {
  this->statusIs(kEgress, "Ethernet1", HoFlowState::inHardware);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  const Pexa::OutputPipelineContext toSecond = packet.output(this->ports[1]);
  this->outputStep->lookAhead({&toSecond, 1});
  EXPECT_NE(packet.state.lookAhead[1], 0);
  EXPECT_EQ(packet.state.lookAhead[0], 0);
  this->outputStep->process(toSecond);
  EXPECT_EQ(packet.state.lookAhead[1], 0);
  this->send(packet, 0);
  ASSERT_NE(this->counter(), nullptr);
  EXPECT_EQ(this->counter()->packets(), 1U);
}

TYPED_TEST(SamplerSteps, LookingAheadLeavesNothingOfAPacketThatIsNotLookedUp) {
  PacketFixture icmp(this->ipPacket().icmp().build(), &this->ports[0]);
  icmp.state.lookAhead[0] = 7;
  const auto context = icmp.context();
  this->inputStep->lookAhead({&context, 1});
  EXPECT_EQ(icmp.state.lookAhead[0], 0);
  PacketFixture noVlan(this->tcpPacket(), &this->ports[0]);
  noVlan.state.vlan = Bridging::VlanIdOrAnyOrNone();
  const auto other = noVlan.context();
  this->inputStep->lookAhead({&other, 1});
  EXPECT_EQ(noVlan.state.lookAhead[0], 0);
}

TYPED_TEST(SamplerSteps, LookingAheadSeesNothingOfADisabledFamily) {
  this->offloadIs(false, true);
  PacketFixture packet(this->tcpPacket(), &this->ports[0]);
  const auto context = packet.context();
  this->inputStep->lookAhead({&context, 1});
  EXPECT_EQ(packet.state.lookAhead[0], 0);
  EXPECT_THAT(this->text.texts, IsEmpty());
}

}  // namespace
}  // namespace SampledFlowTracker
