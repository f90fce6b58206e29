// SPDX-License-Identifier: MIT
// The high-quality resampler's kernels for NEON (arm64, and armhf CPUs that
// report it): signed 32 x 32-bit products summed in 64-bit lanes
// (vmlal_s32), the half-bands four outputs at a time with no horizontal
// sums, rounded by the saturating rounding narrow (half up, as the plain
// build) and clamped to the stages' range.
#include <arm_neon.h>

#include <cstring>

#include "rsmpl/hq/kernel.h"
#include "skelda/rsmpl_hq.h"

namespace rsmpl {
namespace {

inline int32x4_t clamp(int32x4_t v) {
  return vmaxq_s32(vminq_s32(v, vdupq_n_s32((1 << 30) - 1)), vdupq_n_s32(-(1 << 30)));
}

inline int64_t hsum(int64x2_t v) { return vgetq_lane_s64(v, 0) + vgetq_lane_s64(v, 1); }

// One tap of the folded half-band, the pair of samples from `newer` (going
// back) and `older` (going on), its weight taken from lane Lane of gv, into
// the sums of 4 G consecutive outputs (lanes 2 m and 2 m + 1 in a[m]).
template <int G, int Lane>
[[gnu::always_inline]] inline void halfband_tap(int64x2_t *a, const int32_t *newer, const int32_t *older,
                                                int32x2_t gv) {
#pragma GCC unroll 4
  for (int m = 0; m < G; ++m) {
    const int32x4_t sum = vaddq_s32(vld1q_s32(newer + 4 * m), vld1q_s32(older + 4 * m));
    a[2 * m] = vmlal_lane_s32(a[2 * m], vget_low_s32(sum), gv, Lane);
    a[2 * m + 1] = vmlal_lane_s32(a[2 * m + 1], vget_high_s32(sum), gv, Lane);
  }
}

// The folded half-band sums of 4 G consecutive outputs, added to s: four
// taps loaded at a time and each taken by lane, so that no tap is
// duplicated across a register of its own.
template <int G>
[[gnu::always_inline]] inline void halfband(const int32_t *x, const int32_t *oldest, const int32_t *g,
                                            uint32_t half, int64x2_t *s) {
  int64x2_t a[2 * G];
#pragma GCC unroll 8
  for (int m = 0; m < 2 * G; ++m) a[m] = s[m];
  const int32_t *newer = x, *older = oldest, *const end = g + (half & ~3u);
  for (; g != end; g += 4, newer -= 4, older += 4) {
    const int32x4_t gv = vld1q_s32(g);
    halfband_tap<G, 0>(a, newer, older, vget_low_s32(gv));
    halfband_tap<G, 1>(a, newer - 1, older + 1, vget_low_s32(gv));
    halfband_tap<G, 0>(a, newer - 2, older + 2, vget_high_s32(gv));
    halfband_tap<G, 1>(a, newer - 3, older + 3, vget_high_s32(gv));
  }
  if (half & 2) {
    const int32x2_t gv = vld1_s32(g);
    halfband_tap<G, 0>(a, newer, older, gv);
    halfband_tap<G, 1>(a, newer - 1, older + 1, gv);
    g += 2;
    newer -= 2;
    older += 2;
  }
  if (half & 1) halfband_tap<G, 0>(a, newer, older, vld1_dup_s32(g));
#pragma GCC unroll 8
  for (int m = 0; m < 2 * G; ++m) s[m] = a[m];
}

// Four sums rounded by 2^Shift (half up, saturating) and clamped.
template <int Shift>
inline int32x4_t narrow(int64x2_t lo, int64x2_t hi) {
  return clamp(vcombine_s32(vqrshrn_n_s64(lo, Shift), vqrshrn_n_s64(hi, Shift)));
}

// The decimating half-band's outputs from t on, 4 G at a time, the last
// block's sums past n dropped.
template <int G>
inline void half_down_block(const int32_t *e, const int32_t *oldest, const int32_t *o, const int32_t *g,
                            uint32_t half, int32_t *out, uint32_t t, uint32_t n) {
  int64x2_t a[2 * G];
#pragma GCC unroll 4
  for (int m = 0; m < G; ++m) {
    const int32x4_t c = vld1q_s32(o + t + 4 * m);
    a[2 * m] = vshll_n_s32(vget_low_s32(c), 30);
    a[2 * m + 1] = vshll_n_s32(vget_high_s32(c), 30);
  }
  halfband<G>(e + t, oldest + t, g, half, a);
  int32_t y[4 * G];
  int32_t *to = n - t >= 4 * G ? out + t : y;
#pragma GCC unroll 4
  for (int m = 0; m < G; ++m) vst1q_s32(to + 4 * m, narrow<31>(a[2 * m], a[2 * m + 1]));
  if (to == y) std::memcpy(out + t, y, sizeof(int32_t) * (n - t));
}

// The interpolating half-band's likewise (two outputs per input).
template <int G>
inline void half_up_block(const int32_t *x, const int32_t *oldest, const int32_t *g, uint32_t half, int32_t *out,
                          uint32_t t, uint32_t n) {
  int64x2_t a[2 * G];
#pragma GCC unroll 8
  for (int m = 0; m < 2 * G; ++m) a[m] = vdupq_n_s64(0);
  halfband<G>(x + t, oldest + t, g, half, a);
  int32_t y[8 * G];
  int32_t *to = n - t >= 4 * G ? out + 2 * t : y;
#pragma GCC unroll 4
  for (int m = 0; m < G; ++m) {
    int32x4x2_t pair;
    pair.val[0] = narrow<30>(a[2 * m], a[2 * m + 1]);
    pair.val[1] = vld1q_s32(x + t + 4 * m - (half - 1));
    vst2q_s32(to + 8 * m, pair);
  }
  if (to == y) std::memcpy(out + 2 * t, y, sizeof(int32_t) * 2 * (n - t));
}

// Four samples in from int16 or int32, inside's scale.
inline int32x4_t in16(int16x4_t v) { return vshll_n_s16(v, 14); }
inline int32x4_t in32(int32x4_t v) { return vshrq_n_s32(v, 2); }
// Four samples out: int32 (clamped to +-2^29, x 4) or int16.
inline int32x4_t out32(int32x4_t v) {
  return vshlq_n_s32(vmaxq_s32(vminq_s32(v, vdupq_n_s32((1 << 29) - 1)), vdupq_n_s32(-(1 << 29))), 2);
}
inline int16x4_t out16(int32x4_t v) { return vqmovn_s32(vshrq_n_s32(vaddq_s32(v, vdupq_n_s32(1 << 13)), 14)); }

// Mono and stereo frames in, and out, apart and together by the
// de-interleaving loads and interleaving stores; other counts take the
// plain forms.
struct NeonIo {
  static void take(const void *src, bool s32, uint32_t channels, uint32_t frames, uint32_t ways, int32_t *const *to) {
    uint32_t i = 0;
    const auto *p32 = static_cast<const int32_t *>(src);
    const auto *p16 = static_cast<const int16_t *>(src);
    if (channels == 2 && ways == 2) {
      // Eight frames: left even, right even, left odd, right odd.
      int32_t *le = to[0], *lo = to[1], *re = to[2], *ro = to[3];
      for (; i + 8 <= frames; i += 8) {
        if (s32) {
          const int32x4x4_t l = vld4q_s32(p32 + 2 * i);
          vst1q_s32(le + i / 2, in32(l.val[0]));
          vst1q_s32(re + i / 2, in32(l.val[1]));
          vst1q_s32(lo + i / 2, in32(l.val[2]));
          vst1q_s32(ro + i / 2, in32(l.val[3]));
        } else {
          const int16x4x4_t l = vld4_s16(p16 + 2 * i);
          vst1q_s32(le + i / 2, in16(l.val[0]));
          vst1q_s32(re + i / 2, in16(l.val[1]));
          vst1q_s32(lo + i / 2, in16(l.val[2]));
          vst1q_s32(ro + i / 2, in16(l.val[3]));
        }
      }
    } else if (channels * ways == 2) {
      // Stereo apart (four frames), or mono's even and odd (eight).
      const uint32_t step = 8 / channels;
      int32_t *a = to[0], *b = to[1];
      for (; i + step <= frames; i += step) {
        if (s32) {
          const int32x4x2_t l = vld2q_s32(p32 + channels * i);
          vst1q_s32(a + i / ways, in32(l.val[0]));
          vst1q_s32(b + i / ways, in32(l.val[1]));
        } else {
          const int16x4x2_t l = vld2_s16(p16 + channels * i);
          vst1q_s32(a + i / ways, in16(l.val[0]));
          vst1q_s32(b + i / ways, in16(l.val[1]));
        }
      }
    } else if (channels == 1) {
      int32_t *a = to[0];
      for (; i + 4 <= frames; i += 4) vst1q_s32(a + i, s32 ? in32(vld1q_s32(p32 + i)) : in16(vld1_s16(p16 + i)));
    }
    if (i == frames) return;
    // The rest plainly, from frame i on (an even i, so alternation keeps).
    int32_t *rest[2 * RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t k = 0; k < channels * ways; ++k) rest[k] = to[k] + i / ways;
    const size_t bytes = s32 ? 4 : 2;
    hq_take_plain(static_cast<const char *>(src) + size_t{i} * channels * bytes, s32, channels, frames - i, ways, rest);
  }

