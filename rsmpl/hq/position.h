// SPDX-License-Identifier: MIT
// Exact positions of the high-quality resampler's polyphase stage.
//
// A position is i + (f + e / den) / 2^32 samples: a whole part, a 32-bit
// binary fraction and an exact remainder over the step's denominator den
// (1 <= den <= 2^32, e < den). A step has the same form, so that a stream at
// a rational ratio whose denominator is den lands exactly where that ratio
// puts it however long it runs, and a ratio of any other denominator (or a
// fixed-point one, den = 2^32) carries the position over to within 2^-32 of
// a sample divided by the new den. Adding a step is integer arithmetic
// without a division, so the per-sample path can afford it; the counts
// below use 128-bit arithmetic and serve the frame-count calls.
#ifndef SKELDA_RSMPL_HQ_POSITION_H
#define SKELDA_RSMPL_HQ_POSITION_H

#include <cstdint>

#include "rsmpl/hq/wide.h"

namespace rsmpl {

struct HqPos {
  int64_t i;
  uint32_t f;
  uint32_t e;
};

struct HqStep {
  uint32_t si, sf, se;
  uint32_t reserved;
  uint64_t den;
};

inline void hq_advance(HqPos &p, const HqStep &s) {
  uint64_t e = uint64_t{p.e} + s.se;
  uint64_t carry = 0;
  if (e >= s.den) {
    e -= s.den;
    carry = 1;
  }
  const uint64_t f = uint64_t{p.f} + s.sf + carry;
  p.e = static_cast<uint32_t>(e);
  p.f = static_cast<uint32_t>(f);
  p.i += static_cast<int64_t>(s.si) + static_cast<int64_t>(f >> 32);
}

// The step num / den exactly (den in 1..2^32, num / den below 2^32).
HqStep hq_step_exact(uint64_t num, uint64_t den);
// The step value / 2^64 (the 64-bit fixed point of a step below 2^32,
// given as its whole part and its 64-bit fraction), den = 2^32.
HqStep hq_step_fixed(uint32_t whole, uint64_t fraction);
// The same position over another denominator: the remainder rescaled,
// rounded down (so the position moves back by less than 2^-32 / new_den).
HqPos hq_rebase(const HqPos &p, uint64_t old_den, uint64_t new_den);

// The number of j >= 0 with p + j s / 2^k < a (0 when p >= a), saturated to
// 2^62.
uint64_t hq_count_below(const HqPos &p, const HqStep &s, unsigned k, int64_t a);
// The number of j >= 0 with p + j s / 2^k <= a, saturated to 2^62.
uint64_t hq_count_at_most(const HqPos &p, const HqStep &s, unsigned k, int64_t a);
// floor(p + j s / 2^k), and whether that value has a fraction.
int64_t hq_floor_at(const HqPos &p, const HqStep &s, unsigned k, uint64_t j, bool *fraction);

// The step's value times 2^32 den: its numerator over 2^32 den.
inline U128 hq_step_numerator(const HqStep &s) {
  return (U128{(uint64_t{s.si} << 32) | s.sf} * U128{s.den}) + U128{s.se};
}

}  // namespace rsmpl

#endif
