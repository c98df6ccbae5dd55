#include "Candidates.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

template <class Domain>
class CandidatesTest : public testing::Test {
 protected:
  static constexpr std::size_t kMost = 3;

  static Tracker::SampledFlow<Domain> sample(std::uint16_t port, std::uint32_t rate = 10) {
    Tracker::SampledFlow<Domain> sample;
    sample.key.ipFlowKey.srcPort = port;
    sample.octets = 100;
    sample.rate = rate;
    sample.input = 1;
    sample.output = 2;
    return sample;
  }
  std::uint64_t samplesOf(std::uint16_t port, double now) {
    return candidates_.sampled(sample(port), now).counts.samples;
  }

  Tracker::Candidates<Domain> candidates_{kMost};
};

using Families = testing::Types<IPv4, IPv6>;
TYPED_TEST_SUITE(CandidatesTest, Families);

TYPED_TEST(CandidatesTest, AddsUpItsSamplesScaled) {
  this->candidates_.sampled(this->sample(1, 10), 5);
  const auto& candidate = this->candidates_.sampled(this->sample(1, 20), 7);
  EXPECT_EQ(candidate.counts.samples, 2U);
  EXPECT_EQ(candidate.counts.packets, 30U);
  EXPECT_EQ(candidate.counts.octets, 3000U);
  EXPECT_EQ(candidate.counts.rate, 20U);
  EXPECT_EQ(candidate.counts.start, 5);
  EXPECT_EQ(candidate.counts.end, 7);
  EXPECT_EQ(candidate.input, 1U);
  EXPECT_EQ(candidate.output, 2U);
  EXPECT_EQ(this->candidates_.size(), 1U);
}

TYPED_TEST(CandidatesTest, ANewOneTakesThePlaceOfTheOneSampledLongestAgo) {
  this->samplesOf(1, 1);
  this->samplesOf(2, 2);
  this->samplesOf(3, 3);
  EXPECT_EQ(this->samplesOf(1, 4), 2U);
  EXPECT_EQ(this->samplesOf(4, 5), 1U);  // instead of 2
  EXPECT_EQ(this->candidates_.size(), 3U);
  EXPECT_EQ(this->candidates_.evicted(), 1U);
  EXPECT_EQ(this->samplesOf(1, 6), 3U);
  EXPECT_EQ(this->samplesOf(3, 7), 2U);
  EXPECT_EQ(this->samplesOf(2, 8), 1U);
}

TYPED_TEST(CandidatesTest, ForgetsThoseThatWereNotSampledSince) {
  this->samplesOf(1, 1);
  this->samplesOf(2, 2);
  this->samplesOf(1, 3);
  this->candidates_.forgetBefore(3);
  EXPECT_EQ(this->candidates_.size(), 1U);
  EXPECT_EQ(this->candidates_.expired(), 1U);
  EXPECT_EQ(this->candidates_.evicted(), 0U);
  EXPECT_EQ(this->samplesOf(1, 4), 3U);
  EXPECT_EQ(this->samplesOf(2, 4), 1U);
}

TYPED_TEST(CandidatesTest, AreToldLatestFirst) {
  for (const std::uint16_t port : std::vector<std::uint16_t>{1, 2, 3, 1}) this->samplesOf(port, 1);
  std::vector<std::uint16_t> ports;
  this->candidates_.forEach([&](const auto& each) { ports.push_back(each.key.ipFlowKey.srcPort); });
  EXPECT_EQ(ports, (std::vector<std::uint16_t>{1, 3, 2}));
}

TYPED_TEST(CandidatesTest, OneThatIsTakenOutLeavesRoom) {
  for (std::uint16_t port = 1; port <= 3; ++port) this->samplesOf(port, 1);
  this->candidates_.erase(this->sample(2).key);
  this->candidates_.erase(this->sample(9).key);
  EXPECT_EQ(this->candidates_.size(), 2U);
  this->samplesOf(4, 2);
  EXPECT_EQ(this->candidates_.evicted(), 0U);
}

TEST(FlowCountsTest, SumsStayAtTheLargestNumber) {
  Tracker::FlowCounts counts;
  counts.add(~std::uint64_t{0} - 1, ~std::uint64_t{0} - 1, 1, 1);
  counts.addSample(~std::uint64_t{0} / 2, 4000000000U, 2);
  EXPECT_EQ(counts.packets, ~std::uint64_t{0});
  EXPECT_EQ(counts.octets, ~std::uint64_t{0});
}

}  // namespace
