// SPDX-License-Identifier: MIT
// Every build's high-quality kernels against the plain build's, on random
// input and at the bounds the stages keep: samples at the clamp (-2^30 and
// 2^30 - 1, so that two of them sum to the ends of int32), every design's
// taps, every table row at weights 0, 1/2 and just below 1, gains at both
// ends of the window, counts that leave every tail length, and the whole
// polyphase passes over positions of every kind. A build that wraps a sum,
// drops a sign, loses a lane or rounds another way shows here.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "rsmpl/cpu.h"
#include "rsmpl/hq/designs.h"
#include "rsmpl/hq/kernels.h"
#include "rsmpl/hq/state.h"
#include "tests/support/kernel_sets.h"

namespace {

using rsmpl::HqKernels;
constexpr int32_t kHigh = (1 << 30) - 1, kLow = -(1 << 30);

// Samples of one of four kinds: random in range, all at the top, all at the
// bottom, alternating ends.
std::vector<int32_t> samples(size_t n, int kind, std::mt19937 &rng) {
  std::vector<int32_t> x(n);
  for (size_t i = 0; i < n; ++i) {
    switch (kind) {
      case 0: x[i] = static_cast<int32_t>(rng() % (1u << 31)) + kLow; break;
      case 1: x[i] = kHigh; break;
      case 2: x[i] = kLow; break;
      default: x[i] = (i / 3) % 2 ? kHigh : kLow; break;
    }
  }
  return x;
}

std::vector<const rsmpl::HqHalfband *> halfbands() {
  std::vector<const rsmpl::HqHalfband *> all;
  for (const auto &g : rsmpl::kHqGrades) {
    all.push_back(&g.sharp);
    for (const auto &r : g.relaxed) all.push_back(&r);
  }
  return all;
}

const HqKernels &plain() { return *rsmpl::kernel_set(rsmpl::kIsaScalar)->hq; }

TEST(HqKernels, HalfBandsMatchThePlainBuild) {
  std::mt19937 rng(7);
  for (const auto *h : halfbands())
    for (int kind = 0; kind < 4; ++kind)
      for (uint32_t n : {1u, 2u, 7u, 8u, 9u, 14u, 17u, 64u}) {
        const uint32_t hist = 2 * h->half - 1;
        const auto x = samples(hist + n + 8, kind, rng), o = samples(n + 8, kind ^ 3, rng);
        std::vector<int32_t> want_up(2 * n), want_down(n);
        plain().half_up(x.data() + hist, h->taps, h->half, want_up.data(), n);
        plain().half_down(x.data() + hist, o.data(), h->taps, h->half, want_down.data(), n);
        for (const auto *set : test_support::runnable_sets()) {
          std::vector<int32_t> up(2 * n + 1, 12345), down(n + 1, 12345);
          set->hq->half_up(x.data() + hist, h->taps, h->half, up.data(), n);
          set->hq->half_down(x.data() + hist, o.data(), h->taps, h->half, down.data(), n);
          EXPECT_EQ(std::vector<int32_t>(up.begin(), up.end() - 1), want_up)
              << set->name << " half " << h->half << " kind " << kind << " n " << n;
          EXPECT_EQ(std::vector<int32_t>(down.begin(), down.end() - 1), want_down)
              << set->name << " half " << h->half << " kind " << kind << " n " << n;
          EXPECT_EQ(up.back(), 12345) << set->name << " wrote past its outputs";
          EXPECT_EQ(down.back(), 12345) << set->name << " wrote past its outputs";
        }
      }
}

TEST(HqKernels, BlendsMatchThePlainBuildOnEveryRow) {
  for (const auto &grade : rsmpl::kHqGrades) {
    const rsmpl::HqKernel &k = grade.kernel;
    const uint32_t phases = 1u << k.phase_bits;
    for (uint32_t q = 0; q <= phases; ++q)
      for (int32_t w : {0, 1, 1 << 30, 0x7fffffff, 123456789})
        for (int32_t gain : {1 << 29, (1 << 29) - 1, 7 << 26, 9 << 26, 1207959552}) {
          const int32_t w2 = static_cast<int32_t>((int64_t{w} * (int64_t{w} - (int64_t{1} << 31))) >> 32);
          const int32_t *rows = k.table + size_t{q} * 3 * k.taps;
          std::vector<int32_t> want(k.taps);
          plain().blend(rows, k.taps, w, w2, gain, want.data());
          for (const auto *set : test_support::runnable_sets()) {
            std::vector<int32_t> got(k.taps);
            set->hq->blend(rows, k.taps, w, w2, gain, got.data());
            ASSERT_EQ(got, want) << set->name << " row " << q << " w " << w << " gain " << gain;
          }
        }
  }
}

// Taps at the largest a row holds (Q30, summing to about 1.3), or all at
// the top for samples of kind 1; divided by `share` where that many rows
// add to one sum, so that sums stay as bounded as the stages keep them.
std::vector<int32_t> kernel_taps(uint32_t taps, int kind, std::mt19937 &rng, uint32_t share = 1) {
  std::vector<int32_t> c(taps);
  for (auto &v : c) v = (static_cast<int32_t>(rng() % (3u << 28)) - (3 << 27)) / static_cast<int32_t>(share);
  if (kind == 1) c.assign(taps, (1 << 30) / static_cast<int32_t>(taps * share) * 2);
  return c;
}

TEST(HqKernels, InnerProductsMatchThePlainBuild) {
  std::mt19937 rng(11);
  for (uint32_t taps : {4u, 16u, 20u, 23u, 24u, 40u})
    for (uint32_t rows : {1u, 2u, 3u, 7u})
      for (int kind = 0; kind < 4; ++kind) {
        const size_t stride = taps + 5;
        const auto x = samples(stride * rows, kind, rng);
        const auto c = kernel_taps(taps, kind, rng);
        std::vector<int32_t> want(rows * 2);
        plain().dots(x.data(), stride, rows, c.data(), taps, want.data(), 2);
        for (const auto *set : test_support::runnable_sets()) {
          std::vector<int32_t> got(rows * 2);
          set->hq->dots(x.data(), stride, rows, c.data(), taps, got.data(), 2);
          EXPECT_EQ(got, want) << set->name << " taps " << taps << " rows " << rows << " kind " << kind;
        }
      }
}

// Sums out as samples: random, the halves where rounding turns, either side
// of each end of the clamp and the most a sum reaches, at counts that leave
// every tail.
TEST(HqKernels, SumsOutMatchThePlainBuild) {
  std::mt19937 rng(23);
  const int64_t unit = int64_t{1} << 30, top = (int64_t{1} << 30) - 1, bottom = -(int64_t{1} << 30);
  const int64_t edges[] = {unit / 2 - 1,      unit / 2,          -unit / 2 - 1,         -unit / 2,
                           top * unit,        top * unit + unit / 2 - 1, top * unit + unit / 2,
                           bottom * unit - unit / 2, bottom * unit - unit / 2 - 1, int64_t{1} << 62,
                           -(int64_t{1} << 62)};
  for (uint32_t n : {1u, 7u, 8u, 9u, 16u, 23u, 64u}) {
    std::vector<int64_t> sums(n);
    for (uint32_t j = 0; j < n; ++j)
      sums[j] = j % 3 == 0 ? edges[rng() % (sizeof edges / sizeof edges[0])]
                           : static_cast<int64_t>((uint64_t{rng()} << 32 | rng())) >> 2;
    std::vector<int32_t> want(n + 1, 12345);
    plain().round_sums(sums.data(), n, want.data());
    for (const auto *set : test_support::runnable_sets()) {
      std::vector<int32_t> got(n + 1, 12345);
      set->hq->round_sums(sums.data(), n, got.data());
      EXPECT_EQ(got, want) << set->name << " n " << n;
    }
  }
}

// Batches of inputs, each with its own taps, whose first sums step by 0 to 9
// from one input to the next (several inputs on one sum; sums a block of
// four or more apart), starting anywhere in a block of four; the sums past
// the last input's stay as they were.
TEST(HqKernels, DepositsMatchThePlainBuild) {
  std::mt19937 rng(19);
  struct Spacing {
    uint32_t least, most;  // sums from one input's first to the next one's
  };
  const Spacing spacings[] = {{0, 0}, {1, 1}, {1, 2}, {0, 3}, {4, 9}};
  int kind = 0;
  for (uint32_t taps : {4u, 16u, 20u, 23u, 24u})
    for (uint32_t rows : {1u, 2u, 3u})
      for (const Spacing &sp : spacings)
        for (uint32_t n : {1u, 5u, 64u})
          for (uint32_t start : {0u, 1u, 3u}) {
            kind = (kind + 1) % 4;
            std::vector<uint32_t> at(n, start);
            for (uint32_t t = 1; t < n; ++t) at[t] = at[t - 1] + sp.least + rng() % (sp.most - sp.least + 1);
            const size_t astride = at[n - 1] + taps + 7, xstride = n + 3;
            const auto x = samples(xstride * rows, kind, rng);
            // The most inputs that reach one sum.
            const uint32_t share = sp.least == 0 ? n : (taps + sp.least - 1) / sp.least;
            std::vector<std::vector<int32_t>> rows_of_taps;
            std::vector<const int32_t *> c;
            for (uint32_t t = 0; t < n; ++t) rows_of_taps.push_back(kernel_taps(taps, kind, rng, share));
            for (const auto &row : rows_of_taps) c.push_back(row.data());
            std::vector<int64_t> acc0(astride * rows);
            for (auto &v : acc0) v = (static_cast<int64_t>(rng()) << 27) - (int64_t{1} << 58);
            std::vector<int64_t> want = acc0;
            plain().deposits(want.data(), astride, rows, x.data(), xstride, c.data(), at.data(), n, taps);
            for (const auto *set : test_support::runnable_sets()) {
              std::vector<int64_t> got = acc0;
              set->hq->deposits(got.data(), astride, rows, x.data(), xstride, c.data(), at.data(), n, taps);
              EXPECT_EQ(got, want) << set->name << " taps " << taps << " rows " << rows << " steps " << sp.least
                                   << ".." << sp.most << " n " << n << " from " << start;
            }
          }
}

// Whole passes of both polyphase stages over positions that start whole,
// just past whole, on a table phase and anywhere, at steps of both kinds.
TEST(HqKernels, PolyphasePassesMatchThePlainBuild) {
  std::mt19937 rng(13);
  const rsmpl::HqPos starts[] = {{40, 0, 0}, {40, 0, 1}, {40, 1u << 24, 0}, {40, 0x9e3779b9, 5}};
  const rsmpl::HqStep steps[] = {rsmpl::hq_step_exact(147 * 2, 160), rsmpl::hq_step_exact(941, 1024),
                                 rsmpl::hq_step_fixed(0, 0xd1b71758e219652cu), rsmpl::hq_step_exact(4, 2)};
  for (const auto &grade : rsmpl::kHqGrades)
    for (const auto &start : starts)
      for (const auto &step : steps)
        for (uint32_t channels : {1u, 2u, 5u}) {
          const size_t stride = 300;
          const auto x = samples(stride * channels, 0, rng);
          std::vector<int32_t> coef(4 * grade.kernel.taps);
          rsmpl::HqPolyJob job{};
          job.x = x.data();
          job.xstride = stride;
          job.channels = channels;
          job.room = 90;
          job.base = 0;
          job.end = 200;
          job.pos = start;
          job.step = step;
          job.kernel = &grade.kernel;
          job.coef = coef.data();
          std::vector<int32_t> want(100 * channels);
          job.y = want.data();
          job.ystride = 100;
          rsmpl::HqPolyJob want_job = job;
          const uint32_t want_made = plain().poly(&want_job);
          rsmpl::HqPolyTJob t{};
          t.x = x.data();
          t.xstride = stride;
          t.channels = channels;
          t.count = 90;
          t.pos = start;
          t.step = step;
          t.gain = 9 << 26;
          t.kernel = &grade.kernel;
          t.coef = coef.data();
          std::vector<int64_t> want_acc(400 * channels);
          t.acc = want_acc.data();
          t.astride = 400;
          t.acc_base = 30;
          t.coef_rows = 4;
          rsmpl::HqPolyTJob want_t = t;
          plain().poly_t(&want_t);
          for (const auto *set : test_support::runnable_sets()) {
            std::vector<int32_t> got(100 * channels);
            rsmpl::HqPolyJob j = job;
            j.y = got.data();
            EXPECT_EQ(set->hq->poly(&j), want_made) << set->name;
            EXPECT_EQ(got, want) << set->name << " channels " << channels;
            EXPECT_EQ(j.pos.i, want_job.pos.i) << set->name;
            EXPECT_EQ(j.pos.f, want_job.pos.f) << set->name;
            // Blended taps a row at a time, four, or a batch of them.
            for (uint32_t coef_rows : {1u, 4u, 64u}) {
              std::vector<int32_t> rows_of_taps(coef_rows * grade.kernel.taps);
              std::vector<int64_t> acc(400 * channels);
              rsmpl::HqPolyTJob jt = t;
              jt.acc = acc.data();
              jt.coef = rows_of_taps.data();
              jt.coef_rows = coef_rows;
              set->hq->poly_t(&jt);
              EXPECT_EQ(acc, want_acc) << set->name << " channels " << channels << " rows of taps " << coef_rows;
            }
          }
        }
}

// The transposed pass through the phase cache for two passes on (the
// second finding some or all of its rows made), against the plain pass that
// blends every input's taps.
TEST(HqKernels, TransposedPassesThroughThePhaseCacheMatchThePlainBuild) {
  std::mt19937 rng(29);
  // Steps that visit every row of their denominator (941 / 1024, 2 / 3,
  // 7 / 4), every other (147 * 2 / 160, 6 / 4) and one (8 / 4).
  const rsmpl::HqStep steps[] = {rsmpl::hq_step_exact(147 * 2, 160), rsmpl::hq_step_exact(941, 1024),
                                 rsmpl::hq_step_exact(2, 3),         rsmpl::hq_step_exact(7, 4),
                                 rsmpl::hq_step_exact(6, 4),         rsmpl::hq_step_exact(8, 4)};
  for (const auto &grade : rsmpl::kHqGrades)
    for (const auto &step : steps)
      for (uint32_t channels : {1u, 2u, 3u}) {
        const size_t stride = 300, astride = 500;
        const auto x = samples(stride * channels, 0, rng);
        std::vector<int32_t> coef(4 * grade.kernel.taps);
        auto run = [&](const HqKernels &k, rsmpl::HqPhaseCache cache, std::vector<int64_t> *acc) {
          rsmpl::HqPolyTJob t{};
          t.x = x.data();
          t.xstride = stride;
          t.channels = channels;
          t.count = 90;
          t.pos = rsmpl::HqPos{40, 0, 0};
          t.step = step;
          t.gain = 9 << 26;
          t.kernel = &grade.kernel;
          t.coef = coef.data();
          t.coef_rows = 4;
          t.acc = acc->data();
          t.astride = astride;
          t.acc_base = 30;
          t.cache = cache;
          k.poly_t(&t);
          t.x += 90;
          k.poly_t(&t);
          return t.pos;
        };
        std::vector<int64_t> want(astride * channels);
        const rsmpl::HqPos want_pos = run(plain(), rsmpl::HqPhaseCache{nullptr, nullptr}, &want);
        for (const auto *set : test_support::runnable_sets()) {
          std::vector<int32_t> rows(rsmpl::kHqCachePhasesMost * grade.kernel.taps);
          std::vector<uint32_t> made(rsmpl::kHqCachePhasesMost / 32);
          std::vector<int64_t> got(astride * channels);
          const rsmpl::HqPos pos = run(*set->hq, rsmpl::HqPhaseCache{rows.data(), made.data()}, &got);
          EXPECT_EQ(got, want) << set->name << " step over " << step.den << " channels " << channels;
          EXPECT_TRUE(pos.i == want_pos.i && pos.f == want_pos.f && pos.e == want_pos.e) << set->name;
        }
      }
}

}  // namespace

