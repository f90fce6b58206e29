// SPDX-License-Identifier: MIT
// The rule behind the high-quality resampler's prototype tables, in double
// precision. The generator prints the tables from it, and a test rebuilds
// them to prove the committed source still matches the rule.
//
// The prototype is a Kaiser-windowed sinc with its cutoff at half the lower
// rate, so the passband reaches 0.45 and the stopband starts at 0.55 of that
// rate. Its half-length, 32 lower-rate samples, keeps the delay within 2 ms
// down to 16 kHz, and beta 10 maximises the worst stopband attenuation for
// that length: 99.6 dB at 0.55, 105 dB from 0.6.
//
// Ratios whose terms are small (L / M with both at most 8) sample the filter
// on the grid of 1/D lower-rate samples, D = max(L, M), and nowhere else, so
// each such grid has a filter of its own, designed on it: a minimax lowpass
// (Remez exchange) reaching 22 lower-rate samples a side (the outermost
// grid point left at zero, so that an even window of 44 D / L input samples
// holds it at every phase), passband to 0.45, stopband from 0.55 weighted
// 600 (f / 0.55)^2 to 1. Trading the passband's ripple (0.07 dB) for the
// stopband (103.5 dB at 0.55, 112 dB from 0.9) lets it be a third shorter
// than the windowed sinc. The margin at 0.55 is for ratios L / M with M > 1,
// whose output sampling can fold two images of a tone onto one frequency
// (6 dB more at worst); the rising weight keeps the images of low tones,
// which lie far into the stopband, as far down as the windowed sinc's.
// (One such prototype for every grid would not do: its flat stopband would
// fold onto coarse grids.)
#ifndef SKELDA_TOOLS_HQ_TABLE_RULE_H
#define SKELDA_TOOLS_HQ_TABLE_RULE_H

#include <cmath>
#include <cstdint>

#include <vector>

#include "tools/remez.h"
#include "tools/sinc_table_rule.h"

namespace hq_rule {

constexpr int kOversample = 64;  // table entries per lower-rate sample

struct Prototype {
  int half;     // half-length in lower-rate samples
  double beta;  // Kaiser window parameter
};
constexpr Prototype kPrototype{32, 10.0};

// Entries of one side, centre included, plus one zero past the end so that
// the four-point interpolation never reads outside.
constexpr int Entries(const Prototype &p) { return p.half * kOversample + 2; }

// The window's Bessel function is the sinc interpolator's.
using sinc_rule::BesselI0;

// The prototype at t lower-rate samples from its centre.
inline double Value(const Prototype &p, double t) {
  t = std::fabs(t);
  if (t >= p.half) return 0.0;
  const double sinc = t == 0.0 ? 1.0 : std::sin(M_PI * t) / (M_PI * t);
  const double r = t / p.half;
  return sinc * BesselI0(p.beta * std::sqrt(1.0 - r * r)) / BesselI0(p.beta);
}

// Q30, rounded to nearest.
inline int32_t Entry(const Prototype &p, int i) {
  return static_cast<int32_t>(std::llround(1073741824.0 * Value(p, static_cast<double>(i) / kOversample)));
}

// The grids with a design of their own: D = 2..kDirectMax.
constexpr int kDirectMax = 8;
constexpr int kDirectHalf = 22;  // half-length in lower-rate samples
constexpr double kDirectStopWeight = 600.0;
constexpr double kDirectStopRise = 2.0;

// Entries of D's side: centre to edge, kDirectHalf D + 1, the last zero.
constexpr int DirectEntries(int d) { return kDirectHalf * d + 1; }

// D's side in Q30, normalised so that every one of its D phases sums to
// about 1 (the taps in all sum to D).
inline std::vector<int32_t> DirectSide(int d) {
  const int m = kDirectHalf * d - 1;
  const std::vector<double> h = remez::Lowpass(m, 0.45 / d, 0.55 / d, kDirectStopWeight, kDirectStopRise);
  double sum = 0;
  for (double v : h) sum += v;
  std::vector<int32_t> side(DirectEntries(d), 0);
  for (int i = 0; i <= m; ++i)
    side[i] = static_cast<int32_t>(std::llround(1073741824.0 * h[m + i] * d / sum));
  return side;
}

}  // namespace hq_rule

#endif
