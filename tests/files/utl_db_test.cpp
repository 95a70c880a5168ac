// Keyed store: file images checked byte for byte against hand-computed
// layouts, the open modes and the lock mark, keys and names, data capacities,
// and round trips through a small cache that must evict.
#include "utl_db.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "db_test_files.h"
#include "files/db_cache.h"
#include "qx_test.h"
#include "utl_error.h"

namespace {

using namespace dbtest;

class DbTest : public ScratchDir {
 protected:
  UtlDb *OpenNew(const char *mode = "u", int chunk = 0) {
    EXPECT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
    return UTL_DB_OPEN(Path().c_str(), mode, chunk);
  }
};

std::string LE(uint32_t v) {
  const char b[4] = {static_cast<char>(v), static_cast<char>(v >> 8), static_cast<char>(v >> 16),
                     static_cast<char>(v >> 24)};
  return std::string(b, 4);
}

TEST_F(DbTest, DefaultStoreIsByteExact) {
  ASSERT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
  const auto Zeros = [](std::size_t n) { return std::string(n, '\0'); };
  // Header, 129 free-list heads, the key segment's block (record {8200, 0},
  // {next 0, count 512}, 512 free entries), the bucket table's block.
  std::string want = "ZELK" + Zeros(8) + "Gorps the Grumbler" + Zeros(62);
  for (uint32_t w : {8, 1024, 1, 156, 0, 8192, 4096, 683, 8894, 683, 512, 512, 512, 512, 0, 0})
    want += LE(w);
  want += Zeros(516) + LE(8200) + Zeros(7) + LE(0) + LE(512);
  for (uint32_t k = 0; k < 512; ++k)
    want += LE((k + 1) | kBit31) + LE(0) + LE(kBit31) + LE(0);
  want += LE(2048) + Zeros(7);
  for (int k = 0; k < 512; ++k)
    want += LE(kBit31);
  const Bytes b = Slurp(Path());
  ASSERT_EQ(b.size(), want.size());
  const std::string got = Text(b, 0, b.size());
  EXPECT_TRUE(got == want) << "first difference at "
                           << std::mismatch(got.begin(), got.end(), want.begin()).first -
                                  got.begin();
}

// Creation arguments (keys, increment, buckets, selector, granularity, limit,
// chunk, extension); the header words from offset 92 on (granularity, limit,
// selector, heads, large head, chunk, extension, first segment, table, last
// segment, keys, free keys, increment, buckets, first free key); the file size
// (0: refused, no file); the title length (at most 80 bytes are kept).
TEST_F(DbTest, CreationArgumentsShapeTheLayout) {
  const struct {
    int args[8];
    uint32_t header[15];
    std::size_t size, title_length;
  } rows[] = {
      // clang-format off
      // 8 heads: 156 + 32 = 188; segment 11 + 168; table 11 + 28.
      {{10, 20, 7, 2, 16, 100, 1024, 64},
       {16, 112, 2, 156, 0, 1024, 64, 199, 378, 199, 10, 10, 20, 7, 0}, 406, 0},
      {{1, 0, 1, 3, 1, 1, 0, 0}, {1, 1, 3, 156, 0, 8192, 4096, 175, 210, 175, 1, 1, 512, 1, 0}, 214, 79},
      // The limit 1024 rounds up to 1030: 104 heads.
      {{0, 0, 0, 0, 10, 0, 0, 0},
       {10, 1030, 1, 156, 0, 8192, 4096, 583, 8794, 583, 512, 512, 512, 512, 0}, 10842, 80},
      {{0, 0, 0, 0, 8, 1020, 0, 0},
       {8, 1024, 1, 156, 0, 8192, 4096, 683, 8894, 683, 512, 512, 512, 512, 0}, 10942, 100},
      {{0, 0, 0, 0, 16, 8, 0, 0}, {}, 0, 0}, {{0, 0, 0, 4, 0, 0, 0, 0}, {}, 0, 0},
      {{0, 0, 0, -1, 0, 0, 0, 0}, {}, 0, 0}, {{-1, 0, 0, 0, 0, 0, 0, 0}, {}, 0, 0},
      {{0, 0, 0, 0, 0, 0, 1 << 27, 0}, {}, 0, 0}, {{0, 0, 0, 0, -8, 0, 0, 0}, {}, 0, 0},
      // clang-format on
  };
  for (const auto &r : rows) {
    const std::string path = Path(std::to_string(&r - rows));
    std::string title(r.title_length, 't');
    const int *a = r.args;
    ASSERT_EQ(
        UTL_DB_XCREATE(path.c_str(), a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], title.c_str()),
        r.size != 0);
    const Bytes b = Slurp(path);
    ASSERT_EQ(b.size(), r.size);
    if (b.empty()) continue;
    for (uint32_t i = 0; i < 15; ++i)
      EXPECT_EQ(Word(b, 92 + 4 * i), r.header[i]) << r.size << " @" << 92 + 4 * i;
    // The records of the segment's and the table's blocks, the last bucket.
    ExpectWords(b,
                {{r.header[7] - 11, 16 * r.header[10] + 8},
                 {r.header[8] - 11, 4 * r.header[13]},
                 {r.header[8] + 4 * (r.header[13] - 1), kBit31}},
                r.size);
    title.resize(80);
    EXPECT_EQ(Text(b, 12, 80), title) << r.title_length;
  }
  Spill(Path(), Bytes{'k', 'e', 'e', 'p'});  // an existing path is left alone
  EXPECT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 0);
  EXPECT_EQ(Slurp(Path()), (Bytes{'k', 'e', 'e', 'p'}));
}

