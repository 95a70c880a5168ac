// 3D vectors and geometry: exact digits where callers compare them, and
// independent checks elsewhere (brute-force sampling of circles, arcs, caps
// and sphere surfaces; dihedrals measured on points placed from internal
// coordinates; trilateration solved back to the point that produced it).
#include "qx_3dgeom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

constexpr double kRad = 0.017453292522222223;

// Deterministic pseudo-random numbers in [lo, hi).
class Lcg {
 public:
  explicit Lcg(unsigned long long seed) : state_(seed) {}
  double Next(double lo, double hi) {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return lo + (hi - lo) * static_cast<double>(state_ >> 11) / 9007199254740992.0;
  }
  void Point(double *p, double lo, double hi) {
    for (int i = 0; i < 3; ++i)
      p[i] = Next(lo, hi);
  }

 private:
  unsigned long long state_;
};

void ExpectVec(const double *got, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(got[0], x, tol);
  EXPECT_NEAR(got[1], y, tol);
  EXPECT_NEAR(got[2], z, tol);
}

double Dist(const double *a, const double *b) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) +
                   (a[2] - b[2]) * (a[2] - b[2]));
}

void Normalise(double *v) {
  const double l = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  for (int i = 0; i < 3; ++i)
    v[i] /= l;
}

// ---- Vectors ----------------------------------------------------------------

TEST(Qx3dVec, LengthsAndNormalisationFollowTheZeroRules) {
  UTL_ERROR_CLEAR();
  struct Row {
    double v[3];
    double len, norm_result, unit[3];
  };
  constexpr Row kRows[] = {
      {{3, 4, 0}, 5.0, 5.0, {0.6, 0.8, 0}},
      {{1e-7, 0, 0}, 0.0, 0.0, {0, 0, 0}},  // square 1e-14 is below 1e-12
      {{2e-6, 0, 0}, 2e-6, 2e-6, {1, 0, 0}},
      {{0, -7e-7, 7e-7}, 0.0, 0.0, {0, 0, 0}},
      {{0, 0, 0}, 0.0, 0.0, {0, 0, 0}},
  };
  for (const Row &row : kRows) {
    double out[3] = {5, 5, 5};
    EXPECT_EQ(QX_3DVEC_LEN(row.v), row.len);
    EXPECT_EQ(QX_3DVEC_NORM(row.v, out), row.norm_result);
    ExpectVec(out, row.unit[0], row.unit[1], row.unit[2], 1e-15);
    const double origin[3] = {0, 0, 0};
    EXPECT_EQ(QX_3DVEC_2POINT_NORM(origin, row.v, out), row.len > 0 ? 1 : 0);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());  // the vector family records nothing
}

TEST(Qx3dVec, ProductsAndSums) {
  const double a[3] = {1, 2, 3}, b[3] = {-2, 0.5, 4};
  double out[3];
  QX_3DVEC_CROSS(a, b, out);
  ExpectVec(out, 6.5, -10, 4.5);
  EXPECT_DOUBLE_EQ(QX_3DVEC_DOT(out, a), 0.0);
  EXPECT_DOUBLE_EQ(QX_3DVEC_DOT(out, b), 0.0);
  EXPECT_DOUBLE_EQ(QX_3DVEC_CROSS_LEN(a, b, out), std::sqrt(6.5 * 6.5 + 100 + 4.5 * 4.5));
  double c[3] = {1, 2, 3};
  QX_3DVEC_CROSS(c, b, c);  // in place
  ExpectVec(c, 6.5, -10, 4.5);
  QX_3DVEC_SUM(a, b, out);
  ExpectVec(out, -1, 2.5, 7);
  QX_3DVEC_DIFF(a, b, out);
  ExpectVec(out, 3, 1.5, -1);
  QX_3DVEC_MULT(a, -2, out);
  ExpectVec(out, -2, -4, -6);
  EXPECT_EQ(QX_3DVEC_CROSS_NORM(a, a, out), 0);
  ExpectVec(out, 0, 0, 0);
  ASSERT_EQ(QX_3DVEC_CROSS_NORM(a, b, out), 1);
  EXPECT_NEAR(QX_3DVEC_LEN(out), 1.0, 1e-15);
}

TEST(Qx3dVec, ColinearUsesAnAbsoluteTolerance) {
  struct Row {
    double p0[3], p1[3], p2[3];
    int expected;
  };
  constexpr Row kRows[] = {
      {{0, 0, 0}, {1, 1, 1}, {-2, -2, -2}, 1},       {{0, 0, 0}, {1, 1, 1}, {2, 2, 2.01}, 0},
      {{5, 5, 5}, {9, 1, 3}, {5, 5, 5}, 1},           // p0 = p2: always colinear
      {{0, 0, 0}, {0, 0, 3}, {0, 0, 1}, 1},           // ratio from z
      {{0, 0, 0}, {0, 3, 0}, {0, 1, 1e-3}, 0},        // ratio from y, off in z
      {{0, 0, 0}, {1, 5e-7, 0}, {1000, 0, 0}, 1},     // 5e-7 off at p1: within 1e-6
      {{0, 0, 0}, {1, 2e-6, 0}, {1000, 0, 0}, 0},     // 2e-6 off: outside
      {{0, 0, 0}, {1, 0, 0}, {1000, 5e-4, 0}, 1},     // measured at p1's scale: 5e-7
      {{0, 0, 0}, {2e-6, 0, 0}, {2e-6, 9e-7, 0}, 1},  // 24 degrees apart, yet colinear
  };
  for (const Row &row : kRows)
    EXPECT_EQ(QX_3DVEC_COLINEAR(row.p0, row.p1, row.p2), row.expected)
        << row.p2[0] << "," << row.p2[1] << "," << row.p2[2];
}

TEST(Qx3dVec, PerpendicularSwitchesAuxiliaryAxisBeyond09) {
  struct Row {
    double v[3], out[3];
  };
  constexpr Row kRows[] = {
      {{1, 0, 0}, {0, 0, -1}},        // r = (0, 1, 0)
      {{0.9, 1, 0}, {0, 0, 1}},       // r = (1, 0, 0) at the bound
      {{-0.9, 0, 2}, {0, -2, 0}},     // r = (1, 0, 0)
      {{-0.95, 0, 2}, {2, 0, 0.95}},  // r = (0, 1, 0)
      {{0, 0, 1}, {0, -1, 0}},
  };
  for (const Row &row : kRows) {
    double out[3];
    QX_3DVEC_PERPENDICULAR(row.v, out);
    ExpectVec(out, row.out[0], row.out[1], row.out[2]);
    EXPECT_NEAR(QX_3DVEC_DOT(out, row.v), 0.0, 1e-15);
  }
}

