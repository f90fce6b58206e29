// SPDX-License-Identifier: MIT
// The high-quality resampler's output loop, compiled once per instruction
// set: only the inner products (`Dot::dot`, `Dot::frames` and `Dot::lanes`)
// differ between builds (hq/kernels_scalar.cpp, x86/hq_*.cpp, arm/hq_*.cpp),
// and inlining them here keeps the per-output cost to the multiplies
// themselves. Everything sits in an unnamed namespace so that each build's
// translation unit keeps its own copies.
#ifndef SKELDA_RSMPL_HQ_KERNEL_H
#define SKELDA_RSMPL_HQ_KERNEL_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/fixed.h"
#include "rsmpl/hq/kernels.h"
#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

// One output from its two sums, as every build computes it: (hi 2^s + lo)
// rounded half up by 2^f and saturated.
inline int16_t hq_output(int64_t sum, uint32_t f) { return round_shift16(sum, f); }

// Two frames' outputs for one or two channels, from Dot::dot: the plain
// form of Dot::frames. x0, x1 are the first channel's windows for the frames
// (the second channel's sit `line` further on), c0, c1 their phases; frame
// 0's outputs go to y[0..Channels), frame 1's `frame_step` further on. All
// four are computed before any is stored.
template <class Dot, int Channels>
inline void hq_frames_by_dot(const int16_t *x0, const int16_t *x1, size_t line,
                             const int16_t *c0, const int16_t *c1, uint32_t taps, uint32_t s,
                             int16_t *y, size_t frame_step) {
  int16_t v[2][Channels];
  for (int c = 0; c < Channels; ++c) {
    v[0][c] = hq_output(Dot::dot(x0 + c * line, c0, taps, s), s + kHqHiShift);
    v[1][c] = hq_output(Dot::dot(x1 + c * line, c1, taps, s), s + kHqHiShift);
  }
  for (int c = 0; c < Channels; ++c) {
    y[c] = v[0][c];
    y[frame_step + c] = v[1][c];
  }
}

// Where the next output reads and which phase it takes.
struct HqCursor {
  uint32_t end, r, q, rem;
};

// The lane kernel's plain form: for each of `Channels` channels (the second
// one's pair rows `next` further on), lane j's sums over the tap pairs u =
// g M + i (i < M, g < groups), pair rows[i] + 2 (j - 2 g) against coef + 4 u
// (hi, hi, lo, lo), then the output step; channel k's eight outputs go to
// out + 8 k.
template <int Channels>
inline void hq_lanes_plain(const int16_t *const *rows, size_t next, uint32_t m, uint32_t groups,
                           const int16_t *coef, uint32_t s, int16_t *out) {
  for (int k = 0; k < Channels; ++k)
    for (uint32_t j = 0; j < kHqLanes; ++j) {
      int64_t hi = 0, lo = 0;
      for (uint32_t i = 0; i < m; ++i)
        for (uint32_t g = 0; g < groups; ++g) {
          const int16_t *x = rows[i] + k * next +
                             2 * (static_cast<ptrdiff_t>(j) - 2 * static_cast<ptrdiff_t>(g));
          const int16_t *c = coef + 4 * (static_cast<size_t>(g) * m + i);
          hi += int32_t{x[0]} * c[0] + int32_t{x[1]} * c[1];
          lo += int32_t{x[0]} * c[2] + int32_t{x[1]} * c[3];
        }
      out[kHqLanes * k + j] = hq_output(hi * (int64_t{1} << s) + lo, s + kHqHiShift);
    }
}

