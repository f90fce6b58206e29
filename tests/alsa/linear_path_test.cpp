// The plugin loaded by the real alsa-lib: a rate PCM with converter "skelda"
// over a file PCM on a null slave.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "support/alsa_pipeline.h"
#include "support/signal.h"

namespace {

std::string converter_line(const std::string &dump) {
  const size_t at = dump.find("RSMPL Converter: ");
  if (at == std::string::npos) return "";
  return dump.substr(at, dump.find('\n', at) - at);
}

TEST(AlsaLinearPath, PluginIsFoundInTheBuildTree) {
  ASSERT_NE(std::getenv("ALSA_PLUGIN_DIR"), nullptr) << "run through ctest";
}

TEST(AlsaLinearPath, EqualRatesPassAudioThroughBitExact) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> sample(-32768, 32767);
  for (unsigned channels : {1u, 2u, 4u}) {
    SCOPED_TRACE(channels);
    std::vector<int16_t> input(channels * 48000);
    for (int16_t &s : input) s = static_cast<int16_t>(sample(rng));
    PipelineRequest r;
    r.in_rate = r.out_rate = 48000;
    r.channels = channels;
    r.period_frames = 1000;
    const PipelineResult out = play_through_alsa(r, input);
    ASSERT_EQ(out.error, 0) << out.failed_call;
    ASSERT_GE(out.output.size(), input.size());
    EXPECT_TRUE(std::equal(input.begin(), input.end(), out.output.begin()));
  }
}

struct ToneCase {
  unsigned in_rate, out_rate;
  unsigned long period;
  const char *converter;
};

// Stereo tones of different frequencies per channel come out at the same
// frequencies at the new rate (as far as the period sizes alsa-lib chose let
// the ratio be exact), with no click anywhere: the frames around each period
// seam are as smooth as the tone is everywhere else.
TEST(AlsaLinearPath, TonesKeepTheirFrequencyAcrossPeriodSeams) {
  const ToneCase cases[] = {
      {44100, 48000, 1024, "RSMPL Converter: Linear, UP 44100 -> 48000"},
      {44100, 48000, 441, "RSMPL Converter: Linear, UP 44100 -> 48000"},
      {44100, 48000, 4410, "RSMPL Converter: Linear, UP 44100 -> 48000"},
      {48000, 44100, 1024, "RSMPL Converter: Linear, DOWN 48000 -> 44100"},
      {48000, 44100, 480, "RSMPL Converter: Linear, DOWN 48000 -> 44100"},
      {48000, 44100, 6000, "RSMPL Converter: Linear, DOWN 48000 -> 44100"},
      {32000, 44100, 700, "RSMPL Converter: Linear, UP 32000 -> 44100"},
      {22050, 16000, 512, "RSMPL Converter: Linear, DOWN 22050 -> 16000"},
  };
  const std::vector<double> tones = {440.0, 1000.0};
  for (const ToneCase &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in_rate << " -> " << c.out_rate << " period " << c.period);
    PipelineRequest r;
    r.in_rate = c.in_rate;
    r.out_rate = c.out_rate;
    r.channels = 2;
    r.period_frames = c.period;
    const size_t frames = c.in_rate * 2;  // two seconds
    const PipelineResult out = play_through_alsa(r, interleaved_sines(c.in_rate, tones, 16000, frames));
    ASSERT_EQ(out.error, 0) << out.failed_call;
    EXPECT_EQ(converter_line(out.dump), c.converter);
    ASSERT_GT(out.slave_period, 0u);
    // One client period becomes one slave period, which fixes the ratio.
    const double ratio = double(out.slave_period) / out.client_period;
    const size_t out_frames = out.output.size() / 2;
    const double expected_frames = frames * ratio;
    // Drain completes the last period, so allow one slave period more.
    EXPECT_GE(double(out_frames), expected_frames - 1);
    EXPECT_LE(double(out_frames), expected_frames + out.slave_period + 1);
    for (unsigned ch = 0; ch < 2; ++ch) {
      SCOPED_TRACE(ch);
      const double hz = tones[ch] * c.out_rate / (c.in_rate * ratio);
      // Skip the start (the converter starts from silence) and the drained tail.
      const size_t first = out.slave_period;
      const std::vector<double> x =
          channel_of(out.output, 2, ch, first, size_t(expected_frames) - 2 * first);
      EXPECT_NEAR(peak_frequency(x, c.out_rate, hz - 5, hz + 5), hz, 0.2);
      EXPECT_LT(residual_db(x, c.out_rate, hz), -30.0);

      // Largest second difference at the seams against everywhere else.
      double at_seams = 0, elsewhere = 0;
      for (size_t k = 1; k + 1 < x.size(); ++k) {
        const double d = std::fabs(x[k + 1] - 2 * x[k] + x[k - 1]);
        const size_t pos = (first + k) % out.slave_period;
        const bool seam = pos <= 1 || pos == out.slave_period - 1;
        (seam ? at_seams : elsewhere) = std::max(seam ? at_seams : elsewhere, d);
      }
      EXPECT_LE(at_seams, elsewhere * 1.02 + 4);
    }
  }
}

}  // namespace
