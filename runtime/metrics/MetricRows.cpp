#include "metrics/MetricRows.h"

#include <cmath>

namespace Metrics {
namespace {

using Kiv::Value;

Value::Object rowOf(const std::string& name, const Family& family, const Labels& labels) {
  Value::Object labelled;
  for (const auto& [label, value] : labels) labelled.emplace_back(label, value);
  return {{"name", name},
          {"type", stringValue(family.kind())},
          {"help", family.help()},
          {"labels", std::move(labelled)}};
}

// Counts are read as integers by those who read JSON; a double is one exactly up to this.
Value numberOf(double value) {
  constexpr double kMostExact = 9007199254740992.0;
  if (value != std::floor(value) || std::abs(value) > kMostExact) return value;
  return static_cast<std::int64_t>(value);
}

Value::List bucketsOf(const Histogram& histogram) {
  Value::List buckets;
  for (const Histogram::Bucket& bucket : histogram.buckets())
    buckets.push_back(Value::Object{{"le", bucket.bound}, {"count", bucket.count}});
  return buckets;
}

}  // namespace

Value::List rowsOf(const Snapshot& snapshot) {
  Value::List rows;
  for (const auto& [name, family] : snapshot.families()) {
    for (const auto& [labels, value] : family.numbers()) {
      Value::Object row = rowOf(name, family, labels);
      row.emplace_back("value", numberOf(value));
      rows.push_back(std::move(row));
    }
    for (const auto& [labels, histogram] : family.histograms()) {
      Value::Object row = rowOf(name, family, labels);
      row.emplace_back("buckets", bucketsOf(histogram));
      row.emplace_back("sum", histogram.sum());
      row.emplace_back("count", histogram.count());
      rows.push_back(std::move(row));
    }
  }
  return rows;
}

}  // namespace Metrics
