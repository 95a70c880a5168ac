// Bit sets: every routine against a plain model (a vector of bools) on random
// sets of many sizes and on every population-count path, the odd cases, the
// error records, and the file and string forms on good and hostile input.
#include "utl_set.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "containers/popcount.h"
#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

namespace pc = qx::popcount;
using qxtest::TopError;
using qxtest::TopIdentity;
using Model = std::vector<bool>;
using Strings = std::vector<std::string>;

struct SetDeleter {
  void operator()(UTL_SET *set) const { UTL_SET_DESTROY(set); }
};
using SetPtr = std::unique_ptr<UTL_SET, SetDeleter>;

constexpr int kSizes[] = {1,  2,   5,   9,   31,  32,  33,   63,   64,
                          65, 100, 127, 128, 129, 255, 1000, 2048, 2049};

struct UtlSet : ::testing::Test {
  void SetUp() override { UTL_ERROR_CLEAR(); }  // also when the file runs in one process

  // The members as read from the words; no bit at or above n may be set.
  static Model ModelOf(const UTL_SET *set) {
    Model m(((set->size - 1) / 32 + 1) * 32);
    for (std::size_t e = 0; e < m.size(); ++e)
      m[e] = (set->words[e / 32] >> (e % 32)) & 1u;
    EXPECT_EQ(std::count(m.begin() + set->size, m.end(), true), 0) << "above size " << set->size;
    m.resize(set->size);
    return m;
  }
  static Model RandomModel(std::mt19937 &rng, int n, double density) {
    std::bernoulli_distribution bit(density);
    Model m(n);
    for (int e = 0; e < n; ++e)
      m[e] = bit(rng);
    return m;
  }
  static Model ModelWith(int n, const std::vector<int> &members, bool all = false) {
    Model m(n, all);
    for (int e : members)
      m[e] = true;
    return m;
  }
  static SetPtr SetOf(const Model &m) {
    SetPtr set(UTL_SET_CREATE(static_cast<int>(m.size())));
    for (std::size_t e = 0; e < m.size(); ++e)
      if (m[e]) UTL_SET_INSERT(set.get(), static_cast<int>(e));
    return set;
  }
  static SetPtr SetWith(int n, const std::vector<int> &in) { return SetOf(ModelWith(n, in)); }
  // Trace i of the top error, counted from the innermost end when negative.
  static std::string Trace(int i) {
    const Strings traces = TopError().traces;
    const std::size_t at = i < 0 ? traces.size() + i : i;
    return at < traces.size() ? traces[at] : "<none>";
  }
  static std::string Slurp(std::FILE *f) {
    std::string text(1 << 12, '\0');
    std::rewind(f);
    text.resize(std::fread(text.data(), 1, text.size(), f));
    return text;
  }
  static std::FILE *FileWith(const std::string &bytes) {
    std::FILE *f = std::tmpfile();
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::rewind(f);
    return f;
  }
  // Refuses each allocation of `call` in turn until it succeeds; every refusal
  // must be recorded (and leak nothing, which the sanitizer build checks).
  static void RefuseEachAllocation(const std::function<bool()> &call) {
    for (unsigned long nth = 1;; ++nth) {
      UTL_ERROR_CLEAR();
      qxtest::FailAllocation fail(nth);
      if (call()) return;
      EXPECT_EQ(TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY") << nth;
      ASSERT_LT(nth, 10u);
    }
  }
  static std::string Repeat(const std::string &s, int n) { return n ? s + Repeat(s, n - 1) : ""; }
  static std::string Word(std::uint32_t w) { return {reinterpret_cast<const char *>(&w), 4}; }
};

TEST_F(UtlSet, StorageSizes) {
  // {n, record words, byte bound}; the bound uses truncating division.
  constexpr int kRows[][3] = {{1, 2, 8},   {8, 2, 8},   {9, 2, 9},       {32, 2, 11}, {33, 3, 12},
                              {64, 3, 15}, {65, 4, 16}, {2048, 65, 263}, {0, 0, 8},   {-9, 0, 7}};
  for (const auto &[n, words, bytes] : kRows) {
    EXPECT_EQ(UTL_SET_SIZEOF(n), bytes) << n;
    if (n < 1) continue;
    SetPtr set(UTL_SET_CREATE(n));
    ASSERT_NE(set, nullptr) << n;
    EXPECT_EQ(set->size, n);
    EXPECT_EQ(UTL_SET_STORAGE_SIZE(set.get()), words) << n;
    EXPECT_TRUE(UTL_SET_EMPTY(set.get()));
  }
}

TEST_F(UtlSet, StaticSetAndPutUseCallerMemory) {
  std::mt19937 rng(1);
  for (int n : kSizes) {
    const Model m = RandomModel(rng, n, 0.5);
    SetPtr source = SetOf(m);
    const int words = (n - 1) / 32 + 1;
    if (n % 32 != 0) source->words[words - 1] |= ~0u << (n % 32);  // stray bits, to be cleared
    const std::size_t bytes = sizeof(void *) + 4u * (words + 1);
    ASSERT_EQ(UTL_SET_STATIC_BUFFER_SIZE(n), bytes);
    std::vector<std::uint64_t> buffer(bytes / 8 + 2, ~0ull);
    auto *base = reinterpret_cast<unsigned char *>(buffer.data());
    ASSERT_EQ(UTL_SET_CREATE_STATIC(base, n, source.get()), 1);
    UTL_SET *set = *reinterpret_cast<UTL_SET **>(base);
    EXPECT_EQ(reinterpret_cast<unsigned char *>(set), base + sizeof(void *));
    EXPECT_EQ(ModelOf(set), m) << n;
    EXPECT_EQ(base[bytes], 0xFF);  // nothing written past the record
    std::vector<unsigned int> put(words + 2, 0xDEADBEEFu);
    EXPECT_EQ(UTL_SET_PUT(set, put.data()), 1);
    EXPECT_EQ(put[0], static_cast<unsigned>(n));
    EXPECT_EQ(std::memcmp(&put[1], set->words, 4u * words), 0);
    EXPECT_EQ(put.back(), 0xDEADBEEFu);
    ASSERT_EQ(UTL_SET_CREATE_STATIC(base, n, nullptr), 1);
    EXPECT_TRUE(UTL_SET_EMPTY(set));
  }
}

TEST_F(UtlSet, QueriesAndSimilarityMatchTheModelOnEveryPath) {
  // Densities of the two operands; the first rows give both and one empty.
  constexpr double kDensities[][2] = {{0, 0},     {0, 0.3},    {0.6, 0}, {0.03, 0.3},
                                      {0.5, 0.5}, {0.97, 0.3}, {1, 0.3}};
  std::mt19937 rng(7);
  int paths = 0;
  for (int p = 0; p < static_cast<int>(pc::Path::kCount); ++p) {
    const auto path = static_cast<pc::Path>(p);
    ASSERT_EQ(pc::Select(path), pc::Supported(path));
    if (!pc::Supported(path)) continue;
    ++paths;
    for (int n : kSizes) {
      for (const auto &[da, db] : kDensities) {
        SCOPED_TRACE(testing::Message()
                     << pc::PathName(path) << " " << n << " " << da << " " << db);
        const Model m = RandomModel(rng, n, da), mb = RandomModel(rng, n, db);
        SetPtr a = SetOf(m), b = SetOf(mb);
        ASSERT_EQ(ModelOf(a.get()), m);
        std::vector<int> members, nonmembers, walked, unwalked;
        int common = 0, either = 0, nb = 0;
        for (int e = 0; e < n; ++e) {
          (m[e] ? members : nonmembers).push_back(e);
          common += m[e] && mb[e];
          either += m[e] || mb[e];
          nb += mb[e];
        }
        for (int e = -1; (e = UTL_SET_NEXT(a.get(), e)) != -1;)
          walked.push_back(e);
        for (int e = -1; (e = UTL_SET_NEXT_NONMEMBER(a.get(), e)) != n;)
          unwalked.push_back(e);
        EXPECT_EQ(walked, members);
        EXPECT_EQ(unwalked, nonmembers);
        const int na = static_cast<int>(members.size());
        EXPECT_EQ(UTL_SET_CARDINALITY(a.get()), na);
        EXPECT_EQ(UTL_SET_EMPTY(a.get()), na == 0);
        EXPECT_EQ(UTL_SET_NOT_EMPTY(a.get()), na != 0);
        EXPECT_EQ(UTL_SET_MIN(a.get()), na == 0 ? -1 : members.front());
        EXPECT_EQ(UTL_SET_MAX(a.get()), na == 0 ? -1 : members.back());
        for (int k = 0; k <= na; ++k)
          EXPECT_EQ(UTL_SET_MEMBER_NUMBER(a.get(), k + 1), k < na ? members[k] : -1);
        for (int e = 0, below = 0; e < n; below += m[e++]) {
          EXPECT_EQ(UTL_SET_MEMBER(a.get(), e), m[e] ? 1 : 0);
          EXPECT_EQ(UTL_SET_NSMALLER(a.get(), e), below);
          EXPECT_EQ(m[e] ? UTL_SET_ORDINALITY(a.get(), e) : below + 1, below + 1);
        }
        int c = -1, u = -1;
        double t = -1.0, cosine = -1.0;
        EXPECT_EQ(UTL_SET_TANIMOTO(a.get(), b.get(), &c, &u, &t), either);
        EXPECT_EQ(std::make_pair(c, u), std::make_pair(common, either));
        EXPECT_DOUBLE_EQ(t, either == 0 ? 1.0 : double(common) / either);
        EXPECT_EQ(UTL_SET_COSINE(a.get(), b.get(), &cosine), 1);
        EXPECT_DOUBLE_EQ(cosine, na == 0 || nb == 0 ? (na == nb ? 1.0 : 0.0)
                                                    : common / std::sqrt(double(na) * nb));
        EXPECT_FALSE(UTL_ERROR_IS_SET());
      }
    }
  }
  EXPECT_GE(paths, 1);
  EXPECT_TRUE(pc::Select(pc::BestPath()));
}

TEST_F(UtlSet, AlgebraAndRangesMatchTheModel) {
  using Make = UTL_SET *(*)(const UTL_SET *, const UTL_SET *);
  using Apply = int (*)(UTL_SET *, const UTL_SET *);
  const Make kAnySize[] = {UTL_SET_AND_ANY_SIZE, UTL_SET_OR_ANY_SIZE, UTL_SET_DIFF_ANY_SIZE};
  const Make kSameSize[] = {UTL_SET_AND, UTL_SET_OR, UTL_SET_DIFF};
  const Apply kInPlace[] = {UTL_SET_AND_INPLACE, UTL_SET_OR_INPLACE, UTL_SET_DIFF_INPLACE};
  std::mt19937 rng(11);
  std::vector<std::pair<int, int>> shapes = {{10, 40}, {40, 10}, {1, 2049}, {64, 65}};
  for (int n : kSizes)
    shapes.push_back({n, n});
  for (auto [na, nb] : shapes) {
    SCOPED_TRACE(testing::Message() << na << " and " << nb);
    const Model ma = RandomModel(rng, na, 0.4), mb = RandomModel(rng, nb, 0.6);
    SetPtr a = SetOf(ma), b = SetOf(mb);
    const int n = std::max(na, nb), low = std::min(na, nb);
    auto in = [](const Model &m, int e) { return e < static_cast<int>(m.size()) && m[e]; };
    Model want[3] = {Model(n), Model(n), Model(n)}, not_a(na);
    for (int e = 0; e < n; ++e) {
      want[0][e] = in(ma, e) && in(mb, e);
      want[1][e] = in(ma, e) || in(mb, e);
      want[2][e] = in(ma, e) && !in(mb, e);
      if (e < na) not_a[e] = !ma[e];
    }
    auto check = [](UTL_SET *made, const Model &expected) {
      ASSERT_NE(made, nullptr);
      EXPECT_EQ(ModelOf(made), expected);
      UTL_SET_DESTROY(made);
    };
    const Model common(want[0].begin(), want[0].begin() + low);
    check(UTL_SET_INTERSECT(a.get(), b.get()), common);
    check(UTL_SET_NOT(a.get()), not_a);
    EXPECT_EQ(UTL_SET_AND_IS_EMPTY(a.get(), b.get()), common == Model(low));
    EXPECT_EQ(UTL_SET_EQUAL(a.get(), b.get()), ma == mb);
    for (int op = 0; op < 3; ++op) {
      check(kAnySize[op](a.get(), b.get()), want[op]);
      if (na != nb) continue;
      check(kSameSize[op](a.get(), b.get()), want[op]);
      SetPtr target(UTL_SET_COPY(a.get()));
      EXPECT_EQ(kInPlace[op](target.get(), b.get()), 1);
      EXPECT_EQ(ModelOf(target.get()), want[op]);
    }
    EXPECT_EQ(ModelOf(a.get()), ma);  // operands unchanged
    EXPECT_EQ(ModelOf(b.get()), mb);
    EXPECT_FALSE(UTL_ERROR_IS_SET());

    SetPtr copy(UTL_SET_GET(b.get()));
    EXPECT_TRUE(UTL_SET_EQUAL(copy.get(), b.get()));
    EXPECT_EQ(UTL_SET_FILL(copy.get()) + UTL_SET_CARDINALITY(copy.get()), 1 + nb);
    EXPECT_EQ(ModelOf(copy.get()), Model(nb, true));
    EXPECT_EQ(UTL_SET_CLEAR(copy.get()), 1);
    EXPECT_EQ(ModelOf(copy.get()), Model(nb, false));
    EXPECT_EQ(UTL_SET_COPY_INPLACE(copy.get(), b.get()), 1);
    Model m = mb;
    std::uniform_int_distribution<int> pick(-40, nb + 40);
    for (int round = 0; round < 60; ++round) {  // ranges are clipped to the set
      const int first = pick(rng), last = pick(rng), value = round % 2;
      EXPECT_EQ(UTL_SET_MODIFY_RANGE(copy.get(), first, last, value), 1);
      for (int e = std::max(first, 0); e <= std::min(last, nb - 1); ++e)
        m[e] = value;
      ASSERT_EQ(ModelOf(copy.get()), m) << first << ".." << last << "=" << value;
    }
  }
}

TEST_F(UtlSet, InsertAnySizeGrowsWithHeadroomAndRefusesElementZero) {
  UTL_SET *set = SetWith(10, {3}).release();
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(set, 0), nullptr);
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(nullptr, 0), nullptr);
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(set, 9), set);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  SetPtr grown(UTL_SET_INSERT_ANY_SIZE(set, 12));  // destroys set
  ASSERT_NE(grown, nullptr);
  EXPECT_EQ(ModelOf(grown.get()), ModelWith(62, {3, 9, 12}));
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(grown.get(), -4), grown.get());
  EXPECT_EQ(TopIdentity(), "UTL/SET/FATAL/OUT_RANGE");
  SetPtr fresh(UTL_SET_INSERT_ANY_SIZE(nullptr, 7));
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(ModelOf(fresh.get()), ModelWith(57, {7}));
  UTL_ERROR_CLEAR();
  {
    qxtest::FailAllocation fail(1);
    EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(fresh.get(), 100), nullptr);  // fresh stays the caller's
  }
  EXPECT_EQ(Trace(-1), "UTL_SET_INSERT_ANY_SIZE (10)");
  EXPECT_EQ(ModelOf(fresh.get()), ModelWith(57, {7}));
}

