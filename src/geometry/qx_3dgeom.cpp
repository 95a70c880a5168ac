// qx_3dgeom: elementary geometry on points, lines, planes and sphere sets,
// and the placement of points (internal coordinates, tetrahedral point,
// trilateration, sphere sampling).
//
// Lines and planes are six doubles (a point, then a unit direction or normal)
// and are read as given, never normalised again. Degenerate input is signalled
// by the result (-0.0001 for an angle, -1.0 for a dihedral, 1e100 for an empty
// volume, a count of 0 ...); only QX_3DGEOM_EXTENSION_PT records errors.
// Several results look wrong and are relied upon exactly as they are: the
// mirrored line-plane intersection, the centre of mass that reads only the
// first point, the trilateration that refuses an exactly zero x or y
// difference, and the 0..360 dihedral (UTL_GEOM_TAU keeps -180..180). Circles,
// arcs and caps live in qx_3dcap.cpp.
#include "qx_3dgeom.h"

#include <cmath>
#include <cstddef>

#include "common/error_record.h"
#include "geometry/geom_frame.h"
#include "geometry/vec3_rules.h"
#include "utl_geom.h"

namespace {

using qx::vec3::AcosDegrees;
using qx::vec3::Cross;
using qx::vec3::Diff;
using qx::vec3::Dot;
using qx::vec3::kPi;
using qx::vec3::kZeroLength;
using qx::vec3::Length;
using qx::vec3::Unit;

constexpr double kFailedAngle = -0.0001;
constexpr double kFailedDihedral = -1.0;
constexpr double kFar = 1e100;
constexpr double kStraightTolerance = 1e-5;
constexpr double kColinearLow = 0.99999;
constexpr double kColinearHigh = 1.00001;
constexpr double kCoplanarLimit = 0.2;
// Beyond this many degrees the angle is reduced with fmod: subtracting one
// turn at a time would take too long (or forever for infinity).
constexpr double kTurnLoopLimit = 3.6e6;
constexpr double kTwoPi = 2.0 * kPi;

constexpr const char *kExtensionRoutine = "QX_3DGEOM_EXTENSION_PT";
constexpr const char *kMsgColinear = "Points are colinear";
constexpr const char *kMsgCoincided12 = "Points 1 and 2 are coincided";
constexpr const char *kMsgCoincided23 = "Points 2 and 3 are coincided";
constexpr const char *kMsgCoincided13 = "Points 1 and 3 are coincided";
constexpr const char *kMsgCoplanar = "Points are coplanar";

// The angle of two unit vectors folded into [0, 90]. Shared by the line,
// plane and line-plane angles.
double FoldedAngle(const double *a, const double *b) {
  const double angle = AcosDegrees(Dot(a, b));
  return angle >= 90.0 ? 180.0 - angle : angle;
}

// Distance of p from a line: the rule of QX_3DGEOM_DIST_PT_LN, also used by
// the line distances and the line-volume scan.
double PointLineDistance(const double *p, const double *line) {
  double d[3];
  Diff(p, line, d);
  const double length = Length(d);
  if (length < kZeroLength) return 0.0;
  const double t = Dot(line + 3, d);
  if (std::fabs(t) < kZeroLength) return length;
  return std::sqrt(length * length - t * t);  // a negative radicand is not clamped
}

int SphereCount(const QX_3DGEOM_VOLUME *volume) {
  return (volume == nullptr || volume->spheres == nullptr) ? 0 : volume->n;
}

// The scan shared by the three volume distances: spheres in storage order,
// `centre_distance` minus the radius, 0.0 at the first negative one.
template <typename CentreDistance>
double ScanVolume(const QX_3DGEOM_VOLUME *volume, CentreDistance centre_distance) {
  double best = kFar;
  const int n = SphereCount(volume);
  for (int k = 0; k < n; ++k) {
    const double *sphere = volume->spheres + 4 * static_cast<std::size_t>(k);
    const double distance = centre_distance(sphere) - sphere[3];
    if (distance < 0.0) return 0.0;
    if (distance < best) best = distance;
  }
  return best;
}

bool IsStraightBond(double cosine) {
  const double c = std::fabs(cosine);
  return c >= kColinearLow && c <= kColinearHigh;
}

// Brings an angle in degrees into [0, 360] one turn at a time.
double ReduceAngle(double angle) {
  if (!(std::fabs(angle) <= kTurnLoopLimit)) angle = std::fmod(angle, 360.0);
  while (angle < 0.0)
    angle += 360.0;
  while (angle > 360.0)
    angle -= 360.0;
  return angle;
}

int ExtensionFailure(const char *message) {
  return qx::Fail(qx::ErrorRecord{"QX", "3D_GEOM", qx::kError, message}, kExtensionRoutine, 0);
}

// x = origin + d * dir, componentwise.
void Step(const double *origin, double d, const double *dir, double *x) {
  for (int i = 0; i < 3; ++i)
    x[i] = origin[i] + d * dir[i];
}

}  // namespace

