// Eigensolver, fitting, superposition and the SPD solver. Results are checked
// independently wherever possible: A v = lambda v, M x = b, recovered
// rotations of rotated copies, distances computed another way; the failure
// rows check the exact error records.
#include "qx_linalg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

using Vec = std::vector<double>;

std::mt19937_64 &Rng() {
  static std::mt19937_64 rng(20261121);
  return rng;
}

double Uniform(double lo, double hi) {
  return std::uniform_real_distribution<double>(lo, hi)(Rng());
}

Vec RandomSymmetric(int n) {
  Vec a(n * n);
  for (int i = 0; i < n; ++i)
    for (int j = i; j < n; ++j)
      a[i * n + j] = a[j * n + i] = Uniform(-5, 5);
  return a;
}

double Det3(const double *m) {
  return m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
         m[2] * (m[3] * m[7] - m[4] * m[6]);
}

// A random proper rotation from a random unit quaternion.
Vec RandomRotation() {
  std::normal_distribution<double> g;
  double q[4], norm = 0;
  for (double &x : q) {
    x = g(Rng());
    norm += x * x;
  }
  norm = std::sqrt(norm);
  const double w = q[0] / norm, x = q[1] / norm, y = q[2] / norm, z = q[3] / norm;
  return {1 - 2 * (y * y + z * z), 2 * (x * y - z * w),     2 * (x * z + y * w),
          2 * (x * y + z * w),     1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
          2 * (x * z - y * w),     2 * (y * z + x * w),     1 - 2 * (x * x + y * y)};
}

// A rotation by `angle` radians about a random axis.
Vec SmallRotation(double angle) {
  double k[3], norm = 0;
  for (double &x : k) {
    x = Uniform(-1, 1);
    norm += x * x;
  }
  norm = std::sqrt(norm);
  for (double &x : k)
    x /= norm;
  const double c = std::cos(angle), s = std::sin(angle), v = 1 - c;
  return {c + k[0] * k[0] * v,        k[0] * k[1] * v - k[2] * s, k[0] * k[2] * v + k[1] * s,
          k[1] * k[0] * v + k[2] * s, c + k[1] * k[1] * v,        k[1] * k[2] * v - k[0] * s,
          k[2] * k[0] * v - k[1] * s, k[2] * k[1] * v + k[0] * s, c + k[2] * k[2] * v};
}

// p -> R p + t for every point.
Vec Transform(const Vec &pts, const Vec &r, const double *t) {
  Vec out(pts.size());
  for (size_t k = 0; k < pts.size(); k += 3)
    for (int i = 0; i < 3; ++i)
      out[k + i] = r[3 * i] * pts[k] + r[3 * i + 1] * pts[k + 1] + r[3 * i + 2] * pts[k + 2] + t[i];
  return out;
}

Vec RandomPoints(int n, double spread) {
  Vec p(3 * n);
  for (double &x : p)
    x = Uniform(-spread, spread);
  return p;
}

void ExpectOrthonormal(const double *m, int n, double tol) {
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      double dot = 0;
      for (int k = 0; k < n; ++k)
        dot += m[k * n + i] * m[k * n + j];
      EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, tol) << i << "," << j;
    }
}

std::string Identity() {
  return qxtest::TopIdentity();
}

// The two uniqueness messages are longer than the stack's 31-character code
// field and are stored cut; they still differ.
const std::string kLineNotUnique =
    "QX/3D_GEOM/ERROR/" + std::string("Least Squares Line is not Unique").substr(0, 31);
const std::string kPlaneNotUnique =
    "QX/3D_GEOM/ERROR/" + std::string("Least Squares Plane is not unique").substr(0, 31);

// ---- eigensolver -----------------------------------------------------------

TEST(SymmEigensys, RandomMatricesSatisfyAvEqualsLambdaV) {
  constexpr int kSizes[] = {2, 3, 4, 5, 7, 10, 16};
  for (int n : kSizes) {
    for (int trial = 0; trial < 20; ++trial) {
      Vec a = RandomSymmetric(n), copy = a, values(n), vectors(n * n);
      int rotations = -1;
      ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), n, values.data(), vectors.data(), &rotations), 1);
      EXPECT_EQ(a, copy) << "the caller's matrix must come back unchanged";
      EXPECT_GT(rotations, 0);
      for (int j = 0; j < n; ++j) {
        if (j > 0) {
          EXPECT_LE(values[j - 1], values[j]);
        }
        for (int i = 0; i < n; ++i) {
          double av = 0;
          for (int k = 0; k < n; ++k)
            av += copy[i * n + k] * vectors[k * n + j];
          EXPECT_NEAR(av, values[j] * vectors[i * n + j], 1e-11) << "n " << n;
        }
      }
      ExpectOrthonormal(vectors.data(), n, 1e-12);
      double trace = 0, sum = 0;
      for (int i = 0; i < n; ++i)
        trace += copy[i * n + i], sum += values[i];
      EXPECT_NEAR(trace, sum, 1e-11);
    }
  }
}

