/* utl_set: fixed-size bit sets of small non-negative integers.
 *
 * A set of n elements (n >= 1; elements 0 .. n-1) is one record: the size
 * word n followed by W = (n-1)/32 + 1 32-bit words; element e is bit e % 32
 * (bit 0 the least significant) of word e / 32. Bits of the last word at and
 * above n are always zero: every routine keeps them so and the counting
 * routines rely on it. Sets built by the create, copy, algebra and reading
 * routines belong to the caller, who releases them with UTL_SET_DESTROY.
 *
 * Failures are recorded on the error stack (product "UTL", facility "SET")
 * and the routine returns NULL or 0. A set pointer may not be NULL unless the
 * routine says so. Fingerprint similarity (UTL_SET_TANIMOTO, UTL_SET_COSINE)
 * and counting use the CPU's population-count instructions when it has them
 * (chosen at run time); results are the same on every CPU.
 */
#ifndef UTL_SET_H
#define UTL_SET_H

#include <stdio.h>

#include "qxbase_export.h"

QX_BEGIN_DECLS

typedef struct UTL_SET_STRUCT {
  int size;             /* number of elements n */
  unsigned int words[]; /* W = (n-1)/32 + 1 words */
} UTL_SET;

struct UtlVectorRecord; /* typed vector, see utl_vector.h */

/* Bytes of caller memory UTL_SET_CREATE_STATIC needs for n elements: one
 * pointer-sized slot followed by the record (size word and W words). */
#define UTL_SET_STATIC_BUFFER_SIZE(n) (sizeof(void *) + 4u * ((unsigned int)(((n)-1) / 32) + 2u))

/* ---- Creation and storage ----------------------------------------------- */

/* A new empty set of n elements: one zeroed allocation of
 * 4 * ((n-1)/32) + 8 bytes. n < 1 (or beyond the int range where a size is
 * computed, e.g. by UTL_SET_EXTEND) records FATAL BAD_SET_SIZE under
 * "UTL_SET_CREATE"; an allocation failure adds the trace "UTL_SET_CREATE".
 * Either returns NULL. */
QX_API UTL_SET *UTL_SET_CREATE(int n);

/* Builds a set of n elements inside caller memory of
 * UTL_SET_STATIC_BUFFER_SIZE(n) bytes (pointer-aligned): the first slot
 * receives the address of the set record that follows it; use that address as
 * the set and never pass it to UTL_SET_DESTROY. With source, whose size must
 * be n, its words are copied (unused bits of the last word cleared); without,
 * the words are zeroed. Returns 1; a size mismatch records FATAL DIFF_SIZE
 * under "UTL_SET_CREATE_STATIC", n < 1 records BAD_SET_SIZE, a NULL buffer
 * does nothing; each returns 0. */
QX_API int UTL_SET_CREATE_STATIC(void *buffer, int n, const UTL_SET *source);

/* Releases a set made by this family (NULL is accepted). Returns 1; when the
 * allocator refuses the release, adds the trace "UTL_SET_DESTROY" and
 * returns 0. */
QX_API int UTL_SET_DESTROY(UTL_SET *set);

/* The record's length in 32-bit words: W + 1. */
QX_API int UTL_SET_STORAGE_SIZE(const UTL_SET *set);
/* (n-1)/8 + 8, with C's truncating division: an upper bound in bytes of a
 * record of n elements (not rounded to a word). */
QX_API int UTL_SET_SIZEOF(int n);

/* A new copy of set. Creation failures add the trace "UTL_SET_COPY"
 * (UTL_SET_GET: "UTL_SET_GET") and return NULL. */
QX_API UTL_SET *UTL_SET_COPY(const UTL_SET *set);
QX_API UTL_SET *UTL_SET_GET(const UTL_SET *set);

/* Copies the words of source into destination. Returns 1; different sizes
 * record FATAL DIFF_SIZE under "UTL_SET_COPY_INPLACE" and return 0. */
QX_API int UTL_SET_COPY_INPLACE(UTL_SET *destination, const UTL_SET *source);

