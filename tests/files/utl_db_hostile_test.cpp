// Keyed store on damaged files: every diagnostic line byte for byte, and a
// sweep of truncated and scrambled files that must fail cleanly, never crash
// or hang (the sanitizer run checks memory).
#include <gtest/gtest.h>

#include <unistd.h>

#include <random>
#include <string>

#include "db_test_files.h"
#include "qx_test.h"
#include "utl_db.h"
#include "utl_error.h"

namespace {

using namespace dbtest;

// The base store: key 0 named "water" (name block 10942, payload 10953) with
// 20 bytes of data in the 24-byte block at 10961 (payload 10972); the large
// list holds the 4031-byte block at 10996; the file is 15038 bytes long, two
// chunks of 8192. "water" sits in bucket 324.
class DbHostileTest : public ScratchDir {
 protected:
  void SetUp() override {
    ScratchDir::SetUp();
    ASSERT_EQ(UTL_DB_CREATE(Path().c_str(), 0, 0, 0), 1);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(UTL_DB_GENKEY(db, "water"), 0);
    ASSERT_EQ(UTL_DB_WRITE(db, 0, 20, std::string(20, 'A').data()), 1);
    ASSERT_EQ(UTL_DB_CLOSE(db), 1);
    base_ = Slurp(Path());
    ASSERT_EQ(base_.size(), 15038u);
  }
  Bytes base_;
};

std::string Seek(int chunk) {
  return "HeapSeek: Attempt to seek to " + std::to_string(chunk) +
         " chunk is greater than limit of 2 chunks\n";
}
const std::string kNoFreeKey = "AllocateKey: Failed to Allocate from FreeKeyList.\n";

std::string Times(int n, const std::string &line) {
  std::string text;
  while (n-- > 0)
    text += line;
  return text;
}

// Words written over the base store (offset 0 is never patched); calls, whose
// results are summed, on a handle opened with that mode and chunk size; the
// size the file is cut to once open; what the closing returns. The text is
// everything printed from the first call to the close.
struct Damage {
  At patch[2];
  Call calls[3];
  int result;
  std::string stderr_text;
  const char *mode = "u";
  int chunk = 0;
  long truncate_to = -1;
  int closed = 1;
};

// clang-format off
const Damage kDamages[] = {
    // Data record beyond the end; its capacity beyond the heap; at address 3.
    {{{EntryAt(0) + 12, 50000}}, {{'r', 0, 100}}, 10000, Seek(6) +
     "HeapRead: Cannot find 12 bytes at location 49989\nDiskAllocSize: Failed read address 49989\n"},
    {{{10961, 0xFFFFFFF0u}}, {{'r', 0, 100}, {'r', 0, 8000}}, 10100, Seek(2) +
     "HeapRead: Cannot find 8000 bytes at location 10972\n"
     "UTL_DB_READ: Failed to read 8000 bytes at 10972\n"},
    {{{EntryAt(0) + 12, 3}}, {{'w', 0, 50}}, 0,
     "DiskAllocSize: Failed read address -8\nDiskFree: Failed to read address -8\n"},
    // Large list: head beyond the end, in a loop, a block larger than the heap.
    {{{kLargeHead, 20000}}, {{'g', 0, 0, "x"}}, -1, Seek(2) +
     "HeapRead: Cannot find 12 bytes at location 20000\n"
     "AttemptAllocation: Failed to read heap at daddr 20000\n"},
    {{{kLargeHead, 10961}, {10965, 10961}}, {{'w', 0, 5000}}, 0,
     "AttemptAllocation: Failed to read heap at daddr 10961\n"},
    {{{kLargeHead, 10961}, {10961, 0xFFFFFFF0u}}, {{'g', 0, 0, "x"}}, -1,
     "AttemptAllocation: Failed to read heap at daddr 10961\n"},
    // Small lists: class 3 pointing at itself, class 1 holding a large block,
    // heads beyond the end when allocating and when freeing.
    {{{164, 10961}, {10965, 10961}}, {{'g'}, {'w', 1, 20}}, 1,
     "DiskAlloc: Failed to read free space list header at 10961\n"},
    {{{156, 10996}}, {{'g', 0, 0, "x"}}, -1,
     "DiskAlloc: Failed to read free space list header at 10996\n"},
    {{{kHeads, 70000}}, {{'g', 0, 0, "x"}, {'w', 0, 2000}}, -1, Seek(8) +
     "HeapRead: Cannot find 4 bytes at location 70000\n"
     "DiskAlloc: Failed to read free space list pointer 70000\n" + Seek(8) +
     "HeapRead: Cannot find 4 bytes at location 70008\n"
     "DiskFree: Failed to read small address 70008\n"},
    {{{kLargeHead, 0}, {kExtension, 0x7FFFFFF0u}}, {{'g', 0, 0, "x"}}, -1,
     "DiskAlloc: Failed to extend heap by 2147483632\n"},
    // Key segments: one pointing at itself; a loop where key 512 would find key 0 again.
    {{{683, 683}, {687, 0}}, {{'f', 5}, {'g'}}, -2, kNoFreeKey},
    {{{683, 683}, {kTotal, 2000}}, {{'f', 512}}, -1, ""},
    // Bucket chain in a loop: "xater" still sits in the bucket of "water".
    {{{EntryAt(0) + 8, 0}, {10954, 0x65746178u}}, {{'f', -1, 0, "water"}, {'n', 0, 0, "water"}},
     -2, ""},
    // Name record beyond the end, read and looked up.
    {{{EntryAt(0) + 4, 40000}}, {{'i', 0, 256}, {'f', -1, 0, "water"}}, -1, Seek(4) +
     "HeapRead: Cannot find 1 bytes at location 40000\n"
     "ReadSecondaryKeyName: Failed to read address 40000\n" + Seek(4) +
     "HeapRead: Cannot find 1 bytes at location 40000\n"
     "SecondaryEqual: Failed to read address 40000 for key water\n"},
    // Hash table beyond the end, looked up and added to.
    {{{kHashTable, 90000}}, {{'f', -1, 0, "x"}, {'g', 0, 0, "x"}}, -2, Seek(10) +
     "HeapRead: Cannot find 4 bytes at location 90000\n"
     "FindSecondaryKey:Failed to Read key at address 90000\n" + Seek(10) +
     "HeapRead: Cannot find 4 bytes at location 90000\n"
     "AddSecondaryKey: Failed to Read head of secondary key list at address 90000 (key 1)\n"},
    // A bucket that lost its key; free-key head in use or out of range; no key left to add.
    {{{kTable + 4 * 324, kBit31}}, {{'d', 0}}, 0, "FreeKey: Attempt to free non-existent key 0\n"},
    {{{kFirstFree, 0}}, {{'g'}}, -1, kNoFreeKey},
    {{{kFirstFree, 9999}}, {{'g'}}, -1, kNoFreeKey},
    {{{kFree, 0}, {kIncrement, 0}}, {{'g'}}, -1,
     "ExtendPrimaryKeyList: Failed to extend Primary Key List\n"
     "AllocateKey: Failed to Extend FreeKeyList.\n"},
    // Misuse of an intact store.
    {{}, {{'w', 7, 4}}, 0, "UTL_DB_WRITE: Cannot find key 7\n"},
    {{}, {{'w', 512, 4}}, 0, "UTL_DB_WRITE: Cannot find key 512\n"},
    {{}, {{'i', 0, 3}}, 0, "ReadSecondaryKeyName: User buffer (3) too small for key (5)\n"},
    // Read-only handles: the heap cannot grow; in 235 chunks of 64 bytes, a dirty
    // chunk (chunk 11 with a new key's entry at 707; the last one, 14976..15037,
    // holding key 0's moved record) cannot be written back at any of the four
    // evictions of a pass over all entries, and is kept.
    {{}, {{'w', 0, 5000}}, 0, "ExtendHeap: Failed to extend file 1 bytes by write\n"
     "DiskAlloc: Failed to extend heap by 5012\n", "r"},
    {{}, {{'g'}, {'e'}, {'f', 1}}, 2, Times(4, "FlushHeap: Failed to write chunk 11 to disk\n"),
     "r", 64},
    {{{EntryAt(0) + 12, 15000}, {14989, 24}}, {{'w', 0, 10}, {'e'}, {'r', 0, 100}}, 10025,
     Times(4, "FlushHeap: Failed to write last chunk to disk\n"), "r", 64},
    // The file shrinks under an open store: chunks never loaded cannot be read,
    // for reading or for writing the header back.
    {{}, {{'r', 0, 100}}, 10000, "HeapRead: Failed to read chunk from disk\n"
     "DiskAllocSize: Failed read address 10961\n", "r", 0, 8192},
    {{}, {}, 0, "HeapWrite: Failed to read chunk from disk\n", "u", 0, 0, 0},
};
// clang-format on

Bytes Patched(Bytes image, const At (&patch)[2]) {
  for (const At &w : patch)
    if (w.at != 0) SetWord(image, w.at, w.value);
  return image;
}

TEST_F(DbHostileTest, DamageGivesTheDocumentedLines) {
  int row = 0;
  for (const Damage &d : kDamages) {
    const Bytes image = Patched(base_, d.patch);
    Spill(Path(), image);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), d.mode, d.chunk);
    ASSERT_NE(db, nullptr) << ++row;
    ASSERT_TRUE(d.truncate_to < 0 || truncate(Path().c_str(), d.truncate_to) == 0);
    qxtest::CaptureStream err(stderr);
    int result = 0;
    for (const Call &c : d.calls)
      if (c.fn != '\0') result += Do(db, c);
    EXPECT_EQ(result, d.result) << row;
    EXPECT_EQ(UTL_DB_CLOSE(db), d.closed) << row;
    EXPECT_EQ(err.Text(), d.stderr_text) << row;
    EXPECT_TRUE(d.mode[0] != 'r' || d.truncate_to >= 0 || Slurp(Path()) == image) << row;
  }
}

