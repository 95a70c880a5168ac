// Keyed store: file images checked byte for byte against hand-computed
// layouts, the open modes and the lock mark, keys and names, data capacities,
// and round trips through a small cache that must evict.
#include "utl_db.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "db_test_files.h"
#include "files/db_cache.h"
#include "files/db_format.h"
#include "qx_test.h"
#include "utl_error.h"

namespace {

using namespace dbtest;

class DbTest : public ScratchDir {
 protected:
  UtlDb *OpenNew(const char *mode = "u") {
    EXPECT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
    return UTL_DB_OPEN(Path().c_str(), mode, 0);
  }
};

TEST_F(DbTest, DefaultStoreIsByteExact) {
  ASSERT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
  const Bytes b = Slurp(Path());
  ASSERT_EQ(b.size(), kDefaultSize);
  EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "ZELK");
  // clang-format off
  ExpectWords(b, {
      {4, 0}, {8, 0}, {kGranularity, 8}, {kLimit, 1024}, {kSelector, 1}, {kHeads, 156},
      {kLargeHead, 0}, {kChunk, 8192}, {kExtension, 4096}, {kFirstSegment, 683},
      {kHashTable, 8894}, {kLastSegment, 683}, {kTotal, 512}, {kFree, 512}, {kIncrement, 512},
      {kBuckets, 512}, {kFirstFree, 0}, {kCachePointer, 0}, {672, 8200}, {676, 0}, {683, 0},
      {687, 512}, {8883, 2048}, {8887, 0}
  });
  // clang-format on
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[12])), "Gorps the Grumbler");
  for (std::size_t i = 12 + 18; i < 92; ++i)
    EXPECT_EQ(b[i], 0) << i;
  for (std::size_t i = 156; i < 672; ++i)
    EXPECT_EQ(b[i], 0) << i;
  for (std::size_t i : {680, 681, 682, 8891, 8892, 8893})
    EXPECT_EQ(b[i], 0) << i;
  for (uint32_t k = 0; k < 512; ++k) {
    EXPECT_EQ(Word(b, EntryAt(k)), (k + 1) | kBit31);
    EXPECT_EQ(Word(b, EntryAt(k) + 4), 0u);
    EXPECT_EQ(Word(b, EntryAt(k) + 8), kBit31);
    EXPECT_EQ(Word(b, EntryAt(k) + 12), 0u);
    EXPECT_EQ(Word(b, kTable + 4 * k), kBit31);
  }
}

TEST_F(DbTest, CreationParametersShapeTheLayout) {
  const struct {
    int keys, increment, buckets, selector, g, limit, chunk, extension;
    uint32_t want_g, want_limit, want_selector, want_chunk, want_extension, want_increment;
    uint32_t want_buckets, first_segment, hash_table, size;
  } rows[] = {
      // 8 heads: 156 + 32 = 188; segment 11 + 168; table 11 + 28.
      {10, 20, 7, 2, 16, 100, 1024, 64, 16, 112, 2, 1024, 64, 20, 7, 199, 378, 406},
      {1, 0, 1, 3, 1, 1, 0, 0, 1, 1, 3, 8192, 4096, 512, 1, 175, 210, 214},
      // limit 1024 rounds up to 1030: 104 heads.
      {0, 0, 0, 0, 10, 0, 0, 0, 10, 1030, 1, 8192, 4096, 512, 512, 583, 8794, 10842},
      {0, 0, 0, 0, 8, 1020, 0, 0, 8, 1024, 1, 8192, 4096, 512, 512, 683, 8894, 10942},
  };
  for (const auto &r : rows) {
    const std::string path = Path(std::to_string(r.size).c_str());
    ASSERT_EQ(UTL_DB_XCREATE(path.c_str(), r.keys, r.increment, r.buckets, r.selector, r.g, r.limit,
                             r.chunk, r.extension, "t"),
              1);
    const Bytes b = Slurp(path);
    ASSERT_EQ(b.size(), r.size);
    const uint32_t keys = r.keys != 0 ? r.keys : 512;
    // clang-format off
    ExpectWords(b, {
        {kGranularity, r.want_g}, {kLimit, r.want_limit}, {kSelector, r.want_selector},
        {kChunk, r.want_chunk}, {kExtension, r.want_extension}, {kIncrement, r.want_increment},
        {kBuckets, r.want_buckets}, {kFirstSegment, r.first_segment},
        {kLastSegment, r.first_segment}, {kHashTable, r.hash_table}, {kTotal, keys},
        {kFree, keys}, {r.first_segment - 11, 16 * keys + 8},
        {r.hash_table - 11, 4 * r.want_buckets},
        {r.hash_table + 4 * (r.want_buckets - 1), kBit31}
    }, r.size);
    // clang-format on
  }
}

