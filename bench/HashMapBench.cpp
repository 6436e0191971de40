// Kiv::HashMap next to std::unordered_map: insert (from empty, destruction
// included), find (every key present) and a full walk, for interface ids
// and for 32-bit address keys.
#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "platform/dravo/IntfId.h"
#include "platform/dravo/IpAddr.h"
#include "platform/kiv/HashMap.h"

namespace {

struct ByOwnHash {
  template <class K>
  std::size_t operator()(const K& k) const {
    return k.hash();
  }
};

template <class K>
K keyOf(std::size_t i);
template <>
Dravo::IntfId keyOf<Dravo::IntfId>(std::size_t i) {
  return Dravo::IntfId("Ethernet" + std::to_string(i));
}
template <>
Dravo::IpAddr keyOf<Dravo::IpAddr>(std::size_t i) {
  return Dravo::IpAddr(0x0a000000u + static_cast<std::uint32_t>(i));
}

template <class K>
std::vector<K> keys(std::size_t n) {
  std::vector<K> out;
  for (std::size_t i = 0; i < n; ++i) out.push_back(keyOf<K>(i));
  return out;
}

template <class K>
void BM_KivInsert(benchmark::State& state) {
  const auto ks = keys<K>(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    Kiv::HashMap<K, int> m;
    for (const K& k : ks) m.insert(k, 1);
    benchmark::DoNotOptimize(m.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class K>
void BM_StdInsert(benchmark::State& state) {
  const auto ks = keys<K>(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    std::unordered_map<K, int, ByOwnHash> m;
    for (const K& k : ks) m.emplace(k, 1);
    benchmark::DoNotOptimize(m.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class K>
void BM_KivFind(benchmark::State& state) {
  const auto ks = keys<K>(static_cast<std::size_t>(state.range(0)));
  Kiv::HashMap<K, int> m;
  for (const K& k : ks) m.insert(k, 1);
  for (auto _ : state)
    for (const K& k : ks) benchmark::DoNotOptimize(m.find(k));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class K>
void BM_StdFind(benchmark::State& state) {
  const auto ks = keys<K>(static_cast<std::size_t>(state.range(0)));
  std::unordered_map<K, int, ByOwnHash> m;
  for (const K& k : ks) m.emplace(k, 1);
  for (auto _ : state)
    for (const K& k : ks) benchmark::DoNotOptimize(m.find(k));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class K>
void BM_KivWalk(benchmark::State& state) {
  Kiv::HashMap<K, int> m;
  for (const K& k : keys<K>(static_cast<std::size_t>(state.range(0)))) m.insert(k, 1);
  for (auto _ : state) {
    int sum = 0;
    for (auto it = m.iterator(); it; ++it) sum += it.value();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class K>
void BM_StdWalk(benchmark::State& state) {
  std::unordered_map<K, int, ByOwnHash> m;
  for (const K& k : keys<K>(static_cast<std::size_t>(state.range(0)))) m.emplace(k, 1);
  for (auto _ : state) {
    int sum = 0;
    for (auto& kv : m) sum += kv.second;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define FHRP_MAP_BENCH(fn, K) BENCHMARK_TEMPLATE(fn, K)->Arg(1 << 10)->Arg(1 << 16)
FHRP_MAP_BENCH(BM_KivInsert, Dravo::IntfId);
FHRP_MAP_BENCH(BM_StdInsert, Dravo::IntfId);
FHRP_MAP_BENCH(BM_KivFind, Dravo::IntfId);
FHRP_MAP_BENCH(BM_StdFind, Dravo::IntfId);
FHRP_MAP_BENCH(BM_KivWalk, Dravo::IntfId);
FHRP_MAP_BENCH(BM_StdWalk, Dravo::IntfId);
FHRP_MAP_BENCH(BM_KivInsert, Dravo::IpAddr);
FHRP_MAP_BENCH(BM_StdInsert, Dravo::IpAddr);
FHRP_MAP_BENCH(BM_KivFind, Dravo::IpAddr);
FHRP_MAP_BENCH(BM_StdFind, Dravo::IpAddr);
FHRP_MAP_BENCH(BM_KivWalk, Dravo::IpAddr);
FHRP_MAP_BENCH(BM_StdWalk, Dravo::IpAddr);

}  // namespace
