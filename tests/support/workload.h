// SPDX-License-Identifier: MIT
// How much work the randomised and long-running tests do. SKELDA_REDUCED=1
// (set by CI for the cross builds that run under an emulator) asks for a
// smaller share; everywhere else the full workload runs.
#ifndef SKELDA_TESTS_SUPPORT_WORKLOAD_H
#define SKELDA_TESTS_SUPPORT_WORKLOAD_H

#include <cstdlib>
#include <cstring>

inline bool reduced_workload() {
  const char *v = std::getenv("SKELDA_REDUCED");
  return v != nullptr && *v != '\0' && std::strcmp(v, "0") != 0;
}

// `full` normally, `reduced` under SKELDA_REDUCED.
template <class T>
T workload(T full, T reduced) {
  return reduced_workload() ? reduced : full;
}

#endif
