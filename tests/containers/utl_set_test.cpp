// Bit sets against a plain model on random sets, every population-count path against a
// bit-by-bit count, the odd cases, the error records, and the file and string forms.
#include "utl_set.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
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
using Model = std::vector<bool>;
using Ints = std::vector<int>;
struct SetDeleter {
  void operator()(UTL_SET *set) const { UTL_SET_DESTROY(set); }
};
using SetPtr = std::unique_ptr<UTL_SET, SetDeleter>;

struct UtlSet : ::testing::Test {
  // The members as read from the words; no bit at or above the size may be set.
  static Model ModelOf(const UTL_SET *set) {
    Model m(((set->size - 1) / 32 + 1) * 32);
    for (std::size_t e = 0; e < m.size(); ++e)
      m[e] = (set->words[e / 32] >> (e % 32)) & 1u;
    EXPECT_EQ(std::count(m.begin() + set->size, m.end(), true), 0) << "above " << set->size;
    m.resize(set->size);
    return m;
  }
  static Model Random(std::mt19937 &rng, std::size_t n, double density) {
    Model m(n);
    std::generate(m.begin(), m.end(), [&] { return std::bernoulli_distribution(density)(rng); });
    return m;
  }
  static Model With(int n, const Ints &members) {
    Model m(n);
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
  static SetPtr SetWith(int n, const Ints &in) { return SetOf(With(n, in)); }
  // The top record and its traces, innermost last, or "" when none is set.
  static std::string TopRecord() {
    std::string text = qxtest::TopIdentity();
    for (const std::string &trace : qxtest::TopError().traces)
      if (!text.empty()) text += " " + trace;
    return text;
  }
  static std::FILE *FileWith(const std::string &bytes) {
    std::FILE *f = std::tmpfile();
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::rewind(f);
    return f;
  }
  static std::string Word(std::uint32_t w) { return {reinterpret_cast<const char *>(&w), 4}; }
};

TEST_F(UtlSet, EveryRoutineMatchesTheModel) {
  using Make = UTL_SET *(*)(const UTL_SET *, const UTL_SET *);
  using Apply = int (*)(UTL_SET *, const UTL_SET *);
  // {fixed-size form, any-size form, in-place form, truth table indexed by 2 * in_a + in_b}
  const std::tuple<Make, Make, Apply, int> kOps[] = {
      {UTL_SET_AND, UTL_SET_AND_ANY_SIZE, UTL_SET_AND_INPLACE, 0b1000},
      {UTL_SET_OR, UTL_SET_OR_ANY_SIZE, UTL_SET_OR_INPLACE, 0b1110},
      {UTL_SET_DIFF, UTL_SET_DIFF_ANY_SIZE, UTL_SET_DIFF_INPLACE, 0b0100}};
  std::vector<std::tuple<int, int, double>> shapes = {{10, 40, .5}, {40, 10, .5}, {1, 2049, .5}};
  for (int n : {1, 2, 9, 31, 32, 33, 64, 65, 100, 129, 255, 2049})
    for (double density : {0.0, 0.03, 0.5, 0.97, 1.0})
      shapes.push_back({n, n, density});
  std::mt19937 rng(11);
  for (const auto &[na, nb, density] : shapes) {  // sizes of a and b, density of a
    SCOPED_TRACE(testing::Message() << na << " " << nb << " " << density);
    const Model ma = Random(rng, na, density), mb = Random(rng, nb, 0.3);
    SetPtr a = SetOf(ma), b = SetOf(mb);
    int count = 0, last = -1, next = -1, next_nonmember = na;
    for (int e = 0; e < na; count += ma[e++]) {
      EXPECT_EQ(UTL_SET_MEMBER(a.get(), e), ma[e] ? 1 : 0);
      EXPECT_EQ(UTL_SET_NSMALLER(a.get(), e), count);
      if (!ma[e]) continue;
      EXPECT_EQ(UTL_SET_ORDINALITY(a.get(), e), count + 1);
      EXPECT_EQ(UTL_SET_MEMBER_NUMBER(a.get(), count + 1), e);
      last = e;
    }
    for (int e = na - 1; e >= -1; --e) {  // from every start, both ends included
      EXPECT_EQ(UTL_SET_NEXT(a.get(), e), next);
      EXPECT_EQ(UTL_SET_NEXT_NONMEMBER(a.get(), e), next_nonmember);
      if (e >= 0) (ma[e] ? next : next_nonmember) = e;
    }
    EXPECT_EQ(std::make_tuple(UTL_SET_CARDINALITY(a.get()), UTL_SET_MIN(a.get()),
                              UTL_SET_MAX(a.get()), UTL_SET_MEMBER_NUMBER(a.get(), count + 1),
                              UTL_SET_EMPTY(a.get()), UTL_SET_NOT_EMPTY(a.get()),
                              UTL_SET_MEMBER(a.get(), -1) + UTL_SET_MEMBER(a.get(), na)),
              std::make_tuple(count, next, last, -1, int{count == 0}, int{count != 0}, 0));
    const int n = std::max(na, nb), low = std::min(na, nb);
    for (const auto &[fixed, any, in_place, table] : kOps) {
      Model want(n);
      for (int e = 0; e < n; ++e)
        want[e] = (table >> (2 * (e < na && ma[e]) + (e < nb && mb[e]))) & 1;
      EXPECT_EQ(ModelOf(SetPtr(any(a.get(), b.get())).get()), want);
      if (na != nb) continue;
      EXPECT_EQ(ModelOf(SetPtr(fixed(a.get(), b.get())).get()), want);
      SetPtr target(UTL_SET_COPY(a.get()));
      EXPECT_EQ(in_place(target.get(), b.get()), 1);
      EXPECT_EQ(ModelOf(target.get()), want);
    }
    Model common(low), not_a = ma;
    for (int e = 0; e < low; ++e)
      common[e] = ma[e] && mb[e];
    not_a.flip();
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_INTERSECT(a.get(), b.get())).get()), common);
    EXPECT_EQ(ModelOf(SetPtr(UTL_SET_NOT(a.get())).get()), not_a);
    EXPECT_EQ(UTL_SET_AND_IS_EMPTY(a.get(), b.get()), common == Model(low));
    EXPECT_EQ(UTL_SET_EQUAL(a.get(), b.get()), ma == mb);
    EXPECT_EQ(UTL_SET_FILL(a.get()), 1);
    EXPECT_EQ(ModelOf(a.get()), Model(na, true));
    EXPECT_FALSE(UTL_ERROR_IS_SET());
  }
}

