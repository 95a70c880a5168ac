// 3D vectors and geometry: exact digits where callers compare them, and
// independent checks elsewhere (brute-force sampling of circles, arcs, caps
// and spheres; dihedrals of points placed from internal coordinates;
// trilateration solved back to the point that produced it).
#include "qx_3dgeom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

constexpr double kPi = 3.141592653589793, kRad = 0.017453292522222223;

// Deterministic pseudo-random numbers in [lo, hi).
struct Lcg {
  unsigned long long state;
  void Fill(double *p, double lo, double hi, int n = 3) {
    for (int i = 0; i < n; ++i) {
      state = state * 6364136223846793005ULL + 1442695040888963407ULL;
      p[i] = lo + (hi - lo) * static_cast<double>(state >> 11) / 9007199254740992.0;
    }
  }
};

void ExpectVec(const double *got, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(got[0], x, tol);
  EXPECT_NEAR(got[1], y, tol);
  EXPECT_NEAR(got[2], z, tol);
}

double Dist(const double *a, const double *b) {
  return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

// Normalises a and completes it with e and f to a right-handed orthonormal frame.
void Frame(double *a, double *e, double *f) {
  QX_3DVEC_NORM(a, a);
  QX_3DVEC_PERPENDICULAR(a, e);
  QX_3DVEC_NORM(e, e);
  QX_3DVEC_CROSS(a, e, f);
}

// q = c + r (sin(th) (cos(ph) e + sin(ph) f) + cos(th) a): spheres, caps, and circles at th = pi/2.
void Orbit(const double *c, double r, const double *a, const double *e, const double *f, double th,
           double ph, double *q) {
  for (int i = 0; i < 3; ++i)
    q[i] = c[i] +
           r * (std::sin(th) * (std::cos(ph) * e[i] + std::sin(ph) * f[i]) + std::cos(th) * a[i]);
}

// The nearest and farthest of sampled distances.
struct Range {
  double lo = 1e300, hi = 0;
  void Add(double d) { lo = std::fmin(lo, d), hi = std::fmax(hi, d); }
};

// ---- Vectors ----------------------------------------------------------------

TEST(Qx3dVec, LengthsNormalisationAndProducts) {
  constexpr double kRows[][7] = {// vector, length, unit vector
                                 {3, 4, 0, 5.0, 0.6, 0.8, 0},
                                 {1e-7, 0, 0, 0.0, 0, 0, 0},  // square 1e-14 is below 1e-12
                                 {0, -7e-7, 7e-7, 0.0, 0, 0, 0},
                                 {2e-6, 0, 0, 2e-6, 1, 0, 0}};
  const double origin[3] = {0, 0, 0};
  for (const auto &row : kRows) {
    double out[3] = {5, 5, 5};
    EXPECT_EQ(QX_3DVEC_LEN(row), row[3]);
    EXPECT_EQ(QX_3DVEC_2POINT_NORM(origin, row, out), row[3] > 0 ? 1 : 0);
    ExpectVec(out, row[4], row[5], row[6], 1e-15);
    EXPECT_EQ(QX_3DVEC_NORM(row, out), row[3]);
    ExpectVec(out, row[4], row[5], row[6], 1e-15);
  }
  const double a[3] = {1, 2, 3}, b[3] = {-2, 0.5, 4}, n = std::sqrt(162.5);
  double out[3], c[3] = {1, 2, 3};
  QX_3DVEC_CROSS(c, b, c);  // outputs may overwrite an input
  ExpectVec(c, 6.5, -10, 4.5);
  EXPECT_EQ(QX_3DVEC_DOT(a, b), 11.0);
  EXPECT_DOUBLE_EQ(QX_3DVEC_CROSS_LEN(a, b, out), n);
  ExpectVec(out, 6.5, -10, 4.5);
  QX_3DVEC_SUM(a, b, out);      // (-1, 2.5, 7)
  QX_3DVEC_MULT(out, -2, out);  // (2, -5, -14)
  QX_3DVEC_DIFF(out, a, out);
  ExpectVec(out, 1, -7, -17);
  ASSERT_EQ(QX_3DVEC_CROSS_NORM(a, b, out), 1);
  ExpectVec(out, 6.5 / n, -10 / n, 4.5 / n);
  EXPECT_EQ(QX_3DVEC_CROSS_NORM(a, a, out), 0);
  ExpectVec(out, 0, 0, 0);
  EXPECT_FALSE(UTL_ERROR_IS_SET());  // the vector family records nothing
}

TEST(Qx3dVec, ColinearUsesAnAbsoluteToleranceAndPerpendicularSwitchesBeyond09) {
  constexpr double kRows[][10] = {
      // p0, p1, p2, colinear
      {0, 0, 0, 1, 1, 1, -2, -2, -2, 1},
      {5, 5, 5, 9, 1, 3, 5, 5, 5, 1},           // p0 = p2: always colinear
      {0, 0, 0, 0, 0, 3, 0, 0, 1, 1},           // ratio from z
      {0, 0, 0, 0, 3, 0, 0, 1, 1e-3, 0},        // ratio from y, off in z
      {0, 0, 0, 1, 5e-7, 0, 1000, 0, 0, 1},     // 5e-7 off at p1: within 1e-6
      {0, 0, 0, 1, 2e-6, 0, 1000, 0, 0, 0},     // 2e-6 off: outside
      {0, 0, 0, 1, 0, 0, 1000, 5e-4, 0, 1},     // measured at p1's scale: 5e-7
      {0, 0, 0, 2e-6, 0, 0, 2e-6, 9e-7, 0, 1},  // 24 degrees apart, yet colinear
  };
  for (const auto &row : kRows)
    EXPECT_EQ(QX_3DVEC_COLINEAR(row, row + 3, row + 6), row[9]) << row[4] << " " << row[7];
  constexpr double kPerpendicular[][6] = {
      {1, 0, 0, 0, 0, -1},        // r = (0, 1, 0)
      {0.9, 1, 0, 0, 0, 1},       // r = (1, 0, 0) at the bound
      {-0.9, 0, 2, 0, -2, 0},     // r = (1, 0, 0)
      {-0.95, 0, 2, 2, 0, 0.95},  // r = (0, 1, 0)
  };
  for (const auto &row : kPerpendicular) {
    double out[3];
    QX_3DVEC_PERPENDICULAR(row, out);
    ExpectVec(out, row[3], row[4], row[5]);
  }
}

// ---- Angles -----------------------------------------------------------------

TEST(Qx3dGeomAngles, DegreesCarryTheTenDigitPiAndLinesFold) {
  const double x[3] = {1, 0, 0}, y[3] = {0, 1, 0}, sixty[3] = {0.5, std::sqrt(3.0) / 2, 0};
  const double over[3] = {1 + 1e-15, 0, 0}, minus_x[3] = {-1, 0, 0};
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, y), 89.99999998824843);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, sixty), 59.999999992165634);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2LINES(x, y), 89.99999998824843);  // below 90: not folded
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, over), 0.0);               // clamped, not NaN
  EXPECT_NEAR(QX_3DGEOM_ANGLE_2VEC(x, minus_x), 180.0, 1e-7);
  EXPECT_NEAR(QX_3DGEOM_ANGLE_2LINES(x, minus_x), 0.0, 1e-7);
  const double line_x[6] = {0, 0, 0, 1, 0, 0}, plane_y[6] = {0, 0, 0, 0, 1, 0};
  EXPECT_EQ(QX_3DGEOM_ANGLE_LN_PL(line_x, plane_y), 90.0 - 89.99999998824843);
  for (double degrees : {100.0, 30.0, 179.0}) {  // folded: 80, 30, 1
    const double folded = degrees > 90 ? 180 - degrees : degrees;
    const double l2[6] = {5, 5, 5, std::cos(degrees * kRad), std::sin(degrees * kRad), 0};
    EXPECT_NEAR(QX_3DGEOM_ANGLE_2LN(line_x, l2), folded, 1e-9);
    EXPECT_EQ(QX_3DGEOM_ANGLE_2PL(line_x, l2), QX_3DGEOM_ANGLE_2LN(line_x, l2));
    EXPECT_NEAR(QX_3DGEOM_ANGLE_LN_PL(l2, line_x), 90 - folded, 1e-9);
  }
  const double p[3] = {1, 1, 1}, a[3] = {2, 1, 1}, b[3] = {1, 3, 1}, near_p[3] = {1, 1, 1 + 5e-7};
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, a, b), 89.99999998824843);
  for (const double *q : {p, near_p}) {  // a zero arm on either side
    EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, q, b), -0.0001);
    EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, a, q), -0.0001);
  }
}

