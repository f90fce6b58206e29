// SPDX-License-Identifier: MIT
// Plays audio through the real alsa-lib: a `rate` PCM with a chosen
// converter (and its options) over a `file` PCM on a `null` slave in a
// chosen format (or over some channels of a wider one), and returns what the
// converter produced.
#ifndef SKELDA_TESTS_ALSA_PIPELINE_H
#define SKELDA_TESTS_ALSA_PIPELINE_H

#include <alsa/asoundlib.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct PipelineRequest {
  unsigned in_rate = 48000;
  unsigned out_rate = 48000;
  unsigned channels = 1;
  // Client period asked for; 0 asks what aplay does when given none (a buffer
  // near 500 ms in periods near a quarter of it) and lets alsa-lib choose.
  unsigned long period_frames = 1024;
  bool pad_last_period = false;  // complete the last period with silence, as aplay does
  std::string converter = "skelda";
  snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;        // the client's
  snd_pcm_format_t slave_format = SND_PCM_FORMAT_S16_LE;  // the device's
  bool noninterleaved = false;  // the client writes one buffer per channel
  // When nonzero, the device has this many channels and the converter's
  // channel c goes to device channel device_slots[c], through a `multi`
  // PCM: alsa-lib then hands the converter areas whose step is the
  // device's frame. `bytes` of the result holds the device's frames.
  unsigned device_channels = 0;
  std::vector<unsigned> device_slots;
  // Options in the converter's compound (`converter { name "..." <options> }`);
  // empty: the converter by its plain name.
  std::string options;
};

struct PipelineResult {
  int error = 0;                 // first negative alsa-lib result, 0 if none
  std::string failed_call;       // which call gave `error`
  std::vector<uint8_t> bytes;    // interleaved frames the slave received
  std::vector<int16_t> output;   // the same, when the slave's format is S16
  std::vector<int32_t> output32; // the same, when it is S32
  std::string dump;              // snd_pcm_dump of the rate PCM
  unsigned long client_period = 0;
  unsigned long slave_period = 0;
};

// Fills up to `wanted` interleaved frames in the client's format, returns how
// many; 0 ends the stream.
using FrameSource = std::function<size_t(void *frames, size_t wanted)>;

// Streams what `produce` yields through the rate PCM; the converted audio goes
// to `output_path` (a FIFO lets another thread analyse it as it comes), and
// `output` of the result stays empty.
PipelineResult stream_through_alsa(const PipelineRequest &request, const std::string &output_path,
                                   const FrameSource &produce);

// Interleaved frames in the client's format, as bytes or as S16 samples.
PipelineResult play_through_alsa(const PipelineRequest &request, const std::vector<uint8_t> &input);
PipelineResult play_through_alsa(const PipelineRequest &request,
                                 const std::vector<int16_t> &interleaved_input);

#endif
