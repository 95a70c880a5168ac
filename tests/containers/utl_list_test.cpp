// Linked list: linking, copying, the failure table (allocation failures
// injected at every request), and, with the allocator's debug mode counting
// live bytes, block storage and the quirks kept on purpose.
#include "utl_list.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

using Traces = std::vector<std::string>;
using Ints = std::vector<int>;
using Node = UTL_LIST_NODE;

const unsigned char kBytes[40] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,
                                  15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
                                  29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40};

enum Add { kAppend, kInsert, kAppendP, kInsertP };

Node *AddTo(Add how, Node *node, unsigned int count, const void *data) {
  void *p = const_cast<void *>(data);
  return how == kAppend    ? UTL_LIST_APPEND(node, count, data)
         : how == kInsert  ? UTL_LIST_INSERT(node, count, data)
         : how == kAppendP ? UTL_LIST_APPEND_P(node, count, p)
                           : UTL_LIST_INSERT_P(node, count, p);
}

Node *Rewind(Node *node) {
  while (node != nullptr && node->prev != nullptr)
    node = node->prev;
  return node;
}

Node *MakeList(const Ints &values) {
  Node *tail = nullptr;
  for (int v : values)
    tail = UTL_LIST_APPEND(tail, sizeof v, &v);
  return Rewind(tail);
}

// The int values from the head, checking every back link on the way.
Ints Values(Node *node) {
  Ints values;
  for (Node *n = Rewind(node); n != nullptr; n = n->next) {
    if (n->next != nullptr && n->next->prev != n) ADD_FAILURE() << "broken back link";
    values.push_back(-1);
    UTL_LIST_RETRIEVE(n, sizeof(int), &values.back(), nullptr);
  }
  return values;
}

void *Address(Node *node) {
  void *p = nullptr;
  UTL_LIST_RETRIEVE_P(node, &p, nullptr);
  return p;
}

