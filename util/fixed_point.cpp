// SPDX-License-Identifier: MIT
// Saturation, float-to-fixed conversion and normalisation.
#include "skelda/fixed_point.h"

#include <cmath>

extern "C" {

SKELDA_API int64_t _SAT(int64_t value, int16_t bits) {
  // The bound exponent is taken modulo 32 and the bounds are formed in 32
  // bits, so bits = 32 gives the full int32 range and odd widths never shift
  // out of range.
  const uint32_t shift = static_cast<uint32_t>(bits - 1) & 31u;
  const uint32_t t = 1u << shift;
  const int64_t upper = static_cast<int32_t>(t - 1u);
  const int64_t lower = static_cast<int32_t>(0u - t);
  if (value > upper) return upper;
  if (value < lower) return lower;
  return value;
}

SKELDA_API uint32_t ToUFix(uint32_t q, float value) {
  const double scale = static_cast<double>(static_cast<uint64_t>(1) << (q & 63u));
  const double sum = static_cast<double>(value) * scale + 0.5;
  if (sum > 4294967295.0) return 4294967295u;
  if (!(sum >= 0.0)) return 0u;  // negative or NaN
  return static_cast<uint32_t>(sum);
}

SKELDA_API int32_t ToSFix(uint32_t q, float value) {
  const double scale = static_cast<double>(static_cast<uint64_t>(1) << (q & 63u));
  const double p = static_cast<double>(value) * scale;
  const double sum = p >= 0.0 ? p + 0.5 : p - 0.5;
  if (std::isnan(sum)) return 0;
  if (sum > 2147483647.0) return 2147483647;
  if (sum < -2147483648.0) return INT32_MIN;
  return static_cast<int32_t>(sum);
}

SKELDA_API int32_t _NORMALIZE_S32(int32_t x, int32_t *mantissa, int16_t *exponent) {
  const uint32_t magnitude =
      x < 0 ? 0u - static_cast<uint32_t>(x) : static_cast<uint32_t>(x);
  const int zeros = magnitude == 0 ? 32 : __builtin_clz(magnitude);
  const int n = zeros - 1;
  int32_t m;
  int16_t e;
  if (x == 0) {
    m = 0;
    e = -32768;
  } else if (n >= 0) {
    m = static_cast<int32_t>(static_cast<uint32_t>(x) << n);
    e = static_cast<int16_t>(-n);
  } else {  // only INT32_MIN has no spare sign bit
    m = x >> 1;
    e = 1;
  }
  *mantissa = m;
  *exponent = e;
  return m;
}

}  // extern "C"
