// Strings and string buffers: answers, conversions, copies, growth and every refusal trace.
#include "utl_str.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

using Ints = std::vector<int>;
using Texts = std::vector<std::string>;

// f's answer to each argument list; a new text is freed and given as a string ("<null>": NULL).
template <typename R, typename... A>
auto Map(R (*f)(A...), std::type_identity_t<std::initializer_list<std::tuple<A...>>> calls) {
  std::vector<std::conditional_t<std::is_same_v<R, char *>, std::string, R>> answers;
  for (const auto &call : calls) {
    const R answer = std::apply(f, call);
    if constexpr (std::is_same_v<R, char *>) {
      answers.push_back(answer != nullptr ? answer : "<null>");
      UTL_DMEM_FREE(answer, "utl_str_test", __LINE__);
    } else {
      answers.push_back(answer);
    }
  }
  return answers;
}

// The top error's identity, then each trace after a '|'; the error is cleared.
std::string TakeError() {
  std::string text = qxtest::TopIdentity();
  for (const std::string &trace : qxtest::TopError().traces)
    text += "|" + trace;
  UTL_ERROR_CLEAR();
  return text;
}

// "ok result" of UTL_STR_ATOI (kMinus 0), UTL_STR_EXTRACT_INT ('-') or UTL_STR_EXTRACT_INT_M.
template <char kMinus>
std::string Int(const char *text) {
  int result = 4242;
  const int ok = kMinus == 0     ? UTL_STR_ATOI(text, &result)
                 : kMinus == '-' ? UTL_STR_EXTRACT_INT(text, &result)
                                 : UTL_STR_EXTRACT_INT_M(text, kMinus, &result);
  return std::to_string(ok) + " " + std::to_string(result);
}

// UTL_STR_SUBSTITUTE's count and the text left (pattern NULL: UTL_STR_TRIM_TRAILING_BLANKS's).
std::string Edited(const char *pattern, const char *replacement, const char *original) {
  std::string text = original;
  if (pattern == nullptr) return (UTL_STR_TRIM_TRAILING_BLANKS(text.data()), text.c_str());
  const int count = UTL_STR_SUBSTITUTE(pattern, replacement, text.data());
  return std::to_string(count) + " " + text.c_str();
}

const char *const kNames[] = {"C1", "n2", nullptr, "O3", "C1"};

char *Save(const char *text) {
  return UTL_DSTR_SAVE(text, "utl_str_test", __LINE__);
}

char *Cat(const char *a, const char *b) {
  return UTL_STR_NCONCATENATE(a, b, "cell.txt", nullptr);
}

