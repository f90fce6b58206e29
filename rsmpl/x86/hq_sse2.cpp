// SPDX-License-Identifier: MIT
// SSE2 build of the high-quality resampler's kernels, the x86-64 baseline:
// pmaddwd products summed in 32-bit lanes, which the coefficients are sized
// for (hq/state.h).
#include <emmintrin.h>

#include <cstring>

#include "rsmpl/hq/kernel.h"
#include "rsmpl/x86/hq_sse2.h"

namespace rsmpl {
namespace {

// The four int32 lanes summed; exact when the total fits 32 bits.
inline int32_t sum_lanes(__m128i v) {
  v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
  v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
  return _mm_cvtsi128_si32(v);
}

struct Sse2Dot : HqPlainRows {
  // Both sums stay in 32-bit lanes: the coefficients are sized for that.
  static int64_t dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
    __m128i hi = _mm_setzero_si128(), lo = _mm_setzero_si128();
    for (uint32_t t = 0; t < taps; t += 8) {
      const __m128i xs = _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + t));
      hi = _mm_add_epi32(hi, _mm_madd_epi16(xs, _mm_loadu_si128(reinterpret_cast<const __m128i *>(coef + t))));
      lo = _mm_add_epi32(lo, _mm_madd_epi16(xs, _mm_loadu_si128(reinterpret_cast<const __m128i *>(coef + taps + t))));
    }
    return static_cast<int64_t>(sum_lanes(hi)) * (int64_t{1} << shift) + sum_lanes(lo);
  }

  // Two frames of one or two channels, as the AVX2 build does it with half
  // the width: shared coefficient loads, one reduction and output step.
  template <int Channels>
  static void frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0,
                        const int16_t *c1, uint32_t taps, uint32_t shift, int16_t *y,
                        size_t frame_step) {
    __m128i h00 = _mm_setzero_si128(), h01 = h00, h10 = h00, h11 = h00;
    __m128i l00 = h00, l01 = h00, l10 = h00, l11 = h00;
    for (uint32_t t = 0; t < taps; t += 8) {
      const __m128i hi0 = load(c0 + t), lo0 = load(c0 + taps + t);
      const __m128i hi1 = load(c1 + t), lo1 = load(c1 + taps + t);
      __m128i x = load(x0 + t);
      h00 = _mm_add_epi32(h00, _mm_madd_epi16(x, hi0));
      l00 = _mm_add_epi32(l00, _mm_madd_epi16(x, lo0));
      x = load(x1 + t);
      h10 = _mm_add_epi32(h10, _mm_madd_epi16(x, hi1));
      l10 = _mm_add_epi32(l10, _mm_madd_epi16(x, lo1));
      if constexpr (Channels == 2) {
        x = load(x0 + line + t);
        h01 = _mm_add_epi32(h01, _mm_madd_epi16(x, hi0));
        l01 = _mm_add_epi32(l01, _mm_madd_epi16(x, lo0));
        x = load(x1 + line + t);
        h11 = _mm_add_epi32(h11, _mm_madd_epi16(x, hi1));
        l11 = _mm_add_epi32(l11, _mm_madd_epi16(x, lo1));
      }
    }
    // Lanes (frame 0 ch 0, frame 0 ch 1, frame 1 ch 0, frame 1 ch 1); the
    // totals fit 32 bits, so wrapping lanes still add up exactly.
    const __m128i hi = fold(h00, h01, h10, h11), lo = fold(l00, l01, l10, l11);
    const __m128i v = hq_step_lanes(hi, lo, shift);
    const __m128i packed = _mm_packs_epi32(v, v);
    if constexpr (Channels == 2) {
      const int32_t f0 = _mm_cvtsi128_si32(packed);
      const int32_t f1 = _mm_cvtsi128_si32(_mm_srli_si128(packed, 4));
      std::memcpy(y, &f0, sizeof f0);
      std::memcpy(y + frame_step, &f1, sizeof f1);
    } else {
      const int16_t f0 = static_cast<int16_t>(_mm_extract_epi16(packed, 0));
      const int16_t f1 = static_cast<int16_t>(_mm_extract_epi16(packed, 2));
      y[0] = f0;
      y[frame_step] = f1;
    }
  }

  // Eight outputs of one phase for one or two channels, four per register,
  // as the AVX2 build does.
  template <int Channels>
  static void lanes(const int16_t *const *rows, size_t at, size_t next, uint32_t m,
                    uint32_t groups, const int16_t *coef, uint32_t shift, int16_t *out, size_t out_step) {
    __m128i acc[Channels][4];
    for (auto &a : acc)
      for (__m128i &v : a) v = _mm_setzero_si128();
    const int16_t *c = coef;
    for (uint32_t i = 0; i < m; ++i) {
      const int16_t *x = rows[i] + at;
      for (uint32_t g = 0; g < groups; ++g, x -= 4, c += 4) {
        const __m128i hi = _mm_set1_epi32(pair(c)), lo = _mm_set1_epi32(pair(c + 2));
        for (int k = 0; k < Channels; ++k) {
          const __m128i v0 = load(x + k * next), v1 = load(x + k * next + 8);
          acc[k][0] = _mm_add_epi32(acc[k][0], _mm_madd_epi16(v0, hi));
          acc[k][1] = _mm_add_epi32(acc[k][1], _mm_madd_epi16(v1, hi));
          acc[k][2] = _mm_add_epi32(acc[k][2], _mm_madd_epi16(v0, lo));
          acc[k][3] = _mm_add_epi32(acc[k][3], _mm_madd_epi16(v1, lo));
        }
      }
    }
    __m128i y[Channels];
    for (int k = 0; k < Channels; ++k)
      y[k] = _mm_packs_epi32(hq_step_lanes(acc[k][0], acc[k][2], shift), hq_step_lanes(acc[k][1], acc[k][3], shift));
    hq_store_lanes_sse2<Channels>(y[0], y[Channels - 1], out, out_step);
  }

 private:
  static int32_t pair(const int16_t *p) {
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
  }
  static __m128i load(const int16_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
  // The totals of a, b, c, d's lanes, in that order, modulo 2^32.
  static __m128i fold(__m128i a, __m128i b, __m128i c, __m128i d) {
    const __m128i ab = _mm_add_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b));
    const __m128i cd = _mm_add_epi32(_mm_unpacklo_epi32(c, d), _mm_unpackhi_epi32(c, d));
    return _mm_add_epi32(_mm_unpacklo_epi64(ab, cd), _mm_unpackhi_epi64(ab, cd));
  }
};

constexpr HqKernels kSse2 = make_hq_kernels<Sse2Dot>();

}  // namespace

const HqKernels *hq_kernels_sse2() { return &kSse2; }

}  // namespace rsmpl
