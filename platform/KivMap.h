// Maps and sets of the entity framework, whose walks survive any change.
//
// Entries stand in one array in ascending order of a 64-bit seeded hash of their key, each at or after the
// place that the top bits of its hash name (open addressing with linear probing, kept sorted):
//
//   home:      0      1      2      3      4      5     (capacity 4, then the overflow tail)
//   entry:   [h=0x08][h=0x31][h=0x3f][h=0x9a][ -- ][ -- ]
//             home 0  home 0  home 0  home 2
//
// Invariant M1: entries are sorted by (hash, key); so the order of a walk depends on the keys alone, not on
//   when they came or how large the table is, and any key, present or not, names a place in it.
// Invariant M2: there is no gap between an entry and its home.
//
// A walk is a loop over keys: it holds no position in the table, so entries may come and go, the current one
// included, and the table may grow, between two steps. An entry that is present during the whole walk is met
// exactly once.
//
//   for (auto* e = map.first(); e != nullptr; e = map.after(key)) { key = e->key; ... }
//
// Threading: the agent's event thread only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "KivPrefetch.h"
#include "KivPtr.h"

namespace Kiv {

// The process-wide seed of every hash map, chosen at start so that no peer can aim at one chain.
std::uint64_t hashSeed();

// Hashes through the key's own hash(seed), twice, to 64 bits.
template <class Key>
struct MemberHash {
  std::uint64_t operator()(const Key& key) const {
    const std::uint64_t seed = hashSeed();
    const std::uint64_t high = key.hash(static_cast<unsigned>(seed >> 32));
    return high << 32 | key.hash(static_cast<unsigned>(seed));
  }
};

// What maps have in common: the table of their entries.
// REQUIRES: Key has operator== and operator<; Entry can be default-constructed and moved, and theKey() of one
// that is in the table is its key.
template <class Key, class EntryType, class Hash>
class HashOrdered {
 public:
  using Entry = EntryType;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // The entry under a key, or null. Valid until the map changes.
  const Entry* find(const Key& key) const { return findHashed(hashOf(key), key); }
  Entry* find(const Key& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
  bool has(const Key& key) const { return find(key) != nullptr; }
  // Takes the entry under the key out. False when there is none.
  bool erase(const Key& key) {
    std::size_t at = lowerBound(hashOf(key), key);
    if (at == slots_.size() || !slots_[at].used() || !(slots_[at].theKey() == key)) return false;
    for (;; ++at) {  // close the gap (M2): pull back every follower that is not at its home
      const std::size_t next = at + 1;
      if (next == slots_.size() || !slots_[next].used() || home(slots_[next].hash) == next) break;
      slots_[at] = std::move(slots_[next]);
    }
    slots_[at] = Slot{};
    --size_;
    return true;
  }
  void clear() {
    slots_.clear();
    size_ = 0;
  }
  // Makes room for this many entries.
  void reserve(std::size_t entries) {
    while (capacity() * 3 / 4 < entries) grow();
  }

  // Walking, in the map's order. Null at the end.
  const Entry* first() const { return usedFrom(0); }
  // The first entry behind the key's place; the key itself need not be present.
  const Entry* after(const Key& key) const {
    std::size_t at = lowerBound(hashOf(key), key);
    if (at < slots_.size() && slots_[at].used() && slots_[at].theKey() == key) ++at;
    return usedFrom(at);
  }
  // The same behind an entry of the walk. REQUIRES: the map has not changed since it was given.
  const Entry* after(const Entry* entry) const {
    return usedFrom(static_cast<std::size_t>(static_cast<const Slot*>(entry) - slots_.data()) + 1);
  }
  // The entry at the key's place or the first one behind it.
  const Entry* atOrAfter(const Key& key) const { return usedFrom(lowerBound(hashOf(key), key)); }

  // Bytes held by the table itself.
  std::size_t memory() const { return slots_.capacity() * sizeof(Slot); }
  // Looking ahead: a key's hash, computed once; the memory that a find of it reads first, asked for; and,
  // when that has arrived, the entry that a find of it will most likely give, or null.
  static std::uint64_t hashOf(const Key& key) {
    const std::uint64_t hash = Hash{}(key);
    return hash + (hash == 0);  // 0 marks a slot that is free
  }
  void prefetch(std::uint64_t hash) const {
    if (slots_.empty()) return;
    Kiv::prefetch(&slots_[home(hash)], sizeof(Slot));
  }
  const Entry* peek(std::uint64_t hash) const {
    if (slots_.empty()) return nullptr;
    for (std::size_t at = home(hash); at < slots_.size() && slots_[at].used() && slots_[at].hash <= hash;
         ++at) {
      if (slots_[at].hash == hash) return &slots_[at];
    }
    return nullptr;
  }

 protected:
  // REQUIRES: the hash is that of the key.
  const Entry* findHashed(std::uint64_t hash, const Key& key) const {
    if (size_ == 0) return nullptr;
    for (std::size_t at = home(hash); at < slots_.size() && slots_[at].used() && slots_[at].hash <= hash;
         ++at) {
      if (slots_[at].hash == hash && slots_[at].theKey() == key) return &slots_[at];
    }
    return nullptr;
  }
  Entry* findHashed(std::uint64_t hash, const Key& key) {
    return const_cast<Entry*>(std::as_const(*this).findHashed(hash, key));
  }
  // REQUIRES: the key, whose hash it is, is not in.
  Entry& insertNew(std::uint64_t hash, const Key& key, Entry entry) {
    if ((size_ + 1) * 4 > capacity() * 3) grow();
    std::size_t at = lowerBound(hash, key);
    while (!shiftUp(at)) {
      grow();
      at = lowerBound(hash, key);
    }
    slots_[at] = Slot{std::move(entry), hash};
    ++size_;
    return slots_[at];
  }

 private:
  struct Slot : Entry {
    std::uint64_t hash = 0;  // 0: free

    bool used() const { return hash != 0; }
  };

  std::size_t capacity() const { return slots_.empty() ? 0 : std::size_t{1} << (64 - shift_); }
  std::size_t home(std::uint64_t hash) const { return static_cast<std::size_t>(hash >> shift_); }

  // The first place whose entry is not before (hash, key): that key's own place, or where it would go.
  std::size_t lowerBound(std::uint64_t hash, const Key& key) const {
    if (slots_.empty()) return 0;
    std::size_t at = home(hash);
    while (at < slots_.size() && slots_[at].used() &&
           (slots_[at].hash < hash || (slots_[at].hash == hash && slots_[at].theKey() < key))) {
      ++at;
    }
    return at;
  }
  const Entry* usedFrom(std::size_t at) const {
    while (at < slots_.size() && !slots_[at].used()) ++at;
    return at < slots_.size() ? &slots_[at] : nullptr;
  }
  // Frees the slot at a place by moving its run one up. False when the overflow tail is full.
  bool shiftUp(std::size_t at) {
    std::size_t end = at;
    while (end < slots_.size() && slots_[end].used()) ++end;
    if (end == slots_.size()) return false;
    for (; end > at; --end) slots_[end] = std::move(slots_[end - 1]);
    return true;
  }
  void grow() {
    std::vector<Slot> old = std::move(slots_);
    unsigned bits = old.empty() ? 3 : 64 - shift_ + 1;
    do {
      shift_ = 64 - bits;
      slots_ = std::vector<Slot>((std::size_t{1} << bits) + kTail + bits);
    } while (!refill(old) && ++bits != 0);
  }
  // Moves sorted entries into the empty table, each to its home or right behind its predecessor.
  bool refill(std::vector<Slot>& old) {
    std::size_t next = 0;
    for (const Slot& slot :
         old) {  // dry run: a pathological tail wants the next size, with nothing moved yet
      if (!slot.used()) continue;
      next = std::max(next, home(slot.hash)) + 1;
      if (next > slots_.size()) return false;
    }
    next = 0;
    for (Slot& slot : old) {
      if (!slot.used()) continue;
      next = std::max(next, home(slot.hash));
      slots_[next++] = std::move(slot);
    }
    return true;
  }

  static constexpr std::size_t kTail = 16;  // slots behind the last home; entries never wrap around
  std::vector<Slot> slots_;
  std::size_t size_ = 0;
  unsigned shift_ = 64;
};

template <class Key, class Mapped>
struct MapEntry {
  Key key{};
  [[no_unique_address]] Mapped value{};

