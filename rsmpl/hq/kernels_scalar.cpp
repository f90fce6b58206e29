// SPDX-License-Identifier: MIT
// The plain build of the high-quality resampler's kernels: the reference
// every other build is held to, and what runs where no other build does.
#include "rsmpl/hq/kernel.h"

namespace rsmpl {
namespace {

struct PlainDot : HqPlainIo {
  static void half_up(const int32_t *x, const int32_t *g, uint32_t half, int32_t *out, uint32_t n) {
    const int32_t *oldest = x - (2 * half - 1);
    for (uint32_t t = 0; t < n; ++t) {
      const int32_t *newest = x + t;
      int64_t sum = 0;
      for (uint32_t d = 0; d < half; ++d)
        sum += int64_t{g[d]} * (*(newest - d) + oldest[t + d]);
      out[2 * t] = hq_round(sum, 30);
      out[2 * t + 1] = *(newest - (half - 1));
    }
  }

  static void half_down(const int32_t *e, const int32_t *o, const int32_t *g, uint32_t half, int32_t *out,
                        uint32_t n) {
    const int32_t *oldest = e - (2 * half - 1);
    for (uint32_t t = 0; t < n; ++t) {
      const int32_t *newest = e + t;
      int64_t sum = int64_t{o[t]} * (int64_t{1} << 30);
      for (uint32_t d = 0; d < half; ++d)
        sum += int64_t{g[d]} * (*(newest - d) + oldest[t + d]);
      out[t] = hq_round(sum, 31);
    }
  }

  static void blend(const int32_t *rows, uint32_t taps, int32_t w, int32_t w2, int32_t gain, int32_t *c) {
    const int32_t *d1 = rows + taps, *d2 = rows + 2 * taps;
    for (uint32_t k = 0; k < taps; ++k) {
      const int32_t b = rows[k] + static_cast<int32_t>((int64_t{d1[k]} * w) >> 31) +
                        static_cast<int32_t>((int64_t{d2[k]} * w2) >> 31);
      c[k] = gain == (1 << 29) ? b : static_cast<int32_t>((int64_t{b} * gain) >> 29);
    }
  }

  static void dots(const int32_t *x, size_t xstride, uint32_t rows, const int32_t *c, uint32_t taps, int32_t *y,
                   size_t ystride) {
    for (uint32_t r = 0; r < rows; ++r) {
      const int32_t *xr = x + r * xstride;
      int64_t sum = 0;
      for (uint32_t k = 0; k < taps; ++k) sum += int64_t{c[k]} * xr[k];
      y[r * ystride] = hq_round(sum, 30);
    }
  }

  // Four outputs, each its own window and taps.
  static void dots4(const int32_t *const *x, size_t xstride, uint32_t rows, const int32_t *const *c, uint32_t taps,
                    int32_t *y, size_t ystride) {
    for (uint32_t i = 0; i < 4; ++i) dots(x[i], xstride, rows, c[i], taps, y + i, ystride);
  }

  static void round_sums(const int64_t *sums, uint32_t n, int32_t *y) { hq_round_sums_plain(sums, n, y); }

  static void deposits(int64_t *acc, size_t astride, uint32_t rows, const int32_t *x, size_t xstride,
                       const int32_t *const *c, const uint32_t *at, uint32_t n, uint32_t taps) {
    for (uint32_t t = 0; t < n; ++t)
      for (uint32_t r = 0; r < rows; ++r) {
        int64_t *a = acc + r * astride + at[t];
        const int64_t v = x[r * xstride + t];
        for (uint32_t k = 0; k < taps; ++k) a[k] += v * c[t][k];
      }
  }
};

constexpr HqKernels kKernels = make_hq_kernels<PlainDot>();

}  // namespace

const HqKernels *hq_kernels_scalar() { return &kKernels; }

}  // namespace rsmpl