TEST_F(UtlSet, IterationEnds) {
  SetPtr empty = SetWith(10, {}), full = SetOf(Model(10, true)), last = SetWith(10, {9});
  const std::tuple<const UTL_SET *, int, int, int> kRows[] = {
      {empty.get(), 9, -1, 10}, {empty.get(), 8, -1, 9}, {full.get(), 9, -1, 10},
      {full.get(), 20, -1, 10}, {last.get(), -5, 9, 0},  {nullptr, 1, -1, -1}};
  for (const auto &[set, e, next, next_nonmember] : kRows) {
    EXPECT_EQ(UTL_SET_NEXT(set, e), next) << e;
    EXPECT_EQ(UTL_SET_NEXT_NONMEMBER(set, e), next_nonmember) << e;
  }
  EXPECT_EQ(UTL_SET_MEMBER_NUMBER(full.get(), 0), -1);
}

TEST_F(UtlSet, FailuresAreRecordedAndTraced) {
  SetPtr a = SetWith(10, {2}), b = SetWith(11, {}), c = SetWith(10, {5});
  UTL_SET *x = a.get(), *y = b.get(), *z = c.get();
  std::FILE *binary = FileWith(Word(40) + Word(5) + Word(6)), *text = FileWith("9\n01 01\n");
  long raw[9];
  auto made = [](UTL_SET *set) { return SetPtr(set) != nullptr ? 1 : 0; };
  auto read_binary = [&] { return std::rewind(binary), made(UTL_SET_READ(binary, 0)); };
  auto read_text = [&] { return std::rewind(text), made(UTL_SET_ASCII_READ(text)); };
  auto to_string = [&] {
    char *s = UTL_SET_TO_STRING(x);
    return s != nullptr && UTL_DMEM_FREE(s, "test", __LINE__);
  };
  auto similarity = [&] {  // different sizes: no record, union -1, other outputs untouched
    int common = -7, union_count = -7;
    double t = -7.0, cos = -7.0;
    const int r = UTL_SET_TANIMOTO(x, y, &common, &union_count, &t) + UTL_SET_COSINE(x, y, &cos);
    return r == 0 && common == -7 && union_count == -1 && t == -7.0 && cos == -7.0;
  };
  const std::string kOut = "UTL/SET/FATAL/OUT_RANGE", kDiff = "UTL/SET/FATAL/DIFF_SIZE",
                    kWarn = "UTL/SET/WARNING/ILLEGAL_VALUE", kSize = "UTL/SET/FATAL/BAD_SET_SIZE",
                    kMem = "UTL/MEM/FATAL/NO_MEMORY", kCalloc = "UTL_MEM_CALLOC",
                    kCreate = "UTL_SET_CREATE";
  // {call, its result, allocation to refuse (0: none), record, traces}
  const std::tuple<std::function<int()>, int, unsigned long, std::string, Strings> kRows[] = {
      {[&] { return UTL_SET_INSERT(x, 10); }, 0, 0, kOut, {"UTL_SET_INSERT"}},
      {[&] { return UTL_SET_DELETE(x, -1); }, 0, 0, kOut, {"UTL_SET_DELETE"}},
      {[&] { return UTL_SET_MEMBER(x, -1) + UTL_SET_MEMBER(x, 10); }, 0, 0, "", {}},
      {similarity, 1, 0, "", {}},
      {[&] { return UTL_SET_ORDINALITY(x, 3); }, 0, 0, kWarn, {"UTL_SET_ORDINALITY"}},
      {[&] { return UTL_SET_ORDINALITY(x, 10); }, 0, 0, kWarn, {"UTL_SET_ORDINALITY"}},
      {[&] { return UTL_SET_NSMALLER(x, -1); }, -1, 0, kWarn, {"UTL_SET_ORDINALITY"}},
      {[&] { return UTL_SET_NSMALLER(x, 10); }, -1, 0, kWarn, {"UTL_SET_ORDINALITY"}},
      {[&] { return made(UTL_SET_EXTEND(x, -1)); }, 0, 0, kWarn, {"UTL_SET_EXTEND"}},
      {[&] { return made(UTL_SET_EXTEND(x, INT_MAX)); }, 0, 0, kSize, {kCreate, "UTL_SET_EXTEND"}},
      {[&] { return made(UTL_SET_CREATE(0)); }, 0, 0, kSize, {kCreate}},
      {[&] { return made(UTL_SET_CREATE(INT_MIN)); }, 0, 0, kSize, {kCreate}},
      {[&] { return made(UTL_SET_AND(x, y)); }, 0, 0, kDiff, {"UTL_SET_AND"}},
      {[&] { return made(UTL_SET_OR(x, y)); }, 0, 0, kDiff, {"UTL_SET_OR"}},
      {[&] { return made(UTL_SET_DIFF(x, y)); }, 0, 0, kDiff, {"UTL_SET_DIFF"}},
      {[&] { return UTL_SET_AND_INPLACE(x, y); }, 0, 0, kDiff, {"UTL_SET_AND_INPLACE"}},
      {[&] { return UTL_SET_OR_INPLACE(x, y); }, 0, 0, kDiff, {"UTL_SET_OR_INPLACE"}},
      {[&] { return UTL_SET_DIFF_INPLACE(x, y); }, 0, 0, kDiff, {"UTL_SET_DIFF_INPLACE"}},
      {[&] { return UTL_SET_COPY_INPLACE(x, y); }, 0, 0, kDiff, {"UTL_SET_COPY_INPLACE"}},
      {[&] { return UTL_SET_CREATE_STATIC(raw, 11, x); }, 0, 0, kDiff, {"UTL_SET_CREATE_STATIC"}},
      {to_string, 0, 1, kMem, {"UTL_MEM_ALLOC", "UTL_SET_TO_STRING"}},
      {read_binary, 0, 1, kMem, {kCalloc, "UTL_SET_READ (15)"}},
      {read_text, 0, 1, kMem, {kCalloc, kCreate, "UTL_SET_ASCII_READ (20)"}},
  };
  for (const auto &[call, result, fail_at, identity, traces] : kRows) {
    UTL_ERROR_CLEAR();
    {
      qxtest::FailAllocation fail(fail_at);
      EXPECT_EQ(call(), result) << testing::PrintToString(traces);
    }
    EXPECT_EQ(TopIdentity(), identity);
    EXPECT_EQ(identity.empty() ? Strings{} : TopError().traces, traces);
    if (fail_at != 0) RefuseEachAllocation(call);
  }
  EXPECT_EQ(ModelOf(x), ModelWith(10, {2}));  // failures changed nothing
  std::fclose(binary);
  std::fclose(text);

  // Every creator adds its name to the creation's traces; an any-size form
  // extends its smaller operand (allocation 1) before making the result (2).
  const std::tuple<unsigned long, std::function<UTL_SET *()>, Strings> kCreators[] = {
      {1, [&] { return UTL_SET_CREATE(10); }, {}},
      {1, [&] { return UTL_SET_COPY(x); }, {"UTL_SET_COPY"}},
      {1, [&] { return UTL_SET_GET(x); }, {"UTL_SET_GET"}},
      {1, [&] { return UTL_SET_AND(x, z); }, {"UTL_SET_AND"}},
      {1, [&] { return UTL_SET_OR(x, z); }, {"UTL_SET_OR"}},
      {1, [&] { return UTL_SET_DIFF(x, z); }, {"UTL_SET_DIFF"}},
      {1, [&] { return UTL_SET_NOT(x); }, {"UTL_SET_NOT"}},
      {1, [&] { return UTL_SET_INTERSECT(x, y); }, {"UTL_SET_INTERSECT"}},
      {1, [&] { return UTL_SET_EXTEND(x, 3); }, {"UTL_SET_EXTEND"}},
      {1,
       [&] { return UTL_SET_OR_ANY_SIZE(x, y); },
       {"UTL_SET_EXTEND", "UTL_SET_OR_ANY_SIZE (10)"}},
      {2, [&] { return UTL_SET_OR_ANY_SIZE(x, y); }, {"UTL_SET_OR", "UTL_SET_OR_ANY_SIZE (20)"}},
  };
  for (const auto &[fail_at, call, own] : kCreators) {
    UTL_ERROR_CLEAR();
    Strings traces = {kCalloc, kCreate};
    traces.insert(traces.end(), own.begin(), own.end());
    {
      qxtest::FailAllocation fail(fail_at);
      EXPECT_EQ(call(), nullptr) << traces.back();
    }
    EXPECT_EQ(TopIdentity(), kMem);
    EXPECT_EQ(TopError().traces, traces);
    RefuseEachAllocation([&make = call] { return SetPtr(make()) != nullptr; });
  }
}

