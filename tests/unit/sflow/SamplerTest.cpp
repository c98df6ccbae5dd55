#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "RecordingReceiver.h"
#include "SamplerThings.h"

namespace Sflow {
namespace {

using namespace TestSupport;

class Sampler : public testing::Test {
 protected:
  void ingress(const Kiv::Ptr<const Pexa::PexaPortBase>& port, unsigned packets = 1) {
    for (unsigned i = 0; i < packets; ++i) sampler_->maybeSampleIngress(packet_.pkt(), port);
  }
  void egress(const Kiv::Ptr<const Pexa::PexaPortBase>& port, unsigned packets = 1) {
    for (unsigned i = 0; i < packets; ++i) sampler_->maybeSampleEgress(packet_.pkt(), ports_[0], port);
  }
  const SamplerState& in(std::size_t port) const { return sampler_->states(Direction::ingress).at(port); }
  const SamplerState& out(std::size_t port) const { return sampler_->states(Direction::egress).at(port); }

  FakePorts ports_{3};
  RecordingReceiver receiver_{ports_.ports};
  Kiv::Ptr<TestSampler> sampler_ = Kiv::makePtr<TestSampler>(ports_.ports, 1U);
  Packet packet_ = somePacket();
};

TEST_F(Sampler, TakesEveryPacketAtRateOne) {
  ingress(ports_[0], 100);
  EXPECT_EQ(receiver_.samples.size(), 100U);
  EXPECT_EQ(in(0).pool, 100U);
  EXPECT_EQ(in(0).samples, 100U);
  EXPECT_EQ(in(0).drops, 0U);
}

TEST_F(Sampler, HandsOverWhatWasSampledAndHow) {
  sampler_->egressRate = 2;
  sampler_->maybeSampleIngress(packet_.pkt(), ports_[1]);
  while (receiver_.samples.size() < 2) egress(ports_[2]);

  ASSERT_EQ(receiver_.samples.size(), 2U);
  const Sample& first = receiver_.samples[0];
  EXPECT_EQ(first.direction, Direction::ingress);
  EXPECT_EQ(first.pkt.front(), packet_.pkt().front());
  EXPECT_EQ(first.input, ports_[1].get());
  EXPECT_EQ(first.output, nullptr);
  EXPECT_EQ(first.rate, 1U);
  EXPECT_EQ(first.pool, 1U);
  EXPECT_EQ(first.serial, 1U);
  EXPECT_EQ(first.sampler, sampler_.get());
  EXPECT_EQ(&first.port(), ports_[1].get());
  const Sample& second = receiver_.samples[1];
  EXPECT_EQ(second.direction, Direction::egress);
  EXPECT_EQ(second.input, ports_[0].get());
  EXPECT_EQ(second.output, ports_[2].get());
  EXPECT_EQ(second.rate, 2U);
  EXPECT_EQ(second.pool, out(2).pool);
  EXPECT_EQ(&second.port(), ports_[2].get());
}

TEST_F(Sampler, KeepsPortsAndDirectionsApart) {
  ingress(ports_[0], 5);
  ingress(ports_[2], 7);
  egress(ports_[2], 3);
  EXPECT_EQ(in(0).pool, 5U);
  EXPECT_EQ(in(1).pool, 0U);
  EXPECT_EQ(in(2).pool, 7U);
  EXPECT_EQ(out(2).pool, 3U);
  EXPECT_EQ(out(0).pool, 0U);
}

TEST_F(Sampler, NeitherPoolsNorSamplesAtRateZero) {
  sampler_->ingressRate = 0;
  ingress(ports_[0], 100);
  EXPECT_TRUE(receiver_.samples.empty());
  EXPECT_TRUE(sampler_->states(Direction::ingress).empty());
}

TEST_F(Sampler, NeitherPoolsNorSamplesWhereItIsNotWanted) {
  sampler_->unwanted = {{Direction::ingress, "Ethernet1"}};
  ingress(ports_[0], 10);
  ingress(ports_[1], 10);
  egress(ports_[0], 10);
  EXPECT_EQ(in(0).pool, 0U);
  EXPECT_EQ(in(1).pool, 10U);
  EXPECT_EQ(out(0).pool, 10U);
  EXPECT_EQ(receiver_.samples.size(), 20U);
}

TEST_F(Sampler, NeverSamplesWithoutAPortOrOnAPortWithoutAnInterface) {
  const auto nameless = ports_.add("");
  ingress(nameless, 10);
  egress(nameless, 10);
  ingress({}, 10);
  egress({}, 10);
  EXPECT_TRUE(receiver_.samples.empty());
}

TEST_F(Sampler, SamplesAPacketOfTheAgentItself) {
  sampler_->maybeSampleEgress(packet_.pkt(), {}, ports_[1]);
  ASSERT_EQ(receiver_.samples.size(), 1U);
  EXPECT_EQ(receiver_.samples[0].input, nullptr);
}

TEST_F(Sampler, DrawsAnewWhenTheRateChanges) {
  sampler_->ingressRate = 1'000'000;
  ingress(ports_[0]);
  const std::uint64_t before = in(0).skip;
  EXPECT_EQ(in(0).rate, 1'000'000U);
  sampler_->ingressRate = 1;
  ingress(ports_[0], 3);
  EXPECT_GT(before, 3U);
  EXPECT_EQ(in(0).rate, 1U);
  EXPECT_EQ(in(0).samples, 3U);
  EXPECT_EQ(in(0).pool, 4U);
}

TEST_F(Sampler, SkipsUpToTwiceTheLargestRate) {
  sampler_->ingressRate = 0xffffffff;
  std::uint64_t most = 0;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    sampler_->seedIs(seed);
    sampler_->ingressRate = seed % 2 == 0 ? 0xffffffff : 0xfffffffe;  // each change draws anew
    ingress(ports_[0]);
    most = std::max(most, in(0).skip);
  }
  EXPECT_GT(most, 0xffffffffU);
  EXPECT_LT(most, 2 * std::uint64_t{0xffffffff});
}

TEST_F(Sampler, CountsWhatTheReceiverDrops) {
  class Refusing : public RecordingReceiver {
   public:
    using RecordingReceiver::RecordingReceiver;
    bool sampleIs(const Sample& sample) override { return !RecordingReceiver::sampleIs(sample); }
  } refusing(ports_.ports);
  ingress(ports_[0], 3);
  egress(ports_[1], 2);
  EXPECT_EQ(in(0).drops, 3U);
  EXPECT_EQ(out(1).drops, 2U);
  ASSERT_EQ(refusing.samples.size(), 5U);
  EXPECT_EQ(refusing.samples[0].drops, 0U);
  EXPECT_EQ(refusing.samples[2].drops, 2U);
  EXPECT_EQ(refusing.samples[4].drops, 1U);
}

TEST_F(Sampler, CountsASampleThatIsLostLater) {
  ingress(ports_[0], 3);
  sampler_->sampleLost(Direction::ingress, 0);
  EXPECT_EQ(in(0).drops, 1U);
  ingress(ports_[0]);
  EXPECT_EQ(receiver_.samples.back().drops, 1U);
}

TEST_F(Sampler, CountsSamplesThatNobodyReceives) {
  ports_.ports->sampleReceiverIs(nullptr);
  ingress(ports_[0], 4);
  EXPECT_EQ(in(0).samples, 4U);
  EXPECT_EQ(in(0).drops, 0U);
}

TEST_F(Sampler, SamplesNoMoreAsAZombie) {
  ingress(ports_[0], 2);
  sampler_->kivDoZombieReactors(true);
  ingress(ports_[0], 2);
  EXPECT_EQ(in(0).pool, 2U);
  sampler_->kivDoZombieReactors(false);
  ingress(ports_[0], 2);
  EXPECT_EQ(in(0).pool, 4U);
}

TEST_F(Sampler, RepeatsWithTheSameSeedOnly) {
  const auto sequence = [this](const Kiv::Ptr<TestSampler>& sampler) {
    std::vector<std::uint64_t> skips;
    for (std::uint32_t rate = 1'000'000; rate < 1'000'008; ++rate) {  // each change draws anew
      sampler->ingressRate = rate;
      sampler->maybeSampleIngress(packet_.pkt(), ports_[0]);
      skips.push_back(sampler->states(Direction::ingress)[0].skip);
    }
    return skips;
  };
  const auto seeded = [this](std::uint64_t seed) { return Kiv::makePtr<TestSampler>(ports_.ports, seed); };
  EXPECT_EQ(sequence(seeded(7)), sequence(seeded(7)));
  EXPECT_NE(sequence(seeded(7)), sequence(seeded(8)));
  EXPECT_NE(sequence(Kiv::makePtr<TestSampler>(ports_.ports)),
            sequence(Kiv::makePtr<TestSampler>(ports_.ports)));
}

// Packets from one sample to the next, counted from outside.
std::vector<std::uint64_t> distances(std::uint32_t rate, std::size_t samples, std::uint64_t seed) {
  class Counting : public RecordingReceiver {
   public:
    using RecordingReceiver::RecordingReceiver;
    bool sampleIs(const Sample&) override { return hit = true; }
    bool hit = false;
  };
  FakePorts ports(1);
  Counting receiver(ports.ports);
  const auto sampler = Kiv::makePtr<TestSampler>(ports.ports, seed);
  sampler->ingressRate = rate;
  const Packet packet = somePacket();
  std::vector<std::uint64_t> result;
  std::uint64_t distance = 0;
  while (result.size() < samples) {
    ++distance;
    sampler->maybeSampleIngress(packet.pkt(), ports[0]);
    if (!std::exchange(receiver.hit, false)) continue;
    result.push_back(std::exchange(distance, 0));
  }
  return result;
}

class SamplerLaw : public testing::TestWithParam<std::uint32_t> {};

// Pearson's test against the uniform law on [1, 2 rate - 1], in at most 100 bins of like width.
TEST_P(SamplerLaw, SkipsAreUniform) {
  const std::uint32_t rate = GetParam();
  const std::uint64_t choices = 2 * std::uint64_t{rate} - 1;
  const std::uint64_t bins = std::min<std::uint64_t>(choices, 100);
  constexpr std::size_t kSamples = 20'000;
  std::vector<double> observed(bins);
  std::vector<double> expected(bins);
  for (std::uint64_t skip = 0; skip < choices; ++skip) {
    expected[skip * bins / choices] += double{kSamples} / static_cast<double>(choices);
  }
  for (const std::uint64_t skip : distances(rate, kSamples, 12345)) {
    ASSERT_GE(skip, 1U);
    ASSERT_LE(skip, choices);
    ++observed[(skip - 1) * bins / choices];
  }
  double chiSquare = 0;
  for (std::size_t bin = 0; bin < bins; ++bin) {
    chiSquare += (observed[bin] - expected[bin]) * (observed[bin] - expected[bin]) / expected[bin];
  }
  const auto freedom = static_cast<double>(bins - 1);
  // 3.1 standard deviations above the mean: about one seed in a thousand of a right sampler lies beyond.
  EXPECT_LE(chiSquare, freedom + 3.1 * std::sqrt(2 * freedom));
}

TEST_P(SamplerLaw, SampledFractionIsOneInTheRate) {
  const std::uint32_t rate = GetParam();
  constexpr std::size_t kSamples = 20'000;
  double packets = 0;
  for (const std::uint64_t skip : distances(rate, kSamples, 54321)) packets += static_cast<double>(skip);
  const double choices = 2.0 * rate - 1;
  const double deviation = std::sqrt((choices * choices - 1) / 12 / kSamples);  // of the mean skip
  EXPECT_NEAR(packets / kSamples, rate, 3.3 * deviation);
}

TEST_P(SamplerLaw, NeighbouringSkipsAreIndependent) {
  const std::uint32_t rate = GetParam();
  if (rate == 1) GTEST_SKIP() << "every skip is 1";
  constexpr std::size_t kSamples = 20'000;
  const auto skips = distances(rate, kSamples, 777);
  double product = 0;
  for (std::size_t i = 1; i < skips.size(); ++i) {
    product += (static_cast<double>(skips[i - 1]) - rate) * (static_cast<double>(skips[i]) - rate);
  }
  const double choices = 2.0 * rate - 1;
  const double correlation = product / (kSamples - 1) / ((choices * choices - 1) / 12);
  EXPECT_NEAR(correlation, 0, 3.3 / std::sqrt(double{kSamples}));
}

INSTANTIATE_TEST_SUITE_P(Rates, SamplerLaw, testing::Values(1, 2, 10, 1000));

}  // namespace
}  // namespace Sflow
