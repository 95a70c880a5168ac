/* utl_db: a keyed store kept in one disk file.
 *
 * A store holds records addressed by small integer keys (0 .. total-1); a key
 * may also carry a name, found through a hash table in the file. Each key owns
 * at most one variable-length data record. The file is a disk heap read and
 * written through an in-memory cache of fixed-size chunks; changes reach the
 * file at UTL_DB_FLUSH, UTL_DB_CLOSE, or when the cache writes its dirty chunks
 * to make room. Files are little-endian on every host and interchangeable with
 * stores written by earlier versions of the library.
 *
 * One writer at a time: opening for update stamps a lock mark ("ZELQ") into the
 * file header, which UTL_DB_CLOSE removes. A store left locked (a process that
 * ended without closing) opens in no mode until UTL_DB_UNLOCK.
 *
 * The family prints instead of recording: a failure returns 0, NULL or -1 and,
 * for the documented cases, writes one line on standard error. Only the
 * allocator's own NO_MEMORY record reaches the error stack. Nothing is rolled
 * back after a failure, and a creation that fails midway leaves its partial
 * file. The family is not re-entrant: call it from one thread at a time.
 *
 * Hostile files. A store file is untrusted input; these guards apply to every
 * function (valid files never meet them):
 *  - every access is bound-checked against the heap's end (the HeapSeek line);
 *  - opening refuses (NULL, no line) a header whose granularity or bucket count
 *    is 0 or whose hash selector is not 1..3; a chunk size of 0 or above
 *    64 MiB, or a file above 2^31-1 bytes, fails with the CreateHeap line,
 *    before any lock mark is written;
 *  - a free block taken from a small list must have exactly its class size,
 *    must not point at itself and must lie inside the heap, else the
 *    "DiskAlloc: Failed to read free space list header" line; a block of the
 *    large list must lie inside the heap and the list may neither loop nor be
 *    longer than the heap could hold blocks, else the "AttemptAllocation:
 *    Failed to read heap at daddr" line; either ends the allocation without
 *    growing the file;
 *  - walks of the key segments and of a name's bucket chain stop where they
 *    loop, after as many steps as the heap could hold segments or entries (and
 *    no more than the key total), or at a segment without keys, which fails
 *    the operation as a missing key;
 *  - the free-key list may only hand out a free entry ("AllocateKey: Failed to
 *    Allocate from FreeKeyList." otherwise), and a free key cannot be deleted
 *    again;
 *  - sizes are computed in 64 bits and a store never grows past 2^31-1 bytes
 *    ("DiskAlloc: Failed to extend heap by %d");
 *  - a chunk whose write-back failed (FlushHeap line) stays resident and dirty
 *    instead of being released, so the cache may then hold more than 50
 *    chunks but never silently drops a change.
 *
 * Names are meant to be shorter than 256 characters: the name record keeps the
 * length modulo 256, lookups compare that byte and the characters, and
 * UTL_DB_INFO and UTL_DB_DELETE see only the first (length modulo 256)
 * characters of a longer name.
 */
#ifndef UTL_DB_H
#define UTL_DB_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* An open store: the header of the file and its chunk cache. */
typedef struct UtlDb UtlDb;

/* Creates a store at path: UTL_DB_XCREATE with these three arguments and
 * every other one 0 (default). Returns 1 on success, 0 on failure. */
QX_API int UTL_DB_CREATE(const char *path, int keys, int granularity, int small_limit);

/* Creates a store file (permission 0664) and closes it. A zero number or a
 * NULL title takes the default: 512 keys, increment 512, 512 buckets, hash
 * selector 1, granularity 8, small-allocation limit 1024 (rounded up to a
 * multiple of the granularity), chunk size 8192, minimum extension 4096,
 * title "Gorps the Grumbler". A title is stored as its first
 * min(length + 1, 80) bytes: 80 characters or more leave no terminator; the
 * unused title bytes are 0.
 * Returns 1, or 0 (no line printed) when the granularity exceeds a nonzero
 * limit, the selector taken as unsigned exceeds 3, or path exists (the
 * existing file is not touched), or a write fails (the partial file stays).
 * Guards: a negative number, a chunk size above 64 MiB, or a layout larger
 * than 2^31-1 bytes is refused with 0 before the file is made. */
QX_API int UTL_DB_XCREATE(const char *path, int keys, int key_increment, int buckets,
                          int hash_selector, int granularity, int small_limit, int chunk_size,
                          int min_extension, const char *title);

