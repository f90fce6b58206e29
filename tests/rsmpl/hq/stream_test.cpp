// SPDX-License-Identifier: MIT
// The high-quality resampler's streams against the plain integer reference
// (tests/support/hq_reference.h), on every kernel build, on ratios that take
// each path, with one, two, three and eight channels (so that the two-channel and
// the odd-channel kernel calls both run). Input goes in any split of calls
// and room, in place when the ratio allows, and every call is held to
// RSMPL_HqProcess's rules: the one comparison shows split invariance,
// in-place runs and the exact frame counts too.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "tests/support/hq_reference.h"
#include "tests/support/hq_stream.h"
#include "tests/support/kernel_sets.h"

namespace {

using hq_test::ready;
using hq_test::Segment;

// The 16-bit resampler's calls on `st`, for hq_test::feed.
hq_test::Calls calls(RSMPL_HqState *st, const Segment &seg) {
  const size_t frame = sizeof(int16_t) * st->channels;
  return {[st](const void *in, uint32_t *n, void *out, uint32_t *m) {
            return RSMPL_HqProcess(st, static_cast<const int16_t *>(in), n, static_cast<int16_t *>(out), m);
          },
          [st](uint32_t n) {
            uint32_t m = 0;
            RSMPL_HqOutputFrames(st, n, &m);
            return m;
          },
          [st](uint32_t m) {
            uint32_t n = 0;
            RSMPL_HqInputFrames(st, m, &n);
            return n;
          },
          frame, frame, seg.L <= seg.M};
}

std::vector<int16_t> feed(RSMPL_HqState *st, const std::vector<int16_t> &x, const Segment &seg,
                          uint64_t fed, std::mt19937 &rng) {
  const auto *bytes = reinterpret_cast<const uint8_t *>(x.data());
  const auto y = hq_test::feed(calls(st, seg), std::vector<uint8_t>(bytes, bytes + 2 * x.size()), seg, fed, rng);
  std::vector<int16_t> out(y.size() / 2);
  std::memcpy(out.data(), y.data(), y.size());
  return out;
}

// Each path at its ratio, and streams that change it: in and out of the
// small ratios' designs, M changing on the way, and between blended and
// unblended phases. Before the first step's frames: the count queries over
// an hour (capped at 2^32 - 1), some input and Reset (back to silence and
// the start).
TEST(HqStream, EveryBuildMatchesTheReferenceOverAnySplit) {
  std::vector<hq_test::Stream> streams = hq_test::ratio_changes();
  for (const auto &p : hq_test::paths())
    streams.push_back({p.in, p.out, {{p.ratio_out, p.ratio_in}}});
  std::mt19937 rng(2024);
  int run = 0;
  for (const auto *set : test_support::runnable_sets()) {
    const test_support::UsingKernels use(set);
    for (const auto &c : streams)
      for (uint32_t ch : {1u, 2u, 3u, 8u}) {
        auto st = hq_test::make_state(c.in, c.out, ch);
        ASSERT_TRUE(st);
        Segment seg = hq_test::fresh(c.out, c.in);
        std::vector<int16_t> x;
        for (const hq_test::Step &s : c.steps) {
          SCOPED_TRACE(::testing::Message() << set->name << " " << c.in << "->" << c.out << ", "
                                            << ch << " ch at " << s.ratio_out << "/" << s.ratio_in);
          const uint64_t fed = x.size() / ch;
          if (s.ratio_out != 0) {
            ASSERT_EQ(RSMPL_HqSetRatio(st.get(), s.ratio_out, s.ratio_in), RSMPL_OK);
            seg = hq_test::after_ratio(seg, fed, s.ratio_out, s.ratio_in);
          }
          if (fed == 0) {
            for (uint32_t n : {3600 * c.in, UINT32_MAX}) {
              uint32_t outs = 0, ins = 0;
              RSMPL_HqOutputFrames(st.get(), n, &outs);
              RSMPL_HqInputFrames(st.get(), n, &ins);
              EXPECT_EQ(outs, std::min<uint64_t>(ready(seg, n), UINT32_MAX)) << n;
              EXPECT_EQ(ins, std::min<uint64_t>((n - 1ull) * seg.M / seg.L + 1, UINT32_MAX)) << n;
            }
            feed(st.get(), hq_test::make_input(hq_test::kRandom, 300 * ch, rng), seg, 0, rng);
            ASSERT_EQ(RSMPL_HqReset(st.get()), RSMPL_OK);
          }
          const uint64_t most = std::min<uint64_t>(1500, 150000 / st->taps), done = ready(seg, fed);
          const uint64_t frames =
              s.frames ? s.frames : std::max<uint64_t>(4 * st->taps, most * seg.M / seg.L);
          const auto slice = hq_test::make_input(hq_test::Fill(run++ % 3), frames * ch, rng);
          x.insert(x.end(), slice.begin(), slice.end());
          const auto got = feed(st.get(), slice, seg, fed, rng);
          const uint64_t count = ready(seg, fed + frames) - done;
          ASSERT_TRUE(hq_test::same(got, hq_test::reference(*st, seg, x, done, count)));
        }
      }
  }
}

}  // namespace
