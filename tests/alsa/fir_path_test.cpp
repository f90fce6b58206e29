// The FIR path through the real alsa-lib: whatever periods alsa-lib chooses,
// the stream that comes out is the engine's one-call conversion of each
// channel, so periods and chunks leave no seams.
#include <gtest/gtest.h>

#include <random>

#include "support/alsa_pipeline.h"
#include "support/engine_reference.h"
#include "support/signal.h"

namespace {

struct FirCase {
  unsigned in_rate, out_rate, channels;
  unsigned long period;
  const char *converter;
};

TEST(AlsaFirPath, OutputIsTheEngineConversionOfEachChannel) {
  const FirCase cases[] = {
      {48000, 16000, 2, 1020, "RSMPL Converter: FIR filter, DOWN 48000 -> 16000"},
      {48000, 16000, 1, 6000, "RSMPL Converter: FIR filter, DOWN 48000 -> 16000"},
      {16000, 48000, 2, 1000, "RSMPL Converter: FIR filter, UP 16000 -> 48000"},
      {16000, 48000, 4, 333, "RSMPL Converter: FIR filter, UP 16000 -> 48000"},
      {44100, 22050, 2, 4410, "RSMPL Converter: FIR filter, DOWN 44100 -> 22050"},
      {44100, 22050, 3, 512, "RSMPL Converter: FIR filter, DOWN 44100 -> 22050"},
      {8000, 24000, 1, 160, "RSMPL Converter: FIR filter, UP 8000 -> 24000"},
      {8000, 24000, 4, 2000, "RSMPL Converter: FIR filter, UP 8000 -> 24000"},
      {8000, 48000, 2, 256, "RSMPL Converter: FIR filter, UP 8000 -> 48000"},
      {48000, 8000, 2, 3000, "RSMPL Converter: FIR filter, DOWN 48000 -> 8000"},
  };
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> sample(-20000, 20000);
  for (const FirCase &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in_rate << " -> " << c.out_rate << ", " << c.channels
                                      << " ch, period " << c.period);
    const bool up = c.out_rate > c.in_rate;
    const unsigned factor = up ? c.out_rate / c.in_rate : c.in_rate / c.out_rate;
    std::vector<int16_t> input(size_t(c.in_rate) * c.channels);  // one second
    for (int16_t &s : input) s = static_cast<int16_t>(sample(rng));
    PipelineRequest r;
    r.in_rate = c.in_rate;
    r.out_rate = c.out_rate;
    r.channels = c.channels;
    r.period_frames = c.period;
    const PipelineResult out = play_through_alsa(r, input);
    ASSERT_EQ(out.error, 0) << out.failed_call;
    EXPECT_NE(out.dump.find(c.converter), std::string::npos) << out.dump;
    ASSERT_GT(out.client_period, 0u);
    // At drain alsa-lib either converts the last partial period as it is or
    // completes it with silence; either way the output is a prefix of the
    // conversion of the input padded to whole periods.
    const size_t frames = input.size() / c.channels;
    const size_t periods = (frames + out.client_period - 1) / out.client_period;
    std::vector<int16_t> padded = input;
    padded.resize(periods * out.client_period * c.channels, 0);
    const size_t exact = up ? frames * factor : frames / factor;
    const size_t whole = up ? padded.size() / c.channels * factor : padded.size() / c.channels / factor;
    for (unsigned ch = 0; ch < c.channels; ++ch) {
      std::vector<int16_t> expected =
          engine_convert_channel(deinterleave(padded, c.channels, ch), factor, up);
      const std::vector<int16_t> got = deinterleave(out.output, c.channels, ch);
      ASSERT_TRUE(got.size() == exact || got.size() == whole)
          << "channel " << ch << ": " << got.size() << " frames";
      expected.resize(got.size());
      ASSERT_TRUE(got == expected) << "channel " << ch;
    }
  }
}

// A 1 kHz tone comes out at 1 kHz with the noise and distortion of a 16-bit
// FIR path, far below what linear interpolation leaves.
TEST(AlsaFirPath, ToneKeepsItsFrequencyThroughEachFactor) {
  const struct {
    unsigned in_rate, out_rate;
  } pairs[] = {{48000, 16000}, {16000, 48000}, {44100, 22050}, {8000, 24000}, {8000, 48000}, {48000, 8000}};
  for (const auto &p : pairs) {
    SCOPED_TRACE(::testing::Message() << p.in_rate << " -> " << p.out_rate);
    const double hz = 1000;
    PipelineRequest r;
    r.in_rate = p.in_rate;
    r.out_rate = p.out_rate;
    r.channels = 1;
    r.period_frames = 1200;
    const PipelineResult out =
        play_through_alsa(r, interleaved_sines(p.in_rate, {hz}, 16000, p.in_rate));
    ASSERT_EQ(out.error, 0) << out.failed_call;
    const size_t frames = out.output.size();
    const std::vector<double> x = channel_of(out.output, 1, 0, 200, frames * 3 / 4);
    EXPECT_NEAR(peak_frequency(x, p.out_rate, hz - 5, hz + 5), hz, 0.2);
    EXPECT_LT(residual_db(x, p.out_rate, hz), -60.0);
  }
}

}  // namespace
