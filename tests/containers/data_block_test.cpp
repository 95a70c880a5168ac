// Copy-or-reference block rules, for both element shapes in use: 8 inline
// bytes (list, queue, stack) and none (hash table).
#include "containers/data_block.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "error/heap.h"
#include "qx_test.h"
#include "utl_error.h"

namespace {

constexpr const char *kTag = "data_block_test";

// An element as the containers lay it out: a size word and a pointer-wide,
// deliberately misaligned data field.
struct Element {
  std::uint32_t size = 0;
  unsigned char data[8] = {};
};

template <std::uint32_t kInline>
struct Shape {
  using Rules = qx::BlockRules<kInline>;
  static constexpr std::uint32_t kCapacity = kInline;
};

template <typename T>
class DataBlockTest : public ::testing::Test {};
using Shapes = ::testing::Types<Shape<8>, Shape<0>>;
TYPED_TEST_SUITE(DataBlockTest, Shapes);

unsigned char g_source[64];

void FillSource() {
  for (unsigned i = 0; i < sizeof g_source; ++i)
    g_source[i] = static_cast<unsigned char>(i * 7 + 1);
}

// Copies of every interesting count: where they live, what they cost, and
// that they read back exactly.
TYPED_TEST(DataBlockTest, CopiesLiveInlineUpToCapacityAndOwnStorageBeyond) {
  using Rules = typename TypeParam::Rules;
  FillSource();
  constexpr std::uint32_t kCounts[] = {0, 1, 7, 8, 9, 33};
  for (std::uint32_t count : kCounts) {
    SCOPED_TRACE(count);
    Element e;
    const bool expect_inline = count <= TypeParam::kCapacity && TypeParam::kCapacity > 0;
    const bool expect_owned = count > TypeParam::kCapacity;
    const unsigned long before = qx::heap::RequestCount();
    ASSERT_TRUE(Rules::StoreCopy(e.size, e.data, g_source, count, kTag, __LINE__));
    EXPECT_EQ(qx::heap::RequestCount() - before, expect_owned ? 1u : 0u);
    EXPECT_EQ(e.size, count);
    EXPECT_EQ(Rules::OwnsStorage(e.size), expect_owned);
    void *where = Rules::Address(e.size, e.data);
    if (expect_inline) {
      EXPECT_EQ(where, static_cast<void *>(e.data));
    } else if (expect_owned) {
      EXPECT_NE(where, static_cast<void *>(e.data));
    }
    unsigned char out[64] = {};
    std::uint32_t reported = 999;
    EXPECT_FALSE(Rules::Retrieve(e.size, e.data, out, sizeof out, &reported));
    EXPECT_EQ(reported, count);
    EXPECT_EQ(std::memcmp(out, g_source, count), 0);
    EXPECT_EQ(Rules::Release(e.size, e.data, kTag, __LINE__), 1);
  }
}

TYPED_TEST(DataBlockTest, ReferencesAreMarkedAndNeverOwned) {
  using Rules = typename TypeParam::Rules;
  FillSource();
  constexpr std::uint32_t kCounts[] = {0, 5, 8, 40};
  for (std::uint32_t count : kCounts) {
    SCOPED_TRACE(count);
    Element e;
    const unsigned long before = qx::heap::RequestCount();
    Rules::StoreReference(e.size, e.data, g_source, count);
    EXPECT_EQ(e.size, count | qx::kByReference);
    EXPECT_EQ(qx::BlockCount(e.size), count);
    EXPECT_FALSE(Rules::OwnsStorage(e.size));
    EXPECT_EQ(Rules::Address(e.size, e.data), static_cast<void *>(g_source));
    // Releasing a reference must leave the caller's (static) data alone.
    EXPECT_EQ(Rules::Release(e.size, e.data, kTag, __LINE__), 1);
    EXPECT_EQ(qx::heap::RequestCount(), before);
  }
}

TYPED_TEST(DataBlockTest, RetrievalIntoShortBufferIsCutAndReportsFullCount) {
  using Rules = typename TypeParam::Rules;
  FillSource();
  struct Row {
    std::uint32_t count, buffer;
    bool cut;
  };
  constexpr Row kRows[] = {
      {10, 4, true}, {10, 10, false}, {3, 0, true}, {8, 7, true}, {0, 0, false}};
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.count * 100 + row.buffer);
    Element e;
    ASSERT_TRUE(Rules::StoreCopy(e.size, e.data, g_source, row.count, kTag, __LINE__));
    unsigned char out[16];
    std::memset(out, 0xAB, sizeof out);
    std::uint32_t reported = 0;
    EXPECT_EQ(Rules::Retrieve(e.size, e.data, out, row.buffer, &reported), row.cut);
    EXPECT_EQ(reported, row.count);
    const std::uint32_t copied = row.count < row.buffer ? row.count : row.buffer;
    EXPECT_EQ(std::memcmp(out, g_source, copied), 0);
    EXPECT_EQ(out[copied], 0xAB) << "wrote past the copied bytes";
    Rules::Release(e.size, e.data, kTag, __LINE__);
  }
}

TYPED_TEST(DataBlockTest, OverwriteInPlaceOnlyForOwnedStorageOfTheSameCount) {
  using Rules = typename TypeParam::Rules;
  FillSource();
  Element owned;
  ASSERT_TRUE(Rules::StoreCopy(owned.size, owned.data, g_source, 20, kTag, __LINE__));
  void *storage = Rules::Address(owned.size, owned.data);
  const unsigned char fresh[20] = {9, 9, 9};
  EXPECT_FALSE(Rules::OverwriteInPlace(owned.size, owned.data, fresh, 19));
  EXPECT_TRUE(Rules::OverwriteInPlace(owned.size, owned.data, fresh, 20));
  EXPECT_EQ(Rules::Address(owned.size, owned.data), storage);
  EXPECT_EQ(std::memcmp(storage, fresh, 20), 0);
  Rules::Release(owned.size, owned.data, kTag, __LINE__);

  Element reference;
  Rules::StoreReference(reference.size, reference.data, g_source, 20);
  EXPECT_FALSE(Rules::OverwriteInPlace(reference.size, reference.data, fresh, 20));
  EXPECT_EQ(g_source[0], 1) << "a reference must never be written through";
}

TYPED_TEST(DataBlockTest, NullSourceStoresZeroBytes) {
  using Rules = typename TypeParam::Rules;
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
}

TYPED_TEST(DataBlockTest, RefusedStorageLeavesTheElementUntouched) {
  using Rules = typename TypeParam::Rules;
  FillSource();
  Element e;
  Rules::StoreReference(e.size, e.data, g_source, 4);
  const std::uint32_t before = e.size;
  qxtest::FailAllocation guard(1);
  EXPECT_FALSE(Rules::StoreCopy(e.size, e.data, g_source, 30, kTag, __LINE__));
  EXPECT_EQ(e.size, before);
  EXPECT_EQ(Rules::Address(e.size, e.data), static_cast<void *>(g_source));
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
}

}  // namespace
