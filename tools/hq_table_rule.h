// SPDX-License-Identifier: MIT
// The rule behind the high-quality resampler's filter tables, in double
// precision. The generator prints the tables from it, and a test rebuilds
// them to prove the committed source still matches the rule.
//
// A stream runs through a chain of stages (rsmpl/hq/plan.cpp): half-band
// stages by two and one polyphase stage for the fraction. Each of the two
// grades (16-bit material, about 110 dB; 24-bit material, about 150 dB) has
// its own set of designs, all Kaiser-windowed sincs:
//
// - the sharp half-band, run at twice the lower rate: passband to 0.225 and
//   stopband from 0.275 of its rate (0.45 and 0.55 of the lower rate);
// - three relaxed half-bands for the stages further from the lower rate,
//   with stopbands from 0.3625, 0.43125 and 0.4656 of their rate (the
//   passband they must keep is at most 0.1125, 0.05625, 0.028 of it);
// - the polyphase kernel, a continuous impulse response over `taps` units of
//   its slower side's samples, passband to 0.225 and stopband from 0.725
//   cycles per unit, held at `phases` phases per unit and interpolated
//   between them quadratically.
//
// Half-band designs are given by `half`, the side taps a half-band has at
// odd distances 1, 3, ..., 2 half - 1 high-rate samples from its centre, and
// the Kaiser window's beta; the window reaches 2 half samples either way.
#ifndef SKELDA_TOOLS_HQ_TABLE_RULE_H
#define SKELDA_TOOLS_HQ_TABLE_RULE_H

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include <vector>

#include "tools/sinc_table_rule.h"

