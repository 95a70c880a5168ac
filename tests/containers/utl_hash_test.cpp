// Tests of the hash table: the library hash, chains and statistics, copied and
// referenced blocks, failure records, reorganisation, the reports and the
// generated static-table source (compared byte for byte, compiled and queried).
#include "utl_hash.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

using Strings = std::vector<std::string>;
using Table = UTL_HASH_TABLE;

// Bucket by first letter ('a' is bucket 1): placement the tests can predict.
unsigned int FirstLetter(const char *key, unsigned int n) {
  return static_cast<unsigned int>(key[0] - 'a') % n + 1;
}
unsigned int OutOfRange(const char *, unsigned int n) {
  return n + 1;
}
Table *Make(unsigned int n, UTL_HASH_FUNCTION hash = nullptr) {
  return UTL_HASH_CREATE(n, hash, nullptr, nullptr, nullptr);
}

std::string TempPath(const char *name) {
  return std::string(testing::TempDir()) + "/qxhash" + std::to_string(getpid()) + "_" + name;
}
std::string Slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  std::remove(path.c_str());
  return text;
}
std::string Hex(const void *p) {
  char text[32];
  std::snprintf(text, sizeof text, "%lx", static_cast<unsigned long>(uintptr_t(p)));
  return text;
}
// "count:bytes" as UTL_HASH_RETRIEVE hands them to a buffer of the given size.
std::string RetrieveText(Table *t, const char *key, unsigned int size = 64) {
  char buf[64] = {};
  unsigned int n = 99;
  UTL_HASH_RETRIEVE(t, key, size, buf, &n);
  return std::to_string(n) + ":" + std::string(buf, std::min(n, size));
}
// The top record's trace lines, innermost first.
std::string Traces() {
  std::string text;
  if (!UTL_ERROR_IS_SET()) return text;
  for (const std::string &line : qxtest::TopError().traces)
    text.append(text.empty() ? "" : " | ").append(line);
  return text;
}
constexpr const char *kBad = "/nonexistent-dir/x.c";
// A chain's keys head to tail, checking back links, key lengths and the count.
std::string Chain(const UTL_HASH_PRIMARY &slot) {
  std::string keys;
  int n = 0;
  for (const UTL_HASH_BUCKET *e = slot.head, *prev = nullptr; e; prev = e, e = e->next, ++n) {
    EXPECT_EQ(e->prev, prev);
    EXPECT_EQ(e->key_length, std::strlen(e->key));
    keys.append(keys.empty() ? "" : " ").append(e->key);
  }
  EXPECT_EQ(slot.count, n);
  return keys;
}

TEST(HashDefaultFunction, FirstMiddleLastSignedProduct) {
  struct Row {
    const char *key;
    unsigned int buckets, expected;
  };
  constexpr Row kRows[] = {
      {"a", 7, 7},     {"abcd", 1000, 301}, {"axbyc", 101, 78},  // as "abc"
      {"\xff", 10, 6}, {"x\xe9y", 97, 47},  {"zz\x81", 65536, 10277},
      {"H", 1, 1},     {"", 9, 1},  // never reads key[-1]
  };
  for (const Row &row : kRows)
    EXPECT_EQ(UTL_HASH_DEFAULT_FUNCTION(row.key, row.buckets), row.expected) << row.key;
}

