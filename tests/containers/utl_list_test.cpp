// Linked list: storage of copies and references, linking, the failure table
// (with allocation failures injected at every request) and the kept quirks.
#include "utl_list.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "error/heap.h"
#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

#if defined(__SANITIZE_ADDRESS__)
#define QX_LIST_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_LIST_TEST_ASAN 1
#endif
#endif

#ifdef QX_LIST_TEST_ASAN
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void *p);
extern "C" void __lsan_disable(void);
extern "C" void __lsan_enable(void);
#endif

namespace {

using Traces = std::vector<std::string>;

// Each case normally runs in its own process; when the executable runs them
// all in one, start every case with an empty error stack.
class EmptyStackAtStart : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo &) override { UTL_ERROR_CLEAR(); }
};
const bool kListenerAdded = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new EmptyStackAtStart);
  return true;
}();

// Exact size of a heap block where the sanitizer can tell; 0 elsewhere.
std::size_t AllocatedSize(const void *p) {
#ifdef QX_LIST_TEST_ASAN
  return __sanitizer_get_allocated_size(p);
#else
  (void)p;
  return 0;
#endif
}

// UTL_LIST_MEMBER keeps its scratch buffer on a match or clean miss on
// purpose; tell the leak checker that this one is expected.
UTL_LIST_NODE *MemberKeepingScratch(UTL_LIST_NODE *node, unsigned int size, const void *data) {
#ifdef QX_LIST_TEST_ASAN
  __lsan_disable();
#endif
  UTL_LIST_NODE *found = UTL_LIST_MEMBER(node, size, data);
#ifdef QX_LIST_TEST_ASAN
  __lsan_enable();
#endif
  return found;
}

UTL_LIST_NODE *Ints(std::initializer_list<int> values) {
  UTL_LIST_NODE *head = nullptr;
  for (int v : values) {
    UTL_LIST_NODE *made = UTL_LIST_APPEND(head, sizeof v, &v);
    if (head == nullptr) head = made;
  }
  return head;
}

// The int values from head to the tail, after checking that every prev
// mirrors its next and that head is the head.
std::vector<int> Values(UTL_LIST_NODE *head) {
  std::vector<int> values;
  EXPECT_TRUE(head == nullptr || head->prev == nullptr) << "not the head";
  for (UTL_LIST_NODE *n = head; n != nullptr; n = n->next) {
    if (n->next != nullptr) {
      EXPECT_EQ(n->next->prev, n) << "broken back link";
    }
    int v = -1;
    UTL_LIST_RETRIEVE(n, sizeof v, &v, nullptr);
    values.push_back(v);
  }
  return values;
}

std::vector<int> V(std::initializer_list<int> v) {
  return v;
}

const unsigned char kBytes[40] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,
                                  15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
                                  29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40};

// ---- Storage of blocks ---------------------------------------------------

enum class Add { kAppend, kInsert, kAppendP, kInsertP };

UTL_LIST_NODE *AddTo(Add how, UTL_LIST_NODE *node, unsigned int count, const void *data) {
  switch (how) {
    case Add::kAppend:
      return UTL_LIST_APPEND(node, count, data);
    case Add::kInsert:
      return UTL_LIST_INSERT(node, count, data);
    case Add::kAppendP:
      return UTL_LIST_APPEND_P(node, count, const_cast<void *>(data));
    case Add::kInsertP:
      return UTL_LIST_INSERT_P(node, count, const_cast<void *>(data));
  }
  return nullptr;
}

