// Eigensolver, fitting, superposition and the SPD solver, checked
// independently (A v = lambda v, M x = b, rotated copies recovered, spreads
// and distances computed another way) plus the degenerate rows with their
// exact error records.
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
using Traces = std::vector<std::string>;

double Uniform(double lo, double hi) {
  static std::mt19937_64 rng(20261121);
  return std::uniform_real_distribution<double>(lo, hi)(rng);
}

Vec Random(size_t count, double spread) {
  Vec v(count);
  for (double &x : v)
    x = Uniform(-spread, spread);
  return v;
}

Vec RandomSymmetric(int n) {
  Vec a = Random(n * n, 5);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < i; ++j)
      a[i * n + j] = a[j * n + i];
  return a;
}

// A rotation by `angle` about a random axis (Rodrigues).
Vec Rotation(double angle) {
  Vec k = Random(3, 1);
  const double norm = std::sqrt(k[0] * k[0] + k[1] * k[1] + k[2] * k[2]);
  for (double &x : k)
    x /= norm;
  const double c = std::cos(angle), s = std::sin(angle), v = 1 - c;
  return {c + k[0] * k[0] * v,        k[0] * k[1] * v - k[2] * s, k[0] * k[2] * v + k[1] * s,
          k[1] * k[0] * v + k[2] * s, c + k[1] * k[1] * v,        k[1] * k[2] * v - k[0] * s,
          k[2] * k[0] * v - k[1] * s, k[2] * k[1] * v + k[0] * s, c + k[2] * k[2] * v};
}

Vec Transposed(const Vec &r) {
  return {r[0], r[3], r[6], r[1], r[4], r[7], r[2], r[5], r[8]};
}

double Det3(const double *m) {
  return m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
         m[2] * (m[3] * m[7] - m[4] * m[6]);
}

// p -> R p + t for every point.
Vec Transform(const Vec &pts, const Vec &r, const double *t) {
  Vec out(pts.size());
  for (size_t k = 0; k < pts.size(); k += 3)
    for (int i = 0; i < 3; ++i)
      out[k + i] = r[3 * i] * pts[k] + r[3 * i + 1] * pts[k + 1] + r[3 * i + 2] * pts[k + 2] + t[i];
  return out;
}

void ExpectNear(const double *got, const Vec &want, double tol, const char *what = "") {
  for (size_t i = 0; i < want.size(); ++i)
    EXPECT_NEAR(got[i], want[i], tol) << what << " at " << i;
}

// Columns of the n x n matrix m are orthonormal.
void ExpectOrthonormal(const double *m, int n, double tol) {
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      double dot = 0;
      for (int k = 0; k < n; ++k)
        dot += m[k * n + i] * m[k * n + j];
      EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, tol);
    }
}

void ExpectError(const std::string &identity, const Traces &traces, const char *what = "") {
  EXPECT_EQ(qxtest::TopIdentity(), identity) << what;
  EXPECT_EQ(qxtest::TopError().traces, traces) << what;
}

const Vec kIdentity = {1, 0, 0, 0, 1, 0, 0, 0, 1};

// ---- eigensolver -------------------------------------------------------------

TEST(SymmEigensys, RandomMatricesSatisfyAvEqualsLambdaV) {
  for (int n : {2, 3, 4, 7, 16}) {
    for (int trial = 0; trial < 20; ++trial) {
      Vec a = RandomSymmetric(n), copy = a, values(n), vectors(n * n);
      int rotations = -1;
      ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), n, values.data(), vectors.data(), &rotations), 1);
      EXPECT_EQ(a, copy) << "the caller's matrix comes back unchanged";
      EXPECT_GT(rotations, 0);
      EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
      ExpectOrthonormal(vectors.data(), n, 1e-12);
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
          double av = 0;
          for (int k = 0; k < n; ++k)
            av += copy[i * n + k] * vectors[k * n + j];
          EXPECT_NEAR(av, values[j] * vectors[i * n + j], 1e-11) << "n " << n;
        }
    }
  }
}

