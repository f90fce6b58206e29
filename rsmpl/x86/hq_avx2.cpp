// SPDX-License-Identifier: MIT
// AVX2 build of the high-quality resampler's kernels (compiled with -mavx2,
// used only when the CPU reports AVX2): sixteen products per vpmaddwd,
// summed in 32-bit lanes, which the coefficients are sized for.
#include <immintrin.h>

#include <cstring>

#include "rsmpl/hq/kernel.h"
#include "rsmpl/x86/hq_sse2.h"

namespace rsmpl {
namespace {

struct Avx2Dot : HqPlainRows {
  // Both sums stay in 32-bit lanes: the coefficients are sized for that.
  static int64_t dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
    __m256i hi = _mm256_setzero_si256(), lo = _mm256_setzero_si256();
    for (uint32_t t = 0; t < taps; t += 16) {
      const __m256i xs = load(x + t);
      hi = _mm256_add_epi32(hi, _mm256_madd_epi16(xs, load(coef + t)));
      lo = _mm256_add_epi32(lo, _mm256_madd_epi16(xs, load(coef + taps + t)));
    }
    const __m128i sums = fold(hi, lo, hi, lo);
    return combine(_mm_cvtsi128_si32(sums), _mm_extract_epi32(sums, 1), shift);
  }

  // Two frames of one or two channels: the channels share each coefficient
  // load, and the (up to) four outputs share the reduction and the output
  // step, taken in 32-bit lanes as hq/state.h describes.
  template <int Channels>
  static void frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0,
                        const int16_t *c1, uint32_t taps, uint32_t shift, int16_t *y,
                        size_t frame_step) {
    // Accumulators by frame and channel: hi and lo sums.
    __m256i h00 = _mm256_setzero_si256(), h01 = h00, h10 = h00, h11 = h00;
    __m256i l00 = h00, l01 = h00, l10 = h00, l11 = h00;
    for (uint32_t t = 0; t < taps; t += 16) {
      const __m256i hi0 = load(c0 + t), lo0 = load(c0 + taps + t);
      const __m256i hi1 = load(c1 + t), lo1 = load(c1 + taps + t);
      __m256i x = load(x0 + t);
      h00 = _mm256_add_epi32(h00, _mm256_madd_epi16(x, hi0));
      l00 = _mm256_add_epi32(l00, _mm256_madd_epi16(x, lo0));
      x = load(x1 + t);
      h10 = _mm256_add_epi32(h10, _mm256_madd_epi16(x, hi1));
      l10 = _mm256_add_epi32(l10, _mm256_madd_epi16(x, lo1));
      if constexpr (Channels == 2) {
        x = load(x0 + line + t);
        h01 = _mm256_add_epi32(h01, _mm256_madd_epi16(x, hi0));
        l01 = _mm256_add_epi32(l01, _mm256_madd_epi16(x, lo0));
        x = load(x1 + line + t);
        h11 = _mm256_add_epi32(h11, _mm256_madd_epi16(x, hi1));
        l11 = _mm256_add_epi32(l11, _mm256_madd_epi16(x, lo1));
      }
    }
    // Lanes (frame 0 ch 0, frame 0 ch 1, frame 1 ch 0, frame 1 ch 1).
    const __m128i hi = fold(h00, h01, h10, h11), lo = fold(l00, l01, l10, l11);
    const __m128i lanes = hq_step_lanes(hi, lo, shift), v = _mm_packs_epi32(lanes, lanes);
    if constexpr (Channels == 2) {
      const int32_t f0 = _mm_cvtsi128_si32(v), f1 = _mm_extract_epi32(v, 1);
      std::memcpy(y, &f0, sizeof f0);
      std::memcpy(y + frame_step, &f1, sizeof f1);
    } else {
      const int16_t f0 = static_cast<int16_t>(_mm_extract_epi16(v, 0));
      const int16_t f1 = static_cast<int16_t>(_mm_extract_epi16(v, 2));
      y[0] = f0;
      y[frame_step] = f1;
    }
  }

  // Eight outputs of one phase for one or two channels, one per 32-bit lane:
  // each tap pair is one load of the eight lanes' sample pairs per channel
  // against a broadcast coefficient pair, for hi and for lo; no reduction.
  template <int Channels>
  static void lanes(const int16_t *const *rows, size_t at, size_t next, uint32_t m,
                    uint32_t groups, const int16_t *coef, uint32_t shift, int16_t *out, size_t out_step) {
    __m256i h0 = _mm256_setzero_si256(), l0 = h0, h1 = h0, l1 = h0;
    const int16_t *c = coef;
    for (uint32_t i = 0; i < m; ++i) {
      const int16_t *x = rows[i] + at;
      for (uint32_t g = 0; g < groups; ++g, x -= 4, c += 4) {
        const __m256i hi = _mm256_set1_epi32(pair(c)), lo = _mm256_set1_epi32(pair(c + 2));
        const __m256i v = load(x);
        h0 = _mm256_add_epi32(_mm256_madd_epi16(v, hi), h0);
        l0 = _mm256_add_epi32(_mm256_madd_epi16(v, lo), l0);
        if constexpr (Channels == 2) {
          const __m256i w = load(x + next);
          h1 = _mm256_add_epi32(_mm256_madd_epi16(w, hi), h1);
          l1 = _mm256_add_epi32(_mm256_madd_epi16(w, lo), l1);
        }
      }
    }
    const __m128i y0 = lanes_step(h0, l0, shift);
    hq_store_lanes_sse2<Channels>(y0, Channels == 2 ? lanes_step(h1, l1, shift) : y0, out, out_step);
  }

 private:
  // hq_step_lanes at twice the width: eight outputs, packed.
  static __m128i lanes_step(__m256i hi, __m256i lo, uint32_t shift) {
    const __m256i s = _mm256_add_epi32(
        hi, _mm256_sra_epi32(_mm256_add_epi32(lo, _mm256_set1_epi32(1 << (shift + kHqHiShift - 1))),
                             _mm_cvtsi32_si128(static_cast<int>(shift))));
    const __m256i y = _mm256_srai_epi32(s, kHqHiShift);
    return _mm_packs_epi32(_mm256_castsi256_si128(y), _mm256_extracti128_si256(y, 1));
  }
  static int32_t pair(const int16_t *p) {
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
  }
  static __m256i load(const int16_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
  // The totals of a, b, c, d's lanes, in that order.
  static __m128i fold(__m256i a, __m256i b, __m256i c, __m256i d) {
    const __m256i ab = _mm256_hadd_epi32(a, b), cd = _mm256_hadd_epi32(c, d);
    const __m256i abcd = _mm256_hadd_epi32(ab, cd);
    return _mm_add_epi32(_mm256_castsi256_si128(abcd), _mm256_extracti128_si256(abcd, 1));
  }
  static int64_t combine(int32_t hi, int32_t lo, uint32_t shift) {
    return static_cast<int64_t>(hi) * (int64_t{1} << shift) + lo;
  }
};

constexpr HqKernels kAvx2 = make_hq_kernels<Avx2Dot>();

}  // namespace

const HqKernels *hq_kernels_avx2() { return &kAvx2; }

}  // namespace rsmpl
