// String utilities and string buffers: searches, conversions and their error
// records, copies and edits, the buffer's growth rule, and every refusal trace.
#include "utl_str.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

using Traces = std::vector<std::string>;

enum Search { kCmp, kNcmp, kFind, kSub, kSubNc, kFirst, kLast, kTrim, kWild };

int Answer(Search fn, const char *a, const char *b, int n) {
  static const char *const kNames[] = {"C1", "n2", nullptr, "O3", "C1"};
  std::string trimmed(a != nullptr ? a : "");
  UTL_STR_TRIM_TRAILING_BLANKS(trimmed.data());
  return fn == kCmp     ? UTL_STR_CMP_NOCASE(a, b)
         : fn == kNcmp  ? UTL_STR_NCMP_NOCASE(a, b, n)
         : fn == kFind  ? UTL_STR_FIND_STR(n, kNames, b)
         : fn == kSub   ? UTL_STR_SUBSTRING(a, b)
         : fn == kSubNc ? UTL_STR_SUBSTRING_NOCASE(a, b)
         : fn == kFirst ? UTL_STR_FIRST_NONBLANK(a)
         : fn == kLast  ? UTL_STR_LAST_NONBLANK(a)
         : fn == kTrim  ? static_cast<int>(std::strlen(trimmed.c_str()))
                        : UTL_STR_IS_WILD_NAME(a);
}

enum Make { kSave, kCat, kNcat, kNospace, kStrip, kUp, kLow, kQuotes, kSkrunch };

char *MakeText(Make fn, const char *a, const char *b) {
  return fn == kSave      ? UTL_DSTR_SAVE(a, "utl_str_test", __LINE__)
         : fn == kCat     ? UTL_STR_CONCATENATE(a, b)
         : fn == kNcat    ? UTL_STR_NCONCATENATE(a, b, "cell.txt", nullptr)
         : fn == kNospace ? UTL_STR_NOSPACE(a)
         : fn == kStrip   ? UTL_STR_NO_LEAD_OR_TRAIL_SPACE(a)
         : fn == kUp      ? UTL_STR_UPCASE(a)
         : fn == kLow     ? UTL_STR_LOCASE(a)
         : fn == kQuotes  ? UTL_STR_STRIP_SURR_QUOTES(a)
                          : UTL_STR_SKRUNCH_CHAR(a, *b);
}

// Frees an allocated result and returns it as a string ("<null>" for NULL).
std::string Take(char *text) {
  const std::string s = text != nullptr ? text : "<null>";
  UTL_DMEM_FREE(text, "utl_str_test", __LINE__);
  return s;
}

