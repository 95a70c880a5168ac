// Linked list: block storage, linking, the failure table (with allocation
// failures injected at every request) and the quirks kept on purpose.
#include "utl_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "error/heap.h"
#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

#if defined(__SANITIZE_ADDRESS__)
#define QX_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_ASAN 1
#endif
#endif
#ifdef QX_ASAN
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void *p);
extern "C" void __lsan_disable(void);
extern "C" void __lsan_enable(void);
#endif

namespace {

using Traces = std::vector<std::string>;
using Node = UTL_LIST_NODE;

// Cases normally run one per process; run together, each starts clean.
struct ClearStack : ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo &) override { UTL_ERROR_CLEAR(); }
};
const bool kListener = (::testing::UnitTest::GetInstance()->listeners().Append(new ClearStack), 1);

const unsigned char kBytes[40] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,
                                  15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
                                  29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40};

enum Add { kAppend, kInsert, kAppendP, kInsertP };

Node *AddTo(Add how, Node *node, unsigned int count, const void *data) {
  void *p = const_cast<void *>(data);
  switch (how) {
    case kAppend:
      return UTL_LIST_APPEND(node, count, data);
    case kInsert:
      return UTL_LIST_INSERT(node, count, data);
    case kAppendP:
      return UTL_LIST_APPEND_P(node, count, p);
    case kInsertP:
      return UTL_LIST_INSERT_P(node, count, p);
  }
  return nullptr;
}

Node *Ints(std::initializer_list<int> values) {
  Node *head = nullptr;
  for (int v : values) {
    Node *made = UTL_LIST_APPEND(head, sizeof v, &v);
    if (head == nullptr) head = made;
  }
  return head;
}

// The int values from the head, checking every back link on the way.
std::vector<int> Values(Node *head) {
  while (head != nullptr && head->prev != nullptr)
    head = head->prev;
  std::vector<int> values;
  for (Node *n = head; n != nullptr; n = n->next) {
    if (n->next != nullptr && n->next->prev != n) ADD_FAILURE() << "broken back link";
    int v = -1;
    UTL_LIST_RETRIEVE(n, sizeof v, &v, nullptr);
    values.push_back(v);
  }
  return values;
}

void *Address(Node *node) {
  void *p = nullptr;
  UTL_LIST_RETRIEVE_P(node, &p, nullptr);
  return p;
}

TEST(List, BlocksUpToEightBytesAreInlineLongerOnesOwnedReferencesKept) {
  struct Row {
    Add how;
    unsigned int count;
    unsigned long requests;  // node, plus owned storage
  };
  constexpr Row kRows[] = {{kAppend, 0, 1},  {kAppend, 8, 1},  {kAppend, 9, 2},   {kInsert, 1, 1},
                           {kInsert, 40, 2}, {kAppendP, 0, 1}, {kAppendP, 40, 1}, {kInsertP, 3, 1}};
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.how * 100 + row.count);
    const bool reference = row.how >= kAppendP;
    const unsigned long before = qx::heap::RequestCount();
    Node *node = AddTo(row.how, nullptr, row.count, kBytes);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(qx::heap::RequestCount() - before, row.requests);
    EXPECT_EQ(node->size, row.count | (reference ? UTL_LIST_BY_REFERENCE : 0u));
    void *at = Address(node);
    if (reference) {
      EXPECT_EQ(at, static_cast<const void *>(kBytes));
    } else if (row.count <= 8) {
      EXPECT_EQ(at, static_cast<void *>(node->data));
    } else {
      EXPECT_NE(at, static_cast<const void *>(kBytes));
#ifdef QX_ASAN
      EXPECT_EQ(__sanitizer_get_allocated_size(at), row.count) << "storage of exactly the count";
#endif
    }
    EXPECT_EQ(std::memcmp(at, kBytes, row.count), 0);
    EXPECT_EQ(UTL_LIST_DELETE(node), nullptr);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(List, RetrieveCutsLongBlocksWarnsAndStillReturnsTheSuccessor) {
  struct Row {
    unsigned int count, buffer;
  };
  constexpr Row kRows[] = {{10, 4}, {10, 10}, {10, 64}, {5, 4}, {5, 0}, {0, 0}};
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.count * 100 + row.buffer);
    UTL_ERROR_CLEAR();
    Node *head = UTL_LIST_APPEND(nullptr, row.count, kBytes);
    Node *second = UTL_LIST_APPEND(head, 1, kBytes);
    unsigned char out[64];
    std::memset(out, 0xEE, sizeof out);
    unsigned int reported = 0;
    EXPECT_EQ(UTL_LIST_RETRIEVE(head, row.buffer, out, &reported), second);
    EXPECT_EQ(reported, row.count);
    const unsigned int copied = std::min(row.count, row.buffer);
    EXPECT_EQ(std::memcmp(out, kBytes, copied), 0);
    EXPECT_EQ(out[copied], 0xEE) << "copied past the buffer size";
    const bool cut = row.count > row.buffer;
    EXPECT_EQ(qxtest::TopIdentity(), cut ? "UTL/LIST/WARNING/DATA_OVFL" : "");
    EXPECT_EQ(qxtest::TopError().traces, cut ? Traces{"UTL_LIST_RETRIEVE"} : Traces{});
    UTL_ERROR_CLEAR();  // a pending warning would stop the clear
    UTL_LIST_CLEAR(head);
  }
}

