// SPDX-License-Identifier: MIT
// The rule behind the 32-bit high-quality resampler's prototype table, in
// double precision. The generator prints the table from it, and a test
// rebuilds it to prove the committed source still matches the rule.
//
// The prototype is a Kaiser-windowed sinc with its cutoff at 0.4925 of the
// lower rate, reaching 48 lower-rate samples a side: half again the 16-bit
// resampler's 32, so that 24-bit material keeps its 24 bits. Beta 16.4 with
// the cutoff a little below half puts the stopband 157 dB down from 0.55 of
// the lower rate and keeps the passband within 0.003 dB to 0.45 of it.
//
// The table holds 128 entries per lower-rate sample: set-up interpolates it
// with four-point Lagrange weights in Q30, which reproduces the prototype
// within about -170 dB, below the coefficients' own Q30 rounding.
#ifndef SKELDA_TOOLS_HQ32_TABLE_RULE_H
#define SKELDA_TOOLS_HQ32_TABLE_RULE_H

#include <cmath>
#include <cstdint>

#include "tools/sinc_table_rule.h"

namespace hq32_rule {

constexpr int kHalf = 48;          // half-length in lower-rate samples
constexpr int kOversample = 128;   // table entries per lower-rate sample
constexpr double kBeta = 16.4;     // Kaiser window parameter
constexpr double kCutoff = 0.4925; // of the lower rate

// One side, centre included, plus one zero past the end so that the
// four-point interpolation never reads outside.
constexpr int kEntries = kHalf * kOversample + 2;

// The prototype at t lower-rate samples from its centre: unit gain at DC
// when sampled once per lower-rate sample.
inline double Value(double t) {
  t = std::fabs(t);
  if (t >= kHalf) return 0.0;
  const double x = 2.0 * kCutoff * t;
  const double sinc = x == 0.0 ? 1.0 : std::sin(M_PI * x) / (M_PI * x);
  const double r = t / kHalf;
  return 2.0 * kCutoff * sinc * sinc_rule::BesselI0(kBeta * std::sqrt(1.0 - r * r)) /
         sinc_rule::BesselI0(kBeta);
}

// Q30, rounded to nearest.
inline int32_t Entry(int i) {
  return static_cast<int32_t>(std::llround(1073741824.0 * Value(static_cast<double>(i) / kOversample)));
}

}  // namespace hq32_rule

#endif
