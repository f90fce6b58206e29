// SPDX-License-Identifier: MIT
// RSMPL_Up and RSMPL_Down: argument checks in a fixed order, then the stage
// driver of the ratio code. A failed check changes nothing.
#include "rsmpl/context.h"
#include "skelda/rsmpl_fir.h"

namespace {

using StageDriver = void (*)(const int16_t *, int16_t *, RSMPL_Context *, int32_t);

struct StageRule {
  StageDriver driver;
  int32_t min_length;
  int32_t multiple;   // down: n must be a multiple of this; up: of this too (code 0 pairs)
  int32_t outputs;    // up: outputs per `multiple` inputs
};

// Indexed by ratio code 0..4.
constexpr StageRule kDownRules[] = {
    {Downsample2_3, 18, 6, 0}, {Downsample1_2, 8, 4, 0}, {Downsample1_3, 18, 6, 0},
    {Downsample1_4, 16, 4, 0}, {Downsample1_6, 36, 6, 0}};
constexpr StageRule kUpRules[] = {
    {Upsample3_2, 6, 2, 3}, {Upsample2_1, 4, 1, 2}, {Upsample3_1, 6, 1, 3},
    {Upsample4_1, 4, 1, 4}, {Upsample6_1, 6, 1, 6}};

constexpr int64_t kMaxUpOutputs = 1440;

}  // namespace

extern "C" {

// No upper limit on n: the down drivers run any length from the caller's
// buffer.
SKELDA_API uint32_t RSMPL_Down(RSMPL_Context *ctx, const int16_t *in, int16_t *out, int32_t n,
                               uint32_t code) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (in == nullptr || out == nullptr) return RSMPL_ERR_NULL_POINTER;
  if (code > 4) return RSMPL_ERR_BAD_RATIO;
  const StageRule &rule = kDownRules[code];
  if (n < rule.min_length || n % rule.multiple != 0) return RSMPL_ERR_BAD_LENGTH;
  rule.driver(in, out, ctx, n);
  return RSMPL_OK;
}

// At most 1440 outputs per call, counted in 64 bits so no product can wrap
// into range. Code 0 converts whole pairs, so an odd n is refused with 4
// rather than leaving the last sample out of both the output and the history.
SKELDA_API uint32_t RSMPL_Up(RSMPL_Context *ctx, const int16_t *in, int16_t *out, int32_t n,
                             uint32_t code) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  if (in == nullptr || out == nullptr) return RSMPL_ERR_NULL_POINTER;
  if (code > 4) return RSMPL_ERR_BAD_RATIO;
  const StageRule &rule = kUpRules[code];
  if (n < rule.min_length || n % rule.multiple != 0 ||
      int64_t{n} / rule.multiple * rule.outputs > kMaxUpOutputs)
    return RSMPL_ERR_BAD_LENGTH;
  rule.driver(in, out, ctx, n);
  return RSMPL_OK;
}

}  // extern "C"
