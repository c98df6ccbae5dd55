#include "PexaSftHoCounterCollection.h"

#include "RecordValues.h"

namespace Pexa::Counter {

namespace {
[[maybe_unused]] const Kiv::String kModuleNamespace = "ns-";
const Kiv::Module kModule("PexaSftHoCounter", {&PexaSftHoCounter::kivType(), &PexaSftHoIp6Counter::kivType(),
                                               &PexaSftHoCounterCollection::kivType()});
}  // namespace

Kiv::Ptr<PexaSftHoCounterCollection> PexaSftHoCounterCollection::PexaSftHoCounterCollectionIs(
    const Kiv::String& name) {
  auto collection = Kiv::makePtr<PexaSftHoCounterCollection>(name);
  collection->hasNotificationActiveIs(true);
  return collection;
}

Kiv::Ptr<PexaSftHoCounterCollection> pexaSftHoCounterCollectionFactory(const Kiv::String& name) {
  return PexaSftHoCounterCollection::PexaSftHoCounterCollectionIs(name);
}

const Kiv::Type& PexaSftHoCounterCollection::kivType() {
  using Self = PexaSftHoCounterCollection;
  static const Kiv::Type type =
      Kiv::TypeBuilder<Self>("Pexa::Counter::PexaSftHoCounterCollection")
          .handler("counterCollectionAfter", &Self::counterAfter<Pavo::Traits::IPv4>, "key")
          .handler("counterCollectionDrop", &Self::counterDrop<Pavo::Traits::IPv4>, "key")
          .handler("counterIp6CollectionAfter", &Self::counterAfter<Pavo::Traits::IPv6>, "key")
          .handler("counterIp6CollectionDrop", &Self::counterDrop<Pavo::Traits::IPv6>, "key")
          .constructor(&pexaSftHoCounterCollectionFactory, "name")
          .build();
  return type;
}

template <class Domain>
Kiv::Ptr<SftHoCounter<Domain>> PexaSftHoCounterCollection::counterDel(FlowTracking::FlowKey<Domain> key) {
  auto& map = mutableCounters<Domain>();
  const auto* entry = std::as_const(map).find(key);
  if (entry == nullptr) return {};
  Kiv::Ptr<SftHoCounter<Domain>> removed = entry->value;
  map.erase(key);
  announceKey(counterCollectionAttr + FlowTracking::IpFamily<Domain>::kIndex, Kiv::KeyRef(key));
  return removed;
}

template <class Domain>
void PexaSftHoCounterCollection::counterDelAll() {
  const auto& map = counters<Domain>();
  while (const auto* entry = map.first()) counterDel(entry->key());
}

template <class Domain>
Kiv::String PexaSftHoCounterCollection::counterAfter(const Kiv::String& key) const {
  const auto& map = counters<Domain>();
  const auto* next =
      key.empty() ? map.first() : map.after(FlowTracking::FlowKey<Domain>(key.begin(), key.end()));
  return next == nullptr ? Kiv::String() : next->key().str();
}

template <class Domain>
bool PexaSftHoCounterCollection::counterDrop(const Kiv::String& key) {
  return static_cast<bool>(counterDel(FlowTracking::FlowKey<Domain>(key.begin(), key.end())));
}

template <class Domain>
void PexaSftHoCounterCollection::recordsInto(Kiv::Value::List& list) const {
  using Key = FlowTracking::FlowKey<Domain>;
  const auto& map = counters<Domain>();
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry)) {
    const SftHoCounter<Domain>& counter = *entry->value;
    list.push_back(Kiv::Value::Object{{"key", Kiv::ValueTraits<Key>::toValue(counter.flowKey())},
                                      {"packets", counter.packets()},
                                      {"bytes", counter.bytes()},
                                      {"intfId", Kiv::Value(counter.intfId().name())},
                                      {"updateTime", counter.updateTime()}});
  }
}

Kiv::Value::List PexaSftHoCounterCollection::records() const {
  Kiv::Value::List list;
  list.reserve(map4_.size() + map6_.size());
  recordsInto<Pavo::Traits::IPv4>(list);
  recordsInto<Pavo::Traits::IPv6>(list);
  return list;
}

template Kiv::Ptr<PexaSftHoCounter> PexaSftHoCounterCollection::counterDel(FlowTracking::IpFlowKey);
template Kiv::Ptr<PexaSftHoIp6Counter> PexaSftHoCounterCollection::counterDel(FlowTracking::Ip6FlowKey);
template void PexaSftHoCounterCollection::counterDelAll<Pavo::Traits::IPv4>();
template void PexaSftHoCounterCollection::counterDelAll<Pavo::Traits::IPv6>();

}  // namespace Pexa::Counter