extern "C" {

// ---- Angles -----------------------------------------------------------------

double QX_3DGEOM_ANGLE_2VEC(const double *a, const double *b) {
  return AcosDegrees(Dot(a, b));
}

double QX_3DGEOM_ANGLE_2LINES(const double *a, const double *b) {
  return FoldedAngle(a, b);
}

double QX_3DGEOM_ANGLE_2LN(const double *line1, const double *line2) {
  return FoldedAngle(line1 + 3, line2 + 3);
}

double QX_3DGEOM_ANGLE_2PL(const double *plane1, const double *plane2) {
  return FoldedAngle(plane1 + 3, plane2 + 3);
}

double QX_3DGEOM_ANGLE_LN_PL(const double *line, const double *plane) {
  return 90.0 - FoldedAngle(line + 3, plane + 3);
}

double QX_3DGEOM_ANGLE_3PT(const double *p, const double *a, const double *b) {
  double u[3], w[3];
  Diff(a, p, u);
  Diff(b, p, w);
  // -0.0001 is no true angle; callers test for that exact value.
  if (Unit(u, u) == 0.0 || Unit(w, w) == 0.0) return kFailedAngle;
  return AcosDegrees(Dot(u, w));
}

double QX_3DGEOM_DIHEDRAL(const double *p1, const double *p2, const double *p3, const double *p4) {
  const double *points[4] = {p1, p2, p3, p4};
  double bonds[3][3];
  for (int i = 0; i < 3; ++i) {
    Diff(points[i + 1], points[i], bonds[i]);
    if (Unit(bonds[i], bonds[i]) == 0.0) return kFailedDihedral;
  }
  if (IsStraightBond(Dot(bonds[0], bonds[1])) || IsStraightBond(Dot(bonds[1], bonds[2])))
    return kFailedDihedral;
  const double angle = qx::geom::TorsionOfUnitBonds(bonds[0], bonds[1], bonds[2]);
  // Deliberately 0..360 (-60 comes back as 300), unlike UTL_GEOM_TAU.
  return angle < 0.0 ? angle + 360.0 : angle;
}

// ---- Lines, planes, points --------------------------------------------------

int QX_3DGEOM_2POINT_LINE(const double *two_points, double *point_out, double *dir_out) {
  double d[3];
  Diff(two_points + 3, two_points, d);
  qx::vec3::Copy(two_points, point_out);
  return Unit(d, dir_out) != 0.0;
}

double *QX_3DGEOM_CENTROID(int n, const double *points, double *out) {
  double sum[3] = {0.0, 0.0, 0.0};
  for (int k = 0; k < n; ++k)
    for (int i = 0; i < 3; ++i)
      sum[i] += points[3 * static_cast<std::size_t>(k) + i];
  // For n < 1 this is 0.0 / n: NaN for 0, -0.0 for negative n, as always.
  for (int i = 0; i < 3; ++i)
    out[i] = sum[i] / n;
  return out;
}

double *QX_3DGEOM_CENTER_OF_MASS(int n, const double *points, const double *masses, double *out) {
  double sum[3] = {0.0, 0.0, 0.0};
  double total = 0.0;
  for (int k = 0; k < n; ++k) {
    // Every term deliberately reads the first point: the result is that point
    // (callers compute a true weighted centre themselves).
    for (int i = 0; i < 3; ++i)
      sum[i] += masses[k] * points[i];
    total += masses[k];
  }
  for (int i = 0; i < 3; ++i)
    out[i] = sum[i] / total;
  return out;
}

double QX_3DGEOM_DIST_2PT(const double *p, const double *q) {
  double d[3];
  Diff(p, q, d);
  return Length(d);
}

double QX_3DGEOM_DIST_PT_LN(const double *p, const double *line) {
  return PointLineDistance(p, line);
}

double QX_3DGEOM_DIST_PT_PL(const double *p, const double *plane) {
  double d[3];
  Diff(p, plane, d);
  return std::fabs(Dot(d, plane + 3));
}

double QX_3DGEOM_DIST_2LN(const double *line1, const double *line2) {
  double n[3], d[3];
  Cross(line1 + 3, line2 + 3, n);
  if (Unit(n, n) == 0.0) return PointLineDistance(line2, line1);
  Diff(line2, line1, d);
  return std::fabs(Dot(n, d));
}

int QX_3DGEOM_NTRSCT_LN_PL(const double *line, const double *plane, double *out) {
  const double c = Dot(line + 3, plane + 3);
  if (c <= kZeroLength) return 0;  // right or obtuse angles count as "no intersection"
  double d[3];
  // (L - P), not (P - L): the point is the mirror image of the intersection
  // through L. Deliberate; callers depend on it.
  Diff(line, plane, d);
  Step(line, Dot(plane + 3, d) / c, line + 3, out);
  return 1;
}

int QX_3DGEOM_NTRSCT_2PL(const double *plane1, const double *plane2, double *line_out) {
  double *u = line_out + 3;
  Cross(plane1 + 3, plane2 + 3, u);
  if (Unit(u, u) == 0.0) return 0;
  double ray[6];
  qx::vec3::Copy(plane2, ray);
  Cross(u, plane2 + 3, ray + 3);
  if (Unit(ray + 3, ray + 3) == 0.0) return 0;
  return QX_3DGEOM_NTRSCT_LN_PL(ray, plane1, line_out);
}

const double *QX_3DGEOM_PROJ_PT_PL(const double *p, const double *plane, double *out) {
  double d[3];
  Diff(p, plane, d);
  const double t = Dot(d, plane + 3);
  for (int i = 0; i < 3; ++i)
    out[i] = p[i] - t * plane[3 + i];
  return plane;
}

int QX_3DGEOM_NORMAL_PTS(const double *line, double d, const double *p, double *out) {
  double v[3], foot[3];
  Diff(p, line, v);
  Step(line, Dot(v, line + 3), line + 3, foot);
  Step(foot, d, line + 3, out);
  Step(foot, -d, line + 3, out + 3);
  return 1;
}

// ---- Sphere volumes ---------------------------------------------------------

double QX_3DGEOM_DIST_PT_VO(const double *p, const QX_3DGEOM_VOLUME *volume) {
  return ScanVolume(volume, [p](const double *centre) { return QX_3DGEOM_DIST_2PT(centre, p); });
}

double QX_3DGEOM_DIST_LN_VO(const double *line, const QX_3DGEOM_VOLUME *volume) {
  return ScanVolume(volume,
                    [line](const double *centre) { return PointLineDistance(centre, line); });
}

double QX_3DGEOM_DIST_PL_VO(const double *plane, const QX_3DGEOM_VOLUME *volume) {
  return ScanVolume(volume,
                    [plane](const double *centre) { return QX_3DGEOM_DIST_PT_PL(centre, plane); });
}

int QX_3DGEOM_INCLUDED(const double *p, const QX_3DGEOM_VOLUME *volume) {
  const int n = SphereCount(volume);
  for (int k = 0; k < n; ++k) {
    const double *sphere = volume->spheres + 4 * static_cast<std::size_t>(k);
    if (sphere[3] > QX_3DGEOM_DIST_2PT(sphere, p)) return 1;  // strict: the surface is outside
  }
  return 0;
}

int QX_3DGEOM_EXCLUDED(const double *p, const QX_3DGEOM_VOLUME *volume) {
  return !QX_3DGEOM_INCLUDED(p, volume);
}

// ---- Placing points ---------------------------------------------------------

int QX_3DGEOM_EXTENSION_PT(const double *three_points, double d, double angle, double torsion,
                           double *out) {
  const double *p1 = three_points, *p2 = three_points + 3, *p3 = three_points + 6;
  angle = ReduceAngle(angle);
  const bool reversed = std::fabs(angle - 180.0) < kStraightTolerance;
  if (reversed || angle < kStraightTolerance || 360.0 - angle < kStraightTolerance) {
    double u[3];
    Diff(p2, p1, u);
    Unit(u, u);  // no colinearity test on this path, and a zero u places x at p1
    Step(p1, reversed ? -d : d, u, out);
    return 1;
  }
  if (QX_3DVEC_COLINEAR(p1, p2, p3)) return ExtensionFailure(kMsgColinear);
  double u[3], v[3], n[3], m[3];
  Diff(p1, p2, u);
  if (Unit(u, u) == 0.0) return ExtensionFailure(kMsgCoincided12);
  Diff(p3, p2, v);
  Cross(u, v, n);
  if (Unit(n, n) == 0.0) return ExtensionFailure(kMsgCoincided23);
  Cross(n, u, m);
  if (Unit(m, m) == 0.0) return ExtensionFailure(kMsgCoincided13);
  const double a = (180.0 - angle) * qx::vec3::kRadiansPerDegree;
  const double t = torsion * qx::vec3::kRadiansPerDegree;
  const double ca = std::cos(a), sa = std::sin(a), ct = std::cos(t), st = std::sin(t);
  for (int i = 0; i < 3; ++i)
    out[i] = p1[i] + d * (ca * u[i] + sa * (ct * m[i] + st * n[i]));
  return 1;
}

const char *QX_3DGEOM_TETRAHEDRAL_PT(const double *four_points, double d, double *out) {
  const double *p0 = four_points, *p1 = four_points + 3;
  double e[3], f[3], n[3], h0[3];
  Diff(four_points + 6, p1, e);
  Diff(four_points + 9, p1, f);
  Cross(e, f, n);
  if (Unit(n, n) == 0.0) return kMsgColinear;
  Diff(p0, p1, h0);
  const double h = Dot(n, h0);
  if (std::fabs(h) < kCoplanarLimit) return kMsgCoplanar;
  Step(p0, h >= 0.0 ? d : -d, n, out);
  return nullptr;
}

int QX_3DGEOM_RELATIVE(const double *three_points, double d1, double d2, double d3, int *count,
                       double *out) {
  const double *p1 = three_points, *p2 = three_points + 3, *p3 = three_points + 6;
  *count = 0;
  if (QX_3DVEC_COLINEAR(p1, p2, p3)) return 1;
  double e[3], f[3], u[3], w[3], r[9];
  Diff(p2, p1, e);
  Diff(p3, p1, f);
  // An exactly zero x of p2 - p1 or y of p3 - p1, in the caller's coordinates,
  // gives no solution even when one exists. Deliberate: callers rely on it.
  if (e[0] == 0.0 || f[1] == 0.0) return 1;
  if (Unit(e, u) < qx::geom::kAlignMinLength || Unit(f, w) < qx::geom::kAlignMinLength) return 1;
  if (qx::geom::FrameFromUnitDirections(u, w, r) != qx::geom::FrameResult::kOk) return 1;
  UTL_GEOM_ROTATE(nullptr, r, e);
  UTL_GEOM_ROTATE(nullptr, r, f);
  UTL_GEOM_TRANSPOSE(r);
  const double ex = e[0], fx = f[0], fy = f[1];
  const double x = (d1 * d1 - d2 * d2 + ex * ex) / (2.0 * ex);
  const double y = (d1 * d1 - d3 * d3 + fx * fx + fy * fy - 2.0 * x * fx) / (2.0 * fy);
  const double z2 = d1 * d1 - x * x - y * y;
  if (z2 < 0.0 || !(z2 == z2)) return 1;
  const double z = std::sqrt(z2);
  *count = z2 > 0.0 ? 2 : 1;
  for (int k = 0; k < *count; ++k) {
    double *solution = out + 3 * k;
    solution[0] = x;
    solution[1] = y;
    solution[2] = k == 0 ? z : -z;
    UTL_GEOM_ROTATE(nullptr, r, solution);
    for (int i = 0; i < 3; ++i)
      solution[i] += p1[i];
  }
  return 1;
}

int QX_3DGEOM_GEN_SPHERE(int n, const double *centre, double radius, double *out) {
  if (n <= 0) return 0;
  static const double kOrigin[3] = {0.0, 0.0, 0.0};
  const double *c = centre != nullptr ? centre : kOrigin;
  const int k = static_cast<int>(std::sqrt(n * kPi));
  const int rings = k / 2 != 0 ? k / 2 : 1;
  int written = 0;
  for (int i = 0; i <= rings; ++i) {
    const double theta = i * kPi / rings;
    const double s = std::sin(theta);
    const double z = c[2] + radius * std::cos(theta);
    const int m = static_cast<int>(s * k) > 1 ? static_cast<int>(s * k) : 1;
    for (int j = 0; j < m; ++j) {
      if (written == n) return written;
      const double phi = j * kTwoPi / m;
      double *point = out + 3 * static_cast<std::size_t>(written++);
      point[0] = c[0] + radius * s * std::cos(phi);
      point[1] = c[1] + radius * s * std::sin(phi);
      point[2] = z;
    }
  }
  return written;
}

}  // extern "C"