// ---- Angles -----------------------------------------------------------------

TEST(Qx3dGeomAngles, DegreesCarryTheTenDigitPi) {
  const double x[3] = {1, 0, 0}, y[3] = {0, 1, 0};
  const double sixty[3] = {0.5, std::sqrt(3.0) / 2, 0};
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, y), 89.99999998824843);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, sixty), 59.999999992165634);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2LINES(x, y), 89.99999998824843);  // below 90: not folded
  const double over[3] = {1 + 1e-15, 0, 0};
  EXPECT_EQ(QX_3DGEOM_ANGLE_2VEC(x, over), 0.0);  // clamped, not NaN
  const double minus_x[3] = {-1, 0, 0};
  EXPECT_NEAR(QX_3DGEOM_ANGLE_2VEC(x, minus_x), 180.0, 1e-7);
  EXPECT_EQ(QX_3DGEOM_ANGLE_2LINES(x, minus_x), 180.0 - QX_3DGEOM_ANGLE_2VEC(x, minus_x));
}

TEST(Qx3dGeomAngles, FoldedLinePlaneAngles) {
  struct Row {
    double degrees;  // between the two directions
    double folded;
  };
  constexpr Row kRows[] = {{100, 80}, {30, 30}, {150, 30}, {179, 1}, {0, 0}};
  for (const Row &row : kRows) {
    const double r = row.degrees * kRad;
    const double l1[6] = {0, 0, 0, 1, 0, 0};
    const double l2[6] = {5, 5, 5, std::cos(r), std::sin(r), 0};
    EXPECT_NEAR(QX_3DGEOM_ANGLE_2LN(l1, l2), row.folded, 1e-9);
    EXPECT_EQ(QX_3DGEOM_ANGLE_2PL(l1, l2), QX_3DGEOM_ANGLE_2LN(l1, l2));
    // The line at that angle to the normal makes 90 - folded with the plane.
    EXPECT_NEAR(QX_3DGEOM_ANGLE_LN_PL(l2, l1), 90 - row.folded, 1e-9);
  }
  const double line[6] = {0, 0, 0, 1, 0, 0}, plane[6] = {0, 0, 0, 0, 1, 0};
  EXPECT_EQ(QX_3DGEOM_ANGLE_LN_PL(line, plane), 90.0 - 89.99999998824843);
}

TEST(Qx3dGeomAngles, ThreePointAngleAndItsFailureValue) {
  const double p[3] = {1, 1, 1}, a[3] = {2, 1, 1}, b[3] = {1, 3, 1}, near_p[3] = {1, 1, 1 + 5e-7};
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, a, b), 89.99999998824843);
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, p, b), -0.0001);
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, a, p), -0.0001);
  EXPECT_EQ(QX_3DGEOM_ANGLE_3PT(p, a, near_p), -0.0001);
}

// ---- Dihedrals and placement ------------------------------------------------

TEST(Qx3dGeomPlacement, DihedralOfPlacedPointsReturnsTheTorsion) {
  const double frames[][9] = {{0, 0, 0, 1.53, 0, 0, 2.1, 1.4, 0},
                              {1, -2, 0.5, 0.2, -1.1, 1.7, -0.9, -1.3, 3.1},
                              {10, 10, 10, 10, 11.5, 10, 11, 12, 9}};
  constexpr double kTorsions[] = {-179.5, -120, -60, -1, 0.5, 45, 60, 119, 179.5};
  for (const auto &frame : frames) {
    for (double torsion : kTorsions) {
      for (double angle : {70.0, 109.5, 150.0}) {
        double x[3];
        ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(frame, 1.1, angle, torsion, x), 1);
        EXPECT_NEAR(Dist(x, frame), 1.1, 1e-12);
        EXPECT_NEAR(QX_3DGEOM_ANGLE_3PT(frame, x, frame + 3), angle, 1e-6);
        const double expected = torsion < 0 ? torsion + 360 : torsion;
        EXPECT_NEAR(QX_3DGEOM_DIHEDRAL(x, frame, frame + 3, frame + 6), expected, 1e-6) << torsion;
        EXPECT_NEAR(QX_3DGEOM_DIHEDRAL(frame + 6, frame + 3, frame, x), expected, 1e-6);
      }
    }
  }
}

