// The high-quality resampler's streams against the plain integer reference
// (every kernel build), and the stream rules of rsmpl_hq.h: splitting the
// input or the room never changes the samples, in-place runs equal
// out-of-place ones, frame counts follow the exact ratio, ratio changes
// carry the position over, Reset goes back to the start, and outputs sit
// where the stated delay puts them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "rsmpl/fir_reference.h"
#include "support/hq_reference.h"

namespace {

using hq_test::make_state;
using hq_test::Segment;

// Rates, and the exact ratio set after Init (0: the rates' own).
struct RateCase {
  uint32_t in, out, ratio_out = 0, ratio_in = 0;
};

std::string name(const RateCase &c) {
  std::string s = std::to_string(c.in) + "->" + std::to_string(c.out);
  if (c.ratio_out != 0) s += " at " + std::to_string(c.ratio_out) + "/" + std::to_string(c.ratio_in);
  return s;
}

hq_test::StatePtr make(const RateCase &c, uint32_t channels) {
  auto st = make_state(c.in, c.out, channels);
  if (st && c.ratio_out != 0 && RSMPL_HqSetRatio(st.get(), c.ratio_out, c.ratio_in) != RSMPL_OK)
    st.reset();
  return st;
}

Segment segment_of(const RateCase &c) {
  return c.ratio_out != 0 ? hq_test::fresh(c.ratio_out, c.ratio_in) : hq_test::fresh(c.out, c.in);
}

uint32_t ceil_ratio(const Segment &s) { return static_cast<uint32_t>((s.L + s.M - 1) / s.M); }

enum class Fill { kRandom, kAlternating, kSquare };

// kAlternating: +32767 and -32768 frame by frame (in opposite order on odd
// channels); kSquare: full-scale square waves of a random period per channel.
std::vector<int16_t> make_input(Fill fill, size_t frames, uint32_t ch, std::mt19937 &rng) {
  std::vector<int16_t> x(frames * ch);
  std::uniform_int_distribution<int> any(-32768, 32767), half(1, 40);
  std::vector<int> period(ch);
  for (auto &p : period) p = half(rng);
  for (size_t i = 0; i < frames; ++i)
    for (uint32_t c = 0; c < ch; ++c) {
      bool high = (i + c) % 2 == 0;
      if (fill == Fill::kSquare) high = (i / period[c]) % 2 == 0;
      x[i * ch + c] = fill == Fill::kRandom ? static_cast<int16_t>(any(rng)) : high ? 32767 : -32768;
    }
  return x;
}

::testing::AssertionResult same(const std::vector<int16_t> &got, const std::vector<int16_t> &want) {
  if (got.size() != want.size())
    return ::testing::AssertionFailure() << got.size() << " samples, want " << want.size();
  for (size_t i = 0; i < got.size(); ++i)
    if (got[i] != want[i])
      return ::testing::AssertionFailure()
             << "sample " << i << " is " << got[i] << ", want " << want[i];
  return ::testing::AssertionSuccess();
}

// Feeds `x` in calls offering chunk() frames and room(prediction) frames of
// room (in a buffer of exactly that size), re-offering what a call leaves,
// and holds each call to RSMPL_HqProcess's rules: with room for the
// predicted outputs it takes all and writes them; otherwise it stops only
// when the next frame's outputs would not fit. With `seg` (a fresh stream),
// the outputs so far are also checked against ceil(frames * L / M).
template <class Chunk, class Room>
std::vector<int16_t> feed(RSMPL_HqState *st, const std::vector<int16_t> &x, Chunk chunk,
                          Room room, const Segment *seg = nullptr) {
  const uint32_t ch = st->channels;
  const size_t frames = x.size() / ch;
  std::vector<int16_t> y;
  size_t at = 0;
  uint64_t total_in = 0, total_out = 0;
  while (at < frames) {
    const uint32_t offered = static_cast<uint32_t>(std::min<size_t>(chunk(), frames - at));
    uint32_t predicted = 0;
    EXPECT_EQ(RSMPL_HqOutputFrames(st, offered, &predicted), RSMPL_OK);
    const uint32_t space = room(predicted);
    std::vector<int16_t> out(static_cast<size_t>(space) * ch);
    uint32_t consumed = offered, written = space;
    if (RSMPL_HqProcess(st, x.data() + at * ch, &consumed, out.data(), &written) != RSMPL_OK) {
      ADD_FAILURE() << "Process failed";
      break;
    }
    uint32_t next = 0;
    RSMPL_HqOutputFrames(st, 1, &next);
    if (consumed > offered || written > space ||
        (space >= predicted && (consumed != offered || written != predicted)) ||
        (consumed < offered && written + next <= space) || (consumed == 0 && written == 0)) {
      ADD_FAILURE() << "offered " << offered << " with room " << space << " (" << predicted
                    << " predicted): took " << consumed << ", wrote " << written
                    << ", next frame makes " << next;
      break;
    }
    at += consumed;
    total_in += consumed;
    total_out += written;
    if (seg && total_out != hq_test::ready(*seg, total_in)) {
      ADD_FAILURE() << total_out << " outputs after " << total_in << " frames";
      break;
    }
    y.insert(y.end(), out.begin(), out.begin() + static_cast<size_t>(written) * ch);
  }
  return y;
}

// Makes the library run on one kernel build until the end of the scope.
struct UseKernels {
  explicit UseKernels(const rsmpl::FirKernelSet *set) { rsmpl::use_fir_kernels(set); }
  ~UseKernels() { rsmpl::use_fir_kernels(nullptr); }
};

const RateCase kReferenceCases[] = {
    {44100, 48000}, {48000, 44100}, {32000, 48000}, {22050, 48000},
    {96000, 44100}, {48000, 16000}, {8000, 192000}, {192000, 8000},
    {44100, 44100}, {8000, 8001},   {191999, 8000},
    // Periods alsa-lib may choose: 1115 and 1088 exceed the phases held.
    {44100, 48000, 1115, 1024},     {44100, 48000, 1088, 1000},
    {44100, 48000, 480, 441},       {48000, 44100, 1024, 1115},
};

TEST(HqStream, EveryBuildMatchesTheIntegerReference) {
  std::mt19937 rng(2024);
  for (const auto *set : fir_test::runnable_sets()) {
    UseKernels use(set);
    for (const auto &c : kReferenceCases) {
      for (uint32_t ch : {1u, 2u, 8u}) {
        for (Fill fill : {Fill::kRandom, Fill::kAlternating, Fill::kSquare}) {
          auto st = make(c, ch);
          ASSERT_TRUE(st) << name(c);
          const Segment seg = segment_of(c);
          // Up to 1500 outputs (fewer for long filters: the same work for
          // each), and never less than a few windows of input.
          const uint64_t outputs = std::min<uint64_t>(1500, 150000 / st->taps);
          const size_t frames = std::max<uint64_t>(4 * st->taps, outputs * seg.M / seg.L);
          const auto x = make_input(fill, frames, ch, rng);
          std::uniform_int_distribution<uint32_t> chunk(1, 700);
          const auto got =
              feed(st.get(), x, [&] { return chunk(rng); }, [](uint32_t p) { return p; });
          const auto want = hq_test::reference(*st, seg, x, 0, hq_test::ready(seg, frames));
          ASSERT_TRUE(same(got, want))
              << set->name << " " << name(c) << " channels " << ch << " fill " << int(fill);
        }
      }
    }
  }
}

// Each step sets a ratio (0: keep the rates') and runs some input frames.
struct Step {
  uint32_t ratio_out, ratio_in, frames;
};
struct Switches {
  uint32_t in, out, channels;
  std::vector<Step> steps;
};

// After a ratio change the next output keeps its input frame e and takes
// phase floor(r L' / L) of the new ratio L' / M'.
TEST(HqStream, SetRatioCarriesThePositionOntoTheNewRatio) {
  const Switches cases[] = {
      {44100, 48000, 2, {{0, 0, 1001}, {1115, 1024, 2999}, {1088, 1000, 1500}, {480, 441, 700}, {11, 10, 500}}},
      {48000, 44100, 1, {{0, 0, 777}, {1024, 1115, 1234}, {441, 480, 999}, {147, 151, 500}, {9, 10, 400}}},
      {96000, 44100, 3, {{0, 0, 1500}, {15, 32, 2500}, {147, 320, 600}, {9, 20, 900}}},
      {192000, 8000, 1, {{0, 0, 5000}, {1001, 24000, 9000}, {1, 24, 6000}, {1, 25, 5000}}},
      {8000, 192000, 2, {{0, 0, 100}, {23, 1, 150}, {24001, 1000, 90}, {25, 1, 80}}},
      // In and out of the small ratios' own designs, M changing on the way.
      {48000, 32000, 3, {{0, 0, 900}, {5, 8, 1000}, {7, 10, 800}, {2, 3, 700}, {682, 1024, 600}}},
      {32000, 48000, 1, {{0, 0, 500}, {1537, 1024, 700}, {3, 2, 600}, {1023, 682, 400}}},
  };
  std::mt19937 rng(7);
  for (const auto &c : cases) {
    auto st = make_state(c.in, c.out, c.channels);
    ASSERT_TRUE(st);
    size_t total = 0;
    for (const Step &s : c.steps) total += s.frames;
    const auto x = make_input(Fill::kRandom, total, c.channels, rng);
    Segment seg = hq_test::fresh(c.out, c.in);
    size_t fed = 0;
    for (const Step &s : c.steps) {
      if (s.ratio_out != 0) {
        ASSERT_EQ(RSMPL_HqSetRatio(st.get(), s.ratio_out, s.ratio_in), RSMPL_OK);
        const Segment next = hq_test::at(seg, hq_test::ready(seg, fed));
        const Segment ratio = hq_test::fresh(s.ratio_out, s.ratio_in);
        seg = {ratio.L, ratio.M, next.e, next.r * ratio.L / seg.L};
      }
      const std::vector<int16_t> slice(x.begin() + fed * c.channels,
                                       x.begin() + (fed + s.frames) * c.channels);
      std::uniform_int_distribution<uint32_t> chunk(1, 300);
      const auto got =
          feed(st.get(), slice, [&] { return chunk(rng); }, [](uint32_t p) { return p; });
      const uint64_t done = hq_test::ready(seg, fed);
      fed += s.frames;
      const auto want = hq_test::reference(*st, seg, x, done, hq_test::ready(seg, fed) - done);
      ASSERT_TRUE(same(got, want)) << c.in << "->" << c.out << " at " << seg.L << "/" << seg.M;
    }
  }
}

// One call for the whole input against blocks of every size from 1 to 64
// and random ones, with room from ceil(ratio), the least that lets every
// frame through, upwards.
TEST(HqStream, AnySplitOfInputAndRoomGivesTheSameOutput) {
  const struct {
    RateCase rates;
    uint32_t channels, frames;
  } cases[] = {
      {{44100, 48000}, 2, 1500},          {{48000, 44100}, 1, 1500},
      {{8000, 192000}, 1, 300},           {{192000, 8000}, 2, 6000},
      {{44100, 48000, 1115, 1024}, 3, 1500}, {{22050, 48000}, 8, 800},
  };
  std::mt19937 rng(11);
  for (const auto &c : cases) {
    const Segment seg = segment_of(c.rates);
    const uint32_t least = ceil_ratio(seg);
    const auto x = make_input(Fill::kRandom, c.frames, c.channels, rng);
    auto st = make(c.rates, c.channels);
    const auto whole =
        feed(st.get(), x, [&] { return c.frames; }, [](uint32_t p) { return p; }, &seg);
    ASSERT_EQ(whole.size(), hq_test::ready(seg, c.frames) * c.channels);
    for (uint32_t block = 1; block <= 64 + 20; ++block) {
      std::uniform_int_distribution<uint32_t> any(1, 2 * c.frames / 3), extra(0, 3 * least);
      const bool random = block > 64;
      auto split = make(c.rates, c.channels);
      const auto got = feed(
          split.get(), x, [&] { return random ? any(rng) : block; },
          [&](uint32_t) { return least + (random ? extra(rng) : block % 3); }, &seg);
      ASSERT_TRUE(same(got, whole)) << name(c.rates) << " block " << block;
    }
  }
}

TEST(HqStream, InPlaceEqualsOutOfPlaceWhenTheRatioIsAtMostOne) {
  const struct {
    RateCase rates;
    uint32_t channels;
  } cases[] = {
      {{48000, 44100}, 2}, {{48000, 16000}, 1},     {{44100, 44100}, 8},
      {{192000, 8000}, 2}, {{47000, 48000, 1, 1}, 3}, {{48000, 44100, 1024, 1115}, 1},
  };
  std::mt19937 rng(12);
  for (const auto &c : cases) {
    const auto x = make_input(Fill::kRandom, 5000, c.channels, rng);
    auto apart = make(c.rates, c.channels), shared = make(c.rates, c.channels);
    std::vector<int16_t> want, got;
    std::uniform_int_distribution<uint32_t> chunk(1, 900);
    for (size_t at = 0; at < 5000;) {
      const uint32_t n = std::min<uint32_t>(chunk(rng), 5000 - at);
      std::vector<int16_t> buf(x.begin() + at * c.channels, x.begin() + (at + n) * c.channels);
      std::vector<int16_t> out(buf.size());
      uint32_t in_a = n, out_a = n, in_s = n, out_s = n;
      ASSERT_EQ(RSMPL_HqProcess(apart.get(), buf.data(), &in_a, out.data(), &out_a), RSMPL_OK);
      ASSERT_EQ(RSMPL_HqProcess(shared.get(), buf.data(), &in_s, buf.data(), &out_s), RSMPL_OK);
      ASSERT_EQ(in_a, n);
      ASSERT_EQ(in_s, n);
      want.insert(want.end(), out.begin(), out.begin() + out_a * c.channels);
      got.insert(got.end(), buf.begin(), buf.begin() + out_s * c.channels);
      at += n;
    }
    ASSERT_TRUE(same(got, want)) << name(c.rates);
  }
}

// The counts over an hour of audio by the calls' arithmetic, then a few
// hundred thousand frames run in random calls with room short or ample.
TEST(HqStream, FrameCountsFollowTheExactRatio) {
  const RateCase cases[] = {
      {44100, 48000}, {48000, 44100},           {8000, 192000},  {192000, 8000},
      {192000, 44100}, {44100, 48000, 1115, 1024}, {191999, 8000}, {44100, 44100},
  };
  std::mt19937 rng(13);
  for (const auto &c : cases) {
    const Segment seg = segment_of(c);
    auto st = make(c, 1);
    const uint32_t hour_in = 3600 * c.in, hour_out = 3600 * c.out;
    uint32_t outputs = 0, inputs = 0;
    ASSERT_EQ(RSMPL_HqOutputFrames(st.get(), hour_in, &outputs), RSMPL_OK);
    EXPECT_EQ(outputs, (uint64_t{hour_in} * seg.L + seg.M - 1) / seg.M) << name(c);
    ASSERT_EQ(RSMPL_HqInputFrames(st.get(), hour_out, &inputs), RSMPL_OK);
    EXPECT_EQ(inputs, (uint64_t{hour_out} - 1) * seg.M / seg.L + 1) << name(c);

    std::uniform_int_distribution<uint32_t> chunk(1, 5000), coin(0, 3);
    const auto x = make_input(Fill::kRandom, 50000, 1, rng);
    const auto y = feed(
        st.get(), x, [&] { return chunk(rng); },
        [&](uint32_t p) { return coin(rng) == 0 ? p / 2 + ceil_ratio(seg) : p + coin(rng); },
        &seg);
    EXPECT_EQ(y.size(), hq_test::ready(seg, 50000)) << name(c);
    // Mid-stream: the input for K more outputs is the least that makes them
    // ready, and a call given it and room for exactly those takes it all.
    uint64_t fed = 50000;
    for (uint32_t k : {1u, 2u, 3u, 7u, 100u, 4096u, 100000u}) {
      ASSERT_EQ(RSMPL_HqInputFrames(st.get(), k, &inputs), RSMPL_OK);
      const uint64_t before = hq_test::ready(seg, fed);
      EXPECT_GE(hq_test::ready(seg, fed + inputs) - before, k) << name(c) << " k=" << k;
      if (inputs > 0)
        EXPECT_LT(hq_test::ready(seg, fed + inputs - 1) - before, k) << name(c) << " k=" << k;
      if (hq_test::ready(seg, fed + inputs) - before == k && inputs <= 5000) {
        const auto more = make_input(Fill::kRandom, inputs, 1, rng);
        std::vector<int16_t> out(k);
        uint32_t in_n = inputs, out_n = k;
        ASSERT_EQ(RSMPL_HqProcess(st.get(), more.data(), &in_n, out.data(), &out_n), RSMPL_OK);
        EXPECT_EQ(in_n, inputs) << name(c) << " k=" << k;
        EXPECT_EQ(out_n, k) << name(c) << " k=" << k;
        fed += in_n;
      }
    }
  }
}

// Whole periods of an exact ratio give exactly the periods' output.
TEST(HqStream, WholePeriodsGiveWholePeriods) {
  const struct {
    uint32_t in, out, in_period, out_period;
  } cases[] = {{44100, 48000, 1024, 1115}, {48000, 44100, 1115, 1024}, {44100, 48000, 441, 480},
               {48000, 16000, 1024, 341}, {8000, 192000, 40, 960}};
  std::mt19937 rng(14);
  for (const auto &c : cases) {
    auto st = make_state(c.in, c.out, 2);
    ASSERT_EQ(RSMPL_HqSetRatio(st.get(), c.out_period, c.in_period), RSMPL_OK);
    const auto x = make_input(Fill::kRandom, c.in_period, 2, rng);
    std::vector<int16_t> out(2 * c.out_period);
    for (int period = 0; period < 300; ++period) {
      uint32_t in_n = c.in_period, out_n = c.out_period;
      ASSERT_EQ(RSMPL_HqProcess(st.get(), x.data(), &in_n, out.data(), &out_n), RSMPL_OK);
      ASSERT_EQ(in_n, c.in_period);
      ASSERT_EQ(out_n, c.out_period) << c.in << "->" << c.out << " period " << period;
    }
  }
}

TEST(HqStream, ResetGoesBackToTheStartKeepingRatioAndFilter) {
  const RateCase cases[] = {{44100, 48000, 1115, 1024}, {96000, 44100}, {8000, 192000, 23, 1}};
  std::mt19937 rng(15);
  for (const auto &c : cases) {
    const auto junk = make_input(Fill::kRandom, 777, 2, rng);
    const auto x = make_input(Fill::kRandom, 3000, 2, rng);
    auto used = make(c, 2), fresh = make(c, 2);
    auto all = [](uint32_t p) { return p; };
    feed(used.get(), junk, [] { return 500; }, all);
    ASSERT_EQ(RSMPL_HqReset(used.get()), RSMPL_OK);
    const auto got = feed(used.get(), x, [] { return 333; }, all);
    EXPECT_TRUE(same(got, feed(fresh.get(), x, [] { return 333; }, all))) << name(c);
  }
}

// A tone well inside the passband comes out as the same tone taken at input
// position n / ratio - delay, within a few LSB; the info describes the
// filter, the exact ratio and that delay.
TEST(HqStream, OutputsSitWhereTheDelaySays) {
  const RateCase cases[] = {
      {44100, 48000}, {48000, 44100}, {8000, 192000}, {192000, 8000},
      {96000, 44100}, {44100, 44100}, {44100, 48000, 1115, 1024}, {22050, 16000},
  };
  for (const auto &c : cases) {
    auto st = make(c, 1);
    RSMPL_HqInfo info{};
    ASSERT_EQ(RSMPL_HqGetInfo(st.get(), &info), RSMPL_OK);
    const Segment seg = segment_of(c);
    EXPECT_EQ(info.inRate, c.in);
    EXPECT_EQ(info.outRate, c.out);
    EXPECT_EQ(info.channels, 1u);
    EXPECT_EQ(info.ratioOut, seg.L) << name(c);
    EXPECT_EQ(info.ratioIn, seg.M) << name(c);
    EXPECT_EQ(info.interpolated, info.ratioOut > info.phases ? 1u : 0u) << name(c);
    if (!info.interpolated) EXPECT_EQ(info.phases, info.ratioOut) << name(c);
    EXPECT_EQ(info.delayMicroseconds,
              std::lround(info.delayFrames * 1e6 / c.in)) << name(c);

    const double hz = 0.3 * std::min(c.in, c.out), amplitude = 20000;
    const size_t frames = std::max<uint64_t>(8 * info.taps, 4000 * seg.M / seg.L);
    std::vector<int16_t> x(frames);
    for (size_t i = 0; i < frames; ++i)
      x[i] = static_cast<int16_t>(std::lround(amplitude * std::sin(2 * M_PI * hz * i / c.in)));
    const auto y = feed(st.get(), x, [&] { return 1000; }, [](uint32_t p) { return p; });
    double worst = 0;
    for (size_t n = 0; n < y.size(); ++n) {
      const double t = static_cast<double>(n) * seg.M / seg.L - info.delayFrames;
      if (t < info.taps) continue;  // the tone's start still in the window
      const double ideal = amplitude * std::sin(2 * M_PI * hz * t / c.in);
      worst = std::max(worst, std::fabs(y[n] - ideal));
    }
    EXPECT_LT(worst, 3.0) << name(c);
  }
}

}  // namespace
