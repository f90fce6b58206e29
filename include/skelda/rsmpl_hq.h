/* SPDX-License-Identifier: MIT */
/* High-quality resampler: any pair of rates from 4000 to 768000 Hz, 1 to 64
 * interleaved channels, integer arithmetic throughout, in two grades:
 *
 * - the 16-bit calls (RSMPL_Hq*) take and give int16 frames through filters
 *   about 110 dB down, for 16-bit material;
 * - the 32-bit calls (RSMPL_Hq32*) take and give int16 or int32 frames,
 *   chosen per call, through filters about 150 dB down, for 24-bit material
 *   (S32: full scale 2^31, 24-bit audio in the top 24 bits).
 *
 * Both run the same chain: half-band stages by two (one sharp, at twice
 * the lower rate, holding the passband to 0.45 and the stopband from 0.55 of
 * that rate; the others short, further out) around one polyphase stage for
 * the fraction, so that the cost per output frame does not grow with the
 * ratio. Samples inside have 30 bits and 6 dB of headroom; every sum of
 * products is exact in 64 bits, and every CPU gives the same samples.
 *
 * The caller owns the state: RSMPL_HqGetStateSize tells how many bytes the
 * rates and channel count need, RSMPL_HqInit lays the state out in them, and
 * nothing allocates afterwards. Every call returns an RSMPL_Status and checks
 * all its arguments before doing any work: a call that fails changes
 * nothing. Every call but Init is real-time safe: no allocation, no table
 * built, no work that grows with the state beyond the frames it converts.
 *
 * Timing: the stream runs at a ratio (output frames / input frames) that
 * the rates give, or that RSMPL_HqSetRatio sets exactly (alsa-lib's period
 * sizes, say), or that RSMPL_HqSetRatioScale sets as a fixed-point multiple
 * of the rates' ratio (a clock to follow). Output n stands for input
 * position t_n - delay, where t_0 = 0 and each output moves t on by the
 * ratio's inverse, and is written as soon as input frame floor(t_n) is in:
 * at a fixed ratio L / M, after N input frames in all exactly ceil(N L / M)
 * output frames have been written, so a whole number of periods gives
 * exactly the periods' output. A new ratio applies from the stream's
 * current position, which it never moves: the outputs after it stand where
 * the new ratio puts them, counted from where the old one left off (to
 * within 2^-32 of an input frame). */
#ifndef SKELDA_RSMPL_HQ_H
#define SKELDA_RSMPL_HQ_H

#include <stdint.h>

#include "skelda/export.h"
#include "skelda/rsmpl.h"

SKELDA_EXTERN_C_BEGIN

enum {
  RSMPL_HQ_RATE_MIN = 4000,
  RSMPL_HQ_RATE_MAX = 768000,
  RSMPL_HQ_MAX_CHANNELS = 64
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
  uint32_t ratioOut;          /* the ratio in lowest terms: ratioOut output */
  uint32_t ratioIn;           /* frames for every ratioIn input frames (a
                                 scaled ratio: the nearest such fraction) */
  uint32_t taps;              /* the polyphase kernel's length */
  uint32_t phases;            /* its phases per sample, between which it is
                                 interpolated */
  uint32_t interpolated;      /* 1: the kernel is interpolated between phases */
  uint32_t delayFrames;       /* the chain's delay in input frames, rounded */
  uint32_t delayMicroseconds; /* the same in microseconds, rounded */
} RSMPL_HqInfo;

/* Where the stream stands (RSMPL_HqGetPosition). Positions are in input
 * frames, as a whole part and a fraction in units of 2^-32. */
typedef struct RSMPL_HqPosition {
  uint64_t inputFrames;     /* input frames taken since Init or Reset */
  uint64_t outputFrames;    /* output frames written since then */
  int64_t nextFrame;        /* the input position the next output stands */
  uint32_t nextFraction;    /*   for (delay included; negative at the start) */
  uint32_t delayFraction;   /* the chain's delay: delayFrames + */
  uint64_t delayFrames;     /*   delayFraction / 2^32 input frames */
} RSMPL_HqPosition;

/* A ratio may lie within 1/8 of outRate / inRate either way. The filters
 * stay those the rates gave, so beyond a few per cent from the rates' ratio
 * the top of the passband folds (output slower) or the band shrinks. */

/* Bytes of state for these rates and channels (8 to 65536-byte aligned
 * blocks are fine). 3 for a rate outside 4000..768000, 4 for channels
 * outside 1..64, 2 for a null `size`. */
SKELDA_API RSMPL_Status RSMPL_HqGetStateSize(uint32_t inRate, uint32_t outRate,
                                             uint32_t channels, uint32_t *size);

/* Lays out a state in `size` bytes at `state` for the rates and starts a
 * silent stream at the rates' ratio. 1 for a null state, 3 for a bad rate,
 * 4 for bad channels, `size` below what RSMPL_HqGetStateSize asks, or a
 * block not 8-byte aligned. */
SKELDA_API RSMPL_Status RSMPL_HqInit(RSMPL_HqState *state, uint32_t size, uint32_t inRate,
                                     uint32_t outRate, uint32_t channels);

/* Runs the stream at exactly outFrames / inFrames from its current
 * position on: any terms up to 2^32 - 1 whose ratio lies within 1/8 of
 * outRate / inRate. 1 null state, 7 state not initialised, 3 for a zero
 * term or a ratio outside that window. */
SKELDA_API RSMPL_Status RSMPL_HqSetRatio(RSMPL_HqState *state, uint32_t outFrames,
                                         uint32_t inFrames);