TEST_F(UtlSet, EveryPopcountPathMatchesABitByBitCount) {
  std::vector<std::size_t> lengths = {127, 128, 129, 247, 248, 249, 255, 256, 257, 497, 1000};
  for (std::size_t n = 0; n <= 72; ++n)
    lengths.push_back(n);
  std::mt19937 rng(23);
  for (int p = 0; p < static_cast<int>(pc::Path::kCount); ++p) {
    const auto path = static_cast<pc::Path>(p);
    ASSERT_EQ(pc::Select(path), pc::Supported(path));
    if (!pc::Supported(path)) continue;
    const pc::Kernels &k = pc::KernelsFor(path);
    for (std::size_t n : lengths) {
      for (double density : {0.0, 0.1, 0.5, 1.0}) {
        SCOPED_TRACE(testing::Message() << pc::PathName(path) << " " << n << " " << density);
        // Two strings at offsets of 0..3 words, which vary their alignment.
        const Model bits = Random(rng, 64 * (n + 4), density);
        std::vector<std::uint32_t> words(2 * (n + 4));
        for (std::size_t i = 0; i < bits.size(); ++i)
          words[i / 32] |= std::uint32_t{bits[i]} << (i % 32);
        const std::size_t at_x = n % 4, at_y = n + 4 + (n / 4) % 4;
        int nx = 0, ny = 0, both = 0, either = 0, common = -1, union_count = -1;
        for (std::size_t i = 0; i < 32 * n; ++i) {
          const bool x = bits[32 * at_x + i], y = bits[32 * at_y + i];
          nx += x;
          ny += y;
          both += x && y;
          either += x || y;
        }
        const std::uint32_t *x = &words[at_x], *y = &words[at_y];
        double t = -1.0;
        ASSERT_EQ(k.count(x, n), nx);
        ASSERT_EQ(k.tanimoto(x, y, n, &common, &union_count, &t), either);
        ASSERT_EQ(std::make_tuple(common, union_count, t),
                  std::make_tuple(both, either, either == 0 ? 1.0 : double(both) / either));
        ASSERT_DOUBLE_EQ(k.cosine(x, y, n), nx == 0 || ny == 0 ? (nx == ny ? 1.0 : 0.0)
                                                               : both / std::sqrt(double(nx) * ny));
      }
    }
  }
  EXPECT_TRUE(pc::Select(pc::BestPath()));
}

