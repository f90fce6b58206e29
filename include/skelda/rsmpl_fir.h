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

SKELDA_EXTERN_C_END

#endif
