// utl_list: doubly linked list of copy-or-reference data blocks.
//
// A list is a bare chain of UTL_LIST_NODE records (next, prev, size word, 8
// data bytes); there is no header, so every operation starts from whatever
// node the caller holds. The block rules are the shared ones of data_block.h
// with 8 inline bytes: copies of up to 8 bytes sit in the node, longer copies
// in owned storage of exactly their count, references (bit 31 of the size
// word) are never freed here. next/prev stay mutually consistent except
// after UTL_LIST_LINK, which deliberately leaves the attached node's old
// predecessor pointing at it. Append walks to the tail on every call; callers
// that keep the tail append in constant time, and UTL_LIST_COPY does so.
// UTL_LIST_MEMBER keeps its scratch buffer on a match or a clean miss: that is
// the behaviour callers know, and it is kept on purpose.
#include "utl_list.h"

#include <cstdint>

#include "common/error_record.h"
#include "containers/data_block.h"
#include "utl_byte.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace qx::list {
namespace {

using Rules = BlockRules<8>;

constexpr const char *kTag = "utl_list";

constexpr ErrorRecord kEmptyFatal = {"UTL", "LIST", kFatal, "LIST_EMPTY"};
constexpr ErrorRecord kEmptyWarning = {"UTL", "LIST", kWarning, "LIST_EMPTY"};
constexpr ErrorRecord kEmptyInfo = {"UTL", "LIST", kInfo, "LIST_EMPTY"};
constexpr ErrorRecord kDataOverflow = {"UTL", "LIST", kWarning, "DATA_OVFL"};
constexpr ErrorRecord kBadElement = {"UTL", "LIST", kFatal, "BAD_ELEMNO"};

// Links a fresh, unlinked node into place next to an anchor (which may be
// null: the fresh node then stands alone).
using Placement = void (*)(UTL_LIST_NODE *anchor, UTL_LIST_NODE *fresh);

UTL_LIST_NODE *WalkToTail(UTL_LIST_NODE *node) {
  while (node->next != nullptr)
    node = node->next;
  return node;
}

void PlaceAfter(UTL_LIST_NODE *anchor, UTL_LIST_NODE *fresh) {
  fresh->prev = anchor;
  fresh->next = anchor->next;
  if (anchor->next != nullptr) anchor->next->prev = fresh;
  anchor->next = fresh;
}

void PlaceBefore(UTL_LIST_NODE *anchor, UTL_LIST_NODE *fresh) {
  fresh->next = anchor;
  fresh->prev = anchor->prev;
  if (anchor->prev != nullptr) anchor->prev->next = fresh;
  anchor->prev = fresh;
}

void PlaceAtTail(UTL_LIST_NODE *anchor, UTL_LIST_NODE *fresh) {
  if (anchor != nullptr) PlaceAfter(WalkToTail(anchor), fresh);
}

void PlaceInFront(UTL_LIST_NODE *anchor, UTL_LIST_NODE *fresh) {
  if (anchor != nullptr) PlaceBefore(anchor, fresh);
}

// Joins node's neighbours and leaves node unlinked.
void Detach(UTL_LIST_NODE *node) {
  if (node->prev != nullptr) node->prev->next = node->next;
  if (node->next != nullptr) node->next->prev = node->prev;
  node->next = nullptr;
  node->prev = nullptr;
}

UTL_LIST_NODE *AllocateNode() {
  auto *node = static_cast<UTL_LIST_NODE *>(UTL_DMEM_ALLOC(sizeof(UTL_LIST_NODE), kTag, __LINE__));
  if (node != nullptr) {
    node->next = nullptr;
    node->prev = nullptr;
    node->size = 0;
  }
  return node;
}

// The copying additions (APPEND, INSERT): node first (call site 1), then its
// data storage (call site 0, the node is released again).
UTL_LIST_NODE *AddCopy(UTL_LIST_NODE *anchor, unsigned int size, const void *data, Placement place,
                       const char *routine) {
  UTL_LIST_NODE *fresh = AllocateNode();
  if (fresh == nullptr) {
    TraceCallSite(routine, 1);
    return nullptr;
  }
  if (!Rules::StoreCopy(fresh->size, fresh->data, data, size, kTag, __LINE__)) {
    FreeAfterError(fresh, kTag, __LINE__);
    TraceCallSite(routine, 0);
    return nullptr;
  }
  place(anchor, fresh);
  return fresh;
}

// The by-reference additions (APPEND_P, INSERT_P): only the node is allocated.
UTL_LIST_NODE *AddReference(UTL_LIST_NODE *anchor, unsigned int size, void *data, Placement place,
                            const char *routine) {
  UTL_LIST_NODE *fresh = AllocateNode();
  if (fresh == nullptr) return TraceAndFail(routine, static_cast<UTL_LIST_NODE *>(nullptr));
  Rules::StoreReference(fresh->size, fresh->data, data, size);
  place(anchor, fresh);
  return fresh;
}

// Shared by DELETE and CLEAR: releases owned storage, unlinks and releases
// the node. Returns where a caller walking forward resumes: the successor once
// the node is unlinked, the node itself when it stays linked. On failure the
// trace is added and *ok is false.
UTL_LIST_NODE *RemoveNode(UTL_LIST_NODE *node, bool *ok) {
  *ok = false;
  if (!Rules::Release(node->size, node->data, kTag, __LINE__)) {
    TraceCallSite("UTL_LIST_DELETE", 0);
    return node;
  }
  UTL_LIST_NODE *next = node->next;
  Detach(node);
  if (!UTL_DMEM_FREE(node, kTag, __LINE__)) {
    TraceCallSite("UTL_LIST_DELETE", 1);
    return next;
  }
  *ok = true;
  return next;
}

// One node of UTL_LIST_COPY, appended behind `last` (the copy's tail, so the
// append does not walk).
UTL_LIST_NODE *CopyNode(UTL_LIST_NODE *last, UTL_LIST_NODE *source, UTL_LIST_COPY_FUNC copy) {
  const std::uint32_t count = BlockCount(source->size);
  void *address = Rules::Address(source->size, source->data);
  if (copy != nullptr) {
    void *duplicate = copy(address, count);
    UTL_LIST_NODE *made = UTL_LIST_APPEND_P(last, count, duplicate);
    if (made == nullptr) FreeAfterError(duplicate, kTag, __LINE__);
    return made;
  }
  // Only a zero-length reference is shared; everything else is copied.
  if (IsReference(source->size) && count == 0) return UTL_LIST_APPEND_P(last, 0, address);
  return UTL_LIST_APPEND(last, count, address);
}

UTL_LIST_NODE *MemberFailure(int site, void *scratch) {
  TraceCallSite("UTL_LIST_MEMBER", site);
  if (scratch != nullptr) FreeAfterError(scratch, kTag, __LINE__);
  return nullptr;
}

}  // namespace
}  // namespace qx::list

