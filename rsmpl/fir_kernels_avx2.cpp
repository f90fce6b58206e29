// AVX2 build of the FIR kernels (this file alone is compiled with -mavx2 and
// only used when the CPU reports AVX2). Sixteen products per vpmaddwd, the
// same overflow-safe runs as the SSE2 build, then 8- and 4-tap remainders.
#include "rsmpl/fir_kernel_set.h"

#if defined(__AVX2__)
#include <immintrin.h>

#include "rsmpl/fir_kernel.h"
#include "rsmpl/fir_reduce_sse2.h"

namespace rsmpl {
namespace {

inline __m256i widen_pairs(__m256i part) {
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
      acc = _mm256_add_epi64(acc, widen_pairs(part));
    }
    __m128i rest = _mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
    int done = 16 * vectors;
    if constexpr (Taps % 16 >= 8) {
      const __m128i xs = _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + done));
      const __m128i ws = _mm_loadu_si128(reinterpret_cast<const __m128i *>(w + done));
      const __m128i part = _mm_madd_epi16(xs, ws);
      rest = _mm_add_epi64(rest, _mm_add_epi64(_mm_cvtepi32_epi64(part),
                                               _mm_cvtepi32_epi64(_mm_unpackhi_epi64(part, part))));
      done += 8;
    }
    if constexpr (Taps % 8 != 0) {
      static_assert(Taps % 8 == 4, "spans are padded to a multiple of 4");
      const __m128i xs = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(x + done));
      const __m128i ws = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(w + done));
      rest = _mm_add_epi64(rest, _mm_cvtepi32_epi64(_mm_madd_epi16(xs, ws)));
    }
    rest = _mm_add_epi64(rest, _mm_unpackhi_epi64(rest, rest));
    return _mm_cvtsi128_si64(rest);
  }

  // Short phases: one 16-product multiply per phase, its halves folded (4
  // taps a lane, exact), then all phases folded together.
  template <class Shape>
  static void group(const int16_t *span, int16_t *dst) {
    if constexpr (fits_phase_parallel<Shape>()) {
      constexpr auto &layout = kPhaseLayout<Shape>;
      __m128i sums[Shape::L];
      for (int phi = 0; phi < Shape::L; ++phi) {
        const __m256i products = _mm256_madd_epi16(
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(span + layout.phase[phi].start)),
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(layout.phase[phi].taps)));
        sums[phi] = _mm_add_epi32(_mm256_castsi256_si128(products),
                                  _mm256_extracti128_si256(products, 1));
      }
      reduce_group<Shape>(sums, dst);
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
