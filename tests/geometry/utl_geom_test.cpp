// Frames and transforms: checked against independent geometric facts
// (orthonormality, inverse products, distances between simplex vertices,
// right-hand rotations) rather than against the formulas themselves.
#include "utl_geom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

constexpr double kPi = 3.141592653589793;
const char *const kZeroVector = "UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR";

void ExpectVec(const double *got, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(got[0], x, tol);
  EXPECT_NEAR(got[1], y, tol);
  EXPECT_NEAR(got[2], z, tol);
}

// Rows orthonormal and determinant +1.
void ExpectRotation(const double *m) {
  for (int i = 0; i < 9; ++i) {
    const double *a = m + 3 * (i / 3), *b = m + 3 * (i % 3);
    EXPECT_NEAR(a[0] * b[0] + a[1] * b[1] + a[2] * b[2], i / 3 == i % 3, 1e-12) << "rows " << i;
  }
  EXPECT_NEAR(m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                  m[2] * (m[3] * m[7] - m[4] * m[6]),
              1.0, 1e-12);
}

void Apply(const double *m, const double *p, double *out) {
  for (int i = 0; i < 3; ++i)
    out[i] = m[3 * i] * p[0] + m[3 * i + 1] * p[1] + m[3 * i + 2] * p[2];
}

// m is a rotation taking u onto +x.
void ExpectAlignsToX(const double *m, const double *u) {
  double mu[3];
  ExpectRotation(m);
  Apply(m, u, mu);
  ExpectVec(mu, std::hypot(u[0], u[1], u[2]), 0, 0);
}

// The top error is identity with the given trace lines, innermost first.
void ExpectError(const std::string &identity, const std::vector<std::string> &traces) {
  EXPECT_EQ(qxtest::TopIdentity(), identity);
  EXPECT_EQ(qxtest::TopError().traces, traces);
}

TEST(UtlGeomVectors, NormAndUnitFollowTheZeroRules) {
  constexpr double kRows[][7] = {// vector, length, unit vector
                                 {3, 4, 0, 5.0, 0.6, 0.8, 0},
                                 {0, 0, -2e-6, 2e-6, 0, 0, -1},
                                 {1e-7, 0, 0, 0.0, 0, 0, 0}};  // square 1e-14: length 0
  const double origin[3] = {1.0, -2.0, 0.5};
  for (const auto &row : kRows) {
    UTL_ERROR_CLEAR();
    double out[3] = {9, 9, 9};
    EXPECT_DOUBLE_EQ(UTL_GEOM_VNORM(row, out), row[3]);
    ExpectVec(out, row[4], row[5], row[6]);
    if (row[3] == 0.0) ExpectError(kZeroVector, {"UTL_GEOM_VNORM"});
    EXPECT_EQ(UTL_ERROR_IS_SET() != 0, row[3] == 0.0);
    UTL_ERROR_CLEAR();
    const double to[3] = {origin[0] + row[0], origin[1] + row[1], origin[2] + row[2]};
    EXPECT_NEAR(UTL_GEOM_VUNIT(origin, to, out), row[3], 1e-15);
    ExpectVec(out, row[4], row[5], row[6], 1e-9);
    if (row[3] == 0.0) ExpectError(kZeroVector, {"UTL_GEOM_VUNIT"});
  }
  const double tiny[3] = {1e-7, 0, 0}, a[3] = {1, 2, 3}, b[3] = {4, 6, 3};
  EXPECT_DOUBLE_EQ(UTL_GEOM_VLEN(tiny), 1e-7);  // no threshold on the plain lengths
  EXPECT_EQ(UTL_GEOM_VLEN_SQ(a), 14.0);
  EXPECT_EQ(UTL_GEOM_VDIST(a, b), 5.0);
  EXPECT_EQ(UTL_GEOM_VDIST_SQ(a, b), 25.0);
}