  static void split(const int32_t *y, uint32_t n, int32_t *even, int32_t *odd) {
    uint32_t i = 0;
    for (; i + 8 <= n; i += 8) {
      const int32x4x2_t l = vld2q_s32(y + i);
      vst1q_s32(even + i / 2, l.val[0]);
      vst1q_s32(odd + i / 2, l.val[1]);
    }
    hq_split_plain(y + i, n - i, even + i / 2, odd + i / 2);
  }

  static void give(const int32_t *const *from, uint32_t channels, uint32_t n, bool s32, void *out) {
    uint32_t i = 0;
    auto *o32 = static_cast<int32_t *>(out);
    auto *o16 = static_cast<int16_t *>(out);
    if (channels == 1) {
      for (; i + 4 <= n; i += 4) {
        const int32x4_t v = vld1q_s32(from[0] + i);
        if (s32)
          vst1q_s32(o32 + i, out32(v));
        else
          vst1_s16(o16 + i, out16(v));
      }
    } else if (channels == 2) {
      for (; i + 4 <= n; i += 4) {
        const int32x4_t l = vld1q_s32(from[0] + i), r = vld1q_s32(from[1] + i);
        if (s32) {
          int32x4x2_t v;
          v.val[0] = out32(l);
          v.val[1] = out32(r);
          vst2q_s32(o32 + 2 * i, v);
        } else {
          int16x4x2_t v;
          v.val[0] = out16(l);
          v.val[1] = out16(r);
          vst2_s16(o16 + 2 * i, v);
        }
      }
    }
    if (i == n) return;
    const int32_t *rest[RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t c = 0; c < channels; ++c) rest[c] = from[c] + i;
    hq_give_plain(rest, channels, n - i, s32, static_cast<char *>(out) + size_t{i} * channels * (s32 ? 4 : 2));
  }
};

struct NeonDot : NeonIo {
  // Eight outputs at a time, then four; the last few read past n and drop
  // their sums.
  static void half_up(const int32_t *x, const int32_t *g, uint32_t half, int32_t *out, uint32_t n) {
    const int32_t *oldest = x - (2 * half - 1);
    uint32_t t = 0;
    for (; t + 4 < n; t += 8) half_up_block<2>(x, oldest, g, half, out, t, n);
    if (t < n) half_up_block<1>(x, oldest, g, half, out, t, n);
  }