TEST(HashTable, ChainsAndStatistics) {
  Table *t = Make(4, FirstLetter);
  struct Step {
    const char *op;     // "+key" inserts, "-key" deletes
    const char *state;  // full buckets, overflow, longest chain, bucket 1 head to tail
  };
  constexpr Step kSteps[] = {
      {"+ant", "1 0 1 [ant]"},         {"+bee", "2 0 1 [ant]"},     {"+asp", "2 1 2 [asp ant]"},
      {"+auk", "2 2 3 [auk asp ant]"}, {"-asp", "2 1 3 [auk ant]"}, {"-bee", "1 1 3 [auk ant]"},
      {"+cow", "2 1 3 [auk ant]"},     {"-auk", "2 0 3 [ant]"},     {"-ant", "1 0 3 []"},
  };
  for (const Step &s : kSteps) {
    if (s.op[0] == '+') {
      ASSERT_EQ(UTL_HASH_INSERT(t, s.op + 1, 4, s.op + 1), 1);
    } else {
      UTL_HASH_DELETE(t, s.op + 1);
    }
    EXPECT_EQ(std::to_string(t->full_buckets) + " " + std::to_string(t->overflow_count) + " " +
                  std::to_string(t->max_chain) + " [" + Chain(t->buckets[0]) + "]",
              s.state)
        << s.op;
  }
  EXPECT_EQ(UTL_HASH_COUNT_ALL(t), 1);
  EXPECT_EQ(RetrieveText(t, "cow"), std::string("4:cow", 6));
  UTL_HASH_INSERT(t, "asp", 0, nullptr);
  UTL_HASH_INSERT(t, "ant", 0, nullptr);
  UTL_HASH_BUCKET *asp = UTL_HASH_INQUIRE(t, "asp");
  EXPECT_EQ(UTL_HASH_SCAN_BUCKETS(t, t->buckets[0].head, "asp"), asp);
  EXPECT_EQ(UTL_HASH_SCAN_BUCKETS(t, asp->next, "asp"), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
}

// "count:bytes" through UTL_HASH_RETRIEVE_P; "null" for a null pointer.
std::string PointerText(Table *t, const char *key, bool quiet = false) {
  static char untouched[] = "untouched";
  void *data = untouched;
  unsigned int n = 99;
  (quiet ? UTL_HASH_RETRIEVE_P_NOERRSET : UTL_HASH_RETRIEVE_P)(t, key, &data, &n);
  return std::to_string(n) + ":" + (data ? std::string(static_cast<char *>(data), n) : "null");
}

TEST(HashTable, FailureRecordsLeaveTheEntry) {
  static char held[] = "held";
  struct Row {
    const char *out, *identity, *traces;  // what the caller gets back; the one record
    std::function<std::string(Table *)> op;
  };
  const char *kFatal = "UTL/HASH/FATAL/TOKEN_NOT_FOUND", *kInfo = "UTL/HASH/INFO/TOKEN_NOT_FOUND";
  const char *kFile = "UTL/HASH/FATAL/FILE_OPEN_ERROR";
  const char *kTraceOnly = "UTL/ERROR/WARNING/PROGRAM_ERROR";  // a duplicate has no code
  const Row kRows[] = {
      {"0:", kFatal, "UTL_HASH_RETRIEVE", [](Table *t) { return RetrieveText(t, "nope"); }},
      {"6:abc", "UTL/HASH/WARNING/DATA_OVFL", "UTL_HASH_RETRIEVE",
       [](Table *t) { return RetrieveText(t, "key", 3); }},
      {"0:null", kFatal, "UTL_HASH_RETRIEVE_P", [](Table *t) { return PointerText(t, "nope"); }},
      {"", kFatal, "UTL_HASH_CHANGE", [](Table *t) { return UTL_HASH_CHANGE(t, "no", 1, ""), ""; }},
      {"", kInfo, "UTL_HASH_CHANGE_P",
       [](Table *t) { return UTL_HASH_CHANGE_P(t, "nope", 1, held), ""; }},
      {"", kInfo, "UTL_HASH_DELETE", [](Table *t) { return UTL_HASH_DELETE(t, "nope"), ""; }},
      {"", "UTL/HASH/FATAL/FILE_ERROR", "UTL_HASH_DO_ALL",
       [](Table *t) {
         return UTL_HASH_DO_ALL(
                    t, [](Table *, const char *, void *, unsigned, void *) { return 0; }, nullptr),
                "";
       }},
      {"0", kTraceOnly, "UTL_ERROR_ADD_TRACE | UTL_HASH_INSERT",
       [](Table *t) { return std::to_string(UTL_HASH_INSERT(t, "key", 1, "x")); }},
      {"0", kTraceOnly, "UTL_ERROR_ADD_TRACE | UTL_HASH_INSERT_P",
       [](Table *t) { return std::to_string(UTL_HASH_INSERT_P(t, "key", 1, held)); }},
      {"0", "UTL/HASH/FATAL/BAD_BUCKET_NUMBER", "UTL_HASH_INSERT",
       [](Table *t) {
         return t->hash_function = OutOfRange, std::to_string(UTL_HASH_INSERT(t, "k", 0, ""));
       }},
      {"", "UTL/HASH/FATAL/BAD_BUCKET_NUMBER", "UTL_HASH_REORGANIZE",
       [](Table *t) {
         return UTL_HASH_REORGANIZE(t, 4, OutOfRange, nullptr, nullptr, nullptr) ? "?" : "";
       }},
      {"", kInfo, "UTL_HASH_DELETE",
       [](Table *t) {  // refused while an error is pending
         UTL_HASH_DELETE(t, "nope");
         return UTL_HASH_REORGANIZE(t, 4, nullptr, nullptr, nullptr, nullptr) ? "?" : "";
       }},
      {"", kFile, "UTL_HASH_SHOW_HTDB", [](Table *t) { return UTL_HASH_SHOW_HTDB(t, kBad), ""; }},
      {"", kFile, "UTL_HASH_SHOW_ALL", [](Table *t) { return UTL_HASH_SHOW_ALL(t, kBad), ""; }},
      {"", kFile, "UTL_HASH_STATIC_SAVE",
       [](Table *t) { return UTL_HASH_STATIC_SAVE(t, "f", "", kBad), ""; }},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    Table *t = Make(5);
    ASSERT_TRUE(UTL_HASH_INSERT(t, "key", 6, "abcdef"));
    EXPECT_EQ(row.op(t), row.out) << row.traces;
    EXPECT_EQ(qxtest::TopIdentity(), row.identity) << row.traces;
    EXPECT_EQ(Traces(), row.traces);
    EXPECT_EQ(qxtest::StackTop(), 0) << row.traces;  // one record, not two
    t->hash_function = UTL_HASH_DEFAULT_FUNCTION;
    EXPECT_EQ(UTL_HASH_COUNT_ALL(t), 1) << row.traces;
    EXPECT_EQ(RetrieveText(t, "key"), "6:abcdef") << row.traces;
    UTL_ERROR_CLEAR();
    UTL_HASH_DESTROY(t);
  }
}

TEST(HashTable, ChangeBetweenCopiesAndReferences) {
  Table *t = Make(3);
  char caller[] = "caller";
  ASSERT_TRUE(UTL_HASH_INSERT(t, "k", 3, "abc"));
  UTL_HASH_BUCKET *e = UTL_HASH_INQUIRE(t, "k");
  void *owned = e->data;
  UTL_HASH_CHANGE(t, "k", 3, "xyz");  // same count: overwritten in place
  EXPECT_EQ(e->data, owned);
  EXPECT_EQ(RetrieveText(t, "k"), "3:xyz");
  UTL_HASH_CHANGE_P(t, "k", 6, caller);
  EXPECT_TRUE(e->data == caller && e->size == 0x80000006u);
  EXPECT_EQ(PointerText(t, "k"), "6:caller");
  UTL_HASH_CHANGE(t, "k", 6, caller);  // a reference becomes an owned copy
  EXPECT_TRUE(e->data != caller && e->size == 6);
  UTL_HASH_CHANGE(t, "k", 0, nullptr);
  EXPECT_TRUE(e->data == nullptr && e->size == 0);
  EXPECT_EQ(PointerText(t, "none", true), "0:null");
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
  EXPECT_STREQ(caller, "caller");  // referenced data is never released nor written
}

TEST(HashReorganize, MovesEntriesAndTakesTheDefaultFunctions) {
  auto upper = [](const char *key, unsigned int n) -> unsigned int {
    return static_cast<unsigned int>(std::toupper(static_cast<unsigned char>(key[0]))) % n + 1;
  };
  auto nocase = [](const char *a, const char *b) { return strcasecmp(a, b); };
  Table *t = UTL_HASH_CREATE(2, upper, nullptr, nullptr, nocase);
  const char *keys[] = {"H", "He", "Li", "Be", "B", "C", "N", "O"};
  std::vector<std::pair<UTL_HASH_BUCKET *, UTL_HASH_BUCKET>> before;  // entries and fields
  for (const char *k : keys) {
    ASSERT_TRUE(UTL_HASH_INSERT(t, k, std::strlen(k) + 1, k));
    before.emplace_back(UTL_HASH_INQUIRE(t, k), *UTL_HASH_INQUIRE(t, k));
  }
  EXPECT_EQ(RetrieveText(t, "LI"), std::string("3:Li", 5));  // the caller's functions
  EXPECT_EQ(UTL_HASH_INSERT(t, "li", 1, "x"), 0);
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_HASH_REORGANIZE(t, 0, nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());  // no buckets: refused without a record
  Table *r = UTL_HASH_REORGANIZE(t, 5, nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(r, nullptr);
  // Null functions take the defaults, not the old table's: "li" shares "Li"'s bucket.
  EXPECT_EQ(r->hash_function, UTL_HASH_DEFAULT_FUNCTION);
  EXPECT_EQ(UTL_HASH_INQUIRE(r, "li"), nullptr);
  EXPECT_EQ(UTL_HASH_COUNT_ALL(r), 8);
  EXPECT_EQ(r->full_buckets + r->overflow_count, 8);
  for (size_t i = 0; i < before.size(); ++i) {
    // Found through the new hash, so in its new bucket; the same entry, key and block.
    const UTL_HASH_BUCKET *e = UTL_HASH_INQUIRE(r, keys[i]);
    ASSERT_EQ(e, before[i].first) << keys[i];
    EXPECT_TRUE(e->key == before[i].second.key && e->data == before[i].second.data) << keys[i];
  }
  UTL_HASH_DESTROY(r);
}

// Each allocation of an operation fails in turn until none is left to fail.
TEST(HashFaults, EveryAllocationFailureIsCleanAndTraced) {
  struct Row {
    int before, after;                 // entries; no table at all before "create"
    const char *traces;                // of each failing request in turn
    std::function<bool(Table *&)> op;  // true on success
  };
  const Row kRows[] = {
      {0, 0, "UTL_MEM_ALLOC | UTL_HASH_CREATE; UTL_MEM_CALLOC | UTL_HASH_CREATE",
       [](Table *&t) { return (t = Make(7)) != nullptr; }},
      {1, 2,
       "UTL_MEM_ALLOC | UTL_HASH_FILL_BUCKET (10) | UTL_HASH_INSERT; "
       "UTL_MEM_ALLOC | UTL_HASH_FILL_BUCKET (20) | UTL_HASH_INSERT; "
       "UTL_MEM_ALLOC | UTL_HASH_FILL_BUCKET (30) | UTL_HASH_INSERT",
       [](Table *&t) { return UTL_HASH_INSERT(t, "Cl", 5, "35.45") == 1; }},
      {1, 2,
       "UTL_MEM_ALLOC | UTL_HASH_FILL_BUCKET_P | UTL_HASH_INSERT_P; "
       "UTL_MEM_ALLOC | UTL_HASH_FILL_BUCKET_P | UTL_HASH_INSERT_P",
       [](Table *&t) { return UTL_HASH_INSERT_P(t, "Cl", 0, nullptr) == 1; }},
      {1, 1,
       "UTL_MEM_ALLOC | UTL_HASH_CREATE | UTL_HASH_REORGANIZE; "
       "UTL_MEM_CALLOC | UTL_HASH_CREATE | UTL_HASH_REORGANIZE",
       [](Table *&t) {
         Table *r = UTL_HASH_REORGANIZE(t, 3, nullptr, nullptr, nullptr, nullptr);
         return r != nullptr && (t = r);
       }},
      {1, 1, "UTL_MEM_ALLOC | UTL_HASH_CHANGE",
       [](Table *&t) {  // failed: an empty block
         UTL_HASH_CHANGE(t, "K", 5, "32.06");
         return UTL_HASH_INQUIRE(t, "K")->size != 0 || UTL_HASH_INQUIRE(t, "K")->data != nullptr;
       }},
  };
  for (const Row &row : kRows) {
    std::string seen;
    for (unsigned long n = 1; n < 9; ++n) {
      Table *t = row.before != 0 ? Make(5) : nullptr;
      if (t != nullptr) UTL_HASH_INSERT(t, "K", 1, "k");
      bool ok;
      {
        qxtest::FailAllocation fail(n);
        ok = row.op(t);
      }
      EXPECT_EQ(qxtest::TopIdentity(), ok ? "" : "UTL/MEM/FATAL/NO_MEMORY") << row.traces;
      if (!ok) seen.append(seen.empty() ? "" : "; ").append(Traces());
      UTL_ERROR_CLEAR();
      EXPECT_EQ(UTL_HASH_COUNT_ALL(t), ok ? row.after : row.before) << row.traces << n;
      UTL_HASH_DESTROY(t);
      if (ok) break;
    }
    EXPECT_EQ(seen, row.traces);
  }
}

TEST(HashReports, StatisticsTexts) {
  Table *t = Make(4, FirstLetter);
  static char ref[] = "xy";
  UTL_HASH_INSERT(t, "ab", 1, "1");
  UTL_HASH_INSERT_P(t, "ac", 2, ref);
  UTL_HASH_INSERT(t, "bd", 2, "22");
  Strings seen;  // bucket by bucket, head to tail, the reference's count masked
  UTL_HASH_DO_ALL(
      t,
      [](Table *, const char *key, void *data, unsigned int n, void *client) {
        static_cast<Strings *>(client)->push_back(
            std::string(key) + ":" + std::string(static_cast<char *>(data), std::min(n, 9u)));
        return 1;
      },
      &seen);
  EXPECT_EQ(seen, (Strings{"ac:xy", "ab:1", "bd:22"}));
  const std::string stats =
      "Primary Bucket Count           - 4\n"
      "Pointer to Primary Bucket List - " +
      Hex(t->buckets) +
      "\nNumber of Full Primary Buckets - 2\n"
      "Overflow Bucket Count          - 1\n"
      "Maximum Primary Bucket Chain   - 2\n"
      "Average Primary Bucket Chain   - 0.750000\n";
  {
    qxtest::CaptureStream cap(stderr);
    UTL_HASH_SHOW_STATS(stderr, t);
    EXPECT_EQ(cap.Text(), stats);
  }
  EXPECT_FLOAT_EQ(t->average_chain, 0.75f);
  const std::string path = TempPath("htdb");
  UTL_HASH_SHOW_HTDB(t, path.c_str());
  const std::string description = "\n\n*** Hash Table Description ***\n\n" + stats + "\n\n";
  EXPECT_EQ(Slurp(path), description);
  UTL_HASH_SHOW_ALL(t, path.c_str());
  auto entry = [](const UTL_HASH_BUCKET *e) {
    return "     Token Name   - " + Hex(e->key) + "\n     Data Pointer - " + Hex(e->data) + "\n";
  };
  const UTL_HASH_BUCKET *ac = t->buckets[0].head;
  EXPECT_EQ(Slurp(path), description + "\nPrimary bucket # 1\n" + entry(ac) + entry(ac->next) +
                             "\nPrimary bucket # 2\n" + entry(t->buckets[1].head) +
                             "\nPrimary bucket # 3\n\nPrimary bucket # 4\n");
  UTL_HASH_DESTROY(t);
}

std::string SaveText(Table *t, const char *function, const char *hash) {
  const std::string path = TempPath("static.c");
  UTL_HASH_STATIC_SAVE(t, function, hash, path.c_str());
  return Slurp(path);
}

// Kept oddities of generated files: a high byte is the octal of its sign-extended
// value; a zero-count entry writes its pointer's bytes and moves the pool scan on
// to bucket index 5 (never backwards); the last bucket is left out of the pool.
TEST(HashStaticSave, LayoutByteForByte) {
  Table *t = Make(7, FirstLetter);
  UTL_HASH_INSERT_P(t, "ape", 0, reinterpret_cast<void *>(0x12AB00FFu));
  UTL_HASH_INSERT(t, "ant", 1, "\xe9");     // chained before ape
  UTL_HASH_INSERT(t, "bee", 2, "B2");       // index 1: passed over in the pool
  UTL_HASH_INSERT_P(t, "fox", 0, nullptr);  // index 5: where the pool resumes
  UTL_HASH_INSERT(t, "gnu", 1, "g");        // last bucket
  EXPECT_EQ(SaveText(t, "lookup_beast", "first_letter_hash"),
            "\f\n"
            R"(/*+E*/
/************************************************/
/*   Static Hash Table Function generated by    */
/*   UTL_HASH_STATIC_SAVE routine.              */
/*   Statistics for generated hash table:       */
/*     Primary Bucket Count:       7            */
/*     Full Primary Buckets:       4            */
/*     Overflow Bucket Count:      1            */
/*     Max Bucket Chain Len:       2            */
/*     Avg Bucket Chain Len:    0.71            */
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

int lookup_beast (token, nbytes, data_ptr)
    char           *token, *(*data_ptr);
    unsigned       *nbytes;
    {
    BUCKET_P       bp;
    int            status, strcmp();
    unsigned       hash_val, first_letter_hash();
    static char    udata[] = {
        '\37777777751',
        '\0',
        '\0',
        '\0',
        '\22', '\253', '\0', '\377', 
        '\0', '\0', '\0', '\0', 
        '\0'  };
    static BUCKET bkt[] = {
        { "ant",
          &bkt[1], 1, &udata[0] },
        { "ape",
          NIL, 4, &udata[4] },
        { "bee",
          NIL, 2, &udata[8] },
        { "fox",
          NIL, 4, &udata[12] },
        { "gnu",
          NIL, 1, &udata[16] },
        { "dummy",
          NIL, 0, NIL }  };
    static BUCKET_P  htab[] = {
        &bkt[0],
        &bkt[2],
        NIL,
        NIL,
        NIL,
        &bkt[3],
        &bkt[4],
        NIL  };

    *nbytes = 0;  *data_ptr = NIL;  status = FALSE;
    hash_val = first_letter_hash (token, 7);
    for (bp = htab[hash_val - 1]; (bp != NIL) && (!status); bp = bp->link)   {
        if (strcmp (bp->token, token) == 0)   {
            status = TRUE;  *nbytes = bp->data_siz;  *data_ptr = bp->data;
            }
        }
    return (status);
    }
)");
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
  Table *one = Make(1);  // its only bucket is the last: an empty pool
  UTL_HASH_INSERT(one, "solo", 3, "abc");
  EXPECT_NE(SaveText(one, "f", "").find("udata[] = {\n        '\\0'  };\n"), std::string::npos);
  UTL_HASH_DESTROY(one);
}

// The archive sits in the build directory, above the test executables.
std::string FindArchive() {
  char exe[4096] = {};
  if (readlink("/proc/self/exe", exe, sizeof exe - 1) <= 0) return "";
  std::string dir(exe);
  for (int up = 0; up < 4; ++up) {
    dir = dir.substr(0, dir.rfind('/'));
    if (access((dir + "/libqxbase.a").c_str(), R_OK) == 0) return dir + "/libqxbase.a";
  }
  return "";
}

TEST(HashStaticSave, GeneratedSourceCompilesAndFindsEveryKey) {
  constexpr const char *kElements[][2] = {
      {"H", "1.008"},   {"He", "4.0026"}, {"Li", "6.94"},   {"Be", "9.0122"}, {"B", "10.81"},
      {"C", "12.011"},  {"N", "14.007"},  {"O", "15.999"},  {"F", "18.998"},  {"Ne", "20.180"},
      {"Na", "22.990"}, {"Mg", "24.305"}, {"Al", "26.982"}, {"Si", "28.085"}, {"P", "30.974"},
      {"S", "32.06"},   {"Cl", "35.45"},  {"Ar", "39.95"},  {"K", "39.098"},  {"Ca", "40.078"},
      {"Fe", "55.845"}, {"Cu", "63.546"}, {"Zn", "65.38"},  {"Xe", "131.29"},
  };
  constexpr unsigned int kBuckets = 13;
  Table *t = Make(kBuckets);
  for (const auto &e : kElements)
    ASSERT_TRUE(UTL_HASH_INSERT(t, e[0], std::strlen(e[1]), e[1]));
  const std::string source = TempPath("elements.c"), object = TempPath("elements.so");
  UTL_HASH_STATIC_SAVE(t, "find_element", "", source.c_str());
  const std::string archive = FindArchive();
  ASSERT_FALSE(archive.empty());
  const std::string command =
      std::string(QX_CC) + " -shared -fPIC -w -o " + object + " " + source + " " + archive;
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  void *library = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  auto find = reinterpret_cast<int (*)(const char *, unsigned int *, char **)>(
      dlsym(library, "find_element"));
  ASSERT_NE(find, nullptr);
  for (const auto &e : kElements) {
    unsigned int n = 0;
    char *data = nullptr;
    ASSERT_EQ(find(e[0], &n, &data), 1) << e[0];
    EXPECT_EQ(n, std::strlen(e[1])) << e[0];
    // Blocks of the last bucket point past the pool, as generated files always had it.
    if (UTL_HASH_DEFAULT_FUNCTION(e[0], kBuckets) != kBuckets) {
      EXPECT_EQ(std::string(data, n), e[1]) << e[0];
    }
  }
  unsigned int n = 5;
  char *data = const_cast<char *>("x");
  EXPECT_EQ(find("Og", &n, &data), 0);
  EXPECT_TRUE(n == 0 && data == nullptr);
  dlclose(library);
  std::remove(source.c_str());
  std::remove(object.c_str());
  UTL_HASH_DESTROY(t);
}

}  // namespace
