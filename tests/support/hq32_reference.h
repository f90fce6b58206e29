// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler written the plain way, from
// hq32/state.h's description: each output's input position and phase
// straight from its index (hq_reference.h's segments), its inner products
// over the state's coefficient table in int64, the blend, the rounding to
// S32, and the narrowing to S16 with the dither generator. Also states of
// exactly the size asked for.
#ifndef SKELDA_TESTS_HQ32_REFERENCE_H
#define SKELDA_TESTS_HQ32_REFERENCE_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "rsmpl/hq32/state.h"
#include "skelda/rsmpl_hq.h"
#include "tests/support/hq_reference.h"

namespace hq32_test {

using hq_test::Segment;

struct FreeState {
  void operator()(RSMPL_Hq32State *st) const { std::free(reinterpret_cast<char *>(st) - 8); }
};
using StatePtr = std::unique_ptr<RSMPL_Hq32State, FreeState>;

// A state of exactly the size asked for, 8 bytes past a 64-byte boundary,
// at the ratio out/in when one is given.
inline StatePtr make_state(uint32_t in_rate, uint32_t out_rate, uint32_t channels,
                           uint32_t ratio_out = 0, uint32_t ratio_in = 0) {
  uint32_t size = 0;
  if (RSMPL_Hq32GetStateSize(in_rate, out_rate, channels, &size) != RSMPL_OK) return nullptr;
  char *block = static_cast<char *>(std::aligned_alloc(64, (size + 8 + 63) / 64 * 64));
  StatePtr st(reinterpret_cast<RSMPL_Hq32State *>(block + 8));
  if (RSMPL_Hq32Init(st.get(), size, in_rate, out_rate, channels) != RSMPL_OK ||
      (ratio_out != 0 && RSMPL_Hq32SetRatio(st.get(), ratio_out, ratio_in) != RSMPL_OK))
    return nullptr;
  return st;
}

// S32 results of outputs [first, first + count) of the segment for the
// interleaved S32 stream `x` (frames before it are silence).
inline std::vector<int32_t> reference(const RSMPL_Hq32State &st, const Segment &s,
                                      const std::vector<int32_t> &x, uint64_t first,
                                      uint64_t count) {
  const uint32_t ch = st.channels, taps = st.taps, p = st.phases;
  const int64_t frames = static_cast<int64_t>(x.size() / ch);
  auto dot = [&](int64_t newest, uint32_t c, uint32_t q) {
    const int32_t *coef = st.coefficients() + static_cast<size_t>(q) * taps;
    int64_t sum = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      const int64_t i = newest - taps + 1 + k;
      sum += (i < 0 || i >= frames ? 0 : int64_t{x[static_cast<size_t>(i) * ch + c]}) * coef[k];
    }
    return sum;
  };
  std::vector<int32_t> out;
  for (uint64_t n = first; n < first + count; ++n) {
    const Segment pos = hq_test::at(s, n);
    const uint32_t q = static_cast<uint32_t>(pos.r * p / s.L);
    const uint64_t rem = pos.r * p % s.L;
    const int64_t w = static_cast<int64_t>((rem * ((uint64_t{1} << 40) / s.L)) >> 24);  // Q16
    for (uint32_t c = 0; c < ch; ++c) {
      int64_t y = dot(pos.e, c, q);
      if (rem != 0) y += ((dot(pos.e, c, q + 1) - y) >> 16) * w;
      const int64_t v = (y + (int64_t{1} << 29)) >> 30;
      out.push_back(static_cast<int32_t>(v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : v));
    }
  }
  return out;
}

// The S16 samples of S32 results: plus 2^15, plus the TPDF dither of the
// next xorshift32 word u when on ((u >> 16) + (u & 0xffff) - 65536),
// shifted down by 16 and saturated. `noise` is the generator, carried on.
inline std::vector<int16_t> narrow(const std::vector<int32_t> &y, bool dither, uint32_t &noise) {
  std::vector<int16_t> out;
  for (int32_t v : y) {
    int64_t d = 0;
    if (dither) {
      noise ^= noise << 13;
      noise ^= noise >> 17;
      noise ^= noise << 5;
      d = int64_t{noise >> 16} + (noise & 0xffff) - 65536;
    }
    const int64_t s = (int64_t{v} + 32768 + d) >> 16;
    out.push_back(static_cast<int16_t>(s > INT16_MAX ? INT16_MAX : s < INT16_MIN ? INT16_MIN : s));
  }
  return out;
}

}  // namespace hq32_test

#endif
