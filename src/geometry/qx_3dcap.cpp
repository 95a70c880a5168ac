// qx_3dcap: circles, arcs and spherical caps of the 3D geometry family.
//
// A cap is the part of the sphere centred at p0 through p1 whose points lie
// within a half-opening angle1 in azimuth about a unit axis a, and within
// angle2 in polar angle of the base direction b = unit(p1 - p0). It is bounded
// by two "latitude" arcs about a (the polar limits) and two meridian arcs on
// great circles (the azimuth limits); a full azimuth has no meridian arcs.
// The record keeps the sphere, the frame and the two latitude arcs; the
// meridian arcs are rebuilt on demand from the latitude arcs' end points.
//
// Record layout (geometry[49]):
//   0-2   sphere centre (p0)          3-5   unit axis a
//   6-8   base direction b            9     sphere radius |p1 - p0|
//   10    distance of p0 and p1       11    sine of the azimuth half-opening
//   12-13 cosine and sine of the middle polar angle of the cap
//   14    arc limit of the meridian arcs (cosine of half the polar span)
//   15-31 arc 0, 32-48 arc 1: centre 3, unit axis 3, reference 3, end 1 3,
//         end 2 3, radius 1, arc limit 1 (exactly -1.0: the full circle).
// The latitude arcs' reference is the azimuth origin e0 (perpendicular to a,
// towards b) and their limit the cosine of the azimuth half-opening. A
// single-arc cap (single_arc = 1) fills arc 0 only.
//
// The nearest point of a cap is the radial projection of p when that lies in
// the cap, else a point of the boundary; the farthest is the point opposite p
// when that lies in the cap, else a point of the boundary. Distances to an arc
// are exact: the circle point nearest (farthest) when it lies on the arc, else
// the nearer (farther) end.
#include <cmath>
#include <cstddef>

#include "common/error_record.h"
#include "geometry/vec3_rules.h"
#include "qx_3dgeom.h"
#include "utl_mem.h"

