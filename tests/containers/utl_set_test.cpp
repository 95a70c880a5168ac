// Bit sets: every routine against a plain model (a vector of bools) on random
// sets of many sizes, the documented odd cases, the error records, the file
// and string forms on good and hostile input, and the population-count paths
// against a per-bit reference loop.
#include "utl_set.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <climits>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "containers/popcount.h"
#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"
#include "utl_vector.h"

namespace {

using qxtest::TopError;
using qxtest::TopIdentity;
using Model = std::vector<bool>;

struct SetDeleter {
  void operator()(UTL_SET *set) const { UTL_SET_DESTROY(set); }
};
using SetPtr = std::unique_ptr<UTL_SET, SetDeleter>;

constexpr int kSizes[] = {1,  2,   5,   9,   31,  32,  33,   63,   64,
                          65, 100, 127, 128, 129, 255, 1000, 2048, 2049};

// The members as read straight from the words, failing the test when a bit at
// or above n is set.
Model ModelOf(const UTL_SET *set) {
  const int words = (set->size - 1) / 32 + 1;
  Model m(static_cast<std::size_t>(set->size));
  for (int e = 0; e < words * 32; ++e) {
    const bool bit = (set->words[e / 32] >> (e % 32)) & 1u;
    if (e < set->size)
      m[static_cast<std::size_t>(e)] = bit;
    else
      EXPECT_FALSE(bit) << "bit " << e << " above size " << set->size;
  }
  return m;
}

Model RandomModel(std::mt19937 &rng, int n, double density) {
  std::bernoulli_distribution bit(density);
  Model m(static_cast<std::size_t>(n));
  for (int e = 0; e < n; ++e)
    m[static_cast<std::size_t>(e)] = bit(rng);
  return m;
}

SetPtr SetOf(const Model &m) {
  SetPtr set(UTL_SET_CREATE(static_cast<int>(m.size())));
  for (std::size_t e = 0; e < m.size(); ++e)
    if (m[e]) UTL_SET_INSERT(set.get(), static_cast<int>(e));
  return set;
}

SetPtr SetOfMembers(int n, std::initializer_list<int> members) {
  Model m(static_cast<std::size_t>(n));
  for (int e : members)
    m[static_cast<std::size_t>(e)] = true;
  return SetOf(m);
}

int Count(const Model &m) {
  return static_cast<int>(std::count(m.begin(), m.end(), true));
}

std::string TopTrace(std::size_t i) {
  auto traces = TopError().traces;
  return i < traces.size() ? traces[i] : "<none>";
}

// Each case starts from an empty error stack, also when the whole file runs in
// one process.
struct CleanStack : ::testing::Test {
  void SetUp() override { UTL_ERROR_CLEAR(); }
};
using SetCreate = CleanStack;
using SetModel = CleanStack;
using SetEdges = CleanStack;
using SetForms = CleanStack;
using SetPopcount = CleanStack;

// ---- Creation and storage --------------------------------------------------

TEST_F(SetCreate, StorageAndSizeofFollowTheRecordLayout) {
  struct Row {
    int n, storage_words, sizeof_bytes;
  };
  constexpr Row kRows[] = {{1, 2, 8},   {8, 2, 8},   {9, 2, 9},   {32, 2, 11},
                           {33, 3, 12}, {64, 3, 15}, {65, 4, 16}, {2048, 65, 263}};
  for (const Row &row : kRows) {
    SetPtr set(UTL_SET_CREATE(row.n));
    ASSERT_NE(set, nullptr) << row.n;
    EXPECT_EQ(set->size, row.n);
    EXPECT_EQ(UTL_SET_STORAGE_SIZE(set.get()), row.storage_words) << row.n;
    EXPECT_EQ(UTL_SET_SIZEOF(row.n), row.sizeof_bytes) << row.n;
    EXPECT_TRUE(UTL_SET_EMPTY(set.get()));
  }
  // Truncating division: (0-1)/8 is 0 and (-9-1)/8 is -1.
  EXPECT_EQ(UTL_SET_SIZEOF(0), 8);
  EXPECT_EQ(UTL_SET_SIZEOF(-9), 7);
}

TEST_F(SetCreate, BadSizesAndRefusedAllocationsAreRecorded) {
  for (int n : {0, -1, INT_MIN}) {
    UTL_ERROR_CLEAR();
    EXPECT_EQ(UTL_SET_CREATE(n), nullptr);
    EXPECT_EQ(TopIdentity(), "UTL/SET/FATAL/BAD_SET_SIZE");
    EXPECT_EQ(TopTrace(0), "UTL_SET_CREATE");
  }
  UTL_ERROR_CLEAR();
  {
    qxtest::FailAllocation fail(1);
    EXPECT_EQ(UTL_SET_CREATE(10), nullptr);
  }
  EXPECT_EQ(TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
  EXPECT_EQ(TopError().traces, (std::vector<std::string>{"UTL_MEM_CALLOC", "UTL_SET_CREATE"}));
}

TEST_F(SetCreate, CreatorsTraceTheirOwnNameWhenCreationFails) {
  SetPtr a = SetOfMembers(40, {1, 39});
  SetPtr b = SetOfMembers(40, {2});
  struct Row {
    const char *name;
    UTL_SET *(*call)(const UTL_SET *, const UTL_SET *);
  };
  const Row kRows[] = {
      {"UTL_SET_COPY", [](const UTL_SET *x, const UTL_SET *) { return UTL_SET_COPY(x); }},
      {"UTL_SET_GET", [](const UTL_SET *x, const UTL_SET *) { return UTL_SET_GET(x); }},
      {"UTL_SET_AND", UTL_SET_AND},
      {"UTL_SET_OR", UTL_SET_OR},
      {"UTL_SET_DIFF", UTL_SET_DIFF},
      {"UTL_SET_NOT", [](const UTL_SET *x, const UTL_SET *) { return UTL_SET_NOT(x); }},
      {"UTL_SET_INTERSECT", UTL_SET_INTERSECT},
      {"UTL_SET_EXTEND", [](const UTL_SET *x, const UTL_SET *) { return UTL_SET_EXTEND(x, 3); }},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    {
      qxtest::FailAllocation fail(1);
      EXPECT_EQ(row.call(a.get(), b.get()), nullptr) << row.name;
    }
    EXPECT_EQ(TopError().traces,
              (std::vector<std::string>{"UTL_MEM_CALLOC", "UTL_SET_CREATE", row.name}));
    SetPtr made(row.call(a.get(), b.get()));
    EXPECT_NE(made, nullptr) << row.name;
  }
}

TEST_F(SetCreate, StaticSetLivesInCallerMemory) {
  for (int n : kSizes) {
    std::mt19937 rng(static_cast<unsigned>(n));
    Model m = RandomModel(rng, n, 0.5);
    SetPtr source = SetOf(m);
    std::vector<unsigned char> buffer(UTL_SET_STATIC_BUFFER_SIZE(n) + 16, 0xAB);
    const std::size_t expected = sizeof(void *) + 4u * ((n - 1) / 32 + 2);
    ASSERT_EQ(UTL_SET_STATIC_BUFFER_SIZE(n), expected);
    void *aligned = buffer.data() + (8 - reinterpret_cast<std::uintptr_t>(buffer.data()) % 8) % 8;
    ASSERT_EQ(UTL_SET_CREATE_STATIC(aligned, n, source.get()), 1);
    UTL_SET *set;
    std::memcpy(&set, aligned, sizeof set);
    EXPECT_EQ(reinterpret_cast<unsigned char *>(set),
              static_cast<unsigned char *>(aligned) + sizeof(void *));
    EXPECT_EQ(ModelOf(set), m);
    ASSERT_EQ(UTL_SET_CREATE_STATIC(aligned, n, nullptr), 1);
    EXPECT_EQ(Count(ModelOf(set)), 0);
    // The record ends exactly where the documented buffer size says.
    EXPECT_EQ(static_cast<unsigned char *>(aligned)[expected], 0xAB);
  }
  SetPtr other = SetOfMembers(9, {});
  alignas(8) unsigned char buffer[UTL_SET_STATIC_BUFFER_SIZE(10)];
  EXPECT_EQ(UTL_SET_CREATE_STATIC(buffer, 10, other.get()), 0);
  EXPECT_EQ(TopIdentity(), "UTL/SET/FATAL/DIFF_SIZE");
  EXPECT_EQ(TopTrace(0), "UTL_SET_CREATE_STATIC");
}

TEST_F(SetCreate, StaticCopyClearsStrayBitsOfTheSource) {
  SetPtr source = SetOfMembers(9, {8});
  source->words[0] |= 0xFFFF0000u;  // a damaged source
  alignas(8) unsigned char buffer[UTL_SET_STATIC_BUFFER_SIZE(9)];
  ASSERT_EQ(UTL_SET_CREATE_STATIC(buffer, 9, source.get()), 1);
  UTL_SET *set;
  std::memcpy(&set, buffer, sizeof set);
  EXPECT_EQ(set->words[0], 0x100u);
}

TEST_F(SetCreate, PutCopiesTheWholeRecord) {
  SetPtr set = SetOfMembers(70, {0, 33, 69});
  std::vector<unsigned int> buffer(5, 0xDEADBEEFu);
  EXPECT_EQ(UTL_SET_PUT(set.get(), buffer.data()), 1);
  EXPECT_EQ(buffer, (std::vector<unsigned int>{70, 1u, 2u, 1u << 5, 0xDEADBEEFu}));
}

// ---- Model comparison ------------------------------------------------------

TEST_F(SetModel, QueriesMatchTheModel) {
  std::mt19937 rng(7);
  for (int n : kSizes) {
    for (double density : {0.0, 0.03, 0.5, 0.97, 1.0}) {
      SCOPED_TRACE("n=" + std::to_string(n) + " density=" + std::to_string(density));
      Model m = RandomModel(rng, n, density);
      SetPtr set = SetOf(m);
      ASSERT_EQ(ModelOf(set.get()), m);
      std::vector<int> members, nonmembers;
      for (int e = 0; e < n; ++e)
        (m[e] ? members : nonmembers).push_back(e);
      EXPECT_EQ(UTL_SET_CARDINALITY(set.get()), static_cast<int>(members.size()));
      EXPECT_EQ(UTL_SET_EMPTY(set.get()), members.empty());
      EXPECT_EQ(UTL_SET_NOT_EMPTY(set.get()), !members.empty());
      EXPECT_EQ(UTL_SET_MIN(set.get()), members.empty() ? -1 : members.front());
      EXPECT_EQ(UTL_SET_MAX(set.get()), members.empty() ? -1 : members.back());
      std::vector<int> walked;
      for (int e = UTL_SET_NEXT(set.get(), -1); e != -1; e = UTL_SET_NEXT(set.get(), e))
        walked.push_back(e);
      EXPECT_EQ(walked, members);
      walked.clear();
      for (int e = UTL_SET_NEXT_NONMEMBER(set.get(), -1); e != n;
           e = UTL_SET_NEXT_NONMEMBER(set.get(), e))
        walked.push_back(e);
      EXPECT_EQ(walked, nonmembers);
      for (std::size_t k = 0; k <= members.size(); ++k)
        EXPECT_EQ(UTL_SET_MEMBER_NUMBER(set.get(), static_cast<int>(k + 1)),
                  k < members.size() ? members[k] : -1);
      int below = 0;
      for (int e = 0; e < n; ++e) {
        EXPECT_EQ(UTL_SET_MEMBER(set.get(), e), m[e] ? 1 : 0);
        EXPECT_EQ(UTL_SET_NSMALLER(set.get(), e), below);
        if (m[e]) {
          EXPECT_EQ(UTL_SET_ORDINALITY(set.get(), e), below + 1);
        }
        below += m[e];
      }
      EXPECT_FALSE(UTL_ERROR_IS_SET());
    }
  }
}

TEST_F(SetModel, AlgebraMatchesTheModel) {
  std::mt19937 rng(11);
  for (int n : kSizes) {
    SCOPED_TRACE("n=" + std::to_string(n));
    Model ma = RandomModel(rng, n, 0.4), mb = RandomModel(rng, n, 0.6);
    SetPtr a = SetOf(ma), b = SetOf(mb);
    Model m_and(n), m_or(n), m_diff(n), m_not(n);
    bool disjoint = true;
    for (int e = 0; e < n; ++e) {
      m_and[e] = ma[e] && mb[e];
      m_or[e] = ma[e] || mb[e];
      m_diff[e] = ma[e] && !mb[e];
      m_not[e] = !ma[e];
      disjoint = disjoint && !m_and[e];
    }
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_AND(a.get(), b.get())).get()), m_and);
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_OR(a.get(), b.get())).get()), m_or);
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_DIFF(a.get(), b.get())).get()), m_diff);
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_NOT(a.get())).get()), m_not);
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_INTERSECT(a.get(), b.get())).get()), m_and);
    EXPECT_EQ(UTL_SET_AND_IS_EMPTY(a.get(), b.get()), disjoint);
    struct InPlace {
      int (*op)(UTL_SET *, const UTL_SET *);
      const Model *expected;
    };
    for (InPlace row : {InPlace{UTL_SET_AND_INPLACE, &m_and}, InPlace{UTL_SET_OR_INPLACE, &m_or},
                        InPlace{UTL_SET_DIFF_INPLACE, &m_diff}}) {
      SetPtr target(UTL_SET_COPY(a.get()));
      EXPECT_EQ(row.op(target.get(), b.get()), 1);
      EXPECT_EQ(ModelOf(target.get()), *row.expected);
    }
    SetPtr copy(UTL_SET_GET(b.get()));
    EXPECT_TRUE(UTL_SET_EQUAL(copy.get(), b.get()));
    EXPECT_EQ(UTL_SET_EQUAL(a.get(), b.get()), ma == mb);
    EXPECT_EQ(UTL_SET_COPY_INPLACE(copy.get(), a.get()), 1);
    EXPECT_EQ(ModelOf(copy.get()), ma);
    EXPECT_EQ(UTL_SET_FILL(copy.get()), 1);
    EXPECT_EQ(ModelOf(copy.get()), Model(n, true));
    EXPECT_EQ(UTL_SET_CARDINALITY(copy.get()), n);
    EXPECT_EQ(UTL_SET_CLEAR(copy.get()), 1);
    EXPECT_EQ(ModelOf(copy.get()), Model(n, false));
  }
}

