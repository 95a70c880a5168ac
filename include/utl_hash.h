/* utl_hash: chained hash tables keyed by strings (or by any key for which the
 * caller supplies hash, copy, length and compare functions), holding one data
 * block per key.
 *
 * Blocks are copied into storage the table owns (UTL_HASH_INSERT, _CHANGE,
 * _RETRIEVE) or held by reference (the _P twins: the table keeps the caller's
 * pointer and never frees it). Keys are always copied by the key copy
 * function and freed by the table with UTL_DMEM_FREE, so a caller-supplied
 * copy function must allocate through UTL_DMEM_ALLOC.
 *
 * A table is used from one thread at a time.
 */
#ifndef UTL_HASH_H
#define UTL_HASH_H

#include <stdio.h>

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* Bucket number of key, from 1 to bucket_count. */
typedef unsigned int (*UTL_HASH_FUNCTION)(const char *key, unsigned int bucket_count);
/* A new copy of key in allocator storage (UTL_DMEM_ALLOC), or NULL. */
typedef char *(*UTL_HASH_COPY_FUNCTION)(const char *key);
/* 0 when the stored key equals the probe key. */
typedef int (*UTL_HASH_COMPARE_FUNCTION)(const char *stored_key, const char *probe_key);
/* Length of key; keys of different lengths never match. */
typedef unsigned int (*UTL_HASH_LENGTH_FUNCTION)(const char *key);

/* One entry of a chain. size: bit 31 (0x80000000) set when data is held by
 * reference, bits 0..30 the byte count. data: the table's own copy (NULL for
 * a count of 0) or the caller's pointer. */
typedef struct UTL_HASH_BUCKET {
  struct UTL_HASH_BUCKET *next;
  struct UTL_HASH_BUCKET *prev; /* NULL at the head of the chain */
  unsigned int key_length;
  char *key;
  unsigned int size;
  void *data;
} UTL_HASH_BUCKET;

/* A primary bucket: entry count of its chain and the chain's head. The
 * table's array is indexed by bucket number minus 1. */
typedef struct UTL_HASH_PRIMARY {
  int count;
  UTL_HASH_BUCKET *head;
} UTL_HASH_PRIMARY;

typedef struct UTL_HASH_TABLE {
  unsigned int bucket_count;
  UTL_HASH_FUNCTION hash_function;
  UTL_HASH_COPY_FUNCTION copy_function;
  UTL_HASH_COMPARE_FUNCTION compare_function;
  UTL_HASH_LENGTH_FUNCTION length_function;
  UTL_HASH_PRIMARY *buckets;
  int full_buckets;       /* buckets holding at least one entry */
  int overflow_count;     /* entries beyond the first in their bucket */
  unsigned int max_chain; /* longest chain ever reached; never lowered */
  float average_chain;    /* entries / buckets, refreshed by the reports */
} UTL_HASH_TABLE;

/* Called for each entry by UTL_HASH_DO_ALL; returning 0 stops the walk. */
typedef int (*UTL_HASH_DO_FUNCTION)(UTL_HASH_TABLE *table, const char *key, void *data,
                                    unsigned int byte_count, void *client_data);

/* ---- Creation and the default functions ---------------------------------- */

/* Creates a table of bucket_count buckets. Each NULL function takes the
 * default: UTL_HASH_DEFAULT_FUNCTION, a string copy, strlen, strcmp. Returns
 * the table (destroy it with UTL_HASH_DESTROY), or NULL: silently for a
 * bucket count of 0, with the allocator's NO_MEMORY and the trace
 * "UTL_HASH_CREATE" when storage runs out. */
QX_API UTL_HASH_TABLE *UTL_HASH_CREATE(unsigned int bucket_count, UTL_HASH_FUNCTION hash,
                                       UTL_HASH_COPY_FUNCTION copy, UTL_HASH_LENGTH_FUNCTION length,
                                       UTL_HASH_COMPARE_FUNCTION compare);

/* The library's hash: first, middle (length / 2) and last characters of key,
 * each as a signed 8-bit value, multiplied in wrapping 32-bit arithmetic; the
 * product taken as unsigned, modulo bucket_count, plus 1. Fast, but anagrams
 * with the same first, middle and last characters collide, so large tables of
 * similar keys chain badly: supply a better function for those.
 * Guards: an empty key hashes to bucket 1 (the byte before the key, which the
 * historical function multiplied by the terminator, is never read); a NULL
 * key or a bucket count of 0 gives 1. */
QX_API unsigned int UTL_HASH_DEFAULT_FUNCTION(const char *key, unsigned int bucket_count);

