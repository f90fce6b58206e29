// SPDX-License-Identifier: MIT
// alsa-lib channel areas over test buffers: interleaved frames, one buffer
// per channel, or a device's frames of which the converter's channels are a
// few, as alsa-lib hands them to a converter's convert.
#ifndef SKELDA_TESTS_SUPPORT_CHANNEL_AREAS_H
#define SKELDA_TESTS_SUPPORT_CHANNEL_AREAS_H

#include <alsa/asoundlib.h>

#include <vector>

namespace test_support {

// Frames of `channels` samples of `bits` bits, one after another.
inline std::vector<snd_pcm_channel_area_t> interleaved_areas(const void *data, unsigned channels,
                                                             unsigned bits) {
  std::vector<snd_pcm_channel_area_t> areas(channels == 0 ? 1 : channels);
  for (unsigned c = 0; c < areas.size(); ++c)
    areas[c] = {const_cast<void *>(data), c * bits, static_cast<unsigned>(areas.size()) * bits};
  return areas;
}

// Channel c's samples in a run of `stride` samples of its own, at
// data + c * stride samples (`bits` bits each).
inline std::vector<snd_pcm_channel_area_t> planar_areas(const void *data, unsigned channels,
                                                        unsigned bits, size_t stride) {
  std::vector<snd_pcm_channel_area_t> areas(channels);
  for (unsigned c = 0; c < channels; ++c)
    areas[c] = {const_cast<char *>(static_cast<const char *>(data)) + c * stride * bits / 8, 0, bits};
  return areas;
}

// Channel c at slot slots[c] of frames `width` samples wide (`bits` bits
// each): what dshare, multi and route hand over for some of a device's
// channels, in any order, the step wider than the converter's frame.
inline std::vector<snd_pcm_channel_area_t> strided_areas(const void *data, const std::vector<unsigned> &slots,
                                                         unsigned width, unsigned bits) {
  std::vector<snd_pcm_channel_area_t> areas(slots.size());
  for (unsigned c = 0; c < slots.size(); ++c) areas[c] = {const_cast<void *>(data), slots[c] * bits, width * bits};
  return areas;
}

}  // namespace test_support

#endif