namespace {

using qx::vec3::Copy;
using qx::vec3::Cross;
using qx::vec3::Diff;
using qx::vec3::DistanceSquared;
using qx::vec3::Dot;
using qx::vec3::kPi;
using qx::vec3::Length;
using qx::vec3::Unit;

constexpr const char *kTag = "qx_3dgeom";
constexpr double kFullCircle = -1.0;
constexpr double kGridStart = 1e30;
// b this close to +/-a leaves no azimuth direction: use a perpendicular of a.
constexpr double kAlongAxis = 0.99999;

// Slots of the record (see the layout above).
constexpr int kCentre = 0, kAxis = 3, kBase = 6, kRadius = 9, kDistance = 10;
constexpr int kAzimuthSine = 11, kMidPolarCos = 12, kMidPolarSin = 13, kMeridianLimit = 14;
constexpr int kArc0 = 15, kArc1 = 32;
// Slots within an arc.
constexpr int kArcCentre = 0, kArcAxis = 3, kArcRef = 6, kArcEnd1 = 9, kArcEnd2 = 12;
constexpr int kArcRadius = 15, kArcLimit = 16, kArcSize = 17;
static_assert(kArc1 + kArcSize == 49, "the cap record holds 49 doubles");
static_assert(sizeof(QX_3DGEOM_CAP_RECORD) == 50 * 8, "the cap record is fifty 8-byte words");

// An arc read from a cap record or built on the stack.
struct Arc {
  const double *centre, *axis, *ref, *end1, *end2;
  double radius, limit;
};

Arc StoredArc(const double *g, int base) {
  const double *s = g + base;
  return Arc{s + kArcCentre, s + kArcAxis,  s + kArcRef, s + kArcEnd1,
             s + kArcEnd2,   s[kArcRadius], s[kArcLimit]};
}

// The terms of the circle distances: with d = p - centre, h = axis . d and
// w = axis x d (rho = |w|, the distance of p from the circle's axis line).
struct CircleTerms {
  double h, rho, w[3];
};

CircleTerms TermsOf(const double *p, const double *centre, const double *axis) {
  CircleTerms t;
  double d[3];
  Diff(p, centre, d);
  t.h = Dot(axis, d);
  Cross(axis, d, t.w);
  t.rho = Length(t.w);
  return t;
}

double NearCircle(const CircleTerms &t, double r) {
  return std::sqrt((t.rho - r) * (t.rho - r) + t.h * t.h);
}

double FarCircleSquared(const CircleTerms &t, double r) {
  return (t.rho + r) * (t.rho + r) + t.h * t.h;
}

// Distance from p to an arc: the circle distance when the circle point
// nearest p lies on the arc (p on the axis line: every point is nearest),
// else the distance to the nearer end.
double NearArc(const double *p, const Arc &arc) {
  const CircleTerms t = TermsOf(p, arc.centre, arc.axis);
  bool on_arc = arc.limit == kFullCircle || t.rho == 0.0;
  if (!on_arc) {
    double toward[3];  // axis x w points away from p in the circle's plane
    Cross(arc.axis, t.w, toward);
    on_arc = -Dot(toward, arc.ref) / t.rho >= arc.limit;
  }
  if (on_arc) return NearCircle(t, arc.radius);
  const double e1 = DistanceSquared(p, arc.end1), e2 = DistanceSquared(p, arc.end2);
  return std::sqrt(e1 < e2 ? e1 : e2);
}

double FarArcSquared(const double *p, const Arc &arc, int *flag) {
  return QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(p, arc.centre, arc.axis, arc.radius, arc.ref, arc.end1,
                                           arc.end2, arc.limit, flag);
}

// The meridian arc at azimuth sign `side` (+1 or -1) of a cap with two
// latitude arcs, rebuilt into caller storage (axis, ref: 3 doubles each).
Arc MeridianArc(const double *g, int side, double *axis, double *ref) {
  const Arc low = StoredArc(g, kArc0), high = StoredArc(g, kArc1);
  const double *a = g + kAxis;
  double e1[3], u[3];
  Cross(a, low.ref, e1);
  for (int i = 0; i < 3; ++i)
    u[i] = low.limit * low.ref[i] + side * g[kAzimuthSine] * e1[i];
  Cross(a, u, axis);
  for (int i = 0; i < 3; ++i)
    ref[i] = g[kMidPolarCos] * a[i] + g[kMidPolarSin] * u[i];
  return Arc{g + kCentre,
             axis,
             ref,
             side > 0 ? low.end1 : low.end2,
             side > 0 ? high.end1 : high.end2,
             g[kRadius],
             g[kMeridianLimit]};
}

bool HasMeridians(const double *g) {
  return StoredArc(g, kArc0).limit != kFullCircle;
}

// Whether the ray from the sphere centre through p meets the cap.
bool RayMeetsCap(const double *g, const double *d, double length) {
  const double *a = g + kAxis;
  const double along = Dot(d, a);
  const double r = g[kRadius];
  const Arc arc0 = StoredArc(g, kArc0);
  const double centre_along = Dot(g + kCentre, a);
  const double low = Dot(arc0.centre, a) - centre_along;
  const double high = Dot(StoredArc(g, kArc1).centre, a) - centre_along;
  // cos(polar of p) within [cos(high polar), cos(low polar)], scaled by r |d|.
  if (along * r > low * length || along * r < high * length) return false;
  double q[3];
  for (int i = 0; i < 3; ++i)
    q[i] = d[i] - along * a[i];
  const double q_length = Length(q);
  if (q_length == 0.0 || !HasMeridians(g)) return true;
  return Dot(q, arc0.ref) / q_length >= arc0.limit;
}

// Writes one arc into the record at `base`.
void StoreArc(double *g, int base, const double *centre, const double *axis, const double *ref,
              double radius, double limit, const double *end1, const double *end2) {
  double *s = g + base;
  Copy(centre, s + kArcCentre);
  Copy(axis, s + kArcAxis);
  Copy(ref, s + kArcRef);
  Copy(end1, s + kArcEnd1);
  Copy(end2, s + kArcEnd2);
  s[kArcRadius] = radius;
  s[kArcLimit] = limit;
}

// The frame of a cap under construction.
struct CapFrame {
  double a[3], e0[3], e1[3];
  double radius, cos_azimuth, sin_azimuth;
};

// The arc about the axis at polar angle theta, over the cap's azimuth range.
void StoreLatitudeArc(double *g, int base, const CapFrame &f, double theta) {
  double centre[3], end1[3], end2[3];
  const double r = f.radius * std::sin(theta);
  for (int i = 0; i < 3; ++i) {
    centre[i] = g[kCentre + i] + f.radius * std::cos(theta) * f.a[i];
    end1[i] = centre[i] + r * (f.cos_azimuth * f.e0[i] + f.sin_azimuth * f.e1[i]);
    end2[i] = centre[i] + r * (f.cos_azimuth * f.e0[i] - f.sin_azimuth * f.e1[i]);
  }
  StoreArc(g, base, centre, f.a, f.e0, r, f.cos_azimuth, end1, end2);
}

// The great-circle arc through the base direction, polar angles theta0 +/- span.
void StoreMeridianArc(double *g, const CapFrame &f, double theta0, double span) {
  double ref[3], end1[3], end2[3];
  const double *o = g + kCentre;
  for (int i = 0; i < 3; ++i) {
    ref[i] = std::cos(theta0) * f.a[i] + std::sin(theta0) * f.e0[i];
    end1[i] =
        o[i] + f.radius * (std::cos(theta0 - span) * f.a[i] + std::sin(theta0 - span) * f.e0[i]);
    end2[i] =
        o[i] + f.radius * (std::cos(theta0 + span) * f.a[i] + std::sin(theta0 + span) * f.e0[i]);
  }
  const double limit = span >= kPi ? kFullCircle : std::cos(span);
  StoreArc(g, kArc0, o, f.e1, ref, f.radius, limit, end1, end2);
}

// Fills the sphere and frame slots of the record (centre, axis, base
// direction, radius, distance) and the axis, radius and azimuth directions e0,
// e1 of f. Returns the cosine of the base direction's polar angle.
double StoreFrame(double *g, const double *p0, const double *p1, const double *axis, CapFrame &f) {
  double d[3];
  if (Unit(axis, f.a) == 0.0) f.a[2] = 1.0;  // a zero axis is taken as +z
  Diff(p1, p0, d);
  Copy(p0, g + kCentre);
  Copy(f.a, g + kAxis);
  f.radius = Unit(d, g + kBase);
  g[kRadius] = f.radius;
  g[kDistance] = f.radius;
  const double *b = g + kBase;
  const double along = Dot(b, f.a);
  for (int i = 0; i < 3; ++i)
    f.e0[i] = b[i] - along * f.a[i];
  // b along the axis (or p1 = p0) leaves no azimuth origin: take the
  // perpendicular of the axis with the 0.9 switch of the vector family.
  if (std::fabs(along) >= kAlongAxis || Unit(f.e0, f.e0) == 0.0) {
    QX_3DVEC_PERPENDICULAR(f.a, f.e0);
    Unit(f.e0, f.e0);
  }
  Cross(f.a, f.e0, f.e1);
  return along;
}

void BuildCap(QX_3DGEOM_CAP_RECORD *cap, const double *p0, const double *p1, const double *axis,
              double angle1, double angle2) {
  double *g = cap->geometry;
  for (double &x : cap->geometry)
    x = 0.0;
  CapFrame f;
  const double along = StoreFrame(g, p0, p1, axis, f);
  const double azimuth = std::fabs(angle1) * qx::vec3::kRadiansPerDegree;
  const double span = std::fabs(angle2) * qx::vec3::kRadiansPerDegree;
  const bool full = std::fabs(angle1) >= 180.0;
  f.cos_azimuth = full ? kFullCircle : std::cos(azimuth);
  f.sin_azimuth = full ? 0.0 : std::sin(azimuth);
  g[kAzimuthSine] = f.sin_azimuth;
  const double theta0 = std::acos(qx::vec3::ClampCosine(along));
  cap->single_arc = angle1 == 0.0 || angle2 == 0.0;
  if (angle2 == 0.0) {
    StoreLatitudeArc(g, kArc0, f, theta0);
    return;
  }
  if (angle1 == 0.0) {
    StoreMeridianArc(g, f, theta0, span);
    return;
  }
  const double low = theta0 - span > 0.0 ? theta0 - span : 0.0;
  const double high = theta0 + span < kPi ? theta0 + span : kPi;
  StoreLatitudeArc(g, kArc0, f, low);
  StoreLatitudeArc(g, kArc1, f, high);
  g[kMidPolarCos] = std::cos(0.5 * (low + high));
  g[kMidPolarSin] = std::sin(0.5 * (low + high));
  g[kMeridianLimit] = std::cos(0.5 * (high - low));
}

}  // namespace