// Every letter on a default store, on a missing file, and on a store left
// locked. Writers hold the lock mark while open and store their chunk size
// (64 here) at close; nothing else of an untouched store changes.
TEST_F(DbTest, ModeLettersAndTheLockMark) {
  ASSERT_EQ(UTL_DB_CREATE(Path("default").c_str(), 0, 0, 0), 1);
  const Bytes fresh = Slurp(Path("default"));
  const struct {
    const char *mode;
    bool exists;
    const char *mark_while_open;  // null: the open fails and leaves the file alone
  } rows[] = {{"r", true, "ZELK"},  {"R", true, "ZELK"},   {"u", true, "ZELQ"},
              {"U", true, "ZELQ"},  {"c", true, "ZELQ"},   {"C", true, "ZELQ"},
              {"w", true, "ZELQ"},  {"W", true, "ZELQ"},   {"c", false, "ZELQ"},
              {"W", false, "ZELQ"}, {"r", false, nullptr}, {"u", false, nullptr},
              {"x", true, nullptr}, {"", true, nullptr},   {nullptr, true, nullptr}};
  for (const auto &r : rows) {
    const std::string label = r.mode != nullptr ? r.mode : "(null)";
    std::filesystem::remove(Path());
    if (r.exists) Spill(Path(), fresh);
    const Bytes before = Slurp(Path());
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), r.mode, 64);
    ASSERT_EQ(db != nullptr, r.mark_while_open != nullptr) << label;
    if (db == nullptr) {
      EXPECT_EQ(Slurp(Path()), before) << label;
      continue;
    }
    const bool writer = r.mark_while_open[3] == 'Q';
    EXPECT_EQ(Text(Slurp(Path()), 0, 4), r.mark_while_open) << label;
    UtlDb *second = UTL_DB_OPEN(Path().c_str(), "r", 0);
    EXPECT_EQ(second == nullptr, writer) << label;
    UTL_DB_CLOSE(second);
    EXPECT_EQ(UTL_DB_FLUSH(db), 1) << label;
    EXPECT_EQ(UTL_DB_CLOSE(db), 1) << label;
    EXPECT_EQ(UTL_DB_UNLOCK(Path().c_str()), 1) << label;  // nothing to do
    Bytes want = fresh;
    SetWord(want, kChunk, writer ? 64 : 8192);
    EXPECT_EQ(Slurp(Path()), want) << label;
    std::memcpy(want.data(), "ZELQ", 4);  // a writer that never closed
    Spill(Path(), want);
    EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), r.mode, 0), nullptr) << label;
    EXPECT_EQ(UTL_DB_UNLOCK(Path().c_str()), 1) << label;
    std::memcpy(want.data(), "ZELK", 4);
    EXPECT_EQ(Slurp(Path()), want) << label;
  }
  // Unlocking refuses another mark, a file shorter than a header, no file.
  Bytes odd = fresh;
  std::memcpy(odd.data(), "ZELX", 4);
  Spill(Path("odd"), odd);
  std::memcpy(odd.data(), "ZELQ", 4);
  Spill(Path("short"), Bytes(odd.begin(), odd.begin() + 155));
  for (const char *name : {"odd", "short", "missing"})
    EXPECT_EQ(UTL_DB_UNLOCK(Path(name).c_str()), 0) << name;
  EXPECT_EQ(Text(Slurp(Path("odd")), 0, 4), "ZELX");
  EXPECT_EQ(UTL_DB_FLUSH(nullptr), 0);
  EXPECT_EQ(UTL_DB_CLOSE(nullptr), 0);
  EXPECT_EQ(UTL_DB_FILE(nullptr), -1);
}

