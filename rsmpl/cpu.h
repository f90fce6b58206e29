// SPDX-License-Identifier: MIT
// The kernel builds of the engine, one per instruction set, and the one place
// that picks among them for the running CPU. Each family (fir/, hq/)
// keeps a plain C++ reference build of its inner loops; the architecture
// folders (x86/, arm/) override those loops per instruction set, and every
// build gives the same samples.
#ifndef SKELDA_RSMPL_CPU_H
#define SKELDA_RSMPL_CPU_H

namespace rsmpl {

struct FirKernels;  // rsmpl/fir/kernels.h
struct HqKernels;   // rsmpl/hq/kernels.h
struct HqDirectKernels;  // rsmpl/hq/direct.h

enum Isa { kIsaScalar, kIsaSse2, kIsaAvx2, kIsaNeon, kIsaCount };

// One instruction set's build of every family's kernels.
struct KernelSet {
  const char *name;
  const FirKernels *fir;
  const HqKernels *hq;
  const HqDirectKernels *hq_direct;
};

// What the choice of build depends on: the extensions a CPU reports beyond
// its architecture's baseline (SSE2 on x86-64, NEON on arm64).
struct CpuFeatures {
  bool avx2;  // x86-64
  bool neon;  // 32-bit ARM
};

// The running CPU's.
CpuFeatures cpu_features();

// Whether a CPU with `features` runs this binary's build for `isa` (false for
// a build this binary does not hold), and the fastest build it runs: what
// the engine picks on such a CPU.
bool cpu_runs(const CpuFeatures &features, Isa isa);
Isa fastest_isa(const CpuFeatures &features);

// The build for `isa`, or null when this binary holds none or this CPU cannot
// run it. kIsaScalar is always there.
const KernelSet *kernel_set(Isa isa);

// The fastest set this CPU runs, chosen on first use.
const KernelSet &active_kernels();

// Makes the engine use `set` (null: the fastest again), so that the tests and
// benchmarks can run whole conversion paths on each build. Not for the audio
// path: nothing in the library calls it.
void use_kernels(const KernelSet *set);

}  // namespace rsmpl

#endif
