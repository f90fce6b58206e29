// SPDX-License-Identifier: MIT
// The high-quality resampler's streams against the plain integer reference
// (support/hq_reference.h), on every kernel build, on ratios that take each
// path, with one, two, three and eight channels (so that the two-channel and
// the odd-channel kernel calls both run). Input goes in any split of calls
// and room, in place when the ratio allows, and every call is held to
// RSMPL_HqProcess's rules: the one comparison shows split invariance,
// in-place runs and the exact frame counts too.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support/hq_reference.h"
#include "tests/support/kernel_sets.h"

namespace {

using hq_test::ready;
using hq_test::Segment;

// Where two streams part, if they do.
::testing::AssertionResult same(const std::vector<int16_t> &got, const std::vector<int16_t> &want) {
  if (got == want) return ::testing::AssertionSuccess();
  const auto at = std::mismatch(got.begin(), got.end(), want.begin(), want.end()).first;
  return ::testing::AssertionFailure() << got.size() << " samples (want " << want.size()
                                       << "), the first differing is " << at - got.begin();
}

// Feeds the interleaved frames `x` in calls offering random counts, with
// room from ceil(L / M), the least that lets every frame through, upwards,
// in place (one buffer as long as the larger) at random when L <= M. A call
// takes everything when its room holds the predicted outputs, stops short
// only when the next frame's outputs would not fit, and writes nothing past
// its room; after it, the outputs of the segment `seg` are exactly those
// whose newest frame is in (ceil(N L / M) after N frames of a fresh
// stream), and the input asked for the predicted outputs is the least that
// makes them. `fed`: the stream's frames before x.
std::vector<int16_t> feed(RSMPL_HqState *st, const std::vector<int16_t> &x, const Segment &seg, uint64_t fed,
                          std::mt19937 &rng) {
  const uint32_t ch = st->channels, least = static_cast<uint32_t>((seg.L + seg.M - 1) / seg.M);
  const uint64_t before = ready(seg, fed);
  const int16_t guard = 0x5a5a;
  std::vector<int16_t> y;
  for (size_t at = 0; at < x.size() / ch;) {
    const uint32_t offered =
        static_cast<uint32_t>(std::min<size_t>(rng() % 2 ? 1 + rng() % 16 : 1 + rng() % 1500, x.size() / ch - at));
    uint32_t predicted = 0, need = 0, next = 0;
    RSMPL_HqOutputFrames(st, offered, &predicted);
    RSMPL_HqInputFrames(st, predicted, &need);
    const uint64_t done = ready(seg, fed + at);
    EXPECT_TRUE(predicted == ready(seg, fed + at + offered) - done &&
                (predicted == 0 ? need == 0 : ready(seg, fed + at + need) - done >= predicted &&
                                                  ready(seg, fed + at + need - 1) - done < predicted))
        << predicted << " outputs for " << offered << " frames, " << need << " frames for them";
    const uint32_t pick = rng() % 3;
    const uint32_t space = pick == 0 ? least : pick == 1 ? predicted / 2 + least : predicted + rng() % 3;
    const bool shared = seg.L <= seg.M && rng() % 2;
    const size_t size = std::max(shared ? offered : 0, space);
    std::vector<int16_t> src(x.begin() + at * ch, x.begin() + (at + offered) * ch), buf((size + 4) * ch, guard);
    if (shared) std::copy(src.begin(), src.end(), buf.begin());
    uint32_t consumed = offered, written = space;
    EXPECT_EQ(RSMPL_HqProcess(st, shared ? buf.data() : src.data(), &consumed, buf.data(), &written), RSMPL_OK);
    RSMPL_HqOutputFrames(st, 1, &next);
    at += consumed;
    y.insert(y.end(), buf.begin(), buf.begin() + written * ch);
    if (consumed > offered || written > space || (consumed == 0 && written == 0) ||
        (space >= predicted && (consumed != offered || written != predicted)) ||
        (consumed < offered && written + next <= space) ||
        std::any_of(buf.begin() + size * ch, buf.end(), [&](int16_t v) { return v != guard; }) ||
        y.size() / ch != ready(seg, fed + at) - before) {
      ADD_FAILURE() << "offered " << offered << " with room " << space << " (" << predicted << " predicted): took "
                    << consumed << ", wrote " << written << ", next frame makes " << next << "; " << y.size() / ch
                    << " outputs after " << at << " frames";
      break;
    }
  }
  return y;
}

// A stream: its rates, then steps that each set a ratio (0: keep the
// rates') and run some frames (0: a few windows' worth, up to 1500 outputs).
// The next output keeps its input frame and takes the phase rounded down to
// the new ratio's grid.
struct Step {
  uint32_t ratio_out, ratio_in, frames;
};
struct Stream {
  uint32_t in, out;
  std::vector<Step> steps;
};

// Each path at its ratio, and streams that change it: in and out of the
// small ratios' designs, M changing on the way, and between blended and
// unblended phases. Before the first step's frames: the count queries over
// an hour (capped at 2^32 - 1), some input and Reset (back to silence and
// the start).
TEST(HqStream, EveryBuildMatchesTheReferenceOverAnySplit) {
  std::vector<Stream> streams = {
      {44100, 48000, {{0, 0, 1001}, {1115, 1024, 2999}, {1088, 1000, 1500}, {8, 7, 700}}},
      {48000, 44100, {{0, 0, 777}, {1024, 1115, 1234}, {441, 480, 999}, {7, 8, 600}}},
      {192000, 8000, {{0, 0, 5000}, {1001, 24000, 9000}, {1, 24, 6000}, {1, 25, 5000}}},
      {8000, 192000, {{0, 0, 100}, {23, 1, 150}, {24001, 1000, 90}, {25, 1, 80}}},
      {48000, 32000, {{0, 0, 900}, {5, 8, 1000}, {2, 3, 700}, {7, 10, 800}, {682, 1024, 600}}},
      {32000, 48000, {{0, 0, 500}, {1537, 1024, 700}, {3, 2, 600}, {1023, 682, 400}}}};
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
        for (const Step &s : c.steps) {
          SCOPED_TRACE(::testing::Message() << set->name << " " << c.in << "->" << c.out << ", "
                                            << ch << " ch at " << s.ratio_out << "/" << s.ratio_in);
          const uint64_t fed = x.size() / ch;
          if (s.ratio_out != 0) {
            ASSERT_EQ(RSMPL_HqSetRatio(st.get(), s.ratio_out, s.ratio_in), RSMPL_OK);
            const Segment next = hq_test::at(seg, ready(seg, fed));
            const Segment ratio = hq_test::fresh(s.ratio_out, s.ratio_in);
            seg = {ratio.L, ratio.M, next.e, next.r * ratio.L / seg.L};
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
          ASSERT_TRUE(same(got, hq_test::reference(*st, seg, x, done, count)));
        }
      }
  }
}

}  // namespace