TEST(Qx3dGeomPlacement, DihedralSpecialShapes) {
  const double a[3] = {1, 1, 0}, b[3] = {0, 0, 0}, c[3] = {0, 0, 1.5};
  const double trans[3] = {-1, -1, 1.5}, cis[3] = {2, 2, 1.5};
  EXPECT_EQ(QX_3DGEOM_DIHEDRAL(a, b, c, trans), 180.0);
  EXPECT_EQ(QX_3DGEOM_DIHEDRAL(a, b, c, cis), 0.0);
  const double r = -60 * kRad;
  // d turned by -60 degrees about the b-c axis from a's side.
  const double d[3] = {std::sqrt(2.0) * std::cos(r + 0.25 * 3.141592653589793),
                       std::sqrt(2.0) * std::sin(r + 0.25 * 3.141592653589793), 1.5};
  EXPECT_NEAR(QX_3DGEOM_DIHEDRAL(a, b, c, d), 300.0, 1e-6);

  struct Row {
    double p[4][3];
  };
  constexpr Row kDegenerate[] = {
      {{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2, 1, 0}}},      // p1, p2, p3 colinear
      {{{0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {2, 0, 0}}},      // p2, p3, p4 colinear
      {{{0, 0, 0}, {1, 0, 0}, {-1, 0, 0}, {0, 1, 0}}},     // folded back
      {{{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {0, 1, 0}}},      // coincident
      {{{0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {2, 0.003, 0}}},  // cosine 0.9999955
  };
  for (const Row &row : kDegenerate)
    EXPECT_EQ(QX_3DGEOM_DIHEDRAL(row.p[0], row.p[1], row.p[2], row.p[3]), -1.0);
}

TEST(Qx3dGeomPlacement, StraightAnglesAndAngleReduction) {
  const double frame[9] = {1, 1, 1, 3, 1, 1, 3, 1, 1};  // p3 = p2: ignored when straight
  struct Row {
    double angle;
    double x;  // of the placed point; y = z = 1
  };
  constexpr Row kRows[] = {{180, -1},  {0, 3},   {360, 3},  {540, -1},
                           {-180, -1}, {720, 3}, {1e-6, 3}, {179.999999, -1}};
  for (const Row &row : kRows) {
    double x[3];
    ASSERT_EQ(QX_3DGEOM_EXTENSION_PT(frame, 2, row.angle, 33, x), 1) << row.angle;
    ExpectVec(x, row.x, 1, 1);
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
  struct Row {
    double frame[9];
    const char *message;
  };
  constexpr Row kRows[] = {
      {{0, 0, 0, 1, 0, 0, 2, 0, 0}, "Points are colinear"},
      {{0, 0, 0, 0, 0, 0, 4, 4, 4}, "Points are colinear"},  // p1 = p2 is colinear first
      {{0, 0, 0, -7e-7, 0, 0, -2e-6, -1, 0}, "Points 1 and 2 are coincided"},
      {{0, 0, 0, 1, 0, 0, 0.1, 5e-7, 0}, "Points 2 and 3 are coincided"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    double x[3] = {7, 7, 7};
    EXPECT_EQ(QX_3DGEOM_EXTENSION_PT(row.frame, 1, 109.5, 60, x), 0);
    EXPECT_EQ(qxtest::TopIdentity(), std::string("QX/3D_GEOM/ERROR/") + row.message);
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"QX_3DGEOM_EXTENSION_PT"});
    ExpectVec(x, 7, 7, 7, 0.0);
  }
}

TEST(Qx3dGeomPlacement, TetrahedralPointContinuesAwayFromTheNeighbours) {
  UTL_ERROR_CLEAR();
  const double tri[9] = {1, 0, 0, -0.5, 0.8660254037844386, 0, -0.5, -0.8660254037844386, 0};
  for (int order = 0; order < 2; ++order) {
    for (double z : {0.35, -0.35}) {
      double four[12] = {0, 0, z};
      for (int i = 0; i < 3; ++i) {
        const int k = order == 0 ? i : 2 - i;  // both windings give the same point
        for (int j = 0; j < 3; ++j)
          four[3 + 3 * i + j] = tri[3 * k + j];
      }
      double x[3];
      EXPECT_EQ(QX_3DGEOM_TETRAHEDRAL_PT(four, 1.09, x), nullptr);
      ExpectVec(x, 0, 0, z + (z > 0 ? 1.09 : -1.09));
    }
  }
  double x[3] = {4, 4, 4};
  const double coplanar[12] = {0, 0, 0.19, 1, 0, 0, 0, 1, 0, -1, -1, 0};
  const double colinear[12] = {0, 0, 1, 1, 0, 0, 2, 0, 0, 3, 0, 0};
  const char *m1 = QX_3DGEOM_TETRAHEDRAL_PT(coplanar, 1, x);
  const char *m2 = QX_3DGEOM_TETRAHEDRAL_PT(colinear, 1, x);
  ASSERT_NE(m1, nullptr);
  ASSERT_NE(m2, nullptr);
  EXPECT_STREQ(m1, "Points are coplanar");
  EXPECT_STREQ(m2, "Points are colinear");
  ExpectVec(x, 4, 4, 4, 0.0);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Qx3dGeomPlacement, TrilaterationFindsThePointThatGaveTheDistances) {
  UTL_ERROR_CLEAR();
  Lcg rng(7);
  for (int trial = 0; trial < 50; ++trial) {
    double three[9], x[3];
    for (int i = 0; i < 9; ++i)
      three[i] = rng.Next(-3, 3);
    rng.Point(x, -3, 3);
    const double d1 = Dist(x, three), d2 = Dist(x, three + 3), d3 = Dist(x, three + 6);
    int count = -1;
    double out[6];
    ASSERT_EQ(QX_3DGEOM_RELATIVE(three, d1, d2, d3, &count, out), 1);
    ASSERT_EQ(count, 2);
    const double e0 = Dist(out, x), e1 = Dist(out + 3, x);
    EXPECT_LT(e0 < e1 ? e0 : e1, 1e-8);
    for (int s = 0; s < 2; ++s) {
      EXPECT_NEAR(Dist(out + 3 * s, three), d1, 1e-9);
      EXPECT_NEAR(Dist(out + 3 * s, three + 3), d2, 1e-9);
      EXPECT_NEAR(Dist(out + 3 * s, three + 6), d3, 1e-9);
    }
  }
}

TEST(Qx3dGeomPlacement, TrilaterationCounts) {
  struct Row {
    double three[9];
    double d[3];
    int count;
  };
  constexpr Row kRows[] = {
      {{0, 0, 0, 2, 0, 0, 0, 2, 0}, {1.5, 2.5, 0.5}, 1},  // touching: z^2 exactly 0
      {{0, 0, 0, 2, 0, 0, 0, 2, 0}, {1.5, 1.5, 1.5}, 2},
      {{0, 0, 0, 2, 0, 0, 0, 2, 0}, {0.5, 0.5, 0.5}, 0},  // spheres miss
      {{0, 0, 0, 0, 2, 1, 1, 3, 0}, {1, 1, 1}, 0},        // equal x: refused though solvable
      {{1, 1, 1, 3, 2, 1, 0, 1, 4}, {2, 2, 3}, 0},        // equal y of p3: refused
      {{0, 0, 0, 1, 1, 1, 2, 2, 2}, {1, 1, 1}, 0},        // colinear
  };
  UTL_ERROR_CLEAR();
  UTL_ERROR_SET("APP", "TEST", "INFO", "PENDING", "caller");  // must not matter
  for (const Row &row : kRows) {
    int count = -1;
    double out[6];
    EXPECT_EQ(QX_3DGEOM_RELATIVE(row.three, row.d[0], row.d[1], row.d[2], &count, out), 1);
    EXPECT_EQ(count, row.count) << row.d[0] << " " << row.d[1] << " " << row.d[2];
    if (row.count == 1) ExpectVec(out, 0, 1.5, 0, 0.0);
  }
  EXPECT_EQ(qxtest::TopIdentity(), "APP/TEST/INFO/PENDING");
  EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{"caller"});
}

// ---- Points, lines and planes -----------------------------------------------

TEST(Qx3dGeomLines, TwoPointLineCentroidAndCentreOfMass) {
  const double two[6] = {1, 2, 3, 1, 2, 7};
  double point[3], dir[3];
  EXPECT_EQ(QX_3DGEOM_2POINT_LINE(two, point, dir), 1);
  ExpectVec(point, 1, 2, 3);
  ExpectVec(dir, 0, 0, 1);
  const double same[6] = {1, 2, 3, 1, 2, 3 + 5e-7};
  EXPECT_EQ(QX_3DGEOM_2POINT_LINE(same, point, dir), 0);
  ExpectVec(dir, 0, 0, 0);

  const double pts[9] = {1, 2, 3, 100, 100, 100, -50, 0, 7};
  double out[3];
  ExpectVec(QX_3DGEOM_CENTROID(3, pts, out), 17, 34, 110.0 / 3);
  EXPECT_TRUE(std::isnan(QX_3DGEOM_CENTROID(0, pts, out)[1]));
  QX_3DGEOM_CENTROID(-2, pts, out);
  EXPECT_EQ(out[0], 0.0);
  EXPECT_TRUE(std::signbit(out[0]) && std::signbit(out[2]));

  const double masses[3] = {1, 3, 0.5};
  ExpectVec(QX_3DGEOM_CENTER_OF_MASS(3, pts, masses, out), 1, 2, 3);  // the first point
  EXPECT_TRUE(std::isnan(QX_3DGEOM_CENTER_OF_MASS(0, pts, masses, out)[0]));
}

TEST(Qx3dGeomLines, DistancesAgreeWithIndependentFormulas) {
  Lcg rng(11);
  for (int trial = 0; trial < 40; ++trial) {
    double l1[6], l2[6], p[3];
    rng.Point(l1, -5, 5);
    rng.Point(l1 + 3, -1, 1);
    Normalise(l1 + 3);
    rng.Point(l2, -5, 5);
    rng.Point(l2 + 3, -1, 1);
    Normalise(l2 + 3);
    rng.Point(p, -5, 5);
    // Point to line: |(p - L) x D|.
    double d[3], c[3];
    QX_3DVEC_DIFF(p, l1, d);
    QX_3DVEC_CROSS(d, l1 + 3, c);
    EXPECT_NEAR(QX_3DGEOM_DIST_PT_LN(p, l1), QX_3DVEC_LEN(c), 1e-9);
    // Line to line: minimise |l1 + s D1 - l2 - t D2| by the normal equations.
    double w[3];
    QX_3DVEC_DIFF(l1, l2, w);
    const double b = QX_3DVEC_DOT(l1 + 3, l2 + 3), dd = QX_3DVEC_DOT(l1 + 3, w),
                 e = QX_3DVEC_DOT(l2 + 3, w), den = 1 - b * b;
    const double s = (b * e - dd) / den, t = (e - b * dd) / den;
    double q1[3], q2[3];
    for (int i = 0; i < 3; ++i) {
      q1[i] = l1[i] + s * l1[3 + i];
      q2[i] = l2[i] + t * l2[3 + i];
    }
    EXPECT_NEAR(QX_3DGEOM_DIST_2LN(l1, l2), Dist(q1, q2), 1e-9);
    // Point to plane, and the projection lands on the plane at that distance.
    double proj[3];
    EXPECT_EQ(QX_3DGEOM_PROJ_PT_PL(p, l1, proj), l1);
    EXPECT_NEAR(Dist(p, proj), QX_3DGEOM_DIST_PT_PL(p, l1), 1e-9);
    EXPECT_NEAR(QX_3DGEOM_DIST_PT_PL(proj, l1), 0, 1e-9);
    // Normal points: the foot is the nearest line point.
    double np[6];
    EXPECT_EQ(QX_3DGEOM_NORMAL_PTS(l1, 0.75, p, np), 1);
    double foot[3];
    for (int i = 0; i < 3; ++i)
      foot[i] = 0.5 * (np[i] + np[3 + i]);
    EXPECT_NEAR(Dist(p, foot), QX_3DGEOM_DIST_PT_LN(p, l1), 1e-9);
    EXPECT_NEAR(Dist(np, np + 3), 1.5, 1e-12);
  }
  const double line[6] = {0, 0, 0, 1, 0, 0}, parallel[6] = {7, 3, 4, -1, 0, 0};
  EXPECT_DOUBLE_EQ(QX_3DGEOM_DIST_2LN(line, parallel), 5.0);
  const double close[3] = {0, 5e-7, 0}, along[3] = {0, 3, 4};
  EXPECT_EQ(QX_3DGEOM_DIST_PT_LN(close, line), 0.0);
  EXPECT_EQ(QX_3DGEOM_DIST_PT_LN(along, line), 5.0);
  EXPECT_EQ(QX_3DGEOM_DIST_2PT(close, line), 0.0);  // square below 1e-12
}

TEST(Qx3dGeomLines, LinePlaneIntersectionIsMirroredThroughTheLinePoint) {
  const double line[6] = {0, 0, 1, 0, 0, 1}, plane[6] = {0, 0, 0, 0, 0, 1};
  double out[3];
  ASSERT_EQ(QX_3DGEOM_NTRSCT_LN_PL(line, plane, out), 1);
  ExpectVec(out, 0, 0, 2, 0.0);

  Lcg rng(3);
  for (int trial = 0; trial < 30; ++trial) {
    double l[6], pl[6];
    rng.Point(l, -4, 4);
    rng.Point(l + 3, -1, 1);
    Normalise(l + 3);
    rng.Point(pl, -4, 4);
    rng.Point(pl + 3, -1, 1);
    Normalise(pl + 3);
    const double c = QX_3DVEC_DOT(l + 3, pl + 3);
    if (c <= 1e-6) {
      EXPECT_EQ(QX_3DGEOM_NTRSCT_LN_PL(l, pl, out), 0);
      continue;
    }
    ASSERT_EQ(QX_3DGEOM_NTRSCT_LN_PL(l, pl, out), 1);
    // The true intersection X solves N . (L + t D - P) = 0; out is 2L - X.
    double lp[3];
    QX_3DVEC_DIFF(pl, l, lp);
    const double t = QX_3DVEC_DOT(pl + 3, lp) / c;
    for (int i = 0; i < 3; ++i)
      EXPECT_NEAR(out[i], 2 * l[i] - (l[i] + t * l[3 + i]), 1e-9);
  }
  const double anti[6] = {0, 0, 1, 0, 0, -1}, flat[6] = {0, 0, 1, 1, 0, 0};
  EXPECT_EQ(QX_3DGEOM_NTRSCT_LN_PL(anti, plane, out), 0);
  EXPECT_EQ(QX_3DGEOM_NTRSCT_LN_PL(flat, plane, out), 0);
}

TEST(Qx3dGeomLines, TwoPlaneIntersectionKeepsTheDirectionOnly) {
  // w = u x N2 always makes an angle of 90 degrees or more with N1, so the
  // line-plane step refuses it and the result is 0; the direction is stored.
  struct Row {
    double p1[6], p2[6];
    double dir[3];
  };
  constexpr Row kRows[] = {
      {{0, 0, 0, 0, 0, 1}, {0, 0, 0, 1, 0, 0}, {0, 1, 0}},
      {{0, 0, 0, 0, 0, 1}, {0, 0, 0, -1, 0, 0}, {0, -1, 0}},
      {{1, 2, 3, 1, 0, 0}, {4, 5, 6, 0, 0.6, 0.8}, {0, -0.8, 0.6}},
      {{0, 0, 0, 0, 0, 1}, {0, 0, 5, 0, 0, -1}, {0, 0, 0}},  // parallel
  };
  for (const Row &row : kRows) {
    double line[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(QX_3DGEOM_NTRSCT_2PL(row.p1, row.p2, line), 0);
    ExpectVec(line + 3, row.dir[0], row.dir[1], row.dir[2], 1e-15);
    ExpectVec(line, 9, 9, 9, 0.0);
  }
}

// ---- Sphere volumes ---------------------------------------------------------

TEST(Qx3dGeomVolume, DistancesMatchSampledSphereSurfaces) {
  const double spheres[] = {0, 0, 0, 1, 3, 0, 0, 0.5, -1, 2, 1, 0.75, 0, -4, 2, 1.5};
  const QX_3DGEOM_VOLUME volume{4, spheres};
  Lcg rng(5);
  for (int trial = 0; trial < 40; ++trial) {
    double p[3];
    rng.Point(p, -6, 6);
    double brute = 1e300;
    bool inside = false;
    for (int s = 0; s < 4; ++s) {
      const double *c = spheres + 4 * s;
      inside = inside || Dist(p, c) < c[3];
      for (int i = 0; i <= 60; ++i)
        for (int j = 0; j < 120; ++j) {
          const double th = i * 3.141592653589793 / 60, ph = j * 3.141592653589793 / 60;
          const double q[3] = {c[0] + c[3] * std::sin(th) * std::cos(ph),
                               c[1] + c[3] * std::sin(th) * std::sin(ph),
                               c[2] + c[3] * std::cos(th)};
          brute = std::fmin(brute, Dist(p, q));
        }
    }
    const double got = QX_3DGEOM_DIST_PT_VO(p, &volume);
    EXPECT_EQ(QX_3DGEOM_INCLUDED(p, &volume), inside ? 1 : 0);
    EXPECT_EQ(QX_3DGEOM_EXCLUDED(p, &volume), inside ? 0 : 1);
    if (inside) {
      EXPECT_EQ(got, 0.0);
    } else {
      EXPECT_LE(got, brute + 1e-12);
      EXPECT_GE(got, brute - 0.08);
    }
  }
}

TEST(Qx3dGeomVolume, LineAndPlaneScansAndEmptyVolumes) {
  const double spheres[] = {0, 0, 0, 1, 0, 10, 0, 2};
  const QX_3DGEOM_VOLUME volume{2, spheres};
  struct Row {
    double rec[6];
    double line_distance;
  };
  constexpr Row kRows[] = {
      {{0, 0, 5, 1, 0, 0}, 4.0},    // 5 above the first centre
      {{0, 0, 0.5, 0, 1, 0}, 0.0},  // passes through the first sphere
      {{4, 0, 0, 0, 0, 1}, 3.0},
  };
  for (const Row &row : kRows)
    EXPECT_NEAR(QX_3DGEOM_DIST_LN_VO(row.rec, &volume), row.line_distance, 1e-12);
  const double plane[6] = {0, 13, 0, 0, 1, 0};  // y = 13: 3 - 2 = 1 from the second
  EXPECT_EQ(QX_3DGEOM_DIST_PL_VO(plane, &volume), 1.0);
  const double cut[6] = {0, 0.5, 0, 0, 1, 0};
  EXPECT_EQ(QX_3DGEOM_DIST_PL_VO(cut, &volume), 0.0);

  const double on_surface[3] = {1, 0, 0};
  EXPECT_EQ(QX_3DGEOM_INCLUDED(on_surface, &volume), 0);  // strict
  EXPECT_EQ(QX_3DGEOM_DIST_PT_VO(on_surface, &volume), 0.0);

  const QX_3DGEOM_VOLUME empty{0, spheres}, negative{-3, spheres}, no_spheres{2, nullptr};
  for (const QX_3DGEOM_VOLUME *v :
       {&empty, &negative, &no_spheres, static_cast<const QX_3DGEOM_VOLUME *>(nullptr)}) {
    EXPECT_EQ(QX_3DGEOM_DIST_PT_VO(on_surface, v), 1e100);
    EXPECT_EQ(QX_3DGEOM_DIST_LN_VO(plane, v), 1e100);
    EXPECT_EQ(QX_3DGEOM_DIST_PL_VO(plane, v), 1e100);
    EXPECT_EQ(QX_3DGEOM_INCLUDED(on_surface, v), 0);
    EXPECT_EQ(QX_3DGEOM_EXCLUDED(on_surface, v), 1);
  }
}

// ---- Circles and arcs -------------------------------------------------------

struct Circle {
  double centre[3], axis[3], r;
};

// Two unit vectors completing the unit axis a to a right-handed frame.
void Complete(const double *a, double *e, double *f) {
  QX_3DVEC_PERPENDICULAR(a, e);
  Normalise(e);
  QX_3DVEC_CROSS(a, e, f);
}

void CirclePoint(const Circle &c, const double *e, const double *f, double t, double *q) {
  for (int i = 0; i < 3; ++i)
    q[i] = c.centre[i] + c.r * (std::cos(t) * e[i] + std::sin(t) * f[i]);
}

TEST(Qx3dGeomCircle, DistancesAgreeWithSampledCircles) {
  std::vector<Circle> circles = {
      {{0, 0, 0}, {0, 0, 1}, 2}, {{1, -2, 3}, {1, 1, 1}, 0.7}, {{-1, 0, 2}, {0.2, -1, 0.1}, 3.5}};
  Lcg rng(9);
  for (Circle &c : circles) {
    Normalise(c.axis);
    double e[3], f[3];
    Complete(c.axis, e, f);
    std::vector<double> grid;
    double grid_min = 1e300, grid_max = 0;
    for (int trial = 0; trial < 12; ++trial) {
      double p[3];
      rng.Point(p, -5, 5);
      if (trial == 0)
        for (int i = 0; i < 3; ++i)
          p[i] = c.centre[i] + 1.5 * c.axis[i];  // on the axis
      double near = 1e300, far = 0;
      for (int k = 0; k < 4000; ++k) {
        double q[3];
        CirclePoint(c, e, f, k * 2 * 3.141592653589793 / 4000, q);
        near = std::fmin(near, Dist(p, q));
        far = std::fmax(far, Dist(p, q));
      }
      const double got = QX_3DGEOM_DIST_PT_CIRCLE(p, c.centre, c.axis, c.r);
      EXPECT_LE(got, near + 1e-12);
      EXPECT_GE(got, near - 1e-3);
      grid.insert(grid.end(), p, p + 3);
      grid_min = std::fmin(grid_min, near);
      grid_max = std::fmax(grid_max, far);
    }
    double lo = -1, hi = -1;
    QX_3DGEOM_DIST_GRID_CIRCLE(grid.data(), 12, c.centre, c.axis, c.r, &lo, &hi);
    EXPECT_NEAR(lo, grid_min, 1e-3);
    EXPECT_NEAR(hi, grid_max, 1e-3);
    QX_3DGEOM_DIST_GRID_CIRCLE(grid.data(), 12, c.centre, c.axis, c.r, &lo, nullptr);
    EXPECT_NEAR(lo, grid_min, 1e-3);
    QX_3DGEOM_DIST_GRID_CIRCLE(grid.data(), 0, c.centre, c.axis, c.r, &lo, &hi);
    EXPECT_EQ(lo, 1e30);
    EXPECT_EQ(hi, 0.0);
  }
}

TEST(Qx3dGeomCircle, FarthestPointOfAnArcAgreesWithSampling) {
  struct Row {
    double half;  // half opening in degrees; 180: full circle
  };
  constexpr Row kRows[] = {{20}, {75}, {135}, {180}};
  Circle c{{0.5, 1, -1}, {0, 0.6, 0.8}, 1.3};
  double e[3], f[3];
  Complete(c.axis, e, f);
  Lcg rng(13);
  for (const Row &row : kRows) {
    const double half = row.half * kRad;
    const double limit = row.half == 180 ? -1.0 : std::cos(half);
    double end1[3], end2[3];
    CirclePoint(c, e, f, half, end1);
    CirclePoint(c, e, f, -half, end2);
    for (int trial = 0; trial < 25; ++trial) {
      double p[3];
      rng.Point(p, -4, 4);
      double far2 = 0, circle_far2 = 0;
      for (int k = 0; k <= 4000; ++k) {
        double q[3];
        const double t = -3.141592653589793 + k * 2 * 3.141592653589793 / 4000;
        CirclePoint(c, e, f, t, q);
        const double d2 = Dist(p, q) * Dist(p, q);
        circle_far2 = std::fmax(circle_far2, d2);
        if (std::fabs(t) <= half) far2 = std::fmax(far2, d2);
      }
      far2 = std::fmax(far2, std::fmax(std::pow(Dist(p, end1), 2), std::pow(Dist(p, end2), 2)));
      int flag = -1;
      const double got =
          QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(p, c.centre, c.axis, c.r, e, end1, end2, limit, &flag);
      EXPECT_GE(got, far2 - 1e-9);
      EXPECT_LE(got, far2 + 1e-4);
      // The flag says whether the farthest circle point is on the arc.
      if (std::fabs(circle_far2 - far2) > 1e-3) {
        EXPECT_EQ(flag, 0);
      }
      if (flag == 1) {
        EXPECT_NEAR(got, circle_far2, 1e-4);
      }
      EXPECT_EQ(QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(p, c.centre, c.axis, c.r, e, end1, end2, limit,
                                                  nullptr),
                got);
    }
  }
}

// ---- Caps -------------------------------------------------------------------

struct CapCase {
  double p0[3], p1[3], axis[3], angle1, angle2;
};

// Samples of the cap surface by its own description: the sphere about p0
// through p1, azimuth within angle1 of p1's about the axis, polar angle within
// angle2 of p1's.
std::vector<double> SampleCap(const CapCase &c, int steps) {
  double a[3] = {c.axis[0], c.axis[1], c.axis[2]}, b[3], e0[3], e1[3];
  Normalise(a);
  QX_3DVEC_DIFF(c.p1, c.p0, b);
  const double radius = QX_3DVEC_LEN(b);
  Normalise(b);
  const double along = QX_3DVEC_DOT(a, b);
  if (std::fabs(along) >= 0.99999) {
    QX_3DVEC_PERPENDICULAR(a, e0);
  } else {
    for (int i = 0; i < 3; ++i)
      e0[i] = b[i] - along * a[i];
  }
  Normalise(e0);
  QX_3DVEC_CROSS(a, e0, e1);
  const double theta0 = std::acos(along), span = c.angle2 * kRad, az = c.angle1 * kRad;
  double lo = theta0 - span, hi = theta0 + span;
  if (c.angle1 != 0) {  // a region (or a latitude arc): polar angles stay in 0..pi
    lo = std::fmax(lo, 0.0);
    hi = std::fmin(hi, 3.141592653589793);
  }
  std::vector<double> pts;
  for (int i = 0; i <= steps; ++i) {
    const double th = lo + (hi - lo) * i / steps;
    for (int j = 0; j <= steps; ++j) {
      const double ph = -az + 2 * az * j / steps;
      for (int k = 0; k < 3; ++k)
        pts.push_back(c.p0[k] +
                      radius * (std::sin(th) * (std::cos(ph) * e0[k] + std::sin(ph) * e1[k]) +
                                std::cos(th) * a[k]));
    }
  }
  return pts;
}

const CapCase kCaps[] = {
    {{0, 0, 0}, {2, 0, 0}, {0, 0, 1}, 40, 25},       // a patch on the equator
    {{1, -1, 0.5}, {2, 0, 1.5}, {0, 1, 0}, 70, 30},  // oblique
    {{0, 0, 0}, {0, 0, 3}, {0, 0, 2}, 180, 35},      // a classic cap about the pole
    {{0, 0, 0}, {1.5, 0, 0}, {0, 0, 1}, 180, 20},    // a full band
    {{0, 0, 0}, {0, 0, 2}, {0, 0, 1}, 60, 50},       // a slice reaching the pole
    {{1, 2, 3},
     {1, 2 + std::sin(2.6179938779914944), 3 + std::cos(2.6179938779914944)},
     {0, 0, 1},
     100,
     45},                                       // polar range clipped at 180
    {{0, 0, 0}, {1, 1, 0}, {0, 0, 1}, 50, 0},   // one latitude arc
    {{0, 0, 0}, {1, 0, 1}, {0, 0, 1}, 0, 40},   // one meridian arc
    {{0, 0, 0}, {0, 2, 1}, {1, 0, 0}, 180, 0},  // one full circle
};

TEST(Qx3dGeomCap, NearestDistanceAgreesWithSampledSurface) {
  Lcg rng(21);
  for (const CapCase &c : kCaps) {
    QX_3DGEOM_CAP_RECORD *cap = nullptr;
    ASSERT_EQ(QX_3DGEOM_CAP(c.p0, c.p1, c.axis, c.angle1, c.angle2, &cap), 1);
    ASSERT_NE(cap, nullptr);
    EXPECT_EQ(cap->single_arc, c.angle1 == 0 || c.angle2 == 0);
    const std::vector<double> surface = SampleCap(c, 240);
    const double radius = Dist(c.p0, c.p1);
    const double spacing = radius * 3.141592653589793 / 240 * 2;
    std::vector<double> grid;
    double grid_min = 1e300;
    for (int trial = 0; trial < 24; ++trial) {
      double p[3];
      rng.Point(p, -4, 4);
      for (int i = 0; i < 3; ++i)
        p[i] += c.p0[i];
      if (trial == 0)
        for (int i = 0; i < 3; ++i)
          p[i] = c.p0[i];  // the centre: every point at the radius
      double brute = 1e300;
      for (std::size_t k = 0; k < surface.size(); k += 3)
        brute = std::fmin(brute, Dist(p, &surface[k]));
      const double got = QX_3DGEOM_DIST_PT_CAP(p, cap);
      EXPECT_LE(got, brute + 1e-9) << c.angle1 << "/" << c.angle2 << " trial " << trial;
      EXPECT_GE(got, brute - spacing) << c.angle1 << "/" << c.angle2 << " trial " << trial;
      grid.insert(grid.end(), p, p + 3);
      grid_min = std::fmin(grid_min, got);
    }
    double lo = -1, hi = -1;
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid.data(), 24, cap, &lo, nullptr), 24);
    EXPECT_EQ(lo, grid_min);
    EXPECT_EQ(hi, -1);
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid.data(), 0, cap, &lo, &hi), 0);
    EXPECT_EQ(lo, 1e30);
    EXPECT_EQ(hi, 0.0);
    UTL_DMEM_FREE(cap, "test", __LINE__);
  }
}

