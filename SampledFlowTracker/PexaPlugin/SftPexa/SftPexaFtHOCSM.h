// The hardware-offload control state machine: from the wanted offloads to their status, counters and
// per-state counts.
//
// This is the frame that holds the parts together: arguments, life, and the handshake of the first scan. Once
// built it runs by itself, in tasks of the scheduler that its control record names:
//
//   initialized       the two input scans walk the wanted offloads; nothing is triggered yet
//   initial scan done the scans walk once more, with events; outputs are reconciled one after another
//   ready             every output is
//   idle              ready, and no pass over the local counters is under way
//
// Neighbours: Statements.h (what an event does; start there), ConfigInputSm.h (where events come from),
// Output.h (what is written, and reconciliation after a restart), CopyLocalCounters.h (the poll).
// docs/state-machine.md has the picture. Threading: the agent's event thread.
#pragma once

#include "ConfigInputSm.h"
#include "CopyLocalCounters.h"
#include "SftPexaHelper/SftPexaDrovaHelper.h"
#include "SmFrame.h"

namespace SampledFlowTracker {

class SftPexaFtHOCSM : public Kiv::PtrInterface, public SmFrame {
 public:
  using Counters = Pexa::Counter::PexaSftHoCounterCollection;
  template <template <class> class Table, class Domain>
  using KeyTypeOf = typename Output<Table<Domain>>::KeyType;

  // Builds and starts one; with a synchronous control record it has done everything but its timers when this
  // returns. REQUIRES: no argument but the control record's members is empty; otherwise the process stops.
  SftPexaFtHOCSM(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
                 const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
                 const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
                 const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter,
                 const Kiv::Ptr<Counters>& localCounter, const Kiv::Ptr<SftPexaDrovaHelper>& helper,
                 const Zun::SmControl& drovaControl);
  // Takes its parts down in order. The tables stay as they are.
  ~SftPexaFtHOCSM() override;
  static Kiv::Ptr<SftPexaFtHOCSM> SftPexaFtHOCSMIs(
      const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
      const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
      const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
      const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter, const Kiv::Ptr<Counters>& localCounter,
      const Kiv::Ptr<SftPexaDrovaHelper>& helper, const Zun::SmControl& drovaControl);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Off: nothing reacts, no task does anything. On again: what was missed is made up for.
  void hasNotificationActiveIs(bool active) override;

  const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig() const { return hoFlowConfig_; }
  const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus() const { return hoFlowStatus_; }
  const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter() const { return hoFlowCounter_; }
  const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter() const { return hosStateCounter_; }
  const Kiv::Ptr<Counters>& localCounter() const { return localCounter_; }
  const Kiv::Ptr<SftPexaDrovaHelper>& helper() const { return helper_; }
  // Also traces into the ring of this handle from now on; null: not any more.
  void skeinHandleIs(Skein::TraceHandle* handle);

  Kiv::Ptr<PtrInterface> self() override { return references() > 0 ? this : nullptr; }

  // Whether every output is ready; false while there are none.
  bool ready() const { return outputState() && outputState()->ready(); }
  // Ready, and nothing under way.
  bool idle() const { return ready() && (synchronous() || inputSmScanState()->idle()); }

  const Kiv::Ptr<HoIpFlowConfigSm0>& hoIpFlowConfigSm0() const { return hoIpFlowConfigSm0_; }
  const Kiv::Ptr<HoIp6FlowConfigSm1>& hoIp6FlowConfigSm1() const { return hoIp6FlowConfigSm1_; }
  const Kiv::Ptr<Olt::TimerTask>& copyLocalCountersTask() const { return copy4_.task().ptr(); }
  const Kiv::Ptr<Olt::TimerTask>& copyLocalIp6CountersTask() const { return copy6_.task().ptr(); }
  // One of the ten.
  const OutputBase& output(OutputId id) const { return *outputs_[indexOf(id)]; }
  OutputBase& output(OutputId id) { return *outputs_[indexOf(id)]; }
  // The five of a family, with their types.
  template <class Domain>
  FamilyOutputs<Domain>& familyOutputs() {
    if constexpr (FlowTracking::IpFamily<Domain>::kIndex == 0) {
      return outputs4_;
    } else {
      return outputs6_;
    }
  }

  // How often flows of a family came into a state, and left it.
  template <class Domain>
  const FlowChanges& flowChanges() const {
    if constexpr (FlowTracking::IpFamily<Domain>::kIndex == 0) {
      return statements4_.changes();
    } else {
      return statements6_.changes();
    }
  }

