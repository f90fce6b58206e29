// The skelda_hq converter's operations in arbitrary order with arbitrary
// rates, channel counts, period sizes and frame counts, as alsa-lib or a
// broken configuration might call them. Each call's buffers are sized
// exactly to the frames it is given, in the channel count the converter's
// own dump names, so any access beyond them is caught by AddressSanitizer.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/quiet_alsa.h"

extern "C" int _snd_pcm_rate_skelda_hq_open(unsigned int version, void **objp,
                                            snd_pcm_rate_ops_t *ops);

namespace {

const unsigned kRates[] = {0, 7999, 8000, 11025, 22050, 44100, 48000, 96000, 192000, 192001};
unsigned rate(FuzzInput &in) { return in.one_of(kRates, 16); }

snd_pcm_uframes_t period(FuzzInput &in) {
  switch (in.below(4)) {
    case 0: return in.take<uint64_t>();
    case 1: return in.below(16);
    default: return in.below(30000);
  }
}

// What the dump says: the channel count, or 0 when nothing is set up.
unsigned dumped_channels(const snd_pcm_rate_ops_t &ops, void *obj) {
  snd_output_t *out = nullptr;
  if (snd_output_buffer_open(&out) != 0) return 0;
  ops.dump(obj, out);
  char *text = nullptr;
  const size_t n = snd_output_buffer_string(out, &text);
  const std::string s(text, n);
  snd_output_close(out);
  unsigned in_rate, out_rate, channels = 0;
  if (std::sscanf(s.c_str(), "RSMPL HQ Converter: %u -> %u Hz, %u channels", &in_rate, &out_rate,
                  &channels) != 3)
    return 0;
  return channels;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  if (_snd_pcm_rate_skelda_hq_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops) != 0) return 0;
  snd_pcm_rate_info_t info{};
  unsigned channels = 0;
  for (int step = 0; step < 48 && !in.empty(); ++step) {
    switch (in.below(7)) {
      case 0:
        info.in.rate = rate(in);
        info.out.rate = rate(in);
        info.channels = in.below(10);
        info.in.period_size = in.below(2) ? 0 : period(in);
        info.out.period_size = in.below(2) ? 0 : period(in);
        ops.init(obj, &info);
        channels = dumped_channels(ops, obj);
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
            in.below(3) == 0 ? in.below(40000)
                             : static_cast<unsigned>(ops.output_frames(obj, src_frames) % 40000);
        const size_t room = channels == 0 ? 1 : channels;
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
        channels = dumped_channels(ops, obj);
        break;
      default:
        channels = dumped_channels(ops, obj);
        break;
    }
  }
  ops.free(obj);
  ops.close(obj);
  return 0;
}
