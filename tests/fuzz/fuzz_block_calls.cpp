// SPDX-License-Identifier: MIT
// RSMPL_Up / RSMPL_Down with arbitrary codes, lengths and buffers, in any
// order on one context, in place or not. Each buffer is a heap block of
// exactly what an accepted call may read or write, so AddressSanitizer sees
// any access beyond it; a refused call must leave context and output as they
// were.
#include <cstring>
#include <memory>
#include <vector>

#include "rsmpl/context.h"
#include "skelda/rsmpl_fir.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// Outputs an accepted call writes (codes 0..4), or -1 when out of rule.
int64_t outputs(bool up, uint32_t code, int32_t n) {
  static const int up_l[] = {3, 2, 3, 4, 6}, up_m[] = {2, 1, 1, 1, 1};
  static const int down_m[] = {3, 2, 3, 4, 6}, down_l[] = {2, 1, 1, 1, 1};
  if (code > 4 || n <= 0) return -1;
  return up ? int64_t{n} / up_m[code] * up_l[code] : int64_t{n} / down_m[code] * down_l[code];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  std::unique_ptr<RSMPL_Context> ctx(new RSMPL_Context);
  if (RSMPL_InitContext(ctx.get()) != RSMPL_OK) __builtin_trap();
  for (int step = 0; step < 32 && !in.empty(); ++step) {
    const bool up = in.take<uint8_t>() & 1;
    const uint8_t mode = in.take<uint8_t>();
    const uint32_t code = (mode & 0x80) ? in.take<uint32_t>() : (mode & 7);
    int32_t n = static_cast<int32_t>(in.below(4200)) - 100;
    if (mode & 0x40) n = in.take<int32_t>();
    const bool in_place = mode & 0x20;
    if (mode & 0x10) {
      RSMPL_Reset(ctx.get());
      continue;
    }
    // Down calls have no upper limit; past this the buffers would only cost
    // time, as the rules and drivers are the same for any length.
    if (n > 65536) continue;
    // Sized for an accepted call; a call refused for its length gets a
    // one-sample buffer so that any access past it is caught.
    const int64_t produced = outputs(up, code, n);
    const size_t in_size = n > 0 ? size_t(n) : 1;
    const size_t out_size = produced > 0 ? size_t(produced) : 1;
    std::unique_ptr<int16_t[]> src(new int16_t[in_place ? std::max(in_size, out_size) : in_size]);
    for (size_t i = 0; i < in_size; ++i) src[i] = in.take<int16_t>();
    std::unique_ptr<int16_t[]> dst(in_place ? nullptr : new int16_t[out_size]());
    int16_t *out = in_place ? src.get() : dst.get();
    RSMPL_Context before;
    std::memcpy(&before, ctx.get(), sizeof before);
    const uint32_t status = up ? RSMPL_Up(ctx.get(), src.get(), out, n, code)
                               : RSMPL_Down(ctx.get(), src.get(), out, n, code);
    if (status != RSMPL_OK && std::memcmp(&before, ctx.get(), sizeof before) != 0) __builtin_trap();
    if (status == RSMPL_OK && (produced < 0 || (up && produced > 1440))) __builtin_trap();
  }
  return 0;
}
