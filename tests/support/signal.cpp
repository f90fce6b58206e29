#include "support/signal.h"

#include <cmath>

std::vector<int16_t> interleaved_sines(unsigned rate, const std::vector<double> &hz,
                                       double amplitude, size_t frames) {
  const size_t channels = hz.size();
  std::vector<int16_t> out(frames * channels);
  for (size_t f = 0; f < frames; ++f)
    for (size_t c = 0; c < channels; ++c)
      out[f * channels + c] =
          static_cast<int16_t>(std::lround(amplitude * std::sin(2 * M_PI * hz[c] * f / rate)));
  return out;
}