TEST(ListStorage, EachAdditionStoresItsBlockByTheRules) {
  struct Row {
    Add how;
    unsigned int count;
    bool reference, inline_bytes;
    unsigned long requests;  // heap requests: node, plus owned storage
  };
  constexpr Row kRows[] = {
      {Add::kAppend, 0, false, true, 1},   {Add::kAppend, 8, false, true, 1},
      {Add::kAppend, 9, false, false, 2},  {Add::kInsert, 1, false, true, 1},
      {Add::kInsert, 40, false, false, 2}, {Add::kAppendP, 0, true, false, 1},
      {Add::kAppendP, 40, true, false, 1}, {Add::kInsertP, 3, true, false, 1},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(static_cast<int>(row.how) * 100 + row.count);
    const unsigned long before = qx::heap::RequestCount();
    UTL_LIST_NODE *node = AddTo(row.how, nullptr, row.count, kBytes);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(qx::heap::RequestCount() - before, row.requests);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->prev, nullptr);
    EXPECT_EQ(node->size, row.count | (row.reference ? UTL_LIST_BY_REFERENCE : 0u));
    void *address = nullptr;
    unsigned int count = 12345;
    EXPECT_EQ(UTL_LIST_RETRIEVE_P(node, &address, &count), nullptr);
    EXPECT_EQ(count, row.count);
    if (row.reference) {
      EXPECT_EQ(address, static_cast<const void *>(kBytes))
          << "a reference is the caller's pointer";
    } else if (row.inline_bytes) {
      EXPECT_EQ(address, static_cast<void *>(node->data));
    } else {
      EXPECT_NE(address, static_cast<const void *>(kBytes));
      if (AllocatedSize(address) != 0) {
        EXPECT_EQ(AllocatedSize(address), row.count) << "owned storage is exactly the count";
      }
    }
    EXPECT_EQ(std::memcmp(address, kBytes, row.count), 0);
    EXPECT_EQ(UTL_LIST_DELETE(node), nullptr);
    EXPECT_FALSE(UTL_ERROR_IS_SET());
  }
}

TEST(ListStorage, RetrieveCutsLongBlocksWithAWarningAndStillReturnsTheSuccessor) {
  struct Row {
    unsigned int count, buffer;
    bool warned;
  };
  constexpr Row kRows[] = {{10, 4, true}, {10, 10, false}, {10, 64, false},
                           {5, 4, true},  {5, 0, true},    {0, 0, false}};
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.count * 100 + row.buffer);
    UTL_ERROR_CLEAR();
    UTL_LIST_NODE *head = UTL_LIST_APPEND(nullptr, row.count, kBytes);
    UTL_LIST_NODE *second = UTL_LIST_APPEND(head, 1, kBytes);
    unsigned char out[64];
    std::memset(out, 0xEE, sizeof out);
    unsigned int reported = 0;
    EXPECT_EQ(UTL_LIST_RETRIEVE(head, row.buffer, out, &reported), second);
    EXPECT_EQ(reported, row.count);
    const unsigned int copied = row.count < row.buffer ? row.count : row.buffer;
    EXPECT_EQ(std::memcmp(out, kBytes, copied), 0);
    EXPECT_EQ(out[copied], 0xEE) << "copied past the buffer size";
    if (row.warned) {
      EXPECT_EQ(qxtest::TopIdentity(), "UTL/LIST/WARNING/DATA_OVFL");
      EXPECT_EQ(qxtest::TopError().traces, Traces{"UTL_LIST_RETRIEVE"});
    } else {
      EXPECT_FALSE(UTL_ERROR_IS_SET());
    }
    UTL_ERROR_CLEAR();
    UTL_LIST_CLEAR(head);
  }
}

