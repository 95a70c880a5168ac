/* utl_mem: the library's allocator.
 *
 * Every allocation of the library goes through these calls with the calling
 * source file's tag and line. By default they are a thin layer over the
 * runtime heap that records UTL / MEM / FATAL / NO_MEMORY on failure and
 * returns NULL.
 *
 * Debug mode (UTL_DMEM_SET_DEBUG; once on it stays on) wraps every block in a
 * header and a trailer with guard words, keeps the live blocks on a list with
 * sequence numbers (1 for the first debug allocation), fills fresh data with
 * 0xEE and freed blocks with 0x7A, and checks each block when it is freed or
 * resized and the whole list every n-th allocation or free (default 1000).
 * A damaged block, an exhausted heap or an intentional failure is reported by
 * writing its code and a line end to standard output, then sending SIGQUIT to
 * the process: with the default disposition that ends the process; when the
 * application catches or ignores SIGQUIT the allocator carries on.
 *
 * Block layout in debug mode: head guard 0xBBBBBBBB, link to the next older
 * block, link to the next newer block, pointer to the caller's file name (not
 * copied: pass a string literal), line, size, sequence number, inner guard
 * 0xCCCCCCCC, then the user data, then four 0xDD trailer bytes. Pointers are
 * pointer-sized, the other words 32-bit: the header is 48 bytes on x86-64
 * (user data 16-byte aligned) and 32 bytes on a 32-bit build.
 *
 * Announcements (debug activation, settings, notifications, intentional
 * failures) are written through the print function (default printf) as
 * "\n\n", the message, "\n".
 *
 * Blocks allocated before debug mode was switched on are plain runtime blocks:
 * freeing or resizing one of them afterwards is reported as
 * MEM_BLOCK_BAD_POINTER. Switch debug mode on before the first allocation.
 *
 * Unguarded process-wide state: use the allocator from one thread at a time.
 */
#ifndef UTL_MEM_H
#define UTL_MEM_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* A printf-like function for the allocator's announcements. */
typedef int (*UTL_DMEM_PRINT_FUNC)(const char *format, ...);

/* ---- Allocation ----------------------------------------------------------- */

/* Allocates size bytes; a request for 0 bytes gets a unique valid block in
 * both modes. Plain mode: failure records NO_MEMORY under "UTL_MEM_ALLOC" and
 * returns NULL. Debug mode: the data is filled with 0xEE; a refused request
 * writes "MEM_NOT_ENOUGH" and sends SIGQUIT (NULL if the process survives);
 * a NULL file writes "FILE_NAME_IS_NIL_FOR_ALLOCATION" and sends SIGQUIT, and
 * the block is still returned. */
QX_API void *UTL_DMEM_ALLOC(unsigned int size, const char *file, int line);

/* Allocates count * size zeroed bytes. Plain mode: failure records NO_MEMORY
 * under "UTL_MEM_CALLOC" and returns NULL. Debug mode: as UTL_DMEM_ALLOC, and
 * a failure appends the trace line "UTL_MEM_CALLOC". Guard: a product beyond
 * 32 bits is refused (the historical code wrapped it) rather than allocated
 * short. */
QX_API void *UTL_DMEM_CALLOC(unsigned int count, unsigned int size, const char *file, int line);

/* Resizes ptr (NULL allocates). Plain mode: failure records NO_MEMORY under
 * "UTL_MEM_REALLOC (0)", returns NULL and leaves ptr untouched. Debug mode:
 * checks the old block, allocates a new one (new sequence number, 0xEE fill),
 * copies the smaller of the two sizes and frees the old block with the checks
 * of a free. Guard: the data of a block whose guards are damaged is not
 * copied, and that block is left alone (its header cannot be trusted). */
QX_API void *UTL_DMEM_REALLOC(void *ptr, unsigned int size, const char *file, int line);

/* As UTL_DMEM_REALLOC (the grown part is not zeroed); a plain-mode failure
 * records NO_MEMORY under "UTL_MEM_RECALLOC". */
QX_API void *UTL_DMEM_RECALLOC(void *ptr, unsigned int size, const char *file, int line);

/* Frees ptr; NULL is accepted (in debug mode it only counts toward the
 * periodic check). Returns 1. Debug mode checks the block first and reports,
 * each followed by SIGQUIT: "MEM_BLOCK_PREVIOUS_OVERRUN" (head guard damaged,
 * inner guard intact), "MEM_BLOCK_PREVIOUSLY_FREE" (the header is all freed
 * fill), "MEM_BLOCK_BAD_POINTER" (anything else with a damaged head guard),
 * "MEM_BLOCK_UNDERRUN" (inner guard damaged), "MEM_BLOCK_OVERRUN" (trailer
 * damaged). Guards: the trailer is not looked for when the inner guard is
 * damaged (the size word cannot be trusted), and a block with a damaged guard
 * word is neither unlinked nor returned to the heap. Freed blocks are kept,
 * filled with 0x7A, among the 64 most recently freed (blocks up to 64 KiB)
 * before going back to the runtime heap, so that a second free of one of them
 * is recognised as MEM_BLOCK_PREVIOUSLY_FREE. */
