// String utilities and string buffers: searches, copies, conversions, the
// buffer's growth rule, and every allocation-failure trace.
#include "utl_str.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

#if defined(__SANITIZE_ADDRESS__)
#define QX_STR_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_STR_TEST_ASAN 1
#endif
#endif

#ifdef QX_STR_TEST_ASAN
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void *p);
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

// Takes an allocated result, returns it as a string ("<null>" for NULL) and
// frees it.
std::string Take(char *text) {
  if (text == nullptr) return "<null>";
  std::string s(text);
  UTL_DMEM_FREE(text, "utl_str_test", __LINE__);
  return s;
}

// ---- Comparison and search ------------------------------------------------

TEST(StrSearch, ComparisonsFoldToUpperCase) {
  struct Row {
    const char *a, *b;
    int n;  // -1: UTL_STR_CMP_NOCASE, else UTL_STR_NCMP_NOCASE with n
    int expected;
  };
  constexpr Row kRows[] = {
      {"Quartz", "QUARTZ", -1, 0},
      {"abc", "abd", -1, 'C' - 'D'},
      {"ab", "abc", -1, -'C'},
      {"_", "a", -1, '_' - 'A'},  // folds to upper, not lower: 95 - 65
      {nullptr, "a", -1, 1},
      {"a", nullptr, -1, 1},
      {nullptr, nullptr, 3, 1},
      {"abcX", "ABCy", 3, 0},
      {"abcX", "ABCy", 4, 'X' - 'Y'},
      {"abcX", "ABCy", 0, 'X' - 'Y'},
      {"ab", "ab", 10, 0},
      {"", "", -1, 0},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(std::string(row.a ? row.a : "null") + "|" + (row.b ? row.b : "null") + "|" +
                 std::to_string(row.n));
    const int got =
        row.n < 0 ? UTL_STR_CMP_NOCASE(row.a, row.b) : UTL_STR_NCMP_NOCASE(row.a, row.b, row.n);
    EXPECT_EQ(got, row.expected);
  }
}

TEST(StrSearch, SubstringsAndBlanks) {
  struct Row {
    int (*fn)(const char *, const char *);
    const char *text, *part;
    int expected;
  };
  const Row kRows[] = {
      {UTL_STR_SUBSTRING, "abc", "", 3},           {UTL_STR_SUBSTRING, "abcabc", "ca", 2},
      {UTL_STR_SUBSTRING, "abc", "B", -1},         {UTL_STR_SUBSTRING, "", "", 0},
      {UTL_STR_SUBSTRING, "ab", "abc", -1},        {UTL_STR_SUBSTRING, nullptr, "a", -1},
      {UTL_STR_SUBSTRING_NOCASE, "abc", "", -1},   {UTL_STR_SUBSTRING_NOCASE, "", "a", -1},
      {UTL_STR_SUBSTRING_NOCASE, "xAbC", "bc", 2}, {UTL_STR_SUBSTRING_NOCASE, "abab", "BA", 1},
      {UTL_STR_SUBSTRING_NOCASE, "ab", "abc", -1}, {UTL_STR_SUBSTRING_NOCASE, "a", nullptr, -1},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(std::string(row.text ? row.text : "null") + "|" + (row.part ? row.part : "null"));
    EXPECT_EQ(row.fn(row.text, row.part), row.expected);
  }

  struct Blank {
    const char *text;
    int first, last;
  };
  constexpr Blank kBlanks[] = {{"", -1, -1},   {"   ", -1, -1}, {"  ab c  ", 2, 5},
                               {"\tx ", 0, 1}, {"x", 0, 0},     {nullptr, -1, -1}};
  for (const Blank &row : kBlanks) {
    SCOPED_TRACE(row.text ? row.text : "null");
    EXPECT_EQ(UTL_STR_FIRST_NONBLANK(row.text), row.first);
    EXPECT_EQ(UTL_STR_LAST_NONBLANK(row.text), row.last);
    if (row.text == nullptr) continue;
    char buf[16];
    std::strcpy(buf, row.text);
    UTL_STR_TRIM_TRAILING_BLANKS(buf);
    EXPECT_EQ(std::string(buf), std::string(row.text, row.last + 1));
  }
}