TEST(UtlGeomVectors, CloseCentroidMidpointReflect) {
  const double nan = std::nan(""), zero[3] = {0, 0, 0};
  const double rows[][4] = {                     // b, close to the origin within a squared 1.0
                            {0.8, 0.8, 0, 0},    // 1.28
                            {0.5, 0.5, 0.5, 1},  // 0.75
                            {1.0, 0, 0, 1},      // exactly tol
                            {1.5, 0, nan, 0},    // decided after x: z never read
                            {0, 0.9, 0.5, 0}};   // decided after z
  for (const auto &row : rows)
    EXPECT_EQ(UTL_GEOM_CLOSE(zero, row, 123.0, 1.0), row[3]);

  const double pts[9] = {0, 0, 0, 2, 0, 0, 0, 4, 0}, w[3] = {1, 1, 2};
  double out[3];
  ExpectVec(UTL_GEOM_CENTROID(3, pts, nullptr, out), 2.0 / 3, 4.0 / 3, 0);
  ExpectVec(UTL_GEOM_CENTROID(3, pts, w, out), 0.5, 2.0, 0);
  ExpectVec(UTL_GEOM_CENTROID(1, pts + 3, nullptr, out), 0, 0, 0);  // one point: not its centroid
  UTL_GEOM_MIDPOINT(pts + 3, pts + 6, out);
  ExpectVec(out, 1, 2, 0);
  double p[3] = {1, 2, 3}, q[3] = {2, 0, 0};
  ExpectVec(UTL_GEOM_REFLECT(0, 0, 1, 1, p), 1, 2, -1);  // mirror in z = 1
  ExpectVec(UTL_GEOM_REFLECT(std::sqrt(0.5), std::sqrt(0.5), 0, 0, q), 0, -2, 0);  // x + y = 0
}

TEST(UtlGeomMatrices, IdentityTestProductsAndTranspose) {
  constexpr double kRows[][3] = {
      // element (9..11: translation), change, identity within 1e-3
      {0, 0.0, 1}, {4, 1e-3, 1}, {4, 2e-3, 0}, {1, -2e-3, 0}, {10, 5e-4, 1}, {11, -2e-3, 0}};
  for (const auto &row : kRows) {
    double m[9], t[3] = {0, 0, 0};
    const int index = static_cast<int>(row[0]);
    UTL_GEOM_IDENTITY_M(m);
    (index < 9 ? m[index] : t[index - 9]) += row[1];
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(m, t, 1e-3), row[2]) << index;
  }
  double a[9] = {1, -2, 3, 0, 5, 4, 2, 1, -1}, b[9] = {2, 0, 1, -1, 3, 0, 4, 1, -2}, c[9], d[9];
  EXPECT_EQ(UTL_GEOM_IS_IDENTITY(UTL_GEOM_IDENTITY_M(c), nullptr, 0.0), 1);
  UTL_GEOM_MMULT_NXN(3, a, b, d);
  EXPECT_EQ(d[5], -8.0);  // row 1, column 2: 0 * 1 + 5 * 0 + 4 * -2
  UTL_GEOM_MMULT(a, b, c);
  UTL_GEOM_MMULT(a, b, a);  // in place
  UTL_GEOM_TRANSPOSE(c);
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(a[i], d[i]);
    EXPECT_EQ(c[i], d[3 * (i % 3) + i / 3]);
  }
  const double a2[4] = {1, 2, 3, 4}, b2[4] = {5, 6, 7, 8};
  double c2[4];
  UTL_GEOM_MMULT_NXN(2, a2, b2, c2);
  EXPECT_EQ(std::vector<double>(c2, c2 + 4), (std::vector<double>{19, 22, 43, 50}));
}

TEST(UtlGeomMatrices, AxisRotationsAreRightHandedAndMformTurnsTheOtherWay) {
  using Make = void (*)(double, double *);
  const Make makes[] = {UTL_GEOM_MAKE_ROTX, UTL_GEOM_MAKE_ROTY, UTL_GEOM_MAKE_ROTZ};
  for (int i = 0; i < 3; ++i) {  // a quarter turn about an axis takes the next onto the one after
    double m[9], from[3] = {0, 0, 0}, out[3];
    from[(i + 1) % 3] = 1;
    makes[i](kPi / 2, m);
    ExpectRotation(m);
    Apply(m, from, out);
    EXPECT_NEAR(out[(i + 2) % 3], 1.0, 1e-15) << i;
  }
  const double from[3] = {1, 1, 1}, to[3] = {1, 1, 4};  // axis +z through (1, 1)
  for (double degrees : {90.0, -30.0, 137.5}) {
    double m[9], rz[9];
    UTL_GEOM_MFORM(from, to, degrees, m);
    UTL_GEOM_MAKE_ROTZ(-degrees * 0.017453292522222223, rz);  // the family's radians
    for (int i = 0; i < 9; ++i)
      EXPECT_NEAR(m[i], rz[i], 1e-15) << degrees;
  }
  // An oblique axis: a rotation that keeps the points of the axis.
  const double a[3] = {0.3, -1, 2}, b[3] = {1.3, 1, 0};
  double m[9], on_axis[3] = {0.8, 0, 1};
  UTL_GEOM_MFORM(a, b, 71, m);
  ExpectRotation(m);
  UTL_GEOM_ROTATE(a, m, on_axis);
  ExpectVec(on_axis, 0.8, 0, 1);
}

