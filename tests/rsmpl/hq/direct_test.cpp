// SPDX-License-Identifier: MIT
// The 16-bit grade's single stage: which rates take it (each rule at its
// edge and one past), its rows against the kernel they sample and the
// bounds that keep its 16-bit sums inside 32 bits, and every build's inner
// products, way in and passes against the plain build's, exact and on the
// grid, with samples at full scale.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "rsmpl/cpu.h"
#include "rsmpl/hq/direct.h"
#include "tests/support/kernel_sets.h"
#include "tools/hq_table_rule.h"

namespace {

using rsmpl::HqDirectDesign;
using rsmpl::HqDirectKernels;

const HqDirectKernels &plain() { return *rsmpl::kernel_set(rsmpl::kIsaScalar)->hq_direct; }

// A row's taps as whole numbers, Q21.
std::vector<int64_t> taps_of(const HqDirectDesign &d, uint64_t r, uint64_t den) {
  std::vector<uint8_t> row(rsmpl::hq_direct_row_bytes(d.taps));
  rsmpl::hq_direct_row(d, r, den, row.data());
  std::vector<int64_t> c(d.taps);
  for (uint32_t k = 0; k < d.taps; ++k) {
    int16_t hi;
    std::memcpy(&hi, row.data() + 2 * k, 2);
    c[k] = int64_t{hi} * 128 + row[2 * size_t{d.taps} + k];
    EXPECT_LT(row[2 * size_t{d.taps} + k], 128);
  }
  return c;
}

TEST(HqDirect, TakesRatesUpToThreeApartAndDownWhereItsRowsFit) {
  const struct {
    uint32_t in, out;
    bool fits;
    uint32_t taps;
  } rows[] = {
      {16000, 48000, true, 64},  {16000, 48001, false, 0},  // up: three apart, one past
      {48000, 48000, true, 64},  {44100, 48000, true, 64},   //
      {48000, 42667, true, 72},  {48000, 42666, false, 0},  // down: 72 taps, 80
      {48000, 44100, true, 72},  {48000, 24000, true, 128},  // whole ratios down
      {48000, 16000, true, 192}, {48000, 23999, false, 0},   //
      {48000, 12000, false, 0},  {4000, 12000, true, 64},     //
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(::testing::Message() << r.in << " -> " << r.out);
    ASSERT_EQ(rsmpl::hq_direct_fits(r.in, r.out), r.fits);
    if (!r.fits) continue;
    const HqDirectDesign d = rsmpl::hq_direct_design(r.in, r.out);
    EXPECT_EQ(d.taps, r.taps);
    // The row area within its budget, and the grid's rows inside it.
    EXPECT_LE(uint64_t{d.rows_cap} * rsmpl::hq_direct_row_bytes(d.taps), rsmpl::kHqDirectRowBytes);
    EXPECT_GT(uint64_t{d.rows_cap + 1} * rsmpl::hq_direct_row_bytes(d.taps), rsmpl::kHqDirectRowBytes);
    EXPECT_LE((1u << d.grid_bits) + 1, d.rows_cap);
    EXPECT_GT((2u << d.grid_bits) + 1, d.rows_cap);
  }
  // The rows of alsa-lib's 1024-frame periods fit at 44100 <-> 48000.
  EXPECT_GE(rsmpl::hq_direct_design(44100, 48000).rows_cap, 1024u);
  EXPECT_GE(rsmpl::hq_direct_design(48000, 44100).rows_cap, 1024u);
}

// Every row: DC exactly unity, hi within 2^14 and the magnitudes below 3 (so
// that the 16-bit sums stay inside 32 bits for any input), and each tap
// within a few 2^-21 of the kernel it samples (stretched going down),
// scaled to unit sum.
TEST(HqDirect, RowsSampleTheKernelAndKeepTheirSumsIn32Bits) {
  const hq_rule::Kernel &rule = hq_rule::kDirect16;
  for (const auto &p : {std::pair<uint32_t, uint32_t>{44100, 48000}, {16000, 48000}, {48000, 44100}, {48000, 16000},
                        {44100, 22050}, {48000, 42667}}) {
    const HqDirectDesign d = rsmpl::hq_direct_design(p.first, p.second);
    const double stretch = p.second < p.first ? double(p.second) / p.first : 1.0;
    double worst = 0, most = 0;
    for (const auto &f : {std::pair<uint64_t, uint64_t>{0, 1}, {1, 2}, {1, 3}, {7, 160}, {1023, 1024}, {1, 1}, {5, 7}}) {
      const std::vector<int64_t> c = taps_of(d, f.first, f.second);
      std::vector<double> want(d.taps);
      double total = 0;
      for (uint32_t k = 0; k < d.taps; ++k) {
        const double dist = k - d.taps / 2.0 + 1 - double(f.first) / f.second;
        want[k] = hq_rule::KernelValue(rule, rule.taps / 2.0 + stretch * dist);
        total += want[k];
      }
      int64_t sum = 0, magnitude = 0;
      for (uint32_t k = 0; k < d.taps; ++k) {
        sum += c[k];
        magnitude += std::llabs(c[k]);
        EXPECT_LE(std::llabs(c[k] >> 7), 1 << 14);
        worst = std::max(worst, std::fabs(c[k] / 2097152.0 - want[k] / total));
      }
      EXPECT_EQ(sum, 1 << 21) << p.first << " -> " << p.second << " at " << f.first << "/" << f.second;
      most = std::max(most, magnitude / 2097152.0);
    }
    EXPECT_LT(worst, 4.0 / (1 << 21)) << p.first << " -> " << p.second;
    EXPECT_LT(most, 3.0) << p.first << " -> " << p.second;
  }
  // At a whole position the row is symmetric about its centre tap, T/2 - 1
  // (linear phase, the delay T/2), going up and stretched going down.
  for (const auto &p : {std::pair<uint32_t, uint32_t>{48000, 48000}, {48000, 16000}}) {
    const HqDirectDesign d = rsmpl::hq_direct_design(p.first, p.second);
    const std::vector<int64_t> c = taps_of(d, 0, 1);
    const uint32_t centre = d.taps / 2 - 1;
    for (uint32_t k = 1; k < centre; ++k) EXPECT_EQ(c[centre - k], c[centre + k]) << p.second << ": " << k;
    EXPECT_EQ(c[d.taps - 1], 0);
  }
}

// Samples of one of four kinds: random, all at the top, all at the bottom,
// alternating ends (the largest sums a row can meet).
std::vector<int16_t> samples(size_t n, int kind, std::mt19937 &rng) {
  std::vector<int16_t> x(n);
  for (size_t i = 0; i < n; ++i)
    x[i] = kind == 0 ? static_cast<int16_t>(rng()) : kind == 1 ? 32767 : kind == 2 ? -32768 : (i % 2 ? 32767 : -32768);
  return x;
}

TEST(HqDirect, InnerProductsAndTheWayInMatchThePlainBuild) {
  std::mt19937 rng(11);
  for (const auto *set : test_support::runnable_sets()) {
    SCOPED_TRACE(set->name);
    const HqDirectKernels &k = *set->hq_direct;
    for (const auto &p : {std::pair<uint32_t, uint32_t>{44100, 48000}, {48000, 44100}, {48000, 16000}, {44100, 22050}}) {
      const HqDirectDesign d = rsmpl::hq_direct_design(p.first, p.second);
      std::vector<uint8_t> row(rsmpl::hq_direct_row_bytes(d.taps));
      for (int kind = 0; kind < 4; ++kind)
        for (uint32_t rows : {1u, 2u, 3u, 5u}) {
          rsmpl::hq_direct_row(d, rng() % 997, 997, row.data());
          // Alternating rows flip each tap's sign where the sample does, so
          // the sums reach their bound.
          if (kind == 3)
            for (uint32_t t = 0; t < d.taps; ++t) {
              int16_t hi;
              std::memcpy(&hi, row.data() + 2 * t, 2);
              if ((hi < 0) != (t % 2 == 0)) hi = static_cast<int16_t>(-hi - 1);
              std::memcpy(row.data() + 2 * t, &hi, 2);
            }
          const size_t stride = d.taps + 5;
          const auto x = samples(stride * rows, kind, rng);
          std::vector<int32_t> want(rows * 3), got(rows * 3, 77);
          plain().dots(x.data(), stride, rows, row.data(), d.taps, want.data(), 3);
          k.dots(x.data(), stride, rows, row.data(), d.taps, got.data(), 3);
          for (uint32_t r = 0; r < rows; ++r) EXPECT_EQ(got[3 * r], want[3 * r]) << d.taps << " taps, row " << r;
        }
    }
    for (uint32_t channels : {1u, 2u, 3u})
      for (uint32_t frames : {0u, 1u, 15u, 16u, 17u, 33u}) {
        const auto src = samples(size_t{frames} * channels, 0, rng);
        std::vector<std::vector<int16_t>> want(channels, std::vector<int16_t>(frames + 2, 5)), got = want;
        std::vector<int16_t *> w, g;
        for (uint32_t c = 0; c < channels; ++c) {
          w.push_back(want[c].data());
          g.push_back(got[c].data());
        }
        plain().take(src.data(), channels, frames, w.data());
        k.take(src.data(), channels, frames, g.data());
        EXPECT_EQ(got, want) << channels << " channels, " << frames << " frames";
      }
  }
}

// Whole passes: exact rows and the grid's, positions on and off a frame,
// a room that stops the pass and a window that does; every build makes the
// same outputs and leaves the same positions.
TEST(HqDirect, PassesMatchThePlainBuild) {
  std::mt19937 rng(12);
  for (const auto *set : test_support::runnable_sets()) {
    SCOPED_TRACE(set->name);
    // Steps (input frames per output) of every kind: on the grid, and exact
    // ones of large terms and of small (the lane kernels' 2/3, 1/3, 1/2, 2,
    // and 3, which they leave).
    const std::pair<uint64_t, uint64_t> steps[] = {{0, 0}, {160 + rng() % 300, 147}, {2, 3}, {1, 3}, {1, 2}, {2, 1}, {3, 1}};
    for (const auto &p : {std::pair<uint32_t, uint32_t>{44100, 48000}, {48000, 44100}, {48000, 16000}})
      for (const auto &st : steps)
        for (uint32_t channels : {1u, 2u, 3u}) {
          const HqDirectDesign d = rsmpl::hq_direct_design(p.first, p.second);
          const uint32_t exact = st.second != 0 ? 1 : 0;
          const uint64_t den = exact ? st.second : uint64_t{1} << 32;
          const rsmpl::HqStep step = exact ? rsmpl::hq_step_exact(st.first, den) : rsmpl::hq_step_fixed(1, uint64_t{rng()} << 32);
          const size_t stride = d.taps + 600;
          const auto x = samples(stride * channels, 0, rng);
          // On the grid of 1/den for exact rows (r / den exactly), anywhere
          // for the grid's.
          rsmpl::HqPos start{static_cast<int64_t>(d.taps + rng() % 8), static_cast<uint32_t>(rng()), 0};
          if (exact) {
            const uint64_t scaled = (rng() % den) << 32;
            start.f = static_cast<uint32_t>(scaled / den);
            start.e = static_cast<uint32_t>(scaled % den);
          }
          // The window's end or the room stops the pass, at any point: every
          // end over a stretch of the line (so that the lane kernels' blocks
          // meet it at each of their alignments), rooms large and small.
          int64_t end = 0;
          uint32_t room = 0;
          auto run = [&](const HqDirectKernels &k, std::vector<int32_t> &y, rsmpl::HqPos &pos, rsmpl::HqPos &last) {
            std::vector<uint8_t> rows(size_t{d.rows_cap} * rsmpl::hq_direct_row_bytes(d.taps));
            std::vector<uint32_t> made((d.rows_cap + 31) / 32, 0);
            std::vector<int32_t> scratch(2 * channels);
            rsmpl::HqDirectJob job{};
            job.x = x.data();
            job.xstride = stride;
            job.channels = channels;
            job.room = room;
            job.base = 0;
            job.end = end;
            job.pos = start;
            job.step = step;
            job.design = &d;
            job.rows = rows.data();
            job.made = made.data();
            job.exact = exact;
            job.y = y.data();
            job.ystride = 1024;
            job.scratch = scratch.data();
            const uint32_t n = k.pass(&job);
            pos = job.pos;
            last = job.last;
            return n;
          };
          const int64_t first_end = d.taps + 40 + rng() % 400;
          for (end = first_end; end < first_end + 56; ++end) {
            room = end % 3 ? 1000 : 1 + rng() % 200;
            std::vector<int32_t> want(1024 * channels), got(1024 * channels);
            rsmpl::HqPos wp, wl, gp, gl;
            const uint32_t wn = run(plain(), want, wp, wl), gn = run(*set->hq_direct, got, gp, gl);
            ASSERT_GT(wn, 0u);
            EXPECT_EQ(gn, wn);
            EXPECT_EQ(got, want) << p.first << " -> " << p.second << " step " << st.first << "/" << st.second;
            EXPECT_TRUE(gp.i == wp.i && gp.f == wp.f && gp.e == wp.e && gl.i == wl.i && gl.f == wl.f);
          }
        }
  }
}

}  // namespace
