/* SPDX-License-Identifier: MIT */
/* Arbitrary-ratio windowed-sinc interpolator with fractional delay, for one
 * channel of 16-bit samples kept in a resampler context.
 *
 * Typical use: RSMPL_SetResampleRatio (or RSMPL_SetFracDelay), then for each
 * block RSMPL_GetNumInSamples for the outputs wanted and RSMPL_Resample on
 * that many input samples. A new ratio stays pending for one more
 * RSMPL_Resample call, which still runs at the old ratio and commits the new
 * one at its end. */
#ifndef SKELDA_RSMPL_SINC_H
#define SKELDA_RSMPL_SINC_H

#include <stdint.h>

#include "skelda/export.h"

struct RSMPL_Context;

SKELDA_EXTERN_C_BEGIN

/* Make `ratio` (output rate / input rate, 0.125..8.0) pending. Returns 1 for
 * a null context, 3 for a ratio outside the range or not a number. Each
 * result pointer may be null:
 *   maxInSamples    - largest block RSMPL_Resample accepts (1440);
 *   minInSamples    - smallest block the next call accepts;
 *   extraOutSamples - output room to leave beyond ceil(n * r) for the next
 *                     call of n samples, r being the ratio that call runs at
 *                     (the previous one: the new ratio is pending). */
SKELDA_API uint32_t RSMPL_SetResampleRatio(struct RSMPL_Context *ctx, uint32_t *minInSamples,
                                           uint32_t *maxInSamples, uint32_t *extraOutSamples,
                                           float ratio);
/* Restart the stream at ratio 1 with silent history and its first output
 * `delay` (0..1) input samples later. Returns 1 for a null context, 6 for a
 * delay outside 0..1 or not a number, then 2 for a null result pointer. */
SKELDA_API uint32_t RSMPL_SetFracDelay(struct RSMPL_Context *ctx, uint32_t *minInSamples,
                                       uint32_t *maxInSamples, float delay);
/* Input samples the next RSMPL_Resample call needs to produce
 * `numOutSamples` outputs (exactly that many at ratio <= 1; above ratio 1 up
 * to ceil(ratio) - 1 fewer, never more). Returns 1 for a null context, 4 for
 * a count below 1 or above ratio * 1440, then 2 for a null result pointer. */
SKELDA_API uint32_t RSMPL_GetNumInSamples(struct RSMPL_Context *ctx, int32_t numOutSamples,
                                          uint32_t *numInSamples);
/* The filter half-length, in input samples, of the ratio last set. */
SKELDA_API uint32_t RSMPL_GetResampleDelay(struct RSMPL_Context *ctx, uint32_t *delay);
/* Convert one block of `n` (1..1440) samples; `*numOutSamples` receives the
 * number written to `out`. `in` and `out` may be the same buffer. Returns 1
 * for a null context, 2 for a null pointer, 4 for a bad length or a block
 * not longer than the growth of the filter that a pending ratio brings. */
SKELDA_API uint32_t RSMPL_Resample(struct RSMPL_Context *ctx, const int16_t *in, int16_t *out,
                                   int32_t n, uint32_t *numOutSamples);

/* Internal bodies of the calls above; they assume checked arguments. */
SKELDA_API void RSMPLSetResampleRatio(struct RSMPL_Context *ctx, uint32_t *minInSamples,
                                      uint32_t *maxInSamples, uint32_t *extraOutSamples,
                                      float ratio);
SKELDA_API void RSMPLSetFracDelay(struct RSMPL_Context *ctx, uint32_t *minInSamples,
                                  uint32_t *maxInSamples, float delay);
SKELDA_API uint32_t RSMPLGetNumInSamples(struct RSMPL_Context *ctx, uint16_t numOutSamples);
SKELDA_API uint32_t RSMPLSincInterpolate(struct RSMPL_Context *ctx, const int16_t *in,
                                         int16_t *out, int32_t n);

/* Constant tables: one side of the prototype low-pass in Q31 at 128 entries
 * per input sample (entries 1664.. are zero), its first differences, and the
 * input pre-shift indexed by the integer part of the step. */
SKELDA_API extern const int32_t RsmplSincCoeff[1792];
SKELDA_API extern const int32_t RsmplSincSlope[1792];
SKELDA_API extern const int16_t RsmplSincShift[256];

SKELDA_EXTERN_C_END

#endif
