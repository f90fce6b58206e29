// SPDX-License-Identifier: MIT
// The high-quality resampler's ratio: the polyphase stage's step for a
// ratio of the whole chain, taken over from the current position on.
#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

// A step's value in 2^-64 units: si 2^64 + sf 2^32 + se, over den / 2^32.
U128 fixed_of(const HqStep &s) { return (hq_step_numerator(s) << 32) / U128{s.den}; }

void take_step(RSMPL_HqState *st, const HqStep &s) {
  if (st->step.den != 0) st->pos = hq_rebase(st->pos, st->step.den, s.den);
  st->step = s;
  st->cache_den = 0;  // the made taps were for the old step
  // Going down each input deposits its kernel once per output position it
  // spans: weighted by the step, so that the stage passes DC at unit gain.
  const U128 unit = U128{s.den} << 3;  // the step over 2^29
  st->gain = static_cast<int32_t>(((hq_step_numerator(s) + (unit >> 1)) / unit).low());
}

}  // namespace

// Going up the stage steps 2^(k+1) M / L of its input (twice the input
// rate) per output (2^k final outputs); going down, 2^(k+1) L / M of its
// output (twice the output rate) per input (2^k input frames). The single
// stage steps M / L input frames per output (its lift is 0, not 1).
void hq_set_ratio(RSMPL_HqState *st, uint64_t l, uint64_t m) {
  st->glide_left = 0;
  const unsigned shift = st->octaves + st->lift;
  take_step(st, st->up != 0 ? hq_step_exact(m << shift, l) : hq_step_exact(l << shift, m));
  st->ratio_out = l;
  st->ratio_in = m;
}

namespace {

// The step for a scale of the rates' ratio, in 64-bit fixed point.
HqStep scaled_step(const RSMPL_HqState *st, uint64_t scale) {
  const unsigned shift = st->octaves + st->lift;
  const U128 in{st->nominal_in}, out{st->nominal_out};
  const U128 q = st->up != 0 ? ((in << shift) << 96) / (out * U128{scale})
                             : (((out << shift) * U128{scale}) << 32) / in;
  return hq_step_fixed(static_cast<uint32_t>((q >> 64).low()), q.low());
}

}  // namespace

void hq_set_scale(RSMPL_HqState *st, uint64_t scale) {
  st->glide_left = 0;
  take_step(st, scaled_step(st, scale));
  st->ratio_out = st->ratio_in = 0;
}

// At most this many stairs: a count walks them all.
constexpr uint32_t kMaxStairs = 256;

void hq_glide(RSMPL_HqState *st, uint64_t scale, uint32_t frames) {
  // The polyphase stage's steps over `frames` outputs: one per group going
  // up, about frames in / out / 2^k inputs going down.
  const unsigned k = st->octaves;
  const uint64_t steps = st->up != 0 ? (uint64_t{frames} >> k)
                                     : uint64_t{frames} * st->nominal_in / (st->nominal_out << k);
  if (steps < 2) {
    hq_set_scale(st, scale);
    return;
  }
  const uint32_t stairs = steps < kMaxStairs ? static_cast<uint32_t>(steps) : kMaxStairs;
  // The current step, over 2^32 as the glide's stairs are.
  const U128 from = fixed_of(st->step);
  st->glide_from = hq_step_fixed(static_cast<uint32_t>((from >> 64).low()), from.low());
  take_step(st, st->glide_from);
  st->glide_target = scaled_step(st, scale);
  st->glide_stairs = stairs;
  st->glide_stair = steps / stairs;
  st->glide_left = stairs;
  st->glide_count = st->glide_stair;
  take_step(st, hq_glide_step(st, 1));
  st->ratio_out = st->ratio_in = 0;
}

HqStep hq_glide_step(const RSMPL_HqState *st, uint32_t j) {
  if (j >= st->glide_stairs) return st->glide_target;
  const U128 a = fixed_of(st->glide_from), b = fixed_of(st->glide_target);
  const U128 v = a < b ? a + (b - a) * U128{j} / U128{st->glide_stairs}
                       : a - (a - b) * U128{j} / U128{st->glide_stairs};
  return hq_step_fixed(static_cast<uint32_t>((v >> 64).low()), v.low());
}

void hq_glide_on(RSMPL_HqState *st, uint64_t steps) {
  if (st->glide_left == 0) return;
  st->glide_count -= steps;
  if (st->glide_count != 0) return;
  --st->glide_left;
  const uint32_t j = st->glide_stairs - st->glide_left + 1;
  const HqStep next = hq_glide_step(st, j);
  // The glide's steps share one denominator: no rounding of the position.
  st->step = next;
  const U128 unit = U128{next.den} << 3;
  st->gain = static_cast<int32_t>(((hq_step_numerator(next) + (unit >> 1)) / unit).low());
  st->cache_den = 0;
  st->glide_count = st->glide_stair;
}

bool hq_ratio_at_most_one(const RSMPL_HqState *st) {
  if (st->ratio_out != 0) return st->ratio_out <= st->ratio_in;
  // A glide under way moves the step towards its target within the call:
  // both ends must keep the outputs behind the input.
  auto at_most_one = [st](const HqStep &step) {
    const U128 unit = (U128{step.den} << 32) << (st->octaves + st->lift);
    const U128 s = hq_step_numerator(step);
    return st->up != 0 ? !(s < unit) : !(unit < s);
  };
  return at_most_one(st->step) && (st->glide_left == 0 || at_most_one(st->glide_target));
}

}  // namespace rsmpl
