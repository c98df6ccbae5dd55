// The dataflow statements of one family, and the order in which an event passes through them: start reading
// here, at eventToInput in Statements.cpp.
//
// clang-format off
//   wanted offload appears, changes or goes
//     inputStream ──┬─▶ statusStream ──────────▶ hoFlowStatus                                  Admission.h
//                   ├─▶ flowCounterStream ─────▶ hoFlowCounter ─▶ deleteLocalCounters           Counters.h
//                   ├─▶ hosStateCounterStream ─▶ hosStateCounter                                Counters.h
//                   ├─▶ overflowStream ────────▶ helper.overflowEntries                        Admission.h
//                   └─▶ replacementStream ─▶ for each waiting flow that there is room for: out of
//                         helper.overflowEntries, and through the first three once more        Admission.h
// clang-format on
//
// S1  All statements of an event see the same tuple, taken before the first of them wrote; what is stored now
//     is read back from the table.
// S2  Nothing yields within an event.
// S3  No statement runs before the initial scan is done.
//
// Threading: the agent's event thread.
#pragma once

#include <algorithm>
#include <optional>

#include "Decisions.h"
#include "FlowChanges.h"
#include "HoFlowConfig.h"
#include "Output.h"
#include "StatementTexts.h"
#include "TableLookup.h"

namespace SampledFlowTracker {

// What the statements of one family write to.
template <class Domain>
struct FamilyOutputs {
  FamilyOutputs(const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
                const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
                const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter,
                const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& collection,
                const Kiv::Ptr<SftPexaDrovaHelper>& helper, SmFrame& frame)
      : status(HoFlowStatusTable<Domain>(hoFlowStatus), frame),
        counter(HoFlowCounterTable<Domain>(hoFlowCounter), frame),
        stateCounter(HosStateCounterTable<Domain>(hosStateCounter), frame),
        localCounter(LocalCounterTable<Domain>(collection), frame),
        overflow(OverflowTable<Domain>(helper), frame) {}

  Output<HoFlowStatusTable<Domain>> status;
  Output<HoFlowCounterTable<Domain>> counter;
  Output<HosStateCounterTable<Domain>> stateCounter;
  Output<LocalCounterTable<Domain>> localCounter;
  Output<OverflowTable<Domain>> overflow;
};

template <class Domain>
class Statements {
 public:
  using Texts = StatementTexts<Domain>;
  using Key = FlowTracking::HoFlowKey<Domain>;
  using FlowKey = FlowTracking::FlowKey<Domain>;
  using Config = FlowTracking::HoFlowConfigRecord<Domain>;
  using Status = FlowTracking::HoFlowStatusRecord<Domain>;
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;

  // What happened to a wanted offload, and how its flow stood before.
  struct Event {
    Key key;
    bool outOfResources = false;       // asked once
    std::optional<Config> config{};    // absent: the offload is not wanted any more
    std::optional<Status> status{};    // under the key, before the event
    std::optional<Counter> counter{};  // under the flow's identity, before the event
  };

  // All that is referred to must outlive this.
  Statements(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
             const Kiv::Ptr<SftPexaDrovaHelper>& helper, FamilyOutputs<Domain>& outputs, SmFrame& frame)
      : hoFlowConfig_(hoFlowConfig), helper_(helper), outputs_(outputs), frame_(frame) {}

  // Passes the event of a key and its config through the statements. Nothing happens before the initial scan
  // is done.
  void eventToInput(const Key& key, const std::optional<Config>& config);
  // The events of so many wanted offloads are about to come, and fill tables that are empty as yet. False: to
  // be called again, there is more to be made ready.
  bool expect(std::size_t wanted) {
    return outputs_.status.expect(wanted) &&
           outputs_.counter.expect(std::min<std::size_t>(wanted, helper_->maxInHardwareFlows()));
  }
  // Asks for the memory that the event of a key reads first: it comes soon.
  void lookAhead(const Key& key) const {
    const auto& status = outputs_.status.table().map();
    const auto& counter = outputs_.counter.table().map();
    status.prefetchIndex(status.hash(key));
    counter.prefetchIndex(counter.hash(key.ipFlowKey));
  }

  const FlowChanges& changes() const { return changes_; }

  // The statements.
  void statusStream(const Event& event);
  void flowCounterStream(const Event& event, State curState);
  void deleteLocalCounters(std::uint32_t newHosEntries, const FlowKey& key);
  void hosStateCounterStream(const Event& event, State curState);
  void overflowStream(const Event& event);
  void replacementStream(const Event& event);

 private:
  Event eventOf(const Key& key, bool outOfResources, const std::optional<Config>& config) const;
  // The three that a promoted flow passes through too.
  void mergedStreams(const Event& event);
  void promote(const Key& key);
  void stateCountIs(const StateStep& step);

  const Kiv::Ptr<const FlowTracking::HoFlowConfig> hoFlowConfig_;
  const Kiv::Ptr<SftPexaDrovaHelper> helper_;
  FamilyOutputs<Domain>& outputs_;
  SmFrame& frame_;
  FlowChanges changes_;
};

}  // namespace SampledFlowTracker
