// SPDX-License-Identifier: MIT
// The rule behind the sinc interpolator's constant tables, in double
// precision. The generator prints the tables from it, and a test rebuilds
// them to prove the committed source still matches the rule.
#ifndef SKELDA_TOOLS_SINC_TABLE_RULE_H
#define SKELDA_TOOLS_SINC_TABLE_RULE_H

#include <cmath>
#include <cstdint>

namespace sinc_rule {

constexpr int kEntries = 1792;        // 14 input samples at 128 entries each
constexpr int kNonZeroEntries = 1664;  // the prototype spans 13 samples a side
constexpr int kShiftEntries = 256;
constexpr double kKaiserBeta = 10.0;
constexpr double kWindowHalfWidth = 1663.0;
// The cutoff is a single-precision constant; promoting it keeps entry 0
// at exactly 0.88f in Q31 (1889785600).
constexpr double kCutoff = static_cast<double>(0.88f);

// Zero-order modified Bessel function of the first kind, by its power
// series; the terms fall fast enough for beta = 10.
inline double BesselI0(double x) {
  const double quarterSquare = x * x / 4.0;
  double term = 1.0;
  double sum = 1.0;
  for (int k = 1; k < 200 && term > 1e-21 * sum; ++k) {
    term *= quarterSquare / (static_cast<double>(k) * k);
    sum += term;
  }
  return sum;
}

// The prototype at `entry` table steps (1/128 input sample) from its centre.
inline double Prototype(double entry) {
  if (entry < 0.0) entry = -entry;
  if (entry > kWindowHalfWidth) return 0.0;
  const double x = kCutoff * entry / 128.0;
  const double sinc = x == 0.0 ? 1.0 : std::sin(M_PI * x) / (M_PI * x);
  const double r = entry / kWindowHalfWidth;
  const double window = BesselI0(kKaiserBeta * std::sqrt(1.0 - r * r)) / BesselI0(kKaiserBeta);
  return kCutoff * sinc * window;
}

// Q31 coefficients, rounded to nearest; the last 128 entries stay zero.
inline void BuildCoefficients(int32_t coeff[kEntries]) {
  for (int i = 0; i < kEntries; ++i) {
    coeff[i] = i < kNonZeroEntries
                   ? static_cast<int32_t>(std::llround(2147483648.0 * Prototype(i)))
                   : 0;
  }
}

// Exact first differences, so that interpolating between entries i and
// i + 1 lands on entry i + 1 at fraction 1.0; the last entry has no
// successor and gets 0.
inline void BuildSlopes(const int32_t coeff[kEntries], int32_t slope[kEntries]) {
  for (int i = 0; i + 1 < kEntries; ++i) slope[i] = coeff[i + 1] - coeff[i];
  slope[kEntries - 1] = 0;
}

// ceil(log2(i)) for i >= 1, 0 for i = 0: how far to pre-shift the input
// so that up to i samples per output can be summed without overflow.
inline int16_t ShiftFor(int i) {
  int16_t bits = 0;
  while (i > 1 && (1 << bits) < i) ++bits;
  return bits;
}

}  // namespace sinc_rule

#endif
