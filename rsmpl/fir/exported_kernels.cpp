// The exported FIR kernels. Each forwards to the fastest build of itself that
// this CPU runs; the choice is made once, on first use, and every build gives
// the same samples.
#include <atomic>

#include "rsmpl/fir_kernel_set.h"
#include "skelda/rsmpl_fir.h"

namespace rsmpl {

static const FirKernelSet *choose_fir_kernels() {
  if (const FirKernelSet *set = fir_kernels_neon()) return set;
  if (const FirKernelSet *set = fir_kernels_avx2()) return set;
  if (const FirKernelSet *set = fir_kernels_sse2()) return set;
  return fir_kernels_scalar();
}

// A relaxed atomic: the sets are constant data, so any thread may see either
// pointer while the benchmark swaps them, and each gives the same samples.
static std::atomic<const FirKernelSet *> &active_set() {
  static std::atomic<const FirKernelSet *> active{choose_fir_kernels()};
  return active;
}

const FirKernelSet &fir_kernels_active() { return *active_set().load(std::memory_order_relaxed); }

void use_fir_kernels(const FirKernelSet *set) {
  active_set().store(set != nullptr ? set : choose_fir_kernels(), std::memory_order_relaxed);
}

}  // namespace rsmpl

using rsmpl::fir_kernels_active;

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
