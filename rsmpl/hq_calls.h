// SPDX-License-Identifier: MIT
// What the public calls of both high-quality resamplers (hq/, hq32/) check
// and report alike: rates and channels, the buffers of a Process call, frame
// counts and the stream's info. Each call still checks in the order its
// header gives; these are the steps they share.
#ifndef SKELDA_RSMPL_HQ_CALLS_H
#define SKELDA_RSMPL_HQ_CALLS_H

#include <cstddef>
#include <cstdint>

#include "skelda/rsmpl_hq.h"

namespace rsmpl {

inline bool hq_rate_ok(uint32_t rate) { return rate >= RSMPL_HQ_RATE_MIN && rate <= RSMPL_HQ_RATE_MAX; }
inline bool hq_channels_ok(uint32_t channels) {
  return channels >= 1 && channels <= RSMPL_HQ_MAX_CHANNELS;
}

// Whether two byte ranges share a byte.
inline bool ranges_overlap(const void *a, size_t a_bytes, const void *b, size_t b_bytes) {
  const auto pa = reinterpret_cast<uintptr_t>(a), pb = reinterpret_cast<uintptr_t>(b);
  return a_bytes != 0 && b_bytes != 0 && pa < pb + b_bytes && pb < pa + a_bytes;
}

// A Process call's buffers, after its state: both counts given, data
// wherever a count is not 0, and input, output and state apart, except
// input and output starting at the same byte when no output can overtake
// the input it comes from (`shrinks`).
inline RSMPL_Status hq_buffers_status(const void *state, size_t state_bytes, const void *in,
                                      const uint32_t *in_frames, size_t in_frame, const void *out,
                                      const uint32_t *out_frames, size_t out_frame, bool shrinks) {
  if (in_frames == nullptr || out_frames == nullptr) return RSMPL_ERR_NULL_POINTER;
  if ((in == nullptr && *in_frames != 0) || (out == nullptr && *out_frames != 0))
    return RSMPL_ERR_NULL_POINTER;
  const size_t in_bytes = in_frame * *in_frames, out_bytes = out_frame * *out_frames;
  if (ranges_overlap(in, in_bytes, out, out_bytes) && !(in == out && shrinks)) return RSMPL_ERR_OVERLAP;
  if (ranges_overlap(in, in_bytes, state, state_bytes) || ranges_overlap(out, out_bytes, state, state_bytes))
    return RSMPL_ERR_OVERLAP;
  return RSMPL_OK;
}

// A frame count as the calls report it: saturated to 32 bits.
inline uint32_t hq_frame_count(uint64_t n) { return n > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(n); }

// The info both report, from a state's fields: `taps` its filter's, `delay`
// its delay in input frames.
template <class State>
void hq_fill_info(RSMPL_HqInfo *info, const State &st, uint32_t taps, uint32_t delay) {
  info->inRate = st.in_rate;
  info->outRate = st.out_rate;
  info->channels = st.channels;
  info->ratioOut = st.ratio_out;
  info->ratioIn = st.ratio_in;
  info->taps = taps;
  info->phases = st.phases;
  info->interpolated = st.phases != st.ratio_out;
  info->delayFrames = delay;
  info->delayMicroseconds =
      static_cast<uint32_t>((uint64_t{delay} * 1000000 + st.in_rate / 2) / st.in_rate);
}

}  // namespace rsmpl

#endif
