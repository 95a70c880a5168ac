// 3D vectors and geometry: exact digits where callers compare them, independent checks elsewhere.
#include "qx_3dgeom.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

constexpr double kPi = 3.141592653589793, kRad = 0.017453292522222223;

void Fill(unsigned long long &state, double *p, int n) {  // [-4, 4) from a 64-bit LCG
  for (int i = 0; i < n; ++i) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    p[i] = static_cast<double>(state >> 11) / 0x1p50 - 4;
  }
}

void ExpectNear(const double *got, std::initializer_list<double> want, double tol = 1e-12) {
  for (double w : want)
    EXPECT_NEAR(*got++, w, tol);
}

double Dist(const double *a, const double *b) {
  return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

// c + r (sin t (cos s e + sin s f) + cos t a), t in [t0, t1] (nt steps), s in [-s1, s1] (ns steps).
std::vector<double> Sample(const double *c, double r, const double *a, const double *e,
                           const double *f, double t0, double t1, int nt, double s1, int ns) {
  std::vector<double> pts;
  for (int i = 0; i <= nt; ++i)
    for (int j = 0; j <= ns; ++j) {
      const double t = t0 + (t1 - t0) * i / (nt > 0 ? nt : 1), s = s1 * (2.0 * j / ns - 1);
      for (int k = 0; k < 3; ++k)
        pts.push_back(c[k] + r * (std::sin(t) * (std::cos(s) * e[k] + std::sin(s) * f[k]) +
                                  std::cos(t) * a[k]));
    }
  return pts;
}

std::pair<double, double> Span(const double *p, const std::vector<double> &pts) {
  std::pair<double, double> span{1e300, 0};
  for (std::size_t k = 0; k < pts.size(); k += 3)
    span = {std::fmin(span.first, Dist(p, &pts[k])), std::fmax(span.second, Dist(p, &pts[k]))};
  return span;
}

TEST(Qx3dVec, ZeroRulesProductsColinearityAndPerpendiculars) {
  // Vector, length, unit vector: squares below 1e-12 count as 0.
  constexpr double kRows[][7] = {
      {3, 4, 0, 5.0, 0.6, 0.8, 0}, {1e-7, 0, 0, 0.0, 0, 0, 0}, {2e-6, 0, 0, 2e-6, 1, 0, 0}};
  const double origin[3] = {0, 0, 0}, a[3] = {1, 2, 3}, b[3] = {-2, 0.5, 4}, n = std::sqrt(162.5);
  double out[3] = {1, 2, 3}, unit[3];
  for (const auto &row : kRows) {
    EXPECT_EQ(QX_3DVEC_LEN(row), row[3]);
    EXPECT_EQ(QX_3DVEC_2POINT_NORM(origin, row, out), row[3] > 0);
    EXPECT_EQ(QX_3DVEC_NORM(row, unit), row[3]);
    ExpectNear(unit, {row[4], row[5], row[6]}, 1e-15);
  }
  QX_3DVEC_SUM(a, b, out);      // (-1, 2.5, 7)
  QX_3DVEC_MULT(out, -2, out);  // (2, -5, -14)
  QX_3DVEC_DIFF(out, a, out);
  ExpectNear(out, {1, -7, -17});
  QX_3DVEC_CROSS(out, b, out);  // outputs may overwrite an input
  ExpectNear(out, {-19.5, 30, -13.5});
  EXPECT_EQ(QX_3DVEC_DOT(a, b), 11.0);
  EXPECT_DOUBLE_EQ(QX_3DVEC_CROSS_LEN(a, b, unit), n);
  EXPECT_EQ(QX_3DVEC_CROSS_NORM(a, b, out), 1);
  ExpectNear(out, {6.5 / n, -10 / n, 4.5 / n});
  EXPECT_EQ(QX_3DVEC_CROSS_NORM(a, a, out), 0);
  constexpr double kColinear[][10] = {
      {5, 5, 5, 9, 1, 3, 5, 5, 5, 1},           // p0 = p2: always colinear
      {0, 0, 0, 1, 5e-7, 0, 1000, 0, 0, 1},     // 5e-7 off at p1: within 1e-6
      {0, 0, 0, 1, 2e-6, 0, 1000, 0, 0, 0},     // 2e-6 off: outside
      {0, 0, 0, 2e-6, 0, 0, 2e-6, 9e-7, 0, 1},  // 24 degrees apart, yet colinear
  };
  for (const auto &row : kColinear)
    EXPECT_EQ(QX_3DVEC_COLINEAR(row, row + 3, row + 6), row[9]) << row[4] << " " << row[7];
  constexpr double kPerpendicular[][6] = {{0.9, 1, 0, 0, 0, 1}, {-0.95, 0, 2, 2, 0, 0.95}};
  for (const auto &row : kPerpendicular) {  // crosses (1, 0, 0) up to 0.9, then (0, 1, 0)
    QX_3DVEC_PERPENDICULAR(row, out);
    ExpectNear(out, {row[3], row[4], row[5]});
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());  // the vector family records nothing
}

TEST(Qx3dGeomAngles, TenDigitPiDegreesFoldingAndDihedralsOfPlacedPoints) {
  const double x[3] = {1, 0, 0}, y[3] = {0, 1, 0}, sixty[3] = {0.5, std::sqrt(3.0) / 2, 0};
  const double over[3] = {1 + 1e-15, 0, 0};
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, y), 89.99999998824843);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, sixty), 59.999999992165634);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2LINES(x, y), 89.99999998824843);  // below 90: not folded
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, over), 0.0);               // clamped, not NaN
  const double line_x[6] = {0, 0, 0, 1, 0, 0}, line[6] = {5, 5, 5, -0.6, 0.8, 0};  // 126.87
  EXPECT_NEAR(QX_3DGEOM_ANGLE_2LN(line_x, line), 53.13010235, 1e-7);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2PL(line_x, line), QX_3DGEOM_ANGLE_2LN(line_x, line));
  EXPECT_NEAR(QX_3DGEOM_ANGLE_LN_PL(line, line_x), 36.86989765, 1e-7);
  const double p[3] = {1, 1, 1}, a[3] = {2, 1, 1}, b[3] = {1, 3, 1}, near_p[3] = {1, 1, 1 + 5e-7};
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, a, b), 89.99999998824843);
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, near_p, b), -0.0001);  // a zero arm on either side
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, a, p), -0.0001);
  // The dihedral of points placed from internal coordinates is the torsion, in 0..360.
  const double f[9] = {1, -2, 0.5, 0.2, -1.1, 1.7, -0.9, -1.3, 3.1};
  for (double torsion : {-179.5, -60.0, -1.0, 0.5, 119.0})
    for (double angle : {70.0, 150.0}) {
      double q[3];
      ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(f, 1.1, angle, torsion, q), 1);
      EXPECT_NEAR(Dist(q, f), 1.1, 1e-12);
      EXPECT_NEAR(QX_3DGEOM_ANGLE_3PT(f, q, f + 3), angle, 1e-6);
      const double expected = torsion < 0 ? torsion + 360 : torsion;  // -60 comes back as 300
      EXPECT_NEAR(QX_3DGEOM_DIHEDRAL(q, f, f + 3, f + 6), expected, 1e-6) << torsion;
    }
  // Trans, cis, and -1 for p1-p2-p3 colinear and p2-p3-p4 at a cosine of 0.9999955.
  constexpr double kFlat[][13] = {{1, 1, 0, 0, 0, 0, 0, 0, 1.5, -1, -1, 1.5, 180},
                                  {1, 1, 0, 0, 0, 0, 0, 0, 1.5, 2, 2, 1.5, 0},
                                  {0, 0, 0, 1, 0, 0, 2, 0, 0, 2, 1, 0, -1},
                                  {0, 1, 0, 0, 0, 0, 1, 0, 0, 2, 0.003, 0, -1}};
  for (const auto &r : kFlat)
    EXPECT_EQ(QX_3DGEOM_DIHEDRAL(r, r + 3, r + 6, r + 9), r[12]);
}

