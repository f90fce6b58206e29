// Saturation, float-to-fixed conversion and normalisation, checked against
// worked values and against the definitions evaluated independently.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "skelda/fixed_point.h"

namespace {

struct SatCase {
  int64_t value;
  int16_t bits;
  int64_t expected;
};

TEST(Saturate, WorkedValuesAndBounds) {
  const SatCase cases[] = {
      {40000, 16, 32767},
      {-40000, 16, -32768},
      {5000000000LL, 32, 2147483647},
      {-5000000000LL, 32, -2147483648LL},
      {32767, 16, 32767},
      {-32768, 16, -32768},
      {32768, 16, 32767},
      {-32769, 16, -32768},
      {0, 1, 0},
      {1, 1, 0},    // one bit holds -1..0
      {-1, 1, -1},
      {-2, 1, -1},
      {127, 8, 127},
      {128, 8, 127},
      {-129, 8, -128},
      {INT64_MAX, 24, 8388607},
      {INT64_MIN, 24, -8388608},
      // Widths outside 1..32 take the bound exponent modulo 32.
      {40000, 33, 0},       // (33 - 1) mod 32 = 0: range -1..0
      {-40000, 33, -1},
      {40000, 48, 32767},   // 47 mod 32 = 15
      {5000000000LL, 0, 2147483647},  // -1 mod 32 = 31
  };
  for (const SatCase &c : cases) {
    EXPECT_EQ(_SAT(c.value, c.bits), c.expected) << c.value << " in " << c.bits << " bits";
  }
}

TEST(Saturate, MatchesClampForEveryWidth) {
  const int64_t probes[] = {0, 1, -1, 1000, -1000, 1LL << 20, -(1LL << 20), 1LL << 40,
                            -(1LL << 40), INT32_MAX, INT32_MIN};
  for (int bits = 1; bits <= 32; ++bits) {
    const int64_t hi = (int64_t{1} << (bits - 1)) - 1;
    const int64_t lo = -(int64_t{1} << (bits - 1));
    for (int64_t v : probes) {
      const int64_t want = v > hi ? hi : (v < lo ? lo : v);
      EXPECT_EQ(_SAT(v, static_cast<int16_t>(bits)), want) << v << " in " << bits << " bits";
    }
  }
}

struct UFixCase {
  uint32_t q;
  float value;
  uint32_t expected;
};

TEST(ToUnsignedFixed, WorkedValuesAndEdges) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const UFixCase cases[] = {
      {16, 128.0f, 8388608u},
      {24, 1.0f, 16777216u},
      {0, 2.5f, 3u},    // half rounds up
      {0, 1.5f, 2u},
      {0, 2.4999998f, 2u},
      {0, -0.4f, 0u},
      {0, -0.5f, 0u},   // -0.5 + 0.5 = 0
      {0, -3.0f, 0u},
      {32, 1.0f, 4294967295u},
      {31, 1.0f, 2147483648u},
      {24, 8.0f, 134217728u},
      {24, 0.125f, 2097152u},
      {16, 0.25f, 16384u},
      {0, 4294967295.0f, 4294967295u},  // rounds to 2^32 in float, clamps
      {0, inf, 4294967295u},
      {0, -inf, 0u},
      {16, nan, 0u},
  };
  for (const UFixCase &c : cases) {
    EXPECT_EQ(ToUFix(c.q, c.value), c.expected) << c.value << " q" << c.q;
  }
}

struct SFixCase {
  uint32_t q;
  float value;
  int32_t expected;
};

TEST(ToSignedFixed, WorkedValuesAndEdges) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const SFixCase cases[] = {
      {0, 2.5f, 3},
      {0, -2.5f, -3},   // half rounds away from zero
      {0, 2.4f, 2},
      {0, -2.4f, -2},
      {15, 1.0f, 32768},
      {15, -1.0f, -32768},
      {31, 1.0f, 2147483647},
      {31, -1.0f, INT32_MIN},
      {31, -2.0f, INT32_MIN},
      {0, 0.0f, 0},
      {0, -0.0f, 0},
      {16, 0.5f, 32768},
      {0, inf, 2147483647},
      {0, -inf, INT32_MIN},
      {0, nan, 0},
  };
  for (const SFixCase &c : cases) {
    EXPECT_EQ(ToSFix(c.q, c.value), c.expected) << c.value << " q" << c.q;
  }
}

TEST(ToFixed, AgreesWithRoundingDefinitionOverASweep) {
  for (uint32_t q : {0u, 8u, 15u, 16u, 24u}) {
    for (int i = -2000; i <= 2000; ++i) {
      const float v = static_cast<float>(i) * 0.01237f;
      const double scaled = static_cast<double>(v) * std::ldexp(1.0, static_cast<int>(q));
      const double up = std::floor(scaled + 0.5);
      const double away = scaled >= 0 ? std::floor(scaled + 0.5) : -std::floor(-scaled + 0.5);
      const uint32_t wantU = up < 0 ? 0u : static_cast<uint32_t>(up);
      EXPECT_EQ(ToUFix(q, v), wantU) << v << " q" << q;
      EXPECT_EQ(ToSFix(q, v), static_cast<int32_t>(away)) << v << " q" << q;
    }
  }
}

struct NormCase {
  int32_t x;
  int32_t mantissa;
  int16_t exponent;
};

TEST(Normalize, WorkedValues) {
  const NormCase cases[] = {
      {1, 0x40000000, -30},
      {-1, static_cast<int32_t>(0xC0000000u), -30},
      {3, 0x60000000, -29},
      {0x40000000, 0x40000000, 0},
      {INT32_MIN, static_cast<int32_t>(0xC0000000u), 1},
      {0, 0, -32768},
      {INT32_MAX, INT32_MAX, 0},
      {-0x40000000, -0x40000000, 0},
      {-0x40000001, -0x40000001, 0},
      {2, 0x40000000, -29},
  };
  for (const NormCase &c : cases) {
    int32_t m = 12345;
    int16_t e = 12345;
    EXPECT_EQ(_NORMALIZE_S32(c.x, &m, &e), c.mantissa) << c.x;
    EXPECT_EQ(m, c.mantissa) << c.x;
    EXPECT_EQ(e, c.exponent) << c.x;
  }
}

TEST(Normalize, MantissaTimesPowerGivesBackTheInput) {
  uint32_t seed = 12345;
  for (int i = 0; i < 20000; ++i) {
    seed = seed * 1664525u + 1013904223u;
    // Vary the magnitude so every exponent is visited.
    const int32_t x = static_cast<int32_t>(seed) >> (seed % 31);
    if (x == 0) continue;
    int32_t m;
    int16_t e;
    _NORMALIZE_S32(x, &m, &e);
    const uint32_t magnitude = m < 0 ? 0u - static_cast<uint32_t>(m) : static_cast<uint32_t>(m);
    EXPECT_GE(magnitude, 1u << 30) << x;
    EXPECT_LE(magnitude, 0x7FFFFFFFu) << x;
    EXPECT_EQ(std::ldexp(static_cast<double>(m), e), static_cast<double>(x)) << x;
  }
}

}  // namespace
