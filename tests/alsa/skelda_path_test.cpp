// SPDX-License-Identifier: MIT
// The skelda module loaded by the real alsa-lib: a rate PCM over a file PCM.
// Whatever periods alsa-lib settles on, what comes out is exact: on the FIR
// path the engine's one-call conversion of each channel (periods and chunks
// leave no seams), on the linear path the reference conversion of each
// period at the pitch those periods call for, and on FIR periods that do not
// convert exactly at the factor the high-quality resampler's one-call
// conversion at the periods' ratio, reported once.
#include <gtest/gtest.h>

#include <random>

#include "tests/support/alsa_pipeline.h"
#include "tests/support/error_capture.h"
#include "tests/support/frontend_reference.h"
#include "tests/support/hq_stream.h"

namespace {

enum Path { kFir, kLinear, kHq };

TEST(AlsaSkeldaPath, OutputIsTheReferenceConversion) {
  const struct {
    unsigned in_rate, out_rate, channels;
    unsigned long period;
    Path path;
  } cases[] = {{48000, 16000, 2, 1020, kFir},   {44100, 22050, 3, 4410, kFir},
               {48000, 8000, 1, 3000, kFir},    {16000, 48000, 4, 1000, kFir},
               {22050, 44100, 1, 512, kFir},    {8000, 48000, 2, 256, kFir},
               {44100, 48000, 2, 1024, kLinear}, {44100, 48000, 1, 441, kLinear},
               {32000, 44100, 3, 700, kLinear},  {48000, 44100, 2, 1024, kLinear},
               {22050, 16000, 4, 512, kLinear},  {48000, 48000, 2, 1000, kLinear},
               {48000, 16000, 2, 1024, kHq},    {44100, 22050, 1, 441, kHq}};
  std::mt19937 rng(7);
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in_rate << " -> " << c.out_rate << ", " << c.channels
                                      << " ch, period " << c.period);
    std::vector<int16_t> input(size_t(c.in_rate) * c.channels);  // one second
    for (int16_t &s : input) s = static_cast<int16_t>(rng());
    const PipelineRequest r{c.in_rate, c.out_rate, c.channels, c.period, true};
    ErrorCapture errors;
    const PipelineResult out = play_through_alsa(r, input);
    ASSERT_EQ(out.error, 0) << out.failed_call;
    EXPECT_EQ(errors.reports().size(), c.path == kHq ? 1u : 0u);
    const bool up = c.out_rate > c.in_rate;
    const unsigned long in_period = out.client_period, out_period = out.slave_period;
    const char *names[] = {"FIR filter", "Linear", "Windowed sinc at periods "};
    const std::string line =
        std::string("RSMPL Converter: ") + names[c.path] +
        (c.path == kHq ? std::to_string(in_period) + " -> " + std::to_string(out_period) : "") +
        (up ? ", UP " : ", DOWN ") + std::to_string(c.in_rate) + " -> " +
        std::to_string(c.out_rate) + "\n";
    EXPECT_NE(out.dump.find(line), std::string::npos) << out.dump;
    const size_t periods = (input.size() / c.channels + in_period - 1) / in_period;
    input.resize(periods * in_period * c.channels, 0);
    ASSERT_EQ(out.output.size(), periods * out_period * c.channels);
    if (c.path == kHq) {
      auto st = hq_test::make_state16(c.in_rate, c.out_rate, c.channels, out_period, in_period);
      std::vector<int16_t> want(out.output.size());
      uint32_t in_n = uint32_t(periods * in_period), out_n = uint32_t(periods * out_period);
      ASSERT_EQ(RSMPL_HqProcess(st.get(), input.data(), &in_n, want.data(), &out_n), RSMPL_OK);
      EXPECT_EQ(out.output, want);
      continue;
    }
    const ref::Pitch pitch = ref::adjust(in_period, out_period, {0, 0, 0});
    ASSERT_EQ(pitch.result, 0) << in_period << " -> " << out_period;
    for (unsigned ch = 0; ch < c.channels; ++ch) {
      const std::vector<int16_t> x = ref::deinterleave(input, c.channels, ch);
      std::vector<int16_t> want;
      int16_t carried = 0;
      bool overflow = false;
      for (size_t k = 0; k < periods && c.path == kLinear; ++k) {
        const std::vector<int16_t> period(x.begin() + k * in_period,
                                          x.begin() + (k + 1) * in_period);
        const std::vector<int16_t> y =
            up ? ref::expand(period, carried, pitch.pitch, pitch.shift, out_period)
               : ref::shrink(period, pitch.pitch, out_period, &overflow);
        want.insert(want.end(), y.begin(), y.end());
      }
      if (c.path == kFir)
        want = ref::fir_stage(x, up ? c.out_rate / c.in_rate : c.in_rate / c.out_rate, up);
      ASSERT_TRUE(ref::deinterleave(out.output, c.channels, ch) == want) << "channel " << ch;
    }
  }
}

}  // namespace
