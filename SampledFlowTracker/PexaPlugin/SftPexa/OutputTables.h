// What an output writes to: one collection each, all with the same operations.
//
//   size()                    entries now
//   first(key)                the walk in the table's own order, a key at a time; false at the end
//   atOrAfter(place, key)
//   after(place, key)
//   expect(entries)           tells a shared table that so many are about to come; false: call again
//   insert(value)  erase(key) writing; a shared table's may throw Quell::TableError
//   damaged(text)             reports damage met by a walk
//
// An output is one of these five for one family; the family decides which of the ten it is.
// Threading: the agent's event thread.
#pragma once

#include <utility>

#include "Fenn.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HosStateCounter.h"
#include "OutputId.h"
#include "PexaSftHoCounterCollection.h"
#include "SftPexaHelper/SftPexaDrovaHelper.h"

namespace SampledFlowTracker {

// A collection of a shared table. Walks throw Fenn::CorruptionDetectedException.
template <class Container, class FamilyDomain, OutputId id4, OutputId id6>
class SharedTable {
 public:
  using Domain = FamilyDomain;
  using Map = typename Container::template MapOf<Domain>;
  using Key = typename Map::KeyType;
  using Value = typename Map::RecordTypeT;
  static constexpr OutputId kId = FlowTracking::IpFamily<Domain>::kIndex == 0 ? id4 : id6;

  explicit SharedTable(Kiv::Ptr<Container> container) : container_(std::move(container)) {}
  Map& map() const { return container_->template map<Domain>(); }

  std::size_t size() const { return map().size(); }
  bool first(Key& key) const {
    return keyOf(key, [this](Value& value) { return map().first(value); });
  }
  bool atOrAfter(const Key& place, Key& key) const {
    return keyOf(key, [&](Value& value) { return map().atOrAfter(place, value); });
  }
  bool after(const Key& place, Key& key) const {
    return keyOf(key, [&](Value& value) { return map().after(place, value); });
  }
  bool expect(std::size_t entries) const { return map().expect(entries); }
  void insert(const Value& value) const { map().insert(value); }
  void erase(const Key& key) const { map().erase(key); }
  void damaged(std::string_view text) const { map().doCorruptionDetected(text); }

 private:
  template <class Step>
  static bool keyOf(Key& key, const Step& step) {
    Value value;
    if (!step(value)) return false;
    key = value.key;
    return true;
  }

  Kiv::Ptr<Container> container_;
};

template <class Domain>
using HoFlowStatusTable =
    SharedTable<FlowTracking::HoFlowStatus, Domain, OutputId::hoFlowStatusHoIpFlowStatus,
                OutputId::hoFlowStatusHoIp6FlowStatus>;
template <class Domain>
using HoFlowCounterTable =
    SharedTable<FlowTracking::HoFlowCounter, Domain, OutputId::hoFlowCounterHoIpFlowCounter,
                OutputId::hoFlowCounterHoIp6FlowCounter>;
template <class Domain>
using HosStateCounterTable =
    SharedTable<FlowTracking::HosStateCounter, Domain, OutputId::hosStateCounterHosStateIpCounter,
                OutputId::hosStateCounterHosStateIp6Counter>;

// A map of this process. Of a Self that has map(), the walk.
template <class Self, class TableKey>
class LocalTable {
 public:
  using Key = TableKey;
  std::size_t size() const { return map().size(); }
  bool first(Key& key) const { return keyOf(map().first(), key); }
  bool atOrAfter(const Key& place, Key& key) const { return keyOf(map().atOrAfter(place), key); }
  bool after(const Key& place, Key& key) const { return keyOf(map().after(place), key); }
  void damaged(std::string_view) const {}

 private:
  const auto& map() const { return static_cast<const Self*>(this)->entries(); }
  template <class Entry>
  static bool keyOf(const Entry* entry, Key& key) {
    if (entry == nullptr) return false;
    key = entry->theKey();
    return true;
  }
};

// The flows that wait for room.
template <class FamilyDomain>
class OverflowTable : public LocalTable<OverflowTable<FamilyDomain>, FlowTracking::HoFlowKey<FamilyDomain>> {
 public:
  using Domain = FamilyDomain;
  using Key = FlowTracking::HoFlowKey<Domain>;
  static constexpr OutputId kId = FlowTracking::IpFamily<Domain>::kIndex == 0
                                      ? OutputId::helperOverflowEntries
                                      : OutputId::helperOverflow6Entries;

  explicit OverflowTable(Kiv::Ptr<SftPexaDrovaHelper> helper) : helper_(std::move(helper)) {}
  const OverflowSet<Domain>& entries() const { return helper_->template overflow<Domain>(); }
  void insert(const Key& key) const { helper_->template overflow<Domain>().insert(key); }
  void erase(const Key& key) const { helper_->template overflow<Domain>().erase(key); }

 private:
  Kiv::Ptr<SftPexaDrovaHelper> helper_;
};

// The packet path's counters: created there, only ever deleted here.
template <class FamilyDomain>
class LocalCounterTable
    : public LocalTable<LocalCounterTable<FamilyDomain>, FlowTracking::FlowKey<FamilyDomain>> {
 public:
  using Domain = FamilyDomain;
  using Key = FlowTracking::FlowKey<Domain>;
  using Collection = Pexa::Counter::PexaSftHoCounterCollection;
  static constexpr OutputId kId = FlowTracking::IpFamily<Domain>::kIndex == 0
                                      ? OutputId::localCounterCounterCollection
                                      : OutputId::localCounterCounterIp6Collection;

  explicit LocalCounterTable(Kiv::Ptr<Collection> collection) : collection_(std::move(collection)) {}
  const Pexa::Counter::SftHoCounterMap<Domain>& entries() const {
    return std::as_const(*collection_).template counters<Domain>();
  }
  void erase(const Key& key) const { collection_->template counterDel<Domain>(key); }

 private:
  Kiv::Ptr<Collection> collection_;
};

}  // namespace SampledFlowTracker