namespace hq_rule {

using sinc_rule::BesselI0;

struct Halfband {
  int half;
  double beta;
};

struct Kernel {
  int taps;       // units of the slower side the response spans
  int phases;     // table phases per unit
  double cutoff;  // cycles per unit, where the sinc's response is one half
  double beta;
};

struct Grade {
  const char *name;
  Halfband sharp;
  Halfband relaxed[3];
  Kernel kernel;
};

// The 16-bit grade's single stage, for rates at most three apart: one
// polyphase kernel between the rates themselves, over 64 units of the lower
// rate, cutoff 0.4975 of it and beta 10.4, so that it keeps 0.45 of the
// lower rate flat within 0.0021 dB and is 103.3 dB down from 0.55 (an
// image of a tone at 0.45 lands there). The stage makes its taps as a
// stream needs them (rsmpl/hq/direct.cpp), stretched to the input's units
// going down, by four-point Lagrange interpolation in a table of one side
// of the kernel, 64 entries a unit.
constexpr Kernel kDirect16 = {64, 64, 0.4975, 10.4};
constexpr double kDirectPass = 0.45, kDirectStop = 0.55, kDirectPromisedDb = 103.0;

constexpr Grade kGrades[2] = {
    {"16", {39, 12.2}, {{9, 12.6}, {6, 13.6}, {5, 13.4}}, {16, 64, 0.47, 12.75}},
    {"24", {53, 16.6}, {{13, 18.3}, {8, 18.2}, {7, 18.6}}, {24, 256, 0.47, 19.25}},
};

// Band edges the designs are held to (cycles per high-rate sample for the
// half-bands, cycles per unit for the kernel), and the attenuation each
// grade promises there.
constexpr double kSharpStop = 0.275;
constexpr double kRelaxedStop[3] = {0.3625, 0.43125, 0.4656};
constexpr double kKernelPass = 0.225, kKernelStop = 0.725;
constexpr double kPromisedDb[2] = {110.0, 150.0};

constexpr double kQ30 = 1073741824.0;

inline double Kaiser(double r, double beta) {
  if (std::fabs(r) >= 1.0) return 0.0;
  return BesselI0(beta * std::sqrt(1.0 - r * r)) / BesselI0(beta);
}

// The half-band's side tap at odd distance 2j + 1, at the gain of the
// interpolating half-band (centre 1).
inline double SideTap(const Halfband &h, int j) {
  const double t = 2.0 * j + 1.0;
  return std::sin(M_PI * t / 2.0) / (M_PI * t / 2.0) * Kaiser(t / (2.0 * h.half), h.beta);
}

// The folded taps g[d], d = 0..half - 1, in Q30: g[d] weighs the sample
// pair d samples from either end of the 2 half samples an output of the
// filtering branch reads. Rounded to nearest, then the innermost tap
// corrected so that the pairs sum to exactly 2^29 (the branch passes DC at
// unit gain).
inline std::vector<int32_t> HalfbandTaps(const Halfband &h) {
  std::vector<int64_t> g(h.half);
  int64_t sum = 0;
  for (int d = 0; d < h.half; ++d) {
    g[d] = std::llround(kQ30 * SideTap(h, h.half - 1 - d));
    sum += g[d];
  }
  g[h.half - 1] += (int64_t{1} << 29) - sum;
  return std::vector<int32_t>(g.begin(), g.end());
}

// The kernel's continuous response at tau units, centred on taps / 2.
inline double KernelValue(const Kernel &k, double tau) {
  const double t = tau - k.taps / 2.0;
  const double x = 2.0 * k.cutoff * t;
  const double sinc = x == 0.0 ? 1.0 : std::sin(M_PI * x) / (M_PI * x);
  return 2.0 * k.cutoff * sinc * Kaiser(t / (k.taps / 2.0), k.beta);
}

// Row q of the kernel: taps h(i + q / phases), i = 0..taps - 1, in Q30,
// corrected at its largest tap to sum to exactly 2^30.
inline std::vector<int64_t> KernelRow(const Kernel &k, int q) {
  std::vector<int64_t> row(k.taps);
  int64_t sum = 0;
  int peak = 0;
  for (int i = 0; i < k.taps; ++i) {
    row[i] = std::llround(kQ30 * KernelValue(k, i + static_cast<double>(q) / k.phases));
    sum += row[i];
    if (std::llabs(row[i]) > std::llabs(row[peak])) peak = i;
  }
  row[peak] += (int64_t{1} << 30) - sum;
  return row;
}

// The table the engine interpolates: for every base phase q = 0..phases,
// three rows of `taps`: the row itself, its first forward difference and
// its second (rows q, q + 1 and q + 2 give the quadratic through them).
inline std::vector<int32_t> KernelTable(const Kernel &k) {
  std::vector<int32_t> table;
  table.reserve(static_cast<size_t>(k.phases + 1) * 3 * k.taps);
  std::vector<int64_t> r0 = KernelRow(k, 0), r1 = KernelRow(k, 1);
  for (int q = 0; q <= k.phases; ++q) {
    const std::vector<int64_t> r2 = KernelRow(k, q + 2);
    for (int i = 0; i < k.taps; ++i) table.push_back(static_cast<int32_t>(r0[i]));
    for (int i = 0; i < k.taps; ++i) table.push_back(static_cast<int32_t>(r1[i] - r0[i]));
    for (int i = 0; i < k.taps; ++i) table.push_back(static_cast<int32_t>(r2[i] - 2 * r1[i] + r0[i]));
    r0 = r1;
    r1 = r2;
  }
  return table;
}

// The table: h(i / 64), i = 0..32 * 64 + 1 (centre first, a zero past the
// end), Q30.
inline std::vector<int32_t> DirectTable() {
  std::vector<int32_t> t;
  const int entries = kDirect16.taps / 2 * kDirect16.phases + 2;
  for (int i = 0; i < entries; ++i)
    t.push_back(static_cast<int32_t>(std::llround(kQ30 * KernelValue(kDirect16, kDirect16.taps / 2.0 + static_cast<double>(i) / kDirect16.phases))));
  return t;
}

}  // namespace hq_rule

#endif
