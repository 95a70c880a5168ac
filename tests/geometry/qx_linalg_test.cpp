// Eigensolver, fitting, superposition and the SPD solver, checked independently
// (A V = V diag(values), M x = b, rotated copies recovered, spreads and distances
// computed another way) plus the degenerate rows with their exact error records.
#include "qx_linalg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

using Vec = std::vector<double>;

// `count` numbers drawn uniformly from [-spread, spread].
Vec Random(size_t count, double spread) {
  static std::mt19937_64 rng(20261121);
  std::uniform_real_distribution<double> uniform(-spread, spread);
  Vec v(count);
  std::generate(v.begin(), v.end(), [&] { return uniform(rng); });
  return v;
}

double Dot(const double *a, const double *b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// Product of two n x n matrices, the first one transposed on request.
Vec Mul(const Vec &a, const Vec &b, bool transpose_a = false) {
  const int n = static_cast<int>(std::lround(std::sqrt(a.size())));
  Vec c(a.size(), 0.0);
  for (int i = 0; i < n * n * n; ++i) {
    const int row = i / (n * n), col = i / n % n, k = i % n;
    c[row * n + col] += (transpose_a ? a[k * n + row] : a[row * n + k]) * b[k * n + col];
  }
  return c;
}

Vec Diag(const Vec &d) {
  Vec m(d.size() * d.size(), 0.0);
  for (size_t i = 0; i < d.size(); ++i)
    m[i * d.size() + i] = d[i];
  return m;
}

const Vec kIdentity = Diag({1, 1, 1});

// A rotation by `angle` about a random axis (Rodrigues).
Vec Rotation(double angle) {
  Vec k = Random(3, 1);
  const double norm = std::sqrt(Dot(k.data(), k.data()));
  for (double &x : k)
    x /= norm;
  const double c = std::cos(angle), s = std::sin(angle), v = 1 - c;
  return {c + k[0] * k[0] * v,        k[0] * k[1] * v - k[2] * s, k[0] * k[2] * v + k[1] * s,
          k[1] * k[0] * v + k[2] * s, c + k[1] * k[1] * v,        k[1] * k[2] * v - k[0] * s,
          k[2] * k[0] * v - k[1] * s, k[2] * k[1] * v + k[0] * s, c + k[2] * k[2] * v};
}

double Det3(const double *m) {
  return m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
         m[2] * (m[3] * m[7] - m[4] * m[6]);
}

// p -> R p + t for every point.
Vec Transform(const Vec &pts, const Vec &r, const double *t) {
  Vec out(pts.size());
  for (size_t k = 0; k < pts.size(); ++k)
    out[k] = Dot(&r[3 * (k % 3)], &pts[k - k % 3]) + t[k % 3];
  return out;
}

void ExpectNear(const double *got, const Vec &want, double tol, const std::string &what = "") {
  for (size_t i = 0; i < want.size(); ++i)
    EXPECT_NEAR(got[i], want[i], tol) << what << " " << i;
}

// The top error as "PRODUCT/FACILITY/SEVERITY/CODE|trace|trace".
std::string Top() {
  std::string top = qxtest::TopIdentity();
  for (const std::string &trace : qxtest::TopError().traces)
    top += "|" + trace;
  return top;
}

// Diagonal rows need no rotation and only sort (of equal eigenvalues the later one takes the
// position); random symmetric matrices, given junk below the diagonal, satisfy A V = V diag.
TEST(SymmEigensys, SortedOrthonormalEigenvectors) {
  const struct {
    Vec diag, values, vectors;
  } kDiagonal[] = {{{3, 1, 2}, {1, 2, 3}, {0, 0, 1, 1, 0, 0, 0, 1, 0}},
                   {{2, 2, 1}, {1, 2, 2}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
                   {{5, 5, 5}, {5, 5, 5}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
                   {{-1, 0, -1}, {-1, -1, 0}, {0, 1, 0, 0, 0, 1, 1, 0, 0}},
                   {{4.5}, {4.5}, {1}}};
  for (const auto &r : kDiagonal) {
    const int n = static_cast<int>(r.diag.size());
    Vec a = Diag(r.diag), values(n), vectors(n * n);
    int rotations = -1;
    ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), n, values.data(), vectors.data(), &rotations), 1);
    EXPECT_EQ(rotations, 0);
    EXPECT_EQ(values, r.values);
    EXPECT_EQ(vectors, r.vectors);
  }
  for (int n : {2, 3, 7, 16})
    for (int trial = 0; trial < 10; ++trial) {
      Vec values(n), vectors(n * n), sym = Random(n * n, 5);
      for (int i = 0; i < n * n; ++i)
        sym[i] = i / n > i % n ? sym[i % n * n + i / n] : sym[i];
      Vec a = sym, restored = sym;
      for (int i = 1; i < n; ++i)  // junk below the diagonal: not read, but copied up at the end
        restored[i] = restored[i * n] = a[i * n] = 100.0 + i;
      int rotations = -1;
      ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), n, values.data(), vectors.data(), &rotations), 1);
      EXPECT_EQ(a, restored);
      EXPECT_GT(rotations, 0);
      EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
      ExpectNear(Mul(vectors, vectors, true).data(), Diag(Vec(n, 1.0)), 1e-12, "V^T V");
      ExpectNear(Mul(sym, vectors).data(), Mul(vectors, Diag(values)), 1e-11, "A V");
    }
}