/* Runs the stream at outRate / inRate times scale / 2^32 from its current
 * position on (2^32: the rates' ratio; 2^32 + 4295: about 1 ppm faster
 * output), for callers that follow a clock. The scale must lie within 1/8
 * of 2^32 either way. 1 null state, 7 not initialised, 3 out of range. */
SKELDA_API RSMPL_Status RSMPL_HqSetRatioScale(RSMPL_HqState *state, uint64_t scale);

/* Moves the ratio to outRate / inRate times scale / 2^32 gradually instead
 * of at once: from the stream's current position, the step changes in up to
 * 256 equal stairs spread over about `frames` output frames (fewer than two
 * of the chain's polyphase steps: at once, as RSMPL_HqSetRatioScale). Frame
 * counts stay exact throughout. A new ratio, scale or glide replaces one
 * under way; Reset stops it where it is. 1 null state, 7 not initialised,
 * 3 scale out of range. */
SKELDA_API RSMPL_Status RSMPL_HqGlideScale(RSMPL_HqState *state, uint64_t scale, uint32_t frames);

/* Silent history and the stream back at its start; rates, ratio and filter
 * stay. 1 null state, 7 state not initialised. */
SKELDA_API RSMPL_Status RSMPL_HqReset(RSMPL_HqState *state);

/* Converts interleaved frames. On entry *inFrames and *outFrames hold the
 * frames available in `in` and the room in `out`; on return, the frames
 * consumed and written. Input is consumed as long as the outputs it makes
 * due fit in the room left, and every output due is written: so the
 * stream never holds a due output back, and a call with room for
 * ceil(*inFrames * ratio) frames or more consumes all its input. `in` may
 * be null when *inFrames is 0 and `out` when *outFrames is 0. `in` and
 * `out` may be the same buffer when the ratio is at most 1; other overlaps
 * give 8. 1 null state, 7 not initialised, 2 null counts or null buffer
 * with a nonzero count, 8 overlap. */
SKELDA_API RSMPL_Status RSMPL_HqProcess(RSMPL_HqState *state, const int16_t *in,
                                        uint32_t *inFrames, int16_t *out, uint32_t *outFrames);

/* Output frames RSMPL_HqProcess would write for `inFrames` input frames with
 * unlimited room, from the current position (capped at UINT32_MAX). 1, 7,
 * then 2 for null result. */
SKELDA_API RSMPL_Status RSMPL_HqOutputFrames(const RSMPL_HqState *state, uint32_t inFrames,
                                             uint32_t *outFrames);

/* The least input frames after which at least `outFrames` more outputs are
 * due (capped at UINT32_MAX). Its last frame may make more due than that: a
 * call given that input and room for exactly `outFrames` consumes it all
 * only when it does not. 1, 7, then 2 for null result. */
SKELDA_API RSMPL_Status RSMPL_HqInputFrames(const RSMPL_HqState *state, uint32_t outFrames,
                                            uint32_t *inFrames);

/* Describes the state's filter, ratio and delay. 1, 7, then 2 for null. */
SKELDA_API RSMPL_Status RSMPL_HqGetInfo(const RSMPL_HqState *state, RSMPL_HqInfo *info);

/* Where the stream stands: frames taken and written, the input position
 * the next output stands for and the delay, to 2^-32 of a frame (what a
 * caller following a clock measures its buffer by). 1, 7, then 2. */
SKELDA_API RSMPL_Status RSMPL_HqGetPosition(const RSMPL_HqState *state, RSMPL_HqPosition *position);

/* The 32-bit calls: the same rates, channels, ratios, positions and calls
 * as above, through the grade for 24-bit material (passband to 0.45 of the
 * lower rate within 0.003 dB, stopband from 0.55 about 150 dB down). Samples
 * are int32 (S32) or int16 (S16), chosen per call for input and output. S32
 * output is the result rounded once; S16 output rounds it to 16 bits, after
 * TPDF dither of +-1 LSB when RSMPL_Hq32SetDither turned it on (a
 * fixed-seed generator, restarted by Init and Reset, so the samples stay
 * reproducible). */
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

/* As RSMPL_HqSetRatio, RSMPL_HqSetRatioScale and RSMPL_HqGlideScale. */
SKELDA_API RSMPL_Status RSMPL_Hq32SetRatio(RSMPL_Hq32State *state, uint32_t outFrames,
                                           uint32_t inFrames);
SKELDA_API RSMPL_Status RSMPL_Hq32SetRatioScale(RSMPL_Hq32State *state, uint64_t scale);
SKELDA_API RSMPL_Status RSMPL_Hq32GlideScale(RSMPL_Hq32State *state, uint64_t scale, uint32_t frames);

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

/* As RSMPL_HqOutputFrames, RSMPL_HqInputFrames, RSMPL_HqGetInfo and
 * RSMPL_HqGetPosition. */
SKELDA_API RSMPL_Status RSMPL_Hq32OutputFrames(const RSMPL_Hq32State *state, uint32_t inFrames,
                                               uint32_t *outFrames);
SKELDA_API RSMPL_Status RSMPL_Hq32InputFrames(const RSMPL_Hq32State *state, uint32_t outFrames,
                                              uint32_t *inFrames);
SKELDA_API RSMPL_Status RSMPL_Hq32GetInfo(const RSMPL_Hq32State *state, RSMPL_HqInfo *info);
SKELDA_API RSMPL_Status RSMPL_Hq32GetPosition(const RSMPL_Hq32State *state,
                                              RSMPL_HqPosition *position);

SKELDA_EXTERN_C_END

#endif
