// Helpers of the keyed store tests: a scratch directory per test and raw
// access to the little-endian words of a store file, decoded by hand.
#ifndef QXBASE_TESTS_FILES_DB_TEST_FILES_H
#define QXBASE_TESTS_FILES_DB_TEST_FILES_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "utl_db.h"

namespace dbtest {

using Bytes = std::vector<unsigned char>;
inline constexpr uint32_t kBit31 = 0x80000000u;

// Header offsets, then the default store: entries from 691, the bucket table
// at 8894, 10942 bytes in all.
inline constexpr std::size_t kGranularity = 92, kLimit = 96, kSelector = 100, kHeads = 104,
                             kLargeHead = 108, kChunk = 112, kExtension = 116, kFirstSegment = 120,
                             kHashTable = 124, kLastSegment = 128, kTotal = 132, kFree = 136,
                             kIncrement = 140, kBuckets = 144, kFirstFree = 148,
                             kCachePointer = 152;
inline constexpr std::size_t kTable = 8894, kDefaultSize = 10942;
constexpr std::size_t EntryAt(std::size_t key) {
  return 691 + 16 * key;
}

class ScratchDir : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/qx_db_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }
  std::string Path(const std::string &name = "store.db") const { return dir_ + "/" + name; }
  std::string dir_;
};

inline Bytes Slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

inline void Spill(const std::string &path, const Bytes &bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char *>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

inline std::string Text(const Bytes &b, std::size_t at, std::size_t n) {
  return std::string(b.begin() + at, b.begin() + at + n);
}

inline uint32_t Word(const Bytes &b, std::size_t at) {
  return b.at(at) | b.at(at + 1) << 8 | b.at(at + 2) << 16 |
         static_cast<uint32_t>(b.at(at + 3)) << 24;
}

inline void SetWord(Bytes &b, std::size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i)
    b.at(at + i) = static_cast<unsigned char>(v >> (8 * i));
}

struct At {
  std::size_t at;
  uint32_t value;
};

// Expects each listed word of a file image; label names the table row.
inline void ExpectWords(const Bytes &b, std::initializer_list<At> words, uint32_t label = 0) {
  for (const At &w : words)
    EXPECT_EQ(Word(b, w.at), w.value) << "row " << label << " @" << w.at;
}

// One call on a store: 'r'ead into len bytes (10000 x result + delivered),
// 'w'rite len bytes, 'g'enerate a key, 'i'nfo with a name buffer of len,
// 'f'ind, find 'n'ext, 'd'elete, or 'e': ask for each of the first 512 keys.
struct Call {
  char fn;
  int key = 0, len = 0;
  const char *name = nullptr;
};

inline int Do(UtlDb *db, const Call &c) {
  static char buffer[8000];
  int n = -1;
  if (c.fn == 'r') return 10000 * UTL_DB_READ(db, c.key, c.len, buffer, &n) + n;
  if (c.fn == 'w') return UTL_DB_WRITE(db, c.key, c.len, std::string(c.len, 'x').data());
  if (c.fn == 'g') return UTL_DB_GENKEY(db, c.name);
  if (c.fn == 'i') return UTL_DB_INFO(db, c.key, c.len, buffer, &n);
  if (c.fn == 'f') return UTL_DB_FIND(db, c.key, c.name);
  if (c.fn == 'n') return UTL_DB_FIND_NEXT(db, c.key, c.name);
  for (int k = 0; c.fn == 'e' && k < 512; ++k)
    UTL_DB_FIND(db, k, nullptr);
  if (c.fn == 'e') return 0;
  return UTL_DB_DELETE(db, c.key);
}

}  // namespace dbtest

#endif  // QXBASE_TESTS_FILES_DB_TEST_FILES_H
