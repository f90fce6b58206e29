// SPDX-License-Identifier: MIT
// Converts fixed signals through every conversion path and prints one digest
// (FNV-1a 64 of the output, 16-bit samples little-endian) per path, once for
// every FIR kernel build this CPU runs:
//   - the ten FIR stages through the block calls RSMPL_Up / RSMPL_Down;
//   - the plugin's linear and FIR converters through its operations table,
//     as alsa-lib drives them (open, init, adjust_pitch, convert_s16);
//   - the sinc interpolator at ratios that floats hold exactly;
//   - the high-quality resampler at several rate pairs and channel counts;
//   - the 32-bit resampler likewise, in S32 and S16 with and without
//     dither, and the skelda_hq module on S32 channel areas;
//   - a few of the utilities.
// Every build on every CPU must give the same digests.
//
//   digests                 prints "build path digest" lines
//   digests --check FILE    compares with FILE's "path digest" lines; exit 1
//                           on any difference or missing path
#include <alsa/asoundlib.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "rsmpl/cpu.h"
#include "skelda/rsmpl.h"
#include "skelda/rsmpl_hq.h"
#include "skelda/util.h"
#include "src/rate_rsmpl.h"

namespace {

class Digest {
 public:
  void byte(uint8_t b) { h_ = (h_ ^ b) * 0x100000001b3ULL; }
  void u16(uint16_t v) { byte(v & 0xFF), byte(v >> 8); }
  void u32(uint32_t v) { u16(v & 0xFFFF), u16(v >> 16); }
  void samples(const int16_t *x, size_t n) {
    for (size_t i = 0; i < n; ++i) u16(static_cast<uint16_t>(x[i]));
  }
  uint64_t value() const { return h_; }

 private:
  uint64_t h_ = 0xcbf29ce484222325ULL;
};

[[noreturn]] void fail(const std::string &what) {
  std::fprintf(stderr, "digests: %s\n", what.c_str());
  std::exit(2);
}

// The test signal, integers only: a triangle tone sweeping up in frequency,
// noise from an LCG, and a stretch of full-scale square wave that drives
// every saturation. Each channel starts at another phase.
std::vector<int16_t> make_signal(size_t frames, unsigned channels, uint32_t seed) {
  std::vector<int16_t> x(frames * channels);
  uint32_t lcg = seed * 2654435761u + 1;
  for (unsigned c = 0; c < channels; ++c) {
    uint32_t phase = c * 0x28000000u, step = 0x00800000u;
    for (size_t i = 0; i < frames; ++i) {
      lcg = lcg * 1664525u + 1013904223u;
      const int32_t noise = static_cast<int32_t>(lcg >> 20) - 2048;  // +-2048
      phase += step;
      step += 97;
      const int32_t folded = static_cast<int32_t>(phase >> 16);  // 0..65535
      const int32_t triangle = (folded < 32768 ? folded : 65535 - folded) - 16384;  // +-16384
      int32_t v = triangle + noise;
      if (i >= frames / 2 && i < frames / 2 + frames / 16)
        v = (i / (7 + c)) % 2 ? 32767 : -32768;
      x[i * channels + c] = static_cast<int16_t>(v);
    }
  }
  return x;
}

// Block lengths that cycle through short, long and odd sizes.
int32_t block_length(size_t call, const std::vector<int32_t> &sizes) {
  return sizes[call % sizes.size()];
}

struct Stage {
  const char *name;
  bool up;
  uint32_t code;
  std::vector<int32_t> sizes;  // each meets the code's length rule
};

uint64_t stage_digest(const Stage &s) {
  std::vector<uint8_t> ctx_bytes(RSMPL_GetContextSize());
  auto *ctx = reinterpret_cast<RSMPL_Context *>(ctx_bytes.data());
  if (RSMPL_InitContext(ctx) != RSMPL_OK) fail("RSMPL_InitContext");
  const auto in = make_signal(24000, 1, s.code + (s.up ? 10 : 20));
  std::vector<int16_t> out(8 * 1440);
  Digest d;
  size_t at = 0;
  for (size_t call = 0;; ++call) {
    const int32_t n = block_length(call, s.sizes);
    if (at + n > in.size()) break;
    const uint32_t status = s.up ? RSMPL_Up(ctx, in.data() + at, out.data(), n, s.code)
                                 : RSMPL_Down(ctx, in.data() + at, out.data(), n, s.code);
    if (status != RSMPL_OK) fail(std::string(s.name) + ": status " + std::to_string(status));
    static const int kUp[] = {3, 2, 3, 4, 6}, kDown[] = {2, 2, 3, 4, 6};
    const size_t produced = s.up ? (s.code == RSMPL_RATIO_2_3 ? 3 * n / 2 : n * kUp[s.code])
                                 : (s.code == RSMPL_RATIO_2_3 ? 2 * n / 3 : n / kDown[s.code]);
    d.samples(out.data(), produced);
    at += n;
  }
  return d.value();
}

struct PluginPath {
  const char *name;
  unsigned in_rate, out_rate, channels, in_period, out_period;
};

void quiet_errors(const char *, int, const char *, int, const char *, ...) {}

uint64_t plugin_digest(const PluginPath &p) {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  if (_snd_pcm_rate_skelda_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops) != 0) fail("open");
  snd_pcm_rate_info_t info{};
  info.in.rate = p.in_rate;
  info.out.rate = p.out_rate;
  info.in.period_size = p.in_period;
  info.out.period_size = p.out_period;
  info.channels = p.channels;
  if (ops.init(obj, &info) != 0) fail(std::string(p.name) + ": init");
  if (ops.adjust_pitch(obj, &info) != 0) fail(std::string(p.name) + ": adjust_pitch");
  ops.reset(obj);
  const unsigned periods = 40;
  const auto in = make_signal(size_t(p.in_period) * periods, p.channels, p.in_rate ^ p.out_rate);
  std::vector<int16_t> out(size_t(p.out_period) * p.channels);
  Digest d;
  for (unsigned k = 0; k < periods; ++k) {
    ops.convert_s16(obj, out.data(), p.out_period,
                    in.data() + size_t(k) * p.in_period * p.channels, p.in_period);
    d.samples(out.data(), out.size());
  }
  ops.free(obj);
  ops.close(obj);
  return d.value();
}