// A flat, stretched, rotated cloud: the weighted principal axes diagonalise the weighted
// spread, and without weights they give the best line, the best plane and the projection.
TEST(Fitting, CloudsFollowTheirPrincipalAxes) {
  for (int n : {4, 40}) {
    Vec local = Random(3 * n, 1), w = Random(n, 0.5), spread(9, 0.0), values(3), axes(9);
    for (int k = 0; k < n; ++k)
      local[3 * k] *= 9, local[3 * k + 1] *= 3, local[3 * k + 2] *= 0.01, w[k] += 1;
    const Vec r = Rotation(1.0);
    const double t[3] = {4, -2, 7};
    Vec pts = Transform(local, r, t);
    double c[3], line[6], plane[6], line_res = -1, plane_res = -1, line_sum = 0, plane_sum = 0;
    ASSERT_EQ(UTL_GEOM_PRIN_AXIS(n, pts.data(), w.data(), c, values.data(), axes.data()), 1);
    for (int k = 0; k < n * 9; ++k)  // sum w (p - c)(p - c)^T
      spread[k % 9] += w[k / 9] * (pts[k / 9 * 3 + k % 9 / 3] - c[k % 9 / 3]) *
                       (pts[k / 9 * 3 + k % 3] - c[k % 3]);
    const Vec v = Mul(axes, kIdentity, true);  // the axes as columns
    ExpectNear(Mul(v, Mul(spread, v), true).data(), Diag(values), 1e-9);
    EXPECT_NEAR(std::fabs(axes[6] * r[0] + axes[7] * r[3] + axes[8] * r[6]), 1.0, 0.05);

    ASSERT_EQ(UTL_GEOM_PRIN_AXIS(n, pts.data(), nullptr, c, values.data(), axes.data()), 1);
    ASSERT_EQ(QX_3DGEOM_BEST_LINE(n, pts.data(), line, &line_res), 1);
    ASSERT_EQ(QX_3DGEOM_BEST_PLANE(n, pts.data(), plane, &plane_res), 1);
    ExpectNear(line, {c[0], c[1], c[2]}, 1e-12);
    ExpectNear(plane, {c[0], c[1], c[2]}, 1e-12);
    EXPECT_NEAR(std::fabs(Dot(&line[3], &axes[6])), 1, 1e-9);
    EXPECT_NEAR(std::fabs(Dot(&plane[3], &axes[0])), 1, 1e-9);
    const Vec original = pts;
    ASSERT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(n, pts.data()), 1);
    for (int k = 0; k < n; ++k) {  // distances |d x e| from the line, d . normal from the plane
      const double *p = &original[3 * k], *e = &line[3];
      const double d[3] = {p[0] - c[0], p[1] - c[1], p[2] - c[2]},
                   x[3] = {d[1] * e[2] - d[2] * e[1], d[2] * e[0] - d[0] * e[2],
                           d[0] * e[1] - d[1] * e[0]},
                   flat[3] = {d[0], d[1], -c[2]};  // the projection ignores the point's own z
      line_sum += Dot(x, x);
      plane_sum += std::pow(Dot(d, &plane[3]), 2);
      EXPECT_NEAR(std::fabs(pts[3 * k]), std::fabs(Dot(&axes[6], flat)), 1e-9);
      EXPECT_NEAR(std::fabs(pts[3 * k + 1]), std::fabs(Dot(&axes[3], flat)), 1e-9);
      EXPECT_EQ(pts[3 * k + 2], -c[2]);
    }
    EXPECT_NEAR(line_res, std::sqrt(line_sum), 1e-6);
    EXPECT_NEAR(plane_res, std::sqrt(plane_sum), 1e-12);
  }
}

