// Scalar maths and the generator, against the C library's drand48 family and tables.
#include "utl_math.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>

namespace {

TEST(UtlMathRandom, SequencesAndGaussianPairsMatchTheCLibrary) {
  EXPECT_EQ(UTL_MATH_RAND(), 11.0 / 281474976710656.0);  // unseeded: one step from X = 0
  UTL_MATH_SRAND(0);
  EXPECT_EQ(UTL_MATH_RAND(), 0.17082803610628972);
  for (unsigned int seed : {0u, 42u, 0xFFFFFFFFu}) {
    UTL_MATH_SRAND(seed);
    srand48(static_cast<long>(seed));
    for (int i = 0; i < 300; ++i) {
      ASSERT_EQ(UTL_MATH_RAND(), drand48()) << seed << " " << i;
      ASSERT_EQ(UTL_MATH_IRAND(), lrand48());
      ASSERT_EQ(UTL_MATH_MRAND(), mrand48());
      double u1, u2, s = 1;
      while (s >= 1)
        u1 = 2 * drand48() - 1, u2 = 2 * drand48() - 1, s = u1 * u1 + u2 * u2;
      ASSERT_EQ(UTL_MATH_GRAND(), u1 * std::sqrt(-2 * std::log(s) / s));  // the polar method
      ASSERT_EQ(UTL_MATH_GRAND(), u2 * std::sqrt(-2 * std::log(s) / s));  // cached
    }
    UTL_MATH_GRAND();  // leaves a deviate pending, which the next seeding drops
  }
}

TEST(UtlMath, ScalarFunctions) {
  constexpr double kDeg = 57.29577951;  // divided by: 45 and 1000 tell that from a product
  for (double x : {45.0, 1e3, -90.0, 0.3}) {
    EXPECT_EQ(UTL_MATH_SIND(x), std::sin(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_COSD(x), std::cos(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_TAND(x), std::tan(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_ASIND(x / 1e3), std::asin(x / 1e3) * kDeg) << x;
    EXPECT_EQ(UTL_MATH_ACOSD(x / 1e3), std::acos(x / 1e3) * kDeg) << x;
    EXPECT_EQ(UTL_MATH_ATAND(x / 1e3), std::atan(x / 1e3) * kDeg) << x;
    EXPECT_EQ(UTL_MATH_ATAN2D(x, 1), std::atan2(1, x) * kDeg) << x;  // the abscissa first
  }
  constexpr double kX[] = {2.5, -2.5, 0.49999999999999994, 2147483646.6, 2147483647.5, NAN};
  constexpr int kRounded[] = {3, -2, 1, INT_MAX, INT_MIN, INT_MIN};  // INT_MIN out of range
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(UTL_MATH_ROUND(kX[i]), kRounded[i]) << kX[i];
  constexpr int kRange[][6] = {
      {5, -1, 7, 0, 10, 5}, {-1, -1, 70, 0, 10, 10}, {3, 9, 7, 5, 1, 5}, {6, 9, 7, 5, 1, 1}};
  for (const auto &r : kRange)  // value, sentinel, default, low, high -> result; low > high last
    EXPECT_EQ(UTL_MATH_INTEGER_RANGE(r[0], r[1], r[2], r[3], r[4]), r[5]) << r[0] << " " << r[3];
  // Through (x1, y1), (x2, y2), (x3, y3): a, b, c; zeros when |(x2-x1)(x3-x1)(x3-x2)| < 1e-4.
  constexpr double kXY[][6] = {
      {0, 0, 1, 1, 2, 4}, {2, -11, 1, -5.5, 0, -4}, {1, 6, 1, 6, 1, 6}, {5, 1, 5.03, 2, 5.06, 3}};
  constexpr double kABC[][3] = {{0, 0, 1}, {-4, 0.5, -2}, {0, 0, 0}, {0, 0, 0}};
  for (const auto &p : kXY) {
    double got[3] = {-9, -9, -9};
    UTL_MATH_PARABOLA(p[0], p[1], p[2], p[3], p[4], p[5], &got[0], &got[1], &got[2]);
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(got[i], kABC[&p - kXY][i]) << p[0] << " " << i;
  }
  constexpr double kP[] = {0, 0, 1e-300, -0.0, 1e-300, 1, 1, -2, 2};
  constexpr double kQ[] = {0, 1e-300, 0, 0, 1.0000005e-300, 1.000001, 1.0000011, -2.0000019, -2};
  constexpr int kClose[] = {1, 0, 0, 1, 1, 1, 0, 1, 0};
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(UTL_MATH_CLOSE_TO_EQUAL(kP[i], kQ[i]), kClose[i]) << kP[i] << " " << kQ[i];
  constexpr double kFpt[][4] = {{1, 1.5, 0.5, 1}, {1, 1.5, 0.49, 0}, {3, 3, -1, 0}, {0, NAN, 1, 0}};
  for (const auto &[p, q, tol, equal] : kFpt)
    EXPECT_EQ(UTL_MATH_FPT_EQUAL(p, q, tol), equal) << p << " " << q << " " << tol;
}

}  // namespace
