// SPDX-License-Identifier: MIT
// skelda_hq's formats and options: through the real alsa-lib, every pairing
// of S16 and S32 (and the formats alsa-lib converts to them: S24_LE,
// S24_3LE, non-interleaved access) gives exactly what the 32-bit resampler
// gives for the same frames at the periods' ratio, and a 24-bit tone comes
// out at 24-bit quality; the options in the configuration's compound are
// taken or refused by name; and the operations table holds to each
// protocol, refuses formats it did not announce, and takes areas of any
// layout.
#include <alsa/asoundlib.h>
#include <alsa/pcm_rate.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "skelda/rsmpl_hq.h"
#include "tests/frontend/converter_fixture.h"
#include "tests/support/alsa_pipeline.h"
#include "tests/support/channel_areas.h"
#include "tests/support/error_capture.h"
#include "tests/support/hq_stream.h"

extern "C" int _snd_pcm_rate_skelda_hq_open(unsigned, void **, snd_pcm_rate_ops_t *);
extern "C" int _snd_pcm_rate_skelda_hq_open_conf(unsigned, void **, snd_pcm_rate_ops_t *, const snd_config_t *);

namespace {

const double kAmplitude = 0.8912509381337456;  // -1 dBFS

// Channel c: a tone of 997 (c + 1) Hz at -1 dBFS, rounded to 24 bits, in
// the top 24 bits of each S32 sample.
std::vector<int32_t> tones24(unsigned rate, unsigned channels, size_t frames) {
  std::vector<int32_t> x(frames * channels);
  for (size_t i = 0; i < x.size(); ++i) {
    const double v = kAmplitude * std::sin(2 * M_PI * 997.0 * (i % channels + 1) * double(i / channels) / rate);
    x[i] = int32_t(std::lround(v * 8388607)) * 256;
  }
  return x;
}

// The client's bytes of S32 samples in `format`: S32_LE as they are,
// S24_LE and S24_3LE their top 24 bits, S16_LE their top 16 bits.
std::vector<uint8_t> encode(const std::vector<int32_t> &x, snd_pcm_format_t format) {
  std::vector<uint8_t> b;
  for (int32_t v : x) {
    const uint32_t u = static_cast<uint32_t>(v);
    switch (format) {
      case SND_PCM_FORMAT_S16_LE:
        b.insert(b.end(), {uint8_t(u >> 16), uint8_t(u >> 24)});
        break;
      case SND_PCM_FORMAT_S24_LE: {
        const uint32_t w = static_cast<uint32_t>(v >> 8);
        b.insert(b.end(), {uint8_t(w), uint8_t(w >> 8), uint8_t(w >> 16), uint8_t(v < 0 ? 0xff : 0)});
        break;
      }
      case SND_PCM_FORMAT_S24_3LE:
        b.insert(b.end(), {uint8_t(u >> 8), uint8_t(u >> 16), uint8_t(u >> 24)});
        break;
      default:
        b.insert(b.end(), {uint8_t(u), uint8_t(u >> 8), uint8_t(u >> 16), uint8_t(u >> 24)});
    }
  }
  return b;
}

// What the 32-bit resampler makes of the stream at the periods' ratio, in
// the output format, with or without dither.
std::vector<uint8_t> engine(const std::vector<int32_t> &x, bool s16_in, unsigned in_rate, unsigned out_rate,
                            unsigned channels, unsigned long in_period, unsigned long out_period, bool s16_out,
                            bool dither, size_t out_frames) {
  auto st = hq_test::make_state32(in_rate, out_rate, channels, uint32_t(out_period), uint32_t(in_period));
  EXPECT_TRUE(st);
  RSMPL_Hq32SetDither(st.get(), dither);
  std::vector<int16_t> in16;
  for (int32_t v : x) in16.push_back(int16_t(v >> 16));
  std::vector<uint8_t> y(out_frames * channels * (s16_out ? 2 : 4));
  uint32_t n = uint32_t(x.size() / channels), m = uint32_t(out_frames);
  EXPECT_EQ(RSMPL_Hq32Process(st.get(), s16_in ? static_cast<const void *>(in16.data()) : x.data(),
                              s16_in ? RSMPL_HQ_S16 : RSMPL_HQ_S32, &n, y.data(),
                              s16_out ? RSMPL_HQ_S16 : RSMPL_HQ_S32, &m),
            RSMPL_OK);
  EXPECT_EQ(m, out_frames);
  return y;
}

// Every format pairing through alsa-lib, held byte for byte to the engine.
TEST(AlsaHqFormats, EveryPairingGivesExactlyTheResamplersFrames) {
  const snd_pcm_format_t s16 = SND_PCM_FORMAT_S16_LE, s32 = SND_PCM_FORMAT_S32_LE;
  const struct {
    snd_pcm_format_t client, device;
    bool noninterleaved;
    const char *options;
    unsigned in_rate, out_rate, channels;
    unsigned long period;
  } cases[] = {
      {s32, s32, false, "", 44100, 48000, 2, 1024},
      {SND_PCM_FORMAT_S24_LE, s32, false, "", 48000, 44100, 2, 1000},
      {SND_PCM_FORMAT_S24_3LE, s32, false, "", 16000, 48000, 1, 441},
      {s16, s32, false, "", 32000, 48000, 3, 0},
      {s32, s16, false, "", 96000, 44100, 2, 0},
      {s32, s16, false, "dither yes", 44100, 48000, 2, 1024},
      {s16, s16, false, "dither on", 48000, 16000, 2, 960},
      {s32, s32, true, "", 22050, 48000, 8, 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << snd_pcm_format_name(c.client) << " -> " << snd_pcm_format_name(c.device)
                                      << (c.noninterleaved ? " non-interleaved" : "") << ", " << c.options << ", "
                                      << c.in_rate << " -> " << c.out_rate);
    PipelineRequest r;
    r.in_rate = c.in_rate, r.out_rate = c.out_rate, r.channels = c.channels, r.period_frames = c.period;
    r.pad_last_period = true, r.converter = "skelda_hq", r.options = c.options;
    r.format = c.client, r.slave_format = c.device, r.noninterleaved = c.noninterleaved;
    // Whole periods of tones, so that every period converts exactly.
    const auto x = tones24(c.in_rate, c.channels, c.in_rate / 2);
    const PipelineResult out = play_through_alsa(r, encode(x, c.client));
    ASSERT_EQ(out.error, 0) << out.failed_call;
    EXPECT_NE(out.dump.find("24-bit filters"), std::string::npos) << out.dump;
    EXPECT_NE(out.dump.find(std::string(c.client == s16 ? "S16_LE" : "S32_LE") + " -> " +
                            (c.device == s16 ? "S16_LE" : "S32_LE")),
              std::string::npos)
        << out.dump;
    const size_t periods = (x.size() / c.channels + out.client_period - 1) / out.client_period;
    std::vector<int32_t> padded(x);
    padded.resize(periods * out.client_period * c.channels, 0);
    const auto want = engine(padded, c.client == s16, c.in_rate, c.out_rate, c.channels, out.client_period,
                             out.slave_period, c.device == s16, std::string(c.options).find("dither") == 0,
                             periods * out.slave_period);
    ASSERT_EQ(out.bytes.size(), want.size());
    EXPECT_TRUE(out.bytes == want);
  }
}

// A device's channels among more (a `multi` PCM binding the converter's
// channels to some of a wider device's, in another order): alsa-lib hands
// the converter areas whose step is the device's frame and whose first
// channel is not at its start. The bound channels get exactly what a
// device of the converter's own channels gets, the others stay silent; the
// most channels with periods of several work buffers too.
TEST(AlsaHqFormats, SomeOfAWiderDevicesChannelsGetTheSameFrames) {
  const unsigned all = RSMPL_HQ_MAX_CHANNELS;
  std::vector<unsigned> spread(all);
  for (unsigned c = 0; c < all; ++c) spread[c] = all + 2 - c;  // reversed, from slot 3 on
  const struct {
    snd_pcm_format_t format;
    unsigned in_rate, out_rate;
    unsigned long period;
    unsigned device_channels;
    std::vector<unsigned> slots;
  } cases[] = {
      {SND_PCM_FORMAT_S16_LE, 44100, 48000, 1024, 4, {1, 3}},
      {SND_PCM_FORMAT_S32_LE, 48000, 44100, 1000, 8, {5, 2}},
      {SND_PCM_FORMAT_S16_LE, 32000, 48000, 441, 3, {2}},
      {SND_PCM_FORMAT_S32_LE, 44100, 48000, 4096, all + 3, spread},
      {SND_PCM_FORMAT_S16_LE, 48000, 44100, 3000, all + 3, spread},
  };
  for (const auto &c : cases) {
    const unsigned ch = unsigned(c.slots.size()), width = c.device_channels;
    SCOPED_TRACE(::testing::Message() << snd_pcm_format_name(c.format) << ", " << ch << " of " << width
                                      << " channels, period " << c.period);
    PipelineRequest r;
    r.in_rate = c.in_rate, r.out_rate = c.out_rate, r.channels = ch, r.period_frames = c.period;
    r.converter = "skelda_hq", r.format = r.slave_format = c.format;
    const auto x = tones24(c.in_rate, ch, c.in_rate / 4);
    const PipelineResult own = play_through_alsa(r, encode(x, c.format));
    r.device_channels = width, r.device_slots = c.slots;
    const PipelineResult wide = play_through_alsa(r, encode(x, c.format));
    ASSERT_EQ(own.error, 0) << own.failed_call;
    ASSERT_EQ(wide.error, 0) << wide.failed_call;
    ASSERT_NE(wide.dump.find("Multi PCM"), std::string::npos) << wide.dump;
    ASSERT_EQ(wide.client_period, own.client_period);
    ASSERT_EQ(wide.slave_period, own.slave_period);
    const size_t bytes = snd_pcm_format_physical_width(c.format) / 8, frames = own.bytes.size() / (ch * bytes);
    ASSERT_GT(frames, 0u);
    ASSERT_EQ(wide.bytes.size(), frames * width * bytes);
    std::vector<uint8_t> bound, silent(width, 1);
    for (unsigned k = 0; k < ch; ++k) silent[c.slots[k]] = 0;
    bool quiet = true;
    for (size_t f = 0; f < frames; ++f)
      for (unsigned k = 0; k < width; ++k) {
        const auto at = wide.bytes.begin() + ptrdiff_t((f * width + k) * bytes);
        if (silent[k]) quiet &= std::all_of(at, at + ptrdiff_t(bytes), [](uint8_t b) { return b == 0; });
      }
    for (size_t f = 0; f < frames; ++f)
      for (unsigned k = 0; k < ch; ++k) {
        const auto at = wide.bytes.begin() + ptrdiff_t((f * width + c.slots[k]) * bytes);
        bound.insert(bound.end(), at, at + ptrdiff_t(bytes));
      }
    EXPECT_TRUE(bound == own.bytes);
    EXPECT_TRUE(quiet) << "a channel that is not the converter's was written";
  }
}

// A 24-bit 997 Hz tone from an S32 client to an S32 device at 44100 ->
// 48000: the residual after fitting the tone (frequency, amplitude, phase)
// is 140 dB down, where a 16-bit path stops at 98.
TEST(AlsaHqFormats, A24BitToneKeeps24BitQuality) {
  PipelineRequest r;
  r.in_rate = 44100, r.out_rate = 48000, r.channels = 1, r.period_frames = 0, r.converter = "skelda_hq";
  r.format = r.slave_format = SND_PCM_FORMAT_S32_LE;
  const auto x = tones24(44100, 1, 44100);
  const PipelineResult out = play_through_alsa(r, encode(x, r.format));
  ASSERT_EQ(out.error, 0) << out.failed_call;
  // 0.25 s from the middle; the phase free, the frequency 997 Hz exactly
  // (the periods' ratio, not the rates', sets the output's).
  const double ratio = double(out.slave_period) / double(out.client_period);
  const size_t first = 12000, n = 12000;
  double ss = 0, cc = 0, sc = 0, ys = 0, yc = 0;
  std::vector<double> s(n), k(n);
  for (size_t i = 0; i < n; ++i) {
    const double w = 2 * M_PI * 997.0 * double(first + i) / (44100 * ratio);
    s[i] = std::sin(w), k[i] = std::cos(w);
    const double y = out.output32[first + i];
    ss += s[i] * s[i], cc += k[i] * k[i], sc += s[i] * k[i], ys += y * s[i], yc += y * k[i];
  }
  const double det = ss * cc - sc * sc, a = (ys * cc - yc * sc) / det, b = (yc * ss - ys * sc) / det;
  double noise = 0;
  for (size_t i = 0; i < n; ++i) {
    const double e = out.output32[first + i] - (a * s[i] + b * k[i]);
    noise += e * e;
  }
  const double amplitude = std::hypot(a, b);
  EXPECT_NEAR(amplitude / (kAmplitude * 2147483392.0), 1.0, 1e-4);
  EXPECT_GE(10 * std::log10(amplitude * amplitude / 2 / (noise / n)), 140.0);
}

snd_pcm_rate_info_t formats_info(snd_pcm_format_t in, snd_pcm_format_t out, unsigned channels) {
  snd_pcm_rate_info_t i = rate_info(44100, 48000, channels, 1024, 1114);
  i.in.format = in, i.out.format = out;
  return i;
}

// The compound's options, by exact name: dither takes each spelling of a
// boolean alsa-lib knows; a near name, another case, an empty value or a
// compound where the boolean belongs fails the open with a report naming
// the option, and nothing plays. Through the real alsa-lib and through the
// entry alsa-lib calls with the converter's compound.
TEST(AlsaHqFormats, OptionsAreTakenOrRefusedByName) {
  const char *const dither_on = ", dither\n", *const dither_off = "S16_LE -> S16_LE\n";
  const struct {
    const char *options;
    bool opens;
    const char *named;  // in the report, or in the dump when it opens
  } cases[] = {
      {"dither yes", true, dither_on},      {"dither no", true, dither_off},
      {"dither on", true, dither_on},       {"dither off", true, dither_off},
      {"dither true", true, dither_on},     {"dither false", true, dither_off},
      {"dither 1", true, dither_on},        {"dither 0", true, dither_off},
      {"dither \"yes\"", true, dither_on},  {"", true, dither_off},
      {"dither maybe", false, "dither"},    {"dither 2", false, "dither"},
      {"dither \"\"", false, "dither"},     {"dither { a 1 }", false, "dither"},
      {"dither [ yes ]", false, "dither"},  {"dithering yes", false, "dithering"},
      {"dither2 on", false, "dither2"},     {"Dither yes", false, "Dither"},
      {"quality 10", false, "quality"},     {"dither yes\nfilter x", false, "filter"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.options);
    PipelineRequest r;
    r.in_rate = 44100, r.out_rate = 48000, r.channels = 2, r.converter = "skelda_hq", r.options = c.options;
    // An empty row still goes through the compound form: `name` alone.
    if (r.options.empty()) r.options = " ";
    ErrorCapture errors;
    const PipelineResult out = play_through_alsa(r, std::vector<int16_t>(2 * 4410, 1000));
    auto reported = [&] {
      bool named = false;
      for (const auto &report : errors.reports()) named |= report.message.find(c.named) != std::string::npos;
      return named;
    };
    if (c.opens) {
      EXPECT_EQ(out.error, 0) << out.failed_call;
      EXPECT_NE(out.dump.find(c.named), std::string::npos) << out.dump;
    } else {
      EXPECT_NE(out.error, 0);
      EXPECT_TRUE(out.bytes.empty());
      EXPECT_TRUE(reported()) << "no report names " << c.named;
    }

    // The entry itself, given the compound as alsa-lib hands it over.
    errors.clear();
    const std::string text = std::string("converter { name \"skelda_hq\" ") + c.options + " }";
    snd_config_t *top = nullptr, *compound = nullptr;
    snd_input_t *in = nullptr;
    ASSERT_EQ(snd_config_top(&top), 0);
    ASSERT_EQ(snd_input_buffer_open(&in, text.c_str(), ssize_t(text.size())), 0);
    const int loaded = snd_config_load(top, in);
    snd_input_close(in);
    ASSERT_EQ(loaded, 0);
    ASSERT_EQ(snd_config_search(top, "converter", &compound), 0);
    void *obj = nullptr;
    snd_pcm_rate_ops_t ops{};
    const int opened = _snd_pcm_rate_skelda_hq_open_conf(SND_PCM_RATE_PLUGIN_VERSION, &obj, &ops, compound);
    snd_config_delete(top);
    if (!c.opens) {
      EXPECT_EQ(opened, -EINVAL);
      EXPECT_EQ(obj, nullptr);
      EXPECT_TRUE(reported()) << "no report names " << c.named;
      continue;
    }
    ASSERT_EQ(opened, 0);
    snd_pcm_rate_info_t i = formats_info(SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S16_LE, 2);
    EXPECT_EQ(ops.init(obj, &i), 0);
    snd_output_t *dumped = nullptr;
    snd_output_buffer_open(&dumped);
    ops.dump(obj, dumped);
    char *said = nullptr;
    const size_t size = snd_output_buffer_string(dumped, &said);
    const std::string dump(said, size);
    snd_output_close(dumped);
    EXPECT_NE(dump.find(c.named), std::string::npos) << dump;
    ops.free(obj);
    ops.close(obj);
  }
}

struct Module {
  void *obj = nullptr;
  snd_pcm_rate_ops_t ops{};
  Module(unsigned version = SND_PCM_RATE_PLUGIN_VERSION) {
    EXPECT_EQ(_snd_pcm_rate_skelda_hq_open(version, &obj, &ops), 0);
  }
  ~Module() {
    ops.free(obj);
    ops.close(obj);
  }
};

// Protocol 0x010003: areas and the formats S16 and S32 either way; an older
// one: interleaved S16 through convert_s16 (and nothing written past the
// older table), giving the same samples as S16 areas.
TEST(HqModuleFormats, EachProtocolGetsItsTableAndTheSameSamples) {
  Module current;
  EXPECT_EQ(current.ops.version, 0x010003u);
  ASSERT_TRUE(current.ops.convert != nullptr && current.ops.convert_s16 == nullptr &&
              current.ops.get_supported_formats != nullptr);
  uint64_t in = 0, out = 0;
  unsigned flags = 99;
  current.ops.get_supported_formats(current.obj, &in, &out, &flags);
  const uint64_t both = (1ull << SND_PCM_FORMAT_S16_LE) | (1ull << SND_PCM_FORMAT_S32_LE);
  EXPECT_TRUE(in == both && out == both && flags == 0);

  snd_pcm_rate_ops_t canary;
  std::memset(&canary, 0x5a, sizeof canary);
  void *obj = nullptr;
  ASSERT_EQ(_snd_pcm_rate_skelda_hq_open(0x010002, &obj, &canary), 0);
  EXPECT_EQ(canary.version, 0x010002u);
  EXPECT_TRUE(canary.convert == nullptr && canary.convert_s16 != nullptr);
  const auto *untouched = reinterpret_cast<const uint8_t *>(&canary.get_supported_formats);
  EXPECT_TRUE(std::all_of(untouched, untouched + sizeof canary.get_supported_formats,
                          [](uint8_t b) { return b == 0x5a; }));
  snd_pcm_rate_info_t i = formats_info(SND_PCM_FORMAT_S24_LE, SND_PCM_FORMAT_S24_LE, 2);
  ASSERT_EQ(canary.init(obj, &i), 0) << "convert_s16 takes S16 whatever the formats say";
  ASSERT_EQ(canary.adjust_pitch(obj, &i), 0);
  std::vector<int16_t> src(2 * 1024), legacy(2 * 1114), areas(2 * 1114);
  for (size_t k = 0; k < src.size(); ++k) src[k] = int16_t(k * 7919);
  canary.convert_s16(obj, legacy.data(), 1114, src.data(), 1024);
  canary.free(obj);
  canary.close(obj);

  i = formats_info(SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S16_LE, 2);
  ASSERT_EQ(current.ops.init(current.obj, &i), 0);
  const auto s = test_support::interleaved_areas(src.data(), 2, 16), d = test_support::interleaved_areas(areas.data(), 2, 16);
  current.ops.convert(current.obj, d.data(), 0, 1114, s.data(), 0, 1024);
  EXPECT_EQ(areas, legacy);
}

// init refuses a format it did not announce (what older alsa-lib versions
// pass through) with -EINVAL and one report naming it, and the converter
// goes on as it was.
TEST(HqModuleFormats, InitRefusesFormatsItDidNotAnnounce) {
  Module m;
  snd_pcm_rate_info_t good = formats_info(SND_PCM_FORMAT_S32_LE, SND_PCM_FORMAT_S32_LE, 2);
  ASSERT_EQ(m.ops.init(m.obj, &good), 0);
  std::vector<int32_t> src(2 * 1024, 1 << 24), before(2 * 1114), after(2 * 1114);
  const auto s = test_support::interleaved_areas(src.data(), 2, 32);
  const auto b = test_support::interleaved_areas(before.data(), 2, 32), a = test_support::interleaved_areas(after.data(), 2, 32);
  m.ops.convert(m.obj, b.data(), 0, 1114, s.data(), 0, 1024);
  for (auto [in, out] : {std::pair{SND_PCM_FORMAT_S24_LE, SND_PCM_FORMAT_S32_LE},
                         std::pair{SND_PCM_FORMAT_S32_LE, SND_PCM_FORMAT_FLOAT_LE},
                         std::pair{SND_PCM_FORMAT_U16_LE, SND_PCM_FORMAT_S16_LE}}) {
    ErrorCapture errors;
    snd_pcm_rate_info_t bad = formats_info(in, out, 2);
    EXPECT_EQ(m.ops.init(m.obj, &bad), -EINVAL);
    ASSERT_EQ(errors.reports().size(), 1u);
    const std::string &said = errors.reports()[0].message;
    EXPECT_NE(said.find(snd_pcm_format_name(in == SND_PCM_FORMAT_S32_LE ? out : in)), std::string::npos) << said;
  }
  m.ops.reset(m.obj);
  m.ops.convert(m.obj, a.data(), 0, 1114, s.data(), 0, 1024);
  EXPECT_EQ(after, before);
}

// The layouts alsa-lib hands a converter: interleaved frames, a buffer per
// channel, channels in another order, and a device's frames of which the
// converter's channels are a few (dshare, multi, route: the step wider than
// a frame, the first channel not at the frame's start).
enum Layout { kInterleaved, kPlanar, kReversed, kInside, kSpread, kLayouts };
const char *const kLayoutNames[] = {"interleaved", "planar", "reversed", "inside wider frames",
                                    "every other slot, reversed"};

unsigned frame_width(int layout, unsigned ch) { return layout == kInside ? ch + 2 : layout == kSpread ? 2 * ch + 1 : ch; }

unsigned slot_of(int layout, unsigned ch, unsigned c) {
  return layout == kReversed ? ch - 1 - c : layout == kInside ? c + 1 : layout == kSpread ? 2 * (ch - 1 - c) + 1 : c;
}

// Where channel c of frame f lies, in bytes, in a buffer of `frames` frames.
size_t position(int layout, unsigned ch, unsigned c, size_t f, size_t frames, unsigned bytes) {
  if (layout == kPlanar) return (c * frames + f) * bytes;
  return (f * frame_width(layout, ch) + slot_of(layout, ch, c)) * bytes;
}

std::vector<snd_pcm_channel_area_t> areas_of(int layout, const void *data, unsigned ch, unsigned bits, size_t frames) {
  if (layout == kPlanar) return test_support::planar_areas(data, ch, bits, frames);
  std::vector<unsigned> slots(ch);
  for (unsigned c = 0; c < ch; ++c) slots[c] = slot_of(layout, ch, c);
  return test_support::strided_areas(data, slots, frame_width(layout, ch), bits);
}

// Every layout on either side, at frame offsets, gives the frames of
// interleaved areas and writes nothing but its channels' samples of its
// frames. Periods of exactly the converter's work buffers (1024 frames),
// one below and one past, on the output side and on the input side, with
// the most channels, and a period of several buffers; S16 and S32 each way.
// Buffers are exactly as large as the frames, so the sanitizer build sees
// any access past them.
TEST(HqModuleFormats, AreasOfEveryLayoutGiveTheInterleavedFrames) {
  const snd_pcm_format_t s16 = SND_PCM_FORMAT_S16_LE, s32 = SND_PCM_FORMAT_S32_LE;
  const unsigned all = RSMPL_HQ_MAX_CHANNELS;
  const struct {
    snd_pcm_format_t in, out;
    unsigned channels, in_rate, out_rate, in_n, out_n;
  } cases[] = {
      {s32, s32, 3, 44100, 48000, 1024, 1114},  {s16, s32, 3, 44100, 48000, 1024, 1114},
      {s32, s16, 3, 44100, 48000, 1024, 1114},  {s16, s16, 3, 44100, 48000, 1024, 1114},
      {s32, s32, all, 44100, 48000, 940, 1023}, {s32, s32, all, 44100, 48000, 941, 1024},
      {s32, s32, all, 44100, 48000, 942, 1025}, {s16, s16, all, 44100, 48000, 940, 1023},
      {s16, s16, all, 44100, 48000, 941, 1024}, {s16, s16, all, 44100, 48000, 942, 1025},
      {s32, s32, all, 48000, 44100, 1023, 940}, {s32, s32, all, 48000, 44100, 1024, 941},
      {s32, s32, all, 48000, 44100, 1025, 942}, {s16, s16, all, 48000, 44100, 1023, 940},
      {s16, s16, all, 48000, 44100, 1024, 941}, {s16, s16, all, 48000, 44100, 1025, 942},
      {s32, s32, all, 44100, 48000, 4097, 4459}, {s16, s32, all, 48000, 44100, 4459, 4097},
  };
  const size_t in_offset = 3, out_offset = 5;
  std::mt19937_64 rng(25);
  for (const auto &k : cases) {
    const unsigned ch = k.channels, in_bits = snd_pcm_format_physical_width(k.in),
                   out_bits = snd_pcm_format_physical_width(k.out), in_bytes = in_bits / 8, out_bytes = out_bits / 8;
    const size_t in_frames = in_offset + k.in_n, out_frames = out_offset + k.out_n;
    std::vector<uint8_t> samples(in_frames * ch * in_bytes);  // interleaved
    for (uint8_t &b : samples) b = uint8_t(rng());
    std::vector<uint8_t> want;
    for (int in_layout = 0; in_layout < kLayouts; ++in_layout)
      for (int out_layout = 0; out_layout < kLayouts; ++out_layout) {
        SCOPED_TRACE(::testing::Message() << in_bits << " -> " << out_bits << ", " << ch << " channels, " << k.in_n
                                          << " -> " << k.out_n << " frames, " << kLayoutNames[in_layout] << " -> "
                                          << kLayoutNames[out_layout]);
        std::vector<uint8_t> src(in_frames * frame_width(in_layout, ch) * in_bytes, 0x5a);
        for (size_t f = 0; f < in_frames; ++f)
          for (unsigned c = 0; c < ch; ++c)
            std::memcpy(&src[position(in_layout, ch, c, f, in_frames, in_bytes)], &samples[(f * ch + c) * in_bytes],
                        in_bytes);
        std::vector<uint8_t> dst(out_frames * frame_width(out_layout, ch) * out_bytes, 0xa5);
        Module m;
        snd_pcm_rate_info_t i = rate_info(k.in_rate, k.out_rate, ch, k.in_n, k.out_n);
        i.in.format = k.in, i.out.format = k.out;
        ASSERT_EQ(m.ops.init(m.obj, &i), 0);
        ASSERT_EQ(m.ops.adjust_pitch(m.obj, &i), 0);
        const auto s = areas_of(in_layout, src.data(), ch, in_bits, in_frames);
        const auto d = areas_of(out_layout, dst.data(), ch, out_bits, out_frames);
        m.ops.convert(m.obj, d.data(), out_offset, k.out_n, s.data(), in_offset, k.in_n);
        // The frames interleaved; every other byte as it was.
        std::vector<uint8_t> frames, rest = dst;
        for (size_t f = out_offset; f < out_frames; ++f)
          for (unsigned c = 0; c < ch; ++c) {
            const size_t at = position(out_layout, ch, c, f, out_frames, out_bytes);
            frames.insert(frames.end(), dst.begin() + at, dst.begin() + at + out_bytes);
            std::fill_n(rest.begin() + at, out_bytes, uint8_t{0xa5});
          }
        ASSERT_TRUE(std::all_of(rest.begin(), rest.end(), [](uint8_t b) { return b == 0xa5; }))
            << "written outside its channels' frames";
        if (want.empty()) {
          want = frames;  // interleaved on both sides
          continue;
        }
        ASSERT_TRUE(frames == want);
      }
  }
}

}  // namespace
