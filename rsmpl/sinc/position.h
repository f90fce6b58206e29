// SPDX-License-Identifier: MIT
// Output positions of the sinc interpolator. A position is a Q16 time in
// input samples; the step is Q24 input samples per output.
#ifndef SKELDA_RSMPL_SINC_POSITION_H
#define SKELDA_RSMPL_SINC_POSITION_H

#include <cstdint>

namespace rsmpl {

// Position of output k of a call that starts at `start` with `step`.
// Recomputed from k rather than accumulated, so rounding never drifts
// within a call: start + k * step / 256 with the fractional product rounded
// half up, all in 32 bits (k is taken modulo 65536).
inline int32_t SincOutputPosition(int32_t start, uint32_t step, uint32_t k) {
  k &= 0xFFFFu;
  const uint32_t whole = (k * (step >> 16)) << 8;
  const uint32_t fraction = (k * (step & 0xFFFFu) + 128u) >> 8;
  return static_cast<int32_t>(static_cast<uint32_t>(start) + whole + fraction);
}

}  // namespace rsmpl

#endif
