#include "SftPexaAudit.h"

#include <fmt/format.h>

#include "AuditTrace.h"

namespace SampledFlowTracker {

// Runs the slices of the root entity's task.
class SftPexaAudit::Reactor : public Olt::TaskReactor {
 public:
  explicit Reactor(SftPexaAudit* owner) : owner_(owner) {}
  void onTaskRun() override {
    if (owner_ != nullptr) owner_->slice();
  }
  void forget() {
    owner_ = nullptr;
    notifierIs(nullptr);
  }

 private:
  SftPexaAudit* owner_;
};

SftPexaAudit::SftPexaAudit(const Kiv::String& name) : Pexa::PexaPluginBase(name) {}

SftPexaAudit::~SftPexaAudit() {
  if (reactor_) reactor_->forget();
}

Kiv::Ptr<SftPexaAudit> SftPexaAudit::SftPexaAuditIs(const Kiv::String& name) {
  auto audit = Kiv::makePtr<SftPexaAudit>(name);
  audit->hasNotificationActiveIs(true);
  return audit;
}

const Kiv::Type& SftPexaAudit::kivType() {
  using Self = SftPexaAudit;
  static const Kiv::Type type = Kiv::TypeBuilder<Self>("SampledFlowTracker::SftPexaAudit")
                                    .attribute("config", &Self::config)
                                    .attribute("running", &Self::running)
                                    .attribute("run", &Self::run)
                                    .attribute("lastResult", &Self::lastResult)
                                    .handler("start", &Self::start, "repair")
                                    .handler("findings", &Self::findings, "run", "most")
                                    .constructor(&Self::SftPexaAuditIs, "name")
                                    .build();
  return type;
}

void SftPexaAudit::doMounts(const Kiv::Ptr<Pexa::PluginContext>& context) {
  const auto group = context->entityManager()->getMountGroup(this);
  group->doMount(Mirro::Mount(Kiv::String(kConfigPath), AuditConfig::kivType().name(), "rc"));
  group->doClose(false, "", 0);
}

void SftPexaAudit::mountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) {
  config_ = Kiv::ptrCast<AuditConfig>(entityManager->getEntity(kConfigPath));
}

void SftPexaAudit::activeInit(Pexa::PexaMode) {
  task_ = Olt::TaskSchedulerRoot::findOrCreateScheduler()->timerTaskIs(name(), kPriority);
  reactor_ = Kiv::makePtr<Reactor>(this);
  reactor_->notifierIs(task_);
  reactor_->hasNotificationActiveIs(true);
  tracker_ = std::make_unique<Tracker>(pluginManager(), [this] { trackerChanged(); });
  trackerChanged();
}

void SftPexaAudit::trackerChanged() {
  if (!tracker_) return;
  if (running_ && !(tracker_->stateMachine() == auditedSm_)) end("the tracker's state machine went");
  if (!running_ && tracker_->ready()) startAfterRestart();
}

void SftPexaAudit::startAfterRestart() {
  const AfterRestart wanted = config_ ? config_->afterRestart() : AfterRestart::off;
  if (wanted == AfterRestart::off) return;
  try {
    begin(wanted == AfterRestart::repair, false);
  } catch (const std::runtime_error& error) {
    auditLog(fmt::format("no audit after the restart: {}", error.what()));
  }
}

std::uint64_t SftPexaAudit::start(bool repair) {
  if (!tracker_) {
    throw AuditRefused("the agent is in standby, expected one that is active");
  }
  if (running_) {
    throw AuditRefused(
        fmt::format("an audit is under way already (run {}), expected to wait for its end", number_));
  }
  begin(repair, true);
  return number_;
}

void SftPexaAudit::begin(bool repair, bool asked) {
  Audited audited = tracker_->audited();
  latest_.emplace(std::move(audited), repair, asked);
  auditedSm_ = tracker_->stateMachine();
  running_ = true;
  asked_ = asked;
  stopped_.reset();
  ++number_;
  task_->scheduleTask();
}

void SftPexaAudit::slice() {
  if (!running_) return;
  const std::uint64_t before = latest_->examined();
  AuditProgress progress = AuditProgress::ended;
  std::optional<Kiv::String> stopped;
  try {
    progress = latest_->slice(*task_);
  } catch (const std::runtime_error& error) {  // the tracker is not the one that this audit knows
    stopped = error.what();
  }
  task_->taskWorkCountInc(latest_->examined() - before);
  switch (progress) {
    case AuditProgress::yields:
      task_->scheduleTask();
      break;
    case AuditProgress::pauses:
      task_->taskDelayIs(kPause);
      break;
    case AuditProgress::ended:
      end(std::move(stopped));
      break;
  }
}

void SftPexaAudit::end(std::optional<Kiv::String> stopped) {
  running_ = false;
  stopped_ = std::move(stopped);
  auditedSm_.reset();
  task_->unscheduleTask();
  latest_->release();
  lastResult_ =
      fmt::format("audit {} ({}): {} statuses, {}{}{}", asked_ ? "asked for" : "after the restart",
                  latest_->repair() ? "repair" : "report", latest_->statuses(), latest_->findings().summary(),
                  stopped_ ? "; stopped: " : "", stopped_ ? *stopped_ : Kiv::String());
  auditLog(lastResult_);
}

AuditAnswer SftPexaAudit::findings(std::uint64_t run, std::uint32_t most) {
  if (run != number_ || !latest_) {
    throw AuditRefused(fmt::format("run {} is no more, expected the latest one, {}", run, number_));
  }
  AuditAnswer answer;
  answer.findings = latest_->findings().take(most);
  answer.running = running_;
  answer.statuses = latest_->statuses();
  answer.differences = latest_->findings().differences();
  answer.repaired = latest_->findings().repaired();
  answer.stopped = stopped_;
  return answer;
}

}  // namespace SampledFlowTracker

namespace Kiv {

Value ValueTraits<SampledFlowTracker::AuditAnswer>::toValue(const SampledFlowTracker::AuditAnswer& answer) {
  return Value::Object{
      {"running", answer.running},   {"findings", answer.findings},
      {"statuses", answer.statuses}, {"differences", answer.differences},
      {"repaired", answer.repaired}, {"stopped", answer.stopped ? Value(*answer.stopped) : Value()}};
}

}  // namespace Kiv
