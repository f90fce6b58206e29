// SPDX-License-Identifier: MIT
// Channel areas as interleaved frames; see areas.h.
#include "src/areas.h"

#include <cstring>

namespace {

// Sample `frame` of channel c: whole bytes, since every format converted
// here is 16 or 32 bits wide.
char *sample(const snd_pcm_channel_area_t *areas, unsigned c, snd_pcm_uframes_t frame) {
  const snd_pcm_channel_area_t &a = areas[c];
  return static_cast<char *>(a.addr) + (a.first + frame * a.step) / 8;
}

}  // namespace

void *areas_interleaved(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset,
                        unsigned channels, unsigned bytes) {
  char *base = sample(areas, 0, offset);
  for (unsigned c = 0; c < channels; ++c)
    if (areas[c].first % 8 != 0 || areas[c].step != 8 * bytes * channels ||
        sample(areas, c, offset) != base + c * bytes)
      return nullptr;
  return base;
}

void areas_gather(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset, unsigned channels,
                  unsigned bytes, size_t frames, void *to) {
  char *out = static_cast<char *>(to);
  for (unsigned c = 0; c < channels; ++c)
    for (size_t i = 0; i < frames; ++i)
      std::memcpy(out + (i * channels + c) * bytes, sample(areas, c, offset + i), bytes);
}

void areas_scatter(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset, unsigned channels,
                   unsigned bytes, size_t frames, const void *from) {
  const char *in = static_cast<const char *>(from);
  for (unsigned c = 0; c < channels; ++c)
    for (size_t i = 0; i < frames; ++i)
      std::memcpy(sample(areas, c, offset + i), in + (i * channels + c) * bytes, bytes);
}

void areas_hold(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset, unsigned channels,
                unsigned bytes, size_t from, size_t to) {
  for (unsigned c = 0; c < channels; ++c)
    for (size_t i = from; i < to; ++i) {
      if (i == 0)
        std::memset(sample(areas, c, offset), 0, bytes);
      else
        std::memcpy(sample(areas, c, offset + i), sample(areas, c, offset + i - 1), bytes);
    }
}