TEST_F(SetModel, ModifyRangeSetsAndClearsClippedRanges) {
  std::mt19937 rng(3);
  for (int n : kSizes) {
    std::uniform_int_distribution<int> pick(-40, n + 40);
    Model m = RandomModel(rng, n, 0.5);
    SetPtr set = SetOf(m);
    for (int round = 0; round < 60; ++round) {
      const int first = pick(rng), last = pick(rng), value = round % 2;
      EXPECT_EQ(UTL_SET_MODIFY_RANGE(set.get(), first, last, value), 1);
      for (int e = std::max(first, 0); e <= std::min(last, n - 1); ++e)
        m[e] = value;
      ASSERT_EQ(ModelOf(set.get()), m) << n << ": " << first << ".." << last << "=" << value;
    }
  }
}

TEST_F(SetModel, AnySizeOperationsExtendTheSmallerOperand) {
  std::mt19937 rng(5);
  struct Row {
    int na, nb;
  };
  constexpr Row kRows[] = {{10, 40}, {40, 10}, {33, 33}, {1, 2049}, {64, 65}};
  for (Row row : kRows) {
    Model ma = RandomModel(rng, row.na, 0.5), mb = RandomModel(rng, row.nb, 0.5);
    SetPtr a = SetOf(ma), b = SetOf(mb);
    const int n = std::max(row.na, row.nb);
    ma.resize(n);
    mb.resize(n);
    Model m_and(n), m_or(n), m_diff(n);
    for (int e = 0; e < n; ++e) {
      m_and[e] = ma[e] && mb[e];
      m_or[e] = ma[e] || mb[e];
      m_diff[e] = ma[e] && !mb[e];
    }
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_AND_ANY_SIZE(a.get(), b.get())).get()), m_and);
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_OR_ANY_SIZE(a.get(), b.get())).get()), m_or);
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_DIFF_ANY_SIZE(a.get(), b.get())).get()), m_diff);
    EXPECT_EQ(a->size, row.na);
    EXPECT_EQ(b->size, row.nb);
  }
}