TEST(SymmEigensys, DiagonalMatricesSortWithoutRotating) {
  struct Row {
    double diag[3], values[3], vectors[9];
  };
  // Of equal eigenvalues the later one takes the position (the sort tests <=).
  constexpr Row kRows[] = {{{3, 1, 2}, {1, 2, 3}, {0, 0, 1, 1, 0, 0, 0, 1, 0}},
                           {{1, 2, 3}, {1, 2, 3}, {1, 0, 0, 0, 1, 0, 0, 0, 1}},
                           {{2, 2, 1}, {1, 2, 2}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
                           {{5, 5, 5}, {5, 5, 5}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
                           {{-1, 0, -1}, {-1, -1, 0}, {0, 1, 0, 0, 0, 1, 1, 0, 0}}};
  for (const Row &r : kRows) {
    double a[9] = {r.diag[0], 0, 0, 0, r.diag[1], 0, 0, 0, r.diag[2]}, values[3], vectors[9];
    int rotations = -1;
    ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a, 3, values, vectors, &rotations), 1);
    EXPECT_EQ(rotations, 0);
    ExpectNear(values, Vec(r.values, r.values + 3), 0, "values");
    ExpectNear(vectors, Vec(r.vectors, r.vectors + 9), 0, "vectors");
  }
  double one = 4.5, value = 0, vector = 0;
  EXPECT_EQ(UTL_GEOM_SYMM_EIGENSYS(&one, 1, &value, &vector, nullptr), 1);
  EXPECT_EQ(value, 4.5);
  EXPECT_EQ(vector, 1.0);
}

TEST(SymmEigensys, ReadsTheUpperTriangleAndRestoresItFromTheLower) {
  Vec sym = RandomSymmetric(4), a = sym, v1(4), w1(16), v2(4), w2(16);
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < i; ++j)
      a[i * 4 + j] = 100.0 + i + j;  // junk below
  ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(sym.data(), 4, v1.data(), w1.data(), nullptr), 1);
  ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), 4, v2.data(), w2.data(), nullptr), 1);
  EXPECT_EQ(v1, v2);
  EXPECT_EQ(w1, w2);
  for (int i = 0; i < 4; ++i)
    for (int j = i + 1; j < 4; ++j)
      EXPECT_EQ(a[i * 4 + j], a[j * 4 + i]);
}

TEST(SymmEigensys, NanFailsAfterFiftySweeps) {
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
    ExpectError("UTL/GEOM/FATAL/BAD_MATRIX", {"UTL_GEOM_SYMM_EIGENSYS"});
  }
}

// ---- principal axes --------------------------------------------------------------

TEST(PrinAxis, AxesDiagonaliseTheWeightedSpread) {
  Vec local = Random(3 * 40, 1), w(40);
  for (int k = 0; k < 40; ++k)
    local[3 * k + 1] *= 3, local[3 * k + 2] *= 9, w[k] = Uniform(0.5, 2);
  const Vec r = Rotation(1.0);
  const double t[3] = {4, -2, 7};
  const Vec pts = Transform(local, r, t);
  double centre[3], values[3], axes[9], total = 0, c[3] = {0, 0, 0};
  ASSERT_EQ(UTL_GEOM_PRIN_AXIS(40, pts.data(), w.data(), centre, values, axes), 1);
  for (int k = 0; k < 40; ++k) {
    total += w[k];
    for (int i = 0; i < 3; ++i)
      c[i] += w[k] * pts[3 * k + i];
  }
  ExpectNear(centre, {c[0] / total, c[1] / total, c[2] / total}, 1e-12);
  for (int a = 0; a < 3; ++a)  // rows: spread values[a] along an axis, 0 across two
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
  EXPECT_NEAR(std::fabs(axes[6] * r[2] + axes[7] * r[5] + axes[8] * r[8]), 1.0, 0.05);
}

