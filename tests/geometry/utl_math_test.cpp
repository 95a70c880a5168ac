// Scalar maths and the random generator. The generator is checked against the
// C library's drand48 family, the degree functions against the 10-digit
// conversion they must use, the rest against hand-computed tables.
#include "utl_math.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr double kDeg = 57.29577951;

constexpr unsigned int kSeeds[] = {0u, 1u, 42u, 12345u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};

TEST(UtlMathRandom, UniformIntegerAndSignedMatchTheCLibrary) {
  for (unsigned int seed : kSeeds) {
    UTL_MATH_SRAND(seed);
    srand48(static_cast<long>(seed));
    for (int i = 0; i < 2000; ++i) {
      // Interleave the three outputs: they share one state.
      switch (i % 3) {
        case 0:
          ASSERT_EQ(UTL_MATH_RAND(), drand48()) << "seed " << seed << " draw " << i;
          break;
        case 1:
          ASSERT_EQ(UTL_MATH_IRAND(), lrand48()) << "seed " << seed << " draw " << i;
          break;
        default:
          ASSERT_EQ(UTL_MATH_MRAND(), mrand48()) << "seed " << seed << " draw " << i;
      }
    }
  }
}

TEST(UtlMathRandom, FirstDrawAfterSeedZero) {
  UTL_MATH_SRAND(0);
  EXPECT_EQ(UTL_MATH_RAND(), 0.17082803610628972);
  // The state is now 0x2BBB62DC5101: the next integer draw continues from it.
  unsigned short state[3] = {0x5101, 0x62DC, 0x2BBB};
  seed48(state);
  EXPECT_EQ(UTL_MATH_IRAND(), lrand48());
}

TEST(UtlMathRandom, UnseededStateIsZero) {
  // From X = 0 one step gives X = 0xB.
  EXPECT_EQ(UTL_MATH_RAND(), 11.0 / 281474976710656.0);
  unsigned short state[3] = {0xB, 0, 0};
  seed48(state);
  EXPECT_EQ(UTL_MATH_MRAND(), mrand48());
}

TEST(UtlMathRandom, MrandCoversNegativeValuesAndIrandStaysNonNegative) {
  UTL_MATH_SRAND(7);
  int negatives = 0;
  for (int i = 0; i < 1000; ++i) {
    negatives += UTL_MATH_MRAND() < 0;
    ASSERT_GE(UTL_MATH_IRAND(), 0);
  }
  EXPECT_GT(negatives, 400);
  EXPECT_LT(negatives, 600);
}

// The polar method fed from the C library's uniform stream.
void PolarPair(double &first, double &second) {
  double u1, u2, s;
  do {
    u1 = 2.0 * drand48() - 1.0;
    u2 = 2.0 * drand48() - 1.0;
    s = u1 * u1 + u2 * u2;
  } while (s >= 1.0);
  const double f = std::sqrt(-2.0 * std::log(s) / s);
  first = u1 * f;
  second = u2 * f;
}

TEST(UtlMathRandom, GaussianPairsComeFromTheUniformStream) {
  for (unsigned int seed : kSeeds) {
    UTL_MATH_SRAND(seed);
    srand48(static_cast<long>(seed));
    for (int pair = 0; pair < 200; ++pair) {
      double first, second;
      PolarPair(first, second);
      ASSERT_EQ(UTL_MATH_GRAND(), first);
      ASSERT_EQ(UTL_MATH_GRAND(), second);  // from the cache, no draw
    }
    // The cache never advanced the state: both streams are still in step.
    ASSERT_EQ(UTL_MATH_RAND(), drand48());
  }
}

TEST(UtlMathRandom, SeedingEmptiesTheGaussianCache) {
  UTL_MATH_SRAND(99);
  const double first = UTL_MATH_GRAND();
  UTL_MATH_SRAND(99);  // a cached second deviate is pending here
  EXPECT_EQ(UTL_MATH_GRAND(), first);
}

TEST(UtlMathRandom, GaussianMomentsAreStandard) {
  UTL_MATH_SRAND(2024);
  constexpr int kCount = 200000;
  double sum = 0.0, sum_sq = 0.0;
  int beyond_two = 0;
  for (int i = 0; i < kCount; ++i) {
    const double g = UTL_MATH_GRAND();
    sum += g;
    sum_sq += g * g;
    beyond_two += std::fabs(g) > 2.0;
  }
  EXPECT_NEAR(sum / kCount, 0.0, 0.01);
  EXPECT_NEAR(sum_sq / kCount, 1.0, 0.01);
  EXPECT_NEAR(static_cast<double>(beyond_two) / kCount, 0.0455, 0.003);
}

