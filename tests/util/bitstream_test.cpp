// Bitstream reordering: the worked patterns, in place against out of place,
// a byte-at-a-time reference, short last groups and the refused overlaps.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "skelda/util_dsp.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes reorder(Bytes in, int16_t mode) {
  Bytes out(in.size(), 0xEE);
  EXPECT_EQ(UTIL_ReorderBitstream(in.data(), static_cast<int16_t>(in.size()), mode, out.data()), 0);
  return out;
}

uint8_t reverse_reference(uint8_t b) {
  uint8_t r = 0;
  for (int i = 0; i < 8; ++i)
    if (b & (1 << i)) r |= static_cast<uint8_t>(0x80 >> i);
  return r;
}

TEST(ReorderBitstream, WorkedPatterns) {
  const Bytes in = {0x01, 0x02, 0x03, 0x04};
  EXPECT_EQ(reorder(in, 0), in);
  EXPECT_EQ(reorder(in, 8), in);
  EXPECT_EQ(reorder(in, 2), (Bytes{0x02, 0x01, 0x04, 0x03}));
  EXPECT_EQ(reorder(in, 4), (Bytes{0x03, 0x04, 0x01, 0x02}));
  EXPECT_EQ(reorder(in, 6), (Bytes{0x04, 0x03, 0x02, 0x01}));
  EXPECT_EQ(reorder(in, 7), (Bytes{0x20, 0xC0, 0x40, 0x80}));
  EXPECT_EQ(reorder({0x01, 0x12}, 1), (Bytes{0x80, 0x48}));
  const Bytes five = {0x01, 0x02, 0x03, 0x04, 0x05};
  EXPECT_EQ(reorder(five, 1), (Bytes{0x80, 0x40, 0xC0, 0x20, 0xA0}));
}

// Full groups against the XOR rule; a short last group permutes only among
// the bytes present; in place equals out of place.
TEST(ReorderBitstream, EveryModeAndLengthAgainstAReference) {
  std::mt19937 rng(3);
  for (int16_t mode = 0; mode < 16; ++mode) {
    for (int len = 1; len <= 23; ++len) {
      Bytes in(len);
      for (auto &b : in) b = static_cast<uint8_t>(rng());
      Bytes want(len);
      const int k = (mode >> 1) & 3;
      for (int at = 0; at < len; at += 4) {
        const int count = len - at < 4 ? len - at : 4;
        for (int j = 0; j < count; ++j) {
          const int from = (j ^ k) < count ? (j ^ k) : j;
          want[at + j] = (mode & 1) ? reverse_reference(in[at + from]) : in[at + from];
        }
      }
      ASSERT_EQ(reorder(in, mode), want) << "mode " << mode << " len " << len;
      Bytes inplace = in;
      ASSERT_EQ(UTIL_ReorderBitstream(inplace.data(), static_cast<int16_t>(len), mode, inplace.data()), 0);
      ASSERT_EQ(inplace, want);
    }
  }
}

TEST(ReorderBitstream, RefusesNullAndPartialOverlapTouchingNothing) {
  Bytes buffer = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  const Bytes before = buffer;
  EXPECT_EQ(UTIL_ReorderBitstream(nullptr, 4, 6, buffer.data()), 1);
  EXPECT_EQ(UTIL_ReorderBitstream(buffer.data(), 4, 6, nullptr), 1);
  EXPECT_EQ(UTIL_ReorderBitstream(buffer.data(), 4, 6, buffer.data() + 1), 1);
  EXPECT_EQ(UTIL_ReorderBitstream(buffer.data() + 3, 4, 6, buffer.data()), 1);
  EXPECT_EQ(buffer, before);
  // Adjacent regions and non-positive lengths are fine.
  EXPECT_EQ(UTIL_ReorderBitstream(buffer.data(), 4, 6, buffer.data() + 4), 0);
  EXPECT_EQ((Bytes(buffer.begin() + 4, buffer.begin() + 8)), (Bytes{4, 3, 2, 1}));
  const Bytes after = buffer;
  EXPECT_EQ(UTIL_ReorderBitstream(buffer.data(), 0, 6, buffer.data() + 1), 0);
  EXPECT_EQ(UTIL_ReorderBitstream(buffer.data(), -5, 6, buffer.data() + 1), 0);
  EXPECT_EQ(buffer, after);
}

}  // namespace
