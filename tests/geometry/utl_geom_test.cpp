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

void ExpectVec(const double *got, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(got[0], x, tol);
  EXPECT_NEAR(got[1], y, tol);
  EXPECT_NEAR(got[2], z, tol);
}

// Rows orthonormal and determinant +1.
void ExpectRotation(const double *m, double tol = 1e-12) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      const double dot =
          m[3 * i] * m[3 * j] + m[3 * i + 1] * m[3 * j + 1] + m[3 * i + 2] * m[3 * j + 2];
      EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, tol) << "rows " << i << ", " << j;
    }
  const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                     m[2] * (m[3] * m[7] - m[4] * m[6]);
  EXPECT_NEAR(det, 1.0, tol);
}

void Apply(const double *m, const double *p, double *out) {
  for (int i = 0; i < 3; ++i)
    out[i] = m[3 * i] * p[0] + m[3 * i + 1] * p[1] + m[3 * i + 2] * p[2];
}

// The top error is identity with the given trace lines, innermost first.
void ExpectError(const std::string &identity, const std::vector<std::string> &traces) {
  EXPECT_EQ(qxtest::TopIdentity(), identity);
  EXPECT_EQ(qxtest::TopError().traces, traces);
}

TEST(UtlGeomVectors, NormAndUnitFollowTheZeroRules) {
  struct Row {
    double v[3];
    double length;
    double unit[3];
  };
  constexpr Row kRows[] = {
      {{3, 4, 0}, 5.0, {0.6, 0.8, 0}},
      {{0, 0, -2e-6}, 2e-6, {0, 0, -1}},
      {{1e-7, 0, 0}, 0.0, {0, 0, 0}},  // square 1e-14: length 0
      {{0, 0, 0}, 0.0, {0, 0, 0}},
  };
  const double origin[3] = {1.0, -2.0, 0.5};
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    double out[3] = {9, 9, 9};
    EXPECT_DOUBLE_EQ(UTL_GEOM_VNORM(row.v, out), row.length);
    ExpectVec(out, row.unit[0], row.unit[1], row.unit[2]);
    if (row.length == 0.0)
      ExpectError("UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR", {"UTL_GEOM_VNORM"});
    else
      EXPECT_FALSE(UTL_ERROR_IS_SET());

    UTL_ERROR_CLEAR();
    const double to[3] = {origin[0] + row.v[0], origin[1] + row.v[1], origin[2] + row.v[2]};
    EXPECT_NEAR(UTL_GEOM_VUNIT(origin, to, out), row.length, 1e-15);
    ExpectVec(out, row.unit[0], row.unit[1], row.unit[2], 1e-9);
    if (row.length == 0.0) ExpectError("UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR", {"UTL_GEOM_VUNIT"});
  }
  const double tiny[3] = {1e-7, 0, 0};
  EXPECT_DOUBLE_EQ(UTL_GEOM_VLEN(tiny), 1e-7);  // no threshold on the plain length
  EXPECT_DOUBLE_EQ(UTL_GEOM_VDIST(tiny, origin), std::sqrt(UTL_GEOM_VDIST_SQ(tiny, origin)));
}

TEST(UtlGeomVectors, CloseStopsAsSoonAsTheSumExceedsTol) {
  struct Row {
    double b[3];
    double tol;
    int expected;
  };
  const double nan = std::nan("");
  const Row rows[] = {
      {{0.8, 0.8, 0}, 1.0, 0},    // 1.28 > 1
      {{0.5, 0.5, 0.5}, 1.0, 1},  // 0.75
      {{1.0, 0, 0}, 1.0, 1},      // exactly tol
      {{1.5, 0, nan}, 1.0, 0},    // decided after x: z is never looked at
      {{0, 0.9, 0.5}, 1.0, 0},    // decided after z
  };
  const double a[3] = {0, 0, 0};
  for (const Row &row : rows)
    EXPECT_EQ(UTL_GEOM_CLOSE(a, row.b, 123.0, row.tol), row.expected);
}