TEST_F(UtlSet, HexadecimalString) {
  const std::tuple<int, std::vector<int>, const char *> kRows[] = {
      {5, {4}, "08"}, {8, {4, 5, 6, 7}, "0F"},   {1, {0}, "8"},           {4, {0, 3}, "9"},
      {6, {5}, "04"}, {32, {0, 31}, "80000001"}, {33, {32}, "000000008"}, {12, {1, 6, 11}, "421"}};
  for (const auto &[n, members, string] : kRows) {
    SetPtr set = SetWith(n, members), back = SetOf(Model(n, true));
    char *text = UTL_SET_TO_STRING(set.get());
    EXPECT_STREQ(text, string);
    EXPECT_EQ(UTL_SET_FROM_STRING(text, back.get()), 1);
    EXPECT_EQ(ModelOf(back.get()), ModelOf(set.get())) << string;
    UTL_DMEM_FREE(text, "test", __LINE__);
  }
  // Read into a set of 8 holding {1}: a zero digit past the end inserts nothing, a
  // bad character changes nothing, members before one beyond the set stay.
  const std::tuple<const char *, const char *, const char *, std::vector<int>> kReads[] = {
      {"0f", "", "", {4, 5, 6, 7}},
      {"0F0", "", "", {4, 5, 6, 7}},
      {"", "", "", {}},
      {nullptr, "", "", {}},
      {"801", "UTL/SET/FATAL/OUT_RANGE", "UTL_SET_INSERT", {0}},
      {"0G", "UTL/SET/FATAL/ILLEGAL_VALUE", "UTL_SET_FROM_STRING", {1}},
      {"1 ", "UTL/SET/FATAL/ILLEGAL_VALUE", "UTL_SET_FROM_STRING", {1}},
  };
  for (const auto &[string, identity, routine, after] : kReads) {
    UTL_ERROR_CLEAR();
    SCOPED_TRACE(string ? string : "NULL");
    SetPtr set = SetWith(8, {1});
    EXPECT_EQ(UTL_SET_FROM_STRING(string, set.get()), *identity ? 0 : 1);
    EXPECT_EQ(TopIdentity(), identity);
    EXPECT_EQ(*routine ? Trace(0) : "", routine);
    EXPECT_EQ(ModelOf(set.get()), ModelWith(8, after));
  }
}