// Case folds to upper case: "_" sorts after "a". Tabs are not blanks.
TEST(Str, SearchesConversionsEditsAndCopiesAnswerWithoutRecordingErrors) {
  EXPECT_EQ(Map(UTL_STR_CMP_NOCASE, {{"aZ", "Az"}, {"ab", "abc"}, {"_", "a"}, {0, "a"}, {"a", 0}}),
            (Ints{0, -'C', 30, 1, 1}));
  EXPECT_EQ(Map(UTL_STR_NCMP_NOCASE, {{"aX", "Ay", 1}, {"X", "y", 0}, {0, "a", 3}}),
            (Ints{0, -1, 1}));
  EXPECT_EQ(Map(UTL_STR_FIND_STR, {{5, kNames, "C1"}, {5, kNames, "O3"}, {3, kNames, "O3"}}),
            (Ints{0, 3, -1}));
  EXPECT_EQ(Map(UTL_STR_SUBSTRING, {{"abc", ""}, {"abcabc", "ca"}, {"abc", "B"}, {nullptr, "a"}}),
            (Ints{3, 2, -1, -1}));
  EXPECT_EQ(Map(UTL_STR_SUBSTRING_NOCASE, {{"abc", ""}, {"", "a"}, {"xAbC", "bc"}, {"a", 0}}),
            (Ints{-1, -1, 2, -1}));
  EXPECT_EQ(Map(UTL_STR_FIRST_NONBLANK, {"  ab c ", "   ", "\tx ", "", nullptr}),
            (Ints{2, -1, 0, -1, -1}));
  EXPECT_EQ(Map(UTL_STR_LAST_NONBLANK, {"  ab c ", "   ", "\tx ", nullptr}), (Ints{5, -1, 1, -1}));
  EXPECT_EQ(Map(UTL_STR_IS_WILD_NAME, {"*", "a*", "**", "abc", nullptr}), (Ints{1, 2, 2, 0, 0}));
  // UTL_STR_ATOI gives 0 for an invalid text; the extractions leave the result when there is none.
  EXPECT_EQ(Map(Int<0>, {" -12", "   ", "-", "12 ", "+5", "", nullptr, "\t1", "2147483647",
                         "-2147483648", "2147483648"}),
            (Texts{"1 -12", "1 0", "1 0", "0 0", "0 0", "0 0", "0 0", "0 0", "1 2147483647",
                   "1 -2147483648", "0 0"}));
  EXPECT_EQ(Map(Int<'-'>, {"a12b30", "x-5y", "a - 5", "--7", "none", "v-2147483649"}),
            (Texts{"1 12", "1 -5", "1 5", "1 -7", "0 4242", "0 4242"}));
  EXPECT_EQ(Map(Int<'~'>, {"b~4", "b-4"}), (Texts{"1 -4", "1 4"}));
  // Non-overlapping occurrences, never rescanning a replacement; "aaaa" fills the work area.
  EXPECT_EQ(Map(Edited, {{0, "", " a\t "}, {0, "", "   "}, {"a", "xyz", "banana"}, {"", "x", "a"}}),
            (Texts{" a\t", "", "3 bxyznxyznxyz", "0 a"}));
  EXPECT_EQ(Map(Edited, {{"aa", "b", "aaaaa"}, {"a", "bb", "aaaa"}, {"ab", "abab", "ab"}}),
            (Texts{"2 bba", "4 bbbbbbbb", "1 abab"}));
  EXPECT_EQ(Map(Save, {nullptr, ""}), (Texts{"<null>", ""}));
  EXPECT_EQ(Map(UTL_STR_CONCATENATE, {{"ab", "cd"}, {nullptr, nullptr}}), (Texts{"abcd", ""}));
  EXPECT_EQ(Map(Cat, {{"/d", "/"}, {"a", nullptr}, {nullptr, "b"}}),
            (Texts{"/d/cell.txt", "a", ""}));
  EXPECT_EQ(Map(UTL_STR_NO_LEAD_OR_TRAIL_SPACE, {"  x y  ", "\tz", "    "}),
            (Texts{"x y", "\tz", "<null>"}));
  EXPECT_EQ(Map(UTL_STR_UPCASE, {"Fe2+ az{}\xe9"}), Texts{"FE2+ AZ{}\xe9"});
  EXPECT_EQ(Map(UTL_STR_LOCASE, {"Fe2+ AZ[]\xc9"}), Texts{"fe2+ az[]\xc9"});
  EXPECT_EQ(Map(UTL_STR_STRIP_SURR_QUOTES, {"\"CA\"", "''", "\"x'", "\"", "`a`", nullptr}),
            (Texts{"CA", "", "\"x'", "\"", "`a`", "<null>"}));
  EXPECT_EQ(Map(UTL_STR_SKRUNCH_CHAR, {{"a//b///c", '/'}, {"  a  b ", ' '}, {nullptr, 'x'}}),
            (Texts{"a/b/c", " a b ", "<null>"}));
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

// Refuses the first allocation of make(text, more) (none for a NULL text); gives the traces added.
template <typename... A>
std::string Refused(char *(*make)(const char *, A...), const char *text, A... more) {
  EXPECT_EQ((qxtest::FailAllocation(text ? 1 : 0), make(text, more...)), nullptr);
  const std::string error = TakeError(), record = text ? "UTL/MEM/FATAL/NO_MEMORY|UTL_MEM_ALLOC"
                                                       : "UTL/STR/WARNING/NULL_STRING";
  EXPECT_EQ(error.substr(0, record.size()), record);
  return error.substr(record.size());
}

TEST(Str, AtofAndEveryRefusalRecordTheirErrors) {
  enum { kOk, kBad, kRange };
  constexpr std::tuple<const char *, double, int> kRows[] = {
      {"1.5", 1.5, kOk}, {"1E+3", 1e3, kOk}, {".5", .5, kOk},      {" -2 . 5e1 ", -25, kOk},
      {"5.", 5, kOk},    {"+7", 7, kOk},     {"-", 0, kOk},        {".5.5", .5, kOk},
      {"", 0, kOk},      {"1e", 0, kBad},    {"abc", 0, kBad},     {"1.2.3", 0, kBad},
      {"--1", 0, kBad},  {"0x10", 0, kBad},  {"inf", 0, kBad},     {"1\t2", 0, kBad},
      {"1,5", 0, kBad},  {nullptr, 0, kBad}, {"1e999", 0, kRange}, {"-1E999", 0, kRange}};
  for (const auto &[text, value, error] : kRows) {
    errno = ERANGE;  // left over: must not count against the text
    EXPECT_EQ(UTL_STR_ATOF(text), value) << (text ? text : "null");
    EXPECT_EQ(errno, error == kBad ? ERANGE : 0) << "cleared before and after converting";
    EXPECT_EQ(qxtest::StackTop(), 0) << "freeing the copy must not record anything";
    EXPECT_EQ(TakeError(), error == kOk    ? ""
                           : error == kBad ? "UTL/STR/WARNING/ILLEGAL_VALUE||UTL_STR_ATOF"
                                           : "UTL/STR/WARNING/MATH_ERROR|atof()|UTL_STR_ATOF");
  }
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_ATOF("2.5")), 0.0);
  EXPECT_EQ(TakeError(), "UTL/MEM/FATAL/NO_MEMORY|UTL_MEM_ALLOC|UTL_STR_NOSPACE|UTL_STR_ATOF");
  EXPECT_EQ(Refused(UTL_STR_UPCASE, nullptr), "|UTL_STR_UPCASE");
  EXPECT_EQ(Refused(UTL_STR_LOCASE, nullptr), "|UTL_STR_LOCASE");
  EXPECT_EQ(Refused(Save, "abc"), "|UTL_DSTR_SAVE");
  EXPECT_EQ(Refused(UTL_STR_CONCATENATE, "a", "b"), "|UTL_STR_CONCATENATE");
  EXPECT_EQ(Refused(Cat, "a", "b"), "") << "no trace of its own";
  EXPECT_EQ(Refused(UTL_STR_NOSPACE, "a b"), "|UTL_STR_NOSPACE");
  EXPECT_EQ(Refused(UTL_STR_NO_LEAD_OR_TRAIL_SPACE, " a "), "|UTL_STR_NO_LEAD_OR_TRAIL_SPACE");
  EXPECT_EQ(Refused(UTL_STR_UPCASE, "a"), "|UTL_STR_UPCASE");
  EXPECT_EQ(Refused(UTL_STR_LOCASE, "A"), "|UTL_STR_LOCASE");
  EXPECT_EQ(Refused(UTL_STR_STRIP_SURR_QUOTES, "'q'"), "|UTL_STR_STRIP_SURR_QUOTES (10)");
  EXPECT_EQ(Refused(UTL_STR_STRIP_SURR_QUOTES, "q"),
            "|UTL_DSTR_SAVE|UTL_STR_STRIP_SURR_QUOTES (20)");
  EXPECT_EQ(Refused(UTL_STR_SKRUNCH_CHAR, "aa", 'a'), "|UTL_STR_SKRUNCH_CHAR (10)");
  char text[] = "banana";
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_SUBSTITUTE("a", "o", text)), 0);
  EXPECT_EQ(text + TakeError(), "bananaUTL/MEM/FATAL/NO_MEMORY|UTL_MEM_ALLOC") << "no own trace";
  EXPECT_EQ((qxtest::FailAllocation(1), UTL_STR_BUFF_CREATE(4, 4)), nullptr);
  EXPECT_EQ(TakeError(), "UTL/MEM/FATAL/NO_MEMORY|UTL_MEM_CALLOC|UTL_STR_BUFF_CREATE");
  UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(4, 4);
  EXPECT_FALSE((qxtest::FailAllocation(1), UTL_STR_BUFF_ADD(b, "abc")));
  EXPECT_EQ(TakeError(), "UTL/MEM/FATAL/NO_MEMORY|UTL_MEM_ALLOC|UTL_STR_BUFF_ADD");
  EXPECT_FALSE(
      (qxtest::FailAllocation(2), UTL_STR_BUFF_ADD(b, "abc"), UTL_STR_BUFF_ADD(b, "defgh")));
  EXPECT_EQ(TakeError(), "UTL/MEM/FATAL/NO_MEMORY|UTL_MEM_REALLOC (0)|UTL_STR_BUFF_ADD");
  EXPECT_FALSE((qxtest::FailAllocation(1), UTL_STR_BUFF_STEAL(b)));
  EXPECT_EQ(TakeError(), "UTL/MEM/FATAL/NO_MEMORY|UTL_MEM_REALLOC (0)|UTL_STR_BUFF_STEAL");
  EXPECT_EQ(std::to_string(b->capacity) + UTL_STR_BUFF_GET(b), "4abc") << "refusals change nothing";
  UTL_STR_BUFF_DESTROY(b);
}

