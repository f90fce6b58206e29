// Ratio, fractional delay and input accounting of the sinc interpolator:
// worked values, the order of argument checks, and pending-ratio state.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/rsmpl/sinc_test_support.h"

namespace {

using sinc_test::NewContext;

constexpr uint32_t kQ24One = 1u << 24;
constexpr uint32_t kQ16One = 1u << 16;
const float kNaN = std::numeric_limits<float>::quiet_NaN();

// Runs one silent block so that a pending ratio commits.
void Commit(RSMPL_Context *ctx, int32_t n = 200) {
  std::vector<int16_t> in(n, 0), out(20000);
  uint32_t count = 0;
  ASSERT_EQ(RSMPL_Resample(ctx, in.data(), out.data(), n, &count), RSMPL_OK);
}

TEST(SincStatus, NullContextAlwaysGivesOne) {
  uint32_t a = 0, b = 0, c = 0;
  int16_t buffer[4] = {};
  EXPECT_EQ(RSMPL_SetResampleRatio(nullptr, &a, &b, &c, 1.0f), RSMPL_ERR_NULL_CONTEXT);
  EXPECT_EQ(RSMPL_SetResampleRatio(nullptr, nullptr, nullptr, nullptr, 99.0f),
            RSMPL_ERR_NULL_CONTEXT);
  EXPECT_EQ(RSMPL_SetFracDelay(nullptr, nullptr, nullptr, -3.0f), RSMPL_ERR_NULL_CONTEXT);
  EXPECT_EQ(RSMPL_GetNumInSamples(nullptr, -5, nullptr), RSMPL_ERR_NULL_CONTEXT);
  EXPECT_EQ(RSMPL_GetResampleDelay(nullptr, nullptr), RSMPL_ERR_NULL_CONTEXT);
  EXPECT_EQ(RSMPL_Resample(nullptr, nullptr, buffer, 0, nullptr), RSMPL_ERR_NULL_CONTEXT);
}

struct RatioStatusCase {
  float ratio;
  uint32_t status;
};

TEST(SincStatus, RatioRange) {
  const RatioStatusCase cases[] = {
      {0.125f, RSMPL_OK}, {8.0f, RSMPL_OK},   {1.0f, RSMPL_OK},
      {0.124f, RSMPL_ERR_BAD_RATIO},          {8.01f, RSMPL_ERR_BAD_RATIO},
      {0.0f, RSMPL_ERR_BAD_RATIO},            {-1.0f, RSMPL_ERR_BAD_RATIO},
      {kNaN, RSMPL_ERR_BAD_RATIO},            {std::numeric_limits<float>::infinity(), 3},
  };
  for (const RatioStatusCase &c : cases) {
    auto ctx = NewContext();
    EXPECT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, c.ratio), c.status)
        << c.ratio;
  }
}

TEST(SincStatus, FracDelayChecksRangeBeforePointers) {
  auto ctx = NewContext();
  uint32_t lo = 0, hi = 0;
  EXPECT_EQ(RSMPL_SetFracDelay(ctx.get(), nullptr, nullptr, -0.5f), RSMPL_ERR_BAD_DELAY);
  EXPECT_EQ(RSMPL_SetFracDelay(ctx.get(), nullptr, nullptr, 1.01f), RSMPL_ERR_BAD_DELAY);
  EXPECT_EQ(RSMPL_SetFracDelay(ctx.get(), nullptr, nullptr, kNaN), RSMPL_ERR_BAD_DELAY);
  EXPECT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, nullptr, 0.5f), RSMPL_ERR_NULL_POINTER);
  EXPECT_EQ(RSMPL_SetFracDelay(ctx.get(), nullptr, &hi, 0.5f), RSMPL_ERR_NULL_POINTER);
  EXPECT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, 0.0f), RSMPL_OK);
  EXPECT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, 1.0f), RSMPL_OK);
}

struct CountCase {
  float ratio;  // committed before asking
  int32_t count;
  bool nullResult;
  uint32_t status;
};