  static void half_down(const int32_t *e, const int32_t *o, const int32_t *g, uint32_t half, int32_t *out,
                        uint32_t n) {
    const int32_t *oldest = e - (2 * half - 1);
    uint32_t t = 0;
    for (; t + 4 < n; t += 8) half_down_block<2>(e, oldest, o, g, half, out, t, n);
    if (t < n) half_down_block<1>(e, oldest, o, g, half, out, t, n);
  }

  static void blend(const int32_t *rows, uint32_t taps, int32_t w, int32_t w2, int32_t gain, int32_t *c) {
    const int32_t *d1 = rows + taps, *d2 = rows + 2 * taps;
    const bool scaled = gain != (1 << 29);
    const int32x2_t wv = vdup_n_s32(w), w2v = vdup_n_s32(w2), gv = vdup_n_s32(gain);
    uint32_t k = 0;
    for (; k + 4 <= taps; k += 4) {
      const int32x4_t a = vld1q_s32(d1 + k), b = vld1q_s32(d2 + k);
      // floor(product / 2^31) keeps its low 32 bits: the narrowing shift.
      const int32x4_t pa = vcombine_s32(vshrn_n_s64(vmull_s32(vget_low_s32(a), wv), 31),
                                        vshrn_n_s64(vmull_s32(vget_high_s32(a), wv), 31));
      const int32x4_t pb = vcombine_s32(vshrn_n_s64(vmull_s32(vget_low_s32(b), w2v), 31),
                                        vshrn_n_s64(vmull_s32(vget_high_s32(b), w2v), 31));
      int32x4_t v = vaddq_s32(vaddq_s32(vld1q_s32(rows + k), pa), pb);
      if (scaled)
        v = vcombine_s32(vshrn_n_s64(vmull_s32(vget_low_s32(v), gv), 29),
                         vshrn_n_s64(vmull_s32(vget_high_s32(v), gv), 29));
      vst1q_s32(c + k, v);
    }
    for (; k < taps; ++k) {
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
      int64x2_t a = vdupq_n_s64(0), b = vdupq_n_s64(0);
      for (uint32_t k = 0; k < body; k += 4) {
        const int32x4_t cv = vld1q_s32(c + k), xv = vld1q_s32(xr + k);
        a = vmlal_s32(a, vget_low_s32(cv), vget_low_s32(xv));
        b = vmlal_s32(b, vget_high_s32(cv), vget_high_s32(xv));
      }
      int64_t sum = hsum(vaddq_s64(a, b));
      for (uint32_t k = body; k < taps; ++k) sum += int64_t{c[k]} * xr[k];
      y[r * ystride] = hq_round(sum, 30);
    }
  }

