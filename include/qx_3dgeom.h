/* qx_3dgeom: 3D vectors and elementary geometry.
 *
 * Two families of plain functions over points and vectors in three
 * dimensions: QX_3DVEC_* (vector arithmetic) and QX_3DGEOM_* (angles,
 * dihedrals, distances, inclusion tests, intersections, projections, circles,
 * arcs, spherical caps, placement of a point from internal coordinates,
 * trilateration, sphere sampling). The least-squares members of QX_3DGEOM_
 * (best line, best plane, projection to 2D, superposition) are declared in
 * qx_linalg.h.
 *
 * Records (all doubles, caller arrays):
 * - point / vector: x, y, z.
 * - line: a point, then a unit direction (6 doubles); plane: a point, then the
 *   unit normal (6 doubles). Readers do not normalise the direction again.
 * - two-point record: 6 doubles; three-point record: 9; four-point record: 12.
 * - circle: a centre, a unit axis normal to its plane and a radius; an arc adds
 *   a unit reference vector in the plane pointing at the middle of the arc, its
 *   two end points, and the arc limit: the cosine of half the opening angle,
 *   exactly -1.0 meaning the full circle.
 * - grid: a count and that many points stored consecutively.
 *
 * Numeric rules: a squared length at or below 1e-12 is length 0 (written
 * |v| below); a length at or below 1e-6 makes a vector zero, its
 * normalisation (unit(v)) yields (0, 0, 0) and the operation needing it
 * fails. Angles are in degrees, converted with pi taken as 3.141592654 (factors
 * 57.29577950560105 and 0.017453292522222223): the right angle between (1, 0, 0)
 * and (0, 1, 0) is 89.99999998824843, not 90, and callers compare against
 * those digits. Only QX_3DGEOM_GEN_SPHERE uses the full-precision pi. Cosines
 * fed to acos are clamped to [-1, 1].
 *
 * Failures are signalled by results: 0 from int functions, (0, 0, 0) from
 * failed normalisations, -0.0001 from QX_3DGEOM_ANGLE_3PT, -1.0 from
 * QX_3DGEOM_DIHEDRAL, 1e100 from the volume distances of an empty volume, a
 * message from QX_3DGEOM_TETRAHEDRAL_PT, a count of 0 from QX_3DGEOM_RELATIVE.
 * Only QX_3DGEOM_EXTENSION_PT records errors (QX / 3D_GEOM / ERROR with the
 * message as the code). Only QX_3DGEOM_CAP allocates.
 *
 * Not reentrant as a family: use from one thread at a time.
 */
#ifndef QX_3DGEOM_H
#define QX_3DGEOM_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* A set of spheres whose union is a volume: n entries of four doubles each
 * (centre x, y, z, radius), stored consecutively. The caller owns the entries.
 * n <= 0 (or a NULL volume) is the empty volume. */
typedef struct {
  int n;
  const double *spheres;
} QX_3DGEOM_VOLUME;

/* A spherical cap built by QX_3DGEOM_CAP: a flag set when the cap is a single
 * arc, then 49 doubles holding the sphere, the base direction and the bounding
 * arcs (fifty 8-byte words in all). The layout of `geometry` is private to the
 * library; pass the record to the cap distance functions only. */
typedef struct {
  int single_arc;
  double geometry[49];
} QX_3DGEOM_CAP_RECORD;

/* ---- Vectors: no state kept; out may be an input ---------------------------- */

