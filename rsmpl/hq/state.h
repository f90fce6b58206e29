// SPDX-License-Identifier: MIT
// The high-quality resampler's state: its chain of stages, the stream's
// exact position and the samples each stage keeps.
//
// The chain (planned by rsmpl/hq/plan.cpp from the rates) is half-band
// stages by two and one polyphase stage for the fraction:
//
//   up (out >= in):   sharp x2 | polyphase 2 in -> R | x2 relaxed, k times
//   down (out < in):  /2 relaxed, k times | transposed polyphase R -> 2 out | sharp /2
//
// where R = out / 2^k lies in [2 in, 4 in) (or is `out` itself when out <
// 2 in), and likewise for the way down, so that the polyphase stage always
// works between rates at most about two apart, and every stage's cost per
// output is fixed whatever the ratio. The 16-bit grade's rates up to three
// apart take one stage instead (rsmpl/hq/direct.h), which steps as the
// polyphase stage going up does, between the rates themselves. The sharp half-band, at twice the
// lower rate, holds the passband to 0.45 and the stopband from 0.55 of it;
// the polyphase kernel and the relaxed half-bands only have to keep what
// lies beyond, so they are short.
//
// Samples inside are int32 with full scale at 2^29 (S16 input times 2^14,
// S32 input divided by 4): 30 bits of resolution, 6 dB of headroom, and two
// samples' sum fits 32 bits, which the folded half-band kernels use. Every
// stage rounds its output (sums of Q30 products, exact in 64 bits) and
// clamps it to [-2^30, 2^30).
//
// The stream's position is the polyphase stage's (rsmpl/hq/position.h):
// going up, where in its input the next output of the stage stands (one
// group of 2^k final outputs); going down, where in its output the next
// input sample stands. The public frame counts are derived from it
// exactly (rsmpl/hq/counts.cpp): after N input frames at a ratio L / M the
// stream has written ceil(N L / M) frames, and the stages, which may run a
// little ahead, keep the outputs not yet due in a small queue.
#ifndef SKELDA_RSMPL_HQ_STATE_H
#define SKELDA_RSMPL_HQ_STATE_H

#include <cstddef>
#include <cstdint>

#include "rsmpl/hq/designs.h"
#include "rsmpl/hq/direct.h"
#include "rsmpl/hq/position.h"
#include "skelda/rsmpl_hq.h"

namespace rsmpl {

constexpr uint32_t kHqMagic16 = 0x48513136;  // "HQ16": the 16-bit calls' states
constexpr uint32_t kHqMagic24 = 0x48513234;  // "HQ24": the 32-bit calls' states
constexpr uint32_t kHqMaxStages = 10;
constexpr uint32_t kHqNoiseSeed = 0x2545f491;
// Samples that the largest stage of a pass takes in at most.
constexpr uint32_t kHqPassSamples = 1024;
constexpr uint32_t kHqMaxPass = 512;
// Phases whose taps a state keeps (see HqPhaseCache), per grade: the
// ratios of alsa-lib's 1024-frame periods fit (1024 / 941, 1115 / 256, and
// for the 16-bit grade's 16 taps a row also 1024 / 2229 at 96000 -> 44100),
// and a stereo state with the module's buffers stays within 256 KB.
constexpr uint32_t kHqCachePhases16 = 2240, kHqCachePhases24 = 1536;
constexpr uint32_t kHqCachePhasesMost = kHqCachePhases16;
// Internal full scale, and the clamp of every stage's output.
constexpr uint32_t kHqScaleBits = 29;
constexpr int32_t kHqClampHigh = (1 << 30) - 1;
constexpr int32_t kHqClampLow = -(1 << 30);

// kHqDirect: the single stage, its lines int16 (two to an int32 of the
// layout).
enum HqStageKind : uint32_t { kHqHalfUp = 0, kHqHalfDown = 1, kHqPoly = 2, kHqPolyT = 3, kHqDirect = 4 };

struct HqStage {
  uint32_t kind;
  uint32_t design;  // half-bands: 0 sharp, 1..3 relaxed
  uint32_t hist;    // samples each line keeps behind the next output's window
  uint32_t cap;     // samples each line holds
  uint32_t stride;  // int32 from one channel's line to the next
  uint32_t fill;    // samples in each line (a /2 stage: in its even line)
  uint32_t odd;     // a /2 stage: samples in its odd line
  uint32_t next;    // half-bands: line index of the next output's newest sample
  uint32_t at;      // offset of the stage's lines in the state's samples (int32)
  uint32_t reserved;
  int64_t base;     // the polyphase stages: absolute index of line position 0
};

}  // namespace rsmpl

