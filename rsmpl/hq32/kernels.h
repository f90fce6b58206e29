// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler's kernels as one table per instruction
// set: its inner products and its output loop built around them
// (hq32/kernel.h), so that the tests can hold every build to the plain one.
#ifndef SKELDA_RSMPL_HQ32_KERNELS_H
#define SKELDA_RSMPL_HQ32_KERNELS_H

#include <cstddef>
#include <cstdint>

struct RSMPL_Hq32State;

namespace rsmpl {

// The exact int64 sums of `taps` (a multiple of 8) int32 samples against
// `taps` int32 coefficients, for one channel at x or two at x and x + line.
// The samples and coefficients at x + taps and coef + taps may be read and
// must exist; they do not count.
using Hq32SumsFn = void (*)(const int32_t *x, size_t line, const int32_t *coef, uint32_t taps,
                            int64_t *sums);

// Writes the S32 outputs that are ready and fit in `room`, returns how many.
using Hq32ProduceFn = uint32_t (*)(struct ::RSMPL_Hq32State *st, int32_t *out, uint32_t room);

struct Hq32Kernels {
  Hq32SumsFn sums[2];  // one channel, two channels
  Hq32ProduceFn produce;
};

// One table per build: the plain reference here in hq32/, the others in the
// architecture folders. Only rsmpl/cpu.cpp asks for them.
const Hq32Kernels *hq32_kernels_scalar();
const Hq32Kernels *hq32_kernels_sse2();
const Hq32Kernels *hq32_kernels_avx2();
const Hq32Kernels *hq32_kernels_neon();

}  // namespace rsmpl

#endif
