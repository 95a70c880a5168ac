// Copy-or-reference block rules for both element shapes in use: 8 inline
// bytes (list, queue, stack) and none (hash table).
#include "containers/data_block.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <tuple>

#include "error/heap.h"
#include "qx_test.h"

namespace {

constexpr const char *kTag = "data_block_test";

// The containers' layout: a size word, then a misaligned pointer-wide field.
struct Element {
  std::uint32_t size = 0;
  unsigned char data[8] = {};
};

template <typename Rules>
void CheckRules(std::uint32_t inline_bytes) {
  unsigned char source[40], zeros[40] = {};
  for (unsigned i = 0; i < sizeof source; ++i)
    source[i] = static_cast<unsigned char>(i * 7 + 1);
  // By reference, from a null source, the count word, the retrieval buffer size.
  constexpr std::tuple<bool, bool, std::uint32_t, std::uint32_t> kRows[] = {
      {false, false, 0, 40}, {false, false, 8, 40},
      {false, false, 9, 4},  {false, false, 33, 40},
      {false, false, 5, 0},  {false, true, 3, 40},
      {false, true, 12, 40}, {false, false, 0x80000006u, 40},
      {true, false, 0, 40},  {true, false, 0x80000028u, 10}};
  for (const auto &[reference, null_source, count_word, buffer] : kRows) {
    SCOPED_TRACE(testing::Message() << inline_bytes << ' ' << count_word << ' ' << reference);
    const std::uint32_t count = count_word & qx::kCountMask;  // bit 31 marks a reference
    const bool owned = !reference && count > inline_bytes;
    const unsigned char *bytes = null_source ? nullptr : source;
    Element e;
    const unsigned long before = qx::heap::RequestCount();
    if (reference) {
      Rules::StoreReference(e.size, e.data, bytes, count_word);
    } else {
      ASSERT_TRUE(Rules::StoreCopy(e.size, e.data, bytes, count_word, kTag, __LINE__));
    }
    EXPECT_EQ(qx::heap::RequestCount() - before, owned ? 1u : 0u);
    EXPECT_EQ(e.size, count | (reference ? qx::kByReference : 0u));
    EXPECT_EQ(Rules::OwnsStorage(e.size), owned);
    void *at = Rules::Address(e.size, e.data);
    EXPECT_TRUE(!reference || at == source);
    EXPECT_TRUE(reference || owned || inline_bytes == 0 || at == e.data);
    unsigned char out[48];
    std::memset(out, 0xAB, sizeof out);
    std::uint32_t reported = 0;
    EXPECT_EQ(Rules::Retrieve(e.size, e.data, out, buffer, &reported), count > buffer);
    EXPECT_EQ(reported, count);
    const std::uint32_t copied = count < buffer ? count : buffer;
    EXPECT_EQ(std::memcmp(out, null_source ? zeros : source, copied), 0);
    EXPECT_EQ(out[copied], 0xAB) << "wrote past the copied bytes";
    EXPECT_EQ(Rules::Release(e.size, e.data, kTag, __LINE__), 1);  // leaks show under ASan
  }

  Element owned, referenced;
  ASSERT_TRUE(Rules::StoreCopy(owned.size, owned.data, source, 20, kTag, __LINE__));
  void *storage = Rules::Address(owned.size, owned.data);
  EXPECT_FALSE(Rules::OverwriteInPlace(owned.size, owned.data, zeros, 19));
  EXPECT_TRUE(Rules::OverwriteInPlace(owned.size, owned.data, zeros, 20));
  EXPECT_EQ(Rules::Address(owned.size, owned.data), storage);
  EXPECT_EQ(std::memcmp(storage, zeros, 20), 0);
  Rules::Release(owned.size, owned.data, kTag, __LINE__);
  Rules::StoreReference(referenced.size, referenced.data, source, 20);
  EXPECT_FALSE(Rules::OverwriteInPlace(referenced.size, referenced.data, zeros, 20));
  EXPECT_EQ(source[0], 1) << "a reference must never be written through";
  {
    qxtest::FailAllocation guard(1);
    EXPECT_FALSE(Rules::StoreCopy(referenced.size, referenced.data, zeros, 30, kTag, __LINE__));
  }
  EXPECT_EQ(referenced.size, 20u | qx::kByReference) << "a refused copy leaves the element";
  EXPECT_EQ(Rules::Address(referenced.size, referenced.data), static_cast<void *>(source));
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
}

TEST(DataBlock, EightInlineBytes) {
  CheckRules<qx::BlockRules<8>>(8);
}

TEST(DataBlock, NoInlineBytes) {
  CheckRules<qx::BlockRules<0>>(0);
}

}  // namespace
