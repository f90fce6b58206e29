// SPDX-License-Identifier: MIT
// The FIR path's way out when alsa-lib's periods do not convert exactly at
// the factor (1024 frames at 48000 -> 16000, say): such a stream runs through
// the high-quality resampler at exactly the periods' ratio instead, so every
// period converts to exactly dst_frames without dropped input or silence.
// Periods that do convert exactly stay on the FIR path, sample for sample.
#include <cstdio>
#include <cstdlib>

#include "skelda/rsmpl_hq.h"
#include "src/hq_period.h"
#include "src/rate_rsmpl.h"

namespace {

bool fir_exact(const rsmpl_converter *rec, uint64_t in_period, uint64_t out_period) {
  const uint64_t factor = rec->factor;
  if (rec->up_code >= 0) return out_period == in_period * factor;
  return in_period % factor == 0 && out_period == in_period / factor;
}

}  // namespace

extern "C" {

// Called once the periods are known. In FIR mode, periods that do not convert
// exactly switch the stream to the resampler (reported once, as the FIR
// drivers report a mismatch); periods that do switch it back. When no
// resampler fits (no memory, or periods too far from the rates' ratio) the
// stream stays on the FIR drivers, which bound and complete each period.
void rsmpl_follow_periods(rsmpl_converter *rec, unsigned in_rate, unsigned out_rate,
                          uint64_t in_period, uint64_t out_period) {
  const bool fir = rec->up_code >= 0 || rec->down_code >= 0;
  if (!fir || rec->factor < 2 || in_period == 0 || out_period == 0) return;
  const bool up = rec->up_code >= 0;
  rec->convert_fn = up ? src_fir_up_s16 : src_fir_down_s16;
  std::snprintf(rec->name, sizeof rec->name, up ? "FIR filter, UP %u -> %u" : "FIR filter, DOWN %u -> %u",
                in_rate, out_rate);
  if (fir_exact(rec, in_period, out_period)) return;
  if (!rec->fir_mismatch_reported) {
    rec->fir_mismatch_reported = true;
    RSMPL_REPORT("period of %u frames does not convert to %u frames at factor %u",
                 static_cast<unsigned>(in_period), static_cast<unsigned>(out_period), rec->factor);
  }
  uint32_t bytes = 0;
  if (in_period > UINT32_MAX || out_period > UINT32_MAX ||
      RSMPL_HqGetStateSize(in_rate, out_rate, rec->channels, &bytes) != RSMPL_OK)
    return;
  if (rec->hq == nullptr || rec->hq_bytes < bytes) {
    auto *state = static_cast<RSMPL_HqState *>(std::malloc(bytes));
    if (state == nullptr) return;
    std::free(rec->hq);
    rec->hq = state;
    rec->hq_bytes = bytes;
  }
  if (RSMPL_HqInit(rec->hq, rec->hq_bytes, in_rate, out_rate, rec->channels) != RSMPL_OK ||
      RSMPL_HqSetRatio(rec->hq, static_cast<uint32_t>(out_period),
                       static_cast<uint32_t>(in_period)) != RSMPL_OK)
    return;
  rec->convert_fn = src_hq_s16;
  std::snprintf(rec->name, sizeof rec->name, "Windowed sinc at periods %u -> %u, %s %u -> %u",
                static_cast<unsigned>(in_period), static_cast<unsigned>(out_period),
                up ? "UP" : "DOWN", in_rate, out_rate);
}

void src_hq_s16(void *obj, int16_t *dst, unsigned int dst_frames, const int16_t *src,
                unsigned int src_frames) {
  auto *rec = static_cast<rsmpl_converter *>(obj);
  uint32_t made = 0;
  if (rec->hq != nullptr)
    hq_convert_period(rec->hq, rec->channels, dst, dst_frames, src, src_frames, &made);
}

}  // extern "C"

bool hq_convert_period(RSMPL_HqState *state, unsigned channels, int16_t *dst,
                       unsigned dst_frames, const int16_t *src, unsigned src_frames,
                       uint32_t *made) {
  uint32_t in = src_frames, out = dst_frames;
  *made = 0;
  if (RSMPL_HqProcess(state, src, &in, dst, &out) != RSMPL_OK) return true;
  *made = out;
  for (unsigned i = out; i < dst_frames; ++i)
    for (unsigned c = 0; c < channels; ++c)
      dst[static_cast<size_t>(i) * channels + c] =
          i == 0 ? 0 : dst[static_cast<size_t>(i - 1) * channels + c];
  return in == src_frames && out == dst_frames;
}