TEST(SymmEigensys, DiagonalMatricesSortWithoutRotating) {
  struct Row {
    double diag[3];
    double values[3];
    double vectors[9];
  };
  // Of equal eigenvalues the later one is taken first by the selection sort.
  constexpr Row kRows[] = {
      {{3, 1, 2}, {1, 2, 3}, {0, 0, 1, 1, 0, 0, 0, 1, 0}},
      {{1, 2, 3}, {1, 2, 3}, {1, 0, 0, 0, 1, 0, 0, 0, 1}},
      {{2, 2, 1}, {1, 2, 2}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
      {{5, 5, 5}, {5, 5, 5}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
      {{-1, 0, -1}, {-1, -1, 0}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
  };
  for (const Row &r : kRows) {
    double a[9] = {r.diag[0], 0, 0, 0, r.diag[1], 0, 0, 0, r.diag[2]};
    double values[3], vectors[9];
    int rotations = -1;
    ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a, 3, values, vectors, &rotations), 1);
    EXPECT_EQ(rotations, 0);
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(values[i], r.values[i]);
    for (int i = 0; i < 9; ++i)
      EXPECT_EQ(vectors[i], r.vectors[i])
          << "diag " << r.diag[0] << r.diag[1] << r.diag[2] << " at " << i;
  }
}

TEST(SymmEigensys, SmallSizes) {
  double one = 4.5, value = 0, vector = 0;
  int rotations = -1;
  EXPECT_EQ(UTL_GEOM_SYMM_EIGENSYS(&one, 1, &value, &vector, &rotations), 1);
  EXPECT_EQ(value, 4.5);
  EXPECT_EQ(vector, 1.0);
  EXPECT_EQ(rotations, 0);
  EXPECT_EQ(UTL_GEOM_SYMM_EIGENSYS(nullptr, 0, nullptr, nullptr, &rotations), 1);

  double a[4] = {2, 1, 1, 2}, values[2], vectors[4];
  EXPECT_EQ(UTL_GEOM_SYMM_EIGENSYS(a, 2, values, vectors, nullptr), 1);
  EXPECT_NEAR(values[0], 1.0, 1e-15);
  EXPECT_NEAR(values[1], 3.0, 1e-15);
  EXPECT_NEAR(std::fabs(vectors[0]), M_SQRT1_2, 1e-15);
  EXPECT_NEAR(vectors[0], -vectors[2], 1e-15);  // (1, -1) / sqrt 2 up to sign
}

TEST(SymmEigensys, ReadsOnlyTheUpperTriangleAndRestoresItFromTheLower) {
  Vec sym = RandomSymmetric(4), a = sym;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < i; ++j)
      a[i * 4 + j] = 100.0 + i + j;  // garbage below
  Vec values(4), vectors(16), ref_values(4), ref_vectors(16);
  Vec sym_copy = sym;
  ASSERT_EQ(
      UTL_GEOM_SYMM_EIGENSYS(sym_copy.data(), 4, ref_values.data(), ref_vectors.data(), nullptr),
      1);
  ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), 4, values.data(), vectors.data(), nullptr), 1);
  EXPECT_EQ(values, ref_values);
  EXPECT_EQ(vectors, ref_vectors);
  for (int i = 0; i < 4; ++i)
    for (int j = i + 1; j < 4; ++j)
      EXPECT_EQ(a[i * 4 + j], a[j * 4 + i]);
}

TEST(SymmEigensys, NonFiniteMatrixFailsAfterFiftySweeps) {
  struct Row {
    double a[9];
  };
  constexpr Row kRows[] = {{{1, NAN, 0, NAN, 2, 0.5, 0, 0.5, 3}},
                           {{NAN, 1, 0, 1, 2, 0.5, 0, 0.5, 3}},
                           {{1, 0.1, 0.2, 0.1, 2, 0.5, 0.2, 0.5, NAN}}};
  for (const Row &r : kRows) {
    UTL_ERROR_CLEAR();
    double a[9], values[3], vectors[9];
    std::copy(r.a, r.a + 9, a);
    EXPECT_EQ(UTL_GEOM_SYMM_EIGENSYS(a, 3, values, vectors, nullptr), 0);
    EXPECT_EQ(Identity(), "UTL/GEOM/FATAL/BAD_MATRIX");
    ASSERT_EQ(qxtest::TopError().traces.size(), 1u);
    EXPECT_EQ(qxtest::TopError().traces[0], "UTL_GEOM_SYMM_EIGENSYS");
  }
}