TEST(SincStatus, NumInSamplesChecksCountBeforePointer) {
  const CountCase cases[] = {
      {1.0f, 1440, false, RSMPL_OK},
      {1.0f, 1441, false, RSMPL_ERR_BAD_LENGTH},
      {1.0f, 1441, true, RSMPL_ERR_BAD_LENGTH},
      {1.0f, 0, true, RSMPL_ERR_BAD_LENGTH},
      {1.0f, -7, false, RSMPL_ERR_BAD_LENGTH},
      {1.0f, 10, true, RSMPL_ERR_NULL_POINTER},
      {0.5f, 720, false, RSMPL_OK},
      {0.5f, 721, false, RSMPL_ERR_BAD_LENGTH},
      {8.0f, 11520, false, RSMPL_OK},
      {8.0f, 11521, false, RSMPL_ERR_BAD_LENGTH},
  };
  for (const CountCase &c : cases) {
    auto ctx = NewContext();
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, c.ratio), RSMPL_OK);
    uint32_t result = 0;
    EXPECT_EQ(RSMPL_GetNumInSamples(ctx.get(), c.count, c.nullResult ? nullptr : &result),
              c.status)
        << c.ratio << " " << c.count;
  }
}

TEST(SincStatus, ResampleChecksInOrder) {
  auto ctx = NewContext();
  std::vector<int16_t> in(1440, 0), out(1441);
  uint32_t count = 0;
  EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), nullptr, 0, &count), RSMPL_ERR_NULL_POINTER);
  EXPECT_EQ(RSMPL_Resample(ctx.get(), nullptr, out.data(), 0, &count), RSMPL_ERR_NULL_POINTER);
  EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), 5, nullptr),
            RSMPL_ERR_NULL_POINTER);
  EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), 0, &count), RSMPL_ERR_BAD_LENGTH);
  EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), 1441, &count),
            RSMPL_ERR_BAD_LENGTH);
  EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), 1440, &count), RSMPL_OK);
  EXPECT_EQ(count, 1440u);
  // Growth 13 (ratio 0.5 from 1): a block must be longer than 13.
  ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, 0.5f), RSMPL_OK);
  EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), 13, &count), RSMPL_ERR_BAD_LENGTH);
  EXPECT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), 14, &count), RSMPL_OK);
}

TEST(SincStatus, FailingCallsChangeNothing) {
  auto ctx = NewContext();
  ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, 0.25f), RSMPL_OK);
  std::vector<unsigned char> before(RSMPL_GetContextSize());
  std::memcpy(before.data(), ctx.get(), before.size());
  uint32_t lo = 7, hi = 7, extra = 7, count = 7;
  std::vector<int16_t> in(1440, 100), out(1440);
  EXPECT_NE(RSMPL_SetResampleRatio(ctx.get(), &lo, &hi, &extra, 9.0f), RSMPL_OK);
  EXPECT_NE(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, 2.0f), RSMPL_OK);
  EXPECT_NE(RSMPL_GetNumInSamples(ctx.get(), 0, &count), RSMPL_OK);
  EXPECT_NE(RSMPL_Resample(ctx.get(), in.data(), out.data(), 39, &count), RSMPL_OK);
  EXPECT_EQ(std::memcmp(before.data(), ctx.get(), before.size()), 0);
  EXPECT_EQ(lo + hi + extra + count, 28u);
  EXPECT_EQ(out[0], 0);
}

struct RatioStateCase {
  float ratio;
  uint32_t halfLength;
  uint32_t nextStep;
  uint32_t nextPhaseStep;
  uint32_t nextGain;
  uint32_t minIn;  // set on a fresh context (history 13)
};

