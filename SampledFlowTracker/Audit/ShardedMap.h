// A map for very many entries that never moves them all at once: it is many small maps, each of which grows
// by itself, so that no slice of work pays for all. Threading: the agent's event thread.
#pragma once

#include <array>

#include "Kiv.h"

namespace SampledFlowTracker {

// REQUIRES of Key: hash64(seed), and what Kiv::Map asks for.
template <class Key, class Mapped>
class ShardedMap {
 public:
  // Null when there is none; valid until the map changes.
  const Mapped* find(const Key& key) const {
    const auto* entry = shards_[shardOf(key)].find(key);
    return entry == nullptr ? nullptr : &entry->value;
  }
  // The value under a key, a default one when there was none; valid until the map changes.
  Mapped& at(const Key& key) { return *shards_[shardOf(key)].findOrInsert(key).first; }
  void erase(const Key& key) { shards_[shardOf(key)].erase(key); }
  // Drops the last part of the map that holds anything, with its memory. False when there is none.
  bool shardDel() {
    for (; last_ > 0; --last_) {
      if (shards_[last_ - 1].empty()) continue;
      shards_[last_ - 1] = {};
      return true;
    }
    return false;
  }
  std::size_t size() const {
    std::size_t total = 0;
    for (const auto& shard : shards_) total += shard.size();
    return total;
  }

 private:
  struct Hash {
    std::uint64_t operator()(const Key& key) const { return key.hash64(Kiv::hashSeed()); }
  };
  static constexpr std::size_t kShards = 256;
  // The low bits: the maps themselves place their entries by the high ones.
  static std::size_t shardOf(const Key& key) { return Hash{}(key) % kShards; }

  std::array<Kiv::Map<Key, Mapped, Hash>, kShards> shards_;
  std::size_t last_ = kShards;  // those from here on have been dropped
};

}  // namespace SampledFlowTracker
