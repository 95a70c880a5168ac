// Scalar maths and the generator: the generator against the C library's drand48 family,
// the rest against tables and the 10-digit conversion.
#include "utl_math.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>

namespace {

constexpr double kDeg = 57.29577951;
constexpr unsigned int kSeeds[] = {0u, 42u, 0x80000000u, 0xFFFFFFFFu};

TEST(UtlMathRandom, SequencesMatchTheCLibrary) {
  EXPECT_EQ(UTL_MATH_RAND(), 11.0 / 281474976710656.0);  // unseeded: one step from X = 0
  UTL_MATH_SRAND(0);
  EXPECT_EQ(UTL_MATH_RAND(), 0.17082803610628972);  // X = 0x2BBB62DC5101
  for (unsigned int seed : kSeeds) {
    UTL_MATH_SRAND(seed);
    srand48(static_cast<long>(seed));
    for (int i = 0; i < 1000; ++i) {  // interleaved: the three share one state
      ASSERT_EQ(UTL_MATH_RAND(), drand48()) << seed << " " << i;
      ASSERT_EQ(UTL_MATH_IRAND(), lrand48()) << seed << " " << i;
      ASSERT_EQ(UTL_MATH_MRAND(), mrand48()) << seed << " " << i;
    }
  }
}

TEST(UtlMathRandom, GaussianPairsComeFromTheUniformStream) {
  for (unsigned int seed : kSeeds) {
    UTL_MATH_SRAND(seed);
    srand48(static_cast<long>(seed));
    for (int pair = 0; pair < 200; ++pair) {  // the polar method on drand48's stream
      double u1, u2, s;
      do {
        u1 = 2.0 * drand48() - 1.0, u2 = 2.0 * drand48() - 1.0, s = u1 * u1 + u2 * u2;
      } while (s >= 1.0);
      const double f = std::sqrt(-2.0 * std::log(s) / s);
      ASSERT_EQ(UTL_MATH_GRAND(), u1 * f);
      ASSERT_EQ(UTL_MATH_GRAND(), u2 * f);  // cached: no draw
    }
  }
  UTL_MATH_SRAND(99);
  const double first = UTL_MATH_GRAND();
  UTL_MATH_SRAND(99);  // drops the pending second deviate
  EXPECT_EQ(UTL_MATH_GRAND(), first);
}

TEST(UtlMathTrig, TenDigitConstantDividedNotMultiplied) {
  int tells_apart = 0;
  for (double x : {-720.5, -90.0, -1.0, 0.0, 0.3, 30.0, 45.0, 89.9, 123.456, 1e3}) {
    EXPECT_EQ(UTL_MATH_SIND(x), std::sin(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_COSD(x), std::cos(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_TAND(x), std::tan(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_ASIND(x / 1e3), std::asin(x / 1e3) * kDeg) << x;
    EXPECT_EQ(UTL_MATH_ACOSD(x / 1e3), std::acos(x / 1e3) * kDeg) << x;
    EXPECT_EQ(UTL_MATH_ATAND(x / 1e3), std::atan(x / 1e3) * kDeg) << x;
    tells_apart += std::sin(x / kDeg) != std::sin(x * (1.0 / kDeg));
  }
  EXPECT_GT(tells_apart, 0);  // the table can see a multiplication
  EXPECT_NEAR(UTL_MATH_COSD(90.0), -8.45e-11, 0.01e-11);
  EXPECT_TRUE(std::isnan(UTL_MATH_ASIND(1.5)));
  // The abscissa comes first.
  constexpr struct {
    double x, y, degrees;
  } kAtan2[] = {{1, 0, 0},    {0, 1, 90},   {-1, 0, 180},
                {0, -1, -90}, {-1, 1, 135}, {2, 1, 26.56505118}};
  for (const auto &r : kAtan2) {
    EXPECT_NEAR(UTL_MATH_ATAN2D(r.x, r.y), r.degrees, 1e-7) << r.x << "," << r.y;
    EXPECT_EQ(UTL_MATH_ATAN2D(r.x, r.y), std::atan2(r.y, r.x) * kDeg);
  }
}

TEST(UtlMathInteger, RoundAndRange) {
  // floor(x + 0.5); out of range and NaN give INT_MIN.
  constexpr double kX[] = {
      2.5,          -2.5,          2.4999,       -2.5001,       -0.4, 0.49999999999999994,
      2147483646.6, -2147483648.4, 2147483647.5, -2147483649.0, NAN};
  constexpr int kRounded[] = {3, -2, 2, -3, 0, 1, INT_MAX, INT_MIN, INT_MIN, INT_MIN, INT_MIN};
  for (int i = 0; i < 11; ++i)
    EXPECT_EQ(UTL_MATH_ROUND(kX[i]), kRounded[i]) << kX[i];
  constexpr struct {
    int value, sentinel, deflt, low, high, expected;
  } kRange[] = {{5, -1, 7, 0, 10, 5},   {-1, -1, 7, 0, 10, 7},  {-1, -1, 70, 0, 10, 10},
                {-1, -1, -7, 0, 10, 0}, {15, -1, 7, 0, 10, 10}, {10, -1, 7, 0, 10, 10},
                {3, 9, 7, 5, 1, 5},     {6, 9, 7, 5, 1, 1}};  // the last two: low > high
  for (const auto &r : kRange)
    EXPECT_EQ(UTL_MATH_INTEGER_RANGE(r.value, r.sentinel, r.deflt, r.low, r.high), r.expected)
        << r.value << " in " << r.low << ".." << r.high;
}

TEST(UtlMathParabola, CoefficientsOrZerosForASmallDeterminant) {
  constexpr struct {
    double a, b, c, x1, x2, x3;
    bool solvable;  // (x2-x1)(x3-x1)(x3-x2) at least 1e-4
  } kRows[] = {{0, 0, 1, 0, 1, 2, true},       {-4, 0.5, -2, -3, 1, 7, true},
               {3, 0, 0.25, 10, -20, 4, true}, {1e3, -7, 1e-3, 0, 50, 100, true},
               {0, 0, 1, 0, 0.05, 0.1, true},  {1, 2, 3, 1, 1, 1, false},
               {1, 2, 3, 2, 2, 5, false},      {1, 2, 3, 5, 5.03, 5.06, false}};
  for (const auto &r : kRows) {
    auto y = [&](double x) { return r.a + r.b * x + r.c * x * x; };
    double a = -9, b = -9, c = -9;
    UTL_MATH_PARABOLA(r.x1, y(r.x1), r.x2, y(r.x2), r.x3, y(r.x3), &a, &b, &c);
    EXPECT_NEAR(a, r.solvable ? r.a : 0.0, 1e-9 * (1 + std::fabs(r.a))) << r.x1 << r.x2 << r.x3;
    EXPECT_NEAR(b, r.solvable ? r.b : 0.0, 1e-9 * (1 + std::fabs(r.b)));
    EXPECT_NEAR(c, r.solvable ? r.c : 0.0, 1e-9 * (1 + std::fabs(r.c)));
  }
}

TEST(UtlMathEquality, RelativeAndFixedTolerance) {
  constexpr double kP[] = {0, 0, 1e-300, -0.0, 1e-300, 1, 1, -2, 2};
  constexpr double kQ[] = {0, 1e-300, 0, 0, 1.0000005e-300, 1.000001, 1.0000011, -2.0000019, -2};
  constexpr int kClose[] = {1, 0, 0, 1, 1, 1, 0, 1, 0};
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(UTL_MATH_CLOSE_TO_EQUAL(kP[i], kQ[i]), kClose[i]) << kP[i] << " " << kQ[i];
  EXPECT_EQ(UTL_MATH_FPT_EQUAL(1.0, 1.5, 0.5), 1);
  EXPECT_EQ(UTL_MATH_FPT_EQUAL(1.0, 1.5, 0.49), 0);
  EXPECT_EQ(UTL_MATH_FPT_EQUAL(3.0, 3.0, -1.0), 0);
  EXPECT_EQ(UTL_MATH_FPT_EQUAL(0.0, NAN, 1.0), 0);
}

}  // namespace
