// Frames and transforms, checked against independent geometric facts (orthonormality, inverse
// products, simplex edges, right-hand rotations) rather than against the formulas.
#include "utl_geom.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

constexpr double kPi = 3.141592653589793;
const double kO[3] = {0, 0, 0}, kX[3] = {1, 0, 0}, kY[3] = {0, 1, 0};

void ExpectNear(const double *got, const std::vector<double> &want, double tol = 1e-12) {
  for (double w : want)
    EXPECT_NEAR(*got++, w, tol);
}

// m has orthonormal rows and determinant +1; when u is given, m takes it onto +x.
void ExpectRotation(const double *m, const double *u = nullptr) {
  double mu[3] = {0, 0, 0}, cross[3];
  for (int i = 0; i < 9; ++i) {
    const double *a = m + 3 * (i / 3), *b = m + 3 * (i % 3);
    EXPECT_NEAR(a[0] * b[0] + a[1] * b[1] + a[2] * b[2], i / 3 == i % 3, 1e-12) << "rows " << i;
    if (u != nullptr) mu[i / 3] += m[i] * u[i % 3];
  }
  UTL_GEOM_CROSS(m, m + 3, cross);
  ExpectNear(cross, {m[6], m[7], m[8]});
  if (u != nullptr) ExpectNear(mu, {std::hypot(u[0], u[1], u[2]), 0, 0});
}

