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

const KernelSet *fastest() { return built(fastest_isa(cpu_features())); }

// A relaxed atomic: the sets are constant data, so any thread may see either
// pointer while a benchmark swaps them, and each gives the same samples.
std::atomic<const KernelSet *> &active() {
  static std::atomic<const KernelSet *> set{fastest()};
  return set;
}

}  // namespace

CpuFeatures cpu_features() {
  CpuFeatures f{};
#if defined(SKELDA_ARCH_X86)
  f.avx2 = __builtin_cpu_supports("avx2");
#endif
#if defined(SKELDA_ARCH_ARM) && !defined(__aarch64__)
  f.neon = (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
#endif
  return f;
}

// Every x86-64 CPU has SSE2; AVX2 is the CPU's to report. Every arm64 CPU
// has NEON; on 32-bit ARM the kernel reports it in the auxiliary vector.
bool cpu_runs([[maybe_unused]] const CpuFeatures &features, Isa isa) {
  switch (isa) {
    case kIsaScalar:
      return true;
#if defined(SKELDA_ARCH_X86)
    case kIsaSse2:
      return true;
    case kIsaAvx2:
      return features.avx2;
#endif
#if defined(SKELDA_ARCH_ARM)
    case kIsaNeon:
#if defined(__aarch64__)
      return true;
#else
      return features.neon;
#endif
#endif
    default:
      return false;
  }
}

Isa fastest_isa(const CpuFeatures &features) {
  for (int isa = kIsaCount - 1; isa > kIsaScalar; --isa)
    if (cpu_runs(features, static_cast<Isa>(isa))) return static_cast<Isa>(isa);
  return kIsaScalar;
}

const KernelSet *kernel_set(Isa isa) { return cpu_runs(cpu_features(), isa) ? built(isa) : nullptr; }

const KernelSet &active_kernels() { return *active().load(std::memory_order_relaxed); }

void use_kernels(const KernelSet *set) {
  active().store(set != nullptr ? set : fastest(), std::memory_order_relaxed);
}

}  // namespace rsmpl
