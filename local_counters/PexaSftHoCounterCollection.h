// The agent's local counters of flows in hardware, one map an address family.
//
// Neighbours: the offload decision creates and counts records; the state machine reads, publishes and deletes
// them; the agent's counter display shows those of IPv4 (a record of IPv6 is in records() only).
// Threading: the agent's event thread. A reader that took a record's reference keeps it alive after its
// removal.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "AcrResponse.h"
#include "OffloadOutcomes.h"
#include "PexaSftHoCounter.h"

namespace Pexa::Counter {

// Places flows in the maps; seeded, so that no peer can aim at one place: a word is joined by xor only with
// what the seed hides, never with another word of the key, or flows that differ in both by the same bits
// would meet. The product of two words at a time, folded: half the instructions of the tables' hash for keys
// of three and six words.
struct FlowKeyHash {
  template <class Key>
  std::uint64_t operator()(const Key& key) const {
    static_assert(sizeof(Key) % 8 == 0);
    std::array<std::uint64_t, sizeof(Key) / 8> words;
    std::memcpy(words.data(), &key, sizeof(Key));
    return folded(words, std::make_index_sequence<words.size() / 2>());
  }

 private:
  static constexpr std::uint64_t kMix = 0x9e3779b97f4a7c15U;
  __extension__ using Wide = unsigned __int128;
  // Written out: as a loop GCC leaves it one, and it takes a quarter longer.
  template <std::size_t Words, std::size_t... Pair>
  static std::uint64_t folded(const std::array<std::uint64_t, Words>& words, std::index_sequence<Pair...>) {
    const std::uint64_t seed = seedOnce();
    std::uint64_t sum = seed;
    ((sum = fold(sum ^ words[2 * Pair] ^ kMix, words[2 * Pair + 1] ^ seed)), ...);
    if constexpr (Words % 2 != 0) sum = fold(sum ^ words[Words - 1] ^ kMix, seed | 1);
    return sum;
  }
  static std::uint64_t seedOnce() {
    static const std::uint64_t seed = Kiv::hashSeed();
    return seed;
  }
  static std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
    const Wide product = Wide{a} * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }
};

template <class Domain>
using SftHoCounterMap = Kiv::PtrMap<FlowTracking::FlowKey<Domain>, SftHoCounter<Domain>,
                                    &SftHoCounter<Domain>::flowKey, FlowKeyHash>;

class PexaSftHoCounterCollection : public PktCounterCollectionBase {
 public:
  // The removal of a record is announced under these, with its key.
  enum Attr : Kiv::AttributeId { counterCollectionAttr = 1, counterIp6CollectionAttr };

  explicit PexaSftHoCounterCollection(Kiv::String name) : PktCounterCollectionBase(std::move(name)) {}
  // Creates a collection with its notifications on.
  static Kiv::Ptr<PexaSftHoCounterCollection> PexaSftHoCounterCollectionIs(const Kiv::String& name);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // The maps, walked in their own order (see Kiv::Map).
  const SftHoCounterMap<Pavo::Traits::IPv4>& counterCollection() const { return map4_; }
  const SftHoCounterMap<Pavo::Traits::IPv6>& counterIp6Collection() const { return map6_; }

  // Is: the record under the key, created when there is none. Del: takes the record out, tells the notifiees
  // and returns it; empty, and nobody told, when there is none. DelAll: Del for each record.
  Kiv::Ptr<PexaSftHoCounter> counterCollectionIs(const FlowTracking::IpFlowKey& key) {
    return counterIs(key);
  }
  Kiv::Ptr<PexaSftHoIp6Counter> counterIp6CollectionIs(const FlowTracking::Ip6FlowKey& key) {
    return counterIs(key);
  }
  Kiv::Ptr<PexaSftHoCounter> counterCollectionDel(const FlowTracking::IpFlowKey& key) {
    return counterDel(key);
  }
  Kiv::Ptr<PexaSftHoIp6Counter> counterIp6CollectionDel(const FlowTracking::Ip6FlowKey& key) {
    return counterDel(key);
  }
  void counterCollectionDelAll() { counterDelAll<Pavo::Traits::IPv4>(); }
  void counterIp6CollectionDelAll() { counterDelAll<Pavo::Traits::IPv6>(); }

  // The same for code that is written once for both families.
  template <class Domain>
  const SftHoCounterMap<Domain>& counters() const {
    return const_cast<PexaSftHoCounterCollection*>(this)->mutableCounters<Domain>();
  }
  template <class Domain>
  Kiv::Ptr<SftHoCounter<Domain>> counterIs(const FlowTracking::FlowKey<Domain>& key) {
    return &counterIs(key, SftHoCounterMap<Domain>::hashOf(key));
  }
  // With the key's hash at hand; the record without counting a reference, for who drops it at once.
  template <class Domain>
  SftHoCounter<Domain>& counterIs(const FlowTracking::FlowKey<Domain>& key, std::uint64_t hash) {
    return mutableCounters<Domain>().findOrMake(key, hash, [&key] {
      auto counter = Kiv::makePtr<SftHoCounter<Domain>>(key);
      counter->hasNotificationActiveIs(true);
      return counter;
    });
  }
  template <class Domain>
  Kiv::Ptr<SftHoCounter<Domain>> counterDel(FlowTracking::FlowKey<Domain> key);
  template <class Domain>
  void counterDelAll();

  // What became of the packets from which the records come, and of those beside them.
  OffloadOutcomes& outcomes() { return outcomes_; }
  const OffloadOutcomes& outcomes() const { return outcomes_; }

  // The records by their keys' texts, for who knows this entity by its names only (counterCollectionAfter,
  // counterCollectionDrop and their IPv6 twins). After: the record behind the key's place, be the key in or
  // not, or the first one after ""; "" at the end. Drop: Del; whether there was one. Both throw
  // Kiv::ValueError on what is no key's text.
  template <class Domain>
  Kiv::String counterAfter(const Kiv::String& key) const;
  template <class Domain>
  bool counterDrop(const Kiv::String& key);

  // Writes the IPv4 records, and only those: the display has no room for IPv6.
  void acrResponse(cliprint::PrinterV2* printer) const override { Pexa::Counter::acrResponse(this, printer); }
  // Every record of both families, IPv4 first, each {"key","packets","bytes","intfId","updateTime"}.
  Kiv::Value::List records() const override;

 private:
  template <class Domain>
  SftHoCounterMap<Domain>& mutableCounters() {
    if constexpr (FlowTracking::IpFamily<Domain>::kIndex == 0) {
      return map4_;
    } else {
      return map6_;
    }
  }
  template <class Domain>
  void recordsInto(Kiv::Value::List& list) const;

  OffloadOutcomes outcomes_;
  SftHoCounterMap<Pavo::Traits::IPv4> map4_;
  SftHoCounterMap<Pavo::Traits::IPv6> map6_;
};

// The same as PexaSftHoCounterCollection::PexaSftHoCounterCollectionIs.
Kiv::Ptr<PexaSftHoCounterCollection> pexaSftHoCounterCollectionFactory(const Kiv::String& name);

}  // namespace Pexa::Counter