namespace {

// The samples' way in, between the lines and out: every build's against the
// plain build's, mono, stereo and more, one and two ways, both formats,
// counts leaving every tail, and samples at both ends of each range.
TEST(HqKernels, FramesInSplitsAndFramesOutMatchThePlainBuild) {
  std::mt19937 rng(17);
  for (uint32_t channels : {1u, 2u, 3u})
    for (uint32_t frames : {1u, 7u, 8u, 9u, 15u, 16u, 17u, 63u})
      for (bool s32 : {false, true}) {
        std::vector<int32_t> in32(frames * channels);
        std::vector<int16_t> in16(frames * channels);
        for (size_t i = 0; i < in32.size(); ++i) {
          in32[i] = i % 5 == 0 ? INT32_MIN : i % 5 == 1 ? INT32_MAX : static_cast<int32_t>(rng());
          in16[i] = static_cast<int16_t>(in32[i] >> 16);
        }
        const void *src = s32 ? static_cast<const void *>(in32.data()) : in16.data();
        for (uint32_t ways : {1u, 2u}) {
          auto run = [&](const HqKernels &k) {
            std::vector<std::vector<int32_t>> lines(channels * ways, std::vector<int32_t>(frames + 1, 7));
            std::vector<int32_t *> to;
            for (auto &l : lines) to.push_back(l.data());
            k.take(src, s32, channels, frames, ways, to.data());
            return lines;
          };
          const auto want = run(plain());
          for (const auto *set : test_support::runnable_sets())
            EXPECT_EQ(run(*set->hq), want) << set->name << " take " << channels << "ch " << frames << " ways " << ways;
        }
        // Out: the lines' range and a little beyond, through both formats.
        std::vector<std::vector<int32_t>> lines(channels, std::vector<int32_t>(frames));
        std::vector<const int32_t *> from;
        for (auto &l : lines) {
          for (auto &v : l) v = static_cast<int32_t>(rng() % (1u << 31)) - (1 << 30);
          l[0] = (1 << 30) - 1;
          if (frames > 1) l[1] = -(1 << 30);
          from.push_back(l.data());
        }
        std::vector<uint8_t> want(frames * channels * 4 + 8, 0x5a), got = want;
        plain().give(from.data(), channels, frames, s32, want.data());
        for (const auto *set : test_support::runnable_sets()) {
          std::fill(got.begin(), got.end(), 0x5a);
          set->hq->give(from.data(), channels, frames, s32, got.data());
          EXPECT_EQ(got, want) << set->name << " give " << channels << "ch " << frames << (s32 ? " S32" : " S16");
        }
      }
  for (uint32_t n : {0u, 1u, 2u, 15u, 16u, 17u, 33u, 100u}) {
    std::vector<int32_t> y(n);
    for (auto &v : y) v = static_cast<int32_t>(rng());
    std::vector<int32_t> even_want(n / 2 + 2, 3), odd_want = even_want;
    plain().split(y.data(), n, even_want.data(), odd_want.data());
    for (const auto *set : test_support::runnable_sets()) {
      std::vector<int32_t> even(n / 2 + 2, 3), odd = even;
      set->hq->split(y.data(), n, even.data(), odd.data());
      EXPECT_TRUE(even == even_want && odd == odd_want) << set->name << " split " << n;
    }
  }
}

}  // namespace
