// SPDX-License-Identifier: MIT
// NEON build of the high-quality resampler's kernels, for 64-bit ARM and for
// 32-bit ARM with NEON: vmlal products summed in 32-bit lanes, which the
// coefficients are sized for (hq/state.h).
#include <arm_neon.h>

#include "rsmpl/hq/kernel.h"

namespace rsmpl {
namespace {

// The four lanes summed modulo 2^32: exact when the total fits 32 bits.
inline int32_t sum_lanes(int32x4_t v) {
#if defined(__aarch64__)
  return vaddvq_s32(v);
#else
  const int32x2_t pair = vadd_s32(vget_low_s32(v), vget_high_s32(v));
  return vget_lane_s32(vpadd_s32(pair, pair), 0);
#endif
}

struct NeonDot {
  // Both sums stay in 32-bit lanes: the coefficients are sized for that, and
  // lanes that wrap on the way still add up to the exact total.
  static int64_t dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
    int32x4_t hi0 = vdupq_n_s32(0), hi1 = hi0, lo0 = hi0, lo1 = hi0;
    for (uint32_t t = 0; t < taps; t += 8) {
      const int16x8_t xs = vld1q_s16(x + t);
      const int16x8_t h = vld1q_s16(coef + t), l = vld1q_s16(coef + taps + t);
      hi0 = vmlal_s16(hi0, vget_low_s16(xs), vget_low_s16(h));
      hi1 = vmlal_s16(hi1, vget_high_s16(xs), vget_high_s16(h));
      lo0 = vmlal_s16(lo0, vget_low_s16(xs), vget_low_s16(l));
      lo1 = vmlal_s16(lo1, vget_high_s16(xs), vget_high_s16(l));
    }
    const int32_t hi = sum_lanes(vaddq_s32(hi0, hi1)), lo = sum_lanes(vaddq_s32(lo0, lo1));
    return static_cast<int64_t>(hi) * (int64_t{1} << shift) + lo;
  }

  // Two frames of one or two channels: the channels share each coefficient
  // load, the outputs one reduction and output step, taken in 32-bit lanes
  // as hq/state.h describes (lanes that wrap still add up exactly).
  template <int Channels>
  static void frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0,
                        const int16_t *c1, uint32_t taps, uint32_t shift, int16_t *y,
                        size_t frame_step) {
    int32x4_t hi[4], lo[4];
    for (int j = 0; j < 4; ++j) hi[j] = lo[j] = vdupq_n_s32(0);
    const size_t second = Channels == 2 ? line : 0;
    const int16_t *x[4] = {x0, x0 + second, x1, x1 + second};
    for (uint32_t t = 0; t < taps; t += 8) {
      const int16x8_t h[2] = {vld1q_s16(c0 + t), vld1q_s16(c1 + t)};
      const int16x8_t l[2] = {vld1q_s16(c0 + taps + t), vld1q_s16(c1 + taps + t)};
      for (int j = 0; j < 4; ++j) {
        if (Channels == 1 && j % 2 == 1) continue;
        const int16x8_t xs = vld1q_s16(x[j] + t);
        const int16x8_t hj = h[j / 2], lj = l[j / 2];
        hi[j] = vmlal_s16(hi[j], vget_low_s16(xs), vget_low_s16(hj));
        hi[j] = vmlal_s16(hi[j], vget_high_s16(xs), vget_high_s16(hj));
        lo[j] = vmlal_s16(lo[j], vget_low_s16(xs), vget_low_s16(lj));
        lo[j] = vmlal_s16(lo[j], vget_high_s16(xs), vget_high_s16(lj));
      }
    }
    const int32x4_t h = fold4(hi), l = fold4(lo);
    const int32x4_t bias = vdupq_n_s32(1 << (shift + kHqHiShift - 1));
    const int32x4_t sum = vaddq_s32(h, vshlq_s32(vaddq_s32(l, bias), vdupq_n_s32(-static_cast<int32_t>(shift))));
    const int16x4_t v = vqmovn_s32(vshrq_n_s32(sum, kHqHiShift));
    const int16_t f00 = vget_lane_s16(v, 0), f01 = vget_lane_s16(v, 1);
    const int16_t f10 = vget_lane_s16(v, 2), f11 = vget_lane_s16(v, 3);
    y[0] = f00;
    if (Channels == 2) y[1] = f01;
    y[frame_step] = f10;
    if (Channels == 2) y[frame_step + 1] = f11;
  }

