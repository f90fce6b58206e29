// The high-quality resampler's conversion loop: input is de-interleaved into
// one line per channel behind the last window, every output whose newest
// sample is in is computed from its phase's coefficients (by the fastest
// build of hq_kernel.h), and the lines slide so that each holds the next
// window and room for a chunk.
#include <cstring>

#include "rsmpl/fir_kernel_set.h"
#include "rsmpl/hq_state.h"

namespace rsmpl {
namespace {

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
    written += fir_kernels_active().hq_produce(st, out + static_cast<size_t>(written) * channels, room - written);
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
