// The committed sinc tables against the rule that generates them, and the
// prototype's measured properties.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "skelda/rsmpl_sinc.h"
#include "tools/sinc_table_rule.h"

namespace {

TEST(SincTables, MatchTheGeneratorRule) {
  std::vector<int32_t> coeff(sinc_rule::kEntries), slope(sinc_rule::kEntries);
  sinc_rule::BuildCoefficients(coeff.data());
  sinc_rule::BuildSlopes(coeff.data(), slope.data());
  for (int i = 0; i < sinc_rule::kEntries; ++i) {
    ASSERT_EQ(RsmplSincCoeff[i], coeff[i]) << "coefficient " << i;
    ASSERT_EQ(RsmplSincSlope[i], slope[i]) << "slope " << i;
  }
  for (int i = 0; i < sinc_rule::kShiftEntries; ++i) {
    ASSERT_EQ(RsmplSincShift[i], sinc_rule::ShiftFor(i)) << "shift " << i;
  }
}

TEST(SincTables, WorkedValues) {
  EXPECT_EQ(RsmplSincCoeff[0], 1889785600);
  EXPECT_NE(RsmplSincCoeff[1663], 0);
  EXPECT_NEAR(RsmplSincCoeff[1663], -18275, 2);
  for (int i = 1664; i < 1792; ++i) ASSERT_EQ(RsmplSincCoeff[i], 0) << i;
  EXPECT_EQ(RsmplSincSlope[1791], 0);
  // First zero crossing at 128 / 0.88 = 145.45 entries.
  EXPECT_GT(RsmplSincCoeff[145], 0);
  EXPECT_LT(RsmplSincCoeff[146], 0);
  const int16_t shifts[] = {0, 0, 1, 2, 2, 3, 3, 3, 3, 4};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(RsmplSincShift[i], shifts[i]) << i;
  EXPECT_EQ(RsmplSincShift[16], 4);
  EXPECT_EQ(RsmplSincShift[17], 5);
  EXPECT_EQ(RsmplSincShift[255], 8);
}

TEST(SincTables, WithinTheStatedToleranceOfTheSinglePrecisionRule) {
  // The rule evaluated in single precision lands within 1104 units.
  for (int i = 0; i < 1664; ++i) {
    const float c = 0.88f;
    const float x = c * static_cast<float>(i) / 128.0f;
    const float sinc = i == 0 ? 1.0f : std::sin(static_cast<float>(M_PI) * x) /
                                           (static_cast<float>(M_PI) * x);
    const float r = static_cast<float>(i) / 1663.0f;
    const float w = static_cast<float>(sinc_rule::BesselI0(10.0 * std::sqrt(1.0 - r * r)) /
                                       sinc_rule::BesselI0(10.0));
    const float value = 2147483648.0f * c * sinc * w;
    ASSERT_NEAR(static_cast<double>(RsmplSincCoeff[i]), static_cast<double>(value), 1104.0) << i;
  }
}

TEST(SincTables, PrototypeResponse) {
  // Gain at zero frequency: entries one input sample apart, both sides.
  double dc = RsmplSincCoeff[0];
  for (int i = 128; i < 1792; i += 128) dc += 2.0 * RsmplSincCoeff[i];
  EXPECT_NEAR(dc / 2147483648.0, 1.00002, 2e-5);
  // Response of the full symmetric prototype (3327 points, 128 per input
  // sample) at a frequency given as a fraction of the input rate,
  // normalised to its own zero-frequency gain.
  auto responseDb = [](double f) {
    double sum = RsmplSincCoeff[0], dcSum = RsmplSincCoeff[0];
    for (int i = 1; i < 1664; ++i) {
      sum += 2.0 * RsmplSincCoeff[i] * std::cos(2.0 * M_PI * f * i / 128.0);
      dcSum += 2.0 * RsmplSincCoeff[i];
    }
    return 20.0 * std::log10(std::fabs(sum / dcSum));
  };
  // Band edges as measured on the prototype (figures rounded to 0.1 dB).
  EXPECT_NEAR(responseDb(0.1), 0.0, 0.01);
  EXPECT_NEAR(responseDb(0.357), -0.1, 0.05);
  EXPECT_NEAR(responseDb(0.419), -3.0, 0.1);
  EXPECT_NEAR(responseDb(0.44), -6.0, 0.1);
  EXPECT_NEAR(responseDb(0.5), -24.9, 0.3);
  for (double f = 0.54; f < 0.56; f += 0.001) EXPECT_LT(responseDb(f), -53.5) << f;
  for (double f = 0.56; f < 0.58; f += 0.001) EXPECT_LT(responseDb(f), -87.4) << f;
  for (double f = 0.58; f < 4.0; f += 0.01) EXPECT_LT(responseDb(f), -100.0) << f;
}

}  // namespace
