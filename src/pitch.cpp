// SPDX-License-Identifier: MIT
// Pitch and frame arithmetic: how many frames on one side correspond to a
// count on the other, and the pitch that maps one input period onto exactly
// one output period.
#include <cerrno>

#include "src/rate_rsmpl.h"

namespace {

rsmpl_converter *record(void *obj) { return static_cast<rsmpl_converter *>(obj); }

// Input frames for `output` frames at `pitch`, rounded to nearest. A pitch
// of 0 (left by zero period sizes) gives 0 rather than dividing by it.
uint64_t input_count(uint64_t output, uint32_t pitch) {
  if (pitch == 0) return 0;
  return ((output << 19) + pitch / 2) / pitch;
}

// Smallest s >= 1 with pitch >> s <= 0xFFFF.
uint32_t shift_for(uint32_t pitch) {
  uint32_t s = 1;
  while ((pitch >> s) > 0xFFFF) ++s;
  return s;
}

}  // namespace

extern "C" {

snd_pcm_uframes_t pcm_rsmpl_input_frames(void *obj, snd_pcm_uframes_t frames) {
  if (frames == 0) return 0;
  return input_count(frames, record(obj)->pitch);
}

snd_pcm_uframes_t pcm_rsmpl_output_frames(void *obj, snd_pcm_uframes_t frames) {
  if (frames == 0) return 0;
  return (static_cast<uint64_t>(frames) * record(obj)->pitch + 0x40000) >> 19;
}

// Starts from the rounded ratio of the periods and steps the pitch one unit
// at a time until O output frames count as exactly I input frames. When a
// step jumps over I, no pitch fits: report, keep the last pitch tried, -EIO.
//
// Every failure below is reported the same way and returns -EIO; none of them
// divides by zero or searches without end:
// - both periods 0: pitch 0 and success (the frame functions treat pitch 0
//   as giving 0 frames);
// - an output period of 0 with a non-zero input period can never count to I:
//   the first estimate, 0, is stored and the call fails;
// - an input period of 0 with a non-zero output period fails without
//   touching the pitch;
// - periods beyond 2^40 frames, or a ratio whose pitch does not fit 32 bits
//   (8192 or more), fail after storing the estimate's low 32 bits;
// - the search stops after kMaxSearchSteps steps or when the pitch would wrap.
//   A search that can succeed needs a handful of steps: the first estimate
//   is off only when one step moves the count by about a frame.
int pcm_rsmpl_adjust_pitch(void *obj, snd_pcm_rate_info_t *info) {
  constexpr uint64_t kLargestPeriod = uint64_t{1} << 40;
  constexpr unsigned kMaxSearchSteps = 1u << 16;
  rsmpl_converter *rec = record(obj);
  const uint64_t in_period = info->in.period_size;
  const uint64_t out_period = info->out.period_size;
  const auto fail = [&]() {
    RSMPL_REPORT_IN("pcm_rsmpl_adjust_pitch", "invalid pcm period_size %ld -> %ld",
                    static_cast<long>(in_period), static_cast<long>(out_period));
    return -EIO;
  };

  if (in_period == 0 && out_period == 0) {
    rec->pitch = 0;
    return 0;
  }
  if (in_period == 0 || in_period > kLargestPeriod || out_period > kLargestPeriod) return fail();

  const uint64_t estimate = ((out_period << 19) + in_period / 2) / in_period;
  uint32_t pitch = static_cast<uint32_t>(estimate);
  rec->pitch = pitch;
  if (out_period == 0 || estimate > UINT32_MAX) return fail();

  uint64_t count = input_count(out_period, pitch);
  for (unsigned steps = 0; count != in_period; ++steps) {
    const bool above = count > in_period;
    if (steps == kMaxSearchSteps || (above ? pitch == UINT32_MAX : pitch <= 1)) {
      rec->pitch = pitch;
      return fail();
    }
    pitch += above ? 1u : static_cast<uint32_t>(-1);
    const uint64_t next = input_count(out_period, pitch);
    if (above ? next < in_period : next > in_period) {
      rec->pitch = pitch;
      return fail();
    }
    count = next;
  }
  rec->pitch = pitch;
  if (pitch >= kPitchOne) rec->pitch_shift = shift_for(pitch);
  rsmpl_follow_periods(rec, info->in.rate, info->out.rate, in_period, out_period);
  return 0;
}

}  // extern "C"