// ---- Dihedrals and placement ------------------------------------------------

TEST(Qx3dGeomPlacement, DihedralOfPlacedPointsReturnsTheTorsionIn0To360) {
  const double frames[][9] = {{0, 0, 0, 1.53, 0, 0, 2.1, 1.4, 0},
                              {1, -2, 0.5, 0.2, -1.1, 1.7, -0.9, -1.3, 3.1},
                              {10, 10, 10, 10, 11.5, 10, 11, 12, 9}};
  for (const auto &f : frames)
    for (double torsion : {-179.5, -120.0, -60.0, -1.0, 0.5, 45.0, 119.0, 179.5})
      for (double angle : {70.0, 109.5, 150.0}) {
        double x[3];
        ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(f, 1.1, angle, torsion, x), 1);
        EXPECT_NEAR(Dist(x, f), 1.1, 1e-12);
        EXPECT_NEAR(QX_3DGEOM_ANGLE_3PT(f, x, f + 3), angle, 1e-6);
        const double expected = torsion < 0 ? torsion + 360 : torsion;  // -60 comes back as 300
        EXPECT_NEAR(QX_3DGEOM_DIHEDRAL(x, f, f + 3, f + 6), expected, 1e-6) << torsion;
        EXPECT_NEAR(QX_3DGEOM_DIHEDRAL(f + 6, f + 3, f, x), expected, 1e-6);
      }
}

