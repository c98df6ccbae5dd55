#include <gtest/gtest.h>

#include "FakePorts.h"
#include "PacketFixture.h"

namespace {

using Bridging::AllowedTrafficDirection;
using TestSupport::FakePorts;
using TestSupport::PacketBuilder;
using TestSupport::PacketFixture;

TEST(PacketContext, ShowsWhatTheAgentKnowsOfThePacket) {
  const FakePorts ports(1, 5);
  PacketFixture fixture(PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").tcp(1, 2).build(), &ports[0]);
  fixture.state.packetNumber = 42;
  fixture.state.traceFilter = "web";
  const Pexa::PacketContext context = fixture.context();
  EXPECT_EQ(context.inputPort(), ports[0]);
  EXPECT_EQ(context.packetNumber(), 42U);
  EXPECT_EQ(context.matchingTraceFilter(), "web");
  EXPECT_EQ(context.namedCounters(), &fixture.counters);
  EXPECT_EQ(context.vlanId().value(), 5);
  EXPECT_EQ(context.pkt().front(), context.parsedPacket().pkt().front());
}

TEST(PacketContext, APacketOfTheAgentItselfHasNoInputPort) {
  PacketFixture fixture(PacketBuilder().build(), nullptr);
  EXPECT_FALSE(fixture.context().inputPort());
  EXPECT_GT(fixture.context().vlanId().raw(), 4095);
}

TEST(PacketContext, WhatWasLookedUpAheadIsKeptByDirection) {
  PacketFixture fixture(PacketBuilder().build(), nullptr);
  fixture.context().lookAhead(AllowedTrafficDirection::ingress) = 7;
  fixture.context().lookAhead(AllowedTrafficDirection::egress) = 9;
  EXPECT_EQ(fixture.context().lookAhead(AllowedTrafficDirection::ingress), 7);
  EXPECT_EQ(fixture.context().lookAhead(AllowedTrafficDirection::egress), 9);
}

TEST(PacketContext, GoesThroughAValueWhenAHandlerIsInvokedByName) {
  PacketFixture fixture(PacketBuilder().build(), nullptr);
  using Traits = Kiv::ValueTraits<Pexa::PacketContext>;
  const Pexa::PacketContext back = Traits::fromValue(Traits::toValue(fixture.context()));
  EXPECT_EQ(back.packetNumber(), fixture.state.packetNumber);
  EXPECT_THROW(Traits::fromValue(Kiv::Value("packet")), Kiv::ValueError);
}

TEST(OutputPipelineContext, KnowsBothPorts) {
  const FakePorts ports(2);
  PacketFixture fixture(PacketBuilder().build(), &ports[0]);
  const Pexa::OutputPipelineContext context = fixture.output(ports[1]);
  EXPECT_EQ(context.inputPort(), ports[0]);
  EXPECT_EQ(context.outputPort(), ports[1]);
  EXPECT_EQ(context.packetContext().packetNumber(), 1U);
}

}  // namespace
