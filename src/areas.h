// SPDX-License-Identifier: MIT
// alsa-lib's channel areas (an address, a first bit and a step in bits per
// channel) seen as interleaved frames: directly when they are laid out that
// way, else copied to and from an interleaved buffer.
#ifndef SKELDA_SRC_AREAS_H
#define SKELDA_SRC_AREAS_H

#include <alsa/asoundlib.h>

#include <cstddef>
#include <cstdint>

// The frames of `areas` from frame `offset` on as one interleaved buffer of
// `channels` samples of `bytes` bytes each, or null when the areas are laid
// out otherwise (one buffer per channel, gaps, bit offsets).
void *areas_interleaved(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset,
                        unsigned channels, unsigned bytes);

// Copies `frames` frames from the areas at `offset` into the interleaved
// buffer `to`, or from the interleaved buffer `from` into the areas.
void areas_gather(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset, unsigned channels,
                  unsigned bytes, size_t frames, void *to);
void areas_scatter(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset, unsigned channels,
                   unsigned bytes, size_t frames, const void *from);

// Frames [from, to) of the areas at `offset` repeat frame from - 1 (silence
// when from is 0).
void areas_hold(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset, unsigned channels,
                unsigned bytes, size_t from, size_t to);

#endif