TEST(ListStorage, ChangeReusesEqualStorageAndNeverFreesReferences) {
  struct Row {
    Add first;
    unsigned int old_count, new_count;
    unsigned long requests;
    bool same_storage;
  };
  constexpr Row kRows[] = {
      {Add::kAppend, 20, 20, 0, true},    // same count: in place
      {Add::kAppend, 20, 21, 1, false},   // released, then new storage
      {Add::kAppend, 20, 8, 0, false},    // released, now inline
      {Add::kAppend, 4, 30, 1, false},    // inline to owned
      {Add::kAppendP, 30, 30, 1, false},  // reference becomes an owned copy
      {Add::kAppendP, 30, 2, 0, false},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(static_cast<int>(row.first) * 10000 + row.old_count * 100 + row.new_count);
    unsigned char caller[40];
    std::memcpy(caller, kBytes, sizeof caller);
    UTL_LIST_NODE *node = AddTo(row.first, nullptr, row.old_count, caller);
    void *old_address = nullptr;
    UTL_LIST_RETRIEVE_P(node, &old_address, nullptr);
    unsigned char fresh[40];
    for (int i = 0; i < 40; ++i)
      fresh[i] = static_cast<unsigned char>(200 - i);
    const unsigned long before = qx::heap::RequestCount();
    EXPECT_EQ(UTL_LIST_CHANGE(node, row.new_count, fresh), 1);
    EXPECT_EQ(qx::heap::RequestCount() - before, row.requests);
    EXPECT_EQ(node->size, row.new_count) << "a changed node owns its copy";
    void *address = nullptr;
    UTL_LIST_RETRIEVE_P(node, &address, nullptr);
    if (row.same_storage) {
      EXPECT_EQ(address, old_address);
    } else if (row.new_count > 8) {
      EXPECT_NE(address, static_cast<void *>(node->data));
    }
    EXPECT_EQ(std::memcmp(address, fresh, row.new_count), 0);
    EXPECT_EQ(std::memcmp(caller, kBytes, sizeof caller), 0) << "referenced data was touched";
    UTL_LIST_DELETE(node);
  }
}

TEST(ListStorage, ChangePReleasesOwnedStorageAndHoldsThePointer) {
  UTL_LIST_NODE *node = UTL_LIST_APPEND(nullptr, 30, kBytes);
  unsigned char mine[3] = {7, 8, 9};
  EXPECT_EQ(UTL_LIST_CHANGE_P(node, 3, mine), 1);
  EXPECT_EQ(node->size, 3u | UTL_LIST_BY_REFERENCE);
  void *address = nullptr;
  UTL_LIST_RETRIEVE_P(node, &address, nullptr);
  EXPECT_EQ(address, mine);
  UTL_LIST_DELETE(node);  // the leak checker sees whether the 30 bytes were freed
  EXPECT_EQ(mine[0], 7);
}

// ---- Linking ---------------------------------------------------------------

TEST(ListLinks, AppendWalksToTheTailFromAnyNodeAndInsertGoesBefore) {
  UTL_LIST_NODE *head = Ints({1, 2, 3});
  int v = 4;
  UTL_LIST_APPEND(head->next, sizeof v, &v);  // from the middle: still at the tail
  EXPECT_EQ(Values(head), V({1, 2, 3, 4}));
  v = 0;
  UTL_LIST_NODE *new_head = UTL_LIST_INSERT(head, sizeof v, &v);
  EXPECT_EQ(new_head->next, head);
  head = new_head;
  v = 9;
  UTL_LIST_INSERT(head->next->next->next, sizeof v, &v);  // before the 3
  EXPECT_EQ(Values(head), V({0, 1, 2, 9, 3, 4}));
  EXPECT_EQ(UTL_LIST_LENGTH(head), 6);
  EXPECT_EQ(UTL_LIST_LENGTH(head->next->next), 4);
  EXPECT_EQ(UTL_LIST_LENGTH(nullptr), 0);
  EXPECT_EQ(UTL_LIST_TAIL(head->next), UTL_LIST_ELEMENT(head, 5));
  EXPECT_EQ(UTL_LIST_NEXT(head), head->next);
  EXPECT_EQ(UTL_LIST_PREV(head->next), head);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  EXPECT_EQ(UTL_LIST_CLEAR(head), nullptr);
}

