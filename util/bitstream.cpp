// SPDX-License-Identifier: MIT
// Byte-group permutation and per-byte bit reversal of a stream.
#include <cstdint>

#include "skelda/util_dsp.h"

namespace {

constexpr uint8_t kReversedNibble[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};

uint8_t reverse_bits(uint8_t b) {
  return static_cast<uint8_t>(kReversedNibble[b & 15] << 4 | kReversedNibble[b >> 4]);
}

}  // namespace

extern "C" {

// Output byte j of a group is input byte j XOR k. In a last group of fewer
// than four bytes a byte whose partner j XOR k lies past the end keeps its
// place, so the group is still a permutation of the bytes present and
// nothing past len is read. Every group is read before it is written, which
// makes src == dst exact.
SKELDA_API void UTILReorderBitstream(const uint8_t *src, int16_t len, int16_t mode, uint8_t *dst) {
  const int k = (mode >> 1) & 3;
  const bool reverse = mode & 1;
  for (int at = 0, left = len; left > 0; at += 4, left -= 4) {
    const int count = left < 4 ? left : 4;
    uint8_t group[4];
    for (int j = 0; j < count; ++j) group[j] = src[at + j];
    for (int j = 0; j < count; ++j) {
      const int from = (j ^ k) < count ? (j ^ k) : j;
      dst[at + j] = reverse ? reverse_bits(group[from]) : group[from];
    }
  }
}

// src and dst must coincide or not overlap at all.
SKELDA_API int32_t UTIL_ReorderBitstream(const uint8_t *src, int16_t len, int16_t mode,
                                         uint8_t *dst) {
  if (src == nullptr || dst == nullptr) return 1;
  const auto s = reinterpret_cast<uintptr_t>(src), d = reinterpret_cast<uintptr_t>(dst);
  const uintptr_t n = len > 0 ? static_cast<uintptr_t>(len) : 0;
  if (s > d && s < d + n) return 1;
  if (s < d && d < s + n) return 1;
  UTILReorderBitstream(src, len, mode, dst);
  return 0;
}

}  // extern "C"