TEST(Qx3dGeomPlacement, ExtensionTetrahedralPointAndTrilateration) {
  const double frame[9] = {1, 1, 1, 3, 1, 1, 3, 1, 1};  // p3 = p2: not tested when straight
  double x[3], y[3], out[6], three[9];
  for (double angle : {180.0, 0.0, 540.0, -180.0, 179.999999, 1e9 + 80}) {  // towards p2 near 0
    ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(frame, 2, angle, 33, x), 1) << angle;
    ExpectNear(x, {std::fmod(angle + 360, 360) > 90 ? -1.0 : 3.0, 1, 1}, 1e-9);
  }
  for (double z : {0.35, -0.35}) {  // continuing away from the three neighbours
    const double w = 0.8660254037844386, four[12] = {0, 0, z, 1, 0, 0, -0.5, -w, 0, -0.5, w, 0};
    EXPECT_EQ(QX_3DGEOM_TETRAHEDRAL_PT(four, 1.09, y), nullptr);
    ExpectNear(y, {0, 0, z + (z > 0 ? 1.09 : -1.09)});
  }
  const double coplanar[12] = {0, 0, 0.19, 1, 0, 0, 0, 1, 0, -1, -1, 0};
  const double colinear[12] = {0, 0, 1, 1, 0, 0, 2, 0, 0, 3, 0, 0};
  EXPECT_STREQ(QX_3DGEOM_TETRAHEDRAL_PT(coplanar, 1, x), "Points are coplanar");
  EXPECT_STREQ(QX_3DGEOM_TETRAHEDRAL_PT(colinear, 1, x), "Points are colinear");
  ExpectNear(x, {3, 1, 1}, 0.0);  // untouched
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  constexpr double kFrames[][9] = {{0, 0, 0, 1, 0, 0, 2, 0, 0},
                                   {0, 0, 0, 0, 0, 0, 4, 4, 4},  // p1 = p2 is colinear first
                                   {0, 0, 0, -7e-7, 0, 0, -2e-6, -1, 0},
                                   {0, 0, 0, 1, 0, 0, 0.1, 5e-7, 0}};
  const char *const kMessages[] = {"Points are colinear", "Points are colinear",
                                   "Points 1 and 2 are coincided", "Points 2 and 3 are coincided"};
  for (int i = 0; i < 4; ++i) {
    UTL_ERROR_CLEAR();
    x[0] = x[1] = x[2] = 7;
    EXPECT_EQ(QX_3DGEOM_EXTENSION_PT(kFrames[i], 1, 109.5, 60, x), 0);
    EXPECT_EQ(qxtest::TopIdentity(), std::string("QX/3D_GEOM/ERROR/") + kMessages[i]);
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"QX_3DGEOM_EXTENSION_PT"});
    ExpectNear(x, {7, 7, 7}, 0.0);
  }
  unsigned long long rng = 7;
  for (int trial = 0; trial < 20; ++trial) {
    Fill(rng, three, 9);
    Fill(rng, x, 3);
    const double d[3] = {Dist(x, three), Dist(x, three + 3), Dist(x, three + 6)};
    int count = -1;
    ASSERT_EQ(QX_3DGEOM_RELATIVE(three, d[0], d[1], d[2], &count, out), 1);
    ASSERT_EQ(count, 2);
    EXPECT_LT(std::fmin(Dist(out, x), Dist(out + 3, x)), 1e-8);  // the point is recovered
    for (int k = 0; k < 6; ++k)  // both solutions at all three distances
      EXPECT_NEAR(Dist(out + 3 * (k / 3), three + 3 * (k % 3)), d[k % 3], 1e-9);
  }
  constexpr double kRows[][13] = {
      {0, 0, 0, 2, 0, 0, 0, 2, 0, 1.5, 2.5, 0.5, 1},  // touching: z^2 exactly 0
      {0, 0, 0, 0, 2, 1, 1, 3, 0, 1, 1, 1, 0},        // equal x: refused though solvable
      {0, 0, 0, 1, 1, 1, 2, 2, 2, 1, 1, 1, 0},        // colinear
  };
  UTL_ERROR_SET("APP", "TEST", "INFO", "PENDING", "caller");  // must not matter
  for (const auto &row : kRows) {
    int count = -1;
    EXPECT_EQ(QX_3DGEOM_RELATIVE(row, row[9], row[10], row[11], &count, out), 1);
    EXPECT_EQ(count, row[12]) << row[9] << " " << row[10] << " " << row[11];
    if (count == 1) ExpectNear(out, {0, 1.5, 0}, 0.0);
  }
  EXPECT_EQ(qxtest::TopIdentity(), "APP/TEST/INFO/PENDING");
}

