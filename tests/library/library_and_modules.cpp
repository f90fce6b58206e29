// SPDX-License-Identifier: MIT
// A program linked with the shared libskelda that also plays through both
// converter modules (ALSA_PLUGIN_DIR names their directory): skelda_hq's
// output is, sample for sample, what the program's own libskelda makes of
// the same input, and skelda's FIR path runs engine code whose names the
// program's libskelda exports too (library_and_modules.sh checks that no
// module binds to them).
#include <cstdio>
#include <random>

#include "skelda/rsmpl_hq.h"
#include "tests/support/alsa_pipeline.h"

int main() {
  std::mt19937 rng(7);
  std::vector<int16_t> in(2 * 44100);  // a second of stereo noise
  for (int16_t &s : in) s = static_cast<int16_t>(rng() % 40001) - 20000;
  int failures = 0;
  auto expect = [&](bool ok, const char *what) {
    if (!ok) std::fprintf(stderr, "FAIL: %s\n", what);
    failures += !ok;
  };

  const PipelineResult fir = play_through_alsa({44100, 22050, 2, 4410, false, "skelda"}, in);
  expect(fir.error == 0 && fir.output.size() == in.size() / 2, "skelda played half the frames");
  expect(fir.dump.find("RSMPL Converter: FIR filter, DOWN 44100 -> 22050") != std::string::npos,
         "skelda took its FIR path");

  const PipelineResult hq = play_through_alsa({44100, 48000, 2, 1024, true, "skelda_hq"}, in);
  expect(hq.error == 0 && hq.slave_period != 0, "skelda_hq played");
  if (failures != 0) return 1;
  const size_t periods = (in.size() / 2 + hq.client_period - 1) / hq.client_period;
  in.resize(2 * periods * hq.client_period, 0);  // the last period as the pipeline completes it
  uint32_t bytes = 0, used = uint32_t(in.size() / 2), made = uint32_t(periods * hq.slave_period);
  RSMPL_HqGetStateSize(44100, 48000, 2, &bytes);
  std::vector<uint64_t> state(bytes / 8 + 1);
  auto *st = reinterpret_cast<RSMPL_HqState *>(state.data());
  std::vector<int16_t> want(2 * size_t{made});
  expect(RSMPL_HqInit(st, bytes, 44100, 48000, 2) == RSMPL_OK &&
             RSMPL_HqSetRatio(st, uint32_t(hq.slave_period), uint32_t(hq.client_period)) == 0 &&
             RSMPL_HqProcess(st, in.data(), &used, want.data(), &made) == RSMPL_OK,
         "libskelda converted the same input");
  expect(hq.output == want, "skelda_hq's output is libskelda's");
  std::printf("%d failed\n", failures);
  return failures != 0;
}
