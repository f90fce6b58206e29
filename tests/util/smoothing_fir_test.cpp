// SPDX-License-Identifier: MIT
// Smoothing steps and the block FIR against plain references of their rules
// in long double and 64-bit integers, on random and boundary arguments; the
// FIR over a stream cut into blocks; every status rule of UTIL_Fir3.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/util/edge_values.h"
#include "skelda/util_dsp.h"

namespace {

using Samples = std::vector<int16_t>;

// The Q15 fraction coef of the distance d, rounded half up.
int64_t step(int64_t d, int64_t coef) {
  return static_cast<int64_t>(std::floor(d * coef / 32768.0L + 0.5L));
}
uint16_t wrap16(int64_t v) { return static_cast<uint16_t>(v & 0xFFFF); }
int32_t wrap32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }

TEST(Smoothing, MovesByTheRoundedFractionOfTheDistance) {
  const std::vector<int64_t> values = EdgesAndRandom(33, 1, 200);  // half of them edges
  std::mt19937 rng(1);
  auto pick = [&] { return values[rng() % values.size()]; };
  for (int i = 0; i < 400000; ++i) {
    const uint16_t c = wrap16(pick()), t = wrap16(pick()), up = wrap16(pick());
    const uint16_t down = wrap16(pick());
    const int64_t d = static_cast<int16_t>(wrap16(t - c));
    const auto coef = static_cast<int16_t>(up);
    ASSERT_EQ(UTIL_Smooth(c, coef, t), wrap16(c + step(d, coef))) << c << " " << coef << " " << t;
    const int64_t asym = d == 0 ? c : d > 0 ? c + step(d, up) + 1 : c + step(d, down) - 1;
    ASSERT_EQ(UTIL_SmoothAsym(c, up, down, t), wrap16(asym)) << c << " " << up << " " << down;

    const int32_t c32 = wrap32(pick()), t32 = wrap32(pick());
    const int64_t d32 = wrap32(int64_t{t32} - c32);  // the asymmetric form goes by t32 > c32
    ASSERT_EQ(UTIL_Smooth32(c32, up, t32), wrap32(c32 + step(d32, up))) << c32 << " " << t32;
    const int64_t asym32 = t32 == c32  ? c32
                           : t32 > c32 ? c32 + step(d32, up) + 1
                                       : c32 + step(d32, down) - 1;
    ASSERT_EQ(UTIL_SmoothAsym32(c32, up, down, t32), wrap32(asym32)) << c32 << " " << t32;
  }
}

// A plain FIR over history then block: acc * 2^shift / 32768 rounded half up
// and saturated. Past 2^40 in magnitude every value saturates, so the product
// stops there. The body alone takes a negative shift: acc >> (-shift - 1).
int16_t fir_output(const Samples &joined, size_t newest, const Samples &coefs, int shift) {
  int64_t acc = 0;
  for (size_t j = 0; j < coefs.size(); ++j) acc += int32_t{coefs[j]} * joined[newest - j];
  const int k = std::min(shift + 1, 40);
  int64_t v = shift < 0                                 ? acc >> std::min(-shift - 1, 63)
              : std::abs(acc) < (int64_t{1} << (40 - k)) ? acc * (int64_t{1} << k)
                                                         : (acc < 0 ? -1 : 1) * (int64_t{1} << 40);
  v += 32768;
  return static_cast<int16_t>(v > INT32_MAX ? 32767 : v < INT32_MIN ? -32768 : v >> 16);
}

TEST(Fir3, MatchesAPlainFirOverAStreamCutIntoBlocks) {
  std::mt19937 rng(2);
  for (int taps : {4, 8, 12, 16, 36, 64}) {
    for (int shift : {-70, -63, -62, -17, -1, 0, 1, 2, 14, 15, 16, 30, 31, 40, 62, 63, 32767}) {
      // Coefficients on a grain of 2^(14 - shift) make exact halves common.
      const int grain = shift >= 0 && shift <= 14 ? 14 - shift : static_cast<int>(rng() % 15);
      Samples coefs(taps), history(taps), joined, out, scratch(taps + 200);
      for (auto &c : coefs) c = static_cast<int16_t>(rng() & (0xFFFFu << grain));
      for (auto &h : history) h = static_cast<int16_t>(rng());
      joined = history;
      for (int block = 0; block < 4; ++block) {
        Samples samples(4 * (1 + rng() % 50));
        // Block 2 is silence, so whole windows of zeros occur; elsewhere the
        // extremes are frequent.
        for (auto &s : samples) s = static_cast<int16_t>(rng() % 5 ? rng() : 32767 + rng() % 2);
        if (block == 2) samples.assign(samples.size(), 0);
        joined.insert(joined.end(), samples.begin(), samples.end());
        const auto n = static_cast<int16_t>(samples.size());
        if (shift < 0)  // only the body takes it
          UTILFir3(samples.data(), n, history.data(), coefs.data(), taps, shift, scratch.data());
        else
          ASSERT_EQ(UTIL_Fir3(samples.data(), n, history.data(), coefs.data(), taps, shift,
                              scratch.data()),
                    0);
        out.insert(out.end(), samples.begin(), samples.end());
        ASSERT_EQ(history, Samples(joined.end() - taps, joined.end()));
      }
      for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], fir_output(joined, taps + i, coefs, shift)) << taps << " " << shift;
    }
  }
}

// Nulls first, then the lengths (positive multiples of 4), then the shift;
// each rule at its boundary and one past it. A refused call touches nothing.
TEST(Fir3, EveryStatusRuleAtItsBoundaryTouchingNothingWhenRefused) {
  const struct {
    int null;  // 1 samples, 2 history, 3 coefs, 4 scratch
    int16_t n, taps, shift;
    int32_t status;
  } rules[] = {
      // clang-format off
      {1, 4, 4, 0, 1}, {2, 4, 4, 0, 1}, {3, 4, 4, 0, 1}, {4, 4, 4, 0, 1}, {4, 0, 0, -1, 1},
      {0, 0, 4, 0, 2}, {0, -4, 4, 0, 2}, {0, INT16_MIN, 4, 0, 2}, {0, 4, 4, 0, 0},
      {0, 3, 4, 0, 2}, {0, 5, 4, 0, 2}, {0, 6, 4, 0, 2}, {0, 8, 4, 0, 0},
      {0, 4, 0, 0, 2}, {0, 4, -4, 0, 2}, {0, 4, 3, 0, 2}, {0, 4, 5, 0, 2}, {0, 4, 6, 0, 2},
      {0, 4, 8, 0, 0}, {0, 4, 0, -1, 2}, {0, 4, 4, -1, 3}, {0, 4, 4, INT16_MIN, 3},
      {0, 4, 4, 1, 0},
      // clang-format on
  };
  for (const auto &r : rules) {
    Samples samples(16, 11), history(16, 22), coefs(16, 8192), scratch(40, 44);
    int16_t *p[] = {samples.data(), history.data(), coefs.data(), scratch.data()};
    if (r.null) p[r.null - 1] = nullptr;
    EXPECT_EQ(UTIL_Fir3(p[0], r.n, p[1], p[2], r.taps, r.shift, p[3]), r.status)
        << r.null << " " << r.n << " " << r.taps << " " << r.shift;
    if (r.status != 0)  // accepted calls are checked against the reference above
      EXPECT_TRUE(samples == Samples(16, 11) && history == Samples(16, 22) &&
                  scratch == Samples(40, 44));
  }
}

}  // namespace
