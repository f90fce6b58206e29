// SPDX-License-Identifier: MIT
// A converter record opened through the plugin entry, freed and closed the
// way alsa-lib does at the end of a test.
#ifndef SKELDA_TESTS_CONVERTER_FIXTURE_H
#define SKELDA_TESTS_CONVERTER_FIXTURE_H

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "src/rate_rsmpl.h"

inline snd_pcm_rate_info_t rate_info(unsigned in_rate, unsigned out_rate, unsigned channels,
                                     snd_pcm_uframes_t in_period = 0,
                                     snd_pcm_uframes_t out_period = 0) {
  return {{SND_PCM_FORMAT_S16, in_rate, 0, in_period},
          {SND_PCM_FORMAT_S16, out_rate, 0, out_period},
          channels};
}

// One sample in eight at full scale, where sums of products can wrap.
inline std::vector<int16_t> random_samples(std::mt19937_64 &rng, size_t n) {
  std::vector<int16_t> x(n);
  for (int16_t &s : x) {
    const uint64_t r = rng();
    s = r % 8 ? static_cast<int16_t>(r >> 16) : r & 8 ? 32767 : -32768;
  }
  return x;
}

class ConverterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj_, &ops_), 0);
    rec_ = static_cast<rsmpl_converter *>(obj_);
  }
  void TearDown() override {
    ops_.free(obj_);
    ops_.close(obj_);
  }
  // A new record, as for another stream.
  void reopen() {
    TearDown();
    SetUp();
  }
  int init(unsigned in_rate, unsigned out_rate, unsigned channels) {
    info_ = rate_info(in_rate, out_rate, channels);
    return ops_.init(obj_, &info_);
  }
  // With the rates and channels of the last init.
  int adjust(snd_pcm_uframes_t in_period, snd_pcm_uframes_t out_period) {
    info_.in.period_size = in_period;
    info_.out.period_size = out_period;
    return ops_.adjust_pitch(obj_, &info_);
  }

  void *obj_ = nullptr;
  snd_pcm_rate_ops_t ops_{};
  rsmpl_converter *rec_ = nullptr;
  snd_pcm_rate_info_t info_{};
};

#endif
