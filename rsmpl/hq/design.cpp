// SPDX-License-Identifier: MIT
// Set-up of the high-quality resampler: the filter for a pair of rates, its
// coefficients for a phase grid, and the ratio. Everything here is integer
// arithmetic over the constant prototype tables, so every CPU derives the same
// coefficients; divisions happen here, never per sample.
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "rsmpl/hq/state.h"
#include "rsmpl/hq/tables.h"
#include "rsmpl/rational.h"

namespace rsmpl {
namespace {

constexpr uint32_t round_up(uint32_t v, uint32_t a) { return (v + a - 1) / a * a; }

// The prototype at u / den table entries from its centre (u >= 0), Q30, by
// four-point Lagrange interpolation between entries with weights in Q30.
// Entries before the centre mirror those after it.
int64_t prototype_at(uint64_t u, uint64_t den) {
  const int32_t *table = kHqPrototype;
  const uint64_t j = u / den;
  if (j >= static_cast<uint64_t>(kHqHalf) * kHqOversample) return 0;
  // f in Q16: the fraction between entries j and j + 1.
  const int64_t f = static_cast<int64_t>(((u % den) << 16) / den);
  const int64_t one = 1 << 16;
  // The four Lagrange weights at -1, 0, 1, 2, each a product of three Q16
  // factors (Q48) brought to Q30.
  const int64_t fm1 = f + one, f0 = f, f1 = f - one, f2 = f - 2 * one;
  const int64_t w[4] = {-(f0 * f1 / 6 * f2 >> 18), (fm1 * f1 / 2 * f2 >> 18),
                        -(fm1 * f0 / 2 * f2 >> 18), (fm1 * f0 / 6 * f1 >> 18)};
  int64_t sum = 0;
  for (int i = 0; i < 4; ++i) {
    const int64_t idx = static_cast<int64_t>(j) - 1 + i;
    sum += w[i] * table[idx < 0 ? -idx : idx];
  }
  return (sum + (int64_t{1} << 29)) >> 30;
}

}  // namespace

HqDesign hq_design(uint32_t in_rate, uint32_t out_rate, uint32_t channels) {
  HqDesign d{};
  const bool down = out_rate < in_rate;
  d.half = kHqHalf;
  // Taps cover the prototype stretched to the input rate: ceil(half * in /
  // out) input samples a side when downsampling, half when upsampling.
  const uint64_t reach = down ? (static_cast<uint64_t>(d.half) * in_rate + out_rate - 1) / out_rate
                              : d.half;
  d.taps = round_up(static_cast<uint32_t>(2 * reach), kHqTapAlign);
  d.max_phases = kHqMaxCoefficients / d.taps;
  // A pass holds the last window, one chunk and the largest step between
  // outputs (at most 1/16 beyond the rates' ratio).
  const uint32_t step = in_rate / out_rate + in_rate / out_rate / 16 + 2;
  d.line_cap = d.taps + kHqChunk + step;
  const uint64_t bytes =
      sizeof(RSMPL_HqState) +
      2 * (static_cast<uint64_t>(d.max_phases) * 2 * d.taps +
           static_cast<uint64_t>(channels) * (d.line_cap + 2 * (d.line_cap + kHqPairSlack)));
  d.bytes = static_cast<uint32_t>(round_up(static_cast<uint32_t>(bytes), 8));
  return d;
}

HqDirect hq_direct(uint32_t l, uint32_t m, uint32_t taps, uint32_t line_cap) {
  const uint32_t d = l > m ? l : m;
  if (d < 2 || d > static_cast<uint32_t>(kHqDirectMax)) return {};
  // 2 half lower-rate samples, which are M / L input samples each when
  // downsampling, rounded up so that the taps pair off M apart.
  const uint32_t span = 2 * kHqDirectHalf;
  const uint32_t reach = l < m ? (span * m + l - 1) / l : span;
  const uint32_t active = round_up(reach, 2 * m);
  // Its pairs must fit the coefficient area beside L + 1 phases of hi and lo.
  if (active > taps || (kHqDirectMax + 1) * 2 * taps + 4 * l * active / 2 >
                           kHqMaxCoefficients / taps * 2 * taps)
    return {};
  return {d, active, (line_cap + m - 1) / m + kHqLanes + 1};
}

// Coefficient c of tap k at grid phase q sits at distance d = k - T/2 + 1 -
// q/P input samples from the output's position, which is d out/in lower-rate
// samples when downsampling (d when upsampling), where the prototype is
// scaled by out/in to keep unit gain. A direct design puts its `active` taps
// in the middle of the window, at distances (j / D) lower-rate samples with j
// = (k' - active/2 + 1) L - q for its tap k', scaled by L/M when
// downsampling. Each phase is then corrected to sum to exactly 2^F, so every
// phase passes DC unchanged.
bool hq_build_phases(RSMPL_HqState *st, uint32_t phases, uint32_t l, uint32_t m,
                     const HqDirect &design) {
  const uint32_t taps = st->taps;
  const bool down = st->out_rate < st->in_rate;
  // S: T 2^S < 2^17 keeps the sum of |x lo| below 2^31; F = 14 + S puts the
  // prototype's peak (1.0) at 2^14 in hi.
  uint32_t s = kHqHiShift;
  while ((static_cast<uint64_t>(taps) << s) >= (1u << 17)) --s;
  const uint32_t f = kHqHiShift + s;
  const uint64_t den = static_cast<uint64_t>(phases) * (down ? st->in_rate : 1);
  const uint64_t scale = static_cast<uint64_t>(kHqOversample) * (down ? st->out_rate : 1);
  const uint32_t direct = design.d, active = design.active;
  const int64_t gain_num = direct ? (l < m ? l : 1) : (down ? st->out_rate : 1);
  const int64_t gain_den = direct ? (l < m ? m : 1) : (down ? st->in_rate : 1);
  const uint32_t skip = (taps - active) / 2;
  const int32_t *side = kHqDirect + hq_direct_start(static_cast<int>(direct));
  const int64_t edge = static_cast<int64_t>(kHqDirectHalf) * direct;
  int16_t *coef = st->coefficients();
  int64_t c[2048];
  if (taps > 2048) return false;
  for (uint32_t q = 0; q <= phases; ++q) {
    int64_t sum = 0;
    uint32_t peak = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      int64_t v = 0;  // Q30
      if (direct == 0) {
        const int64_t dist = (static_cast<int64_t>(k) - taps / 2 + 1) * phases - q;  // d P
        v = prototype_at(static_cast<uint64_t>(dist < 0 ? -dist : dist) * scale, den);
      } else if (k >= skip && k < skip + active) {
        const int64_t j = (static_cast<int64_t>(k - skip) - active / 2 + 1) * l - q;
        const int64_t at = j < 0 ? -j : j;
        v = at <= edge ? side[at] : 0;
      }
      // To Q(F), scaled by the gain, rounded half up.
      const int64_t num = v * gain_num;
      const int64_t div = gain_den << (30 - f);
      v = num >= 0 ? (num + div / 2) / div : -((-num + div / 2) / div);
      c[k] = v;
      sum += v;
      if ((v < 0 ? -v : v) > (c[peak] < 0 ? -c[peak] : c[peak])) peak = k;
    }
    c[peak] += (int64_t{1} << f) - sum;
    int16_t *hi = coef + static_cast<size_t>(q) * 2 * taps;
    int16_t *lo = hi + taps;
    int64_t hi_abs = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      const int64_t h = (c[k] + (int64_t{1} << (s - 1))) >> s;
      const int64_t l = c[k] - h * (int64_t{1} << s);
      if (h > 32767 || h < -32767) return false;
      hi[k] = static_cast<int16_t>(h);
      lo[k] = static_cast<int16_t>(l);
      hi_abs += h < 0 ? -h : h;
    }
    // sum_hi, and sum_hi plus sum_lo / 2^S, stay within 32 bits.
    if (hi_abs * 32768 + (int64_t{1} << (31 - s)) >= (int64_t{1} << 31)) return false;
  }
  st->lo_shift = s;
  st->out_shift = f;
  st->phases = phases;
  st->direct = direct;
  st->active = active;
  st->pair_stride = design.stride;
  st->folded = 0;
  if (direct != 0) hq_build_pairs(st, l, m);
  return true;
}

