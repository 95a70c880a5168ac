// Keyed store: file images against hand-computed layouts, the open modes and
// the lock mark, keys and names, capacities, round trips through evictions.
#include "utl_db.h"
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include "db_test_files.h"
#include "files/db_cache.h"

namespace {
using namespace dbtest;
using DbTest = ScratchDir;

void ExpectWords(const Bytes &b, std::initializer_list<std::pair<std::size_t, uint32_t>> words) {
  for (const auto &[at, value] : words)
    EXPECT_EQ(Word(b, at), value) << "@" << at;
}
void Play(UtlDb *db, std::initializer_list<std::pair<Call, int>> steps) {
  for (const auto &step : steps)
    EXPECT_EQ(Do(db, step.first), step.second) << "step " << &step - steps.begin();
}
const auto Text = [](const Bytes &b, int at, int n) { return std::string(&b[at], &b[at] + n); };
UtlDb *OpenNew(const std::string &path, std::initializer_list<std::pair<Call, int>> steps,
               int chunk = 0, int extension = 0, int selector = 0) {
  EXPECT_EQ(UTL_DB_XCREATE(path.c_str(), 0, 0, 0, selector, 0, 0, 0, extension, nullptr), 1);
  UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", chunk);
  if (db != nullptr) Play(db, steps);
  return db;
}

// The default store: header, 129 free-list heads, the key segment's block
// (record {8200, 0}, {next 0, count 512}, 512 free entries), the bucket table's
// block. Then the arguments (keys, increment, buckets, selector, granularity,
// limit, chunk, extension), header words from 92 on, file size (0: refused).
TEST_F(DbTest, CreationLaysOutTheFile) {
  ASSERT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
  Bytes want(10942);
  std::memcpy(want.data(), "ZELK", 4);
  std::memcpy(want.data() + 12, "Gorps the Grumbler", 18);
  std::size_t at = 92;
  for (uint32_t w : {8, 1024, 1, 156, 0, 8192, 4096, 683, 8894, 683, 512, 512, 512, 512, 0, 0})
    SetWord(want, std::exchange(at, at + 4), w);
  for (const auto &[where, w] : {std::pair{672, 8200}, {687, 512}, {8883, 2048}})
    SetWord(want, where, w);
  for (uint32_t k = 0; k < 512; ++k) {
    SetWord(want, EntryAt(k), (k + 1) | kBit31);
    SetWord(want, EntryAt(k) + 8, kBit31);
    SetWord(want, kTable + 4 * k, kBit31);
  }
  EXPECT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 0);  // an existing path is left alone
  const Bytes got = Slurp(Path());
  ASSERT_EQ(got.size(), want.size());
  EXPECT_EQ(std::mismatch(got.begin(), got.end(), want.begin()).first - got.begin(), 10942);
  const struct {
    int args[8];
    uint32_t header[15] = {};
    std::size_t size = 0, title_length = 0;
  } rows[] = {
      // clang-format off
      {{10, 20, 7, 2, 16, 100, 1024, 64},
       {16, 112, 2, 156, 0, 1024, 64, 199, 378, 199, 10, 10, 20, 7, 0}, 406, 0},
      {{1, 0, 1, 3, 1, 1, 0, 0},
       {1, 1, 3, 156, 0, 8192, 4096, 175, 210, 175, 1, 1, 512, 1, 0}, 214, 79},
      {{0, 0, 0, 0, 10, 0, 0, 0},  // the limit 1024 rounds up to 1030: 104 heads
       {10, 1030, 1, 156, 0, 8192, 4096, 583, 8794, 583, 512, 512, 512, 512, 0}, 10842, 100},
      {{0, 0, 0, 0, 16, 8, 0, 0}}, {{0, 0, 0, 4, 0, 0, 0, 0}}, {{0, 0, 0, -1, 0, 0, 0, 0}},
      {{-1, 0, 0, 0, 0, 0, 0, 0}}, {{0, 0, 0, 0, 0, 0, 1 << 27, 0}}, {{0, 0, 0, 0, -8, 0, 0, 0}},
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
    EXPECT_EQ(Text(b, 12, 80), (title + std::string(80, '\0')).substr(0, 80));
  }
}

