// SPDX-License-Identifier: MIT
// SSE2 build of the 32-bit high-quality resampler's kernels, the x86-64
// baseline. SSE2 multiplies only unsigned 32-bit lanes into 64 bits
// (pmuludq); for signed a and b, with ua and ub their unsigned readings,
//   a b = ua ub - 2^32 ((a < 0 ? ub : 0) + (b < 0 ? ua : 0))   (mod 2^64),
// so the products are summed unsigned in 64-bit lanes and the corrections
// in 32-bit lanes (only their value modulo 2^32 matters once shifted up by
// 32), and the exact total is the difference modulo 2^64.
#include <emmintrin.h>

#include "rsmpl/hq32/kernel.h"

namespace rsmpl {
namespace {

struct Sse2Dot {
  template <int Channels>
  static void sums(const int32_t *x, size_t line, const int32_t *coef, uint32_t taps,
                   int64_t *out) {
    __m128i prod[Channels], corr[Channels];
    for (int k = 0; k < Channels; ++k) prod[k] = corr[k] = _mm_setzero_si128();
    for (uint32_t t = 0; t < taps; t += 4) {
      const __m128i cv = load(coef + t);
      const __m128i c_odd = _mm_srli_epi64(cv, 32), c_sign = _mm_srai_epi32(cv, 31);
      for (int k = 0; k < Channels; ++k) {
        const __m128i xv = load(x + k * line + t);
        prod[k] = _mm_add_epi64(prod[k], _mm_mul_epu32(xv, cv));
        prod[k] = _mm_add_epi64(prod[k], _mm_mul_epu32(_mm_srli_epi64(xv, 32), c_odd));
        corr[k] = _mm_add_epi32(corr[k], _mm_and_si128(_mm_srai_epi32(xv, 31), cv));
        corr[k] = _mm_add_epi32(corr[k], _mm_and_si128(c_sign, xv));
      }
    }
    for (int k = 0; k < Channels; ++k) {
      const __m128i p = _mm_add_epi64(prod[k], _mm_unpackhi_epi64(prod[k], prod[k]));
      __m128i c = _mm_add_epi32(corr[k], _mm_shuffle_epi32(corr[k], _MM_SHUFFLE(1, 0, 3, 2)));
      c = _mm_add_epi32(c, _mm_shuffle_epi32(c, _MM_SHUFFLE(2, 3, 0, 1)));
      const uint64_t products = static_cast<uint64_t>(_mm_cvtsi128_si64(p));
      const uint64_t fix = uint64_t{static_cast<uint32_t>(_mm_cvtsi128_si32(c))} << 32;
      out[k] = static_cast<int64_t>(products - fix);
    }
  }

 private:
  static __m128i load(const int32_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
};

constexpr Hq32Kernels kSse2 = make_hq32_kernels<Sse2Dot>();

}  // namespace

const Hq32Kernels *hq32_kernels_sse2() { return &kSse2; }

}  // namespace rsmpl
