// Keyed store on damaged files: every diagnostic line byte for byte, and a
// sweep of truncated and scrambled files that must fail cleanly, never crash
// or hang (the sanitizer run checks memory).
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
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

int ReadKey0(UtlDb *db) {
  char buffer[100];
  int delivered = -1;
  const int ok = UTL_DB_READ(db, 0, sizeof buffer, buffer, &delivered);
  return 1000 * ok + delivered;
}

int InfoKey0(UtlDb *db, int name_size) {
  char name[256];
  int size = -1;
  return UTL_DB_INFO(db, 0, name_size, name, &size);
}

struct Damage {
  const char *what;
  void (*patch)(Bytes &);
  int (*act)(UtlDb *);
  int result;
  const char *stderr_text;
};

const Damage kDamages[] = {
    {"data record beyond the end", [](Bytes &b) { SetWord(b, EntryAt(0) + 12, 50000); }, ReadKey0,
     1000,
     "HeapSeek: Attempt to seek to 6 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 12 bytes at location 49989\n"
     "DiskAllocSize: Failed read address 49989\n"},
    {"data capacity beyond the heap", [](Bytes &b) { SetWord(b, 10961, 0xFFFFFFF0u); }, ReadKey0,
     1100, ""},
    {"data record at address 3", [](Bytes &b) { SetWord(b, EntryAt(0) + 12, 3); },
     [](UtlDb *db) { return UTL_DB_WRITE(db, 0, 50, std::string(50, 'x').data()); }, 0,
     "DiskAllocSize: Failed read address -8\nDiskFree: Failed to read address -8\n"},
    {"large list head beyond the end", [](Bytes &b) { SetWord(b, kLargeHead, 20000); },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, "x"); }, -1,
     "HeapSeek: Attempt to seek to 2 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 12 bytes at location 20000\n"
     "AttemptAllocation: Failed to read heap at daddr 20000\n"},
    {"large list in a loop",
     [](Bytes &b) {
       SetWord(b, kLargeHead, 10961);
       SetWord(b, 10965, 10961);
     },
     [](UtlDb *db) { return UTL_DB_WRITE(db, 0, 5000, std::string(5000, 'x').data()); }, 0,
     "AttemptAllocation: Failed to read heap at daddr 10961\n"},
    {"large block larger than the heap",
     [](Bytes &b) {
       SetWord(b, kLargeHead, 10961);
       SetWord(b, 10961, 0xFFFFFFF0u);
     },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, "x"); }, -1,
     "AttemptAllocation: Failed to read heap at daddr 10961\n"},
    {"small list pointing at itself",
     [](Bytes &b) {
       SetWord(b, 164, 10961);  // class 3 (24 bytes)
       SetWord(b, 10965, 10961);
     },
     [](UtlDb *db) {
       return UTL_DB_WRITE(db, UTL_DB_GENKEY(db, nullptr), 20, "twenty bytes of data");
     },
     0, "DiskAlloc: Failed to read free space list header at 10961\n"},
    {"small list holding a block of another size", [](Bytes &b) { SetWord(b, 156, 10996); },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, "x"); }, -1,
     "DiskAlloc: Failed to read free space list header at 10996\n"},
    {"key segment pointing at itself",
     [](Bytes &b) {
       SetWord(b, 683, 683);
       SetWord(b, 687, 0);
     },
     [](UtlDb *db) { return UTL_DB_FIND(db, 5, nullptr) + UTL_DB_GENKEY(db, nullptr); }, -2,
     "AllocateKey: Failed to Allocate from FreeKeyList.\n"},
    {"key segments in a loop",
     [](Bytes &b) {
       SetWord(b, 683, 683);  // key 512 would find key 0's entry again
       SetWord(b, kTotal, 2000);
     },
     [](UtlDb *db) { return UTL_DB_FIND(db, 512, nullptr); }, -1, ""},
    {"bucket chain in a loop",
     [](Bytes &b) {
       SetWord(b, EntryAt(0) + 8, 0);
       b[10954] = 'x';  // "xater" still sits in the bucket of "water"
     },
     [](UtlDb *db) { return UTL_DB_FIND(db, -1, "water") + UTL_DB_FIND_NEXT(db, 0, "water"); }, -2,
     ""},
    {"name record beyond the end", [](Bytes &b) { SetWord(b, EntryAt(0) + 4, 40000); },
     [](UtlDb *db) { return InfoKey0(db, 256); }, 0,
     "HeapSeek: Attempt to seek to 4 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 1 bytes at location 40000\n"
     "ReadSecondaryKeyName: Failed to read address 40000\n"},
    {"name record beyond the end, looked up", [](Bytes &b) { SetWord(b, EntryAt(0) + 4, 40000); },
     [](UtlDb *db) { return UTL_DB_FIND(db, -1, "water"); }, -1,
     "HeapSeek: Attempt to seek to 4 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 1 bytes at location 40000\n"
     "SecondaryEqual: Failed to read address 40000 for key water\n"},
    {"hash table beyond the end", [](Bytes &b) { SetWord(b, kHashTable, 90000); },
     [](UtlDb *db) { return UTL_DB_FIND(db, -1, "x"); }, -1,
     "HeapSeek: Attempt to seek to 10 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 4 bytes at location 90000\n"
     "FindSecondaryKey:Failed to Read key at address 90000\n"},
    {"hash table beyond the end, new name", [](Bytes &b) { SetWord(b, kHashTable, 90000); },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, "x"); }, -1,
     "HeapSeek: Attempt to seek to 10 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 4 bytes at location 90000\n"
     "AddSecondaryKey: Failed to Read head of secondary key list at address 90000 (key 1)\n"},
    {"bucket lost its key", [](Bytes &b) { SetWord(b, kTable + 4 * 324, kBit31); },
     [](UtlDb *db) { return UTL_DB_DELETE(db, 0); }, 0,
     "FreeKey: Attempt to free non-existent key 0\n"},
    {"free-key head names a key in use", [](Bytes &b) { SetWord(b, kFirstFree, 0); },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, nullptr); }, -1,
     "AllocateKey: Failed to Allocate from FreeKeyList.\n"},
    {"free-key head out of range", [](Bytes &b) { SetWord(b, kFirstFree, 9999); },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, nullptr); }, -1,
     "AllocateKey: Failed to Allocate from FreeKeyList.\n"},
    {"no free key and no increment",
     [](Bytes &b) {
       SetWord(b, kFree, 0);
       SetWord(b, kIncrement, 0);
     },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, nullptr); }, -1,
     "ExtendPrimaryKeyList: Failed to extend Primary Key List\n"
     "AllocateKey: Failed to Extend FreeKeyList.\n"},
    {"small-list heads beyond the end", [](Bytes &b) { SetWord(b, kHeads, 70000); },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, "x"); }, -1,
     "HeapSeek: Attempt to seek to 8 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 4 bytes at location 70000\n"
     "DiskAlloc: Failed to read free space list pointer 70000\n"},
    {"minimum extension past the size limit",
     [](Bytes &b) {
       SetWord(b, kLargeHead, 0);
       SetWord(b, kExtension, 0x7FFFFFF0u);
     },
     [](UtlDb *db) { return UTL_DB_GENKEY(db, "x"); }, -1,
     "DiskAlloc: Failed to extend heap by 2147483632\n"},
    {"small-list heads beyond the end, freeing", [](Bytes &b) { SetWord(b, kHeads, 70000); },
     [](UtlDb *db) { return UTL_DB_WRITE(db, 0, 2000, std::string(2000, 'x').data()); }, 0,
     "HeapSeek: Attempt to seek to 8 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 4 bytes at location 70008\n"
     "DiskFree: Failed to read small address 70008\n"},
    {"data capacity beyond the heap, large buffer",
     [](Bytes &b) { SetWord(b, 10961, 0xFFFFFFF0u); },
     [](UtlDb *db) {
       static char buffer[8000];
       int delivered = -1;
       return UTL_DB_READ(db, 0, sizeof buffer, buffer, &delivered) * 10 + delivered;
     },
     0,
     "HeapSeek: Attempt to seek to 2 chunk is greater than limit of 2 chunks\n"
     "HeapRead: Cannot find 8000 bytes at location 10972\n"
     "UTL_DB_READ: Failed to read 8000 bytes at 10972\n"},
    // Misuse on an intact file.
    {"write to a free key", [](Bytes &) {},
     [](UtlDb *db) { return UTL_DB_WRITE(db, 7, 4, "abcd"); }, 0,
     "UTL_DB_WRITE: Cannot find key 7\n"},
    {"write beyond the keys", [](Bytes &) {},
     [](UtlDb *db) { return UTL_DB_WRITE(db, 512, 4, "abcd"); }, 0,
     "UTL_DB_WRITE: Cannot find key 512\n"},
    {"name buffer too small", [](Bytes &) {}, [](UtlDb *db) { return InfoKey0(db, 3); }, 0,
     "ReadSecondaryKeyName: User buffer (3) too small for key (5)\n"},
};

