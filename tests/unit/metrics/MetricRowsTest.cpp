// Snapshots as the control socket shows them.
#include "metrics/MetricRows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "json/JsonText.h"

namespace {

using ::testing::ElementsAre;

std::vector<std::string> texts(const Metrics::Snapshot& snapshot) {
  std::vector<std::string> result;
  for (const Kiv::Value& row : Metrics::rowsOf(snapshot)) result.push_back(Json::text(row));
  return result;
}

TEST(MetricRowsTest, ARowANumberWithItsFamilyAndLabels) {
  Metrics::Snapshot snapshot;
  auto& family = snapshot.counter("sacks_total", "Sacks.");
  family.add({{"mill", "low"}, {"corn", "rye"}}, 7U);
  family.add({{"mill", "low"}, {"corn", "oat"}}, 8U);
  EXPECT_THAT(
      texts(snapshot),
      ElementsAre(
          R"({"name":"sacks_total","type":"counter","help":"Sacks.","labels":{"mill":"low","corn":"oat"},"value":8})",
          R"({"name":"sacks_total","type":"counter","help":"Sacks.","labels":{"mill":"low","corn":"rye"},"value":7})"));
}

TEST(MetricRowsTest, WholeValuesAreIntegersAndOthersAreNot) {
  Metrics::Snapshot snapshot;
  snapshot.gauge("a", "").add(9007199254740992U);
  snapshot.gauge("b", "").add(-0.5);
  snapshot.gauge("c", "").add(1e300);
  EXPECT_THAT(texts(snapshot),
              ElementsAre(R"({"name":"a","type":"gauge","help":"","labels":{},"value":9007199254740992})",
                          R"({"name":"b","type":"gauge","help":"","labels":{},"value":-0.5})",
                          R"({"name":"c","type":"gauge","help":"","labels":{},"value":1e+300})"));
}

TEST(MetricRowsTest, AHistogramHasBucketsInPlaceOfAValue) {
  Metrics::Histogram histogram(std::array{0.25, 0.5});
  for (const double value : {0.25, 0.5, 4.0}) histogram.observe(value);
  Metrics::Snapshot snapshot;
  snapshot.histogram("sizes", "Of sacks.").add({}, histogram);
  EXPECT_THAT(
      texts(snapshot),
      ElementsAre(
          R"({"name":"sizes","type":"histogram","help":"Of sacks.","labels":{},"buckets":[{"le":0.25,"count":1},{"le":0.5,"count":2}],"sum":4.75,"count":3})"));
}

TEST(MetricRowsTest, AFamilyWithoutNumbersHasNoRow) {
  Metrics::Snapshot snapshot;
  snapshot.counter("sacks_total", "Sacks.");
  EXPECT_TRUE(texts(snapshot).empty());
}

}  // namespace
