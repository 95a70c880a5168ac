/* utl_geom: coordinate frames and transforms.
 *
 * Small vector functions, 3 x 3 matrices (identity, products, transpose,
 * rotations about the axes and about an arbitrary axis, Gram-Schmidt),
 * alignment frames that bring given directions onto the coordinate axes, the
 * application of a matrix to points, crystallographic cell matrices, bond and
 * torsion angles with error reporting, and the regular simplex.
 *
 * Conventions:
 * - A 3-vector is three doubles x, y, z. A 3 x 3 matrix is nine doubles,
 *   row-major (element (i, j) at index 3i + j), acting on column vectors:
 *   p' = M p. A null translation stands for (0, 0, 0).
 * - UTL_GEOM_MAKE_ROTX/Y/Z take radians; UTL_GEOM_MFORM and
 *   UTL_GEOM_CRYSTAL_MATRICES take degrees; UTL_GEOM_THETA and UTL_GEOM_TAU
 *   return degrees. Degrees are converted with pi taken as 3.141592654 (factors
 *   0.017453292522222223 and 57.29577950560105), so results in degrees differ
 *   from a full-precision conversion in the ninth significant digit; callers
 *   compare against those digits.
 * - A squared length at or below 1e-12 is length 0; a length at or below 1e-6
 *   is a zero vector.
 * - Failures are recorded on the error stack with product "UTL" and facility
 *   "GEOM". The composite routines add their own trace line (their name,
 *   without a call-site number) under the error of the routine they called.
 * - No state is kept: every function works on caller storage and locals.
 *   Output arrays may be the same as input arrays unless stated otherwise.
 *
 * The eigen routines of the same family (UTL_GEOM_SYMM_EIGENSYS,
 * UTL_GEOM_PRIN_AXIS) are declared in qx_linalg.h.
 */
#ifndef UTL_GEOM_H
#define UTL_GEOM_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* ---- Vectors -------------------------------------------------------------- */

/* out = a x b. */
QX_API void UTL_GEOM_CROSS(const double *a, const double *b, double *out);
/* out = a + 0.5 (b - a). */
QX_API void UTL_GEOM_MIDPOINT(const double *a, const double *b, double *out);
/* Distance of a and b: the plain square root of the squared distance, no
 * zero threshold. */
QX_API double UTL_GEOM_VDIST(const double *a, const double *b);
/* Squared distance of a and b. */
QX_API double UTL_GEOM_VDIST_SQ(const double *a, const double *b);
/* Length of a: the plain square root of UTL_GEOM_VLEN_SQ. */
QX_API double UTL_GEOM_VLEN(const double *a);
/* Squared length of a. */
QX_API double UTL_GEOM_VLEN_SQ(const double *a);
/* out = a / |a|; returns |a| (0 when the square is at or below 1e-12). When the
 * length is 1e-6 or less: out = (0, 0, 0), records UTL/GEOM/FATAL/
 * ZERO_LENGTH_VECTOR under "UTL_GEOM_VNORM" and returns 0.0. */
QX_API double UTL_GEOM_VNORM(const double *a, double *out);
/* out = (to - from) / distance; returns the distance. When the distance is
 * 1e-6 or less: out = (0, 0, 0), records UTL/GEOM/FATAL/ZERO_LENGTH_VECTOR
 * under "UTL_GEOM_VUNIT" and returns 0.0. */
QX_API double UTL_GEOM_VUNIT(const double *from, const double *to, double *out);
/* 1 when the squared distance of a and b is at most tol (tol is a squared
 * distance), else 0. The running sum is tested after x, after y and after z,
 * so the answer can come before z is read. `unused` is ignored; it keeps the
 * historical argument list. */
QX_API int UTL_GEOM_CLOSE(const double *a, const double *b, double unused, double tol);
/* out = sum w_k p_k / sum w_k over n points (weights NULL: all 1.0); returns
 * out. For n < 2 out = (0, 0, 0): a single point is deliberately not its own
 * centroid, callers rely on that. Weights summing to 0 give NaN or infinity. */
QX_API double *UTL_GEOM_CENTROID(int n, const double *points, const double *weights, double *out);
/* Mirrors point (in place) in the plane a x + b y + c z = d, (a, b, c) a unit
 * normal: p -= 2 (n . p - d) n. Returns point. */
