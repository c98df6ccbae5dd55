#include "OffloadTables.h"

#include <spdlog/spdlog.h>

#include "RecordTypes.h"
#include "TableLookup.h"
#include "quell/SharedTables.h"
#include "quell/TableFile.h"

namespace Tracker {
namespace {

using FlowTracking::HoFlowConfig;
using FlowTracking::HoFlowConfigRecord;
using FlowTracking::HoFlowCounter;
using FlowTracking::HoFlowStatus;

constexpr std::string_view kTracking = "sampled";
constexpr std::string_view kCounterName = "hfc";
constexpr std::size_t kMostNotices = 1 << 16;

template <class Container>
Kiv::Ptr<Container> published(Quell::SharedTables& tables, const Kiv::String& path) {
  return Kiv::ptrCast<Container>(tables.doMount(path, Container::kivType().name(),
                                                KivQuell::MountInfo(KivQuell::KivQuellType::published)));
}

// The wanted offloads' table, with this process as its writer from the start: two trackers would take each
// other's flows away.
Kiv::Ptr<HoFlowConfig> written(const std::string& runDir) {
  auto config = Kiv::makePtr<HoFlowConfig>(HoFlowConfig::mountPath(kTracking));
  for (Quell::MapBase* map : config->collections()) {
    const Quell::TablePlace place{runDir, config->name(), map->name()};
    const Quell::TableFile::Creation creation{&map->type(), HoFlowConfig::kivType().name()};
    auto file = Quell::TableFile::openOrCreate(place, creation, Quell::TableFile::Access::read);
    file->requireType(map->type());
    map->tableIs(std::make_shared<Quell::Table>(std::move(file)));
    map->table()->writingIs();
  }
  return config;
}

}  // namespace

OffloadTables::OffloadTables(const std::string& runDir) {
  FlowTracking::recordTypesRegister();
  config_ = written(runDir);
  tables_ = Kiv::makePtr<Quell::SharedTables>("flowTracker", runDir);
  status_ = published<HoFlowStatus>(*tables_, HoFlowStatus::mountPath(kTracking));
  counter_ = published<HoFlowCounter>(*tables_, HoFlowCounter::mountPath(kTracking, kCounterName));
}

OffloadTables::OffloadTables(Kiv::Ptr<HoFlowConfig> config, Kiv::Ptr<HoFlowStatus> status,
                             Kiv::Ptr<HoFlowCounter> counter)
    : config_(std::move(config)), status_(std::move(status)), counter_(std::move(counter)) {}

OffloadTables::~OffloadTables() = default;

template <class Change>
bool OffloadTables::changed(const Change& change) {
  try {
    change();
    unflushed_ = true;
    return true;
  } catch (const Quell::TableError& error) {
    if (refusals_++ == 0) spdlog::error("wanted offloads: {}; counted from now on", error.what());
  } catch (const Fenn::CorruptionDetectedException& damage) {
    if (damages_++ == 0) spdlog::error("wanted offloads: {}; counted from now on", damage.what());
  }
  return false;
}

template <class Domain>
bool OffloadTables::want(const Key<Domain>& key, double now) {
  return changed([&] { config_->map<Domain>().insert({key, now}); });
}

template <class Domain>
bool OffloadTables::unwant(const Key<Domain>& key) {
  return changed([&] { config_->map<Domain>().erase(key); });
}

template <class Domain>
void OffloadTables::wanted(const std::function<void(const HoFlowConfigRecord<Domain>&)>& each) const {
  const auto& map = config_->map<Domain>();
  HoFlowConfigRecord<Domain> record;
  std::optional<Quell::WalkDamage> damage;
  bool more = true;
  for (bool begun = false; more; begun = true) {
    try {
      if (damage) {
        const Quell::WalkDamage met = *std::exchange(damage, std::nullopt);
        more = map.behind(met, record);
      } else {
        more = begun ? map.after(record.key, record) : map.first(record);
      }
      if (more) each(record);
    } catch (const Quell::WalkDamage& met) {
      ++damages_;
      spdlog::error("wanted offloads: {}; what cannot be read is left out", met.what());
      damage = met;
    }
  }
}

template <class Domain>
bool OffloadTables::inHardware(const Key<Domain>& key) const {
  const auto status = FlowTracking::lookUp(status_->map<Domain>(), key);
  return status && status->state == FlowTracking::HoFlowState::inHardware;
}

template <class Domain>
std::optional<FlowTracking::HoFlowCounterRecord<Domain>> OffloadTables::counter(
    const FlowTracking::FlowKey<Domain>& key) const {
  return FlowTracking::lookUp(counter_->map<Domain>(), key);
}

template <class Domain>
std::uint64_t OffloadTables::counterSession() const {
  return counter_->map<Domain>().table()->file()->header().sessions.load(std::memory_order_acquire);
}

std::uint64_t OffloadTables::damages() const {
  std::uint64_t met = damages_;
  for (const Kiv::Ptr<Quell::Container>& table :
       {Kiv::Ptr<Quell::Container>(config_), Kiv::Ptr<Quell::Container>(status_),
        Kiv::Ptr<Quell::Container>(counter_)}) {
    for (const Quell::MapBase* map : table->collections()) met += map->corruptions();
  }
  return met;
}

void OffloadTables::flush() {
  if (!unflushed_) return;
  unflushed_ = false;
  for (Quell::MapBase* map : config_->collections()) map->table()->flush();
}

int OffloadTables::descriptor() const {
  return tables_ ? tables_->descriptor() : -1;
}

void OffloadTables::deliver() {
  while (tables_ && tables_->deliver(kMostNotices)) continue;
}

template bool OffloadTables::want<Pavo::Traits::IPv4>(const Key<Pavo::Traits::IPv4>&, double);
template bool OffloadTables::want<Pavo::Traits::IPv6>(const Key<Pavo::Traits::IPv6>&, double);
template bool OffloadTables::unwant<Pavo::Traits::IPv4>(const Key<Pavo::Traits::IPv4>&);
template bool OffloadTables::unwant<Pavo::Traits::IPv6>(const Key<Pavo::Traits::IPv6>&);
template void OffloadTables::wanted<Pavo::Traits::IPv4>(
    const std::function<void(const HoFlowConfigRecord<Pavo::Traits::IPv4>&)>&) const;
template void OffloadTables::wanted<Pavo::Traits::IPv6>(
    const std::function<void(const HoFlowConfigRecord<Pavo::Traits::IPv6>&)>&) const;
template bool OffloadTables::inHardware<Pavo::Traits::IPv4>(const Key<Pavo::Traits::IPv4>&) const;
template bool OffloadTables::inHardware<Pavo::Traits::IPv6>(const Key<Pavo::Traits::IPv6>&) const;
template std::uint64_t OffloadTables::counterSession<Pavo::Traits::IPv4>() const;
template std::uint64_t OffloadTables::counterSession<Pavo::Traits::IPv6>() const;
template std::optional<FlowTracking::HoFlowCounterRecord<Pavo::Traits::IPv4>>
OffloadTables::counter<Pavo::Traits::IPv4>(const FlowTracking::FlowKey<Pavo::Traits::IPv4>&) const;
template std::optional<FlowTracking::HoFlowCounterRecord<Pavo::Traits::IPv6>>
OffloadTables::counter<Pavo::Traits::IPv6>(const FlowTracking::FlowKey<Pavo::Traits::IPv6>&) const;

}  // namespace Tracker
