// SPDX-License-Identifier: MIT
// The high-quality resampler's filter: the committed tables against the rule
// that generates them, and for pairs on each path the integer coefficients
// a state builds (against the prototype at each tap's distance, summing to
// unit gain, within the 32-bit bounds), their frequency response, and the
// info on their phases and delay (the rest of it fuzz_hq checks).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <vector>

#include "rsmpl/hq/tables.h"
#include "tests/support/fft.h"
#include "tests/support/hq_reference.h"
#include "tools/hq_table_rule.h"

namespace {

TEST(HqTables, MatchTheGeneratorRule) {
  ASSERT_EQ(rsmpl::kHqHalf, hq_rule::kPrototype.half);
  ASSERT_EQ(rsmpl::kHqOversample, hq_rule::kOversample);
  ASSERT_EQ(rsmpl::kHqTableEntries, hq_rule::Entries(hq_rule::kPrototype));
  for (int i = 0; i < rsmpl::kHqTableEntries; ++i)
    ASSERT_EQ(rsmpl::kHqPrototype[i], hq_rule::Entry(hq_rule::kPrototype, i)) << "entry " << i;
  // The minimax designs come from an iterative double-precision search,
  // whose last bits may differ between CPUs: within one unit of Q30.
  ASSERT_EQ(rsmpl::kHqDirectMax, hq_rule::kDirectMax);
  ASSERT_EQ(rsmpl::kHqDirectHalf, hq_rule::kDirectHalf);
  for (int d = 2; d <= hq_rule::kDirectMax; ++d) {
    const std::vector<int32_t> side = hq_rule::DirectSide(d);
    ASSERT_EQ(rsmpl::hq_direct_start(d + 1) - rsmpl::hq_direct_start(d), int(side.size()));
    for (size_t i = 0; i < side.size(); ++i)
      ASSERT_NEAR(rsmpl::kHqDirect[rsmpl::hq_direct_start(d) + i], side[i], 1) << "D " << d << " entry " << i;
  }
}

// Tap k of grid phase q (0..P) sits k - T/2 + 1 - q/P input frames from the
// output's position, where the prototype is stretched to the input rate
// (scaled by out/in when downsampling). A small ratio L / M instead takes
// its grid's minimax side at (k' - taps/2 + 1) L - q points of 1/max(L, M)
// for the info's `taps` taps k' centred in the window (scaled by L/M when
// downsampling), zero elsewhere. Every phase sums to exactly unit gain,
// which one coefficient per phase absorbs; the others stay within 1e-6.
//
// The response: the P phases interleaved into one filter at P times the
// input rate, by FFT with 16-fold zero padding, flat within 0.1 dB to 0.45
// of the lower rate and 95 dB down from 0.55 of it (84 dB at a 24th: the
// 16+16-bit split leaves fewer bits the longer the filter).
TEST(HqTables, EveryPathsCoefficientsMeetTheResponse) {
  auto cases = hq_test::paths();
  cases.push_back({96000, 8000});  // a twelfth
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in << "->" << c.out << " at " << c.ratio_out << "/" << c.ratio_in);
    auto st = hq_test::make_state(c.in, c.out, 1, c.ratio_out, c.ratio_in);
    ASSERT_TRUE(st);
    RSMPL_HqInfo info{};
    ASSERT_EQ(RSMPL_HqGetInfo(st.get(), &info), RSMPL_OK);
    const uint32_t taps = st->taps, p = st->phases, l = info.ratioOut, m = info.ratioIn;
    const bool direct = l <= 8 && m <= 8 && l + m > 2;
    EXPECT_EQ(info.phases, std::min(l, 65536 / taps - 1));
    EXPECT_EQ(info.delayFrames, taps / 2);
    EXPECT_EQ(info.delayMicroseconds, uint32_t(std::lround(taps / 2 * 1e6 / c.in)));

    const double g = c.out < c.in ? static_cast<double>(c.out) / c.in : 1.0;
    const std::vector<int32_t> side = hq_rule::DirectSide(direct ? std::max(l, m) : 2);
    auto ideal = [&](uint32_t q, uint32_t k) {
      if (!direct) return g * hq_rule::Value(hq_rule::kPrototype, g * (k - taps / 2.0 + 1.0 - double(q) / p));
      const int64_t kk = int64_t(k) - (taps - info.taps) / 2;
      if (kk < 0 || kk >= int64_t(info.taps)) return 0.0;
      const size_t j = std::abs((kk - int64_t(info.taps) / 2 + 1) * l - int64_t(q));
      return j < side.size() ? std::ldexp(side[j], -30) * std::min(1.0, double(l) / m) : 0.0;
    };
    size_t n = 1;
    while (n < 16 * size_t{taps} * p) n <<= 1;
    std::vector<std::complex<double>> h(n);
    for (uint32_t q = 0; q <= p; ++q) {
      const int16_t *hi = st->coefficients() + size_t{q} * 2 * taps, *lo = hi + taps;
      int64_t sum = 0, hi_abs = 0, lo_abs = 0;
      int outliers = 0;
      for (uint32_t k = 0; k < taps; ++k) {
        const int64_t v = int64_t{hi[k]} * (int64_t{1} << st->lo_shift) + lo[k];
        outliers += std::fabs(std::ldexp(double(v), -int(st->out_shift)) - ideal(q, k)) > 1e-6;
        sum += v;
        hi_abs += std::abs(hi[k]);
        lo_abs += std::abs(lo[k]);
        if (q < p) h[size_t{k} * p + (p - 1 - q)] = std::ldexp(double(v), -int(st->out_shift)) / p;
      }
      ASSERT_EQ(sum, int64_t{1} << st->out_shift) << "phase " << q;
      ASSERT_LE(outliers, 1) << "phase " << q;
      ASSERT_LT(hi_abs * 32768 + (int64_t{1} << (31 - st->lo_shift)), int64_t{1} << 31) << "phase " << q;
      ASSERT_LT(lo_abs * 32768, int64_t{1} << 31) << "phase " << q;
    }
    test_support::fft(h);
    const double lower = std::min(c.in, c.out), bin_hz = double(p) * c.in / n;
    double ripple = 0, stop = -400;
    for (size_t b = 0; b <= n / 2; ++b) {
      const double hz = b * bin_hz, db = 20 * std::log10(std::abs(h[b]));
      if (hz <= 0.45 * lower) ripple = std::max(ripple, std::fabs(db));
      if (hz >= 0.55 * lower) stop = std::max(stop, db);
    }
    EXPECT_LE(ripple, 0.1);
    EXPECT_LE(stop, std::max(c.in, c.out) > 12.0 * lower ? -84.0 : -95.0);
  }
}

}  // namespace
