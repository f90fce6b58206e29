// Decibel conversion: the committed table against its generating rule and
// against 10^(i/20), the worked values, and the result against the exact
// factor over the whole range (the correction stays within 0.0082 dB above
// it, plus the table's rounding to 16 bits).
#include <gtest/gtest.h>

#include <cmath>

#include "skelda/util_dsp.h"
#include "tools/db_table_rule.h"
#include "util/decibel_table.h"

namespace {

TEST(DecibelTable, IsTheRuleAndItsTellingRows) {
  for (int k = 0; k < util::kDecibelEntries; ++k) {
    const db_rule::Entry e = db_rule::EntryFor(k);
    EXPECT_EQ(util::kDecibelTable[k].exponent, e.exponent) << k;
    EXPECT_EQ(util::kDecibelTable[k].mantissa, e.mantissa) << k;
    const double value = std::ldexp(double(e.mantissa), e.exponent - 30);
    EXPECT_NEAR(value / std::pow(10.0, (90 - k) / 20.0), 1.0, 1e-9) << k;
    EXPECT_GE(e.mantissa, 1 << 29);
    EXPECT_LE(e.mantissa, 1 << 30);
  }
  const struct {
    int k, exponent;
    uint32_t mantissa;
  } rows[] = {{0, 15, 0x3DC36368}, {1, 15, 0x370BEA27}, {89, 1, 0x23E7933F},
              {90, 0, 0x40000000}, {91, 0, 0x390A4160}, {180, -14, 0x2128ACA9}};
  for (const auto &r : rows) {
    EXPECT_EQ(util::kDecibelTable[r.k].exponent, r.exponent) << r.k;
    EXPECT_EQ(static_cast<uint32_t>(util::kDecibelTable[r.k].mantissa), r.mantissa) << r.k;
  }
}

TEST(DecibelToScale, WorkedValues) {
  const struct {
    int32_t gain, q22;
  } cases[] = {{0, 4194304},          {655360, 41943040},       {196608, 8368640},
               {-196608, 2102016},    {54 * 32768, 2102132736}, {55 * 32768, 2147483647},
               {-90 * 32768, 132},    {-91 * 32768, 128},       {INT32_MAX, 2147483647},
               {INT32_MIN, 128}};
  for (const auto &c : cases) EXPECT_EQ(UTIL_dBToScale(c.gain), c.q22) << c.gain;

  const struct {
    int32_t gain;
    int16_t exponent;
    int32_t mantissa;  // 0: the table entry's own (rounded to 16 bits) with a correction
  } edges[] = {{0, 0, 0x40000000},        {2965504, 15, 0x40000000}, {INT32_MAX, 15, 0x40000000},
               {-2965505, -15, 0x40000000}, {INT32_MIN, -15, 0x40000000}};
  for (const auto &e : edges) {
    const EXP32 r = UTIL_dBToScaleExp32(e.gain);
    EXPECT_EQ(r.exponent, e.exponent) << e.gain;
    EXPECT_EQ(r.mantissa, e.mantissa) << e.gain;
  }
  // 2965503 still uses the +90 dB entry (r = 16383), -2965504 the -90 dB
  // entry (r = -16384).
  EXPECT_EQ(UTIL_dBToScaleExp32(2965503).exponent, 15);
  EXPECT_GT(UTIL_dBToScaleExp32(2965503).mantissa, 0x3DC36368);
  EXPECT_EQ(UTIL_dBToScaleExp32(-2965504).exponent, -14);
  EXPECT_LT(UTIL_dBToScaleExp32(-2965504).mantissa, 0x2128ACA9);
}

TEST(DecibelToScale, StaysJustAboveTheExactFactorEverywhere) {
  double worst_below = 0, worst_above = 0;
  for (int32_t gain = -2965504; gain < 2965504; gain += 37) {
    const EXP32 r = UTIL_dBToScaleExp32(gain);
    const double got = std::ldexp(double(r.mantissa), r.exponent - 30);
    const double exact = std::pow(10.0, gain / 32768.0 / 20.0);
    const double error_db = 20 * std::log10(got / exact);
    worst_below = std::fmin(worst_below, error_db);
    worst_above = std::fmax(worst_above, error_db);
  }
  // The correction errs upward by at most 0.0082 dB; rounding the table
  // mantissa to 16 bits adds at most 2^-14 relative (0.00053 dB) either way.
  EXPECT_GE(worst_below, -0.0006);
  EXPECT_LE(worst_above, 0.0082 + 0.0006);
}

}  // namespace
