// Tests of the hash table: the library hash, chains and statistics, copied and
// referenced blocks, failure records, reorganisation, the reports and the
// generated static-table source (compiled and queried).
#include "utl_hash.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

// Bucket by first letter ('a' is bucket 1): placement the tests can predict.
unsigned int FirstLetter(const char *key, unsigned int n) {
  return static_cast<unsigned int>(key[0] - 'a') % n + 1;
}
unsigned int Always1(const char *, unsigned int) {
  return 1;
}
unsigned int OutOfRange(const char *, unsigned int n) {
  return n + 1;
}

std::string ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string TempPath(const char *name) {
  return std::string(testing::TempDir()) + "/qxhash" + std::to_string(getpid()) + "_" + name;
}

std::string Hex(const void *p) {
  char text[32];
  std::snprintf(text, sizeof text, "%lx",
                static_cast<unsigned long>(reinterpret_cast<uintptr_t>(p)));
  return text;
}

std::string RetrieveText(UTL_HASH_TABLE *t, const char *key) {
  char buf[64] = {};
  unsigned int n = 99;
  UTL_HASH_RETRIEVE(t, key, sizeof buf, buf, &n);
  return std::string(buf, n);
}

TEST(HashDefaultFunction, FirstMiddleLastSignedProduct) {
  struct Row {
    const char *key;
    unsigned int buckets, expected;
  };
  constexpr Row kRows[] = {
      {"a", 7, 7},     {"ab", 13, 9},      {"abc", 101, 78},       {"abcd", 1000, 301},
      {"\xff", 10, 6}, {"x\xe9y", 97, 47}, {"\x80\x80\x80", 7, 4}, {"zz\x81", 65536, 10277},
      {"H", 1, 1},     {"", 9, 1},         {"axbyc", 101, 78},  // same first, middle, last as
                                                                // "abc"
  };
  for (const Row &row : kRows)
    EXPECT_EQ(UTL_HASH_DEFAULT_FUNCTION(row.key, row.buckets), row.expected) << row.key;
}

TEST(HashTable, ChainsAndStatistics) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(4, FirstLetter, nullptr, nullptr, nullptr);
  ASSERT_NE(t, nullptr);
  struct Step {
    const char *key;
    bool insert;  // else delete
    int full, overflow;
    unsigned int max_chain;
  };
  constexpr Step kSteps[] = {
      {"ant", true, 1, 0, 1}, {"bee", true, 2, 0, 1},  {"asp", true, 2, 1, 2},
      {"auk", true, 2, 2, 3}, {"asp", false, 2, 1, 3}, {"bee", false, 1, 1, 3},
      {"cow", true, 2, 1, 3}, {"ant", false, 2, 0, 3}, {"auk", false, 1, 0, 3},
  };
  for (const Step &s : kSteps) {
    if (s.insert) {
      ASSERT_EQ(UTL_HASH_INSERT(t, s.key, 4, s.key), 1);
    } else {
      UTL_HASH_DELETE(t, s.key);
    }
    EXPECT_EQ(t->full_buckets, s.full) << s.key;
    EXPECT_EQ(t->overflow_count, s.overflow) << s.key;
    EXPECT_EQ(t->max_chain, s.max_chain) << s.key;
  }
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  EXPECT_EQ(UTL_HASH_COUNT_ALL(t), 1);
  EXPECT_EQ(t->buckets[0].count, 0);
  EXPECT_EQ(t->buckets[0].head, nullptr);
  EXPECT_EQ(RetrieveText(t, "cow"), std::string("cow", 4));
  UTL_HASH_DESTROY(t);
}