TEST(List, ChangeReusesEqualStorageAndNeverFreesReferences) {
  struct Row {
    Add first;
    unsigned int old_count, new_count;
    bool by_reference;  // UTL_LIST_CHANGE_P
    unsigned long requests;
  };
  constexpr Row kRows[] = {
      {kAppend, 20, 20, false, 0},  // same count: overwritten in place
      {kAppend, 20, 21, false, 1},  {kAppend, 20, 8, false, 0}, {kAppend, 4, 30, false, 1},
      {kAppendP, 30, 30, false, 1},  // a reference becomes an owned copy
      {kAppendP, 30, 2, false, 0},  {kAppend, 30, 3, true, 0},  {kAppendP, 9, 12, true, 0},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.first * 10000 + row.old_count * 100 + row.new_count);
    unsigned char caller[40], fresh[40];
    std::memcpy(caller, kBytes, sizeof caller);
    for (int i = 0; i < 40; ++i)
      fresh[i] = static_cast<unsigned char>(200 - i);
    Node *node = AddTo(row.first, nullptr, row.old_count, caller);
    void *old_address = Address(node);
    const unsigned long before = qx::heap::RequestCount();
    EXPECT_EQ(row.by_reference ? UTL_LIST_CHANGE_P(node, row.new_count, fresh)
                               : UTL_LIST_CHANGE(node, row.new_count, fresh),
              1);
    EXPECT_EQ(qx::heap::RequestCount() - before, row.requests);
    EXPECT_EQ(node->size, row.new_count | (row.by_reference ? UTL_LIST_BY_REFERENCE : 0u));
    if (row.by_reference) {
      EXPECT_EQ(Address(node), static_cast<void *>(fresh));
    } else if (row.old_count == row.new_count && !row.by_reference && row.first == kAppend) {
      EXPECT_EQ(Address(node), old_address);
    }
    EXPECT_EQ(std::memcmp(Address(node), fresh, row.new_count), 0);
    EXPECT_EQ(std::memcmp(caller, kBytes, sizeof caller), 0) << "referenced data was touched";
    UTL_LIST_DELETE(node);  // the leak checker sees whether old storage was freed
  }
}

