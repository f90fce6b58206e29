/* SPDX-License-Identifier: MIT */
/* Fixed-point primitives: saturation, float-to-fixed conversion and
 * normalisation. Stateless; none of them reports errors. */
#ifndef SKELDA_FIXED_POINT_H
#define SKELDA_FIXED_POINT_H

#include <stdint.h>

#include "skelda/export.h"

SKELDA_EXTERN_C_BEGIN

/* value clamped to a signed integer of `bits` bits. The bound exponent is
 * (bits - 1) mod 32, so bits outside 1..32 wrap rather than fault. */
SKELDA_API int64_t _SAT(int64_t value, int16_t bits);
/* value * 2^q rounded half up, clamped to 0..4294967295; NaN gives 0.
 * q is meant to lie in 0..62. */
SKELDA_API uint32_t ToUFix(uint32_t q, float value);
/* value * 2^q rounded half away from zero, clamped to the int32 range; NaN
 * gives 0. q is meant to lie in 0..62. */
SKELDA_API int32_t ToSFix(uint32_t q, float value);
/* x = mantissa * 2^exponent with the mantissa's magnitude in [2^30, 2^31-1];
 * 0 gives mantissa 0 and exponent -32768. Returns the mantissa. */
SKELDA_API int32_t _NORMALIZE_S32(int32_t x, int32_t *mantissa, int16_t *exponent);

/* A number as mantissa * 2^exponent; the mantissa's Q format is the
 * producer's. Zero is marked with exponent -32768 and mantissa 0. */
typedef struct EXP32 {
  int16_t exponent;
  int32_t mantissa;
} EXP32;
/* The upper half of an EXP32 mantissa: mantissa * 2^(exponent + 16). */
typedef struct EXP16 {
  int16_t exponent;
  int16_t mantissa;
} EXP16;

/* Left shifts that normalise *value: the smallest n >= 1 with
 * |v| * 2^n >= 2^30 (positive) or 2^31 (negative); 0 for 0, for values
 * from 2^30 up and for -2^31. */
SKELDA_API int16_t _EXPONENT32(const int32_t *value);
/* mantissa * 2^exponent, saturated to the int32 range. */
SKELDA_API int32_t _EXP32TOINT32(EXP32 v);
/* The mantissa's upper half rounded half up, exponent kept. A mantissa
 * from 0x7FFF8000 up, whose rounded half does not fit, gives 32767. */
SKELDA_API EXP16 _EXP32TOEXP16(EXP32 v);
/* Splits a 40-bit accumulator value into a mantissa within 32 bits and an
 * exponent: x = mantissa * 2^exponent (exact below 2^31 in magnitude,
 * rounded toward minus infinity above). 0 gives 0 and -32768. */
SKELDA_API void _MANTNEXP(int64_t x, int64_t *mantissa, int16_t *exponent);
/* x saturated to 40 bits, then split as _MANTNEXP does. */
SKELDA_API EXP32 _MANTEXPO32(int64_t x);
/* log10(x / 32768) in Q15 for a positive Q15 fraction x, by a fixed
 * polynomial; x below 1 counts as 1. Within 2.4 of the exact value. */
SKELDA_API int32_t _LOG10(int16_t x);

SKELDA_EXTERN_C_END

#endif