TEST(StrSearch, FindStrAndWildNames) {
  const char *const names[] = {"C1", "n2", nullptr, "O3", "C1"};
  EXPECT_EQ(UTL_STR_FIND_STR(5, names, "C1"), 0);
  EXPECT_EQ(UTL_STR_FIND_STR(5, names, "O3"), 3);
  EXPECT_EQ(UTL_STR_FIND_STR(5, names, "N2"), -1) << "case counts";
  EXPECT_EQ(UTL_STR_FIND_STR(3, names, "O3"), -1) << "only count elements";
  EXPECT_EQ(UTL_STR_FIND_STR(0, names, "C1"), -1);
  EXPECT_EQ(UTL_STR_FIND_STR(-2, names, "C1"), -1);

  struct Row {
    const char *text;
    int expected;
  };
  constexpr Row kWild[] = {{"*", 1},   {"**", 2}, {"a*", 2},    {"*.pdb", 2},
                           {"abc", 0}, {"", 0},   {nullptr, 0}, {" *", 2}};
  for (const Row &row : kWild)
    EXPECT_EQ(UTL_STR_IS_WILD_NAME(row.text), row.expected) << row.text;
}

// ---- Copies ---------------------------------------------------------------

TEST(StrCopy, EachCopyingFunctionBuildsTheDocumentedText) {
  struct Row {
    const char *name;
    char *(*fn)(const char *);
    const char *text;
    const char *expected;  // "<null>" for a NULL result
  };
  const Row kRows[] = {
      {"nospace", UTL_STR_NOSPACE, " a b\tc ", "ab\tc"},
      {"nospace", UTL_STR_NOSPACE, "   ", ""},
      {"trim", UTL_STR_NO_LEAD_OR_TRAIL_SPACE, "  x y  ", "x y"},
      {"trim", UTL_STR_NO_LEAD_OR_TRAIL_SPACE, "    ", "<null>"},
      {"trim", UTL_STR_NO_LEAD_OR_TRAIL_SPACE, "", "<null>"},
      {"trim", UTL_STR_NO_LEAD_OR_TRAIL_SPACE, "\tz", "\tz"},
      {"upcase", UTL_STR_UPCASE, "Fe2+ az{}\xe9", "FE2+ AZ{}\xe9"},
      {"locase", UTL_STR_LOCASE, "Fe2+ AZ[]\xc9", "fe2+ az[]\xc9"},
      {"strip", UTL_STR_STRIP_SURR_QUOTES, "\"CA\"", "CA"},
      {"strip", UTL_STR_STRIP_SURR_QUOTES, "'a b'", "a b"},
      {"strip", UTL_STR_STRIP_SURR_QUOTES, "''", ""},
      {"strip", UTL_STR_STRIP_SURR_QUOTES, "\"x'", "\"x'"},
      {"strip", UTL_STR_STRIP_SURR_QUOTES, "\"", "\""},
      {"strip", UTL_STR_STRIP_SURR_QUOTES, "`a`", "`a`"},
      {"strip", UTL_STR_STRIP_SURR_QUOTES, nullptr, "<null>"},
      {"nospace", UTL_STR_NOSPACE, nullptr, "<null>"},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(std::string(row.name) + ": " + (row.text ? row.text : "null"));
    EXPECT_EQ(Take(row.fn(row.text)), row.expected);
    EXPECT_FALSE(UTL_ERROR_IS_SET());
  }

  struct Skrunch {
    const char *text;
    char c;
    const char *expected;
  };
  constexpr Skrunch kSkrunch[] = {{"a//b///c", '/', "a/b/c"},
                                  {"  lead  trail  ", ' ', " lead trail "},
                                  {"xxxx", 'x', "x"},
                                  {"abc", 'x', "abc"},
                                  {"", 'x', ""},
                                  {nullptr, 'x', "<null>"}};
  for (const Skrunch &row : kSkrunch) {
    EXPECT_EQ(Take(UTL_STR_SKRUNCH_CHAR(row.text, row.c)), row.expected) << row.text;
  }

  EXPECT_EQ(Take(UTL_STR_CONCATENATE("ab", "cd")), "abcd");
  EXPECT_EQ(Take(UTL_STR_CONCATENATE("", "")), "");
  EXPECT_EQ(Take(UTL_STR_NCONCATENATE("/data", "/", "cell.txt", nullptr)), "/data/cell.txt");
  EXPECT_EQ(Take(UTL_STR_NCONCATENATE(nullptr)), "");
  EXPECT_EQ(Take(UTL_STR_NCONCATENATE("a", nullptr, "b", nullptr)), "a")
      << "stops at the first NULL";
}