TEST(ListLinks, DeleteJoinsNeighboursAndClearKeepsThePredecessors) {
  UTL_LIST_NODE *head = Ints({1, 2, 3, 4, 5});
  UTL_LIST_NODE *third = UTL_LIST_ELEMENT(head, 2);
  EXPECT_EQ(UTL_LIST_DELETE(head->next), third);
  EXPECT_EQ(Values(head), V({1, 3, 4, 5}));
  UTL_LIST_NODE *rest = head->next;
  head = UTL_LIST_DELETE(head);
  EXPECT_EQ(head, rest);
  EXPECT_EQ(UTL_LIST_DELETE(UTL_LIST_TAIL(head)), nullptr);  // the tail has no successor
  EXPECT_EQ(Values(head), V({3, 4}));
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  int v = 6;
  UTL_LIST_APPEND(head, sizeof v, &v);
  EXPECT_EQ(UTL_LIST_CLEAR(head->next), nullptr);
  EXPECT_EQ(Values(head), V({3}));
  EXPECT_EQ(head->next, nullptr);
  UTL_LIST_CLEAR(head);
}

TEST(ListLinks, ClearWithAnErrorPendingDeletesNothing) {
  UTL_LIST_NODE *head = Ints({1, 2});
  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  EXPECT_EQ(UTL_LIST_CLEAR(head), head);
  EXPECT_EQ(UTL_LIST_CLEAR(nullptr), nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "APP/TEST/ERROR/PENDING");
  EXPECT_EQ(qxtest::StackTop(), 0) << "nothing recorded on top";
  UTL_ERROR_CLEAR();
  EXPECT_EQ(Values(head), V({1, 2}));
  UTL_LIST_CLEAR(head);
}

