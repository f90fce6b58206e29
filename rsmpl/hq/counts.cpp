// SPDX-License-Identifier: MIT
// The high-quality resampler's frame counts and positions, exact, from the
// polyphase stage's position.
//
// The stage's steps (going up: its outputs, one group of 2^k final outputs
// each; going down: its inputs, 2^k input frames each) fall into segments
// of one step size: the last step made (from `prev` at `prev_step`), then
// from `pos` at `step` on; during a glide, that only to the end of the
// current stair and each further stair at its own step, the last for good.
//
// Going up, final output n = 2^k m + r stands at T(n) = p_m + r s_m / 2^k
// in the stage's input (twice the input rate; the input itself for the
// single stage, which steps so with k = 0), and is due once T(n) < 2 N
// (< N) after N input frames; every group made but the last is due (the stage
// made its successor, so even that one's start lay before 2 N).
//
// Going down, input frame x (in units of the stage's input) stands at u(x)
// in the stage's output (twice the output rate), u linear between its
// inputs; final output n reads the stage's output 2 n, due once 2 n <
// u(N / 2^k).
//
// Either way the stages never lag these counts: each due output has
// already been made, so a stream at a fixed ratio L / M has written exactly
// ceil(N L / M) frames after N.
#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

constexpr uint64_t kSaturated = uint64_t{1} << 62;

// `count` steps (0: all that follow) from step `first` on, from `start`.
struct Segment {
  uint64_t first, count;
  HqPos start;
  HqStep step;
};

// p + j s exactly.
HqPos after(const HqPos &p, const HqStep &s, uint64_t j) {
  const U128 unit = U128{s.den} << 32;
  const U128 num = U128{p.f} * U128{s.den} + U128{p.e} + U128{j} * hq_step_numerator(s);
  const U128 whole = num / unit, rest = num - whole * unit;
  HqPos r;
  r.i = p.i + static_cast<int64_t>(whole.low());
  r.f = static_cast<uint32_t>((rest / U128{s.den}).low());
  r.e = static_cast<uint32_t>((rest - U128{r.f} * U128{s.den}).low());
  return r;
}

// Calls f on each segment from the last step made on, while f says more.
template <class F>
void walk(const RSMPL_HqState *st, F f) {
  if (st->poly_count != 0 && !f(Segment{st->poly_count - 1, 1, st->prev, st->prev_step})) return;
  if (st->glide_left == 0) {
    f(Segment{st->poly_count, 0, st->pos, st->step});
    return;
  }
  Segment s{st->poly_count, st->glide_count, st->pos, st->step};
  for (uint32_t j = st->glide_stairs - st->glide_left + 1;; ++j) {
    if (j >= st->glide_stairs) s.count = 0;  // the target's, for good
    if (!f(s) || s.count == 0) return;
    s.start = after(s.start, s.step, s.count);
    s.first += s.count;
    s.count = st->glide_stair;
    s.step = hq_glide_step(st, j + 1);
  }
}

// ceil(v / 2) for v = whole + (fraction ? something in (0, 1) : 0) >= 0.
uint64_t half_up(int64_t whole, bool fraction) {
  if (whole < 0) return 0;
  const uint64_t w = static_cast<uint64_t>(whole);
  return w / 2 + ((w % 2 != 0 || fraction) ? 1 : 0);
}

bool covers(const Segment &s, uint64_t index) { return s.count == 0 || index < s.first + s.count; }

}  // namespace

uint64_t hq_outputs_for(const RSMPL_HqState *st, uint64_t in_frames) {
  if (in_frames > kSaturated) return kSaturated;
  const uint64_t n = st->consumed + in_frames;
  const unsigned k = st->octaves;
  uint64_t due = 0;
  if (st->up != 0) {
    // Groups before the segments are due; in each segment, the outputs
    // before 2 N.
    due = st->poly_count == 0 ? 0 : (st->poly_count - 1) << k;
    const int64_t bound = static_cast<int64_t>(n << st->lift);
    walk(st, [&](const Segment &s) {
      const uint64_t c = hq_count_below(s.start, s.step, k, bound);
      if (s.count != 0 && c >= (s.count << k)) {
        due += s.count << k;
        return true;
      }
      due += c;
      return false;
    });
  } else {
    walk(st, [&](const Segment &s) {
      if (!covers(s, n >> k)) return true;
      bool fraction = false;
      const int64_t u = hq_floor_at(s.start, s.step, k, n - (s.first << k), &fraction);
      due = half_up(u, fraction);
      return false;
    });
  }
  if (due >= kSaturated) return kSaturated;
  return due > st->emitted ? due - st->emitted : 0;
}