TEST_F(DbHostileTest, BadHeadersAreRefusedWithoutLocking) {
  // A header word replaced, the open's chunk argument, the allocation that fails
  // (the handle is the first, the cache the second), the chunk count of the
  // CreateHeap line (-1: no line).
  const struct {
    std::size_t at;
    uint32_t value;
    int chunk_argument;
    unsigned long fail;
    int chunks;
  } rows[] = {{0, 0x4B4C455Bu, 0, 0, -1},  // "ZELK" with its first letter changed
              {kGranularity, 0, 0, 0, -1}, {kBuckets, 0, 0, 0, -1}, {kSelector, 0, 0, 0, -1},
              {kSelector, 4, 0, 0, -1},    {kChunk, 0, 0, 0, 0},    {kChunk, 1u << 27, 0, 0, 1},
              {kChunk, 8192, -1, 0, 1},    {kChunk, 8192, 0, 2, 2}};
  for (const auto &r : rows) {
    Bytes image = base_;
    SetWord(image, r.at, r.value);
    Spill(Path(), image);
    for (const char *mode : {"u", "r"}) {
      qxtest::CaptureStream err(stderr);
      qxtest::FailAllocation guard(r.fail);
      EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), mode, r.chunk_argument), nullptr) << r.at;
      EXPECT_EQ(err.Text(), r.chunks < 0 ? ""
                                         : "CreateHeap: Failed to Allocate Heap of " +
                                               std::to_string(r.chunks) + " chunks\n");
      EXPECT_EQ(qxtest::TopIdentity(), r.fail ? "UTL/MEM/FATAL/NO_MEMORY" : "") << r.at;
      UTL_ERROR_CLEAR();
    }
    EXPECT_EQ(Slurp(Path()), image) << r.at;
  }
}