QX_API double *UTL_GEOM_REFLECT(double a, double b, double c, double d, double *point);

/* ---- 3 x 3 matrices ------------------------------------------------------- */

/* m = I; returns m. */
QX_API double *UTL_GEOM_IDENTITY_M(double *m);
/* 1 when every diagonal element of m is within tol of 1, every off-diagonal
 * element within tol of 0 and every component of the translation t (NULL:
 * (0, 0, 0)) within tol of 0; else 0. */
QX_API int UTL_GEOM_IS_IDENTITY(const double *m, const double *t, double tol);
/* c = a b (3 x 3); c may be a or b. */
QX_API void UTL_GEOM_MMULT(const double *a, const double *b, double *c);
/* c = a b (n x n, row-major); c must not alias a or b. Nothing for n <= 0. */
QX_API void UTL_GEOM_MMULT_NXN(int n, const double *a, const double *b, double *c);
/* Transposes m in place. */
QX_API void UTL_GEOM_TRANSPOSE(double *m);
/* m = [[1, 0, 0], [0, c, -s], [0, s, c]] for angle in radians. */
QX_API void UTL_GEOM_MAKE_ROTX(double angle, double *m);
/* m = [[c, 0, s], [0, 1, 0], [-s, 0, c]]. */
QX_API void UTL_GEOM_MAKE_ROTY(double angle, double *m);
/* m = [[c, -s, 0], [s, c, 0], [0, 0, 1]]. */
QX_API void UTL_GEOM_MAKE_ROTZ(double angle, double *m);
/* With u = unit(to - from): k = [[0, uz, -uy], [-uz, 0, ux], [uy, -ux, 0]]
 * (k(i, j) = sum_k e(i, j, k) u_k) and k2 = k k (= u u^T - I for a unit u).
 * from == to records ZERO_LENGTH_VECTOR under "UTL_GEOM_VUNIT" and gives
 * u = 0, so k and k2 are zero. */
QX_API void UTL_GEOM_MTENSOR(const double *from, const double *to, double *k, double *k2);
/* m = I + sin(angle) k + (1 - cos(angle)) k2 with k, k2 of UTL_GEOM_MTENSOR;
 * angle in degrees. Returns m. Applied with UTL_GEOM_ROTATE, m turns points by
 * the angle clockwise seen looking from `from` towards `to`, that is by -angle
 * under the right-hand rule: this sign is deliberate and callers depend on it.
 * from == to records ZERO_LENGTH_VECTOR under "UTL_GEOM_VUNIT" and m = I. */
QX_API double *UTL_GEOM_MFORM(const double *from, const double *to, double angle, double *m);
/* Gram-Schmidt on the rows of in: r0 = unit(row 0), r1 = unit(row 1 -
 * (row 1 . r0) r0), r2 = unit(row 2 - (row 2 . r0) r0 - (row 2 . r1) r1);
 * out has the rows r0, r1, r2 (out may be in). Returns 1. A zero row records
 * ZERO_LENGTH_VECTOR under "UTL_GEOM_VNORM", adds the trace
 * "UTL_GEOM_ORTHO_MAT" and returns 0; out then holds the rows finished so far
 * and zeros from the failing row on. */
QX_API int UTL_GEOM_ORTHO_MAT(const double *in, double *out);

/* ---- Applying matrices ---------------------------------------------------- */

/* point = centre + m (point - centre); a NULL centre is the origin. */
QX_API void UTL_GEOM_ROTATE(const double *centre, const double *m, double *point);
/* The same for n points (3n doubles) about centre (NULL: the origin). */
QX_API void UTL_GEOM_MROTATE(const double *m, const double *centre, int n, double *points);
/* out = t + m p (t NULL: no translation); out may be p. Returns t. */
QX_API const double *UTL_GEOM_TRANSFORM(const double *p, const double *m, const double *t,
                                        double *out);
/* Builds m with row 1 = unit(b - origin), row 2 = unit(a - origin), row 0 =
 * row 1 x row 2 (the rows are not orthogonalised), and replaces point by
 * m (point - origin). Returns 1. A distance of 1e-6 or less records
 * ZERO_LENGTH_VECTOR under "UTL_GEOM_VUNIT", adds the trace
 * "UTL_GEOM_REV_TRANSFORM" and returns 0 with point unchanged. */
