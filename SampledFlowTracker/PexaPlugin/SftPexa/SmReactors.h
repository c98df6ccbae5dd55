// What the state machine does when its notifying records change.
#pragma once

#include "SftPexaFtHOCSM.h"

namespace SampledFlowTracker {

// An input scan that has ended may be what the last outputs of either kind wait for.
class SftPexaFtHOCSM::KivInputSmScanState : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit KivInputSmScanState(SftPexaFtHOCSM* owner) : owner_(owner) {}
  void onAttribute(Kiv::AttributeId attribute) override {
    if (attribute == InputSmScanState::inputStreamScanAttr) handleInputScan();
    if (attribute == InputSmScanState::input6StreamScanAttr) handleInputScan();
  }
  void forget() { owner_ = nullptr; }

 private:
  void handleInputScan() {
    static constexpr OutputId kOffered[] = {
        OutputId::helperOverflow6Entries, OutputId::hoFlowCounterHoIpFlowCounter,
        OutputId::hoFlowCounterHoIp6FlowCounter, OutputId::helperOverflowEntries};
    for (const OutputId id : kOffered) {
      if (owner_ != nullptr) owner_->output(id).inputReady();
    }
  }
  SftPexaFtHOCSM* owner_;
};

// An output that has become ready advances the chain.
class SftPexaFtHOCSM::KivOutputState : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit KivOutputState(SftPexaFtHOCSM* owner) : owner_(owner) {}
  void onAttribute(Kiv::AttributeId attribute) override {
    if (attribute > kOutputs) return;  // ready() itself
    const auto changed = static_cast<OutputId>(attribute - 1);
    for (std::size_t at = chainPosition(changed) + 1; at < kOutputs; ++at) {
      if (owner_ != nullptr) owner_->output(kReadyChain[at]).inputReady();
    }
  }
  void forget() { owner_ = nullptr; }

 private:
  SftPexaFtHOCSM* owner_;
};

}  // namespace SampledFlowTracker