// ---- principal axes -------------------------------------------------------

TEST(PrinAxis, AxesDiagonaliseTheWeightedSpread) {
  const Vec r = RandomRotation();
  const double t[3] = {4, -2, 7};
  Vec local(3 * 40);
  for (int k = 0; k < 40; ++k) {  // an ellipsoidal cloud with semi-axes 1, 3, 9
    local[3 * k] = Uniform(-1, 1);
    local[3 * k + 1] = Uniform(-3, 3);
    local[3 * k + 2] = Uniform(-9, 9);
  }
  const Vec pts = Transform(local, r, t);
  Vec w(40);
  for (double &x : w)
    x = Uniform(0.5, 2);
  double centre[3], values[3], axes[9];
  ASSERT_EQ(UTL_GEOM_PRIN_AXIS(40, pts.data(), w.data(), centre, values, axes), 1);
  double total = 0, c[3] = {0, 0, 0};
  for (int k = 0; k < 40; ++k) {
    total += w[k];
    for (int i = 0; i < 3; ++i)
      c[i] += w[k] * pts[3 * k + i];
  }
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(centre[i], c[i] / total, 1e-12);
  // Row j is a unit axis; the weighted spread along it is values[j], and
  // across two different axes it vanishes.
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) {
      double spread = 0;
      for (int k = 0; k < 40; ++k) {
        double pa = 0, pb = 0;
        for (int i = 0; i < 3; ++i) {
          pa += (pts[3 * k + i] - centre[i]) * axes[3 * a + i];
          pb += (pts[3 * k + i] - centre[i]) * axes[3 * b + i];
        }
        spread += w[k] * pa * pb;
      }
      EXPECT_NEAR(spread, a == b ? values[a] : 0.0, 1e-9);
    }
  }
  // The longest semi-axis (local z) is the last row.
  EXPECT_NEAR(std::fabs(axes[6] * r[2] + axes[7] * r[5] + axes[8] * r[8]), 1.0, 0.05);
}

TEST(PrinAxis, DoubledWeightEqualsRepeatedPoint) {
  const Vec pts = RandomPoints(6, 5);
  Vec repeated = pts;
  repeated.insert(repeated.end(), pts.begin(), pts.begin() + 3);
  const double w[6] = {2, 1, 1, 1, 1, 1};
  double c1[3], v1[3], a1[9], c2[3], v2[3], a2[9];
  ASSERT_EQ(UTL_GEOM_PRIN_AXIS(6, pts.data(), w, c1, v1, a1), 1);
  ASSERT_EQ(UTL_GEOM_PRIN_AXIS(7, repeated.data(), nullptr, c2, v2, a2), 1);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(c1[i], c2[i], 1e-12);
    EXPECT_NEAR(v1[i], v2[i], 1e-10);
  }
  for (int i = 0; i < 9; ++i)
    EXPECT_NEAR(std::fabs(a1[i]), std::fabs(a2[i]), 1e-9);
}

TEST(PrinAxis, Failures) {
  const Vec pts = RandomPoints(3, 1);
  double c[3], v[3], a[9];
  EXPECT_EQ(UTL_GEOM_PRIN_AXIS(2, pts.data(), nullptr, c, v, a), 0);
  EXPECT_EQ(Identity(), "UTL/GEOM/FATAL/INSUFF_POINTS");
  EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"UTL_GEOM_PRIN_AXIS"});
  UTL_ERROR_CLEAR();

  Vec bad = pts;
  bad[4] = NAN;
  EXPECT_EQ(UTL_GEOM_PRIN_AXIS(3, bad.data(), nullptr, c, v, a), 0);
  EXPECT_EQ(Identity(), "UTL/GEOM/FATAL/BAD_MATRIX");
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"UTL_GEOM_SYMM_EIGENSYS", "UTL_GEOM_PRIN_AXIS"}));
}

// ---- best line and plane --------------------------------------------------

double PointLineDistance(const double *p, const double *line) {
  const double d[3] = {p[0] - line[0], p[1] - line[1], p[2] - line[2]};
  const double *u = line + 3;
  const double c[3] = {d[1] * u[2] - d[2] * u[1], d[2] * u[0] - d[0] * u[2],
                       d[0] * u[1] - d[1] * u[0]};
  return std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]);
}

