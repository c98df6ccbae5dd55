#include "ConfigInputSm.h"

namespace SampledFlowTracker {

// Watches the wanted offloads on behalf of the input state machine.
template <class Domain>
class ConfigInputSm<Domain>::KivHoFlowConfig : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit KivHoFlowConfig(ConfigInputSm* owner) : owner_(owner) {}
  void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
    if (owner_ == nullptr || attribute != FlowTracking::HoFlowConfig::attributeOf<Domain>) return;
    owner_->handleConfigReactor(key.as<Key>());
  }
  void onAttribute(Kiv::AttributeId attribute) override {
    if (owner_ == nullptr || attribute != FlowTracking::HoFlowConfig::attributeOf<Domain>) return;
    owner_->handleConfigMissed();
  }
  void onZeroReferences() override {
    if (owner_ != nullptr) owner_->doDeleteAll();
  }
  void forget() { owner_ = nullptr; }

 private:
  ConfigInputSm* owner_;
};

namespace {

// The wanted offloads as a walk; see OutputTables.h.
template <class Domain>
struct ConfigTable {
  using Key = FlowTracking::HoFlowKey<Domain>;
  const FlowTracking::HoFlowConfig& config;
  mutable FlowTracking::HoFlowConfigRecord<Domain> record{};  // of the key given last

  const auto& map() const { return config.map<Domain>(); }
  std::size_t size() const { return map().size(); }
  bool first(Key& key) const {
    if (!map().first(record)) return false;
    key = record.key;
    return true;
  }
  bool after(const Key& place, Key& key) const {
    if (!map().after(place, record)) return false;
    key = record.key;
    return true;
  }
  void damaged(std::string_view text) const { map().doCorruptionDetected(text); }
};

}  // namespace

template <class Domain>
ConfigInputSm<Domain>::ConfigInputSm(const Kiv::Ptr<const FlowTracking::HoFlowConfig>& hoFlowConfig,
                                     Statements<Domain>& statements, const FamilyOutputs<Domain>& outputs,
                                     SmFrame& frame)
    : InputSm(Kiv::String(Texts::kInputScanTask), frame.drovaControl(), frame.synchronous()),
      hoFlowConfig_(hoFlowConfig),
      statements_(statements),
      outputs_(outputs),
      frame_(frame),
      watcher_(Kiv::makePtr<KivHoFlowConfig>(this)) {
  watcher_->notifierIs(hoFlowConfig_);
  watcher_->hasNotificationActiveIs(true);
}

template <class Domain>
ConfigInputSm<Domain>::~ConfigInputSm() {
  watcher_->forget();
  watcher_->kivDoZombieReactors(true);
}

template <class Domain>
const Kiv::Type& ConfigInputSm<Domain>::kivType() {
  using Self = ConfigInputSm;
  static const Kiv::Type type =
      Kiv::TypeBuilder<Self>(
          fmt::format("SampledFlowTracker::SftPexaFtHOCSM::{}", StatementTexts<Domain>::kInputSm))
          .attribute("active", &Self::active)
          .attribute("scanState",
                     [](const Self& self) { return static_cast<std::uint32_t>(self.scanState()); })
          .attribute("inputScanBookmark",
                     [](const Self& self) { return self.resume_ ? self.resume_->str() : Kiv::String(); })
          .attribute("pendingNotifications", &Self::pendingNotifications)
          .attribute("parent", [](const Self& self) { return self.frame_.self(); })
          .attribute("root", [](const Self& self) { return self.frame_.self(); })
          .handler("doInputScan", &Self::doInputScan)
          .build();
  return type;
}

template <class Domain>
void ConfigInputSm<Domain>::handleConfig(const Key& key) {
  deliver(key, FlowTracking::lookUp(hoFlowConfig_->map<Domain>(), key));
}

template <class Domain>
void ConfigInputSm<Domain>::deliver(const Key& key, const std::optional<Config>& config) {
  frame_.trace()(SmTrace::kKey, Texts::kInputHandler, "k: {}", key);
  pendingClear();
  statements_.eventToInput(key, config);
}

template <class Domain>
void ConfigInputSm<Domain>::handleConfigReactor(const Key& key) {
  const auto keep = frame_.self();
  notificationPending();  // I1
  if (active()) handleConfig(key);
}

template <class Domain>
void ConfigInputSm<Domain>::handleConfigMissed() {
  const auto keep = frame_.self();
  notificationPending();
  missed_ = true;
  // Before that, a scan of everything is still to come.
  if (active() && frame_.initialScanDone()) {
    resetWalk(Phase::config);
    doInitializeTask();
  }
}

template <class Domain>
void ConfigInputSm<Domain>::hasNotificationActiveIs(bool active) {
  if (active && !this->active() && pendingNotifications() != 0) missed_ = true;
  if (active && !this->active()) resetWalk(Phase::config);
  InputSm::hasNotificationActiveIs(active);
}

