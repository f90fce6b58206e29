// SPDX-License-Identifier: MIT
// Long streams through alsa-lib for every path: the output length is exactly
// what the periods promise (no drift), every frame is as smooth as the tone
// (no discontinuity anywhere), and the process's memory stays flat.
//
// SKELDA_SOAK_SECONDS sets the audio per path (default 120, 10 under
// SKELDA_REDUCED); the period size of each path is drawn from
// SKELDA_SOAK_SEED, by default a new seed each run (the seed is printed with
// any failure).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <random>
#include <string>

#include "tests/support/alsa_pipeline.h"
#include "tests/support/workload.h"

namespace {

long resident_kib() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  return -1;
}

TEST(AlsaSoak, LongStreamsKeepLengthSmoothnessAndMemory) {
  const char *seconds_env = std::getenv("SKELDA_SOAK_SECONDS");
  const char *seed_env = std::getenv("SKELDA_SOAK_SEED");
  const unsigned seconds = seconds_env ? std::atoi(seconds_env) : workload(120u, 10u);
  const unsigned seed = seed_env ? std::atoi(seed_env) : std::random_device{}();
  std::mt19937 rng(seed);
  // skelda_hq also on periods that convert exactly (its small ratios' design),
  // and in S32 (its 32-bit resampler).
  const snd_pcm_format_t s16 = SND_PCM_FORMAT_S16_LE, s32 = SND_PCM_FORMAT_S32_LE;
  const struct {
    unsigned in_rate, out_rate;
    const char *converter;
    bool whole;
    snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;
  } paths[] = {{44100, 48000, "skelda", true},          {48000, 44100, "skelda", true},
               {16000, 48000, "skelda", true},          {48000, 16000, "skelda", true},
               {24000, 48000, "skelda", true},          {48000, 24000, "skelda", true},
               {8000, 48000, "skelda", true},           {48000, 8000, "skelda", true},
               {44100, 48000, "skelda_hq", false, s16}, {96000, 44100, "skelda_hq", false, s16},
               {48000, 16000, "skelda_hq", true, s16},  {32000, 48000, "skelda_hq", true, s16},
               {44100, 48000, "skelda_hq", false, s32}, {48000, 16000, "skelda_hq", true, s32}};
  const double tones[2] = {100.0, 170.0}, amplitude = 12000;
  const std::string path = "/tmp/skelda-soak-" + std::to_string(getpid());
  for (const auto &p : paths) {
    // A whole period maps onto a whole slave period: the fixed-ratio FIR
    // path cannot follow a slave period alsa-lib had to round.
    const unsigned step = p.in_rate / std::gcd(p.in_rate, p.out_rate);
    const unsigned period = p.whole ? step * (1 + rng() % (4096 / step)) : 64 + rng() % (4096 - 63);
    SCOPED_TRACE(::testing::Message() << p.converter << " " << p.in_rate << " -> " << p.out_rate
                                      << ", period " << period << ", seed " << seed << ", "
                                      << seconds << " s");
    const uint64_t in_frames = uint64_t(seconds) * p.in_rate;
    const uint64_t fade = p.in_rate / 2;  // the end fades out, so drain's silence joins smoothly
    uint64_t at = 0;
    long rss_early = -1, rss_late = -1;
    PipelineRequest r{p.in_rate, p.out_rate, 2, period, false, p.converter};
    r.format = r.slave_format = p.format;
    const bool wide = p.format == s32;
    const PipelineResult result = stream_through_alsa(r, path, [&](void *frames, size_t wanted) {
      if (rss_early < 0 && at > in_frames / 10) rss_early = resident_kib();
      size_t n = 0;
      for (; n < wanted && at < in_frames; ++n, ++at) {
        const double gain = at + fade > in_frames ? double(in_frames - at) / fade : 1.0;
        for (int c = 0; c < 2; ++c) {
          const double v = gain * amplitude * std::sin(2 * M_PI * tones[c] * double(at) / p.in_rate);
          if (wide)
            static_cast<int32_t *>(frames)[2 * n + c] = int32_t(std::lround(65536 * v));
          else
            static_cast<int16_t *>(frames)[2 * n + c] = int16_t(std::lround(v));
        }
      }
      if (n == 0) rss_late = resident_kib();
      return n;
    });
    ASSERT_EQ(result.error, 0) << result.failed_call;

    // The largest second difference of each channel, past the first frames.
    FILE *out = std::fopen(path.c_str(), "rb");
    ASSERT_NE(out, nullptr);
    uint64_t frames = 0;
    int32_t x[2];  // S32 frames, or two S16 frames read as such
    double history[2][2] = {}, largest[2] = {};
    int16_t s[2];
    for (; wide ? std::fread(x, sizeof x, 1, out) == 1 : std::fread(s, sizeof s, 1, out) == 1; ++frames)
      for (int c = 0; c < 2; ++c) {
        const double v = wide ? x[c] / 65536.0 : s[c];
        if (frames >= 256)
          largest[c] = std::max(largest[c], std::fabs(v - 2 * history[c][1] + history[c][0]));
        history[c][0] = history[c][1];
        history[c][1] = v;
      }
    std::fclose(out);
    std::remove(path.c_str());
    // Every client period became one slave period; drain converts the last
    // partial period into its share of a slave period.
    const uint64_t whole = in_frames / result.client_period;
    const double rest = double(in_frames % result.client_period) * result.slave_period /
                        result.client_period;
    EXPECT_NEAR(double(frames), double(whole * result.slave_period) + rest, 1.0);
    for (int c = 0; c < 2; ++c) {
      const double w = 2 * M_PI * tones[c] / std::min(p.in_rate, p.out_rate);
      EXPECT_LT(largest[c], 1.1 * 1.03 * amplitude * w * w + 24) << "channel " << c;
    }
    EXPECT_LT(rss_late - rss_early, 2048) << "resident memory grew (KiB)";
    std::printf("soak %s %s %u -> %u, period %lu -> %lu: %llu frames out, largest second difference"
                " %.0f / %.0f, resident memory %+ld KiB\n", p.converter, snd_pcm_format_name(p.format), p.in_rate, p.out_rate,
                result.client_period, result.slave_period, (unsigned long long)frames, largest[0],
                largest[1], rss_late - rss_early);
  }
}

}  // namespace