TEST_F(SetModel, AnySizeFailuresTraceTheStep) {
  SetPtr small = SetOfMembers(10, {1}), large = SetOfMembers(100, {1, 99});
  // Allocation 1 is the temporary extension, allocation 2 the result.
  struct Row {
    int fail_at;
    std::vector<std::string> traces;
  };
  const Row kRows[] = {
      {1, {"UTL_MEM_CALLOC", "UTL_SET_CREATE", "UTL_SET_EXTEND", "UTL_SET_OR_ANY_SIZE (10)"}},
      {2, {"UTL_MEM_CALLOC", "UTL_SET_CREATE", "UTL_SET_OR", "UTL_SET_OR_ANY_SIZE (20)"}},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    qxtest::FailAllocation fail(static_cast<unsigned long>(row.fail_at));
    EXPECT_EQ(UTL_SET_OR_ANY_SIZE(small.get(), large.get()), nullptr);
    EXPECT_EQ(TopError().traces, row.traces);
  }
}

// ---- Documented odd cases ----------------------------------------------------

TEST_F(SetEdges, InsertAnySizeGrowsWithHeadroomAndRefusesElementZero) {
  UTL_SET *set = UTL_SET_CREATE(10);
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(set, 0), nullptr);
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(nullptr, 0), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_SET_INSERT(set, 3);
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(set, 9), set);
  UTL_SET *grown = UTL_SET_INSERT_ANY_SIZE(set, 12);  // set is destroyed
  ASSERT_NE(grown, nullptr);
  EXPECT_EQ(grown->size, 62);
  std::vector<int> members;
  for (int e = UTL_SET_NEXT(grown, -1); e != -1; e = UTL_SET_NEXT(grown, e))
    members.push_back(e);
  EXPECT_EQ(members, (std::vector<int>{3, 9, 12}));
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(grown, -4), grown);
  EXPECT_EQ(TopIdentity(), "UTL/SET/FATAL/OUT_RANGE");
  UTL_SET_DESTROY(grown);

  UTL_SET *fresh = UTL_SET_INSERT_ANY_SIZE(nullptr, 7);
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(fresh->size, 57);
  EXPECT_EQ(UTL_SET_CARDINALITY(fresh), 1);
  EXPECT_TRUE(UTL_SET_MEMBER(fresh, 7));
  UTL_ERROR_CLEAR();
  {
    qxtest::FailAllocation fail(1);
    EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(fresh, 100), nullptr);  // fresh stays the caller's
  }
  EXPECT_EQ(TopTrace(3), "UTL_SET_INSERT_ANY_SIZE (10)");
  EXPECT_TRUE(UTL_SET_MEMBER(fresh, 7));
  UTL_SET_DESTROY(fresh);
}

