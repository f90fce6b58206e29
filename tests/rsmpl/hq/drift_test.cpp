// SPDX-License-Identifier: MIT
// Following a drifting clock as a network player or a bridge between two
// sound cards does: a -1 dBFS tone, the ratio set before every 10 ms block
// (a 500 ppm sine, a random walk of 2 ppm a block, 300 ppm steps), and
// every output held to a continuous clock: output n stands for the input
// time the ratios set so far put it at, and must be the tone there. The
// worst 100 ms of residual stays 140 dB below full scale on the 32-bit
// calls and at the 16-bit floor (90 dB) on the 16-bit ones; the counts stay
// exact throughout.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "tests/support/hq_stream.h"

namespace {

const double kAmplitude = 0.8912509381337456;  // -1 dBFS

enum Drift { kSine, kWalk, kSteps, kGlides };

// The scale (2^32 = the rates' ratio) before block b.
double ppm_at(Drift d, int b, std::mt19937 &rng, double &walk) {
  switch (d) {
    case kSine: return 500 * std::sin(2 * M_PI * b / 700.0);
    case kWalk: return walk += (rng() % 2 ? 2.0 : -2.0);
    default: return (b / 50) % 2 ? 300.0 : 0.0;  // steps; glides to the same
  }
}

// The worst residual over 100 ms windows, in dB below full scale.
double worst_residual_db(uint32_t in, uint32_t out, int grade, Drift drift, double seconds) {
  hq_test::Resampler r(grade, in, out, 1);
  std::mt19937 rng(11);
  const uint32_t block = in / 100;
  const size_t blocks = size_t(seconds * 100);
  const double hz = 997;
  std::vector<int32_t> x(block), y(4 * block);
  std::vector<int16_t> x16(block), y16(4 * block);
  double walk = 0;
  uint64_t fed = 0;
  const double delay = [&] {
    const RSMPL_HqPosition p = r.position();
    return double(p.delayFrames) + p.delayFraction / 4294967296.0;
  }();
  // The model: output n + 1 stands one step after output n, the step in
  // force when output n was made; during a glide, the step of its stair:
  // up to 256 equal ones over the polyphase stage's steps (one an output
  // here, where no relaxed octaves follow it).
  double t = 0, advance = double(in) / out, block_step = advance;
  double glide_from = 0, glide_to = 0;
  uint64_t stairs = 0, stair = 1, stair_at = 0, stair_no = 0;
  double window = 0, worst = 0;
  size_t in_window = 0, made = 0;
  const size_t window_frames = out / 10;
  for (size_t b = 0; b < blocks; ++b) {
    const double ppm = ppm_at(drift, int(b), rng, walk);
    const uint64_t scale = uint64_t(std::llround(4294967296.0 * (1 + ppm * 1e-6)));
    const double scaled = double(in) / out / (double(scale) / 4294967296.0);
    if (drift != kGlides) {
      EXPECT_EQ(r.set_scale(scale), RSMPL_OK);
      block_step = scaled;
    } else if (b % 50 == 0) {
      EXPECT_EQ(r.glide(scale, 4800), RSMPL_OK);
      glide_from = block_step;
      glide_to = block_step = scaled;
      stairs = 256;
      stair = 4800 / 256;
      stair_at = 0;
      stair_no = 1;
    }
    for (uint32_t i = 0; i < block; ++i) {
      const double v = kAmplitude * std::sin(2 * M_PI * hz * double(fed + i) / in);
      // Full scale is 2^31 and 2^15, as the outputs are read.
      x[i] = int32_t(std::lround(v * 8388608)) * 256;
      x16[i] = int16_t(std::lround(v * 32768));
    }
    uint32_t n = block, m = uint32_t(y.size());
    EXPECT_EQ(grade ? r.process(x.data(), RSMPL_HQ_S32, &n, y.data(), RSMPL_HQ_S32, &m)
                    : r.process(x16.data(), RSMPL_HQ_S16, &n, y16.data(), RSMPL_HQ_S16, &m),
              RSMPL_OK);
    EXPECT_EQ(n, block);
    fed += n;
    for (uint32_t j = 0; j < m; ++j, ++made) {
      if (made != 0) t += advance;
      if (stair_no != 0 && stair_no <= stairs) {
        advance = stair_no >= stairs ? glide_to : glide_from + (glide_to - glide_from) * double(stair_no) / double(stairs);
        if (++stair_at == stair) {
          stair_at = 0;
          ++stair_no;
        }
      } else {
        advance = block_step;
      }
      const double got = grade ? y[j] / 2147483648.0 : y16[j] / 32768.0;
      // Only once the filters are full of the tone.
      if (t - delay < 200) continue;
      const double e = got - kAmplitude * std::sin(2 * M_PI * hz * (t - delay) / in);
      window += e * e;
      if (++in_window == window_frames) {
        worst = std::max(worst, window / window_frames);
        window = 0;
        in_window = 0;
      }
    }
  }
  return 10 * std::log10(worst / 0.5 + 1e-40);
}

TEST(HqDrift, ADriftingClockIsFollowedWithoutAStepInTime) {
  const struct {
    uint32_t in, out;
  } pairs[] = {{44100, 48000}, {48000, 48000}};
  for (const auto &p : pairs)
    for (Drift d : {kSine, kWalk, kSteps, kGlides})
      for (int grade = 0; grade < 2; ++grade) {
        const double db = worst_residual_db(p.in, p.out, grade, d, 2.0);
        EXPECT_LE(db, grade ? -140.0 : -90.0) << p.in << " -> " << p.out << " drift " << d << " grade " << grade;
      }
}

}  // namespace