TEST(ListLinks, LinkCutsAfterAAndLeavesBsOldPredecessorAlone) {
  UTL_LIST_NODE *a = Ints({1, 2, 3});
  UTL_LIST_NODE *b = Ints({7, 8});
  UTL_LIST_NODE *b_second = b->next;
  UTL_LIST_NODE *cut = UTL_LIST_LINK(a->next, b_second);
  EXPECT_EQ(Values(a), V({1, 2, 8}));
  EXPECT_EQ(Values(cut), V({3}));
  EXPECT_EQ(b->next, b_second) << "b's old predecessor is deliberately untouched";
  EXPECT_EQ(UTL_LIST_LINK(nullptr, b), nullptr);
  b->next = nullptr;  // detach by hand before releasing both lists
  EXPECT_EQ(UTL_LIST_LINK(UTL_LIST_TAIL(a), nullptr), nullptr);
  UTL_LIST_CLEAR(a);
  UTL_LIST_CLEAR(b);
  UTL_LIST_CLEAR(cut);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(ListLinks, MoveRelinksBeforeOrAfterTheTarget) {
  struct Row {
    int target, node;
    char where;
    bool moved;  // returns the node, else null
    std::vector<int> order;
  };
  const Row kRows[] = {
      {0, 3, 'b', true, {3, 0, 1, 2, 4}},  // in front of the head: the new head
      {0, 3, 'B', true, {3, 0, 1, 2, 4}},  {4, 0, 'a', true, {1, 2, 3, 4, 0}},
      {1, 3, 'A', true, {0, 1, 3, 2, 4}},  {3, 2, 'a', true, {0, 1, 3, 2, 4}},
      {2, 1, 'b', true, {0, 1, 2, 3, 4}},  // already there
      {2, 2, 'b', true, {0, 1, 2, 3, 4}},  // same node
      {4, 4, 'z', true, {0, 1, 2, 3, 4}},  // same node wins over a bad position
      {1, 3, 'x', false, {0, 1, 2, 3, 4}}, {4, 0, 'c', false, {0, 1, 2, 3, 4}},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(std::string(1, row.where) + std::to_string(row.target * 10 + row.node));
    UTL_LIST_NODE *head = Ints({0, 1, 2, 3, 4});
    UTL_LIST_NODE *target = UTL_LIST_ELEMENT(head, row.target);
    UTL_LIST_NODE *node = UTL_LIST_ELEMENT(head, row.node);
    UTL_LIST_NODE *moved = UTL_LIST_MOVE(target, node, row.where);
    EXPECT_EQ(moved, row.moved ? node : nullptr);
    while (head->prev != nullptr)
      head = head->prev;
    EXPECT_EQ(Values(head), row.order);
    EXPECT_FALSE(UTL_ERROR_IS_SET());
    UTL_LIST_CLEAR(head);
  }
  UTL_LIST_NODE *one = Ints({5});
  EXPECT_EQ(UTL_LIST_MOVE(nullptr, one, 'b'), one);
  EXPECT_EQ(UTL_LIST_MOVE(one, nullptr, 'b'), one);
  UTL_LIST_CLEAR(one);
}

// ---- Copy and search ------------------------------------------------------

void *DuplicateBlock(void *data, unsigned int size) {
  void *copy = UTL_DMEM_ALLOC(size, "utl_list_test", __LINE__);
  if (copy != nullptr && size > 0) std::memcpy(copy, data, size);
  return copy;
}

void FreeReferencedBlocks(UTL_LIST_NODE *node) {
  for (; node != nullptr; node = node->next) {
    void *p = nullptr;
    UTL_LIST_RETRIEVE_P(node, &p, nullptr);
    UTL_DMEM_FREE(p, "utl_list_test", __LINE__);
  }
}

TEST(ListCopy, CopiesOwnEverythingExceptZeroLengthReferences) {
  unsigned char caller[40];
  std::memcpy(caller, kBytes, sizeof caller);
  struct Row {
    Add how;
    unsigned int count;
    unsigned int copied_size;  // the copy's size word without a copy function
  };
  constexpr Row kRows[] = {
      {Add::kAppend, 5, 5},  {Add::kAppend, 12, 12},  {Add::kAppendP, 0, UTL_LIST_BY_REFERENCE},
      {Add::kAppendP, 5, 5}, {Add::kAppendP, 12, 12},
  };
  UTL_LIST_NODE *source = nullptr;
  for (const Row &row : kRows) {
    UTL_LIST_NODE *made = AddTo(row.how, source, row.count, caller);
    if (source == nullptr) source = made;
  }
  UTL_LIST_NODE *plain = UTL_LIST_COPY(source, nullptr);
  UTL_LIST_NODE *with_func = UTL_LIST_COPY(source, DuplicateBlock);
  ASSERT_EQ(UTL_LIST_LENGTH(plain), 5);
  ASSERT_EQ(UTL_LIST_LENGTH(with_func), 5);
  UTL_LIST_NODE *s = source, *p = plain, *f = with_func;
  for (const Row &row : kRows) {
    SCOPED_TRACE(static_cast<int>(row.how) * 100 + row.count);
    void *sa, *pa, *fa;
    UTL_LIST_RETRIEVE_P(s, &sa, nullptr);
    UTL_LIST_RETRIEVE_P(p, &pa, nullptr);
    UTL_LIST_RETRIEVE_P(f, &fa, nullptr);
    EXPECT_EQ(p->size, row.copied_size);
    EXPECT_EQ(pa == sa, row.count == 0) << "only zero-length references are shared";
    EXPECT_EQ(f->size, row.count | UTL_LIST_BY_REFERENCE);
    EXPECT_NE(fa, sa);
    EXPECT_EQ(std::memcmp(pa, sa, row.count), 0);
    EXPECT_EQ(std::memcmp(fa, sa, row.count), 0);
    s = s->next, p = p->next, f = f->next;
  }
  EXPECT_EQ(UTL_LIST_PREV(UTL_LIST_TAIL(plain)), UTL_LIST_ELEMENT(plain, 3));
  EXPECT_EQ(UTL_LIST_COPY(nullptr, nullptr), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  EXPECT_EQ(UTL_LIST_COPY(source, nullptr), nullptr) << "an error pending stops the copy";
  UTL_ERROR_CLEAR();
  FreeReferencedBlocks(with_func);
  UTL_LIST_CLEAR(with_func);
  UTL_LIST_CLEAR(plain);
  UTL_LIST_CLEAR(source);
}

TEST(ListMember, FindsEqualBlocksAndStopsAtANodeOfAnotherSize) {
  UTL_LIST_NODE *head = Ints({4, 5, 6});
  const int six = 6, seven = 7;
  EXPECT_EQ(MemberKeepingScratch(head, sizeof six, &six), head->next->next);
  EXPECT_EQ(MemberKeepingScratch(head->next, sizeof seven, &seven), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << "a clean miss is not an error";
  EXPECT_EQ(UTL_LIST_MEMBER(nullptr, sizeof six, &six), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());

  // A shorter node ends the search even though a later node matches.
  const short two = 2;
  UTL_LIST_NODE *mixed = UTL_LIST_APPEND(nullptr, sizeof two, &two);
  UTL_LIST_APPEND(mixed, sizeof six, &six);
  EXPECT_EQ(UTL_LIST_MEMBER(mixed, sizeof six, &six), nullptr);
  EXPECT_EQ(qxtest::TopError().traces.back(), "UTL_LIST_MEMBER (1)");
  UTL_ERROR_CLEAR();
  // A longer node is read cut short and warns under the retrieval's name.
  const double wide = 1.5;
  UTL_LIST_NODE *longer = UTL_LIST_APPEND(nullptr, sizeof wide, &wide);
  EXPECT_EQ(UTL_LIST_MEMBER(longer, sizeof six, &six), nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/LIST/WARNING/DATA_OVFL");
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_LIST_RETRIEVE", "UTL_LIST_MEMBER (1)"}));
  UTL_ERROR_CLEAR();
  // An error pending on entry.
  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  EXPECT_EQ(UTL_LIST_MEMBER(head, sizeof six, &six), nullptr);
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"caller", "UTL_LIST_MEMBER (0)"}));
  UTL_ERROR_CLEAR();
  UTL_LIST_CLEAR(head);
  UTL_LIST_CLEAR(mixed);
  UTL_LIST_CLEAR(longer);
}

// ---- The failure table ------------------------------------------------------

TEST(ListFailures, NullNodesRecordTheirDocumentedErrors) {
  unsigned int count = 77;
  void *data = &count;
  struct Row {
    const char *name;
    bool (*call)(unsigned int *, void **);  // true when the result is the failure value
    const char *identity;
    const char *routine;
  };
  const Row kRows[] = {
      {"change", [](unsigned int *, void **) { return UTL_LIST_CHANGE(nullptr, 1, "x") == 0; },
       "UTL/LIST/FATAL/LIST_EMPTY", "UTL_LIST_CHANGE"},
      {"change_p",
       [](unsigned int *, void **) { return UTL_LIST_CHANGE_P(nullptr, 1, nullptr) == 0; },
       "UTL/LIST/INFO/LIST_EMPTY", "UTL_LIST_CHANGE_P"},
      {"retrieve",
       [](unsigned int *n, void **) {
         char buf[4];
         return UTL_LIST_RETRIEVE(nullptr, 4, buf, n) == nullptr && *n == 0;
       },
       "UTL/LIST/FATAL/LIST_EMPTY", "UTL_LIST_RETRIEVE"},
      {"retrieve_p",
       [](unsigned int *n, void **p) {
         return UTL_LIST_RETRIEVE_P(nullptr, p, n) == nullptr && *n == 0 && *p == nullptr;
       },
       "UTL/LIST/FATAL/LIST_EMPTY", "UTL_LIST_RETRIEVE_P"},
      {"delete", [](unsigned int *, void **) { return UTL_LIST_DELETE(nullptr) == nullptr; },
       "UTL/LIST/WARNING/LIST_EMPTY", "UTL_LIST_DELETE"},
      {"clear", [](unsigned int *, void **) { return UTL_LIST_CLEAR(nullptr) == nullptr; },
       "UTL/LIST/WARNING/LIST_EMPTY", "UTL_LIST_DELETE"},
      {"element", [](unsigned int *, void **) { return UTL_LIST_ELEMENT(nullptr, 0) == nullptr; },
       "UTL/LIST/FATAL/LIST_EMPTY", "UTL_LIST_ELEMENT"},
      {"tail", [](unsigned int *, void **) { return UTL_LIST_TAIL(nullptr) == nullptr; },
       "UTL/LIST/FATAL/LIST_EMPTY", "UTL_LIST_TAIL"},
      {"prev", [](unsigned int *, void **) { return UTL_LIST_PREV(nullptr) == nullptr; },
       "UTL/LIST/FATAL/LIST_EMPTY", "UTL_LIST_TAIL"},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.name);
    UTL_ERROR_CLEAR();
    count = 77;
    data = &count;
    EXPECT_TRUE(row.call(&count, &data));
    EXPECT_EQ(qxtest::TopIdentity(), row.identity);
    EXPECT_EQ(qxtest::TopError().traces, Traces{row.routine});
  }
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_LIST_NEXT(nullptr), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << "UTL_LIST_NEXT(NULL) is silent";
}

