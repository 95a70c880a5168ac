/* qx_linalg: eigen-analysis, least-squares fitting and linear solving.
 *
 * Matrices are dense row-major arrays of doubles: element (i, j) of an n x n
 * matrix is at index i*n + j; 3 x 3 matrices act on column vectors (p' = M p).
 * Points are three consecutive doubles; line and plane records are six
 * doubles, a point followed by a unit direction or unit normal.
 *
 * The fitting functions work from the scatter matrix of the points,
 * S(i, j) = sum p_i p_j - (sum p_i) m_j with m the mean, accumulated in one
 * pass and not divided by n. Every function works on caller arrays and its
 * own locals only; the error stack is process-wide, so use the family from
 * one thread at a time.
 */
#ifndef QX_LINALG_H
#define QX_LINALG_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* ---- Eigen-analysis ------------------------------------------------------ */

/* Eigenvalues and eigenvectors of the symmetric n x n matrix a by cyclic
 * Jacobi rotations with threshold sweeps. Writes the n eigenvalues in
 * ascending order to values and the unit eigenvectors as the columns of the
 * n x n matrix vectors (column j belongs to value j; of equal eigenvalues the
 * one found later is placed first); *rotations receives the number of Jacobi
 * rotations made (rotations may be null). Only the diagonal and the upper
 * triangle of a are read as the matrix; the upper triangle is used as work
 * space and restored from the lower triangle on success, so a symmetric a is
 * returned unchanged.
 * Returns 1 on success (at once, with values = diagonal and vectors = I, for
 * n < 2), or 0 after 50 sweeps without convergence (a NaN element, for
 * instance; infinite elements may also end in NaN results with 1): UTL / GEOM /
 * FATAL / BAD_MATRIX is recorded, and a, values and vectors hold the partial
 * state of the last sweep. */
QX_API int UTL_GEOM_SYMM_EIGENSYS(double *a, int n, double *values, double *vectors,
                                  int *rotations);

/* Principal axes of n weighted points (3n doubles; weights null means all
 * 1.0). centre receives sum w p / sum w; values the eigenvalues, ascending, of
 * M(i, j) = sum w p_i (p_j - centre_j) (not divided by the weight sum); row j
 * of the 3 x 3 axes the unit axis of value j.
 * Returns 1, or 0 when n < 3 (UTL / GEOM / FATAL / INSUFF_POINTS recorded) or
 * when the eigensolver fails (its BAD_MATRIX entry plus the trace
 * "UTL_GEOM_PRIN_AXIS").
 * Guard: weights that sum to 0 would divide by zero; they are treated as too
 * few points (INSUFF_POINTS, outputs untouched). */
QX_API int UTL_GEOM_PRIN_AXIS(int n, const double *points, const double *weights, double *centre,
                              double *values, double *axes);

/* ---- Fitting -------------------------------------------------------------- */

/* The least-squares line through n points: line receives the mean point and
 * the unit eigenvector of the largest eigenvalue of the scatter matrix;
 * *residual the root of the sum of the squared point-to-line distances (not
 * divided by n; residual may be null). Distances follow QX_3DGEOM_DIST_PT_LN:
 * 0 within 1e-6 of the mean, the full distance when the projection on the
 * direction is below 1e-6.
 * Returns 1, or 0: without an error for n < 2; with QX / 3D_GEOM / ERROR /
 * "Least Squares Line is not Unique" when the two largest eigenvalues are
 * within 0.0001 (points on a circle); with "Unable to resolve Matrix" when
 * the eigensolver fails (any error already recorded is cleared first, so only
 * this message remains).
 * Guard: a squared distance that rounding makes slightly negative (a point
 * exactly on the line) counts as 0 instead of making the residual NaN. */
QX_API int QX_3DGEOM_BEST_LINE(int n, const double *points, double *line, double *residual);

/* The least-squares plane through n points: plane receives the mean point and
 * the unit normal; *residual the root of the sum of squared distances from
 * the plane (residual may be null). Three points give the normal
 * unit((P2 - P1) x (P3 - P1)) and residual 0; more points the eigenvector of
 * the smallest eigenvalue of the scatter matrix.
 * Returns 1, or 0: without an error for n < 3 or three points whose cross
 * product is shorter than 1e-5 (colinear); with QX / 3D_GEOM / ERROR /
 * "Least Squares Plane is not unique" (lower-case "unique", unlike the line's
 * message) when the two smallest eigenvalues are within 0.0001 (points on a
 * line); with "Unable to resolve Matrix" when the eigensolver fails (earlier
 * errors cleared first). */
