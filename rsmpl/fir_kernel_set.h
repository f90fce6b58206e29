// The ten FIR kernels as one table per instruction set, so the exported
// kernels can dispatch once at run time and the tests can hold every build to
// the same reference.
#ifndef SKELDA_RSMPL_FIR_KERNEL_SET_H
#define SKELDA_RSMPL_FIR_KERNEL_SET_H

#include <cstdint>

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

struct FirKernelSet {
  const char *name;
  FirKernelFn kernel[kFirKernelCount];
};

// Each returns null when this build or this CPU cannot run it.
const FirKernelSet *fir_kernels_scalar();
const FirKernelSet *fir_kernels_sse2();
const FirKernelSet *fir_kernels_avx2();

// The fastest set this CPU runs, chosen on first use.
const FirKernelSet &fir_kernels_active();
// Makes the exported kernels use `set` (null: the fastest again), so the
// benchmark can time the whole plugin path on each build. Not for the audio
// path: nothing in the library calls it.
void use_fir_kernels(const FirKernelSet *set);

}  // namespace rsmpl

#endif
