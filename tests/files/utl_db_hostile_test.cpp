// Keyed store on damaged files: every diagnostic line byte for byte, and
// truncated or scrambled files that must fail cleanly, never crash or hang.
#include <gtest/gtest.h>
#include <unistd.h>
#include <random>
#include <string>
#include "db_test_files.h"
#include "qx_test.h"

namespace {
using namespace dbtest;
using DbHostileTest = ScratchDir;

// Key 0 named "water" (name at 10942, bucket 324), 20 bytes in the block at 10961.
Bytes BaseStore(const std::string &path) {
  EXPECT_EQ(UTL_DB_CREATE(path.c_str(), 0, 0, 0), 1);
  UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
  EXPECT_EQ(Do(db, {'g', 0, 0, "water"}) + Do(db, {'w', 0, 20}) + UTL_DB_CLOSE(db), 2);
  return Slurp(path);
}
// The lines of a read of n bytes at a place beyond the end of the heap.
std::string Beyond(int chunk, int n, int at) {
  return "HeapSeek: Attempt to seek to " + std::to_string(chunk) +
         " chunk is greater than limit of 2 chunks\nHeapRead: Cannot find " + std::to_string(n) +
         " bytes at location " + std::to_string(at) + "\n";
}
const auto Times4 = [](const std::string &line) { return line + line + line + line; };
const std::string kNoFreeKey = "AllocateKey: Failed to Allocate from FreeKeyList.\n";

// Words over the base store ({0, 0}: none); calls, results summed (-1: open fails);
// the text printed; the mode and chunk size; the failed allocation; the cut size.
struct Damage {
  std::pair<std::size_t, uint32_t> patch[2];
  Call calls[3];
  int result;
  std::string text;
  const char *mode = "u";
  int chunk = 0;
  unsigned long fail = 0;
  long truncate_to = -1;
};

// clang-format off
const Damage kDamages[] = {
    // Data capacity beyond the heap; data record at address 3; loops in the large
    // list and class 3; small heads, key segments, a bucket chain in loops.
    {{{10961, 0xFFFFFFF0u}}, {{'r', 0, 100}, {'r', 0, 8000}}, 10100,
     Beyond(2, 8000, 10972) + "UTL_DB_READ: Failed to read 8000 bytes at 10972\n"},
    {{{EntryAt(0) + 12, 3}}, {{'w', 0, 50}}, 0,
     "DiskAllocSize: Failed read address -8\nDiskFree: Failed to read address -8\n"},
    {{{kLargeHead, 10961}, {10965, 10961}}, {{'w', 0, 5000}}, 0,
     "AttemptAllocation: Failed to read heap at daddr 10961\n"},
    {{{164, 10961}, {10965, 10961}}, {{'g'}, {'w', 1, 20}}, 1,
     "DiskAlloc: Failed to read free space list header at 10961\n"},
    {{{kHeads, 70000}}, {{'g', 0, 0, "x"}, {'w', 0, 2000}}, -1, Beyond(8, 4, 70000) +
     "DiskAlloc: Failed to read free space list pointer 70000\n" + Beyond(8, 4, 70008) +
     "DiskFree: Failed to read small address 70008\n"},
    {{{683, 683}, {687, 0}}, {{'f', 5}, {'g'}}, -2, kNoFreeKey},
    {{{683, 683}, {kTotal, 2000}}, {{'f', 512}}, -1, ""},
    {{{EntryAt(0) + 8, 0}, {10954, 0x65746178u}}, {{'f', -1, 0, "water"}, {'n', 0, 0, "water"}},
     -2, ""},
    // Name record, hash table beyond the end; a bucket that lost its key; bad free keys.
    {{{EntryAt(0) + 4, 40000}}, {{'i', 0, 256}, {'f', -1, 0, "water"}}, -1, Beyond(4, 1, 40000) +
     "ReadSecondaryKeyName: Failed to read address 40000\n" + Beyond(4, 1, 40000) +
     "SecondaryEqual: Failed to read address 40000 for key water\n"},
    {{{kHashTable, 90000}}, {{'f', -1, 0, "x"}, {'g', 0, 0, "x"}}, -2, Beyond(10, 4, 90000) +
     "FindSecondaryKey:Failed to Read key at address 90000\n" + Beyond(10, 4, 90000) +
     "AddSecondaryKey: Failed to Read head of secondary key list at address 90000 (key 1)\n"},
    {{{kTable + 4 * 324, kBit31}}, {{'d', 0}}, 0, "FreeKey: Attempt to free non-existent key 0\n"},
    {{{kFirstFree, 9999}}, {{'g'}}, -1, kNoFreeKey},
    {{{kFree, 0}, {kIncrement, 0}}, {{'g'}}, -1, "ExtendPrimaryKeyList: Failed to extend "
     "Primary Key List\nAllocateKey: Failed to Extend FreeKeyList.\n"},
    {{}, {{'w', 512, 4}}, 0, "UTL_DB_WRITE: Cannot find key 512\n"},
    {{}, {{'i', 0, 3}}, 0, "ReadSecondaryKeyName: User buffer (3) too small for key (5)\n"},
    // Misuse. Read-only: no growth; a dirty 64-byte chunk (11: a new entry; the
    // last: a moved record) is kept at each of the 4 evictions of a pass.
    {{}, {{'w', 0, 5000}}, 0, "ExtendHeap: Failed to extend file 1 bytes by write\n"
     "DiskAlloc: Failed to extend heap by 5012\n", "r"},
    {{}, {{'g'}, {'e'}, {'f', 1}}, 2, Times4("FlushHeap: Failed to write chunk 11 to disk\n"),
     "r", 64},
    {{{EntryAt(0) + 12, 15000}, {14989, 24}}, {{'w', 0, 10}, {'e'}, {'r', 0, 100}}, 10025,
     Times4("FlushHeap: Failed to write last chunk to disk\n"), "r", 64},
    // The file shrinks under an open store; bad headers; a failed allocation.
    {{}, {{'r', 0, 100}}, 10000, "HeapRead: Failed to read chunk from disk\n"
     "DiskAllocSize: Failed read address 10961\n", "r", 0, 0, 8192},
    {{}, {}, 0, "HeapWrite: Failed to read chunk from disk\n", "u", 0, 0, 0},
    {{{0, 0x4B4C455Bu}}, {}, -1, ""}, {{{kGranularity, 0}}, {}, -1, "", "r"},
    {{{kBuckets, 0}}, {}, -1, ""}, {{{kSelector, 4}}, {}, -1, "", "r"},
    {{{kChunk, 0}}, {}, -1, "CreateHeap: Failed to Allocate Heap of 0 chunks\n"},
    {{{kChunk, 1u << 27}}, {}, -1, "CreateHeap: Failed to Allocate Heap of 1 chunks\n", "r"},
    {{}, {}, -1, "CreateHeap: Failed to Allocate Heap of 1 chunks\n", "u", -1},
    {{}, {}, -1, "CreateHeap: Failed to Allocate Heap of 2 chunks\n", "r", 0, 2},
};
// clang-format on

TEST_F(DbHostileTest, DamageGivesTheDocumentedLines) {
  const Bytes base = BaseStore(Path());
  for (const Damage &d : kDamages) {
    SCOPED_TRACE(&d - kDamages);
    Bytes image = base;
    for (const auto &[at, value] : d.patch)
      if (at != 0 || value != 0) SetWord(image, at, value);
    Spill(Path(), image);
    qxtest::CaptureStream err(stderr);
    qxtest::FailAllocation guard(d.fail);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), d.mode, d.chunk);
    ASSERT_TRUE(d.truncate_to < 0 || truncate(Path().c_str(), d.truncate_to) == 0);
    int result = db != nullptr ? 0 : -1;
    for (const Call &c : d.calls)
      if (c.fn != '\0') result += Do(db, c);
    EXPECT_EQ(result, d.result);
    EXPECT_EQ(UTL_DB_CLOSE(db), db != nullptr && d.truncate_to != 0);  // emptied: no write-back
    EXPECT_EQ(err.Text(), d.text);
    EXPECT_EQ(qxtest::TopIdentity(), d.fail ? "UTL/MEM/FATAL/NO_MEMORY" : "");
    EXPECT_TRUE((db != nullptr && d.mode[0] == 'u') || d.truncate_to >= 0 ||
                Slurp(Path()) == image);
  }
}

