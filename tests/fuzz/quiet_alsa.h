// SPDX-License-Identifier: MIT
// For the targets that drive a converter module: its reports through
// alsa-lib's error handler are expected, so they are kept off the fuzzer's
// output. Included by one file per target.
#ifndef SKELDA_TESTS_FUZZ_QUIET_ALSA_H
#define SKELDA_TESTS_FUZZ_QUIET_ALSA_H

#include <alsa/asoundlib.h>

inline void quiet_alsa(const char *, int, const char *, int, const char *, ...) {}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  snd_lib_error_set_handler(quiet_alsa);
  return 0;
}

#endif
