// SPDX-License-Identifier: MIT
// Layout and arithmetic of the high-quality resampler's state.
//
// Output n of the stream reads the T input samples ending at e_n = floor(n
// M / L) (samples before the stream are silence), at phase r_n = n M mod L,
// for the ratio L / M (output / input frames) in lowest terms. The T
// coefficients of phase r/L hold the prototype at the taps' distances from
// input position n M / L - T/2, so the delay is T/2 input frames.
//
// The state holds P + 1 phases of coefficients: P = L when they fit, else as
// many as fit, and output n then blends phases q and q + 1 of the grid, q =
// floor(r P / L), by weight (r P mod L) / L. Phase P is phase 0 one sample on.
//
// Ratios whose terms are both at most kHqDirectMax (3/2, 1/3, ...) take the
// design of their own grid instead (hq/tables.h): D = max(L, M), `active`
// taps centred in the window (the rest are zero, the delay stays T/2), and
// the lane kernel computes eight outputs of one phase at once, outputs n,
// n + L, ..., n + 7L, whose newest samples lie M apart. For that, each
// channel also keeps its samples as pairs (x[i], x[i - M]) in M rows by i
// mod M, row position i div M, so that the eight outputs' pairs for a tap
// pair (b, b + M) are consecutive. While a direct design runs, the pair rows
// alone hold the samples; the lines are brought up to date when it ends.
//
// Each coefficient is c = hi 2^S + lo with hi, lo 16-bit, so an inner product
// is two 16 x 16-bit ones. At set-up S and the scale 2^F of the coefficients
// are chosen so that neither sum can leave 32 bits for any input: the sum of
// |lo| times 32768 and the largest sum of |hi| over a phase times 32768 stay
// below 2^31, and so does sum_hi plus sum_lo / 2^S. The output is
// (sum_hi 2^S + sum_lo) rounded half up by 2^F and saturated to 16 bits,
// F = 14 + S; the SIMD builds take it in 32-bit lanes as
// (sum_hi + ((sum_lo + 2^(F-1)) >> S)) >> 14, the same value.
#ifndef SKELDA_RSMPL_HQ_STATE_H
#define SKELDA_RSMPL_HQ_STATE_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq/tables.h"
#include "skelda/rsmpl_hq.h"

namespace rsmpl {

constexpr uint32_t kHqMagic = 0x48517631;      // "HQv1"
constexpr uint32_t kHqMaxCoefficients = 65536;  // (P + 1) T at most
constexpr uint32_t kHqChunk = 512;              // input frames per pass
constexpr uint32_t kHqTapAlign = 16;
constexpr uint32_t kHqHiShift = 14;             // F - S: the peak 1.0 in hi
constexpr uint32_t kHqLanes = 8;                // outputs per lane-kernel pass
// Pairs a channel's pair rows hold beyond its line: M rows of ceil(line_cap
// / M) + kHqLanes + 1 pairs each, for M up to kHqDirectMax.
constexpr uint32_t kHqPairSlack = (kHqLanes + 2) * kHqDirectMax;

// The filter for a pair of rates, before any state exists.
struct HqDesign {
  uint32_t half;       // prototype half-length in lower-rate samples
  uint32_t taps;       // T, a multiple of kHqTapAlign
  uint32_t max_phases; // phases the coefficient area holds
  uint32_t line_cap;   // samples of each channel's input line
  uint32_t bytes;      // whole state
};

// The direct design for the ratio L / M of a state with `taps` taps, or
// d = 0 when the ratio has none (a term above kHqDirectMax, or 1/1).
struct HqDirect {
  uint32_t d;       // max(L, M)
  uint32_t active;  // taps it spans, a multiple of 2M
  uint32_t stride;  // pairs per row of a channel's pair rows
};
HqDirect hq_direct(uint32_t l, uint32_t m, uint32_t taps, uint32_t line_cap);

// Checked by the callers: rates in range, channels 1..8.
HqDesign hq_design(uint32_t in_rate, uint32_t out_rate, uint32_t channels);

}  // namespace rsmpl