struct RSMPL_HqState {
  uint32_t magic;
  uint32_t bytes;
  uint32_t in_rate, out_rate, channels;
  uint32_t grade;       // rsmpl::HqGradeId
  uint32_t up;          // 1: the chain goes up
  uint32_t stages;      // in `stage`
  uint32_t octaves;     // k: the relaxed half-bands
  uint32_t lift;        // 1: the polyphase stage's slower side runs at twice
                        // the lower rate (the chain); 0: the single stage
  uint32_t poly;        // index of the polyphase stage
  uint32_t pass;        // input frames per pass at most
  uint32_t fifo_cap;    // frames the output queue holds
  uint32_t fifo_fill;   // frames in it
  uint32_t fifo_at;     // offset of the queue (int32, one line per channel)
  uint32_t coef_at;     // offset of the blended taps (int32)
  uint32_t acc_at;      // offset of the transposed stage's sums (int32 units, 8-byte aligned)
  uint32_t acc_cap;     // sums per channel
  uint32_t scratch_at;  // offset of one stage output's worth of samples (int32)
  uint32_t cache_at;    // offset of cache_cap rows of kernel taps (int32)
  uint32_t cache_cap;   // rows the phase cache holds
  uint32_t made_at;     // offset of their bits: which rows are made
  uint32_t cache_den;   // the denominator the made rows are for (0: none)
  uint32_t dither;      // 1: TPDF dither on S16 output
  uint32_t noise;       // the dither generator, never 0
  int32_t gain;         // going down: the step in Q29, the weight of each input
  uint32_t reserved;
  rsmpl::HqDirectDesign direct;  // the single stage's, when it runs
  int64_t acc_base;     // absolute output index of the first sum
  // The ratio: L / M in lowest terms (0 / 0 when set as a scale), and the
  // rates' own.
  uint64_t ratio_out, ratio_in;
  uint64_t nominal_out, nominal_in;
  // The polyphase stage's position, the one before it and the steps
  // (rsmpl/hq/counts.cpp says what each stands for).
  rsmpl::HqPos pos, prev;
  rsmpl::HqStep step, prev_step;
  // A glide (RSMPL_HqGlideScale): the step moves from glide_from to
  // glide_target in glide_stairs equal stairs of glide_stair steps of the
  // polyphase stage; glide_left stairs remain (0: none under way), the
  // current one for glide_count more steps.
  rsmpl::HqStep glide_from, glide_target;
  uint64_t glide_stair, glide_count;
  uint32_t glide_stairs, glide_left;
  uint64_t consumed;     // input frames taken since the start
  uint64_t emitted;      // output frames written since the start
  uint64_t poly_count;   // polyphase outputs made (up) or inputs taken (down)
  rsmpl::HqStage stage[rsmpl::kHqMaxStages];

