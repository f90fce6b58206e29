// SPDX-License-Identifier: MIT
// The plugin front end's arithmetic written out plainly: rounding as exact
// rational arithmetic, the pitch search as the interval of pitches it looks
// for, the linear converters in closed form (where output n falls on the
// input) rather than as the library's step-by-step loops, and the FIR paths
// as the plain kernel reference over the whole stream.
#ifndef SKELDA_TESTS_FRONTEND_REFERENCE_H
#define SKELDA_TESTS_FRONTEND_REFERENCE_H

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "tests/rsmpl/fir/reference.h"

namespace ref {

constexpr uint64_t kOne = 0x80000;  // 1.0 in Q19

// a / b rounded to nearest, halves up.
inline uint64_t nearest(uint64_t a, uint64_t b) { return a / b + (a % b >= b - a % b); }

inline uint32_t init_pitch(uint32_t in_rate, uint32_t out_rate) {
  return uint32_t(nearest(out_rate * kOne, in_rate));
}
// Products stay within 64 bits for up to 2^44 frames in and 2^32 out. A
// pitch of 0 (left by zero periods) counts every frame as none.
inline uint64_t input_frames(uint64_t frames, uint32_t pitch) {
  return frames == 0 || pitch == 0 ? 0 : nearest(frames * kOne, pitch);
}
inline uint64_t output_frames(uint64_t frames, uint32_t pitch) {
  return frames == 0 ? 0 : nearest(frames * pitch, kOne);
}

struct Pitch {
  int result;
  uint32_t pitch, shift;
};

// adjust_pitch for periods I -> O from a record holding `before`. Where the
// search would divide by zero or run on (a zero side, periods past 2^40
// frames, an estimate of 0 or past 32 bits) the call is refused.
inline Pitch adjust(uint64_t I, uint64_t O, Pitch before) {
  const uint64_t kLargest = uint64_t{1} << 40;
  if (I == 0 && O == 0) return {0, 0, before.shift};
  if (I == 0 || I > kLargest || O > kLargest) return {-EIO, before.pitch, before.shift};
  const uint64_t twice = O * kOne * 2;
  const uint64_t estimate = nearest(O * kOne, I);
  if (estimate == 0 || estimate > UINT32_MAX) return {-EIO, uint32_t(estimate), before.shift};
  // input_frames(O) is I exactly for the pitches in (2F/(2I+1), 2F/(2I-1)],
  // F = O in Q19. The search moves from the estimate to the nearest of them;
  // when there is none it stops at the first pitch on the far side of I. It
  // never leaves 1 .. 2^32 - 1.
  const uint64_t lo = twice / (2 * I + 1) + 1, hi = twice / (2 * I - 1);
  const uint64_t p = estimate < lo ? lo : estimate > hi ? hi : estimate;
  if (p == 0 || p > UINT32_MAX) return {-EIO, uint32_t(estimate), before.shift};
  if (lo > hi) return {-EIO, uint32_t(p), before.shift};
  // From 1.0 up, the smallest shift that leaves the pitch 16 bits.
  const uint32_t shift = p >= kOne ? 64 - __builtin_clzll(p) - 16 : before.shift;
  return {0, uint32_t(p), shift};
}

// (a wa + b wb) >> 16 with the sum wrapped to 32 bits; wb may be -1.
inline int16_t blend(int16_t a, int64_t wa, int16_t b, int64_t wb) {
  return int16_t(int32_t(uint32_t(a * wa + b * wb)) >> 16);
}

// Up: output n lies n / pitch input frames after the carried sample, between
// inputs i - 1 and i (i = n 1.0 / pitch) at fraction (n 1.0 mod pitch) /
// pitch. Before input 0 stands the carried sample, after the last one the
// last is held. Takes pitch > 1.0; the weight's shift counts modulo 32 and a
// zero divisor gives weight 0.
inline std::vector<int16_t> expand(const std::vector<int16_t> &x, int16_t &carried, uint32_t pitch,
                                   uint32_t shift, unsigned frames) {
  const auto at = [&](int64_t i) {
    return i < 0 || x.empty() ? carried : x[std::min<int64_t>(i, int64_t(x.size()) - 1)];
  };
  const uint32_t divisor = pitch >> (shift & 31);
  std::vector<int16_t> y(frames);
  for (uint64_t n = 0; n < frames; ++n) {
    const int64_t i = int64_t(n * kOne / pitch);
    const uint32_t scaled = uint32_t((n * kOne % pitch) << ((16 - shift) & 31));
    const int64_t w = divisor == 0 ? 0 : scaled / divisor;
    y[n] = blend(at(i), w, at(i - 1), 0x10000 - w);
  }
  if (frames > 0) carried = at(int64_t((frames - 1) * kOne / pitch));
  return y;
}

// Down: output j is taken at input position j 1.0 / pitch, between the first
// input n at or after it and the one before (0 before input 0). At most
// `room` outputs; *overflow when more were due. Takes 0 < pitch <= 1.0.
inline std::vector<int16_t> shrink(const std::vector<int16_t> &x, uint32_t pitch, unsigned room,
                                   bool *overflow) {
  const uint64_t due = x.empty() ? 0 : (x.size() - 1) * pitch / kOne + 1;
  const uint32_t divisor = pitch >> 3;
  std::vector<int16_t> y;
  for (uint64_t j = 0; j < std::min<uint64_t>(due, room); ++j) {
    const uint64_t n = (j * kOne + pitch - 1) / pitch;
    const int64_t w = divisor == 0 ? 0 : ((n * pitch - j * kOne) << 13) / divisor;
    y.push_back(blend(n == 0 ? 0 : x[n - 1], w, x[n], 0x10000 - w));
  }
  *overflow = due > room;
  return y;
}

// One channel through the stage of factor 2, 3 or 6 from silence: what any
// cut of the stream into periods and chunks must give. Down converts whole
// groups only.
inline std::vector<int16_t> fir_stage(const std::vector<int16_t> &x, unsigned factor, bool up) {
  using namespace rsmpl;
  const FirKernelId id = factor == 2   ? (up ? kFirUp2 : kFirDown2)
                         : factor == 3 ? (up ? kFirUp3 : kFirDown3)
                                       : (up ? kFirUp6 : kFirDown6);
  return fir_test::stage_reference(fir_test::kernel_specs()[id], x);
}

// Channel c of interleaved frames.
inline std::vector<int16_t> deinterleave(const std::vector<int16_t> &frames, unsigned channels,
                                         unsigned c) {
  std::vector<int16_t> x;
  for (size_t i = c; i < frames.size(); i += channels) x.push_back(frames[i]);
  return x;
}

}  // namespace ref

#endif