extern "C" {

// ---- Circles and arcs -------------------------------------------------------

double QX_3DGEOM_DIST_PT_CIRCLE(const double *p, const double *centre, const double *axis,
                                double r) {
  return NearCircle(TermsOf(p, centre, axis), r);
}

void QX_3DGEOM_DIST_GRID_CIRCLE(const double *grid, int n, const double *centre, const double *axis,
                                double r, double *min_out, double *max_out) {
  double low = kGridStart, high = 0.0;
  for (int k = 0; k < n; ++k) {
    const CircleTerms t = TermsOf(grid + 3 * static_cast<std::size_t>(k), centre, axis);
    const double near = NearCircle(t, r), far = std::sqrt(FarCircleSquared(t, r));
    if (near < low) low = near;
    if (far > high) high = far;
  }
  if (min_out != nullptr) *min_out = low;
  if (max_out != nullptr) *max_out = high;
}

double QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(const double *p, const double *centre, const double *axis,
                                         double r, const double *ref, const double *end1,
                                         const double *end2, double limit, int *flag_out) {
  const CircleTerms t = TermsOf(p, centre, axis);
  double s = 0.0;
  if (limit != kFullCircle) {
    double away[3];
    Cross(axis, t.w, away);
    s = Dot(away, ref) / t.rho;
  }
  const int on_arc = s >= limit;
  if (flag_out != nullptr) *flag_out = on_arc;
  if (on_arc) return FarCircleSquared(t, r);
  const double e1 = DistanceSquared(p, end1), e2 = DistanceSquared(p, end2);
  return e1 > e2 ? e1 : e2;
}

// ---- Caps -------------------------------------------------------------------

int QX_3DGEOM_CAP(const double *p0, const double *p1, const double *axis, double angle1,
                  double angle2, QX_3DGEOM_CAP_RECORD **cap) {
  auto *record = static_cast<QX_3DGEOM_CAP_RECORD *>(
      UTL_DMEM_ALLOC(sizeof(QX_3DGEOM_CAP_RECORD), kTag, __LINE__));
  *cap = record;
  if (record == nullptr) {
    qx::TraceCallSite("QX_3DGEOM_CAP", 0);
    return 0;
  }
  BuildCap(record, p0, p1, axis, angle1, angle2);
  return 1;
}

double QX_3DGEOM_DIST_PT_CAP(const double *p, const QX_3DGEOM_CAP_RECORD *cap) {
  const double *g = cap->geometry;
  if (cap->single_arc) return NearArc(p, StoredArc(g, kArc0));
  double d[3];
  Diff(p, g + kCentre, d);
  const double length = Length(d);
  if (length == 0.0 || g[kRadius] == 0.0 || RayMeetsCap(g, d, length))
    return std::fabs(length - g[kRadius]);
  double best = NearArc(p, StoredArc(g, kArc0));
  const double other = NearArc(p, StoredArc(g, kArc1));
  if (other < best) best = other;
  if (!HasMeridians(g)) return best;
  for (int side = -1; side <= 1; side += 2) {
    double axis[3], ref[3];
    const double near = NearArc(p, MeridianArc(g, side, axis, ref));
    if (near < best) best = near;
  }
  return best;
}

double QX_3DGEOM_MAX_DIST_PT_CAP(const double *p, const QX_3DGEOM_CAP_RECORD *cap) {
  const double *g = cap->geometry;
  int flag = 0;
  if (cap->single_arc) return std::sqrt(FarArcSquared(p, StoredArc(g, kArc0), &flag));
  // The point of the sphere opposite p is the farthest one; when it lies in
  // the cap that is the answer. The historical routine inferred this from
  // "all four farthest arc points fall on their arcs"; on these arcs that
  // inference misjudges points beside the meridian arcs, so the opposite
  // point is tested directly.
  double opposite[3];
  Diff(g + kCentre, p, opposite);
  const double length = Length(opposite);
  if (length == 0.0 || g[kRadius] == 0.0 || RayMeetsCap(g, opposite, length))
    return length + g[kRadius];
  double best = FarArcSquared(p, StoredArc(g, kArc0), &flag);
  const double other = FarArcSquared(p, StoredArc(g, kArc1), &flag);
  if (other > best) best = other;
  if (HasMeridians(g)) {
    for (int side = -1; side <= 1; side += 2) {
      double axis[3], ref[3];
      const double far = FarArcSquared(p, MeridianArc(g, side, axis, ref), &flag);
      if (far > best) best = far;
    }
  }
  return std::sqrt(best);
}

int QX_3DGEOM_DIST_GRID_CAP(const double *grid, int n, const QX_3DGEOM_CAP_RECORD *cap,
                            double *min_out, double *max_out) {
  double low = kGridStart, high = 0.0;
  for (int k = 0; k < n; ++k) {
    const double *p = grid + 3 * static_cast<std::size_t>(k);
    const double near = QX_3DGEOM_DIST_PT_CAP(p, cap);
    if (near < low) low = near;
    if (max_out != nullptr) {
      const double far = QX_3DGEOM_MAX_DIST_PT_CAP(p, cap);
      if (far > high) high = far;
    }
  }
  if (min_out != nullptr) *min_out = low;
  if (max_out != nullptr) *max_out = high;
  return n;
}

}  // extern "C"