TEST(List, AddingRemovingAndLinkingKeepTheLinksConsistent) {
  Node *head = MakeList({1, 2, 3});
  int v = 4;
  UTL_LIST_APPEND(head->next, sizeof v, &v);  // from the middle: still at the tail
  v = 0;
  Node *new_head = UTL_LIST_INSERT(head, sizeof v, &v);
  EXPECT_EQ(new_head->next, head);
  v = 9;
  UTL_LIST_INSERT(UTL_LIST_ELEMENT(new_head, 3), sizeof v, &v);
  head = new_head;
  EXPECT_EQ(Values(head), (Ints{0, 1, 2, 9, 3, 4}));
  EXPECT_EQ(UTL_LIST_LENGTH(head->next->next), 4);
  EXPECT_EQ(UTL_LIST_TAIL(head->next), UTL_LIST_ELEMENT(head, 5));
  EXPECT_EQ(UTL_LIST_PREV(UTL_LIST_NEXT(head)), head);
  Node *third = UTL_LIST_ELEMENT(head, 2);
  EXPECT_EQ(UTL_LIST_DELETE(head->next), third) << "returns the successor";
  head = UTL_LIST_DELETE(head);
  EXPECT_EQ(UTL_LIST_DELETE(UTL_LIST_TAIL(head)), nullptr);
  EXPECT_EQ(Values(head), (Ints{2, 9, 3}));
  EXPECT_EQ(UTL_LIST_CLEAR(head->next), nullptr);
  EXPECT_EQ(head->next, nullptr) << "the predecessor ends the list";
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  EXPECT_EQ(UTL_LIST_CLEAR(head), head) << "an error pending deletes nothing";
  EXPECT_EQ(qxtest::StackTop(), 0);
  UTL_ERROR_CLEAR();
  UTL_LIST_CLEAR(head);

  Node *a = MakeList({1, 2, 3}), *b = MakeList({7, 8});
  Node *cut = UTL_LIST_LINK(a->next, b->next);
  EXPECT_EQ(Values(a), (Ints{1, 2, 8}));
  EXPECT_EQ(cut->prev, nullptr);
  EXPECT_EQ(Values(cut), Ints{3});
  EXPECT_EQ(b->next, a->next->next) << "b's old predecessor is deliberately untouched";
  EXPECT_EQ(UTL_LIST_LINK(nullptr, b), nullptr);
  b->next = nullptr;
  UTL_LIST_CLEAR(a), UTL_LIST_CLEAR(b), UTL_LIST_CLEAR(cut);

  const std::tuple<int, int, char, Ints> kMoves[] = {
      {0, 3, 'b', {3, 0, 1, 2, 4}}, {1, 3, 'B', {0, 3, 1, 2, 4}}, {4, 0, 'a', {1, 2, 3, 4, 0}},
      {3, 2, 'A', {0, 1, 3, 2, 4}}, {2, 1, 'b', {0, 1, 2, 3, 4}}, {2, 2, 'b', {0, 1, 2, 3, 4}},
      {1, 3, 'x', {0, 1, 2, 3, 4}}};
  for (const auto &[target, moved, where, order] : kMoves) {
    SCOPED_TRACE(where * 100 + target * 10 + moved);
    Node *head = MakeList({0, 1, 2, 3, 4});
    Node *node = UTL_LIST_ELEMENT(head, moved);
    EXPECT_EQ(UTL_LIST_MOVE(UTL_LIST_ELEMENT(head, target), node, where),
              where == 'x' ? nullptr : node);  // refused: nothing changes
    EXPECT_EQ(Values(node), order);
    UTL_LIST_CLEAR(Rewind(node));
  }
  Node *one = MakeList({5});
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

// Clears a copy, first releasing what a copy function made for it.
void ClearCopy(Node *copy, UTL_LIST_COPY_FUNC func) {
  for (Node *n = copy; func != nullptr && n != nullptr; n = n->next)
    UTL_DMEM_FREE(Address(n), "utl_list_test", __LINE__);
  UTL_LIST_CLEAR(copy);
}

TEST(List, CopySharesOnlyZeroLengthReferences) {
  // How each source node is made, and whether a copy without a function shares its block.
  constexpr std::tuple<Add, unsigned int, bool> kRows[] = {{kAppend, 5, false},
                                                           {kAppend, 12, false},
                                                           {kAppendP, 0, true},
                                                           {kAppendP, 5, false},
                                                           {kAppendP, 12, false}};
  Node *source = nullptr;
  for (const auto &[how, count, shared] : kRows)
    source = Rewind(AddTo(how, source, count, kBytes));
  Node *plain = UTL_LIST_COPY(source, nullptr), *dup = UTL_LIST_COPY(source, Duplicate);
  ASSERT_EQ(UTL_LIST_LENGTH(plain), 5);
  ASSERT_EQ(UTL_LIST_LENGTH(dup), 5);
  Node *s = source, *p = plain, *f = dup;
  for (const auto &[how, count, shared] : kRows) {
    SCOPED_TRACE(how * 100 + count);
    EXPECT_EQ(p->size, count | (shared ? UTL_LIST_BY_REFERENCE : 0u));
    EXPECT_EQ(Address(p) == Address(s), shared);
    EXPECT_EQ(f->size, count | UTL_LIST_BY_REFERENCE);
    EXPECT_NE(Address(f), Address(s));
    EXPECT_EQ(std::memcmp(Address(p), kBytes, count), 0);
    EXPECT_EQ(std::memcmp(Address(f), kBytes, count), 0);
    s = s->next, p = p->next, f = f->next;
  }
  EXPECT_EQ(UTL_LIST_PREV(UTL_LIST_TAIL(plain)), UTL_LIST_ELEMENT(plain, 3));
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  EXPECT_EQ(UTL_LIST_COPY(source, nullptr), nullptr) << "an error pending stops the copy";
  UTL_ERROR_CLEAR();
  ClearCopy(dup, Duplicate), ClearCopy(plain, nullptr), ClearCopy(source, nullptr);
}

TEST(List, NullNodesAndBadIndexesRecordTheirErrors) {
  unsigned int n = 77;
  void *p = &n;
  char buf[4];
  Node *three = MakeList({1, 2, 3});
  auto check = [](bool failed, const char *identity, const char *routine) {
    EXPECT_TRUE(failed) << routine;
    EXPECT_EQ(qxtest::TopIdentity(), identity) << routine;
    EXPECT_EQ(qxtest::TopError().traces, Traces{routine});
    UTL_ERROR_CLEAR();
  };
  const char *kFatalEmpty = "UTL/LIST/FATAL/LIST_EMPTY", *kBad = "UTL/LIST/FATAL/BAD_ELEMNO";
  check(UTL_LIST_CHANGE(nullptr, 1, "x") == 0, kFatalEmpty, "UTL_LIST_CHANGE");
  check(UTL_LIST_CHANGE_P(nullptr, 1, p) == 0, "UTL/LIST/INFO/LIST_EMPTY", "UTL_LIST_CHANGE_P");
  check(!UTL_LIST_RETRIEVE(nullptr, 4, buf, &n) && n == 0, kFatalEmpty, "UTL_LIST_RETRIEVE");
  n = 77;
  check(!UTL_LIST_RETRIEVE_P(nullptr, &p, &n) && n == 0 && !p, kFatalEmpty, "UTL_LIST_RETRIEVE_P");
  check(!UTL_LIST_DELETE(nullptr), "UTL/LIST/WARNING/LIST_EMPTY", "UTL_LIST_DELETE");
  check(!UTL_LIST_CLEAR(nullptr), "UTL/LIST/WARNING/LIST_EMPTY", "UTL_LIST_DELETE");
  check(!UTL_LIST_ELEMENT(nullptr, 0), kFatalEmpty, "UTL_LIST_ELEMENT");
  check(!UTL_LIST_ELEMENT(three, 3), kBad, "UTL_LIST_ELEMENT");
  check(!UTL_LIST_ELEMENT(three, -1), kBad, "UTL_LIST_ELEMENT");
  check(!UTL_LIST_TAIL(nullptr), kFatalEmpty, "UTL_LIST_TAIL");
  check(!UTL_LIST_PREV(nullptr), kFatalEmpty, "UTL_LIST_TAIL");  // sic
  EXPECT_EQ(UTL_LIST_NEXT(nullptr), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << "UTL_LIST_NEXT(NULL) is silent";
  UTL_LIST_CLEAR(three);
}

// Runs op with the n-th heap request refused, n = 1, 2, ... until it succeeds
// with no error; failed(n, traces) sees each refusal and releases what it
// left. Returns the n that succeeded.
template <typename Op, typename Failed>
unsigned long InjectUntilSuccess(Op op, Failed failed) {
  for (unsigned long n = 1; n < 50; ++n) {
    const bool ok = (qxtest::FailAllocation(n), op());
    if (ok && !UTL_ERROR_IS_SET()) return n;
    EXPECT_EQ(qxtest::Entry(0).code, "NO_MEMORY") << n;
    failed(n, qxtest::TopError().traces);
    UTL_ERROR_CLEAR();
  }
  return 0;
}

TEST(List, RefusedAllocationsTraceTheCallSiteAndLeakNothing) {
  // The routine's trace at each refused request, in order.
  const std::tuple<Add, unsigned int, Traces> kRows[] = {
      {kAppend, 9, {"UTL_LIST_APPEND (1)", "UTL_LIST_APPEND (0)"}},
      {kAppend, 8, {"UTL_LIST_APPEND (1)"}},
      {kInsert, 30, {"UTL_LIST_INSERT (1)", "UTL_LIST_INSERT (0)"}},
      {kAppendP, 30, {"UTL_LIST_APPEND_P"}},
      {kInsertP, 30, {"UTL_LIST_INSERT_P"}}};
  for (const auto &[how, count, sites] : kRows) {
    SCOPED_TRACE(how);
    Node *head = MakeList({1, 2});
    auto add = [&, how = how, count = count] {
      return AddTo(how, head->next, count, kBytes) != nullptr;
    };
    auto failed = [&, &sites = sites](unsigned long n, const Traces &traces) {
      ASSERT_LE(n, sites.size());
      EXPECT_EQ(traces, (Traces{"UTL_MEM_ALLOC", sites[n - 1]}));
      EXPECT_EQ(Values(head), (Ints{1, 2})) << "a failed addition changed the list";
    };
    EXPECT_EQ(InjectUntilSuccess(add, failed), sites.size() + 1);
    UTL_LIST_CLEAR(Rewind(head));
  }
  Node *node = UTL_LIST_APPEND(nullptr, 20, kBytes);
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_LIST_CHANGE(node, 30, kBytes)), 0);
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_ALLOC", "UTL_LIST_CHANGE (1)"}));
  EXPECT_EQ(node->size, 0u) << "the old storage is gone, the node holds nothing";
  UTL_ERROR_CLEAR();
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_LIST_MEMBER(node, 30, kBytes)), nullptr);
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_ALLOC", "UTL_LIST_MEMBER (-1)"}));
  UTL_ERROR_CLEAR();
  UTL_LIST_DELETE(node);
}