TEST(HashTable, NewestFirstInChainAndScan) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(3, Always1, nullptr, nullptr, nullptr);
  for (const char *k : {"one", "two", "three", "tw"})
    ASSERT_TRUE(UTL_HASH_INSERT(t, k, 0, nullptr));
  std::vector<std::string> order;
  for (UTL_HASH_BUCKET *e = t->buckets[0].head; e; e = e->next) {
    order.emplace_back(e->key);
    EXPECT_EQ(e->key_length, std::strlen(e->key));
    if (e->next) {
      EXPECT_EQ(e->next->prev, e);
    }
  }
  EXPECT_EQ(order, (std::vector<std::string>{"tw", "three", "two", "one"}));
  EXPECT_EQ(t->buckets[0].head->prev, nullptr);
  UTL_HASH_BUCKET *two = UTL_HASH_INQUIRE(t, "two");
  ASSERT_NE(two, nullptr);
  EXPECT_EQ(UTL_HASH_SCAN_BUCKETS(t, t->buckets[0].head, "two"), two);
  EXPECT_EQ(UTL_HASH_SCAN_BUCKETS(t, two->next, "two"), nullptr);
  EXPECT_EQ(UTL_HASH_INQUIRE(t, "t"), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
}

TEST(HashTable, FailureRecords) {
  struct Row {
    const char *name;
    std::function<void(UTL_HASH_TABLE *)> op;
    const char *identity, *routine;
  };
  static char held[] = "held";
  const Row kRows[] = {
      {"retrieve", [](UTL_HASH_TABLE *t) { RetrieveText(t, "nope"); },
       "UTL/HASH/FATAL/TOKEN_NOT_FOUND", "UTL_HASH_RETRIEVE"},
      {"retrieve_p",
       [](UTL_HASH_TABLE *t) {
         void *d = held;
         unsigned int n = 7;
         UTL_HASH_RETRIEVE_P(t, "nope", &d, &n);
         EXPECT_EQ(d, nullptr);
         EXPECT_EQ(n, 0u);
       },
       "UTL/HASH/FATAL/TOKEN_NOT_FOUND", "UTL_HASH_RETRIEVE_P"},
      {"change", [](UTL_HASH_TABLE *t) { UTL_HASH_CHANGE(t, "nope", 1, "x"); },
       "UTL/HASH/FATAL/TOKEN_NOT_FOUND", "UTL_HASH_CHANGE"},
      {"change_p", [](UTL_HASH_TABLE *t) { UTL_HASH_CHANGE_P(t, "nope", 1, held); },
       "UTL/HASH/INFO/TOKEN_NOT_FOUND", "UTL_HASH_CHANGE_P"},
      {"delete", [](UTL_HASH_TABLE *t) { UTL_HASH_DELETE(t, "nope"); },
       "UTL/HASH/INFO/TOKEN_NOT_FOUND", "UTL_HASH_DELETE"},
      {"overflow",
       [](UTL_HASH_TABLE *t) {
         char buf[3] = {};
         unsigned int n = 0;
         UTL_HASH_RETRIEVE(t, "key", sizeof buf, buf, &n);
         EXPECT_EQ(n, 6u);
         EXPECT_EQ(std::string(buf, 3), "abc");
       },
       "UTL/HASH/WARNING/DATA_OVFL", "UTL_HASH_RETRIEVE"},
      {"do_all",
       [](UTL_HASH_TABLE *t) {
         UTL_HASH_DO_ALL(
             t, [](UTL_HASH_TABLE *, const char *, void *, unsigned int, void *) { return 0; },
             nullptr);
       },
       "UTL/HASH/FATAL/FILE_ERROR", "UTL_HASH_DO_ALL"},
      {"insert_p duplicate", [](UTL_HASH_TABLE *t) { UTL_HASH_INSERT_P(t, "key", 1, held); },
       "UTL/ERROR/WARNING/PROGRAM_ERROR", "UTL_ERROR_ADD_TRACE"},
      {"bad bucket",
       [](UTL_HASH_TABLE *t) {
         t->hash_function = OutOfRange;
         UTL_HASH_INSERT(t, "k", 0, nullptr);
       },
       "UTL/HASH/FATAL/BAD_BUCKET_NUMBER", "UTL_HASH_INSERT"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    UTL_HASH_TABLE *t = UTL_HASH_CREATE(5, nullptr, nullptr, nullptr, nullptr);
    ASSERT_TRUE(UTL_HASH_INSERT(t, "key", 6, "abcdef"));
    row.op(t);
    EXPECT_EQ(qxtest::TopIdentity(), row.identity) << row.name;
    ASSERT_FALSE(qxtest::TopError().traces.empty()) << row.name;
    EXPECT_EQ(qxtest::TopError().traces[0], row.routine) << row.name;
    EXPECT_EQ(qxtest::StackTop(), 0) << row.name;  // one record, not two
    t->hash_function = UTL_HASH_DEFAULT_FUNCTION;
    EXPECT_EQ(RetrieveText(t, "key"), "abcdef") << row.name;  // the entry is untouched
    UTL_ERROR_CLEAR();
    UTL_HASH_DESTROY(t);
  }
}

TEST(HashTable, DuplicateInsertKeepsOldDataWithTraceOnly) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(5, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(UTL_HASH_INSERT(t, "Fe", 6, "55.845"));
  EXPECT_EQ(UTL_HASH_INSERT(t, "Fe", 3, "xxx"), 0);
  const qxtest::ErrorView top = qxtest::TopError();
  EXPECT_EQ(top.traces, (std::vector<std::string>{"UTL_ERROR_ADD_TRACE", "UTL_HASH_INSERT"}));
  EXPECT_EQ(RetrieveText(t, "Fe"), "55.845");
  EXPECT_EQ(UTL_HASH_COUNT_ALL(t), 1);
  UTL_ERROR_CLEAR();
  UTL_HASH_DESTROY(t);
}

TEST(HashTable, ChangeBetweenCopiesAndReferences) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(3, nullptr, nullptr, nullptr, nullptr);
  char caller[] = "caller";
  ASSERT_TRUE(UTL_HASH_INSERT(t, "k", 3, "abc"));
  void *owned = UTL_HASH_INQUIRE(t, "k")->data;
  UTL_HASH_CHANGE(t, "k", 3, "xyz");  // same count: overwritten in place
  EXPECT_EQ(UTL_HASH_INQUIRE(t, "k")->data, owned);
  EXPECT_EQ(RetrieveText(t, "k"), "xyz");
  UTL_HASH_CHANGE_P(t, "k", 6, caller);
  UTL_HASH_BUCKET *e = UTL_HASH_INQUIRE(t, "k");
  EXPECT_EQ(e->data, caller);
  EXPECT_EQ(e->size, 0x80000006u);
  void *data = nullptr;
  unsigned int n = 0;
  UTL_HASH_RETRIEVE_P(t, "k", &data, &n);
  EXPECT_EQ(data, caller);
  EXPECT_EQ(n, 6u);
  UTL_HASH_CHANGE(t, "k", 6, caller);  // a reference becomes an owned copy
  EXPECT_NE(e->data, caller);
  EXPECT_EQ(e->size, 6u);
  EXPECT_STREQ(caller, "caller");
  UTL_HASH_CHANGE(t, "k", 0, nullptr);
  EXPECT_EQ(e->data, nullptr);
  EXPECT_EQ(e->size, 0u);
  UTL_HASH_RETRIEVE_P_NOERRSET(t, "none", &data, &n);
  EXPECT_EQ(data, nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
  EXPECT_STREQ(caller, "caller");
}

TEST(HashTable, DoAllVisitsBucketsInOrderWithMaskedCounts) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(3, FirstLetter, nullptr, nullptr, nullptr);
  static char ref[] = "0123456789";
  UTL_HASH_INSERT(t, "cat", 2, "c1");
  UTL_HASH_INSERT(t, "ape", 1, "a");
  UTL_HASH_INSERT_P(t, "ant", 10, ref);
  UTL_HASH_INSERT(t, "bat", 3, "b22");
  std::vector<std::string> seen;
  UTL_HASH_DO_ALL(
      t,
      [](UTL_HASH_TABLE *, const char *key, void *data, unsigned int n, void *client) {
        static_cast<std::vector<std::string> *>(client)->push_back(
            std::string(key) + ":" + std::string(static_cast<char *>(data), n));
        return 1;
      },
      &seen);
  EXPECT_EQ(seen, (std::vector<std::string>{"ant:0123456789", "ape:a", "bat:b22", "cat:c1"}));
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
}

