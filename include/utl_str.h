/* utl_str: string utilities and growable string buffers.
 *
 * Texts are 8-bit and NUL-terminated. Every copy is made through the library
 * allocator with the tag "utl_str" (UTL_DSTR_SAVE takes the caller's tag) and
 * is freed by the caller with UTL_DMEM_FREE. An allocation failure adds the
 * routine's name as a trace line (the allocator has recorded NO_MEMORY) and
 * gives NULL or 0, unless stated otherwise below. A blank is the space
 * character only; tabs are not blanks here. Case folding touches the ASCII
 * letters only.
 *
 * Searches and validations answer -1 or 0 and never touch the error stack.
 * Guards on bad input (the original would have crashed): a NULL text is taken
 * as no text (searches give -1, copies give NULL) unless stated otherwise, and
 * NULL result pointers give 0.
 */
#ifndef UTL_STR_H
#define UTL_STR_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* ---- String buffer ------------------------------------------------------ */

/* A growable text. The fields are public for inspection; change them only
 * through the functions below. */
typedef struct UTL_STR_BUFF {
  char *data;       /* the held text, NULL until the first addition */
  char *end;        /* the terminating NUL: the next write position */
  int capacity;     /* bytes allocated for data */
  int initial_size; /* size of the first allocation */
  int increment;    /* minimum growth step */
} UTL_STR_BUFF;

/* Creates an empty buffer (zeroed). An initial size below 1 or an increment
 * of 0 or less becomes 128. Returns NULL on allocation failure (trace
 * "UTL_STR_BUFF_CREATE"). Destroy with UTL_STR_BUFF_DESTROY. */
QX_API UTL_STR_BUFF *UTL_STR_BUFF_CREATE(int initial_size, int increment);

/* Appends text and returns the buffer's data (valid until the next addition).
 * The first addition allocates the initial size, or length + increment when
 * the text does not fit; later ones grow by the larger of the increment and
 * the shortfall. A NULL text ends the current text and starts a new, empty
 * one after it, so the buffer can hold several NUL-separated texts (end then
 * points at the last one). Returns NULL on allocation failure (trace
 * "UTL_STR_BUFF_ADD"; the buffer is unchanged). Guards: a NULL buffer, or a
 * growth beyond 2^31 - 1 bytes, gives NULL with the trace
 * "UTL_STR_BUFF_ADD". */
QX_API char *UTL_STR_BUFF_ADD(UTL_STR_BUFF *buffer, const char *text);

/* The buffer's data, or "" (static) when nothing was added since creation or
 * the last steal. The buffer keeps ownership. */
QX_API const char *UTL_STR_BUFF_GET(UTL_STR_BUFF *buffer);

/* Empties the text (end := data) but keeps the storage. Returns buffer. */
QX_API UTL_STR_BUFF *UTL_STR_BUFF_CLEAR(UTL_STR_BUFF *buffer);

/* Hands the data, shrunk to the used length plus one, to the caller, who
 * frees it with UTL_DMEM_FREE; the buffer starts afresh (with its initial
 * size) at the next addition. NULL when nothing is held. If the shrinking
 * reallocation is refused, returns NULL with the trace "UTL_STR_BUFF_STEAL"
 * and the buffer keeps its text. */
QX_API char *UTL_STR_BUFF_STEAL(UTL_STR_BUFF *buffer);

/* Frees the data (if any) and the buffer; returns the status of the last
 * free (1 for a NULL buffer). */
QX_API int UTL_STR_BUFF_DESTROY(UTL_STR_BUFF *buffer);

/* ---- Copies and concatenation ------------------------------------------- */

/* Returns a copy of text in allocator storage tagged with file and line (the
 * caller's tag), or NULL for a NULL text (no error). The block is the length
 * plus one rounded down to a multiple of 4, plus 4 bytes. Failure adds the
 * trace "UTL_DSTR_SAVE". Free with UTL_DMEM_FREE. */
QX_API char *UTL_DSTR_SAVE(const char *text, const char *file, int line);

/* A new text a followed by b (a NULL one counts as empty). Failure adds the
 * trace "UTL_STR_CONCATENATE". */
QX_API char *UTL_STR_CONCATENATE(const char *a, const char *b);

/* A new text joining first and the texts after it, up to a NULL argument:
 *   UTL_STR_NCONCATENATE(dir, "/", file, NULL)
 * A list that starts with NULL gives a new empty text. Allocation failure
 * gives NULL without a trace line. */
QX_API char *UTL_STR_NCONCATENATE(const char *first, ...);

/* ---- Comparison and search ---------------------------------------------- */

/* Compares a and b after turning lower-case letters to upper case: the
 * difference of the first differing pair, 0 when equal, and 1 when either is
 * NULL. */
QX_API int UTL_STR_CMP_NOCASE(const char *a, const char *b);

/* As UTL_STR_CMP_NOCASE over at most n characters; an n of 0 compares the
 * whole texts. Guard: a negative n also compares the whole texts. */
QX_API int UTL_STR_NCMP_NOCASE(const char *a, const char *b, int n);

/* Index of the first of count texts equal to text (case counts), or -1 when
 * count is below 1 or none matches. NULL elements never match. */
QX_API int UTL_STR_FIND_STR(int count, const char *const *texts, const char *text);

/* Offset of the first occurrence of part in text (case counts), or -1. An
 * empty part gives the length of text. */
