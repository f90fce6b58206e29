// A converter record opened through the plugin entry, freed and closed the
// way alsa-lib does at the end of a test.
#ifndef SKELDA_TESTS_CONVERTER_FIXTURE_H
#define SKELDA_TESTS_CONVERTER_FIXTURE_H

#include <gtest/gtest.h>

#include "src/rate_rsmpl.h"

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

  static snd_pcm_rate_info_t info(unsigned in_rate, unsigned out_rate, unsigned channels,
                                  snd_pcm_uframes_t in_period = 0,
                                  snd_pcm_uframes_t out_period = 0) {
    snd_pcm_rate_info_t i{};
    i.in.rate = in_rate;
    i.out.rate = out_rate;
    i.in.period_size = in_period;
    i.out.period_size = out_period;
    i.channels = channels;
    return i;
  }

  int init(unsigned in_rate, unsigned out_rate, unsigned channels) {
    snd_pcm_rate_info_t i = info(in_rate, out_rate, channels);
    return ops_.init(obj_, &i);
  }

  void *obj_ = nullptr;
  snd_pcm_rate_ops_t ops_{};
  rsmpl_converter *rec_ = nullptr;
};

#endif
