// Monotone spline: statuses and their order (fe untouched on failure),
// straight lines, node values, the shape guarantees on random monotone and
// peaked data, unordered evaluation points, and a double-precision model of
// the same Hermite pieces.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "skelda/util_dsp.h"

namespace {

using Floats = std::vector<float>;

int32_t fit(const Floats &x, const Floats &f, const Floats &xe, Floats &fe) {
  return UTIL_SplineFit(static_cast<int32_t>(x.size()), x.data(), f.data(),
                        static_cast<int32_t>(xe.size()), xe.data(), fe.data());
}

TEST(SplineFit, StatusesInOrderAndFeUntouched) {
  const Floats x = {0, 1, 2}, f = {0, 1, 4}, xe = {0.5f};
  Floats fe = {-7};
  EXPECT_EQ(UTIL_SplineFit(3, nullptr, f.data(), 1, xe.data(), fe.data()), 1);
  EXPECT_EQ(UTIL_SplineFit(3, x.data(), nullptr, 1, xe.data(), fe.data()), 1);
  EXPECT_EQ(UTIL_SplineFit(3, x.data(), f.data(), 1, nullptr, fe.data()), 1);
  EXPECT_EQ(UTIL_SplineFit(3, x.data(), f.data(), 1, xe.data(), nullptr), 1);
  EXPECT_EQ(UTIL_SplineFit(0, x.data(), f.data(), 1, xe.data(), fe.data()), 2);
  EXPECT_EQ(UTIL_SplineFit(3, x.data(), f.data(), 0, xe.data(), fe.data()), 2);
  EXPECT_EQ(UTIL_SplineFit(1, x.data(), f.data(), 1, xe.data(), fe.data()), -1);
  const Floats repeated = {0, 1, 1};
  EXPECT_EQ(UTIL_SplineFit(3, repeated.data(), f.data(), 1, xe.data(), fe.data()), -3);
  const Floats falling = {0, 2, 1};
  EXPECT_EQ(UTIL_SplineFit(3, falling.data(), f.data(), 1, xe.data(), fe.data()), -3);
  EXPECT_EQ(spline_pchip_val(3, x.data(), f.data(), 0, xe.data(), fe.data()), -4);
  EXPECT_EQ(fe[0], -7.0f);
}

TEST(SplineFit, TwoNodesGiveTheStraightLineEverywhere) {
  const Floats x = {1, 3}, f = {2, 6}, xe = {-4, 0, 1, 1.5f, 2.999f, 3, 10};
  Floats fe(xe.size());
  ASSERT_EQ(fit(x, f, xe, fe), 0);
  for (size_t i = 0; i < xe.size(); ++i) EXPECT_NEAR(fe[i], 2 * xe[i], 1e-5) << xe[i];
}

TEST(SplineFit, FlatTopStaysWithinItsNodes) {
  const Floats x = {0, 1, 2, 3}, f = {0, 1, 1, 0};
  Floats xe, fe;
  for (int i = -20; i <= 320; ++i) xe.push_back(i / 100.0f);
  fe.resize(xe.size());
  ASSERT_EQ(fit(x, f, xe, fe), 0);
  for (size_t i = 0; i < xe.size(); ++i) {
    if (xe[i] >= 1 && xe[i] <= 2) EXPECT_NEAR(fe[i], 1.0f, 1e-6) << xe[i];  // d = 0 at both
    if (xe[i] >= 0 && xe[i] <= 3) {
      EXPECT_GE(fe[i], -1e-6f) << xe[i];
      EXPECT_LE(fe[i], 1 + 1e-6f) << xe[i];
    }
  }
}

// Random increasing data: the curve never decreases and reproduces the nodes;
// random data with peaks: no value between two nodes leaves their range.
TEST(SplineFit, MonotoneDataGiveAMonotoneCurveWithoutOvershoot) {
  std::mt19937 rng(23);
  std::uniform_real_distribution<float> step(0.01f, 3.0f), rise(0.0f, 5.0f), any(-5, 5);
  for (int trial = 0; trial < 200; ++trial) {
    const int n = 2 + static_cast<int>(rng() % 30);
    Floats x(n), f(n), g(n);
    float xi = any(rng), fi = any(rng);
    for (int i = 0; i < n; ++i) {
      x[i] = xi += step(rng);
      f[i] = fi += (rng() % 4 == 0 ? 0.0f : rise(rng));
      g[i] = any(rng);
    }
    Floats xe;
    for (int i = 0; i + 1 < n; ++i)
      for (int s = 0; s < 16; ++s) xe.push_back(x[i] + (x[i + 1] - x[i]) * s / 16.0f);
    xe.push_back(x[n - 1]);
    Floats fe(xe.size()), ge(xe.size());
    ASSERT_EQ(fit(x, f, xe, fe), 0);
    ASSERT_EQ(fit(x, g, xe, ge), 0);
    for (size_t i = 1; i < fe.size(); ++i) ASSERT_GE(fe[i], fe[i - 1] - 1e-4f) << trial;
    for (int i = 0; i < n; ++i) {
      ASSERT_NEAR(fe[16 * i], f[i], 1e-4f * (1 + std::fabs(f[i])));
      ASSERT_NEAR(ge[16 * i], g[i], 1e-4f * (1 + std::fabs(g[i])));
    }
    for (int i = 0; i + 1 < n; ++i) {
      const float lo = std::min(g[i], g[i + 1]), hi = std::max(g[i], g[i + 1]);
      const bool extremum_free = i > 0 && i + 2 < n;  // ends may bend by the end rule
      for (int s = 0; s < 16 && extremum_free; ++s) {
        // Between two nodes the curve stays inside the hull of the
        // neighbouring values (no overshoot past a local extremum).
        const float outer_lo = std::min({lo, g[i - 1], g[i + 2]});
        const float outer_hi = std::max({hi, g[i - 1], g[i + 2]});
        ASSERT_GE(ge[16 * i + s], outer_lo - 1e-3f);
        ASSERT_LE(ge[16 * i + s], outer_hi + 1e-3f);
      }
    }
  }
}

TEST(SplineFit, PointsInAnyOrderGiveTheSameValues) {
  const Floats x = {0, 1, 2, 3, 4, 5, 6}, f = {0, 3, 1, 4, 1, 5, 9};
  Floats fe(2);
  ASSERT_EQ(fit(x, f, {5, 1}, fe), 0);
  EXPECT_NEAR(fe[0], 5, 1e-5);
  EXPECT_NEAR(fe[1], 3, 1e-5);
  std::mt19937 rng(4);
  std::uniform_real_distribution<float> where(-1, 7);
  Floats xe(300);
  for (auto &p : xe) p = where(rng);
  Floats shuffled_fe(xe.size()), sorted_fe(xe.size());
  ASSERT_EQ(fit(x, f, xe, shuffled_fe), 0);
  Floats sorted = xe;
  std::sort(sorted.begin(), sorted.end());
  ASSERT_EQ(fit(x, f, sorted, sorted_fe), 0);
  for (size_t i = 0; i < xe.size(); ++i) {
    const size_t at = std::lower_bound(sorted.begin(), sorted.end(), xe[i]) - sorted.begin();
    ASSERT_FLOAT_EQ(shuffled_fe[i], sorted_fe[at]) << xe[i];
  }
}

// The Hermite piece with the derivative rules, in double precision.
TEST(SplineFit, MatchesADoublePrecisionModel) {
  const std::vector<double> x = {0, 0.5, 2, 2.5, 4, 7}, f = {1, 2, 2.5, 0, -1, 3};
  const int n = 6;
  auto sign = [](double v) { return (v > 0) - (v < 0); };
  std::vector<double> h(n - 1), del(n - 1), d(n);
  for (int k = 0; k < n - 1; ++k) h[k] = x[k + 1] - x[k], del[k] = (f[k + 1] - f[k]) / h[k];
  auto end = [&](double h1, double h2, double d1, double d2) {
    double v = ((2 * h1 + h2) / (h1 + h2)) * d1 - (h1 / (h1 + h2)) * d2;
    if (sign(v) != sign(d1) || sign(d1) == 0) v = 0;
    else if (sign(d1) * sign(d2) < 0 && std::fabs(3 * d1) < std::fabs(v)) v = 3 * d1;
    return v;
  };
  d[0] = end(h[0], h[1], del[0], del[1]);
  d[n - 1] = end(h[n - 2], h[n - 3], del[n - 2], del[n - 3]);
  for (int k = 1; k < n - 1; ++k) {
    if (sign(del[k - 1]) * sign(del[k]) <= 0) continue;
    const double hs = h[k - 1] + h[k], w1 = (hs + h[k - 1]) / (3 * hs), w2 = (hs + h[k]) / (3 * hs);
    const double dmax = std::max(std::fabs(del[k - 1]), std::fabs(del[k]));
    const double dmin = std::min(std::fabs(del[k - 1]), std::fabs(del[k]));
    d[k] = dmin / (w1 * del[k - 1] / dmax + w2 * del[k] / dmax);
  }
  Floats xf(x.begin(), x.end()), ff(f.begin(), f.end()), xe, fe;
  for (double p = -1; p <= 8; p += 0.0625) xe.push_back(static_cast<float>(p));
  fe.resize(xe.size());
  ASSERT_EQ(fit(xf, ff, xe, fe), 0);
  for (size_t i = 0; i < xe.size(); ++i) {
    int k = 0;
    while (k < n - 2 && xe[i] >= x[k + 1]) ++k;
    const double t = xe[i] - x[k];
    const double c1 = (d[k] - del[k]) / h[k], c2 = (d[k + 1] - del[k]) / h[k];
    const double want = f[k] + t * (d[k] + t * ((c1 + c2) / h[k] * t - (2 * c1 + c2)));
    EXPECT_NEAR(fe[i], want, 1e-4 * (1 + std::fabs(want))) << xe[i];
  }
}

}  // namespace
