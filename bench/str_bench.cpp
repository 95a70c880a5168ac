// Building a report from many short texts: UTL_STR_BUFF_ADD (growth by the
// larger of the increment and the shortfall, 128 bytes by default) against
// std::string appends (geometric growth).
#include <benchmark/benchmark.h>

#include <string>

#include "utl_str.h"

namespace {

constexpr const char *kPieces[] = {"C1 ", "0.125 ", "-3.500 ", "12.0\n", "O2 ", "H13 "};
constexpr int kPieceCount = sizeof kPieces / sizeof kPieces[0];

void BM_StrBuffAdd(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  const int increment = static_cast<int>(state.range(1));
  for (auto _ : state) {
    UTL_STR_BUFF *buffer = UTL_STR_BUFF_CREATE(0, increment);
    for (int i = 0; i < n; ++i)
      UTL_STR_BUFF_ADD(buffer, kPieces[i % kPieceCount]);
    benchmark::DoNotOptimize(UTL_STR_BUFF_GET(buffer));
    UTL_STR_BUFF_DESTROY(buffer);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void BM_StdStringAppend(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::string text;
    for (int i = 0; i < n; ++i)
      text += kPieces[i % kPieceCount];
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations() * n);
}

BENCHMARK(BM_StrBuffAdd)
    ->Args({100, 0})
    ->Args({10000, 0})
    ->Args({100000, 0})
    ->Args({100000, 65536});
BENCHMARK(BM_StdStringAppend)->Arg(100)->Arg(10000)->Arg(100000);

}  // namespace

BENCHMARK_MAIN();