TEST(Qx3dGeomPlacement, DihedralFlatAndDegenerateShapes) {
  const double a[3] = {1, 1, 0}, b[3] = {0, 0, 0}, c[3] = {0, 0, 1.5};
  const double trans[3] = {-1, -1, 1.5}, cis[3] = {2, 2, 1.5};
  EXPECT_EQ(QX_3DGEOM_DIHEDRAL(a, b, c, trans), 180.0);
  EXPECT_EQ(QX_3DGEOM_DIHEDRAL(a, b, c, cis), 0.0);
  constexpr double kDegenerate[][4][3] = {
      {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2, 1, 0}},      // p1, p2, p3 colinear
      {{0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {2, 0, 0}},      // p2, p3, p4 colinear
      {{0, 0, 0}, {1, 0, 0}, {-1, 0, 0}, {0, 1, 0}},     // folded back
      {{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {0, 1, 0}},      // coincident
      {{0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {2, 0.003, 0}},  // cosine 0.9999955
  };
  for (const auto &p : kDegenerate)
    EXPECT_EQ(QX_3DGEOM_DIHEDRAL(p[0], p[1], p[2], p[3]), -1.0);
}

TEST(Qx3dGeomPlacement, StraightAnglesAndAngleReduction) {
  const double frame[9] = {1, 1, 1, 3, 1, 1, 3, 1, 1};  // p3 = p2: not tested when straight
  for (double angle : {180.0, 0.0, 360.0, 540.0, -180.0, 1e-6, 179.999999}) {
    double x[3];  // towards p2 near 0 and 360, away from it near 180
    ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(frame, 2, angle, 33, x), 1) << angle;
    ExpectVec(x, std::fmod(angle + 360, 360) > 90 ? -1 : 3, 1, 1);
  }
  const double bent[9] = {0, 0, 0, 1, 0, 0, 1, 1, 0};
  double a[3], b[3];
  ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(bent, 1.5, -90, 40, a), 1);
  ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(bent, 1.5, 270, 40, b), 1);
  ExpectVec(a, b[0], b[1], b[2], 0.0);
  ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(bent, 1.5, 1e9 + 90, 40, a), 1);  // reduced, no endless loop
  EXPECT_NEAR(Dist(a, bent), 1.5, 1e-9);
}

TEST(Qx3dGeomPlacement, ExtensionFailuresRecordTheirMessages) {
  constexpr struct {
    double frame[9];
    const char *message;
  } kRows[] = {
      {{0, 0, 0, 1, 0, 0, 2, 0, 0}, "Points are colinear"},
      {{0, 0, 0, 0, 0, 0, 4, 4, 4}, "Points are colinear"},  // p1 = p2 is colinear first
      {{0, 0, 0, -7e-7, 0, 0, -2e-6, -1, 0}, "Points 1 and 2 are coincided"},
      {{0, 0, 0, 1, 0, 0, 0.1, 5e-7, 0}, "Points 2 and 3 are coincided"},
  };
  for (const auto &row : kRows) {
    UTL_ERROR_CLEAR();
    double x[3] = {7, 7, 7};
    EXPECT_EQ(QX_3DGEOM_EXTENSION_PT(row.frame, 1, 109.5, 60, x), 0);
    EXPECT_EQ(qxtest::TopIdentity(), std::string("QX/3D_GEOM/ERROR/") + row.message);
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"QX_3DGEOM_EXTENSION_PT"});
    ExpectVec(x, 7, 7, 7, 0.0);
  }
}