/* Opens a store. The first letter of mode decides:
 *  "R"/"r" read-only, no lock mark;
 *  "U"/"u" read/write, writes the lock mark;
 *  "C"/"c"/"W"/"w" as "u" on an existing readable and writable file, failure
 *    on an existing file without those rights, else creates a default store
 *    and opens it as "u";
 *  any other letter (or a NULL mode) opens read-only yet tries to write the
 *    lock mark, and so always fails.
 * chunk_size 0 keeps the cache chunk size stored in the file; another value
 * replaces it (and is written to the file at close).
 * Returns the handle, owned by the caller until UTL_DB_CLOSE, or NULL when the
 * file cannot be opened, is not exactly a closed store ("ZELK"), the lock mark
 * cannot be written, or the cache cannot be built ("CreateHeap: Failed to
 * Allocate Heap of %d chunks"). The cache is built before the lock mark is
 * written, so an open that fails leaves an existing file as it was. */
QX_API UtlDb *UTL_DB_OPEN(const char *path, const char *mode, int chunk_size);

/* Writes the header (with the closed mark) and every dirty chunk back, then
 * closes the file and frees the handle, which is invalid afterwards. A
 * read-only handle is only closed and freed. Returns 1, or 0 after a FlushHeap
 * line when a write fails (the handle is freed all the same) or for NULL. */
QX_API int UTL_DB_CLOSE(UtlDb *db);

/* Writes the header (keeping the lock mark) and every dirty chunk; the store
 * stays open. Returns 1 at once for a read-only handle, 0 after a FlushHeap
 * line when a write fails, 0 for NULL. */
QX_API int UTL_DB_FLUSH(UtlDb *db);

/* Replaces a lock mark left in the file at path by the closed mark. Returns 1
 * when the file now carries the closed mark, 0 when it cannot be opened for
 * update or is not a store. */
QX_API int UTL_DB_UNLOCK(const char *path);

/* Takes the first free key, extending the key list by the key increment when
 * none is free. A non-empty name is stored and entered at the front of its
 * hash bucket; names need not be unique. Returns the key or -1 ("AllocateKey:
 * ..." lines; "AddSecondaryKey: ..." when the bucket cannot be read). */
QX_API int UTL_DB_GENKEY(UtlDb *db, const char *name);

/* Frees a key in use with its name and data record; the key becomes the first
 * free key and its entry reads {next free key | 0x80000000, 0, 0x80000000, 0}. Returns 1, or 0 for
 * a key out of range or already free, and after "FreeKey: Attempt to free non-existent key %d" when
 * its name is missing from its bucket chain. */
QX_API int UTL_DB_DELETE(UtlDb *db, int key);

/* Stores length bytes of data as the key's record: in place when the current
 * block holds at least length bytes (the block keeps its capacity), else in a
 * new block, the old one freed. Returns 1, or 0 after "UTL_DB_WRITE: Cannot
 * find key %d" for a key out of range or free. Guard: a negative length or a
 * NULL data pointer with a positive length returns 0 without a line. */
QX_API int UTL_DB_WRITE(UtlDb *db, int key, int length, const void *data);

/* Copies min(buffer_size, capacity of the key's block) bytes into buffer and
 * sets *delivered to that count (0 without a record). The capacity is the
 * size rounded up to the granularity, or more after in-place writes and whole
 * large blocks: the store keeps no exact length, so callers encode their own.
 * Returns 1 (also when the block record cannot be read: 0 bytes delivered
 * after "DiskAllocSize: ..."), 0 for a key out of range, and 0 after
 * "UTL_DB_READ: Failed to read %d bytes at %d". Guards: buffer_size <= 0
 * delivers 0 bytes; a NULL buffer with a positive size returns 0;
 * delivered may be NULL. */
QX_API int UTL_DB_READ(UtlDb *db, int key, int buffer_size, void *buffer, int *delivered);

/* For key >= 0: the key if it is in use, else -1 (name ignored). For a
 * negative key: the newest key named name, or -1 (also for a NULL or empty
 * name). */
QX_API int UTL_DB_FIND(UtlDb *db, int key, const char *name);

/* The next older key named name after previous in name's bucket chain, or -1
 * (also when previous is not in that chain). */
QX_API int UTL_DB_FIND_NEXT(UtlDb *db, int previous, const char *name);

/* Sets *data_size to the capacity of the key's record (0 without one; may be
 * NULL) and, when name_size is nonzero and name not NULL, copies the key's
 * name and a terminator into name ("" for an unnamed key); 256 bytes always
 * suffice. Returns 1, or 0 for a key out of range or free, after
 * "ReadSecondaryKeyName: Failed to read address %d" when the name cannot be
 * read. Guard: a name_size smaller than the name plus its terminator prints
 * "ReadSecondaryKeyName: User buffer (%d) too small for key (%d)", leaves ""
 * in a positive-sized buffer, and returns 0. */
QX_API int UTL_DB_INFO(UtlDb *db, int key, int name_size, char *name, int *data_size);

/* The store's open file descriptor (owned by the store), or -1 for NULL. */
QX_API int UTL_DB_FILE(UtlDb *db);

QX_END_DECLS

#endif /* UTL_DB_H */