TEST(BestLine, NoisyLineIsRecovered) {
  const double dir[3] = {2 / 7.0, 3 / 7.0, 6 / 7.0}, origin[3] = {1, -1, 2};
  for (int n : {2, 3, 10, 50}) {
    Vec pts(3 * n);
    for (int k = 0; k < n; ++k) {
      const double s = Uniform(-10, 10);
      for (int i = 0; i < 3; ++i)
        pts[3 * k + i] = origin[i] + s * dir[i] + (n > 2 ? Uniform(-0.01, 0.01) : 0.0);
    }
    double line[6], residual = -1;
    ASSERT_EQ(QX_3DGEOM_BEST_LINE(n, pts.data(), line, &residual), 1) << n;
    EXPECT_NEAR(std::fabs(line[3] * dir[0] + line[4] * dir[1] + line[5] * dir[2]), 1.0, 1e-5);
    EXPECT_NEAR(line[3] * line[3] + line[4] * line[4] + line[5] * line[5], 1.0, 1e-14);
    double sum = 0;
    for (int k = 0; k < n; ++k) {
      const double d = PointLineDistance(&pts[3 * k], line);
      sum += d * d;
    }
    // The point-to-line rule subtracts squares, so tiny distances carry
    // an absolute error near 1e-7.
    EXPECT_NEAR(residual, std::sqrt(sum), 1e-6) << n;
    if (n == 2) {
      EXPECT_NEAR(residual, 0.0, 1e-6);
    }
  }
}

TEST(BestLine, TwoPointsOnAnAxisHaveZeroResidual) {
  const double pts[6] = {1, 2, 3, 1, 2, 7};
  double line[6], residual = -1;
  ASSERT_EQ(QX_3DGEOM_BEST_LINE(2, pts, line, &residual), 1);
  EXPECT_EQ(residual, 0.0);
  EXPECT_EQ(line[0], 1.0);
  EXPECT_EQ(line[2], 5.0);
  EXPECT_EQ(std::fabs(line[5]), 1.0);
}

TEST(BestPlane, NoisyPlaneIsRecovered) {
  const double normal[3] = {2 / 3.0, -1 / 3.0, 2 / 3.0};
  const double u[3] = {1 / std::sqrt(2.0), 0, -1 / std::sqrt(2.0)};
  const double v[3] = {normal[1] * u[2] - normal[2] * u[1], normal[2] * u[0] - normal[0] * u[2],
                       normal[0] * u[1] - normal[1] * u[0]};
  for (int n : {4, 8, 60}) {
    Vec pts(3 * n);
    for (int k = 0; k < n; ++k) {
      const double s = Uniform(-5, 5), t = Uniform(-3, 3), h = Uniform(-0.01, 0.01);
      for (int i = 0; i < 3; ++i)
        pts[3 * k + i] = 3 + s * u[i] + t * v[i] + h * normal[i];
    }
    double plane[6], residual = -1;
    ASSERT_EQ(QX_3DGEOM_BEST_PLANE(n, pts.data(), plane, &residual), 1) << n;
    EXPECT_NEAR(std::fabs(plane[3] * normal[0] + plane[4] * normal[1] + plane[5] * normal[2]), 1.0,
                1e-3);
    double sum = 0;
    for (int k = 0; k < n; ++k) {
      double h = 0;
      for (int i = 0; i < 3; ++i)
        h += (pts[3 * k + i] - plane[i]) * plane[3 + i];
      sum += h * h;
    }
    EXPECT_NEAR(residual, std::sqrt(sum), 1e-12);
    EXPECT_LT(residual, 0.01 * std::sqrt(n));
  }
}

TEST(BestPlane, ThreePointsUseTheCrossProduct) {
  const double pts[9] = {0, 0, 1, 2, 0, 1, 0, 4, 1};
  double plane[6], residual = -1;
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(3, pts, plane, &residual), 1);
  const double expected[6] = {2 / 3.0, 4 / 3.0, 1, 0, 0, 1};
  for (int i = 0; i < 6; ++i)
    EXPECT_DOUBLE_EQ(plane[i], expected[i]);
  EXPECT_EQ(residual, 0.0);
  // Reversing the order flips the normal.
  const double reversed[9] = {0, 4, 1, 2, 0, 1, 0, 0, 1};
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(3, reversed, plane, nullptr), 1);
  EXPECT_EQ(plane[5], -1.0);
}

