/* utl_byte: byte helpers used by the containers and the binary file forms. */
#ifndef UTL_BYTE_H
#define UTL_BYTE_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* 1 when the first n bytes of a and b are equal, else 0. */
QX_API int UTL_BYTE_EQUAL(const void *a, const void *b, unsigned int n);
/* Copies n bytes from src to dst; the blocks must not overlap. */
QX_API void UTL_BYTE_COPY(void *dst, const void *src, unsigned int n);
/* Copies n bytes from src to dst; the blocks may overlap. */
QX_API void UTL_BYTE_MOVE(void *dst, const void *src, unsigned int n);
/* Reverses in place the byte order of each of count words of word_size bytes
 * (2, 4 and 8 are the usual sizes; 0 and 1 do nothing). */
QX_API void UTL_SWAP_BYTES(void *data, unsigned int word_size, unsigned int count);

QX_END_DECLS

#endif /* UTL_BYTE_H */