/* ---- Entries ---------------------------------------------------------------
 * Guards for all of these: a NULL table or key finds nothing (lookups report
 * their usual miss; inserts fail with their trace alone), and a caller hash
 * function returning a bucket number outside 1..bucket count makes the key
 * count as absent; an insert of such a key fails with
 * UTL / HASH / FATAL / BAD_BUCKET_NUMBER and the inserting routine's name. */

/* Adds key with a copy of byte_count bytes of data. Returns 1, or 0:
 * for a key already present with only the trace "UTL_HASH_INSERT" (no error
 * code; the old data stays); when storage runs out with the allocator's
 * record, "UTL_HASH_FILL_BUCKET (10|20|30)" (entry, key, data) and
 * "UTL_HASH_INSERT", nothing kept. */
QX_API int UTL_HASH_INSERT(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count,
                           const void *data);

/* Adds key holding the caller's pointer (never freed by the table). Returns
 * 1, or 0 with the trace "UTL_HASH_INSERT_P" for a key already present, or
 * with "UTL_HASH_FILL_BUCKET_P" and "UTL_HASH_INSERT_P" when storage runs
 * out. */
QX_API int UTL_HASH_INSERT_P(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count,
                             void *data);

/* Copies key's block into buffer, at most buffer_size bytes, and sets
 * *byte_count to the block's full count. A longer block is cut and recorded
 * as UTL / HASH / WARNING / DATA_OVFL; a missing key sets *byte_count to 0
 * and records UTL / HASH / FATAL / TOKEN_NOT_FOUND, both under
 * "UTL_HASH_RETRIEVE". byte_count may be NULL. */
QX_API void UTL_HASH_RETRIEVE(UTL_HASH_TABLE *table, const char *key, unsigned int buffer_size,
                              void *buffer, unsigned int *byte_count);

/* Sets *data to the block's address (the table's copy or the caller's
 * pointer; the table keeps ownership) and *byte_count to its count. A
 * missing key sets both to 0 and records UTL / HASH / FATAL /
 * TOKEN_NOT_FOUND, "UTL_HASH_RETRIEVE_P". Either out pointer may be NULL. */
QX_API void UTL_HASH_RETRIEVE_P(UTL_HASH_TABLE *table, const char *key, void **data,
                                unsigned int *byte_count);

/* As UTL_HASH_RETRIEVE_P, but a missing key records nothing. */
QX_API void UTL_HASH_RETRIEVE_P_NOERRSET(UTL_HASH_TABLE *table, const char *key, void **data,
                                         unsigned int *byte_count);

/* Replaces key's block by a copy of byte_count bytes of data (in place when
 * the entry owns a block of the same count). A referenced block becomes an
 * owned copy; the caller's old pointer is not freed. A missing key records
 * UTL / HASH / FATAL / TOKEN_NOT_FOUND, "UTL_HASH_CHANGE"; when storage runs
 * out the entry is left with an empty block and the trace
 * "UTL_HASH_CHANGE". */
QX_API void UTL_HASH_CHANGE(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count,
                            const void *data);

/* Makes key hold the caller's pointer, releasing an owned copy first. A
 * missing key records UTL / HASH / INFO / TOKEN_NOT_FOUND,
 * "UTL_HASH_CHANGE_P" (INFO, unlike UTL_HASH_CHANGE). */
QX_API void UTL_HASH_CHANGE_P(UTL_HASH_TABLE *table, const char *key, unsigned int byte_count,
                              void *data);

/* Removes key, its key copy and its owned data. A missing key records
 * UTL / HASH / INFO / TOKEN_NOT_FOUND, "UTL_HASH_DELETE". The longest-chain
 * statistic is not lowered. */
QX_API void UTL_HASH_DELETE(UTL_HASH_TABLE *table, const char *key);

/* The entry of key, or NULL; never records an error. */
QX_API UTL_HASH_BUCKET *UTL_HASH_INQUIRE(UTL_HASH_TABLE *table, const char *key);

/* The first entry from start on (start included, following next) whose key
 * matches key, or NULL. */
QX_API UTL_HASH_BUCKET *UTL_HASH_SCAN_BUCKETS(UTL_HASH_TABLE *table, UTL_HASH_BUCKET *start,
                                              const char *key);

/* Number of entries, counted by walking every chain. 0 for a NULL table. */
QX_API int UTL_HASH_COUNT_ALL(UTL_HASH_TABLE *table);

/* Calls callback(table, key, data, byte count, client_data) for every entry,
 * bucket 1 first, each chain head to tail. A 0 from the callback stops the
 * walk and records UTL / HASH / FATAL / FILE_ERROR, "UTL_HASH_DO_ALL". The
 * callback must not insert or delete. */