TEST(HashTable, EmptyKeyIsAnOrdinaryKey) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(8, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(UTL_HASH_INSERT(t, "", 2, "e!"));
  EXPECT_EQ(t->buckets[0].count, 1);
  EXPECT_EQ(RetrieveText(t, ""), "e!");
  UTL_HASH_DELETE(t, "");
  EXPECT_EQ(UTL_HASH_COUNT_ALL(t), 0);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
}

TEST(HashTable, CallerFunctionsForCaseBlindKeys) {
  auto upper_hash = [](const char *key, unsigned int n) -> unsigned int {
    return static_cast<unsigned int>(std::toupper(static_cast<unsigned char>(key[0]))) % n + 1;
  };
  auto nocase = [](const char *a, const char *b) { return strcasecmp(a, b); };
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(11, upper_hash, nullptr, nullptr, nocase);
  ASSERT_TRUE(UTL_HASH_INSERT(t, "Carbon", 1, "C"));
  EXPECT_EQ(RetrieveText(t, "CARBON"), "C");
  EXPECT_EQ(UTL_HASH_INSERT(t, "carbon", 1, "c"), 0);
  EXPECT_EQ(UTL_HASH_INQUIRE(t, "carbo"), nullptr);  // lengths differ
  UTL_ERROR_CLEAR();
  UTL_HASH_DESTROY(t);
}

