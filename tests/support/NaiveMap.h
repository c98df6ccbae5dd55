// A map as plainly as it can be put: std::map in the order in which the real one is walked, with records that
// can be damaged.
#pragma once

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>

#include "PexaSftHoCounterCollection.h"

namespace Naive {

// The walk of a shared table: by the reversed bits of the key's hash, then by the key's bytes.
struct SharedTableOrder {
  template <class Key>
  static std::uint64_t place(const Key& key) {
    return reversed(XXH3_64bits(&key, sizeof key));
  }
  // Damage makes the sixteenth of the order in which it stands unreadable behind what can be read of it: so a
  // table has its buckets as long as it holds no more than kMostEntries.
  static constexpr std::size_t kMostEntries = 64;
  static unsigned part(std::uint64_t place) { return static_cast<unsigned>(place >> 60); }
  static std::uint64_t reversed(std::uint64_t bits) {
    for (unsigned width = 1; width < 64; width *= 2) {
      const std::uint64_t low =
          ~std::uint64_t{0} / ((std::uint64_t{1} << width) + 1);  // every other `width` bits
      bits = (bits & low) << width | (bits >> width & low);
    }
    return bits;
  }
  // Of two keys in one place.
  template <class Key>
  static bool before(const Key& a, const Key& b) {
    return std::memcmp(&a, &b, sizeof(Key)) < 0;
  }
};

// The walk of the entity framework's maps of flows: by the hash that places flows, then by the key.
struct EntityMapOrder {
  template <class Key>
  static std::uint64_t place(const Key& key) {
    return Pexa::Counter::FlowKeyHash()(key);
  }
  static unsigned part(std::uint64_t) { return 0; }
  template <class Key>
  static bool before(const Key& a, const Key& b) {
    return a < b;
  }
};

template <class KeyType, class ValueType, class Order>
class Map {
 public:
  using Key = KeyType;
  using Value = ValueType;

  // A key with its place in the order.
  struct Placed {
    // NOLINTNEXTLINE(google-explicit-constructor): a key is meant wherever its place is asked for
    Placed(const Key& placedKey) : key(placedKey), place(Order::place(placedKey)) {}
    unsigned part() const { return Order::part(place); }
    bool operator<(const Placed& other) const {
      return place != other.place ? place < other.place : Order::before(key, other.key);
    }
    Key key;
    std::uint64_t place;
  };

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
  std::optional<Key> after(const Placed& at) const { return next(entries_.upper_bound(at), at.part()); }
  std::optional<Key> atOrAfter(const Placed& at) const { return next(entries_.lower_bound(at), at.part()); }

  // How often damage was met by a lookup or a walk.
  unsigned damageMet() const { return damageMet_; }

 private:
  struct Entry {
    Value value{};
    bool damaged = false;
  };
  using Entries = std::map<Placed, Entry>;

  std::optional<Key> next(typename Entries::const_iterator at, unsigned fromPart) const {
    while (at != entries_.end() && at->second.damaged) ++at;
    for (const auto& [placed, entry] : entries_) {
      const bool before = placed.part() < fromPart;
      const bool behind = at != entries_.end() && placed.part() >= at->first.part();
      if (!entry.damaged || before || behind) continue;
      ++damageMet_;
      return std::nullopt;
    }
    if (at == entries_.end()) return std::nullopt;
    return at->first.key;
  }

  Entries entries_;
  mutable unsigned damageMet_ = 0;
};

}  // namespace Naive
