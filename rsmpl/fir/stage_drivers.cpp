// SPDX-License-Identifier: MIT
// Stage drivers: one FIR kernel made into a streaming converter for one
// channel. The kernel's history lives at the start of the context's sample
// area; each call joins it with the new block, runs the kernel and keeps the
// newest input samples for the next call. Stack use is bounded by the small
// constants below whatever the block length, and every driver works with
// `in` equal to `out`.
#include <cstring>

#include "rsmpl/context.h"
#include "skelda/rsmpl_fir.h"
#include "skelda/util_memory.h"

namespace rsmpl {
namespace {

using Kernel = void (*)(const int16_t *, int16_t *, int32_t);

inline void move_samples(int16_t *dst, const int16_t *src, int32_t count) {
  UTIL_Memmove(dst, src, static_cast<uint32_t>(count) * sizeof(int16_t));
}

// Decimating stage, M inputs to L outputs, history H, split point S.
// Up to S samples are staged on the stack behind the history; past S the
// kernel runs a second time straight from `in`, whose samples S - H .. S - 1
// serve as that call's history. Every output the second call writes lands at
// or before the first input it still has to read (S - H >= S * L / M), and
// the outputs end before in[n - H], so the next history survives in place.
template <Kernel kernel, int H, int S, int M, int L>
void down_stage(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  static_assert(S % M == 0 && S - H >= S * L / M, "second call must trail the first");
  if (n <= 0) return;
  int16_t *history = ctx->samples;
  int16_t staged[H + S];
  const int32_t first = n <= S ? n : S;
  std::memcpy(staged, history, H * sizeof(int16_t));
  std::memcpy(staged + H, in, static_cast<size_t>(first) * sizeof(int16_t));
  kernel(staged, out, first);
  if (n <= S) {
    move_samples(history, staged + n, H);
    return;
  }
  kernel(in + (S - H), out + S * L / M, n - S);
  move_samples(history, in + (n - H), H);
}

// Interpolating stage, M inputs to L outputs (N = n * L / M), history H,
// tail T. A long block is staged in the output buffer itself: the head of the
// block is moved to the end of `out`, the history put in front of it, and the
// kernel writes its outputs from out[0] on, always behind what it still
// reads. The last T samples go through the stack with their own history, so
// the stack never holds more than H + T samples.
//
// Upsample3_2 converts whole pairs; given an odd n directly it converts the
// first n - 1 samples and the last one is dropped, which keeps every read and
// write inside the caller's block and its 3 * (n - 1) / 2 outputs.
template <Kernel kernel, int H, int T, int M, int L>
void up_stage(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  static_assert(T % M == 0, "the tail must be whole groups");
  if (M == 2) n &= ~1;
  if (n <= 0) return;
  int16_t *history = ctx->samples;
  int16_t staged[H + T];
  if (n <= T) {
    std::memcpy(staged, history, H * sizeof(int16_t));
    std::memcpy(staged + H, in, static_cast<size_t>(n) * sizeof(int16_t));
    kernel(staged, out, n);
    move_samples(history, staged + n, H);
    return;
  }
  const int32_t outputs = n / M * L;
  const int32_t head = n - T;
  const int32_t start = outputs - head - H;
  // The tail first: with in == out the next move overwrites it.
  std::memcpy(staged + H, in + head, T * sizeof(int16_t));
  move_samples(out + (outputs - head), in, head);
  std::memcpy(out + start, history, H * sizeof(int16_t));
  std::memcpy(staged, out + (outputs - H), H * sizeof(int16_t));
  kernel(out + start, out, head);
  kernel(staged, out + head / M * L, T);
  move_samples(history, staged + T, H);
}

}  // namespace
}  // namespace rsmpl

using rsmpl::down_stage;
using rsmpl::up_stage;

extern "C" {

SKELDA_API void Downsample1_2(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  down_stage<DownsampleFIR2To1, 70, 144, 2, 1>(in, out, ctx, n);
}
SKELDA_API void Downsample1_3(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  down_stage<DownsampleFIR3To1, 45, 72, 3, 1>(in, out, ctx, n);
}
SKELDA_API void Downsample1_4(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  down_stage<DownsampleFIR4To1, 60, 80, 4, 1>(in, out, ctx, n);
}
SKELDA_API void Downsample1_6(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  down_stage<DownsampleFIR6To1, 90, 108, 6, 1>(in, out, ctx, n);
}
SKELDA_API void Downsample2_3(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  down_stage<DownsampleFIR3To2, 14, 48, 3, 2>(in, out, ctx, n);
}

SKELDA_API void Upsample2_1(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  up_stage<UpsampleFIR1To2, 35, 18, 1, 2>(in, out, ctx, n);
}
SKELDA_API void Upsample3_1(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  up_stage<UpsampleFIR1To3, 15, 6, 1, 3>(in, out, ctx, n);
}
SKELDA_API void Upsample4_1(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  up_stage<UpsampleFIR1To4, 15, 4, 1, 4>(in, out, ctx, n);
}
SKELDA_API void Upsample6_1(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  up_stage<UpsampleFIR1To6, 15, 3, 1, 6>(in, out, ctx, n);
}
SKELDA_API void Upsample3_2(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n) {
  up_stage<UpsampleFIR2To3, 15, 12, 2, 3>(in, out, ctx, n);
}

}  // extern "C"
