/* A C program linked with libskelda that also plays through the skelda and
 * skelda_hq converters of alsa-lib (ALSA_PLUGIN_DIR names the modules'
 * directory): skelda_hq's output is, sample for sample, what the program's
 * own libskelda makes of the same input. */
#include <alsa/asoundlib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <skelda/rsmpl_hq.h>

enum { kChannels = 2, kPeriods = 10 };

static int failures;

#define EXPECT(cond, ...)                                    \
  do {                                                       \
    if (!(cond)) {                                           \
      fprintf(stderr, "FAIL %s:%d: ", __FILE__, __LINE__);   \
      fprintf(stderr, __VA_ARGS__);                          \
      fputc('\n', stderr);                                   \
      ++failures;                                            \
      return;                                                \
    }                                                        \
  } while (0)

struct played {
  int16_t *in, *out;
  size_t in_frames, out_frames;
  unsigned long client_period, slave_period;
  char dump[8192];
};

/* Plays kPeriods client periods of noise through a rate PCM with the given
 * converter over a file PCM; false (with a message) when alsa-lib fails. */
static int play(const char *converter, unsigned in_rate, unsigned out_rate,
                unsigned long period, struct played *p) {
  char path[] = "/tmp/skelda-library-XXXXXX", text[1024];
  const int fd = mkstemp(path);
  if (fd < 0) return 0;
  snprintf(text, sizeof text,
           "pcm.t { type rate converter \"%s\" slave { pcm { type file slave.pcm { type null } "
           "file \"%s\" format \"raw\" } rate %u format S16_LE } }",
           converter, path, out_rate);
  snd_config_t *top = NULL;
  snd_input_t *input = NULL;
  snd_pcm_t *pcm = NULL;
  snd_pcm_hw_params_t *hw;
  snd_pcm_hw_params_alloca(&hw);
  snd_output_t *dump = NULL;
  char *dumped = NULL;
  int dir = 0, ok = 0;
  if (snd_config_top(&top) < 0 || snd_input_buffer_open(&input, text, -1) < 0 ||
      snd_config_load(top, input) < 0 ||
      snd_pcm_open_lconf(&pcm, "t", SND_PCM_STREAM_PLAYBACK, 0, top) < 0 ||
      snd_pcm_hw_params_any(pcm, hw) < 0 ||
      snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED) < 0 ||
      snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE) < 0 ||
      snd_pcm_hw_params_set_channels(pcm, hw, kChannels) < 0 ||
      snd_pcm_hw_params_set_rate(pcm, hw, in_rate, 0) < 0 ||
      snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, &dir) < 0 ||
      snd_pcm_hw_params(pcm, hw) < 0 || snd_pcm_hw_params_get_period_size(hw, &period, &dir) < 0 ||
      snd_output_buffer_open(&dump) < 0) {
    fprintf(stderr, "alsa-lib refused the %s PCM\n", converter);
    goto done;
  }
  snd_pcm_dump(pcm, dump);
  snd_output_buffer_string(dump, &dumped);
  snprintf(p->dump, sizeof p->dump, "%s", dumped);
  const char *slave = strstr(p->dump, "Slave:");
  const char *size = slave ? strstr(slave, "period_size") : NULL;
  p->slave_period = size ? strtoul(strchr(size, ':') + 1, NULL, 10) : 0;
  p->client_period = period;
  p->in_frames = kPeriods * period;
  p->in = malloc(p->in_frames * kChannels * sizeof(int16_t));
  srand(7);
  for (size_t i = 0; i < p->in_frames * kChannels; ++i) p->in[i] = (int16_t)(rand() % 40001 - 20000);
  for (size_t done = 0; done < p->in_frames;) {
    const snd_pcm_sframes_t n = snd_pcm_writei(pcm, p->in + done * kChannels, p->in_frames - done);
    if (n < 0) {
      fprintf(stderr, "snd_pcm_writei: %s\n", snd_strerror((int)n));
      goto done;
    }
    done += (size_t)n;
  }
  ok = snd_pcm_drain(pcm) == 0;
done:
  if (dump) snd_output_close(dump);
  if (pcm) snd_pcm_close(pcm);
  if (input) snd_input_close(input);
  if (top) snd_config_delete(top);
  FILE *f = fopen(path, "rb");
  p->out = malloc(1 << 22);
  p->out_frames = f ? fread(p->out, kChannels * sizeof(int16_t), (1 << 22) / 4, f) : 0;
  if (f) fclose(f);
  unlink(path);
  return ok;
}

/* 44100 -> 22050 through skelda's FIR filter, which calls the engine's
 * names the program's libskelda exports too (the samples are checked
 * against the engine in test_alsa). */
static void fir_path(void) {
  struct played p = {0};
  EXPECT(play("skelda", 44100, 22050, 4410, &p), "skelda did not play");
  EXPECT(strstr(p.dump, "RSMPL Converter: FIR filter, DOWN 44100 -> 22050"), "%s", p.dump);
  EXPECT(p.out_frames == p.in_frames / 2, "%zu frames from %zu", p.out_frames, p.in_frames);
  free(p.in), free(p.out);
}

/* 44100 -> 48000 through skelda_hq: libskelda's high-quality resampler at the
 * periods' ratio, over the whole stream at once. */
static void hq_path(void) {
  struct played p = {0};
  EXPECT(play("skelda_hq", 44100, 48000, 1024, &p), "skelda_hq did not play");
  EXPECT(strstr(p.dump, "RSMPL HQ Converter: 44100 -> 48000 Hz, 2 channels"), "%s", p.dump);
  EXPECT(p.slave_period > 0, "no slave period in\n%s", p.dump);
  EXPECT(p.out_frames == kPeriods * p.slave_period, "%zu frames from %zu", p.out_frames, p.in_frames);
  uint32_t bytes = 0, used = (uint32_t)p.in_frames, made = (uint32_t)p.out_frames + 64;
  EXPECT(RSMPL_HqGetStateSize(44100, 48000, kChannels, &bytes) == RSMPL_OK, "state size");
  RSMPL_HqState *state = malloc(bytes);
  int16_t *y = malloc(made * kChannels * sizeof(int16_t));
  EXPECT(RSMPL_HqInit(state, bytes, 44100, 48000, kChannels) == RSMPL_OK, "RSMPL_HqInit");
  EXPECT(RSMPL_HqSetRatio(state, (uint32_t)p.slave_period, (uint32_t)p.client_period) == RSMPL_OK,
         "RSMPL_HqSetRatio");
  EXPECT(RSMPL_HqProcess(state, p.in, &used, y, &made) == RSMPL_OK, "RSMPL_HqProcess");
  EXPECT(made == p.out_frames, "libskelda made %u frames, the converter %zu", made, p.out_frames);
  for (size_t i = 0; i < p.out_frames * kChannels; ++i)
    EXPECT(p.out[i] == y[i], "sample %zu: %d, libskelda %d", i, p.out[i], y[i]);
  free(state), free(y), free(p.in), free(p.out);
}

int main(void) {
  fir_path();
  hq_path();
  printf("%d passed, %d failed\n", 2 - failures, failures);
  return failures != 0;
}
