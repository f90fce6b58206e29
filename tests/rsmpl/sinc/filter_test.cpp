// SPDX-License-Identifier: MIT
// The sinc interpolator's filter: its tables against the rule that
// generates them, the rule against its documented figures, and what the
// fixed-point arithmetic amounts to, the tabled low-pass (stretched below
// ratio 1) at each output's time. The last pins the meaning of the model
// the other sinc tests hold the library to bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "rsmpl/context.h"
#include "skelda/rsmpl_sinc.h"
#include "tests/support/workload.h"
#include "tools/sinc_table_rule.h"

namespace {

// Coefficients as the rule rounds them, slopes their exact differences,
// and the pre-shift ceil(log2 i) for an integer step part i. Entry 0 is 0.88
// in Q31; the entries a sample apart sum to 1.00002; the full prototype's
// response is -3 dB at 0.419 of the input rate, at least 53.5 dB down from
// 0.54, 87.4 dB from 0.56 and 100 dB from 0.58.
TEST(SincTables, MatchTheRuleAndItsDesign) {
  std::vector<int32_t> coeff(sinc_rule::kEntries), slope(sinc_rule::kEntries);
  sinc_rule::BuildCoefficients(coeff.data());
  sinc_rule::BuildSlopes(coeff.data(), slope.data());
  for (int i = 0; i < sinc_rule::kEntries; ++i) {
    ASSERT_EQ(RsmplSincCoeff[i], coeff[i]) << "coefficient " << i;
    ASSERT_EQ(RsmplSincSlope[i], slope[i]) << "slope " << i;
  }
  for (int i = 0; i < 256; ++i)
    ASSERT_EQ(RsmplSincShift[i], i < 2 ? 0 : static_cast<int>(std::ceil(std::log2(i)))) << i;
  EXPECT_EQ(RsmplSincCoeff[0], 1889785600);
  auto response = [](double f) {
    double sum = RsmplSincCoeff[0];
    for (int i = 1; i < 1664; ++i) sum += 2.0 * RsmplSincCoeff[i] * std::cos(2.0 * M_PI * f * i / 128.0);
    return sum;
  };
  double dc = RsmplSincCoeff[0];
  for (int i = 128; i < 1664; i += 128) dc += 2.0 * RsmplSincCoeff[i];
  EXPECT_NEAR(dc / 2147483648.0, 1.00002, 1e-5);
  EXPECT_NEAR(20 * std::log10(response(0.419) / response(0)), -3.0, 0.1);
  for (double f = 0.54; f < 4.0; f += f < 0.58 ? 0.001 : 0.01) {
    const double floor = f < 0.56 ? -53.5 : f < 0.58 ? -87.4 : -100.0;
    ASSERT_LT(20 * std::log10(std::fabs(response(f) / response(0))), floor) << f;
  }
}

// Noise in blocks of 701 at each ratio, after a fractional delay: an output
// at Q16 position p of a call whose block starts at stream index B, with
// history half-length N, stands for input time B + p - (N + 1). It must lie
// within a few units of the exact filter there (the pre-shift below ratio
// 1/2 drops up to three input bits). So at ratio 1 the stream is the
// low-pass delayed by 14 samples, by 13.5 after a delay of 0.5. Each case
// runs on its own thread: contexts share only constant tables
// (ThreadSanitizer runs this in CI).
TEST(SincKernel, OutputsAreTheLowPassAtTheirTimes) {
  auto check = [](float ratio, float delay) {
    std::mt19937 rng(7);
    std::vector<int16_t> x(workload(6000, 2000));
    for (auto &v : x) v = static_cast<int16_t>(std::uniform_int_distribution<int>(-16000, 16000)(rng));
    auto ctx = std::make_unique<RSMPL_Context>();
    uint32_t lo = 0, hi = 0, count = 0;
    ASSERT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
    ASSERT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, delay), RSMPL_OK);
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, ratio), RSMPL_OK);
    double worst = 0.0;
    size_t compared = 0;
    for (size_t start = 0; start + 701 <= x.size(); start += 701) {
      const rsmpl::SincState s = ctx->sinc;
      std::vector<int16_t> out(701 * 8 + 16);
      ASSERT_EQ(RSMPL_Resample(ctx.get(), x.data() + start, out.data(), 701, &count), RSMPL_OK);
      const double step = s.step / 16777216.0, stretch = std::min(1.0, 1.0 / step);
      const int shift = RsmplSincShift[s.step >> 24];
      for (uint32_t k = 0; k < count; ++k) {
        const double t = start + s.position / 65536.0 + k * step - (s.historyHalfLength + 1.0);
        double want = 0.0;
        for (int64_t m = std::max<int64_t>(0, std::floor(t - 14 / stretch));
             m <= std::min<int64_t>(x.size() - 1, std::ceil(t + 14 / stretch)); ++m)
          want += x[m] * sinc_rule::Prototype((t - m) * stretch * 128.0) * stretch;
        worst = std::max(worst, std::fabs(out[k] - want) / (4.0 + 2.0 * (1 << shift)));
        ++compared;
      }
    }
    EXPECT_GT(compared, x.size() / 701 * 701 * std::min(ratio, 1.0f) * 0.9) << ratio;
    EXPECT_LE(worst, 1.0) << "ratio " << ratio << " delay " << delay;
  };
  const std::pair<float, float> cases[] = {{1.0f, 0.0f}, {1.0f, 0.5f},  {2.0f, 0.25f},
                                           {0.5f, 0.0f}, {3.0f, 0.9f},  {1.0f / 3.0f, 0.7f},
                                           {0.75f, 0.0f}, {8.0f, 0.0f}, {0.125f, 1.0f}};
  std::vector<std::thread> threads;
  for (const auto &[ratio, delay] : cases) threads.emplace_back(check, ratio, delay);
  for (auto &t : threads) t.join();
}

}  // namespace
