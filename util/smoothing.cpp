// SPDX-License-Identifier: MIT
// One-pole smoothing steps. The 16-bit forms work modulo 2^16, so a signed
// or unsigned reading of their values gives the same bits.
#include "skelda/util_dsp.h"

extern "C" {

SKELDA_API uint16_t UTILSmooth(uint16_t current, int16_t coef, uint16_t target) {
  const int32_t d = static_cast<int16_t>(static_cast<uint16_t>(target - current));
  return static_cast<uint16_t>(current + ((d * coef + 16384) >> 15));
}
SKELDA_API uint16_t UTIL_Smooth(uint16_t current, int16_t coef, uint16_t target) {
  return UTILSmooth(current, coef, target);
}

// The correction of one unit toward the target closes small distances that
// the rounded step would leave.
SKELDA_API uint16_t UTILSmoothAsym(uint16_t current, uint16_t coefUp, uint16_t coefDown,
                                   uint16_t target) {
  if (target == current) return current;
  const int64_t d = static_cast<int16_t>(static_cast<uint16_t>(target - current));
  const int64_t coef = d < 0 ? coefDown : coefUp;
  const int64_t correction = d < 0 ? -1 : 1;
  return static_cast<uint16_t>(current + ((d * coef + 16384) >> 15) + correction);
}
SKELDA_API uint16_t UTIL_SmoothAsym(uint16_t current, uint16_t coefUp, uint16_t coefDown,
                                    uint16_t target) {
  return UTILSmoothAsym(current, coefUp, coefDown, target);
}

namespace {
int32_t wrap32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }
int64_t distance(int32_t current, int32_t target) {
  return wrap32(int64_t{target} - current);
}
}  // namespace

SKELDA_API int32_t UTILSmooth32(int32_t current, uint16_t coef, int32_t target) {
  return wrap32(current + ((distance(current, target) * coef + 16384) >> 15));
}
SKELDA_API int32_t UTIL_Smooth32(int32_t current, uint16_t coef, int32_t target) {
  return UTILSmooth32(current, coef, target);
}

SKELDA_API int32_t UTILSmoothAsym32(int32_t current, uint16_t coefUp, uint16_t coefDown,
                                    int32_t target) {
  if (target == current) return current;
  const int64_t d = distance(current, target);
  if (target > current) return wrap32(current + ((d * coefUp + 16384) >> 15) + 1);
  return wrap32(current + ((d * coefDown + 16384) >> 15) - 1);
}
SKELDA_API int32_t UTIL_SmoothAsym32(int32_t current, uint16_t coefUp, uint16_t coefDown,
                                     int32_t target) {
  return UTILSmoothAsym32(current, coefUp, coefDown, target);
}

}  // extern "C"
