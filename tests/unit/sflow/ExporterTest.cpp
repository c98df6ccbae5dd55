#include "sflow/SflowExporter.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <map>

#include "Datagram.h"
#include "FakeChannel.h"
#include "ManualClock.h"
#include "SamplerThings.h"

namespace Sflow {
namespace {

using namespace TestSupport;
using Sent = DatagramChannel::Sent;

class FakeCounters : public CounterSource {
 public:
  std::uint32_t ports() const override { return 4; }
  IfCounters ifCounters(std::uint32_t portIndex) const override {
    IfCounters counters;
    counters.ifInUcastPkts = 100 + portIndex;
    return counters;
  }
};

class Exporter : public testing::Test {
 protected:
  explicit Exporter(std::size_t collectors = 1) {
    std::vector<std::unique_ptr<DatagramChannel>> channels;
    for (std::size_t i = 0; i < collectors; ++i)
      channels.push_back(std::make_unique<FakeChannel>(records_[i]));
    exporter_ = std::make_unique<SflowExporter>(ExporterConfig{}, &counters_, std::move(channels));
    ports_.ports->sampleReceiverIs(exporter_.get());
    sampler_ = Kiv::makePtr<TestSampler>(ports_.ports, 1U);
  }
  ~Exporter() override {
    sampler_ = {};
    ports_.ports->sampleReceiverIs(nullptr);
  }
  void ingress(std::size_t port, unsigned packets = 1) {
    for (unsigned i = 0; i < packets; ++i) sampler_->maybeSampleIngress(packet_.pkt(), ports_[port]);
  }
  void egress(std::size_t port, unsigned packets = 1) {
    for (unsigned i = 0; i < packets; ++i)
      sampler_->maybeSampleEgress(packet_.pkt(), ports_[0], ports_[port]);
  }
  std::vector<SflowDatagram> received(std::size_t collector = 0) const {
    std::vector<SflowDatagram> result;
    for (const auto& each : records_.at(collector).datagrams) result.push_back(SflowReader(each).read());
    return result;
  }
  std::vector<SflowFlowSample> flows() const {
    std::vector<SflowFlowSample> result;
    for (const auto& each : received()) result.insert(result.end(), each.flows.begin(), each.flows.end());
    return result;
  }
  std::uint64_t ingressDrops(std::size_t port) const {
    return sampler_->states(Direction::ingress).at(port).drops;
  }
  std::uint64_t egressDrops(std::size_t port) const {
    return sampler_->states(Direction::egress).at(port).drops;
  }