TEST(StrDebugHeap, SaveRoundsItsBlockAndTheBufferGrowsByTheLargerOfIncrementAndShortfall) {
  UTL_DMEM_SET_DEBUG();
  for (const auto &[text, block] :
       {std::pair{"", 4u}, {"ab", 4u}, {"abc", 8u}, {"abcdefg", 12u}, {"abcdefgh", 12u}}) {
    char *copy = Save(text);
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES(), block) << text;
    UTL_DMEM_FREE(copy, "utl_str_test", __LINE__);
  }
  // (initial size, increment), additions (NULL ends a text) each with the capacity after it.
  using Steps = std::vector<std::pair<const char *, int>>;
  const std::string s150(150, 'x'), s20(20, 'y');
  const std::tuple<int, int, Steps> kRows[] = {
      {100, 100, {{s150.c_str(), 250}}},
      {10, 4, {{"abc", 10}, {"defghij", 14}, {s20.c_str(), 31}, {"", 31}}},
      {0, 0, {{"a", 128}, {s150.c_str(), 256}}},
      {4, 2, {{"abcd", 6}, {"e", 6}, {"f", 8}}},
      {2, 1, {{nullptr, 2}, {nullptr, 3}, {"z", 4}}}};
  for (const auto &[initial, increment, steps] : kRows) {
    UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(initial, increment);
    std::string expected;
    for (const auto &[text, capacity] : steps) {
      ASSERT_EQ(UTL_STR_BUFF_ADD(b, text), b->data);
      expected += text != nullptr ? std::string(text) : std::string(1, '\0');
      EXPECT_EQ(b->capacity, capacity) << initial << ' ' << expected.size();
    }
    char *stolen = UTL_STR_BUFF_STEAL(b);  // shrunk to fit
    EXPECT_EQ(UTL_DMEM_ALLOCATED_BYTES() - sizeof(UTL_STR_BUFF), expected.size() + 1);
    EXPECT_EQ(std::string(stolen, expected.size() + 1), expected + '\0');
    EXPECT_TRUE(!b->data && !UTL_STR_BUFF_STEAL(b) && !*UTL_STR_BUFF_GET(b)) << "nothing held";
    UTL_DMEM_FREE(stolen, "utl_str_test", __LINE__);
    EXPECT_EQ(UTL_STR_BUFF_DESTROY(b), 1);
  }
  UTL_STR_BUFF *b = UTL_STR_BUFF_CREATE(8, 8);
  UTL_STR_BUFF_ADD(b, "abcdefghij");
  UTL_DMEM_FREE(UTL_STR_BUFF_STEAL(b), "utl_str_test", __LINE__);
  UTL_STR_BUFF_ADD(b, "new");
  EXPECT_EQ(b->capacity, 8) << "after a steal the next addition starts with the initial size";
  const char *data = b->data;
  EXPECT_EQ(UTL_STR_BUFF_CLEAR(b), b);
  EXPECT_TRUE(b->data == data && b->end == data && *data == '\0') << "clear keeps the storage";
  UTL_STR_BUFF_ADD(b, "abcdef");
  EXPECT_STREQ(UTL_STR_BUFF_ADD(b, b->data), "abcdefabcdef") << "itself, across a reallocation";
  EXPECT_EQ(UTL_STR_BUFF_DESTROY(b), 1);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

}  // namespace
