// SPDX-License-Identifier: MIT
// The exported FIR kernels. Each forwards to the build of itself that
// rsmpl/cpu.cpp chose for this CPU; every build gives the same samples.
#include "rsmpl/cpu.h"
#include "rsmpl/fir/kernels.h"
#include "skelda/rsmpl_fir.h"

namespace {

inline const rsmpl::FirKernels &fir_kernels_active() { return *rsmpl::active_kernels().fir; }

}  // namespace

extern "C" {

SKELDA_API void UpsampleFIR1To2(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirUp2](in, out, n);
}
SKELDA_API void DownsampleFIR2To1(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirDown2](in, out, n);
}
SKELDA_API void UpsampleFIR1To3(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirUp3](in, out, n);
}
SKELDA_API void DownsampleFIR3To1(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirDown3](in, out, n);
}
SKELDA_API void UpsampleFIR2To3(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirUp2To3](in, out, n);
}
SKELDA_API void DownsampleFIR3To2(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirDown3To2](in, out, n);
}
SKELDA_API void UpsampleFIR1To4(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirUp4](in, out, n);
}
SKELDA_API void DownsampleFIR4To1(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirDown4](in, out, n);
}
SKELDA_API void UpsampleFIR1To6(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirUp6](in, out, n);
}
SKELDA_API void DownsampleFIR6To1(const int16_t *in, int16_t *out, int32_t n) {
  fir_kernels_active().kernel[rsmpl::kFirDown6](in, out, n);
}

}  // extern "C"