TEST(HashReorganize, MovesEntriesWithoutCopying) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(2, Always1, nullptr, nullptr, nullptr);
  const char *keys[] = {"H", "He", "Li", "Be", "B", "C", "N", "O"};
  std::vector<UTL_HASH_BUCKET *> entries;
  std::vector<void *> key_copies, blocks;
  for (const char *k : keys) {
    ASSERT_TRUE(UTL_HASH_INSERT(t, k, std::strlen(k) + 1, k));
    entries.push_back(UTL_HASH_INQUIRE(t, k));
    key_copies.push_back(entries.back()->key);
    blocks.push_back(entries.back()->data);
  }
  UTL_HASH_TABLE *r = UTL_HASH_REORGANIZE(t, 5, nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->hash_function, UTL_HASH_DEFAULT_FUNCTION);  // not the old table's
  EXPECT_EQ(UTL_HASH_COUNT_ALL(r), 8);
  int total = 0;
  for (unsigned int i = 0; i < 5; ++i)
    total += r->buckets[i].count;
  EXPECT_EQ(total, 8);
  EXPECT_EQ(r->full_buckets + r->overflow_count, 8);
  for (size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(UTL_HASH_INQUIRE(r, keys[i]), entries[i]);
    EXPECT_EQ(entries[i]->key, key_copies[i]);
    EXPECT_EQ(entries[i]->data, blocks[i]);
  }
  EXPECT_EQ(RetrieveText(r, "Li"), std::string("Li", 3));
  UTL_HASH_DESTROY(r);
}

