// SPDX-License-Identifier: MIT
// The high-quality resampler against its plain model: every chain shape
// (up and down, with and without relaxed octaves, ratios near 1, exact
// powers of two, 4000 and 768000 Hz), both grades, every format pairing and
// dither, one to 64 channels, the rates' ratio and alsa-lib's period
// ratios, fed in random splits with too little room at times. The output is
// exactly the model's first ceil(N L / M) frames, byte for byte.
#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "tests/support/hq_stream.h"
#include "tests/support/kernel_sets.h"

namespace {

struct Case {
  uint32_t in, out, channels;
  uint32_t ratio_out = 0, ratio_in = 0;  // 0: the rates'
};

// Every shape of chain: up by less than 2, by 2..4, by more (one to six
// relaxed octaves), by exact powers of two; down likewise; 1:1.
const Case kCases[] = {
    {44100, 48000, 2},      {48000, 44100, 2},         {32000, 48000, 1},  {48000, 16000, 3},
    {96000, 44100, 2},      {22050, 48000, 2},         {48000, 48000, 2},  {48000, 768000, 2},
    {768000, 48000, 2},     {44100, 705600, 1},        {705600, 44100, 1}, {8000, 768000, 1},
    {768000, 4000, 1},      {4000, 48000, 2},          {5512, 44100, 2},   {44100, 5512, 2},
    {192000, 768000, 2},    {768000, 192000, 2},       {44100, 192000, 2, 1115, 256},
    {48000, 44100, 2, 941, 1024}, {44100, 48000, 2, 1024, 941}, {352800, 48000, 2, 480, 3528},
    {44100, 48000, 64},     {768000, 44100, 7},
    // The 16-bit grade's single stage: up by three, down by two, a ratio
    // whose fractions overflow its rows (their grid, blended), 1:1 off it.
    {16000, 48000, 1},      {44100, 22050, 2},         {44100, 48000, 2, 1601, 1470}, {32000, 48000, 3},
    {48000, 44100, 3, 1024, 1117}, {48000, 44100, 2, 1025, 1117}, {48000, 48000, 1, 4001, 4000},
    // The chain's phase cache: a denominator of exactly the rows it holds
    // (2240 for the 16-bit grade, 1536 for the 24-bit), and one more,
    // either way.
    {44100, 192000, 2, 2240, 517}, {44100, 192000, 2, 2241, 517},
    {192000, 44100, 2, 517, 2240}, {192000, 44100, 2, 517, 2241},
    {44100, 192000, 2, 1536, 353}, {44100, 192000, 2, 1537, 353},
    {192000, 44100, 2, 353, 1536}, {192000, 44100, 2, 353, 1537},
};

std::vector<uint8_t> random_frames(size_t frames, uint32_t channels, uint32_t format, std::mt19937 &rng) {
  std::vector<uint8_t> b(frames * channels * hq_test::sample_bytes(format));
  for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(rng());
  // A stretch at full scale either way, where the stages clamp.
  const size_t width = hq_test::sample_bytes(format);
  for (size_t i = b.size() / 3; i < b.size() / 3 + 64 * width * channels && i < b.size(); i += width) {
    const bool high = (i / (width * channels)) % 16 < 8;
    for (size_t k = 0; k < width; ++k) b[i + k] = high ? (k + 1 == width ? 0x7f : 0xff) : (k + 1 == width ? 0x80 : 0);
  }
  return b;
}

std::string name(const Case &c, int grade, uint32_t fin, uint32_t fout) {
  return std::to_string(c.in) + "->" + std::to_string(c.out) + " x" + std::to_string(c.channels) + " grade " +
         std::to_string(grade ? 24 : 16) + " " + (fin ? "S32" : "S16") + "->" + (fout ? "S32" : "S16") +
         (c.ratio_out ? " at " + std::to_string(c.ratio_out) + "/" + std::to_string(c.ratio_in) : "");
}

TEST(HqStream, EveryChainMatchesThePlainModelInRandomSplits) {
  std::mt19937 rng(2024);
  for (const Case &c : kCases)
    for (int grade = 0; grade < 2; ++grade)
      for (uint32_t fin = 0; fin < 2; ++fin)
        for (uint32_t fout = 0; fout < 2; ++fout) {
          if (grade == 0 && (fin || fout)) continue;  // the 16-bit calls take S16
          if (c.channels > 8 && (fin != fout)) continue;
          const std::string what = name(c, grade, fin, fout);
          hq_test::Resampler r(grade, c.in, c.out, c.channels);
          uint64_t l = c.out / std::gcd(c.in, c.out), m = c.in / std::gcd(c.in, c.out);
          if (c.ratio_out != 0) {
            ASSERT_EQ(r.set_ratio(c.ratio_out, c.ratio_in), RSMPL_OK) << what;
            const uint64_t g = std::gcd(c.ratio_out, c.ratio_in);
            l = c.ratio_out / g;
            m = c.ratio_in / g;
          }
          const bool dither = grade == 1 && fout == 0 && fin == 1;
          if (dither) ASSERT_EQ(RSMPL_Hq32SetDither(r.st32(), 1), RSMPL_OK);
          // About 30 ms of input, at least 600 frames.
          const size_t frames = std::max<size_t>(600, c.in / 32);
          const auto in = random_frames(frames, c.channels, fin, rng);
          const auto got = hq_test::feed(r, in, fin, fout, rng, std::max<uint32_t>(16, c.in / 200));
          const uint64_t due = hq_ref::due(frames, l, m);
          const auto want = hq_test::model(in, fin, fout, c.channels, c.in, c.out, l, m, grade, due, dither);
          EXPECT_TRUE(hq_test::same(got, want, hq_test::sample_bytes(fout) * c.channels)) << what;
        }
}

// Each build of the kernels gives the same stream, on either grade (the
// 16-bit grade's single stage and chain alike).
TEST(HqStream, EveryKernelBuildGivesTheSameStream) {
  for (int grade = 0; grade < 2; ++grade)
    for (const Case &c : {Case{44100, 48000, 2}, Case{768000, 44100, 3}, Case{8000, 768000, 1},
                          Case{48000, 44100, 2, 941, 1024}, Case{44100, 48000, 3, 1601, 1470}, Case{48000, 16000, 1},
                          Case{32000, 48000, 2}, Case{16000, 48000, 3}, Case{48000, 24000, 2}}) {
      std::vector<uint8_t> first;
      const uint32_t format = grade;  // the 16-bit calls take S16
      for (const auto *set : test_support::runnable_sets()) {
        test_support::UsingKernels using_set(set);
        std::mt19937 rng(5);
        hq_test::Resampler r(grade, c.in, c.out, c.channels);
        if (c.ratio_out) ASSERT_EQ(r.set_ratio(c.ratio_out, c.ratio_in), RSMPL_OK);
        const auto in = random_frames(c.in / 20, c.channels, format, rng);
        const auto got = hq_test::feed(r, in, format, format, rng);
        if (first.empty())
          first = got;
        else
          EXPECT_TRUE(hq_test::same(got, first, hq_test::sample_bytes(format) * c.channels))
              << set->name << " " << c.in << "->" << c.out << " grade " << grade;
      }
    }
}

}  // namespace
