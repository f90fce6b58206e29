// SPDX-License-Identifier: MIT
// The high-quality resampler's frame counts, exact, from the polyphase
// stage's position.
//
// Going up, final output n stands at T(n) in the polyphase stage's input
// (twice the input rate): n = 2^k m + r is output r of the group the stage's
// output m starts, T(n) = p_m + r s_m / 2^k with s_m the step from p_m to
// p_m+1. Every group made but the last is due (the stage made its
// successor, so even that one's start lay before 2 N); the last one made
// starts at `prev` with step `prev_step`; the next starts at `pos` and runs
// at `step`. Output n is due once T(n) < 2 N after N input frames.
//
// Going down, input frame x (in units of the transposed stage's input, 2^k
// frames each) stands at u(x) in the stage's output (twice the output rate),
// u interpolated between its inputs: `prev` and `prev_step` from the last
// input taken to the next, at `pos` and `step` beyond. Final output n reads
// the stage's output 2n, due once 2n < u(N / 2^k).
//
// Either way the stages never lag these counts: each due output has
// already been made, so a stream at a fixed ratio L / M has written exactly
// ceil(N L / M) frames after N.
#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

constexpr uint64_t kSaturated = uint64_t{1} << 62;

// ceil(v / 2) for v = whole + (fraction ? something in (0, 1) : 0) >= 0.
uint64_t half_up(int64_t whole, bool fraction) {
  if (whole < 0) return 0;
  const uint64_t w = static_cast<uint64_t>(whole);
  return w / 2 + ((w % 2 != 0 || fraction) ? 1 : 0);
}

// u(N / 2^k) for the chain going down, as floor and fraction.
int64_t down_position(const RSMPL_HqState *st, uint64_t n, bool *fraction) {
  const unsigned k = st->octaves;
  const uint64_t next = st->poly_count << k;
  if (n < next) return hq_floor_at(st->prev, st->prev_step, k, n - (next - (uint64_t{1} << k)), fraction);
  return hq_floor_at(st->pos, st->step, k, n - next, fraction);
}

}  // namespace

uint64_t hq_outputs_for(const RSMPL_HqState *st, uint64_t in_frames) {
  const uint64_t n = st->consumed + in_frames;
  const unsigned k = st->octaves;
  if (in_frames > kSaturated) return kSaturated;
  if (st->up == 0) {
    bool fraction = false;
    const int64_t u = down_position(st, n, &fraction);
    const uint64_t due = half_up(u, fraction);
    return due > st->emitted ? due - st->emitted : 0;
  }
  // Every group before the last one made is due (its successor was made);
  // of the last, those before 2 N; then the groups to come.
  const uint64_t group = uint64_t{1} << k;
  const int64_t bound = static_cast<int64_t>(2 * n);
  uint64_t due = 0;
  bool on = true;
  if (st->poly_count != 0) {
    const uint64_t c = hq_count_below(st->prev, st->prev_step, k, bound);
    due = ((st->poly_count - 1) << k) + (c < group ? c : group);
    on = c >= group;
  }
  if (on) due += hq_count_below(st->pos, st->step, k, bound);
  return due > st->emitted ? due - st->emitted : 0;
}

uint64_t hq_inputs_for(const RSMPL_HqState *st, uint64_t out_frames) {
  if (out_frames == 0) return 0;
  if (out_frames > kSaturated) return kSaturated;
  const unsigned k = st->octaves;
  const uint64_t last = st->emitted + out_frames - 1;  // the output that must be due
  uint64_t need = 0;
  if (st->up != 0) {
    const uint64_t group = uint64_t{1} << k, next = st->poly_count << k;
    if (st->poly_count != 0 && last < next - group) return 0;  // made, and due
    bool fraction = false;
    const int64_t t = last < next ? hq_floor_at(st->prev, st->prev_step, k, last - (next - group), &fraction)
                                  : hq_floor_at(st->pos, st->step, k, last - next, &fraction);
    need = t < 0 ? 0 : static_cast<uint64_t>(t) / 2 + 1;
  } else {
    const int64_t y = static_cast<int64_t>(2 * last);
    const uint64_t next = st->poly_count << k;
    const uint64_t before = st->poly_count == 0 ? 0 : next - (uint64_t{1} << k);
    need = st->poly_count == 0 ? next : before + hq_count_at_most(st->prev, st->prev_step, k, y);
    if (need >= next) need = next + hq_count_at_most(st->pos, st->step, k, y);
  }
  if (need >= kSaturated) return kSaturated;
  return need > st->consumed ? need - st->consumed : 0;
}

}  // namespace rsmpl