/* out = a x b. */
QX_API void QX_3DVEC_CROSS(const double *a, const double *b, double *out);
/* a . b */
QX_API double QX_3DVEC_DOT(const double *a, const double *b);
/* out = a + b. */
QX_API void QX_3DVEC_SUM(const double *a, const double *b, double *out);
/* out = a - b. */
QX_API void QX_3DVEC_DIFF(const double *a, const double *b, double *out);
/* out = s a. */
QX_API void QX_3DVEC_MULT(const double *a, double s, double *out);
/* |a|: 0 when the square is at or below 1e-12 (|(1e-7, 0, 0)| is 0). */
QX_API double QX_3DVEC_LEN(const double *a);
/* out = a x b; returns |out|. */
QX_API double QX_3DVEC_CROSS_LEN(const double *a, const double *b, double *out);
/* out = unit(a); returns |a|, or 0.0 with out = (0, 0, 0) for a zero vector. */
QX_API double QX_3DVEC_NORM(const double *a, double *out);
/* out = unit(q - p); 1, or 0 with out = (0, 0, 0) when p and q are within 1e-6. */
QX_API int QX_3DVEC_2POINT_NORM(const double *p, const double *q, double *out);
/* out = unit(a x b); 1, or 0 with out = (0, 0, 0) for parallel or zero vectors. */
QX_API int QX_3DVEC_CROSS_NORM(const double *a, const double *b, double *out);
/* 1 when p0, p1, p2 are colinear, else 0. With d1 = p0 - p1 and d2 = p0 - p2,
 * the ratio t = d1 / d2 is taken from the first component of d2 (x, y, z
 * order) whose magnitude exceeds 1e-6 (none: p0 and p2 coincide, answer 1);
 * colinear when every component of d2 t - d1 is within 1e-6. The tolerance is
 * absolute, not relative to the lengths. */
QX_API int QX_3DVEC_COLINEAR(const double *p0, const double *p1, const double *p2);
/* out = r x v with r = (1, 0, 0) when -0.9 <= vx <= 0.9, else (0, 1, 0); out
 * is perpendicular to v but not normalised. */
QX_API void QX_3DVEC_PERPENDICULAR(const double *v, double *out);

/* ---- Angles (degrees) ------------------------------------------------------- */

/* Angle of unit vectors a and b, [0, 180]. */
QX_API double QX_3DGEOM_ANGLE_2VEC(const double *a, const double *b);
/* As QX_3DGEOM_ANGLE_2VEC folded into [0, 90]: 90 or more becomes 180 - angle. */
QX_API double QX_3DGEOM_ANGLE_2LINES(const double *a, const double *b);
/* Folded angle of the directions of two line records, [0, 90]. */
QX_API double QX_3DGEOM_ANGLE_2LN(const double *line1, const double *line2);
/* Folded angle of the normals of two plane records, [0, 90]. */
QX_API double QX_3DGEOM_ANGLE_2PL(const double *plane1, const double *plane2);
/* 90 - the folded angle of the line direction and the plane normal. */
QX_API double QX_3DGEOM_ANGLE_LN_PL(const double *line, const double *plane);
/* Angle a-p-b at vertex p, [0, 180]; -0.0001 when either arm is shorter than
 * 1e-6 (a value no true angle takes, kept for callers that test it). */
QX_API double QX_3DGEOM_ANGLE_3PT(const double *p, const double *a, const double *b);
/* Torsion p1-p2-p3-p4 in [0, 360): a torsion of -60 is returned as 300 (unlike
 * UTL_GEOM_TAU's -180..180). Plane normals at cosine -0.99999999 or below give
 * 180.0, at 0.99999999 or above 0.0. -1.0 for degenerate input: a bond of
 * 1e-6 or less, or a cosine of consecutive bonds of magnitude in
 * [0.99999, 1.00001] (three colinear points). */
QX_API double QX_3DGEOM_DIHEDRAL(const double *p1, const double *p2, const double *p3,
                                 const double *p4);

/* ---- Lines, planes, points -------------------------------------------------- */

/* From a two-point record: point_out = first point, dir_out = unit(second -
 * first). 1, or 0 with dir_out = (0, 0, 0) when the points are within 1e-6. */
QX_API int QX_3DGEOM_2POINT_LINE(const double *two_points, double *point_out, double *dir_out);
/* out = mean of n points; returns out. For n < 1 every component is 0.0 / n
 * (NaN for n = 0, -0.0 for negative n), as callers have always received. */