// Without a function each copied node takes its node, then its storage; with
// one, its block, then its node. A refused block leaves a null reference and
// the pending error ends the copy; a refused node releases the block.
TEST(List, CopyReturnsThePartialCopyAfterARefusal) {
  // The append's trace at odd and even refused requests n, if any, and the
  // length of the partial copy for n = 1..6.
  const std::tuple<UTL_LIST_COPY_FUNC, const char *, const char *, Ints> kRows[] = {
      {nullptr, "UTL_LIST_APPEND (1)", "UTL_LIST_APPEND (0)", {0, 0, 1, 1, 2, 2}},
      {Duplicate, nullptr, "UTL_LIST_APPEND_P", {1, 0, 2, 1, 3, 2}}};
  Node *source = nullptr;
  for (int i = 0; i < 3; ++i)
    source = Rewind(UTL_LIST_APPEND(source, 12, kBytes + i));
  for (const auto &[func, odd, even, lengths] : kRows) {
    Node *copy = nullptr;
    auto make = [&, func = func] { return (copy = UTL_LIST_COPY(source, func)) != nullptr; };
    auto failed = [&, func = func, odd = odd, even = even, &lengths = lengths](
                      unsigned long n, const Traces &traces) {
      const char *site = n % 2 ? odd : even;
      const Traces copy_traces = {"UTL_MEM_ALLOC", site ? site : "", "UTL_LIST_COPY"};
      EXPECT_EQ(traces, site ? copy_traces : Traces{"UTL_MEM_ALLOC"}) << n;
      EXPECT_EQ(UTL_LIST_LENGTH(copy), lengths[n - 1]) << n;
      UTL_ERROR_CLEAR();
      ClearCopy(copy, func);
    };
    EXPECT_EQ(InjectUntilSuccess(make, failed), 7u);
    ClearCopy(copy, func);
  }
  UTL_LIST_CLEAR(source);
}

