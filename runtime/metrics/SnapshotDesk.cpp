#include "metrics/SnapshotDesk.h"

#include <spdlog/spdlog.h>

#include <asio.hpp>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace Metrics {

struct SnapshotDesk::State : std::enable_shared_from_this<SnapshotDesk::State> {
  State(asio::io_context& context, std::function<Snapshot()> takeOne)
      : io(context), take(std::move(takeOne)) {}

  // Of the event thread alone.
  asio::io_context& io;
  std::function<Snapshot()> take;

  std::mutex mutex;  // of all below
  std::condition_variable taken;
  std::uint64_t snapshots = 0;  // taken so far, those that failed among them
  std::shared_ptr<const Snapshot> latest;
  Clock::time_point takenAt;
  bool posted = false;
  bool closed = false;

  bool fresh() const { return latest && Clock::now() - takenAt < kFresh; }

  void serve() {
    std::shared_ptr<const Snapshot> snapshot;
    if (take) snapshot = takeOne();
    const std::lock_guard lock(mutex);
    posted = false;
    ++snapshots;
    if (snapshot) {
      latest = std::move(snapshot);
      takenAt = Clock::now();
    }
    taken.notify_all();
  }
  std::shared_ptr<const Snapshot> takeOne() const {
    try {
      return std::make_shared<const Snapshot>(take());
    } catch (const std::runtime_error& error) {
      spdlog::error("metrics: {}", error.what());
      return nullptr;
    }
  }
};

SnapshotDesk::SnapshotDesk(asio::io_context& io, std::function<Snapshot()> take)
    : state_(std::make_shared<State>(io, std::move(take))) {}

SnapshotDesk::~SnapshotDesk() {
  close();
}

SnapshotDesk::Answer SnapshotDesk::ask(Clock::duration patience) {
  State& state = *state_;
  std::unique_lock lock(state.mutex);
  if (!state.closed && !state.fresh()) {
    if (!state.posted) {
      asio::post(state.io, [posted = state.shared_from_this()] { posted->serve(); });
      state.posted = true;
    }
    const std::uint64_t before = state.snapshots;
    state.taken.wait_for(lock, patience, [&] { return state.closed || state.snapshots != before; });
  }
  if (!state.latest) return {};
  return {state.latest, Clock::now() - state.takenAt};
}

void SnapshotDesk::close() {
  state_->take = nullptr;
  const std::lock_guard lock(state_->mutex);
  state_->closed = true;
  state_->taken.notify_all();
}

}  // namespace Metrics