TEST(HashReorganize, RefusalsLeaveTheOldTable) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(3, nullptr, nullptr, nullptr, nullptr);
  UTL_HASH_INSERT(t, "Na", 2, "11");
  EXPECT_EQ(UTL_HASH_REORGANIZE(t, 0, nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  EXPECT_EQ(UTL_HASH_REORGANIZE(t, 4, OutOfRange, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/HASH/FATAL/BAD_BUCKET_NUMBER");
  EXPECT_EQ(UTL_HASH_REORGANIZE(t, 4, nullptr, nullptr, nullptr, nullptr), nullptr);  // pending
  UTL_ERROR_CLEAR();
  EXPECT_EQ(RetrieveText(t, "Na"), "11");
  UTL_HASH_DESTROY(t);
}

TEST(HashFaults, EveryAllocationFailureIsCleanAndTraced) {
  struct Row {
    const char *name;
    std::function<bool(UTL_HASH_TABLE *&)> op;     // true on success
    int entries_after;                             // on success
    std::vector<std::vector<std::string>> traces;  // by failing request
  };
  const Row kRows[] = {
      {"create",
       [](UTL_HASH_TABLE *&t) {
         return (t = UTL_HASH_CREATE(7, nullptr, nullptr, nullptr, nullptr));
       },
       0,
       {{"UTL_MEM_ALLOC", "UTL_HASH_CREATE"}, {"UTL_MEM_CALLOC", "UTL_HASH_CREATE"}}},
      {"insert",
       [](UTL_HASH_TABLE *&t) { return UTL_HASH_INSERT(t, "Cl", 5, "35.45") == 1; },
       2,
       {{"UTL_MEM_ALLOC", "UTL_HASH_FILL_BUCKET (10)", "UTL_HASH_INSERT"},
        {"UTL_MEM_ALLOC", "UTL_HASH_FILL_BUCKET (20)", "UTL_HASH_INSERT"},
        {"UTL_MEM_ALLOC", "UTL_HASH_FILL_BUCKET (30)", "UTL_HASH_INSERT"}}},
      {"insert_p",
       [](UTL_HASH_TABLE *&t) { return UTL_HASH_INSERT_P(t, "Cl", 0, nullptr) == 1; },
       2,
       {{"UTL_MEM_ALLOC", "UTL_HASH_FILL_BUCKET_P", "UTL_HASH_INSERT_P"},
        {"UTL_MEM_ALLOC", "UTL_HASH_FILL_BUCKET_P", "UTL_HASH_INSERT_P"}}},
      {"reorganize",
       [](UTL_HASH_TABLE *&t) {
         UTL_HASH_TABLE *r = UTL_HASH_REORGANIZE(t, 3, nullptr, nullptr, nullptr, nullptr);
         if (r != nullptr) t = r;
         return r != nullptr;
       },
       1,
       {{"UTL_MEM_ALLOC", "UTL_HASH_CREATE", "UTL_HASH_REORGANIZE"},
        {"UTL_MEM_CALLOC", "UTL_HASH_CREATE", "UTL_HASH_REORGANIZE"}}},
  };
  for (const Row &row : kRows) {
    for (unsigned long n = 1;; ++n) {
      UTL_HASH_TABLE *t = std::string(row.name) == "create"
                              ? nullptr
                              : UTL_HASH_CREATE(5, nullptr, nullptr, nullptr, nullptr);
      if (t != nullptr) UTL_HASH_INSERT(t, "K", 1, "k");
      bool ok;
      {
        qxtest::FailAllocation fail(n);
        ok = row.op(t);
      }
      if (ok) {
        EXPECT_EQ(n, row.traces.size() + 1) << row.name;
        EXPECT_FALSE(UTL_ERROR_IS_SET()) << row.name;
        EXPECT_EQ(UTL_HASH_COUNT_ALL(t), row.entries_after) << row.name;
        UTL_HASH_DESTROY(t);
        break;
      }
      ASSERT_LE(n, row.traces.size()) << row.name;
      EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY") << row.name << n;
      EXPECT_EQ(qxtest::TopError().traces, row.traces[n - 1]) << row.name << n;
      UTL_ERROR_CLEAR();
      if (t != nullptr) {
        EXPECT_EQ(UTL_HASH_COUNT_ALL(t), 1) << row.name << n;
        EXPECT_EQ(UTL_HASH_INQUIRE(t, "Cl"), nullptr);
        UTL_HASH_DESTROY(t);
      }
    }
  }
}

TEST(HashFaults, ChangeWithoutStorageEmptiesTheBlock) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(3, nullptr, nullptr, nullptr, nullptr);
  UTL_HASH_INSERT(t, "S", 3, "abc");
  {
    qxtest::FailAllocation fail(1);
    UTL_HASH_CHANGE(t, "S", 5, "32.06");
  }
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"UTL_MEM_ALLOC", "UTL_HASH_CHANGE"}));
  UTL_HASH_BUCKET *e = UTL_HASH_INQUIRE(t, "S");
  EXPECT_EQ(e->size, 0u);
  EXPECT_EQ(e->data, nullptr);
  UTL_ERROR_CLEAR();
  UTL_HASH_DESTROY(t);
}