TEST(Qx3dGeomPlacement, TetrahedralPointContinuesAwayFromTheNeighbours) {
  for (double w : {0.8660254037844386, -0.8660254037844386})  // both windings: the same point
    for (double z : {0.35, -0.35}) {
      const double four[12] = {0, 0, z, 1, 0, 0, -0.5, w, 0, -0.5, -w, 0};
      double x[3];
      EXPECT_EQ(QX_3DGEOM_TETRAHEDRAL_PT(four, 1.09, x), nullptr);
      ExpectVec(x, 0, 0, z + (z > 0 ? 1.09 : -1.09));
    }
  double x[3] = {4, 4, 4};
  const double coplanar[12] = {0, 0, 0.19, 1, 0, 0, 0, 1, 0, -1, -1, 0};
  const double colinear[12] = {0, 0, 1, 1, 0, 0, 2, 0, 0, 3, 0, 0};
  EXPECT_STREQ(QX_3DGEOM_TETRAHEDRAL_PT(coplanar, 1, x), "Points are coplanar");
  EXPECT_STREQ(QX_3DGEOM_TETRAHEDRAL_PT(colinear, 1, x), "Points are colinear");
  ExpectVec(x, 4, 4, 4, 0.0);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Qx3dGeomPlacement, TrilaterationFindsThePointThatGaveTheDistances) {
  Lcg rng{7};
  for (int trial = 0; trial < 30; ++trial) {
    double three[9], x[3], out[6];
    rng.Fill(three, -3, 3, 9);
    rng.Fill(x, -3, 3);
    const double d[3] = {Dist(x, three), Dist(x, three + 3), Dist(x, three + 6)};
    int count = -1;
    ASSERT_EQ(QX_3DGEOM_RELATIVE(three, d[0], d[1], d[2], &count, out), 1);
    ASSERT_EQ(count, 2);
    EXPECT_LT(std::fmin(Dist(out, x), Dist(out + 3, x)), 1e-8);
    for (int k = 0; k < 6; ++k)  // both solutions at all three distances
      EXPECT_NEAR(Dist(out + 3 * (k / 3), three + 3 * (k % 3)), d[k % 3], 1e-9);
  }
}

TEST(Qx3dGeomPlacement, TrilaterationCounts) {
  constexpr double kRows[][13] = {
      // three points, three distances, count
      {0, 0, 0, 2, 0, 0, 0, 2, 0, 1.5, 2.5, 0.5, 1},  // touching: z^2 exactly 0
      {0, 0, 0, 2, 0, 0, 0, 2, 0, 1.5, 1.5, 1.5, 2},
      {0, 0, 0, 2, 0, 0, 0, 2, 0, 0.5, 0.5, 0.5, 0},  // spheres miss
      {0, 0, 0, 0, 2, 1, 1, 3, 0, 1, 1, 1, 0},        // equal x: refused though solvable
      {1, 1, 1, 3, 2, 1, 0, 1, 4, 2, 2, 3, 0},        // equal y of p3: refused
      {0, 0, 0, 1, 1, 1, 2, 2, 2, 1, 1, 1, 0},        // colinear
  };
  UTL_ERROR_SET("APP", "TEST", "INFO", "PENDING", "caller");  // must not matter
  for (const auto &row : kRows) {
    int count = -1;
    double out[6];
    EXPECT_EQ(QX_3DGEOM_RELATIVE(row, row[9], row[10], row[11], &count, out), 1);
    EXPECT_EQ(count, row[12]) << row[9] << " " << row[10] << " " << row[11];
    if (count == 1) ExpectVec(out, 0, 1.5, 0, 0.0);
  }
  EXPECT_EQ(qxtest::TopIdentity(), "APP/TEST/INFO/PENDING");
  EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"caller"});
}

// ---- Points, lines and planes -----------------------------------------------

TEST(Qx3dGeomLines, TwoPointLineCentroidAndTheFirstPointCentreOfMass) {
  const double two[6] = {1, 2, 3, 1, 2, 7}, same[6] = {1, 2, 3, 1, 2, 3 + 5e-7};
  double point[3], dir[3];
  EXPECT_EQ(QX_3DGEOM_2POINT_LINE(two, point, dir), 1);
  ExpectVec(point, 1, 2, 3);
  ExpectVec(dir, 0, 0, 1);
  EXPECT_EQ(QX_3DGEOM_2POINT_LINE(same, point, dir), 0);
  ExpectVec(dir, 0, 0, 0);
  const double pts[9] = {1, 2, 3, 100, 100, 100, -50, 0, 7}, masses[3] = {1, 3, 0.5};
  double out[3];
  ExpectVec(QX_3DGEOM_CENTROID(3, pts, out), 17, 34, 110.0 / 3);
  EXPECT_TRUE(std::isnan(QX_3DGEOM_CENTROID(0, pts, out)[1]));
  QX_3DGEOM_CENTROID(-2, pts, out);
  EXPECT_TRUE(out[0] == 0.0 && std::signbit(out[0]) && std::signbit(out[2]));
  ExpectVec(QX_3DGEOM_CENTER_OF_MASS(3, pts, masses, out), 1, 2, 3);  // the first point
  EXPECT_TRUE(std::isnan(QX_3DGEOM_CENTER_OF_MASS(0, pts, masses, out)[0]));
}