// Debug mode counts live bytes and allocations, and stops the process on a bad
// free (such as freeing a reference). It stays on once set and answers a
// refusal by stopping the process, so these cases come last.
class ListStorage : public ::testing::Test {
 protected:
  void SetUp() override { UTL_DMEM_SET_DEBUG(); }
  unsigned int Grown() const { return UTL_DMEM_ALLOCATED_BYTES() - live_; }
  unsigned int live_ = 0;
};

// Each row adds a node (how, count) next to an anchor, reads it back into a
// buffer of the given size, then changes it by copy or by reference (change_p)
// to new_count bytes, which takes the given number of allocations.
TEST_F(ListStorage, UpToEightCopiedBytesStayInTheNodeLongerOnesGetExactStorage) {
  constexpr std::tuple<Add, unsigned int, unsigned int, bool, unsigned int, unsigned int> kRows[] =
      {{kAppend, 0, 0, false, 30, 1},  {kAppend, 8, 4, true, 12, 0},
       {kAppend, 9, 9, false, 9, 0},   {kInsert, 40, 10, false, 41, 1},
       {kInsert, 20, 64, false, 8, 0}, {kAppend, 30, 30, true, 3, 0},
       {kAppendP, 0, 0, false, 2, 0},  {kAppendP, 40, 64, false, 40, 1},
       {kInsertP, 3, 2, true, 9, 0}};
  unsigned char fresh[41];
  for (int i = 0; i < 41; ++i)
    fresh[i] = static_cast<unsigned char>(200 - i);
  Node *anchor = UTL_LIST_APPEND(nullptr, 0, nullptr);
  live_ = UTL_DMEM_ALLOCATED_BYTES();
  auto expect_holds = [&](Node *node, bool reference, unsigned int count, const void *bytes) {
    const bool owned = !reference && count > 8;
    EXPECT_EQ(Grown(), sizeof(Node) + (owned ? count : 0u)) << "storage of exactly the count";
    EXPECT_EQ(node->size, count | (reference ? UTL_LIST_BY_REFERENCE : 0u));
    EXPECT_TRUE(owned || Address(node) == (reference ? bytes : node->data));
    EXPECT_EQ(std::memcmp(Address(node), bytes, count), 0);
  };
  for (const auto &[how, count, buffer, change_p, new_count, allocations] : kRows) {
    SCOPED_TRACE(how * 100 + count);
    const bool reference = how >= kAppendP;
    unsigned int first = UTL_DMEM_NEXT_NUM();
    Node *node = AddTo(how, anchor, count, kBytes);
    EXPECT_EQ(UTL_DMEM_NEXT_NUM() - first, !reference && count > 8 ? 2u : 1u);
    expect_holds(node, reference, count, kBytes);

    unsigned char out[64];
    std::memset(out, 0xEE, sizeof out);
    unsigned int reported = 0;
    Node *successor = how == kInsert || how == kInsertP ? anchor : nullptr;
    EXPECT_EQ(UTL_LIST_RETRIEVE(node, buffer, out, &reported), successor);
    EXPECT_EQ(reported, count);
    const bool cut = count > buffer;
    const unsigned int copied = cut ? buffer : count;
    EXPECT_EQ(std::memcmp(out, kBytes, copied), 0);
    EXPECT_EQ(out[copied], 0xEE) << "copied past the buffer size";
    EXPECT_EQ(qxtest::TopIdentity(), cut ? "UTL/LIST/WARNING/DATA_OVFL" : "");
    EXPECT_EQ(qxtest::TopError().traces, cut ? Traces{"UTL_LIST_RETRIEVE"} : Traces{});
    UTL_ERROR_CLEAR();

    first = UTL_DMEM_NEXT_NUM();  // a bad free of a reference would stop the process
    EXPECT_EQ(change_p ? UTL_LIST_CHANGE_P(node, new_count, fresh)
                       : UTL_LIST_CHANGE(node, new_count, fresh),
              1);
    EXPECT_EQ(UTL_DMEM_NEXT_NUM() - first, allocations) << "same count: in place";
    expect_holds(node, change_p, new_count, fresh);
    EXPECT_EQ(UTL_LIST_DELETE(node), successor);
    EXPECT_EQ(Grown(), 0u);
  }
  UTL_LIST_DELETE(anchor);
}