// Any work at all on a damaged store: every call returns and the store closes.
bool Exercise(const std::string &path, const Bytes &image) {
  Spill(path, image);
  qxtest::CaptureStream quiet(stderr);
  UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
  for (int round = 0; db != nullptr && round < 3; ++round) {
    const int key = UTL_DB_GENKEY(db, round % 2 ? "water" : "steam");
    const Call calls[] = {
        {'w', key, 40 + 300 * round}, {'w', 0, 10},           {'r', 0, 100}, {'i', 0, 256},
        {'f', -1, 0, "water"},        {'n', key, 0, "water"}, {'d', round}};
    for (const Call &c : calls)
      Do(db, c);
  }
  return UTL_DB_CLOSE(db) == 1;
}

TEST_F(DbHostileTest, TruncatedAndScrambledFilesFailCleanly) {
  const Bytes base = BaseStore(Path());
  for (std::size_t size = 0; size < base.size(); size += size < 200 ? 13 : 397)
    EXPECT_EQ(Exercise(Path(), Bytes(base.begin(), base.begin() + size)), size >= 156) << size;
  std::mt19937 random(20261121);
  for (int trial = 0; trial < 120; ++trial) {
    Bytes image = base;
    for (int i = 0; i < 1 + trial % 12; ++i)  // the header and heads as often as anywhere
      image[4 + random() % (trial % 2 ? base.size() - 4 : 700)] =
          static_cast<unsigned char>(random());
    Exercise(Path(), image);
  }
}

}  // namespace