uint64_t sinc_digest(float ratio) {
  std::vector<uint8_t> ctx_bytes(RSMPL_GetContextSize());
  auto *ctx = reinterpret_cast<RSMPL_Context *>(ctx_bytes.data());
  if (RSMPL_InitContext(ctx) != RSMPL_OK) fail("RSMPL_InitContext");
  if (RSMPL_SetResampleRatio(ctx, nullptr, nullptr, nullptr, ratio) != RSMPL_OK)
    fail("RSMPL_SetResampleRatio");
  const auto in = make_signal(12000, 1, 7);
  const std::vector<int32_t> sizes = {400, 1, 1440, 37, 700, 160, 1439, 5};
  std::vector<int16_t> out(8 * 1440 + 64);
  Digest d;
  size_t at = 0;
  for (size_t call = 0;; ++call) {
    const int32_t n = block_length(call, sizes);
    if (at + n > in.size()) break;
    uint32_t count = 0;
    if (RSMPL_Resample(ctx, in.data() + at, out.data(), n, &count) != RSMPL_OK)
      fail("RSMPL_Resample at ratio " + std::to_string(ratio));
    d.u32(count);
    d.samples(out.data(), count);
    at += n;
  }
  return d.value();
}

struct HqPath {
  unsigned in_rate, out_rate, channels;
};