TEST(PrinAxis, Failures) {
  Vec pts = Random(9, 1);
  double c[3], v[3], a[9];
  EXPECT_EQ(UTL_GEOM_PRIN_AXIS(2, pts.data(), nullptr, c, v, a), 0);
  ExpectError("UTL/GEOM/FATAL/INSUFF_POINTS", {"UTL_GEOM_PRIN_AXIS"});
  UTL_ERROR_CLEAR();
  const double cancelling[3] = {1, -2, 1};
  EXPECT_EQ(UTL_GEOM_PRIN_AXIS(3, pts.data(), cancelling, c, v, a), 0);
  ExpectError("UTL/GEOM/FATAL/INSUFF_POINTS", {"UTL_GEOM_PRIN_AXIS"});
  UTL_ERROR_CLEAR();
  pts[4] = NAN;
  EXPECT_EQ(UTL_GEOM_PRIN_AXIS(3, pts.data(), nullptr, c, v, a), 0);
  ExpectError("UTL/GEOM/FATAL/BAD_MATRIX", {"UTL_GEOM_SYMM_EIGENSYS", "UTL_GEOM_PRIN_AXIS"});
}

// ---- best line and plane, projection ------------------------------------------

TEST(BestFit, NoisyLinesAndPlanesAreRecovered) {
  const double u[3] = {2 / 7.0, 3 / 7.0, 6 / 7.0}, v[3] = {-3 / 7.0, 6 / 7.0, -2 / 7.0};
  const double normal[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                            u[0] * v[1] - u[1] * v[0]};
  for (int n : {2, 4, 10, 60}) {
    Vec line_pts(3 * n), plane_pts(3 * n);
    for (int k = 0; k < n; ++k) {
      const double s = Uniform(-10, 10), t = Uniform(-3, 3), e = n > 2 ? Uniform(-0.01, 0.01) : 0;
      for (int i = 0; i < 3; ++i) {
        line_pts[3 * k + i] = 1 + s * u[i] + e * v[i];
        plane_pts[3 * k + i] = 2 + s * u[i] + t * v[i] + e * normal[i];
      }
    }
    double line[6], plane[6], line_res = -1, plane_res = -1, line_sum = 0, plane_sum = 0;
    ASSERT_EQ(QX_3DGEOM_BEST_LINE(n, line_pts.data(), line, &line_res), 1);
    EXPECT_NEAR(std::fabs(line[3] * u[0] + line[4] * u[1] + line[5] * u[2]), 1, 1e-5);
    for (int k = 0; k < n; ++k) {  // distance from the line as |d x u|
      const double *p = &line_pts[3 * k];
      const double d[3] = {p[0] - line[0], p[1] - line[1], p[2] - line[2]};
      const double c[3] = {d[1] * line[5] - d[2] * line[4], d[2] * line[3] - d[0] * line[5],
                           d[0] * line[4] - d[1] * line[3]};
      line_sum += c[0] * c[0] + c[1] * c[1] + c[2] * c[2];
    }
    EXPECT_NEAR(line_res, std::sqrt(line_sum), 1e-6);  // the rule subtracts squares
    if (n < 4) continue;
    ASSERT_EQ(QX_3DGEOM_BEST_PLANE(n, plane_pts.data(), plane, &plane_res), 1);
    EXPECT_NEAR(std::fabs(plane[3] * normal[0] + plane[4] * normal[1] + plane[5] * normal[2]), 1,
                1e-3);
    for (int k = 0; k < n; ++k) {
      double h = 0;
      for (int i = 0; i < 3; ++i)
        h += (plane_pts[3 * k + i] - plane[i]) * plane[3 + i];
      plane_sum += h * h;
    }
    EXPECT_NEAR(plane_res, std::sqrt(plane_sum), 1e-12);
  }
}

