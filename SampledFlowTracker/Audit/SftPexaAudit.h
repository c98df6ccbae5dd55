// The root entity of the audit, a plugin beside the flow tracker's: it compares what the tracker keeps beside
// its statuses (per-state counts, reference counts, counters, overflow entries) with the statuses, and
// repairs what it can.
//
// Why there is something to repair: when the agent starts, what is left in the tables is reconciled, and a
// status that is deleted by that takes nothing from the per-state counts; offloads that were withdrawn while
// the agent was down would use up the budget for ever. And a counter's references drift with every change
// between in hardware and overflow.
//
//   sft audit [--repair]  ──▶ start(repair) ──▶ task "SftAudit", slice by slice ──▶ findings(run, most)
//   state machine ready   ──▶ afterRestart of AuditConfig.h ──▶ the same; one line in the log
//
// Neighbours: Tracker.h, AuditRun.h; the other plugin is known by names only. Threading: the agent's event
// thread.
#pragma once

#include <memory>
#include <optional>

#include "AuditConfig.h"
#include "AuditRun.h"

namespace SampledFlowTracker {

// What a run has found since it was asked last.
struct AuditAnswer {
  bool running = false;  // more findings may come
  Kiv::Value::List findings;
  std::uint64_t statuses = 0;
  std::uint64_t differences = 0;
  std::uint64_t repaired = 0;
  std::optional<Kiv::String> stopped;  // why a run did not come to its end
};

class SftPexaAudit : public Pexa::PexaPluginBase {
 public:
  static constexpr std::string_view kName = "SftAudit";
  static constexpr std::string_view kConfigPath = "flowtracking/audit/sampled";
  static constexpr std::uint8_t kPriority = 5;  // less urgent than the state machine's
  static constexpr double kPause = 1.0;         // seconds before a second look

  explicit SftPexaAudit(const Kiv::String& name);
  // Ends a run under way; what it has repaired stays so.
  ~SftPexaAudit() override;
  static Kiv::Ptr<SftPexaAudit> SftPexaAuditIs(const Kiv::String& name);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  void doMounts(const Kiv::Ptr<Pexa::PluginContext>& context) override;
  void mountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) override;
  // Follows the tracker. REQUIRES: the plugin has joined a plugin manager.
  void activeInit(Pexa::PexaMode mode) override;

  const Kiv::Ptr<AuditConfig>& config() const { return config_; }
  bool running() const { return running_; }
  // Of the latest run, from 1 up; 0: there was none.
  std::uint64_t run() const { return number_; }
  // How the latest run that is over ended: its line in the log.
  const Kiv::String& lastResult() const { return lastResult_; }

  // Starts a run and gives its number. Throws AuditRefused, or Quell::TableError when another process writes
  // the status table.
  std::uint64_t start(bool repair);
  // What a run has found since the last such call, at most so many findings. When no run is under way and no
  // findings come any more, everything has been told. What is not asked for is kept until the next run.
  // Throws AuditRefused when a later run has begun.
  AuditAnswer findings(std::uint64_t run, std::uint32_t most);

 private:
  class Reactor;

  void trackerChanged();
  void startAfterRestart();
  void begin(bool repair, bool asked);
  void slice();
  void end(std::optional<Kiv::String> stopped);

  Kiv::Ptr<AuditConfig> config_;
  std::unique_ptr<Tracker> tracker_;
  Kiv::Ptr<Olt::TimerTask> task_;
  Kiv::Ptr<Reactor> reactor_;

  std::optional<AuditRun> latest_;
  Kiv::Ptr<Kiv::PtrInterface> auditedSm_;  // of the run under way
  bool running_ = false;
  bool asked_ = false;  // somebody asked for the latest run; else it came by itself
  std::uint64_t number_ = 0;
  std::optional<Kiv::String> stopped_;
  Kiv::String lastResult_;
};

}  // namespace SampledFlowTracker

namespace Kiv {
template <>
struct ValueTraits<SampledFlowTracker::AuditAnswer> {
  static constexpr std::string_view kTypeName = "audit answer";
  // {"running","findings","statuses","differences","repaired","stopped"}
  static Value toValue(const SampledFlowTracker::AuditAnswer& answer);
};
}  // namespace Kiv
