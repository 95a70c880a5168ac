/* utl_file: checked file streams and descriptors, and file search along a list
 * of directory specifications.
 *
 * The wrappers record a failure on the error stack (product "UTL", facility
 * "FILES") instead of leaving it in errno. Reading and opening failures are
 * warnings; writing, closing and seeking failures are fatal. Callers test the
 * result; nothing is retried.
 */
#ifndef UTL_FILE_H
#define UTL_FILE_H

#include <stdio.h>

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* ---- Streams and descriptors --------------------------------------------- */

/* Reads count elements of element_size bytes into buffer. Returns 1 when the
 * whole count was read (a zero count always succeeds), else 0 with
 *   at end of file: UTL / FILES / WARNING / END_OF_FILE under the routine name
 *     "UTL_FILE_READ" (not "UTL_FILE_FREAD": callers match on that name);
 *   otherwise:      UTL / FILES / WARNING / FILE_READ_ERROR, "UTL_FILE_FREAD".
 * Elements read before the end stay in buffer. */
QX_API int UTL_FILE_FREAD(void *buffer, unsigned int element_size, unsigned int count,
                          FILE *stream);

/* Writes count elements of element_size bytes from buffer. Returns 1 when the
 * whole count was written, else 0 with UTL / FILES / FATAL / FILE_WRITE_ERROR,
 * "UTL_FILE_FWRITE". */
QX_API int UTL_FILE_FWRITE(const void *buffer, unsigned int element_size, unsigned int count,
                           FILE *stream);

/* Closes stream. Returns 1, or 0 with UTL / FILES / FATAL / FILE_CLOSE_ERROR,
 * "UTL_FILE_FCLOSE". The stream is gone either way. */
QX_API int UTL_FILE_FCLOSE(FILE *stream);

/* Moves the position of stream (origin SEEK_SET, SEEK_CUR or SEEK_END).
 * Returns 1, or 0 when the runtime's seek returned -1, with UTL / FILES /
 * FATAL / FILE_SEEK_ERROR, "UTL_FILE_FSEEK". */
QX_API int UTL_FILE_FSEEK(FILE *stream, int offset, int origin);

/* The position of stream as a signed 32-bit number. A negative result is the
 * runtime's failure value, recorded as UTL / FILES / FATAL / FILE_SEEK_ERROR,
 * "UTL_FILE_FTELL"; a position beyond 2^31 - 1 bytes is also reported that
 * way rather than wrapped. */
QX_API int UTL_FILE_FTELL(FILE *stream);

QX_END_DECLS

#endif /* UTL_FILE_H */
