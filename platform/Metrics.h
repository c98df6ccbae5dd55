// Numbers that the agent and its plugins tell of themselves, for whoever watches them.
//
// Nothing is pushed. Who has numbers keeps them where they arise, as plain integers of the event thread, and
// writes them into a snapshot when the agent asks for one (Pexa::PexaPluginBase::metricsInto). What is
// asked of a plugin ends with its membership of the plugin manager, before its code goes.
//
//   void Mill::metricsInto(Metrics::Snapshot& snapshot) const {
//     snapshot.counter("mill_sacks_total", "Sacks that were filled.").add({{"corn", "rye"}}, rye_);
//   }
//
// Names and units are those of Prometheus: a counter ends in _total, times are seconds, sizes are bytes.
//
// Neighbours: runtime/metrics has the bodies and the HTTP endpoint; `sft metrics` lists the same numbers.
// Threading: a snapshot is values only, so that one that was taken may be handed to another thread.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Metrics {

enum class Kind : std::uint8_t {
  counter,    // only ever grows, from 0 when what counts it begins
  gauge,      // as of now
  histogram,  // how often something was how large
};
// "counter", "gauge", "histogram".
std::string_view stringValue(Kind kind);

// Names and values, in the order in which they are to be read. A name has letters, digits and underscores.
using Labels = std::vector<std::pair<std::string, std::string>>;

// How often something was at most so large, for a few bounds.
class Histogram {
 public:
  struct Bucket {
    double bound = 0;
    std::uint64_t count = 0;  // of what was at most the bound, smaller ones included
  };

  // REQUIRES: the bounds ascend.
  explicit Histogram(std::span<const double> bounds);
  void observe(double value);

  std::vector<Bucket> buckets() const;
  // Of all that was observed, above the last bound too.
  std::uint64_t count() const { return count_; }
  double sum() const { return sum_; }

 private:
  std::vector<double> bounds_;
  std::vector<std::uint64_t> counts_;  // each bucket's own
  std::uint64_t count_ = 0;
  double sum_ = 0;
};

// What is known under one name.
class Family {
 public:
  Family(Kind kind, std::string_view help) : kind_(kind), help_(help) {}

  // A number under its labels; two under the same labels are one, their sum. REQUIRES: not a histogram.
  template <class Number>
  void add(Labels labels, Number value) {
    addNumber(std::move(labels), static_cast<double>(value));
  }
  template <class Number>
  void add(Number value) {
    addNumber({}, static_cast<double>(value));
  }
  // REQUIRES: a histogram, the first under these labels.
  void add(Labels labels, const Histogram& histogram);

  Kind kind() const { return kind_; }
  const std::string& help() const { return help_; }
  const std::map<Labels, double>& numbers() const { return numbers_; }
  const std::map<Labels, Histogram>& histograms() const { return histograms_; }

 private:
  void addNumber(Labels labels, double value);

  Kind kind_;
  std::string help_;
  std::map<Labels, double> numbers_;
  std::map<Labels, Histogram> histograms_;
};

// All numbers of one moment.
class Snapshot {
 public:
  // The family of a name, made when it is not there; the help is one sentence on what is counted.
  // REQUIRES: it is of one kind everywhere.
  Family& counter(std::string_view name, std::string_view help) { return family(name, Kind::counter, help); }
  Family& gauge(std::string_view name, std::string_view help) { return family(name, Kind::gauge, help); }
  Family& histogram(std::string_view name, std::string_view help) {
    return family(name, Kind::histogram, help);
  }
  // By name.
  const std::map<std::string, Family, std::less<>>& families() const { return families_; }

 private:
  Family& family(std::string_view name, Kind kind, std::string_view help);

  std::map<std::string, Family, std::less<>> families_;
};

}  // namespace Metrics