  // Four outputs, each its own window and taps.
  static void dots4(const int32_t *const *x, size_t xstride, uint32_t rows, const int32_t *const *c, uint32_t taps,
                    int32_t *y, size_t ystride) {
    for (uint32_t i = 0; i < 4; ++i) dots(x[i], xstride, rows, c[i], taps, y + i, ystride);
  }

  static void round_sums(const int64_t *sums, uint32_t n, int32_t *y) {
    uint32_t j = 0;
    for (; j + 4 <= n; j += 4) {
      const int32x2_t lo = vqrshrn_n_s64(vld1q_s64(sums + j), 30), hi = vqrshrn_n_s64(vld1q_s64(sums + j + 2), 30);
      vst1q_s32(y + j, clamp(vcombine_s32(lo, hi)));
    }
    hq_round_sums_plain(sums + j, n - j, y + j);
  }

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
      const int32x2_t xv = vdup_n_s32(x[r * xstride]);
      for (uint32_t k = 0; k < body; k += 4) {
        const int32x4_t cv = vld1q_s32(c + k);
        vst1q_s64(a + k, vmlal_s32(vld1q_s64(a + k), vget_low_s32(cv), xv));
        vst1q_s64(a + k + 2, vmlal_s32(vld1q_s64(a + k + 2), vget_high_s32(cv), xv));
      }
      const int64_t v = x[r * xstride];
      for (uint32_t k = body; k < taps; ++k) a[k] += v * c[k];
    }
  }
};

constexpr HqKernels kKernels = make_hq_kernels<NeonDot>();

}  // namespace

const HqKernels *hq_kernels_neon() { return &kKernels; }

}  // namespace rsmpl
