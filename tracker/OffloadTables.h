// The shared tables of sampled flow tracking as the tracker has them: it writes the wanted offloads, and
// reads what became of them and what was counted.
//
// The tables are files that outlive everybody: the tracker may start before the agent, and the agent may go
// and come back. There is one writer of the wanted offloads at a time.
//
// Threading: one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"

namespace Quell {
class SharedTables;
}

namespace Tracker {

class OffloadTables {
 public:
  template <class Domain>
  using Key = FlowTracking::HoFlowKey<Domain>;

  // Mounts the tables of a run directory, and becomes the writer of the wanted offloads. Throws
  // Quell::TableError; Quell::TableBusy, with the other process, when they are written already.
  explicit OffloadTables(const std::string& runDir);
  // Over containers of the caller's own.
  OffloadTables(Kiv::Ptr<FlowTracking::HoFlowConfig> config, Kiv::Ptr<FlowTracking::HoFlowStatus> status,
                Kiv::Ptr<FlowTracking::HoFlowCounter> counter);
  ~OffloadTables();

  // Wants an offload, or wants it no more. False, and told in the log, when the table does not take it.
  template <class Domain>
  bool want(const Key<Domain>& key, double now);
  template <class Domain>
  bool unwant(const Key<Domain>& key);
  // Calls with each wanted offload's record. Damaged ones are stepped over and counted.
  template <class Domain>
  void wanted(const std::function<void(const FlowTracking::HoFlowConfigRecord<Domain>&)>& each) const;

  template <class Domain>
  bool inHardware(const Key<Domain>& key) const;
  // The published counter of a flow, whatever directions and interfaces it has. Nothing when there is none.
  template <class Domain>
  std::optional<FlowTracking::HoFlowCounterRecord<Domain>> counter(
      const FlowTracking::FlowKey<Domain>& key) const;

  // A number that grows whenever a process begins to write the published counters: another agent, or one that
  // was started again, counts every flow from 0.
  template <class Domain>
  std::uint64_t counterSession() const;

  // Wakes those who watch what was wanted; nothing when nothing changed.
  void flush();

  // Readable when deliver() has something to do; -1 without a run directory.
  int descriptor() const;
  // Takes the notices of the tables' changes away: something was published.
  void deliver();

  // Damaged records met, in any of the tables.
  std::uint64_t damages() const;
  std::uint64_t refusals() const { return refusals_; }

 private:
  template <class Change>
  bool changed(const Change& change);

  Kiv::Ptr<Quell::SharedTables> tables_;  // empty without a run directory
  Kiv::Ptr<FlowTracking::HoFlowConfig> config_;
  Kiv::Ptr<FlowTracking::HoFlowStatus> status_;
  Kiv::Ptr<FlowTracking::HoFlowCounter> counter_;
  bool unflushed_ = false;
  mutable std::uint64_t damages_ = 0;
  std::uint64_t refusals_ = 0;
};

}  // namespace Tracker
