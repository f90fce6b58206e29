// Long streams through alsa-lib for every path, analysed as they come out of
// a FIFO: the output length is exactly what the periods promise (no drift),
// every frame is as smooth as the tone (no discontinuity anywhere), and the
// process's memory stays flat.
//
// SKELDA_SOAK_SECONDS sets the audio per path (default 120, 10 under
// SKELDA_REDUCED); the period size
// of each path is drawn from SKELDA_SOAK_SEED, by default a new seed each run
// (the seed is printed with any failure).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <thread>

#include "support/alsa_pipeline.h"
#include "support/workload.h"

namespace {

long resident_kib() {
  std::ifstream status("/proc/self/status");
  std::string key;
  while (status >> key) {
    long value;
    if (key == "VmRSS:" && status >> value) return value;
  }
  return -1;
}

unsigned env_or(const char *name, unsigned fallback) {
  const char *v = std::getenv(name);
  return v ? static_cast<unsigned>(std::strtoul(v, nullptr, 10)) : fallback;
}

struct Analysis {
  uint64_t frames = 0;
  double largest_step[2] = {0, 0};  // largest second difference per channel
  long rss_early = -1, rss_late = -1;
};

// Reads interleaved stereo from the FIFO until the writer closes it.
void analyse(const std::string &fifo, uint64_t expected_frames, Analysis &a) {
  const int fd = open(fifo.c_str(), O_RDONLY);
  if (fd < 0) return;
  std::vector<int16_t> buffer(8192);
  double history[2][2] = {{0, 0}, {0, 0}};
  size_t carry = 0;  // bytes of a split sample pair kept from the last read
  std::vector<char> bytes(sizeof(int16_t) * buffer.size());
  for (;;) {
    const ssize_t n = read(fd, bytes.data() + carry, bytes.size() - carry);
    if (n <= 0) break;
    const size_t total = carry + size_t(n);
    const size_t frames = total / 4;
    std::memcpy(buffer.data(), bytes.data(), frames * 4);
    for (size_t f = 0; f < frames; ++f, ++a.frames) {
      for (int c = 0; c < 2; ++c) {
        const double x = buffer[2 * f + c];
        if (a.frames >= 256) {
          const double d = std::fabs(x - 2 * history[c][1] + history[c][0]);
          if (d > a.largest_step[c]) a.largest_step[c] = d;
        }
        history[c][0] = history[c][1];
        history[c][1] = x;
      }
    }
    carry = total - frames * 4;
    std::memmove(bytes.data(), bytes.data() + frames * 4, carry);
    if (a.rss_early < 0 && a.frames > expected_frames / 10) a.rss_early = resident_kib();
  }
  a.rss_late = resident_kib();
  close(fd);
}

struct SoakPath {
  unsigned in_rate, out_rate;
  const char *converter;
  bool whole = false;  // skelda_hq: periods that convert exactly (its small ratios' design)
};

TEST(AlsaSoak, LongStreamsKeepLengthSmoothnessAndMemory) {
  const unsigned seconds = env_or("SKELDA_SOAK_SECONDS", workload(120u, 10u));
  const unsigned seed = env_or("SKELDA_SOAK_SEED", unsigned(std::chrono::steady_clock::now()
                                                                 .time_since_epoch()
                                                                 .count()));
  std::mt19937 rng(seed);
  const SoakPath paths[] = {
      {44100, 48000, "skelda"},    {48000, 44100, "skelda"}, {16000, 48000, "skelda"},
      {48000, 16000, "skelda"},    {24000, 48000, "skelda"}, {48000, 24000, "skelda"},
      {8000, 48000, "skelda"},     {48000, 8000, "skelda"},  {44100, 48000, "skelda_hq"},
      {96000, 44100, "skelda_hq"}, {48000, 16000, "skelda_hq", true},
      {32000, 48000, "skelda_hq", true}};
  const double tones[2] = {100.0, 170.0}, amplitude = 12000;
  for (const SoakPath &p : paths) {
    // A period that maps onto a whole slave period: the fixed-ratio FIR path
    // cannot follow a slave period alsa-lib had to round. skelda_hq runs at
    // the periods' ratio, so any period will do (whole ones keep it on the
    // ratio of the rates).
    const bool hq = std::string(p.converter) == "skelda_hq";
    const unsigned step = hq && !p.whole ? 1 : p.in_rate / std::gcd(p.in_rate, p.out_rate);
    const unsigned period = hq && !p.whole ? 64 + rng() % (4096 - 63) : step * (1 + rng() % (4096 / step));
    SCOPED_TRACE(::testing::Message() << p.converter << " " << p.in_rate << " -> " << p.out_rate
                                      << ", period " << period << ", seed " << seed << ", "
                                      << seconds << " s");
    const std::string fifo = "/tmp/skelda-soak-" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const uint64_t in_frames = uint64_t(seconds) * p.in_rate;
    const uint64_t fade = p.in_rate / 2;  // the end fades out, so drain's silence joins smoothly
    Analysis a;
    std::thread reader(analyse, fifo, in_frames * p.out_rate / p.in_rate, std::ref(a));
    uint64_t at = 0;
    PipelineRequest r;
    r.in_rate = p.in_rate;
    r.out_rate = p.out_rate;
    r.channels = 2;
    r.period_frames = period;
    r.converter = p.converter;
    const PipelineResult result = stream_through_alsa(r, fifo, [&](int16_t *frames, size_t wanted) {
      size_t n = 0;
      for (; n < wanted && at < in_frames; ++n, ++at) {
        const double gain = at + fade > in_frames ? double(in_frames - at) / fade : 1.0;
        for (int c = 0; c < 2; ++c)
          frames[2 * n + c] = static_cast<int16_t>(
              std::lround(gain * amplitude * std::sin(2 * M_PI * tones[c] * double(at) / p.in_rate)));
      }
      return n;
    });
    if (result.error != 0) {
      // Unblock the reader if the writer never opened the FIFO.
      const int fd = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
      if (fd >= 0) close(fd);
    }
    reader.join();
    unlink(fifo.c_str());
    ASSERT_EQ(result.error, 0) << result.failed_call;

    // Every client period became one slave period; drain converts the last
    // partial period into its share of a slave period.
    const uint64_t whole = in_frames / result.client_period;
    const double rest = double(in_frames % result.client_period) * result.slave_period /
                        result.client_period;
    EXPECT_NEAR(double(a.frames), double(whole * result.slave_period) + rest, 1.0);
    for (int c = 0; c < 2; ++c) {
      const double w = 2 * M_PI * tones[c] / std::min(p.in_rate, p.out_rate);
      EXPECT_LT(a.largest_step[c], 1.1 * 1.03 * amplitude * w * w + 24) << "channel " << c;
    }
    EXPECT_LT(a.rss_late - a.rss_early, 2048) << "resident memory grew (KiB)";
    std::printf("soak %s %u -> %u, %u s, period %lu -> %lu: %llu frames out, largest second "
                "difference %.0f / %.0f, resident memory %+ld KiB\n",
                p.converter, p.in_rate, p.out_rate, seconds, result.client_period, result.slave_period,
                static_cast<unsigned long long>(a.frames), a.largest_step[0], a.largest_step[1],
                a.rss_late - a.rss_early);
  }
}

}  // namespace
