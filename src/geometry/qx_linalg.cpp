// qx_linalg: the symmetric eigensolver and the positive-definite solver.
//
// The eigensolver is the cyclic Jacobi method with threshold sweeps. It reads
// the diagonal and the strict upper triangle of the caller's matrix and
// annihilates the upper elements in place; the lower triangle is never touched
// and serves to restore the upper one on success. Eigenvalues are kept in the
// output array throughout (d_p -= t a_pq, d_q += t a_pq at every rotation),
// the eigenvectors accumulate as the columns of the output matrix. The loop
// order, thresholds and floating-point tests are those the fitting code and
// its callers were tuned against, and are kept as they are: the first three
// sweeps rotate only elements above 0.2 * sum / n^2, and from the sixth sweep
// on an element negligible against both diagonal entries is zeroed without
// rotating. The common 3 x 3 case runs through the same template with the
// size fixed at compile time, so both give identical bits.
//
// The solver is Doolittle elimination without pivoting: the matrix is
// overwritten by the unit lower factor and the upper factor, with L taken as
// the mirror of U's rows divided by the pivot (which presumes symmetry).
#include <cmath>
#include <cstddef>

#include "common/error_record.h"
#include "qx_linalg.h"

namespace qx::linalg {
namespace {

constexpr int kMaxSweeps = 50;
constexpr int kThresholdSweeps = 3;    // sweeps 0..2 use the threshold
constexpr int kLastRotatingSweep = 4;  // from sweep 5 on, negligible elements are zeroed
constexpr double kThresholdFactor = 0.2;
constexpr double kNegligibleFactor = 100.0;
constexpr double kPivotLimit = 1e-10;

constexpr ErrorRecord kBadMatrix{"UTL", "GEOM", kFatal, "BAD_MATRIX"};
constexpr ErrorRecord kSingular{"QX_UTL", "LINALG", kError, "Singular Matrix"};

// The Jacobi rotation applied to one pair of elements.
struct Rotation {
  double s;
  double tau;
  void Apply(double &x, double &y) const {
    const double g = x;
    const double h = y;
    x = g - s * (h + g * tau);
    y = h + s * (g - h * tau);
  }
};

// Annihilates a(p, q) (which must be non-zero) and updates the eigenvalue
// estimates, the rest of the upper triangle and the eigenvector columns.
template <int kFixed>
void Rotate(double *a, int n_runtime, double *d, double *v, int p, int q, double g) {
  const int n = kFixed > 0 ? kFixed : n_runtime;
  double &apq = a[p * n + q];
  const double h = d[q] - d[p];
  double t;
  if (std::fabs(h) + g == std::fabs(h)) {
    t = apq / h;
  } else {
    const double theta = 0.5 * h / apq;
    t = 1.0 / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
    if (theta < 0.0) t = -t;
  }
  // When t^2 + 1 rounds to 1 (|t| below about 1e-8, the rule in the late
  // sweeps) the general formulas give exactly c = 1, s = t, tau = t / 2:
  // sqrt(1) and 1/1 are exact and halving is exact. Taking that shortcut
  // saves a square root and two divisions without changing a bit.
  const double t2p1 = t * t + 1.0;
  Rotation rot{t, 0.5 * t};
  if (t2p1 != 1.0) {
    const double c = 1.0 / std::sqrt(t2p1);
    rot.s = t * c;
    rot.tau = rot.s / (1.0 + c);
  }
  const double dh = t * apq;
  d[p] -= dh;
  d[q] += dh;
  apq = 0.0;
  for (int j = 0; j < p; ++j)
    rot.Apply(a[j * n + p], a[j * n + q]);
  for (int j = p + 1; j < q; ++j)
    rot.Apply(a[p * n + j], a[j * n + q]);
  for (int j = q + 1; j < n; ++j)
    rot.Apply(a[p * n + j], a[q * n + j]);
  for (int j = 0; j < n; ++j)
    rot.Apply(v[j * n + p], v[j * n + q]);
}

// Ascending selection sort of the values with their columns; among equal
// values the later one wins the position (the test is <=).
void SortAscending(int n, double *d, double *v) {
  for (int i = 0; i + 1 < n; ++i) {
    int k = i;
    double smallest = d[i];
    for (int j = i + 1; j < n; ++j) {
      if (d[j] <= smallest) {
        k = j;
        smallest = d[j];
      }
    }
    if (k == i) continue;
    d[k] = d[i];
    d[i] = smallest;
    for (int r = 0; r < n; ++r) {
      const double tmp = v[r * n + i];
      v[r * n + i] = v[r * n + k];
      v[r * n + k] = tmp;
    }
  }
}

// Sweeps until the upper triangle vanishes; false after kMaxSweeps.
template <int kFixed>
bool Sweep(double *a, int n_runtime, double *d, double *v, int &rotations) {
  const int n = kFixed > 0 ? kFixed : n_runtime;
  for (int sweep = 0; sweep < kMaxSweeps; ++sweep) {
    double sm = 0.0;
    for (int p = 0; p + 1 < n; ++p)
      for (int q = p + 1; q < n; ++q)
        sm += std::fabs(a[p * n + q]);
    if (sm == 0.0) return true;
    const double threshold =
        sweep < kThresholdSweeps ? kThresholdFactor * sm / (static_cast<double>(n) * n) : 0.0;
    for (int p = 0; p + 1 < n; ++p) {
      for (int q = p + 1; q < n; ++q) {
        double &apq = a[p * n + q];
        const double g = kNegligibleFactor * std::fabs(apq);
        if (sweep > kLastRotatingSweep && std::fabs(d[p]) + g == std::fabs(d[p]) &&
            std::fabs(d[q]) + g == std::fabs(d[q])) {
          apq = 0.0;
        } else if (std::fabs(apq) > threshold) {
          Rotate<kFixed>(a, n, d, v, p, q, g);
          ++rotations;
        }
      }
    }
  }
  return false;
}

// The whole decomposition on arrays of size n. Restores the upper triangle
// and sorts on success.
template <int kFixed>
bool Decompose(double *a, int n_runtime, double *d, double *v, int &rotations) {
  const int n = kFixed > 0 ? kFixed : n_runtime;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j)
      v[i * n + j] = i == j ? 1.0 : 0.0;
    d[i] = a[i * n + i];
  }
  rotations = 0;
  if (n >= 2 && !Sweep<kFixed>(a, n, d, v, rotations)) return false;
  for (int p = 0; p + 1 < n; ++p)
    for (int q = p + 1; q < n; ++q)
      a[p * n + q] = a[q * n + p];
  SortAscending(n, d, v);
  return true;
}