QX_API double *QX_3DGEOM_CENTROID(int n, const double *points, double *out);
/* out = (sum m_i P0) / (sum m_i): every term deliberately uses the first point
 * P0, so the result is P0 itself whenever the total mass is not zero (0/0,
 * NaN, for n < 1). Callers needing a true weighted centre compute it
 * themselves. Returns out. */
QX_API double *QX_3DGEOM_CENTER_OF_MASS(int n, const double *points, const double *masses,
                                        double *out);
/* |p - q| (0 when the squared distance is at or below 1e-12). */
QX_API double QX_3DGEOM_DIST_2PT(const double *p, const double *q);
/* Distance of p from a line: 0 when p is within 1e-6 of the line point; D when
 * the projection t on the direction is below 1e-6 in magnitude; else
 * sqrt(D*D - t*t), without clamping a slightly negative radicand. */
QX_API double QX_3DGEOM_DIST_PT_LN(const double *p, const double *line);
/* |(p - plane point) . normal|. */
QX_API double QX_3DGEOM_DIST_PT_PL(const double *p, const double *plane);
/* Distance of two lines: |n . (point2 - point1)| with n = unit(dir1 x dir2);
 * for parallel lines the distance of line 2's point from line 1. */
QX_API double QX_3DGEOM_DIST_2LN(const double *line1, const double *line2);
/* The intersection of a line and a plane into out; 1, or 0 when direction .
 * normal <= 1e-6 (a direction at a right or obtuse angle to the normal counts
 * as not meeting the plane). With c = direction . normal the point is
 * L + ((N . (L - P)) / c) D: the mirror image of the geometric intersection
 * through L (the plane z = 0 and the line through (0, 0, 1) along +z give
 * (0, 0, 2)). That sign is deliberate and must be kept. */
QX_API int QX_3DGEOM_NTRSCT_LN_PL(const double *line, const double *plane, double *out);
/* The intersection line of two planes into line_out (6 doubles). Its direction
 * u = unit(N1 x N2) is stored in line_out[3..5] even when a later step fails
 * ((0, 0, 0) for parallel planes, result 0). Its point would come from the
 * line through plane 2's point along w = unit(u x N2) met with plane 1 by the
 * QX_3DGEOM_NTRSCT_LN_PL step (same sign, same 1e-6 test), writing
 * line_out[0..2]. For unit normals w . N1 = (N1 . N2)^2 - 1 is never positive,
 * so that step always refuses and the result is 0 with only the direction
 * written: the function is kept exactly so, callers use the direction. */
QX_API int QX_3DGEOM_NTRSCT_2PL(const double *plane1, const double *plane2, double *line_out);
/* out = p - ((p - point) . normal) normal; returns plane. */
QX_API const double *QX_3DGEOM_PROJ_PT_PL(const double *p, const double *plane, double *out);
/* With F the foot of p on the line: out = F + d dir, then F - d dir (6
 * doubles). Returns 1. */
QX_API int QX_3DGEOM_NORMAL_PTS(const double *line, double d, const double *p, double *out);

/* ---- Sphere volumes ---------------------------------------------------------
 * The spheres are visited in storage order; a distance is that of the centre
 * minus the radius, and the scan returns 0.0 as soon as one is negative. An
 * empty volume gives 1e100. */

QX_API double QX_3DGEOM_DIST_PT_VO(const double *p, const QX_3DGEOM_VOLUME *volume);
QX_API double QX_3DGEOM_DIST_LN_VO(const double *line, const QX_3DGEOM_VOLUME *volume);
QX_API double QX_3DGEOM_DIST_PL_VO(const double *plane, const QX_3DGEOM_VOLUME *volume);
/* 1 when p lies strictly inside some sphere (radius > distance: a point on a
 * surface is not inside), else 0; 0 for an empty volume. */
QX_API int QX_3DGEOM_INCLUDED(const double *p, const QX_3DGEOM_VOLUME *volume);
/* The exact complement of QX_3DGEOM_INCLUDED (1 for an empty volume). */
QX_API int QX_3DGEOM_EXCLUDED(const double *p, const QX_3DGEOM_VOLUME *volume);

