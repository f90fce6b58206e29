// SPDX-License-Identifier: MIT
// The single stage's pass (rsmpl/hq/direct.h), compiled once per
// instruction set around that build's `Dot16` (hq/direct_scalar.cpp,
// x86/hq_direct_*.cpp, arm/hq_direct_*.cpp): the position stepping, the
// choice of row and the blend between grid rows are written once, here;
// only the inner products and the way in differ between builds.
#ifndef SKELDA_RSMPL_HQ_DIRECT_KERNEL_H
#define SKELDA_RSMPL_HQ_DIRECT_KERNEL_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq/direct.h"

// The builds' inner products go inline into the pass.
#define HQ_DIRECT_INLINE __attribute__((always_inline)) inline

namespace rsmpl {
namespace {

inline int32_t hq_direct_clamp(int64_t v) {
  return static_cast<int32_t>(v > (1 << 30) - 1 ? (1 << 30) - 1 : v < -(1 << 30) ? -(1 << 30) : v);
}

// A row's sums to an output: (hi 2^7 + lo + 2^6) >> 7, which is hi + ((lo
// + 2^6) >> 7), clamped.
inline int32_t hq_direct_output(int32_t sum_hi, int32_t sum_lo) {
  return hq_direct_clamp(int64_t{sum_hi} + ((int64_t{sum_lo} + 64) >> 7));
}

// The position i + r / den exactly.
inline HqPos hq_at_fraction(int64_t i, uint32_t r, uint64_t den) {
  const uint64_t scaled = uint64_t{r} << 32;
  return HqPos{i, static_cast<uint32_t>(scaled / den), static_cast<uint32_t>(scaled % den)};
}

// The row area for fractions r / den: row r made on first use. Its
// pointers held here, where the stores of the outputs cannot alias them.
struct HqDirectRows {
  const HqDirectDesign &design;
  uint8_t *rows;
  uint32_t *bits;
  size_t row_bytes;
  uint64_t den;
  HqDirectRows(const HqDirectJob &job, uint64_t fractions)
      : design(*job.design), rows(job.rows), bits(job.made), row_bytes(hq_direct_row_bytes(job.design->taps)),
        den(fractions) {}
  const uint8_t *at(uint32_t r) const {
    uint8_t *row = rows + size_t{r} * row_bytes;
    const uint32_t bit = 1u << (r & 31);
    if ((bits[r >> 5] & bit) == 0) {
      hq_direct_row(design, r, den, row);
      bits[r >> 5] |= bit;
    }
    return row;
  }
};

// Exact rows: the position is i + r / den, and the step a whole number of
// 1/den, so r steps by itself; the position is rebuilt at the end. Taps:
// the design's, or 0 to read them from it.
template <class Dot16, uint32_t Taps>
uint32_t hq_direct_exact(HqDirectJob *job) {
  const uint32_t taps = Taps != 0 ? Taps : job->design->taps, channels = job->channels, room = job->room;
  const int16_t *const x = job->x;
  const int64_t from = job->base + (taps - 1);
  const size_t xstride = job->xstride, ystride = job->ystride;
  const int64_t end = job->end;
  const HqStep step = job->step;
  int32_t *const y = job->y;
  const uint64_t den = step.den;
  const HqDirectRows rows(*job, den);
  const uint32_t dr = static_cast<uint32_t>(((uint64_t{step.sf} * den + step.se) >> 32));
  const uint32_t di = step.si;
  uint32_t r = static_cast<uint32_t>((uint64_t{job->pos.f} * den + job->pos.e) >> 32), last_r = 0;
  int64_t i = job->pos.i, last_i = 0;
  uint32_t made = 0;
  // Ratios of small terms that step one or two input frames per L outputs:
  // a build with a lane kernel makes Dot16::kLanes outputs of one fraction
  // at once, one to a lane, windows M apart, through the L fractions in
  // turn: a block of kLanes L outputs, after which the position has moved
  // on kLanes M frames and r is as it was.
  if constexpr (Dot16::kLanes != 0) {
    const uint64_t m = uint64_t{di} * den + dr;
    if (den <= 8 && (m == 1 || m == 2)) {
      const uint32_t lanes = Dot16::kLanes, block = lanes * static_cast<uint32_t>(den);
      // The block's last output stands lanes M - (r < M) frames on.
      const int64_t reach = static_cast<int64_t>(lanes * m) - (r < m ? 1 : 0);
      while (room - made >= block && i + reach < end) {
        int64_t it = i;
        uint32_t rt = r;
        for (uint32_t t = 0; t < den; ++t) {
          Dot16::lanes(x + (it - from), xstride, channels, rows.at(rt), taps,
                       static_cast<uint32_t>(m), y + made + t, ystride, static_cast<uint32_t>(den));
          it += di;
          rt += dr;
          if (rt >= den) {
            rt -= static_cast<uint32_t>(den);
            ++it;
          }
        }
        made += block;
        i += lanes * m;
      }
      if (made != 0) {
        // The last output made: one step back from the next.
        last_i = i - di - (r < dr ? 1 : 0);
        last_r = r < dr ? r + static_cast<uint32_t>(den) - dr : r - dr;
      }
    }
  }
  // One output at a time.
  auto step_on = [&] {
    last_i = i;
    last_r = r;
    i += di;
    r += dr;
    if (r >= den) {
      r -= static_cast<uint32_t>(den);
      ++i;
    }
  };
  if (channels == 2) {
    for (; made < room && i < end; ++made) {
      Dot16::dots2(x + (i - from), xstride, rows.at(r), taps, y + made, ystride);
      step_on();
    }
  } else {
    for (; made < room && i < end; ++made) {
      Dot16::dots(x + (i - from), xstride, channels, rows.at(r), taps, y + made, ystride);
      step_on();
    }
  }
  if (made != 0) {
    job->pos = hq_at_fraction(i, r, den);
    job->last = hq_at_fraction(last_i, last_r, den);
  }
  return made;
}

// Rows on the design's grid of 2^g fractions: an output between grid rows
// q and q + 1, at w (Q31) of the way, is the blend of their outputs (one
// row when it lies on the grid).
template <class Dot16, uint32_t Taps>
uint32_t hq_direct_grid(HqDirectJob *job) {
  const HqDirectDesign &design = *job->design;
  const uint32_t taps = Taps != 0 ? Taps : design.taps, channels = job->channels, room = job->room;
  const int16_t *const x = job->x;
  const int64_t from = job->base + (taps - 1);
  const size_t xstride = job->xstride, ystride = job->ystride;
  const int64_t end = job->end;
  const HqStep step = job->step;
  int32_t *const y = job->y;
  int32_t *const z = job->scratch;
  const uint32_t g = design.grid_bits;
  const HqDirectRows rows(*job, uint64_t{1} << g);
  HqPos pos = job->pos, last = job->last;
  uint32_t made = 0;
  for (; made < room && pos.i < end; ++made) {
    const int16_t *window = x + (pos.i - from);
    const uint32_t q = pos.f >> (32 - g);
    const int32_t w = static_cast<int32_t>((pos.f << g) >> 1);
    if (channels == 2) {
      Dot16::dots2(window, xstride, rows.at(q), taps, y + made, ystride);
      if (w != 0) Dot16::dots2(window, xstride, rows.at(q + 1), taps, z, 1);
    } else {
      Dot16::dots(window, xstride, channels, rows.at(q), taps, y + made, ystride);
      if (w != 0) Dot16::dots(window, xstride, channels, rows.at(q + 1), taps, z, 1);
    }
    if (w != 0)
      for (uint32_t c = 0; c < channels; ++c) {
        const int32_t a = y[c * ystride + made];
        y[c * ystride + made] = hq_direct_clamp(a + ((int64_t{z[c]} - a) * w >> 31));
      }
    last = pos;
    hq_advance(pos, step);
  }
  job->pos = pos;
  job->last = last;
  return made;
}

template <class Dot16>
uint32_t hq_direct_pass(HqDirectJob *job) {
  const uint32_t taps = job->design->taps, channels = job->channels, room = job->room;
  const size_t xstride = job->xstride, ystride = job->ystride;
  const HqStep step = job->step;
  int32_t *const y = job->y;
  const HqPos pos = job->pos;
  // A step of exactly one sample from a whole position: the stage changes
  // no rate, and passes its input on T/2 frames late, as its filter would
  // but for what lies beyond its passband, which a stage at one rate has
  // no images of.
  if (pos.f == 0 && pos.e == 0 && step.si == 1 && step.sf == 0 && step.se == 0) {
    const int64_t avail = job->end - pos.i;
    const uint32_t n = avail <= 0 ? 0 : avail < room ? static_cast<uint32_t>(avail) : room;
    if (n == 0) return 0;
    const int16_t *centre = job->x + (pos.i - job->base - taps / 2);
    for (uint32_t c = 0; c < channels; ++c)
      for (uint32_t m = 0; m < n; ++m) y[c * ystride + m] = int32_t{centre[c * xstride + m]} * (1 << 14);
    job->last = HqPos{pos.i + n - 1, 0, 0};
    job->pos = HqPos{pos.i + n, 0, 0};
    return n;
  }
  // The common lengths with the length known to the compiler.
  if (job->exact != 0) {
    switch (taps) {
      case 64: return hq_direct_exact<Dot16, 64>(job);
      case 72: return hq_direct_exact<Dot16, 72>(job);
      default: return hq_direct_exact<Dot16, 0>(job);
    }
  }
  switch (taps) {
    case 64: return hq_direct_grid<Dot16, 64>(job);
    case 72: return hq_direct_grid<Dot16, 72>(job);
    default: return hq_direct_grid<Dot16, 0>(job);
  }
}

// The plain forms: the reference, and the builds' tails.
inline void hq_direct_dots_plain(const int16_t *x, size_t xstride, uint32_t rows, const uint8_t *row, uint32_t taps,
                                 int32_t *y, size_t ystride) {
  const int16_t *hi = reinterpret_cast<const int16_t *>(row);
  const uint8_t *lo = row + 2 * size_t{taps};
  for (uint32_t r = 0; r < rows; ++r) {
    const int16_t *xr = x + r * xstride;
    int32_t sh = 0, sl = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      sh += int32_t{xr[k]} * hi[k];
      sl += int32_t{xr[k]} * lo[k];
    }
    y[r * ystride] = hq_direct_output(sh, sl);
  }
}

inline void hq_direct_take_plain(const int16_t *src, uint32_t channels, uint32_t frames, int16_t *const *to) {
  for (uint32_t c = 0; c < channels; ++c)
    for (uint32_t i = 0; i < frames; ++i) to[c][i] = src[size_t{i} * channels + c];
}

template <class Dot16>
constexpr HqDirectKernels make_hq_direct_kernels() {
  return HqDirectKernels{Dot16::dots, Dot16::take, hq_direct_pass<Dot16>};
}

}  // namespace
}  // namespace rsmpl

#endif
