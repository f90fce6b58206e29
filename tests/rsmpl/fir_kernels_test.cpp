// Every build of every FIR kernel held to the general form: random,
// saturating and exact-half input, every count from below one group to
// several batches, odd addresses, overlapping buffers; and the coefficient
// tables against their documented design.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "rsmpl/fir_reference.h"
#include "support/workload.h"

namespace {

using fir_test::Fill;
using fir_test::general_form;
using fir_test::kernel_specs;
using fir_test::KernelSpec;
using fir_test::make_signal;
using fir_test::runnable_sets;

constexpr int16_t kCanary = 0x5a5a;

// Runs one kernel with its input at `in_shift` and its output at `out_shift`
// samples into padded buffers, and checks the canaries around the outputs.
std::vector<int16_t> run_kernel(fir_test::Kernel kernel, const KernelSpec &k,
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

TEST(FirKernels, EveryBuildMatchesTheGeneralForm) {
  std::mt19937 rng(1234);
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
      for (Fill fill : {Fill::kRandom, Fill::kFullScale, Fill::kExtremes, Fill::kHalves}) {
        // Counts below one group (negative too), every count up to 40, and
        // longer ones past the 4- and 8-group batches of the SIMD builds.
        for (int n = -2; n <= 400; n += (n < 40 ? 1 : workload(7, 23))) {
          const auto buffer = make_signal(std::max(n, 0) + k.history, fill, rng);
          const auto want = general_form(k, buffer.data(), n);
          ASSERT_EQ(run_kernel(set->kernel[k.id], k, buffer, n, n & 1, (n >> 1) & 1), want)
              << set->name << " " << k.name << " n=" << n << " fill=" << int(fill);
        }
      }
    }
  }
}

// For every output position of 20 groups, an input whose signs follow
// that output's taps: the largest sum the kernel can meet. A 32-bit
// accumulator anywhere in a fast path wraps here.
TEST(FirKernels, LargestPossibleSumsSaturateInsteadOfWrapping) {
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
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
          ASSERT_EQ(want[r], sign > 0 ? 32767 : -32768) << k.name << " r=" << r;
          ASSERT_EQ(run_kernel(set->kernel[k.id], k, buffer, n, 0, 0), want)
              << set->name << " " << k.name << " r=" << r << " sign=" << sign;
        }
      }
    }
  }
}

// Decimators run in place (output at or before the input); interpolators by
// L need the output (L-1)(G-1) samples ahead, the 2-to-3 kernel G-2: each at
// its limit gives the untouched-input result.
TEST(FirKernels, OverlappingBuffersGiveTheUntouchedInputResult) {
  std::mt19937 rng(99);
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
      for (int n : {k.M, 7 * k.M, 24 * k.M, 240}) {
        const int groups = n / k.M, up = k.L > k.M;
        const int lead = !up ? 0 : k.M == 2 ? std::max(groups - 2, 0) : (k.L - 1) * (groups - 1);
        const auto buffer = make_signal(n + k.history, Fill::kRandom, rng);
        const auto want = general_form(k, buffer.data(), n);
        for (int l : {lead, lead + (up ? 0 : 3)}) {
          std::vector<int16_t> shared(l + buffer.size() + want.size(), 0);
          std::copy(buffer.begin(), buffer.end(), shared.begin() + l);
          set->kernel[k.id](shared.data() + l, shared.data(), n);
          ASSERT_TRUE(std::equal(want.begin(), want.end(), shared.begin()))
              << set->name << " " << k.name << " n=" << n << " lead=" << l;
        }
      }
    }
  }
}

TEST(FirKernels, ExportedKernelsUseTheFastestRunnableBuild) {
  EXPECT_EQ(&rsmpl::fir_kernels_active(), runnable_sets().back());
  std::mt19937 rng(3);
  for (const auto &k : kernel_specs()) {
    const auto buffer = make_signal(120 + k.history, Fill::kRandom, rng);
    EXPECT_EQ(run_kernel(k.exported, k, buffer, 120, 0, 0), general_form(k, buffer.data(), 120))
        << k.name;
  }
}

// ---------------------------------------------------------------------------
// The high-quality resampler's inner product, every build.

// The high-quality inner product at the tap counts the design makes, each
// with its shift (the largest S <= 14 with T 2^S < 2^17), from odd
// addresses, on coefficients at the bounds that keep each sum in 32 bits:
// sum |hi| 32768 just below 2^31 and |lo| < 2^(S-1); the last round puts
// each x at the extreme of hi's sign, the largest hi sum there is.
void check_hq_dot(const rsmpl::FirKernelSet &set, Fill fill, std::mt19937 &rng) {
  for (uint32_t taps : {16u, 64u, 80u, 144u, 192u, 288u, 1536u, 2048u}) {
    uint32_t shift = 14;
    while ((taps << shift) >= (1u << 17)) --shift;
    const int lo_max = 1 << (shift - 1);
    std::uniform_int_distribution<int> lo(-lo_max, lo_max - 1), tap(0, taps - 1), add(1, 4096),
        coin(0, 1);
    for (int round = 0; round < 4; ++round) {
      std::vector<int16_t> coef(1 + 2 * taps, 0);
      int16_t *hi = coef.data() + 1;
      for (int left = 65535; left > 0;) {
        const int k = tap(rng), step = std::min({left, add(rng), 32767 - hi[k]});
        hi[k] = static_cast<int16_t>(hi[k] + step);
        left -= step;
      }
      for (uint32_t k = 0; k < taps; ++k) {
        if (coin(rng)) hi[k] = static_cast<int16_t>(-hi[k]);
        hi[taps + k] = static_cast<int16_t>(lo(rng));
      }
      auto x = make_signal(1 + taps, fill, rng);
      if (round == 3)
        for (uint32_t k = 0; k < taps; ++k) x[1 + k] = hi[k] < 0 ? -32768 : 32767;
      int64_t want_hi = 0, want_lo = 0;
      for (uint32_t k = 0; k < taps; ++k) {
        want_hi += int64_t{x[1 + k]} * hi[k];
        want_lo += int64_t{x[1 + k]} * hi[taps + k];
      }
      ASSERT_EQ(set.hq_dot(x.data() + 1, hi, taps, shift), want_hi * (int64_t{1} << shift) + want_lo)
          << set.name << " hq_dot taps=" << taps << " fill=" << int(fill) << " round " << round;
    }
  }
}

TEST(FirKernels, EveryBuildOfTheHqDotMatchesTheExactSum) {
  std::mt19937 rng(1234);
  for (const auto *set : runnable_sets())
    for (Fill fill : {Fill::kRandom, Fill::kFullScale, Fill::kExtremes}) check_hq_dot(*set, fill, rng);
}

}  // namespace
