// SPDX-License-Identifier: MIT
// Captures what the library sends to alsa-lib's error hook, so tests can
// check the reports a call makes.
#ifndef SKELDA_TESTS_ERROR_CAPTURE_H
#define SKELDA_TESTS_ERROR_CAPTURE_H

#include <alsa/asoundlib.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

struct ErrorReport {
  std::string file;
  std::string function;
  int err;
  std::string message;
};

// Installs a capturing handler for its lifetime and restores the default.
class ErrorCapture {
 public:
  ErrorCapture() {
    clear();
    snd_lib_error_set_handler(capture);
  }
  ~ErrorCapture() { snd_lib_error_set_handler(nullptr); }
  ErrorCapture(const ErrorCapture &) = delete;
  ErrorCapture &operator=(const ErrorCapture &) = delete;
  const std::vector<ErrorReport> &reports() const { return reports_; }
  void clear() { reports_.clear(); }

 private:
  static void capture(const char *file, int, const char *function, int err, const char *fmt, ...) {
    char text[512];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    reports_.push_back({file ? file : "", function ? function : "", err, text});
  }
  static inline std::vector<ErrorReport> reports_;
};

#endif