TEST_F(DbTest, CreationRefusals) {
  const struct {
    int keys, selector, g, limit, chunk;
  } rows[] = {{0, 0, 16, 8, 0}, {0, 4, 0, 0, 0},       {0, -1, 0, 0, 0},
              {-1, 0, 0, 0, 0}, {0, 0, 0, 0, 1 << 27}, {0, 0, -8, 0, 0}};
  for (const auto &r : rows) {
    EXPECT_EQ(
        UTL_DB_XCREATE(Path().c_str(), r.keys, 0, 0, r.selector, r.g, r.limit, r.chunk, 0, nullptr),
        0);
    EXPECT_FALSE(std::filesystem::exists(Path()));
  }
  Spill(Path(), Bytes{'k', 'e', 'e', 'p'});
  EXPECT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 0);
  EXPECT_EQ(Slurp(Path()), (Bytes{'k', 'e', 'e', 'p'}));
}

TEST_F(DbTest, TitleIsCutAtEightyBytes) {
  const std::string digits = "0123456789";
  std::string hundred;
  for (int i = 0; i < 10; ++i)
    hundred += digits;
  const struct {
    std::string title;
    std::size_t kept;  // bytes of the title in the field; the rest are 0
  } rows[] = {{"", 0}, {std::string(79, 'x'), 79}, {std::string(80, 'y'), 80}, {hundred, 80}};
  int n = 0;
  for (const auto &r : rows) {
    const std::string path = Path(std::to_string(n++).c_str());
    ASSERT_EQ(UTL_DB_XCREATE(path.c_str(), 0, 0, 0, 0, 0, 0, 0, 0, r.title.c_str()), 1);
    const Bytes b = Slurp(path);
    for (std::size_t i = 0; i < 80; ++i)
      EXPECT_EQ(b[12 + i], i < r.kept ? static_cast<unsigned char>(r.title[i]) : 0) << i;
    EXPECT_EQ(Word(b, kGranularity), 8u);
  }
}

TEST_F(DbTest, ModeLetters) {
  const struct {
    const char *mode;
    bool exists;
    bool opens;
    const char *mark_while_open;
  } rows[] = {
      {"r", true, true, "ZELK"},  {"R", true, true, "ZELK"}, {"u", true, true, "ZELQ"},
      {"U", true, true, "ZELQ"},  {"c", true, true, "ZELQ"}, {"C", true, true, "ZELQ"},
      {"w", true, true, "ZELQ"},  {"W", true, true, "ZELQ"}, {"c", false, true, "ZELQ"},
      {"W", false, true, "ZELQ"}, {"r", false, false, ""},   {"u", false, false, ""},
      {"x", true, false, "ZELK"}, {"", true, false, "ZELK"}, {nullptr, true, false, "ZELK"}};
  for (const auto &r : rows) {
    std::filesystem::remove(Path());
    if (r.exists) {
      ASSERT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
    }
    const Bytes before = Slurp(Path());
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), r.mode, 0);
    const std::string label = r.mode != nullptr ? r.mode : "(null)";
    ASSERT_EQ(db != nullptr, r.opens) << label;
    if (!r.opens) {
      EXPECT_EQ(Slurp(Path()), before) << label;
      continue;
    }
    Bytes open_image = Slurp(Path());
    ASSERT_EQ(open_image.size(), kDefaultSize) << label;
    EXPECT_EQ(std::string(open_image.begin(), open_image.begin() + 4), r.mark_while_open) << label;
    EXPECT_EQ(UTL_DB_CLOSE(db), 1);
    const Bytes after = Slurp(Path());
    EXPECT_EQ(std::string(after.begin(), after.begin() + 4), "ZELK") << label;
  }
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