using namespace qx::list;

extern "C" {

UTL_LIST_NODE *UTL_LIST_APPEND(UTL_LIST_NODE *node, unsigned int size, const void *data) {
  return AddCopy(node, size, data, PlaceAtTail, "UTL_LIST_APPEND");
}

UTL_LIST_NODE *UTL_LIST_APPEND_P(UTL_LIST_NODE *node, unsigned int size, void *data) {
  return AddReference(node, size, data, PlaceAtTail, "UTL_LIST_APPEND_P");
}

UTL_LIST_NODE *UTL_LIST_INSERT(UTL_LIST_NODE *node, unsigned int size, const void *data) {
  return AddCopy(node, size, data, PlaceInFront, "UTL_LIST_INSERT");
}

UTL_LIST_NODE *UTL_LIST_INSERT_P(UTL_LIST_NODE *node, unsigned int size, void *data) {
  return AddReference(node, size, data, PlaceInFront, "UTL_LIST_INSERT_P");
}

int UTL_LIST_CHANGE(UTL_LIST_NODE *node, unsigned int size, const void *data) {
  if (node == nullptr) return qx::Fail(kEmptyFatal, "UTL_LIST_CHANGE", 0);
  if (Rules::OverwriteInPlace(node->size, node->data, data, size)) return 1;
  if (!Rules::Release(node->size, node->data, kTag, __LINE__)) {
    qx::TraceCallSite("UTL_LIST_CHANGE", 0);
    return 0;
  }
  if (!Rules::StoreCopy(node->size, node->data, data, size, kTag, __LINE__)) {
    node->size = 0;  // the old storage is gone; the node holds nothing
    qx::TraceCallSite("UTL_LIST_CHANGE", 1);
    return 0;
  }
  return 1;
}

int UTL_LIST_CHANGE_P(UTL_LIST_NODE *node, unsigned int size, void *data) {
  if (node == nullptr) return qx::Fail(kEmptyInfo, "UTL_LIST_CHANGE_P", 0);
  if (!Rules::Release(node->size, node->data, kTag, __LINE__)) {
    qx::TraceCallSite("UTL_LIST_CHANGE_P", 0);
    return 0;
  }
  Rules::StoreReference(node->size, node->data, data, size);
  return 1;
}

UTL_LIST_NODE *UTL_LIST_RETRIEVE(UTL_LIST_NODE *node, unsigned int buffer_size, void *buffer,
                                 unsigned int *size) {
  if (node == nullptr) {
    if (size != nullptr) *size = 0;
    return qx::Fail(kEmptyFatal, "UTL_LIST_RETRIEVE", static_cast<UTL_LIST_NODE *>(nullptr));
  }
  // A cut copy is a warning, not a failure: the caller still gets the successor.
  if (Rules::Retrieve(node->size, node->data, buffer, buffer_size, size)) {
    qx::RecordError(kDataOverflow, "UTL_LIST_RETRIEVE");
  }
  return node->next;
}

UTL_LIST_NODE *UTL_LIST_RETRIEVE_P(UTL_LIST_NODE *node, void **data, unsigned int *size) {
  if (node == nullptr) {
    if (data != nullptr) *data = nullptr;
    if (size != nullptr) *size = 0;
    return qx::Fail(kEmptyFatal, "UTL_LIST_RETRIEVE_P", static_cast<UTL_LIST_NODE *>(nullptr));
  }
  if (data != nullptr) *data = Rules::Address(node->size, node->data);
  if (size != nullptr) *size = qx::BlockCount(node->size);
  return node->next;
}

UTL_LIST_NODE *UTL_LIST_DELETE(UTL_LIST_NODE *node) {
  if (node == nullptr) {
    return qx::Fail(kEmptyWarning, "UTL_LIST_DELETE", static_cast<UTL_LIST_NODE *>(nullptr));
  }
  bool ok;
  UTL_LIST_NODE *next = RemoveNode(node, &ok);
  return ok ? next : nullptr;
}

UTL_LIST_NODE *UTL_LIST_CLEAR(UTL_LIST_NODE *node) {
  if (node == nullptr) return UTL_ERROR_IS_SET() ? nullptr : UTL_LIST_DELETE(nullptr);
  // A failed removal leaves an error pending, which ends the walk at the
  // first node not deleted.
  while (node != nullptr) {
    if (UTL_ERROR_IS_SET()) return node;
    bool ok;
    node = RemoveNode(node, &ok);
  }
  return nullptr;
}

UTL_LIST_NODE *UTL_LIST_COPY(UTL_LIST_NODE *node, UTL_LIST_COPY_FUNC copy) {
  UTL_LIST_NODE *head = nullptr;
  UTL_LIST_NODE *last = nullptr;
  for (; node != nullptr; node = node->next) {
    if (UTL_ERROR_IS_SET()) break;
    UTL_LIST_NODE *made = CopyNode(last, node, copy);
    if (made == nullptr) {
      UTL_ERROR_ADD_TRACE("UTL_LIST_COPY");
      break;
    }
    if (head == nullptr) head = made;
    last = made;
  }
  return head;
}

UTL_LIST_NODE *UTL_LIST_ELEMENT(UTL_LIST_NODE *node, int index) {
  if (node == nullptr) {
    return qx::Fail(kEmptyFatal, "UTL_LIST_ELEMENT", static_cast<UTL_LIST_NODE *>(nullptr));
  }
  if (index < 0) {
    return qx::Fail(kBadElement, "UTL_LIST_ELEMENT", static_cast<UTL_LIST_NODE *>(nullptr));
  }
  for (int i = 0; i < index; ++i) {
    node = node->next;
    if (node == nullptr) {
      return qx::Fail(kBadElement, "UTL_LIST_ELEMENT", static_cast<UTL_LIST_NODE *>(nullptr));
    }
  }
  return node;
}

int UTL_LIST_LENGTH(UTL_LIST_NODE *node) {
  int count = 0;
  for (; node != nullptr; node = node->next)
    ++count;
  return count;
}

UTL_LIST_NODE *UTL_LIST_MEMBER(UTL_LIST_NODE *node, unsigned int size, const void *data) {
  if (node == nullptr) return nullptr;
  void *scratch = UTL_DMEM_ALLOC(size, kTag, __LINE__);
  if (scratch == nullptr) return MemberFailure(-1, nullptr);
  if (UTL_ERROR_IS_SET()) return MemberFailure(0, scratch);
  for (; node != nullptr; node = node->next) {
    unsigned int count = 0;
    UTL_LIST_RETRIEVE(node, size, scratch, &count);
    // A node of another size ends the search: it is not skipped.
    if (UTL_ERROR_IS_SET() || count != size) return MemberFailure(1, scratch);
    if (size == 0 || (data != nullptr && UTL_BYTE_EQUAL(scratch, data, size))) {
      return node;  // scratch deliberately kept (see the header)
    }
  }
  if (UTL_ERROR_IS_SET()) return MemberFailure(2, scratch);
  return nullptr;  // scratch deliberately kept here too
}

UTL_LIST_NODE *UTL_LIST_NEXT(UTL_LIST_NODE *node) {
  return node == nullptr ? nullptr : node->next;
}

UTL_LIST_NODE *UTL_LIST_PREV(UTL_LIST_NODE *node) {
  // The routine name has always been UTL_LIST_TAIL here; callers match on it.
  if (node == nullptr) {
    return qx::Fail(kEmptyFatal, "UTL_LIST_TAIL", static_cast<UTL_LIST_NODE *>(nullptr));
  }
  return node->prev;
}

UTL_LIST_NODE *UTL_LIST_TAIL(UTL_LIST_NODE *node) {
  if (node == nullptr) {
    return qx::Fail(kEmptyFatal, "UTL_LIST_TAIL", static_cast<UTL_LIST_NODE *>(nullptr));
  }
  return WalkToTail(node);
}

UTL_LIST_NODE *UTL_LIST_LINK(UTL_LIST_NODE *a, UTL_LIST_NODE *b) {
  if (a == nullptr) return nullptr;
  UTL_LIST_NODE *rest = a->next;
  if (rest != nullptr) rest->prev = nullptr;
  a->next = b;
  // b's old predecessor is left pointing at b on purpose.
  if (b != nullptr) b->prev = a;
  return rest;
}

UTL_LIST_NODE *UTL_LIST_MOVE(UTL_LIST_NODE *target, UTL_LIST_NODE *node, char where) {
  if (target == nullptr) return node;
  if (node == nullptr) return target;
  if (target == node) return node;
  const bool before = where == 'b' || where == 'B';
  const bool after = where == 'a' || where == 'A';
  if (!before && !after) return nullptr;
  Detach(node);
  if (before) {
    PlaceBefore(target, node);
  } else {
    PlaceAfter(target, node);
  }
  return node;
}

}  // extern "C"
