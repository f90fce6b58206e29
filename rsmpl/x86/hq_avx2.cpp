// SPDX-License-Identifier: MIT
// The high-quality resampler's kernels for AVX2: 32 x 32-bit products in
// 64-bit lanes (vpmuldq on the even and, shifted down, the odd int32 of a
// register), the half-bands eight outputs at a time with no horizontal
// sums, the inner products and deposits over the kernel's taps. Results are
// clamped in 64 bits before the shift, so that the low half of a logical
// shift is the arithmetic one's.
#include <immintrin.h>

#include <cstring>

#include "rsmpl/hq/kernel.h"
#include "skelda/rsmpl_hq.h"

namespace rsmpl {
namespace {

inline __m256i load(const int32_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
inline void store(int32_t *p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v); }

// The even int32 of a times b, and the odd ones, as int64.
inline __m256i mul_even(__m256i a, __m256i b) { return _mm256_mul_epi32(a, b); }
inline __m256i mul_odd(__m256i a, __m256i b) {
  return _mm256_mul_epi32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(b, 32));
}

// (v + 2^(shift-1)) >> shift clamped to [-2^30, 2^30), in the low int32 of
// each 64-bit lane.
template <int Shift>
inline __m256i round_clamp(__m256i v) {
  const __m256i hi = _mm256_set1_epi64x((int64_t{1} << (30 + Shift)) - 1);
  const __m256i lo = _mm256_set1_epi64x(-(int64_t{1} << (30 + Shift)));
  v = _mm256_add_epi64(v, _mm256_set1_epi64x(int64_t{1} << (Shift - 1)));
  v = _mm256_blendv_epi8(v, hi, _mm256_cmpgt_epi64(v, hi));
  v = _mm256_blendv_epi8(v, lo, _mm256_cmpgt_epi64(lo, v));
  return _mm256_srli_epi64(v, Shift);
}

// Eight int32 from even-lane and odd-lane int64 results.
inline __m256i interleave(__m256i even, __m256i odd) {
  return _mm256_blend_epi32(even, _mm256_slli_epi64(odd, 32), 0xaa);
}

inline int64_t hsum(__m256i v) {
  const __m128i s = _mm_add_epi64(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  return _mm_cvtsi128_si64(s) + _mm_extract_epi64(s, 1);
}

// The folded half-band sums of eight consecutive outputs, even and odd
// lanes apart, starting from `even` and `odd`.
inline void halfband8(const int32_t *x, const int32_t *oldest, const int32_t *g, uint32_t half, __m256i *even,
                      __m256i *odd) {
  // Two pairs of sums, so that consecutive taps do not wait on each other.
  __m256i e0 = *even, o0 = *odd, e1 = _mm256_setzero_si256(), o1 = _mm256_setzero_si256();
  const int32_t *a = x, *b = oldest, *const end = g + (half & ~1u);
  for (; g != end; g += 2, a -= 2, b += 2) {
    const __m256i s0 = _mm256_add_epi32(load(a), load(b));
    const __m256i s1 = _mm256_add_epi32(load(a - 1), load(b + 1));
    // vpmuldq reads the low half of each 64-bit lane: a 32-bit broadcast does.
    const __m256i g0 = _mm256_set1_epi32(g[0]), g1 = _mm256_set1_epi32(g[1]);
    e0 = _mm256_add_epi64(e0, _mm256_mul_epi32(s0, g0));
    o0 = _mm256_add_epi64(o0, _mm256_mul_epi32(_mm256_srli_epi64(s0, 32), g0));
    e1 = _mm256_add_epi64(e1, _mm256_mul_epi32(s1, g1));
    o1 = _mm256_add_epi64(o1, _mm256_mul_epi32(_mm256_srli_epi64(s1, 32), g1));
  }
  if (half & 1) {
    const __m256i s = _mm256_add_epi32(load(a), load(b));
    const __m256i gd = _mm256_set1_epi32(g[0]);
    e0 = _mm256_add_epi64(e0, _mm256_mul_epi32(s, gd));
    o0 = _mm256_add_epi64(o0, _mm256_mul_epi32(_mm256_srli_epi64(s, 32), gd));
  }
  *even = _mm256_add_epi64(e0, e1);
  *odd = _mm256_add_epi64(o0, o1);
}

// One output's folded half-band sum, eight taps at a time across the lanes
// (a count's last one or two outputs, which eight lanes of outputs would
// mostly waste): sum_d g[d] (x[-d] + oldest[d]). The last taps are masked,
// their samples read (within the window the half-band may read) but not
// weighed.
inline int64_t halfband1(const int32_t *x, const int32_t *oldest, const int32_t *g, uint32_t half) {
  static const int32_t kFirst[16] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  __m256i even = _mm256_setzero_si256(), odd = _mm256_setzero_si256();
  for (uint32_t d = 0; d < half; d += 8) {
    __m256i gv;
    if (d + 8 <= half) {
      gv = load(g + d);
    } else {
      const __m256i m = load(kFirst + 8 - (half - d));  // lanes below half - d
      gv = _mm256_maskload_epi32(reinterpret_cast<const int *>(g + d), m);
    }
    const __m256i s = _mm256_add_epi32(_mm256_permutevar8x32_epi32(load(x - d - 7), reverse), load(oldest + d));
    even = _mm256_add_epi64(even, mul_even(s, gv));
    odd = _mm256_add_epi64(odd, mul_odd(s, gv));
  }
  return hsum(_mm256_add_epi64(even, odd));
}

// Eight of the kernel's taps between phases (see HqBlendFn).
inline __m256i blend8(const int32_t *c0, const int32_t *d1, const int32_t *d2, __m256i wv, __m256i w2v, __m256i gv,
                      bool scaled) {
  const __m256i a = load(d1), b = load(d2);
  // Each product's floor by 2^31 fits 32 bits: the low half of the logical
  // shift.
  const __m256i pe =
      _mm256_add_epi32(_mm256_srli_epi64(mul_even(a, wv), 31), _mm256_srli_epi64(mul_even(b, w2v), 31));
  const __m256i po = _mm256_add_epi32(_mm256_srli_epi64(_mm256_mul_epi32(_mm256_srli_epi64(a, 32), wv), 31),
                                      _mm256_srli_epi64(_mm256_mul_epi32(_mm256_srli_epi64(b, 32), w2v), 31));
  __m256i v = _mm256_add_epi32(load(c0), interleave(pe, po));
  if (scaled)
    v = interleave(_mm256_srli_epi64(mul_even(v, gv), 29),
                   _mm256_srli_epi64(_mm256_mul_epi32(_mm256_srli_epi64(v, 32), gv), 29));
  return v;
}

// 8 samples in from int16 or int32, inside's scale.
inline __m256i in8(const void *src, size_t at, bool s32) {
  if (s32) return _mm256_srai_epi32(load(static_cast<const int32_t *>(src) + at), 2);
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(static_cast<const int16_t *>(src) + at));
  return _mm256_slli_epi32(_mm256_cvtepi16_epi32(v), 14);
}

inline void store4(int32_t *p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }

// Mono and stereo frames in, and out, eight at a time; other counts take the
// plain forms.
struct Avx2Io {
  static void take(const void *src, bool s32, uint32_t channels, uint32_t frames, uint32_t ways, int32_t *const *to) {
    uint32_t i = 0;
    const __m256i evens_odds = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    if (channels == 1 && ways == 1) {
      for (; i + 8 <= frames; i += 8) store(to[0] + i, in8(src, i, s32));
    } else if (channels == 1) {
      for (; i + 8 <= frames; i += 8) {
        const __m256i v = _mm256_permutevar8x32_epi32(in8(src, i, s32), evens_odds);
        store4(to[0] + i / 2, _mm256_castsi256_si128(v));
        store4(to[1] + i / 2, _mm256_extracti128_si256(v, 1));
      }
    } else if (channels == 2 && ways == 1) {
      for (; i + 4 <= frames; i += 4) {
        const __m256i v = _mm256_permutevar8x32_epi32(in8(src, 2 * i, s32), evens_odds);
        store4(to[0] + i, _mm256_castsi256_si128(v));
        store4(to[1] + i, _mm256_extracti128_si256(v, 1));
      }
    } else if (channels == 2) {
      // Eight frames: [L0 L2 L1 L3 | R0 R2 R1 R3] and the next four likewise,
      // their low halves paired then their high halves.
      const __m256i order = _mm256_setr_epi32(0, 4, 2, 6, 1, 5, 3, 7);
      for (; i + 8 <= frames; i += 8) {
        const __m256i a = _mm256_permutevar8x32_epi32(in8(src, 2 * i, s32), order);
        const __m256i b = _mm256_permutevar8x32_epi32(in8(src, 2 * i + 8, s32), order);
        const __m256i even = _mm256_unpacklo_epi64(a, b), odd = _mm256_unpackhi_epi64(a, b);
        store4(to[0] + i / 2, _mm256_castsi256_si128(even));
        store4(to[2] + i / 2, _mm256_extracti128_si256(even, 1));
        store4(to[1] + i / 2, _mm256_castsi256_si128(odd));
        store4(to[3] + i / 2, _mm256_extracti128_si256(odd, 1));
      }
    }
    if (i == frames) return;
    // The rest plainly, from frame i on (an even i, so alternation keeps).
    int32_t *rest[2 * RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t k = 0; k < channels * ways; ++k) rest[k] = to[k] + i / ways;
    const size_t bytes = s32 ? 4 : 2;
    hq_take_plain(static_cast<const char *>(src) + size_t{i} * channels * bytes, s32, channels, frames - i, ways, rest);
  }