TEST(Qx3dGeomLines, DistancesProjectionsAndTheMirroredIntersection) {
  const double x_axis[6] = {0, 0, 0, 1, 0, 0}, parallel[6] = {7, 3, 4, -1, 0, 0};
  const double skew[6] = {4, 0, 5, 0, 0.6, 0.8}, floor[6] = {5, 5, 1, 0, 0, 1};
  const double close[3] = {0, 5e-7, 0}, p[3] = {2, 3, 4}, below[3] = {1, 2, -3};
  EXPECT_DOUBLE_EQ(QX_3DGEOM_DIST_PT_LN(p, x_axis), 5.0);
  EXPECT_EQ(QX_3DGEOM_DIST_PT_LN(close, x_axis), 0.0);
  EXPECT_EQ(QX_3DGEOM_DIST_2PT(close, x_axis), 0.0);  // square below 1e-12
  EXPECT_DOUBLE_EQ(QX_3DGEOM_DIST_2LN(x_axis, parallel), 5.0);
  EXPECT_DOUBLE_EQ(QX_3DGEOM_DIST_2LN(x_axis, skew), 3.0);
  EXPECT_EQ(QX_3DGEOM_DIST_PT_PL(p, floor), 3.0);
  EXPECT_EQ(QX_3DGEOM_DIST_PT_PL(below, floor), 4.0);
  double out[6];
  EXPECT_EQ(QX_3DGEOM_PROJ_PT_PL(below, floor, out), floor);
  ExpectVec(out, 1, 2, 1, 0.0);
  EXPECT_EQ(QX_3DGEOM_NORMAL_PTS(x_axis, 0.75, p, out), 1);  // the foot (2, 0, 0) +/- 0.75
  ExpectVec(out, 2.75, 0, 0, 0.0);
  ExpectVec(out + 3, 1.25, 0, 0, 0.0);
  // The mirror image through the line point of the true intersection:
  // (0, 0, 3) for (0, 0, -1), (1.5, 1, 3) for (-1.5, 1, -1). A cosine of 1e-6 is refused.
  const double up[6] = {0, 0, 1, 0, 0, 1}, oblique[6] = {0, 1, 1, 0.6, 0, 0.8};
  const double anti[6] = {0, 0, 1, 0, 0, -1}, flat[6] = {0, 0, 1, 1, 0, 0};
  const double tilted[6] = {0, 0, 1, 0.8, 0, -0.6}, edge[6] = {0, 0, 1, 1, 0, 1e-6};
  const double plane[6] = {7, -2, -1, 0, 0, 1};
  ASSERT_EQ(QX_3DGEOM_NTRSCT_LN_PL(up, plane, out), 1);
  ExpectVec(out, 0, 0, 3, 0.0);
  ASSERT_EQ(QX_3DGEOM_NTRSCT_LN_PL(oblique, plane, out), 1);
  ExpectVec(out, 1.5, 1, 3);
  for (const double *refused : {anti, flat, tilted, edge})
    EXPECT_EQ(QX_3DGEOM_NTRSCT_LN_PL(refused, plane, out), 0);
}