/* ---- Circles and arcs ------------------------------------------------------- */

/* Distance of p from the circle (centre, unit axis, radius r):
 * sqrt((rho - r)^2 + h^2) with d = centre - p, h = axis . d, rho = |axis x d|. */
QX_API double QX_3DGEOM_DIST_PT_CIRCLE(const double *p, const double *centre, const double *axis,
                                       double r);
/* Over n grid points: *min_out = the smallest circle distance (starting at
 * 1e30), *max_out = the largest farthest-point distance sqrt((rho + r)^2 + h^2)
 * (starting at 0). Either pointer may be NULL. */
QX_API void QX_3DGEOM_DIST_GRID_CIRCLE(const double *grid, int n, const double *centre,
                                       const double *axis, double r, double *min_out,
                                       double *max_out);
/* Squared distance from p to the farthest point of an arc. With d = p -
 * centre, h = axis . d, w = axis x d, rho = |w|: s = ((axis x w) . ref) / rho,
 * or 0 for a full circle (limit -1.0). When s >= limit the farthest circle
 * point is on the arc: *flag_out = 1 and the result is (rho + r)^2 + h^2; else
 * *flag_out = 0 and the result is the larger squared distance to the two end
 * points. flag_out may be NULL. */
QX_API double QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC(const double *p, const double *centre,
                                                const double *axis, double r, const double *ref,
                                                const double *end1, const double *end2,
                                                double limit, int *flag_out);

/* ---- Spherical caps ---------------------------------------------------------
 * A cap is a piece of the sphere centred at p0 through p1, around the base
 * direction b = unit(p1 - p0). With the unit axis a (the axis argument
 * normalised) and theta0 the angle between a and b, the cap holds the sphere
 * points whose azimuth about a lies within angle1 of b's and whose polar angle
 * from a lies within angle2 of theta0 (clamped to 0..180). angle1 and angle2
 * are half-openings in degrees (negative values count as their magnitude);
 * 180.0 is a full opening. When b is within 0.99999 of +/-a the azimuth is
 * measured from the perpendicular of a chosen with the 0.9 switch of
 * QX_3DVEC_PERPENDICULAR. The cap is bounded by two arcs about a (the polar
 * limits) and, unless the azimuth is full, two meridian arcs (the azimuth
 * limits). When either angle is exactly 0.0 the cap is one arc (single_arc
 * set): the arc about a through p1 of half-opening angle1 when angle2 is 0,
 * else the meridian arc through p1 of half-opening angle2. */

/* Allocates a cap record through UTL_DMEM_ALLOC (tag "qx_3dgeom") into *cap
 * and fills it; the caller frees it with UTL_DMEM_FREE. Returns 1. Guard: the
 * historical library did not check the allocation; here a refused allocation
 * leaves NO_MEMORY on the error stack with the trace "QX_3DGEOM_CAP (0)", sets
 * *cap to NULL and returns 0. A zero axis is taken as (0, 0, 1); p1 = p0
 * gives a cap of radius 0, every distance to it being |p - p0|. */
QX_API int QX_3DGEOM_CAP(const double *p0, const double *p1, const double *axis, double angle1,
                         double angle2, QX_3DGEOM_CAP_RECORD **cap);
/* Distance from p to the cap: |(|p - p0|) - radius| when the ray from p0
 * through p meets the cap (p0 itself included), else the smaller of the
 * distances to the bounding arcs, each the circle distance when the nearest
 * circle point lies within the arc and the distance to the nearer end point
 * otherwise. */
QX_API double QX_3DGEOM_DIST_PT_CAP(const double *p, const QX_3DGEOM_CAP_RECORD *cap);
/* Distance from p to the farthest point of the cap: |p - p0| + radius when
 * the point of the sphere opposite p lies in the cap (p at p0 included), else
 * the largest of the farthest-point-of-arc evaluations
 * (QX_3DGEOM_MAX_DIST_SQUARED_PT_ARC) over the two arcs about a and the two
 * meridian arcs. Departure: the historical routine decided the first case by
 * whether all four farthest arc points fell on their arcs; with this cap
 * construction that test misjudges points beside the meridian arcs, so the
 * opposite point is tested directly and the result is the exact farthest
 * distance. A single-arc cap gives the farthest distance of its arc. */