template <class Domain>
void ConfigInputSm<Domain>::doInputScan() {
  if (!active()) return;  // I2
  const auto keep = frame_.self();
  frame_.trace()(SmTrace::kFrame, "doInputScan", "scan complete: {} resumed: {} scan: {}",
                 scanState() == Zun::InputScanState::complete, resume_.has_value(),
                 frame_.inputSmScanState()->template scan<Domain>());
  if (scanState() == Zun::InputScanState::complete) return;
  assertThat(static_cast<bool>(hoFlowConfig_),
             R"(en() && "Sm args can only be null if marked as Optional in the SM type declaration")");
  if (phase_ == Phase::config) {
    const ConfigTable<Domain> table{*hoFlowConfig_};
    if (!resume_ && frame_.initialScanDone() && !expectEvents(table)) return;
    if (!walk(table, [&](const Key& key) {
          lookAhead();
          deliver(key, table.record);
        }))
      return;
    if (missed_ && frame_.initialScanDone()) {
      resetWalk(Phase::status);
    }
  }
  if (phase_ != Phase::config && !sweep()) return;
  endScan();
}

template <class Domain>
void ConfigInputSm<Domain>::lookAhead() const {
  if (!frame_.initialScanDone()) return;
  Key key;
  while (hoFlowConfig_->map<Domain>().ahead(key)) statements_.lookAhead(key);
}

template <class Domain>
template <class Table>
bool ConfigInputSm<Domain>::expectEvents(const Table& table) {
  try {
    while (!statements_.expect(table.size())) {
      if (!shouldYield()) continue;
      yieldScan(0, table.size());
      return false;
    }
  } catch (const Fenn::CorruptionDetectedException&) {
    // Nobody knows how many: the walk will tell of it.
  }
  return true;
}

template <class Domain>
template <class Table, class Deliver>
bool ConfigInputSm<Domain>::walk(const Table& table, const Deliver& deliver) {
  std::uint64_t iterations = 0;
  try {
    Key key{};
    bool more = resume_ ? table.after(*resume_, key) : table.first(key);
    while (more) {
      if (!active())
        return false;  // an event switched this off; the scan starts again with the next activation
      deliver(key);
      resume_ = key;  // I3
      ++iterations;
      ++delivered_;
      const bool yields = shouldYield();
      more = table.after(key, key);
      if (!yields || !more) continue;
      const std::uint64_t remaining = table.size() > delivered_ ? table.size() - delivered_ : 0;
      frame_.trace()(SmTrace::kFrame, "doInputScan", "{} {} yielding after {} iterations ({} remaining)",
                     Texts::kInputSm, frame_.initialScanDone() ? "scan" : "initial scan", iterations,
                     remaining);
      yieldScan(iterations, remaining);
      return false;
    }
  } catch (const Fenn::CorruptionDetectedException& damage) {
    table.damaged(damage.what());  // the walk ends here
  }
  return true;
}

template <class Domain>
bool ConfigInputSm<Domain>::sweep() {
  const auto deliver = [this](const Key& key) { deliverUnwanted(key); };
  if (phase_ == Phase::status) {
    if (!walk(outputs_.status.table(), deliver)) return false;
    resetWalk(Phase::overflow);
  }
  return walk(outputs_.overflow.table(), deliver);
}

template <class Domain>
void ConfigInputSm<Domain>::deliverUnwanted(const Key& key) {
  if (FlowTracking::lookUp(hoFlowConfig_->map<Domain>(), key)) return;
  statements_.eventToInput(key, std::nullopt);
}

template <class Domain>
void ConfigInputSm<Domain>::endScan() {
  pendingClear();
  const bool initial = !frame_.initialScanDone();
  if (!initial) missed_ = false;
  resetWalk(Phase::config);
  scanStateIs(initial ? Zun::InputScanState::initialScanComplete : Zun::InputScanState::complete);
  scanTaskDel();
  const Kiv::Ptr<InputSmScanState> scanState = frame_.inputSmScanState();
  scanState->template scanIs<Domain>(true);
  frame_.trace()(SmTrace::kFrame, "doInputScan", "{}{} scan, and parent scan, complete.", Texts::kInputSm,
                 initial ? " initial" : "");
  if (initial) frame_.handleInitialScanDone();
}

template <class Domain>
void ConfigInputSm<Domain>::resetWalk(Phase phase) {
  phase_ = phase;
  resume_.reset();
  delivered_ = 0;
}

template <class Domain>
void ConfigInputSm<Domain>::doDeleteAll() {
  const auto keep = frame_.self();
  frame_.trace()(SmTrace::kFrame, "doDeleteAll", "{} deleted", Texts::kInputSm);
  assertThat(pendingNotifications() == 0, Texts::kMissedNotifications);
  const ConfigTable<Domain> table{*hoFlowConfig_};
  try {
    Key key{};
    for (bool more = table.first(key); more; more = table.after(key, key)) {
      statements_.eventToInput(key, std::nullopt);
    }
  } catch (const Fenn::CorruptionDetectedException& damage) {
    table.damaged(damage.what());
  }
}

template class ConfigInputSm<Pavo::Traits::IPv4>;
template class ConfigInputSm<Pavo::Traits::IPv6>;

}  // namespace SampledFlowTracker
