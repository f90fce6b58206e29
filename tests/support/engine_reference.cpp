#include "support/engine_reference.h"

#include <cstdlib>

#include "skelda/rsmpl.h"
#include "skelda/rsmpl_fir.h"

std::vector<int16_t> engine_convert_channel(const std::vector<int16_t> &x, unsigned factor,
                                            bool up) {
  using Stage = void (*)(const int16_t *, int16_t *, RSMPL_Context *, int32_t);
  const Stage stage = factor == 2   ? (up ? Upsample2_1 : Downsample1_2)
                      : factor == 3 ? (up ? Upsample3_1 : Downsample1_3)
                                    : (up ? Upsample6_1 : Downsample1_6);
  auto *ctx = static_cast<RSMPL_Context *>(std::malloc(RSMPL_GetContextSize()));
  RSMPL_InitContext(ctx);
  const size_t n = up ? x.size() : x.size() / factor * factor;
  std::vector<int16_t> out(up ? n * factor : n / factor);
  // The down stage reads its input in place, so give it a copy.
  std::vector<int16_t> in(x.begin(), x.begin() + n);
  if (n > 0) stage(in.data(), out.data(), ctx, static_cast<int32_t>(n));
  std::free(ctx);
  return out;
}

std::vector<int16_t> deinterleave(const std::vector<int16_t> &interleaved, unsigned channels,
                                  unsigned c) {
  std::vector<int16_t> x;
  for (size_t i = c; i < interleaved.size(); i += channels) x.push_back(interleaved[i]);
  return x;
}
