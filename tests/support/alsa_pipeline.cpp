// SPDX-License-Identifier: MIT
#include "tests/support/alsa_pipeline.h"

#include <alsa/asoundlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
  const std::string converter = r.options.empty()
                                    ? "\"" + r.converter + "\""
                                    : "{ name \"" + r.converter + "\" " + r.options + " }";
  std::string device = "{ type file slave.pcm { type null } file \"" + path + "\" format raw }";
  if (r.device_channels != 0) {
    std::string bindings;
    for (size_t c = 0; c < r.device_slots.size(); ++c)
      bindings += " bindings." + std::to_string(c) + " { slave a channel " + std::to_string(r.device_slots[c]) + " }";
    device = "{ type multi slaves.a { pcm " + device + " channels " + std::to_string(r.device_channels) + " }" +
             bindings + " }";
  }
  const std::string text = "pcm.under_test { type rate converter " + converter + " slave { pcm " + device +
                           " rate " + std::to_string(r.out_rate) + " format " +
                           snd_pcm_format_name(r.slave_format) + " } }";
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
  CHECK_ALSA(snd_pcm_hw_params_set_access(
      pcm, hw, r.noninterleaved ? SND_PCM_ACCESS_RW_NONINTERLEAVED : SND_PCM_ACCESS_RW_INTERLEAVED));
  CHECK_ALSA(snd_pcm_hw_params_set_format(pcm, hw, r.format));
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

  const size_t sample = size_t(snd_pcm_format_physical_width(r.format)) / 8, frame = sample * r.channels;
  std::vector<uint8_t> chunk(size_t(period) * frame), planes(chunk.size());
  std::vector<void *> plane(r.channels);
  while (const size_t frames = produce(chunk.data(), period)) {
    snd_pcm_sframes_t n = 0;
    if (r.noninterleaved) {
      for (unsigned c = 0; c < r.channels; ++c) {
        plane[c] = planes.data() + c * size_t(period) * sample;
        for (size_t i = 0; i < frames; ++i)
          std::copy_n(&chunk[i * frame + c * sample], sample, static_cast<uint8_t *>(plane[c]) + i * sample);
      }
      for (size_t done = 0; done < frames; done += size_t(n)) {
        std::vector<void *> at(r.channels);
        for (unsigned c = 0; c < r.channels; ++c) at[c] = static_cast<uint8_t *>(plane[c]) + done * sample;
        CHECK_ALSA(n = snd_pcm_writen(pcm, at.data(), frames - done));
      }
      continue;
    }
    for (size_t done = 0; done < frames; done += size_t(n))
      CHECK_ALSA(n = snd_pcm_writei(pcm, chunk.data() + done * frame, frames - done));
  }
  CHECK_ALSA(snd_pcm_drain(pcm));
}

}  // namespace

PipelineResult play_through_alsa(const PipelineRequest &request, const std::vector<uint8_t> &input) {
  char path[] = "/tmp/skelda-pipeline-XXXXXX";
  close(mkstemp(path));
  const size_t frame = size_t(snd_pcm_format_physical_width(request.format)) / 8 * request.channels;
  size_t at = 0;
  PipelineResult result = stream_through_alsa(request, path, [&](void *frames, size_t wanted) {
    auto *to = static_cast<uint8_t *>(frames);
    const size_t n = std::min(wanted, input.size() / frame - at);
    std::copy_n(input.data() + at * frame, n * frame, to);
    at += n;
    if (n == 0 || n == wanted || !request.pad_last_period) return n;
    std::fill_n(to + n * frame, (wanted - n) * frame, uint8_t{0});
    return wanted;
  });
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  result.bytes.resize(size_t(std::max<std::streamoff>(file.tellg(), 0)));
  file.seekg(0).read(reinterpret_cast<char *>(result.bytes.data()), std::streamsize(result.bytes.size()));
  std::remove(path);
  // (An open that failed wrote nothing: no copy from an empty buffer.)
  if (snd_pcm_format_physical_width(request.slave_format) == 16 && !result.bytes.empty()) {
    result.output.resize(result.bytes.size() / 2);
    std::memcpy(result.output.data(), result.bytes.data(), 2 * result.output.size());
  } else if (snd_pcm_format_physical_width(request.slave_format) == 32 && !result.bytes.empty()) {
    result.output32.resize(result.bytes.size() / 4);
    std::memcpy(result.output32.data(), result.bytes.data(), 4 * result.output32.size());
  }
  return result;
}

PipelineResult play_through_alsa(const PipelineRequest &request,
                                 const std::vector<int16_t> &interleaved_input) {
  const auto *bytes = reinterpret_cast<const uint8_t *>(interleaved_input.data());
  return play_through_alsa(request, std::vector<uint8_t>(bytes, bytes + 2 * interleaved_input.size()));
}

PipelineResult stream_through_alsa(const PipelineRequest &request, const std::string &output_path,
                                   const FrameSource &produce) {
  PipelineResult result;
  run(request, produce, output_path, result);
  return result;
}
