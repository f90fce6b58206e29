// One channel through an integer-ratio stage, computed by the plain kernel
// reference over silence followed by the whole stream: what any chunking of
// the same stream by the engine must reproduce.
#ifndef SKELDA_TESTS_ENGINE_REFERENCE_H
#define SKELDA_TESTS_ENGINE_REFERENCE_H

#include <cstdint>
#include <vector>

// factor 2, 3 or 6; up multiplies the rate, down divides it (whole groups
// only: a trailing partial group is not converted).
std::vector<int16_t> engine_convert_channel(const std::vector<int16_t> &x, unsigned factor,
                                            bool up);

// Channel c of interleaved frames.
std::vector<int16_t> deinterleave(const std::vector<int16_t> &interleaved, unsigned channels,
                                  unsigned c);

#endif
