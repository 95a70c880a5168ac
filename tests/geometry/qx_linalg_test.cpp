// Eigensolver, fitting, superposition, SPD solver: independent checks and exact error records.
#include "qx_linalg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

using Vec = std::vector<double>;

Vec Random(size_t count, double spread, double offset = 0) {
  static std::mt19937_64 rng(20261121);
  Vec v(count);
  for (double &x : v)
    x = offset + std::uniform_real_distribution<double>(-spread, spread)(rng);
  return v;
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

// The rotation of the quaternion (random x, y, z, w): the larger w, the nearer the identity.
Vec Rotation(double w) {
  const Vec q = Random(3, 1);
  const double x = q[0], y = q[1], z = q[2], s = 2 / (x * x + y * y + z * z + w * w);
  return {1 - s * (y * y + z * z), s * (x * y - z * w),     s * (x * z + y * w),
          s * (x * y + z * w),     1 - s * (x * x + z * z), s * (y * z - x * w),
          s * (x * z - y * w),     s * (y * z + x * w),     1 - s * (x * x + y * y)};
}

// p -> R p + t for every point.
Vec Transform(const Vec &pts, const Vec &r, const Vec &t) {
  Vec out(pts.size());
  for (size_t k = 0; k < pts.size(); ++k)
    out[k] = std::inner_product(&r[k % 3 * 3], &r[k % 3 * 3 + 3], &pts[k - k % 3], t[k % 3]);
  return out;
}

void ExpectNear(const double *got, const Vec &want, double tol) {
  for (size_t i = 0; i < want.size(); ++i)
    EXPECT_NEAR(got[i], want[i], tol) << i;
}

// Diagonals only sort, a tie taking the later first; junk below M's diagonal ends up above it.
TEST(Matrices, EigensystemsAndPositiveDefiniteSystems) {
  const Vec kDiagonal[][3] = {{{3, 1, 2}, {1, 2, 3}, {0, 0, 1, 1, 0, 0, 0, 1, 0}},
                              {{2, 2, 1}, {1, 2, 2}, {0, 1, 0, 0, 0, 1, 1, 0, 0}}};
  for (const auto &[diag, want_values, want_vectors] : kDiagonal) {
    Vec a = Diag(diag), values(3), vectors(9);
    int rotations = -1;
    ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), 3, values.data(), vectors.data(), &rotations), 1);
    EXPECT_EQ(std::tie(values, vectors), std::tie(want_values, want_vectors));
    EXPECT_EQ(rotations, 0);
  }
  for (int n : {2, 3, 3, 3, 8, 20}) {
    const Vec g = Random(n * n, 1), x = Random(n, 3), junk = Random(n * n, 9);
    Vec m = Mul(g, g, true), a(n * n), f(n * n), b(n, 0.0), values(n), vectors(n * n);
    for (int i = 0; i < n * n; ++i) {  // m = g^T g + I, b = m x
      m[i] += i / n == i % n;
      b[i / n] += m[i] * x[i % n], a[i] = f[i] = i / n > i % n ? junk[i] : m[i];
    }
    ASSERT_EQ(UTL_GEOM_SYMM_EIGENSYS(a.data(), n, values.data(), vectors.data(), nullptr), 1);
    ASSERT_EQ(QX_LINALG_SIMUL_EQS_SPD(f.data(), n, b.data()), 1);
    for (int i = 0; i < n * n; ++i)
      EXPECT_EQ(a[i], i / n == i % n ? m[i] : junk[std::max(i, i % n * n + i / n)]);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    ExpectNear(Mul(vectors, vectors, true).data(), Diag(Vec(n, 1.0)), 1e-12);
    ExpectNear(Mul(m, vectors).data(), Mul(vectors, Diag(values)), 1e-11);
    ExpectNear(b.data(), x, 1e-9);
  }
}

