// SPDX-License-Identifier: MIT
// The high-quality resampler's ratio: the polyphase stage's step for a
// ratio of the whole chain, taken over from the current position on.
#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

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
// output (twice the output rate) per input (2^k input frames).
void hq_set_ratio(RSMPL_HqState *st, uint64_t l, uint64_t m) {
  const unsigned shift = st->octaves + 1;
  take_step(st, st->up != 0 ? hq_step_exact(m << shift, l) : hq_step_exact(l << shift, m));
  st->ratio_out = l;
  st->ratio_in = m;
}

void hq_set_scale(RSMPL_HqState *st, uint64_t scale) {
  const unsigned shift = st->octaves + 1;
  const U128 in{st->nominal_in}, out{st->nominal_out};
  // The step in 64-bit fixed point.
  const U128 q = st->up != 0 ? ((in << shift) << 96) / (out * U128{scale})
                             : (((out << shift) * U128{scale}) << 32) / in;
  take_step(st, hq_step_fixed(static_cast<uint32_t>((q >> 64).low()), q.low()));
  st->ratio_out = st->ratio_in = 0;
}

bool hq_ratio_at_most_one(const RSMPL_HqState *st) {
  if (st->ratio_out != 0) return st->ratio_out <= st->ratio_in;
  const U128 unit = (U128{st->step.den} << 32) << (st->octaves + 1);
  const U128 s = hq_step_numerator(st->step);
  return st->up != 0 ? !(s < unit) : !(unit < s);
}

}  // namespace rsmpl
