// SPDX-License-Identifier: MIT
// The high-quality resampler's stream arithmetic written the plain way: each
// output's input position and phase straight from its index with 64-bit
// multiplies and divisions (no running sums), its inner products over the
// state's coefficient table in int64, and the blend, rounding and
// saturation as hq/state.h describes them. Also what the tests holding the
// library to it share: states, ratios on each path, inputs.
#ifndef SKELDA_TESTS_HQ_REFERENCE_H
#define SKELDA_TESTS_HQ_REFERENCE_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "rsmpl/hq/state.h"
#include "skelda/rsmpl_hq.h"

namespace hq_test {

struct FreeState {
  void operator()(RSMPL_HqState *st) const { std::free(reinterpret_cast<char *>(st) - 8); }
};
using StatePtr = std::unique_ptr<RSMPL_HqState, FreeState>;

// A state of exactly the size asked for, 8 bytes past a 64-byte boundary
// (the least alignment the header allows, so a build that assumes more
// faults), at the ratio out/in when one is given.
inline StatePtr make_state(uint32_t in_rate, uint32_t out_rate, uint32_t channels,
                           uint32_t ratio_out = 0, uint32_t ratio_in = 0) {
  uint32_t size = 0;
  if (RSMPL_HqGetStateSize(in_rate, out_rate, channels, &size) != RSMPL_OK) return nullptr;
  char *block = static_cast<char *>(std::aligned_alloc(64, (size + 8 + 63) / 64 * 64));
  StatePtr st(reinterpret_cast<RSMPL_HqState *>(block + 8));
  if (RSMPL_HqInit(st.get(), size, in_rate, out_rate, channels) != RSMPL_OK ||
      (ratio_out != 0 && RSMPL_HqSetRatio(st.get(), ratio_out, ratio_in) != RSMPL_OK))
    return nullptr;
  return st;
}

// Rates, and the ratio set after Init (0: the rates').
struct Rates {
  uint32_t in, out, ratio_out = 0, ratio_in = 0;
};
inline const std::vector<Rates> &paths() {
  static const std::vector<Rates> all = {
      // The windowed sinc on its own phases (P = L), 1/1 and a 24th included.
      {44100, 48000}, {48000, 44100}, {96000, 44100}, {8000, 192000}, {192000, 8000}, {44100, 44100},
      // Blended phases: L above the phases the state holds.
      {44100, 48000, 1115, 1024}, {48000, 44100, 1024, 1115}, {8000, 8001}, {191999, 8000},
      // The small ratios' own designs: 3/2, 1/3, 2, 5/8, 8, 1/7, 8/7.
      {32000, 48000}, {48000, 16000}, {24000, 48000}, {48000, 30000}, {8000, 64000}, {56000, 8000},
      {44100, 48000, 8, 7}};
  return all;
}

// kRandom: any value; kFullScale: +32767 and -32768 at random; kRuns: runs
// of one extreme, so that sums reach their largest; kHigh, kLow: one
// extreme throughout.
enum Fill { kRandom, kFullScale, kRuns, kHigh, kLow };
inline std::vector<int16_t> make_input(Fill fill, size_t samples, std::mt19937 &rng) {
  std::vector<int16_t> x(samples);
  bool high = fill == kHigh;
  for (auto &v : x) {
    if (fill == kFullScale || (fill == kRuns && rng() % 40 == 0)) high = rng() % 2;
    v = fill == kRandom ? static_cast<int16_t>(rng()) : high ? 32767 : -32768;
  }
  return x;
}

// Where a run of outputs at one ratio L / M (lowest terms) starts: its first
// output reads the samples ending at input frame e, at phase r / L.
struct Segment {
  uint64_t L, M;
  int64_t e = 0;
  uint64_t r = 0;
};

inline Segment fresh(uint64_t out_frames, uint64_t in_frames) {
  const uint64_t g = std::gcd(out_frames, in_frames);
  return {out_frames / g, in_frames / g};
}

// Outputs of the segment whose newest sample is among the first `frames`
// input frames of the stream.
inline uint64_t ready(const Segment &s, uint64_t frames) {
  if (static_cast<int64_t>(frames) <= s.e) return 0;
  const uint64_t span = (frames - s.e) * s.L;  // (frames - e) L > r + k M
  return span <= s.r ? 0 : (span - s.r + s.M - 1) / s.M;
}

// The position of output `k` of the segment.
inline Segment at(const Segment &s, uint64_t k) {
  const uint64_t num = s.r + k * s.M;
  return {s.L, s.M, s.e + static_cast<int64_t>(num / s.L), num % s.L};
}

// Outputs [first, first + count) of the segment for the interleaved stream
// `x` (frames before it are silence), with the state's coefficients.
inline std::vector<int16_t> reference(const RSMPL_HqState &st, const Segment &s,
                                      const std::vector<int16_t> &x, uint64_t first,
                                      uint64_t count) {
  const uint32_t ch = st.channels, taps = st.taps, p = st.phases;
  const int64_t frames = static_cast<int64_t>(x.size() / ch);
  auto dot = [&](int64_t newest, uint32_t c, uint32_t q) {
    const int16_t *hi = st.coefficients() + static_cast<size_t>(q) * 2 * taps, *lo = hi + taps;
    int64_t sum = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      const int64_t i = newest - taps + 1 + k;
      const int64_t v = i < 0 || i >= frames ? 0 : x[static_cast<size_t>(i) * ch + c];
      sum += v * (int64_t{hi[k]} * (int64_t{1} << st.lo_shift) + lo[k]);
    }
    return sum;
  };
  std::vector<int16_t> out;
  for (uint64_t n = first; n < first + count; ++n) {
    const Segment pos = at(s, n);
    const uint32_t q = static_cast<uint32_t>(pos.r * p / s.L);
    const uint64_t rem = pos.r * p % s.L;
    const int64_t w = static_cast<int64_t>((rem * ((uint64_t{1} << 40) / s.L)) >> 24);  // Q16
    for (uint32_t c = 0; c < ch; ++c) {
      int64_t y = dot(pos.e, c, q);
      if (rem != 0) y += ((dot(pos.e, c, q + 1) - y) * w) >> 16;
      const int64_t v = (y + (int64_t{1} << (st.out_shift - 1))) >> st.out_shift;
      out.push_back(static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v));
    }
  }
  return out;
}

}  // namespace hq_test

#endif