void hq_build_pairs(RSMPL_HqState *st, uint32_t l, uint32_t m) {
  // Pair i groups + g holds taps b and b + M counted back from the newest of
  // the active window, b = 2 M g + i: (hi, hi) then (lo, lo). Each i's pairs
  // are consecutive, in the order the lane kernels take them.
  const uint32_t taps = st->taps, active = st->active, groups = active / (2 * m);
  const uint32_t newest = (taps - active) / 2 + active - 1;
  int16_t *out = st->pair_coefficients();
  for (uint32_t q = 0; q < l; ++q) {
    const int16_t *hi = st->coefficients() + static_cast<size_t>(q) * 2 * taps;
    const int16_t *lo = hi + taps;
    for (uint32_t i = 0; i < m; ++i)
      for (uint32_t g = 0; g < groups; ++g, out += 4) {
        const uint32_t b = 2 * m * g + i;
        out[0] = hi[newest - b];
        out[1] = hi[newest - b - m];
        out[2] = lo[newest - b];
        out[3] = lo[newest - b - m];
      }
  }
  // A decimating design is one phase, symmetric about its centre tap but for
  // rounding; it folds when it is exactly so.
  st->folded = 0;
  if (l != 1 || (active / (2 * m)) % 2 != 0) return;
  const int16_t *hi = st->coefficients(), *lo = hi + taps;
  auto tap = [&](const int16_t *v, uint32_t b) { return v[newest - b]; };
  bool folds = tap(hi, 0) == 0 && tap(lo, 0) == 0;
  for (uint32_t b = 1; b < active && folds; ++b)
    folds = tap(hi, b) == tap(hi, active - b) && tap(lo, b) == tap(lo, active - b);
  st->folded = folds ? 1 : 0;
}

