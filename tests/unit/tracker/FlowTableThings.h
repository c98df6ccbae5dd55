// What tests of learned flows need: tables in memory, a clock, and a sink of records.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "FlowTable.h"
#include "ManualClock.h"
#include "MemoryTables.h"

namespace TestSupport {

class RecordingSink : public Tracker::RecordSink {
 public:
  void record(const Tracker::FlowRecord<Pavo::Traits::IPv4>& record) override { records4.push_back(record); }
  void record(const Tracker::FlowRecord<Pavo::Traits::IPv6>& record) override { records6.push_back(record); }
  template <class Domain>
  std::vector<Tracker::FlowRecord<Domain>>& records() {
    if constexpr (FlowTracking::IpFamily<Domain>::kIndex == 0) {
      return records4;
    } else {
      return records6;
    }
  }

  std::vector<Tracker::FlowRecord<Pavo::Traits::IPv4>> records4;
  std::vector<Tracker::FlowRecord<Pavo::Traits::IPv6>> records6;
};

}  // namespace TestSupport