// The 3 x 3 case works on local copies: with no possible aliasing between
// the caller's arrays the compiler keeps them in registers. The arithmetic
// is the same template, so the results are identical to the general path.
bool Decompose3(double *a, double *d, double *v, int &rotations) {
  double la[9], ld[3], lv[9];
  for (int i = 0; i < 9; ++i)
    la[i] = a[i];
  const bool ok = Decompose<3>(la, 3, ld, lv, rotations);
  for (int i = 0; i < 9; ++i) {
    a[i] = la[i];
    v[i] = lv[i];
  }
  for (int i = 0; i < 3; ++i)
    d[i] = ld[i];
  return ok;
}

// Row k of U, then column k of L; false when the pivot is too small.
bool FactorStep(double *m, std::size_t n, std::size_t k) {
  for (std::size_t j = k; j < n; ++j) {
    double sum = m[k * n + j];
    for (std::size_t i = 0; i < k; ++i)
      sum -= m[k * n + i] * m[i * n + j];
    m[k * n + j] = sum;
  }
  const double pivot = m[k * n + k];
  if (!(std::fabs(pivot) >= kPivotLimit)) return false;  // also catches NaN
  for (std::size_t i = k + 1; i < n; ++i)
    m[i * n + k] = m[k * n + i] / pivot;
  return true;
}

void Substitute(const double *m, std::size_t n, double *b) {
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < i; ++j)
      b[i] -= m[i * n + j] * b[j];
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = i + 1; j < n; ++j)
      b[i] -= m[i * n + j] * b[j];
    b[i] /= m[i * n + i];
  }
}

}  // namespace
}  // namespace qx::linalg

using namespace qx::linalg;

extern "C" {

int UTL_GEOM_SYMM_EIGENSYS(double *a, int n, double *values, double *vectors, int *rotations) {
  int count = 0;
  const bool ok =
      n == 3 ? Decompose3(a, values, vectors, count) : Decompose<0>(a, n, values, vectors, count);
  if (rotations != nullptr) *rotations = count;
  return ok ? 1 : Fail(kBadMatrix, "UTL_GEOM_SYMM_EIGENSYS", 0);
}

int QX_LINALG_SIMUL_EQS_SPD(double *matrix, int n, double *b) {
  if (n <= 0) return 1;
  const auto size = static_cast<std::size_t>(n);
  for (std::size_t k = 0; k < size; ++k) {
    if (!FactorStep(matrix, size, k)) {
      qx::RecordError(kSingular, "SIMUL_EQS_SPD");
      return qx::TraceAndFail("QX_LINALG_SIMUL_EQS_SPD", 0);
    }
  }
  Substitute(matrix, size, b);
  return 1;
}

}  // extern "C"
