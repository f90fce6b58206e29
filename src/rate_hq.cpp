// SPDX-License-Identifier: MIT
// alsa-lib glue of the skelda_hq converter: every pair of rates from 4000 to
// 768000 Hz and up to 64 channels, at exactly the ratio of alsa-lib's
// period sizes so that each period converts to exactly the frames alsa-lib
// asks for.
//
// With alsa-lib's rate protocol 0x010003 the converter takes channel areas
// of S16 or S32 on either side (alsa-lib converts every other linear format
// to the nearer of the two): S16 to S16 through the 16-bit resampler, every
// other pairing (and S16 to S16 with dither) through the 32-bit one, so that
// 24-bit material keeps its 24 bits. Older protocols get interleaved S16
// through convert_s16 and the 16-bit resampler, as before.
//
// Options come from the compound form of the configuration,
// converter { name "skelda_hq" dither yes }: `dither` (a boolean, off by
// default) adds TPDF dither where the output is narrower than the result.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "skelda/export.h"
#include "skelda/rsmpl_hq.h"
#include "src/areas.h"
#include "src/hq_period.h"

#define HQ_REPORT(...) snd_lib_error("src/rate_hq.cpp", __LINE__, __func__, 0, __VA_ARGS__)

namespace {

constexpr unsigned int kFormatsProtocol = 0x010003;
constexpr unsigned int kOldProtocol = 0x010001;
// Frames per pass through the interleaved buffers, for areas laid out
// otherwise.
constexpr unsigned kWorkFrames = 1024;

struct hq_options {
  bool dither;
};

struct hq_converter {
  hq_options options;
  bool areas;  // opened with the formats protocol: convert on areas
  // The 16-bit resampler, or the 32-bit one (`wide`); the other is null.
  RSMPL_HqState *state;
  RSMPL_Hq32State *state32;
  uint32_t state_bytes;
  bool wide;
  uint32_t in_rate, out_rate, channels;
  snd_pcm_format_t in_format, out_format;
  uint32_t ratio_out, ratio_in;  // the periods' ratio, or the rates' before adjust_pitch
  bool mismatch_reported;
  // Interleaved frames for areas laid out otherwise: kWorkFrames of
  // `work_channels` channels each.
  void *in_work, *out_work;
  uint32_t work_channels;
};

hq_converter *record(void *obj) { return static_cast<hq_converter *>(obj); }

bool configured(const hq_converter *rec) { return rec->state != nullptr || rec->state32 != nullptr; }

void hq_free(void *obj) {
  hq_converter *rec = record(obj);
  std::free(rec->state);
  std::free(rec->state32);
  std::free(rec->in_work);
  std::free(rec->out_work);
  rec->state = nullptr;
  rec->state32 = nullptr;
  rec->in_work = rec->out_work = nullptr;
  rec->work_channels = 0;
  rec->state_bytes = 0;
}

void hq_close(void *obj) {
  hq_free(obj);
  std::free(obj);
}

RSMPL_Status set_ratio(hq_converter *rec, uint32_t out, uint32_t in) {
  return rec->wide ? RSMPL_Hq32SetRatio(rec->state32, out, in) : RSMPL_HqSetRatio(rec->state, out, in);
}

RSMPL_HqInfo info_of(const hq_converter *rec) {
  RSMPL_HqInfo hq{};
  if (rec->wide)
    RSMPL_Hq32GetInfo(rec->state32, &hq);
  else
    RSMPL_HqGetInfo(rec->state, &hq);
  return hq;
}

// Takes the periods' ratio when both periods are given and the resampler can
// hold it; a failure leaves the converter as it was.
int follow_periods(hq_converter *rec, const snd_pcm_rate_info_t *info) {
  const snd_pcm_uframes_t in = info->in.period_size, out = info->out.period_size;
  if (in == 0 || out == 0 || in > UINT32_MAX || out > UINT32_MAX ||
      set_ratio(rec, static_cast<uint32_t>(out), static_cast<uint32_t>(in)) != RSMPL_OK) {
    HQ_REPORT("invalid pcm period_size %ld -> %ld", static_cast<long>(in), static_cast<long>(out));
    return -EIO;
  }
  const RSMPL_HqInfo hq = info_of(rec);
  rec->ratio_out = hq.ratioOut;
  rec->ratio_in = hq.ratioIn;
  return 0;
}

bool announced(snd_pcm_format_t format) {
  return format == SND_PCM_FORMAT_S16 || format == SND_PCM_FORMAT_S32;
}

unsigned sample_bytes(snd_pcm_format_t format) { return format == SND_PCM_FORMAT_S32 ? 4 : 2; }

uint32_t engine_format(snd_pcm_format_t format) {
  return format == SND_PCM_FORMAT_S32 ? RSMPL_HQ_S32 : RSMPL_HQ_S16;
}

// A state of `bytes` for the engine the formats need, the old one kept when
// it is that engine and large enough.
bool allocate(hq_converter *rec, bool wide, uint32_t bytes) {
  if (wide == rec->wide && configured(rec) && rec->state_bytes >= bytes) return true;
  void *state = std::malloc(bytes);
  if (state == nullptr) return false;
  std::free(rec->state);
  std::free(rec->state32);
  rec->state = wide ? nullptr : static_cast<RSMPL_HqState *>(state);
  rec->state32 = wide ? static_cast<RSMPL_Hq32State *>(state) : nullptr;
  rec->state_bytes = bytes;
  rec->wide = wide;
  return true;
}

// Rates outside 4000..768000, channels outside 1..64 or (with areas) a
// format other than S16 and S32 give -EINVAL before anything changes.
// Otherwise a state for the rates and formats is (re)built and, when
// alsa-lib already knows its periods, set to their ratio.
int hq_init(void *obj, snd_pcm_rate_info_t *info) {
  hq_converter *rec = record(obj);
  const snd_pcm_format_t in_format = rec->areas ? info->in.format : SND_PCM_FORMAT_S16;
  const snd_pcm_format_t out_format = rec->areas ? info->out.format : SND_PCM_FORMAT_S16;
  if (!announced(in_format) || !announced(out_format)) {
    HQ_REPORT("skelda_hq converts S16 and S32 samples, not %s -> %s", snd_pcm_format_name(in_format),
              snd_pcm_format_name(out_format));
    return -EINVAL;
  }
  const bool wide = in_format != SND_PCM_FORMAT_S16 || out_format != SND_PCM_FORMAT_S16 || rec->options.dither;
  uint32_t bytes = 0;
  const RSMPL_Status sized = wide ? RSMPL_Hq32GetStateSize(info->in.rate, info->out.rate, info->channels, &bytes)
                                  : RSMPL_HqGetStateSize(info->in.rate, info->out.rate, info->channels, &bytes);
  if (sized != RSMPL_OK) {
    HQ_REPORT("cannot convert %u channels from %u Hz to %u Hz", info->channels, info->in.rate,
              info->out.rate);
    return -EINVAL;
  }
  if (rec->areas && rec->work_channels < info->channels) {
    const size_t work = size_t{kWorkFrames} * info->channels * sizeof(int32_t);
    void *in_work = std::malloc(work), *out_work = std::malloc(work);
    if (in_work == nullptr || out_work == nullptr) {
      std::free(in_work);
      std::free(out_work);
      return -ENOMEM;
    }
    std::free(rec->in_work);
    std::free(rec->out_work);
    rec->in_work = in_work;
    rec->out_work = out_work;
    rec->work_channels = info->channels;
  }
  if (!allocate(rec, wide, bytes)) return -ENOMEM;
  if (wide) {
    RSMPL_Hq32Init(rec->state32, rec->state_bytes, info->in.rate, info->out.rate, info->channels);
    RSMPL_Hq32SetDither(rec->state32, rec->options.dither);
  } else {
    RSMPL_HqInit(rec->state, rec->state_bytes, info->in.rate, info->out.rate, info->channels);
  }
  rec->in_rate = info->in.rate;
  rec->out_rate = info->out.rate;
  rec->channels = info->channels;
  rec->in_format = in_format;
  rec->out_format = out_format;
  const RSMPL_HqInfo hq = info_of(rec);
  rec->ratio_out = hq.ratioOut;
  rec->ratio_in = hq.ratioIn;
  rec->mismatch_reported = false;
  if (info->in.period_size != 0 && info->out.period_size != 0) return follow_periods(rec, info);
  return 0;
}

int hq_adjust_pitch(void *obj, snd_pcm_rate_info_t *info) {
  hq_converter *rec = record(obj);
  if (!configured(rec)) {
    HQ_REPORT("adjust_pitch before init");
    return -EINVAL;
  }
  return follow_periods(rec, info);
}

void hq_reset(void *obj) {
  hq_converter *rec = record(obj);
  if (rec->state != nullptr) RSMPL_HqReset(rec->state);
  if (rec->state32 != nullptr) RSMPL_Hq32Reset(rec->state32);
}

void report_mismatch(hq_converter *rec, unsigned src_frames, size_t made, unsigned dst_frames) {
  if (rec->mismatch_reported) return;
  rec->mismatch_reported = true;
  HQ_REPORT("period of %u frames converted to %u of %u frames", src_frames, static_cast<unsigned>(made),
            dst_frames);
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
  if (!hq_convert_period(rec->state, rec->channels, dst, dst_frames, src, src_frames, &made))
    report_mismatch(rec, src_frames, made, dst_frames);
}

// One pass of the resampler in charge over interleaved frames.
RSMPL_Status process(hq_converter *rec, const void *in, uint32_t *in_frames, void *out, uint32_t *out_frames) {
  if (rec->wide)
    return RSMPL_Hq32Process(rec->state32, in, engine_format(rec->in_format), in_frames, out,
                             engine_format(rec->out_format), out_frames);
  return RSMPL_HqProcess(rec->state, static_cast<const int16_t *>(in), in_frames, static_cast<int16_t *>(out),
                         out_frames);
}

// The same on areas: straight on the frames when both sides are
// interleaved, else through the interleaved buffers, kWorkFrames at a time.
void hq_convert(void *obj, const snd_pcm_channel_area_t *dst_areas, snd_pcm_uframes_t dst_offset,
                unsigned int dst_frames, const snd_pcm_channel_area_t *src_areas,
                snd_pcm_uframes_t src_offset, unsigned int src_frames) {
  hq_converter *rec = record(obj);
  if (!configured(rec)) return;
  const unsigned channels = rec->channels;
  const unsigned in_bytes = sample_bytes(rec->in_format), out_bytes = sample_bytes(rec->out_format);
  // An empty side's areas may point nowhere: no address is formed from them.
  const void *src = src_frames != 0 ? areas_interleaved(src_areas, src_offset, channels, in_bytes) : nullptr;
  void *dst = dst_frames != 0 ? areas_interleaved(dst_areas, dst_offset, channels, out_bytes) : nullptr;
  size_t consumed = 0, written = 0;
  for (;;) {
    uint32_t in_n = src_frames - static_cast<uint32_t>(consumed);
    uint32_t out_n = dst_frames - static_cast<uint32_t>(written);
    const void *in = src != nullptr ? static_cast<const char *>(src) + consumed * channels * in_bytes : nullptr;
    void *out = dst != nullptr ? static_cast<char *>(dst) + written * channels * out_bytes : rec->out_work;
    if (in == nullptr) {
      if (in_n > kWorkFrames) in_n = kWorkFrames;
      areas_gather(src_areas, src_offset + consumed, channels, in_bytes, in_n, rec->in_work);
      in = rec->in_work;
    }
    if (dst == nullptr && out_n > kWorkFrames) out_n = kWorkFrames;
    if (process(rec, in_n != 0 ? in : nullptr, &in_n, out_n != 0 ? out : nullptr, &out_n) != RSMPL_OK) break;
    if (dst == nullptr) areas_scatter(dst_areas, dst_offset + written, channels, out_bytes, out_n, rec->out_work);
    consumed += in_n;
    written += out_n;
    // Everything taken and written (no call left to make), or no progress.
    if ((in_n == 0 && out_n == 0) || (consumed == src_frames && written == dst_frames)) break;
  }
  if (consumed == src_frames && written == dst_frames) return;
  areas_hold(dst_areas, dst_offset, channels, out_bytes, written, dst_frames);
  report_mismatch(rec, src_frames, written, dst_frames);
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

// S16 and S32 on either side, areas of any layout.
int hq_get_supported_formats(void *, uint64_t *in_formats, uint64_t *out_formats, unsigned int *flags) {
  *in_formats = *out_formats = (1ULL << SND_PCM_FORMAT_S16) | (1ULL << SND_PCM_FORMAT_S32);
  *flags = 0;
  return 0;
}

void hq_dump(void *obj, snd_output_t *out) {
  const hq_converter *rec = record(obj);
  if (!configured(rec)) {
    snd_output_printf(out, "RSMPL HQ Converter: not configured\n");
    return;
  }
  const RSMPL_HqInfo hq = info_of(rec);
  RSMPL_HqPosition pos{};
  if (rec->wide)
    RSMPL_Hq32GetPosition(rec->state32, &pos);
  else
    RSMPL_HqGetPosition(rec->state, &pos);
  // The delay to a thousandth of an input frame, rounded.
  const uint64_t milli = (uint64_t{pos.delayFraction} * 1000 + (uint64_t{1} << 31)) >> 32;
  snd_output_printf(out,
                    "RSMPL HQ Converter: %u -> %u Hz, %u channels, %s-bit filters, ratio %u/%u, "
                    "delay %u.%03u ms (%llu.%03u input frames)",
                    hq.inRate, hq.outRate, hq.channels, rec->wide ? "24" : "16", hq.ratioOut, hq.ratioIn,
                    hq.delayMicroseconds / 1000, hq.delayMicroseconds % 1000,
                    static_cast<unsigned long long>(pos.delayFrames + milli / 1000), static_cast<unsigned>(milli % 1000));
  if (rec->areas)
    snd_output_printf(out, ", %s -> %s%s", snd_pcm_format_name(rec->in_format),
                      snd_pcm_format_name(rec->out_format), rec->options.dither ? ", dither" : "");
  snd_output_printf(out, "\n");
}

// The options of `conf` (a compound, or null for a plain converter name):
// an unknown one or a bad value is reported by name and fails the open.
int parse_options(const snd_config_t *conf, hq_options *options) {
  if (conf == nullptr || snd_config_get_type(conf) != SND_CONFIG_TYPE_COMPOUND) return 0;
  snd_config_iterator_t i, next;
  snd_config_for_each(i, next, conf) {
    snd_config_t *n = snd_config_iterator_entry(i);
    const char *id = nullptr;
    if (snd_config_get_id(n, &id) < 0 || std::strcmp(id, "name") == 0) continue;
    if (std::strcmp(id, "dither") == 0) {
      const int on = snd_config_get_bool(n);
      if (on < 0) {
        HQ_REPORT("skelda_hq option dither takes a boolean (yes or no, on or off, true or false, 1 or 0)");
        return -EINVAL;
      }
      options->dither = on != 0;
      continue;
    }
    HQ_REPORT("skelda_hq has no option %s (it knows dither)", id);
    return -EINVAL;
  }
  return 0;
}

int open_converter(unsigned int version, void **objp, snd_pcm_rate_ops_t *ops, const hq_options &options) {
  auto *rec = static_cast<hq_converter *>(std::calloc(1, sizeof(hq_converter)));
  if (rec == nullptr) return -ENOMEM;
  rec->options = options;
  rec->areas = version >= kFormatsProtocol;
  *objp = rec;
  ops->close = hq_close;
  ops->init = hq_init;
  ops->free = hq_free;
  ops->reset = hq_reset;
  ops->adjust_pitch = hq_adjust_pitch;
  ops->convert = rec->areas ? hq_convert : nullptr;
  ops->convert_s16 = rec->areas ? nullptr : hq_convert_s16;
  ops->input_frames = hq_input_frames;
  ops->output_frames = hq_output_frames;
  // A 0x10001 caller's table ends at output_frames, a 0x10002 caller's at dump.
  if (version != kOldProtocol) {
    ops->version = rec->areas ? kFormatsProtocol : 0x10002;
    ops->get_supported_rates = hq_get_supported_rates;
    ops->dump = hq_dump;
  }
  if (rec->areas) ops->get_supported_formats = hq_get_supported_formats;
  return 0;
}

}  // namespace

extern "C" {

SKELDA_API int _snd_pcm_rate_skelda_hq_open(unsigned int version, void **objp,
                                            snd_pcm_rate_ops_t *ops) {
  return open_converter(version, objp, ops, hq_options{});
}

SKELDA_API int _snd_pcm_rate_skelda_hq_open_conf(unsigned int version, void **objp,
                                                 snd_pcm_rate_ops_t *ops, const snd_config_t *conf) {
  hq_options options{};
  const int err = parse_options(conf, &options);
  if (err < 0) return err;
  return open_converter(version, objp, ops, options);
}

}  // extern "C"
