// Copy-or-reference block rules for both element shapes in use: 8 inline bytes and none.
#include "containers/data_block.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "qx_test.h"

namespace {

struct Element {  // the containers' layout
  std::uint32_t size = 0;
  unsigned char data[8] = {};  // pointer-wide and misaligned
};

template <typename Rules>
void CheckRules(std::uint32_t inline_bytes) {
  unsigned char source[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMN", zeros[40] = {}, out[48];
  // Copy, copy from a null source or reference; the count word (bit 31 marks a reference).
  constexpr std::pair<char, std::uint32_t> kRows[] = {
      {'c', 0},  {'c', 8},           {'c', 9}, {'z', 3},
      {'z', 12}, {'c', 0x80000006u}, {'r', 0}, {'r', 0x80000028u}};
  for (const auto &[how, count_word] : kRows) {
    SCOPED_TRACE(testing::Message() << inline_bytes << how << count_word);
    std::uint32_t count = count_word & qx::kCountMask, copied = count < 10 ? count : 10, got = 0;
    const bool owned = how != 'r' && count > inline_bytes;
    Element e;
    const unsigned long before = qx::heap::RequestCount();
    ASSERT_TRUE(how == 'r' ? (Rules::StoreReference(e.size, e.data, source, count_word), true)
                           : Rules::StoreCopy(e.size, e.data, how == 'z' ? nullptr : source,
                                              count_word, "data_block_test", __LINE__));
    EXPECT_EQ(qx::heap::RequestCount() - before, owned ? 1u : 0u);
    EXPECT_FALSE((qxtest::FailAllocation(1),
                  Rules::StoreCopy(e.size, e.data, zeros, 30, "data_block_test", __LINE__)));
    EXPECT_EQ(e.size, count | (how == 'r' ? qx::kByReference : 0u)) << "refused: left as it was";
    EXPECT_FALSE(Rules::OverwriteInPlace(e.size, e.data, source + 1, count + 1));
    EXPECT_EQ(Rules::OverwriteInPlace(e.size, e.data, source + 1, count), owned) << "own only";
    std::memset(out, 0xAB, sizeof out);
    EXPECT_EQ(Rules::Retrieve(e.size, e.data, out, 10, &got), count > 10);
    EXPECT_EQ(got, count);
    EXPECT_EQ(std::memcmp(out, owned ? source + 1 : how == 'z' ? zeros : source, copied), 0);
    EXPECT_EQ(out[copied], 0xAB) << "wrote past the copied bytes";
    EXPECT_EQ(Rules::Release(e.size, e.data, "data_block_test", __LINE__), 1);  // ASan sees leaks
  }
}

TEST(DataBlock, EightInlineBytesAndNone) {
  CheckRules<qx::BlockRules<8>>(8);
  CheckRules<qx::BlockRules<0>>(0);
}

}  // namespace
