/* SPDX-License-Identifier: MIT */
/* Converts one second of a 997 Hz stereo tone from 44100 Hz to 48000 Hz with
 * the high-quality resampler, in 441-frame blocks as an audio callback would
 * hand them over, and prints what came out.
 *
 *   cc hq_example.c $(pkg-config --cflags --libs skelda) -lm */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <skelda/rsmpl_hq.h>

int main(void) {
  enum { kChannels = 2, kBlock = 441 };
  uint32_t size = 0;
  if (RSMPL_HqGetStateSize(44100, 48000, kChannels, &size) != RSMPL_OK) return 1;
  RSMPL_HqState *state = malloc(size);
  if (state == NULL || RSMPL_HqInit(state, size, 44100, 48000, kChannels) != RSMPL_OK) return 1;

  RSMPL_HqInfo info;
  RSMPL_HqGetInfo(state, &info);
  printf("%u taps, %u phases, delay %u us\n", info.taps, info.phases, info.delayMicroseconds);

  int16_t in[kBlock * kChannels], out[(kBlock * 48000 / 44100 + 2) * kChannels];
  uint32_t total_in = 0, total_out = 0;
  double peak = 0;
  for (int block = 0; block < 100; ++block) {
    for (int i = 0; i < kBlock; ++i) {
      const double t = (double)(block * kBlock + i) / 44100;
      const int16_t v = (int16_t)lrint(29204 * sin(6.283185307179586 * 997 * t));
      in[i * kChannels] = v;
      in[i * kChannels + 1] = (int16_t)-v;
    }
    uint32_t used = kBlock, made = sizeof out / sizeof out[0] / kChannels;
    if (RSMPL_HqProcess(state, in, &used, out, &made) != RSMPL_OK || used != kBlock) return 1;
    for (uint32_t i = 0; i < made * kChannels; ++i)
      if (fabs(out[i]) > peak) peak = fabs(out[i]);
    total_in += used;
    total_out += made;
  }
  printf("%u frames in, %u out, peak %.0f\n", total_in, total_out, peak);
  free(state);
  return 0;
}
