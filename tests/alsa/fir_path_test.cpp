// The FIR path loaded by the real alsa-lib: whatever periods alsa-lib
// chooses, the stream that comes out is the engine's one-call conversion of
// each channel, so periods and chunks leave no seams.
#include <gtest/gtest.h>

#include <random>

#include "support/alsa_pipeline.h"
#include "support/engine_reference.h"

namespace {

TEST(AlsaFirPath, OutputIsTheEngineConversionOfEachChannel) {
  const struct {
    unsigned in_rate, out_rate, channels;
    unsigned long period;
    const char *converter;
  } cases[] = {{48000, 16000, 2, 1020, "FIR filter, DOWN 48000 -> 16000"},
               {44100, 22050, 3, 4410, "FIR filter, DOWN 44100 -> 22050"},
               {48000, 8000, 1, 3000, "FIR filter, DOWN 48000 -> 8000"},
               {16000, 48000, 4, 1000, "FIR filter, UP 16000 -> 48000"},
               {22050, 44100, 1, 512, "FIR filter, UP 22050 -> 44100"},
               {8000, 48000, 2, 256, "FIR filter, UP 8000 -> 48000"}};
  std::mt19937 rng(11);
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message()
                 << c.converter << ", " << c.channels << " ch, period " << c.period);
    const bool up = c.out_rate > c.in_rate;
    const unsigned factor = up ? c.out_rate / c.in_rate : c.in_rate / c.out_rate;
    std::vector<int16_t> input(size_t(c.in_rate) * c.channels);  // one second
    for (int16_t &s : input) s = static_cast<int16_t>(rng());
    PipelineRequest r;
    r.in_rate = c.in_rate;
    r.out_rate = c.out_rate;
    r.channels = c.channels;
    r.period_frames = c.period;
    r.pad_last_period = true;
    const PipelineResult out = play_through_alsa(r, input);
    ASSERT_EQ(out.error, 0) << out.failed_call;
    EXPECT_NE(out.dump.find(std::string("RSMPL Converter: ") + c.converter + "\n"),
              std::string::npos)
        << out.dump;
    const size_t periods = (input.size() / c.channels + out.client_period - 1) / out.client_period;
    input.resize(periods * out.client_period * c.channels, 0);
    for (unsigned ch = 0; ch < c.channels; ++ch)
      ASSERT_TRUE(deinterleave(out.output, c.channels, ch) ==
                  engine_convert_channel(deinterleave(input, c.channels, ch), factor, up))
          << "channel " << ch;
  }
}

}  // namespace
