// SPDX-License-Identifier: MIT
// The high-quality resampler's public calls, both grades: every argument is
// checked, in the order the header gives, before anything changes.
#include <cstring>
#include <numeric>

#include "rsmpl/hq/state.h"

namespace {

using rsmpl::HqStage;

bool rate_ok(uint32_t rate) { return rate >= RSMPL_HQ_RATE_MIN && rate <= RSMPL_HQ_RATE_MAX; }
bool channels_ok(uint32_t channels) { return channels >= 1 && channels <= RSMPL_HQ_MAX_CHANNELS; }

RSMPL_HqState *inside(RSMPL_Hq32State *st) { return reinterpret_cast<RSMPL_HqState *>(st); }
const RSMPL_HqState *inside(const RSMPL_HqState *st) { return st; }
const RSMPL_HqState *inside(const RSMPL_Hq32State *st) { return reinterpret_cast<const RSMPL_HqState *>(st); }

uint32_t magic_of(uint32_t grade) { return grade == rsmpl::kHqGrade16 ? rsmpl::kHqMagic16 : rsmpl::kHqMagic24; }

bool step_ok(const rsmpl::HqStep &s) {
  return s.den >= 1 && s.den <= (uint64_t{1} << 32) && s.se < s.den && (s.si != 0 || s.sf != 0 || s.se != 0);
}

// A state is usable when Init wrote it for this grade and its fields still
// agree with the plan of its rates (a damaged or foreign block fails here,
// not later).
bool state_ok(const RSMPL_HqState *st, uint32_t grade) {
  // A misaligned block was never initialised, and is not read.
  if (reinterpret_cast<uintptr_t>(st) % alignof(RSMPL_HqState) != 0) return false;
  if (st->magic != magic_of(grade) || st->grade != grade || !rate_ok(st->in_rate) || !rate_ok(st->out_rate) ||
      !channels_ok(st->channels))
    return false;
  RSMPL_HqState plan;
  if (rsmpl::hq_plan(st->in_rate, st->out_rate, st->channels, grade, &plan) > st->bytes) return false;
  if (plan.stages != st->stages || plan.octaves != st->octaves || plan.lift != st->lift || plan.poly != st->poly ||
      plan.direct.taps != st->direct.taps || plan.direct.rows_cap != st->direct.rows_cap ||
      plan.direct.grid_bits != st->direct.grid_bits || plan.direct.stretch != st->direct.stretch ||
      plan.direct.gain != st->direct.gain || plan.coef_at != st->coef_at || plan.cache_at != st->cache_at ||
      plan.made_at != st->made_at || plan.scratch_at != st->scratch_at || plan.cache_cap != st->cache_cap ||
      plan.fifo_cap != st->fifo_cap || plan.fifo_at != st->fifo_at || plan.acc_at != st->acc_at ||
      plan.acc_cap != st->acc_cap || plan.pass != st->pass || st->fifo_fill > st->fifo_cap)
    return false;
  for (uint32_t s = 0; s < st->stages; ++s) {
    const HqStage &a = plan.stage[s], &b = st->stage[s];
    if (a.kind != b.kind || a.design != b.design || a.hist != b.hist || a.cap != b.cap || a.stride != b.stride ||
        a.at != b.at || b.fill > b.cap || b.odd > b.cap || b.next > b.fill)
      return false;
  }
  if (st->glide_left != 0 &&
      (st->glide_left > st->glide_stairs || st->glide_stair == 0 || st->glide_count == 0 ||
       st->glide_count > st->glide_stair || !step_ok(st->glide_from) || !step_ok(st->glide_target)))
    return false;
  return step_ok(st->step) && step_ok(st->prev_step) && st->pos.e < st->step.den &&
         st->prev.e < st->prev_step.den;
}

template <class State>
RSMPL_Status check(const State *state, uint32_t grade) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(inside(state), grade)) return RSMPL_ERR_BAD_STATE;
  return RSMPL_OK;
}

