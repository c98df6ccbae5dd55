// The packet path allocates nothing: every allocation of this program is counted.
#include "CountAllocations.h"
#include "PacketPath.h"
#include "pexa/NamedCounters.h"

namespace SampledFlowTracker {
namespace {

TEST(AllocationCount, SeesAnAllocation) {
  const std::uint64_t before = allocations;
  const auto held = std::make_unique<int>(1);
  EXPECT_EQ(allocations, before + 1);
}

template <class Domain>
class NoAllocation : public PacketPath<Domain> {
 protected:
  NoAllocation() {
    this->statusIs(kIngress, "Ethernet1", HoFlowState::inHardware, this->flow(6, 1));
    this->statusIs(kEgress, "Ethernet2", HoFlowState::inHardware, this->flow(6, 1));
    this->statusIs(kIngress, "Ethernet1", HoFlowState::overflow, this->flow(6, 2));
    this->statusIs(kEgress, "Ethernet2", HoFlowState::overflow, this->flow(6, 2));
    // Samples are the receiver's business; here it keeps none.
    this->config->sampleRateIs(0);
  }

  // Allocations while the packet goes through both steps, as part of a burst and on its own, parsed anew.
  std::uint64_t allocated(const TestSupport::Packet& bytes, std::size_t inputPort,
                          Pexa::PexaNamedCounters* named) {
    PacketFixture packet(bytes, &this->ports[inputPort]);
    packet.state.namedCounters = named;
    const auto received = packet.context();
    const auto sent = packet.output(this->ports[1]);
    const auto pass = [&](bool ahead) {
      packet.state.parsed = Pexa::ParsedPacket(bytes.pkt());
      if (ahead) this->inputStep->lookAhead({&received, 1});
      this->inputStep->process(received);
      if (ahead) this->outputStep->lookAhead({&sent, 1});
      this->outputStep->process(sent);
    };
    pass(false);  // the first packet of a flow and of a reason allocates their counters, once
    const std::uint64_t before = allocations;
    pass(false);
    pass(true);
    return allocations - before;
  }
  // With named counters and without.
  void expectNone(const TestSupport::Packet& bytes, std::size_t inputPort = 0) {
    EXPECT_EQ(this->allocated(bytes, inputPort, &named_), 0U);
    EXPECT_EQ(this->allocated(bytes, inputPort, nullptr), 0U);
  }

 private:
  Pexa::NamedCounters named_;
};
TYPED_TEST_SUITE(NoAllocation, Families);

TYPED_TEST(NoAllocation, WhenTheFlowIsInHardware) {
  this->expectNone(this->tcpPacket(1));
  EXPECT_EQ(this->counter(this->flow(6, 1))->packets(), 12U);
}

TYPED_TEST(NoAllocation, WhenTheFlowHasNoStatus) {
  this->expectNone(this->tcpPacket(3));
}

TYPED_TEST(NoAllocation, WhenTheFlowIsInAnotherState) {
  this->expectNone(this->tcpPacket(2));
}

TYPED_TEST(NoAllocation, WhenThePacketIsNotTcpOrUdp) {
  this->expectNone(this->ipPacket().icmp().build());
}

TYPED_TEST(NoAllocation, WhenThePacketIsNotIp) {
  this->expectNone(PacketBuilder().etherType(0x0806).payload(28).build());
}

TYPED_TEST(NoAllocation, WhenTheFamilyIsDisabled) {
  this->offloadIs(false, true);
  this->expectNone(this->tcpPacket(1));
  this->offloadIs(false, false);
  this->expectNone(this->tcpPacket(1));
  EXPECT_EQ(this->counter(this->flow(6, 1)), nullptr);
}

TYPED_TEST(NoAllocation, WhenTheInterfaceTakesNoPart) {
  this->expectNone(this->tcpPacket(1), 2);
}

TYPED_TEST(NoAllocation, WhenThePacketIsCountedByTheSampler) {
  this->config->sampleRateIs(1'000'000'000);
  this->expectNone(this->tcpPacket(3));
}

}  // namespace
}  // namespace SampledFlowTracker
