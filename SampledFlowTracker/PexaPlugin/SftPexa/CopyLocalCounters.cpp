#include "CopyLocalCounters.h"

#include <array>

namespace SampledFlowTracker {

template <class Domain>
void CopyLocalCounters<Domain>::taskIs() {
  const Zun::SmControl& control = frame_.drovaControl();
  task_.put(control.taskScheduler->timerTaskIs(Kiv::String(Texts::kCopyTask), control.taskPriority), [this] {
    const auto keep = frame_.self();
    run();
  });
}

template <class Domain>
void CopyLocalCounters<Domain>::inputReady() {
  if (!frame_.initialized()) return;
  const SmTrace& trace = frame_.trace();
  trace(SmTrace::kFrame, Texts::kCopyReadyHandler, "");
  if (!frame_.initialScanDone()) {
    frame_.handleInitialScanDone();
    return;
  }
  trace(SmTrace::kFrame, Texts::kCopyReadyHandler, Texts::kCopyReady);
  if (!frame_.synchronous()) task_->scheduleTask();
}

template <class Domain>
void CopyLocalCounters<Domain>::run() {
  if (!frame_.initialized()) return;
  const auto& counters = outputs_.localCounter.table().entries();
  if (!resume_) {
    frame_.inputSmScanState()->template copyIdleIs<Domain>(false);
    frame_.trace()(SmTrace::kStatement, Texts::kCopyName, Texts::kCopyFired);
    frame_.trace()(SmTrace::kFlatten, Texts::kCopyName, Texts::kFlattenLocal, counters.size());
  }
  std::uint64_t handled = 0;
  for (const auto* entry = resume_ ? counters.after(*resume_) : counters.first(); entry != nullptr;) {
    if (handled % kAhead == 0) lookAhead(counters, entry);
    const Key key = entry->key();
    const Kiv::Ptr<Pexa::Counter::SftHoCounter<Domain>> local = entry->value;
    copy(*local);
    ++handled;
    const bool yields = !frame_.synchronous() && task_->taskShouldYield();
    entry = counters.after(key);
    if (yields && entry != nullptr) {
      yieldPass(handled, key);
      return;
    }
  }
  endPass(handled);
}

template <class Domain>
void CopyLocalCounters<Domain>::lookAhead(const Local& counters, const typename Local::Entry* entry) const {
  const auto& records = outputs_.counter.table().map();
  std::array<const Pexa::Counter::SftHoCounter<Domain>*, kAhead> locals;
  std::array<std::uint64_t, kAhead> hashes;
  std::size_t count = 0;
  for (; entry != nullptr && count < kAhead; entry = counters.after(entry)) {
    locals[count] = entry->value.get();
    Kiv::prefetch(locals[count], sizeof(*locals[count]));
    ++count;
  }
  for (std::size_t i = 0; i < count; ++i) {
    hashes[i] = records.hash(locals[i]->flowKey());
    records.prefetchIndex(hashes[i]);
  }
  for (std::size_t i = 0; i < count; ++i) records.prefetchRecord(hashes[i]);
}

template <class Domain>
void CopyLocalCounters<Domain>::copy(const Pexa::Counter::SftHoCounter<Domain>& local) {
  const SmTrace& trace = frame_.trace();
  const Key& key = local.flowKey();
  trace(SmTrace::kElement, Texts::kCopyName, Texts::kElement, local);
  const auto published = FlowTracking::lookUp(outputs_.counter.table().map(), key);
  trace(SmTrace::kStatement, Texts::kCopyName, Texts::kCopyMerge);
  if (!published) {
    trace(SmTrace::kUnmatched, Texts::kCopyName, Texts::kUnmatched, key);
    trace(SmTrace::kFilter, Texts::kCopyName, Texts::kNoValue);
    return;
  }
  trace(SmTrace::kStatement, Texts::kCopyName, Texts::kCopy, key, local, published);
  auto counter = *published;
  counter.intfId = local.intfId();
  counter.packets = local.packets();
  counter.bytes = local.bytes();
  counter.lastUpdateTime = local.updateTime();
  outputs_.counter.refresh(Texts::kCopyName, Texts::kCopyPlace, key, *published, counter);
}

template <class Domain>
void CopyLocalCounters<Domain>::yieldPass(std::uint64_t handled, const Key& last) {
  resume_ = last;
  task_->taskWorkCountInc(handled);
  task_->scheduleTask();
}

template <class Domain>
void CopyLocalCounters<Domain>::endPass(std::uint64_t handled) {
  resume_.reset();
  task_->taskWorkCountInc(handled);
  task_->taskDelayIs(kInterval);
  frame_.inputSmScanState()->template generationInc<Domain>();
  frame_.inputSmScanState()->template copyIdleIs<Domain>(true);
}

template class CopyLocalCounters<Pavo::Traits::IPv4>;
template class CopyLocalCounters<Pavo::Traits::IPv6>;

}  // namespace SampledFlowTracker
