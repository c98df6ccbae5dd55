// What the parts of the state machine share: how far it is, its trace, its scheduler.
//
// The frame (SftPexaFtHOCSM) fills it in; outputs, statements and input scans read it and call back only for
// the handshake. Threading: the agent's event thread.
#pragma once

#include <string_view>

#include "InputSmScanState.h"
#include "OutputState.h"
#include "SmTrace.h"
#include "Zun.h"

namespace SampledFlowTracker {

class SmFrame {
 public:
  SmFrame() = default;
  SmFrame(const SmFrame&) = delete;
  SmFrame& operator=(const SmFrame&) = delete;

  const SmTrace& trace() const { return trace_; }
  // Everything runs inline, without tasks.
  bool synchronous() const { return synchronous_; }
  // Every handler does nothing while this is false.
  bool initialized() const { return initialized_; }
  // Both input scans have come to the end once; from here on events are triggered.
  bool initialScanDone() const { return initialScanDone_; }
  const Kiv::Ptr<InputSmScanState>& inputSmScanState() const { return inputSmScanState_; }
  const Kiv::Ptr<OutputState>& outputState() const { return outputState_; }
  // The control record; its scheduler is set once the state machine is initialized.
  const Zun::SmControl& drovaControl() const { return drovaControl_; }
  bool running(const Olt::Task& task) const { return drovaControl_.taskScheduler->currentTask() == &task; }

  // The state machine, counted; empty while nobody counts it (it is being built, or goes). Held by each run,
  // because what a run writes may lead to the end of the state machine.
  virtual Kiv::Ptr<Kiv::PtrInterface> self() = 0;
  // The references of the flow identity that was handled last.
  std::uint32_t newHosEntries() const { return newHosEntries_; }
  void newHosEntriesIs(std::uint32_t references) { newHosEntries_ = references; }

  // Completes the initial scan once both input scans have ended.
  virtual void handleInitialScanDone() = 0;

  // A table did not take a store: counted, one line in the log a message. The tables are brought in line
  // again when the entry is next written, or by the next start.
  void storeFailed(std::string_view message);
  std::uint64_t storesFailed() const { return storesFailed_; }

 protected:
  ~SmFrame() = default;

  SmTrace trace_;
  Zun::SmControl drovaControl_;
  Kiv::Ptr<InputSmScanState> inputSmScanState_;
  Kiv::Ptr<OutputState> outputState_;
  bool synchronous_ = false;
  bool initialized_ = false;
  bool initialScanDone_ = false;

 private:
  std::uint64_t storesFailed_ = 0;
  std::uint32_t newHosEntries_ = 0;
  std::string lastFailure_;
};

}  // namespace SampledFlowTracker