  static void split(const int32_t *y, uint32_t n, int32_t *even, int32_t *odd) {
    const __m256i evens_odds = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    uint32_t i = 0;
    for (; i + 16 <= n; i += 16) {
      const __m256i a = _mm256_permutevar8x32_epi32(load(y + i), evens_odds);
      const __m256i b = _mm256_permutevar8x32_epi32(load(y + i + 8), evens_odds);
      store(even + i / 2, _mm256_permute2x128_si256(a, b, 0x20));
      store(odd + i / 2, _mm256_permute2x128_si256(a, b, 0x31));
    }
    hq_split_plain(y + i, n - i, even + i / 2, odd + i / 2);
  }

  static void give(const int32_t *const *from, uint32_t channels, uint32_t n, bool s32, void *out) {
    uint32_t i = 0;
    const __m256i top = _mm256_set1_epi32((1 << 29) - 1), bottom = _mm256_set1_epi32(-(1 << 29));
    const __m256i half = _mm256_set1_epi32(1 << 13);
    auto out32 = [&](__m256i v) { return _mm256_slli_epi32(_mm256_max_epi32(_mm256_min_epi32(v, top), bottom), 2); };
    auto out16 = [&](__m256i v) { return _mm256_srai_epi32(_mm256_add_epi32(v, half), 14); };
    if (channels == 1) {
      for (; i + 8 <= n; i += 8) {
        const __m256i v = load(from[0] + i);
        if (s32) {
          store(static_cast<int32_t *>(out) + i, out32(v));
        } else {
          const __m256i p = _mm256_packs_epi32(out16(v), out16(v));  // [a0..3 a0..3 | a4..7 a4..7]
          const __m256i q = _mm256_permute4x64_epi64(p, 0x08);
          _mm_storeu_si128(reinterpret_cast<__m128i *>(static_cast<int16_t *>(out) + i), _mm256_castsi256_si128(q));
        }
      }
    } else if (channels == 2) {
      for (; i + 8 <= n; i += 8) {
        __m256i l = load(from[0] + i), r = load(from[1] + i);
        if (s32) {
          l = out32(l);
          r = out32(r);
          const __m256i lo = _mm256_unpacklo_epi32(l, r), hi = _mm256_unpackhi_epi32(l, r);
          int32_t *o = static_cast<int32_t *>(out) + 2 * i;
          store(o, _mm256_permute2x128_si256(lo, hi, 0x20));
          store(o + 8, _mm256_permute2x128_si256(lo, hi, 0x31));
        } else {
          l = out16(l);
          r = out16(r);
          const __m256i lo = _mm256_unpacklo_epi32(l, r), hi = _mm256_unpackhi_epi32(l, r);
          // [L0 R0 L1 R1 | L4 R4 L5 R5] and [L2 R2 L3 R3 | L6 R6 L7 R7] to
          // saturated int16 in frame order.
          const __m256i p = _mm256_packs_epi32(lo, hi);  // [L0 R0 L1 R1 L2 R2 L3 R3 | L4 .. R7]
          _mm256_storeu_si256(reinterpret_cast<__m256i *>(static_cast<int16_t *>(out) + 2 * i), p);
        }
      }
    }
    if (i == n) return;
    const int32_t *rest[RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t c = 0; c < channels; ++c) rest[c] = from[c] + i;
    hq_give_plain(rest, channels, n - i, s32, static_cast<char *>(out) + size_t{i} * channels * (s32 ? 4 : 2));
  }
};

struct Avx2Dot : Avx2Io {
  static void half_up(const int32_t *x, const int32_t *g, uint32_t half, int32_t *out, uint32_t n) {
    const int32_t *oldest = x - (2 * half - 1);
    // The last few outputs too, eight wide (their inputs past n read and
    // their sums dropped), but for the last one or two.
    for (uint32_t t = 0; t < n; t += 8) {
      if (n - t <= 2) {
        for (; t < n; ++t) {
          out[2 * t] = hq_round(halfband1(x + t, oldest + t, g, half), 30);
          out[2 * t + 1] = *(x + t - (half - 1));
        }
        break;
      }
      __m256i e = _mm256_setzero_si256(), o = _mm256_setzero_si256();
      halfband8(x + t, oldest + t, g, half, &e, &o);
      const __m256i fir = interleave(round_clamp<30>(e), round_clamp<30>(o));
      const __m256i copy = load(x + t - (half - 1));
      const __m256i a = _mm256_unpacklo_epi32(fir, copy), b = _mm256_unpackhi_epi32(fir, copy);
      int32_t tail[16];
      int32_t *to = t + 8 <= n ? out + 2 * t : tail;
      store(to, _mm256_permute2x128_si256(a, b, 0x20));
      store(to + 8, _mm256_permute2x128_si256(a, b, 0x31));
      if (to == tail) std::memcpy(out + 2 * t, tail, sizeof(int32_t) * 2 * (n - t));
    }
  }

