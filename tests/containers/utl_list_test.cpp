// Linked list: linking, copying, refused allocations, block storage and the deliberate quirks.
#include "utl_list.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
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

char kData[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopq";

enum Add { kAppend, kInsert, kAppendP, kInsertP };
const std::function<Node *(Node *, unsigned int, void *)> kAdd[] = {
    UTL_LIST_APPEND, UTL_LIST_INSERT, UTL_LIST_APPEND_P, UTL_LIST_INSERT_P};

Node *Rewind(Node *node) {
  while (node != nullptr && node->prev != nullptr)
    node = node->prev;
  return node;
}

Node *MakeList(Ints values) {
  Node *tail = nullptr;
  for (int &v : values)
    tail = UTL_LIST_APPEND(tail, sizeof v, &v);
  return Rewind(tail);
}

Ints Values(Node *node) {
  Ints values;
  for (Node *n = Rewind(node); n != nullptr; n = n->next) {
    if (n->next != nullptr && n->next->prev != n) ADD_FAILURE() << "broken back link";
    UTL_LIST_RETRIEVE(n, sizeof(int), &values.emplace_back(-1), nullptr);
  }
  return values;
}

void *Address(Node *node) {
  void *p = nullptr;
  UTL_LIST_RETRIEVE_P(node, &p, nullptr);
  return p;
}

void ExpectError(bool ok, const std::string &identity, const Traces &traces) {
  EXPECT_TRUE(ok) << identity;
  EXPECT_EQ(qxtest::TopIdentity(), identity);
  EXPECT_EQ(qxtest::TopError().traces, traces);
  UTL_ERROR_CLEAR();
}

TEST(List, LinksStayConsistentAndNullNodesOrBadIndexesRecordTheirErrors) {
  int v[] = {4, 0, 9};
  Node *head = MakeList({1, 2, 3}), *b = MakeList({7, 8});
  UTL_LIST_APPEND(head->next, sizeof(int), &v[0]);  // from the middle: still at the tail
  head = UTL_LIST_INSERT(head, sizeof(int), &v[1]);
  UTL_LIST_INSERT(UTL_LIST_ELEMENT(head, 3), sizeof(int), &v[2]);
  EXPECT_EQ(Values(head), (Ints{0, 1, 2, 9, 3, 4}));
  EXPECT_EQ(UTL_LIST_PREV(UTL_LIST_TAIL(head->next)), UTL_LIST_ELEMENT(head, 4));
  EXPECT_EQ(UTL_LIST_DELETE(head->next)->prev, head) << "returns the successor";
  head = UTL_LIST_DELETE(head);
  Node *cut = UTL_LIST_LINK(head->next, b->next);
  EXPECT_EQ(std::pair(Values(head), Values(cut)), std::pair(Ints{2, 9, 8}, Ints{3, 4}));
  EXPECT_EQ(b->next, head->next->next) << "b's old predecessor is deliberately untouched";
  EXPECT_TRUE(UTL_LIST_CLEAR(cut->next) == nullptr && cut->next == nullptr) << "cut off";
  UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
  ExpectError(UTL_LIST_CLEAR(cut) == cut, "APP/TEST/ERROR/PENDING", {"caller"});  // deletes none
  EXPECT_TRUE(UTL_LIST_MOVE(nullptr, b, 'b') == b && UTL_LIST_MOVE(b, nullptr, 'b') == b);
  b->next = nullptr;
  UTL_LIST_CLEAR(b), UTL_LIST_CLEAR(cut);
  const std::tuple<int, int, char, Ints> kMoves[] = {
      {0, 3, 'b', {3, 0, 1, 2, 4}}, {1, 3, 'B', {0, 3, 1, 2, 4}}, {4, 0, 'a', {1, 2, 3, 4, 0}},
      {3, 2, 'A', {0, 1, 3, 2, 4}}, {2, 2, 'b', {0, 1, 2, 3, 4}}, {1, 3, 'x', {0, 1, 2, 3, 4}}};
  for (const auto &[to, from, where, order] : kMoves) {
    Node *h = MakeList({0, 1, 2, 3, 4}), *n = UTL_LIST_ELEMENT(h, from);
    EXPECT_EQ(UTL_LIST_MOVE(UTL_LIST_ELEMENT(h, to), n, where), where == 'x' ? nullptr : n);
    EXPECT_EQ(Values(n), order) << where << to << from;
    UTL_LIST_CLEAR(Rewind(n));
  }
  unsigned int n = 77, m = 77;
  void *p = &n;
  const std::string kEmpty = "UTL/LIST/FATAL/LIST_EMPTY";
  ExpectError(!UTL_LIST_CHANGE(nullptr, 1, "x"), kEmpty, {"UTL_LIST_CHANGE"});
  ExpectError(!UTL_LIST_CHANGE_P(nullptr, 1, p), "UTL/LIST/INFO/LIST_EMPTY", {"UTL_LIST_CHANGE_P"});
  ExpectError(!UTL_LIST_RETRIEVE(nullptr, 4, &n, &n) && !n, kEmpty, {"UTL_LIST_RETRIEVE"});
  ExpectError(!UTL_LIST_RETRIEVE_P(nullptr, &p, &m) && !m && !p, kEmpty, {"UTL_LIST_RETRIEVE_P"});
  ExpectError(!UTL_LIST_DELETE(nullptr), "UTL/LIST/WARNING/LIST_EMPTY", {"UTL_LIST_DELETE"});
  ExpectError(!UTL_LIST_CLEAR(nullptr), "UTL/LIST/WARNING/LIST_EMPTY", {"UTL_LIST_DELETE"});
  ExpectError(!UTL_LIST_ELEMENT(nullptr, 0), kEmpty, {"UTL_LIST_ELEMENT"});
  ExpectError(!UTL_LIST_ELEMENT(head, 3), "UTL/LIST/FATAL/BAD_ELEMNO", {"UTL_LIST_ELEMENT"});
  ExpectError(!UTL_LIST_ELEMENT(head, -1), "UTL/LIST/FATAL/BAD_ELEMNO", {"UTL_LIST_ELEMENT"});
  ExpectError(!UTL_LIST_TAIL(nullptr), kEmpty, {"UTL_LIST_TAIL"});
  ExpectError(!UTL_LIST_PREV(nullptr), kEmpty, {"UTL_LIST_TAIL"});  // sic
  EXPECT_FALSE(UTL_LIST_NEXT(nullptr) || UTL_LIST_MEMBER(nullptr, 1, "x") || UTL_ERROR_IS_SET());
  UTL_LIST_CLEAR(head);
}

void *Clone(void *data, unsigned int size) {
  void *copy = UTL_DMEM_ALLOC(size, "utl_list_test", __LINE__);
  return copy != nullptr ? std::memcpy(copy, data, size) : nullptr;
}

void ClearClones(Node *copy) {
  for (Node *n = copy; n != nullptr; n = n->next)
    UTL_DMEM_FREE(Address(n), "utl_list_test", __LINE__);
  if (copy != nullptr) UTL_LIST_CLEAR(copy);
}

TEST(List, RefusalsTraceTheCallSiteLeakNothingAndCopiesShareOnlyZeroLengthReferences) {
  const std::tuple<Add, unsigned int, Traces> kRows[] = {
      {kAppend, 9, {"UTL_LIST_APPEND (1)", "UTL_LIST_APPEND (0)"}},
      {kInsert, 30, {"UTL_LIST_INSERT (1)", "UTL_LIST_INSERT (0)"}},
      {kAppendP, 30, {"UTL_LIST_APPEND_P"}},
      {kInsertP, 30, {"UTL_LIST_INSERT_P"}}};
  for (const auto &[how, count, sites] : kRows) {
    Node *head = MakeList({1, 2});
    for (std::size_t n = 1; n <= sites.size() + 1; ++n) {  // the last request is not refused
      const bool refused = n <= sites.size();
      ExpectError(!(qxtest::FailAllocation(n), kAdd[how](head->next, count, kData)) == refused,
                  refused ? "UTL/MEM/FATAL/NO_MEMORY" : "",
                  refused ? Traces{"UTL_MEM_ALLOC", sites[n - 1]} : Traces{});
      EXPECT_EQ(UTL_LIST_LENGTH(head), refused ? 2 : 3) << "a refusal leaves the list as it was";
    }
    UTL_LIST_CLEAR(head);
  }
  constexpr std::tuple<Add, unsigned int, bool> kSource[] = {
      {kAppend, 12, false}, {kAppendP, 0, true}, {kAppendP, 5, false}, {kAppendP, 12, false}};
  Node *source = nullptr;
  for (const auto &[how, count, shared] : kSource)
    source = Rewind(kAdd[how](source, count, kData));
  Node *plain = UTL_LIST_COPY(source, nullptr), *dup = UTL_LIST_COPY(source, Clone);
  ASSERT_EQ(UTL_LIST_LENGTH(plain) + UTL_LIST_LENGTH(dup), 8);
  for (Node *p = plain, *f = dup; const auto &[how, count, shared] : kSource) {
    EXPECT_EQ(p->size, count | (shared ? UTL_LIST_BY_REFERENCE : 0u)) << how << count;
    EXPECT_EQ(Address(p) == kData, shared);
    EXPECT_EQ(f->size, count | UTL_LIST_BY_REFERENCE);
    EXPECT_EQ(std::memcmp(Address(p), kData, count) | std::memcmp(Address(f), kData, count), 0);
    p = p->next, f = f->next;
  }
  ClearClones(dup), UTL_LIST_CLEAR(plain);
  // A refused function's block leaves a null reference and ends the copy; a refused node frees it.
  dup = (qxtest::FailAllocation(3), UTL_LIST_COPY(source, Clone));
  ExpectError(UTL_LIST_LENGTH(dup) == 2, "UTL/MEM/FATAL/NO_MEMORY", {"UTL_MEM_ALLOC"});
  ClearClones(dup);
  dup = (qxtest::FailAllocation(4), UTL_LIST_COPY(source, Clone));
  ExpectError(UTL_LIST_LENGTH(dup) == 1, "UTL/MEM/FATAL/NO_MEMORY",
              {"UTL_MEM_ALLOC", "UTL_LIST_APPEND_P", "UTL_LIST_COPY"});
  ClearClones(dup);
  ExpectError(!(qxtest::FailAllocation(1), UTL_LIST_CHANGE(source, 30, kData)) && !source->size,
              "UTL/MEM/FATAL/NO_MEMORY", {"UTL_MEM_ALLOC", "UTL_LIST_CHANGE (1)"});
  ExpectError(!(qxtest::FailAllocation(1), UTL_LIST_MEMBER(source, 30, kData)),
              "UTL/MEM/FATAL/NO_MEMORY", {"UTL_MEM_ALLOC", "UTL_LIST_MEMBER (-1)"});
  UTL_LIST_CLEAR(source);
}

TEST(ListDebugHeap, UpToEightCopiedBytesStayInTheNodeAndMemberKeepsItsScratch) {
  UTL_DMEM_SET_DEBUG();  // counts live bytes; stops the process on a bad free or a refusal
  // Added next to an anchor, read into a buffer, changed (ref: by reference) to `to` bytes.
  constexpr std::tuple<Add, unsigned, unsigned, bool, unsigned, unsigned> kRows[] = {
      {kAppend, 8, 4, 0, 9, 1},    {kAppend, 9, 9, 0, 8, 0},     {kInsert, 40, 10, 0, 40, 0},
      {kInsert, 20, 64, 1, 12, 0}, {kAppendP, 40, 64, 0, 41, 1}, {kInsertP, 3, 2, 1, 9, 0}};
  Node *anchor = UTL_LIST_APPEND(nullptr, 0, nullptr);
  unsigned int live = UTL_DMEM_ALLOCATED_BYTES();
  auto grown = [&] { return UTL_DMEM_ALLOCATED_BYTES() - live; };
  for (const auto &[how, count, buffer, ref, to, allocations] : kRows) {
    Node *node = kAdd[how](anchor, count, kData);
    EXPECT_EQ(grown(), sizeof(Node) + (how < kAppendP && count > 8 ? count : 0u)) << how << count;
    std::string out(64, '~');
    unsigned int reported = 0, cut = count > buffer, copied = cut ? buffer : count, first;
    EXPECT_EQ(UTL_LIST_RETRIEVE(node, buffer, out.data(), &reported), node->next) << "successor";
    EXPECT_EQ(out.substr(0, copied + 1), std::string(kData, copied) + '~') << "only what fits";
    ExpectError(reported == count, cut ? "UTL/LIST/WARNING/DATA_OVFL" : "",
                Traces(cut, "UTL_LIST_RETRIEVE"));
    first = UTL_DMEM_NEXT_NUM();
    EXPECT_TRUE(ref ? UTL_LIST_CHANGE_P(node, to, kData + 1)
                    : UTL_LIST_CHANGE(node, to, kData + 1));
    EXPECT_EQ(UTL_DMEM_NEXT_NUM() - first, allocations) << "same count: in place";
    EXPECT_EQ(grown(), sizeof(Node) + (!ref && to > 8 ? to : 0u));
    EXPECT_EQ(std::memcmp(Address(node), kData + 1, to), 0);
    EXPECT_EQ(UTL_LIST_DELETE(node), how == kInsert || how == kInsertP ? anchor : nullptr);
    EXPECT_EQ(grown(), 0u);
  }
  // MEMBER: a node of another size ends the search; the scratch stays on a match or clean miss.
  Node *quad = UTL_LIST_APPEND(anchor, 4, kData + 4), *shorter = UTL_LIST_APPEND(0, 2, kData);
  UTL_LIST_APPEND(quad, 4, kData), UTL_LIST_APPEND(shorter, 4, kData);
  Node *longer = UTL_LIST_APPEND(nullptr, 8, kData);
  live = UTL_DMEM_ALLOCATED_BYTES();
  const std::tuple<Node *, const char *, bool, Node *, Traces, unsigned int> kMembers[] = {
      {quad, kData, false, quad->next, {}, 4},
      {quad, kData + 8, false, nullptr, {}, 8},
      {shorter, kData, false, nullptr, {"UTL_ERROR_ADD_TRACE", "UTL_LIST_MEMBER (1)"}, 8},
      {longer, kData, false, nullptr, {"UTL_LIST_RETRIEVE", "UTL_LIST_MEMBER (1)"}, 8},
      {quad, kData, true, nullptr, {"caller", "UTL_LIST_MEMBER (0)"}, 8}};
  for (const auto &[list, bytes, pending, found, traces, kept] : kMembers) {
    if (pending) UTL_ERROR_SET("APP", "TEST", "ERROR", "PENDING", "caller");
    EXPECT_EQ(UTL_LIST_MEMBER(list, 4, bytes), found);
    EXPECT_EQ(qxtest::TopError().traces, traces);
    EXPECT_EQ(grown(), kept);
    UTL_ERROR_CLEAR();
  }
  UTL_LIST_CLEAR(anchor), UTL_LIST_CLEAR(shorter), UTL_LIST_CLEAR(longer);
}

}  // namespace
