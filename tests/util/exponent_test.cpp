// Exponent, mantissa and logarithm helpers: worked values, sweeps against
// plain references (bit counts, exact shifts, double-precision log10).
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "skelda/fixed_point.h"

namespace {

TEST(Exponent32, WorkedValuesAndEveryMagnitude) {
  const struct {
    int32_t v;
    int16_t n;
  } worked[] = {{1, 30}, {-1, 31}, {5, 28}, {0, 0}, {0x40000000, 0}, {INT32_MIN, 0},
                {-3, 30}, {-5, 29}, {0x3FFFFFFF, 1}, {-0x40000000, 1}, {INT32_MAX, 0}};
  for (const auto &w : worked) EXPECT_EQ(_EXPONENT32(&w.v), w.n) << w.v;
  // Reference: positive v needs clz(v) - 1 shifts to reach [2^30, 2^31);
  // a negative one's magnitude needs clz(|v|) to reach 2^31.
  std::mt19937 rng(7);
  for (int i = 0; i < 200000; ++i) {
    const int32_t v = static_cast<int32_t>(rng()) >> (rng() % 32);
    if (v == 0 || v == INT32_MIN) continue;
    const uint32_t a = v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v);
    const int want = v > 0 ? __builtin_clz(a) - 1 : __builtin_clz(a);
    ASSERT_EQ(_EXPONENT32(&v), want) << v;
  }
}

TEST(Exp32ToInt32, SaturatesShiftsAndIgnoresZero) {
  const struct {
    int32_t mantissa;
    int16_t exponent;
    int32_t want;
  } cases[] = {{0x40000000, 1, INT32_MAX}, {-0x40000000, 1, INT32_MIN}, {1000, -40, 0},
               {-1000, -40, -1},           {0, 100, 0},                 {3, 4, 48},
               {-3, 29, -1610612736},      {-3, 30, INT32_MIN},         {0x12345678, -4, 0x1234567},
               {1, 31, INT32_MAX},         {-1, 31, INT32_MIN},         {0x7FFF, 16, 0x7FFF0000},
               {0x10000, 15, INT32_MAX},   {5, -2, 1},                  {-5, -2, -2}};
  for (const auto &c : cases) {
    EXP32 v;
    v.mantissa = c.mantissa;
    v.exponent = c.exponent;
    EXPECT_EQ(_EXP32TOINT32(v), c.want) << c.mantissa << " * 2^" << c.exponent;
  }
  // Against the exact value clamped to 32 bits.
  std::mt19937 rng(8);
  for (int i = 0; i < 100000; ++i) {
    EXP32 v;
    v.mantissa = static_cast<int32_t>(rng()) >> (rng() % 32);
    v.exponent = static_cast<int16_t>(static_cast<int>(rng() % 80) - 40);
    const int c = v.exponent < -31 ? -31 : v.exponent;
    const double exact = std::floor(std::ldexp(double(v.mantissa), c));
    const double clamped = std::fmin(std::fmax(exact, double(INT32_MIN)), double(INT32_MAX));
    ASSERT_EQ(_EXP32TOINT32(v), static_cast<int32_t>(clamped)) << v.mantissa << " " << v.exponent;
  }
}

TEST(Exp32ToExp16, RoundsTheUpperHalf) {
  const struct {
    int32_t mantissa;
    int16_t mantissa16;
  } cases[] = {{0x12348000, 0x1235}, {0x12347FFF, 0x1234}, {-0x8000, 0}, {-0x8001, -1},
               {0x7FFF7FFF, 0x7FFF}, {0x7FFF8000, 0x7FFF}, {INT32_MAX, 0x7FFF}, {INT32_MIN, -32768}};
  for (const auto &c : cases) {
    EXP32 v;
    v.mantissa = c.mantissa;
    v.exponent = -7;
    const EXP16 r = _EXP32TOEXP16(v);
    EXPECT_EQ(r.mantissa, c.mantissa16) << std::hex << c.mantissa;
    EXPECT_EQ(r.exponent, -7);
  }
}

TEST(MantNExp, WorkedValuesAndRoundTrips) {
  const struct {
    int64_t x, mantissa;
    int16_t exponent;
  } worked[] = {{0, 0, -32768},
                {1, 0x40000000, -30},
                {int64_t{1} << 35, 0x40000000, 5},
                {-(int64_t{1} << 39), INT32_MIN, 8},
                {-1, -0x40000000, -30},
                {INT32_MAX, INT32_MAX, 0}};
  for (const auto &w : worked) {
    int64_t m = 0;
    int16_t e = 0;
    _MANTNEXP(w.x, &m, &e);
    EXPECT_EQ(m, w.mantissa) << w.x;
    EXPECT_EQ(e, w.exponent) << w.x;
  }
  std::mt19937_64 rng(9);
  for (int i = 0; i < 200000; ++i) {
    const int64_t x = static_cast<int64_t>(rng()) >> (24 + rng() % 40);  // within 40 bits
    int64_t m = 0;
    int16_t e = 0;
    _MANTNEXP(x, &m, &e);
    ASSERT_GE(m, INT32_MIN);
    ASSERT_LE(m, INT32_MAX);
    if (x == 0) continue;
    if (e <= 0) {
      ASSERT_EQ(m, x * (int64_t{1} << -e)) << x;  // exact
      ASSERT_TRUE((m >= (1 << 30) || m <= -(1 << 30))) << x << " not normalised";
    } else {
      ASSERT_EQ(m, x >> e) << x;  // toward minus infinity
      ASSERT_GE(e, 1);
      ASSERT_LE(e, 8);
    }
  }
}

TEST(MantExpo32, SaturatesToFortyBits) {
  const struct {
    int64_t x;
    int32_t mantissa;
    int16_t exponent;
  } cases[] = {{int64_t{1} << 45, 0x7FFFFFFF, 8},
               {-(int64_t{1} << 50), INT32_MIN, 8},
               {INT64_MAX, 0x7FFFFFFF, 8},
               {12345, 12345 << 17, -17}};
  for (const auto &c : cases) {
    const EXP32 r = _MANTEXPO32(c.x);
    EXPECT_EQ(r.mantissa, c.mantissa) << c.x;
    EXPECT_EQ(r.exponent, c.exponent) << c.x;
  }
}

TEST(Log10, WorkedValuesAndEveryInputWithinItsError) {
  const struct {
    int16_t x;
    int32_t want;
  } worked[] = {{1, -147963}, {0, -147963}, {-5, -147963}, {2, -138099}, {100, -82428},
                {1000, -49659}, {16384, -9865}, {32767, -2}};
  for (const auto &w : worked) EXPECT_EQ(_LOG10(w.x), w.want) << w.x;
  double worst = 0;
  for (int x = 1; x <= 32767; ++x) {
    const double exact = 32768.0 * std::log10(x / 32768.0);
    worst = std::fmax(worst, std::fabs(_LOG10(static_cast<int16_t>(x)) - exact));
  }
  EXPECT_LE(worst, 2.4);
}

}  // namespace
