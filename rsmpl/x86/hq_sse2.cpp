// SPDX-License-Identifier: MIT
// The high-quality resampler's kernels for SSE2, the x86-64 baseline: signed
// 32 x 32-bit products from pmuludq with the sign corrections (SSE2 has no
// signed form), summed in 64-bit lanes; the half-bands four outputs at a
// time, rounded and clamped one by one (SSE2 has no 64-bit compare).
#include <emmintrin.h>

#include "rsmpl/hq/kernel.h"

namespace rsmpl {
namespace {

inline __m128i load(const int32_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }

// The signed products of the even int32 of a and b, as int64: the unsigned
// product less (a < 0 ? b : 0) + (b < 0 ? a : 0), times 2^32.
inline __m128i mul_even(__m128i a, __m128i b) {
  const __m128i fix = _mm_add_epi32(_mm_and_si128(_mm_srai_epi32(a, 31), b), _mm_and_si128(_mm_srai_epi32(b, 31), a));
  return _mm_sub_epi64(_mm_mul_epu32(a, b), _mm_slli_epi64(fix, 32));
}
inline __m128i mul_odd(__m128i a, __m128i b) { return mul_even(_mm_srli_epi64(a, 32), _mm_srli_epi64(b, 32)); }

inline void store64(int64_t *p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }

// The folded half-band sums of four consecutive outputs: lanes 0 and 2 in
// even, 1 and 3 in odd.
inline void halfband4(const int32_t *x, const int32_t *oldest, const int32_t *g, uint32_t half, __m128i *even,
                      __m128i *odd) {
  __m128i e = *even, o = *odd;
  for (uint32_t d = 0; d < half; ++d) {
    const __m128i s = _mm_add_epi32(load(x - d), load(oldest + d));
    const __m128i gd = _mm_set1_epi32(g[d]);
    e = _mm_add_epi64(e, mul_even(s, gd));
    o = _mm_add_epi64(o, mul_even(_mm_srli_epi64(s, 32), gd));
  }
  *even = e;
  *odd = o;
}

// Four sums, even and odd lanes apart, in output order.
inline void unpack4(__m128i even, __m128i odd, int64_t sums[4]) {
  int64_t e[2], o[2];
  store64(e, even);
  store64(o, odd);
  sums[0] = e[0];
  sums[1] = o[0];
  sums[2] = e[1];
  sums[3] = o[1];
}

inline int64_t hsum(__m128i v) {
  int64_t s[2];
  store64(s, v);
  return s[0] + s[1];
}

struct Sse2Dot : HqPlainIo {
  static void half_up(const int32_t *x, const int32_t *g, uint32_t half, int32_t *out, uint32_t n) {
    const int32_t *oldest = x - (2 * half - 1);
    // The last few outputs too, four wide: their inputs past n are read and
    // their sums dropped.
    for (uint32_t t = 0; t < n; t += 4) {
      __m128i e = _mm_setzero_si128(), o = _mm_setzero_si128();
      halfband4(x + t, oldest + t, g, half, &e, &o);
      int64_t sums[4];
      unpack4(e, o, sums);
      const uint32_t m = n - t < 4 ? n - t : 4;
      for (uint32_t i = 0; i < m; ++i) {
        out[2 * (t + i)] = hq_round(sums[i], 30);
        out[2 * (t + i) + 1] = *(x + t + i - (half - 1));
      }
    }
  }

  static void half_down(const int32_t *e, const int32_t *o, const int32_t *g, uint32_t half, int32_t *out,
                        uint32_t n) {
    const int32_t *oldest = e - (2 * half - 1);
    for (uint32_t t = 0; t < n; t += 4) {
      __m128i even = _mm_setzero_si128(), odd = _mm_setzero_si128();
      halfband4(e + t, oldest + t, g, half, &even, &odd);
      int64_t sums[4];
      unpack4(even, odd, sums);
      const uint32_t m = n - t < 4 ? n - t : 4;
      for (uint32_t i = 0; i < m; ++i) out[t + i] = hq_round(sums[i] + int64_t{o[t + i]} * (int64_t{1} << 30), 31);
    }
  }

