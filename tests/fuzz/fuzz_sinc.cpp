// SPDX-License-Identifier: MIT
// The sinc interpolator's calls in arbitrary sequences: set ratio (any float,
// NaN and infinities included), set delay, ask for counts, resample blocks of
// the length asked for or of any length. Output blocks are heap buffers of
// exactly the room a caller leaves (ceil(n * r) + extraOutSamples at the ratio
// in force), so AddressSanitizer sees any write beyond them.
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "rsmpl/context.h"
#include "skelda/rsmpl_sinc.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  std::unique_ptr<RSMPL_Context> ctx(new RSMPL_Context);
  RSMPL_InitContext(ctx.get());
  double in_force = 1.0, pending = 1.0;
  uint32_t extra = 1;
  for (int step = 0; step < 48 && !in.empty(); ++step) {
    const uint8_t action = in.take<uint8_t>() % 6;
    if (action == 0) {
      float ratio = in.take<float>();
      if (in.take<uint8_t>() & 1) ratio = 0.125f + float(in.below(100000)) * (7.875f / 99999.0f);
      uint32_t lo = 0, hi = 0, e = 0;
      const uint32_t status = RSMPL_SetResampleRatio(ctx.get(), &lo, &hi, &e, ratio);
      if (status == RSMPL_OK) {
        pending = ratio;
        extra = e;
      } else if (!(status == 3 && !(ratio >= 0.125f && ratio <= 8.0f))) {
        __builtin_trap();
      }
    } else if (action == 1) {
      uint32_t lo = 0, hi = 0;
      const float delay = in.take<float>();
      if (RSMPL_SetFracDelay(ctx.get(), &lo, &hi, delay) == RSMPL_OK) {
        in_force = pending = 1.0;
        extra = 1;
      }
    } else if (action == 2) {
      uint32_t need = 0;
      RSMPL_GetNumInSamples(ctx.get(), in.take<int32_t>() % 12000, &need);
      uint32_t delay = 0;
      RSMPL_GetResampleDelay(ctx.get(), &delay);
      if (delay < 13 || delay > 104) __builtin_trap();
    } else {
      int32_t n;
      if (action == 3) {
        uint32_t need = 0;
        const int32_t want = int32_t(in.below(1440 * 8)) + 1;
        if (RSMPL_GetNumInSamples(ctx.get(), want, &need) != RSMPL_OK) continue;
        n = int32_t(need);
      } else {
        n = int32_t(in.below(1600)) - 80;
      }
      const int32_t growth = int32_t(ctx->sinc.halfLength - ctx->sinc.historyHalfLength);
      const size_t in_size = n > 0 && n <= 1440 ? size_t(n) : 1;
      const size_t room =
          n > 0 && n <= 1440 ? size_t(std::ceil(n * in_force)) + (growth < 0 ? extra : 1) : 1;
      std::unique_ptr<int16_t[]> src(new int16_t[in_size]);
      for (size_t i = 0; i < in_size; ++i) src[i] = in.take<int16_t>();
      std::unique_ptr<int16_t[]> out(new int16_t[room]);
      uint32_t count = 0;
      if (RSMPL_Resample(ctx.get(), src.get(), out.get(), n, &count) == RSMPL_OK) {
        if (count > room) __builtin_trap();
        in_force = pending;
        extra = 1;
      }
    }
  }
  return 0;
}