TEST(UtlGeomPoints, LengthsUnitsAnglesCentroidsReflectionsAndTheHedron) {
  const double a[3] = {1, 2, 3}, b[3] = {4, 6, 3}, small[3] = {0, 0, -2e-6}, nan = std::nan("");
  double out[3], p[3] = {1, 2, 3};
  EXPECT_EQ(UTL_GEOM_VUNIT(a, b, out), 5.0);
  ExpectNear(out, {0.6, 0.8, 0});
  EXPECT_EQ(UTL_GEOM_VNORM(small, out), 2e-6);  // zero only when the square is below 1e-12
  ExpectNear(out, {0, 0, -1});
  EXPECT_EQ(UTL_GEOM_VLEN_SQ(a) + UTL_GEOM_VDIST(a, b) + UTL_GEOM_VDIST_SQ(a, b), 14.0 + 5 + 25);
  // Close to the origin within a squared 1.0: at exactly 1.0, and decided after x (z never read).
  const double rows[][4] = {{0.8, 0.8, 0, 0}, {1.0, 0, 0, 1}, {1.5, 0, nan, 0}, {0, 0.9, 0.5, 0}};
  for (const auto &row : rows)
    EXPECT_EQ(UTL_GEOM_CLOSE(kO, row, 123.0, 1.0), row[3]);
  const double pts[9] = {0, 0, 0, 2, 0, 0, 0, 4, 0}, w[3] = {1, 1, 2};
  ExpectNear(UTL_GEOM_CENTROID(3, pts, nullptr, out), {2.0 / 3, 4.0 / 3, 0});
  ExpectNear(UTL_GEOM_CENTROID(3, pts, w, out), {0.5, 2.0, 0});
  ExpectNear(UTL_GEOM_CENTROID(1, pts + 3, nullptr, out), {0, 0, 0});  // one point: zero
  UTL_GEOM_MIDPOINT(pts + 3, pts + 6, out);
  ExpectNear(out, {1, 2, 0});
  ExpectNear(UTL_GEOM_REFLECT(std::sqrt(0.5), 0, std::sqrt(0.5), 0, p), {-3, 2, -1});  // x + z = 0
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  EXPECT_EQ(UTL_GEOM_THETA(kX, kO, kY), 89.99999998824843);
  for (double phi : {0.0, 180.0, -60.0, 120.0, -0.5}) {  // d turned by phi about y: no 360 added
    const double d[3] = {std::cos(phi * kPi / 180), 1, -std::sin(phi * kPi / 180)};
    EXPECT_NEAR(UTL_GEOM_TAU(kX, kO, kY, d), phi, phi == 0 || phi == 180 ? 0.0 : 1e-7);
  }
  for (int n = 1; n <= 7; ++n) {  // the hedron: a regular unit simplex about the origin
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

TEST(UtlGeomMatrices, IdentityProductsRotationsApplicationAndCrystalCells) {
  constexpr double kRows[][3] = {{4, 1e-3, 1}, {1, -2e-3, 0}, {10, 5e-4, 1}, {11, -2e-3, 0}};
  for (const auto &row : kRows) {  // element (9..11: translation), change, identity within 1e-3
    double m[12] = {};
    UTL_GEOM_IDENTITY_M(m)[static_cast<int>(row[0])] += row[1];
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(m, m + 9, 1e-3), row[2]) << row[0];
  }
  double a[9] = {1, -2, 3, 0, 5, 4, 2, 1, -1}, b[9] = {2, 0, 1, -1, 3, 0, 4, 1, -2}, c[9], d[9];
  UTL_GEOM_MMULT_NXN(3, a, b, d);
  EXPECT_EQ(d[5], -8.0);  // row 1, column 2: 0 * 1 + 5 * 0 + 4 * -2
  UTL_GEOM_MMULT(a, b, c);
  UTL_GEOM_MMULT(a, b, a);  // in place
  UTL_GEOM_TRANSPOSE(c);
  for (int i = 0; i < 9; ++i)
    EXPECT_TRUE(a[i] == d[i] && c[i] == d[3 * (i % 3) + i / 3]) << i;
  void (*const makes[])(double, double *) = {UTL_GEOM_MAKE_ROTX, UTL_GEOM_MAKE_ROTY,
                                             UTL_GEOM_MAKE_ROTZ};
  double m[9], rz[9], k[9], k2[9], edge[3][3];
  for (int i = 0; i < 3; ++i) {  // a quarter turn about an axis takes the next onto the one after
    makes[i](kPi / 2, m);
    ExpectRotation(m);
    EXPECT_NEAR(m[3 * ((i + 2) % 3) + (i + 1) % 3], 1.0, 1e-15) << i;
  }
  const double from[3] = {1, 1, 1}, to[3] = {1, 1, 4};
  UTL_GEOM_MFORM(from, to, 137.5, m);                     // about +z, turning the other way round
  UTL_GEOM_MAKE_ROTZ(-137.5 * 0.017453292522222223, rz);  // the family's radians
  ExpectNear(m, std::vector<double>(rz, rz + 9), 1e-15);
  double q[9] = {2, 0.1, 0, 0.3, 1, 0.2, 0.1, 0.4, 3}, n0 = std::sqrt(4.01);
  ASSERT_EQ(UTL_GEOM_ORTHO_MAT(q, q), 1);  // in place; row 0 kept, row 1 in the plane of
  ExpectRotation(q);                       // rows 0 and 1, on row 1's side of row 0
  ExpectNear(q, {2 / n0, 0.1 / n0, 0});
  EXPECT_TRUE(std::fabs(q[3] * 0.02 - q[4] * 0.4 + q[5] * 1.97) < 1e-12 && q[4] > 0);
  double p[3] = {2, 1, 5}, pts[6] = {2, 1, 5, 1, 1, 1}, r[3] = {1, 0, 0};
  const double centre[3] = {1, 1, 0}, t[3] = {10, 20, 30};
  UTL_GEOM_MAKE_ROTZ(kPi / 2, rz);
  UTL_GEOM_ROTATE(nullptr, rz, p);
  ExpectNear(p, {-1, 2, 5}, 1e-15);
  UTL_GEOM_MROTATE(rz, centre, 2, pts);
  ExpectNear(pts, {1, 2, 5, 1, 1, 1}, 1e-15);
  EXPECT_EQ(UTL_GEOM_TRANSFORM(r, rz, t, r), t);
  ExpectNear(r, {10, 21, 30}, 1e-15);
  EXPECT_EQ(UTL_GEOM_TRANSFORM(r, rz, nullptr, r), nullptr);
  ExpectNear(r, {-21, 10, 30}, 1e-13);
  // The frame of three points: rows (b - o) x (a - o), b - o, a - o as units, not orthogonalised.
  const double o[3] = {1, 1, 1}, a2[3] = {2, 2, 1}, b2[3] = {3, 1, 1}, h = std::sqrt(0.5);
  double p2[3] = {2, 2, 4};
  ASSERT_EQ(UTL_GEOM_REV_TRANSFORM(o, a2, b2, p2, m), 1);
  ExpectNear(m, {0, 0, h, 1, 0, 0, h, h, 0});
  ExpectNear(p2, {3 * h, 1, 2 * h});
  constexpr double kCells[][6] = {{4.9, 4.9, 5.4, 90, 90, 120}, {7.1, 8.3, 9.9, 101, 95.5, 77}};
  for (const auto &cell : kCells) {  // crystal matrices: inverses, reproducing the cell
    ASSERT_EQ(UTL_GEOM_CRYSTAL_MATRICES(cell, k, k2), 1);
    UTL_GEOM_MMULT(k, k2, c);
    UTL_GEOM_MMULT(k2, k, d);
    EXPECT_EQ(UTL_GEOM_IS_IDENTITY(c, nullptr, 1e-12) + UTL_GEOM_IS_IDENTITY(d, nullptr, 1e-12), 2);
    for (int i = 0; i < 9; ++i)  // the columns of the first are the cell edges
      edge[i % 3][i / 3] = k[i];
    for (int j = 0; j < 3; ++j) {
      EXPECT_NEAR(UTL_GEOM_VLEN(edge[j]), cell[j], 1e-12);
      EXPECT_NEAR(UTL_GEOM_THETA(edge[(j + 1) % 3], kO, edge[(j + 2) % 3]), cell[3 + j], 1e-7);
    }
    EXPECT_TRUE(k[3] == 0 && k[6] == 0 && k[7] == 0 && k[4] > 0 && k[8] > 0);  // a on x, b in xy
  }
}

TEST(UtlGeomAlign, FramesAreRotationsMappingUToXAndWIntoTheUpperXyPlane) {
  // u and w; the last two parallel, one with ux = 0 and one taking n from (0, -uz, uy).
  constexpr double kRows[][6] = {
      {1, 2, 3, -1, 0.5, 2}, {-3, 0, 0, 0, 0, -2}, {0, 1, 1, 0, 2, 2}, {1, 1, 0, 2, 2, 0}};
  const double from[3] = {5, -1, 2}, y3[3] = {0, 3, 0};
  double m[9], m2[9], mw[3], ax[9], to[6];
  for (const auto &row : kRows) {
    ASSERT_EQ(UTL_GEOM_ALIGN(nullptr, row, nullptr, row + 3, m), 1);
    ASSERT_EQ(UTL_GEOM_ALIGNX(nullptr, row, ax), 1);
    ExpectRotation(m, row);
    ExpectRotation(ax, row);
    UTL_GEOM_TRANSFORM(row + 3, m, nullptr, mw);
    EXPECT_TRUE(std::fabs(mw[2]) < 1e-12 && mw[1] > -1e-12);
    for (int i = 0; i < 6; ++i)  // the same frame from point pairs
      to[i] = from[i % 3] + row[i];
    ASSERT_EQ(UTL_GEOM_ALIGN(from, to, from, to + 3, m2), 1);
    ExpectNear(m2, std::vector<double>(m, m + 9));
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_GEOM_ALIGN(nullptr, kY, nullptr, y3, m);
  EXPECT_EQ(std::vector<double>(m, m + 9), (std::vector<double>{0, 1, 0, 0, 0, 1, 1, 0, 0}));
  UTL_ERROR_SET("APP", "TEST", "WARNING", "PENDING", "caller");  // a pending error fails both
  EXPECT_EQ(UTL_GEOM_ALIGN(nullptr, kRows[0], nullptr, kY, m) + UTL_GEOM_ALIGNX(nullptr, kX, m), 0);
  EXPECT_EQ(qxtest::TopIdentity(), "APP/TEST/WARNING/PENDING");
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"caller", "UTL_GEOM_ALIGN", "UTL_GEOM_ALIGNX"}));
}

