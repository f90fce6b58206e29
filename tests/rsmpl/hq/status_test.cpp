// SPDX-License-Identifier: MIT
// The high-quality resampler's status rules, both grades, one table per
// call (tests/support/hq_status.h): each rule at its boundary and one past
// it, the order rsmpl_hq.h gives when several arguments are wrong, and no
// change at all from a call that fails; then the 32-bit calls' own: the
// sample formats, the overlaps they make, and SetDither; and a damaged or
// foreign state refused by every call.
#include <gtest/gtest.h>

#include "rsmpl/hq/state.h"
#include "tests/support/hq_status.h"

namespace {

using namespace hq_status;

struct Hq16 {
  using State = RSMPL_HqState;
  static constexpr size_t kStateArea = 1 << 20, kSample = 2;
  static constexpr auto GetStateSize = RSMPL_HqGetStateSize;
  static constexpr auto Init = RSMPL_HqInit;
  static constexpr auto SetRatio = RSMPL_HqSetRatio;
  static constexpr auto SetRatioScale = RSMPL_HqSetRatioScale;
  static constexpr auto GlideScale = RSMPL_HqGlideScale;
  static constexpr auto Reset = RSMPL_HqReset;
  static constexpr auto OutputFrames = RSMPL_HqOutputFrames;
  static constexpr auto InputFrames = RSMPL_HqInputFrames;
  static constexpr auto GetInfo = RSMPL_HqGetInfo;
  static constexpr auto GetPosition = RSMPL_HqGetPosition;
  static RSMPL_Status Process(State *st, void *in, uint32_t *n, void *out, uint32_t *m) {
    return RSMPL_HqProcess(st, static_cast<const int16_t *>(in), n, static_cast<int16_t *>(out), m);
  }
};

template <uint32_t InFormat, uint32_t OutFormat>
struct Hq32 {
  using State = RSMPL_Hq32State;
  static constexpr size_t kStateArea = 1 << 20, kSample = 4;
  static constexpr auto GetStateSize = RSMPL_Hq32GetStateSize;
  static constexpr auto Init = RSMPL_Hq32Init;
  static constexpr auto SetRatio = RSMPL_Hq32SetRatio;
  static constexpr auto SetRatioScale = RSMPL_Hq32SetRatioScale;
  static constexpr auto GlideScale = RSMPL_Hq32GlideScale;
  static constexpr auto Reset = RSMPL_Hq32Reset;
  static constexpr auto OutputFrames = RSMPL_Hq32OutputFrames;
  static constexpr auto InputFrames = RSMPL_Hq32InputFrames;
  static constexpr auto GetInfo = RSMPL_Hq32GetInfo;
  static constexpr auto GetPosition = RSMPL_Hq32GetPosition;
  static RSMPL_Status Process(State *st, void *in, uint32_t *n, void *out, uint32_t *m) {
    return RSMPL_Hq32Process(st, in, InFormat, n, out, OutFormat, m);
  }
};
using S32 = Hq32<RSMPL_HQ_S32, RSMPL_HQ_S32>;

TEST(HqStatus, GetStateSizeAndInit) {
  run(size_and_init_rows<Hq16>());
  run(size_and_init_rows<S32>());
}

TEST(HqStatus, SetRatioAndScale) {
  run(set_ratio_rows<Hq16>());
  run(set_ratio_rows<S32>());
}

TEST(HqStatus, Process) {
  run(process_rows<Hq16>());
  run(process_rows<S32>());
}

// A format other than 0 (S16) and 1 (S32), either side, gives 9, after the
// state's check and before the pointers'. In place, an output frame may be
// no larger than an input frame: S32 into S16 may share a buffer (falling),
// S16 into S32 may not.
TEST(HqStatus, FormatsAndDither) {
  using A = S32;
  auto formats = [](uint32_t in, uint32_t out, bool null_counts = false, ptrdiff_t out_at = 4096) {
    return [=](Arena<A> &a) {
      return RSMPL_Hq32Process(a.st(), a.buf(), in, null_counts ? nullptr : a.word(0), a.buf() + out_at, out,
                               a.word(1));
    };
  };
  run<A>({
      {"S16 in, S32 out", kUp, 0, formats(RSMPL_HQ_S16, RSMPL_HQ_S32)},
      {"S32 in, S16 out", kUp, 0, formats(RSMPL_HQ_S32, RSMPL_HQ_S16)},
      {"in format 2", kUp, 9, formats(2, RSMPL_HQ_S32)},
      {"out format 2", kUp, 9, formats(RSMPL_HQ_S16, 2)},
      {"format before counts", kUp, 9, formats(UINT32_MAX, RSMPL_HQ_S16, true)},
      {"state before format", kZeroed, 7, formats(2, 2)},
      {"S32 into S16 in place, falling", kDown, 0, formats(RSMPL_HQ_S32, RSMPL_HQ_S16, false, 0)},
      {"S16 into S32 in place, falling", kDown, 8, formats(RSMPL_HQ_S16, RSMPL_HQ_S32, false, 0)},
      {"S32 into S16 in place, rising", kUp, 8, formats(RSMPL_HQ_S32, RSMPL_HQ_S16, false, 0)},
  });
  run<A>({
      {"dither on", kUp, 0, [](Arena<A> &a) { return RSMPL_Hq32SetDither(a.st(), 7); }},
      {"dither off", kUp, 0, [](Arena<A> &a) { return RSMPL_Hq32SetDither(a.st(), 0); }},
      {"dither, null state", kUp, 1, [](Arena<A> &) { return RSMPL_Hq32SetDither(nullptr, 1); }},
      {"dither, no state", kZeroed, 7, [](Arena<A> &a) { return RSMPL_Hq32SetDither(a.st(), 1); }},
  });
  // The other grade's state is not a state to these calls.
  run<A>({{"a 16-bit state", kZeroed, 7, [](Arena<A> &a) {
             uint32_t size = 0;
             RSMPL_HqGetStateSize(44100, 48000, 2, &size);
             RSMPL_HqInit(reinterpret_cast<RSMPL_HqState *>(a.st()), size, 44100, 48000, 2);
             a.snap.assign(a.mem, a.mem + Arena<A>::kSize);
             return RSMPL_Hq32Reset(a.st());
           }}});
}

// Damages that the calls must notice: each field the plan fixes, and each
// stream field just past what it can be.
template <class Api>
std::vector<Damage<Api>> damages() {
  using S = typename Api::State;
  auto in = [](S &s) -> RSMPL_HqState & { return reinterpret_cast<RSMPL_HqState &>(s); };
  return {
      {"never initialised", kZeroed, nullptr},
      {"moved 4 bytes", kUp, nullptr, 4},
      {"magic", kUp, [=](S &s) { in(s).magic ^= 1; }},
      {"in rate 3999", kUp, [=](S &s) { in(s).in_rate = 3999; }},
      {"out rate 768001", kUp, [=](S &s) { in(s).out_rate = 768001; }},
      {"65 channels", kUp, [=](S &s) { in(s).channels = 65; }},
      {"another grade", kUp, [=](S &s) { in(s).grade ^= 1; }},
      {"bytes one short", kUp, [=](S &s) { in(s).bytes = rsmpl::hq_plan(44100, 48000, 2, in(s).grade, nullptr) - 1; }},
      {"a stage more", kUp, [=](S &s) { ++in(s).stages; }},
      {"an octave more", kChainDown, [=](S &s) { ++in(s).octaves; }},
      {"a lift less", kChainUp, [=](S &s) { in(s).lift = 0; }},
      {"queue past its size", kUp, [=](S &s) { in(s).fifo_fill = in(s).fifo_cap + 1; }},
      {"line past its size", kUp, [=](S &s) { in(s).stage[0].fill = in(s).stage[0].cap + 1; }},
      {"next past the fill", kUp, [=](S &s) { in(s).stage[0].next = in(s).stage[0].fill + 1; }},
      {"odd line past its size", kChainDown, [=](S &s) { in(s).stage[1].odd = in(s).stage[1].cap + 1; }},
      {"line moved", kChainUp, [=](S &s) { in(s).stage[1].at += 8; }},
      {"rows moved", kUp, [=](S &s) { in(s).cache_at += 8; }},
      {"single stage's taps", kUp, [=](S &s) { in(s).direct.taps += 8; }},
      {"single stage's rows", kDown, [=](S &s) { ++in(s).direct.rows_cap; }},
      {"step denominator 0", kUp, [=](S &s) { in(s).step.den = 0; }},
      {"step denominator past 2^32", kUp, [=](S &s) { in(s).step.den = (uint64_t{1} << 32) + 1; }},
      {"step remainder at its denominator", kUp, [=](S &s) { in(s).step.se = static_cast<uint32_t>(in(s).step.den); }},
      {"position remainder at its denominator", kUp, [=](S &s) { in(s).pos.e = static_cast<uint32_t>(in(s).step.den); }},
      {"no step", kUp, [=](S &s) { in(s).step.si = in(s).step.sf = in(s).step.se = 0; }},
      {"glide stairs past their count", kUp, [=](S &s) {
         Api::GlideScale(&s, 1ull << 32, 48000);
         in(s).glide_left = in(s).glide_stairs + 1; }},
      {"glide stair of no steps", kUp, [=](S &s) {
         Api::GlideScale(&s, 1ull << 32, 48000);
         in(s).glide_count = 0; }},
  };
}

TEST(HqStatus, CallsOnAStateRefuseAnythingButAState) {
  check_state_calls<Hq16>(Start{32000, 48000, 2}, damages<Hq16>());
  check_state_calls<S32>(Start{32000, 48000, 2}, damages<S32>());
}

}  // namespace