TEST_F(UtlSet, OddCasesAndFailureRecords) {
  SetPtr empty = SetWith(10, {}), full = SetOf(Model(10, true)), last = SetWith(10, {9});
  // {set, e, next member, next non-member}
  const std::tuple<const UTL_SET *, int, int, int> kEnds[] = {
      {empty.get(), -1, -1, 0}, {empty.get(), 9, -1, 10}, {full.get(), 9, -1, 10},
      {full.get(), 20, -1, 10}, {last.get(), -5, 9, 0},   {nullptr, 1, -1, -1}};
  for (const auto &[set, e, next, next_nonmember] : kEnds) {
    EXPECT_EQ(UTL_SET_NEXT(set, e), next) << e;
    EXPECT_EQ(UTL_SET_NEXT_NONMEMBER(set, e), next_nonmember) << e;
  }
  // {sizes, members of a, of b, union, Tanimoto, cosine}; different sizes set only the union.
  const std::tuple<int, int, Ints, Ints, int, double, double> kSimilar[] = {
      {40, 40, {}, {}, 0, 1.0, 1.0},
      {40, 40, {}, {3}, 1, 0.0, 0.0},
      {40, 40, {1, 2, 39}, {2, 39}, 3, 2 / 3.0, 2 / std::sqrt(6.0)},
      {40, 41, {1}, {1}, -1, -7, -7}};
  for (const auto &[na, nb, in_a, in_b, union_count, tanimoto, cosine] : kSimilar) {
    SetPtr a = SetWith(na, in_a), b = SetWith(nb, in_b);
    int u = -7, c = -7;
    double t = -7, cos = -7;
    const int r = UTL_SET_TANIMOTO(a.get(), b.get(), &c, &u, &t);
    EXPECT_EQ(std::make_tuple(r, UTL_SET_COSINE(a.get(), b.get(), &cos), u, t, cos),
              std::make_tuple(std::max(union_count, 0), union_count < 0 ? 0 : 1, union_count,
                              tanimoto, cosine));
    EXPECT_EQ(c, union_count < 0 ? -7 : static_cast<int>(in_a.size() + in_b.size()) - u);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  // Growing refuses element 0; an element e past the size gives a new set of e + 50.
  UTL_SET *set = SetWith(10, {3}).release();
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(set, 0), nullptr);
  EXPECT_EQ(UTL_SET_INSERT_ANY_SIZE(set, 9), set);
  SetPtr grown(UTL_SET_INSERT_ANY_SIZE(set, 12)), fresh(UTL_SET_INSERT_ANY_SIZE(nullptr, 7));
  EXPECT_EQ(ModelOf(grown.get()), With(62, {3, 9, 12}));
  EXPECT_EQ(ModelOf(fresh.get()), With(57, {7}));
  EXPECT_EQ(UTL_SET_STORAGE_SIZE(grown.get()), 3);
  // {n, byte bound}: the bound uses truncating division.
  for (const auto &[n, bytes] : {std::pair{1, 8}, {9, 9}, {32, 11}, {33, 12}, {0, 8}, {-9, 7}})
    EXPECT_EQ(UTL_SET_SIZEOF(n), bytes) << n;
  SetPtr ten = SetWith(10, {2}), eleven = SetWith(11, {});
  UTL_SET *x = ten.get(), *y = eleven.get();
  std::FILE *file = FileWith(Word(40) + Word(5) + Word(6) + "9\n01 01\n");  // binary, text
  long raw[9];
  auto made = [](UTL_SET *set) { return SetPtr(set) != nullptr; };
  auto freed = [](char *s) { return s != nullptr && UTL_DMEM_FREE(s, "test", 0); };
  const std::string kOut = "UTL/SET/FATAL/OUT_RANGE ", kDiff = "UTL/SET/FATAL/DIFF_SIZE ",
                    kWarn = "UTL/SET/WARNING/ILLEGAL_VALUE ", kMem = "UTL/MEM/FATAL/NO_MEMORY ",
                    kSize = "UTL/SET/FATAL/BAD_SET_SIZE UTL_SET_CREATE",
                    kNew = kMem + "UTL_MEM_CALLOC UTL_SET_CREATE ";
  // {allocation to refuse (0: none), a call that fails, record and traces}
  const std::tuple<unsigned long, std::function<int()>, std::string> kRows[] = {
      {0, [&] { return UTL_SET_INSERT(x, 10); }, kOut + "UTL_SET_INSERT"},
      {0, [&] { return UTL_SET_DELETE(x, -1); }, kOut + "UTL_SET_DELETE"},
      {0, [&] { return UTL_SET_ORDINALITY(x, 3); }, kWarn + "UTL_SET_ORDINALITY"},
      {0, [&] { return UTL_SET_NSMALLER(x, 10) != -1; }, kWarn + "UTL_SET_ORDINALITY"},
      {0, [&] { return made(UTL_SET_EXTEND(x, -1)); }, kWarn + "UTL_SET_EXTEND"},
      {0, [&] { return made(UTL_SET_EXTEND(x, INT_MAX)); }, kSize + " UTL_SET_EXTEND"},
      {0, [&] { return made(UTL_SET_CREATE(0)); }, kSize},
      {0, [&] { return made(UTL_SET_AND(x, y)); }, kDiff + "UTL_SET_AND"},
      {0, [&] { return UTL_SET_COPY_INPLACE(x, y); }, kDiff + "UTL_SET_COPY_INPLACE"},
      {0, [&] { return UTL_SET_CREATE_STATIC(raw, 11, x); }, kDiff + "UTL_SET_CREATE_STATIC"},
      {1, [&] { return freed(UTL_SET_TO_STRING(x)); }, kMem + "UTL_MEM_ALLOC UTL_SET_TO_STRING"},
      {1, [&] { return std::rewind(file), made(UTL_SET_READ(file, 0)); },
       kMem + "UTL_MEM_CALLOC UTL_SET_READ (15)"},
      {1, [&] { return std::fseek(file, 12, SEEK_SET), made(UTL_SET_ASCII_READ(file)); },
       kNew + "UTL_SET_ASCII_READ (20)"},
      // Creators add their names; an any-size form first extends the smaller operand.
      {1, [&] { return made(UTL_SET_COPY(x)); }, kNew + "UTL_SET_COPY"},
      {1, [&] { return made(UTL_SET_OR_ANY_SIZE(x, y)); },
       kNew + "UTL_SET_EXTEND UTL_SET_OR_ANY_SIZE (10)"},
      {2, [&] { return made(UTL_SET_OR_ANY_SIZE(x, y)); },
       kNew + "UTL_SET_OR UTL_SET_OR_ANY_SIZE (20)"},
      {1, [&] { return UTL_SET_INSERT_ANY_SIZE(x, 12) != nullptr; },  // x stays the caller's
       kNew + "UTL_SET_EXTEND UTL_SET_INSERT_ANY_SIZE (10)"}};
  for (const auto &[fail_at, call, record] : kRows) {
    UTL_ERROR_CLEAR();
    {
      qxtest::FailAllocation fail(fail_at);
      EXPECT_EQ(call(), 0) << record;
    }
    EXPECT_EQ(TopRecord(), record);
  }
  EXPECT_EQ(ModelOf(x), With(10, {2}));  // failures changed nothing
  std::fclose(file);
}

