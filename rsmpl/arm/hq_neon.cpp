// SPDX-License-Identifier: MIT
// The high-quality resampler's kernels for NEON (arm64, and armhf CPUs that
// report it): signed 32 x 32-bit products summed in 64-bit lanes
// (vmlal_s32), the half-bands four outputs at a time with no horizontal
// sums, rounded by the saturating rounding narrow (half up, as the plain
// build) and clamped to the stages' range.
#include <arm_neon.h>

#include <cstring>

#include "rsmpl/hq/kernel.h"

namespace rsmpl {
namespace {

inline int32x4_t clamp(int32x4_t v) {
  return vmaxq_s32(vminq_s32(v, vdupq_n_s32((1 << 30) - 1)), vdupq_n_s32(-(1 << 30)));
}

inline int64_t hsum(int64x2_t v) { return vgetq_lane_s64(v, 0) + vgetq_lane_s64(v, 1); }

// The folded half-band sums of four consecutive outputs (lanes 0-1 in lo,
// 2-3 in hi).
inline void halfband4(const int32_t *x, const int32_t *oldest, const int32_t *g, uint32_t half, int64x2_t *lo,
                      int64x2_t *hi) {
  int64x2_t a = *lo, b = *hi;
  for (uint32_t d = 0; d < half; ++d) {
    const int32x4_t s = vaddq_s32(vld1q_s32(x - d), vld1q_s32(oldest + d));
    const int32x2_t gd = vdup_n_s32(g[d]);
    a = vmlal_s32(a, vget_low_s32(s), gd);
    b = vmlal_s32(b, vget_high_s32(s), gd);
  }
  *lo = a;
  *hi = b;
}

struct NeonDot : HqPlainIo {
  static void half_up(const int32_t *x, const int32_t *g, uint32_t half, int32_t *out, uint32_t n) {
    const int32_t *oldest = x - (2 * half - 1);
    // The last few outputs too, four wide: their inputs past n are read and
    // their sums dropped.
    for (uint32_t t = 0; t < n; t += 4) {
      int64x2_t lo = vdupq_n_s64(0), hi = vdupq_n_s64(0);
      halfband4(x + t, oldest + t, g, half, &lo, &hi);
      const int32x4_t fir = clamp(vcombine_s32(vqrshrn_n_s64(lo, 30), vqrshrn_n_s64(hi, 30)));
      int32x4x2_t pair;
      pair.val[0] = fir;
      pair.val[1] = vld1q_s32(x + t - (half - 1));
      if (t + 4 <= n) {
        vst2q_s32(out + 2 * t, pair);
      } else {
        int32_t tail[8];
        vst2q_s32(tail, pair);
        std::memcpy(out + 2 * t, tail, sizeof(int32_t) * 2 * (n - t));
      }
    }
  }

  static void half_down(const int32_t *e, const int32_t *o, const int32_t *g, uint32_t half, int32_t *out,
                        uint32_t n) {
    const int32_t *oldest = e - (2 * half - 1);
    for (uint32_t t = 0; t < n; t += 4) {
      const int32x4_t c = vld1q_s32(o + t);
      int64x2_t lo = vshll_n_s32(vget_low_s32(c), 30), hi = vshll_n_s32(vget_high_s32(c), 30);
      halfband4(e + t, oldest + t, g, half, &lo, &hi);
      const int32x4_t y = clamp(vcombine_s32(vqrshrn_n_s64(lo, 31), vqrshrn_n_s64(hi, 31)));
      if (t + 4 <= n) {
        vst1q_s32(out + t, y);
      } else {
        int32_t tail[4];
        vst1q_s32(tail, y);
        std::memcpy(out + t, tail, sizeof(int32_t) * (n - t));
      }
    }
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