TEST(StrCopy, UpcaseOfNullRecordsAWarning) {
  EXPECT_EQ(UTL_STR_UPCASE(nullptr), nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/STR/WARNING/NULL_STRING");
  EXPECT_EQ(qxtest::TopError().traces, Traces{"UTL_STR_UPCASE"});
}

TEST(StrCopy, SaveAllocatesTheHistoricalBlockSize) {
  struct Row {
    const char *text;
    std::size_t block;
  };
  constexpr Row kRows[] = {{"", 4}, {"ab", 4}, {"abc", 8}, {"abcdefg", 12}, {"abcdefgh", 12}};
  for (const Row &row : kRows) {
    char *copy = UTL_DSTR_SAVE(row.text, "utl_str_test", __LINE__);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, row.text);
#ifdef QX_STR_TEST_ASAN
    EXPECT_EQ(__sanitizer_get_allocated_size(copy), row.block) << row.text;
#endif
    UTL_DMEM_FREE(copy, "utl_str_test", __LINE__);
  }
  EXPECT_EQ(UTL_DSTR_SAVE(nullptr, "utl_str_test", __LINE__), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

// ---- Editing ----------------------------------------------------------------

TEST(StrEdit, SubstituteReplacesNonOverlappingOccurrences) {
  struct Row {
    const char *pattern, *replacement, *text;
    int count;
    const char *result;
  };
  constexpr Row kRows[] = {
      {"a", "xyz", "banana", 3, "bxyznxyznxyz"},
      {"ana", "X", "banana", 1, "bXna"},
      {"aa", "b", "aaaaa", 2, "bba"},
      {"zz", "q", "abc", 0, "abc"},
      {"a", "", "aaa", 3, ""},
      {"a", "bb", "aaaa", 4, "bbbbbbbb"},  // fills the work area exactly
      {"ab", "abab", "ab", 1, "abab"},     // no rescanning of the replacement
      {"", "x", "abc", 0, "abc"},
      {"a", "b", "", 0, ""},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(std::string(row.pattern) + "->" + row.replacement + " in " + row.text);
    char text[64];
    std::strcpy(text, row.text);
    EXPECT_EQ(UTL_STR_SUBSTITUTE(row.pattern, row.replacement, text), row.count);
    EXPECT_STREQ(text, row.result);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

// ---- Numbers ----------------------------------------------------------------

TEST(StrNumbers, AtoiAcceptsOnlySpacesMinusAndDigits) {
  struct Row {
    const char *text;
    int ok, value;
  };
  constexpr Row kRows[] = {
      {" -12", 1, -12},
      {"12", 1, 12},
      {"12 ", 0, 0},
      {"+5", 0, 0},
      {"", 0, 0},
      {nullptr, 0, 0},
      {"1a", 0, 0},
      {"--1", 0, 0},
      {"  007", 1, 7},
      {"2147483647", 1, 2147483647},
      {"2147483648", 0, 0},
      {"-2147483648", 1, -2147483647 - 1},
      {"99999999999999999999", 0, 0},
      {"\t1", 0, 0},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text ? row.text : "null");
    int value = 4242;
    EXPECT_EQ(UTL_STR_ATOI(row.text, &value), row.ok);
    EXPECT_EQ(value, row.value);
  }
}

TEST(StrNumbers, ExtractFindsTheFirstInteger) {
  struct Row {
    const char *text;
    char minus;  // 0: UTL_STR_EXTRACT_INT
    int ok, value;
  };
  constexpr Row kRows[] = {
      {"atom 12 of 30", 0, 1, 12}, {"x-5y", 0, 1, -5},       {"a - 5", 0, 1, 5},
      {"no digits", 0, 0, 0},      {"--7", 0, 1, -7},        {"", 0, 0, 0},
      {"12-3", 0, 1, 12},          {"b~40", '~', 1, -40},    {"b-40", '~', 1, 40},
      {"~ 3", '~', 1, 3},          {"v9999999999", 0, 0, 0},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text);
    int value = 0;
    const int ok = row.minus == 0 ? UTL_STR_EXTRACT_INT(row.text, &value)
                                  : UTL_STR_EXTRACT_INT_M(row.text, row.minus, &value);
    EXPECT_EQ(ok, row.ok);
    if (row.ok) {
      EXPECT_EQ(value, row.value);
    }
  }
}

TEST(StrNumbers, AtofValidatesItsGrammar) {
  struct Row {
    const char *text;
    double value;
  };
  constexpr Row kGood[] = {{"1.5", 1.5},  {" -2 . 5e1 ", -25.0},  // spaces vanish, e is E
                           {"1E+3", 1e3}, {"1e-2", 0.01},        {".5", 0.5}, {"-.5", -0.5},
                           {"5.", 5.0},   {"+7", 7.0},           {"", 0.0}};
  for (const Row &row : kGood) {
    errno = EINVAL;
    EXPECT_DOUBLE_EQ(UTL_STR_ATOF(row.text), row.value) << row.text;
    EXPECT_FALSE(UTL_ERROR_IS_SET()) << row.text;
    EXPECT_EQ(errno, 0) << "the conversion starts with errno cleared";
  }
  struct Bad {
    const char *text, *identity, *first_trace;
  };
  const char *kIllegal = "UTL/STR/WARNING/ILLEGAL_VALUE";
  const Bad kBad[] = {{"1e", kIllegal, ""},
                      {"1e+", kIllegal, ""},
                      {"abc", kIllegal, ""},
                      {"1.2.3", kIllegal, ""},
                      {"--1", kIllegal, ""},
                      {"+-1", kIllegal, ""},
                      {"0x10", kIllegal, ""},
                      {"inf", kIllegal, ""},
                      {"1\t2", kIllegal, ""},
                      {"1,5", kIllegal, ""},
                      {nullptr, kIllegal, ""},
                      {"1e999", "UTL/STR/WARNING/MATH_ERROR", "atof()"},
                      {"-1E999", "UTL/STR/WARNING/MATH_ERROR", "atof()"}};
  for (const Bad &row : kBad) {
    SCOPED_TRACE(row.text ? row.text : "null");
    UTL_ERROR_CLEAR();
    errno = 0;
    EXPECT_EQ(UTL_STR_ATOF(row.text), 0.0);
    EXPECT_EQ(qxtest::TopIdentity(), row.identity);
    EXPECT_EQ(qxtest::TopError().traces, (Traces{row.first_trace, "UTL_STR_ATOF"}));
    EXPECT_EQ(qxtest::StackTop(), 0) << "freeing the copy must not record anything";
    EXPECT_EQ(errno, 0) << "a range error is cleared again";
  }
}

// ---- String buffer ------------------------------------------------------------

TEST(StrBuff, GrowsByTheLargerOfIncrementAndShortfall) {
  struct Step {
    const char *text;  // nullptr: a null addition
    int capacity;
    std::ptrdiff_t used;  // end - data
  };
  struct Row {
    int initial, increment;
    std::vector<Step> steps;
  };
  const std::string s150(150, 'x');
  const std::string s20(20, 'y');
  const Row kRows[] = {
      {100, 100, {{s150.c_str(), 250, 150}}},
      {10, 4, {{"abc", 10, 3}, {"defghij", 14, 10}, {s20.c_str(), 31, 30}, {"", 31, 30}}},
      {0, 0, {{"a", 128, 1}}},
      {-5, -5, {{s150.c_str(), 278, 150}}},
      {4, 2, {{"abcd", 6, 4}, {"e", 6, 5}, {"f", 8, 6}}},
      {2, 1, {{nullptr, 2, 1}, {nullptr, 3, 2}, {"z", 4, 3}}},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(std::to_string(row.initial) + "," + std::to_string(row.increment));
    UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(row.initial, row.increment);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->data, nullptr);
    EXPECT_STREQ(UTL_STR_BUFF_GET(b), "");
    std::string expected;
    for (const Step &step : row.steps) {
      char *data = UTL_STR_BUFF_ADD(b, step.text);
      ASSERT_EQ(data, b->data);
      EXPECT_EQ(b->capacity, step.capacity);
      EXPECT_EQ(b->end - b->data, step.used);
      EXPECT_EQ(*b->end, '\0');
      expected += step.text != nullptr ? std::string(step.text) : std::string(1, '\0');
      EXPECT_EQ(std::string(b->data, b->end - b->data), expected);
    }
    EXPECT_EQ(UTL_STR_BUFF_DESTROY(b), 1);
  }
}

TEST(StrBuff, NullAdditionsSeparateTextsAndStealStartsAfresh) {
  UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(8, 8);
  UTL_STR_BUFF_ADD(b, "ab");
  UTL_STR_BUFF_ADD(b, nullptr);
  UTL_STR_BUFF_ADD(b, "cd");
  EXPECT_EQ(std::string(b->data, 6), std::string("ab\0cd\0", 6));
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "ab");

  char *stolen = UTL_STR_BUFF_STEAL(b);
  ASSERT_NE(stolen, nullptr);
  EXPECT_EQ(std::string(stolen, 6), std::string("ab\0cd\0", 6));
#ifdef QX_STR_TEST_ASAN
  EXPECT_EQ(__sanitizer_get_allocated_size(stolen), 6u) << "shrunk to the used length";
#endif
  UTL_DMEM_FREE(stolen, "utl_str_test", __LINE__);
  EXPECT_EQ(b->data, nullptr);
  EXPECT_EQ(b->end, nullptr);
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "");
  EXPECT_EQ(UTL_STR_BUFF_STEAL(b), nullptr);
  UTL_STR_BUFF_ADD(b, "new");
  EXPECT_EQ(b->capacity, 8) << "the next addition starts with the initial size";

  const char *data = b->data;
  EXPECT_EQ(UTL_STR_BUFF_CLEAR(b), b);
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "");
  EXPECT_EQ(b->data, data) << "clear keeps the storage";
  EXPECT_EQ(b->end, b->data);

  UTL_STR_BUFF_ADD(b, "abcdef");
  UTL_STR_BUFF_ADD(b, b->data);  // itself, across a reallocation
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "abcdefabcdef");
  EXPECT_EQ(UTL_STR_BUFF_DESTROY(b), 1);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

