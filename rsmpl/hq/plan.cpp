// SPDX-License-Identifier: MIT
// The high-quality resampler's chain for a pair of rates (rsmpl/hq/state.h
// draws it), the room each stage's lines need per pass, and the state's
// layout. Integer arithmetic only, so every CPU plans the same chain.
#include <cstring>
#include <numeric>

#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

constexpr uint32_t round_up(uint32_t v, uint32_t a) { return (v + a - 1) / a * a; }

// Ratios may stray this far either way from the rates' own (see the
// window in skelda/rsmpl_hq.h): 9/8 of a stage's nominal count bounds it.
uint64_t most(uint64_t in, uint64_t num, uint64_t den) { return (in * num * 9 + den * 8 - 1) / (den * 8) + 2; }

}  // namespace

const HqHalfband &hq_halfband(const RSMPL_HqState &st, uint32_t s) {
  const HqGrade &g = st.design();
  return st.stage[s].design == 0 ? g.sharp : g.relaxed[st.stage[s].design - 1];
}

namespace {

// The single stage (rsmpl/hq/direct.h): int16 lines of its taps' history
// and a pass, the queue, two channels' scratch, the rows and their bits.
uint32_t plan_direct(RSMPL_HqState &plan) {
  const HqDirectDesign d = hq_direct_design(plan.in_rate, plan.out_rate);
  plan.direct = d;
  plan.up = 1;  // it steps per output, as the chain's polyphase stage going up
  plan.lift = 0;
  plan.octaves = 0;
  plan.stages = 1;
  plan.poly = 0;
  const uint64_t num = plan.nominal_out, den = plan.nominal_in;
  const uint64_t peak = most(2048, num, den) / 1024 + 2;
  uint64_t pass = kHqPassSamples / peak;
  if (pass > kHqMaxPass) pass = kHqMaxPass;
  plan.pass = static_cast<uint32_t>(pass);
  HqStage &st = plan.stage[0];
  st.kind = kHqDirect;
  st.hist = d.taps;
  st.cap = st.hist + plan.pass + 2;
  st.stride = round_up(st.cap + 16, 16) / 2;  // int16 samples, two an int32
  st.at = 0;
  uint32_t at = plan.channels * st.stride;
  plan.fifo_cap = round_up(static_cast<uint32_t>(most(pass, num, den)) + 8, 8);
  plan.fifo_at = at;
  at += plan.channels * plan.fifo_cap;
  plan.coef_at = at;
  plan.scratch_at = at;
  at += round_up(2 * plan.channels, 8);
  plan.cache_at = at;
  at += static_cast<uint32_t>((uint64_t{d.rows_cap} * hq_direct_row_bytes(d.taps) + 3) / 4);
  plan.made_at = at;
  at += (d.rows_cap + 31) / 32;
  plan.acc_at = round_up(at, 2);
  plan.acc_cap = 0;
  return plan.acc_at;
}

}  // namespace