QX_API int UTL_DMEM_FREE(void *ptr, const char *file, int line);

/* Frees each non-null row of array (rows entries), then array itself, each
 * with the checks of UTL_DMEM_FREE. Returns 1. Guard: a NULL array or a
 * negative row count frees no rows. */
QX_API int UTL_MEM_FREE_2D_ARRAY(int rows, void **array);

/* ---- Debug mode ------------------------------------------------------------ */

/* Switches debug mode on (there is no way back) and announces
 * "IMPORTANT: Memory debugging has been activated.\n". Returns 1. */
QX_API int UTL_DMEM_SET_DEBUG(void);

/* Checks the whole live-block list every n-th allocation or free (0 = never,
 * default 1000) and restarts the count, so the next pass checks. Announces
 * "The memory heap will be checked every %d passes. \n". With debug mode off
 * it records UTL / MEM / FATAL / SET_FREQ under "UTL_DMEM_SET_FREQ" and
 * changes nothing. The whole-list check reports, newest block first,
 * "MEM_HEAP_PREVIOUS_OVERRUN", "MEM_HEAP_UNDERRUN" and "MEM_HEAP_OVERRUN",
 * each followed by SIGQUIT. Guard: the walk stops at a block whose guard word
 * is damaged, since its links cannot be trusted. */
QX_API void UTL_DMEM_SET_FREQ(int n);

/* Announces every later debug allocation of at least bytes bytes as
 * "NOTIFICATION:  File %s line %d allocated %d bytes.\n" (0 = off), and
 * announces the setting itself as
 * "Notification set for memory allocations of \"%u\" or more bytes.\n". */
QX_API void UTL_DMEM_NOTIFY(unsigned int bytes);

/* Requests an intentional failure: with a file, at a debug allocation from
 * exactly that file name and line (the name is copied through the allocator,
 * tagged "utl_mem", which in debug mode takes a sequence number); with a NULL
 * file, at the debug allocation that gets sequence number number. Announces
 * "Intentional failure set for \"%s\" line %u.\n" or
 * "Intentional failure set for \"%u\" sequence number allocation.\n". The
 * failure fires once: it announces "Intentional failure occurring in \"%s\"
 * line %u.\n" (or "... line %u sequence number %u.\n"), writes
 * "INTENTIONAL_FAILURE" to standard output and sends SIGQUIT; if the process
 * survives, the allocation proceeds normally. A new file request replaces the
 * previous one; a sequence request replaces the file request. If the file name
 * cannot be copied (plain mode, NO_MEMORY recorded) no request is set. */
QX_API void UTL_DMEM_FAIL(const char *file, unsigned int number);

/* Checks every live block now (reports as UTL_DMEM_SET_FREQ describes). */
QX_API void UTL_DMEM_CHK_HEAP_NOW(void);

/* Lists the live blocks, newest first, whose sequence number lies in
 * [first, last] (last 0 = up to the newest) and, when filter is not NULL,
 * whose file name equals it exactly: one line
 * "Filename %s line %u size %u sequence number %u\n" per block, written to the
 * file path (created or truncated) or, with a NULL path, through the print
 * function as it stands (no announcement blank lines; with a filter the line,
 * size fields are printed with %d). A first number beyond the newest sequence
 * number adds "The sequence number %u you requested is out of range.\n" and
 * "The next available sequence number is %u.\n" to the same output. The walk
 * stops early while an interrupt is pending (UTL_INTR_PENDING). Guard: it
 * also ends after a block whose guard words are damaged, as the check does.
 * Returns 1 after listing; 0 when debug mode is off (records UTL / MEM /
 * FATAL / MEM_PRINT under "UTL_DMEM_MPA") or the file cannot be opened
 * (announces "Sorry, couldn't open file %s./n", the "/n" being historical). */
QX_API int UTL_DMEM_MPA(const char *path, const char *filter, unsigned int first,
                        unsigned int last);

/* Sum of the user sizes of the live debug blocks. */
QX_API unsigned int UTL_DMEM_ALLOCATED_BYTES(void);
/* Highest value UTL_DMEM_ALLOCATED_BYTES has reached. */
QX_API unsigned int UTL_DMEM_MAX_ALLOCATED_BYTES(void);
/* The sequence number the next debug allocation will get. */
QX_API unsigned int UTL_DMEM_NEXT_NUM(void);

/* Replaces the announcement function when print is not NULL. Returns print. */
QX_API UTL_DMEM_PRINT_FUNC UTL_DMEM_INITIALIZE(UTL_DMEM_PRINT_FUNC print);

/* The allocator's build date, "Sep 23 2011", in a static buffer. */
QX_API const char *UTL_MEM_GET_VERSION(void);

QX_END_DECLS

#endif /* UTL_MEM_H */