uint64_t hq_inputs_for(const RSMPL_HqState *st, uint64_t out_frames) {
  if (out_frames == 0) return 0;
  if (out_frames > kSaturated) return kSaturated;
  const unsigned k = st->octaves;
  const uint64_t last = st->emitted + out_frames - 1;  // the output that must be due
  uint64_t need = 0;
  if (st->up != 0) {
    const uint64_t group = last >> k;
    if (st->poly_count != 0 && group + 1 < st->poly_count) return 0;  // made, and due
    walk(st, [&](const Segment &s) {
      if (!covers(s, group)) return true;
      bool fraction = false;
      const int64_t t = hq_floor_at(s.start, s.step, k, last - (s.first << k), &fraction);
      need = t < 0 ? 0 : (static_cast<uint64_t>(t) >> st->lift) + 1;
      return false;
    });
  } else {
    // The first input frame whose position passes 2 last.
    const int64_t y = static_cast<int64_t>(2 * last);
    walk(st, [&](const Segment &s) {
      const uint64_t c = hq_count_at_most(s.start, s.step, k, y);
      if (s.count != 0 && c >= (s.count << k)) return true;
      need = (s.first << k) + c;
      return false;
    });
  }
  if (need >= kSaturated) return kSaturated;
  return need > st->consumed ? need - st->consumed : 0;
}

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
// value y lies: x = (y - p) / s, as 2^-(32 + k) units of x (y >= p),
// rounded down.
U128 units_to(const HqPos &p, const HqStep &s, int64_t y, unsigned k) {
  const U128 gap =
      ((U128{static_cast<uint64_t>(y - p.i)} * U128{s.den}) << 32) - (U128{p.f} * U128{s.den} + U128{p.e});
  const U128 step = hq_step_numerator(s), whole = gap / step, rest = gap - whole * step;
  return (whole << (32 + k)) + (rest << (32 + k)) / step;
}

bool at_or_before(const HqPos &p, int64_t y) { return p.i < y || (p.i == y && p.f == 0 && p.e == 0); }

}  // namespace

void hq_stream_time(const RSMPL_HqState *st, int64_t *whole, uint32_t *fraction) {
  const unsigned k = st->octaves;
  *whole = 0;
  *fraction = 0;
  if (st->up != 0) {
    const uint64_t group = st->emitted >> k;
    walk(st, [&](const Segment &s) {
      if (!covers(s, group)) return true;
      int64_t w = 0;
      uint32_t f = 0;
      value_at(s.start, s.step, k, st->emitted - (s.first << k), &w, &f);
      // Halved where the stage's input runs at twice the input rate.
      if (st->lift == 0) {
        *whole = w;
        *fraction = f;
      } else {
        *whole = w >> 1;
        *fraction = static_cast<uint32_t>(((static_cast<uint64_t>(w) & 1) << 31) | (f >> 1));
      }
      return false;
    });
    return;
  }
  // Going down, output n stands where u reaches 2 n: in the segment whose
  // end lies past it.
  const int64_t y = static_cast<int64_t>(2 * st->emitted);
  walk(st, [&](const Segment &s) {
    if (s.count != 0 && at_or_before(after(s.start, s.step, s.count), y)) return true;
    // In input frames: 2^k (first + x), in 2^-32 frames.
    const U128 units = (U128{s.first} << (32 + k)) + units_to(s.start, s.step, y, k);
    *whole = static_cast<int64_t>((units >> 32).low());
    *fraction = static_cast<uint32_t>(units.low());
    return false;
  });
}

// The stages before the polyphase stage delay by whole or half input
// frames; those after it by their own samples, which the current step turns
// into input frames (the delay moves a little with the ratio).
uint64_t hq_delay_q32(const RSMPL_HqState *st) {
  const HqGrade &g = st->design();
  const unsigned k = st->octaves;
  const U128 step = hq_step_numerator(st->step), unit = U128{st->step.den};  // step = step / unit / 2^32
  U128 total{0};  // 2^-32 input frames
  if (st->lift == 0) return uint64_t{st->direct.taps / 2} << 32;  // the single stage: T/2
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
