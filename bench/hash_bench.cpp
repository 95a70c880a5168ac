// Hash table: insert and look up 100k string keys with the library's hash and
// with a good caller-supplied hash (FNV-1a reduced to 1..count), beside
// std::unordered_map<std::string, int>.
//
// The library hash looks at three characters only, so keys that share their
// first, middle and last characters pile up in one chain; the numbered keys
// below ("atom-000123") are typical of real tables and show the effect.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "utl_hash.h"

namespace {

constexpr int kKeys = 100000;
constexpr unsigned int kBuckets = 131071;

const std::vector<std::string> &Keys() {
  static const std::vector<std::string> keys = [] {
    std::vector<std::string> k;
    k.reserve(kKeys);
    char text[32];
    for (int i = 0; i < kKeys; ++i) {
      std::snprintf(text, sizeof text, "atom-%06d", i * 7919 % 1000003);
      k.emplace_back(text);
    }
    return k;
  }();
  return keys;
}

unsigned int Fnv1a(const char *key, unsigned int n) {
  unsigned int h = 2166136261u;
  for (; *key != '\0'; ++key)
    h = (h ^ static_cast<unsigned char>(*key)) * 16777619u;
  return h % n + 1;
}

UTL_HASH_TABLE *Fill(UTL_HASH_FUNCTION hash) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(kBuckets, hash, nullptr, nullptr, nullptr);
  int value = 0;
  for (const std::string &k : Keys()) {
    UTL_HASH_INSERT(t, k.c_str(), sizeof value, &value);
    ++value;
  }
  return t;
}

void Insert(benchmark::State &state, UTL_HASH_FUNCTION hash) {
  for (auto _ : state) {
    UTL_HASH_TABLE *t = Fill(hash);
    state.counters["max_chain"] = t->max_chain;
    state.PauseTiming();
    UTL_HASH_DESTROY(t);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}

void Lookup(benchmark::State &state, UTL_HASH_FUNCTION hash) {
  UTL_HASH_TABLE *t = Fill(hash);
  for (auto _ : state) {
    for (const std::string &k : Keys()) {
      int value;
      unsigned int n;
      UTL_HASH_RETRIEVE(t, k.c_str(), sizeof value, &value, &n);
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
  UTL_HASH_DESTROY(t);
}

void BM_InsertDefaultHash(benchmark::State &state) {
  Insert(state, nullptr);
}
void BM_InsertFnv1a(benchmark::State &state) {
  Insert(state, Fnv1a);
}
void BM_LookupDefaultHash(benchmark::State &state) {
  Lookup(state, nullptr);
}
void BM_LookupFnv1a(benchmark::State &state) {
  Lookup(state, Fnv1a);
}

void BM_InsertUnorderedMap(benchmark::State &state) {
  for (auto _ : state) {
    std::unordered_map<std::string, int> map;
    map.reserve(kBuckets);
    int value = 0;
    for (const std::string &k : Keys())
      map.emplace(k, value++);
    benchmark::DoNotOptimize(map);
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}

void BM_LookupUnorderedMap(benchmark::State &state) {
  std::unordered_map<std::string, int> map;
  int value = 0;
  for (const std::string &k : Keys())
    map.emplace(k, value++);
  for (auto _ : state) {
    for (const std::string &k : Keys())
      benchmark::DoNotOptimize(map.find(k));
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}

BENCHMARK(BM_InsertDefaultHash)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InsertFnv1a)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InsertUnorderedMap)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LookupDefaultHash)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LookupFnv1a)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LookupUnorderedMap)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