/* Copies the whole record (size word and words, UTL_SET_STORAGE_SIZE words)
 * into caller memory. Returns 1. */
QX_API int UTL_SET_PUT(const UTL_SET *set, void *buffer);

/* A new set of n + k elements holding the members of set, which is kept.
 * k < 0 records WARNING ILLEGAL_VALUE under "UTL_SET_EXTEND"; creation
 * failures add the trace "UTL_SET_EXTEND"; each returns NULL. */
QX_API UTL_SET *UTL_SET_EXTEND(const UTL_SET *set, int k);

/* ---- Elements ------------------------------------------------------------ */

/* Add / remove element e. Returns 1; e outside 0 .. n-1 records FATAL
 * OUT_RANGE under "UTL_SET_INSERT" / "UTL_SET_DELETE" and returns 0. */
QX_API int UTL_SET_INSERT(UTL_SET *set, int e);
QX_API int UTL_SET_DELETE(UTL_SET *set, int e);

/* 1 when e is a member; 0 when not or when e is out of range (no error). */
QX_API int UTL_SET_MEMBER(const UTL_SET *set, int e);

/* Remove every element / make every element 0 .. n-1 a member. Return 1. */
QX_API int UTL_SET_CLEAR(UTL_SET *set);
QX_API int UTL_SET_FILL(UTL_SET *set);

/* Inserts (value nonzero) or removes elements first .. last inclusive.
 * Returns 1. Nothing is checked or recorded; guard: the range is clipped to
 * 0 .. n-1, so elements outside the set are ignored instead of written past
 * the record. */
QX_API int UTL_SET_MODIFY_RANGE(UTL_SET *set, int first, int last, int value);

/* ---- Predicates ---------------------------------------------------------- */

QX_API int UTL_SET_EMPTY(const UTL_SET *set);     /* 1 when no member */
QX_API int UTL_SET_NOT_EMPTY(const UTL_SET *set); /* 1 when any member */
/* 1 when a and b have the same size and the same members. */
QX_API int UTL_SET_EQUAL(const UTL_SET *a, const UTL_SET *b);
/* 1 when a and b share no member among their first min(na, nb) elements. */
QX_API int UTL_SET_AND_IS_EMPTY(const UTL_SET *a, const UTL_SET *b);

/* ---- Algebra ------------------------------------------------------------- */

/* New sets a & b, a | b, a & ~b. Different sizes record FATAL DIFF_SIZE
 * under the routine's name; creation failures add the routine's name as a
 * trace; each returns NULL. */
QX_API UTL_SET *UTL_SET_AND(const UTL_SET *a, const UTL_SET *b);
QX_API UTL_SET *UTL_SET_OR(const UTL_SET *a, const UTL_SET *b);
QX_API UTL_SET *UTL_SET_DIFF(const UTL_SET *a, const UTL_SET *b);
/* New set, the complement of a within 0 .. n-1. */
QX_API UTL_SET *UTL_SET_NOT(const UTL_SET *a);
/* New set of the smaller size holding the members common to a and b. */
QX_API UTL_SET *UTL_SET_INTERSECT(const UTL_SET *a, const UTL_SET *b);

/* a = a & b, a | b, a & ~b. Return 1; different sizes record FATAL
 * DIFF_SIZE under the routine's name and return 0 with a unchanged. */
QX_API int UTL_SET_AND_INPLACE(UTL_SET *a, const UTL_SET *b);
QX_API int UTL_SET_OR_INPLACE(UTL_SET *a, const UTL_SET *b);
QX_API int UTL_SET_DIFF_INPLACE(UTL_SET *a, const UTL_SET *b);

/* New sets a & b, a | b, a & ~b of the larger size: a temporary copy of the
 * smaller operand is extended with UTL_SET_EXTEND first; the operands are
 * unchanged. Failures add the trace "<routine> (10)" (extending) or
 * "<routine> (20)" (the operation) and return NULL. */
