/* utl_vector: a small typed vector record, and its conversions to and from
 * bit sets.
 *
 * A vector holds length elements of one type: 1 = 32-bit signed integers,
 * 2 = 64-bit floating point, 3 = 32-bit values (4-byte elements of no
 * arithmetic meaning). Any other type is stored as 0 with no data. Vectors
 * belong to the caller, who releases them with UtlVectorFree. Misuse (lengths
 * or types that differ, arithmetic on a type without it) is reported by one
 * line on standard error, not through the error stack; allocation failures are
 * recorded on the error stack by the allocator. Vector pointers may not be
 * NULL except where stated.
 */
#ifndef UTL_VECTOR_H
#define UTL_VECTOR_H

#include "qxbase_export.h"
#include "utl_set.h"

QX_BEGIN_DECLS

typedef struct UtlVectorRecord {
  void *data; /* length elements, NULL for type 0 */
  int length; /* number of elements */
  int type;   /* 1 int, 2 double, 3 32-bit values, 0 none */
} UtlVector;

enum { UTL_VECTOR_INT = 1, UTL_VECTOR_DOUBLE = 2, UTL_VECTOR_WORD = 3 };

/* A new vector of length zeroed elements of 4 (types 1, 3) or 8 (type 2)
 * bytes; another type gives a record of type 0 with no data. NULL when an
 * allocation fails. Guard: a negative length is taken as 0. */
QX_API UtlVector *UtlVectorAlloc(int length, int type);
/* Zero-fills the data. */
QX_API void UtlVectorClear(UtlVector *vector);
/* A new vector with a copy of the data; NULL when an allocation fails. */
QX_API UtlVector *UtlVectorCopy(const UtlVector *vector);
/* Releases data and record; NULL is accepted. */
QX_API void UtlVectorFree(UtlVector *vector);

/* result = a + b element-wise, for types 1 and 2. All three must agree in
 * length ("Error: two vectors differ in length\n") and type ("Error: two
 * vectors differ in type\n"); another type writes "Error: Not cumulative
 * data type\n" and "Error: Do not know how to perform this operation with
 * provided data type\n". Returns 1, or 0 after such a line. Integer sums wrap
 * around in 32 bits. */
QX_API int UtlVectorAdd(const UtlVector *a, const UtlVector *b, UtlVector *result);

/* Sum of the elements as a double, for types 1 and 2; another type writes
 * the two "Not cumulative" / "Do not know how" lines and returns 0.0. */
QX_API double UtlVectorSum(const UtlVector *vector);

/* Applies op ('+', '-', '*' or '/') with x to every element: type 2 in double
 * arithmetic; type 1 adds or subtracts x converted to an integer, and
 * multiplies or divides in double, converting back to an integer. Decision:
 * conversions to an integer truncate toward zero and saturate at the int
 * limits, NaN gives 0; integer sums wrap around in 32 bits. Any other op
 * changes nothing and returns 0; another type writes "Error: Do not know how
 * to perform this operation with provided data type\n" and returns 0.
 * Returns 1 when applied. */
QX_API int UtlVectorOperation(UtlVector *vector, char op, double x);

/* A new type-1 vector of the members of set in ascending order (its length
 * is the cardinality); NULL when an allocation fails. */
QX_API UtlVector *UtlVectorFromSet(const UTL_SET *set);

/* A new set of n elements holding every element of vector (types 1 and 3 as
 * 32-bit integers, type 2 truncated toward zero). An element outside
 * 0 .. n-1 (a type-2 NaN included) records UTL_SET_INSERT's OUT_RANGE error
 * and is skipped; the set is still returned. A creation failure adds the
 * trace "UtlSetFromVector" and returns NULL. */
QX_API UTL_SET *UtlSetFromVector(const UtlVector *vector, int n);

QX_END_DECLS

#endif /* UTL_VECTOR_H */
