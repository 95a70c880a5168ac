// Population-count kernels of the bit sets, one copy per instruction set, and
// the run-time choice between them. See popcount.h.
//
// Every kernel is one pass over the words. The scalar kernels read two words
// at a time as one 64-bit value; the vector kernels take 8 (AVX2) or 16
// (AVX-512) words per step and finish the remainder with the scalar code of
// the same instruction set (AVX-512 with a masked load instead). The AVX2
// kernel counts the bits of each byte by nibble lookup and keeps per-byte
// sums for at most 31 steps (31 * 8 < 256) before widening them, so no sum
// can overflow. Each operation (count, and/or, each/and) is described once
// by a small struct that every path applies.
#include "containers/popcount.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#define QX_INLINE inline __attribute__((always_inline))
#define QX_TARGET_POPCNT __attribute__((target("popcnt")))
#define QX_TARGET_AVX2 __attribute__((target("avx2,popcnt")))
#define QX_TARGET_AVX512 __attribute__((target("avx512f,avx512vpopcntdq,popcnt")))

namespace qx::popcount {

const Kernels *g_active = nullptr;

namespace {

using u32 = std::uint32_t;
using u64 = std::uint64_t;

QX_INLINE u64 Load64(const u32 *p) {
  u64 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// ---- Counting one 64-bit value ------------------------------------------

struct SoftwareBits {
  static QX_INLINE u64 Of(u64 x) {
    x = x - ((x >> 1) & 0x5555555555555555ull);
    x = (x & 0x3333333333333333ull) + ((x >> 2) & 0x3333333333333333ull);
    x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0Full;
    return (x * 0x0101010101010101ull) >> 56;
  }
};

// Expands to the POPCNT instruction inside functions compiled for it.
struct HardwareBits {
  static QX_INLINE u64 Of(u64 x) { return static_cast<u64>(__builtin_popcountll(x)); }
};

// ---- The operations, each written once for every path --------------------

struct CountOp {
  static constexpr int kOut = 1;
  template <class Pop>
  static QX_INLINE void Scalar(u64 a, u64, u64 *out) {
    out[0] += Pop::Of(a);
  }
  static QX_TARGET_AVX2 QX_INLINE void Avx2(__m256i a, __m256i, __m256i *v) { v[0] = a; }
  static QX_TARGET_AVX512 QX_INLINE void Avx512(__m512i a, __m512i, __m512i *v) { v[0] = a; }
};

struct AndOrOp {
  static constexpr int kOut = 2;
  template <class Pop>
  static QX_INLINE void Scalar(u64 a, u64 b, u64 *out) {
    out[0] += Pop::Of(a & b);
    out[1] += Pop::Of(a | b);
  }
  static QX_TARGET_AVX2 QX_INLINE void Avx2(__m256i a, __m256i b, __m256i *v) {
    v[0] = _mm256_and_si256(a, b);
    v[1] = _mm256_or_si256(a, b);
  }
  static QX_TARGET_AVX512 QX_INLINE void Avx512(__m512i a, __m512i b, __m512i *v) {
    v[0] = _mm512_and_si512(a, b);
    v[1] = _mm512_or_si512(a, b);
  }
};

struct EachAndOp {
  static constexpr int kOut = 3;
  template <class Pop>
  static QX_INLINE void Scalar(u64 a, u64 b, u64 *out) {
    out[0] += Pop::Of(a);
    out[1] += Pop::Of(b);
    out[2] += Pop::Of(a & b);
  }
  static QX_TARGET_AVX2 QX_INLINE void Avx2(__m256i a, __m256i b, __m256i *v) {
    v[0] = a;
    v[1] = b;
    v[2] = _mm256_and_si256(a, b);
  }
  static QX_TARGET_AVX512 QX_INLINE void Avx512(__m512i a, __m512i b, __m512i *v) {
    v[0] = a;
    v[1] = b;
    v[2] = _mm512_and_si512(a, b);
  }
};

// ---- Scalar driver ---------------------------------------------------------

template <class Op, class Pop>
QX_INLINE void ScalarPass(const u32 *a, const u32 *b, std::size_t n, u64 *out) {
  std::size_t i = 0;
  for (; i + 2 <= n; i += 2)
    Op::template Scalar<Pop>(Load64(a + i), Load64(b + i), out);
  if (i < n) Op::template Scalar<Pop>(a[i], b[i], out);
}

// ---- AVX2 driver -----------------------------------------------------------

QX_TARGET_AVX2 QX_INLINE __m256i ByteCounts(__m256i v) {
  const __m256i lookup = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4, 0, 1, 1,
                                          2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
  const __m256i low = _mm256_set1_epi8(0x0F);
  __m256i lo = _mm256_and_si256(v, low);
  __m256i hi = _mm256_and_si256(_mm256_srli_epi16(v, 4), low);
  return _mm256_add_epi8(_mm256_shuffle_epi8(lookup, lo), _mm256_shuffle_epi8(lookup, hi));
}

QX_TARGET_AVX2 QX_INLINE u64 HorizontalSum(__m256i v) {
  __m128i s = _mm_add_epi64(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  return static_cast<u64>(_mm_cvtsi128_si64(s)) + static_cast<u64>(_mm_extract_epi64(s, 1));
}

template <class Op>
QX_TARGET_AVX2 QX_INLINE void Avx2Pass(const u32 *a, const u32 *b, std::size_t n, u64 *out) {
  constexpr int k = Op::kOut;
  constexpr std::size_t kWords = 8;      // words per 256-bit step
  constexpr std::size_t kMaxSteps = 31;  // per-byte sums stay below 256
  const __m256i zero = _mm256_setzero_si256();
  __m256i total[k];
  for (int j = 0; j < k; ++j)
    total[j] = zero;
  std::size_t i = 0;
  while (n - i >= kWords) {
    std::size_t steps = std::min((n - i) / kWords, kMaxSteps);
    __m256i bytes[k];
    for (int j = 0; j < k; ++j)
      bytes[j] = zero;
    for (std::size_t s = 0; s < steps; ++s, i += kWords) {
      __m256i v[k];
      Op::Avx2(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(a + i)),
               _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i)), v);
      for (int j = 0; j < k; ++j)
        bytes[j] = _mm256_add_epi8(bytes[j], ByteCounts(v[j]));
    }
    for (int j = 0; j < k; ++j)
      total[j] = _mm256_add_epi64(total[j], _mm256_sad_epu8(bytes[j], zero));
  }
  for (int j = 0; j < k; ++j)
    out[j] += HorizontalSum(total[j]);
  ScalarPass<Op, HardwareBits>(a + i, b + i, n - i, out);
}

// ---- AVX-512 driver --------------------------------------------------------

template <class Op>
QX_TARGET_AVX512 QX_INLINE void Avx512Pass(const u32 *a, const u32 *b, std::size_t n, u64 *out) {
  constexpr int k = Op::kOut;
  constexpr std::size_t kWords = 16;
  __m512i total[k];
  for (int j = 0; j < k; ++j)
    total[j] = _mm512_setzero_si512();
  std::size_t i = 0;
  for (; n - i >= kWords; i += kWords) {
    __m512i v[k];
    Op::Avx512(_mm512_loadu_si512(a + i), _mm512_loadu_si512(b + i), v);
    for (int j = 0; j < k; ++j)
      total[j] = _mm512_add_epi64(total[j], _mm512_popcnt_epi64(v[j]));
  }
  if (i < n) {
    // Lanes outside the mask are neither read nor counted.
    const __mmask16 mask = static_cast<__mmask16>((1u << (n - i)) - 1u);
    __m512i v[k];
    Op::Avx512(_mm512_maskz_loadu_epi32(mask, a + i), _mm512_maskz_loadu_epi32(mask, b + i), v);
    for (int j = 0; j < k; ++j)
      total[j] = _mm512_add_epi64(total[j], _mm512_popcnt_epi64(v[j]));
  }
  // Spilled and summed by hand: GCC 12's reduction intrinsic trips -Wuninitialized.
  for (int j = 0; j < k; ++j) {
    u64 lanes[8];
    _mm512_storeu_si512(lanes, total[j]);
    for (u64 lane : lanes)
      out[j] += lane;
  }
}

// Counts of a set fit an int (a set has at most INT_MAX elements), and the
// signed conversion to double is the cheap one.
QX_INLINE int FinishTanimoto(u64 both, u64 either, int *common, int *union_count,
                             double *coefficient) {
  const int c = static_cast<int>(both), u = static_cast<int>(either);
  if (common != nullptr) *common = c;
  if (union_count != nullptr) *union_count = u;
  if (coefficient != nullptr) *coefficient = u == 0 ? 1.0 : static_cast<double>(c) / u;
  return u;
}

QX_INLINE double FinishCosine(u64 in_a, u64 in_b, u64 both) {
  if (in_a == 0 || in_b == 0) return in_a == in_b ? 1.0 : 0.0;
  const double product = static_cast<double>(static_cast<int>(in_a)) * static_cast<int>(in_b);
  return static_cast<int>(both) / std::sqrt(product);
}

// ---- One set of entry points per path ------------------------------------

// Instantiates the four kernels of one path from its driver; `attrs` is the
// target attribute of the path (empty for the portable one).
#define QX_DEFINE_PATH(name, attrs, PASS)                                          \
  attrs u64 name##Count(const u32 *w, std::size_t n) {                             \
    u64 out[1] = {0};                                                              \
    PASS(CountOp, w, w, n, out);                                                   \
    return out[0];                                                                 \
  }                                                                                \
  attrs int name##Tanimoto(const u32 *a, const u32 *b, std::size_t n, int *common, \
                           int *union_count, double *coefficient) {                \
    u64 out[2] = {0, 0};                                                           \
    PASS(AndOrOp, a, b, n, out);                                                   \
    return FinishTanimoto(out[0], out[1], common, union_count, coefficient);       \
  }                                                                                \
  attrs double name##Cosine(const u32 *a, const u32 *b, std::size_t n) {           \
    u64 out[3] = {0, 0, 0};                                                        \
    PASS(EachAndOp, a, b, n, out);                                                 \
    return FinishCosine(out[0], out[1], out[2]);                                   \
  }                                                                                \
  constexpr Kernels k##name = {name##Count, name##Tanimoto, name##Cosine};

