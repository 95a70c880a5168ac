// Bit-set benchmarks: fingerprint similarity (one query against 100k
// fingerprints of 1024 or 2048 bits, about 10% of bits set), counting,
// iteration and whole-word algebra.
//
// Beside the library's Tanimoto run three loops over the very same words:
//  - StdPopcountNative: a plain 64-bit std::popcount loop compiled for the
//    running CPU's feature level (x86-64-v4, -v3 or -v2, the level -march=native
//    gives on it), i.e. the practical limit of a straightforward loop;
//  - StdPopcountDefault: the same loop for the baseline x86-64 target, where
//    std::popcount has no instruction and falls back to bit arithmetic;
//  - NaivePerBit: one bit at a time.
// Comparisons per second are reported as items_per_second. The library's
// kernels can be forced to one path (Path/portable, /popcnt, /avx2, ...).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "containers/popcount.h"
#include "utl_set.h"

namespace {

constexpr int kFingerprints = 100000;

struct Library {
  int bits;
  std::vector<UTL_SET *> sets;
  UTL_SET *query;

  explicit Library(int n) : bits(n) {
    std::mt19937 rng(static_cast<unsigned>(n));
    std::bernoulli_distribution on(0.10);
    auto make = [&] {
      UTL_SET *s = UTL_SET_CREATE(n);
      for (int e = 0; e < n; ++e)
        if (on(rng)) UTL_SET_INSERT(s, e);
      return s;
    };
    query = make();
    for (int i = 0; i < kFingerprints; ++i)
      sets.push_back(make());
  }
  static const Library &Of(int n) {
    static const Library k1024(1024), k2048(2048);
    return n == 1024 ? k1024 : k2048;
  }
  std::size_t Words() const { return static_cast<std::size_t>((bits - 1) / 32 + 1); }
};

// ---- The comparison loops ----------------------------------------------------

#define QX_POPCOUNT_LOOP_BODY                                   \
  std::uint64_t both = 0, either = 0;                           \
  for (std::size_t i = 0; i + 2 <= words; i += 2) {             \
    std::uint64_t x, y;                                         \
    std::memcpy(&x, a + i, 8);                                  \
    std::memcpy(&y, b + i, 8);                                  \
    both += static_cast<std::uint64_t>(std::popcount(x & y));   \
    either += static_cast<std::uint64_t>(std::popcount(x | y)); \
  }                                                             \
  return either == 0 ? 1.0 : static_cast<double>(both) / static_cast<double>(either);

__attribute__((target("arch=x86-64-v4"))) double TanimotoV4(const std::uint32_t *a,
                                                            const std::uint32_t *b,
                                                            std::size_t words) {
  QX_POPCOUNT_LOOP_BODY
}
__attribute__((target("arch=x86-64-v3"))) double TanimotoV3(const std::uint32_t *a,
                                                            const std::uint32_t *b,
                                                            std::size_t words) {
  QX_POPCOUNT_LOOP_BODY
}
__attribute__((target("arch=x86-64-v2"))) double TanimotoV2(const std::uint32_t *a,
                                                            const std::uint32_t *b,
                                                            std::size_t words) {
  QX_POPCOUNT_LOOP_BODY
}
double TanimotoDefault(const std::uint32_t *a, const std::uint32_t *b, std::size_t words) {
  QX_POPCOUNT_LOOP_BODY
}

using TanimotoLoop = double (*)(const std::uint32_t *, const std::uint32_t *, std::size_t);

TanimotoLoop NativeLoop() {
  __builtin_cpu_init();
  // Feature by feature: clang 14 does not know the level names here.
  const bool v3 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2") &&
                  __builtin_cpu_supports("fma") && __builtin_cpu_supports("popcnt");
  const bool v4 = v3 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                  __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
                  __builtin_cpu_supports("avx512vl");
  if (v4) return TanimotoV4;
  if (v3) return TanimotoV3;
  return TanimotoV2;
}

double TanimotoPerBit(const UTL_SET *a, const UTL_SET *b) {
  int both = 0, either = 0;
  for (int e = 0; e < a->size; ++e) {
    const bool x = (a->words[e / 32] >> (e % 32)) & 1u, y = (b->words[e / 32] >> (e % 32)) & 1u;
    both += x && y;
    either += x || y;
  }
  return either == 0 ? 1.0 : static_cast<double>(both) / either;
}

// ---- Similarity ----------------------------------------------------------------

void Finish(benchmark::State &state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kFingerprints);
}

void BM_TanimotoLibrary(benchmark::State &state) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    double sum = 0.0;
    for (const UTL_SET *s : lib.sets) {
      double t;
      UTL_SET_TANIMOTO(lib.query, s, nullptr, nullptr, &t);
      sum += t;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetLabel(qx::popcount::PathName(qx::popcount::BestPath()));
  Finish(state);
}
BENCHMARK(BM_TanimotoLibrary)->Arg(1024)->Arg(2048);

void TanimotoWithLoop(benchmark::State &state, TanimotoLoop loop) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    double sum = 0.0;
    for (const UTL_SET *s : lib.sets)
      sum += loop(lib.query->words, s->words, lib.Words());
    benchmark::DoNotOptimize(sum);
  }
  Finish(state);
}

void BM_TanimotoStdPopcountNative(benchmark::State &state) {
  TanimotoWithLoop(state, NativeLoop());
  state.SetLabel(NativeLoop() == TanimotoV4   ? "x86-64-v4"
                 : NativeLoop() == TanimotoV3 ? "x86-64-v3"
                                              : "x86-64-v2");
}
BENCHMARK(BM_TanimotoStdPopcountNative)->Arg(1024)->Arg(2048);

