// SPDX-License-Identifier: MIT
// Integers for the utilities' reference checks.
#ifndef SKELDA_TESTS_UTIL_EDGE_VALUES_H
#define SKELDA_TESTS_UTIL_EDGE_VALUES_H

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

// Every power of two of either sign with its neighbours (0 among them), the
// int64 extremes, and `random` values of every magnitude: all that lie
// within `bits` signed bits.
inline std::vector<int64_t> EdgesAndRandom(int bits, uint32_t seed, int random) {
  std::vector<int64_t> v = {INT64_MIN, INT64_MAX};
  for (int k = 0; k < 63; ++k)
    for (int64_t d : {-1, 0, 1})
      v.push_back((int64_t{1} << k) + d), v.push_back(d - (int64_t{1} << k));
  std::mt19937_64 rng(seed);
  for (int i = 0; i < random; ++i)
    v.push_back(static_cast<int64_t>(rng()) >> (64 - bits + static_cast<int>(rng() % bits)));
  if (bits < 64) {
    const int64_t limit = int64_t{1} << (bits - 1);
    auto outside = [&](int64_t x) { return x >= limit || x < -limit; };
    v.erase(std::remove_if(v.begin(), v.end(), outside), v.end());
  }
  return v;
}

#endif
