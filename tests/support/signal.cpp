#include "support/signal.h"

#include <algorithm>
#include <cmath>

std::vector<int16_t> interleaved_sines(unsigned rate, const std::vector<double> &hz,
                                       double amplitude, size_t frames) {
  const size_t channels = hz.size();
  std::vector<int16_t> out(frames * channels);
  for (size_t f = 0; f < frames; ++f)
    for (size_t c = 0; c < channels; ++c)
      out[f * channels + c] =
          static_cast<int16_t>(std::lround(amplitude * std::sin(2 * M_PI * hz[c] * f / rate)));
  return out;
}

std::vector<double> channel_of(const std::vector<int16_t> &interleaved, unsigned channels,
                               unsigned c, size_t first, size_t count) {
  std::vector<double> x;
  for (size_t f = first; f < first + count && (f * channels + c) < interleaved.size(); ++f)
    x.push_back(interleaved[f * channels + c]);
  return x;
}

double peak_frequency(const std::vector<double> &x, double rate, double lo, double hi) {
  const size_t n = x.size();
  std::vector<double> w(n);
  for (size_t i = 0; i < n; ++i) w[i] = x[i] * (0.5 - 0.5 * std::cos(2 * M_PI * i / (n - 1)));
  double best_hz = lo, best_power = -1;
  for (double hz = lo; hz <= hi; hz += 0.1) {
    const double k = 2 * std::cos(2 * M_PI * hz / rate);
    double s1 = 0, s2 = 0;
    for (double v : w) {
      const double s0 = v + k * s1 - s2;
      s2 = s1;
      s1 = s0;
    }
    const double power = s1 * s1 + s2 * s2 - k * s1 * s2;
    if (power > best_power) {
      best_power = power;
      best_hz = hz;
    }
  }
  return best_hz;
}

double largest_second_difference(const std::vector<double> &x) {
  double largest = 0;
  for (size_t i = 1; i + 1 < x.size(); ++i)
    largest = std::max(largest, std::fabs(x[i + 1] - 2 * x[i] + x[i - 1]));
  return largest;
}

double residual_db(const std::vector<double> &x, double rate, double hz) {
  // Least-squares fit of a*sin + b*cos + dc.
  double ss = 0, cc = 0, sc = 0, xs = 0, xc = 0, sum = 0;
  const size_t n = x.size();
  for (size_t i = 0; i < n; ++i) {
    const double s = std::sin(2 * M_PI * hz * i / rate), c = std::cos(2 * M_PI * hz * i / rate);
    ss += s * s; cc += c * c; sc += s * c; xs += x[i] * s; xc += x[i] * c;
    sum += x[i];
  }
  const double det = ss * cc - sc * sc;
  const double a = (xs * cc - xc * sc) / det, b = (xc * ss - xs * sc) / det;
  const double dc = sum / n;
  double signal = 0, noise = 0;
  for (size_t i = 0; i < n; ++i) {
    const double fit = a * std::sin(2 * M_PI * hz * i / rate) + b * std::cos(2 * M_PI * hz * i / rate);
    signal += fit * fit;
    const double e = x[i] - fit - dc;
    noise += e * e;
  }
  return 10 * std::log10(noise / signal);
}