// kCmp folds to upper case: "_" sorts after "a" ('_' - 'A' = 30). kFind looks
// through {"C1", "n2", NULL, "O3", "C1"}, n elements. kTrim gives the length
// left by UTL_STR_TRIM_TRAILING_BLANKS. Tabs are not blanks.
TEST(Str, SearchesAnswerWithoutTouchingTheErrorStack) {
  const std::tuple<Search, const char *, const char *, int, int> kRows[] = {
      {kCmp, "aZ", "Az", 0, 0},      {kCmp, "ab", "abc", 0, -'C'},  {kCmp, "_", "a", 0, 30},
      {kCmp, nullptr, "a", 0, 1},    {kCmp, "a", nullptr, 0, 1},    {kNcmp, "abX", "ABy", 2, 0},
      {kNcmp, "abX", "ABy", 0, -1},  {kNcmp, "abX", "ABy", -2, -1}, {kNcmp, "ab", "ab", 10, 0},
      {kNcmp, nullptr, "a", 3, 1},   {kFind, "", "C1", 5, 0},       {kFind, "", "O3", 5, 3},
      {kFind, "", "N2", 5, -1},      {kFind, "", "O3", 3, -1},      {kFind, "", "C1", 0, -1},
      {kSub, "abc", "", 0, 3},       {kSub, "abcabc", "ca", 0, 2},  {kSub, "abc", "B", 0, -1},
      {kSub, "", "", 0, 0},          {kSub, "ab", "abc", 0, -1},    {kSub, nullptr, "a", 0, -1},
      {kSubNc, "abc", "", 0, -1},    {kSubNc, "", "a", 0, -1},      {kSubNc, "xAbC", "bc", 0, 2},
      {kSubNc, "abab", "BA", 0, 1},  {kSubNc, "ab", "abc", 0, -1},  {kSubNc, "a", nullptr, 0, -1},
      {kFirst, "  ab c ", "", 0, 2}, {kLast, "  ab c ", "", 0, 5},  {kTrim, "  ab c ", "", 0, 6},
      {kFirst, "   ", "", 0, -1},    {kLast, "   ", "", 0, -1},     {kTrim, "   ", "", 0, 0},
      {kFirst, "\tx ", "", 0, 0},    {kLast, "\tx ", "", 0, 1},     {kTrim, "\tx ", "", 0, 2},
      {kFirst, "", "", 0, -1},       {kLast, nullptr, "", 0, -1},   {kWild, "*", "", 0, 1},
      {kWild, "a*", "", 0, 2},       {kWild, "**", "", 0, 2},       {kWild, "abc", "", 0, 0},
      {kWild, nullptr, "", 0, 0}};
  for (const auto &[fn, a, b, n, expected] : kRows)
    EXPECT_EQ(Answer(fn, a, b, n), expected) << fn << " '" << (a ? a : "null") << "' " << n;
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

// Conversion with minus 0 is UTL_STR_ATOI (result 0 when invalid), '-'
// UTL_STR_EXTRACT_INT, else UTL_STR_EXTRACT_INT_M (result untouched when none).
TEST(Str, IntegerConversionsAcceptOnlyTheirGrammarAndRange) {
  constexpr std::tuple<const char *, char, int, int> kRows[] = {
      {" -12", 0, 1, -12}, {"   ", 0, 1, 0},       {"-", 0, 1, 0},        {"12 ", 0, 0, 0},
      {"+5", 0, 0, 0},     {"", 0, 0, 0},          {nullptr, 0, 0, 0},    {"\t1", 0, 0, 0},
      {"--1", 0, 0, 0},    {"a12b30", '-', 1, 12}, {"x-5y", '-', 1, -5},  {"a - 5", '-', 1, 5},
      {"--7", '-', 1, -7}, {"none", '-', 0, 4242}, {"b~40", '~', 1, -40}, {"b-40", '~', 1, 40}};
  for (const auto &[text, minus, ok, value] : kRows) {
    int result = 4242;
    EXPECT_EQ(minus == 0     ? UTL_STR_ATOI(text, &result)
              : minus == '-' ? UTL_STR_EXTRACT_INT(text, &result)
                             : UTL_STR_EXTRACT_INT_M(text, minus, &result),
              ok)
        << (text ? text : "null");
    EXPECT_EQ(result, value) << (text ? text : "null");
  }
  for (long long v : {2147483647LL, -2147483648LL, 2147483648LL, -2147483649LL}) {
    const std::string text = std::to_string(v);
    const bool fits = v >= INT_MIN && v <= INT_MAX;
    int atoi = 4242, extracted = 4242;
    EXPECT_EQ(UTL_STR_ATOI(text.c_str(), &atoi), fits) << v;
    EXPECT_EQ(UTL_STR_EXTRACT_INT(("v" + text).c_str(), &extracted), fits) << v;
    EXPECT_EQ(atoi, fits ? v : 0);
    EXPECT_EQ(extracted, fits ? v : 4242);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Str, AtofValidatesItsGrammarAndRecordsEachViolation) {
  enum { kOk, kIllegal, kRange };
  constexpr std::tuple<const char *, double, int> kRows[] = {
      {"1.5", 1.5, kOk},      {" -2 . 5e1 ", -25.0, kOk}, {"1E+3", 1e3, kOk},
      {"1e-2", 0.01, kOk},    {".5", 0.5, kOk},           {"-.5", -0.5, kOk},
      {"5.", 5.0, kOk},       {"+7", 7.0, kOk},           {"", 0.0, kOk},
      {"-", 0.0, kOk},        {".5.5", 0.5, kOk},         {"1e", 0, kIllegal},
      {"1e+", 0, kIllegal},   {"abc", 0, kIllegal},       {"1.2.3", 0, kIllegal},
      {"--1", 0, kIllegal},   {"+-1", 0, kIllegal},       {"0x10", 0, kIllegal},
      {"inf", 0, kIllegal},   {"1\t2", 0, kIllegal},      {"1,5", 0, kIllegal},
      {nullptr, 0, kIllegal}, {"1e999", 0, kRange},       {"-1E999", 0, kRange}};
  for (const auto &[text, value, error] : kRows) {
    SCOPED_TRACE(text ? text : "null");
    errno = ERANGE;  // left over: must not count against the text
    EXPECT_EQ(UTL_STR_ATOF(text), value);
    EXPECT_EQ(errno, error == kIllegal ? ERANGE : 0) << "cleared before and after converting";
    EXPECT_EQ(qxtest::TopIdentity(), error == kOk        ? ""
                                     : error == kIllegal ? "UTL/STR/WARNING/ILLEGAL_VALUE"
                                                         : "UTL/STR/WARNING/MATH_ERROR");
    const Traces traces = {error == kRange ? "atof()" : "", "UTL_STR_ATOF"};
    EXPECT_EQ(qxtest::TopError().traces, error == kOk ? Traces{} : traces);
    EXPECT_EQ(qxtest::StackTop(), 0) << "freeing the copy must not record anything";
    UTL_ERROR_CLEAR();
  }
}

TEST(Str, CopiesAreNewTextsBuiltAsDocumented) {
  const std::tuple<Make, const char *, const char *, const char *> kRows[] = {
      {kSave, nullptr, nullptr, "<null>"},
      {kCat, "ab", "cd", "abcd"},
      {kCat, nullptr, nullptr, ""},
      {kNcat, "/data", "/", "/data/cell.txt"},
      {kNcat, "a", nullptr, "a"},
      {kNcat, nullptr, "b", ""},
      {kNospace, " a b\tc ", nullptr, "ab\tc"},
      {kStrip, "  x y  ", nullptr, "x y"},
      {kStrip, "\tz", nullptr, "\tz"},
      {kStrip, "    ", nullptr, "<null>"},
      {kUp, "Fe2+ az{}\xe9", nullptr, "FE2+ AZ{}\xe9"},
      {kLow, "Fe2+ AZ[]\xc9", nullptr, "fe2+ az[]\xc9"},
      {kQuotes, "\"CA\"", nullptr, "CA"},
      {kQuotes, "'a b'", nullptr, "a b"},
      {kQuotes, "''", nullptr, ""},
      {kQuotes, "\"x'", nullptr, "\"x'"},
      {kQuotes, "\"", nullptr, "\""},
      {kQuotes, "`a`", nullptr, "`a`"},
      {kQuotes, nullptr, nullptr, "<null>"},
      {kSkrunch, "a//b///c", "/", "a/b/c"},
      {kSkrunch, "  lead  trail  ", " ", " lead trail "},
      {kSkrunch, nullptr, "x", "<null>"}};
  for (const auto &[fn, a, b, expected] : kRows)
    EXPECT_EQ(Take(MakeText(fn, a, b)), expected) << fn << ' ' << (a ? a : "null");
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Str, SubstituteReplacesNonOverlappingOccurrences) {
  constexpr std::tuple<const char *, const char *, const char *, int, const char *> kRows[] = {
      {"a", "xyz", "banana", 3, "bxyznxyznxyz"},
      {"aa", "b", "aaaaa", 2, "bba"},
      {"zz", "q", "abc", 0, "abc"},
      {"a", "", "aaa", 3, ""},
      {"a", "bb", "aaaa", 4, "bbbbbbbb"},  // fills the work area
      {"ab", "abab", "ab", 1, "abab"},     // no rescanning of the replacement
      {"", "x", "abc", 0, "abc"}};
  for (const auto &[pattern, replacement, original, count, result] : kRows) {
    char text[64];
    std::strcpy(text, original);
    EXPECT_EQ(UTL_STR_SUBSTITUTE(pattern, replacement, text), count) << original;
    EXPECT_STREQ(text, result);
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Str, EveryRefusalOrNullTextLeavesItsTrace) {
  // A NULL text records NULL_STRING; any other has its allocation refused.
  const std::tuple<Make, const char *, Traces> kRows[] = {
      {kUp, nullptr, {"UTL_STR_UPCASE"}},
      {kLow, nullptr, {"UTL_STR_LOCASE"}},
      {kSave, "abc", {"UTL_MEM_ALLOC", "UTL_DSTR_SAVE"}},
      {kCat, "a", {"UTL_MEM_ALLOC", "UTL_STR_CONCATENATE"}},
      {kNcat, "a", {"UTL_MEM_ALLOC"}},
      {kNospace, "a b", {"UTL_MEM_ALLOC", "UTL_STR_NOSPACE"}},
      {kStrip, " a ", {"UTL_MEM_ALLOC", "UTL_STR_NO_LEAD_OR_TRAIL_SPACE"}},
      {kUp, "a", {"UTL_MEM_ALLOC", "UTL_STR_UPCASE"}},
      {kLow, "A", {"UTL_MEM_ALLOC", "UTL_STR_LOCASE"}},
      {kQuotes, "'q'", {"UTL_MEM_ALLOC", "UTL_STR_STRIP_SURR_QUOTES (10)"}},
      {kQuotes, "q", {"UTL_MEM_ALLOC", "UTL_DSTR_SAVE", "UTL_STR_STRIP_SURR_QUOTES (20)"}},
      {kSkrunch, "aa", {"UTL_MEM_ALLOC", "UTL_STR_SKRUNCH_CHAR (10)"}}};
  for (const auto &[fn, a, traces] : kRows) {
    SCOPED_TRACE(traces.back());
    EXPECT_EQ((qxtest::FailAllocation(a ? 1 : 0), MakeText(fn, a, "a")), nullptr);
    EXPECT_EQ(qxtest::TopIdentity(), a ? "UTL/MEM/FATAL/NO_MEMORY" : "UTL/STR/WARNING/NULL_STRING");
    EXPECT_EQ(qxtest::TopError().traces, traces);
    UTL_ERROR_CLEAR();
  }
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_ATOF("2.5")), 0.0);
  EXPECT_EQ(qxtest::TopError().traces,
            (Traces{"UTL_MEM_ALLOC", "UTL_STR_NOSPACE", "UTL_STR_ATOF"}));
  UTL_ERROR_CLEAR();
  char text[] = "banana";
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_SUBSTITUTE("a", "o", text)), 0);
  EXPECT_STREQ(text, "banana");
  EXPECT_EQ(qxtest::TopError().traces, Traces{"UTL_MEM_ALLOC"}) << "no trace of its own";
}