void hq_lines_from_pairs(RSMPL_HqState *st) {
  const uint32_t m = st->ratio_in;
  const size_t row_size = 2 * static_cast<size_t>(st->pair_stride);
  for (uint32_t c = 0; c < st->channels; ++c)
    for (uint32_t i = 0; i < st->fill; ++i)
      st->line(c)[i] = st->pairs(c)[(i % m) * row_size + 2 * static_cast<size_t>(i / m)];
}

void hq_fill_pairs(RSMPL_HqState *st, uint32_t from, uint32_t to) {
  const uint32_t m = st->ratio_in, stride = st->pair_stride;
  // Row r holds positions i = r, r + M, ...: from `from` on, the first is
  // `from` + ((r - from) mod M), at i / M.
  const uint32_t first_row = from % m, first_at = from / m;
  for (uint32_t c = 0; c < st->channels; ++c) {
    const int16_t *line = st->line(c);
    for (uint32_t k = 0; k < m; ++k) {
      const uint32_t r = (first_row + k) % m;
      const uint32_t i0 = from + k, at = first_at + (first_row + k) / m;
      int16_t *pair = st->pairs(c) + 2 * (static_cast<size_t>(r) * stride + at);
      uint32_t i = i0;
      for (; i < to && i < m; i += m, pair += 2) {
        pair[0] = line[i];
        pair[1] = 0;
      }
      for (; i < to; i += m, pair += 2) {
        pair[0] = line[i];
        pair[1] = line[i - m];
      }
    }
  }
}

bool hq_set_ratio(RSMPL_HqState *st, uint32_t out_frames, uint32_t in_frames) {
  const uint64_t g = std::gcd(uint64_t{out_frames}, uint64_t{in_frames});
  const uint32_t l = static_cast<uint32_t>(out_frames / g);
  const uint32_t m = static_cast<uint32_t>(in_frames / g);
  const HqDirect direct = hq_direct(l, m, st->taps, st->line_cap);
  const uint32_t phases = l < st->max_phases ? l : st->max_phases - 1;
  // A direct design depends on L and M, the prototype's grid on P only.
  const bool rebuild = phases != st->phases || direct.d != st->direct ||
                       (direct.d != 0 && (l != st->ratio_out || m != st->ratio_in));
  const bool new_pairs = direct.d != 0 && (st->direct == 0 || m != st->ratio_in);
  // A direct design keeps its samples in the pair rows alone: back to the
  // lines before they are read another way.
  if (st->direct != 0 && (direct.d == 0 || m != st->ratio_in)) hq_lines_from_pairs(st);
  if (rebuild && !hq_build_phases(st, phases, l, m, direct)) return false;
  // The position carries over: the same integer sample, the phase rounded
  // down to the new grid.
  const uint32_t r = st->ratio_out == 0
                         ? 0
                         : static_cast<uint32_t>(static_cast<uint64_t>(st->r) * l / st->ratio_out);
  st->ratio_out = l;
  st->ratio_in = m;
  st->step_int = m / l;
  st->step_frac = m % l;
  const uint64_t grid = static_cast<uint64_t>(st->step_frac) * phases;
  st->grid_int = static_cast<uint32_t>(grid / l);
  st->grid_frac = static_cast<uint32_t>(grid % l);
  st->weight_inv = (uint64_t{1} << 40) / l;
  st->r = r;
  st->q = static_cast<uint32_t>(static_cast<uint64_t>(r) * phases / l);
  st->rem = static_cast<uint32_t>(static_cast<uint64_t>(r) * phases % l);
  if (new_pairs) hq_fill_pairs(st, 0, st->fill);
  return true;
}

void hq_reset(RSMPL_HqState *st) {
  for (uint32_t c = 0; c < st->channels; ++c) {
    std::memset(st->line(c), 0, sizeof(int16_t) * st->line_cap);
    std::memset(st->pairs(c), 0, sizeof(int16_t) * st->pair_line_size());
  }
  st->fill = st->taps - 1;
  st->end = st->taps - 1;
  st->r = 0;
  st->q = 0;
  st->rem = 0;
}

uint64_t hq_outputs_for(const RSMPL_HqState *st, uint64_t in_frames) {
  return outputs_ready({st->fill, st->end, st->r, st->ratio_out, st->ratio_in}, in_frames);
}

uint64_t hq_inputs_for(const RSMPL_HqState *st, uint64_t out_frames) {
  return inputs_needed({st->fill, st->end, st->r, st->ratio_out, st->ratio_in}, out_frames);
}

}  // namespace rsmpl
