// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler's conversion loop: input of either
// format is de-interleaved into one int32 line per channel behind the last
// window, every output whose newest sample is in is computed (by the build
// of hq32/kernel.h the CPU runs) straight into the caller's S32 frames, or
// into the scratch and from there to S16 with the optional dither, and the
// lines slide so that each holds the next window and room for a chunk.
#include <cstring>

#include "rsmpl/cpu.h"
#include "rsmpl/hq32/kernels.h"
#include "rsmpl/hq32/state.h"

namespace rsmpl {
namespace {

// Drops the samples before the next window.
void slide(RSMPL_Hq32State *st) {
  const uint32_t start = st->end + 1 - st->taps;
  const uint32_t drop = start < st->fill ? start : st->fill;
  if (drop == 0) return;
  for (uint32_t c = 0; c < st->channels; ++c) {
    int32_t *line = st->line(c);
    std::memmove(line, line + drop, sizeof(int32_t) * (st->fill - drop));
  }
  st->fill -= drop;
  st->end -= drop;
}

template <class Sample>
void take(RSMPL_Hq32State *st, const Sample *src, uint32_t frames) {
  const uint32_t channels = st->channels;
  for (uint32_t c = 0; c < channels; ++c) {
    int32_t *line = st->line(c) + st->fill;
    const Sample *x = src + c;
    for (uint32_t i = 0; i < frames; ++i, x += channels)
      line[i] = sizeof(Sample) == 2 ? int32_t{*x} * 65536 : static_cast<int32_t>(*x);
  }
}

int16_t to_s16(int32_t y, int64_t dither) {
  const int64_t v = (int64_t{y} + (1 << 15) + dither) >> 16;
  return static_cast<int16_t>(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
}

// S32 results to S16, with TPDF dither from the state's generator when on.
void narrow(RSMPL_Hq32State *st, const int32_t *y, int16_t *out, size_t samples) {
  if (st->dither == 0) {
    for (size_t i = 0; i < samples; ++i) out[i] = to_s16(y[i], 0);
    return;
  }
  uint32_t u = st->noise;
  for (size_t i = 0; i < samples; ++i) {
    u ^= u << 13;
    u ^= u >> 17;
    u ^= u << 5;
    out[i] = to_s16(y[i], int64_t{u >> 16} + (u & 0xffff) - 65536);
  }
  st->noise = u;
}

// The ready outputs that fit in `room`, in the caller's format.
uint32_t produce(RSMPL_Hq32State *st, void *out, uint32_t out_format, uint32_t room) {
  const Hq32ProduceFn kernel = active_kernels().hq32->produce;
  if (out_format == RSMPL_HQ_S32) return kernel(st, static_cast<int32_t *>(out), room);
  const uint32_t channels = st->channels;
  auto *y = static_cast<int16_t *>(out);
  uint32_t written = 0;
  while (written < room) {
    const uint32_t part = room - written < kHq32ScratchFrames ? room - written : kHq32ScratchFrames;
    const uint32_t made = kernel(st, st->scratch(), part);
    narrow(st, st->scratch(), y + static_cast<size_t>(written) * channels,
           static_cast<size_t>(made) * channels);
    written += made;
    if (made < part) break;
  }
  return written;
}

}  // namespace

void hq32_process(RSMPL_Hq32State *st, const void *in, uint32_t in_format, uint32_t *in_frames,
                  void *out, uint32_t out_format, uint32_t *out_frames) {
  const uint32_t channels = st->channels;
  const uint32_t in_total = *in_frames, room = *out_frames;
  const size_t in_frame = (in_format == RSMPL_HQ_S32 ? 4 : 2) * size_t{channels};
  const size_t out_frame = (out_format == RSMPL_HQ_S32 ? 4 : 2) * size_t{channels};
  uint32_t consumed = 0, written = 0;
  for (;;) {
    written += produce(st, static_cast<char *>(out) + written * out_frame, out_format, room - written);
    if (consumed == in_total) break;
    slide(st);
    // Take no input whose outputs would not fit: output `room - written`
    // from now must stay unready.
    const uint64_t needed = hq32_inputs_for(st, uint64_t{room} - written + 1);
    const uint64_t allowed = needed == 0 ? 0 : needed - 1;
    uint64_t frames = in_total - consumed;
    if (frames > st->line_cap - st->fill) frames = st->line_cap - st->fill;
    if (frames > allowed) frames = allowed;
    if (frames == 0) break;
    const void *src = static_cast<const char *>(in) + consumed * in_frame;
    if (in_format == RSMPL_HQ_S32)
      take(st, static_cast<const int32_t *>(src), static_cast<uint32_t>(frames));
    else
      take(st, static_cast<const int16_t *>(src), static_cast<uint32_t>(frames));
    st->fill += static_cast<uint32_t>(frames);
    consumed += static_cast<uint32_t>(frames);
  }
  *in_frames = consumed;
  *out_frames = written;
}

}  // namespace rsmpl
