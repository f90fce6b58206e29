// SPDX-License-Identifier: MIT
// Bitstream reordering against a byte-at-a-time reference for every mode and
// length, in place and out of place, and every status rule at its boundary.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "skelda/util_dsp.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Output byte j of a group is input byte j XOR k (bits 1-2 of the mode; in a
// short last group a byte whose partner is missing stays), its bits reversed
// when bit 0 is set.
Bytes reorder_reference(const Bytes &in, int mode) {
  const int k = (static_cast<uint16_t>(mode) >> 1) & 3;
  Bytes out(in.size());
  for (size_t i = 0; i < in.size(); ++i) {
    const size_t partner = (i & ~size_t{3}) | ((i & 3) ^ k);
    uint8_t b = in[partner < in.size() ? partner : i], r = 0;
    for (int bit = 0; bit < 8; ++bit) r |= ((b >> bit) & 1) << (7 - bit);
    out[i] = mode & 1 ? r : b;
  }
  return out;
}

TEST(ReorderBitstream, EveryModeAndLengthInPlaceAndOutOfPlace) {
  std::mt19937 rng(1);
  for (int16_t mode : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 14, 15, 0x7FF9, -1, -2, -5, -32768}) {
    for (int16_t len = 1; len <= 23; ++len) {
      Bytes in(len), out(len + 1, 0xEE);
      for (auto &b : in) b = static_cast<uint8_t>(rng());
      const Bytes want = reorder_reference(in, mode);
      ASSERT_EQ(UTIL_ReorderBitstream(in.data(), len, mode, out.data()), 0);
      ASSERT_EQ(Bytes(out.begin(), out.end() - 1), want) << "mode " << mode << " len " << len;
      ASSERT_EQ(out.back(), 0xEE);  // nothing past len
      ASSERT_EQ(UTIL_ReorderBitstream(in.data(), len, mode, in.data()), 0);
      ASSERT_EQ(in, want) << "in place, mode " << mode << " len " << len;
    }
  }
  Bytes bytes = {0x01, 0x02, 0x03, 0x04};  // worked bytes pin the reversal and the swaps
  ASSERT_EQ(UTIL_ReorderBitstream(bytes.data(), 4, 7, bytes.data()), 0);
  EXPECT_EQ(bytes, (Bytes{0x20, 0xC0, 0x40, 0x80}));
}

// Regions must coincide or be disjoint: dst at src +- (len - 1) overlaps,
// src +- len does not. Null pointers are refused; len <= 0 writes nothing.
TEST(ReorderBitstream, EveryStatusRuleAtItsBoundary) {
  const struct {
    int src, dst, len, status;  // offsets into the buffer, -1 for null
  } rules[] = {
      // clang-format off
      {-1, 8, 4, 1}, {0, -1, 4, 1}, {-1, -1, 0, 1}, {4, 5, 4, 1}, {4, 7, 4, 1}, {4, 8, 4, 0},
      {5, 4, 4, 1}, {7, 4, 4, 1}, {8, 4, 4, 0}, {4, 4, 4, 0}, {4, 5, 0, 0}, {4, 5, -3, 0},
      {4, 5, 1, 0}, {5, 4, 1, 0},
      // clang-format on
  };
  for (const auto &r : rules) {
    const Bytes before = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
    Bytes buffer = before, want = before;
    uint8_t *src = r.src < 0 ? nullptr : buffer.data() + r.src;
    EXPECT_EQ(UTIL_ReorderBitstream(src, static_cast<int16_t>(r.len), 6,
                                    r.dst < 0 ? nullptr : buffer.data() + r.dst),
              r.status)
        << r.src << " -> " << r.dst << " len " << r.len;
    if (r.status == 0 && r.len > 0) {
      const Bytes moved = reorder_reference(Bytes(&before[r.src], &before[r.src] + r.len), 6);
      std::copy(moved.begin(), moved.end(), want.begin() + r.dst);
    }
    EXPECT_EQ(buffer, want) << r.src << " -> " << r.dst << " len " << r.len;
  }
}

}  // namespace