QX_API void UTL_HASH_DO_ALL(UTL_HASH_TABLE *table, UTL_HASH_DO_FUNCTION callback,
                            void *client_data);

/* ---- Destruction -------------------------------------------------------- */

/* Removes entry from the chain of slot, with its key and owned data, without
 * touching any table statistics. Returns 1, or 0 with the trace
 * "UTL_HASH_DELETE_BUCKET" when a release failed. */
QX_API int UTL_HASH_DELETE_BUCKET(UTL_HASH_PRIMARY *slot, UTL_HASH_BUCKET *entry);

/* Removes every entry of slot's chain; stops as soon as an error is pending
 * (including one pending on entry). */
QX_API void UTL_HASH_DESTROY_CHAIN(UTL_HASH_PRIMARY *slot);

/* Releases every entry, then the bucket array and the table. Does nothing
 * more once an error is pending: clear the error stack before destroying
 * after a failure. Referenced data is never released. A failed release of
 * the array or table traces "UTL_HASH_DESTROY". A NULL table does nothing. */
QX_API void UTL_HASH_DESTROY(UTL_HASH_TABLE *table);

/* Rebuilds table with bucket_count buckets and the given functions (each NULL
 * takes the library default, not the old table's function), moving entries,
 * keys and data without copying them. Returns the new table; the old pointer
 * is then invalid. Returns NULL, leaving the old table intact, when an error
 * is pending on entry, when bucket_count is 0, when storage for the new table
 * runs out (trace "UTL_HASH_REORGANIZE"), or when the new hash function gives
 * a bucket outside 1..bucket_count for a stored key (UTL / HASH / FATAL /
 * BAD_BUCKET_NUMBER, "UTL_HASH_REORGANIZE"). Stored key lengths are
 * recomputed when the length function changes. */
QX_API UTL_HASH_TABLE *UTL_HASH_REORGANIZE(UTL_HASH_TABLE *table, unsigned int bucket_count,
                                           UTL_HASH_FUNCTION hash, UTL_HASH_COPY_FUNCTION copy,
                                           UTL_HASH_LENGTH_FUNCTION length,
                                           UTL_HASH_COMPARE_FUNCTION compare);

/* ---- Reports ------------------------------------------------------------
 * A NULL table, or one whose storage is already released, writes nothing. */

/* Refreshes the average chain length and writes the six statistics lines to
 * stream. Addresses are printed in lower-case hex digits at their full
 * 64-bit width. */
QX_API void UTL_HASH_SHOW_STATS(FILE *stream, UTL_HASH_TABLE *table);

/* Writes the table description (heading and statistics) to a new file
 * file_name. An unopenable file records UTL / HASH / FATAL / FILE_OPEN_ERROR,
 * "UTL_HASH_SHOW_HTDB". */
QX_API void UTL_HASH_SHOW_HTDB(UTL_HASH_TABLE *table, const char *file_name);

/* As UTL_HASH_SHOW_HTDB, then every bucket with the key and data addresses of
 * its entries. Failure: FILE_OPEN_ERROR under "UTL_HASH_SHOW_ALL". */
QX_API void UTL_HASH_SHOW_ALL(UTL_HASH_TABLE *table, const char *file_name);

/* Writes to file_name C source of a static, read-only copy of table with a
 * lookup function
 *   int function_name(char *token, unsigned *nbytes, char **data_ptr)
 * that returns 1 and the block when token is found. hash_name names the hash
 * function the generated code calls ("" or NULL for
 * UTL_HASH_DEFAULT_FUNCTION, which then comes from this library).
 * Kept as the generator always wrote it, because existing generated code
 * depends on it:
 *   - the data pool skips the last bucket, so the blocks of that bucket's
 *     entries point past the pool;
 *   - data bytes above 127 are written as the octal of the sign-extended
 *     byte (an over-long escape the C compiler does not read back as the
 *     byte);
 *   - an entry with a byte count of 0 writes the low 32 bits of its data
 *     pointer as four bytes and makes the pool scan resume at bucket index 5,
 *     while the entry offsets do not follow. Guard: when that entry sits at
 *     bucket index 5 or later, the historical scan would have gone back and
 *     written forever; here the scan just carries on.
 * Keys are written unescaped between quotes; a referenced block with a count
 * but a NULL pointer is written as zero bytes. An unopenable file records
 * UTL / HASH / FATAL / FILE_OPEN_ERROR, "UTL_HASH_STATIC_SAVE". */
QX_API void UTL_HASH_STATIC_SAVE(UTL_HASH_TABLE *table, const char *function_name,
                                 const char *hash_name, const char *file_name);

QX_END_DECLS

#endif /* UTL_HASH_H */
