// SPDX-License-Identifier: MIT
// The high-quality resamplers' calls in arbitrary order, the 16-bit one's or
// the 32-bit one's: Init with any rates, channels and sizes; SetRatio,
// SetRatioScale and GlideScale with any terms between any two calls;
// Process with any frame counts and rooms (heap buffers of exactly that
// size, or one buffer for both) and, for the 32-bit one, any sample
// formats; SetDither, Reset, the count queries, GetInfo and GetPosition.
// Beside the sanitizers' checks every call is held to rules a caller relies
// on: the status each call must give; a Process takes all its input and
// writes exactly the outputs OutputFrames promised when its room holds
// them, else stops only where one frame more would not fit; InputFrames
// asks for exactly enough; the position counts what went in and out, never
// goes back, and at a steady ratio moves on by in / out input frames per
// output.
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

#include "skelda/rsmpl_hq.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

#define CHECK(cond)                                                      \
  do {                                                                   \
    if (!(cond)) {                                                       \
      std::fprintf(stderr, "line %d: %s does not hold\n", __LINE__, #cond); \
      __builtin_trap();                                                  \
    }                                                                    \
  } while (0)

const unsigned kRates[] = {4000,   8000,   11025,  22050,  44100, 48000, 96000, 192000,
                           384000, 705600, 768000, 3999,   768001, 0,    4001,  767999};

uint32_t pick_rate(FuzzInput &in) {
  const uint8_t how = in.take<uint8_t>();
  if (how < 200) return kRates[how % 16];
  if (how < 250) return 4000 + in.below(764001);
  return in.take<uint32_t>();
}

bool rate_ok(uint32_t r) { return r >= 4000 && r <= 768000; }

// One resampler's calls on an untyped state; the 16-bit one takes S16 only.
struct Api {
  bool wide;
  RSMPL_Status (*size)(uint32_t, uint32_t, uint32_t, uint32_t *);
  RSMPL_Status (*init)(void *, uint32_t, uint32_t, uint32_t, uint32_t);
  RSMPL_Status (*set_ratio)(void *, uint32_t, uint32_t);
  RSMPL_Status (*set_scale)(void *, uint64_t);
  RSMPL_Status (*glide)(void *, uint64_t, uint32_t);
  RSMPL_Status (*reset)(void *);
  RSMPL_Status (*process)(void *, const void *, uint32_t, uint32_t *, void *, uint32_t, uint32_t *);
  RSMPL_Status (*outputs)(const void *, uint32_t, uint32_t *);
  RSMPL_Status (*inputs)(const void *, uint32_t, uint32_t *);
  RSMPL_Status (*info)(const void *, RSMPL_HqInfo *);
  RSMPL_Status (*position)(const void *, RSMPL_HqPosition *);
};

template <class S>
S *as(void *st) { return static_cast<S *>(st); }
template <class S>
const S *as(const void *st) { return static_cast<const S *>(st); }

using S16 = RSMPL_HqState;
using S32 = RSMPL_Hq32State;

const Api kHq16{
    false,
    RSMPL_HqGetStateSize,
    [](void *st, uint32_t size, uint32_t in, uint32_t out, uint32_t ch) {
      return RSMPL_HqInit(as<S16>(st), size, in, out, ch);
    },
    [](void *st, uint32_t out, uint32_t in) { return RSMPL_HqSetRatio(as<S16>(st), out, in); },
    [](void *st, uint64_t s) { return RSMPL_HqSetRatioScale(as<S16>(st), s); },
    [](void *st, uint64_t s, uint32_t n) { return RSMPL_HqGlideScale(as<S16>(st), s, n); },
    [](void *st) { return RSMPL_HqReset(as<S16>(st)); },
    [](void *st, const void *in, uint32_t, uint32_t *n, void *out, uint32_t, uint32_t *m) {
      return RSMPL_HqProcess(as<S16>(st), static_cast<const int16_t *>(in), n, static_cast<int16_t *>(out), m);
    },
    [](const void *st, uint32_t n, uint32_t *m) { return RSMPL_HqOutputFrames(as<S16>(st), n, m); },
    [](const void *st, uint32_t m, uint32_t *n) { return RSMPL_HqInputFrames(as<S16>(st), m, n); },
    [](const void *st, RSMPL_HqInfo *i) { return RSMPL_HqGetInfo(as<S16>(st), i); },
    [](const void *st, RSMPL_HqPosition *p) { return RSMPL_HqGetPosition(as<S16>(st), p); }};
const Api kHq32{
    true,
    RSMPL_Hq32GetStateSize,
    [](void *st, uint32_t size, uint32_t in, uint32_t out, uint32_t ch) {
      return RSMPL_Hq32Init(as<S32>(st), size, in, out, ch);
    },
    [](void *st, uint32_t out, uint32_t in) { return RSMPL_Hq32SetRatio(as<S32>(st), out, in); },
    [](void *st, uint64_t s) { return RSMPL_Hq32SetRatioScale(as<S32>(st), s); },
    [](void *st, uint64_t s, uint32_t n) { return RSMPL_Hq32GlideScale(as<S32>(st), s, n); },
    [](void *st) { return RSMPL_Hq32Reset(as<S32>(st)); },
    [](void *st, const void *in, uint32_t in_format, uint32_t *n, void *out, uint32_t out_format, uint32_t *m) {
      return RSMPL_Hq32Process(as<S32>(st), in, in_format, n, out, out_format, m);
    },
    [](const void *st, uint32_t n, uint32_t *m) { return RSMPL_Hq32OutputFrames(as<S32>(st), n, m); },
    [](const void *st, uint32_t m, uint32_t *n) { return RSMPL_Hq32InputFrames(as<S32>(st), m, n); },
    [](const void *st, RSMPL_HqInfo *i) { return RSMPL_Hq32GetInfo(as<S32>(st), i); },
    [](const void *st, RSMPL_HqPosition *p) { return RSMPL_Hq32GetPosition(as<S32>(st), p); }};

using I128 = __int128;
constexpr uint64_t kOne = uint64_t{1} << 32;

struct Stream {
  const Api *api = nullptr;
  std::unique_ptr<uint64_t[]> block;
  void *st = nullptr;
  uint32_t in_rate = 0, out_rate = 0, channels = 0;
  uint64_t fed = 0, written = 0;  // since Init or Reset
  // The ratio as input per output, in_per_out_num / in_per_out_den, when
  // steady (no glide under way); 0 otherwise. From `mark_time` and
  // `mark_written` on the position moves by exactly that per output. A new
  // ratio takes over at the next of the polyphase stage's outputs (up to 64
  // outputs on going up): the mark waits `pending` outputs.
  I128 in_per_out_num = 0, in_per_out_den = 1;
  I128 mark_time = 0;
  uint64_t mark_written = 0, pending = 0;
  // Whether one buffer may serve both ways: 1 yes, 0 no, -1 either (a
  // glide from above 1 to below it allows it once under 1).
  int ratio_at_most_one = 0;
  // A glide under way from a ratio that may have been at most 1: a Reset
  // stops it on a stair that may be either side.
  bool glide_from_under = false;
  uint32_t ratio_out = 0, ratio_in = 0;  // exact terms set, else 0
  // The last stream time seen: the next output's input position, the
  // chain's delay added back, in 2^-32 input frames.
  I128 time = 0;
};

RSMPL_HqPosition position(const Stream &s) {
  RSMPL_HqPosition p{};
  CHECK(s.api->position(s.st, &p) == RSMPL_OK);
  return p;
}

I128 stream_time(const RSMPL_HqPosition &p) {
  return (I128{p.nextFrame} + static_cast<I128>(p.delayFrames)) * (I128{1} << 32) + p.nextFraction + p.delayFraction;
}

void mark(Stream &s) {
  s.mark_time = s.time;
  s.mark_written = s.written;
}

// The position after any call: it counts what went in and out, never goes
// back (but where a new ratio moves it, `moved`), and at a steady ratio
// lies where the outputs since the mark put it.
void check_position(Stream &s, bool moved = false) {
  const RSMPL_HqPosition p = position(s);
  CHECK(p.inputFrames == s.fed && p.outputFrames == s.written);
  const I128 t = stream_time(p);
  CHECK(moved || t >= s.time);
  s.time = t;
  if (s.pending != 0 && s.written - s.mark_written >= s.pending) {
    mark(s);
    s.pending = 0;
  }
  if (s.in_per_out_num != 0 && s.pending == 0) {
    // w in / out input frames, in 2^-32 frames: whole and remainder apart
    // to stay within 128 bits.
    const I128 w = s.written - s.mark_written, per = s.in_per_out_num << 32;
    const I128 want = s.mark_time + w * (per / s.in_per_out_den) + w * (per % s.in_per_out_den) / s.in_per_out_den;
    const I128 off = t > want ? t - want : want - t;
    CHECK(off <= 4);
  }
}

void steady(Stream &s, I128 num, I128 den, uint64_t pending) {
  s.in_per_out_num = num;
  s.in_per_out_den = den;
  mark(s);
  s.pending = pending;
}

// A new ratio or scale: going up the next output keeps its place; going
// down the new step runs from the last input the stage took (a few input
// frames back at most), moving it either way but not back past that.
void carried_over(Stream &s) {
  const I128 before = s.time;
  s.in_per_out_num = 0;  // the old ratio's line ends here
  const bool up = s.out_rate >= s.in_rate;
  check_position(s, !up);
  if (up)
    CHECK(s.time == before);
  else
    CHECK(s.time >= I128(s.fed < 64 ? 0 : s.fed - 64) << 32);
}

void init(Stream &s, FuzzInput &in) {
  const uint32_t in_rate = pick_rate(in), out_rate = pick_rate(in);
  const uint8_t many = in.take<uint8_t>();
  const uint32_t channels = many < 240 ? many % 9 : many < 250 ? 60 + many % 6 : in.take<uint32_t>();
  uint32_t size = 0;
  const RSMPL_Status sized = s.api->size(in_rate, out_rate, channels, &size);
  CHECK(sized == (!rate_ok(in_rate) || !rate_ok(out_rate) ? 3u
                  : channels < 1 || channels > 64       ? 4u
                                                        : 0u));
  if (sized != RSMPL_OK) {
    if (s.st) CHECK(s.api->init(s.st, 1u << 20, in_rate, out_rate, channels) == sized);
    return;
  }
  const uint32_t short_by = in.take<uint8_t>() % 4 == 0 ? 1 + in.below(64) : 0;
  if (short_by != 0 && s.st) {
    CHECK(s.api->init(s.st, size - short_by, in_rate, out_rate, channels) == 4);
    return;  // the old stream runs on
  }
  CHECK(size % 8 == 0);  // a whole number of the state's alignment
  s.block.reset(new uint64_t[size / 8]);
  s.st = s.block.get();
  CHECK(s.api->init(s.st, size, in_rate, out_rate, channels) == RSMPL_OK);
  s.in_rate = in_rate;
  s.out_rate = out_rate;
  s.channels = channels;
  s.fed = s.written = 0;
  s.time = 0;
  s.ratio_out = out_rate / std::gcd(in_rate, out_rate);
  s.ratio_in = in_rate / std::gcd(in_rate, out_rate);
  s.ratio_at_most_one = out_rate <= in_rate;
  s.glide_from_under = false;
  CHECK(stream_time(position(s)) == 0);  // the first output stands for input frame 0
  steady(s, in_rate, out_rate, 0);
}

bool within_eighth(uint64_t given, uint64_t nominal) {
  const uint64_t diff = given > nominal ? given - nominal : nominal - given;
  return diff * 8 <= nominal;
}

void set_ratio(Stream &s, FuzzInput &in) {
  uint32_t out_n, in_n;
  const uint8_t how = in.take<uint8_t>() % 4;
  if (how == 0) {
    // Near the rates' ratio: periods as alsa-lib might pick them.
    in_n = 1 + in.below(1u << 16);
    out_n = static_cast<uint32_t>(uint64_t{in_n} * s.out_rate / s.in_rate) + in.below(64) - 32;
  } else if (how == 1) {
    // Near the edge of the window.
    in_n = s.in_rate;
    out_n = s.out_rate + s.out_rate / 8 + in.below(5) - 2 - (in.take<uint8_t>() & 1 ? s.out_rate / 4 : 0);
  } else if (how == 2) {
    // Large terms.
    const uint32_t big = 0x80000000u + in.below(0x7fffffff);
    out_n = s.out_rate >= s.in_rate ? big : static_cast<uint32_t>(uint64_t{big} * s.out_rate / s.in_rate);
    in_n = s.out_rate >= s.in_rate ? static_cast<uint32_t>(uint64_t{big} * s.in_rate / s.out_rate) : big;
    out_n += in.below(16);
  } else {
    out_n = in.take<uint32_t>();
    in_n = in.take<uint32_t>();
  }
  const bool ok = out_n != 0 && in_n != 0 && within_eighth(uint64_t{out_n} * s.in_rate, uint64_t{in_n} * s.out_rate);
  CHECK(s.api->set_ratio(s.st, out_n, in_n) == (ok ? 0u : 3u));
  if (!ok) return;
  carried_over(s);
  s.glide_from_under = false;
  const uint32_t g = std::gcd(out_n, in_n);
  s.ratio_out = out_n / g;
  s.ratio_in = in_n / g;
  s.ratio_at_most_one = out_n <= in_n;
  steady(s, in_n, out_n, 64);
}

uint64_t pick_scale(FuzzInput &in) {
  const uint8_t how = in.take<uint8_t>() % 4;
  if (how == 0) return kOne + in.below(8590) - 4295;  // within 1 ppm
  if (how == 1) return kOne - kOne / 8 + in.take<uint8_t>() % 3 - 1 + (in.take<uint8_t>() & 1 ? kOne / 4 + 1 : 0);
  if (how == 2) return kOne - kOne / 8 + in.below(kOne / 4 + 1);
  return in.take<uint64_t>();
}

void set_scale(Stream &s, FuzzInput &in, bool gliding) {
  const uint64_t scale = pick_scale(in);
  const uint32_t frames = gliding ? (in.take<uint8_t>() & 1 ? in.below(20000) : in.take<uint32_t>()) : 0;
  const bool ok = scale >= kOne - kOne / 8 && scale <= kOne + kOne / 8;
  CHECK((gliding ? s.api->glide(s.st, scale, frames) : s.api->set_scale(s.st, scale)) == (ok ? 0u : 3u));
  if (!ok) return;
  carried_over(s);
  s.glide_from_under = false;
  s.ratio_out = s.ratio_in = 0;
  // in / out over the scale: in 2^32 / (out scale) input frames per output.
  const I128 num = I128{s.in_rate} << 32, den = I128{s.out_rate} * scale;
  if (gliding) {
    s.in_per_out_num = 0;  // the step changes stair by stair
    // The ratio on the way is between where it was and where it goes.
    s.glide_from_under = s.ratio_at_most_one != 0;
    s.ratio_at_most_one = den > num ? 0 : s.ratio_at_most_one == 1 ? 1 : -1;
  } else {
    s.ratio_at_most_one = den <= num;
    steady(s, num, den, 64);
  }
}

// A sample format: mostly S16 or S32, sometimes none the call knows.
uint32_t pick_format(FuzzInput &in) {
  const uint8_t how = in.take<uint8_t>();
  return how < 250 ? how % 2 : how == 250 ? 2 : in.take<uint32_t>();
}

uint32_t outputs_for(const Stream &s, uint32_t frames) {
  uint32_t n = 0;
  CHECK(s.api->outputs(s.st, frames, &n) == RSMPL_OK);
  return n;
}

void process(Stream &s, FuzzInput &in) {
  const uint32_t ch = s.channels;
  const uint8_t how = in.take<uint8_t>();
  const uint32_t in_format = s.api->wide ? pick_format(in) : RSMPL_HQ_S16;
  const uint32_t out_format = s.api->wide ? pick_format(in) : RSMPL_HQ_S16;
  uint32_t frames = (how & 0xe0) == 0xe0 ? in.below(20000) : in.below(600);
  // Keep a call's work modest: a few thousand samples either way.
  while (frames > 1 && (uint64_t{frames} * ch > (1u << 15) || uint64_t{outputs_for(s, frames)} * ch > (1u << 15)))
    frames /= 2;
  const uint32_t predicted = outputs_for(s, frames);
  uint32_t room;
  switch (how % 4) {
    case 0: room = predicted; break;
    case 1: room = predicted + in.below(8); break;
    case 2: room = in.below(predicted + 2); break;
    default: room = in.below(2048); break;
  }
  const bool shared = (how & 0x10) != 0;
  const size_t in_bytes = in_format == RSMPL_HQ_S32 ? 4 : 2, out_bytes = out_format == RSMPL_HQ_S32 ? 4 : 2;
  std::vector<uint8_t> src(static_cast<size_t>(frames) * ch * in_bytes);
  // The input's bytes: the fuzzer's own, repeated, or full scale.
  const size_t given = in.take<uint8_t>() % 64;
  for (size_t i = 0; i < src.size(); ++i) src[i] = given == 0 ? (i & 1 ? 0x7f : 0xff) : in.take<uint8_t>();
  std::unique_ptr<uint8_t[]> dst(new uint8_t[static_cast<size_t>(room) * ch * out_bytes]);
  uint8_t *out = dst.get();
  if (shared) {
    src.resize(std::max<size_t>(src.size(), static_cast<size_t>(room) * ch * out_bytes));
    out = src.data();
  }
  uint32_t consumed = frames, written = room;
  const RSMPL_Status status = s.api->process(s.st, src.data(), in_format, &consumed, out, out_format, &written);
  if (in_format > 1 || out_format > 1) {
    CHECK(status == 9 && consumed == frames && written == room);
    return;
  }
  const int in_place_ok = out_bytes > in_bytes ? 0 : s.ratio_at_most_one;
  if (shared && frames != 0 && room != 0 && (in_place_ok == 0 || (in_place_ok < 0 && status == 8))) {
    CHECK(status == 8 && consumed == frames && written == room);
    return;
  }
  CHECK(status == RSMPL_OK);
  CHECK(consumed <= frames && written <= room);
  if (room >= predicted) CHECK(consumed == frames && written == predicted);
  s.fed += consumed;
  s.written += written;
  // Stopped early only because the next frame's outputs do not fit.
  if (consumed < frames) CHECK(outputs_for(s, 1) > room - written);
  check_position(s);
}

void query(Stream &s, FuzzInput &in) {
  const uint32_t k = in.take<uint8_t>() & 1 ? in.below(5000) : in.take<uint32_t>();
  uint32_t need = 0;
  CHECK(s.api->inputs(s.st, k, &need) == RSMPL_OK);
  if (need != UINT32_MAX) {
    CHECK(outputs_for(s, need) >= k);
    if (need > 0) CHECK(outputs_for(s, need - 1) < k);
  }
  RSMPL_HqInfo info{};
  CHECK(s.api->info(s.st, &info) == RSMPL_OK);
  CHECK(info.inRate == s.in_rate && info.outRate == s.out_rate && info.channels == s.channels);
  if (s.ratio_out != 0) CHECK(info.ratioOut == s.ratio_out && info.ratioIn == s.ratio_in);
  CHECK(std::gcd(info.ratioOut, info.ratioIn) == 1);
  if (s.in_per_out_num != 0) {
    // A scale's nearest fraction: within a millionth of the ratio.
    const I128 a = I128{info.ratioIn} * s.in_per_out_den, b = I128{info.ratioOut} * s.in_per_out_num;
    CHECK((a > b ? a - b : b - a) * 1000000 <= b);
  }
  const RSMPL_HqPosition p = position(s);
  CHECK(info.delayFrames == (p.delayFrames + (p.delayFraction >> 31)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  Stream s;
  s.api = in.take<uint8_t>() & 1 ? &kHq32 : &kHq16;
  for (int step = 0; step < 48 && !in.empty(); ++step) {
    const uint8_t action = in.take<uint8_t>() % 12;
    if (action == 0 || s.st == nullptr) {
      init(s, in);
    } else if (action == 1) {
      set_ratio(s, in);
    } else if (action == 2 || action == 3) {
      set_scale(s, in, action == 3);
    } else if (action == 4) {
      CHECK(s.api->reset(s.st) == RSMPL_OK);
      // Back to the start, at the ratio it ran at.
      if (s.glide_from_under && s.ratio_at_most_one == 0) s.ratio_at_most_one = -1;
      s.fed = s.written = 0;
      s.time = 0;
      s.pending = 0;
      mark(s);
      check_position(s);
      CHECK(s.time == 0);
    } else if (action == 5) {
      query(s, in);
    } else if (action == 6 && s.api->wide) {
      CHECK(RSMPL_Hq32SetDither(static_cast<RSMPL_Hq32State *>(s.st), in.take<uint8_t>() % 3) == RSMPL_OK);
    } else {
      process(s, in);
    }
  }
  return 0;
}
