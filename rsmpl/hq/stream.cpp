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

// Appends `take` frames to a direct design's pair rows (its lines wait
// until the design changes, hq_set_ratio): row by row, each position's pair
// is its sample and the sample before it in the row.
void take_rows(RSMPL_HqState *st, const int16_t *src, uint32_t take) {
  const uint32_t channels = st->channels, m = st->ratio_in, fill = st->fill;
  const size_t row_size = 2 * static_cast<size_t>(st->pair_stride), step = size_t{m} * channels;
  const uint32_t first_row = fill % m, first_at = fill / m;
  const size_t next = st->pair_line_size();
  // Two channels per pass where there are two: their rows lie `next` apart.
  for (uint32_t c = 0; c < channels; c += 2) {
    const bool two = c + 1 < channels;
    for (uint32_t r = 0; r < m; ++r) {
      const uint32_t k0 = r >= first_row ? r - first_row : r + m - first_row;
      const uint32_t at = first_at + (r < first_row);
      int16_t *pair = st->pairs(c) + r * row_size + 2 * static_cast<size_t>(at);
      int16_t before0 = at > 0 ? pair[-2] : 0, before1 = at > 0 && two ? pair[next - 2] : 0;
      const int16_t *x = src + static_cast<size_t>(k0) * channels + c;
      for (uint32_t k = k0; k < take; k += m, x += step, pair += 2) {
        const int16_t both0[2] = {x[0], before0};  // one store each
        std::memcpy(pair, both0, sizeof both0);
        before0 = both0[0];
        if (two) {
          const int16_t both1[2] = {x[1], before1};
          std::memcpy(pair + next, both1, sizeof both1);
          before1 = both1[0];
        }
      }
    }
  }
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
      take_rows(st, src, static_cast<uint32_t>(take));
    }
    st->fill += static_cast<uint32_t>(take);
    consumed += static_cast<uint32_t>(take);
  }
  *in_frames = consumed;
  *out_frames = written;
}

}  // namespace rsmpl