TEST_F(UtlSet, TextFormAndListingLayout) {
  const std::string kZeros = Repeat("00 ", 20), kOnes = Repeat("1111111111 ", 7);
  // {n, skip (-1: the text form, else the listing), every element a member, members, text}
  const std::tuple<int, int, bool, std::vector<int>, std::string> kRows[] = {
      {9, -1, false, {0, 8}, "9\n01 01 \n"},
      {5, -1, false, {4}, "5\n10 \n"},
      {24, -1, false, {23}, "24\n00 00 80 \n"},
      {33, -1, false, {0, 31, 32}, "33\n01 00 00 80 01 \n"},
      {160, -1, false, {}, "160\n" + kZeros + "\n"},
      {161, -1, false, {160}, "161\n" + kZeros + "\n01 \n"},
      {12, 0, false, {0, 11}, "1000000000 01 (12 items)\n"},
      {12, 1, false, {0, 11}, "0000000000 1 (11 items)\n"},
      {1, 1, false, {0}, " (0 items)\n"},
      {1, 0, false, {0}, "1 (1 items)\n"},
      {10, 0, false, {}, "0000000000  (10 items)\n"},
      {75, 0, true, {}, kOnes + " (70)\n11111 (75 items)\n"},
      {141, 1, true, {}, kOnes + " (70)\n" + kOnes + " (140)\n (140 items)\n"},
  };
  for (const auto &[n, skip, all, members, text] : kRows) {
    SetPtr set = SetOf(ModelWith(n, members, all));
    std::FILE *f = std::tmpfile();
    EXPECT_EQ(
        skip < 0 ? UTL_SET_ASCII_WRITE(f, set.get()) : UTL_SET_LIST(fprintf, f, set.get(), skip),
        1);
    EXPECT_EQ(Slurp(f), text) << n;
    std::fclose(f);
  }
}

