// Test signals and the measurements the end-to-end tests make on them.
#ifndef SKELDA_TESTS_SIGNAL_H
#define SKELDA_TESTS_SIGNAL_H

#include <cstddef>
#include <cstdint>
#include <vector>

// `frames` interleaved frames; channel c carries a sine of frequency
// hz[c] at `amplitude`.
std::vector<int16_t> interleaved_sines(unsigned rate, const std::vector<double> &hz,
                                       double amplitude, size_t frames);

// Channel `c` of interleaved audio as doubles, frames [first, first + count).
std::vector<double> channel_of(const std::vector<int16_t> &interleaved, unsigned channels,
                               unsigned c, size_t first, size_t count);

// Frequency of the strongest component between lo and hi Hz, found by a
// Goertzel scan in 0.1 Hz steps over a Hann-windowed signal.
double peak_frequency(const std::vector<double> &x, double rate, double lo, double hi);

// Largest |x[n+1] - 2x[n] + x[n-1]|: small for a smooth tone, large at a
// click or a seam.
double largest_second_difference(const std::vector<double> &x);

// Power of x outside a pure sine of frequency hz fitted by least squares,
// relative to the sine's power, in dB (negative is good).
double residual_db(const std::vector<double> &x, double rate, double hz);

#endif
