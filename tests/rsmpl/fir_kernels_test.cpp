// Every build of every FIR kernel and of the high-quality inner product
// against the general form, plus the worked values of the filter design:
// impulse responses, constant inputs, saturation, odd alignment, short
// counts and in-place overlap.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "rsmpl/fir_reference.h"
#include "skelda/rsmpl_fir.h"
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
  for (int i = 0; i < out_shift; ++i) EXPECT_EQ(out[i], kCanary) << "written before out";
  for (size_t i = outputs + out_shift; i < out.size(); ++i)
    EXPECT_EQ(out[i], kCanary) << "written past the last group at " << i - out_shift;
  return std::vector<int16_t>(out.begin() + out_shift, out.begin() + out_shift + outputs);
}

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

TEST(FirKernels, EveryBuildMatchesTheGeneralFormOnRandomAndExtremeInput) {
  std::mt19937 rng(1234);
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
      for (Fill fill : {Fill::kRandom, Fill::kFullScale, Fill::kExtremes}) {
        for (int n = 0; n <= 400; n += (n < 40 ? 1 : workload(7, 23))) {
          const auto buffer = make_signal(n + k.history, fill, rng);
          const auto want = general_form(k, buffer.data(), n);
          const int in_shift = n % 2, out_shift = (n / 2) % 2;
          ASSERT_EQ(run_kernel(set->kernel[k.id], k, buffer, n, in_shift, out_shift), want)
              << set->name << " " << k.name << " n=" << n << " fill=" << int(fill);
        }
      }
    }
    for (Fill fill : {Fill::kRandom, Fill::kFullScale, Fill::kExtremes}) check_hq_dot(*set, fill, rng);
  }
}

