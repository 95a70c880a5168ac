// utl_set: fixed-size bit sets, their algebra, counting, iteration and
// similarity coefficients.
//
// A set is one allocation: the element count n, then (n-1)/32 + 1 words with
// element e in bit e % 32 of word e / 32. The bits of the last word at and
// above n are zero after every routine (the complement and the fill mask them
// off), which lets counting and searching run over whole words without a
// final correction. Whole-word loops do the algebra; counts go through the
// population-count kernels chosen for the CPU at run time (popcount.h); only
// routines that return a new set allocate. The file and string forms live in
// utl_set_io.cpp.
//
// Kept as callers rely on them: UTL_SET_INSERT_ANY_SIZE refuses element 0 and
// grows by 50 elements of headroom; UTL_SET_NSMALLER reports under the name
// "UTL_SET_ORDINALITY"; the any-size operations extend a temporary copy of
// the smaller operand rather than working on the shorter words in place.
#include "utl_set.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

#include "containers/popcount.h"
#include "containers/set_words.h"
#include "utl_mem.h"

namespace qx::set {

UTL_SET *NewSet(long long n) {
  if (n < 1 || n > INT_MAX)
    return Fail(kBadSetSize, "UTL_SET_CREATE", static_cast<UTL_SET *>(nullptr));
  int size = static_cast<int>(n);
  auto *set = static_cast<UTL_SET *>(UTL_DMEM_CALLOC(1, RecordBytes(size), kTag, __LINE__));
  if (set == nullptr) return TraceAndFail("UTL_SET_CREATE", set);
  set->size = size;
  return set;
}

UTL_SET *NewSetFor(long long n, const char *caller) {
  UTL_SET *set = NewSet(n);
  if (set == nullptr) UTL_ERROR_ADD_TRACE(caller);
  return set;
}

namespace {

using popcount::CountWord;
using u32 = std::uint32_t;

enum class Combine { kAnd, kOr, kDiff };

bool InRange(const UTL_SET *set, int e) {
  return e >= 0 && e < set->size;
}

// out = a op b over `count` words; one loop per operation so each vectorizes.
void CombineWords(Combine op, u32 *out, const u32 *a, const u32 *b, int count) {
  switch (op) {
    case Combine::kAnd:
      for (int i = 0; i < count; ++i)
        out[i] = a[i] & b[i];
      break;
    case Combine::kOr:
      for (int i = 0; i < count; ++i)
        out[i] = a[i] | b[i];
      break;
    case Combine::kDiff:
      for (int i = 0; i < count; ++i)
        out[i] = a[i] & ~b[i];
      break;
  }
}

// A new set of n >= set->size elements holding set's members: the core of
// UTL_SET_COPY, UTL_SET_GET and UTL_SET_EXTEND.
UTL_SET *CopyWithSize(const UTL_SET *set, long long n, const char *caller) {
  UTL_SET *copy = NewSetFor(n, caller);
  if (copy != nullptr) std::memcpy(copy->words, set->words, 4u * WordCount(set));
  return copy;
}

// The fixed-size operations returning a new set: UTL_SET_AND, _OR, _DIFF and
// the last step of their any-size twins.
UTL_SET *NewCombination(Combine op, const UTL_SET *a, const UTL_SET *b, const char *routine) {
  if (a->size != b->size) return Fail(kDiffSize, routine, static_cast<UTL_SET *>(nullptr));
  UTL_SET *result = NewSetFor(a->size, routine);
  if (result != nullptr) CombineWords(op, result->words, a->words, b->words, WordCount(a));
  return result;
}

int CombineInPlace(Combine op, UTL_SET *a, const UTL_SET *b, const char *routine) {
  if (a->size != b->size) return Fail(kDiffSize, routine, 0);
  CombineWords(op, a->words, a->words, b->words, WordCount(a));
  return 1;
}

// The any-size operations: the smaller operand is extended on a temporary
// copy, the fixed-size operation applied, the temporary destroyed.
UTL_SET *CombineAnySize(Combine op, const UTL_SET *a, const UTL_SET *b, const char *routine,
                        const char *fixed_routine) {
  UTL_SET *temporary = nullptr;
  if (a->size != b->size) {
    const bool a_smaller = a->size < b->size;
    const UTL_SET *smaller = a_smaller ? a : b;
    const UTL_SET *larger = a_smaller ? b : a;
    temporary = UTL_SET_EXTEND(smaller, larger->size - smaller->size);
    if (temporary == nullptr) {
      TraceCallSite(routine, 10);
      return nullptr;
    }
    (a_smaller ? a : b) = temporary;
  }
  UTL_SET *result = NewCombination(op, a, b, fixed_routine);
  if (result == nullptr) {
    TraceCallSite(routine, 20);
    ErrorBarrier barrier;
    UTL_SET_DESTROY(temporary);
    return nullptr;
  }
  UTL_SET_DESTROY(temporary);
  return result;
}

// Smallest element >= start that is a member (or, with `members` false, a
// non-member); -1 when there is none.
int FindFrom(const UTL_SET *set, int start, bool members) {
  const int n = set->size;
  if (start >= n) return -1;
  const int last = WordCount(n) - 1;
  const u32 flip = members ? 0u : ~u32{0};
  int w = start / kWordBits;
  u32 bits = (set->words[w] ^ flip) & (~u32{0} << (start % kWordBits));
  for (;;) {
    if (w == last) bits &= LastWordMask(n);
    if (bits != 0) return w * kWordBits + std::countr_zero(bits);
    if (++w > last) return -1;
    bits = set->words[w] ^ flip;
  }
}

// Members among elements 0 .. e-1, for 0 <= e < n.
int CountBelow(const UTL_SET *set, int e) {
  const int full = e / kWordBits;
  int count =
      static_cast<int>(popcount::Active().count(set->words, static_cast<std::size_t>(full)));
  if (e % kWordBits != 0) count += CountWord(set->words[full] & ((u32{1} << (e % kWordBits)) - 1u));
  return count;
}

// Position of the k-th set bit (k from 1) of a word holding at least k.
int SelectBit(u32 word, int k) {
  for (int i = 1; i < k; ++i)
    word &= word - 1u;
  return std::countr_zero(word);
}

void ModifyWord(u32 *word, u32 mask, bool insert) {
  if (insert)
    *word |= mask;
  else
    *word &= ~mask;
}

}  // namespace
}  // namespace qx::set

