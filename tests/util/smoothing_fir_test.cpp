// Smoothing steps against a 64-bit reference of their formulas on random
// arguments, with the worked values; UTIL_Fir3 against a plain 64-bit FIR
// over the joined history and block, its statuses, and that a refused call
// touches nothing.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "skelda/util_dsp.h"

namespace {

TEST(Smoothing, WorkedValues) {
  EXPECT_EQ(UTIL_Smooth(0, 16384, 100), 50);
  EXPECT_EQ(UTIL_Smooth(1234, 0, 100), 1234);
  EXPECT_EQ(UTIL_Smooth(7, 32767, 8), 8);
  EXPECT_EQ(UTIL_SmoothAsym(55, 100, 100, 55), 55);
  EXPECT_EQ(UTIL_SmoothAsym(0, 1, 1, 1), 1);
  EXPECT_EQ(UTIL_SmoothAsym(10, 1, 1, 9), 9);
  EXPECT_EQ(UTIL_Smooth32(0, 16384, 1000000), 500000);
  EXPECT_EQ(UTIL_SmoothAsym32(0, 16384, 0, 1000000), 500001);
  EXPECT_EQ(UTIL_SmoothAsym32(1000000, 0, 16384, 0), 499999);
  EXPECT_EQ(UTIL_SmoothAsym32(-5, 1, 1, -5), -5);
}

// The step as the hardware would form it: current * 65536 plus twice the
// rounded product, modulo 2^32, upper half.
uint16_t smooth_reference(uint16_t current, int64_t coef, uint16_t target, int correction) {
  const int64_t d = static_cast<int16_t>(static_cast<uint16_t>(target - current));
  const uint64_t word =
      (uint64_t{current} << 16) + 2 * static_cast<uint64_t>(d * coef + 16384) +
      (static_cast<uint64_t>(static_cast<int64_t>(correction)) << 16);
  return static_cast<uint16_t>((word & 0xFFFFFFFFu) >> 16);
}

TEST(Smoothing, MatchTheirFormulasOnRandomArguments) {
  std::mt19937 rng(17);
  for (int i = 0; i < 300000; ++i) {
    const uint16_t c = static_cast<uint16_t>(rng()), t = static_cast<uint16_t>(rng());
    const uint16_t up = static_cast<uint16_t>(rng()), down = static_cast<uint16_t>(rng());
    const int16_t coef = static_cast<int16_t>(rng());
    ASSERT_EQ(UTIL_Smooth(c, coef, t), smooth_reference(c, coef, t, 0));
    const int16_t d = static_cast<int16_t>(static_cast<uint16_t>(t - c));
    const uint16_t asym = t == c ? c : smooth_reference(c, d < 0 ? down : up, t, d < 0 ? -1 : 1);
    ASSERT_EQ(UTIL_SmoothAsym(c, up, down, t), asym);

    const int32_t c32 = static_cast<int32_t>(rng()), t32 = static_cast<int32_t>(rng());
    const int64_t d32 = static_cast<int32_t>(static_cast<uint32_t>(t32) - static_cast<uint32_t>(c32));
    auto wrap = [](int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); };
    ASSERT_EQ(UTIL_Smooth32(c32, up, t32), wrap(c32 + ((d32 * up + 16384) >> 15)));
    const int32_t want = t32 > c32   ? wrap(c32 + ((d32 * up + 16384) >> 15) + 1)
                         : t32 == c32 ? c32
                                      : wrap(c32 + ((d32 * down + 16384) >> 15) - 1);
    ASSERT_EQ(UTIL_SmoothAsym32(c32, up, down, t32), want);
  }
}

// A plain FIR over history followed by block, scaled exactly: a scaled sum
// of 2^40 or more in magnitude saturates whatever its low bits.
std::vector<int16_t> fir_reference(const std::vector<int16_t> &history,
                                   const std::vector<int16_t> &block,
                                   const std::vector<int16_t> &coefs, int shift) {
  std::vector<int16_t> joined(history);
  joined.insert(joined.end(), block.begin(), block.end());
  std::vector<int16_t> out;
  const size_t taps = coefs.size();
  for (size_t i = 0; i < block.size(); ++i) {
    int64_t acc = 0;
    for (size_t j = 0; j < taps; ++j) acc += int32_t{coefs[j]} * joined[taps + i - j];
    const int k = shift + 1;
    int64_t v = 32768;
    if (acc != 0 && (k >= 40 || (acc < 0 ? -acc : acc) >= int64_t{1} << (40 - k)))
      v = acc > 0 ? INT64_MAX : INT64_MIN;
    else if (acc != 0)
      v = acc * (int64_t{1} << k) + 32768;
    out.push_back(v > INT32_MAX ? 32767 : v < INT32_MIN ? -32768 : static_cast<int16_t>(v >> 16));
  }
  return out;
}

