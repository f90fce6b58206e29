// The plugin's operations in arbitrary order with arbitrary rates, channel
// counts and period sizes, as alsa-lib or a broken configuration might call
// them. Buffers are sized exactly to what each call may touch, so any read or
// write beyond them is caught by AddressSanitizer.
#include <vector>

#include "src/rate_rsmpl.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/quiet_alsa.h"

namespace {

const unsigned kRates[] = {0, 1, 8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000, 96000};
unsigned rate(FuzzInput &in) { return in.one_of(kRates, 16); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  if (_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops) != 0) return 0;
  auto *rec = static_cast<rsmpl_converter *>(obj);
  snd_pcm_rate_info_t info{};
  for (int step = 0; step < 64 && !in.empty(); ++step) {
    switch (in.below(8)) {
      case 0:
        info.in.rate = rate(in);
        info.out.rate = rate(in);
        info.channels = in.below(6);
        ops.init(obj, &info);
        break;
      case 1:
        info.in.period_size = in.below(3) == 0 ? in.take<uint64_t>() : in.below(20000);
        info.out.period_size = in.below(3) == 0 ? in.take<uint64_t>() : in.below(20000);
        ops.adjust_pitch(obj, &info);
        break;
      case 2:
        ops.reset(obj);
        break;
      case 3: {
        // src holds src_frames frames and dst dst_frames frames of the
        // record's channel count, whatever the converter makes of them.
        const unsigned src_frames = in.below(8000);
        const unsigned dst_frames = in.below(2) ? in.below(48000)
                                                : static_cast<unsigned>(
                                                      ops.output_frames(obj, src_frames) % 48000);
        const unsigned channels = rec->channels;
        std::vector<int16_t> src(size_t(src_frames) * channels), dst(size_t(dst_frames) * channels);
        for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<int16_t>(in.take<uint16_t>());
        ops.convert_s16(obj, dst.data(), dst_frames, src.data(), src_frames);
        break;
      }
      case 4:
        ops.input_frames(obj, in.take<uint32_t>());
        ops.output_frames(obj, in.take<uint32_t>());
        break;
      case 5:
        ops.free(obj);
        break;
      case 6: {
        snd_output_t *out = nullptr;
        if (snd_output_buffer_open(&out) == 0) {
          ops.dump(obj, out);
          snd_output_close(out);
        }
        break;
      }
      default: {
        unsigned lo, hi;
        ops.get_supported_rates(obj, &lo, &hi);
        break;
      }
    }
  }
  ops.free(obj);
  ops.close(obj);
  return 0;
}
