// SPDX-License-Identifier: MIT
// The operations of either converter module, skelda or skelda_hq, in
// arbitrary order with arbitrary rates, channel counts, formats, period
// sizes and frame counts, as alsa-lib or a broken configuration might call
// them: skelda_hq opened with either protocol, or through its
// configuration entry with any options. Each call's buffers (interleaved,
// or a buffer per channel) are sized exactly to the frames it is given in
// the channel count and formats the converter holds, so any access beyond
// them is caught by AddressSanitizer.
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/channel_areas.h"

#include "src/rate_rsmpl.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/quiet_alsa.h"

extern "C" int _snd_pcm_rate_skelda_hq_open(unsigned int version, void **objp,
                                            snd_pcm_rate_ops_t *ops);
extern "C" int _snd_pcm_rate_skelda_hq_open_conf(unsigned int version, void **objp,
                                                 snd_pcm_rate_ops_t *ops, const snd_config_t *conf);

namespace {

const unsigned kRates[] = {0,     1,     3999,  4000,   7999,   8000,   11025,  16000,  22050, 24000,
                           32000, 44100, 48000, 96000, 192000, 384000, 705600, 768000, 768001};
unsigned rate(FuzzInput &in) { return in.one_of(kRates, 25); }

snd_pcm_uframes_t period(FuzzInput &in) {
  switch (in.below(4)) {
    case 0: return in.take<uint64_t>();
    case 1: return in.below(16);
    default: return in.below(30000);
  }
}

// What skelda_hq's dump says it holds: its channel count (0 when not
// configured) and, on channel areas, its sample formats. (An init that
// fails on periods it cannot follow leaves it set up at the rates, formats
// included, so the fuzzer reads them back instead of guessing.)
struct Setup {
  unsigned channels = 0;
  snd_pcm_format_t in = SND_PCM_FORMAT_S16_LE, out = SND_PCM_FORMAT_S16_LE;
};
Setup dumped_setup(const snd_pcm_rate_ops_t &ops, void *obj) {
  Setup setup;
  snd_output_t *out = nullptr;
  if (snd_output_buffer_open(&out) != 0) return setup;
  ops.dump(obj, out);
  char *text = nullptr;
  const size_t n = snd_output_buffer_string(out, &text);
  const std::string s(text, n);
  snd_output_close(out);
  unsigned in_rate, out_rate;
  if (std::sscanf(s.c_str(), "RSMPL HQ Converter: %u -> %u Hz, %u channels", &in_rate, &out_rate,
                  &setup.channels) != 3)
    return Setup{};
  const size_t at = s.find(" input frames), ");
  char from[32], to[32];
  if (at != std::string::npos && std::sscanf(s.c_str() + at, " input frames), %31[^ ] -> %31[^,\n]", from, to) == 2) {
    setup.in = snd_pcm_format_value(from);
    setup.out = snd_pcm_format_value(to);
  }
  // Channel areas always name their formats.
  if (ops.convert != nullptr && s.find(" -> ", s.find("input frames)")) == std::string::npos) __builtin_trap();
  return setup;
}

const snd_pcm_format_t kFormats[] = {SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S32_LE, SND_PCM_FORMAT_S24_LE,
                                     SND_PCM_FORMAT_FLOAT_LE, SND_PCM_FORMAT_U8, SND_PCM_FORMAT_UNKNOWN};
snd_pcm_format_t format(FuzzInput &in) { return kFormats[in.below(std::size(kFormats))]; }

// skelda_hq through its configuration entry: no compound, or one of option
// lines picked from known and unknown names with good and bad values.
int open_conf(FuzzInput &in, void **obj, snd_pcm_rate_ops_t *ops) {
  static const char *const kLines[] = {"dither yes", "dither no", "dither 1", "dither maybe", "dither 7",
                                       "dither \"on\"", "quality 3", "dither { a 1 }", "name \"x\""};
  if (in.below(4) == 0) return _snd_pcm_rate_skelda_hq_open_conf(SND_PCM_RATE_PLUGIN_VERSION, obj, ops, nullptr);
  std::string text = "c { name \"skelda_hq\"";
  for (unsigned n = in.below(3); n > 0; --n) text += std::string(" ") + kLines[in.below(std::size(kLines))];
  text += " }";
  snd_config_t *top = nullptr, *conf = nullptr;
  snd_input_t *input = nullptr;
  int err = -EINVAL;
  if (snd_config_top(&top) == 0 && snd_input_buffer_open(&input, text.c_str(), ssize_t(text.size())) == 0 &&
      snd_config_load(top, input) == 0 && snd_config_search(top, "c", &conf) == 0)
    err = _snd_pcm_rate_skelda_hq_open_conf(SND_PCM_RATE_PLUGIN_VERSION, obj, ops, conf);
  if (input != nullptr) snd_input_close(input);
  if (top != nullptr) snd_config_delete(top);
  return err;
}

unsigned bits(snd_pcm_format_t f) { return f == SND_PCM_FORMAT_S32_LE ? 32 : 16; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t pick = in.take<uint8_t>() % 4;  // skelda, skelda_hq, its conf entry, its old protocol
  const bool hq = pick != 0;
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  const int opened = pick == 0   ? _snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops)
                     : pick == 1 ? _snd_pcm_rate_skelda_hq_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops)
                     : pick == 2 ? open_conf(in, &obj, &ops)
                                 : _snd_pcm_rate_skelda_hq_open(0x010002, &obj, &ops);
  if (opened != 0) return 0;
  auto setup = [&] {
    if (hq) return dumped_setup(ops, obj);
    Setup skelda;
    skelda.channels = static_cast<rsmpl_converter *>(obj)->channels;
    return skelda;
  };
  snd_pcm_rate_info_t info{};
  for (int step = 0; step < 64 && !in.empty(); ++step) {
    switch (in.below(7)) {
      case 0:
        info.in.rate = rate(in);
        info.out.rate = rate(in);
        info.channels = in.below(8) == 0 ? 60 + in.below(6) : in.below(10);
        info.in.period_size = in.below(2) ? 0 : period(in);
        info.out.period_size = in.below(2) ? 0 : period(in);
        info.in.format = format(in);
        info.out.format = format(in);
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
        // A few tens of thousands of samples either way at most.
        const Setup held = setup();
        const unsigned room = held.channels, most = 40000 / (room ? room : 1);
        const unsigned src_frames = (in.below(4) == 0 ? in.below(20000) : in.below(6000)) % (most + 1);
        const unsigned dst_frames =
            in.below(3) == 0 ? in.below(48000) % (most + 1)
                             : static_cast<unsigned>(ops.output_frames(obj, src_frames) % (4 * most + 1));
        const snd_pcm_format_t in_format = held.in, out_format = held.out;
        const uint16_t seed = in.take<uint16_t>();
        if (ops.convert == nullptr) {
          std::vector<int16_t> src(src_frames * room), dst(dst_frames * room);
          for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<int16_t>(seed * (i + 1));
          ops.convert_s16(obj, dst.data(), dst_frames, src.data(), src_frames);
          break;
        }
        // Areas interleaved or a buffer per channel, at an offset.
        const unsigned layout = in.below(4), offset = in.below(3);
        const size_t in_span = src_frames + offset, out_span = dst_frames + offset;
        std::vector<uint8_t> src(in_span * room * bits(in_format) / 8), dst(out_span * room * bits(out_format) / 8);
        for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(seed * (i + 1) >> 3);
        const auto s = layout & 1 ? test_support::planar_areas(src.data(), room, bits(in_format), in_span)
                                  : test_support::interleaved_areas(src.data(), room, bits(in_format));
        const auto d = layout & 2 ? test_support::planar_areas(dst.data(), room, bits(out_format), out_span)
                                  : test_support::interleaved_areas(dst.data(), room, bits(out_format));
        ops.convert(obj, d.data(), offset, dst_frames, s.data(), offset, src_frames);
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
        if (ops.get_supported_formats != nullptr) {
          uint64_t ins, outs;
          unsigned flags;
          ops.get_supported_formats(obj, &ins, &outs, &flags);
        }
        dumped_setup(ops, obj);
        break;
      }
    }
  }
  ops.free(obj);
  ops.close(obj);
  return 0;
}