  static void half_down(const int32_t *e, const int32_t *o, const int32_t *g, uint32_t half, int32_t *out,
                        uint32_t n) {
    const int32_t *oldest = e - (2 * half - 1);
    const __m256i centre = _mm256_set1_epi64x(int64_t{1} << 30);
    for (uint32_t t = 0; t < n; t += 8) {
      if (n - t <= 2) {
        for (; t < n; ++t)
          out[t] = hq_round(halfband1(e + t, oldest + t, g, half) + int64_t{o[t]} * (int64_t{1} << 30), 31);
        break;
      }
      const __m256i c = load(o + t);
      __m256i even = mul_even(c, centre), odd = _mm256_mul_epi32(_mm256_srli_epi64(c, 32), centre);
      halfband8(e + t, oldest + t, g, half, &even, &odd);
      const __m256i y = interleave(round_clamp<31>(even), round_clamp<31>(odd));
      if (t + 8 <= n) {
        store(out + t, y);
      } else {
        int32_t tail[8];
        store(tail, y);
        std::memcpy(out + t, tail, sizeof(int32_t) * (n - t));
      }
    }
  }

  static void blend(const int32_t *rows, uint32_t taps, int32_t w, int32_t w2, int32_t gain, int32_t *c) {
    const int32_t *d1 = rows + taps, *d2 = rows + 2 * taps;
    const __m256i wv = _mm256_set1_epi32(w), w2v = _mm256_set1_epi32(w2), gv = _mm256_set1_epi32(gain);
    const bool scaled = gain != (1 << 29);
    uint32_t k = 0;
    for (; k + 8 <= taps; k += 8) store(c + k, blend8(rows + k, d1 + k, d2 + k, wv, w2v, gv, scaled));
    for (; k < taps; ++k) {
      const int32_t b = rows[k] + static_cast<int32_t>((int64_t{d1[k]} * w) >> 31) +
                        static_cast<int32_t>((int64_t{d2[k]} * w2) >> 31);
      c[k] = scaled ? static_cast<int32_t>((int64_t{b} * gain) >> 29) : b;
    }
  }

