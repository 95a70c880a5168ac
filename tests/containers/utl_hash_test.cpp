// Tests of the hash table, its reports and its generated static-table source.
#include "utl_hash.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <string>
#include <tuple>

#include "qx_test.h"
#include "utl_error.h"

namespace {

using T = UTL_HASH_TABLE;
// Bucket by first letter ('a' is bucket 1): placement the tests can predict.
constexpr auto kFirst = [](const char *k, unsigned n) { return unsigned(k[0] - 'a') % n + 1; };
constexpr auto kOut = [](const char *, unsigned n) { return n + 1; };
constexpr auto kBang = [](const char *key, unsigned n) { return key[0] == '!' ? n + 1 : 1; };
T *Make(unsigned int n, UTL_HASH_FUNCTION hash = nullptr) {
  return UTL_HASH_CREATE(n, hash, nullptr, nullptr, nullptr);
}
std::string Slurp(const std::string &path) {  // and removes the file
  std::ifstream in(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  return std::remove(path.c_str()) == 0 ? text : "(not removed)";
}
std::string Hex(const void *p) {
  char text[32];
  return std::string(text, std::snprintf(text, sizeof text, "%lx", (unsigned long)uintptr_t(p)));
}
// "count:bytes" as UTL_HASH_RETRIEVE hands them to a buffer of the given size.
std::string Get(T *t, const char *key, unsigned int size = 64) {
  char buf[64] = {};
  unsigned int n = 99;
  UTL_HASH_RETRIEVE(t, key, size, buf, &n);
  return std::to_string(n) + ":" + std::string(buf, n < size ? n : size);
}
// "count:bytes" through UTL_HASH_RETRIEVE_P (or its silent twin); "null" for a null pointer.
std::string GetP(T *t, const char *key, bool quiet = false) {
  void *data = t;
  unsigned int n = 99;
  (quiet ? UTL_HASH_RETRIEVE_P_NOERRSET : UTL_HASH_RETRIEVE_P)(t, key, &data, &n);
  return std::to_string(n) + ":" + (data ? std::string(static_cast<char *>(data), n) : "null");
}
// Walks into out as "key count "; stops at once without it.
int Walk(T *, const char *key, void *, unsigned n, void *out) {
  if (out) static_cast<std::string *>(out)->append(" ").append(key) += std::to_string(n);
  return out != nullptr;
}
// Runs op with the n-th allocation from now failing.
template <class Op>
std::string Starved(unsigned long n, Op op) {
  qxtest::FailAllocation fail(n);
  return op();
}
// The top record and traces, without hash prefixes, running-out or trace-only identities.
std::string Record() {
  std::string text = qxtest::TopIdentity();
  for (const std::string &line : qxtest::TopError().traces)
    text.append(" ").append(line);
  static const std::regex kNoise(
      "UTL/HASH/|UTL_HASH_|UTL/MEM/FATAL/NO_MEMORY UTL_MEM_C?ALLOC |"
      "UTL/ERROR/WARNING/PROGRAM_ERROR UTL_ERROR_ADD_TRACE ");
  return std::regex_replace(text, kNoise, "");
}

TEST(HashDefaultFunction, FirstMiddleLastSignedProduct) {
  constexpr std::tuple<const char *, unsigned int, unsigned int> kRows[] = {
      {"a", 7, 7},     {"abcd", 1000, 301}, {"axbyc", 101, 78},  // as "abc"
      {"\xff", 10, 6}, {"x\xe9y", 97, 47},  {"", 9, 1},          // never reads key[-1]
  };
  for (const auto &[key, buckets, expected] : kRows)
    EXPECT_EQ(UTL_HASH_DEFAULT_FUNCTION(key, buckets), expected) << key;
}

TEST(HashTable, ChainsStatisticsReportsBlocksAndReorganising) {
  T *t = UTL_HASH_CREATE(4, kFirst, nullptr, nullptr,
                         [](const char *a, const char *b) { return strcasecmp(a, b); });
  // "+" inserts, "-" deletes, "*" refers; full, overflow, longest chain; the walk (counts masked).
  constexpr std::pair<const char *, const char *> kSteps[] = {
      {"+an", "1 0 1 an2"},         {"+be", "2 0 1 an2 be2"},
      {"+as", "2 1 2 as2 an2 be2"}, {"+au", "2 2 3 au2 as2 an2 be2"},
      {"-as", "2 1 3 au2 an2 be2"}, {"-be", "1 1 3 au2 an2"},
      {"+co", "2 1 3 au2 an2 co2"}, {"-au", "2 0 3 an2 co2"},
      {"-an", "1 0 3 co2"},         {"+ab", "2 0 3 ab2 co2"},
      {"*ac", "2 1 3 ac2 ab2 co2"},
  };

  static char ref[] = "xy";
  for (const auto &[op, state] : kSteps) {
    if (op[0] == '+') UTL_HASH_INSERT(t, op + 1, std::strlen(op + 1), op + 1);
    if (op[0] == '-') UTL_HASH_DELETE(t, op + 1);
    if (op[0] == '*') UTL_HASH_INSERT_P(t, op + 1, 2, ref);
    std::string text = std::to_string(t->full_buckets) + " " + std::to_string(t->overflow_count) +
                       " " + std::to_string(t->max_chain);
    UTL_HASH_DO_ALL(t, Walk, &text);
    EXPECT_EQ(text, state);
  }
  UTL_HASH_BUCKET *ab = UTL_HASH_INQUIRE(t, "ab"), *ac = t->buckets[0].head;
  EXPECT_TRUE(UTL_HASH_SCAN_BUCKETS(t, ac, "ab") == ab && !UTL_HASH_SCAN_BUCKETS(t, ab, "ac"));
  const std::string stats =
      "Primary Bucket Count           - 4\n"
      "Pointer to Primary Bucket List - " +
      Hex(t->buckets) +
      "\nNumber of Full Primary Buckets - 2\n"
      "Overflow Bucket Count          - 1\n"
      "Maximum Primary Bucket Chain   - 3\n"
      "Average Primary Bucket Chain   - 0.750000\n";
  const std::string path = testing::TempDir() + "qxhash.txt",
                    description = "\n\n*** Hash Table Description ***\n\n" + stats + "\n\n";
  std::FILE *out = std::fopen(path.c_str(), "w");
  UTL_HASH_SHOW_STATS(out, t);
  EXPECT_TRUE(std::fclose(out) == 0 && Slurp(path) == stats);
  UTL_HASH_SHOW_HTDB(t, path.c_str());
  EXPECT_EQ(Slurp(path), description);
  UTL_HASH_SHOW_ALL(t, path.c_str());  // then each bucket, with its entries' addresses
  auto entry = [](const UTL_HASH_BUCKET *e) {
    return "     Token Name   - " + Hex(e->key) + "\n     Data Pointer - " + Hex(e->data) + "\n";
  };
  EXPECT_EQ(Slurp(path), description + "\nPrimary bucket # 1\n" + entry(ac) + entry(ab) +
                             "\nPrimary bucket # 2\n\nPrimary bucket # 3\n" +
                             entry(UTL_HASH_INQUIRE(t, "co")) + "\nPrimary bucket # 4\n");
  char caller[] = "caller";
  UTL_HASH_BUCKET *e = UTL_HASH_INQUIRE(t, "co");
  void *owned = e->data;
  UTL_HASH_CHANGE(t, "co", 2, "ox");  // same count: overwritten in place
  EXPECT_TRUE(e->data == owned && Get(t, "co") == "2:ox");
  UTL_HASH_CHANGE_P(t, "co", 6, caller);
  EXPECT_TRUE(e->data == caller && e->size == 0x80000006u && GetP(t, "co") == "6:caller");
  UTL_HASH_CHANGE(t, "co", 6, caller);  // a reference becomes an owned copy
  EXPECT_TRUE(e->data != caller && e->size == 6);
  // Reorganising moves the same entries; null functions take the defaults, not the old ones.
  t = UTL_HASH_REORGANIZE(t, 5, nullptr, nullptr, nullptr, nullptr);
  EXPECT_TRUE(!UTL_HASH_INQUIRE(t, "CO") && UTL_HASH_INQUIRE(t, "co") == e &&
              UTL_HASH_INQUIRE(t, "ab") == ab && UTL_HASH_INQUIRE(t, "ac") == ac);
  EXPECT_TRUE(t->full_buckets + t->overflow_count == 3 && !UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
  EXPECT_STREQ(caller, "caller");  // referenced data is never released nor written
}

TEST(HashTable, FailureRecordsLeaveTheEntry) {
  static char h[] = "held";
  // What the caller gets back, then the one record. A duplicate key leaves a trace alone.
  const std::pair<const char *, std::function<std::string(T *)>> kRows[] = {
      {"0:|FATAL/TOKEN_NOT_FOUND RETRIEVE", [](T *t) { return Get(t, "no"); }},
      {"6:abc|WARNING/DATA_OVFL RETRIEVE", [](T *t) { return Get(t, "key", 3); }},
      {"0:null|FATAL/TOKEN_NOT_FOUND RETRIEVE_P", [](T *t) { return GetP(t, "no"); }},
      {"0:null|", [](T *t) { return GetP(t, "no", true); }},  // no record
      {"|FATAL/TOKEN_NOT_FOUND CHANGE", [](T *t) { return UTL_HASH_CHANGE(t, "no", 1, ""), ""; }},
      {"|INFO/TOKEN_NOT_FOUND CHANGE_P", [](T *t) { return UTL_HASH_CHANGE_P(t, "no", 1, h), ""; }},
      {"|INFO/TOKEN_NOT_FOUND DELETE", [](T *t) { return UTL_HASH_DELETE(t, "no"), ""; }},
      {"|FATAL/FILE_ERROR DO_ALL", [](T *t) { return UTL_HASH_DO_ALL(t, Walk, nullptr), ""; }},
      {"0|INSERT", [](T *t) { return std::to_string(UTL_HASH_INSERT(t, "key", 1, "")); }},
      {"0|INSERT_P", [](T *t) { return std::to_string(UTL_HASH_INSERT_P(t, "key", 1, h)); }},
      {"0|FATAL/BAD_BUCKET_NUMBER INSERT",
       [](T *t) { return std::to_string(UTL_HASH_INSERT(t, "!", 0, "")); }},
      {"|FATAL/BAD_BUCKET_NUMBER REORGANIZE",
       [](T *t) { return UTL_HASH_REORGANIZE(t, 4, kOut, nullptr, nullptr, nullptr), ""; }},
      {"|FATAL/FILE_OPEN_ERROR SHOW_HTDB", [](T *t) { return UTL_HASH_SHOW_HTDB(t, "/no/x"), ""; }},
      {"|FATAL/FILE_OPEN_ERROR SHOW_ALL", [](T *t) { return UTL_HASH_SHOW_ALL(t, "/no/x"), ""; }},
      {"|CREATE", [](T *) { return Starved(2, [] { return Make(7) ? "?" : ""; }); }},  // array
      {"|FILL_BUCKET (10) INSERT",
       [](T *t) {
         return Starved(1, [t] { return UTL_HASH_INSERT(t, "k", 5, "35.45") ? "?" : ""; });
       }},
      {"|FILL_BUCKET (30) INSERT",
       [](T *t) {
         return Starved(3, [t] { return UTL_HASH_INSERT(t, "k", 5, "35.45") ? "?" : ""; });
       }},
      {"|FILL_BUCKET_P INSERT_P",
       [](T *t) { return Starved(2, [t] { return UTL_HASH_INSERT_P(t, "k", 0, h) ? "?" : ""; }); }},
      {"|FATAL/FILE_OPEN_ERROR STATIC_SAVE",
       [](T *t) { return UTL_HASH_STATIC_SAVE(t, "f", "", "/no/x"), ""; }},
  };
  for (const auto &[expected, op] : kRows) {
    T *t = Make(5, kBang);
    ASSERT_TRUE(UTL_HASH_INSERT(t, "key", 6, "abcdef"));
    const std::string result = op(t), out = result + "|" + Record();
    EXPECT_TRUE(out == expected && qxtest::StackTop() == 0) << out;  // one record, not two
    // A pending error refuses reorganising; the entry is untouched.
    EXPECT_TRUE(!UTL_ERROR_IS_SET() || !UTL_HASH_REORGANIZE(t, 4, kOut, nullptr, nullptr, nullptr));
    UTL_ERROR_CLEAR();
    EXPECT_EQ(Get(t, "key") + std::to_string(UTL_HASH_COUNT_ALL(t)), "6:abcdef1") << out;
    UTL_HASH_DESTROY(t);
  }
}

// Kept oddities: a high byte is the octal of its sign-extended value; a zero-count entry writes
// its pointer's bytes and moves the pool scan on; the pool leaves out the last bucket.
TEST(HashStaticSave, LayoutByteForByteCompiledAndQueried) {
  T *t = Make(3);  // default hash: "cat" and "dog" in bucket 1, "ant" 2, "bee" 3
  UTL_HASH_INSERT_P(t, "cat", 0, reinterpret_cast<void *>(0x12AB00FFu));
  UTL_HASH_INSERT(t, "dog", 1, "\xe9");  // chained before "cat"
  UTL_HASH_INSERT(t, "ant", 2, "B2");    // passed over in the pool
  UTL_HASH_INSERT(t, "bee", 1, "g");     // last bucket
  const std::string source = testing::TempDir() + "qxhash.c", object = source + ".so";
  UTL_HASH_STATIC_SAVE(t, "lookup", "", source.c_str());
  // Linked with the archive, in the build directory above the test executables.
  const auto build = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
  const std::string command = std::string(QX_CC) + " -shared -fPIC -w -o " + object + " " + source +
                              " " + build.string() + "/libqxbase.a";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  EXPECT_EQ(Slurp(source),
            "\f\n"
            R"(/*+E*/
/************************************************/
/*   Static Hash Table Function generated by    */
/*   UTL_HASH_STATIC_SAVE routine.              */
/*   Statistics for generated hash table:       */
/*     Primary Bucket Count:       3            */
/*     Full Primary Buckets:       3            */
/*     Overflow Bucket Count:      1            */
/*     Max Bucket Chain Len:       2            */
/*     Avg Bucket Chain Len:    1.33            */
/************************************************/
/*-E*/

#define  NIL   0
#define  TRUE  1
#define  FALSE 0
typedef struct h_bucket   {
    char            *token;
    struct h_bucket *link;
    unsigned        data_siz;
    char            *data;
    }   BUCKET, *BUCKET_P;

int lookup (token, nbytes, data_ptr)
    char           *token, *(*data_ptr);
    unsigned       *nbytes;
    {
    BUCKET_P       bp;
    int            status, strcmp();
    unsigned       hash_val, UTL_HASH_DEFAULT_FUNCTION();
    static char    udata[] = {
        '\37777777751',
        '\0',
        '\0',
        '\0',
        '\22', '\253', '\0', '\377', 
        '\0'  };
    static BUCKET bkt[] = {
        { "dog",
          &bkt[1], 1, &udata[0] },
        { "cat",
          NIL, 4, &udata[4] },
        { "ant",
          NIL, 2, &udata[8] },
        { "bee",
          NIL, 1, &udata[12] },
        { "dummy",
          NIL, 0, NIL }  };
    static BUCKET_P  htab[] = {
        &bkt[0],
        &bkt[2],
        &bkt[3],
        NIL  };

    *nbytes = 0;  *data_ptr = NIL;  status = FALSE;
    hash_val = UTL_HASH_DEFAULT_FUNCTION (token, 3);
    for (bp = htab[hash_val - 1]; (bp != NIL) && (!status); bp = bp->link)   {
        if (strcmp (bp->token, token) == 0)   {
            status = TRUE;  *nbytes = bp->data_siz;  *data_ptr = bp->data;
            }
        }
    return (status);
    }
)");
  void *library = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  auto find =
      reinterpret_cast<int (*)(const char *, unsigned *, char **)>(dlsym(library, "lookup"));
  unsigned int n = 0;
  char *data = nullptr;
  for (const char *key : {"dog", "ant", "bee", "cat"})  // the pool holds the bytes of "cat"
    EXPECT_EQ(find(key, &n, &data), 1) << key;
  EXPECT_EQ(std::string(data, n), std::string("\x12\xab\0\xff", 4));
  EXPECT_TRUE(find("Og", &n, &data) == 0 && n == 0 && data == nullptr);
  dlclose(library);
  std::remove(object.c_str());
  UTL_HASH_DESTROY(t);
  t = Make(1);  // its only bucket is the last: an empty pool; a named hash function
  UTL_HASH_INSERT(t, "solo", 3, "abc");
  UTL_HASH_STATIC_SAVE(t, "f", "h", source.c_str());
  EXPECT_NE(Slurp(source).find("h();\n    static char    udata[] = {\n        '\\0'  };\n"),
            std::string::npos);
  UTL_HASH_DESTROY(t);
}

}  // namespace
