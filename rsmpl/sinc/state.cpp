// SPDX-License-Identifier: MIT
// Sinc interpolator set-up: ratio, fractional delay and the input/output
// accounting that callers size their blocks with.
#include <cmath>
#include <cstdint>

#include "rsmpl/context.h"
#include "rsmpl/sinc/position.h"
#include "skelda/fixed_point.h"

namespace {

constexpr uint32_t kLargestBlock = rsmpl::kMaxBlock;
constexpr uint32_t kShortestHalfLength = 13;

// Growth of the filter that the pending ratio brings (negative: it shrinks).
int32_t PendingGrowth(const rsmpl::SincState &s) {
  return static_cast<int32_t>(s.halfLength - s.historyHalfLength);
}

}  // namespace

extern "C" {

SKELDA_API void RSMPLSetResampleRatio(RSMPL_Context *ctx, uint32_t *minInSamples,
                                      uint32_t *maxInSamples, uint32_t *extraOutSamples,
                                      float ratio) {
  rsmpl::SincState &s = ctx->sinc;
  const float inverse = 1.0f / ratio;
  s.ratio = ratio;
  s.nextStep = ToUFix(24, inverse);
  // Below ratio 1 the prototype is stretched so its cutoff follows the
  // output rate; above it the input rate bounds the band.
  const float phaseStep = ratio * 128.0f;
  s.nextPhaseStep = ToUFix(16, phaseStep <= 128.0f ? phaseStep : 128.0f);
  if (ratio < 1.0f) {
    s.nextGain = ToUFix(24, ratio);
    s.halfLength = static_cast<uint32_t>(inverse * 13.0f);
  } else {
    s.nextGain = ToUFix(24, 1.0f);
    s.halfLength = kShortestHalfLength;
  }
  const int32_t growth = PendingGrowth(s);
  if (maxInSamples != nullptr) *maxInSamples = kLargestBlock;
  if (minInSamples != nullptr) *minInSamples = static_cast<uint32_t>(growth > 0 ? growth : 0) + 1;
  if (extraOutSamples != nullptr) {
    if (growth >= 0) {
      *extraOutSamples = 1;
    } else {
      const float extra = std::fma(static_cast<float>(-growth), ratio, 0.5f);
      *extraOutSamples = static_cast<uint32_t>(extra) + 1;
    }
  }
}

SKELDA_API void RSMPLSetFracDelay(RSMPL_Context *ctx, uint32_t *minInSamples,
                                  uint32_t *maxInSamples, float delay) {
  RSMPLSincReset(ctx);
  ctx->sinc.position = static_cast<int32_t>(ToUFix(16, delay));
  *maxInSamples = kLargestBlock;
  *minInSamples = 1;
}

SKELDA_API uint32_t RSMPLGetNumInSamples(RSMPL_Context *ctx, uint16_t numOutSamples) {
  const rsmpl::SincState &s = ctx->sinc;
  const int32_t end = rsmpl::SincOutputPosition(s.position, s.step, numOutSamples);
  return static_cast<uint32_t>(PendingGrowth(s) + (end >> 16));
}

SKELDA_API uint32_t RSMPL_SetResampleRatio(RSMPL_Context *ctx, uint32_t *minInSamples,
                                           uint32_t *maxInSamples, uint32_t *extraOutSamples,
                                           float ratio) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  // Written so that NaN fails too: a NaN ratio would give a zero step and
  // an interpolation call that never reaches the end of its block.
  if (!(ratio >= 0.125f)) return RSMPL_ERR_BAD_RATIO;
  if (!(ratio <= 8.0f)) return RSMPL_ERR_BAD_RATIO;
  RSMPLSetResampleRatio(ctx, minInSamples, maxInSamples, extraOutSamples, ratio);
  return RSMPL_OK;
}

SKELDA_API uint32_t RSMPL_SetFracDelay(RSMPL_Context *ctx, uint32_t *minInSamples,
                                       uint32_t *maxInSamples, float delay) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (!(delay >= 0.0f)) return RSMPL_ERR_BAD_DELAY;  // NaN fails as well
  if (!(delay <= 1.0f)) return RSMPL_ERR_BAD_DELAY;
  if (minInSamples == nullptr || maxInSamples == nullptr) return RSMPL_ERR_NULL_POINTER;
  RSMPLSetFracDelay(ctx, minInSamples, maxInSamples, delay);
  return RSMPL_OK;
}

SKELDA_API uint32_t RSMPL_GetNumInSamples(RSMPL_Context *ctx, int32_t numOutSamples,
                                          uint32_t *numInSamples) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (numOutSamples <= 0) return RSMPL_ERR_BAD_LENGTH;
  const int32_t limit = static_cast<int32_t>(ctx->sinc.ratio * 1440.0f);
  if (numOutSamples > limit) return RSMPL_ERR_BAD_LENGTH;
  if (numInSamples == nullptr) return RSMPL_ERR_NULL_POINTER;
  *numInSamples = RSMPLGetNumInSamples(ctx, static_cast<uint16_t>(numOutSamples));
  return RSMPL_OK;
}

SKELDA_API uint32_t RSMPL_GetResampleDelay(RSMPL_Context *ctx, uint32_t *delay) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (delay == nullptr) return RSMPL_ERR_NULL_POINTER;
  *delay = ctx->sinc.halfLength;
  return RSMPL_OK;
}

}  // extern "C"