TEST_F(DbTest, CreateModeRefusesAFileWithoutRights) {
  if (geteuid() == 0) GTEST_SKIP() << "root ignores permissions";
  ASSERT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
  chmod(Path().c_str(), 0444);
  EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), "c", 0), nullptr);
  UtlDb *db = UTL_DB_OPEN(Path().c_str(), "r", 0);
  ASSERT_NE(db, nullptr);  // reading needs no write right
  EXPECT_EQ(UTL_DB_CLOSE(db), 1);
}

// Every address below follows from the default layout: growth adds 4096 bytes
// at 10942, whose block is split for each small request. The header reaches
// the file at the flush; closing then changes only the mark.
TEST_F(DbTest, WritesLandWhereTheHeapRulesPutThem) {
  UtlDb *db = OpenNew("u", 100);
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(db->cache->chunk_count, 110u);  // 10942 bytes in chunks of 100
  EXPECT_EQ(db->cache->last_size, 42u);
  const std::string a(20, 'A'), b(30, 'B'), c(10, 'C');
  ASSERT_EQ(UTL_DB_GENKEY(db, "water"), 0);
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 20, a.data()), 1);  // 24 bytes split off at 10961
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 30, b.data()), 1);  // 32 bytes at 10996; 10961 to class 3
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 10, c.data()), 1);  // in place
  char buffer[100];
  int delivered = -1;
  ASSERT_EQ(UTL_DB_READ(db, 0, sizeof buffer, buffer, &delivered), 1);
  EXPECT_EQ(delivered, 32);
  EXPECT_EQ(std::string(buffer, 30), c + b.substr(10));
  ASSERT_EQ(UTL_DB_GENKEY(db, "ice"), 1);
  ASSERT_EQ(UTL_DB_WRITE(db, 1, 20, a.data()), 1);  // class 3 hands 10961 back
  EXPECT_EQ(Word(Slurp(Path()), kFirstFree), 0u);
  ASSERT_EQ(UTL_DB_FLUSH(db), 1);

  Bytes f = Slurp(Path());
  ASSERT_EQ(f.size(), 15038u);
  EXPECT_EQ(Text(f, 0, 4), "ZELQ");
  // clang-format off
  ExpectWords(f, {
      {kChunk, 100}, {kCachePointer, 0}, {kLargeHead, 11058}, {kFirstFree, 2}, {kFree, 510},
      {kTotal, 512}, {156, 0}, {164, 0}, {168, 0}, {10942, 8}, {10946, 0}, {10961, 24},
      {10965, 0}, {10996, 32}, {11000, 0}, {11039, 8}, {11058, 3969}, {11062, 0},
      {EntryAt(0), 0}, {EntryAt(0) + 4, 10953}, {EntryAt(0) + 8, kBit31},
      {EntryAt(0) + 12, 11007}, {EntryAt(1), 1}, {EntryAt(1) + 4, 11050},
      {EntryAt(1) + 8, kBit31}, {EntryAt(1) + 12, 10972}, {EntryAt(2), 3 | kBit31},
      {kTable + 4 * 324, 0}, {kTable + 4 * 205, 1}, {kTable + 4 * 323, kBit31}
  });
  // clang-format on
  EXPECT_EQ(Text(f, 10953, 6), "\5water");
  EXPECT_EQ(Text(f, 11050, 4), "\3ice");
  EXPECT_EQ(Text(f, 11007, 30), c + b.substr(10));
  EXPECT_EQ(Text(f, 10972, 20), a);
  const int fd = UTL_DB_FILE(db);
  EXPECT_NE(fcntl(fd, F_GETFD), -1);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);  // closed with the store
  std::memcpy(f.data(), "ZELK", 4);
  EXPECT_EQ(Slurp(Path()), f);
}