QX_API double QX_3DGEOM_MAX_DIST_PT_CAP(const double *p, const QX_3DGEOM_CAP_RECORD *cap);
/* Over n grid points: *min_out = the smallest cap distance (starting at 1e30)
 * and, when max_out is not NULL, *max_out = the largest farthest distance
 * (starting at 0). Returns n (the historical routine returned its first
 * argument; in this port that is the count). */
QX_API int QX_3DGEOM_DIST_GRID_CAP(const double *grid, int n, const QX_3DGEOM_CAP_RECORD *cap,
                                   double *min_out, double *max_out);

/* ---- Placing points --------------------------------------------------------- */

/* Places x at distance d from p1 with angle x-p1-p2 = angle and torsion
 * x-p1-p2-p3 = torsion (degrees), from a three-point record (p1, p2, p3).
 * The angle is first brought into [0, 360] (-90 acts as 270). When it is
 * within 1e-5 of 0, 180 or 360 the point is straight: p1 - d u at 180 and
 * p1 + d u otherwise, u = unit(p2 - p1), with no colinearity test. Returns 1.
 * Failures record QX / 3D_GEOM / ERROR with one of these codes under
 * "QX_3DGEOM_EXTENSION_PT" and return 0 (out unchanged): "Points are
 * colinear", "Points 1 and 2 are coincided", "Points 2 and 3 are coincided",
 * "Points 1 and 3 are coincided".
 * Guard: an angle beyond +/-3.6e6 degrees (or infinite) is reduced with fmod
 * instead of the historical one-turn-at-a-time loop, which would not end. */
QX_API int QX_3DGEOM_EXTENSION_PT(const double *three_points, double d, double angle,
                                  double torsion, double *out);
/* From a four-point record (p0 the centre, p1, p2, p3): out = p0 + s d n with
 * n = unit((p2 - p1) x (p3 - p1)) and s the sign of h = n . (p0 - p1) (+1 for
 * h >= 0), continuing away from the plane of the three neighbours. Returns
 * NULL on success, else a static message and out unchanged: "Points are
 * colinear" (n is zero) or "Points are coplanar" (|h| < 0.2). Nothing is
 * recorded. */
QX_API const char *QX_3DGEOM_TETRAHEDRAL_PT(const double *four_points, double d, double *out);
/* Trilateration: the points at distances d1, d2, d3 from the three points of
 * the record. Always returns 1; *count is 2 (two mirror solutions in out[0..2]
 * and out[3..5]), 1 (one solution in out[0..2]) or 0. The count is 0 for
 * colinear points and, deliberately, whenever p2 - p1 has an x component of
 * exactly 0.0 or p3 - p1 a y component of exactly 0.0 in the input
 * coordinates, even when a solution exists. The frame is the alignment frame of
 * UTL_GEOM_ALIGN; a side shorter than 0.0001 also gives 0. Nothing is recorded,
 * and a pending error does not disturb it. */
QX_API int QX_3DGEOM_RELATIVE(const double *three_points, double d1, double d2, double d3,
                              int *count, double *out);
/* Writes up to n points (3n doubles) spread over the sphere of the given
 * centre (NULL: the origin) and radius, ring by ring from the north pole
 * (centre + (0, 0, r)); returns the number written: n, or fewer when the rings
 * run out first. With k = trunc(sqrt(n pi)) and rings = k / 2 (1 if 0), ring
 * i = 0 .. rings has polar angle i pi / rings and max(trunc(sin * k), 1)
 * points. n = 1 writes the north pole only; n <= 0 writes nothing and returns
 * 0. */
QX_API int QX_3DGEOM_GEN_SPHERE(int n, const double *centre, double radius, double *out);

QX_END_DECLS

#endif /* QX_3DGEOM_H */
