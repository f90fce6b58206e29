// SPDX-License-Identifier: MIT
// Each build's high-quality output loop against the scalar build's (plain
// int64 sums, held to the reference by hq/stream_test) on coefficients at the
// bounds that keep every sum within 32 bits (hq/state.h: the sum of |hi|
// times 32768 plus 2^(31 - S) below 2^31, |lo| at most 2^(S - 1)) and random
// or full-scale samples: the two-frame kernels (P = L), the blend's inner
// products (P < L) and the lane kernels of the small ratios' designs. Real
// designs stay far from these bounds, so streams cannot show a lane that
// wraps.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "rsmpl/cpu.h"
#include "rsmpl/hq/kernels.h"
#include "rsmpl/hq/state.h"
#include "tests/support/hq_reference.h"
#include "tests/support/kernel_sets.h"

namespace {

// n hi and n lo at the bounds for shift s: |hi| adding up to the largest sum
// allowed; all of one sign (sign 1 or -1) or of random signs (0). Sign 2:
// a few halves of the peak (2^13 in hi), so that sums fall on exact halves
// of an output step.
void bounded(int16_t *hi, int16_t *lo, uint32_t n, uint32_t s, int sign, std::mt19937 &rng) {
  std::fill(hi, hi + n, 0);
  std::fill(lo, lo + n, 0);
  for (int i = 0; sign == 2 && i < 3; ++i) hi[rng() % n] = rng() % 2 ? 8192 : -8192;
  if (sign == 2) return;
  for (int left = (1 << 16) - (1 << (16 - s)) - 1; left > 0;) {
    const uint32_t k = rng() % n;
    const int step = std::min<int>({left, 1 + int(rng() % 4096), 32767 - hi[k]});
    hi[k] = static_cast<int16_t>(hi[k] + step);
    left -= step;
  }
  const int half = 1 << (s - 1);
  for (uint32_t k = 0; k < n; ++k) {
    hi[k] = static_cast<int16_t>((sign != 0 ? sign : rng() % 2 ? 1 : -1) * hi[k]);
    const int any = int(rng() % half);
    lo[k] = static_cast<int16_t>(sign > 0 ? any : sign < 0 ? -1 - any : rng() % 2 ? any : -1 - any);
  }
}

// Coefficient signs and samples; one extreme throughout meets, in every
// window, the largest sum of the coefficients' sign.
const std::pair<int, hq_test::Fill> kModes[] = {{0, hq_test::kRandom}, {0, hq_test::kFullScale},
                                                {1, hq_test::kHigh},   {1, hq_test::kLow},
                                                {-1, hq_test::kLow},   {2, hq_test::kRandom}};

// A state at ratio L / M with bounded coefficients in every phase (its tap
// pairs for a small ratio's design) and the samples in every line (pair
// rows), full; each build's output loop on copies, with room for 7 frames
// (an odd last frame goes alone) and then the rest.
TEST(HqKernels, OutputLoopsMatchTheScalarBuildAtTheBounds) {
  std::mt19937 rng(32);
  const uint32_t ratios[][4] = {
      {44100, 48000, 160, 147}, {96000, 44100, 147, 320}, {192000, 8000, 1, 24},  // P = L
      {44100, 48000, 1115, 1024}, {192000, 8000, 1001, 24000},                   // P < L
      {24000, 48000, 2, 1}, {32000, 48000, 3, 2}, {48000, 16000, 1, 3}, {48000, 30000, 5, 8},
      {8000, 64000, 8, 1}, {56000, 8000, 1, 7}, {44100, 48000, 8, 7}};  // lanes
  for (const auto &r : ratios)
    for (uint32_t ch : {1u, 2u, 3u})
      for (const auto &[sign, fill] : kModes) {
        auto st = hq_test::make_state(r[0], r[1], ch, r[2], r[3]);
        ASSERT_TRUE(st);
        const bool lanes = st->direct != 0;
        const uint32_t n = lanes ? st->active : st->taps, phases = lanes ? r[2] : st->phases + 1;
        int16_t *coef = lanes ? st->pair_coefficients() : st->coefficients();
        std::vector<int16_t> hi(n), lo(n);
        for (uint32_t q = 0; q < phases; ++q, coef += 2 * n) {
          bounded(hi.data(), lo.data(), n, st->lo_shift, sign, rng);
          for (uint32_t k = 0; k < n; ++k) {  // a pair's (hi, hi, lo, lo), or hi then lo
            coef[lanes ? 4 * (k / 2) + k % 2 : k] = hi[k];
            coef[lanes ? 4 * (k / 2) + 2 + k % 2 : n + k] = lo[k];
          }
        }
        const auto x =
            hq_test::make_input(fill, ch * (lanes ? st->pair_line_size() : st->line_cap), rng);
        std::copy(x.begin(), x.end(), lanes ? st->pairs(0) : st->line(0));
        st->fill = st->line_cap;
        const uint32_t ready = static_cast<uint32_t>(rsmpl::hq_outputs_for(st.get(), 0));
        const char *at = reinterpret_cast<char *>(st.get());
        const std::vector<char> bytes(at, at + st->bytes);
        auto run = [&](const rsmpl::HqKernels *set) {
          std::vector<char> copy(bytes);
          auto *state = reinterpret_cast<RSMPL_HqState *>(copy.data());
          std::vector<int16_t> y(size_t{ready} * ch);
          EXPECT_EQ(set->produce(state, y.data(), 7), 7u);
          EXPECT_EQ(set->produce(state, y.data() + 7 * ch, ready - 7), ready - 7);
          return y;
        };
        const auto want = run(rsmpl::kernel_set(rsmpl::kIsaScalar)->hq);
        for (const auto *set : test_support::runnable_sets())
          EXPECT_EQ(run(set->hq), want) << set->name << " " << r[0] << "->" << r[1] << " at " << r[2]
                                    << "/" << r[3] << ", " << ch << " ch, sign " << sign << " fill "
                                    << fill;
      }
}

}  // namespace
