/* SPDX-License-Identifier: MIT */
/* Resampler engine: caller-owned per-channel contexts, integer-ratio FIR
 * stages with kept history and an arbitrary-ratio sinc interpolator.
 *
 * Every call except RSMPL_GetContextSize returns an RSMPL_Status. A call that
 * fails changes nothing: all checks come before any work. */
#ifndef SKELDA_RSMPL_H
#define SKELDA_RSMPL_H

#include <stdint.h>

#include "skelda/export.h"

SKELDA_EXTERN_C_BEGIN

/* Status codes. 5 is never returned. */
typedef uint32_t RSMPL_Status;
enum {
  RSMPL_OK = 0,
  RSMPL_ERR_NULL_CONTEXT = 1, /* the context pointer is null */
  RSMPL_ERR_NULL_POINTER = 2, /* a buffer or result pointer is null */
  RSMPL_ERR_BAD_RATIO = 3,    /* ratio code above 4, or ratio outside 1/8..8 */
  RSMPL_ERR_BAD_LENGTH = 4,   /* length or count the call does not accept */
  RSMPL_ERR_BAD_DELAY = 6     /* fractional delay outside 0..1 */
};

/* Ratio codes of RSMPL_Up / RSMPL_Down. */
enum {
  RSMPL_RATIO_2_3 = 0, /* 2-to-3 up, 3-to-2 down */
  RSMPL_RATIO_2 = 1,
  RSMPL_RATIO_3 = 2,
  RSMPL_RATIO_4 = 3,
  RSMPL_RATIO_6 = 4
};

/* One channel's state. Callers allocate RSMPL_GetContextSize() bytes and
 * treat the block as opaque. */
typedef struct RSMPL_Context RSMPL_Context;

/* Bytes of one context: always 3336. */
SKELDA_API uint32_t RSMPL_GetContextSize(void);
/* Zero the whole context, run the one-time set-up once per process, reset the
 * sinc state. 1 for a null context. */
SKELDA_API RSMPL_Status RSMPL_InitContext(RSMPL_Context *ctx);
/* Back to the freshly initialised state: silent history, sinc state at its
 * reset values. 1 for a null context. */
SKELDA_API RSMPL_Status RSMPL_Reset(RSMPL_Context *ctx);

/* Internals that are exported for clients that drive the engine directly. */
SKELDA_API void RSMPLSincReset(RSMPL_Context *ctx);
/* The coefficient tables are constant data, so these have nothing to do. */
SKELDA_API void InitRsmplCoeff_2_1(void);
SKELDA_API void InitRsmplCoeff_3_2(void);
SKELDA_API void InitRsmplCoeff_3_1(void);
SKELDA_API void InitRsmplCoeff_4_1(void);
SKELDA_API void InitRsmplCoeff_6_1(void);
SKELDA_API void RSMPLSincLPFInit(void);

SKELDA_EXTERN_C_END

/* Block conversion calls, stage drivers and FIR kernels. */
#include "skelda/rsmpl_fir.h"
/* Arbitrary-ratio sinc interpolator. */
#include "skelda/rsmpl_sinc.h"

#endif
