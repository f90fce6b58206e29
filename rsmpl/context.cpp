// SPDX-License-Identifier: MIT
// Resampler context: size, initialisation and reset.
#include "rsmpl/context.h"

#include <atomic>
#include <cstring>

namespace {

// Records that the one-time coefficient set-up has run (it does nothing:
// the tables are constant data). Atomic, because contexts may be
// initialised on several threads at once, and only one of them runs it.
std::atomic<uint32_t> g_coefficients_ready{0};

constexpr uint32_t kQ24One = 1u << 24;
constexpr uint32_t kQ16Of128 = 128u << 16;  // what ToUFix(16, 128.0f) gives
constexpr uint32_t kShortestHalfLength = 13;

}  // namespace

extern "C" {

SKELDA_API void InitRsmplCoeff_2_1(void) {}
SKELDA_API void InitRsmplCoeff_3_2(void) {}
SKELDA_API void InitRsmplCoeff_3_1(void) {}
SKELDA_API void InitRsmplCoeff_4_1(void) {}
SKELDA_API void InitRsmplCoeff_6_1(void) {}
SKELDA_API void RSMPLSincLPFInit(void) {}

SKELDA_API uint32_t RSMPL_GetContextSize(void) { return sizeof(RSMPL_Context); }

SKELDA_API void RSMPLSincReset(RSMPL_Context *ctx) {
  std::memset(ctx->samples, 0, sizeof ctx->samples);
  rsmpl::SincState &s = ctx->sinc;
  s.ratio = 1.0f;
  s.nextStep = s.step = kQ24One;
  s.nextPhaseStep = s.phaseStep = kQ16Of128;
  s.position = 0;
  s.halfLength = s.historyHalfLength = kShortestHalfLength;
  s.nextGain = s.gain = kQ24One;
}

SKELDA_API RSMPL_Status RSMPL_InitContext(RSMPL_Context *ctx) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  std::memset(ctx, 0, sizeof *ctx);
  if (g_coefficients_ready.exchange(1, std::memory_order_relaxed) == 0) {
    InitRsmplCoeff_2_1();
    InitRsmplCoeff_3_2();
    InitRsmplCoeff_3_1();
    InitRsmplCoeff_4_1();
    InitRsmplCoeff_6_1();
    RSMPLSincLPFInit();
  }
  RSMPLSincReset(ctx);
  return RSMPL_OK;
}

SKELDA_API RSMPL_Status RSMPL_Reset(RSMPL_Context *ctx) {
  if (ctx == nullptr) return RSMPL_ERR_NULL_CONTEXT;
  RSMPLSincReset(ctx);
  return RSMPL_OK;
}

}  // extern "C"
