/* SPDX-License-Identifier: MIT */
/* Linking the engine directly: one channel converted 48000 -> 16000 with the
 * FIR stage, then 16000 -> 44100 with the sinc interpolator.
 *
 *   cc engine_example.c $(pkg-config --cflags --libs skelda) -lm
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <skelda/rsmpl.h>
#include <skelda/rsmpl_fir.h>
#include <skelda/rsmpl_sinc.h>

int main(void) {
  enum { kBlock = 960 };
  int16_t in[kBlock], low[kBlock / 3], high[2 * kBlock];
  struct RSMPL_Context *fir = malloc(RSMPL_GetContextSize());
  struct RSMPL_Context *sinc = malloc(RSMPL_GetContextSize());
  if (!fir || !sinc || RSMPL_InitContext(fir) != RSMPL_OK || RSMPL_InitContext(sinc) != RSMPL_OK)
    return 1;

  uint32_t min_in, max_in, extra, produced, total = 0;
  if (RSMPL_SetResampleRatio(sinc, &min_in, &max_in, &extra, 44100.0f / 16000.0f) != RSMPL_OK)
    return 1;
  for (int block = 0; block < 50; ++block) {  /* one second at 48 kHz */
    for (int i = 0; i < kBlock; ++i)
      in[i] = (int16_t)(16000.0 * sin(2.0 * 3.14159265358979 * 1000.0 * (block * kBlock + i) / 48000.0));
    /* 960 samples in, 320 out; the FIR history stays in the context. */
    if (RSMPL_Down(fir, in, low, kBlock, RSMPL_RATIO_3) != RSMPL_OK) return 1;
    /* The ratio set above takes effect after this first call. */
    if (RSMPL_Resample(sinc, low, high, kBlock / 3, &produced) != RSMPL_OK) return 1;
    total += produced;
  }
  printf("48000 Hz -> 16000 Hz (FIR) -> 44100 Hz (sinc): 48000 samples in, %u out\n", total);
  free(fir);
  free(sinc);
  return 0;
}
