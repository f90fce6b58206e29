// The high-quality resampler's filter: the committed prototype table against
// the rule that generates it, every integer coefficient a state builds
// against the double-precision prototype at its tap's distance, and the
// frequency response of those integer coefficients.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <complex>
#include <vector>

#include "rsmpl/hq_tables.h"
#include "support/hq_reference.h"
#include "tools/hq_table_rule.h"

namespace {

TEST(HqTables, MatchTheGeneratorRule) {
  ASSERT_EQ(rsmpl::kHqHalf, hq_rule::kPrototype.half);
  ASSERT_EQ(rsmpl::kHqOversample, hq_rule::kOversample);
  ASSERT_EQ(rsmpl::kHqTableEntries, hq_rule::Entries(hq_rule::kPrototype));
  for (int i = 0; i < rsmpl::kHqTableEntries; ++i)
    ASSERT_EQ(rsmpl::kHqPrototype[i], hq_rule::Entry(hq_rule::kPrototype, i)) << "entry " << i;
  EXPECT_EQ(rsmpl::kHqPrototype[0], 1 << 30);
  EXPECT_EQ(rsmpl::kHqPrototype[rsmpl::kHqTableEntries - 1], 0);
  // The minimax designs come from an iterative double-precision search,
  // whose last bits may differ between CPUs: within one unit of Q30.
  ASSERT_EQ(rsmpl::kHqDirectMax, hq_rule::kDirectMax);
  ASSERT_EQ(rsmpl::kHqDirectHalf, hq_rule::kDirectHalf);
  for (int d = 2; d <= hq_rule::kDirectMax; ++d) {
    const std::vector<int32_t> side = hq_rule::DirectSide(d);
    ASSERT_EQ(rsmpl::hq_direct_start(d + 1) - rsmpl::hq_direct_start(d), int(side.size()));
    for (size_t i = 0; i < side.size(); ++i)
      ASSERT_NEAR(rsmpl::kHqDirect[rsmpl::hq_direct_start(d) + i], side[i], 1) << "D " << d << " entry " << i;
    EXPECT_EQ(side.back(), 0) << "D " << d;
  }
}

struct FilterCase {
  uint32_t in, out, ratio_out = 0, ratio_in = 0;
};

hq_test::StatePtr make(const FilterCase &c) {
  auto st = hq_test::make_state(c.in, c.out, 1);
  if (st && c.ratio_out != 0 && RSMPL_HqSetRatio(st.get(), c.ratio_out, c.ratio_in) != RSMPL_OK)
    st.reset();
  return st;
}

// Coefficient k of grid phase q as a fraction of unit gain.
double coefficient(const RSMPL_HqState &st, uint32_t q, uint32_t k) {
  const int16_t *hi = st.coefficients() + static_cast<size_t>(q) * 2 * st.taps;
  return (std::ldexp(hi[k], st.lo_shift) + hi[st.taps + k]) / std::ldexp(1.0, st.out_shift);
}

const FilterCase kCases[] = {
    {44100, 48000},   {48000, 44100}, {32000, 48000}, {96000, 44100},
    {48000, 16000},   {8000, 192000}, {96000, 8000},  {192000, 8000}, {191999, 8000},
    {44100, 48000, 1115, 1024},       {8000, 8001},   {44100, 44100},
    {16000, 48000},   {48000, 32000}, {8000, 64000},  {56000, 8000}, {44100, 48000, 8, 7},
};

// Tap k of phase q (0..P) sits k - T/2 + 1 - q/P input frames from the
// output's position; the prototype is stretched to the input rate and
// scaled by out/in when downsampling. A ratio L / M of small terms takes its
// grid's minimax design instead: the middle `taps` of the window (the info's
// count) at (k' - taps/2 + 1) L - q grid points of 1/max(L, M), scaled by
// L/M when downsampling, zero elsewhere. Every phase sums to exactly unit
// gain, which one coefficient per phase absorbs (its size shows in the
// response below); the others stay within 1e-6. The sums of |hi| and |lo|
// against full-scale input stay in 32 bits.
TEST(HqTables, CoefficientsAreTheStretchedPrototype) {
  for (const auto &c : kCases) {
    auto st = make(c);
    ASSERT_TRUE(st);
    RSMPL_HqInfo info{};
    ASSERT_EQ(RSMPL_HqGetInfo(st.get(), &info), RSMPL_OK);
    const uint32_t taps = st->taps, p = st->phases, l = info.ratioOut, m = info.ratioIn;
    const bool direct = info.taps < taps;
    ASSERT_EQ(direct, l <= 8 && m <= 8 && l + m > 2) << c.in << "->" << c.out;
    const double g = c.out < c.in ? static_cast<double>(c.out) / c.in : 1.0;
    std::vector<int32_t> side;
    if (direct) side = hq_rule::DirectSide(static_cast<int>(std::max(l, m)));
    auto ideal_at = [&](uint32_t q, uint32_t k) {
      if (!direct) {
        const double d = k - taps / 2.0 + 1.0 - static_cast<double>(q) / p;
        return g * hq_rule::Value(hq_rule::kPrototype, d * g);
      }
      const int64_t kk = int64_t(k) - (taps - info.taps) / 2;
      if (kk < 0 || kk >= int64_t(info.taps)) return 0.0;
      const int64_t j = std::abs((kk - int64_t(info.taps) / 2 + 1) * int64_t(l) - int64_t(q));
      const double v = j < int64_t(side.size()) ? std::ldexp(side[j], -30) : 0.0;
      return l < m ? v * l / m : v;
    };
    for (uint32_t q = 0; q <= p; ++q) {
      const int16_t *hi = st->coefficients() + static_cast<size_t>(q) * 2 * taps;
      int64_t sum = 0, hi_abs = 0, lo_abs = 0;
      int outliers = 0;
      for (uint32_t k = 0; k < taps; ++k) {
        const double ideal = ideal_at(q, k);
        const double err = std::fabs(coefficient(*st, q, k) - ideal);
        if (err > 1e-6) ++outliers;
        sum += int64_t{hi[k]} * (int64_t{1} << st->lo_shift) + hi[taps + k];
        hi_abs += std::abs(hi[k]);
        lo_abs += std::abs(hi[taps + k]);
      }
      ASSERT_EQ(sum, int64_t{1} << st->out_shift) << c.in << "->" << c.out << " phase " << q;
      ASSERT_LE(outliers, 1) << c.in << "->" << c.out << " phase " << q;
      ASSERT_LT(hi_abs * 32768, int64_t{1} << 31) << c.in << "->" << c.out << " phase " << q;
      ASSERT_LT(lo_abs * 32768, int64_t{1} << 31) << c.in << "->" << c.out << " phase " << q;
    }
  }
}

void fft(std::vector<std::complex<double>> &a) {
  const size_t n = a.size();
  for (size_t i = 1, j = 0; i < n; ++i) {
    size_t bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j |= bit;
    if (i < j) std::swap(a[i], a[j]);
  }
  for (size_t len = 2; len <= n; len <<= 1) {
    const std::complex<double> w = std::polar(1.0, -2 * M_PI / static_cast<double>(len));
    for (size_t i = 0; i < n; i += len) {
      std::complex<double> wk = 1;
      for (size_t k = 0; k < len / 2; ++k, wk *= w) {
        const auto u = a[i + k], v = a[i + k + len / 2] * wk;
        a[i + k] = u + v;
        a[i + k + len / 2] = u - v;
      }
    }
  }
}

// The P phases interleaved into one filter at P times the input rate (tap
// k of phase q lands at (k - T/2 + 1) P - q), its response by FFT with
// 16-fold zero padding, relative to its exact zero-frequency gain P 2^F:
// flat within 0.1 dB to 0.45 of the lower rate, 95 dB down from 0.55 of it
// to half of P times the input rate (less at the most extreme ratios).
TEST(HqTables, IntegerCoefficientsMeetTheResponse) {
  for (const auto &c : kCases) {
    auto st = make(c);
    const uint32_t taps = st->taps, p = st->phases;
    size_t n = 1;
    while (n < 16 * static_cast<size_t>(taps) * p) n <<= 1;
    std::vector<std::complex<double>> h(n);
    for (uint32_t q = 0; q < p; ++q)
      for (uint32_t k = 0; k < taps; ++k)
        h[static_cast<size_t>(k) * p + (p - 1 - q)] = coefficient(*st, q, k) / p;
    fft(h);
    const double lower = std::min(c.in, c.out), bin_hz = static_cast<double>(p) * c.in / n;
    double ripple = 0, stop = -400;
    for (size_t b = 0; b <= n / 2; ++b) {
      const double hz = b * bin_hz, db = 20 * std::log10(std::abs(h[b]));
      if (hz <= 0.45 * lower) ripple = std::max(ripple, std::fabs(db));
      if (hz >= 0.55 * lower) stop = std::max(stop, db);
    }
    EXPECT_LE(ripple, 0.1) << c.in << "->" << c.out;
    // The 16+16-bit split of a coefficient leaves fewer bits the longer the
    // filter: 95 dB holds down to a twelfth, about 84 dB at a 24th.
    const double floor_db = std::max(c.in, c.out) > 12.0 * lower ? -84.0 : -95.0;
    EXPECT_LE(stop, floor_db) << c.in << "->" << c.out;
  }
}

}  // namespace
