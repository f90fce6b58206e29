// SPDX-License-Identifier: MIT
// alsa-lib glue: the plugin entry, the operations table and the operations
// that set up, restart and tear down one stream's converter.
#include "src/rate_rsmpl.h"

#include "skelda/rsmpl_hq.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned int kOpsVersion = 0x10002;
constexpr unsigned int kOldProtocol = 0x10001;

const snd_pcm_rate_ops_t pcm_rsmpl_ops = {
    pcm_rsmpl_close,
    pcm_rsmpl_init,
    pcm_rsmpl_free,
    pcm_rsmpl_reset,
    pcm_rsmpl_adjust_pitch,
    nullptr,  // only interleaved S16 is converted, through convert_s16
    pcm_rsmpl_convert_s16,
    pcm_rsmpl_input_frames,
    pcm_rsmpl_output_frames,
    kOpsVersion,
    pcm_rsmpl_get_supported_rates,
    pcm_rsmpl_dump,
    nullptr,  // not part of the table this plugin provides
};

rsmpl_converter *record(void *obj) { return static_cast<rsmpl_converter *>(obj); }

void release_contexts(rsmpl_converter *rec) {
  for (RSMPL_Context *&ctx : rec->contexts) {
    if (ctx != nullptr) {
      std::free(ctx);
      ctx = nullptr;
    }
  }
}

// Chooses FIR or linear conversion for the rate pair; see pcm_rsmpl_init.
void select_converter(rsmpl_converter *rec, unsigned in_rate, unsigned out_rate) {
  rec->up_code = -1;
  rec->down_code = -1;
  const bool up = in_rate < out_rate;
  const unsigned low = up ? in_rate : out_rate;
  const unsigned high = up ? out_rate : in_rate;
  const unsigned k = high / low;
  if (high == low * k) {
    int32_t code = -1;
    if (k == 2) code = RSMPL_RATIO_2;
    if (k == 3) code = RSMPL_RATIO_3;
    if (k == 6) code = RSMPL_RATIO_6;
    if (code >= 0) {
      rec->factor = k;
      rec->convert_fn = up ? src_fir_up_s16 : src_fir_down_s16;
      (up ? rec->up_code : rec->down_code) = code;
      std::snprintf(rec->name, sizeof rec->name, up ? "FIR filter, UP %d -> %d"
                                                    : "FIR filter, DOWN %d -> %d",
                    static_cast<int>(in_rate), static_cast<int>(out_rate));
      return;
    }
  }
  rec->factor = 0;
  rec->convert_fn = up ? src_linear_expand_s16 : src_linear_shrink_s16;
  std::snprintf(rec->name, sizeof rec->name, up ? "Linear, UP %d -> %d" : "Linear, DOWN %d -> %d",
                static_cast<int>(in_rate), static_cast<int>(out_rate));
}

// Converting needs a converter, the work buffer and a context per channel.
// A failed init or a free leaves some of them missing.
bool ready_to_convert(const rsmpl_converter *rec) {
  if (rec->convert_fn == nullptr || rec->work == nullptr || rec->channels > kMaxChannels)
    return false;
  for (unsigned c = 0; c < rec->channels; ++c)
    if (rec->contexts[c] == nullptr) return false;
  return true;
}

}  // namespace

