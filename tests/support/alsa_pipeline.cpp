#include "support/alsa_pipeline.h"

#include <alsa/asoundlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

std::string config_text(const PipelineRequest &r, const std::string &path) {
  return "pcm.under_test {\n"
         "  type rate\n"
         "  converter \"" + r.converter + "\"\n"
         "  slave {\n"
         "    pcm { type file slave.pcm { type null } file \"" + path + "\" format \"raw\" }\n"
         "    rate " + std::to_string(r.out_rate) + "\n"
         "    format S16_LE\n"
         "  }\n"
         "}\n";
}

struct Failure {
  int error;
  const char *call;
};

// Throws nothing; the first failing call ends the run and is reported.
#define CHECK_ALSA(call)                     \
  do {                                       \
    const int rc_ = (call);                  \
    if (rc_ < 0) return Failure{rc_, #call}; \
  } while (0)

Failure run(const PipelineRequest &r, const FrameSource &produce, const std::string &path,
            PipelineResult &result) {
  snd_config_t *top = nullptr;
  snd_input_t *in = nullptr;
  snd_pcm_t *pcm = nullptr;
  const std::string text = config_text(r, path);
  CHECK_ALSA(snd_config_top(&top));
  CHECK_ALSA(snd_input_buffer_open(&in, text.c_str(), static_cast<ssize_t>(text.size())));
  const int loaded = snd_config_load(top, in);
  snd_input_close(in);
  CHECK_ALSA(loaded);
  const int opened = snd_pcm_open_lconf(&pcm, "under_test", SND_PCM_STREAM_PLAYBACK, 0, top);
  snd_config_delete(top);
  CHECK_ALSA(opened);

  struct Closer {
    snd_pcm_t *pcm;
    ~Closer() { snd_pcm_close(pcm); }
  } closer{pcm};

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
  const size_t slave_at = result.dump.find("Slave:");
  const size_t period_at = result.dump.find("period_size", slave_at);
  if (slave_at != std::string::npos && period_at != std::string::npos) {
    const size_t colon = result.dump.find(':', period_at);
    result.slave_period = std::strtoul(result.dump.c_str() + colon + 1, nullptr, 10);
  }

  std::vector<int16_t> chunk(size_t(period) * r.channels);
  for (;;) {
    const size_t frames = produce(chunk.data(), period);
    if (frames == 0) break;
    size_t done = 0;
    while (done < frames) {
      const snd_pcm_sframes_t n =
          snd_pcm_writei(pcm, chunk.data() + done * r.channels, frames - done);
      if (n < 0) return Failure{static_cast<int>(n), "snd_pcm_writei"};
      done += static_cast<size_t>(n);
    }
  }
  CHECK_ALSA(snd_pcm_drain(pcm));
  return Failure{0, ""};
}

}  // namespace

PipelineResult play_through_alsa(const PipelineRequest &request,
                                 const std::vector<int16_t> &interleaved_input) {
  char path[] = "/tmp/skelda-pipeline-XXXXXX";
  const int fd = mkstemp(path);
  PipelineResult result;
  if (fd < 0) {
    result.error = -1;
    result.failed_call = "mkstemp";
    return result;
  }
  close(fd);
  size_t at = 0;
  const FrameSource from_vector = [&](int16_t *frames, size_t wanted) {
    const size_t left = interleaved_input.size() / request.channels - at;
    const size_t n = left < wanted ? left : wanted;
    std::copy_n(interleaved_input.data() + at * request.channels, n * request.channels, frames);
    at += n;
    if (n == 0 || n == wanted || !request.pad_last_period) return n;
    std::fill_n(frames + n * request.channels, (wanted - n) * request.channels, int16_t{0});
    return wanted;
  };
  const Failure f = run(request, from_vector, path, result);
  result.error = f.error;
  result.failed_call = f.call;
  std::ifstream file(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  result.output.resize(bytes.size() / sizeof(int16_t));
  std::copy(bytes.begin(), bytes.begin() + result.output.size() * sizeof(int16_t),
            reinterpret_cast<char *>(result.output.data()));
  std::remove(path);
  return result;
}

PipelineResult stream_through_alsa(const PipelineRequest &request, const std::string &output_path,
                                   const FrameSource &produce) {
  PipelineResult result;
  const Failure f = run(request, produce, output_path, result);
  result.error = f.error;
  result.failed_call = f.call;
  return result;
}