// Every letter on a default store, a missing file, a store left locked: the
// mark while open (null: refused). Writers also store their chunk size (64).
TEST_F(DbTest, ModeLettersAndTheLockMark) {
  ASSERT_EQ(UTL_DB_CREATE(Path("default").c_str(), 0, 0, 0), 1);
  const Bytes fresh = Slurp(Path("default"));
  const std::tuple<const char *, bool, char> rows[] = {
      {"r", true, 'K'}, {"R", true, 'K'}, {"u", true, 'Q'}, {"U", true, 'Q'},  {"c", true, 'Q'},
      {"C", true, 'Q'}, {"w", true, 'Q'}, {"W", true, 'Q'}, {"c", false, 'Q'}, {"W", false, 'Q'},
      {"r", false, 0},  {"u", false, 0},  {"x", true, 0},   {"", true, 0},     {nullptr, true, 0}};
  for (const auto &[mode, exists, mark] : rows) {
    SCOPED_TRACE(mode != nullptr ? mode : "(null)");
    std::filesystem::remove(Path());
    if (exists) Spill(Path(), fresh);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), mode, 64);
    ASSERT_EQ(db != nullptr, mark != 0);
    EXPECT_TRUE(db != nullptr || Slurp(Path()) == (exists ? fresh : Bytes{}));
    if (db == nullptr) continue;
    EXPECT_EQ(Text(Slurp(Path()), 0, 4), std::string("ZEL") + mark);
    EXPECT_EQ(UTL_DB_FLUSH(db) + UTL_DB_CLOSE(db) + UTL_DB_UNLOCK(Path().c_str()), 3);
    Bytes want = fresh;
    SetWord(want, kChunk, mark == 'Q' ? 64 : 8192);
    EXPECT_EQ(Slurp(Path()), want);
    want[3] = 'Q';  // a writer that never closed
    Spill(Path(), want);
    EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), mode, 0), nullptr);
    EXPECT_EQ(UTL_DB_UNLOCK(Path().c_str()), 1);
    EXPECT_EQ(Text(Slurp(Path()), 0, 4), "ZELK");
  }
  Bytes odd = fresh;  // unlocking refuses another mark and a missing file
  odd[3] = 'X';
  Spill(Path("odd"), odd);
  EXPECT_EQ(UTL_DB_UNLOCK(Path("odd").c_str()) + UTL_DB_UNLOCK(Path("none").c_str()), 0);
  chmod(Path().c_str(), 0444);  // creating needs the write right, reading does not
  EXPECT_TRUE(geteuid() == 0 || UTL_DB_OPEN(Path().c_str(), "c", 0) == nullptr);
  EXPECT_EQ(UTL_DB_CLOSE(UTL_DB_OPEN(Path().c_str(), "r", 0)), 1);
}

// Growth adds 4096 bytes at 10942, split for each small request: 24 bytes at
// 10961, then 32 at 10996 (10961 goes to class 3 and back to key 1). Data is
// rewritten in place; closing after a flush changes only the mark.
TEST_F(DbTest, WritesLandWhereTheHeapRulesPutThem) {
  // clang-format off
  UtlDb *db = OpenNew(Path(), {{{'g', 0, 0, "water"}, 0}, {{'w', 0, 20}, 1}, {{'w', 0, 30}, 1},
      {{'w', 0, 10}, 1}, {{'r', 0, 100}, 10032}, {{'g', 0, 0, "ice"}, 1}, {{'w', 1, 20}, 1}}, 100);
  ASSERT_EQ(UTL_DB_FLUSH(db), 1);
  Bytes f = Slurp(Path());
  ASSERT_EQ(f.size(), 15038u);
  ExpectWords(f, {
      {kChunk, 100}, {152, 0}, {kLargeHead, 11058}, {kFirstFree, 2}, {kFree, 510}, {kTotal, 512},
      {156, 0}, {164, 0}, {168, 0}, {10942, 8}, {10946, 0}, {10961, 24}, {10965, 0}, {10996, 32},
      {11000, 0}, {11039, 8}, {11058, 3969}, {11062, 0}, {EntryAt(0), 0}, {EntryAt(0) + 4, 10953},
      {EntryAt(0) + 8, kBit31}, {EntryAt(0) + 12, 11007}, {EntryAt(1), 1}, {EntryAt(1) + 4, 11050},
      {EntryAt(1) + 8, kBit31}, {EntryAt(1) + 12, 10972}, {EntryAt(2), 3 | kBit31},
      {kTable + 4 * 324, 0}, {kTable + 4 * 205, 1}, {kTable + 4 * 323, kBit31}});
  // clang-format on
  EXPECT_EQ(Text(f, 10953, 6) + Text(f, 11050, 4) + Text(f, 11007, 30) + Text(f, 10972, 20),
            "\5water\3ice" + std::string(10, 'K') + std::string(20, 'E') + std::string(20, 'U'));
  char name[6];
  int size = 0;
  ASSERT_EQ(UTL_DB_INFO(db, 0, 6, name, &size), 1);
  EXPECT_EQ(name + std::to_string(size), "water32");
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  f[3] = 'K';
  EXPECT_EQ(Slurp(Path()), f);
}