TEST(UtlGeomMatrices, MtensorIsTheCrossProductMatrixAndAZeroAxisGivesIdentity) {
  const double from[3] = {0, 0, 0}, to[3] = {2, -1, 2}, v[3] = {0.5, 3, -1};
  const double u[3] = {2.0 / 3, -1.0 / 3, 2.0 / 3};
  double k[9], k2[9], kv[3], cross[3], m[9];
  UTL_GEOM_MTENSOR(from, to, k, k2);
  Apply(k, v, kv);
  UTL_GEOM_CROSS(v, u, cross);  // k v = v x u
  ExpectVec(kv, cross[0], cross[1], cross[2], 1e-15);
  for (int i = 0; i < 9; ++i)
    EXPECT_NEAR(k2[i], u[i / 3] * u[i % 3] - (i % 4 == 0), 1e-15);
  UTL_GEOM_MTENSOR(from, from, k, k2);
  ExpectError(kZeroVector, {"UTL_GEOM_VUNIT"});
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(k[i] + k2[i], 0.0);
  UTL_ERROR_CLEAR();
  UTL_GEOM_MFORM(to, to, 40, m);
  EXPECT_EQ(UTL_GEOM_IS_IDENTITY(m, nullptr, 0.0), 1);
  EXPECT_EQ(qxtest::TopIdentity(), kZeroVector);
}

TEST(UtlGeomMatrices, OrthoMatGivesOrthonormalRowsKeepingRowZero) {
  const double in[9] = {2, 0.1, 0, 0.3, 1, 0.2, 0.1, 0.4, 3}, n0 = std::sqrt(4.01);
  double out[9], copy[9];
  ASSERT_EQ(UTL_GEOM_ORTHO_MAT(in, out), 1);
  ExpectRotation(out);
  ExpectVec(out, 2 / n0, 0.1 / n0, 0);
  // Row 1 lies in the plane of input rows 0 and 1, on row 1's side of row 0.
  EXPECT_NEAR(out[3] * 0.02 - out[4] * 0.4 + out[5] * 1.97, 0, 1e-12);
  EXPECT_GT(out[4], 0);
  std::copy(in, in + 9, copy);
  ASSERT_EQ(UTL_GEOM_ORTHO_MAT(copy, copy), 1);  // in place
  for (int i = 0; i < 9; ++i)
    EXPECT_DOUBLE_EQ(copy[i], out[i]);
  const double dependent[9] = {1, 0, 0, 2, 0, 0, 0, 0, 1};  // row 1 parallel to row 0
  EXPECT_EQ(UTL_GEOM_ORTHO_MAT(dependent, out), 0);
  ExpectError(kZeroVector, {"UTL_GEOM_VNORM", "UTL_GEOM_ORTHO_MAT"});
  ExpectVec(out + 3, 0, 0, 0);
}