QX_API int QX_3DGEOM_BEST_PLANE(int n, const double *points, double *plane, double *residual);

/* Replaces each of n points (3n doubles, in place) by its coordinates in the
 * frame of the set's best plane: x along the axis of the largest eigenvalue of
 * the scatter matrix, y along the middle one, both measured from the mean m.
 * The third coordinate is deliberate and must not be "fixed": each point
 * becomes (e2 . d, e1 . d, -mz) with d = (x - mx, y - my, -mz); the point's own
 * z is not read, and every output z is -mz. For sets with mean z 0 this is the
 * plain projection onto the two main axes with z = 0.
 * One point becomes (0, 0, 0); two points at distance L become (-L/2, 0, 0)
 * and (L/2, 0, 0); n = 0 does nothing. Returns 1, or 0 with QX / 3D_GEOM /
 * ERROR / "Invalid Number of Points" for n < 0, or "Unable to resolve Matrix"
 * when the eigensolver fails (earlier errors cleared first; the points are then
 * unchanged). */
QX_API int QX_3DGEOM_PROJ_PTS_TO_2D(int n, double *points);

/* Weighted least-squares superposition: finds the centres cA, cB and the
 * rotation R (3 x 3, row-major) that best give A_k ~ cA + R (B_k - cB), from
 * the eigenvectors a_j of C^T C, C = sum w (A - cA)(B - cB)^T, and the unit
 * vectors b_j = C a_j / |C a_j| (R = sum b_j a_j^T). weights may be null (all
 * 1.0); rms may be null, else *rms = sqrt(sum w |A - cA - R (B - cB)|^2 / W)
 * with W the weight sum.
 * R is always a proper rotation (determinant +1), built as follows:
 *   - the a_j come in ascending order of eigenvalue (a_3 the strongest);
 *     b_j with |C a_j|^2 below 1e-10 counts as missing. The limit is
 *     absolute (C is in squared length units, so singular values below 1e-5
 *     count as zero): sets smaller than about 1e-3 in extent behave as a
 *     point;
 *   - three or two vectors present: b_3 is kept, b_2 is made orthogonal to it,
 *     and b_1 = det(a) (b_2 x b_3). For well-posed input with det C > 0 this is
 *     the classic Kabsch rotation; with det C < 0 (the best orthogonal fit
 *     would be a reflection) it is the best proper rotation, the fit along the
 *     weakest direction being given up; for planar sets it completes the frame
 *     by the plane normals;
 *   - one vector (colinear sets): the rotation of least angle that turns a_3
 *     onto b_3 (a half turn about a_2 when they are opposite);
 *   - none (a single point, all points coincident, or a weight sum of 0): the
 *     identity.
 * A weight sum of 0 (including n < 1) gives centres (0, 0, 0), the identity
 * and rms 0. The eigensolver's failure (NaN input) is not reported by this
 * function: its BAD_MATRIX entry stays on the stack and R is the identity. */
QX_API void QX_3DGEOM_LSFIT(int n, const double *a_points, const double *b_points,
                            const double *weights, double *b_centre, double *a_centre,
                            double *rotation, double *rms);

/* ---- Linear systems -------------------------------------------------------- */

/* Solves the symmetric positive-definite system M x = b by Gaussian elimination
 * without pivoting. Only the diagonal and the upper triangle of M are read;
 * M is overwritten by the unit lower factor L (strictly below the diagonal) and
 * the upper factor U (on and above it); b is replaced by the solution.
 * Returns 1 (at once for n <= 0), or 0 when a pivot is below 1e-10 in
 * magnitude: QX_UTL / LINALG / ERROR / "Singular Matrix" recorded from
 * "SIMUL_EQS_SPD" with the trace "QX_LINALG_SIMUL_EQS_SPD". Without row
 * exchanges an invertible but indefinite matrix such as [[0, 1], [1, 0]] fails
 * this way. Guard: a NaN pivot also fails with "Singular Matrix" rather than
 * spreading NaN through b. */
QX_API int QX_LINALG_SIMUL_EQS_SPD(double *matrix, int n, double *b);

QX_END_DECLS

#endif /* QX_LINALG_H */