TEST(UtlGeomErrors, EachFailureReturnsZeroAndRecordsItsEntry) {
  const double tiny[3] = {1e-7, 0, 0}, short_x[3] = {5e-5, 0, 0}, near_o[3] = {5e-4, 5e-4, 0};
  const double x2[3] = {2, 0, 0}, back[3] = {-1, 0, 0}, dep[9] = {1, 0, 0, 2, 0, 0, 0, 0, 1};
  const double cells[][6] = {{10, 10, 10, 30, 60, 90}, {10, 10, 10, std::nan(""), 90, 90}};
  const char *const kZero = "UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR", *const kSmall =
                                                                     "UTL/GEOM/WARNING/SMALL_DIST";
  double m[9], f[9], out[3];
  const auto cell = [&](int i) {  // alpha + beta = gamma, a NaN: both matrices left the identity
    return UTL_GEOM_CRYSTAL_MATRICES(cells[i], m, f) + 2.0 - UTL_GEOM_IS_IDENTITY(m, nullptr, 0) -
           UTL_GEOM_IS_IDENTITY(f, nullptr, 0);
  };
  const struct {
    std::function<double()> call;
    const char *identity, *traces;
  } rows[] = {
      // trace lines without their UTL_GEOM_ prefix
      {[&] { return UTL_GEOM_VNORM(tiny, out) + out[0]; }, kZero, "VNORM"},
      {[&] { return UTL_GEOM_VUNIT(kX, kX, out); }, kZero, "VUNIT"},
      {[&] { return UTL_GEOM_ORTHO_MAT(dep, m) + m[3] + m[4] + m[5]; }, kZero, "VNORM ORTHO_MAT"},
      {[&] { return UTL_GEOM_REV_TRANSFORM(kO, kO, kX, out, m) + out[0] - 7; }, kZero,
       "VUNIT REV_TRANSFORM"},
      {[&] { return UTL_GEOM_ALIGN(nullptr, kX, nullptr, x2, m); }, "UTL/GEOM/WARNING/COLINEAR",
       "ALIGN"},
      {[&] { return UTL_GEOM_ALIGN(nullptr, short_x, nullptr, kY, m); }, kSmall, "ALIGN"},
      {[&] { return UTL_GEOM_ALIGN(nullptr, kX, nullptr, kO, m); }, kZero, "VNORM ALIGN"},
      {[&] { return UTL_GEOM_ALIGNX(kX, kX, m); }, kZero, "VUNIT ALIGNX"},
      // Too short to align but not zero: only a trace line, filed under the stack's own warning.
      {[&] { return UTL_GEOM_ALIGNX(nullptr, short_x, m); }, "UTL/ERROR/WARNING/PROGRAM_ERROR",
       "UTL_ERROR_ADD_TRACE ALIGNX"},
      {[&] { return UTL_GEOM_THETA(kX, kO, near_o); }, kSmall, "THETA"},
      {[&] { return UTL_GEOM_TAU(kX, kO, kO, kY); }, kSmall, "TAU"},
      {[&] { return UTL_GEOM_TAU(back, kO, kX, kY); }, "UTL/GEOM/FATAL/COLINEAR", "TAU"},
      {[&] { return cell(0); }, "UTL/GEOM/FATAL/BAD_CELL", "CRYSTAL_MATRICES"},
      {[&] { return cell(1); }, "UTL/GEOM/FATAL/BAD_CELL", "CRYSTAL_MATRICES"},
      {[&] { return UTL_GEOM_IS_IDENTITY(UTL_GEOM_MFORM(kX, kX, 40, m), nullptr, 0) - 1; }, kZero,
       "VUNIT"},  // a zero tensor, so the identity
  };
  for (const auto &row : rows) {
    UTL_ERROR_CLEAR();
    std::fill(m, m + 9, 0.5);
    std::fill(out, out + 3, 7.0);
    EXPECT_EQ(row.call(), 0.0) << row.traces;
    std::string want = row.identity, got = qxtest::TopIdentity(), line;
    for (std::istringstream in(row.traces); in >> line;)
      want += (line.rfind("UTL_", 0) == 0 ? " " : " UTL_GEOM_") + line;
    for (const std::string &trace : qxtest::TopError().traces)
      got += " " + trace;
    EXPECT_EQ(got, want);
  }
  UTL_ERROR_CLEAR();  // a zero bond lies under the warning
  EXPECT_EQ(UTL_GEOM_TAU(kX, kO, kO, kY), 0.0);
  EXPECT_EQ(qxtest::Entry(qxtest::StackTop() - 1).code, "ZERO_LENGTH_VECTOR");
}

}  // namespace