void BM_TanimotoStdPopcountDefault(benchmark::State &state) {
  TanimotoWithLoop(state, TanimotoDefault);
}
BENCHMARK(BM_TanimotoStdPopcountDefault)->Arg(1024)->Arg(2048);

void BM_TanimotoNaivePerBit(benchmark::State &state) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    double sum = 0.0;
    for (const UTL_SET *s : lib.sets)
      sum += TanimotoPerBit(lib.query, s);
    benchmark::DoNotOptimize(sum);
  }
  Finish(state);
}
BENCHMARK(BM_TanimotoNaivePerBit)->Arg(2048)->Unit(benchmark::kMillisecond);

// The library and the native std::popcount loop timed in alternation over the
// same chunks of fingerprints (which one goes first alternates too), so that
// both see the same load on a shared machine. Reports both rates and their
// ratio (library / native).
void BM_TanimotoVersusNative(benchmark::State &state) {
  using Clock = std::chrono::steady_clock;
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  const TanimotoLoop native = NativeLoop();
  constexpr std::size_t kChunk = 1000;
  double library_seconds = 0.0, native_seconds = 0.0, sum = 0.0;
  bool library_first = true;
  auto run_library = [&](std::size_t from, std::size_t to) {
    const auto start = Clock::now();
    for (std::size_t i = from; i < to; ++i) {
      double t;
      UTL_SET_TANIMOTO(lib.query, lib.sets[i], nullptr, nullptr, &t);
      sum += t;
    }
    library_seconds += std::chrono::duration<double>(Clock::now() - start).count();
  };
  auto run_native = [&](std::size_t from, std::size_t to) {
    const auto start = Clock::now();
    for (std::size_t i = from; i < to; ++i)
      sum += native(lib.query->words, lib.sets[i]->words, lib.Words());
    native_seconds += std::chrono::duration<double>(Clock::now() - start).count();
  };
  for (auto _ : state) {
    const double before = library_seconds + native_seconds;
    for (std::size_t from = 0; from < lib.sets.size(); from += kChunk) {
      const std::size_t to = std::min(from + kChunk, lib.sets.size());
      if (library_first) {
        run_library(from, to);
        run_native(from, to);
      } else {
        run_native(from, to);
        run_library(from, to);
      }
      library_first = !library_first;
    }
    state.SetIterationTime(library_seconds + native_seconds - before);
  }
  benchmark::DoNotOptimize(sum);
  const double compared = static_cast<double>(state.iterations()) * kFingerprints;
  state.counters["library_per_s"] = compared / library_seconds;
  state.counters["native_per_s"] = compared / native_seconds;
  state.counters["ratio"] = native_seconds / library_seconds;
}
BENCHMARK(BM_TanimotoVersusNative)->Arg(1024)->Arg(2048)->UseManualTime();

// The library forced onto each path the CPU supports.
void BM_TanimotoPath(benchmark::State &state) {
  const auto path = static_cast<qx::popcount::Path>(state.range(1));
  if (!qx::popcount::Select(path)) {
    state.SkipWithError("path not supported by this CPU");
    return;
  }
  BM_TanimotoLibrary(state);
  state.SetLabel(qx::popcount::PathName(path));
  qx::popcount::Select(qx::popcount::BestPath());
}
BENCHMARK(BM_TanimotoPath)->ArgsProduct({{1024, 2048}, {0, 1, 2, 3}});

void BM_CosineLibrary(benchmark::State &state) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    double sum = 0.0;
    for (const UTL_SET *s : lib.sets) {
      double c;
      UTL_SET_COSINE(lib.query, s, &c);
      sum += c;
    }
    benchmark::DoNotOptimize(sum);
  }
  Finish(state);
}
BENCHMARK(BM_CosineLibrary)->Arg(1024)->Arg(2048);

// ---- Counting, iteration, algebra ---------------------------------------------

void BM_Cardinality(benchmark::State &state) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    long total = 0;
    for (const UTL_SET *s : lib.sets)
      total += UTL_SET_CARDINALITY(s);
    benchmark::DoNotOptimize(total);
  }
  Finish(state);
}
BENCHMARK(BM_Cardinality)->Arg(2048);

// Members visited per second by the UTL_SET_NEXT loop.
void BM_NextIteration(benchmark::State &state) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  long visited = 0;
  for (auto _ : state) {
    long total = 0;
    for (int i = 0; i < 1000; ++i) {
      const UTL_SET *s = lib.sets[static_cast<std::size_t>(i)];
      for (int e = UTL_SET_NEXT(s, -1); e >= 0; e = UTL_SET_NEXT(s, e)) {
        total += e;
        ++visited;
      }
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(visited);
}
BENCHMARK(BM_NextIteration)->Arg(2048);

void BM_AndOrInPlace(benchmark::State &state) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  UTL_SET *work = UTL_SET_COPY(lib.query);
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) {
      UTL_SET_OR_INPLACE(work, lib.sets[static_cast<std::size_t>(i)]);
      UTL_SET_AND_INPLACE(work, lib.sets[static_cast<std::size_t>(i + 1)]);
    }
    benchmark::DoNotOptimize(work->words[0]);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 2000);
  UTL_SET_DESTROY(work);
}
BENCHMARK(BM_AndOrInPlace)->Arg(2048);

void BM_AndNewSet(benchmark::State &state) {
  const Library &lib = Library::Of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i)
      UTL_SET_DESTROY(UTL_SET_AND(lib.query, lib.sets[static_cast<std::size_t>(i)]));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 1000);
}
BENCHMARK(BM_AndNewSet)->Arg(2048);

}  // namespace

BENCHMARK_MAIN();
