// qx_3dfit: principal axes, best line and plane, projection into the best
// plane, and the weighted least-squares superposition of two point sets.
//
// Line, plane and projection share one core (ScatterEigen): the mean of the
// points and the eigen-decomposition of their scatter matrix, accumulated
// from nine running sums in a single pass and not divided by n. Eigenvalues
// come back ascending, so column 2 is the main axis, column 0 the normal.
// The uniqueness tests compare eigenvalues with an absolute 0.0001 and the
// two failure texts differ in the case of "Unique"/"unique"; both are kept
// because callers match on them.
//
// The superposition takes the eigenvectors a_j of C^T C and the images
// b_j = C a_j / |C a_j|; R = sum b_j a_j^T is C's orthogonal polar factor.
// That alone can be a reflection (det C < 0) and is incomplete for planar or
// colinear sets, so the frame b is always completed to a right-handed one
// matching a (see CompleteFrame); R is then a proper rotation in every case.
#include <cmath>

#include "common/error_record.h"
#include "geometry/vec3_rules.h"
#include "qx_3dgeom.h"
#include "qx_linalg.h"
#include "utl_geom.h"

namespace qx::fit {
namespace {

constexpr double kEigenTie = 0.0001;
constexpr double kColinearCross = 1e-5;
constexpr double kMissingImage = 1e-10;
constexpr double kParallelAxes = 1e-8;

constexpr ErrorRecord kInsufficient{"UTL", "GEOM", kFatal, "INSUFF_POINTS"};
constexpr ErrorRecord kUnresolved{"QX", "3D_GEOM", kError, "Unable to resolve Matrix"};
constexpr ErrorRecord kLineNotUnique{"QX", "3D_GEOM", kError, "Least Squares Line is not Unique"};
constexpr ErrorRecord kPlaneNotUnique{"QX", "3D_GEOM", kError, "Least Squares Plane is not unique"};
constexpr ErrorRecord kBadCount{"QX", "3D_GEOM", kError, "Invalid Number of Points"};

using vec3::Cross;
using vec3::Diff;
using vec3::Dot;
using vec3::Length;

// The normalisation rule; false for a zero vector.
bool Normalize(const double *v, double *out) {
  return vec3::Unit(v, out) > 0.0;
}

void Column(const double *m, int j, double *out) {
  for (int i = 0; i < 3; ++i)
    out[i] = m[i * 3 + j];
}

// Squared distance of p from a line (point, unit direction) by the family's
// point-to-line rule; a radicand that rounding made negative counts as 0.
double SquaredDistanceToLine(const double *p, const double *line) {
  const double dist = QX_3DGEOM_DIST_PT_LN(p, line);
  return dist == dist ? dist * dist : 0.0;
}

// ---- scatter matrix and its eigen-decomposition -----------------------------

struct PlaneFrame {
  double mean[3];
  double values[3];   // ascending
  double vectors[9];  // column j belongs to values[j]
};

void ScatterMatrix(int n, const double *points, double *mean, double *s) {
  double sum[3] = {0.0, 0.0, 0.0};
  double products[9] = {0.0};
  for (int k = 0; k < n; ++k) {
    const double *p = points + 3 * k;
    for (int i = 0; i < 3; ++i) {
      sum[i] += p[i];
      for (int j = i; j < 3; ++j)
        products[i * 3 + j] += p[i] * p[j];
    }
  }
  for (int i = 0; i < 3; ++i)
    mean[i] = sum[i] / n;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      s[i * 3 + j] = products[i <= j ? i * 3 + j : j * 3 + i] - sum[i] * mean[j];
}

// The shared core of the line, plane and projection. On an eigensolver
// failure the solver's own entry is replaced by "Unable to resolve Matrix"
// from `routine`, the only message callers are meant to see.
bool ScatterEigen(int n, const double *points, const char *routine, PlaneFrame &frame) {
  double s[9];
  ScatterMatrix(n, points, frame.mean, s);
  if (UTL_GEOM_SYMM_EIGENSYS(s, 3, frame.values, frame.vectors, nullptr)) return true;
  if (UTL_ERROR_IS_SET()) UTL_ERROR_CLEAR();
  RecordError(kUnresolved, routine);
  return false;
}

// ---- superposition -----------------------------------------------------------

// Weighted centres; returns the weight sum.
double Centres(int n, const double *a, const double *b, const double *w, double *ca, double *cb) {
  double total = 0.0;
  double sa[3] = {0.0, 0.0, 0.0}, sb[3] = {0.0, 0.0, 0.0};
  for (int k = 0; k < n; ++k) {
    const double wk = w != nullptr ? w[k] : 1.0;
    total += wk;
    for (int i = 0; i < 3; ++i) {
      sa[i] += wk * a[3 * k + i];
      sb[i] += wk * b[3 * k + i];
    }
  }
  for (int i = 0; i < 3; ++i) {
    ca[i] = total != 0.0 ? sa[i] / total : 0.0;
    cb[i] = total != 0.0 ? sb[i] / total : 0.0;
  }
  return total;
}

// C(i, j) = sum w (A - cA)_i (B - cB)_j.
void Correlation(int n, const double *a, const double *b, const double *w, const double *ca,
                 const double *cb, double *c) {
  for (int i = 0; i < 9; ++i)
    c[i] = 0.0;
  for (int k = 0; k < n; ++k) {
    const double wk = w != nullptr ? w[k] : 1.0;
    const double da[3] = {a[3 * k] - ca[0], a[3 * k + 1] - ca[1], a[3 * k + 2] - ca[2]};
    const double db[3] = {b[3 * k] - cb[0], b[3 * k + 1] - cb[1], b[3 * k + 2] - cb[2]};
    for (int i = 0; i < 3; ++i) {
      const double wa = wk * da[i];
      for (int j = 0; j < 3; ++j)
        c[i * 3 + j] += wa * db[j];
    }
  }
}

// The rotation of least angle taking unit u onto unit v: Rodrigues' formula
// about u x v; when u and v are (anti)parallel the axis is `perp` made
// orthogonal to u, so opposite vectors give a half turn about it.
void LeastRotation(const double *u, const double *v, const double *perp, double *r) {
  double k[3];
  Cross(u, v, k);
  double c = Dot(u, v);
  double sine = std::sqrt(Dot(k, k));
  double axis[3];
  if (sine > kParallelAxes) {
    for (int i = 0; i < 3; ++i)
      axis[i] = k[i] / sine;
  } else {
    const double along = Dot(perp, u);
    const double w[3] = {perp[0] - along * u[0], perp[1] - along * u[1], perp[2] - along * u[2]};
    sine = 0.0;
    c = c > 0.0 ? 1.0 : -1.0;
    if (!Normalize(w, axis)) c = 1.0;  // no usable axis: keep R = I, never -I
  }
  const double cross_matrix[9] = {0.0,      -axis[2], axis[1], axis[2], 0.0,
                                  -axis[0], -axis[1], axis[0], 0.0};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      r[i * 3 + j] =
          (i == j ? c : 0.0) + sine * cross_matrix[i * 3 + j] + (1.0 - c) * axis[i] * axis[j];
}

// Completes the images b_j (columns of `b`, present[j] telling which survived
// the 1e-10 test) to a right-handed frame matching the eigenvector frame `a`,
// then writes R. See the public header for the cases.
void CompleteFrame(const double *a, double *b, const bool *present, double *r) {
  double a1[3], a2[3], a3[3], b2[3], b3[3];
  Column(a, 0, a1);
  Column(a, 1, a2);
  Column(a, 2, a3);
  Column(b, 1, b2);
  Column(b, 2, b3);
  if (!present[2]) {
    UTL_GEOM_IDENTITY_M(r);
    return;
  }
  const double along = Dot(b2, b3);
  const double raw[3] = {b2[0] - along * b3[0], b2[1] - along * b3[1], b2[2] - along * b3[2]};
  if (!present[1] || !Normalize(raw, b2)) return LeastRotation(a3, b3, a2, r);
  double a_cross[3], b1[3];
  Cross(a2, a3, a_cross);
  const double handedness = Dot(a1, a_cross) < 0.0 ? -1.0 : 1.0;
  Cross(b2, b3, b1);
  for (int i = 0; i < 3; ++i)
    b1[i] *= handedness;
  const double *bs[3] = {b1, b2, b3};
  const double *as[3] = {a1, a2, a3};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      r[i * 3 + j] = bs[0][i] * as[0][j] + bs[1][i] * as[1][j] + bs[2][i] * as[2][j];
}

// R from the correlation matrix; false when the eigensolver fails.
bool BestRotation(const double *c, double *r) {
  double ctc[9], values[3], a[9], b[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      ctc[i * 3 + j] = c[i] * c[j] + c[3 + i] * c[3 + j] + c[6 + i] * c[6 + j];
  if (!UTL_GEOM_SYMM_EIGENSYS(ctc, 3, values, a, nullptr)) return false;
  bool present[3];
  for (int j = 0; j < 3; ++j) {
    double image[3];
    for (int i = 0; i < 3; ++i)
      image[i] = c[i * 3] * a[j] + c[i * 3 + 1] * a[3 + j] + c[i * 3 + 2] * a[6 + j];
    const double sq = Dot(image, image);
    present[j] = sq >= kMissingImage;
    const double len = present[j] ? std::sqrt(sq) : 0.0;
    for (int i = 0; i < 3; ++i)
      b[i * 3 + j] = present[j] ? image[i] / len : 0.0;
  }
  CompleteFrame(a, b, present, r);
  return true;
}

double Rms(int n, const double *a, const double *b, const double *w, const double *ca,
           const double *cb, const double *r, double total) {
  double sum = 0.0;
  for (int k = 0; k < n; ++k) {
    const double db[3] = {b[3 * k] - cb[0], b[3 * k + 1] - cb[1], b[3 * k + 2] - cb[2]};
    double sq = 0.0;
    for (int i = 0; i < 3; ++i) {
      const double e = a[3 * k + i] - ca[i] - Dot(r + 3 * i, db);
      sq += e * e;
    }
    sum += (w != nullptr ? w[k] : 1.0) * sq;
  }
  return std::sqrt(sum / total);
}

}  // namespace
}  // namespace qx::fit

using namespace qx::fit;

extern "C" {

int UTL_GEOM_PRIN_AXIS(int n, const double *points, const double *weights, double *centre,
                       double *values, double *axes) {
  if (n < 3) return qx::Fail(kInsufficient, "UTL_GEOM_PRIN_AXIS", 0);
  double total = 0.0, sum[3] = {0.0, 0.0, 0.0};
  for (int k = 0; k < n; ++k) {
    const double wk = weights != nullptr ? weights[k] : 1.0;
    total += wk;
    for (int i = 0; i < 3; ++i)
      sum[i] += wk * points[3 * k + i];
  }
  if (total == 0.0) return qx::Fail(kInsufficient, "UTL_GEOM_PRIN_AXIS", 0);
  for (int i = 0; i < 3; ++i)
    centre[i] = sum[i] / total;
  double m[9] = {0.0};
  for (int k = 0; k < n; ++k) {
    const double wk = weights != nullptr ? weights[k] : 1.0;
    const double *p = points + 3 * k;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j)
        m[i * 3 + j] += wk * p[i] * (p[j] - centre[j]);
  }
  if (!UTL_GEOM_SYMM_EIGENSYS(m, 3, values, axes, nullptr))
    return qx::TraceAndFail("UTL_GEOM_PRIN_AXIS", 0);
  UTL_GEOM_TRANSPOSE(axes);
  return 1;
}

int QX_3DGEOM_BEST_LINE(int n, const double *points, double *line, double *residual) {
  if (n < 2) return 0;
  PlaneFrame frame;
  if (!ScatterEigen(n, points, "QX_3DGEOM_BEST_LINE", frame)) return 0;
  if (std::fabs(frame.values[1] - frame.values[2]) <= kEigenTie)
    return qx::Fail(kLineNotUnique, "QX_3DGEOM_BEST_LINE", 0);
  for (int i = 0; i < 3; ++i)
    line[i] = frame.mean[i];
  Column(frame.vectors, 2, line + 3);
  double sum = 0.0;
  for (int k = 0; k < n; ++k)
    sum += SquaredDistanceToLine(points + 3 * k, line);
  if (residual != nullptr) *residual = std::sqrt(sum);
  return 1;
}

int QX_3DGEOM_BEST_PLANE(int n, const double *points, double *plane, double *residual) {
  if (n < 3) return 0;
  if (n == 3) {
    const double *p1 = points, *p2 = points + 3, *p3 = points + 6;
    double e[3], f[3], normal[3];
    Diff(p2, p1, e);
    Diff(p3, p1, f);
    Cross(e, f, normal);
    if (Length(normal) < kColinearCross) return 0;
    for (int i = 0; i < 3; ++i)
      plane[i] = (p1[i] + p2[i] + p3[i]) / 3.0;
    Normalize(normal, plane + 3);
    if (residual != nullptr) *residual = 0.0;
    return 1;
  }
  PlaneFrame frame;
  if (!ScatterEigen(n, points, "QX_3DGEOM_BEST_PLANE", frame)) return 0;
  if (std::fabs(frame.values[0] - frame.values[1]) <= kEigenTie)
    return qx::Fail(kPlaneNotUnique, "QX_3DGEOM_BEST_PLANE", 0);
  for (int i = 0; i < 3; ++i)
    plane[i] = frame.mean[i];
  Column(frame.vectors, 0, plane + 3);
  double sum = 0.0;
  for (int k = 0; k < n; ++k) {
    const double *p = points + 3 * k;
    double d[3];
    Diff(p, plane, d);
    const double h = Dot(d, plane + 3);
    sum += h * h;
  }
  if (residual != nullptr) *residual = std::sqrt(sum);
  return 1;
}

int QX_3DGEOM_PROJ_PTS_TO_2D(int n, double *points) {
  if (n < 0) return qx::Fail(kBadCount, "QX_3DGEOM_PROJ_PTS_TO_2D", 0);
  if (n == 0) return 1;
  if (n < 3) {
    double half = 0.0;
    if (n == 2) {
      double d[3];
      Diff(points + 3, points, d);
      half = Length(d) / 2.0;
    }
    for (int i = 0; i < 3 * n; ++i)
      points[i] = 0.0;
    if (n == 2) {
      points[0] = -half;
      points[3] = half;
    }
    return 1;
  }
  PlaneFrame frame;
  if (!ScatterEigen(n, points, "QX_3DGEOM_PROJ_PTS_TO_2D", frame)) return 0;
  double e1[3], e2[3];
  Column(frame.vectors, 1, e1);
  Column(frame.vectors, 2, e2);
  const double *m = frame.mean;
  for (int k = 0; k < n; ++k) {
    double *p = points + 3 * k;
    // The third component is -mz, not z - mz: the point's z is never read.
    const double d[3] = {p[0] - m[0], p[1] - m[1], -m[2]};
    p[0] = Dot(e2, d);
    p[1] = Dot(e1, d);
    p[2] = -m[2];
  }
  return 1;
}

void QX_3DGEOM_LSFIT(int n, const double *a_points, const double *b_points, const double *weights,
                     double *b_centre, double *a_centre, double *rotation, double *rms) {
  const double total = n > 0 ? Centres(n, a_points, b_points, weights, a_centre, b_centre) : 0.0;
  if (total == 0.0) {
    for (int i = 0; i < 3; ++i)
      a_centre[i] = b_centre[i] = 0.0;
    UTL_GEOM_IDENTITY_M(rotation);
    if (rms != nullptr) *rms = 0.0;
    return;
  }
  double c[9];
  Correlation(n, a_points, b_points, weights, a_centre, b_centre, c);
  if (!BestRotation(c, rotation)) UTL_GEOM_IDENTITY_M(rotation);
  if (rms != nullptr)
    *rms = Rms(n, a_points, b_points, weights, a_centre, b_centre, rotation, total);
}

}  // extern "C"
