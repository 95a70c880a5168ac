// Keyed store throughput: 100k records of 100 bytes under generated keys,
// half of them named; then every record read back in key order and in random
// order, and every name looked up. The same work on GNU gdbm (loaded at run
// time from libgdbm.so.6 when the system has it; 7-byte keys) runs beside it
// for comparison. Counters: records per second and the final file size.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "utl_db.h"

namespace {

constexpr int kRecords = 100000;
constexpr int kRecordSize = 100;

std::string ScratchPath(const char *name) {
  static std::string dir;
  if (dir.empty()) {
    char pattern[] = "/tmp/qx_db_bench_XXXXXX";
    if (mkdtemp(pattern) == nullptr) std::abort();
    dir = pattern;
    std::atexit([] { std::filesystem::remove_all(dir); });
  }
  return dir + "/" + name;
}

double FileSize(const std::string &path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? static_cast<double>(info.st_size) : 0.0;
}

std::string NameOf(int i) {
  return "rec" + std::to_string(i);
}

std::vector<int> RandomOrder() {
  std::vector<int> order(kRecords);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(42));
  return order;
}

// ---- the keyed store ------------------------------------------------------

// Readers open with 1 MiB chunks, so that the 50 resident chunks hold the
// whole file; the default 8 KiB chunks hold 400 KiB of it.
constexpr int kReadChunk = 1 << 20;

// 100k records: a key list growing by 4096 and 65536 name buckets.
void BuildStore(const std::string &path) {
  unlink(path.c_str());
  UTL_DB_XCREATE(path.c_str(), 4096, 4096, 65536, 1, 0, 0, 0, 0, nullptr);
  UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
  char record[kRecordSize];
  for (int i = 0; i < kRecords; ++i) {
    const int key = UTL_DB_GENKEY(db, i % 2 ? NameOf(i).c_str() : nullptr);
    std::memset(record, i & 0xFF, sizeof record);
    UTL_DB_WRITE(db, key, kRecordSize, record);
  }
  UTL_DB_CLOSE(db);
}

const std::string &BuiltStore() {
  static const std::string path = [] {
    const std::string p = ScratchPath("read.db");
    BuildStore(p);
    return p;
  }();
  return path;
}

