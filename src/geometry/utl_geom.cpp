// utl_geom: coordinate frames and transforms.
//
// Matrices are nine doubles, row-major, acting on column vectors (p' = M p).
// Everything works on caller storage and locals; nothing is remembered between
// calls. Failures go on the error stack as UTL / GEOM with the documented
// severity; the composite routines (alignment, Gram-Schmidt, the frame from
// three points) add their bare name as a trace line under the error of the
// vector routine they called. Two behaviours look odd and are relied upon:
// the alignment routines decide failure by asking whether an error is
// recorded (so a pending error makes them fail), and UTL_GEOM_MFORM turns by
// -angle under the right-hand rule. Degrees use pi = 3.141592654
// (vec3_rules.h).
#include "utl_geom.h"

#include <cmath>
#include <cstddef>

#include "common/error_record.h"
#include "geometry/geom_frame.h"
#include "geometry/vec3_rules.h"

namespace qx::geom {
namespace {

using vec3::Cross;
using vec3::Dot;
using vec3::kDegreesPerRadian;
using vec3::kRadiansPerDegree;

constexpr ErrorRecord kZeroLengthVector{"UTL", "GEOM", kFatal, "ZERO_LENGTH_VECTOR"};
constexpr ErrorRecord kSmallDist{"UTL", "GEOM", kWarning, "SMALL_DIST"};
constexpr ErrorRecord kColinearWarning{"UTL", "GEOM", kWarning, "COLINEAR"};
constexpr ErrorRecord kColinearFatal{"UTL", "GEOM", kFatal, "COLINEAR"};
constexpr ErrorRecord kBadCell{"UTL", "GEOM", kFatal, "BAD_CELL"};

// Below this |u x w| the two alignment directions count as parallel.
constexpr double kParallelCross = 0.001;
// Arms and bonds of the angle functions shorter than this are refused.
constexpr double kMinBond = 0.001;
// UTL_GEOM_TAU: bond cosines in these bands mean three colinear atoms.
constexpr double kColinearLow = 0.999999;
constexpr double kColinearHigh = 1.0001;
// Torsion core: normals this close to (anti)parallel give exactly 0 or 180.
constexpr double kFlatCosine = 0.99999999;
// Cell volume factor below which a cell is flat.
constexpr double kMinCellVolume = 0.001;

// Normalises v into out, recording ZERO_LENGTH_VECTOR under `routine` when the
// length is 1e-6 or less. The common core of UTL_GEOM_VNORM and
// UTL_GEOM_VUNIT.
double UnitOrRecord(const double *v, double *out, const char *routine) {
  const double length = vec3::Unit(v, out);
  if (length == 0.0) RecordError(kZeroLengthVector, routine);
  return length;
}

double UnitOf(const double *from, const double *to, double *out) {
  double d[3];
  vec3::Diff(to, from, d);
  return UnitOrRecord(d, out, "UTL_GEOM_VUNIT");
}

// The direction u of the alignment routines: to - from, or to itself.
double AlignDirection(const double *from, const double *to, double *u) {
  return from != nullptr ? UnitOf(from, to, u) : UnitOrRecord(to, u, "UTL_GEOM_VNORM");
}

// A direction perpendicular to the unit vector u, for UTL_GEOM_ALIGNX.
void PerpendicularGuess(const double *u, double *w) {
  if (std::fabs(u[0]) > kAlignMinLength) {
    w[0] = -(u[1] + u[2]) / u[0];
    w[1] = 1.0;
    w[2] = 1.0;
    return;
  }
  w[0] = 1.0;
  if (std::fabs(u[1]) > kAlignMinLength) {
    w[1] = -(u[0] + u[2]) / u[1];
    w[2] = 1.0;
    return;
  }
  w[1] = 1.0;
  w[2] = std::fabs(u[2]) > kAlignMinLength ? -(u[0] + u[1]) / u[2] : 1.0;
}

void MatrixVector(const double *m, const double *p, double *out) {
  const double x = m[0] * p[0] + m[1] * p[1] + m[2] * p[2];
  const double y = m[3] * p[0] + m[4] * p[1] + m[5] * p[2];
  const double z = m[6] * p[0] + m[7] * p[1] + m[8] * p[2];
  out[0] = x;
  out[1] = y;
  out[2] = z;
}

void RotateAbout(const double *centre, const double *m, double *point) {
  double d[3];
  if (centre == nullptr) {
    MatrixVector(m, point, point);
    return;
  }
  vec3::Diff(point, centre, d);
  MatrixVector(m, d, d);
  for (int i = 0; i < 3; ++i)
    point[i] = centre[i] + d[i];
}

// Copies a 3 x 3 matrix built in a local into the caller's storage.
void CopyMatrix(const double (&from)[9], double *to) {
  for (int i = 0; i < 9; ++i)
    to[i] = from[i];
}

// Entry i (row-major) of the 3 x 3 identity.
constexpr double IdentityEntry(int i) {
  return i % 4 == 0 ? 1.0 : 0.0;
}

bool InBand(double c, double low, double high) {
  const double a = std::fabs(c);
  return a >= low && a <= high;
}

}  // namespace

FrameResult FrameFromUnitDirections(const double *u, const double *w, double *m) {
  double n[3];
  Cross(u, w, n);
  if (vec3::Length(n) < kParallelCross) {
    if (std::fabs(u[0]) < kParallelCross) {
      n[0] = 1.0;
      n[1] = n[2] = 0.0;
    } else if (u[1] == 0.0 && u[2] == 0.0) {
      return FrameResult::kColinear;
    } else {
      const double s = std::sqrt(u[1] * u[1] + u[2] * u[2]);
      n[0] = 0.0;
      n[1] = -u[2] / s;
      n[2] = u[1] / s;
    }
  } else {
    vec3::Unit(n, n);  // |n| >= 0.001 here, so this cannot fail
  }
  vec3::Copy(u, m);
  Cross(n, u, m + 3);
  vec3::Copy(n, m + 6);
  return FrameResult::kOk;
}

double TorsionOfUnitBonds(const double *b1, const double *b2, const double *b3) {
  double q1[3], q2[3], w[3], wu[3];
  Cross(b1, b2, q1);
  vec3::Unit(q1, q1);
  Cross(b2, b3, q2);
  vec3::Unit(q2, q2);
  const double x = Dot(q1, q2);
  if (x <= -kFlatCosine) return 180.0;
  if (x >= kFlatCosine) return 0.0;
  Cross(q1, q2, w);
  const double length = vec3::Length(w);
  vec3::Unit(w, wu);
  const double y = length * Dot(b2, wu);
  return std::atan2(y, x) * kDegreesPerRadian;
}

}  // namespace qx::geom