TEST_F(UtlSet, FileFormsRoundTripAndBinaryReadsSwapped) {
  std::mt19937 rng(17);
  for (int n = 1; n <= 100; ++n) {
    const Model m = RandomModel(rng, n, 0.5);
    SetPtr set = SetOf(m);
    // The binary record as a host of the other byte order writes it.
    std::string swapped(reinterpret_cast<const char *>(set.get()), 4u * ((n - 1) / 32 + 2));
    for (std::size_t i = 0; i < swapped.size(); i += 4)
      std::reverse(&swapped[i], &swapped[i + 4]);
    std::FILE *f = FileWith(swapped);
    std::fseek(f, 0, SEEK_END);
    ASSERT_EQ(UTL_SET_WRITE(f, set.get()) + UTL_SET_ASCII_WRITE(f, set.get()), 2);
    std::rewind(f);
    for (int form = 1; form >= -1; --form) {  // swapped, binary, text
      SetPtr back(form < 0 ? UTL_SET_ASCII_READ(f) : UTL_SET_READ(f, form));
      ASSERT_NE(back, nullptr) << n << " " << form;
      EXPECT_EQ(ModelOf(back.get()), m) << n << " " << form;
    }
    std::fclose(f);
  }
  // Bits above the size in a file are cleared; line breaks are not significant.
  std::FILE *f = FileWith(Word(9) + Word(0xFFFFFFFFu) + "9\nff ff\n  9 \n\n01\n\n 01");
  SetPtr binary(UTL_SET_READ(f, 0)), text(UTL_SET_ASCII_READ(f)), spread(UTL_SET_ASCII_READ(f));
  ASSERT_TRUE(binary && text && spread);
  EXPECT_EQ(binary->words[0], 0x1FFu);
  EXPECT_EQ(text->words[0], 0x1FFu);
  EXPECT_EQ(spread->words[0], 0x101u);
  std::fclose(f);
}

