// SPDX-License-Identifier: MIT
// Every build of every FIR kernel held to the general form: random,
// saturating and exact-half input, every count from below one group to
// several batches, odd addresses, overlapping buffers, the largest sums; and
// the coefficient tables against their documented design.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "rsmpl/cpu.h"
#include "rsmpl/fir/kernels.h"
#include "tests/rsmpl/fir/reference.h"
#include "tests/support/kernel_sets.h"
#include "tests/support/workload.h"

namespace {

using namespace fir_test;
using test_support::runnable_sets;

// Runs one kernel with its input at `in_shift` and its output at `out_shift`
// samples into padded buffers, and checks the canaries around the outputs.
std::vector<int16_t> run_kernel(rsmpl::FirKernelFn kernel, const KernelSpec &k,
                                const std::vector<int16_t> &buffer, int n, int in_shift,
                                int out_shift) {
  // Exactly the input the kernel may read, so any read past it is caught
  // by the sanitizer build.
  std::vector<int16_t> in(buffer.size() + in_shift);
  std::copy(buffer.begin(), buffer.end(), in.begin() + in_shift);
  const size_t outputs = n < k.M ? 0 : static_cast<size_t>(n / k.M) * k.L;
  std::vector<int16_t> out(outputs + 16, kCanary);
  kernel(in.data() + in_shift, out.data() + out_shift, n);
  const auto first = out.begin() + out_shift, last = first + outputs;
  auto untouched = [](int16_t v) { return v == kCanary; };
  EXPECT_TRUE(std::all_of(out.begin(), first, untouched) && std::all_of(last, out.end(), untouched))
      << "written outside its outputs";
  return std::vector<int16_t>(first, last);
}

// Symmetric prototypes with the documented sums (the 2:1 table serves both
// directions): one tap changed anywhere shows in one or the other.
TEST(FirTables, SymmetricWithTheDocumentedSums) {
  const int sums[] = {67420, 67420, 99040, 66026, 99281, 63368, 132130, 132134, 198258, 132174};
  for (const auto &k : kernel_specs()) {
    EXPECT_EQ(std::accumulate(k.prototype.begin(), k.prototype.end(), 0), sums[k.id]) << k.name;
    EXPECT_TRUE(std::equal(k.prototype.begin(), k.prototype.end(), k.prototype.rbegin())) << k.name;
  }
}

// Each build on every fill and count, at odd addresses, and in place at the
// overlap limit: decimators write at or before their input, interpolators by
// L need the output (L-1)(G-1) samples ahead of G groups, the 2-to-3 kernel
// G-2. The exported kernels use the fastest build.
TEST(FirKernels, EveryBuildMatchesTheGeneralForm) {
  EXPECT_EQ(&rsmpl::active_kernels(), runnable_sets().back());
  std::mt19937 rng(1234);
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
      for (Fill fill : {Fill::kRandom, Fill::kFullScale, Fill::kExtremes, Fill::kHalves}) {
        // Counts below one group (negative too), every count up to 40, and
        // longer ones past the 4- and 8-group batches of the SIMD builds.
        for (int n = -2; n <= 400; n += (n < 40 ? 1 : workload(7, 23))) {
          const auto buffer = make_signal(std::max(n, 0) + k.history, fill, rng);
          const auto want = general_form(k, buffer.data(), n);
          ASSERT_EQ(run_kernel(set->fir->kernel[k.id], k, buffer, n, n & 1, (n >> 1) & 1), want)
              << set->name << " " << k.name << " n=" << n << " fill=" << int(fill);
          const int g = std::max(n / k.M, 1);
          const int lead = std::max(k.L < k.M ? 0 : k.M == 2 ? g - 2 : (k.L - 1) * (g - 1), 0);
          std::vector<int16_t> shared(lead + buffer.size() + want.size());
          std::copy(buffer.begin(), buffer.end(), shared.begin() + lead);
          set->fir->kernel[k.id](shared.data() + lead, shared.data(), n);
          ASSERT_TRUE(std::equal(want.begin(), want.end(), shared.begin())) << "in place n=" << n;
        }
      }
      // For every output position of 20 groups, an input whose signs follow
      // that output's taps: the largest sum the kernel can meet. A 32-bit
      // accumulator anywhere in a fast path wraps here.
      const int n = 20 * k.M;
      for (int r = 0; r < 20 * k.L; ++r) {
        for (int sign : {1, -1}) {
          std::vector<int16_t> buffer(n + k.history, 0);
          for (int i = 0; i < n + k.history; ++i) {
            const int idx = k.offset + k.M * r - k.L * i;
            if (idx >= 0 && idx < k.N && k.prototype[idx] != 0)
              buffer[i] = (k.prototype[idx] > 0) == (sign > 0) ? 32767 : -32768;
          }
          const auto want = general_form(k, buffer.data(), n);
          ASSERT_EQ(run_kernel(set->fir->kernel[k.id], k, buffer, n, 0, 0), want)
              << set->name << " " << k.name << " r=" << r << " sign=" << sign;
        }
      }
    }
  }
}

}  // namespace
