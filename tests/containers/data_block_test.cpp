// Copy-or-reference block rules for both element shapes in use: 8 inline
// bytes (list, queue, stack) and none (hash table).
#include "containers/data_block.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "error/heap.h"
#include "qx_test.h"

namespace {

constexpr const char *kTag = "data_block_test";

// The containers' layout: a size word, then a misaligned pointer-wide field.
struct Element {
  std::uint32_t size = 0;
  unsigned char data[8] = {};
};

template <typename T>
class DataBlock : public ::testing::Test {};
using Shapes = ::testing::Types<qx::BlockRules<8>, qx::BlockRules<0>>;
TYPED_TEST_SUITE(DataBlock, Shapes);

constexpr std::uint32_t InlineCapacity(qx::BlockRules<8> *) {
  return 8;
}
constexpr std::uint32_t InlineCapacity(qx::BlockRules<0> *) {
  return 0;
}

TYPED_TEST(DataBlock, StoresRetrievesAndReleasesByTheRules) {
  using Rules = TypeParam;
  const std::uint32_t capacity = InlineCapacity(static_cast<Rules *>(nullptr));
  unsigned char source[40];
  for (unsigned i = 0; i < sizeof source; ++i)
    source[i] = static_cast<unsigned char>(i * 7 + 1);
  struct Row {
    bool reference;
    std::uint32_t count, buffer;
  };
  constexpr Row kRows[] = {{false, 0, 40},  {false, 1, 40}, {false, 8, 40}, {false, 9, 4},
                           {false, 33, 40}, {false, 5, 0},  {true, 0, 40},  {true, 40, 10}};
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.count * 1000 + row.buffer * 10 + row.reference);
    Element e;
    const bool owned = !row.reference && row.count > capacity;
    const unsigned long before = qx::heap::RequestCount();
    if (row.reference) {
      Rules::StoreReference(e.size, e.data, source, row.count);
    } else {
      ASSERT_TRUE(Rules::StoreCopy(e.size, e.data, source, row.count, kTag, __LINE__));
    }
    EXPECT_EQ(qx::heap::RequestCount() - before, owned ? 1u : 0u);
    EXPECT_EQ(e.size, row.count | (row.reference ? qx::kByReference : 0u));
    EXPECT_EQ(Rules::OwnsStorage(e.size), owned);
    void *at = Rules::Address(e.size, e.data);
    if (row.reference) {
      EXPECT_EQ(at, static_cast<void *>(source));
    } else if (capacity > 0 && row.count <= capacity) {
      EXPECT_EQ(at, static_cast<void *>(e.data));
    }

    unsigned char out[48];
    std::memset(out, 0xAB, sizeof out);
    std::uint32_t reported = 0;
    EXPECT_EQ(Rules::Retrieve(e.size, e.data, out, row.buffer, &reported), row.count > row.buffer);
    EXPECT_EQ(reported, row.count);
    const std::uint32_t copied = row.count < row.buffer ? row.count : row.buffer;
    EXPECT_EQ(std::memcmp(out, source, copied), 0);
    EXPECT_EQ(out[copied], 0xAB) << "wrote past the copied bytes";
    EXPECT_EQ(Rules::Release(e.size, e.data, kTag, __LINE__), 1);  // leaks show under ASan
  }
  EXPECT_EQ(source[0], 1) << "a reference must never be written through";
}

TYPED_TEST(DataBlock, OverwritesOnlyOwnedStorageOfTheSameCount) {
  using Rules = TypeParam;
  const unsigned char old_bytes[20] = {1, 2, 3};
  const unsigned char fresh[20] = {9, 9, 9};
  Element owned, reference;
  ASSERT_TRUE(Rules::StoreCopy(owned.size, owned.data, old_bytes, 20, kTag, __LINE__));
  void *storage = Rules::Address(owned.size, owned.data);
  EXPECT_FALSE(Rules::OverwriteInPlace(owned.size, owned.data, fresh, 19));
  EXPECT_TRUE(Rules::OverwriteInPlace(owned.size, owned.data, fresh, 20));
  EXPECT_EQ(Rules::Address(owned.size, owned.data), storage);
  EXPECT_EQ(std::memcmp(storage, fresh, 20), 0);
  Rules::Release(owned.size, owned.data, kTag, __LINE__);
  Rules::StoreReference(reference.size, reference.data, old_bytes, 20);
  EXPECT_FALSE(Rules::OverwriteInPlace(reference.size, reference.data, fresh, 20));
}

TYPED_TEST(DataBlock, NullSourceIsZeroBytesAndRefusalLeavesTheElement) {
  using Rules = TypeParam;
  for (std::uint32_t count : {3u, 12u}) {
    Element e;
    std::memset(e.data, 0x55, sizeof e.data);
    ASSERT_TRUE(Rules::StoreCopy(e.size, e.data, nullptr, count, kTag, __LINE__));
    unsigned char out[16];
    std::memset(out, 0x55, sizeof out);
    Rules::Retrieve(e.size, e.data, out, sizeof out, nullptr);
    for (std::uint32_t i = 0; i < count; ++i)
      EXPECT_EQ(out[i], 0) << i;
    Rules::Release(e.size, e.data, kTag, __LINE__);
  }
  unsigned char mine[30] = {};
  Element e;
  Rules::StoreReference(e.size, e.data, mine, 4);
  qxtest::FailAllocation guard(1);
  EXPECT_FALSE(Rules::StoreCopy(e.size, e.data, mine, 30, kTag, __LINE__));
  EXPECT_EQ(e.size, 4u | qx::kByReference);
  EXPECT_EQ(Rules::Address(e.size, e.data), static_cast<void *>(mine));
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
}

}  // namespace
