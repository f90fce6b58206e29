// Distinct streams converted on distinct threads at once give exactly what
// they give one after another: nothing is shared between records or
// contexts but constant tables. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "src/rate_rsmpl.h"

namespace {

struct Stream {
  unsigned in_rate, out_rate, channels, in_period, out_period;
};

const Stream kStreams[] = {
    {16000, 48000, 2, 480, 1440}, {48000, 16000, 2, 1440, 480}, {44100, 48000, 2, 441, 480},
    {48000, 44100, 1, 480, 441},  {8000, 48000, 4, 160, 960},   {48000, 8000, 3, 960, 160},
    {44100, 22050, 2, 1024, 512}, {22050, 44100, 1, 512, 1024},
};

std::vector<int16_t> convert_stream(const Stream &s, unsigned periods) {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  EXPECT_EQ(_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops), 0);
  snd_pcm_rate_info_t info{};
  info.in.rate = s.in_rate;
  info.out.rate = s.out_rate;
  info.in.period_size = s.in_period;
  info.out.period_size = s.out_period;
  info.channels = s.channels;
  EXPECT_EQ(ops.init(obj, &info), 0);
  EXPECT_EQ(ops.adjust_pitch(obj, &info), 0);
  ops.reset(obj);
  std::mt19937 rng(s.in_rate ^ s.out_rate ^ s.channels);
  std::uniform_int_distribution<int> sample(-32768, 32767);
  std::vector<int16_t> in(size_t(s.in_period) * s.channels), out, period(size_t(s.out_period) * s.channels);
  for (unsigned p = 0; p < periods; ++p) {
    for (int16_t &x : in) x = static_cast<int16_t>(sample(rng));
    ops.convert_s16(obj, period.data(), s.out_period, in.data(), s.in_period);
    out.insert(out.end(), period.begin(), period.end());
  }
  ops.free(obj);
  ops.close(obj);
  return out;
}

TEST(Threads, ConcurrentStreamsMatchSerialRuns) {
  constexpr unsigned kPeriods = 40;
  constexpr size_t kCount = sizeof kStreams / sizeof kStreams[0];
  std::vector<std::vector<int16_t>> serial(kCount), parallel(kCount);
  for (size_t i = 0; i < kCount; ++i) serial[i] = convert_stream(kStreams[i], kPeriods);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kCount; ++i)
    threads.emplace_back([&, i] { parallel[i] = convert_stream(kStreams[i], kPeriods); });
  for (std::thread &t : threads) t.join();
  for (size_t i = 0; i < kCount; ++i) EXPECT_EQ(parallel[i], serial[i]) << "stream " << i;
}

}  // namespace
