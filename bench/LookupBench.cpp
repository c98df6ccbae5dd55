// One lookup in the shared status table, beside an in-process map with the same keys, hash and records.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

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

template <class Domain, bool Hit>
void SharedTable(benchmark::State& state) {
  const auto flows = static_cast<std::size_t>(state.range(0));
  const auto table = sharedTable<Domain>(flows);
  const SharedMap<Domain>& map = table->template map<Domain>();
  const auto keys = visitedKeys<Domain>(flows, Hit ? 0 : 1);
  std::uint64_t right = 0;
  visit(state, keys, [&](const Key<Domain>& key) {
    Status<Domain> record;
    const bool found = map.find(key, record);
    right += found == Hit && (!found || record.state == HoFlowState::inHardware);
    benchmark::DoNotOptimize(record);
  });
  expectAll(state, right, 1);
}

template <class Domain>
void SharedTableBurst(benchmark::State& state) {
  const auto flows = static_cast<std::size_t>(state.range(0));
  const auto table = sharedTable<Domain>(flows);
  const SharedMap<Domain>& map = table->template map<Domain>();
  const auto keys = visitedKeys<Domain>(flows);
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
template <class Domain, bool Hit, bool Copy>
void FlatHashMap(benchmark::State& state) {
  const auto flows = static_cast<std::size_t>(state.range(0));
  absl::flat_hash_map<Key<Domain>, Status<Domain>, SameHash> map;
  map.reserve(flows);
  for (std::uint32_t i = 0; i < flows; ++i)
    map[hoFlow<Domain>(i)] = status<Domain>(i, HoFlowState::inHardware);
  const auto keys = visitedKeys<Domain>(flows, Hit ? 0 : 1);
  std::uint64_t right = 0;
  visit(state, keys, [&](const Key<Domain>& key) {
    const auto found = map.find(key);
    if (found == map.end()) {
      right += !Hit;
    } else if (Copy) {
      Status<Domain> record = found->second;
      benchmark::DoNotOptimize(record);
      right += Hit && record.state == HoFlowState::inHardware;
    } else {
      right += Hit && found->second.state == HoFlowState::inHardware;
    }
  });
  expectAll(state, right, 1);
}

void sizes(benchmark::internal::Benchmark* bench) {
  for (const std::int64_t size : kSizes) bench->Arg(size);
}

BENCHMARK_TEMPLATE(SharedTable, IPv4, true)->Name("lookup/shared/IPv4/hit")->Apply(sizes);
BENCHMARK_TEMPLATE(FlatHashMap, IPv4, true, true)->Name("lookup/absl_copy/IPv4/hit")->Apply(sizes);
BENCHMARK_TEMPLATE(FlatHashMap, IPv4, true, false)->Name("lookup/absl/IPv4/hit")->Apply(sizes);
BENCHMARK_TEMPLATE(SharedTable, IPv4, false)->Name("lookup/shared/IPv4/miss")->Apply(sizes);
BENCHMARK_TEMPLATE(FlatHashMap, IPv4, false, false)->Name("lookup/absl/IPv4/miss")->Apply(sizes);
BENCHMARK_TEMPLATE(SharedTableBurst, IPv4)->Name("lookup/shared_burst/IPv4/hit")->Apply(sizes);
BENCHMARK_TEMPLATE(SharedTable, IPv6, true)->Name("lookup/shared/IPv6/hit")->Apply(sizes);
BENCHMARK_TEMPLATE(FlatHashMap, IPv6, true, true)->Name("lookup/absl_copy/IPv6/hit")->Apply(sizes);
BENCHMARK_TEMPLATE(FlatHashMap, IPv6, true, false)->Name("lookup/absl/IPv6/hit")->Apply(sizes);
BENCHMARK_TEMPLATE(SharedTable, IPv6, false)->Name("lookup/shared/IPv6/miss")->Apply(sizes);
BENCHMARK_TEMPLATE(FlatHashMap, IPv6, false, false)->Name("lookup/absl/IPv6/miss")->Apply(sizes);
BENCHMARK_TEMPLATE(SharedTableBurst, IPv6)->Name("lookup/shared_burst/IPv6/hit")->Apply(sizes);

}  // namespace
}  // namespace SftBench
