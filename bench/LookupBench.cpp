// One lookup in the shared status table, beside an in-process map with the same keys, hash and records.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <string>

#include "Flows.h"
#include "HoFlowStatus.h"

namespace SftBench {
namespace {

template <class Domain>
using Status = FlowTracking::HoFlowStatusRecord<Domain>;
template <class Domain>
using Key = FlowTracking::HoFlowKey<Domain>;
template <class Domain>
using SharedMap = Quell::Map<Key<Domain>, Status<Domain>>;

// Calls `each` with one key after another, wrapping around.
template <class Keys, class Each>
void visit(benchmark::State& state, const Keys& keys, const Each& each) {
  std::size_t at = 0;
  for (auto _ : state) {
    each(keys[at]);
    if (++at == keys.size()) at = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

template <class Domain>
Kiv::Ptr<FlowTracking::HoFlowStatus> sharedTable(std::size_t flows) {
  auto table = Kiv::makePtr<FlowTracking::HoFlowStatus>("bench");
  auto& map = table->template map<Domain>();
  Quell::attachAnonymous(map, flows);
  for (std::uint32_t i = 0; i < flows; ++i) map.insert(status<Domain>(i, HoFlowState::inHardware));
  return table;
}

void expectAll(benchmark::State& state, std::uint64_t found, std::uint64_t each) {
  if (found != static_cast<std::uint64_t>(state.iterations()) * each)
    state.SkipWithError("a lookup went wrong");
}

template <class Domain, Lookup Which>
void SharedTable(benchmark::State& state) {
  constexpr bool kHit = Which != Lookup::miss;
  const auto flows = static_cast<std::size_t>(state.range(0));
  const auto table = sharedTable<Domain>(flows);
  const SharedMap<Domain>& map = table->template map<Domain>();
  const auto keys = lookedUp<Domain, Which>(flows);
  std::uint64_t right = 0;
  visit(state, keys, [&](const Key<Domain>& key) {
    Status<Domain> record;
    const bool found = map.find(key, record);
    right += found == kHit && (!found || record.state == HoFlowState::inHardware);
    benchmark::DoNotOptimize(record);
  });
  expectAll(state, right, 1);
}

template <class Domain, Lookup Which>
void SharedTableBurst(benchmark::State& state) {
  const auto flows = static_cast<std::size_t>(state.range(0));
  const auto table = sharedTable<Domain>(flows);
  const SharedMap<Domain>& map = table->template map<Domain>();
  const auto keys = lookedUp<Domain, Which>(flows);
  std::uint64_t right = 0;
  std::size_t at = 0;
  for (auto _ : state) {
    std::uint64_t hashes[kBurst];
    const Key<Domain>* burst = &keys[at];
    for (std::size_t i = 0; i < kBurst; ++i) {
      hashes[i] = map.hash(burst[i]);
      map.prefetchIndex(hashes[i]);
    }
    for (const std::uint64_t hash : hashes) map.prefetchRecord(hash);
    for (std::size_t i = 0; i < kBurst; ++i) {
      Status<Domain> record;
      right += map.find(burst[i], hashes[i], record) && record.state == HoFlowState::inHardware;
      benchmark::DoNotOptimize(record);
    }
    at = (at + kBurst) % flows;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBurst));
  expectAll(state, right, kBurst);
}

struct SameHash {
  template <class K>
  std::size_t operator()(const K& key) const {
    return Quell::Table::hash<sizeof(K)>(&key);
  }
};

// Copying the record out is what a reader of shared memory must do; a process that owns its map need not.
template <class Domain, Lookup Which, bool Copy>
void FlatHashMap(benchmark::State& state) {
  constexpr bool kHit = Which != Lookup::miss;
  const auto flows = static_cast<std::size_t>(state.range(0));
  absl::flat_hash_map<Key<Domain>, Status<Domain>, SameHash> map;
  map.reserve(flows);
  for (std::uint32_t i = 0; i < flows; ++i)
    map[hoFlow<Domain>(i)] = status<Domain>(i, HoFlowState::inHardware);
  const auto keys = lookedUp<Domain, Which>(flows);
  std::uint64_t right = 0;
  visit(state, keys, [&](const Key<Domain>& key) {
    const auto found = map.find(key);
    if (found == map.end()) {
      right += !kHit;
    } else if (Copy) {
      Status<Domain> record = found->second;
      benchmark::DoNotOptimize(record);
      right += kHit && record.state == HoFlowState::inHardware;
    } else {
      right += kHit && found->second.state == HoFlowState::inHardware;
    }
  });
  expectAll(state, right, 1);
}

void allSizes(benchmark::internal::Benchmark* bench) {
  for (const std::int64_t size : sizes()) bench->Arg(size);
}

template <class Domain, Lookup Which>
void add(const std::string& which) {
  const auto called = [&](const std::string& contender, benchmark::internal::Function* run) {
    const std::string name =
        "lookup/" + contender + '/' + std::string(FlowTracking::IpFamily<Domain>::kName) + '/' + which;
    benchmark::RegisterBenchmark(name.c_str(), run)->Apply(allSizes);
  };
  called("shared", SharedTable<Domain, Which>);
  called("absl", FlatHashMap<Domain, Which, false>);
  if (Which == Lookup::miss) return;
  called("absl_copy", FlatHashMap<Domain, Which, true>);
  called("shared_burst", SharedTableBurst<Domain, Which>);
}
template <class Domain>
bool addAll() {
  add<Domain, Lookup::hit>("hit");
  add<Domain, Lookup::zipf>("zipf");
  add<Domain, Lookup::miss>("miss");
  return true;
}
const bool added = addAll<IPv4>() && addAll<IPv6>();

}  // namespace
}  // namespace SftBench