TEST(BestFit, ExactCases) {
  double out[6], residual = -1;
  const double axis_pair[6] = {1, 2, 3, 1, 2, 7};
  ASSERT_EQ(QX_3DGEOM_BEST_LINE(2, axis_pair, out, &residual), 1);
  ExpectNear(out, {1, 2, 5, 0, 0, 1}, 0);
  EXPECT_EQ(residual, 0.0);
  const double triangle[9] = {0, 0, 1, 2, 0, 1, 0, 4, 1}, reversed[9] = {0, 4, 1, 2, 0, 1, 0, 0, 1};
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(3, triangle, out, &residual), 1);  // normal from the cross product
  ExpectNear(out, {2 / 3.0, 4 / 3.0, 1, 0, 0, 1}, 1e-15);
  EXPECT_EQ(residual, 0.0);
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(3, reversed, out, nullptr), 1);
  EXPECT_EQ(out[5], -1.0);
}

TEST(BestFit, DegenerateInputRows) {
  Vec circle, line5;
  for (int k = 0; k < 12; ++k)
    circle.insert(circle.end(), {3 * std::cos(k * M_PI / 6), 3 * std::sin(k * M_PI / 6), 1});
  for (int k = 0; k < 5; ++k)
    line5.insert(line5.end(), {1.0 * k, 2.0 * k, -1.0 * k});
  // The stack keeps 31 characters of a code: the two messages are stored cut.
  const std::string line_msg =
      "QX/3D_GEOM/ERROR/" + std::string("Least Squares Line is not Unique").substr(0, 31);
  const std::string plane_msg =
      "QX/3D_GEOM/ERROR/" + std::string("Least Squares Plane is not unique").substr(0, 31);
  struct Row {
    const char *what;
    bool plane;
    Vec pts;
    std::string error;  // "" means 0 without a recorded error
  };
  const Row kRows[] = {{"line of one point", false, {1, 2, 3}, ""},
                       {"line through a circle", false, circle, line_msg},
                       {"plane of two points", true, {0, 0, 0, 1, 1, 1}, ""},
                       {"three colinear points", true, {0, 0, 0, 1, 1, 1, 3, 3, 3}, ""},
                       {"three nearly colinear points", true, {0, 0, 0, 1, 0, 0, 2, 4e-6, 0}, ""},
                       {"evenly spaced points on a line", true, line5, plane_msg}};
  for (const Row &r : kRows) {
    UTL_ERROR_CLEAR();
    double out[6], residual;
    const int n = static_cast<int>(r.pts.size() / 3);
    EXPECT_EQ(r.plane ? QX_3DGEOM_BEST_PLANE(n, r.pts.data(), out, &residual)
                      : QX_3DGEOM_BEST_LINE(n, r.pts.data(), out, &residual),
              0)
        << r.what;
    if (r.error.empty()) {
      EXPECT_EQ(qxtest::TopIdentity(), "") << r.what;
    } else {
      ExpectError(r.error, {r.plane ? "QX_3DGEOM_BEST_PLANE" : "QX_3DGEOM_BEST_LINE"}, r.what);
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
      {"QX_3DGEOM_PROJ_PTS_TO_2D", [](double *p) { return QX_3DGEOM_PROJ_PTS_TO_2D(4, p); }}};
  for (const Row &r : kRows) {
    UTL_ERROR_CLEAR();
    UTL_ERROR_SET("APP", "EARLIER", "WARNING", "PENDING", "caller");
    double pts[12] = {0, 0, 0, 1, 0, 0, 0, 1, NAN, 1, 1, 1};
    EXPECT_EQ(r.call(pts), 0) << r.routine;
    ExpectError("QX/3D_GEOM/ERROR/Unable to resolve Matrix", {r.routine}, r.routine);
    EXPECT_EQ(qxtest::StackTop(), 0) << "only the geometric message remains";
  }
}

TEST(ProjPts, SmallCountsAndTheThirdCoordinate) {
  double none[3] = {7, 8, 9}, one[3] = {7, 8, 9}, two[6] = {1, 1, 1, 3, 4, 7};  // 7 apart
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(0, none), 1);
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(1, one), 1);
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(2, two), 1);
  ExpectNear(none, {7, 8, 9}, 0);
  ExpectNear(one, {0, 0, 0}, 0);
  EXPECT_FALSE(std::signbit(one[0]));
  ExpectNear(two, {-3.5, 0, 0, 3.5, 0, 0}, 0);
  // Mean z 5 and tilted: x and y are e2 . d and e1 . d with d = (x - mx, y - my, -mz),
  // the axes taken here from the principal axes of the same points.
  const double tilted[12] = {0, 0, 4, 2, 0, 6, 0, 1, 5, 2, 1, 5};
  double out[12], c[3], values[3], axes[9];
  std::copy(tilted, tilted + 12, out);
  ASSERT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(4, out), 1);
  ASSERT_EQ(UTL_GEOM_PRIN_AXIS(4, tilted, nullptr, c, values, axes), 1);
  for (int k = 0; k < 4; ++k) {
    const double d[3] = {tilted[3 * k] - c[0], tilted[3 * k + 1] - c[1], -c[2]};
    EXPECT_NEAR(std::fabs(out[3 * k]), std::fabs(axes[6] * d[0] + axes[7] * d[1] + axes[8] * d[2]),
                1e-9);
    EXPECT_NEAR(std::fabs(out[3 * k + 1]),
                std::fabs(axes[3] * d[0] + axes[4] * d[1] + axes[5] * d[2]), 1e-9);
    EXPECT_EQ(out[3 * k + 2], -5.0);
  }
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(-1, none), 0);
  ExpectError("QX/3D_GEOM/ERROR/Invalid Number of Points", {"QX_3DGEOM_PROJ_PTS_TO_2D"});
}