TEST(List, AppendInsertDeleteAndClearKeepTheLinksConsistent) {
  Node *head = Ints({1, 2, 3});
  int v = 4;
  UTL_LIST_APPEND(head->next, sizeof v, &v);  // from the middle: still at the tail
  v = 0;
  Node *new_head = UTL_LIST_INSERT(head, sizeof v, &v);
  EXPECT_EQ(new_head->next, head);
  v = 9;
  UTL_LIST_INSERT(UTL_LIST_ELEMENT(new_head, 3), sizeof v, &v);
  head = new_head;
  EXPECT_EQ(Values(head), (std::vector<int>{0, 1, 2, 9, 3, 4}));
  EXPECT_EQ(UTL_LIST_LENGTH(head->next->next), 4);
  EXPECT_EQ(UTL_LIST_TAIL(head->next), UTL_LIST_ELEMENT(head, 5));
  EXPECT_EQ(UTL_LIST_PREV(UTL_LIST_NEXT(head)), head);
  Node *third = UTL_LIST_ELEMENT(head, 2);
  EXPECT_EQ(UTL_LIST_DELETE(head->next), third);  // the successor
  head = UTL_LIST_DELETE(head);
  EXPECT_EQ(UTL_LIST_DELETE(UTL_LIST_TAIL(head)), nullptr);
  EXPECT_EQ(Values(head), (std::vector<int>{2, 9, 3}));
  EXPECT_EQ(UTL_LIST_CLEAR(head->next), nullptr);
  EXPECT_EQ(head->next, nullptr) << "the predecessor ends the list";
  EXPECT_FALSE(UTL_ERROR_IS_SET());

  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  EXPECT_EQ(UTL_LIST_CLEAR(head), head) << "an error pending deletes nothing";
  EXPECT_EQ(qxtest::StackTop(), 0);
  UTL_ERROR_CLEAR();
  UTL_LIST_CLEAR(head);
}

TEST(List, LinkLeavesTheOldPredecessorAndMoveRelinks) {
  Node *a = Ints({1, 2, 3});
  Node *b = Ints({7, 8});
  Node *b2 = b->next;
  Node *cut = UTL_LIST_LINK(a->next, b2);
  EXPECT_EQ(Values(a), (std::vector<int>{1, 2, 8}));
  EXPECT_EQ(Values(cut), (std::vector<int>{3}));
  EXPECT_EQ(cut->prev, nullptr);
  EXPECT_EQ(b->next, b2) << "b's old predecessor is deliberately untouched";
  EXPECT_EQ(UTL_LIST_LINK(nullptr, b), nullptr);
  b->next = nullptr;
  UTL_LIST_CLEAR(a), UTL_LIST_CLEAR(b), UTL_LIST_CLEAR(cut);

  struct Row {
    int target, node;
    char where;
    bool moved;
    std::vector<int> order;
  };
  const Row kRows[] = {
      {0, 3, 'b', true, {3, 0, 1, 2, 4}},  {0, 3, 'B', true, {3, 0, 1, 2, 4}},
      {4, 0, 'a', true, {1, 2, 3, 4, 0}},  {1, 3, 'A', true, {0, 1, 3, 2, 4}},
      {3, 2, 'a', true, {0, 1, 3, 2, 4}},  {2, 1, 'b', true, {0, 1, 2, 3, 4}},
      {2, 2, 'b', true, {0, 1, 2, 3, 4}},  {4, 4, 'z', true, {0, 1, 2, 3, 4}},
      {1, 3, 'x', false, {0, 1, 2, 3, 4}},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(std::string(1, row.where) + std::to_string(row.target * 10 + row.node));
    Node *head = Ints({0, 1, 2, 3, 4});
    Node *node = UTL_LIST_ELEMENT(head, row.node);
    EXPECT_EQ(UTL_LIST_MOVE(UTL_LIST_ELEMENT(head, row.target), node, row.where),
              row.moved ? node : nullptr);
    EXPECT_EQ(Values(head), row.order);
    while (head->prev != nullptr)
      head = head->prev;
    UTL_LIST_CLEAR(head);
  }
  Node *one = Ints({5});
  EXPECT_EQ(UTL_LIST_MOVE(nullptr, one, 'b'), one);
  EXPECT_EQ(UTL_LIST_MOVE(one, nullptr, 'b'), one);
  UTL_LIST_CLEAR(one);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

void *Duplicate(void *data, unsigned int size) {
  void *copy = UTL_DMEM_ALLOC(size, "utl_list_test", __LINE__);
  if (copy != nullptr) std::memcpy(copy, data, size);
  return copy;
}

void FreeReferenced(Node *node) {
  for (; node != nullptr; node = node->next)
    UTL_DMEM_FREE(Address(node), "test", __LINE__);
}

TEST(List, CopySharesOnlyZeroLengthReferences) {
  struct Row {
    Add how;
    unsigned int count, copied_size;  // the copy's size word without a function
  };
  constexpr Row kRows[] = {{kAppend, 5, 5},
                           {kAppend, 12, 12},
                           {kAppendP, 0, UTL_LIST_BY_REFERENCE},
                           {kAppendP, 5, 5},
                           {kAppendP, 12, 12}};
  Node *source = nullptr;
  for (const Row &row : kRows) {
    Node *made = AddTo(row.how, source, row.count, kBytes);
    if (source == nullptr) source = made;
  }
  Node *plain = UTL_LIST_COPY(source, nullptr);
  Node *dup = UTL_LIST_COPY(source, Duplicate);
  ASSERT_EQ(UTL_LIST_LENGTH(plain), 5);
  ASSERT_EQ(UTL_LIST_LENGTH(dup), 5);
  Node *s = source, *p = plain, *f = dup;
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.how * 100 + row.count);
    EXPECT_EQ(p->size, row.copied_size);
    EXPECT_EQ(Address(p) == Address(s), row.count == 0);
    EXPECT_EQ(f->size, row.count | UTL_LIST_BY_REFERENCE);
    EXPECT_NE(Address(f), Address(s));
    EXPECT_EQ(std::memcmp(Address(p), kBytes, row.count), 0);
    EXPECT_EQ(std::memcmp(Address(f), kBytes, row.count), 0);
    s = s->next, p = p->next, f = f->next;
  }
  EXPECT_EQ(UTL_LIST_PREV(UTL_LIST_TAIL(plain)), UTL_LIST_ELEMENT(plain, 3));
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  EXPECT_EQ(UTL_LIST_COPY(source, nullptr), nullptr) << "an error pending stops the copy";
  UTL_ERROR_CLEAR();
  FreeReferenced(dup);
  UTL_LIST_CLEAR(dup), UTL_LIST_CLEAR(plain), UTL_LIST_CLEAR(source);
}

