// SPDX-License-Identifier: MIT
// Linear interpolation converters for rate pairs the FIR path does not serve.
// The position is unsigned Q19 and restarts at every call; the up converter
// carries one sample per channel between calls in the work buffer.
#include "src/rate_rsmpl.h"

namespace {

rsmpl_converter *record(void *obj) { return static_cast<rsmpl_converter *>(obj); }

// The converters' arithmetic: shift counts modulo 32 and a division by zero
// yielding 0, so no pitch alsa-lib can produce traps.
inline uint32_t shl(uint32_t v, uint32_t s) { return v << (s & 31u); }
inline uint32_t shr(uint32_t v, uint32_t s) { return v >> (s & 31u); }
inline uint32_t div_or_zero(uint32_t a, uint32_t b) { return b == 0 ? 0 : a / b; }

// (a * wa + b * wb) >> 16 in wrapping signed 32-bit arithmetic: a truncated
// divisor can push a weight to 0x10001, making the other one negative.
inline int16_t blend(int16_t a, uint32_t wa, int16_t b, uint32_t wb) {
  const uint32_t sum = static_cast<uint32_t>(static_cast<int32_t>(a)) * wa +
                       static_cast<uint32_t>(static_cast<int32_t>(b)) * wb;
  return static_cast<int16_t>(static_cast<int32_t>(sum) >> 16);
}

}  // namespace

extern "C" {

// Writes exactly dst_frames frames and reads at most src_frames; when the
// input runs out the last sample read is held. Output lags the input by one
// frame, so the first output of a call is the sample carried from the last.
void src_linear_expand_s16(void *obj, int16_t *dst, unsigned int dst_frames, const int16_t *src,
                           unsigned int src_frames) {
  rsmpl_converter *rec = record(obj);
  const unsigned channels = rec->channels;
  const uint32_t pitch = rec->pitch;
  const uint32_t shift = rec->pitch_shift;
  const uint32_t divisor = shr(pitch, shift);
  // Frames are addressed by index: the input cursor may run past the last
  // frame (it is then never read), which a pointer must not.
  for (unsigned c = 0; c < channels; ++c) {
    int16_t current = rec->work[c];
    int16_t previous = 0;
    uint32_t position = pitch;
    uint32_t taken = 0;
    for (unsigned n = 0; n < dst_frames; ++n) {
      if (position >= pitch) {
        position -= pitch;
        previous = current;
        if (taken < src_frames) current = src[size_t(taken) * channels + c];
      }
      const uint32_t weight = div_or_zero(shl(position, 16u - shift), divisor);
      dst[size_t(n) * channels + c] = blend(current, weight, previous, 0x10000u - weight);
      position += kPitchOne;
      if (position >= pitch) ++taken;
    }
    rec->work[c] = current;
  }
}

// Reads exactly src_frames frames and writes what the pitch yields, never
// more than dst_frames: a channel that would overflow is reported once and
// left there, and the next channel goes on.
void src_linear_shrink_s16(void *obj, int16_t *dst, unsigned int dst_frames, const int16_t *src,
                           unsigned int src_frames) {
  rsmpl_converter *rec = record(obj);
  const unsigned channels = rec->channels;
  const uint32_t pitch = rec->pitch;
  const uint32_t divisor = pitch >> 3;
  for (unsigned c = 0; c < channels; ++c) {
    int16_t previous = 0;
    uint32_t position = kPitchOne - pitch;
    uint32_t written = 0;
    for (unsigned n = 0; n < src_frames; ++n) {
      position += pitch;
      const int16_t current = src[size_t(n) * channels + c];
      if (position > 0x7FFFF) {
        position -= kPitchOne;
        if (written == dst_frames) {
          RSMPL_REPORT("dst_frames overflow");
          break;
        }
        const uint32_t weight = div_or_zero(position << 13, divisor);
        dst[size_t(written) * channels + c] = blend(previous, weight, current, 0x10000u - weight);
        ++written;
      }
      previous = current;
    }
  }
}

}  // extern "C"
