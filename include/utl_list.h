/* utl_list: doubly linked list of variable-size data blocks.
 *
 * There is no list header: a list is a pointer to one of its nodes (normally
 * the head), held by the caller, and every operation takes a node. Each node
 * carries one data block, either copied into storage the node owns (APPEND,
 * INSERT, CHANGE) or held by reference (the _P operations), in which case the
 * node keeps only the caller's pointer and never frees it.
 *
 * A copied block of 0..8 bytes lives in the node itself (one allocation per
 * element); a copied block of 9 bytes or more lives in storage of exactly its
 * size, owned by the node. Bit 31 of `size` marks a reference; bits 0..30 are
 * the byte count. Nodes are allocated through the library allocator with the
 * tag "utl_list".
 *
 * Failures record UTL / LIST / severity / code under the routine's name, or,
 * when the allocator refused a request (it records NO_MEMORY itself), add the
 * routine's trace line. Severities differ between routines on purpose.
 *
 * Guards on bad input (the original would have crashed): a NULL data pointer
 * with a nonzero count stores that many zero bytes; a count of 2^31 or more is
 * taken modulo 2^31 (bit 31 is the reference mark); a NULL retrieval buffer
 * counts as a buffer of 0 bytes; NULL out-pointers are skipped; a negative
 * element number records BAD_ELEMNO.
 */
#ifndef UTL_LIST_H
#define UTL_LIST_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* Marks a block held by reference in the size word. */
#define UTL_LIST_BY_REFERENCE 0x80000000u

typedef struct UTL_LIST_NODE {
  struct UTL_LIST_NODE *next; /* following node, NULL at the tail */
  struct UTL_LIST_NODE *prev; /* preceding node, NULL at the head */
  unsigned int size;          /* bit 31: by reference; bits 0..30: byte count */
  unsigned char data[8];      /* the bytes (copies of 0..8) or a pointer */
} UTL_LIST_NODE;

/* Called by UTL_LIST_COPY with a node's data address and byte count; returns
 * the copy to hold by reference. The copy must come from the library
 * allocator: it is released with UTL_DMEM_FREE if its node cannot be made. */
typedef void *(*UTL_LIST_COPY_FUNC)(void *data, unsigned int size);

/* ---- Adding ------------------------------------------------------------- */

/* Copies size bytes of data into a new node linked after the tail of the list
 * that holds node (the walk to the tail is linear; keep the tail yourself and
 * pass it to append in constant time). A NULL node makes a one-node list.
 * Returns the new node, or NULL when the node ("UTL_LIST_APPEND (1)") or its
 * data storage ("UTL_LIST_APPEND (0)", node released) cannot be allocated. */
QX_API UTL_LIST_NODE *UTL_LIST_APPEND(UTL_LIST_NODE *node, unsigned int size, const void *data);

/* As UTL_LIST_APPEND, but the node holds the pointer itself; the caller keeps
 * ownership of the data. Node allocation failure traces "UTL_LIST_APPEND_P". */
QX_API UTL_LIST_NODE *UTL_LIST_APPEND_P(UTL_LIST_NODE *node, unsigned int size, void *data);

/* Copies data into a new node placed immediately before node. Inserting
 * before the head makes the new node the head: take the result as the new
 * list pointer. Failures trace "UTL_LIST_INSERT (1)" (node) or
 * "UTL_LIST_INSERT (0)" (data storage; node released) and return NULL. */
QX_API UTL_LIST_NODE *UTL_LIST_INSERT(UTL_LIST_NODE *node, unsigned int size, const void *data);

/* As UTL_LIST_INSERT by reference; failure traces "UTL_LIST_INSERT_P". */
QX_API UTL_LIST_NODE *UTL_LIST_INSERT_P(UTL_LIST_NODE *node, unsigned int size, void *data);

/* ---- Changing ----------------------------------------------------------- */

/* Replaces node's block by a copy of data. Owned storage of the same count is
 * overwritten in place; owned storage of another count is released first; a
 * referenced block is left to its owner and the node becomes an owning node.
 * Returns 1, or 0: NULL node (FATAL LIST_EMPTY), release failure
 * ("UTL_LIST_CHANGE (0)"), or new storage refused ("UTL_LIST_CHANGE (1)",
 * the node is left holding 0 bytes). */
QX_API int UTL_LIST_CHANGE(UTL_LIST_NODE *node, unsigned int size, const void *data);

/* Releases node's owned storage, if any, and holds data by reference.
 * Returns 1, or 0: NULL node (INFO LIST_EMPTY, unlike UTL_LIST_CHANGE) or
 * release failure ("UTL_LIST_CHANGE_P (0)"). */
QX_API int UTL_LIST_CHANGE_P(UTL_LIST_NODE *node, unsigned int size, void *data);

/* ---- Reading ------------------------------------------------------------ */

/* Copies node's block into buffer (buffer_size bytes) and stores the full
 * byte count in *size when size is not NULL. A longer block is cut to the
 * buffer and records WARNING DATA_OVFL, and the successor is still returned.
 * Returns the successor (NULL at the tail), or NULL for a NULL node (FATAL
 * LIST_EMPTY, *size set to 0). Iterate with
 *   while (node) node = UTL_LIST_RETRIEVE(node, sizeof rec, &rec, &n); */
