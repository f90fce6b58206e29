// SPDX-License-Identifier: MIT
// The 16-bit grade's single stage, for rates at most three apart: one
// polyphase stage from the input's S16 samples straight to the output, in
// 16 x 16-bit products.
//
// At such ratios a chain of half-bands costs more than it saves: one kernel
// of 64 units of the lower rate (hq/designs.h, kHqDirect16) between the
// rates themselves keeps 0.45 of the lower rate and rejects from 0.55 of
// it (103 dB), and its inner products run on the input samples as they came, two
// 16-bit products a tap. Output n stands at position p_n in the input
// (rsmpl/hq/position.h, a step of M / L input frames) and reads the T input
// samples ending at floor(p_n); tap k lies k - T/2 + 1 - frac(p_n) input
// frames from the output's centre, so the stage delays by T/2 input frames.
// Going down the kernel is stretched to the input's units by out / in (the
// rates' own ratio, which a scale of it keeps): T = 2 ceil(32 in / out)
// rounded up to a multiple of 8.
//
// Each tap c (Q21) is kept as hi 2^7 + lo, hi 16-bit and 0 <= lo < 2^7 one
// byte, so that an inner product is two 16-bit ones whose sums stay inside
// 32 bits for any input: |hi| <= 2^14 and the rows' magnitudes are below 3
// (sum |x hi| < 1.5 2^30), T 2^7 < 2^15 (sum |x lo| < 2^30). Three bytes a
// tap keep the rows of alsa-lib's 1024-frame periods (1024 fractions)
// within the state's budget. The stage's output, in the chain's inside
// scale (S16 times 2^14), is (sum x c + 2^6) >> 7, clamped as every
// stage's.
//
// The rows of taps are made as the stream first needs them, into the
// state's row area: when the step's denominator (L) fits it, the row of
// every fraction r / L exactly; otherwise rows on a grid of 2^g fractions,
// an output off the grid then blended linearly between the outputs of the
// two rows around it (the grid is fine enough that this stays 100 dB down).
// The single stage serves rates up to three apart going up, and going down
// where its rows for 1024 fractions fit (T <= 72: 48000 -> 44100) or the
// rates are two or three apart (whole ratios, one fraction).
#ifndef SKELDA_RSMPL_HQ_DIRECT_H
#define SKELDA_RSMPL_HQ_DIRECT_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq/position.h"

namespace rsmpl {

// Rates at most this many times apart going up take the single stage.
constexpr uint32_t kHqDirectSpan = 3;
// The row area's bytes at most (rows of 3 T bytes each), and the taps the
// single stage may have going down at other than whole ratios.
constexpr uint32_t kHqDirectRowBytes = 216 * 1024;
constexpr uint32_t kHqDirectMaxTaps = 72;
// The most taps any design has (three to one down: 192).
constexpr uint32_t kHqDirectTapsMost = 2 * 32 * kHqDirectSpan;
// The lo half's bits.
constexpr uint32_t kHqDirectShift = 7;

struct HqDirectDesign {
  uint32_t taps;       // T, a multiple of 8
  uint32_t rows_cap;   // rows the row area holds
  uint32_t grid_bits;  // g: 2^g + 1 grid rows fit
  uint64_t stretch;    // out / in going down (1 going up), 32.32 fixed point
  int32_t gain;        // the same in Q29
  uint32_t reserved;
};

// Whether a pair of rates takes the single stage (16-bit grade), and its
// design when it does.
bool hq_direct_fits(uint32_t in_rate, uint32_t out_rate);
HqDirectDesign hq_direct_design(uint32_t in_rate, uint32_t out_rate);

// A row's bytes: T hi halves (int16), then T lo halves (uint8).
constexpr size_t hq_direct_row_bytes(uint32_t taps) { return size_t{3} * taps; }

// Row r / den (1 <= den <= 2^32, r <= den) of the design. Integer
// arithmetic over the constant table, the same on every CPU; one division
// a row, none a tap.
void hq_direct_row(const HqDirectDesign &d, uint64_t r, uint64_t den, uint8_t *row);

// Inner products of `rows` channels' int16 windows (channel c at x + c
// xstride) with a row: y[c ystride] = (sum x c + 2^6) >> 7 for c = hi 2^7
// + lo, clamped to [-2^30, 2^30).
using HqDot16Fn = void (*)(const int16_t *x, size_t xstride, uint32_t rows, const uint8_t *row, uint32_t taps,
                           int32_t *y, size_t ystride);
// `frames` interleaved S16 frames of `channels` into their lines (channel c
// to to[c]).
using HqTake16Fn = void (*)(const int16_t *src, uint32_t channels, uint32_t frames, int16_t *const *to);

// One pass of the single stage: outputs while their newest sample is in
// and `room` lasts.
struct HqDirectJob {
  const int16_t *x;  // channel 0's line; channel c at x + c xstride
  size_t xstride;
  uint32_t channels;
  uint32_t room;
  int64_t base;  // absolute index of x[0]
  int64_t end;   // absolute index one past the newest sample
  HqPos pos;     // in: the next output's; out: the one after the last made
  HqPos last;    // out: the last output's, when one was made
  HqStep step;
  const HqDirectDesign *design;
  uint8_t *rows;    // the row area
  uint32_t *made;   // a bit per row: made
  uint32_t exact;   // 1: rows are r / step.den; 0: the grid's
  int32_t *y;       // channel c's outputs at y + c ystride
  size_t ystride;
  int32_t *scratch;  // 2 channels int32
};
using HqDirectFn = uint32_t (*)(HqDirectJob *job);

struct HqDirectKernels {
  HqDot16Fn dots;
  HqTake16Fn take;
  HqDirectFn pass;
};

// One table per build, as HqKernels (rsmpl/cpu.cpp picks).
const HqDirectKernels *hq_direct_kernels_scalar();
const HqDirectKernels *hq_direct_kernels_sse2();
const HqDirectKernels *hq_direct_kernels_avx2();
const HqDirectKernels *hq_direct_kernels_neon();

}  // namespace rsmpl

#endif