// Rows with an extension of 1061 or 1062 leave a surplus of 18 (< 11 + 8:
// handed out whole) or 19 (split); one of 100 makes the heap grow by s + 12.
TEST_F(DbTest, ReadDeliversTheBlockCapacity) {
  const struct {
    int extension, length, capacity;
    std::size_t file_size;
  } rows[] = {{0, 1, 8, 15038},          {0, 8, 8, 15038},        {0, 9, 16, 15038},
              {0, 1024, 1024, 15038},    {0, 1025, 1032, 15038},  {1061, 1025, 1050, 12003},
              {1062, 1025, 1032, 12004}, {100, 5000, 5001, 15954}};
  for (const auto &r : rows) {
    const std::string path = Path(std::to_string(r.extension + r.length));
    ASSERT_EQ(UTL_DB_XCREATE(path.c_str(), 0, 0, 0, 0, 0, 0, 0, r.extension, nullptr), 1);
    UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 0);
    ASSERT_EQ(Do(db, {'w', 0, r.length}), 1);
    EXPECT_EQ(Do(db, {'r', 0, 8000}), 10000 + r.capacity) << r.length;
    EXPECT_EQ(Do(db, {'r', 0, 3}), 10003) << r.length;  // no more than the buffer
    ASSERT_EQ(UTL_DB_CLOSE(db), 1);
    EXPECT_EQ(Slurp(path).size(), r.file_size) << r.length;
  }
}

// A block of exactly the limit (1024) belongs to the last small class, whose
// head is at 156 + 4 x 127 = 664, both when freed and when handed out again.
TEST_F(DbTest, BlocksOfTheLimitUseTheLastSmallClass) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  for (const Call &c : {Call{'g'}, {'g'}, {'w', 0, 1024}, {'w', 0, 1025}})  // 10942, then 11977
    ASSERT_GE(Do(db, c), 0);
  ASSERT_EQ(UTL_DB_FLUSH(db), 1);
  ExpectWords(Slurp(Path()), {{664, 10942}, {10942, 1024}, {10946, 0}, {kLargeHead, 13020}});
  ASSERT_EQ(Do(db, {'w', 1, 1017}), 1);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  ExpectWords(Slurp(Path()), {{664, 0}, {EntryAt(1) + 12, 10953}, {kLargeHead, 13020}});
}

TEST_F(DbTest, KeyListGrowsBySegments) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  for (int k = 0; k < 512; ++k)
    ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), k);
  EXPECT_EQ(UTL_DB_FIND(db, 512, nullptr), -1);
  ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 512);
  EXPECT_EQ(UTL_DB_FIND(db, 512, nullptr), 512);
  EXPECT_EQ(UTL_DB_FIND(db, 1023, nullptr), -1);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  // The segment needs 8200 bytes: the file grows by 8212, handed out whole.
  const Bytes b = Slurp(Path());
  ASSERT_EQ(b.size(), 19154u);
  // clang-format off
  ExpectWords(b, {
      {kTotal, 1024}, {kFree, 511}, {kFirstFree, 513}, {kLastSegment, 10953},
      {kFirstSegment, 683}, {kLargeHead, 0}, {683, 10953}, {10942, 8201}, {10946, 0}, {10953, 0},
      {10957, 512}, {10961, 512}, {10965, 0}, {10969, kBit31}, {10977, 514 | kBit31},
      {10953 + 8 + 16 * 511, 1024 | kBit31}
  });
  // clang-format on
}

// Bucket numbers worked out by hand from the three name hashes (512 buckets).
TEST_F(DbTest, NameHashesPickTheBucket) {
  const struct {
    int selector;
    const char *name;
    uint32_t bucket;
  } rows[] = {{1, "water", 324}, {2, "water", 280}, {3, "water", 238}, {1, "ice", 205},
              {1, "a", 289},     {2, "a", 289},     {3, "a", 0},       {0, "H2O", 380}};
  for (const auto &r : rows) {
    const std::string path = Path(std::to_string(r.selector) + r.name);
    ASSERT_EQ(UTL_DB_XCREATE(path.c_str(), 0, 0, 0, r.selector, 0, 0, 0, 0, nullptr), 1);
    UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
    ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 0);
    ASSERT_EQ(UTL_DB_GENKEY(db, r.name), 1);
    EXPECT_EQ(UTL_DB_FIND(db, -1, r.name), 1);
    ASSERT_EQ(UTL_DB_CLOSE(db), 1);
    EXPECT_EQ(Word(Slurp(path), kTable + 4 * r.bucket), 1u) << path;
  }
}

