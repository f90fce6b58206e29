// SPDX-License-Identifier: MIT
// NEON build of the 32-bit high-quality resampler's kernels, for 64-bit ARM
// and for 32-bit ARM with NEON: vmlal multiplies 32-bit lanes into exact
// 64-bit sums, two products an instruction, and two channels share every
// coefficient load.
#include <arm_neon.h>

#include "rsmpl/hq32/kernel.h"

namespace rsmpl {
namespace {

struct NeonDot {
  template <int Channels>
  static void sums(const int32_t *x, size_t line, const int32_t *coef, uint32_t taps,
                   int64_t *out) {
    int64x2_t lo[Channels], hi[Channels];
    for (int k = 0; k < Channels; ++k) lo[k] = hi[k] = vdupq_n_s64(0);
    for (uint32_t t = 0; t < taps; t += 4) {
      const int32x4_t cv = vld1q_s32(coef + t);
      for (int k = 0; k < Channels; ++k) {
        const int32x4_t xv = vld1q_s32(x + k * line + t);
        lo[k] = vmlal_s32(lo[k], vget_low_s32(xv), vget_low_s32(cv));
#if defined(__aarch64__)
        hi[k] = vmlal_high_s32(hi[k], xv, cv);
#else
        hi[k] = vmlal_s32(hi[k], vget_high_s32(xv), vget_high_s32(cv));
#endif
      }
    }
    for (int k = 0; k < Channels; ++k) {
      const int64x2_t s = vaddq_s64(lo[k], hi[k]);
      out[k] = vgetq_lane_s64(s, 0) + vgetq_lane_s64(s, 1);
    }
  }
};

constexpr Hq32Kernels kNeon = make_hq32_kernels<NeonDot>();

}  // namespace

const Hq32Kernels *hq32_kernels_neon() { return &kNeon; }

}  // namespace rsmpl
