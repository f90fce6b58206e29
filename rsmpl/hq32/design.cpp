// SPDX-License-Identifier: MIT
// Set-up of the 32-bit high-quality resampler: the filter for a pair of
// rates, its coefficients for a phase grid, and the ratio. Everything here is
// integer arithmetic over the constant prototype table, so every CPU derives
// the same coefficients; divisions happen here, never per sample.
#include <cstring>
#include <numeric>

#include "rsmpl/hq32/state.h"
#include "rsmpl/hq32/tables.h"
#include "rsmpl/rational.h"

namespace rsmpl {
namespace {

static_assert(sizeof(RSMPL_Hq32State) == 128, "the header keeps the coefficients 32-byte aligned");

constexpr uint32_t round_up(uint32_t v, uint32_t a) { return (v + a - 1) / a * a; }
constexpr int64_t kOne = int64_t{1} << 30;  // 1.0 in Q30

// The prototype at u / den table entries from its centre (u >= 0,
// den < 2^30), Q30, by four-point Lagrange interpolation between entries,
// with the fraction and the weights in Q30. Entries before the centre
// mirror those after it.
int64_t prototype_at(uint64_t u, uint64_t den) {
  const uint64_t j = u / den;
  if (j >= static_cast<uint64_t>(kHq32Half) * kHq32Oversample) return 0;
  const int64_t f = static_cast<int64_t>(((u % den) << 30) / den);
  // Each weight a product of three Q30 factors, taken two at a time; no
  // partial product passes 2^62.
  const int64_t fm1 = f + kOne, f0 = f, f1 = f - kOne, f2 = f - 2 * kOne;
  auto q30 = [](int64_t a, int64_t b) { return (a * b) >> 30; };
  const int64_t w[4] = {-q30(q30(f0, f1), f2) / 6, q30(q30(fm1, f1), f2) / 2,
                        -q30(q30(fm1, f0), f2) / 2, q30(q30(fm1, f0), f1) / 6};
  int64_t sum = 0;
  for (int i = 0; i < 4; ++i) {
    const int64_t idx = static_cast<int64_t>(j) - 1 + i;
    sum += w[i] * kHq32Prototype[idx < 0 ? -idx : idx];
  }
  return (sum + (kOne >> 1)) >> 30;
}

int64_t magnitude(int64_t v) { return v < 0 ? -v : v; }

}  // namespace

Hq32Design hq32_design(uint32_t in_rate, uint32_t out_rate, uint32_t channels) {
  Hq32Design d{};
  const bool down = out_rate < in_rate;
  // The prototype stretched to the input rate reaches ceil(half in / out)
  // input samples a side when downsampling, half when upsampling.
  d.reach = down ? static_cast<uint32_t>((uint64_t{kHq32Half} * in_rate + out_rate - 1) / out_rate)
                 : kHq32Half;
  d.taps = round_up(2 * d.reach, kHq32TapAlign);
  d.max_phases = kHq32MaxCoefficients / d.taps;
  // A pass holds the last window, one chunk and the largest step between
  // outputs (at most 1/16 beyond the rates' ratio).
  const uint32_t step = in_rate / out_rate + in_rate / out_rate / 16 + 2;
  d.line_cap = d.taps + kHq32Chunk + step;
  const uint64_t samples = uint64_t{d.max_phases} * d.taps + kHq32Pad +
                           uint64_t{channels} * (d.line_cap + kHq32Pad) +
                           uint64_t{kHq32ScratchFrames} * channels;
  // A whole number of the state's alignment, so that states can sit one
  // after another and a block of 64-bit words holds one exactly.
  d.bytes = round_up(static_cast<uint32_t>(sizeof(RSMPL_Hq32State) + 4 * samples),
                     static_cast<uint32_t>(alignof(RSMPL_Hq32State)));
  return d;
}

// Tap k of phase q sits at d = k - (T - 1) + D - q/P input frames from the
// output's time, d P = (k - T + 1 + D) P - q; the prototype's argument is
// |d| lower-rate samples when upsampling and |d| out/in when downsampling,
// where the gain out/in keeps unit gain. In table entries that is
// |d P| K out / (P in), or |d P| K / P. Each phase is then corrected to sum
// to exactly 2^30 by its largest coefficient, so every phase passes DC
// unchanged.
bool hq32_build_phases(RSMPL_Hq32State *st, uint32_t phases) {
  const uint32_t taps = st->taps, reach = st->reach;
  const bool down = st->out_rate < st->in_rate;
  const uint64_t den = uint64_t{phases} * (down ? st->in_rate : 1);
  const uint64_t scale = uint64_t{kHq32Oversample} * (down ? st->out_rate : 1);
  const int64_t gain_num = down ? st->out_rate : 1, gain_den = down ? st->in_rate : 1;
  if (den >= (uint64_t{1} << 30) || uint64_t{phases + 1} * taps > uint64_t{st->max_phases} * taps)
    return false;
  int32_t *coef = st->coefficients();
  for (uint32_t q = 0; q <= phases; ++q) {
    int32_t *c = coef + static_cast<size_t>(q) * taps;
    int64_t sum = 0;
    uint32_t peak = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      const int64_t dist = (static_cast<int64_t>(k) - taps + 1 + reach) * phases - q;  // d P
      const int64_t v = prototype_at(static_cast<uint64_t>(magnitude(dist)) * scale, den);
      // Scaled by the gain, rounded half away from zero.
      const int64_t g = (magnitude(v) * gain_num * 2 + gain_den) / (2 * gain_den);
      c[k] = static_cast<int32_t>(v < 0 ? -g : g);
      sum += c[k];
      if (magnitude(c[k]) > magnitude(c[peak])) peak = k;
    }
    c[peak] = static_cast<int32_t>(c[peak] + (kOne - sum));
    // No sum of 32-bit samples may leave 63 bits: not this phase's, nor
    // the difference of this phase and the one before it.
    int64_t abs_sum = 0, diff_sum = 0;
    for (uint32_t k = 0; k < taps; ++k) {
      abs_sum += magnitude(c[k]);
      if (q > 0) diff_sum += magnitude(int64_t{c[k]} - c[static_cast<ptrdiff_t>(k) - taps]);
    }
    if (abs_sum >= (int64_t{1} << 32) || diff_sum >= (int64_t{1} << 32)) return false;
  }
  std::memset(coef + static_cast<size_t>(phases + 1) * taps, 0, sizeof(int32_t) * kHq32Pad);
  st->phases = phases;
  return true;
}