TEST_F(ListStorage, MemberStopsAtTheFirstNodeOfAnotherSizeAndKeepsItsScratchOnSuccess) {
  Node *ints = MakeList({4, 5, 6});
  const int six = 6, seven = 7;
  const short two = 2;
  const double wide = 1.5;
  Node *shorter = UTL_LIST_APPEND(nullptr, sizeof two, &two);
  UTL_LIST_APPEND(shorter, sizeof six, &six);  // matches, but is never reached
  Node *longer = UTL_LIST_APPEND(nullptr, sizeof wide, &wide);
  live_ = UTL_DMEM_ALLOCATED_BYTES();
  EXPECT_EQ(UTL_LIST_MEMBER(ints, sizeof six, &six), ints->next->next);
  EXPECT_EQ(Grown(), sizeof six) << "the scratch buffer is kept on a match";
  EXPECT_EQ(UTL_LIST_MEMBER(ints->next, sizeof seven, &seven), nullptr);
  EXPECT_EQ(Grown(), 2 * sizeof six) << "and on a clean miss";
  EXPECT_EQ(UTL_LIST_MEMBER(nullptr, sizeof six, &six), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << "a miss is not an error";
  const std::tuple<Node *, bool, Traces> kRows[] = {
      {shorter, false, {"UTL_ERROR_ADD_TRACE", "UTL_LIST_MEMBER (1)"}},
      {longer, false, {"UTL_LIST_RETRIEVE", "UTL_LIST_MEMBER (1)"}},
      {ints, true, {"caller", "UTL_LIST_MEMBER (0)"}}};
  for (const auto &[list, pending, traces] : kRows) {  // pending: an error on entry
    if (pending) UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
    EXPECT_EQ(UTL_LIST_MEMBER(list, sizeof six, &six), nullptr);
    EXPECT_EQ(qxtest::TopError().traces, traces);
    EXPECT_EQ(Grown(), 2 * sizeof six) << "a failure releases the scratch buffer";
    UTL_ERROR_CLEAR();
  }
  UTL_LIST_CLEAR(ints), UTL_LIST_CLEAR(shorter), UTL_LIST_CLEAR(longer);
}

}  // namespace
