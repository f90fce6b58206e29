// Captures what the library sends to alsa-lib's error hook, so tests can
// check the reports a call makes.
#ifndef SKELDA_TESTS_ERROR_CAPTURE_H
#define SKELDA_TESTS_ERROR_CAPTURE_H

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
  ErrorCapture();
  ~ErrorCapture();
  ErrorCapture(const ErrorCapture &) = delete;
  ErrorCapture &operator=(const ErrorCapture &) = delete;
  const std::vector<ErrorReport> &reports() const;
  void clear();
};

#endif
