/* SPDX-License-Identifier: MIT */
/* Smoothing steps, block FIR, decibel conversion, bit reordering and
 * monotone splines. Each utility is an entry point (UTIL_X) over a body
 * (UTILX, or spline_pchip_val); both are exported. Bodies trust their
 * arguments; entry points that check say so. */
#ifndef SKELDA_UTIL_DSP_H
#define SKELDA_UTIL_DSP_H

#include <stdint.h>

#include "skelda/export.h"
#include "skelda/fixed_point.h"

SKELDA_EXTERN_C_BEGIN

/* One-pole smoothing: current moved toward target by a Q15 fraction of the
 * distance, rounded half up; 16-bit forms wrap modulo 2^16, 32-bit forms at
 * 32 bits. The asymmetric forms use coefUp or coefDown by the direction and
 * always move at least one unit. */
SKELDA_API uint16_t UTIL_Smooth(uint16_t current, int16_t coef, uint16_t target);
SKELDA_API uint16_t UTILSmooth(uint16_t current, int16_t coef, uint16_t target);
SKELDA_API int32_t UTIL_Smooth32(int32_t current, uint16_t coef, int32_t target);
SKELDA_API int32_t UTILSmooth32(int32_t current, uint16_t coef, int32_t target);
SKELDA_API uint16_t UTIL_SmoothAsym(uint16_t current, uint16_t coefUp, uint16_t coefDown,
                                    uint16_t target);
SKELDA_API uint16_t UTILSmoothAsym(uint16_t current, uint16_t coefUp, uint16_t coefDown,
                                   uint16_t target);
SKELDA_API int32_t UTIL_SmoothAsym32(int32_t current, uint16_t coefUp, uint16_t coefDown,
                                     int32_t target);
SKELDA_API int32_t UTILSmoothAsym32(int32_t current, uint16_t coefUp, uint16_t coefDown,
                                    int32_t target);

/* Filters numSamples samples in place with numTaps Q15 coefficients (tap 0
 * on the newest sample), continuing from history (the previous block's last
 * numTaps samples, oldest first), which it updates. scratch holds at least
 * numTaps + numSamples samples. Output = sum * 2^shift / 32768 rounded half
 * up, saturated. Returns 0; 1 for a null pointer; 2 unless numSamples and
 * numTaps are positive multiples of 4; 3 for a negative shift. Nothing is
 * touched unless it returns 0. */
SKELDA_API int32_t UTIL_Fir3(int16_t *samples, int16_t numSamples, int16_t *history,
                             const int16_t *coefs, int16_t numTaps, int16_t shift,
                             int16_t *scratch);
SKELDA_API void UTILFir3(int16_t *samples, int16_t numSamples, int16_t *history,
                         const int16_t *coefs, int16_t numTaps, int16_t shift, int16_t *scratch);

/* 10^(gain / 20) for a gain in Q15 decibels: as an EXP32 with a Q30
 * mantissa, or in Q22 saturated to 2147483647. Gains from 90.5 dB up give
 * 2^15, gains below -90.5 dB give 2^-15. */
SKELDA_API EXP32 UTIL_dBToScaleExp32(int32_t gain);
SKELDA_API EXP32 UTILdBToScaleExp32(int32_t gain);
SKELDA_API int32_t UTIL_dBToScale(int32_t gain);
SKELDA_API int32_t UTILdBToScale(int32_t gain);

/* Permutes the bytes of every group of four (mode bits 1-2: 0 keep, 1 swap
 * within halves, 2 swap halves, 3 reverse) and, with mode bit 0, reverses
 * the bits of every byte. src and dst are the same array or do not overlap.
 * A last group shorter than four bytes permutes only among the bytes
 * present: a byte whose partner lies past the end stays where it is.
 * Returns 0; 1 for a null pointer or a partial overlap. */
SKELDA_API int32_t UTIL_ReorderBitstream(const uint8_t *src, int16_t len, int16_t mode,
                                         uint8_t *dst);
SKELDA_API void UTILReorderBitstream(const uint8_t *src, int16_t len, int16_t mode, uint8_t *dst);

/* Shape-preserving piecewise cubic (PCHIP) through n nodes (x strictly
 * increasing, f), evaluated at the ne points xe into fe, single precision.
 * UTIL_SplineFit returns 1 for a null pointer, 2 for n or ne not positive,
 * otherwise spline_pchip_val's result: 0, -1 (n < 2), -3 (x not strictly
 * increasing), -4 (ne < 1), -10 (no memory), -5 (points inconsistent with
 * the intervals). Nothing is written to fe unless the checks pass. */
SKELDA_API int32_t UTIL_SplineFit(int32_t n, const float *x, const float *f, int32_t ne,
                                  const float *xe, float *fe);
SKELDA_API int32_t spline_pchip_val(int32_t n, const float *x, const float *f, int32_t ne,
                                    const float *xe, float *fe);

SKELDA_EXTERN_C_END

#endif
