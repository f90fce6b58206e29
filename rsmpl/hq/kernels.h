// SPDX-License-Identifier: MIT
// The high-quality resampler's kernels as one table per instruction set:
// its inner product, its output loop built around that build's inner
// products and its fill of the small ratios' pair rows (hq/kernel.h), so that the tests can hold every build to the
// plain one.
#ifndef SKELDA_RSMPL_HQ_KERNELS_H
#define SKELDA_RSMPL_HQ_KERNELS_H

#include <cstdint>

struct RSMPL_HqState;

namespace rsmpl {

// `taps` (a multiple of 16) samples against `taps` hi then `taps` lo
// coefficients, returning (sum_hi << shift) + sum_lo. The coefficients are
// sized so that neither sum leaves 32 bits, which lets the SIMD builds add
// in 32-bit lanes.
using HqDotFn = int64_t (*)(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift);

// Writes the outputs that are ready and fit in `room`, returns how many.
using HqProduceFn = uint32_t (*)(struct ::RSMPL_HqState *st, int16_t *out, uint32_t room);

// Appends `take` frames of input to a direct design's pair rows.
using HqTakeFn = void (*)(struct ::RSMPL_HqState *st, const int16_t *src, uint32_t take);

struct HqKernels {
  HqDotFn dot;
  HqProduceFn produce;
  HqTakeFn take_rows;
};

// One table per build: the plain reference here in hq/, the others in the
// architecture folders. Only rsmpl/cpu.cpp asks for them.
const HqKernels *hq_kernels_scalar();
const HqKernels *hq_kernels_sse2();
const HqKernels *hq_kernels_avx2();
const HqKernels *hq_kernels_neon();

}  // namespace rsmpl

#endif
