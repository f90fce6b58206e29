// Converter selection, rebuilding on a second init, and init's failures.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "frontend/converter_fixture.h"

namespace {

enum Kind { kFirUp, kFirDown, kLinearUp, kLinearDown };

struct Selection {
  unsigned in_rate, out_rate;
  Kind kind;
  uint32_t factor;
  int32_t up_code, down_code;
  uint32_t pitch;  // 0: not checked
};

const Selection kSelections[] = {
    {8000, 16000, kFirUp, 2, 1, -1, 0x100000},
    {8000, 24000, kFirUp, 3, 2, -1, 0x180000},
    {8000, 48000, kFirUp, 6, 4, -1, 0x300000},
    {16000, 48000, kFirUp, 3, 2, -1, 0},
    {22050, 44100, kFirUp, 2, 1, -1, 0},
    {11025, 44100, kLinearUp, 0, -1, -1, 0x200000},  // factor 4 is not a FIR path
    {8000, 40000, kLinearUp, 0, -1, -1, 0},          // factor 5
    {44100, 48000, kLinearUp, 0, -1, -1, 570654},
    {48000, 8000, kFirDown, 6, -1, 4, 0},
    {48000, 16000, kFirDown, 3, -1, 2, 0},
    {44100, 22050, kFirDown, 2, -1, 1, 0x40000},
    {48000, 12000, kLinearDown, 0, -1, -1, 0x20000},
    {48000, 44100, kLinearDown, 0, -1, -1, 481690},
    {48000, 48000, kLinearDown, 0, -1, -1, 0x80000},
};

std::string expected_name(const Selection &s) {
  const char *format = s.kind == kFirUp     ? "FIR filter, UP %d -> %d"
                       : s.kind == kFirDown ? "FIR filter, DOWN %d -> %d"
                       : s.kind == kLinearUp ? "Linear, UP %d -> %d"
                                             : "Linear, DOWN %d -> %d";
  char text[64];
  std::snprintf(text, sizeof text, format, static_cast<int>(s.in_rate), static_cast<int>(s.out_rate));
  return text;
}

rsmpl_convert_fn expected_fn(Kind k) {
  switch (k) {
    case kFirUp: return src_fir_up_s16;
    case kFirDown: return src_fir_down_s16;
    case kLinearUp: return src_linear_expand_s16;
    default: return src_linear_shrink_s16;
  }
}

TEST_F(ConverterTest, SelectionFollowsTheRatePair) {
  for (const Selection &s : kSelections) {
    SCOPED_TRACE(expected_name(s));
    ASSERT_EQ(init(s.in_rate, s.out_rate, 2), 0);
    EXPECT_EQ(rec_->factor, s.factor);
    EXPECT_EQ(rec_->up_code, s.up_code);
    EXPECT_EQ(rec_->down_code, s.down_code);
    EXPECT_EQ(rec_->convert_fn, expected_fn(s.kind));
    EXPECT_EQ(rec_->name, expected_name(s));
    if (s.pitch != 0) EXPECT_EQ(rec_->pitch, s.pitch);
  }
}

TEST_F(ConverterTest, DescriptionsFitForAnyTwoRates) {
  ASSERT_EQ(init(4294967295u, 2147483648u, 1), 0);
  EXPECT_STREQ(rec_->name, "Linear, DOWN -1 -> -2147483648");
}

TEST_F(ConverterTest, ChannelCountsUpToFourGetOneContextEach) {
  for (unsigned channels : {4u, 0u, 3u, 1u}) {
    SCOPED_TRACE(channels);
    ASSERT_EQ(init(44100, 48000, channels), 0);
    EXPECT_EQ(rec_->channels, channels);
    for (unsigned c = 0; c < kMaxChannels; ++c)
      EXPECT_EQ(rec_->contexts[c] != nullptr, c < channels) << "slot " << c;
    ASSERT_NE(rec_->work, nullptr);
    EXPECT_STREQ(rec_->name, "Linear, UP 44100 -> 48000");
  }
}

TEST_F(ConverterTest, FreshContextsStartSilent) {
  ASSERT_EQ(init(16000, 48000, 2), 0);
  for (unsigned c = 0; c < 2; ++c) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(rec_->contexts[c]);
    for (unsigned i = 0; i < 3296; ++i) ASSERT_EQ(bytes[i], 0) << "channel " << c;
  }
}

// Rejected parameters leave the record exactly as it was.
TEST_F(ConverterTest, InvalidParametersAreRejectedBeforeAnyChange) {
  ASSERT_EQ(init(8000, 24000, 2), 0);
  const rsmpl_converter before = *rec_;
  const struct {
    unsigned in_rate, out_rate, channels;
  } bad[] = {{44100, 48000, 5}, {44100, 48000, 1000}, {0, 48000, 2}, {48000, 0, 2}, {0, 0, 1}};
  for (const auto &b : bad) {
    EXPECT_EQ(init(b.in_rate, b.out_rate, b.channels), -EINVAL);
    EXPECT_EQ(std::memcmp(&before, rec_, sizeof before), 0);
  }
}

}  // namespace
