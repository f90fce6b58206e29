// SPDX-License-Identifier: MIT
// Every status rule of the engine's calls, and random sinc interpolator call
// sequences held bit for bit to its plain model.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>

#include "tests/rsmpl/fir/reference.h"
#include "tests/rsmpl/sinc/model.h"
#include "tests/support/workload.h"

namespace {

using sinc_test::Model;
using sinc_test::snapshot;
using fir_test::kCanary;

// Each rule of each call at its boundary and one past it, and the order of
// the checks: a null context first, then pointers, codes and values in the
// documented order. `ratio` is set first (0: none) on a context holding
// random history; a refused call changes neither the context nor any result
// nor the output. What accepted block calls write, the stage test checks.
TEST(EngineCalls, EveryRuleAtItsBoundaryAndTheOrderOfTheChecks) {
  using Call = std::function<uint32_t(RSMPL_Context *, uint32_t *, int16_t *)>;
  struct Case {
    uint32_t status;
    Call call;
    float ratio = 0;
  };
  std::mt19937 rng(4);
  const auto random =
      fir_test::make_signal(96000 + rsmpl::kSampleAreaSize, fir_test::Fill::kRandom, rng);
  const int16_t *in = random.data(), *history = in + 96000;
  const float nan = std::nanf(""), tiny = std::numeric_limits<float>::denorm_min();
  std::vector<Case> cases;
  for (auto [r, s] : {std::pair{0.125f, 0u}, {std::nextafter(0.125f, 0.0f), 3u}, {8.0f, 0u},
                      {std::nextafter(8.0f, 9.0f), 3u}, {nan, 3u}})
    cases.push_back(
        {s, [r = r](auto c, auto o, auto) { return RSMPL_SetResampleRatio(c, o, o + 1, o + 2, r); }});
  for (auto [d, s] :
       {std::pair{0.0f, 0u}, {-tiny, 6u}, {1.0f, 0u}, {std::nextafter(1.0f, 2.0f), 6u}, {nan, 6u}})
    cases.push_back(
        {s, [d = d](auto c, auto o, auto) { return RSMPL_SetFracDelay(c, o, o + 1, d); }, 0.5f});
  // The count limit is ratio * 1440 in single precision: 0.7f * 1440 is
  // 1007.99998, which rounds to 1008.
  for (auto [r, m, s] : {std::tuple{1.0f, 0, 4u}, {1.0f, 1, 0u}, {1.0f, 1440, 0u}, {1.0f, 1441, 4u},
                         {0.7f, 1008, 0u}, {0.7f, 1009, 4u}, {8.0f, 11520, 0u}, {8.0f, 11521, 4u},
                         {0.125f, 180, 0u}, {0.125f, 181, 4u}})
    cases.push_back({s, [m = m](auto c, auto o, auto) { return RSMPL_GetNumInSamples(c, m, o); }, r});
  // Ratio 0.25 grows the filter from 13 to 52: a block must exceed 39.
  for (auto [r, n, s] : {std::tuple{0.0f, 0, 4u}, {0.0f, 1, 0u}, {0.0f, 1440, 0u}, {0.0f, 1441, 4u},
                         {0.25f, 39, 4u}, {0.25f, 40, 0u}})
    cases.push_back(
        {s, [n = n, in](auto c, auto o, auto out) { return RSMPL_Resample(c, in, out, n, o); }, r});
  cases.insert(cases.end(), {
      {1, [](auto, auto o, auto) { return RSMPL_SetResampleRatio(nullptr, o, o + 1, o + 2, 99); }},
      {1, [](auto, auto, auto) { return RSMPL_SetFracDelay(nullptr, nullptr, nullptr, -3); }},
      {1, [](auto, auto, auto) { return RSMPL_InitContext(nullptr); }},
      {1, [](auto, auto, auto) { return RSMPL_Reset(nullptr); }},
      {1, [](auto, auto, auto) { return RSMPL_GetNumInSamples(nullptr, -5, nullptr); }},
      {1, [](auto, auto o, auto) { return RSMPL_GetResampleDelay(nullptr, o); }},
      {1, [](auto, auto, auto out) { return RSMPL_Resample(nullptr, nullptr, out, 0, nullptr); }},
      {0, [](auto c, auto, auto) { return RSMPL_SetResampleRatio(c, nullptr, nullptr, nullptr, 2); }},
      {6, [](auto c, auto, auto) { return RSMPL_SetFracDelay(c, nullptr, nullptr, -0.5f); }},
      {2, [](auto c, auto o, auto) { return RSMPL_SetFracDelay(c, o, nullptr, 0.5f); }},
      {2, [](auto c, auto o, auto) { return RSMPL_SetFracDelay(c, nullptr, o, 0.5f); }},
      {4, [](auto c, auto, auto) { return RSMPL_GetNumInSamples(c, 1441, nullptr); }},
      {2, [](auto c, auto, auto) { return RSMPL_GetNumInSamples(c, 10, nullptr); }},
      {2, [](auto c, auto, auto) { return RSMPL_GetResampleDelay(c, nullptr); }},
      {2, [in](auto c, auto o, auto) { return RSMPL_Resample(c, in, nullptr, 0, o); }},
      {2, [](auto c, auto o, auto out) { return RSMPL_Resample(c, nullptr, out, 0, o); }},
      {2, [in](auto c, auto, auto out) { return RSMPL_Resample(c, in, out, 5, nullptr); }},
  });
  // RSMPL_Up / RSMPL_Down: every length within two multiples of the shortest
  // and the longest block (down has none: 96000 stands for it), lengths whose
  // output count wraps 32 bits; then context, buffers, code and length (null
  // is a mask: 1 context, 2 in, 4 out).
  for (const auto &k : fir_test::kernel_specs()) {
    auto block = [&k, in](int null, uint32_t code, int32_t n) -> Call {
      return [=, &k](auto c, auto, auto out) {
        return fir_test::block_call(k, null & 1 ? nullptr : c, null & 2 ? nullptr : in,
                                    null & 4 ? nullptr : out, n, code);
      };
    };
    std::vector<int32_t> lengths = {0, -k.multiple, INT_MAX, k.up ? 1 << 30 : 0};
    for (int edge : {k.min_length, k.up ? 1440 / k.L * k.M : 96000})
      for (int n = edge - 2 * k.multiple - 1; n <= edge + 2 * k.multiple + 1; ++n)
        lengths.push_back(n);
    for (int32_t n : lengths)
      cases.push_back({fir_test::allowed(k, n) ? 0u : 4u, block(0, k.code, n)});
    for (auto [null, code, n, s] : {std::tuple{7, 9u, -1, 1u}, {2, 9u, -1, 2u}, {4, 9u, -1, 2u},
                                    {0, 5u, -1, 3u}, {0, 5u, k.min_length, 3u},
                                    {0, 0xFFFFFFFFu, k.min_length, 3u}})
      cases.push_back({s, block(null, code, n)});
  }
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases.data());
    auto ctx = std::make_unique<RSMPL_Context>();
    ASSERT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
    std::copy(history, history + rsmpl::kSampleAreaSize, ctx->samples);
    if (c.ratio != 0)
      ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), nullptr, nullptr, nullptr, c.ratio), RSMPL_OK);
    const RSMPL_Context before = *ctx;
    uint32_t results[3] = {7, 7, 7};
    std::vector<int16_t> out(96000, kCanary);
    ASSERT_EQ(c.call(ctx.get(), results, out.data()), c.status);
    if (c.status == RSMPL_OK) continue;
    EXPECT_EQ(std::memcmp(&before, ctx.get(), sizeof before), 0);
    EXPECT_EQ(std::vector<uint32_t>(results, results + 3), std::vector<uint32_t>(3, 7));
    EXPECT_EQ(std::count(out.begin(), out.end(), kCanary), long(out.size()));
  }
}

