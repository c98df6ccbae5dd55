// The audit of one family: walks, each in slices.
//
//   walk                 compares
//   statuses             in hardware -> counter record, in overflow -> overflow entry;
//                        at its end, in one look, the per-state counts with the numbers of statuses
//   overflow entries     each -> a status in overflow, and a wanted offload
//   counter records      each -> the number of its flow's statuses
//   local counters       each -> any status of its flow
//   second look          overflow entries that were not wanted -> still so
//   drop                 nothing: the view goes, part by part
//
// The state machine goes on between the slices. What holds in spite of that:
//
// F1  Between two slices no event is half done (events do not yield), so that what one slice reads together
//     belongs together.
// F2  From the first slice to the last, a view of all statuses is kept (StatusView.h) by the walk and by the
//     table's own notifications. It is complete when the walk over the statuses has ended, and nothing is
//     held against its numbers before.
// F3  Every difference is found and repaired in one look at its record and the view: what is stored is right
//     at that moment, and the state machine keeps its counts right from there.
// F4  Wanted offloads come and go in another process, and the state machine hears of it a little later. So an
//     entry that is not wanted is looked at again after a pause before it is told of.
//
// Neighbours: AuditRun.h runs one of each family. Threading: the agent's event thread.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "Findings.h"
#include "Olt.h"
#include "StatusView.h"
#include "Tracker.h"

namespace SampledFlowTracker {

// How a slice ended: more is to be done at once; more is to be done after a pause; all is done.
enum class AuditProgress { yields, pauses, ended };

template <class Domain>
class FamilyAudit {
 public:
  // Watches the statuses from now on. Both references must outlive this.
  FamilyAudit(const Audited& audited, bool repair, Findings& findings);
  ~FamilyAudit();
  FamilyAudit(const FamilyAudit&) = delete;
  FamilyAudit& operator=(const FamilyAudit&) = delete;

  // One slice of the task.
  AuditProgress slice(const Olt::Task& task);
  std::uint64_t examined() const { return examined_; }  // entries, up to now
  std::uint64_t statuses() const { return statuses_; }  // once all walks have ended

 private:
  using Family = FlowTracking::IpFamily<Domain>;
  using Names = TrackerNames<Domain>;
  using Key = FlowTracking::HoFlowKey<Domain>;
  using FlowKey = FlowTracking::FlowKey<Domain>;
  using Status = FlowTracking::HoFlowStatusRecord<Domain>;
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;
  using State = FlowTracking::HoFlowState;
  class KivHoFlowStatus;

  enum class Walk { statuses, overflow, counters, localCounters, secondLook, drop, ended };
  // Each examines one entry behind the resume place; false: there is none.
  bool nextStatus();
  bool nextOverflowEntry();
  bool nextCounter();
  bool nextLocalCounter();
  bool nextSuspect();
  bool next();
  void endWalk();

  void examine(const Status& status);
  void examineOverflowEntry(const Key& key);
  void examine(const Counter& counter);
  void examineLocalCounter(const FlowKey& flow);
  void compareStateCounts();
  void compareStateCount(State state);

  // The next record of a table behind a key, or its first one; reports what cannot be read and goes on behind
  // it.
  template <class Map, class TableKey>
  bool recordBehind(const Map& map, const std::optional<TableKey>& place, typename Map::RecordTypeT& record);
  void handleStatus(const Key& key);
  bool waits(const Key& key) const;
  bool wanted(const Key& key) const;
  void add(FindingKind kind, Kiv::String key, Kiv::Value found, Kiv::Value expected,
           const std::function<void()>& repair = {});

  const Audited& audited_;
  const bool repair_;
  Findings& findings_;
  StatusView<Domain> view_;
  Kiv::Ptr<KivHoFlowStatus> watcher_;
  Walk walk_ = Walk::statuses;
  std::optional<Key> statusPlace_;
  std::optional<FlowKey> counterPlace_;
  Kiv::String textPlace_;      // of a walk over an entity that is known by names; "" before its first entry
  Kiv::String lastFailure_;    // of a repair, told of once
  std::vector<Key> suspects_;  // overflow entries to look at a second time (F4)
  bool paused_ = false;
  std::uint64_t examined_ = 0;
  std::uint64_t statuses_ = 0;
};

extern template class FamilyAudit<Pavo::Traits::IPv4>;
extern template class FamilyAudit<Pavo::Traits::IPv6>;

}  // namespace SampledFlowTracker