struct RSMPL_HqState {
  uint32_t magic;
  uint32_t bytes;
  uint32_t in_rate, out_rate, channels;
  uint32_t half, taps, max_phases, line_cap;
  uint32_t lo_shift;   // S
  uint32_t out_shift;  // F
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
  // The direct design in use (d = 0: none).
  uint32_t direct, active, pair_stride;
  // 1 when the direct design folds (hq_build_pairs): L = 1, an even number
  // of pair groups, and tap b (counted back from the newest) equal to tap
  // active - b, tap 0 zero; so outputs can add mirrored samples first.
  uint32_t folded;
  // Coefficients (max_phases x 2T int16: hi then lo per phase; with a
  // direct design, its tap pairs after L + 1 phases), then one line of line_cap
  // samples per channel, then each channel's pair rows (2 (line_cap +
  // kHqPairSlack) int16).
  int16_t *coefficients() { return reinterpret_cast<int16_t *>(this + 1); }
  const int16_t *coefficients() const { return reinterpret_cast<const int16_t *>(this + 1); }
  int16_t *line(uint32_t c) {
    return coefficients() + static_cast<size_t>(max_phases) * 2 * taps +
           static_cast<size_t>(c) * line_cap;
  }
  const int16_t *line(uint32_t c) const {
    return coefficients() + static_cast<size_t>(max_phases) * 2 * taps +
           static_cast<size_t>(c) * line_cap;
  }
  // A direct design's tap pairs, after the hi and lo of its L + 1 phases.
  int16_t *pair_coefficients() { return coefficients() + pair_coefficients_at(); }
  const int16_t *pair_coefficients() const { return coefficients() + pair_coefficients_at(); }
  int16_t *pairs(uint32_t c) { return line(channels) + static_cast<size_t>(c) * pair_line_size(); }
  const int16_t *pairs(uint32_t c) const {
    return line(channels) + static_cast<size_t>(c) * pair_line_size();
  }
  size_t pair_coefficients_at() const {
    return static_cast<size_t>(rsmpl::kHqDirectMax + 1) * 2 * taps;
  }
  size_t pair_line_size() const { return static_cast<size_t>(2) * (line_cap + rsmpl::kHqPairSlack); }
};

namespace rsmpl {

// Builds the coefficients of P phases (plus the closing one) for the ratio
// L / M, from the direct design when it has one, and sets the shifts; false
// when the sums could leave 32 bits (no design does that).
bool hq_build_phases(RSMPL_HqState *st, uint32_t phases, uint32_t l, uint32_t m,
                     const HqDirect &design);
// A direct design's tap pairs from its phases' hi and lo, and whether it
// folds.
void hq_build_pairs(RSMPL_HqState *st, uint32_t l, uint32_t m);
// The pair rows of every channel for line positions [from, to), from the
// lines; the lines from the pair rows.
void hq_fill_pairs(RSMPL_HqState *st, uint32_t from, uint32_t to);
void hq_lines_from_pairs(RSMPL_HqState *st);
// Sets the ratio L / M (lowest terms, checked) and the phase grid, keeping
// the stream's position; rebuilds the coefficients when the grid changes.
bool hq_set_ratio(RSMPL_HqState *st, uint32_t ratio_out, uint32_t ratio_in);
// Silent history, first output next.
void hq_reset(RSMPL_HqState *st);
// The conversion loop behind RSMPL_HqProcess, on checked arguments.
void hq_process(RSMPL_HqState *st, const int16_t *in, uint32_t *in_frames, int16_t *out,
                uint32_t *out_frames);
// Outputs ready after `in_frames` more input; input needed for `out_frames` more outputs.
uint64_t hq_outputs_for(const RSMPL_HqState *st, uint64_t in_frames);
uint64_t hq_inputs_for(const RSMPL_HqState *st, uint64_t out_frames);

}  // namespace rsmpl

#endif