extern "C" {

SKELDA_API int _snd_pcm_rate_skelda_open(unsigned int version, void **objp,
                                         snd_pcm_rate_ops_t *ops) {
  auto *rec = static_cast<rsmpl_converter *>(std::calloc(1, sizeof(rsmpl_converter)));
  if (rec == nullptr) return -ENOMEM;
  rec->factor = 1;
  rec->up_code = -1;
  rec->down_code = -1;
  *objp = rec;
  // The members up to output_frames exist in every protocol version; a
  // 0x10001 caller's table ends there.
  ops->close = pcm_rsmpl_ops.close;
  ops->init = pcm_rsmpl_ops.init;
  ops->free = pcm_rsmpl_ops.free;
  ops->reset = pcm_rsmpl_ops.reset;
  ops->adjust_pitch = pcm_rsmpl_ops.adjust_pitch;
  ops->convert = pcm_rsmpl_ops.convert;
  ops->convert_s16 = pcm_rsmpl_ops.convert_s16;
  ops->input_frames = pcm_rsmpl_ops.input_frames;
  ops->output_frames = pcm_rsmpl_ops.output_frames;
  if (version != kOldProtocol) {
    ops->version = pcm_rsmpl_ops.version;
    ops->get_supported_rates = pcm_rsmpl_ops.get_supported_rates;
    ops->dump = pcm_rsmpl_ops.dump;
  }
  return 0;
}

void pcm_rsmpl_close(void *obj) {
  std::free(record(obj)->hq);
  std::free(obj);
}

// Rejects more than four channels and, since both rates are divisors below,
// a zero rate, with -EINVAL before anything changes. Otherwise rebuilds the
// work buffer and one context per channel and installs the converter for the
// rate pair: FIR when one rate is 2, 3 or 6 times the other, linear else.
int pcm_rsmpl_init(void *obj, snd_pcm_rate_info_t *info) {
  rsmpl_converter *rec = record(obj);
  const unsigned in_rate = info->in.rate;
  const unsigned out_rate = info->out.rate;
  if (info->channels > kMaxChannels || in_rate == 0 || out_rate == 0) return -EINVAL;

  rec->channels = info->channels;
  rec->pitch = static_cast<uint32_t>(
      ((static_cast<uint64_t>(out_rate) * kPitchOne) + in_rate / 2) / in_rate);

  std::free(rec->work);
  rec->work = static_cast<int16_t *>(std::malloc(kWorkSamples * sizeof(int16_t)));
  if (rec->work == nullptr) return -ENOMEM;

  release_contexts(rec);
  for (unsigned c = 0; c < rec->channels; ++c) {
    rec->contexts[c] = static_cast<RSMPL_Context *>(std::malloc(RSMPL_GetContextSize()));
    if (rec->contexts[c] == nullptr) return -ENOMEM;
    RSMPL_InitContext(rec->contexts[c]);
  }

  select_converter(rec, in_rate, out_rate);
  rec->fir_mismatch_reported = false;
  return 0;
}

void pcm_rsmpl_free(void *obj) {
  rsmpl_converter *rec = record(obj);
  release_contexts(rec);
  std::free(rec->hq);
  rec->hq = nullptr;
  rec->hq_bytes = 0;
  std::free(rec->work);
  rec->work = nullptr;
}

void pcm_rsmpl_reset(void *obj) {
  rsmpl_converter *rec = record(obj);
  const unsigned channels = rec->channels < kMaxChannels ? rec->channels : kMaxChannels;
  for (unsigned c = 0; c < channels; ++c)
    if (rec->contexts[c] != nullptr) RSMPL_Reset(rec->contexts[c]);
  if (rec->hq != nullptr) RSMPL_HqReset(rec->hq);
  if (rec->work != nullptr) std::memset(rec->work, 0, channels * sizeof(int16_t));
}

// Outside the span from a successful init to free (no converter, no buffers)
// the call does nothing: dst is left as it is.
void pcm_rsmpl_convert_s16(void *obj, int16_t *dst, unsigned int dst_frames,
                           const int16_t *src, unsigned int src_frames) {
  rsmpl_converter *rec = record(obj);
  if (!ready_to_convert(rec)) return;
  rec->convert_fn(obj, dst, dst_frames, src, src_frames);
}

int pcm_rsmpl_get_supported_rates(void *, unsigned int *rate_min, unsigned int *rate_max) {
  *rate_min = kRateMin;
  *rate_max = kRateMax;
  return 0;
}

void pcm_rsmpl_dump(void *obj, snd_output_t *out) {
  snd_output_printf(out, "RSMPL Converter: %s\n", record(obj)->name);
}

}  // extern "C"