TEST(UtlGeomVectors, CentroidMidpointReflect) {
  const double pts[9] = {0, 0, 0, 2, 0, 0, 0, 4, 0};
  const double w[3] = {1, 1, 2};
  double out[3];
  ExpectVec(UTL_GEOM_CENTROID(3, pts, nullptr, out), 2.0 / 3, 4.0 / 3, 0);
  ExpectVec(UTL_GEOM_CENTROID(3, pts, w, out), 0.5, 2.0, 0);
  ExpectVec(UTL_GEOM_CENTROID(1, pts + 3, nullptr, out), 0, 0, 0);  // one point is not its centroid
  UTL_GEOM_MIDPOINT(pts + 3, pts + 6, out);
  ExpectVec(out, 1, 2, 0);
  double p[3] = {1, 2, 3};
  ExpectVec(UTL_GEOM_REFLECT(0, 0, 1, 1, p), 1, 2, -1);  // mirror in z = 1
  const double s = std::sqrt(0.5);
  double q[3] = {2, 0, 0};
  ExpectVec(UTL_GEOM_REFLECT(s, s, 0, 0, q), 0, -2, 0);  // mirror in x + y = 0
}

TEST(UtlGeomMatrices, IdentityTestUsesTolOnMatrixAndTranslation) {
  struct Row {
    int index;  // element perturbed: 0..8 matrix, 9..11 translation
    double delta;
    double tol;
    int expected;
  };
  constexpr Row kRows[] = {{0, 0.0, 0.0, 1},    {4, 1e-3, 1e-3, 1},  {4, 2e-3, 1e-3, 0},
                           {1, -2e-3, 1e-3, 0}, {10, 5e-4, 1e-3, 1}, {11, -2e-3, 1e-3, 0}};
  for (const Row &row : kRows) {
    double m[9], t[3] = {0, 0, 0};
    UTL_GEOM_IDENTITY_M(m);
    (row.index < 9 ? m[row.index] : t[row.index - 9]) += row.delta;
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(m, t, row.tol), row.expected) << row.index;
  }
  double m[9];
  EXPECT_EQ(UTL_GEOM_IS_IDENTITY(UTL_GEOM_IDENTITY_M(m), nullptr, 0.0), 1);
}

TEST(UtlGeomMatrices, ProductsAgreeAndMayAliasIn3x3) {
  double a[9], b[9], c[9], d[9];
  for (int i = 0; i < 9; ++i) {
    a[i] = std::sin(i + 1.0);
    b[i] = std::cos(2.0 * i);
  }
  UTL_GEOM_MMULT(a, b, c);
  UTL_GEOM_MMULT_NXN(3, a, b, d);
  for (int i = 0; i < 9; ++i)
    EXPECT_DOUBLE_EQ(c[i], d[i]);
  EXPECT_NEAR(c[5], a[3] * b[2] + a[4] * b[5] + a[5] * b[8], 1e-15);  // row 1, column 2
  UTL_GEOM_MMULT(a, b, a);                                            // in place
  for (int i = 0; i < 9; ++i)
    EXPECT_DOUBLE_EQ(a[i], c[i]);
  UTL_GEOM_TRANSPOSE(c);
  EXPECT_DOUBLE_EQ(c[7], d[5]);
  const double a2[4] = {1, 2, 3, 4}, b2[4] = {5, 6, 7, 8};
  double c2[4];
  UTL_GEOM_MMULT_NXN(2, a2, b2, c2);
  EXPECT_EQ(c2[0], 19);
  EXPECT_EQ(c2[1], 22);
  EXPECT_EQ(c2[2], 43);
  EXPECT_EQ(c2[3], 50);
}

TEST(UtlGeomMatrices, AxisRotationsAreRightHanded) {
  // A quarter turn about each axis takes the next axis onto the one after it.
  using Make = void (*)(double, double *);
  struct Row {
    Make make;
    double from[3], to[3];
  };
  const Row rows[] = {{UTL_GEOM_MAKE_ROTX, {0, 1, 0}, {0, 0, 1}},
                      {UTL_GEOM_MAKE_ROTY, {0, 0, 1}, {1, 0, 0}},
                      {UTL_GEOM_MAKE_ROTZ, {1, 0, 0}, {0, 1, 0}}};
  for (const Row &row : rows) {
    double m[9], out[3];
    row.make(kPi / 2, m);
    ExpectRotation(m);
    Apply(m, row.from, out);
    ExpectVec(out, row.to[0], row.to[1], row.to[2], 1e-15);
  }
}

