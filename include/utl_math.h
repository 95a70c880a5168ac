/* utl_math: trigonometry in degrees, integer rounding and clamping, a
 * three-point parabola, floating-point equality tests, and a process-wide
 * pseudo-random generator.
 *
 * The degree functions convert with 57.29577951 degrees per radian (a
 * 10-digit value, not 180/pi), and the forward functions divide the angle by
 * it rather than multiplying by its inverse. Results therefore differ from a
 * full-precision conversion in the last digits; callers rely on that.
 *
 * The generator is the 48-bit linear congruential generator of the POSIX
 * drand48 family, X' = (0x5DEECE66D X + 0xB) mod 2^48. Given the same seed,
 * UTL_MATH_RAND, UTL_MATH_IRAND and UTL_MATH_MRAND return exactly the
 * sequences of drand48, lrand48 and mrand48. Before any seeding the state is
 * 0. The state and the Gaussian cache are unguarded process-wide data: use
 * them from one thread at a time.
 */
#ifndef UTL_MATH_H
#define UTL_MATH_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* ---- Random numbers ----------------------------------------------------- */

/* Seeds the generator as srand48 does: X = (seed << 16) | 0x330E. Empties the
 * Gaussian cache, so the next UTL_MATH_GRAND starts a fresh pair. */
QX_API void UTL_MATH_SRAND(unsigned int seed);
/* Advances the state once; returns X / 2^48, in [0, 1). */
QX_API double UTL_MATH_RAND(void);
/* Advances the state once; returns X >> 17, in [0, 2^31). */
QX_API int UTL_MATH_IRAND(void);
/* Advances the state once; returns the top 32 bits of X as a signed value. */
QX_API int UTL_MATH_MRAND(void);
/* A standard normal deviate by Marsaglia's polar method. Each pair of deviates
 * costs two or more uniform draws (two per attempt); the second deviate of a
 * pair is cached and returned by the next call without advancing the state. */
QX_API double UTL_MATH_GRAND(void);

/* ---- Degree trigonometry ------------------------------------------------ */

/* sin, cos, tan of degrees / 57.29577951. */
QX_API double UTL_MATH_SIND(double degrees);
QX_API double UTL_MATH_COSD(double degrees);
QX_API double UTL_MATH_TAND(double degrees);
/* asin, acos, atan times 57.29577951, in degrees. Arguments outside [-1, 1]
 * give NaN from UTL_MATH_ASIND and UTL_MATH_ACOSD, as the C library does. */
QX_API double UTL_MATH_ASIND(double x);
QX_API double UTL_MATH_ACOSD(double x);
QX_API double UTL_MATH_ATAND(double x);
/* atan2(q, p) in degrees: p is the abscissa (x) and q the ordinate (y), the
 * reverse of the usual atan2 argument order. UTL_MATH_ATAN2D(0, 1) is 90. */
QX_API double UTL_MATH_ATAN2D(double p, double q);

/* ---- Integers ----------------------------------------------------------- */

/* floor(x + 0.5) converted to int: 2.5 gives 3 and -2.5 gives -2.
 * Guard: NaN and values outside the int range give INT_MIN (the x86
 * "integer indefinite" the historical conversion produced) instead of
 * undefined behaviour. */
QX_API int UTL_MATH_ROUND(double x);
/* v = deflt when value equals sentinel, else value; returns low when v < low,
 * else the smaller of v and high. With low > high: low for v below low, high
 * otherwise. */
QX_API int UTL_MATH_INTEGER_RANGE(int value, int sentinel, int deflt, int low, int high);

/* ---- Parabola and equality ---------------------------------------------- */

/* The parabola y = a + b x + c x^2 through three points, by Cramer's rule on
 * the Vandermonde system. When the determinant is below 0.0001 in magnitude
 * (two equal abscissae, or points too close together) a, b and c are set to 0.
 * The three output pointers must not be null. */
QX_API void UTL_MATH_PARABOLA(double x1, double y1, double x2, double y2, double x3, double y3,
                              double *a, double *b, double *c);
/* Relative equality: with p exactly 0, 1 only when q is exactly 0; else with
 * q exactly 0, 0; else 1 when |p / q - 1| <= 1e-6. */
QX_API int UTL_MATH_CLOSE_TO_EQUAL(double p, double q);
/* 1 when |p - q| <= tol, else 0 (also 0 when either is NaN). */
QX_API int UTL_MATH_FPT_EQUAL(double p, double q, double tol);

QX_END_DECLS

#endif /* UTL_MATH_H */
