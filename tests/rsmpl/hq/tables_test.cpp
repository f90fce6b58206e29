// SPDX-License-Identifier: MIT
// The high-quality resampler's filters: the committed tables against the
// rule that generates them, each design's response against what its grade
// promises (stopbands, passband flatness, unit gain), the kernel's
// interpolation between table phases against the kernel itself, and the
// bounds that keep every sum inside 63 bits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "rsmpl/hq/designs.h"
#include "tools/hq_table_rule.h"

namespace {

// A half-band from its folded taps, at the interpolating gain: centre 1,
// side tap at odd distance 2j + 1 = taps[half - 1 - j] / 2^30; its response
// at f cycles per high-rate sample, normalised to 1 at DC.
double halfband_response(const rsmpl::HqHalfband &h, double f) {
  double r = 1.0;
  for (uint32_t j = 0; j < h.half; ++j) r += 2.0 * h.taps[h.half - 1 - j] / 1073741824.0 * std::cos(2 * M_PI * f * (2 * j + 1));
  return r / 2.0;
}

TEST(HqTables, MatchTheGeneratorRule) {
  for (int g = 0; g < 2; ++g) {
    const hq_rule::Grade &rule = hq_rule::kGrades[g];
    const rsmpl::HqGrade &grade = rsmpl::kHqGrades[g];
    auto same = [](const rsmpl::HqHalfband &h, const hq_rule::Halfband &r) {
      const std::vector<int32_t> taps = hq_rule::HalfbandTaps(r);
      return h.half == static_cast<uint32_t>(r.half) && std::equal(taps.begin(), taps.end(), h.taps);
    };
    EXPECT_TRUE(same(grade.sharp, rule.sharp)) << rule.name;
    for (int r = 0; r < 3; ++r) EXPECT_TRUE(same(grade.relaxed[r], rule.relaxed[r])) << rule.name << " relaxed " << r;
    const std::vector<int32_t> table = hq_rule::KernelTable(rule.kernel);
    ASSERT_EQ(grade.kernel.taps, static_cast<uint32_t>(rule.kernel.taps));
    ASSERT_EQ(1 << grade.kernel.phase_bits, rule.kernel.phases);
    EXPECT_TRUE(std::equal(table.begin(), table.end(), grade.kernel.table)) << rule.name;
  }
}

// Every half-band: the folded taps pass DC exactly, reject from its edge
// what its grade promises, and keep the passband its stage needs flat.
TEST(HqTables, HalfBandsMeetTheirGradesPromise) {
  for (int g = 0; g < 2; ++g) {
    const rsmpl::HqGrade &grade = rsmpl::kHqGrades[g];
    const double promised = hq_rule::kPromisedDb[g];
    const struct {
      const rsmpl::HqHalfband *h;
      double stop;
    } bands[] = {{&grade.sharp, hq_rule::kSharpStop},
                 {&grade.relaxed[0], hq_rule::kRelaxedStop[0]},
                 {&grade.relaxed[1], hq_rule::kRelaxedStop[1]},
                 {&grade.relaxed[2], hq_rule::kRelaxedStop[2]}};
    for (const auto &b : bands) {
      SCOPED_TRACE(::testing::Message() << "grade " << g << ", half " << b.h->half);
      int64_t sum = 0, magnitude = 0;
      for (uint32_t d = 0; d < b.h->half; ++d) {
        sum += b.h->taps[d];
        magnitude += std::llabs(b.h->taps[d]);
      }
      EXPECT_EQ(sum, int64_t{1} << 29);
      // Pairs of samples sum to at most 2^31; so then do the branch's sums.
      EXPECT_LT(magnitude * (int64_t{1} << 31), INT64_MAX / 2);
      double worst = 0, ripple = 0;
      for (int i = 0; i <= 4000; ++i) {
        const double f = b.stop + (0.5 - b.stop) * i / 4000;
        worst = std::max(worst, std::fabs(halfband_response(*b.h, f)));
      }
      // The passband the half-band keeps: up to its mirror of the stopband.
      for (int i = 0; i <= 1000; ++i) ripple = std::max(ripple, std::fabs(halfband_response(*b.h, (0.5 - b.stop) * i / 1000) - 1));
      EXPECT_GE(-20 * std::log10(worst), promised);
      EXPECT_LT(ripple, std::pow(10.0, -promised / 20));
    }
  }
}

// The kernel: every table phase sums to 2^30; the quadratic between table
// phases lands within 2^-18 of the kernel at any point (a few Q30 steps);
// the response of the kernel sampled finely is flat to 0.225 and rejects
// from 0.725 (on to beyond 3 units) what the grade promises; and its taps' magnitudes keep the
// inner products inside 63 bits.
TEST(HqTables, TheKernelAndItsInterpolationMeetTheGradesPromise) {
  for (int g = 0; g < 2; ++g) {
    SCOPED_TRACE(::testing::Message() << "grade " << g);
    const rsmpl::HqKernel &k = rsmpl::kHqGrades[g].kernel;
    const hq_rule::Kernel &rule = hq_rule::kGrades[g].kernel;
    const uint32_t phases = 1u << k.phase_bits;
    double worst_error = 0;
    for (uint32_t q = 0; q <= phases; ++q) {
      const int32_t *c0 = k.table + size_t{q} * 3 * k.taps, *d1 = c0 + k.taps, *d2 = d1 + k.taps;
      int64_t sum = 0, magnitude = 0;
      for (uint32_t i = 0; i < k.taps; ++i) {
        sum += c0[i];
        magnitude += std::llabs(c0[i]);
      }
      if (q < phases) EXPECT_EQ(sum, int64_t{1} << 30) << "phase " << q;
      EXPECT_LT(magnitude * (int64_t{1} << 30), INT64_MAX / 4) << "phase " << q;
      for (double t : {0.125, 0.5, 0.875}) {
        const double w = t, w2 = t * (t - 1) / 2;
        for (uint32_t i = 0; i < k.taps; ++i) {
          const double got = (c0[i] + d1[i] * w + d2[i] * w2) / 1073741824.0;
          const double want = hq_rule::KernelValue(rule, i + (q + t) / phases);
          worst_error = std::max(worst_error, std::fabs(got - want));
        }
      }
    }
    EXPECT_LT(worst_error, 1.0 / (1 << 18));
    // The continuous response from the kernel at 64 points a unit.
    auto response = [&](double f) {
      double r = 0;
      for (int i = 0; i <= static_cast<int>(k.taps) * 64; ++i)
        r += hq_rule::KernelValue(rule, i / 64.0) * std::cos(2 * M_PI * f * (i / 64.0 - k.taps / 2.0)) / 64.0;
      return r;
    };
    double worst = 0, ripple = 0;
    for (int i = 0; i <= 600; ++i) worst = std::max(worst, std::fabs(response(hq_rule::kKernelStop + 2.5 * i / 600)));
    for (int i = 0; i <= 100; ++i) ripple = std::max(ripple, std::fabs(response(hq_rule::kKernelPass * i / 100) - 1));
    EXPECT_GE(-20 * std::log10(worst), hq_rule::kPromisedDb[g]);
    // Flat within 0.0005 dB (grade 16) and 0.000005 dB (grade 24): a fixed
    // response, well inside the passband's promise.
    EXPECT_LT(ripple, 20 * std::pow(10.0, -hq_rule::kPromisedDb[g] / 20));
  }
}

}  // namespace

