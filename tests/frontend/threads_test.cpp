// Distinct streams converted on distinct threads at once give exactly what
// they give one after another: records and contexts share nothing but
// constant tables. Run under ThreadSanitizer by tools/run_tests.sh.
#include <thread>

#include "frontend/converter_fixture.h"

namespace {

struct Stream {
  unsigned in_rate, out_rate, channels, in_period, out_period;
};

const Stream kStreams[] = {{16000, 48000, 2, 480, 1440}, {48000, 16000, 2, 1440, 480},
                           {44100, 48000, 2, 441, 480},  {48000, 44100, 1, 480, 441},
                           {8000, 48000, 4, 160, 960},   {48000, 8000, 3, 960, 160}};

std::vector<int16_t> convert_stream(const Stream &s) {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  EXPECT_EQ(_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops), 0);
  snd_pcm_rate_info_t info =
      rate_info(s.in_rate, s.out_rate, s.channels, s.in_period, s.out_period);
  EXPECT_EQ(ops.init(obj, &info), 0);
  EXPECT_EQ(ops.adjust_pitch(obj, &info), 0);
  ops.reset(obj);
  std::mt19937_64 rng(s.in_rate + s.out_rate);
  std::vector<int16_t> out, period(size_t(s.out_period) * s.channels);
  for (unsigned p = 0; p < 40; ++p) {
    const std::vector<int16_t> in = random_samples(rng, size_t(s.in_period) * s.channels);
    ops.convert_s16(obj, period.data(), s.out_period, in.data(), s.in_period);
    out.insert(out.end(), period.begin(), period.end());
  }
  ops.free(obj);
  ops.close(obj);
  return out;
}

TEST(Threads, ConcurrentStreamsMatchSerialRuns) {
  constexpr size_t kCount = std::size(kStreams);
  std::vector<std::vector<int16_t>> serial(kCount), parallel(kCount);
  for (size_t i = 0; i < kCount; ++i) serial[i] = convert_stream(kStreams[i]);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kCount; ++i)
    threads.emplace_back([&, i] { parallel[i] = convert_stream(kStreams[i]); });
  for (std::thread &t : threads) t.join();
  for (size_t i = 0; i < kCount; ++i) EXPECT_EQ(parallel[i], serial[i]) << "stream " << i;
}

}  // namespace
