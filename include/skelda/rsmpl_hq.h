/* SPDX-License-Identifier: MIT */
/* High-quality resampler: any pair of rates from 8000 to 192000 Hz, 1 to 8
 * interleaved channels of 16-bit samples, integer arithmetic throughout.
 *
 * The filter's passband reaches 0.45 and its stopband starts at 0.55 of the
 * lower rate: a polyphase Kaiser-windowed sinc (about 100 dB down), or, for
 * ratios whose terms are both at most 8 (3/2, 1/3, 2, 4/3, ...), a shorter
 * minimax design of that ratio's own (103 dB down, 0.07 dB passband ripple),
 * computed eight outputs at a time. Positions are exact
 * integers: the stream runs at a rational ratio (output frames / input
 * frames) that the rates give, or that RSMPL_HqSetRatio sets exactly (for
 * instance alsa-lib's output / input period sizes), so no stream drifts.
 *
 * The caller owns the state: RSMPL_HqGetStateSize tells how many bytes the
 * rates and channel count need, RSMPL_HqInit lays the state out in them, and
 * nothing allocates afterwards. Every call returns an RSMPL_Status and checks
 * all its arguments before doing any work: a call that fails changes
 * nothing.
 *
 * Timing: output frame n stands for input position n / ratio - delay, where
 * delay (RSMPL_HqInfo.delayFrames, in input frames) is fixed by the rates:
 * half the windowed sinc's length, whichever filter runs. Output n is written as soon as the input it needs is in, so after
 * N input frames in all exactly ceil(N * ratio) output frames have been
 * written; when a whole number of periods of an exact ratio has gone in,
 * that is exactly the periods' output. */
#ifndef SKELDA_RSMPL_HQ_H
#define SKELDA_RSMPL_HQ_H

#include <stdint.h>

#include "skelda/export.h"
#include "skelda/rsmpl.h"

SKELDA_EXTERN_C_BEGIN

enum {
  RSMPL_HQ_RATE_MIN = 8000,
  RSMPL_HQ_RATE_MAX = 192000,
  RSMPL_HQ_MAX_CHANNELS = 8
};

/* Status codes of this API beside those of rsmpl.h (1 null state, 2 null
 * pointer, 3 bad rate or ratio, 4 bad channel count, length or size). */
enum {
  RSMPL_ERR_BAD_STATE = 7, /* the state was never initialised, or is damaged */
  RSMPL_ERR_OVERLAP = 8    /* input and output overlap in a way the call cannot serve */
};

/* Opaque; lives in caller-owned memory of RSMPL_HqGetStateSize bytes. */
typedef struct RSMPL_HqState RSMPL_HqState;

typedef struct RSMPL_HqInfo {
  uint32_t inRate;
  uint32_t outRate;
  uint32_t channels;
  uint32_t ratioOut;          /* the exact ratio in lowest terms: ratioOut output */
  uint32_t ratioIn;           /* frames for every ratioIn input frames */
  uint32_t taps;              /* inner-product length per output sample:
                                 2 delayFrames for the windowed sinc, fewer
                                 for a ratio's own minimax design */
  uint32_t phases;            /* filter phases held in the state */
  uint32_t interpolated;      /* 1 when ratioOut exceeds the phases held and
                                 each output blends two neighbouring phases */
  uint32_t delayFrames;       /* group delay in input frames */
  uint32_t delayMicroseconds; /* group delay in microseconds, rounded */
} RSMPL_HqInfo;

/* Bytes of state for these rates and channels (8 to 65536-byte aligned
 * blocks are fine; the state aligns itself). 3 for a rate outside
 * 8000..192000, 4 for channels outside 1..8, 2 for a null `size`. */
SKELDA_API RSMPL_Status RSMPL_HqGetStateSize(uint32_t inRate, uint32_t outRate,
                                             uint32_t channels, uint32_t *size);

/* Lays out a state in `size` bytes at `state`, designs the filter for the
 * rates and starts a silent stream at the rates' ratio. 1 for a null state,
 * 3 for a bad rate, 4 for bad channels or `size` below what
 * RSMPL_HqGetStateSize asks. */
SKELDA_API RSMPL_Status RSMPL_HqInit(RSMPL_HqState *state, uint32_t size, uint32_t inRate,
                                     uint32_t outRate, uint32_t channels);

/* Runs the stream at exactly outFrames / inFrames from now on (the filter
 * stays the one the rates gave). The ratio must lie within 1/16 of
 * outRate / inRate either way; the stream's position carries over, rounded
 * to the new ratio's phase grid. 1 null state, 7 state not initialised,
 * 3 for a zero count or a ratio too far from the rates'. */
SKELDA_API RSMPL_Status RSMPL_HqSetRatio(RSMPL_HqState *state, uint32_t outFrames,
                                         uint32_t inFrames);

/* Silent history and the stream back at its start; rates, ratio and filter
 * stay. 1 null state, 7 state not initialised. */
SKELDA_API RSMPL_Status RSMPL_HqReset(RSMPL_HqState *state);

/* Converts interleaved frames. On entry *inFrames and *outFrames hold the
 * frames available in `in` and the room in `out`; on return, the frames
 * consumed and written. Input is consumed frame by frame as long as the
 * outputs each frame makes ready fit in the room left, and every output made
 * ready is written: so the state never holds a finished output back, and a
 * call with room for ceil(*inFrames * ratio) frames or more consumes all its
 * input. `in` may be null when *inFrames is 0 and `out` when *outFrames is 0.
 * `in` and `out` may be the same buffer when the ratio is at most 1; other
 * overlaps give 8. 1 null state, 7 not initialised, 2 null counts or null
 * buffer with a nonzero count, 8 overlap. */