TEST(ListFailures, ElementNumbersOutsideTheListAreBad) {
  UTL_LIST_NODE *head = Ints({1, 2, 3});
  for (int index : {3, 4, 100, -1}) {
    SCOPED_TRACE(index);
    UTL_ERROR_CLEAR();
    EXPECT_EQ(UTL_LIST_ELEMENT(head, index), nullptr);
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/LIST/FATAL/BAD_ELEMNO");
    EXPECT_EQ(qxtest::TopError().traces, Traces{"UTL_LIST_ELEMENT"});
  }
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_LIST_ELEMENT(head, 2), head->next->next);
  UTL_LIST_CLEAR(head);
}

// Runs `op` with the n-th heap request failing for n = 1, 2, ... until it
// succeeds; `check` sees each failure (n and the error's trace lines) and must
// release whatever the attempt left behind.
template <typename Op, typename Check>
int InjectUntilSuccess(Op op, Check check) {
  for (unsigned long n = 1; n < 50; ++n) {
    UTL_ERROR_CLEAR();
    bool ok;
    {
      qxtest::FailAllocation guard(n);
      ok = op();
    }
    if (ok && !UTL_ERROR_IS_SET()) return static_cast<int>(n);
    EXPECT_EQ(qxtest::Entry(0).product + "/" + qxtest::Entry(0).code, "UTL/NO_MEMORY") << n;
    check(n, qxtest::TopError().traces);
  }
  ADD_FAILURE() << "never succeeded";
  return 0;
}

