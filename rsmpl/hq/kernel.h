// SPDX-License-Identifier: MIT
// The high-quality resampler's polyphase passes, compiled once per
// instruction set around that build's `Dot` (hq/kernels_scalar.cpp,
// x86/hq_*.cpp, arm/hq_*.cpp): the position stepping, the choice of phase
// and the weights are written once, here; only the blend, the inner
// products, the deposits and the half-band branches differ between builds.
// Everything sits in an unnamed namespace so that each build's translation
// unit keeps its own copies.
#ifndef SKELDA_RSMPL_HQ_KERNEL_H
#define SKELDA_RSMPL_HQ_KERNEL_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq/kernels.h"
#include "rsmpl/hq/position.h"

namespace rsmpl {
namespace {

// A sum of Q30 products rounded half up by 2^shift and clamped to the
// stages' range.
inline int32_t hq_round(int64_t sum, unsigned shift) {
  const int64_t v = (sum + (int64_t{1} << (shift - 1))) >> shift;
  return static_cast<int32_t>(v > ((1 << 30) - 1) ? (1 << 30) - 1 : v < -(1 << 30) ? -(1 << 30) : v);
}

// The quadratic weights of a position w (Q31) between base phases.
inline int32_t hq_weight2(int32_t w) {
  return static_cast<int32_t>((int64_t{w} * (int64_t{w} - (int64_t{1} << 31))) >> 32);
}

// The kernel row at psi = 1 - frac(p) (psi = 1 for a whole p when
// `whole_is_one`, else 0): its base phase q and weight w (Q31) on the
// table's 2^bits phases. The remainder beyond 2^-32 only tells a whole
// position from one just past it.
inline void hq_reflect(const HqPos &p, uint32_t bits, bool whole_is_one, uint32_t *q, int32_t *w) {
  const uint32_t phases = 1u << bits;
  if (p.f == 0 && p.e == 0) {
    *q = whole_is_one ? phases : 0;
    *w = 0;
    return;
  }
  const uint32_t top = p.f >> (32 - bits);
  const uint32_t rest = p.f << bits;  // the fraction between table phases, 2^-32 units
  if (rest == 0 && p.e == 0) {  // exactly on a table phase
    *q = phases - top;
    *w = 0;
    return;
  }
  *q = phases - top - 1;
  *w = rest == 0 ? 0x7fffffff : static_cast<int32_t>((0u - rest) >> 1);
}

template <class Dot>
void hq_blend(const int32_t *rows, uint32_t taps, int32_t w, int32_t w2, int32_t gain, int32_t *c) {
  Dot::blend(rows, taps, w, w2, gain, c);
}

template <class Dot>
void hq_dots(const int32_t *x, size_t xstride, uint32_t rows, const int32_t *c, uint32_t taps, int32_t *y,
             size_t ystride) {
  Dot::dots(x, xstride, rows, c, taps, y, ystride);
}

template <class Dot>
void hq_deposit(int64_t *acc, size_t astride, uint32_t rows, const int32_t *x, size_t xstride,
                const int32_t *c, uint32_t taps) {
  Dot::deposit(acc, astride, rows, x, xstride, c, taps);
}

// The kernel's taps for row q at weight w, times gain (Q29), into c.
template <class Dot>
inline void hq_taps(const HqKernel &k, uint32_t q, int32_t w, int32_t gain, int32_t *c) {
  const int32_t *rows = k.table + size_t{q} * 3 * k.taps;
  Dot::blend(rows, k.taps, w, hq_weight2(w), gain, c);
}

// The cached taps for the fraction of pos, made on first use; null when the
// position is off the cache's grid.
template <class Dot>
inline const int32_t *hq_cached(const HqPhaseCache &cache, const HqKernel &k, const HqPos &pos, uint64_t den,
                                bool whole_is_one, int32_t gain) {
  const uint64_t at = uint64_t{pos.f} * den + pos.e;
  const uint32_t r = static_cast<uint32_t>(at >> 32);
  int32_t *row = cache.rows + size_t{r} * k.taps;
  const uint32_t bit = 1u << (r & 31);
  if ((cache.made[r >> 5] & bit) == 0) {
    uint32_t q;
    int32_t w;
    hq_reflect(pos, k.phase_bits, whole_is_one, &q, &w);
    hq_taps<Dot>(k, q, w, gain, row);
    cache.made[r >> 5] |= bit;
  }
  return row;
}

// Whether the cache serves positions from pos on: steps of denominator den
// keep a position on the grid of 1/den it starts on.
inline bool hq_on_grid(const HqPhaseCache &cache, const HqPos &pos, uint64_t den) {
  return cache.rows != nullptr && ((uint64_t{pos.f} * den + pos.e) & 0xffffffffu) == 0;
}

template <class Dot>
uint32_t hq_poly_pass(HqPolyJob *job) {
  const HqKernel &k = *job->kernel;
  const uint32_t taps = k.taps, channels = job->channels;
  HqPos pos = job->pos, last = job->last;
  const uint64_t den = job->step.den;
  const bool cached = hq_on_grid(job->cache, pos, den);
  uint32_t made = 0;
  // Four outputs at a time, each with its window and its taps.
  while (made < job->room && pos.i < job->end) {
    const int32_t *xs[4], *cs[4];
    uint32_t n = 0;
    for (; n < 4 && made + n < job->room && pos.i < job->end; ++n) {
      xs[n] = job->x + (pos.i - job->base) - (taps - 1);
      if (cached) {
        cs[n] = hq_cached<Dot>(job->cache, k, pos, den, true, 1 << 29);
      } else {
        uint32_t q;
        int32_t w;
        hq_reflect(pos, k.phase_bits, true, &q, &w);
        int32_t *c = job->coef + size_t{n} * taps;
        hq_taps<Dot>(k, q, w, 1 << 29, c);
        cs[n] = c;
      }
      last = pos;
      hq_advance(pos, job->step);
    }
    if (n == 4) {
      Dot::dots4(xs, job->xstride, channels, cs, taps, job->y + made, job->ystride);
    } else {
      for (uint32_t i = 0; i < n; ++i)
        Dot::dots(xs[i], job->xstride, channels, cs[i], taps, job->y + made + i, job->ystride);
    }
    made += n;
  }
  job->pos = pos;
  job->last = last;
  return made;
}

template <class Dot>
void hq_poly_t_pass(HqPolyTJob *job) {
  const HqKernel &k = *job->kernel;
  HqPos pos = job->pos, last = job->last;
  const uint64_t den = job->step.den;
  const bool cached = hq_on_grid(job->cache, pos, den);
  for (uint32_t t = 0; t < job->count; ++t) {
    const int32_t *c = job->coef;
    if (cached) {
      c = hq_cached<Dot>(job->cache, k, pos, den, false, job->gain);
    } else {
      uint32_t q;
      int32_t w;
      hq_reflect(pos, k.phase_bits, false, &q, &w);
      hq_taps<Dot>(k, q, w, job->gain, job->coef);
    }
    const int64_t first = pos.i + ((pos.f != 0 || pos.e != 0) ? 1 : 0);
    Dot::deposit(job->acc + (first - job->acc_base), job->astride, job->channels, job->x + t, job->xstride, c,
                 k.taps);
    last = pos;
    hq_advance(pos, job->step);
  }
  job->pos = pos;
  job->last = last;
}

template <class Dot>
constexpr HqKernels make_hq_kernels() {
  return HqKernels{Dot::half_up,   Dot::half_down,        hq_blend<Dot>,        hq_dots<Dot>,
                   hq_deposit<Dot>, hq_poly_pass<Dot>, hq_poly_t_pass<Dot>};
}

}  // namespace
}  // namespace rsmpl

#endif
