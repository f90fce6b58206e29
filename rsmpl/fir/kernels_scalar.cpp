// SPDX-License-Identifier: MIT
// The plain build of the FIR kernels: the general form with a 64-bit inner
// product. It runs on every architecture, is the reference every other build
// is held to, and the baseline they are measured against.
#include "rsmpl/fir/kernel.h"

namespace rsmpl {
namespace {

struct ScalarDot {
  template <class Shape, int Taps>
  static int64_t dot(const int16_t *x, const int16_t *w) {
    int64_t sum = 0;
    for (int t = 0; t < Taps; ++t) sum += static_cast<int32_t>(x[t]) * w[t];
    return sum;
  }
  template <class Shape>
  static int32_t groups_at_once(const int16_t *, int16_t *, int32_t) {
    return 0;
  }
  template <class Shape>
  static void group(const int16_t *span, int16_t *dst) {
    group_per_phase<Shape, ScalarDot>(span, dst);
  }
};

constexpr FirKernels kScalar = make_fir_kernels<ScalarDot>();

}  // namespace

const FirKernels *fir_kernels_scalar() { return &kScalar; }

}  // namespace rsmpl
