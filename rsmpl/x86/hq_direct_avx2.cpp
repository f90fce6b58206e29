// SPDX-License-Identifier: MIT
// The single stage's kernels for AVX2: sixteen 16 x 16-bit products per
// vpmaddwd, the hi and the lo halves of the taps in sums of their own, two
// channels sharing every load of a row; stereo frames split into their
// lines sixteen at a time.
#include <immintrin.h>

#include <cstring>

#include "rsmpl/hq/direct_kernel.h"
#include "skelda/rsmpl_hq.h"

namespace rsmpl {
namespace {

inline __m256i load16(const int16_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
inline __m256i load_lo(const uint8_t *p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}
// The four sums' lanes reduced together: [hi 0, lo 0, hi 1, lo 1].
inline __m128i reduce4(__m256i h0, __m256i l0, __m256i h1, __m256i l1) {
  const __m256i c = _mm256_hadd_epi32(_mm256_hadd_epi32(h0, l0), _mm256_hadd_epi32(h1, l1));
  return _mm_add_epi32(_mm256_castsi256_si128(c), _mm256_extracti128_si256(c, 1));
}

// Eight outputs' final values: hi + ((lo + 2^6) >> 7), clamped.
inline __m256i outputs8(__m256i h, __m256i l) {
  const __m256i v = _mm256_add_epi32(h, _mm256_srai_epi32(_mm256_add_epi32(l, _mm256_set1_epi32(64)), 7));
  return _mm256_max_epi32(_mm256_min_epi32(v, _mm256_set1_epi32((1 << 30) - 1)), _mm256_set1_epi32(-(1 << 30)));
}

// Lanes 0..7 of v to y[lane[k] spacing].
inline void scatter8(__m256i v, const int *lane, int32_t *y, uint32_t spacing) {
  alignas(32) int32_t t[8];
  _mm256_store_si256(reinterpret_cast<__m256i *>(t), v);
  for (int k = 0; k < 8; ++k) y[size_t(lane[k]) * spacing] = t[k];
}

struct Avx2Dot16 {
  static constexpr uint32_t kLanes = 16;

  // Outputs j = 0 .. 15 of one row, windows m frames apart from x, to y[j
  // spacing], per channel: each lane sums its own output, tap pairs (k, k +
  // 1) against the pair of samples its window has there (m = 2: a load
  // holds eight lanes' pairs; m = 1: two loads one frame apart,
  // interleaved, hold sixteen).
  HQ_DIRECT_INLINE static void lanes(const int16_t *x, size_t xstride, uint32_t channels, const uint8_t *row,
                                     uint32_t taps, uint32_t m, int32_t *y, size_t ystride, uint32_t spacing) {
    if (m == 2)
      lanes_m<2>(x, xstride, channels, row, taps, y, ystride, spacing);
    else
      lanes_m<1>(x, xstride, channels, row, taps, y, ystride, spacing);
  }

  // The pairs of samples lanes 0..7 (a) and 8..15 (b) of one channel read
  // at tap pair k: for m = 2 a load holds eight lanes' pairs, for m = 1 two
  // loads one frame apart, interleaved, hold sixteen (in the order kOrder1
  // gives).
  template <uint32_t M>
  static inline void pairs(const int16_t *xc, uint32_t k, __m256i *a, __m256i *b) {
    if (M == 2) {
      *a = load16(xc + k);
      *b = load16(xc + k + 16);
    } else {
      const __m256i v0 = load16(xc + k), v1 = load16(xc + k + 1);
      *a = _mm256_unpacklo_epi16(v0, v1);
      *b = _mm256_unpackhi_epi16(v0, v1);
    }
  }

  // Two channels at a time share the tap pairs' broadcasts.
  template <uint32_t M>
  HQ_DIRECT_INLINE static void lanes_m(const int16_t *x, size_t xstride, uint32_t channels, const uint8_t *row,
                                       uint32_t taps, int32_t *y, size_t ystride, uint32_t spacing) {
    const int16_t *hi = reinterpret_cast<const int16_t *>(row);
    alignas(32) int16_t lo[kHqDirectTapsMost];
    for (uint32_t k = 0; k < taps; k += 8)
      _mm_store_si128(reinterpret_cast<__m128i *>(lo + k),
                      _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(row + 2 * size_t{taps} + k))));
    auto pair = [](const int16_t *p) {
      int32_t v;
      std::memcpy(&v, p, 4);
      return _mm256_set1_epi32(v);
    };
    static const int kOrder2[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    static const int kOrder1[16] = {0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15};
    const int *order = M == 2 ? kOrder2 : kOrder1;
    uint32_t c = 0;
    for (; c + 2 <= channels; c += 2) {
      const int16_t *x0 = x + c * xstride, *x1 = x0 + xstride;
      __m256i h0a = _mm256_setzero_si256(), l0a = h0a, h0b = h0a, l0b = h0a, h1a = h0a, l1a = h0a, h1b = h0a, l1b = h0a;
#pragma GCC unroll 2
      for (uint32_t k = 0; k < taps; k += 2) {
        const __m256i ph = pair(hi + k), pl = pair(lo + k);
        __m256i a0, b0, a1, b1;
        pairs<M>(x0, k, &a0, &b0);
        pairs<M>(x1, k, &a1, &b1);
        h0a = _mm256_add_epi32(h0a, _mm256_madd_epi16(a0, ph));
        l0a = _mm256_add_epi32(l0a, _mm256_madd_epi16(a0, pl));
        h0b = _mm256_add_epi32(h0b, _mm256_madd_epi16(b0, ph));
        l0b = _mm256_add_epi32(l0b, _mm256_madd_epi16(b0, pl));
        h1a = _mm256_add_epi32(h1a, _mm256_madd_epi16(a1, ph));
        l1a = _mm256_add_epi32(l1a, _mm256_madd_epi16(a1, pl));
        h1b = _mm256_add_epi32(h1b, _mm256_madd_epi16(b1, ph));
        l1b = _mm256_add_epi32(l1b, _mm256_madd_epi16(b1, pl));
      }
      int32_t *y0 = y + c * ystride, *y1 = y0 + ystride;
      scatter8(outputs8(h0a, l0a), order, y0, spacing);
      scatter8(outputs8(h0b, l0b), order + 8, y0, spacing);
      scatter8(outputs8(h1a, l1a), order, y1, spacing);
      scatter8(outputs8(h1b, l1b), order + 8, y1, spacing);
    }
    for (; c < channels; ++c) {
      const int16_t *xc = x + c * xstride;
      __m256i ha = _mm256_setzero_si256(), la = ha, hb = ha, lb = ha;
#pragma GCC unroll 4
      for (uint32_t k = 0; k < taps; k += 2) {
        const __m256i ph = pair(hi + k), pl = pair(lo + k);
        __m256i a, b;
        pairs<M>(xc, k, &a, &b);
        ha = _mm256_add_epi32(ha, _mm256_madd_epi16(a, ph));
        la = _mm256_add_epi32(la, _mm256_madd_epi16(a, pl));
        hb = _mm256_add_epi32(hb, _mm256_madd_epi16(b, ph));
        lb = _mm256_add_epi32(lb, _mm256_madd_epi16(b, pl));
      }
      int32_t *yc = y + c * ystride;
      scatter8(outputs8(ha, la), order, yc, spacing);
      scatter8(outputs8(hb, lb), order + 8, yc, spacing);
    }
  }

  HQ_DIRECT_INLINE static void dots(const int16_t *x, size_t xstride, uint32_t rows, const uint8_t *row,
                                    uint32_t taps, int32_t *y, size_t ystride) {
    const int16_t *hi = reinterpret_cast<const int16_t *>(row);
    const uint8_t *lo = row + 2 * size_t{taps};
    const uint32_t body = taps & ~15u;  // taps is a multiple of 8
    uint32_t r = 0;
    for (; r < rows; r += 2) {
      // Two channels, or the last one twice.
      const int16_t *x0 = x + r * xstride, *x1 = r + 1 < rows ? x0 + xstride : x0;
      __m256i h0 = _mm256_setzero_si256(), l0 = h0, h1 = h0, l1 = h0;
#pragma GCC unroll 12
      for (uint32_t k = 0; k < body; k += 16) {
        const __m256i ch = load16(hi + k), cl = load_lo(lo + k);
        const __m256i a = load16(x0 + k), b = load16(x1 + k);
        h0 = _mm256_add_epi32(h0, _mm256_madd_epi16(a, ch));
        l0 = _mm256_add_epi32(l0, _mm256_madd_epi16(a, cl));
        h1 = _mm256_add_epi32(h1, _mm256_madd_epi16(b, ch));
        l1 = _mm256_add_epi32(l1, _mm256_madd_epi16(b, cl));
      }
      if (body != taps) {
        const __m256i ch = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(hi + body)));
        const __m256i cl = _mm256_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(lo + body)));
        const __m256i a = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(x0 + body)));
        const __m256i b = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(x1 + body)));
        // The upper lanes of the casts are undefined: keep the lower halves'
        // products only.
        const __m256i low = _mm256_setr_epi32(-1, -1, -1, -1, 0, 0, 0, 0);
        h0 = _mm256_add_epi32(h0, _mm256_and_si256(low, _mm256_madd_epi16(a, ch)));
        l0 = _mm256_add_epi32(l0, _mm256_and_si256(low, _mm256_madd_epi16(a, cl)));
        h1 = _mm256_add_epi32(h1, _mm256_and_si256(low, _mm256_madd_epi16(b, ch)));
        l1 = _mm256_add_epi32(l1, _mm256_and_si256(low, _mm256_madd_epi16(b, cl)));
      }
      // hi + ((lo + 2^6) >> 7) for both: the sums' bounds keep it in 32 bits.
      const __m128i s = reduce4(h0, l0, h1, l1);
      const __m128i hs = _mm_shuffle_epi32(s, 0x08), ls = _mm_shuffle_epi32(s, 0x0d);  // [h0 h1 ..], [l0 l1 ..]
      __m128i v = _mm_add_epi32(hs, _mm_srai_epi32(_mm_add_epi32(ls, _mm_set1_epi32(64)), 7));
      v = _mm_max_epi32(_mm_min_epi32(v, _mm_set1_epi32((1 << 30) - 1)), _mm_set1_epi32(-(1 << 30)));
      y[r * ystride] = _mm_cvtsi128_si32(v);
      if (r + 1 < rows) y[(r + 1) * ystride] = _mm_extract_epi32(v, 1);
    }
  }

  // Two channels: the stereo streams' form.
  HQ_DIRECT_INLINE static void dots2(const int16_t *x, size_t xstride, const uint8_t *row, uint32_t taps, int32_t *y,
                                     size_t ystride) {
    dots(x, xstride, 2, row, taps, y, ystride);
  }

  static void take(const int16_t *src, uint32_t channels, uint32_t frames, int16_t *const *to) {
    uint32_t i = 0;
    if (channels == 2) {
      // [L0 R0 L1 R1 ...]: lefts to the low 8 bytes of each lane, rights to
      // the high, then the lanes' halves paired.
      const __m256i order = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15, 0, 1, 4, 5, 8, 9,
                                             12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
      for (; i + 16 <= frames; i += 16) {
        const __m256i a = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(load16(src + 2 * i), order), 0xd8);
        const __m256i b = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(load16(src + 2 * i + 16), order), 0xd8);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(to[0] + i), _mm256_permute2x128_si256(a, b, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(to[1] + i), _mm256_permute2x128_si256(a, b, 0x31));
      }
    } else if (channels == 1) {
      for (; i + 16 <= frames; i += 16) _mm256_storeu_si256(reinterpret_cast<__m256i *>(to[0] + i), load16(src + i));
    }
    if (i == frames) return;
    int16_t *rest[RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t c = 0; c < channels; ++c) rest[c] = to[c] + i;
    hq_direct_take_plain(src + size_t{i} * channels, channels, frames - i, rest);
  }
};

constexpr HqDirectKernels kKernels = make_hq_direct_kernels<Avx2Dot16>();

}  // namespace

const HqDirectKernels *hq_direct_kernels_avx2() { return &kKernels; }

}  // namespace rsmpl