TEST(Qx3dGeomLines, TwoPlaneIntersectionKeepsTheDirectionOnly) {
  // w = u x N2 always makes 90 degrees or more with N1, so the line-plane
  // step refuses it and the result is 0; the direction is stored.
  constexpr double kRows[][15] = {
      // plane 1, plane 2, direction
      {0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0},
      {1, 2, 3, 1, 0, 0, 4, 5, 6, 0, 0.6, 0.8, 0, -0.8, 0.6},
      {0, 0, 0, 0, 0, 1, 0, 0, 5, 0, 0, -1, 0, 0, 0},  // parallel
  };
  for (const auto &row : kRows) {
    double line[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(QX_3DGEOM_NTRSCT_2PL(row, row + 6, line), 0);
    ExpectVec(line + 3, row[12], row[13], row[14], 1e-15);
    ExpectVec(line, 9, 9, 9, 0.0);
  }
}

// ---- Sphere volumes ---------------------------------------------------------

TEST(Qx3dGeomVolume, ScansTakeTheNearestSphereAndStopInsideOne) {
  const double spheres[] = {0, 0, 0, 1, 0, 10, 0, 2, 3, 0, 0, 0.5};
  const QX_3DGEOM_VOLUME volume{3, spheres};
  // rec is read as a point (its first three), a line and a plane.
  constexpr double kRows[][10] = {
      // record; distances from it as a point, a line and a plane; inside
      {0, 0, 5, 1, 0, 0, 4.0, 4.0, 0.0, 0},   // the plane x = 0 cuts the first sphere
      {4, 0, 0, 0, 0, 1, 0.5, 0.5, 0.0, 0},   // the third sphere is nearest
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
  const QX_3DGEOM_VOLUME empty{0, spheres}, negative{-3, spheres}, no_spheres{2, nullptr};
  const QX_3DGEOM_VOLUME *const volumes[] = {&empty, &negative, &no_spheres, nullptr};
  for (const QX_3DGEOM_VOLUME *v : volumes) {
    EXPECT_EQ(QX_3DGEOM_DIST_PT_VO(spheres, v), 1e100);
    EXPECT_EQ(QX_3DGEOM_DIST_LN_VO(kRows[0], v), 1e100);
    EXPECT_EQ(QX_3DGEOM_DIST_PL_VO(kRows[0], v), 1e100);
    EXPECT_EQ(QX_3DGEOM_INCLUDED(spheres, v), 0);
    EXPECT_EQ(QX_3DGEOM_EXCLUDED(spheres, v), 1);
  }
}

// ---- Circles and arcs -------------------------------------------------------

TEST(Qx3dGeomCircle, CircleAndArcDistancesAgreeWithSampling) {
  double circles[][7] = {{0.5, 1, -1, 0, 0.6, 0.8, 1.3}, {-1, 0, 2, 0.2, -1, 0.1, 3.5}};
  Lcg rng{13};
  for (double *c : circles) {  // centre, axis, radius
    double e[3], f[3], end1[3], end2[3], grid[30];
    Frame(c + 3, e, f);
    for (double half : {20.0, 75.0, 135.0, 180.0}) {  // half opening; 180: the full circle
      const double limit = half == 180 ? -1.0 : std::cos(half * kRad);
      Orbit(c, c[6], c + 3, e, f, kPi / 2, half * kRad, end1);
      Orbit(c, c[6], c + 3, e, f, kPi / 2, -half * kRad, end2);
      Range all;
      for (int trial = 0; trial < 10; ++trial) {
        double *p = grid + 3 * trial, q[3];
        Range circle, arc;
        rng.Fill(p, -4, 4);
        if (trial == 0)  // on the axis: every circle point is nearest
          for (int i = 0; i < 3; ++i)
            p[i] = c[i] + 1.5 * c[3 + i];
        arc.Add(Dist(p, end1));
        arc.Add(Dist(p, end2));
        for (int k = 0; k <= 4000; ++k) {
          Orbit(c, c[6], c + 3, e, f, kPi / 2, -kPi + k * kPi / 2000, q);
          circle.Add(Dist(p, q));
          if (std::fabs(-kPi + k * kPi / 2000) <= half * kRad) arc.Add(Dist(p, q));
        }
        all.Add(circle.lo);
        all.Add(circle.hi);
        const double near = QX_3DGEOM_DIST_PT_CIRCLE(p, c, c + 3, c[6]);
        EXPECT_LE(near, circle.lo + 1e-12);
        EXPECT_GE(near, circle.lo - 1e-3);
        int flag = -1;
        const double far2 =
            QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(p, c, c + 3, c[6], e, end1, end2, limit, &flag);
        EXPECT_GE(far2, arc.hi * arc.hi - 1e-9);
        EXPECT_LE(far2, arc.hi * arc.hi + 1e-4);
        // The flag: the farthest circle point lies on the arc.
        EXPECT_TRUE(circle.hi - arc.hi <= 1e-3 || flag == 0);
        EXPECT_TRUE(flag == 0 || std::fabs(far2 - circle.hi * circle.hi) <= 1e-4);
        EXPECT_EQ(far2, QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(p, c, c + 3, c[6], e, end1, end2, limit,
                                                          nullptr));
      }
      double lo = -1, hi = -1;
      QX_3DGEOM_DIST_GRID_CIRCLE(grid, 10, c, c + 3, c[6], &lo, &hi);
      EXPECT_NEAR(lo, all.lo, 1e-3);
      EXPECT_NEAR(hi, all.hi, 1e-3);
      QX_3DGEOM_DIST_GRID_CIRCLE(grid, 10, c, c + 3, c[6], &lo, nullptr);
      EXPECT_NEAR(lo, all.lo, 1e-3);
      QX_3DGEOM_DIST_GRID_CIRCLE(grid, 0, c, c + 3, c[6], &lo, &hi);
      EXPECT_TRUE(lo == 1e30 && hi == 0.0);
    }
  }
}

// ---- Caps -------------------------------------------------------------------

struct CapCase {
  double p0[3], p1[3], axis[3], angle1, angle2;
};

const CapCase kCaps[] = {
    {{0, 0, 0}, {2, 0, 0}, {0, 0, 1}, 40, 25},       // a patch on the equator
    {{1, -1, 0.5}, {2, 0, 1.5}, {0, 1, 0}, 70, 30},  // oblique
    {{0, 0, 0}, {0, 0, 3}, {0, 0, 2}, 180, 35},      // a classic cap about the pole
    {{0, 0, 0}, {1.5, 0, 0}, {0, 0, 1}, 180, 20},    // a full band
    {{0, 0, 0}, {0, 0, 2}, {0, 0, 1}, 60, 50},       // a slice reaching the pole
    {{1, 2, 3}, {1, 2.5, 3 - 0.8660254037844386}, {0, 0, 1}, 100, 45},  // polar range clipped
    {{0, 0, 0}, {1, 1, 0}, {0, 0, 1}, 50, 0},                           // one latitude arc
    {{0, 0, 0}, {1, 0, 1}, {0, 0, 1}, 0, 40},                           // one meridian arc
    {{0, 0, 0}, {0, 2, 1}, {1, 0, 0}, 180, 0},                          // one full circle
};

// Samples of the cap by its own description: the sphere about p0 through p1,
// azimuth about the axis within angle1 of p1's, polar angle within angle2 of p1's.
std::vector<double> SampleCap(const CapCase &c, int n) {
  double a[3] = {c.axis[0], c.axis[1], c.axis[2]}, b[3], e0[3], e1[3];
  Frame(a, e0, e1);
  QX_3DVEC_DIFF(c.p1, c.p0, b);
  const double radius = QX_3DVEC_NORM(b, b), along = QX_3DVEC_DOT(a, b);
  if (std::fabs(along) < 0.99999) {  // the azimuth origin towards p1
    QX_3DVEC_CROSS(b, a, e1);
    QX_3DVEC_CROSS(a, e1, e0);
    QX_3DVEC_NORM(e0, e0);
    QX_3DVEC_CROSS(a, e0, e1);
  }
  const double theta0 = std::acos(along), span = c.angle2 * kRad, az = c.angle1 * kRad;
  const double lo = c.angle1 != 0 ? std::fmax(theta0 - span, 0.0) : theta0 - span;
  const double hi = c.angle1 != 0 ? std::fmin(theta0 + span, kPi) : theta0 + span;
  std::vector<double> pts(3 * (n + 1) * (n + 1));
  for (int k = 0; k < (n + 1) * (n + 1); ++k)
    Orbit(c.p0, radius, a, e0, e1, lo + (hi - lo) * (k / (n + 1)) / n,
          az * (2.0 * (k % (n + 1)) / n - 1), &pts[3 * k]);
  return pts;
}

TEST(Qx3dGeomCap, DistancesAgreeWithSampledSurface) {
  Lcg rng{21};
  for (const CapCase &c : kCaps) {
    SCOPED_TRACE(testing::Message() << c.angle1 << "/" << c.angle2);
    QX_3DGEOM_CAP_RECORD *cap = nullptr;
    ASSERT_EQ(QX_3DGEOM_CAP(c.p0, c.p1, c.axis, c.angle1, c.angle2, &cap), 1);
    EXPECT_EQ(cap->single_arc, c.angle1 == 0 || c.angle2 == 0);
    const std::vector<double> surface = SampleCap(c, 240);
    const double radius = Dist(c.p0, c.p1), spacing = radius * kPi / 120;
    double grid[3 * 40], beyond[3], behind[3];
    Range all;
    for (int trial = 0; trial < 40; ++trial) {
      double *p = grid + 3 * trial;
      rng.Fill(p, -4, 4);
      for (int i = 0; i < 3; ++i)  // trial 0: the centre, every point at the radius
        p[i] = trial == 0 ? c.p0[i] : p[i] + c.p0[i];
      Range range;
      for (std::size_t k = 0; k < surface.size(); k += 3)
        range.Add(Dist(p, &surface[k]));
      const double near = QX_3DGEOM_DIST_PT_CAP(p, cap), far = QX_3DGEOM_MAX_DIST_PT_CAP(p, cap);
      EXPECT_LE(near, range.lo + 1e-9) << trial;
      EXPECT_GE(near, range.lo - spacing) << trial;
      EXPECT_GE(far, range.hi - 1e-9) << trial;
      EXPECT_LE(far, range.hi + spacing) << trial;
      all.Add(near);
      all.Add(far);
    }
    for (int i = 0; i < 3; ++i) {  // beyond p1, p1 is nearest; behind the centre, farthest
      beyond[i] = c.p0[i] + 2 * (c.p1[i] - c.p0[i]);
      behind[i] = c.p0[i] - 0.5 * (c.p1[i] - c.p0[i]);
    }
    EXPECT_NEAR(QX_3DGEOM_DIST_PT_CAP(beyond, cap), radius, 1e-9);
    EXPECT_NEAR(QX_3DGEOM_MAX_DIST_PT_CAP(behind, cap), 1.5 * radius, 1e-9);
    double lo = -1, hi = -1;
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid, 40, cap, &lo, &hi), 40);
    EXPECT_EQ(lo, all.lo);
    EXPECT_EQ(hi, all.hi);
    hi = -1;
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid, 40, cap, &lo, nullptr), 40);
    EXPECT_EQ(hi, -1);
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid, 0, cap, &lo, &hi), 0);
    EXPECT_TRUE(lo == 1e30 && hi == 0.0);
    UTL_DMEM_FREE(cap, "test", __LINE__);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Qx3dGeomCap, DegenerateCapsStayFinite) {
  constexpr double kRows[][8] = {
      // p1, axis, angle1, angle2
      {1, 1, 1, 0, 0, 1, 30, 30},  // p1 = p0: radius 0
      {1, 1, 1, 0, 0, 1, 0, 30},  {1, 1, 1, 0, 1, 0, 30, 0},
      {3, 1, 1, 0, 0, 0, 40, 25},  // zero axis: as (0, 0, 1)
      {3, 1, 1, 0, 0, 0, 0, 25},
  };
  const double p0[3] = {1, 1, 1}, z[3] = {0, 0, 1}, p[3] = {-2, 4, 1.5};
  for (const auto &row : kRows) {
    QX_3DGEOM_CAP_RECORD *cap = nullptr, *ref = nullptr;
    ASSERT_EQ(QX_3DGEOM_CAP(p0, row, row + 3, row[6], row[7], &cap), 1);
    ASSERT_EQ(QX_3DGEOM_CAP(p0, row, z, row[6], row[7], &ref), 1);
    const bool point = row[0] == p0[0];
    EXPECT_NEAR(QX_3DGEOM_DIST_PT_CAP(p, cap), point ? Dist(p, p0) : QX_3DGEOM_DIST_PT_CAP(p, ref),
                1e-12);
    EXPECT_NEAR(QX_3DGEOM_MAX_DIST_PT_CAP(p, cap),
                point ? Dist(p, p0) : QX_3DGEOM_MAX_DIST_PT_CAP(p, ref), 1e-12);
    UTL_DMEM_FREE(cap, "test", __LINE__);
    UTL_DMEM_FREE(ref, "test", __LINE__);
  }
}

