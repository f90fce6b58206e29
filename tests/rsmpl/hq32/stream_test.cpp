// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler's streams against the plain integer
// reference (tests/support/hq32_reference.h), on every kernel build, in
// every pairing of S16 and S32 input and output, with dither on and off,
// with one, two, three and eight channels, over any split of calls and
// room and in place where the rules allow: the one comparison shows split
// invariance, the formats' conversions, the dither's sequence and the exact
// frame counts.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "tests/support/hq32_reference.h"
#include "tests/support/hq_stream.h"
#include "tests/support/kernel_sets.h"

namespace {

using hq_test::ready;
using hq_test::Segment;

struct Formats {
  uint32_t in, out;
  bool dither;
};

size_t sample_bytes(uint32_t format) { return format == RSMPL_HQ_S32 ? 4 : 2; }

hq_test::Calls calls(RSMPL_Hq32State *st, const Formats &f, const Segment &seg) {
  const size_t in_frame = sample_bytes(f.in) * st->channels, out_frame = sample_bytes(f.out) * st->channels;
  return {[st, f](const void *in, uint32_t *n, void *out, uint32_t *m) {
            return RSMPL_Hq32Process(st, in, f.in, n, out, f.out, m);
          },
          [st](uint32_t n) {
            uint32_t m = 0;
            RSMPL_Hq32OutputFrames(st, n, &m);
            return m;
          },
          [st](uint32_t m) {
            uint32_t n = 0;
            RSMPL_Hq32InputFrames(st, m, &n);
            return n;
          },
          in_frame, out_frame, seg.L <= seg.M && out_frame <= in_frame};
}

// Input of any value in the format (S16 input: what the resampler sees is
// the sample times 2^16), full scale at random, or runs of one extreme.
std::vector<int32_t> make_input(uint32_t format, int fill, size_t samples, std::mt19937 &rng) {
  std::vector<int32_t> x(samples);
  const int32_t high = format == RSMPL_HQ_S32 ? INT32_MAX : INT16_MAX;
  const int32_t low = format == RSMPL_HQ_S32 ? INT32_MIN : INT16_MIN;
  bool up = true;
  for (auto &v : x) {
    if (fill == 1 || (fill == 2 && rng() % 40 == 0)) up = rng() % 2;
    v = fill == 0 ? (format == RSMPL_HQ_S32 ? static_cast<int32_t>(rng()) : static_cast<int16_t>(rng()))
                  : up ? high : low;
  }
  return x;
}

std::vector<uint8_t> bytes_of(const std::vector<int32_t> &x, uint32_t format) {
  std::vector<uint8_t> b(x.size() * sample_bytes(format));
  for (size_t i = 0; i < x.size(); ++i) {
    if (format == RSMPL_HQ_S32) {
      std::memcpy(&b[4 * i], &x[i], 4);
    } else {
      const int16_t v = static_cast<int16_t>(x[i]);
      std::memcpy(&b[2 * i], &v, 2);
    }
  }
  return b;
}

// Each path at its ratio, and streams that change it. Before the first
// step's frames: some input, then Reset (back to silence, the start and
// the dither's seed).
TEST(Hq32Stream, EveryBuildMatchesTheReferenceInEveryFormat) {
  std::vector<hq_test::Stream> streams = hq_test::ratio_changes();
  for (const auto &p : hq_test::paths()) streams.push_back({p.in, p.out, {{p.ratio_out, p.ratio_in}}});
  const Formats formats[] = {{RSMPL_HQ_S32, RSMPL_HQ_S32, false}, {RSMPL_HQ_S16, RSMPL_HQ_S32, true},
                             {RSMPL_HQ_S32, RSMPL_HQ_S16, false}, {RSMPL_HQ_S32, RSMPL_HQ_S16, true},
                             {RSMPL_HQ_S16, RSMPL_HQ_S16, true}};
  std::mt19937 rng(2032);
  int run = 0;
  for (const auto *set : test_support::runnable_sets()) {
    const test_support::UsingKernels use(set);
    for (const auto &c : streams)
      for (uint32_t ch : {1u, 2u, 3u, 8u}) {
        const Formats &f = formats[run++ % 5];
        auto st = hq32_test::make_state(c.in, c.out, ch);
        ASSERT_TRUE(st);
        ASSERT_EQ(RSMPL_Hq32SetDither(st.get(), f.dither), RSMPL_OK);
        Segment seg = hq_test::fresh(c.out, c.in);
        std::vector<int32_t> x;  // the stream at S32 scale
        uint32_t noise = rsmpl::kHq32NoiseSeed;
        for (const hq_test::Step &s : c.steps) {
          SCOPED_TRACE(::testing::Message() << set->name << " " << c.in << "->" << c.out << ", " << ch
                                            << " ch at " << s.ratio_out << "/" << s.ratio_in << ", formats "
                                            << f.in << "->" << f.out << (f.dither ? " dithered" : ""));
          const uint64_t fed = x.size() / ch;
          if (s.ratio_out != 0) {
            ASSERT_EQ(RSMPL_Hq32SetRatio(st.get(), s.ratio_out, s.ratio_in), RSMPL_OK);
            seg = hq_test::after_ratio(seg, fed, s.ratio_out, s.ratio_in);
          }
          if (fed == 0) {
            hq_test::feed(calls(st.get(), f, seg), bytes_of(make_input(f.in, 0, 300 * ch, rng), f.in), seg, 0, rng);
            ASSERT_EQ(RSMPL_Hq32Reset(st.get()), RSMPL_OK);
          }
          const uint64_t most = std::min<uint64_t>(1500, 150000 / st->taps), done = ready(seg, fed);
          const uint64_t frames = s.frames ? s.frames : std::max<uint64_t>(4 * st->taps, most * seg.M / seg.L);
          const auto slice = make_input(f.in, run % 3, frames * ch, rng);
          for (int32_t v : slice) x.push_back(f.in == RSMPL_HQ_S16 ? v * 65536 : v);
          const auto got = hq_test::feed(calls(st.get(), f, seg), bytes_of(slice, f.in), seg, fed, rng);
          const auto want = hq32_test::reference(*st, seg, x, done, ready(seg, fed + frames) - done);
          if (f.out == RSMPL_HQ_S32) {
            std::vector<int32_t> y(got.size() / 4);
            std::memcpy(y.data(), got.data(), got.size());
            ASSERT_TRUE(hq_test::same(y, want));
          } else {
            std::vector<int16_t> y(got.size() / 2);
            std::memcpy(y.data(), got.data(), got.size());
            ASSERT_TRUE(hq_test::same(y, hq32_test::narrow(want, f.dither, noise)));
          }
        }
      }
  }
}

}  // namespace
