// SPDX-License-Identifier: MIT
// The high-quality resamplers' calls in arbitrary order, the 16-bit one's or
// the 32-bit one's: Init with any rates, channels and sizes, SetRatio with
// any counts, Process with any frame counts and rooms (heap buffers of
// exactly that size, or one buffer for both) and, for the 32-bit one, any
// sample formats, SetDither, Reset, the count queries and GetInfo. Beside
// the sanitizers' checks, every call is held to a model of the stream kept
// apart from the library: the status each call must give, and exactly the
// outputs the stream position allows after every Process.
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

#include "skelda/rsmpl_hq.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/support/hq_reference.h"

namespace {

#define CHECK(cond)                \
  do {                             \
    if (!(cond)) __builtin_trap(); \
  } while (0)

const uint32_t kRates[] = {8000,  11025, 16000,  22050,  32000,  44100, 48000, 88200,
                           96000, 176400, 192000, 7999, 192001, 0,     191999, 8001};

uint32_t pick_rate(FuzzInput &in) {
  const uint8_t how = in.take<uint8_t>();
  if (how < 160) return kRates[how % 16];
  if (how < 250) return 8000 + in.below(184001);
  return in.take<uint32_t>();
}

bool rate_ok(uint32_t r) { return r >= 8000 && r <= 192000; }

// One resampler's calls on an untyped state; the 16-bit one takes S16 only.
struct Api {
  bool wide;
  RSMPL_Status (*size)(uint32_t, uint32_t, uint32_t, uint32_t *);
  RSMPL_Status (*init)(void *, uint32_t, uint32_t, uint32_t, uint32_t);
  RSMPL_Status (*set_ratio)(void *, uint32_t, uint32_t);
  RSMPL_Status (*reset)(void *);
  RSMPL_Status (*process)(void *, const void *, uint32_t, uint32_t *, void *, uint32_t, uint32_t *);
  RSMPL_Status (*outputs)(const void *, uint32_t, uint32_t *);
  RSMPL_Status (*inputs)(const void *, uint32_t, uint32_t *);
  RSMPL_Status (*info)(const void *, RSMPL_HqInfo *);
};

template <class S>
S *as(void *st) { return static_cast<S *>(st); }
template <class S>
const S *as(const void *st) { return static_cast<const S *>(st); }

const Api kHq16{
    false,
    RSMPL_HqGetStateSize,
    [](void *st, uint32_t size, uint32_t in, uint32_t out, uint32_t ch) {
      return RSMPL_HqInit(as<RSMPL_HqState>(st), size, in, out, ch);
    },
    [](void *st, uint32_t out, uint32_t in) { return RSMPL_HqSetRatio(as<RSMPL_HqState>(st), out, in); },
    [](void *st) { return RSMPL_HqReset(as<RSMPL_HqState>(st)); },
    [](void *st, const void *in, uint32_t, uint32_t *n, void *out, uint32_t, uint32_t *m) {
      return RSMPL_HqProcess(as<RSMPL_HqState>(st), static_cast<const int16_t *>(in), n,
                             static_cast<int16_t *>(out), m);
    },
    [](const void *st, uint32_t n, uint32_t *m) { return RSMPL_HqOutputFrames(as<RSMPL_HqState>(st), n, m); },
    [](const void *st, uint32_t m, uint32_t *n) { return RSMPL_HqInputFrames(as<RSMPL_HqState>(st), m, n); },
    [](const void *st, RSMPL_HqInfo *i) { return RSMPL_HqGetInfo(as<RSMPL_HqState>(st), i); }};
const Api kHq32{
    true,
    RSMPL_Hq32GetStateSize,
    [](void *st, uint32_t size, uint32_t in, uint32_t out, uint32_t ch) {
      return RSMPL_Hq32Init(as<RSMPL_Hq32State>(st), size, in, out, ch);
    },
    [](void *st, uint32_t out, uint32_t in) { return RSMPL_Hq32SetRatio(as<RSMPL_Hq32State>(st), out, in); },
    [](void *st) { return RSMPL_Hq32Reset(as<RSMPL_Hq32State>(st)); },
    [](void *st, const void *in, uint32_t in_format, uint32_t *n, void *out, uint32_t out_format, uint32_t *m) {
      return RSMPL_Hq32Process(as<RSMPL_Hq32State>(st), in, in_format, n, out, out_format, m);
    },
    [](const void *st, uint32_t n, uint32_t *m) { return RSMPL_Hq32OutputFrames(as<RSMPL_Hq32State>(st), n, m); },
    [](const void *st, uint32_t m, uint32_t *n) { return RSMPL_Hq32InputFrames(as<RSMPL_Hq32State>(st), m, n); },
    [](const void *st, RSMPL_HqInfo *i) { return RSMPL_Hq32GetInfo(as<RSMPL_Hq32State>(st), i); }};

struct Stream {
  const Api *api = nullptr;
  std::unique_ptr<uint64_t[]> block;
  void *st = nullptr;
  uint32_t in_rate = 0, out_rate = 0, channels = 0;
  hq_test::Segment seg{1, 1};
  uint64_t fed = 0, written = 0;  // since the stream's start
};

// A counts query capped as the calls cap it.
uint32_t capped(uint64_t v) { return v > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(v); }

void init(Stream &s, FuzzInput &in) {
  const uint32_t in_rate = pick_rate(in), out_rate = pick_rate(in);
  const uint32_t channels = in.below(11);
  uint32_t size = 0;
  const RSMPL_Status sized = s.api->size(in_rate, out_rate, channels, &size);
  CHECK(sized == (!rate_ok(in_rate) || !rate_ok(out_rate) ? 3u
                  : channels < 1 || channels > 8         ? 4u
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
  s.seg = hq_test::fresh(out_rate, in_rate);
  s.fed = s.written = 0;
}

void set_ratio(Stream &s, FuzzInput &in) {
  uint32_t out_n, in_n;
  const uint8_t how = in.take<uint8_t>() % 3;
  if (how == 0) {
    // Near the rates' ratio: periods as alsa-lib might pick them.
    in_n = 1 + in.below(1u << 16);
    out_n = static_cast<uint32_t>(uint64_t{in_n} * s.out_rate / s.in_rate) + in.below(64) - 32;
  } else if (how == 1) {
    // Small terms, which have designs of their own.
    out_n = 1 + in.below(8);
    in_n = 1 + in.below(8);
  } else {
    out_n = in.take<uint32_t>();
    in_n = in.take<uint32_t>();
  }
  bool ok = out_n != 0 && in_n != 0;
  if (ok) {
    const uint64_t g = std::gcd(out_n, in_n);
    const uint64_t given = uint64_t{out_n} * s.in_rate, nominal = uint64_t{in_n} * s.out_rate;
    const uint64_t diff = given > nominal ? given - nominal : nominal - given;
    ok = out_n / g < (1u << 24) && in_n / g < (1u << 24) && diff * 16 <= nominal;
  }
  CHECK(s.api->set_ratio(s.st, out_n, in_n) == (ok ? 0u : 3u));
  if (!ok) return;
  const hq_test::Segment next = hq_test::at(s.seg, s.written);
  const hq_test::Segment ratio = hq_test::fresh(out_n, in_n);
  s.seg = {ratio.L, ratio.M, next.e, next.r * ratio.L / s.seg.L};
  s.written = 0;  // counted within the segment from here on
}

// A sample format: mostly S16 or S32, sometimes none the call knows.
uint32_t pick_format(FuzzInput &in) {
  const uint8_t how = in.take<uint8_t>();
  return how < 250 ? how % 2 : how == 250 ? 2 : in.take<uint32_t>();
}

void process(Stream &s, FuzzInput &in) {
  const uint32_t ch = s.channels;
  const uint8_t how = in.take<uint8_t>();
  const uint32_t in_format = s.api->wide ? pick_format(in) : RSMPL_HQ_S16;
  const uint32_t out_format = s.api->wide ? pick_format(in) : RSMPL_HQ_S16;
  uint32_t frames = (how & 0xe0) == 0xe0 ? in.below(70000) : in.below(1200);
  uint32_t predicted = 0;
  CHECK(s.api->outputs(s.st, frames, &predicted) == RSMPL_OK);
  CHECK(predicted == capped(hq_test::ready(s.seg, s.fed + frames) - s.written));
  if (uint64_t{predicted} * ch > (1u << 22)) frames = 1;  // keep buffers modest
  CHECK(s.api->outputs(s.st, frames, &predicted) == RSMPL_OK);
  uint32_t room;
  switch (how % 4) {
    case 0: room = predicted; break;
    case 1: room = predicted + in.below(8); break;
    case 2: room = in.below(predicted + 2); break;
    default: room = in.below(4096); break;
  }
  const bool shared = (how & 0x40) != 0;
  const size_t in_bytes = in_format == RSMPL_HQ_S32 ? 4 : 2, out_bytes = out_format == RSMPL_HQ_S32 ? 4 : 2;
  const bool shrinks = s.seg.L <= s.seg.M && out_bytes <= in_bytes;
  std::vector<uint8_t> src(static_cast<size_t>(frames) * ch * in_bytes);
  for (auto &v : src) v = in.take<uint8_t>();
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
  if (shared && !shrinks && frames != 0 && room != 0) {
    CHECK(status == 8 && consumed == frames && written == room);
    return;
  }
  CHECK(status == RSMPL_OK);
  CHECK(consumed <= frames && written <= room);
  if (room >= predicted) CHECK(consumed == frames && written == predicted);
  s.fed += consumed;
  s.written += written;
  CHECK(s.written == hq_test::ready(s.seg, s.fed));
  if (consumed < frames)  // stopped only because the next frame's outputs do not fit
    CHECK(written + hq_test::ready(s.seg, s.fed + 1) - s.written > room);
}

void query(Stream &s, FuzzInput &in) {
  const uint32_t k = in.take<uint8_t>() & 1 ? in.below(5000) : in.take<uint32_t>();
  uint32_t need = 0;
  CHECK(s.api->inputs(s.st, k, &need) == RSMPL_OK);
  if (need != UINT32_MAX) {
    CHECK(hq_test::ready(s.seg, s.fed + need) - s.written >= k);
    if (need > 0) CHECK(hq_test::ready(s.seg, s.fed + need - 1) - s.written < k);
  }
  RSMPL_HqInfo info{};
  CHECK(s.api->info(s.st, &info) == RSMPL_OK);
  CHECK(info.inRate == s.in_rate && info.outRate == s.out_rate && info.channels == s.channels);
  CHECK(info.ratioOut == s.seg.L && info.ratioIn == s.seg.M);
  // The 16-bit resampler's ratios of small terms run a shorter design inside
  // the windowed sinc's window; the 32-bit one's window is its filter's, 2
  // delays' worth of taps padded to a multiple of 8.
  const bool small = !s.api->wide && s.seg.L <= 8 && s.seg.M <= 8 && s.seg.L + s.seg.M > 2;
  if (s.api->wide)
    CHECK(info.taps == (2 * info.delayFrames + 7) / 8 * 8);
  else
    CHECK((info.taps < 2 * info.delayFrames) == small && info.taps <= 2 * info.delayFrames);
  CHECK(info.interpolated == (info.ratioOut > info.phases));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  Stream s;
  s.api = in.take<uint8_t>() & 1 ? &kHq32 : &kHq16;
  for (int step = 0; step < 64 && !in.empty(); ++step) {
    const uint8_t action = in.take<uint8_t>() % 9;
    if (action == 0 || s.st == nullptr) {
      init(s, in);
    } else if (action == 1) {
      set_ratio(s, in);
    } else if (action == 2) {
      CHECK(s.api->reset(s.st) == RSMPL_OK);
      s.seg = hq_test::fresh(s.seg.L, s.seg.M);
      s.fed = s.written = 0;
    } else if (action == 3) {
      query(s, in);
    } else if (action == 4 && s.api->wide) {
      CHECK(RSMPL_Hq32SetDither(static_cast<RSMPL_Hq32State *>(s.st), in.take<uint8_t>() % 3) == RSMPL_OK);
    } else {
      process(s, in);
    }
  }
  return 0;
}