TEST(UtlGeomMatrices, MformTurnsClockwiseLookingAlongTheAxis) {
  const double from[3] = {1, 1, 1}, to[3] = {1, 1, 4};  // axis +z through (1, 1)
  struct Row {
    double degrees;
  };
  constexpr Row kRows[] = {{90}, {-30}, {137.5}, {0}};
  for (const Row &row : kRows) {
    double m[9], rz[9];
    UTL_GEOM_MFORM(from, to, row.degrees, m);
    ExpectRotation(m);
    // -angle under the right-hand rule, with the family's radians.
    UTL_GEOM_MAKE_ROTZ(-row.degrees * 0.017453292522222223, rz);
    for (int i = 0; i < 9; ++i)
      EXPECT_NEAR(m[i], rz[i], 1e-15) << row.degrees;
  }
  double m[9], p[3] = {2, 1, 7};
  UTL_GEOM_MFORM(from, to, 90, m);
  UTL_GEOM_ROTATE(from, m, p);
  ExpectVec(p, 1, 0, 7, 1e-9);  // (1, 0) from the axis turns to (0, -1)

  // An oblique axis: points on it stay, others keep their distance to it.
  const double a[3] = {0.3, -1, 2}, b[3] = {1.3, 1, 0};
  UTL_GEOM_MFORM(a, b, 71, m);
  double on_axis[3] = {0.8, 0, 1};
  UTL_GEOM_ROTATE(a, m, on_axis);
  ExpectVec(on_axis, 0.8, 0, 1, 1e-12);
}

TEST(UtlGeomMatrices, MtensorIsTheCrossProductMatrix) {
  const double from[3] = {0, 0, 0}, to[3] = {2, -1, 2};
  double k[9], k2[9], u[3] = {2.0 / 3, -1.0 / 3, 2.0 / 3};
  UTL_GEOM_MTENSOR(from, to, k, k2);
  const double v[3] = {0.5, 3, -1};
  double kv[3], cross[3];
  Apply(k, v, kv);
  UTL_GEOM_CROSS(v, u, cross);  // k v = v x u
  ExpectVec(kv, cross[0], cross[1], cross[2], 1e-15);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      EXPECT_NEAR(k2[3 * i + j], u[i] * u[j] - (i == j), 1e-15);

  // A zero axis: the error, zero tensors and an identity rotation.
  double m[9];
  UTL_GEOM_MTENSOR(from, from, k, k2);
  ExpectError("UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR", {"UTL_GEOM_VUNIT"});
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(k[i] + k2[i], 0.0);
  UTL_ERROR_CLEAR();
  UTL_GEOM_MFORM(to, to, 40, m);
  EXPECT_EQ(UTL_GEOM_IS_IDENTITY(m, nullptr, 0.0), 1);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR");
}

TEST(UtlGeomMatrices, OrthoMatGivesOrthonormalRowsKeepingRowZero) {
  const double in[9] = {2, 0.1, 0, 0.3, 1, 0.2, 0.1, 0.4, 3};
  double out[9];
  ASSERT_EQ(UTL_GEOM_ORTHO_MAT(in, out), 1);
  ExpectRotation(out);
  const double n0 = std::sqrt(4.01);
  ExpectVec(out, 2 / n0, 0.1 / n0, 0);
  // Row 1 lies in the plane of input rows 0 and 1.
  const double normal[3] = {0.1 * 0.2 - 0 * 1, 0 * 0.3 - 2 * 0.2, 2 * 1 - 0.1 * 0.3};
  EXPECT_NEAR(out[3] * normal[0] + out[4] * normal[1] + out[5] * normal[2], 0, 1e-12);

  double copy[9];
  for (int i = 0; i < 9; ++i)
    copy[i] = in[i];
  ASSERT_EQ(UTL_GEOM_ORTHO_MAT(copy, copy), 1);  // in place
  for (int i = 0; i < 9; ++i)
    EXPECT_DOUBLE_EQ(copy[i], out[i]);

  const double dependent[9] = {1, 0, 0, 2, 0, 0, 0, 0, 1};  // row 1 parallel to row 0
  EXPECT_EQ(UTL_GEOM_ORTHO_MAT(dependent, out), 0);
  ExpectError("UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR", {"UTL_GEOM_VNORM", "UTL_GEOM_ORTHO_MAT"});
  ExpectVec(out + 3, 0, 0, 0);
}