TEST(BestFit, ExactSmallSets) {
  double out[6], residual = -1;
  const double pair[6] = {1, 2, 3, 1, 2, 7};
  ASSERT_EQ(QX_3DGEOM_BEST_LINE(2, pair, out, &residual), 1);
  ExpectNear(out, {1, 2, 5, 0, 0, 1}, 0);
  EXPECT_EQ(residual, 0.0);
  const double triangle[9] = {0, 0, 1, 2, 0, 1, 0, 4, 1}, reversed[9] = {0, 4, 1, 2, 0, 1, 0, 0, 1};
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(3, triangle, out, &residual), 1);  // normal by the cross product
  ExpectNear(out, {2 / 3.0, 4 / 3.0, 1, 0, 0, 1}, 1e-15);
  EXPECT_EQ(residual, 0.0);
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(3, reversed, out, nullptr), 1);
  EXPECT_EQ(out[5], -1.0);
  double none[3] = {7, 8, 9}, one[3] = {7, 8, 9}, two[6] = {1, 1, 1, 3, 4, 7};  // 7 apart
  EXPECT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(0, none) + QX_3DGEOM_PROJ_PTS_TO_2D(1, one) +
                QX_3DGEOM_PROJ_PTS_TO_2D(2, two),
            3);
  ExpectNear(none, {7, 8, 9}, 0);
  ExpectNear(one, {0, 0, 0}, 0);
  EXPECT_FALSE(std::signbit(one[0]));
  ExpectNear(two, {-3.5, 0, 0, 3.5, 0, 0}, 0);
}

struct Fit {
  Vec cb = Vec(3), ca = Vec(3), rot = Vec(9);
  double rms = -1;
  Fit(const Vec &a, const Vec &b, const double *w = nullptr) {
    QX_3DGEOM_LSFIT(static_cast<int>(a.size() / 3), a.data(), b.data(), w, cb.data(), ca.data(),
                    rot.data(), &rms);
  }
  // sqrt(sum w |A - cA - R (B - cB)|^2 / sum w), computed here.
  double Rms(const Vec &a, const Vec &b, const Vec &r, const double *w = nullptr) const {
    double sum = 0, total = 0;
    for (size_t k = 0; k < a.size(); ++k) {
      const double wk = w ? w[k / 3] : 1, *p = &b[k - k % 3];
      const double d[3] = {p[0] - cb[0], p[1] - cb[1], p[2] - cb[2]};
      sum += wk * std::pow(a[k] - ca[k % 3] - Dot(&r[3 * (k % 3)], d), 2);
      total += wk / 3;
    }
    return std::sqrt(sum / total);
  }
};

