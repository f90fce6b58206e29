// SPDX-License-Identifier: MIT
// Drives one rate converter module the way alsa-lib does, for a given
// length of audio, and nothing else: so that an instruction counter (qemu's,
// see bench/arm_counts.sh) sees the module's work, set-up included, and two
// runs of different lengths give the cost per extra output frame.
//
//   count_converter MODULE_DIR CONVERTER IN_RATE OUT_RATE SECONDS [s16|s32]
//
// The module MODULE_DIR/libasound_module_rate_CONVERTER.so is opened with
// the current protocol, then init, adjust_pitch and reset with 10 ms
// periods of stereo, and one call per period: convert_s16, or convert on
// interleaved channel areas when that is what the module offers (S32 on
// both sides with "s32", which the module must announce). Exit status 1 when
// the module cannot be loaded, announces other rates or refuses the set-up,
// 2 for usage.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kChannels = 2;

[[noreturn]] void fail(const std::string &why) {
  std::fprintf(stderr, "count_converter: %s\n", why.c_str());
  std::exit(1);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 6 && argc != 7) {
    std::fprintf(stderr, "usage: count_converter MODULE_DIR CONVERTER IN_RATE OUT_RATE SECONDS [s16|s32]\n");
    return 2;
  }
  const std::string dir = argv[1], name = argv[2];
  const unsigned in_rate = std::atoi(argv[3]), out_rate = std::atoi(argv[4]), seconds = std::atoi(argv[5]);
  const bool wide = argc == 7 && std::strcmp(argv[6], "s32") == 0;
  const std::string path = dir + "/libasound_module_rate_" + name + ".so";
  void *module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) fail(dlerror());
  const std::string entry = "_snd_pcm_rate_" + name + "_open";
  auto open = reinterpret_cast<snd_pcm_rate_open_func_t>(dlsym(module, entry.c_str()));
  if (open == nullptr) fail(path + " has no " + entry);
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  if (open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops) != 0) fail("open failed");
  // As alsa-lib does, refuse rates outside those the module announces (the
  // peers announce 0-0: no limit).
  unsigned lo = 0, hi = 0;
  if (ops.version >= 0x010002 && ops.get_supported_rates && ops.get_supported_rates(obj, &lo, &hi) == 0 &&
      hi != 0 && (in_rate < lo || in_rate > hi || out_rate < lo || out_rate > hi))
    fail(name + " announces " + std::to_string(lo) + "-" + std::to_string(hi) + " Hz only");
  if (wide) {
    uint64_t in = 0, out = 0;
    unsigned flags = 0;
    const uint64_t s32 = 1ull << SND_PCM_FORMAT_S32;
    if (ops.version < 0x010003 || ops.get_supported_formats == nullptr || ops.convert == nullptr ||
        ops.get_supported_formats(obj, &in, &out, &flags) != 0 || !(in & s32) || !(out & s32))
      fail(name + " does not announce S32 on both sides");
  }
  const snd_pcm_format_t format = wide ? SND_PCM_FORMAT_S32 : SND_PCM_FORMAT_S16;
  const unsigned in_period = in_rate / 100, out_period = out_rate / 100;
  snd_pcm_rate_info_t info{};
  info.in = {format, in_rate, 4 * snd_pcm_uframes_t{in_period}, in_period};
  info.out = {format, out_rate, 4 * snd_pcm_uframes_t{out_period}, out_period};
  info.channels = kChannels;
  if (ops.init(obj, &info) != 0 || (ops.adjust_pitch && ops.adjust_pitch(obj, &info) != 0))
    fail("set-up refused");
  if (ops.reset) ops.reset(obj);
  // One second of noise from an LCG (24 bits in S32), cycled through.
  const unsigned bytes = wide ? 4 : 2;
  std::vector<uint8_t> in(size_t{in_rate} * kChannels * bytes), out(size_t{out_period} * kChannels * bytes);
  uint32_t lcg = 1;
  for (size_t i = 0; i < in.size(); i += bytes) {
    lcg = lcg * 1664525u + 1013904223u;
    const int32_t v = static_cast<int32_t>(lcg) >> 3 & ~0xff;
    std::memcpy(&in[i], reinterpret_cast<const uint8_t *>(&v) + (wide ? 0 : 2), bytes);
  }
  snd_pcm_channel_area_t src[kChannels], dst[kChannels];
  for (unsigned c = 0; c < kChannels; ++c) {
    src[c] = {nullptr, 8 * bytes * c, 8 * bytes * kChannels};
    dst[c] = {out.data(), 8 * bytes * c, 8 * bytes * kChannels};
  }
  uint64_t check = 0;
  for (unsigned k = 0; k < seconds * 100; ++k) {
    uint8_t *p = in.data() + size_t{k % 100} * in_period * kChannels * bytes;
    if (ops.convert_s16 != nullptr && !wide) {
      ops.convert_s16(obj, reinterpret_cast<int16_t *>(out.data()), out_period,
                      reinterpret_cast<const int16_t *>(p), in_period);
    } else {
      for (auto &a : src) a.addr = p;
      ops.convert(obj, dst, 0, out_period, src, 0, in_period);
    }
    check += out[k % out.size()];
  }
  if (ops.free) ops.free(obj);
  if (ops.close) ops.close(obj);
  std::printf("%u periods converted (%llu)\n", seconds * 100, static_cast<unsigned long long>(check));
  return 0;
}
