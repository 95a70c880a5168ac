// utl_math: scalar maths and the process-wide random generator.
//
// Everything here is a plain function of its arguments except the generator:
// a 48-bit state X advanced by the drand48 recurrence, and a one-deviate cache
// for the Gaussian pairs of the polar method. The state starts at 0 until the
// first UTL_MATH_SRAND. Uniform values are X / 2^48 exactly (the conversion of
// a 48-bit integer to double is exact), which is how drand48 builds its
// result, so the sequences match the C library bit for bit.
//
// The degree conversions use the 10-digit constant 57.29577951 and divide by
// it; both details are kept because callers compare against results computed
// that way.
#include "utl_math.h"

#include <climits>
#include <cmath>
#include <cstdint>

namespace qx::math {
namespace {

constexpr double kDegreesPerRadian = 57.29577951;

constexpr std::uint64_t kMultiplier = 0x5DEECE66DULL;
constexpr std::uint64_t kIncrement = 0xB;
constexpr std::uint64_t kMask48 = (std::uint64_t{1} << 48) - 1;
constexpr std::uint64_t kSeedLow = 0x330E;
constexpr double kTwoTo48 = 281474976710656.0;

constexpr double kCramerLimit = 0.0001;
constexpr double kRelativeTolerance = 1e-6;

struct Generator {
  std::uint64_t state = 0;
  double cached_deviate = 0.0;
  int cached_count = 0;
};

Generator g_generator;

// One step of the recurrence; every public draw goes through here.
std::uint64_t Advance() {
  g_generator.state = (kMultiplier * g_generator.state + kIncrement) & kMask48;
  return g_generator.state;
}

double Uniform() {
  return static_cast<double>(Advance()) / kTwoTo48;
}

}  // namespace
}  // namespace qx::math

using namespace qx::math;

extern "C" {

void UTL_MATH_SRAND(unsigned int seed) {
  g_generator.state = (static_cast<std::uint64_t>(seed) << 16) | kSeedLow;
  g_generator.cached_count = 0;
}

double UTL_MATH_RAND(void) {
  return Uniform();
}

int UTL_MATH_IRAND(void) {
  return static_cast<int>(Advance() >> 17);
}

int UTL_MATH_MRAND(void) {
  // The top 32 bits reinterpreted as two's complement, as mrand48 does.
  return static_cast<int>(static_cast<std::uint32_t>(Advance() >> 16));
}

double UTL_MATH_GRAND(void) {
  if (g_generator.cached_count != 0) {
    --g_generator.cached_count;
    return g_generator.cached_deviate;
  }
  double u1, u2, s;
  do {
    u1 = 2.0 * Uniform() - 1.0;
    u2 = 2.0 * Uniform() - 1.0;
    s = u1 * u1 + u2 * u2;
  } while (s >= 1.0);
  // s == 0 has probability 2^-96 per attempt; it would give 0 * inf = NaN,
  // exactly as the polar method as written does.
  const double f = std::sqrt(-2.0 * std::log(s) / s);
  g_generator.cached_deviate = u2 * f;
  g_generator.cached_count = 1;
  return u1 * f;
}

double UTL_MATH_SIND(double degrees) {
  return std::sin(degrees / kDegreesPerRadian);
}
double UTL_MATH_COSD(double degrees) {
  return std::cos(degrees / kDegreesPerRadian);
}
double UTL_MATH_TAND(double degrees) {
  return std::tan(degrees / kDegreesPerRadian);
}
double UTL_MATH_ASIND(double x) {
  return std::asin(x) * kDegreesPerRadian;
}
double UTL_MATH_ACOSD(double x) {
  return std::acos(x) * kDegreesPerRadian;
}
double UTL_MATH_ATAND(double x) {
  return std::atan(x) * kDegreesPerRadian;
}

double UTL_MATH_ATAN2D(double p, double q) {
  return std::atan2(q, p) * kDegreesPerRadian;
}

int UTL_MATH_ROUND(double x) {
  const double r = std::floor(x + 0.5);
  // The negated test also sends NaN to the guard value.
  if (!(r >= static_cast<double>(INT_MIN) && r < -static_cast<double>(INT_MIN))) return INT_MIN;
  return static_cast<int>(r);
}

int UTL_MATH_INTEGER_RANGE(int value, int sentinel, int deflt, int low, int high) {
  const int v = value == sentinel ? deflt : value;
  if (v < low) return low;
  return v < high ? v : high;
}

void UTL_MATH_PARABOLA(double x1, double y1, double x2, double y2, double x3, double y3, double *a,
                       double *b, double *c) {
  // The products are evaluated left to right exactly as the terms are
  // written, which fixes the rounding of every result.
  const double d =
      x2 * x3 * x3 + x1 * x2 * x2 + x3 * x1 * x1 - x1 * x3 * x3 - x3 * x2 * x2 - x2 * x1 * x1;
  if (std::fabs(d) < kCramerLimit) {
    *a = *b = *c = 0.0;
    return;
  }
  *a = (x2 * y1 * x3 * x3 + x1 * y3 * x2 * x2 + x3 * y2 * x1 * x1 - x1 * y2 * x3 * x3 -
        x3 * y1 * x2 * x2 - x2 * y3 * x1 * x1) /
       d;
  *b =
      (y2 * x3 * x3 + y1 * x2 * x2 + y3 * x1 * x1 - y1 * x3 * x3 - y3 * x2 * x2 - y2 * x1 * x1) / d;
  *c = (x2 * y3 + x1 * y2 + x3 * y1 - x1 * y3 - x3 * y2 - x2 * y1) / d;
}

int UTL_MATH_CLOSE_TO_EQUAL(double p, double q) {
  if (p == 0.0) return q == 0.0;
  if (q == 0.0) return 0;
  return std::fabs(p / q - 1.0) <= kRelativeTolerance;
}

int UTL_MATH_FPT_EQUAL(double p, double q, double tol) {
  return std::fabs(p - q) <= tol;
}

}  // extern "C"
