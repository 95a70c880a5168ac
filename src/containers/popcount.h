// Population counts over arrays of 32-bit set words, with run-time dispatch.
//
// The library is built for the baseline x86-64 target, which has no POPCNT
// instruction, yet fingerprint similarity is the hottest loop its callers run.
// Each kernel is therefore compiled several times for different instruction
// sets (portable bit arithmetic, POPCNT, AVX2, AVX-512 VPOPCNTDQ) and the best
// one the running CPU offers is chosen once, on first use. Every path returns
// exactly the same numbers; only the speed differs. Words are read with
// unaligned loads (a set's words start 4 bytes into its record) and any count
// of words is accepted, including odd counts and zero.
#ifndef QXBASE_CONTAINERS_POPCOUNT_H
#define QXBASE_CONTAINERS_POPCOUNT_H

#include <cstddef>
#include <cstdint>

namespace qx::popcount {

// One pass over the words of one or two bit strings of equal length.
struct Kernels {
  // Number of set bits in w[0..n).
  std::uint64_t (*count)(const std::uint32_t *w, std::size_t n);
  // The whole Tanimoto computation of two equal-length bit strings: common
  // and union counts and their ratio (1.0 for a zero union) into the outputs
  // that are not null; returns the union count. The similarity computations
  // are kept whole in each path so an entry point costs one jump on top of
  // the count.
  int (*tanimoto)(const std::uint32_t *a, const std::uint32_t *b, std::size_t n, int *common,
                  int *union_count, double *coefficient);
  // The cosine coefficient |a & b| / sqrt(|a| |b|): 1.0 when both strings are
  // empty, 0.0 when one is.
  double (*cosine)(const std::uint32_t *a, const std::uint32_t *b, std::size_t n);
};

enum class Path { kPortable = 0, kPopcnt, kAvx2, kAvx512, kCount };

// Printable name of a path ("portable", "popcnt", "avx2", "avx512-vpopcntdq").
const char *PathName(Path path);
// True when the running CPU (and its operating system) can execute `path`.
bool Supported(Path path);
// The kernels of one path; only call them when Supported(path).
const Kernels &KernelsFor(Path path);
// The best supported path, chosen on first use.
Path BestPath();

// The kernels every set routine calls. Resolved once; a test or benchmark may
// force another supported path with Select (returns false, changing nothing,
// when the path is not supported).
extern const Kernels *g_active;
const Kernels &ResolveActive();
inline const Kernels &Active() {
  return g_active != nullptr ? *g_active : ResolveActive();
}
bool Select(Path path);

// Set bits of one word, without a call into a helper library.
inline int CountWord(std::uint32_t w) {
  w = w - ((w >> 1) & 0x55555555u);
  w = (w & 0x33333333u) + ((w >> 2) & 0x33333333u);
  w = (w + (w >> 4)) & 0x0F0F0F0Fu;
  return static_cast<int>((w * 0x01010101u) >> 24);
}

}  // namespace qx::popcount

#endif  // QXBASE_CONTAINERS_POPCOUNT_H
