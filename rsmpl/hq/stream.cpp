// SPDX-License-Identifier: MIT
// The high-quality resampler's conversion loop: input is de-interleaved into
// one line per channel behind the last window, every output whose newest
// sample is in is computed from its phase's coefficients (by the fastest
// build of hq/kernel.h), and the lines slide so that each holds the next
// window and room for a chunk.
#include <cstring>

#include "rsmpl/cpu.h"
#include "rsmpl/hq/kernels.h"
#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

// Drops the samples before the next window (a multiple of M of them with a
// direct design, from its pair rows only, so that every pair keeps its row).
void slide(RSMPL_HqState *st) {
  const uint32_t start = st->end + 1 - st->taps;
  uint32_t drop = start < st->fill ? start : st->fill;
  const uint32_t m = st->ratio_in;
  if (st->direct != 0) drop -= drop % m;
  if (drop == 0) return;
  for (uint32_t c = 0; c < st->channels; ++c) {
    if (st->direct == 0) {
      int16_t *line = st->line(c);
      std::memmove(line, line + drop, sizeof(int16_t) * (st->fill - drop));
      continue;
    }
    // Each row keeps the pairs of the samples kept.
    const size_t shift = drop / m, kept = (st->fill - drop + m - 1) / m;
    for (uint32_t row = 0; row < m; ++row) {
      int16_t *pairs = st->pairs(c) + 2 * row * static_cast<size_t>(st->pair_stride);
      std::memmove(pairs, pairs + 2 * shift, sizeof(int16_t) * 2 * kept);
    }
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
    written += active_kernels().hq->produce(st, out + static_cast<size_t>(written) * channels, room - written);
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
    if (st->direct == 0) {
      for (uint32_t c = 0; c < channels; ++c) {
        int16_t *line = st->line(c) + st->fill;
        const int16_t *x = src + c;
        for (uint32_t i = 0; i < take; ++i, x += channels) line[i] = *x;
      }
    } else {
      active_kernels().hq->take_rows(st, src, static_cast<uint32_t>(take));
    }
    st->fill += static_cast<uint32_t>(take);
    consumed += static_cast<uint32_t>(take);
  }
  *in_frames = consumed;
  *out_frames = written;
}

}  // namespace rsmpl
