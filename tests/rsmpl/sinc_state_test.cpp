// The context's fresh state, every status rule of the sinc interpolator's
// calls, and random call sequences held bit for bit to the plain model.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "rsmpl/fir_reference.h"
#include "rsmpl/sinc_model.h"
#include "support/workload.h"

namespace {

using sinc_test::Model;
using sinc_test::snapshot;

constexpr int16_t kCanary = 0x5a5a;

// Initialised over garbage, or reset after use as a FIR stage and as the
// interpolator, a context is byte for byte the fresh state.
TEST(Context, InitAndResetGiveTheFreshState) {
  EXPECT_EQ(RSMPL_GetContextSize(), 3336u);
  EXPECT_EQ(RSMPL_InitContext(nullptr), RSMPL_ERR_NULL_CONTEXT);
  EXPECT_EQ(RSMPL_Reset(nullptr), RSMPL_ERR_NULL_CONTEXT);
  RSMPL_Context fresh, used;
  std::memset(&fresh, 0xA5, sizeof fresh);
  ASSERT_EQ(RSMPL_InitContext(&fresh), RSMPL_OK);
  EXPECT_EQ(snapshot(fresh), snapshot(Model()));
  EXPECT_EQ(std::count(fresh.samples, fresh.samples + rsmpl::kSampleAreaSize, 0),
            rsmpl::kSampleAreaSize);
  ASSERT_EQ(RSMPL_InitContext(&used), RSMPL_OK);
  std::vector<int16_t> block(1440, 1234), out(1440 * 8);
  uint32_t count = 0;
  ASSERT_EQ(RSMPL_Up(&used, block.data(), out.data(), 240, 4), RSMPL_OK);
  ASSERT_EQ(RSMPL_SetResampleRatio(&used, nullptr, nullptr, nullptr, 0.3f), RSMPL_OK);
  ASSERT_EQ(RSMPL_Resample(&used, block.data(), out.data(), 1440, &count), RSMPL_OK);
  ASSERT_EQ(RSMPL_Reset(&used), RSMPL_OK);
  EXPECT_EQ(std::memcmp(&used, &fresh, sizeof fresh), 0);
}

using Call = uint32_t (*)(RSMPL_Context *c, uint32_t *r, int16_t *o);
int16_t g_in[1441];

// Each rule of each call at its boundary and one past it, and the order of
// the checks. `ratio` is set first (0: none); a refused call changes
// neither the context nor any result nor the output.
TEST(SincCalls, EveryRuleAtItsBoundaryAndTheOrderOfTheChecks) {
  const float kNaN = std::nanf("");
  struct Case {
    float ratio;
    uint32_t status;
    Call call;
  };
  static const float below = std::nextafter(0.125f, 0.0f), above = std::nextafter(8.0f, 9.0f),
                     negative = -std::numeric_limits<float>::denorm_min(),
                     past_one = std::nextafter(1.0f, 2.0f), nan = kNaN;
  const Case cases[] = {
      {0, 1, [](auto, auto r, auto) { return RSMPL_SetResampleRatio(nullptr, r, r + 1, r + 2, 1); }},
      {0, 1, [](auto, auto, auto) { return RSMPL_SetResampleRatio(nullptr, nullptr, nullptr, nullptr, 99); }},
      {0, 0, [](auto c, auto r, auto) { return RSMPL_SetResampleRatio(c, r, r + 1, r + 2, 0.125f); }},
      {0, 3, [](auto c, auto r, auto) { return RSMPL_SetResampleRatio(c, r, r + 1, r + 2, below); }},
      {0, 0, [](auto c, auto r, auto) { return RSMPL_SetResampleRatio(c, r, r + 1, r + 2, 8); }},
      {0, 3, [](auto c, auto r, auto) { return RSMPL_SetResampleRatio(c, r, r + 1, r + 2, above); }},
      {0, 3, [](auto c, auto r, auto) { return RSMPL_SetResampleRatio(c, r, r + 1, r + 2, nan); }},
      {0, 0, [](auto c, auto, auto) { return RSMPL_SetResampleRatio(c, nullptr, nullptr, nullptr, 2); }},
      {0, 1, [](auto, auto, auto) { return RSMPL_SetFracDelay(nullptr, nullptr, nullptr, -3); }},
      {0.5f, 0, [](auto c, auto r, auto) { return RSMPL_SetFracDelay(c, r, r + 1, 0); }},
      {0.5f, 6, [](auto c, auto r, auto) { return RSMPL_SetFracDelay(c, r, r + 1, negative); }},
      {0.5f, 0, [](auto c, auto r, auto) { return RSMPL_SetFracDelay(c, r, r + 1, 1); }},
      {0.5f, 6, [](auto c, auto r, auto) { return RSMPL_SetFracDelay(c, r, r + 1, past_one); }},
      {0.5f, 6, [](auto c, auto r, auto) { return RSMPL_SetFracDelay(c, r, r + 1, nan); }},
      {0.5f, 6, [](auto c, auto, auto) { return RSMPL_SetFracDelay(c, nullptr, nullptr, -0.5f); }},
      {0.5f, 2, [](auto c, auto r, auto) { return RSMPL_SetFracDelay(c, r, nullptr, 0.5f); }},
      {0.5f, 2, [](auto c, auto r, auto) { return RSMPL_SetFracDelay(c, nullptr, r, 0.5f); }},
      {0, 1, [](auto, auto, auto) { return RSMPL_GetNumInSamples(nullptr, -5, nullptr); }},
      {0, 4, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 0, r); }},
      {0, 0, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 1, r); }},
      {0, 0, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 1440, r); }},
      {0, 4, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 1441, r); }},
      {0, 4, [](auto c, auto, auto) { return RSMPL_GetNumInSamples(c, 1441, nullptr); }},
      {0, 2, [](auto c, auto, auto) { return RSMPL_GetNumInSamples(c, 10, nullptr); }},
      // 0.7f * 1440 is 1007.99998, which single precision rounds to 1008.
      {0.7f, 0, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 1008, r); }},
      {0.7f, 4, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 1009, r); }},
      {8, 0, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 11520, r); }},
      {8, 4, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 11521, r); }},
      {0.125f, 0, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 180, r); }},
      {0.125f, 4, [](auto c, auto r, auto) { return RSMPL_GetNumInSamples(c, 181, r); }},
      {0, 1, [](auto, auto r, auto) { return RSMPL_GetResampleDelay(nullptr, r); }},
      {0, 2, [](auto c, auto, auto) { return RSMPL_GetResampleDelay(c, nullptr); }},
      {0, 1, [](auto, auto, auto o) { return RSMPL_Resample(nullptr, nullptr, o, 0, nullptr); }},
      {0, 2, [](auto c, auto r, auto) { return RSMPL_Resample(c, g_in, nullptr, 0, r); }},
      {0, 2, [](auto c, auto r, auto o) { return RSMPL_Resample(c, nullptr, o, 0, r); }},
      {0, 2, [](auto c, auto, auto o) { return RSMPL_Resample(c, g_in, o, 5, nullptr); }},
      {0, 4, [](auto c, auto r, auto o) { return RSMPL_Resample(c, g_in, o, 0, r); }},
      {0, 0, [](auto c, auto r, auto o) { return RSMPL_Resample(c, g_in, o, 1, r); }},
      {0, 0, [](auto c, auto r, auto o) { return RSMPL_Resample(c, g_in, o, 1440, r); }},
      {0, 4, [](auto c, auto r, auto o) { return RSMPL_Resample(c, g_in, o, 1441, r); }},
      // Ratio 0.25 grows the filter from 13 to 52: a block must exceed 39.
      {0.25f, 4, [](auto c, auto r, auto o) { return RSMPL_Resample(c, g_in, o, 39, r); }},
      {0.25f, 0, [](auto c, auto r, auto o) { return RSMPL_Resample(c, g_in, o, 40, r); }},
  };
  for (const Case &c : cases) {
    auto ctx = std::make_unique<RSMPL_Context>();
    ASSERT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
    if (c.ratio != 0)
      ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, c.ratio), RSMPL_OK);
    const RSMPL_Context before = *ctx;
    uint32_t results[3] = {7, 7, 7};
    std::vector<int16_t> out(1448, kCanary);
    const uint32_t status = c.call(ctx.get(), results, out.data());
    EXPECT_EQ(status, c.status) << "case " << &c - cases;
    if (status == RSMPL_OK) continue;
    EXPECT_EQ(std::memcmp(&before, ctx.get(), sizeof before), 0) << "case " << &c - cases;
    EXPECT_EQ(results[0] & results[1] & results[2], 7u) << "case " << &c - cases;
    EXPECT_EQ(std::count(out.begin(), out.end(), kCanary), 1448) << "case " << &c - cases;
  }
}