// The 16-bit grade's single-stage kernel: the committed table is the
// rule's, and the kernel keeps 0.45 of the lower rate flat and rejects from
// 0.55 what the rule promises.
TEST(HqTables, TheSingleStageKernelMeetsItsPromise) {
  const std::vector<int32_t> table = hq_rule::DirectTable();
  const rsmpl::HqDirectTable &k = rsmpl::kHqDirect16;
  ASSERT_EQ(k.half * k.oversample + 2, table.size());
  EXPECT_TRUE(std::equal(table.begin(), table.end(), k.table));
  EXPECT_EQ(k.table[k.half * k.oversample], 0);
  auto response = [&](double f) {
    double r = k.table[0];
    for (uint32_t i = 1; i <= k.half * k.oversample; ++i) r += 2.0 * k.table[i] * std::cos(2 * M_PI * f * i / k.oversample);
    return r / k.oversample / 1073741824.0;
  };
  double ripple = 0, stop = 0;
  for (int i = 0; i <= 450; ++i) ripple = std::max(ripple, std::fabs(response(hq_rule::kDirectPass * i / 450) - 1));
  for (int i = 0; i <= 2000; ++i) stop = std::max(stop, std::fabs(response(hq_rule::kDirectStop + 1.5 * i / 2000)));
  EXPECT_LT(ripple, 3e-4);  // 0.0026 dB
  EXPECT_GE(-20 * std::log10(stop), hq_rule::kDirectPromisedDb);
}