TEST(Qx3dGeomCap, FarthestDistanceAgreesWithSampledSurface) {
  Lcg rng(23);
  for (const CapCase &c : kCaps) {
    QX_3DGEOM_CAP_RECORD *cap = nullptr;
    ASSERT_EQ(QX_3DGEOM_CAP(c.p0, c.p1, c.axis, c.angle1, c.angle2, &cap), 1);
    const std::vector<double> surface = SampleCap(c, 240);
    const double radius = Dist(c.p0, c.p1);
    const double spacing = radius * 3.141592653589793 / 240 * 2;
    std::vector<double> grid;
    double grid_max = 0;
    int checked = 0;
    for (int trial = 0; trial < 40; ++trial) {
      double p[3];
      rng.Point(p, -4, 4);
      for (int i = 0; i < 3; ++i)
        p[i] += c.p0[i];
      double brute = 0;
      for (std::size_t k = 0; k < surface.size(); k += 3)
        brute = std::fmax(brute, Dist(p, &surface[k]));
      const double got = QX_3DGEOM_MAX_DIST_PT_CAP(p, cap);
      grid.insert(grid.end(), p, p + 3);
      grid_max = std::fmax(grid_max, got);
      checked += got == Dist(p, c.p0) + radius;  // the opposite point lies in the cap
      EXPECT_GE(got, brute - 1e-9) << c.angle1 << "/" << c.angle2 << " trial " << trial;
      EXPECT_LE(got, brute + spacing) << c.angle1 << "/" << c.angle2 << " trial " << trial;
    }
    if (c.angle1 != 0 && c.angle2 != 0) {
      EXPECT_GT(checked, 0) << c.angle1 << "/" << c.angle2;
    }
    double lo = -1, hi = -1;
    EXPECT_EQ(QX_3DGEOM_DIST_GRID_CAP(grid.data(), 40, cap, &lo, &hi), 40);
    EXPECT_EQ(hi, grid_max);
    UTL_DMEM_FREE(cap, "test", __LINE__);
  }
}

