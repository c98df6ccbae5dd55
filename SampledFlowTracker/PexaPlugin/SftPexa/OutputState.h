// Which outputs are ready. Its reactors are told of each flag that changes.
#pragma once

#include <array>

#include "Kiv.h"
#include "OutputId.h"

namespace SampledFlowTracker {

class OutputState : public Kiv::Entity {
 public:
  // The flags, in the order of OutputId, and behind them the conjunction of all.
  static constexpr Kiv::AttributeId attributeOf(OutputId id) {
    return static_cast<Kiv::AttributeId>(indexOf(id) + 1);
  }
  static constexpr Kiv::AttributeId readyAttr = kOutputs + 1;

  OutputState() : Kiv::Entity("outputState") {}
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  bool outputReady(OutputId id) const { return flags_[indexOf(id)]; }
  bool ready() const { return ready_; }
  // Marks an output ready, recomputes ready(), and tells the reactors of the output.
  void outputReadyIs(OutputId id);
  // ready() is whether every output is; told when it changes.
  void handleReady();

 private:
  std::array<bool, kOutputs> flags_{};
  bool ready_ = false;
};

}  // namespace SampledFlowTracker
