// SPDX-License-Identifier: MIT
// One alsa-lib period through the high-quality resampler, shared by the
// skelda_hq converter and skelda's FIR streams on uneven periods.
#ifndef SKELDA_SRC_HQ_PERIOD_H
#define SKELDA_SRC_HQ_PERIOD_H

#include <cstdint>

#include "skelda/rsmpl_hq.h"

// Converts src_frames into exactly dst_frames. Whole periods at the ratio set
// from the period sizes convert exactly; anything else (which alsa-lib does
// not send) still fills dst_frames, repeating the last frame written (or
// silence), and returns false so the caller can report it; *made receives
// the frames the resampler itself wrote.
bool hq_convert_period(RSMPL_HqState *state, unsigned channels, int16_t *dst,
                       unsigned dst_frames, const int16_t *src, unsigned src_frames,
                       uint32_t *made);

#endif
