// The poll that publishes what the packet path counted: once a second, every local counter that has a counter
// record.
//
// A pass walks the collection in slices; between slices packets go on counting, and counters come and go (a
// counter that is there during the whole pass is copied exactly once). A record that did not change is not
// stored again, so that watchers of the table hear of flows that had packets only. Threading: the agent's
// event thread.
#pragma once

#include <cstdint>
#include <optional>

#include "OwnedTask.h"
#include "Statements.h"

namespace SampledFlowTracker {

template <class Domain>
class CopyLocalCounters {
 public:
  using Texts = StatementTexts<Domain>;
  using Key = FlowTracking::FlowKey<Domain>;
  static constexpr double kInterval = 1.0;  // seconds from the end of a pass to the next

  // What is referred to must outlive this.
  CopyLocalCounters(FamilyOutputs<Domain>& outputs, SmFrame& frame) : outputs_(outputs), frame_(frame) {}

  // Creates the poll's task on the frame's scheduler.
  void taskIs();
  // The poll's inputs may have become ready: its first pass is due once they are.
  void inputReady();
  // One slice of a pass: starts one, or goes on behind the last counter handled.
  void run();

  OwnedTimerTask& task() { return task_; }
  const OwnedTimerTask& task() const { return task_; }

 private:
  using Local = Pexa::Counter::SftHoCounterMap<Domain>;
  static constexpr std::size_t kAhead = 16;  // counters; about as many as memory brings at a time

  // Asks for the memory of an entry and of those behind it, counters and records. In a large collection a
  // pass waits for memory several times a counter otherwise, which is most of what it costs.
  void lookAhead(const Local& counters, const typename Local::Entry* entry) const;
  void copy(const Pexa::Counter::SftHoCounter<Domain>& local);
  void yieldPass(std::uint64_t handled, const Key& last);
  void endPass(std::uint64_t handled);

  FamilyOutputs<Domain>& outputs_;
  SmFrame& frame_;
  OwnedTimerTask task_;
  std::optional<Key> resume_;  // the last counter handled by a pass that gave way
};

}  // namespace SampledFlowTracker
