// What sources write into a snapshot.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "Metrics.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

using Metrics::Labels;

TEST(SnapshotTest, AFamilyIsMadeOnceAndKeepsItsHelp) {
  Metrics::Snapshot snapshot;
  snapshot.counter("sacks_total", "Sacks.").add({{"corn", "rye"}}, 1U);
  snapshot.counter("sacks_total", "another help").add({{"corn", "oat"}}, 2U);
  ASSERT_EQ(snapshot.families().size(), 1U);
  const Metrics::Family& family = snapshot.families().begin()->second;
  EXPECT_EQ(family.help(), "Sacks.");
  EXPECT_EQ(family.kind(), Metrics::Kind::counter);
  EXPECT_THAT(family.numbers(),
              ElementsAre(Pair(Labels{{"corn", "oat"}}, 2), Pair(Labels{{"corn", "rye"}}, 1)));
}

TEST(SnapshotTest, NumbersUnderTheSameLabelsAreOne) {
  Metrics::Snapshot snapshot;
  snapshot.gauge("level", "Of water.").add(2);
  snapshot.gauge("level", "Of water.").add(0.5);
  EXPECT_THAT(snapshot.families().begin()->second.numbers(), ElementsAre(Pair(Labels{}, 2.5)));
}

TEST(SnapshotTest, FamiliesComeByName) {
  Metrics::Snapshot snapshot;
  snapshot.gauge("b", "");
  snapshot.gauge("a", "");
  EXPECT_EQ(snapshot.families().begin()->first, "a");
}

class HistogramTest : public testing::Test {
 protected:
  // Bounds with the counts of what was at most so large.
  std::vector<std::pair<double, std::uint64_t>> buckets() const {
    std::vector<std::pair<double, std::uint64_t>> result;
    for (const auto& bucket : histogram_.buckets()) result.emplace_back(bucket.bound, bucket.count);
    return result;
  }
  Metrics::Histogram histogram_{std::array{1.0, 2.0}};
};

TEST_F(HistogramTest, ABucketCountsWhatIsAtMostItsBound) {
  for (const double value : {0.5, 1.0, 1.5, 2.0}) histogram_.observe(value);
  EXPECT_THAT(buckets(), ElementsAre(Pair(1, 2), Pair(2, 4)));
  EXPECT_EQ(histogram_.count(), 4U);
  EXPECT_EQ(histogram_.sum(), 5);
}

TEST_F(HistogramTest, WhatIsAboveTheLastBoundIsInTheCountAlone) {
  histogram_.observe(3);
  EXPECT_THAT(buckets(), ElementsAre(Pair(1, 0), Pair(2, 0)));
  EXPECT_EQ(histogram_.count(), 1U);
  EXPECT_EQ(histogram_.sum(), 3);
}

TEST_F(HistogramTest, ASnapshotKeepsWhatWasCountedThen) {
  histogram_.observe(1);
  Metrics::Snapshot snapshot;
  snapshot.histogram("sizes", "").add({{"of", "sacks"}}, histogram_);
  histogram_.observe(1);
  EXPECT_EQ(snapshot.families().begin()->second.histograms().at({{"of", "sacks"}}).count(), 1U);
}

}  // namespace
