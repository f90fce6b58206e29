/* SPDX-License-Identifier: MIT */
#ifndef SKELDA_RSMPL_FIR_H
#define SKELDA_RSMPL_FIR_H

#include <stdint.h>

#include "skelda/export.h"

struct RSMPL_Context;

SKELDA_EXTERN_C_BEGIN

/* Convert one block of one channel by the stage that `code` selects
 * (RSMPL_RATIO_*), continuing the stream kept in `ctx`. `in` and `out` may be
 * the same buffer. Checks in order: null context (1), null buffer (2), code
 * above 4 (3), length rule of the code (4).
 *
 * Down: n >= 8 and a multiple of 4 (code 1), >= 18 and a multiple of 6
 * (codes 0 and 2), >= 16 and a multiple of 4 (code 3), >= 36 and a multiple
 * of 6 (code 4); no upper limit. Writes n/2, 2n/3, n/3, n/4 or n/6 samples. */
SKELDA_API uint32_t RSMPL_Down(struct RSMPL_Context *ctx, const int16_t *in, int16_t *out,
                               int32_t n, uint32_t code);
/* Up: n >= 4 (codes 1 and 3) or 6 (codes 0, 2 and 4), at most 1440 output
 * samples (code 0: 3n/2 of them). Writes 2n, 3n, 4n, 6n or 3n/2 samples. */
SKELDA_API uint32_t RSMPL_Up(struct RSMPL_Context *ctx, const int16_t *in, int16_t *out,
                             int32_t n, uint32_t code);

/* The stage drivers: one channel's streaming conversion by one fixed ratio,
 * keeping the newest input samples as history at the start of the context's
 * sample area. They trust their caller (RSMPL_Up / RSMPL_Down check first):
 * `n` must follow that code's length rule and `out` must hold every output.
 * `in` and `out` may be the same buffer. Upsample3_2 needs an even `n`. */
SKELDA_API void Upsample2_1(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Upsample3_1(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Upsample4_1(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Upsample6_1(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Upsample3_2(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Downsample1_2(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Downsample1_3(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Downsample1_4(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Downsample1_6(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);
SKELDA_API void Downsample2_3(const int16_t *in, int16_t *out, struct RSMPL_Context *ctx, int32_t n);

/* The FIR kernels. `in` holds the kernel's history followed by `n` new
 * samples; the kernel writes L outputs for every whole group of M new samples
 * (interpolators by 2, 3, 4, 6: L = 2..6, M = 1; decimators: L = 1,
 * M = 2..6; 2-to-3: 3 per 2; 3-to-2: 2 per 3) and nothing for a count below
 * M. History: 35, 70, 15, 45, 15, 14, 15, 60, 15, 90 samples in the order
 * below. Output = round-half-up, saturated sum of exact products. */
SKELDA_API void UpsampleFIR1To2(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void DownsampleFIR2To1(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void UpsampleFIR1To3(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void DownsampleFIR3To1(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void UpsampleFIR2To3(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void DownsampleFIR3To2(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void UpsampleFIR1To4(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void DownsampleFIR4To1(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void UpsampleFIR1To6(const int16_t *in, int16_t *out, int32_t n);
SKELDA_API void DownsampleFIR6To1(const int16_t *in, int16_t *out, int32_t n);

SKELDA_EXTERN_C_END

#endif