TEST_F(UtlSet, StringTextAndListingForms) {
  const std::tuple<int, Ints, const char *> kRows[] = {
      {5, {4}, "08"}, {8, {4, 5, 6, 7}, "0F"},        {1, {0}, "8"},
      {6, {5}, "04"}, {33, {0, 31, 32}, "800000018"}, {12, {1, 6, 11}, "421"},
  };
  for (const auto &[n, members, string] : kRows) {
    SetPtr set = SetWith(n, members), back = SetOf(Model(n, true));
    char *text = UTL_SET_TO_STRING(set.get());
    EXPECT_STREQ(text, string);
    EXPECT_EQ(UTL_SET_FROM_STRING(text, back.get()), 1);
    EXPECT_EQ(ModelOf(back.get()), ModelOf(set.get())) << string;
    UTL_DMEM_FREE(text, "test", __LINE__);
  }
  // Reading into a set of 8 holding {1}: a zero digit past the end inserts nothing, a
  // bad character changes nothing, members before one beyond the set stay.
  const std::string kOut = "UTL/SET/FATAL/OUT_RANGE UTL_SET_INSERT",
                    kBad = "UTL/SET/FATAL/ILLEGAL_VALUE UTL_SET_FROM_STRING";
  const std::tuple<const char *, std::string, Ints> kReads[] = {
      {"0f", "", {4, 5, 6, 7}}, {"0F0", "", {4, 5, 6, 7}}, {nullptr, "", {}},
      {"801", kOut, {0}},       {"0G", kBad, {1}},
  };
  for (const auto &[string, record, after] : kReads) {
    UTL_ERROR_CLEAR();
    SetPtr set = SetWith(8, {1});
    EXPECT_EQ(UTL_SET_FROM_STRING(string, set.get()), record.empty() ? 1 : 0);
    EXPECT_EQ(TopRecord(), record);
    EXPECT_EQ(ModelOf(set.get()), With(8, after)) << (string ? string : "NULL");
  }

  const std::string kZeros = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";
  // {n, skip (-1: the text form, else the listing), members, text}
  const std::tuple<int, int, Ints, std::string> kForms[] = {
      {9, -1, {0, 8}, "9\n01 01 \n"},
      {160, -1, {}, "160\n" + kZeros + "\n"},
      {161, -1, {160}, "161\n" + kZeros + "\n01 \n"},
      {12, 0, {0, 11}, "1000000000 01 (12 items)\n"},
      {1, 1, {0}, " (0 items)\n"}};
  for (const auto &[n, skip, members, text] : kForms) {
    SetPtr set = SetWith(n, members);
    std::FILE *f = std::tmpfile();
    EXPECT_EQ(
        skip < 0 ? UTL_SET_ASCII_WRITE(f, set.get()) : UTL_SET_LIST(fprintf, f, set.get(), skip),
        1);
    std::string written(4096, '\0');
    std::rewind(f);
    written.resize(std::fread(written.data(), 1, written.size(), f));
    EXPECT_EQ(written, text) << n;
    std::fclose(f);
  }
}