// For every output position of 20 groups, an input whose signs follow
// that output's taps: the largest sum the kernel can meet. A 32-bit
// accumulator anywhere in a fast path wraps here.
TEST(FirKernels, LargestPossibleSumsSaturateInsteadOfWrapping) {
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
      // 20 groups: the builds that convert 4 or 8 groups at once meet every
      // lane of a batch as well as the single-group path.
      const int n = 20 * k.M;
      for (int r = 0; r < 20 * k.L; ++r) {
        for (int sign : {1, -1}) {
          std::vector<int16_t> buffer(n + k.history, 0);
          for (int i = 0; i < n + k.history; ++i) {
            const int idx = k.offset + k.M * r - k.L * i;
            if (idx < 0 || idx >= k.N || k.prototype[idx] == 0) continue;
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

// A lone -32768 as the first new sample reads the negated prototype out of
// the interpolators, phase by phase.
TEST(FirKernels, InterpolatorImpulseResponseIsTheNegatedPrototype) {
  struct Case {
    rsmpl::FirKernelId id;
    int n, history, L;
    std::vector<int> first;  // -P[0], -P[1], ... as the filter design lists them
  };
  const Case cases[] = {
      {rsmpl::kFirUp2, 36, 35, 2, {187, 360, 231, -210}},
      {rsmpl::kFirUp3, 16, 15, 3, {60, -19, -250, -458, -352, 160}},
      {rsmpl::kFirUp4, 16, 15, 4, {53, 19, -106, -295}},
      {rsmpl::kFirUp6, 16, 15, 6, {48, 41, -2, -87}},
  };
  for (const auto *set : runnable_sets()) {
    for (const auto &c : cases) {
      const auto &k = kernel_specs()[c.id];
      std::vector<int16_t> buffer(c.n + c.history, 0);
      buffer[c.history] = -32768;
      const auto out = run_kernel(set->kernel[c.id], k, buffer, c.n, 0, 0);
      for (int r = 0; r < k.N; ++r) ASSERT_EQ(out[r], -k.prototype[r]) << k.name << " r=" << r;
      for (size_t r = 0; r < c.first.size(); ++r) EXPECT_EQ(out[r], c.first[r]) << k.name;
      for (size_t r = k.N; r < out.size(); ++r) ASSERT_EQ(out[r], 0) << k.name;
    }
  }
}

TEST(FirKernels, RationalKernelImpulseResponses) {
  for (const auto *set : runnable_sets()) {
    const auto &up = kernel_specs()[rsmpl::kFirUp2To3];
    std::vector<int16_t> buffer(40 + 15, 0);
    buffer[15] = -32768;
    auto out = run_kernel(set->kernel[rsmpl::kFirUp2To3], up, buffer, 40, 0, 0);
    ASSERT_EQ(out.size(), 60u);
    for (int r = 0; r <= 22; ++r) EXPECT_EQ(out[r], -up.prototype[2 * r]) << r;
    for (int r = 23; r < 60; ++r) EXPECT_EQ(out[r], 0) << r;
    EXPECT_EQ((std::vector<int16_t>(out.begin(), out.begin() + 4)),
              (std::vector<int16_t>{-164, -456, 489, 418}));

    std::fill(buffer.begin(), buffer.end(), 0);
    buffer[16] = -32768;
    out = run_kernel(set->kernel[rsmpl::kFirUp2To3], up, buffer, 40, 0, 0);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 0);
    for (int r = 2; r <= 23; ++r) EXPECT_EQ(out[r], -up.prototype[2 * r - 3]) << r;
    EXPECT_EQ((std::vector<int16_t>(out.begin() + 2, out.begin() + 5)),
              (std::vector<int16_t>{-400, -115, 829}));

    const auto &down = kernel_specs()[rsmpl::kFirDown3To2];
    std::vector<int16_t> dbuf(60 + 14, 0);
    dbuf[14] = -32768;
    out = run_kernel(set->kernel[rsmpl::kFirDown3To2], down, dbuf, 60, 0, 0);
    for (int r = 0; r <= 9; ++r) EXPECT_EQ(out[r], -down.prototype[3 * r + 1]) << r;
    EXPECT_EQ((std::vector<int16_t>(out.begin(), out.begin() + 6)),
              (std::vector<int16_t>{-79, 1235, -2303, 4360, -13816, -13816}));
  }
}

// Constant input with the history full of it: the DC gain of each phase,
// and saturation (or not, for 3-to-2) at full scale.
TEST(FirKernels, ConstantInputGivesEachPhaseItsDcGain) {
  struct Case {
    rsmpl::FirKernelId id;
    std::vector<int> at10000, at32767, atMinus32768;  // one period of outputs
  };
  const Case cases[] = {
      {rsmpl::kFirUp2, {10287, 10287}, {32767}, {-32768}},
      {rsmpl::kFirDown2, {10287}, {32767}, {-32768}},
      {rsmpl::kFirUp3, {10078, 10068, 10078}, {32767}, {-32768}},
      {rsmpl::kFirDown3, {10075}, {32767}, {-32768}},
      {rsmpl::kFirUp2To3, {10094, 10094, 10111}, {32767}, {-32768}},
      {rsmpl::kFirDown3To2, {9669}, {31683}, {-31684}},
      {rsmpl::kFirUp4, {10085, 10076, 10076, 10085}, {32767}, {-32768}},
      {rsmpl::kFirDown4, {10081}, {32767}, {-32768}},
      {rsmpl::kFirUp6, {10090, 10083, 10078, 10078, 10083, 10090}, {32767}, {-32768}},
      {rsmpl::kFirDown6, {10084}, {32767}, {-32768}},
  };
  for (const auto *set : runnable_sets()) {
    for (const auto &c : cases) {
      const auto &k = kernel_specs()[c.id];
      for (const auto &[level, pattern] :
           {std::pair{10000, c.at10000}, {32767, c.at32767}, {-32768, c.atMinus32768}}) {
        const int n = 12 * k.M;
        const std::vector<int16_t> buffer(n + k.history, static_cast<int16_t>(level));
        const auto out = run_kernel(set->kernel[c.id], k, buffer, n, 0, 0);
        ASSERT_EQ(out.size(), static_cast<size_t>(12 * k.L));
        for (size_t r = 0; r < out.size(); ++r)
          ASSERT_EQ(out[r], pattern[r % pattern.size()])
              << set->name << " " << k.name << " level " << level << " r=" << r;
      }
    }
  }
}

// Decimators run in place (output at or before the input); interpolators by
// L need the output (L-1)(G-1) samples ahead, the 2-to-3 kernel G-2. Each
// is checked at its limit against the untouched-input result.
TEST(FirKernels, OverlappingBuffersGiveTheUntouchedInputResult) {
  std::mt19937 rng(99);
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
      for (int n : {k.M, 7 * k.M, 24 * k.M, 240}) {
        const int groups = n / k.M;
        int lead;  // how far the output starts before the input
        if (k.L == 1 || k.id == rsmpl::kFirDown3To2)
          lead = 0;
        else if (k.id == rsmpl::kFirUp2To3)
          lead = std::max(groups - 2, 0);
        else
          lead = (k.L - 1) * (groups - 1);
        const auto buffer = make_signal(n + k.history, Fill::kRandom, rng);
        const auto want = general_form(k, buffer.data(), n);
        for (int extra : {0, 3}) {
          const int l = lead + (k.L == 1 || k.id == rsmpl::kFirDown3To2 ? extra : 0);
          std::vector<int16_t> shared(l + buffer.size() + want.size() + 8, 0);
          std::copy(buffer.begin(), buffer.end(), shared.begin() + l);
          set->kernel[k.id](shared.data() + l, shared.data(), n);
          ASSERT_EQ(std::vector<int16_t>(shared.begin(), shared.begin() + want.size()), want)
              << set->name << " " << k.name << " n=" << n << " lead=" << l;
        }
      }
    }
  }
}

// Counts below one group write nothing; leftover samples past the last whole
// group are not read.
TEST(FirKernels, PartialGroupsAreIgnored) {
  std::mt19937 rng(5);
  for (const auto *set : runnable_sets()) {
    for (const auto &k : kernel_specs()) {
      for (int n = -3; n < k.M; ++n) {
        std::vector<int16_t> out(8, kCanary);
        const auto buffer = make_signal(k.history + 8, Fill::kRandom, rng);
        set->kernel[k.id](buffer.data(), out.data(), n);
        EXPECT_EQ(out, std::vector<int16_t>(8, kCanary)) << k.name << " n=" << n;
      }
      for (int extra = 1; extra < k.M; ++extra) {
        auto buffer = make_signal(k.history + 3 * k.M + extra, Fill::kRandom, rng);
        const auto whole = run_kernel(set->kernel[k.id], k, buffer, 3 * k.M, 0, 0);
        buffer.back() = static_cast<int16_t>(~buffer.back());  // must not matter
        EXPECT_EQ(run_kernel(set->kernel[k.id], k, buffer, 3 * k.M + extra, 0, 0), whole)
            << k.name;
      }
    }
  }
}

TEST(FirKernels, ExportedKernelsUseARunnableBuild) {
  const auto &active = rsmpl::fir_kernels_active();
  const auto sets = runnable_sets();
  EXPECT_EQ(&active, sets.back()) << "the fastest runnable build is chosen";
  std::mt19937 rng(3);
  const auto buffer = make_signal(200 + 35, Fill::kRandom, rng);
  std::vector<int16_t> out(400);
  UpsampleFIR1To2(buffer.data(), out.data(), 200);
  EXPECT_EQ(out, general_form(kernel_specs()[rsmpl::kFirUp2], buffer.data(), 200));
}

}  // namespace
