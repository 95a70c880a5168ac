// The numeric rules shared by the frame functions (utl_geom) and the 3D
// vector and geometry functions (qx_3dvec, qx_3dgeom).
//
// A squared length at or below 1e-12 is length 0 (no square root taken); a
// length at or below 1e-6 makes a vector "zero", whose normalisation yields
// (0, 0, 0). Degrees and radians are converted with pi taken as 3.141592654:
// callers compare results in degrees to the last digit, so the short value of
// pi is deliberate and must not be replaced by the full double value.
#ifndef QXBASE_GEOMETRY_VEC3_RULES_H
#define QXBASE_GEOMETRY_VEC3_RULES_H

#include <cmath>
#include <numbers>

namespace qx::vec3 {

inline constexpr double kZeroSquare = 1e-12;
inline constexpr double kZeroLength = 1e-6;
inline constexpr double kDegreesPerRadian = 57.29577950560105;     // 180 / 3.141592654
inline constexpr double kRadiansPerDegree = 0.017453292522222223;  // 3.141592654 / 180
// The full double value of pi, for work that stays in radians (sphere
// sampling, cap arcs); only the degree conversions above use the short one.
inline constexpr double kPi = std::numbers::pi;

inline double Dot(const double *a, const double *b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// out = a x b; out may alias a or b.
inline void Cross(const double *a, const double *b, double *out) {
  const double x = a[1] * b[2] - a[2] * b[1];
  const double y = a[2] * b[0] - a[0] * b[2];
  const double z = a[0] * b[1] - a[1] * b[0];
  out[0] = x;
  out[1] = y;
  out[2] = z;
}

// out = a - b.
inline void Diff(const double *a, const double *b, double *out) {
  out[0] = a[0] - b[0];
  out[1] = a[1] - b[1];
  out[2] = a[2] - b[2];
}

// |a - b|^2, with no zero rule applied.
inline double DistanceSquared(const double *a, const double *b) {
  double d[3];
  Diff(a, b, d);
  return Dot(d, d);
}

inline void Copy(const double *a, double *out) {
  out[0] = a[0];
  out[1] = a[1];
  out[2] = a[2];
}

inline void Zero(double *out) {
  out[0] = out[1] = out[2] = 0.0;
}

// The length rule: sqrt of the square, or 0 when the square is at or below 1e-12.
inline double Length(const double *v) {
  const double s = Dot(v, v);
  return s > kZeroSquare ? std::sqrt(s) : 0.0;
}

// The normalisation rule: out = v / length when the length exceeds 1e-6, else
// out = (0, 0, 0). Returns the length (0 for a zero vector). out may alias v.
inline double Unit(const double *v, double *out) {
  const double length = Length(v);
  if (length > kZeroLength) {
    out[0] = v[0] / length;
    out[1] = v[1] / length;
    out[2] = v[2] / length;
    return length;
  }
  Zero(out);
  return 0.0;
}

// A cosine clamped to [-1, 1] before acos, so rounding cannot yield NaN.
inline double ClampCosine(double c) {
  return c > 1.0 ? 1.0 : (c < -1.0 ? -1.0 : c);
}

inline double AcosDegrees(double c) {
  return std::acos(ClampCosine(c)) * kDegreesPerRadian;
}

}  // namespace qx::vec3

#endif  // QXBASE_GEOMETRY_VEC3_RULES_H