TEST(BestFit, DegenerateInputRows) {
  struct Row {
    const char *what;
    bool plane;  // else line
    std::vector<double> pts;
    std::string error;  // "" means 0 without a recorded error
  };
  std::vector<double> circle, line5;
  for (int k = 0; k < 12; ++k) {
    const double a = k * M_PI / 6;
    circle.insert(circle.end(), {3 * std::cos(a), 3 * std::sin(a), 1.0});
  }
  for (int k = 0; k < 5; ++k)
    line5.insert(line5.end(), {1.0 * k, 2.0 * k, -1.0 * k});
  const Row kRows[] = {
      {"line of one point", false, {1, 2, 3}, ""},
      {"line of no points", false, {}, ""},
      {"line through a circle", false, circle, kLineNotUnique},
      {"plane of two points", true, {0, 0, 0, 1, 1, 1}, ""},
      {"plane of three colinear points", true, {0, 0, 0, 1, 1, 1, 3, 3, 3}, ""},
      {"plane of three nearly colinear points", true, {0, 0, 0, 1, 0, 0, 2, 4e-6, 0}, ""},
      {"plane of evenly spaced points on a line", true, line5, kPlaneNotUnique},
  };
  for (const Row &r : kRows) {
    UTL_ERROR_CLEAR();
    double out[6], residual;
    const int n = static_cast<int>(r.pts.size() / 3);
    const int ok = r.plane ? QX_3DGEOM_BEST_PLANE(n, r.pts.data(), out, &residual)
                           : QX_3DGEOM_BEST_LINE(n, r.pts.data(), out, &residual);
    EXPECT_EQ(ok, 0) << r.what;
    EXPECT_EQ(Identity(), r.error) << r.what;
    if (!r.error.empty()) {
      EXPECT_EQ(qxtest::TopError().traces,
                std::vector<std::string>{r.plane ? "QX_3DGEOM_BEST_PLANE" : "QX_3DGEOM_BEST_LINE"});
    }
  }
}

TEST(BestFit, EigenFailureReplacesEarlierErrors) {
  struct Row {
    const char *routine;
    int (*call)(double *pts);
  };
  const Row kRows[] = {
      {"QX_3DGEOM_BEST_LINE",
       [](double *p) {
         double o[6], r;
         return QX_3DGEOM_BEST_LINE(4, p, o, &r);
       }},
      {"QX_3DGEOM_BEST_PLANE",
       [](double *p) {
         double o[6], r;
         return QX_3DGEOM_BEST_PLANE(4, p, o, &r);
       }},
      {"QX_3DGEOM_PROJ_PTS_TO_2D", [](double *p) { return QX_3DGEOM_PROJ_PTS_TO_2D(4, p); }},
  };
  for (const Row &r : kRows) {
    UTL_ERROR_CLEAR();
    UTL_ERROR_SET("APP", "EARLIER", "WARNING", "PENDING", "caller");
    double pts[12] = {0, 0, 0, 1, 0, 0, 0, 1, NAN, 1, 1, 1};
    EXPECT_EQ(r.call(pts), 0) << r.routine;
    EXPECT_EQ(Identity(), "QX/3D_GEOM/ERROR/Unable to resolve Matrix") << r.routine;
    EXPECT_EQ(qxtest::StackTop(), 0) << "only the geometric message remains";
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{r.routine});
  }
}

// ---- projection -----------------------------------------------------------

TEST(ProjPts, SmallCounts) {
  double none[3] = {7, 8, 9};
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(0, none), 1);
  EXPECT_EQ(none[0], 7.0);
  double one[3] = {7, 8, 9};
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(1, one), 1);
  for (double x : one)
    EXPECT_EQ(x, 0.0);
  EXPECT_FALSE(std::signbit(one[0]));
  double two[6] = {1, 1, 1, 3, 4, 7};  // 7 apart
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(2, two), 1);
  const double expected[6] = {-3.5, 0, 0, 3.5, 0, 0};
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(two[i], expected[i]);

  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(-1, none), 0);
  EXPECT_EQ(Identity(), "QX/3D_GEOM/ERROR/Invalid Number of Points");
}

TEST(ProjPts, PlanarSetsKeepTheirDistances) {
  // Points in a horizontal plane: the projection is a rigid motion in x, y
  // and every output z is minus the mean z.
  for (double height : {0.0, 5.0, -2.5}) {
    const int n = 9;
    Vec pts(3 * n);
    for (int k = 0; k < n; ++k) {
      pts[3 * k] = Uniform(-4, 4);
      pts[3 * k + 1] = Uniform(-1, 1);
      pts[3 * k + 2] = height;
    }
    Vec out = pts;
    ASSERT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(n, out.data()), 1);
    double spread_x = 0, spread_y = 0;
    for (int k = 0; k < n; ++k) {
      EXPECT_NEAR(out[3 * k + 2], -height, 1e-12);
      spread_x += out[3 * k] * out[3 * k];
      spread_y += out[3 * k + 1] * out[3 * k + 1];
      for (int m = 0; m < k; ++m) {
        const double dx0 = pts[3 * k] - pts[3 * m], dy0 = pts[3 * k + 1] - pts[3 * m + 1];
        const double dx1 = out[3 * k] - out[3 * m], dy1 = out[3 * k + 1] - out[3 * m + 1];
        EXPECT_NEAR(dx0 * dx0 + dy0 * dy0, dx1 * dx1 + dy1 * dy1, 1e-9);
      }
    }
    EXPECT_GT(spread_x, spread_y) << "x runs along the main axis";
  }
}