TEST(UtlGeomApply, RotateTransformAndMrotate) {
  double rz[9];
  UTL_GEOM_MAKE_ROTZ(kPi / 2, rz);
  const double centre[3] = {1, 1, 0};
  double p[3] = {2, 1, 5};
  UTL_GEOM_ROTATE(centre, rz, p);
  ExpectVec(p, 1, 2, 5, 1e-15);
  double q[3] = {2, 1, 5};
  UTL_GEOM_ROTATE(nullptr, rz, q);
  ExpectVec(q, -1, 2, 5, 1e-15);

  double pts[6] = {2, 1, 5, 1, 1, 1};
  UTL_GEOM_MROTATE(rz, centre, 2, pts);
  ExpectVec(pts, 1, 2, 5, 1e-15);
  ExpectVec(pts + 3, 1, 1, 1, 1e-15);

  const double t[3] = {10, 20, 30};
  double r[3] = {1, 0, 0};
  EXPECT_EQ(UTL_GEOM_TRANSFORM(r, rz, t, r), t);
  ExpectVec(r, 10, 21, 30, 1e-15);
  EXPECT_EQ(UTL_GEOM_TRANSFORM(r, rz, nullptr, r), nullptr);
  ExpectVec(r, -21, 10, 30, 1e-13);
}

TEST(UtlGeomApply, RevTransformExpressesThePointInTheThreePointFrame) {
  const double o[3] = {1, 1, 1}, a[3] = {1, 4, 1}, b[3] = {3, 1, 1};  // b - o on x, a - o on y
  double p[3] = {2, 3, 4}, m[9];
  ASSERT_EQ(UTL_GEOM_REV_TRANSFORM(o, a, b, p, m), 1);
  ExpectVec(p, 3, 1, 2);  // rows z, x, y
  ExpectVec(m, 0, 0, 1);

  // Rows are not orthogonalised: an oblique a keeps its direction in row 2.
  const double a2[3] = {2, 2, 1};
  double p2[3] = {1, 1, 1};
  ASSERT_EQ(UTL_GEOM_REV_TRANSFORM(o, a2, b, p2, m), 1);
  const double s = std::sqrt(0.5);
  ExpectVec(m + 6, s, s, 0);
  ExpectVec(m, 0, 0, s);
  ExpectVec(p2, 0, 0, 0);

  double p3[3] = {7, 8, 9};
  EXPECT_EQ(UTL_GEOM_REV_TRANSFORM(o, o, b, p3, m), 0);
  ExpectError("UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR", {"UTL_GEOM_VUNIT", "UTL_GEOM_REV_TRANSFORM"});
  ExpectVec(p3, 7, 8, 9);
}

TEST(UtlGeomAlign, FramesAreRotationsMappingUToXAndWIntoTheUpperXyPlane) {
  struct Row {
    double u[3], w[3];
  };
  constexpr Row kRows[] = {
      {{1, 2, 3}, {-1, 0.5, 2}}, {{0, 0, 5}, {1, 1, 0}},    {{-3, 0, 0}, {0, 0, -2}},
      {{1, 1, 1}, {1, -1, 0}},   {{0.2, -7, 1}, {3, 3, 3}}, {{0, 1, 0}, {0, 3, 0}},
      {{0, 1, 1}, {0, 2, 2}},  // parallel with ux = 0
      {{1, 1, 0}, {2, 2, 0}},  // parallel, n from (0, -uz, uy)
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    double m[9], mu[3], mw[3];
    ASSERT_EQ(UTL_GEOM_ALIGN(nullptr, row.u, nullptr, row.w, m), 1);
    EXPECT_FALSE(UTL_ERROR_IS_SET());
    ExpectRotation(m);
    Apply(m, row.u, mu);
    const double lu = std::sqrt(row.u[0] * row.u[0] + row.u[1] * row.u[1] + row.u[2] * row.u[2]);
    ExpectVec(mu, lu, 0, 0);
    Apply(m, row.w, mw);
    EXPECT_NEAR(mw[2], 0.0, 1e-12);
    EXPECT_GE(mw[1], -1e-12);

    // The same frame from point pairs.
    const double from[3] = {5, -1, 2};
    const double to1[3] = {5 + row.u[0], -1 + row.u[1], 2 + row.u[2]};
    const double to2[3] = {5 + row.w[0], -1 + row.w[1], 2 + row.w[2]};
    double m2[9];
    ASSERT_EQ(UTL_GEOM_ALIGN(from, to1, from, to2, m2), 1);
    for (int i = 0; i < 9; ++i)
      EXPECT_NEAR(m2[i], m[i], 1e-12);
  }
  const double y[3] = {0, 1, 0}, y3[3] = {0, 3, 0};
  double m[9];
  UTL_GEOM_ALIGN(nullptr, y, nullptr, y3, m);
  const double expected[9] = {0, 1, 0, 0, 0, 1, 1, 0, 0};
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(m[i], expected[i]);
}