  ManualClock clock_{1000};
  FakeCounters counters_;
  FakePorts ports_{4, 7};
  std::array<FakeChannel::Record, 2> records_;
  std::unique_ptr<SflowExporter> exporter_;
  Kiv::Ptr<TestSampler> sampler_;
  Packet packet_ = somePacket();
};

class ExporterToTwo : public Exporter {
 protected:
  ExporterToTwo() : Exporter(2) {}
};

TEST_F(Exporter, SendsNothingBeforeAFlush) {
  ingress(0);
  EXPECT_TRUE(records_[0].datagrams.empty());
  exporter_->flush();
  EXPECT_EQ(received().size(), 1U);
  exporter_->flush();
  EXPECT_EQ(received().size(), 1U);
}

TEST_F(Exporter, SendsAFullDatagramByItself) {
  ingress(0, 1000);
  exporter_->flush();
  const auto datagrams = received();
  std::size_t samples = 0;
  for (std::size_t i = 0; i < datagrams.size(); ++i) {
    EXPECT_EQ(datagrams[i].sequence, i + 1);
    samples += datagrams[i].flows.size();
    EXPECT_LE(records_[0].datagrams[i].size(), 1400U);
    if (i + 1 < datagrams.size()) {
      EXPECT_GT(records_[0].datagrams[i].size(), 1400U - 216);
    }
  }
  EXPECT_EQ(samples, 1000U);
  EXPECT_EQ(exporter_->collectors()[0].datagrams, datagrams.size());
}

TEST_F(Exporter, TellsTheDirectionByTheSource) {
  ingress(1);
  egress(2);
  sampler_->maybeSampleEgress(packet_.pkt(), {}, ports_[3]);
  exporter_->flush();
  const auto samples = flows();
  ASSERT_EQ(samples.size(), 3U);
  EXPECT_EQ(samples[0].source, 2U);
  EXPECT_EQ(samples[0].input, 2U);
  EXPECT_EQ(samples[0].output, 0U);
  EXPECT_EQ(samples[1].source, 3U);
  EXPECT_EQ(samples[1].input, 1U);
  EXPECT_EQ(samples[1].output, 3U);
  EXPECT_EQ(samples[2].source, 4U);
  EXPECT_EQ(samples[2].input, 0x3fffffffU);
  EXPECT_EQ(samples[2].output, 4U);
}

TEST_F(Exporter, GivesASourceOneSequenceAndOnePoolForBothDirections) {
  sampler_->ingressRate = 3;
  sampler_->egressRate = 3;
  for (int i = 0; i < 300; ++i) {
    ingress(1);
    ingress(2);
    egress(1);
  }
  exporter_->flush();
  std::map<std::uint32_t, SflowFlowSample> last;
  const auto samples = flows();
  for (const auto& sample : samples) {
    const auto before = last.find(sample.source);
    EXPECT_EQ(sample.sequence, before == last.end() ? 1 : before->second.sequence + 1);
    if (before != last.end()) {
      EXPECT_GT(sample.pool, before->second.pool);
    }
    last[sample.source] = sample;
  }
  const auto& in = sampler_->states(Direction::ingress);
  const auto& out = sampler_->states(Direction::egress);
  EXPECT_EQ(last[2].sequence, in[1].samples + out[1].samples);
  EXPECT_EQ(last[3].sequence, in[2].samples);
  EXPECT_LE(last[2].pool, in[1].pool + out[1].pool);
  EXPECT_GT(last[2].pool, in[1].pool + out[1].pool - 10);
  EXPECT_EQ(last[2].rate, 3U);
}

TEST_F(Exporter, KeepsThePoolOfASamplerThatIsGone) {
  ingress(1, 5);
  sampler_ = Kiv::makePtr<TestSampler>(ports_.ports, 2U);
  ASSERT_EQ(exporter_->samplers().size(), 1U);
  ingress(1);
  exporter_->flush();
  EXPECT_EQ(flows().back().pool, 6U);
  EXPECT_EQ(flows().back().sequence, 6U);
}

TEST_F(Exporter, KnowsASamplerThatWasThereBeforeIt) {
  ports_.ports->sampleReceiverIs(nullptr);
  const auto early = Kiv::makePtr<TestSampler>(ports_.ports, 2U);
  ports_.ports->sampleReceiverIs(exporter_.get());
  early->maybeSampleIngress(packet_.pkt(), ports_[1]);
  EXPECT_EQ(exporter_->samplers().size(), 2U);
  exporter_->flush();
  EXPECT_EQ(flows().back().pool, 1U);
}

TEST_F(Exporter, ExportsThePacketAndItsLengthWithTheFrameCheckSequence) {
  packet_ = PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").udp(1, 2).payload(1000).cutTo(96).build();
  ingress(0);
  packet_ = PacketBuilder().payload(3).wireLength(5).build();  // shorter on the wire than what was captured
  ingress(0);
  exporter_->flush();
  const auto samples = flows();
  EXPECT_EQ(samples[0].frameLength, 14U + 20 + 8 + 1000 + 4);
  EXPECT_EQ(samples[0].stripped, 4U);
  EXPECT_EQ(samples[0].header.size(), 96U);
  EXPECT_EQ(samples[1].header, packet_.bytes);
  EXPECT_EQ(samples[1].frameLength, 17U + 4);
}

TEST_F(Exporter, TakesVlanAndPriorityFromTheFirstTagOrElseThePort) {
  const auto other = ports_.add("Ethernet5", 30);
  const auto vlans = [this](const Packet& packet, const Kiv::Ptr<const Pexa::PexaPortBase>& output) {
    sampler_->maybeSampleEgress(packet.pkt(), ports_[0], output);
    exporter_->flush();
    const SflowFlowSample sample = flows().back();
    return std::array{sample.inVlan, sample.inPriority, sample.outVlan, sample.outPriority};
  };
  const auto ip = [](PacketBuilder builder) {
    return builder.ipv4("10.0.0.1", "10.0.0.2").udp(1, 2).build();
  };
  using Four = std::array<std::uint32_t, 4>;
  EXPECT_EQ(vlans(ip(PacketBuilder()), other), (Four{7, 0, 30, 0}));
  EXPECT_EQ(vlans(ip(PacketBuilder().vlan(100, 0x88a8, 5).vlan(200, 0x8100, 2)), other),
            (Four{100, 5, 100, 5}));
  EXPECT_EQ(vlans(ip(PacketBuilder().vlan(0, 0x8100, 3)), other), (Four{0, 3, 0, 3}));

  ingress(0);
  exporter_->flush();
  EXPECT_EQ(flows().back().inVlan, 7U);
  EXPECT_EQ(flows().back().outVlan, 7U);
  sampler_->maybeSampleEgress(packet_.pkt(), {}, other);
  exporter_->flush();
  EXPECT_EQ(flows().back().inVlan, 30U);
}

TEST_F(Exporter, CountsSamplesOfADatagramThatDidNotGetOut) {
  records_[0].answer = Sent::no;
  ingress(1, 2);
  egress(1);
  egress(2, 3);
  exporter_->flush();
  EXPECT_EQ(ingressDrops(1), 2U);
  EXPECT_EQ(egressDrops(1), 1U);
  EXPECT_EQ(egressDrops(2), 3U);
  EXPECT_EQ(exporter_->collectors()[0].lost, 1U);
  EXPECT_EQ(exporter_->collectors()[0].datagrams, 0U);

  records_[0].answer = Sent::yes;
  egress(1);
  exporter_->flush();
  ASSERT_EQ(flows().size(), 1U);
  EXPECT_EQ(flows()[0].drops, 3U);     // of the port, whichever way
  EXPECT_EQ(flows()[0].sequence, 4U);  // the collector sees that three are missing
  EXPECT_EQ(received()[0].sequence, 2U);
}

TEST_F(Exporter, CountsSamplesOfADatagramThatWasRefused) {
  ingress(1);
  exporter_->flush();
  EXPECT_EQ(ingressDrops(1), 0U);
  records_[0].answer = Sent::yesNotFormer;
  ingress(2);
  exporter_->flush();
  EXPECT_EQ(ingressDrops(1), 1U);
  EXPECT_EQ(ingressDrops(2), 0U);
  records_[0].answer = Sent::neither;
  ingress(3);
  exporter_->flush();
  EXPECT_EQ(ingressDrops(2), 1U);
  EXPECT_EQ(ingressDrops(3), 1U);
  exporter_->flush();
  records_[0].answer = Sent::yesNotFormer;  // the former did not get out: it cannot have been refused as well
  ingress(3);
  exporter_->flush();
  EXPECT_EQ(ingressDrops(3), 1U);
  EXPECT_EQ(exporter_->collectors()[0].lost, 3U);
}

TEST_F(Exporter, KeepsTheDropsOfASamplerThatIsGone) {
  ingress(1, 2);
  sampler_ = Kiv::makePtr<TestSampler>(ports_.ports, 2U);
  records_[0].answer = Sent::no;
  exporter_->flush();
  records_[0].answer = Sent::yes;
  ingress(1);
  exporter_->flush();
  EXPECT_EQ(flows().back().drops, 2U);
  EXPECT_EQ(ingressDrops(1), 0U);
}

TEST_F(ExporterToTwo, SendsTheSameToAll) {
  ingress(1, 20);
  exporter_->flush();
  EXPECT_FALSE(records_[0].datagrams.empty());
  EXPECT_EQ(records_[0].datagrams, records_[1].datagrams);
}

TEST_F(ExporterToTwo, LosesASampleOnlyWhenNobodyGotIt) {
  records_[1].answer = Sent::no;
  ingress(1, 2);
  exporter_->flush();
  EXPECT_EQ(ingressDrops(1), 0U);
  EXPECT_EQ(exporter_->collectors()[0].lost, 0U);
  EXPECT_EQ(exporter_->collectors()[1].lost, 1U);
  EXPECT_EQ(received(0).size(), 1U);

  records_[0].answer = Sent::yesNotFormer;  // the other one did not get it either, as it now turns out
  ingress(2);
  exporter_->flush();
  EXPECT_EQ(ingressDrops(1), 2U);
  EXPECT_EQ(ingressDrops(2), 0U);
}

TEST_F(Exporter, SendsEachPortsCountersAtItsOwnTimeWithinTheInterval) {
  EXPECT_DOUBLE_EQ(exporter_->nextCounters(), 1005);
  std::vector<std::pair<double, std::uint32_t>> seen;
  for (int second = 1; second <= 45; ++second) {
    clock_.advance(1);
    const std::size_t before = records_[0].datagrams.size();
    exporter_->countersDue();
    exporter_->flush();
    for (std::size_t i = before; i < records_[0].datagrams.size(); ++i) {
      const SflowDatagram datagram = received()[i];
      for (const auto& sample : datagram.counters) {
        seen.emplace_back(second, sample.source);
        EXPECT_EQ(sample.words[0], sample.source);
        EXPECT_EQ(sample.words[8], 99 + sample.source);  // unicast packets in
        EXPECT_EQ(sample.sequence, 1U + (second - 1) / 20);
      }
      EXPECT_EQ(datagram.uptime, 1000U * static_cast<unsigned>(second));
    }
  }
  EXPECT_EQ(seen, (std::vector<std::pair<double, std::uint32_t>>{
                      {5, 1}, {10, 2}, {15, 3}, {20, 4}, {25, 1}, {30, 2}, {35, 3}, {40, 4}, {45, 1}}));
  EXPECT_DOUBLE_EQ(exporter_->nextCounters(), 1050);
}

TEST_F(Exporter, CountersHaveASequenceOfTheirOwn) {
  ingress(0, 3);
  clock_.advance(5);
  exporter_->countersDue();
  exporter_->flush();
  const auto datagram = received().at(0);
  EXPECT_EQ(datagram.flows.back().sequence, 3U);
  EXPECT_EQ(datagram.counters.at(0).sequence, 1U);
}

TEST_F(Exporter, SendsCountersOnceAfterALongPauseAndInTimeWhenTheClockIsSetBack) {
  clock_.advance(1000);
  exporter_->countersDue();
  exporter_->countersDue();
  exporter_->flush();
  EXPECT_EQ(received().at(0).counters.size(), 4U);
  clock_.advance(-900);
  exporter_->countersDue();
  EXPECT_LE(exporter_->nextCounters(), clock_.now() + 20);
  clock_.advance(20);
  exporter_->countersDue();
  exporter_->flush();
  EXPECT_EQ(received().at(1).counters.size(), 4U);
}

// As the event loop asks: only when it is due by its own word.
TEST_F(Exporter, CountersGoOnWithinTheIntervalWhenTheClockIsSetBackByHours) {
  clock_.advance(1000);
  exporter_->countersDue();
  clock_.advance(-7200);
  for (int second = 0; second <= 20; ++second) {
    if (exporter_->nextCounters() <= clock_.now()) exporter_->countersDue();
    clock_.advance(1);
  }
  exporter_->flush();
  ASSERT_FALSE(received().empty());
  EXPECT_EQ(received().back().counters.size(), 8U);
}

TEST(ExporterWithoutCollectors, TakesSamplesAndSendsNothing) {
  FakePorts ports(1);
  SflowExporter exporter(ExporterConfig{});
  ports.ports->sampleReceiverIs(&exporter);
  const Packet packet = somePacket();
  {
    const auto sampler = Kiv::makePtr<TestSampler>(ports.ports, 1U);
    for (int i = 0; i < 100; ++i) sampler->maybeSampleIngress(packet.pkt(), ports[0]);
    EXPECT_EQ(exporter.samplers().size(), 1U);
    EXPECT_EQ(sampler->states(Direction::ingress)[0].samples, 100U);
    EXPECT_EQ(sampler->states(Direction::ingress)[0].drops, 0U);
  }
  EXPECT_TRUE(exporter.samplers().empty());
  exporter.flush();
  EXPECT_EQ(exporter.nextCounters(), std::numeric_limits<double>::infinity());
}

TEST(ExporterConfiguration, RefusesABadAgentOrCollector) {
  ExporterConfig config;
  config.agent = "here";
  EXPECT_THROW(SflowExporter exporter(config), Kiv::ValueError);
  config.agent = "::1";
  config.collectors = {"127.0.0.1:6343", "127.0.0.1"};
  EXPECT_THROW(SflowExporter exporter(config), Kiv::ValueError);
}

}  // namespace
}  // namespace Sflow