TEST(Fir3, MatchesAPlainFirAcrossBlocks) {
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> any(-32768, 32767);
  for (int taps : {4, 8, 12, 16, 36, 64}) {
    for (int shift : {0, 1, 3, 20, 40, 70}) {
      std::vector<int16_t> coefs(taps);
      for (auto &c : coefs) c = static_cast<int16_t>(any(rng) >> (shift > 3 ? 6 : 0));
      std::vector<int16_t> history(taps);
      for (auto &h : history) h = static_cast<int16_t>(any(rng));
      for (int block = 0; block < 3; ++block) {
        const int n = 4 * (1 + static_cast<int>(rng() % 50));
        std::vector<int16_t> samples(n);
        for (auto &s : samples) s = static_cast<int16_t>(any(rng));
        const auto want = fir_reference(history, samples, coefs, shift);
        std::vector<int16_t> joined(history);
        joined.insert(joined.end(), samples.begin(), samples.end());
        std::vector<int16_t> scratch(taps + n);
        ASSERT_EQ(UTIL_Fir3(samples.data(), static_cast<int16_t>(n), history.data(), coefs.data(),
                            static_cast<int16_t>(taps), static_cast<int16_t>(shift), scratch.data()),
                  0);
        ASSERT_EQ(samples, want) << taps << " taps, shift " << shift;
        ASSERT_EQ(history, std::vector<int16_t>(joined.end() - taps, joined.end()));
      }
    }
  }
}

TEST(Fir3, WorkedValues) {
  std::vector<int16_t> samples = {3, -3, 100, 7, 0, 1, -1, 2};
  std::vector<int16_t> history(4, 0), scratch(12);
  const int16_t half[4] = {16384, 0, 0, 0};
  ASSERT_EQ(UTIL_Fir3(samples.data(), 8, history.data(), half, 4, 0, scratch.data()), 0);
  EXPECT_EQ(samples, (std::vector<int16_t>{2, -1, 50, 4, 0, 1, 0, 1}));
  EXPECT_EQ(history, (std::vector<int16_t>{0, 1, -1, 2}));
  std::vector<int16_t> loud(8, 32767), full_history(4, 32767);
  const int16_t big[4] = {32767, 32767, 32767, 32767};
  ASSERT_EQ(UTIL_Fir3(loud.data(), 8, full_history.data(), big, 4, 0, scratch.data()), 0);
  EXPECT_EQ(loud, std::vector<int16_t>(8, 32767));
}

TEST(Fir3, RefusedCallsTouchNothing) {
  struct Case {
    bool null_samples, null_history, null_coefs, null_scratch;
    int16_t n, taps, shift;
    int32_t status;
  };
  const Case cases[] = {
      {true, false, false, false, 8, 4, 0, 1},  {false, true, false, false, 8, 4, 0, 1},
      {false, false, true, false, 8, 4, 0, 1},  {false, false, false, true, 8, 4, 0, 1},
      {true, false, false, false, 6, 0, -1, 1}, {false, false, false, false, 0, 4, 0, 2},
      {false, false, false, false, -4, 4, 0, 2}, {false, false, false, false, 6, 4, 0, 2},
      {false, false, false, false, 8, 0, 0, 2},  {false, false, false, false, 8, -4, 0, 2},
      {false, false, false, false, 8, 6, -1, 2}, {false, false, false, false, 8, 4, -1, 3},
  };
  for (const auto &c : cases) {
    std::vector<int16_t> samples(16, 11), history(16, 22), coefs(16, 33), scratch(40, 44);
    const int32_t status = UTIL_Fir3(c.null_samples ? nullptr : samples.data(), c.n,
                                     c.null_history ? nullptr : history.data(),
                                     c.null_coefs ? nullptr : coefs.data(), c.taps, c.shift,
                                     c.null_scratch ? nullptr : scratch.data());
    EXPECT_EQ(status, c.status) << c.n << " " << c.taps << " " << c.shift;
    EXPECT_EQ(samples, std::vector<int16_t>(16, 11));
    EXPECT_EQ(history, std::vector<int16_t>(16, 22));
    EXPECT_EQ(scratch, std::vector<int16_t>(40, 44));
  }
}

}  // namespace