TEST(Qx3dGeomLines, PointsLinesPlanesVolumesAndTheMirroredIntersection) {
  const double two[6] = {1, 2, 3, 1, 2, 7}, same[6] = {1, 2, 3, 1, 2, 3 + 5e-7};
  const double pts[9] = {1, 2, 3, 100, 100, 100, -50, 0, 7}, masses[3] = {1, 3, 0.5};
  double point[3], out[6];
  EXPECT_EQ(QX_3DGEOM_2POINT_LINE(two, point, out) - QX_3DGEOM_2POINT_LINE(same, point, out), 1);
  ExpectNear(QX_3DGEOM_CENTROID(3, pts, out), {17, 34, 110.0 / 3});
  EXPECT_TRUE(std::isnan(QX_3DGEOM_CENTROID(0, pts, out)[1]));
  ExpectNear(QX_3DGEOM_CENTER_OF_MASS(3, pts, masses, out), {1, 2, 3});  // the first point
  const double x_axis[6] = {0, 0, 0, 1, 0, 0}, parallel[6] = {7, 3, 4, -1, 0, 0};
  const double skew[6] = {4, 0, 5, 0, 0.6, 0.8}, floor[6] = {5, 5, 1, 0, 0, 1};
  const double close[3] = {0, 5e-7, 0}, p[3] = {2, 3, 4}, below[3] = {1, 2, -3};
  EXPECT_EQ(QX_3DGEOM_DIST_2PT(close, x_axis), 0.0);  // square below 1e-12
  EXPECT_DOUBLE_EQ(QX_3DGEOM_DIST_2LN(x_axis, parallel), 5.0);
  EXPECT_DOUBLE_EQ(QX_3DGEOM_DIST_2LN(x_axis, skew), 3.0);
  EXPECT_EQ(QX_3DGEOM_DIST_PT_PL(below, floor), 4.0);
  EXPECT_EQ(QX_3DGEOM_PROJ_PT_PL(below, floor, out), floor);
  ExpectNear(out, {1, 2, 1}, 0.0);
  EXPECT_EQ(QX_3DGEOM_NORMAL_PTS(x_axis, 0.75, p, out), 1);  // the foot (2, 0, 0) +/- 0.75
  ExpectNear(out, {2.75, 0, 0, 1.25, 0, 0}, 0.0);
  // The mirror image of the intersection through the line point; cosines up to 1e-6 refused.
  const double up[6] = {0, 0, 1, 0, 0, 1}, oblique[6] = {0, 1, 1, 0.6, 0, 0.8};
  const double anti[6] = {0, 0, 1, 0, 0, -1}, edge[6] = {0, 0, 1, 1, 0, 1e-6};
  const double plane[6] = {7, -2, 0, 0, 0, 1};
  ASSERT_EQ(QX_3DGEOM_NTRSCT_LN_PL(up, plane, out), 1);
  ExpectNear(out, {0, 0, 2}, 0.0);
  ASSERT_EQ(QX_3DGEOM_NTRSCT_LN_PL(oblique, plane, out), 1);
  ExpectNear(out, {0.75, 1, 2});
  EXPECT_EQ(QX_3DGEOM_NTRSCT_LN_PL(anti, plane, out) + QX_3DGEOM_NTRSCT_LN_PL(edge, plane, out), 0);
  // Two planes: the helper line u x N2 never meets N1 at under 90 degrees; only u is stored.
  const double p1[6] = {1, 2, 3, 1, 0, 0}, p2[6] = {4, 5, 6, 0, 0.6, 0.8};
  double line[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_EQ(QX_3DGEOM_NTRSCT_2PL(p1, p2, line), 0);
  ExpectNear(line, {9, 9, 9, 0, -0.8, 0.6}, 1e-15);
  EXPECT_EQ(QX_3DGEOM_NTRSCT_2PL(p1, p1, line), 0);  // parallel
  // Volumes, nearest sphere first: a row read as a point, a line and a plane; distances; inside.
  const double spheres[] = {0, 0, 0, 1, 0, 10, 0, 2, 3, 0, 0, 0.5};
  const QX_3DGEOM_VOLUME volume{3, spheres}, empty{0, spheres}, negative{-3, spheres},
      none{2, nullptr};
  constexpr double kRows[][10] = {
      {0, 0, 5, 1, 0, 0, 4.0, 4.0, 0.0, 0},   // the plane x = 0 cuts the first sphere
      {0, 13, 0, 0, 1, 0, 1.0, 0.0, 1.0, 0},  // the second; the line meets the first
      {1, 0, 0, 0, 0, 1, 0.0, 0.0, 0.0, 0},   // on the first surface: not inside (strict)
      {3.2, 0, 0, 0, 1, 0, 0.0, 0.0, 0.0, 1},
  };
  for (const auto &row : kRows) {
    EXPECT_NEAR(QX_3DGEOM_DIST_PT_VO(row, &volume), row[6], 1e-12) << row[0];
    EXPECT_NEAR(QX_3DGEOM_DIST_LN_VO(row, &volume), row[7], 1e-12) << row[0];
    EXPECT_NEAR(QX_3DGEOM_DIST_PL_VO(row, &volume), row[8], 1e-12) << row[0];
    EXPECT_EQ(QX_3DGEOM_INCLUDED(row, &volume), row[9]);
    EXPECT_EQ(QX_3DGEOM_EXCLUDED(row, &volume), 1 - row[9]);
  }
  const QX_3DGEOM_VOLUME *const hostile[] = {&empty, &negative, &none, nullptr};
  for (const QX_3DGEOM_VOLUME *v : hostile)  // no spheres: excluded, at 1e100
    EXPECT_EQ(QX_3DGEOM_EXCLUDED(spheres, v) * QX_3DGEOM_DIST_LN_VO(kRows[0], v), 1e100);
}

TEST(Qx3dGeomCap, CapCircleAndArcDistancesAgreeWithSamplingAndAllocationFails) {
  constexpr struct {
    double p0[3], p1[3], axis[3], angle1, angle2;
  } kCaps[] = {
      {{1, -1, 0.5}, {2, 0, 1.5}, {0, 1, 0}, 70, 30},  // oblique
      {{0, 0, 0}, {0, 0, 3}, {0, 0, 2}, 180, 35},      // a classic cap about the pole
      {{1, 2, 3}, {1, 2.5, 3 - 0.8660254037844386}, {0, 0, 1}, 100, 45},  // polar range clipped
      {{0, 0, 0}, {1, 0, 1}, {0, 0, 1}, 0, 40},                           // one meridian arc
      {{1, 1, 1}, {1, 1, 1}, {0, 0, 1}, 30, 30},                          // radius 0: a point
      {{1, 1, 1}, {3, 1, 1}, {0, 0, 0}, 40, 25},                          // zero axis: as z
      // One equatorial arc each, so also a circle about the axis:
      {{0, 0, 0}, {1, 1, 0}, {0, 0, 1}, 20, 0},
      {{0.5, 1, -1}, {1.8, 1, -1}, {0, 0.6, 0.8}, 135, 0},
      {{0, 0, 0}, {0, 3.5, 1}, {1, 0, 0}, 180, 0},
  };
  unsigned long long rng = 21;
  for (const auto &c : kCaps) {
    QX_3DGEOM_CAP_RECORD *cap = nullptr;
    ASSERT_EQ(QX_3DGEOM_CAP(c.p0, c.p1, c.axis, c.angle1, c.angle2, &cap), 1);
    EXPECT_EQ(cap->single_arc, c.angle1 == 0 || c.angle2 == 0);
    double a[3], b[3], e[3], f[3], grid[3 * 30], lo, hi, all[4] = {1e300, 0, 1e300, 0};
    if (QX_3DVEC_NORM(c.axis, a) == 0) a[2] = 1;
    QX_3DVEC_DIFF(c.p1, c.p0, b);
    const double radius = QX_3DVEC_NORM(b, b), t = std::acos(QX_3DVEC_DOT(a, b));
    QX_3DVEC_CROSS(b, a, f);
    if (QX_3DVEC_NORM(f, f) < 1e-5) QX_3DVEC_PERPENDICULAR(a, f);
    QX_3DVEC_NORM(f, f);
    QX_3DVEC_CROSS(a, f, e);  // towards p1
    const double s = c.angle2 * kRad,
                 lo_t = c.angle1 == 0 ? t - s : std::fmax(t - s, 0);  // clipped

    const double slack = 1e-9 + radius * kPi / 120, limit = std::cos(c.angle1 * kRad);
    const auto surface =
        Sample(c.p0, radius, a, e, f, lo_t, c.angle1 == 0 ? t + s : std::fmin(t + s, kPi), 240,
               c.angle1 * kRad, 240);
    const auto ring = Sample(c.p0, radius, a, e, f, t, t, 0, kPi, 4000);
    std::copy(c.p0, c.p0 + 3, grid);  // the centre: every point at the radius
    Fill(rng, grid + 3, 87);
    for (int trial = 0; trial < 30; ++trial) {
      const double *p = grid + 3 * trial;
      const auto [near, far] = Span(p, surface);
      lo = QX_3DGEOM_DIST_PT_CAP(p, cap);
      hi = QX_3DGEOM_MAX_DIST_PT_CAP(p, cap);
      EXPECT_TRUE(lo <= near + 1e-9 && lo >= near - slack) << c.angle1 << " " << lo;
      EXPECT_TRUE(hi >= far - 1e-9 && hi <= far + slack) << c.angle2 << " " << hi;
      all[0] = std::fmin(all[0], lo);
      all[1] = std::fmax(all[1], hi);
      if (c.angle2 != 0) continue;
      const auto [ring_near, ring_far] = Span(p, ring);
      int on_arc = -1;  // whether the farthest circle point lies on the arc
      const double far2 = QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(p, c.p0, a, radius, e, surface.data(),
                                                            &surface.back() - 2, limit, &on_arc);
      EXPECT_TRUE(far2 >= far * far - 1e-9 && far2 <= std::pow(far + slack, 2)) << far2;
      EXPECT_TRUE(on_arc ? std::fabs(far2 - ring_far * ring_far) <= 1e-4 : c.angle1 < 180);
      lo = QX_3DGEOM_DIST_PT_CIRCLE(p, c.p0, a, radius);
      EXPECT_TRUE(lo <= ring_near + 1e-12 && lo >= ring_near - 1e-3) << lo;
      all[2] = std::fmin(all[2], lo);
      all[3] = std::fmax(all[3], ring_far);
    }
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid, 30, cap, &lo, &hi), 30);
    EXPECT_TRUE(lo == all[0] && hi == all[1]);
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid, 0, cap, &lo, nullptr), 0);
    EXPECT_EQ(lo, 1e30);
    UTL_DMEM_FREE(cap, "test", __LINE__);
    if (c.angle2 != 0) continue;
    QX_3DGEOM_DIST_GRID_CIRCLE(grid, 30, c.p0, a, radius, &lo, &hi);
    EXPECT_NEAR(lo, all[2], 1e-12);
    EXPECT_NEAR(hi, all[3], 1e-3);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  QX_3DGEOM_CAP_RECORD stale{}, *cap = &stale;
  qxtest::FailAllocation guard(1);
  EXPECT_EQ(QX_3DGEOM_CAP(kCaps[0].p0, kCaps[0].p1, kCaps[0].axis, 30, 30, &cap), 0);
  EXPECT_EQ(cap, nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
  EXPECT_EQ(qxtest::TopError().traces.back(), "QX_3DGEOM_CAP (0)");
}