TEST(List, MemberStopsAtTheFirstNodeOfAnotherSize) {
  Node *ints = Ints({4, 5, 6});
  const int six = 6, seven = 7;
#ifdef QX_ASAN
  __lsan_disable();  // the scratch buffer is kept on a match and a clean miss
#endif
  EXPECT_EQ(UTL_LIST_MEMBER(ints, sizeof six, &six), ints->next->next);
  EXPECT_EQ(UTL_LIST_MEMBER(ints->next, sizeof seven, &seven), nullptr);
#ifdef QX_ASAN
  __lsan_enable();
#endif
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << "a clean miss is not an error";
  EXPECT_EQ(UTL_LIST_MEMBER(nullptr, sizeof six, &six), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());

  const short two = 2;
  const double wide = 1.5;
  Node *shorter = UTL_LIST_APPEND(nullptr, sizeof two, &two);
  UTL_LIST_APPEND(shorter, sizeof six, &six);  // matches, but is never reached
  Node *longer = UTL_LIST_APPEND(nullptr, sizeof wide, &wide);
  struct Row {
    Node *list;
    bool pending;
    Traces traces;
  };
  const Row kRows[] = {
      {shorter, false, {"UTL_ERROR_ADD_TRACE", "UTL_LIST_MEMBER (1)"}},
      {longer, false, {"UTL_LIST_RETRIEVE", "UTL_LIST_MEMBER (1)"}},
      {ints, true, {"caller", "UTL_LIST_MEMBER (0)"}},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    if (row.pending) UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
    EXPECT_EQ(UTL_LIST_MEMBER(row.list, sizeof six, &six), nullptr);
    EXPECT_EQ(qxtest::TopError().traces, row.traces);
  }
  UTL_ERROR_CLEAR();
  UTL_LIST_CLEAR(ints), UTL_LIST_CLEAR(shorter), UTL_LIST_CLEAR(longer);
}