// Each set, weighted and with an outlier of weight 0 appended, against a rotated and
// translated copy (an exact fit) or a mirror image (the best proper rotation).
TEST(Lsfit, RotatedCopiesAndMirrorImages) {
  std::vector<Vec> sets = {{0, 0, 0, 4, 0, 0, 0, 3, 0, 4, 3, 0, 1, 1, 0},  // planar
                           {0, 0, 0, 1, 2, 3, 2, 4, 6, -1, -2, -3},        // colinear
                           {1, 1, 1, 2, 3, 4},                             // two points
                           {5, 6, 7},                                      // one point
                           {1, 2, 3, 1, 2, 3, 1, 2, 3}};                   // coincident
  for (int n : {3, 4, 100})
    sets.push_back(Random(3 * n, 10));
  for (const Vec &a : sets)
    for (int trial = 0; trial < 20; ++trial) {
      const bool mirror = trial % 2;
      const Vec r = Mul(Rotation(Random(1, M_PI)[0]), Diag({mirror ? -1.0 : 1.0, 1, 1})),
                t = Random(3, 50);
      Vec b = Transform(a, r, t.data()), w = Random(a.size() / 3, 0.5), aw = a;
      for (double &x : w)
        x += 1;
      aw.insert(aw.end(), {1, 2, 3}), b.insert(b.end(), {30, -40, 50}), w.push_back(0);
      const Fit fit(aw, b, w.data());
      SCOPED_TRACE(std::to_string(a.size() / 3) + (mirror ? " points mirrored" : " points"));
      EXPECT_NEAR(Det3(fit.rot.data()), 1.0, 1e-9);
      ExpectNear(Mul(fit.rot, fit.rot, true).data(), kIdentity, 1e-9);
      ExpectNear(fit.cb.data(), Transform(fit.ca, r, t.data()), 1e-9);
      EXPECT_NEAR(fit.rms, fit.Rms(aw, b, fit.rot, w.data()), 1e-9);
      EXPECT_TRUE(mirror || fit.rms < 1e-8);
      for (int s = 0; s < 5; ++s)  // no nearby rotation fits better
        EXPECT_GE(fit.Rms(aw, b, Mul(Rotation(Random(1, 0.05)[0]), fit.rot), w.data()),
                  fit.rms - 1e-9);
    }
  const Vec axes = {1, 0, 0, -1, 0, 0, 0, 2, 0, 0, -2, 0, 0, 0, 3, 0, 0, -3};
  const Fit exact(axes, axes);  // a set with itself
  EXPECT_EQ(exact.rot, kIdentity);
  EXPECT_EQ(exact.rms, 0.0);
  // Colinear sets turn by the least angle: x onto y is the quarter turn about z.
  const Fit quarter({-1, 0, 0, 0, 0, 0, 2, 0, 0}, {0, -1, 0, 0, 0, 0, 0, 2, 0});
  ExpectNear(quarter.rot.data(), {0, 1, 0, -1, 0, 0, 0, 0, 1}, 1e-12);
  const Fit half({-1, 0, 0, 0, 0, 0, 2, 0, 0}, {1, 0, 0, 0, 0, 0, -2, 0, 0});
  EXPECT_NEAR(Det3(half.rot.data()), 1.0, 1e-12);
  EXPECT_NEAR(half.rot[0], -1.0, 1e-12);
}

TEST(Lsfit, EmptyAndFailingInput) {
  const double zero_w[2] = {0, 0};
  const Vec p = {1, 2, 3, 4, 5, 6}, zero(3, 0.0);
  const Fit empty(Vec{}, Vec{}), unweighted(p, p, zero_w);
  for (const Fit *f : {&empty, &unweighted})
    EXPECT_EQ(std::make_tuple(f->rot, f->ca, f->cb, f->rms),
              std::make_tuple(kIdentity, zero, zero, 0.0));
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  const Fit bad(p, {1, 2, NAN, 4, 5, 6});  // the failure is left on the stack
  EXPECT_EQ(bad.rot, kIdentity);
  EXPECT_EQ(Top(), "UTL/GEOM/FATAL/BAD_MATRIX|UTL_GEOM_SYMM_EIGENSYS");
}

TEST(SimulEqsSpd, RandomSystemsAndTheirFactors) {
  for (int n : {1, 2, 3, 8, 20})
    for (int trial = 0; trial < 5; ++trial) {
      const Vec g = Random(n * n, 1), x = Random(n, 3);
      Vec m = Mul(g, g, true), b(n, 0.0), lower = Diag(Vec(n, 1.0)), upper(n * n, 0.0);
      for (int i = 0; i < n * n; ++i)
        m[i] += i / n == i % n;  // g^T g + I: positive definite
      Vec f = m;
      for (int i = 0; i < n * n; ++i)  // b = m x; junk below the diagonal, never read
        b[i / n] += m[i] * x[i % n], f[i] = i / n > i % n ? 1e3 : m[i];
      ASSERT_EQ(QX_LINALG_SIMUL_EQS_SPD(f.data(), n, b.data()), 1);
      ExpectNear(b.data(), x, 1e-9);
      for (int i = 0; i < n * n; ++i)
        (i / n > i % n ? lower : upper)[i] = f[i];
      ExpectNear(Mul(lower, upper).data(), m, 1e-10, "L U = M");
    }
}

enum Routine { kLine, kPlane, kProj, kEigen, kSpd, kAxes, kAxesCancelling };

// Calls a routine on a copy of the points (or of a matrix, row-major).
int Call(Routine routine, Vec p) {
  const int n = static_cast<int>(p.size() / 3), order = static_cast<int>(std::sqrt(p.size()));
  const double cancelling[3] = {1, -2, 1}, *w = routine == kAxes ? nullptr : cancelling;
  double out[9] = {}, values[3], centre[3], res;
  return routine == kLine    ? QX_3DGEOM_BEST_LINE(n, p.data(), out, &res)
         : routine == kPlane ? QX_3DGEOM_BEST_PLANE(n, p.data(), out, &res)
         : routine == kProj  ? QX_3DGEOM_PROJ_PTS_TO_2D(p.empty() ? -1 : n, p.data())
         : routine == kEigen ? UTL_GEOM_SYMM_EIGENSYS(p.data(), order, values, out, nullptr)
         : routine == kSpd   ? QX_LINALG_SIMUL_EQS_SPD(p.data(), order, out)
                             : UTL_GEOM_PRIN_AXIS(n, p.data(), w, centre, values, out);
}