// A cloud's principal axes give its best line, plane and projection (ignoring the points' z).
TEST(Fitting, CloudsFollowTheirPrincipalAxes) {
  const int n = 40;
  const Vec pts = Transform(Random(3 * n, 1), Mul(Rotation(1), Diag({9, 3, 0.01})), {4, -2, 7});
  Vec flat = pts, values(3), axes(9), dz(3 * n);
  double c[3], line[6], plane[6], line_res = -1, plane_res = -1;
  ASSERT_EQ(UTL_GEOM_PRIN_AXIS(n, pts.data(), nullptr, c, values.data(), axes.data()), 1);
  ASSERT_EQ(QX_3DGEOM_BEST_LINE(n, pts.data(), line, &line_res), 1);
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(n, pts.data(), plane, &plane_res), 1);
  ASSERT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(n, flat.data()), 1);
  ExpectNear(line, {c[0], c[1], c[2], axes[6], axes[7], axes[8]}, 1e-9);
  ExpectNear(plane, {c[0], c[1], c[2], axes[0], axes[1], axes[2]}, 1e-9);
  EXPECT_NEAR(line_res * line_res, values[0] + values[1], 1e-6);  // least eigenvalues
  EXPECT_NEAR(plane_res * plane_res, values[0], 1e-9);
  for (int k = 0; k < 3 * n; ++k)
    dz[k] = k % 3 == 2 ? -c[2] : pts[k] - c[k % 3];
  const Vec main_axes = {axes[6], axes[7], axes[8], axes[3], axes[4], axes[5], 0, 0, 0};
  ExpectNear(flat.data(), Transform(dz, main_axes, {0, 0, -c[2]}), 1e-9);
  double out[6], two[6] = {1, 1, 1, 3, 4, 7};
  const double pair[6] = {1, 2, 3, 1, 2, 7}, triangle[9] = {0, 4, 1, 2, 0, 1, 0, 0, 1};
  ASSERT_EQ(QX_3DGEOM_BEST_LINE(2, pair, out, &line_res), 1);
  ExpectNear(out, {1, 2, 5, 0, 0, 1}, 0);
  ASSERT_EQ(QX_3DGEOM_BEST_PLANE(3, triangle, out, &plane_res), 1);  // normal: the cross product
  ExpectNear(out, {2 / 3.0, 4 / 3.0, 1, 0, 0, -1}, 1e-15);
  EXPECT_EQ(std::make_pair(line_res, plane_res), std::make_pair(0.0, 0.0));
  ASSERT_EQ(QX_3DGEOM_PROJ_PTS_TO_2D(2, two), 1);
  ExpectNear(two, {-3.5, 0, 0, 3.5, 0, 0}, 0);  // 7 apart
}

