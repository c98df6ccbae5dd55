#include "OutputState.h"

#include <algorithm>

namespace SampledFlowTracker {

const Kiv::Type& OutputState::kivType() {
  static const Kiv::Type type = [] {
    Kiv::TypeBuilder<OutputState> builder("SampledFlowTracker::SftPexaFtHOCSM::OutputState");
    for (std::size_t i = 0; i < kOutputs; ++i) {
      const auto id = static_cast<OutputId>(i);
      builder.attribute(std::string(nameOf(id)) + "Ready",
                        [id](const OutputState& state) { return state.outputReady(id); });
    }
    return builder.attribute("ready", &OutputState::ready).build();
  }();
  return type;
}

void OutputState::outputReadyIs(OutputId id) {
  if (outputReady(id)) return;
  flags_[indexOf(id)] = true;
  handleReady();
  announce(attributeOf(id));
}

void OutputState::handleReady() {
  attributeIs(ready_, std::all_of(flags_.begin(), flags_.end(), [](bool flag) { return flag; }), readyAttr);
}

}  // namespace SampledFlowTracker
