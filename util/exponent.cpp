// SPDX-License-Identifier: MIT
// Block-floating-point helpers: normalisation shifts, mantissa-and-exponent
// numbers and a fixed-point base-10 logarithm. Stateless, integer only.
#include "skelda/fixed_point.h"

namespace {

int32_t sat32(int64_t v) {
  return v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : static_cast<int32_t>(v);
}

// Leading zero bits of a 32-bit value, 32 for 0.
int leading_zeros32(uint32_t v) { return v == 0 ? 32 : __builtin_clz(v); }

int32_t hi16(int64_t a) { return static_cast<int32_t>(a >> 16); }

}  // namespace

extern "C" {

SKELDA_API int16_t _EXPONENT32(const int32_t *value) {
  const int64_t v = *value;
  if (v == 0) return 0;
  const int64_t limit = v < 0 ? (int64_t{1} << 31) : (int64_t{1} << 30);
  int64_t a = v < 0 ? -v : v;
  if (a >= limit) return 0;
  int16_t n = 0;
  while (a < limit) {
    a <<= 1;
    ++n;
  }
  return n;
}

SKELDA_API int32_t _EXP32TOINT32(EXP32 v) {
  const int32_t m = v.mantissa;
  if (m == 0) return 0;
  const int32_t c = v.exponent < -31 ? -31 : v.exponent > 31 ? 31 : v.exponent;
  const int32_t saturated = m >= 0 ? INT32_MAX : INT32_MIN;
  if (c - _EXPONENT32(&m) > 0) return saturated;
  if (v.exponent < 0) return m >> -c;
  const int32_t shifted = static_cast<int32_t>(static_cast<uint32_t>(m) << c);
  return (shifted >> c) == m ? shifted : saturated;
}

// The rounded upper half is formed in 64 bits; it exceeds 16 bits only for
// mantissas from 0x7FFF8000 up, which then give the largest half, 32767.
SKELDA_API EXP16 _EXP32TOEXP16(EXP32 v) {
  const int64_t half = (int64_t{v.mantissa} + 32768) >> 16;
  EXP16 r;
  r.exponent = v.exponent;
  r.mantissa = static_cast<int16_t>(half > 32767 ? 32767 : half);
  return r;
}

SKELDA_API void _MANTNEXP(int64_t x, int64_t *mantissa, int16_t *exponent) {
  const uint64_t a = x < 0 ? 0 - static_cast<uint64_t>(x) : static_cast<uint64_t>(x);
  if (a < (uint64_t{1} << 31)) {
    const int n = leading_zeros32(static_cast<uint32_t>(a)) - 1;
    *mantissa = static_cast<int64_t>(static_cast<uint64_t>(x) << n);
    *exponent = x == 0 ? static_cast<int16_t>(-32768) : static_cast<int16_t>(-n);
    return;
  }
  int s = 33 - leading_zeros32(static_cast<uint32_t>(a >> 32));
  if (s > 8) s = 8;
  *mantissa = x >> s;
  *exponent = static_cast<int16_t>(s);
}

SKELDA_API EXP32 _MANTEXPO32(int64_t x) {
  constexpr int64_t kTop = (int64_t{1} << 39) - 1, kBottom = -(int64_t{1} << 39);
  if (x > kTop) x = kTop;
  if (x < kBottom) x = kBottom;
  int64_t mantissa = 0;
  int16_t exponent = 0;
  _MANTNEXP(x, &mantissa, &exponent);
  EXP32 r;
  r.exponent = exponent;
  r.mantissa = static_cast<int32_t>(static_cast<uint32_t>(mantissa));
  return r;
}

// ln(1 + t) by a Horner polynomial on 16-bit coefficients, each step
// rounded to its upper 16 bits, then ln 2 per normalisation shift, then a
// change of base by log10(e) in two exact halves.
SKELDA_API int32_t _LOG10(int16_t x) {
  const int32_t v = (x < 1 ? 1 : x) * 65536;
  const int32_t e = _EXPONENT32(&v);
  const int64_t m = int64_t{v} << e;  // in [2^30, 2^31), never saturates
  const int64_t t = (m >> 15) - 32768;
  int64_t h = hi16(int64_t{21677} * 65536 + 32768 - 9130 * t);
  h = hi16(sat32(int64_t{-24950} * 65536 + 32768 + h * t));
  h = hi16(sat32(int64_t{20693} * 65536 + 32768 + h * t));
  h = hi16(sat32(int64_t{-16298} * 65536 + 32768 + h * t));
  const int64_t g = 2 * int64_t{hi16(sat32(int64_t{16381} * 65536 + 32768 + h * t))};
  const int64_t p = (g * t + 1581) >> 15;
  const int64_t y = p - (e + 1) * int64_t{22713};
  const int64_t z = (y >> 15) * 14231 + (((y & 0x7FFF) * 14231) >> 15);
  return sat32(z);
}

}  // extern "C"
