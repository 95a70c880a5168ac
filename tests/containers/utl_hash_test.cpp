// Tests of the hash table: the library hash, chains and statistics, copied and
// referenced blocks, failure records, reorganisation, reports and the generated
// static-table source (compared byte for byte, compiled and queried).
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
#include <string>
#include <tuple>

#include "qx_test.h"
#include "utl_error.h"

namespace {

using Table = UTL_HASH_TABLE;
// Bucket by first letter ('a' is bucket 1): placement the tests can predict.
constexpr auto kFirstLetter = [](const char *key, unsigned n) {
  return unsigned(key[0] - 'a') % n + 1;
};
constexpr auto kOutOfRange = [](const char *, unsigned n) { return n + 1; };
Table *Make(unsigned int n, UTL_HASH_FUNCTION hash = nullptr) {
  return UTL_HASH_CREATE(n, hash, nullptr, nullptr, nullptr);
}
std::string Path(const char *name) {
  return testing::TempDir() + "qxhash_" + name;
}
std::string Slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  std::remove(path.c_str());
  return text;
}
std::string Hex(const void *p) {
  char text[32];
  return std::string(text, std::snprintf(text, sizeof text, "%lx", (unsigned long)uintptr_t(p)));
}
// "count:bytes" as UTL_HASH_RETRIEVE hands them to a buffer of the given size.
std::string Get(Table *t, const char *key, unsigned int size = 64) {
  char buf[64] = {};
  unsigned int n = 99;
  UTL_HASH_RETRIEVE(t, key, size, buf, &n);
  return std::to_string(n) + ":" + std::string(buf, n < size ? n : size);
}
// "count:bytes" through UTL_HASH_RETRIEVE_P; "null" for a null pointer.
std::string GetP(Table *t, const char *key) {
  void *data = t;
  unsigned int n = 99;
  UTL_HASH_RETRIEVE_P(t, key, &data, &n);
  return std::to_string(n) + ":" + (data ? std::string(static_cast<char *>(data), n) : "null");
}
int Stop(Table *, const char *, void *, unsigned, void *) {
  return 0;
}
// The top record's identity, then its traces innermost first.
std::string Record() {
  std::string text = qxtest::TopIdentity() + " in";
  for (const std::string &line : qxtest::TopError().traces)
    text.append(" ").append(line);
  return text;
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
  Table *t = UTL_HASH_CREATE(4, kFirstLetter, nullptr, nullptr,
                             [](const char *a, const char *b) { return strcasecmp(a, b); });
  // "+key" inserts, "-key" deletes; then full buckets, overflow, longest chain,
  // bucket 1 head to tail (back links and count checked on the way).
  constexpr std::pair<const char *, const char *> kSteps[] = {
      {"+ant", "1 0 1 [ant]"},         {"+bee", "2 0 1 [ant]"},     {"+asp", "2 1 2 [asp ant]"},
      {"+auk", "2 2 3 [auk asp ant]"}, {"-asp", "2 1 3 [auk ant]"}, {"-bee", "1 1 3 [auk ant]"},
      {"+cow", "2 1 3 [auk ant]"},     {"-auk", "2 0 3 [ant]"},     {"-ant", "1 0 3 []"},
      {"+ab", "2 0 3 [ab]"},
  };
  static char ref[] = "xy";
  for (const auto &[op, state] : kSteps) {
    if (op[0] == '+') UTL_HASH_INSERT(t, op + 1, std::strlen(op), op + 1);
    if (op[0] == '-') UTL_HASH_DELETE(t, op + 1);
    std::string text = std::to_string(t->full_buckets) + " " + std::to_string(t->overflow_count) +
                       " " + std::to_string(t->max_chain) + " [";
    int n = 0;
    for (const UTL_HASH_BUCKET *e = t->buckets[0].head, *prev = nullptr; e; prev = e, e = e->next) {
      EXPECT_TRUE(e->prev == prev && e->key_length == std::strlen(e->key));
      text.append(n++ ? " " : "").append(e->key);
    }
    EXPECT_EQ(text + "]", state);
    EXPECT_EQ(t->buckets[0].count, n);
  }
  UTL_HASH_INSERT_P(t, "ac", 2, ref);
  UTL_HASH_BUCKET *ab = UTL_HASH_INQUIRE(t, "ab"), *ac = t->buckets[0].head;
  void *ab_data = ab->data;
  EXPECT_TRUE(UTL_HASH_SCAN_BUCKETS(t, ac, "ab") == ab && !UTL_HASH_SCAN_BUCKETS(t, ab, "ac"));
  std::string seen;  // bucket by bucket, head to tail, a reference's count masked
  UTL_HASH_DO_ALL(
      t,
      [](Table *, const char *key, void *data, unsigned n, void *out) {
        static_cast<std::string *>(out)
            ->append(key)
            .append(static_cast<char *>(data), n)
            .append(" ");
        return 1;
      },
      &seen);
  EXPECT_EQ(seen, std::string("acxy abab\0 cowcow\0 ", 19));
  const std::string stats =
      "Primary Bucket Count           - 4\n"
      "Pointer to Primary Bucket List - " +
      Hex(t->buckets) +
      "\nNumber of Full Primary Buckets - 2\n"
      "Overflow Bucket Count          - 1\n"
      "Maximum Primary Bucket Chain   - 3\n"
      "Average Primary Bucket Chain   - 0.750000\n";
  {
    qxtest::CaptureStream cap(stderr);
    UTL_HASH_SHOW_STATS(stderr, t);
    EXPECT_EQ(cap.Text(), stats);
  }
  const std::string path = Path("htdb"),
                    description = "\n\n*** Hash Table Description ***\n\n" + stats + "\n\n";
  UTL_HASH_SHOW_HTDB(t, path.c_str());
  EXPECT_EQ(Slurp(path), description);
  UTL_HASH_SHOW_ALL(t, path.c_str());
  std::string all = description;
  for (int i = 0; i < 4; ++i) {
    all += "\nPrimary bucket # " + std::to_string(i + 1) + "\n";
    for (const UTL_HASH_BUCKET *e = t->buckets[i].head; e; e = e->next)
      all += "     Token Name   - " + Hex(e->key) + "\n     Data Pointer - " + Hex(e->data) + "\n";
  }
  EXPECT_EQ(Slurp(path), all);
  // The block of "cow" between owned copies and the caller's references.
  char caller[] = "caller";
  UTL_HASH_BUCKET *e = UTL_HASH_INQUIRE(t, "cow");
  void *owned = e->data;
  UTL_HASH_CHANGE(t, "cow", 4, "ox!");  // same count: overwritten in place
  EXPECT_TRUE(e->data == owned && Get(t, "cow") == std::string("4:ox!", 6));
  UTL_HASH_CHANGE_P(t, "cow", 6, caller);
  EXPECT_TRUE(e->data == caller && e->size == 0x80000006u && GetP(t, "cow") == "6:caller");
  UTL_HASH_CHANGE(t, "cow", 6, caller);  // a reference becomes an owned copy
  EXPECT_TRUE(e->data != caller && e->size == 6);
  UTL_HASH_CHANGE(t, "cow", 0, nullptr);
  EXPECT_TRUE(e->data == nullptr && e->size == 0 && UTL_HASH_COUNT_ALL(t) == 3);
  void *data = t;
  unsigned int n = 9;
  UTL_HASH_RETRIEVE_P_NOERRSET(t, "none", &data, &n);
  EXPECT_TRUE(data == nullptr && n == 0 && !UTL_ERROR_IS_SET());
  // Reorganising moves the same entries; null functions take the defaults, not the old ones.
  EXPECT_TRUE(!UTL_HASH_REORGANIZE(t, 0, nullptr, nullptr, nullptr, nullptr) &&
              UTL_HASH_INQUIRE(t, "COW"));
  t = UTL_HASH_REORGANIZE(t, 5, nullptr, nullptr, nullptr, nullptr);
  EXPECT_TRUE(t->hash_function == UTL_HASH_DEFAULT_FUNCTION && !UTL_HASH_INQUIRE(t, "COW"));
  EXPECT_TRUE(UTL_HASH_INQUIRE(t, "cow") == e && UTL_HASH_INQUIRE(t, "ab") == ab &&
              UTL_HASH_INQUIRE(t, "ac") == ac);
  EXPECT_TRUE(t->full_buckets + t->overflow_count == 3 && ab->data == ab_data &&
              !UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
  EXPECT_STREQ(caller, "caller");  // referenced data is never released nor written
}

TEST(HashTable, FailureRecordsLeaveTheEntry) {
  static char held[] = "held";
  static const char *kBad = "/nonexistent-dir/x.c";
  // What the caller gets back, then the one record. A duplicate records no code.
  const std::pair<const char *, std::function<std::string(Table *)>> kRows[] = {
      {"0:|UTL/HASH/FATAL/TOKEN_NOT_FOUND in UTL_HASH_RETRIEVE",
       [](Table *t) { return Get(t, "no"); }},
      {"6:abc|UTL/HASH/WARNING/DATA_OVFL in UTL_HASH_RETRIEVE",
       [](Table *t) { return Get(t, "key", 3); }},
      {"0:null|UTL/HASH/FATAL/TOKEN_NOT_FOUND in UTL_HASH_RETRIEVE_P",
       [](Table *t) { return GetP(t, "no"); }},
      {"|UTL/HASH/FATAL/TOKEN_NOT_FOUND in UTL_HASH_CHANGE",
       [](Table *t) { return UTL_HASH_CHANGE(t, "no", 1, ""), ""; }},
      {"|UTL/HASH/INFO/TOKEN_NOT_FOUND in UTL_HASH_CHANGE_P",
       [](Table *t) { return UTL_HASH_CHANGE_P(t, "no", 1, held), ""; }},
      {"|UTL/HASH/INFO/TOKEN_NOT_FOUND in UTL_HASH_DELETE",
       [](Table *t) { return UTL_HASH_DELETE(t, "no"), ""; }},
      {"|UTL/HASH/FATAL/FILE_ERROR in UTL_HASH_DO_ALL",
       [](Table *t) { return UTL_HASH_DO_ALL(t, Stop, nullptr), ""; }},
      {"0|UTL/ERROR/WARNING/PROGRAM_ERROR in UTL_ERROR_ADD_TRACE UTL_HASH_INSERT",
       [](Table *t) { return std::to_string(UTL_HASH_INSERT(t, "key", 1, "")); }},
      {"0|UTL/ERROR/WARNING/PROGRAM_ERROR in UTL_ERROR_ADD_TRACE UTL_HASH_INSERT_P",
       [](Table *t) { return std::to_string(UTL_HASH_INSERT_P(t, "key", 1, held)); }},
      {"0|UTL/HASH/FATAL/BAD_BUCKET_NUMBER in UTL_HASH_INSERT",
       [](Table *t) {
         return t->hash_function = kOutOfRange, std::to_string(UTL_HASH_INSERT(t, "k", 0, ""));
       }},
      {"|UTL/HASH/FATAL/BAD_BUCKET_NUMBER in UTL_HASH_REORGANIZE",
       [](Table *t) {
         return UTL_HASH_REORGANIZE(t, 4, kOutOfRange, nullptr, nullptr, nullptr), "";
       }},
      {"|UTL/HASH/FATAL/FILE_OPEN_ERROR in UTL_HASH_SHOW_HTDB",
       [](Table *t) { return UTL_HASH_SHOW_HTDB(t, kBad), ""; }},
      {"|UTL/HASH/FATAL/FILE_OPEN_ERROR in UTL_HASH_SHOW_ALL",
       [](Table *t) { return UTL_HASH_SHOW_ALL(t, kBad), ""; }},
      {"|UTL/HASH/FATAL/FILE_OPEN_ERROR in UTL_HASH_STATIC_SAVE",
       [](Table *t) { return UTL_HASH_STATIC_SAVE(t, "f", "", kBad), ""; }},
  };
  for (const auto &[expected, op] : kRows) {
    UTL_ERROR_CLEAR();
    Table *t = Make(5);
    ASSERT_TRUE(UTL_HASH_INSERT(t, "key", 6, "abcdef"));
    const std::string result = op(t), out = result + "|" + Record();
    EXPECT_TRUE(out == expected && qxtest::StackTop() == 0) << out;  // one record, not two
    // A pending error refuses reorganising; the entry is untouched.
    EXPECT_EQ(UTL_HASH_REORGANIZE(t, 4, nullptr, nullptr, nullptr, nullptr), nullptr);
    t->hash_function = UTL_HASH_DEFAULT_FUNCTION;
    UTL_ERROR_CLEAR();
    EXPECT_EQ(Get(t, "key") + std::to_string(UTL_HASH_COUNT_ALL(t)), "6:abcdef1") << out;
    UTL_HASH_DESTROY(t);
  }
}

// Each allocation of an operation fails in turn until none is left to fail.
TEST(HashFaults, EveryAllocationFailureIsCleanAndTraced) {
  // Entries before and after (no table before "create"), the traces of each
  // failing request in turn, the operation (true on success).
  const std::tuple<int, int, const char *, bool (*)(Table *&)> kRows[] = {
      {0, 0, "UTL_HASH_CREATE;UTL_HASH_CREATE;",
       [](Table *&t) { return (t = Make(7)) != nullptr; }},
      {1, 2,
       "UTL_HASH_FILL_BUCKET (10) UTL_HASH_INSERT;UTL_HASH_FILL_BUCKET (20) "
       "UTL_HASH_INSERT;UTL_HASH_FILL_BUCKET (30) UTL_HASH_INSERT;",
       [](Table *&t) { return UTL_HASH_INSERT(t, "Cl", 5, "35.45") == 1; }},
      {1, 2, "UTL_HASH_FILL_BUCKET_P UTL_HASH_INSERT_P;UTL_HASH_FILL_BUCKET_P UTL_HASH_INSERT_P;",
       [](Table *&t) { return UTL_HASH_INSERT_P(t, "Cl", 0, nullptr) == 1; }},
      {1, 1, "UTL_HASH_CREATE UTL_HASH_REORGANIZE;UTL_HASH_CREATE UTL_HASH_REORGANIZE;",
       [](Table *&t) {
         Table *r = UTL_HASH_REORGANIZE(t, 3, nullptr, nullptr, nullptr, nullptr);
         return r != nullptr && (t = r);
       }},
      {1, 1, "UTL_HASH_CHANGE;",
       [](Table *&t) {  // failed: an empty block
         UTL_HASH_CHANGE(t, "K", 5, "32.06");
         return UTL_HASH_INQUIRE(t, "K")->data != nullptr;
       }},
  };
  for (const auto &[before, after, traces, op] : kRows) {
    std::string seen;
    for (unsigned long n = 1; n < 9; ++n) {
      Table *t = before != 0 ? Make(5) : nullptr;
      if (t != nullptr) UTL_HASH_INSERT(t, "K", 1, "k");
      const bool ok = [&] {
        qxtest::FailAllocation fail(n);
        return op(t);
      }();
      // The allocator's own trace comes first.
      if (!ok) seen += Record().substr(Record().find("UTL_HASH")) + ";";
      EXPECT_EQ(qxtest::TopIdentity(), ok ? "" : "UTL/MEM/FATAL/NO_MEMORY") << traces;
      UTL_ERROR_CLEAR();
      EXPECT_EQ(UTL_HASH_COUNT_ALL(t), ok ? after : before) << traces << n;
      UTL_HASH_DESTROY(t);
      if (ok) break;
    }
    EXPECT_EQ(seen, traces);
  }
}

// Oddities kept in generated files: a high byte is the octal of its
// sign-extended value; a zero-count entry writes its pointer's bytes and moves
// the pool scan on past the next buckets; the last bucket is left out of the
// pool. The file is then compiled and queried.
TEST(HashStaticSave, LayoutByteForByteCompiledAndQueried) {
  Table *t = Make(3);  // default hash: "cat" and "dog" in bucket 1, "ant" 2, "bee" 3
  UTL_HASH_INSERT_P(t, "cat", 0, reinterpret_cast<void *>(0x12AB00FFu));
  UTL_HASH_INSERT(t, "dog", 1, "\xe9");  // chained before "cat"
  UTL_HASH_INSERT(t, "ant", 2, "B2");    // passed over in the pool
  UTL_HASH_INSERT(t, "bee", 1, "g");     // last bucket
  const std::string source = Path("table.c"), object = Path("table.so");
  UTL_HASH_STATIC_SAVE(t, "lookup", "", source.c_str());
  std::ifstream in(source, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
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
  // Linked with the archive, in the build directory above the test executables.
  const auto archive =
      std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "libqxbase.a";
  const std::string command =
      std::string(QX_CC) + " -shared -fPIC -w -o " + object + " " + source + " " + archive.string();
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  void *library = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  auto find =
      reinterpret_cast<int (*)(const char *, unsigned int *, char **)>(dlsym(library, "lookup"));
  ASSERT_NE(find, nullptr);
  // Key, count, and the bytes when they lie in the pool.
  constexpr std::tuple<const char *, unsigned int, const char *> kFinds[] = {
      {"dog", 1, nullptr}, {"cat", 4, "\x12\xab\0\xff"}, {"ant", 2, nullptr},
      {"bee", 1, nullptr}, {"Og", 0, nullptr},
  };
  for (const auto &[key, count, bytes] : kFinds) {
    unsigned int n = 99;
    char *data = const_cast<char *>("x");
    EXPECT_EQ(find(key, &n, &data), count != 0) << key;
    EXPECT_TRUE(n == count && (count != 0) == (data != nullptr)) << key;
    if (bytes == nullptr) continue;
    EXPECT_EQ(std::string(data, n), std::string(bytes, count)) << key;
  }
  dlclose(library);
  std::remove(object.c_str());
  UTL_HASH_DESTROY(t);
  Table *one = Make(1);  // its only bucket is the last: an empty pool
  UTL_HASH_INSERT(one, "solo", 3, "abc");
  UTL_HASH_STATIC_SAVE(one, "f", "h", source.c_str());
  const std::string text = Slurp(source);
  for (const char *part :
       {"udata[] = {\n        '\\0'  };\n", "hash_val, h();\n", "hash_val = h (token, 1);\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part;
  UTL_HASH_DESTROY(one);
}

}  // namespace
