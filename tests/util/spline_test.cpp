// SPDX-License-Identifier: MIT
// Monotone spline against a double-precision reference of the documented
// method on random data sets (ties, sign changes, monotone runs), with the
// points in order and shuffled; and every status rule at its boundary.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "skelda/util_dsp.h"

namespace {

using Floats = std::vector<float>;

// Derivatives: the line's slope for two nodes; inside, 0 unless both slopes
// have one sign, else their weighted harmonic mean; at the ends the
// three-point formula, 0 if its sign is not the end slope's, limited to three
// times the end slope where the slopes change sign. Then the Hermite cubic of
// the interval holding the point (the first or last one outside the nodes);
// scale is the sum of its terms' magnitudes, which bounds float rounding.
double pchip_reference(const Floats &xf, const Floats &ff, float point, double *scale) {
  const int n = static_cast<int>(xf.size());
  const std::vector<double> x(xf.begin(), xf.end()), f(ff.begin(), ff.end());
  std::vector<double> h(n - 1), del(n - 1), d(n, 0.0);
  for (int k = 0; k < n - 1; ++k) h[k] = x[k + 1] - x[k], del[k] = (f[k + 1] - f[k]) / h[k];
  auto sign = [](double v) { return (v > 0) - (v < 0); };
  auto end = [&](double h1, double h2, double d1, double d2) {
    const double v = ((2 * h1 + h2) / (h1 + h2)) * d1 - (h1 / (h1 + h2)) * d2;
    if (sign(v) == 0 || sign(v) != sign(d1)) return 0.0;
    return sign(d1) * sign(d2) < 0 && std::fabs(3 * d1) < std::fabs(v) ? 3 * d1 : v;
  };
  if (n == 2) {
    d[0] = d[1] = del[0];
  } else {
    d[0] = end(h[0], h[1], del[0], del[1]);
    d[n - 1] = end(h[n - 2], h[n - 3], del[n - 2], del[n - 3]);
  }
  for (int k = 1; k < n - 1; ++k) {
    if (sign(del[k - 1]) * sign(del[k]) <= 0) continue;
    const double hs = h[k - 1] + h[k], w1 = (hs + h[k - 1]) / (3 * hs), w2 = (hs + h[k]) / (3 * hs);
    const double dmax = std::max(std::fabs(del[k - 1]), std::fabs(del[k]));
    d[k] = std::min(std::fabs(del[k - 1]), std::fabs(del[k])) /
           (w1 * del[k - 1] / dmax + w2 * del[k] / dmax);
  }
  int k = 0;
  while (k < n - 2 && point >= x[k + 1]) ++k;
  const double s = (point - x[k]) / h[k];
  const double terms[] = {
      f[k] * (2 * s * s * s - 3 * s * s + 1), f[k + 1] * (3 * s * s - 2 * s * s * s),
      h[k] * d[k] * (s * s * s - 2 * s * s + s), h[k] * d[k + 1] * (s * s * s - s * s)};
  *scale = 1;
  for (double t : terms) *scale += std::fabs(t);
  return terms[0] + terms[1] + terms[2] + terms[3];
}

TEST(SplineFit, MatchesTheReferenceOnRandomData) {
  std::mt19937 rng(1);
  std::uniform_real_distribution<float> gap(0.05f, 3.0f), value(-5, 5);
  for (int trial = 0; trial < 3000; ++trial) {
    const int n = 2 + static_cast<int>(rng() % 11);
    Floats x(n), f(n), xe;
    float at = value(rng), rising = value(rng);
    for (int i = 0; i < n; ++i) {
      x[i] = at += gap(rng);
      const int kind = trial % 3;  // random values, small integers (ties), a monotone run
      f[i] = kind == 0   ? value(rng)
             : kind == 1 ? static_cast<float>(rng() % 5) - 2
                         : rising += std::fabs(value(rng));
      xe.push_back(x[i]);
    }
    const float span = x[n - 1] - x[0];
    for (int i = 0; i < 40; ++i)
      xe.push_back(x[0] - span / 4 + std::uniform_real_distribution<float>(0, 1.5f)(rng) * span);
    if (trial % 2)
      std::sort(xe.begin(), xe.end());
    else
      std::shuffle(xe.begin(), xe.end(), rng);
    Floats fe(xe.size());
    ASSERT_EQ(UTIL_SplineFit(n, x.data(), f.data(), static_cast<int32_t>(xe.size()), xe.data(),
                             fe.data()),
              0);
    for (size_t i = 0; i < xe.size(); ++i) {
      double scale;
      const double want = pchip_reference(x, f, xe[i], &scale);
      ASSERT_NEAR(fe[i], want, 1e-5 * scale) << "trial " << trial << " at " << xe[i];
      // A point on a node but the last starts that node's interval: t = 0, exact.
      const auto node = std::find(x.begin(), x.end() - 1, xe[i]);
      if (node != x.end() - 1) ASSERT_EQ(fe[i], f[node - x.begin()]) << trial;
      // The shape rule itself, which the reference could get wrong alike:
      // rising data give a curve that never falls between the end nodes.
      if (trial % 6 == 5 && i > 0 && xe[i - 1] >= x[0] && xe[i] <= x[n - 1])
        ASSERT_GE(fe[i], fe[i - 1] - 1e-5f * scale);
    }
  }
}

// Status rules in their order (nulls, then counts, then the nodes; the body
// checks ne last), each at its boundary; a refused call leaves fe alone.
TEST(SplineFit, EveryStatusRuleAtItsBoundaryLeavingFeUntouched) {
  const float kAbove0 = std::nextafter(0.0f, 1.0f), kBelow2 = std::nextafter(2.0f, 0.0f);
  const struct {
    int null, n, ne;  // null: 1 x, 2 f, 3 xe, 4 fe
    float x1;         // the second node, between 0 and 2
    bool body;
    int status;
  } rules[] = {
      // clang-format off
      {1, 4, 2, 1, false, 1}, {2, 4, 2, 1, false, 1}, {3, 4, 2, 1, false, 1},
      {4, 4, 2, 1, false, 1}, {4, 0, 0, 0, false, 1}, {0, 0, 2, 1, false, 2},
      {0, -1, 2, 1, false, 2}, {0, 1, 2, 1, false, -1}, {0, 2, 2, 1, false, 0},
      {0, 4, 0, 1, false, 2}, {0, 4, -1, 1, false, 2}, {0, 4, 1, 1, false, 0},
      {0, 4, 2, 0, false, -3}, {0, 4, 2, kAbove0, false, 0}, {0, 2, 2, 0, false, -3},
      {0, 4, 2, 2, false, -3}, {0, 4, 2, kBelow2, false, 0}, {0, 3, 2, 2, false, -3},
      {0, 4, 2, 2.5f, false, -3}, {0, 4, 2, NAN, false, -3}, {0, 4, 0, 1, true, -4},
      {0, 4, 0, 0, true, -3}, {0, 1, 0, 0, true, -1},
      // clang-format on
  };
  for (const auto &r : rules) {
    const Floats x = {0, r.x1, 2, 3}, f = {0, 1, 4, 9}, xe = {0.5f, 2.5f};
    Floats fe = {-7, -7};
    const float *in[] = {x.data(), f.data(), xe.data()};
    float *out = r.null == 4 ? nullptr : fe.data();
    if (r.null > 0 && r.null < 4) in[r.null - 1] = nullptr;
    const auto call = r.body ? spline_pchip_val : UTIL_SplineFit;
    EXPECT_EQ(call(r.n, in[0], in[1], r.ne, in[2], out), r.status)
        << r.null << " " << r.n << " " << r.ne << " " << r.x1 << " " << r.body;
    if (r.status != 0) EXPECT_EQ(fe, (Floats{-7, -7}));
  }
}

}  // namespace