// Weighted planar, colinear, coincident and random sets with an outlier of weight 0, against a
// rotated copy or a mirror image, whose best fit leaves the reflection across the least axis.
TEST(Lsfit, RotatedCopiesAndMirrorImages) {
  const Vec kSets[] = {{0, 0, 0, 4, 0, 0, 0, 3, 0, 1, 1, 0},
                       {0, 0, 0, 1, 2, 3, -2, -4, -6},
                       {1, 2, 3, 1, 2, 3, 1, 2, 3}};
  for (int k = 0; k < 100; ++k) {
    const int set = k / 20, flip = k % 2;
    const Vec r = Mul(Rotation(Random(1, 1)[0]), Diag({1 - 2.0 * flip, 1, 1})), t = Random(3, 50);
    Vec a = set < 3 ? kSets[set] : Random(set == 3 ? 12 : 300, 10), b = Transform(a, r, t),
        w = Random(a.size() / 3, 0.5, 1), rot(9), ca(3), cb(3), axes(9);
    double total = std::accumulate(w.begin(), w.end(), 0.0), rms = -1, centre[3], values[3];
    a.insert(a.end(), {1, 2, 3}), b.insert(b.end(), {30, -40, 50}), w.push_back(0);
    const int n = static_cast<int>(w.size());
    QX_3DGEOM_LSFIT(n, a.data(), b.data(), w.data(), cb.data(), ca.data(), rot.data(), &rms);
    ASSERT_EQ(UTL_GEOM_PRIN_AXIS(n, a.data(), w.data(), centre, values, axes.data()), 1);
    const Vec cross = {rot[1] * rot[5] - rot[2] * rot[4], rot[2] * rot[3] - rot[0] * rot[5],
                       rot[0] * rot[4] - rot[1] * rot[3]};
    ExpectNear(Mul(rot, rot, true).data(), Diag({1, 1, 1}), 1e-9);
    ExpectNear(&rot[6], cross, 1e-9);  // with orthonormal rows: det +1
    ExpectNear(cb.data(), Transform(ca, r, t), 1e-9);
    EXPECT_NEAR(rms * rms, flip ? 4 * values[0] / total : 0, 1e-9);
    if (!flip && set != 1 && set != 2) ExpectNear(Mul(rot, r).data(), Diag({1, 1, 1}), 1e-9);
  }
  const Vec self = {1, 2, 3, 1, -2, -3, -1, 2, -3, -1, -2, 3}, zero = {0, 0, 0};
  for (const auto &[a, w] : {std::pair<Vec, Vec>{self, {}}, {{}, {}}, {{1, 2, 3}, {0}}}) {
    Vec rot(9), ca(3), cb(3);
    double rms = -1;
    QX_3DGEOM_LSFIT(static_cast<int>(a.size() / 3), a.data(), a.data(),
                    w.empty() ? nullptr : w.data(), cb.data(), ca.data(), rot.data(), &rms);
    EXPECT_EQ(std::tie(rot, ca, cb, rms), std::make_tuple(Diag({1, 1, 1}), zero, zero, 0.0));
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

// Calls 'L'ine, 'P'lane, pro'J'ection, 'S'PD solver or principal 'A'xes on a copy of the input.
int Call(char routine, Vec p) {
  const int n = static_cast<int>(p.size() / 3), order = static_cast<int>(std::sqrt(p.size()));
  double out[9] = {}, values[3], centre[3], res;
  return routine == 'L'   ? QX_3DGEOM_BEST_LINE(n, p.data(), out, &res)
         : routine == 'P' ? QX_3DGEOM_BEST_PLANE(n, p.data(), out, &res)
         : routine == 'J' ? QX_3DGEOM_PROJ_PTS_TO_2D(p.empty() ? -1 : n, p.data())
         : routine == 'S' ? QX_LINALG_SIMUL_EQS_SPD(p.data(), order, out)
                          : UTL_GEOM_PRIN_AXIS(n, p.data(), nullptr, centre, values, out);
}

// Records over an earlier error (replaced on eigensolver failures); codes are cut to 31 chars.
TEST(Linalg, FailuresAndTheirRecords) {
  const Vec nan4 = {0, 0, 0, 1, 0, 0, 0, 1, NAN, 1, 1, 1}, nearly = {0, 0, 0, 1, 0, 0, 2, 4e-6, 0},
            circle = {1, 0, 5, -1, 0, 5, 0, 1, 5, 0, -1, 5},
            even = {0, 0, 0, 1, 2, -1, 2, 4, -2, 3, 6, -3};  // evenly spaced on a line
  EXPECT_EQ(Call('L', {1, 2, 3}) + Call('P', {0, 0, 0, 1, 1, 1}) + Call('P', nearly), 0);
  EXPECT_FALSE(UTL_ERROR_IS_SET());  // too few or colinear points: no record
  const std::string kGeom = "QX/3D_GEOM/ERROR/", kUnresolved = kGeom + "Unable to resolve Matrix|";
  const char *kSpd = "QX_UTL/LINALG/ERROR/Singular Matrix|SIMUL_EQS_SPD|QX_LINALG_SIMUL_EQS_SPD";
  const std::tuple<char, Vec, std::string> kRows[] = {
      {'L', circle, kGeom + "Least Squares Line is not Uniqu|QX_3DGEOM_BEST_LINE"},
      {'P', even, kGeom + "Least Squares Plane is not uniq|QX_3DGEOM_BEST_PLANE"},
      {'L', nan4, kUnresolved + "QX_3DGEOM_BEST_LINE"},
      {'J', {}, kGeom + "Invalid Number of Points|QX_3DGEOM_PROJ_PTS_TO_2D"},
      {'A', {0, 0, 0, 1, 2, 3}, "UTL/GEOM/FATAL/INSUFF_POINTS|UTL_GEOM_PRIN_AXIS"},
      {'A', nan4, "UTL/GEOM/FATAL/BAD_MATRIX|UTL_GEOM_SYMM_EIGENSYS|UTL_GEOM_PRIN_AXIS"},
      {'S', {0, 1, 1, 0}, kSpd},  // invertible but indefinite
      {'S', {9e-11}, kSpd},
      {'S', {1, 2, 3, 2, 4, 6, 3, 6, 10}, kSpd}};  // the second pivot vanishes
  for (const auto &[routine, p, error] : kRows) {
    UTL_ERROR_SET("APP", "EARLIER", "WARNING", "PENDING", "caller");
    EXPECT_EQ(Call(routine, p), 0);
    std::string top = qxtest::TopIdentity();
    for (const std::string &trace : qxtest::TopError().traces)
      top += "|" + trace;
    EXPECT_EQ(top, error);
    EXPECT_EQ(qxtest::StackTop(), error.find("Unable") == std::string::npos);
    UTL_ERROR_CLEAR();
  }
  EXPECT_EQ(Call('S', {}) + Call('S', {-1e-10}), 2);  // a pivot of exactly the limit passes
}

}  // namespace