uint64_t hq_digest(const HqPath &p) {
  uint32_t bytes = 0;
  if (RSMPL_HqGetStateSize(p.in_rate, p.out_rate, p.channels, &bytes) != RSMPL_OK)
    fail("RSMPL_HqGetStateSize");
  std::vector<uint64_t> block(bytes / 8 + 1);
  auto *st = reinterpret_cast<RSMPL_HqState *>(block.data());
  if (RSMPL_HqInit(st, bytes, p.in_rate, p.out_rate, p.channels) != RSMPL_OK) fail("RSMPL_HqInit");
  const size_t frames = p.in_rate / 8;
  const auto in = make_signal(frames, p.channels, p.in_rate + p.out_rate);
  const std::vector<uint32_t> sizes = {1, 480, 4096, 17, 1000, 333};
  Digest d;
  size_t at = 0;
  for (size_t call = 0; at < frames; ++call) {
    uint32_t n = sizes[call % sizes.size()];
    if (n > frames - at) n = static_cast<uint32_t>(frames - at);
    uint32_t room = 0;
    if (RSMPL_HqOutputFrames(st, n, &room) != RSMPL_OK) fail("RSMPL_HqOutputFrames");
    std::vector<int16_t> out(size_t(room) * p.channels + 1);
    uint32_t consumed = n, written = room;
    if (RSMPL_HqProcess(st, in.data() + at * p.channels, &consumed, out.data(), &written) != RSMPL_OK ||
        consumed != n || written != room)
      fail("RSMPL_HqProcess");
    d.samples(out.data(), size_t(written) * p.channels);
    at += n;
  }
  return d.value();
}

struct Hq32Path {
  unsigned in_rate, out_rate, channels, in_format, out_format, dither, ratio_out = 0, ratio_in = 0;
};

// The 32-bit resampler on the test signal, S16 input as it is, S32 input
// spread to 32 bits (the signal times 65536 plus a 16-bit LCG word).
uint64_t hq32_digest(const Hq32Path &p) {
  uint32_t bytes = 0;
  if (RSMPL_Hq32GetStateSize(p.in_rate, p.out_rate, p.channels, &bytes) != RSMPL_OK)
    fail("RSMPL_Hq32GetStateSize");
  std::vector<uint64_t> block(bytes / 8 + 1);
  auto *st = reinterpret_cast<RSMPL_Hq32State *>(block.data());
  if (RSMPL_Hq32Init(st, bytes, p.in_rate, p.out_rate, p.channels) != RSMPL_OK ||
      RSMPL_Hq32SetDither(st, p.dither) != RSMPL_OK ||
      (p.ratio_out != 0 && RSMPL_Hq32SetRatio(st, p.ratio_out, p.ratio_in) != RSMPL_OK))
    fail("RSMPL_Hq32Init");
  const size_t frames = p.in_rate / 8;
  const auto in16 = make_signal(frames, p.channels, p.in_rate + p.out_rate + 32);
  std::vector<int32_t> in32(in16.size());
  uint32_t lcg = 1;
  for (size_t i = 0; i < in16.size(); ++i) {
    lcg = lcg * 1664525u + 1013904223u;
    in32[i] = static_cast<int32_t>(static_cast<uint32_t>(in16[i]) << 16 | lcg >> 16);
  }
  const std::vector<uint32_t> sizes = {1, 480, 4096, 17, 1000, 333};
  const size_t in_bytes = p.in_format == RSMPL_HQ_S32 ? 4 : 2, out_bytes = p.out_format == RSMPL_HQ_S32 ? 4 : 2;
  const auto *src = p.in_format == RSMPL_HQ_S32 ? static_cast<const void *>(in32.data()) : in16.data();
  Digest d;
  size_t at = 0;
  for (size_t call = 0; at < frames; ++call) {
    uint32_t n = sizes[call % sizes.size()];
    if (n > frames - at) n = static_cast<uint32_t>(frames - at);
    uint32_t room = 0;
    if (RSMPL_Hq32OutputFrames(st, n, &room) != RSMPL_OK) fail("RSMPL_Hq32OutputFrames");
    std::vector<uint8_t> out((size_t(room) + 1) * p.channels * out_bytes);
    uint32_t consumed = n, written = room;
    if (RSMPL_Hq32Process(st, static_cast<const char *>(src) + at * p.channels * in_bytes, p.in_format, &consumed,
                          out.data(), p.out_format, &written) != RSMPL_OK ||
        consumed != n || written != room)
      fail("RSMPL_Hq32Process");
    for (size_t i = 0; i < size_t(written) * p.channels * out_bytes; ++i) d.byte(out[i]);
    at += n;
  }
  return d.value();
}

extern "C" int _snd_pcm_rate_skelda_hq_open(unsigned int version, void **objp, snd_pcm_rate_ops_t *ops);