TEST_F(DbTest, LockMarkAndUnlock) {
  UtlDb *db = OpenNew("u");
  ASSERT_NE(db, nullptr);
  for (const char *mode : {"r", "u", "c", "w"})
    EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), mode, 0), nullptr);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(UTL_DB_UNLOCK(Path().c_str()), 1);  // already closed: nothing to do
  Bytes image = Slurp(Path());
  const Bytes closed = image;
  std::memcpy(image.data(), "ZELQ", 4);  // a writer that never closed
  Spill(Path(), image);
  for (const char *mode : {"r", "R", "u", "U", "c", "w"})
    EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), mode, 0), nullptr) << mode;
  EXPECT_EQ(UTL_DB_UNLOCK(Path().c_str()), 1);
  EXPECT_EQ(Slurp(Path()), closed);
  db = UTL_DB_OPEN(Path().c_str(), "r", 0);
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(UTL_DB_CLOSE(db), 1);

  std::memcpy(image.data(), "ZELX", 4);
  Spill(Path(), image);
  EXPECT_EQ(UTL_DB_UNLOCK(Path().c_str()), 0);
  Spill(Path(), Bytes(100, 'Z'));
  EXPECT_EQ(UTL_DB_UNLOCK(Path().c_str()), 0);
  EXPECT_EQ(UTL_DB_UNLOCK(Path("missing").c_str()), 0);
}

TEST_F(DbTest, ChunkSizeArgumentReachesTheFileAtClose) {
  UtlDb *db = OpenNew("u");
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  db = UTL_DB_OPEN(Path().c_str(), "u", 100);
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(Word(Slurp(Path()), kChunk), 8192u);  // the lock write keeps the stored one
  EXPECT_EQ(db->cache->chunk_size, 100u);
  EXPECT_EQ(db->cache->chunk_count, 110u);  // 10942 bytes in chunks of 100
  EXPECT_EQ(db->cache->last_size, 42u);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(Word(Slurp(Path()), kChunk), 100u);
  db = UTL_DB_OPEN(Path().c_str(), "r", 64);
  ASSERT_NE(db, nullptr);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(Word(Slurp(Path()), kChunk), 100u);
}

// Every address below follows from the default layout: growth adds 4096 bytes
// at 10942, whose block is split for each small request.
TEST_F(DbTest, WritesLandWhereTheHeapRulesPutThem) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  char data20[20], data30[30], data10[10];
  std::memset(data20, 'A', sizeof data20);
  std::memset(data30, 'B', sizeof data30);
  std::memset(data10, 'C', sizeof data10);
  ASSERT_EQ(UTL_DB_GENKEY(db, "water"), 0);
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 20, data20), 1);  // 24 bytes split off at 10961
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 30, data30), 1);  // 32 bytes at 10996; 10961 to class 3
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 10, data10), 1);  // in place
  char buffer[100];
  int delivered = -1;
  ASSERT_EQ(UTL_DB_READ(db, 0, sizeof buffer, buffer, &delivered), 1);
  EXPECT_EQ(delivered, 32);
  EXPECT_EQ(std::string(buffer, 30), std::string(10, 'C') + std::string(20, 'B'));
  ASSERT_EQ(UTL_DB_GENKEY(db, "ice"), 1);
  ASSERT_EQ(UTL_DB_WRITE(db, 1, 20, data20), 1);  // class 3 hands 10961 back
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);

  const Bytes b = Slurp(Path());
  ASSERT_EQ(b.size(), 15038u);
  // clang-format off
  ExpectWords(b, {
      {kLargeHead, 11058}, {kFirstFree, 2}, {kFree, 510}, {kTotal, 512}, {156, 0}, {164, 0},
      {168, 0}, {10942, 8}, {10946, 0}, {10961, 24}, {10965, 0}, {10996, 32}, {11000, 0},
      {11039, 8}, {11058, 3969}, {11062, 0}, {EntryAt(0), 0}, {EntryAt(0) + 4, 10953},
      {EntryAt(0) + 8, kBit31}, {EntryAt(0) + 12, 11007}, {EntryAt(1), 1},
      {EntryAt(1) + 4, 11050}, {EntryAt(1) + 8, kBit31}, {EntryAt(1) + 12, 10972},
      {EntryAt(2), 3 | kBit31}, {kTable + 4 * 324, 0}, {kTable + 4 * 205, 1},
      {kTable + 4 * 323, kBit31}
  });
  // clang-format on
  EXPECT_EQ(std::string(&b[10953], &b[10959]), "\5water");
  EXPECT_EQ(std::string(&b[11050], &b[11054]), "\3ice");
  EXPECT_EQ(std::string(&b[11007], &b[11037]), std::string(10, 'C') + std::string(20, 'B'));
  EXPECT_EQ(std::string(&b[10972], &b[10992]), std::string(20, 'A'));
}

