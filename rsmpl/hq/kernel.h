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
void hq_deposits(int64_t *acc, size_t astride, uint32_t rows, const int32_t *x, size_t xstride,
                 const int32_t *const *c, const uint32_t *at, uint32_t n, uint32_t taps) {
  Dot::deposits(acc, astride, rows, x, xstride, c, at, n, taps);
}

// The kernel's taps for row q at weight w, times gain (Q29), into c.
template <class Dot>
inline void hq_taps(const HqKernel &k, uint32_t q, int32_t w, int32_t gain, int32_t *c) {
  const int32_t *rows = k.table + size_t{q} * 3 * k.taps;
  Dot::blend(rows, k.taps, w, hq_weight2(w), gain, c);
}

// Makes a row of the cache: once per row and step, so kept out of the
// loops that look rows up.
template <class Dot>
[[gnu::noinline, gnu::cold]] void hq_make_row(const HqKernel &k, HqPos pos, bool whole_is_one, int32_t gain,
                                              int32_t *row) {
  uint32_t q;
  int32_t w;
  hq_reflect(pos, k.phase_bits, whole_is_one, &q, &w);
  hq_taps<Dot>(k, q, w, gain, row);
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
    hq_make_row<Dot>(k, pos, whole_is_one, gain, row);
    cache.made[r >> 5] |= bit;
  }
  return row;
}

// Whether the cache serves positions from pos on: steps of denominator den
// keep a position on the grid of 1/den it starts on.
inline bool hq_on_grid(const HqPhaseCache &cache, const HqPos &pos, uint64_t den) {
  return cache.rows != nullptr && ((uint64_t{pos.f} * den + pos.e) & 0xffffffffu) == 0;
}

// A step of exactly one sample from a whole position: the stage changes no
// rate, and passes its input on delayed by half its length (the kernel's
// centre), as its filter would but for what lies beyond its passband, which
// a stage at one rate has no images of.
inline bool hq_identity(const HqPos &pos, const HqStep &step) {
  return step.si == 1 && step.sf == 0 && step.se == 0 && pos.f == 0 && pos.e == 0;
}

