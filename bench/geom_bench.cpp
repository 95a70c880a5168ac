// Geometry throughput: torsions, point-to-volume distances over 1000 spheres,
// cap distances and sphere sampling. Build with -DCMAKE_BUILD_TYPE=Release.
#include <benchmark/benchmark.h>

#include <vector>

#include "qx_3dgeom.h"
#include "utl_geom.h"
#include "utl_mem.h"

namespace {

// Deterministic coordinates in [lo, hi).
std::vector<double> Coordinates(std::size_t count, double lo, double hi, unsigned long long seed) {
  std::vector<double> v(count);
  for (double &x : v) {
    seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
    x = lo + (hi - lo) * static_cast<double>(seed >> 11) / 9007199254740992.0;
  }
  return v;
}

constexpr std::size_t kQuads = 1024;

void BM_Dihedral(benchmark::State &state) {
  const std::vector<double> p = Coordinates(12 * kQuads, -3, 3, 1);
  std::size_t i = 0;
  for (auto _ : state) {
    const double *q = &p[12 * (i++ % kQuads)];
    benchmark::DoNotOptimize(QX_3DGEOM_DIHEDRAL(q, q + 3, q + 6, q + 9));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Dihedral);

void BM_Tau(benchmark::State &state) {
  const std::vector<double> p = Coordinates(12 * kQuads, -3, 3, 2);
  std::size_t i = 0;
  for (auto _ : state) {
    const double *q = &p[12 * (i++ % kQuads)];
    benchmark::DoNotOptimize(UTL_GEOM_TAU(q, q + 3, q + 6, q + 9));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tau);

// Spheres in a 20 A box, points outside it: every sphere is visited.
void BM_DistPointToVolume1000(benchmark::State &state) {
  std::vector<double> spheres = Coordinates(4 * 1000, 0, 20, 3);
  for (std::size_t k = 0; k < 1000; ++k)
    spheres[4 * k + 3] = 1.2 + 0.1 * (k % 6);
  const QX_3DGEOM_VOLUME volume{1000, spheres.data()};
  const std::vector<double> p = Coordinates(3 * kQuads, 30, 40, 4);
  std::size_t i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(QX_3DGEOM_DIST_PT_VO(&p[3 * (i++ % kQuads)], &volume));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DistPointToVolume1000);

void BM_DistPointToCap(benchmark::State &state) {
  const double p0[3] = {0, 0, 0}, p1[3] = {2, 0, 0}, axis[3] = {0, 0, 1};
  QX_3DGEOM_CAP_RECORD *cap = nullptr;
  QX_3DGEOM_CAP(p0, p1, axis, 40, 25, &cap);
  const std::vector<double> p = Coordinates(3 * kQuads, -4, 4, 5);
  std::size_t i = 0;
  for (auto _ : state) {
    const double *q = &p[3 * (i++ % kQuads)];
    benchmark::DoNotOptimize(QX_3DGEOM_DIST_PT_CAP(q, cap) + QX_3DGEOM_MAX_DIST_PT_CAP(q, cap));
  }
  state.SetItemsProcessed(state.iterations());
  UTL_DMEM_FREE(cap, "geom_bench", __LINE__);
}
BENCHMARK(BM_DistPointToCap);

void BM_GenSphere10k(benchmark::State &state) {
  std::vector<double> out(3 * 10000);
  const double centre[3] = {1, 2, 3};
  for (auto _ : state)
    benchmark::DoNotOptimize(QX_3DGEOM_GEN_SPHERE(10000, centre, 1.5, out.data()));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GenSphere10k)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