TEST_F(DbTest, ReadDeliversTheBlockCapacity) {
  const struct {
    int extension, length, capacity;
    std::size_t file_size;
  } rows[] = {{0, 1, 8, 15038},
              {0, 8, 8, 15038},
              {0, 9, 16, 15038},
              {0, 1024, 1024, 15038},
              {0, 1025, 1032, 15038},
              {1061, 1025, 1050, 12003},  // surplus 18 < 11 + 8: handed out whole
              {1062, 1025, 1032, 12004},  // surplus 19: split
              {100, 5000, 5001, 15954}};  // growth by s + 12, handed out whole
  int n = 0;
  for (const auto &r : rows) {
    const std::string path = Path(std::to_string(n++).c_str());
    ASSERT_EQ(UTL_DB_XCREATE(path.c_str(), 0, 0, 0, 0, 0, 0, 0, r.extension, nullptr), 1);
    UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 0);
    const std::string data(r.length, 'q');
    ASSERT_EQ(UTL_DB_WRITE(db, 0, r.length, data.data()), 1);
    std::string buffer(8000, '\0');
    int delivered = -1, size = -1;
    EXPECT_EQ(UTL_DB_READ(db, 0, 8000, buffer.data(), &delivered), 1);
    EXPECT_EQ(delivered, r.capacity) << r.length;
    EXPECT_EQ(buffer.substr(0, r.length), data);
    EXPECT_EQ(UTL_DB_READ(db, 0, 3, buffer.data(), &delivered), 1);
    EXPECT_EQ(delivered, 3);
    EXPECT_EQ(UTL_DB_INFO(db, 0, 0, nullptr, &size), 1);
    EXPECT_EQ(size, r.capacity);
    ASSERT_EQ(UTL_DB_CLOSE(db), 1);
    EXPECT_EQ(Slurp(path).size(), r.file_size) << r.length;
  }
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
  int n = 0;
  for (const auto &r : rows) {
    const std::string path = Path(std::to_string(n++).c_str());
    ASSERT_EQ(UTL_DB_XCREATE(path.c_str(), 0, 0, 0, r.selector, 0, 0, 0, 0, nullptr), 1);
    UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
    ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 0);
    ASSERT_EQ(UTL_DB_GENKEY(db, r.name), 1);
    EXPECT_EQ(UTL_DB_FIND(db, -1, r.name), 1);
    ASSERT_EQ(UTL_DB_CLOSE(db), 1);
    const Bytes b = Slurp(path);
    for (uint32_t i = 0; i < 512; ++i)
      EXPECT_EQ(Word(b, kTable + 4 * i), i == r.bucket ? 1u : kBit31) << r.name << " " << i;
  }
}

