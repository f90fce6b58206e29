// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler's public calls: every argument is
// checked, in the order the header gives, before anything changes.
#include <cstdint>
#include <cstring>

#include "rsmpl/hq32/state.h"
#include "rsmpl/hq_calls.h"
#include "rsmpl/rational.h"

namespace {

using rsmpl::kHq32Magic;

using rsmpl::hq_channels_ok;
using rsmpl::hq_rate_ok;
bool format_ok(uint32_t format) { return format == RSMPL_HQ_S16 || format == RSMPL_HQ_S32; }
size_t sample_bytes(uint32_t format) { return format == RSMPL_HQ_S32 ? 4 : 2; }

// A state is usable when Init wrote it and its fields still agree with the
// design of its rates (a damaged or foreign block fails here, not later).
bool state_ok(const RSMPL_Hq32State *st) {
  // A misaligned block was never initialised, and is not read.
  if (reinterpret_cast<uintptr_t>(st) % alignof(RSMPL_Hq32State) != 0) return false;
  if (st->magic != kHq32Magic || !hq_rate_ok(st->in_rate) || !hq_rate_ok(st->out_rate) ||
      !hq_channels_ok(st->channels))
    return false;
  const rsmpl::Hq32Design d = rsmpl::hq32_design(st->in_rate, st->out_rate, st->channels);
  return st->reach == d.reach && st->taps == d.taps && st->max_phases == d.max_phases &&
         st->line_cap == d.line_cap && st->bytes >= d.bytes && st->ratio_out != 0 &&
         st->ratio_in != 0 && st->phases != 0 && st->phases < st->max_phases &&
         st->r < st->ratio_out && st->q < st->phases && st->rem < st->ratio_out &&
         st->fill <= st->line_cap && st->end + 1 >= st->taps && st->noise != 0;
}

}  // namespace

extern "C" {

SKELDA_API RSMPL_Status RSMPL_Hq32GetStateSize(uint32_t inRate, uint32_t outRate,
                                               uint32_t channels, uint32_t *size) {
  if (!hq_rate_ok(inRate) || !hq_rate_ok(outRate)) return RSMPL_ERR_BAD_RATIO;
  if (!hq_channels_ok(channels)) return RSMPL_ERR_BAD_LENGTH;
  if (size == nullptr) return RSMPL_ERR_NULL_POINTER;
  *size = rsmpl::hq32_design(inRate, outRate, channels).bytes;
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32Init(RSMPL_Hq32State *state, uint32_t size, uint32_t inRate,
                                       uint32_t outRate, uint32_t channels) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!hq_rate_ok(inRate) || !hq_rate_ok(outRate)) return RSMPL_ERR_BAD_RATIO;
  if (!hq_channels_ok(channels)) return RSMPL_ERR_BAD_LENGTH;
  const rsmpl::Hq32Design d = rsmpl::hq32_design(inRate, outRate, channels);
  if (size < d.bytes || reinterpret_cast<uintptr_t>(state) % alignof(RSMPL_Hq32State) != 0)
    return RSMPL_ERR_BAD_LENGTH;
  // Built aside first, so that a state is never left half made.
  RSMPL_Hq32State head{};
  head.magic = kHq32Magic;
  head.bytes = size;
  head.in_rate = inRate;
  head.out_rate = outRate;
  head.channels = channels;
  head.reach = d.reach;
  head.taps = d.taps;
  head.max_phases = d.max_phases;
  head.line_cap = d.line_cap;
  std::memcpy(state, &head, sizeof head);
  if (!rsmpl::hq32_set_ratio(state, outRate, inRate)) {
    state->magic = 0;
    return RSMPL_ERR_BAD_RATIO;
  }
  rsmpl::hq32_reset(state);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32SetRatio(RSMPL_Hq32State *state, uint32_t outFrames,
                                           uint32_t inFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (!rsmpl::ratio_near_rates(outFrames, inFrames, state->out_rate, state->in_rate))
    return RSMPL_ERR_BAD_RATIO;
  return rsmpl::hq32_set_ratio(state, outFrames, inFrames) ? RSMPL_OK : RSMPL_ERR_BAD_RATIO;
}

SKELDA_API RSMPL_Status RSMPL_Hq32SetDither(RSMPL_Hq32State *state, uint32_t dither) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  state->dither = dither != 0;
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32Reset(RSMPL_Hq32State *state) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  rsmpl::hq32_reset(state);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32Process(RSMPL_Hq32State *state, const void *in,
                                          uint32_t inFormat, uint32_t *inFrames, void *out,
                                          uint32_t outFormat, uint32_t *outFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (!format_ok(inFormat) || !format_ok(outFormat)) return RSMPL_ERR_BAD_FORMAT;
  const size_t in_frame = sample_bytes(inFormat) * state->channels;
  const size_t out_frame = sample_bytes(outFormat) * state->channels;
  // In place, outputs never overtake the input they come from when the ratio
  // is at most 1 and an output frame is no larger than an input frame.
  const bool shrinks = uint64_t{state->ratio_out} <= state->ratio_in && out_frame <= in_frame;
  const RSMPL_Status buffers = rsmpl::hq_buffers_status(state, state->bytes, in, inFrames, in_frame, out,
                                                        outFrames, out_frame, shrinks);
  if (buffers != RSMPL_OK) return buffers;
  rsmpl::hq32_process(state, in, inFormat, inFrames, out, outFormat, outFrames);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32OutputFrames(const RSMPL_Hq32State *state, uint32_t inFrames,
                                               uint32_t *outFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (outFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *outFrames = rsmpl::hq_frame_count(rsmpl::hq32_outputs_for(state, inFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32InputFrames(const RSMPL_Hq32State *state, uint32_t outFrames,
                                              uint32_t *inFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (inFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *inFrames = rsmpl::hq_frame_count(rsmpl::hq32_inputs_for(state, outFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Hq32GetInfo(const RSMPL_Hq32State *state, RSMPL_HqInfo *info) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (info == nullptr) return RSMPL_ERR_NULL_POINTER;
  rsmpl::hq_fill_info(info, *state, state->taps, state->reach);
  return RSMPL_OK;
}

}  // extern "C"