TEST_F(UtlSet, FileFormsRoundTripAndRejectHostileFiles) {
  std::mt19937 rng(17);
  for (int n = 1; n <= 100; ++n) {
    const Model m = Random(rng, n, 0.5);
    SetPtr set = SetOf(m);
    // Stray bits above n, which every reader clears, and the record as a host of
    // the other byte order writes it.
    if (n % 32 != 0) set->words[(n - 1) / 32] |= ~0u << (n % 32);
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

  const std::string kEnd = "UTL/FILES/WARNING/END_OF_FILE UTL_FILE_READ UTL_SET_READ (",
                    kBad = "UTL/SET/FATAL/BAD_SET_SIZE UTL_SET_CREATE UTL_SET_",
                    kE10 = kEnd + "10)", kE20 = kEnd + "20)", kB15 = kBad + "READ (15)",
                    kB20 = kBad + "ASCII_READ (20)",
                    kT = "UTL/SET/FATAL/FILE_ERROR UTL_SET_ASCII_READ (10)";
  // Hostile files: {bytes, reader (0: binary, 1: swapped, 2: text), record and traces,
  // allocations at most on a regular file}; 0x80 is negative once swapped.
  const std::tuple<std::string, int, std::string, unsigned long> kRows[] = {
      {"\x09", 0, kE10, 0},          {Word(-5), 0, kB15, 0},     {Word(0x80), 1, kB15, 0},
      {Word(INT_MAX), 0, kE20, 0},   {"abc", 2, kT, 0},          {"-3\n", 2, kB20, 0},
      {"99999999999\n", 2, kB20, 0}, {"9\n01\n", 2, kT, 1},      {"9\n01 zz\n", 2, kT, 1},
      {"9\n01 1ff\n", 2, kT, 1},     {"2147483647\n0", 2, kT, 0}};
  for (const auto &[bytes, reader, record, allocations] : kRows) {
    for (bool regular : {true, false}) {
      UTL_ERROR_CLEAR();
      std::FILE *f =
          regular ? FileWith(bytes) : fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "r");
      const unsigned long before = qx::heap::RequestCount();
      EXPECT_EQ(reader == 2 ? UTL_SET_ASCII_READ(f) : UTL_SET_READ(f, reader), nullptr);
      EXPECT_EQ(TopRecord(), record) << testing::PrintToString(bytes) << " regular " << regular;
      EXPECT_LE(qx::heap::RequestCount() - before, regular ? allocations : 1u);
      std::fclose(f);
    }
  }
}

}  // namespace
