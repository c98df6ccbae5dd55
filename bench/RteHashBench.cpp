// The same lookup in DPDK's hash table with lock-free readers: one at a time, and 32 in bulk. What is stored
// with a key is the flow's state itself, so that a lookup touches nothing beyond the hash table.
#include <benchmark/benchmark.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_hash.h>

#include <cstdlib>
#include <string>

#include "Flows.h"

namespace SftBench {
namespace {

bool environment() {
  static const bool up = [] {
    static std::string arguments[] = {
        "sft_bench", "--no-huge", "--no-pci",       "--no-shconf", "-m",           "2048",
        "-l",        "0",         "--no-telemetry", "--log-level", "lib.eal:error"};
    static char* pointers[std::size(arguments)];
    for (std::size_t i = 0; i < std::size(arguments); ++i) pointers[i] = arguments[i].data();
    return rte_eal_init(static_cast<int>(std::size(arguments)), pointers) >= 0;
  }();
  return up;
}

std::uint32_t sameHash(const void* key, std::uint32_t length, std::uint32_t) {
  return static_cast<std::uint32_t>(XXH3_64bits(key, length));
}

template <class Domain>
class RteTable {
 public:
  explicit RteTable(std::size_t flows) {
    if (!environment()) return;
    rte_hash_parameters parameters{};
    parameters.name = "sft_bench";
    parameters.entries = static_cast<std::uint32_t>(flows);
    parameters.key_len = sizeof(FlowTracking::HoFlowKey<Domain>);
    parameters.hash_func = sameHash;
    // Room for what cuckoo hashing cannot place, else a full table refuses its last keys.
    parameters.extra_flag = RTE_HASH_EXTRA_FLAGS_RW_CONCURRENCY_LF | RTE_HASH_EXTRA_FLAGS_EXT_TABLE;
    hash_ = rte_hash_create(&parameters);
    if (hash_ == nullptr) return;
    for (std::uint32_t i = 0; i < flows; ++i) {
      const auto key = hoFlow<Domain>(i);
      if (rte_hash_add_key_data(hash_, &key, inHardware()) != 0) complete_ = false;
    }
  }
  ~RteTable() { rte_hash_free(hash_); }
  RteTable(const RteTable&) = delete;
  RteTable& operator=(const RteTable&) = delete;

  static void* inHardware() { return reinterpret_cast<void*>(std::uintptr_t{2}); }
  bool usable(benchmark::State& state) const {
    if (hash_ == nullptr) state.SkipWithError(rte_strerror(rte_errno));
    if (!complete_) state.SkipWithError("a key was refused");
    return hash_ != nullptr && complete_;
  }
  const rte_hash* get() const { return hash_; }

 private:
  rte_hash* hash_ = nullptr;
  bool complete_ = true;
};

template <class Domain, Lookup Which>
void RteHash(benchmark::State& state) {
  constexpr bool kHit = Which != Lookup::miss;
  const auto flows = static_cast<std::size_t>(state.range(0));
  const RteTable<Domain> table(flows);
  if (!table.usable(state)) return;
  const auto keys = lookedUp<Domain, Which>(flows);
  std::uint64_t right = 0;
  std::size_t at = 0;
  for (auto _ : state) {
    void* data = nullptr;
    const bool found = rte_hash_lookup_data(table.get(), &keys[at], &data) >= 0;
    right += found == kHit && (!found || data == table.inHardware());
    if (++at == flows) at = 0;
  }
  state.SetItemsProcessed(state.iterations());
  if (right != static_cast<std::uint64_t>(state.iterations())) state.SkipWithError("a lookup went wrong");
}

template <class Domain, Lookup Which>
void RteHashBulk(benchmark::State& state) {
  const auto flows = static_cast<std::size_t>(state.range(0));
  const RteTable<Domain> table(flows);
  if (!table.usable(state)) return;
  const auto keys = lookedUp<Domain, Which>(flows);
  std::uint64_t right = 0;
  std::size_t at = 0;
  for (auto _ : state) {
    const void* burst[kBurst];
    void* data[kBurst];
    std::uint64_t hits = 0;
    for (std::size_t i = 0; i < kBurst; ++i) burst[i] = &keys[at + i];
    rte_hash_lookup_bulk_data(table.get(), burst, kBurst, &hits, data);
    for (std::size_t i = 0; i < kBurst; ++i) right += (hits >> i & 1U) != 0 && data[i] == table.inHardware();
    at = (at + kBurst) % flows;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBurst));
  if (right != static_cast<std::uint64_t>(state.iterations()) * kBurst)
    state.SkipWithError("a lookup went wrong");
}

void allSizes(benchmark::internal::Benchmark* bench) {
  for (const std::int64_t size : sizes()) bench->Arg(size);
}

BENCHMARK_TEMPLATE(RteHash, IPv4, Lookup::hit)->Name("lookup/rte_hash/IPv4/hit")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHash, IPv4, Lookup::zipf)->Name("lookup/rte_hash/IPv4/zipf")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHash, IPv4, Lookup::miss)->Name("lookup/rte_hash/IPv4/miss")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHashBulk, IPv4, Lookup::hit)->Name("lookup/rte_hash_bulk/IPv4/hit")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHashBulk, IPv4, Lookup::zipf)->Name("lookup/rte_hash_bulk/IPv4/zipf")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHash, IPv6, Lookup::hit)->Name("lookup/rte_hash/IPv6/hit")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHash, IPv6, Lookup::zipf)->Name("lookup/rte_hash/IPv6/zipf")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHash, IPv6, Lookup::miss)->Name("lookup/rte_hash/IPv6/miss")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHashBulk, IPv6, Lookup::hit)->Name("lookup/rte_hash_bulk/IPv6/hit")->Apply(allSizes);
BENCHMARK_TEMPLATE(RteHashBulk, IPv6, Lookup::zipf)->Name("lookup/rte_hash_bulk/IPv6/zipf")->Apply(allSizes);

}  // namespace
}  // namespace SftBench
