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

SKELDA_EXTERN_C_END

#endif