// Each failing call (it returns 0) with the record it leaves over an earlier error ("" keeps
// that one). An eigensolver failure in the fitting functions replaces the earlier error.
TEST(Linalg, FailuresAndTheirRecords) {
  const Vec square = {1, 0, 5, -1, 0, 5, 0, 1, 5, 0, -1, 5},
            nan4 = {0, 0, 0, 1, 0, 0, 0, 1, NAN, 1, 1, 1},
            evenly = {0, 0, 0, 1, 2, -1, 2, 4, -2, 3, 6, -3};  // evenly spaced on a line
  // The stack keeps 31 characters of a code, so the two "not unique" messages are stored cut.
  const std::string kGeom = "QX/3D_GEOM/ERROR/", kUnresolved = kGeom + "Unable to resolve Matrix|",
                    kFew = "UTL/GEOM/FATAL/INSUFF_POINTS|UTL_GEOM_PRIN_AXIS",
                    kBad = "UTL/GEOM/FATAL/BAD_MATRIX|UTL_GEOM_SYMM_EIGENSYS",
                    kSingular =
                        "QX_UTL/LINALG/ERROR/Singular Matrix|SIMUL_EQS_SPD|"
                        "QX_LINALG_SIMUL_EQS_SPD";
  const struct {
    Routine routine;
    Vec p;
    std::string error;
  } kRows[] = {
      {kLine, {1, 2, 3}, ""},
      {kLine, square,
       (kGeom + "Least Squares Line is not Unique").substr(0, 48) + "|QX_3DGEOM_BEST_LINE"},
      {kPlane, {0, 0, 0, 1, 1, 1}, ""},
      {kPlane, {0, 0, 0, 1, 1, 1, 3, 3, 3}, ""},     // colinear
      {kPlane, {0, 0, 0, 1, 0, 0, 2, 4e-6, 0}, ""},  // nearly colinear
      {kPlane, evenly,
       (kGeom + "Least Squares Plane is not unique").substr(0, 48) + "|QX_3DGEOM_BEST_PLANE"},
      {kLine, nan4, kUnresolved + "QX_3DGEOM_BEST_LINE"},
      {kPlane, nan4, kUnresolved + "QX_3DGEOM_BEST_PLANE"},
      {kProj, nan4, kUnresolved + "QX_3DGEOM_PROJ_PTS_TO_2D"},
      {kProj, {}, kGeom + "Invalid Number of Points|QX_3DGEOM_PROJ_PTS_TO_2D"},
      {kAxes, {0, 0, 0, 1, 2, 3}, kFew},
      {kAxesCancelling, {0, 0, 0, 1, 2, 3, 4, 5, 7}, kFew},
      {kAxes, nan4, kBad + "|UTL_GEOM_PRIN_AXIS"},
      {kEigen, {1, 0.1, 0.2, 0.1, 2, 0.5, 0.2, 0.5, NAN}, kBad},
      {kSpd, {0, 1, 1, 0}, kSingular},  // invertible but indefinite
      {kSpd, {9e-11}, kSingular},
      {kSpd, {1, 2, 3, 2, 4, 6, 3, 6, 10}, kSingular},  // second pivot vanishes
      {kSpd, {NAN, 0, 0, 1}, kSingular}};
  for (const auto &r : kRows) {
    SCOPED_TRACE(&r - kRows);
    UTL_ERROR_CLEAR();
    UTL_ERROR_SET("APP", "EARLIER", "WARNING", "PENDING", "caller");
    EXPECT_EQ(Call(r.routine, r.p), 0);
    EXPECT_EQ(Top(), r.error.empty() ? "APP/EARLIER/WARNING/PENDING|caller" : r.error);
    EXPECT_EQ(qxtest::StackTop(), r.error.find("Unable") == std::string::npos && !r.error.empty());
  }
  EXPECT_EQ(Call(kSpd, {}), 1);
  EXPECT_EQ(Call(kSpd, {-1e-10}), 1);  // a pivot of exactly the limit passes
}

}  // namespace