TEST(Qx3dGeomCap, OppositePointInsideGivesCentreDistancePlusRadius) {
  const CapCase &c = kCaps[0];  // equator patch around +x, radius 2
  QX_3DGEOM_CAP_RECORD *cap = nullptr;
  ASSERT_EQ(QX_3DGEOM_CAP(c.p0, c.p1, c.axis, c.angle1, c.angle2, &cap), 1);
  struct Row {
    double p[3];
  };
  constexpr Row kRows[] = {{{-3, 0, 0}}, {{-1, 0, 0}}, {{-2, -0.2, 0.3}}};
  for (const Row &row : kRows)
    EXPECT_DOUBLE_EQ(QX_3DGEOM_MAX_DIST_PT_CAP(row.p, cap), Dist(row.p, c.p0) + 2.0);
  // A point outside the sphere beyond the cap: nearest is its radial projection.
  const double p[3] = {5, 0, 0};
  EXPECT_DOUBLE_EQ(QX_3DGEOM_DIST_PT_CAP(p, cap), 3.0);
  UTL_DMEM_FREE(cap, "test", __LINE__);
}

TEST(Qx3dGeomCap, DegenerateCapsStayFinite) {
  struct Row {
    double p1[3], axis[3], angle1, angle2;
  };
  constexpr Row kRows[] = {
      {{1, 1, 1}, {0, 0, 1}, 30, 30},  // p1 = p0: radius 0
      {{1, 1, 1}, {0, 0, 1}, 0, 30},  {{1, 1, 1}, {0, 1, 0}, 30, 0},
      {{3, 1, 1}, {0, 0, 0}, 40, 25},  // zero axis: as (0, 0, 1)
      {{3, 1, 1}, {0, 0, 0}, 0, 25},
  };
  const double p0[3] = {1, 1, 1}, z[3] = {0, 0, 1}, p[3] = {-2, 4, 1.5};
  for (const Row &row : kRows) {
    QX_3DGEOM_CAP_RECORD *cap = nullptr, *ref = nullptr;
    ASSERT_EQ(QX_3DGEOM_CAP(p0, row.p1, row.axis, row.angle1, row.angle2, &cap), 1);
    ASSERT_EQ(QX_3DGEOM_CAP(p0, row.p1, z, row.angle1, row.angle2, &ref), 1);
    const bool point = row.p1[0] == p0[0];
    const double near = QX_3DGEOM_DIST_PT_CAP(p, cap), far = QX_3DGEOM_MAX_DIST_PT_CAP(p, cap);
    EXPECT_NEAR(near, point ? Dist(p, p0) : QX_3DGEOM_DIST_PT_CAP(p, ref), 1e-12);
    EXPECT_NEAR(far, point ? Dist(p, p0) : QX_3DGEOM_MAX_DIST_PT_CAP(p, ref), 1e-12);
    UTL_DMEM_FREE(cap, "test", __LINE__);
    UTL_DMEM_FREE(ref, "test", __LINE__);
  }
}