TEST(SincRatio, PendingStateFromAFreshContext) {
  const RatioStateCase cases[] = {
      {1.0f, 13, kQ24One, 128 * kQ16One, kQ24One, 1},
      {2.0f, 13, kQ24One / 2, 128 * kQ16One, kQ24One, 1},
      {4.0f, 13, kQ24One / 4, 128 * kQ16One, kQ24One, 1},
      {8.0f, 13, kQ24One / 8, 128 * kQ16One, kQ24One, 1},
      {0.75f, 17, 22369622u, 96 * kQ16One, 12582912u, 5},
      {0.5f, 26, 2 * kQ24One, 64 * kQ16One, kQ24One / 2, 14},
      {0.25f, 52, 4 * kQ24One, 32 * kQ16One, kQ24One / 4, 40},
      {0.125f, 104, 8 * kQ24One, 16 * kQ16One, kQ24One / 8, 92},
  };
  for (const RatioStateCase &c : cases) {
    auto ctx = NewContext();
    uint32_t lo = 0, hi = 0, extra = 0;
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), &lo, &hi, &extra, c.ratio), RSMPL_OK);
    const rsmpl::SincState &s = ctx->sinc;
    EXPECT_EQ(s.halfLength, c.halfLength) << c.ratio;
    EXPECT_EQ(s.nextStep, c.nextStep) << c.ratio;
    EXPECT_EQ(s.nextPhaseStep, c.nextPhaseStep) << c.ratio;
    EXPECT_EQ(s.nextGain, c.nextGain) << c.ratio;
    EXPECT_EQ(s.ratio, c.ratio);
    // Nothing in force changes before the next call.
    EXPECT_EQ(s.historyHalfLength, 13u);
    EXPECT_EQ(s.step, kQ24One);
    EXPECT_EQ(s.phaseStep, 128 * kQ16One);
    EXPECT_EQ(s.gain, kQ24One);
    EXPECT_EQ(lo, c.minIn) << c.ratio;
    EXPECT_EQ(hi, 1440u);
    EXPECT_EQ(extra, 1u);
    uint32_t delay = 0;
    ASSERT_EQ(RSMPL_GetResampleDelay(ctx.get(), &delay), RSMPL_OK);
    EXPECT_EQ(delay, c.halfLength);
  }
}

TEST(SincRatio, HalfLengthFollowsTheInverseRatio) {
  const std::pair<float, uint32_t> cases[] = {
      {0.75f, 17}, {0.5f, 26}, {1.0f / 3.0f, 39}, {0.125f, 104}, {0.9f, 14}, {0.99f, 13},
      {1.5f, 13},  {3.0f, 13},
  };
  for (const auto &c : cases) {
    auto ctx = NewContext();
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, c.first), RSMPL_OK);
    EXPECT_EQ(ctx->sinc.halfLength, c.second) << c.first;
  }
}

struct TransitionCase {
  float from;  // committed first
  float to;
  uint32_t minIn;
  uint32_t extra;
};

TEST(SincRatio, OutValuesAgainstTheStoredHistory) {
  const TransitionCase cases[] = {
      {2.0f, 2.0f, 1, 1},
      {0.5f, 1.0f, 1, 14},         // shrinks by 13: trunc(13 * 1 + 0.5) + 1
      {0.125f, 1.0f, 1, 92},       // shrinks by 91
      {0.125f, 8.0f, 1, 729},      // trunc(91 * 8 + 0.5) + 1
      {1.0f, 0.125f, 92, 1},       // grows by 91
      {0.5f, 0.25f, 27, 1},        // 26 -> 52
      {0.25f, 0.5f, 1, 14},        // 52 -> 26: trunc(26 * 0.5 + 0.5) + 1
  };
  for (const TransitionCase &c : cases) {
    auto ctx = NewContext();
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, c.from), RSMPL_OK);
    Commit(ctx.get());
    uint32_t lo = 0, hi = 0, extra = 0;
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), &lo, &hi, &extra, c.to), RSMPL_OK);
    EXPECT_EQ(lo, c.minIn) << c.from << " -> " << c.to;
    EXPECT_EQ(hi, 1440u);
    EXPECT_EQ(extra, c.extra) << c.from << " -> " << c.to;
  }
}

TEST(SincRatio, SettingTwiceKeepsOnlyTheLast) {
  auto ctx = NewContext();
  ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, 0.125f), RSMPL_OK);
  uint32_t lo = 0;
  ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), &lo, nullptr, nullptr, 2.0f), RSMPL_OK);
  EXPECT_EQ(lo, 1u);  // growth is taken against the stored history (13)
  Commit(ctx.get());
  EXPECT_EQ(ctx->sinc.historyHalfLength, 13u);
  EXPECT_EQ(ctx->sinc.step, kQ24One / 2);
}

TEST(SincRatio, CommitsAtTheEndOfTheNextCall) {
  auto ctx = NewContext();
  ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, 0.5f), RSMPL_OK);
  Commit(ctx.get(), 100);
  const rsmpl::SincState &s = ctx->sinc;
  EXPECT_EQ(s.historyHalfLength, 26u);
  EXPECT_EQ(s.step, 2 * kQ24One);
  EXPECT_EQ(s.phaseStep, 64 * kQ16One);
  EXPECT_EQ(s.gain, kQ24One / 2);
  // The call ran at step 1 over 100 - 13 samples: 87 outputs, position 0.
  EXPECT_EQ(s.position, 0);
}