using namespace qx::set;
using qx::popcount::Active;
using qx::popcount::CountWord;

extern "C" {

// ---- Creation and storage ----------------------------------------------

UTL_SET *UTL_SET_CREATE(int n) {
  return NewSet(n);
}

int UTL_SET_CREATE_STATIC(void *buffer, int n, const UTL_SET *source) {
  if (buffer == nullptr) return 0;
  if (n < 1) return qx::Fail(kBadSetSize, "UTL_SET_CREATE", 0);
  if (source != nullptr && source->size != n)
    return qx::Fail(kDiffSize, "UTL_SET_CREATE_STATIC", 0);
  auto *set = reinterpret_cast<UTL_SET *>(static_cast<unsigned char *>(buffer) + sizeof(void *));
  std::memcpy(buffer, &set, sizeof set);
  set->size = n;
  if (source != nullptr) {
    std::memcpy(set->words, source->words, 4u * WordCount(n));
    ClearUnusedBits(set);
  } else {
    std::memset(set->words, 0, 4u * WordCount(n));
  }
  return 1;
}

int UTL_SET_DESTROY(UTL_SET *set) {
  if (!UTL_DMEM_FREE(set, kTag, __LINE__)) return qx::TraceAndFail("UTL_SET_DESTROY", 0);
  return 1;
}

int UTL_SET_STORAGE_SIZE(const UTL_SET *set) {
  return WordCount(set) + 1;
}

int UTL_SET_SIZEOF(int n) {
  return static_cast<int>((static_cast<long long>(n) - 1) / 8 + 8);
}

UTL_SET *UTL_SET_COPY(const UTL_SET *set) {
  return CopyWithSize(set, set->size, "UTL_SET_COPY");
}

UTL_SET *UTL_SET_GET(const UTL_SET *set) {
  return CopyWithSize(set, set->size, "UTL_SET_GET");
}

int UTL_SET_COPY_INPLACE(UTL_SET *destination, const UTL_SET *source) {
  if (destination->size != source->size) return qx::Fail(kDiffSize, "UTL_SET_COPY_INPLACE", 0);
  std::memmove(destination->words, source->words, 4u * WordCount(source));
  return 1;
}

int UTL_SET_PUT(const UTL_SET *set, void *buffer) {
  std::memcpy(buffer, set, RecordBytes(set->size));
  return 1;
}

UTL_SET *UTL_SET_EXTEND(const UTL_SET *set, int k) {
  if (k < 0) return qx::Fail(kIllegalValue, "UTL_SET_EXTEND", static_cast<UTL_SET *>(nullptr));
  return CopyWithSize(set, static_cast<long long>(set->size) + k, "UTL_SET_EXTEND");
}

// ---- Elements ------------------------------------------------------------

int UTL_SET_INSERT(UTL_SET *set, int e) {
  if (!InRange(set, e)) return qx::Fail(kOutRange, "UTL_SET_INSERT", 0);
  set->words[e / kWordBits] |= 1u << (e % kWordBits);
  return 1;
}

int UTL_SET_DELETE(UTL_SET *set, int e) {
  if (!InRange(set, e)) return qx::Fail(kOutRange, "UTL_SET_DELETE", 0);
  set->words[e / kWordBits] &= ~(1u << (e % kWordBits));
  return 1;
}

int UTL_SET_MEMBER(const UTL_SET *set, int e) {
  return InRange(set, e) && (set->words[e / kWordBits] >> (e % kWordBits) & 1u);
}

int UTL_SET_CLEAR(UTL_SET *set) {
  std::memset(set->words, 0, 4u * WordCount(set));
  return 1;
}

int UTL_SET_FILL(UTL_SET *set) {
  std::memset(set->words, 0xFF, 4u * WordCount(set));
  ClearUnusedBits(set);
  return 1;
}

int UTL_SET_MODIFY_RANGE(UTL_SET *set, int first, int last, int value) {
  first = std::max(first, 0);
  last = std::min(last, set->size - 1);
  if (first > last) return 1;
  const int first_word = first / kWordBits, last_word = last / kWordBits;
  const std::uint32_t head = ~std::uint32_t{0} << (first % kWordBits);
  const std::uint32_t tail = ~std::uint32_t{0} >> (kWordBits - 1 - last % kWordBits);
  if (first_word == last_word) {
    ModifyWord(&set->words[first_word], head & tail, value != 0);
    return 1;
  }
  ModifyWord(&set->words[first_word], head, value != 0);
  const std::uint32_t fill = value != 0 ? ~std::uint32_t{0} : 0u;
  for (int w = first_word + 1; w < last_word; ++w)
    set->words[w] = fill;
  ModifyWord(&set->words[last_word], tail, value != 0);
  return 1;
}

// ---- Predicates ----------------------------------------------------------

int UTL_SET_EMPTY(const UTL_SET *set) {
  return !UTL_SET_NOT_EMPTY(set);
}

int UTL_SET_NOT_EMPTY(const UTL_SET *set) {
  const int count = WordCount(set);
  std::uint32_t any = 0;
  for (int i = 0; i < count; ++i)
    any |= set->words[i];
  return any != 0;
}

int UTL_SET_EQUAL(const UTL_SET *a, const UTL_SET *b) {
  return a->size == b->size && std::memcmp(a->words, b->words, 4u * WordCount(a)) == 0;
}

int UTL_SET_AND_IS_EMPTY(const UTL_SET *a, const UTL_SET *b) {
  // The smaller set's bits above its size are zero, so whole words suffice.
  const int count = std::min(WordCount(a), WordCount(b));
  std::uint32_t any = 0;
  for (int i = 0; i < count; ++i)
    any |= a->words[i] & b->words[i];
  return any == 0;
}

// ---- Algebra -------------------------------------------------------------

UTL_SET *UTL_SET_AND(const UTL_SET *a, const UTL_SET *b) {
  return NewCombination(Combine::kAnd, a, b, "UTL_SET_AND");
}

UTL_SET *UTL_SET_OR(const UTL_SET *a, const UTL_SET *b) {
  return NewCombination(Combine::kOr, a, b, "UTL_SET_OR");
}

UTL_SET *UTL_SET_DIFF(const UTL_SET *a, const UTL_SET *b) {
  return NewCombination(Combine::kDiff, a, b, "UTL_SET_DIFF");
}

UTL_SET *UTL_SET_NOT(const UTL_SET *a) {
  UTL_SET *result = NewSetFor(a->size, "UTL_SET_NOT");
  if (result == nullptr) return nullptr;
  const int count = WordCount(a);
  for (int i = 0; i < count; ++i)
    result->words[i] = ~a->words[i];
  ClearUnusedBits(result);
  return result;
}

UTL_SET *UTL_SET_INTERSECT(const UTL_SET *a, const UTL_SET *b) {
  UTL_SET *result = NewSetFor(std::min(a->size, b->size), "UTL_SET_INTERSECT");
  if (result != nullptr)
    CombineWords(Combine::kAnd, result->words, a->words, b->words, WordCount(result));
  return result;
}

int UTL_SET_AND_INPLACE(UTL_SET *a, const UTL_SET *b) {
  return CombineInPlace(Combine::kAnd, a, b, "UTL_SET_AND_INPLACE");
}

int UTL_SET_OR_INPLACE(UTL_SET *a, const UTL_SET *b) {
  return CombineInPlace(Combine::kOr, a, b, "UTL_SET_OR_INPLACE");
}

int UTL_SET_DIFF_INPLACE(UTL_SET *a, const UTL_SET *b) {
  return CombineInPlace(Combine::kDiff, a, b, "UTL_SET_DIFF_INPLACE");
}

UTL_SET *UTL_SET_AND_ANY_SIZE(const UTL_SET *a, const UTL_SET *b) {
  return CombineAnySize(Combine::kAnd, a, b, "UTL_SET_AND_ANY_SIZE", "UTL_SET_AND");
}

UTL_SET *UTL_SET_OR_ANY_SIZE(const UTL_SET *a, const UTL_SET *b) {
  return CombineAnySize(Combine::kOr, a, b, "UTL_SET_OR_ANY_SIZE", "UTL_SET_OR");
}

UTL_SET *UTL_SET_DIFF_ANY_SIZE(const UTL_SET *a, const UTL_SET *b) {
  return CombineAnySize(Combine::kDiff, a, b, "UTL_SET_DIFF_ANY_SIZE", "UTL_SET_DIFF");
}

UTL_SET *UTL_SET_INSERT_ANY_SIZE(UTL_SET *set, int e) {
  constexpr int kHeadroom = 50;
  if (e == 0) return nullptr;  // deliberate: element 0 is never added this way
  if (set == nullptr) {
    UTL_SET *created = NewSet(static_cast<long long>(e) + kHeadroom);
    if (created != nullptr) UTL_SET_INSERT(created, e);
    return created;
  }
  if (e < set->size) {
    UTL_SET_INSERT(set, e);
    return set;
  }
  UTL_SET *grown = UTL_SET_EXTEND(set, e + kHeadroom - set->size);
  if (grown == nullptr) {
    qx::TraceCallSite("UTL_SET_INSERT_ANY_SIZE", 10);
    return nullptr;
  }
  UTL_SET_DESTROY(set);
  UTL_SET_INSERT(grown, e);
  return grown;
}

// ---- Counting and order --------------------------------------------------

int UTL_SET_CARDINALITY(const UTL_SET *set) {
  return static_cast<int>(Active().count(set->words, static_cast<std::size_t>(WordCount(set))));
}

int UTL_SET_MIN(const UTL_SET *set) {
  return FindFrom(set, 0, true);
}

int UTL_SET_MAX(const UTL_SET *set) {
  for (int w = WordCount(set) - 1; w >= 0; --w)
    if (set->words[w] != 0)
      return w * kWordBits + (kWordBits - 1 - std::countl_zero(set->words[w]));
  return -1;
}

int UTL_SET_MEMBER_NUMBER(const UTL_SET *set, int k) {
  if (k < 1) return -1;
  const int count = WordCount(set);
  for (int w = 0; w < count; ++w) {
    const int here = CountWord(set->words[w]);
    if (k <= here) return w * kWordBits + SelectBit(set->words[w], k);
    k -= here;
  }
  return -1;
}

int UTL_SET_ORDINALITY(const UTL_SET *set, int e) {
  if (!UTL_SET_MEMBER(set, e)) return qx::Fail(kIllegalValue, "UTL_SET_ORDINALITY", 0);
  return CountBelow(set, e) + 1;
}

int UTL_SET_NSMALLER(const UTL_SET *set, int e) {
  // The record names UTL_SET_ORDINALITY on purpose: callers match on it.
  if (!InRange(set, e)) return qx::Fail(kIllegalValue, "UTL_SET_ORDINALITY", -1);
  return CountBelow(set, e);
}

int UTL_SET_NEXT(const UTL_SET *set, int e) {
  if (set == nullptr) return -1;
  if (e < 0) return FindFrom(set, 0, true);
  if (e >= set->size - 1) return -1;
  return FindFrom(set, e + 1, true);
}

int UTL_SET_NEXT_NONMEMBER(const UTL_SET *set, int e) {
  if (set == nullptr) return -1;
  if (e >= set->size - 1) return set->size;
  const int found = FindFrom(set, std::max(e + 1, 0), false);
  return found < 0 ? set->size : found;
}

// ---- Similarity ----------------------------------------------------------

int UTL_SET_TANIMOTO(const UTL_SET *a, const UTL_SET *b, int *common, int *union_count,
                     double *coefficient) {
  if (a->size != b->size) {
    if (union_count != nullptr) *union_count = -1;
    return 0;
  }
  return Active().tanimoto(a->words, b->words, static_cast<std::size_t>(WordCount(a)), common,
                           union_count, coefficient);
}

int UTL_SET_COSINE(const UTL_SET *a, const UTL_SET *b, double *coefficient) {
  if (a->size != b->size) return 0;
  const double c = Active().cosine(a->words, b->words, static_cast<std::size_t>(WordCount(a)));
  if (coefficient != nullptr) *coefficient = c;
  return 1;
}

}  // extern "C"