namespace rsmpl {
namespace {

// p + j s / 2^k as a whole part and a 32-bit fraction (rounded down).
void value_at(const HqPos &p, const HqStep &s, unsigned k, uint64_t j, int64_t *whole, uint32_t *fraction) {
  const U128 num = ((U128{p.f} * U128{s.den} + U128{p.e}) << k) + U128{j} * hq_step_numerator(s);
  const U128 unit = U128{s.den} << k;  // num / unit: the value's 2^-32 units past p.i
  const U128 units = num / unit;
  *whole = p.i + static_cast<int64_t>((units >> 32).low());
  *fraction = static_cast<uint32_t>(units.low());
}

// Where between p (at x = 0) and beyond, stepping s per unit of x, the
// value y lies: x = (y - p) / s, as 2^-32 units of x (y >= p).
U128 units_to(const HqPos &p, const HqStep &s, int64_t y) {
  const U128 gap = ((U128{static_cast<uint64_t>(y - p.i)} * U128{s.den}) << 32) -
                   (U128{p.f} * U128{s.den} + U128{p.e});
  return (gap << 32) / hq_step_numerator(s);
}

}  // namespace

void hq_stream_time(const RSMPL_HqState *st, int64_t *whole, uint32_t *fraction) {
  const unsigned k = st->octaves;
  if (st->up != 0) {
    const uint64_t group = uint64_t{1} << k, next = st->poly_count << k;
    int64_t w = 0;
    uint32_t f = 0;
    if (st->emitted < next)
      value_at(st->prev, st->prev_step, k, st->emitted - (next - group), &w, &f);
    else
      value_at(st->pos, st->step, k, st->emitted - next, &w, &f);
    // Halved: the stage's input runs at twice the input rate.
    *whole = w >> 1;
    *fraction = static_cast<uint32_t>(((static_cast<uint64_t>(w) & 1) << 31) | (f >> 1));
    return;
  }
  // Going down, output n stands where u reaches 2 n.
  const int64_t y = static_cast<int64_t>(2 * st->emitted);
  const bool before = st->poly_count != 0 && !(st->pos.i < y || (st->pos.i == y && st->pos.f == 0 && st->pos.e == 0));
  const HqPos &p = before ? st->prev : st->pos;
  const HqStep &s = before ? st->prev_step : st->step;
  const uint64_t start = before ? st->poly_count - 1 : st->poly_count;  // x at p
  // In input frames: 2^k (start + units / 2^32).
  const U128 units = ((U128{start} << 32) + units_to(p, s, y)) << k;
  *whole = static_cast<int64_t>((units >> 32).low());
  *fraction = static_cast<uint32_t>(units.low());
}

// The stages before the polyphase stage delay by whole or half input
// frames; those after it by their own samples, which the current step turns
// into input frames (the delay moves a little with the ratio).
uint64_t hq_delay_q32(const RSMPL_HqState *st) {
  const HqGrade &g = st->design();
  const unsigned k = st->octaves;
  const U128 step = hq_step_numerator(st->step), unit = U128{st->step.den};  // step = step / unit / 2^32
  U128 total{0};  // 2^-32 input frames
  if (st->up != 0) {
    total = (U128{2 * g.sharp.half - 1} << 31) + (U128{g.kernel.taps} << 30);
    // Relaxed stage j: (2 half - 1) / 2 of its samples, 2^(j-1) outputs of
    // the polyphase stage each, a step of its input, half an input frame.
    for (uint32_t j = 1; j <= k; ++j) {
      const uint32_t half = g.relaxed[(j < 3 ? j : 3) - 1].half;
      total = total + U128{2 * half - 1} * step / (unit << (j + 1));
    }
  } else {
    for (uint32_t i = 0; i < k; ++i) {
      const uint32_t half = g.relaxed[(k - i < 3 ? k - i : 3) - 1].half;
      total = total + (U128{uint64_t{2 * half - 1} << i} << 32);
    }
    // The transposed stage's half length and the sharp half-band's 2 half
    // - 1 samples, in the stage's output; over the step, its input, 2^k
    // frames each.
    const uint64_t after = g.kernel.taps / 2 + 2 * g.sharp.half - 1;
    total = total + ((U128{after} * unit) << (64 + k)) / step;
  }
  return total.low();
}

}  // namespace rsmpl