TEST_F(DbHostileTest, DamageGivesTheDocumentedLines) {
  for (const Damage &d : kDamages) {
    Bytes image = base_;
    d.patch(image);
    Spill(Path(), image);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
    ASSERT_NE(db, nullptr) << d.what;
    std::string text;
    int result = 0;
    {
      qxtest::CaptureStream err(stderr);
      result = d.act(db);
      text = err.Text();
    }
    EXPECT_EQ(result, d.result) << d.what;
    EXPECT_EQ(text, d.stderr_text) << d.what;
    EXPECT_EQ(UTL_DB_CLOSE(db), 1) << d.what;
  }
}

TEST_F(DbHostileTest, BadHeadersAreRefusedWithoutLocking) {
  const struct {
    std::size_t at;
    uint32_t value;
    int chunk_argument;
    const char *stderr_text;
  } rows[] = {{0, 0x4B4C455Au + 1, 0, ""},  // "ZELK" with its first letter changed
              {kGranularity, 0, 0, ""},
              {kBuckets, 0, 0, ""},
              {kSelector, 0, 0, ""},
              {kSelector, 4, 0, ""},
              {kChunk, 0, 0, "CreateHeap: Failed to Allocate Heap of 0 chunks\n"},
              {kChunk, 1u << 27, 0, "CreateHeap: Failed to Allocate Heap of 1 chunks\n"},
              {kChunk, 8192, -1, "CreateHeap: Failed to Allocate Heap of 1 chunks\n"}};
  for (const auto &r : rows) {
    Bytes image = base_;
    SetWord(image, r.at, r.value);
    Spill(Path(), image);
    for (const char *mode : {"u", "r"}) {
      qxtest::CaptureStream err(stderr);
      EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), mode, r.chunk_argument), nullptr) << r.at;
      EXPECT_EQ(err.Text(), r.stderr_text) << r.at;
    }
    EXPECT_EQ(Slurp(Path()), image) << r.at;
  }
}