TEST(ProjPts, ThirdCoordinateIgnoresTheOwnZ) {
  // Mean z 5, but the points are not in a horizontal plane: the output z is
  // still -5 everywhere, and x, y use -mz in place of z - mz.
  double pts[12] = {0, 0, 4, 2, 0, 6, 0, 1, 5, 2, 1, 5};
  ASSERT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(4, pts), 1);
  for (int k = 0; k < 4; ++k)
    EXPECT_EQ(pts[3 * k + 2], -5.0);
}

// ---- superposition ----------------------------------------------------------

void ExpectRotationNear(const double *r, const Vec &expected, double tol) {
  for (int i = 0; i < 9; ++i)
    EXPECT_NEAR(r[i], expected[i], tol) << i;
}

TEST(Lsfit, RandomRotationsAreRecovered) {
  for (int n : {3, 4, 5, 10, 100}) {
    for (int trial = 0; trial < 20; ++trial) {
      const Vec a = RandomPoints(n, 10), r = RandomRotation();
      const double t[3] = {Uniform(-50, 50), Uniform(-50, 50), Uniform(-50, 50)};
      const Vec b = Transform(a, r, t);  // b = r a + t, so a = r^T (b - ...)
      double cb[3], ca[3], rot[9], rms = -1;
      QX_3DGEOM_LSFIT(n, a.data(), b.data(), nullptr, cb, ca, rot, &rms);
      const Vec rt = {r[0], r[3], r[6], r[1], r[4], r[7], r[2], r[5], r[8]};
      ExpectRotationNear(rot, rt, 1e-9);
      EXPECT_NEAR(Det3(rot), 1.0, 1e-12);
      EXPECT_LT(rms, 1e-9);
      // The centres map onto each other through the rotation.
      for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(cb[i], r[3 * i] * ca[0] + r[3 * i + 1] * ca[1] + r[3 * i + 2] * ca[2] + t[i],
                    1e-9);
    }
  }
}

TEST(Lsfit, IdentitySuperposition) {
  const Vec a = RandomPoints(12, 3);
  double cb[3], ca[3], rot[9], rms = -1;
  QX_3DGEOM_LSFIT(12, a.data(), a.data(), nullptr, cb, ca, rot, &rms);
  ExpectRotationNear(rot, {1, 0, 0, 0, 1, 0, 0, 0, 1}, 1e-13);
  EXPECT_NEAR(rms, 0.0, 1e-13);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(ca[i], cb[i]);
  // A set symmetric about the axes needs no rotation at all: exact results.
  const double axes[18] = {1, 0, 0, -1, 0, 0, 0, 2, 0, 0, -2, 0, 0, 0, 3, 0, 0, -3};
  QX_3DGEOM_LSFIT(6, axes, axes, nullptr, cb, ca, rot, &rms);
  EXPECT_EQ(rms, 0.0);
  ExpectRotationNear(rot, {1, 0, 0, 0, 1, 0, 0, 0, 1}, 0);
}

TEST(Lsfit, MirrorImagesStillGiveAProperRotation) {
  for (int trial = 0; trial < 20; ++trial) {
    const Vec a = RandomPoints(8, 5), r = RandomRotation();
    Vec mirrored = a;
    for (size_t k = 0; k < mirrored.size(); k += 3)
      mirrored[k] = -mirrored[k];
    const double t[3] = {1, 2, 3};
    const Vec b = Transform(mirrored, r, t);
    double cb[3], ca[3], rot[9], rms;
    QX_3DGEOM_LSFIT(8, a.data(), b.data(), nullptr, cb, ca, rot, &rms);
    EXPECT_NEAR(Det3(rot), 1.0, 1e-12);
    ExpectOrthonormal(rot, 3, 1e-12);
    EXPECT_GT(rms, 0.1);
    // No nearby proper rotation does better.
    for (int s = 0; s < 20; ++s) {
      const Vec q = SmallRotation(Uniform(-0.05, 0.05));
      double other[9] = {0}, sum = 0;
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
          for (int k = 0; k < 3; ++k)
            other[3 * i + j] += q[3 * i + k] * rot[3 * k + j];
      for (int k = 0; k < 8; ++k)
        for (int i = 0; i < 3; ++i) {
          double e = a[3 * k + i] - ca[i];
          for (int j = 0; j < 3; ++j)
            e -= other[3 * i + j] * (b[3 * k + j] - cb[j]);
          sum += e * e;
        }
      EXPECT_GE(std::sqrt(sum / 8), rms - 1e-12);
    }
  }
}