TEST(List, NullNodesAndBadIndexesRecordTheirErrors) {
  unsigned int n = 77;
  void *p = &n;
  char buf[4];
  Node *three = Ints({1, 2, 3});
  auto check = [](bool failed, const char *identity, const char *routine) {
    EXPECT_TRUE(failed) << routine;
    EXPECT_EQ(qxtest::TopIdentity(), identity) << routine;
    EXPECT_EQ(qxtest::TopError().traces, Traces{routine});
    UTL_ERROR_CLEAR();
  };
  const char *kFatalEmpty = "UTL/LIST/FATAL/LIST_EMPTY";
  check(UTL_LIST_CHANGE(nullptr, 1, "x") == 0, kFatalEmpty, "UTL_LIST_CHANGE");
  check(UTL_LIST_CHANGE_P(nullptr, 1, p) == 0, "UTL/LIST/INFO/LIST_EMPTY", "UTL_LIST_CHANGE_P");
  check(UTL_LIST_RETRIEVE(nullptr, 4, buf, &n) == nullptr && n == 0, kFatalEmpty,
        "UTL_LIST_RETRIEVE");
  n = 77;
  check(UTL_LIST_RETRIEVE_P(nullptr, &p, &n) == nullptr && n == 0 && p == nullptr, kFatalEmpty,
        "UTL_LIST_RETRIEVE_P");
  check(UTL_LIST_DELETE(nullptr) == nullptr, "UTL/LIST/WARNING/LIST_EMPTY", "UTL_LIST_DELETE");
  check(UTL_LIST_CLEAR(nullptr) == nullptr, "UTL/LIST/WARNING/LIST_EMPTY", "UTL_LIST_DELETE");
  check(UTL_LIST_ELEMENT(nullptr, 0) == nullptr, kFatalEmpty, "UTL_LIST_ELEMENT");
  check(UTL_LIST_TAIL(nullptr) == nullptr, kFatalEmpty, "UTL_LIST_TAIL");
  check(UTL_LIST_PREV(nullptr) == nullptr, kFatalEmpty, "UTL_LIST_TAIL");  // sic
  for (int index : {3, 100, -1}) {
    check(UTL_LIST_ELEMENT(three, index) == nullptr, "UTL/LIST/FATAL/BAD_ELEMNO",
          "UTL_LIST_ELEMENT");
  }
  EXPECT_EQ(UTL_LIST_NEXT(nullptr), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << "UTL_LIST_NEXT(NULL) is silent";
  UTL_LIST_CLEAR(three);
}

// Runs op with the n-th heap request refused, n = 1, 2, ... until it succeeds
// with no error; check sees each failure and releases what it left. Returns
// the n that succeeded.
template <typename Op, typename Check>
unsigned long InjectUntilSuccess(Op op, Check check) {
  for (unsigned long n = 1; n < 50; ++n) {
    UTL_ERROR_CLEAR();
    bool ok;
    {
      qxtest::FailAllocation guard(n);
      ok = op();
    }
    if (ok && !UTL_ERROR_IS_SET()) return n;
    EXPECT_EQ(qxtest::Entry(0).code, "NO_MEMORY") << n;
    check(n, qxtest::TopError().traces);
    UTL_ERROR_CLEAR();
  }
  return 0;
}

TEST(List, RefusedAllocationsTraceTheCallSiteAndLeakNothing) {
  struct Row {
    Add how;
    unsigned int count;
    std::vector<Traces> traces;  // per refused request
  };
  const Row kRows[] = {
      {kAppend,
       9,
       {{"UTL_MEM_ALLOC", "UTL_LIST_APPEND (1)"}, {"UTL_MEM_ALLOC", "UTL_LIST_APPEND (0)"}}},
      {kAppend, 8, {{"UTL_MEM_ALLOC", "UTL_LIST_APPEND (1)"}}},
      {kInsert,
       30,
       {{"UTL_MEM_ALLOC", "UTL_LIST_INSERT (1)"}, {"UTL_MEM_ALLOC", "UTL_LIST_INSERT (0)"}}},
      {kAppendP, 30, {{"UTL_MEM_ALLOC", "UTL_LIST_APPEND_P"}}},
      {kInsertP, 30, {{"UTL_MEM_ALLOC", "UTL_LIST_INSERT_P"}}},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.how);
    Node *head = Ints({1, 2});
    const unsigned long succeeded = InjectUntilSuccess(
        [&] { return AddTo(row.how, head->next, row.count, kBytes) != nullptr; },
        [&](unsigned long n, const Traces &traces) {
          ASSERT_LE(n, row.traces.size());
          EXPECT_EQ(traces, row.traces[n - 1]);
          EXPECT_EQ(Values(head).size(), 2u) << "a failed addition changed the list";
        });
    EXPECT_EQ(succeeded, row.traces.size() + 1);
    while (head->prev != nullptr)
      head = head->prev;
    UTL_LIST_CLEAR(head);
  }

  Node *node = UTL_LIST_APPEND(nullptr, 20, kBytes);
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_LIST_CHANGE(node, 30, kBytes), 0);
  }
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_ALLOC", "UTL_LIST_CHANGE (1)"}));
  EXPECT_EQ(node->size, 0u) << "the old storage is gone, the node holds nothing";
  UTL_ERROR_CLEAR();
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_LIST_MEMBER(node, 30, kBytes), nullptr);
  }
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_ALLOC", "UTL_LIST_MEMBER (-1)"}));
  UTL_ERROR_CLEAR();
  UTL_LIST_DELETE(node);
}