TEST(HashReports, StatisticsTexts) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(4, FirstLetter, nullptr, nullptr, nullptr);
  UTL_HASH_INSERT(t, "ab", 1, "1");
  UTL_HASH_INSERT(t, "ac", 0, nullptr);
  UTL_HASH_INSERT(t, "bd", 2, "22");
  const std::string stats =
      "Primary Bucket Count           - 4\n"
      "Pointer to Primary Bucket List - " +
      Hex(t->buckets) +
      "\n"
      "Number of Full Primary Buckets - 2\n"
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
  EXPECT_EQ(ReadFile(path), description);
  UTL_HASH_SHOW_ALL(t, path.c_str());
  UTL_HASH_BUCKET *ac = t->buckets[0].head, *ab = ac->next, *bd = t->buckets[1].head;
  EXPECT_EQ(ReadFile(path),
            description + "\nPrimary bucket # 1\n" + "     Token Name   - " + Hex(ac->key) + "\n" +
                "     Data Pointer - 0\n" + "     Token Name   - " + Hex(ab->key) + "\n" +
                "     Data Pointer - " + Hex(ab->data) + "\n" + "\nPrimary bucket # 2\n" +
                "     Token Name   - " + Hex(bd->key) + "\n" + "     Data Pointer - " +
                Hex(bd->data) + "\n" + "\nPrimary bucket # 3\n\nPrimary bucket # 4\n");
  std::remove(path.c_str());
  const char *kRoutines[] = {"UTL_HASH_SHOW_HTDB", "UTL_HASH_SHOW_ALL", "UTL_HASH_STATIC_SAVE"};
  for (const char *routine : kRoutines) {
    UTL_ERROR_CLEAR();
    const char *bad = "/nonexistent-dir/x.txt";
    if (routine == kRoutines[0]) UTL_HASH_SHOW_HTDB(t, bad);
    if (routine == kRoutines[1]) UTL_HASH_SHOW_ALL(t, bad);
    if (routine == kRoutines[2]) UTL_HASH_STATIC_SAVE(t, "f", "", bad);
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/HASH/FATAL/FILE_OPEN_ERROR");
    EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{routine});
  }
  UTL_ERROR_CLEAR();
  UTL_HASH_DESTROY(t);
}

// ---- Generated static-table source ---------------------------------------

std::string Section(const std::string &text, const std::string &from, const std::string &to) {
  const size_t a = text.find(from);
  const size_t b = text.find(to, a);
  if (a == std::string::npos || b == std::string::npos) return "<missing>";
  return text.substr(a + from.size(), b - a - from.size());
}

std::string SaveText(UTL_HASH_TABLE *t, const char *function, const char *hash) {
  const std::string path = TempPath("static.c");
  UTL_HASH_STATIC_SAVE(t, function, hash, path.c_str());
  std::string text = ReadFile(path);
  std::remove(path.c_str());
  return text;
}

TEST(HashStaticSave, LayoutByteForByte) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(3, FirstLetter, nullptr, nullptr, nullptr);
  UTL_HASH_INSERT(t, "apple", 2, "AB");
  UTL_HASH_INSERT(t, "avocado", 4, "\xe9xyz");
  UTL_HASH_INSERT(t, "banana", 5, "12345");
  UTL_HASH_INSERT(t, "cherry", 1, "Q");
  const std::string expected =
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