TEST(ListFailures, RefusedAllocationsTraceTheCallSiteAndLeakNothing) {
  struct Row {
    const char *name;
    Add how;
    unsigned int count;
    std::vector<Traces> traces;  // per failing request
  };
  const Row kRows[] = {
      {"append owned",
       Add::kAppend,
       9,
       {{"UTL_MEM_ALLOC", "UTL_LIST_APPEND (1)"}, {"UTL_MEM_ALLOC", "UTL_LIST_APPEND (0)"}}},
      {"append inline", Add::kAppend, 8, {{"UTL_MEM_ALLOC", "UTL_LIST_APPEND (1)"}}},
      {"insert owned",
       Add::kInsert,
       30,
       {{"UTL_MEM_ALLOC", "UTL_LIST_INSERT (1)"}, {"UTL_MEM_ALLOC", "UTL_LIST_INSERT (0)"}}},
      {"append_p", Add::kAppendP, 30, {{"UTL_MEM_ALLOC", "UTL_LIST_APPEND_P"}}},
      {"insert_p", Add::kInsertP, 30, {{"UTL_MEM_ALLOC", "UTL_LIST_INSERT_P"}}},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.name);
    UTL_LIST_NODE *head = Ints({1, 2});
    const int attempts = InjectUntilSuccess(
        [&] { return AddTo(row.how, head->next, row.count, kBytes) != nullptr; },
        [&](unsigned long n, const Traces &traces) {
          ASSERT_LE(n, row.traces.size());
          EXPECT_EQ(traces, row.traces[n - 1]);
          EXPECT_EQ(UTL_LIST_LENGTH(head), 2) << "a failed addition changed the list";
        });
    EXPECT_EQ(attempts, static_cast<int>(row.traces.size()) + 1);
    while (head->prev != nullptr)
      head = head->prev;
    UTL_LIST_CLEAR(head);
  }
}