#define QX_PORTABLE_PASS(Op, a, b, n, out) ScalarPass<Op, SoftwareBits>(a, b, n, out)
#define QX_POPCNT_PASS(Op, a, b, n, out) ScalarPass<Op, HardwareBits>(a, b, n, out)
#define QX_AVX2_PASS(Op, a, b, n, out) Avx2Pass<Op>(a, b, n, out)
#define QX_AVX512_PASS(Op, a, b, n, out) Avx512Pass<Op>(a, b, n, out)

QX_DEFINE_PATH(Portable, , QX_PORTABLE_PASS)
QX_DEFINE_PATH(Popcnt, QX_TARGET_POPCNT, QX_POPCNT_PASS)
QX_DEFINE_PATH(Avx2, QX_TARGET_AVX2, QX_AVX2_PASS)
QX_DEFINE_PATH(Avx512, QX_TARGET_AVX512, QX_AVX512_PASS)

constexpr const Kernels *kPaths[] = {&kPortable, &kPopcnt, &kAvx2, &kAvx512};
constexpr const char *kNames[] = {"portable", "popcnt", "avx2", "avx512-vpopcntdq"};

}  // namespace

const char *PathName(Path path) {
  return kNames[static_cast<int>(path)];
}

bool Supported(Path path) {
  __builtin_cpu_init();
  switch (path) {
    case Path::kPortable:
      return true;
    case Path::kPopcnt:
      return __builtin_cpu_supports("popcnt");
    case Path::kAvx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
    case Path::kAvx512:
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vpopcntdq") &&
             __builtin_cpu_supports("popcnt");
    default:
      return false;
  }
}

const Kernels &KernelsFor(Path path) {
  return *kPaths[static_cast<int>(path)];
}

Path BestPath() {
  static const Path best = [] {
    for (Path p : {Path::kAvx512, Path::kAvx2, Path::kPopcnt})
      if (Supported(p)) return p;
    return Path::kPortable;
  }();
  return best;
}

const Kernels &ResolveActive() {
  g_active = &KernelsFor(BestPath());
  return *g_active;
}

bool Select(Path path) {
  if (path >= Path::kCount || !Supported(path)) return false;
  g_active = &KernelsFor(path);
  return true;
}

}  // namespace qx::popcount