TEST(UtlGeomApply, RotateTransformMrotateAndRevTransform) {
  double rz[9], p[3] = {2, 1, 5}, q[3] = {2, 1, 5}, pts[6] = {2, 1, 5, 1, 1, 1}, r[3] = {1, 0, 0};
  const double centre[3] = {1, 1, 0}, t[3] = {10, 20, 30};
  UTL_GEOM_MAKE_ROTZ(kPi / 2, rz);
  UTL_GEOM_ROTATE(centre, rz, p);
  ExpectVec(p, 1, 2, 5, 1e-15);
  UTL_GEOM_ROTATE(nullptr, rz, q);
  ExpectVec(q, -1, 2, 5, 1e-15);
  UTL_GEOM_MROTATE(rz, centre, 2, pts);
  ExpectVec(pts, 1, 2, 5, 1e-15);
  ExpectVec(pts + 3, 1, 1, 1, 1e-15);
  EXPECT_EQ(UTL_GEOM_TRANSFORM(r, rz, t, r), t);
  ExpectVec(r, 10, 21, 30, 1e-15);
  EXPECT_EQ(UTL_GEOM_TRANSFORM(r, rz, nullptr, r), nullptr);
  ExpectVec(r, -21, 10, 30, 1e-13);

  // The frame of three points: rows b - o (x here), a - o (y), and their cross product.
  const double o[3] = {1, 1, 1}, a[3] = {1, 4, 1}, b[3] = {3, 1, 1}, a2[3] = {2, 2, 1};
  double m[9], p1[3] = {2, 3, 4}, p2[3] = {1, 1, 1}, p3[3] = {7, 8, 9};
  ASSERT_EQ(UTL_GEOM_REV_TRANSFORM(o, a, b, p1, m), 1);
  ExpectVec(p1, 3, 1, 2);
  ExpectVec(m, 0, 0, 1);
  ASSERT_EQ(UTL_GEOM_REV_TRANSFORM(o, a2, b, p2, m), 1);  // not orthogonalised
  ExpectVec(m + 6, std::sqrt(0.5), std::sqrt(0.5), 0);
  ExpectVec(m, 0, 0, std::sqrt(0.5));
  ExpectVec(p2, 0, 0, 0);
  EXPECT_EQ(UTL_GEOM_REV_TRANSFORM(o, o, b, p3, m), 0);
  ExpectError(kZeroVector, {"UTL_GEOM_VUNIT", "UTL_GEOM_REV_TRANSFORM"});
  ExpectVec(p3, 7, 8, 9);
}

TEST(UtlGeomAlign, FramesAreRotationsMappingUToXAndWIntoTheUpperXyPlane) {
  constexpr double kRows[][6] = {
      // u, w
      {1, 2, 3, -1, 0.5, 2}, {0, 0, 5, 1, 1, 0}, {-3, 0, 0, 0, 0, -2}, {1, 1, 1, 1, -1, 0},
      {0.2, -7, 1, 3, 3, 3}, {0, 1, 0, 0, 3, 0}, {0, 1, 1, 0, 2, 2},  // parallel with ux = 0
      {1, 1, 0, 2, 2, 0},  // parallel: n from (0, -uz, uy)
  };
  const double from[3] = {5, -1, 2};
  for (const auto &row : kRows) {
    UTL_ERROR_CLEAR();
    double m[9], m2[9], mw[3], ax[9], to1[3], to2[3];
    ASSERT_EQ(UTL_GEOM_ALIGN(nullptr, row, nullptr, row + 3, m), 1);
    ASSERT_EQ(UTL_GEOM_ALIGNX(nullptr, row, ax), 1);
    EXPECT_FALSE(UTL_ERROR_IS_SET());
    ExpectAlignsToX(m, row);
    ExpectAlignsToX(ax, row);
    Apply(m, row + 3, mw);
    EXPECT_NEAR(mw[2], 0.0, 1e-12);
    EXPECT_GE(mw[1], -1e-12);
    for (int i = 0; i < 3; ++i) {  // the same frame from point pairs
      to1[i] = from[i] + row[i];
      to2[i] = from[i] + row[3 + i];
    }
    ASSERT_EQ(UTL_GEOM_ALIGN(from, to1, from, to2, m2), 1);
    for (int i = 0; i < 9; ++i)
      EXPECT_NEAR(m2[i], m[i], 1e-12);
  }
  const double y[3] = {0, 1, 0}, y3[3] = {0, 3, 0};
  double m[9];
  UTL_GEOM_ALIGN(nullptr, y, nullptr, y3, m);
  EXPECT_EQ(std::vector<double>(m, m + 9), (std::vector<double>{0, 1, 0, 0, 0, 1, 1, 0, 0}));
}