// Extension, length, capacity (a read gives no more than its buffer), file size:
// a surplus of 18 (< 11 + 8) is handed out whole, one of 19 split off.
TEST_F(DbTest, ReadDeliversTheBlockCapacity) {
  // clang-format off
  const int rows[][4] = {{0, 1, 8, 15038}, {0, 9, 16, 15038}, {0, 1025, 1032, 15038},
                         {1061, 1025, 1050, 12003}, {1062, 1025, 1032, 12004}};
  // clang-format on
  for (const auto &[extension, length, capacity, size] : rows) {
    const std::string path = Path(std::to_string(extension + length));
    UtlDb *db =
        OpenNew(path, {{{'g'}, 0}, {{'w', 0, length}, 1}, {{'r', 0, 3}, 10003}}, 0, extension);
    EXPECT_EQ(Do(db, {'r', 0, 8000}) + UTL_DB_CLOSE(db), 10001 + capacity) << length;
    EXPECT_EQ(Slurp(path).size(), static_cast<std::size_t>(size)) << length;
  }
}

// A block of exactly the limit (1024) is of the last small class (head at 664),
// both when freed and when handed out again.
TEST_F(DbTest, BlocksOfTheLimitUseTheLastSmallClass) {
  UtlDb *db = OpenNew(Path(), {{{'g'}, 0}, {{'g'}, 1}, {{'w', 0, 1024}, 1}, {{'w', 0, 1025}, 1}});
  ASSERT_EQ(UTL_DB_FLUSH(db), 1);  // blocks at 10942, then 11977
  ExpectWords(Slurp(Path()), {{664, 10942}, {10942, 1024}, {kLargeHead, 13020}});
  EXPECT_EQ(Do(db, {'w', 1, 1017}) + UTL_DB_CLOSE(db), 2);
  ExpectWords(Slurp(Path()), {{664, 0}, {EntryAt(1) + 12, 10953}});
}

// The second segment needs 8200 bytes: the file grows by 8212, handed out whole.
TEST_F(DbTest, KeyListGrowsBySegments) {
  UtlDb *db = OpenNew(Path(), {});
  for (int k = 0; k < 512; ++k)
    ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), k);
  Play(db, {{{'f', 512}, -1}, {{'g'}, 512}, {{'f', 512}, 512}, {{'f', 1023}, -1}});
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  const Bytes b = Slurp(Path());
  ASSERT_EQ(b.size(), 19154u);
  // clang-format off
  ExpectWords(b, {
      {kTotal, 1024}, {kFree, 511}, {kFirstFree, 513}, {kLastSegment, 10953}, {kFirstSegment, 683},
      {kLargeHead, 0}, {683, 10953}, {10942, 8201}, {10946, 0}, {10953, 0}, {10957, 512},
      {10961, 512}, {10965, 0}, {10969, kBit31}, {10977, 514 | kBit31},
      {10953 + 8 + 16 * 511, 1024 | kBit31}});
  // clang-format on
}

// Buckets worked out by hand from the second and third name hashes.
TEST_F(DbTest, NameHashesPickTheBucket) {
  const std::tuple<int, const char *, uint32_t> rows[] = {
      {2, "water", 280}, {3, "water", 238}, {2, "a", 289}, {3, "a", 0}};
  for (const auto &[selector, name, bucket] : rows) {
    const std::string path = Path(std::to_string(selector) + name);
    UTL_DB_CLOSE(OpenNew(path, {{{'g', 0, 0, name}, 0}, {{'f', -1, 0, name}, 0}}, 0, 0, selector));
    EXPECT_EQ(Word(Slurp(path), kTable + 4 * bucket), 0u) << path;
  }
}

