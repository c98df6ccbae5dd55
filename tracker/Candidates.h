// Flows that were sampled, but not often enough to be worth an offload.
//
// There are at most so many. A new one that finds no room takes the place of the one that was sampled longest
// ago; one that was not sampled for a given time is forgotten. Both are counted. So a scan that touches
// millions of tuples once costs nothing but the candidates that wait for their second sample.
//
// Threading: one thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

#include "FlowCounts.h"
#include "KivMap.h"
#include "SampledFlow.h"

namespace Tracker {

// Hashes a key with the process's seed, so that no sender can aim at one chain.
template <class Key>
struct SeededHash {
  std::size_t operator()(const Key& key) const { return key.hash64(Kiv::hashSeed()); }
};

template <class Domain>
struct Candidate {
  FlowTracking::HoFlowKey<Domain> key;
  FlowCounts counts;
  std::uint32_t input = 0;  // interface indexes of the latest sample
  std::uint32_t output = 0;
};

template <class Domain>
class Candidates {
 public:
  using Key = FlowTracking::HoFlowKey<Domain>;

  // REQUIRES: most is not 0.
  explicit Candidates(std::size_t most) : most_(most) {}

  // Takes a sample; gives the candidate, which is the latest now. Valid until the next call.
  const Candidate<Domain>& sampled(const SampledFlow<Domain>& sample, double now) {
    const auto found = byKey_.find(sample.key);
    if (found != byKey_.end()) {
      order_.splice(order_.end(), order_, found->second);
    } else {
      if (order_.size() == most_) {
        dropOldest();
        ++evicted_;
      }
      order_.push_back({sample.key, {}, 0, 0});
      byKey_.emplace(sample.key, std::prev(order_.end()));
    }
    Candidate<Domain>& candidate = order_.back();
    candidate.counts.addSample(sample.octets, sample.rate, now);
    candidate.input = sample.input;
    candidate.output = sample.output;
    return candidate;
  }
  // Nothing when there is none.
  void erase(const Key& key) {
    const auto found = byKey_.find(key);
    if (found == byKey_.end()) return;
    order_.erase(found->second);
    byKey_.erase(found);
  }
  // Forgets those that were not sampled since.
  void forgetBefore(double time) {
    for (; !order_.empty() && order_.front().counts.end < time; dropOldest()) ++expired_;
  }

  // Calls with each Candidate, the one sampled last first.
  template <class Each>
  void forEach(const Each& each) const {
    std::for_each(order_.rbegin(), order_.rend(), each);
  }

  std::size_t size() const { return order_.size(); }
  std::uint64_t evicted() const { return evicted_; }
  std::uint64_t expired() const { return expired_; }

 private:
  void dropOldest() {
    byKey_.erase(order_.front().key);
    order_.pop_front();
  }

  std::size_t most_;
  std::list<Candidate<Domain>> order_;  // the one sampled longest ago first
  std::unordered_map<Key, typename std::list<Candidate<Domain>>::iterator, SeededHash<Key>> byKey_;
  std::uint64_t evicted_ = 0;
  std::uint64_t expired_ = 0;
};

}  // namespace Tracker
