// The input state machine of one family: turns the entries of the wanted offloads into events.
//
// It walks the whole table twice when it starts: once before events are triggered, which only proves that the
// table can be read to its end, and once with them. From then on it delivers each key whose change is told. A
// reader that fell too far behind is told to look at everything again: then the table is walked once more,
// and behind it the statuses and the waiting flows, to find those that are not wanted any more.
//
// Neighbours: Zun.h has what does not depend on the table (I1 to I3); Statements.h what an event goes
// through. Threading: the agent's event thread.
#pragma once

#include <optional>

#include "Statements.h"
#include "Zun.h"

namespace SampledFlowTracker {

template <class Domain>
class ConfigInputSm : public Zun::InputSm {
 public:
  using Texts = StatementTexts<Domain>;
  using Key = FlowTracking::HoFlowKey<Domain>;
  using Config = FlowTracking::HoFlowConfigRecord<Domain>;

  // What is referred to must outlive this. Nothing is scanned before doInitializeTask.
  ConfigInputSm(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
                Statements<Domain>& statements, const FamilyOutputs<Domain>& outputs, SmFrame& frame);
  ~ConfigInputSm() override;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Delivers one key: what is wanted of it now.
  void handleConfig(const Key& key);
  // A change of a key was told; delivered while the machine is active.
  void handleConfigReactor(const Key& key);
  // Changes were missed: everything is looked at again.
  void handleConfigMissed();
  // One slice of the scan.
  void doInputScan() override;
  // The wanted offloads themselves go away: every entry is delivered as one that is not wanted any more.
  // REQUIRES: no told change is undelivered; otherwise the process stops, because the outputs could not be
  // brought in line.
  void doDeleteAll();

  void hasNotificationActiveIs(bool active) override;
  const std::optional<Key>& resumeKey() const { return resume_; }

 private:
  class KivHoFlowConfig;
  // What is walked: the table; after missed changes also what was derived from it.
  enum class Phase : std::uint8_t { config, status, overflow };

  void deliver(const Key& key, const std::optional<Config>& config);
  // Each of the table's entries is about to be an event. False when the slice ended before all was ready for
  // them.
  template <class Table>
  bool expectEvents(const Table& table);
  // Walks on in a phase; false when the slice ended first.
  template <class Table, class Deliver>
  bool walk(const Table& table, const Deliver& deliver);
  // Asks for the memory of events that the walk triggers soon.
  void lookAhead() const;
  bool sweep();
  // A key of an output: delivered when it is not wanted any more.
  void deliverUnwanted(const Key& key);
  void endScan();
  void resetWalk(Phase phase);

  Kiv::Ptr<const FlowTracking::HoFlowConfig> hoFlowConfig_;
  Statements<Domain>& statements_;
  const FamilyOutputs<Domain>& outputs_;
  SmFrame& frame_;
  Kiv::Ptr<KivHoFlowConfig> watcher_;
  std::optional<Key> resume_;    // the last key delivered
  std::uint64_t delivered_ = 0;  // in this phase
  Phase phase_ = Phase::config;
  bool missed_ = false;
};

// The two of them, with the names that go with their tables.
class HoIpFlowConfigSm0 final : public ConfigInputSm<Pavo::Traits::IPv4> {
 public:
  using ConfigInputSm::ConfigInputSm;
  void handleHoIpFlowConfig(const Key& key) { handleConfig(key); }
  void handleHoIpFlowConfigReactor(const Key& key) { handleConfigReactor(key); }
};
class HoIp6FlowConfigSm1 final : public ConfigInputSm<Pavo::Traits::IPv6> {
 public:
  using ConfigInputSm::ConfigInputSm;
  void handleHoIp6FlowConfig(const Key& key) { handleConfig(key); }
  void handleHoIp6FlowConfigReactor(const Key& key) { handleConfigReactor(key); }
};

}  // namespace SampledFlowTracker
