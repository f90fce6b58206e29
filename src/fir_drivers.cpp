// SPDX-License-Identifier: MIT
// FIR block drivers: cut a period into chunks the engine accepts, convert
// each channel of a chunk in place in the work buffer on its own context, and
// interleave the result. The filter history lives in the contexts, so chunk
// and period boundaries leave no seams.
#include "src/rate_rsmpl.h"

#include <cstring>

#include "skelda/rsmpl_fir.h"

namespace {

constexpr unsigned kDownLimit = 1440;  // largest tail converted as one chunk
constexpr unsigned kDownChunk = 960;   // a multiple of 4 and of 6

using StageDriver = void (*)(const int16_t *in, int16_t *out, RSMPL_Context *ctx, int32_t n);

// The stage drivers behind ratio codes 1, 2 and 4 (factors 2, 3 and 6).
StageDriver stage_for(int32_t code, bool up) {
  switch (code) {
    case RSMPL_RATIO_2: return up ? Upsample2_1 : Downsample1_2;
    case RSMPL_RATIO_3: return up ? Upsample3_1 : Downsample1_3;
    case RSMPL_RATIO_6: return up ? Upsample6_1 : Downsample1_6;
    default: return nullptr;
  }
}

void report_mismatch_once(rsmpl_converter *rec, unsigned src_frames, unsigned dst_frames) {
  if (rec->fir_mismatch_reported) return;
  rec->fir_mismatch_reported = true;
  RSMPL_REPORT("period of %u frames does not convert to %u frames at factor %u", src_frames,
               dst_frames, rec->factor);
}

// Converts `chunk` frames of every channel, starting at input frame
// `in_frame`, and interleaves `out_chunk` output frames from output frame
// `out_frame`, dropping those at or beyond dst_frames.
//
// The checked engine call refuses some lengths its stage drivers convert
// exactly: a down chunk that is a multiple of the factor but not of 4 or 6 or
// below the minimum, an up chunk below 4 or 6 frames. Those go straight to
// the stage driver with the chunk's whole groups, so the history stays exact
// and every output sample written is a converted one.
void convert_chunk(rsmpl_converter *rec, bool up, int16_t *dst, unsigned dst_frames,
                   unsigned out_frame, const int16_t *src, unsigned chunk, unsigned out_chunk) {
  const unsigned channels = rec->channels;
  const int32_t code = up ? rec->up_code : rec->down_code;
  const unsigned groups = up ? chunk : chunk / rec->factor * rec->factor;
  const unsigned writable =
      out_frame >= dst_frames ? 0 : (dst_frames - out_frame < out_chunk ? dst_frames - out_frame
                                                                        : out_chunk);
  int16_t *work = rec->work;
  for (unsigned c = 0; c < channels; ++c) {
    for (unsigned i = 0; i < chunk; ++i) work[i] = src[i * channels + c];
    RSMPL_Context *ctx = rec->contexts[c];
    const uint32_t status = up ? RSMPL_Up(ctx, work, work, static_cast<int32_t>(chunk), code)
                               : RSMPL_Down(ctx, work, work, static_cast<int32_t>(chunk), code);
    if (status == RSMPL_ERR_BAD_LENGTH) stage_for(code, up)(work, work, ctx, groups);
    for (unsigned j = 0; j < writable; ++j)
      dst[(static_cast<size_t>(out_frame) + j) * channels + c] = work[j];
  }
}

// Frames past what the period converts to are silenced rather than left
// holding whatever the buffer held before.
void silence_tail(rsmpl_converter *rec, int16_t *dst, unsigned produced, unsigned dst_frames) {
  if (produced >= dst_frames) return;
  std::memset(dst + static_cast<size_t>(produced) * rec->channels, 0,
              static_cast<size_t>(dst_frames - produced) * rec->channels * sizeof(int16_t));
}

}  // namespace

extern "C" {

// Writes src_frames / factor frames, whole groups of each chunk; input
// frames that do not fill a last group of a chunk are dropped. With period
// sizes in the exact ratio this is dst_frames. Otherwise at most dst_frames
// frames are written, any frames beyond the converted ones are silenced,
// and the mismatch is reported once.
void src_fir_down_s16(void *obj, int16_t *dst, unsigned int dst_frames, const int16_t *src,
                      unsigned int src_frames) {
  auto *rec = static_cast<rsmpl_converter *>(obj);
  const unsigned factor = rec->factor;
  if (src_frames == 0 || rec->channels == 0 || stage_for(rec->down_code, false) == nullptr) return;
  unsigned remaining = src_frames;
  unsigned produced = 0;
  while (remaining != 0) {
    unsigned chunk = remaining;
    if (remaining > kDownLimit) chunk = kDownChunk;
    remaining -= chunk;
    convert_chunk(rec, false, dst, dst_frames, produced, src, chunk, chunk / factor);
    src += static_cast<size_t>(chunk) * rec->channels;
    produced += chunk / factor;
  }
  if (produced != dst_frames || src_frames % factor != 0)
    report_mismatch_once(rec, src_frames, dst_frames);
  silence_tail(rec, dst, produced, dst_frames);
}

// Writes src_frames * factor frames, bounded and completed to dst_frames as
// the down driver does.
void src_fir_up_s16(void *obj, int16_t *dst, unsigned int dst_frames, const int16_t *src,
                    unsigned int src_frames) {
  auto *rec = static_cast<rsmpl_converter *>(obj);
  const unsigned factor = rec->factor;
  if (src_frames == 0 || rec->channels == 0 || stage_for(rec->up_code, true) == nullptr) return;
  const unsigned limit = kWorkSamples / factor;
  unsigned remaining = src_frames;
  unsigned produced = 0;
  while (remaining != 0) {
    unsigned chunk = remaining;
    if (remaining > limit) chunk = kDownChunk / factor;
    remaining -= chunk;
    convert_chunk(rec, true, dst, dst_frames, produced, src, chunk, chunk * factor);
    src += static_cast<size_t>(chunk) * rec->channels;
    produced += chunk * factor;
  }
  if (produced != dst_frames) report_mismatch_once(rec, src_frames, dst_frames);
  silence_tail(rec, dst, produced, dst_frames);
}

}  // extern "C"
