// SPDX-License-Identifier: MIT
// Distinct streams converted on distinct threads at once give exactly what
// they give one after another: records and contexts share nothing but
// constant tables. Run under ThreadSanitizer by tools/run_tests.sh.
#include <thread>

#include "tests/frontend/converter_fixture.h"

namespace {

// 40 periods of random input through a record of its own.
std::vector<int16_t> convert_stream(snd_pcm_rate_info_t info) {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  EXPECT_EQ(_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops), 0);
  EXPECT_EQ(ops.init(obj, &info), 0);
  EXPECT_EQ(ops.adjust_pitch(obj, &info), 0);
  ops.reset(obj);
  const unsigned in_period = info.in.period_size, out_period = info.out.period_size;
  std::mt19937_64 rng(info.in.rate + info.out.rate);
  std::vector<int16_t> out, period(size_t(out_period) * info.channels);
  for (unsigned p = 0; p < 40; ++p) {
    const std::vector<int16_t> in = random_samples(rng, size_t(in_period) * info.channels);
    ops.convert_s16(obj, period.data(), out_period, in.data(), in_period);
    out.insert(out.end(), period.begin(), period.end());
  }
  ops.free(obj);
  ops.close(obj);
  return out;
}

TEST(Threads, ConcurrentStreamsMatchSerialRuns) {
  const snd_pcm_rate_info_t streams[] = {
      rate_info(16000, 48000, 2, 480, 1440), rate_info(48000, 16000, 2, 1440, 480),
      rate_info(44100, 48000, 2, 441, 480),  rate_info(48000, 44100, 1, 480, 441),
      rate_info(8000, 48000, 4, 160, 960),   rate_info(48000, 8000, 3, 960, 160)};
  std::vector<std::vector<int16_t>> serial, parallel(std::size(streams));
  for (const snd_pcm_rate_info_t &s : streams) serial.push_back(convert_stream(s));
  std::vector<std::thread> threads;
  for (size_t i = 0; i < std::size(streams); ++i)
    threads.emplace_back([&, i] { parallel[i] = convert_stream(streams[i]); });
  for (std::thread &t : threads) t.join();
  for (size_t i = 0; i < std::size(streams); ++i)
    EXPECT_TRUE(parallel[i] == serial[i]) << "stream " << i;
}

}  // namespace