// ---- superposition -------------------------------------------------------------

struct Fit {
  double cb[3], ca[3], rot[9], rms = -1;
  Fit(const Vec &a, const Vec &b, const double *w = nullptr) {
    QX_3DGEOM_LSFIT(static_cast<int>(a.size() / 3), a.data(), b.data(), w, cb, ca, rot, &rms);
  }
};

TEST(Lsfit, RandomRotationsAreRecovered) {
  for (int n : {3, 4, 10, 100}) {
    for (int trial = 0; trial < 20; ++trial) {
      const Vec a = Random(3 * n, 10), r = Rotation(Uniform(-M_PI, M_PI));
      const double t[3] = {Uniform(-50, 50), Uniform(-50, 50), Uniform(-50, 50)};
      const Fit fit(a, Transform(a, r, t));  // b = r a + t, so R = r^T
      ExpectNear(fit.rot, Transposed(r), 1e-9);
      EXPECT_NEAR(Det3(fit.rot), 1.0, 1e-12);
      EXPECT_LT(fit.rms, 1e-9);
      ExpectNear(fit.cb, Transform(Vec(fit.ca, fit.ca + 3), r, t), 1e-9);
    }
  }
  const Vec a = Random(36, 3);
  const Fit same(a, a);
  ExpectNear(same.rot, kIdentity, 1e-13);
  EXPECT_NEAR(same.rms, 0.0, 1e-13);
  const Vec axes = {1, 0, 0, -1, 0, 0, 0, 2, 0, 0, -2, 0, 0, 0, 3, 0, 0, -3};
  const Fit exact(axes, axes);  // needs no rotation at all
  ExpectNear(exact.rot, kIdentity, 0);
  EXPECT_EQ(exact.rms, 0.0);
}