TEST(UtlGeomAlign, FailuresRecordTheDocumentedErrors) {
  struct Row {
    double u[3], w[3];
    const char *identity;
    std::vector<std::string> traces;
  };
  const Row rows[] = {
      {{1, 0, 0}, {2, 0, 0}, "UTL/GEOM/WARNING/COLINEAR", {"UTL_GEOM_ALIGN"}},
      {{-4, 0, 0}, {1, 0, 0}, "UTL/GEOM/WARNING/COLINEAR", {"UTL_GEOM_ALIGN"}},
      {{5e-5, 0, 0}, {0, 1, 0}, "UTL/GEOM/WARNING/SMALL_DIST", {"UTL_GEOM_ALIGN"}},
      {{1, 0, 0},
       {0, 0, 0},
       "UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR",
       {"UTL_GEOM_VNORM", "UTL_GEOM_ALIGN"}},
  };
  for (const Row &row : rows) {
    UTL_ERROR_CLEAR();
    double m[9];
    EXPECT_EQ(UTL_GEOM_ALIGN(nullptr, row.u, nullptr, row.w, m), 0);
    ExpectError(row.identity, row.traces);
  }
}

TEST(UtlGeomAlign, APendingErrorMakesBothAlignmentsFail) {
  const double u[3] = {1, 2, 3}, w[3] = {0, 1, 0};
  double m[9];
  UTL_ERROR_SET("APP", "TEST", "WARNING", "PENDING", "caller");
  EXPECT_EQ(UTL_GEOM_ALIGN(nullptr, u, nullptr, w, m), 0);
  ExpectError("APP/TEST/WARNING/PENDING", {"caller", "UTL_GEOM_ALIGN"});
  EXPECT_EQ(UTL_GEOM_ALIGNX(nullptr, u, m), 0);
  ExpectError("APP/TEST/WARNING/PENDING", {"caller", "UTL_GEOM_ALIGN", "UTL_GEOM_ALIGNX"});
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_GEOM_ALIGNX(nullptr, u, m), 1);
}

TEST(UtlGeomAlign, AlignxMapsAnyDirectionOntoX) {
  struct Row {
    double u[3];
  };
  constexpr Row kRows[] = {{{1, 2, 3}},  {{0, 0, 1}},      {{0, 0, -2}}, {{0, 1e-5, 3}},
                           {{0, -4, 1}}, {{1e-5, 0, 0.5}}, {{-2, 0, 0}}, {{0.3, 0.3, -0.3}}};
  for (const Row &row : kRows) {
    double m[9], mu[3];
    ASSERT_EQ(UTL_GEOM_ALIGNX(nullptr, row.u, m), 1);
    ExpectRotation(m);
    Apply(m, row.u, mu);
    const double lu = std::sqrt(row.u[0] * row.u[0] + row.u[1] * row.u[1] + row.u[2] * row.u[2]);
    ExpectVec(mu, lu, 0, 0);
  }
  const double p[3] = {1, 1, 1};
  double m[9];
  EXPECT_EQ(UTL_GEOM_ALIGNX(p, p, m), 0);
  ExpectError("UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR", {"UTL_GEOM_VUNIT", "UTL_GEOM_ALIGNX"});
  // Too short to align but not zero: only the trace line, which the error
  // stack files under its own PROGRAM_ERROR warning.
  UTL_ERROR_CLEAR();
  const double short_u[3] = {5e-5, 0, 0};
  EXPECT_EQ(UTL_GEOM_ALIGNX(nullptr, short_u, m), 0);
  ExpectError("UTL/ERROR/WARNING/PROGRAM_ERROR", {"UTL_ERROR_ADD_TRACE", "UTL_GEOM_ALIGNX"});
}