QX_API UTL_LIST_NODE *UTL_LIST_RETRIEVE(UTL_LIST_NODE *node, unsigned int buffer_size, void *buffer,
                                        unsigned int *size);

/* Stores node's data address in *data (the inline bytes, the owned storage
 * or the referenced pointer; nothing is copied, the list keeps ownership of
 * what it owns) and its byte count in *size. Returns the successor, or NULL
 * for a NULL node (FATAL LIST_EMPTY, *data NULL, *size 0). */
QX_API UTL_LIST_NODE *UTL_LIST_RETRIEVE_P(UTL_LIST_NODE *node, void **data, unsigned int *size);

/* ---- Removing ----------------------------------------------------------- */

/* Releases node's owned storage, unlinks the node (its neighbours are
 * joined) and releases it. Referenced data is left to its owner. Returns the
 * successor (NULL at the tail), or NULL on failure: NULL node (WARNING
 * LIST_EMPTY), storage release failure ("UTL_LIST_DELETE (0)", the node stays
 * linked) or node release failure ("UTL_LIST_DELETE (1)", already unlinked). */
QX_API UTL_LIST_NODE *UTL_LIST_DELETE(UTL_LIST_NODE *node);

/* Deletes node and every node after it, as UTL_LIST_DELETE does (a NULL node
 * records its warning). Nodes before node stay, the last of them ending the
 * list. Before each node it checks the error stack: with an error pending it
 * stops and returns the first node not yet deleted, so a call made while an
 * error is pending deletes nothing and returns node. Returns NULL when all is
 * released. */
QX_API UTL_LIST_NODE *UTL_LIST_CLEAR(UTL_LIST_NODE *node);

/* ---- Copying and searching ---------------------------------------------- */

/* Builds a new list from node to the tail, in order, and returns its head
 * (the caller owns it). Without a copy function every node becomes an owning
 * copy of its bytes, except a zero-count reference, which stays a reference to
 * the same pointer. With one, each new node holds by reference, with the same
 * count, what copy returned for the source's data address and count. With an
 * error pending (on entry or after a step) it stops and returns what it has
 * built (NULL if nothing); an allocation failure adds the append's trace, then
 * "UTL_LIST_COPY", and returns the partial copy. */
QX_API UTL_LIST_NODE *UTL_LIST_COPY(UTL_LIST_NODE *node, UTL_LIST_COPY_FUNC copy);

/* The node index steps after node (0 is node itself). NULL node: FATAL
 * LIST_EMPTY; running off the tail or a negative index: FATAL BAD_ELEMNO;
 * both return NULL. */
QX_API UTL_LIST_NODE *UTL_LIST_ELEMENT(UTL_LIST_NODE *node, int index);

/* Number of nodes from node to the tail; 0 for NULL. Never fails. */
QX_API int UTL_LIST_LENGTH(UTL_LIST_NODE *node);

/* The first node from node towards the tail whose block equals size bytes of
 * data, or NULL. Meant for lists whose nodes all have the same size: a node
 * of another size ends the search as a failure even if a later node matches.
 * Each node is read into a scratch buffer of size bytes as UTL_LIST_RETRIEVE
 * does (a longer node records DATA_OVFL under "UTL_LIST_RETRIEVE"). A NULL
 * node gives NULL with no error. Failures return NULL with the trace
 * "UTL_LIST_MEMBER (n)": -1 scratch buffer refused, 0 error pending on entry,
 * 1 error or size mismatch at a node, 2 error pending at the end.
 * Deliberately kept: on a match and on a clean miss the scratch buffer is not
 * released (the debugging allocator lists it); callers have relied on the
 * allocation pattern, so do not "fix" it. */
QX_API UTL_LIST_NODE *UTL_LIST_MEMBER(UTL_LIST_NODE *node, unsigned int size, const void *data);

/* ---- Navigating and relinking ------------------------------------------- */

/* node->next; NULL gives NULL without an error. */
QX_API UTL_LIST_NODE *UTL_LIST_NEXT(UTL_LIST_NODE *node);

/* node->prev; NULL records FATAL LIST_EMPTY under the routine name
 * "UTL_LIST_TAIL" (kept as it has always been) and returns NULL. */
QX_API UTL_LIST_NODE *UTL_LIST_PREV(UTL_LIST_NODE *node);

/* The last node of the list (linear walk); NULL records FATAL LIST_EMPTY. */
QX_API UTL_LIST_NODE *UTL_LIST_TAIL(UTL_LIST_NODE *node);

/* Cuts the list after a and attaches b there (a->next = b, b->prev = a).
 * Returns a's former successor, which now heads the detached remainder (its
 * prev is NULL). b's former predecessor is deliberately not touched and still
 * points at b. A NULL a does nothing and returns NULL. */
QX_API UTL_LIST_NODE *UTL_LIST_LINK(UTL_LIST_NODE *a, UTL_LIST_NODE *b);

/* Unlinks node from its place (its neighbours are joined) and puts it before
 * target (where 'b' or 'B') or after it ('a' or 'A'). Returns node; moving in
 * front of the head makes node the new head. A NULL target returns node, a
 * NULL node returns target, the same node twice returns it, all unchanged;
 * any other where returns NULL, unchanged and without an error. */
QX_API UTL_LIST_NODE *UTL_LIST_MOVE(UTL_LIST_NODE *target, UTL_LIST_NODE *node, char where);

QX_END_DECLS

#endif /* UTL_LIST_H */
