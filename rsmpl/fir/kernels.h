// SPDX-License-Identifier: MIT
// The ten FIR kernels as one table per instruction set, so that the exported
// kernels dispatch once at run time and the tests hold every build to the
// same reference.
#ifndef SKELDA_RSMPL_FIR_KERNELS_H
#define SKELDA_RSMPL_FIR_KERNELS_H

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

struct FirKernels {
  FirKernelFn kernel[kFirKernelCount];
};

// One table per build: the plain reference here in fir/, the others in the
// architecture folders. Only rsmpl/cpu.cpp asks for them.
const FirKernels *fir_kernels_scalar();
const FirKernels *fir_kernels_sse2();
const FirKernels *fir_kernels_avx2();
const FirKernels *fir_kernels_neon();

}  // namespace rsmpl

#endif
