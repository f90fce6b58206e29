// The linear converters: worked values, channel isolation, overflow bound,
// and a stream of periods joining without a seam.
#include <algorithm>
#include <cmath>

#include "frontend/converter_fixture.h"
#include "support/error_capture.h"

namespace {

class LinearTest : public ConverterTest {
 protected:
  // A record set up for `channels` channels with the given pitch and shift.
  void configure(unsigned in_rate, unsigned out_rate, unsigned channels, uint32_t pitch,
                 uint32_t shift) {
    ASSERT_EQ(init(in_rate, out_rate, channels), 0);
    ops_.reset(obj_);
    rec_->pitch = pitch;
    rec_->pitch_shift = shift;
  }
};

TEST_F(LinearTest, UpByFourInterpolatesFromTheCarriedSample) {
  configure(11025, 44100, 1, 0x200000, 6);
  const int16_t src[] = {400, 800, 1200};
  int16_t dst[8];
  src_linear_expand_s16(obj_, dst, 8, src, 3);
  const int16_t expected[] = {0, 100, 200, 300, 400, 500, 600, 700};
  EXPECT_EQ(std::vector<int16_t>(dst, dst + 8), std::vector<int16_t>(expected, expected + 8));
  EXPECT_EQ(rec_->work[0], 800);
}

TEST_F(LinearTest, UpWithoutInputHoldsTheCarriedSample) {
  configure(11025, 44100, 1, 0x200000, 6);
  rec_->work[0] = -1234;
  std::vector<int16_t> dst(12, 0);
  src_linear_expand_s16(obj_, dst.data(), 12, nullptr, 0);
  EXPECT_EQ(dst, std::vector<int16_t>(12, -1234));
  src_linear_expand_s16(obj_, dst.data(), 0, nullptr, 0);
  EXPECT_EQ(rec_->work[0], -1234);
}

TEST_F(LinearTest, DownByFourPicksEveryFourthFrame) {
  configure(48000, 12000, 1, 0x20000, 0);
  int16_t src[16];
  for (int i = 0; i < 16; ++i) src[i] = static_cast<int16_t>(100 * i);
  int16_t dst[4];
  ErrorCapture errors;
  src_linear_shrink_s16(obj_, dst, 4, src, 16);
  EXPECT_EQ(std::vector<int16_t>(dst, dst + 4), (std::vector<int16_t>{0, 400, 800, 1200}));
  EXPECT_TRUE(errors.reports().empty());
}

TEST_F(LinearTest, DownStopsAtDstFramesAndReportsOncePerChannel) {
  configure(48000, 12000, 2, 0x20000, 0);
  int16_t src[32];
  for (int i = 0; i < 16; ++i) {
    src[2 * i] = static_cast<int16_t>(100 * i);
    src[2 * i + 1] = static_cast<int16_t>(-100 * i);
  }
  int16_t dst[8];
  std::fill(dst, dst + 8, 31111);
  ErrorCapture errors;
  src_linear_shrink_s16(obj_, dst, 3, src, 16);
  EXPECT_EQ(std::vector<int16_t>(dst, dst + 8),
            (std::vector<int16_t>{0, 0, 400, -400, 800, -800, 31111, 31111}));
  ASSERT_EQ(errors.reports().size(), 2u);
  for (const ErrorReport &r : errors.reports()) {
    EXPECT_EQ(r.message, "dst_frames overflow");
    EXPECT_EQ(r.function, "src_linear_shrink_s16");
  }
}

TEST_F(LinearTest, EqualRatesCopyFrameForFrame) {
  configure(48000, 48000, 3, 0x80000, 4);
  std::vector<int16_t> src(3 * 100), dst(3 * 100, 0);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<int16_t>((i * 7919) % 65536 - 32768);
  src_linear_shrink_s16(obj_, dst.data(), 100, src.data(), 100);
  EXPECT_EQ(dst, src);
}

TEST_F(LinearTest, NoChannelsTouchNothing) {
  configure(44100, 48000, 0, 570654, 4);
  int16_t dst[4] = {9, 9, 9, 9};
  src_linear_expand_s16(obj_, dst, 4, nullptr, 4);
  src_linear_shrink_s16(obj_, dst, 4, nullptr, 4);
  EXPECT_EQ(std::vector<int16_t>(dst, dst + 4), std::vector<int16_t>(4, 9));
}

// Each channel's output depends only on that channel's input.
TEST_F(LinearTest, ChannelsAreIndependent) {
  for (bool up : {true, false}) {
    SCOPED_TRACE(up ? "up" : "down");
    const unsigned in_frames = up ? 441 : 480, out_frames = up ? 480 : 441;
    std::vector<int16_t> stereo(2 * in_frames), mono(in_frames);
    for (unsigned i = 0; i < in_frames; ++i) {
      mono[i] = static_cast<int16_t>(12000 * std::sin(i * 0.05));
      stereo[2 * i] = mono[i];
      stereo[2 * i + 1] = static_cast<int16_t>(i * 31);
    }
    std::vector<int16_t> out_stereo(2 * out_frames), out_mono(out_frames);
    snd_pcm_rate_info_t i = info(up ? 44100 : 48000, up ? 48000 : 44100, 2, in_frames, out_frames);
    ASSERT_EQ(ops_.init(obj_, &i), 0);
    ASSERT_EQ(ops_.adjust_pitch(obj_, &i), 0);
    ops_.reset(obj_);
    ops_.convert_s16(obj_, out_stereo.data(), out_frames, stereo.data(), in_frames);
    i.channels = 1;
    ASSERT_EQ(ops_.init(obj_, &i), 0);
    ASSERT_EQ(ops_.adjust_pitch(obj_, &i), 0);
    ops_.reset(obj_);
    ops_.convert_s16(obj_, out_mono.data(), out_frames, mono.data(), in_frames);
    for (unsigned f = 0; f < out_frames; ++f) ASSERT_EQ(out_stereo[2 * f], out_mono[f]) << f;
  }
}

// A slow ramp played period after period through matched periods comes out
// as a ramp: every output step stays within the input's slope, so neither the
// carried sample nor the restarted position leaves a seam.
TEST_F(LinearTest, PeriodsJoinWithoutSeams) {
  const struct {
    unsigned in_rate, out_rate, in_period, out_period;
  } cases[] = {{44100, 48000, 441, 480}, {48000, 44100, 480, 441}, {11025, 44100, 256, 1024},
               {32000, 44100, 320, 441}, {48000, 32000, 960, 640}, {8000, 44100, 80, 441}};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in_rate << " -> " << c.out_rate);
    snd_pcm_rate_info_t i = info(c.in_rate, c.out_rate, 1, c.in_period, c.out_period);
    ASSERT_EQ(ops_.init(obj_, &i), 0);
    ASSERT_EQ(ops_.adjust_pitch(obj_, &i), 0);
    ops_.reset(obj_);
    const int slope = 5;  // per input frame
    std::vector<int16_t> out;
    std::vector<int16_t> period_out(c.out_period);
    std::vector<int16_t> period_in(c.in_period);
    for (unsigned p = 0; p < 8; ++p) {
      for (unsigned k = 0; k < c.in_period; ++k)
        period_in[k] = static_cast<int16_t>(-10000 + slope * int(p * c.in_period + k));
      ops_.convert_s16(obj_, period_out.data(), c.out_period, period_in.data(), c.in_period);
      out.insert(out.end(), period_out.begin(), period_out.end());
    }
    const double step = slope * double(c.in_rate) / c.out_rate;
    for (size_t k = c.out_period + 1; k < out.size(); ++k)
      ASSERT_NEAR(out[k] - out[k - 1], step, 1.01) << "at output frame " << k;
  }
}

}  // namespace

