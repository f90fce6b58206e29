// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler's filter: the committed table against
// the rule that generates it, and for pairs on each path the coefficients a
// state builds (against the prototype at each tap's distance, summing to
// unit gain, within the bounds that keep every sum inside 63 bits), their
// frequency response, and the delay against the 16-bit resampler's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "rsmpl/hq32/tables.h"
#include "tests/support/fft.h"
#include "tests/support/hq32_reference.h"
#include "tools/hq32_table_rule.h"

namespace {

TEST(Hq32Tables, MatchTheGeneratorRule) {
  ASSERT_EQ(rsmpl::kHq32Half, hq32_rule::kHalf);
  ASSERT_EQ(rsmpl::kHq32Oversample, hq32_rule::kOversample);
  ASSERT_EQ(rsmpl::kHq32TableEntries, hq32_rule::kEntries);
  for (int i = 0; i < rsmpl::kHq32TableEntries; ++i)
    ASSERT_EQ(rsmpl::kHq32Prototype[i], hq32_rule::Entry(i)) << "entry " << i;
}

// Tap k of phase q (0..P) sits k - (T - 1) + D - q/P input frames from the
// output's time, where the prototype is stretched to the input rate (and
// scaled by out/in) when downsampling. Every phase sums to exactly 2^30,
// which its largest coefficient absorbs; the others stay within 4e-9 of
// the prototype (its table and interpolation reach about -170 dB).
//
// The response: the P phases interleaved into one filter at P times the
// input rate, by FFT with 8-fold zero padding, flat within 0.004 dB to 0.45
// of the lower rate and 150 dB down from 0.55 of it (144 dB beyond a
// twelfth, where the Q30 rounding of thousands of small coefficients adds
// up). The delay, D input frames, is at most half again the 16-bit
// resampler's.
TEST(Hq32Tables, EveryPathsCoefficientsMeetTheResponse) {
  struct Case {
    uint32_t in, out, ratio_out = 0, ratio_in = 0;
  };
  const Case cases[] = {{44100, 48000},  {48000, 44100},  {96000, 44100},      {8000, 192000},
                        {192000, 8000},  {96000, 8000},   {192000, 16000},     {44100, 44100},
                        {32000, 48000},  {48000, 16000},  {22050, 48000},      {11025, 64000},
                        {44100, 48000, 1115, 1024},       {48000, 44100, 919, 1000},
                        {44100, 48000, 2731, 2509}};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in << "->" << c.out << " at " << c.ratio_out << "/" << c.ratio_in);
    auto st = hq32_test::make_state(c.in, c.out, 1, c.ratio_out, c.ratio_in);
    ASSERT_TRUE(st);
    RSMPL_HqInfo info{}, info16{};
    ASSERT_EQ(RSMPL_Hq32GetInfo(st.get(), &info), RSMPL_OK);
    auto st16 = hq_test::make_state(c.in, c.out, 1);
    ASSERT_EQ(RSMPL_HqGetInfo(st16.get(), &info16), RSMPL_OK);
    const bool down = c.out < c.in;
    const uint32_t taps = st->taps, p = st->phases, d = info.delayFrames;
    EXPECT_EQ(d, down ? (48ull * c.in + c.out - 1) / c.out : 48u);
    EXPECT_TRUE(taps % 8 == 0 && taps >= 2 * d && taps < 2 * d + 8) << taps;
    EXPECT_EQ(info.taps, taps);
    EXPECT_EQ(p, std::min(info.ratioOut, (1u << 18) / taps - 1));
    EXPECT_EQ(info.interpolated, p != info.ratioOut);
    EXPECT_LE(2 * info.delayFrames, 3 * info16.delayFrames);

    const double g = down ? static_cast<double>(c.out) / c.in : 1.0;
    size_t n = 1;
    while (n < 8 * size_t{taps} * p) n <<= 1;
    std::vector<std::complex<double>> h(n);
    for (uint32_t q = 0; q <= p; ++q) {
      const int32_t *coef = st->coefficients() + size_t{q} * taps;
      int64_t sum = 0, abs_sum = 0, diff_sum = 0;
      int outliers = 0;
      for (uint32_t k = 0; k < taps; ++k) {
        const double dist = double(k) - (taps - 1.0) + d - double(q) / p;
        const double v = std::ldexp(double(coef[k]), -30);
        outliers += std::fabs(v - g * hq32_rule::Value(g * dist)) > 4e-9;
        sum += coef[k];
        abs_sum += std::abs(int64_t{coef[k]});
        if (q > 0) diff_sum += std::abs(int64_t{coef[k]} - coef[int64_t{k} - taps]);
        if (q < p) h[size_t{k} * p + (p - 1 - q)] = v / p;
      }
      ASSERT_EQ(sum, int64_t{1} << 30) << "phase " << q;
      ASSERT_LE(outliers, 1) << "phase " << q;
      ASSERT_LT(abs_sum, int64_t{1} << 32) << "phase " << q;
      ASSERT_LT(diff_sum, int64_t{1} << 32) << "phase " << q;
    }
    test_support::fft(h);
    const double lower = std::min(c.in, c.out), bin_hz = double(p) * c.in / n;
    double ripple = 0, stop = -400;
    for (size_t b = 0; b <= n / 2; ++b) {
      const double hz = b * bin_hz, db = 20 * std::log10(std::abs(h[b]));
      if (hz <= 0.45 * lower) ripple = std::max(ripple, std::fabs(db));
      if (hz >= 0.55 * lower) stop = std::max(stop, db);
    }
    EXPECT_LE(ripple, 0.004);
    EXPECT_LE(stop, c.in > 12 * c.out ? -144.0 : -150.0);
  }
}

}  // namespace