bool hq32_set_ratio(RSMPL_Hq32State *st, uint32_t out_frames, uint32_t in_frames) {
  const uint64_t g = std::gcd(uint64_t{out_frames}, uint64_t{in_frames});
  const uint32_t l = static_cast<uint32_t>(out_frames / g);
  const uint32_t m = static_cast<uint32_t>(in_frames / g);
  const uint32_t phases = l < st->max_phases ? l : st->max_phases - 1;
  if (phases != st->phases && !hq32_build_phases(st, phases)) return false;
  // The position carries over: the same integer sample, the phase rounded
  // down to the new grid.
  const uint32_t r = st->ratio_out == 0
                         ? 0
                         : static_cast<uint32_t>(uint64_t{st->r} * l / st->ratio_out);
  st->ratio_out = l;
  st->ratio_in = m;
  st->step_int = m / l;
  st->step_frac = m % l;
  const uint64_t grid = uint64_t{st->step_frac} * phases;
  st->grid_int = static_cast<uint32_t>(grid / l);
  st->grid_frac = static_cast<uint32_t>(grid % l);
  st->weight_inv = (uint64_t{1} << 40) / l;
  st->r = r;
  st->q = static_cast<uint32_t>(uint64_t{r} * phases / l);
  st->rem = static_cast<uint32_t>(uint64_t{r} * phases % l);
  return true;
}

void hq32_reset(RSMPL_Hq32State *st) {
  for (uint32_t c = 0; c < st->channels; ++c)
    std::memset(st->line(c), 0, sizeof(int32_t) * st->line_stride());
  st->fill = st->taps - 1;
  st->end = st->taps - 1;
  st->r = 0;
  st->q = 0;
  st->rem = 0;
  st->noise = kHq32NoiseSeed;
}

uint64_t hq32_outputs_for(const RSMPL_Hq32State *st, uint64_t in_frames) {
  return outputs_ready({st->fill, st->end, st->r, st->ratio_out, st->ratio_in}, in_frames);
}

uint64_t hq32_inputs_for(const RSMPL_Hq32State *st, uint64_t out_frames) {
  return inputs_needed({st->fill, st->end, st->r, st->ratio_out, st->ratio_in}, out_frames);
}

}  // namespace rsmpl