TEST(List, CopyReturnsThePartialCopyAfterARefusal) {
  Node *source = nullptr;
  for (int i = 0; i < 3; ++i) {
    Node *made = UTL_LIST_APPEND(source, 12, kBytes + i);
    if (source == nullptr) source = made;
  }
  // Without a function: node (site 1) then storage (site 0) per source node.
  Node *copy = nullptr;
  auto plain = [&] { return (copy = UTL_LIST_COPY(source, nullptr)) != nullptr; };
  auto plain_failed = [&](unsigned long n, const Traces &traces) {
    const char *site = n % 2 ? "UTL_LIST_APPEND (1)" : "UTL_LIST_APPEND (0)";
    EXPECT_EQ(traces, (Traces{"UTL_MEM_ALLOC", site, "UTL_LIST_COPY"}));
    EXPECT_EQ(UTL_LIST_LENGTH(copy), static_cast<int>((n - 1) / 2)) << "the partial copy";
    UTL_ERROR_CLEAR();
    UTL_LIST_CLEAR(copy);
  };
  EXPECT_EQ(InjectUntilSuccess(plain, plain_failed), 7u);
  UTL_LIST_CLEAR(copy);
  // With one: its block, then the node. A refused node releases the block; a
  // refused block leaves a null reference and the pending error stops there.
  auto with_func = [&] { return (copy = UTL_LIST_COPY(source, Duplicate)) != nullptr; };
  auto with_func_failed = [&](unsigned long n, const Traces &traces) {
    const bool node_refused = n % 2 == 0;
    const Traces node_traces = {"UTL_MEM_ALLOC", "UTL_LIST_APPEND_P", "UTL_LIST_COPY"};
    EXPECT_EQ(traces, node_refused ? node_traces : Traces{"UTL_MEM_ALLOC"});
    EXPECT_EQ(UTL_LIST_LENGTH(copy), static_cast<int>(node_refused ? n / 2 - 1 : n / 2 + 1));
    UTL_ERROR_CLEAR();
    FreeReferenced(copy);
    UTL_LIST_CLEAR(copy);
  };
  EXPECT_EQ(InjectUntilSuccess(with_func, with_func_failed), 7u);
  FreeReferenced(copy);
  UTL_LIST_CLEAR(copy), UTL_LIST_CLEAR(source);
}

}  // namespace
