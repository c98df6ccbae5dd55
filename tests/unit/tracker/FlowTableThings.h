// Tables in memory, a clock and a sink of records for tests of learned flows.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FlowTable.h"
#include "ManualClock.h"
#include "QuellMap.h"

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

// The three tables, each with room in memory of its own.
struct MemoryTables {
  Kiv::Ptr<FlowTracking::HoFlowConfig> config = Kiv::makePtr<FlowTracking::HoFlowConfig>("config");
  Kiv::Ptr<FlowTracking::HoFlowStatus> status = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  Kiv::Ptr<FlowTracking::HoFlowCounter> counter = Kiv::makePtr<FlowTracking::HoFlowCounter>("counter");
  Tracker::OffloadTables tables{config, status, counter};

  MemoryTables() {
    for (const Kiv::Ptr<Quell::Container>& each :
         {Kiv::Ptr<Quell::Container>(config), Kiv::Ptr<Quell::Container>(status),
          Kiv::Ptr<Quell::Container>(counter)}) {
      for (Quell::MapBase* map : each->collections()) Quell::attachAnonymous(*map);
    }
  }
  template <class Domain>
  bool wanted(const FlowTracking::HoFlowKey<Domain>& key) const {
    return config->map<Domain>().has(key);
  }
  template <class Domain>
  void stateIs(const FlowTracking::HoFlowKey<Domain>& key, FlowTracking::HoFlowState state) {
    FlowTracking::HoFlowStatusRecord<Domain> record;
    record.key = key;
    record.state = state;
    status->map<Domain>().insert(record);
  }
  template <class Domain>
  void counterIs(const FlowTracking::FlowKey<Domain>& key, std::uint64_t packets, std::uint64_t octets,
                 double lastUpdate, double creation = 1) {
    FlowTracking::HoFlowCounterRecord<Domain> record;
    record.key = key;
    record.packets = packets;
    record.bytes = octets;
    record.creationTime = creation;
    record.lastUpdateTime = lastUpdate;
    counter->map<Domain>().insert(record);
  }
  // As an agent does that ends and is started again.
  template <class Domain>
  void counterWriterStartsAgain() {
    Quell::Table& table = *counter->map<Domain>().table();
    table.writingDel();
    table.writingIs();
  }
};

}  // namespace TestSupport
