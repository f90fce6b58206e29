// SPDX-License-Identifier: MIT
// Fixed-point steps that every family's kernels share: an exact sum rounded
// half up by a power of two, then saturated to the sample width.
#ifndef SKELDA_RSMPL_FIXED_H
#define SKELDA_RSMPL_FIXED_H

#include <cstdint>

namespace rsmpl {
namespace {

inline int16_t saturate16(int64_t v) {
  return static_cast<int16_t>(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
}

// floor((sum + 2^(shift-1)) / 2^shift), saturated to 16 bits; shift >= 1.
inline int16_t round_shift16(int64_t sum, uint32_t shift) {
  return saturate16((sum + (int64_t{1} << (shift - 1))) >> shift);
}

}  // namespace
}  // namespace rsmpl

#endif
