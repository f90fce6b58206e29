// SPDX-License-Identifier: MIT
// The single stage's kernels for SSE2: eight 16 x 16-bit products per
// pmaddwd, the hi and the lo halves of the taps in sums of their own, two
// channels sharing every load of a row.
#include <emmintrin.h>

#include "rsmpl/hq/direct_kernel.h"

namespace rsmpl {
namespace {

inline __m128i load16(const int16_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
inline __m128i load_lo(const uint8_t *p) {
  return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)), _mm_setzero_si128());
}
inline int32_t hsum(__m128i s) {
  s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0x4e));
  s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0xb1));
  return _mm_cvtsi128_si32(s);
}

struct Sse2Dot16 {
  static constexpr uint32_t kLanes = 0;  // no lane kernel: outputs one at a time
  HQ_DIRECT_INLINE static void dots(const int16_t *x, size_t xstride, uint32_t rows, const uint8_t *row, uint32_t taps, int32_t *y,
                   size_t ystride) {
    const int16_t *hi = reinterpret_cast<const int16_t *>(row);
    const uint8_t *lo = row + 2 * size_t{taps};
    uint32_t r = 0;
    for (; r + 2 <= rows; r += 2) {
      const int16_t *x0 = x + r * xstride, *x1 = x0 + xstride;
      __m128i h0 = _mm_setzero_si128(), l0 = h0, h1 = h0, l1 = h0;
#pragma GCC unroll 9
      for (uint32_t k = 0; k < taps; k += 8) {
        const __m128i ch = load16(hi + k), cl = load_lo(lo + k);
        const __m128i a = load16(x0 + k), b = load16(x1 + k);
        h0 = _mm_add_epi32(h0, _mm_madd_epi16(a, ch));
        l0 = _mm_add_epi32(l0, _mm_madd_epi16(a, cl));
        h1 = _mm_add_epi32(h1, _mm_madd_epi16(b, ch));
        l1 = _mm_add_epi32(l1, _mm_madd_epi16(b, cl));
      }
      y[r * ystride] = hq_direct_output(hsum(h0), hsum(l0));
      y[(r + 1) * ystride] = hq_direct_output(hsum(h1), hsum(l1));
    }
    for (; r < rows; ++r) {
      const int16_t *xr = x + r * xstride;
      __m128i h = _mm_setzero_si128(), l = h;
#pragma GCC unroll 9
      for (uint32_t k = 0; k < taps; k += 8) {
        const __m128i a = load16(xr + k);
        h = _mm_add_epi32(h, _mm_madd_epi16(a, load16(hi + k)));
        l = _mm_add_epi32(l, _mm_madd_epi16(a, load_lo(lo + k)));
      }
      y[r * ystride] = hq_direct_output(hsum(h), hsum(l));
    }
  }

  // Two channels: the stereo streams' form.
  HQ_DIRECT_INLINE static void dots2(const int16_t *x, size_t xstride, const uint8_t *row, uint32_t taps, int32_t *y,
                                     size_t ystride) {
    dots(x, xstride, 2, row, taps, y, ystride);
  }

  static void take(const int16_t *src, uint32_t channels, uint32_t frames, int16_t *const *to) {
    hq_direct_take_plain(src, channels, frames, to);
  }
};

constexpr HqDirectKernels kKernels = make_hq_direct_kernels<Sse2Dot16>();

}  // namespace

const HqDirectKernels *hq_direct_kernels_sse2() { return &kKernels; }

}  // namespace rsmpl