TEST(Qx3dGeomSphere, RingCountsPolesAndRadius) {
  constexpr int kRows[][2] = {{1, 1}, {3, 2}, {6, 6}, {10, 7}, {100, 85}, {0, 0}, {-4, 0}};
  double centre[3] = {1, -2, 3}, pole[3];
  for (const auto &row : kRows) {
    std::vector<double> out(3 * (row[0] > 0 ? row[0] : 1) + 3, 77.0);
    EXPECT_EQ(QX_3DGEOM_GEN_SPHERE(row[0], centre, 2.5, out.data()), row[1]) << row[0];
    for (int i = 0; i < row[1]; ++i)
      EXPECT_NEAR(Dist(&out[3 * i], centre), 2.5, 1e-12);
    EXPECT_EQ(out[3 * row[1]], 77.0);                                 // nothing beyond the count
    if (row[1] > 0) ExpectNear(out.data(), {1, -2, 5.5}, 0.0);        // the north pole first
    if (row[1] >= 6) ExpectNear(&out[3 * row[1] - 3], {1, -2, 0.5});  // full rings: south last
  }
  EXPECT_EQ(QX_3DGEOM_GEN_SPHERE(1, nullptr, 3, pole), 1);  // no centre: the origin
  ExpectNear(pole, {0, 0, 3}, 0.0);
}

}  // namespace
