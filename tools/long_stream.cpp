// SPDX-License-Identifier: MIT
// Streams a tone through a high-quality resampler, 10 ms periods, until the
// input and the output have both passed 2^32 frames (or the frames given),
// and checks every output frame against the tone's own recurrence: a
// sinusoid keeps y[n] + y[n - 2] = 2 cos(w) y[n - 1], so a seam, a skipped or
// repeated frame or a position that wrapped shows as a residual far above
// the resampler's noise. Prints the largest residual (dBFS) and where it
// was; exit status 1 when it is above the limit (-100 dBFS for the 32-bit
// resampler in S32, -60 for the 16-bit one), 2 for usage.
//
//   long_stream [--s16] [IN_RATE OUT_RATE [OUTPUT_FRAMES]]
//
// Defaults: 48000 -> 44100, the 32-bit resampler in S32, 2^32 + 2^20
// output frames (about a minute of CPU per 2^32 frames with AVX2).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "skelda/rsmpl_hq.h"

namespace {

struct Args {
  bool s16 = false;
  uint32_t in_rate = 48000, out_rate = 44100;
  uint64_t frames = (uint64_t{1} << 32) + (uint64_t{1} << 20);
};

bool parse(int argc, char **argv, Args &a) {
  int i = 1;
  if (i < argc && std::strcmp(argv[i], "--s16") == 0) a.s16 = true, ++i;
  if (argc - i != 0 && argc - i != 2 && argc - i != 3) return false;
  if (argc - i >= 2) {
    a.in_rate = static_cast<uint32_t>(std::strtoul(argv[i], nullptr, 10));
    a.out_rate = static_cast<uint32_t>(std::strtoul(argv[i + 1], nullptr, 10));
  }
  if (argc - i == 3) a.frames = std::strtoull(argv[i + 2], nullptr, 10);
  // The rates are the resampler's to check (Init, below).
  return a.in_rate > 0 && a.out_rate > 0 && a.frames > 0;
}

}  // namespace

int main(int argc, char **argv) {
  Args a;
  if (!parse(argc, argv, a)) {
    std::fprintf(stderr, "usage: long_stream [--s16] [IN_RATE OUT_RATE [OUTPUT_FRAMES]]\n");
    return 2;
  }
  // A tone of a whole number of input samples per cycle, half of full scale,
  // at about a tenth of the lower rate.
  const uint32_t low = a.in_rate < a.out_rate ? a.in_rate : a.out_rate;
  const uint32_t cycle = 10 * a.in_rate / low;
  const double full = a.s16 ? 32768.0 : 2147483648.0, amplitude = full / 2;
  const double w = 2 * M_PI * (double(a.in_rate) / cycle) / a.out_rate, twice_cos = 2 * std::cos(w);
  const uint32_t in_period = a.in_rate / 100, out_room = a.out_rate / 100 + 16;
  std::vector<int32_t> in32(in_period), out32(out_room), tone32(cycle);
  std::vector<int16_t> in16(in_period), out16(out_room), tone16(cycle);
  for (uint32_t k = 0; k < cycle; ++k) {
    const double v = amplitude * std::sin(2 * M_PI * k / cycle);
    tone32[k] = static_cast<int32_t>(std::lround(v));
    tone16[k] = static_cast<int16_t>(std::lround(v));
  }

  RSMPL_HqState *hq = nullptr;
  RSMPL_Hq32State *hq32 = nullptr;
  uint32_t size = 0;
  const RSMPL_Status sized = a.s16 ? RSMPL_HqGetStateSize(a.in_rate, a.out_rate, 1, &size)
                                   : RSMPL_Hq32GetStateSize(a.in_rate, a.out_rate, 1, &size);
  void *block = std::aligned_alloc(64, (size + 63) / 64 * 64);
  if (sized != RSMPL_OK || block == nullptr ||
      (a.s16 ? RSMPL_HqInit(hq = static_cast<RSMPL_HqState *>(block), size, a.in_rate, a.out_rate, 1)
             : RSMPL_Hq32Init(hq32 = static_cast<RSMPL_Hq32State *>(block), size, a.in_rate, a.out_rate,
                              1)) != RSMPL_OK) {
    std::fprintf(stderr, "long_stream: no resampler for %u -> %u\n", a.in_rate, a.out_rate);
    return 2;
  }

  uint64_t in_total = 0, out_total = 0, worst_at = 0;
  uint32_t phase = 0;
  double worst = 0, y1 = 0, y2 = 0;
  const uint64_t settle = a.out_rate;  // the first second leaves silence behind
  const uint64_t past = (uint64_t{1} << 32) + (uint64_t{1} << 20);
  while (out_total < a.frames || (a.frames >= past && in_total < past)) {
    for (uint32_t i = 0; i < in_period; ++i, phase = phase + 1 == cycle ? 0 : phase + 1) {
      in32[i] = tone32[phase];
      in16[i] = tone16[phase];
    }
    uint32_t in_frames = in_period, out_frames = out_room;
    const RSMPL_Status st =
        a.s16 ? RSMPL_HqProcess(hq, in16.data(), &in_frames, out16.data(), &out_frames)
              : RSMPL_Hq32Process(hq32, in32.data(), RSMPL_HQ_S32, &in_frames, out32.data(), RSMPL_HQ_S32,
                                  &out_frames);
    if (st != RSMPL_OK || in_frames != in_period) {
      std::fprintf(stderr, "long_stream: status %d, %u of %u frames taken at input frame %llu\n", st,
                   in_frames, in_period, static_cast<unsigned long long>(in_total));
      return 1;
    }
    in_total += in_frames;
    for (uint32_t i = 0; i < out_frames; ++i, ++out_total) {
      const double y = a.s16 ? out16[i] : out32[i];
      const double residual = std::fabs(y + y2 - twice_cos * y1);
      if (out_total >= settle + 2 && residual > worst) worst = residual, worst_at = out_total;
      y2 = y1;
      y1 = y;
    }
  }
  std::free(block);
  const double db = worst > 0 ? 20 * std::log10(worst / full) : -999;
  const double limit = a.s16 ? -60 : -100;
  std::printf("%s %u -> %u: %llu input and %llu output frames, largest residual %.1f dBFS at output "
              "frame %llu (limit %.0f)\n",
              a.s16 ? "16-bit" : "32-bit", a.in_rate, a.out_rate, static_cast<unsigned long long>(in_total),
              static_cast<unsigned long long>(out_total), db, static_cast<unsigned long long>(worst_at), limit);
  return db <= limit ? 0 : 1;
}
