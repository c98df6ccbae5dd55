#include "FamilyAudit.h"

#include <utility>

#include "AuditTrace.h"
#include "TableLookup.h"

namespace SampledFlowTracker {

namespace {

Kiv::Value call(Kiv::PtrInterface& object, std::string_view handler, const Kiv::String& key) {
  return Kiv::invoke(object, handler, {{"key", key}});
}

template <class Key>
Key keyOf(const Kiv::String& text) {
  return Key(text.begin(), text.end());
}

constexpr std::string_view kNone = "none";
constexpr std::string_view kCounterRecord = "a counter record";
constexpr std::string_view kLocalCounter = "a local counter";
constexpr std::string_view kOverflowEntry = "an overflow entry";

}  // namespace

// Keeps the view true while the statuses change: this process alone writes the table, so every change is
// told, with its key.
template <class Domain>
class FamilyAudit<Domain>::KivHoFlowStatus : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit KivHoFlowStatus(FamilyAudit* owner) : owner_(owner) {}
  void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
    if (owner_ == nullptr || attribute != FlowTracking::HoFlowStatus::attributeOf<Domain>) return;
    owner_->handleStatus(key.as<Key>());
  }
  void forget() {
    owner_ = nullptr;
    notifierIs(nullptr);
  }

 private:
  FamilyAudit* owner_;
};

template <class Domain>
FamilyAudit<Domain>::FamilyAudit(const Audited& audited, bool repair, Findings& findings)
    : audited_(audited), repair_(repair), findings_(findings), watcher_(Kiv::makePtr<KivHoFlowStatus>(this)) {
  watcher_->notifierIs(audited.status);
  watcher_->hasNotificationActiveIs(true);
}

template <class Domain>
FamilyAudit<Domain>::~FamilyAudit() {
  watcher_->forget();
}

template <class Domain>
AuditProgress FamilyAudit<Domain>::slice(const Olt::Task& task) {
  while (walk_ != Walk::ended) {
    if (walk_ == Walk::secondLook && !suspects_.empty() && !std::exchange(paused_, true)) {
      return AuditProgress::pauses;
    }
    if (!next()) {
      endWalk();
      continue;
    }
    if (walk_ != Walk::drop) ++examined_;
    if (task.taskShouldYield()) return AuditProgress::yields;
  }
  return AuditProgress::ended;
}

template <class Domain>
bool FamilyAudit<Domain>::next() {
  switch (walk_) {
    case Walk::statuses:
      return nextStatus();
    case Walk::overflow:
      return nextOverflowEntry();
    case Walk::counters:
      return nextCounter();
    case Walk::localCounters:
      return nextLocalCounter();
    case Walk::secondLook:
      return nextSuspect();
    case Walk::drop:
      return view_.dropPart();
    case Walk::ended:
      break;
  }
  return false;
}

template <class Domain>
void FamilyAudit<Domain>::endWalk() {
  if (walk_ == Walk::statuses) compareStateCounts();  // the view is complete (F2)
  textPlace_.clear();
  if (walk_ == Walk::secondLook) {  // nobody asks the view any more
    watcher_->forget();
    statuses_ = view_.size();
  }
  walk_ = static_cast<Walk>(static_cast<int>(walk_) + 1);
}

template <class Domain>
bool FamilyAudit<Domain>::nextStatus() {
  Status status;
  if (!recordBehind(audited_.status->map<Domain>(), statusPlace_, status)) return false;
  statusPlace_ = status.key;
  view_.statusIs(status.key, status.state);
  examine(status);
  return true;
}

template <class Domain>
void FamilyAudit<Domain>::examine(const Status& status) {
  if (status.state == State::inHardware &&
      !FlowTracking::lookUp(audited_.counter->map<Domain>(), status.key.ipFlowKey)) {
    add(FindingKind::noCounter, status.key.str(), kNone, kCounterRecord);
  }
  if (status.state == State::overflow && !waits(status.key)) {
    add(FindingKind::noOverflowEntry, status.key.str(), kNone, kOverflowEntry);
  }
}

template <class Domain>
bool FamilyAudit<Domain>::nextOverflowEntry() {
  const Kiv::String key =
      Kiv::ValueTraits<Kiv::String>::fromValue(call(*audited_.overflow, Names::kOverflowAfter, textPlace_));
  if (key.empty()) return false;
  textPlace_ = key;
  examineOverflowEntry(keyOf<Key>(key));
  return true;
}

template <class Domain>
void FamilyAudit<Domain>::examineOverflowEntry(const Key& key) {
  const auto status = FlowTracking::lookUp(audited_.status->map<Domain>(), key);
  if (!status) {
    add(FindingKind::entryWithoutStatus, key.str(), kOverflowEntry, kNone);
  } else if (status->state != State::overflow) {
    add(FindingKind::entryOfOtherState, key.str(), static_cast<std::uint32_t>(status->state),
        static_cast<std::uint32_t>(State::overflow));
  }
  if (!wanted(key)) suspects_.push_back(key);
}

