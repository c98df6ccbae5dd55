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
  enum Attr : Kiv::AttributeId { readyAttr = kOutputs + 1 };

  OutputState() : Kiv::Entity("outputState") {}
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  bool outputReady(OutputId id) const { return flags_[indexOf(id)]; }
  bool localCounterCounterIp6CollectionOutputReady() const {
    return outputReady(OutputId::localCounterCounterIp6Collection);
  }
  bool localCounterCounterCollectionOutputReady() const {
    return outputReady(OutputId::localCounterCounterCollection);
  }
  bool hosStateCounterHosStateIp6CounterOutputReady() const {
    return outputReady(OutputId::hosStateCounterHosStateIp6Counter);
  }
  bool hoFlowStatusHoIpFlowStatusOutputReady() const {
    return outputReady(OutputId::hoFlowStatusHoIpFlowStatus);
  }
  bool hosStateCounterHosStateIpCounterOutputReady() const {
    return outputReady(OutputId::hosStateCounterHosStateIpCounter);
  }
  bool helperOverflowEntriesOutputReady() const { return outputReady(OutputId::helperOverflowEntries); }
  bool hoFlowCounterHoIp6FlowCounterOutputReady() const {
    return outputReady(OutputId::hoFlowCounterHoIp6FlowCounter);
  }
  bool hoFlowStatusHoIp6FlowStatusOutputReady() const {
    return outputReady(OutputId::hoFlowStatusHoIp6FlowStatus);
  }
  bool hoFlowCounterHoIpFlowCounterOutputReady() const {
    return outputReady(OutputId::hoFlowCounterHoIpFlowCounter);
  }
  bool helperOverflow6EntriesOutputReady() const { return outputReady(OutputId::helperOverflow6Entries); }
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
