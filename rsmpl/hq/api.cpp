// SPDX-License-Identifier: MIT
// The high-quality resampler's public calls: every argument is checked, in
// the order the header gives, before anything changes.
#include <cstdint>
#include <cstring>

#include "rsmpl/hq/state.h"
#include "rsmpl/hq_calls.h"
#include "rsmpl/rational.h"

namespace {

using rsmpl::kHqMagic;

using rsmpl::hq_channels_ok;
using rsmpl::hq_rate_ok;

// A state is usable when Init wrote it and its fields still agree with the
// design of its rates (a damaged or foreign block fails here, not later).
bool state_ok(const RSMPL_HqState *st) {
  // A misaligned block was never initialised, and is not read.
  if (reinterpret_cast<uintptr_t>(st) % alignof(RSMPL_HqState) != 0) return false;
  if (st->magic != kHqMagic || !hq_rate_ok(st->in_rate) || !hq_rate_ok(st->out_rate) ||
      !hq_channels_ok(st->channels))
    return false;
  const rsmpl::HqDesign d = rsmpl::hq_design(st->in_rate, st->out_rate, st->channels);
  if (st->taps != d.taps || st->max_phases != d.max_phases || st->line_cap != d.line_cap ||
      st->bytes < d.bytes || st->ratio_out == 0 || st->ratio_in == 0 ||
      st->phases >= st->max_phases || st->r >= st->ratio_out || st->fill > st->line_cap ||
      st->end + 1 < st->taps)
    return false;
  const rsmpl::HqDirect direct = rsmpl::hq_direct(st->ratio_out, st->ratio_in, st->taps, st->line_cap);
  return st->direct == direct.d && st->active == direct.active &&
         st->pair_stride == direct.stride && (direct.d == 0 || st->phases == st->ratio_out) &&
         (st->folded == 0 || (st->folded == 1 && direct.d != 0 && st->ratio_out == 1));
}

bool ratio_ok(const RSMPL_HqState *st, uint32_t out_frames, uint32_t in_frames) {
  return rsmpl::ratio_near_rates(out_frames, in_frames, st->out_rate, st->in_rate);
}

}  // namespace

extern "C" {

SKELDA_API RSMPL_Status RSMPL_HqGetStateSize(uint32_t inRate, uint32_t outRate,
                                             uint32_t channels, uint32_t *size) {
  if (!hq_rate_ok(inRate) || !hq_rate_ok(outRate)) return RSMPL_ERR_BAD_RATIO;
  if (!hq_channels_ok(channels)) return RSMPL_ERR_BAD_LENGTH;
  if (size == nullptr) return RSMPL_ERR_NULL_POINTER;
  *size = rsmpl::hq_design(inRate, outRate, channels).bytes;
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqInit(RSMPL_HqState *state, uint32_t size, uint32_t inRate,
                                     uint32_t outRate, uint32_t channels) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!hq_rate_ok(inRate) || !hq_rate_ok(outRate)) return RSMPL_ERR_BAD_RATIO;
  if (!hq_channels_ok(channels)) return RSMPL_ERR_BAD_LENGTH;
  const rsmpl::HqDesign d = rsmpl::hq_design(inRate, outRate, channels);
  if (size < d.bytes || reinterpret_cast<uintptr_t>(state) % alignof(RSMPL_HqState) != 0)
    return RSMPL_ERR_BAD_LENGTH;
  // Built aside first, so that a state is never left half made.
  RSMPL_HqState head{};
  head.magic = kHqMagic;
  head.bytes = size;
  head.in_rate = inRate;
  head.out_rate = outRate;
  head.channels = channels;
  head.half = d.half;
  head.taps = d.taps;
  head.max_phases = d.max_phases;
  head.line_cap = d.line_cap;
  std::memcpy(state, &head, sizeof head);
  if (!rsmpl::hq_set_ratio(state, outRate, inRate)) {
    state->magic = 0;
    return RSMPL_ERR_BAD_RATIO;
  }
  rsmpl::hq_reset(state);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqSetRatio(RSMPL_HqState *state, uint32_t outFrames,
                                         uint32_t inFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (!ratio_ok(state, outFrames, inFrames)) return RSMPL_ERR_BAD_RATIO;
  return rsmpl::hq_set_ratio(state, outFrames, inFrames) ? RSMPL_OK : RSMPL_ERR_BAD_RATIO;
}

SKELDA_API RSMPL_Status RSMPL_HqReset(RSMPL_HqState *state) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  rsmpl::hq_reset(state);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqProcess(RSMPL_HqState *state, const int16_t *in,
                                        uint32_t *inFrames, int16_t *out, uint32_t *outFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  const size_t frame = sizeof(int16_t) * state->channels;
  const bool shrinks = uint64_t{state->ratio_out} <= state->ratio_in;
  const RSMPL_Status buffers = rsmpl::hq_buffers_status(state, state->bytes, in, inFrames, frame, out,
                                                        outFrames, frame, shrinks);
  if (buffers != RSMPL_OK) return buffers;
  rsmpl::hq_process(state, in, inFrames, out, outFrames);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqOutputFrames(const RSMPL_HqState *state, uint32_t inFrames,
                                             uint32_t *outFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (outFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *outFrames = rsmpl::hq_frame_count(rsmpl::hq_outputs_for(state, inFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqInputFrames(const RSMPL_HqState *state, uint32_t outFrames,
                                            uint32_t *inFrames) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (inFrames == nullptr) return RSMPL_ERR_NULL_POINTER;
  *inFrames = rsmpl::hq_frame_count(rsmpl::hq_inputs_for(state, outFrames));
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_HqGetInfo(const RSMPL_HqState *state, RSMPL_HqInfo *info) {
  if (state == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!state_ok(state)) return RSMPL_ERR_BAD_STATE;
  if (info == nullptr) return RSMPL_ERR_NULL_POINTER;
  rsmpl::hq_fill_info(info, *state, state->direct != 0 ? state->active : state->taps, state->taps / 2);
  return RSMPL_OK;
}

}  // extern "C"
