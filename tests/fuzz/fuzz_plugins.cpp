// SPDX-License-Identifier: MIT
// The operations of either converter module, skelda or skelda_hq, in
// arbitrary order with arbitrary rates, channel counts, period sizes and
// frame counts, as alsa-lib or a broken configuration might call them. Each
// call's buffers are sized exactly to the frames it is given in the channel
// count the converter holds, so any access beyond them is caught by
// AddressSanitizer.
#include <cstdio>
#include <string>
#include <vector>

#include "src/rate_rsmpl.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/quiet_alsa.h"

extern "C" int _snd_pcm_rate_skelda_hq_open(unsigned int version, void **objp,
                                            snd_pcm_rate_ops_t *ops);

namespace {

const unsigned kRates[] = {0,     1,     7999,  8000,  11025, 16000,  22050,
                           24000, 32000, 44100, 48000, 96000, 192000, 192001};
unsigned rate(FuzzInput &in) { return in.one_of(kRates, 20); }

snd_pcm_uframes_t period(FuzzInput &in) {
  switch (in.below(4)) {
    case 0: return in.take<uint64_t>();
    case 1: return in.below(16);
    default: return in.below(30000);
  }
}

// Dumps; the channel count skelda_hq's dump names, or 0 when none does.
unsigned dumped_channels(const snd_pcm_rate_ops_t &ops, void *obj) {
  snd_output_t *out = nullptr;
  if (snd_output_buffer_open(&out) != 0) return 0;
  ops.dump(obj, out);
  char *text = nullptr;
  const size_t n = snd_output_buffer_string(out, &text);
  const std::string s(text, n);
  snd_output_close(out);
  unsigned in_rate, out_rate, channels = 0;
  return std::sscanf(s.c_str(), "RSMPL HQ Converter: %u -> %u Hz, %u channels", &in_rate,
                     &out_rate, &channels) == 3 ? channels : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  const bool hq = in.take<uint8_t>() & 1;
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  if ((hq ? _snd_pcm_rate_skelda_hq_open : _snd_pcm_rate_skelda_open)(SND_PCM_RATE_PLUGIN_VERSION,
                                                                       &obj, &ops) != 0)
    return 0;
  auto channels = [&] {
    return hq ? dumped_channels(ops, obj) : static_cast<rsmpl_converter *>(obj)->channels;
  };
  snd_pcm_rate_info_t info{};
  for (int step = 0; step < 64 && !in.empty(); ++step) {
    switch (in.below(7)) {
      case 0:
        info.in.rate = rate(in);
        info.out.rate = rate(in);
        info.channels = in.below(10);
        info.in.period_size = in.below(2) ? 0 : period(in);
        info.out.period_size = in.below(2) ? 0 : period(in);
        ops.init(obj, &info);
        break;
      case 1:
        info.in.period_size = period(in);
        info.out.period_size = period(in);
        ops.adjust_pitch(obj, &info);
        break;
      case 2:
        ops.reset(obj);
        break;
      case 3: {
        // Mostly the periods alsa-lib would pass, sometimes any counts.
        const unsigned src_frames = in.below(4) == 0 ? in.below(20000) : in.below(6000);
        const unsigned dst_frames =
            in.below(3) == 0 ? in.below(48000)
                             : static_cast<unsigned>(ops.output_frames(obj, src_frames) % 48000);
        const size_t room = channels();
        std::vector<int16_t> src(src_frames * room), dst(dst_frames * room);
        const uint16_t seed = in.take<uint16_t>();
        for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<int16_t>(seed * (i + 1));
        ops.convert_s16(obj, dst.data(), dst_frames, src.data(), src_frames);
        break;
      }
      case 4:
        ops.input_frames(obj, in.take<uint64_t>());
        ops.output_frames(obj, in.take<uint64_t>());
        break;
      case 5:
        ops.free(obj);
        break;
      default: {
        unsigned lo, hi;
        ops.get_supported_rates(obj, &lo, &hi);
        dumped_channels(ops, obj);
        break;
      }
    }
  }
  ops.free(obj);
  ops.close(obj);
  return 0;
}