TEST_F(DbTest, EqualNamesChainNewestFirst) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  for (const char *name : {"H2O", "H2O", "NaCl", "H2O"})
    ASSERT_GE(UTL_DB_GENKEY(db, name), 0);
  const struct {
    int next_after;  // -1: UTL_DB_FIND with key -1
    const char *name;
    int want;
  } rows[] = {{-1, "H2O", 3}, {3, "H2O", 1},   {1, "H2O", 0},     {0, "H2O", -1},
              {2, "H2O", -1}, {-1, "NaCl", 2}, {2, "NaCl", -1},   {-1, "h2o", -1},
              {-1, "H2", -1}, {-1, "", -1},    {-1, nullptr, -1}, {600, "H2O", -1}};
  for (const auto &r : rows) {
    const int got =
        r.next_after < 0 ? UTL_DB_FIND(db, -1, r.name) : UTL_DB_FIND_NEXT(db, r.next_after, r.name);
    EXPECT_EQ(got, r.want) << r.next_after << " " << (r.name ? r.name : "(null)");
  }
  EXPECT_EQ(UTL_DB_FIND(db, 2, "whatever"), 2);  // a key >= 0 only asks whether it is in use
  EXPECT_EQ(UTL_DB_FIND(db, 4, nullptr), -1);
  EXPECT_EQ(UTL_DB_FIND(db, 512, nullptr), -1);
  ASSERT_EQ(UTL_DB_DELETE(db, 1), 1);
  EXPECT_EQ(UTL_DB_FIND_NEXT(db, 3, "H2O"), 0);
  ASSERT_EQ(UTL_DB_DELETE(db, 3), 1);
  EXPECT_EQ(UTL_DB_FIND(db, -1, "H2O"), 0);
  EXPECT_EQ(UTL_DB_FIND(db, 3, nullptr), -1);
  EXPECT_EQ(UTL_DB_DELETE(db, 3), 0);  // already free
  for (int key : {-1, 512})
    EXPECT_EQ(UTL_DB_DELETE(db, key), 0);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  const Bytes b = Slurp(Path());
  // Class 1 (8-byte blocks) now holds the names of keys 3 and 1: 10999, then 10961.
  // clang-format off
  ExpectWords(b, {
      {kFirstFree, 3}, {kFree, 510}, {EntryAt(3), 1 | kBit31}, {EntryAt(3) + 4, 0},
      {EntryAt(3) + 8, kBit31}, {EntryAt(1), 4 | kBit31}, {EntryAt(1) + 4, 0},
      {EntryAt(0) + 8, kBit31}, {kTable + 4 * 380, 0}, {kTable + 4 * 452, 2}, {156, 10999},
      {10999, 8}, {11003, 10961}
  });
  // clang-format on
}

TEST_F(DbTest, DeletedKeysAndBlocksAreReused) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  const int a = UTL_DB_GENKEY(db, "first");
  const int b = UTL_DB_GENKEY(db, "second");
  ASSERT_EQ(UTL_DB_WRITE(db, a, 100, std::string(100, 'a').data()), 1);
  ASSERT_EQ(UTL_DB_DELETE(db, a), 1);
  EXPECT_EQ(UTL_DB_FIND(db, -1, "first"), -1);
  EXPECT_EQ(UTL_DB_FIND(db, -1, "second"), b);
  EXPECT_EQ(UTL_DB_GENKEY(db, "third"), a);  // the freed key comes back first
  const uint32_t end = static_cast<uint32_t>(qx::db::HeapEnd(db->cache));
  ASSERT_EQ(UTL_DB_WRITE(db, a, 97, std::string(97, 'z').data()), 1);  // the old 104-byte block
  EXPECT_EQ(qx::db::HeapEnd(db->cache), end);
  char name[256];
  int size = 0;
  EXPECT_EQ(UTL_DB_INFO(db, a, sizeof name, name, &size), 1);
  EXPECT_STREQ(name, "third");
  EXPECT_EQ(size, 104);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
}

TEST_F(DbTest, InfoReportsNameAndCapacity) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  const std::string long_name(255, 'n');
  ASSERT_EQ(UTL_DB_GENKEY(db, "benzene"), 0);
  ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 1);
  ASSERT_EQ(UTL_DB_GENKEY(db, long_name.c_str()), 2);
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 13, "carbon rings!"), 1);
  const struct {
    int key, name_size;
    int want;
    const char *name;  // null: the buffer is left alone
    int size;
  } rows[] = {{0, 256, 1, "benzene", 16}, {0, 8, 1, "benzene", 16},  {0, 0, 1, nullptr, 16},
              {1, 256, 1, "", 0},         {1, 1, 1, "", 0},          {2, 256, 1, nullptr, 0},
              {3, 256, 0, nullptr, -7},   {-1, 256, 0, nullptr, -7}, {512, 256, 0, nullptr, -7}};
  for (const auto &r : rows) {
    char name[256] = "untouched";
    int size = -7;
    EXPECT_EQ(UTL_DB_INFO(db, r.key, r.name_size, name, &size), r.want) << r.key;
    if (r.name != nullptr) {
      EXPECT_STREQ(name, r.name) << r.key;
    }
    EXPECT_EQ(size, r.size) << r.key;
  }
  char name[256];
  ASSERT_EQ(UTL_DB_INFO(db, 2, 256, name, nullptr), 1);
  EXPECT_EQ(name, long_name);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
}