void BM_StoreWrite(benchmark::State &state) {
  const std::string path = ScratchPath("write.db");
  for (auto _ : state)
    BuildStore(path);
  state.counters["records/s"] =
      benchmark::Counter(kRecords, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["file_bytes"] = FileSize(path);
}

void ReadStore(benchmark::State &state, const std::vector<int> &order) {
  UtlDb *db = UTL_DB_OPEN(BuiltStore().c_str(), "r", kReadChunk);
  char buffer[256];
  int delivered = 0;
  for (auto _ : state) {
    for (int key : order)
      UTL_DB_READ(db, key, sizeof buffer, buffer, &delivered);
    benchmark::DoNotOptimize(delivered);
  }
  UTL_DB_CLOSE(db);
  state.counters["records/s"] =
      benchmark::Counter(kRecords, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["file_bytes"] = FileSize(BuiltStore());
}

void BM_StoreReadSequential(benchmark::State &state) {
  std::vector<int> order(kRecords);
  std::iota(order.begin(), order.end(), 0);
  ReadStore(state, order);
}

void BM_StoreReadRandom(benchmark::State &state) {
  ReadStore(state, RandomOrder());
}

void BM_StoreFindNamed(benchmark::State &state) {
  UtlDb *db = UTL_DB_OPEN(BuiltStore().c_str(), "r", kReadChunk);
  std::vector<std::string> names;
  for (int i = 1; i < kRecords; i += 2)
    names.push_back(NameOf(i));
  for (auto _ : state) {
    int found = 0;
    for (const std::string &name : names)
      found += UTL_DB_FIND(db, -1, name.c_str()) >= 0;
    if (found != kRecords / 2) state.SkipWithError("a name was not found");
  }
  UTL_DB_CLOSE(db);
  state.counters["lookups/s"] = benchmark::Counter(static_cast<double>(names.size()),
                                                   benchmark::Counter::kIsIterationInvariantRate);
}

// ---- GNU gdbm, for comparison ---------------------------------------------

struct Datum {
  char *dptr;
  int dsize;
};

struct Gdbm {
  void *(*open)(const char *, int, int, int, void (*)(const char *));
  int (*store)(void *, Datum, Datum, int);
  Datum (*fetch)(void *, Datum);
  int (*close)(void *);
  bool ok = false;
};

const Gdbm &Gnu() {
  static const Gdbm gdbm = [] {
    Gdbm g{};
    void *lib = dlopen("libgdbm.so.6", RTLD_NOW);
    if (lib == nullptr) return g;
    g.open = reinterpret_cast<decltype(g.open)>(dlsym(lib, "gdbm_open"));
    g.store = reinterpret_cast<decltype(g.store)>(dlsym(lib, "gdbm_store"));
    g.fetch = reinterpret_cast<decltype(g.fetch)>(dlsym(lib, "gdbm_fetch"));
    g.close = reinterpret_cast<decltype(g.close)>(dlsym(lib, "gdbm_close"));
    g.ok = g.open && g.store && g.fetch && g.close;
    return g;
  }();
  return gdbm;
}

constexpr int kGdbmReader = 0;
constexpr int kGdbmNewDb = 3;
constexpr int kGdbmReplace = 1;

void GdbmKey(int i, char key[8]) {
  std::snprintf(key, 8, "k%06d", i);
}

void BuildGdbm(const std::string &path) {
  const Gdbm &g = Gnu();
  void *db = g.open(path.c_str(), 0, kGdbmNewDb, 0644, nullptr);
  char record[kRecordSize];
  char key[8];
  for (int i = 0; i < kRecords; ++i) {
    GdbmKey(i, key);
    std::memset(record, i & 0xFF, sizeof record);
    g.store(db, Datum{key, 7}, Datum{record, kRecordSize}, kGdbmReplace);
  }
  g.close(db);
}

void BM_GdbmWrite(benchmark::State &state) {
  if (!Gnu().ok) return state.SkipWithError("libgdbm.so.6 not available");
  const std::string path = ScratchPath("write.gdbm");
  for (auto _ : state)
    BuildGdbm(path);
  state.counters["records/s"] =
      benchmark::Counter(kRecords, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["file_bytes"] = FileSize(path);
}

void ReadGdbm(benchmark::State &state, const std::vector<int> &order) {
  if (!Gnu().ok) return state.SkipWithError("libgdbm.so.6 not available");
  static const std::string path = [] {
    const std::string p = ScratchPath("read.gdbm");
    BuildGdbm(p);
    return p;
  }();
  const Gdbm &g = Gnu();
  void *db = g.open(path.c_str(), 0, kGdbmReader, 0644, nullptr);
  char key[8];
  for (auto _ : state) {
    for (int i : order) {
      GdbmKey(i, key);
      Datum value = g.fetch(db, Datum{key, 7});
      benchmark::DoNotOptimize(value.dptr);
      free(value.dptr);
    }
  }
  g.close(db);
  state.counters["records/s"] =
      benchmark::Counter(kRecords, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["file_bytes"] = FileSize(path);
}

void BM_GdbmReadSequential(benchmark::State &state) {
  std::vector<int> order(kRecords);
  std::iota(order.begin(), order.end(), 0);
  ReadGdbm(state, order);
}

void BM_GdbmReadRandom(benchmark::State &state) {
  ReadGdbm(state, RandomOrder());
}

BENCHMARK(BM_StoreWrite)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_StoreReadSequential)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StoreReadRandom)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StoreFindNamed)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GdbmWrite)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_GdbmReadSequential)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GdbmReadRandom)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
