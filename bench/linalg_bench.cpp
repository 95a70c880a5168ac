// Superposition of two 100-point sets, 3 x 3 symmetric eigen-decomposition
// and Gaussian deviates per second. When Eigen is installed, the same
// superpositions run through Eigen::umeyama (without scaling) and the same
// matrices through Eigen::SelfAdjointEigenSolver<Matrix3d> beside ours.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "qx_linalg.h"
#include "utl_math.h"

#if __has_include(<eigen3/Eigen/Dense>)
#include <eigen3/Eigen/Dense>
#include <eigen3/Eigen/Geometry>
#define QX_BENCH_HAVE_EIGEN 1
#endif

namespace {

constexpr int kPoints = 100;
constexpr int kCases = 64;  // distinct inputs cycled through, so no result is cached

struct PointPair {
  std::vector<double> a, b;  // 3 * kPoints each, b a rotated, translated, noisy copy of a
};

std::vector<PointPair> MakePairs() {
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> coord(-10, 10), noise(-0.05, 0.05);
  std::normal_distribution<double> gauss;
  std::vector<PointPair> pairs(kCases);
  for (PointPair &p : pairs) {
    double q[4], norm = 0;
    for (double &x : q) {
      x = gauss(rng);
      norm += x * x;
    }
    norm = std::sqrt(norm);
    const double w = q[0] / norm, x = q[1] / norm, y = q[2] / norm, z = q[3] / norm;
    const double r[9] = {1 - 2 * (y * y + z * z), 2 * (x * y - z * w),     2 * (x * z + y * w),
                         2 * (x * y + z * w),     1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
                         2 * (x * z - y * w),     2 * (y * z + x * w),     1 - 2 * (x * x + y * y)};
    p.a.resize(3 * kPoints);
    p.b.resize(3 * kPoints);
    for (double &v : p.a)
      v = coord(rng);
    for (int k = 0; k < kPoints; ++k)
      for (int i = 0; i < 3; ++i)
        p.b[3 * k + i] = r[3 * i] * p.a[3 * k] + r[3 * i + 1] * p.a[3 * k + 1] +
                         r[3 * i + 2] * p.a[3 * k + 2] + 5.0 + noise(rng);
  }
  return pairs;
}

std::vector<std::vector<double>> MakeMatrices() {
  std::mt19937_64 rng(11);
  std::uniform_real_distribution<double> u(-5, 5);
  std::vector<std::vector<double>> m(kCases, std::vector<double>(9));
  for (auto &a : m)
    for (int i = 0; i < 3; ++i)
      for (int j = i; j < 3; ++j)
        a[3 * i + j] = a[3 * j + i] = u(rng);
  return m;
}

const std::vector<PointPair> &Pairs() {
  static const std::vector<PointPair> pairs = MakePairs();
  return pairs;
}

const std::vector<std::vector<double>> &Matrices() {
  static const std::vector<std::vector<double>> m = MakeMatrices();
  return m;
}

void BM_Lsfit100(benchmark::State &state) {
  const auto &pairs = Pairs();
  double cb[3], ca[3], rot[9], rms;
  size_t i = 0;
  for (auto _ : state) {
    const PointPair &p = pairs[i++ % kCases];
    QX_3DGEOM_LSFIT(kPoints, p.a.data(), p.b.data(), nullptr, cb, ca, rot, &rms);
    benchmark::DoNotOptimize(rot);
    benchmark::DoNotOptimize(rms);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Lsfit100);

void BM_SymmEigensys3(benchmark::State &state) {
  auto matrices = Matrices();
  double values[3], vectors[9];
  size_t i = 0;
  for (auto _ : state) {
    UTL_GEOM_SYMM_EIGENSYS(matrices[i++ % kCases].data(), 3, values, vectors, nullptr);
    benchmark::DoNotOptimize(values);
    benchmark::DoNotOptimize(vectors);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SymmEigensys3);

void BM_Grand(benchmark::State &state) {
  UTL_MATH_SRAND(1);
  for (auto _ : state)
    benchmark::DoNotOptimize(UTL_MATH_GRAND());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Grand);

#ifdef QX_BENCH_HAVE_EIGEN

// Eigen's point sets are 3 x n column matrices, built once outside the loop.
void BM_EigenUmeyama100(benchmark::State &state) {
  std::vector<Eigen::Matrix3Xd> as, bs;
  for (const PointPair &p : Pairs()) {
    as.emplace_back(Eigen::Map<const Eigen::Matrix3Xd>(p.a.data(), 3, kPoints));
    bs.emplace_back(Eigen::Map<const Eigen::Matrix3Xd>(p.b.data(), 3, kPoints));
  }
  size_t i = 0;
  for (auto _ : state) {
    const size_t k = i++ % kCases;
    // The transform taking b onto a, as QX_3DGEOM_LSFIT computes it.
    Eigen::Matrix4d t = Eigen::umeyama(bs[k], as[k], false);
    benchmark::DoNotOptimize(t);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EigenUmeyama100);

void BM_EigenSelfAdjoint3(benchmark::State &state) {
  std::vector<Eigen::Matrix3d> ms;
  for (const auto &a : Matrices())
    ms.emplace_back(Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(a.data()));
  Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver;
  size_t i = 0;
  for (auto _ : state) {
    solver.compute(ms[i++ % kCases]);
    benchmark::DoNotOptimize(solver.eigenvalues());
    benchmark::DoNotOptimize(solver.eigenvectors());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EigenSelfAdjoint3);

#endif  // QX_BENCH_HAVE_EIGEN

}  // namespace

BENCHMARK_MAIN();