TEST_F(UtlSet, HostileFilesFailCleanlyWithoutAbsurdAllocations) {
  const std::string kEnd = "UTL/FILES/WARNING/END_OF_FILE", kBad = "UTL/SET/FATAL/BAD_SET_SIZE",
                    kText = "UTL/SET/FATAL/FILE_ERROR", kRead = "UTL_SET_READ",
                    kAscii = "UTL_SET_ASCII_READ";
  // {bytes, reader (0: binary, 1: binary swapped, 2: text), record, innermost trace,
  //  allocations at most on a regular file}
  const std::tuple<std::string, int, std::string, std::string, unsigned long> kRows[] = {
      {"\x09", 0, kEnd, kRead + " (10)", 0},
      {Word(0), 0, kBad, kRead + " (15)", 0},
      {Word(0xFFFFFFFBu), 0, kBad, kRead + " (15)", 0},
      {Word(0x80u), 1, kBad, kRead + " (15)", 0},  // negative once swapped
      {Word(0x7FFFFFFFu) + Word(1) + Word(2), 0, kEnd, kRead + " (20)", 0},
      {Word(0xFFFFFF7Fu) + Word(1), 1, kEnd, kRead + " (20)", 0},
      {Word(100) + Word(1) + Word(2) + Word(3), 0, kEnd, kRead + " (20)", 0},
      {Word(1), 0, kEnd, kRead + " (20)", 0},
      {"", 2, kText, kAscii + " (10)", 0},
      {"abc", 2, kText, kAscii + " (10)", 0},
      {"-3\n", 2, kBad, kAscii + " (20)", 0},
      {"0\n", 2, kBad, kAscii + " (20)", 0},
      {"99999999999999999999\n00\n", 2, kBad, kAscii + " (20)", 0},
      {"9\n01\n", 2, kText, kAscii + " (10)", 1},
      {"9\n01 zz\n", 2, kText, kAscii + " (10)", 1},
      {"9\n01 1ff\n", 2, kText, kAscii + " (10)", 1},
      {"9\n0x1 00\n", 2, kText, kAscii + " (10)", 1},
      {"9\n01 -1\n", 2, kText, kAscii + " (10)", 1},
      {"2147483647\n00 00\n", 2, kText, kAscii + " (10)", 0},
      {"40\n00 00 00 00\n", 2, kText, kAscii + " (10)", 1},
  };
  for (const auto &[bytes, reader, identity, trace, allocations] : kRows) {
    for (bool regular : {true, false}) {
      SCOPED_TRACE(testing::PrintToString(bytes) + (regular ? " in a file" : " in memory"));
      UTL_ERROR_CLEAR();
      std::string copy = bytes;
      std::FILE *f = regular ? FileWith(copy) : fmemopen(copy.data(), copy.size(), "r");
      if (f == nullptr) continue;  // fmemopen of nothing is not portable
      const unsigned long before = qx::heap::RequestCount();
      EXPECT_EQ(reader == 2 ? UTL_SET_ASCII_READ(f) : UTL_SET_READ(f, reader), nullptr);
      EXPECT_EQ(TopIdentity(), identity);
      EXPECT_EQ(Trace(-1), trace);
      EXPECT_LE(qx::heap::RequestCount() - before, regular ? allocations : 1u);
      std::fclose(f);
    }
  }
}