TEST_F(DbTest, FlushKeepsTheLockAndWritesTheHeader) {
  UtlDb *db = OpenNew();
  ASSERT_NE(db, nullptr);
  ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 0);
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 5, "hello"), 1);
  EXPECT_EQ(Word(Slurp(Path()), kFirstFree), 0u);
  ASSERT_EQ(UTL_DB_FLUSH(db), 1);
  const Bytes b = Slurp(Path());
  EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "ZELQ");
  EXPECT_EQ(Word(b, kFirstFree), 1u);
  EXPECT_EQ(Word(b, kCachePointer), 0u);
  EXPECT_EQ(std::string(&b[10953], &b[10958]), "hello");
  int fd = UTL_DB_FILE(db);
  EXPECT_NE(fcntl(fd, F_GETFD), -1);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);  // closed with the store
  db = UTL_DB_OPEN(Path().c_str(), "r", 0);
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(UTL_DB_FLUSH(db), 1);
  EXPECT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(UTL_DB_FLUSH(nullptr), 0);
  EXPECT_EQ(UTL_DB_CLOSE(nullptr), 0);
  EXPECT_EQ(UTL_DB_FILE(nullptr), -1);
}

// Chunks of 64 bytes make every pass over the store evict; the data must
// survive eviction, close and reopening with other chunk sizes.
TEST_F(DbTest, ManyRecordsSurviveEvictionAndReopen) {
  ASSERT_EQ(UTL_DB_XCREATE(Path().c_str(), 16, 16, 13, 2, 4, 64, 64, 256, "eviction"), 1);
  constexpr int kKeys = 700;
  auto record = [](int k) {
    std::string s(static_cast<std::size_t>((k * 37) % 300 + 1), '\0');
    for (std::size_t i = 0; i < s.size(); ++i)
      s[i] = static_cast<char>(k * 7 + i);
    return s;
  };
  auto name = [](int k) { return "mol" + std::to_string(k); };
  UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
  ASSERT_NE(db, nullptr);
  int most_loaded = 0;
  for (int k = 0; k < kKeys; ++k) {
    ASSERT_EQ(UTL_DB_GENKEY(db, k % 2 ? name(k).c_str() : nullptr), k);
    const std::string s = record(k);
    ASSERT_EQ(UTL_DB_WRITE(db, k, static_cast<int>(s.size()), s.data()), 1);
    most_loaded = std::max(most_loaded, db->cache->loaded);
  }
  EXPECT_GT(db->cache->chunk_count, 1000u);
  EXPECT_LE(most_loaded, 50);
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  for (int chunk : {0, 1000, 4096, 1 << 20}) {
    db = UTL_DB_OPEN(Path().c_str(), "r", chunk);
    ASSERT_NE(db, nullptr);
    for (int k = kKeys - 1; k >= 0; --k) {
      const std::string s = record(k);
      std::string buffer(400, '\0');
      int delivered = 0;
      ASSERT_EQ(UTL_DB_READ(db, k, 400, buffer.data(), &delivered), 1);
      // Rounded to 4, or a little more when a block was handed out whole.
      const int rounded = static_cast<int>((s.size() + 3) / 4 * 4);
      ASSERT_GE(delivered, rounded) << k;
      ASSERT_LT(delivered, rounded + 11 + 4) << k;
      ASSERT_EQ(buffer.substr(0, s.size()), s) << k << " chunk " << chunk;
      if (k % 2) {
        ASSERT_EQ(UTL_DB_FIND(db, -1, name(k).c_str()), k);
      }
      ASSERT_LE(db->cache->loaded, 50);
    }
    EXPECT_EQ(UTL_DB_CLOSE(db), 1);
  }
}

// Allocation failures at every step of a session: each call either succeeds
// or fails as documented, and nothing leaks (checked by the sanitizer run).
TEST_F(DbTest, AllocationFailuresAreSurvived) {
  ASSERT_EQ(UTL_DB_XCREATE(Path().c_str(), 4, 4, 0, 0, 0, 0, 1024, 0, nullptr), 1);
  auto failed_for_memory = [](int ok) {
    if (!ok) {
      EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    }
    UTL_ERROR_CLEAR();
  };
  for (unsigned long n = 1; n < 400; ++n) {
    qxtest::CaptureStream quiet(stderr);
    const unsigned long injected = qx::heap::InjectedFailures();
    qxtest::FailAllocation guard(n);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
    if (db == nullptr) {
      EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
      UTL_ERROR_CLEAR();
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
