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

// Tap b's place in a small ratio's design, counted back from the newest of
// its A active taps: tap pair (b mod 2M mod M, b div 2M) of each M's G = A /
// 2M groups, first or second of the pair (hq/state.h, hq_build_pairs).
size_t pair_slot(uint32_t b, uint32_t m, uint32_t groups) {
  const uint32_t i = b % (2 * m), g = b / (2 * m);
  return 4 * (size_t{i % m} * groups + g) + (i >= m ? 1 : 0);
}

// A design that folds keeps tap A - b equal to tap b and tap 0 zero: the
// bounded values of each mirrored pair averaged, so that the sums stay
// within the bounds.
void fold(std::vector<int16_t> &v, uint32_t active) {
  v[0] = 0;
  for (uint32_t b = 1; b < active / 2; ++b)
    v[b] = v[active - b] = static_cast<int16_t>((v[b] + v[active - b]) / 2);
}

// A state at ratio L / M with bounded coefficients in every phase (its tap
// pairs for a small ratio's design) and the samples in every line (pair
// rows, each pair's second sample the sample before its first), full; each build's output loop on copies, with room for 7 frames
// (an odd last frame goes alone) and then the rest. A design that folds is
// tried folded, with mirrored coefficients, and unfolded with any.
TEST(HqKernels, OutputLoopsMatchTheScalarBuildAtTheBounds) {
  std::mt19937 rng(32);
  const uint32_t ratios[][4] = {
      {44100, 48000, 160, 147}, {96000, 44100, 147, 320}, {192000, 8000, 1, 24},  // P = L
      {44100, 48000, 1115, 1024}, {192000, 8000, 1001, 24000},                   // P < L
      {24000, 48000, 2, 1}, {32000, 48000, 3, 2}, {48000, 16000, 1, 3}, {48000, 30000, 5, 8},
      {8000, 64000, 8, 1}, {56000, 8000, 1, 7}, {44100, 48000, 8, 7},  // lanes
      {48000, 24000, 1, 2}, {64000, 8000, 1, 8}};                      // folded lanes
  for (const auto &r : ratios)
    for (uint32_t ch : {1u, 2u, 3u})
      for (const auto &[sign, fill] : kModes)
        for (const bool folded : {false, true}) {
          auto st = hq_test::make_state(r[0], r[1], ch, r[2], r[3]);
          ASSERT_TRUE(st);
          if (folded && st->folded == 0) continue;
          st->folded = folded ? 1 : 0;
          const bool lanes = st->direct != 0;
          const uint32_t n = lanes ? st->active : st->taps, phases = lanes ? r[2] : st->phases + 1;
          const uint32_t groups = n / (2 * r[3]);
          int16_t *coef = lanes ? st->pair_coefficients() : st->coefficients();
          std::vector<int16_t> hi(n), lo(n);
          for (uint32_t q = 0; q < phases; ++q, coef += 2 * n) {
            bounded(hi.data(), lo.data(), n, st->lo_shift, sign, rng);
            if (folded) {
              fold(hi, n);
              fold(lo, n);
            }
            for (uint32_t k = 0; k < n; ++k) {  // a pair's (hi, hi, lo, lo), or hi then lo
              coef[lanes ? pair_slot(k, r[3], groups) : k] = hi[k];
              coef[lanes ? pair_slot(k, r[3], groups) + 2 : n + k] = lo[k];
            }
          }
          const auto x =
              hq_test::make_input(fill, ch * (lanes ? st->pair_line_size() : st->line_cap), rng);
          std::copy(x.begin(), x.end(), lanes ? st->pairs(0) : st->line(0));
          // A pair's second sample is the first of the pair before it in
          // its row, as a folded kernel reads it.
          for (uint32_t c = 0; c < ch && lanes; ++c)
            for (uint32_t row = 0; row < r[3]; ++row) {
              int16_t *pairs = st->pairs(c) + 2 * size_t{row} * st->pair_stride;
              for (uint32_t k = 1; k < st->pair_stride; ++k) pairs[2 * k + 1] = pairs[2 * k - 2];
            }
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
                                      << fill << (folded ? ", folded" : "");
        }
}

// Each build's fill of the small ratios' pair rows against the scalar
// build's: a state that already holds `fill` frames takes `take` more,
// from input at an odd sample address or not, for every M and 1 to 5
// channels (pairs of channels and a lone last one); the states must then
// match byte for byte.
TEST(HqKernels, PairRowFillsMatchTheScalarBuild) {
  std::mt19937 rng(21);
  const uint32_t ratios[][2] = {{32000, 48000}, {48000, 16000}, {48000, 30000}, {56000, 8000},
                                {64000, 8000}, {8000, 64000}};
  for (const auto &r : ratios)
    for (uint32_t ch = 1; ch <= 5; ++ch)
      for (const uint32_t fill : {0u, 1u, 7u, 130u})
        for (const uint32_t take : {1u, 3u, 4u, 17u, 64u, 301u})
          for (const uint32_t skew : {0u, 1u}) {
            auto st = hq_test::make_state(r[0], r[1], ch);
            ASSERT_TRUE(st);
            ASSERT_NE(st->direct, 0u);
            if (fill + take > st->line_cap) continue;
            const auto before = hq_test::make_input(hq_test::kRandom, size_t{fill} * ch, rng);
            const auto x = hq_test::make_input(hq_test::kFullScale, (size_t{take} + 1) * ch, rng);
            rsmpl::kernel_set(rsmpl::kIsaScalar)->hq->take_rows(st.get(), before.data(), fill);
            st->fill = fill;
            const char *at = reinterpret_cast<char *>(st.get());
            const std::vector<char> bytes(at, at + st->bytes);
            auto run = [&](const rsmpl::HqKernels *set) {
              std::vector<char> copy(bytes);
              set->take_rows(reinterpret_cast<RSMPL_HqState *>(copy.data()), x.data() + skew, take);
              return copy;
            };
            const auto want = run(rsmpl::kernel_set(rsmpl::kIsaScalar)->hq);
            for (const auto *set : test_support::runnable_sets())
              EXPECT_TRUE(run(set->hq) == want) << set->name << " " << r[0] << "->" << r[1] << ", "
                                                << ch << " ch, fill " << fill << " take " << take
                                                << " skew " << skew;
          }
}

}  // namespace