uint32_t hq_plan(uint32_t in_rate, uint32_t out_rate, uint32_t channels, uint32_t grade,
                 RSMPL_HqState *st) {
  // Planned in place (every Process call plans its state's rates again to
  // check it), from zero.
  RSMPL_HqState aside;
  RSMPL_HqState &plan = st != nullptr ? *st : aside;
  std::memset(&plan, 0, sizeof plan);
  plan.in_rate = in_rate;
  plan.out_rate = out_rate;
  plan.channels = channels;
  plan.grade = grade;
  if (grade == kHqGrade16 && hq_direct_fits(in_rate, out_rate)) {
    const uint64_t g = std::gcd(uint64_t{in_rate}, uint64_t{out_rate});
    plan.nominal_out = out_rate / g;
    plan.nominal_in = in_rate / g;
    const uint32_t at = plan_direct(plan);
    plan.bytes = static_cast<uint32_t>(sizeof(RSMPL_HqState) + uint64_t{at} * sizeof(int32_t));
    if (st != nullptr) std::memcpy(st, &plan, sizeof plan);
    return plan.bytes;
  }
  plan.up = out_rate >= in_rate ? 1 : 0;
  plan.lift = 1;
  // k: how many octaves of relaxed half-bands lie between the polyphase
  // stage and the higher rate.
  uint32_t k = 0;
  const uint64_t high = plan.up ? out_rate : in_rate, low = plan.up ? in_rate : out_rate;
  while (high >= (low << (k + 2))) ++k;
  plan.octaves = k;
  // The polyphase stage's nominal count ratio num / den (outputs per input).
  const uint64_t g = std::gcd(uint64_t{in_rate}, uint64_t{out_rate});
  plan.nominal_out = out_rate / g;
  plan.nominal_in = in_rate / g;
  const uint64_t num = plan.up ? plan.nominal_out : plan.nominal_out << (k + 1);
  const uint64_t den = plan.up ? plan.nominal_in << (k + 1) : plan.nominal_in;
  uint32_t n = 0;
  auto add = [&](uint32_t kind, uint32_t design) {
    plan.stage[n].kind = kind;
    plan.stage[n].design = design;
    ++n;
  };
  if (plan.up) {
    add(kHqHalfUp, 0);
    plan.poly = n;
    add(kHqPoly, 0);
    for (uint32_t j = 1; j <= k; ++j) add(kHqHalfUp, j < 3 ? j : 3);
  } else {
    for (uint32_t j = k; j >= 1; --j) add(kHqHalfDown, j < 3 ? j : 3);
    plan.poly = n;
    add(kHqPolyT, 0);
    add(kHqHalfDown, 0);
  }
  plan.stages = n;
  // Input frames per pass: the busiest stage takes in about
  // kHqPassSamples samples at most.
  const uint64_t peak = plan.up ? (most(2048, num, den) << k) / 1024 + 2 : 1;
  uint64_t pass = kHqPassSamples / (peak < 2 ? 1 : peak);
  if (pass > kHqMaxPass) pass = kHqMaxPass;
  if (pass < 1) pass = 1;
  plan.pass = static_cast<uint32_t>(pass);
  // Each stage's lines: history plus what one pass brings.
  const HqKernel &kernel = plan.design().kernel;
  uint64_t in = pass;
  uint32_t at = 0;
  uint32_t acc_cap = 0;
  uint64_t widest = 0;
  for (uint32_t s = 0; s < n; ++s) {
    HqStage &st_s = plan.stage[s];
    uint64_t out = 0, per_line = in;
    uint32_t lines = channels;
    switch (st_s.kind) {
      case kHqHalfUp:
        st_s.hist = 2 * hq_halfband(plan, s).half - 1;
        out = 2 * in;
        break;
      case kHqHalfDown:
        st_s.hist = 2 * hq_halfband(plan, s).half - 1;
        per_line = in / 2 + 2;
        lines = 2 * channels;
        out = in / 2 + 2;
        break;
      case kHqPoly:
        st_s.hist = kernel.taps;
        out = most(in, num, den);
        break;
      default:  // kHqPolyT: its input is used up every pass; its sums carry over
        st_s.hist = 0;
        out = most(in, num, den);
        acc_cap = round_up(static_cast<uint32_t>(out) + kernel.taps + 4, 2);
        break;
    }
    st_s.cap = st_s.hist + static_cast<uint32_t>(per_line) + 2;
    st_s.stride = round_up(st_s.cap + 8, 8);  // kernels may read 8 samples past
    st_s.at = at;
    at += lines * st_s.stride;
    if (out > widest) widest = out;
    in = out;
  }
  plan.fifo_cap = round_up(static_cast<uint32_t>(in) + (1u << k) + 8, 8);
  plan.fifo_at = at;
  at += channels * plan.fifo_cap;
  plan.coef_at = at;
  at += 4 * round_up(kernel.taps, 8);
  plan.scratch_at = at;
  at += round_up(static_cast<uint32_t>(widest), 8);
  plan.cache_at = at;
  plan.cache_cap = grade == kHqGrade16 ? kHqCachePhases16 : kHqCachePhases24;
  at += plan.cache_cap * kernel.taps;
  plan.made_at = at;
  at += (plan.cache_cap + 31) / 32;
  plan.acc_cap = acc_cap;
  plan.acc_at = round_up(at, 2);
  at = plan.acc_at + 2 * acc_cap * channels;
  const uint64_t bytes = sizeof(RSMPL_HqState) + uint64_t{at} * sizeof(int32_t);
  plan.bytes = static_cast<uint32_t>(bytes);
  return plan.bytes;
}

}  // namespace rsmpl
