// qx_3dvec: vector arithmetic of the 3D geometry family.
//
// Vectors are three consecutive doubles; every output goes to a caller array
// and may be one of the inputs. Lengths follow the family's zero rules: a
// square at or below 1e-12 is length 0 and a length at or below 1e-6 cannot be
// normalised (the result is (0, 0, 0) and the int functions return 0). The
// colinearity test uses an absolute tolerance of 1e-6 on coordinates, not a
// tolerance relative to the lengths; callers rely on exactly that.
#include "qx_3dgeom.h"

#include <cmath>

#include "geometry/vec3_rules.h"

namespace {

using qx::vec3::kZeroLength;

// The first component of d2 (x, y, z order) large enough to divide by, or -1.
int RatioComponent(const double *d2) {
  for (int i = 0; i < 3; ++i)
    if (std::fabs(d2[i]) > kZeroLength) return i;
  return -1;
}

}  // namespace

extern "C" {

void QX_3DVEC_CROSS(const double *a, const double *b, double *out) {
  qx::vec3::Cross(a, b, out);
}

double QX_3DVEC_DOT(const double *a, const double *b) {
  return qx::vec3::Dot(a, b);
}

void QX_3DVEC_SUM(const double *a, const double *b, double *out) {
  for (int i = 0; i < 3; ++i)
    out[i] = a[i] + b[i];
}

void QX_3DVEC_DIFF(const double *a, const double *b, double *out) {
  qx::vec3::Diff(a, b, out);
}

void QX_3DVEC_MULT(const double *a, double s, double *out) {
  for (int i = 0; i < 3; ++i)
    out[i] = s * a[i];
}

double QX_3DVEC_LEN(const double *a) {
  return qx::vec3::Length(a);
}

double QX_3DVEC_CROSS_LEN(const double *a, const double *b, double *out) {
  qx::vec3::Cross(a, b, out);
  return qx::vec3::Length(out);
}

double QX_3DVEC_NORM(const double *a, double *out) {
  return qx::vec3::Unit(a, out);
}

int QX_3DVEC_2POINT_NORM(const double *p, const double *q, double *out) {
  double d[3];
  qx::vec3::Diff(q, p, d);
  return qx::vec3::Unit(d, out) != 0.0;
}

int QX_3DVEC_CROSS_NORM(const double *a, const double *b, double *out) {
  double c[3];
  qx::vec3::Cross(a, b, c);
  return qx::vec3::Unit(c, out) != 0.0;
}

int QX_3DVEC_COLINEAR(const double *p0, const double *p1, const double *p2) {
  double d1[3], d2[3];
  qx::vec3::Diff(p0, p1, d1);
  qx::vec3::Diff(p0, p2, d2);
  const int i = RatioComponent(d2);
  if (i < 0) return 1;  // p0 and p2 coincide
  const double t = d1[i] / d2[i];
  return std::fabs(d2[2] * t - d1[2]) <= kZeroLength &&
         std::fabs(d2[1] * t - d1[1]) <= kZeroLength && std::fabs(d2[0] * t - d1[0]) <= kZeroLength;
}

void QX_3DVEC_PERPENDICULAR(const double *v, double *out) {
  constexpr double kSwitch = 0.9;
  const bool use_x = v[0] >= -kSwitch && v[0] <= kSwitch;
  const double r[3] = {use_x ? 1.0 : 0.0, use_x ? 0.0 : 1.0, 0.0};
  qx::vec3::Cross(r, v, out);
}

}  // extern "C"