TEST_F(DbHostileTest, CacheAllocationFailureIsReported) {
  qxtest::CaptureStream err(stderr);
  {
    qxtest::FailAllocation guard(2);  // the handle, then the cache
    EXPECT_EQ(UTL_DB_OPEN(Path().c_str(), "u", 0), nullptr);
  }
  EXPECT_EQ(err.Text(), "CreateHeap: Failed to Allocate Heap of 2 chunks\n");
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
  EXPECT_EQ(Slurp(Path()), base_);
}

// A read-only handle that is changed anyway: the cache cannot write its dirty
// chunks back, nor can the heap grow.
TEST_F(DbHostileTest, WritesThroughAReadOnlyHandleFail) {
  UtlDb *db = UTL_DB_OPEN(Path().c_str(), "r", 0);
  ASSERT_NE(db, nullptr);
  {
    qxtest::CaptureStream err(stderr);
    EXPECT_EQ(UTL_DB_WRITE(db, 0, 5000, std::string(5000, 'x').data()), 0);
    EXPECT_EQ(err.Text(),
              "ExtendHeap: Failed to extend file 1 bytes by write\n"
              "DiskAlloc: Failed to extend heap by 5012\n");
  }
  EXPECT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(Slurp(Path()), base_);

  db = UTL_DB_OPEN(Path().c_str(), "r", 64);  // 235 chunks: reading them all evicts
  ASSERT_NE(db, nullptr);
  ASSERT_EQ(UTL_DB_GENKEY(db, nullptr), 1);  // dirties chunk 11 (entry 1 at 707)
  std::string text;
  {
    qxtest::CaptureStream err(stderr);
    for (int k = 0; k < 512; ++k)
      UTL_DB_FIND(db, k, nullptr);
    text = err.Text();
  }
  EXPECT_EQ(text.substr(0, text.find('\n') + 1), "FlushHeap: Failed to write chunk 11 to disk\n");
  EXPECT_EQ(UTL_DB_FIND(db, 1, nullptr), 1);  // the dirty chunk was kept, not dropped
  EXPECT_EQ(UTL_DB_CLOSE(db), 1);
  EXPECT_EQ(Slurp(Path()), base_);

  // Key 0's record moved into the last chunk (14976..15037), then rewritten.
  Bytes image = base_;
  SetWord(image, EntryAt(0) + 12, 15000);
  SetWord(image, 14989, 24);
  Spill(Path(), image);
  db = UTL_DB_OPEN(Path().c_str(), "r", 64);
  ASSERT_NE(db, nullptr);
  ASSERT_EQ(UTL_DB_WRITE(db, 0, 10, "0123456789"), 1);
  {
    qxtest::CaptureStream err(stderr);
    for (int k = 0; k < 512; ++k)
      UTL_DB_FIND(db, k, nullptr);
    text = err.Text();
  }
  EXPECT_EQ(text.substr(0, text.find('\n') + 1), "FlushHeap: Failed to write last chunk to disk\n");
  EXPECT_EQ(UTL_DB_CLOSE(db), 1);
}