// Random calls in random order: ratios at and between their boundaries
// (exact and inexact steps, the shortest and longest filters, growing and
// shrinking ones), delays with fractions just below, at and above one half
// and at 0xFFFF, blocks from the shortest the pending growth allows to 1440
// or sized by the input accounting, random, full-scale, saturating and
// exact-half input, in place or not. After every call the out-values,
// outputs, state and kept history equal the model's, and the outputs fit the
// room a caller leaves: ceil(n * ratio) + extraOutSamples. Initialised over
// garbage, or reset after use as a FIR stage, the context is the fresh state
// (the model's start) with a silent sample area.
TEST(SincInterpolator, EveryCallFollowsTheModelBitForBit) {
  const float ratios[] = {0.125f, 0.1256f, 1.0f / 3.0f, 0.34f, 0.5f,  0.51f, 0.75f,
                          0.999f, 1.0f,    1.5f,        3.0f,  4.0f,  7.99f, 8.0f};
  const float delays[] = {0.0f, 0.25f, 32767 / 65536.0f, 0.5f, 32769 / 65536.0f, 65535 / 65536.0f, 1.0f};
  std::mt19937 rng(2024);
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  ASSERT_EQ(RSMPL_GetContextSize(), sizeof(RSMPL_Context));
  ASSERT_EQ(sizeof(RSMPL_Context), 3336u);
  auto ctx = std::make_unique<RSMPL_Context>();
  std::memset(ctx.get(), 0xA5, sizeof *ctx);
  ASSERT_EQ(RSMPL_InitContext(ctx.get()), RSMPL_OK);
  Model model;
  auto expect_fresh = [&] {
    ASSERT_EQ(snapshot(*ctx), snapshot(model));
    ASSERT_TRUE(std::all_of(ctx->samples, ctx->samples + rsmpl::kSampleAreaSize,
                            [](int16_t v) { return v == 0; }));
  };
  expect_fresh();
  auto set_ratio = [&](float r) {
    std::array<uint32_t, 3> got = {0, 0, 0};
    ASSERT_EQ(RSMPL_SetResampleRatio(ctx.get(), &got[0], &got[1], &got[2], r), RSMPL_OK);
    ASSERT_EQ(got, model.set_ratio(r));
  };
  auto resample = [&](int n, fir_test::Fill fill) {
    const auto block = fir_test::make_signal(n, fill, rng);
    const size_t room = static_cast<size_t>(std::ceil(n * 16777216.0 / model.step)) + model.extra();
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
    ASSERT_EQ(std::count(buffer.begin() + end, buffer.end(), kCanary), long(buffer.size() - end));
  };
  // First the area's tightest spot: full blocks at the longest filter, then
  // shrinks whose last outputs reach the block's newest sample.
  for (float r : {0.2f, 1.0f}) {
    const auto fill = fir_test::Fill::kRandom;
    set_ratio(0.125f), resample(1440, fill), resample(1440, fill), set_ratio(r), resample(1440, fill);
    ASSERT_FALSE(HasFatalFailure()) << "shrink to " << r;
  }
  set_ratio(0.9f);  // grows the filter by one sample: the shortest block is 2
  for (int call = 0; call < workload(3000, 600); ++call) {
    const int action = pick(20);
    uint32_t got[2] = {0, 0};
    if (action < 2) {
      set_ratio(pick(2) ? ratios[pick(14)] : std::uniform_real_distribution<float>(0.125f, 8)(rng));
    } else if (action == 2) {
      const float d = delays[pick(7)];
      ASSERT_EQ(RSMPL_SetFracDelay(ctx.get(), got, got + 1, d), RSMPL_OK);
      model.set_delay(d);
      ASSERT_EQ(got[0] * 10000 + got[1], 11440u);
    } else if (action == 3) {
      const std::vector<int16_t> block(240, 9999);
      std::vector<int16_t> out(1440);
      ASSERT_EQ(RSMPL_Up(ctx.get(), block.data(), out.data(), 240, 4), RSMPL_OK);
      ASSERT_EQ(RSMPL_Reset(ctx.get()), RSMPL_OK);
      model = Model();
      expect_fresh();
    } else if (action < 6) {
      const int m = 1 + pick(static_cast<int>(model.ratio * 1440.0f));
      ASSERT_EQ(RSMPL_GetNumInSamples(ctx.get(), m, got), RSMPL_OK);
      ASSERT_EQ(got[0], model.inputs_for(static_cast<uint16_t>(m))) << "m=" << m;
      ASSERT_EQ(RSMPL_GetResampleDelay(ctx.get(), got + 1), RSMPL_OK);
      ASSERT_EQ(got[1], model.halfLength);
    } else {
      const int shortest = std::max(model.growth(), 0) + 1;
      int n = pick(3) == 0 ? shortest + pick(3) : shortest + pick(1441 - shortest);
      if (pick(4) == 0) n = static_cast<int>(model.inputs_for(static_cast<uint16_t>(1 + pick(100))));
      resample(std::clamp(n, shortest, 1440), static_cast<fir_test::Fill>(pick(4)));
    }
    ASSERT_FALSE(HasFatalFailure()) << "call " << call;
    ASSERT_EQ(snapshot(*ctx), snapshot(model)) << "call " << call << " action " << action;
  }
}

}  // namespace