TEST_F(SetEdges, TanimotoAndCosineRules) {
  struct Row {
    int na, nb;
    std::vector<int> a, b;
    int common, union_count;
    double tanimoto, cosine;
    int cosine_result;
  };
  const Row kRows[] = {
      {20, 20, {}, {}, 0, 0, 1.0, 1.0, 1},
      {20, 20, {}, {3}, 0, 1, 0.0, 0.0, 1},
      {20, 20, {3}, {}, 0, 1, 0.0, 0.0, 1},
      {20, 20, {1, 2, 3}, {2, 3, 4, 5}, 2, 5, 0.4, 2 / std::sqrt(12.0), 1},
      {64, 64, {0, 63}, {0, 63}, 2, 2, 1.0, 1.0, 1},
      {20, 21, {1}, {1}, -7, -1, -7.0, -7.0, 0},
  };
  for (const Row &row : kRows) {
    Model ma(row.na), mb(row.nb);
    for (int e : row.a)
      ma[e] = true;
    for (int e : row.b)
      mb[e] = true;
    SetPtr a = SetOf(ma), b = SetOf(mb);
    int common = -7, union_count = -7;
    double t = -7.0, c = -7.0;
    const int result = UTL_SET_TANIMOTO(a.get(), b.get(), &common, &union_count, &t);
    EXPECT_EQ(result, row.union_count < 0 ? 0 : row.union_count);
    EXPECT_EQ(common, row.common);
    EXPECT_EQ(union_count, row.union_count);
    EXPECT_DOUBLE_EQ(t, row.tanimoto);
    EXPECT_EQ(UTL_SET_COSINE(a.get(), b.get(), &c), row.cosine_result);
    EXPECT_DOUBLE_EQ(c, row.cosine);
    EXPECT_FALSE(UTL_ERROR_IS_SET());
  }
}

TEST_F(SetEdges, IterationEnds) {
  SetPtr empty = SetOfMembers(10, {});
  SetPtr full(UTL_SET_CREATE(10));
  UTL_SET_FILL(full.get());
  SetPtr last = SetOfMembers(10, {9});
  struct Row {
    const UTL_SET *set;
    int e, next, next_nonmember;
  };
  const Row kRows[] = {
      {empty.get(), -1, -1, 0}, {empty.get(), 9, -1, 10}, {empty.get(), 8, -1, 9},
      {full.get(), -1, 0, 10},  {full.get(), 4, 5, 10},   {full.get(), 9, -1, 10},
      {full.get(), 20, -1, 10}, {last.get(), 8, 9, 10},   {last.get(), -5, 9, 0},
      {nullptr, 1, -1, -1},
  };
  for (const Row &row : kRows) {
    EXPECT_EQ(UTL_SET_NEXT(row.set, row.e), row.next) << row.e;
    EXPECT_EQ(UTL_SET_NEXT_NONMEMBER(row.set, row.e), row.next_nonmember) << row.e;
  }
  EXPECT_EQ(UTL_SET_MEMBER_NUMBER(full.get(), 0), -1);
  EXPECT_EQ(UTL_SET_MEMBER_NUMBER(full.get(), 11), -1);
}

TEST_F(SetEdges, RangeErrorsAndWarnings) {
  SetPtr a = SetOfMembers(10, {2}), b = SetOfMembers(11, {});
  UTL_SET *x = a.get(), *y = b.get();
  auto made = [](UTL_SET *set) { return SetPtr(set) != nullptr ? 1 : 0; };
  struct Row {
    const char *what;
    std::function<int()> call;
    int expected;
    const char *identity, *routine;
  };
  const Row kRows[] = {
      {"insert 10", [&] { return UTL_SET_INSERT(x, 10); }, 0, "UTL/SET/FATAL/OUT_RANGE",
       "UTL_SET_INSERT"},
      {"delete -1", [&] { return UTL_SET_DELETE(x, -1); }, 0, "UTL/SET/FATAL/OUT_RANGE",
       "UTL_SET_DELETE"},
      {"member -1", [&] { return UTL_SET_MEMBER(x, -1); }, 0, "", ""},
      {"member 10", [&] { return UTL_SET_MEMBER(x, 10); }, 0, "", ""},
      {"ordinality of a non-member", [&] { return UTL_SET_ORDINALITY(x, 3); }, 0,
       "UTL/SET/WARNING/ILLEGAL_VALUE", "UTL_SET_ORDINALITY"},
      {"ordinality 10", [&] { return UTL_SET_ORDINALITY(x, 10); }, 0,
       "UTL/SET/WARNING/ILLEGAL_VALUE", "UTL_SET_ORDINALITY"},
      {"ordinality 2", [&] { return UTL_SET_ORDINALITY(x, 2); }, 1, "", ""},
      {"nsmaller -1", [&] { return UTL_SET_NSMALLER(x, -1); }, -1, "UTL/SET/WARNING/ILLEGAL_VALUE",
       "UTL_SET_ORDINALITY"},
      {"nsmaller 10", [&] { return UTL_SET_NSMALLER(x, 10); }, -1, "UTL/SET/WARNING/ILLEGAL_VALUE",
       "UTL_SET_ORDINALITY"},
      {"nsmaller 0", [&] { return UTL_SET_NSMALLER(x, 0); }, 0, "", ""},
      {"nsmaller 9", [&] { return UTL_SET_NSMALLER(x, 9); }, 1, "", ""},
      {"extend -1", [&] { return made(UTL_SET_EXTEND(x, -1)); }, 0, "UTL/SET/WARNING/ILLEGAL_VALUE",
       "UTL_SET_EXTEND"},
      {"extend past the int range", [&] { return made(UTL_SET_EXTEND(x, INT_MAX)); }, 0,
       "UTL/SET/FATAL/BAD_SET_SIZE", "UTL_SET_CREATE"},
      {"and", [&] { return made(UTL_SET_AND(x, y)); }, 0, "UTL/SET/FATAL/DIFF_SIZE", "UTL_SET_AND"},
      {"or", [&] { return made(UTL_SET_OR(x, y)); }, 0, "UTL/SET/FATAL/DIFF_SIZE", "UTL_SET_OR"},
      {"diff", [&] { return made(UTL_SET_DIFF(x, y)); }, 0, "UTL/SET/FATAL/DIFF_SIZE",
       "UTL_SET_DIFF"},
      {"and in place", [&] { return UTL_SET_AND_INPLACE(x, y); }, 0, "UTL/SET/FATAL/DIFF_SIZE",
       "UTL_SET_AND_INPLACE"},
      {"or in place", [&] { return UTL_SET_OR_INPLACE(x, y); }, 0, "UTL/SET/FATAL/DIFF_SIZE",
       "UTL_SET_OR_INPLACE"},
      {"diff in place", [&] { return UTL_SET_DIFF_INPLACE(x, y); }, 0, "UTL/SET/FATAL/DIFF_SIZE",
       "UTL_SET_DIFF_INPLACE"},
      {"copy in place", [&] { return UTL_SET_COPY_INPLACE(x, y); }, 0, "UTL/SET/FATAL/DIFF_SIZE",
       "UTL_SET_COPY_INPLACE"},
      {"intersect of different sizes",
       [&] { return UTL_SET_CARDINALITY(SetPtr(UTL_SET_INTERSECT(y, x)).get()) + 10; }, 10, "", ""},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    EXPECT_EQ(row.call(), row.expected) << row.what;
    EXPECT_EQ(TopIdentity(), row.identity) << row.what;
    if (*row.routine != '\0') {
      EXPECT_EQ(TopTrace(0), row.routine) << row.what;
    }
  }
  EXPECT_EQ(ModelOf(x), ModelOf(SetOfMembers(10, {2}).get()));  // failures changed nothing
}