  static void blend(const int32_t *rows, uint32_t taps, int32_t w, int32_t w2, int32_t gain, int32_t *c) {
    const int32_t *d1 = rows + taps, *d2 = rows + 2 * taps;
    const bool scaled = gain != (1 << 29);
    for (uint32_t k = 0; k < taps; ++k) {
      const int32_t b = rows[k] + static_cast<int32_t>((int64_t{d1[k]} * w) >> 31) +
                        static_cast<int32_t>((int64_t{d2[k]} * w2) >> 31);
      c[k] = scaled ? static_cast<int32_t>((int64_t{b} * gain) >> 29) : b;
    }
  }

  static void dots(const int32_t *x, size_t xstride, uint32_t rows, const int32_t *c, uint32_t taps, int32_t *y,
                   size_t ystride) {
    const uint32_t body = taps & ~3u;
    for (uint32_t r = 0; r < rows; ++r) {
      const int32_t *xr = x + r * xstride;
      __m128i acc = _mm_setzero_si128();
      for (uint32_t k = 0; k < body; k += 4) {
        const __m128i cv = load(c + k), xv = load(xr + k);
        acc = _mm_add_epi64(acc, _mm_add_epi64(mul_even(cv, xv), mul_odd(cv, xv)));
      }
      int64_t sum = hsum(acc);
      for (uint32_t k = body; k < taps; ++k) sum += int64_t{c[k]} * xr[k];
      y[r * ystride] = hq_round(sum, 30);
    }
  }

  // Four outputs, each its own window and taps.
  static void dots4(const int32_t *const *x, size_t xstride, uint32_t rows, const int32_t *const *c, uint32_t taps,
                    int32_t *y, size_t ystride) {
    for (uint32_t i = 0; i < 4; ++i) dots(x[i], xstride, rows, c[i], taps, y + i, ystride);
  }

  // No 64-bit compare in SSE2: one by one.
  static void round_sums(const int64_t *sums, uint32_t n, int32_t *y) { hq_round_sums_plain(sums, n, y); }

  static void deposits(int64_t *acc, size_t astride, uint32_t rows, const int32_t *x, size_t xstride,
                       const int32_t *const *c, const uint32_t *at, uint32_t n, uint32_t taps) {
    for (uint32_t t = 0; t < n; ++t) deposit(acc + at[t], astride, rows, x + t, xstride, c[t], taps);
  }

  // One input's taps into its sums.
  static void deposit(int64_t *acc, size_t astride, uint32_t rows, const int32_t *x, size_t xstride,
                      const int32_t *c, uint32_t taps) {
    const uint32_t body = taps & ~3u;
    for (uint32_t r = 0; r < rows; ++r) {
      int64_t *a = acc + r * astride;
      const __m128i xv = _mm_set1_epi32(x[r * xstride]);
      for (uint32_t k = 0; k < body; k += 4) {
        const __m128i cv = load(c + k);
        __m128i *p0 = reinterpret_cast<__m128i *>(a + k), *p1 = reinterpret_cast<__m128i *>(a + k + 2);
        // Taps k, k + 2 in the even lanes, k + 1, k + 3 in the odd ones.
        const __m128i pe = mul_even(cv, xv), po = mul_odd(cv, xv);
        _mm_storeu_si128(p0, _mm_add_epi64(_mm_loadu_si128(p0), _mm_unpacklo_epi64(pe, po)));
        _mm_storeu_si128(p1, _mm_add_epi64(_mm_loadu_si128(p1), _mm_unpackhi_epi64(pe, po)));
      }
      const int64_t v = x[r * xstride];
      for (uint32_t k = body; k < taps; ++k) a[k] += v * c[k];
    }
  }
};

constexpr HqKernels kKernels = make_hq_kernels<Sse2Dot>();

}  // namespace

const HqKernels *hq_kernels_sse2() { return &kKernels; }

}  // namespace rsmpl
