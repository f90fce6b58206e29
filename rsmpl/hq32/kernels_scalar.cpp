// SPDX-License-Identifier: MIT
// The plain build of the 32-bit high-quality resampler's kernels: exact
// int64 sums one product at a time. It runs on every architecture and is
// the reference every other build is held to.
#include "rsmpl/hq32/kernel.h"

namespace rsmpl {
namespace {

struct ScalarDot {
  template <int Channels>
  static void sums(const int32_t *x, size_t line, const int32_t *coef, uint32_t taps,
                   int64_t *out) {
    for (int c = 0; c < Channels; ++c) {
      const int32_t *xc = x + c * line;
      int64_t sum = 0;
      for (uint32_t t = 0; t < taps; ++t) sum += int64_t{xc[t]} * coef[t];
      out[c] = sum;
    }
  }
};

constexpr Hq32Kernels kScalar = make_hq32_kernels<ScalarDot>();

}  // namespace

const Hq32Kernels *hq32_kernels_scalar() { return &kScalar; }

}  // namespace rsmpl