TEST(Lsfit, PlanarColinearAndDegenerateSets) {
  struct Row {
    const char *what;
    Vec local;       // points of A
    bool exact_fit;  // a rotation exists that maps B back onto A
  };
  const Row kRows[] = {
      {"planar", {0, 0, 0, 4, 0, 0, 0, 3, 0, 4, 3, 0, 1, 1, 0}, true},
      {"three points", {0, 0, 0, 1, 0, 0, 0, 2, 0}, true},
      {"colinear", {0, 0, 0, 1, 2, 3, 2, 4, 6, -1, -2, -3}, true},
      {"two points", {1, 1, 1, 2, 3, 4}, true},
      {"one point", {5, 6, 7}, true},
      {"coincident", {1, 2, 3, 1, 2, 3, 1, 2, 3}, true},
  };
  for (const Row &row : kRows) {
    for (int trial = 0; trial < 10; ++trial) {
      const int n = static_cast<int>(row.local.size() / 3);
      const Vec r = RandomRotation();
      const double t[3] = {3, -4, 5};
      const Vec b = Transform(row.local, r, t);
      double cb[3], ca[3], rot[9], rms = -1;
      QX_3DGEOM_LSFIT(n, row.local.data(), b.data(), nullptr, cb, ca, rot, &rms);
      EXPECT_NEAR(Det3(rot), 1.0, 1e-9) << row.what;
      ExpectOrthonormal(rot, 3, 1e-9);
      EXPECT_LT(rms, 1e-8) << row.what;
    }
  }
}

TEST(Lsfit, ColinearSetsTurnByTheLeastAngle) {
  // A line along x matched to the same line along y: the rotation is the
  // quarter turn about z, not some other turn that also maps the line.
  const double a[9] = {-1, 0, 0, 0, 0, 0, 2, 0, 0};
  const double b[9] = {0, -1, 0, 0, 0, 0, 0, 2, 0};
  double cb[3], ca[3], rot[9], rms;
  QX_3DGEOM_LSFIT(3, a, b, nullptr, cb, ca, rot, &rms);
  ExpectRotationNear(rot, {0, 1, 0, -1, 0, 0, 0, 0, 1}, 1e-12);
  // Reversed line: a half turn.
  const double reversed[9] = {1, 0, 0, 0, 0, 0, -2, 0, 0};
  QX_3DGEOM_LSFIT(3, a, reversed, nullptr, cb, ca, rot, &rms);
  EXPECT_NEAR(Det3(rot), 1.0, 1e-12);
  EXPECT_NEAR(rot[0], -1.0, 1e-12);
  EXPECT_NEAR(rms, 0.0, 1e-12);
}

TEST(Lsfit, WeightsSelectThePointsThatCount) {
  const Vec a = RandomPoints(10, 4), r = RandomRotation();
  const double t[3] = {0.5, 0.5, 0.5};
  Vec b = Transform(a, r, t);
  b[27] += 30;  // an outlier, point 9
  double w[10] = {1, 2, 1, 3, 1, 0.5, 1, 1, 1, 0};
  double cb[3], ca[3], rot[9], rms;
  QX_3DGEOM_LSFIT(10, a.data(), b.data(), w, cb, ca, rot, &rms);
  const Vec rt = {r[0], r[3], r[6], r[1], r[4], r[7], r[2], r[5], r[8]};
  ExpectRotationNear(rot, rt, 1e-9);
  EXPECT_LT(rms, 1e-9);
  double total = 0, wa0 = 0;
  for (int k = 0; k < 10; ++k)
    total += w[k], wa0 += w[k] * a[3 * k];
  EXPECT_NEAR(ca[0], wa0 / total, 1e-12);

  // The weighted rms against its definition, with the outlier weighted in.
  w[9] = 0.25;
  QX_3DGEOM_LSFIT(10, a.data(), b.data(), w, cb, ca, rot, &rms);
  double sum = 0;
  total = 0;
  for (int k = 0; k < 10; ++k) {
    total += w[k];
    for (int i = 0; i < 3; ++i) {
      double e = a[3 * k + i] - ca[i];
      for (int j = 0; j < 3; ++j)
        e -= rot[3 * i + j] * (b[3 * k + j] - cb[j]);
      sum += w[k] * e * e;
    }
  }
  EXPECT_NEAR(rms, std::sqrt(sum / total), 1e-12);
  EXPECT_GT(rms, 1.0);
}