  static void dots(const int32_t *x, size_t xstride, uint32_t rows, const int32_t *c, uint32_t taps, int32_t *y,
                   size_t ystride) {
    const uint32_t body = taps & ~7u;
    uint32_t r = 0;
    // Two rows at a time share every load of the taps.
    for (; r + 2 <= rows; r += 2) {
      const int32_t *x0 = x + r * xstride, *x1 = x0 + xstride;
      __m256i e0 = _mm256_setzero_si256(), o0 = _mm256_setzero_si256();
      __m256i e1 = _mm256_setzero_si256(), o1 = _mm256_setzero_si256();
      for (uint32_t k = 0; k < body; k += 8) {
        const __m256i cv = load(c + k), co = _mm256_srli_epi64(cv, 32);
        const __m256i a = load(x0 + k), b = load(x1 + k);
        e0 = _mm256_add_epi64(e0, mul_even(cv, a));
        o0 = _mm256_add_epi64(o0, _mm256_mul_epi32(co, _mm256_srli_epi64(a, 32)));
        e1 = _mm256_add_epi64(e1, mul_even(cv, b));
        o1 = _mm256_add_epi64(o1, _mm256_mul_epi32(co, _mm256_srli_epi64(b, 32)));
      }
      int64_t s0 = hsum(_mm256_add_epi64(e0, o0)), s1 = hsum(_mm256_add_epi64(e1, o1));
      for (uint32_t k = body; k < taps; ++k) {
        s0 += int64_t{c[k]} * x0[k];
        s1 += int64_t{c[k]} * x1[k];
      }
      y[r * ystride] = hq_round(s0, 30);
      y[(r + 1) * ystride] = hq_round(s1, 30);
    }
    for (; r < rows; ++r) {
      const int32_t *xr = x + r * xstride;
      __m256i e = _mm256_setzero_si256(), o = _mm256_setzero_si256();
      for (uint32_t k = 0; k < body; k += 8) {
        const __m256i cv = load(c + k), xv = load(xr + k);
        e = _mm256_add_epi64(e, mul_even(cv, xv));
        o = _mm256_add_epi64(o, mul_odd(cv, xv));
      }
      int64_t sum = hsum(_mm256_add_epi64(e, o));
      for (uint32_t k = body; k < taps; ++k) sum += int64_t{c[k]} * xr[k];
      y[r * ystride] = hq_round(sum, 30);
    }
  }

