// Sends flow records to the collectors, as IPFIX over UDP.
//
// All collectors get the same messages: encoded once, one sequence of record numbers. The templates go out
// first and again every templateRefresh seconds, since UDP does not tell whether anybody has them.
//
// Threading: one thread; nothing waits.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "Collector.h"
#include "FlowRecord.h"
#include "IpfixEncoder.h"
#include "Kiv.h"

namespace Tracker {

struct ExportConfig {
  std::uint32_t observationDomain = 1;
  double templateRefresh = 60;  // seconds
};

class FlowExporter : public RecordSink {
 public:
  static constexpr std::size_t kMostCollectors = 8;

  // Without a collector records go nowhere.
  FlowExporter(const ExportConfig& config, std::vector<Collector> collectors);
  FlowExporter(const FlowExporter&) = delete;
  FlowExporter& operator=(const FlowExporter&) = delete;

  void record(const FlowRecord<Pavo::Traits::IPv4>& record) override { add(record); }
  void record(const FlowRecord<Pavo::Traits::IPv6>& record) override { add(record); }
  // To be called once a second, and at the end: sends what is due.
  void tick();

  const std::vector<Collector>& collectors() const { return collectors_; }
  // [{"collector","messages","lost","refused"}]
  Kiv::Value value() const;
  // Records that could not be encoded.
  std::uint64_t failed() const { return failed_; }

 private:
  template <class Domain>
  void add(const FlowRecord<Domain>& record);
  template <class Action>
  void guarded(const Action& action);
  void templatesWhenDue();

  const ExportConfig config_;
  std::vector<Collector> collectors_;
  IpfixEncoder encoder_;
  double templatesSent_ = -std::numeric_limits<double>::infinity();
  std::uint64_t failed_ = 0;
};

}  // namespace Tracker