// ---- Allocation failures ----------------------------------------------------------

TEST(StrFailures, EveryRefusedAllocationAddsItsTrace) {
  struct Row {
    const char *name;
    char *(*make)();
    Traces traces;
  };
  const Row kRows[] = {
      {"save",
       [] { return UTL_DSTR_SAVE("abc", "caller", 7); },
       {"UTL_MEM_ALLOC", "UTL_DSTR_SAVE"}},
      {"concatenate",
       [] { return UTL_STR_CONCATENATE("a", "b"); },
       {"UTL_MEM_ALLOC", "UTL_STR_CONCATENATE"}},
      {"nconcatenate", [] { return UTL_STR_NCONCATENATE("a", "b", nullptr); }, {"UTL_MEM_ALLOC"}},
      {"nospace", [] { return UTL_STR_NOSPACE("a b"); }, {"UTL_MEM_ALLOC", "UTL_STR_NOSPACE"}},
      {"trim",
       [] { return UTL_STR_NO_LEAD_OR_TRAIL_SPACE(" a "); },
       {"UTL_MEM_ALLOC", "UTL_STR_NO_LEAD_OR_TRAIL_SPACE"}},
      {"upcase", [] { return UTL_STR_UPCASE("a"); }, {"UTL_MEM_ALLOC", "UTL_STR_UPCASE"}},
      {"locase", [] { return UTL_STR_LOCASE("A"); }, {"UTL_MEM_ALLOC", "UTL_STR_LOCASE"}},
      {"strip quoted",
       [] { return UTL_STR_STRIP_SURR_QUOTES("'q'"); },
       {"UTL_MEM_ALLOC", "UTL_STR_STRIP_SURR_QUOTES (10)"}},
      {"strip plain",
       [] { return UTL_STR_STRIP_SURR_QUOTES("q"); },
       {"UTL_MEM_ALLOC", "UTL_DSTR_SAVE", "UTL_STR_STRIP_SURR_QUOTES (20)"}},
      {"skrunch",
       [] { return UTL_STR_SKRUNCH_CHAR("aa", 'a'); },
       {"UTL_MEM_ALLOC", "UTL_STR_SKRUNCH_CHAR (10)"}},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.name);
    UTL_ERROR_CLEAR();
    {
      qxtest::FailAllocation guard(1);
      EXPECT_EQ(row.make(), nullptr);
    }
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    EXPECT_EQ(qxtest::TopError().traces, row.traces);
    UTL_ERROR_CLEAR();
    EXPECT_NE(Take(row.make()), "<null>") << "succeeds once the heap answers";
  }
}