QX_API int UTL_GEOM_REV_TRANSFORM(const double *origin, const double *a, const double *b,
                                  double *point, double *m);

/* ---- Alignment frames ----------------------------------------------------- */

/* The rotation m that takes the direction u (to1 - from1, or to1 itself when
 * from1 is NULL) onto +x and the direction w (to2 - from2, or to2) into the xy
 * plane with a positive y component: m has the rows u, n x u, n with n =
 * unit(u x w). Returns 1.
 * Failures (each returns 0):
 * - a zero direction: ZERO_LENGTH_VECTOR from UTL_GEOM_VUNIT/UTL_GEOM_VNORM and
 *   the trace "UTL_GEOM_ALIGN". The test is "an error is recorded", so an
 *   error already pending on entry also makes it fail (with the trace added to
 *   that error): clear the stack before calling.
 * - a direction shorter than 0.0001: UTL/GEOM/WARNING/SMALL_DIST.
 * - parallel directions (|u x w| < 0.001): n = (1, 0, 0) when |ux| < 0.001;
 *   else when uy and uz are both exactly 0, UTL/GEOM/WARNING/COLINEAR; else
 *   n = (0, -uz, uy) / sqrt(uy^2 + uz^2). */
QX_API int UTL_GEOM_ALIGN(const double *from1, const double *to1, const double *from2,
                          const double *to2, double *m);
/* As UTL_GEOM_ALIGN for the direction u = to - from (or to), with a second
 * direction chosen perpendicular to u. Returns 1; 0 with the trace
 * "UTL_GEOM_ALIGNX" when an error is recorded after taking u (a pending one
 * included) or when u is shorter than 0.0001. For a length between 1e-6 and
 * 0.0001 nothing else is recorded, so the error stack's own PROGRAM_ERROR
 * warning carries that trace line. */
QX_API int UTL_GEOM_ALIGNX(const double *from, const double *to, double *m);

/* ---- Crystal cells -------------------------------------------------------- */

/* From cell = (a, b, c, alpha, beta, gamma) (lengths, degrees): ortho takes
 * fractional to Cartesian coordinates (a along x, b in the xy plane) and frac
 * is its inverse. Returns 1. A length of 0 or less or a cell volume factor
 * V^2 = 1 - (ca^2 + cb^2 + cg^2 - 2 ca cb cg) below 0, or V below 0.001,
 * records UTL/GEOM/FATAL/BAD_CELL, sets both matrices to the identity and
 * returns 0. */
QX_API int UTL_GEOM_CRYSTAL_MATRICES(const double *cell, double *ortho, double *frac);

/* ---- Angles --------------------------------------------------------------- */

/* Bond angle a-b-c (b the vertex) in degrees, [0, 180]. An arm shorter than
 * 0.001 records UTL/GEOM/WARNING/SMALL_DIST and returns 0.0. */
QX_API double UTL_GEOM_THETA(const double *a, const double *b, const double *c);
/* Torsion a-b-c-d in degrees in (-180, 180] (-60 stays -60, unlike the 0..360
 * QX_3DGEOM_DIHEDRAL). Plane normals at cosine -0.99999999 or below give
 * 180.0, at 0.99999999 or above 0.0. Failures return 0.0:
 * - a bond of length 0.001 or less: UTL/GEOM/WARNING/SMALL_DIST (a bond of
 *   1e-6 or less first records ZERO_LENGTH_VECTOR from UTL_GEOM_VUNIT under
 *   it); the bonds are checked in order a-b, b-c, c-d and the first short one
 *   ends the call.
 * - a bond cosine in [-1.0001, -0.999999] or [0.999999, 1.0001]:
 *   UTL/GEOM/FATAL/COLINEAR. */
QX_API double UTL_GEOM_TAU(const double *a, const double *b, const double *c, const double *d);

/* ---- Simplex -------------------------------------------------------------- */

/* Writes the n + 1 vertices (rows of n doubles, (n + 1) * n doubles in all) of
 * a regular simplex of edge 1 centred on the origin: zero-filled, then for
 * i = 1 .. n with h = sqrt(0.5 / (i*i + i)) column i-1 gets -h in rows
 * 0 .. i-1 and i*h in row i. Nothing for n <= 0. */
QX_API void UTL_GEOM_HEDRON(int n, double *out);

QX_END_DECLS

#endif /* UTL_GEOM_H */