// Each row creates a buffer (initial size, increment) and makes additions
// (a null text ends the current text), each followed by the capacity.
TEST(StrBuff, GrowsByTheLargerOfIncrementAndShortfall) {
  using Steps = std::vector<std::pair<const char *, int>>;
  const std::string s150(150, 'x'), s20(20, 'y');
  const std::tuple<int, int, Steps> kRows[] = {
      {100, 100, {{s150.c_str(), 250}}},
      {10, 4, {{"abc", 10}, {"defghij", 14}, {s20.c_str(), 31}, {"", 31}}},
      {0, 0, {{"a", 128}, {s150.c_str(), 256}}},
      {4, 2, {{"abcd", 6}, {"e", 6}, {"f", 8}}},
      {2, 1, {{nullptr, 2}, {nullptr, 3}, {"z", 4}}}};
  for (const auto &[initial, increment, steps] : kRows) {
    SCOPED_TRACE(initial);
    UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(initial, increment);
    EXPECT_EQ(b->data, nullptr);
    EXPECT_STREQ(UTL_STR_BUFF_GET(b), "");
    std::string expected;
    for (const auto &[text, capacity] : steps) {
      const char *data = UTL_STR_BUFF_ADD(b, text);
      ASSERT_EQ(data, b->data);
      EXPECT_EQ(b->capacity, capacity);
      expected += text != nullptr ? std::string(text) : std::string(1, '\0');
      EXPECT_EQ(std::string(b->data, b->end - b->data), expected);
      EXPECT_EQ(*b->end, '\0');
    }
    EXPECT_EQ(UTL_STR_BUFF_DESTROY(b), 1);
  }
}