// Random calls in random order: ratios at and between their boundaries
// (exact and inexact steps, the shortest and longest filters, growing and
// shrinking ones), delays with fractions just below, at and above one half
// and at 0xFFFF, blocks from the shortest the pending growth allows to 1440
// or sized by the input accounting, random, full-scale, saturating and
// exact-half input, in place or not. After every call the out-values,
// outputs, state and kept history equal the model's, and the outputs fit the
// room a caller leaves: ceil(n * ratio) + extraOutSamples.
TEST(SincInterpolator, EveryCallFollowsTheModelBitForBit) {
  const float ratios[] = {0.125f, 0.1256f, 1.0f / 3.0f, 0.34f, 0.5f,  0.51f, 0.75f,
                          0.999f, 1.0f,    1.5f,        3.0f,  4.0f,  7.99f, 8.0f};
  const float delays[] = {0.0f, 0.25f, 32767 / 65536.0f, 0.5f, 32769 / 65536.0f, 65535 / 65536.0f, 1.0f};
  std::mt19937 rng(2024);
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  auto ctx = std::make_unique<RSMPL_Context>();
  ASSERT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
  Model model;
  auto set_ratio = [&](float r) {
    uint32_t got[3] = {0, 0, 0};
    const bool give = pick(4) != 0;
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), give ? got : nullptr, give ? got + 1 : nullptr,
                                     give ? got + 2 : nullptr, r), RSMPL_OK);
    const auto want = model.set_ratio(r);
    if (give) ASSERT_EQ(std::vector<uint32_t>(got, got + 3), std::vector<uint32_t>(want.begin(), want.end()));
  };
  auto resample = [&](int n) {
    const auto block = fir_test::make_signal(n, static_cast<fir_test::Fill>(pick(4)), rng);
    const double in_force = 16777216.0 / model.step;
    const int32_t d = model.growth();
    const uint32_t extra = d >= 0 ? 1 : static_cast<uint32_t>(std::fma(float(-d), model.ratio, 0.5f)) + 1;
    const size_t room = static_cast<size_t>(std::ceil(n * in_force)) + extra;
    const bool in_place = pick(2);
    std::vector<int16_t> buffer(std::max<size_t>(room, n) + 8, kCanary);
    if (in_place) std::copy(block.begin(), block.end(), buffer.begin());
    uint32_t count = 0;
    ASSERT_EQ(RSMPL_Resample(ctx.get(), in_place ? buffer.data() : block.data(), buffer.data(), n,
                             &count), RSMPL_OK);
    const auto want = model.run(block.data(), n);
    ASSERT_LE(count, room);
    ASSERT_EQ(std::vector<int16_t>(buffer.begin(), buffer.begin() + count), want);
    const size_t end = in_place ? std::max<size_t>(count, n) : count;
    ASSERT_EQ(std::count(buffer.begin() + end, buffer.end(), kCanary), static_cast<long>(buffer.size() - end));
  };
  // First the area's tightest spot: full blocks at the longest filter, then
  // shrinks whose last outputs reach the block's newest sample.
  for (float r : {0.2f, 1.0f}) {
    set_ratio(0.125f), resample(1440), resample(1440), set_ratio(r), resample(1440);
    ASSERT_FALSE(HasFatalFailure()) << "shrink to " << r;
  }
  for (int call = 0; call < workload(3000, 600); ++call) {
    const int action = pick(10);
    uint32_t got[2] = {0, 0};
    if (action == 0) {
      set_ratio(pick(2) ? ratios[pick(14)] : std::uniform_real_distribution<float>(0.125f, 8)(rng));
    } else if (action == 1) {
      const float d = delays[pick(7)];
      ASSERT_EQ(RSMPL_SetFracDelay(ctx.get(), got, got + 1, d), RSMPL_OK);
      model.set_delay(d);
      ASSERT_EQ(got[0] * 10000 + got[1], 11440u);
    } else if (action == 2) {
      const int m = 1 + pick(static_cast<int>(model.ratio * 1440.0f));
      ASSERT_EQ(RSMPL_GetNumInSamples(ctx.get(), m, got), RSMPL_OK);
      ASSERT_EQ(got[0], model.inputs_for(static_cast<uint16_t>(m))) << "m=" << m;
      ASSERT_EQ(RSMPL_GetResampleDelay(ctx.get(), got + 1), RSMPL_OK);
      ASSERT_EQ(got[1], model.halfLength);
    } else {
      const int shortest = std::max(model.growth(), 0) + 1;
      int n = pick(3) == 0 ? shortest + pick(3) : shortest + pick(1441 - shortest);
      if (pick(4) == 0) n = static_cast<int>(model.inputs_for(static_cast<uint16_t>(1 + pick(100))));
      resample(std::clamp(n, shortest, 1440));
    }
    ASSERT_FALSE(HasFatalFailure()) << "call " << call;
    ASSERT_EQ(snapshot(*ctx), snapshot(model)) << "call " << call << " action " << action;
  }
}

}  // namespace
