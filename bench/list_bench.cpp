// Appending to a list: UTL_LIST_APPEND from the head walks to the tail on
// every call (linear per append, quadratic per list); a caller that keeps the
// tail and appends to it pays a constant step. Both build the same list of
// 8-byte records (inline, one allocation per node) and release it.
#include <benchmark/benchmark.h>

#include "utl_list.h"

namespace {

struct Atom {
  float x, y;
};

void BM_AppendFromHead(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    Atom atom{0.0f, 0.0f};
    UTL_LIST_NODE *head = UTL_LIST_APPEND(nullptr, sizeof atom, &atom);
    for (int i = 1; i < n; ++i) {
      atom.x = static_cast<float>(i);
      UTL_LIST_APPEND(head, sizeof atom, &atom);
    }
    benchmark::DoNotOptimize(head);
    UTL_LIST_CLEAR(head);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void BM_AppendAtKeptTail(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    Atom atom{0.0f, 0.0f};
    UTL_LIST_NODE *head = UTL_LIST_APPEND(nullptr, sizeof atom, &atom);
    UTL_LIST_NODE *tail = head;
    for (int i = 1; i < n; ++i) {
      atom.x = static_cast<float>(i);
      tail = UTL_LIST_APPEND(tail, sizeof atom, &atom);
    }
    benchmark::DoNotOptimize(head);
    UTL_LIST_CLEAR(head);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

BENCHMARK(BM_AppendFromHead)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(BM_AppendAtKeptTail)->Arg(100)->Arg(1000)->Arg(10000);

}  // namespace

BENCHMARK_MAIN();