struct LimitedSink {  // a write-only stream that accepts `limit` bytes, then fails
  explicit LimitedSink(std::size_t bytes) : limit(bytes) {}
  std::size_t limit;
  std::string text;
  std::FILE *Open() {
    auto write = [](void *self, const char *data, std::size_t size) -> ssize_t {
      auto *sink = static_cast<LimitedSink *>(self);
      const std::size_t take = std::min(size, sink->limit - sink->text.size());
      sink->text.append(data, take);
      return take == 0 ? -1 : static_cast<ssize_t>(take);
    };
    std::FILE *f = fopencookie(this, "w", {nullptr, write, nullptr, nullptr});
    setvbuf(f, nullptr, _IONBF, 0);
    return f;
  }
};

TEST_F(UtlSet, WriteFailuresNameTheirStep) {
  // {n, bytes accepted, step}. A set of 41 writes "41\n" (step 10), a full word
  // "01 00 00 00 " (20), a last word of two bytes "00 01 " (40), then "\n" (60);
  // 200 and 160 break the line after byte 20 in a full word (30) or the last (50).
  constexpr int kRows[][3] = {{41, 0, 10},  {41, 2, 10},  {41, 3, 20},   {41, 14, 20}, {41, 15, 40},
                              {41, 20, 40}, {41, 21, 60}, {200, 64, 30}, {160, 64, 50}};
  for (const auto &[n, limit, step] : kRows) {
    UTL_ERROR_CLEAR();
    SetPtr set = SetWith(n, {0, n - 1});
    LimitedSink sink(limit);
    std::FILE *f = sink.Open();
    EXPECT_EQ(UTL_SET_ASCII_WRITE(f, set.get()), 0) << n << " " << limit;
    EXPECT_EQ(Trace(1), "UTL_SET_ASCII_WRITE (" + std::to_string(step) + ")") << n << " " << limit;
    std::fclose(f);
  }
  SetPtr set = SetWith(41, {0, 40});
  LimitedSink enough(22), binary(5);
  std::FILE *f = enough.Open(), *g = binary.Open();
  EXPECT_EQ(UTL_SET_ASCII_WRITE(f, set.get()), 1);
  EXPECT_EQ(enough.text, "41\n01 00 00 00 00 01 \n");
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_SET_WRITE(g, set.get()), 0);
  EXPECT_EQ(TopIdentity(), "UTL/FILES/FATAL/FILE_WRITE_ERROR");
  EXPECT_EQ(Trace(1), "UTL_SET_WRITE (10)");
  std::fclose(f);
  std::fclose(g);
}

