// Allocate/free pairs of 16, 64 and 256 bytes: the runtime heap directly, the
// allocator's plain path, and debug mode with periodic checks off and at the
// default frequency (with 100 other live blocks for the check to walk).
//
// Debug mode cannot be switched off, so the debug benchmarks are registered
// after the plain ones and switch it on when they first run.
#include <cstdlib>

#include <benchmark/benchmark.h>

#include "utl_mem.h"

namespace {

void BM_Malloc(benchmark::State &state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    void *p = std::malloc(size);
    benchmark::DoNotOptimize(p);
    std::free(p);
  }
}

void BM_Plain(benchmark::State &state) {
  const auto size = static_cast<unsigned int>(state.range(0));
  for (auto _ : state) {
    void *p = UTL_DMEM_ALLOC(size, "mem_bench", __LINE__);
    benchmark::DoNotOptimize(p);
    UTL_DMEM_FREE(p, "mem_bench", __LINE__);
  }
}

int Quiet(const char *, ...) {
  return 0;
}

void DebugPairs(benchmark::State &state, int frequency) {
  UTL_DMEM_INITIALIZE(Quiet);
  UTL_DMEM_SET_DEBUG();
  UTL_DMEM_SET_FREQ(frequency);
  void *others[100];
  for (void *&other : others)
    other = UTL_DMEM_ALLOC(32, "mem_bench", __LINE__);
  const auto size = static_cast<unsigned int>(state.range(0));
  for (auto _ : state) {
    void *p = UTL_DMEM_ALLOC(size, "mem_bench", __LINE__);
    benchmark::DoNotOptimize(p);
    UTL_DMEM_FREE(p, "mem_bench", __LINE__);
  }
  for (void *other : others)
    UTL_DMEM_FREE(other, "mem_bench", __LINE__);
}

void BM_DebugNoChecks(benchmark::State &state) {
  DebugPairs(state, 0);
}
void BM_DebugEvery1000(benchmark::State &state) {
  DebugPairs(state, 1000);
}

BENCHMARK(BM_Malloc)->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(BM_Plain)->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(BM_DebugNoChecks)->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(BM_DebugEvery1000)->Arg(16)->Arg(64)->Arg(256);

}  // namespace

BENCHMARK_MAIN();