// The outputs of a direct design (hq/state.h): blocks of 8 L outputs, each
// phase's eight (n, n + L, ...) at once by Dot::lanes, two channels per
// call so that they share the coefficients; the last block computes whole
// lanes and stores those that are ready and fit.
template <class Dot>
uint32_t hq_produce_lanes(RSMPL_HqState *st, int16_t *out, uint32_t room) {
  const uint32_t l = st->ratio_out, m = st->ratio_in, channels = st->channels;
  const uint32_t groups = st->active / (2 * m), s = st->lo_shift;
  const size_t stride = st->pair_stride, row_size = 2 * stride, phase_size = 2 * st->active;
  const int16_t *coef = st->pair_coefficients();
  const uint64_t ready = hq_outputs_for(st, 0);
  const uint32_t count = ready < room ? static_cast<uint32_t>(ready) : room;
  // The first L outputs' newest samples (from the first's) and phases.
  uint32_t off[kHqDirectMax], phase[kHqDirectMax];
  for (uint32_t i = 0, e = 0, r = st->r; i < l; ++i) {
    off[i] = e;
    phase[i] = r;
    for (r += m; r >= l; r -= l) ++e;
  }
  // The first output's newest active sample, as pair row and position.
  const uint32_t base = st->end - (st->taps - st->active) / 2;
  const uint32_t base_row = base % m;
  uint32_t base_at = base / m;
  const int16_t *rows[kHqDirectMax];
  size_t offset[kHqDirectMax];
  const size_t next = st->pair_line_size();
  int16_t v[2 * kHqLanes];
  uint32_t written = 0;
  while (written < count) {
    const uint32_t block = kHqLanes * l < count - written ? kHqLanes * l : count - written;
    for (uint32_t i = 0; i < l && i < block; ++i) {
      uint32_t row = base_row + off[i], at = base_at;
      for (; row >= m; row -= m) ++at;
      const int16_t *c0 = coef + phase[i] * phase_size;
      for (uint32_t t = 0, r = row, a = at; t < m; ++t) {
        offset[t] = r * row_size + 2 * static_cast<size_t>(a);
        if (r == 0) {
          r = m;
          --a;
        }
        --r;
      }
      for (uint32_t c = 0; c < channels; c += 2) {
        const bool two = c + 1 < channels;
        for (uint32_t t = 0; t < m; ++t) rows[t] = st->pairs(c) + offset[t];
        if (two)
          Dot::template lanes<2>(rows, next, m, groups, c0, s, v);
        else
          Dot::template lanes<1>(rows, next, m, groups, c0, s, v);
        for (uint32_t j = 0, n = written + i; j < kHqLanes && n < written + block; ++j, n += l) {
          int16_t *y = out + static_cast<size_t>(n) * channels + c;
          y[0] = v[j];
          if (two) y[1] = v[kHqLanes + j];
        }
      }
    }
    written += block;
    if (block == kHqLanes * l) {
      base_at += kHqLanes;
      st->end += kHqLanes * m;
    } else {
      for (uint32_t k = 0; k < block; ++k)
        for (st->r += m; st->r >= l; st->r -= l) ++st->end;
    }
  }
  st->q = st->r;
  st->rem = 0;
  return written;
}

// Writes the outputs that are ready and fit in `room`; returns how many.
//
// When every phase is on the grid (P = L), outputs go two frames at a time
// through Dot::frames, two channels per call, so that both channels share
// each coefficient load and four outputs share the reduction and the output
// step. (An odd last frame is computed twice into the same place.) Outputs
// between grid phases blend two inner products each.
template <class Dot>
uint32_t hq_produce(RSMPL_HqState *st, int16_t *out, uint32_t room) {
  if (st->direct != 0) return hq_produce_lanes<Dot>(st, out, room);
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
  const uint32_t fill = st->fill;
  HqCursor at{st->end, st->r, st->q, st->rem};
  // Next output: r + M = step_int L + step_frac, and the grid likewise.
  auto advance = [&](HqCursor &c) {
    c.end += step_int;
    c.r += step_frac;
    c.q += grid_int;
    c.rem += grid_frac;
    if (c.rem >= l) {
      c.rem -= l;
      ++c.q;
    }
    if (c.r >= l) {
      c.r -= l;
      ++c.end;
      c.q -= p;
    }
  };
  uint32_t written = 0;
  if (p == l) {
    while (written < room && at.end < fill) {
      const HqCursor first = at;
      advance(at);
      const bool pair = written + 1 < room && at.end < fill;
      const HqCursor second = pair ? at : first;
      if (pair) advance(at);
      const int16_t *x0 = lines + (first.end + 1 - taps), *x1 = lines + (second.end + 1 - taps);
      const int16_t *c0 = coef + first.q * phase_size, *c1 = coef + second.q * phase_size;
      int16_t *y = out + static_cast<size_t>(written) * channels;
      const size_t frame_step = pair ? channels : 0;
      uint32_t c = 0;
      for (; c + 2 <= channels; c += 2)
        Dot::template frames<2>(x0 + c * line_cap, x1 + c * line_cap, line_cap, c0, c1, taps,
                                   s, y + c, frame_step);
      if (c < channels)
        Dot::template frames<1>(x0 + c * line_cap, x1 + c * line_cap, line_cap, c0, c1, taps,
                                   s, y + c, frame_step);
      written += pair ? 2 : 1;
    }
  } else {
    for (; at.end < fill && written < room; ++written, advance(at)) {
      const int16_t *c0 = coef + at.q * phase_size;
      const int16_t *x = lines + (at.end + 1 - taps);
      int16_t *y = out + static_cast<size_t>(written) * channels;
      // Blend towards the next grid phase by the Q16 weight rem / L, taken
      // without a division.
      const int64_t w = static_cast<int64_t>((at.rem * inv) >> 24);
      for (uint32_t c = 0; c < channels; ++c, x += line_cap) {
        const int64_t y0 = Dot::dot(x, c0, taps, s);
        const int64_t y1 = at.rem == 0 ? y0 : Dot::dot(x, c0 + phase_size, taps, s);
        y[c] = hq_output(y0 + (((y1 - y0) * w) >> 16), f);
      }
    }
  }
  st->end = at.end;
  st->r = at.r;
  st->q = at.q;
  st->rem = at.rem;
  return written;
}

template <class Dot>
constexpr HqKernels make_hq_kernels() {
  return HqKernels{Dot::dot, hq_produce<Dot>};
}

}  // namespace
}  // namespace rsmpl

#endif
