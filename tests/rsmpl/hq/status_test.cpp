// SPDX-License-Identifier: MIT
// The high-quality resampler's status rules, one table per call
// (tests/support/hq_status.h): each rule at its boundary and one past it,
// the order rsmpl_hq.h gives when several arguments are wrong, and no
// change at all from a call that fails (the whole block around the state,
// its buffers and results compared).
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
  static constexpr auto Reset = RSMPL_HqReset;
  static constexpr auto OutputFrames = RSMPL_HqOutputFrames;
  static constexpr auto InputFrames = RSMPL_HqInputFrames;
  static constexpr auto GetInfo = RSMPL_HqGetInfo;
  static RSMPL_Status Process(State *st, void *in, uint32_t *n, void *out, uint32_t *m) {
    return RSMPL_HqProcess(st, static_cast<const int16_t *>(in), n, static_cast<int16_t *>(out), m);
  }
};

const Start kSmall{32000, 48000, 2};  // 3/2: the small ratios' design

TEST(HqStatus, GetStateSizeAndInit) { run(size_and_init_rows<Hq16>()); }

TEST(HqStatus, SetRatio) { run(set_ratio_rows<Hq16>()); }

// Sharing one buffer in place at every ratio kind, and empty buffers
// anywhere, are held to the rules by hq/stream_test's and the fuzz target's
// streams.
TEST(HqStatus, Process) { run(process_rows<Hq16>()); }

TEST(HqStatus, CallsOnAStateRefuseAnythingButAState) {
  using S = RSMPL_HqState;
  check_state_calls<Hq16>(
      kSmall, {
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
              });
}

}  // namespace
