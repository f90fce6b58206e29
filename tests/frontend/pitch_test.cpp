// Frame arithmetic and the search for the pitch that matches the periods.
#include <cerrno>
#include <limits>

#include "frontend/converter_fixture.h"
#include "support/error_capture.h"

namespace {

TEST_F(ConverterTest, FrameCountsRoundAsDocumented) {
  const struct {
    uint32_t pitch;
    snd_pcm_uframes_t frames, input, output;
  } cases[] = {
      {0x80000, 0, 0, 0},    {0x80000, 1234, 1234, 1234}, {570654, 480, 441, 522},
      {570654, 441, 405, 480}, {0x300000, 6, 1, 36},      {0x300000, 1, 0, 6},
      {0x300000, 3, 1, 18},  {12345, 0, 0, 0},
      // Products of frames and pitch past 32 bits, as on 32-bit targets.
      {0x300000, 2048, 341, 12288}, {0x300000, 16384, 2731, 98304},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.frames);
    rec_->pitch = c.pitch;
    EXPECT_EQ(ops_.input_frames(obj_, c.frames), c.input);
    EXPECT_EQ(ops_.output_frames(obj_, c.frames), c.output);
  }
}

TEST_F(ConverterTest, FrameCountsNeverDivideByAZeroPitch) {
  rec_->pitch = 0;
  EXPECT_EQ(ops_.input_frames(obj_, 100), 0u);
  EXPECT_EQ(ops_.output_frames(obj_, 100), 0u);
}

struct PitchCase {
  snd_pcm_uframes_t in_period, out_period;
  int result;
  uint32_t pitch;
  uint32_t shift;  // expected pitch_shift; kUnchanged keeps the earlier one
};
constexpr uint32_t kUnchanged = 99;

const PitchCase kPitchCases[] = {
    {441, 480, 0, 570654, 4},
    {1024, 1115, 0, 570880, 4},
    {1115, 1024, 0, 481499, kUnchanged},
    {1024, 2048, 0, 0x100000, 5},
    {1024, 6144, 0, 0x300000, 6},
    {1024, 1024, 0, 0x80000, 4},
    {1, 1000, 0, 524288000, 13},
    {740, 1, -EIO, 709, kUnchanged},
    {0, 0, 0, 0, kUnchanged},
};

TEST_F(ConverterTest, AdjustPitchMatchesThePeriods) {
  ErrorCapture errors;
  for (const PitchCase &c : kPitchCases) {
    SCOPED_TRACE(::testing::Message() << c.in_period << " -> " << c.out_period);
    errors.clear();
    rec_->pitch_shift = kUnchanged;
    snd_pcm_rate_info_t i = info(44100, 48000, 1, c.in_period, c.out_period);
    EXPECT_EQ(ops_.adjust_pitch(obj_, &i), c.result);
    EXPECT_EQ(rec_->pitch, c.pitch);
    EXPECT_EQ(rec_->pitch_shift, c.shift);
    if (c.result == 0 && c.out_period != 0) EXPECT_EQ(ops_.input_frames(obj_, c.out_period), c.in_period);
    if (c.result == 0 && c.pitch >= 0x80000) EXPECT_LE(rec_->pitch >> rec_->pitch_shift, 0xFFFFu);
    EXPECT_EQ(errors.reports().size(), c.result == 0 ? 0u : 1u);
  }
}

TEST_F(ConverterTest, FailedSearchIsReportedThroughTheErrorHook) {
  ErrorCapture errors;
  snd_pcm_rate_info_t i = info(48000, 8000, 1, 740, 1);
  ASSERT_EQ(ops_.adjust_pitch(obj_, &i), -EIO);
  ASSERT_EQ(errors.reports().size(), 1u);
  const ErrorReport &r = errors.reports()[0];
  EXPECT_EQ(r.message, "invalid pcm period_size 740 -> 1");
  EXPECT_EQ(r.function, "pcm_rsmpl_adjust_pitch");
  EXPECT_EQ(r.file, "src/rate_rsmpl.cpp");
  EXPECT_EQ(r.err, 0);
}

// Period pairs no pitch can serve fail promptly with a report, whatever the
// sizes: a zero side, a ratio beyond the 32-bit pitch, absurd sizes.
TEST_F(ConverterTest, UnservablePeriodsFailWithoutDividingOrLooping) {
  const struct {
    uint64_t in_period, out_period;
  } cases[] = {{1024, 0}, {0, 1024}, {1, 100000}, {1, 8192}, {1ull << 50, 1}, {1, 1ull << 50},
               {1ull << 40, 3}, {4000000000ull, 1}};
  ErrorCapture errors;
  for (const auto &c : cases) {
    // Sizes past 32 bits cannot be asked for where alsa-lib counts frames
    // in 32 bits.
    if (c.in_period > std::numeric_limits<snd_pcm_uframes_t>::max() ||
        c.out_period > std::numeric_limits<snd_pcm_uframes_t>::max())
      continue;
    SCOPED_TRACE(::testing::Message() << c.in_period << " -> " << c.out_period);
    errors.clear();
    snd_pcm_rate_info_t i = info(8000, 48000, 1, c.in_period, c.out_period);
    EXPECT_EQ(ops_.adjust_pitch(obj_, &i), -EIO);
    ASSERT_EQ(errors.reports().size(), 1u);
    EXPECT_EQ(errors.reports()[0].function, "pcm_rsmpl_adjust_pitch");
  }
}

TEST_F(ConverterTest, DownsamplingPeriodsKeepAnEarlierShift) {
  snd_pcm_rate_info_t up = info(8000, 48000, 1, 1024, 6144);
  ASSERT_EQ(ops_.adjust_pitch(obj_, &up), 0);
  snd_pcm_rate_info_t down = info(48000, 8000, 1, 6144, 1024);
  ASSERT_EQ(ops_.adjust_pitch(obj_, &down), 0);
  EXPECT_EQ(rec_->pitch, 0x15555u);
  EXPECT_EQ(rec_->pitch_shift, 6u);
}

// Over a sweep of realistic period pairs the pitch found always maps the
// output period back onto the input period exactly.
TEST_F(ConverterTest, AdjustedPitchRoundTripsRealisticPeriods) {
  for (snd_pcm_uframes_t in_period = 32; in_period <= 8192; in_period += 97) {
    for (unsigned num : {1u, 2u, 3u, 5u, 7u, 11u, 13u}) {
      for (unsigned den : {1u, 2u, 3u, 6u}) {
        const snd_pcm_uframes_t out_period = in_period * num / den;
        if (out_period == 0) continue;
        snd_pcm_rate_info_t i = info(8000, 48000, 1, in_period, out_period);
        ASSERT_EQ(ops_.adjust_pitch(obj_, &i), 0) << in_period << " -> " << out_period;
        ASSERT_EQ(ops_.input_frames(obj_, out_period), in_period);
      }
    }
  }
}

}  // namespace