TEST(StrBuff, RefusedRequestsLeaveTheBufferIntact) {
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_BUFF_CREATE(4, 4)), nullptr);
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_CALLOC", "UTL_STR_BUFF_CREATE"}));
  UTL_ERROR_CLEAR();
  UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(4, 4);
  constexpr std::pair<const char *, const char *> kRows[] = {{"abc", "UTL_MEM_ALLOC"},
                                                             {"defgh", "UTL_MEM_REALLOC (0)"}};
  for (const auto &[text, first_trace] : kRows) {  // the first allocation, then growth
    const int capacity = b->capacity;
    const std::string held = UTL_STR_BUFF_GET(b);
    EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_BUFF_ADD(b, text)), nullptr);
    EXPECT_EQ(qxtest::TopError().traces, (Traces{first_trace, "UTL_STR_BUFF_ADD"}));
    EXPECT_EQ(b->capacity, capacity);
    EXPECT_EQ(UTL_STR_BUFF_GET(b), held);
    UTL_ERROR_CLEAR();
    UTL_STR_BUFF_ADD(b, text);
  }
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_BUFF_STEAL(b)), nullptr);
  EXPECT_EQ(qxtest::TopError().traces, (Traces{"UTL_MEM_REALLOC (0)", "UTL_STR_BUFF_STEAL"}));
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "abcdefgh") << "a refused steal keeps the text";
  UTL_ERROR_CLEAR();
  UTL_STR_BUFF_DESTROY(b);
}

