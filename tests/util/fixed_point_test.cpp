// SPDX-License-Identifier: MIT
// The fixed-point primitives against plain references of their rules in
// 64-bit integers and long double, on every power of two with its
// neighbours, exact halves and random values of every magnitude.
#include "skelda/fixed_point.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

#include "tests/util/edge_values.h"

namespace {

using Split = std::pair<int64_t, int>;  // mantissa, exponent

int64_t floor_div(int64_t a, int64_t b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

TEST(Saturate, ClampsToTheWidthTakenModulo32) {
  const std::vector<int64_t> values = EdgesAndRandom(64, 1, 200);
  for (int bits = -70; bits <= 70; ++bits) {
    const int s = ((bits - 1) % 32 + 32) % 32;
    const int64_t hi = (int64_t{1} << s) - 1, lo = -(int64_t{1} << s);
    for (int64_t v : values) ASSERT_EQ(_SAT(v, bits), std::clamp(v, lo, hi)) << v << " " << bits;
  }
}

// value * 2^q rounded half away from zero and clamped; NaN gives 0. Below 0
// the unsigned form clamps every result to 0, so there half up is the same.
long double fixed_reference(int q, float value, long double lo, long double hi) {
  if (std::isnan(value)) return 0;
  return std::clamp(std::round(std::ldexp(static_cast<long double>(value), q)), lo, hi);
}

TEST(ToFixed, RoundsAndClampsForEveryQ) {
  std::mt19937 rng(2);
  const float inf = std::numeric_limits<float>::infinity(), big = std::numeric_limits<float>::max();
  for (int q = 0; q <= 62; ++q) {
    std::vector<float> values = {0.0f, -0.0f, inf, -inf, NAN, big, -big, 1e-45f};
    // 2^32, 2^31 and the floats next to them, scaled by 2^-q.
    for (float v : {4294967296.0f, 4294967040.0f, 2147483648.0f, 2147483520.0f, 2147483904.0f})
      values.push_back(std::ldexp(v, -q)), values.push_back(-std::ldexp(v, -q));
    for (int i = 0; i < 300; ++i) {  // an exact half, and a float of any magnitude
      values.push_back(std::ldexp(static_cast<int>(rng() % 4194304) - 2097152 + 0.5f, -q));
      values.push_back(
          std::ldexp(static_cast<int32_t>(rng()) >> 8, static_cast<int>(rng() % 64) - 48 - q));
    }
    for (float v : values) {
      ASSERT_EQ(ToUFix(q, v), static_cast<uint32_t>(fixed_reference(q, v, 0, UINT32_MAX))) << v;
      ASSERT_EQ(ToSFix(q, v), static_cast<int32_t>(fixed_reference(q, v, INT32_MIN, INT32_MAX)))
          << v << " q" << q;
    }
  }
  EXPECT_EQ(ToUFix(0, 2.5f), 3u);  // the two conventions for halves, pinned by hand
  EXPECT_EQ(ToSFix(0, -2.5f), -3);
}

// _EXPONENT32: the fewest left shifts that bring |v| to 2^30 (2^31 for
// negative v). _EXP32TOEXP16: the upper half rounded half up, at most 32767,
// exponent kept. _EXP32TOINT32: m * 2^e floored and saturated.
TEST(ThirtyTwoBitHelpers, MatchTheirRules) {
  std::vector<int64_t> values = EdgesAndRandom(32, 3, 20000);
  for (int64_t k = -32768; k < 32768; k += 97)  // exact halves for the upper half, and neighbours
    for (int64_t d : {-1, 0, 1}) values.push_back(k * 65536 + 32768 + d);
  for (int64_t x : values) {
    const auto v = static_cast<int32_t>(x);
    int shifts = 0;
    while (x != 0 && (std::abs(x) << shifts) < (int64_t{1} << (x < 0 ? 31 : 30))) ++shifts;
    ASSERT_EQ(_EXPONENT32(&v), shifts) << x;
    const EXP16 half = _EXP32TOEXP16({static_cast<int16_t>(x), v});
    ASSERT_EQ(half.mantissa,
              static_cast<int16_t>(std::min<int64_t>(floor_div(x + 32768, 65536), 32767)));
    ASSERT_EQ(half.exponent, static_cast<int16_t>(x));
    for (int e : {-32768, -64, -32, -31, -30, -17, -1, 0, 1, 2, 15, 30, 31, 32, 33, 32767}) {
      // Past 2^32 every nonzero x saturates; past 2^-63 every x floors to 0 or -1.
      const int64_t p = e >= 0 ? x * (int64_t{1} << std::min(e, 32)) : x >> std::min(-e, 63);
      const auto want = static_cast<int32_t>(std::clamp<int64_t>(p, INT32_MIN, INT32_MAX));
      ASSERT_EQ(_EXP32TOINT32({static_cast<int16_t>(e), v}), want) << x << " " << e;
    }
  }
}

// x = m * 2^e with |m| in [2^30, 2^31); 0 gives 0 and -32768. _MANTNEXP and
// _NORMALIZE_S32: exact below 2^31 in magnitude, floored above with e at
// most 8. _MANTEXPO32: the same after saturating x to 40 bits.
TEST(MantissaAndExponent, SplitFortyBitValues) {
  for (int64_t x : EdgesAndRandom(64, 5, 40000)) {
    const int64_t clamped = std::clamp(x, -(int64_t{1} << 39), (int64_t{1} << 39) - 1);
    const uint64_t a = clamped < 0 ? 0 - static_cast<uint64_t>(clamped) : clamped;
    const int e = clamped == 0 ? -32768 : std::min(63 - __builtin_clzll(a) - 30, 8);
    const int64_t m = clamped == 0 ? 0
                      : e <= 0     ? clamped * (int64_t{1} << -e)
                                   : floor_div(clamped, int64_t{1} << e);
    const EXP32 r = _MANTEXPO32(x);
    ASSERT_EQ(Split(r.mantissa, r.exponent), Split(m, e)) << x;
    if (x != clamped) continue;
    int64_t got_m = 12345;
    int16_t got_e = 12345;
    _MANTNEXP(x, &got_m, &got_e);
    ASSERT_EQ(Split(got_m, got_e), Split(m, e)) << x;
    if (x != static_cast<int32_t>(x)) continue;
    int32_t m32 = 12345;
    ASSERT_EQ(_NORMALIZE_S32(static_cast<int32_t>(x), &m32, &got_e), m) << x;
    ASSERT_EQ(Split(m32, got_e), Split(m, e)) << x;
  }
}

// The documented rule: a polynomial for ln(1 + t) on 16-bit coefficients,
// each Horner step rounded to its upper 16 bits, then ln 2 per normalising
// shift and log10(e), each in Q15.
int64_t log10_reference(int x) {
  auto hi16 = [](int64_t a) { return floor_div(std::clamp<int64_t>(a, INT32_MIN, INT32_MAX), 65536); };
  int64_t m = std::max(x, 1) * int64_t{65536};
  int shifts = 0;
  for (; m < (int64_t{1} << 30); m *= 2) ++shifts;
  const int64_t t = m / 32768 - 32768;
  int64_t h = floor_div(21677 * 65536 + 32768 - 9130 * t, 65536);
  for (int c : {-24950, 20693, -16298, 16381}) h = hi16(c * 65536 + 32768 + h * t);
  const int64_t y = floor_div(2 * h * t + 1581, 32768) - (shifts + 1) * 22713;
  return floor_div(y, 32768) * 14231 + floor_div((y - 32768 * floor_div(y, 32768)) * 14231, 32768);
}

TEST(Log10, IsTheDocumentedPolynomialAndWithinItsError) {
  for (int x = -32768; x <= 32767; ++x) {
    const int32_t got = _LOG10(static_cast<int16_t>(x));
    ASSERT_EQ(got, log10_reference(x)) << x;
    ASSERT_LE(std::fabs(got - 32768 * std::log10(std::max(x, 1) / 32768.0)), 2.4) << x;
  }
  EXPECT_EQ(_LOG10(100), -82428);  // worked values: the polynomial as published
  EXPECT_EQ(_LOG10(16384), -9865);
}

}  // namespace