  // Four outputs, each its own window and taps: four sums per row reduced
  // together, rounded and clamped in one register.
  static void dots4(const int32_t *const *x, size_t xstride, uint32_t rows, const int32_t *const *c, uint32_t taps,
                    int32_t *y, size_t ystride) {
    if (taps % 8 != 0) {
      for (uint32_t i = 0; i < 4; ++i) dots(x[i], xstride, rows, c[i], taps, y + i, ystride);
      return;
    }
    for (uint32_t r = 0; r < rows; ++r) {
      __m256i acc[4];
      for (uint32_t i = 0; i < 4; ++i) {
        const int32_t *xr = x[i] + r * xstride, *ci = c[i];
        __m256i a = _mm256_setzero_si256();
        for (uint32_t k = 0; k < taps; k += 8) {
          const __m256i cv = load(ci + k), xv = load(xr + k);
          a = _mm256_add_epi64(a, _mm256_add_epi64(mul_even(cv, xv), mul_odd(cv, xv)));
        }
        acc[i] = a;
      }
      // [sum 0, sum 1, sum 2, sum 3] from the four registers.
      const __m256i t0 = _mm256_add_epi64(_mm256_unpacklo_epi64(acc[0], acc[1]), _mm256_unpackhi_epi64(acc[0], acc[1]));
      const __m256i t1 = _mm256_add_epi64(_mm256_unpacklo_epi64(acc[2], acc[3]), _mm256_unpackhi_epi64(acc[2], acc[3]));
      const __m256i sums = _mm256_add_epi64(_mm256_permute2x128_si256(t0, t1, 0x20), _mm256_permute2x128_si256(t0, t1, 0x31));
      const __m256i low = _mm256_permutevar8x32_epi32(round_clamp<30>(sums), _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(y + r * ystride), _mm256_castsi256_si128(low));
    }
  }