SKELDA_API RSMPL_Status RSMPL_HqProcess(RSMPL_HqState *state, const int16_t *in,
                                        uint32_t *inFrames, int16_t *out, uint32_t *outFrames);

/* Output frames RSMPL_HqProcess would write for `inFrames` input frames with
 * unlimited room, from the current position (capped at UINT32_MAX). 1, 7,
 * then 2 for null result. */
SKELDA_API RSMPL_Status RSMPL_HqOutputFrames(const RSMPL_HqState *state, uint32_t inFrames,
                                             uint32_t *outFrames);

/* The least input frames after which at least `outFrames` more outputs are
 * ready (capped at UINT32_MAX). Its last frame may make more outputs ready
 * than that: a call given that input and room for exactly `outFrames`
 * consumes it all only when it does not (room for the ratio's ceiling more
 * always suffices). 1, 7, then 2 for null result. */
SKELDA_API RSMPL_Status RSMPL_HqInputFrames(const RSMPL_HqState *state, uint32_t outFrames,
                                            uint32_t *inFrames);

/* Describes the state's filter, ratio and delay. 1, 7, then 2 for null. */
SKELDA_API RSMPL_Status RSMPL_HqGetInfo(const RSMPL_HqState *state, RSMPL_HqInfo *info);

/* The 32-bit resampler: the same rates, channels, ratios, exact positions
 * and calls as above, for 24-bit material. Samples are int32 (S32: full
 * scale 2^31, 24-bit audio in the top 24 bits) or int16 (S16), chosen per
 * call for input and output; inside, every sample is 32 bits and every
 * coefficient 30 bits after the point, summed exactly in 64 bits. The
 * filter is a Kaiser-windowed sinc reaching 48 lower-rate samples a side
 * (RSMPL_HqInfo.delayFrames input frames, at most half again the 16-bit
 * resampler's delay): passband to 0.45 of the lower rate within 0.003 dB,
 * stopband from 0.55 about 150 dB down. S32 output is the exact result
 * rounded once; S16 output rounds that to 16 bits, after TPDF dither of
 * +-1 LSB when RSMPL_Hq32SetDither turned it on (a fixed-seed generator,
 * restarted by Init and Reset, so the samples stay reproducible). */
enum {
  RSMPL_HQ_S16 = 0, /* int16_t samples */
  RSMPL_HQ_S32 = 1  /* int32_t samples */
};

/* Status code of this API beside those above. */
enum {
  RSMPL_ERR_BAD_FORMAT = 9 /* a sample format other than RSMPL_HQ_S16, RSMPL_HQ_S32 */
};

/* Opaque; lives in caller-owned memory of RSMPL_Hq32GetStateSize bytes. */
typedef struct RSMPL_Hq32State RSMPL_Hq32State;

/* As RSMPL_HqGetStateSize. */
SKELDA_API RSMPL_Status RSMPL_Hq32GetStateSize(uint32_t inRate, uint32_t outRate,
                                               uint32_t channels, uint32_t *size);

/* As RSMPL_HqInit; dither off. */
SKELDA_API RSMPL_Status RSMPL_Hq32Init(RSMPL_Hq32State *state, uint32_t size, uint32_t inRate,
                                       uint32_t outRate, uint32_t channels);

/* As RSMPL_HqSetRatio. */
SKELDA_API RSMPL_Status RSMPL_Hq32SetRatio(RSMPL_Hq32State *state, uint32_t outFrames,
                                           uint32_t inFrames);

/* TPDF dither on S16 output from now on (`dither` nonzero) or off. 1 null
 * state, 7 state not initialised. */
SKELDA_API RSMPL_Status RSMPL_Hq32SetDither(RSMPL_Hq32State *state, uint32_t dither);

/* As RSMPL_HqReset; the dither generator restarts from its seed. */
SKELDA_API RSMPL_Status RSMPL_Hq32Reset(RSMPL_Hq32State *state);

/* As RSMPL_HqProcess, with interleaved frames of `inFormat` at `in` and of
 * `outFormat` at `out` (RSMPL_HQ_S16 or RSMPL_HQ_S32). `in` and `out` may
 * be the same buffer when the ratio is at most 1 and an output frame is no
 * larger than an input frame; other overlaps give 8. 1 null state, 7 not
 * initialised, 9 bad format, 2 null counts or null buffer with a nonzero
 * count, 8 overlap. */
SKELDA_API RSMPL_Status RSMPL_Hq32Process(RSMPL_Hq32State *state, const void *in,
                                          uint32_t inFormat, uint32_t *inFrames, void *out,
                                          uint32_t outFormat, uint32_t *outFrames);

/* As RSMPL_HqOutputFrames and RSMPL_HqInputFrames. */
SKELDA_API RSMPL_Status RSMPL_Hq32OutputFrames(const RSMPL_Hq32State *state, uint32_t inFrames,
                                               uint32_t *outFrames);
SKELDA_API RSMPL_Status RSMPL_Hq32InputFrames(const RSMPL_Hq32State *state, uint32_t outFrames,
                                              uint32_t *inFrames);

/* As RSMPL_HqGetInfo: `taps` is the inner-product length per output, the
 * delay the window's centre. */
SKELDA_API RSMPL_Status RSMPL_Hq32GetInfo(const RSMPL_Hq32State *state, RSMPL_HqInfo *info);

SKELDA_EXTERN_C_END

#endif