  // Eight outputs of one phase for one or two channels, four per register:
  // vld2q splits the eight lanes' sample pairs into their first and second
  // samples, each multiplied by its coefficient.
  template <int Channels>
  static void lanes(const int16_t *const *rows, size_t next, uint32_t m, uint32_t groups,
                       const int16_t *coef, uint32_t shift, int16_t *out) {
    int32x4_t acc[Channels][4];
    for (auto &a : acc)
      for (int32x4_t &v : a) v = vdupq_n_s32(0);
    for (uint32_t i = 0; i < m; ++i) {
      const int16_t *x = rows[i], *c = coef + 4 * i;
      for (uint32_t g = 0; g < groups; ++g, x -= 4, c += 4 * m) {
        for (int k = 0; k < Channels; ++k) {
          const int16x8x2_t v = vld2q_s16(x + k * next);
          const int16x4_t a0 = vget_low_s16(v.val[0]), a1 = vget_high_s16(v.val[0]);
          const int16x4_t b0 = vget_low_s16(v.val[1]), b1 = vget_high_s16(v.val[1]);
          acc[k][0] = vmlal_n_s16(vmlal_n_s16(acc[k][0], a0, c[0]), b0, c[1]);
          acc[k][1] = vmlal_n_s16(vmlal_n_s16(acc[k][1], a1, c[0]), b1, c[1]);
          acc[k][2] = vmlal_n_s16(vmlal_n_s16(acc[k][2], a0, c[2]), b0, c[3]);
          acc[k][3] = vmlal_n_s16(vmlal_n_s16(acc[k][3], a1, c[2]), b1, c[3]);
        }
      }
    }
    const int32x4_t bias = vdupq_n_s32(1 << (shift + kHqHiShift - 1));
    const int32x4_t down = vdupq_n_s32(-static_cast<int32_t>(shift));
    for (int k = 0; k < Channels; ++k) {
      const int32x4_t y0 = vaddq_s32(acc[k][0], vshlq_s32(vaddq_s32(acc[k][2], bias), down));
      const int32x4_t y1 = vaddq_s32(acc[k][1], vshlq_s32(vaddq_s32(acc[k][3], bias), down));
      vst1q_s16(out + kHqLanes * k, vcombine_s16(vqmovn_s32(vshrq_n_s32(y0, kHqHiShift)),
                                                 vqmovn_s32(vshrq_n_s32(y1, kHqHiShift))));
    }
  }

 private:
  // The totals of v[0..3]'s lanes, in that order, modulo 2^32.
  static int32x4_t fold4(const int32x4_t *v) {
#if defined(__aarch64__)
    return vpaddq_s32(vpaddq_s32(v[0], v[1]), vpaddq_s32(v[2], v[3]));
#else
    auto pair = [](int32x4_t a, int32x4_t b) {
      return vpadd_s32(vpadd_s32(vget_low_s32(a), vget_high_s32(a)),
                       vpadd_s32(vget_low_s32(b), vget_high_s32(b)));
    };
    return vcombine_s32(pair(v[0], v[1]), pair(v[2], v[3]));
#endif
  }
};

constexpr HqKernels kNeon = make_hq_kernels<NeonDot>();

}  // namespace

const HqKernels *hq_kernels_neon() { return &kNeon; }

}  // namespace rsmpl
