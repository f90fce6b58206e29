// SPDX-License-Identifier: MIT
// The rate plugin's converter record and its operations. Only the entry
// _snd_pcm_rate_skelda_open is exported; the rest is reached by alsa-lib
// through the operations table, and by the tests directly.
#ifndef SKELDA_SRC_RATE_RSMPL_H
#define SKELDA_SRC_RATE_RSMPL_H

#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>

#include <cstdint>

#include "skelda/export.h"
#include "skelda/rsmpl.h"

constexpr unsigned kMaxChannels = 4;
// One channel's block in FIR mode; the carried samples in linear mode.
constexpr unsigned kWorkSamples = 1440;
constexpr unsigned kRateMin = 8000;
constexpr unsigned kRateMax = 48000;
constexpr uint32_t kPitchOne = 0x80000;  // 1.0 in Q19

using rsmpl_convert_fn = void (*)(void *obj, int16_t *dst, unsigned int dst_frames,
                                  const int16_t *src, unsigned int src_frames);

struct rsmpl_converter {
  uint32_t factor;      // FIR ratio 2, 3 or 6; 0 in linear mode
  int32_t up_code;      // ratio code for RSMPL_Up, -1 for none
  int32_t down_code;    // ratio code for RSMPL_Down, -1 for none
  uint32_t pitch;       // output frames per input frame, Q19
  uint32_t pitch_shift; // keeps the linear up converter's weight in 32 bits
  uint32_t channels;
  RSMPL_Context *contexts[kMaxChannels];
  int16_t *work;        // kWorkSamples samples
  rsmpl_convert_fn convert_fn;
  char name[64];
  // Set once a FIR period could not be converted exactly as given (see
  // src_fir_down_s16), so the fault is reported once per configuration.
  bool fir_mismatch_reported;
  // The resampler that FIR streams whose periods do not convert exactly at
  // the factor run through instead (see rsmpl_follow_periods).
  struct RSMPL_HqState *hq;
  uint32_t hq_bytes;
};

extern "C" {

SKELDA_API int _snd_pcm_rate_skelda_open(unsigned int version, void **objp,
                                         snd_pcm_rate_ops_t *ops);

void pcm_rsmpl_close(void *obj);
int pcm_rsmpl_init(void *obj, snd_pcm_rate_info_t *info);
void pcm_rsmpl_free(void *obj);
void pcm_rsmpl_reset(void *obj);
int pcm_rsmpl_adjust_pitch(void *obj, snd_pcm_rate_info_t *info);
void pcm_rsmpl_convert_s16(void *obj, int16_t *dst, unsigned int dst_frames,
                           const int16_t *src, unsigned int src_frames);
snd_pcm_uframes_t pcm_rsmpl_input_frames(void *obj, snd_pcm_uframes_t frames);
snd_pcm_uframes_t pcm_rsmpl_output_frames(void *obj, snd_pcm_uframes_t frames);
int pcm_rsmpl_get_supported_rates(void *obj, unsigned int *rate_min, unsigned int *rate_max);
void pcm_rsmpl_dump(void *obj, snd_output_t *out);

// The four converters that init installs as convert_fn.
void src_linear_expand_s16(void *obj, int16_t *dst, unsigned int dst_frames,
                           const int16_t *src, unsigned int src_frames);
void src_linear_shrink_s16(void *obj, int16_t *dst, unsigned int dst_frames,
                           const int16_t *src, unsigned int src_frames);
void src_fir_up_s16(void *obj, int16_t *dst, unsigned int dst_frames,
                    const int16_t *src, unsigned int src_frames);
void src_fir_down_s16(void *obj, int16_t *dst, unsigned int dst_frames,
                      const int16_t *src, unsigned int src_frames);
void src_hq_s16(void *obj, int16_t *dst, unsigned int dst_frames, const int16_t *src,
                unsigned int src_frames);

void rsmpl_follow_periods(rsmpl_converter *rec, unsigned in_rate, unsigned out_rate,
                          uint64_t in_period, uint64_t out_period);

}  // extern "C"

// Faults go to alsa-lib's error hook the way SNDERR sends them, naming this
// front end as the source.
#define RSMPL_REPORT_IN(function, ...) \
  snd_lib_error("src/rate_rsmpl.cpp", __LINE__, function, 0, __VA_ARGS__)
#define RSMPL_REPORT(...) RSMPL_REPORT_IN(__func__, __VA_ARGS__)

#endif