TEST_F(UtlSet, EveryPopcountPathMatchesABitByBitCount) {
  std::vector<std::size_t> lengths = {127, 128, 129, 247, 248, 249, 255, 256, 257, 1000, 4097};
  for (std::size_t n = 0; n <= 72; ++n)
    lengths.push_back(n);
  std::mt19937 rng(23);
  int tested = 0;
  for (int p = 0; p < static_cast<int>(pc::Path::kCount); ++p) {
    const auto path = static_cast<pc::Path>(p);
    if (!pc::Supported(path)) continue;
    ++tested;
    const pc::Kernels &k = pc::KernelsFor(path);
    for (std::size_t n : lengths) {
      for (double density : {0.0, 0.1, 0.5, 1.0}) {
        SCOPED_TRACE(testing::Message() << pc::PathName(path) << " " << n << " " << density);
        std::vector<std::uint32_t> a(n + 4), b(n + 4);
        std::bernoulli_distribution bit(density);
        for (auto *v : {&a, &b})
          for (std::size_t i = 0; i < 32 * v->size(); ++i)
            (*v)[i / 32] |= static_cast<std::uint32_t>(bit(rng)) << (i % 32);
        // Offsets of 0..3 words vary the alignment of both operands.
        const std::uint32_t *x = a.data() + n % 4, *y = b.data() + (n / 4) % 4;
        std::uint64_t nx = 0, ny = 0, both = 0, either = 0;
        for (std::size_t i = 0; i < 32 * n; ++i) {
          const bool bx = (x[i / 32] >> (i % 32)) & 1u, by = (y[i / 32] >> (i % 32)) & 1u;
          nx += bx;
          ny += by;
          both += bx && by;
          either += bx || by;
        }
        ASSERT_EQ(k.count(x, n), nx);
        ASSERT_EQ(k.count(y, n), ny);
        int common = -1, union_count = -1;
        double t = -1.0;
        ASSERT_EQ(k.tanimoto(x, y, n, &common, &union_count, &t), static_cast<int>(either));
        ASSERT_EQ(std::make_pair(common, union_count), std::make_pair(int(both), int(either)));
        ASSERT_DOUBLE_EQ(t, either == 0 ? 1.0 : double(both) / double(either));
        ASSERT_DOUBLE_EQ(k.cosine(x, y, n), nx == 0 || ny == 0
                                                ? (nx == ny ? 1.0 : 0.0)
                                                : both / std::sqrt(double(nx) * double(ny)));
      }
    }
  }
  EXPECT_GE(tested, 1);
}

}  // namespace
