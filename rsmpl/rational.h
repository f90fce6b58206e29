// SPDX-License-Identifier: MIT
// Exact stream positions of the high-quality resamplers (hq/, hq32/): a
// stream runs at the ratio L / M (output / input frames, lowest terms), and
// its next output reads the samples of a line ending at index `end`, at
// phase r / L (r < L); the line holds `fill` samples. Output k from there
// reads the samples ending at end + floor((r + k M) / L). Integer arithmetic
// only, so every CPU agrees.
#ifndef SKELDA_RSMPL_RATIONAL_H
#define SKELDA_RSMPL_RATIONAL_H

#include <cstddef>
#include <cstdint>
#include <numeric>

namespace rsmpl {

// Ratio terms stay below this, so that products of a term and a frame count
// below 2^40 fit 64 bits.
constexpr uint32_t kMaxRatioTerm = 1u << 24;

struct StreamPosition {
  uint32_t fill, end, r, l, m;
};

// Outputs ready after `in_frames` more input.
inline uint64_t outputs_ready(const StreamPosition &p, uint64_t in_frames) {
  const int64_t last = static_cast<int64_t>(p.fill) + static_cast<int64_t>(in_frames) - 1;
  const int64_t a = last - static_cast<int64_t>(p.end);
  if (a < 0) return 0;
  const uint64_t l = p.l, m = p.m;
  return ((static_cast<uint64_t>(a) + 1) * l - p.r + m - 1) / m;
}

// The least input after which `out_frames` more outputs are ready.
inline uint64_t inputs_needed(const StreamPosition &p, uint64_t out_frames) {
  if (out_frames == 0) return 0;
  const uint64_t newest = p.end + (p.r + (out_frames - 1) * p.m) / p.l;
  return newest + 1 > p.fill ? newest + 1 - p.fill : 0;
}

// out / in within 1/16 of out_rate / in_rate, both terms in lowest form
// below kMaxRatioTerm.
inline bool ratio_near_rates(uint32_t out_frames, uint32_t in_frames, uint32_t out_rate,
                             uint32_t in_rate) {
  if (out_frames == 0 || in_frames == 0) return false;
  const uint64_t g = std::gcd(uint64_t{out_frames}, uint64_t{in_frames});
  if (out_frames / g >= kMaxRatioTerm || in_frames / g >= kMaxRatioTerm) return false;
  const uint64_t given = uint64_t{out_frames} * in_rate;
  const uint64_t nominal = uint64_t{in_frames} * out_rate;
  const uint64_t diff = given > nominal ? given - nominal : nominal - given;
  return diff * 16 <= nominal;
}

}  // namespace rsmpl

#endif
