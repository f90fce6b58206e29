// SPDX-License-Identifier: MIT
// alsa-lib glue of the skelda_hq converter: every pair of rates from 8000 to
// 192000 Hz and up to eight channels through the high-quality resampler, at
// exactly the ratio of alsa-lib's period sizes so that each period converts
// to exactly the frames alsa-lib asks for.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>

#include <cerrno>
#include <cstdlib>

#include "skelda/export.h"
#include "skelda/rsmpl_hq.h"
#include "src/hq_period.h"

#define HQ_REPORT(...) snd_lib_error("src/rate_hq.cpp", __LINE__, __func__, 0, __VA_ARGS__)

namespace {

struct hq_converter {
  RSMPL_HqState *state;
  uint32_t state_bytes;
  uint32_t in_rate, out_rate, channels;
  uint32_t ratio_out, ratio_in;  // the periods' ratio, or the rates' before adjust_pitch
  bool mismatch_reported;
};

hq_converter *record(void *obj) { return static_cast<hq_converter *>(obj); }

void hq_free(void *obj) {
  hq_converter *rec = record(obj);
  std::free(rec->state);
  rec->state = nullptr;
  rec->state_bytes = 0;
}

void hq_close(void *obj) {
  hq_free(obj);
  std::free(obj);
}

// Takes the periods' ratio when both periods are given and the resampler can
// hold it; a failure leaves the converter as it was.
int follow_periods(hq_converter *rec, const snd_pcm_rate_info_t *info) {
  const snd_pcm_uframes_t in = info->in.period_size, out = info->out.period_size;
  if (in == 0 || out == 0 || in > UINT32_MAX || out > UINT32_MAX ||
      RSMPL_HqSetRatio(rec->state, static_cast<uint32_t>(out), static_cast<uint32_t>(in)) !=
          RSMPL_OK) {
    HQ_REPORT("invalid pcm period_size %ld -> %ld", static_cast<long>(in), static_cast<long>(out));
    return -EIO;
  }
  RSMPL_HqInfo hq;
  RSMPL_HqGetInfo(rec->state, &hq);
  rec->ratio_out = hq.ratioOut;
  rec->ratio_in = hq.ratioIn;
  return 0;
}

// Rates outside 8000..192000 or channels outside 1..8 give -EINVAL before
// anything changes. Otherwise a state for the rates is (re)built and, when
// alsa-lib already knows its periods, set to their ratio.
int hq_init(void *obj, snd_pcm_rate_info_t *info) {
  hq_converter *rec = record(obj);
  uint32_t bytes = 0;
  if (RSMPL_HqGetStateSize(info->in.rate, info->out.rate, info->channels, &bytes) != RSMPL_OK) {
    HQ_REPORT("cannot convert %u channels from %u Hz to %u Hz", info->channels, info->in.rate,
              info->out.rate);
    return -EINVAL;
  }
  if (rec->state == nullptr || rec->state_bytes < bytes) {
    auto *state = static_cast<RSMPL_HqState *>(std::malloc(bytes));
    if (state == nullptr) return -ENOMEM;
    std::free(rec->state);
    rec->state = state;
    rec->state_bytes = bytes;
  }
  RSMPL_HqInit(rec->state, rec->state_bytes, info->in.rate, info->out.rate, info->channels);
  rec->in_rate = info->in.rate;
  rec->out_rate = info->out.rate;
  rec->channels = info->channels;
  RSMPL_HqInfo hq;
  RSMPL_HqGetInfo(rec->state, &hq);
  rec->ratio_out = hq.ratioOut;
  rec->ratio_in = hq.ratioIn;
  rec->mismatch_reported = false;
  if (info->in.period_size != 0 && info->out.period_size != 0) return follow_periods(rec, info);
  return 0;
}

int hq_adjust_pitch(void *obj, snd_pcm_rate_info_t *info) {
  hq_converter *rec = record(obj);
  if (rec->state == nullptr) {
    HQ_REPORT("adjust_pitch before init");
    return -EINVAL;
  }
  return follow_periods(rec, info);
}

void hq_reset(void *obj) {
  hq_converter *rec = record(obj);
  if (rec->state != nullptr) RSMPL_HqReset(rec->state);
}

// Periods in the ratio set by adjust_pitch convert exactly. A call that does
// not (alsa-lib never makes one) still writes dst_frames: frames the
// resampler could not yet make repeat the last one written, and the fault is
// reported once.
void hq_convert_s16(void *obj, int16_t *dst, unsigned int dst_frames, const int16_t *src,
                    unsigned int src_frames) {
  hq_converter *rec = record(obj);
  if (rec->state == nullptr) return;
  uint32_t made = 0;
  if (hq_convert_period(rec->state, rec->channels, dst, dst_frames, src, src_frames, &made) ||
      rec->mismatch_reported)
    return;
  rec->mismatch_reported = true;
  HQ_REPORT("period of %u frames converted to %u of %u frames", src_frames,
            static_cast<unsigned>(made), dst_frames);
}

// Frames on the other side at the current ratio, rounded to nearest.
snd_pcm_uframes_t scale(snd_pcm_uframes_t frames, uint32_t num, uint32_t den) {
  if (den == 0) return 0;
  const uint64_t f = frames;  // num and den stay below 2^24
  if (f >= (uint64_t{1} << 39)) return static_cast<snd_pcm_uframes_t>(f / den * num);
  return static_cast<snd_pcm_uframes_t>((f * num + den / 2) / den);
}

snd_pcm_uframes_t hq_input_frames(void *obj, snd_pcm_uframes_t frames) {
  const hq_converter *rec = record(obj);
  return scale(frames, rec->ratio_in, rec->ratio_out);
}

snd_pcm_uframes_t hq_output_frames(void *obj, snd_pcm_uframes_t frames) {
  const hq_converter *rec = record(obj);
  return scale(frames, rec->ratio_out, rec->ratio_in);
}

int hq_get_supported_rates(void *, unsigned int *rate_min, unsigned int *rate_max) {
  *rate_min = RSMPL_HQ_RATE_MIN;
  *rate_max = RSMPL_HQ_RATE_MAX;
  return 0;
}

void hq_dump(void *obj, snd_output_t *out) {
  const hq_converter *rec = record(obj);
  RSMPL_HqInfo hq{};
  if (rec->state == nullptr || RSMPL_HqGetInfo(rec->state, &hq) != RSMPL_OK) {
    snd_output_printf(out, "RSMPL HQ Converter: not configured\n");
    return;
  }
  snd_output_printf(out,
                    "RSMPL HQ Converter: %u -> %u Hz, %u channels, %s %u taps, "
                    "%u phases%s, ratio %u/%u, delay %u.%03u ms\n",
                    hq.inRate, hq.outRate, hq.channels,
                    hq.taps < 2 * hq.delayFrames ? "minimax" : "windowed sinc", hq.taps, hq.phases,
                    hq.interpolated ? " interpolated" : "", hq.ratioOut, hq.ratioIn,
                    hq.delayMicroseconds / 1000, hq.delayMicroseconds % 1000);
}

}  // namespace

extern "C" {

SKELDA_API int _snd_pcm_rate_skelda_hq_open(unsigned int version, void **objp,
                                            snd_pcm_rate_ops_t *ops) {
  auto *rec = static_cast<hq_converter *>(std::calloc(1, sizeof(hq_converter)));
  if (rec == nullptr) return -ENOMEM;
  *objp = rec;
  ops->close = hq_close;
  ops->init = hq_init;
  ops->free = hq_free;
  ops->reset = hq_reset;
  ops->adjust_pitch = hq_adjust_pitch;
  ops->convert = nullptr;
  ops->convert_s16 = hq_convert_s16;
  ops->input_frames = hq_input_frames;
  ops->output_frames = hq_output_frames;
  // A 0x10001 caller's table ends at output_frames.
  if (version != 0x10001) {
    ops->version = 0x10002;
    ops->get_supported_rates = hq_get_supported_rates;
    ops->dump = hq_dump;
  }
  return 0;
}

}  // extern "C"
