// SPDX-License-Identifier: MIT
// The high-quality resampler's status rules, one table per call: each rule
// at its boundary and one past it, the order rsmpl_hq.h gives when several
// arguments are wrong, and no change at all from a call that fails (the
// whole block around the state, its buffers and results compared).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/hq_reference.h"

namespace {

// What a row starts from: a state of these rates and channels at this
// ratio (0: the rates'), or (zeroed) a block Init never saw.
struct Start {
  uint32_t in, out, channels, ratio_out = 0, ratio_in = 0;
  bool zeroed = false;
};
const Start kUp{44100, 48000, 2}, kDown{48000, 44100, 2}, kUnit{44100, 44100, 2};
const Start kSmall{32000, 48000, 2};  // 3/2: the small ratios' design
const Start kZeroed{44100, 48000, 2, 0, 0, true};

// One block: 64 KB, the state's area, then 16 frames of input, of output
// and the result words; scrambled bytes before each row.
struct Arena {
  static constexpr size_t kPad = 65536, kSize = 2 * kPad + (1 << 20);
  uint8_t *mem = static_cast<uint8_t *>(std::aligned_alloc(kPad, kSize));
  std::vector<uint8_t> snap;
  uint32_t size = 0;
  ~Arena() { std::free(mem); }
  RSMPL_HqState *st(size_t offset = 0) {
    return reinterpret_cast<RSMPL_HqState *>(mem + kPad + offset);
  }
  int16_t *in() { return reinterpret_cast<int16_t *>(mem + kSize - kPad); }
  uint32_t *word(int i) { return reinterpret_cast<uint32_t *>(in() + 8192) + i; }  // counts, result
  void prepare(const Start &s, uint32_t in_n = 16, uint32_t out_n = 16) {
    for (size_t i = 0; i < kSize; ++i) mem[i] = static_cast<uint8_t>((i * 2654435761u) >> 13);
    if (s.zeroed) std::memset(st(), 0, 1 << 20);
    ASSERT_EQ(RSMPL_HqGetStateSize(s.in, s.out, s.channels, &size), RSMPL_OK);
    if (!s.zeroed)
      ASSERT_TRUE(RSMPL_HqInit(st(), size, s.in, s.out, s.channels) == RSMPL_OK &&
                  (!s.ratio_out || RSMPL_HqSetRatio(st(), s.ratio_out, s.ratio_in) == RSMPL_OK));
    *word(0) = in_n;
    *word(1) = out_n;
    snap.assign(mem, mem + kSize);
  }
  bool unchanged() const { return std::equal(snap.begin(), snap.end(), mem); }
};

struct Row {
  std::string what;
  Start start;
  RSMPL_Status want;
  std::function<RSMPL_Status(Arena &)> call;
  uint32_t in_n = 16, out_n = 16;  // the counts Process is given
};

using Call = std::function<RSMPL_Status(Arena &)>;

void run(const std::vector<Row> &rows) {
  Arena a;
  for (const Row &row : rows) {
    a.prepare(row.start, row.in_n, row.out_n);
    EXPECT_EQ(row.call(a), row.want) << row.what;
    if (row.want != RSMPL_OK) EXPECT_TRUE(a.unchanged()) << row.what << " changed memory";
  }
}

// Rates 0, 7999, 8000, 192000 and 192001 on either side and channels 0, 1,
// 8 and 9 through both calls (Init with the size of its rates, or of
// kZeroed's when they are refused); the size pointer checked last, the state
// first, its size and its alignment.
TEST(HqStatus, GetStateSizeAndInit) {
  auto size = [](uint32_t in, uint32_t out, uint32_t ch, bool null = false) {
    return [=](Arena &a) { return RSMPL_HqGetStateSize(in, out, ch, null ? nullptr : a.word(2)); };
  };
  auto init = [](uint32_t in, uint32_t out, uint32_t ch, uint32_t less = 0, size_t offset = 0) {
    return [=](Arena &a) {
      uint32_t bytes = a.size;
      RSMPL_HqGetStateSize(in, out, ch, &bytes);
      return RSMPL_HqInit(a.st(offset), bytes - less, in, out, ch);
    };
  };
  std::vector<Row> rows = {
      {"null size", kZeroed, 2, size(8000, 192000, 1, true)},
      {"rate before channels and size", kZeroed, 3, size(7999, 8000, 9, true)},
      {"channels before the size", kZeroed, 4, size(8000, 8000, 9, true)},
      {"null state", kZeroed, 1, [](Arena &) { return RSMPL_HqInit(nullptr, 0, 0, 0, 0); }},
      {"init: rate before channels", kZeroed, 3, init(8000, 7999, 9)},
      {"size one byte short", kZeroed, 4, init(96000, 44100, 3, 1)},
      {"4 bytes past 8-aligned", kZeroed, 4, init(96000, 44100, 3, 0, 4)}};
  for (uint32_t r : {0u, 7999u, 8000u, 192000u, 192001u}) {
    const RSMPL_Status want = r >= 8000 && r <= 192000 ? 0 : 3;
    for (const Call &call : {Call(size(r, 48000, 2)), Call(size(44100, r, 2)), Call(init(r, 48000, 2)),
                             Call(init(44100, r, 2))})
      rows.push_back({"rate " + std::to_string(r), kZeroed, want, call});
  }
  for (uint32_t ch : {0u, 1u, 8u, 9u})
    for (const Call &call : {Call(size(44100, 48000, ch)), Call(init(44100, 48000, ch))})
      rows.push_back({std::to_string(ch) + " channels", kZeroed, ch >= 1 && ch <= 8 ? 0u : 4u, call});
  run(rows);
}

// Within 1/16 of 160/147 either way: 170/147 and 50/49 exactly.
TEST(HqStatus, SetRatio) {
  auto set = [](uint32_t out, uint32_t in) {
    return [=](Arena &a) { return RSMPL_HqSetRatio(a.st(), out, in); };
  };
  const uint32_t k24 = 1u << 24;
  run({
      {"state before counts", kZeroed, 7, set(0, 0)},
      {"zero out", kUp, 3, set(0, 1024)},
      {"zero in", kUp, 3, set(1115, 0)},
      {"1/16 above", kUp, 0, set(170, 147)},
      {"past 1/16 above", kUp, 3, set(1701, 1470)},
      {"1/16 below", kUp, 0, set(50, 49)},
      {"past 1/16 below", kUp, 3, set(1499, 1470)},
      {"terms below 2^24", kUnit, 0, set(k24 - 1, k24 - 2)},
      {"out term of 2^24", kUnit, 3, set(k24, k24 - 1)},
      {"in term of 2^24", kUnit, 3, set(k24 - 1, k24)},
      {"large terms, small in lowest form", kUnit, 0, set(4000000000u, 4000000000u)},
  });
}

// Buffers of 16 frames (32 samples) at sample offsets from the arena's
// input, from the state's start or from its end; null when not given.
enum Where { kNull, kBuf, kState, kStateEnd };
Call io(Where in, ptrdiff_t in_at, Where out = kBuf, ptrdiff_t out_at = 4096) {
  return [=](Arena &a) {
    auto at = [&](Where w, ptrdiff_t i) {
      int16_t *s = reinterpret_cast<int16_t *>(a.st());
      return w == kNull ? nullptr : (w == kBuf ? a.in() : w == kState ? s : s + a.size / 2) + i;
    };
    return RSMPL_HqProcess(a.st(), at(in, in_at), a.word(0), at(out, out_at), a.word(1));
  };
}

// Sharing one buffer in place at every ratio kind, and empty buffers anywhere,
// are held to the rules by hq/stream_test's and the fuzz target's streams.
TEST(HqStatus, Process) {
  const Start rising_at_one{47000, 48000, 2, 1, 1}, falling_above_one{46000, 45000, 2, 103, 100};
  run({
      {"null counts before overlap", kUp, 2,
       [](Arena &a) { return RSMPL_HqProcess(a.st(), a.in(), nullptr, a.in(), a.word(1)); }},
      {"null room", kUp, 2,
       [](Arena &a) { return RSMPL_HqProcess(a.st(), a.in(), a.word(0), a.in() + 64, nullptr); }},
      {"null in, no frames", kUp, 0, io(kNull, 0), 0},
      {"null in, one frame", kUp, 2, io(kNull, 0), 1},
      {"null out, no room", kUp, 0, io(kBuf, 0, kNull, 0), 16, 0},
      {"null out, room of one", kUp, 2, io(kBuf, 0, kNull, 0), 16, 1},
      {"null buffer before overlap", kUp, 2, io(kNull, 0, kState, 0)},
      {"out starting on in's last sample", kUp, 8, io(kBuf, 0, kBuf, 31)},
      {"out right after in", kUp, 0, io(kBuf, 0, kBuf, 32)},
      {"out ending on in's first sample", kUp, 8, io(kBuf, 32, kBuf, 1)},
      {"out ending where in starts", kUp, 0, io(kBuf, 32, kBuf, 0)},
      {"out one sample on, falling", kDown, 8, io(kBuf, 0, kBuf, 1)},
      {"same buffer, rising", kUp, 8, io(kBuf, 0, kBuf, 0)},
      {"same buffer, rising rates at ratio 1", rising_at_one, 0, io(kBuf, 0, kBuf, 0)},
      {"same buffer, falling rates above ratio 1", falling_above_one, 8, io(kBuf, 0, kBuf, 0)},
      {"in on the state's last sample", kUp, 8, io(kStateEnd, -1)},
      {"in right after the state", kUp, 0, io(kStateEnd, 0)},
      {"out ending on the state's first sample", kUp, 8, io(kBuf, 0, kState, -31)},
      {"out ending where the state starts", kUp, 0, io(kBuf, 0, kState, -32)},
      {"no frames inside the state", kUp, 0, io(kState, 32), 0},
  });
}

// Every call that takes a state, each with a null result (or count) pointer
// and with valid ones: the state is checked first (1 null, 7 not a state:
// never initialised, misaligned, or any checked field just past what it can
// be), then the pointer (2).
TEST(HqStatus, CallsOnAStateRefuseAnythingButAState) {
  using S = RSMPL_HqState;
  const struct {
    const char *name;
    bool has_result;
    std::function<RSMPL_Status(Arena &, S *, uint32_t *)> call;  // result: null, or a.word(2)
  } calls[] = {
      {"SetRatio", false, [](Arena &, S *st, uint32_t *) { return RSMPL_HqSetRatio(st, 3, 2); }},
      {"Reset", false, [](Arena &, S *st, uint32_t *) { return RSMPL_HqReset(st); }},
      {"Process", true, [](Arena &a, S *st, uint32_t *n) {
         return RSMPL_HqProcess(st, a.in(), n ? a.word(0) : n, a.in() + 64, a.word(1)); }},
      {"OutputFrames", true,
       [](Arena &, S *st, uint32_t *n) { return RSMPL_HqOutputFrames(st, 9, n); }},
      {"InputFrames", true,
       [](Arena &, S *st, uint32_t *n) { return RSMPL_HqInputFrames(st, 9, n); }},
      {"GetInfo", true, [](Arena &, S *st, uint32_t *n) {
         return RSMPL_HqGetInfo(st, reinterpret_cast<RSMPL_HqInfo *>(n)); }},
  };
  const struct {
    const char *what;
    Start start;
    std::function<void(S &)> change;
    size_t offset = 0;
  } damages[] = {
      {"never initialised", kZeroed, nullptr},
      {"moved 4 bytes", kUp, nullptr, 4},
      {"magic", kUp, [](S &s) { s.magic ^= 1; }},
      {"in rate 7999", kUp, [](S &s) { s.in_rate = 7999; }},
      {"out rate 192001", kUp, [](S &s) { s.out_rate = 192001; }},
      {"0 channels", kUp, [](S &s) { s.channels = 0; }},
      {"taps", kUp, [](S &s) { s.taps += 16; }},
      {"phases held", kUp, [](S &s) { ++s.max_phases; }},
      {"line size", kUp, [](S &s) { ++s.line_cap; }},
      {"bytes one short", kUp, [](S &s) { --s.bytes; }},
      {"L 0", kUp, [](S &s) { s.ratio_out = 0; }},
      {"M 0", kUp, [](S &s) { s.ratio_in = 0; }},
      {"phases at the most held", kUp, [](S &s) { s.phases = s.max_phases; }},
      {"phase r at L", kUp, [](S &s) { s.r = s.ratio_out; }},
      {"fill past the line", kUp, [](S &s) { s.fill = s.line_cap + 1; }},
      {"end before a whole window", kUp, [](S &s) { s.end = s.taps - 2; }},
      {"small design on a sinc ratio", kUp, [](S &s) { s.direct = 3; }},
      {"small design's D", kSmall, [](S &s) { ++s.direct; }},
      {"small design's taps", kSmall, [](S &s) { s.active += 4; }},
      {"small design's pair stride", kSmall, [](S &s) { ++s.pair_stride; }},
      {"small design's phases beside L", kSmall, [](S &s) { ++s.phases; }},
  };
  Arena a;
  for (const auto &c : calls)
    for (bool null : {true, false}) {
      SCOPED_TRACE(::testing::Message() << c.name << (null ? ", null result" : ""));
      uint32_t *result = null ? nullptr : a.word(2);
      a.prepare(kUp);
      EXPECT_EQ(c.call(a, nullptr, result), 1u);
      EXPECT_TRUE(a.unchanged());
      a.prepare(kSmall);
      EXPECT_EQ(c.call(a, a.st(), result), null && c.has_result ? 2u : 0u);
      if (null && c.has_result) EXPECT_TRUE(a.unchanged());
      for (const auto &d : damages) {
        a.prepare(d.start);
        if (d.change) d.change(*a.st());
        std::memmove(a.st(d.offset), a.st(), a.size);
        a.snap.assign(a.mem, a.mem + Arena::kSize);
        EXPECT_EQ(c.call(a, a.st(d.offset), result), 7u) << d.what;
        EXPECT_TRUE(a.unchanged()) << d.what << " changed memory";
      }
    }
}

}  // namespace