TEST(Qx3dGeomCap, RecordAllocationAndItsFailure) {
  EXPECT_EQ(sizeof(QX_3DGEOM_CAP_RECORD), 400u);
  const double p0[3] = {0, 0, 0}, p1[3] = {1, 0, 0}, axis[3] = {0, 0, 1};
  for (unsigned long n = 1;; ++n) {
    UTL_ERROR_CLEAR();
    QX_3DGEOM_CAP_RECORD *cap = reinterpret_cast<QX_3DGEOM_CAP_RECORD *>(&n);
    int result;
    {
      qxtest::FailAllocation guard(n);
      result = QX_3DGEOM_CAP(p0, p1, axis, 30, 30, &cap);
    }
    if (result == 1) {
      ASSERT_NE(cap, nullptr);
      EXPECT_FALSE(UTL_ERROR_IS_SET());
      UTL_DMEM_FREE(cap, "test", __LINE__);
      break;
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(cap, nullptr);
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    EXPECT_EQ(qxtest::TopError().traces.back(), "QX_3DGEOM_CAP (0)");
    ASSERT_LT(n, 5u);
  }
}

// ---- Sphere sampling --------------------------------------------------------

TEST(Qx3dGeomSphere, RingCountsPolesAndRadius) {
  struct Row {
    int n, written;
  };
  // n = 6: k = 4, two rings: 1 + 4 + 1. n = 10: k = 5: 1 + 5 + 1. n = 100:
  // k = 17, eight rings: 1 + 6 + 12 + 15 + 17 + 15 + 12 + 6 + 1 = 85.
  constexpr Row kRows[] = {{1, 1}, {2, 2}, {3, 2}, {6, 6}, {10, 7}, {100, 85}, {0, 0}, {-4, 0}};
  const double centre[3] = {1, -2, 3};
  for (const Row &row : kRows) {
    std::vector<double> out(3 * (row.n > 0 ? row.n : 1) + 3, 77.0);
    EXPECT_EQ(QX_3DGEOM_GEN_SPHERE(row.n, centre, 2.5, out.data()), row.written) << row.n;
    for (int i = 0; i < row.written; ++i)
      EXPECT_NEAR(Dist(&out[3 * i], centre), 2.5, 1e-12);
    EXPECT_EQ(out[3 * row.written], 77.0);                        // nothing beyond the count
    if (row.written > 0) ExpectVec(out.data(), 1, -2, 5.5, 0.0);  // the north pole first
    if (row.written > 1 && row.written < row.n + 1 && row.n > 1)
      ExpectVec(&out[3 * (row.written - 1)], 1, -2, 0.5, 1e-12);  // the south pole last
  }
  double pole[3];
  EXPECT_EQ(QX_3DGEOM_GEN_SPHERE(1, nullptr, 3, pole), 1);
  ExpectVec(pole, 0, 0, 3, 0.0);
}

TEST(Qx3dGeomSphere, PointsAreDistinctAndSpreadEvenly) {
  std::vector<double> out(3 * 2000);
  const int n = QX_3DGEOM_GEN_SPHERE(2000, nullptr, 1.0, out.data());
  ASSERT_GT(n, 1900);
  double mean[3] = {0, 0, 0};
  int upper = 0;
  for (int i = 0; i < n; ++i) {
    for (int k = 0; k < 3; ++k)
      mean[k] += out[3 * i + k] / n;
    upper += out[3 * i + 2] > 0;
  }
  ExpectVec(mean, 0, 0, 0, 0.02);
  EXPECT_NEAR(upper, n / 2, n / 50);
  // No two points closer than a fraction of the typical spacing sqrt(4 pi / n).
  double closest = 1e300;
  for (int i = 0; i < n; ++i)
    for (int j = i + 1; j < n; ++j)
      closest = std::fmin(closest, Dist(&out[3 * i], &out[3 * j]));
  EXPECT_GT(closest, 0.3 * std::sqrt(4 * 3.141592653589793 / n));
}

}  // namespace