TEST(StrFailures, AtofAndSubstituteUnderRefusal) {
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_STR_ATOF("2.5"), 0.0);
  }
  EXPECT_EQ(qxtest::TopError().traces,
            (Traces{"UTL_MEM_ALLOC", "UTL_STR_NOSPACE", "UTL_STR_ATOF"}));
  UTL_ERROR_CLEAR();

  char text[] = "banana";
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_STR_SUBSTITUTE("a", "o", text), 0);
  }
  EXPECT_STREQ(text, "banana");
  EXPECT_EQ(qxtest::TopError().traces, Traces{"UTL_MEM_ALLOC"}) << "no trace of its own";
}

TEST(StrFailures, RefusedBufferRequestsLeaveTheBufferIntact) {
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_STR_BUFF_CREATE(4, 4), nullptr);
  }
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_CALLOC", "UTL_STR_BUFF_CREATE"}));
  UTL_ERROR_CLEAR();

  UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(4, 4);
  struct Row {
    const char *text;
    const char *first_trace;
  };
  constexpr Row kRows[] = {{"abc", "UTL_MEM_ALLOC"}, {"defgh", "UTL_MEM_REALLOC (0)"}};
  std::string held;
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text);
    const int capacity = b->capacity;
    {
      qxtest::FailAllocation guard(1);
      EXPECT_EQ(UTL_STR_BUFF_ADD(b, row.text), nullptr);
    }
    EXPECT_EQ(qxtest::TopError().traces, (Traces{row.first_trace, "UTL_STR_BUFF_ADD"}));
    EXPECT_EQ(b->capacity, capacity);
    EXPECT_STREQ(UTL_STR_BUFF_GET(b), held.c_str());
    UTL_ERROR_CLEAR();
    ASSERT_NE(UTL_STR_BUFF_ADD(b, row.text), nullptr);
    held += row.text;
  }
  {
    qxtest::FailAllocation guard(1);
    EXPECT_EQ(UTL_STR_BUFF_STEAL(b), nullptr);
  }
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_REALLOC (0)", "UTL_STR_BUFF_STEAL"}));
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "abcdefgh") << "a refused steal keeps the text";
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_STR_BUFF_DESTROY(b), 1);
}

}  // namespace
