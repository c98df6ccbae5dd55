// Lookups in a shared table beside the same lookups in an in-process hash map with the same keys and hash.
//
//   quell_bench --benchmark_filter=Hit
//
// Each looks up keys in random order and copies the record out. "Burst" announces 32 keys ahead, as the
// packet path does.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "Quell.h"
#include "QuellMap.h"

namespace {

// As large as an IPv4 flow with direction and interface, and its status.
struct FlowKey {
  std::uint32_t words[12] = {};
  bool operator==(const FlowKey&) const = default;
};
struct FlowStatus {
  FlowKey key;
  std::uint64_t state = 0;
  double since = 0;
  double updated = 0;
};
static_assert(sizeof(FlowKey) == 48 && sizeof(FlowStatus) == 72);

const Quell::RecordType& statusType() {
  static const Quell::RecordType type{
      "Bench::FlowStatus", sizeof(FlowStatus), sizeof(FlowKey), nullptr, nullptr, nullptr, nullptr};
  return type;
}

class Flows : public Quell::Container {
 public:
  Flows() : Container("flows"), map(*this, "flows", statusType()) {}
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<Flows>("Bench::Flows").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  std::vector<Quell::MapBase*> collections() override { return {&map}; }
  Quell::Map<FlowKey, FlowStatus> map;

 protected:
  Kiv::AttributeId collectionAttribute(const Quell::MapBase&) const override { return 1; }
};

struct SameHash {
  std::size_t operator()(const FlowKey& key) const { return Quell::Table::hash<sizeof(FlowKey)>(&key); }
};
using InProcess = absl::flat_hash_map<FlowKey, FlowStatus, SameHash>;

FlowKey keyOf(std::uint32_t id) {
  FlowKey key;
  for (std::uint32_t i = 0; i < 12; ++i) key.words[i] = i < 6 ? id * (2654435761U + i) : i;
  return key;
}

// The keys of a table of `count` records (those with odd ids are not in it for misses), in random order.
std::vector<FlowKey> shuffled(std::uint32_t count, std::uint32_t first) {
  std::vector<FlowKey> keys;
  for (std::uint32_t id = 0; id < count; ++id) keys.push_back(keyOf(first + id));
  std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
  return keys;
}
constexpr std::uint32_t kAbsent = 1U << 28;

FlowStatus statusOf(std::uint32_t id) {
  return {keyOf(id), 2, id * 1.0, id * 2.0};
}

Flows& shared(std::uint32_t count) {
  static Kiv::Ptr<Flows> flows;
  if (!flows || flows->map.size() != count) {
    flows = Kiv::makePtr<Flows>();
    Quell::attachAnonymous(flows->map);
    for (std::uint32_t id = 0; id < count; ++id) flows->map.insert(statusOf(id));
  }
  return *flows;
}
InProcess& inProcess(std::uint32_t count) {
  static InProcess map;
  if (map.size() != count) {
    map = InProcess();
    for (std::uint32_t id = 0; id < count; ++id) map.emplace(keyOf(id), statusOf(id));
  }
  return map;
}

template <bool Shared>
bool lookUp(const FlowKey& key, FlowStatus& out, Flows* flows, const InProcess* map) {
  if constexpr (Shared) {
    return flows->map.find(key, out);
  } else {
    const auto found = map->find(key);
    if (found == map->end()) return false;
    out = found->second;
    return true;
  }
}

template <bool Shared, bool Present>
void lookUps(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  Flows* flows = Shared ? &shared(count) : nullptr;
  const InProcess* map = Shared ? nullptr : &inProcess(count);
  const std::vector<FlowKey> keys = shuffled(count, Present ? 0 : kAbsent);
  std::size_t at = 0;
  for (auto _ : state) {
    FlowStatus out;
    if (lookUp<Shared>(keys[at], out, flows, map) != Present) state.SkipWithError("wrong answer");
    benchmark::DoNotOptimize(out);
    if (++at == keys.size()) at = 0;
  }
}

template <bool Shared>
void bursts(benchmark::State& state) {
  constexpr std::size_t kBurst = 32;
  const auto count = static_cast<std::uint32_t>(state.range(0));
  Flows* flows = Shared ? &shared(count) : nullptr;
  const InProcess* map = Shared ? nullptr : &inProcess(count);
  const std::vector<FlowKey> keys = shuffled(count, 0);
  std::size_t at = 0;
  for (auto _ : state) {
    const FlowKey* burst = &keys[at];
    std::uint64_t hashes[kBurst];
    if constexpr (Shared) {
      for (std::size_t i = 0; i < kBurst; ++i) {
        hashes[i] = flows->map.hash(burst[i]);
        flows->map.prefetchIndex(hashes[i]);
      }
      for (const std::uint64_t hash : hashes) flows->map.prefetchRecord(hash);
    } else {
      for (std::size_t i = 0; i < kBurst; ++i) map->prefetch(burst[i]);
    }
    for (std::size_t i = 0; i < kBurst; ++i) {
      FlowStatus out;
      bool found = false;
      if constexpr (Shared) {
        found = flows->map.find(burst[i], hashes[i], out);
      } else {
        found = lookUp<false>(burst[i], out, flows, map);
      }
      if (!found) state.SkipWithError("wrong answer");
      benchmark::DoNotOptimize(out);
    }
    at = at + 2 * kBurst <= keys.size() ? at + kBurst : 0;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kBurst));
}

void stores(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  Flows& flows = shared(count);
  std::vector<FlowKey> keys = shuffled(count, 0);
  std::size_t at = 0;
  FlowStatus record = statusOf(0);
  for (auto _ : state) {
    record.key = keys[at];
    record.updated += 1;
    flows.map.insert(record);
    if (++at == keys.size()) at = 0;
  }
}

void walks(benchmark::State& state) {
  Flows& flows = shared(static_cast<std::uint32_t>(state.range(0)));
  std::int64_t met = 0;
  for (auto _ : state) {
    FlowStatus each;
    for (bool more = flows.map.first(each); more; more = flows.map.after(each.key, each)) ++met;
  }
  state.SetItemsProcessed(met);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int count : {2048, 65536, 1048576}) benchmark->Arg(count);
}

}  // namespace

BENCHMARK(lookUps<true, true>)->Name("Hit/SharedTable")->Apply(sizes);
BENCHMARK(lookUps<false, true>)->Name("Hit/InProcessMap")->Apply(sizes);
BENCHMARK(bursts<true>)->Name("Burst/SharedTable")->Apply(sizes);
BENCHMARK(bursts<false>)->Name("Burst/InProcessMap")->Apply(sizes);
BENCHMARK(lookUps<true, false>)->Name("Miss/SharedTable")->Apply(sizes);
BENCHMARK(lookUps<false, false>)->Name("Miss/InProcessMap")->Apply(sizes);
BENCHMARK(stores)->Name("Overwrite/SharedTable")->Apply(sizes);
BENCHMARK(walks)->Name("Walk/SharedTable")->Arg(2048)->Arg(65536);

BENCHMARK_MAIN();