TEST(Lsfit, EmptyAndFailingInput) {
  UTL_ERROR_CLEAR();
  double cb[3] = {9, 9, 9}, ca[3] = {9, 9, 9}, rot[9], rms = -1;
  QX_3DGEOM_LSFIT(0, nullptr, nullptr, nullptr, cb, ca, rot, &rms);
  ExpectRotationNear(rot, {1, 0, 0, 0, 1, 0, 0, 0, 1}, 0);
  EXPECT_EQ(rms, 0.0);
  EXPECT_EQ(ca[0], 0.0);
  EXPECT_EQ(cb[2], 0.0);

  const double a[6] = {1, 2, 3, 4, 5, 6}, zero_w[2] = {0, 0};
  QX_3DGEOM_LSFIT(2, a, a, zero_w, cb, ca, rot, nullptr);
  ExpectRotationNear(rot, {1, 0, 0, 0, 1, 0, 0, 0, 1}, 0);
  EXPECT_FALSE(UTL_ERROR_IS_SET());

  const double bad[6] = {1, 2, NAN, 4, 5, 6};
  QX_3DGEOM_LSFIT(2, a, bad, nullptr, cb, ca, rot, &rms);
  ExpectRotationNear(rot, {1, 0, 0, 0, 1, 0, 0, 0, 1}, 0);
  EXPECT_EQ(Identity(), "UTL/GEOM/FATAL/BAD_MATRIX");
  EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"UTL_GEOM_SYMM_EIGENSYS"});
}

// ---- SPD solver --------------------------------------------------------------

TEST(SimulEqsSpd, RandomSystemsAreSolved) {
  for (int n : {1, 2, 3, 5, 8, 20}) {
    for (int trial = 0; trial < 10; ++trial) {
      Vec g(n * n), m(n * n, 0.0), x(n), b(n, 0.0);
      for (double &v : g)
        v = Uniform(-1, 1);
      for (int i = 0; i < n; ++i)  // m = g g^T + I is positive definite
        for (int j = 0; j < n; ++j) {
          for (int k = 0; k < n; ++k)
            m[i * n + j] += g[i * n + k] * g[j * n + k];
          if (i == j) m[i * n + j] += 1.0;
        }
      for (double &v : x)
        v = Uniform(-3, 3);
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
          b[i] += m[i * n + j] * x[j];
      Vec factors = m;
      ASSERT_EQ(QX_LINALG_SIMUL_EQS_SPD(factors.data(), n, b.data()), 1);
      for (int i = 0; i < n; ++i)
        EXPECT_NEAR(b[i], x[i], 1e-9) << "n " << n;
      // The factors: unit lower L below the diagonal, U on and above, L U = M.
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
          double lu = 0;
          for (int k = 0; k <= std::min(i, j); ++k)
            lu += (k == i ? 1.0 : factors[i * n + k]) * factors[k * n + j];
          EXPECT_NEAR(lu, m[i * n + j], 1e-10);
        }
    }
  }
}

TEST(SimulEqsSpd, LowerTriangleIsNotRead) {
  double m[9] = {4, 1, 2, -50, 3, 0.5, 70, 99, 5};  // upper of a SPD matrix, junk below
  const double full[9] = {4, 1, 2, 1, 3, 0.5, 2, 0.5, 5};
  const double x[3] = {1, -2, 3};
  double b[3] = {0, 0, 0};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      b[i] += full[3 * i + j] * x[j];
  ASSERT_EQ(QX_LINALG_SIMUL_EQS_SPD(m, 3, b), 1);
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(b[i], x[i], 1e-12);
}

TEST(SimulEqsSpd, SmallPivotsFailWithSingularMatrix) {
  struct Row {
    const char *what;
    int n;
    double m[9];
  };
  constexpr Row kRows[] = {
      {"invertible but indefinite", 2, {0, 1, 1, 0}},
      {"zero matrix", 1, {0}},
      {"tiny pivot", 1, {9e-11}},
      {"singular", 3, {1, 2, 3, 2, 4, 6, 3, 6, 10}},
      {"second pivot vanishes", 2, {1, 1, 1, 1}},
      {"NaN", 2, {NAN, 0, 0, 1}},
  };
  for (const Row &r : kRows) {
    UTL_ERROR_CLEAR();
    double m[9], b[3] = {1, 1, 1};
    std::copy(r.m, r.m + 9, m);
    EXPECT_EQ(QX_LINALG_SIMUL_EQS_SPD(m, r.n, b), 0) << r.what;
    EXPECT_EQ(Identity(), "QX_UTL/LINALG/ERROR/Singular Matrix") << r.what;
    EXPECT_EQ(qxtest::TopError().traces,
              (std::vector<std::string>{"SIMUL_EQS_SPD", "QX_LINALG_SIMUL_EQS_SPD"}));
  }
  double b = 5;
  EXPECT_EQ(QX_LINALG_SIMUL_EQS_SPD(nullptr, 0, &b), 1);
  EXPECT_EQ(QX_LINALG_SIMUL_EQS_SPD(nullptr, -3, &b), 1);
  double tiny = -1e-10;  // exactly the limit passes
  EXPECT_EQ(QX_LINALG_SIMUL_EQS_SPD(&tiny, 1, &b), 1);
  EXPECT_DOUBLE_EQ(b, -5e10);
}

}  // namespace