int lookup_fruit (token, nbytes, data_ptr)
    char           *token, *(*data_ptr);
    unsigned       *nbytes;
    {
    BUCKET_P       bp;
    int            status, strcmp();
    unsigned       hash_val, first_letter_hash();
    static char    udata[] = {
        '\37777777751',
        '\170',
        '\171',
        '\172',
        '\101',
        '\102',
        '\0',
        '\0',
        '\61',
        '\62',
        '\63',
        '\64',
        '\65',
        '\0',
        '\0',
        '\0',
        '\0'  };
    static BUCKET bkt[] = {
        { "avocado",
          &bkt[1], 4, &udata[0] },
        { "apple",
          NIL, 2, &udata[4] },
        { "banana",
          NIL, 5, &udata[8] },
        { "cherry",
          NIL, 1, &udata[16] },
        { "dummy",
          NIL, 0, NIL }  };
    static BUCKET_P  htab[] = {
        &bkt[0],
        &bkt[2],
        &bkt[3],
        NIL  };

    *nbytes = 0;  *data_ptr = NIL;  status = FALSE;
    hash_val = first_letter_hash (token, 3);
    for (bp = htab[hash_val - 1]; (bp != NIL) && (!status); bp = bp->link)   {
        if (strcmp (bp->token, token) == 0)   {
            status = TRUE;  *nbytes = bp->data_siz;  *data_ptr = bp->data;
            }
        }
    return (status);
    }
)";
  EXPECT_EQ(SaveText(t, "lookup_fruit", "first_letter_hash"), expected);
  const std::string with_default = SaveText(t, "lookup_fruit", "");
  EXPECT_NE(with_default.find("    unsigned       hash_val, UTL_HASH_DEFAULT_FUNCTION();\n"),
            std::string::npos);
  EXPECT_NE(with_default.find("    hash_val = UTL_HASH_DEFAULT_FUNCTION (token, 3);\n"),
            std::string::npos);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  UTL_HASH_DESTROY(t);
}

TEST(HashStaticSave, ZeroCountEntriesAndSkippedBuckets) {
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(8, FirstLetter, nullptr, nullptr, nullptr);
  UTL_HASH_INSERT_P(t, "alpha", 0, reinterpret_cast<void *>(0x12AB00FFu));
  UTL_HASH_INSERT(t, "bravo", 1, "b");     // index 1: passed over after alpha
  UTL_HASH_INSERT(t, "foxtrot", 1, "F");   // index 5: where the pool resumes
  UTL_HASH_INSERT(t, "golf", 0, nullptr);  // index 6: no jump backwards
  UTL_HASH_INSERT(t, "hotel", 1, "h");     // last bucket: never in the pool
  const std::string text = SaveText(t, "f", "");
  EXPECT_EQ(Section(text, "udata[] = {\n", "    static BUCKET bkt"),
            "        '\\22', '\\253', '\\0', '\\377', \n"
            "        '\\106',\n        '\\0',\n        '\\0',\n        '\\0',\n"
            "        '\\0', '\\0', '\\0', '\\0', \n"
            "        '\\0'  };\n");
  EXPECT_EQ(Section(text, "bkt[] = {\n", "        { \"dummy\""),
            "        { \"alpha\",\n          NIL, 4, &udata[0] },\n"
            "        { \"bravo\",\n          NIL, 1, &udata[4] },\n"
            "        { \"foxtrot\",\n          NIL, 1, &udata[8] },\n"
            "        { \"golf\",\n          NIL, 4, &udata[12] },\n"
            "        { \"hotel\",\n          NIL, 1, &udata[16] },\n");
  EXPECT_EQ(Section(text, "htab[] = {\n", "  };"),
            "        &bkt[0],\n        &bkt[1],\n        NIL,\n        NIL,\n        NIL,\n"
            "        &bkt[2],\n        &bkt[3],\n        &bkt[4],\n        NIL");
  UTL_HASH_DESTROY(t);

  UTL_HASH_TABLE *one = UTL_HASH_CREATE(1, nullptr, nullptr, nullptr, nullptr);
  UTL_HASH_INSERT(one, "solo", 3, "abc");
  EXPECT_EQ(Section(SaveText(one, "f", ""), "udata[] = {\n", "    static BUCKET bkt"),
            "        '\\0'  };\n");
  UTL_HASH_DESTROY(one);
}

