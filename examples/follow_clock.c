/* SPDX-License-Identifier: MIT */
/* Bridges two devices whose clocks drift apart, as a network player or a
 * USB capture device feeding a DAC does: a producer writes a 24-bit tone at
 * 48000 Hz (1 + 150 ppm, wandering slowly) into a buffer, a consumer takes
 * 10 ms periods of 480 frames at 48000 Hz (1 - 50 ppm, wandering too), and
 * the 32-bit resampler between them runs at a ratio that a small control
 * loop sets every period from how full the buffer is, to the sub-sample
 * (RSMPL_Hq32GetPosition), so that the buffer stays near its target.
 *
 * It simulates the clocks (no sound card), prints how far the buffer strayed
 * and how clean the consumer's tone stayed against a continuous clock, and
 * exits with 1 when the buffer ran dry or over, strayed more than 4 frames
 * from its target, or the tone's residual rose above -130 dBFS.
 *
 *   cc follow_clock.c $(pkg-config --cflags --libs skelda) -lm
 *   ./a.out [MINUTES]        (default 60) */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <skelda/rsmpl_hq.h>

enum { kChannels = 2, kPeriod = 480, kCapacity = 8192 };

static const double kRate = 48000, kHz = 997, kAmplitude = 0.5;
static const double kTwoPi = 6.283185307179586;

/* The clocks' rates at true time t seconds: offsets in ppm, wandering. */
static double producer_rate(double t) { return kRate * (1 + 1e-6 * (150 + 20 * sin(kTwoPi * t / 600))); }
static double consumer_rate(double t) { return kRate * (1 + 1e-6 * (-50 + 10 * sin(kTwoPi * t / 900 + 1))); }

/* The producer's sample n of the tone, 24 bits in S32. */
static int32_t tone(uint64_t n) {
  const double cycles = fmod((double)n * kHz / kRate, 1.0);
  return (int32_t)lrint(kAmplitude * sin(kTwoPi * cycles) * 8388608) * 256;
}

int main(int argc, char **argv) {
  const double minutes = argc > 1 ? atof(argv[1]) : 60;
  uint32_t size = 0;
  if (RSMPL_Hq32GetStateSize(48000, 48000, kChannels, &size) != RSMPL_OK) return 1;
  RSMPL_Hq32State *st = malloc(size);
  if (st == NULL || RSMPL_Hq32Init(st, size, 48000, 48000, kChannels) != RSMPL_OK) return 1;
  RSMPL_HqPosition where;
  RSMPL_Hq32GetPosition(st, &where);
  const double delay = where.delayFrames + where.delayFraction / 4294967296.0;

  /* The buffer between the clocks: producer frames not yet taken. */
  static int32_t buffer[kCapacity * kChannels];
  uint32_t filled = 0;
  uint64_t produced = 0; /* the producer's frames so far */
  double owed = 0;       /* the producer's fraction of a frame */
  /* The buffer between the clocks, in producer frames, is what the producer
   * wrote less the position the next output stands for (delay included):
   * hold it at its start, two periods and the chain's delay. */
  const double target = 2 * kPeriod + delay;
  while (produced < (uint64_t)(target - delay)) {
    for (int c = 0; c < kChannels; ++c) buffer[filled * kChannels + c] = tone(produced);
    ++filled, ++produced;
  }
  double integral = 0, worst_gap = 0, lowest_ppm = 1e9, highest_ppm = -1e9;
  double worst_residual = 0, window = 0, t = 0;
  uint32_t in_window = 0, underruns = 0, overruns = 0;
  const uint64_t periods = (uint64_t)(minutes * 60 * 100);
  int32_t out[kPeriod * kChannels];
  for (uint64_t p = 0; p < periods; ++p) {
    /* The producer's frames during this period of the consumer's. */
    const double seconds = kPeriod / consumer_rate(t);
    owed += producer_rate(t) * seconds;
    t += seconds;
    for (; owed >= 1; owed -= 1) {
      if (filled == kCapacity) {
        ++overruns;
        break;
      }
      for (int c = 0; c < kChannels; ++c) buffer[filled * kChannels + c] = tone(produced);
      ++filled, ++produced;
    }
    /* The control loop: the buffer's distance from its target, to the
     * sub-sample, sets the ratio (a fuller buffer is read faster). */
    RSMPL_Hq32GetPosition(st, &where);
    const double stands = (double)where.nextFrame + where.nextFraction / 4294967296.0;
    const double gap = (double)produced - stands - target;
    integral += gap;
    const double ppm = -(40 * gap + 0.2 * integral);
    const uint64_t scale = (uint64_t)llround(4294967296.0 * (1 + ppm * 1e-6));
    if (RSMPL_Hq32SetRatioScale(st, scale) != RSMPL_OK) return 1;
    if (p >= 6000) { /* after the first minute's settling */
      if (fabs(gap) > worst_gap) worst_gap = fabs(gap);
      if (ppm < lowest_ppm) lowest_ppm = ppm;
      if (ppm > highest_ppm) highest_ppm = ppm;
    }
    /* The consumer's period: exactly 480 frames. */
    uint32_t need = 0;
    RSMPL_Hq32InputFrames(st, kPeriod, &need);
    if (need > filled) {
      ++underruns;
      memset(out, 0, sizeof out);
      continue;
    }
    RSMPL_Hq32GetPosition(st, &where);
    const double first = (double)where.nextFrame + where.nextFraction / 4294967296.0;
    uint32_t used = filled, made = kPeriod;
    if (RSMPL_Hq32Process(st, buffer, RSMPL_HQ_S32, &used, out, RSMPL_HQ_S32, &made) != RSMPL_OK || made != kPeriod)
      return 1;
    memmove(buffer, buffer + used * kChannels, (filled - used) * kChannels * sizeof buffer[0]);
    filled -= used;
    /* Against a continuous clock: output j stands for producer sample
     * first + j / ratio (less the delay, which `first` includes already). */
    const double step = 1 / (scale / 4294967296.0);
    for (uint32_t j = 0; j < kPeriod && p >= 100; ++j) {
      const double at = first + j * step;
      const double want = kAmplitude * sin(kTwoPi * fmod(at * kHz / kRate, 1.0));
      const double e = out[j * kChannels] / 2147483648.0 - want;
      window += e * e;
      if (++in_window == 4800) { /* 100 ms */
        if (window / in_window > worst_residual) worst_residual = window / in_window;
        window = 0, in_window = 0;
      }
    }
  }
  const double residual_db = 10 * log10(worst_residual / 0.5 + 1e-30);
  printf("%.0f minutes simulated: buffer target %.3f frames, strayed at most %.3f frames; "
         "underruns %u, overruns %u\n", minutes, target, worst_gap, underruns, overruns);
  printf("ratio set between %.2f and %.2f ppm; worst 100 ms of the tone against a continuous clock "
         "%.1f dBFS\n", lowest_ppm, highest_ppm, residual_db);
  free(st);
  return underruns == 0 && overruns == 0 && worst_gap <= 4 && residual_db <= -130 ? 0 : 1;
}
