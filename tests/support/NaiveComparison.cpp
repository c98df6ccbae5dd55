#include "NaiveComparison.h"

#include <fmt/format.h>

#include <optional>
#include <sstream>

namespace Naive {

namespace {

template <class T>
std::string shown(const T& value) {
  std::ostringstream out;
  out << std::boolalpha << value;
  return out.str();
}
std::string shown(const LocalCount& count) {
  return fmt::format("{} packets, {} bytes, on {} at {}", count.packets, count.bytes, count.intfId.name(),
                     count.updateTime);
}
std::string shown(const std::monostate&) {
  return "present";
}
template <class T>
std::string shown(const std::optional<T>& value) {
  return value ? shown(*value) : "none";
}

// What both sides read without telling anybody of damage.
template <class Key, class Record>
std::optional<Record> recordOf(const Quell::Map<Key, Record>& map, const Key& key) {
  try {
    Record record;
    if (map.find(key, record)) return record;
  } catch (const Fenn::CorruptionDetectedException&) {
    return std::nullopt;
  }
  return std::nullopt;
}
template <class Domain>
std::optional<LocalCount> recordOf(const Pexa::Counter::SftHoCounterMap<Domain>& map,
                                   const FlowTracking::FlowKey<Domain>& key) {
  const auto* entry = map.find(key);
  if (entry == nullptr) return std::nullopt;
  const auto& counter = *entry->value;
  return LocalCount{counter.intfId(), counter.packets(), counter.bytes(), counter.updateTime()};
}
template <class Domain>
std::optional<std::monostate> recordOf(const SampledFlowTracker::OverflowSet<Domain>& set,
                                       const FlowTracking::HoFlowKey<Domain>& key) {
  if (!set.has(key)) return std::nullopt;
  return std::monostate{};
}
template <class NaiveMap>
auto readable(const NaiveMap& map, const typename NaiveMap::Key& key) {
  return map.whole(key) ? map.get(key) : std::nullopt;
}

unsigned damageMet(const auto& tables) {
  return tables.config.damageMet() + tables.status.damageMet() + tables.counter.damageMet() +
         tables.states.damageMet();
}

}  // namespace

template <class Real, class Expected>
void Comparison::compare(std::string_view what, const Real& real, const Expected& expected) {
  if (real == expected) return;
  difference_ += fmt::format("  {}: is {}, expected {}\n", what, shown(real), shown(expected));
}

template <class Map, class NaiveMap, class Key>
void Comparison::compareRecord(std::string_view what, const Map& map, const NaiveMap& naive, const Key& key) {
  const auto real = recordOf(map, key);
  const auto expected = readable(naive, key);
  if (real == expected) return;
  difference_ += fmt::format("  {} {}: is {}, expected {}\n", what, key.str(), shown(real), shown(expected));
}

template <class Domain>
void Comparison::compareFlows() {
  const Tables<Domain>& naive = twin_.world.tables<Domain>();
  for (unsigned flow = 0; flow < kFlows; ++flow) {
    const auto key = flowOf<Domain>(flow);
    compareRecord("counter", subject_.counter->map<Domain>(), naive.counter, key);
    compareRecord("local counter", subject_.counters().counters<Domain>(), naive.local, key);
  }
  for (unsigned state = 0; state < 4; ++state) {
    const FlowTracking::HosStateCounterKey key(static_cast<HoFlowState>(state));
    compareRecord("state count", subject_.states->map<Domain>(), naive.states, key);
  }
}

template <class Domain>
void Comparison::compareTables() {
  const Tables<Domain>& naive = twin_.world.tables<Domain>();
  const std::size_t before = difference_.size();
  for (unsigned each = 0; each < kKeys; ++each) {
    const auto key = keyOf<Domain>(each);
    compareRecord("status", subject_.status->map<Domain>(), naive.status, key);
    compareRecord("overflow", subject_.helper().overflow<Domain>(), naive.overflow, key);
  }
  compareFlows<Domain>();
  compare("config entries", subject_.config->map<Domain>().size(), naive.config.size());
  compare("status entries", subject_.status->map<Domain>().size(), naive.status.size());
  compare("counter entries", subject_.counter->map<Domain>().size(), naive.counter.size());
  compare("state count entries", subject_.states->map<Domain>().size(), naive.states.size());
  compare("local counter entries", subject_.counters().counters<Domain>().size(), naive.local.size());
  compare("overflow entries", subject_.helper().overflow<Domain>().size(), naive.overflow.size());
  if (difference_.size() != before) {
    difference_.insert(before, fmt::format("  of {}:\n", FlowTracking::IpFamily<Domain>::kName));
  }
}

template <class Domain>
void Comparison::compareScan() {
  constexpr std::size_t kFamily = FlowTracking::IpFamily<Domain>::kIndex;
  const std::string name(FlowTracking::IpFamily<Domain>::kName);
  const auto& real = *subject_.machine()->inputSmScanState();
  const ScanFlags& expected = twin_.machine()->scan();
  compare(name + " copy idle", real.copyIdle<Domain>(), expected.copyIdle[kFamily]);
  compare(name + " copy generation", real.generation<Domain>(), expected.generation[kFamily]);
  compare(name + " copy done generation", real.doneGen<Domain>(), expected.doneGen[kFamily]);
  compare(name + " stream scan", real.scan<Domain>(), expected.streamScan[kFamily]);
}

void Comparison::compareMachines() {
  const auto& real = *subject_.machine();
  const StateMachine& expected = *twin_.machine();
  compare("initial scan done", real.initialScanDone(), expected.initialScanDone());
  compare("ready", real.ready(), expected.ready());
  compare("idle", real.idle(), expected.idle());
  compare("copies idle", real.inputSmScanState()->idle(), expected.scan().idle());
  compareScan<V4>();
  compareScan<V6>();
  for (std::size_t i = 0; i < kOutputs; ++i) {
    compare(std::string(kOutputNames[i]) + " ready",
            real.outputState()->outputReady(static_cast<SampledFlowTracker::OutputId>(i)),
            expected.outputReady(static_cast<Output>(i)));
  }
  if (expected.active()) compare("work due", subject_.works(), twin_.works());
}

// Damage that one operation meets is reported, as often as it likes.
void Comparison::compareDamage() {
  const unsigned met = damageMet(twin_.world.v4) + damageMet(twin_.world.v6);
  compare("damage reported", subject_.reports() != reports_, met != damageMet_);
  reports_ = subject_.reports();
  damageMet_ = met;
}

std::string Comparison::difference() {
  difference_.clear();
  compareTables<V4>();
  compareTables<V6>();
  if (twin_.machine() != nullptr) compareMachines();
  compareDamage();
  return difference_;
}

}  // namespace Naive