TEST(Lsfit, MirrorImagesGetTheBestProperRotation) {
  for (int trial = 0; trial < 20; ++trial) {
    Vec a = Random(24, 5), mirrored = a;
    for (size_t k = 0; k < a.size(); k += 3)
      mirrored[k] = -mirrored[k];
    const double t[3] = {1, 2, 3};
    const Vec b = Transform(mirrored, Rotation(Uniform(-3, 3)), t);
    const Fit fit(a, b);
    EXPECT_NEAR(Det3(fit.rot), 1.0, 1e-12);
    ExpectOrthonormal(fit.rot, 3, 1e-12);
    for (int s = 0; s < 20; ++s) {  // no nearby rotation fits better
      const Vec q = Rotation(Uniform(-0.05, 0.05));
      double sum = 0;
      for (int k = 0; k < 8; ++k)
        for (int i = 0; i < 3; ++i) {
          double e = a[3 * k + i] - fit.ca[i];
          for (int j = 0; j < 3; ++j)
            for (int m = 0; m < 3; ++m)
              e -= q[3 * i + m] * fit.rot[3 * m + j] * (b[3 * k + j] - fit.cb[j]);
          sum += e * e;
        }
      EXPECT_GE(std::sqrt(sum / 8), fit.rms - 1e-12);
    }
  }
}

TEST(Lsfit, PlanarColinearAndDegenerateSetsStillFit) {
  const Vec kSets[] = {{0, 0, 0, 4, 0, 0, 0, 3, 0, 4, 3, 0, 1, 1, 0},  // planar
                       {0, 0, 0, 1, 0, 0, 0, 2, 0},                    // three points
                       {0, 0, 0, 1, 2, 3, 2, 4, 6, -1, -2, -3},        // colinear
                       {1, 1, 1, 2, 3, 4},                             // two points
                       {5, 6, 7},                                      // one point
                       {1, 2, 3, 1, 2, 3, 1, 2, 3}};                   // coincident
  for (const Vec &a : kSets) {
    for (int trial = 0; trial < 10; ++trial) {
      const double t[3] = {3, -4, 5};
      const Fit fit(a, Transform(a, Rotation(Uniform(-3, 3)), t));
      EXPECT_NEAR(Det3(fit.rot), 1.0, 1e-9) << a.size() / 3 << " points";
      ExpectOrthonormal(fit.rot, 3, 1e-9);
      EXPECT_LT(fit.rms, 1e-8) << a.size() / 3 << " points";
    }
  }
  // Colinear sets turn by the least angle: x onto y is the quarter turn about z.
  const Fit quarter({-1, 0, 0, 0, 0, 0, 2, 0, 0}, {0, -1, 0, 0, 0, 0, 0, 2, 0});
  ExpectNear(quarter.rot, {0, 1, 0, -1, 0, 0, 0, 0, 1}, 1e-12);
  const Fit half({-1, 0, 0, 0, 0, 0, 2, 0, 0}, {1, 0, 0, 0, 0, 0, -2, 0, 0});
  EXPECT_NEAR(Det3(half.rot), 1.0, 1e-12);
  EXPECT_NEAR(half.rot[0], -1.0, 1e-12);
}

TEST(Lsfit, WeightsAndTheWeightedRms) {
  const Vec a = Random(30, 4), r = Rotation(0.7);
  const double t[3] = {0.5, 0.5, 0.5};
  Vec b = Transform(a, r, t);
  b[27] += 30;  // an outlier, point 9, weighted 0 first
  double w[10] = {1, 2, 1, 3, 1, 0.5, 1, 1, 1, 0}, total = 0, sum = 0;
  const Fit ignored(a, b, w);
  ExpectNear(ignored.rot, Transposed(r), 1e-9);
  EXPECT_LT(ignored.rms, 1e-9);
  w[9] = 0.25;
  const Fit weighted(a, b, w);
  for (int k = 0; k < 10; ++k) {
    total += w[k];
    for (int i = 0; i < 3; ++i) {
      double e = a[3 * k + i] - weighted.ca[i];
      for (int j = 0; j < 3; ++j)
        e -= weighted.rot[3 * i + j] * (b[3 * k + j] - weighted.cb[j]);
      sum += w[k] * e * e;
    }
  }
  EXPECT_NEAR(weighted.rms, std::sqrt(sum / total), 1e-12);
  EXPECT_GT(weighted.rms, 1.0);
}

