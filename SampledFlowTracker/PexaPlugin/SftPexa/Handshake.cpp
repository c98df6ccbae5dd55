// How the state machine starts: handleInitialized, and the handshake that ends the initial scan.
#include "SftPexaFtHOCSM.h"
#include "SmReactors.h"

namespace SampledFlowTracker {

void SftPexaFtHOCSM::handleInitialized() {
  if (initialized_) return;
  assertArguments();
  settleControl();
  createTasks();
  trace_(SmTrace::kFrame, "handleInitialized", "create local SMs");
  createRecords();
  for (OutputBase* output : outputs_) output->reconcilingDecide();
  trace_(SmTrace::kFrame, "handleInitialized", "create non-public arg SMs");
  createInputs();
  initialized_ = true;
  trace_(SmTrace::kFrame, "handleInitialized", "initialized");
  // Inline, the scans have ended before there was anybody to take note of it.
  if (synchronous_) handleInitialScanDone();
}

void SftPexaFtHOCSM::assertArguments() const {
#define SFT_ASSERT_ARGUMENT(argument)     \
  assertThat(static_cast<bool>(argument), \
             #argument " && \"Pointer SM args cannot be null unless they are marked Optional\"")
  SFT_ASSERT_ARGUMENT(hosStateCounter());
  SFT_ASSERT_ARGUMENT(localCounter());
  SFT_ASSERT_ARGUMENT(helper());
  SFT_ASSERT_ARGUMENT(hoFlowConfig());
  SFT_ASSERT_ARGUMENT(hoFlowStatus());
  SFT_ASSERT_ARGUMENT(hoFlowCounter());
#undef SFT_ASSERT_ARGUMENT
}

void SftPexaFtHOCSM::settleControl() {
  if (drovaControl_.synchronous == Zun::SynchronousChoice::synchronous) synchronous_ = true;
  if (drovaControl_.synchronous == Zun::SynchronousChoice::tasks) synchronous_ = false;
  if (!drovaControl_.taskScheduler) {
    drovaControl_.taskScheduler = Olt::TaskSchedulerRoot::findOrCreateScheduler();
  }
}

void SftPexaFtHOCSM::createTasks() {
  if (!synchronous_) {
    for (OutputBase* output : outputs_) output->taskIs();
  }
  copy6_.taskIs();
  copy4_.taskIs();
}

void SftPexaFtHOCSM::createRecords() {
  inputSmScanState_ = Kiv::makePtr<InputSmScanState>();
  outputState_ = Kiv::makePtr<OutputState>();
  scanStateReactor_ = Kiv::makePtr<KivInputSmScanState>(this);
  scanStateReactor_->notifierIs(inputSmScanState_);
  scanStateReactor_->hasNotificationActiveIs(true);
  outputStateReactor_ = Kiv::makePtr<KivOutputState>(this);
  outputStateReactor_->notifierIs(outputState_);
  outputStateReactor_->hasNotificationActiveIs(true);
}

// Each is started before it is there for others to see: a scan that ends at once must not complete the
// handshake on its own.
void SftPexaFtHOCSM::createInputs() {
  auto sm1 = Kiv::makePtr<HoIp6FlowConfigSm1>(hoFlowConfig_, statements6_, outputs6_, *this);
  sm1->doInitializeTask();
  hoIp6FlowConfigSm1_ = std::move(sm1);
  auto sm0 = Kiv::makePtr<HoIpFlowConfigSm0>(hoFlowConfig_, statements4_, outputs4_, *this);
  sm0->doInitializeTask();
  hoIpFlowConfigSm0_ = std::move(sm0);
}

void SftPexaFtHOCSM::handleInitialScanDone() {
  if (initialScanDone_) return;
  const auto tell = [this](std::string_view text) { trace_(SmTrace::kFrame, "handleInitialScanDone", text); };
  InputSmScanState& scans = *inputSmScanState_;
  if (!scans.inputStreamScan()) return tell(" inputStream scan is false");
  if (!scans.input6StreamScan()) return tell(" input6Stream scan is false");
  if (!hoIp6FlowConfigSm1_ || !hoIpFlowConfigSm0_) {
    return tell("Initial scan done for child SM SftPexaFtHOCSM.");
  }
  tell("Initial scan done for child SMs. Now scanning with events triggered.");
  initialScanDone_ = true;
  scans.scanIs<Pavo::Traits::IPv4>(false);
  scans.scanIs<Pavo::Traits::IPv6>(false);
  restart(*hoIp6FlowConfigSm1_);
  restart(*hoIpFlowConfigSm0_);
  scans.doneGenIs<Pavo::Traits::IPv6>(scans.copyLocalIp6CountersCodefGeneration() + 1);
  scans.doneGenIs<Pavo::Traits::IPv4>(scans.copyLocalCountersCodefGeneration() + 1);
  if (synchronous_ && initialized_) {
    handleCopyLocalIp6CountersCodef();
    if (initialized_) handleCopyLocalCountersCodef();
  }
  scans.handleIdle();
  offerOutputs();
  handleCopyLocalIp6CountersCodefInputReady();
  handleCopyLocalCountersCodefInputReady();
}

void SftPexaFtHOCSM::offerOutputs() {
  for (OutputBase* output : outputs_) output->inputReady();
}

}  // namespace SampledFlowTracker