TEST(UtlGeomCrystal, MatricesAreInversesAndReproduceTheCell) {
  struct Row {
    double cell[6];
  };
  constexpr Row kRows[] = {{{10, 10, 10, 90, 90, 90}},
                           {{4.9, 4.9, 5.4, 90, 90, 120}},
                           {{7.1, 8.3, 9.9, 101, 95.5, 77}},
                           {{5, 6, 7, 60, 70, 80}},
                           {{3, 3, 3, 109.47, 109.47, 109.47}}};
  for (const Row &row : kRows) {
    double o[9], f[9], p[9];
    ASSERT_EQ(UTL_GEOM_CRYSTAL_MATRICES(row.cell, o, f), 1);
    UTL_GEOM_MMULT(o, f, p);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(p, nullptr, 1e-12), 1);
    UTL_GEOM_MMULT(f, o, p);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(p, nullptr, 1e-12), 1);
    // The columns of o are the cell edges: lengths a, b, c and the cell angles.
    double edge[3][3];
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 3; ++i)
        edge[j][i] = o[3 * i + j];
    for (int j = 0; j < 3; ++j)
      EXPECT_NEAR(UTL_GEOM_VLEN(edge[j]), row.cell[j], 1e-12);
    const double zero[3] = {0, 0, 0};
    EXPECT_NEAR(UTL_GEOM_THETA(edge[1], zero, edge[2]), row.cell[3], 1e-7);
    EXPECT_NEAR(UTL_GEOM_THETA(edge[0], zero, edge[2]), row.cell[4], 1e-7);
    EXPECT_NEAR(UTL_GEOM_THETA(edge[0], zero, edge[1]), row.cell[5], 1e-7);
    EXPECT_EQ(o[3], 0.0);  // a along x, b in the xy plane
    EXPECT_EQ(o[6], 0.0);
    EXPECT_EQ(o[7], 0.0);
  }
  double o[9], f[9];
  const double cubic[6] = {10, 10, 10, 90, 90, 90};
  UTL_GEOM_CRYSTAL_MATRICES(cubic, o, f);
  for (int i = 0; i < 9; ++i) {
    EXPECT_NEAR(o[i], i % 4 == 0 ? 10.0 : 0.0, 1e-8);
    EXPECT_NEAR(f[i], i % 4 == 0 ? 0.1 : 0.0, 1e-10);
  }
}

TEST(UtlGeomCrystal, BadCellsGiveIdentitiesAndBadCell) {
  struct Row {
    double cell[6];
  };
  const double nan = std::nan("");
  const Row rows[] = {{{10, 10, 10, 30, 60, 90}},  // alpha + beta = gamma: flat
                      {{0, 10, 10, 90, 90, 90}},   {{10, -1, 10, 90, 90, 90}},
                      {{10, 10, 0, 90, 90, 90}},   {{10, 10, 10, 90, 90, 0}},
                      {{10, 10, 10, 10, 10, 100}},  // V^2 < 0
                      {{10, 10, 10, nan, 90, 90}}};
  for (const Row &row : rows) {
    UTL_ERROR_CLEAR();
    double o[9] = {}, f[9] = {};
    EXPECT_EQ(UTL_GEOM_CRYSTAL_MATRICES(row.cell, o, f), 0);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(o, nullptr, 0.0), 1);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(f, nullptr, 0.0), 1);
    ExpectError("UTL/GEOM/FATAL/BAD_CELL", {"UTL_GEOM_CRYSTAL_MATRICES"});
  }
}

