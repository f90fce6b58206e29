// SPDX-License-Identifier: MIT
// Monotone piecewise cubic Hermite interpolation (Fritsch-Carlson PCHIP):
// derivative estimates that keep monotone data monotone and never overshoot
// at extrema, then evaluation interval by interval. Single precision.
#include <cmath>
#include <cstdlib>

#include "skelda/util_dsp.h"

namespace {

// Zero has no sign, so it is neither the same as nor opposite to anything.
bool same_sign(float a, float b) { return (a > 0 && b > 0) || (a < 0 && b < 0); }
bool opposite_sign(float a, float b) { return (a > 0 && b < 0) || (a < 0 && b > 0); }

// Three-point end derivative, made shape preserving.
float end_derivative(float h1, float h2, float del1, float del2) {
  const float hsum = h1 + h2;
  float d = ((h1 + hsum) / hsum) * del1 + (-h1 / hsum) * del2;
  if (!same_sign(d, del1)) {
    d = 0.0f;
  } else if (opposite_sign(del1, del2) && std::fabs(3.0f * del1) < std::fabs(d)) {
    d = 3.0f * del1;
  }
  return d;
}

void derivatives(int32_t n, const float *x, const float *f, float *d) {
  const float h0 = x[1] - x[0];
  const float del0 = (f[1] - f[0]) / h0;
  if (n == 2) {
    d[0] = d[1] = del0;
    return;
  }
  d[0] = end_derivative(h0, x[2] - x[1], del0, (f[2] - f[1]) / (x[2] - x[1]));
  for (int32_t k = 1; k < n - 1; ++k) {
    const float h1 = x[k] - x[k - 1], h2 = x[k + 1] - x[k];
    const float del1 = (f[k] - f[k - 1]) / h1, del2 = (f[k + 1] - f[k]) / h2;
    d[k] = 0.0f;
    if (!same_sign(del1, del2)) continue;
    const float hsum = h1 + h2;
    const float dmax = std::fmax(std::fabs(del1), std::fabs(del2));
    const float dmin = std::fmin(std::fabs(del1), std::fabs(del2));
    const float w1 = (hsum + h1) / (3.0f * hsum), w2 = (hsum + h2) / (3.0f * hsum);
    d[k] = dmin / (w1 * (del1 / dmax) + w2 * (del2 / dmax));
  }
  // The last node mirrors the first: the end formula over the last two
  // intervals, read backwards.
  const float h1 = x[n - 2] - x[n - 3], h2 = x[n - 1] - x[n - 2];
  const float del1 = (f[n - 2] - f[n - 3]) / h1, del2 = (f[n - 1] - f[n - 2]) / h2;
  d[n - 1] = end_derivative(h2, h1, del2, del1);
}

// Evaluates points xe[first..last-1] on interval k; counts those left and
// right of it (they are extrapolated with the same cubic).
void evaluate(const float *x, const float *f, const float *d, int32_t k, const float *xe,
              float *fe, int32_t first, int32_t last, int32_t *left, int32_t *right) {
  const float h = x[k + 1] - x[k];
  const float delta = (f[k + 1] - f[k]) / h;
  const float c1 = (d[k] - delta) / h, c2 = (d[k + 1] - delta) / h;
  const float b = 2.0f * c1 + c2, c = (c1 + c2) / h;
  *left = *right = 0;
  for (int32_t i = first; i < last; ++i) {
    const float t = xe[i] - x[k];
    fe[i] = f[k] + t * (d[k] + t * (c * t - b));
    if (t < std::fmin(0.0f, h)) ++*left;
    if (t > std::fmax(0.0f, h)) ++*right;
  }
}

}  // namespace

extern "C" {

SKELDA_API int32_t spline_pchip_val(int32_t n, const float *x, const float *f, int32_t ne,
                                    const float *xe, float *fe) {
  if (n < 2) return -1;
  for (int32_t k = 1; k < n; ++k)
    if (!(x[k] > x[k - 1])) return -3;
  if (ne < 1) return -4;
  float *d = static_cast<float *>(std::malloc(sizeof(float) * static_cast<size_t>(n)));
  if (d == nullptr) return -10;
  derivatives(n, x, f, d);

  int32_t status = 0;
  int32_t first = 0, k = 0;
  while (first < ne) {
    int32_t last = ne;
    if (k < n - 2)
      for (int32_t i = first; i < ne; ++i)
        if (xe[i] >= x[k + 1]) {
          last = i;
          break;
        }
    if (last > first) {
      int32_t left = 0, right = 0;
      evaluate(x, f, d, k, xe, fe, first, last, &left, &right);
      if (right > 0 && k < n - 2) {
        status = -5;
        break;
      }
      if (left > 0 && k > 0) {
        // Out of order: restart from the first point left of this interval
        // on the interval that holds it.
        int32_t j = first;
        while (j < last && !(xe[j] < x[k])) ++j;
        if (j == last) {
          status = -5;
          break;
        }
        first = j;
        int32_t m = 0;
        while (m < n && !(x[m] > xe[first])) ++m;
        k = m - 1 > 0 ? m - 1 : 0;
        continue;
      }
      first = last;
    }
    if (++k > n - 2) break;
  }
  std::free(d);
  return status;
}

SKELDA_API int32_t UTIL_SplineFit(int32_t n, const float *x, const float *f, int32_t ne,
                                  const float *xe, float *fe) {
  if (x == nullptr || f == nullptr || xe == nullptr || fe == nullptr) return 1;
  if (n <= 0 || ne <= 0) return 2;
  return spline_pchip_val(n, x, f, ne, xe, fe);
}

}  // extern "C"