// The skelda_hq module on interleaved S32 areas, as alsa-lib drives it.
uint64_t hq_module_digest() {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  if (_snd_pcm_rate_skelda_hq_open(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops) != 0) fail("skelda_hq open");
  snd_pcm_rate_info_t info{};
  info.in = {SND_PCM_FORMAT_S32, 44100, 0, 1024};
  info.out = {SND_PCM_FORMAT_S32, 48000, 0, 1114};
  info.channels = 2;
  if (ops.init(obj, &info) != 0 || ops.adjust_pitch(obj, &info) != 0) fail("skelda_hq init");
  ops.reset(obj);
  const auto in16 = make_signal(1024 * 20, 2, 99);
  std::vector<int32_t> in(in16.size()), out(2 * 1114);
  for (size_t i = 0; i < in.size(); ++i) in[i] = int32_t(uint32_t(in16[i]) << 16 | uint32_t(i * 40503u) >> 16);
  snd_pcm_channel_area_t src[2], dst[2];
  Digest d;
  for (size_t k = 0; k < 20; ++k) {
    for (unsigned c = 0; c < 2; ++c) {
      src[c] = {in.data() + k * 2048, 32 * c, 64};
      dst[c] = {out.data(), 32 * c, 64};
    }
    ops.convert(obj, dst, 0, 1114, src, 0, 1024);
    for (int32_t v : out) d.u32(static_cast<uint32_t>(v));
  }
  ops.free(obj);
  ops.close(obj);
  return d.value();
}

uint64_t util_fir3_digest() {
  const int16_t coefs[16] = {-310, 512, 1200, -2400, -3000, 4200, 9800, 14500,
                             14500, 9800, 4200, -3000, -2400, 1200, 512, -310};
  const auto x = make_signal(4096, 1, 3);
  std::vector<int16_t> history(16, 0), scratch(16 + 256);
  Digest d;
  for (size_t at = 0; at + 256 <= x.size(); at += 256) {
    std::vector<int16_t> block(x.begin() + at, x.begin() + at + 256);
    if (UTIL_Fir3(block.data(), 256, history.data(), coefs, 16, static_cast<int16_t>(at / 256 % 3),
                  scratch.data()) != 0)
      fail("UTIL_Fir3");
    d.samples(block.data(), block.size());
  }
  return d.value();
}

uint64_t util_decibel_digest() {
  Digest d;
  for (int32_t gain = -100 * 32768; gain <= 100 * 32768; gain += 4099) {
    d.u32(static_cast<uint32_t>(UTIL_dBToScale(gain)));
    const EXP32 e = UTIL_dBToScaleExp32(gain);
    d.u16(static_cast<uint16_t>(e.exponent));
    d.u32(static_cast<uint32_t>(e.mantissa));
  }
  return d.value();
}

uint64_t util_smooth_digest() {
  Digest d;
  uint16_t a = 0, b = 60000;
  int32_t c = -2000000000, e = 5;
  const auto targets = make_signal(2000, 1, 11);
  for (size_t i = 0; i < targets.size(); ++i) {
    const int16_t t = targets[i];
    a = UTIL_Smooth(a, static_cast<int16_t>(1000 + i), static_cast<uint16_t>(t));
    b = UTIL_SmoothAsym(b, 3000, 300, static_cast<uint16_t>(t));
    c = UTIL_Smooth32(c, static_cast<uint16_t>(20000 + i), t * 65536);
    e = UTIL_SmoothAsym32(e, 40000, 900, t * 4097);
    d.u16(a), d.u16(b), d.u32(static_cast<uint32_t>(c)), d.u32(static_cast<uint32_t>(e));
  }
  return d.value();
}

uint64_t util_reorder_digest() {
  std::vector<uint8_t> src(203), dst(203);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 37 + 5);
  Digest d;
  for (int16_t mode = 0; mode < 8; ++mode) {
    if (UTIL_ReorderBitstream(src.data(), static_cast<int16_t>(src.size() - mode), mode, dst.data()) != 0)
      fail("UTIL_ReorderBitstream");
    for (size_t i = 0; i < src.size() - mode; ++i) d.byte(dst[i]);
  }
  return d.value();
}

