// AVX2 build of the FIR kernels (this file alone is compiled with -mavx2 and
// only used when the CPU reports AVX2). Sixteen products per vpmaddwd, the
// same overflow-safe runs as the SSE2 build, then 8- and 4-tap remainders.
#include "rsmpl/fir_kernel_set.h"

#if defined(__AVX2__)
#include <immintrin.h>

#include "rsmpl/fir_kernel.h"
#include "rsmpl/fir_sse2_helpers.h"

namespace rsmpl {
namespace {

inline __m256i widen_pairs256(__m256i part) {
  return _mm256_add_epi64(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(part)),
                          _mm256_cvtepi32_epi64(_mm256_extracti128_si256(part, 1)));
}

struct Avx2Dot {
  template <class Shape, int Taps>
  static int64_t dot(const int16_t *x, const int16_t *w) {
    constexpr int vectors = Taps / 16;
    constexpr int run = vectors > 0 ? safe_run_vectors<Shape, 16>() : 1;
    __m256i acc = _mm256_setzero_si256();
    for (int v0 = 0; v0 < vectors; v0 += run) {
      __m256i part = _mm256_setzero_si256();
      for (int v = v0; v < v0 + run && v < vectors; ++v) {
        const __m256i xs = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(x + 16 * v));
        const __m256i ws = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(w + 16 * v));
        part = _mm256_add_epi32(part, _mm256_madd_epi16(xs, ws));
      }
      acc = _mm256_add_epi64(acc, widen_pairs256(part));
    }
    const __m128i rest = _mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
    return finish_dot<Taps % 16>(rest, x, w, 16 * vectors);
  }

  // One 16-product multiply, its halves folded: 4 taps a lane.
  static __m128i sum16(const int16_t *x, const int16_t *w) {
    const __m256i products =
        _mm256_madd_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(x)),
                          _mm256_loadu_si256(reinterpret_cast<const __m256i *>(w)));
    return _mm_add_epi32(_mm256_castsi256_si128(products), _mm256_extracti128_si256(products, 1));
  }

  // Short phases: one 16-product multiply per phase, its halves folded (4
  // taps a lane, exact), then all phases folded together.
  template <class Shape>
  static void group(const int16_t *span, int16_t *dst) {
    if constexpr (fits_phase_parallel<Shape>()) {
      group_side_by_side<Shape, Avx2Dot>(span, dst);
    } else {
      group_per_phase<Shape, Avx2Dot>(span, dst);
    }
  }
};

constexpr FirKernelSet kAvx2Set = make_kernel_set<Avx2Dot>("avx2");

}  // namespace

const FirKernelSet *fir_kernels_avx2() {
  return __builtin_cpu_supports("avx2") ? &kAvx2Set : nullptr;
}

}  // namespace rsmpl

#else

namespace rsmpl {
const FirKernelSet *fir_kernels_avx2() { return nullptr; }
}  // namespace rsmpl

#endif
