// SPDX-License-Identifier: MIT
// The plain build of the single stage's kernels: the reference every other
// build is held to, and what runs where no other build does.
#include "rsmpl/hq/direct_kernel.h"

namespace rsmpl {
namespace {

struct PlainDot16 {
  static constexpr uint32_t kLanes = 0;  // no lane kernel: outputs one at a time
  HQ_DIRECT_INLINE static void dots(const int16_t *x, size_t xstride, uint32_t rows, const uint8_t *row, uint32_t taps, int32_t *y,
                   size_t ystride) {
    hq_direct_dots_plain(x, xstride, rows, row, taps, y, ystride);
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

constexpr HqDirectKernels kKernels = make_hq_direct_kernels<PlainDot16>();

}  // namespace

const HqDirectKernels *hq_direct_kernels_scalar() { return &kKernels; }

}  // namespace rsmpl