TEST(UtlGeomAngles, ThetaAndTauOnKnownShapes) {
  const double a[3] = {1, 0, 0}, b[3] = {0, 0, 0}, c[3] = {0, 1, 0};
  EXPECT_DOUBLE_EQ(UTL_GEOM_THETA(a, b, c), 89.99999998824843);
  const double far[3] = {-3, 0, 0};
  EXPECT_NEAR(UTL_GEOM_THETA(a, b, far), 180.0, 1e-6);

  // a-b-c-d with d turned by phi about the b-c axis (y): torsion phi, IUPAC sign.
  struct Row {
    double phi, tau;
  };
  constexpr Row kRows[] = {{0, 0.0},   {180, 180.0}, {-60, -60},     {60, 60},
                           {120, 120}, {-150, -150}, {179.9, 179.9}, {-0.5, -0.5}};
  for (const Row &row : kRows) {
    const double r = row.phi * kPi / 180;
    const double d[3] = {std::cos(r), 1, -std::sin(r)};
    const double got = UTL_GEOM_TAU(a, b, c, d);
    if (row.phi == 0 || row.phi == 180)
      EXPECT_EQ(got, row.tau);  // exact by the flat band
    else
      EXPECT_NEAR(got, row.tau, 1e-7) << row.phi;
  }
}

TEST(UtlGeomAngles, FailuresReturnZeroWithTheirErrors) {
  struct Row {
    double p[4][3];
    const char *identity;
    std::vector<std::string> traces;
  };
  const Row rows[] = {
      {{{1, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 1, 1}},
       "UTL/GEOM/WARNING/SMALL_DIST",
       {"UTL_GEOM_TAU"}},  // stacked over ZERO_LENGTH_VECTOR
      {{{1, 0, 0}, {0, 0, 0}, {0.0005, 0, 0}, {0, 1, 1}},
       "UTL/GEOM/WARNING/SMALL_DIST",
       {"UTL_GEOM_TAU"}},
      {{{-1, 0, 0}, {0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, "UTL/GEOM/FATAL/COLINEAR", {"UTL_GEOM_TAU"}},
      {{{0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {1.5, 0, 1e-4}},
       "UTL/GEOM/FATAL/COLINEAR",
       {"UTL_GEOM_TAU"}},
  };
  for (const Row &row : rows) {
    UTL_ERROR_CLEAR();
    EXPECT_EQ(UTL_GEOM_TAU(row.p[0], row.p[1], row.p[2], row.p[3]), 0.0);
    ExpectError(row.identity, row.traces);
  }
  UTL_ERROR_CLEAR();
  const double a[3] = {1, 0, 0}, b[3] = {0, 0, 0}, c[3] = {0, 1, 0};
  EXPECT_EQ(UTL_GEOM_TAU(a, b, b, c), 0.0);
  EXPECT_EQ(qxtest::Entry(qxtest::StackTop() - 1).code, "ZERO_LENGTH_VECTOR");
  UTL_ERROR_CLEAR();
  const double near_b[3] = {0.0005, 0.0005, 0};
  EXPECT_EQ(UTL_GEOM_THETA(a, b, near_b), 0.0);
  ExpectError("UTL/GEOM/WARNING/SMALL_DIST", {"UTL_GEOM_THETA"});
}

TEST(UtlGeomHedron, VerticesFormARegularUnitSimplexAboutTheOrigin) {
  double one[2];
  UTL_GEOM_HEDRON(1, one);
  EXPECT_DOUBLE_EQ(one[0], -0.5);
  EXPECT_DOUBLE_EQ(one[1], 0.5);
  for (int n = 2; n <= 7; ++n) {
    std::vector<double> v((n + 1) * n, 99.0);
    UTL_GEOM_HEDRON(n, v.data());
    for (int col = 0; col < n; ++col) {
      double sum = 0;
      for (int row = 0; row <= n; ++row)
        sum += v[row * n + col];
      EXPECT_NEAR(sum, 0.0, 1e-12);
    }
    for (int i = 0; i <= n; ++i)
      for (int j = i + 1; j <= n; ++j) {
        double d2 = 0;
        for (int col = 0; col < n; ++col)
          d2 += std::pow(v[i * n + col] - v[j * n + col], 2);
        EXPECT_NEAR(d2, 1.0, 1e-12) << n << ": " << i << "-" << j;
      }
  }
}

}  // namespace