// ---- String and file forms ---------------------------------------------------

TEST_F(SetForms, HexadecimalString) {
  struct Row {
    int n;
    std::vector<int> members;
    const char *text;
  };
  const Row kRows[] = {
      {5, {4}, "08"}, {8, {4, 5, 6, 7}, "0F"},   {1, {0}, "8"},           {4, {0, 3}, "9"},
      {6, {5}, "04"}, {32, {0, 31}, "80000001"}, {33, {32}, "000000008"}, {12, {1, 6, 11}, "421"},
  };
  for (const Row &row : kRows) {
    Model m(row.n);
    for (int e : row.members)
      m[e] = true;
    SetPtr set = SetOf(m);
    char *text = UTL_SET_TO_STRING(set.get());
    EXPECT_STREQ(text, row.text);
    SetPtr back(UTL_SET_CREATE(row.n));
    UTL_SET_FILL(back.get());
    EXPECT_EQ(UTL_SET_FROM_STRING(text, back.get()), 1);
    EXPECT_EQ(ModelOf(back.get()), m) << row.text;
    UTL_DMEM_FREE(text, "test", __LINE__);
  }
}

TEST_F(SetForms, FromStringRejectsWhatDoesNotFit) {
  struct Row {
    const char *text;
    int result;
    std::vector<int> members;  // afterwards
    const char *identity;
  };
  const Row kRows[] = {
      {"0F", 1, {4, 5, 6, 7}, ""},
      {"0f", 1, {4, 5, 6, 7}, ""},
      {"0F0", 1, {4, 5, 6, 7}, ""},  // a zero digit past the end inserts nothing
      {"", 1, {}, ""},
      {"A1", 1, {0, 2, 7}, ""},
      {"801", 0, {0}, "UTL/SET/FATAL/OUT_RANGE"},
      {"0G", 0, {1}, "UTL/SET/FATAL/ILLEGAL_VALUE"},  // unchanged
      {"1 ", 0, {1}, "UTL/SET/FATAL/ILLEGAL_VALUE"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    SetPtr set = SetOfMembers(8, {1});
    EXPECT_EQ(UTL_SET_FROM_STRING(row.text, set.get()), row.result) << row.text;
    EXPECT_EQ(TopIdentity(), row.identity) << row.text;
    Model m(8);
    for (int e : row.members)
      m[e] = true;
    EXPECT_EQ(ModelOf(set.get()), m) << row.text;
  }
}

std::string Slurp(std::FILE *f) {
  std::string text;
  std::rewind(f);
  for (int c; (c = std::getc(f)) != EOF;)
    text += static_cast<char>(c);
  return text;
}

std::FILE *FileWith(const std::string &bytes) {
  std::FILE *f = std::tmpfile();
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::rewind(f);
  return f;
}

std::string Repeat(const std::string &s, int times) {
  std::string out;
  for (int i = 0; i < times; ++i)
    out += s;
  return out;
}

TEST_F(SetForms, TextFormLayout) {
  struct Row {
    int n;
    std::vector<int> members;
    std::string text;
  };
  const Row kRows[] = {
      {9, {0, 8}, "9\n01 01 \n"},
      {1, {0}, "1\n01 \n"},
      {5, {4}, "5\n10 \n"},
      {24, {23}, "24\n00 00 80 \n"},
      {33, {0, 31, 32}, "33\n01 00 00 80 01 \n"},
      {160, {}, "160\n" + Repeat("00 ", 20) + "\n"},
      {161, {160}, "161\n" + Repeat("00 ", 20) + "\n01 \n"},
  };
  for (const Row &row : kRows) {
    Model m(row.n);
    for (int e : row.members)
      m[e] = true;
    SetPtr set = SetOf(m);
    std::FILE *f = std::tmpfile();
    EXPECT_EQ(UTL_SET_ASCII_WRITE(f, set.get()), 1);
    EXPECT_EQ(Slurp(f), row.text);
    std::rewind(f);
    SetPtr back(UTL_SET_ASCII_READ(f));
    ASSERT_NE(back, nullptr) << row.n;
    EXPECT_EQ(ModelOf(back.get()), m);
    std::fclose(f);
  }
}

TEST_F(SetForms, BothFileFormsRoundTripSizesOneToHundred) {
  std::mt19937 rng(17);
  for (int n = 1; n <= 100; ++n) {
    Model m = RandomModel(rng, n, 0.5);
    SetPtr set = SetOf(m);
    std::FILE *f = std::tmpfile();
    ASSERT_EQ(UTL_SET_WRITE(f, set.get()), 1);
    ASSERT_EQ(UTL_SET_ASCII_WRITE(f, set.get()), 1);
    ASSERT_EQ(UTL_SET_WRITE(f, set.get()), 1);
    std::rewind(f);
    SetPtr binary(UTL_SET_READ(f, 0));
    SetPtr text(UTL_SET_ASCII_READ(f));
    ASSERT_NE(binary, nullptr);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(ModelOf(binary.get()), m);
    EXPECT_EQ(ModelOf(text.get()), m);
    std::fclose(f);

    // The same binary record written on a host of the other byte order.
    std::string swapped(reinterpret_cast<const char *>(set.get()), 4u * ((n - 1) / 32 + 2));
    for (std::size_t i = 0; i < swapped.size(); i += 4)
      std::reverse(&swapped[i], &swapped[i + 4]);
    std::FILE *g = FileWith(swapped);
    SetPtr from_other(UTL_SET_READ(g, 1));
    ASSERT_NE(from_other, nullptr);
    EXPECT_EQ(ModelOf(from_other.get()), m);
    std::fclose(g);
  }
}

std::string Word(std::uint32_t w) {
  return std::string(reinterpret_cast<const char *>(&w), 4);
}

TEST_F(SetForms, HostileBinaryFilesFailCleanly) {
  struct Row {
    const char *what;
    std::string bytes;
    int swap;
    const char *identity, *last_trace;
  };
  const Row kRows[] = {
      {"empty", "", 0, "UTL/FILES/WARNING/END_OF_FILE", "UTL_SET_READ (10)"},
      {"half a size", "\x09\x00", 0, "UTL/FILES/WARNING/END_OF_FILE", "UTL_SET_READ (10)"},
      {"size 0", Word(0), 0, "UTL/SET/FATAL/BAD_SET_SIZE", "UTL_SET_READ (15)"},
      {"negative size", Word(0xFFFFFFFBu), 0, "UTL/SET/FATAL/BAD_SET_SIZE", "UTL_SET_READ (15)"},
      {"swapped to negative", Word(0x80u), 1, "UTL/SET/FATAL/BAD_SET_SIZE", "UTL_SET_READ (15)"},
      {"absurd size", Word(0x7FFFFFFFu) + Word(1) + Word(2), 0, "UTL/FILES/WARNING/END_OF_FILE",
       "UTL_SET_READ (20)"},
      {"absurd swapped size", Word(0xFFFFFF7Fu) + Word(1), 1, "UTL/FILES/WARNING/END_OF_FILE",
       "UTL_SET_READ (20)"},
      {"one word short", Word(100) + Word(1) + Word(2) + Word(3), 0,
       "UTL/FILES/WARNING/END_OF_FILE", "UTL_SET_READ (20)"},
      {"no words", Word(1), 0, "UTL/FILES/WARNING/END_OF_FILE", "UTL_SET_READ (20)"},
  };
  for (const Row &row : kRows) {
    for (bool regular : {true, false}) {
      SCOPED_TRACE(std::string(row.what) + (regular ? " (file)" : " (memory stream)"));
      UTL_ERROR_CLEAR();
      std::string bytes = row.bytes;
      std::FILE *f = regular ? FileWith(bytes)
                             : fmemopen(bytes.empty() ? nullptr : bytes.data(), bytes.size(), "rb");
      if (f == nullptr) continue;  // fmemopen of nothing is not portable
      const unsigned long requests = qx::heap::RequestCount();
      EXPECT_EQ(UTL_SET_READ(f, row.swap), nullptr);
      EXPECT_EQ(TopIdentity(), row.identity);
      auto traces = TopError().traces;
      ASSERT_FALSE(traces.empty());
      EXPECT_EQ(traces.back(), row.last_trace);
      if (regular) {
        EXPECT_LE(qx::heap::RequestCount() - requests, 1u);  // never the absurd size
      }
      std::fclose(f);
    }
  }
}

TEST_F(SetForms, ReadersClearStrayBitsAboveTheSize) {
  std::FILE *f = FileWith(Word(9) + Word(0xFFFFFFFFu) + "9\nff ff\n");
  SetPtr binary(UTL_SET_READ(f, 0));
  SetPtr text(UTL_SET_ASCII_READ(f));
  ASSERT_NE(binary, nullptr);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(binary->words[0], 0x1FFu);
  EXPECT_EQ(text->words[0], 0x1FFu);
  EXPECT_EQ(UTL_SET_CARDINALITY(binary.get()), 9);
  std::fclose(f);
}

TEST_F(SetForms, HostileTextFilesFailCleanly) {
  struct Row {
    const char *text;
    const char *identity, *last_trace;
  };
  const Row kRows[] = {
      {"", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"abc", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"-3\n", "UTL/SET/FATAL/BAD_SET_SIZE", "UTL_SET_ASCII_READ (20)"},
      {"0\n", "UTL/SET/FATAL/BAD_SET_SIZE", "UTL_SET_ASCII_READ (20)"},
      {"99999999999999999999\n00\n", "UTL/SET/FATAL/BAD_SET_SIZE", "UTL_SET_ASCII_READ (20)"},
      {"9\n01\n", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"9\n01 zz\n", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"9\n01 1ff\n", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"9\n0x1 00\n", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"9\n01 -1\n", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"2147483647\n00 00\n", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
      {"40\n00 00 00 00\n", "UTL/SET/FATAL/FILE_ERROR", "UTL_SET_ASCII_READ (10)"},
  };
  for (const Row &row : kRows) {
    for (bool regular : {true, false}) {
      SCOPED_TRACE(std::string("\"") + row.text + (regular ? "\" (file)" : "\" (memory stream)"));
      UTL_ERROR_CLEAR();
      std::string text = row.text;
      std::FILE *f = regular ? FileWith(text) : fmemopen(text.data(), text.size(), "r");
      if (f == nullptr) continue;
      const unsigned long requests = qx::heap::RequestCount();
      EXPECT_EQ(UTL_SET_ASCII_READ(f), nullptr);
      EXPECT_EQ(TopIdentity(), row.identity);
      EXPECT_EQ(TopTrace(TopError().traces.size() - 1), row.last_trace);
      if (regular && std::string(row.text).rfind("2147483647", 0) == 0) {
        EXPECT_EQ(qx::heap::RequestCount(), requests);
      }
      std::fclose(f);
    }
  }
  // Line breaks are not significant on reading.
  std::FILE *f = FileWith("  9 \n\n01\n\n 01");
  SetPtr set(UTL_SET_ASCII_READ(f));
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(set->words[0], 0x101u);
  std::fclose(f);
}

// A write-only stream that accepts `limit` bytes and then fails.
struct LimitedSink {
  explicit LimitedSink(std::size_t bytes) : limit(bytes) {}
  std::size_t limit, written = 0;
  std::string text;
  static ssize_t Write(void *cookie, const char *data, std::size_t size) {
    auto *sink = static_cast<LimitedSink *>(cookie);
    if (sink->written >= sink->limit) return -1;
    std::size_t take = std::min(size, sink->limit - sink->written);
    sink->text.append(data, take);
    sink->written += take;
    return static_cast<ssize_t>(take);
  }
  std::FILE *Open() {
    cookie_io_functions_t io{nullptr, Write, nullptr, nullptr};
    std::FILE *f = fopencookie(this, "w", io);
    setvbuf(f, nullptr, _IONBF, 0);
    return f;
  }
};

TEST_F(SetForms, TextWriteFailuresNameTheirStep) {
  // Items of the text form of a set of 41 elements (1 full word, a 2-byte last
  // word) in order, each with the step a failure inside it reports.
  SetPtr set = SetOfMembers(41, {0, 40});
  struct Item {
    std::string text;
    int site;
  };
  std::vector<Item> items = {{"41\n", 10}, {"01 ", 20}, {"00 ", 20}, {"00 ", 20},
                             {"00 ", 20},  {"00 ", 40}, {"01 ", 40}, {"\n", 60}};
  std::size_t start = 0;
  for (const Item &item : items) {
    for (std::size_t limit = start; limit < start + item.text.size(); ++limit) {
      UTL_ERROR_CLEAR();
      LimitedSink sink{limit};
      std::FILE *f = sink.Open();
      EXPECT_EQ(UTL_SET_ASCII_WRITE(f, set.get()), 0) << limit;
      EXPECT_EQ(TopTrace(1), "UTL_SET_ASCII_WRITE (" + std::to_string(item.site) + ")") << limit;
      std::fclose(f);
    }
    start += item.text.size();
  }
  LimitedSink sink{start};
  std::FILE *f = sink.Open();
  EXPECT_EQ(UTL_SET_ASCII_WRITE(f, set.get()), 1);
  std::fclose(f);
  EXPECT_EQ(sink.text, "41\n01 00 00 00 00 01 \n");

  // Line ends after the twentieth byte, inside the full words and the last word.
  struct Row {
    int n;
    std::size_t limit;
    int site;
  };
  const Row kRows[] = {{200, 4 + 60, 30}, {160, 4 + 60, 50}};
  for (Row row : kRows) {
    UTL_ERROR_CLEAR();
    SetPtr big(UTL_SET_CREATE(row.n));
    LimitedSink s{row.limit};
    std::FILE *g = s.Open();
    EXPECT_EQ(UTL_SET_ASCII_WRITE(g, big.get()), 0);
    EXPECT_EQ(TopTrace(1), "UTL_SET_ASCII_WRITE (" + std::to_string(row.site) + ")") << row.n;
    std::fclose(g);
  }
}

TEST_F(SetForms, BinaryWriteFailureIsTraced) {
  SetPtr set = SetOfMembers(40, {3});
  LimitedSink sink{5};
  std::FILE *f = sink.Open();
  EXPECT_EQ(UTL_SET_WRITE(f, set.get()), 0);
  EXPECT_EQ(TopIdentity(), "UTL/FILES/FATAL/FILE_WRITE_ERROR");
  EXPECT_EQ(TopTrace(1), "UTL_SET_WRITE (10)");
  std::fclose(f);
}

TEST_F(SetForms, ReadersSurviveEveryAllocationFailure) {
  SetPtr set = SetOfMembers(300, {0, 299});
  std::FILE *f = std::tmpfile();
  UTL_SET_WRITE(f, set.get());
  UTL_SET_ASCII_WRITE(f, set.get());
  struct Row {
    const char *name;
    std::function<UTL_SET *()> read;
    const char *trace;
  };
  const Row kRows[] = {
      {"binary", [&] { return UTL_SET_READ(f, 0); }, "UTL_SET_READ (15)"},
      {"text", [&] { return UTL_SET_ASCII_READ(f); }, "UTL_SET_ASCII_READ (20)"},
  };
  long offset = 0;
  for (const Row &row : kRows) {
    for (unsigned long nth = 1;; ++nth) {
      UTL_ERROR_CLEAR();
      std::fseek(f, offset, SEEK_SET);
      SetPtr back;
      {
        qxtest::FailAllocation fail(nth);
        back.reset(row.read());
      }
      if (back != nullptr) {
        EXPECT_TRUE(UTL_SET_EQUAL(back.get(), set.get())) << row.name;
        break;
      }
      EXPECT_EQ(TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY") << row.name;
      EXPECT_EQ(TopTrace(TopError().traces.size() - 1), row.trace) << row.name;
      ASSERT_LT(nth, 10u);
    }
    offset = std::ftell(f);
  }
  std::fclose(f);
}

TEST_F(SetForms, ListingLayout) {
  struct Row {
    int n;
    std::vector<int> members;
    bool all;
    int skip;
    std::string text;
  };
  const Row kRows[] = {
      {12, {0, 11}, false, 0, "1000000000 01 (12 items)\n"},
      {12, {0, 11}, false, 1, "0000000000 1 (11 items)\n"},
      {1, {0}, false, 1, " (0 items)\n"},
      {1, {0}, false, 0, "1 (1 items)\n"},
      {10, {}, false, 0, "0000000000  (10 items)\n"},
      {75, {}, true, 0, Repeat("1111111111 ", 7) + " (70)\n11111 (75 items)\n"},
      {141,
       {},
       true,
       1,
       Repeat("1111111111 ", 7) + " (70)\n" + Repeat("1111111111 ", 7) + " (140)\n (140 items)\n"},
  };
  for (const Row &row : kRows) {
    Model m(row.n, row.all);
    for (int e : row.members)
      m[e] = true;
    SetPtr set = SetOf(m);
    std::FILE *f = std::tmpfile();
    EXPECT_EQ(UTL_SET_LIST(fprintf, f, set.get(), row.skip), 1);
    EXPECT_EQ(Slurp(f), row.text) << row.n;
    std::fclose(f);
  }
}

// ---- Population-count paths ---------------------------------------------------

struct Reference {
  std::uint64_t a = 0, b = 0, both = 0, either = 0;
};

Reference CountBitByBit(const std::uint32_t *a, const std::uint32_t *b, std::size_t n) {
  Reference r;
  for (std::size_t i = 0; i < n; ++i)
    for (int bit = 0; bit < 32; ++bit) {
      const bool x = (a[i] >> bit) & 1u, y = (b[i] >> bit) & 1u;
      r.a += x;
      r.b += y;
      r.both += x && y;
      r.either += x || y;
    }
  return r;
}

TEST_F(SetPopcount, EveryAvailablePathMatchesTheReferenceLoop) {
  using qx::popcount::Path;
  std::mt19937 rng(23);
  std::vector<std::size_t> lengths;
  for (std::size_t n = 0; n <= 72; ++n)
    lengths.push_back(n);
  for (std::size_t n : {127, 128, 129, 247, 248, 249, 255, 256, 257, 1000, 4097})
    lengths.push_back(n);
  int tested = 0;
  for (int p = 0; p < static_cast<int>(Path::kCount); ++p) {
    const Path path = static_cast<Path>(p);
    if (!qx::popcount::Supported(path)) continue;
    ++tested;
    SCOPED_TRACE(qx::popcount::PathName(path));
    const auto &k = qx::popcount::KernelsFor(path);
    for (std::size_t n : lengths) {
      for (double density : {0.0, 0.1, 0.5, 1.0}) {
        // Offsets 0..3 words vary the alignment of both operands.
        std::vector<std::uint32_t> a(n + 4), b(n + 4);
        std::bernoulli_distribution bit(density);
        for (auto *v : {&a, &b})
          for (auto &w : *v)
            for (int i = 0; i < 32; ++i)
              w |= static_cast<std::uint32_t>(bit(rng)) << i;
        const std::size_t oa = n % 4, ob = (n / 4) % 4;
        const Reference r = CountBitByBit(a.data() + oa, b.data() + ob, n);
        ASSERT_EQ(k.count(a.data() + oa, n), r.a) << n;
        ASSERT_EQ(k.count(b.data() + ob, n), r.b) << n;
        int tanimoto_common = -1, tanimoto_union = -1;
        double t = -1.0;
        ASSERT_EQ(
            k.tanimoto(a.data() + oa, b.data() + ob, n, &tanimoto_common, &tanimoto_union, &t),
            static_cast<int>(r.either));
        ASSERT_EQ(tanimoto_common, static_cast<int>(r.both));
        ASSERT_EQ(tanimoto_union, static_cast<int>(r.either));
        ASSERT_DOUBLE_EQ(t, r.either == 0 ? 1.0 : double(r.both) / double(r.either));
        const double cosine = r.a == 0 || r.b == 0
                                  ? (r.a == r.b ? 1.0 : 0.0)
                                  : double(r.both) / std::sqrt(double(r.a) * double(r.b));
        ASSERT_DOUBLE_EQ(k.cosine(a.data() + oa, b.data() + ob, n), cosine);
      }
    }
  }
  EXPECT_GE(tested, 1);
  RecordProperty("paths_tested", tested);
}

TEST_F(SetPopcount, SetRoutinesGiveTheSameAnswersOnEveryPath) {
  using qx::popcount::Path;
  std::mt19937 rng(29);
  for (int p = 0; p < static_cast<int>(Path::kCount); ++p) {
    const Path path = static_cast<Path>(p);
    EXPECT_EQ(qx::popcount::Select(path), qx::popcount::Supported(path));
    if (!qx::popcount::Supported(path)) continue;
    SCOPED_TRACE(qx::popcount::PathName(path));
    for (int n : kSizes) {
      Model ma = RandomModel(rng, n, 0.3), mb = RandomModel(rng, n, 0.3);
      SetPtr a = SetOf(ma), b = SetOf(mb);
      int common_ref = 0, union_ref = 0;
      for (int e = 0; e < n; ++e) {
        common_ref += ma[e] && mb[e];
        union_ref += ma[e] || mb[e];
      }
      int common = -1, union_count = -1;
      double t = -1.0, c = -1.0;
      EXPECT_EQ(UTL_SET_TANIMOTO(a.get(), b.get(), &common, &union_count, &t), union_ref);
      EXPECT_EQ(common, common_ref);
      EXPECT_DOUBLE_EQ(t, union_ref == 0 ? 1.0 : double(common_ref) / union_ref);
      const int ca = Count(ma), cb = Count(mb);
      EXPECT_EQ(UTL_SET_COSINE(a.get(), b.get(), &c), 1);
      if (ca != 0 && cb != 0) {
        EXPECT_DOUBLE_EQ(c, common_ref / std::sqrt(double(ca) * cb));
      }
      EXPECT_EQ(UTL_SET_CARDINALITY(a.get()), ca);
      if (n > 1) {
        EXPECT_EQ(UTL_SET_NSMALLER(a.get(), n - 1), ca - ma[n - 1]);
      }
    }
  }
  EXPECT_TRUE(qx::popcount::Select(qx::popcount::BestPath()));
}

}  // namespace
