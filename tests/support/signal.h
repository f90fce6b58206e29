// Test signals for the end-to-end tests.
#ifndef SKELDA_TESTS_SIGNAL_H
#define SKELDA_TESTS_SIGNAL_H

#include <cstddef>
#include <cstdint>
#include <vector>

// `frames` interleaved frames; channel c carries a sine of frequency
// hz[c] at `amplitude`.
std::vector<int16_t> interleaved_sines(unsigned rate, const std::vector<double> &hz,
                                       double amplitude, size_t frames);

#endif
