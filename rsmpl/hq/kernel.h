// SPDX-License-Identifier: MIT
// The high-quality resampler's output loop, compiled once per instruction
// set: only the inner products (`Dot::dot`, `Dot::frames` and `Dot::lanes`)
// and the pair rows' fill (`Dot::row`) differ between builds (hq/kernels_scalar.cpp, x86/hq_*.cpp, arm/hq_*.cpp),
// and inlining them here keeps the per-output cost to the multiplies
// themselves. Everything sits in an unnamed namespace so that each build's
// translation unit keeps its own copies.
#ifndef SKELDA_RSMPL_HQ_KERNEL_H
#define SKELDA_RSMPL_HQ_KERNEL_H

#include <cstddef>
#include <cstdint>
#include <cstring>

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
// one's pair rows `next` further on), lane j's sums over the tap pairs (i,
// g) (i < M, g < groups), pair rows[i] + at + 2 (j - 2 g) against coef + 4
// (i groups + g) (hi, hi, lo, lo), then the output step; lane j of channel k
// goes to out[j out_step + k].
template <int Channels>
inline void hq_lanes_plain(const int16_t *const *rows, size_t at, size_t next, uint32_t m,
                           uint32_t groups, const int16_t *coef, uint32_t s, int16_t *out,
                           size_t out_step) {
  for (int k = 0; k < Channels; ++k)
    for (uint32_t j = 0; j < kHqLanes; ++j) {
      int64_t hi = 0, lo = 0;
      for (uint32_t i = 0; i < m; ++i)
        for (uint32_t g = 0; g < groups; ++g) {
          const int16_t *x = rows[i] + at + k * next +
                             2 * (static_cast<ptrdiff_t>(j) - 2 * static_cast<ptrdiff_t>(g));
          const int16_t *c = coef + 4 * (static_cast<size_t>(i) * groups + g);
          hi += int32_t{x[0]} * c[0] + int32_t{x[1]} * c[1];
          lo += int32_t{x[0]} * c[2] + int32_t{x[1]} * c[3];
        }
      out[j * out_step + k] = hq_output(hi * (int64_t{1} << s) + lo, s + kHqHiShift);
    }
}

// Lane j's frame of `Channels` outputs, t[j Channels..], to out[j out_step..]:
// for lane kernels that compute into a block of their own.
template <int Channels>
inline void hq_store_lanes(const int16_t *t, int16_t *out, size_t out_step) {
  for (uint32_t j = 0; j < kHqLanes; ++j, out += out_step)
    std::memcpy(out, t + j * Channels, Channels * sizeof(int16_t));
}

// A row's plain form: `count` samples of `Channels` channels, x[0] (and
// x[1]) then every `step` on, appended to a direct design's pair rows at
// `pair` (the second channel's `next` further on) as pairs of each sample
// and the one before it in the row, b0 (b1) for the first.
template <int Channels>
inline void hq_row_plain(int16_t *pair, size_t next, const int16_t *x, size_t step, uint32_t count,
                         int16_t b0, int16_t b1) {
  for (uint32_t k = 0; k < count; ++k, x += step, pair += 2) {
    const int16_t both0[2] = {x[0], b0};  // one store each
    std::memcpy(pair, both0, sizeof both0);
    b0 = both0[0];
    if constexpr (Channels == 2) {
      const int16_t both1[2] = {x[1], b1};
      std::memcpy(pair + next, both1, sizeof both1);
      b1 = both1[0];
    }
  }
}

// What a build without a pair-row fill or a folded lane kernel of its own
// derives its Dot from.
struct HqPlainRows {
  static constexpr bool kFolds = false;
  template <int Channels>
  static void row(int16_t *pair, size_t next, const int16_t *x, size_t step, uint32_t count, int16_t b0,
                  int16_t b1) {
    hq_row_plain<Channels>(pair, next, x, step, count, b0, b1);
  }
};

// Appends `take` frames to a direct design's pair rows (its lines wait
// until the design changes, hq_set_ratio) row by row, two channels at a
// time by Dot::row.
template <class Dot>
void hq_take_rows(RSMPL_HqState *st, const int16_t *src, uint32_t take) {
  const uint32_t channels = st->channels, m = st->ratio_in, fill = st->fill;
  const size_t row_size = 2 * static_cast<size_t>(st->pair_stride), step = size_t{m} * channels;
  const uint32_t first_row = fill % m, first_at = fill / m;
  const size_t next = st->pair_line_size();
  for (uint32_t c = 0; c < channels; c += 2) {
    const bool two = c + 1 < channels;
    for (uint32_t r = 0; r < m; ++r) {
      const uint32_t k0 = r >= first_row ? r - first_row : r + m - first_row;
      if (k0 >= take) continue;
      const uint32_t at = first_at + (r < first_row), count = (take - k0 + m - 1) / m;
      int16_t *pair = st->pairs(c) + r * row_size + 2 * static_cast<size_t>(at);
      const int16_t b0 = at > 0 ? pair[-2] : 0, b1 = at > 0 && two ? pair[next - 2] : 0;
      const int16_t *x = src + static_cast<size_t>(k0) * channels + c;
      if (two)
        Dot::template row<2>(pair, next, x, step, count, b0, b1);
      else
        Dot::template row<1>(pair, next, x, step, count, b0, b1);
    }
  }
}