// out / in within 1/8 of out_rate / in_rate either way.
bool ratio_ok(const RSMPL_HqState *st, uint64_t out, uint64_t in) {
  if (out == 0 || in == 0) return false;
  const uint64_t given = out * st->in_rate, nominal = in * st->out_rate;
  const uint64_t diff = given > nominal ? given - nominal : nominal - given;
  return diff * 8 <= nominal;
}

bool scale_ok(uint64_t scale) {
  const uint64_t one = uint64_t{1} << 32;
  return scale >= one - one / 8 && scale <= one + one / 8;
}

RSMPL_Status get_size(uint32_t in_rate, uint32_t out_rate, uint32_t channels, uint32_t *size, uint32_t grade) {
  if (!rate_ok(in_rate) || !rate_ok(out_rate)) return RSMPL_ERR_BAD_RATIO;
  if (!channels_ok(channels)) return RSMPL_ERR_BAD_LENGTH;
  if (size == nullptr) return RSMPL_ERR_NULL_POINTER;
  *size = rsmpl::hq_plan(in_rate, out_rate, channels, grade, nullptr);
  return RSMPL_OK;
}

RSMPL_Status init(RSMPL_HqState *state, uint32_t size, uint32_t in_rate, uint32_t out_rate, uint32_t channels,
                  uint32_t grade) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!rate_ok(in_rate) || !rate_ok(out_rate)) return RSMPL_ERR_BAD_RATIO;
  if (!channels_ok(channels)) return RSMPL_ERR_BAD_LENGTH;
  const uint32_t needed = rsmpl::hq_plan(in_rate, out_rate, channels, grade, nullptr);
  if (size < needed || reinterpret_cast<uintptr_t>(state) % alignof(RSMPL_HqState) != 0)
    return RSMPL_ERR_BAD_LENGTH;
  // Planned aside first, so that a state is never left half made.
  RSMPL_HqState head;
  rsmpl::hq_plan(in_rate, out_rate, channels, grade, &head);
  head.magic = magic_of(grade);
  head.bytes = size;
  std::memcpy(state, &head, sizeof head);
  rsmpl::hq_set_ratio(state, state->nominal_out, state->nominal_in);
  rsmpl::hq_reset(state);
  return RSMPL_OK;
}

RSMPL_Status set_ratio(RSMPL_HqState *st, uint32_t out, uint32_t in) {
  if (!ratio_ok(st, out, in)) return RSMPL_ERR_BAD_RATIO;
  const uint64_t g = std::gcd(uint64_t{out}, uint64_t{in});
  rsmpl::hq_set_ratio(st, out / g, in / g);
  return RSMPL_OK;
}

RSMPL_Status set_scale(RSMPL_HqState *st, uint64_t scale) {
  if (!scale_ok(scale)) return RSMPL_ERR_BAD_RATIO;
  rsmpl::hq_set_scale(st, scale);
  return RSMPL_OK;
}

RSMPL_Status glide(RSMPL_HqState *st, uint64_t scale, uint32_t frames) {
  if (!scale_ok(scale)) return RSMPL_ERR_BAD_RATIO;
  rsmpl::hq_glide(st, scale, frames);
  return RSMPL_OK;
}

bool ranges_overlap(const void *a, size_t a_bytes, const void *b, size_t b_bytes) {
  const auto pa = reinterpret_cast<uintptr_t>(a), pb = reinterpret_cast<uintptr_t>(b);
  return a_bytes != 0 && b_bytes != 0 && pa < pb + b_bytes && pb < pa + a_bytes;
}

