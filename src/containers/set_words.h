// Word arithmetic of the bit sets, shared by the set routines and their file
// and string forms. Element e is bit e % 32 of word e / 32; a set of n
// elements has (n-1)/32 + 1 words and the bits of its last word at and above n
// are zero.
#ifndef QXBASE_CONTAINERS_SET_WORDS_H
#define QXBASE_CONTAINERS_SET_WORDS_H

#include <cstdint>

#include "common/error_record.h"
#include "utl_set.h"

namespace qx::set {

inline constexpr const char *kTag = "utl_set";
inline constexpr int kWordBits = 32;

inline constexpr ErrorRecord kBadSetSize{"UTL", "SET", kFatal, "BAD_SET_SIZE"};
inline constexpr ErrorRecord kDiffSize{"UTL", "SET", kFatal, "DIFF_SIZE"};
inline constexpr ErrorRecord kOutRange{"UTL", "SET", kFatal, "OUT_RANGE"};
inline constexpr ErrorRecord kIllegalValue{"UTL", "SET", kWarning, "ILLEGAL_VALUE"};

// Words of a set of n >= 1 elements.
inline constexpr int WordCount(int n) {
  return (n - 1) / kWordBits + 1;
}
inline int WordCount(const UTL_SET *set) {
  return WordCount(set->size);
}

// Record bytes of a set of n >= 1 elements: the size word and its words.
inline constexpr unsigned int RecordBytes(int n) {
  return 4u * static_cast<unsigned int>(WordCount(n) + 1);
}

// The valid bits of the last word of a set of n elements.
inline constexpr std::uint32_t LastWordMask(int n) {
  int used = n % kWordBits;
  return used == 0 ? ~std::uint32_t{0} : (std::uint32_t{1} << used) - 1u;
}

// Clears the bits at and above n, restoring the invariant after a whole-word
// operation that may have set them.
inline void ClearUnusedBits(UTL_SET *set) {
  set->words[WordCount(set) - 1] &= LastWordMask(set->size);
}

// A new zeroed set of n elements; n outside 1 .. INT_MAX records BAD_SET_SIZE
// under "UTL_SET_CREATE". Every creating routine goes through it.
UTL_SET *NewSet(long long n);

// As NewSet, adding the trace `caller` on failure.
UTL_SET *NewSetFor(long long n, const char *caller);

}  // namespace qx::set

#endif  // QXBASE_CONTAINERS_SET_WORDS_H
