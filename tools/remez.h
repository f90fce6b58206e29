// SPDX-License-Identifier: MIT
// Equiripple linear-phase lowpass design by the Remez exchange (Parks and
// McClellan), in double precision, for the constant tables' generators.
//
// The filter has 2m + 1 symmetric taps, so its response is the cosine series
// A(f) = sum_k a_k cos(2 pi k f). The exchange looks for the m + 2 grid
// frequencies where the weighted error W(f) (D(f) - A(f)) alternates in sign
// at its largest magnitude: the passband [0, pass] wants D = 1 with weight 1,
// the stopband [stop, 1/2] wants D = 0 with weight `stop_weight` (f / stop)^
// `rise`: a weight that rises with frequency pushes the far stopband down.
#ifndef SKELDA_TOOLS_REMEZ_H
#define SKELDA_TOOLS_REMEZ_H

#include <algorithm>
#include <cmath>
#include <vector>

namespace remez {

// Taps h[0..2m] of the design, centre h[m]; frequencies in cycles per sample.
inline std::vector<double> Lowpass(int m, double pass, double stop, double stop_weight,
                                   double rise = 0) {
  const int r = m + 1;  // cosine terms; the exchange keeps r + 1 extremals
  // The grid: about 32 points per extremal, shared by the bands in
  // proportion to their widths, edges included.
  const int points = 32 * r;
  const double span = pass + (0.5 - stop);
  const int pass_points = std::max(2, static_cast<int>(points * pass / span));
  const int stop_points = std::max(2, points - pass_points);
  std::vector<double> f, want, weight;
  for (int i = 0; i < pass_points; ++i) {
    f.push_back(pass * i / (pass_points - 1));
    want.push_back(1.0);
    weight.push_back(1.0);
  }
  for (int i = 0; i < stop_points; ++i) {
    f.push_back(stop + (0.5 - stop) * i / (stop_points - 1));
    want.push_back(0.0);
    weight.push_back(stop_weight * std::pow(f.back() / stop, rise));
  }
  const int n = static_cast<int>(f.size());
  std::vector<double> x(n);
  for (int i = 0; i < n; ++i) x[i] = std::cos(2 * M_PI * f[i]);

  // Barycentric weights of the points `at` (products taken with a factor 2
  // and strided, as the classic program does, to stay in range).
  auto bary = [&](const std::vector<int> &at) {
    const int k = static_cast<int>(at.size());
    const int stride = (k - 1) / 15 + 1;
    std::vector<double> b(k);
    for (int i = 0; i < k; ++i) {
      double p = 1.0;
      for (int s = 0; s < stride; ++s)
        for (int j = s; j < k; j += stride)
          if (j != i) p *= 2.0 * (x[at[i]] - x[at[j]]);
      b[i] = 1.0 / p;
    }
    return b;
  };

  std::vector<int> ext(r + 1);
  for (int i = 0; i <= r; ++i) ext[i] = static_cast<int>(static_cast<long>(i) * (n - 1) / r);
  std::vector<double> a_at, y_at, error(n);
  std::vector<int> interp;
  for (int iteration = 0; iteration < 200; ++iteration) {
    const std::vector<double> b = bary(ext);
    double num = 0, den = 0;
    for (int i = 0; i <= r; ++i) {
      num += b[i] * want[ext[i]];
      den += b[i] * (i % 2 == 0 ? 1.0 : -1.0) / weight[ext[i]];
    }
    const double delta = num / den;
    // A through the first r extremals, where it must equal D - (-1)^i delta / W.
    interp.assign(ext.begin(), ext.end() - 1);
    a_at = bary(interp);
    y_at.resize(r);
    for (int i = 0; i < r; ++i)
      y_at[i] = want[ext[i]] - (i % 2 == 0 ? 1.0 : -1.0) * delta / weight[ext[i]];
    auto response = [&](double xv) {
      double top = 0, bottom = 0;
      for (int i = 0; i < r; ++i) {
        const double d = xv - x[interp[i]];
        if (d == 0) return y_at[i];
        top += a_at[i] / d * y_at[i];
        bottom += a_at[i] / d;
      }
      return top / bottom;
    };
    for (int i = 0; i < n; ++i) error[i] = weight[i] * (want[i] - response(x[i]));

    // New extremals: each one moves to the largest error of its own sign
    // between its neighbours, so the signs keep alternating; then, if the
    // error beyond either end outdoes the far end's extremal in the sign the
    // ends call for, the set shifts towards it.
    std::vector<int> alt(r + 1);
    for (int i = 0; i <= r; ++i) {
      const int lo = i == 0 ? 0 : ext[i - 1] + 1, hi = i == r ? n - 1 : ext[i + 1] - 1;
      const double sign = error[ext[i]] >= 0 ? 1.0 : -1.0;
      int best = ext[i];
      for (int j = lo; j <= hi; ++j)
        if (sign * error[j] > sign * error[best]) best = j;
      alt[i] = best;
    }
    {
      // Before the first: the sign opposite to the first's.
      const double first_sign = error[alt[0]] >= 0 ? 1.0 : -1.0;
      int before = -1;
      for (int j = 0; j < alt[0]; ++j)
        if (-first_sign * error[j] > (before < 0 ? 0.0 : -first_sign * error[before])) before = j;
      const double last_sign = error[alt[r]] >= 0 ? 1.0 : -1.0;
      int after = -1;
      for (int j = alt[r] + 1; j < n; ++j)
        if (-last_sign * error[j] > (after < 0 ? 0.0 : -last_sign * error[after])) after = j;
      if (before >= 0 && std::fabs(error[before]) > std::fabs(error[alt[r]]) &&
          (after < 0 || std::fabs(error[before]) >= std::fabs(error[after]))) {
        alt.pop_back();
        alt.insert(alt.begin(), before);
      } else if (after >= 0 && std::fabs(error[after]) > std::fabs(error[alt[0]])) {
        alt.erase(alt.begin());
        alt.push_back(after);
      }
    }
    double largest = 0;
    for (int i : alt) largest = std::max(largest, std::fabs(error[i]));
    const bool same = alt == ext;
    ext = alt;
    if (same || largest - std::fabs(delta) <= 1e-9 * largest) break;
  }

  // The taps from the response at the frequencies k / (2m + 1).
  const int taps = 2 * m + 1;
  const std::vector<double> b = bary(interp);
  std::vector<double> at(m + 1);
  for (int k = 0; k <= m; ++k) {
    const double xv = std::cos(2 * M_PI * k / taps);
    double top = 0, bottom = 0, exact = NAN;
    for (int i = 0; i < r; ++i) {
      const double d = xv - x[interp[i]];
      if (d == 0) exact = y_at[i];
      top += b[i] / d * y_at[i];
      bottom += b[i] / d;
    }
    at[k] = std::isnan(exact) ? top / bottom : exact;
  }
  std::vector<double> h(taps);
  for (int k = 0; k <= m; ++k) {
    double sum = at[0];
    for (int j = 1; j <= m; ++j) sum += 2 * at[j] * std::cos(2 * M_PI * j * k / taps);
    h[m + k] = h[m - k] = sum / taps;
  }
  return h;
}

}  // namespace remez

#endif