TEST(UtlGeomAlign, FailuresRecordTheDocumentedErrors) {
  const struct {
    double u[3], w[3];
    const char *identity;
    std::vector<std::string> traces;
  } rows[] = {{{1, 0, 0}, {2, 0, 0}, "UTL/GEOM/WARNING/COLINEAR", {"UTL_GEOM_ALIGN"}},
              {{-4, 0, 0}, {1, 0, 0}, "UTL/GEOM/WARNING/COLINEAR", {"UTL_GEOM_ALIGN"}},
              {{5e-5, 0, 0}, {0, 1, 0}, "UTL/GEOM/WARNING/SMALL_DIST", {"UTL_GEOM_ALIGN"}},
              {{1, 0, 0}, {0, 0, 0}, kZeroVector, {"UTL_GEOM_VNORM", "UTL_GEOM_ALIGN"}}};
  double m[9];
  for (const auto &row : rows) {
    UTL_ERROR_CLEAR();
    EXPECT_EQ(UTL_GEOM_ALIGN(nullptr, row.u, nullptr, row.w, m), 0);
    ExpectError(row.identity, row.traces);
  }
  const double p[3] = {1, 1, 1}, short_u[3] = {5e-5, 0, 0}, u[3] = {1, 2, 3};
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_GEOM_ALIGNX(p, p, m), 0);
  ExpectError(kZeroVector, {"UTL_GEOM_VUNIT", "UTL_GEOM_ALIGNX"});
  // Too short to align but not zero: only the trace line, which the error
  // stack files under its own PROGRAM_ERROR warning.
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_GEOM_ALIGNX(nullptr, short_u, m), 0);
  ExpectError("UTL/ERROR/WARNING/PROGRAM_ERROR", {"UTL_ERROR_ADD_TRACE", "UTL_GEOM_ALIGNX"});
  // A pending error makes both alignments fail.
  UTL_ERROR_CLEAR();
  UTL_ERROR_SET("APP", "TEST", "WARNING", "PENDING", "caller");
  EXPECT_EQ(UTL_GEOM_ALIGN(nullptr, u, nullptr, p, m), 0);
  ExpectError("APP/TEST/WARNING/PENDING", {"caller", "UTL_GEOM_ALIGN"});
  EXPECT_EQ(UTL_GEOM_ALIGNX(nullptr, u, m), 0);
  ExpectError("APP/TEST/WARNING/PENDING", {"caller", "UTL_GEOM_ALIGN", "UTL_GEOM_ALIGNX"});
}

TEST(UtlGeomCrystal, MatricesAreInversesAndReproduceTheCell) {
  constexpr double kCells[][6] = {{10, 10, 10, 90, 90, 90},
                                  {4.9, 4.9, 5.4, 90, 90, 120},
                                  {7.1, 8.3, 9.9, 101, 95.5, 77},
                                  {5, 6, 7, 60, 70, 80},
                                  {3, 3, 3, 109.47, 109.47, 109.47}};
  const double zero[3] = {0, 0, 0};
  for (const auto &cell : kCells) {
    double o[9], f[9], p[9], edge[3][3];
    ASSERT_EQ(UTL_GEOM_CRYSTAL_MATRICES(cell, o, f), 1);
    UTL_GEOM_MMULT(o, f, p);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(p, nullptr, 1e-12), 1);
    UTL_GEOM_MMULT(f, o, p);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(p, nullptr, 1e-12), 1);
    for (int i = 0; i < 9; ++i)  // the columns of o are the cell edges
      edge[i % 3][i / 3] = o[i];
    for (int j = 0; j < 3; ++j)
      EXPECT_NEAR(UTL_GEOM_VLEN(edge[j]), cell[j], 1e-12);
    EXPECT_NEAR(UTL_GEOM_THETA(edge[1], zero, edge[2]), cell[3], 1e-7);
    EXPECT_NEAR(UTL_GEOM_THETA(edge[0], zero, edge[2]), cell[4], 1e-7);
    EXPECT_NEAR(UTL_GEOM_THETA(edge[0], zero, edge[1]), cell[5], 1e-7);
    EXPECT_TRUE(o[3] == 0 && o[6] == 0 && o[7] == 0 && o[4] > 0 && o[8] > 0);  // a on x, b in xy
  }
  const double nan = std::nan("");
  const double bad[][6] = {{10, 10, 10, 30, 60, 90},  // alpha + beta = gamma: flat
                           {0, 10, 10, 90, 90, 90},   {10, -1, 10, 90, 90, 90},
                           {10, 10, 0, 90, 90, 90},   {10, 10, 10, 90, 90, 0},
                           {10, 10, 10, 10, 10, 100},  // V^2 < 0
                           {10, 10, 10, nan, 90, 90}};
  for (const auto &cell : bad) {
    UTL_ERROR_CLEAR();
    double o[9] = {}, f[9] = {};
    EXPECT_EQ(UTL_GEOM_CRYSTAL_MATRICES(cell, o, f), 0);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(o, nullptr, 0.0) + UTL_GEOM_IS_IDENTITY(f, nullptr, 0.0), 2);
    ExpectError("UTL/GEOM/FATAL/BAD_CELL", {"UTL_GEOM_CRYSTAL_MATRICES"});
  }
}