// Keys 0 to 3 named H2O, H2O, NaCl, H2O; key 1 gets a record (block 11018)
// and is deleted, then key 3.
TEST_F(DbTest, EqualNamesChainNewestFirst) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  // A key >= 0 only asks whether that key is in use, whatever the name.
  const struct {
    char fn;
    int key, len;
    const char *name;
    int want;
  } steps[] = {{'g', 0, 0, "H2O", 0},      {'g', 0, 0, "H2O", 1},      {'g', 0, 0, "NaCl", 2},
               {'g', 0, 0, "H2O", 3},      {'f', -1, 0, "H2O", 3},     {'n', 3, 0, "H2O", 1},
               {'n', 1, 0, "H2O", 0},      {'n', 0, 0, "H2O", -1},     {'n', 2, 0, "H2O", -1},
               {'f', -1, 0, "NaCl", 2},    {'n', 2, 0, "NaCl", -1},    {'f', -1, 0, "h2o", -1},
               {'f', -1, 0, "H2", -1},     {'f', -1, 0, "", -1},       {'f', -1, 0, nullptr, -1},
               {'n', 600, 0, "H2O", -1},   {'f', 2, 0, "whatever", 2}, {'f', 4, 0, nullptr, -1},
               {'f', 512, 0, nullptr, -1}, {'w', 1, 20, nullptr, 1},   {'d', 1, 0, nullptr, 1},
               {'n', 3, 0, "H2O", 0},      {'d', 3, 0, nullptr, 1},    {'f', -1, 0, "H2O", 0},
               {'f', 3, 0, nullptr, -1},   {'d', 3, 0, nullptr, 0},    {'d', -1, 0, nullptr, 0},
               {'d', 512, 0, nullptr, 0}};
  int step = 0;
  for (const auto &s : steps)
    EXPECT_EQ(Do(db, {s.fn, s.key, s.len, s.name}), s.want) << "step " << step++;
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  // Name blocks of 8 bytes at 10942, 10961, 10980, 10999: class 1 now holds
  // those of keys 3 and 1, class 3 the data block of key 1.
  const Bytes b = Slurp(Path());
  // clang-format off
  ExpectWords(b, {
      {kFirstFree, 3}, {kFree, 510}, {EntryAt(3), 1 | kBit31}, {EntryAt(3) + 4, 0},
      {EntryAt(3) + 8, kBit31}, {EntryAt(1), 4 | kBit31}, {EntryAt(1) + 4, 0},
      {EntryAt(1) + 12, 0}, {EntryAt(0) + 8, kBit31}, {kTable + 4 * 380, 0},
      {kTable + 4 * 452, 2}, {156, 10999}, {10999, 8}, {11003, 10961}, {164, 11018},
      {11018, 24}, {11022, 0}, {kLargeHead, 11053}, {11053, 3974}
  });
  // clang-format on
  db = UTL_DB_OPEN(Path().c_str(), "u", 0);
  ASSERT_NE(db, nullptr);
  for (int key : {3, 1, 4})  // freed keys come back, the latest first
    EXPECT_EQ(UTL_DB_GENKEY(db, nullptr), key);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
}

TEST_F(DbTest, InfoReportsNameAndCapacity) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  const std::string long_name(255, 'n');
  const char *longest = long_name.c_str();
  ASSERT_EQ(UTL_DB_GENKEY(db, "benzene"), 0);
  ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 1);
  ASSERT_EQ(UTL_DB_GENKEY(db, longest), 2);
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 13, "carbon rings!"), 1);
  const struct {
    int key, name_size, want;
    const char *name;  // null: the buffer is left alone
    int size;
  } rows[] = {{0, 256, 1, "benzene", 16}, {0, 8, 1, "benzene", 16},  {0, 0, 1, nullptr, 16},
              {1, 256, 1, "", 0},         {1, 1, 1, "", 0},          {2, 256, 1, longest, 0},
              {3, 256, 0, nullptr, -7},   {-1, 256, 0, nullptr, -7}, {512, 256, 0, nullptr, -7}};
  for (const auto &r : rows) {
    char name[256] = "untouched";
    int size = -7;
    EXPECT_EQ(UTL_DB_INFO(db, r.key, r.name_size, name, &size), r.want) << r.key;
    EXPECT_STREQ(name, r.name ? r.name : "untouched") << r.key;
    EXPECT_EQ(size, r.size) << r.key;
  }
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
}