  const Key& theKey() const { return key; }
};

// REQUIRES: Key and Mapped can be default-constructed and moved.
template <class Key, class Mapped, class Hash = MemberHash<Key>>
class Map : public HashOrdered<Key, MapEntry<Key, Mapped>, Hash> {
  using Base = HashOrdered<Key, MapEntry<Key, Mapped>, Hash>;

 public:
  using typename Base::Entry;

  // The mapped value under a key; a default one is inserted when there is none. The reference is valid until
  // the map changes. The flag tells whether it was inserted.
  std::pair<Mapped*, bool> findOrInsert(const Key& key) {
    const std::uint64_t hash = Base::hashOf(key);
    if (Entry* found = this->findHashed(hash, key)) return {&found->value, false};
    return {&this->insertNew(hash, key, Entry{key, Mapped{}}).value, true};
  }
  // Inserts or overwrites.
  void insert(const Key& key, Mapped value) {
    const std::uint64_t hash = Base::hashOf(key);
    if (Entry* found = this->findHashed(hash, key)) {
      found->value = std::move(value);
    } else {
      this->insertNew(hash, key, Entry{key, std::move(value)});
    }
  }
};

// A set is a map without values.
struct NoValue {
  bool operator==(const NoValue&) const = default;
};
template <class Key, class Hash = MemberHash<Key>>
class Set : public Map<Key, NoValue, Hash> {
 public:
  // False when the key is already in.
  bool insert(const Key& key) { return this->findOrInsert(key).second; }
};

template <class Key, class Object, const Key& (Object::*kKeyOf)() const>
struct PtrMapEntry {
  Ptr<Object> value;

  const Key& key() const { return ((*value).*kKeyOf)(); }
  const Key& theKey() const { return key(); }
};

// Counted objects by a key that they carry themselves and never change: 16 bytes a slot whatever the key's
// size, so that a map of many is a third of what a Map would be, and fewer lines and pages are touched to
// find one.
template <class Key, class Object, const Key& (Object::*kKeyOf)() const, class Hash = MemberHash<Key>>
class PtrMap : public HashOrdered<Key, PtrMapEntry<Key, Object, kKeyOf>, Hash> {
  using Base = HashOrdered<Key, PtrMapEntry<Key, Object, kKeyOf>, Hash>;

 public:
  using typename Base::Entry;

  // The object under a key, whose hash is hashOf(key); when there is none, the one that make() gives is put
  // in. REQUIRES: what make() gives carries this key.
  template <class Make>
  Object& findOrMake(const Key& key, std::uint64_t hash, const Make& make) {
    if (Entry* found = this->findHashed(hash, key)) return *found->value;
    return *this->insertNew(hash, key, Entry{make()}).value;
  }
};

}  // namespace Kiv
