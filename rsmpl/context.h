// SPDX-License-Identifier: MIT
// Layout of the resampler context. Callers see RSMPL_Context as opaque bytes;
// inside the engine it is a sample area followed by the sinc state.
#ifndef SKELDA_RSMPL_CONTEXT_H
#define SKELDA_RSMPL_CONTEXT_H

#include <cstdint>

#include "skelda/rsmpl.h"

namespace rsmpl {

// Largest block of one call (the work buffer, the largest RSMPL_Up output and
// the largest RSMPL_Resample block).
constexpr int kMaxBlock = 1440;
// The sample area: the largest block plus twice the longest sinc half-length.
constexpr int kSampleAreaSize = 1648;

struct SincState {
  uint32_t halfLength;         // half-length the next call leaves as history
  uint32_t historyHalfLength;  // half-length the stored history was kept for
  uint32_t nextGain;           // Q24, pending
  uint32_t gain;               // Q24, in force
  uint32_t nextStep;           // Q24 input samples per output, pending
  uint32_t step;               // Q24, in force
  uint32_t nextPhaseStep;      // Q16 sinc-table entries per input, pending
  uint32_t phaseStep;          // Q16, in force
  int32_t position;            // Q16 time of the next output
  float ratio;                 // output rate / input rate as last set
};

}  // namespace rsmpl

struct RSMPL_Context {
  int16_t samples[rsmpl::kSampleAreaSize];
  rsmpl::SincState sinc;
};

static_assert(sizeof(RSMPL_Context) == 3336, "context layout is part of the ABI");

#endif