// Debug mode counts the live bytes; it answers a refusal by stopping the
// process, so this case comes after the refusals.
TEST(StrDebugHeap, SaveRoundsItsBlockStealHandsOverTheShrunkTextAndClearKeepsStorage) {
  UTL_DMEM_SET_DEBUG();
  constexpr std::pair<const char *, unsigned int> kRows[] = {
      {"", 4}, {"ab", 4}, {"abc", 8}, {"abcdefg", 12}, {"abcdefgh", 12}};
  for (const auto &[text, block] : kRows) {
    char *copy = UTL_DSTR_SAVE(text, "utl_str_test", __LINE__);
    EXPECT_STREQ(copy, text);
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), block) << text;
    UTL_DMEM_FREE(copy, "utl_str_test", __LINE__);
  }
  UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(8, 8);
  UTL_STR_BUFF_ADD(b, "ab"), UTL_STR_BUFF_ADD(b, nullptr), UTL_STR_BUFF_ADD(b, "cd");
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "ab");
  char *stolen = UTL_STR_BUFF_STEAL(b);
  EXPECT_EQ(b->data, nullptr);
  EXPECT_EQ(UTL_STR_BUFF_STEAL(b), nullptr) << "nothing held";
  UTL_STR_BUFF_ADD(b, "new");
  EXPECT_EQ(b->capacity, 8) << "the next addition starts with the initial size";
  const char *data = b->data;
  EXPECT_EQ(UTL_STR_BUFF_CLEAR(b), b);
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "");
  EXPECT_TRUE(b->data == data && b->end == data) << "clear keeps the storage";
  UTL_STR_BUFF_ADD(b, "abcdef");
  UTL_STR_BUFF_ADD(b, b->data);  // itself, across a reallocation
  EXPECT_STREQ(UTL_STR_BUFF_GET(b), "abcdefabcdef");
  EXPECT_EQ(UTL_STR_BUFF_DESTROY(b), 1);
  EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), 6u) << "only the stolen text is left, shrunk to fit";
  EXPECT_EQ(std::string(stolen, 6), std::string("ab\0cd\0", 6));
  UTL_DMEM_FREE(stolen, "utl_str_test", __LINE__);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

}  // namespace
