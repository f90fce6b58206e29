// The ten FIR kernels and the high-quality inner product as one table per instruction set, so the exported
// kernels can dispatch once at run time and the tests can hold every build to
// the same reference.
#ifndef SKELDA_RSMPL_FIR_KERNEL_SET_H
#define SKELDA_RSMPL_FIR_KERNEL_SET_H

#include <cstdint>

struct RSMPL_HqState;

namespace rsmpl {

enum FirKernelId {
  kFirUp2,
  kFirDown2,
  kFirUp3,
  kFirDown3,
  kFirUp2To3,
  kFirDown3To2,
  kFirUp4,
  kFirDown4,
  kFirUp6,
  kFirDown6,
  kFirKernelCount
};

using FirKernelFn = void (*)(const int16_t *in, int16_t *out, int32_t n);
// The high-quality resampler's inner product: `taps` (a multiple of 16)
// samples against `taps` hi then `taps` lo coefficients, returning
// (sum_hi << shift) + sum_lo. The coefficients are sized so that neither sum
// leaves 32 bits, which lets the SIMD builds add in 32-bit lanes.
using HqDotFn = int64_t (*)(const int16_t *x, const int16_t *coef, uint32_t taps, uint32_t shift);

// The high-quality resampler's output loop over that inner product: writes
// the outputs that are ready and fit in `room`, returns how many.
using HqProduceFn = uint32_t (*)(struct ::RSMPL_HqState *st, int16_t *out, uint32_t room);

struct FirKernelSet {
  const char *name;
  FirKernelFn kernel[kFirKernelCount];
  HqDotFn hq_dot;
  HqProduceFn hq_produce;
};

// Each returns null when this build or this CPU cannot run it.
const FirKernelSet *fir_kernels_scalar();
const FirKernelSet *fir_kernels_sse2();
const FirKernelSet *fir_kernels_avx2();
const FirKernelSet *fir_kernels_neon();

// The fastest set this CPU runs, chosen on first use.
const FirKernelSet &fir_kernels_active();
// Makes the exported kernels use `set` (null: the fastest again), so the
// benchmark can time the whole plugin path on each build. Not for the audio
// path: nothing in the library calls it.
void use_fir_kernels(const FirKernelSet *set);

}  // namespace rsmpl

#endif
