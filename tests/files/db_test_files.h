// Keyed store tests: scratch files, their little-endian words, calls as rows.
#ifndef QXBASE_TESTS_FILES_DB_TEST_FILES_H
#define QXBASE_TESTS_FILES_DB_TEST_FILES_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>
#include "utl_db.h"
namespace dbtest {
using Bytes = std::vector<unsigned char>;
// Header words; the default store keeps its entries from 691, buckets from 8894.
inline constexpr uint32_t kBit31 = 0x80000000u, kGranularity = 92, kSelector = 100, kHeads = 104,
                          kLargeHead = 108, kChunk = 112, kExtension = 116, kFirstSegment = 120,
                          kHashTable = 124, kLastSegment = 128, kTotal = 132, kFree = 136,
                          kIncrement = 140, kBuckets = 144, kFirstFree = 148, kTable = 8894;
inline constexpr auto EntryAt = [](std::size_t key) { return 691 + 16 * key; };

class ScratchDir : public ::testing::Test {
 protected:
  ~ScratchDir() override { std::filesystem::remove_all(dir_); }
  std::string Path(const std::string &name = "store.db") const { return dir_ + "/" + name; }
  const std::string dir_ = mkdtemp(std::string("/tmp/qx_db_XXXXXX").data());
};
inline Bytes Slurp(const std::string &path) {
  return Bytes(std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {});
}
inline void Spill(const std::string &path, const Bytes &b) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(b.data()), b.size());
}
inline uint32_t Word(const Bytes &b, std::size_t at) {
  return b.at(at) | b.at(at + 1) << 8 | b.at(at + 2) << 16 | uint32_t{b.at(at + 3)} << 24;
}
inline void SetWord(Bytes &b, std::size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i)
    b.at(at + i) = static_cast<unsigned char>(v >> (8 * i));
}
// 'r'ead len bytes: 10000 x result + delivered; 'w'rite len letters; 'g'enkey;
// 'i'nfo; 'f'ind; find 'n'ext; 'd'elete; 'e': find each of the keys 0 to 511.
struct Call {
  char fn;
  int key = 0, len = 0;
  const char *name = nullptr;
};
inline int Do(UtlDb *db, const Call &c) {
  static char buf[8000];
  int n = -1;
  if (c.fn == 'r') return 10000 * UTL_DB_READ(db, c.key, c.len, buf, &n) + n;
  if (c.fn == 'w')
    return UTL_DB_WRITE(db, c.key, c.len, std::string(c.len, 'A' + c.len % 26).data());
  if (c.fn == 'g') return UTL_DB_GENKEY(db, c.name);
  if (c.fn == 'i') return UTL_DB_INFO(db, c.key, c.len, buf, &n);
  if (c.fn == 'f') return UTL_DB_FIND(db, c.key, c.name);
  if (c.fn == 'n') return UTL_DB_FIND_NEXT(db, c.key, c.name);
  if (c.fn == 'd') return UTL_DB_DELETE(db, c.key);
  for (int k = 0; k < 512; ++k)
    UTL_DB_FIND(db, k, nullptr);
  return 0;
}
}  // namespace dbtest
#endif  // QXBASE_TESTS_FILES_DB_TEST_FILES_H
