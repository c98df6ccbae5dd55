// The flow tracker's plugin and its shared tables, as the audit knows them: by names, through type records.
// The audit is another library, and nothing here needs the plugin's code.
//
//   plugin "SampledFlowTracker"
//     hocSm                        the state machine; absent in standby
//       outputState.ready          nothing is counted before it is
//     drovaHelper                  overflowEntriesHas(key), overflowEntriesAfter(key)
//     localHoCounters              counterCollectionAfter(key), counterCollectionDrop(key)
//   flowtracking/sampled/hwOffload/{config,status,counter/hfc,counter/status}
//
// Neighbours: SftPexaAudit.h follows the state machine with it; FamilyAudit.h looks at what it gives.
// Threading: the agent's event thread.
#pragma once

#include <functional>
#include <stdexcept>

#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HosStateCounter.h"
#include "PexaPlugin.h"

namespace SampledFlowTracker {

// An audit cannot be started; the text says why, and what was expected.
class AuditRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What one audit looks at; held while it runs.
struct Audited {
  Kiv::Ptr<const FlowTracking::HoFlowConfig> config;
  Kiv::Ptr<FlowTracking::HoFlowStatus> status;
  Kiv::Ptr<FlowTracking::HoFlowCounter> counter;
  Kiv::Ptr<FlowTracking::HosStateCounter> stateCounter;
  Kiv::Ptr<Kiv::PtrInterface> overflow;
  Kiv::Ptr<Kiv::PtrInterface> localCounters;
};

// What the tracker's entities call what they do for a family.
template <class Domain>
struct TrackerNames;
template <>
struct TrackerNames<Pavo::Traits::IPv4> {
  static constexpr std::string_view kOverflowHas = "overflowEntriesHas";
  static constexpr std::string_view kOverflowAfter = "overflowEntriesAfter";
  static constexpr std::string_view kLocalAfter = "counterCollectionAfter";
  static constexpr std::string_view kLocalDrop = "counterCollectionDrop";
};
template <>
struct TrackerNames<Pavo::Traits::IPv6> {
  static constexpr std::string_view kOverflowHas = "overflow6EntriesHas";
  static constexpr std::string_view kOverflowAfter = "overflow6EntriesAfter";
  static constexpr std::string_view kLocalAfter = "counterIp6CollectionAfter";
  static constexpr std::string_view kLocalDrop = "counterIp6CollectionDrop";
};

class Tracker {
 public:
  static constexpr std::string_view kPlugin = "SampledFlowTracker";

  // Follows the state machine of the plugin, if there is one: `changed` is called whenever the answer of
  // ready() may have. REQUIRES: the plugins have joined.
  Tracker(Kiv::Ptr<const Pexa::PluginManager> manager, std::function<void()> changed);
  ~Tracker();
  Tracker(const Tracker&) = delete;
  Tracker& operator=(const Tracker&) = delete;

  // Whether there is a state machine and all of its outputs are ready.
  bool ready() const;
  // The state machine itself; empty when there is none.
  Kiv::Ptr<Kiv::PtrInterface> stateMachine() const;
  // What there is to audit, its status table written by this process from now on: what another process wrote
  // beside it would go unnoticed. Throws AuditRefused when something is missing or not ready, and
  // Quell::TableError when another process writes the table.
  Audited audited() const;

 private:
  class Watch;

  Kiv::Ptr<Kiv::PtrInterface> outputState() const;
  void follow();

  Kiv::Ptr<const Pexa::PluginManager> manager_;
  std::function<void()> changed_;
  Kiv::Ptr<Pexa::PexaPluginBase> plugin_;
  Kiv::Ptr<Watch> pluginWatch_;
  Kiv::Ptr<Watch> outputWatch_;
};

}  // namespace SampledFlowTracker