  int32_t *samples() { return reinterpret_cast<int32_t *>(this + 1); }
  const int32_t *samples() const { return reinterpret_cast<const int32_t *>(this + 1); }
  int32_t *line(uint32_t s, uint32_t c) { return samples() + stage[s].at + size_t{c} * stage[s].stride; }
  const int32_t *line(uint32_t s, uint32_t c) const {
    return samples() + stage[s].at + size_t{c} * stage[s].stride;
  }
  // A /2 stage's odd line of channel c, after the even lines of all channels.
  int32_t *odd_line(uint32_t s, uint32_t c) { return line(s, channels + c); }
  const int32_t *odd_line(uint32_t s, uint32_t c) const { return line(s, channels + c); }
  int32_t *fifo(uint32_t c) { return samples() + fifo_at + size_t{c} * fifo_cap; }
  const int32_t *fifo(uint32_t c) const { return samples() + fifo_at + size_t{c} * fifo_cap; }
  int32_t *coef() { return samples() + coef_at; }
  int32_t *scratch() { return samples() + scratch_at; }
  int32_t *cache() { return samples() + cache_at; }
  // The single stage's lines, and its rows (in the cache's place).
  int16_t *line16(uint32_t c) { return reinterpret_cast<int16_t *>(line(0, c)); }
  const int16_t *line16(uint32_t c) const { return reinterpret_cast<const int16_t *>(line(0, c)); }
  uint8_t *rows() { return reinterpret_cast<uint8_t *>(samples() + cache_at); }
  uint32_t *made() { return reinterpret_cast<uint32_t *>(samples() + made_at); }
  int64_t *acc(uint32_t c) { return reinterpret_cast<int64_t *>(samples() + acc_at) + size_t{c} * acc_cap; }
  const int64_t *acc(uint32_t c) const {
    return reinterpret_cast<const int64_t *>(samples() + acc_at) + size_t{c} * acc_cap;
  }
  const rsmpl::HqGrade &design() const { return rsmpl::kHqGrades[grade]; }
};

namespace rsmpl {

// The chain for a pair of rates: fills `st`'s plan fields (everything up to
// the stream's variables) when `st` is not null, and returns the state's
// bytes. Rates and channels are checked by the callers.
uint32_t hq_plan(uint32_t in_rate, uint32_t out_rate, uint32_t channels, uint32_t grade,
                 RSMPL_HqState *st);
// The half-band design stage s runs.
const HqHalfband &hq_halfband(const RSMPL_HqState &st, uint32_t s);

// Sets the ratio L / M (lowest terms, checked by the caller), or a scale of
// the rates' ratio in Q32 when `scale` is not zero; the position carries
// over.
void hq_set_ratio(RSMPL_HqState *st, uint64_t l, uint64_t m);
void hq_set_scale(RSMPL_HqState *st, uint64_t scale);
// Starts a glide to `scale` over about `frames` output frames.
void hq_glide(RSMPL_HqState *st, uint64_t scale, uint32_t frames);
// The step of stair j (1..glide_stairs) of the glide under way.
HqStep hq_glide_step(const RSMPL_HqState *st, uint32_t j);
// Moves the glide under way on by `steps` of the polyphase stage (at most
// to the end of its current stair), taking the next stair's step there.
void hq_glide_on(RSMPL_HqState *st, uint64_t steps);
// Whether the stream makes at most one output frame per input frame.
bool hq_ratio_at_most_one(const RSMPL_HqState *st);
// Silent history, the stream at its start; rates, ratio and dither stay.
void hq_reset(RSMPL_HqState *st);

// The conversion behind the Process calls, on checked arguments.
void hq_process(RSMPL_HqState *st, const void *in, uint32_t in_format, uint32_t *in_frames, void *out,
                uint32_t out_format, uint32_t *out_frames);

// Outputs ready after `in_frames` more input frames; the least input frames
// after which `out_frames` more are ready (both saturated to 2^62).
uint64_t hq_outputs_for(const RSMPL_HqState *st, uint64_t in_frames);
uint64_t hq_inputs_for(const RSMPL_HqState *st, uint64_t out_frames);

// The chain's delay in input frames, as a 32.32 fixed-point number.
uint64_t hq_delay_q32(const RSMPL_HqState *st);
// The stream position of the next output (t_n, before the delay) in input
// frames: a whole part and a fraction in 2^-32.
void hq_stream_time(const RSMPL_HqState *st, int64_t *whole, uint32_t *fraction);

}  // namespace rsmpl

#endif