// Dot::lanes, or Dot::folded for a design that folds on a build that has it
// (Dot::kFolds): the same outputs either way.
template <class Dot, int Channels>
inline void hq_lanes(bool folded, const int16_t *const *rows, size_t at, size_t next, uint32_t m,
                     uint32_t groups, const int16_t *coef, uint32_t s, int16_t *out, size_t out_step) {
  if constexpr (Dot::kFolds) {
    if (folded) return Dot::template folded<Channels>(rows, at, next, m, groups, coef, s, out, out_step);
  }
  Dot::template lanes<Channels>(rows, at, next, m, groups, coef, s, out, out_step);
}

// The outputs of a direct design (hq/state.h): blocks of 8 L outputs, each
// phase's eight (n, n + L, ...) at once by Dot::lanes, two channels per
// call so that they share the coefficients. The whole blocks go phase by
// phase, stored in place; the last block computes whole lanes aside and
// stores those that are ready and fit.
template <class Dot>
uint32_t hq_produce_lanes(RSMPL_HqState *st, int16_t *out, uint32_t room) {
  const uint32_t l = st->ratio_out, m = st->ratio_in, channels = st->channels;
  const uint32_t groups = st->active / (2 * m), s = st->lo_shift;
  const bool folded = st->folded != 0;
  const size_t row_size = 2 * static_cast<size_t>(st->pair_stride), phase_size = 2 * st->active;
  const int16_t *coef = st->pair_coefficients();
  const uint64_t ready = hq_outputs_for(st, 0);
  const uint32_t count = ready < room ? static_cast<uint32_t>(ready) : room;
  const uint32_t block = kHqLanes * l, blocks = count / block, rest = count % block;
  // The first L outputs' newest samples (from the first's) and phases.
  uint32_t off[kHqDirectMax], phase[kHqDirectMax];
  for (uint32_t i = 0, e = 0, r = st->r; i < l; ++i) {
    off[i] = e;
    phase[i] = r;
    for (r += m; r >= l; r -= l) ++e;
  }
  // The first output's newest active sample, as pair row and position.
  const uint32_t base = st->end - (st->taps - st->active) / 2;
  const uint32_t base_row = base % m, base_at = base / m + blocks * kHqLanes;
  const size_t next = st->pair_line_size(), lane_step = size_t{l} * channels;
  const size_t block_step = size_t{block} * channels;
  const int16_t *rows[kHqDirectMax];
  // Phase i's rows, as from output i of the block at `at`.
  auto set_rows = [&](uint32_t i, uint32_t c, uint32_t at) {
    uint32_t r = base_row + off[i];
    for (; r >= m; r -= m) ++at;
    for (uint32_t t = 0; t < m; ++t) {
      rows[t] = st->pairs(c) + r * row_size + 2 * static_cast<size_t>(at);
      if (r == 0) {
        r = m;
        --at;
      }
      --r;
    }
  };
  for (uint32_t i = 0; i < l && blocks != 0; ++i) {
    const int16_t *c0 = coef + phase[i] * phase_size;
    for (uint32_t c = 0; c < channels; c += 2) {
      set_rows(i, c, base / m);
      int16_t *y = out + static_cast<size_t>(i) * channels + c;
      for (uint32_t b = 0; b < blocks; ++b, y += block_step) {
        const size_t at = 2 * kHqLanes * static_cast<size_t>(b);
        if (c + 1 < channels)
          hq_lanes<Dot, 2>(folded, rows, at, next, m, groups, c0, s, y, lane_step);
        else
          hq_lanes<Dot, 1>(folded, rows, at, next, m, groups, c0, s, y, lane_step);
      }
    }
  }
  st->end += blocks * kHqLanes * m;
  const uint32_t written = blocks * block;
  int16_t v[2 * kHqLanes];
  for (uint32_t i = 0; i < l && i < rest; ++i) {
    const int16_t *c0 = coef + phase[i] * phase_size;
    for (uint32_t c = 0; c < channels; c += 2) {
      const bool two = c + 1 < channels;
      set_rows(i, c, base_at);
      if (two)
        hq_lanes<Dot, 2>(folded, rows, 0, next, m, groups, c0, s, v, 2);
      else
        hq_lanes<Dot, 1>(folded, rows, 0, next, m, groups, c0, s, v, 1);
      for (uint32_t j = 0, n = i; j < kHqLanes && n < rest; ++j, n += l)
        std::memcpy(out + static_cast<size_t>(written + n) * channels + c, v + (two ? 2 : 1) * j,
                    (two ? 2 : 1) * sizeof(int16_t));
    }
  }
  for (uint32_t k = 0; k < rest; ++k)
    for (st->r += m; st->r >= l; st->r -= l) ++st->end;
  st->q = st->r;
  st->rem = 0;
  return written + rest;
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
  return HqKernels{Dot::dot, hq_produce<Dot>, hq_take_rows<Dot>};
}

}  // namespace
}  // namespace rsmpl

#endif
