// SPDX-License-Identifier: MIT
// The high-quality resampler's frame counts and positions: OutputFrames and
// InputFrames against a copy of the state fed frame by frame, at every
// chain shape, right after a new ratio (exact terms, large terms, scales)
// when part of a group of outputs already waits; whole periods at alsa-lib's
// ratios converting to exactly their frames for thousands of periods; the
// position a new ratio carries over to 2^-32 of a frame; and the 128-bit
// arithmetic behind it all against the compiler's own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "rsmpl/hq/position.h"
#include "rsmpl/hq/state.h"
#include "rsmpl/hq/wide.h"
#include "tests/support/hq_stream.h"

namespace {

using hq_test::Resampler;

// Frames needed before `want` more outputs are due, and outputs due after
// `frames` more frames, by feeding a copy of the state one frame at a time.
struct Brute {
  std::vector<uint8_t> block;
  Resampler &r;
  explicit Brute(Resampler &res) : r(res) {}
  void save() { block.assign(reinterpret_cast<uint8_t *>(r.st16()), reinterpret_cast<uint8_t *>(r.st16()) + r.size()); }
  void restore() { std::memcpy(r.st16(), block.data(), block.size()); }
  uint32_t outputs_after(uint32_t frames) {
    save();
    std::vector<int16_t> in(r.channels(), 0), out(4096 * r.channels());
    uint32_t total = 0;
    for (uint32_t i = 0; i < frames; ++i) {
      uint32_t n = 1, m = 4096;
      EXPECT_EQ(r.process(in.data(), RSMPL_HQ_S16, &n, out.data(), RSMPL_HQ_S16, &m), RSMPL_OK);
      total += m;
    }
    restore();
    return total;
  }
};

TEST(HqCounts, PredictionsMatchTheStreamAfterEveryKindOfRatio) {
  std::mt19937 rng(77);
  const struct {
    uint32_t in, out;
  } pairs[] = {{44100, 48000}, {48000, 44100}, {8000, 768000}, {768000, 8000}, {44100, 705600},
               {705600, 44100}, {48000, 48000}, {32000, 48000}, {4000, 48000},  {96000, 44100}};
  for (const auto &p : pairs)
    for (int grade = 0; grade < 2; ++grade) {
      SCOPED_TRACE(::testing::Message() << p.in << " -> " << p.out << " grade " << grade);
      Resampler r(grade, p.in, p.out, 2);
      Brute brute(r);
      std::vector<int16_t> in(2 * 4096), out(2 * 200000);
      for (int step = 0; step < 8; ++step) {
        // Feed an odd amount, so that a group of outputs may be part-made.
        uint32_t n = 1 + rng() % 97, m = static_cast<uint32_t>(out.size() / 2);
        ASSERT_EQ(r.process(in.data(), RSMPL_HQ_S16, &n, out.data(), RSMPL_HQ_S16, &m), RSMPL_OK);
        // Then a new ratio: the rates' own, one close to it with large terms,
        // a scale, or a glide to one (its stairs then part-way).
        const uint64_t one = uint64_t{1} << 32;
        switch (step % 4) {
          case 3: ASSERT_EQ(r.glide(one + one / 100, 200 + rng() % 5000), RSMPL_OK); break;
          case 0: ASSERT_EQ(r.set_scale(one + (rng() % (one / 64)) - one / 128), RSMPL_OK); break;
          case 1: {
            // Large terms on the side of the higher rate.
            const uint64_t big = 2000000000u + rng() % 1000000;
            const uint64_t other = p.out >= p.in ? big * p.in / p.out : big * p.out / p.in;
            ASSERT_EQ(p.out >= p.in ? r.set_ratio(uint32_t(big), uint32_t(other)) : r.set_ratio(uint32_t(other), uint32_t(big)),
                      RSMPL_OK);
            break;
          }
          default: ASSERT_EQ(r.set_ratio(p.out, p.in), RSMPL_OK);
        }
        for (uint32_t frames : {0u, 1u, 2u, 3u, 7u, 33u, 400u}) {
          const uint32_t due = r.outputs(frames);
          ASSERT_EQ(due, brute.outputs_after(frames)) << frames << " frames, step " << step;
          if (due == 0) continue;
          const uint32_t need = r.inputs(due);
          EXPECT_LE(need, frames);
          EXPECT_GE(brute.outputs_after(need), due) << "InputFrames makes too few due";
          if (need > 0) EXPECT_LT(brute.outputs_after(need - 1), due) << "InputFrames is not the least";
        }
      }
    }
}

// alsa-lib's periods convert to exactly their frames, call after call, at
// ratios with large terms and at the window's edges.
TEST(HqCounts, WholePeriodsConvertExactlyForThousandsOfPeriods) {
  const struct {
    uint32_t in, out, in_period, out_period, periods;
  } cases[] = {{44100, 48000, 941, 1024, 3000},   {48000, 44100, 1024, 941, 3000},
               {44100, 192000, 256, 1115, 3000},  {192000, 44100, 24000, 5513, 100},
               {48000, 768000, 1024, 16384, 300}, {768000, 48000, 16384, 1024, 300},
               {5512, 44100, 55, 441, 20000},     {44100, 48000, 1024, 1253, 2000},
               {8000, 768000, 80, 7680, 500},     {44100, 4000, 441, 40, 20000}};
  for (const auto &c : cases)
    for (int grade = 0; grade < 2; ++grade) {
      SCOPED_TRACE(::testing::Message() << c.in << " -> " << c.out << " at " << c.in_period << " -> "
                                        << c.out_period << " grade " << grade);
      Resampler r(grade, c.in, c.out, 1);
      ASSERT_EQ(r.set_ratio(c.out_period, c.in_period), RSMPL_OK);
      std::vector<int32_t> in(c.in_period), out(c.out_period);
      for (uint32_t k = 0; k < c.periods; ++k) {
        uint32_t n = c.in_period, m = c.out_period;
        ASSERT_EQ(r.process(in.data(), RSMPL_HQ_S32 * grade, &n, out.data(), RSMPL_HQ_S32 * grade, &m), RSMPL_OK);
        ASSERT_TRUE(n == c.in_period && m == c.out_period) << "period " << k << ": " << n << " -> " << m;
      }
    }
}

// A new ratio never moves the stream: it takes over where the polyphase
// stage stands (its next output going up, its next input going down), which
// stays put to within 2^-32 of a sample; going up, where the next output
// stands for (GetPosition) stays put too. And at a scale of 2^32 each output
// moves on by in / out input frames.
TEST(HqCounts, ANewRatioCarriesThePositionOver) {
  for (const auto &p : {std::pair<uint32_t, uint32_t>{44100, 48000}, {48000, 44100}, {8000, 768000}, {768000, 8000},
                        {384000, 44100}, {705600, 4001}})
    for (int grade = 0; grade < 2; ++grade) {
      SCOPED_TRACE(::testing::Message() << p.first << " -> " << p.second << " grade " << grade);
      Resampler r(grade, p.first, p.second, 1);
      std::vector<int16_t> in(800000), out(800000);
      // Whole groups of outputs written, so that going up the next output
      // starts one.
      const uint32_t group = 1u << reinterpret_cast<RSMPL_HqState *>(r.st16())->octaves;
      uint32_t n = 1001, m = r.outputs(1001) / group * group;
      ASSERT_EQ(r.process(in.data(), RSMPL_HQ_S16, &n, out.data(), RSMPL_HQ_S16, &m), RSMPL_OK);
      const auto &st = *reinterpret_cast<RSMPL_HqState *>(r.st16());
      const rsmpl::HqPos pos = st.pos;
      const RSMPL_HqPosition before = r.position();
      const uint32_t ratios[][2] = {{p.second, p.first}, {p.second + 7, p.first}, {1u << 31, 1u << 31}};
      for (const auto &q : ratios) {
        if (r.set_ratio(q[0], q[1]) != RSMPL_OK) continue;
        EXPECT_TRUE(st.pos.i == pos.i && st.pos.f == pos.f) << q[0] << "/" << q[1];
        const RSMPL_HqPosition after = r.position();
        if (st.up != 0 && st.octaves == 0)
          EXPECT_TRUE(after.nextFrame + static_cast<int64_t>(after.delayFrames) ==
                          before.nextFrame + static_cast<int64_t>(before.delayFrames) &&
                      after.nextFraction + after.delayFraction == before.nextFraction + before.delayFraction)
              << q[0] << "/" << q[1];
      }
      ASSERT_EQ(r.set_scale(uint64_t{1} << 32), RSMPL_OK);
      const RSMPL_HqPosition a = r.position();
      n = p.first + 777;  // not a whole second: the fractions differ at each end
      m = static_cast<uint32_t>(out.size());
      ASSERT_EQ(r.process(in.data(), RSMPL_HQ_S16, &n, out.data(), RSMPL_HQ_S16, &m), RSMPL_OK);
      const RSMPL_HqPosition b = r.position();
      // To the 2^-32 of a frame the position counts in (each end rounded
      // down: 1 either way).
      const int64_t went = (b.nextFrame - a.nextFrame) * (int64_t{1} << 32) + b.nextFraction - int64_t{a.nextFraction};
      const uint64_t span = (b.outputFrames - a.outputFrames) * p.first;
      const int64_t want = static_cast<int64_t>((span / p.second << 32) + (span % p.second << 32) / p.second);
      EXPECT_LE(std::llabs(went - want), 1) << went - want;
      EXPECT_EQ(b.inputFrames - a.inputFrames, uint64_t{n});
    }
}

// The portable 128-bit form against the compiler's, where there is one.
TEST(HqCounts, WideArithmeticMatchesTheCompilers) {
#if defined(__SIZEOF_INT128__)
  std::mt19937_64 rng(3);
  for (int i = 0; i < 20000; ++i) {
    const unsigned sa = rng() % 128, sb = rng() % 100;
    unsigned __int128 a = (static_cast<unsigned __int128>(rng()) << 64 | rng()) >> sa;
    unsigned __int128 b = (static_cast<unsigned __int128>(rng()) << 64 | rng()) >> (28 + sb);
    if (b == 0) b = 1;
    const rsmpl::U128Soft x = rsmpl::U128Soft::make(uint64_t(a >> 64), uint64_t(a)),
                          y = rsmpl::U128Soft::make(uint64_t(b >> 64), uint64_t(b));
    auto same = [](rsmpl::U128Soft v, unsigned __int128 w) { return v.hi == uint64_t(w >> 64) && v.lo == uint64_t(w); };
    ASSERT_TRUE(same(x / y, a / b)) << i;
    ASSERT_TRUE(same(x * y, a * b)) << i;
    ASSERT_TRUE(same(x + y, a + b) && same(x - y, a - b)) << i;
    ASSERT_TRUE(same(x >> (sb % 128), a >> (sb % 128)) && same(x << (sa % 128), a << (sa % 128))) << i;
    ASSERT_EQ(x < y, a < b);
  }
#else
  GTEST_SKIP() << "no compiler 128-bit type here; the portable form is the one in use";
#endif
}

// Steps add up exactly: L outputs at M / L land on exactly M, whatever the
// terms, and a fixed-point step lands within 2^-64 of a frame per step.
TEST(HqCounts, StepsAddUpExactly) {
  std::mt19937_64 rng(9);
  for (int i = 0; i < 200; ++i) {
    const uint64_t den = 1 + rng() % 0xffffffffu, num = den / 2 + rng() % (2 * den);
    const rsmpl::HqStep s = rsmpl::hq_step_exact(num, den);
    rsmpl::HqPos p{5, 0, 0};
    const uint64_t steps = den < 20000 ? den : 1 + rng() % 3000;
    for (uint64_t k = 0; k < steps; ++k) rsmpl::hq_advance(p, s);
    // p - 5 = steps num / den exactly: compare p (den 2^32) with it.
    const rsmpl::U128 exact = rsmpl::U128{steps} * rsmpl::U128{num};  // over den
    const rsmpl::U128 have = ((rsmpl::U128{static_cast<uint64_t>(p.i - 5)} << 32) + rsmpl::U128{p.f}) * rsmpl::U128{den} +
                             rsmpl::U128{p.e};  // over 2^32 den
    ASSERT_TRUE(have == (exact << 32)) << num << "/" << den << " x " << steps;
    bool frac = true;
    ASSERT_EQ(rsmpl::hq_floor_at(rsmpl::HqPos{5, 0, 0}, s, 0, steps, &frac), p.i);
    EXPECT_EQ(frac, p.f != 0 || p.e != 0);
  }
}

}  // namespace
