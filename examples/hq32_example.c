/* SPDX-License-Identifier: MIT */
/* Converts one second of a 24-bit 997 Hz stereo tone (in S32 frames) from
 * 96000 Hz to 44100 Hz with the 32-bit resampler, in 960-frame blocks, once
 * to S32 (the 24 bits kept) and once to S16 with dither, and prints how far
 * the S32 output lies from the ideal tone.
 *
 *   cc hq32_example.c $(pkg-config --cflags --libs skelda) -lm */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <skelda/rsmpl_hq.h>

int main(void) {
  enum { kChannels = 2, kBlock = 960, kBlocks = 100 };
  uint32_t size = 0;
  if (RSMPL_Hq32GetStateSize(96000, 44100, kChannels, &size) != RSMPL_OK) return 1;
  RSMPL_Hq32State *wide = malloc(size), *narrow = malloc(size);
  if (wide == NULL || narrow == NULL || RSMPL_Hq32Init(wide, size, 96000, 44100, kChannels) != RSMPL_OK ||
      RSMPL_Hq32Init(narrow, size, 96000, 44100, kChannels) != RSMPL_OK ||
      RSMPL_Hq32SetDither(narrow, 1) != RSMPL_OK)
    return 1;
  RSMPL_HqInfo info;
  RSMPL_HqPosition where;
  RSMPL_Hq32GetInfo(wide, &info);
  RSMPL_Hq32GetPosition(wide, &where);
  /* The delay to 2^-32 of an input frame. */
  const double delay = (double)where.delayFrames + where.delayFraction / 4294967296.0;
  printf("%u taps, delay %.3f frames (%u us)\n", info.taps, delay, info.delayMicroseconds);

  const double amplitude = 0.5 * 8388607, two_pi = 6.283185307179586;
  int32_t in[kBlock * kChannels], out[(kBlock * 441 / 960 + 2) * kChannels];
  int16_t out16[(kBlock * 441 / 960 + 2) * kChannels];
  uint32_t total_in = 0, total_out = 0;
  double worst = 0;
  for (int block = 0; block < kBlocks; ++block) {
    for (int i = 0; i < kBlock; ++i) {
      const double t = (double)(block * kBlock + i) / 96000;
      in[i * kChannels] = in[i * kChannels + 1] = (int32_t)lrint(amplitude * sin(two_pi * 997 * t)) * 256;
    }
    uint32_t used = kBlock, made = sizeof out / sizeof out[0] / kChannels;
    if (RSMPL_Hq32Process(wide, in, RSMPL_HQ_S32, &used, out, RSMPL_HQ_S32, &made) != RSMPL_OK || used != kBlock)
      return 1;
    uint32_t used16 = kBlock, made16 = sizeof out16 / sizeof out16[0] / kChannels;
    if (RSMPL_Hq32Process(narrow, in, RSMPL_HQ_S32, &used16, out16, RSMPL_HQ_S16, &made16) != RSMPL_OK ||
        made16 != made)
      return 1;
    /* Output n stands for input time n / 44100 s less the delay. */
    for (uint32_t n = 0; n < made; ++n) {
      const double t = (double)(total_out + n) / 44100 - delay / 96000;
      if (t < 0.1) continue;
      const double error = out[n * kChannels] / 256.0 - amplitude * sin(two_pi * 997 * t);
      if (fabs(error) > worst) worst = fabs(error);
    }
    total_in += used;
    total_out += made;
  }
  printf("%u frames in, %u out, largest error %.2f of a 24-bit step\n", total_in, total_out, worst);
  free(wide);
  free(narrow);
  return 0;
}