  using LocalCounterCounterIp6CollectionOutputKeyType = KeyTypeOf<LocalCounterTable, Pavo::Traits::IPv6>;
  using LocalCounterCounterCollectionOutputKeyType = KeyTypeOf<LocalCounterTable, Pavo::Traits::IPv4>;
  using HosStateCounterHosStateIp6CounterOutputKeyType = KeyTypeOf<HosStateCounterTable, Pavo::Traits::IPv6>;
  using HoFlowStatusHoIpFlowStatusOutputKeyType = KeyTypeOf<HoFlowStatusTable, Pavo::Traits::IPv4>;
  using HosStateCounterHosStateIpCounterOutputKeyType = KeyTypeOf<HosStateCounterTable, Pavo::Traits::IPv4>;
  using HelperOverflowEntriesOutputKeyType = KeyTypeOf<OverflowTable, Pavo::Traits::IPv4>;
  using HoFlowCounterHoIp6FlowCounterOutputKeyType = KeyTypeOf<HoFlowCounterTable, Pavo::Traits::IPv6>;
  using HoFlowStatusHoIp6FlowStatusOutputKeyType = KeyTypeOf<HoFlowStatusTable, Pavo::Traits::IPv6>;
  using HoFlowCounterHoIpFlowCounterOutputKeyType = KeyTypeOf<HoFlowCounterTable, Pavo::Traits::IPv4>;
  using HelperOverflow6EntriesOutputKeyType = KeyTypeOf<OverflowTable, Pavo::Traits::IPv6>;

  // Runs once; called by the constructor.
  void handleInitialized();
  // Completes the initial scan, once both input scans have ended.
  void handleInitialScanDone() override;
  void handleCopyLocalCountersCodefInputReady() { copy4_.inputReady(); }
  void handleCopyLocalIp6CountersCodefInputReady() { copy6_.inputReady(); }
  void handleCopyLocalCountersCodef() { copy4_.run(); }
  void handleCopyLocalIp6CountersCodef() { copy6_.run(); }

  // An output's turn may have come; see OutputBase::inputReady.
  void handleLocalCounterCounterIp6CollectionOutputInputReady() {
    output(OutputId::localCounterCounterIp6Collection).inputReady();
  }
  void handleLocalCounterCounterCollectionOutputInputReady() {
    output(OutputId::localCounterCounterCollection).inputReady();
  }
  void handleHosStateCounterHosStateIp6CounterOutputInputReady() {
    output(OutputId::hosStateCounterHosStateIp6Counter).inputReady();
  }
  void handleHoFlowStatusHoIpFlowStatusOutputInputReady() {
    output(OutputId::hoFlowStatusHoIpFlowStatus).inputReady();
  }
  void handleHosStateCounterHosStateIpCounterOutputInputReady() {
    output(OutputId::hosStateCounterHosStateIpCounter).inputReady();
  }
  void handleHelperOverflowEntriesOutputInputReady() { output(OutputId::helperOverflowEntries).inputReady(); }
  void handleHoFlowCounterHoIp6FlowCounterOutputInputReady() {
    output(OutputId::hoFlowCounterHoIp6FlowCounter).inputReady();
  }
  void handleHoFlowStatusHoIp6FlowStatusOutputInputReady() {
    output(OutputId::hoFlowStatusHoIp6FlowStatus).inputReady();
  }
  void handleHoFlowCounterHoIpFlowCounterOutputInputReady() {
    output(OutputId::hoFlowCounterHoIpFlowCounter).inputReady();
  }
  void handleHelperOverflow6EntriesOutputInputReady() {
    output(OutputId::helperOverflow6Entries).inputReady();
  }

  // An event of one wanted offload; see Statements.
  void eventToInputStream(const FlowTracking::HoIpFlowKey& key,
                          const std::optional<FlowTracking::HoIpFlowConfig>& config) {
    statements4_.eventToInput(key, config);
  }
  void eventToInput6Stream(const FlowTracking::HoIp6FlowKey& key,
                           const std::optional<FlowTracking::HoIp6FlowConfig>& config) {
    statements6_.eventToInput(key, config);
  }

