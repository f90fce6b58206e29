// The high-quality resampler's conversion loop: input is de-interleaved into
// one line per channel behind the last window, every output whose newest
// sample is in is computed from its phase's coefficients, and the lines slide
// so that each holds the next window and room for a chunk.
#include <cstring>

#include "rsmpl/fir_kernel_set.h"
#include "rsmpl/hq_state.h"

namespace rsmpl {
namespace {

int16_t saturate(int64_t v) {
  return static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
}

// Writes the outputs that are ready and fit in `room`; returns how many.
uint32_t produce(RSMPL_HqState *st, int16_t *out, uint32_t room) {
  const HqDotFn dot = fir_kernels_active().hq_dot;
  const uint32_t taps = st->taps, channels = st->channels;
  const uint32_t s = st->lo_shift, f = st->out_shift;
  const int64_t half = int64_t{1} << (f - 1);
  const size_t phase_size = static_cast<size_t>(2) * taps;
  const int16_t *coef = st->coefficients();
  uint32_t written = 0;
  while (st->end < st->fill && written < room) {
    const int16_t *c0 = coef + st->q * phase_size;
    const size_t start = st->end + 1 - taps;
    // Q16 weight of the next grid phase, without a division.
    const int64_t w = static_cast<int64_t>((st->rem * st->weight_inv) >> 24);
    for (uint32_t c = 0; c < channels; ++c) {
      const int16_t *x = st->line(c) + start;
      int64_t y = dot(x, c0, taps, s);
      if (st->rem != 0) y += ((dot(x, c0 + phase_size, taps, s) - y) * w) >> 16;
      out[static_cast<size_t>(written) * channels + c] = saturate((y + half) >> f);
    }
    ++written;
    // Next output: r + M = (step_int L + step_frac) and the grid likewise.
    st->end += st->step_int;
    st->r += st->step_frac;
    st->q += st->grid_int;
    st->rem += st->grid_frac;
    if (st->rem >= st->ratio_out) {
      st->rem -= st->ratio_out;
      ++st->q;
    }
    if (st->r >= st->ratio_out) {
      st->r -= st->ratio_out;
      ++st->end;
      st->q -= st->phases;
    }
  }
  return written;
}

// Drops the samples before the next window.
void slide(RSMPL_HqState *st) {
  const uint32_t start = st->end + 1 - st->taps;
  const uint32_t drop = start < st->fill ? start : st->fill;
  if (drop == 0) return;
  for (uint32_t c = 0; c < st->channels; ++c) {
    int16_t *line = st->line(c);
    std::memmove(line, line + drop, sizeof(int16_t) * (st->fill - drop));
  }
  st->fill -= drop;
  st->end -= drop;
}

}  // namespace

void hq_process(RSMPL_HqState *st, const int16_t *in, uint32_t *in_frames, int16_t *out,
                uint32_t *out_frames) {
  const uint32_t channels = st->channels;
  const uint32_t in_total = *in_frames, room = *out_frames;
  uint32_t consumed = 0, written = 0;
  for (;;) {
    written += produce(st, out + static_cast<size_t>(written) * channels, room - written);
    if (consumed == in_total) break;
    slide(st);
    // Take no input whose outputs would not fit: output `room - written`
    // from now must stay unready.
    const uint64_t needed = hq_inputs_for(st, uint64_t{room} - written + 1);
    const uint64_t allowed = needed == 0 ? 0 : needed - 1;
    uint64_t take = in_total - consumed;
    if (take > st->line_cap - st->fill) take = st->line_cap - st->fill;
    if (take > allowed) take = allowed;
    if (take == 0) break;
    const int16_t *src = in + static_cast<size_t>(consumed) * channels;
    for (uint32_t c = 0; c < channels; ++c) {
      int16_t *line = st->line(c) + st->fill;
      for (uint32_t i = 0; i < take; ++i) line[i] = src[static_cast<size_t>(i) * channels + c];
    }
    st->fill += static_cast<uint32_t>(take);
    consumed += static_cast<uint32_t>(take);
  }
  *in_frames = consumed;
  *out_frames = written;
}

}  // namespace rsmpl
