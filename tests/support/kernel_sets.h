// SPDX-License-Identifier: MIT
// Every kernel build this machine runs, and a scope in which the library runs
// one of them, for the tests that hold the builds to the plain one.
#ifndef SKELDA_TESTS_SUPPORT_KERNEL_SETS_H
#define SKELDA_TESTS_SUPPORT_KERNEL_SETS_H

#include <vector>

#include "rsmpl/cpu.h"

namespace test_support {

// Scalar first, then each faster build the CPU can run.
inline std::vector<const rsmpl::KernelSet *> runnable_sets() {
  std::vector<const rsmpl::KernelSet *> sets;
  for (int isa = 0; isa < rsmpl::kIsaCount; ++isa)
    if (const auto *set = rsmpl::kernel_set(static_cast<rsmpl::Isa>(isa))) sets.push_back(set);
  return sets;
}

// The library runs `set` until the scope ends, then the fastest build again.
class UsingKernels {
 public:
  explicit UsingKernels(const rsmpl::KernelSet *set) { rsmpl::use_kernels(set); }
  ~UsingKernels() { rsmpl::use_kernels(nullptr); }
  UsingKernels(const UsingKernels &) = delete;
  UsingKernels &operator=(const UsingKernels &) = delete;
};

}  // namespace test_support

#endif
