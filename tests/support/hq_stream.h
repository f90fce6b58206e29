// SPDX-License-Identifier: MIT
// Feeding a high-quality resampler (16- or 32-bit) a stream in random
// splits, holding every call to the Process rules, and the streams the
// stream tests of both run: what the two share.
#ifndef SKELDA_TESTS_HQ_STREAM_H
#define SKELDA_TESTS_HQ_STREAM_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "tests/support/hq_reference.h"

namespace hq_test {

// Where two streams part, if they do.
template <class T>
::testing::AssertionResult same(const std::vector<T> &got, const std::vector<T> &want) {
  if (got == want) return ::testing::AssertionSuccess();
  const auto at = std::mismatch(got.begin(), got.end(), want.begin(), want.end()).first;
  return ::testing::AssertionFailure() << got.size() << " samples (want " << want.size()
                                       << "), the first differing is " << at - got.begin();
}

// One resampler state's calls on interleaved frames of in_frame and
// out_frame bytes.
struct Calls {
  std::function<RSMPL_Status(const void *in, uint32_t *in_frames, void *out, uint32_t *out_frames)>
      process;
  std::function<uint32_t(uint32_t in_frames)> outputs;  // OutputFrames
  std::function<uint32_t(uint32_t out_frames)> inputs;  // InputFrames
  size_t in_frame, out_frame;
  bool in_place;  // the rules allow in and out to be one buffer
};

// Feeds the frames `x` in calls offering random counts, with room from
// ceil(L / M), the least that lets every frame through, upwards, in place
// (one buffer as long as the larger) at random when allowed. A call takes
// everything when its room holds the predicted outputs, stops short only
// when the next frame's outputs would not fit, and writes nothing past its
// room; after it, the outputs of the segment `seg` are exactly those whose
// newest frame is in (ceil(N L / M) after N frames of a fresh stream), and
// the input asked for the predicted outputs is the least that makes them.
// `fed`: the stream's frames before x. Returns the output bytes.
inline std::vector<uint8_t> feed(const Calls &calls, const std::vector<uint8_t> &x,
                                 const Segment &seg, uint64_t fed, std::mt19937 &rng) {
  const size_t in_frame = calls.in_frame, out_frame = calls.out_frame;
  const size_t frames = x.size() / in_frame;
  const uint32_t least = static_cast<uint32_t>((seg.L + seg.M - 1) / seg.M);
  const uint64_t before = ready(seg, fed);
  const uint8_t guard = 0x5a;
  std::vector<uint8_t> y;
  for (size_t at = 0; at < frames;) {
    const uint32_t offered = static_cast<uint32_t>(
        std::min<size_t>(rng() % 2 ? 1 + rng() % 16 : 1 + rng() % 1500, frames - at));
    const uint32_t predicted = calls.outputs(offered), need = calls.inputs(predicted);
    const uint64_t done = ready(seg, fed + at);
    EXPECT_TRUE(predicted == ready(seg, fed + at + offered) - done &&
                (predicted == 0 ? need == 0
                                : ready(seg, fed + at + need) - done >= predicted &&
                                      ready(seg, fed + at + need - 1) - done < predicted))
        << predicted << " outputs for " << offered << " frames, " << need << " frames for them";
    const uint32_t pick = rng() % 3;
    const uint32_t space = pick == 0 ? least : pick == 1 ? predicted / 2 + least : predicted + rng() % 3;
    const bool shared = calls.in_place && rng() % 2;
    const size_t size = std::max(shared ? offered * in_frame : 0, space * out_frame);
    std::vector<uint8_t> src(x.begin() + at * in_frame, x.begin() + (at + offered) * in_frame);
    std::vector<uint8_t> buf(size + 4 * out_frame, guard);
    if (shared) std::copy(src.begin(), src.end(), buf.begin());
    uint32_t consumed = offered, written = space;
    EXPECT_EQ(calls.process(shared ? buf.data() : src.data(), &consumed, buf.data(), &written),
              RSMPL_OK);
    const uint32_t next = calls.outputs(1);
    at += consumed;
    y.insert(y.end(), buf.begin(), buf.begin() + written * out_frame);
    if (consumed > offered || written > space || (consumed == 0 && written == 0) ||
        (space >= predicted && (consumed != offered || written != predicted)) ||
        (consumed < offered && written + next <= space) ||
        std::any_of(buf.begin() + size, buf.end(), [&](uint8_t v) { return v != guard; }) ||
        y.size() / out_frame != ready(seg, fed + at) - before) {
      ADD_FAILURE() << "offered " << offered << " with room " << space << " (" << predicted
                    << " predicted): took " << consumed << ", wrote " << written
                    << ", next frame makes " << next << "; " << y.size() / out_frame
                    << " outputs after " << at << " frames";
      break;
    }
  }
  return y;
}

// A stream: its rates, then steps that each set a ratio (0: keep the
// rates') and run some frames (0: a few windows' worth).
struct Step {
  uint32_t ratio_out, ratio_in, frames;
};
struct Stream {
  uint32_t in, out;
  std::vector<Step> steps;
};

// The segment after a ratio change once `fed` frames are in: the next
// output keeps its input frame and takes the phase rounded down to the new
// ratio's grid.
inline Segment after_ratio(const Segment &seg, uint64_t fed, uint32_t ratio_out, uint32_t ratio_in) {
  const Segment next = at(seg, ready(seg, fed));
  const Segment ratio = fresh(ratio_out, ratio_in);
  return {ratio.L, ratio.M, next.e, next.r * ratio.L / seg.L};
}

// Streams that change the ratio: up and down, near 1, at the extremes, in
// and out of blended phases (L above the phases a state holds).
inline std::vector<Stream> ratio_changes() {
  return {{44100, 48000, {{0, 0, 1001}, {1115, 1024, 2999}, {1088, 1000, 1500}, {8, 7, 700}}},
          {48000, 44100, {{0, 0, 777}, {1024, 1115, 1234}, {441, 480, 999}, {7, 8, 600}}},
          {192000, 8000, {{0, 0, 5000}, {1001, 24000, 9000}, {1, 24, 6000}, {1, 25, 5000}}},
          {8000, 192000, {{0, 0, 100}, {23, 1, 150}, {24001, 1000, 90}, {25, 1, 80}}},
          {48000, 32000, {{0, 0, 900}, {5, 8, 1000}, {2, 3, 700}, {7, 10, 800}, {682, 1024, 600}}},
          {32000, 48000, {{0, 0, 500}, {1537, 1024, 700}, {3, 2, 600}, {1023, 682, 400}}}};
}

}  // namespace hq_test

#endif
