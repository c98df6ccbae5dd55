// The flow tracker's tables, in memory, and what an agent does to them.
#pragma once

#include <initializer_list>

#include "OffloadTables.h"
#include "QuellMap.h"

namespace TestSupport {

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