template <class Dot>
uint32_t hq_poly_pass(HqPolyJob *job) {
  const HqKernel &k = *job->kernel;
  const uint32_t taps = k.taps, channels = job->channels;
  HqPos pos = job->pos, last = job->last;
  if (hq_identity(pos, job->step)) {
    const int64_t avail = job->end - pos.i;
    const uint32_t n = avail <= 0 ? 0 : avail < job->room ? static_cast<uint32_t>(avail) : job->room;
    if (n == 0) return 0;
    const int32_t *x = job->x + (pos.i - job->base) - taps / 2;
    for (uint32_t c = 0; c < channels; ++c)
      for (uint32_t m = 0; m < n; ++m) job->y[c * job->ystride + m] = x[c * job->xstride + m];
    job->last = HqPos{pos.i + n - 1, 0, 0};
    job->pos = HqPos{pos.i + n, 0, 0};
    return n;
  }
  const uint64_t den = job->step.den;
  const bool cached = hq_on_grid(job->cache, pos, den);
  uint32_t made = 0;
  if (cached) {
    // Rows on the cache's grid: the position is i + r / den and the step a
    // whole number of 1/den, so r steps by itself (no product per output);
    // four outputs at a time, the position rebuilt at the end.
    const uint32_t dr = static_cast<uint32_t>((uint64_t{job->step.sf} * den + job->step.se) >> 32);
    const uint32_t di = job->step.si, room = job->room;
    const int64_t end = job->end, from = job->base + (taps - 1);
    const size_t xstride = job->xstride, ystride = job->ystride;
    const int32_t *const x = job->x;
    int32_t *const y = job->y, *const rows = job->cache.rows;
    uint32_t *const bits = job->cache.made;
    auto fraction = [den](uint32_t r) {
      const uint64_t scaled = uint64_t{r} << 32;
      return HqPos{0, static_cast<uint32_t>(scaled / den), static_cast<uint32_t>(scaled % den)};
    };
    uint32_t r = static_cast<uint32_t>((uint64_t{pos.f} * den + pos.e) >> 32), last_r = 0;
    int64_t i = pos.i, last_i = 0;
    while (made < room && i < end) {
      const int32_t *xs[4], *cs[4];
      uint32_t n = 0;
      for (; n < 4 && made + n < room && i < end; ++n) {
        xs[n] = x + (i - from);
        int32_t *row = rows + size_t{r} * taps;
        if ((bits[r >> 5] & (1u << (r & 31))) == 0) {
          hq_make_row<Dot>(k, fraction(r), true, 1 << 29, row);
          bits[r >> 5] |= 1u << (r & 31);
        }
        cs[n] = row;
        last_i = i;
        last_r = r;
        i += di;
        r += dr;
        if (r >= den) {
          r -= static_cast<uint32_t>(den);
          ++i;
        }
      }
      if (n == 4) {
        Dot::dots4(xs, xstride, channels, cs, taps, y + made, ystride);
      } else {
        for (uint32_t t = 0; t < n; ++t) Dot::dots(xs[t], xstride, channels, cs[t], taps, y + made + t, ystride);
      }
      made += n;
    }
    if (made != 0) {
      const HqPos p = fraction(r), l = fraction(last_r);
      job->pos = HqPos{i, p.f, p.e};
      job->last = HqPos{last_i, l.f, l.e};
    }
    return made;
  }
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

// Inputs of the transposed stage that one call of the deposits takes at most.
constexpr uint32_t kHqDepositBatch = 64;

// Whether the cache holds every row that positions from `pos` on visit:
// at a step of fraction s / den (den the cache's) the rows r0 + j s modulo
// den, which are those that differ from r0 by multiples of gcd(s, den).
// Once they are, a pass looks rows up with no check.
inline bool hq_rows_made(const HqPhaseCache &cache, const HqPos &pos, const HqStep &step) {
  const uint32_t den = static_cast<uint32_t>(step.den);
  const uint32_t r0 = static_cast<uint32_t>((uint64_t{pos.f} * den + pos.e) >> 32);
  const uint32_t s = static_cast<uint32_t>((uint64_t{step.sf} * den + step.se) >> 32);
  // gcd(s, den), by halving and subtracting; den when s is 0.
  uint32_t g = den;
  if (s != 0) {
    const int twos = __builtin_ctz(s | den);
    uint32_t a = s >> __builtin_ctz(s), b = den;
    do {
      b >>= __builtin_ctz(b);
      if (a > b) {
        const uint32_t t = a;
        a = b;
        b = t;
      }
      b -= a;
    } while (b != 0);
    g = a << twos;
  }
  auto made = [&](uint32_t r) { return (cache.made[r >> 5] & (1u << (r & 31))) != 0; };
  if (g == 1) {
    // Every row: a word of bits at a time.
    for (uint32_t w = 0; w < den / 32; ++w)
      if (cache.made[w] != ~0u) return false;
    for (uint32_t r = den & ~31u; r < den; ++r)
      if (!made(r)) return false;
    return true;
  }
  uint32_t r = r0;
  while (r >= g) r -= g;
  for (; r < den; r += g)
    if (!made(r)) return false;
  return true;
}

// The cached taps of n inputs of the transposed stage from *pos on, their
// first sums (from base) and *pos moved on past them: the positions' rows
// and first sums in a loop of plain arithmetic, then, unless every row is
// made, the rows checked and those that are new made.
template <class Dot>
void hq_cached_batch(const HqPhaseCache &cache, const HqKernel &k, const HqStep &step, int32_t gain, int64_t base,
                     uint32_t n, bool all_made, HqPos *pos, HqPos *last, const int32_t **cs, uint32_t *at) {
  const uint64_t den = step.den;
  const uint32_t taps = k.taps;
  HqPos p = *pos;
  if (all_made) {
    for (uint32_t i = 0;; ++i) {
      const uint32_t r = static_cast<uint32_t>((uint64_t{p.f} * den + p.e) >> 32);
      cs[i] = cache.rows + size_t{r} * taps;
      at[i] = static_cast<uint32_t>(p.i + ((p.f | p.e) != 0 ? 1 : 0) - base);
      if (i + 1 == n) break;
      hq_advance(p, step);
    }
  } else {
    uint32_t r[kHqDepositBatch];
    uint64_t fraction[kHqDepositBatch];
    for (uint32_t i = 0;; ++i) {
      r[i] = static_cast<uint32_t>((uint64_t{p.f} * den + p.e) >> 32);
      cs[i] = cache.rows + size_t{r[i]} * taps;
      fraction[i] = (uint64_t{p.f} << 32) | p.e;
      at[i] = static_cast<uint32_t>(p.i + (fraction[i] != 0 ? 1 : 0) - base);
      if (i + 1 == n) break;
      hq_advance(p, step);
    }
    for (uint32_t i = 0; i < n; ++i) {
      const uint32_t bit = 1u << (r[i] & 31);
      if ((cache.made[r[i] >> 5] & bit) != 0) continue;
      hq_make_row<Dot>(k, HqPos{0, static_cast<uint32_t>(fraction[i] >> 32), static_cast<uint32_t>(fraction[i])},
                       false, gain, cache.rows + size_t{r[i]} * taps);
      cache.made[r[i] >> 5] |= bit;
    }
  }
  *last = p;
  hq_advance(p, step);
  *pos = p;
}

// The blended taps of n inputs of the transposed stage from *pos on (rows of
// coef), their first sums (from base) and *pos moved on past them: the
// table rows each input blends are found first, so that those a few inputs
// ahead can be fetched while the others blend (the tables outgrow the
// first-level cache, and a step off the cache's grid lands anywhere in them).
template <class Dot>
void hq_blend_batch(const HqKernel &k, HqPos *pos, HqPos *last, const HqStep &step, int32_t gain, int64_t base,
                    uint32_t n, int32_t *coef, const int32_t **cs, uint32_t *at) {
  constexpr uint32_t kAhead = 4;
  const uint32_t taps = k.taps, row_bytes = 3 * taps * sizeof(int32_t);
  uint32_t q[kHqDepositBatch];
  int32_t w[kHqDepositBatch];
  HqPos p = *pos;
  for (uint32_t i = 0; i < n; ++i) {
    hq_reflect(p, k.phase_bits, false, &q[i], &w[i]);
    const int64_t first = p.i + ((p.f != 0 || p.e != 0) ? 1 : 0);
    at[i] = static_cast<uint32_t>(first - base);
    *last = p;
    hq_advance(p, step);
  }
  *pos = p;
  auto fetch = [&](uint32_t i) {
    const char *rows = reinterpret_cast<const char *>(k.table + size_t{q[i]} * 3 * taps);
    for (uint32_t b = 0; b < row_bytes; b += 64) __builtin_prefetch(rows + b);
  };
  for (uint32_t i = 0; i < kAhead && i < n; ++i) fetch(i);
  for (uint32_t i = 0; i < n; ++i) {
    if (i + kAhead < n) fetch(i + kAhead);
    int32_t *c = coef + size_t{i} * taps;
    Dot::blend(k.table + size_t{q[i]} * 3 * taps, taps, w[i], hq_weight2(w[i]), gain, c);
    cs[i] = c;
  }
}

template <class Dot>
void hq_poly_t_pass(HqPolyTJob *job) {
  const HqKernel &k = *job->kernel;
  HqPos pos = job->pos, last = job->last;
  if (hq_identity(pos, job->step) && job->gain == (1 << 29)) {
    // Each input at its own output, half the kernel on.
    const int64_t at = pos.i + k.taps / 2 - job->acc_base;
    for (uint32_t c = 0; c < job->channels; ++c)
      for (uint32_t t = 0; t < job->count; ++t)
        job->acc[c * job->astride + at + t] += int64_t{job->x[c * job->xstride + t]} * (int64_t{1} << 30);
    job->last = HqPos{pos.i + job->count - 1, 0, 0};
    job->pos = HqPos{pos.i + job->count, 0, 0};
    return;
  }
  // Read once: the stores of taps below could otherwise alias them.
  const HqStep step = job->step;
  const HqPhaseCache cache = job->cache;
  const uint64_t den = step.den;
  const int32_t gain = job->gain;
  const int64_t base = job->acc_base;
  const uint32_t count = job->count, taps = k.taps;
  const bool cached = hq_on_grid(cache, pos, den);
  const bool all_made = cached && hq_rows_made(cache, pos, step);
  // The inputs go to the sums a batch at a time, each input's taps and first
  // sum found first (blended taps one row of coef each).
  const uint32_t batch = cached || job->coef_rows > kHqDepositBatch ? kHqDepositBatch : job->coef_rows;
  const int32_t *cs[kHqDepositBatch];
  uint32_t at[kHqDepositBatch];
  for (uint32_t t = 0; t < count;) {
    const uint32_t n = count - t < batch ? count - t : batch;
    if (cached) {
      hq_cached_batch<Dot>(cache, k, step, gain, base, n, all_made, &pos, &last, cs, at);
    } else {
      hq_blend_batch<Dot>(k, &pos, &last, step, gain, base, n, job->coef, cs, at);
    }
    Dot::deposits(job->acc, job->astride, job->channels, job->x + t, job->xstride, cs, at, n, taps);
    t += n;
  }
  job->pos = pos;
  job->last = last;
}

// The samples' way in, between lines and out, plainly: builds without a
// faster form use these.
inline int32_t hq_in16(int16_t v) { return int32_t{v} * (1 << 14); }
inline int32_t hq_in32(int32_t v) { return v >> 2; }
inline int32_t hq_out32(int32_t y) { return (y > (1 << 29) - 1 ? (1 << 29) - 1 : y < -(1 << 29) ? -(1 << 29) : y) * 4; }
inline int16_t hq_out16(int32_t y) {
  const int32_t v = (y + (1 << 13)) >> 14;
  return static_cast<int16_t>(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
}

inline void hq_take_plain(const void *src, bool s32, uint32_t channels, uint32_t frames, uint32_t ways,
                          int32_t *const *to) {
  for (uint32_t c = 0; c < channels; ++c)
    for (uint32_t i = 0; i < frames; ++i) {
      const size_t at = size_t{i} * channels + c;
      const int32_t v = s32 ? hq_in32(static_cast<const int32_t *>(src)[at]) : hq_in16(static_cast<const int16_t *>(src)[at]);
      if (ways == 1)
        to[c][i] = v;
      else
        to[2 * c + (i & 1)][i / 2] = v;
    }
}

inline void hq_split_plain(const int32_t *y, uint32_t n, int32_t *even, int32_t *odd) {
  for (uint32_t i = 0; i + 1 < n; i += 2) {
    even[i / 2] = y[i];
    odd[i / 2] = y[i + 1];
  }
  if (n & 1) even[n / 2] = y[n - 1];
}

inline void hq_give_plain(const int32_t *const *from, uint32_t channels, uint32_t n, bool s32, void *out) {
  for (uint32_t c = 0; c < channels; ++c)
    for (uint32_t i = 0; i < n; ++i) {
      const size_t at = size_t{i} * channels + c;
      if (s32)
        static_cast<int32_t *>(out)[at] = hq_out32(from[c][i]);
      else
        static_cast<int16_t *>(out)[at] = hq_out16(from[c][i]);
    }
}

inline void hq_round_sums_plain(const int64_t *sums, uint32_t n, int32_t *y) {
  for (uint32_t j = 0; j < n; ++j) y[j] = hq_round(sums[j], 30);
}

struct HqPlainIo {
  static void take(const void *src, bool s32, uint32_t channels, uint32_t frames, uint32_t ways, int32_t *const *to) {
    hq_take_plain(src, s32, channels, frames, ways, to);
  }
  static void split(const int32_t *y, uint32_t n, int32_t *even, int32_t *odd) { hq_split_plain(y, n, even, odd); }
  static void give(const int32_t *const *from, uint32_t channels, uint32_t n, bool s32, void *out) {
    hq_give_plain(from, channels, n, s32, out);
  }
};

template <class Dot>
constexpr HqKernels make_hq_kernels() {
  return HqKernels{Dot::half_up,         Dot::half_down,    hq_blend<Dot>,       hq_dots<Dot>,
                   hq_deposits<Dot>,      Dot::round_sums,   hq_poly_pass<Dot>,   hq_poly_t_pass<Dot>,
                   Dot::take,             Dot::split,        Dot::give};
}

}  // namespace
}  // namespace rsmpl

#endif
