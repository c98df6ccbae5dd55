#include <algorithm>
#include <cassert>

#include "Metrics.h"

namespace Metrics {

std::string_view stringValue(Kind kind) {
  switch (kind) {
    case Kind::counter:
      return "counter";
    case Kind::gauge:
      return "gauge";
    case Kind::histogram:
      return "histogram";
  }
  return "";
}

Histogram::Histogram(std::span<const double> bounds)
    : bounds_(bounds.begin(), bounds.end()), counts_(bounds.size() + 1) {
  assert(std::is_sorted(bounds.begin(), bounds.end()));
}

void Histogram::observe(double value) {
  std::size_t bucket = 0;
  while (bucket < bounds_.size() && value > bounds_[bucket]) ++bucket;
  ++counts_[bucket];
  ++count_;
  sum_ += value;
}

std::vector<Histogram::Bucket> Histogram::buckets() const {
  std::vector<Bucket> result;
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < bounds_.size(); ++i) {
    count += counts_[i];
    result.push_back({bounds_[i], count});
  }
  return result;
}

void Family::addNumber(Labels labels, double value) {
  assert(kind_ != Kind::histogram);
  numbers_[std::move(labels)] += value;
}

void Family::add(Labels labels, const Histogram& histogram) {
  assert(kind_ == Kind::histogram);
  histograms_.emplace(std::move(labels), histogram);
}

Family& Snapshot::family(std::string_view name, Kind kind, std::string_view help) {
  auto found = families_.find(name);
  if (found == families_.end()) found = families_.emplace(std::string(name), Family(kind, help)).first;
  assert(found->second.kind() == kind);
  return found->second;
}

}  // namespace Metrics