TEST(Qx3dGeomCap, RecordSizeAndAllocationFailure) {
  EXPECT_EQ(sizeof(QX_3DGEOM_CAP_RECORD), 400u);
  const double p0[3] = {0, 0, 0}, p1[3] = {1, 0, 0}, axis[3] = {0, 0, 1};
  QX_3DGEOM_CAP_RECORD stale{}, *cap = &stale;
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(QX_3DGEOM_CAP(p0, p1, axis, 30, 30, &cap), 0);
  }
  EXPECT_EQ(cap, nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
  EXPECT_EQ(qxtest::TopError().traces.back(), "QX_3DGEOM_CAP (0)");
}

// ---- Sphere sampling --------------------------------------------------------

TEST(Qx3dGeomSphere, RingCountsPolesRadiusAndBalance) {
  // n = 6: k = 4, two rings: 1 + 4 + 1. n = 10: k = 5: 1 + 5 + 1. n = 100:
  // k = 17, eight rings: 1 + 6 + 12 + 15 + 17 + 15 + 12 + 6 + 1 = 85.
  constexpr int kRows[][2] = {{1, 1}, {2, 2}, {3, 2}, {6, 6}, {10, 7}, {100, 85}, {0, 0}, {-4, 0}};
  const double centre[3] = {1, -2, 3};
  for (const auto &row : kRows) {
    std::vector<double> out(3 * (row[0] > 0 ? row[0] : 1) + 3, 77.0);
    double mean[3] = {0, 0, 0};
    EXPECT_EQ(QX_3DGEOM_GEN_SPHERE(row[0], centre, 2.5, out.data()), row[1]) << row[0];
    for (int i = 0; i < 3 * row[1]; ++i)
      mean[i % 3] += out[i] / row[1];
    for (int i = 0; i < row[1]; ++i)
      EXPECT_NEAR(Dist(&out[3 * i], centre), 2.5, 1e-12);
    EXPECT_EQ(out[3 * row[1]], 77.0);                        // nothing beyond the count
    if (row[1] > 0) ExpectVec(out.data(), 1, -2, 5.5, 0.0);  // the north pole first
    if (row[1] < 6) continue;
    ExpectVec(&out[3 * (row[1] - 1)], 1, -2, 0.5, 1e-12);  // complete rings: the south pole last,
    ExpectVec(mean, 1, -2, 3);                             // each ring evenly spread
  }
  double pole[3];
  EXPECT_EQ(QX_3DGEOM_GEN_SPHERE(1, nullptr, 3, pole), 1);  // no centre: the origin
  ExpectVec(pole, 0, 0, 3, 0.0);
}

}  // namespace
