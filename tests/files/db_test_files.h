// Helpers of the keyed store tests: a scratch directory per test and raw
// access to the bytes of a store file.
#ifndef QXBASE_TESTS_FILES_DB_TEST_FILES_H
#define QXBASE_TESTS_FILES_DB_TEST_FILES_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
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

class ScratchDir : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/qx_db_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }
  std::string Path(const char *name = "store.db") const { return dir_ + "/" + name; }
  std::string dir_;
};

inline Bytes Slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

inline void Spill(const std::string &path, const Bytes &bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char *>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

// Little-endian word of a file image, written out by hand.
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

// Header offsets used by the tests.
enum : std::size_t {
  kGranularity = 92,
  kLimit = 96,
  kSelector = 100,
  kHeads = 104,
  kLargeHead = 108,
  kChunk = 112,
  kExtension = 116,
  kFirstSegment = 120,
  kHashTable = 124,
  kLastSegment = 128,
  kTotal = 132,
  kFree = 136,
  kIncrement = 140,
  kBuckets = 144,
  kFirstFree = 148,
  kCachePointer = 152
};

// Default store: segment payload 683, entries from 691, table payload 8894.
inline constexpr std::size_t kEntries = 691;
inline constexpr std::size_t kTable = 8894;
inline constexpr std::size_t kDefaultSize = 10942;

inline std::size_t EntryAt(std::size_t key) {
  return kEntries + 16 * key;
}

}  // namespace dbtest

#endif  // QXBASE_TESTS_FILES_DB_TEST_FILES_H
