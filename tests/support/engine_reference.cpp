#include "support/engine_reference.h"

#include "rsmpl/fir_reference.h"

std::vector<int16_t> engine_convert_channel(const std::vector<int16_t> &x, unsigned factor,
                                            bool up) {
  using namespace rsmpl;
  const FirKernelId id = factor == 2   ? (up ? kFirUp2 : kFirDown2)
                         : factor == 3 ? (up ? kFirUp3 : kFirDown3)
                                       : (up ? kFirUp6 : kFirDown6);
  return fir_test::stage_reference(fir_test::kernel_specs()[id], x);
}

std::vector<int16_t> deinterleave(const std::vector<int16_t> &interleaved, unsigned channels,
                                  unsigned c) {
  std::vector<int16_t> x;
  for (size_t i = c; i < interleaved.size(); i += channels) x.push_back(interleaved[i]);
  return x;
}
