#include "NaiveStateMachine.h"

#include <algorithm>
#include <utility>

namespace Naive {

namespace {
constexpr std::size_t kFour = 0;
constexpr std::size_t kSix = 1;
constexpr double kCopyPeriod = 1.0;
}  // namespace

StateMachine::StateMachine(World& world, Mode mode)
    : world_(world), mode_(mode), tables_{outputTable(world.v6.local),   outputTable(world.v4.local),
                                          outputTable(world.v6.states),  outputTable(world.v4.status),
                                          outputTable(world.v4.states),  outputTable(world.v4.overflow),
                                          outputTable(world.v6.counter), outputTable(world.v6.status),
                                          outputTable(world.v4.counter), outputTable(world.v6.overflow)} {
  for (std::size_t i = 0; i < kOutputs; ++i) outputs_[i].reconciling = tables_[i].size() != 0;
  if (mode_ == Mode::tasks) {
    works_ = {{Work::Kind::scan, kSix}, {Work::Kind::scan, kFour}};
  } else {
    scanSlice<V6>(kAll);
    scanSlice<V4>(kAll);
  }
}

bool StateMachine::ready() const {
  return std::all_of(outputs_.begin(), outputs_.end(),
                     [](const OutputState& output) { return output.ready; });
}

void StateMachine::append(Work work) {
  if (std::find(works_.begin(), works_.end(), work) == works_.end()) works_.push_back(work);
}

void StateMachine::fireTimers() {
  while (!timers_.empty() && timers_.front().due <= world_.now) {
    append({Work::Kind::copy, timers_.front().family});
    timers_.pop_front();
  }
}

std::size_t StateMachine::works() const {
  const auto due = std::count_if(timers_.begin(), timers_.end(),
                                 [this](const Timer& timer) { return timer.due <= world_.now; });
  return works_.size() + static_cast<std::size_t>(due);
}

void StateMachine::runWork(unsigned entries) {
  fireTimers();
  if (works_.empty()) return;
  const Work work = works_.front();
  works_.pop_front();
  if (!active_) return;
  switch (work.kind) {
    case Work::Kind::scan:
      return work.which == kFour ? scanSlice<V4>(entries) : scanSlice<V6>(entries);
    case Work::Kind::copy:
      return work.which == kFour ? copySlice<V4>(share(entries)) : copySlice<V6>(share(entries));
    case Work::Kind::output:
      return offer(static_cast<Output>(work.which), entries, true);
  }
}

template <class Domain>
void StateMachine::scanSlice(unsigned entries) {
  constexpr std::size_t kFamily = FlowTracking::IpFamily<Domain>::kIndex;
  auto& scanned = walks<Domain>().scanned;
  const auto& config = world_.tables<Domain>().config;
  auto at = scanned ? config.after(*scanned) : config.first();
  scanned.reset();
  for (unsigned done = 1; at; ++done) {
    event<Domain>(*at);
    const auto next = config.after(*at);
    if (next && done == entries) {
      scanned = at;
      return prepend({Work::Kind::scan, kFamily});
    }
    at = next;
  }
  scan_.streamScan[kFamily] = true;
  if (!initialScanDone_) return initialScanEnded();
  if (std::exchange(walks<Domain>().sweepBehind, false)) sweep<Domain>();
}

template <class Domain>
void StateMachine::sweep() {
  const Tables<Domain>& tables = world_.tables<Domain>();
  for (auto at = tables.status.first(); at; at = tables.status.after(*at)) {
    if (!tables.config.get(*at)) event<Domain>(*at);
  }
  for (auto at = tables.overflow.first(); at; at = tables.overflow.after(*at)) {
    if (!tables.config.get(*at)) event<Domain>(*at);
  }
}

template <class Domain>
void StateMachine::lookAgain() {
  if (!active_) return;
  walks<Domain>().scanned.reset();
  walks<Domain>().sweepBehind = true;
  if (mode_ == Mode::synchronous) {
    scanSlice<Domain>(kAll);
  } else {
    append({Work::Kind::scan, FlowTracking::IpFamily<Domain>::kIndex});
  }
}

void StateMachine::initialScanEnded() {
  if (initialScanDone_ || !scan_.streamScan[kFour] || !scan_.streamScan[kSix]) return;
  initialScanDone_ = true;
  scan_.streamScan = {};
  if (mode_ == Mode::synchronous) {
    scanSlice<V6>(kAll);
    scanSlice<V4>(kAll);
  } else {
    append({Work::Kind::scan, kSix});
    append({Work::Kind::scan, kFour});
  }
  scan_.doneGen = {scan_.generation[kFour] + 1, scan_.generation[kSix] + 1};
  if (mode_ == Mode::synchronous) {
    copySlice<V6>(kAll);
    copySlice<V4>(kAll);
  }
  for (std::size_t i = 0; i < kOutputs; ++i) offer(static_cast<Output>(i), share(1), false);
  if (mode_ == Mode::tasks) {
    append({Work::Kind::copy, kSix});
    append({Work::Kind::copy, kFour});
  }
}

template <class Domain>
void StateMachine::copySlice(unsigned entries) {
  constexpr std::size_t kFamily = FlowTracking::IpFamily<Domain>::kIndex;
  scan_.copyIdle[kFamily] = false;
  auto& copied = walks<Domain>().copied;
  const auto& local = world_.tables<Domain>().local;
  auto at = copied ? local.after(*copied) : local.first();
  copied.reset();
  for (unsigned done = 1; at; ++done) {
    copyOne<Domain>(*at);
    const auto next = local.after(*at);
    if (next && done == entries) {
      copied = at;
      return prepend({Work::Kind::copy, kFamily});
    }
    at = next;
  }
  timers_.push_back({world_.now + kCopyPeriod, kFamily});
  ++scan_.generation[kFamily];
  scan_.copyIdle[kFamily] = true;
}

template <class Domain>
void StateMachine::copyOne(const FlowTracking::FlowKey<Domain>& flow) {
  Tables<Domain>& tables = world_.tables<Domain>();
  const LocalCount local = *tables.local.get(flow);
  auto counter = tables.counter.get(flow);
  if (!counter) return;
  counter->intfId = local.intfId;
  counter->packets = local.packets;
  counter->bytes = local.bytes;
  counter->lastUpdateTime = local.updateTime;
  see(OutputsOf<Domain>::kCounter, flow);
  tables.counter.put(flow, *counter);
}

bool StateMachine::itsTurn(Output output) const {
  for (const Output before : kChain) {
    if (before == output) return true;
    if (!state(before).ready) return false;
  }
  return false;
}

void StateMachine::offer(Output output, unsigned entries, bool ownWork) {
  if (state(output).ready || !itsTurn(output)) return;
  if (state(output).handedOver && !ownWork) return;
  if (state(output).reconciling && !reconcile(output, entries, ownWork)) return;
  state(output).ready = true;
  const auto behind = std::find(kChain.begin(), kChain.end(), output) + 1;
  std::for_each(behind, kChain.end(), [this](Output next) { offer(next, share(1), false); });
}

// Deletes what was not seen. False when there is more to do.
bool StateMachine::reconcile(Output output, unsigned entries, bool ownWork) {
  OutputState& mine = state(output);
  OutputTable& entriesOf = table(output);
  auto at = mine.bookmark ? entriesOf.atOrAfter(*mine.bookmark) : entriesOf.first();
  for (unsigned done = 0; at; ++done) {
    if (done == entries) {
      const Work work{Work::Kind::output, static_cast<std::size_t>(output)};
      mine.bookmark = at;
      mine.handedOver = true;
      ownWork ? prepend(work) : append(work);
      return false;
    }
    if (!mine.seen.contains(*at)) entriesOf.del(*at);
    at = entriesOf.after(*at);
  }
  mine.reconciling = false;
  mine.bookmark.reset();
  mine.seen.clear();
  return true;
}

template void StateMachine::lookAgain<V4>();
template void StateMachine::lookAgain<V6>();

}  // namespace Naive