uint64_t util_spline_digest() {
  const float x[] = {0.0f, 0.5f, 1.25f, 2.0f, 3.0f, 3.5f, 5.0f, 6.25f, 8.0f, 9.0f};
  const float f[] = {0.0f, 0.75f, 1.0f, 0.25f, -1.5f, -1.25f, 2.0f, 2.0f, 3.5f, -0.5f};
  std::vector<float> xe(181), fe(181);
  for (size_t i = 0; i < xe.size(); ++i) xe[i] = static_cast<float>(i) * 0.05f;
  if (UTIL_SplineFit(10, x, f, static_cast<int32_t>(xe.size()), xe.data(), fe.data()) != 0)
    fail("UTIL_SplineFit");
  Digest d;
  for (float v : fe) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    d.u32(bits);
  }
  return d.value();
}

std::vector<std::pair<std::string, std::function<uint64_t()>>> paths() {
  std::vector<std::pair<std::string, std::function<uint64_t()>>> all;
  const std::vector<int32_t> up_sizes = {6, 240, 12, 60, 18, 120, 234};
  const std::vector<int32_t> down_sizes = {36, 1440, 48, 600, 72, 120, 1404};
  const Stage stages[] = {
      {"up_2_3", true, RSMPL_RATIO_2_3, up_sizes}, {"up_2", true, RSMPL_RATIO_2, up_sizes},
      {"up_3", true, RSMPL_RATIO_3, up_sizes},     {"up_4", true, RSMPL_RATIO_4, up_sizes},
      {"up_6", true, RSMPL_RATIO_6, up_sizes},     {"down_3_2", false, RSMPL_RATIO_2_3, down_sizes},
      {"down_2", false, RSMPL_RATIO_2, down_sizes}, {"down_3", false, RSMPL_RATIO_3, down_sizes},
      {"down_4", false, RSMPL_RATIO_4, down_sizes}, {"down_6", false, RSMPL_RATIO_6, down_sizes},
  };
  for (const Stage &s : stages) all.emplace_back(std::string("stage_") + s.name, [s] { return stage_digest(s); });
  const PluginPath plugin[] = {
      {"linear_up", 44100, 48000, 2, 441, 480},  {"linear_down", 48000, 44100, 2, 480, 441},
      {"fir_up_3", 16000, 48000, 2, 320, 960},   {"fir_down_3", 48000, 16000, 1, 960, 320},
      {"fir_up_2", 22050, 44100, 2, 512, 1024},  {"fir_down_6", 48000, 8000, 3, 960, 160},
      {"fir_up_6", 8000, 48000, 4, 160, 960},    {"fir_uneven_periods", 16000, 48000, 2, 333, 1000},
  };
  for (const PluginPath &p : plugin) all.emplace_back(std::string("plugin_") + p.name, [p] { return plugin_digest(p); });
  for (float ratio : {0.125f, 0.5f, 0.75f, 0.9375f, 1.0f, 1.5f, 2.0f, 3.0f, 8.0f}) {
    char name[32];
    std::snprintf(name, sizeof name, "sinc_%g", ratio);
    all.emplace_back(name, [ratio] { return sinc_digest(ratio); });
  }
  const HqPath hq[] = {{44100, 48000, 2}, {48000, 44100, 2}, {8000, 192000, 1}, {192000, 8000, 1},
                       {48000, 16000, 2}, {22050, 96000, 8}, {96000, 44100, 1}, {32000, 44100, 3},
                       {32000, 48000, 3}, {16000, 48000, 1}, {8000, 64000, 2},  {56000, 8000, 5},
                       {48000, 768000, 2}, {768000, 48000, 2}, {4000, 48000, 1}, {44100, 5512, 3},
                       {48000, 48000, 2}, {44100, 48000, 64}};
  for (const HqPath &p : hq)
    all.emplace_back("hq_" + std::to_string(p.in_rate) + "_" + std::to_string(p.out_rate) + "_" +
                         std::to_string(p.channels) + "ch",
                     [p] { return hq_digest(p); });
  const unsigned s16 = RSMPL_HQ_S16, s32 = RSMPL_HQ_S32;
  const Hq32Path hq32[] = {{44100, 48000, 2, s32, s32, 0},  {48000, 44100, 2, s32, s32, 0},
                           {96000, 44100, 1, s32, s32, 0},  {8000, 192000, 1, s16, s32, 0},
                           {192000, 8000, 1, s32, s16, 1},  {32000, 48000, 3, s16, s16, 1},
                           {48000, 16000, 8, s32, s16, 0},  {44100, 48000, 2, s32, s32, 0, 2731, 2509},
                           {44100, 44100, 5, s32, s32, 0},  {44100, 705600, 2, s32, s32, 0},
                           {705600, 44100, 2, s32, s32, 0}, {8000, 768000, 1, s16, s32, 0},
                           {768000, 4000, 1, s32, s16, 1},  {192000, 768000, 2, s32, s32, 0},
                           {48000, 44100, 2, s32, s32, 0, 941, 1024}};
  for (const Hq32Path &p : hq32) {
    std::string name = "hq32_" + std::to_string(p.in_rate) + "_" + std::to_string(p.out_rate) + "_" +
                       std::to_string(p.channels) + "ch_" + (p.in_format == s32 ? "s32" : "s16") + "_" +
                       (p.out_format == s32 ? "s32" : "s16") + (p.dither ? "_dither" : "");
    if (p.ratio_out != 0) name += "_at_" + std::to_string(p.ratio_out) + "_" + std::to_string(p.ratio_in);
    all.emplace_back(name, [p] { return hq32_digest(p); });
  }
  all.emplace_back("hq32_module_s32", hq_module_digest);
  all.emplace_back("util_fir3", util_fir3_digest);
  all.emplace_back("util_decibel", util_decibel_digest);
  all.emplace_back("util_smooth", util_smooth_digest);
  all.emplace_back("util_reorder", util_reorder_digest);
  all.emplace_back("util_spline", util_spline_digest);
  return all;
}