QX_API UTL_SET *UTL_SET_AND_ANY_SIZE(const UTL_SET *a, const UTL_SET *b);
QX_API UTL_SET *UTL_SET_OR_ANY_SIZE(const UTL_SET *a, const UTL_SET *b);
QX_API UTL_SET *UTL_SET_DIFF_ANY_SIZE(const UTL_SET *a, const UTL_SET *b);

/* Inserts e, growing the set when needed, and returns the set to use from
 * now on:
 * - e == 0 returns NULL and does nothing (element 0 cannot be added this
 *   way; callers rely on it, so it is kept);
 * - set NULL: a new set of e + 50 elements holding e;
 * - e < n: e is inserted into set (a negative e records the insertion's
 *   OUT_RANGE error) and set is returned;
 * - e >= n: a new set of e + 50 elements holding the old members and e; the
 *   old set is destroyed.
 * When growing fails the trace "UTL_SET_INSERT_ANY_SIZE (10)" is added, NULL
 * returned and the old set left intact (still the caller's). */
QX_API UTL_SET *UTL_SET_INSERT_ANY_SIZE(UTL_SET *set, int e);

/* ---- Counting and order -------------------------------------------------- */

QX_API int UTL_SET_CARDINALITY(const UTL_SET *set); /* number of members */
QX_API int UTL_SET_MIN(const UTL_SET *set);         /* smallest member, -1 if empty */
QX_API int UTL_SET_MAX(const UTL_SET *set);         /* largest member, -1 if empty */

/* The element of the k-th member in ascending order (k from 1); -1 when the
 * set has fewer than k members or k < 1. */
QX_API int UTL_SET_MEMBER_NUMBER(const UTL_SET *set, int k);

/* Rank of member e: the number of members in 0 .. e (1 for the smallest).
 * e out of range or not a member records WARNING ILLEGAL_VALUE under
 * "UTL_SET_ORDINALITY" and returns 0. */
QX_API int UTL_SET_ORDINALITY(const UTL_SET *set, int e);

/* Number of members smaller than e (0 for e = 0), member or not. e out of
 * range records the same warning, still naming "UTL_SET_ORDINALITY" (callers
 * match on it), and returns -1. */
QX_API int UTL_SET_NSMALLER(const UTL_SET *set, int e);

/* The smallest member greater than e, or -1. A negative e asks for the first
 * member; e >= n-1 and a NULL set give -1. Iterate by starting at -1 and
 * feeding each result back until -1. */
QX_API int UTL_SET_NEXT(const UTL_SET *set, int e);

/* The smallest non-member greater than e, or n when there is none (also for
 * e >= n-1). Guard: a NULL set gives -1. */
QX_API int UTL_SET_NEXT_NONMEMBER(const UTL_SET *set, int e);

/* ---- Similarity ---------------------------------------------------------- */

/* Tanimoto coefficient of a and b in one pass over their words. Sets
 * *common = |a & b|, *union_count = |a | b| and *coefficient =
 * common / union (1.0 when both sets are empty: identical) and returns the
 * union count. Different sizes set *union_count to -1 and return 0 with
 * nothing recorded and the other outputs untouched. Any output pointer may
 * be NULL. */
QX_API int UTL_SET_TANIMOTO(const UTL_SET *a, const UTL_SET *b, int *common, int *union_count,
                            double *coefficient);

/* Cosine coefficient |a & b| / sqrt(|a| * |b|) into *coefficient: 1.0 when
 * both are empty, 0.0 when exactly one is. Returns 1; different sizes return
 * 0 with nothing recorded and *coefficient untouched. */
QX_API int UTL_SET_COSINE(const UTL_SET *a, const UTL_SET *b, double *coefficient);

/* ---- File and string forms ----------------------------------------------- */

/* Binary form: W + 1 32-bit words in host byte order, n then the words.
 * Returns 1; a write failure adds the trace "UTL_SET_WRITE (10)" and
 * returns 0. */
QX_API int UTL_SET_WRITE(FILE *stream, const UTL_SET *set);