// Chunks of 64 bytes make every pass over the store evict; records of 1 to
// 300 bytes, every other key named, must survive eviction, close and reopening
// with other chunk sizes. Capacities are the length rounded to 4, or a little
// more for a block handed out whole.
TEST_F(DbTest, ManyRecordsSurviveEvictionAndReopen) {
  ASSERT_EQ(UTL_DB_XCREATE(Path().c_str(), 16, 16, 13, 2, 4, 64, 64, 256, "eviction"), 1);
  auto record = [](int k) {
    std::string s(static_cast<std::size_t>((k * 37) % 300 + 1), '\0');
    for (std::size_t i = 0; i < s.size(); ++i)
      s[i] = static_cast<char>(k * 7 + i);
    return s;
  };
  auto name = [](int k) { return "mol" + std::to_string(k); };
  for (int chunk : {-1, 0, 1000, 4096, 1 << 20}) {  // -1: the writing pass
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), chunk < 0 ? "u" : "r", std::max(chunk, 0));
    ASSERT_NE(db, nullptr);
    for (int i = 0; i < 700; ++i) {
      const int k = chunk < 0 ? i : 699 - i;  // written in order, read back in reverse
      const std::string s = record(k);
      if (chunk < 0) {
        ASSERT_EQ(UTL_DB_GENKEY(db, k % 2 ? name(k).c_str() : nullptr), k);
        ASSERT_EQ(UTL_DB_WRITE(db, k, static_cast<int>(s.size()), s.data()), 1);
      } else {
        std::string buffer(400, '\0');
        int delivered = 0;
        ASSERT_EQ(UTL_DB_READ(db, k, 400, buffer.data(), &delivered), 1);
        const int rounded = static_cast<int>((s.size() + 3) / 4 * 4);
        ASSERT_GE(delivered, rounded) << k;
        ASSERT_LT(delivered, rounded + 11 + 4) << k;
        ASSERT_EQ(buffer.substr(0, s.size()), s) << k << " chunk " << chunk;
        ASSERT_EQ(UTL_DB_FIND(db, -1, name(k).c_str()), k % 2 ? k : -1);
      }
      ASSERT_LE(db->cache->loaded, 50);
    }
    EXPECT_GT(db->cache->chunk_count, chunk < 0 ? 1000u : 0u);
    EXPECT_EQ(UTL_DB_CLOSE(db), 1);
  }
}

// Allocation failures at every step of a session: each call either succeeds
// or fails as documented, and nothing leaks (checked by the sanitizer run).
TEST_F(DbTest, AllocationFailuresAreSurvived) {
  ASSERT_EQ(UTL_DB_XCREATE(Path().c_str(), 4, 4, 0, 0, 0, 0, 1024, 0, nullptr), 1);
  auto failed_for_memory = [](bool ok) {
    EXPECT_TRUE(ok || qxtest::TopIdentity() == "UTL/MEM/FATAL/NO_MEMORY") << qxtest::TopIdentity();
    UTL_ERROR_CLEAR();
  };
  for (unsigned long n = 1; n < 400; ++n) {
    qxtest::CaptureStream quiet(stderr);
    const unsigned long injected = qx::heap::InjectedFailures();
    qxtest::FailAllocation guard(n);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
    if (db == nullptr) {
      failed_for_memory(false);
      EXPECT_EQ(Slurp(Path())[3], 'K');  // a failed open leaves no lock mark
      continue;
    }
    for (int i = 0; i < 6; ++i) {
      const int key = UTL_DB_GENKEY(db, i % 2 ? "named" : nullptr);
      failed_for_memory(key >= 0);
      if (key >= 0) failed_for_memory(UTL_DB_WRITE(db, key, 3, "abc"));
    }
    const bool clean = qx::heap::InjectedFailures() == injected;
    failed_for_memory(UTL_DB_CLOSE(db));
    if (clean) return;
  }
  FAIL() << "the session never ran without an injected failure";
}

}  // namespace