  static void round_sums(const int64_t *sums, uint32_t n, int32_t *y) {
    const __m256i order = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    uint32_t j = 0;
    for (; j + 8 <= n; j += 8) {
      // [y0 y4 y1 y5 | y2 y6 y3 y7] in order.
      const __m256i a = round_clamp<30>(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(sums + j)));
      const __m256i b = round_clamp<30>(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(sums + j + 4)));
      store(y + j, _mm256_permutevar8x32_epi32(interleave(a, b), order));
    }
    hq_round_sums_plain(sums + j, n - j, y + j);
  }

  // Each input's taps go to a window of blocks of four sums held in
  // registers, which moves on over the sums as the inputs do: a block leaves
  // it (added to the sums in memory) once no later input of the call
  // reaches it. Two channels share each load of the taps where their windows
  // fit the registers together (16 taps), else one channel at a time (24).
  static void deposits(int64_t *acc, size_t astride, uint32_t rows, const int32_t *x, size_t xstride,
                       const int32_t *const *c, const uint32_t *at, uint32_t n, uint32_t taps) {
    if (n == 0) return;
    uint32_t r = 0;
    if (taps == 16) {
      for (; r + 2 <= rows; r += 2) deposit_window<5, 2>(acc + r * astride, astride, x + r * xstride, xstride, c, at, n);
      if (r < rows) deposit_window<5, 1>(acc + r * astride, astride, x + r * xstride, xstride, c, at, n);
    } else if (taps == 24) {
      for (; r < rows; ++r) deposit_window<7, 1>(acc + r * astride, astride, x + r * xstride, xstride, c, at, n);
    } else {
      for (uint32_t t = 0; t < n; ++t)
        for (r = 0; r < rows; ++r)
          for (uint32_t k = 0; k < taps; ++k)
            acc[r * astride + at[t] + k] += int64_t{x[r * xstride + t]} * c[t][k];
    }
  }

  template <int W, int Rows>
  static void deposit_window(int64_t *acc, size_t astride, const int32_t *x, size_t xstride,
                             const int32_t *const *c, const uint32_t *at, uint32_t n) {
    constexpr uint32_t taps = 4 * (W - 1);
    // Lanes l from kWindow + s are on for 4 - s <= l < 8 - s.
    static const int32_t kWindow[12] = {0, 0, 0, 0, -1, -1, -1, -1, 0, 0, 0, 0};
    __m256i s[Rows][W];
#pragma GCC unroll 2
    for (int q = 0; q < Rows; ++q)
#pragma GCC unroll 8
      for (int i = 0; i < W; ++i) s[q][i] = _mm256_setzero_si256();
    uint32_t j = at[0] & ~3u;  // the first sum of the window's first block
    const uint32_t end = at[n - 1] + taps;
    for (uint32_t t = 0; t < n; ++t) {
      while (at[t] >= j + 4) {
        // No later input reaches sums j .. j + 3 (all of them below `end`).
#pragma GCC unroll 2
        for (int q = 0; q < Rows; ++q) {
          add4(acc + q * astride + j, s[q][0]);
#pragma GCC unroll 8
          for (int i = 0; i + 1 < W; ++i) s[q][i] = s[q][i + 1];
          s[q][W - 1] = _mm256_setzero_si256();
        }
        j += 4;
      }
      // The input's first sum is the window's j + r: block i takes its taps
      // 4 i - r .. 4 i - r + 3, of which the first block's from r on and the
      // last block's below r lie in its row (those masked are not read).
      const uint32_t r = at[t] - j;
      const uintptr_t row = reinterpret_cast<uintptr_t>(c[t]) - 4 * uintptr_t{r};
      __m256i cv[W];
      cv[0] = _mm256_cvtepi32_epi64(_mm_maskload_epi32(reinterpret_cast<const int *>(row), load4(kWindow + 4 - r)));
#pragma GCC unroll 8
      for (int i = 1; i + 1 < W; ++i) cv[i] = _mm256_cvtepi32_epi64(load4(reinterpret_cast<const int32_t *>(row) + 4 * i));
      cv[W - 1] = _mm256_cvtepi32_epi64(
          _mm_maskload_epi32(reinterpret_cast<const int *>(row) + 4 * (W - 1), load4(kWindow + 8 - r)));
#pragma GCC unroll 2
      for (int q = 0; q < Rows; ++q) {
        const __m256i xv = _mm256_set1_epi32(x[q * xstride + t]);
#pragma GCC unroll 8
        for (int i = 0; i < W; ++i) s[q][i] = _mm256_add_epi64(s[q][i], _mm256_mul_epi32(cv[i], xv));
      }
    }
    // The window's blocks into the sums, as far as the sums go.
#pragma GCC unroll 8
    for (int i = 0; i < W && j < end; ++i, j += 4)
#pragma GCC unroll 2
      for (int q = 0; q < Rows; ++q) {
        if (j + 4 <= end)
          add4(acc + q * astride + j, s[q][i]);
        else
          add_some(acc + q * astride + j, s[q][i], end - j);
      }
  }

  static __m128i load4(const int32_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
  static void add4(int64_t *p, __m256i v) {
    __m256i *q = reinterpret_cast<__m256i *>(p);
    _mm256_storeu_si256(q, _mm256_add_epi64(_mm256_loadu_si256(q), v));
  }
  static void add_some(int64_t *p, __m256i v, uint32_t count) {
    int64_t lanes[4];
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(lanes), v);
    for (uint32_t l = 0; l < count; ++l) p[l] += lanes[l];
  }
};

constexpr HqKernels kKernels = make_hq_kernels<Avx2Dot>();

}  // namespace

const HqKernels *hq_kernels_avx2() { return &kKernels; }

}  // namespace rsmpl
