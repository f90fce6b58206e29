// SPDX-License-Identifier: MIT
// Layout and arithmetic of the 32-bit high-quality resampler's state.
//
// Every sample is int32 at S32 scale (16-bit input enters multiplied by
// 2^16). Output n of the stream reads the T samples of each channel's line
// ending at e_n = floor(n M / L) + T - 1 (the T - 1 samples before the
// stream are silence), at phase r_n = n M mod L, for the ratio L / M
// (output / input frames) in lowest terms, and stands for input time
// n M / L - D: D input frames of delay, the window's centre. The T
// coefficients of phase q/P hold the prototype at the taps' distances
// k - (T - 1) + D - q/P input frames from that time (T is 2 D rounded up to
// a multiple of 8; the taps past the prototype's reach are zero).
//
// The state holds P + 1 phases of T int32 coefficients in Q30, each phase
// summing to exactly 2^30: P = L when they fit, else as many as fit, and
// output n then blends phases q and q + 1 of the grid, q = floor(r P / L),
// by the Q16 weight w = (rem floor(2^40 / L)) >> 24, rem = r P mod L (about
// rem / L, without a division per output). Phase P is phase 0 one sample on.
//
// An output is the exact int64 sum of its T products, or for a blend
// y0 + ((y1 - y0) >> 16) w of its two phases' sums, rounded half
// up by 2^30 and saturated to int32: the S32 result. Set-up checks that
// every phase's sum of |c|, and every blended pair's sum of |c1 - c0|, stays
// below 2^32, so that no sum of 32-bit samples can leave 63 bits. S16
// output is the S32 result plus 2^15, plus the dither d when it is on,
// shifted down by 16 and saturated; d = (u >> 16) + (u & 0xffff) - 65536
// for the next word u of a xorshift32 generator (TPDF, +-1 LSB of 16 bits),
// one word per S16 output sample in stream order.
#ifndef SKELDA_RSMPL_HQ32_STATE_H
#define SKELDA_RSMPL_HQ32_STATE_H

#include <cstddef>
#include <cstdint>

#include "skelda/rsmpl_hq.h"

namespace rsmpl {

constexpr uint32_t kHq32Magic = 0x48513332;        // "HQ32"
constexpr uint32_t kHq32MaxCoefficients = 1u << 18;  // (P + 1) T at most
constexpr uint32_t kHq32Chunk = 512;                 // input frames per pass
constexpr uint32_t kHq32TapAlign = 8;
constexpr uint32_t kHq32Pad = 8;          // int32 after the coefficients and each line
constexpr uint32_t kHq32ScratchFrames = 256;  // outputs per pass towards S16
constexpr uint32_t kHq32Shift = 30;       // coefficients' fraction bits
constexpr uint32_t kHq32NoiseSeed = 0x2545f491;

// The filter for a pair of rates, before any state exists.
struct Hq32Design {
  uint32_t reach;       // D
  uint32_t taps;        // T
  uint32_t max_phases;  // phases the coefficient area holds
  uint32_t line_cap;    // samples of each channel's line
  uint32_t bytes;       // whole state
};

// Checked by the callers: rates in range, channels 1..8.
Hq32Design hq32_design(uint32_t in_rate, uint32_t out_rate, uint32_t channels);

}  // namespace rsmpl

struct RSMPL_Hq32State {
  uint32_t magic;
  uint32_t bytes;
  uint32_t in_rate, out_rate, channels;
  uint32_t reach, taps, max_phases, line_cap;
  // The ratio L / M and the phase grid.
  uint32_t ratio_out, ratio_in;  // L, M
  uint32_t phases;               // P
  uint32_t step_int, step_frac;  // M / L, M % L
  uint32_t grid_int, grid_frac;  // (step_frac P) / L, (step_frac P) % L
  uint64_t weight_inv;           // floor(2^40 / L)
  // The stream.
  uint32_t r;     // phase numerator of the next output, < L
  uint32_t q;     // its grid phase, < P
  uint32_t rem;   // r P mod L
  uint32_t end;   // index in the lines of the next output's newest sample
  uint32_t fill;  // samples in each line
  uint32_t dither;  // 1: TPDF dither on S16 output
  uint32_t noise;   // the dither generator, never 0
  uint32_t reserved[7];  // the header stays 128 bytes
  // Coefficients (max_phases x T int32, then kHq32Pad zeros), then one line
  // of line_cap + kHq32Pad samples per channel, then the S16 scratch of
  // kHq32ScratchFrames frames.
  int32_t *coefficients() { return reinterpret_cast<int32_t *>(this + 1); }
  const int32_t *coefficients() const { return reinterpret_cast<const int32_t *>(this + 1); }
  size_t line_stride() const { return static_cast<size_t>(line_cap) + rsmpl::kHq32Pad; }
  int32_t *line(uint32_t c) { return coefficients() + lines_at() + c * line_stride(); }
  const int32_t *line(uint32_t c) const { return coefficients() + lines_at() + c * line_stride(); }
  int32_t *scratch() { return line(channels); }
  size_t lines_at() const { return static_cast<size_t>(max_phases) * taps + rsmpl::kHq32Pad; }
};

namespace rsmpl {

// Builds the coefficients of P phases (plus the closing one) and sets the
// grid's size; false when a phase breaks the sums' bounds (none does).
bool hq32_build_phases(RSMPL_Hq32State *st, uint32_t phases);
// Sets the ratio L / M (lowest terms, checked) and the phase grid, keeping
// the stream's position; rebuilds the coefficients when the grid changes.
bool hq32_set_ratio(RSMPL_Hq32State *st, uint32_t ratio_out, uint32_t ratio_in);
// Silent history, first output next, the dither generator at its seed.
void hq32_reset(RSMPL_Hq32State *st);
// The conversion loop behind RSMPL_Hq32Process, on checked arguments.
void hq32_process(RSMPL_Hq32State *st, const void *in, uint32_t in_format, uint32_t *in_frames,
                  void *out, uint32_t out_format, uint32_t *out_frames);
// Outputs ready after `in_frames` more input; input needed for `out_frames` more outputs.
uint64_t hq32_outputs_for(const RSMPL_Hq32State *st, uint64_t in_frames);
uint64_t hq32_inputs_for(const RSMPL_Hq32State *st, uint64_t out_frames);

}  // namespace rsmpl

#endif
