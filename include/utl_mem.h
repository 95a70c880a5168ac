/* utl_mem: the library's allocator.
 *
 * Every allocation of the library goes through these calls with the calling
 * source file's tag and line. By default they are a thin layer over the
 * runtime heap that records UTL / MEM / FATAL / NO_MEMORY on failure and
 * returns NULL.
 */
#ifndef UTL_MEM_H
#define UTL_MEM_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* Allocates size bytes (a request for 0 bytes gets a unique valid block).
 * Failure records NO_MEMORY under "UTL_MEM_ALLOC" and returns NULL. */
QX_API void *UTL_DMEM_ALLOC(unsigned int size, const char *file, int line);
/* Allocates count * size zeroed bytes. Failure records NO_MEMORY under
 * "UTL_MEM_CALLOC" and returns NULL. */
QX_API void *UTL_DMEM_CALLOC(unsigned int count, unsigned int size, const char *file, int line);
/* Resizes ptr (NULL allocates). Failure records NO_MEMORY under
 * "UTL_MEM_REALLOC (0)", returns NULL and leaves ptr untouched. */
QX_API void *UTL_DMEM_REALLOC(void *ptr, unsigned int size, const char *file, int line);
/* Frees ptr; NULL is accepted. Returns 1. */
QX_API int UTL_DMEM_FREE(void *ptr, const char *file, int line);

QX_END_DECLS

#endif /* UTL_MEM_H */