// Any work at all on a damaged store: the results do not matter, only that
// every call returns and the store closes. Returns what was printed.
const std::string kNotOpened = "(not opened)";
std::string Exercise(const std::string &path, const Bytes &image) {
  Spill(path, image);
  qxtest::CaptureStream err(stderr);
  UtlDb *db = UTL_DB_OPEN(path.c_str(), "u", 0);
  if (db == nullptr) return kNotOpened;
  for (int round = 0; round < 3; ++round) {
    const int key = UTL_DB_GENKEY(db, round % 2 ? "water" : "steam");
    const Call calls[] = {
        {'w', key, 40 + 300 * round}, {'w', 0, 10},           {'r', 0, 100}, {'i', 0, 256},
        {'f', -1, 0, "water"},        {'n', key, 0, "water"}, {'d', round}};
    for (const Call &c : calls)
      Do(db, c);
  }
  UTL_DB_FLUSH(db);
  UTL_DB_CLOSE(db);
  UTL_ERROR_CLEAR();
  return err.Text();
}

TEST_F(DbHostileTest, TruncatedFilesFailCleanly) {
  for (std::size_t size = 0; size < base_.size(); size += size < 200 ? 13 : 397) {
    const Bytes image(base_.begin(), base_.begin() + static_cast<long>(size));
    EXPECT_EQ(Exercise(Path(), image) == kNotOpened, size < 156) << size;
  }
  // A bare header opens, but the first access already lies beyond its one chunk.
  const std::string want =
      "HeapSeek: Attempt to seek to 0 chunk is greater than limit of 1 chunks\n"
      "HeapRead: Cannot find 8 bytes at location 683\n"
      "AllocateKey: Failed to Allocate from FreeKeyList.\n";
  EXPECT_EQ(Exercise(Path(), Bytes(base_.begin(), base_.begin() + 156)).substr(0, want.size()),
            want);
}

TEST_F(DbHostileTest, ScrambledFilesFailCleanly) {
  std::mt19937 random(20261121);
  for (int trial = 0; trial < 120; ++trial) {
    Bytes image = base_;
    for (int i = 0; i < 1 + trial % 12; ++i) {
      // Aim at the structures as often as at the payload bytes.
      const std::size_t at = trial % 2 ? 4 + random() % (base_.size() - 4)
                                       : 92 + random() % 64 + (random() % 2) * (EntryAt(0) - 92);
      image[at] = static_cast<unsigned char>(random());
    }
    Exercise(Path(), image);
  }
}

}  // namespace
