// SPDX-License-Identifier: MIT
// The single stage's kernels for NEON: 16 x 16-bit products summed in
// 32-bit lanes (vmlal_s16), the hi and the lo halves of the taps in sums of
// their own, two channels sharing every load of a row; stereo frames split
// into their lines by the de-interleaving load.
#include <arm_neon.h>

#include "rsmpl/hq/direct_kernel.h"
#include "skelda/rsmpl_hq.h"

namespace rsmpl {
namespace {

inline int32_t hsum(int32x4_t v) {
  const int32x2_t s = vadd_s32(vget_low_s32(v), vget_high_s32(v));
  return vget_lane_s32(vpadd_s32(s, s), 0);
}

// Eight taps' products into the sums.
inline int32x4_t mla8(int32x4_t acc, int16x8_t x, int16x8_t c) {
  acc = vmlal_s16(acc, vget_low_s16(x), vget_low_s16(c));
  return vmlal_s16(acc, vget_high_s16(x), vget_high_s16(c));
}

struct NeonDot16 {
  static constexpr uint32_t kLanes = 0;  // no lane kernel: outputs one at a time
  HQ_DIRECT_INLINE static void dots(const int16_t *x, size_t xstride, uint32_t rows, const uint8_t *row, uint32_t taps, int32_t *y,
                   size_t ystride) {
    const int16_t *hi = reinterpret_cast<const int16_t *>(row);
    const uint8_t *lo = row + 2 * size_t{taps};
    uint32_t r = 0;
    for (; r + 2 <= rows; r += 2) {
      const int16_t *x0 = x + r * xstride, *x1 = x0 + xstride;
      int32x4_t h0 = vdupq_n_s32(0), l0 = h0, h1 = h0, l1 = h0;
#pragma GCC unroll 9
      for (uint32_t k = 0; k < taps; k += 8) {
        const int16x8_t ch = vld1q_s16(hi + k), cl = vreinterpretq_s16_u16(vmovl_u8(vld1_u8(lo + k)));
        const int16x8_t a = vld1q_s16(x0 + k), b = vld1q_s16(x1 + k);
        h0 = mla8(h0, a, ch);
        l0 = mla8(l0, a, cl);
        h1 = mla8(h1, b, ch);
        l1 = mla8(l1, b, cl);
      }
      y[r * ystride] = hq_direct_output(hsum(h0), hsum(l0));
      y[(r + 1) * ystride] = hq_direct_output(hsum(h1), hsum(l1));
    }
    for (; r < rows; ++r) {
      const int16_t *xr = x + r * xstride;
      int32x4_t h = vdupq_n_s32(0), l = h;
#pragma GCC unroll 9
      for (uint32_t k = 0; k < taps; k += 8) {
        const int16x8_t a = vld1q_s16(xr + k);
        h = mla8(h, a, vld1q_s16(hi + k));
        l = mla8(l, a, vreinterpretq_s16_u16(vmovl_u8(vld1_u8(lo + k))));
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
    uint32_t i = 0;
    if (channels == 2) {
      for (; i + 8 <= frames; i += 8) {
        const int16x8x2_t v = vld2q_s16(src + 2 * i);
        vst1q_s16(to[0] + i, v.val[0]);
        vst1q_s16(to[1] + i, v.val[1]);
      }
    }
    if (i == frames) return;
    int16_t *rest[RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t c = 0; c < channels; ++c) rest[c] = to[c] + i;
    hq_direct_take_plain(src + size_t{i} * channels, channels, frames - i, rest);
  }
};

constexpr HqDirectKernels kKernels = make_hq_direct_kernels<NeonDot16>();

}  // namespace

const HqDirectKernels *hq_direct_kernels_neon() { return &kKernels; }

}  // namespace rsmpl
