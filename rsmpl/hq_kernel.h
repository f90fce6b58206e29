// The high-quality resampler's output loop, compiled once per instruction
// set like the FIR kernels: only the inner product (`Dot::hq_dot`) differs
// between builds, and inlining it here keeps the per-output cost to the
// multiplies themselves.
#ifndef SKELDA_RSMPL_HQ_KERNEL_H
#define SKELDA_RSMPL_HQ_KERNEL_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq_state.h"

namespace rsmpl {
namespace {

inline int16_t hq_saturate(int64_t v) {
  return static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
}

// One output from its two sums, as every build computes it: (hi 2^s + lo)
// rounded half up by 2^f and saturated.
inline int16_t hq_output(int64_t sum, uint32_t f) {
  return hq_saturate((sum + (int64_t{1} << (f - 1))) >> f);
}

// Writes the outputs that are ready and fit in `room`; returns how many.
// Outputs on the phase grid are gathered four (channel, frame) pairs at a
// time for Dot::hq_dot4, which shares the reduction and the output step among
// them; outputs between grid phases blend two inner products each.
template <class Dot>
uint32_t hq_produce(RSMPL_HqState *st, int16_t *out, uint32_t room) {
  const uint32_t taps = st->taps, channels = st->channels;
  const uint32_t s = st->lo_shift, f = st->out_shift;
  const size_t phase_size = static_cast<size_t>(2) * taps;
  const int16_t *coef = st->coefficients();
  const int16_t *lines = st->line(0);
  const size_t line_cap = st->line_cap;
  const uint32_t l = st->ratio_out, p = st->phases;
  const uint32_t step_int = st->step_int, step_frac = st->step_frac;
  const uint32_t grid_int = st->grid_int, grid_frac = st->grid_frac;
  const uint64_t inv = st->weight_inv;
  uint32_t end = st->end, r = st->r, q = st->q, rem = st->rem;
  const uint32_t fill = st->fill;
  const int16_t *xs[4], *cs[4];
  int16_t *ys[4];
  int16_t spare[4];
  int pending = 0;
  uint32_t written = 0;
  for (; end < fill && written < room; ++written) {
    const int16_t *c0 = coef + q * phase_size;
    const int16_t *x = lines + (end + 1 - taps);
    int16_t *y = out + static_cast<size_t>(written) * channels;
    if (rem == 0) {
      for (uint32_t c = 0; c < channels; ++c) {
        xs[pending] = x + c * line_cap;
        cs[pending] = c0;
        ys[pending] = y + c;
        if (++pending == 4) {
          Dot::hq_dot4(xs, cs, taps, s, f, ys);
          pending = 0;
        }
      }
    } else {
      // Blend towards the next grid phase by the Q16 weight rem / L, taken
      // without a division.
      const int64_t w = static_cast<int64_t>((rem * inv) >> 24);
      for (uint32_t c = 0; c < channels; ++c, x += line_cap) {
        const int64_t y0 = Dot::hq_dot(x, c0, taps, s);
        const int64_t y1 = Dot::hq_dot(x, c0 + phase_size, taps, s);
        y[c] = hq_output(y0 + (((y1 - y0) * w) >> 16), f);
      }
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
  if (pending != 0) {
    // The last few, padded with copies of the first that write aside.
    for (int j = pending; j < 4; ++j) {
      xs[j] = xs[0];
      cs[j] = cs[0];
      ys[j] = &spare[j];
    }
    Dot::hq_dot4(xs, cs, taps, s, f, ys);
  }
  st->end = end;
  st->r = r;
  st->q = q;
  st->rem = rem;
  return written;
}

}  // namespace
}  // namespace rsmpl

#endif
