// SPDX-License-Identifier: MIT
// The high-quality resampler's conversion: input frames, a pass at a time,
// into the first stage's lines; every stage then runs as far as its input
// allows (by the build of hq/kernel.h the CPU runs) into the next stage's
// lines or the output queue; the outputs due (rsmpl/hq/counts.cpp) go to the
// caller in its format; the lines slide to keep what the next outputs read.
#include <cstring>

#include "rsmpl/cpu.h"
#include "rsmpl/hq/kernels.h"
#include "rsmpl/hq/state.h"

namespace rsmpl {
namespace {

const HqKernels &kernels() { return *active_kernels().hq; }
const HqDirectKernels &direct_kernels() { return *active_kernels().hq_direct; }

// The phase cache for the current step, emptied when the step is new to it.
HqPhaseCache phase_cache(RSMPL_HqState *st) {
  if (st->step.den > st->cache_cap) return HqPhaseCache{nullptr, nullptr};
  if (st->cache_den != st->step.den) {
    std::memset(st->made(), 0, (st->cache_cap + 31) / 32 * 4);
    st->cache_den = static_cast<uint32_t>(st->step.den);
  }
  return HqPhaseCache{st->cache(), st->made()};
}

bool is_last(const RSMPL_HqState *st, uint32_t s) { return s + 1 == st->stages; }

// Where stage s's outputs for channel c continue: the next stage's line, or
// the queue after the last stage (never a /2 stage: those take `split`).
int32_t *sink(RSMPL_HqState *st, uint32_t s, uint32_t c) {
  if (is_last(st, s)) return st->fifo(c) + st->fifo_fill;
  return st->line(s + 1, c) + st->stage[s + 1].fill;
}
size_t sink_stride(const RSMPL_HqState *st, uint32_t s) {
  return is_last(st, s) ? st->fifo_cap : st->stage[s + 1].stride;
}
void commit(RSMPL_HqState *st, uint32_t s, uint32_t n) {
  if (is_last(st, s))
    st->fifo_fill += n;
  else
    st->stage[s + 1].fill += n;
}
bool splits(const RSMPL_HqState *st, uint32_t s) {
  return !is_last(st, s) && st->stage[s + 1].kind == kHqHalfDown;
}
// Outputs of stage s that fit where they go (the plan sizes every line for
// a pass, so this bound only holds a fault off the neighbouring memory).
uint32_t room(const RSMPL_HqState *st, uint32_t s) {
  if (is_last(st, s)) return st->fifo_cap - st->fifo_fill;
  const HqStage &next = st->stage[s + 1];
  if (next.kind != kHqHalfDown) return next.cap - next.fill;
  // Alternate samples go to either line; the even one may take one more.
  const uint32_t even = next.cap - next.fill, odd = next.cap - next.odd;
  return even < odd ? 2 * even - (next.fill == next.odd ? 1 : 0) : 2 * odd + (next.fill == next.odd ? 1 : 0);
}

// Samples y of channel c into /2 stage d's even and odd lines, the first
// where the stage's count leaves off; commit_split moves the counts on.
void split(RSMPL_HqState *st, uint32_t d, uint32_t c, const int32_t *y, uint32_t n) {
  const HqStage &sd = st->stage[d];
  int32_t *even = st->line(d, c) + sd.fill, *odd = st->odd_line(d, c) + sd.odd;
  // After an odd count the next sample is odd.
  if (sd.fill == sd.odd)
    kernels().split(y, n, even, odd);
  else
    kernels().split(y, n, odd, even);
}
void commit_split(RSMPL_HqState *st, uint32_t d, uint32_t n) {
  HqStage &sd = st->stage[d];
  const uint32_t first_odd = sd.fill == sd.odd ? 0 : 1;
  sd.odd += (n + first_odd) / 2;
  sd.fill += (n + 1 - first_odd) / 2;
}

void run_half_up(RSMPL_HqState *st, uint32_t s) {
  HqStage &stage = st->stage[s];
  uint32_t n = stage.fill - stage.next;
  if (2 * n > room(st, s)) n = room(st, s) / 2;
  if (n == 0) return;
  const HqHalfband &h = hq_halfband(*st, s);
  for (uint32_t c = 0; c < st->channels; ++c)
    kernels().half_up(st->line(s, c) + stage.next, h.taps, h.half, sink(st, s, c), n);
  commit(st, s, 2 * n);
  stage.next += n;
}

void run_half_down(RSMPL_HqState *st, uint32_t s) {
  HqStage &stage = st->stage[s];
  uint32_t n = stage.fill - stage.next;
  if (n > room(st, s)) n = room(st, s);
  if (n == 0) return;
  const HqHalfband &h = hq_halfband(*st, s);
  const bool to_split = splits(st, s);
  for (uint32_t c = 0; c < st->channels; ++c) {
    int32_t *out = to_split ? st->scratch() : sink(st, s, c);
    kernels().half_down(st->line(s, c) + stage.next, st->odd_line(s, c) + stage.next - h.half, h.taps,
                        h.half, out, n);
    if (to_split) split(st, s + 1, c, out, n);
  }
  if (to_split)
    commit_split(st, s + 1, n);
  else
    commit(st, s, n);
  stage.next += n;
}

// The polyphase stage's outputs, a stair of a glide at a time.
void run_poly(RSMPL_HqState *st, uint32_t s) {
  HqStage &stage = st->stage[s];
  for (;;) {
    HqPolyJob job{};
    job.x = st->line(s, 0);
    job.xstride = stage.stride;
    job.channels = st->channels;
    job.room = room(st, s);
    if (st->glide_left != 0 && st->glide_count < job.room) job.room = static_cast<uint32_t>(st->glide_count);
    job.base = stage.base;
    job.end = stage.base + stage.fill;
    job.pos = st->pos;
    job.step = st->step;
    job.kernel = &st->design().kernel;
    job.coef = st->coef();
    job.y = sink(st, s, 0);
    job.ystride = sink_stride(st, s);
    job.cache = phase_cache(st);
    const uint32_t made = kernels().poly(&job);
    if (made == 0) return;
    commit(st, s, made);
    st->prev = job.last;
    st->prev_step = st->step;
    st->pos = job.pos;
    st->poly_count += made;
    const bool stair_ended = st->glide_left != 0 && made == st->glide_count;
    hq_glide_on(st, made);
    if (!stair_ended) return;
  }
}

// The single stage's outputs, a stair of a glide at a time: its rows exact
// when the step's denominator fits the row area and the position lies on
// its grid, else on the design's grid (the rows made for another
// denominator forgotten first).
void run_direct(RSMPL_HqState *st) {
  HqStage &stage = st->stage[0];
  const HqDirectDesign &d = st->direct;
  for (;;) {
    const uint64_t den = st->step.den;
    const bool exact = den <= d.rows_cap && ((uint64_t{st->pos.f} * den + st->pos.e) & 0xffffffffu) == 0;
    const uint32_t key = exact ? static_cast<uint32_t>(den) : 0x80000000u;
    if (st->cache_den != key) {
      std::memset(st->made(), 0, (d.rows_cap + 31) / 32 * 4);
      st->cache_den = key;
    }
    HqDirectJob job{};
    job.x = st->line16(0);
    job.xstride = size_t{stage.stride} * 2;
    job.channels = st->channels;
    job.room = room(st, 0);
    if (st->glide_left != 0 && st->glide_count < job.room) job.room = static_cast<uint32_t>(st->glide_count);
    job.base = stage.base;
    job.end = stage.base + stage.fill;
    job.pos = st->pos;
    job.step = st->step;
    job.design = &d;
    job.rows = st->rows();
    job.made = st->made();
    job.exact = exact ? 1 : 0;
    job.y = sink(st, 0, 0);
    job.ystride = sink_stride(st, 0);
    job.scratch = st->scratch();
    const uint32_t made = direct_kernels().pass(&job);
    if (made == 0) return;
    commit(st, 0, made);
    st->prev = job.last;
    st->prev_step = st->step;
    st->pos = job.pos;
    st->poly_count += made;
    const bool stair_ended = st->glide_left != 0 && made == st->glide_count;
    hq_glide_on(st, made);
    if (!stair_ended) return;
  }
}

// The transposed stage's complete outputs (those before the next input's
// position, which no later input reaches) out of the sums, as far as they
// fit where they go.
void complete_poly_t(RSMPL_HqState *st, uint32_t s) {
  const int64_t complete = st->pos.i + ((st->pos.f != 0 || st->pos.e != 0) ? 1 : 0);
  if (complete <= st->acc_base) return;
  uint32_t n = static_cast<uint32_t>(complete - st->acc_base);
  if (n > room(st, s)) n = room(st, s);
  if (n == 0) return;
  const bool to_split = splits(st, s);
  for (uint32_t c = 0; c < st->channels; ++c) {
    int64_t *acc = st->acc(c);
    int32_t *out = to_split ? st->scratch() : sink(st, s, c);
    kernels().round_sums(acc, n, out);
    if (to_split) split(st, s + 1, c, out, n);
    std::memmove(acc, acc + n, sizeof(int64_t) * (st->acc_cap - n));
    std::memset(acc + (st->acc_cap - n), 0, sizeof(int64_t) * n);
  }
  if (to_split)
    commit_split(st, s + 1, n);
  else
    commit(st, s, n);
  st->acc_base += n;
}

void run_poly_t(RSMPL_HqState *st, uint32_t s) {
  HqStage &stage = st->stage[s];
  const uint32_t taps = st->design().kernel.taps;
  uint32_t done = 0;
  for (;;) {
    complete_poly_t(st, s);
    if (done == stage.fill) break;
    // Inputs whose taps land inside the sums (first + taps <= base + cap).
    uint64_t fits = hq_count_at_most(st->pos, st->step, 0, st->acc_base + st->acc_cap - taps - 1);
    if (st->glide_left != 0 && st->glide_count < fits) fits = st->glide_count;  // to the stair's end
    const uint32_t count = fits < stage.fill - done ? static_cast<uint32_t>(fits) : stage.fill - done;
    if (count == 0) break;
    HqPolyTJob job{};
    job.x = st->line(s, 0) + done;
    job.xstride = stage.stride;
    job.channels = st->channels;
    job.count = count;
    job.pos = st->pos;
    job.step = st->step;
    job.gain = st->gain;
    job.kernel = &st->design().kernel;
    job.acc = st->acc(0);
    job.astride = st->acc_cap;
    job.acc_base = st->acc_base;
    job.cache = phase_cache(st);
    // A step too fine for the cache leaves its rows free for the taps of a
    // batch of inputs; else the four rows of blended taps.
    job.coef = job.cache.rows == nullptr ? st->cache() : st->coef();
    job.coef_rows = job.cache.rows == nullptr ? st->cache_cap : 4;
    kernels().poly_t(&job);
    st->prev = job.last;
    st->prev_step = st->step;
    st->pos = job.pos;
    st->poly_count += count;
    done += count;
    hq_glide_on(st, count);
  }
  // What could not be taken waits at the line's start.
  if (done != 0) {
    for (uint32_t c = 0; c < st->channels; ++c)
      std::memmove(st->line(s, c), st->line(s, c) + done, sizeof(int32_t) * (stage.fill - done));
    stage.fill -= done;
  }
}

// Drops what no later output reads.
void slide(RSMPL_HqState *st, uint32_t s) {
  HqStage &stage = st->stage[s];
  uint32_t drop = 0;
  switch (stage.kind) {
    case kHqHalfUp:
    case kHqHalfDown:
      drop = stage.next > stage.hist ? stage.next - stage.hist : 0;
      break;
    case kHqPoly: {
      const int64_t keep = st->pos.i - (st->design().kernel.taps - 1) - stage.base;
      drop = keep <= 0 ? 0 : keep >= stage.fill ? stage.fill : static_cast<uint32_t>(keep);
      break;
    }
    case kHqDirect: {
      const int64_t keep = st->pos.i - (st->direct.taps - 1) - stage.base;
      drop = keep <= 0 ? 0 : keep >= stage.fill ? stage.fill : static_cast<uint32_t>(keep);
      if (drop == 0) return;
      for (uint32_t c = 0; c < st->channels; ++c) {
        int16_t *line = st->line16(c);
        std::memmove(line, line + drop, sizeof(int16_t) * (stage.fill - drop));
      }
      stage.fill -= drop;
      stage.base += drop;
      return;
    }
    default:
      return;
  }
  if (drop == 0) return;
  const uint32_t lines = stage.kind == kHqHalfDown ? 2 * st->channels : st->channels;
  for (uint32_t l = 0; l < lines; ++l) {
    int32_t *line = st->line(s, l);
    const uint32_t count = l < st->channels ? stage.fill : stage.odd;
    std::memmove(line, line + drop, sizeof(int32_t) * (count - drop));
  }
  stage.fill -= drop;
  if (stage.kind == kHqHalfDown) stage.odd -= drop;
  if (stage.kind == kHqPoly) stage.base += drop;
  if (stage.kind != kHqPoly) stage.next -= drop;
}

void run_chain(RSMPL_HqState *st) {
  for (uint32_t s = 0; s < st->stages; ++s) {
    switch (st->stage[s].kind) {
      case kHqHalfUp:
        run_half_up(st, s);
        break;
      case kHqHalfDown:
        run_half_down(st, s);
        break;
      case kHqPoly:
        run_poly(st, s);
        break;
      case kHqDirect:
        run_direct(st);
        break;
      default:
        run_poly_t(st, s);
        break;
    }
  }
  for (uint32_t s = 0; s < st->stages; ++s) slide(st, s);
}

// `frames` interleaved input frames into the first stage.
void feed(RSMPL_HqState *st, const void *src, bool s32, uint32_t frames) {
  const uint32_t channels = st->channels;
  HqStage &first = st->stage[0];
  if (first.kind == kHqDirect) {  // S16 only: the 16-bit calls
    int16_t *lines[RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t c = 0; c < channels; ++c) lines[c] = st->line16(c) + first.fill;
    direct_kernels().take(static_cast<const int16_t *>(src), channels, frames, lines);
    first.fill += frames;
    return;
  }
  int32_t *to[2 * RSMPL_HQ_MAX_CHANNELS];
  if (first.kind == kHqHalfDown) {
    // Alternately to the even and odd lines, from whichever is next.
    const bool odd_first = first.fill != first.odd;
    for (uint32_t c = 0; c < channels; ++c) {
      int32_t *even = st->line(0, c) + first.fill, *odd = st->odd_line(0, c) + first.odd;
      to[2 * c] = odd_first ? odd : even;
      to[2 * c + 1] = odd_first ? even : odd;
    }
    kernels().take(src, s32, channels, frames, 2, to);
    const uint32_t to_first = (frames + 1) / 2, to_second = frames / 2;
    first.fill += odd_first ? to_second : to_first;
    first.odd += odd_first ? to_first : to_second;
    return;
  }
  for (uint32_t c = 0; c < channels; ++c) to[c] = st->line(0, c) + first.fill;
  kernels().take(src, s32, channels, frames, 1, to);
  first.fill += frames;
}

// One S16 step is 2^14 inside.
int16_t to_s16(int32_t y, int32_t dither) {
  const int32_t v = (y + (1 << 13) + dither) >> 14;
  return static_cast<int16_t>(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
}

// `n` queued frames out in the caller's format, then off the queue.
void emit(RSMPL_HqState *st, void *out, uint32_t out_format, uint32_t n) {
  const uint32_t channels = st->channels;
  if (out_format == RSMPL_HQ_S32 || st->dither == 0) {
    const int32_t *from[RSMPL_HQ_MAX_CHANNELS];
    for (uint32_t c = 0; c < channels; ++c) from[c] = st->fifo(c);
    kernels().give(from, channels, n, out_format == RSMPL_HQ_S32, out);
  } else {
    // TPDF of one 16-bit step either way, one word of the generator per
    // sample in stream order.
    auto *y = static_cast<int16_t *>(out);
    uint32_t u = st->noise;
    for (uint32_t i = 0; i < n; ++i)
      for (uint32_t c = 0; c < channels; ++c) {
        u ^= u << 13;
        u ^= u >> 17;
        u ^= u << 5;
        const int32_t d = (static_cast<int32_t>(u >> 16) + static_cast<int32_t>(u & 0xffff) - 65536) / 4;
        y[size_t{i} * channels + c] = to_s16(st->fifo(c)[i], d);
      }
    st->noise = u;
  }
  for (uint32_t c = 0; c < channels; ++c)
    std::memmove(st->fifo(c), st->fifo(c) + n, sizeof(int32_t) * (st->fifo_fill - n));
  st->fifo_fill -= n;
  st->emitted += n;
}

}  // namespace

void hq_reset(RSMPL_HqState *st) {
  std::memset(st->samples(), 0, st->bytes - sizeof(RSMPL_HqState));
  for (uint32_t s = 0; s < st->stages; ++s) {
    HqStage &stage = st->stage[s];
    stage.fill = stage.odd = stage.hist;
    // Half-bands read from `next`, the polyphase stages (and the single
    // stage) from positions.
    const bool half = stage.kind == kHqHalfUp || stage.kind == kHqHalfDown;
    stage.next = half ? stage.hist : 0;
    stage.base = -static_cast<int64_t>(stage.hist);
  }
  st->fifo_fill = 0;
  st->acc_base = 0;
  st->pos = HqPos{};
  st->prev = HqPos{};
  st->prev_step = st->step;
  st->consumed = st->emitted = st->poly_count = 0;
  st->glide_left = 0;  // the ratio stays where a glide had brought it
  st->noise = kHqNoiseSeed;
}

void hq_process(RSMPL_HqState *st, const void *in, uint32_t in_format, uint32_t *in_frames, void *out,
                uint32_t out_format, uint32_t *out_frames) {
  const uint32_t total = *in_frames, room = *out_frames;
  const size_t in_frame = (in_format == RSMPL_HQ_S32 ? 4 : 2) * size_t{st->channels};
  const size_t out_frame = (out_format == RSMPL_HQ_S32 ? 4 : 2) * size_t{st->channels};
  uint32_t taken = 0, written = 0;
  // The input frame (counted from the stream's start) after which output
  // `room` of this call would be due: found at the first pass, as no pass
  // moves it.
  uint64_t stop = 0;
  bool stop_found = false;
  for (;;) {
    // Everything due goes out (the take below keeps that within the room).
    uint64_t due = hq_outputs_for(st, 0);
    if (due > room - written) due = room - written;
    if (due > st->fifo_fill) due = st->fifo_fill;
    if (due != 0) {
      emit(st, static_cast<char *>(out) + written * out_frame, out_format, static_cast<uint32_t>(due));
      written += static_cast<uint32_t>(due);
    }
    if (taken == total) break;
    // Take no input whose outputs would not fit: output `room - written`
    // from now must stay not due.
    if (!stop_found) {
      const uint64_t need = hq_inputs_for(st, uint64_t{room} - written + 1);
      stop = need >= (uint64_t{1} << 62) ? UINT64_MAX : st->consumed + need;
      stop_found = true;
    }
    const uint64_t need = stop > st->consumed ? stop - st->consumed : 0;
    uint64_t take = need == 0 ? 0 : need - 1;
    if (take > total - taken) take = total - taken;
    if (take > st->pass) take = st->pass;
    if (take == 0) break;
    const void *src = static_cast<const char *>(in) + taken * in_frame;
    feed(st, src, in_format == RSMPL_HQ_S32, static_cast<uint32_t>(take));
    st->consumed += take;
    taken += static_cast<uint32_t>(take);
    run_chain(st);
  }
  *in_frames = taken;
  *out_frames = written;
}

}  // namespace rsmpl
