/* utl_str: string utilities.
 *
 * Copies are made through the library allocator; every allocation failure adds
 * the routine's name as a trace line and returns NULL or 0.
 */
#ifndef UTL_STR_H
#define UTL_STR_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* Returns a copy of text in allocator storage tagged with file and line (the
 * caller's tag), or NULL for a NULL text (no error). The block is the length
 * plus one rounded down to a multiple of 4, plus 4 bytes. Failure adds the
 * trace "UTL_DSTR_SAVE". Free with UTL_DMEM_FREE. */
QX_API char *UTL_DSTR_SAVE(const char *text, const char *file, int line);

/* Compares a and b after turning lower-case letters to upper case: the
 * difference of the first differing pair, 0 when equal, and 1 when either is
 * NULL. */
QX_API int UTL_STR_CMP_NOCASE(const char *a, const char *b);

QX_END_DECLS

#endif /* UTL_STR_H */