// The archive sits in the build directory, above the test executables.
std::string FindArchive() {
  char exe[4096] = {};
  if (readlink("/proc/self/exe", exe, sizeof exe - 1) <= 0) return "";
  std::string dir(exe);
  for (int up = 0; up < 4; ++up) {
    dir = dir.substr(0, dir.rfind('/'));
    const std::string candidate = dir + "/libqxbase.a";
    if (access(candidate.c_str(), R_OK) == 0) return candidate;
  }
  return "";
}

TEST(HashStaticSave, GeneratedSourceCompilesAndFindsEveryKey) {
  struct Element {
    const char *symbol, *mass;
  };
  constexpr Element kElements[] = {
      {"H", "1.008"},   {"He", "4.0026"}, {"Li", "6.94"},   {"Be", "9.0122"}, {"B", "10.81"},
      {"C", "12.011"},  {"N", "14.007"},  {"O", "15.999"},  {"F", "18.998"},  {"Ne", "20.180"},
      {"Na", "22.990"}, {"Mg", "24.305"}, {"Al", "26.982"}, {"Si", "28.085"}, {"P", "30.974"},
      {"S", "32.06"},   {"Cl", "35.45"},  {"Ar", "39.95"},  {"K", "39.098"},  {"Ca", "40.078"},
      {"Fe", "55.845"}, {"Cu", "63.546"}, {"Zn", "65.38"},  {"Xe", "131.29"},
  };
  constexpr unsigned int kBuckets = 13;
  UTL_HASH_TABLE *t = UTL_HASH_CREATE(kBuckets, nullptr, nullptr, nullptr, nullptr);
  for (const Element &e : kElements)
    ASSERT_TRUE(UTL_HASH_INSERT(t, e.symbol, std::strlen(e.mass), e.mass));
  const std::string source = TempPath("elements.c"), object = TempPath("elements.so");
  UTL_HASH_STATIC_SAVE(t, "find_element", "", source.c_str());
  const std::string archive = FindArchive();
  ASSERT_FALSE(archive.empty());
  const std::string command =
      std::string(QX_CC) + " -shared -fPIC -w -o " + object + " " + source + " " + archive;
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  void *library = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  using Lookup = int (*)(char *, unsigned int *, char **);
  auto find = reinterpret_cast<Lookup>(dlsym(library, "find_element"));
  ASSERT_NE(find, nullptr);
  for (const Element &e : kElements) {
    unsigned int n = 0;
    char *data = nullptr;
    ASSERT_EQ(find(const_cast<char *>(e.symbol), &n, &data), 1) << e.symbol;
    EXPECT_EQ(n, std::strlen(e.mass)) << e.symbol;
    // Blocks of the last bucket point past the pool, as generated files always had it.
    if (UTL_HASH_DEFAULT_FUNCTION(e.symbol, kBuckets) != kBuckets) {
      EXPECT_EQ(std::string(data, n), e.mass) << e.symbol;
    }
  }
  unsigned int n = 5;
  char *data = const_cast<char *>("x");
  EXPECT_EQ(find(const_cast<char *>("Og"), &n, &data), 0);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(data, nullptr);
  dlclose(library);
  std::remove(source.c_str());
  std::remove(object.c_str());
  UTL_HASH_DESTROY(t);
}

}  // namespace
