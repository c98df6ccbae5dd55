// The offload control state machine once more, as plainly as it can be put: plain maps, no tasks, one list of
// work. It says what each event has to leave behind; the real one is held against it.
//
// Work is done in slices: runWork(n) takes the first work of the list and lets it do n entries; what is left
// of it stays first. Everything else that comes up goes behind. The initial scan of each family is work and
// delivers nothing; when the last of them ends, the scans start again and deliver, every output is offered
// its reconciliation, and the local counters are copied, first at once and then a second after each pass.
#pragma once

#include <array>
#include <deque>
#include <limits>
#include <optional>
#include <set>

#include "NaiveOutputs.h"

namespace Naive {

enum class Mode { synchronous, tasks };

// By family: 0 is IPv4, 1 is IPv6.
struct ScanFlags {
  std::array<bool, 2> copyIdle{true, true};
  std::array<std::uint64_t, 2> generation{};
  std::array<std::uint64_t, 2> doneGen{};
  std::array<bool, 2> streamScan{};
  bool idle() const { return copyIdle[0] && copyIdle[1]; }
};

class StateMachine {
 public:
  // Starts over the world's tables. The world outlives it.
  StateMachine(World& world, Mode mode);
  StateMachine(const StateMachine&) = delete;
  StateMachine& operator=(const StateMachine&) = delete;

  // A wanted offload appeared, changed or went.
  template <class Domain>
  void configChanged(const FlowTracking::HoFlowKey<Domain>& key);
  // Wanted offloads may have appeared, changed and gone: they are scanned once more, from the first, and what
  // has a status or waits for room and is not wanted any more is dropped behind that.
  template <class Domain>
  void lookAgain();
  // Lets the first work of the list do so many entries, at least one. Timers whose time has come become work
  // before, behind all there is.
  void runWork(unsigned entries);
  // From now on nothing is delivered and no work does anything.
  void notificationsOff() { active_ = false; }

  Mode mode() const { return mode_; }
  bool active() const { return active_; }
  bool initialScanDone() const { return initialScanDone_; }
  bool ready() const;
  bool idle() const { return ready() && (mode_ == Mode::synchronous || scan_.idle()); }
  bool outputReady(Output output) const { return state(output).ready; }
  const ScanFlags& scan() const { return scan_; }
  // How many works there are, with the timers whose time has come.
  std::size_t works() const;

 private:
  static constexpr unsigned kAll = std::numeric_limits<unsigned>::max();

  struct OutputState {
    bool reconciling = false;
    bool ready = false;
    bool handedOver = false;  // only its own work goes on with it
    std::set<AnyKey> seen;
    std::optional<AnyKey> bookmark;  // the entry to go on with
  };
  struct Work {
    enum class Kind { scan, output, copy } kind;
    std::size_t which;  // family or output
    bool operator==(const Work&) const = default;
  };
  struct Timer {
    double due;
    std::size_t family;
  };
  // What of a family is under way.
  template <class Domain>
  struct Walks {
    std::optional<FlowTracking::HoFlowKey<Domain>> scanned;  // the scan goes on behind it
    bool sweepBehind = false;  // what is not wanted any more is dropped behind the scan
    std::optional<FlowTracking::FlowKey<Domain>> copied;  // the pass goes on behind it
  };
  // What the statements of an event look at.
  template <class Domain>
  struct Event {
    FlowTracking::HoFlowKey<Domain> key;
    bool outOfResources = false;
    bool wanted = false;
    std::optional<typename Tables<Domain>::Status> status;    // before the event
    std::optional<typename Tables<Domain>::Counter> counter;  // before the event
  };
  using State = std::optional<HoFlowState>;

  // --- Work (NaiveStateMachine.cpp)
  void append(Work work);
  void fireTimers();
  void prepend(Work work) { works_.push_front(work); }
  unsigned share(unsigned entries) const { return mode_ == Mode::synchronous ? kAll : entries; }
  template <class Domain>
  void scanSlice(unsigned entries);
  template <class Domain>
  void sweep();
  template <class Domain>
  void copySlice(unsigned entries);
  template <class Domain>
  void copyOne(const FlowTracking::FlowKey<Domain>& flow);
  void initialScanEnded();
  void offer(Output output, unsigned entries, bool ownWork);
  bool reconcile(Output output, unsigned entries, bool ownWork);
  bool itsTurn(Output output) const;

  // --- Statements (NaiveStatements.cpp)
  template <class Domain>
  void event(const FlowTracking::HoFlowKey<Domain>& key);
  template <class Domain>
  Event<Domain> eventOf(const FlowTracking::HoFlowKey<Domain>& key, bool outOfResources);
  template <class Domain>
  bool outOfResources();
  template <class Domain>
  void decide(const Event<Domain>& event);
  template <class Domain>
  void statusStream(const Event<Domain>& event);
  template <class Domain>
  void flowCounterStream(const Event<Domain>& event);
  template <class Domain>
  void stateCounterStream(const Event<Domain>& event);
  template <class Domain>
  void countState(State state, std::uint32_t delta, std::uint32_t initial);
  template <class Domain>
  void overflowStream(const Event<Domain>& event);
  template <class Domain>
  void replacementStream(const Event<Domain>& event);
  void see(Output output, const AnyKey& key);

  template <class Domain>
  Walks<Domain>& walks() {
    if constexpr (std::is_same_v<Domain, V4>) {
      return walks4_;
    } else {
      return walks6_;
    }
  }
  OutputState& state(Output output) { return outputs_[static_cast<std::size_t>(output)]; }
  const OutputState& state(Output output) const { return outputs_[static_cast<std::size_t>(output)]; }
  OutputTable& table(Output output) { return tables_[static_cast<std::size_t>(output)]; }

  World& world_;
  Mode mode_;
  bool active_ = true;
  bool initialScanDone_ = false;
  ScanFlags scan_;
  std::array<OutputTable, kOutputs> tables_;
  std::array<OutputState, kOutputs> outputs_;
  std::deque<Work> works_;
  std::deque<Timer> timers_;  // of the copies, in the order in which they go off
  Walks<V4> walks4_;
  Walks<V6> walks6_;
};

}  // namespace Naive
