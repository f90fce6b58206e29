// SPDX-License-Identifier: MIT
// Decibels to linear scale without floating point: the table entry of the
// nearest whole decibel times a correction for the remaining fraction.
#include "skelda/util_dsp.h"
#include "util/decibel_table.h"

namespace {

EXP32 make(int16_t exponent, int32_t mantissa) {
  EXP32 r;
  r.exponent = exponent;
  r.mantissa = mantissa;
  return r;
}

// 10^(r / (20 * 32768)) in Q30 for r in -16384..16383 Q15 dB, by a line
// through 1.0 with one slope per side. The slopes keep it between the exact
// factor and 0.094 % above it (0.0082 dB); r = 0 gives exactly 1.0.
int64_t fraction_factor(int32_t r) {
  constexpr int64_t kSlopeUp = 0x3D924095, kSlopeDown = 0x387B929F;
  const int64_t slope = r > 0 ? kSlopeUp : kSlopeDown;
  return (int64_t{1} << 30) + (((slope * r + 16384) >> 15) >> 3);
}

}  // namespace

extern "C" {

// The gain rounded to whole decibels is kept at full width, so gains of
// thousands of decibels stay at the ceiling or floor instead of wrapping
// around into the table's range.
SKELDA_API EXP32 UTILdBToScaleExp32(int32_t gain) {
  const int32_t whole = static_cast<int32_t>((int64_t{gain} + 16384) >> 15);
  if (whole > 90) return make(15, 0x40000000);
  if (gain == 0) return make(0, 0x40000000);
  if (whole < -90) return make(-15, 0x40000000);
  const EXP32 entry = util::kDecibelTable[90 - whole];
  const int32_t rest = static_cast<int16_t>(static_cast<uint32_t>(gain) - static_cast<uint32_t>(whole) * 32768u);
  const int64_t mantissa16 = (int64_t{entry.mantissa} + 32768) >> 16;
  int64_t mantissa = (fraction_factor(rest) * mantissa16 + 8192) >> 14;
  if (mantissa > INT32_MAX) mantissa = INT32_MAX;
  return make(entry.exponent, static_cast<int32_t>(mantissa));
}
SKELDA_API EXP32 UTIL_dBToScaleExp32(int32_t gain) { return UTILdBToScaleExp32(gain); }

SKELDA_API int32_t UTILdBToScale(int32_t gain) {
  EXP32 v = UTILdBToScaleExp32(gain);
  v.exponent = static_cast<int16_t>(v.exponent - 8);
  return _EXP32TOINT32(v);
}
SKELDA_API int32_t UTIL_dBToScale(int32_t gain) { return UTILdBToScale(gain); }

}  // extern "C"
