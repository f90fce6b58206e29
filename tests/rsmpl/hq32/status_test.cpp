// SPDX-License-Identifier: MIT
// The 32-bit high-quality resampler's status rules, one table per call
// (tests/support/hq_status.h, on S32 frames): each rule at its boundary and
// one past it, the order rsmpl_hq.h gives when several arguments are
// wrong, and no change at all from a call that fails; then what is its
// own: the sample formats, the overlaps they make, and SetDither.
#include <gtest/gtest.h>

#include "rsmpl/hq32/state.h"
#include "tests/support/hq_status.h"

namespace {

using namespace hq_status;

template <uint32_t InFormat, uint32_t OutFormat>
struct Hq32 {
  using State = RSMPL_Hq32State;
  static constexpr size_t kStateArea = 3 << 20, kSample = 4;
  static constexpr auto GetStateSize = RSMPL_Hq32GetStateSize;
  static constexpr auto Init = RSMPL_Hq32Init;
  static constexpr auto SetRatio = RSMPL_Hq32SetRatio;
  static constexpr auto Reset = RSMPL_Hq32Reset;
  static constexpr auto OutputFrames = RSMPL_Hq32OutputFrames;
  static constexpr auto InputFrames = RSMPL_Hq32InputFrames;
  static constexpr auto GetInfo = RSMPL_Hq32GetInfo;
  static RSMPL_Status Process(State *st, void *in, uint32_t *n, void *out, uint32_t *m) {
    return RSMPL_Hq32Process(st, in, InFormat, n, out, OutFormat, m);
  }
};
using S32 = Hq32<RSMPL_HQ_S32, RSMPL_HQ_S32>;

TEST(Hq32Status, GetStateSizeAndInit) { run(size_and_init_rows<S32>()); }

TEST(Hq32Status, SetRatio) { run(set_ratio_rows<S32>()); }

TEST(Hq32Status, Process) { run(process_rows<S32>()); }

// A format other than 0 (S16) and 1 (S32), either side, gives 9, after the
// state's check and before the pointers'. In place, an output frame may be
// no larger than an input frame: S32 into S16 may share a buffer (falling),
// S16 into S32 may not.
TEST(Hq32Status, Formats) {
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
}

TEST(Hq32Status, CallsOnAStateRefuseAnythingButAState) {
  using S = RSMPL_Hq32State;
  check_state_calls<S32>(Start{32000, 48000, 2}, {
                                    {"never initialised", kZeroed, nullptr},
                                    {"moved 4 bytes", kUp, nullptr, 4},
                                    {"magic", kUp, [](S &s) { s.magic ^= 1; }},
                                    {"in rate 7999", kUp, [](S &s) { s.in_rate = 7999; }},
                                    {"out rate 192001", kUp, [](S &s) { s.out_rate = 192001; }},
                                    {"9 channels", kUp, [](S &s) { s.channels = 9; }},
                                    {"reach", kUp, [](S &s) { ++s.reach; }},
                                    {"taps", kUp, [](S &s) { s.taps += 8; }},
                                    {"phases held", kUp, [](S &s) { ++s.max_phases; }},
                                    {"line size", kUp, [](S &s) { ++s.line_cap; }},
                                    {"bytes one short", kUp, [](S &s) { --s.bytes; }},
                                    {"L 0", kUp, [](S &s) { s.ratio_out = 0; }},
                                    {"M 0", kUp, [](S &s) { s.ratio_in = 0; }},
                                    {"no phases", kUp, [](S &s) { s.phases = 0; }},
                                    {"phases at the most held", kUp, [](S &s) { s.phases = s.max_phases; }},
                                    {"phase r at L", kUp, [](S &s) { s.r = s.ratio_out; }},
                                    {"grid phase at P", kUp, [](S &s) { s.q = s.phases; }},
                                    {"grid remainder at L", kUp, [](S &s) { s.rem = s.ratio_out; }},
                                    {"fill past the line", kUp, [](S &s) { s.fill = s.line_cap + 1; }},
                                    {"end before a whole window", kUp, [](S &s) { s.end = s.taps - 2; }},
                                    {"no dither generator", kUp, [](S &s) { s.noise = 0; }},
                                });
}

}  // namespace
