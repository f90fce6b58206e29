#include "support/error_capture.h"

#include <alsa/asoundlib.h>

#include <cstdarg>
#include <cstdio>

namespace {

std::vector<ErrorReport> g_reports;

void capture(const char *file, int, const char *function, int err, const char *fmt, ...) {
  char text[512];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  g_reports.push_back({file ? file : "", function ? function : "", err, text});
}

}  // namespace

ErrorCapture::ErrorCapture() {
  g_reports.clear();
  snd_lib_error_set_handler(capture);
}

ErrorCapture::~ErrorCapture() { snd_lib_error_set_handler(nullptr); }

const std::vector<ErrorReport> &ErrorCapture::reports() const { return g_reports; }

void ErrorCapture::clear() { g_reports.clear(); }
