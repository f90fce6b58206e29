// SPDX-License-Identifier: MIT
// A plain radix-2 FFT for the tests that measure filter responses.
#ifndef SKELDA_TESTS_SUPPORT_FFT_H
#define SKELDA_TESTS_SUPPORT_FFT_H

#include <cmath>
#include <complex>
#include <vector>

namespace test_support {

// In place; the size a power of two.
inline void fft(std::vector<std::complex<double>> &a) {
  const size_t n = a.size();
  if (n == 1) return;
  std::vector<std::complex<double>> even(n / 2), odd(n / 2);
  for (size_t i = 0; i < n / 2; ++i) {
    even[i] = a[2 * i];
    odd[i] = a[2 * i + 1];
  }
  fft(even);
  fft(odd);
  for (size_t k = 0; k < n / 2; ++k) {
    const auto t = std::polar(1.0, -2 * M_PI * double(k) / double(n)) * odd[k];
    a[k] = even[k] + t;
    a[k + n / 2] = even[k] - t;
  }
}

}  // namespace test_support

#endif