TEST(Lsfit, EmptyAndFailingInput) {
  UTL_ERROR_CLEAR();
  const Fit empty(Vec{}, Vec{});
  ExpectNear(empty.rot, kIdentity, 0);
  ExpectNear(empty.ca, {0, 0, 0}, 0);
  EXPECT_EQ(empty.rms, 0.0);
  const double zero_w[2] = {0, 0};
  const Fit unweighted({1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}, zero_w);
  ExpectNear(unweighted.rot, kIdentity, 0);
  ExpectNear(unweighted.cb, {0, 0, 0}, 0);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  const Fit bad({1, 2, 3, 4, 5, 6}, {1, 2, NAN, 4, 5, 6});
  ExpectNear(bad.rot, kIdentity, 0);
  ExpectError("UTL/GEOM/FATAL/BAD_MATRIX", {"UTL_GEOM_SYMM_EIGENSYS"});
}

// ---- SPD solver ---------------------------------------------------------------

TEST(SimulEqsSpd, RandomSystemsAndTheirFactors) {
  for (int n : {1, 2, 3, 5, 8, 20}) {
    for (int trial = 0; trial < 10; ++trial) {
      const Vec g = Random(n * n, 1), x = Random(n, 3);
      Vec m(n * n, 0.0), b(n, 0.0);
      for (int i = 0; i < n; ++i)  // m = g g^T + I is positive definite
        for (int j = 0; j < n; ++j) {
          for (int k = 0; k < n; ++k)
            m[i * n + j] += g[i * n + k] * g[j * n + k];
          m[i * n + j] += i == j;
        }
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
          b[i] += m[i * n + j] * x[j];
      Vec f = m;
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < i; ++j)
          f[i * n + j] = 1e3;  // junk below: never read
      ASSERT_EQ(QX_LINALG_SIMUL_EQS_SPD(f.data(), n, b.data()), 1);
      ExpectNear(b.data(), x, 1e-9);
      for (int i = 0; i < n; ++i)  // unit lower L below, U on and above: L U = M
        for (int j = 0; j < n; ++j) {
          double lu = 0;
          for (int k = 0; k <= std::min(i, j); ++k)
            lu += (k == i ? 1.0 : f[i * n + k]) * f[k * n + j];
          EXPECT_NEAR(lu, m[i * n + j], 1e-10);
        }
    }
  }
}

TEST(SimulEqsSpd, SmallPivotsFailWithSingularMatrix) {
  struct Row {
    const char *what;
    int n;
    double m[9];
  };
  constexpr Row kRows[] = {{"invertible but indefinite", 2, {0, 1, 1, 0}},
                           {"tiny pivot", 1, {9e-11}},
                           {"singular", 3, {1, 2, 3, 2, 4, 6, 3, 6, 10}},
                           {"second pivot vanishes", 2, {1, 1, 1, 1}},
                           {"NaN", 2, {NAN, 0, 0, 1}}};
  for (const Row &r : kRows) {
    UTL_ERROR_CLEAR();
    double m[9], b[3] = {1, 1, 1};
    std::copy(r.m, r.m + 9, m);
    EXPECT_EQ(QX_LINALG_SIMUL_EQS_SPD(m, r.n, b), 0) << r.what;
    ExpectError("QX_UTL/LINALG/ERROR/Singular Matrix", {"SIMUL_EQS_SPD", "QX_LINALG_SIMUL_EQS_SPD"},
                r.what);
  }
  double b = 5, limit = -1e-10;  // a pivot of exactly the limit passes
  EXPECT_EQ(QX_LINALG_SIMUL_EQS_SPD(nullptr, 0, &b), 1);
  EXPECT_EQ(QX_LINALG_SIMUL_EQS_SPD(&limit, 1, &b), 1);
  EXPECT_DOUBLE_EQ(b, -5e10);
}

}  // namespace
