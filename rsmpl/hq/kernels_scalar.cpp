// SPDX-License-Identifier: MIT
// The plain build of the high-quality resampler's kernels: 64-bit inner
// products one output at a time. It runs on every architecture and is the
// reference every other build is held to.
#include "rsmpl/hq/kernel.h"

namespace rsmpl {
namespace {

struct ScalarDot : HqPlainRows {
  static int64_t dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
    int64_t hi = 0, lo = 0;
    for (uint32_t t = 0; t < taps; ++t) {
      hi += static_cast<int32_t>(x[t]) * coef[t];
      lo += static_cast<int32_t>(x[t]) * coef[taps + t];
    }
    return hi * (int64_t{1} << shift) + lo;
  }
  template <int Channels>
  static void frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0,
                     const int16_t *c1, uint32_t taps, uint32_t shift, int16_t *y,
                     size_t frame_step) {
    hq_frames_by_dot<ScalarDot, Channels>(x0, x1, line, c0, c1, taps, shift, y, frame_step);
  }
  template <int Channels>
  static void lanes(const int16_t *const *rows, size_t at, size_t next, uint32_t m,
                    uint32_t groups, const int16_t *coef, uint32_t shift, int16_t *out, size_t out_step) {
    hq_lanes_plain<Channels>(rows, at, next, m, groups, coef, shift, out, out_step);
  }
};

constexpr HqKernels kScalar = make_hq_kernels<ScalarDot>();

}  // namespace

const HqKernels *hq_kernels_scalar() { return &kScalar; }

}  // namespace rsmpl