namespace {

// Pitches alsa-lib never produces but a broken configuration might: a zero
// pitch (zero divisor), a shift of 32 or more. Nothing traps, nothing is
// written past dst_frames and only src_frames frames are read.
TEST_F(LinearTest, DegeneratePitchesNeitherTrapNorOverrun) {
  const struct {
    unsigned in_rate, out_rate;
    uint32_t pitch, shift;
  } cases[] = {{44100, 48000, 0, 0}, {44100, 48000, 0x80000, 40}, {48000, 44100, 0, 3},
               {48000, 44100, 0xFFFFFFFFu, 33}, {44100, 48000, 1, 31}};
  for (const auto &c : cases) {
    configure(c.in_rate, c.out_rate, 2, c.pitch, c.shift);
    ErrorCapture errors;
    std::vector<int16_t> src(2 * 64, 1000), dst(2 * 64 + 8, 0x7777);
    const bool up = c.out_rate > c.in_rate;
    if (up)
      src_linear_expand_s16(obj_, dst.data(), 64, src.data(), 64);
    else
      src_linear_shrink_s16(obj_, dst.data(), 64, src.data(), 64);
    for (size_t i = 2 * 64; i < dst.size(); ++i)
      EXPECT_EQ(dst[i], 0x7777) << "pitch " << c.pitch << " shift " << c.shift;
  }
}

}  // namespace
