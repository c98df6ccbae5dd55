// Where other threads ask for a snapshot, which only the event thread can take.
//
//   other thread: ask() ──post──▶ event thread: takes one ──▶ ask() returns with it
//
// Who asks waits for so long and no longer; the event thread never waits. Several who ask at a time get the
// same snapshot, and one that was just taken is good for everybody: however often is asked, it costs the
// event thread no more than ten snapshots a second.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Metrics.h"

namespace asio {
class io_context;
}

namespace Metrics {

class SnapshotDesk {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::duration kFresh = std::chrono::milliseconds(100);

  struct Answer {
    std::shared_ptr<const Snapshot> snapshot;  // the latest; null when there has been none
    std::chrono::duration<double> age{0};
  };

  // `take` is called from within the io_context. What it throws as std::runtime_error is logged; who asked
  // gets the snapshot before.
  SnapshotDesk(asio::io_context& io, std::function<Snapshot()> take);
  // REQUIRES: nobody asks any more.
  ~SnapshotDesk();
  SnapshotDesk(const SnapshotDesk&) = delete;
  SnapshotDesk& operator=(const SnapshotDesk&) = delete;

  // From any thread but the event thread. Waits for a snapshot, and gives the latest one when none comes in
  // time.
  Answer ask(Clock::duration patience);
  // On the event thread: takes no snapshot any more. Those who wait get the latest one at once, as does who
  // asks from now on.
  void close();

 private:
  struct State;
  const std::shared_ptr<State> state_;  // shared with what was posted
};

}  // namespace Metrics