// A Process call's buffers, after its state: both counts given, data
// wherever a count is not 0, and input, output and state apart, except
// input and output starting at the same byte when no output can overtake
// the input it comes from.
RSMPL_Status buffers(const RSMPL_HqState *st, const void *in, const uint32_t *in_frames, size_t in_frame,
                     const void *out, const uint32_t *out_frames, size_t out_frame) {
  if (in_frames == nullptr || out_frames == nullptr) return RSMPL_ERR_NULL_POINTER;
  if ((in == nullptr && *in_frames != 0) || (out == nullptr && *out_frames != 0)) return RSMPL_ERR_NULL_POINTER;
  const size_t in_bytes = in_frame * *in_frames, out_bytes = out_frame * *out_frames;
  // At most 1 output frame per input frame, and no wider.
  const bool in_place = in == out && out_frame <= in_frame && rsmpl::hq_ratio_at_most_one(st);
  if (ranges_overlap(in, in_bytes, out, out_bytes) && !in_place) return RSMPL_ERR_OVERLAP;
  if (ranges_overlap(in, in_bytes, st, st->bytes) || ranges_overlap(out, out_bytes, st, st->bytes))
    return RSMPL_ERR_OVERLAP;
  return RSMPL_OK;
}

uint32_t frame_count(uint64_t n) { return n > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(n); }

// The nearest fraction to a / b (b > 0) with both terms below 2^32, by
// continued fractions.
void nearest_fraction(uint64_t a, uint64_t b, uint32_t *num, uint32_t *den) {
  uint64_t p0 = 0, q0 = 1, p1 = 1, q1 = 0;
  while (b != 0) {
    const uint64_t t = a / b;
    const uint64_t p2 = t * p1 + p0, q2 = t * q1 + q0;
    if (t > UINT32_MAX || p2 > UINT32_MAX || q2 > UINT32_MAX) break;
    p0 = p1;
    q0 = q1;
    p1 = p2;
    q1 = q2;
    const uint64_t r = a % b;
    a = b;
    b = r;
  }
  *num = static_cast<uint32_t>(p1);
  *den = static_cast<uint32_t>(q1 == 0 ? 1 : q1);
}

void fill_info(const RSMPL_HqState *st, RSMPL_HqInfo *info) {
  info->inRate = st->in_rate;
  info->outRate = st->out_rate;
  info->channels = st->channels;
  if (st->ratio_out != 0) {
    info->ratioOut = static_cast<uint32_t>(st->ratio_out);
    info->ratioIn = static_cast<uint32_t>(st->ratio_in);
  } else {
    // The step's own value: input per output of the polyphase stage.
    const rsmpl::U128 step = rsmpl::hq_step_numerator(st->step);  // over 2^32 den
    const unsigned shift = st->octaves + st->lift;
    // out / in = 2^shift 2^32 den / step (up) or step / (2^shift 2^32 den) (down).
    const rsmpl::U128 unit = rsmpl::U128{st->step.den} << 32;
    const rsmpl::U128 a = st->up != 0 ? unit << shift : step, b = st->up != 0 ? step : unit << shift;
    // Bring both within 64 bits before the fraction's search.
    unsigned drop = 0;
    while (!(a >> drop).fits64() || !(b >> drop).fits64()) ++drop;
    nearest_fraction((a >> drop).low(), (b >> drop).low(), &info->ratioOut, &info->ratioIn);
  }
  const rsmpl::HqKernel &k = st->design().kernel;
  // The single stage's rows: every fraction when they fit, else its grid.
  const bool exact = st->lift == 0 && st->step.den <= st->direct.rows_cap;
  info->taps = st->lift == 0 ? st->direct.taps : k.taps;
  info->phases = st->lift == 0 ? (exact ? static_cast<uint32_t>(st->step.den) : 1u << st->direct.grid_bits)
                               : 1u << k.phase_bits;
  info->interpolated = st->lift == 0 && exact ? 0 : 1;
  const uint64_t delay = rsmpl::hq_delay_q32(st);
  info->delayFrames = static_cast<uint32_t>((delay + (uint64_t{1} << 31)) >> 32);
  info->delayMicroseconds = static_cast<uint32_t>(
      ((rsmpl::U128{delay} * rsmpl::U128{1000000}) / rsmpl::U128{uint64_t{st->in_rate}} + rsmpl::U128{uint64_t{1} << 31})
          .low() >>
      32);
}