std::vector<const rsmpl::KernelSet *> runnable_sets() {
  std::vector<const rsmpl::KernelSet *> sets;
  for (int isa = 0; isa < rsmpl::kIsaCount; ++isa)
    if (const auto *set = rsmpl::kernel_set(static_cast<rsmpl::Isa>(isa))) sets.push_back(set);
  return sets;
}

std::string hex(uint64_t v) {
  char s[17];
  std::snprintf(s, sizeof s, "%016" PRIx64, v);
  return s;
}

}  // namespace

int main(int argc, char **argv) {
  const bool check = argc == 3 && std::strcmp(argv[1], "--check") == 0;
  if (argc != 1 && !check) {
    std::fprintf(stderr, "usage: digests [--check FILE]\n");
    return 2;
  }
  // The uneven-periods path reports once that it leaves the FIR stages.
  snd_lib_error_set_handler(quiet_errors);
  std::map<std::string, std::string> expected;
  if (check) {
    std::ifstream file(argv[2]);
    if (!file) fail(std::string("cannot read ") + argv[2]);
    std::string line;
    while (std::getline(file, line)) {
      std::istringstream fields(line);
      std::string path, digest;
      if (line.empty() || line[0] == '#' || !(fields >> path >> digest)) continue;
      expected[path] = digest;
    }
  }
  int differences = 0;
  const auto all = paths();
  for (const auto *set : runnable_sets()) {
    rsmpl::use_kernels(set);
    for (const auto &[path, run] : all) {
      const std::string digest = hex(run());
      std::printf("%s %s %s\n", set->name, path.c_str(), digest.c_str());
      if (!check) continue;
      const auto want = expected.find(path);
      if (want == expected.end()) {
        std::printf("  no expected digest for %s\n", path.c_str());
        ++differences;
      } else if (want->second != digest) {
        std::printf("  DIFFERS: expected %s\n", want->second.c_str());
        ++differences;
      }
    }
  }
  rsmpl::use_kernels(nullptr);
  if (check) {
    if (expected.size() != all.size()) {
      std::printf("%zu paths expected, %zu run\n", expected.size(), all.size());
      ++differences;
    }
    std::printf("%d difference(s)\n", differences);
  }
  return differences == 0 ? 0 : 1;
}
