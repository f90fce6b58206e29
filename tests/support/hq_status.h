// SPDX-License-Identifier: MIT
// What the status tests of both high-quality resamplers share: a block
// holding a state, buffers and result words, scrambled before every row and
// compared after a call that fails (which must change nothing), and tables
// of rows, each a call and the status it must give. `Api` names one
// resampler's calls and state.
#ifndef SKELDA_TESTS_HQ_STATUS_H
#define SKELDA_TESTS_HQ_STATUS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "skelda/rsmpl_hq.h"

namespace hq_status {

// What a row starts from: a state of these rates and channels at this
// ratio (0: the rates'), or (zeroed) a block Init never saw.
struct Start {
  uint32_t in, out, channels, ratio_out = 0, ratio_in = 0;
  bool zeroed = false;
  uint64_t glide_to = 0;  // then a glide under way to this scale
};
const Start kUp{44100, 48000, 2}, kDown{48000, 44100, 2}, kUnit{44100, 44100, 2};
const Start kZeroed{44100, 48000, 2, 0, 0, true};
// Pairs that run the chain of stages on both grades (the 16-bit grade's
// nearer rates take its single stage).
const Start kChainUp{44100, 192000, 2}, kChainDown{96000, 44100, 2};

// One block: 64 KB, the state's area, then 64 KB of input and output
// buffers and the result words (room for an RSMPL_HqPosition); scrambled
// bytes before each row.
template <class Api>
struct Arena {
  static constexpr size_t kPad = 65536, kArea = Api::kStateArea, kSize = 2 * kPad + kArea;
  uint8_t *mem = static_cast<uint8_t *>(std::aligned_alloc(kPad, kSize));
  std::vector<uint8_t> snap;
  uint32_t size = 0;
  ~Arena() { std::free(mem); }
  typename Api::State *st(size_t offset = 0) {
    return reinterpret_cast<typename Api::State *>(mem + kPad + offset);
  }
  uint8_t *buf() { return mem + kSize - kPad; }                                          // 32 KB
  uint32_t *word(int i) { return reinterpret_cast<uint32_t *>(buf() + 32768) + i; }  // counts, result
  void prepare(const Start &s, uint32_t in_n = 16, uint32_t out_n = 16) {
    for (size_t i = 0; i < kSize; ++i) mem[i] = static_cast<uint8_t>((i * 2654435761u) >> 13);
    if (s.zeroed) std::memset(st(), 0, kArea);
    ASSERT_EQ(Api::GetStateSize(s.in, s.out, s.channels, &size), RSMPL_OK);
    ASSERT_LE(size, kArea);
    if (!s.zeroed)
      ASSERT_TRUE(Api::Init(st(), size, s.in, s.out, s.channels) == RSMPL_OK &&
                  (!s.ratio_out || Api::SetRatio(st(), s.ratio_out, s.ratio_in) == RSMPL_OK) &&
                  (!s.glide_to || Api::GlideScale(st(), s.glide_to, 1u << 20) == RSMPL_OK));
    *word(0) = in_n;
    *word(1) = out_n;
    snap.assign(mem, mem + kSize);
  }
  bool unchanged() const { return std::equal(snap.begin(), snap.end(), mem); }
};

template <class Api>
using Call = std::function<RSMPL_Status(Arena<Api> &)>;

template <class Api>
struct Row {
  std::string what;
  Start start;
  RSMPL_Status want;
  Call<Api> call;
  uint32_t in_n = 16, out_n = 16;  // the counts Process is given
};

template <class Api>
void run(const std::vector<Row<Api>> &rows) {
  Arena<Api> a;
  for (const Row<Api> &row : rows) {
    a.prepare(row.start, row.in_n, row.out_n);
    EXPECT_EQ(row.call(a), row.want) << row.what;
    if (row.want != RSMPL_OK) EXPECT_TRUE(a.unchanged()) << row.what << " changed memory";
  }
}

// Rates 0, 3999, 4000, 768000 and 768001 on either side and channels 0, 1,
// 64 and 65 through both calls (Init with the size of its rates, or of
// kZeroed's when they are refused); the size pointer checked last, the
// state first, its size and its alignment.
template <class Api>
std::vector<Row<Api>> size_and_init_rows() {
  auto size = [](uint32_t in, uint32_t out, uint32_t ch, bool null = false) {
    return [=](Arena<Api> &a) { return Api::GetStateSize(in, out, ch, null ? nullptr : a.word(2)); };
  };
  auto init = [](uint32_t in, uint32_t out, uint32_t ch, uint32_t less = 0, size_t offset = 0) {
    return [=](Arena<Api> &a) {
      uint32_t bytes = a.size;
      Api::GetStateSize(in, out, ch, &bytes);
      return Api::Init(a.st(offset), bytes - less, in, out, ch);
    };
  };
  std::vector<Row<Api>> rows = {
      {"null size", kZeroed, 2, size(4000, 768000, 1, true)},
      {"rate before channels and size", kZeroed, 3, size(3999, 4000, 65, true)},
      {"channels before the size", kZeroed, 4, size(4000, 4000, 65, true)},
      {"null state", kZeroed, 1, [](Arena<Api> &) { return Api::Init(nullptr, 0, 0, 0, 0); }},
      {"init: rate before channels", kZeroed, 3, init(4000, 3999, 65)},
      {"size one byte short", kZeroed, 4, init(96000, 44100, 3, 1)},
      {"4 bytes past 8-aligned", kZeroed, 4, init(96000, 44100, 3, 0, 4)}};
  for (uint32_t r : {0u, 3999u, 4000u, 768000u, 768001u}) {
    const RSMPL_Status want = r >= 4000 && r <= 768000 ? 0 : 3;
    for (const Call<Api> &call : {Call<Api>(size(r, 48000, 2)), Call<Api>(size(44100, r, 2)),
                                  Call<Api>(init(r, 48000, 2)), Call<Api>(init(44100, r, 2))})
      rows.push_back({"rate " + std::to_string(r), kZeroed, want, call});
  }
  for (uint32_t ch : {0u, 1u, 64u, 65u})
    for (const Call<Api> &call : {Call<Api>(size(44100, 48000, ch)), Call<Api>(init(44100, 48000, ch))})
      rows.push_back({std::to_string(ch) + " channels", kZeroed, ch >= 1 && ch <= 64 ? 0u : 4u, call});
  return rows;
}

// Within 1/8 of 160/147 either way: 180/147 and 140/147 exactly; terms up to
// 2^32 - 1; scales within 1/8 of 2^32.
template <class Api>
std::vector<Row<Api>> set_ratio_rows() {
  auto set = [](uint32_t out, uint32_t in) {
    return [=](Arena<Api> &a) { return Api::SetRatio(a.st(), out, in); };
  };
  auto scale = [](uint64_t s) { return [=](Arena<Api> &a) { return Api::SetRatioScale(a.st(), s); }; };
  const uint32_t top = UINT32_MAX;
  const uint64_t one = uint64_t{1} << 32;
  return {
      {"state before counts", kZeroed, 7, set(0, 0)},
      {"zero out", kUp, 3, set(0, 1024)},
      {"zero in", kUp, 3, set(1115, 0)},
      {"1/8 above", kUp, 0, set(180, 147)},
      {"past 1/8 above", kUp, 3, set(1801, 1470)},
      {"1/8 below", kUp, 0, set(140, 147)},
      {"past 1/8 below", kUp, 3, set(1399, 1470)},
      {"1:1", kUnit, 0, set(1, 1)},
      {"terms of 2^32 - 1, ratio 1", kUnit, 0, set(top, top)},
      {"terms of 2^32 - 1 and 2^32 - 2", kUnit, 0, set(top, top - 1)},
      {"large terms near the rates'", kUp, 0, set(4294967291u, 3946001049u)},
      {"scale state first", kZeroed, 7, scale(0)},
      {"scale 1", kUp, 0, scale(one)},
      {"scale 1/8 above", kUp, 0, scale(one + one / 8)},
      {"scale past 1/8 above", kUp, 3, scale(one + one / 8 + 1)},
      {"scale 1/8 below", kUp, 0, scale(one - one / 8)},
      {"scale past 1/8 below", kUp, 3, scale(one - one / 8 - 1)},
      {"scale 0", kUp, 3, scale(0)},
      {"glide state first", kZeroed, 7, [](Arena<Api> &a) { return Api::GlideScale(a.st(), 0, 0); }},
      {"glide to 1/8 above", kUp, 0, [=](Arena<Api> &a) { return Api::GlideScale(a.st(), one + one / 8, 4800); }},
      {"glide past 1/8 above", kUp, 3, [=](Arena<Api> &a) { return Api::GlideScale(a.st(), one + one / 8 + 1, 4800); }},
      {"glide past 1/8 below", kDown, 3, [=](Arena<Api> &a) { return Api::GlideScale(a.st(), one - one / 8 - 1, 9); }},
      {"glide over no frames", kDown, 0, [=](Arena<Api> &a) { return Api::GlideScale(a.st(), one, 0); }},
      {"glide over 2^32 - 1 frames", kUp, 0, [=](Arena<Api> &a) { return Api::GlideScale(a.st(), one, UINT32_MAX); }},
      {"scale of 2^64 - 1", kDown, 3, scale(UINT64_MAX)},
  };
}

// Buffers of 16 frames at byte offsets, counted in samples of `sample`
// bytes, from the arena's buffers, from the state's start or from its end;
// null when not given. The call gets them as Api::Process(state, in, counts,
// out, room).
enum Where { kNull, kBuf, kState, kStateEnd };
template <class Api>
Call<Api> io(Where in, ptrdiff_t in_at, Where out = kBuf, ptrdiff_t out_at = 4096) {
  return [=](Arena<Api> &a) {
    auto at = [&](Where w, ptrdiff_t i) -> uint8_t * {
      uint8_t *s = reinterpret_cast<uint8_t *>(a.st());
      const ptrdiff_t bytes = i * static_cast<ptrdiff_t>(Api::kSample);
      return w == kNull ? nullptr : (w == kBuf ? a.buf() : w == kState ? s : s + a.size) + bytes;
    };
    return Api::Process(a.st(), at(in, in_at), a.word(0), at(out, out_at), a.word(1));
  };
}

// The overlap rules on 16 stereo frames (32 samples): touching is allowed,
// sharing a sample is not, but for one buffer from the same start when the
// rules allow in place (a ratio at most 1; rising rates, or falling ones
// above 1, do not).
template <class Api>
std::vector<Row<Api>> process_rows() {
  const Start rising_at_one{47000, 48000, 2, 1, 1}, falling_above_one{46000, 45000, 2, 103, 100};
  // Gliding from 15/16 to 1/16 above 1, or to 1/32 below it.
  const uint64_t one = uint64_t{1} << 32;
  const Start gliding_past_one{44100, 44100, 2, 15, 16, false, one + one / 16},
      gliding_below_one{44100, 44100, 2, 15, 16, false, one - one / 32};
  return {
      {"null counts before overlap", kUp, 2,
       [](Arena<Api> &a) { return Api::Process(a.st(), a.buf(), nullptr, a.buf(), a.word(1)); }},
      {"null room", kUp, 2,
       [](Arena<Api> &a) { return Api::Process(a.st(), a.buf(), a.word(0), a.buf() + 4096, nullptr); }},
      {"null in, no frames", kUp, 0, io<Api>(kNull, 0), 0},
      {"null in, one frame", kUp, 2, io<Api>(kNull, 0), 1},
      {"null out, no room", kUp, 0, io<Api>(kBuf, 0, kNull, 0), 16, 0},
      {"null out, room of one", kUp, 2, io<Api>(kBuf, 0, kNull, 0), 16, 1},
      {"null buffer before overlap", kUp, 2, io<Api>(kNull, 0, kState, 0)},
      {"out starting on in's last sample", kUp, 8, io<Api>(kBuf, 0, kBuf, 31)},
      {"out right after in", kUp, 0, io<Api>(kBuf, 0, kBuf, 32)},
      {"out ending on in's first sample", kUp, 8, io<Api>(kBuf, 32, kBuf, 1)},
      {"out ending where in starts", kUp, 0, io<Api>(kBuf, 32, kBuf, 0)},
      {"out one sample on, falling", kDown, 8, io<Api>(kBuf, 0, kBuf, 1)},
      {"same buffer, rising", kUp, 8, io<Api>(kBuf, 0, kBuf, 0)},
      {"same buffer, rising rates at ratio 1", rising_at_one, 0, io<Api>(kBuf, 0, kBuf, 0)},
      {"same buffer, falling rates above ratio 1", falling_above_one, 8, io<Api>(kBuf, 0, kBuf, 0)},
      {"same buffer, gliding past ratio 1", gliding_past_one, 8, io<Api>(kBuf, 0, kBuf, 0)},
      {"same buffer, gliding below ratio 1", gliding_below_one, 0, io<Api>(kBuf, 0, kBuf, 0)},
      {"in on the state's last sample", kUp, 8, io<Api>(kStateEnd, -1)},
      {"in right after the state", kUp, 0, io<Api>(kStateEnd, 0)},
      {"out ending on the state's first sample", kUp, 8, io<Api>(kBuf, 0, kState, -31)},
      {"out ending where the state starts", kUp, 0, io<Api>(kBuf, 0, kState, -32)},
      {"no frames inside the state", kUp, 0, io<Api>(kState, 32), 0},
  };
}

// A damage to a good state that the calls must notice.
template <class Api>
struct Damage {
  const char *what;
  Start start;
  std::function<void(typename Api::State &)> change;
  size_t offset = 0;
};

// Every call that takes a state, each with a null result (or count) pointer
// and with valid ones, from a state of `good`: the state is checked first
// (1 null, 7 not a state: never initialised, misaligned, or any checked
// field just past what it can be), then the pointer (2).
template <class Api>
void check_state_calls(const Start &good, const std::vector<Damage<Api>> &damages) {
  using S = typename Api::State;
  const struct {
    const char *name;
    bool has_result;
    std::function<RSMPL_Status(Arena<Api> &, S *, uint32_t *)> call;  // result: null, or a.word(2)
  } calls[] = {
      {"SetRatio", false, [](Arena<Api> &, S *st, uint32_t *) { return Api::SetRatio(st, 3, 2); }},
      {"Reset", false, [](Arena<Api> &, S *st, uint32_t *) { return Api::Reset(st); }},
      {"Process", true, [](Arena<Api> &a, S *st, uint32_t *n) {
         return Api::Process(st, a.buf(), n ? a.word(0) : n, a.buf() + 4096, a.word(1)); }},
      {"OutputFrames", true, [](Arena<Api> &, S *st, uint32_t *n) { return Api::OutputFrames(st, 9, n); }},
      {"InputFrames", true, [](Arena<Api> &, S *st, uint32_t *n) { return Api::InputFrames(st, 9, n); }},
      {"GetInfo", true, [](Arena<Api> &, S *st, uint32_t *n) {
         return Api::GetInfo(st, reinterpret_cast<RSMPL_HqInfo *>(n)); }},
      {"GetPosition", true, [](Arena<Api> &, S *st, uint32_t *n) {
         return Api::GetPosition(st, reinterpret_cast<RSMPL_HqPosition *>(n)); }},
      {"SetRatioScale", false, [](Arena<Api> &, S *st, uint32_t *) { return Api::SetRatioScale(st, 1ull << 32); }},
  };
  Arena<Api> a;
  for (const auto &c : calls)
    for (bool null : {true, false}) {
      SCOPED_TRACE(::testing::Message() << c.name << (null ? ", null result" : ""));
      uint32_t *result = null ? nullptr : a.word(2);
      a.prepare(kUp);
      EXPECT_EQ(c.call(a, nullptr, result), 1u);
      EXPECT_TRUE(a.unchanged());
      a.prepare(good);
      EXPECT_EQ(c.call(a, a.st(), result), null && c.has_result ? 2u : 0u);
      if (null && c.has_result) EXPECT_TRUE(a.unchanged());
      for (const auto &d : damages) {
        a.prepare(d.start);
        if (d.change) d.change(*a.st());
        std::memmove(a.st(d.offset), a.st(), a.size);
        a.snap.assign(a.mem, a.mem + Arena<Api>::kSize);
        EXPECT_EQ(c.call(a, a.st(d.offset), result), 7u) << d.what;
        EXPECT_TRUE(a.unchanged()) << d.what << " changed memory";
      }
    }
}

}  // namespace hq_status

#endif
