#include "InputSmScanState.h"

namespace SampledFlowTracker {

InputSmScanState::InputSmScanState() : Kiv::Entity("inputSmScanState") {
  handleIdle();
}

const Kiv::Type& InputSmScanState::kivType() {
  using Self = InputSmScanState;
  static const Kiv::Type type =
      Kiv::TypeBuilder<Self>("SampledFlowTracker::SftPexaFtHOCSM::InputSmScanState")
          .attribute("copyLocalIp6CountersIdle", &Self::copyLocalIp6CountersIdle)
          .attribute("copyLocalIp6CountersCodefGeneration", &Self::copyLocalIp6CountersCodefGeneration)
          .attribute("copyLocalIp6CountersCodefDoneGen", &Self::copyLocalIp6CountersCodefDoneGen)
          .attribute("copyLocalCountersIdle", &Self::copyLocalCountersIdle)
          .attribute("copyLocalCountersCodefGeneration", &Self::copyLocalCountersCodefGeneration)
          .attribute("copyLocalCountersCodefDoneGen", &Self::copyLocalCountersCodefDoneGen)
          .attribute("inputStreamScan", &Self::inputStreamScan)
          .attribute("input6StreamScan", &Self::input6StreamScan)
          .attribute("idle", &Self::idle)
          .build();
  return type;
}

void InputSmScanState::handleIdle() {
  attributeIs(idle_, copyLocalIp6CountersIdle() && copyLocalCountersIdle(), idleAttr);
}

}  // namespace SampledFlowTracker