void fill_position(const RSMPL_HqState *st, RSMPL_HqPosition *p) {
  p->inputFrames = st->consumed;
  p->outputFrames = st->emitted;
  const uint64_t delay = rsmpl::hq_delay_q32(st);
  p->delayFrames = delay >> 32;
  p->delayFraction = static_cast<uint32_t>(delay);
  int64_t whole = 0;
  uint32_t fraction = 0;
  rsmpl::hq_stream_time(st, &whole, &fraction);
  // Less the delay, borrowing across the fraction.
  const int64_t borrow = fraction < p->delayFraction ? 1 : 0;
  p->nextFrame = whole - static_cast<int64_t>(p->delayFrames) - borrow;
  p->nextFraction = fraction - p->delayFraction;
}

}  // namespace

extern "C" {

SKELDA_API RSMPL_Status RSMPL_HqGetStateSize(uint32_t inRate, uint32_t outRate, uint32_t channels,
                                             uint32_t *size) {
  return get_size(inRate, outRate, channels, size, rsmpl::kHqGrade16);
}

SKELDA_API RSMPL_Status RSMPL_HqInit(RSMPL_HqState *state, uint32_t size, uint32_t inRate, uint32_t outRate,
                                     uint32_t channels) {
  return init(state, size, inRate, outRate, channels, rsmpl::kHqGrade16);
}

SKELDA_API RSMPL_Status RSMPL_HqSetRatio(RSMPL_HqState *state, uint32_t outFrames, uint32_t inFrames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  return s != RSMPL_OK ? s : set_ratio(state, outFrames, inFrames);
}

SKELDA_API RSMPL_Status RSMPL_HqSetRatioScale(RSMPL_HqState *state, uint64_t scale) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  return s != RSMPL_OK ? s : set_scale(state, scale);
}

SKELDA_API RSMPL_Status RSMPL_HqGlideScale(RSMPL_HqState *state, uint64_t scale, uint32_t frames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  return s != RSMPL_OK ? s : glide(state, scale, frames);
}

SKELDA_API RSMPL_Status RSMPL_HqReset(RSMPL_HqState *state) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  if (s == RSMPL_OK) rsmpl::hq_reset(state);
  return s;
}

SKELDA_API RSMPL_Status RSMPL_HqProcess(RSMPL_HqState *state, const int16_t *in, uint32_t *inFrames,
                                        int16_t *out, uint32_t *outFrames) {
  RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  if (s != RSMPL_OK) return s;
  const size_t frame = sizeof(int16_t) * state->channels;
  s = buffers(state, in, inFrames, frame, out, outFrames, frame);
  if (s == RSMPL_OK) rsmpl::hq_process(state, in, RSMPL_HQ_S16, inFrames, out, RSMPL_HQ_S16, outFrames);
  return s;
}