// Keys 0 to 3 named H2O, H2O, NaCl, H2O (name blocks at 10942 + 19 k); key 1
// gets a record (block 11018) and is deleted, then key 3.
TEST_F(DbTest, EqualNamesChainNewestFirst) {
  // clang-format off
  UtlDb *db = OpenNew(Path(), {{{'g', 0, 0, "H2O"}, 0}, {{'g', 0, 0, "H2O"}, 1},
      {{'g', 0, 0, "NaCl"}, 2}, {{'g', 0, 0, "H2O"}, 3}, {{'f', -1, 0, "H2O"}, 3},
      {{'n', 3, 0, "H2O"}, 1}, {{'n', 1, 0, "H2O"}, 0}, {{'n', 0, 0, "H2O"}, -1},
      {{'n', 2, 0, "H2O"}, -1}, {{'f', -1, 0, "h2o"}, -1}, {{'f', -1, 0, "H2"}, -1},
      {{'f', -1, 0, ""}, -1}, {{'f', -1}, -1}, {{'n', 600, 0, "H2O"}, -1}, {{'f', 2, 0, "x"}, 2},
      {{'w', 1, 20}, 1}, {{'d', 1}, 1}, {{'n', 3, 0, "H2O"}, 0}, {{'d', 3}, 1},
      {{'f', -1, 0, "H2O"}, 0}, {{'f', 3}, -1}, {{'d', 3}, 0}, {{'d', -1}, 0}});
  ASSERT_EQ(UTL_DB_CLOSE(db), 1);
  ExpectWords(Slurp(Path()), {
      {kFirstFree, 3}, {kFree, 510}, {EntryAt(3), 1 | kBit31}, {EntryAt(3) + 4, 0},
      {EntryAt(3) + 8, kBit31}, {EntryAt(1), 4 | kBit31}, {EntryAt(1) + 4, 0},
      {EntryAt(1) + 12, 0}, {EntryAt(0) + 8, kBit31}, {kTable + 4 * 380, 0},
      {kTable + 4 * 452, 2}, {156, 10999}, {10999, 8}, {11003, 10961}, {164, 11018},
      {11018, 24}, {11022, 0}, {kLargeHead, 11053}, {11053, 3974}});
  // clang-format on
}

// Chunks of 64 bytes make every pass evict; records of 1 to 300 bytes, every
// other key named, survive eviction, close and reopening with other chunks.
TEST_F(DbTest, ManyRecordsSurviveEvictionAndReopen) {
  ASSERT_EQ(UTL_DB_XCREATE(Path().c_str(), 16, 16, 13, 2, 4, 64, 64, 256, "eviction"), 1);
  for (int chunk : {-1, 0, 1000, 4096, 1 << 20}) {  // -1: the writing pass
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), chunk < 0 ? "u" : "r", std::max(chunk, 0));
    ASSERT_NE(db, nullptr);
    for (int i = 0; i < 700; ++i) {
      const int k = chunk < 0 ? i : 699 - i;  // written in order, read back in reverse
      const std::string name = "mol" + std::to_string(k);
      const std::string s = std::to_string(k * 7919) + std::string(k * 37 % 300, 'a' + k % 26);
      std::string got(400, '\0');
      int delivered = 0;
      if (chunk < 0) {
        ASSERT_EQ(UTL_DB_GENKEY(db, k % 2 ? name.c_str() : nullptr), k);
        ASSERT_EQ(UTL_DB_WRITE(db, k, static_cast<int>(s.size()), s.data()), 1);
      } else {
        ASSERT_EQ(UTL_DB_READ(db, k, 400, got.data(), &delivered), 1);
        ASSERT_EQ(got.substr(0, s.size()), s) << k << " chunk " << chunk;
        ASSERT_EQ(UTL_DB_FIND(db, -1, name.c_str()), k % 2 ? k : -1);
      }
      ASSERT_LE(db->cache->loaded, 50);
    }
    EXPECT_GT(db->cache->chunk_count, chunk < 0 ? 1000u : 0u);
    EXPECT_EQ(UTL_DB_CLOSE(db), 1);
  }
}

}  // namespace
