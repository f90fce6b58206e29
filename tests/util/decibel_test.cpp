// SPDX-License-Identifier: MIT
// Decibel conversion at every whole decibel, every half with its neighbours
// and random gains, against 10^(gain / 20) in long double and the table's
// rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "skelda/util_dsp.h"
#include "tools/db_table_rule.h"

namespace {

// Gains round half up to whole decibels; beyond +-90 dB the result is the
// ceiling 2^15 or the floor 2^-15 and at 0 exactly 1. The Q22 form is the
// same factor floored and saturated.
TEST(DecibelToScale, FollowsTheFactorWithinItsError) {
  std::mt19937 rng(1);
  std::vector<int64_t> gains = {INT32_MIN, INT32_MAX};
  for (int i = -95; i <= 95; ++i)
    for (int off : {-16385, -16384, -16383, -1, 0, 1, 16383, 16384})
      gains.push_back(i * 32768 + off);
  for (int i = 0; i < 100000; ++i)
    gains.push_back(i % 8 ? static_cast<int32_t>(rng() % 6000000) - 3000000
                          : static_cast<int32_t>(rng()));
  for (int64_t gain : gains) {
    const EXP32 r = UTIL_dBToScaleExp32(static_cast<int32_t>(gain));
    const auto whole = static_cast<int64_t>(std::floor(gain / 32768.0L + 0.5L));
    if (whole > 90 || whole < -90 || gain == 0) {
      ASSERT_EQ(r.exponent, whole > 90 ? 15 : whole < -90 ? -15 : 0) << gain;
      ASSERT_EQ(r.mantissa, 1 << 30) << gain;
    } else {
      // The whole decibel's entry, its mantissa rounded to 16 bits, times a
      // correction from the exact factor of the rest to 0.094 % above it.
      const db_rule::Entry entry = db_rule::EntryFor(static_cast<int>(90 - whole));
      const long double rounded = std::floor(entry.mantissa / 65536.0L + 0.5L) * 65536;
      const long double rest = std::pow(10.0L, (gain - whole * 32768) / 655360.0L);
      ASSERT_EQ(r.exponent, entry.exponent) << gain;
      ASSERT_GE(r.mantissa / (rounded * rest), 1 - 0x1p-30L) << gain;
      ASSERT_LE(r.mantissa / (rounded * rest), 1.00094L) << gain;
      if (gain % 32768 == 0) ASSERT_EQ(r.mantissa, rounded) << gain;
      // Against the exact factor too, which the table's rule could miss.
      const long double value = std::ldexp(static_cast<long double>(r.mantissa), r.exponent - 30);
      ASSERT_NEAR(value / std::pow(10.0L, gain / 655360.0L), 1, 0.0011) << gain;
    }
    const long double q22 =
        std::floor(std::ldexp(static_cast<long double>(r.mantissa), r.exponent - 8));
    ASSERT_EQ(UTIL_dBToScale(static_cast<int32_t>(gain)),
              static_cast<int32_t>(std::min(q22, 2147483647.0L)))
        << gain;
  }
  EXPECT_EQ(UTIL_dBToScale(0), 4194304);  // worked values pin Q22 and the 16-bit rounding
  EXPECT_EQ(UTIL_dBToScale(196608), 8368640);
  EXPECT_EQ(UTIL_dBToScale(-91 * 32768), 128);
}

}  // namespace
