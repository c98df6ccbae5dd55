// The reconciliation of one output, step by step.
#include "Output.h"

namespace SampledFlowTracker {

void OutputBase::taskIs() {
  const Zun::SmControl& control = frame_.drovaControl();
  task_.put(control.taskScheduler->taskIs(Kiv::String(textsOf(id_).task), control.taskPriority), [this] {
    const auto keep = frame_.self();
    inputReady();
  });
}

void OutputBase::reconcilingDecide() {
  const std::size_t left = entries();
  reconciling_ = left != 0;
  if (reconciling_) seenReserve(left);
  frame_.trace()(SmTrace::kFrame, "handleInitialized", textsOf(id_).reconciling, reconciling_);
}

void OutputBase::inputReady() {
  if (!frame_.initialized()) return;
  const SmTrace& trace = frame_.trace();
  const std::string_view handler = textsOf(id_).handler;
  trace(SmTrace::kFrame, handler, "");
  if (ready()) {
    trace(SmTrace::kFrame, handler, " .. not reconciling.");
    return;
  }
  if (!frame_.initialScanDone()) {
    frame_.handleInitialScanDone();
    return;
  }
  if (!predecessorsReady()) return;  // U2
  trace(SmTrace::kFrame, handler, textsOf(id_).inputScansComplete);
  if (reconciling_) {
    if (handedOver()) return;  // U4
    const Run run = deletionScan();
    reconciled_ += run.processed;
    reconciliationDeletions_ += run.deletions;
    if (!run.ended) {
      yieldScan(run);
      return;
    }
    endScan(run);
  }
  frame_.outputState()->outputReadyIs(id_);
}

bool OutputBase::predecessorsReady() const {
  for (const OutputId earlier : kReadyChain) {
    if (earlier == id_) return true;
    if (!frame_.outputState()->outputReady(earlier)) return false;
  }
  return true;
}

bool OutputBase::handedOver() const {
  return useBookmark_ && task_ && !frame_.running(*task_);
}

bool OutputBase::givesWay(const Run& run) const {
  if (frame_.synchronous() || run.processed == 0 || !task_) return false;  // U3
  return !frame_.running(*task_) || task_->taskShouldYield();
}

void OutputBase::yieldScan(const Run& run) {
  useBookmark_ = true;
  frame_.trace()(SmTrace::kFrame, textsOf(id_).handler,
                 "Yielding in reconciliation processing after processing {} items, including {} deletions .",
                 run.processed, run.deletions);
  task_->taskWorkCountInc(run.processed);
  task_->scheduleTask();
}

void OutputBase::endScan(const Run& run) {
  frame_.trace()(
      SmTrace::kFrame, textsOf(id_).handler,
      "Deletion scan for reconciliation is done, last task run processed {} items, deleting {} items.",
      run.processed, run.deletions);
  if (task_) {
    task_->taskWorkCountInc(run.processed);
    task_.del();
  }
  bookmarkReset();
  useBookmark_ = false;
  reconciling_ = false;
  seenDelAll();
}

void SmFrame::storeFailed(std::string_view message) {
  ++storesFailed_;
  if (message == lastFailure_) return;
  lastFailure_ = message;
  static const Kiv::TraceHandle handle("Pexa::Sft", 0);
  Kiv::TraceHelper(handle, 0, __FILE__, __LINE__, "storeFailed").write(message);
}

}  // namespace SampledFlowTracker
