/* utl_file: checked file streams and descriptors, and file search along a list
 * of search directories.
 *
 * The wrappers record a failure on the error stack (product "UTL", facility
 * "FILES") instead of leaving it in errno. Reading and opening failures are
 * warnings; writing, closing and seeking failures are fatal. Callers test the
 * result; nothing is retried.
 *
 * Paths: every path the search builds, and every expanded name, must fit in
 * UTL_FILE_PATH_LIMIT bytes including the terminator (4095 characters). A
 * longer candidate is never built: it counts as a file that does not exist,
 * so an over-long search fails with its documented record instead of
 * overflowing.
 */
#ifndef UTL_FILE_H
#define UTL_FILE_H

#include <stdio.h>

#include "qxbase_export.h"

QX_BEGIN_DECLS

#define UTL_FILE_PATH_LIMIT 4096

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
 * way (-1) rather than wrapped. */
QX_API int UTL_FILE_FTELL(FILE *stream);

/* Opens a descriptor with open(2) flags; permission_mode 0 means none given.
 * Returns the descriptor, or -1 with UTL / FILES / WARNING / FILE_OPEN_ERROR,
 * "UTL_FILE_OPEN". A null or empty path fails that way without touching the
 * file system. Guard: flags that create a file with no mode given use 0666
 * (less the umask) instead of an undefined mode. */
QX_API int UTL_FILE_OPEN(const char *path, int flags, int permission_mode);

/* Closes a descriptor. Returns the runtime's result; -1 is recorded as
 * UTL / FILES / FATAL / FILE_CLOSE_ERROR, "UTL_FILE_CLOSE". */
QX_API int UTL_FILE_CLOSE(int descriptor);

/* Opens path for reading, but only when a read-permission test on it
 * succeeds. Returns the stream (the caller closes it), or NULL with
 * UTL / FILES / WARNING / FILE_OPEN_ERROR, "UTL_FILE_OPEN_FORTRAN". */
QX_API FILE *UTL_FILE_OPEN_FORTRAN(const char *path);

/* ---- File search -------------------------------------------------------- */

/* Searches for name along search directories given as further
 * arguments and ended by NULL (at least the NULL must be passed; with no
 * search directory at all the search fails at once).
 *
 * Each entry is a directory, or the name of an environment variable
 * whose value is the directory; an empty entry means the name as
 * passed (relative to the current directory). "/" is put between directory
 * and name unless the directory is empty or already ends in "/". In each
 * directory, in this order, the first existing one of
 *   1. name;
 *   2. name with ext added ("." joined unless ext begins with "."), only
 *      when name contains no "." and ext is not NULL (a name that contains a
 *      "." is tried as itself again here);
 *   3. when ext is not NULL: name, "." unless ext begins with ".", then ext
 *      (so data.old is also tried as data.old.tab)
 * is accepted. "Existing" means an existence test succeeds (directories
 * count).
 *
 * Returns a new copy of the path found (allocator storage; free it with
 * UTL_DMEM_FREE), or NULL with UTL / FILES / WARNING / NONEXI_FILE,
 * "UTL_FILE_FIND" and the message "File: " followed by name and, when name
 * contains no ".", ext (as given, without a joiner). A NULL name finds
 * nothing. */
QX_API char *UTL_FILE_FIND(const char *name, const char *ext, ...);

/* As UTL_FILE_FIND, but a failed search records nothing. */
QX_API char *UTL_FIND_FILE(const char *name, const char *ext, ...);

/* Opens name with mode. A name beginning with "$" is first expanded: each
 * "$VAR" or "${VAR}" reference (VAR made of letters, digits and "_") is
 * replaced by the variable's value; a reference to an unset variable is kept
 * as written. A mode not beginning with "r" opens the (expanded) name
 * directly, without any search. A mode beginning with "r" searches the
 * search directories (NULL-ended, as UTL_FILE_FIND; none at all means
 * nothing is found) and opens the path found.
 *
 * Returns the stream (the caller closes it), or NULL with UTL / FILES /
 * WARNING / FILE_OPEN_ERROR, "UTL_FILE_FOPEN" and the message "File: " with
 * name as passed. A NULL name or mode fails the same way. */
QX_API FILE *UTL_FILE_FOPEN(const char *name, const char *mode, const char *ext, ...);

QX_END_DECLS

#endif /* UTL_FILE_H */