TEST(ListFailures, RefusedChangeStorageLeavesAnEmptyOwningNode) {
  UTL_LIST_NODE *node = UTL_LIST_APPEND(nullptr, 20, kBytes);
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_LIST_CHANGE(node, 30, kBytes), 0);
  }
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_ALLOC", "UTL_LIST_CHANGE (1)"}));
  EXPECT_EQ(node->size, 0u);
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_LIST_DELETE(node), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(ListFailures, RefusedScratchBufferEndsMemberSearch) {
  UTL_LIST_NODE *head = Ints({1});
  const int one = 1;
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_LIST_MEMBER(head, sizeof one, &one), nullptr);
  }
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_ALLOC", "UTL_LIST_MEMBER (-1)"}));
  UTL_ERROR_CLEAR();
  UTL_LIST_CLEAR(head);
}

TEST(ListFailures, CopyReturnsThePartialCopyAfterARefusal) {
  UTL_LIST_NODE *source = nullptr;
  for (int i = 0; i < 3; ++i) {
    UTL_LIST_NODE *made = UTL_LIST_APPEND(source, 12, kBytes + i);
    if (source == nullptr) source = made;
  }
  // Two requests per owned node: node (site 1), then storage (site 0).
  UTL_LIST_NODE *copy = nullptr;
  const int attempts = InjectUntilSuccess(
      [&] { return (copy = UTL_LIST_COPY(source, nullptr)) != nullptr && !UTL_ERROR_IS_SET(); },
      [&](unsigned long n, const Traces &traces) {
        const char *site = n % 2 == 1 ? "UTL_LIST_APPEND (1)" : "UTL_LIST_APPEND (0)";
        EXPECT_EQ(traces, (Traces{"UTL_MEM_ALLOC", site, "UTL_LIST_COPY"}));
        EXPECT_EQ(UTL_LIST_LENGTH(copy), static_cast<int>((n - 1) / 2)) << "partial copy";
        UTL_ERROR_CLEAR();
        UTL_LIST_CLEAR(copy);
      });
  EXPECT_EQ(attempts, 7);
  EXPECT_EQ(UTL_LIST_LENGTH(copy), 3);
  UTL_LIST_CLEAR(copy);

  // With a copy function: its block, then the node; a refused node releases
  // the block. A refused block leaves a null reference and the pending error
  // stops the copy after it.
  const int with_func = InjectUntilSuccess(
      [&] {
        return (copy = UTL_LIST_COPY(source, DuplicateBlock)) != nullptr && !UTL_ERROR_IS_SET();
      },
      [&](unsigned long n, const Traces &traces) {
        if (n % 2 == 0) {
          EXPECT_EQ(traces, (Traces{"UTL_MEM_ALLOC", "UTL_LIST_APPEND_P", "UTL_LIST_COPY"}));
          EXPECT_EQ(UTL_LIST_LENGTH(copy), static_cast<int>(n / 2 - 1));
        } else {
          EXPECT_EQ(traces, Traces{"UTL_MEM_ALLOC"});
          EXPECT_EQ(UTL_LIST_LENGTH(copy), static_cast<int>(n / 2 + 1));
        }
        UTL_ERROR_CLEAR();
        FreeReferencedBlocks(copy);
        UTL_LIST_CLEAR(copy);
      });
  EXPECT_EQ(with_func, 7);
  FreeReferencedBlocks(copy);
  UTL_LIST_CLEAR(copy);
  UTL_LIST_CLEAR(source);
}

}  // namespace
