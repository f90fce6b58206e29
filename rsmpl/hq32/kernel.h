// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler's output loop, compiled once per
// instruction set: only the inner products (`Dot::sums`) differ between
// builds (hq32/kernels_scalar.cpp, x86/hq32_*.cpp, arm/hq32_*.cpp); the
// cursor, the blend and the rounding are written once, here. Everything
// sits in an unnamed namespace so that each build's translation unit keeps
// its own copies.
#ifndef SKELDA_RSMPL_HQ32_KERNEL_H
#define SKELDA_RSMPL_HQ32_KERNEL_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq32/kernels.h"
#include "rsmpl/hq32/state.h"

namespace rsmpl {
namespace {

// The S32 result of an exact sum: rounded half up by 2^30, saturated.
inline int32_t hq32_output(int64_t sum) {
  const int64_t v = (sum + (int64_t{1} << (kHq32Shift - 1))) >> kHq32Shift;
  return static_cast<int32_t>(v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : v);
}

// Between grid phases: y0 + ((y1 - y0) >> 16) w, w in Q16 (the difference
// is taken down first, so that the product stays within 63 bits).
inline int64_t hq32_blend(int64_t y0, int64_t y1, int64_t w) {
  return y0 + ((y1 - y0) >> 16) * w;
}

template <class Dot, int Channels>
void hq32_sums(const int32_t *x, size_t line, const int32_t *coef, uint32_t taps, int64_t *sums) {
  Dot::template sums<Channels>(x, line, coef, taps, sums);
}

// Writes the outputs that are ready and fit in `room`; returns how many.
// Each frame's channels go two at a time through Dot::sums, so that both
// share every coefficient load.
template <class Dot>
uint32_t hq32_produce(RSMPL_Hq32State *st, int32_t *out, uint32_t room) {
  const uint32_t taps = st->taps, channels = st->channels;
  const int32_t *coef = st->coefficients();
  const int32_t *lines = st->line(0);
  const size_t line = st->line_stride();
  const uint32_t l = st->ratio_out, p = st->phases;
  const uint32_t step_int = st->step_int, step_frac = st->step_frac;
  const uint32_t grid_int = st->grid_int, grid_frac = st->grid_frac;
  const uint64_t inv = st->weight_inv;
  const uint32_t fill = st->fill;
  uint32_t end = st->end, r = st->r, q = st->q, rem = st->rem;
  uint32_t written = 0;
  for (; end < fill && written < room; ++written) {
    const int32_t *x = lines + (end + 1 - taps);
    const int32_t *c0 = coef + static_cast<size_t>(q) * taps;
    int32_t *y = out + static_cast<size_t>(written) * channels;
    // The Q16 weight rem / L, taken without a division.
    const int64_t w = static_cast<int64_t>((rem * inv) >> 24);
    for (uint32_t c = 0; c < channels; c += 2) {
      int64_t s0[2], s1[2];
      const bool two = c + 1 < channels;
      if (two)
        Dot::template sums<2>(x + c * line, line, c0, taps, s0);
      else
        Dot::template sums<1>(x + c * line, line, c0, taps, s0);
      if (rem != 0) {
        if (two)
          Dot::template sums<2>(x + c * line, line, c0 + taps, taps, s1);
        else
          Dot::template sums<1>(x + c * line, line, c0 + taps, taps, s1);
        s0[0] = hq32_blend(s0[0], s1[0], w);
        if (two) s0[1] = hq32_blend(s0[1], s1[1], w);
      }
      y[c] = hq32_output(s0[0]);
      if (two) y[c + 1] = hq32_output(s0[1]);
    }
    // Next output: r + M = step_int L + step_frac, and the grid likewise.
    end += step_int;
    r += step_frac;
    q += grid_int;
    rem += grid_frac;
    if (rem >= l) {
      rem -= l;
      ++q;
    }
    if (r >= l) {
      r -= l;
      ++end;
      q -= p;
    }
  }
  st->end = end;
  st->r = r;
  st->q = q;
  st->rem = rem;
  return written;
}

template <class Dot>
constexpr Hq32Kernels make_hq32_kernels() {
  return Hq32Kernels{{hq32_sums<Dot, 1>, hq32_sums<Dot, 2>}, hq32_produce<Dot>};
}

}  // namespace
}  // namespace rsmpl

#endif
