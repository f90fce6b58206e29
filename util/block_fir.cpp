// SPDX-License-Identifier: MIT
// Block FIR over 16-bit samples with caller-held history, filtered in place
// through the caller's scratch array.
#include <cstring>

#include "skelda/util_dsp.h"

namespace {

// The exact 64-bit sum of coefs[j] * x[-j], tap 0 on the newest sample.
int64_t inner_product(const int16_t *newest, const int16_t *coefs, int taps) {
  int64_t sum = 0;
  for (int j = 0; j < taps; ++j) sum += int32_t{coefs[j]} * newest[-j];
  return sum;
}

// acc * 2^(shift + 1) + 32768, then its upper half, saturated to 16 bits.
// A shift large enough to push acc past 64 bits saturates by acc's sign
// instead of overflowing; a negative shift (the body called directly)
// shifts right by -shift - 1.
int16_t scale(int64_t acc, int shift) {
  int64_t v;
  if (shift < 0) {
    const int right = -shift - 1;
    v = (right >= 63 ? (acc < 0 ? -1 : 0) : acc >> right) + 32768;
  } else {
    const int left = shift + 1;
    if (acc == 0) return 0;
    if (left >= 63 || acc > (INT64_MAX >> left) || acc < (INT64_MIN >> left))
      return acc > 0 ? 32767 : -32768;
    v = acc * (int64_t{1} << left) + 32768;
  }
  if (v > INT32_MAX) return 32767;
  if (v < INT32_MIN) return -32768;
  return static_cast<int16_t>(v >> 16);
}

}  // namespace

extern "C" {

SKELDA_API void UTILFir3(int16_t *samples, int16_t numSamples, int16_t *history,
                         const int16_t *coefs, int16_t numTaps, int16_t shift, int16_t *scratch) {
  std::memcpy(scratch, history, sizeof(int16_t) * static_cast<size_t>(numTaps));
  std::memcpy(scratch + numTaps, samples, sizeof(int16_t) * static_cast<size_t>(numSamples));
  for (int i = 0; i < numSamples; ++i)
    samples[i] = scale(inner_product(scratch + numTaps + i, coefs, numTaps), shift);
  std::memcpy(history, scratch + numSamples, sizeof(int16_t) * static_cast<size_t>(numTaps));
}

SKELDA_API int32_t UTIL_Fir3(int16_t *samples, int16_t numSamples, int16_t *history,
                             const int16_t *coefs, int16_t numTaps, int16_t shift,
                             int16_t *scratch) {
  if (samples == nullptr || history == nullptr) return 1;
  if (coefs == nullptr || scratch == nullptr) return 1;
  if (numSamples <= 0) return 2;
  if (numSamples % 4 != 0 || numTaps <= 0) return 2;
  if (numTaps % 4 != 0) return 2;
  if (shift < 0) return 3;
  UTILFir3(samples, numSamples, history, coefs, numTaps, shift, scratch);
  return 0;
}

}  // extern "C"
