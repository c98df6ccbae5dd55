// A map as plainly as it can be put: std::map in the order in which the real one is walked, with records that
// can be damaged.
#pragma once

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>

#include "KivMap.h"

namespace Naive {

// The walk of a shared table: by the reversed bits of the key's hash, then by the key's bytes.
struct SharedTableOrder {
  template <class Key>
  static std::uint64_t place(const Key& key) {
    std::uint64_t hash = XXH3_64bits(&key, sizeof key);
    std::uint64_t reversed = 0;
    for (unsigned bit = 0; bit < 64; ++bit, hash >>= 1) reversed = reversed << 1 | (hash & 1U);
    return reversed;
  }
  // Damage makes the sixteenth of the order in which it stands unreadable behind what can be read of it: so a
  // table has its buckets as long as it holds no more than kMostEntries.
  static constexpr std::size_t kMostEntries = 64;
  static unsigned part(std::uint64_t place) { return static_cast<unsigned>(place >> 60); }
  template <class Key>
  bool operator()(const Key& a, const Key& b) const {
    const std::uint64_t placeA = place(a);
    const std::uint64_t placeB = place(b);
    return placeA != placeB ? placeA < placeB : std::memcmp(&a, &b, sizeof(Key)) < 0;
  }
};

// The walk of the entity framework's maps of flows: by the hash with the process's seed, then by the key.
struct EntityMapOrder {
  template <class Key>
  static std::uint64_t place(const Key& key) {
    return key.hash64(Kiv::hashSeed());
  }
  static unsigned part(std::uint64_t) { return 0; }
  template <class Key>
  bool operator()(const Key& a, const Key& b) const {
    const std::uint64_t placeA = place(a);
    const std::uint64_t placeB = place(b);
    return placeA != placeB ? placeA < placeB : a < b;
  }
};

template <class KeyType, class ValueType, class Order>
class Map {
 public:
  using Key = KeyType;
  using Value = ValueType;

  // Damaged records count.
  std::size_t size() const { return entries_.size(); }
  // Absent too when it is damaged.
  std::optional<Value> get(const Key& key) const {
    const auto found = entries_.find(key);
    if (found == entries_.end()) return std::nullopt;
    if (!found->second.damaged) return found->second.value;
    ++damageMet_;
    return std::nullopt;
  }
  // Overwrites a damaged record as any other.
  void put(const Key& key, const Value& value) { entries_[key] = {value, false}; }
  void del(const Key& key) { entries_.erase(key); }
  void clear() { entries_.clear(); }
  void damage(const Key& key) { entries_.at(key).damaged = true; }
  // Whether there is a record, and one that can be read.
  bool whole(const Key& key) const {
    const auto found = entries_.find(key);
    return found != entries_.end() && !found->second.damaged;
  }

  // Walking: the key of the next entry; none at the end and where damage is met.
  std::optional<Key> first() const { return next(entries_.begin(), 0); }
  std::optional<Key> after(const Key& key) const { return next(entries_.upper_bound(key), partOf(key)); }
  std::optional<Key> atOrAfter(const Key& key) const { return next(entries_.lower_bound(key), partOf(key)); }

  // How often damage was met by a lookup or a walk.
  unsigned damageMet() const { return damageMet_; }

 private:
  struct Entry {
    Value value{};
    bool damaged = false;
  };
  using Entries = std::map<Key, Entry, Order>;

  static unsigned partOf(const Key& key) { return Order::part(Order::place(key)); }
  std::optional<Key> next(typename Entries::const_iterator at, unsigned fromPart) const {
    while (at != entries_.end() && at->second.damaged) ++at;
    for (const auto& [key, entry] : entries_) {
      const bool before = partOf(key) < fromPart;
      const bool behind = at != entries_.end() && partOf(key) >= partOf(at->first);
      if (!entry.damaged || before || behind) continue;
      ++damageMet_;
      return std::nullopt;
    }
    if (at == entries_.end()) return std::nullopt;
    return at->first;
  }

  Entries entries_;
  mutable unsigned damageMet_ = 0;
};

}  // namespace Naive
