// SPDX-License-Identifier: MIT
#include "tests/support/alsa_pipeline.h"

#include <alsa/asoundlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace {

// The first failing call ends the run and is reported.
#define CHECK_ALSA(call)                   \
  do {                                     \
    if (const int rc_ = (call); rc_ < 0) { \
      result.error = rc_;                  \
      result.failed_call = #call;          \
      return;                              \
    }                                      \
  } while (0)

void run(const PipelineRequest &r, const FrameSource &produce, const std::string &path,
         PipelineResult &result) {
  const std::string text = "pcm.under_test { type rate converter \"" + r.converter +
                           "\" slave { pcm { type file slave.pcm { type null } file \"" + path +
                           "\" format raw } rate " + std::to_string(r.out_rate) +
                           " format S16_LE } }";
  snd_config_t *top = nullptr;
  snd_input_t *in = nullptr;
  snd_pcm_t *pcm = nullptr;
  CHECK_ALSA(snd_config_top(&top));
  CHECK_ALSA(snd_input_buffer_open(&in, text.c_str(), static_cast<ssize_t>(text.size())));
  const int loaded = snd_config_load(top, in);
  snd_input_close(in);
  CHECK_ALSA(loaded);
  const int opened = snd_pcm_open_lconf(&pcm, "under_test", SND_PCM_STREAM_PLAYBACK, 0, top);
  snd_config_delete(top);
  CHECK_ALSA(opened);
  const std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t *)> closer(pcm, snd_pcm_close);

  snd_pcm_hw_params_t *hw;
  snd_pcm_hw_params_alloca(&hw);
  CHECK_ALSA(snd_pcm_hw_params_any(pcm, hw));
  CHECK_ALSA(snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED));
  CHECK_ALSA(snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE));
  CHECK_ALSA(snd_pcm_hw_params_set_channels(pcm, hw, r.channels));
  CHECK_ALSA(snd_pcm_hw_params_set_rate(pcm, hw, r.in_rate, 0));
  snd_pcm_uframes_t period = r.period_frames;
  int dir = 0;
  if (period != 0) {
    CHECK_ALSA(snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, &dir));
    snd_pcm_uframes_t buffer = period * 4;
    CHECK_ALSA(snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &buffer));
  } else {
    unsigned buffer_us = 500000, period_us = 125000;
    CHECK_ALSA(snd_pcm_hw_params_set_buffer_time_near(pcm, hw, &buffer_us, &dir));
    CHECK_ALSA(snd_pcm_hw_params_set_period_time_near(pcm, hw, &period_us, &dir));
  }
  CHECK_ALSA(snd_pcm_hw_params(pcm, hw));
  CHECK_ALSA(snd_pcm_hw_params_get_period_size(hw, &period, &dir));
  result.client_period = period;

  snd_output_t *out = nullptr;
  CHECK_ALSA(snd_output_buffer_open(&out));
  snd_pcm_dump(pcm, out);
  char *dumped = nullptr;
  const size_t size = snd_output_buffer_string(out, &dumped);
  result.dump.assign(dumped, size);
  snd_output_close(out);
  // The slave's own setup follows "Slave:" in the dump.
  const size_t period_at = result.dump.find("period_size", result.dump.find("Slave:"));
  if (period_at != std::string::npos)
    result.slave_period = std::strtoul(&result.dump[result.dump.find(':', period_at) + 1],
                                       nullptr, 10);

  std::vector<int16_t> chunk(size_t(period) * r.channels);
  while (const size_t frames = produce(chunk.data(), period)) {
    snd_pcm_sframes_t n = 0;
    for (size_t done = 0; done < frames; done += size_t(n))
      CHECK_ALSA(n = snd_pcm_writei(pcm, chunk.data() + done * r.channels, frames - done));
  }
  CHECK_ALSA(snd_pcm_drain(pcm));
}

}  // namespace

PipelineResult play_through_alsa(const PipelineRequest &request,
                                 const std::vector<int16_t> &interleaved_input) {
  char path[] = "/tmp/skelda-pipeline-XXXXXX";
  close(mkstemp(path));
  size_t at = 0;
  PipelineResult result = stream_through_alsa(request, path, [&](int16_t *frames, size_t wanted) {
    const size_t n = std::min(wanted, interleaved_input.size() / request.channels - at);
    std::copy_n(interleaved_input.data() + at * request.channels, n * request.channels, frames);
    at += n;
    if (n == 0 || n == wanted || !request.pad_last_period) return n;
    std::fill_n(frames + n * request.channels, (wanted - n) * request.channels, int16_t{0});
    return wanted;
  });
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  result.output.resize(size_t(std::max<std::streamoff>(file.tellg(), 0)) / sizeof(int16_t));
  file.seekg(0).read(reinterpret_cast<char *>(result.output.data()),
                     std::streamsize(result.output.size() * sizeof(int16_t)));
  std::remove(path);
  return result;
}

PipelineResult stream_through_alsa(const PipelineRequest &request, const std::string &output_path,
                                   const FrameSource &produce) {
  PipelineResult result;
  run(request, produce, output_path, result);
  return result;
}