using namespace qx::geom;
using qx::vec3::Dot;

extern "C" {

// ---- Vectors ----------------------------------------------------------------

void UTL_GEOM_CROSS(const double *a, const double *b, double *out) {
  qx::vec3::Cross(a, b, out);
}

void UTL_GEOM_MIDPOINT(const double *a, const double *b, double *out) {
  for (int i = 0; i < 3; ++i)
    out[i] = a[i] + 0.5 * (b[i] - a[i]);
}

double UTL_GEOM_VDIST_SQ(const double *a, const double *b) {
  return qx::vec3::DistanceSquared(a, b);
}

double UTL_GEOM_VDIST(const double *a, const double *b) {
  return std::sqrt(UTL_GEOM_VDIST_SQ(a, b));
}

double UTL_GEOM_VLEN_SQ(const double *a) {
  return Dot(a, a);
}

double UTL_GEOM_VLEN(const double *a) {
  return std::sqrt(UTL_GEOM_VLEN_SQ(a));
}

double UTL_GEOM_VNORM(const double *a, double *out) {
  return UnitOrRecord(a, out, "UTL_GEOM_VNORM");
}

double UTL_GEOM_VUNIT(const double *from, const double *to, double *out) {
  return UnitOf(from, to, out);
}

int UTL_GEOM_CLOSE(const double *a, const double *b, double /*unused*/, double tol) {
  double sum = 0.0;
  for (int i = 0; i < 3; ++i) {
    const double d = a[i] - b[i];
    sum += d * d;
    if (sum > tol) return 0;
  }
  return 1;
}

double *UTL_GEOM_CENTROID(int n, const double *points, const double *weights, double *out) {
  qx::vec3::Zero(out);
  // A single point deliberately yields (0, 0, 0), not the point: callers
  // test for "fewer than two points" through that result.
  if (n < 2) return out;
  double sum[3] = {0.0, 0.0, 0.0};
  double total = 0.0;
  for (int k = 0; k < n; ++k) {
    const double w = weights != nullptr ? weights[k] : 1.0;
    for (int i = 0; i < 3; ++i)
      sum[i] += w * points[3 * k + i];
    total += w;
  }
  for (int i = 0; i < 3; ++i)
    out[i] = sum[i] / total;
  return out;
}

double *UTL_GEOM_REFLECT(double a, double b, double c, double d, double *point) {
  const double n[3] = {a, b, c};
  const double f = 2.0 * (Dot(n, point) - d);
  for (int i = 0; i < 3; ++i)
    point[i] -= f * n[i];
  return point;
}

// ---- 3 x 3 matrices ---------------------------------------------------------

double *UTL_GEOM_IDENTITY_M(double *m) {
  for (int i = 0; i < 9; ++i)
    m[i] = IdentityEntry(i);
  return m;
}

int UTL_GEOM_IS_IDENTITY(const double *m, const double *t, double tol) {
  for (int i = 0; i < 9; ++i) {
    if (!(std::fabs(m[i] - IdentityEntry(i)) <= tol)) return 0;
  }
  if (t == nullptr) return 1;
  for (int i = 0; i < 3; ++i)
    if (!(std::fabs(t[i]) <= tol)) return 0;
  return 1;
}

void UTL_GEOM_MMULT(const double *a, const double *b, double *c) {
  double r[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      r[3 * i + j] = a[3 * i] * b[j] + a[3 * i + 1] * b[3 + j] + a[3 * i + 2] * b[6 + j];
  CopyMatrix(r, c);
}

void UTL_GEOM_MMULT_NXN(int n, const double *a, const double *b, double *c) {
  if (n <= 0) return;
  const std::size_t size = static_cast<std::size_t>(n);
  for (std::size_t i = 0; i < size; ++i) {
    for (std::size_t j = 0; j < size; ++j) {
      double sum = 0.0;
      for (std::size_t k = 0; k < size; ++k)
        sum += a[i * size + k] * b[k * size + j];
      c[i * size + j] = sum;
    }
  }
}

void UTL_GEOM_TRANSPOSE(double *m) {
  for (int i = 0; i < 3; ++i) {
    for (int j = i + 1; j < 3; ++j) {
      const double t = m[3 * i + j];
      m[3 * i + j] = m[3 * j + i];
      m[3 * j + i] = t;
    }
  }
}

void UTL_GEOM_MAKE_ROTX(double angle, double *m) {
  const double c = std::cos(angle), s = std::sin(angle);
  const double r[9] = {1.0, 0.0, 0.0, 0.0, c, -s, 0.0, s, c};
  CopyMatrix(r, m);
}

void UTL_GEOM_MAKE_ROTY(double angle, double *m) {
  const double c = std::cos(angle), s = std::sin(angle);
  const double r[9] = {c, 0.0, s, 0.0, 1.0, 0.0, -s, 0.0, c};
  CopyMatrix(r, m);
}

void UTL_GEOM_MAKE_ROTZ(double angle, double *m) {
  const double c = std::cos(angle), s = std::sin(angle);
  const double r[9] = {c, -s, 0.0, s, c, 0.0, 0.0, 0.0, 1.0};
  CopyMatrix(r, m);
}

void UTL_GEOM_MTENSOR(const double *from, const double *to, double *k, double *k2) {
  double u[3];
  UnitOf(from, to, u);
  const double kk[9] = {0.0, u[2], -u[1], -u[2], 0.0, u[0], u[1], -u[0], 0.0};
  CopyMatrix(kk, k);
  // k2 is the product k k, not u u^T - I: for a zero axis it is zero, which
  // makes UTL_GEOM_MFORM yield the identity.
  UTL_GEOM_MMULT(kk, kk, k2);
}

double *UTL_GEOM_MFORM(const double *from, const double *to, double angle, double *m) {
  double k[9], k2[9];
  UTL_GEOM_MTENSOR(from, to, k, k2);
  const double radians = angle * kRadiansPerDegree;
  const double s = std::sin(radians), c = 1.0 - std::cos(radians);
  // The sign of k (the transpose of the usual cross-product matrix) makes this
  // a turn by -angle under the right-hand rule; deliberate, callers rely on it.
  for (int i = 0; i < 9; ++i)
    m[i] = IdentityEntry(i) + s * k[i] + c * k2[i];
  return m;
}

int UTL_GEOM_ORTHO_MAT(const double *in, double *out) {
  double r[9] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
  bool ok = UTL_GEOM_VNORM(in, r) != 0.0;
  if (ok) {
    const double p = Dot(in + 3, r);
    double v[3] = {in[3] - p * r[0], in[4] - p * r[1], in[5] - p * r[2]};
    ok = UTL_GEOM_VNORM(v, r + 3) != 0.0;
  }
  if (ok) {
    const double p0 = Dot(in + 6, r), p1 = Dot(in + 6, r + 3);
    double v[3];
    for (int i = 0; i < 3; ++i)
      v[i] = in[6 + i] - p0 * r[i] - p1 * r[3 + i];
    ok = UTL_GEOM_VNORM(v, r + 6) != 0.0;
  }
  CopyMatrix(r, out);
  return ok ? 1 : qx::TraceAndFail("UTL_GEOM_ORTHO_MAT", 0);
}

// ---- Applying matrices ------------------------------------------------------

void UTL_GEOM_ROTATE(const double *centre, const double *m, double *point) {
  RotateAbout(centre, m, point);
}

void UTL_GEOM_MROTATE(const double *m, const double *centre, int n, double *points) {
  for (int k = 0; k < n; ++k)
    RotateAbout(centre, m, points + 3 * static_cast<std::size_t>(k));
}

const double *UTL_GEOM_TRANSFORM(const double *p, const double *m, const double *t, double *out) {
  MatrixVector(m, p, out);
  if (t != nullptr)
    for (int i = 0; i < 3; ++i)
      out[i] += t[i];
  return t;
}

int UTL_GEOM_REV_TRANSFORM(const double *origin, const double *a, const double *b, double *point,
                           double *m) {
  double r[9];
  if (UnitOf(origin, b, r + 3) == 0.0 || UnitOf(origin, a, r + 6) == 0.0)
    return qx::TraceAndFail("UTL_GEOM_REV_TRANSFORM", 0);
  qx::vec3::Cross(r + 3, r + 6, r);  // the rows are deliberately not orthogonalised
  CopyMatrix(r, m);
  qx::vec3::Diff(point, origin, point);
  MatrixVector(m, point, point);
  return 1;
}

// ---- Alignment frames -------------------------------------------------------

int UTL_GEOM_ALIGN(const double *from1, const double *to1, const double *from2, const double *to2,
                   double *m) {
  double u[3], w[3];
  const double lu = AlignDirection(from1, to1, u);
  const double lw = AlignDirection(from2, to2, w);
  // Failure is "an error is recorded", not the results above: an error the
  // caller left pending also ends here. Deliberate; callers clear first.
  if (UTL_ERROR_IS_SET()) return qx::TraceAndFail("UTL_GEOM_ALIGN", 0);
  if (lu < kAlignMinLength || lw < kAlignMinLength)
    return qx::Fail(kSmallDist, "UTL_GEOM_ALIGN", 0);
  if (FrameFromUnitDirections(u, w, m) == FrameResult::kColinear)
    return qx::Fail(kColinearWarning, "UTL_GEOM_ALIGN", 0);
  return 1;
}

int UTL_GEOM_ALIGNX(const double *from, const double *to, double *m) {
  double u[3], w[3];
  const double lu = AlignDirection(from, to, u);
  // As in UTL_GEOM_ALIGN, a pending error also fails here (deliberate).
  if (UTL_ERROR_IS_SET() || lu < kAlignMinLength) return qx::TraceAndFail("UTL_GEOM_ALIGNX", 0);
  PerpendicularGuess(u, w);
  qx::vec3::Unit(w, w);  // |w| >= 1: w has a component 1 and is perpendicular to u
  if (FrameFromUnitDirections(u, w, m) == FrameResult::kColinear) {
    qx::RecordError(kColinearWarning, "UTL_GEOM_ALIGN");
    return qx::TraceAndFail("UTL_GEOM_ALIGNX", 0);
  }
  return 1;
}

// ---- Crystal cells ----------------------------------------------------------

int UTL_GEOM_CRYSTAL_MATRICES(const double *cell, double *ortho, double *frac) {
  const double a = cell[0], b = cell[1], c = cell[2];
  const double ca = std::cos(cell[3] * kRadiansPerDegree);
  const double cb = std::cos(cell[4] * kRadiansPerDegree);
  const double cg = std::cos(cell[5] * kRadiansPerDegree);
  const double sg = std::sin(cell[5] * kRadiansPerDegree);
  const double v2 = 1.0 - (ca * ca + cb * cb + cg * cg - 2.0 * ca * cb * cg);
  const double v = v2 >= 0.0 ? std::sqrt(v2) : 0.0;
  // Written as negated comparisons so that a NaN in the cell is bad too.
  if (!(a > 0.0) || !(b > 0.0) || !(c > 0.0) || !(v2 >= 0.0) || !(v >= kMinCellVolume)) {
    UTL_GEOM_IDENTITY_M(ortho);
    UTL_GEOM_IDENTITY_M(frac);
    return qx::Fail(kBadCell, "UTL_GEOM_CRYSTAL_MATRICES", 0);
  }
  const double o[9] = {a,   b * cg, c * cb,    0.0, b * sg, -c * (cb * cg - ca) / sg,
                       0.0, 0.0,    c * v / sg};
  const double f[9] = {1.0 / a,
                       -cg / (a * sg),
                       (ca * cg - cb) / (a * sg * v),
                       0.0,
                       1.0 / (b * sg),
                       (cb * cg - ca) / (b * sg * v),
                       0.0,
                       0.0,
                       sg / (c * v)};
  CopyMatrix(o, ortho);
  CopyMatrix(f, frac);
  return 1;
}

// ---- Angles -----------------------------------------------------------------

double UTL_GEOM_THETA(const double *a, const double *b, const double *c) {
  double ba[3], bc[3];
  qx::vec3::Diff(a, b, ba);
  qx::vec3::Diff(c, b, bc);
  const double la = qx::vec3::Length(ba), lc = qx::vec3::Length(bc);
  if (la < kMinBond || lc < kMinBond) return qx::Fail(kSmallDist, "UTL_GEOM_THETA", 0.0);
  return qx::vec3::AcosDegrees(Dot(ba, bc) / (la * lc));
}

double UTL_GEOM_TAU(const double *a, const double *b, const double *c, const double *d) {
  const double *atoms[4] = {a, b, c, d};
  double bonds[3][3];
  for (int i = 0; i < 3; ++i)
    if (UnitOf(atoms[i], atoms[i + 1], bonds[i]) <= kMinBond)
      return qx::Fail(kSmallDist, "UTL_GEOM_TAU", 0.0);
  if (InBand(Dot(bonds[0], bonds[1]), kColinearLow, kColinearHigh) ||
      InBand(Dot(bonds[1], bonds[2]), kColinearLow, kColinearHigh))
    return qx::Fail(kColinearFatal, "UTL_GEOM_TAU", 0.0);
  // Returned as atan2 gives it, (-180, 180]: unlike QX_3DGEOM_DIHEDRAL no 360
  // is added. Both conventions are relied upon.
  return TorsionOfUnitBonds(bonds[0], bonds[1], bonds[2]);
}

// ---- Simplex ----------------------------------------------------------------

void UTL_GEOM_HEDRON(int n, double *out) {
  if (n <= 0) return;
  const std::size_t cols = static_cast<std::size_t>(n);
  for (std::size_t i = 0; i < (cols + 1) * cols; ++i)
    out[i] = 0.0;
  for (std::size_t i = 1; i <= cols; ++i) {
    const double h = std::sqrt(0.5 / static_cast<double>(i * i + i));
    for (std::size_t row = 0; row < i; ++row)
      out[row * cols + i - 1] = -h;
    out[i * cols + i - 1] = static_cast<double>(i) * h;
  }
}

}  // extern "C"