SKELDA_API RSMPL_Status RSMPL_HqOutputFrames(const RSMPL_HqState *state, uint32_t inFrames, uint32_t *outFrames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  if (s != RSMPL_OK) return s;
  if (outFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *outFrames = frame_count(rsmpl::hq_outputs_for(state, inFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqInputFrames(const RSMPL_HqState *state, uint32_t outFrames, uint32_t *inFrames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  if (s != RSMPL_OK) return s;
  if (inFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *inFrames = frame_count(rsmpl::hq_inputs_for(state, outFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqGetInfo(const RSMPL_HqState *state, RSMPL_HqInfo *info) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  if (s != RSMPL_OK) return s;
  if (info == nullptr) return RSMPL_ERR_NULL_POINTER;
  fill_info(state, info);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqGetPosition(const RSMPL_HqState *state, RSMPL_HqPosition *position) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade16);
  if (s != RSMPL_OK) return s;
  if (position == nullptr) return RSMPL_ERR_NULL_POINTER;
  fill_position(state, position);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32GetStateSize(uint32_t inRate, uint32_t outRate, uint32_t channels,
                                               uint32_t *size) {
  return get_size(inRate, outRate, channels, size, rsmpl::kHqGrade24);
}

SKELDA_API RSMPL_Status RSMPL_Hq32Init(RSMPL_Hq32State *state, uint32_t size, uint32_t inRate,
                                       uint32_t outRate, uint32_t channels) {
  return init(inside(state), size, inRate, outRate, channels, rsmpl::kHqGrade24);
}

SKELDA_API RSMPL_Status RSMPL_Hq32SetRatio(RSMPL_Hq32State *state, uint32_t outFrames, uint32_t inFrames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  return s != RSMPL_OK ? s : set_ratio(inside(state), outFrames, inFrames);
}

SKELDA_API RSMPL_Status RSMPL_Hq32SetRatioScale(RSMPL_Hq32State *state, uint64_t scale) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  return s != RSMPL_OK ? s : set_scale(inside(state), scale);
}

SKELDA_API RSMPL_Status RSMPL_Hq32GlideScale(RSMPL_Hq32State *state, uint64_t scale, uint32_t frames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  return s != RSMPL_OK ? s : glide(inside(state), scale, frames);
}

SKELDA_API RSMPL_Status RSMPL_Hq32SetDither(RSMPL_Hq32State *state, uint32_t dither) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  if (s == RSMPL_OK) inside(state)->dither = dither != 0 ? 1 : 0;
  return s;
}

SKELDA_API RSMPL_Status RSMPL_Hq32Reset(RSMPL_Hq32State *state) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  if (s == RSMPL_OK) rsmpl::hq_reset(inside(state));
  return s;
}

SKELDA_API RSMPL_Status RSMPL_Hq32Process(RSMPL_Hq32State *state, const void *in, uint32_t inFormat,
                                          uint32_t *inFrames, void *out, uint32_t outFormat, uint32_t *outFrames) {
  RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  if (s != RSMPL_OK) return s;
  if ((inFormat != RSMPL_HQ_S16 && inFormat != RSMPL_HQ_S32) || (outFormat != RSMPL_HQ_S16 && outFormat != RSMPL_HQ_S32))
    return RSMPL_ERR_BAD_FORMAT;
  RSMPL_HqState *st = inside(state);
  const size_t in_frame = (inFormat == RSMPL_HQ_S32 ? 4 : 2) * size_t{st->channels};
  const size_t out_frame = (outFormat == RSMPL_HQ_S32 ? 4 : 2) * size_t{st->channels};
  s = buffers(st, in, inFrames, in_frame, out, outFrames, out_frame);
  if (s == RSMPL_OK) rsmpl::hq_process(st, in, inFormat, inFrames, out, outFormat, outFrames);
  return s;
}

SKELDA_API RSMPL_Status RSMPL_Hq32OutputFrames(const RSMPL_Hq32State *state, uint32_t inFrames,
                                               uint32_t *outFrames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  if (s != RSMPL_OK) return s;
  if (outFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *outFrames = frame_count(rsmpl::hq_outputs_for(inside(state), inFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32InputFrames(const RSMPL_Hq32State *state, uint32_t outFrames,
                                              uint32_t *inFrames) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  if (s != RSMPL_OK) return s;
  if (inFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *inFrames = frame_count(rsmpl::hq_inputs_for(inside(state), outFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32GetInfo(const RSMPL_Hq32State *state, RSMPL_HqInfo *info) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  if (s != RSMPL_OK) return s;
  if (info == nullptr) return RSMPL_ERR_NULL_POINTER;
  fill_info(inside(state), info);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32GetPosition(const RSMPL_Hq32State *state, RSMPL_HqPosition *position) {
  const RSMPL_Status s = check(state, rsmpl::kHqGrade24);
  if (s != RSMPL_OK) return s;
  if (position == nullptr) return RSMPL_ERR_NULL_POINTER;
  fill_position(inside(state), position);
  return RSMPL_OK;
}

}  // extern "C"
