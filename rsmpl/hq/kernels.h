// SPDX-License-Identifier: MIT
// The high-quality resampler's kernels as one table per instruction set:
// the half-band branches, the polyphase kernel's blend, inner products and
// deposits, and the polyphase passes built around them (hq/kernel.h), so
// that the tests can hold every build to the plain one. Every sample is
// int32 (full scale 2^29, two samples' sum within 32 bits), every tap Q30,
// every sum exact in 64 bits; every output is rounded half up and clamped
// to [-2^30, 2^30).
#ifndef SKELDA_RSMPL_HQ_KERNELS_H
#define SKELDA_RSMPL_HQ_KERNELS_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq/designs.h"
#include "rsmpl/hq/position.h"

namespace rsmpl {

// The interpolating half-band over n inputs: for t < n, out[2 t] is the
// filtering branch sum_d g[d] (x[t - d] + x[t - 2 half + 1 + d]) rounded by
// 2^30, and out[2 t + 1] = x[t - half + 1]. x[-(2 half - 1)] to x[n + 6]
// must exist: builds fill their last lanes past n and drop those sums.
using HqHalfUpFn = void (*)(const int32_t *x, const int32_t *g, uint32_t half, int32_t *out, uint32_t n);
// The decimating half-band for n outputs: out[t] = (sum_d g[d] (e[t - d] +
// e[t - 2 half + 1 + d]) + 2^30 o[t]) rounded by 2^31, e the even and o the
// odd input samples, both readable to [n + 6] as above.
using HqHalfDownFn = void (*)(const int32_t *e, const int32_t *o, const int32_t *g, uint32_t half,
                              int32_t *out, uint32_t n);
// The kernel's taps between phases: b = c0[k] + floor(d1[k] w / 2^31) +
// floor(d2[k] w2 / 2^31), with rows = c0, d1, d2 (taps each), w in Q31 and
// w2 = floor(w (w - 2^31) / 2^32); c[k] = b, or floor(b gain / 2^29) when
// gain (Q29) is not 2^29.
using HqBlendFn = void (*)(const int32_t *rows, uint32_t taps, int32_t w, int32_t w2, int32_t gain, int32_t *c);
// Inner products for `rows` channels: y[r ystride] = sum_k c[k] x[r xstride
// + k], rounded by 2^30.
using HqDotsFn = void (*)(const int32_t *x, size_t xstride, uint32_t rows, const int32_t *c, uint32_t taps,
                          int32_t *y, size_t ystride);
// n sums of Q30 products out as samples: y[j] = sums[j] rounded half up by
// 2^30 and clamped to [-2^30, 2^30).
using HqRoundFn = void (*)(const int64_t *sums, uint32_t n, int32_t *y);
// Deposits of n inputs for `rows` channels: input t adds x[r xstride + t]
// c[t][k] to acc[r astride + at[t] + k] for k < taps, with at[] not
// decreasing and taps at least 4.
using HqDepositsFn = void (*)(int64_t *acc, size_t astride, uint32_t rows, const int32_t *x, size_t xstride,
                              const int32_t *const *c, const uint32_t *at, uint32_t n, uint32_t taps);

// The taps of every phase a ratio L / M visits, made once each: when the
// step's denominator (L going up, M going down) is at most `phases` and the
// position lies on its grid, every position's fraction is r / den for some
// r < den, and row r (taps int32 at rows + r taps) holds that fraction's
// taps once bit r of `made` is set. rows null: no cache.
struct HqPhaseCache {
  int32_t *rows;
  uint32_t *made;
};

// One pass of the polyphase stage (up): outputs while their newest sample
// (floor of the position) is in and `room` lasts, each from the kernel at
// one minus the position's fraction.
struct HqPolyJob {
  const int32_t *x;  // channel 0's line; channel c at x + c xstride
  size_t xstride;
  uint32_t channels;
  uint32_t room;
  int64_t base;      // absolute index of x[0]
  int64_t end;       // absolute index one past the newest sample
  HqPos pos;         // in: the next output's; out: the one after the last made
  HqPos last;        // out: the last output's, when one was made
  HqStep step;
  const HqKernel *kernel;
  int32_t *coef;     // 4 taps int32 of scratch
  int32_t *y;        // channel c's outputs at y + c ystride
  size_t ystride;
  HqPhaseCache cache;
};
// One pass of the transposed polyphase stage (down): each of `count` input
// samples, at output position pos, adds its kernel at ceil(pos) - pos,
// weighted by the span of output it stands for (`gain`), to the sums of
// outputs ceil(pos) .. ceil(pos) + taps - 1.
struct HqPolyTJob {
  const int32_t *x;
  size_t xstride;
  uint32_t channels;
  uint32_t count;
  HqPos pos;
  HqPos last;
  HqStep step;
  int32_t gain;      // Q29: the output positions an input spans (the step)
  const HqKernel *kernel;
  int32_t *coef;     // coef_rows rows of taps int32 of scratch (at least 1)
  uint32_t coef_rows;
  int64_t *acc;      // channel c's sums at acc + c astride
  size_t astride;
  int64_t acc_base;  // output index of acc[0]
  HqPhaseCache cache;
};
// Input frames into a stage's lines: `frames` interleaved frames of
// `channels` int16 (x 2^14 inside) or int32 (/ 4 inside, `s32`) samples;
// `ways` 1 puts channel c's to[c], `ways` 2 alternates them between
// to[2 c] (the first) and to[2 c + 1].
using HqTakeFn = void (*)(const void *src, bool s32, uint32_t channels, uint32_t frames, uint32_t ways,
                          int32_t *const *to);
// n samples alternately to even (the first) and odd.
using HqSplitFn = void (*)(const int32_t *y, uint32_t n, int32_t *even, int32_t *odd);
// n frames out of channels' lines, interleaved: int32 (x 4, the stages'
// range clamped to +-2^29 first, `s32`) or int16 ((y + 2^13) / 2^14,
// saturated).
using HqGiveFn = void (*)(const int32_t *const *from, uint32_t channels, uint32_t n, bool s32, void *out);
using HqPolyFn = uint32_t (*)(HqPolyJob *job);
using HqPolyTFn = void (*)(HqPolyTJob *job);

struct HqKernels {
  HqHalfUpFn half_up;
  HqHalfDownFn half_down;
  HqBlendFn blend;
  HqDotsFn dots;
  HqDepositsFn deposits;
  HqRoundFn round_sums;
  HqPolyFn poly;
  HqPolyTFn poly_t;
  HqTakeFn take;
  HqSplitFn split;
  HqGiveFn give;
};

// One table per build: the plain reference here in hq/, the others in the
// architecture folders. Only rsmpl/cpu.cpp asks for them.
const HqKernels *hq_kernels_scalar();
const HqKernels *hq_kernels_sse2();
const HqKernels *hq_kernels_avx2();
const HqKernels *hq_kernels_neon();

}  // namespace rsmpl

#endif