/* Reads the binary form, byte-swapping every word when swap is nonzero (a
 * file written on a host of the other byte order). Returns a new set, or
 * NULL with the trace "UTL_SET_READ (10)" (size unreadable), "(15)" (no
 * memory) or "(20)" (words unreadable) added to the record of the file layer
 * (END_OF_FILE, FILE_READ_ERROR) or of the allocator (NO_MEMORY).
 * Guards: a size below 1 records FATAL BAD_SET_SIZE under "UTL_SET_CREATE"
 * before the trace (15); on a regular file, a size whose words cannot all be
 * in the rest of the file takes the "(20)" path without allocating (the
 * stream is left at its end, as a short read would leave it). Unused bits of
 * the last word are cleared. */
QX_API UTL_SET *UTL_SET_READ(FILE *stream, int swap);

/* Text form: the line "%d\n" of n, then the bytes of the words, least
 * significant byte first, each as "%02x ", with "\n" after every 20 bytes;
 * the last word gives only the ((n + 31)/8 % 4) + 1 bytes holding its valid
 * bits; a final "\n" when the byte count is not a multiple of 20. Returns 1;
 * a write failure adds the trace "UTL_SET_ASCII_WRITE (N)" with N = 10 (size
 * line), 20 / 30 (bytes / line ends of the full words), 40 / 50 (of the last
 * word) or 60 (final line end) and returns 0. */
QX_API int UTL_SET_ASCII_WRITE(FILE *stream, const UTL_SET *set);

/* Reads the text form (line breaks are not significant) into a new set,
 * masking the last word to its valid bits. A size below 1 gives the creation
 * error and the trace "UTL_SET_ASCII_READ (20)". Running out of input
 * records FATAL FILE_ERROR whose routine is "UTL_SET_ASCII_READ (10)".
 * Either returns NULL. Guards: a byte that is not a hexadecimal number of at
 * most two digits' value (0..ff), a size that is not a decimal number, and,
 * on a regular file, a size whose bytes cannot fit in the rest of the file
 * are treated as running out of input; nothing is allocated for them. */
QX_API UTL_SET *UTL_SET_ASCII_READ(FILE *stream);

/* A new string (allocator storage, the caller frees it with UTL_DMEM_FREE)
 * of ceil(n/4) characters from "0123456789ABCDEF": character i holds
 * elements 4i .. 4i+3, element 4i in the digit's most significant bit, so
 * the unused positions of a last partial digit read 0. An allocation failure
 * adds the trace "UTL_SET_TO_STRING" and returns NULL. */
QX_API char *UTL_SET_TO_STRING(const UTL_SET *set);

/* Clears set, then inserts the elements whose bits are set in the digits of
 * string ('0'-'9', 'A'-'F', 'a'-'f'), by the same rule. Returns 1; a set bit
 * beyond the set records FATAL OUT_RANGE under "UTL_SET_INSERT" and returns 0
 * (the elements before it stay inserted). Decision: a character that is not a
 * hexadecimal digit records FATAL ILLEGAL_VALUE under "UTL_SET_FROM_STRING"
 * and returns 0 with the set unchanged; a NULL string is the empty string. */
QX_API int UTL_SET_FROM_STRING(const char *string, UTL_SET *set);

/* printf-like output function used by UTL_SET_LIST (fprintf fits). */
typedef int (*UTL_SET_OUTPUT_FUNC)(FILE *stream, const char *format, ...);

/* Lists the set as one character per element, '1' for a member, '0'
 * otherwise, through output(stream, ...); with skip nonzero element 0 is left
 * out. A blank follows every tenth character; when that happens after more
 * than 69 characters on the line, " (%d)\n" with the running count ends the
 * line. The listing ends with " (%d items)\n". Returns 1. */
QX_API int UTL_SET_LIST(UTL_SET_OUTPUT_FUNC output, FILE *stream, const UTL_SET *set, int skip);

/* A new type-1 vector (see utl_vector.h) of the members in ascending order.
 * An allocation failure adds the trace "UTL_SET_TO_VECTOR" and returns
 * NULL. */
QX_API struct UtlVectorRecord *UTL_SET_TO_VECTOR(const UTL_SET *set);

QX_END_DECLS

#endif /* UTL_SET_H */