TEST(UtlMathTrig, DegreeFunctionsDivideByTheTenDigitConstant) {
  constexpr double kAngles[] = {-720.5, -90.0, -1.0, 0.0,  0.3,     1.0,
                                30.0,   45.0,  60.0, 89.9, 123.456, 1e3};
  int differs_from_inverse = 0;
  for (double x : kAngles) {
    EXPECT_EQ(UTL_MATH_SIND(x), std::sin(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_COSD(x), std::cos(x / kDeg)) << x;
    EXPECT_EQ(UTL_MATH_TAND(x), std::tan(x / kDeg)) << x;
    differs_from_inverse += std::sin(x / kDeg) != std::sin(x * (1.0 / kDeg));
  }
  // The table is only meaningful if it tells division from multiplication.
  EXPECT_GT(differs_from_inverse, 0);
  // The 10-digit constant shows: cos(90 degrees) is about -8.45e-11, not 6e-17.
  EXPECT_NEAR(UTL_MATH_COSD(90.0), -8.45e-11, 0.01e-11);
}

TEST(UtlMathTrig, InverseFunctionsReturnDegrees) {
  constexpr double kValues[] = {-1.0, -0.5, 0.0, 0.25, 0.5, 1.0};
  for (double v : kValues) {
    EXPECT_EQ(UTL_MATH_ASIND(v), std::asin(v) * kDeg) << v;
    EXPECT_EQ(UTL_MATH_ACOSD(v), std::acos(v) * kDeg) << v;
    EXPECT_EQ(UTL_MATH_ATAND(v), std::atan(v) * kDeg) << v;
  }
  EXPECT_NEAR(UTL_MATH_ASIND(0.5), 30.0, 1e-8);
  EXPECT_TRUE(std::isnan(UTL_MATH_ACOSD(1.5)));
}

TEST(UtlMathTrig, Atan2TakesAbscissaFirst) {
  struct Row {
    double x, y, degrees;
  };
  constexpr Row kRows[] = {{1, 0, 0},  {0, 1, 90},   {-1, 0, 180}, {0, -1, -90},
                           {1, 1, 45}, {1, -1, -45}, {-1, 1, 135}, {2, 1, 26.565051177077989}};
  for (const Row &r : kRows) {
    EXPECT_NEAR(UTL_MATH_ATAN2D(r.x, r.y), r.degrees, 1e-7) << r.x << "," << r.y;
    EXPECT_EQ(UTL_MATH_ATAN2D(r.x, r.y), std::atan2(r.y, r.x) * kDeg);
  }
}

TEST(UtlMathInteger, RoundIsFloorOfXPlusHalf) {
  struct Row {
    double x;
    int rounded;
  };
  constexpr Row kRows[] = {{2.5, 3},
                           {-2.5, -2},
                           {2.4999, 2},
                           {-2.5001, -3},
                           {0.0, 0},
                           {-0.4, 0},
                           {1e9, 1000000000},
                           {2147483646.6, 2147483647},
                           {-2147483648.4, INT_MIN},
                           {0.49999999999999994, 1}};
  for (const Row &r : kRows)
    EXPECT_EQ(UTL_MATH_ROUND(r.x), r.rounded) << r.x;
}

TEST(UtlMathInteger, RoundOutOfRangeGivesIntMin) {
  constexpr double kRows[] = {2147483647.5, 1e300, -2147483649.0, -1e300, NAN, INFINITY};
  for (double x : kRows)
    EXPECT_EQ(UTL_MATH_ROUND(x), INT_MIN) << x;
}

TEST(UtlMathInteger, IntegerRangeRule) {
  struct Row {
    int value, sentinel, deflt, low, high, expected;
  };
  constexpr Row kRows[] = {{5, -1, 7, 0, 10, 5},     // in range
                           {-1, -1, 7, 0, 10, 7},    // sentinel picks the default
                           {-1, -1, 70, 0, 10, 10},  // default clamped high
                           {-1, -1, -7, 0, 10, 0},   // default clamped low
                           {-5, -1, 7, 0, 10, 0},
                           {15, -1, 7, 0, 10, 10},
                           {0, -1, 7, 0, 10, 0},
                           {10, -1, 7, 0, 10, 10},
                           {3, 9, 7, 5, 1, 5},  // low > high: below low gives low
                           {6, 9, 7, 5, 1, 1},  // low > high: otherwise high
                           {INT_MIN, 0, 0, INT_MIN, INT_MAX, INT_MIN}};
  for (const Row &r : kRows)
    EXPECT_EQ(UTL_MATH_INTEGER_RANGE(r.value, r.sentinel, r.deflt, r.low, r.high), r.expected)
        << r.value << " " << r.low << ".." << r.high;
}

TEST(UtlMathParabola, ThroughThreePoints) {
  struct Row {
    double a, b, c;     // the parabola
    double x1, x2, x3;  // where it is sampled
  };
  constexpr Row kRows[] = {{0, 0, 1, 0, 1, 2},          {1, 2, 3, 0, 1, 2},
                           {-4, 0.5, -2, -3, 1, 7},     {10, -1, 0, 2, 5, 11},
                           {0, 0, 0, -1, 0, 1},         {3, 0, 0.25, 10, -20, 4},
                           {1e3, -7, 0.001, 0, 50, 100}};
  for (const Row &r : kRows) {
    auto y = [&](double x) { return r.a + r.b * x + r.c * x * x; };
    double a = -1, b = -1, c = -1;
    UTL_MATH_PARABOLA(r.x1, y(r.x1), r.x2, y(r.x2), r.x3, y(r.x3), &a, &b, &c);
    EXPECT_NEAR(a, r.a, 1e-9 * (1 + std::fabs(r.a)));
    EXPECT_NEAR(b, r.b, 1e-9 * (1 + std::fabs(r.b)));
    EXPECT_NEAR(c, r.c, 1e-9 * (1 + std::fabs(r.c)));
  }
  double a, b, c;
  UTL_MATH_PARABOLA(0, 0, 1, 1, 2, 4, &a, &b, &c);
  EXPECT_EQ(a, 0.0);
  EXPECT_EQ(b, 0.0);
  EXPECT_EQ(c, 1.0);
}

TEST(UtlMathParabola, SmallDeterminantGivesZeros) {
  struct Row {
    double x1, x2, x3;
  };
  // Equal abscissae, and points so close that (x2-x1)(x3-x1)(x3-x2) < 1e-4.
  constexpr Row kRows[] = {{1, 1, 1}, {2, 2, 5}, {0, 3, 0}, {0, 0.01, 0.02}, {5, 5.03, 5.06}};
  for (const Row &r : kRows) {
    double a = 9, b = 9, c = 9;
    UTL_MATH_PARABOLA(r.x1, 1, r.x2, 2, r.x3, 3, &a, &b, &c);
    EXPECT_EQ(a, 0.0);
    EXPECT_EQ(b, 0.0);
    EXPECT_EQ(c, 0.0);
  }
  // Just above the limit the solution is computed.
  double a, b, c;
  UTL_MATH_PARABOLA(0, 0, 0.05, 0.0025, 0.1, 0.01, &a, &b, &c);
  EXPECT_NEAR(c, 1.0, 1e-9);
}

TEST(UtlMathEquality, CloseToEqualAndFixedTolerance) {
  struct Row {
    double p, q;
    int close;
  };
  constexpr Row kRows[] = {{0.0, 0.0, 1},         {0.0, 1e-300, 0},
                           {1e-300, 0.0, 0},      {1e-300, 1.0000005e-300, 1},
                           {1.0, 1.000001, 1},    {1.0, 1.0000011, 0},
                           {-2.0, -2.0000019, 1}, {2.0, -2.0, 0},
                           {-0.0, 0.0, 1},        {1e300, 1.0000009e300, 1}};
  for (const Row &r : kRows)
    EXPECT_EQ(UTL_MATH_CLOSE_TO_EQUAL(r.p, r.q), r.close) << r.p << " " << r.q;

  struct TolRow {
    double p, q, tol;
    int equal;
  };
  constexpr TolRow kTolRows[] = {{1.0, 1.5, 0.5, 1}, {1.0, 1.5, 0.49, 0}, {-1.0, 1.0, 2.0, 1},
                                 {3.0, 3.0, 0.0, 1}, {3.0, 3.0, -1.0, 0}, {0.0, NAN, 1.0, 0}};
  for (const TolRow &r : kTolRows)
    EXPECT_EQ(UTL_MATH_FPT_EQUAL(r.p, r.q, r.tol), r.equal);
}

}  // namespace