template <class Domain>
bool FamilyAudit<Domain>::nextSuspect() {
  if (suspects_.empty()) return false;
  const Key key = suspects_.back();
  suspects_.pop_back();
  if (waits(key) && !wanted(key)) add(FindingKind::entryNotWanted, key.str(), kOverflowEntry, kNone);
  return true;
}

template <class Domain>
bool FamilyAudit<Domain>::nextCounter() {
  Counter counter;
  if (!recordBehind(audited_.counter->map<Domain>(), counterPlace_, counter)) return false;
  counterPlace_ = counter.key;
  examine(counter);
  return true;
}

template <class Domain>
void FamilyAudit<Domain>::examine(const Counter& counter) {
  auto& map = audited_.counter->map<Domain>();
  const std::uint32_t references = view_.references(counter.key);
  if (references == 0) {
    add(FindingKind::unneededCounter, counter.key.str(), kCounterRecord, kNone,
        [&] { map.erase(counter.key); });
  } else if (counter.hosEntries != references) {
    Counter right = counter;
    right.hosEntries = references;
    add(FindingKind::references, counter.key.str(), counter.hosEntries, references,
        [&] { map.insert(right); });
  }
}

template <class Domain>
bool FamilyAudit<Domain>::nextLocalCounter() {
  const Kiv::String key =
      Kiv::ValueTraits<Kiv::String>::fromValue(call(*audited_.localCounters, Names::kLocalAfter, textPlace_));
  if (key.empty()) return false;
  textPlace_ = key;
  examineLocalCounter(keyOf<FlowKey>(key));
  return true;
}

template <class Domain>
void FamilyAudit<Domain>::examineLocalCounter(const FlowKey& flow) {
  if (view_.references(flow) != 0) return;
  add(FindingKind::unneededLocalCounter, flow.str(), kLocalCounter, kNone,
      [&] { call(*audited_.localCounters, Names::kLocalDrop, flow.str()); });
}

// States are few, so this is one look.
template <class Domain>
void FamilyAudit<Domain>::compareStateCounts() {
  for (std::size_t state = 0; state < StatusView<Domain>::kStates; ++state) {
    compareStateCount(static_cast<State>(state));
  }
}

template <class Domain>
void FamilyAudit<Domain>::compareStateCount(State state) {
  auto& map = audited_.stateCounter->map<Domain>();
  const FlowTracking::HosStateCounterKey key(state);
  const auto stored = FlowTracking::lookUp(map, key);
  const std::uint32_t count = stored ? stored->count : 0;
  const std::uint32_t right = view_.count(state);
  if (count == right) return;
  FlowTracking::HosStateCounterEntry entry;
  entry.key = key;
  entry.count = right;
  add(FindingKind::stateCount, key.str(), count, right, [&] { map.insert(entry); });
}

template <class Domain>
void FamilyAudit<Domain>::handleStatus(const Key& key) {
  const auto status = FlowTracking::lookUp(audited_.status->map<Domain>(), key);
  view_.statusIs(key, status ? std::optional(status->state) : std::nullopt);
}

template <class Domain>
bool FamilyAudit<Domain>::waits(const Key& key) const {
  return call(*audited_.overflow, Names::kOverflowHas, key.str()) == Kiv::Value(true);
}

template <class Domain>
bool FamilyAudit<Domain>::wanted(const Key& key) const {
  return FlowTracking::lookUp(audited_.config->map<Domain>(), key).has_value();
}

template <class Domain>
template <class Map, class TableKey>
bool FamilyAudit<Domain>::recordBehind(const Map& map, const std::optional<TableKey>& place,
                                       typename Map::RecordTypeT& record) {
  std::optional<Quell::WalkDamage> met;
  for (;;) {
    try {
      if (met) return map.behind(*met, record);
      return place ? map.after(*place, record) : map.first(record);
    } catch (const Quell::WalkDamage& damage) {
      met = damage;
      map.doCorruptionDetected(damage.what());
      add(FindingKind::damage, map.name(), damage.what(), "records that can be read");
    }
  }
}

// A table that does not take the repair leaves the difference as it is.
template <class Domain>
void FamilyAudit<Domain>::add(FindingKind kind, Kiv::String key, Kiv::Value found, Kiv::Value expected,
                              const std::function<void()>& repair) {
  Finding finding{Family::kName, kind, std::move(key), std::move(found), std::move(expected)};
  if (repair_ && repair) {
    try {
      repair();
      finding.repaired = true;
    } catch (const Quell::TableError& error) {
      if (lastFailure_ != error.what()) auditLog(error.what());
      lastFailure_ = error.what();
    }
  }
  findings_.add(std::move(finding));
}

template class FamilyAudit<Pavo::Traits::IPv4>;
template class FamilyAudit<Pavo::Traits::IPv6>;

}  // namespace SampledFlowTracker
