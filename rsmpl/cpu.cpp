// SPDX-License-Identifier: MIT
// The one place that knows which kernel builds this binary holds and which of
// them the running CPU can execute. CMake compiles x86/ on x86-64 and arm/ on
// ARM (SKELDA_ARCH_X86, SKELDA_ARCH_ARM); everything else is the plain build.
#include "rsmpl/cpu.h"

#include <atomic>

#include "rsmpl/fir/kernels.h"
#include "rsmpl/hq/direct.h"
#include "rsmpl/hq/kernels.h"

#if defined(SKELDA_ARCH_ARM) && !defined(__aarch64__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace rsmpl {
namespace {

// Every x86-64 CPU has SSE2; AVX2 is asked of the CPU. Every arm64 CPU has
// NEON; on 32-bit ARM the kernel reports it in the auxiliary vector.
bool runs(Isa isa) {
  switch (isa) {
    case kIsaScalar:
      return true;
#if defined(SKELDA_ARCH_X86)
    case kIsaSse2:
      return true;
    case kIsaAvx2:
      return __builtin_cpu_supports("avx2");
#endif
#if defined(SKELDA_ARCH_ARM)
    case kIsaNeon:
#if defined(__aarch64__)
      return true;
#else
      return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
#endif
#endif
    default:
      return false;
  }
}

// Each set is made on first use, so no other static initialiser can see it
// unmade.
const KernelSet *built(Isa isa) {
  switch (isa) {
    case kIsaScalar: {
      static const KernelSet set{"scalar", fir_kernels_scalar(), hq_kernels_scalar(), hq_direct_kernels_scalar()};
      return &set;
    }
#if defined(SKELDA_ARCH_X86)
    case kIsaSse2: {
      static const KernelSet set{"sse2", fir_kernels_sse2(), hq_kernels_sse2(), hq_direct_kernels_sse2()};
      return &set;
    }
    case kIsaAvx2: {
      static const KernelSet set{"avx2", fir_kernels_avx2(), hq_kernels_avx2(), hq_direct_kernels_avx2()};
      return &set;
    }
#endif
#if defined(SKELDA_ARCH_ARM)
    case kIsaNeon: {
      static const KernelSet set{"neon", fir_kernels_neon(), hq_kernels_neon(), hq_direct_kernels_neon()};
      return &set;
    }
#endif
    default:
      return nullptr;
  }
}

const KernelSet *fastest() {
  for (int isa = kIsaCount - 1; isa > kIsaScalar; --isa)
    if (const KernelSet *set = kernel_set(static_cast<Isa>(isa))) return set;
  return built(kIsaScalar);
}

// A relaxed atomic: the sets are constant data, so any thread may see either
// pointer while a benchmark swaps them, and each gives the same samples.
std::atomic<const KernelSet *> &active() {
  static std::atomic<const KernelSet *> set{fastest()};
  return set;
}

}  // namespace

const KernelSet *kernel_set(Isa isa) { return runs(isa) ? built(isa) : nullptr; }

const KernelSet &active_kernels() { return *active().load(std::memory_order_relaxed); }

void use_kernels(const KernelSet *set) {
  active().store(set != nullptr ? set : fastest(), std::memory_order_relaxed);
}

}  // namespace rsmpl