TEST(SincDelay, RestartsTheStreamWithTheGivenPosition) {
  const std::pair<float, int32_t> cases[] = {
      {0.25f, 16384}, {0.5f, 32768}, {0.0f, 0}, {1.0f, 65536}, {0.1f, 6554}};
  for (const auto &c : cases) {
    auto ctx = NewContext();
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, 0.25f), RSMPL_OK);
    Commit(ctx.get());
    std::vector<int16_t> noise(300, 1234);
    std::vector<int16_t> out(300);
    uint32_t count = 0;
    ASSERT_EQ(RSMPL_Resample(ctx.get(), noise.data(), out.data(), 300, &count), RSMPL_OK);
    uint32_t lo = 0, hi = 0;
    ASSERT_EQ(RSMPL_SetFracDelay(ctx.get(), &lo, &hi, c.first), RSMPL_OK);
    EXPECT_EQ(lo, 1u);
    EXPECT_EQ(hi, 1440u);
    const rsmpl::SincState &s = ctx->sinc;
    EXPECT_EQ(s.position, c.second) << c.first;
    EXPECT_EQ(s.ratio, 1.0f);
    EXPECT_EQ(s.step, kQ24One);
    EXPECT_EQ(s.halfLength, 13u);
    EXPECT_EQ(s.historyHalfLength, 13u);
    for (int16_t v : ctx->samples) ASSERT_EQ(v, 0);
  }
}

TEST(SincAccounting, FreshContextNeedsOneInputPerOutput) {
  auto ctx = NewContext();
  for (int32_t m : {1, 2, 7, 100, 1439, 1440}) {
    uint32_t needed = 0;
    ASSERT_EQ(RSMPL_GetNumInSamples(ctx.get(), m, &needed), RSMPL_OK);
    EXPECT_EQ(needed, static_cast<uint32_t>(m));
  }
  // The position's integer part holds up to 32767 samples.
  for (uint16_t m : {uint16_t{3000}, uint16_t{32767}}) {
    EXPECT_EQ(RSMPLGetNumInSamples(ctx.get(), m), m);
  }
}

struct NeedCase {
  float ratio;  // committed, position 0
  int32_t outputs;
  uint32_t inputs;
  uint32_t produced;  // outputs a block of `inputs` samples yields
};

TEST(SincAccounting, InputsNeededForCommittedRatios) {
  const NeedCase cases[] = {
      {4.0f, 6, 1, 4},      // pos(6) = 1.5: only positions 0 .. 0.75 fit
      {4.0f, 8, 2, 8},
      {2.0f, 5, 2, 4},
      {2.0f, 6, 3, 6},
      {0.5f, 10, 20, 10},
      {0.125f, 3, 24, 3},
      {1.0f, 37, 37, 37},
  };
  for (const NeedCase &c : cases) {
    auto ctx = NewContext();
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, c.ratio), RSMPL_OK);
    Commit(ctx.get());
    ASSERT_EQ(ctx->sinc.position, 0);
    uint32_t needed = 0;
    ASSERT_EQ(RSMPL_GetNumInSamples(ctx.get(), c.outputs, &needed), RSMPL_OK);
    EXPECT_EQ(needed, c.inputs) << c.ratio << " x" << c.outputs;
    std::vector<int16_t> in(needed, 0), out(c.outputs);
    uint32_t count = 0;
    ASSERT_EQ(RSMPL_Resample(ctx.get(), in.data(), out.data(), static_cast<int32_t>(needed),
                             &count),
              RSMPL_OK);
    EXPECT_EQ(count, c.produced) << c.ratio << " x" << c.outputs;
  }
}

TEST(SincAccounting, PendingGrowthIsAddedToTheNeed) {
  auto ctx = NewContext();
  ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, 0.5f), RSMPL_OK);
  uint32_t needed = 0;
  ASSERT_EQ(RSMPL_GetNumInSamples(ctx.get(), 50, &needed), RSMPL_OK);
  EXPECT_EQ(needed, 63u);  // 50 at the old step 1, plus the growth of 13
}

}  // namespace
