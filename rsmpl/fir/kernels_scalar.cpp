// The portable build of the FIR kernels: the general form with a plain 64-bit
// inner product. It runs on every architecture and is the baseline the SIMD
// builds are measured against.
#include "rsmpl/fir_kernel.h"

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
  static int64_t hq_dot(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift) {
    int64_t hi = 0, lo = 0;
    for (uint32_t t = 0; t < taps; ++t) {
      hi += static_cast<int32_t>(x[t]) * coef[t];
      lo += static_cast<int32_t>(x[t]) * coef[taps + t];
    }
    return hi * (int64_t{1} << shift) + lo;
  }
  template <int Channels>
  static void hq_frames(const int16_t *x0, const int16_t *x1, size_t line, const int16_t *c0,
                        const int16_t *c1, uint32_t taps, uint32_t shift, int16_t *y,
                        size_t frame_step) {
    hq_frames_by_dot<ScalarDot, Channels>(x0, x1, line, c0, c1, taps, shift, y, frame_step);
  }
  template <int Channels>
  static void hq_lanes(const int16_t *const *rows, size_t next, uint32_t m, uint32_t groups,
                       const int16_t *coef, uint32_t shift, int16_t *out) {
    hq_lanes_plain<Channels>(rows, next, m, groups, coef, shift, out);
  }
};

constexpr FirKernelSet kScalarSet = make_kernel_set<ScalarDot>("scalar");

}  // namespace

const FirKernelSet *fir_kernels_scalar() { return &kScalarSet; }

}  // namespace rsmpl