// The file shrinks under an open store: chunks that were never loaded can no
// longer be read, for reading or for writing.
TEST_F(DbHostileTest, FileTruncatedWhileOpen) {
  UtlDb *reader = UTL_DB_OPEN(Path().c_str(), "r", 0);
  UtlDb *writer = nullptr;
  ASSERT_NE(reader, nullptr);
  ASSERT_EQ(truncate(Path().c_str(), 8192), 0);
  {
    qxtest::CaptureStream err(stderr);
    EXPECT_EQ(ReadKey0(reader), 1000);
    EXPECT_EQ(err.Text(),
              "HeapRead: Failed to read chunk from disk\n"
              "DiskAllocSize: Failed read address 10961\n");
  }
  EXPECT_EQ(UTL_DB_CLOSE(reader), 1);
  Spill(Path(), base_);
  writer = UTL_DB_OPEN(Path().c_str(), "u", 0);
  ASSERT_NE(writer, nullptr);
  ASSERT_EQ(truncate(Path().c_str(), 0), 0);
  qxtest::CaptureStream err(stderr);
  EXPECT_EQ(UTL_DB_CLOSE(writer), 0);  // the header cannot be written back
  EXPECT_EQ(err.Text(), "HeapWrite: Failed to read chunk from disk\n");
}

// Any work at all on a damaged store: the results do not matter, only that
// every call returns.
void Exercise(UtlDb *db) {
  char buffer[300];
  int n = 0;
  for (int round = 0; round < 3; ++round) {
    const int key = UTL_DB_GENKEY(db, round % 2 ? "water" : "steam");
    UTL_DB_WRITE(db, key, 40 + 300 * round, std::string(40 + 300 * round, 'w').data());
    UTL_DB_WRITE(db, 0, 10, "0123456789");
    UTL_DB_READ(db, 0, sizeof buffer, buffer, &n);
    UTL_DB_INFO(db, 0, sizeof buffer, buffer, &n);
    const int found = UTL_DB_FIND(db, -1, "water");
    UTL_DB_FIND_NEXT(db, found, "water");
    UTL_DB_DELETE(db, round);
  }
  UTL_DB_FLUSH(db);
}

TEST_F(DbHostileTest, TruncatedFilesFailCleanly) {
  for (std::size_t size = 0; size < base_.size(); size += size < 200 ? 13 : 397) {
    Spill(Path(), Bytes(base_.begin(), base_.begin() + static_cast<long>(size)));
    qxtest::CaptureStream quiet(stderr);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
    ASSERT_EQ(db != nullptr, size >= 156) << size;
    if (db == nullptr) continue;
    Exercise(db);
    UTL_DB_CLOSE(db);
  }
}

TEST_F(DbHostileTest, HeaderOnlyFileReportsEveryAccess) {
  Spill(Path(), Bytes(base_.begin(), base_.begin() + 156));
  UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
  ASSERT_NE(db, nullptr);
  qxtest::CaptureStream err(stderr);
  EXPECT_EQ(UTL_DB_GENKEY(db, "x"), -1);
  EXPECT_EQ(err.Text(),
            "HeapSeek: Attempt to seek to 0 chunk is greater than limit of 1 chunks\n"
            "HeapRead: Cannot find 8 bytes at location 683\n"
            "AllocateKey: Failed to Allocate from FreeKeyList.\n");
  EXPECT_EQ(UTL_DB_CLOSE(db), 1);
}

TEST_F(DbHostileTest, ScrambledFilesFailCleanly) {
  std::mt19937 random(20261121);
  for (int trial = 0; trial < 120; ++trial) {
    Bytes image = base_;
    const int flips = 1 + trial % 12;
    for (int i = 0; i < flips; ++i) {
      // Aim at the structures as often as at the payload bytes.
      const std::size_t at = trial % 2 ? 4 + random() % (base_.size() - 4)
                                       : 92 + random() % 64 + (random() % 2) * (EntryAt(0) - 92);
      image[at] = static_cast<unsigned char>(random());
    }
    Spill(Path(), image);
    qxtest::CaptureStream quiet(stderr);
    UtlDb *db = UTL_DB_OPEN(Path().c_str(), "u", 0);
    if (db == nullptr) continue;
    Exercise(db);
    UTL_DB_CLOSE(db);
    UTL_ERROR_CLEAR();
  }
}

}  // namespace