QX_API int UTL_STR_SUBSTRING(const char *text, const char *part);

/* As UTL_STR_SUBSTRING ignoring case, but an empty text or an empty part
 * gives -1. */
QX_API int UTL_STR_SUBSTRING_NOCASE(const char *text, const char *part);

/* ---- Blanks -------------------------------------------------------------- */

/* Index of the first (last) character that is not a space; -1 for an empty
 * or all-space text. */
QX_API int UTL_STR_FIRST_NONBLANK(const char *text);
QX_API int UTL_STR_LAST_NONBLANK(const char *text);

/* Cuts trailing spaces from text, in place. */
QX_API void UTL_STR_TRIM_TRAILING_BLANKS(char *text);

/* A new text: text without any space. Failure adds the trace
 * "UTL_STR_NOSPACE". */
QX_API char *UTL_STR_NOSPACE(const char *text);

/* A new text: text without leading and trailing spaces; NULL for an empty or
 * all-space text (no error). Failure adds the trace
 * "UTL_STR_NO_LEAD_OR_TRAIL_SPACE". */
QX_API char *UTL_STR_NO_LEAD_OR_TRAIL_SPACE(const char *text);

/* ---- Case ---------------------------------------------------------------- */

/* A new text with lower-case letters turned to upper case (UPCASE) or
 * upper-case letters to lower case (LOCASE); text is not changed. A NULL text
 * records UTL / STR / WARNING / NULL_STRING under the routine's name and gives
 * NULL (for LOCASE this is a guard: the original would have crashed).
 * Failure adds the trace "UTL_STR_UPCASE" or "UTL_STR_LOCASE". */
QX_API char *UTL_STR_UPCASE(const char *text);
QX_API char *UTL_STR_LOCASE(const char *text);

/* ---- Numbers ------------------------------------------------------------- */

/* Validated integer conversion: *result := 0, then leading spaces are
 * skipped, one '-' is allowed, and only the digits 0..9 may follow (trailing
 * spaces included, anything else makes the text invalid). Returns 1 and the
 * value in *result, or 0 for an invalid, NULL or empty text. An all-space
 * text or a lone '-' is valid and gives 0. Guard: a value outside the int
 * range is invalid. */
QX_API int UTL_STR_ATOI(const char *text, int *result);

/* Converts the first integer found in text: from the first digit, or from a
 * '-' directly followed by a digit. Returns 1 and the value in *result, or 0
 * when there is none (*result untouched). Guard: a value outside the int
 * range gives 0. */
QX_API int UTL_STR_EXTRACT_INT(const char *text, int *result);

/* As UTL_STR_EXTRACT_INT with minus in the role of '-' (a '-' is then an
 * ordinary character). */
QX_API int UTL_STR_EXTRACT_INT_M(const char *text, char minus, int *result);

/* Validated real conversion. Spaces anywhere are removed and lower-case
 * letters taken as upper case; the rest must read: an optional sign or a
 * leading '.', digits, optionally '.' and digits, optionally 'E' with an
 * optional sign and at least one digit, and nothing after. Every digit run
 * except the exponent's may be empty, so "", "-" and "." read as 0 and ".5.5"
 * as 0.5: that is how the check has always worked. A violation records
 * UTL / STR / WARNING / ILLEGAL_VALUE with an empty routine name; a range
 * error of the conversion records UTL / STR / WARNING / MATH_ERROR under
 * "atof()". Either adds the trace "UTL_STR_ATOF" and gives 0.0, so callers
 * test the error stack, not the value. Allocation failure adds the traces
 * "UTL_STR_NOSPACE" and "UTL_STR_ATOF". Guard: a NULL text records
 * ILLEGAL_VALUE. */
QX_API double UTL_STR_ATOF(const char *text);

/* ---- Editing ------------------------------------------------------------- */

/* Replaces every non-overlapping occurrence of pattern in text by
 * replacement, left to right, and returns the number of replacements. The
 * result is built in a work area and copied back over text only when
 * something was replaced: text must have room for the result. A refused work
 * area gives 0 without a trace. Guards: an empty or NULL pattern, a NULL
 * replacement or text, or a work area beyond 4 GiB give 0 and leave text
 * unchanged. */
QX_API int UTL_STR_SUBSTITUTE(const char *pattern, const char *replacement, char *text);

/* 1 when text is exactly "*", 2 when it contains a '*' otherwise, 0 when it
 * has none (or is NULL). */
QX_API int UTL_STR_IS_WILD_NAME(const char *text);

/* A new text: text without its surrounding quotes when it has at least two
 * characters and begins and ends with the same quote (both '"' or both '\''),
 * otherwise a plain copy. NULL gives NULL. Failure adds the trace
 * "UTL_STR_STRIP_SURR_QUOTES (10)" (stripping) or "UTL_DSTR_SAVE" and
 * "UTL_STR_STRIP_SURR_QUOTES (20)" (copy). */
QX_API char *UTL_STR_STRIP_SURR_QUOTES(const char *text);

/* A new text in which every run of c is reduced to one c. NULL gives NULL.
 * Failure adds the trace "UTL_STR_SKRUNCH_CHAR (10)". */
QX_API char *UTL_STR_SKRUNCH_CHAR(const char *text, char c);

QX_END_DECLS

#endif /* UTL_STR_H */