TEST(UtlGeomAngles, ThetaAndTauOnKnownShapes) {
  const double a[3] = {1, 0, 0}, b[3] = {0, 0, 0}, c[3] = {0, 1, 0}, far[3] = {-3, 0, 0};
  EXPECT_EQ(UTL_GEOM_THETA(a, b, c), 89.99999998824843);
  EXPECT_NEAR(UTL_GEOM_THETA(a, b, far), 180.0, 1e-6);
  // a-b-c-d with d turned by phi about the b-c axis (y): torsion phi, no 360 added.
  for (double phi : {0.0, 180.0, -60.0, 60.0, 120.0, -150.0, 179.9, -0.5}) {
    const double d[3] = {std::cos(phi * kPi / 180), 1, -std::sin(phi * kPi / 180)};
    if (phi == 0 || phi == 180)
      EXPECT_EQ(UTL_GEOM_TAU(a, b, c, d), phi);  // exact by the flat band
    else
      EXPECT_NEAR(UTL_GEOM_TAU(a, b, c, d), phi, 1e-7);
  }
}

TEST(UtlGeomAngles, FailuresReturnZeroWithTheirErrors) {
  const struct {
    double p[4][3];
    const char *identity;
  } rows[] = {
      {{{1, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 1, 1}}, "UTL/GEOM/WARNING/SMALL_DIST"},
      {{{1, 0, 0}, {0, 0, 0}, {0.0005, 0, 0}, {0, 1, 1}}, "UTL/GEOM/WARNING/SMALL_DIST"},
      {{{-1, 0, 0}, {0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, "UTL/GEOM/FATAL/COLINEAR"},
      {{{0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {1.5, 0, 1e-4}}, "UTL/GEOM/FATAL/COLINEAR"},
  };
  for (const auto &row : rows) {
    UTL_ERROR_CLEAR();
    EXPECT_EQ(UTL_GEOM_TAU(row.p[0], row.p[1], row.p[2], row.p[3]), 0.0);
    ExpectError(row.identity, {"UTL_GEOM_TAU"});
  }
  UTL_ERROR_CLEAR();  // the zero bond of the first row lies under the warning
  EXPECT_EQ(UTL_GEOM_TAU(rows[0].p[0], rows[0].p[1], rows[0].p[2], rows[0].p[3]), 0.0);
  EXPECT_EQ(qxtest::Entry(qxtest::StackTop() - 1).code, "ZERO_LENGTH_VECTOR");
  UTL_ERROR_CLEAR();
  const double a[3] = {1, 0, 0}, b[3] = {0, 0, 0}, near_b[3] = {0.0005, 0.0005, 0};
  EXPECT_EQ(UTL_GEOM_THETA(a, b, near_b), 0.0);
  ExpectError("UTL/GEOM/WARNING/SMALL_DIST", {"UTL_GEOM_THETA"});
}

TEST(UtlGeomHedron, VerticesFormARegularUnitSimplexAboutTheOrigin) {
  double one[2];
  UTL_GEOM_HEDRON(1, one);
  EXPECT_TRUE(one[0] == -0.5 && one[1] == 0.5);
  for (int n = 2; n <= 7; ++n) {
    std::vector<double> v((n + 1) * n, 99.0);
    UTL_GEOM_HEDRON(n, v.data());
    for (int i = 0; i <= n; ++i)
      for (int j = i; j <= n + 1; ++j) {  // j = n + 1: the origin, the centre
        double d2 = 0;
        for (int col = 0; col < n; ++col)
          d2 += std::pow(v[i * n + col] - (j <= n ? v[j * n + col] : 0), 2);
        EXPECT_NEAR(d2, j == n + 1 ? n / (2.0 * (n + 1)) : (i != j), 1e-12) << n << ": " << i;
      }
  }
}

}  // namespace