  // The reconciliation state of each output: the seen set (Is, Del, DelAll, Has), the bookmark, the flags and
  // the task; see Output. The task is empty when synchronous, and once the output is reconciled.
  //   hoFlowStatusHoIpFlowStatusOutputSeenIs, hoFlowStatusHoIpFlowStatusOutputSeenDel,
  //   hoFlowStatusHoIpFlowStatusOutputSeenDelAll (and hoFlowStatusHoIpFlowStatusOutputSeen, their number, by
  //   name), hoFlowStatusHoIpFlowStatusOutputBookmark, hoFlowStatusHoIpFlowStatusOutputUseBookmark,
  //   hoFlowStatusHoIpFlowStatusOutputReconciling, hoFlowStatusHoIpFlowStatusOutputReconciliationTask,
  //   hoFlowStatusHoIpFlowStatusOutputReconciliationTaskDel
#define SFT_OUTPUT(name, Name, of)                              \
  void name##SeenIs(const Name##KeyType& key) {                 \
    (of).seenIs(key);                                           \
  }                                                             \
  void name##SeenDel(const Name##KeyType& key) {                \
    (of).seenDel(key);                                          \
  }                                                             \
  void name##SeenDelAll() {                                     \
    (of).seenDelAll();                                          \
  }                                                             \
  bool name##SeenHas(const Name##KeyType& key) const {          \
    return (of).seenHas(key);                                   \
  }                                                             \
  const Name##KeyType& name##Bookmark() const {                 \
    return (of).bookmark();                                     \
  }                                                             \
  bool name##UseBookmark() const {                              \
    return (of).useBookmark();                                  \
  }                                                             \
  bool name##Reconciling() const {                              \
    return (of).reconciling();                                  \
  }                                                             \
  const Kiv::Ptr<Olt::Task>& name##ReconciliationTask() const { \
    return (of).reconciliationTask().ptr();                     \
  }                                                             \
  void name##ReconciliationTaskDel() {                          \
    (of).reconciliationTask().del();                            \
  }
  SFT_OUTPUT(localCounterCounterIp6CollectionOutput, LocalCounterCounterIp6CollectionOutput,
             outputs6_.localCounter)
  SFT_OUTPUT(localCounterCounterCollectionOutput, LocalCounterCounterCollectionOutput, outputs4_.localCounter)
  SFT_OUTPUT(hosStateCounterHosStateIp6CounterOutput, HosStateCounterHosStateIp6CounterOutput,
             outputs6_.stateCounter)
  SFT_OUTPUT(hoFlowStatusHoIpFlowStatusOutput, HoFlowStatusHoIpFlowStatusOutput, outputs4_.status)
  SFT_OUTPUT(hosStateCounterHosStateIpCounterOutput, HosStateCounterHosStateIpCounterOutput,
             outputs4_.stateCounter)
  SFT_OUTPUT(helperOverflowEntriesOutput, HelperOverflowEntriesOutput, outputs4_.overflow)
  SFT_OUTPUT(hoFlowCounterHoIp6FlowCounterOutput, HoFlowCounterHoIp6FlowCounterOutput, outputs6_.counter)
  SFT_OUTPUT(hoFlowStatusHoIp6FlowStatusOutput, HoFlowStatusHoIp6FlowStatusOutput, outputs6_.status)
  SFT_OUTPUT(hoFlowCounterHoIpFlowCounterOutput, HoFlowCounterHoIpFlowCounterOutput, outputs4_.counter)
  SFT_OUTPUT(helperOverflow6EntriesOutput, HelperOverflow6EntriesOutput, outputs6_.overflow)
#undef SFT_OUTPUT

 private:
  class KivInputSmScanState;
  class KivOutputState;

  // The parts of handleInitialized.
  void assertArguments() const;
  void settleControl();
  void createTasks();
  void createRecords();
  void createInputs();
  // Walks a child's table again, with events.
  static void restart(Zun::InputSm& child) {
    child.doInitializeTask();
  }
  void offerOutputs();

  const Kiv::Ptr<const FlowTracking::HoFlowConfig> hoFlowConfig_;
  const Kiv::Ptr<FlowTracking::HoFlowStatus> hoFlowStatus_;
  const Kiv::Ptr<FlowTracking::HoFlowCounter> hoFlowCounter_;
  const Kiv::Ptr<FlowTracking::HosStateCounter> hosStateCounter_;
  const Kiv::Ptr<Counters> localCounter_;
  const Kiv::Ptr<SftPexaDrovaHelper> helper_;

  FamilyOutputs<Pavo::Traits::IPv4> outputs4_;
  FamilyOutputs<Pavo::Traits::IPv6> outputs6_;
  const std::array<OutputBase*, kOutputs> outputs_;  // by OutputId
  Statements<Pavo::Traits::IPv4> statements4_;
  Statements<Pavo::Traits::IPv6> statements6_;
  CopyLocalCounters<Pavo::Traits::IPv4> copy4_;
  CopyLocalCounters<Pavo::Traits::IPv6> copy6_;
  Kiv::Ptr<HoIpFlowConfigSm0> hoIpFlowConfigSm0_;
  Kiv::Ptr<HoIp6FlowConfigSm1> hoIp6FlowConfigSm1_;
  Kiv::Ptr<KivInputSmScanState> scanStateReactor_;
  Kiv::Ptr<KivOutputState> outputStateReactor_;
};

// The same as SftPexaFtHOCSM::SftPexaFtHOCSMIs, without making notifications active: that is left to the
// owner.
Kiv::Ptr<SftPexaFtHOCSM> sftPexaFtHOCSMFactory(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
                                               const Kiv::Ptr<FlowTracking::HoFlowStatus>& hoFlowStatus,
                                               const Kiv::Ptr<FlowTracking::HoFlowCounter>& hoFlowCounter,
                                               const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter,
                                               const Kiv::Ptr<SftPexaFtHOCSM::Counters>& localCounter,
                                               const Kiv::Ptr<SftPexaDrovaHelper>& helper,
                                               const Zun::SmControl& drovaControl);

}  // namespace SampledFlowTracker
