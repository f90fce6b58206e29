// SPDX-License-Identifier: MIT
// AVX2 build of the 32-bit high-quality resampler's kernels (compiled with
// -mavx2, used only when the CPU reports AVX2). vpmuldq multiplies the even
// 32-bit lanes into exact 64-bit products: the even taps from loads at t,
// the odd ones from loads one sample on, so no shuffle is needed, and two
// channels share every coefficient load.
#include <immintrin.h>

#include "rsmpl/hq32/kernel.h"

namespace rsmpl {
namespace {

struct Avx2Dot {
  template <int Channels>
  static void sums(const int32_t *x, size_t line, const int32_t *coef, uint32_t taps,
                   int64_t *out) {
    __m256i even0 = _mm256_setzero_si256(), odd0 = even0, even1 = even0, odd1 = even0;
    for (uint32_t t = 0; t < taps; t += 8) {
      const __m256i ce = load(coef + t), co = load(coef + t + 1);
      even0 = _mm256_add_epi64(even0, _mm256_mul_epi32(load(x + t), ce));
      odd0 = _mm256_add_epi64(odd0, _mm256_mul_epi32(load(x + t + 1), co));
      if constexpr (Channels == 2) {
        even1 = _mm256_add_epi64(even1, _mm256_mul_epi32(load(x + line + t), ce));
        odd1 = _mm256_add_epi64(odd1, _mm256_mul_epi32(load(x + line + t + 1), co));
      }
    }
    out[0] = total(_mm256_add_epi64(even0, odd0));
    if constexpr (Channels == 2) out[1] = total(_mm256_add_epi64(even1, odd1));
  }

 private:
  static __m256i load(const int32_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
  // The four 64-bit lanes summed (modulo 2^64: exact when the total fits).
  static int64_t total(__m256i v) {
    const __m128i s = _mm_add_epi64(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    return _mm_cvtsi128_si64(_mm_add_epi64(s, _mm_unpackhi_epi64(s, s)));
  }
};

constexpr Hq32Kernels kAvx2 = make_hq32_kernels<Avx2Dot>();

}  // namespace

const Hq32Kernels *hq32_kernels_avx2() { return &kAvx2; }

}  // namespace rsmpl
