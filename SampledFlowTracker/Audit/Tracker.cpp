#include "Tracker.h"

#include <algorithm>

namespace SampledFlowTracker {

namespace {

constexpr std::string_view kFeature = "sampled";
constexpr std::string_view kCounterName = "hfc";

// The entity in an attribute of that name; empty when the attribute is, or the object is, or has none.
Kiv::Ptr<Kiv::PtrInterface> part(const Kiv::Ptr<Kiv::PtrInterface>& object, std::string_view name) {
  if (!object || object->fwkType().attribute(name) == nullptr) return {};
  return Kiv::ValueTraits<Kiv::Ptr<Kiv::PtrInterface>>::fromValue(object->fwkType().get(*object, name));
}

template <class T>
Kiv::Ptr<T> table(const KivSharedMem::EntityManager& tables, const Kiv::String& path) {
  auto found = Kiv::ptrCast<T>(tables.getEntity(path));
  if (!found) throw AuditRefused(path + " is not mounted, expected the agent to hold the tracker's tables");
  return found;
}

void writingIs(Quell::Container& container) {
  for (Quell::MapBase* map : container.collections()) {
    if (map->table()) map->table()->writingIs();
  }
}

}  // namespace

// Watches one attribute, by its name.
class Tracker::Watch : public Kiv::PtrInterface::NotifieeConst {
 public:
  Watch(const Kiv::Ptr<Kiv::PtrInterface>& watched, std::string_view name, std::function<void()> tell)
      : tell_(std::move(tell)) {
    const auto* attribute = watched->fwkType().attribute(name);
    if (attribute == nullptr) return;
    id_ = attribute->id;
    notifierIs(watched);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Kiv::AttributeId attribute) override {
    if (attribute == id_ && tell_) tell_();
  }
  void forget() {
    tell_ = nullptr;
    notifierIs(nullptr);
  }

 private:
  std::function<void()> tell_;
  Kiv::AttributeId id_ = 0;
};

Tracker::Tracker(Kiv::Ptr<const Pexa::PluginManager> manager, std::function<void()> changed)
    : manager_(std::move(manager)), changed_(std::move(changed)) {
  const auto& plugins = manager_->plugins();
  const auto found = std::find_if(plugins.begin(), plugins.end(),
                                  [](const auto& plugin) { return plugin->name() == kPlugin; });
  if (found == plugins.end()) return;
  plugin_ = *found;
  pluginWatch_ = Kiv::makePtr<Watch>(plugin_, "hocSm", [this] {
    follow();
    changed_();
  });
  follow();
}

Tracker::~Tracker() {
  if (outputWatch_) outputWatch_->forget();
  if (pluginWatch_) pluginWatch_->forget();
}

void Tracker::follow() {
  if (outputWatch_) outputWatch_->forget();
  outputWatch_.reset();
  const auto outputs = outputState();
  if (outputs) outputWatch_ = Kiv::makePtr<Watch>(outputs, "ready", [this] { changed_(); });
}

Kiv::Ptr<Kiv::PtrInterface> Tracker::stateMachine() const {
  return part(plugin_, "hocSm");
}

Kiv::Ptr<Kiv::PtrInterface> Tracker::outputState() const {
  return part(stateMachine(), "outputState");
}

bool Tracker::ready() const {
  const auto outputs = outputState();
  return outputs && Kiv::attribute(*outputs, "ready") == Kiv::Value(true);
}

Audited Tracker::audited() const {
  using FlowTracking::HoFlowConfig;
  using FlowTracking::HoFlowCounter;
  using FlowTracking::HoFlowStatus;
  using FlowTracking::HosStateCounter;
  if (!plugin_) {
    throw AuditRefused(
        "the agent has no plugin SampledFlowTracker, expected libPexaSampledFlowTracker.so among its "
        "plugins");
  }
  if (!stateMachine()) {
    throw AuditRefused("the tracker's state machine does not run, expected an agent that is active");
  }
  if (!ready()) {
    throw AuditRefused(
        "the tracker's state machine still reconciles its tables, expected it to be ready (attribute ready "
        "of "
        "SampledFlowTracker.hocSm)");
  }
  if (!manager_->agent || !manager_->agent->sharedMemEntityManager()) {
    throw AuditRefused("the agent holds no shared tables, expected those of the tracker");
  }
  const KivSharedMem::EntityManager& tables = *manager_->agent->sharedMemEntityManager();
  Audited audited;
  audited.config = table<HoFlowConfig>(tables, HoFlowConfig::mountPath(kFeature));
  audited.status = table<HoFlowStatus>(tables, HoFlowStatus::mountPath(kFeature));
  audited.counter = table<HoFlowCounter>(tables, HoFlowCounter::mountPath(kFeature, kCounterName));
  audited.stateCounter = table<HosStateCounter>(tables, HosStateCounter::mountPath(kFeature));
  audited.overflow = part(plugin_, "drovaHelper");
  audited.localCounters = part(plugin_, "localHoCounters");
  if (!audited.overflow || !audited.localCounters) {
    throw AuditRefused("the tracker has no overflow entries or no local counters, expected it to be active");
  }
  writingIs(*audited.status);
  return audited;
}

}  // namespace SampledFlowTracker
